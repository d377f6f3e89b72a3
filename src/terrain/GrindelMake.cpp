// Making a project from a loaded terrain: its ground becomes the elevation grid and one base
// layer, its model names the object templates (coloured from a config), its objects the
// instances, with ids made unique.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "config/Sembric.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "terrain/Grindel.h"
#include "terrain/Tessak.h"

namespace {
char const* const kVoidModel = "VoidModel.p3d";

bool ends_with_nocase(std::string const& s, std::string_view tail) {
  if (s.size() < tail.size()) return false;
  for (size_t i = 0; i < tail.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(s[s.size() - tail.size() + i])) != tail[i]) return false;
  return true;
}

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
}  // namespace

// The config (text or binarised) holds class objects { colors[] = { "fragment", 0xRRGGBB, ... }; }
// at its top level; pairs may also be written as nested arrays {{"fragment", 0xRRGGBB}, ...}.
void Grindel::_read_colours(char const* config) {
  _colours.clear();
  Sembric* rap = _dll->dll_GetRap();
  if (rap->rap_Create(config, Sembric::RAPF_READER_OPTION, nullptr)) throw PEW_BAD_CONFIG;
  rap_entry* objects = rap->rap_get_class("objects");
  rap_entry* colours = objects ? objects->rpe_get_array("colors") : nullptr;
  if (!colours) {
    _io.io_callbackerr("Config File: has no class objects.colors[]=");
    throw PEW_BAD_CONFIG;
  }
  std::vector<rap_entry const*> values;
  for (rap_entry const* e = colours->rpe_get_first_child(); e; e = e->rpe_get_next_sibling()) {
    if (e->rpe_GetType() != rap_entry::RPE_ARRAY) {
      values.push_back(e);
      continue;
    }
    for (rap_entry const* x = e->rpe_get_first_child(); x; x = x->rpe_get_next_sibling()) values.push_back(x);
  }
  if (values.size() % 2) throw PEW_BAD_CONFIG;
  for (size_t i = 0; i < values.size(); i += 2) {
    rap_entry const* colour = values[i + 1];
    char* end = nullptr;
    unsigned long rgb = std::strtoul(colour->value(), &end, 0);
    if (values[i]->rpe_GetType() != rap_entry::RPE_STRING || !end || end == colour->value() || *end ||
        rgb > 0xFFFFFF)
      throw PEW_BAD_CONFIG;
    uint32_t rgba = uint32_t((rgb >> 16) & 0xFF) | uint32_t(rgb & 0xFF00) | uint32_t((rgb & 0xFF) << 16) | 0xFF000000u;
    _colours.emplace_back(lower(values[i]->value()), rgba);
  }
}

uint32_t Grindel::_colour_of(std::string const& model) const {
  if (_colours.empty()) return kPewDefaultColour;
  std::string m = lower(model);
  for (auto const& [fragment, rgba] : _colours)
    if (m.find(fragment) != std::string::npos) return rgba;
  return kPewDefaultColour;
}

int Grindel::MakePew(char const* file, int version, Tessak* wrp, Callback cb, char const* config) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (cb) _io.io_SetStdioCallBack(cb);
    if (version != 58 && version != 59 && version != 60) {
      _io.io_callback("unknown pose type\r\n");
      return int(GE_INVALID_FILE);
    }
    if (!wrp || wrp->wrp_Kind() == Tessak::KIND_NONE || !file || !*file) throw GE_INVALID_FILE;
    uLongPair layer = wrp->wrp_LayerSize(), map = wrp->wrp_MapSize();
    uint32_t factor = layer.x ? map.x / layer.x : 0;
    if ((factor != 1 && factor != 2 && factor != 4) || factor * layer.x != map.x || factor * layer.y != map.y)
      _io.io_callback("texture & terrain size=%d (not x 1,2 or 4)\r\n", int(map.x));
    _colours.clear();
    if (config && *config) _read_colours(config);
    pew_New(version, wrp->wrp_GridSize());
    for (auto step : {&Grindel::AddPewMaterials, &Grindel::AddPewElevations, &Grindel::AddPewModels})
      if (int r = (this->*step)(wrp)) return r;
    return pew_Write(file);
  });
}

int Grindel::AddPewMaterials(Tessak* wrp) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!wrp) throw GE_INVALID_FILE;
    PewLayer base;
    base.name = activeLayer = "Base";
    base.sizeX = wrp->wrp_LayerSize().x;
    base.sizeY = wrp->wrp_LayerSize().y;
    for (WRP_Texture const& t : wrp->wrp_Textures()) {
      PewTerrainMaterial m;
      m.type = ends_with_nocase(t.first(), ".rvmat") ? PewTerrainMaterial::RVMAT : PewTerrainMaterial::TEXTURES;
      m.marker = t.marker;
      m.names = t.names;
      base.materials.push_back(std::move(m));
    }
    if (uint16_t const* index = wrp->wrp_LayerIndex()) {
      base.cells.assign(index, index + uint64_t(base.sizeX) * base.sizeY);
      // Cells naming a texture beyond the table get empty materials, so every index stays valid.
      uint16_t top = base.cells.empty() ? 0 : *std::max_element(base.cells.begin(), base.cells.end());
      if (!base.cells.empty() && top >= base.materials.size()) base.materials.resize(size_t(top) + 1);
    } else {
      base.sizeX = base.sizeY = 0;
    }
    layers.assign(1, std::move(base));
    return 0;
  });
}

int Grindel::AddPewElevations(Tessak* wrp) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!wrp) throw GE_INVALID_FILE;
    elevations = {};
    float const* h = wrp->wrp_Elevations();
    if (!h) {
      _io.io_callback("no elevations\r\n");
      return 0;
    }
    elevations.sizeX = wrp->wrp_MapSize().x;
    elevations.sizeY = wrp->wrp_MapSize().y;
    elevations.heights.assign(h, h + uint64_t(elevations.sizeX) * elevations.sizeY);
    return 0;
  });
}

int Grindel::AddPewModels(Tessak* wrp) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!wrp) throw GE_INVALID_FILE;
    templates.clear();
    objects.clear();
    std::unordered_map<std::string, uint32_t> ids;  // model name to model id
    auto template_of = [&](std::string const& name) {
      auto [it, added] = ids.emplace(name, uint32_t(templates.size() + 1));
      if (added) {
        PewObjectTemplate t;
        t.model = name;
        t.modelId = it->second;
        t.colour = _colour_of(name);
        templates.push_back(std::move(t));
      }
      return it->second;
    };
    std::vector<std::string> const& names = wrp->wrp_Templates();
    for (std::string const& n : names) template_of(n.empty() ? kVoidModel : n);
    std::vector<WRP_Object> const& src = wrp->wrp_Objects();
    std::vector<uint32_t> model(src.size());
    std::unordered_set<uint32_t> missing;
    for (size_t i = 0; i < src.size(); ++i) {
      std::string const* name = wrp->wrp_TemplateOf(src[i]);
      if (!name && missing.insert(src[i].model).second)
        _io.io_callback("missing p3d %s\r\n", ("#" + std::to_string(src[i].model)).c_str());
      model[i] = template_of(name && !name->empty() ? *name : kVoidModel);
    }

    _io.io_callback("...Generating new objectID's\r\n");
    std::unordered_set<uint32_t> used;
    used.reserve(src.size());
    uint32_t top = 0;
    for (WRP_Object const& o : src)
      if (o.id <= kMaxObjectId) top = std::max(top, o.id);
    std::vector<uint32_t> id(src.size());
    for (size_t i = 0; i < src.size(); ++i) {
      id[i] = src[i].id;
      if (id[i] <= kMaxObjectId && used.insert(id[i]).second) continue;
      if (top >= kMaxObjectId) throw PEW_BAD_INSTANCE_ID;
      _warn("warning, duplicated object id %d is replaced with %d\r\n", int(src[i].id), int(top + 1));
      id[i] = ++top;
      used.insert(id[i]);
    }

    _io.io_callback("...adding Objects\r\n");
    objects.resize(src.size());
    for (size_t i = 0; i < src.size(); ++i) {
      objects[i].objectId = id[i];
      objects[i].modelId = model[i];
      objects[i].transform = src[i].transform;
    }
    return 0;
  });
}

#include "terrain/ObjectListing.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "anim/BisTransform.h"
#include "core/GuardedCall.h"
#include "io/MappedFile.h"
#include "terrain/GridText.h"
#include "terrain/Heightmap.h"
#include "terrain/Tessak.h"

using namespace grid_text;
using namespace grid_tool;

namespace {
unsigned long long ull(uint64_t v) { return static_cast<unsigned long long>(v); }

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

bool csv_header(std::string_view line) {
  line = trim(line);
  return line.size() >= 3 && (line[0] == 'i' || line[0] == 'I') && (line[1] == 'd' || line[1] == 'D') && line[2] == ',';
}
}  // namespace

ObjectListing::ObjectListing(BisDLL* dll) : _io(dll) {}

char const* ObjectListing::ErrorString(int code) { return Heightmap::ErrorString(code); }

int ObjectListing::ol_Write(Tessak const& terrain, char const* file, bool csv) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) throw "no filename";
    OutputCloser closer{_io};
    if (!_io.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    std::string text;
    if (csv) text = "id,model,x,y,z,direction,scale\n";
    char numbers[256];
    for (WRP_Object const& obj : terrain.wrp_Objects()) {
      XYZTransform copy = obj.transform;
      BisTransform tr;
      tr.SetTransformArray(&copy, false);
      std::string const* model = terrain.wrp_TemplateOf(obj);
      text += std::to_string(obj.id);
      // The model's bytes as they are; CSV doubles its quotes.
      if (csv) {
        text += ",\"";
        for (char c : model ? *model : std::string()) text.append(c == '"' ? 2 : 1, c);
        text += '"';
      } else {
        text += ' ';
        text += model ? *model : "-";
      }
      char const* format = csv ? ",%.3f,%.3f,%.3f,%.3f,%.4f\n" : " %.3f %.3f %.3f %.3f %.4f\n";
      int n = std::snprintf(numbers, sizeof numbers, format, tr.GetX(), tr.GetZ(), tr.GetY(),
                            tr.GetDirectionInDegrees(), tr.GetScale());
      if (n < 0 || size_t(n) >= sizeof numbers) throw GE_CODE_BUG;
      text.append(numbers, size_t(n));
      if (text.size() >= (1 << 20)) _io.io_WriteBlock(text.data(), text.size()), text.clear();
    }
    _io.io_WriteBlock(text.data(), text.size());
    if (!_io.io_CloseOutput()) _io.io_throw(GE_CANNOT_WRITE, "%s: %s\r\n", file, std::strerror(errno));
    return 0;
  });
}

int ObjectListing::ol_Read(char const* file) {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _entries.clear();
    _models.clear();
    if (!file || !*file) throw "no filename";
    MappedFile mapped;
    if (int e = mapped.mf_Open(file)) _io.io_throw(GE_INVALID_FILE, "Cannot open %s: %s\r\n", file, std::strerror(e));
    auto const* text = reinterpret_cast<char const*>(mapped.mf_Data());
    _read_text(text, text + mapped.mf_Size());
    if (mapped.mf_Truncated()) {
      _entries.clear();
      _models.clear();
      _io.io_throw(GE_EOF, "%s shrank while it was read\r\n", file);
    }
    return 0;
  });
}

int ObjectListing::ol_Read(void const* text, uint64_t size) {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    auto const* t = static_cast<char const*>(text);
    _read_text(t, t + (t ? size : 0));
    return 0;
  });
}

// A line is either form on its own: CSV when a comma follows the id, else blank-separated with the
// model between the id and the last five numbers (so a model name may hold blanks).
void ObjectListing::_read_text(char const* text, char const* end) {
  _entries.clear();
  _models.clear();
  if (end - text >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) text += 3;
  std::unordered_map<std::string, uint32_t> known;
  try {
    Lines lines(text, end);
    std::string_view line;
    bool first = true;
    while (lines.next(line)) {
      line = trim(line);
      if (line.empty() || line[0] == '#') continue;
      if (first && csv_header(line)) {
        first = false;
        continue;
      }
      first = false;
      auto bad = [&](char const* what, std::string_view field) {
        _io.io_throw(GRID_BAD_OBJECTS, "line %llu: %s '%s'\r\n", ull(lines.number), what, shown(field).c_str());
      };
      size_t id_end = 0;
      while (id_end < line.size() && !is_blank(line[id_end]) && line[id_end] != ',') ++id_end;
      Entry e;
      if (!to_number(line.substr(0, id_end), e.id))
        bad("the id is not a whole number from 0 to 4294967295:", line.substr(0, id_end));
      std::string model;
      std::string_view numbers[5];
      if (id_end < line.size() && line[id_end] == ',') {
        std::string_view rest = line.substr(id_end + 1);
        if (!rest.empty() && rest[0] == '"') {
          size_t i = 1;
          for (;; ++i) {
            if (i >= rest.size()) bad("the model's quotes are not closed:", rest);
            if (rest[i] != '"') {
              model += rest[i];
            } else if (i + 1 < rest.size() && rest[i + 1] == '"') {
              model += '"', ++i;
            } else {
              break;
            }
          }
          rest.remove_prefix(i + 1);
          if (rest.empty() || rest[0] != ',') bad("a comma should follow the model, not", rest);
          rest.remove_prefix(1);
        } else {
          size_t comma = rest.find(',');
          model = trim(rest.substr(0, comma));
          rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        }
        int n = 0;
        for (; n < 5 && !rest.empty(); ++n) {
          size_t comma = rest.find(',');
          numbers[n] = trim(rest.substr(0, comma));
          rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        }
        if (n < 5 || !trim(rest).empty()) bad("an object is id,model,x,y,z,direction,scale:", line);
      } else {
        // The last five fields from the end, then the model is what lies between.
        size_t stop = line.size();
        for (int n = 4; n >= 0; --n) {
          size_t last = stop;
          while (last > id_end && is_blank(line[last - 1])) --last;
          size_t start = last;
          while (start > id_end && !is_blank(line[start - 1])) --start;
          if (start == last) bad("an object is id model x y z direction scale:", line);
          numbers[n] = line.substr(start, last - start);
          stop = start;
        }
        model = trim(line.substr(id_end, stop - id_end));
      }
      if (model.empty() || model == "-") bad("the object has no model:", line);
      char const* names[] = {"x", "y", "z", "direction", "scale"};
      double* values[] = {&e.x, &e.y, &e.z, &e.direction, &e.scale};
      for (int i = 0; i < 5; ++i) {
        if (!to_number(numbers[i], *values[i]) || !std::isfinite(*values[i]))
          _io.io_throw(GRID_BAD_OBJECTS, "line %llu: the %s '%s' is not a number\r\n", ull(lines.number), names[i],
                       shown(numbers[i]).c_str());
      }
      if (std::fabs(e.x) > kMaxPosition || std::fabs(e.y) > kMaxPosition || std::fabs(e.z) > kMaxPosition)
        bad("the object stands farther away than any terrain reaches:", line);
      if (!(e.scale >= kMinScale && e.scale <= kMaxScale)) bad("the scale is not one an object can have:", numbers[4]);
      auto [it, added] = known.try_emplace(model, uint32_t(_models.size()));
      if (added) _models.push_back(model);
      e.model = it->second;
      _entries.push_back(e);
    }
  } catch (...) {
    _entries.clear();
    _models.clear();
    throw;
  }
}

int ObjectListing::ol_PlaceOn(Tessak& terrain) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (terrain.wrp_Kind() == Tessak::KIND_NONE) _io.io_throw(GE_INVALID_FILE, "no terrain to place objects on\r\n");
    auto& templates = terrain.wrp_EditTemplates();
    auto& objects = terrain.wrp_EditObjects();
    std::unordered_map<std::string_view, uint32_t> known;
    for (uint32_t i = 0; i < templates.size(); ++i) known.try_emplace(templates[i], i);
    std::vector<uint32_t> position(_models.size());
    templates.reserve(templates.size() + _models.size());  // the views in `known` stay valid
    for (size_t m = 0; m < _models.size(); ++m) {
      auto it = known.find(_models[m]);
      if (it == known.end()) {
        templates.push_back(_models[m]);
        it = known.emplace(templates.back(), uint32_t(templates.size() - 1)).first;
      }
      position[m] = it->second;
    }
    double width = double(terrain.wrp_GridSize()) * terrain.wrp_LayerSize().x;
    double depth = double(terrain.wrp_GridSize()) * terrain.wrp_LayerSize().y;
    uint64_t outside = 0;
    objects.reserve(objects.size() + _entries.size());
    for (Entry const& e : _entries) {
      WRP_Object o;
      o.id = e.id;
      o.model = position[e.model];
      o.transform.up.y = float(e.scale);
      BisTransform t;
      t.SetTransformArray(&o.transform, false);
      t.SetDirectionInDegrees(e.direction, float(e.scale));
      // The listing's y runs north and its z is the height; the terrain's y is up.
      t.SetXYZ(e.x, e.z, e.y);
      outside += e.x < 0 || e.y < 0 || e.x > width || e.y > depth;
      objects.push_back(o);
    }
    if (outside)
      _io.io_callbackerr("***Warning*** %llu objects stand outside the terrain's %g x %g m\r\n", ull(outside), width,
                         depth);
    return 0;
  });
}

#include "config/ConfigChecks.h"

#include <strings.h>

#include <string>
#include <unordered_set>

#include "config/RapMessages.h"
#include "config/Sembric.h"
#include "config/rap_entry.h"
#include "io/BisFileIO.h"
#include "text/FileStringA.h"

namespace {
using T = rap_entry;

// Inheritance chains are followed at most this far: a circle must end the walk.
constexpr int kMaxHops = 1024;

// An entry of the class or of the classes it inherits from, nearest first.
rap_entry* inherited_entry(rap_entry* cls, char const* name, int type) {
  for (int hops = 0; cls && hops < kMaxHops; ++hops, cls = cls->rpe_find_inherited_class())
    if (rap_entry* e = cls->rpe_get_entry(name, type)) return e;
  return nullptr;
}

rap_entry* inherited_array(rap_entry* cls, char const* name) {
  rap_entry* e = inherited_entry(cls, name, T::RPE_ARRAY);
  return e ? e : inherited_entry(cls, name, T::RPE_APPEND);
}

std::string lowered(char const* s) {
  std::string k(s ? s : "");
  for (char& c : k)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return k;
}

// The scope a class states as a number, -1 for none.
int stated_scope(rap_entry const* e) {
  switch (e->rpe_GetType()) {
    case T::RPE_INT:
    case T::RPE_INT64:
    case T::RPE_FLOAT:
    case T::RPE_DOUBLE: return static_cast<int>(e->rpe_get_int());
    default: return -1;
  }
}

bool listed(rap_entry* cls) {
  for (int hops = 0; cls && hops < kMaxHops; ++hops, cls = cls->rpe_find_inherited_class()) {
    rap_entry* scope = cls->rpe_get_entry("scope", T::RPE_ANY);
    int s = scope ? stated_scope(scope) : -1;
    if (s >= 0) return s >= 1;
  }
  return true;
}
}  // namespace

ConfigChecks::ConfigChecks(Sembric& rap, Vendrak* pbo)
    : _rap(rap), _io(*rap.rap_GetIO()), _root(*rap.rap_get_root()) {}

int ConfigChecks::cc_run() {
  int first = 0;
  for (int (ConfigChecks::*check)() : {&ConfigChecks::cc_required_addons, &ConfigChecks::cc_units,
                                       &ConfigChecks::cc_worlds}) {
    int r = (this->*check)();
    if (!first) first = r;
  }
  return first;
}

// The addon's own class: the first class of cfgPatches.
rap_entry* ConfigChecks::_addon() {
  rap_entry* patches = _root.rpe_get_class("cfgPatches");
  rap_entry* addon = patches ? patches->rpe_get_class(nullptr) : nullptr;
  return addon;
}

int ConfigChecks::cc_required_addons() {
  rap_entry* addon = _addon();
  if (!addon) {
    return _rap.rap_Warn(RAPMSG_NO_PATCHES_NAME);
  }
  // Classes declared without a body live in other addons, which must load first.
  if (!_root.rpe_has_externs()) return 0;
  rap_entry* required = addon->rpe_get_array("requiredAddons");
  if (required && required->rpe_get_first_child()) return 0;
  return _rap.rap_Warn(RAPMSG_NO_REQUIRED_ADDONS);
}

int ConfigChecks::cc_units() {
  rap_entry* addon = _addon();
  if (!addon) return 0;  // said by the required-addons check
  int r = _rebuild(*addon, "units", "cfgVehicles");
  int w = _rebuild(*addon, "weapons", "cfgWeapons");
  return r ? r : w;
}

int ConfigChecks::_rebuild(rap_entry& addon, char const* list, char const* from) {
  std::vector<rap_entry*> classes;
  if (rap_entry* source = _root.rpe_get_class(from))
    for (rap_entry* c = source->rpe_get_class(nullptr); c; c = c->rpe_get_next())
      if (listed(c)) classes.push_back(c);
  rap_entry* written = addon.rpe_get_entry(list, T::RPE_ANY);
  if (!written && classes.empty()) return 0;
  if (written && written->rpe_GetType() != T::RPE_ARRAY) {
    // A scalar or an append cannot be rewritten into the list the addon declares.
    for (rap_entry* c : classes)
      _io.io_callbackerr("A fault occured while trying to add class %s from %s to %s[]=\n", c->name(), from, list);
    return RAPMSG_UNITS_FAILED;
  }
  // Order is the author's business: only a different set of names counts as a change.
  std::unordered_set<std::string> now, rebuilt;
  bool plain = true;
  for (rap_entry* e = written ? written->rpe_get_first_child() : nullptr; e; e = e->rpe_get_next_sibling()) {
    if (e->rpe_GetType() != T::RPE_STRING) plain = false;
    now.insert(lowered(e->value()));
  }
  for (rap_entry* c : classes) rebuilt.insert(lowered(c->name()));
  if (plain && now == rebuilt) return 0;
  if (!written) written = addon.rpe_add_array(list, false);
  written->rpe_clear();
  for (rap_entry* c : classes) written->rpe_add_string(nullptr, c->name());
  _io.io_callback("cfgPatches.%s.%s[]= has been altered\n", addon.name(), list);
  return 0;
}

int ConfigChecks::cc_worlds() {
  rap_entry* worlds = _root.rpe_get_class("cfgWorlds");
  if (!worlds) return 0;
  int result = 0;
  for (rap_entry* world = worlds->rpe_get_class(nullptr); world; world = world->rpe_get_next()) {
    rap_entry* name = world->rpe_get_entry("worldName", T::RPE_ANY);
    if (!name) continue;
    if (!FileStringA(name->value()).fs_CompareFilenameOnly(world->name())) {
      _io.io_callbackerr("\nwrp name '%s' is not same as classname '%s'", name->value(), world->name());
      if (!result) result = RAPMSG_WRP_NAME;
      continue;
    }
    _add_world(*world);
    if (!world->rpe_get_entry("minTreesInForestSquare", T::RPE_ANY))
      _io.io_callbackerr("\n'minTreesInForestSquare' is not stated in the cfgWorlds config\n");
    if (!world->rpe_get_entry("minRocksInRockSquare", T::RPE_ANY))
      _io.io_callbackerr("\n'minRocksInRockSquare' is not stated in the cfgWorlds config\n");
    rap_entry* cutscenes = world->rpe_get_array("cutscenes");
    if (cutscenes && cutscenes->rpe_get_first_child()) {
      _io.io_callback("\nWarning: do not put cutscenes in your wrp's pbo\n");
      if (int w = _rap.rap_Warn(RAPMSG_CUTSCENES, false); w && !result) result = w;
    }
    if (int c = _clutter(*world); c && !result) result = c;
  }
  return result;
}

// A terrain is listed in cfgWorldList and in its addon's worlds[].
void ConfigChecks::_add_world(rap_entry& world) {
  rap_entry* list = _root.rpe_get_class("cfgWorldList");
  if (!list) list = _root.rpe_add_class("CfgWorldList", nullptr);
  list->rpe_add_class(world.name(), nullptr);
  rap_entry* addon = _addon();
  if (!addon) return;
  rap_entry* names = addon->rpe_get_array("worlds");
  if (!names) names = addon->rpe_add_array("worlds", false);
  for (rap_entry* e = names->rpe_get_first_child(); e; e = e->rpe_get_next_sibling())
    if (!strcasecmp(e->value(), world.name())) return;
  names->rpe_add_string(nullptr, world.name());
}

int ConfigChecks::_clutter(rap_entry& world) {
  _io.io_callback("Checking cfgSurfaces and clutter...");
  rap_entry* surfaces = _root.rpe_get_class("cfgSurfaces");
  rap_entry* characters = _root.rpe_get_class("Cfgsurfacecharacters");
  rap_entry* clutter = inherited_entry(&world, "clutter", T::RPE_CLASS);
  if (!surfaces) _io.io_callback("\nwarning:cfgSurfaces not defined\n");
  if (!characters) _io.io_callback("\nwarning:Cfgsurfacecharacters not defined\n");
  if (!clutter) _io.io_callback("\nwarning:clutter not defined\n");
  bool fault = false;
  for (rap_entry* s = surfaces ? surfaces->rpe_get_class(nullptr) : nullptr; s && characters; s = s->rpe_get_next()) {
    rap_entry* ch = inherited_entry(s, "character", T::RPE_ANY);
    char const* name = ch ? ch->value() : "";
    if (!*name || !strcasecmp(name, "empty")) continue;
    rap_entry* character = characters->rpe_get_class(name);
    if (!character) {
      _io.io_callbackerr("\ncfgSurfaces.%s.%s has no class in Cfgsurfacecharacters\n", s->name(), name);
      fault = true;
      continue;
    }
    rap_entry* probability = inherited_array(character, "probability");
    rap_entry* names = inherited_array(character, "names");
    if (!probability) _io.io_callbackerr("Cfgsurfacecharacters.%s has no probability array\n", character->name());
    if (!names) _io.io_callbackerr("Cfgsurfacecharacters.%s has no names array\n", character->name());
    if (!probability || !names) {
      fault = true;
      continue;
    }
    if (probability->rpe_count_children() != names->rpe_count_children()) {
      _io.io_callbackerr("%s: probability and names arrays are different sizes\n", character->name());
      fault = true;
    }
    double sum = 0;
    for (rap_entry* p = probability->rpe_get_first_child(); p; p = p->rpe_get_next_sibling())
      sum += p->rpe_get_double();
    if (sum > 1.0 + kProbabilitySlack) {
      _io.io_callbackerr("%s: sumof probabilities exceed 1.0. is %f\n", character->name(), sum);
      fault = true;
    }
    for (rap_entry* n = names->rpe_get_first_child(); n && clutter; n = n->rpe_get_next_sibling()) {
      if (inherited_entry(clutter, n->value(), T::RPE_CLASS)) continue;
      _io.io_callbackerr("\nCfgsurfacecharacters.%s.name[%s] has no clutter class\n", character->name(), n->value());
      fault = true;
    }
  }
  _io.io_callback("done\n");
  return fault ? RAPMSG_CLUTTER : 0;
}

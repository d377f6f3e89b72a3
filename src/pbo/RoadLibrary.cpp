// The road library of a terrain (RoadsLib.cfg): every road class the game looks up must exist,
// numbered without gaps, with the properties the road builder reads and paths it can resolve.
#include <cstdio>
#include <cstring>

#include "config/rap_entry.h"
#include "pbo/VendrakImpl.h"

namespace {
bool numeric(rap_entry const* e) {
  int t = e->rpe_GetType();
  return t == rap_entry::RPE_INT || t == rap_entry::RPE_FLOAT || t == rap_entry::RPE_DOUBLE ||
         t == rap_entry::RPE_INT64;
}

bool has_upper(char const* s) {
  for (; *s; ++s)
    if (*s >= 'A' && *s <= 'Z') return true;
  return false;
}
}  // namespace

bool Vendrak::pbo_ValidateRoadTree(rap_entry* root) {
  BisFileIO& io = _impl->io;
  rap_entry* library = root ? root->rpe_get_entry("RoadTypesLibrary", rap_entry::RPE_CLASS) : nullptr;
  if (!library) {
    io.io_callbackerr("error: there is no class RoadTypesLibrary\n");
    return false;
  }
  bool case_fault = false;
  int n = 0;
  for (rap_entry* road = library->rpe_get_first_child(); road; road = road->rpe_get_next_sibling()) {
    if (road->rpe_GetType() != rap_entry::RPE_CLASS) continue;
    char expected[32];
    std::snprintf(expected, sizeof expected, "Road%04d", ++n);
    char const* name = road->name();
    if (strcasecmp(name, expected) != 0) {
      io.io_callbackerr("error: should be class %s, is class%s\n", expected, name);
      return false;
    }
    for (char const* number : {"width", "AIpathOffset"}) {
      rap_entry* v = road->rpe_get_entry(number, rap_entry::RPE_ANY);
      if (!v) {
        io.io_callbackerr("error: class %s has missing %s=\n", name, number);
        return false;
      }
      if (!numeric(v)) {
        io.io_callbackerr("error: class %s,%s= is not numeric\n", name, number);
        return false;
      }
    }
    if (!road->rpe_get_entry("map", rap_entry::RPE_ANY)) {
      io.io_callbackerr("error: class %s has missing map=\n", name);
      return false;
    }
    for (char const* path : {"mainStrTex", "mainTerTex", "mainMat"}) {
      rap_entry* v = road->rpe_get_entry(path, rap_entry::RPE_ANY);
      if (!v) continue;
      char const* text = v->value();
      if (text[0] == '\\') {
        io.io_callbackerr("error: paths cannot contain \\leading\\slash\n");
        return false;
      }
      // The game looks textures and materials up in lower case; a mixed-case path is reported,
      // mended in the tree, and fails the library once every class has been seen.
      if (std::strchr(text, '\\') && has_upper(text)) {
        io.io_callbackerr("%s\n", text);
        v->tkn_value().str_ToLower();
        case_fault = true;
      }
    }
  }
  if (n == 0) {
    io.io_callbackerr("error: RoadTypesLibrary has no road classes\n");
    return false;
  }
  if (case_fault) {
    io.io_callbackerr("error: file paths must\\be\\lower\\case\n");
    return false;
  }
  io.io_callback("done\n");
  return true;
}

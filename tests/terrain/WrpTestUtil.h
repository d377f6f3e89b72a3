#pragma once
#include <cstring>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "io/BisFileIO_test_util.h"
#include "terrain/Tessak.h"

namespace wrp_test {
// The shared corpus beside the source tree, or beside the folder of worktrees that holds it.
inline std::filesystem::path corpus_dir() {
  namespace fs = std::filesystem;
  fs::path direct = fs::path(VENDRAK_CORPUS).lexically_normal();
  if (fs::is_directory(direct)) return direct;
  return direct.parent_path().parent_path().parent_path() / "shared" / "corpus";
}

// A terrain context whose messages are captured (g_msgs, g_errs).
struct Loaded {
  BisDLL dll;
  Tessak* t = dll.dll_GetTessak();
  Loaded() {
    clear_captured();
    t->wrp_GetIO()->io_SetStdioCallBack(capture_msg);
    t->wrp_GetIO()->io_SetErrCallBack(capture_err);
  }
  int open(std::string const& bytes) {
    data = bytes;
    return t->wrp_Open(data.data(), data.size());
  }
  std::string data;  // a buffer handed to the terrain stays alive with it
};

// A small terrain with something in every part the editable kinds share.
inline void fill_small(Tessak& t, uint32_t layer, uint32_t map, int objects) {
  t.wrp_SetGrids({layer, layer}, {map, map}, 40.0f);
  std::vector<float> h(uint64_t(map) * map);
  for (size_t i = 0; i < h.size(); ++i) h[i] = float(int(i % 97) - 20) * 0.05f * 3;
  t.wrp_SetElevations(h.data());
  std::vector<uint16_t> idx(uint64_t(layer) * layer);
  for (size_t i = 0; i < idx.size(); ++i) idx[i] = uint16_t(1 + (i / 3) % 4);
  t.wrp_SetLayerIndex(idx.data());
  auto& tex = t.wrp_EditTextures();
  tex.assign(5, {});
  for (int i = 1; i < 5; ++i) tex[i].names = {"data\\layer" + std::to_string(i) + ".paa"};
  t.wrp_EditTemplates() = {"data3d\\tree.p3d", "data3d\\house.p3d"};
  auto& obj = t.wrp_EditObjects();
  obj.clear();
  for (int i = 0; i < objects; ++i) {
    WRP_Object o;
    o.id = uint32_t(i);
    o.model = uint32_t(i % 2);
    o.transform = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {float(i), float(i) * 0.5f, float(i) * 2}};
    obj.push_back(o);
  }
}

inline bool same_objects(Tessak const& a, Tessak const& b) {
  auto const &x = a.wrp_Objects(), &y = b.wrp_Objects();
  if (x.size() != y.size()) return false;
  for (size_t i = 0; i < x.size(); ++i) {
    if (x[i].id != y[i].id || std::memcmp(&x[i].transform, &y[i].transform, sizeof(XYZTransform)) != 0)
      return false;
    auto const *m = a.wrp_TemplateOf(x[i]), *n = b.wrp_TemplateOf(y[i]);
    if (!m || !n || *m != *n) return false;
  }
  return true;
}

inline bool same_ground(Tessak const& a, Tessak const& b) {
  auto ls = a.wrp_LayerSize(), ms = a.wrp_MapSize();
  if (ls.x != b.wrp_LayerSize().x || ls.y != b.wrp_LayerSize().y || ms.x != b.wrp_MapSize().x ||
      ms.y != b.wrp_MapSize().y)
    return false;
  if (std::memcmp(a.wrp_Elevations(), b.wrp_Elevations(), uint64_t(ms.x) * ms.y * 4) != 0) return false;
  if (std::memcmp(a.wrp_LayerIndex(), b.wrp_LayerIndex(), uint64_t(ls.x) * ls.y * 2) != 0) return false;
  if (a.wrp_Textures().size() != b.wrp_Textures().size()) return false;
  for (size_t i = 0; i < a.wrp_Textures().size(); ++i)
    if (a.wrp_Textures()[i].first() != b.wrp_Textures()[i].first()) return false;
  return true;
}
}  // namespace wrp_test

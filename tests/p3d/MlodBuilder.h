#pragma once
// Builds editable models byte by byte, so that each test states exactly what the file holds.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace mlod_test {

inline void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}
inline void putf(std::string& s, float f) {
  uint32_t v;
  std::memcpy(&v, &f, 4);
  put32(s, v);
}
inline void put_fixed(std::string& s, std::string const& text, size_t size) {
  std::string t = text.substr(0, size);
  t.resize(size, '\0');
  s += t;
}

struct Tagg {
  std::string name;
  std::string data;
  int64_t length = -1;  // the length word; -1: the data's size
};

inline Tagg property(std::string const& name, std::string const& value) {
  std::string d;
  put_fixed(d, name, 64);
  put_fixed(d, value, 64);
  return {"#Property#", d};
}

struct Lod {
  std::string magic = "P3DM";
  uint32_t version = 256;
  uint32_t points = 3;
  uint32_t normals = 1;
  std::vector<int> faces = {3};  // corner count of each face
  std::vector<Tagg> taggs;
  bool with_taggs = true;
  float resolution = 1.0f;
  uint32_t point_flags = 0;
  std::string texture = "tex.paa";

  std::string bytes() const {
    bool p3dm = magic == "P3DM", sp3d = magic == "SP3D";
    std::string s = magic;
    if (!sp3d) {
      put32(s, 28);
      put32(s, version);
    }
    put32(s, points);
    put32(s, normals);
    put32(s, static_cast<uint32_t>(faces.size()));
    if (!sp3d) put32(s, 0);
    for (uint32_t i = 0; i < points; ++i) {
      putf(s, static_cast<float>(i));
      putf(s, static_cast<float>(i) * 2);
      putf(s, -static_cast<float>(i));
      if (!sp3d) put32(s, point_flags);
    }
    for (uint32_t i = 0; i < normals; ++i) {
      putf(s, 0);
      putf(s, 1);
      putf(s, 0);
    }
    for (int n : faces) {
      if (!p3dm) put_fixed(s, texture, 32);
      put32(s, static_cast<uint32_t>(n));
      for (int c = 0; c < 4; ++c) {
        put32(s, points ? static_cast<uint32_t>(c) % points : 0);
        put32(s, 0);
        putf(s, 0.25f * c);
        putf(s, 0.5f);
      }
      if (!sp3d) put32(s, 0);
      if (p3dm) {
        s += texture;
        s.push_back('\0');
        s += "mat.rvmat";
        s.push_back('\0');
      }
    }
    if (!with_taggs) return s;
    s += "TAGG";
    std::vector<Tagg> all = taggs;
    all.push_back({"#EndOfFile#", ""});
    for (Tagg const& t : all) {
      if (p3dm) {
        s.push_back('\1');
        s += t.name;
        s.push_back('\0');
      } else {
        put_fixed(s, t.name, 64);
      }
      put32(s, t.length < 0 ? static_cast<uint32_t>(t.data.size()) : static_cast<uint32_t>(t.length));
      s += t.data;
    }
    putf(s, resolution);
    return s;
  }
};

inline std::string model(std::vector<Lod> const& lods, uint32_t version = 257) {
  std::string s = "MLOD";
  put32(s, version);
  put32(s, static_cast<uint32_t>(lods.size()));
  for (Lod const& l : lods) s += l.bytes();
  return s;
}

// A table of `n` bytes, or of `n` little-endian floats.
inline std::string bytes(size_t n, char fill = '\0') { return std::string(n, fill); }
inline std::string floats(size_t n, float v) {
  std::string s;
  for (size_t i = 0; i < n; ++i) putf(s, v);
  return s;
}

// The real-file corpus: beside the checkout, or beside the folder of worktrees.
inline std::filesystem::path corpus_dir() {
  std::filesystem::path p(VENDRAK_CORPUS);
  if (std::filesystem::is_directory(p)) return p;
  std::filesystem::path up =
      std::filesystem::weakly_canonical(p).parent_path().parent_path().parent_path() / "shared" / "corpus";
  return std::filesystem::is_directory(up) ? up : p;
}

}  // namespace mlod_test

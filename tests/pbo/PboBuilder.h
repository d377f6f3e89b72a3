#pragma once
// Builds archives byte by byte for the tests and reads them back with a parser that shares no code
// with the library, so that the two can check each other; message capture and scratch folders.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

namespace pbotest {

constexpr uint32_t kCprs = 0x43707273, kVers = 0x56657273;

inline void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>(v >> (8 * i)));
}
inline uint32_t get32(std::string const& s, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(s[at + static_cast<size_t>(i)]);
  return v;
}

// A valid LZSS stream: literals, and runs copied from one byte back wherever the input repeats (so
// back-references are exercised), then the unsigned byte-sum.
inline std::string lzss_pack(std::string const& in) {
  std::string out;
  size_t flag_at = 0;
  uint32_t sum = 0;
  for (size_t i = 0, item = 8; i < in.size(); ++item) {
    if (item == 8) flag_at = out.size(), out.push_back(0), item = 0;
    size_t run = 0;
    while (i > 0 && i + run < in.size() && run < 18 && in[i + run] == in[i - 1]) ++run;
    if (run >= 3) {
      out += {1, static_cast<char>(run - 3)};  // distance 1
      i += run;
    } else {
      out[flag_at] = static_cast<char>(out[flag_at] | 1 << item);
      out.push_back(in[i++]);
    }
  }
  for (unsigned char c : in) sum += c;
  put32(out, sum);
  return out;
}

inline std::string sha1(std::string const& bytes) {
  unsigned char d[20];
  EVP_Digest(bytes.data(), bytes.size(), d, nullptr, EVP_sha1(), nullptr);
  return std::string(reinterpret_cast<char*>(d), 20);
}
inline std::string hex(std::string const& d) {
  std::string h;
  char two[3];
  for (unsigned char c : d) std::snprintf(two, 3, "%02X", c), h += two;
  return h;
}

struct File {
  std::string name, data;
  bool compress = false;
  // Header fields; -1 leaves them to follow from the data.
  int64_t method = -1, original = -1, size = -1, stamp = 1600000000, reserved = 0;
};

struct Builder {
  enum Trailer { NONE, ELITE, SHA };
  std::vector<std::pair<std::string, std::string>> properties;
  std::vector<File> files;
  Trailer trailer = NONE;
  std::string extra;  // bytes after everything

  Builder& prop(std::string n, std::string v) {
    properties.emplace_back(std::move(n), std::move(v));
    return *this;
  }
  Builder& file(std::string n, std::string d = "x", bool compress = false) {
    files.push_back(File{std::move(n), std::move(d), compress});
    return *this;
  }
  Builder& set(int64_t File::*field, int64_t v) {  // of the last file
    files.back().*field = v;
    return *this;
  }
  Builder& seal(Trailer t) {
    trailer = t;
    return *this;
  }

  std::string build() const {
    std::string h, data;
    if (!properties.empty()) {
      h.push_back(0);
      put32(h, kVers);
      h.append(16, '\0');
      for (auto const& [n, v] : properties) h += n + '\0' + v + '\0';
      h.push_back(0);
    }
    for (auto const& f : files) {
      std::string stored = f.compress ? lzss_pack(f.data) : f.data;
      h += f.name + '\0';
      put32(h, static_cast<uint32_t>(f.method >= 0 ? f.method : f.compress ? kCprs : 0));
      put32(h, static_cast<uint32_t>(f.original >= 0 ? f.original : f.compress ? f.data.size() : 0));
      put32(h, static_cast<uint32_t>(f.reserved));
      put32(h, static_cast<uint32_t>(f.stamp));
      put32(h, static_cast<uint32_t>(f.size >= 0 ? f.size : static_cast<int64_t>(stored.size())));
      data += stored;
    }
    h.append(21, '\0');
    std::string all = h + data;
    if (trailer == SHA) all += '\0' + sha1(all);
    if (trailer == ELITE) all.push_back(0), put32(all, 0x12345678);
    return all + extra;
  }
};

inline void write_file(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
inline std::string read_file(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// ---- an independent reader ------------------------------------------------

inline bool lzss_unpack(std::string const& in, size_t expect, std::string& out) {
  out.clear();
  for (size_t i = 0; out.size() < expect;) {
    if (i >= in.size()) return false;
    unsigned flags = static_cast<uint8_t>(in[i++]);
    for (int b = 0; b < 8 && out.size() < expect; ++b) {
      if (flags & (1u << b)) {
        if (i >= in.size()) return false;
        out.push_back(in[i++]);
        continue;
      }
      if (i + 2 > in.size()) return false;
      size_t dist = static_cast<uint8_t>(in[i]) | ((static_cast<uint8_t>(in[i + 1]) & 0xF0u) << 4);
      size_t len = (static_cast<uint8_t>(in[i + 1]) & 0x0Fu) + 3;
      i += 2;
      if (!dist) return false;
      for (size_t k = 0; k < len && out.size() < expect; ++k)
        out.push_back(out.size() >= dist ? out[out.size() - dist] : ' ');
    }
  }
  return true;
}

struct Listing {
  std::vector<std::pair<std::string, std::string>> properties;
  std::vector<std::pair<std::string, std::string>> entries;  // name, unpacked bytes
  bool ok = false;
};

inline Listing list_archive(std::string const& a) {
  Listing l;
  size_t p = 0;
  auto asciiz = [&](std::string& s) {
    size_t z = a.find('\0', p);
    if (z == std::string::npos) return false;
    s = a.substr(p, z - p);
    p = z + 1;
    return true;
  };
  struct Rec {
    std::string name;
    uint32_t original, size;
  };
  std::vector<Rec> recs;
  for (;;) {
    std::string name, v;
    if (!asciiz(name) || p + 20 > a.size()) return l;
    uint32_t method = get32(a, p), original = get32(a, p + 4), size = get32(a, p + 16);
    p += 20;
    if (!name.empty()) {
      recs.push_back({name, original, size});
    } else if (method == kVers) {
      while (asciiz(name) && !name.empty()) {
        if (!asciiz(v)) return l;
        l.properties.emplace_back(name, v);
      }
    } else {
      break;
    }
  }
  for (auto const& r : recs) {
    if (p + r.size > a.size()) return l;
    std::string raw = a.substr(p, r.size), bytes = raw;
    p += r.size;
    if (r.original && r.original != r.size && !lzss_unpack(raw, r.original, bytes)) return l;
    l.entries.emplace_back(r.name, bytes);
  }
  l.ok = true;
  return l;
}

// ---- message capture and scratch folders ----------------------------------

inline std::string captured[2];  // what reached the message callback, and the error callback
inline std::string& messages() { return captured[0]; }
inline std::string& errors() { return captured[1]; }
inline void clear_captured() { captured[0].clear(), captured[1].clear(); }
template <int N>
bool capture_into(char const* format, ...) {
  char buf[8192];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  captured[N] += buf;
  return true;
}
constexpr auto capture = capture_into<0>, capture_err = capture_into<1>;

// A fresh folder below the system's temporary folder, removed with the object.
struct TempDir {
  std::filesystem::path path;
  TempDir() {
    std::string t = (std::filesystem::temp_directory_path() / "vendrak-pbo-XXXXXX").string();
    char* made = ::mkdtemp(t.data());
    path = made ? made : t;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string operator/(std::string const& rel) const { return (path / rel).string(); }
};

// A tool whose messages are captured, and a scratch folder.
struct ToolFixture : ::testing::Test {
  TempDir dir;
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  ToolFixture() {
    clear_captured();
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
  }
};

}  // namespace pbotest

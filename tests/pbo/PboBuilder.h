#pragma once
// Builds archives byte by byte for tests and benchmarks, and reads them back with a parser that
// shares no code with the library, so that the two can check each other.
#include <openssl/evp.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace pbotest {

constexpr uint32_t kCprs = 0x43707273;
constexpr uint32_t kVers = 0x56657273;

inline void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

inline uint32_t get32(std::string const& s, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(s[at + static_cast<size_t>(i)]);
  return v;
}

// A valid LZSS stream: the first byte literal, then runs copied from one byte back wherever the
// input repeats (so back-references are exercised), then the unsigned byte-sum.
inline std::string lzss_pack(std::string const& in) {
  std::string out;
  size_t flag_at = 0;
  int item = 8;
  auto next_item = [&](bool literal) {
    if (item == 8) {
      flag_at = out.size();
      out.push_back(0);
      item = 0;
    }
    if (literal) out[flag_at] = static_cast<char>(out[flag_at] | (1 << item));
    ++item;
  };
  for (size_t i = 0; i < in.size();) {
    size_t run = 0;
    while (i > 0 && i + run < in.size() && run < 18 && in[i + run] == in[i - 1]) ++run;
    if (run >= 3) {
      next_item(false);
      out.push_back(1);  // distance 1
      out.push_back(static_cast<char>(run - 3));
      i += run;
    } else {
      next_item(true);
      out.push_back(in[i++]);
    }
  }
  uint32_t sum = 0;
  for (unsigned char c : in) sum += c;
  put32(out, sum);
  return out;
}

inline std::string sha1(std::string const& bytes) {
  unsigned char d[20];
  unsigned int n = 0;
  EVP_Digest(bytes.data(), bytes.size(), d, &n, EVP_sha1(), nullptr);
  return std::string(reinterpret_cast<char*>(d), 20);
}

struct File {
  std::string name;
  std::string data;
  bool compress = false;
  uint32_t stamp = 1600000000;
  uint32_t reserved = 0;
  // Overrides of the header fields, for broken archives.
  int64_t method = -1, original = -1, size = -1;
};

struct Builder {
  enum Trailer { NONE, ELITE, SHA };
  bool has_properties = false;
  std::vector<std::pair<std::string, std::string>> properties;
  std::vector<File> files;
  Trailer trailer = NONE;
  uint32_t end_size = 0;
  std::string extra;  // bytes after everything

  Builder& prop(std::string n, std::string v) {
    has_properties = true;
    properties.emplace_back(std::move(n), std::move(v));
    return *this;
  }
  Builder& file(std::string n, std::string d = "x", bool compress = false) {
    File f;
    f.name = std::move(n);
    f.data = std::move(d);
    f.compress = compress;
    files.push_back(std::move(f));
    return *this;
  }

  std::string build() const {
    std::string h, data;
    if (has_properties) {
      h.push_back(0);
      put32(h, kVers);
      for (int i = 0; i < 4; ++i) put32(h, 0);
      for (auto const& [n, v] : properties) {
        h += n;
        h.push_back(0);
        h += v;
        h.push_back(0);
      }
      h.push_back(0);
    }
    for (auto const& f : files) {
      std::string stored = f.compress ? lzss_pack(f.data) : f.data;
      h += f.name;
      h.push_back(0);
      put32(h, f.method >= 0 ? static_cast<uint32_t>(f.method) : f.compress ? kCprs : 0);
      put32(h, f.original >= 0 ? static_cast<uint32_t>(f.original)
                               : f.compress ? static_cast<uint32_t>(f.data.size()) : 0);
      put32(h, f.reserved);
      put32(h, f.stamp);
      put32(h, f.size >= 0 ? static_cast<uint32_t>(f.size) : static_cast<uint32_t>(stored.size()));
      data += stored;
    }
    h.push_back(0);
    put32(h, 0);
    put32(h, 0);
    put32(h, 0);
    put32(h, 0);
    put32(h, end_size);
    std::string all = h + data;
    if (trailer == SHA) {
      std::string digest = sha1(all);
      all.push_back(0);
      all += digest;
    } else if (trailer == ELITE) {
      all.push_back(0);
      put32(all, 0x12345678);
    }
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
  size_t i = 0;
  while (out.size() < expect) {
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

struct Listed {
  std::string name;
  std::string bytes;  // unpacked
};

struct Listing {
  std::vector<std::pair<std::string, std::string>> properties;
  std::vector<Listed> entries;
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
    uint32_t method, original, size;
  };
  std::vector<Rec> recs;
  for (;;) {
    Rec r;
    if (!asciiz(r.name) || p + 20 > a.size()) return l;
    r.method = get32(a, p);
    r.original = get32(a, p + 4);
    r.size = get32(a, p + 16);
    p += 20;
    if (!r.name.empty()) {
      recs.push_back(r);
      continue;
    }
    if (r.method == kVers) {
      for (;;) {
        std::string n, v;
        if (!asciiz(n)) return l;
        if (n.empty()) break;
        if (!asciiz(v)) return l;
        l.properties.emplace_back(n, v);
      }
      continue;
    }
    break;
  }
  for (auto const& r : recs) {
    if (p + r.size > a.size()) return l;
    std::string raw = a.substr(p, r.size);
    p += r.size;
    Listed e{r.name, raw};
    if (r.original && r.original != r.size && !lzss_unpack(raw, r.original, e.bytes)) return l;
    l.entries.push_back(std::move(e));
  }
  l.ok = true;
  return l;
}

}  // namespace pbotest

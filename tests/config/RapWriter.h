#pragma once
// Writes small binarised configs for the decoder's tests: Arma bodies laid out as the binariser
// lays them (a class's entries, then its classes' bodies), OFP files with indexed strings, and
// signed Xbox files.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline void put_u8(Bytes& b, int v) { b.push_back(static_cast<uint8_t>(v)); }
template <class T>
void put(Bytes& b, T v) {
  b.insert(b.end(), reinterpret_cast<uint8_t const*>(&v), reinterpret_cast<uint8_t const*>(&v) + sizeof v);
}
inline void put_str(Bytes& b, std::string const& s) { b.insert(b.end(), s.c_str(), s.c_str() + s.size() + 1); }
inline void add_bytes(Bytes& b, Bytes const& more) { b.insert(b.end(), more.begin(), more.end()); }
inline void put_count(Bytes& b, uint32_t v) {
  do {
    uint8_t byte = v & 0x7F;
    v >>= 7;
    put_u8(b, byte | (v ? 0x80 : 0));
  } while (v);
}

// ---- array elements (same in both dialects apart from strings) ----
inline Bytes e_str(std::string const& s) { Bytes b{0}; put_str(b, s); return b; }
inline Bytes e_f(float f) { Bytes b{1}; put(b, f); return b; }
inline Bytes e_i(int32_t i) { Bytes b{2}; put(b, i); return b; }
inline Bytes e_d(double d) { Bytes b{5}; put(b, d); return b; }
inline Bytes e_l(int64_t l) { Bytes b{6}; put(b, l); return b; }
inline Bytes e_arr(std::vector<Bytes> const& el) {
  Bytes b{3};
  put_count(b, static_cast<uint32_t>(el.size()));
  for (auto const& e : el) add_bytes(b, e);
  return b;
}

// ---- Arma entries ----
inline Bytes v_str(std::string const& n, std::string const& s) { Bytes b{1, 0}; put_str(b, n); put_str(b, s); return b; }
inline Bytes v_f(std::string const& n, float f) { Bytes b{1, 1}; put_str(b, n); put(b, f); return b; }
inline Bytes v_i(std::string const& n, int32_t i) { Bytes b{1, 2}; put_str(b, n); put(b, i); return b; }
inline Bytes v_d(std::string const& n, double d) { Bytes b{1, 5}; put_str(b, n); put(b, d); return b; }
inline Bytes v_l(std::string const& n, int64_t l) { Bytes b{1, 6}; put_str(b, n); put(b, l); return b; }
inline Bytes arr(std::string const& n, std::vector<Bytes> const& el, bool append = false) {
  Bytes b{static_cast<uint8_t>(append ? 5 : 2)};
  if (append) put<uint32_t>(b, 0);
  put_str(b, n);
  put_count(b, static_cast<uint32_t>(el.size()));
  for (auto const& e : el) add_bytes(b, e);
  return b;
}
inline Bytes ext(std::string const& n) { Bytes b{3}; put_str(b, n); return b; }
inline Bytes del(std::string const& n) { Bytes b{4}; put_str(b, n); return b; }

struct Cls;
using ClsPtr = std::shared_ptr<Cls>;
struct Item {
  Bytes raw;    // a plain entry
  ClsPtr cls;   // or a class
  Item(Bytes r) : raw(std::move(r)) {}  // NOLINT
  Item(ClsPtr c) : cls(std::move(c)) {}  // NOLINT
};
struct Cls {
  std::string name, parent;
  std::vector<Item> items;
};
inline ClsPtr cls(std::string name, std::vector<Item> items = {}, std::string parent = "") {
  return std::make_shared<Cls>(Cls{std::move(name), std::move(parent), std::move(items)});
}

// A body: parent, count, entries (class entries point at bodies written behind it), end offset.
inline void write_body(Bytes& b, Cls const& c) {
  put_str(b, c.parent);
  put_count(b, static_cast<uint32_t>(c.items.size()));
  std::vector<std::pair<size_t, Cls const*>> fixups;
  for (auto const& it : c.items) {
    if (it.cls) {
      put_u8(b, 0);
      put_str(b, it.cls->name);
      fixups.emplace_back(b.size(), it.cls.get());
      put<uint32_t>(b, 0);
    } else {
      add_bytes(b, it.raw);
    }
  }
  size_t end_at = b.size();
  put<uint32_t>(b, 0);
  for (auto& [at, child] : fixups) {
    auto off = static_cast<uint32_t>(b.size());
    std::memcpy(&b[at], &off, 4);
    write_body(b, *child);
  }
  auto end = static_cast<uint32_t>(b.size());
  std::memcpy(&b[end_at], &end, 4);
}

using Enums = std::vector<std::pair<std::string, int32_t>>;
inline void put_enums(Bytes& b, Enums const& e) {
  put<uint32_t>(b, static_cast<uint32_t>(e.size()));
  for (auto const& [n, v] : e) put_str(b, n), put(b, v);
}

// An Arma file; `shift` extra bytes after the signature make room for an Xbox signature.
inline Bytes arma(ClsPtr root, Enums const* enums = nullptr, size_t shift = 0) {
  Bytes b{0, 'r', 'a', 'P'};
  b.resize(4 + shift, 0);
  put<uint32_t>(b, 0);
  put<uint32_t>(b, 8);
  size_t enum_at = b.size();
  put<uint32_t>(b, 0);
  write_body(b, *root);
  auto off = static_cast<uint32_t>(b.size());
  std::memcpy(&b[enum_at], &off, 4);
  if (enums) put_enums(b, *enums);
  return b;
}

inline Bytes xbox(ClsPtr root, unsigned char const* key) {
  Bytes b = arma(std::move(root), nullptr, 20);
  put<uint32_t>(b, 0);  // no enums
  unsigned int len = 0;
  HMAC(EVP_sha1(), key, 16, b.data() + 24, b.size() - 24, b.data() + 4, &len);
  return b;
}

// OFP files are written in one pass: every name and string is indexed on its first use.
struct OfpWriter {
  Bytes b{0, 'r', 'a', 'P', 4, 0, 0};
  std::map<std::string, uint32_t> seen;
  void name(std::string const& s) {
    auto it = seen.find(s);
    if (it != seen.end()) {
      put_count(b, it->second);
      return;
    }
    auto idx = static_cast<uint32_t>(seen.size());
    seen.emplace(s, idx);
    put_count(b, idx);
    put_str(b, s);
  }
  void cls(std::string const& n, uint32_t count, std::string const& parent = "") {
    put_u8(b, 0);
    name(n);
    put_str(b, parent);
    put_count(b, count);
  }
  void v_i(std::string const& n, int32_t v) { put_u8(b, 1); put_u8(b, 2); name(n); put(b, v); }
  void v_str(std::string const& n, std::string const& s) { put_u8(b, 1); put_u8(b, 0); name(n); name(s); }
  void arr_str(std::string const& n, std::vector<std::string> const& el) {
    put_u8(b, 2);
    name(n);
    put_count(b, static_cast<uint32_t>(el.size()));
    for (auto const& s : el) put_u8(b, 0), name(s);
  }
  void enums(Enums const& e) { put_enums(b, e); }
};

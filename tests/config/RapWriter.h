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
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Byte by byte: GCC 12 at -O3 misjudges range inserts into these small vectors as out of bounds.
template <class T>
void put(Bytes& b, T v) {
  uint8_t raw[sizeof v];
  std::memcpy(raw, &v, sizeof v);
  for (uint8_t c : raw) b.push_back(c);
}
inline void put_str(Bytes& b, std::string const& s) {
  for (char c : s) b.push_back(static_cast<uint8_t>(c));
  b.push_back(0);
}
inline void put_count(Bytes& b, uint32_t v) {
  for (; v >= 0x80; v >>= 7) b.push_back(static_cast<uint8_t>(v | 0x80));
  b.push_back(static_cast<uint8_t>(v));
}
inline void put_at(Bytes& b, size_t at, size_t v) {
  auto u = static_cast<uint32_t>(v);
  std::memcpy(&b[at], &u, 4);
}
// A sub-typed value, as an array element (no name) or as a named entry.
template <class T>
Bytes typed(uint8_t sub, T v, std::string const* name = nullptr) {
  Bytes b{sub};
  if (name) b.insert(b.begin(), 1), put_str(b, *name);
  if constexpr (std::is_same_v<T, std::string>) put_str(b, v); else put(b, v);
  return b;
}

inline Bytes e_str(std::string const& s) { return typed(0, s); }
inline Bytes e_f(float f) { return typed(1, f); }
inline Bytes e_i(int32_t i) { return typed(2, i); }
inline Bytes e_d(double d) { return typed(5, d); }
inline Bytes e_l(int64_t l) { return typed(6, l); }
inline Bytes e_arr(std::vector<Bytes> const& el) {
  Bytes b{3};
  put_count(b, static_cast<uint32_t>(el.size()));
  for (auto const& e : el) b.insert(b.end(), e.begin(), e.end());
  return b;
}
inline Bytes v_str(std::string const& n, std::string const& s) { return typed(0, s, &n); }
inline Bytes v_f(std::string const& n, float f) { return typed(1, f, &n); }
inline Bytes v_i(std::string const& n, int32_t i) { return typed(2, i, &n); }
inline Bytes v_d(std::string const& n, double d) { return typed(5, d, &n); }
inline Bytes v_l(std::string const& n, int64_t l) { return typed(6, l, &n); }
inline Bytes arr(std::string const& n, std::vector<Bytes> const& el, bool append = false) {
  Bytes b{static_cast<uint8_t>(append ? 5 : 2)};
  if (append) put<uint32_t>(b, 0);
  put_str(b, n);
  Bytes a = e_arr(el);
  b.insert(b.end(), a.begin() + 1, a.end());
  return b;
}
inline Bytes ext(std::string const& n) { Bytes b{3}; put_str(b, n); return b; }
inline Bytes del(std::string const& n) { Bytes b{4}; put_str(b, n); return b; }

struct Cls;
using ClsPtr = std::shared_ptr<Cls>;
using Item = std::variant<Bytes, ClsPtr>;  // a plain entry or a class
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
    if (auto raw = std::get_if<Bytes>(&it)) {
      b.insert(b.end(), raw->begin(), raw->end());
      continue;
    }
    auto const& child = std::get<ClsPtr>(it);
    b.push_back(0);
    put_str(b, child->name);
    fixups.emplace_back(b.size(), child.get());
    put<uint32_t>(b, 0);
  }
  size_t end_at = b.size();
  put<uint32_t>(b, 0);
  for (auto& [at, child] : fixups) put_at(b, at, b.size()), write_body(b, *child);
  put_at(b, end_at, b.size());
}

using Enums = std::vector<std::pair<std::string, int32_t>>;
inline void put_enums(Bytes& b, Enums const& e) {
  put<uint32_t>(b, static_cast<uint32_t>(e.size()));
  for (auto const& [n, v] : e) put_str(b, n), put(b, v);
}

// An Arma file; `shift` extra bytes after the signature make room for an Xbox signature.
inline Bytes arma(ClsPtr root, Enums const* enums = nullptr, size_t shift = 0) {
  Bytes b(4 + shift, 0);
  b[1] = 'r', b[2] = 'a', b[3] = 'P';
  put<uint32_t>(b, 0);
  put<uint32_t>(b, 8);
  size_t enum_at = b.size();
  put<uint32_t>(b, 0);
  write_body(b, *root);
  put_at(b, enum_at, b.size());
  if (enums) put_enums(b, *enums);
  return b;
}

inline void sign_xbox(Bytes& b, unsigned char const* key) {
  unsigned int len = 0;
  HMAC(EVP_sha1(), key, 16, b.data() + 24, b.size() - 24, b.data() + 4, &len);
}
inline Bytes xbox(ClsPtr root, unsigned char const* key) {
  Bytes b = arma(std::move(root), nullptr, 20);
  put<uint32_t>(b, 0);  // no enums
  sign_xbox(b, key);
  return b;
}

// OFP files are written in one pass: every name and string is indexed on its first use.
struct OfpWriter {
  Bytes b{0, 'r', 'a', 'P', 4, 0, 0};
  std::map<std::string, uint32_t> seen;
  void name(std::string const& s) {
    auto [it, fresh] = seen.emplace(s, static_cast<uint32_t>(seen.size()));
    put_count(b, it->second);
    if (fresh) put_str(b, s);
  }
  void cls(std::string const& n, uint32_t count, std::string const& parent = "") {
    b.push_back(0);
    name(n);
    put_str(b, parent);
    put_count(b, count);
  }
  void v_i(std::string const& n, int32_t v) { b.insert(b.end(), {1, 2}); name(n); put(b, v); }
  void v_str(std::string const& n, std::string const& s) { b.insert(b.end(), {1, 0}); name(n); name(s); }
  void arr_str(std::string const& n, std::vector<std::string> const& el) {
    b.push_back(2);
    name(n);
    put_count(b, static_cast<uint32_t>(el.size()));
    for (auto const& s : el) b.push_back(0), name(s);
  }
};

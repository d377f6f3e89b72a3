#pragma once
// The project's basic fields: counts checked against the bytes left, texts stored with their
// length and terminating zero, and blocks kept as bytes.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "terrain/Grindel.h"

namespace pew_io {

inline uint32_t read_count(BisFileIO& io, uint64_t min_record) {
  uint32_t n = io.io_ReadUlong();
  if (uint64_t(n) * min_record > io.io_RemainingBytes()) throw PEW_CANNOT_DECODE;
  return n;
}

// A length including the terminating zero, then the text and its zero; 0 for an empty text.
inline std::string read_string(BisFileIO& io) {
  uint32_t len = io.io_ReadUlong();
  if (!len) return {};
  if (len > io.io_RemainingBytes()) throw PEW_CANNOT_DECODE;
  char const* p = reinterpret_cast<char const*>(io.io_GetAddressAndUpdate(len));
  if (p[len - 1] || std::memchr(p, 0, len - 1)) throw PEW_CANNOT_DECODE;
  return std::string(p, len - 1);
}

inline void write_string(BisFileIO& out, std::string const& s) {
  if (s.empty()) {
    out.io_WriteUlong(0);
    return;
  }
  out.io_WriteUlong(uint32_t(s.size() + 1));
  out.io_WriteBlock(s.c_str(), s.size() + 1);
}

inline std::vector<uint8_t> read_blob(BisFileIO& io) {
  uint32_t len = io.io_ReadUlong();
  if (len > io.io_RemainingBytes()) throw PEW_CANNOT_DECODE;
  uint8_t const* p = io.io_GetAddressAndUpdate(len);
  return std::vector<uint8_t>(p, p + len);
}

inline void write_blob(BisFileIO& out, std::vector<uint8_t> const& b) {
  out.io_WriteUlong(uint32_t(b.size()));
  if (!b.empty()) out.io_WriteBlock(b.data(), b.size());
}

}  // namespace pew_io

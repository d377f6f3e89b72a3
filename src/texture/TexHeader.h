#pragma once
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "text/Chains.h"

// One texture of a texHeaders.bin index. Every field points into (or was copied from) the index's
// buffer, or for an entry made to be written into its own bytes; the tool interprets none of the
// unchecked ones when it reads.
class TexHeader : public Chain {
 public:
  static constexpr int kRecordSize = 54;
  static constexpr int kMipmapEntrySize = 12;

  uint8_t const* record = nullptr;  // the fixed 54-byte record
  char const* path = nullptr;       // as stored, backslashes included
  uint32_t suffix = 0;              // the value after the path
  uint32_t mipmap_count = 0;
  uint8_t const* mipmaps = nullptr;  // mipmap_count entries of 12 bytes
  uint32_t file_size = 0;            // the value after the mipmap entries

  // An entry made to be written: the record and the mipmap entries, and the path.
  std::vector<uint8_t> own_bytes;
  std::string own_path;

  uint32_t th_Field(int offset) const {
    uint32_t v;
    std::memcpy(&v, record + offset, 4);
    return v;
  }
  uint32_t th_Flags() const { return th_Field(40); }
  uint32_t th_Type() const { return th_Field(48); }
  uint16_t th_MipmapWidth(uint32_t i) const { return th_Mip16(i, 0); }
  uint16_t th_MipmapHeight(uint32_t i) const { return th_Mip16(i, 2); }
  uint32_t th_MipmapOffset(uint32_t i) const {
    uint32_t v;
    std::memcpy(&v, mipmaps + i * kMipmapEntrySize + 8, 4);
    return v;
  }

 private:
  uint16_t th_Mip16(uint32_t i, int at) const {
    uint16_t v;
    std::memcpy(&v, mipmaps + i * kMipmapEntrySize + at, 2);
    return v;
  }
};

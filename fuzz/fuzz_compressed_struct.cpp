// Hostile arrays for the compressed-array reader. Five header bytes choose the coding and shape:
//   0: method bits (low nibble) and 0x10/0x40/0x80/0x800 from its high nibble
//   1, 2: grid dimensions (0 x anything: the count comes from the file)
//   3: element size 1..8; 4, 5: expanded size for 3-byte-size arrays
// The rest is the file. An array read successfully is written back unchanged; where the coding
// allows it the written bytes must equal those read.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/BisMessage.h"
#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"
#include "io/CompressedStruct.h"
#include "io/CompressionEngine.h"

namespace {
bool quiet(char const*, ...) { return true; }

std::string const& out_name() {
  static std::string const name = "/tmp/fuzz_compressed_struct." + std::to_string(getpid()) + ".bin";
  return name;
}

// A stand-in grid coding: one byte per cell of the first half.
void decode_grid(BisFileIO& io, CompressedStruct& array, uLongPair dims, CompressType) {
  uint64_t cells = uint64_t(dims.x) * dims.y;
  if (cells > array.cs_Count()) cells = array.cs_Count();
  for (uint64_t i = 0; i < cells; ++i) array.cs_Array()[i * array.cs_ElementSize()] = uint8_t(io.io_ReadByte());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size < 6) return 0;
  CompressType type = data[0] & 0x0F;
  if (data[0] & 0x10) type |= CT_TRIBYTE_SIZE;
  if (data[0] & 0x20) type |= CT_GRID;
  if (data[0] & 0x40) type |= CT_FILL_BYTE;
  if (data[0] & 0x80) type |= CT_FLAG_BYTE;
  uLongPair const dims{uint32_t(data[1] & 0x3F), uint32_t(data[2] & 0x3F)};
  uint32_t const element_size = 1 + (data[3] & 7);
  uint64_t const expanded = data[4] | uint64_t(data[5]) << 8;

  size_t const file_size = size - 6;
  auto file = std::make_unique<uint8_t[]>(file_size + 1);  // never empty, so the pointer is real
  std::memcpy(file.get(), data + 6, file_size);

  BisFileIO io;
  io.io_SetStdioCallBack(quiet);
  io.io_SetErrCallBack(quiet);
  io.io_OpenPseudoFile(file.get(), file_size);
  CompressedStruct array(element_size);
  array.cs_SetGridDecoder(decode_grid);
  int r = 0;
  try {
    r = array.ReadCompressed(io, type, dims, expanded);
  } catch (Generic_Errors) {
  } catch (char const*) {
  } catch (BisMessage const&) {
  }
  if (r != 1) return 0;
  if (array.cs_StoredLength() != io.io_GetCurrentOffset()) std::abort();

  // The count as the writer must be told it: the grid's or the one stored in front.
  uint64_t count = uint32_t(dims.x * dims.y);
  CompressType write_type = type;
  if (type & CT_TRIBYTE_SIZE) {
    count = array.cs_Count();
  } else if (count == 0) {
    uint32_t stored;
    std::memcpy(&stored, file.get(), 4);
    count = stored;
    write_type |= CT_WRITE_COUNT;
  }
  // A 3-byte-size array under LZO or run-length is always compressed afresh, and one under plain
  // LZSS is written raw; a signed-LZSS one is copied as read but with an honest size field.
  bool const exact = !(type & CT_TRIBYTE_SIZE) || !(type & CT_METHOD_MASK & ~CT_GRID) ||
                     ((type & CT_LZSS_SIGNED) && !(type & (CT_RLE | CT_LZO)) &&
                      static_cast<uint64_t>(file[0] | file[1] << 8 | file[2] << 16) == array.cs_StoredLength() - 3);
  if ((type & CT_TRIBYTE_SIZE) && (type & CT_METHOD_MASK & ~CT_GRID)) count = expanded / element_size;
  if (count * element_size > (uint64_t(1) << 24)) return 0;
  {
    BisFileIO out;
    out.io_SetErrCallBack(quiet);
    if (!out.io_CreateFile(out_name().c_str())) return 0;
    try {
      array.WriteCompressed(out, write_type, count);
    } catch (Generic_Errors) {
      return 0;
    }
    out.io_CloseOutput();
  }
  if (!exact) return 0;
  std::ifstream f(out_name(), std::ios::binary);
  std::vector<uint8_t> written((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  if (written.size() != array.cs_StoredLength() ||
      std::memcmp(written.data(), file.get(), written.size()) != 0)
    std::abort();
  return 0;
}

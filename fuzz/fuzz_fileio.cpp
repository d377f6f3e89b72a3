// Drives the reader over arbitrary bytes. The input's first byte chooses where the data lives
// (bits 6-7: a caller's buffer, a file read into memory, a streamed file) and how long the script
// is (bits 0-5); the script bytes follow, the rest is the data. Each script byte names a read or a
// cursor move; arguments come from the bytes after it. A failing step must throw Generic_Errors 1
// and leave the cursor inside the input; the next step goes on from there.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "io/BisFileIO.h"

namespace {

bool quiet(char const*, ...) { return true; }

struct Script {
  uint8_t const* p;
  size_t left;
  uint64_t take(int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) {
      v |= uint64_t(left ? *p : 0) << (8 * i);
      if (left) ++p, --left;
    }
    return v;
  }
};

std::string temp_name() {
  static std::string name = "/tmp/fuzz_fileio." + std::to_string(getpid());
  return name;
}

// Reads every byte the pointer hands out, so a pointer beyond the data shows up under ASan.
uint8_t touch(void const* p, uint64_t n) {
  uint8_t sum = 0;
  auto const* b = static_cast<uint8_t const*>(p);
  for (uint64_t i = 0; i < n; ++i) sum ^= b[i];
  return sum;
}

void step(BisFileIO& io, Script& s, uint8_t op) {
  volatile uint8_t sink = 0;
  switch (op % 22) {
    case 0: sink = uint8_t(io.io_ReadByte()); break;
    case 1: sink = uint8_t(io.io_ReadShort()); break;
    case 2: sink = uint8_t(io.io_ReadTriByte()); break;
    case 3: sink = uint8_t(io.io_ReadLong()); break;
    case 4: sink = uint8_t(io.io_ReadLongLong()); break;
    case 5: { float f; io.io_read(&f, "f"); break; }
    case 6: { bool b; io.io_read(&b, (s.take(1) & 1) ? "b" : nullptr); sink = b; break; }
    case 7: { char const* t = io.io_ReadAsciiz(); sink = touch(t, std::strlen(t) + 1); break; }
    case 8: sink = touch(io.io_ReadMime(nullptr), 5); break;
    case 9: {
      uint64_t count = s.take(1);
      sink = touch(io.io_ReadXYZTriplet(count), count * sizeof(XYZTriplet));
      break;
    }
    case 10: io.io_AddOffset(int16_t(s.take(2))); break;
    case 11: io.io_AddOffset(int64_t(s.take(8))); break;
    case 12: io.io_MoveTo(s.take(2)); break;
    case 13: io.io_MoveTo(s.take(8)); break;
    case 14: {
      // The destination holds exactly what may be read: a read beyond the input must throw
      // before it writes anything.
      uint64_t size = s.take(2), count = s.take(1);
      uint64_t room = io.io_RemainingBytes();
      uint64_t want = count && size > UINT64_MAX / count ? UINT64_MAX : size * count;
      std::vector<uint8_t> dest(std::min(want, room));
      io.io_ReadBlock(dest.data(), size, count);
      break;
    }
    case 15: { std::string t; io.io_ReadAsciizHuge(t); sink = touch(t.data(), t.size()); break; }
    case 16: { uint64_t n = s.take(2); sink = touch(io.io_GetAddressAndUpdate(n), n); break; }
    case 17: { trpMinMax box; io.io_read(&box, "box"); break; }
    case 18: sink = touch(io.io_ReadXYZTransformPtr(), sizeof(XYZTransform)); break;
    case 19: { uLongPair p = io.io_ReadUlongPair(); sink = uint8_t(p.x ^ p.y); break; }
    case 20: {
      uint8_t* here = io.io_GetAddress();
      io.io_SetAddress(here + int8_t(s.take(1)));
      break;
    }
    case 21: io.io_Require(s.take(8)); break;
  }
  (void)sink;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size < 1) return 0;
  int mode = data[0] >> 6;
  size_t script_len = std::min<size_t>(data[0] & 63, size - 1);
  Script script{data + 1, script_len};
  uint8_t const* body = data + 1 + script_len;
  size_t body_len = size - 1 - script_len;
  // An exact-size copy: no spare bytes behind a caller's buffer for a read to slip into.
  std::vector<uint8_t> copy(body, body + body_len);

  BisFileIO io;
  io.io_SetStdioCallBack(quiet);
  io.io_SetErrCallBack(quiet);
  if (mode < 2) {
    io.io_OpenPseudoFile(copy.data(), copy.size());
  } else {
    FILE* f = std::fopen(temp_name().c_str(), "wb");
    if (!f) return 0;
    if (body_len) std::fwrite(body, 1, body_len, f);
    std::fclose(f);
    if (!io.io_OpenFile(temp_name().c_str(), nullptr, mode == 3 ? 2 : 0)) std::abort();
  }
  uint64_t total = io.io_GetFileSize();
  if (total != body_len) std::abort();

  while (script.left) {
    uint8_t op = uint8_t(script.take(1));
    try {
      step(io, script, op);
    } catch (Generic_Errors e) {
      if (e != GE_EOF) std::abort();
    }
    if (io.io_GetCurrentOffset() > total || io.io_RemainingBytes() != total - io.io_GetCurrentOffset())
      std::abort();
  }
  return 0;
}

// Arbitrary bytes as a sound: open it from memory, and when it opens, write it back in every form
// (plain, nibble and byte WSS0, WAVE) and as lip-sync text, then reopen each file written.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "sound/BisSound.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

fs::path const& folder() {
  static fs::path const dir = [] {
    std::string t = (fs::temp_directory_path() / "vendrak-fuzz-sound-XXXXXX").string();
    return fs::path(::mkdtemp(t.data()));
  }();
  return dir;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  BisSound* tool = dll.dll_GetSonmar();
  tool->wss_GetFileIO()->io_SetErrCallBack(silent);
  if (tool->wss_Open(data, size, silent, 0, "fuzz") != 0) return 0;
  // Ogg encoding and resampling spend their time in the Vorbis and resampling libraries, not in
  // the readers: they are left to the tests.
  if (tool->wss_GetDataSize() > (uint64_t{4} << 20)) return 0;
  for (int kind : {BisSound::KIND_WSS, BisSound::KIND_WSS_NIBBLE, BisSound::KIND_WSS_BYTE, BisSound::KIND_WAV}) {
    std::string out = (folder() / ("out" + std::to_string(kind))).string();
    if (tool->wss_Create(out.c_str(), kind) != 0) continue;
    BisDLL again;
    BisSound* check = again.dll_GetSonmar();
    check->wss_GetFileIO()->io_SetErrCallBack(silent);
    if (check->wss_Open(out.c_str(), silent, 0) != 0) std::abort();  // what we write must open
    std::remove(out.c_str());
  }
  std::string lip = (folder() / "out.lip").string();
  tool->wss_CreateLip(lip.c_str(), 0.1f);
  std::remove(lip.c_str());
  return 0;
}

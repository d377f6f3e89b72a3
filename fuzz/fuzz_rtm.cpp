// Arbitrary bytes through the animation reader: every outcome must be a result code, never a
// crash, a hang or an unbounded allocation. An animation that opens must give every transform,
// and what the writers make of it must open again with the same frame and bone counts.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "anim/KinterNew.h"
#include "core/BisDLL.h"

namespace {
bool quiet(char const*, ...) { return true; }

void reopen(KinterNew* k, std::string const& path) {
  static BisDLL dll;
  static KinterNew* again = dll.dll_GetKinter();
  if (again->rtm_Open(path.c_str(), quiet, nullptr) != 0 || again->rtm_GetFrameCount() != k->rtm_GetFrameCount() ||
      again->rtm_GetBoneCount() != k->rtm_GetBoneCount())
    std::abort();
  again->rtm_Close();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisDLL dll;
  static KinterNew* k = dll.dll_GetKinter();
  static std::string const out = "/tmp/fuzz_rtm_" + std::to_string(getpid()) + ".rtm";
  k->rtm_GetIO()->io_SetErrCallBack(quiet);
  if (k->rtm_Open(data, static_cast<unsigned>(size), quiet, nullptr) == 0) {
    for (unsigned f = 0; f < k->rtm_GetFrameCount(); ++f)
      for (unsigned b = 0; b < k->rtm_GetBoneCount(); ++b)
        if (!k->rtm_GetTransform(f, b)) std::abort();
    bool long_names = false;
    for (unsigned b = 0; b < k->rtm_GetBoneCount(); ++b) long_names |= std::string(k->rtm_GetBoneName(b)).size() >= 32;
    if (k->rtm_Create(out.c_str(), KinterNew::KIND_TEXT) == 0)
      reopen(k, out);
    else if (!long_names)
      std::abort();
    if (k->rtm_GetKind() >= KinterNew::KIND_A2) {
      if (k->rtm_Create(out.c_str(), KinterNew::KIND_BINARISED_AS_READ) != 0) std::abort();
      reopen(k, out);
    }
  }
  k->rtm_Close();
  return 0;
}

// Arbitrary config text (or binarised bytes) through the binariser into memory, then the result
// through the decoder: every outcome is a result code, and whatever binarises must decode.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "config/Kaltor.h"
#include "config/Sembric.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisDLL dll;
  static Sembric* s = dll.dll_GetRap();
  static Kaltor* k = dll.dll_GetKaltor();
  // The reader expects the spare zero bytes every buffer of a file carries.
  std::vector<char> text(data, data + size);
  text.resize(size + 4, 0);
  if (s->rap_Create("fuzz.cpp", Sembric::RAPF_CONTENT_CHECKS, nullptr, text.data(), static_cast<unsigned>(size)) == 0) {
    for (int flags : {0, Sembric::RAPO_ARMA}) {
      std::vector<uint8_t> out;
      if (s->rap_Output(out, flags) != 0) continue;
      rap_entry root;
      // The OFP dialect may fairly be refused back: enumerators that are not ordinals, or indexed
      // strings repeated beyond what the decoder accepts from a file that size.
      if (k->drp_Decode(out.data(), static_cast<unsigned long>(out.size()), &root) != 0 && flags) std::abort();
    }
  }
  s->Close();
  k->Close(true);
  return 0;
}

// Arbitrary bytes through the config decoder, to text and to a tree: every outcome must be a
// result code, never a crash, a hang or an unbounded allocation.
#include <cstddef>
#include <cstdint>

#include "config/Kaltor.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisDLL dll;
  static Kaltor* k = dll.dll_GetKaltor();
  char const* text = nullptr;
  k->drp_Decode(data, size, &text, "fuzz", -1);
  rap_entry root;
  if (k->drp_Decode(data, size, &root) == 0) {
    // Walk the inheritance of every top-level class: circles must end the search.
    for (rap_entry* c = root.rpe_get_class(nullptr); c; c = c->rpe_get_next()) c->rpe_find_inherited_class();
  }
  k->Close(true);
  return 0;
}

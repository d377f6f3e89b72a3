// Arbitrary text as an __EVAL/__EXEC expression: a value or a refusal, never a crash or a hang.
// Variables assigned by one input stay for the next few, as they do across a config file.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "config/RapEvaluator.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static RapEvaluator ev;
  static unsigned runs = 0;
  if (++runs % 64 == 0) ev.ev_Reset();
  std::string_view text(reinterpret_cast<char const*>(data), size);
  RapOperand v;
  if (ev.ev_Evaluate(text, v)) (void)RapEvaluator::ev_ToText(v);
  ev.ev_Execute(text);
  return 0;
}

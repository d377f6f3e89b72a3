#pragma once
#include <cstddef>

#include "core/GenericError.h"

// The message of a result code for a tool whose own codes run from 10 in a table: the sign is
// ignored, and codes outside the table take the generic texts.
template <size_t N>
char const* tool_error_text(int code, char const* const (&texts)[N]) {
  long long c = code < 0 ? -static_cast<long long>(code) : code;
  if (c >= 10 && c < 10 + static_cast<long long>(N)) return texts[c - 10];
  return GenericError::ErrorString(c > 0x7fffffff ? -1 : static_cast<int>(c));
}

#pragma once
// What a model reader reports through its callbacks, kept as text so that tests can check it.
#include <cstdarg>
#include <string>

#include "core/BisMessage.h"

inline std::string& kept_messages() {
  static std::string text;
  return text;
}

inline bool keep_message(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  kept_messages() += bis_vformat(format, ap);
  va_end(ap);
  return true;
}

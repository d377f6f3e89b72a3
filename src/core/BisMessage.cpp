#include "core/BisMessage.h"

#include <cstdio>

std::string bis_vformat(char const* format, va_list ap) {
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, format, ap2);
  va_end(ap2);
  std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, ap);
  return text;
}

void bis_throw_message(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string text = bis_vformat(format, ap);
  va_end(ap);
  throw BisMessage(std::move(text));
}

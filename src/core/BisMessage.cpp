#include "core/BisMessage.h"

#include <cstdarg>
#include <cstdio>

void bis_throw_message(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, format, ap);
  va_end(ap);
  std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, ap2);
  va_end(ap2);
  throw BisMessage(std::move(text));
}

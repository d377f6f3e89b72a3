#include "text/HexText.h"

void hex_upper(uint8_t const* bytes, size_t n, char* out) {
  static char const digits[] = "0123456789ABCDEF";
  for (size_t i = 0; i < n; ++i) {
    out[2 * i] = digits[bytes[i] >> 4];
    out[2 * i + 1] = digits[bytes[i] & 15];
  }
  out[2 * n] = 0;
}

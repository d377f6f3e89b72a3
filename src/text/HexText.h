#pragma once
#include <cstddef>
#include <cstdint>

// Bytes as upper-case hex digits, the way digests are shown: `out` receives 2 * n digits and a
// terminating zero.
void hex_upper(uint8_t const* bytes, size_t n, char* out);

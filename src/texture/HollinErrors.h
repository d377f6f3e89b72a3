#pragma once

// The texture index tool's own result codes (0-9 are Generic_Errors).
enum HollinErrors : int {
  HOLLIN_NON_MIME = 10,
  HOLLIN_RESIDUAL = 11,
  HOLLIN_ALWAYS0 = 12,
  HOLLIN_ALWAYS00 = 13,
  HOLLIN_ALWAYS1 = 14,
  HOLLIN_ALWAYS_DEFAULT = 15,
  HOLLIN_NOT_ALWAYS_11 = 16,
  HOLLIN_MIPMAP_NOT_0 = 17,
  HOLLIN_MIPMAPS_NOT_SAME = 18,
  HOLLIN_MAXCOLOR = 19,
  HOLLIN_MIPMAP_TYPE = 20,
};

#pragma once

// The sound tool's own result codes (the shared ones, 0-9, are Generic_Errors). Thrown inside the
// tool like Generic_Errors and returned as int by its exported methods.
enum SonmarErrors : int {
  SONMAR_UNKNOWN_COMPRESSION = 10,
  SONMAR_UNKNOWN_FORMAT = 11,
  SONMAR_UNKNOWN_CHANNELS = 12,
  SONMAR_BAD_BYTE_ALIGNMENT = 13,
  SONMAR_NOT_BLOCK_ALIGNED = 14,
  SONMAR_ODD_DATA_BYTES = 15,
  SONMAR_ONLY_SILENCE = 16,
  SONMAR_NOT_16BIT_MONO = 17,
  SONMAR_NOT_16BIT = 18,
  SONMAR_INVALID_OGG = 19,
};

#pragma once

// The result codes shared by every tool. Inside the library they travel as exceptions; at the
// exported boundary they become the int that the caller sees. Each tool numbers its own codes from 10.
enum Generic_Errors : int {
  GE_NO_ERROR = 0,
  GE_EOF = 1,            // "Generic error or premature EOF"
  GE_NO_MEMORY = 2,
  GE_INVALID_FILE = 3,
  GE_DEBUG_TRAP = 4,
  GE_CODE_BUG = 5,
  GE_CANNOT_WRITE = 6,
  GE_RESIDUAL_BYTES = 7,
  GE_UNKNOWN_EXCEPTION = 8,
  GE_USER_CANCELLED = 9,
};

#pragma once
#include "core/Generic_Errors.h"

class GenericError {
 public:
  // Message of a generic code; any code outside 0..9 is "dll Unknown throw Error".
  static char const* ErrorString(int code);
  static int caught(Generic_Errors e) { return static_cast<int>(e); }
};

#include "core/GenericError.h"

char const* GenericError::ErrorString(int code) {
  static char const* const messages[] = {
      "No Error(s)",
      "Generic error or premature EOF",
      "Out of memory",
      "invalid file",
      "debug trap (you shouldn't see this)",
      "Internally generated code bug detection",
      "cannot write to file",
      "residual bytes in file",
      "the dll recieved an unknown exception trap",
      "User cancelled",
  };
  // -3 and 3 mean the same fault; the most negative int has no positive twin and is unknown.
  if (code < 0 && code > -10) code = -code;
  if (code >= 0 && code < 10) return messages[code];
  return "dll Unknown throw Error";
}

#include "core/BisCallback.h"
#include "core/Generic_Errors.h"
#include "core/LinuxCompat.h"

bool bis_default_callback(char const*, ...) {
  if (_kbhit() && _getch() == 27) throw GE_USER_CANCELLED;
  return true;
}

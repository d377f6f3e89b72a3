#include "core/DosTimer.h"

#include <cstdio>
#include <ctime>

void DosTimer::SnapTime() { _last = _now = static_cast<int64_t>(std::time(nullptr)); }

int64_t DosTimer::DiffTime() {
  _now = static_cast<int64_t>(std::time(nullptr));
  int64_t d = _now - _last;
  _last = _now;
  return d;
}

void DosTimer::PrintTimeDiff() { std::fprintf(stderr, "Elapsed : %d secs\n", static_cast<int>(DiffTime())); }

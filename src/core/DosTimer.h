#pragma once
#include <cstdint>

// Whole-second stopwatch for progress reports.
class DosTimer {
 public:
  DosTimer() { SnapTime(); }
  void SnapTime();
  int64_t DiffTime();  // seconds since the last snapshot; now becomes the snapshot
  void PrintTimeDiff();

 private:
  int64_t _last = 0;
  int64_t _now = 0;
};

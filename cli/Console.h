#pragma once
#include <cstddef>
#include <cstdint>

// Message sinks handed to the library: progress and reports to standard output, errors and
// warnings to standard error.
bool cli_print_stdout(char const* format, ...);
bool cli_print_stderr(char const* format, ...);
// Swallows progress messages (--quiet) but still lets Escape cancel on a terminal.
bool cli_print_nothing(char const* format, ...);

// A one-line progress bar on standard error, drawn only when standard error is a terminal.
class ProgressBar {
 public:
  explicit ProgressBar(bool enabled);
  ~ProgressBar();
  void update(uint64_t done, uint64_t total, char const* label);
  void finish();
  // Draws the bar full and leaves it on its own line, for the summary that follows.
  void complete();

 private:
  bool _enabled;
  bool _drawn = false;
  int _last_percent = -1;
};

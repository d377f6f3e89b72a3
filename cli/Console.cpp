#include "Console.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "TextOut.h"
#include "core/BisCallback.h"

namespace {
bool vprint(FILE* f, char const* format, va_list ap) {
  // The library ends its lines with CR LF; a Linux terminal and log files want LF alone.
  char stack[4096];
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(stack, sizeof stack, format ? format : "", ap);
  if (n < 0) stack[0] = 0;  // a format the C library refused prints nothing
  char* text = stack;
  char* heap = nullptr;
  if (n >= static_cast<int>(sizeof stack)) {
    heap = new char[static_cast<size_t>(n) + 1];
    std::vsnprintf(heap, static_cast<size_t>(n) + 1, format, ap2);
    text = heap;
  }
  va_end(ap2);
  // Names from the files reach the terminal as text, whatever code page they were written in.
  std::string shown = text_for_display(text);
  delete[] heap;
  char const* p = shown.c_str();
  for (; *p; ++p)
    if (!(p[0] == '\r' && p[1] == '\n')) std::fputc(*p, f);
  return true;
}
}  // namespace

bool cli_print_stdout(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  vprint(stdout, format, ap);
  va_end(ap);
  return bis_default_callback("");
}

bool cli_print_stderr(char const* format, ...) {
  std::fflush(stdout);
  va_list ap;
  va_start(ap, format);
  vprint(stderr, format, ap);
  va_end(ap);
  return bis_default_callback("");
}

bool cli_print_nothing(char const*, ...) { return bis_default_callback(""); }

ProgressBar::ProgressBar(bool enabled) : _enabled(enabled && isatty(STDERR_FILENO)) {}
ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(uint64_t done, uint64_t total, char const* label) {
  if (!_enabled || total == 0) return;
  int percent = static_cast<int>(done * 100 / total);
  if (percent == _last_percent) return;
  _last_percent = percent;
  int filled = percent * 30 / 100;
  char bar[31];
  std::memset(bar, '#', static_cast<size_t>(filled));
  std::memset(bar + filled, '.', static_cast<size_t>(30 - filled));
  bar[30] = 0;
  std::fprintf(stderr, "\r[%s] %3d%% %-40.40s", bar, percent, text_for_display(label ? label : "").c_str());
  std::fflush(stderr);
  _drawn = true;
}

void ProgressBar::finish() {
  if (_drawn) std::fprintf(stderr, "\r%*s\r", 79, "");
  _drawn = false;
}

void ProgressBar::complete() {
  if (!_enabled) return;
  _last_percent = -1;
  update(1, 1, "done");
  std::fputc('\n', stderr);
  _drawn = false;
}

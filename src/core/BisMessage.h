#pragma once
#include <cstdarg>
#include <string>
#include <utility>

// A failure described in words whose text is composed at run time. The guarded call treats it
// exactly like a thrown message text: it goes to the error callback and the call fails with the
// tool's "detected an error" code.
struct BisMessage {
  std::string text;
  explicit BisMessage(std::string t) : text(std::move(t)) {}
};

// printf into a string of whatever length the result needs.
std::string bis_vformat(char const* format, va_list ap);

[[noreturn]] void bis_throw_message(char const* format, ...) __attribute__((format(printf, 1, 2)));

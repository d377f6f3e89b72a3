#pragma once
// What the archive commands share: naming the archive, messages for its result codes, and the
// message sink that hides lines without losing Escape.
#include <string>

// 0 when the archive (named with or without its .pbo, .ifa or .xbo extension) can be read;
// otherwise the reason is printed and 3 returned.
int check_archive(std::string const& path);
// Prints "vendrak: ARCHIVE: reason (code)" for a non-zero result and returns it.
int finish_archive(int result, std::string const& archive);
// Swallows a message but still lets Escape cancel, polling the console at most ten times a second.
bool hidden_message(char const* format, ...);

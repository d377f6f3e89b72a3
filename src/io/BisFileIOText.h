#pragma once
#include <cstdarg>
#include <string>

// Text helpers that the BisFileIO sources share; not part of the library's interface.
namespace bis_io_text {

// printf into a buffer of the format's length plus 1024 bytes; longer results are cut there,
// as the messages and command lines of BisFileIO always have been.
std::string io_vformat(char const* format, va_list ap);

// Wide text to UTF-8; empty for null or empty text.
std::string io_to_utf8(wchar_t const* w);

}  // namespace bis_io_text

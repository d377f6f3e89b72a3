#pragma once
#include <cstddef>

// Console and character-set calls that the rest of the library is written against.

int _kbhit();
int _getch();
void set_unbuffered_mode();
void reset_unbuffered_mode();
char* _strlwr(char* s);
int _memicmp(void const* a, void const* b, size_t n);
char* _getcwd(char* buf, int size);
int _wsystem(wchar_t const* command);

constexpr unsigned CP_UTF8 = 65001;

int MultiByteToWideChar(unsigned codepage, unsigned flags, char const* in, int in_len, wchar_t* out,
                        int out_len);
int WideCharToMultiByte(unsigned codepage, unsigned flags, wchar_t const* in, int in_len, char* out,
                        int out_len, char const* default_char, int* used_default);
// Converts a zero-terminated UTF-16 text to a new UTF-8 text (caller frees with free()).
int linuxcompat_utf16_to_utf8(char16_t const* src, char** out);

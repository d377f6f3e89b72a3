#include "core/LinuxCompat.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iconv.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace {
bool g_unbuffered = false;
termios g_saved_termios{};

// Runs iconv over the whole input; returns bytes written or -1. With out == nullptr only counts.
long run_iconv(char const* to, char const* from, char const* in, size_t in_bytes, char* out,
               size_t out_bytes, char const* open_error, char const* conv_error) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    std::perror(open_error);
    return -1;
  }
  std::vector<char> scratch;
  if (!out) {
    scratch.resize(in_bytes * 6 + 16);
    out = scratch.data();
    out_bytes = scratch.size();
  }
  char* inp = const_cast<char*>(in);
  char* outp = out;
  size_t in_left = in_bytes, out_left = out_bytes;
  size_t r = iconv(cd, &inp, &in_left, &outp, &out_left);
  iconv_close(cd);
  if (r == static_cast<size_t>(-1)) {
    std::perror(conv_error);
    return -1;
  }
  return static_cast<long>(out_bytes - out_left);
}
}  // namespace

int _kbhit() {
  // Outside a terminal there is no key to press: a pipe or file on standard input must never be
  // mistaken for the user typing.
  if (!isatty(STDIN_FILENO)) return 0;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(STDIN_FILENO, &set);
  timeval tv{0, 1000};
  int r = select(STDIN_FILENO + 1, &set, nullptr, nullptr, &tv);
  if (r < 0) {
    std::perror("select() in _kbhit()");
    return 0;
  }
  return r > 0 ? 1 : 0;
}

void set_unbuffered_mode() {
  if (g_unbuffered) return;
  if (tcgetattr(STDIN_FILENO, &g_saved_termios) != 0) return;
  termios t = g_saved_termios;
  t.c_lflag &= ~static_cast<tcflag_t>(ICANON);
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &t);
  g_unbuffered = true;
}

void reset_unbuffered_mode() {
  if (!g_unbuffered) return;
  tcsetattr(STDIN_FILENO, TCSANOW, &g_saved_termios);
  g_unbuffered = false;
}

int _getch() {
  set_unbuffered_mode();
  // Straight from the descriptor: a stdio buffer would swallow keys that _kbhit's select() on the
  // same descriptor could then no longer see.
  unsigned char c = 0;
  ssize_t r;
  do {
    r = ::read(STDIN_FILENO, &c, 1);
  } while (r < 0 && errno == EINTR);
  reset_unbuffered_mode();
  return r == 1 ? c : EOF;
}

char* _strlwr(char* s) {
  if (!s) return s;
  for (char* p = s; *p; ++p)
    if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p + 32);
  return s;
}

int _memicmp(void const* a, void const* b, size_t n) {
  if (!a || !b) {
    errno = EINVAL;
    return 0x7fffffff;
  }
  std::vector<unsigned char> la(n), lb(n);
  auto const* pa = static_cast<unsigned char const*>(a);
  auto const* pb = static_cast<unsigned char const*>(b);
  for (size_t i = 0; i < n; ++i) {
    la[i] = (pa[i] >= 'A' && pa[i] <= 'Z') ? pa[i] + 32 : pa[i];
    lb[i] = (pb[i] >= 'A' && pb[i] <= 'Z') ? pb[i] + 32 : pb[i];
  }
  return n ? std::memcmp(la.data(), lb.data(), n) : 0;
}

char* _getcwd(char* buf, int size) {
  size_t n = (size >= 1 && size < PATH_MAX) ? static_cast<size_t>(size) : PATH_MAX;
  if (!buf) {
    buf = static_cast<char*>(std::calloc(n, 1));
    if (!buf) return nullptr;
    if (!getcwd(buf, n)) {
      std::free(buf);
      return nullptr;
    }
    return buf;
  }
  return getcwd(buf, n);
}

int _wsystem(wchar_t const* command) {
  if (!command) return -1;
  size_t len = std::wcslen(command);
  if (len == 0) return std::system("");
  if (len > static_cast<size_t>(INT_MAX) / 6 - 1) return -1;
  std::unique_ptr<char[]> buf(new (std::nothrow) char[len * 6 + 1]);
  if (!buf) return -1;
  int n = WideCharToMultiByte(CP_UTF8, 0, command, -1, buf.get(), static_cast<int>(len * 6 + 1), nullptr,
                              nullptr);
  if (n <= 0) return -1;
  buf[static_cast<size_t>(n)] = 0;
  return std::system(buf.get());
}

int MultiByteToWideChar(unsigned codepage, unsigned flags, char const* in, int in_len, wchar_t* out,
                        int out_len) {
  if (codepage != CP_UTF8 || flags != 0 || !in) return 0;
  size_t bytes = in_len < 0 ? std::strlen(in) : static_cast<size_t>(in_len);
  // Without a buffer there is nothing to write to, whatever length came with it: only count.
  bool counting = !out || out_len <= 0;
  long written = run_iconv("WCHAR_T", "UTF8", in, bytes, counting ? nullptr : reinterpret_cast<char*>(out),
                           counting ? 0 : static_cast<size_t>(out_len) * sizeof(wchar_t),
                           "MultiByteToWideChar iconv_open error", "MultiByteToWideChar conversion error");
  if (written < 0) return 0;
  int chars = static_cast<int>(written / static_cast<long>(sizeof(wchar_t)));
  if (!counting && chars < out_len) out[chars] = 0;
  return chars;
}

int WideCharToMultiByte(unsigned codepage, unsigned flags, wchar_t const* in, int in_len, char* out,
                        int out_len, char const* default_char, int* used_default) {
  if (codepage != CP_UTF8 || flags != 0 || in_len == 0 || default_char || used_default || !in ||
      static_cast<void const*>(in) == static_cast<void const*>(out)) {
    errno = EINVAL;
    return 0;
  }
  size_t chars = in_len < 0 ? std::wcslen(in) : static_cast<size_t>(in_len);
  bool counting = !out || out_len <= 0;
  long written = run_iconv("UTF8", "WCHAR_T", reinterpret_cast<char const*>(in), chars * sizeof(wchar_t),
                           counting ? nullptr : out, counting ? 0 : static_cast<size_t>(out_len),
                           "WideCharToMultiByte iconv_open", "WideCharToMultiByte iconv");
  if (written < 0) return 0;
  if (!counting && written < out_len) out[written] = 0;
  return static_cast<int>(written);
}

int linuxcompat_utf16_to_utf8(char16_t const* src, char** out) {
  *out = nullptr;
  if (!src) return 0;
  size_t units = 0;
  while (src[units]) ++units;
  size_t cap = units * 4 + 1;
  char* buf = static_cast<char*>(std::calloc(cap, 1));
  if (!buf) return 0;
  // UTF16LE: the host's order, and no byte-order mark is expected in a bare string.
  long n = run_iconv("UTF8", "UTF-16LE", reinterpret_cast<char const*>(src), units * 2, buf, cap - 1,
                     "linuxcompat_utf16_to_utf8 iconv_open", "linuxcompat_utf16_to_utf8 iconv");
  if (n < 0) {
    std::free(buf);
    return 0;
  }
  buf[n] = 0;
  *out = buf;
  return static_cast<int>(n);
}

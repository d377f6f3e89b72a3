#include "io/BisFileIO.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "core/LinuxCompat.h"
#include "core/ProjectInfo.h"
#include "io/BisFileIOText.h"

struct BisFileIO::State {
  int line_continues = 0;
  BisFileIO* owner = nullptr;
  FILE* out = nullptr;
  FILE* in = nullptr;
  int huge = 0;
  int pseudo = 0;
  uint64_t size = 0;
  uint64_t cursor = 0;
  uint8_t* data = nullptr;
  char mime[5] = {0, 0, 0, 0, 0};
  BisDLL* dll = nullptr;
  time_t file_date = 0;
  FileStringA in_name;
  int indent = 0;
  int trailing_spaces = 0;
  int warnings_are_errors = 0;
  BisCallback msg = bis_default_callback;
  BisCallback err = bis_default_callback;
  FileStringA out_name;
  // Where the huge-mode stream stands (kUnknown after a failed seek or read), so that sequential
  // reads do not seek; the copies that pointer reads hand out in huge mode; io_MakeFilename's result.
  static constexpr uint64_t kUnknown = UINT64_MAX;
  uint64_t stream_pos = kUnknown;
  std::vector<uint8_t> huge_block;
  std::string huge_text;
  GenString made_name;
};

namespace bis_io_text {

std::string io_vformat(char const* format, va_list ap) {
  // The buffer is the format's length plus 1024 bytes; longer results are cut there.
  size_t cap = (format ? std::strlen(format) : 0) + 1024;
  std::string s(cap, '\0');
  int n = std::vsnprintf(s.data(), cap, format ? format : "", ap);
  if (n < 0) n = 0;
  s.resize(static_cast<size_t>(n) < cap ? static_cast<size_t>(n) : cap - 1);
  return s;
}

std::string io_to_utf8(wchar_t const* w) {
  if (!w || !*w) return std::string();
  int n = WideCharToMultiByte(CP_UTF8, 0, w, -1, nullptr, 0, nullptr, nullptr);
  if (n <= 0) return std::string();
  std::string out(static_cast<size_t>(n) + 1, '\0');
  n = WideCharToMultiByte(CP_UTF8, 0, w, -1, out.data(), static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return out;
}

}  // namespace bis_io_text

using bis_io_text::io_to_utf8;
using bis_io_text::io_vformat;

namespace {

// Wide text of this platform (UTF-32) to the UTF-16 units that the family's Unicode files hold.
void wide_to_utf16(wchar_t const* w, std::u16string& out) {
  out.clear();
  for (; w && *w; ++w) {
    auto c = static_cast<char32_t>(*w);
    if (c > 0x10FFFF) c = 0xFFFD;
    if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
  }
}

// False when the text is not UTF-8.
bool utf8_to_utf16(char const* text, std::u16string& out) {
  out.clear();
  if (!text || !*text) return true;
  int n = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  if (n <= 0) return false;
  std::wstring w(static_cast<size_t>(n) + 1, L'\0');
  n = MultiByteToWideChar(CP_UTF8, 0, text, -1, w.data(), static_cast<int>(w.size()));
  if (n <= 0) return false;
  w.resize(static_cast<size_t>(n));
  wide_to_utf16(w.c_str(), out);
  return true;
}

bool write_text_file(char const* name, int encoding, void const* data, size_t unit, size_t count) {
  FileStringA fn;
  FILE* f = fn.fs_CreateTextFile(name, encoding);
  if (!f) return false;
  bool ok = count == 0 || std::fwrite(data, unit, count, f) == count;
  return (std::fclose(f) == 0) && ok;
}


// Reads a whole regular file from its start into a new buffer of size + 4 zero bytes.
long long read_whole(FILE* f, uint8_t*& buffer, BisFileIO& io) {
  buffer = nullptr;
  struct stat st;
  if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode) || fseeko(f, 0, SEEK_SET) != 0) return -1;
  auto size = static_cast<uint64_t>(st.st_size);
  uint8_t* buf = size <= SIZE_MAX - 4 ? new (std::nothrow) uint8_t[size + 4]() : nullptr;
  if (!buf) io.io_throw(1, "\r\nhuge mode not permitted\r\n");
  if (size && std::fread(buf, 1, size, f) != size) {
    delete[] buf;
    io.io_throw(1, "\r\nCannot read entire file\r\n");
  }
  buffer = buf;
  return static_cast<long long>(size);
}

// Up to 16 bytes of `source` from `at` as "%02X " each; the cursor is left where it was.
std::string hex_row(BisFileIO& source, uint64_t at) {
  uint64_t size = source.io_GetFileSize();
  uint64_t n = at < size ? std::min<uint64_t>(16, size - at) : 0;
  uint8_t row[16];
  uint64_t keep = source.io_GetCurrentOffset();
  source.io_MoveTo(at);
  source.io_ReadBlock(row, n);
  source.io_MoveTo(keep);
  std::string line;
  char hex[4];
  for (uint64_t i = 0; i < n; ++i) {
    std::snprintf(hex, sizeof hex, "%02X ", row[i]);
    line += hex;
  }
  return line;
}
}  // namespace

// ===== construction ==========================================================

void BisFileIO::_ioCommonInit() {
  _s = new State;
  _s->owner = this;
}

BisFileIO::BisFileIO() { _ioCommonInit(); }
BisFileIO::BisFileIO(BisDLL* dll) {
  _ioCommonInit();
  _s->dll = dll;
}
BisFileIO::~BisFileIO() {
  io_Close();
  delete _s;
}

void BisFileIO::io_SetDllParent(BisDLL* dll) { _s->dll = dll; }
BisDLL* BisFileIO::io_GetDllParent() const { return _s->dll; }

// ===== input =================================================================

void BisFileIO::io_CloseInput() {
  if (_s->in) std::fclose(_s->in);
  if (!_s->huge && !_s->pseudo) delete[] _s->data;
  _s->in = nullptr;
  _s->data = nullptr;
  _s->huge = 0;
  _s->pseudo = 0;
  _s->size = 0;
  _s->cursor = 0;
  _s->file_date = 0;
  _s->stream_pos = State::kUnknown;
  std::vector<uint8_t>().swap(_s->huge_block);
  std::string().swap(_s->huge_text);
  _s->in_name.Clear();
}

bool BisFileIO::io_CloseOutput() {
  bool ok = !_s->out || std::fclose(_s->out) == 0;
  _s->out = nullptr;
  return ok;
}

void BisFileIO::io_Close() {
  io_CloseInput();
  io_CloseOutput();
}

time_t BisFileIO::io_OpenFile(char const* name, char const* default_ext, int flags) {
  if (!name || !*name) throw "no filename";
  if (default_ext && !*default_ext) default_ext = nullptr;
  io_CloseInput();
  io_CloseOutput();
  _s->in_name = name;
  if (default_ext && !_s->in_name.fs_GetExt()) _s->in_name.fs_AddExt(default_ext);
  FILE* f = _s->in_name.fs_fopen("rb");
  if (!f) return 0;
  struct stat st;
  if (fstat(fileno(f), &st) != 0) {
    std::fclose(f);
    throw "file len error";
  }
  if (S_ISDIR(st.st_mode)) {  // a folder opens as a stream here, but it is not a file to read
    std::fclose(f);
    return 0;
  }
  if (!S_ISREG(st.st_mode)) {  // pipes and devices have no length to trust
    std::fclose(f);
    throw "file len error";
  }
  auto size = static_cast<uint64_t>(st.st_size);
  uint8_t* buf = nullptr;
  if (!(flags & 2)) {
    buf = size <= SIZE_MAX - 4 ? new (std::nothrow) uint8_t[size + 4] : nullptr;
    if (buf) {
      // The body is overwritten by the read, which must deliver every byte; the 4 spare bytes
      // make any buffer a terminated text.
      std::memset(buf + size, 0, 4);
      if (size && std::fread(buf, 1, size, f) != size) {
        delete[] buf;
        std::fclose(f);
        io_throw(1, "\r\nCannot read entire file\r\n");
      }
      std::fclose(f);
    }
  }
  _s->size = size;
  _s->cursor = 0;
  if (buf) {
    _s->data = buf;
  } else {
    _s->huge = 1;
    _s->in = f;
    _s->stream_pos = 0;
    if (!(flags & 2)) {
      io_callbackerr(
          "\r\nInformation: Cannot allocate %d bytes for fread(). File is massive\r\nUsing I/O instead. "
          "Expect LOOOOOOONG processing time\r\n",
          static_cast<int>(size));
      io_callbackerr("%s", "");
    }
  }
  if ((flags & 1) && !_s->huge) {
    int r = FileStringA::fs_RemoveBom(_s->data, _s->size);  // may move the buffer to grow it
    uint64_t len = strnlen(reinterpret_cast<char const*>(_s->data), _s->size + 4);
    if (r == 1) {
      _s->size = len;
    } else if (r == 0) {
      if (len != size) {  // a zero byte inside: not a text file
        io_CloseInput();
        return 0;
      }
    } else {
      io_CloseInput();
      io_callbackerr("Unicode Error\r\n");
      return 0;
    }
  }
  _s->file_date = st.st_mtime;
  return st.st_mtime;
}

time_t BisFileIO::io_OpenFile(wchar_t const* name, wchar_t const* default_ext, int flags) {
  std::string n = io_to_utf8(name), e = io_to_utf8(default_ext);
  return io_OpenFile(n.c_str(), e.c_str(), flags);
}

void BisFileIO::io_OpenPseudoFile(void const* buffer, uint64_t size) {
  io_CloseInput();
  io_CloseOutput();
  _s->data = static_cast<uint8_t*>(const_cast<void*>(buffer));
  _s->size = buffer ? size : 0;
  _s->pseudo = 1;
  _s->huge = 0;
  _s->cursor = 0;
  _s->file_date = 0;
}

bool BisFileIO::io_ReadActive() const { return _s->data || _s->in; }
bool BisFileIO::io_WriteActive() const { return _s->out != nullptr; }
uint8_t* BisFileIO::io_GetRawData() const { return _s->data; }
uint64_t BisFileIO::io_GetFileSize() const { return _s->size; }
bool BisFileIO::io_IsHuge() const { return _s->huge != 0; }
char const* BisFileIO::io_GetOpenedFileName(bool output) const {
  return output ? _s->out_name.c_str() : _s->in_name.c_str();
}
time_t BisFileIO::io_GetOpenedFiledate() const { return _s->file_date; }
time_t BisFileIO::io_GetFileDate(char const* name) { return FileStringA(name).fs_GetFileDate(); }
uint64_t BisFileIO::io_GetOutSize() const {
  if (!_s->out) return 0;
  std::fflush(_s->out);
  struct stat st;
  return fstat(fileno(_s->out), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

long long BisFileIO::io_ReadFile(char const* name, uint8_t*& buffer) {
  buffer = nullptr;
  if (!name || !*name) return -1;
  FILE* f = FileStringA(name).fs_fopen("rb");
  if (!f) return -1;
  long long n;
  try {
    n = read_whole(f, buffer, *this);
  } catch (...) {
    std::fclose(f);
    throw;
  }
  std::fclose(f);
  return n;
}

long long BisFileIO::io_ReadBackWriteFile(uint8_t*& buffer) {
  buffer = nullptr;
  if (!_s->out) return -1;
  if (std::fflush(_s->out) != 0) throw GE_CANNOT_WRITE;
  off_t pos = ftello(_s->out);
  long long n = read_whole(_s->out, buffer, *this);
  if (pos >= 0) fseeko(_s->out, pos, SEEK_SET);
  return n;
}

// ===== reads =================================================================

void BisFileIO::io_Require(uint64_t n) const {
  if (n > _s->size - _s->cursor) throw GE_EOF;
}

void BisFileIO::_fetch(uint64_t at, void* dest, uint64_t n) {
  if (at > _s->size || n > _s->size - at) throw GE_EOF;
  if (!n) return;
  if (!_s->huge) {
    std::memcpy(dest, _s->data + at, n);
    return;
  }
  if (_s->stream_pos != at) {
    if (at > static_cast<uint64_t>(INT64_MAX) || fseeko(_s->in, static_cast<off_t>(at), SEEK_SET) != 0) {
      _s->stream_pos = State::kUnknown;
      throw GE_EOF;
    }
    _s->stream_pos = at;
  }
  if (std::fread(dest, 1, n, _s->in) != n) {  // the file shrank under us
    _s->stream_pos = State::kUnknown;
    throw GE_EOF;
  }
  _s->stream_pos = at + n;
}

void BisFileIO::_read_raw(void* dest, uint64_t n) {
  _fetch(_s->cursor, dest, n);
  _s->cursor += n;
}

template <class T>
T BisFileIO::_read_le() {
  T v;
  _read_raw(&v, sizeof(T));  // the host is little-endian, as the files are
  return v;
}

int BisFileIO::io_ReadByte() { return _read_le<uint8_t>(); }
int16_t BisFileIO::io_ReadShort() { return _read_le<int16_t>(); }
uint16_t BisFileIO::io_ReadUshort() { return _read_le<uint16_t>(); }
uint32_t BisFileIO::io_ReadTriByte() {
  uint8_t b[3];
  _read_raw(b, 3);
  return b[0] | (b[1] << 8) | (static_cast<uint32_t>(b[2]) << 16);
}
int32_t BisFileIO::io_ReadLong() { return _read_le<int32_t>(); }
uint32_t BisFileIO::io_ReadUlong() { return _read_le<uint32_t>(); }
int64_t BisFileIO::io_ReadLongLong() { return _read_le<int64_t>(); }
float BisFileIO::io_ReadFloat() { return _read_le<float>(); }
double BisFileIO::io_ReadDouble() { return _read_le<double>(); }
uLongPair BisFileIO::io_ReadUlongPair() {
  io_Require(8);
  uLongPair p;
  p.x = io_ReadUlong();
  p.y = io_ReadUlong();
  return p;
}

XYZTriplet const* BisFileIO::io_ReadXYZTriplet(uint64_t count) {
  if (count > UINT64_MAX / sizeof(XYZTriplet)) throw GE_EOF;
  return reinterpret_cast<XYZTriplet const*>(io_GetAddressAndUpdate(count * sizeof(XYZTriplet)));
}

XYZTransform const* BisFileIO::io_ReadXYZTransformPtr() {
  return reinterpret_cast<XYZTransform const*>(io_GetAddressAndUpdate(sizeof(XYZTransform)));
}

void BisFileIO::io_ReadBlock(void* dest, uint64_t size, uint64_t count) {
  if (count && size > UINT64_MAX / count) throw GE_EOF;
  uint64_t n = size * count;
  io_Require(n);
  if (n && !dest) throw GE_CODE_BUG;
  _read_raw(dest, n);
}

char* BisFileIO::io_ReadMime(char* buffer) {
  if (!buffer) buffer = _s->mime;
  _read_raw(buffer, 4);
  buffer[4] = 0;
  return buffer;
}

uint64_t BisFileIO::_asciiz_length() {
  uint64_t left = io_RemainingBytes();
  if (!_s->huge) {
    if (!left) throw GE_EOF;
    size_t len = strnlen(reinterpret_cast<char const*>(_s->data + _s->cursor), left);
    if (len == left) throw GE_EOF;  // no terminator before the end of the input
    return len;
  }
  char chunk[4096];
  for (uint64_t len = 0; len < left;) {
    uint64_t n = std::min<uint64_t>(sizeof chunk, left - len);
    _fetch(_s->cursor + len, chunk, n);
    if (void const* z = std::memchr(chunk, 0, n)) return len + static_cast<uint64_t>(static_cast<char const*>(z) - chunk);
    len += n;
  }
  throw GE_EOF;
}

char const* BisFileIO::io_ReadAsciiz() {
  uint64_t len = _asciiz_length();
  if (!_s->huge) {
    auto* start = reinterpret_cast<char const*>(_s->data + _s->cursor);
    _s->cursor += len + 1;
    return start;
  }
  // A stream has no buffer to point into: hand out a copy.
  try {
    _s->huge_text.resize(len);
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  _fetch(_s->cursor, _s->huge_text.data(), len);
  _s->cursor += len + 1;
  return _s->huge_text.c_str();
}

void BisFileIO::io_ReadAsciizHuge(std::string& out) {
  uint64_t len = _asciiz_length();
  out.resize(len);
  _fetch(_s->cursor, out.data(), len);
  _s->cursor += len + 1;
}

// ===== cursor ================================================================

uint8_t* BisFileIO::io_GetAddress() const {
  if (_s->huge || !_s->data) throw GE_EOF;
  return _s->data + _s->cursor;
}

uint8_t* BisFileIO::io_GetAddressAndUpdate(uint64_t n) {
  io_Require(n);
  if (!_s->huge) {
    uint8_t* p = io_GetAddress();
    _s->cursor += n;
    return p;
  }
  try {
    _s->huge_block.resize(n);
  } catch (std::bad_alloc const&) {
    throw GE_NO_MEMORY;
  }
  _read_raw(_s->huge_block.data(), n);
  return _s->huge_block.data();
}

void BisFileIO::io_AddOffset(int64_t delta) {
  if (delta < 0) {
    // -(delta + 1) + 1 is the magnitude, also for the most negative delta
    if (static_cast<uint64_t>(-(delta + 1)) + 1 > _s->cursor) throw GE_EOF;
  } else {
    io_Require(static_cast<uint64_t>(delta));
  }
  _s->cursor += static_cast<uint64_t>(delta);
}

void BisFileIO::io_SetAddress(void const* pointer) {
  auto p = reinterpret_cast<uintptr_t>(pointer);
  auto b = reinterpret_cast<uintptr_t>(_s->data);
  if (!_s->data || _s->huge || p < b || p - b > _s->size) throw GE_EOF;
  _s->cursor = p - b;
}

uint64_t BisFileIO::io_BytesUsed(void const* pointer) const {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer) - reinterpret_cast<uintptr_t>(_s->data));
}

uint64_t BisFileIO::io_MoveTo(uint64_t offset, int output) {
  if (output) {
    if (!_s->out) throw GE_CANNOT_WRITE;
    off_t old = ftello(_s->out);
    if (offset > static_cast<uint64_t>(INT64_MAX) || fseeko(_s->out, static_cast<off_t>(offset), SEEK_SET) != 0)
      throw GE_CANNOT_WRITE;
    return old < 0 ? 0 : static_cast<uint64_t>(old);
  }
  if (offset > _s->size) throw GE_EOF;
  uint64_t old = _s->cursor;
  if (_s->huge && _s->stream_pos != offset) {
    if (fseeko(_s->in, static_cast<off_t>(offset), SEEK_SET) != 0) {
      _s->stream_pos = State::kUnknown;
      throw GE_EOF;
    }
    _s->stream_pos = offset;
  }
  _s->cursor = offset;
  return old;
}

uint64_t BisFileIO::io_GetCurrentOffset(int output) const {
  if (output) {
    off_t p = _s->out ? ftello(_s->out) : 0;
    return p < 0 ? 0 : static_cast<uint64_t>(p);
  }
  return _s->cursor;
}

uint64_t BisFileIO::io_RemainingBytes() const { return _s->size - _s->cursor; }
bool BisFileIO::io_eof() const { return _s->cursor == _s->size; }

// ===== writes ================================================================

int BisFileIO::io_CreateFile(char const* name, char const* default_ext) {
  if (!name || !*name || _s->out) return 0;
  _s->out_name = name;
  _s->out_name.fs_AddExt(default_ext);
  _s->out = _s->out_name.fs_fopen("w+b");
  if (!_s->out) {
    int e = errno;
    io_throw(0, "%s: '%s'\r\n", _s->out_name.c_str(), std::strerror(e));
    return 0;
  }
  return 1;
}

void BisFileIO::_write_raw(void const* data, uint64_t n) {
  if (!n) return;
  if (!data || !_s->out || std::fwrite(data, 1, n, _s->out) != n) throw GE_CANNOT_WRITE;
}

void BisFileIO::io_WriteBlock(void const* data, uint64_t size, uint64_t count) {
  if (!size || !count) return;
  if (size > UINT64_MAX / count) throw GE_CANNOT_WRITE;
  _write_raw(data, size * count);
}

template <class T>
void BisFileIO::_write_le(T v) {
  _write_raw(&v, sizeof(T));
}

void BisFileIO::io_WriteByte(int v) { _write_le<uint8_t>(static_cast<uint8_t>(v)); }
void BisFileIO::io_WriteShort(int16_t v) { _write_le(v); }
void BisFileIO::io_WriteUshort(uint16_t v) { _write_le(v); }
void BisFileIO::io_WriteTriByte(uint32_t v) {
  uint8_t b[3] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16)};
  _write_raw(b, 3);
}
void BisFileIO::io_WriteLong(int32_t v) { _write_le(v); }
void BisFileIO::io_WriteUlong(uint32_t v) { _write_le(v); }
void BisFileIO::io_WriteLongLong(int64_t v) { _write_le(v); }
void BisFileIO::io_WriteFloat(float v) { _write_le(v); }
void BisFileIO::io_WriteDouble(double v) { _write_le(v); }
void BisFileIO::io_WriteUlongPair(uLongPair v) {
  io_WriteUlong(v.x);
  io_WriteUlong(v.y);
}
void BisFileIO::io_WriteXYZTriplet(XYZTriplet const* p, uint64_t count) {
  io_WriteBlock(p, sizeof(XYZTriplet), count);
}
void BisFileIO::io_WriteXYZTransform(XYZTransform const& t) { io_WriteBlock(&t, sizeof t, 1); }

void BisFileIO::io_WriteAsciiz(char const* text, int mode) {
  if (!text) text = "";
  size_t n = std::strlen(text);
  switch (mode) {
    case 0:
      io_WriteBlock(text, n + 1, 1);
      break;
    case 1:
      io_WriteBlock(text, n, 1);
      break;
    case 2:
      if (n > UINT32_MAX) throw GE_CANNOT_WRITE;
      io_WriteUlong(static_cast<uint32_t>(n));
      io_WriteBlock(text, n, 1);
      break;
    default:
      throw GE_CODE_BUG;
  }
}

bool BisFileIO::io_write_file(char const* name, char const* text, int encoding) {
  if (!text) text = "";
  if (encoding == 2) {
    std::u16string units;
    if (!utf8_to_utf16(text, units)) return false;
    return write_text_file(name, encoding, units.data(), 2, units.size());
  }
  return write_text_file(name, encoding, text, 1, std::strlen(text));
}

bool BisFileIO::io_write_file(char const* name, wchar_t const* text, int encoding) {
  if (encoding == 2) {
    std::u16string units;
    wide_to_utf16(text, units);
    return write_text_file(name, encoding, units.data(), 2, units.size());
  }
  std::string bytes = io_to_utf8(text);
  return write_text_file(name, encoding, bytes.data(), 1, bytes.size());
}

bool BisFileIO::io_write_file(wchar_t const* name, char const* text, int encoding) {
  return io_write_file(io_to_utf8(name).c_str(), text, encoding);
}

bool BisFileIO::io_write_file(wchar_t const* name, wchar_t const* text, int encoding) {
  return io_write_file(io_to_utf8(name).c_str(), text, encoding);
}

bool BisFileIO::io_write_file(char const* name, void const* bytes, uint64_t count) {
  if (count && !bytes) return false;
  FILE* f = FileStringA(name).fs_fopen("wb");
  if (!f) return false;
  bool ok = count == 0 || std::fwrite(bytes, 1, count, f) == count;
  ok = (std::fclose(f) == 0) && ok;
  return ok;
}

char const* BisFileIO::io_MakeFilename(char const* name, char const* ext) {
  FileStringA f(name);
  f.fs_ReplaceExt(ext);
  _s->made_name = f.c_str();
  return _s->made_name.c_str();
}

int BisFileIO::io_random(int low, int high) {
  double span = static_cast<double>(high) - static_cast<double>(low);
  return low + static_cast<int>(span * static_cast<double>(std::rand()) * 4.656612873077393e-10);
}

// ===== messages ==============================================================

void BisFileIO::io_vcallback(bool error, char const* format, va_list ap) {
  std::string text = io_vformat(format, ap);
  std::string out;
  size_t levels = _s->indent > 0 && !_s->line_continues ? static_cast<size_t>(_s->indent) : 0;
  out.reserve(text.size() + text.size() / 8 + 4 * levels);
  for (size_t i = 0; i < levels; ++i) out += "    ";
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
    out += text[i];
  }
  if (_s->indent != 0 && !text.empty()) _s->line_continues = text.back() != '\n';
  BisCallback cb = error ? _s->err : _s->msg;
  cb("%s", out.c_str());  // already formatted: a '%' in the text must reach the caller unchanged
}

void BisFileIO::io_callback(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  io_vcallback(false, format, ap);
  va_end(ap);
}

void BisFileIO::io_callbackerr(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  io_vcallback(true, format, ap);
  va_end(ap);
}

void BisFileIO::io_set_msg_indent(int delta, char const* text) {
  if (delta > 0) {
    if (text) io_callback("%s", text);
    _s->indent += delta;
  } else if (delta < 0) {
    // Not clamped: an unbalanced pair must not shift every later level.
    _s->indent += delta;
    if (text) io_callback("%s", text);
  } else {
    _s->indent = 0;
  }
}

void BisFileIO::io_clr_msg_indent() { _s->indent = 0; }
int BisFileIO::io_get_msg_indent() const { return _s->indent; }

void BisFileIO::io_throw(int code, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  io_vcallback(true, format, ap);
  va_end(ap);
  if (code) throw static_cast<Generic_Errors>(code);
}

void BisFileIO::io_SetStdioCallBack(BisCallback cb) {
  _s->msg = cb ? cb : bis_default_callback;
  if (!_s->err || _s->err == bis_default_callback) _s->err = _s->msg;
}

void BisFileIO::io_SetErrCallBack(BisCallback cb) { _s->err = cb ? cb : bis_default_callback; }
BisCallback BisFileIO::io_GetStdioCallBack() const { return _s->msg; }

void BisFileIO::io_set_trailing_spaces(int n) { _s->trailing_spaces = n ? _s->trailing_spaces + n : 0; }
int BisFileIO::io_has_trailing_spaces() const { return _s->trailing_spaces; }
void BisFileIO::io_set_warnings_are_errors(bool on) { _s->warnings_are_errors = on ? 1 : 0; }
bool BisFileIO::io_get_warnings_are_errors() const { return _s->warnings_are_errors != 0; }

// ===== banner and comparison =================================================

void BisFileIO::io_Banner(GenString& text, char const* title, time_t file_time) {
  static constexpr char slashes[] =
      "////////////////////////////////////////////////////////////////////";
  static_assert(sizeof slashes - 1 == 68);
  text.Clear();
  text.str_Add("%s\r\n", slashes);
  text.str_Add("//%s\r\n", title ? title : "");
  text.str_Add("//Produced from ostrel's Tools Dll version %s\r\n", BisDLL::dll_GetVersionStr());
  if (file_time != static_cast<time_t>(-1)) {
    // ctime's layout; a year beyond four digits (or a failed conversion) is not 24 characters.
    auto stamp = [](time_t t, char (&buf)[25]) -> bool {
      tm tmv{};
      if (!localtime_r(&t, &tmv)) return false;
      return std::strftime(buf, sizeof buf, "%a %b %d %H:%M:%S %Y", &tmv) == 24;
    };
    char now_text[25] = {0}, file_text[25] = {0};
    bool now_ok = stamp(std::time(nullptr), now_text);
    bool file_ok = stamp(file_time, file_text);
    text.str_Add("//'now' is %s : 'file' last modified on %s\r\n", now_ok ? now_text : "now date error",
                 file_ok ? file_text : "file date error");
  }
  text.str_Add("//%s\r\n", kVendrakDownloadAddress);
  text.str_Add("%s\r\n\r\n", slashes);
}

uint64_t BisFileIO::_first_mismatch(BisFileIO& other, uint64_t length) {
  constexpr uint64_t kChunk = 64 * 1024;
  std::vector<uint8_t> a, b;
  bool in_memory = !_s->huge && !other._s->huge;
  if (!in_memory) {
    a.resize(kChunk);
    b.resize(kChunk);
  }
  for (uint64_t at = 0; at < length;) {
    uint64_t n = std::min(kChunk, length - at);
    uint8_t const* pa;
    uint8_t const* pb;
    if (in_memory) {
      pa = _s->data + at;
      pb = other._s->data + at;
    } else {
      _fetch(at, a.data(), n);
      other._fetch(at, b.data(), n);
      pa = a.data();
      pb = b.data();
    }
    if (std::memcmp(pa, pb, n) != 0) return at + static_cast<uint64_t>(std::mismatch(pa, pa + n, pb).first - pa);
    at += n;
  }
  return length;
}

int BisFileIO::io_FileCompare(BisFileIO& other, int compare_data) {
  uint64_t a = io_GetFileSize(), b = other.io_GetFileSize();
  if (a != b) {
    uint64_t diff = a > b ? a - b : b - a;
    io_callbackerr("\r\nFile sizes not same. Original is %s by %d bytes\r\n\r\n", a > b ? "larger" : "smaller",
                   static_cast<int>(diff));
    uint64_t shorter = std::min(a, b);
    uint64_t at = _first_mismatch(other, shorter);
    if (at == shorter) return 0;
    std::printf("Orig size  %04zX\n", static_cast<size_t>(a));
    std::printf("New  size  %04zX\n", static_cast<size_t>(b));
    std::printf("Mismatch@  %04zX\n", static_cast<size_t>(at));
    std::printf("\n");
    std::printf("%s\n", hex_row(*this, at).c_str());
    std::printf("%s\n", hex_row(other, at).c_str());
    std::fflush(stdout);
    return 0;
  }
  if (!compare_data) return 1;
  uint64_t at = _first_mismatch(other, a);
  if (at == a) return 1;
  io_callbackerr("\r\nFile data not same\r\n");
  io_Rewind();
  other.io_Rewind();
  io_callbackerr("offset %d (0x%X)\r\n", static_cast<int>(at), static_cast<unsigned>(at));
  io_callbackerr("%s\r\n", hex_row(*this, at).c_str());
  io_callbackerr("%s\r\n", hex_row(other, at).c_str());
  return 0;
}

#include "io/BisFileIO.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <strings.h>
#include <system_error>
#include <vector>

#include "core/BisDLL.h"
#include "core/LinuxCompat.h"
#include "core/ProjectInfo.h"
#include "io/BisFunion.h"

namespace fs = std::filesystem;

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
  GenString scratch;
};

namespace {
int default_shell_runner(char const* line) {
  // The command line arrives wrapped in one pair of double quotes, the form a Windows command
  // interpreter unwraps; the POSIX shell wants the bare command.
  std::string cmd(line);
  if (cmd.size() >= 2 && cmd.front() == '"' && cmd.back() == '"') cmd = cmd.substr(1, cmd.size() - 2);
  return std::system(cmd.c_str());
}
BisFileIO::ShellRunner g_shell_runner = default_shell_runner;

std::string vformat(char const* format, va_list ap) {
  // The buffer is the format's length plus 1024 characters; longer results are cut there.
  size_t cap = (format ? std::strlen(format) : 0) + 1024;
  std::string s(cap, '\0');
  int n = std::vsnprintf(s.data(), cap, format ? format : "", ap);
  if (n < 0) n = 0;
  s.resize(static_cast<size_t>(n) < cap ? static_cast<size_t>(n) : cap - 1);
  return s;
}

std::string to_utf8(wchar_t const* w) {
  if (!w) return std::string();
  std::string out;
  int n = WideCharToMultiByte(CP_UTF8, 0, w, -1, nullptr, 0, nullptr, nullptr);
  if (n <= 0) return out;
  out.resize(static_cast<size_t>(n) + 1);
  n = WideCharToMultiByte(CP_UTF8, 0, w, -1, out.data(), static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(n > 0 ? strnlen(out.c_str(), static_cast<size_t>(n)) : 0);
  return out;
}

std::string host_path(char const* name) {
  std::string s(name ? name : "");
  for (char& c : s)
    if (c == '\\') c = '/';
  return s;
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
  if (_s->huge) {
    if (_s->in) std::fclose(_s->in);
  } else if (!_s->pseudo) {
    delete[] _s->data;
  }
  _s->in = nullptr;
  _s->data = nullptr;
  _s->huge = 0;
  _s->pseudo = 0;
  _s->size = 0;
  _s->cursor = 0;
  _s->file_date = 0;
  _s->in_name.Clear();
}

void BisFileIO::io_CloseOutput() {
  if (_s->out) std::fclose(_s->out);
  _s->out = nullptr;
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
  if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
    std::fclose(f);
    if (S_ISDIR(st.st_mode)) return 0;  // a folder is not a file to open
    throw "file len error";
  }
  uint64_t size = static_cast<uint64_t>(st.st_size);
  _s->size = size;
  _s->cursor = 0;
  uint8_t* buf = nullptr;
  if (!(flags & 2)) {
    buf = new (std::nothrow) uint8_t[size + 4];
    if (buf) {
      std::memset(buf + size, 0, 4);
      if (size && std::fread(buf, 1, size, f) != size) {
        delete[] buf;
        std::fclose(f);
        _s->size = 0;
        io_throw(1, "\r\nCannot read entire file\r\n");
      }
      std::fclose(f);
      _s->data = buf;
    } else {
      io_callbackerr(
          "\r\nInformation: Cannot allocate %d bytes for fread(). File is massive\r\nUsing I/O instead. "
          "Expect LOOOOOOONG processing time\r\n",
          static_cast<int>(size));
      io_callbackerr("%s", "");
    }
  }
  if (!buf) {
    _s->huge = 1;
    _s->in = f;
  }
  if ((flags & 1) && !_s->huge) {
    int r = FileStringA::fs_RemoveBom(_s->data, _s->size);  // may move the buffer to grow it
    size_t len = strnlen(reinterpret_cast<char*>(_s->data), _s->size + 4);
    if (r == 1) {
      _s->size = len;
    } else if (r == 0) {
      if (len != _s->size) {
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
  std::string n = to_utf8(name), e = to_utf8(default_ext);
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
  long pos = std::ftell(_s->out);
  std::fseek(_s->out, 0, SEEK_END);
  long end = std::ftell(_s->out);
  std::fseek(_s->out, pos, SEEK_SET);
  return end < 0 ? 0 : static_cast<uint64_t>(end);
}

namespace {
long long read_whole(FILE* f, uint8_t*& buffer, BisFileIO& io) {
  buffer = nullptr;
  if (std::fseek(f, 0, SEEK_END) != 0) return -1;
  long end = std::ftell(f);
  if (end < 0) return -1;
  std::rewind(f);
  size_t size = static_cast<size_t>(end);
  uint8_t* buf = new (std::nothrow) uint8_t[size + 4]();
  if (!buf) io.io_throw(1, "\r\nhuge mode not permitted\r\n");
  if (size && std::fread(buf, 1, size, f) != size) {
    delete[] buf;
    io.io_throw(1, "\r\nCannot read entire file\r\n");
  }
  buffer = buf;
  return static_cast<long long>(size);
}
}  // namespace

long long BisFileIO::io_ReadFile(char const* name, uint8_t*& buffer) {
  buffer = nullptr;
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
  std::fflush(_s->out);
  long pos = std::ftell(_s->out);
  long long n = read_whole(_s->out, buffer, *this);
  std::fseek(_s->out, pos, SEEK_SET);
  return n;
}

// ===== reads =================================================================

void BisFileIO::io_Require(uint64_t n) const {
  if (n > _s->size - _s->cursor) throw GE_EOF;
}

void BisFileIO::_read_raw(void* dest, uint64_t n) {
  io_Require(n);
  if (!n) return;
  if (_s->huge) {
    if (std::fseek(_s->in, static_cast<long>(_s->cursor), SEEK_SET) != 0 ||
        std::fread(dest, 1, n, _s->in) != n)
      throw GE_EOF;
  } else {
    std::memcpy(dest, _s->data + _s->cursor, n);
  }
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
  _read_raw(dest, size * count);
}

char* BisFileIO::io_ReadMime(char* buffer) {
  if (!buffer) buffer = _s->mime;
  _read_raw(buffer, 4);
  buffer[4] = 0;
  return buffer;
}

char const* BisFileIO::io_ReadAsciiz() {
  if (_s->huge) {
    // A stream has no buffer to point into: keep the copy in the scratch string.
    std::string s;
    io_ReadAsciizHuge(s);
    _s->scratch.str_MemDup(s.data(), s.size());
    return _s->scratch.c_str();
  }
  if (_s->cursor >= _s->size) throw GE_EOF;
  auto* start = reinterpret_cast<char const*>(_s->data + _s->cursor);
  size_t len = strnlen(start, _s->size - _s->cursor);
  if (len == _s->size - _s->cursor) throw GE_EOF;  // no terminator before the end
  _s->cursor += len + 1;
  return start;
}

void BisFileIO::io_ReadAsciizHuge(std::string& out) {
  out.clear();
  if (!_s->huge) {
    out = io_ReadAsciiz();
    return;
  }
  for (;;) {
    int c = io_ReadByte();
    if (!c) break;
    out.push_back(static_cast<char>(c));
  }
}

// ===== cursor ================================================================

uint8_t* BisFileIO::io_GetAddress() const {
  if (_s->huge || !_s->data) throw GE_EOF;
  return _s->data + _s->cursor;
}

uint8_t* BisFileIO::io_GetAddressAndUpdate(uint64_t n) {
  io_Require(n);
  uint8_t* p = io_GetAddress();
  _s->cursor += n;
  return p;
}

void BisFileIO::io_AddOffset(int64_t delta) {
  if (delta < 0) {
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
    long old = std::ftell(_s->out);
    if (offset > LONG_MAX || std::fseek(_s->out, static_cast<long>(offset), SEEK_SET) != 0) throw GE_CANNOT_WRITE;
    return static_cast<uint64_t>(old);
  }
  if (offset > _s->size) throw GE_EOF;
  uint64_t old = _s->cursor;
  if (_s->huge && std::fseek(_s->in, static_cast<long>(offset), SEEK_SET) != 0) throw GE_EOF;
  _s->cursor = offset;
  return old;
}

uint64_t BisFileIO::io_GetCurrentOffset(int output) const {
  if (output) {
    long p = _s->out ? std::ftell(_s->out) : 0;
    return p < 0 ? 0 : static_cast<uint64_t>(p);
  }
  return _s->cursor;
}

uint64_t BisFileIO::io_RemainingBytes() const { return _s->size - _s->cursor; }
bool BisFileIO::io_eof() const { return _s->cursor == _s->size; }

// ===== validated reads =======================================================

void BisFileIO::io_test_val(float v, char const* name) {
  if (BisFunion::IsFaulty(v) != 0) io_throw(1, "%s is not a float\r\n", name ? name : "");
}

void BisFileIO::io_read(float* v, char const* name) {
  *v = io_ReadFloat();
  if (name) io_test_val(*v, name);
}

void BisFileIO::io_read(XYZTriplet* v, char const* name) {
  io_read(&v->x, name);
  io_read(&v->y, name);
  io_read(&v->z, name);
}

void BisFileIO::io_read(fMinMax* v, char const* name) {
  io_read(&v->min, name);
  io_read(&v->max, name);
}

void BisFileIO::io_read(trpMinMax* v, char const* name) {
  io_read(&v->min, name);
  io_read(&v->max, name);
}

void BisFileIO::io_read(Matrix3P* v, char const* name) {
  io_read(&v->aside, name);
  io_read(&v->up, name);
  io_read(&v->dir, name);
}

void BisFileIO::io_read(bool* v, char const* name) {
  int b = io_ReadByte();
  if (b == 0) {
    *v = false;
  } else if (b == 1 || !name) {
    *v = true;
  } else {
    io_throw(1, "%s is not a bool\r\n", name);
  }
}

int BisFileIO::io_BufIsRaPified(void const* bytes) {
  if (!bytes) return -1;
  auto const* b = static_cast<unsigned char const*>(bytes);
  return (b[1] == 'r' && b[2] == 'a' && b[3] == 'P') ? b[0] : -1;
}

int BisFileIO::io_FileIsRaPified(char const* name) {
  BisFileIO tmp(_s->dll);
  if (!tmp.io_OpenFile(name) || tmp.io_GetFileSize() < 4) return -1;
  return io_BufIsRaPified(tmp.io_GetRawData());
}

// ===== writes ================================================================

int BisFileIO::io_CreateFile(char const* name, char const* default_ext) {
  if (!name || !*name || _s->out) return 0;
  _s->out_name = name;
  _s->out_name.fs_AddExt(default_ext);
  _s->out = _s->out_name.fs_fopen("w+b");
  if (!_s->out) {
    io_throw(0, "%s: '%s'\r\n", _s->out_name.c_str(), std::strerror(errno));
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
      io_WriteUlong(static_cast<uint32_t>(n));
      io_WriteBlock(text, n, 1);
      break;
    default:
      throw GE_CODE_BUG;
  }
}

bool BisFileIO::io_write_file(char const* name, char const* text, int encoding) {
  FileStringA fn;
  FILE* f = fn.fs_CreateTextFile(name, encoding);
  if (!f) return false;
  bool ok;
  if (!text) text = "";
  if (encoding == 2) {
    // Wide output is UTF-16, the form the family's Unicode text files take.
    std::vector<char16_t> units;
    std::wstring w;
    int n = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    w.resize(n > 0 ? static_cast<size_t>(n) + 1 : 1);
    n = MultiByteToWideChar(CP_UTF8, 0, text, -1, w.data(), static_cast<int>(w.size()));
    for (int i = 0; i < n && w[static_cast<size_t>(i)]; ++i) {
      char32_t c = static_cast<char32_t>(w[static_cast<size_t>(i)]);
      if (c >= 0x10000) {
        c -= 0x10000;
        units.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
        units.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
      } else {
        units.push_back(static_cast<char16_t>(c));
      }
    }
    ok = std::fwrite(units.data(), 2, units.size(), f) == units.size();
  } else {
    size_t n = std::strlen(text);
    ok = std::fwrite(text, 1, n, f) == n;
  }
  ok = (std::fclose(f) == 0) && ok;
  return ok;
}

bool BisFileIO::io_write_file(char const* name, wchar_t const* text, int encoding) {
  return io_write_file(name, to_utf8(text).c_str(), encoding);
}

bool BisFileIO::io_write_file(char const* name, void const* bytes, uint64_t count) {
  FILE* f = FileStringA(name).fs_fopen("wb");
  if (!f) return false;
  bool ok = count == 0 || std::fwrite(bytes, 1, count, f) == count;
  ok = (std::fclose(f) == 0) && ok;
  return ok;
}

char const* BisFileIO::io_MakeFilename(char const* name, char const* ext) {
  _s->scratch = name;
  FileStringA f(name);
  f.fs_ReplaceExt(ext);
  _s->scratch = f.c_str();
  return _s->scratch.c_str();
}

int BisFileIO::io_random(int low, int high) {
  return low + static_cast<int>((high - low) * static_cast<double>(std::rand()) * 4.656612873077393e-10);
}

// ===== messages ==============================================================

void BisFileIO::io_vcallback(bool error, char const* format, va_list ap) {
  std::string text = vformat(format, ap);
  std::string out;
  out.reserve(text.size() + 16 + 4 * static_cast<size_t>(_s->indent > 0 ? _s->indent : 0));
  if (_s->indent >= 1 && !_s->line_continues)
    for (int i = 0; i < _s->indent; ++i) out += "    ";
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
    out += text[i];
  }
  if (_s->indent != 0 && !text.empty()) _s->line_continues = text.back() != '\n';
  BisCallback cb = error ? _s->err : _s->msg;
  cb("%s", out.c_str());
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
    _s->indent += delta;
    if (_s->indent < 0) _s->indent = 0;
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
  if (_s->err == bis_default_callback || !_s->err) _s->err = _s->msg;
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
      "////////////////////////////////////////////////////////////////////";  // 68
  text.Clear();
  text.str_Add("%s\r\n", slashes);
  text.str_Add("//%s\r\n", title ? title : "");
  text.str_Add("//Produced from ostrel's Tools Dll version %s\r\n", BisDLL::dll_GetVersionStr());
  if (file_time != static_cast<time_t>(-1)) {
    char now_text[25] = {0}, file_text[25] = {0};
    time_t now = std::time(nullptr);
    tm tmv{};
    size_t n1 = localtime_r(&now, &tmv) ? std::strftime(now_text, sizeof now_text, "%a %b %d %H:%M:%S %Y", &tmv) : 0;
    size_t n2 = localtime_r(&file_time, &tmv)
                    ? std::strftime(file_text, sizeof file_text, "%a %b %d %H:%M:%S %Y", &tmv)
                    : 0;
    text.str_Add("//'now' is %s : 'file' last modified on %s\r\n", n1 == 24 ? now_text : "now date error",
                 n2 == 24 ? file_text : "file date error");
  }
  text.str_Add("//%s\r\n", kVendrakDownloadAddress);
  text.str_Add("%s\r\n\r\n", slashes);
}

int BisFileIO::io_FileCompare(BisFileIO& other, int compare_data) {
  uint64_t a = io_GetFileSize(), b = other.io_GetFileSize();
  auto byte_at = [](BisFileIO& io, uint64_t off) {
    io.io_MoveTo(off);
    return io.io_ReadByte();
  };
  if (a != b) {
    uint64_t diff = a > b ? a - b : b - a;
    io_callbackerr("\r\nFile sizes not same. Original is %s by %d bytes\r\n\r\n", a > b ? "larger" : "smaller",
                   static_cast<int>(diff));
    uint64_t shorter = a < b ? a : b, at = shorter;
    for (uint64_t i = 0; i < shorter; ++i)
      if (byte_at(*this, i) != byte_at(other, i)) {
        at = i;
        break;
      }
    if (at == shorter) return 0;
    std::printf("Orig size  %04zX\n", static_cast<size_t>(a));
    std::printf("New  size  %04zX\n", static_cast<size_t>(b));
    std::printf("Mismatch@  %04zX\n", static_cast<size_t>(at));
    std::printf("\n");
    for (uint64_t i = at; i < at + 16 && i < a; ++i) std::printf("%02X ", byte_at(*this, i));
    std::printf("\n");
    for (uint64_t i = at; i < at + 16 && i < b; ++i) std::printf("%02X ", byte_at(other, i));
    std::printf("\n");
    return 0;
  }
  if (!compare_data) return 1;
  uint64_t at = a;
  if (!_s->huge && !other._s->huge) {
    if (a == 0 || std::memcmp(_s->data, other._s->data, a) == 0) return 1;
    for (uint64_t i = 0; i < a; ++i)
      if (_s->data[i] != other._s->data[i]) {
        at = i;
        break;
      }
  } else {
    for (uint64_t i = 0; i < a; ++i)
      if (byte_at(*this, i) != byte_at(other, i)) {
        at = i;
        break;
      }
    if (at == a) return 1;
  }
  io_callbackerr("\r\nFile data not same\r\n");
  io_Rewind();
  other.io_Rewind();
  io_callbackerr("offset %d (0x%X)\r\n", static_cast<int>(at), static_cast<unsigned>(at));
  for (uint64_t i = at; i < at + 16 && i < a; ++i) io_callbackerr("%02X ", byte_at(*this, i));
  io_callbackerr("\r\n");
  for (uint64_t i = at; i < at + 16 && i < b; ++i) io_callbackerr("%02X ", byte_at(other, i));
  io_callbackerr("\r\n");
  io_Rewind();
  other.io_Rewind();
  return 0;
}

// ===== folders, renaming and commands ========================================

int BisFileIO::io_CreateFolders(char const* path) {
  if (!path || !*path) return 0;
  FileStringA p(path);
  p.fs_ConvertToSystemSlash();
  std::string rest = p.fs_GetNoHardPath();
  if (rest.empty()) return 0;
  if (FileStringA(rest.c_str()).fs_FolderExists()) return 1;
  for (size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] != '/' || i == 0) continue;
    std::string prefix = rest.substr(0, i);
    struct stat st;
    if (::stat(prefix.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) continue;
    if (FileStringA(prefix.c_str()).fs_mkdir() != 0 && errno != EEXIST) {
      io_callbackerr("%s\r\n%s\r\n", std::strerror(errno), path);
      return 0;
    }
  }
  return 1;
}

int BisFileIO::io_mkdir(char const* folder) {
  std::string f = host_path(folder);
  std::error_code ec;
  if (!f.empty() && fs::is_directory(f, ec)) return 1;
  if (f.empty() || (fs::create_directories(f, ec), ec) || !fs::is_directory(f, ec)) {
    FileStringA q(folder);
    io_callbackerr("mkdir::cannot make folder(s) %s\r\n", q.fs_QuoteFile());
    return 0;
  }
  return 1;
}

int BisFileIO::io_rmdir(char const* folder) {
  std::string f = host_path(folder);
  std::error_code ec;
  if (f.empty() || !fs::exists(fs::symlink_status(f, ec))) return 1;
  fs::remove_all(f, ec);
  if (ec) {
    FileStringA q(folder);
    io_callbackerr("\r\ncannot remove one or all of folder(s) %s\r\n", q.fs_QuoteFile());
    io_callbackerr("%s\r\n", ec.message().c_str());
    return 0;
  }
  return 1;
}

int BisFileIO::io_copy_folder(char const* from, char const* to) {
  if (!io_rmdir(to) || !io_mkdir(to)) return 0;
  std::error_code ec;
  fs::copy(host_path(from), host_path(to), fs::copy_options::recursive, ec);
  return ec ? 0 : 1;
}

int BisFileIO::io_Rename(char const* from, char const* to) {
  if (!from || !*from || !to || !*to) return -1;
  FileStringA f(from), t(to);
  f.fs_ConvertToSystemSlash();
  t.fs_ConvertToSystemSlash();
  if (f.fs_GetLastSlash() && !t.fs_GetLastSlash()) {
    GenString folder;
    f.fs_GetDriveAndPath(folder);
    folder.str_cat(t.c_str());
    t = folder.c_str();
  }
  if (std::strcmp(f.c_str(), t.c_str()) == 0) return 0;
  if (strcasecmp(f.c_str(), t.c_str()) != 0) ::unlink(t.c_str());
  if (std::rename(f.c_str(), t.c_str()) != 0) {
    io_callbackerr("Rename failed with %s\r\nFrom='%s' To= '%s'\r\n", std::strerror(errno), f.c_str(), t.c_str());
    return -1;
  }
  return 1;
}

BisFileIO::ShellRunner BisFileIO::io_SetShellRunner(ShellRunner runner) {
  ShellRunner old = g_shell_runner;
  g_shell_runner = runner ? runner : default_shell_runner;
  return old;
}

int BisFileIO::io_system_quotes(char const* command) {
  std::string line = "\"";
  line += command ? command : "";
  line += "\"";
  return g_shell_runner(line.c_str());
}

int BisFileIO::io_system(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = vformat(format, ap);
  va_end(ap);
  return io_system_quotes(cmd.c_str());
}

int BisFileIO::io_system(int mode, char const* log, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = vformat(format, ap);
  va_end(ap);
  if (log && *log) {
    if (mode == 1) cmd += std::string(" 1>> ") + log;
    if (mode == 2) cmd += std::string(" 2>> ") + log;
    if (mode == 3) cmd += std::string(" 1>> ") + log + " 2>&1";
  }
  return io_system_quotes(cmd.c_str());
}

int BisFileIO::io_sys_both(char const* log, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = vformat(format, ap);
  va_end(ap);
  return io_system(3, log, "%s", cmd.c_str());
}

int BisFileIO::io_CreateFolders(wchar_t const* path) { return io_CreateFolders(to_utf8(path).c_str()); }
int BisFileIO::io_mkdir(wchar_t const* folder) { return io_mkdir(to_utf8(folder).c_str()); }
int BisFileIO::io_rmdir(wchar_t const* folder) { return io_rmdir(to_utf8(folder).c_str()); }
int BisFileIO::io_copy_folder(wchar_t const* from, wchar_t const* to) {
  return io_copy_folder(to_utf8(from).c_str(), to_utf8(to).c_str());
}
int BisFileIO::io_Rename(wchar_t const* from, wchar_t const* to) {
  return io_Rename(to_utf8(from).c_str(), to_utf8(to).c_str());
}

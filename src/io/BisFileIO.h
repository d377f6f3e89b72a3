#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "core/BisCallback.h"
#include "core/Generic_Errors.h"
#include "io/BisTypes.h"
#include "text/FileStringA.h"

class BisDLL;

// The reader-writer every codec goes through: one input (a whole file in memory, a file streamed
// through stdio when memory runs short, or a caller's buffer) and at most one output file. Every
// read failure throws Generic_Errors 1, every write failure 6; a cursor outside the input never
// stands.
class BisFileIO {
 public:
  BisFileIO();
  explicit BisFileIO(BisDLL* dll);
  ~BisFileIO();
  BisFileIO(BisFileIO const&) = delete;
  BisFileIO& operator=(BisFileIO const&) = delete;

  void io_SetDllParent(BisDLL* dll);
  BisDLL* io_GetDllParent() const;

  // ---- input ------------------------------------------------------------
  // Flag 2: stream through stdio (huge mode) instead of reading into memory; flag 1: a text file.
  // Returns the file's modification time, 0 on failure.
  time_t io_OpenFile(char const* name, char const* default_ext = nullptr, int flags = 0);
  time_t io_OpenFile(wchar_t const* name, wchar_t const* default_ext = nullptr, int flags = 0);
  void io_OpenPseudoFile(void const* buffer, uint64_t size);
  void io_CloseInput();
  // False when the last buffered bytes could not be written (a full disk shows only here).
  bool io_CloseOutput();
  void io_Close();

  bool io_ReadActive() const;
  bool io_WriteActive() const;
  uint8_t* io_GetRawData() const;
  uint64_t io_GetFileSize() const;
  bool io_IsHuge() const;
  char const* io_GetOpenedFileName(bool output = false) const;
  time_t io_GetOpenedFiledate() const;
  static time_t io_GetFileDate(char const* name);
  uint64_t io_GetOutSize() const;

  // Whole files, independent of the open input. The buffer (size + 4 zero bytes) is the caller's,
  // released with delete[]. Returns the size, or -1 when there is no regular file to read.
  long long io_ReadFile(char const* name, uint8_t*& buffer);
  long long io_ReadBackWriteFile(uint8_t*& buffer);

  // ---- reads --------------------------------------------------------------
  // Every read is bounded by the input size and throws Generic_Errors 1 before it would cross it.
  // The pointer reads (triplets, transforms, io_GetAddressAndUpdate, io_ReadAsciiz) point into the
  // memory buffer, valid while the input stays open; such a pointer need not be aligned, so copy
  // the values out (std::memcpy) rather than dereference a struct pointer. In huge mode they point
  // into a scratch copy that the next pointer read replaces (asciiz texts have their own copy).
  int io_ReadByte();
  int16_t io_ReadShort();
  uint16_t io_ReadUshort();
  uint32_t io_ReadTriByte();
  int32_t io_ReadLong();
  uint32_t io_ReadUlong();
  int64_t io_ReadLongLong();
  float io_ReadFloat();
  double io_ReadDouble();
  uLongPair io_ReadUlongPair();
  XYZTriplet const* io_ReadXYZTriplet(uint64_t count = 1);
  XYZTransform const* io_ReadXYZTransformPtr();
  void io_ReadBlock(void* dest, uint64_t size, uint64_t count = 1);
  char* io_ReadMime(char* buffer = nullptr);
  char const* io_ReadAsciiz();
  void io_ReadAsciizHuge(std::string& out);

  // ---- cursor -------------------------------------------------------------
  uint8_t* io_GetAddress() const;
  uint8_t* io_GetAddressAndUpdate(uint64_t n);
  void io_AddOffset(int64_t delta);
  void io_SetAddress(void const* pointer);
  uint64_t io_BytesUsed(void const* pointer) const;
  uint64_t io_MoveTo(uint64_t offset, int output = 0);
  uint64_t io_Rewind(int output = 0) { return io_MoveTo(0, output); }
  uint64_t io_GetCurrentOffset(int output = 0) const;
  uint64_t io_RemainingBytes() const;
  bool io_eof() const;
  // Throws 1 unless n more bytes remain: the check every reader makes before trusting a count.
  void io_Require(uint64_t n) const;

  // ---- validated reads ----------------------------------------------------
  void io_read(float* v, char const* name);
  void io_read(XYZTriplet* v, char const* name);
  void io_read(fMinMax* v, char const* name);
  void io_read(trpMinMax* v, char const* name);
  void io_read(Matrix3P* v, char const* name);
  void io_read(bool* v, char const* name);
  void io_test_val(float v, char const* name);
  void io_test_val(bool, char const*) {}

  static int io_BufIsRaPified(void const* bytes);
  int io_FileIsRaPified(char const* name);

  // ---- writes -------------------------------------------------------------
  int io_CreateFile(char const* name, char const* default_ext = nullptr);
  void io_WriteBlock(void const* data, uint64_t size, uint64_t count = 1);
  void io_WriteByte(int v);
  void io_WriteShort(int16_t v);
  void io_WriteUshort(uint16_t v);
  void io_WriteTriByte(uint32_t v);
  void io_WriteLong(int32_t v);
  void io_WriteUlong(uint32_t v);
  void io_WriteLongLong(int64_t v);
  void io_WriteFloat(float v);
  void io_WriteDouble(double v);
  void io_WriteUlongPair(uLongPair v);
  void io_WriteXYZTriplet(XYZTriplet const* p, uint64_t count = 1);
  void io_WriteXYZTransform(XYZTransform const& t);
  void io_WriteAsciiz(char const* text, int mode = 0);
  bool io_write_file(char const* name, char const* text, int encoding = 0);
  bool io_write_file(char const* name, wchar_t const* text, int encoding = 2);
  bool io_write_file(wchar_t const* name, char const* text, int encoding = 0);
  bool io_write_file(wchar_t const* name, wchar_t const* text, int encoding = 2);
  bool io_write_file(char const* name, void const* bytes, uint64_t count);
  char const* io_MakeFilename(char const* name, char const* ext);
  static int io_random(int low, int high);

  // ---- messages -----------------------------------------------------------
  void io_callback(char const* format, ...) __attribute__((format(printf, 2, 3)));
  void io_callbackerr(char const* format, ...) __attribute__((format(printf, 2, 3)));
  void io_vcallback(bool error, char const* format, va_list ap);
  void io_set_msg_indent(int delta, char const* text = nullptr);
  void io_clr_msg_indent();
  int io_get_msg_indent() const;
  void io_throw(int code, char const* format, ...) __attribute__((format(printf, 3, 4)));
  void io_SetStdioCallBack(BisCallback cb);
  void io_SetErrCallBack(BisCallback cb);
  BisCallback io_GetStdioCallBack() const;
  void io_set_trailing_spaces(int n);
  int io_has_trailing_spaces() const;
  void io_set_warnings_are_errors(bool on);
  bool io_get_warnings_are_errors() const;

  // ---- banner and comparison ----------------------------------------------
  static void io_Banner(GenString& text, char const* title, time_t file_time);
  int io_FileCompare(BisFileIO& other, int compare_data);

  // ---- folders, renaming, commands ----------------------------------------
  int io_CreateFolders(char const* path);
  int io_mkdir(char const* folder);
  int io_rmdir(char const* folder);
  int io_copy_folder(char const* from, char const* to);
  int io_Rename(char const* from, char const* to);
  int io_system(char const* format, ...) __attribute__((format(printf, 2, 3)));
  int io_system(int mode, char const* log, char const* format, ...) __attribute__((format(printf, 4, 5)));
  int io_sys_both(char const* log, char const* format, ...) __attribute__((format(printf, 3, 4)));
  int io_system_quotes(char const* command);
  int io_system_quotes(wchar_t const* command);
  int io_CreateFolders(wchar_t const* path);
  int io_mkdir(wchar_t const* folder);
  int io_rmdir(wchar_t const* folder);
  int io_copy_folder(wchar_t const* from, wchar_t const* to);
  int io_Rename(wchar_t const* from, wchar_t const* to);

  // The shell hook that io_system_quotes hands its command line (the command wrapped in one pair of
  // double quotes) to. The default unwraps the quotes, as a Windows command interpreter does, and
  // runs the command with system(); tests replace it to see exactly what would run. Returns the
  // previous runner; null restores the default.
  using ShellRunner = int (*)(char const* command_line);
  static ShellRunner io_SetShellRunner(ShellRunner runner);

 private:
  struct State;
  State* _s;
  void _ioCommonInit();
  void _fetch(uint64_t at, void* dest, uint64_t n);
  void _read_raw(void* dest, uint64_t n);
  uint64_t _asciiz_length();
  uint64_t _first_mismatch(BisFileIO& other, uint64_t length);
  int _run_command(std::string command, int mode, char const* log);
  void _write_raw(void const* data, uint64_t n);
  template <class T>
  T _read_le();
  template <class T>
  void _write_le(T v);
};

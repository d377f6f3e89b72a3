#pragma once
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "text/GenString.h"

class BisTokens;

// A file or folder name in the family's Windows style (backslashes, drive letters). Both "\\" and
// "/" count as separators; the text is turned into the host's form only when the file system is
// touched (fs_ConvertToSystemSlash).
class FileStringA : public GenString {
 public:
  FileStringA();
  FileStringA(char const* text);  // NOLINT
  FileStringA(FileStringA const& other);
  FileStringA& operator=(FileStringA const& other);
  FileStringA& operator=(char const* text);
  ~FileStringA() override;

  static bool fs_IsSlash(char c) { return c == '\\' || c == '/'; }

  // Separators.
  char const* fs_GetLastSlash() const;
  char const* fs_GetFirstSlash() const;
  static char const* fs_GetNextSlash(char const* from);
  void fs_ConvertToBackSlash();
  void fs_ConvertToForwardSlash();
  void fs_ConvertToSystemSlash();
  void fs_ReplaceChar(char from, char to) { str_replace_char(from, to); }

  // Drive.
  bool fs_HasDrive() const;
  bool fs_HasRoot() const;
  char const* fs_skip_drive() const;
  int fs_DriveType() const;

  // Ends.
  void fs_RemoveFilename();
  void fs_RemoveTrailingFolder();
  bool fs_GetTrailingSlash() const;
  void fs_RemoveTrailingSlash();
  void fs_AppendTrailingSlash();
  void fs_remove_leading_slash();
  void fs_prepend_slash();

  // Extension: from the last dot of the last component, dot included.
  char const* fs_GetExt() const;
  void fs_RemoveExt();
  void fs_ReplaceExt(char const* ext);
  void fs_ReplaceFilenameAndExt(char const* with);
  void fs_replace_filename(char const* with) { fs_ReplaceFilenameAndExt(with); }
  void fs_AddExt(char const* ext, bool force = false);
  bool fs_CompareExt(char const* ext) const;
  static bool fs_CompareExt(char const* ext, char const* name);

  // Parts.
  void fs_GetDriveAndPath(GenString& out) const;      // folder part with trailing separator
  void fs_GetDriveAndPathOnly(GenString& out) const;  // folder part without trailing separator
  void fs_GetDriveFileAndPathNoExt(GenString& out) const;
  char const* fs_GetNoHardPath() const;  // the text behind a drive ("c:")
  void fs_RemoveHardPath();
  void fs_split(GenString* folder, GenString* name, GenString* ext) const;
  char const* fs_Extract(int mask, char const* name = nullptr);
  char const* fs_GetFilenameAndExt() const;  // last component

  // Comparisons (case-insensitive).
  bool fs_Compare(char const* text, int exact = 0) const;
  bool fs_CompareFilenameOnly(char const* other) const;
  bool fs_CompareFilenameExtOnly(char const* other) const;
  bool fs_CompareFiles(char const* other) const;
  bool fs_CompareWild(char const* pattern) const;
  static bool fs_CompareWild(char const* name, char const* pattern);
  static bool fs_CompareTokens(char const* name, BisTokens const* tokens);

  // Kinds.
  static int fs_FileIs(char const* name);
  int fs_FileIs() const { return fs_FileIs(c_str()); }

  // Joining.
  char const* fs_format_folder_and_file(char const* folder, char const* file);
  void fs_build_destination(char const* destination, char const* source);
  char const* fs_QuoteFile();

  // File system (separators converted first).
  bool fs_FolderExists(int flag = 0) const;
  bool fs_FileExists() const;
  int fs_stat(struct stat* st) const;
  time_t fs_GetFileDate() const;
  bool fs_SetFileDate(time_t t) const;
  long long fs_GetFileSize() const;
  FILE* fs_fopen(char const* mode) const;
  FILE* fs_open_file(char const* mode) const { return fs_fopen(mode); }
  int fs_mkdir() const;
  int fs_rmdir() const;
  int fs_unlink() const;
  int fs_rename(char const* to) const;
  char const* fs_get_cwd();
  int fs_set_dir() const;
  // Remembers the current folder and enters this one; the pop returns to the remembered folder.
  int fs_PushDirAndDrive();
  int fs_PopDirAndDrive();
  void fs_SetFullPathName();
  char const* fs_create_temp_name(char const* ext);

  // Text files and byte-order marks.
  // Works in the buffer as it is: a UTF-16 text whose UTF-8 form is longer than the room it had
  // is cut at a character boundary. Prefer the growing form below where the buffer can move.
  static int fs_RemoveBom(char* buffer);
  // The same on a buffer from new[] holding `size` bytes plus 4 zero bytes: the buffer is replaced
  // by a bigger one when the converted text needs it, and `size` becomes the text's length.
  static int fs_RemoveBom(uint8_t*& buffer, uint64_t& size);
  FILE* fs_CreateTextFile(char const* name, int encoding);
  bool fs_ReadTextFile(char const* name);
  static bool fs_isUtf8(char const* text);
  static std::wstring fs_convert_to_unicode(char const* utf8);
  static std::string fs_convert_to_utf8(wchar_t const* wide);

  // The host form of a name, for one system call.
  static void fs_system_name(char const* name, GenString& out);

 private:
  struct Side;
  std::unique_ptr<Side> _side;
  Side& side();
};

// Older code's lighter path: the same rules.
class FileString : public FileStringA {
 public:
  using FileStringA::FileStringA;
  using FileStringA::operator=;
  int FileIs() const { return fs_FileIs(); }
};

#pragma once
#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "text/BisTokens.h"
#include "text/Chains.h"
#include "text/FileStringA.h"

// One folder's entries, taken once through a filter and then stepped through or walked.
//
// Filter modes: 0 include list given as concatenated strings, 1 include list given as a comma
// list (or the name of a file holding one), 2 and 3 the same as exclude lists. Folders always pass;
// names beginning with '.' and anything that is neither a folder nor a file never do.
class FileTreeEx {
 public:
  FileTreeEx() = default;
  ~FileTreeEx() = default;
  FileTreeEx(FileTreeEx const&) = delete;
  FileTreeEx& operator=(FileTreeEx const&) = delete;

  // 1 when an entry passed (the first is current), 0 when none did, -1 when the folder cannot be
  // opened or read, or its first entry cannot be examined.
  int ft_OpenDir(char const* folder, char const* filter) { return ft_OpenDirNew(folder, filter, 0); }
  int ft_OpenDirNew(char const* folder, char const* filter, unsigned mode);
  int ft_Next();
  void ft_rewind();

  // The current entry; all are empty or zero when there is none.
  char const* ft_GetEntry() const;                    // its name
  char const* ft_GetEntry(GenString& full) const;     // folder, separator, name
  time_t ft_GetTimeStamp() const;
  long long ft_GetSize() const;
  bool ft_IsDir() const;
  char const* ft_GetFolder() const { return _folder.c_str(); }
  uint64_t ft_GetCount() const { return _snapshots.GetCount(); }

  // Walk kinds: 0 a file, 1 a folder.
  using Visit = int (*)(void const* context, int kind, char const* name);
  // Mode bits: 1 report files, 2 report folders, 4 descend into folders. Folders are reported
  // before their contents. Returns 0 at the end, the first non-zero result of `visit`, or -1 when a
  // subfolder cannot be scanned.
  int ft_ProcessDir(void const* context, Visit visit, unsigned mode);

 private:
  struct Snapshot : Chain {
    struct stat st {};
    char name[257] = {};
  };
  Snapshot* current() const { return _current; }

  FileStringA _folder;
  unsigned _mode = 0;
  std::string _filter_text;  // concatenated lists keep their inner zeros
  BisTokens _filter;
  Chains _snapshots;
  Snapshot* _current = nullptr;
};

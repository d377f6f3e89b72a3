#pragma once
#include <cstdint>
#include <ctime>
#include <string>
#include <unordered_map>
#include <vector>

// The folder an extraction writes into, and the guard that keeps every write inside it. Archives
// come from strangers: an entry name may be absolute, carry a drive letter, climb out with "..", or
// aim at a symbolic link that already sits in the destination. Names are resolved lexically into
// components, folders are walked one component at a time relative to an open descriptor of the
// root, and no link below the root is ever followed.
class PboOutputFolder {
 public:
  PboOutputFolder() = default;
  ~PboOutputFolder();
  PboOutputFolder(PboOutputFolder const&) = delete;
  PboOutputFolder& operator=(PboOutputFolder const&) = delete;

  // `root` is the host path the caller named (created when missing; it may itself be a link the
  // caller chose). `base` are components below it (the archive's prefix or name).
  void pof_Set(std::string root, std::vector<std::string> base);
  void pof_Close();

  // Splits a Windows-style relative name into components, dropping empty and "." parts and
  // resolving "..". Returns false when the name is absolute, starts with a drive, climbs above its
  // start, or names nothing.
  static bool pof_SplitRelative(char const* name, std::vector<std::string>& out);

  // Creates the root and the base components. 0, 16 (cannot make folder) or 52 (a link in the way).
  int pof_MakeFolder();
  // Writes one file below the base, creating its folders, and dates it (pof_Folder then pof_Put).
  // 0, 6 (cannot write), 16 (cannot make folder), 52 (a link in the way) or 53 (a different file
  // is there and `force` is off).
  int pof_WriteFile(std::vector<std::string> const& rel, void const* data, uint64_t size, time_t stamp,
                    bool force = false);
  // Opens (creating) the folders of `rel` but its last component; `dir_fd` stays this object's and
  // is valid until the next call.
  int pof_Folder(std::vector<std::string> const& rel, int& dir_fd);
  // The system error of the last failure.
  int pof_LastErrno() const { return _errno; }

  // What pof_Put found and did.
  struct Put {
    int result = 0;      // as pof_WriteFile
    int error = 0;       // the system error of a failure
    bool kept = false;   // an identical file was already there and was left alone
    bool fault = false;  // the source bytes could not be read (their file shrank)
  };
  // Writes `leaf` in the open folder `dir_fd`: to a fresh temporary file beside it, dated, then
  // renamed over the name, so that a failure never leaves a partial file. An identical file is left
  // as it is; a different one is replaced only with `force`. Safe to call from several threads.
  static Put pof_Put(int dir_fd, char const* leaf, void const* data, uint64_t size, time_t stamp, bool force);

 private:
  int _open_root();
  int _walk(int from_fd, std::vector<std::string> const& comps, size_t count, int& out_fd);
  void _close_folders();
  static constexpr size_t kMaxOpenFolders = 64;

  std::string _root;
  std::vector<std::string> _base;
  int _root_fd = -1;
  int _base_fd = -1;
  // Folders already walked, by their relative path ("a/b/"), with an open descriptor each.
  std::unordered_map<std::string, int> _folders;
  int _errno = 0;
};

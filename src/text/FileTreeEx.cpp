#include "text/FileTreeEx.h"

#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

// The filter as handed over: a comma list is one string, a concatenated list runs to its empty
// string (kept with both terminators so it can be handed on as it came).
std::string copy_filter(char const* filter, unsigned mode) {
  if (!filter) return {};
  if (mode == 1 || mode == 3) return filter;
  std::string s;
  for (char const* p = filter; *p; p += std::strlen(p) + 1) s.append(p, std::strlen(p) + 1);
  s.push_back('\0');
  return s;
}

}  // namespace

int FileTreeEx::ft_OpenDirNew(char const* folder, char const* filter, unsigned mode) {
  _mode = mode;
  _filter_text = copy_filter(filter, mode);
  if (mode == 1 || mode == 3)
    _filter.tkn_convert_csv(filter);
  else
    _filter.tkn_convert_cat(filter ? _filter_text.c_str() : nullptr);
  _snapshots.Clear();
  _current = nullptr;

  _folder = folder ? folder : "";
  _folder.fs_RemoveTrailingSlash();
  _folder.fs_ConvertToSystemSlash();
  if (_folder.str_IsEmpty()) return -1;
  DIR* dir = ::opendir(_folder.c_str());
  if (!dir) return -1;
  std::unique_ptr<DIR, int (*)(DIR*)> closer(dir, ::closedir);

  bool exclude = mode == 2 || mode == 3;
  bool filtered = _filter.GetCount() != 0;
  GenString full;
  for (bool first = true;; first = false) {
    errno = 0;
    dirent* e = ::readdir(dir);
    if (!e) {
      if (errno != 0 && first) return -1;
      break;
    }
    auto snap = std::make_unique<Snapshot>();
    std::strncpy(snap->name, e->d_name, sizeof snap->name - 1);
    full.Format("%s/%s", _folder.c_str(), snap->name);
    if (::lstat(full.c_str(), &snap->st) != 0) {
      if (first) return -1;
      break;
    }
    // A link to a file counts as the file; a link to a folder is not followed, so that a loop of
    // links can never make a walk endless.
    if (S_ISLNK(snap->st.st_mode)) {
      struct stat target;
      if (::stat(full.c_str(), &target) == 0 && S_ISREG(target.st_mode)) snap->st = target;
    }
    bool is_dir = S_ISDIR(snap->st.st_mode);
    if ((!is_dir && !S_ISREG(snap->st.st_mode)) || snap->name[0] == '.') continue;
    if (!is_dir && filtered && FileStringA::fs_CompareTokens(snap->name, &_filter) == exclude) continue;
    _snapshots.AddChain(snap.release());
  }
  _current = static_cast<Snapshot*>(_snapshots.GetFirst());
  return _current ? 1 : 0;
}

int FileTreeEx::ft_Next() {
  if (!_current || !_current->GetNext()) return 0;
  _current = static_cast<Snapshot*>(_current->GetNext());
  return 1;
}

void FileTreeEx::ft_rewind() { _current = static_cast<Snapshot*>(_snapshots.GetFirst()); }

char const* FileTreeEx::ft_GetEntry() const { return _current ? _current->name : ""; }

char const* FileTreeEx::ft_GetEntry(GenString& full) const {
  if (!_current)
    full.str_dup("");
  else
    full.Format("%s/%s", _folder.c_str(), _current->name);
  return full.c_str();
}

time_t FileTreeEx::ft_GetTimeStamp() const { return _current ? _current->st.st_mtime : 0; }
long long FileTreeEx::ft_GetSize() const { return _current ? static_cast<long long>(_current->st.st_size) : 0; }
bool FileTreeEx::ft_IsDir() const { return _current && S_ISDIR(_current->st.st_mode); }

int FileTreeEx::ft_ProcessDir(void const* context, Visit visit, unsigned mode) {
  if (!visit) return 0;
  GenString full;
  for (Snapshot* s = _current; s; s = static_cast<Snapshot*>(s->GetNext())) {
    full.Format("%s/%s", _folder.c_str(), s->name);
    if (S_ISDIR(s->st.st_mode)) {
      if (mode & 2) {
        if (int r = visit(context, 1, full.c_str())) return r;
      }
      if (mode & 4) {
        FileTreeEx sub;
        int r = sub.ft_OpenDirNew(full.c_str(), _filter_text.empty() ? nullptr : _filter_text.c_str(), _mode);
        if (r < 0) return -1;
        if (r == 1) {
          if (int w = sub.ft_ProcessDir(context, visit, mode)) return w;
        }
      }
    } else if (mode & 1) {
      if (int r = visit(context, 0, full.c_str())) return r;
    }
  }
  return 0;
}

#include "io/MappedFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace {
// The mappings the SIGBUS handler may repair. A fixed table of atomics: the handler can neither
// lock nor allocate.
struct Slot {
  std::atomic<uintptr_t> begin{0};
  std::atomic<uintptr_t> end{0};
  std::atomic<std::atomic<int>*> truncated{nullptr};
};
constexpr int kSlots = 64;
Slot g_slots[kSlots];
struct sigaction g_previous;
std::once_flag g_installed;

uint64_t page_size() {
  static uint64_t const size = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

void chain_to_previous(int sig, siginfo_t* info, void* context) {
  if (g_previous.sa_flags & SA_SIGINFO) {
    if (g_previous.sa_sigaction) g_previous.sa_sigaction(sig, info, context);
    return;
  }
  if (g_previous.sa_handler == SIG_IGN) return;
  if (g_previous.sa_handler == SIG_DFL || g_previous.sa_handler == nullptr) {
    // Not one of ours: put the default action back; the faulting access runs again and ends the
    // process as it would have without us.
    ::signal(sig, SIG_DFL);
    return;
  }
  g_previous.sa_handler(sig);
}

void on_sigbus(int sig, siginfo_t* info, void* context) {
  auto addr = reinterpret_cast<uintptr_t>(info->si_addr);
  for (Slot& s : g_slots) {
    uintptr_t b = s.begin.load(std::memory_order_acquire), e = s.end.load(std::memory_order_acquire);
    if (!b || addr < b || addr >= e) continue;
    // The file ended before this page. Everything from here to the end of the mapping lies past
    // the new end too: replace it all with zero pages at once, so the reader meets one fault, not
    // one per page.
    uintptr_t from = addr & ~(static_cast<uintptr_t>(page_size()) - 1);
    int saved = errno;
    void* p = ::mmap(reinterpret_cast<void*>(from), e - from, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED,
                     -1, 0);
    errno = saved;
    if (p == MAP_FAILED) break;
    if (std::atomic<int>* t = s.truncated.load(std::memory_order_acquire)) t->store(1, std::memory_order_release);
    return;
  }
  chain_to_previous(sig, info, context);
}

void install_handler() {
  std::call_once(g_installed, [] {
    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_sigaction = on_sigbus;
    sa.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGBUS, &sa, &g_previous);
  });
}

int claim_slot(uintptr_t begin, uintptr_t end, std::atomic<int>* truncated) {
  for (int i = 0; i < kSlots; ++i) {
    uintptr_t expected = 0;
    if (g_slots[i].begin.compare_exchange_strong(expected, begin)) {
      g_slots[i].truncated.store(truncated, std::memory_order_release);
      g_slots[i].end.store(end, std::memory_order_release);
      return i;
    }
  }
  return -1;
}

void release_slot(int i) {
  if (i < 0) return;
  g_slots[i].end.store(0, std::memory_order_release);
  g_slots[i].truncated.store(nullptr, std::memory_order_release);
  g_slots[i].begin.store(0, std::memory_order_release);
}
}  // namespace

MappedFile::~MappedFile() { mf_Close(); }

void MappedFile::mf_Close() {
  release_slot(_slot);
  _slot = -1;
  if (_base) ::munmap(_base, _reserved);
  if (_fd >= 0) ::close(_fd);
  _base = nullptr;
  _size = _reserved = 0;
  _fd = -1;
  _mtime = 0;
  _path.clear();
  _truncated.store(0);
}

int MappedFile::mf_Open(char const* path) {
  mf_Close();
  if (!path || !*path) return ENOENT;
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    int e = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    ::close(fd);
    return e;
  }
  auto size = static_cast<uint64_t>(st.st_size);
  uint64_t page = page_size();
  uint64_t file_pages = (size + page - 1) / page * page;
  // The zero tail: the rest of the last page is zero-filled by the kernel; when fewer than 4 bytes
  // remain there, one anonymous page more follows.
  uint64_t reserved = (size + 4 + page - 1) / page * page;
  if (reserved < size || reserved > static_cast<uint64_t>(SIZE_MAX)) {
    ::close(fd);
    return EINVAL;
  }
  install_handler();
  void* area = ::mmap(nullptr, reserved, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (area == MAP_FAILED) {
    ::close(fd);
    return EINVAL;
  }
  if (file_pages && ::mmap(area, file_pages, PROT_READ, MAP_PRIVATE | MAP_FIXED, fd, 0) == MAP_FAILED) {
    ::munmap(area, reserved);
    ::close(fd);
    return EINVAL;
  }
  auto b = reinterpret_cast<uintptr_t>(area);
  int slot = claim_slot(b, b + file_pages, &_truncated);
  if (slot < 0) {  // too many mappings at once to guard: the caller reads the file instead
    ::munmap(area, reserved);
    ::close(fd);
    return EMFILE;
  }
  _slot = slot;
  _base = static_cast<uint8_t*>(area);
  _size = size;
  _reserved = reserved;
  _fd = fd;
  _mtime = st.st_mtime;
  _path = path;
  return 0;
}

bool MappedFile::mf_Shrunk() {
  if (mf_Truncated()) return true;
  struct stat st;
  if (_fd >= 0 && ::fstat(_fd, &st) == 0 && static_cast<uint64_t>(st.st_size) < _size) mf_NoteFault();
  return mf_Truncated();
}

void MappedFile::mf_WillRead(uint64_t offset, uint64_t n) const {
  if (!_base || offset >= _size) return;
  uint64_t page = page_size();
  uint64_t from = offset / page * page;
  uint64_t to = offset + n < _size ? offset + n : _size;
  // Filling the page tables ahead of the reader saves a fault per few pages; kernels without the
  // populate advice at least start reading ahead.
#ifndef MADV_POPULATE_READ
#define MADV_POPULATE_READ 22
#endif
  if (::madvise(_base + from, to - from, MADV_POPULATE_READ) != 0) ::madvise(_base + from, to - from, MADV_WILLNEED);
}

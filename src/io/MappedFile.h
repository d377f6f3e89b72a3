#pragma once
#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>

// A file mapped read-only into memory, so that a multi-gigabyte archive is read in place instead of
// being copied into the heap. Like every input buffer it is followed by at least 4 zero bytes, so
// it also reads as a terminated text.
//
// A mapped file can shrink under the reader (another program rewrites it). Touching a page past
// the new end raises SIGBUS; the handler installed here swaps the lost pages for zero pages, marks
// the mapping truncated and lets the reader carry on. Readers check mf_Truncated() after each
// piece of work and turn it into a result code. System calls that copy from a lost page fail with
// EFAULT instead; callers report that through mf_NoteFault().
class MappedFile {
 public:
  MappedFile() = default;
  ~MappedFile();
  MappedFile(MappedFile const&) = delete;
  MappedFile& operator=(MappedFile const&) = delete;

  // 0 on success; otherwise the system error (ENOENT, EISDIR for a folder, EINVAL for a file that
  // is not a regular one or cannot be mapped).
  int mf_Open(char const* path);
  void mf_Close();

  bool mf_IsOpen() const { return _base != nullptr; }
  uint8_t const* mf_Data() const { return _base; }
  uint64_t mf_Size() const { return _size; }
  int mf_Fd() const { return _fd; }
  time_t mf_Date() const { return _mtime; }
  std::string const& mf_Path() const { return _path; }

  bool mf_Truncated() const { return _truncated.load(std::memory_order_acquire) != 0; }
  // Also asks the file system: bytes of the last page past a new end read as zeros without any
  // fault, so a reader that found nonsense there learns the reason here.
  bool mf_Shrunk();
  void mf_NoteFault() { _truncated.store(1, std::memory_order_release); }

  // Tells the kernel that [offset, offset + n) will be read soon: its pages are mapped in at once.
  void mf_WillRead(uint64_t offset, uint64_t n) const;

 private:
  uint8_t* _base = nullptr;
  uint64_t _size = 0;
  uint64_t _reserved = 0;  // bytes of address space held: the file's pages and the zero tail
  int _fd = -1;
  time_t _mtime = 0;
  std::string _path;
  std::atomic<int> _truncated{0};
  int _slot = -1;  // where the SIGBUS handler finds this mapping
};

// Writing an archive: creation in a style, header records, the data block streamed from the
// sources (each file read once and hashed on its way out), the trailer, and the rename that makes
// the finished archive appear in one step.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "core/GenericError.h"
#include "text/HexText.h"
#include "pbo/VendrakImpl.h"
#include "pbo/VendrakMaker.h"

namespace {
constexpr size_t kStreamChunk = 1 << 20;

char const* banner_for(uint32_t style, bool prefixed) {
  switch (style) {
    case Vendrak::MAKE_STYLE_RESISTANCE: return "/*Creating Resistance style pbo*/\r\n";
    case Vendrak::MAKE_STYLE_ARMA_NO_SHA: return "/*Creating ArmA style no sha1key*/\r\n";
    case Vendrak::MAKE_STYLE_ELITE: return "/*Creating Xbox Elite Style Pbo:*/\r\n";
    case Vendrak::MAKE_STYLE_ARMA:
      return prefixed ? "/*Creating ArmA style pbo:*/\r\n"
                      : "/*Creating ArmA noPrefix (mission/campaign/or rootAddon) pbo:*/\r\n";
    default: return "/*Creating CWC style pbo*/\r\n";
  }
}

void put_u32(uint8_t* at, uint64_t v) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}
}  // namespace

// ===== creation ================================================================

int Vendrak::pbo_Create(char const* name, int mode, char const* prefix, BisCallback callback) {
  int r = _guarded([&]() -> int {
    Impl& s = *_impl;
    Maker& m = _make_state();
    s.callback = callback;
    s.io.io_SetStdioCallBack(callback);
    if (!name || !*name) return 0;
    // A new archive starts without entries; the properties set beforehand are its own.
    DeleteAllChain();
    m.sources.clear();
    if (prefix && *prefix) pbo_SetPrefix(prefix);
    FileStringA n(name);
    if (pbo_HasPboExt(name)) n.fs_RemoveExt();
    n.fs_ConvertToSystemSlash();
    int ext = mode & MAKE_EXT_MASK;
    m.target = std::string(n.c_str()) + (ext == 0x1000 || ext == 0x2000 ? ".xbo" : ".pbo");
    return _create(nullptr, mode);
  });
  return r == 1 ? 1 : 0;
}

int Vendrak::_create(char const* write_path, int mode) {
  Impl& s = *_impl;
  Maker& m = *_maker;
  m.abandon();
  m.mode = mode;
  uint32_t style = static_cast<uint32_t>(mode & MAKE_STYLE_MASK);
  m.style = style == MAKE_STYLE_RESISTANCE || style == MAKE_STYLE_ARMA_NO_SHA || style == MAKE_STYLE_ELITE ||
                    style == MAKE_STYLE_ARMA
                ? style
                : 0;
  if (m.style < MAKE_STYLE_ARMA_NO_SHA) m.prefix = "";
  // The archive is written under a temporary name beside its final one; only a complete archive
  // replaces an older one of that name.
  if (write_path) {
    m.temp_path = write_path;
  } else {
    std::string folder = m.target.find('/') == std::string::npos ? "." : m.target.substr(0, m.target.rfind('/'));
    std::string base = m.target.substr(m.target.rfind('/') + 1);
    for (unsigned n = 0;; ++n) {
      m.temp_path = folder + "/." + base + "." + std::to_string(::getpid()) + "-" + std::to_string(n) + ".tmp";
      if (::access(m.temp_path.c_str(), F_OK) != 0) break;
    }
  }
  if (!s.io.io_CreateFile(m.temp_path.c_str())) return 0;
  m.writing = true;
  m.end_record_written = false;
  m.total_original = m.total_data = 0;
  if (m.sha) EVP_MD_CTX_free(m.sha);
  m.sha = nullptr;
  if (m.style == MAKE_STYLE_ARMA) {
    m.sha = EVP_MD_CTX_new();
    if (!m.sha || EVP_DigestInit_ex(m.sha, EVP_sha1(), nullptr) != 1) throw GE_NO_MEMORY;
  }
  s.io.io_callbackerr("%s", banner_for(m.style, !m.prefix.str_IsEmpty()));
  _write_properties_record();
  return 1;
}

void Vendrak::_emit(void const* data, uint64_t size) {
  _impl->io.io_WriteBlock(data, size);
  if (_maker->sha && size && EVP_DigestUpdate(_maker->sha, data, size) != 1) throw "sha1 computation failed";
}

// ===== header ==================================================================

void Vendrak::pbo_WriteHeaderEntry(pbo_entry* entry) {
  if (!entry || !_maker || !_maker->writing) return;
  Maker& m = *_maker;
  entry->pbe_GetName().fs_ConvertToBackSlash();
  char const* name = entry->pbe_GetFilename();
  size_t len = std::strlen(name);
  std::vector<uint8_t> record(len + 1 + 20, 0);
  std::memcpy(record.data(), name, len);
  uint8_t* f = record.data() + len + 1;
  put_u32(f, entry->_method);
  put_u32(f + 4, entry->_original_size);
  put_u32(f + 8, entry->_reserved);
  put_u32(f + 12, (m.mode & MAKE_REPRODUCIBLE) ? 0 : entry->_timestamp);
  put_u32(f + 16, entry->_data_size);
  _emit(record.data(), record.size());
  m.total_data += entry->_data_size;
  m.total_original += entry->_original_size ? entry->_original_size : entry->_data_size;
}

// ===== data block and trailer ==================================================

void Vendrak::pbo_CreateTempEntry(pbo_entry* entry) {
  if (!entry || entry->pbe_HasData()) return;
  if (!_impl->io.io_ReadActive()) throw GE_CANNOT_WRITE;
  _read_entry(entry, OPEN_LEAVE_PACKED | OPEN_NO_PACK_NOTES, false);
}

void Vendrak::pbo_DeleteTempEntry(pbo_entry* entry) {
  if (entry) entry->pbe_FreeData();
}

void Vendrak::_write_entry_data(pbo_entry* entry) {
  Maker& m = *_maker;
  if (entry->pbe_HasData()) {
    _emit(entry->pbe_GetData(), entry->_data_size);
    return;
  }
  auto src = m.sources.find(entry);
  if (src == m.sources.end()) {
    if (entry->_stored_size == 0) return;
    // An entry of an open archive, copied as it lies (still packed).
    pbo_CreateTempEntry(entry);
    _emit(entry->pbe_GetData(), entry->_data_size);
    pbo_DeleteTempEntry(entry);
    return;
  }
  // Streamed: read once, hashed and written as it comes; the size is the one the header holds.
  int fd = ::open(src->second.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    _impl->io.io_callbackerr("%s: %s\r\n", src->second.c_str(), std::strerror(errno));
    throw PBO_CANNOT_READ_ENTRY_FILE;
  }
  ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  static thread_local std::vector<uint8_t> chunk(kStreamChunk);
  uint64_t want = entry->_data_size, done = 0;
  int error = 0;
  while (done < want) {
    ssize_t n = ::read(fd, chunk.data(), static_cast<size_t>(std::min<uint64_t>(chunk.size(), want - done)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n == 0 ? 0 : errno;
      break;
    }
    _emit(chunk.data(), static_cast<uint64_t>(n));
    done += static_cast<uint64_t>(n);
  }
  char extra;
  bool grew = done == want && ::read(fd, &extra, 1) > 0;
  ::close(fd);
  if (done != want || grew) {
    _impl->io.io_callbackerr("%s: %s\r\n", src->second.c_str(),
                             error ? std::strerror(error) : "changed size while the archive was written");
    throw PBO_CANNOT_READ_ENTRY_FILE;
  }
}

int Vendrak::pbo_WriteDataBlockAndClose(bool) {
  int r = _guarded([&] { return _finish_archive(); });
  if (r && _maker) _maker->abandon();
  return r;
}

int Vendrak::_finish_archive() {
  Impl& s = *_impl;
  if (!_maker || !_maker->writing) return GE_CANNOT_WRITE;
  Maker& m = *_maker;
  // The end record belongs before the data block; a caller who wrote the header records without
  // it gets it here, where it still makes a readable archive.
  if (!m.end_record_written) {
    uint8_t end[21] = {};
    _emit(end, sizeof end);
    m.end_record_written = true;
  }
  uint64_t total = 0, done = 0;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) total += e->_data_size;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    s.io.io_callback(".");
    if (s.hook) s.hook(s.hook_context, done, total, e->pbe_GetFilename());
    _write_entry_data(e);
    done += e->_data_size;
  }
  if (s.hook) s.hook(s.hook_context, total, total, "");
  s.io.io_callback("\r\n");
  if (m.style == MAKE_STYLE_ELITE) {
    s.io.io_callback("Writing elite key\r\n");
    uint8_t key[5] = {};
    s.io.io_WriteBlock(key, sizeof key);
  } else if (m.style == MAKE_STYLE_ARMA) {
    uint8_t trailer[21] = {};
    unsigned len = 0;
    if (EVP_DigestFinal_ex(m.sha, trailer + 1, &len) != 1 || len != 20) throw "sha1 computation failed";
    s.io.io_WriteBlock(trailer, sizeof trailer);
    char hex[41];
    hex_upper(trailer + 1, 20, hex);
    s.io.io_callback("Writing sha '%s'\r\n", hex);
  }
  s.io.io_CloseOutput();
  if (std::rename(m.temp_path.c_str(), m.target.c_str()) != 0) {
    int e = errno;
    s.io.io_callbackerr("%s: %s\r\n", m.target.c_str(), std::strerror(e));
    m.abandon();
    ::unlink(m.temp_path.c_str());
    return PBO_CANNOT_CREATE;
  }
  m.writing = false;
  m.made = m.target;
  return 0;
}

// ===== copying an open archive =================================================

int Vendrak::pbo_CreateCopy(char const* name, unsigned int mode) {
  int r = _guarded([&]() -> int {
    if (!_impl->io.io_ReadActive()) return GE_INVALID_FILE;
    Maker& m = _make_state();
    m.sources.clear();
    m.prefix = pbo_GetPrefix();
    m.prefix.fs_ConvertToBackSlash();
    FileStringA n(name ? name : "");
    if (n.str_IsEmpty()) return PBO_CANNOT_CREATE;
    if (pbo_HasPboExt(n.c_str())) n.fs_RemoveExt();
    n.fs_ConvertToSystemSlash();
    int ext = static_cast<int>(mode) & MAKE_EXT_MASK;
    m.target = std::string(n.c_str()) + (ext == 0x1000 || ext == 0x2000 ? ".xbo" : ".pbo");
    if (!_create(nullptr, static_cast<int>(mode))) return PBO_CANNOT_CREATE;
    for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
      if (e->pbe_HasData()) pbo_FreeData(e);  // back to the bytes as they lie in the archive
      pbo_WriteHeaderEntry(e);
    }
    uint8_t end[21] = {};
    _emit(end, sizeof end);
    m.end_record_written = true;
    return _finish_archive();
  });
  if (r && _maker) _maker->abandon();
  return r;
}

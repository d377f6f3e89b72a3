// Extraction and listing of an opened archive.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <strings.h>
#include <vector>

#include "config/Kaltor.h"
#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "pbo/PboDigest.h"
#include "pbo/PboWriterPool.h"
#include "pbo/VendrakImpl.h"
#include "text/BisTokens.h"

namespace {
// The archive's file name without folder and extension.
std::string archive_stem(char const* archive) {
  FileStringA a(archive);
  std::string name = a.fs_GetFilenameAndExt();
  size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot > 0) name.resize(dot);
  return name;
}

std::string host_path(char const* name) {
  std::string s(name ? name : "");
  for (char& c : s)
    if (c == '\\') c = '/';
  return s;
}
}  // namespace

bool Vendrak::pbo_fname_is_a_properties_file(char const* name) {
  if (!name || !*name) return false;
  std::string last = FileStringA(name).fs_GetFilenameAndExt();
  for (char const* known : {"PboPrefix.txt", "$PBOPREFIX$.txt", "pbo_properties.txt"})
    if (strcasecmp(last.c_str(), known) == 0) return true;
  size_t dot = last.rfind('.');
  std::string stem = dot == std::string::npos ? last : last.substr(0, dot);
  return strcasecmp(stem.c_str(), "$PBOPREFIX$") == 0;
}

int Vendrak::pbo_Extract(char const* name, BisCallback callback, int flags, char const* files,
                         char const* destination) {
  return _guarded([&]() -> int {
    Impl& s = *_impl;
    unsigned f = static_cast<unsigned>(flags);
    // Unless a bad digest must stop the extraction before it starts, the archive is hashed on a
    // second thread while its entries are written.
    s.defer_sha = !(f & (EXTRACT_WARNINGS_ARE_ERRORS | EXTRACT_LIST_ONLY));
    int r;
    try {
      r = _open(name, callback, flags);
    } catch (...) {
      s.defer_sha = false;
      throw;
    }
    s.defer_sha = false;
    PboDigest digest;
    if (s.sha_pending) digest.pd_Start(s.io.io_GetRawData(), s.data_end);
    bool bad_sha = false;
    if (r == PBO_CORRUPTED_SHA) {
      if (f & EXTRACT_WARNINGS_ARE_ERRORS) {
        s.io.io_throw(0, "Warning: Content NOT extracted\r\n");
        ClosePbo();
        return r;
      }
      s.io.io_throw(0, "Warning: Content extracted regardless\r\n");
      bad_sha = true;
    } else if (r) {
      ClosePbo();
      return r;
    }
    try {
      if (!(f & EXTRACT_LIST_ONLY)) {
        r = _extract_step(f, files, destination);
      } else {
        _list(f);
        pbo_ReportStrangeValues();
        r = 0;
      }
      if (int h = _finish_pending_sha(digest)) {
        if (h == PBO_CORRUPTED_SHA) {
          _report_bad_sha();
          s.io.io_throw(0, "Warning: Content extracted regardless\r\n");
          bad_sha = true;
        } else if (!r) {
          r = h;
        }
      }
    } catch (...) {
      digest.pd_Finish(s.sha_computed);  // the hashing thread reads the mapping about to go
      // Whatever failed on the way, an archive that lost its bytes says so.
      int t = _check_shrunk();
      ClosePbo();
      if (t) return t;
      throw;
    }
    ClosePbo();
    if (r) return r;
    return bad_sha ? PBO_CORRUPTED_SHA : 0;
  });
}

int Vendrak::pbo_ExtractPreOpened(unsigned int flags, char const* files, char const* destination) {
  return _guarded([&]() -> int {
    if (!_impl->io.io_ReadActive()) return GE_INVALID_FILE;
    return _extract_step(flags, files, destination);
  });
}

void Vendrak::_list(unsigned flags) {
  BisFileIO& io = _impl->io;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    if (flags & EXTRACT_QUIET) {
      io.io_callback("%s\r\n", e->pbe_GetFilename());
      continue;
    }
    time_t t = static_cast<time_t>(e->pbe_GetTimeStamp());
    char when[64] = "";
    if (!ctime_r(&t, when)) when[0] = 0;
    size_t n = std::strlen(when);
    if (n && when[n - 1] == '\n') when[n - 1] = 0;
    if (e->pbe_iscompressed())
      io.io_callback("%s:%s: size %llu (compressed or encrypted size=%llu)\r\n", e->pbe_GetFilename(), when,
                     static_cast<unsigned long long>(e->pbe_GetOriginalSize()),
                     static_cast<unsigned long long>(e->pbe_GetStoredDataSize()));
    else
      io.io_callback("%s:%s: size %llu\r\n", e->pbe_GetFilename(), when,
                     static_cast<unsigned long long>(e->pbe_GetStoredDataSize()));
  }
}

int Vendrak::_extract_step(unsigned flags, char const* files, char const* destination) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  s.decode_with_tabs = !(flags & EXTRACT_NO_TABS);

  BisTokens tokens;
  if (files && *files) tokens.tkn_common_convert(files);
  bool filtered = tokens.GetCount() != 0;

  // The output folder: destination\prefix, destination\archive-name, or beside the archive. Only
  // the part the caller named may be followed through links; the rest comes from the archive.
  PboOutputFolder out;
  std::vector<std::string> base;
  if (destination && *destination) {
    std::string below = pbo_HasPrefix() ? std::string(pbo_GetPrefix()) : archive_stem(s.archive_name.c_str());
    if (!PboOutputFolder::pof_SplitRelative(below.c_str(), base)) {
      io.io_callbackerr("'%s': %s\r\n", below.c_str(), ErrorString(PBO_NAME_ESCAPES));
      return PBO_NAME_ESCAPES;
    }
    out.pof_Set(host_path(destination), std::move(base));
  } else {
    FileStringA beside(s.archive_name.c_str());
    beside.fs_RemoveExt();
    out.pof_Set(host_path(beside.c_str()), {});
  }

  if (GetCount() == 0) return PBO_EMPTY;

  uint64_t total = s.data_end - s.data_start, done = 0;
  uint64_t extracted = 0;
  bool refused = false, kept_other = false;
  // Entries are written straight from the mapped archive, packed ones expanded on helper threads,
  // unless their data has to pass through the entry (decoded configs, data kept in memory).
  bool direct = s.map.mf_IsOpen() && !(flags & (EXTRACT_DECODE_CONFIGS | EXTRACT_KEEP_DATA));
  std::unique_ptr<PboWriterPool> pool;
  static constexpr uint64_t kPopulateStep = 32u << 20;
  uint64_t populated = s.data_start;
  std::vector<std::string> parts;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    char const* name = e->pbe_GetFilename();
    if (!*name) return PBO_NO_ENTRY_NAME;
    if (filtered && !FileStringA::fs_CompareTokens(name, &tokens)) continue;
    if (s.exclude.GetCount() && FileStringA::fs_CompareTokens(name, &s.exclude)) continue;
    if (s.hook) s.hook(s.hook_context, done, total, name);
    done += e->pbe_GetStoredDataSize();
    io.io_callback("%s", name);
    if (pbo_fname_is_a_properties_file(name)) {
      io.io_callback(" ignoring an erroneous prefix file that was baked into a pbo\r\n");
      continue;
    }
    FileStringA output(name);
    output.str_replace_char('*', 'z');
    if (!PboOutputFolder::pof_SplitRelative(output.c_str(), parts)) {
      io.io_callback("\r\n");
      io.io_callbackerr("'%s': %s\r\n", name, ErrorString(PBO_NAME_ESCAPES));
      refused = true;
      continue;
    }
    if (direct) {
      // The pages of the next stretch of the data block are mapped in ahead of the writes.
      uint64_t begin = s.data_start + e->pbe_GetDataOffset(), end = begin + e->pbe_GetStoredDataSize();
      if (end > populated) {
        uint64_t from = std::max(begin, populated);
        s.map.mf_WillRead(from, end - from + kPopulateStep);
        populated = end + kPopulateStep;
      }
    }
    int r = direct && !e->pbe_HasData() ? _put_entry(e, flags, output.c_str(), parts, out, pool)
                                        : _write_entry(e, flags, output.c_str(), out);
    if (!r && pool) r = _collect(*pool, false, refused, kept_other);
    if (int t = _check_shrunk()) r = t;
    if (r == PBO_NAME_ESCAPES || r == PBO_WOULD_OVERWRITE) {  // named already; the others go on
      (r == PBO_NAME_ESCAPES ? refused : kept_other) = true;
      continue;
    }
    if (r) return r;
    ++extracted;
  }
  if (pool) {
    int r = _collect(*pool, true, refused, kept_other);
    if (int t = _check_shrunk()) r = t;
    if (r) return r;
    pool.reset();
  }
  // The closing call says how many bytes of the data block the chosen entries held.
  if (s.hook) s.hook(s.hook_context, done, total, "");

  pbo_ReportStrangeValues();

  if (pbo_GetProperties()) {
    bool write = extracted != 0;
    if (filtered && !extracted && pbo_fname_is_a_properties_file(tokens.GetFirstToken()->c_str())) {
      int r = out.pof_MakeFolder();
      if (r) return r;
      write = true;
    }
    if (write) {
      int r = _write_prefix_file(flags, out);
      if (r == PBO_WOULD_OVERWRITE)
        kept_other = true;
      else if (r && (flags & EXTRACT_WARNINGS_ARE_ERRORS))
        return r;
    }
  }

  if (refused) return PBO_NAME_ESCAPES;
  if (kept_other) return PBO_WOULD_OVERWRITE;
  if (!extracted) {
    if (flags & EXTRACT_WARNINGS_ARE_ERRORS) return PBO_NOTHING_TO_EXTRACT;
    io.io_throw(0, "Warning: no file(s) to extract\r\n");
  }
  return 0;
}

int Vendrak::_write_entry(pbo_entry* entry, unsigned flags, char const* output_name, PboOutputFolder& out) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  _read_entry(entry, 0, (flags & EXTRACT_DECODE_CONFIGS) != 0);

  FileStringA output(output_name);
  if ((flags & EXTRACT_DECODE_CONFIGS) && entry->pbe_WasRapped()) {
    io.io_callback(" (kaltorped)");
    if (strcasecmp(output.fs_GetFilenameAndExt(), "config.bin") == 0) {
      io.io_callback(" (renaming output to config.cpp)");
      output.fs_ReplaceExt("cpp");
    }
  }
  io.io_callback("\r\n");

  std::vector<std::string> parts;
  PboOutputFolder::pof_SplitRelative(output.c_str(), parts);
  time_t stamp = entry->pbe_GetTimeStamp() ? static_cast<time_t>(entry->pbe_GetTimeStamp()) : s.file_date;
  int r = out.pof_WriteFile(parts, entry->pbe_GetData(), entry->pbe_GetDataSize(), stamp, flags & EXTRACT_FORCE);
  r = _put_outcome(entry->pbe_GetFilename(), output.c_str(), r, out.pof_LastErrno(), false);
  if (!(flags & EXTRACT_KEEP_DATA)) entry->pbe_FreeData();
  return r;
}

// Writes an entry from the mapped archive without making it the entry's data: stored bytes go
// straight to the file, packed ones are expanded into a reused buffer, on a helper thread when the
// pool has one free.
int Vendrak::_put_entry(pbo_entry* entry, unsigned flags, char const* output, std::vector<std::string> const& parts,
                        PboOutputFolder& out, std::unique_ptr<PboWriterPool>& pool) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  bool packed = entry->_method != pbo_entry::kStored;
  if (packed) {
    io.io_callback(" (decompressed/decrypted)");
    if (entry->_method != pbo_entry::kCompressed) throw PBO_UNKNOWN_HEADER_TYPE;
  }
  io.io_callback("\r\n");
  uint8_t const* bytes = s.map.mf_Data() + s.data_start + entry->_offset;
  uint64_t stored = entry->_stored_size;

  int dir_fd = -1;
  if (int r = out.pof_Folder(parts, dir_fd))
    return _put_outcome(entry->pbe_GetFilename(), output, r, out.pof_LastErrno(), false);
  time_t stamp = entry->pbe_GetTimeStamp() ? static_cast<time_t>(entry->pbe_GetTimeStamp()) : s.file_date;
  bool force = flags & EXTRACT_FORCE;
  if (!packed || !entry->pbe_iscompressed()) {
    PboOutputFolder::Put p = PboOutputFolder::pof_Put(dir_fd, parts.back().c_str(), bytes, stored, stamp, force);
    return _put_outcome(entry->pbe_GetFilename(), output, p.result, p.error, p.fault);
  }
  uint64_t original = entry->_original_size;
  if (original > cmp_ExpandLimit(stored, CT_LZSS)) throw PBO_COMPRESSION_ERROR;
  // Helpers take entries up to this size, each into a buffer of its own; bigger ones are expanded
  // here, so that memory stays near one buffer of the largest entry.
  static constexpr uint64_t kHelperLimit = 16u << 20;
  if (!pool) pool = std::make_unique<PboWriterPool>(PboWriterPool::pwp_DefaultHelpers());
  int own_fd = ::fcntl(dir_fd, F_DUPFD_CLOEXEC, 0);
  if (own_fd < 0) return _put_outcome(entry->pbe_GetFilename(), output, GE_CANNOT_WRITE, errno, false);
  PboWriterPool::Job job;
  job.packed = bytes;
  job.packed_size = stored;
  job.original_size = original;
  job.dir_fd = own_fd;
  job.leaf = parts.back();
  job.name = output;
  job.stamp = stamp;
  job.force = force;
  pool->pwp_Submit(std::move(job), original > kHelperLimit);
  return 0;
}

// Reports what writing one entry came to. Refusals (52, 53) are named and returned for the caller
// to remember; other failures end the extraction.
int Vendrak::_put_outcome(char const* name, char const* output, int result, int error, bool fault) {
  BisFileIO& io = _impl->io;
  if (fault) {
    _impl->map.mf_NoteFault();
    return _check_shrunk();
  }
  switch (result) {
    case 0:
      return 0;
    case PBO_NAME_ESCAPES:
      io.io_callbackerr("'%s': %s (a symbolic link is in the way)\r\n", name, ErrorString(PBO_NAME_ESCAPES));
      return result;
    case PBO_WOULD_OVERWRITE:
      io.io_callbackerr("'%s': %s\r\n", output, ErrorString(PBO_WOULD_OVERWRITE));
      return result;
    case PBO_CANNOT_MAKE_FOLDER:
    case GE_CANNOT_WRITE:
      io.io_callbackerr("%s\r\n%s\r\n", std::strerror(error), output);
      return result;
    default:
      return result;
  }
}

// Reports the outcomes of the helpers' entries; with `wait`, once all are done. Returns the first
// failure that ends the extraction.
int Vendrak::_collect(PboWriterPool& pool, bool wait, bool& refused, bool& kept_other) {
  int first = 0;
  for (auto const& o : pool.pwp_Take(wait)) {
    int r = o.bad_data ? PBO_COMPRESSION_ERROR
                       : _put_outcome(o.name.c_str(), o.name.c_str(), o.put.result, o.put.error, o.put.fault);
    if (r == PBO_NAME_ESCAPES)
      refused = true;
    else if (r == PBO_WOULD_OVERWRITE)
      kept_other = true;
    else if (r && !first)
      first = r;
  }
  return first;
}

int Vendrak::_write_prefix_file(unsigned flags, PboOutputFolder& out) {
  Impl& s = *_impl;
  if (!(flags & EXTRACT_QUIET)) {
    s.io.io_callback("Creating prefix file with prefix='%s'\r\n", pbo_GetPrefix());
    s.io.io_callback("--------------------\r\n");
  }
  int r = out.pof_WriteFile({"$PBOPREFIX$.txt"}, s.report.c_str(), s.report.str_len(), time(nullptr),
                            flags & EXTRACT_FORCE);
  if (r == PBO_WOULD_OVERWRITE) {
    s.io.io_callbackerr("'%s': %s\r\n", "$PBOPREFIX$.txt", ErrorString(PBO_WOULD_OVERWRITE));
    return r;
  }
  if (r) {
    s.io.io_throw(0, "Warning: cannot create prefix file %s\r\n", std::strerror(out.pof_LastErrno()));
    return GE_INVALID_FILE;
  }
  return 0;
}

// ===== binarised configs =====================================================

void Vendrak::_decode_config(pbo_entry* entry) {
  Impl& s = *_impl;
  uint8_t const* data = entry->pbe_GetData();
  uint64_t size = entry->pbe_GetDataSize();
  int r = 100;  // "not a binarised config"
  GenString text, message;
  if (data && size >= 4 && std::memcmp(data + 1, "raP", 3) == 0) {
    GenString label;
    label.Format("%s\\%s", archive_stem(s.archive_name.c_str()).c_str(), entry->pbe_GetFilename());
    time_t date = entry->pbe_GetTimeStamp() ? static_cast<time_t>(entry->pbe_GetTimeStamp()) : s.file_date;
    r = _kaltor_decode(data, size, label.c_str(), date, text, message);
  }
  if (r == 0) {
    bool was_bin = entry->pbe_FileIs() == 2;
    entry->pbe_SetKaltorpedData(text.c_str());
    if (was_bin) entry->pbe_GetName().fs_ReplaceExt(".cpp");
  } else if (r != 100) {
    s.io.io_callbackerr("\r\n%s->%s\r\n", entry->pbe_GetFilename(), message.c_str());
    throw PBO_SEMBRIC_ERROR;
  }
  // Keep the data usable as a string. Buffers the entry owns already carry a terminator.
  data = entry->pbe_GetData();
  size = entry->pbe_GetDataSize();
  if (!entry->pbe_OwnsData() && size && !std::memchr(data, 0, size)) {
    auto* copy = new uint8_t[size + 1];
    std::memcpy(copy, data, size);
    copy[size] = 0;
    entry->_adopt(copy, size);
  }
}

// The one place that knows the config decoder's calling convention.
int Vendrak::_kaltor_decode(uint8_t const* data, uint64_t size, char const* name, time_t date, GenString& text,
                            GenString& message) {
  Kaltor* decoder = _dll->dll_GetKaltor();
  decoder->drp_SetTabChar(_impl->decode_with_tabs);
  if (_impl->callback) decoder->drp_GetIO()->io_SetStdioCallBack(_impl->callback);
  int r = decoder->drp_Decode(data, size, text, name, static_cast<long>(date));
  if (r != 0 && r != 100) message = Kaltor::ErrorString(r);
  decoder->Close(true);
  return r;
}

#include "pbo/Vendrak.h"
#include "text/HexText.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <strings.h>
#include <vector>

#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "pbo/PboDigest.h"
#include "pbo/VendrakImpl.h"

Vendrak* BisDLL::dll_GetVendrak() { return dll_slot<Vendrak>(SLOT_VENDRAK); }

namespace {
char const* const kArchiveExtensions[] = {"pbo", "ifa", "xbo"};

bool is_root_entry(char const* name) { return !std::strchr(name, '\\') && !std::strchr(name, '/'); }
}  // namespace

Vendrak::Vendrak(BisDLL* dll) : _dll(dll), _impl(std::make_unique<Impl>(dll)) {}

Vendrak::~Vendrak() {
  // Entries may borrow bytes from the I/O buffer: drop them before the buffer goes.
  DeleteAllChain();
}

// ===== accessors =============================================================

uint32_t Vendrak::pbo_GetType() const { return _impl->kind; }
BisFileIO* Vendrak::pbo_GetIO() { return &_impl->io; }
TokenPair* Vendrak::pbo_GetProperties() const { return _impl->properties.GetFirstPair(); }

TokenPair* Vendrak::pbo_GetProperty(char const* name) const {
  for (TokenPair* p = pbo_GetProperties(); p; p = p->GetNext())
    if (!name || strcasecmp(p->name(), name) == 0) return p;
  return nullptr;
}

char const* Vendrak::pbo_GetPrefix() const {
  TokenPair* p = pbo_GetProperty("prefix");
  return p ? p->value() : "";
}

bool Vendrak::pbo_HasPrefix() const { return *pbo_GetPrefix() != 0; }
char const* Vendrak::pbo_GetReport() const { return _impl->report.c_str(); }
int Vendrak::pbo_GetStrangeValue() const { return _impl->strange; }
uint8_t const* Vendrak::pbo_GetStoredSha() const { return _impl->sha_stored; }
uint8_t const* Vendrak::pbo_GetComputedSha() const { return _impl->sha_computed; }
int Vendrak::pbo_GetLastError() const { return _impl->last_error; }
uint64_t Vendrak::pbo_GetDataStart() const { return _impl->data_start; }

void Vendrak::pbo_SetProgressHook(ProgressHook hook, void* context) {
  _impl->hook = hook;
  _impl->hook_context = context;
}

void Vendrak::pbo_SetExtractExclude(char const* patterns) {
  _impl->exclude.Clear();
  if (patterns && *patterns) _impl->exclude.tkn_common_convert(patterns);
}

int Vendrak::pbo_HasPboExt(char const* name) {
  if (!name) return 0;
  for (int i = 0; i < 3; ++i)
    if (FileStringA::fs_CompareExt(kArchiveExtensions[i], name)) return i + 1;
  return 0;
}

int Vendrak::pbo_PboExists(char const* name) {
  if (!name || !*name) return 0;
  if (int ext = pbo_HasPboExt(name)) return FileStringA(name).fs_FileExists() ? ext : 0;
  for (int i = 0; i < 3; ++i) {
    FileStringA candidate(name);
    candidate.str_Add(".%s", kArchiveExtensions[i]);
    if (candidate.fs_FileExists()) return i + 1;
  }
  return 0;
}

char const* Vendrak::ErrorString(int code) {
  if (code < 0) code = -code;
  switch (code) {
    case 10: return "Pbo compression error";
    case 11: return "Pbo multiple product entries";
    case 12: return "Pbo unknown header type";
    case 13: return "Detected unbinarised p3d(s)";
    case 14: return "Detected unbinarised wrp";
    case 15: return "Cannot remove pbo folder";
    case 16: return "Cannot make folder, or illegal folder";
    case 17: return "Sembric error";
    case 18: return "faulty/unknown wrp or p3d format";
    case 19: return "Vendrak corrupted sha key";
    case 20: return "No mission.sqm, desc.ext, or config detected in primary source folder";
    case 22: return "Vendrak entry data is not ascii";
    case 23: return "Vendrak unknown exception";
    case 24: return "Pbo is empty (no files inside)";
    case 25: return "Warning: Vendrak has residual bytes (possibly a tool signature)";
    case 26: return "Vendrak no sha key";
    case 27: return "No file(s) found to extract";
    case 28: return "cannot read file to enter into header";
    case 29: return "missing file(s)";
    case 30: return "Bad prefix file";
    case 31: return "dll detected an error";
    case 32: return "Forgan cannot change/restore dir";
    case 34: return "Pbo: no entry name in header";
    case 35: return "Pbo: no source folder";
    case 36: return "Pbo: rap error";
    case 37: return "Pbo: p3d error";
    case 38: return "Pbo can't write kaltorped output";
    case 39: return "Pbo: cant read entry file";
    case 40: return "Pbo can't read wrp";
    case 41: return "Pbo: can't traverse folders";
    case 42: return "pbo: can't create";
    case 43: return "forgan: can't create rap file";
    case 44: return "forgan: reqaddons. sembric failed";
    case 45: return "forgan: reqaddons. could not find a cfgpatches class for p3d file refs";
    case 46: return "forgan: reqaddons. could not find a cfgpatches class for wrp file refs";
    case 47: return "error while adding addon names to requiredAddons array";
    case 48: return "missing land_class(es)";
    case 51: return "roadslib.cfg has an error";
    case 52: return "Pbo entry name escapes the destination folder";
    case 53: return "Pbo entry would overwrite a different file";
    default: return GenericError::ErrorString(code);
  }
}

// ===== opening ===============================================================

void Vendrak::ClosePbo() {
  DeleteAllChain();  // before the buffer the entries may point into
  _impl->properties.DeleteAllChain();
  _impl->report.Clear();
  _impl->io.io_CloseInput();
  _impl->map.mf_Close();
  _impl->sha_pending = false;
  _impl->shrink_reported = false;
  _impl->kind = 0;
  _impl->strange = 0;
  _impl->data_start = _impl->data_end = 0;
  std::memset(_impl->sha_stored, 0, sizeof _impl->sha_stored);
  std::memset(_impl->sha_computed, 0, sizeof _impl->sha_computed);
}

int Vendrak::pbo_Open(char const* name, BisCallback callback, int flags) {
  return _guarded([&] { return _open(name, callback, flags); });
}

int Vendrak::_open(char const* name, BisCallback callback, int flags) {
  Impl& s = *_impl;
  s.io.io_set_warnings_are_errors((flags & OPEN_WARNINGS_ARE_ERRORS) != 0);
  s.callback = callback;
  s.io.io_SetStdioCallBack(callback);
  ClosePbo();
  if (!name || !*name) return GE_INVALID_FILE;

  // The name as given first (a case-sensitive file system may hold "X.PBO"), then the name with
  // each archive extension in the order of preference.
  std::vector<std::string> candidates;
  FileStringA base(name);
  if (pbo_HasPboExt(name)) {
    candidates.emplace_back(name);
    base.fs_RemoveExt();
  }
  for (char const* ext : kArchiveExtensions) candidates.push_back(std::string(base.c_str()) + "." + ext);
  // The archive is mapped rather than read, so that a big one costs address space, not memory;
  // one that cannot be mapped is read whole.
  time_t date = 0;
  for (auto const& c : candidates) {
    int e = s.map.mf_Open(c.c_str());
    if (e == 0) {
      s.io.io_OpenPseudoFile(s.map.mf_Data(), s.map.mf_Size());
      date = s.map.mf_Date();
      s.archive_name = c.c_str();
      break;
    }
    if (e != EINVAL && e != EMFILE) continue;
    date = s.io.io_OpenFile(c.c_str(), nullptr, 0);
    if (date) {
      s.archive_name = s.io.io_GetOpenedFileName();
      break;
    }
  }
  if (!s.io.io_ReadActive()) {
    s.io.io_CloseInput();
    return GE_INVALID_FILE;
  }
  s.file_date = date;
  s.report.Format("///<'%s' properties via Ostrel's tools, dll version %s>///\r\n", s.archive_name.c_str(),
                  BisDLL::dll_GetVersionStr());

  int r;
  try {
    r = _parse_header(flags);
  } catch (...) {
    ClosePbo();
    throw;
  }
  if (int t = _check_shrunk()) {
    ClosePbo();
    return t;
  }
  if (r) s.io.io_callbackerr("\n");
  _build_kind_report();
  if (!(flags & OPEN_NO_REPORT)) s.io.io_callback("%s", s.report.c_str());

  switch (r) {
    case 0:
      return 0;
    case PBO_CORRUPTED_SHA:
      _report_bad_sha();
      return PBO_CORRUPTED_SHA;
    case PBO_RESIDUAL_BYTES:
      if (s.io.io_get_warnings_are_errors()) return r;
      s.io.io_callbackerr("%s\r\n", ErrorString(PBO_RESIDUAL_BYTES));
      return 0;
    case PBO_NO_SHA:
      if (s.io.io_get_warnings_are_errors()) return r;
      s.io.io_callbackerr("Warning: no sha key\r\n");
      return 0;
    default:
      ClosePbo();
      return r;
  }
}

void Vendrak::_report_bad_sha() {
  Impl& s = *_impl;
  char calc[41], stored[41];
  hex_upper(s.sha_computed, 20, calc);
  hex_upper(s.sha_stored, 20, stored);
  s.io.io_throw(0, "Warning: Bad Sha detected\r\n");
  s.io.io_throw(0, "Warning: calculated='%s'\r\n", calc);
  s.io.io_throw(0, "Warning: should be= '%s'\r\n", stored);
}

int Vendrak::_check_shrunk() {
  Impl& s = *_impl;
  if (!s.map.mf_Shrunk()) return 0;
  if (!s.shrink_reported)
    s.io.io_callbackerr("%s: the archive shrank while it was being read\r\n", s.archive_name.c_str());
  s.shrink_reported = true;
  return GE_EOF;
}

int Vendrak::_finish_pending_sha(PboDigest& digest) {
  Impl& s = *_impl;
  if (!s.sha_pending) return 0;
  s.sha_pending = false;
  if (!digest.pd_Finish(s.sha_computed)) throw "sha1 computation failed";
  if (int t = _check_shrunk()) return t;
  return std::memcmp(s.sha_stored, s.sha_computed, 20) == 0 ? 0 : PBO_CORRUPTED_SHA;
}

int Vendrak::_parse_header(int flags) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  s.kind = KIND_CWC;
  s.strange = 0;
  uint64_t running = 0;
  for (;;) {
    // Every record is at least a terminator and five words; a header that never reaches its end
    // record runs into the end of the file and fails there.
    char const* name = io.io_ReadAsciiz();
    bool unnamed = *name == 0;
    pbo_entry* entry = nullptr;
    if (!unnamed) {
      entry = new (std::nothrow) pbo_entry;
      if (!entry) io.io_throw(GE_NO_MEMORY, "\r\nnew pbo entry failed\r\n");
      entry->pbe_SetFilename(name);  // copied now: a streamed name lives in a scratch buffer
    }
    uint32_t method, original, reserved, stamp, size;
    try {
      method = io.io_ReadUlong();
      original = io.io_ReadUlong();
      reserved = io.io_ReadUlong();
      stamp = io.io_ReadUlong();
      size = io.io_ReadUlong();
    } catch (...) {
      delete entry;
      throw;
    }

    if (unnamed) {
      if (original || reserved || size) s.strange = 1;  // the time stamp is exempt
      if (method == pbo_entry::kProperties) {
        if (int r = _read_properties()) return r;
        continue;
      }
      if (method == pbo_entry::kStored || method == pbo_entry::kCompressed) {
        s.data_start = io.io_GetCurrentOffset();
        s.data_end = s.data_start + running;
        return _check_trailer(s.data_end, flags);
      }
      return PBO_UNKNOWN_HEADER_TYPE;
    }

    if (reserved && s.kind != KIND_XBO_A && s.kind != KIND_XBO_B) s.strange = 2;
    bool compressed = original != 0 && original != size;
    bool accepted;
    if (method == pbo_entry::kCompressed)
      accepted = compressed || s.kind == KIND_CWC || s.kind == KIND_RESISTANCE;
    else
      accepted = method == pbo_entry::kStored && !compressed;
    if (!accepted) {
      delete entry;
      return PBO_UNKNOWN_HEADER_TYPE;
    }
    entry->_set_record(method, original, reserved, stamp, size, running);
    running += size;
    AddChain(entry);
  }
}

int Vendrak::_read_properties() {
  Impl& s = *_impl;
  if (s.kind != KIND_CWC) return PBO_MULTIPLE_PRODUCT_ENTRIES;
  s.kind = KIND_RESISTANCE;
  s.properties.DeleteAllChain();
  for (;;) {
    GenString name(s.io.io_ReadAsciiz());
    if (name.str_IsEmpty()) break;
    char const* value = s.io.io_ReadAsciiz();
    s.properties.AddChain(new TokenPair(name.c_str(), value));
    if (strcasecmp(name.c_str(), "prefix") == 0) s.kind = KIND_PREFIXED_NO_SHA;
  }
  for (TokenPair* p = s.properties.GetFirstPair(); p; p = p->GetNext())
    s.report.str_Add("%s=%s\r\n", p->name(), p->value());
  return 0;
}

void Vendrak::_compute_sha(uint64_t data_end) {
  Impl& s = *_impl;
  if (!s.io.io_IsHuge()) {
    if (!PboDigest::pd_Compute(s.io.io_GetRawData(), data_end, s.sha_computed)) throw "sha1 computation failed";
    return;
  }
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  if (!ctx) throw GE_NO_MEMORY;
  unsigned int len = 0;
  bool ok = EVP_DigestInit_ex(ctx, EVP_sha1(), nullptr) == 1;
  if (ok) {
    // A streamed archive is hashed in slices.
    uint64_t keep = s.io.io_MoveTo(0);
    std::vector<uint8_t> slice(1 << 20);
    for (uint64_t done = 0; ok && done < data_end;) {
      uint64_t n = std::min<uint64_t>(slice.size(), data_end - done);
      s.io.io_ReadBlock(slice.data(), n);
      ok = EVP_DigestUpdate(ctx, slice.data(), n) == 1;
      done += n;
    }
    s.io.io_MoveTo(keep);
  }
  ok = ok && EVP_DigestFinal_ex(ctx, s.sha_computed, &len) == 1 && len == 20;
  EVP_MD_CTX_free(ctx);
  if (!ok) throw "sha1 computation failed";
}

int Vendrak::_check_trailer(uint64_t data_end, int flags) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  io.io_MoveTo(data_end);  // data sizes that run past the end of the file fail here
  uint64_t remaining = io.io_RemainingBytes();
  if (remaining == 21) {
    if (s.kind == KIND_RESISTANCE)
      s.kind = KIND_ARMA_NO_PREFIX;
    else if (s.kind == KIND_PREFIXED_NO_SHA)
      s.kind = KIND_ARMA_PREFIX;
    else if ((s.kind & 0xF000) == 0)
      s.kind = KIND_ARMA_NO_PREFIX;
    if (flags & OPEN_SHA_MESSAGE) io.io_callback("Verifying sha\r\n");
    bool lead_ok = io.io_ReadByte() == 0;
    if (lead_ok && s.defer_sha && !io.io_IsHuge()) {
      io.io_ReadBlock(s.sha_stored, 20);
      s.sha_pending = true;  // the extraction hashes while it writes
      return 0;
    }
    _compute_sha(data_end);
    if (!lead_ok) return PBO_CORRUPTED_SHA;
    io.io_ReadBlock(s.sha_stored, 20);
    return std::memcmp(s.sha_stored, s.sha_computed, 20) == 0 ? 0 : PBO_CORRUPTED_SHA;
  }
  if (remaining == 5 && s.kind == KIND_PREFIXED_NO_SHA) {
    s.kind = KIND_ELITE;
    // The four checksum bytes of this form are not verified.
    return io.io_ReadByte() == 0 ? 0 : PBO_CORRUPTED_SHA;
  }
  if (remaining == 0) {
    if (s.kind != KIND_PREFIXED_NO_SHA) return 0;
    s.strange = PBO_NO_SHA;
    return PBO_NO_SHA;
  }
  if (s.strange == 0) s.strange = PBO_RESIDUAL_BYTES;
  return PBO_RESIDUAL_BYTES;
}

int Vendrak::_content_class() const {
  bool config = false, mission = false, campaign = false;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    if (!is_root_entry(e->pbe_GetFilename())) continue;
    int kind = e->pbe_FileIs();
    config |= kind == 1 || kind == 2;
    mission |= kind == 3;
    campaign |= kind == 4;
  }
  int cls;
  if (!config)
    cls = mission ? 1 : campaign ? 2 : 7;
  else
    cls = mission ? 5 : campaign ? 6 : 4;
  return pbo_GetProperty("prefix") ? cls + 8 : cls;
}

void Vendrak::_build_kind_report() {
  Impl& s = *_impl;
  int cls = _content_class();
  int base = cls & 7;
  char const* word = "";
  char const* text = nullptr;
  auto plain = [](int c) -> char const* {
    switch (c) {
      case 1: return "Mission\r\n";
      case 2: return "Campaign\r\n";
      case 4: return "Addon\r\n";
      case 5: return "Mission Addon\r\n";
      case 6: return "Campaign Addon\r\n";
      default: return "Unknown pbo type (no config)\r\n";
    }
  };
  switch (s.kind) {
    case KIND_CWC:
      word = "CWC ";
      text = plain(base);
      break;
    case KIND_RESISTANCE:
      word = "Resistance ";
      text = plain(base);
      break;
    case KIND_PREFIXED_NO_SHA:
      text = "Xbox Elite or Arma but missing checksum/sha (possibly a mission.pbo)\r\n";
      break;
    case KIND_ELITE:
      word = "Elite ";
      text = base == 7 ? "Unknown Addon (no config)\r\n" : plain(base);
      break;
    case KIND_ARMA_NO_PREFIX: {
      word = "Arma ";
      static char const* const t[] = {nullptr,
                                      "Mission\r\n",
                                      "Campaign\r\n",
                                      nullptr,
                                      "Addon without prefix (pboname assumed)\r\n",
                                      "Mission Addon. No prefix (pboname assumed)\r\n",
                                      "Campaign Addon. No prefix (pboname assumed)\r\n",
                                      "Unknown pbo type (no config). No prefix (pboname assumed)\r\n"};
      text = t[base];
      break;
    }
    case KIND_ARMA_PREFIX: {
      word = "Arma ";
      static char const* const t[] = {nullptr,
                                      "Mission with irrelevant prefix\r\n",
                                      "Campaign with irrelevant prefix\r\n",
                                      nullptr,
                                      "Addon\r\n",
                                      "Mission Addon\r\n",
                                      "Campaign addon\r\n",
                                      "Unknown pbo typ (no config).\r\n"};
      text = t[base];
      break;
    }
    default:
      break;
  }
  if (text)
    s.report.str_Add("//Pbo Type is: %s%s", word, text);
  else
    s.report.str_Add("//Pbo Type is: unrecognised archive kind 0x%X\r\n", static_cast<unsigned>(s.kind));

  char hex[41];
  if (s.kind == KIND_ELITE) {
    hex_upper(s.sha_stored, 4, hex);
    s.report.str_Add("//Checksum: '%s'\r\n", hex);
  } else if (s.kind == KIND_ARMA_PREFIX || s.kind == KIND_ARMA_NO_PREFIX) {
    hex_upper(s.sha_stored, 20, hex);
    s.report.str_Add("//Sha: '%s'\r\n", hex);
  }
  s.report.str_cat("//////</properties>//////\r\n");
}

void Vendrak::pbo_ReportStrangeValues() {
  char const* text;
  switch (_impl->strange) {
    case 0:
      return;
    case 1:
      text = "Strange values in header: 1st/last entry has non-zero 'UnpackedSize', 'reserved', or 'SizeOnDisk' field";
      break;
    case 2:
      text = "Strange values in header: reserved field non zero anywhere in entry bodies (except xbo)";
      break;
    case PBO_RESIDUAL_BYTES:
      text = "Warning: Vendrak has residual bytes (possibly a tool signature)";
      break;
    case PBO_NO_SHA:
      text = "Warning: no shakey on arma prefix";
      break;
    default:
      text = "unknown strange value";
      break;
  }
  _impl->io.io_callback("%s\r\n", text);
}

// ===== entries ===============================================================

pbo_entry* Vendrak::pbo_FindEntry(char const* name) {
  if (!name) return nullptr;
  // Only the file names are compared: callers look an entry up by the name of a file they hold.
  FileStringA wanted(name);
  std::string want(wanted.fs_GetFilenameAndExt());
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext())
    if (strcasecmp(e->pbe_GetFilenameAndExtOnly(), want.c_str()) == 0) return e;
  return nullptr;
}

pbo_entry* Vendrak::pbo_FindEntryPath(char const* path) {
  if (!path) return nullptr;
  // Entry names are stored with backslashes; users type either slash, and the game ignores case.
  auto same = [](char a, char b) {
    if (a == '/') a = '\\';
    if (b == '/') b = '\\';
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  };
  while (*path == '/' || *path == '\\') ++path;
  size_t length = std::strlen(path);
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    char const* name = e->pbe_GetFilename();
    if (std::strlen(name) == length && std::equal(path, path + length, name, same)) return e;
  }
  return nullptr;
}

void Vendrak::pbo_FreeData(pbo_entry* entry) {
  if (entry && entry->pbe_OwnsData()) entry->pbe_FreeData();
}

int Vendrak::pbo_Expand_lzss(void const* source, uint64_t source_size, void* dest, uint64_t dest_size) {
  try {
    return cmp_Expand(_impl->engine, source, source_size, dest, dest_size, CT_LZSS) >= 0 ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

uint8_t const* Vendrak::pbo_ReadEntryData(pbo_entry* entry, int* size, unsigned int flags) {
  if (!entry) return nullptr;
  int r = _guarded([&] {
    _read_entry(entry, flags, false);
    return 0;
  });
  _impl->last_error = r;
  if (r) return nullptr;
  if (size) *size = static_cast<int>(entry->pbe_GetDataSize());
  return entry->pbe_GetData() ? entry->pbe_GetData() : reinterpret_cast<uint8_t const*>("");
}

void Vendrak::_read_entry(pbo_entry* entry, unsigned flags, bool decode) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  if (!entry->pbe_HasData()) {
    if (entry->_stored_size == 0) {
      entry->_borrow(reinterpret_cast<uint8_t const*>(""), 0);
      if (flags & OPEN_SUBSTITUTE_EMPTY) {
        // A file beside the archive, in the folder it unpacks to, stands in for an empty entry;
        // names that climb out of that folder are never looked up.
        std::vector<std::string> parts;
        if (PboOutputFolder::pof_SplitRelative(entry->pbe_GetFilename(), parts)) {
          FileStringA disk(s.archive_name.c_str());
          disk.fs_RemoveExt();
          for (auto const& p : parts) disk.str_Add("/%s", p.c_str());
          if (disk.fs_FileExists()) entry->pbe_fread(disk.c_str());
        }
      }
      if (!decode) return;
    } else {
      io.io_MoveTo(s.data_start + entry->_offset);
      if (io.io_IsHuge()) {
        io.io_Require(entry->_stored_size);
        auto* buf = new uint8_t[entry->_stored_size + 1];
        try {
          io.io_ReadBlock(buf, entry->_stored_size);
        } catch (...) {
          delete[] buf;
          throw;
        }
        buf[entry->_stored_size] = 0;
        entry->_adopt(buf, entry->_stored_size);
      } else {
        entry->_borrow(io.io_GetAddressAndUpdate(entry->_stored_size), entry->_stored_size);
      }
    }
  }
  if (entry->_method != pbo_entry::kStored) {
    if (flags & OPEN_LEAVE_PACKED) {
      if (!(flags & OPEN_NO_PACK_NOTES)) io.io_callback(" (compressed/encrypted)");
    } else {
      if (!(flags & OPEN_NO_PACK_NOTES)) io.io_callback(" (decompressed/decrypted)");
      if (entry->_method != pbo_entry::kCompressed) throw PBO_UNKNOWN_HEADER_TYPE;
      _expand(entry);
    }
  }
  if (decode && !entry->pbe_WasRapped()) _decode_config(entry);
}

void Vendrak::_expand(pbo_entry* entry) {
  // An entry marked packed whose sizes say otherwise (allowed in the oldest archives) is stored.
  if (!entry->pbe_iscompressed()) {
    entry->_method = pbo_entry::kStored;
    return;
  }
  uint64_t original = entry->_original_size;
  // An original size that no stream of this length could produce is a lie (a decompression bomb),
  // refused before anything is allocated for it.
  if (original > cmp_ExpandLimit(entry->_data_size, CT_LZSS)) throw PBO_COMPRESSION_ERROR;
  auto* out = new (std::nothrow) uint8_t[original + 1];
  if (!out) throw GE_NO_MEMORY;
  out[original] = 0;
  if (!pbo_Expand_lzss(entry->_data, entry->_data_size, out, original)) {
    delete[] out;
    throw PBO_COMPRESSION_ERROR;
  }
  entry->_adopt(out, original);
  entry->_method = pbo_entry::kStored;
}

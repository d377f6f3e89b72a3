#pragma once
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "core/BisCallback.h"
#include "pbo/PboErrors.h"
#include "pbo/pbo_entry.h"
#include "text/Chains.h"

class BisDLL;
class BisFileIO;
class PboDigest;
class PboOutputFolder;
class PboWriterPool;
class GenString;
class TokenPair;

// The archive tool: opens a PBO, checks its header and trailer, reports its properties and kind,
// hands out entry data and extracts the archive to a folder. The list it derives from holds the
// entries in header order.
class Vendrak : public Chains {
 public:
  // Archive kinds (pbo_GetType).
  static constexpr uint32_t KIND_CWC = 0;
  static constexpr uint32_t KIND_RESISTANCE = 128;
  static constexpr uint32_t KIND_PREFIXED_NO_SHA = 256;
  static constexpr uint32_t KIND_ELITE = 512;
  static constexpr uint32_t KIND_ARMA_PREFIX = 1024;
  static constexpr uint32_t KIND_XBO_A = 4096;
  static constexpr uint32_t KIND_XBO_B = 8192;
  static constexpr uint32_t KIND_ARMA_NO_PREFIX = 0x10000;

  // Flags of pbo_Open and of reading entry data.
  static constexpr int OPEN_SUBSTITUTE_EMPTY = 1;  // an entry of data size 0 is looked for on disk
  static constexpr int OPEN_NO_PACK_NOTES = 2;
  static constexpr int OPEN_LEAVE_PACKED = 4;
  static constexpr int OPEN_NO_REPORT = 8;
  static constexpr int OPEN_SHA_MESSAGE = 16;
  static constexpr int OPEN_WARNINGS_ARE_ERRORS = 32;

  // Flags of extraction.
  static constexpr int EXTRACT_DECODE_CONFIGS = 2;
  static constexpr int EXTRACT_LIST_ONLY = 4;
  static constexpr int EXTRACT_QUIET = 8;
  static constexpr int EXTRACT_SHA_MESSAGE = 16;
  static constexpr int EXTRACT_WARNINGS_ARE_ERRORS = 32;
  static constexpr int EXTRACT_NO_TABS = 64;
  static constexpr int EXTRACT_KEEP_DATA = 128;
  // Replace existing files whose content differs (otherwise each is refused with 53).
  static constexpr int EXTRACT_FORCE = 256;

  explicit Vendrak(BisDLL* dll);
  ~Vendrak() override;

  // ---- reading ------------------------------------------------------------
  int pbo_Open(char const* name, BisCallback callback, int flags);
  pbo_entry* pbo_FindEntry(char const* name);
  // The entry whose whole path is `path` (either slash, any case); null when none is.
  pbo_entry* pbo_FindEntryPath(char const* path);
  uint8_t const* pbo_ReadEntryData(pbo_entry* entry, int* size, unsigned int flags);
  void pbo_FreeData(pbo_entry* entry);
  void ClosePbo();
  int pbo_Expand_lzss(void const* source, uint64_t source_size, void* dest, uint64_t dest_size);

  uint32_t pbo_GetType() const;
  BisFileIO* pbo_GetIO();
  TokenPair* pbo_GetProperties() const;
  TokenPair* pbo_GetProperty(char const* name) const;
  char const* pbo_GetPrefix() const;
  bool pbo_HasPrefix() const;
  pbo_entry* pbo_GetFirstEntry() const { return static_cast<pbo_entry*>(GetFirst()); }

  // The properties report built while opening (banner, properties, kind, digest, closing line).
  char const* pbo_GetReport() const;
  // The strange-values flag of the last open (0, 1, 2, 25, 26) and its warning line.
  int pbo_GetStrangeValue() const;
  void pbo_ReportStrangeValues();
  // The digest stored in the trailer (20 bytes) and the one computed over the archive.
  uint8_t const* pbo_GetStoredSha() const;
  uint8_t const* pbo_GetComputedSha() const;
  // The result of the last pbo_ReadEntryData that returned null.
  int pbo_GetLastError() const;
  uint64_t pbo_GetDataStart() const;

  static int pbo_HasPboExt(char const* name);
  static int pbo_PboExists(char const* name);
  static char const* ErrorString(int code);

  // ---- extraction ---------------------------------------------------------
  int pbo_Extract(char const* name, BisCallback callback, int flags, char const* files, char const* destination);
  int pbo_ExtractPreOpened(unsigned int flags, char const* files, char const* destination);
  static bool pbo_fname_is_a_properties_file(char const* name);

  // Called before each entry is written and once at the end: bytes of the archive's data block
  // handled so far, the block's size, and the entry's name (empty at the end).
  using ProgressHook = void (*)(void* context, uint64_t done, uint64_t total, char const* entry);
  void pbo_SetProgressHook(ProgressHook hook, void* context);
  // Entry names or wildcard patterns (comma-separated) that extraction leaves out, on top of the
  // chosen files; null or empty leaves nothing out.
  void pbo_SetExtractExclude(char const* patterns);

 private:
  struct Impl;
  BisDLL* _dll;
  std::unique_ptr<Impl> _impl;

  template <class Work>
  int _guarded(Work&& work);

  int _open(char const* name, BisCallback callback, int flags);
  int _parse_header(int flags);
  int _read_properties();
  int _check_trailer(uint64_t data_end, int flags);
  void _compute_sha(uint64_t data_end);
  void _report_bad_sha();
  int _check_shrunk();
  int _finish_pending_sha(PboDigest& digest);
  void _build_kind_report();
  int _content_class() const;
  void _read_entry(pbo_entry* entry, unsigned flags, bool decode);
  void _expand(pbo_entry* entry);
  void _decode_config(pbo_entry* entry);
  int _kaltor_decode(uint8_t const* data, uint64_t size, char const* name, time_t date, GenString& text,
                     GenString& message);
  int _extract_step(unsigned flags, char const* files, char const* destination);
  int _write_entry(pbo_entry* entry, unsigned flags, char const* output_name, PboOutputFolder& out);
  int _put_entry(pbo_entry* entry, unsigned flags, char const* output, std::vector<std::string> const& parts,
                 PboOutputFolder& out, std::unique_ptr<PboWriterPool>& pool);
  int _put_outcome(char const* name, char const* output, int result, int error, bool fault);
  int _collect(PboWriterPool& pool, bool wait, bool& refused, bool& kept_other);
  int _write_prefix_file(unsigned flags, PboOutputFolder& out);
  void _list(unsigned flags);

  // ---- prefix and properties files, making archives ---------------------------
 public:
  // Creation modes of pbo_Make and pbo_Create.
  // Binarise configs, validate the road library, index the textures in texHeaders.bin.
  static constexpr int MAKE_PROCESS_CONTENT = 0x1;
  static constexpr int MAKE_COMPRESS = 0x20;
  static constexpr int MAKE_STYLE_MASK = 0x1ff80;
  static constexpr int MAKE_STYLE_RESISTANCE = 128;
  static constexpr int MAKE_STYLE_ARMA_NO_SHA = 256;
  static constexpr int MAKE_STYLE_ELITE = 512;
  static constexpr int MAKE_STYLE_ARMA = 1024;
  static constexpr int MAKE_EXT_MASK = 0x3000;  // 0x1000 or 0x2000: "xbo"
  static constexpr int MAKE_ACCEPT_MLOD = 0x40000;
  static constexpr int MAKE_DROP_NAME_PREFIX = 0x80000;
  static constexpr int MAKE_REPRODUCIBLE = 0x2000000;
  static constexpr int MAKE_WARNINGS_ARE_ERRORS = 0x4000000;

  int pbo_ParsePrefixFile(char const* path);
  int pbo_WriteParsedPrefixFile(char const* path);
  void pbo_SetProperty(char const* name, char const* value);
  void pbo_SetProperty(TokenPair* pair);
  char const* pbo_SetPrefix(char const* prefix);
  // The prefix the last parsed prefix file or pbo_SetPrefix gave (backslashes), empty when none.
  char const* pbo_GetPrefixPath() const;

  int pbo_Make(char const* source, int mode, char const* prefix, BisCallback callback, char const* destination,
               char const* ignore_compression, char const* exclude);
  int pbo_Create(char const* name, int mode, char const* prefix, BisCallback callback);
  int pbo_AddOrReplaceFile(char const* entry_name, char const* path, unsigned int mode, pbo_entry** result = nullptr);
  void pbo_WriteHeaderEntry(pbo_entry* entry);
  int pbo_WriteDataBlockAndClose(bool progress = true);
  int pbo_CreateCopy(char const* name, unsigned int mode);
  void pbo_CreateTempEntry(pbo_entry* entry);
  void pbo_DeleteTempEntry(pbo_entry* entry);
  static char const* pbo_GetDefaultExcludeList();
  static char const* pbo_GetDefaultIgnoreCompressionList(int which = 0);
  // The archive pbo_Make would write for these arguments (folder, name from PboName.h, extension).
  char const* pbo_MakeOutputName(char const* source, int mode, char const* destination);
  // The archive the last successful pbo_Make or pbo_WriteDataBlockAndClose wrote.
  char const* pbo_GetMadeName() const;
  // Checks a parsed road library; the tree's mixed-case paths are lower-cased in place.
  bool pbo_ValidateRoadTree(class rap_entry* root);
  bool pbo_ValidateRoadLibrary(char const* path);
  // Folders the binariser searches for #include files when configs are binarised (mode bit 0x1).
  void pbo_AddIncludeFolder(char const* folder);

 private:
  struct Maker;
  std::shared_ptr<Maker> _maker;  // created on first use; shared_ptr so this header needs no definition
  Maker& _make_state();
  int _make(char const* source, int mode, char const* prefix, char const* destination, char const* ignore,
            char const* exclude);
  int _create(char const* write_path, int mode);
  int _add_file(char const* entry_name, char const* path, unsigned mode, pbo_entry** result, bool compress_now);
  void _compress_entry(pbo_entry* entry);
  void _compress_pending();
  void _write_properties_record();
  void _emit(void const* data, uint64_t size);
  void _write_entry_data(pbo_entry* entry);
  int _finish_archive();
  struct Scan;
  int _scan_folder(Scan& scan, char const* folder, char const* relative);
  int _judge_scan(Scan const& scan);
  int _binarise_config(pbo_entry* entry, char const* path);
  int _index_textures();
};

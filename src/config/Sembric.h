#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/RapMessages.h"
#include "config/rap_entry.h"
#include "core/BisCallback.h"
#include "io/BisFileIO.h"
#include "text/BisTokens.h"
#include "text/GenString.h"
#include "text/TokenPairs.h"

class BisDLL;
class Vendrak;

// The config binariser: reads config text (or an already binarised config) into a tree of
// rap_entry nodes, optionally checks and repairs an addon's config.cpp, and writes the tree as a
// binarised config in the OFP or the Arma dialect.
//
// Results are 0, a number of the config message table (RapMessages.h: 46 no classes, 47 cannot
// write, 50 prebinarised input broken, 53/56/57 content faults, 55 unbinarisable expression), a
// reader status (RAP_STATUS + a number) for faults found in the text, or a generic code.
class Sembric {
 public:
  // rap_Create flags.
  // The text belongs to the game's own folders: access= entries are not warned about.
  static constexpr int RAPF_READER_OPTION = 0x10;
  static constexpr int RAPF_WARNINGS_ARE_ERRORS = 0x20;
  static constexpr int RAPF_IMPLIES_READER_OPTION = 0x800;
  // Run the content checks of an addon's config.cpp (they always run on a config.cpp given with
  // the archive it is packed into).
  static constexpr int RAPF_CONTENT_CHECKS = 0x1000;
  // rap_Output flags.
  static constexpr int RAPO_ARMA = 1;  // clear: the OFP dialect

  // The code a thrown message text turns into.
  static constexpr int kDetectedError = 3;

  explicit Sembric(BisDLL* dll);
  ~Sembric();
  Sembric(Sembric const&) = delete;
  Sembric& operator=(Sembric const&) = delete;

  // Builds the tree from `data` (`size` bytes) when given, else from the file. `file` names the
  // source in messages and anchors relative includes. `callback` becomes both message sinks; null
  // keeps those set through rap_GetIO(). `pbo` is the archive being built, if any.
  int rap_Create(char const* file, int flags, BisCallback callback, char const* data = nullptr,
                 unsigned int size = 0, Vendrak* pbo = nullptr);
  // The text the parser would read, into `out`: macros expanded, includes inlined, comments and
  // directives gone, white space as written (so a modder sees what a macro made). Input as for
  // rap_Create; the value checks of binarising are not made. 0, or a reader status whose message
  // has gone to the error callback with its file and line.
  int rap_Preprocess(char const* file, std::string& out, char const* data = nullptr, unsigned int size = 0);
  // Writes the tree to a file; bit 0 of flags: Arma dialect, else OFP. A file that cannot be
  // written completely is removed.
  int rap_Output(char const* file, int flags);
  // The same into memory (appended to `out`).
  int rap_Output(std::vector<uint8_t>& out, int flags);

  // Folders below which includes are looked up (as a mapped project drive), in order.
  void rap_AddIncludeFolder(char const* folder);
  void rap_ClearIncludeFolders() { _include_folders.clear(); }

  // ---- the built tree (the rap_entry operations, applied at the root) ------
  rap_entry* rap_get_class(char const* name) const;
  rap_entry* rap_get_entry(char const* name) const;
  rap_entry* rap_add_class(char const* name, char const* parent);
  rap_entry* rap_get_first() const;
  rap_entry* rap_get_root() const { return _root.get(); }
  TokenPairs& rap_get_enums() { return _enums; }
  // Adds an enumerator; an empty or null name is stored as "OrdinalEnum".
  void rap_add_enum(char const* name, int32_t value);

  BisTokens* rap_get_included_files() { return &_included; }
  BisTokens* rap_get_missing_files() { return &_missing; }
  int rap_get_linenum_in_error() const { return _line_in_error; }
  BisFileIO* rap_GetIO() { return &_io; }
  BisDLL* rap_GetDll() const { return _dll; }
  // An __EVAL/__EXEC depended on the running game: the tree cannot be written.
  bool rap_IsUnbinarisable() const { return _unbinarisable; }
  void rap_SetUnbinarisable() { _unbinarisable = true; }

  // The content checks of an addon's config.cpp on the built tree; 0 or a message number.
  int rap_CheckContent(Vendrak* pbo = nullptr);

  // A warning of the message table: shown through the callback as "warning :<message>" (unless
  // `show` is false, for warnings that have their own line), or, when warnings are errors, the
  // failure status 256 + msg. Returns 0 or that status.
  int rap_Warn(int msg, bool show = true);
  // The message of a result with its place: "In File <file>: circa Line <n> <text>", or
  // "<file>: <text>" when no line is known; messages 0 and 48 bare.
  std::string rap_Describe(int code) const;

  int Close();
  static char const* ErrorString(int code);

 private:
  int _create_worker(char const* file, int flags, char const* data, unsigned int size, Vendrak* pbo);
  int _prebinarised(uint8_t const* data, uint64_t size);
  void _prebinarised_enums(uint8_t const* data, uint64_t size);
  int _text(char const* file, char const* data, uint64_t size);
  // The bytes to read: `data` when given, else the file's (held by _io until Close).
  void _input(char const* file, char const* data, unsigned int size, uint8_t const*& bytes, uint64_t& length);
  int _output_worker(std::vector<uint8_t>& out, int flags);
  int _report(int code);

  BisDLL* _dll;
  BisFileIO _io;
  std::unique_ptr<rap_entry> _root;
  TokenPairs _enums;
  BisTokens _included;
  BisTokens _missing;
  std::vector<std::string> _include_folders;
  GenString _file;
  int _line_in_error = 0;
  int _flags = 0;
  bool _unbinarisable = false;
  bool _reported = false;  // the fault's message has gone out with its place
};

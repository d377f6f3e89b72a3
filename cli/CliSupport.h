#pragma once
// What every command shares: the usage exit status, error lines that name the path and the
// system's reason, inputs read from a file or standard input, outputs written safely, and the
// signature registry behind `vendrak info FILE`.
#include <cstddef>
#include <string>
#include <vector>

// Usage errors (unknown command or option, missing argument) exit with this status, which no
// result code of the library uses.
constexpr int kExitUsage = 64;

// "vendrak: PATH: REASON" on standard error.
void cli_error(std::string const& path, std::string const& reason);

// Before a path is handed to the library: a file that is missing, unreadable, or a folder is
// reported with the system's reason and gives 3 (the library's "invalid file"); 0 when it can be
// read. "-" (standard input) always passes.
int cli_check_input(std::string const& path);

// Reads a whole input into memory; "-" reads standard input. 0, or 3 with the reason printed.
int cli_read_input(std::string const& path, std::vector<unsigned char>& bytes);

// The first bytes of a file (at most `n`), for signature tests; empty when it cannot be read.
std::vector<unsigned char> cli_read_head(std::string const& path, size_t n);

// An output written so that a failure never leaves a partial file nor destroys the old one: the
// library writes to path(), a fresh temporary file in the target's folder, and commit() renames
// it over the target. An existing target with different content is kept unless `force`; one with
// the same content is left untouched. The target "-" is standard output: commit() copies the
// temporary file there. Destroyed without commit(), the temporary file is removed.
class OutputFile {
 public:
  OutputFile(std::string target, bool force);
  ~OutputFile();
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;

  // Makes the temporary file; 0, or 6 ("cannot write to file") with the reason printed.
  int open();
  char const* path() const { return _temp.c_str(); }
  std::string const& target() const { return _target; }
  bool is_stdout() const { return _target == "-"; }
  // 0 when the target now holds the output; 6 with the reason printed otherwise.
  int commit();
  // Removes the temporary file (also done by the destructor).
  void discard();

 private:
  std::string _target;
  std::string _temp;
  bool _force;
  bool _open = false;
};

// Compares the bytes of two files; false when either cannot be read.
bool cli_same_content(std::string const& a, std::string const& b);

// `vendrak info FILE` asks each registered format in turn whether the file's first bytes (up to 64,
// fewer for a short file) are its signature, and runs the first that accepts it.
struct InfoHandler {
  std::string kind;  // "PBO archive", "binarised config", ...
  bool (*matches)(unsigned char const* head, size_t n, std::string const& path);
  int (*run)(std::string const& path, bool json);
  // Formats with no signature of their own (a PBO without a properties header) match on the name;
  // they are asked only after every format with a signature said no.
  bool by_name_only = false;
};
std::vector<InfoHandler>& info_handlers();
struct InfoRegistrar {
  explicit InfoRegistrar(InfoHandler handler) { info_handlers().push_back(std::move(handler)); }
};

// Signs an archive the tool has just made with the private key in `key_file`: writes
// ARCHIVE.<authority>.bisign beside it. 0, or the signing tool's code with the reason printed.
int cli_sign_archive(std::string const& key_file, std::string const& archive, unsigned version, bool force);

// Checks an archive's signature files against trusted keys as a server does: 0 when one of them
// verifies; otherwise the signing tool's code, with the signature file in `signature` when one was
// read. `keys` holds the parsed trusted keys.
struct ArchiveKey;
int cli_verify_archive(std::string const& archive, std::vector<ArchiveKey> const& keys, std::string& signature,
                       std::string& authority, unsigned& version);
// The trusted keys of --key files and a --keys folder; 0, or the reason printed and its code.
int cli_read_trusted_keys(std::vector<std::string> const& files, std::string const& folder,
                          std::vector<ArchiveKey>& keys);

// The config tool as the commands that read config text use it: include folders added, and every
// message on standard error, since the text or binary made may go to standard output.
class BisDLL;
class Sembric;
Sembric* cli_config_reader(BisDLL& dll, std::vector<std::string> const& includes);

// The closest of `candidates` to `word` when it is a plausible typo (for "did you mean").
std::string cli_closest(std::string const& word, std::vector<std::string> const& candidates);

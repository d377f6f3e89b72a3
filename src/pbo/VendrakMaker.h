#pragma once
// The archive tool's state while it makes an archive: where the entries' bytes come from, the
// output's running digest and the names it is written under.
#include <openssl/evp.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "pbo/Vendrak.h"
#include "text/BisTokens.h"
#include "text/FileStringA.h"

class BisFileIO;

struct Vendrak::Maker {
  explicit Maker(BisFileIO* io_) : io(io_) {}
  ~Maker();
  Maker(Maker const&) = delete;
  Maker& operator=(Maker const&) = delete;

  // Drops the output in progress: closes it and removes the temporary file.
  void abandon();
  void reset_lists();

  BisFileIO* io;
  FileStringA prefix;  // the archive's prefix, backslashes; mirrors the "prefix" property
  int mode = 0;
  uint32_t style = 0;  // 0, 128, 256, 512 or 1024

  BisTokens exclude;
  BisTokens ignore_compression;
  bool lists_ready = false;
  bool defer_compression = false;  // pbo_Make compresses every entry at once, on every core

  // Entries whose bytes are still on disk: read when the data block is written, never before.
  std::unordered_map<pbo_entry const*, std::string> sources;

  std::vector<std::string> include_folders;  // for the binariser
  std::vector<std::pair<std::string, std::string>> missing;  // config, file its checks did not find

  std::string target;     // the archive being made (host separators)
  std::string temp_path;  // where it is written until it is complete
  std::string made;       // the last archive completed
  std::string scratch;    // pbo_MakeOutputName's answer
  bool writing = false;
  bool end_record_written = false;
  EVP_MD_CTX* sha = nullptr;

  uint64_t total_original = 0;
  uint64_t total_data = 0;
};

#pragma once
// The archive tool's private state, shared by its reading and extracting halves.
#include <cstdint>
#include <ctime>

#include "core/GuardedCall.h"
#include "io/BisFileIO.h"
#include "io/CompressionEngine.h"
#include "io/MappedFile.h"
#include "pbo/PboOutputFolder.h"
#include "pbo/Vendrak.h"
#include "text/BisTokens.h"
#include "text/FileStringA.h"
#include "text/GenString.h"
#include "text/TokenPairs.h"

struct Vendrak::Impl {
  explicit Impl(BisDLL* dll) : io(dll) {}

  BisFileIO io;
  // The archive mapped in place; when it cannot be mapped, `io` reads it whole as before.
  MappedFile map;
  uint32_t kind = 0;
  uint64_t data_start = 0;
  uint64_t data_end = 0;
  int strange = 0;
  uint8_t sha_stored[20] = {};
  uint8_t sha_computed[20] = {};
  TokenPairs properties;  // file order, duplicates kept
  GenString report;
  BisCallback callback = nullptr;
  FileStringA archive_name;  // the archive last opened
  time_t file_date = 0;
  CompressionEngine engine;
  int last_error = 0;
  ProgressHook hook = nullptr;
  void* hook_context = nullptr;
  BisTokens exclude;  // entries extraction leaves out
  bool decode_with_tabs = true;
  // Extraction checks the SHA-1 trailer while it writes: opening then only reads the stored
  // digest and leaves the hashing pending.
  bool defer_sha = false;
  bool sha_pending = false;
  bool shrink_reported = false;
};

// Every exported method runs its worker here: codes become results, a message goes to the error
// callback and gives 31, anything else 23.
template <class Work>
int Vendrak::_guarded(Work&& work) {
  return bis_guarded_call<PboErrors>(_impl->io, PBO_DLL_DETECTED_ERROR, PBO_UNKNOWN_EXCEPTION,
                                     std::forward<Work>(work));
}

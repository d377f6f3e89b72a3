// Arbitrary bytes as a key file and as a signature file: each is parsed, and what parses is
// written back and must parse to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "pbo/ArchiveSigner.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  ArchiveKey key;
  if (ArchiveSigner::parse_key(data, size, key) == 0) {
    auto again = ArchiveSigner::key_bytes(key, key.is_private());
    if (again != std::vector<uint8_t>(data, data + size)) std::abort();
  }
  ArchiveSignature sig;
  if (ArchiveSigner::parse_signature(data, size, sig) == 0) {
    auto again = ArchiveSigner::signature_bytes(sig);
    if (again != std::vector<uint8_t>(data, data + size)) std::abort();
  }
  return 0;
}

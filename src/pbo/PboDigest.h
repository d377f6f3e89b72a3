#pragma once
#include <cstdint>
#include <thread>

// The SHA-1 that seals an archive, over every byte from its start to the end of the data block.
// pd_Start hashes on a thread of its own, so that checking a big archive overlaps writing its
// entries instead of adding to it; pd_Finish waits for the digest.
class PboDigest {
 public:
  PboDigest() = default;
  ~PboDigest();
  PboDigest(PboDigest const&) = delete;
  PboDigest& operator=(PboDigest const&) = delete;

  // False when the crypto library fails.
  static bool pd_Compute(uint8_t const* data, uint64_t size, uint8_t out[20]);

  void pd_Start(uint8_t const* data, uint64_t size);
  bool pd_Running() const { return _thread.joinable(); }
  // Waits for the digest started last; false when the crypto library failed.
  bool pd_Finish(uint8_t out[20]);

 private:
  std::thread _thread;
  uint8_t _digest[20] = {};
  bool _ok = false;
};

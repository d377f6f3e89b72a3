#include "pbo/PboDigest.h"

#include <openssl/evp.h>

#include <cstring>

PboDigest::~PboDigest() {
  if (_thread.joinable()) _thread.join();
}

bool PboDigest::pd_Compute(uint8_t const* data, uint64_t size, uint8_t out[20]) {
  unsigned int len = 0;
  return EVP_Digest(data, size, out, &len, EVP_sha1(), nullptr) == 1 && len == 20;
}

void PboDigest::pd_Start(uint8_t const* data, uint64_t size) {
  if (_thread.joinable()) _thread.join();
  _ok = false;
  try {
    _thread = std::thread([this, data, size] { _ok = pd_Compute(data, size, _digest); });
  } catch (...) {  // no thread to be had: hash here and now
    _ok = pd_Compute(data, size, _digest);
  }
}

bool PboDigest::pd_Finish(uint8_t out[20]) {
  if (_thread.joinable()) _thread.join();
  if (_ok) std::memcpy(out, _digest, 20);
  return _ok;
}

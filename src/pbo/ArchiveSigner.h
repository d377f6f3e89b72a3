#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"

// Result codes of signing and verification, after the shared ones (0-9).
enum SignErrors : int {
  SIGN_BAD_KEY = 10,            // a key file that is not a key of the form servers read
  SIGN_BAD_SIGNATURE = 11,      // a signature file that is truncated, oversized or inconsistent
  SIGN_NO_TRAILER = 12,         // the archive has no SHA-1 trailer to sign
  SIGN_BROKEN_ARCHIVE = 13,     // the trailer does not match the archive's bytes
  SIGN_NO_SIGNATURE = 14,       // no <archive>.<authority>.bisign beside the archive
  SIGN_UNKNOWN_AUTHORITY = 15,  // no trusted key of the signature's authority
  SIGN_KEY_MISMATCH = 16,       // the trusted key of that name is not the key that signed
  SIGN_ARCHIVE_CHANGED = 17,    // the archive's bytes changed, its names, prefix and signed files did not
  SIGN_CONTENT_CHANGED = 18,    // entry names, the prefix or the signed files changed
  SIGN_FILES_DIFFER = 19,       // only the files check failed: another choice or order of files
  SIGN_NOT_AN_ARCHIVE = 20,     // the archive cannot be read
  SIGN_KEY_FAILED = 21,         // a key pair cannot be made
};

// An RSA key as the game's key files hold it: the authority's name, the bit length, the public
// exponent and, little-endian and zero-padded to their fixed widths, the modulus and, in a
// private key, the primes, their exponents, the coefficient and the private exponent.
struct ArchiveKey {
  std::string authority;
  uint32_t bits = 0;
  uint32_t exponent = 0;
  std::vector<uint8_t> n, p, q, dp, dq, qinv, d;  // little-endian
  bool is_private() const { return !d.empty(); }
};

// A signature file: the signer's public key and three signatures over the archive.
struct ArchiveSignature {
  ArchiveKey key;  // public part only
  uint32_t version = 0;
  std::array<std::vector<uint8_t>, 3> sig;  // little-endian, each bits/8 bytes
};

// Makes and checks the signatures servers require of an archive: key pairs, `.bisign` files of
// version 2 or 3, and verification that names which of the three checks failed.
class ArchiveSigner {
 public:
  ArchiveSigner();
  void set_error_sink(BisCallback errors) { _io.io_SetErrCallBack(errors); }

  // ---- key and signature files (pure: bytes in, bytes out) ------------------
  static int parse_key(uint8_t const* data, size_t size, ArchiveKey& out);
  static std::vector<uint8_t> key_bytes(ArchiveKey const& key, bool private_blob);
  static int parse_signature(uint8_t const* data, size_t size, ArchiveSignature& out);
  static std::vector<uint8_t> signature_bytes(ArchiveSignature const& signature);

  // A new key pair: `bits` bits, exponent 65537.
  int make_key(std::string const& authority, uint32_t bits, ArchiveKey& out);

  // The three digests of an archive for a signature version (2 or 3).
  int archive_hashes(std::string const& archive, uint32_t version, std::array<std::array<uint8_t, 20>, 3>& out);
  int sign(ArchiveKey const& key, std::string const& archive, uint32_t version, ArchiveSignature& out);
  // 0 when the signature is `key`'s and all three checks pass; otherwise what the failed checks
  // say changed.
  int verify(ArchiveKey const& key, std::string const& archive, ArchiveSignature const& signature);

  static char const* ErrorString(int code);

 private:
  int _hashes(std::string const& archive, uint32_t version, std::array<std::array<uint8_t, 20>, 3>& out);
  BisFileIO _io;
};

#include "pbo/ArchiveSigner.h"

#include <fcntl.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "pbo/PboErrors.h"
#include "pbo/Vendrak.h"
#include "pbo/pbo_entry.h"
#include "text/TokenPairs.h"

namespace {

constexpr uint32_t kPublicBlob = 0x00000206;  // type 6, version 2, reserved 0
constexpr uint32_t kPrivateBlob = 0x00000207;
constexpr uint32_t kAlgorithm = 0x00002400;   // RSA signature
constexpr uint32_t kRsa1 = 0x31415352;        // "RSA1"
constexpr uint32_t kRsa2 = 0x32415352;        // "RSA2"
// Real keys are 1024 bits; longer ones are allowed up to a size no key file plausibly holds.
constexpr uint32_t kMaxBits = 16384;

struct Cursor {
  uint8_t const* at;
  size_t left;
  bool u32(uint32_t& v) {
    if (left < 4) return false;
    v = uint32_t(at[0]) | uint32_t(at[1]) << 8 | uint32_t(at[2]) << 16 | uint32_t(at[3]) << 24;
    at += 4, left -= 4;
    return true;
  }
  bool bytes(size_t n, std::vector<uint8_t>& out) {
    if (left < n) return false;
    out.assign(at, at + n);
    at += n, left -= n;
    return true;
  }
};

void put32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

// The authority's name and the key blob that follows it; `blob_end` is where the blob says it ends.
int read_key(Cursor& c, ArchiveKey& out, bool private_allowed) {
  size_t name = 0;
  while (name < c.left && c.at[name]) ++name;
  if (name >= c.left) return SIGN_BAD_KEY;
  out = ArchiveKey{};
  out.authority.assign(reinterpret_cast<char const*>(c.at), name);
  c.at += name + 1, c.left -= name + 1;
  uint32_t length, blob, algorithm, magic;
  if (!c.u32(length) || !c.u32(blob) || !c.u32(algorithm) || !c.u32(magic) || !c.u32(out.bits) ||
      !c.u32(out.exponent))
    return SIGN_BAD_KEY;
  bool is_private = blob == kPrivateBlob && magic == kRsa2 && private_allowed;
  if (!is_private && !(blob == kPublicBlob && magic == kRsa1)) return SIGN_BAD_KEY;
  if (algorithm != kAlgorithm || out.bits < 64 || out.bits > kMaxBits || out.bits % 16 || out.exponent == 0)
    return SIGN_BAD_KEY;
  size_t l = out.bits / 8, h = l / 2;
  size_t expected = is_private ? 20 + 9 * size_t(out.bits) / 16 : 20 + l;
  if (length != expected || c.left < expected - 20) return SIGN_BAD_KEY;
  if (!c.bytes(l, out.n)) return SIGN_BAD_KEY;
  if (is_private && !(c.bytes(h, out.p) && c.bytes(h, out.q) && c.bytes(h, out.dp) && c.bytes(h, out.dq) &&
                      c.bytes(h, out.qinv) && c.bytes(l, out.d)))
    return SIGN_BAD_KEY;
  return 0;
}

using Pkey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Bn = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

Bn bn_le(std::vector<uint8_t> const& le) { return Bn(BN_lebin2bn(le.data(), int(le.size()), nullptr), BN_free); }

// The key as OpenSSL holds it.
Pkey to_pkey(ArchiveKey const& k) {
  Pkey none(nullptr, EVP_PKEY_free);
  std::unique_ptr<OSSL_PARAM_BLD, decltype(&OSSL_PARAM_BLD_free)> bld(OSSL_PARAM_BLD_new(), OSSL_PARAM_BLD_free);
  Bn n = bn_le(k.n), e(BN_new(), BN_free);
  if (!bld || !n || !e || !BN_set_word(e.get(), k.exponent)) return none;
  OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
  OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
  std::vector<Bn> keep;
  if (k.is_private()) {
    std::pair<char const*, std::vector<uint8_t> const*> parts[] = {
        {OSSL_PKEY_PARAM_RSA_D, &k.d},           {OSSL_PKEY_PARAM_RSA_FACTOR1, &k.p},
        {OSSL_PKEY_PARAM_RSA_FACTOR2, &k.q},     {OSSL_PKEY_PARAM_RSA_EXPONENT1, &k.dp},
        {OSSL_PKEY_PARAM_RSA_EXPONENT2, &k.dq},  {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, &k.qinv}};
    for (auto const& [name, value] : parts) {
      keep.push_back(bn_le(*value));
      if (!keep.back()) return none;
      OSSL_PARAM_BLD_push_BN(bld.get(), name, keep.back().get());
    }
  }
  std::unique_ptr<OSSL_PARAM, decltype(&OSSL_PARAM_free)> params(OSSL_PARAM_BLD_to_param(bld.get()), OSSL_PARAM_free);
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr),
                                                                  EVP_PKEY_CTX_free);
  EVP_PKEY* key = nullptr;
  if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) <= 0 ||
      EVP_PKEY_fromdata(ctx.get(), &key, k.is_private() ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params.get()) <= 0)
    return none;
  return Pkey(key, EVP_PKEY_free);
}

std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> pkcs1_sha1(EVP_PKEY* key, bool signing) {
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new(key, nullptr), EVP_PKEY_CTX_free);
  if (!ctx || (signing ? EVP_PKEY_sign_init(ctx.get()) : EVP_PKEY_verify_init(ctx.get())) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0 ||
      EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha1()) <= 0)
    ctx.reset();
  return ctx;
}

std::vector<uint8_t> le_fixed(BIGNUM const* v, size_t width) {
  std::vector<uint8_t> out(width);
  if (BN_bn2lebinpad(v, out.data(), int(width)) < 0) out.clear();
  return out;
}

bool quiet(char const*, ...) { return true; }

bool selected(std::string const& name, uint32_t version) {
  size_t dot = name.rfind('.');
  std::string ext = dot == std::string::npos ? std::string() : name.substr(dot + 1);
  for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  static char const* const kMedia[] = {"paa", "jpg", "p3d", "tga", "rvmat", "lip", "ogg",
                                       "wss", "png", "rtm", "pac", "fxy", "wrp"};
  static char const* const kScripts[] = {"sqf", "inc", "bikb", "ext", "fsm", "sqm", "hpp", "cfg", "sqs", "h", "sqfc"};
  if (version == 2) return std::none_of(std::begin(kMedia), std::end(kMedia), [&](char const* m) { return ext == m; });
  return std::any_of(std::begin(kScripts), std::end(kScripts), [&](char const* m) { return ext == m; });
}

}  // namespace

ArchiveSigner::ArchiveSigner() = default;

char const* ArchiveSigner::ErrorString(int code) {
  switch (code) {
    case SIGN_BAD_KEY: return "not a key file of the form servers read";
    case SIGN_BAD_SIGNATURE: return "malformed signature file";
    case SIGN_NO_TRAILER: return "the archive has no SHA-1 trailer: a signature over it would be useless";
    case SIGN_BROKEN_ARCHIVE: return "the archive's SHA-1 trailer does not match its bytes: a signature over it would be useless";
    case SIGN_NO_SIGNATURE: return "no signature file";
    case SIGN_UNKNOWN_AUTHORITY: return "unknown authority";
    case SIGN_KEY_MISMATCH: return "the trusted key of that authority did not make the signature";
    case SIGN_ARCHIVE_CHANGED:
      return "the archive check failed: its bytes changed since it was signed (names, prefix and signed files did not)";
    case SIGN_CONTENT_CHANGED:
      return "the archive, names and files checks failed: entry names, the prefix or signed files changed since it was signed";
    case SIGN_FILES_DIFFER: return "the files check failed alone: the signer chose or ordered the signed files differently";
    case SIGN_NOT_AN_ARCHIVE: return "the archive cannot be read";
    case SIGN_KEY_FAILED: return "a key pair cannot be made";
    default: return Vendrak::ErrorString(code);
  }
}

int ArchiveSigner::parse_key(uint8_t const* data, size_t size, ArchiveKey& out) {
  Cursor c{data, size};
  int r = read_key(c, out, true);
  if (!r && c.left) r = SIGN_BAD_KEY;  // a key file holds the key alone
  if (r) out = ArchiveKey{};
  return r;
}

std::vector<uint8_t> ArchiveSigner::key_bytes(ArchiveKey const& k, bool private_blob) {
  std::vector<uint8_t> out(k.authority.begin(), k.authority.end());
  out.push_back(0);
  put32(out, private_blob ? 20 + 9 * k.bits / 16 : 20 + k.bits / 8);
  put32(out, private_blob ? kPrivateBlob : kPublicBlob);
  put32(out, kAlgorithm);
  put32(out, private_blob ? kRsa2 : kRsa1);
  put32(out, k.bits);
  put32(out, k.exponent);
  out.insert(out.end(), k.n.begin(), k.n.end());
  if (private_blob)
    for (auto const* part : {&k.p, &k.q, &k.dp, &k.dq, &k.qinv, &k.d}) out.insert(out.end(), part->begin(), part->end());
  return out;
}

int ArchiveSigner::parse_signature(uint8_t const* data, size_t size, ArchiveSignature& out) {
  out = ArchiveSignature{};
  Cursor c{data, size};
  if (read_key(c, out.key, false)) return SIGN_BAD_SIGNATURE;
  uint32_t l = out.key.bits / 8, length;
  for (int i = 0; i < 3; ++i) {
    if (!c.u32(length) || length != l || !c.bytes(l, out.sig[i])) return SIGN_BAD_SIGNATURE;
    if (i == 0 && (!c.u32(out.version) || (out.version != 2 && out.version != 3))) return SIGN_BAD_SIGNATURE;
  }
  return c.left ? SIGN_BAD_SIGNATURE : 0;
}

std::vector<uint8_t> ArchiveSigner::signature_bytes(ArchiveSignature const& s) {
  std::vector<uint8_t> out = key_bytes(s.key, false);
  for (int i = 0; i < 3; ++i) {
    put32(out, uint32_t(s.sig[i].size()));
    out.insert(out.end(), s.sig[i].begin(), s.sig[i].end());
    if (i == 0) put32(out, s.version);
  }
  return out;
}

int ArchiveSigner::make_key(std::string const& authority, uint32_t bits, ArchiveKey& out) {
  return bis_guarded_call<SignErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&]() -> int {
    out = ArchiveKey{};
    if (bits < 512 || bits > kMaxBits || bits % 16) return SIGN_KEY_FAILED;
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr),
                                                                    EVP_PKEY_CTX_free);
    EVP_PKEY* raw = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), int(bits)) <= 0 ||
        EVP_PKEY_generate(ctx.get(), &raw) <= 0)
      return SIGN_KEY_FAILED;
    Pkey key(raw, EVP_PKEY_free);
    out.authority = authority;
    out.bits = bits;
    out.exponent = 65537;
    std::pair<char const*, std::vector<uint8_t>*> parts[] = {
        {OSSL_PKEY_PARAM_RSA_N, &out.n},           {OSSL_PKEY_PARAM_RSA_FACTOR1, &out.p},
        {OSSL_PKEY_PARAM_RSA_FACTOR2, &out.q},     {OSSL_PKEY_PARAM_RSA_EXPONENT1, &out.dp},
        {OSSL_PKEY_PARAM_RSA_EXPONENT2, &out.dq},  {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, &out.qinv},
        {OSSL_PKEY_PARAM_RSA_D, &out.d}};
    for (auto const& [name, value] : parts) {
      BIGNUM* v = nullptr;
      if (EVP_PKEY_get_bn_param(key.get(), name, &v) <= 0) return SIGN_KEY_FAILED;
      Bn held(v, BN_free);
      bool whole = value == &out.n || value == &out.d;
      *value = le_fixed(v, whole ? bits / 8 : bits / 16);
      // A prime that does not fit half the modulus's width cannot be stored: such a pair is refused.
      if (value->empty()) return SIGN_KEY_FAILED;
    }
    return 0;
  });
}

int ArchiveSigner::_hashes(std::string const& archive, uint32_t version, std::array<std::array<uint8_t, 20>, 3>& out) {
  BisDLL dll;
  Vendrak* pbo = dll.dll_GetVendrak();
  int r = pbo->pbo_Open(archive.c_str(), quiet, Vendrak::OPEN_NO_REPORT);
  if (r == PBO_CORRUPTED_SHA) return SIGN_BROKEN_ARCHIVE;
  if (r) return SIGN_NOT_AN_ARCHIVE;
  if (!pbo->pbo_GetStoredSha()) return SIGN_NO_TRAILER;
  std::memcpy(out[0].data(), pbo->pbo_GetComputedSha(), 20);

  // Names: lower case, of entries with data, in byte order; files: selected data in table order.
  std::vector<std::string> names;
  std::vector<pbo_entry const*> files;
  for (pbo_entry const* e = pbo->pbo_GetFirstEntry(); e; e = e->GetNext()) {
    if (e->pbe_GetStoredDataSize() == 0) continue;
    std::string name = e->pbe_GetFilename();
    for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
    names.push_back(name);
    if (selected(name, version)) files.push_back(e);
  }
  std::sort(names.begin(), names.end(), [](std::string const& a, std::string const& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
      return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
    });
  });
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  auto digest = [&](auto&& feed, uint8_t* into) {
    unsigned len = 0;
    if (!md || EVP_DigestInit_ex(md.get(), EVP_sha1(), nullptr) != 1) throw "sha1 computation failed";
    feed();
    if (EVP_DigestFinal_ex(md.get(), into, &len) != 1 || len != 20) throw "sha1 computation failed";
  };
  uint8_t namehash[20], filehash[20];
  digest([&] { for (auto const& n : names) EVP_DigestUpdate(md.get(), n.data(), n.size()); }, namehash);

  // The stored bytes of each selected entry, read in pieces, so that memory stays small.
  int fd = ::open(archive.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return SIGN_NOT_AN_ARCHIVE;
  bool read_ok = true;
  digest(
      [&] {
        if (files.empty()) {
          char const* nothing = version == 2 ? "nothing" : "gnihton";
          EVP_DigestUpdate(md.get(), nothing, 7);
          return;
        }
        std::vector<uint8_t> buf(1 << 20);
        for (pbo_entry const* e : files) {
          uint64_t at = pbo->pbo_GetDataStart() + e->pbe_GetDataOffset(), left = e->pbe_GetStoredDataSize();
          while (left && read_ok) {
            ssize_t n = ::pread(fd, buf.data(), size_t(std::min<uint64_t>(left, buf.size())), off_t(at));
            if (n <= 0) {
              read_ok = false;
              break;
            }
            EVP_DigestUpdate(md.get(), buf.data(), size_t(n));
            at += uint64_t(n), left -= uint64_t(n);
          }
        }
      },
      filehash);
  ::close(fd);
  if (!read_ok) return SIGN_NOT_AN_ARCHIVE;

  std::string prefix;
  if (TokenPair const* p = pbo->pbo_GetProperty("prefix")) {
    prefix = p->value();
    if (!prefix.empty() && prefix.back() != '\\') prefix += '\\';
  }
  digest([&] { EVP_DigestUpdate(md.get(), out[0].data(), 20), EVP_DigestUpdate(md.get(), namehash, 20),
               EVP_DigestUpdate(md.get(), prefix.data(), prefix.size()); },
         out[1].data());
  digest([&] { EVP_DigestUpdate(md.get(), filehash, 20), EVP_DigestUpdate(md.get(), namehash, 20),
               EVP_DigestUpdate(md.get(), prefix.data(), prefix.size()); },
         out[2].data());
  return 0;
}

int ArchiveSigner::archive_hashes(std::string const& archive, uint32_t version,
                                  std::array<std::array<uint8_t, 20>, 3>& out) {
  return bis_guarded_call<SignErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION,
                                      [&] { return _hashes(archive, version, out); });
}

int ArchiveSigner::sign(ArchiveKey const& key, std::string const& archive, uint32_t version, ArchiveSignature& out) {
  return bis_guarded_call<SignErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&]() -> int {
    out = ArchiveSignature{};
    if (!key.is_private() || (version != 2 && version != 3)) return SIGN_BAD_KEY;
    std::array<std::array<uint8_t, 20>, 3> hashes;
    if (int r = _hashes(archive, version, hashes)) return r;
    Pkey pkey = to_pkey(key);
    if (!pkey) return SIGN_BAD_KEY;
    size_t width = key.bits / 8;
    for (int i = 0; i < 3; ++i) {
      auto ctx = pkcs1_sha1(pkey.get(), true);
      std::vector<uint8_t> be(width);
      size_t len = be.size();
      if (!ctx || EVP_PKEY_sign(ctx.get(), be.data(), &len, hashes[i].data(), 20) <= 0 || len > width)
        return SIGN_BAD_KEY;
      // Big-endian from OpenSSL, stored little-endian: reversed first, then padded to the width.
      be.resize(len);
      out.sig[i].assign(be.rbegin(), be.rend());
      out.sig[i].resize(width, 0);
    }
    out.key = key;
    out.key.p.clear(), out.key.q.clear(), out.key.dp.clear(), out.key.dq.clear(), out.key.qinv.clear(), out.key.d.clear();
    out.version = version;
    return 0;
  });
}

int ArchiveSigner::verify(ArchiveKey const& key, std::string const& archive, ArchiveSignature const& s) {
  return bis_guarded_call<SignErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION, [&]() -> int {
    if (key.authority != s.key.authority) return SIGN_UNKNOWN_AUTHORITY;
    if (key.bits != s.key.bits || key.exponent != s.key.exponent || key.n != s.key.n) return SIGN_KEY_MISMATCH;
    std::array<std::array<uint8_t, 20>, 3> hashes;
    if (int r = _hashes(archive, s.version, hashes)) return r;
    ArchiveKey pub = key;
    pub.d.clear();
    Pkey pkey = to_pkey(pub);
    if (!pkey) return SIGN_BAD_KEY;
    bool ok[3];
    for (int i = 0; i < 3; ++i) {
      std::vector<uint8_t> be(s.sig[i].rbegin(), s.sig[i].rend());
      auto ctx = pkcs1_sha1(pkey.get(), false);
      // A value not below the modulus, or any padding but the exact block, fails here.
      ok[i] = ctx && EVP_PKEY_verify(ctx.get(), be.data(), be.size(), hashes[i].data(), 20) == 1;
    }
    // The second digest holds the first, so any change of the bytes fails both; the third holds
    // only the names, the prefix and the signed files, and so tells what changed.
    if (ok[0] && ok[1] && ok[2]) return 0;
    if (!ok[2] && ok[0]) return SIGN_FILES_DIFFER;
    if (!ok[2] || (ok[0] && !ok[1])) return SIGN_CONTENT_CHANGED;
    return SIGN_ARCHIVE_CHANGED;
  });
}

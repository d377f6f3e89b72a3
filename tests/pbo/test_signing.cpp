#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "pbo/ArchiveSigner.h"
#include "pbo/PboBuilder.h"

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> bytes_of(fs::path const& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

fs::path signing() { return fs::path(VENDRAK_CORPUS) / "signing"; }

struct Vector {
  char const* archive;
  char const* private_key;
  char const* public_key;
  char const* signature;
  uint32_t version;
};
Vector const kVectors[] = {
    {"ace_fcs.pbo", "ace_3.5.1.0.biprivatekey", "ace_3.5.1.0.bikey", "ace_fcs.pbo.ace_3.5.1.0.bisign", 2},
    {"hemtt_ace_ai_source.pbo", "hemtt_ace_ai_test.biprivatekey", "hemtt_ace_ai_test.bikey",
     "hemtt_ace_ai_source.pbo.test.bisign", 3},
};

TEST(Signing, RealSignaturesVerifyAndAreReproducedByteForByte) {
  if (!fs::is_directory(signing())) GTEST_SKIP() << "no corpus";
  for (auto const& v : kVectors) {
    auto priv_bytes = bytes_of(signing() / v.private_key), pub_bytes = bytes_of(signing() / v.public_key),
         sig_bytes = bytes_of(signing() / v.signature);
    ArchiveKey priv, pub;
    ArchiveSignature stored, made;
    ASSERT_EQ(ArchiveSigner::parse_key(priv_bytes.data(), priv_bytes.size(), priv), 0) << v.private_key;
    ASSERT_EQ(ArchiveSigner::parse_key(pub_bytes.data(), pub_bytes.size(), pub), 0) << v.public_key;
    ASSERT_EQ(ArchiveSigner::parse_signature(sig_bytes.data(), sig_bytes.size(), stored), 0) << v.signature;
    EXPECT_EQ(stored.version, v.version);
    EXPECT_EQ(ArchiveSigner::key_bytes(priv, true), priv_bytes) << v.private_key;
    EXPECT_EQ(ArchiveSigner::key_bytes(pub, false), pub_bytes) << v.public_key;
    ArchiveSigner signer;
    std::string archive = (signing() / v.archive).string();
    EXPECT_EQ(signer.verify(pub, archive, stored), 0) << v.archive;
    ASSERT_EQ(signer.sign(priv, archive, v.version, made), 0) << v.archive;
    EXPECT_EQ(ArchiveSigner::signature_bytes(made), sig_bytes) << v.archive;
  }
}

// An archive made in the test, signed with a fresh key, and changed in each way a check looks at.
TEST(Signing, FreshKeysSignAndEachChangeFailsItsCheck) {
  ArchiveSigner signer;
  ArchiveKey key;
  ASSERT_EQ(signer.make_key("vendrak_test", 1024, key), 0);
  auto again = ArchiveSigner::key_bytes(key, true);
  ArchiveKey reread;
  ASSERT_EQ(ArchiveSigner::parse_key(again.data(), again.size(), reread), 0);
  EXPECT_EQ(reread.d, key.d);

  fs::path dir = fs::temp_directory_path() / ("vendrak_sign_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  auto make = [&](std::string prefix, bool sorted, std::vector<std::pair<std::string, std::string>> files) {
    pbotest::Builder b;
    if (!prefix.empty()) b.prop("prefix", prefix);
    if (sorted) std::sort(files.begin(), files.end());
    for (auto const& [n, d] : files) b.file(n, d);
    return b.seal(pbotest::Builder::SHA).build();
  };
  struct Case {
    char const* name;
    std::string prefix;
    bool sorted;
    std::vector<std::pair<std::string, std::string>> files;
  } const cases[] = {
      {"sorted with prefix", "z\\mod\\addons\\a", true, {{"config.bin", "cfg"}, {"fn.sqf", "code"}, {"t.paa", "img"}}},
      {"unsorted without prefix", "", false, {{"z.sqf", "1"}, {"a.hpp", "2"}, {"m.paa", "3"}}},
      {"nothing selected", "x\\y", true, {{"tex.paa", "img"}, {"empty.sqf", ""}}},
  };
  for (auto const& c : cases)
    for (uint32_t version : {2u, 3u}) {
      std::string what = std::string(c.name) + " v" + std::to_string(version);
      fs::path archive = dir / "a.pbo";
      pbotest::write_file(archive.string(), make(c.prefix, c.sorted, c.files));
      ArchiveSignature sig;
      ASSERT_EQ(signer.sign(key, archive.string(), version, sig), 0) << what;
      auto sig_bytes = ArchiveSigner::signature_bytes(sig);
      ArchiveSignature parsed;
      ASSERT_EQ(ArchiveSigner::parse_signature(sig_bytes.data(), sig_bytes.size(), parsed), 0) << what;
      EXPECT_EQ(signer.verify(key, archive.string(), parsed), 0) << what;

      struct Change {
        char const* name;
        std::string bytes;
        int expected;
      };
      auto files = c.files;
      files[0].second += "!";
      auto renamed = c.files;
      renamed[0].first = "renamed_" + renamed[0].first;
      std::string flipped = make(c.prefix, c.sorted, c.files);
      flipped[flipped.size() - 25] ^= 1;
      // A signed file's content fails the files check too; an unsigned one only the archive's.
      bool first_selected = version == 2 ? c.files[0].first.find(".paa") == std::string::npos
                                         : c.files[0].first.find(".sqf") != std::string::npos ||
                                               c.files[0].first.find(".hpp") != std::string::npos;
      std::vector<Change> changes = {
          {"one byte, trailer not updated", flipped, SIGN_BROKEN_ARCHIVE},
          {"another prefix", make(c.prefix + "x", c.sorted, c.files), SIGN_CONTENT_CHANGED},
          {"an entry renamed", make(c.prefix, c.sorted, renamed), SIGN_CONTENT_CHANGED},
          {"a file changed", make(c.prefix, c.sorted, files),
           first_selected ? SIGN_CONTENT_CHANGED : SIGN_ARCHIVE_CHANGED},
      };
      for (auto const& ch : changes) {
        pbotest::write_file(archive.string(), ch.bytes);
        EXPECT_EQ(signer.verify(key, archive.string(), parsed), ch.expected) << what << ": " << ch.name;
      }
    }
  fs::remove_all(dir);
}

TEST(Signing, MalformedKeyAndSignatureFilesAreRefused) {
  if (!fs::is_directory(signing())) GTEST_SKIP() << "no corpus";
  auto pub = bytes_of(signing() / "ace_3.5.1.0.bikey");
  auto sig = bytes_of(signing() / "ace_fcs.pbo.ace_3.5.1.0.bisign");
  size_t name = std::string("ace_3.5.1.0").size() + 1;
  struct Case {
    char const* name;
    std::vector<uint8_t> bytes;
    bool is_key;
  };
  auto with = [](std::vector<uint8_t> b, size_t at, uint8_t v) {
    b[at] = v;
    return b;
  };
  std::vector<Case> cases = {
      {"empty key", {}, true},
      {"key without its name's end", std::vector<uint8_t>(pub.begin(), pub.begin() + 5), true},
      {"truncated key", std::vector<uint8_t>(pub.begin(), pub.end() - 1), true},
      {"key with bytes after it", [&] { auto b = pub; b.push_back(0); return b; }(), true},
      {"length disagreeing with the bits", with(pub, name, 149), true},
      {"zero bit length", with(with(pub, name + 16, 0), name + 17, 0), true},
      {"huge bit length", with(pub, name + 19, 0x7F), true},
      {"private magic in a public blob", with(pub, name + 15, '2'), true},
      {"truncated signature", std::vector<uint8_t>(sig.begin(), sig.end() - 1), false},
      {"signature version 4", with(sig, pub.size() + 4 + 128, 4), false},
      {"signature length field wrong", with(sig, pub.size(), 127), false},
  };
  for (auto const& c : cases) {
    if (c.is_key) {
      ArchiveKey k;
      EXPECT_EQ(ArchiveSigner::parse_key(c.bytes.data(), c.bytes.size(), k), SIGN_BAD_KEY) << c.name;
    } else {
      ArchiveSignature s;
      EXPECT_EQ(ArchiveSigner::parse_signature(c.bytes.data(), c.bytes.size(), s), SIGN_BAD_SIGNATURE) << c.name;
    }
  }
  // A signature whose value is not below the modulus fails its check, it does not crash.
  ArchiveKey key;
  ArchiveSignature s;
  ASSERT_EQ(ArchiveSigner::parse_key(pub.data(), pub.size(), key), 0);
  ASSERT_EQ(ArchiveSigner::parse_signature(sig.data(), sig.size(), s), 0);
  std::fill(s.sig[0].begin(), s.sig[0].end(), 0xFF);
  ArchiveSigner signer;
  EXPECT_EQ(signer.verify(key, (signing() / "ace_fcs.pbo").string(), s), SIGN_ARCHIVE_CHANGED);
}

}  // namespace

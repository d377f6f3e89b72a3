// How extraction writes: existing files are kept, refused or replaced; every file goes through a
// temporary beside it; packed entries expanded on helper threads land with the right bytes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "PboBuilder.h"

using namespace pbotest;
namespace fs = std::filesystem;

namespace {
struct WriteFixture : ToolFixture {
  std::string archive = dir / "arc.pbo", out = dir / "out";
  int extract(Builder const& b, int flags = 0) {
    write_file(archive, b.build());
    return tool->pbo_Extract(archive.c_str(), capture, flags, nullptr, out.c_str());
  }
  // Names left below the output folder that no extraction should leave: its temporary files.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> found;
    if (fs::exists(out))
      for (auto& e : fs::recursive_directory_iterator(out))
        if (e.path().filename().string().rfind(".vdk-", 0) == 0) found.push_back(e.path().string());
    return found;
  }
};

TEST_F(WriteFixture, ExistingFilesAreKeptRefusedOrReplaced) {
  Builder b = Builder().prop("prefix", "p").file("same.txt", "same").file("other.txt", "new").file("fresh.txt", "f");
  b.file("packed.txt", std::string(5000, 'z'), true).seal(Builder::SHA);
  struct Case {
    char const* name;
    int flags;
    int result;
    char const* other_after;  // other.txt once the extraction is done
    bool refusal_named;
  } const cases[] = {
      {"refused without force", 0, 53, "old", true},
      {"replaced with force", Vendrak::EXTRACT_FORCE, 0, "new", false},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    clear_captured();
    fs::remove_all(out);
    fs::create_directories(out + "/p");
    write_file(out + "/p/same.txt", "same");
    write_file(out + "/p/other.txt", "old");
    write_file(out + "/p/packed.txt", "stale");
    fs::last_write_time(out + "/p/same.txt", fs::file_time_type::clock::now() - std::chrono::hours(100));
    auto same_time = fs::last_write_time(out + "/p/same.txt");

    EXPECT_EQ(extract(b, c.flags), c.result) << errors();
    EXPECT_EQ(read_file(out + "/p/other.txt"), c.other_after);
    EXPECT_EQ(read_file(out + "/p/packed.txt"), c.flags ? std::string(5000, 'z') : "stale");
    EXPECT_EQ(read_file(out + "/p/fresh.txt"), "f");  // the other entries are still written
    EXPECT_EQ(fs::last_write_time(out + "/p/same.txt"), same_time);  // an identical file is left alone
    EXPECT_TRUE(fs::exists(out + "/p/$PBOPREFIX$.txt"));
    bool named = errors().find("'other.txt': Pbo entry would overwrite a different file\r\n") != std::string::npos &&
                 errors().find("'packed.txt': Pbo entry would overwrite a different file\r\n") != std::string::npos;
    EXPECT_EQ(named, c.refusal_named) << errors();
    EXPECT_TRUE(leftovers().empty());
  }
  // Extracting the same archive again changes nothing and succeeds.
  EXPECT_EQ(extract(b), 0) << errors();
  EXPECT_STREQ(Vendrak::ErrorString(-53), "Pbo entry would overwrite a different file");
}

TEST_F(WriteFixture, AFailedWriteLeavesNeitherAPartialFileNorATemporary) {
  // A file-size limit makes the write of the big entry fail part-way.
  Builder b = Builder().file("small.txt", "s").file("big.bin", std::string(200000, 'b')).file("after.txt", "a");
  write_file(archive, b.build());
  struct rlimit old;
  ::getrlimit(RLIMIT_FSIZE, &old);
  auto previous = ::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = old;
  small.rlim_cur = 64 * 1024;
  ::setrlimit(RLIMIT_FSIZE, &small);
  int r = tool->pbo_Extract(archive.c_str(), capture, 0, nullptr, out.c_str());
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::signal(SIGXFSZ, previous);
  EXPECT_EQ(r, 6);
  EXPECT_EQ(read_file(out + "/arc/small.txt"), "s");
  EXPECT_FALSE(fs::exists(out + "/arc/big.bin"));
  EXPECT_NE(errors().find("File too large"), std::string::npos) << errors();
  EXPECT_TRUE(leftovers().empty());
}

// Many packed entries, some bigger than what the helpers take, some broken: the ones before a
// broken entry land byte for byte; a broken one leaves no file behind.
TEST_F(WriteFixture, PackedEntriesExpandedInParallelLandExactly) {
  Builder b;
  std::vector<std::pair<std::string, std::string>> expect;
  for (int i = 0; i < 40; ++i) {
    std::string body(static_cast<size_t>(1000 + i * 7919), static_cast<char>('a' + i % 26));
    for (size_t k = 0; k < body.size(); k += 13) body[k] = static_cast<char>(k * 31 + i);
    std::string name = "d" + std::to_string(i % 5) + "\\f" + std::to_string(i) + ".bin";
    b.file(name, body, i % 3 != 0);
    expect.emplace_back("d" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".bin", body);
  }
  std::string big(17u << 20, 'q');  // above the helpers' limit: expanded on the calling thread
  big[12345] = 'x';
  b.file("big.bin", big, true);
  expect.emplace_back("big.bin", big);
  ASSERT_EQ(extract(b.seal(Builder::SHA)), 0) << errors();
  for (auto const& [name, bytes] : expect) EXPECT_TRUE(read_file(out + "/arc/" + name) == bytes) << name;

  std::string packed = lzss_pack(std::string(3000, 'k'));
  packed[packed.size() - 1] ^= 0x55;  // the checksum no longer matches
  Builder broken = Builder().file("good.txt", std::string(4000, 'g'), true).file("bad.txt", packed);
  broken.set(&File::method, kCprs).set(&File::original, 3000).file("z.txt", "z");
  fs::remove_all(out);
  EXPECT_EQ(extract(broken), 10);
  EXPECT_EQ(read_file(out + "/arc/good.txt"), std::string(4000, 'g'));
  EXPECT_FALSE(fs::exists(out + "/arc/bad.txt"));
  EXPECT_TRUE(leftovers().empty());
}

}  // namespace

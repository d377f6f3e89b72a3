// The archive is read through a mapping: every size keeps its zero tail, and an archive that
// shrinks while it is read gives a result code instead of a crash.
#include <gtest/gtest.h>
#include <unistd.h>

#include "PboBuilder.h"
#include "io/MappedFile.h"

using namespace pbotest;
namespace fs = std::filesystem;

namespace {
// Sizes around a page boundary: the buffer must still read as a terminated text.
TEST(MappedArchive, EverySizeIsFollowedByZeros) {
  TempDir dir;
  long page = ::sysconf(_SC_PAGESIZE);
  for (long size : {0L, 1L, page - 4, page - 3, page - 1, page, page + 1, 2 * page}) {
    SCOPED_TRACE(size);
    std::string path = dir / "f.bin";
    write_file(path, std::string(static_cast<size_t>(size), '\xff'));
    MappedFile m;
    ASSERT_EQ(m.mf_Open(path.c_str()), 0);
    ASSERT_EQ(m.mf_Size(), static_cast<uint64_t>(size));
    for (long i = 0; i < 4; ++i) EXPECT_EQ(m.mf_Data()[size + i], 0);
    if (size) {
      EXPECT_EQ(m.mf_Data()[size - 1], 0xff);
    }
  }
  MappedFile m;
  EXPECT_EQ(m.mf_Open((dir / "missing").c_str()), ENOENT);
  EXPECT_EQ(m.mf_Open(dir.path.c_str()), EISDIR);
}

struct Shrink {
  static inline std::string path;
  static inline uint64_t keep = 0;
  static inline int calls = 0;
  // Cuts the archive short once the second entry is about to be written.
  static void hook(void*, uint64_t, uint64_t, char const* entry) {
    if (entry && *entry && ++calls == 2) {
      EXPECT_EQ(::truncate(path.c_str(), static_cast<off_t>(keep)), 0);
    }
  }
};

TEST(MappedArchive, ShrinkingWhileExtractingGivesAResultCode) {
  struct Case {
    char const* name;
    bool packed;
    int flags;
  } const cases[] = {
      {"stored, digest checked alongside", false, 0},
      {"packed, digest checked alongside", true, 0},
      {"stored, digest checked first", false, Vendrak::EXTRACT_WARNINGS_ARE_ERRORS},
      {"packed, no digest", true, -1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    Builder b = Builder().prop("prefix", "s");
    for (int i = 0; i < 4; ++i) {
      std::string body(300000, static_cast<char>('a' + i));
      for (size_t k = 0; k < body.size(); k += 7) body[k] = static_cast<char>(k);
      b.file("e" + std::to_string(i) + ".bin", body, c.packed);
    }
    if (c.flags >= 0) b.seal(Builder::SHA);
    std::string bytes = b.build();
    Shrink::path = dir / "arc.pbo";
    Shrink::keep = bytes.size() / 3;
    Shrink::calls = 0;
    write_file(Shrink::path, bytes);
    BisDLL dll;
    Vendrak* tool = dll.dll_GetVendrak();
    clear_captured();
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
    tool->pbo_SetProgressHook(Shrink::hook, nullptr);
    int flags = c.flags < 0 ? 0 : c.flags;
    int r = tool->pbo_Extract(Shrink::path.c_str(), capture, flags, nullptr, (dir / "out").c_str());
    EXPECT_EQ(r, 1) << errors();
    EXPECT_NE(errors().find("arc.pbo: the archive shrank while it was being read\r\n"), std::string::npos) << errors();
    for (auto& e : fs::recursive_directory_iterator(dir.path))
      EXPECT_NE(e.path().filename().string().rfind(".vdk-", 0), 0u) << e.path();
    // The tool is usable afterwards: the cut archive opens and reports its own fault.
    EXPECT_NE(tool->pbo_Open(Shrink::path.c_str(), capture, 8), 0);
  }
}
}  // namespace

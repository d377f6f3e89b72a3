#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "text/FileTreeEx.h"

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class FolderScan : public testing::Test {
 protected:
  fs::path root = fs::temp_directory_path() / ("vendrak_scan_" + std::to_string(::getpid()));
  std::string r = root.string();
  void SetUp() override { fs::create_directories(root); }
  void TearDown() override { fs::remove_all(root); }
  void file(std::string const& rel) {
    fs::create_directories((root / rel).parent_path());
    std::ofstream(root / rel) << "x";
  }
  static Names names(FileTreeEx& t) {
    Names v;
    for (int more = t.ft_GetCount() != 0; more; more = t.ft_Next()) v.emplace_back(t.ft_GetEntry());
    std::sort(v.begin(), v.end());
    return v;
  }
};

TEST_F(FolderScan, FilterModes) {
  for (char const* f : {"x.txt", "y.TXT", "z.bin", ".hidden.txt"}) file(f);
  for (char const* d : {".svn", "sub"}) fs::create_directories(root / d);
  std::tuple<std::string, unsigned, Names> const cases[] = {  // concatenated lists carry inner zeros
      {"*.txt", 1, {"sub", "x.txt", "y.TXT"}}, {"*.txt", 3, {"sub", "z.bin"}},
      {std::string("*.txt\0z.bin\0", 13), 0, {"sub", "x.txt", "y.TXT", "z.bin"}},
      {std::string("x.txt\0 z.bin \0", 15), 2, {"sub", "y.TXT"}},
      {"", 0, {"sub", "x.txt", "y.TXT", "z.bin"}}, {"", 3, {"sub", "x.txt", "y.TXT", "z.bin"}},  // no list: all pass
      {"bin", 1, {"sub"}},  // a bare word is a name unless it is one of the known extensions
  };
  for (auto const& [filter, mode, expected] : cases) {
    FileTreeEx t;
    EXPECT_EQ(t.ft_OpenDirNew((r + "\\").c_str(), filter.c_str(), mode), 1) << mode << filter;
    EXPECT_EQ(names(t), expected) << mode << " " << filter;
  }
  fs::remove_all(root / "sub");
  FileTreeEx t;
  EXPECT_EQ(t.ft_OpenDirNew(r.c_str(), "*", 3), 0);
  EXPECT_STREQ(t.ft_GetEntry(), "");
  for (std::string bad : {r + "/missing", r + "/x.txt", std::string()})
    EXPECT_EQ(t.ft_OpenDir(bad.empty() ? nullptr : bad.c_str(), nullptr), -1) << bad;
}

struct Visits {
  Names seen;
  std::string base, stop_at;
  int stop_with = 0;
};

int record(void const* context, int kind, char const* name) {
  auto* v = static_cast<Visits*>(const_cast<void*>(context));
  std::string n = std::string(name).substr(v->base.size());
  v->seen.push_back(std::to_string(kind) + ":" + n);
  return n == v->stop_at ? v->stop_with : 0;
}

TEST_F(FolderScan, WalkIsPreOrderAndFiltersAtEveryDepth) {
  for (char const* f : {"s/f.txt", "s/t/deep.txt", "s/h.bin", "g.txt"}) file(f);
  fs::create_directory_symlink(root, root / "s" / "loop");  // a linked folder is never followed
  fs::create_symlink(root / "g.txt", root / "s" / "alias.txt");  // a linked file counts
  std::tuple<unsigned, char const*, Names> const cases[] = {
      {7, "", {"0:/g.txt", "0:/s/alias.txt", "0:/s/f.txt", "0:/s/h.bin", "0:/s/t/deep.txt", "1:/s", "1:/s/t"}},
      {5, "*.txt", {"0:/g.txt", "0:/s/alias.txt", "0:/s/f.txt", "0:/s/t/deep.txt"}},
      {2, "", {"1:/s"}}, {1, "", {"0:/g.txt"}}, {6, "", {"1:/s", "1:/s/t"}},
  };
  for (auto const& [mode, filter, visits] : cases) {
    FileTreeEx t;
    ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), filter, 1), 1);
    Visits v{{}, r, "", 0};
    EXPECT_EQ(t.ft_ProcessDir(&v, record, mode), 0);
    // The listing order is the system's: a folder must come before everything inside it.
    for (size_t i = 0; i < v.seen.size(); ++i)
      for (size_t j = 0; j < i; ++j)
        EXPECT_NE(v.seen[j].substr(2).rfind(v.seen[i].substr(2) + "/", 0), 0u) << v.seen[i] << " after " << v.seen[j];
    std::sort(v.seen.begin(), v.seen.end());
    EXPECT_EQ(v.seen, visits) << mode;
  }
  // A non-zero visit ends the walk at once.
  FileTreeEx t;
  ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), "", 0), 1);
  Visits v{{}, r, "/s", 42};
  EXPECT_EQ(t.ft_ProcessDir(&v, record, 7), 42);
  EXPECT_EQ(v.seen.back(), "1:/s");
  EXPECT_EQ(std::count(v.seen.begin(), v.seen.end(), "0:/s/f.txt"), 0);
  // A subfolder gone between the scan and the walk fails it when it is to be entered.
  fs::remove_all(root / "s");
  Visits w{{}, r, "", 0};
  t.ft_rewind();
  EXPECT_EQ(t.ft_ProcessDir(&w, record, 5), -1);
  EXPECT_EQ(t.ft_ProcessDir(&w, record, 3), 0);
}

}  // namespace

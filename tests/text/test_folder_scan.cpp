#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "text/FileTreeEx.h"

namespace {

namespace fs = std::filesystem;

class FolderScan : public testing::Test {
 protected:
  fs::path root = fs::temp_directory_path() / ("vendrak_scan_" + std::to_string(::getpid()));
  std::string r = root.string();
  void SetUp() override { fs::create_directories(root); }
  void TearDown() override {
    fs::remove_all(root);
  }
  void file(std::string const& rel, std::string const& bytes = "x") {
    fs::create_directories((root / rel).parent_path());
    std::ofstream(root / rel, std::ios::binary) << bytes;
  }
  std::vector<std::string> names(FileTreeEx& t) {
    std::vector<std::string> v;
    if (t.ft_GetCount() == 0) return v;
    t.ft_rewind();
    do v.emplace_back(t.ft_GetEntry());
    while (t.ft_Next());
    std::sort(v.begin(), v.end());
    return v;
  }
};

using Names = std::vector<std::string>;

TEST_F(FolderScan, FilterModes) {
  file("x.txt");
  file("y.TXT");
  file("z.bin");
  file(".hidden.txt");
  fs::create_directories(root / ".svn");
  fs::create_directories(root / "sub");
  struct Case {
    char const* filter;
    size_t filter_len;  // concatenated lists carry inner zeros
    unsigned mode;
    int result;
    Names names;
  } const cases[] = {
      {"*.txt", 6, 1, 1, {"sub", "x.txt", "y.TXT"}},
      {"*.txt", 6, 3, 1, {"sub", "z.bin"}},
      {"*.txt\0z.bin\0", 13, 0, 1, {"sub", "x.txt", "y.TXT", "z.bin"}},
      {"x.txt\0 z.bin \0", 15, 2, 1, {"sub", "y.TXT"}},
      {"", 1, 0, 1, {"sub", "x.txt", "y.TXT", "z.bin"}},  // no list: everything passes
      {nullptr, 0, 3, 1, {"sub", "x.txt", "y.TXT", "z.bin"}},
      {"bin", 4, 1, 1, {"sub"}},  // a bare word is a name unless it is one of the known extensions
  };
  for (auto const& c : cases) {
    std::string filter = c.filter ? std::string(c.filter, c.filter_len) + std::string(2, '\0') : "";
    FileTreeEx t;
    EXPECT_EQ(t.ft_OpenDirNew((r + "\\").c_str(), c.filter ? filter.c_str() : nullptr, c.mode), c.result)
        << c.mode << " " << (c.filter ? c.filter : "(null)");
    EXPECT_EQ(names(t), c.names) << c.mode << " " << (c.filter ? c.filter : "(null)");
  }
}

TEST_F(FolderScan, OnlyFilteredOutEntries) {
  fs::create_directories(root / ".svn");
  file("x.txt", "12345");
  FileTreeEx t;
  EXPECT_EQ(t.ft_OpenDirNew(r.c_str(), "*.txt", 3), 0);
  EXPECT_STREQ(t.ft_GetEntry(), "");
  EXPECT_EQ(t.ft_Next(), 0);
  ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), "*.txt", 1), 1);
  EXPECT_STREQ(t.ft_GetEntry(), "x.txt");
  EXPECT_EQ(t.ft_GetSize(), 5);
  EXPECT_FALSE(t.ft_IsDir());
  EXPECT_NE(t.ft_GetTimeStamp(), 0);
  GenString full;
  EXPECT_EQ(std::string(t.ft_GetEntry(full)), r + "/x.txt");
}

TEST_F(FolderScan, FoldersThatCannotBeScanned) {
  file("plain.txt");
  FileTreeEx t;
  EXPECT_EQ(t.ft_OpenDir((r + "/missing").c_str(), nullptr), -1);
  EXPECT_EQ(t.ft_OpenDir((r + "/plain.txt").c_str(), nullptr), -1);
  EXPECT_EQ(t.ft_OpenDir(nullptr, nullptr), -1);
}

struct Visits {
  std::vector<std::string> seen;
  std::string stop_at;
  int stop_with = 0;
  std::string base;
};

int record(void const* context, int kind, char const* name) {
  auto* v = static_cast<Visits*>(const_cast<void*>(context));
  std::string n = name;
  if (n.rfind(v->base, 0) == 0) n = n.substr(v->base.size());
  v->seen.push_back(std::to_string(kind) + ":" + n);
  return n == v->stop_at ? v->stop_with : 0;
}

TEST_F(FolderScan, WalkIsPreOrder) {
  file("s/f.txt");
  file("s/t/deep.txt");
  file("s/h.bin");
  file("g.txt");
  struct Case {
    unsigned mode;
    char const* filter;
    std::vector<Names> orders;  // the listing order of each folder is the system's
  } const cases[] = {
      {7, "", {{"1:/s", "0:/s/f.txt", "1:/s/t", "0:/s/t/deep.txt", "0:/s/h.bin", "0:/g.txt"}}},
      {5, "*.txt", {{"0:/s/f.txt", "0:/s/t/deep.txt", "0:/g.txt"}}},
      {2, "", {{"1:/s"}}},  // folders reported, never entered
      {1, "", {{"0:/g.txt"}}},
      {6, "", {{"1:/s", "1:/s/t"}}},
  };
  for (auto const& c : cases) {
    FileTreeEx t;
    ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), c.filter, 1), 1);
    Visits v;
    v.base = r;
    EXPECT_EQ(t.ft_ProcessDir(&v, record, c.mode), 0);
    // Whatever the listing order, a folder comes before everything inside it, and the set of
    // visits is the expected one.
    auto sorted = v.seen;
    auto want = c.orders[0];
    std::sort(sorted.begin(), sorted.end());
    std::sort(want.begin(), want.end());
    EXPECT_EQ(sorted, want) << c.mode;
    for (size_t i = 0; i < v.seen.size(); ++i)
      for (size_t j = 0; j < i; ++j) {
        std::string inner = v.seen[j].substr(2), outer = v.seen[i].substr(2);
        EXPECT_NE(inner.rfind(outer + "/", 0), 0u) << outer << " came after " << inner;
      }
  }
}

TEST_F(FolderScan, VisitResultEndsTheWalk) {
  file("s/f.txt");
  file("g.txt");
  FileTreeEx t;
  ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), "", 0), 1);
  Visits v;
  v.base = r;
  v.stop_at = "/s";
  v.stop_with = 42;
  EXPECT_EQ(t.ft_ProcessDir(&v, record, 7), 42);
  EXPECT_EQ(v.seen.back(), "1:/s");
  EXPECT_EQ(std::count(v.seen.begin(), v.seen.end(), "0:/s/f.txt"), 0);
}

TEST_F(FolderScan, LinkedFoldersAreNotFollowed) {
  file("s/f.txt");
  fs::create_directory_symlink(root, root / "s" / "loop");
  fs::create_symlink(root / "s" / "f.txt", root / "alias.txt");
  FileTreeEx t;
  ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), "", 0), 1);
  Visits v;
  v.base = r;
  EXPECT_EQ(t.ft_ProcessDir(&v, record, 7), 0);
  std::sort(v.seen.begin(), v.seen.end());
  EXPECT_EQ(v.seen, (Names{"0:/alias.txt", "0:/s/f.txt", "1:/s"}));
}

TEST_F(FolderScan, SubfolderGoneBeforeTheWalkFailsIt) {
  file("s/x.txt");
  FileTreeEx t;
  ASSERT_EQ(t.ft_OpenDirNew(r.c_str(), "", 0), 1);
  fs::remove_all(root / "s");
  Visits v;
  EXPECT_EQ(t.ft_ProcessDir(&v, record, 5), -1);
  EXPECT_EQ(t.ft_ProcessDir(&v, record, 3), 0) << "without descending the snapshot alone is walked";
}

}  // namespace

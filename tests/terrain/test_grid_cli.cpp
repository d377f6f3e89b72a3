// The grid and map commands as a user runs them: terrain to grid to terrain through files, damaged
// inputs refused with the file and line named and nothing written.
#include <gtest/gtest.h>

#include "support/CliRun.h"
#include "terrain/WrpTestUtil.h"

using namespace wrp_test;

namespace {
TEST(GridCli, HeightmapsAndMapsThroughTheTool) {
  TempFolder tmp;
  {
    Loaded l;
    fill_small(*l.t, 4, 8, 6);
    ASSERT_EQ(l.t->wrp_Create((tmp / "t.wrp").c_str(), "8WVR"), 0);
  }
  auto q = [&](char const* name) { return "'" + tmp / name + "'"; };
  put_file(tmp / "short.asc", "ncols 3\nnrows 2\ncellsize 10\n1 2 3\n4 5\n");
  put_file(tmp / "objects.txt", "0 x.p3d 1 2 3 90 one\n");
  put_file(tmp / "taken.wrp", "someone's file");
  struct Case {
    std::string args;
    int status;
    char const* out;  // expected in standard output
    char const* err;  // expected in standard error
  } const cases[] = {
      {"wrp heightmap " + q("t.wrp") + " -o " + q("t.asc"), 0, "8 x 8 heights of 20 m cells, -3 m to 6.4500003 m\n",
       ""},
      {"wrp heightmap " + q("t.wrp") + " -o " + q("t.PNG"), 0, "-3 m (black) to 6.4500003 m (white)", ""},
      {"wrp heightmap " + q("t.wrp") + " -o " + q("t.xyz"), 0, "", ""},
      {"wrp heightmap " + q("t.wrp") + " -o - --format asc", 0, "ncols 8\nnrows 8\n", "8 x 8 heights"},
      {"wrp heightmap " + q("t.wrp") + " -o " + q("t.txt"), 64, "", "t.txt: cannot tell the form from the name"},
      {"wrp heightmap " + q("none.wrp") + " -o " + q("n.asc"), 3, "", "none.wrp: No such file or directory"},
      {"wrp objects " + q("t.wrp") + " -o " + q("t.objects"), 0, "", ""},
      {"wrp from-heightmap " + q("t.asc") + " " + q("back.wrp") + " --objects " + q("t.objects"), 0,
       "8 x 8 heights of 20 m cells, 6 objects of 2 models", ""},
      {"wrp heightmap " + q("back.wrp") + " -o " + q("back.asc"), 0, "", ""},
      {"wrp from-heightmap " + q("t.xyz") + " " + q("fromxyz.wrp") + " --cell 2.5", 0, "of 2.5 m cells", ""},
      {"wrp from-heightmap " + q("short.asc") + " " + q("x.wrp"), 42, "",
       "short.asc: line 5 (row 2) has 2 heights where ncols is 3 (42)"},
      {"wrp from-heightmap " + q("t.asc") + " " + q("x.wrp") + " --objects " + q("objects.txt"), 49, "",
       "objects.txt: line 1: the scale 'one' is not a number (49)"},
      {"wrp from-heightmap " + q("t.asc") + " " + q("x.wrp") + " --cell 0", 64, "", "cells are 0.01 to 10000 m"},
      {"wrp from-heightmap " + q("t.asc") + " " + q("taken.wrp"), 6, "", "taken.wrp: exists and differs"},
      {"wrp from-heightmap " + q("t.PNG") + " " + q("x.wrp"), 40, "", "t.PNG: the first line is neither"},
      {"wrp map " + q("t.wrp") + " -o " + q("m.png"), 0, "a map of 8 x 8 pixels", ""},
      {"wrp map " + q("t.wrp") + " -o " + q("big.png") + " --size 64", 0, "a map of 64 x 64 pixels", ""},
      {"wrp map " + q("t.wrp") + " -o " + q("m.jpg"), 64, "", "m.jpg: a map is a PNG picture"},
      {"wrp map " + q("t.wrp") + " -o " + q("m.png") + " --size 99999", 64, "", "--size"},
      {"wrp heightmap --help", 0, "--format", ""},
      {"wrp from-heightmap --help", 0, "--objects", ""},
      {"wrp map --help", 0, "--size", ""},
  };
  for (auto const& c : cases) {
    clirun::CliRun r = clirun::run_tool(c.args, tmp / "tool");
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << c.args << "\n" << r.out;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_EQ(get_file(tmp / "back.asc"), get_file(tmp / "t.asc"));
  EXPECT_EQ(get_file(tmp / "t.PNG").substr(1, 3), "PNG");
  EXPECT_FALSE(std::filesystem::exists(tmp / "x.wrp"));  // every refusal leaves nothing
  EXPECT_EQ(get_file(tmp / "taken.wrp"), "someone's file");
}
}  // namespace

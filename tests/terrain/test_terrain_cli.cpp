// The terrain and project commands as a user runs them.
#include <gtest/gtest.h>

#include "terrain/WrpTestUtil.h"
#include "support/CliRun.h"

using namespace wrp_test;

namespace {
TEST(TerrainCli, CommandsOnRealAndDamagedFiles) {
  if (!std::filesystem::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  TempFolder tmp;
  std::string const avebury = "'" + (corpus_dir() / "wrp" / "avebury_avebury.wrp").string() + "'";
  std::string const world = "'" + (corpus_dir() / "wrp" / "cwrce_synthetic_test_world_4wvr.wrp").string() + "'";
  std::string const pew = "'" + tmp / "w.pew" + "'";
  put_file(tmp / "junk.wrp", "JUNKJUNK");
  put_file(tmp / "taken.wrp", "someone's file");
  put_file(tmp / "colors.hpp", "class objects { colors[] = {\"dummy\", 0xFF0000}; };");
  put_file(tmp / "nocolors.hpp", "class things {};");
  put_file(tmp / "junk.pew", "POSEW59\x01\x00\x00\x00");
  put_file(tmp / "taken.pew", "someone's file");
  struct Case {
    std::string args;
    int status;
    char const* out;  // expected in standard output
    char const* err;  // expected in standard error
  } const cases[] = {
      {"wrp info " + avebury, 0, "objects:     6751", ""},
      {"info " + avebury + " --json", 0, "\"map_size\": [\n    512,\n    512\n  ]", ""},
      {"wrp objects " + world + " --format csv", 0, "17,\"data3d\\dummy17.p3d\",100.000,200.000,0.000,0.000,1.0000", ""},
      {"wrp objects " + world, 0, "2 data3d\\dummy2.p3d 150.000 250.000", ""},
      {"wrp info '" + tmp / "junk.wrp" + "'", 10, "", "junk.wrp: Wrp: Not a WRP file (10)"},
      {"wrp info '" + tmp / "missing.wrp" + "'", 3, "", "missing.wrp: No such file or directory"},
      {"wrp convert " + avebury + " '" + tmp / "a4.wrp" + "' --to 4wvr", 25, "",
       "pax file name exceeds 31 bytes for 4wvr (25)"},
      {"wrp convert " + world + " '" + tmp / "taken.wrp" + "' --to 8wvr", 6, "", "taken.wrp"},
      {"wrp convert " + world + " '" + tmp / "taken.wrp" + "' --to 8wvr -f", 0, "", ""},
      {"wrp convert " + world + " '" + tmp / "x.wrp" + "' --to 9wbv", 64, "", ""},
      {"pew from-wrp " + world + " " + pew + " --version 59 --colors '" + tmp / "colors.hpp" + "'", 0, "", ""},
      {"pew info " + pew, 0, "Pewtype 59\nGridSize 50.00\n", ""},
      {"pew info " + pew, 0, "objects            3", ""},
      {"info " + pew + " --json", 0, "\"object_templates\": 3", ""},
      {"wrp from-pew " + pew + " '" + tmp / "back.wrp" + "'", 0, "", ""},
      {"wrp info '" + tmp / "back.wrp" + "'", 0, "objects:     3", ""},
      {"pew from-wrp " + world + " '" + tmp / "taken.pew" + "'", 6, "", "taken.pew"},
      {"pew from-wrp " + world + " '" + tmp / "x.pew" + "' --colors '" + tmp / "nocolors.hpp" + "'", 18, "",
       "Config File: has no class objects.colors[]="},
      {"pew from-wrp " + world + " '" + tmp / "x.pew" + "' --version 57", 64, "", ""},
      {"pew info '" + tmp / "junk.pew" + "'", 11, "", "junk.pew: Pew: filsize corrupt (11)"},
  };
  for (auto const& c : cases) {
    clirun::CliRun r = clirun::run_tool(c.args, tmp / "tool");
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << c.args << "\n" << r.out;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_EQ(get_file(tmp / "taken.wrp").substr(0, 4), "8WVR");  // replaced only with -f
  EXPECT_FALSE(std::filesystem::exists(tmp / "a4.wrp"));       // a refused conversion leaves nothing
  EXPECT_FALSE(std::filesystem::exists(tmp / "x.pew"));
  EXPECT_EQ(get_file(tmp / "taken.pew"), "someone's file");
}
}  // namespace

// The terrain commands as a user runs them.
#include <gtest/gtest.h>
#include <unistd.h>

#include "terrain/WrpTestUtil.h"
#include "support/CliRun.h"

using namespace wrp_test;

namespace {
using clirun::CliRun;

CliRun vendrak(std::string const& args, TempFolder const& tmp) {
  std::string stem = tmp / "tool";
  return clirun::run_tool(args, stem);
}

TEST(WrpCli, CommandsOnRealAndDamagedTerrains) {
  if (!std::filesystem::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  TempFolder tmp;
  std::string const avebury = "'" + (corpus_dir() / "wrp" / "avebury_avebury.wrp").string() + "'";
  std::string const world = "'" + (corpus_dir() / "wrp" / "cwrce_synthetic_test_world_4wvr.wrp").string() + "'";
  put_file(tmp / "junk.wrp", "JUNKJUNK");
  put_file(tmp / "taken.wrp", "someone's file");
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
  };
  for (auto const& c : cases) {
    CliRun r = vendrak(c.args, tmp);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << c.args << "\n" << r.out;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_EQ(get_file(tmp / "taken.wrp").substr(0, 4), "8WVR");  // replaced only with -f
  EXPECT_FALSE(std::filesystem::exists(tmp / "a4.wrp"));       // a refused conversion leaves nothing
}
}  // namespace

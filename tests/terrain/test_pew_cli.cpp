// The project commands as a user runs them.
#include <gtest/gtest.h>

#include "terrain/WrpTestUtil.h"
#include "support/CliRun.h"

using namespace wrp_test;

namespace {
using clirun::CliRun;

CliRun run(std::string const& args, TempFolder const& tmp) {
  std::string stem = tmp / "tool";
  return clirun::run_tool(args, stem);
}

TEST(PewCli, MakeDescribeAndBuildBack) {
  if (!std::filesystem::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  TempFolder tmp;
  std::string const world = "'" + (corpus_dir() / "wrp" / "cwrce_synthetic_test_world_4wvr.wrp").string() + "'";
  std::string const pew = "'" + tmp / "w.pew" + "'";
  put_file(tmp / "colors.hpp", "class objects { colors[] = {\"dummy\", 0xFF0000}; };");
  put_file(tmp / "nocolors.hpp", "class things {};");
  put_file(tmp / "junk.pew", "POSEW59\x01\x00\x00\x00");
  put_file(tmp / "taken.pew", "someone's file");
  struct Case {
    std::string args;
    int status;
    char const* out;
    char const* err;
  } const cases[] = {
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
    CliRun r = run(c.args, tmp);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << c.args << "\n" << r.out;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(tmp / "x.pew"));
  EXPECT_EQ(get_file(tmp / "taken.pew"), "someone's file");
}
}  // namespace

#include <gtest/gtest.h>

#include "RtmBuilder.h"
#include "support/CliRun.h"

namespace {
using clirun::CliRun;

CliRun vendrak(std::string const& args) { return clirun::run_tool(args, rtm_tmp("tool")); }

TEST(RtmCli, CommandsAndTheirStatuses) {
  XYZTransform id{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}};
  XYZTransform up = id;
  up.pos = {0, 1, 0};
  RtmBytes text = rtm_text({"root", "arm"}, {id, up}, 2);
  std::string in = rtm_write("cli.rtm", std::string(text.begin(), text.end()));
  std::string cfg = rtm_write("cli.cfg", "class CfgSkeletons { class S { skeletonBones[]={\"root\",\"\",\"arm\",\"root\"}; }; };");
  std::string bin = rtm_tmp("cli.bin");
  std::remove(bin.c_str());
  struct Case {
    std::string args;
    int status;
    char const* out;  // a piece of standard output, or of standard error for a failure
  } const cases[] = {
      {"info '" + in + "'", 0, "RTM UNbinarised, 2 frames, 2 bones"},
      {"rtm bin '" + in + "' '" + bin + "'", 64, "--skeleton"},
      {"rtm bin '" + in + "' '" + bin + "' --skeleton '" + cfg + "' --version 4", 0, ""},
      {"rtm bin '" + in + "' '" + bin + "' --skeleton '" + cfg + "' --version 3", 6, ""},  // differs: needs -f
      {"info --json '" + bin + "'", 0, "\"binarised A3 (sounds)\""},
      {"rtm info '" + bin + "' --skeleton '" + cfg + "'", 0, "bone 1 arm (parent root)"},
      {"rtm pose '" + bin + "' --frame 1 --skeleton '" + cfg + "'", 0, "arm"},
      {"rtm pose '" + bin + "' --frame 2", 12, "frame 2 is outside 0..1"},
      {"rtm unbin '" + bin + "' - --skeleton '" + cfg + "'", 0, "RTM_0101"},
      {"rtm info '" + cfg + "'", 11, "RTM unknown signature (11)"},
      {"rtm info /no/such.rtm", 3, "/no/such.rtm"},
  };
  for (auto const& c : cases) {
    CliRun r = vendrak(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE((c.status ? r.err : r.out).find(c.out), std::string::npos) << c.args << "\n" << r.out << r.err;
  }
}
}  // namespace

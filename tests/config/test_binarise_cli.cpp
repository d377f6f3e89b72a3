#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "DecodeHelpers.h"
#include "support/CliRun.h"

namespace fs = std::filesystem;
using clirun::slurp;

namespace {

// A fresh folder per test process: test cases may run at once.
fs::path scratch() {
  static fs::path dir = [] {
    fs::path d = fs::path(::testing::TempDir()) / ("binarise_cli_" + std::to_string(getpid()));
    fs::create_directories(d);
    return d;
  }();
  return dir;
}

void put(fs::path const& p, std::string const& text) { std::ofstream(p, std::ios::binary) << text; }

// Runs the tool in the scratch folder (no argument holds a quote).
clirun::CliRun vendrak(std::string const& args) {
  return clirun::run_tool(args, (scratch() / "tool").string(), scratch().string());
}

// decode X -o t.cpp, then binarise t.cpp -o y.bin: y.bin is X, byte for byte.
TEST(BinariseCli, CorpusRoundTripThroughTheCommandLine) {
  fs::path dir = corpus() / "rap";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << corpus();
  for (auto const& e : fs::directory_iterator(dir)) {
    clirun::CliRun d = vendrak("cfg decode '" + e.path().string() + "' -o t.cpp -f");
    ASSERT_EQ(d.status, 0) << d.err;
    clirun::CliRun b = vendrak("cfg binarise t.cpp -o y.bin -f");
    ASSERT_EQ(b.status, 0) << e.path() << b.err;
    EXPECT_TRUE(slurp(e.path().string()) == slurp((scratch() / "y.bin").string())) << e.path();
  }
}

TEST(BinariseCli, OutputNamesStatusesAndFailures) {
  put(scratch() / "config.cpp", "class CfgPatches { class a { units[] = {}; }; };\n");
  put(scratch() / "dup.cpp", "class A {};\nclass A {};\n");
  put(scratch() / "dup.bin", "old");
  put(scratch() / "eval.cpp", "x = __EVAL(random 10);\n");
  put(scratch() / "warn.cpp", "a[] = {1,2,};\n");
  put(scratch() / "inc.cpp", "#include \"\\x\\h.hpp\"\n");
  fs::create_directories(scratch() / "drive" / "x");
  put(scratch() / "drive" / "x" / "h.hpp", "class FromDrive {};\n");
  struct Case {
    char const* args;
    int status;
    char const* err;      // on standard error
    char const* written;  // the output that must exist afterwards (null: none checked)
  } const cases[] = {
      {"cfg binarise config.cpp", 0, "", "config.bin"},
      {"cfg binarise config.cpp --ofp -o ofp.bin", 0, "", "ofp.bin"},
      {"cfg binarise dup.cpp -f", 31, "In File dup.cpp: circa Line 2 Rap: duplicated token or class\n", nullptr},
      {"cfg binarise dup.cpp -f", 31, "vendrak: dup.cpp: Rap: duplicated token or class (31)\n", nullptr},
      {"cfg binarise eval.cpp", 55, "vendrak: eval.cpp: Rap: eval/exec has unbinarisable sqX (55)", nullptr},
      {"cfg binarise warn.cpp -o w.bin", 0, "warning :In File warn.cpp: circa Line 1 Trailing comma", "w.bin"},
      {"cfg binarise warn.cpp -o w2.bin --warnings-as-errors", 37, "Trailing comma", nullptr},
      {"cfg binarise inc.cpp", 29, "Cannot include file", nullptr},
      {"cfg binarise inc.cpp -I drive -o inc.bin", 0, "", "inc.bin"},
      {"cfg binarise missing.cpp", 3, "vendrak: missing.cpp: No such file or directory", nullptr},
  };
  for (auto const& c : cases) {
    clirun::CliRun r = vendrak(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
    if (c.written) {
      EXPECT_TRUE(fs::exists(scratch() / c.written)) << c.args;
    }
  }
  // A failed binarise leaves the old output as it was, and no temporary file behind.
  EXPECT_EQ(slurp((scratch() / "dup.bin").string()), "old");
  std::set<std::string> names;
  for (auto const& e : fs::directory_iterator(scratch())) names.insert(e.path().filename().string());
  for (auto const& n : names) EXPECT_EQ(n.find(".vendrak-"), std::string::npos) << n;
  EXPECT_EQ(names.count("w2.bin") + names.count("eval.bin"), 0u);
  // The OFP and Arma outputs both begin with the format's signature.
  EXPECT_EQ(slurp((scratch() / "ofp.bin").string()).substr(0, 7), std::string("\0raP\4\0\0", 7));
  EXPECT_EQ(slurp((scratch() / "config.bin").string()).substr(0, 12), std::string("\0raP\0\0\0\0\x08\0\0\0", 12));
  fs::remove_all(scratch());
}
}  // namespace

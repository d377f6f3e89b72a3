// The cfg commands as a user runs them: decode, binarise and preprocess.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "RapWriter.h"
#include "support/CliRun.h"

namespace fs = std::filesystem;

namespace {
using clirun::CliRun;
using clirun::slurp;

// A folder of this test process (test cases may run at once in separate processes).
fs::path scratch() {
  fs::path dir = fs::path(::testing::TempDir()) / ("cfg_cli_" + std::to_string(getpid()));
  fs::create_directories(dir);
  return dir;
}
std::string tmp(char const* name) { return (scratch() / name).string(); }

void write_file(std::string const& p, Bytes const& b) {
  std::ofstream(p, std::ios::binary).write(reinterpret_cast<char const*>(b.data()), std::streamsize(b.size()));
}
void put(fs::path const& p, std::string const& text) { std::ofstream(p, std::ios::binary) << text; }

// `cfg decode ARGS...`
CliRun vendrak(std::vector<std::string> const& args) {
  return clirun::run_tool("cfg decode " + clirun::quoted(args), tmp("tool"));
}

// A command line run in the scratch folder (its arguments quoted by the caller).
CliRun in_scratch(std::string const& args) { return clirun::run_tool(args, tmp("tool"), scratch().string()); }

std::string without_now_line(std::string t) {
  size_t a = t.find("//'now'");
  if (a != std::string::npos) t.erase(a, t.find('\n', a) + 1 - a);
  return t;
}

TEST(KaltorCli, Decode) {
  std::string in = std::string(VENDRAK_TEST_DATA) + "/config/cba_diagnostic_enable_perf_loop_config.bin";
  CliRun plain = vendrak({in});
  EXPECT_EQ(plain.status, 0) << plain.err;
  EXPECT_TRUE(plain.err.empty()) << plain.err;
  // On a pipe the lines end with LF; the file keeps the format's CR LF.
  EXPECT_NE(plain.out.find("\nclass CfgPatches\n{\n\tclass cba_diagnostic_enable_perf_loop\n"), plain.out.npos);
  EXPECT_EQ(plain.out.find('\r'), plain.out.npos);
  std::string out = tmp("out.cpp");
  CliRun to_file = vendrak({in, "-o", out});
  EXPECT_EQ(to_file.status, 0);
  EXPECT_TRUE(to_file.out.empty());
  std::string crlf;
  for (char c : without_now_line(plain.out)) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(without_now_line(slurp(out)), crlf);
  std::remove(out.c_str());
  CliRun spaces = vendrak({in, "--no-tabs"});
  EXPECT_EQ(spaces.out.find('\t'), std::string::npos);
  EXPECT_NE(spaces.out.find("\n class cba_diagnostic_enable_perf_loop\n"), std::string::npos);
}

TEST(KaltorCli, FailuresAndKeys) {
  unsigned char const key[16] = {0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF};
  std::string signed_file = tmp("xbox.bin"), junk = tmp("junk.bin"), spaced = tmp("spaced.bin");
  write_file(signed_file, xbox(cls("", {v_i("x", 1)}), key));
  write_file(junk, Bytes{0, 'r', 'a', 'P', 0, 0});
  // A spaced file read from disk is despaced in the reader's own buffer.
  Bytes sp = arma(cls("", {cls("A", {v_str("s", "t")})}));
  for (size_t i = 4; i < sp.size(); ++i) sp[i] = sp[i] ? sp[i] : 0xEE;
  sp[0] = 0xEE;
  write_file(spaced, sp);
  struct {
    std::vector<std::string> args;
    int status;
    char const* err;  // expected on standard error (null: nothing)
  } const cases[] = {
      {{junk}, 100, "Kaltor: Not a raP file"},
      {{tmp("missing.bin")}, 1, "No such file or directory"},
      {{signed_file, "--xbox-key", "a00102030405060708090a0b0c0d0eff"}, 0, nullptr},
      {{signed_file, "--xbox-key", "A0010203040506070809" "0A0B0C0D0EFF"}, 0, nullptr},
      {{signed_file, "--xbox-key", "00010203040506070809" "0a0b0c0d0eff"}, 15, "Kaltor: xbox sha is wrong"},
      {{signed_file}, 0, "not verified"},
      {{spaced}, 0, nullptr},
  };
  for (auto const& c : cases) {
    CliRun r = vendrak(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[0] << " " << r.err;
    EXPECT_TRUE(c.err ? r.err.find(c.err) != std::string::npos : r.err.empty()) << r.err;
  }
  // A key that is not 32 hex digits is refused before anything is decoded.
  EXPECT_NE(vendrak({signed_file, "--xbox-key", "abc"}).status, 0);
  EXPECT_NE(vendrak({signed_file, "--xbox-key", std::string(32, 'g')}).status, 0);
  for (auto const& f : {signed_file, junk, spaced}) std::remove(f.c_str());
}

// The corpus round trip (decoded text binarised back to the same bytes) is BinariseCorpus's; here the
// command line's own part: output names, statuses, messages and what stays on disk.
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
    CliRun r = in_scratch(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
    if (c.written) {
      EXPECT_TRUE(fs::exists(scratch() / c.written)) << c.args;
    }
  }
  // A failed binarise leaves the old output as it was, and no temporary file behind.
  EXPECT_EQ(slurp(tmp("dup.bin")), "old");
  std::set<std::string> names;
  for (auto const& e : fs::directory_iterator(scratch())) names.insert(e.path().filename().string());
  for (auto const& n : names) EXPECT_EQ(n.find(".vendrak-"), std::string::npos) << n;
  EXPECT_EQ(names.count("w2.bin") + names.count("eval.bin"), 0u);
  // The OFP and Arma outputs both begin with the format's signature.
  EXPECT_EQ(slurp(tmp("ofp.bin")).substr(0, 7), std::string("\0raP\4\0\0", 7));
  EXPECT_EQ(slurp(tmp("config.bin")).substr(0, 12), std::string("\0raP\0\0\0\0\x08\0\0\0", 12));
  fs::remove_all(scratch());
}

// cfg preprocess: the text the parser reads, to standard output or a file; a fault named by file
// and line, its message number the exit status.
TEST(PreprocessCli, TextFilesAndFaults) {
  fs::create_directories(scratch() / "P" / "x" / "m");
  put(scratch() / "P" / "x" / "m" / "macros.hpp", "#define VERSION 3.19\n#define GRID\t(A / 25)\n");
  put(scratch() / "pre.cpp", "#include \"\\x\\m\\macros.hpp\"\nversion = VERSION; // v\ny = 2 * GRID;\n");
  put(scratch() / "bad.cpp", "a = 1;\n#if (\n#endif\n");
  put(scratch() / "mine.txt", "mine");
  std::string const text = "\n\n\nversion = 3.19; \ny = 2 * \t(A / 25);\n";
  struct Case {
    char const* args;
    int status;
    char const* out;  // standard output (null: not checked)
    char const* err;  // found on standard error
  } const cases[] = {
      {"cfg preprocess pre.cpp -I P", 0, text.c_str(), ""},
      {"cfg preprocess pre.cpp -I P -o pre.txt", 0, "", ""},
      {"cfg preprocess pre.cpp -I P -o mine.txt", 6, "", "mine.txt: exists and differs"},
      {"cfg preprocess pre.cpp", 29, "", "In File pre.cpp: circa Line 1 Cannot include file"},
      {"cfg preprocess bad.cpp", 11, "", "In File bad.cpp: circa Line 2 bad eval/exec\nvendrak: bad.cpp: bad eval/exec (11)"},
      {"cfg preprocess missing.cpp", 3, "", "missing.cpp: No such file or directory"},
      {"cfg preprocess", 64, nullptr, "FILE is required"},
  };
  for (auto const& c : cases) {
    CliRun r = in_scratch(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    if (c.out) {
      EXPECT_EQ(r.out, c.out) << c.args;
    }
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.args << "\n" << r.err;
  }
  EXPECT_EQ(slurp(tmp("pre.txt")), text);
  EXPECT_EQ(slurp(tmp("mine.txt")), "mine");
  fs::remove_all(scratch());
}

}  // namespace

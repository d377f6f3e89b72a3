#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "RapWriter.h"
#include "support/CliRun.h"

namespace {

// Test cases may run at once in separate processes: every name carries the process id.
std::string tmp(char const* name) {
  return ::testing::TempDir() + "kaltor_cli_" + std::to_string(getpid()) + "_" + name;
}

void write_file(std::string const& p, Bytes const& b) {
  std::ofstream(p, std::ios::binary).write(reinterpret_cast<char const*>(b.data()), std::streamsize(b.size()));
}

using clirun::CliRun;
using clirun::slurp;

CliRun vendrak(std::vector<std::string> const& args) {
  return clirun::run_tool("cfg decode " + clirun::quoted(args), tmp("tool"));
}

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

}  // namespace

// The rules every command follows: usage errors, error lines, safe outputs, scriptable output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "cli/ToolRun.h"
#include "pbo/PboErrors.h"

namespace {
using namespace toolrun;

std::string const kArchive = std::string(VENDRAK_TEST_DATA) + "/pbo/cba_diagnostic_enable_logging.pbo";
std::string const kConfig = std::string(VENDRAK_TEST_DATA) + "/config/tfar_bundled_xeh_config.bin";

TEST(CliConventions, UsageErrorsExit64WithOneLineHint) {
  Scratch s;
  struct {
    std::vector<std::string> args;
    char const* says;
  } const cases[] = {
      {{}, "no command given"},
      {{"bogus"}, "unknown command 'bogus'"},
      {{"lsit", "x.pbo"}, "did you mean 'list'?"},
      {{"extarct", "x.pbo"}, "did you mean 'extract'?"},
      {{"cfg"}, "'cfg' needs a command"},
      {{"cfg", "decod", "x"}, "did you mean 'cfg decode'?"},
      {{"list"}, "ARCHIVE is required"},
      {{"list", "--bogus", kArchive}, "--bogus"},
      {{"cfg", "decode", kConfig, "--xbox-key", "abc"}, "32 hex digits"},
      {{"p3d", "nosuchcommand", "--help"}, "unknown command 'p3d nosuchcommand'"},
      {{"p3d", "inf", "--help"}, "did you mean 'p3d info'?"},
  };
  for (auto const& c : cases) {
    Result r = run(c.args, s.path);
    std::string what = c.args.empty() ? "(none)" : c.args[0];
    EXPECT_EQ(r.status, 64) << what << ": " << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << what << ": " << r.err;
    EXPECT_NE(r.err.find("--help'"), std::string::npos) << what;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << what << ": " << r.err;
  }
}

TEST(CliConventions, ErrorsNameThePathAndTheReason) {
  Scratch s;
  spit(s / "junk.bin", "this is not an archive at all, nor a config");
  std::string archive = slurp(kArchive);
  spit(s / "short.pbo", archive.substr(0, 120));
  fs::create_directory(s / "folder.pbo");
  struct {
    std::vector<std::string> args;
    int status;
    std::string says;
  } const cases[] = {
      {{"info", (s / "missing.pbo").string()}, 3, (s / "missing.pbo").string() + ": No such file or directory"},
      {{"list", (s / "folder.pbo").string()}, 3, (s / "folder.pbo").string() + ": Is a directory"},
      {{"list", (s / "junk.bin").string()}, 3, "junk.bin: not a PBO archive"},
      {{"list", (s / "short.pbo").string()}, 1, "short.pbo: truncated: the file ends at byte 120"},
      {{"cfg", "decode", (s / "junk.bin").string()}, 100, "junk.bin: not a binarised config"},
      {{"cfg", "decode", (s / "missing.bin").string()}, 1, "missing.bin: No such file or directory"},
      {{"info", (s / "junk.bin").string()}, 3, "junk.bin: not a file this tool knows"},
      {{"cat", kArchive, "nothing.txt"}, 27, "no entry 'nothing.txt' in the archive"},
      {{"cfg", "decode", kConfig, "-o", (s / "no/such/folder/x.cpp").string()}, 6, "x.cpp: No such file or directory"},
  };
  for (auto const& c : cases) {
    Result r = run(c.args, s.path);
    EXPECT_EQ(r.status, c.status) << c.args[1] << ": " << r.err;
    EXPECT_EQ(r.err.rfind("vendrak: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
  }
}

TEST(CliConventions, OutputsNeverReplaceADifferentFileUnlessForced) {
  Scratch s;
  fs::path out = s / "config.cpp";
  ASSERT_EQ(run({"cfg", "decode", "--no-banner", kConfig, "-o", out.string()}, s.path).status, 0);
  std::string decoded = slurp(out);
  // Same bytes again: fine. A user's different file: kept, and the refusal names it.
  EXPECT_EQ(run({"cfg", "decode", "--no-banner", kConfig, "-o", out.string()}, s.path).status, 0);
  spit(out, "// my own edits\r\n");
  Result refused = run({"cfg", "decode", "--no-banner", kConfig, "-o", out.string()}, s.path);
  EXPECT_EQ(refused.status, 6);
  EXPECT_NE(refused.err.find(out.string() + ": exists and differs"), std::string::npos) << refused.err;
  EXPECT_EQ(slurp(out), "// my own edits\r\n");
  EXPECT_EQ(run({"cfg", "decode", "--no-banner", "-f", kConfig, "-o", out.string()}, s.path).status, 0);
  EXPECT_EQ(slurp(out), decoded);
  // A failed decode leaves the old file and no temporary file beside it.
  spit(s / "junk.bin", std::string("\0raP\xff\xff\xff\xff", 8));
  EXPECT_NE(run({"cfg", "decode", "-f", (s / "junk.bin").string(), "-o", out.string()}, s.path).status, 0);
  EXPECT_EQ(slurp(out), decoded);
  int files = 0;
  for (auto const& e : fs::directory_iterator(s.path)) files += e.path().filename().string()[0] != '.' ? 1 : 0;
  for (auto const& e : fs::directory_iterator(s.path))
    EXPECT_EQ(e.path().filename().string().find(".vendrak-"), std::string::npos) << e.path();
  EXPECT_EQ(files, 2);
}

TEST(CliConventions, ScriptableOutput) {
  Scratch s;
  // Every message on a pipe ends its lines with LF alone.
  for (auto const& args : std::vector<std::vector<std::string>>{
           {"info", kArchive}, {"list", kArchive}, {"cfg", "decode", kConfig}, {"info", kConfig}}) {
    Result r = run(args, s.path);
    EXPECT_EQ(r.status, 0) << args[0] << r.err;
    EXPECT_FALSE(r.out.empty());
    EXPECT_EQ(r.out.find('\r'), std::string::npos) << args[0];
  }
  // A listing is the entry lines alone; the report belongs to info.
  Result list = run({"list", kArchive}, s.path);
  EXPECT_EQ(list.out.rfind("config.bin:", 0), 0u) << list.out;
  // --json is one object that agrees with --names.
  Result names = run({"list", "--names", kArchive}, s.path);
  for (auto const& cmd : {"list", "info"}) {
    Result json = run({cmd, "--json", kArchive}, s.path);
    ASSERT_EQ(json.status, 0) << json.err;
    nlohmann::json j = nlohmann::json::parse(json.out);
    std::string joined;
    for (auto const& e : j["entries"]) joined += e["name"].get<std::string>() + "\n";
    EXPECT_EQ(joined, names.out);
    EXPECT_EQ(j["prefix"], "x\\cba\\addons\\diagnostic_enable_logging");
    EXPECT_EQ(j["kind"], "Arma Addon");
    EXPECT_TRUE(j["sha"]["ok"].get<bool>());
    EXPECT_EQ(j["entries"][0]["size"], 458);
  }
  // Two decodes without the banner compare equal; standard input and output stand in for files.
  Result a = run({"cfg", "decode", "--no-banner", kConfig}, s.path);
  Result b = run({"decode", "--no-banner", "-", "-o", "-"}, s.path, kConfig);
  EXPECT_EQ(b.status, 0) << b.err;
  EXPECT_EQ(a.out, b.out);
  EXPECT_EQ(a.out.rfind("#define _ARMA_\n", 0), 0u);
  // cat gives the entry's bytes as extraction writes them.
  Result cat = run({"cat", kArchive, "script_component.hpp"}, s.path);
  ASSERT_EQ(run({"unpack", "-q", "--files", "script_component.hpp", kArchive, (s / "x").string()}, s.path).status, 0);
  EXPECT_EQ(cat.out, slurp(s / "x/x/cba/addons/diagnostic_enable_logging/script_component.hpp"));
  EXPECT_EQ(cat.out.size(), 325u);
}

TEST(CliConventions, ExtractChoosesEntriesAndSummarises) {
  Scratch s;
  struct {
    std::vector<std::string> choose;
    bool config, header;
    int status = 0;
  } const cases[] = {
      {{}, true, true},
      {{"--files", "*.hpp"}, false, true},
      {{"--files", "config.bin", "--files", "*.hpp"}, true, true},
      {{"--exclude", "*.hpp"}, true, false},
      {{"--files", "*.bin,*.hpp", "--exclude", "config.*"}, false, true},
      // Leaving everything out is the same warning as choosing nothing, an error when asked.
      {{"--exclude", "*"}, false, false},
      {{"--exclude", "*", "--warnings-as-errors"}, false, false, PBO_NOTHING_TO_EXTRACT},
  };
  int n = 0;
  for (auto const& c : cases) {
    fs::path dest = s / ("d" + std::to_string(n++));
    std::vector<std::string> args = {"extract"};
    args.insert(args.end(), c.choose.begin(), c.choose.end());
    args.push_back(kArchive);
    args.push_back(dest.string());
    Result r = run(args, s.path);
    EXPECT_EQ(r.status, c.status) << r.err;
    fs::path folder = dest / "x/cba/addons/diagnostic_enable_logging";
    EXPECT_EQ(fs::exists(folder / "config.bin"), c.config) << dest;
    EXPECT_EQ(fs::exists(folder / "script_component.hpp"), c.header) << dest;
    if (c.config || c.header)
      EXPECT_NE(r.out.find(" bytes in "), std::string::npos) << r.out;
    else
      EXPECT_NE(r.err.find("file(s)"), std::string::npos) << r.err;
  }
}
}  // namespace

namespace {
TEST(CliConventions, ExtractKeepsADifferentFileUnlessForced) {
  Scratch s;
  fs::path header = s / "d/x/cba/addons/diagnostic_enable_logging/script_component.hpp";
  std::vector<std::string> extract = {"extract", "-q", kArchive, (s / "d").string()};
  ASSERT_EQ(run(extract, s.path).status, 0);
  std::string original = slurp(header);
  EXPECT_EQ(run(extract, s.path).status, 0);  // identical files are fine
  spit(header, "// my own edits\n");
  Result refused = run(extract, s.path);
  EXPECT_EQ(refused.status, 53) << refused.err;
  EXPECT_NE(refused.err.find("script_component.hpp"), std::string::npos) << refused.err;
  EXPECT_EQ(slurp(header), "// my own edits\n");
  extract.insert(extract.begin() + 1, "-f");
  EXPECT_EQ(run(extract, s.path).status, 0);
  EXPECT_EQ(slurp(header), original);
}
}  // namespace

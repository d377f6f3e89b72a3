// `vendrak check` over small mod folders made here: what it reports, where and with which code,
// and that a sound folder passes.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/ToolRun.h"
#include "pbo/PboBuilder.h"
#include "support/CorpusFile.h"

namespace {
using namespace toolrun;

std::string sealed_archive(std::vector<pbotest::File> const& files) {
  pbotest::Builder b;
  b.prop("prefix", "x\\mod\\addons\\main");
  for (auto const& f : files) b.file(f.name, f.data, f.compress);
  return b.seal(pbotest::Builder::SHA).build();
}

std::string const kScript = "// nothing to see\r\nprivate _a = 1;\r\n";
std::string const kTruncatedModel = std::string("ODOL\x49\0\0\0", 8);

TEST(CheckCommand, ReportsEachProblemWithItsPlaceAndCode) {
  struct Case {
    char const* what;
    std::vector<std::pair<std::string, std::string>> files;  // name in the folder, bytes
    int status;
    char const* line;  // expected in standard output; null: no problem line
  };
  std::string sound = sealed_archive({{"init.sqf", kScript, true}, {"readme.txt", "hello"}});
  std::string damaged = sound;
  damaged[damaged.size() - 30] ^= 0x20;  // inside the data, before the trailer
  std::vector<Case> const cases = {
      {"a sound archive and a text file", {{"a.pbo", sound}, {"notes.txt", "anything"}}, 0, nullptr},
      {"an archive changed after it was sealed", {{"a.pbo", damaged}}, 19, "a.pbo: its SHA-1 trailer does not match"},
      {"a broken model inside an archive",
       {{"b.pbo", sealed_archive({{"data\\m.p3d", kTruncatedModel}, {"init.sqf", kScript}})}},
       1,
       "b.pbo: data\\m.p3d: "},
      {"a loose broken model", {{"m.p3d", kTruncatedModel}}, 1, "m.p3d: "},
      {"a name that promises a terrain", {{"w.wrp", "not a terrain"}}, 3, "w.wrp: its name says WRP terrain"},
  };
  for (auto const& c : cases) {
    Scratch s;
    fs::create_directories(s / "@mod" / "addons");
    for (auto const& [name, bytes] : c.files) spit(s / "@mod" / "addons" / name, bytes);
    Result r = run({"check", (s / "@mod").string()}, s.path);
    EXPECT_EQ(r.status, c.status) << c.what << "\n" << r.out << r.err;
    if (c.line)
      EXPECT_NE(r.out.find(c.line), std::string::npos) << c.what << "\n" << r.out;
    else
      EXPECT_NE(r.out.find(": 0 problems"), std::string::npos) << c.what << "\n" << r.out;
  }
}

// Problems come in the order of the paths, whatever the number of files read at once, and the
// JSON form carries the same findings.
TEST(CheckCommand, SameReportFromOneOrManyWorkersAndInJson) {
  Scratch s;
  fs::create_directories(s / "mod");
  for (int i = 0; i < 12; ++i) {
    std::string name = "m" + std::to_string(10 + i);
    spit(s / "mod" / (name + ".p3d"), i % 3 ? kTruncatedModel : std::string("x"));
    spit(s / "mod" / (name + ".pbo"), sealed_archive({{"init.sqf", kScript}}));
  }
  Result one = run({"check", "-j", "1", (s / "mod").string(), (s / "missing").string()}, s.path);
  Result many = run({"check", "-j", "4", (s / "mod").string(), (s / "missing").string()}, s.path);
  ASSERT_EQ(one.status, 3) << one.out << one.err;  // the missing path comes first
  auto strip_time = [](std::string t) { return t.substr(0, t.rfind(" in ")); };
  EXPECT_EQ(strip_time(one.out), strip_time(many.out));

  Result js = run({"check", "--json", (s / "mod").string()}, s.path);
  auto j = nlohmann::json::parse(js.out);
  EXPECT_EQ(j["files"], 24);
  EXPECT_EQ(j["archives"], 12);
  ASSERT_EQ(j["problems"].size(), 12u);  // eight broken models, four that are no model at all
  EXPECT_EQ(j["problems"][0]["path"], (s / "mod" / "m10.p3d").string());
  EXPECT_EQ(j["problems"][0]["code"], 3);
  EXPECT_EQ(js.status, 3);
}

// With the keys a server trusts, an archive without a signature the keys check is a problem.
TEST(CheckCommand, SignaturesAgainstTrustedKeys) {
  fs::path dir = corpus_root() / "signing";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << dir;
  Scratch s;
  fs::create_directories(s / "@mod" / "addons");
  fs::create_directories(s / "keys");
  fs::copy_file(dir / "ace_fcs.pbo", s / "@mod" / "addons" / "ace_fcs.pbo");
  fs::copy_file(dir / "ace_fcs.pbo.ace_3.5.1.0.bisign", s / "@mod" / "addons" / "ace_fcs.pbo.ace_3.5.1.0.bisign");
  fs::copy_file(dir / "ace_3.5.1.0.bikey", s / "keys" / "ace_3.5.1.0.bikey");
  Result good = run({"check", "--keys", (s / "keys").string(), (s / "@mod").string()}, s.path);
  EXPECT_EQ(good.status, 0) << good.out << good.err;

  fs::remove(s / "@mod" / "addons" / "ace_fcs.pbo.ace_3.5.1.0.bisign");
  Result unsigned_ = run({"check", "--keys", (s / "keys").string(), (s / "@mod").string()}, s.path);
  EXPECT_EQ(unsigned_.status, 14) << unsigned_.out << unsigned_.err;
  EXPECT_NE(unsigned_.out.find("ace_fcs.pbo: "), std::string::npos) << unsigned_.out;
}
}  // namespace

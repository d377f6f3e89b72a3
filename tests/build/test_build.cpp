#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "build/ModBuild.h"
#include "core/BisDLL.h"
#include "io/BisFileIO_test_util.h"
#include "pbo/ArchiveSigner.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {

// A small project on disk: files by path relative to its root.
struct Project {
  fs::path root;
  explicit Project(std::map<std::string, std::string> const& files) {
    root = fs::temp_directory_path() / ("vendrak_build_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root);
    for (auto const& [path, text] : files) write(path, text);
  }
  ~Project() { fs::remove_all(root); }
  void write(std::string const& path, std::string const& text) const {
    fs::create_directories((root / path).parent_path());
    std::ofstream(root / path, std::ios::binary) << text;
  }
  fs::path out() const { return root / ".vendrak" / "build"; }
};

std::string const kConfigA =
    "#include \"script_component.hpp\"\n"
    "class CfgPatches { class proj_a { units[] = {}; weapons[] = {}; requiredAddons[] = {\"A3_Data_F\"}; }; };\n"
    "class CfgVehicles { class Car; class proj_car: Car { file = \"\\x\\proj\\addons\\a\\fn.sqf\"; }; };\n";
std::string const kConfigB =
    "#include \"\\x\\proj\\addons\\a\\macros.hpp\"\n"
    "class CfgPatches { class proj_b { units[] = {}; weapons[] = {}; requiredAddons[] = {\"proj_a\"}; }; };\n"
    "class CfgVehicles { class proj_car; class proj_car2: proj_car { value = VALUE; }; };\n";

std::map<std::string, std::string> base_files() {
  return {{".hemtt/project.toml", "name = \"Proj\"\nprefix = \"proj\"\nmainprefix = \"x\"\n[files]\ninclude = "
                                  "[\"mod.cpp\"]\n[lints.sqf]\nx = 1\n"},
          {"mod.cpp", "name = \"Proj\";\n"},
          {"include/shared.hpp", "#define SHARED 1\n"},
          {"addons/a/config.cpp", kConfigA},
          {"addons/a/script_component.hpp", "#include \"\\shared.hpp\"\n"},
          {"addons/a/macros.hpp", "#define VALUE 7\n"},
          {"addons/a/fn.sqf", "true\n"},
          {"addons/b/config.cpp", kConfigB}};
}

struct Built {
  int code;
  std::map<std::string, ModBuild::Outcome> outcomes;
  std::string errors, messages;
  unsigned warnings;
};

Built run(Project const& p, ModBuild::Options o = {}) {
  clear_captured();
  o.project = p.root.string();
  o.reproducible = true;
  ModBuild build;
  build.set_error_sink(capture_err);
  int code = build.build(o, capture_msg);
  Built b{code, {}, g_errs, g_msgs, build.warnings()};
  for (auto const& a : build.addons()) {
    b.outcomes[a.name] = a.outcome;
    if (a.outcome == ModBuild::Outcome::Failed) b.errors += a.messages;
  }
  return b;
}

using O = ModBuild::Outcome;

TEST(ModBuild, ArchivesAreNamedAndPrefixedFromTheProjectFile) {
  Project p(base_files());
  p.write("addons/c/$PBOPREFIX$", "x\\elsewhere\\c\n");
  p.write("addons/c/config.cpp", "class CfgPatches { class proj_c { units[] = {}; weapons[] = {}; requiredAddons[] = {}; }; };\n");
  Built b = run(p);
  ASSERT_EQ(b.code, 0) << b.errors;
  EXPECT_NE(b.messages.find("ignored keys: lints"), std::string::npos) << b.messages;
  struct Row {
    char const* archive;
    char const* prefix;
  } rows[] = {{"@Proj/addons/proj_a.pbo", "x\\proj\\addons\\a"},
              {"@Proj/addons/proj_b.pbo", "x\\proj\\addons\\b"},
              {"@Proj/addons/proj_c.pbo", "x\\elsewhere\\c"}};
  for (auto const& row : rows) {
    BisDLL dll;
    Vendrak* pbo = dll.dll_GetVendrak();
    ASSERT_EQ(pbo->pbo_Open((p.out() / row.archive).c_str(), capture_msg, 0), 0) << row.archive;
    EXPECT_STREQ(pbo->pbo_GetPrefix(), row.prefix) << row.archive;
  }
  EXPECT_TRUE(fs::exists(p.out() / "@Proj" / "mod.cpp"));
}

TEST(ModBuild, OnlyAddonsWhoseInputsChangedAreRebuilt) {
  Project p(base_files());
  ASSERT_EQ(run(p).code, 0);
  struct Step {
    char const* name;
    std::function<void()> change;
    ModBuild::Options options;
    O a, b;
  };
  ModBuild::Options compress;
  compress.compress = true;
  std::vector<Step> steps = {
      {"no change", [] {}, {}, O::Skipped, O::Skipped},
      {"touched with the same bytes", [&] { p.write("addons/a/macros.hpp", "#define VALUE 7\n"); }, {}, O::Skipped,
       O::Skipped},
      {"a file of b changed", [&] { p.write("addons/b/config.cpp", kConfigB + "// more\n"); }, {}, O::Skipped,
       O::Built},
      {"a header b includes from a", [&] { p.write("addons/a/macros.hpp", "#define VALUE 8\n"); }, {}, O::Built,
       O::Built},
      {"a shared header only a includes", [&] { p.write("include/shared.hpp", "#define SHARED 2\n"); }, {},
       O::Built, O::Skipped},
      {"a new file in b", [&] { p.write("addons/b/new.sqf", "x"); }, {}, O::Skipped, O::Built},
      {"a deleted file in b", [&] { fs::remove(p.root / "addons/b/new.sqf"); }, {}, O::Skipped, O::Built},
      {"another option", [] {}, compress, O::Built, O::Built},
      {"the archive removed", [&] { fs::remove(p.out() / "@Proj/addons/proj_a.pbo"); }, compress, O::Built,
       O::Skipped},
  };
  for (auto const& s : steps) {
    s.change();
    Built b = run(p, s.options);
    ASSERT_EQ(b.code, 0) << s.name << b.errors;
    EXPECT_EQ(b.outcomes["a"], s.a) << s.name;
    EXPECT_EQ(b.outcomes["b"], s.b) << s.name;
  }
}

TEST(ModBuild, AKeySignsEveryArchiveAndLandsInKeys) {
  Project p(base_files());
  ArchiveSigner signer;
  ArchiveKey key;
  ASSERT_EQ(signer.make_key("proj_test", 1024, key), 0);
  auto private_key = ArchiveSigner::key_bytes(key, true);
  p.write("private.biprivatekey", std::string(private_key.begin(), private_key.end()));
  ModBuild::Options o;
  o.key = (p.root / "private.biprivatekey").string();
  Built b = run(p, o);
  ASSERT_EQ(b.code, 0) << b.errors;
  auto public_key = get_file((p.out() / "@Proj/keys/proj_test.bikey").string());
  auto expected = ArchiveSigner::key_bytes(key, false);
  EXPECT_EQ(public_key, std::string(expected.begin(), expected.end()));
  for (char const* a : {"@Proj/addons/proj_a.pbo", "@Proj/addons/proj_b.pbo"}) {
    std::string archive = (p.out() / a).string();
    std::string bytes = get_file(archive + ".proj_test.bisign");
    ArchiveSignature sig;
    ASSERT_EQ(ArchiveSigner::parse_signature(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size(), sig), 0) << a;
    EXPECT_EQ(signer.verify(key, archive, sig), 0) << a;
  }
  // A public key cannot sign: the build says so.
  o.key = (p.out() / "@Proj/keys/proj_test.bikey").string();
  EXPECT_EQ(run(p, o).code, BUILD_SIGNING_FAILED);
}

TEST(ModBuild, AFailingAddonKeepsItsOldArchiveAndTheOthersBuild) {
  Project p(base_files());
  ASSERT_EQ(run(p).code, 0);
  fs::path old = p.out() / "@Proj/addons/proj_b.pbo";
  std::string before = get_file(old.string());
  p.write("addons/b/config.cpp", "class CfgPatches {\n  class proj_b { units[] = {\n};\n");
  p.write("addons/a/macros.hpp", "#define VALUE 9\n");
  Built b = run(p);
  EXPECT_EQ(b.code, BUILD_ADDONS_FAILED);
  EXPECT_EQ(b.outcomes["a"], O::Built);
  EXPECT_EQ(b.outcomes["b"], O::Failed);
  EXPECT_NE(b.errors.find("addons/b"), std::string::npos) << b.errors;
  EXPECT_EQ(get_file(old.string()), before);
}

TEST(ModBuild, ChecksWarnOfMissingFilesAndUndeclaredDependencies) {
  auto files = base_files();
  // b relies on a's class without requiring a, and names a model no addon holds.
  files["addons/b/config.cpp"] =
      "class CfgPatches { class proj_b { units[] = {}; weapons[] = {}; requiredAddons[] = {\"A3_Data_F\"}; }; };\n"
      "class CfgVehicles {\n  class proj_car;\n  class proj_car2: proj_car {\n"
      "    model = \"\\x\\proj\\addons\\b\\missing.p3d\";\n  };\n};\n";
  Project p(files);
  Built b = run(p);
  ASSERT_EQ(b.code, 0) << b.errors;
  EXPECT_EQ(b.warnings, 2u) << b.errors;
  EXPECT_NE(b.errors.find("config.cpp:4: class proj_car2 inherits from proj_car of addon a"), std::string::npos)
      << b.errors;
  EXPECT_NE(b.errors.find("config.cpp:5: cfgvehicles/proj_car2.model names"), std::string::npos) << b.errors;

  ModBuild::Options strict;
  strict.warnings_as_errors = true;
  Built s = run(p, strict);
  EXPECT_EQ(s.code, BUILD_WARNINGS) << s.errors;
}

TEST(ModBuild, ProjectsThatCannotBeBuiltSayWhy) {
  struct Row {
    char const* name;
    std::map<std::string, std::string> files;
    int code;
  } rows[] = {
      {"no addons", {{"readme.txt", "x"}}, BUILD_NO_ADDONS},
      {"broken project file", {{".hemtt/project.toml", "name = \n"}, {"addons/a/x.txt", "x"}}, BUILD_BAD_PROJECT_FILE},
      {"prefix of the wrong kind", {{".hemtt/project.toml", "prefix = 3\n"}, {"addons/a/x.txt", "x"}},
       BUILD_BAD_PROJECT_FILE},
  };
  for (auto const& row : rows) {
    Project p(row.files);
    EXPECT_EQ(run(p).code, row.code) << row.name;
  }
  ModBuild build;
  ModBuild::Options o;
  o.project = "/nonexistent/project";
  EXPECT_EQ(build.build(o, nullptr), BUILD_NO_PROJECT);
}

}  // namespace

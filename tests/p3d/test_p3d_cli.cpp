// The p3d commands as a user runs them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "MlodBuilder.h"

namespace fs = std::filesystem;
using namespace mlod_test;

namespace {
struct CliRun {
  int status;
  std::string out, err;
};

struct Folder {
  fs::path dir;
  Folder() {
    std::string t = (fs::temp_directory_path() / "vendrak-p3d-cli-XXXXXX").string();
    dir = ::mkdtemp(t.data());
  }
  ~Folder() { fs::remove_all(dir); }
  std::string read(fs::path const& p) const {
    std::ifstream f(p, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
  }
  void write(fs::path const& p, std::string const& bytes) const { std::ofstream(p, std::ios::binary) << bytes; }
  CliRun run(std::string const& args) const {
    std::string cmd = "'" VENDRAK_CLI_PATH "' " + args + " >'" + (dir / "stdout").string() + "' 2>'" +
                      (dir / "stderr").string() + "'";
    int s = std::system(cmd.c_str());
    return {WIFEXITED(s) ? WEXITSTATUS(s) : -1, read(dir / "stdout"), read(dir / "stderr")};
  }
};
}  // namespace

TEST(P3dCli, FixTrimsOnceAndInfoMatches) {
  Folder f;
  Lod geo;
  geo.resolution = 1e13f;
  geo.taggs = {{"#Mass#", floats(3, 1.0f)}, property("class ", "house "), {"door ", bytes(4)}};
  fs::path model = f.dir / "house.p3d", fixed = f.dir / "fixed.p3d";
  f.write(model, mlod_test::model({Lod{}, geo}));

  CliRun info = f.run("p3d info '" + model.string() + "'");
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_EQ(info.out.rfind("MLOD P3DM (arma) : nLods=2\n", 0), 0u) << info.out;
  EXPECT_NE(info.out.find("Geometry"), std::string::npos);
  EXPECT_NE(info.err.find("contains trailing space(s)"), std::string::npos);
  EXPECT_EQ(f.run("info '" + model.string() + "'").out, info.out);

  CliRun props = f.run("p3d props '" + model.string() + "'");
  EXPECT_EQ(props.status, 0);
  EXPECT_EQ(props.out, "class=house\n");
  EXPECT_EQ(f.run("p3d props --lod 7 '" + model.string() + "'").status, 27);

  CliRun fix = f.run("p3d fix '" + model.string() + "' -o '" + fixed.string() + "'");
  ASSERT_EQ(fix.status, 0) << fix.err;
  CliRun again = f.run("p3d fix '" + fixed.string() + "'");
  EXPECT_EQ(again.status, 29);
  EXPECT_NE(again.err.find("no change(s)"), std::string::npos);
  EXPECT_EQ(again.err.find("trailing"), std::string::npos) << again.err;
  // A different existing output is not replaced without -f.
  f.write(fixed, "other");
  EXPECT_NE(f.run("p3d fix '" + model.string() + "' -o '" + fixed.string() + "'").status, 0);
  EXPECT_EQ(f.run("p3d fix -f '" + model.string() + "' -o '" + fixed.string() + "'").status, 0);
}

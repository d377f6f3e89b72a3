// Road libraries: numbering of the road classes, their required properties and their paths, read
// from config text as a terrain's RoadsLib.cfg is, alone and while an archive is made.
#include <gtest/gtest.h>

#include "PboBuilder.h"

using namespace pbotest;

namespace {
// A road class that passes; each case adds to or spoils it.
std::string road(char const* name, char const* extra = "", char const* width = "7.5") {
  return std::string("class ") + name + " { width = " + width + "; AIpathOffset = 2; map = \"road\"; " +
         "mainStrTex = \"roads\\asf.paa\"; " + extra + " };\n";
}
std::string library(std::string const& roads) { return "class RoadTypesLibrary {\n" + roads + "};\n"; }

TEST(RoadLibrary, ChecksEveryRoadClass) {
  struct Case {
    std::string text;
    char const* error;  // what reaches the error sink; empty for a valid library
  } const cases[] = {
      {library(road("Road0001") + road("road0002", "mainMat = \"Road.RVMAT\";")), ""},
      {"class Other {};", "error: there is no class RoadTypesLibrary\r\n"},
      {library("x = 1;"), "error: RoadTypesLibrary has no road classes\r\n"},
      {library(road("Road0001") + road("Road0003")), "error: should be class Road0002, is classRoad0003\r\n"},
      {library(road("Road0001", "", "\"7\"")), "error: class Road0001,width= is not numeric\r\n"},
      {library("class Road0001 { width = 7; };"), "error: class Road0001 has missing AIpathOffset=\r\n"},
      {library("class Road0001 { width = 7; AIpathOffset = 1.5; };"), "error: class Road0001 has missing map=\r\n"},
      {library(road("Road0001", "mainTerTex = \"\\roads\\a.paa\";")),
       "error: paths cannot contain \\leading\\slash\r\n"},
      // A mixed-case path is named, and the whole library fails once every class has been seen.
      {library(road("Road0001", "mainMat = \"Roads\\A.rvmat\";") + road("Road0002")),
       "Roads\\A.rvmat\r\nerror: file paths must\\be\\lower\\case\r\n"},
      {"class RoadTypesLibrary {", "error: "},
  };
  for (auto const& c : cases) {
    TempDir dir;
    BisDLL dll;
    Vendrak* tool = dll.dll_GetVendrak();
    tool->pbo_GetIO()->io_SetStdioCallBack(capture);
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
    clear_captured();
    std::string file = dir / "RoadsLib.cfg";
    write_file(file, c.text);
    bool valid = !*c.error;
    EXPECT_EQ(tool->pbo_ValidateRoadLibrary(file.c_str()), valid) << c.text;
    if (std::string(c.error) == "error: ")
      EXPECT_EQ(errors().rfind("error: ", 0), 0u) << errors();
    else
      EXPECT_EQ(errors(), c.error) << c.text;
    EXPECT_EQ(messages(), "\r\nvalidating " + file + "\r\n" + (valid ? "done\r\n" : "")) << c.text;
  }
}

TEST(RoadLibrary, AnInvalidLibraryEndsTheMakingOfTheArchive) {
  TempDir dir;
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
  std::string src = dir / "src";
  std::filesystem::create_directories(src + "/roads");
  write_file(src + "/config.cpp", "class CfgPatches { class t { units[] = {}; weapons[] = {}; }; };\n");
  write_file(src + "/roads/RoadsLib.cfg", library(road("Road0002")));
  int mode = Vendrak::MAKE_STYLE_ARMA | Vendrak::MAKE_PROCESS_CONTENT | Vendrak::MAKE_REPRODUCIBLE;
  EXPECT_EQ(tool->pbo_Make(src.c_str(), mode, "p", capture, (dir / "a.pbo").c_str(), nullptr, nullptr), 51);
  EXPECT_FALSE(std::filesystem::exists(dir / "a.pbo"));
  write_file(src + "/roads/RoadsLib.cfg", library(road("Road0001")));
  ASSERT_EQ(tool->pbo_Make(src.c_str(), mode, "p", capture, (dir / "a.pbo").c_str(), nullptr, nullptr), 0)
      << errors();
  Listing l = list_archive(read_file(dir / "a.pbo"));
  ASSERT_EQ(l.entries.size(), 2u);
  // The config went in binarised under its binarised name; the library as it was written.
  EXPECT_EQ(l.entries[0].first, "config.bin");
  EXPECT_EQ(l.entries[0].second.compare(0, 4, std::string("\0raP", 4)), 0);
  EXPECT_EQ(l.entries[1].second, library(road("Road0001")));
}
}  // namespace

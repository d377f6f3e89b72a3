// Road libraries: numbering of the road classes, their required properties and their paths.
#include <gtest/gtest.h>

#include <functional>

#include "PboBuilder.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

using namespace pbotest;

namespace {
// A road class that passes, to be spoiled by each case.
rap_entry* add_road(rap_entry* library, char const* name) {
  rap_entry* road = library->rpe_add_class(name, nullptr);
  road->rpe_add_float("width", 7.5f);
  road->rpe_add_int("AIpathOffset", 2);
  road->rpe_add_string("map", "road");
  road->rpe_add_string("mainStrTex", "roads\\asf.paa");
  return road;
}

TEST(RoadLibrary, ChecksEveryRoadClass) {
  using Build = std::function<void(rap_entry&)>;
  struct Case {
    char const* what;
    Build build;
    bool valid;
    char const* error;
  } const cases[] = {
      {"two good roads", [](rap_entry& r) {
         rap_entry* lib = r.rpe_add_class("RoadTypesLibrary", nullptr);
         add_road(lib, "Road0001");
         add_road(lib, "road0002")->rpe_add_string("mainMat", "Road.RVMAT");  // no folder: case is free
       }, true, ""},
      {"no library", [](rap_entry& r) { r.rpe_add_class("Other", nullptr); }, false,
       "error: there is no class RoadTypesLibrary\r\n"},
      {"empty library", [](rap_entry& r) { r.rpe_add_class("RoadTypesLibrary", nullptr)->rpe_add_int("x", 1); },
       false, "error: RoadTypesLibrary has no road classes\r\n"},
      {"a gap", [](rap_entry& r) {
         rap_entry* lib = r.rpe_add_class("RoadTypesLibrary", nullptr);
         add_road(lib, "Road0001");
         add_road(lib, "Road0003");
       }, false, "error: should be class Road0002, is classRoad0003\r\n"},
      {"width as text", [](rap_entry& r) {
         rap_entry* road = r.rpe_add_class("RoadTypesLibrary", nullptr)->rpe_add_class("Road0001", nullptr);
         road->rpe_add_string("width", "7");
       }, false, "error: class Road0001,width= is not numeric\r\n"},
      {"no offset", [](rap_entry& r) {
         rap_entry* road = r.rpe_add_class("RoadTypesLibrary", nullptr)->rpe_add_class("Road0001", nullptr);
         road->rpe_add_int("width", 7);
       }, false, "error: class Road0001 has missing AIpathOffset=\r\n"},
      {"no map", [](rap_entry& r) {
         rap_entry* road = r.rpe_add_class("RoadTypesLibrary", nullptr)->rpe_add_class("Road0001", nullptr);
         road->rpe_add_double("width", 7);
         road->rpe_add_float("AIpathOffset", 1);
       }, false, "error: class Road0001 has missing map=\r\n"},
      {"leading slash", [](rap_entry& r) {
         rap_entry* lib = r.rpe_add_class("RoadTypesLibrary", nullptr);
         add_road(lib, "Road0001")->rpe_add_string("mainTerTex", "\\roads\\a.paa");
       }, false, "error: paths cannot contain \\leading\\slash\r\n"},
      {"upper case", [](rap_entry& r) {
         rap_entry* lib = r.rpe_add_class("RoadTypesLibrary", nullptr);
         add_road(lib, "Road0001")->rpe_add_string("mainMat", "Roads\\A.rvmat");
         add_road(lib, "Road0002");
       }, false, "Roads\\A.rvmat\r\nerror: file paths must\\be\\lower\\case\r\n"},
  };
  for (auto const& c : cases) {
    BisDLL dll;
    Vendrak* tool = dll.dll_GetVendrak();
    tool->pbo_GetIO()->io_SetStdioCallBack(capture);
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
    clear_captured();
    rap_entry root;
    c.build(root);
    EXPECT_EQ(tool->pbo_ValidateRoadTree(&root), c.valid) << c.what;
    EXPECT_EQ(errors(), c.error) << c.what;
    EXPECT_EQ(messages(), c.valid ? "done\r\n" : "") << c.what;
  }
}

TEST(RoadLibrary, MixedCasePathsAreLowerCasedInTheTree) {
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
  rap_entry root;
  rap_entry* road = add_road(root.rpe_add_class("RoadTypesLibrary", nullptr), "Road0001");
  road->rpe_add_string("mainTerTex", "Roads\\Dirt\\T.paa");
  EXPECT_FALSE(tool->pbo_ValidateRoadTree(&root));
  EXPECT_STREQ(road->rpe_get_entry("mainTerTex", rap_entry::RPE_ANY)->value(), "roads\\dirt\\t.paa");
}
}  // namespace

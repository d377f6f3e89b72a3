#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DecodeHelpers.h"
#include "config/Sembric.h"

namespace {
using T = rap_entry;

struct Checked {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  Checked() {
    s->rap_GetIO()->io_SetStdioCallBack(capture);
    captured().clear();
  }
  int run() { return s->rap_CheckContent(nullptr); }
  std::vector<std::string> list(char const* name) {
    std::vector<std::string> out;
    T* patches = s->rap_get_class("CfgPatches")->rpe_get_class(nullptr);
    for (T* e = patches->rpe_get_array_contents(name); e; e = e->rpe_get_next_sibling()) out.emplace_back(e->value());
    return out;
  }
};

T* addon(Sembric* s) {
  T* a = s->rap_add_class("CfgPatches", nullptr)->rpe_add_class("my_addon", nullptr);
  a->rpe_add_array("requiredAddons", false)->rpe_add_string(nullptr, "base");
  return a;
}

TEST(BinariseChecks, UnitsAndWeaponsFollowTheScopeRule) {
  Checked c;
  addon(c.s)->rpe_add_array("units", false)->rpe_add_string(nullptr, "PUB");
  c.s->rap_get_root()->rpe_add_extern("Outside");
  T* v = c.s->rap_add_class("CfgVehicles", nullptr);
  v->rpe_add_extern("Outside");
  v->rpe_add_class("Base", nullptr)->rpe_add_int("scope", 0);
  v->rpe_add_class("Pub", "Base")->rpe_add_int("scope", 2);
  v->rpe_add_class("Prot", nullptr)->rpe_add_string("scope", "protected");
  v->rpe_add_class("Inherits", "Pub");           // public through its parent
  v->rpe_add_class("Hidden", "Base");            // private through its parent
  v->rpe_add_class("Retexture", "Outside");      // parent elsewhere: listed
  c.s->rap_add_class("CfgAmmo", nullptr)->rpe_add_class("Bullet", nullptr)->rpe_add_int("scope", 2);
  T* w = c.s->rap_add_class("CfgWeapons", nullptr);
  w->rpe_add_class("Rifle", nullptr)->rpe_add_int("scope", 2);
  EXPECT_EQ(c.run(), 0) << captured();
  EXPECT_EQ(c.list("units"), (std::vector<std::string>{"Pub", "Prot", "Inherits", "Retexture"}));
  EXPECT_EQ(c.list("weapons"), (std::vector<std::string>{"Rifle"}));
  EXPECT_NE(captured().find("cfgPatches.my_addon.units[]= has been altered\r\n"), std::string::npos) << captured();
  EXPECT_NE(captured().find("cfgPatches.my_addon.weapons[]= has been altered\r\n"), std::string::npos);

  // The same set in another order and case is the author's list: left alone, no message.
  Checked same;
  T* list = addon(same.s)->rpe_add_array("weapons", false);
  list->rpe_add_string(nullptr, "b");
  list->rpe_add_string(nullptr, "A");
  T* w2 = same.s->rap_add_class("CfgWeapons", nullptr);
  w2->rpe_add_class("a", nullptr);
  w2->rpe_add_class("B", nullptr);
  EXPECT_EQ(same.run(), 0);
  EXPECT_EQ(same.list("weapons"), (std::vector<std::string>{"b", "A"}));
  EXPECT_EQ(captured().find("altered"), std::string::npos);

  Checked scalar;
  addon(scalar.s)->rpe_add_string("units", "Pub");
  scalar.s->rap_add_class("CfgVehicles", nullptr)->rpe_add_class("Pub", nullptr);
  EXPECT_EQ(scalar.run(), RAPMSG_UNITS_FAILED);
  EXPECT_NE(captured().find("A fault occured while trying to add class Pub from cfgVehicles to units[]=\r\n"),
            std::string::npos);
}

TEST(BinariseChecks, AddonDeclarationWarnings) {
  struct Case {
    char const* what;
    void (*build)(Sembric*);
    int message;
  };
  Case cases[] = {
      {"no cfgPatches", [](Sembric* s) { s->rap_add_class("CfgVehicles", nullptr); }, RAPMSG_NO_PATCHES_NAME},
      {"externs without requiredAddons",
       [](Sembric* s) {
         s->rap_add_class("CfgPatches", nullptr)->rpe_add_class("a", nullptr)->rpe_add_array("requiredAddons", false);
         s->rap_get_root()->rpe_add_extern("Outside");
       },
       RAPMSG_NO_REQUIRED_ADDONS},
      {"externs with requiredAddons",
       [](Sembric* s) {
         addon(s);
         s->rap_get_root()->rpe_add_extern("Outside");
       },
       0},
  };
  for (auto const& k : cases) {
    for (bool strict : {false, true}) {
      Checked c;
      k.build(c.s);
      c.s->rap_GetIO()->io_set_warnings_are_errors(strict);
      int want = k.message && strict ? RAP_STATUS + k.message : 0;
      EXPECT_EQ(c.run(), want) << k.what;
      bool said = captured().find(std::string("warning :") + Sembric::ErrorString(k.message)) != std::string::npos;
      EXPECT_EQ(said, k.message && !strict) << k.what << ": " << captured();
    }
  }
}

// A terrain addon: world classes, surfaces, surface characters and clutter.
void terrain(Sembric* s, char const* world, char const* wrp) {
  addon(s);
  T* worlds = s->rap_add_class("CfgWorlds", nullptr);
  worlds->rpe_add_class("DefaultWorld", nullptr)->rpe_add_class("clutter", nullptr)->rpe_add_class("Grass", nullptr);
  T* w = worlds->rpe_add_class(world, "DefaultWorld");
  w->rpe_add_string("worldName", wrp);
  w->rpe_add_int("minTreesInForestSquare", 2);
  w->rpe_add_class("clutter", nullptr)->rpe_add_class("Stone", nullptr);
  T* surfaces = s->rap_add_class("CfgSurfaces", nullptr);
  surfaces->rpe_add_class("Sea", nullptr)->rpe_add_string("character", "Empty");
  surfaces->rpe_add_class("Dirt", nullptr)->rpe_add_string("character", "DirtClutter");
  surfaces->rpe_add_class("Rock", nullptr)->rpe_add_string("character", "NoSuchCharacter");
  T* chars = s->rap_add_class("CfgSurfaceCharacters", nullptr);
  T* dirt = chars->rpe_add_class("DirtClutter", nullptr);
  T* p = dirt->rpe_add_array("probability", false);
  p->rpe_add_float(nullptr, 0.5f);
  p->rpe_add_float(nullptr, 0.6f);
  T* n = dirt->rpe_add_array("names", false);
  n->rpe_add_string(nullptr, "Stone");
  n->rpe_add_string(nullptr, "Flower");
}

TEST(BinariseChecks, TerrainAndClutter) {
  Checked c;
  terrain(c.s, "Abel", "\\tzk\\abel\\ABEL.wrp");
  EXPECT_EQ(c.run(), RAPMSG_CLUTTER);
  std::string m = captured();
  for (char const* line : {"\r\n'minRocksInRockSquare' is not stated in the cfgWorlds config\r\n",
                           "Checking cfgSurfaces and clutter...",
                           "\r\ncfgSurfaces.Rock.NoSuchCharacter has no class in Cfgsurfacecharacters\r\n",
                           "DirtClutter: sumof probabilities exceed 1.0. is 1.100000\r\n",
                           "\r\nCfgsurfacecharacters.DirtClutter.name[Flower] has no clutter class\r\n", "done\r\n"})
    EXPECT_NE(m.find(line), std::string::npos) << line << " in\n" << m;
  for (char const* absent : {"minTreesInForestSquare", "name[Stone]", "name[Grass]", "Sea", "not defined"})
    EXPECT_EQ(m.find(absent), std::string::npos) << absent;
  // The terrain is declared to the game.
  ASSERT_TRUE(c.s->rap_get_class("CfgWorldList"));
  EXPECT_TRUE(c.s->rap_get_class("CfgWorldList")->rpe_get_class("Abel"));
  EXPECT_EQ(c.list("worlds"), std::vector<std::string>{"Abel"});

  Checked wrong;
  terrain(wrong.s, "Eden", "\\tzk\\abel\\abel.wrp");
  EXPECT_EQ(wrong.run(), RAPMSG_WRP_NAME);
  EXPECT_NE(captured().find("\r\nwrp name '\\tzk\\abel\\abel.wrp' is not same as classname 'Eden'"), std::string::npos)
      << captured();
  EXPECT_EQ(wrong.s->rap_get_class("CfgWorldList"), nullptr);
}
}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DecodeHelpers.h"
#include "config/Sembric.h"

namespace {

struct Checked {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  int code;
  std::string messages;
  explicit Checked(std::string const& text, int flags = 0) {
    g_msgs.clear();
    code = s->rap_Create("config.cpp", flags | Sembric::RAPF_CONTENT_CHECKS, capture_msg, text.data(),
                         static_cast<unsigned>(text.size()));
    messages = g_msgs;
  }
  bool said(char const* text) const { return messages.find(text) != std::string::npos; }
  std::vector<std::string> list(char const* name) const {
    std::vector<std::string> out;
    rap_entry* addon = s->rap_get_class("CfgPatches")->rpe_get_class(nullptr);
    for (rap_entry* e = addon->rpe_get_array_contents(name); e; e = e->rpe_get_next_sibling())
      out.emplace_back(e->value());
    return out;
  }
};

constexpr char kAddon[] = "class CfgPatches { class my_addon { requiredAddons[] = {\"base\"}; %s }; };\n";
std::string addon(std::string const& inside, std::string const& rest) {
  std::string a = kAddon;
  return a.replace(a.find("%s"), 2, inside) + rest;
}

TEST(BinariseChecks, UnitsAndWeaponsFollowTheScopeRule) {
  Checked c(addon("units[] = {\"PUB\"};",
                  "class Outside;\n"
                  "class CfgVehicles { class Outside; class Base { scope = 0; }; class Pub: Base { scope = 2; };\n"
                  "  class Prot { scope = 1; }; class Inherits: Pub {}; class Hidden: Base {};\n"
                  "  class Retexture: Outside {}; };\n"
                  "class CfgAmmo { class Bullet { scope = 2; }; };\n"
                  "class CfgWeapons { class Rifle { scope = 2; }; };\n"));
  EXPECT_EQ(c.code, 0) << c.messages;
  EXPECT_EQ(c.list("units"), (std::vector<std::string>{"Pub", "Prot", "Inherits", "Retexture"}));
  EXPECT_EQ(c.list("weapons"), std::vector<std::string>{"Rifle"});
  EXPECT_TRUE(c.said("cfgPatches.my_addon.units[]= has been altered\r\n")) << c.messages;
  EXPECT_TRUE(c.said("cfgPatches.my_addon.weapons[]= has been altered\r\n"));

  // The same set in another order and case is the author's list: left alone, no message.
  Checked same(addon("weapons[] = {\"b\", \"A\"};", "class CfgWeapons { class a {}; class B {}; };"));
  EXPECT_EQ(same.list("weapons"), (std::vector<std::string>{"b", "A"}));
  EXPECT_FALSE(same.said("altered"));

  Checked scalar(addon("units = \"Pub\";", "class CfgVehicles { class Pub {}; };"));
  EXPECT_EQ(scalar.code, RAPMSG_UNITS_FAILED);
  EXPECT_TRUE(scalar.said("A fault occured while trying to add class Pub from cfgVehicles to units[]=\r\n"));
  EXPECT_TRUE(scalar.said("config.cpp: rebuilding units[]= failed\r\n")) << scalar.messages;
}

TEST(BinariseChecks, AddonDeclarationWarnings) {
  struct {
    char const* text;
    int message;
  } const cases[] = {
      {"class CfgVehicles {};", RAPMSG_NO_PATCHES_NAME},
      {"class CfgPatches { class a { requiredAddons[] = {}; }; };\nclass Outside;", RAPMSG_NO_REQUIRED_ADDONS},
      {"class CfgPatches { class a { requiredAddons[] = {\"x\"}; }; };\nclass Outside;", 0},
  };
  for (auto const& k : cases) {
    for (bool strict : {false, true}) {
      Checked c(k.text, strict ? Sembric::RAPF_WARNINGS_ARE_ERRORS : 0);
      EXPECT_EQ(c.code, k.message && strict ? RAP_STATUS + k.message : 0) << k.text;
      std::string warning = std::string("warning :config.cpp: ") + Sembric::ErrorString(k.message);
      bool warned = k.message && c.said(warning.c_str());
      EXPECT_EQ(warned, k.message && !strict) << k.text << ": " << c.messages;
    }
  }
}

// A terrain addon: a world class, surfaces, surface characters and clutter.
std::string terrain(char const* world, char const* wrp) {
  return addon("",
               std::string("class CfgWorlds { class DefaultWorld { class clutter { class Grass {}; }; };\n"
                           "  class ") + world + ": DefaultWorld { worldName = \"" + wrp +
                   "\"; minTreesInForestSquare = 2; cutscenes[] = {\"intro\"};\n"
                   "    class clutter { class Stone {}; }; }; };\n"
                   "class CfgSurfaces { class Sea { character = \"Empty\"; };\n"
                   "  class Dirt { character = \"DirtClutter\"; };\n"
                   "  class Rock { character = \"NoSuchCharacter\"; }; };\n"
                   "class CfgSurfaceCharacters { class DirtClutter { probability[] = {0.5, 0.6};\n"
                   "  names[] = {\"Stone\", \"Flower\"}; }; };\n");
}

TEST(BinariseChecks, TerrainAndClutter) {
  Checked c(terrain("Abel", "\\tzk\\abel\\ABEL.wrp"));
  EXPECT_EQ(c.code, RAPMSG_CLUTTER) << c.messages;
  for (char const* line : {"\r\n'minRocksInRockSquare' is not stated in the cfgWorlds config\r\n",
                           "\r\nWarning: do not put cutscenes in your wrp's pbo\r\n",
                           "Checking cfgSurfaces and clutter...",
                           "\r\ncfgSurfaces.Rock.NoSuchCharacter has no class in Cfgsurfacecharacters\r\n",
                           "DirtClutter: sumof probabilities exceed 1.0. is 1.100000\r\n",
                           "\r\nCfgsurfacecharacters.DirtClutter.name[Flower] has no clutter class\r\n", "done\r\n"})
    EXPECT_TRUE(c.said(line)) << line << " in\n" << c.messages;
  for (char const* absent : {"minTreesInForestSquare", "name[Stone]", "Sea", "not defined"})
    EXPECT_FALSE(c.said(absent)) << absent;
  // The terrain is declared to the game.
  ASSERT_TRUE(c.s->rap_get_class("CfgWorldList"));
  EXPECT_TRUE(c.s->rap_get_class("CfgWorldList")->rpe_get_class("Abel"));
  EXPECT_EQ(c.list("worlds"), std::vector<std::string>{"Abel"});

  Checked wrong(terrain("Eden", "abel.wrp"));
  EXPECT_EQ(wrong.code, RAPMSG_WRP_NAME);
  EXPECT_TRUE(wrong.said("\r\nwrp name 'abel.wrp' is not same as classname 'Eden'")) << wrong.messages;
  EXPECT_EQ(wrong.s->rap_get_class("CfgWorldList"), nullptr);
}
}  // namespace

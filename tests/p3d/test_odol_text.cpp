// The readable text of binarised models: embedded materials as rvmat text, animation classes as
// model.cfg classes, and the warnings that odd stored values raise.
#include <gtest/gtest.h>


#include <cstring>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "MlodBuilder.h"
#include "io/BisFileIO_test_util.h"
#include "p3d/OdolModel.h"
#include "text/GenString.h"

namespace {

using mlod_test::put32;
using mlod_test::putf;

// A material of the latest generation with the given stages (filter, texture) and a TI stage.
struct Material {
  uint32_t flags = 0, pixel = 102, vertex = 23, light = 1, fog = 1, flag_words = 1;
  std::vector<std::pair<uint32_t, std::string>> stages;

  std::string bytes() const {
    std::string s;
    put32(s, 11u);
    for (int i = 0; i < 24; ++i) putf(s, i % 4 == 3 ? 1.0f : 0.5f);
    putf(s, 40.0f);
    for (uint32_t v : {pixel, vertex, light, fog}) put32(s, v);
    s.append("surf.bisurf", 12);
    put32(s, flag_words);
    put32(s, flags);
    put32(s, static_cast<uint32_t>(stages.size()));
    put32(s, static_cast<uint32_t>(stages.size()));
    for (size_t i = 0; i < stages.size(); ++i) {
      put32(s, stages[i].first);
      s.append(stages[i].second.c_str(), stages[i].second.size() + 1);
      put32(s, static_cast<uint32_t>(i));
      s.push_back('\0');
    }
    for (size_t i = 0; i < stages.size(); ++i) {
      put32(s, 1u);
      for (float v : {1.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f}) putf(s, v);
    }
    put32(s, 3u);  // the TI stage
    s.append("ti.paa", 7);
    put32(s, 0u);
    s.push_back('\0');
    return s;
  }

  std::string text() const {
    std::string b = bytes();
    BisFileIO io;
    io.io_SetErrCallBack(capture_msg);
    g_msgs.clear();
    GenString t;
    auto const* p = reinterpret_cast<uint8_t const*>(b.data());
    odol_material_text(t, "m.rvmat", p, p + b.size(), io);
    return t.c_str();
  }
};

std::vector<std::pair<uint32_t, std::string>> super_stages() {
  std::vector<std::pair<uint32_t, std::string>> s(8, {3, "x.paa"});
  s[0].second.clear();
  return s;
}
}  // namespace

TEST(OdolText, MaterialStagesFiltersAndFlags) {
  Material m;
  m.flags = 0x4000 | 0x80 | 0x2;
  m.stages = {{1, ""}, {3, "n.paa"}, {0, "s.paa"}};
  m.pixel = 5;
  std::string t = m.text();
  EXPECT_NE(t.find("//Type: 11 (Arma3/VBS2)\r\n"), std::string::npos) << t;
  EXPECT_NE(t.find("surfaceInfo = surf.bisurf;\r\n"), std::string::npos);
  EXPECT_NE(t.find("PixelShaderId=NormalMapDiffuse;//5\r\nVertexShaderId=Super;//23\r\n"), std::string::npos) << t;
  EXPECT_NE(t.find("renderFlags[] = {NoZWrite,AlphaTest,};\r\n//some unknown renderflags 4000\r\n"), std::string::npos)
      << t;
  // Stage 0 has no texture and is skipped, but still counts; filter 3 writes no filter line.
  EXPECT_EQ(t.find("class stage0"), std::string::npos);
  EXPECT_NE(t.find("class stage1\r\n{\r\n\ttexture=\"n.paa\";\r\n\tuvSource=Tex;\r\n};\r\n"), std::string::npos) << t;
  EXPECT_NE(t.find("class stage2\r\n{\r\n\ttexture=\"s.paa\";\r\n\tFilter=Point;\r\n"), std::string::npos) << t;
  EXPECT_NE(t.find("class stageTI\r\n{\r\n\ttexture=\"ti.paa\";\r\n};\r\n"), std::string::npos) << t;
  EXPECT_NE(t.find("//};end class m.rvmat\r\n"), std::string::npos);
  EXPECT_EQ(g_msgs, "m.rvmat: Unknown Render flag=0x00004000\r\n");
}

TEST(OdolText, OddMaterialValuesAreReported) {
  struct Case {
    char const* what;
    void (*change)(Material&);
    char const* warning;
  } cases[] = {
      {"plain", [](Material&) {}, ""},
      {"light kind", [](Material& m) { m.light = 9; }, "unknown material 'mostly1' 9\r\n"},
      {"fog mode", [](Material& m) { m.fog = 5; }, "unknown material index 5\r\n"},
      {"two flag words", [](Material& m) { m.flag_words = 2; }, "unknown material data 2\r\n"},
      {"pixel shader", [](Material& m) { m.pixel = 200; }, "m.rvmat: Unknown pixelshader id=0x000000C8\r\n"},
      {"vertex shader", [](Material& m) { m.vertex = 4; }, "m.rvmat: Unknown vertexshader id=0x00000004\r\n"},
      {"filter", [](Material& m) { m.stages[3].first = 7; }, "filter in baked in rvmat is bad value\r\n"},
      {"missing stages", [](Material& m) { m.stages.resize(3); },
       "m.rvmat: Super samples 8 texture stages, the material has 3\r\n"},
      // A shader whose stage set is not settled is never checked.
      {"unchecked shader", [](Material& m) { m.pixel = 103, m.stages.resize(1); }, ""},
  };
  for (Case const& c : cases) {
    Material m;
    m.stages = super_stages();
    c.change(m);
    std::string t = m.text();
    EXPECT_EQ(g_msgs, c.warning) << c.what;
    EXPECT_NE(t.find("//};end class m.rvmat\r\n"), std::string::npos) << c.what;
  }
  Material bad;
  bad.stages = super_stages();
  bad.stages[3].first = 7;
  EXPECT_NE(bad.text().find("class stage3\r\n{\r\n\ttexture=\"x.paa\";\r\n\tFilter=Unknown (7);\r\n"), std::string::npos);
}

TEST(OdolText, AnimationClasses) {
  auto block = [](std::vector<float> words, uint32_t address_at) {
    std::string s;
    for (size_t i = 0; i < words.size(); ++i) {
      if (i == address_at)
        put32(s, static_cast<uint32_t>(words[i]));
      else
        putf(s, words[i]);
    }
    return s;
  };
  float here[6] = {1, 2, 3, 0, 1, 0}, there[6] = {1, 2, 4, 0, 1, 0};
  std::vector<std::pair<std::string_view, std::string_view>> bones = {{"door", ""}};
  struct Case {
    char const* what;
    uint32_t type, version;
    std::string block;
    std::vector<uint8_t const*> axes;
    std::vector<char const*> present, absent;
  } cases[] = {
      {"older rotation",
       0,
       48,
       block({0, 1, 0, 1, 1, 0, -1.5f}, 4),
       {reinterpret_cast<uint8_t const*>(here), reinterpret_cast<uint8_t const*>(here)},
       {"type=\"rotation\";", "selection=\"door\";", "axis=\"door_axis\";//*probably*", "sourceAddress = loop;",
        "angle1 = -1.5;//rad -85.94367", "//\t\t\t\tmemory = true;//(default assumed)"},
       {"animPeriod", "initPhase"}},
      {"axis moves between LODs",
       4,
       59,
       block({0, 1, 0, 1, 2, 0.5f, 2, 0.1f, 0.2f}, 6),
       {reinterpret_cast<uint8_t const*>(here), nullptr, reinterpret_cast<uint8_t const*>(there)},
       {"type=\"translation\";", "sourceAddress = mirror;", "offset1 = 0.2;", "animPeriod = 2.0;", "initPhase = 0.5;",
        "\t\t\t\tmemory = 0;//(default assumed)"},
       {"memory = true"}},
      {"period ignored by later models",
       9,
       73,
       block({0, 1, 0, 1, 0, 0, 0, 0.5f, -1}, 6),
       {},
       {"type=\"hide\";", "hideValue = 0.5;", "//\t\t\t\tunHideValue = -1.0;//(default)"},
       {"animPeriod", "memory", "axis="}},
      {"period still set in a later model", 1, 73, block({0, 1, 0, 1, 3, 0, 0, 0, 1}, 6), {}, {"animPeriod = 3.0;"}, {}},
      {"unknown type", 12, 73, block({0, 1, 0, 1, 0, 0, 7, 0, 0}, 6), {}, {"type=12;\r\n//unknown", "sourceAddress = 7;//unknown"}, {}},
  };
  for (Case const& c : cases) {
    OdolAnimation a;
    a.type = c.type;
    a.name = "anim";
    a.source = "door";
    a.block = reinterpret_cast<uint8_t const*>(c.block.data());
    a.block_size = static_cast<uint32_t>(c.block.size());
    a.bone = c.type < 8 ? 0 : 0xFFFFFFFFu;
    a.axes = c.axes;
    GenString t;
    odol_animation_text(t, a, c.version, bones);
    std::string text = t.c_str();
    EXPECT_EQ(text.rfind("\t\t\tclass anim\r\n\t\t\t{\r\n", 0), 0u) << c.what;
    for (char const* p : c.present) EXPECT_NE(text.find(p), std::string::npos) << c.what << ": " << p << "\n" << text;
    for (char const* p : c.absent) EXPECT_EQ(text.find(p), std::string::npos) << c.what << ": " << p << "\n" << text;
  }
}

// Editable models built byte by byte: what opens, what fails with which code, and what is written
// back.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "MlodBuilder.h"
#include "core/BisDLL.h"
#include "io/BisFileIO_test_util.h"
#include "p3d/Morvane.h"
#include "text/TokenPairs.h"

using namespace mlod_test;
namespace fs = std::filesystem;

namespace {

struct Opened {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  std::string bytes;  // the model is read in place: its buffer lives as long as it
  int r;
  explicit Opened(std::string in, unsigned flags = 0) : bytes(std::move(in)) {
    g_msgs.clear();
    m->p3d_GetIO()->io_SetErrCallBack(capture_msg);
    r = m->p3d_Open(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<unsigned>(bytes.size()), flags,
                    capture_msg);
  }
};

std::string read_file(fs::path const& p) {
  std::ifstream f(p, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

struct TempDir {
  fs::path path;
  TempDir() {
    std::string t = (fs::temp_directory_path() / "vendrak-p3d-XXXXXX").string();
    path = ::mkdtemp(t.data());
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
};

Lod geometry(uint32_t points = 3) {
  Lod l;
  l.points = points;
  l.resolution = 1e13f;
  l.taggs = {{"#Mass#", floats(points, 2.5f)}};
  return l;
}
}  // namespace

TEST(Mlod, ReadsLodsTablesAndTaggs) {
  Lod visual;
  visual.faces = {3, 4, 3};
  visual.taggs = {{"door", bytes(3 + 3, '\x7f')}, property("class", "house"), {"#UVset#", [] {
                    std::string d;
                    put32(d, 0);
                    for (int i = 0; i < 10; ++i) {  // 3 + 4 + 3 corners
                      putf(d, 0.75f);
                      putf(d, 0.125f);
                    }
                    return d;
                  }()}};
  Opened o(model({visual, geometry()}));
  ASSERT_EQ(o.r, 0) << g_msgs;
  EXPECT_EQ(o.m->p3d_GetLodCount(), 2);
  GenString kind;
  o.m->p3d_GetTypeStr(&kind);
  EXPECT_STREQ(kind.c_str(), "MLOD P3DM (arma) : nLods=2\r\n");

  void const* l = o.m->p3d_get_lod(0);
  EXPECT_EQ(o.m->p3d_get_nPoints(l), 3u);
  EXPECT_EQ(o.m->p3d_get_nTriangles(l), 2u);
  EXPECT_EQ(o.m->p3d_get_nQuads(l), 1u);
  unsigned long n = 0;
  LodNamedSelection const* sel = o.m->p3d_get_named_selection_table(l, &n);
  ASSERT_EQ(n, 1u);
  EXPECT_EQ(sel[0].name, "door");
  EXPECT_EQ(sel[0].point_weights[2], 0x7f);
  // UV set 0 is what the corners carry.
  MlodLod const* lod = static_cast<MlodLod const*>(l);
  float u, v;
  lod->corner_uv(1, 3, u, v);
  EXPECT_EQ(u, 0.75f);
  EXPECT_EQ(v, 0.125f);
  EXPECT_EQ(o.m->p3d_get_texture_name(l, 0), "tex.paa");
  EXPECT_EQ(o.m->p3d_get_material(l, 0), "mat.rvmat");

  void const* geo = o.m->p3d_get_lod(1);
  EXPECT_DOUBLE_EQ(o.m->p3d_get_calculated_total_mass(geo), 7.5);
  EXPECT_EQ(o.m->p3d_get_calculated_bounds_max(geo).y, 4.0f);
  EXPECT_EQ(o.m->p3d_get_calculated_cog(geo).x, 1.0f);
}

TEST(Mlod, KindsOfFile) {
  Lod sp3x;
  sp3x.magic = "SP3X";
  sp3x.version = 153;
  Lod sp3d = sp3x;
  sp3d.magic = "SP3D";
  sp3d.with_taggs = false;
  struct Case {
    std::string bytes;
    char const* text;
  } cases[] = {
      {model({sp3x}), "MLOD SP3X (ofp) : nLods=1\r\n"},
      {sp3x.bytes(), "OFP DEMO SP3X\r\n : nLods=1\r\n"},
      {sp3d.bytes(), "OFP DEMO SP3D\r\n : nLods=1\r\n"},
      // Some old tools wrote the version as the float 1.1.
      {model({Lod{}}, 0x3F8CCCCD), "MLOD P3DM (arma) : nLods=1\r\n"},
  };
  for (Case const& c : cases) {
    Opened o(c.bytes);
    ASSERT_EQ(o.r, 0) << c.text << g_msgs;
    GenString t;
    o.m->p3d_GetTypeStr(&t);
    EXPECT_STREQ(t.c_str(), c.text);
  }
}

TEST(Mlod, LodWithoutTaggsHasResolutionOne) {
  Lod bare;
  bare.with_taggs = false;
  Opened o(model({bare}));
  ASSERT_EQ(o.r, 0);
  EXPECT_EQ(o.m->p3d_get_resolution(0), 1.0f);
  EXPECT_EQ(o.m->p3d_get_nNamedSelections(o.m->p3d_get_lod(0)), 0u);
}

TEST(Mlod, ShortMassTableIsReadAsFourBytesAPoint) {
  Lod geo = geometry(4);
  geo.taggs = {{"#Mass#", floats(4, 1.5f), 4}};
  Opened o(model({geo}));
  ASSERT_EQ(o.r, 0) << g_msgs;
  void const* l = o.m->p3d_get_lod(0);
  EXPECT_DOUBLE_EQ(o.m->p3d_get_calculated_total_mass(l), 6.0);
  EXPECT_TRUE(static_cast<MlodLod const*>(l)->mass_short);
}

TEST(Mlod, FailuresEndWithTheirCodes) {
  auto with = [](auto change) {
    Lod l;
    change(l);
    return model({l});
  };
  std::string not_one = model({Lod{}});
  not_one[not_one.size() - 4 - 4 - 12 - 1] = 2;  // the byte before "#EndOfFile#"
  struct Case {
    char const* what;
    std::string bytes;
    int code;
    char const* message;
  } cases[] = {
      {"bad version", model({Lod{}}, 256), P3DERR_BAD_HEADER, ""},
      {"P3DM version", with([](Lod& l) { l.version = 255; }), P3DERR_WRONG_HDR_TYPE, ""},
      {"SP3X version", with([](Lod& l) { l.magic = "SP3X"; }), P3DERR_WRONG_HDR_TYPE, ""},
      {"five corners", with([](Lod& l) { l.faces = {5}; }), GE_DEBUG_TRAP, "bad facetype (5). Needs to be 3, or 4\r\n"},
      {"unknown tagg", with([](Lod& l) { l.taggs = {{"#Bogus#", ""}}; }), GE_DEBUG_TRAP, "unknown tagg name #Bogus#\r\n"},
      {"tagg intro", not_one, P3DERR_UNKNOWN_TAGG, ""},
      {"property length", with([](Lod& l) { l.taggs = {{"#Property#", bytes(127)}}; }), GE_INVALID_FILE,
       "#Property#\r\nbad tagg count 127\r\n"},
      {"selection length", with([](Lod& l) { l.taggs = {{"wheel", bytes(5)}}; }), GE_INVALID_FILE,
       "wheel\r\nbad tagg count 5\r\n"},
      {"uvset length", with([](Lod& l) { l.taggs = {{"#UVset#", bytes(4 + 8 * 4)}}; }), GE_INVALID_FILE, ""},
      {"edges twice", with([](Lod& l) { l.taggs = {{"#SharpEdges#", bytes(8)}, {"#SharpEdges#", ""}}; }),
       P3DERR_SHARP_EDGES_REPEATED, ""},
      {"geometry without mass", with([](Lod& l) { l.resolution = 1e13f; }), P3DERR_MASS_MISSING,
       "Geolod has no mass\r\n"},
      {"mass twice", with([](Lod& l) { l.resolution = 1e13f, l.taggs = {{"#Mass#", bytes(12)}, {"#Mass#", bytes(12)}}; }),
       P3DERR_MASS_TWICE, ""},
      {"mass in a visual LOD", with([](Lod& l) { l.taggs = {{"#Mass#", bytes(12)}}; }), P3DERR_MASS_WRONG_LOD, ""},
      {"no lods", model({}), P3DERR_NO_LOD, ""},
      {"not a model", "ABCDxxxxxxxx", P3DERR_UNDECODABLE, ""},
      {"odd section", with([](Lod& l) { l.with_taggs = false; }) + "XXXX", P3DERR_UNDECODABLE, ""},
  };
  for (Case const& c : cases) {
    Opened o(c.bytes);
    EXPECT_EQ(o.r, c.code) << c.what;
    if (*c.message) {
      EXPECT_NE(g_msgs.find(c.message), std::string::npos) << c.what << ": " << g_msgs;
    }
    EXPECT_EQ(o.m->p3d_GetLodCount(), 0) << c.what;
  }
  // Buoyancy and physics LODs carry mass legitimately.
  for (float res : {2e13f, 3e13f, 4e13f}) {
    Lod l = geometry();
    l.resolution = res;
    EXPECT_EQ(Opened(model({l})).r, 0) << res;
  }
}

TEST(Mlod, LyingCountsFailBeforeAllocating) {
  auto with_count = [](size_t at, uint32_t v) {
    std::string s = model({Lod{}});
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return s;
  };
  // Offsets: file header 12, LOD magic/size/version 12, then points, normals, faces.
  size_t const lods = 8, points = 24, normals = 28, faces = 32;
  for (auto [at, v] : {std::pair{lods, 0xFFFFFFFFu}, {points, 0x10000000u}, {normals, 0xFFFFFFFFu},
                       {faces, 0x7FFFFFFFu}, {faces, 2u}}) {
    Opened o(with_count(at, v));
    EXPECT_EQ(o.r, GE_EOF) << at;
  }
  // A tagg length beyond the file.
  Lod l;
  l.taggs = {{"#MaterialIndex#", "", 0x7FFFFFF0}};
  EXPECT_EQ(Opened(model({l})).r, GE_EOF);
  // Taggs that run out before "#EndOfFile#".
  std::string cut = model({Lod{}});
  cut.resize(cut.find("#EndOfFile#") - 1);
  EXPECT_EQ(Opened(cut).r, P3DERR_NO_LOD);
}

TEST(Mlod, TrailingBlanksAreWarnedTrimmedAndRepaired) {
  Lod l;
  l.taggs = {property("damage ", "tree "), {"wheel  ", bytes(4)}};
  std::string file = model({l});
  Opened o(file);
  ASSERT_EQ(o.r, 0);
  EXPECT_TRUE(o.m->p3d_has_trailing_spaces());
  EXPECT_NE(g_msgs.find("\r\nWARNING***:lod 0: tagg property 'damage ' = 'tree ' contains trailing space(s)\r\n"
                            "Use morvane +fx to fix it\r\n"),
            std::string::npos)
      << g_msgs;
  EXPECT_NE(g_msgs.find("WARNING***:lod 0: named selection 'wheel  ' contains trailing space(s)"), std::string::npos);
  EXPECT_NE(g_msgs.find("buffer trailing spaces detected\r\n"), std::string::npos);
  TokenPairs props;
  ASSERT_EQ(o.m->p3d_get_properties(&props, 0), 0);
  EXPECT_STREQ(props.tkn_find_value("damage"), "tree");

  TempDir dir;
  fs::path out = dir.path / "fixed.p3d";
  ASSERT_EQ(o.m->p3d_Create(out.c_str()), 0);
  Lod want;
  want.taggs = {property("damage", "tree"), {"wheel", bytes(4)}};
  EXPECT_EQ(read_file(out), model({want}));

  // Treated as errors, the blanks fail the open.
  Opened strict(file, Morvane::OPEN_WARNINGS_ARE_ERRORS);
  EXPECT_EQ(strict.r, P3DERR_TRAILING_SPACES);
  EXPECT_EQ(strict.m->p3d_GetLodCount(), 0);
}

TEST(Mlod, WritesBackWhatItRead) {
  Lod p3dm;
  p3dm.taggs = {{"#Lock#", bytes(4)}, {"#SharpEdges#", bytes(16)}, {"#Animation#", floats(1 + 9, 0.5f)}};
  Lod sp3x = geometry();
  sp3x.magic = "SP3X";
  sp3x.version = 153;
  sp3x.taggs.push_back(property("class", "house"));
  Lod short_mass = geometry();
  short_mass.taggs = {{"#Mass#", floats(3, 1.0f), 3}};
  std::string with_garbage = model({sp3x});
  // Bytes after a fixed field's text are kept as stored.
  with_garbage[with_garbage.find("tex.paa") + 10] = 'Z';
  TempDir dir;
  for (std::string const& in : {model({p3dm, geometry()}), model({sp3x}), sp3x.bytes(), model({short_mass}),
                                with_garbage, model({p3dm}) + "tail"}) {
    Opened o(in);
    ASSERT_EQ(o.r, 0) << g_msgs;
    fs::path out = dir.path / "copy.p3d";
    ASSERT_EQ(o.m->p3d_UnBinarised(out.c_str()), 0);
    EXPECT_EQ(read_file(out), in);
  }
}

TEST(Mlod, SetPropertyAndLandClass) {
  Lod geo = geometry();
  geo.taggs.push_back(property("dammage", "building"));
  geo.taggs.push_back(property("class", "House"));
  Opened o(model({Lod{}, geo}));
  ASSERT_EQ(o.r, 0);
  EXPECT_STREQ(o.m->p3d_needs_land_class(), "house");
  ASSERT_EQ(o.m->p3d_set_property("DAMAGE", "tree", 1e13f), 0);
  ASSERT_EQ(o.m->p3d_set_property("class", "road", 1e13f), 0);
  EXPECT_EQ(o.m->p3d_set_property("class", "x", 5.0f), P3DERR_NO_LOD);
  TokenPairs props;
  o.m->p3d_get_properties(&props, 1);
  EXPECT_EQ(props.tkn_find_value("dammage"), nullptr);
  EXPECT_STREQ(props.tkn_find_value("damage"), "tree");
  EXPECT_EQ(o.m->p3d_needs_land_class(), nullptr);

  // The changes survive writing and reading back.
  TempDir dir;
  fs::path out = dir.path / "props.p3d";
  ASSERT_EQ(o.m->p3d_Create(out.c_str()), 0);
  Opened back(read_file(out));
  ASSERT_EQ(back.r, 0);
  EXPECT_STREQ(back.m->p3d_GetLodProperty("damage"), "tree");
  EXPECT_STREQ(back.m->p3d_GetLodProperty("CLASS"), "road");
}

TEST(Mlod, ObsoletePointFlagsAreClearedInArmaLodsOnly) {
  Lod arma;
  arma.point_flags = 0x00120102;  // user value, decal, above surface
  Lod ofp = arma;
  ofp.magic = "SP3X";
  ofp.version = 153;
  Opened o(model({arma, ofp}));
  ASSERT_EQ(o.r, 0);
  EXPECT_EQ(o.m->p3d_remove_obsolete_flags(), 3);
  EXPECT_EQ(static_cast<MlodLod const*>(o.m->p3d_get_lod(0))->point_flags(1), 0x2u);
  EXPECT_EQ(static_cast<MlodLod const*>(o.m->p3d_get_lod(1))->point_flags(1), 0x00120102u);
}

TEST(Mlod, ResolutionNames) {
  struct Case {
    float res;
    char const* text;
  } cases[] = {
      {1.0f, "1.0"},
      {1e13f, "1e+013 Geometry"},
      {2e13f, "2e+013 bouyancy"},
      {10005.0f, "10005.0 ShadowVolume 5"},
      {20001.0f, "20001.0 Edit 1"},
      {1200.0f, "1200.0 View Cargo"},
      {2.1e16f, "2.1e+016 Wreck"},
      {30000.0f, "30000.0 (0x46EA6000)"},
      {1.0000001e13f, "1.0000001e+013 (0x551184E8)"},  // not the exact Geometry bits
  };
  for (Case const& c : cases) {
    GenString t;
    lod_resolution_text(c.res, false, t);
    EXPECT_STREQ(t.c_str(), c.text);
  }
}

TEST(Mlod, DemoBlocksAndTheDemoLayout) {
  Lod sp3d;
  sp3d.magic = "SP3D";
  sp3d.with_taggs = false;
  auto with_demo = [&](uint32_t points, uint32_t length) {
    std::string s = sp3d.bytes() + "SS3D";
    put32(s, points);
    put32(s, 1);  // faces
    put32(s, 1);  // normals
    put32(s, length);
    s += std::string(points + 1 + 1 + length, 'd');
    return s;
  };
  std::string good = with_demo(3, 8);
  {
    Opened o(good);
    ASSERT_EQ(o.r, 0) << g_msgs;
    EXPECT_EQ(o.m->p3d_GetType(), Morvane::KIND_DEMO_SP3D);
    TempDir dir;
    fs::path out = dir.path / "demo.p3d";
    ASSERT_EQ(o.m->p3d_Create(out.c_str()), 0);
    // The demo layout is written in the OFP one: points gain a zero flag word.
    Opened back(read_file(out));
    ASSERT_EQ(back.r, 0) << g_msgs;
    EXPECT_EQ(back.m->p3d_GetType(), Morvane::KIND_DEMO_SP3X);
    void const* l = back.m->p3d_get_lod(0);
    EXPECT_EQ(back.m->p3d_get_nPoints(l), 3u);
    EXPECT_EQ(static_cast<MlodLod const*>(l)->point(2).y, 4.0f);
    EXPECT_EQ(static_cast<MlodLod const*>(l)->demo_size, 4u + 16 + 3 + 1 + 1 + 8);  // kept with its magic
  }
  EXPECT_EQ(Opened(with_demo(4, 8)).r, P3DERR_UNDECODABLE);  // counts that differ from the LOD's
  EXPECT_EQ(Opened(with_demo(3, 6)).r, P3DERR_UNDECODABLE);  // a length not a multiple of 4
}

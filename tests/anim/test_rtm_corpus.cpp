#include <gtest/gtest.h>

#include <filesystem>

#include "RtmBuilder.h"
#include "anim/KinterNew.h"
#include "core/BisDLL.h"
#include "support/CorpusFile.h"

namespace fs = std::filesystem;

namespace {
std::string const kCorpus = VENDRAK_CORPUS;

// Where an editable file's own head starts: after the block of events the current model editor
// puts first (u32 0, u32 count, then per event a time and two strings of a length byte each).
size_t text_head(RtmBytes const& b) {
  if (b.size() < 16 || std::memcmp(b.data(), "RTM_MDAT", 8) != 0) return 0;
  uint32_t count;
  std::memcpy(&count, &b[12], 4);
  size_t at = 16;
  for (uint32_t e = 0; e < count && at + 6 <= b.size(); ++e) {
    at += 4;
    at += 1 + b[at];
    at += 1 + b[at];
  }
  return at;
}

std::vector<fs::path> corpus_rtms() {
  std::vector<fs::path> out;
  // An editable file with events, wherever the corpus keeps it.
  if (fs::path p = corpus_file("rtm", "armaio_animation_mdat.rtm"); p.parent_path().filename() != "rtm" && fs::exists(p))
    out.push_back(p);
  for (char const* dir : {"/rtm", "/addon-src/tsp_animate_radio/anim"}) {
    std::error_code ec;
    for (auto const& e : fs::directory_iterator(kCorpus + dir, ec))
      if (e.path().extension() == ".rtm") out.push_back(e.path());
  }
  std::sort(out.begin(), out.end());
  return out;
}

uint32_t at32(RtmBytes const& b, size_t at) {
  uint32_t v;
  std::memcpy(&v, &b[at], 4);
  return v;
}

// How far a rotation part strays from a rotation: what no quaternion can carry.
float defect(XYZTransform const& t) {
  XYZTriplet const r[3] = {t.aside, t.up, t.dir};
  float m = 0;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      float d = r[i].x * r[j].x + r[i].y * r[j].y + r[i].z * r[j].z - (i == j ? 1.0f : 0.0f);
      m = std::max(m, std::fabs(d));
    }
  return m;
}

#define SKIP_WITHOUT_CORPUS() \
  if (!fs::exists(kCorpus + "/rtm")) GTEST_SKIP() << "no corpus at " << kCorpus

// Every file opens with the counts of its head and gives every transform; a binarised one
// written again (with or without a skeleton) is byte for byte the file read.
TEST(RtmCorpus, EveryFileOpensAndBinarisedOnesWriteBackIdentical) {
  SKIP_WITHOUT_CORPUS();
  auto files = corpus_rtms();
  EXPECT_GE(files.size(), 30u);
  std::string cfg = kCorpus + "/cfgtext/epochfork_dayz_code_anim_model.cfg", out = rtm_tmp("again.rtm");
  for (auto const& p : files) {
    RtmBytes b = rtm_read(p);
    bool const binarised = b[0] == 'B';
    size_t const head = binarised ? 0 : text_head(b);
    for (char const* skeleton : {static_cast<char const*>(nullptr), binarised ? cfg.c_str() : nullptr}) {
      BisDLL dll;
      KinterNew* k = dll.dll_GetKinter();
      ASSERT_EQ(k->rtm_Open(p.c_str(), nullptr, skeleton), 0) << p;
      EXPECT_EQ(k->rtm_GetFrameCount(), at32(b, binarised ? 21 : head + 20)) << p;
      EXPECT_EQ(k->rtm_GetBoneCount(), at32(b, binarised ? 29 : head + 24)) << p;
      EXPECT_EQ(k->rtm_GetKind(), binarised ? int(at32(b, 4)) : 0) << p;
      for (unsigned f = 0; f < k->rtm_GetFrameCount(); ++f)
        for (unsigned bone = 0; bone < k->rtm_GetBoneCount(); ++bone) ASSERT_NE(k->rtm_GetTransform(f, bone), nullptr);
      if (!binarised) break;
      ASSERT_EQ(k->rtm_Create(out.c_str(), KinterNew::KIND_BINARISED_AS_READ), 0) << p;
      EXPECT_TRUE(rtm_read(out) == b) << p;
    }
  }
}

// A binarised model's skeleton gives the parents that the model.cfg of the same skeleton gives.
TEST(RtmCorpus, SkeletonFromModels) {
  SKIP_WITHOUT_CORPUS();
  std::string rtm = kCorpus + "/rtm/ace_WipeGlasses_bmtr.rtm";
  std::string cfg = kCorpus + "/cfgtext/epochfork_dayz_code_anim_model.cfg";
  BisDLL dll, dll2;
  KinterNew* by_cfg = dll.dll_GetKinter();
  KinterNew* by_model = dll2.dll_GetKinter();
  ASSERT_EQ(by_cfg->rtm_Open(rtm.c_str(), nullptr, cfg.c_str()), 0);
  ASSERT_EQ(by_model->rtm_Open(rtm.c_str(), nullptr, (kCorpus + "/p3d-odol/tfar_TFR_BACKPACK_odol59.p3d").c_str()), 0);
  EXPECT_STREQ(by_model->rtm_GetSkeletonName(), "OFP2_ManSkeleton");
  for (unsigned b = 0; b < by_cfg->rtm_GetBoneCount(); ++b) {
    EXPECT_EQ(by_model->rtm_GetBoneParent(b), by_cfg->rtm_GetBoneParent(b)) << by_cfg->rtm_GetBoneName(b);
    EXPECT_EQ(rtm_max_diff(*by_model->rtm_GetTransform(3, b), *by_cfg->rtm_GetTransform(3, b), true), 0);
  }
  struct Case {
    char const* model;
    int code;
  } const cases[] = {
      {"/p3d-odol/ace_cabletie_odol73.p3d", RTMERR_NEED_SKELETON},    // no skeleton
      {"/p3d-odol/wwepoch_MBG_Police_Station_odol48.p3d", RTMERR_NEED_SKELETON},  // not these bones
      {"/p3d-mlod/cba_BuildingPos.p3d", RTMERR_P3D_UNBINARISED},
  };
  for (auto const& c : cases) {
    BisDLL d;
    EXPECT_EQ(d.dll_GetKinter()->rtm_Open(rtm.c_str(), nullptr, (kCorpus + c.model).c_str()), c.code) << c.model;
  }
}

// Editable -> binarised (parents from the model.cfg that came with the animation) -> editable. The
// bound: a rotation element moves by at most 2e-4 beyond the source's own departure from a pure
// rotation (16-bit quaternion parts); a position by at most 1e-3 (half precision, 2^-11 of
// magnitudes below 2 units).
TEST(RtmCorpus, EditableThroughBinarisedStaysWithinQuantisation) {
  SKIP_WITHOUT_CORPUS();
  struct Case {
    char const* rtm;
    char const* cfg;
  } const cases[] = {
      {"/rtm/xm25_ata_xm25handpos.rtm", "/cfgtext/xm25_anim_model.cfg"},
      {"/rtm/rebal_armst_compass.rtm", "/cfgtext/xm25_anim_model.cfg"},
      {"/rtm/tsp_emotes_bird_loop.rtm", "/cfgtext/epochfork_dayz_code_anim_model.cfg"},
  };
  for (auto const& c : cases) {
    std::string rtm = kCorpus + c.rtm, cfg = kCorpus + c.cfg, bin = rtm_tmp("corpus.bin"), txt = rtm_tmp("corpus.rtm");
    BisDLL dll;
    KinterNew* source = dll.dll_GetKinter();
    ASSERT_EQ(source->rtm_Open(rtm.c_str(), nullptr, cfg.c_str()), 0) << c.rtm;
    ASSERT_EQ(source->rtm_Create(bin.c_str(), KinterNew::KIND_A3_LZO), 0) << c.rtm;
    BisDLL dll2;
    KinterNew* k = dll2.dll_GetKinter();
    ASSERT_EQ(k->rtm_Open(bin.c_str(), nullptr, cfg.c_str()), 0) << c.rtm;
    ASSERT_EQ(k->rtm_UnBinarised(txt.c_str()), 0);
    ASSERT_EQ(k->rtm_Open(txt.c_str(), nullptr, nullptr), 0);
    ASSERT_EQ(k->rtm_GetFrameCount(), source->rtm_GetFrameCount());
    ASSERT_EQ(k->rtm_GetBoneCount(), source->rtm_GetBoneCount());
    for (unsigned f = 0; f < k->rtm_GetFrameCount(); ++f) {
      EXPECT_EQ(k->rtm_GetFrameTime(f), source->rtm_GetFrameTime(f));
      for (unsigned b = 0; b < k->rtm_GetBoneCount(); ++b) {
        XYZTransform const& want = *source->rtm_GetTransform(f, b);
        XYZTransform const& got = *k->rtm_GetTransform(f, b);
        ASSERT_LE(rtm_max_diff(got, want, false), 2e-4f + defect(want)) << c.rtm << " frame " << f << " bone " << b;
        ASSERT_LE(rtm_max_diff(got, want, true), 1e-3f) << c.rtm << " frame " << f << " bone " << b;
      }
    }
  }
}

// The dog's bark exists in both forms. With a skeleton in which the legs hang from the hips and the
// arms from the shoulders, the binarised frames rebuild the editable ones: this pins down the
// quaternion's components and the axes of the binarised form.
TEST(RtmCorpus, BinarisedDogMatchesItsEditableTwin) {
  SKIP_WITHOUT_CORPUS();
  std::string cfg = rtm_write("dog.cfg", R"(class CfgSkeletons { class Dog { skeletonBones[] = {
    "hips","", "spine","hips", "spine1","spine", "spine2","spine1", "neck","spine2", "neck1","neck",
    "head","neck1", "jaw","head", "leftShoulder","spine2", "leftArm","leftShoulder",
    "leftForeArm","leftArm", "leftHand","leftForeArm", "rightShoulder","spine2", "rightArm","rightShoulder",
    "rightForeArm","rightArm", "rightHand","rightForeArm", "leftUpLeg","hips", "leftLeg","leftUpLeg",
    "leftFoot","leftLeg", "rightUpLeg","hips", "rightLeg","rightUpLeg", "rightFoot","rightLeg" }; }; };)");
  BisDLL dll;
  KinterNew* bin = dll.dll_GetKinter();
  ASSERT_EQ(bin->rtm_Open((kCorpus + "/rtm/wwepoch_dogBarkOnce_bmtr3.rtm").c_str(), nullptr, cfg.c_str()), 0);
  BisDLL dll2;
  KinterNew* text = dll2.dll_GetKinter();
  ASSERT_EQ(text->rtm_Open((kCorpus + "/rtm/epochfork_dogBarkOnce_rtm0101.rtm").c_str(), nullptr, nullptr), 0);
  ASSERT_EQ(bin->rtm_GetFrameCount(), text->rtm_GetFrameCount());
  for (unsigned b = 0; b < bin->rtm_GetBoneCount(); ++b) {
    unsigned t = 0;
    while (t < text->rtm_GetBoneCount() && strcasecmp(text->rtm_GetBoneName(t), bin->rtm_GetBoneName(b)) != 0) ++t;
    ASSERT_LT(t, text->rtm_GetBoneCount()) << bin->rtm_GetBoneName(b);
    for (unsigned f = 0; f < bin->rtm_GetFrameCount(); ++f) {
      EXPECT_LE(rtm_max_diff(*bin->rtm_GetTransform(f, b), *text->rtm_GetTransform(f, t), false), 6e-4f);
      EXPECT_LE(rtm_max_diff(*bin->rtm_GetTransform(f, b), *text->rtm_GetTransform(f, t), true), 6e-4f);
    }
  }
}
}  // namespace

// Events of an editable file from the current model editor: listed, written back in the editable
// form, and carried through a binarised copy as key stones.
TEST(RtmCorpus, EditableEventsSurviveEveryForm) {
  fs::path p = corpus_file("rtm", "armaio_animation_mdat.rtm");
  if (!fs::exists(p)) GTEST_SKIP() << "no corpus file " << p;
  std::string bin = rtm_tmp("events.rtm"), text = rtm_tmp("events_text.rtm");
  std::string cfg = rtm_write("events.cfg", R"(class CfgSkeletons { class Four { skeletonBones[] = {
      "Pelvis", "", "Torso", "Pelvis", "RightArm", "Torso", "LeftArm", "Torso"}; }; };)");
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  ASSERT_EQ(k->rtm_Open(p.c_str(), nullptr, cfg.c_str()), 0);
  ASSERT_EQ(k->rtm_Create(text.c_str(), KinterNew::KIND_TEXT), 0);
  EXPECT_TRUE(rtm_read(text) == rtm_read(p.string())) << "the editable form did not come back unchanged";
  ASSERT_EQ(k->rtm_GetSoundCount(), 2u);
  EXPECT_EQ(k->rtm_GetEvent(0)->name, "Step");
  EXPECT_EQ(k->rtm_GetEvent(0)->value, "Sound");
  EXPECT_EQ(k->rtm_GetEvent(1)->name, "Test");
  EXPECT_EQ(k->rtm_GetEvent(1)->value, "Prop");
  for (int version : {4, 5}) {
    ASSERT_EQ(k->rtm_Create(bin.c_str(), version), 0) << version;
    BisDLL again;
    KinterNew* b = again.dll_GetKinter();
    ASSERT_EQ(b->rtm_Open(bin.c_str(), nullptr, nullptr), 0) << version;
    ASSERT_EQ(b->rtm_GetSoundCount(), 2u) << version;
    for (unsigned e = 0; e < 2; ++e) {
      EXPECT_EQ(b->rtm_GetEvent(e)->id, -1) << version;
      EXPECT_EQ(b->rtm_GetEvent(e)->name, k->rtm_GetEvent(e)->name) << version;
      EXPECT_EQ(b->rtm_GetEvent(e)->value, k->rtm_GetEvent(e)->value) << version;
      EXPECT_EQ(b->rtm_GetEvent(e)->time, k->rtm_GetEvent(e)->time) << version;
    }
  }
}

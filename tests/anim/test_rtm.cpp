#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "RtmBuilder.h"
#include "anim/KinterNew.h"
#include "anim/Qnion.h"
#include "core/BisDLL.h"

namespace {
struct Rtm {
  BisDLL dll;
  KinterNew* k = dll.dll_GetKinter();
  RtmBytes bytes;
  int open(RtmBytes b, char const* skeleton = nullptr) {
    bytes = std::move(b);
    return k->rtm_Open(bytes.data(), unsigned(bytes.size()), nullptr, skeleton);
  }
};

// Two skeletons: the first lacks "hand", the second has every bone, spelt its own way.
constexpr char kTwoSkeletons[] = R"(
class CfgSkeletons {
  class Default;
  class First { skeletonBones[] = {"root","", "arm","root"}; };
  class Second: First {
    isDiscrete = 0;
    skeletonBones[] = {
      "Root", "",
      "Arm", "Root",
      "Hand", "Arm",
    };
  };
};
class CfgModels { class Default; };
)";

RTM_Key key(int16_t qx, int16_t qy, int16_t qz, int16_t qw, float x, float y, float z) {
  RTM_Key k;
  k.q[0] = qx, k.q[1] = qy, k.q[2] = qz, k.q[3] = qw;
  k.t[0] = RTM_Key::rk_FloatToHalf(x), k.t[1] = RTM_Key::rk_FloatToHalf(y), k.t[2] = RTM_Key::rk_FloatToHalf(z);
  return k;
}

// Version 4, two frames of root -> arm -> hand, and one sound.
RtmBytes three_bone_v4() {
  RtmWriter w = bmtr_head(4, 2, {"root", "arm", "hand"});
  w.u32(0).u32(1).u32(0).sz("step").f32(0.5f).u8(0);
  w.u32(2).f32(0).f32(1);
  // root: a quarter turn about z (stored as is: z is not mirrored), placed at (1, 2, 3), whose x and
  // z are stored negated; arm one unit up its parent's y; hand one unit further.
  for (int f = 0; f < 2; ++f)
    w.u32(3).key(key(0, 0, 11585, 11585, -1, 2, -3)).key(key(0, 0, 0, 16384, 0, 1, 0)).key(key(0, 0, 0, 16384, 0, 1, 0));
  return w.b;
}

TEST(RtmKinds, SignaturesAndKindTexts) {
  struct Case {
    RtmBytes head;
    int kind;
    char const* text;
  } const cases[] = {
      {RtmWriter().raw("RTM_0101", 8).b, 0, "UNbinarised"},
      {RtmWriter().raw("RTM_0102", 8).b, -1, "faulty"},
      {RtmWriter().raw("BMTR", 4).u32(2).u8(1).b, -1, "faulty"},
      {RtmWriter().raw("BMTR", 4).u32(3).u8(1).b, 3, "binarised A2"},
      {RtmWriter().raw("BMTR", 4).u32(3).u8(0).b, -1, "faulty"},
      {RtmWriter().raw("BMTR", 4).u32(4).u8(1).b, 4, "binarised A3 (sounds)"},
      {RtmWriter().raw("BMTR", 4).u32(5).u8(1).b, 5, "binarised A3+ (sounds+lzo)"},
      {RtmWriter().raw("BMTR", 4).u32(6).u8(1).b, -1, "faulty"},
      {RtmWriter().raw("BMTR", 4).u32(5).b, -1, "faulty"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(KinterNew::rtm_TypeOfBuffer(c.head.data(), c.head.size()), c.kind);
    EXPECT_STREQ(KinterNew::rtm_KindStr(c.kind), c.text);
    std::string p = rtm_write("kind.rtm", std::string(c.head.begin(), c.head.end()));
    EXPECT_STREQ(KinterNew::rtm_TypeStr(p.c_str()), c.text);
    EXPECT_EQ(KinterNew::rtm_IsBinarised(p.c_str()), c.kind >= 3);
    if (c.kind < 0) {
      EXPECT_EQ(Rtm().open(c.head), RTMERR_SIGNATURE);
    }
  }
  EXPECT_STREQ(KinterNew::rtm_KindStr(7), "unknown binary");
  EXPECT_STREQ(KinterNew::rtm_TypeStr("/no/such/file.rtm"), "faulty");
  EXPECT_STREQ(KinterNew::ErrorString(19), "p3d is unbinarised");
  EXPECT_STREQ(KinterNew::ErrorString(21), "skeleton must be specified for binarised rtm");
}

TEST(RtmKey, HalfPrecisionBothWays) {
  struct Case {
    uint16_t bits;
    float value;
  } const cases[] = {
      {0x3C00, 1.0f}, {0xC000, -2.0f}, {0x0001, std::ldexp(1.0f, -24)}, {0x03FF, 1023 * std::ldexp(1.0f, -24)},
      {0x0400, std::ldexp(1.0f, -14)}, {0x7BFF, 65504.0f}, {0x7C00, 65536.0f}, {0x7FFF, 131008.0f},
      {0x8000, -0.0f}, {0x3555, 0.333251953125f},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(Qnion::uncompress_xyz(c.bits), c.value) << std::hex << c.bits;
    EXPECT_EQ(RTM_Key::rk_FloatToHalf(c.value), c.bits) << c.value;
  }
  // Rounding to nearest, saturation, and what has no half form.
  EXPECT_EQ(RTM_Key::rk_FloatToHalf(1.0f + std::ldexp(1.0f, -11)), 0x3C00);  // a tie goes to even
  EXPECT_EQ(RTM_Key::rk_FloatToHalf(1.0f + 3 * std::ldexp(1.0f, -11)), 0x3C02);
  EXPECT_EQ(RTM_Key::rk_FloatToHalf(1e9f), 0x7FFF);
  EXPECT_EQ(RTM_Key::rk_FloatToHalf(std::nanf("")), 0);
  EXPECT_EQ(RTM_Key::rk_FloatToHalf(std::ldexp(1.0f, -26)), 0);
}

TEST(RtmKey, CompressExpandWithinQuantisation) {
  // Rotations of every quadrant, the half turns that defeat the trace formula included.
  double const axes[][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 0}, {-1, 2, 3}, {0.3, -0.2, 0.9}};
  double const angles[] = {0, 0.3, 1.5707963, 2.5, 3.14159265, -2.9};
  float const positions[][3] = {{0, 0, 0}, {0.01f, -0.5f, 1.7f}, {-3.2f, 0.25f, 0.001f}};
  for (auto const& a : axes)
    for (double angle : angles)
      for (auto const& p : positions) {
        double n = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]), s = std::sin(angle / 2) / n;
        Qnion q;
        q.x = a[0] * s, q.y = a[1] * s, q.z = a[2] * s, q.w = std::cos(angle / 2);
        XYZTransform t;
        Matrix3P m;
        q.QtoMatrix(&m);
        t.aside = m.aside, t.up = m.up, t.dir = m.dir, t.pos = {p[0], p[1], p[2]};
        XYZTransform back;
        RTM_Key::rk_Compress(t).rk_Expand(&back);
        EXPECT_LE(rtm_max_diff(t, back, false), 2e-4f) << angle;
        float const bound = std::ldexp(std::max({std::fabs(p[0]), std::fabs(p[1]), std::fabs(p[2])}), -11);
        EXPECT_LE(rtm_max_diff(t, back, true), bound + 1e-7f) << angle;
      }
}

TEST(RtmOpen, BinarisedParentsAndSounds) {
  std::string cfg = rtm_write("two.cfg", kTwoSkeletons);
  Rtm r;
  ASSERT_EQ(r.open(three_bone_v4(), cfg.c_str()), 0);
  KinterNew* k = r.k;
  EXPECT_EQ(k->rtm_GetKind(), 4);
  ASSERT_EQ(k->rtm_GetFrameCount(), 2u);
  EXPECT_EQ(k->rtm_GetFrameTime(1), 1.0f);
  ASSERT_EQ(k->rtm_GetSoundCount(), 1u);
  EXPECT_STREQ(k->rtm_GetSoundName(0), "step");
  EXPECT_EQ(k->rtm_GetSoundTime(0), 0.5f);
  // The first skeleton lacks "hand": the second is used, with its spelling and parents.
  EXPECT_STREQ(k->rtm_GetSkeletonName(), "Second");
  EXPECT_STREQ(k->rtm_GetBoneName(2), "Hand");
  EXPECT_STREQ(k->rtm_GetBoneParentName(2), "Arm");
  EXPECT_EQ(k->rtm_GetBoneParent(2), 1);
  EXPECT_EQ(k->rtm_GetBoneParent(0), -1);
  // The quarter turn sends the children's y offsets along -x; positions add down the chain.
  XYZTransform const* hand = k->rtm_GetTransform(1, 2);
  ASSERT_NE(hand, nullptr);
  EXPECT_NEAR(hand->pos.x, -1, 1e-3);
  EXPECT_NEAR(hand->pos.y, 2, 1e-3);
  EXPECT_NEAR(hand->pos.z, 3, 1e-3);
  EXPECT_NEAR(hand->aside.y, 1, 1e-3);  // x turned onto y
  EXPECT_EQ(k->rtm_GetTransform(2, 0), nullptr);
  EXPECT_EQ(k->rtm_GetTransform(0, 3), nullptr);
}

TEST(RtmOpen, FaultsEndWithTheirCodes) {
  auto v3 = [](uint32_t frames, uint32_t bones, uint32_t again, uint32_t flag = 0) {
    RtmWriter w;
    w.raw("BMTR", 4).u32(3).u8(1).f32(0).f32(0).f32(0).u32(frames).u32(flag).u32(bones).u32(again).sz("a");
    return w.u32(frames).b;
  };
  RtmBytes const full = three_bone_v4();
  RtmBytes times_lie = bmtr_head(3, 1, {"a"}).u32(2).f32(0).f32(1).b;
  RtmBytes bones_lie = bmtr_head(3, 1, {"a"}).u32(1).f32(0).u32(2).b;
  RtmWriter sounds_many = bmtr_head(4, 0, {"a"});
  sounds_many.u32(0).u32(0x10000000);
  RtmWriter list_full = bmtr_head(5, 0, {"a"});
  list_full.u32(1).u32(0);
  RtmWriter value_open = bmtr_head(4, 0, {"a"});
  value_open.u32(0).u32(1).u32(uint32_t(-1)).sz("name").f32(0.5f).raw("value", 5);
  RtmBytes const events = rtm_events({{0.25f, "Step", "Sound"}}, rtm_text({"a"}, {XYZTransform{}}, 1));
  RtmWriter events_many;
  events_many.raw("RTM_MDAT", 8).u32(0).u32(0x10000000);
  RtmWriter events_alone;
  events_alone.raw("RTM_MDAT", 8).u32(0).u32(0).raw("BMTR\4\0\0\0", 8);
  RtmWriter text_bones;
  text_bones.raw("RTM_0101", 8).f32(0).f32(0).f32(0).u32(1).u32(0x7FFFFFFF);
  RtmBytes text_frames = rtm_text({"a"}, {XYZTransform{}}, 1);
  text_frames[20] = 0xFF, text_frames[21] = 0xFF, text_frames[22] = 0xFF;  // frame count
  RtmBytes text_stray = rtm_text({"a", "b"}, {XYZTransform{}, XYZTransform{}}, 1);
  text_stray[28 + 64 + 4 + 80] = 'c';  // the second record names a bone not in the list
  RtmBytes text_long = rtm_text({"a"}, {XYZTransform{}}, 1);
  std::memset(&text_long[28], 'n', 32);
  struct Case {
    char const* what;
    RtmBytes bytes;
    int code;
  } const cases[] = {
      {"frames beyond the file", v3(0xFFFFFFFF, 1, 1), RTMERR_FRAME},
      {"bones beyond the file", v3(1, 0x7FFFFFFF, 0x7FFFFFFF), RTMERR_BONE},
      {"bone counts differ", v3(1, 1, 2), RTMERR_BONE},
      {"flag not 0 or 1", v3(1, 1, 1, 2), RTMERR_STRUCTURE},
      {"times for another frame count", times_lie, RTMERR_FRAME},
      {"a frame of another bone count", bones_lie, RTMERR_BONE},
      {"sounds beyond the file", sounds_many.b, RTMERR_SOUND},
      {"list before the sounds not empty", list_full.b, RTMERR_SOUND},
      {"event value without an end", value_open.b, 1},
      {"editable event past the file", RtmBytes(events.begin(), events.begin() + 30), 1},
      {"editable events beyond the file", events_many.b, RTMERR_SOUND},
      {"editable events not followed by the head", events_alone.b, RTMERR_SIGNATURE},
      {"truncated frames", RtmBytes(full.begin(), full.end() - 5), 1},
      {"editable bones beyond the file", text_bones.b, RTMERR_BONE},
      {"editable frames beyond the file", text_frames, RTMERR_FRAME},
      {"editable record of an unknown bone", text_stray, RTMERR_BONE},
      {"editable name without an end", text_long, RTMERR_BONE},
  };
  for (auto const& c : cases) {
    Rtm r;
    EXPECT_EQ(r.open(c.bytes), c.code) << c.what;
    EXPECT_EQ(r.k->rtm_GetBoneCount(), 0u) << c.what;  // nothing half-read stays behind
  }
}

// Events of both kinds (a sound marker without a value, a named event with one) through the
// editable form and every binarised version that has key stones.
TEST(RtmEvents, KeptThroughEveryForm) {
  XYZTransform const at_rest{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 2, 0}};
  RtmBytes const text = rtm_events({{0.25f, "Step", "Sound"}, {0.5f, "step", ""}},
                                   rtm_text({"root", "arm"}, {at_rest, at_rest}, 2));
  std::string cfg = rtm_write("events.cfg", kTwoSkeletons);
  Rtm r;
  ASSERT_EQ(r.open(text, cfg.c_str()), 0);
  ASSERT_EQ(r.k->rtm_GetSoundCount(), 2u);
  EXPECT_EQ(r.k->rtm_GetEvent(0)->id, -1);
  EXPECT_EQ(r.k->rtm_GetEvent(1)->id, 0);
  std::string const out = rtm_tmp("events.rtm");
  ASSERT_EQ(r.k->rtm_Create(out.c_str(), KinterNew::KIND_TEXT), 0);
  EXPECT_TRUE(rtm_read(out) == text);
  for (int version : {4, 5}) {
    ASSERT_EQ(r.k->rtm_Create(out.c_str(), version), 0) << version;
    Rtm bin;
    ASSERT_EQ(bin.open(rtm_read(out), cfg.c_str()), 0) << version;
    Rtm back;
    std::string const again = rtm_tmp("events_again.rtm");
    ASSERT_EQ(bin.k->rtm_Create(again.c_str(), KinterNew::KIND_TEXT), 0) << version;
    ASSERT_EQ(back.open(rtm_read(again)), 0) << version;
    ASSERT_EQ(back.k->rtm_GetSoundCount(), 2u) << version;
    for (unsigned e = 0; e < 2; ++e) {
      RTM_Event const &a = *r.k->rtm_GetEvent(e), &b = *bin.k->rtm_GetEvent(e), &c = *back.k->rtm_GetEvent(e);
      EXPECT_TRUE(a.id == b.id && a.name == b.name && a.time == b.time && a.value == b.value) << version << " " << e;
      EXPECT_TRUE(a.id == c.id && a.name == c.name && a.time == c.time && a.value == c.value) << version << " " << e;
    }
  }
}

TEST(RtmSkeleton, SourcesAndTheirCodes) {
  struct Case {
    char const* what;
    std::string name, text;
    int code;
  } const cases[] = {
      {"no skeleton holds every bone", "few.cfg", "class CfgSkeletons { class S { skeletonBones[]={\"root\",\"\"}; }; };",
       RTMERR_SKELETON_CONFIG},
      {"no CfgSkeletons", "none.cfg", "class CfgModels {};", RTMERR_SKELETON_CONFIG},
      {"a loop of parents", "loop.cfg",
       "class CfgSkeletons { class S { skeletonBones[]={\"root\",\"hand\",\"arm\",\"root\",\"hand\",\"arm\"}; }; };",
       RTMERR_SKELETON_CONFIG},
      {"broken text", "bad.cfg", "class CfgSkeletons { class S { skeletonBones[]={\"root\" ", RTMERR_MODEL_CFG},
      {"inherited skeleton", "inherit.cfg",
       "class CfgSkeletons { class Base { skeletonBones[]={\"root\",\"\"}; };\n"
       "class S { skeletonInherit=\"Base\"; skeletonBones[]={\"arm\",\"root\",\"hand\",\"arm\"}; }; };",
       0},
      {"a broken model", "m.p3d", "MLOD\x01", RTMERR_BAD_P3D},
      {"not a model", "x.p3d", "junk", RTMERR_BAD_P3D},
  };
  for (auto const& c : cases) {
    std::string p = rtm_write(c.name, c.text);
    EXPECT_EQ(Rtm().open(three_bone_v4(), p.c_str()), c.code) << c.what;
  }
  EXPECT_EQ(Rtm().open(three_bone_v4(), "/no/such/model.cfg"), RTMERR_MODEL_CFG);
}

TEST(RtmWrite, EditableToBinarisedAndBack) {
  std::string cfg = rtm_write("two.cfg", kTwoSkeletons);
  // Model-space transforms of a three-bone chain, turned and moved at each joint.
  std::vector<XYZTransform> globals(3);
  Qnion q;
  for (int b = 0; b < 3; ++b) {
    q.x = 0.1 * b, q.y = 0.7 - 0.2 * b, q.z = -0.3, q.w = 0.5;
    q.Qnormalise();
    Matrix3P m;
    q.QtoMatrix(&m);
    globals[b].aside = m.aside, globals[b].up = m.up, globals[b].dir = m.dir;
    globals[b].pos = {0.3f * b, 1.0f + 0.25f * b, -0.4f * b};
  }
  RtmBytes text = rtm_text({"root", "arm", "hand"}, globals, 3);
  Rtm plain;
  ASSERT_EQ(plain.open(text), 0);
  std::string bin = rtm_tmp("chain.bin"), back = rtm_tmp("chain.rtm");
  EXPECT_EQ(plain.k->rtm_Create(bin.c_str(), 5), RTMERR_NEED_SKELETON);

  Rtm with;
  ASSERT_EQ(with.open(text, cfg.c_str()), 0);
  ASSERT_EQ(with.k->rtm_Create(bin.c_str(), KinterNew::KIND_BINARISED_AS_READ), 0);
  EXPECT_EQ(KinterNew::rtm_Type(bin.c_str()), 5);
  Rtm binarised;
  ASSERT_EQ(binarised.k->rtm_Open(bin.c_str(), nullptr, cfg.c_str()), 0);
  EXPECT_STREQ(binarised.k->rtm_GetBoneName(0), "Root");
  for (unsigned b = 0; b < 3; ++b) {
    XYZTransform const& t = *binarised.k->rtm_GetTransform(2, b);
    EXPECT_LE(rtm_max_diff(t, globals[b], false), 2e-4f) << b;
    EXPECT_LE(rtm_max_diff(t, globals[b], true), 1e-3f) << b;
  }
  // Other versions hold the same keys: no second rounding.
  for (int version : {3, 4}) {
    ASSERT_EQ(binarised.k->rtm_Create(back.c_str(), version), 0);
    Rtm again;
    ASSERT_EQ(again.k->rtm_Open(back.c_str(), nullptr, cfg.c_str()), 0);
    EXPECT_EQ(again.k->rtm_GetKind(), version);
    EXPECT_EQ(rtm_max_diff(*again.k->rtm_GetTransform(1, 2), *binarised.k->rtm_GetTransform(1, 2), false), 0);
  }
  ASSERT_EQ(binarised.k->rtm_UnBinarised(back.c_str()), 0);
  Rtm unbin;
  ASSERT_EQ(unbin.k->rtm_Open(back.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(rtm_max_diff(*unbin.k->rtm_GetTransform(2, 2), *binarised.k->rtm_GetTransform(2, 2), true), 0);
  EXPECT_EQ(unbin.k->rtm_Create("/no/such/folder/x.rtm", 0), 6);
}

TEST(RtmWrite, EmptyAnimationsOpenAgain) {
  for (uint32_t version : {3u, 4u, 5u}) {
    RtmWriter w = bmtr_head(version, 0, {});
    if (version >= 4) w.u32(0).u32(0);
    Rtm r;
    ASSERT_EQ(r.open(w.u32(0).b), 0) << version;
    std::string out = rtm_tmp("empty.rtm");
    for (int kind : {0, 1}) {
      ASSERT_EQ(r.k->rtm_Create(out.c_str(), kind), 0) << version;
      EXPECT_EQ(Rtm().open(rtm_read(out)), 0) << version << " kind " << kind;
    }
  }
}

TEST(RtmWrite, RemovingABoneKeepsItsChildrenInPlace) {
  std::string cfg = rtm_write("two.cfg", kTwoSkeletons);
  Rtm r;
  ASSERT_EQ(r.open(three_bone_v4(), cfg.c_str()), 0);
  XYZTransform hand = *r.k->rtm_GetTransform(1, 2);
  ASSERT_EQ(r.k->rtm_RemoveBoneName(1), 0);
  EXPECT_EQ(r.k->rtm_RemoveBoneName(5), RTMERR_BONE);
  ASSERT_EQ(r.k->rtm_GetBoneCount(), 2u);
  EXPECT_STREQ(r.k->rtm_GetBoneParentName(1), "Arm");
  EXPECT_EQ(r.k->rtm_GetBoneParent(1), -1);
  EXPECT_EQ(rtm_max_diff(*r.k->rtm_GetTransform(1, 1), hand, true), 0);
  std::string out = rtm_tmp("removed.bin");
  ASSERT_EQ(r.k->rtm_Create(out.c_str(), 4), 0);
  Rtm again;
  ASSERT_EQ(again.k->rtm_Open(out.c_str(), nullptr, cfg.c_str()), 0);
  EXPECT_EQ(again.k->rtm_GetSoundCount(), 1u);
  EXPECT_LE(rtm_max_diff(*again.k->rtm_GetTransform(1, 1), hand, true), 1e-3f);
}
}  // namespace

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "anim/BisTransform.h"
#include "anim/Qnion.h"
#include "core/Generic_Errors.h"

namespace {
float* el(BisTransform& t) { return reinterpret_cast<float*>(t.GetTransformArray()); }

struct DirectionCase {
  bool column;
  double degrees;
  float scale;
  double expect_degrees;
};

TEST(BisTransform, DirectionRoundTripsInBothForms) {
  DirectionCase const cases[] = {
      {false, 90, 1, 90},   {false, 270, 1, 270}, {true, 90, 1, 90},    {true, 270, 1, 270},
      {false, 0, 1, 0},     {false, 45, 2.5f, 45}, {true, 200, 0.5f, 200}, {false, 359, 1, 359},
  };
  for (auto const& c : cases) {
    BisTransform t;
    t.Alloc(c.column);
    t.SetDirectionInDegrees(c.degrees, c.scale);
    EXPECT_NEAR(t.GetDirectionInDegrees(), c.expect_degrees, 1e-3) << c.degrees << " column " << c.column;
    EXPECT_NEAR(t.GetScale(), c.scale, 1e-5);
  }
}

TEST(BisTransform, SettingDirectionKeepsRowFormUpAxisButSetsColumnForm) {
  BisTransform row, col;
  row.Alloc(false);
  col.Alloc(true);
  el(row)[4] = 2;
  el(col)[5] = 2;
  for (int i : {1, 3, 5, 7}) el(row)[i] = 9;
  for (int i : {1, 4, 6, 9}) el(col)[i] = 9;
  row.SetDirectionInRadians(0.5, 3);
  col.SetDirectionInRadians(0.5, 3);
  EXPECT_EQ(el(row)[4], 2);
  EXPECT_EQ(el(col)[5], 3);
  for (int i : {1, 3, 5, 7}) EXPECT_EQ(el(row)[i], 0) << i;
  for (int i : {1, 4, 6, 9}) EXPECT_EQ(el(col)[i], 0) << i;
  EXPECT_FLOAT_EQ(el(row)[0], float(std::cos(0.5) * 3));
  EXPECT_FLOAT_EQ(el(row)[8], float(std::cos(0.5) * 3));
  EXPECT_FLOAT_EQ(el(row)[6], float(std::sin(0.5) * 3));
  EXPECT_FLOAT_EQ(el(row)[2], -float(std::sin(0.5) * 3));
  EXPECT_FLOAT_EQ(el(col)[10], float(std::cos(0.5) * 3));
  EXPECT_FLOAT_EQ(el(col)[2], float(std::sin(0.5) * 3));
  EXPECT_FLOAT_EQ(el(col)[8], -float(std::sin(0.5) * 3));
}

TEST(BisTransform, ConversionTransposesAndRestores) {
  EXPECT_THROW(BisTransform().Convert2Row(), Generic_Errors);  // no array to convert
  XYZTransform a;
  float* f = reinterpret_cast<float*>(&a);
  for (int i = 0; i < 12; ++i) f[i] = float(i + 1);
  XYZTransform original = a;
  BisTransform t;
  t.SetTransformArray(&a, true);
  EXPECT_EQ(t.GetX(), 4);
  EXPECT_EQ(t.GetY(), 8);
  EXPECT_EQ(t.GetZ(), 12);
  t.Convert2Row();
  EXPECT_FALSE(t.IsColumnForm());
  // The position moves to the last row and each axis becomes a row.
  EXPECT_EQ(f[9], 4);
  EXPECT_EQ(f[10], 8);
  EXPECT_EQ(f[11], 12);
  EXPECT_EQ(f[1], 5);  // y of the x axis
  EXPECT_EQ(t.GetXYZ()->y, 8);
  t.Convert2Column();
  EXPECT_EQ(std::memcmp(&a, &original, sizeof a), 0);
}

// Row forms set by hand: the direction reads the cosine and sine carriers [0] and [6]; the orientation
// reads [0] and [2] and snaps to whole degrees.
TEST(BisTransform, DirectionAndOrientationOfRowForms) {
  struct Case {
    bool orientation;
    float a, b;
    int degrees;
  } const cases[] = {
      {false, 1, 0, 0},  {false, 0, 1, 90}, {false, -1, 0, 180}, {false, 0, -1, 270}, {false, 0, -4, 270},
      {true, 1, 0, 0},   {true, 0, 1, 90},  {true, -1, 0, 180},  {true, 1, -0.5f, 0 /* 90 + 270 */},
      {true, 0.5f, 0.8660254f, 60}, {true, -0.5f, 0.1f, 120},
  };
  for (auto const& c : cases) {
    BisTransform t;
    t.Alloc(false);
    el(t)[0] = c.a;
    el(t)[c.orientation ? 2 : 6] = c.b;
    double got = c.orientation ? t.GetOrientationInRadians() : t.GetDirectionInDegrees() * 3.14159265358979323846 / 180;
    EXPECT_NEAR(got, c.degrees * 3.14159265358979323846 / 180, 1e-9) << c.orientation << " " << c.a << "," << c.b;
  }
}

// The half-precision positions are checked with the animation keys; here the rotation components.
TEST(Qnion, QuarterTurnAboutYMovesXAxisAndComposes) {
  EXPECT_DOUBLE_EQ(Qnion::uncompress_Q(16384), 1.0);
  EXPECT_DOUBLE_EQ(Qnion::uncompress_Q(-8192), -0.5);
  int16_t parts[4] = {0, 11585, 0, 11585};  // about 90 degrees about y, slightly off unit length
  Qnion q;
  q.Qconvert(parts);
  q.Qnormalise();
  Matrix3P m;
  q.QtoMatrix(&m);
  EXPECT_NEAR(m.aside.x, 0, 1e-6);
  EXPECT_NEAR(m.aside.z, -1, 1e-6);
  EXPECT_NEAR(m.dir.x, 1, 1e-6);
  EXPECT_NEAR(m.up.y, 1, 1e-6);

  XYZTransform child{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 0}};
  XYZTransform parent{m.aside, m.up, m.dir, {10, 20, 30}};
  Qnion::Qmult2(&child, &parent);
  EXPECT_NEAR(child.pos.x, 10, 1e-5);
  EXPECT_NEAR(child.pos.z, 29, 1e-5);
  EXPECT_NEAR(child.aside.z, -1, 1e-6);
}
}  // namespace

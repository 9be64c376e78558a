// The factor helpers and the step table of nearest-neighbour resizing.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <vector>

#include "resize_reference.h"
#include "resize_testutil.h"

namespace {

constexpr double kEps = 1.1920928955078125e-7;

TEST(ResizeFactors, FromExtentsIsDestinationOverSource) {
  const int32_t d[3] = {3, 10, 7}, s[3] = {4, 5, 7};
  double f[3];
  EXPECT_EQ(f, sorn_mkreszf(3, f, d, s));
  EXPECT_EQ(0.75, f[0]);
  EXPECT_EQ(2.0, f[1]);
  EXPECT_EQ(1.0, f[2]);
}

TEST(ResizeFactors, WithinTwoToTheMinus23OfOneIsOne) {
  // 8388609 / 8388608 is 1 + 2^-23: snapped. 4194305 / 4194304 is
  // 1 + 2^-22: kept.
  const int32_t d[2] = {8388609, 4194305}, s[2] = {8388608, 4194304};
  double f[2];
  sorn_mkreszf(2, f, d, s);
  EXPECT_EQ(1.0, f[0]);
  EXPECT_EQ(1.0 + 2 * kEps, f[1]);
  const int32_t d2[1] = {8388607};
  sorn_mkreszf(1, f, d2, s);
  EXPECT_EQ(1.0, f[0]);  // 1 - 2^-23
}

TEST(ResizeFactors, NullSafeFormGivesOnesWithoutExtents) {
  const int32_t d[2] = {3, 10}, s[2] = {4, 5};
  double f[2] = {7, 7};
  EXPECT_EQ(f, sorn_mkreszfS(2, f, nullptr, s));
  EXPECT_EQ(1.0, f[0]);
  EXPECT_EQ(1.0, f[1]);
  f[0] = f[1] = 7;
  sorn_mkreszfS(2, f, d, nullptr);
  EXPECT_EQ(1.0, f[0]);
  sorn_mkreszfS(2, f, d, s);
  EXPECT_EQ(0.75, f[0]);
  EXPECT_EQ(2.0, f[1]);
  EXPECT_EQ(nullptr, sorn_mkreszfS(2, nullptr, d, s));
}

TEST(ResizeFactors, FixTakesFactorsNearZeroFromTheExtents) {
  const int32_t d[3] = {6, 4, 9}, s[3] = {3, 8, 9};
  const double given[3] = {0.0, kEps, -kEps};
  double f[3];
  EXPECT_EQ(0, sorn_fixreszf(3, f, given, d, s));
  EXPECT_EQ(2.0, f[0]);
  EXPECT_EQ(0.5, f[1]);
  EXPECT_EQ(1.0, f[2]);
}

TEST(ResizeFactors, FixCountsDestinationsLargerThanTheScaledSource) {
  const int32_t d[3] = {3, 4, 9}, s[3] = {5, 8, 3};
  const double given[3] = {0.5, 0.5, 3.0};
  double f[3];
  // 3 > 5 * 0.5 counts; 4 > 4 and 9 > 9 do not.
  EXPECT_EQ(1, sorn_fixreszf(3, f, given, d, s));
  EXPECT_EQ(0.5, f[0]);
  const double larger[3] = {0.5, 0.25, 2.0};
  EXPECT_EQ(3, sorn_fixreszf(3, f, larger, d, s));
  // A factor near 1 is 1 after the count, which used the factor as given.
  const int32_t d1[1] = {10}, s1[1] = {10};
  const double under[1] = {1.0 - kEps};
  EXPECT_EQ(1, sorn_fixreszf(1, f, under, d1, s1));
  EXPECT_EQ(1.0, f[0]);
}

TEST(ResizeFactors, NullSafeFixWithoutExtentsSnapsAndCountsNothing) {
  const int32_t d[3] = {300, 4, 9};
  const double given[3] = {0.0, 1.0 + kEps, 0.25};
  double f[3];
  EXPECT_EQ(0, sorn_fixreszfS(3, f, given, d, nullptr));
  EXPECT_EQ(1.0, f[0]);
  EXPECT_EQ(1.0, f[1]);
  EXPECT_EQ(0.25, f[2]);
  EXPECT_EQ(0, sorn_fixreszfS(3, f, given, nullptr, d));
  EXPECT_EQ(1.0, f[0]);
  // Without factors every one comes from the extents.
  const int32_t s[3] = {150, 8, 9};
  EXPECT_EQ(0, sorn_fixreszfS(3, f, nullptr, d, s));
  EXPECT_EQ(2.0, f[0]);
  EXPECT_EQ(0.5, f[1]);
  EXPECT_EQ(1.0, f[2]);
}

/* ---------------- the step table ---------------- */

std::vector<uint32_t> table_of(int32_t dw, int32_t sw, double fx, int32_t pixelStep = 1) {
  std::vector<uint32_t> t((size_t)dw / 4 + 4, 0xDEADBEEFu);
  EXPECT_EQ(t.data(), __sorna_rsz_nn__init_offtab1x4(t.data(), dw, sw, pixelStep, fx));
  return t;
}

TEST(ResizeStepTable, FourStepsAWordLowByteFirstThenZeroAndTheWidth) {
  // Halving 16 columns to 8: columns 0, 2, 4, ... 14.
  const auto t = table_of(8, 16, 0.5);
  EXPECT_EQ(0x02020200u, t[0]);
  EXPECT_EQ(0x02020202u, t[1]);
  EXPECT_EQ(0u, t[2]);
  EXPECT_EQ(8u, t[3]);
  EXPECT_EQ(0xDEADBEEFu, t[4]);
}

TEST(ResizeStepTable, ARestFillsItsWordWithZeroSteps) {
  // Doubling 3 columns to 6: columns 0, 0, 1, 2, 2, 2 (1.5 and 2.5 round to
  // even), steps 0 0 1 1 | 0 0.
  const auto t = table_of(6, 3, 2.0);
  EXPECT_EQ(0x01010000u, t[0]);
  EXPECT_EQ(0x00000000u, t[1]);
  EXPECT_EQ(0u, t[2]);
  EXPECT_EQ(6u, t[3]);
  const auto u = table_of(5, 10, 0.5);
  EXPECT_EQ(0x02020200u, u[0]);
  EXPECT_EQ(0x00000002u, u[1]);
  EXPECT_EQ(0u, u[2]);
  EXPECT_EQ(5u, u[3]);
}

TEST(ResizeStepTable, StepsAreTheRuleColumnsApartAndWrapAt256) {
  for (double fx : {0.5, 2.0, 3.7, 0.13, 1.0, 37.0 / 53.0, 1.0 / 300.0, 1.0 / 1000.0}) {
    for (int32_t dw : {1, 3, 4, 17, 64}) {
      const int32_t sw = std::max(1, (int32_t)std::nearbyint(dw / fx));
      const auto t = table_of(dw, sw, fx);
      int32_t prev = 0;
      for (int32_t i = 0; i < dw; ++i) {
        const int32_t col = resize_ref::column_by_rule(i, fx, sw);
        const uint32_t step = (t[(size_t)i / 4] >> (8 * (i % 4))) & 255u;
        ASSERT_EQ((uint32_t)((col - prev) & 255), step) << fx << " " << dw << " " << i;
        prev = col;
      }
      const size_t words = ((size_t)dw + 3) / 4;
      EXPECT_EQ(0u, t[words]);
      EXPECT_EQ((uint32_t)dw, t[words + 1]);
    }
  }
}

TEST(ResizeStepTable, PixelStepMultipliesEveryStep) {
  const auto t = table_of(4, 8, 0.5, 3);
  EXPECT_EQ(0x06060600u, t[0]);
}

TEST(ResizeStepTable, MadeFromTheEnvironmentAlignedAndGivenBack) {
  resize_test::Env env;
  uint32_t *t = __sorna_rsz_nn__make_offtab1x4(env.xe(), 100, 50, 1, 2.0);
  ASSERT_NE(nullptr, t);
  EXPECT_EQ(0u, (uintptr_t)t % 64);
  EXPECT_EQ(0u, t[25]);
  EXPECT_EQ(100u, t[26]);
  SornXEfreea(env.xe(), t);
  EXPECT_TRUE(env.at_mark());
}

}  // namespace

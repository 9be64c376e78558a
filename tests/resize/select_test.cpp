// How the selectors choose a row kernel: by the destination width, the
// column factor and the source width (and, far down, the total size). The
// choice never changes a result (kernels_test.cpp); these tests pin down
// the rows of the tables that the library keeps.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

SornResizeRowKernel c1w8(int32_t dw, int32_t sw, double fx, int32_t sh = 100, double fy = 1.0) {
  return __sorna__nn_c1w8_pick(dw, sw, sh, fx, fy);
}

TEST(ResizeSelectBytes, NarrowDestinationsTakeRoundsOfFour) {
  for (int32_t dw : {1, 5, 15}) EXPECT_EQ(&__sorna__resize_nn_c1w8L4_00, c1w8(dw, 1000, 0.5)) << dw;
  EXPECT_NE(&__sorna__resize_nn_c1w8L4_00, c1w8(16, 1000, 0.5));
}

TEST(ResizeSelectBytes, DefaultsByFactor) {
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_10, c1w8(500, 1000, 0.5));
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_10, c1w8(500, 100, 2.0));
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_10, c1w8(500, 1000, 0.09));
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_40_prfm128, c1w8(500, 1000, 0.0899));
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_40_prfm128, c1w8(500, 1000, 0.055, 10, 1.0));
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_42_prfm512, c1w8(500, 1000, 0.0549, 10, 1.0));
}

TEST(ResizeSelectBytes, TheLadderOverridesTheDefault) {
  struct Rung {
    double fx;
    int32_t sw;
    SornResizeRowKernel k;
  };
  const Rung rungs[] = {
      {0.95, 852, &__sorna__resize_nn_c1w8L16_11},
      {0.99, 2815, &__sorna__resize_nn_c1w8L16_11},
      {0.95, 851, &__sorna__resize_nn_c1w8L16_10},
      {0.95, 2816, &__sorna__resize_nn_c1w8L16_10},
      {0.85, 800, &__sorna__resize_nn_c1w8L16_11},
      {0.9499, 3071, &__sorna__resize_nn_c1w8L16_11},
      {0.85, 799, &__sorna__resize_nn_c1w8L16_10},
      {0.85, 3072, &__sorna__resize_nn_c1w8L16_10},
      {0.425, 560, &__sorna__resize_nn_c1w8L16_11},
      {0.4749, 100000, &__sorna__resize_nn_c1w8L16_11},
      {0.425, 559, &__sorna__resize_nn_c1w8L16_10},
      {0.475, 1000, &__sorna__resize_nn_c1w8L16_10},
      {0.1575, 316, &__sorna__resize_nn_c1w8L16_11},
      {0.2029, 5000, &__sorna__resize_nn_c1w8L16_11},
      {0.1575, 315, &__sorna__resize_nn_c1w8L16_10},
      {0.235, 8192, &__sorna__resize_nn_c1w8L16_21_prfm512},
      {0.2449, 9000, &__sorna__resize_nn_c1w8L16_21_prfm512},
      {0.235, 8191, &__sorna__resize_nn_c1w8L16_10},
      {0.2275, 4736, &__sorna__resize_nn_c1w8L16_21_prfm512},
      {0.2349, 4736, &__sorna__resize_nn_c1w8L16_21_prfm512},
      {0.2275, 4735, &__sorna__resize_nn_c1w8L16_10},
      {0.1579, 616, &__sorna__resize_nn_c1w8L16_21_prfm128},
      {0.1611, 1179, &__sorna__resize_nn_c1w8L16_21_prfm128},
      // Beside the narrow band's windows, the wide band around it holds.
      {0.16, 615, &__sorna__resize_nn_c1w8L16_11},
      {0.16, 1180, &__sorna__resize_nn_c1w8L16_11},
  };
  for (const Rung &r : rungs) EXPECT_EQ(r.k, c1w8(2000, r.sw, r.fx)) << r.fx << " " << r.sw;
}

// Below fx 0.0578 a source larger than trunc(C / fy) pixels is read one
// pixel a round, with C by the band of fx.
TEST(ResizeSelectBytes, LargeSourcesFarDownTakeOnePixelRounds) {
  struct Limit {
    double fx, budget;
    SornResizeRowKernel usual;
  };
  const Limit limits[] = {
      {0.0576, 3523215.36, &__sorna__resize_nn_c1w8L16_40_prfm128},
      {0.056, 2558525.44, &__sorna__resize_nn_c1w8L16_40_prfm128},
      {0.05, 2055208.96, &__sorna__resize_nn_c1w8L16_42_prfm512},
  };
  for (const Limit &l : limits) {
    for (double fy : {1.0, 0.5, 0.0576}) {
      const double cap = std::trunc(l.budget / fy);
      // sw * sh just at and just above the cap: sh = 1.
      const int32_t at = (int32_t)std::min(cap, 2.0e9);
      EXPECT_EQ(l.usual, c1w8(100, at, l.fx, 1, fy)) << l.fx << " " << fy;
      if (cap + 1 < 2.0e9) {
        EXPECT_EQ(&__sorna__resize_nn_c1w8L1_00, c1w8(100, (int32_t)cap + 1, l.fx, 1, fy))
            << l.fx << " " << fy;
      }
    }
  }
  // From fx 0.0578 on, size does not matter.
  EXPECT_EQ(&__sorna__resize_nn_c1w8L16_40_prfm128, c1w8(100, 100000, 0.0578, 10000));
}

TEST(ResizeSelectWords, TheChoiceCode) {
  EXPECT_EQ(0, __sorna__nn_c1w32_algsel(100, 50, 1.0021));
  EXPECT_EQ(0, __sorna__nn_c1w32_algsel(100, 50, 2.0));
  EXPECT_EQ(1, __sorna__nn_c1w32_algsel(4, 50, 0.5));
  EXPECT_EQ(1, __sorna__nn_c1w32_algsel(1, 50, 1.0));
  // Otherwise a family: 4, 8, 12 or 15 in the low four bits.
  for (double fx : {1.002, 1.0, 0.98, 0.95, 0.9, 0.84, 0.81, 0.79, 0.77, 0.7, 0.66, 0.5, 0.2, 0.01})
    for (int32_t sw : {5, 35, 36, 100, 2815, 2816, 8190, 8191, 20000}) {
      const int32_t c = __sorna__nn_c1w32_algsel(64, sw, fx);
      const int32_t fam = c & 15;
      EXPECT_TRUE(fam == 4 || fam == 8 || fam == 12 || fam == 15) << fx << " " << sw << " " << c;
    }
}

TEST(ResizeSelectWords, EnlargingAndNarrowTakeTheDefaultKernel) {
  EXPECT_EQ(&__sorna__resize_nn_c1w32L16_111, __sorna__nn_c1w32_pick(100, 50, 2.0));
  EXPECT_EQ(&__sorna__resize_nn_c1w32L16_111, __sorna__nn_c1w32_pick(4, 500, 0.5));
  EXPECT_NE(&__sorna__resize_nn_c1w32L16_111, __sorna__nn_c1w32_pick(5, 500, 0.01));
}

TEST(ResizeSelectWords, TheFamilyOfTheCodeRuns) {
  struct Family {
    int32_t code;
    std::vector<SornResizeRowKernel> kernels;
  };
#define RESIZE_TEST_ENTRY(name) &__sorna__resize_nn_c1w32##name,
  const Family families[] = {
      {4, {SORN_RESIZE_NN_C1W32_L4(RESIZE_TEST_ENTRY)}},
      {8, {SORN_RESIZE_NN_C1W32_L8(RESIZE_TEST_ENTRY)}},
      {12, {SORN_RESIZE_NN_C1W32_L12(RESIZE_TEST_ENTRY)}},
      {15, {SORN_RESIZE_NN_C1W32_L16(RESIZE_TEST_ENTRY)}},
  };
#undef RESIZE_TEST_ENTRY
  for (double fx = 0.01; fx <= 1.002; fx += 0.0037)
    for (int32_t sw : {10, 36, 1000, 3000, 9000}) {
      const int32_t c = __sorna__nn_c1w32_algsel(64, sw, fx);
      const SornResizeRowKernel k = __sorna__nn_c1w32_pick(64, sw, fx);
      for (const Family &f : families)
        if (f.code == (c & 15)) {
          ASSERT_LT((size_t)(c >> 4), f.kernels.size()) << fx << " " << sw;
          EXPECT_EQ(f.kernels[(size_t)(c >> 4)], k) << fx << " " << sw;
        }
    }
}

TEST(ResizeSelectWideUnits, NarrowDestinationsTakeThePlainKernel) {
  const SornResizeRowKernel plain[] = {&__sorna__resize_nn_c2w32L4_00,
                                       &__sorna__resize_nn_c3w32L4_00,
                                       &__sorna__resize_nn_c4w32L4_00};
  for (int32_t units = 2; units <= 4; ++units)
    for (double fx : {0.82, 0.33, 0.215, 2.0}) {
      EXPECT_EQ(plain[units - 2], __sorna__nn_cNw32_pick(units, 16, 5000, fx));
    }
  EXPECT_EQ(nullptr, __sorna__nn_cNw32_pick(1, 100, 100, 1.0));
  EXPECT_EQ(nullptr, __sorna__nn_cNw32_pick(5, 100, 100, 1.0));
}

TEST(ResizeSelectWideUnits, BandsBelowPointEightTwoFiveTakeAlignedPrefetch) {
  const SornResizeRowKernel a128[] = {&__sorna__resize_nn_c2w32L4_40a128,
                                      &__sorna__resize_nn_c3w32L4_40a128,
                                      &__sorna__resize_nn_c4w32L4_40a128};
  for (int32_t units = 2; units <= 4; ++units) {
    const SornResizeRowKernel k = a128[units - 2];
    EXPECT_EQ(k, __sorna__nn_cNw32_pick(units, 100, 2304, 0.815));
    EXPECT_EQ(k, __sorna__nn_cNw32_pick(units, 100, 9000, 0.8249));
    EXPECT_NE(k, __sorna__nn_cNw32_pick(units, 100, 2303, 0.82));
    EXPECT_EQ(k, __sorna__nn_cNw32_pick(units, 100, 1216, 0.805));
    EXPECT_NE(k, __sorna__nn_cNw32_pick(units, 100, 1215, 0.81));
    EXPECT_EQ(k, __sorna__nn_cNw32_pick(units, 100, 836, 0.795));
    EXPECT_NE(k, __sorna__nn_cNw32_pick(units, 100, 835, 0.8));
    EXPECT_NE(k, __sorna__nn_cNw32_pick(units, 100, 9000, 0.825));
  }
}

TEST(ResizeSelectWideUnits, BandsNearAThirdAndPointTwoOneFiveTakeOthers) {
  EXPECT_EQ(&__sorna__resize_nn_c2w32L4_40a256, __sorna__nn_cNw32_pick(2, 100, 1000, 1.0 / 3));
  EXPECT_EQ(&__sorna__resize_nn_c3w32L4_40a256, __sorna__nn_cNw32_pick(3, 100, 1000, 1.0 / 3));
  EXPECT_EQ(&__sorna__resize_nn_c4w32L4_40a256, __sorna__nn_cNw32_pick(4, 100, 1000, 1.0 / 3));
  EXPECT_EQ(&__sorna__resize_nn_c2w32L4_20a64, __sorna__nn_cNw32_pick(2, 100, 1000, 0.215));
  EXPECT_EQ(&__sorna__resize_nn_c3w32L4_40, __sorna__nn_cNw32_pick(3, 100, 1000, 0.215));
  EXPECT_EQ(&__sorna__resize_nn_c4w32L4_20a64, __sorna__nn_cNw32_pick(4, 100, 1000, 0.215));
}

}  // namespace

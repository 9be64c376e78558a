// Negotiation of one common extent between two operands, plain and with a
// scale between them.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>

#include "testkit.h"

namespace {

using V4 = std::array<int32_t, 4>;

V4 v4(const int32_t *p) { return V4{p[0], p[1], p[2], p[3]}; }

SornVolume vol(V4 o, V4 s) {
  SornVolume v;
  for (int i = 0; i < 4; ++i) {
    v.origin[i] = o[i];
    v.size[i] = s[i];
  }
  return v;
}

alignas(16) unsigned char g_buf[1 << 12];

TEST(Negotiate, NullRegionsGiveTheSmallerSite) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 8, 30, 0x13, SORN_S16, 256);
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, nullptr, 3));
  EXPECT_EQ(v4(ra.origin), (V4{0, 0, 0, 0}));
  EXPECT_EQ(v4(rb.origin), (V4{0, 0, 0, 0}));
  EXPECT_EQ(v4(ra.size), (V4{1, 8, 20, 3}));
  // b keeps its raw channels word: cell 3 is not negotiated.
  EXPECT_EQ(v4(rb.size), (V4{1, 8, 20, 0x13}));
}

TEST(Negotiate, FirstRegionDecidesSecondOffersStart) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornVolume inA = vol({0, 2, 3, 0}, {1, 5, 10, 1});
  SornVolume inB = vol({0, 7, 1, 0}, {1, 100, 100, 1});
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, &inA, &inB, 3));
  EXPECT_EQ(v4(ra.origin), (V4{0, 2, 3, 0}));
  EXPECT_EQ(v4(rb.origin), (V4{0, 7, 1, 0}));
  // b has 3 rows left from row 7: that bounds both.
  EXPECT_EQ(v4(ra.size), (V4{1, 3, 10, 1}));
  EXPECT_EQ(v4(rb.size), (V4{1, 3, 10, 1}));
}

TEST(Negotiate, SizeCellsOfTheSecondRegionAreNotRead) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 12, 24, 1, SORN_U8, 64);
  SornVolume inB = vol({0, 1, 2, 0}, {0, 0, 0, 0});
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, &inB, 3));
  EXPECT_EQ(v4(ra.size), (V4{1, 10, 20, 1}));
  EXPECT_EQ(v4(rb.origin), (V4{0, 1, 2, 0}));
  EXPECT_EQ(v4(rb.size), (V4{1, 10, 20, 1}));
  SornVolume inB2 = vol({0, 1, 2, 0}, {-7, -7, -7, -7});
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, &inB2, 3));
  EXPECT_EQ(v4(rb.size), (V4{1, 10, 20, 1}));
}

TEST(Negotiate, EmptyIsFalse) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornVolume inA = vol({0, 12, 0, 0}, {1, 5, 5, 1});
  SornVolume ra, rb;
  EXPECT_FALSE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, &inA, nullptr, 3));
  SornVolume inB = vol({0, 0, 20, 0}, {0, 0, 0, 0});
  EXPECT_FALSE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, &inB, 3));
  EXPECT_EQ(ra.size[2], 0);
  EXPECT_EQ(rb.size[2], 0);
}

TEST(Negotiate, ChannelCellOfTheFirstRegionIsCut) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 4, SORN_U8, 128);
  SornArray b = sorn_test::make_record(g_buf, 10, 20, 4, SORN_U8, 128);
  SornVolume inA = vol({0, 0, 0, 0}, {1, 10, 20, 2});
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, &inA, nullptr, 3));
  EXPECT_EQ(ra.size[3], 2);  // nothing checks it against the image
  EXPECT_EQ(rb.size[3], 4);
}

TEST(Negotiate, CellCountDefaultsToThree) {
  SornArray a = sorn_test::make_record4(g_buf, 3, 10, 20, 1, SORN_U8, 256, 32);
  SornArray b = sorn_test::make_record4(g_buf, 2, 8, 30, 1, SORN_U8, 256, 32);
  for (int32_t m : {0, 3, 4, 7, -1}) {
    SornVolume ra, rb;
    EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, nullptr, m)) << m;
    EXPECT_EQ(v4(ra.size), (V4{2, 8, 20, 1})) << m;
    EXPECT_EQ(v4(rb.size), (V4{2, 8, 20, 1})) << m;
  }
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, nullptr, 2));
  EXPECT_EQ(v4(ra.size), (V4{2, 8, 20, 1}));
  EXPECT_EQ(v4(rb.size), (V4{2, 8, 30, 1}));
  EXPECT_TRUE(sorn_arr_negotiateRoi(&a, &b, &ra, &rb, nullptr, nullptr, 1));
  EXPECT_EQ(v4(ra.size), (V4{2, 10, 20, 1}));
  EXPECT_EQ(v4(rb.size), (V4{2, 8, 30, 1}));
}

TEST(Negotiate, NCellFormOnRowsAndColumns) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 8, 30, 1, SORN_U8, 64);
  int32_t oa[2], sa[2], ob[2], sb[2];
  const int32_t ro[2] = {1, 1}, rs[2] = {100, 4}, at[2] = {2, 0};
  EXPECT_TRUE(sorn_arr__negotiateRoi(&a, &b, 2, 0, oa, sa, ob, sb, ro, rs, at));
  EXPECT_EQ(oa[0], 1);
  EXPECT_EQ(oa[1], 1);
  EXPECT_EQ(ob[0], 2);
  EXPECT_EQ(ob[1], 0);
  EXPECT_EQ(sa[0], 6);
  EXPECT_EQ(sa[1], 4);
  EXPECT_EQ(sb[0], 6);
  EXPECT_EQ(sb[1], 4);
  EXPECT_TRUE(sorn_arr__negotiateRoi(&a, &b, 2, 1, oa, sa, ob, sb, nullptr, nullptr, nullptr));
  EXPECT_EQ(sa[0], 8);
  EXPECT_EQ(sa[1], 20);
  EXPECT_EQ(sb[1], 30);
  int32_t oa4[4], sa4[4], ob4[4], sb4[4];
  EXPECT_TRUE(sorn_arr__negotiateRoi(&a, &b, 4, 0, oa4, sa4, ob4, sb4, nullptr, nullptr, nullptr));
  EXPECT_EQ(v4(sa4), (V4{1, 8, 20, 1}));
  EXPECT_EQ(v4(sb4), (V4{1, 8, 20, 1}));
}

// Reference of the block form, written from the rules: a's site with the
// channel count, cut in all four cells by inA; b's site from inB's origin
// on; then m cells take the smaller size.
TEST(Negotiate, RandomizedAgainstReference) {
  auto rng = sorn_test::seeded_rng(0x6e60);
  auto rnd = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  for (int iter = 0; iter < 3000; ++iter) {
    SornArray a = sorn_test::make_record4(g_buf, rnd(1, 3), rnd(1, 30), rnd(1, 30), rnd(1, 4), SORN_U8, 4096, 128);
    SornArray b = sorn_test::make_record4(g_buf, rnd(1, 3), rnd(1, 30), rnd(1, 30), rnd(1, 4), SORN_U8, 4096, 128);
    bool haveA = rng() % 4 != 0, haveB = rng() % 4 != 0;
    SornVolume inA = vol({rnd(-2, 2), rnd(-5, 25), rnd(-5, 25), 0}, {rnd(0, 4), rnd(-1, 30), rnd(-1, 30), rnd(1, 4)});
    SornVolume inB = vol({rnd(-2, 2), rnd(-5, 25), rnd(-5, 25), rnd(-2, 2)}, {rnd(-9, 9), rnd(-9, 9), rnd(-9, 9), rnd(-9, 9)});
    int32_t m = rnd(-1, 5);

    V4 ao{0, 0, 0, 0}, as{a.dims[0], a.dims[1], a.dims[2], SORN_CHANNELS(a.dims[3])};
    if (haveA)
      for (int i = 0; i < 4; ++i) {
        int32_t lo = std::max(ao[i], inA.origin[i]);
        int32_t hi = std::min(ao[i] + as[i], inA.origin[i] + inA.size[i]);
        ao[i] = lo;
        as[i] = hi - lo;
      }
    V4 bo{0, 0, 0, 0}, bs = v4(b.dims);
    if (haveB)
      for (int i = 0; i < 3; ++i) {
        int32_t p = inB.origin[i];
        int32_t lo = std::max(0, p);
        int32_t hi = std::min(bs[i], p + bs[i]);
        bo[i] = lo;
        bs[i] = hi - lo;
      }
    int32_t mm = (m < 1 || m > 3) ? 3 : m;
    bool ok = true;
    for (int i = 0; i < mm; ++i) {
      as[i] = bs[i] = std::min(as[i], bs[i]);
      if (as[i] < 1) ok = false;
    }

    SornVolume ra, rb;
    bool got = sorn_arr_negotiateRoi(&a, &b, &ra, &rb, haveA ? &inA : nullptr, haveB ? &inB : nullptr, m);
    ASSERT_EQ(got, ok) << "iter " << iter;
    ASSERT_EQ(v4(ra.origin), ao);
    ASSERT_EQ(v4(ra.size), as);
    ASSERT_EQ(v4(rb.origin), bo);
    ASSERT_EQ(v4(rb.size), bs);
  }
}

/* ---------------- with a scale ---------------- */

TEST(NegotiateEx, ZeroRatioIsTakenFromTheExtentsAndWrittenBack) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 8, 1, SORN_U8, 64);
  double ratio[4] = {0.0, 0.0, 1e-8, 7.0};
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, nullptr, 3));
  EXPECT_EQ(ratio[0], 1.0);
  EXPECT_EQ(ratio[1], 2.0);
  EXPECT_EQ(ratio[2], 2.5);
  EXPECT_EQ(ratio[3], 7.0);  // only m cells
  EXPECT_EQ(v4(ra.size), (V4{1, 10, 20, 1}));
  EXPECT_EQ(v4(rb.size), (V4{1, 5, 8, 1}));
}

TEST(NegotiateEx, LargerFirstExtentIsCutToTheScaledSecond) {
  SornArray a = sorn_test::make_record(g_buf, 15, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 10, 1, SORN_U8, 64);
  double ratio[4] = {1.0, 2.0, 0.5, 1.0};
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, nullptr, 3));
  EXPECT_EQ(ra.size[1], 10);
  EXPECT_EQ(ra.size[2], 5);
  EXPECT_EQ(rb.size[1], 5);
  EXPECT_EQ(rb.size[2], 10);
}

TEST(NegotiateEx, SmallerFirstExtentCutsTheSecond) {
  SornArray a = sorn_test::make_record(g_buf, 6, 6, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 5, 1, SORN_U8, 64);
  double ratio[4] = {1.0, 2.0, 1.5, 1.0};
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, nullptr, 3));
  EXPECT_EQ(ra.size[1], 6);
  EXPECT_EQ(rb.size[1], 3);  // rint(6 / 2)
  EXPECT_EQ(ra.size[2], 6);
  EXPECT_EQ(rb.size[2], 4);  // 5 * 1.5 = 7.5 has floor 7 > 6: rint(6 / 1.5)
}

TEST(NegotiateEx, WithinTheRoundedBandNothingChanges) {
  SornArray a = sorn_test::make_record(g_buf, 7, 8, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 5, 1, SORN_U8, 64);
  double ratio[4] = {1.0, 1.5, 1.5, 1.0};  // 7.5: 7 and 8 both fit
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, nullptr, 3));
  EXPECT_EQ(ra.size[1], 7);
  EXPECT_EQ(ra.size[2], 8);
  EXPECT_EQ(rb.size[1], 5);
  EXPECT_EQ(rb.size[2], 5);
}

TEST(NegotiateEx, NearestRoundsHalfToEven) {
  SornArray a = sorn_test::make_record(g_buf, 10, 10, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 13, 5, 1, SORN_U8, 64);
  double ratio[4] = {1.0, 0.5, 1.5, 1.0};  // 6.5 -> 6, 7.5 -> 8
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, nullptr, 3));
  EXPECT_EQ(ra.size[1], 6);
  EXPECT_EQ(ra.size[2], 8);
}

TEST(NegotiateEx, TooSmallResultsAreFalse) {
  SornArray a = sorn_test::make_record(g_buf, 10, 10, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 5, 1, SORN_U8, 64);
  SornVolume ra, rb;
  double r1[4] = {1.0, 0.05, 1.0, 1.0};  // 0.25 rounds to 0
  EXPECT_FALSE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, r1, nullptr, nullptr, 3));
  EXPECT_EQ(ra.size[1], 0);
  double r2[4] = {1.0, 100.0, 1.0, 1.0};  // 10 / 100 rounds to 0
  EXPECT_FALSE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, r2, nullptr, nullptr, 3));
  EXPECT_EQ(rb.size[1], 0);
}

TEST(NegotiateEx, EmptyRegionOnEitherSideIsFalse) {
  SornArray a = sorn_test::make_record(g_buf, 10, 10, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 5, 1, SORN_U8, 64);
  double ratio[4] = {0, 0, 0, 0};
  SornVolume out = vol({0, 20, 0, 0}, {1, 5, 5, 1});
  SornVolume ra, rb;
  EXPECT_FALSE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, &out, nullptr, 3));
  EXPECT_FALSE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, nullptr, &out, 3));
  EXPECT_EQ(ratio[1], 0.0);  // nothing computed
}

TEST(NegotiateEx, RegionsOfBothSidesAreCut) {
  SornArray a = sorn_test::make_record(g_buf, 20, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 10, 10, 1, SORN_U8, 64);
  double ratio[4] = {1.0, 2.0, 2.0, 1.0};
  SornVolume inA = vol({0, 2, 2, 0}, {1, 16, 16, 1});
  SornVolume inB = vol({0, 6, 0, 0}, {1, 10, 4, 1});  // b: 4 x 4 from (6, 0)
  SornVolume ra, rb;
  EXPECT_TRUE(sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, ratio, &inA, &inB, 3));
  EXPECT_EQ(v4(ra.origin), (V4{0, 2, 2, 0}));
  EXPECT_EQ(v4(rb.origin), (V4{0, 6, 0, 0}));
  EXPECT_EQ(v4(ra.size), (V4{1, 8, 8, 1}));
  EXPECT_EQ(v4(rb.size), (V4{1, 4, 4, 1}));
}

TEST(NegotiateEx, NCellForm) {
  SornArray a = sorn_test::make_record(g_buf, 15, 20, 1, SORN_U8, 64);
  SornArray b = sorn_test::make_record(g_buf, 5, 10, 1, SORN_U8, 64);
  int32_t oa[2], sa[2], ob[2], sb[2];
  double ratio[2] = {0.0, 3.0};
  EXPECT_TRUE(sorn_arr__negotiateRoiEx(&a, &b, 2, 0, oa, sa, ob, sb, ratio, nullptr, nullptr,
                                       nullptr, nullptr));
  EXPECT_EQ(ratio[0], 3.0);
  EXPECT_EQ(sa[0], 15);
  EXPECT_EQ(sb[0], 5);
  EXPECT_EQ(sa[1], 20);
  EXPECT_EQ(sb[1], 7);  // rint(20 / 3)
  ratio[0] = ratio[1] = 0.0;
  EXPECT_TRUE(sorn_arr__negotiateRoiEx(&a, &b, 2, 1, oa, sa, ob, sb, ratio, nullptr, nullptr,
                                       nullptr, nullptr));
  EXPECT_EQ(ratio[1], 0.0);  // m = 1: only rows
}

// Reference of one cell of the rule, in plain double arithmetic.
TEST(NegotiateEx, RandomizedAgainstReference) {
  auto rng = sorn_test::seeded_rng(0xe7a710);
  for (int iter = 0; iter < 3000; ++iter) {
    int32_t ra_ = 1 + (int32_t)(rng() % 40), ca = 1 + (int32_t)(rng() % 40);
    int32_t rb_ = 1 + (int32_t)(rng() % 40), cb = 1 + (int32_t)(rng() % 40);
    SornArray a = sorn_test::make_record(g_buf, ra_, ca, 1, SORN_U8, 64);
    SornArray b = sorn_test::make_record(g_buf, rb_, cb, 1, SORN_U8, 64);
    const double choices[] = {0.0, 0.25, 0.5, 1.0, 1.5, 2.0, 3.0, 0.3, 1.7};
    double ratio[4] = {1.0, choices[rng() % 9], choices[rng() % 9], 1.0};
    double rr[4] = {ratio[0], ratio[1], ratio[2], ratio[3]};
    V4 as{1, ra_, ca, 1}, bs{1, rb_, cb, 1};
    bool ok = true;
    for (int i = 0; i < 3; ++i) {
      double r = rr[i];
      if (std::fabs(r) <= 1.1920928955078125e-7) rr[i] = r = (double)as[i] / bs[i];
      double t = bs[i] * r;
      if (as[i] > std::ceil(t)) {
        as[i] = (int32_t)std::nearbyint(t);
        if (as[i] < 1) ok = false;
      } else if (as[i] < std::floor(t)) {
        bs[i] = (int32_t)std::nearbyint(as[i] / r);
        if (bs[i] < 1) ok = false;
      }
    }
    SornVolume va, vb;
    ASSERT_EQ((bool)sorn_arr_negotiateRoiEx(&a, &b, &va, &vb, ratio, nullptr, nullptr, 0), ok);
    ASSERT_EQ(v4(va.size), as);
    ASSERT_EQ(v4(vb.size), bs);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(ratio[i], rr[i]);
  }
}

}  // namespace

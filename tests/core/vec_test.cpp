// Four-cell vector arithmetic, linear offsets and pointer steps.
#include <gtest/gtest.h>
#include <sorn.h>

#include <array>
#include <cstdint>
#include <limits>
#include <random>

#include "testkit.h"

namespace {

using V4 = std::array<int32_t, 4>;
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

int32_t wrap(int64_t v) { return (int32_t)(uint32_t)(uint64_t)v; }

V4 random_v4(std::mt19937_64 &rng, int32_t lo, int32_t hi) {
  std::uniform_int_distribution<int32_t> d(lo, hi);
  return V4{d(rng), d(rng), d(rng), d(rng)};
}

TEST(VecDup, FillsCellsAndReturnsVector) {
  V4 v{1, 2, 3, 4};
  EXPECT_EQ(sorn_vec__dup(3, v.data(), 7), v.data());
  EXPECT_EQ(v, (V4{7, 7, 7, 4}));
}

TEST(VecDup, CountBelowOneDoesNothing) {
  V4 v{1, 2, 3, 4};
  sorn_vec__dup(0, v.data(), 9);
  sorn_vec__dup(-3, v.data(), 9);
  EXPECT_EQ(v, (V4{1, 2, 3, 4}));
}

TEST(VecAssign, CopiesCells) {
  V4 d{0, 0, 0, 0}, s{5, 6, 7, 8};
  EXPECT_EQ(sorn_vec__assign(2, d.data(), s.data()), d.data());
  EXPECT_EQ(d, (V4{5, 6, 0, 0}));
}

TEST(VecAssignZ, TrueOnlyWhenEveryCopiedCellIsPositive) {
  V4 d{}, s{1, 2, 3, 4};
  EXPECT_TRUE(sorn_vec__assign_$Z(4, d.data(), s.data()));
  EXPECT_EQ(d, s);
  V4 z{1, 0, 3, 4};
  EXPECT_FALSE(sorn_vec__assign_$Z(4, d.data(), z.data()));
  EXPECT_EQ(d, z);  // still copied in full
  V4 neg{1, 2, -3, 4};
  EXPECT_FALSE(sorn_vec__assign_$Z(3, d.data(), neg.data()));
  EXPECT_FALSE(sorn_vec__assign_$Z(0, d.data(), s.data()));
  EXPECT_FALSE(sorn_vec__assign_$Z(-1, d.data(), s.data()));
}

TEST(VecXassign, RightAlignsAndZeroFillsTheFront) {
  V4 d{9, 9, 9, 9};
  const int32_t s[2] = {5, 6};
  EXPECT_EQ(sorn_vec_xassign(4, d.data(), 2, s), d.data());
  EXPECT_EQ(d, (V4{0, 0, 5, 6}));
}

TEST(VecXassign, DropsLeadingCellsOfALongerSource) {
  V4 d{9, 9, 9, 9};
  const int32_t s[4] = {1, 2, 3, 4};
  sorn_vec_xassign(3, d.data(), 4, s);
  EXPECT_EQ(d, (V4{2, 3, 4, 9}));
}

TEST(VecXassign, CountsAreTakenModuloSixteen) {
  V4 d{9, 9, 9, 9};
  const int32_t s[2] = {5, 6};
  sorn_vec_xassign(16 + 3, d.data(), 32 + 2, s);
  EXPECT_EQ(d, (V4{0, 5, 6, 9}));
}

TEST(VecNeg, NegatesWithWrap) {
  V4 a{1, -2, kMin, kMax}, d{};
  sorn_vec__neg(4, d.data(), a.data());
  EXPECT_EQ(d, (V4{-1, 2, kMin, -kMax}));
  EXPECT_EQ(sorn_vec__neg_$I(2, a.data()), a.data());
  EXPECT_EQ(a, (V4{-1, 2, kMin, kMax}));
}

// Every binary form against a reference, in place and with a constant.
TEST(VecArith, AllFormsMatchReference) {
  auto rng = sorn_test::seeded_rng(0x11c0de);
  for (int iter = 0; iter < 500; ++iter) {
    V4 a = random_v4(rng, kMin, kMax), b = random_v4(rng, kMin, kMax);
    int32_t x = random_v4(rng, kMin, kMax)[0];
    int32_t n = (int32_t)(rng() % 5);
    struct Op {
      int32_t *(*bin)(int32_t, int32_t *, const int32_t *, const int32_t *);
      int32_t *(*binI)(int32_t, int32_t *, const int32_t *);
      int32_t *(*con)(int32_t, int32_t *, const int32_t *, int32_t);
      int32_t *(*conI)(int32_t, int32_t *, int32_t);
      int64_t (*ref)(int64_t, int64_t);
    };
    const Op ops[] = {
        {sorn_vec__add, sorn_vec__add_$I, sorn_vec__add_$C, sorn_vec__add_$C$I,
         [](int64_t p, int64_t q) { return p + q; }},
        {sorn_vec__sub, sorn_vec__sub_$I, sorn_vec__sub_$C, sorn_vec__sub_$C$I,
         [](int64_t p, int64_t q) { return p - q; }},
        {sorn_vec__rsb, sorn_vec__rsb_$I, sorn_vec__rsb_$C, sorn_vec__rsb_$C$I,
         [](int64_t p, int64_t q) { return q - p; }},
    };
    for (const Op &op : ops) {
      V4 d{-7, -7, -7, -7};
      V4 expect = d, expectC = d;
      for (int i = 0; i < n; ++i) {
        expect[i] = wrap(op.ref(a[i], b[i]));
        expectC[i] = wrap(op.ref(a[i], x));
      }
      EXPECT_EQ(op.bin(n, d.data(), a.data(), b.data()), d.data());
      EXPECT_EQ(d, expect);
      V4 aI = a;
      for (int i = n; i < 4; ++i) expect[i] = a[i];
      EXPECT_EQ(op.binI(n, aI.data(), b.data()), aI.data());
      EXPECT_EQ(aI, expect);
      d = V4{-7, -7, -7, -7};
      EXPECT_EQ(op.con(n, d.data(), a.data(), x), d.data());
      EXPECT_EQ(d, expectC);
      aI = a;
      for (int i = n; i < 4; ++i) expectC[i] = a[i];
      EXPECT_EQ(op.conI(n, aI.data(), x), aI.data());
      EXPECT_EQ(aI, expectC);
    }
  }
}

TEST(VecRsb, IsSecondMinusFirst) {
  V4 a{10, 20, 30, 40}, b{1, 2, 3, 4}, d{};
  sorn_vec__rsb(4, d.data(), a.data(), b.data());
  EXPECT_EQ(d, (V4{-9, -18, -27, -36}));
  sorn_vec__rsb_$C(2, d.data(), a.data(), 100);
  EXPECT_EQ(d, (V4{90, 80, -27, -36}));
}

TEST(VecMinMax, SignedCellwise) {
  V4 a{-5, 7, kMin, 0}, b{3, -8, 0, kMax}, d{};
  sorn_vec__min(4, d.data(), a.data(), b.data());
  EXPECT_EQ(d, (V4{-5, -8, kMin, 0}));
  sorn_vec__max(4, d.data(), a.data(), b.data());
  EXPECT_EQ(d, (V4{3, 7, 0, kMax}));
  V4 c = a;
  EXPECT_EQ(sorn_vec__min_$I(3, c.data(), b.data()), c.data());
  EXPECT_EQ(c, (V4{-5, -8, kMin, 0}));
  c = a;
  EXPECT_EQ(sorn_vec__max_$I(3, c.data(), b.data()), c.data());
  EXPECT_EQ(c, (V4{3, 7, 0, 0}));
}

TEST(VecEqual, ComparesAllCells) {
  V4 a{1, 2, 3, 4}, b{1, 2, 3, 5};
  EXPECT_TRUE(sorn_vec__equal(3, a.data(), b.data()));
  EXPECT_FALSE(sorn_vec__equal(4, a.data(), b.data()));
}

TEST(VecEqual, BelowOneIsTrueOnlyForZero) {
  V4 a{1, 2, 3, 4}, b{5, 6, 7, 8};
  EXPECT_TRUE(sorn_vec__equal(0, a.data(), b.data()));
  EXPECT_FALSE(sorn_vec__equal(-1, a.data(), b.data()));
}

TEST(VecEqual0, TrueWhenAllZeroAndForCountsBelowOne) {
  V4 z{0, 0, 0, 1};
  EXPECT_TRUE(sorn_vec__equal0(3, z.data()));
  EXPECT_FALSE(sorn_vec__equal0(4, z.data()));
  EXPECT_TRUE(sorn_vec__equal0(0, z.data()));
  EXPECT_TRUE(sorn_vec__equal0(-2, z.data()));
}

TEST(VecMkloff, SumsProductsWithWrap) {
  V4 c{1, 2, 3, 4}, s{1000, 100, 10, 1};
  EXPECT_EQ(sorn_vec_mkloff(4, c.data(), s.data()), 1234);
  EXPECT_EQ(sorn_vec_mkloff(2, c.data(), s.data()), 1200);
  EXPECT_EQ(sorn_vec_mkloff(0, c.data(), s.data()), 0);
  EXPECT_EQ(sorn_vec_mkloff(16 + 1, c.data(), s.data()), 1000);  // n & 15
  V4 big{65536, 0, 0, 0}, bs{65536, 0, 0, 0};
  EXPECT_EQ(sorn_vec_mkloff(1, big.data(), bs.data()), 0);  // 2^32 wraps to 0
  V4 neg{-1, 2, 0, 0}, ns{kMax, kMax, 0, 0};
  EXPECT_EQ(sorn_vec_mkloff(2, neg.data(), ns.data()), wrap(-(int64_t)kMax + 2 * (int64_t)kMax));
}

TEST(VecMkloff, PackedFormsUseTheLeadingCells) {
  V4 c{1, 2, 3, 4}, s{1000, 100, 10, 1};
  // n = 3 cells from index 1, one valid cell in front: all four count.
  EXPECT_EQ(sorn_vec_mkloff_$L(SORN_DIMPACK(3), c.data() + 1, s.data() + 1), 1234);
  EXPECT_EQ(sorn_vec_mkloff_$LS(SORN_DIMPACK(3), c.data() + 1, s.data() + 1), 1234);
  // The plain form only sees n cells from the pointer.
  EXPECT_EQ(sorn_vec_mkloff(3, c.data() + 1, s.data() + 1), 234);
  EXPECT_EQ(sorn_vec_mkloff_$L(SORN_DIMPACK(4), c.data(), s.data()), 1234);
  EXPECT_EQ(sorn_vec_mkloff_$L(0x200 | 2, c.data() + 2, s.data() + 2), 34);
  EXPECT_EQ(sorn_vec_mkloff_$LS(SORN_DIMPACK(3), nullptr, s.data() + 1), 0);
}

TEST(VecFromloff, DecomposesFromTheOutermostCell) {
  V4 s{1000, 100, 10, 1}, out{9, 9, 9, 9};
  EXPECT_EQ(sorn_vec_fromloff(4, out.data(), s.data(), 1234), out.data());
  EXPECT_EQ(out, (V4{1, 2, 3, 4}));
}

TEST(VecFromloff, ZeroStrideIsSkippedAndGivesZero) {
  V4 s{0, 100, 0, 1}, out{9, 9, 9, 9};
  sorn_vec_fromloff(4, out.data(), s.data(), 1234);
  EXPECT_EQ(out, (V4{0, 12, 0, 34}));
}

TEST(VecFromloff, RemainderBelowTheLastStrideIsLost) {
  V4 s{0, 64, 4, 0}, out{};
  sorn_vec_fromloff(4, out.data(), s.data(), 2 * 64 + 3 * 4 + 3);
  EXPECT_EQ(out, (V4{0, 2, 3, 0}));
}

TEST(VecFromloff, SignedTruncatingDivision) {
  V4 s{100, 10, 1, 0}, out{};
  sorn_vec_fromloff(3, out.data(), s.data(), -123);
  EXPECT_EQ(out, (V4{-1, -2, -3, 0}));
}

TEST(VecUpdateLoff, AddsTheDecomposedOffset) {
  V4 s{1000, 100, 10, 1}, c{5, 5, 5, 5};
  EXPECT_EQ(sorn_vec_update_$loff(4, c.data(), s.data(), 1234), c.data());
  EXPECT_EQ(c, (V4{6, 7, 8, 9}));
  V4 c0{5, 5, 5, 5}, s0{0, 0, 0, 0};
  sorn_vec_update_$loff(4, c0.data(), s0.data(), 1234);
  EXPECT_EQ(c0, (V4{5, 5, 5, 5}));
}

// fromloff undoes mkloff for in-range coordinates of a tight layout, and
// update_$loff then mkloff adds the offset back.
TEST(VecLoff, RoundTripsRandomized) {
  auto rng = sorn_test::seeded_rng(0x10ff);
  for (int iter = 0; iter < 2000; ++iter) {
    V4 dims = random_v4(rng, 1, 40);
    int32_t es = 1 << (rng() % 4);
    int32_t pad = (int32_t)(rng() % 17);
    V4 s;
    s[3] = es;
    s[2] = dims[3] * es;
    s[1] = dims[2] * s[2] + pad;
    s[0] = dims[1] * s[1];
    V4 c;
    for (int i = 0; i < 4; ++i) c[i] = (int32_t)(rng() % (uint64_t)dims[i]);
    int32_t off = sorn_vec_mkloff(4, c.data(), s.data());
    int64_t ref = 0;
    for (int i = 0; i < 4; ++i) ref += (int64_t)c[i] * s[i];
    ASSERT_EQ(off, ref);
    V4 back{};
    sorn_vec_fromloff(4, back.data(), s.data(), off);
    ASSERT_EQ(back, c);
    V4 base = random_v4(rng, -50, 50);
    V4 upd = base;
    sorn_vec_update_$loff(4, upd.data(), s.data(), off);
    ASSERT_EQ(sorn_vec_mkloff(4, upd.data(), s.data()),
              wrap(sorn_vec_mkloff(4, base.data(), s.data()) + (int64_t)off));
  }
}

TEST(VecAdvancePtr, StepsBySignedBytes) {
  alignas(8) unsigned char buf[64] = {};
  EXPECT_EQ(sorn_advance_ptr(buf + 10, 5), buf + 15);
  EXPECT_EQ(sorn_advance_ptr(buf + 10, -10), buf);
  EXPECT_EQ(sorn_advance_ptr(buf, 0), buf);
}

TEST(VecBaseAt2d, AddsOffsetAndTwoCoordinates) {
  alignas(8) unsigned char buf[1024] = {};
  const int32_t s[2] = {100, 3};
  EXPECT_EQ(sorn_base_at_$2d(buf, 4, 2, 5, s), buf + 4 + 200 + 15);
  EXPECT_EQ(sorn_base_at_$2d(buf + 500, -4, -2, -5, s), buf + 500 - 4 - 200 - 15);
}

}  // namespace

// The entries of the add and subtract group from the public records down:
// worked examples, every family through its entry with ROIs, padded rows and
// channels, the constant forms with the classification of their constants,
// and the failures in their order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "addsub_reference.h"
#include "testkit.h"

using addsub_ref::Op;
using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

using addsub_ref::Entry;
using addsub_ref::EntryC;
using addsub_ref::Family;
using addsub_ref::kFamilies;

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

uint8_t run_u8(Entry e, uint8_t a, uint8_t b, int32_t sf = 0) {
  Image d(1, 1, 1, SORN_U8, 0, 0x11), ia(1, 1, 1, SORN_U8), ib(1, 1, 1, SORN_U8);
  ia.at<uint8_t>(0, 0) = a;
  ib.at<uint8_t>(0, 0) = b;
  SornArray rd = d.record(), ra = ia.record(), rb = ib.record();
  EXPECT_EQ(e(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, sf, 0), SORN_OK);
  return d.at<uint8_t>(0, 0);
}

// --- worked examples --------------------------------------------------------

TEST(SubU8, WorkedExamples) {
  EXPECT_EQ(run_u8(&SornSub, 10, 20), 246);
  EXPECT_EQ(run_u8(&SornSubq, 10, 20), 0);
  EXPECT_EQ(run_u8(&SornSubsq, 10, 20), 246) << "-10 as a signed byte";
  EXPECT_EQ(run_u8(&SornRSub, 10, 20), 10);
  EXPECT_EQ(run_u8(&SornRSubq, 20, 10), 0);
  EXPECT_EQ(run_u8(&SornRSubsq, 20, 10), 246);
}

TEST(AddsqU8, SaturatesAtOneHundredTwentySeven) {
  EXPECT_EQ(run_u8(&SornAddsq, 100, 100), 127);
  EXPECT_EQ(run_u8(&SornAddq, 100, 100), 200);
  EXPECT_EQ(run_u8(&SornAddq, 200, 100), 255);
  EXPECT_EQ(run_u8(&SornAddsq, 255, 255, -1), 127);
  EXPECT_EQ(run_u8(&SornSubsq, 0, 255), 128) << "-255 clamps to -128";
}

TEST(SubU8, OfASourceFromItselfInTheSameBufferGivesZerosByFill) {
  for (Entry e : {&SornSub, &SornSubq, &SornRSub, &SornRSubq, &SornSubsq})
    for (int32_t sf : {0, 3, -2}) {
      Image d(5, 7, 3, SORN_U8, 4, 0x99);
      const std::vector<uint8_t> before = d.bytes_copy();
      SornArray rd = d.record();
      SornVolume roi = make_roi(1, 2, 3, 4, 3);
      ASSERT_EQ(e(nullptr, 0, &rd, &rd, &rd, &roi, &roi, &roi, sf, 0), SORN_OK);
      ASSERT_EQ(e(nullptr, 0, &rd, nullptr, &rd, &roi, nullptr, &roi, sf, 0), SORN_OK);
      for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x)
          for (int32_t c = 0; c < 3; ++c) {
            const bool in = y >= 1 && y < 4 && x >= 2 && x < 6;
            ASSERT_EQ(d.at<uint8_t>(y, x, c), in ? 0 : 0x99) << y << "," << x;
          }
      const std::vector<uint8_t> after = d.bytes_copy();
      for (int32_t y = 0; y < 5; ++y)
        for (int32_t i = 21; i < d.rowstride(); ++i) ASSERT_EQ(after[y * d.rowstride() + i], before[y * d.rowstride() + i]);
      ASSERT_TRUE(d.guards_intact());
    }
}

TEST(SubS16, NarrowerFirstSourceStillGivesAMinusB) {
  Image d(1, 2, 1, SORN_S16), a(1, 2, 1, SORN_U8), b(1, 2, 1, SORN_S16);
  a.at<uint8_t>(0, 0) = 10;
  b.at<int16_t>(0, 0) = 300;
  a.at<uint8_t>(0, 1) = 200;
  b.at<int16_t>(0, 1) = -5;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornSub(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<int16_t>(0, 0), -290);
  EXPECT_EQ(d.at<int16_t>(0, 1), 205);
  ASSERT_EQ(SornRSub(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<int16_t>(0, 0), 290);
}

// --- every family through its entry -------------------------------------------

// The region every operand agrees on: the destination's ROI cut to its
// site, then bounded by what the sources have from their starts on.
struct Extent {
  int32_t od[2], oa[2], ob[2];
  int32_t rows, cols;
};
Extent negotiate(const Image &d, const Image &a, const Image &b, const SornVolume &dr,
                 const SornVolume &ar, const SornVolume &br) {
  Extent e{};
  int32_t size[2] = {d.rows(), d.cols()};
  for (int i = 0; i < 2; ++i) {
    e.od[i] = std::max(0, dr.origin[1 + i]);
    size[i] = std::min(dr.origin[1 + i] + dr.size[1 + i], size[i]) - e.od[i];
    e.ob[i] = br.origin[1 + i];
    e.oa[i] = ar.origin[1 + i];
  }
  e.rows = std::min({size[0], b.rows() - e.ob[0], a.rows() - e.oa[0]});
  e.cols = std::min({size[1], b.cols() - e.ob[1], a.cols() - e.oa[1]});
  return e;
}

TEST(GroupEntries, EveryFamilyAndTripleWithRoisPaddingAndChannels) {
  auto rng = sorn_test::seeded_rng(0x5e00);
  auto pick = [&](int32_t lo, int32_t hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  struct T3 { uint32_t d, a, b; };
  std::vector<T3> triples;
#define T3_ADD(d, a, b) triples.push_back({SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b)});
  SORN_ADD_TRIPLES(T3_ADD)
#undef T3_ADD
  for (const Family &f : kFamilies)
    for (const T3 &t : triples)
      for (int32_t sf : {0, 1, -1, 9, -9}) {
        const int32_t ch = pick(1, 4);
        Image d(pick(1, 6), pick(1, 13), ch, t.d, 4 * pick(0, 1), 0xc3);
        Image a(pick(1, 6), pick(1, 13), ch, t.a, 4 * pick(0, 1));
        Image b(pick(1, 6), pick(1, 13), ch, t.b, 4 * pick(0, 1));
        fill_random(rng, a);
        fill_random(rng, b);
        const Image before = d;
        SornVolume dr = make_roi(pick(0, d.rows() - 1), pick(0, d.cols() - 1), pick(1, 7), pick(1, 14), ch);
        SornVolume ar = make_roi(pick(0, a.rows() - 1), pick(0, a.cols() - 1), 0, 0, ch);
        SornVolume br = make_roi(pick(0, b.rows() - 1), pick(0, b.cols() - 1), 0, 0, ch);
        SornArray rd = d.record(), ra = a.record(), rb = b.record();
        const SornStatus st = f.entry(nullptr, 0, &rd, &ra, &rb, &dr, &ar, &br, sf, 0x5eed);
        // A signed saturating u8 destination is s8: only two u8 sources
        // reach it directly; the others need the pending tile path.
        const uint32_t kd = f.signed_sat ? (t.d | 8u) : t.d;
        if (f.signed_sat && t.d == SORN_U8 && t.a != SORN_U8) {
          ASSERT_EQ(st, SORN_ENOTSUP) << f.name;
          ASSERT_EQ(d.bytes_copy(), before.bytes_copy());
          continue;
        }
        ASSERT_EQ(st, SORN_OK) << f.name;
        const Extent e = negotiate(d, a, b, dr, ar, br);
        for (int32_t y = 0; y < d.rows(); ++y)
          for (int32_t x = 0; x < d.cols(); ++x)
            for (int32_t c = 0; c < ch; ++c) {
              const int32_t ry = y - e.od[0], rx = x - e.od[1];
              double want, got;
              if (ry >= 0 && ry < e.rows && rx >= 0 && rx < e.cols) {
                const double va = a.get(e.oa[0] + ry, e.oa[1] + rx, c);
                const double vb = b.get(e.ob[0] + ry, e.ob[1] + rx, c);
                want = addsub_ref::expected(f.op, f.sat, kd, t.a, t.b, va, vb, sf);
                got = kd == SORN_S8 ? (double)d.at<int8_t>(y, x, c) : d.get(y, x, c);
              } else {
                want = before.get(y, x, c);
                got = d.get(y, x, c);
              }
              ASSERT_TRUE(add_ref::same(kd, want, got))
                  << f.name << " " << sorn_test::type_name(t.d) << sorn_test::type_name(t.a)
                  << sorn_test::type_name(t.b) << " sf " << sf << " at " << y << "," << x << "," << c;
            }
        ASSERT_TRUE(d.guards_intact());
      }
}

TEST(GroupEntries, EveryFamilyPassesTheSharedChecks) {
  Image d(3, 4, 1, SORN_U8, 0, 0x77), a(3, 4, 1, SORN_U8), b(3, 4, 1, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornArray bad = rd;
  bad.ndims = 2;
  SornArray two = ra;
  two.dims[3] = 2;
  SornVolume out = make_roi(3, 0, 1, 1, 1);
  std::vector<uint8_t> buf(2 * 12, 0x33);
  SornArray d4 = make_record4(buf.data(), 2, 3, 4, 1, SORN_U8, 12, 4);
  const double c[1] = {1};
  for (const Family &f : kFamilies) {
    EXPECT_EQ(f.entry(nullptr, 0, &bad, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    EXPECT_EQ(f.entry(nullptr, 0, &rd, &two, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    EXPECT_EQ(f.entry(nullptr, 0, &rd, &ra, nullptr, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    EXPECT_EQ(f.entry(nullptr, 0, &rd, &ra, &rb, &out, nullptr, nullptr, 0, 0), SORN_ENOSPC) << f.name;
    EXPECT_EQ(f.entry(nullptr, 0, &d4, &d4, &d4, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP) << f.name;
    EXPECT_EQ(f.entry_c(nullptr, 0, &bad, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    EXPECT_EQ(f.entry_c(nullptr, 0, &rd, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    EXPECT_EQ(f.entry_c(nullptr, 0, &rd, &ra, c, &out, nullptr, 0, 0), SORN_ENOSPC) << f.name;
    EXPECT_EQ(f.entry_c(nullptr, 0, &d4, nullptr, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP) << f.name;
    // The signed forms set bit 3 of the destination's code before the lookup:
    // u16 becomes s16 and the unknown 5 becomes f32, both with kernels.
    if (!f.signed_sat) {
      SornArray u16 = rd;
      u16.elemtype = SORN_U16;
      EXPECT_EQ(f.entry(nullptr, 0, &u16, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP) << f.name;
      u16.elemtype = 5;
      EXPECT_EQ(f.entry(nullptr, 0, &u16, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL) << f.name;
    }
  }
  EXPECT_EQ(d.bytes_copy(), before);
  for (uint8_t v : buf) EXPECT_EQ(v, 0x33);
}

// --- the constant forms -------------------------------------------------------

template <class T>
T run_c(EntryC e, uint32_t dtype, uint32_t atype, double a, std::vector<double> c,
        SornFlags flags = 0, SornStatus want = SORN_OK, int32_t sf = 0) {
  const int32_t ch = (int32_t)c.size();
  Image d(1, 1, ch, dtype, 0, 0), ia(1, 1, ch, atype);
  for (int32_t k = 0; k < ch; ++k) ia.set(0, 0, k, a);
  SornArray rd = d.record(), ra = ia.record();
  EXPECT_EQ(e(nullptr, flags, &rd, &ra, c.data(), nullptr, nullptr, sf, 0), want);
  return d.at<T>(0, 0, ch - 1);
}

TEST(AddC, F32ConstantsOnAnF32Image) {
  Image d(1, 1, 2, SORN_F32), a(1, 1, 2, SORN_F32);
  a.at<float>(0, 0, 0) = 1.0f;
  a.at<float>(0, 0, 1) = 1.0f;
  SornArray rd = d.record(), ra = a.record();
  const double c[2] = {1.5, 2};
  ASSERT_EQ(SornAddC(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<float>(0, 0, 0), 2.5f);
  EXPECT_EQ(d.at<float>(0, 0, 1), 3.0f);
}

TEST(AddC, OneAndThreeHundredOnU8TakeTheS32ConstantKernel) {
  // s16 constants, fitted to a u8 source as s32: the u8u8s32 kernel wraps.
  EXPECT_EQ(run_c<uint8_t>(&SornAddC, SORN_U8, SORN_U8, 250, {1, 300}), (uint8_t)(550 & 255));
  EXPECT_EQ(run_c<uint8_t>(&SornAddqC, SORN_U8, SORN_U8, 250, {1, 300}), 255);
  EXPECT_EQ(run_c<int16_t>(&SornAddC, SORN_S16, SORN_U8, 250, {1, 300}), 550);
}

TEST(AddC, OnS32ARoundedConstant) {
  EXPECT_EQ(run_c<int32_t>(&SornAddC, SORN_S32, SORN_S32, 10, {1.5}), 12);
  EXPECT_EQ(run_c<int32_t>(&SornAddC, SORN_S32, SORN_S32, 10, {2.5}), 12) << "ties to even";
}

TEST(AddC, ABigIntegerOnF32UsesF64UnlessTheFlagsSayOtherwise) {
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 0.5, {16777217}), 16777218.0f)
      << "16777217.5 in f64";
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 0.5, {16777217}, 0x200000), 16777216.0f)
      << "an s32 constant, narrowed to f32 as 2^24";
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 0.5, {16777217}, 0x400000), 16777216.0f);
  EXPECT_EQ(run_c<int32_t>(&SornAddC, SORN_S32, SORN_F32, 0.5, {16777217}), 16777218);
}

TEST(AddC, WideFlagTakesF32ConstantsToF64ForWideDestinations) {
  // 0.1 as f32 against f64: the sum with a large value shows the difference.
  const float f = (float)(16777216.0 + (double)(float)0.1);
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 16777216.0, {0.1}), f);
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 16777216.0, {0.1}, SORN_F_CONST_WIDE),
            (float)(16777216.0 + 0.1));
}

TEST(AddC, MinusOneIsNotU8) {
  EXPECT_EQ(run_c<uint8_t>(&SornAddC, SORN_U8, SORN_U8, 0, {-1}), 255) << "s16, then s32: wraps";
  EXPECT_EQ(run_c<uint8_t>(&SornAddqC, SORN_U8, SORN_U8, 0, {-1}), 0);
  EXPECT_EQ(run_c<uint8_t>(&SornSubC, SORN_U8, SORN_U8, 5, {-1}), 6);
}

TEST(AddC, FourChannelsOnASingleRowCycleByFour) {
  Image d(1, 5, 4, SORN_U8), a(1, 5, 4, SORN_U8);
  SornArray rd = d.record(), ra = a.record();
  const double c[4] = {1, 2, 3, 4};
  ASSERT_EQ(SornAddC(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t x = 0; x < 5; ++x)
    for (int32_t k = 0; k < 4; ++k) EXPECT_EQ(d.at<uint8_t>(0, x, k), k + 1);
}

TEST(SubC, OrderOfOperandsAndSaturation) {
  EXPECT_EQ(run_c<uint8_t>(&SornSubC, SORN_U8, SORN_U8, 10, {20}), 246);
  EXPECT_EQ(run_c<uint8_t>(&SornSubqC, SORN_U8, SORN_U8, 10, {20}), 0);
  EXPECT_EQ(run_c<int8_t>(&SornSubsqC, SORN_U8, SORN_U8, 10, {20}), -10);
  EXPECT_EQ(run_c<uint8_t>(&SornRSubC, SORN_U8, SORN_U8, 10, {20}), 10);
  EXPECT_EQ(run_c<uint8_t>(&SornRSubqC, SORN_U8, SORN_U8, 30, {20}), 0);
  EXPECT_EQ(run_c<int8_t>(&SornRSubsqC, SORN_U8, SORN_U8, 30, {20}), -10);
  EXPECT_EQ(run_c<int8_t>(&SornAddsqC, SORN_U8, SORN_U8, 100, {100}), 127);
  EXPECT_EQ(run_c<float>(&SornRSubC, SORN_F32, SORN_F32, 0.25, {1}), 0.75f);
}

TEST(AddC, OutOfRangeNaNAndInfiniteConstants) {
  // 1e10 does not survive the truncation to 32 bits: f32 class, fitted to
  // s32 on a u8 source, where it converts to 0x80000000.
  EXPECT_EQ(run_c<uint8_t>(&SornAddC, SORN_U8, SORN_U8, 7, {1e10}), 7) << "low byte of 2^31 is 0";
  EXPECT_EQ(run_c<uint8_t>(&SornAddqC, SORN_U8, SORN_U8, 7, {1e10}), 0);
  EXPECT_EQ(run_c<uint8_t>(&SornAddqC, SORN_U8, SORN_U8, 7, {300.7}), 255);
  // NaN fails every comparison: it goes on as the integer 0, a u8 constant,
  // which converts to 0.
  EXPECT_EQ(run_c<uint8_t>(&SornAddC, SORN_U8, SORN_U8, 7, {std::nan("")}), 7);
  EXPECT_EQ(run_c<uint8_t>(&SornAddqC, SORN_U8, SORN_U8, 7, {INFINITY}), 0);
  EXPECT_TRUE(std::isnan(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 7, {std::nan("")})));
  EXPECT_EQ(run_c<float>(&SornAddC, SORN_F32, SORN_F32, 7, {INFINITY}), INFINITY);
  EXPECT_EQ(run_c<float>(&SornSubC, SORN_F32, SORN_F32, 7, {-INFINITY}), INFINITY);
  EXPECT_EQ(run_c<int32_t>(&SornAddqC, SORN_S32, SORN_S32, 100, {3e9}), INT32_MIN + 100)
      << "3e9 is 0x80000000 as an s32 constant; the exact sum is in range";
}

TEST(AddC, FillVectorStatusesAreReturned) {
  Image d(1, 2, 1, SORN_U8, 0, 9), a(1, 2, 1, SORN_U8);
  SornArray rd = d.record(), ra = a.record();
  const double c[1] = {1};
  ra.elemtype = SORN_S64;  // the constant takes the source's 8-byte type
  EXPECT_EQ(SornAddC(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  ra.elemtype = 6;  // an 8-byte class without a type
  EXPECT_EQ(SornAddC(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
  ra.elemtype = SORN_U16;  // a known source without a kernel
  EXPECT_EQ(SornAddC(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(d.at<uint8_t>(0, 0), 9);
  EXPECT_EQ(d.at<uint8_t>(0, 1), 9);
}

TEST(AddsqC, AnS32ConstantOnU8HasNoKernelForItsSignedDestination) {
  // -1 fits the u8 source as s32, which takes the direct path; the signed
  // saturating lookup has no s8u8s32 kernel, so the call is declined.
  EXPECT_EQ(run_c<uint8_t>(&SornAddsqC, SORN_U8, SORN_U8, 7, {-1}, 0, SORN_ENOTSUP), 0);
  SornStatus st = 1;
  (void)sorna__aaddqcfun_imp(SORN_S8, SORN_U8, SORN_S32, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
}

// The constant type by the rules, written out plainly for the random test.
uint32_t classify(double c) {
  const double t = std::trunc(c);
  const int64_t i = (std::isnan(c) || std::fabs(t) >= 9.2e18) ? INT64_MIN : (int64_t)t;
  const int32_t i32 = (int32_t)(uint32_t)(uint64_t)i;
  if (std::fabs(c - i32) > 1.1920928955078125e-7) return SORN_F32;
  if (std::max<int64_t>(i32, -(int64_t)i32) > 0x1000000 && i32 != INT32_MIN) return 27;
  if (i < -32768 || i > 32767) return SORN_S32;
  if (i >= 0 && i < 256) return SORN_U8;
  return SORN_S16;
}
int32_t size_of(uint32_t t) { return t == 27 ? 4 : SORN_ELEMSIZE(t); }

uint32_t constant_type(const std::vector<double> &c, uint32_t a, uint32_t d, SornFlags flags) {
  uint32_t t = SORN_U8;
  const bool relaxed = (flags & 0x600000) != 0;
  for (double v : c) {
    const uint32_t k = classify(v);
    if (size_of(k) > size_of(t)) t = k;
    else if (size_of(k) == size_of(t) && k != t) {
      if (!relaxed) {
        if (t == SORN_S32) t = k;
        else if (k == 27 || k == SORN_F32) t = SORN_F64;
      } else if (k == SORN_F32) {
        t = SORN_F32;
      }
    }
  }
  if (relaxed && t == 27) t = SORN_S32;
  if (size_of(t) < size_of(a)) t = a;
  else if (size_of(t) == size_of(a) && t != a) t = t == SORN_S32 ? SORN_F32 : SORN_F64;
  if (a != SORN_F32 && t != SORN_S32 && t != a && !(d == SORN_F32 && (t == SORN_F32 || t == SORN_F64)))
    t = SORN_S32;
  if ((flags & 0x100000) && t == SORN_F32 && a == SORN_F32 && (d & 7) != 1 && (d & 7) != 2) t = SORN_F64;
  return t;
}

TEST(GroupEntriesC, EveryFamilyOnRandomConstantsWithRoisAndChannels) {
  auto rng = sorn_test::seeded_rng(0x5e01);
  auto pick = [&](int32_t lo, int32_t hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  const uint32_t types[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  const double special[] = {0, 1, -1, 255, 256, 300, 1.5, -2.5, 32767, -32768, 40000, 16777217,
                            -16777217, 1e10, 0.1, 2147483647.0, -2147483648.0};
  int direct = 0;
  for (const Family &f : kFamilies)
    for (uint32_t dt : types)
      for (uint32_t at : types)
        for (int rep = 0; rep < 6; ++rep) {
          const int32_t ch = pick(1, 4);
          std::vector<double> c(ch);
          for (double &v : c)
            v = (rng() % 3) ? special[rng() % (sizeof special / sizeof special[0])]
                            : std::round(sorn_test::random_value(rng, types[rng() % 4], false) * 4) / 4;
          const SornFlags flags = (rng() % 4 == 0) ? 0x200000 : (rng() % 4 == 0) ? 0x100000 : 0;
          const int32_t sf = (int32_t)(rng() % 3) - 1;
          Image d(pick(1, 5), pick(1, 9), ch, dt, 4 * pick(0, 1), 0xc3), a(pick(1, 5), pick(1, 9), ch, at, 4);
          fill_random(rng, a);
          const std::vector<uint8_t> before = d.bytes_copy();
          SornVolume dr = make_roi(pick(0, d.rows() - 1), pick(0, d.cols() - 1), pick(1, 6), pick(1, 10), ch);
          SornVolume ar = make_roi(pick(0, a.rows() - 1), pick(0, a.cols() - 1), 9, 9, ch);
          SornArray rd = d.record(), ra = a.record();
          const SornStatus st = f.entry_c(nullptr, flags, &rd, &ra, c.data(), &dr, &ar, sf, 0);
          const uint32_t kd = f.signed_sat ? (dt | 8u) : dt;
          const uint32_t t = constant_type(c, at, kd, flags);
          const bool in_table =
              (t == at && (size_of(kd) >= size_of(at) || (kd == SORN_U8 && at == SORN_S16))) ||
              (t == SORN_S32 && at == SORN_U8) || (t == SORN_S32 && ((kd & 7) == 3 || (kd & 7) == 5)) ||
              (t == SORN_F64 && size_of(kd) == size_of(at));
          bool has_kernel = false;
          SornStatus ks = 1;
          if (in_table) {
            (f.sat ? sorna__aaddqcfun_imp : sorna__aaddcfun_imp)(kd, at, t, &ks);
            has_kernel = ks == SORN_OK;
          }
          if (!has_kernel) {
            ASSERT_EQ(st, SORN_ENOTSUP) << f.name << " " << dt << " " << at << " T " << t;
            ASSERT_EQ(d.bytes_copy(), before);
            continue;
          }
          ++direct;
          ASSERT_EQ(st, SORN_OK) << f.name << " " << dt << " " << at << " T " << t;
          const int32_t oy = dr.origin[1], ox = dr.origin[2];
          const int32_t rows = std::min({dr.size[1], d.rows() - oy, a.rows() - ar.origin[1]});
          const int32_t cols = std::min({dr.size[2], d.cols() - ox, a.cols() - ar.origin[2]});
          for (int32_t y = 0; y < d.rows(); ++y)
            for (int32_t x = 0; x < d.cols(); ++x)
              for (int32_t k = 0; k < ch; ++k) {
                const int32_t ry = y - oy, rx = x - ox;
                const bool in = ry >= 0 && ry < rows && rx >= 0 && rx < cols;
                double want = 0, got = kd == SORN_S8 ? (double)d.at<int8_t>(y, x, k) : d.get(y, x, k);
                if (in) {
                  want = addsub_ref::expected(f.op, f.sat, kd, at, t, a.get(ar.origin[1] + ry, ar.origin[2] + rx, k),
                                              addsub_ref::constant_in(t, c[k]), sf);
                } else {
                  const size_t off = (size_t)y * d.rowstride() + ((size_t)x * ch + k) * d.esize();
                  ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
                  continue;
                }
                ASSERT_TRUE(add_ref::same(kd, want, got))
                    << f.name << " d" << dt << " a" << at << " T" << t << " sf " << sf << " c "
                    << c[k] << " at " << y << "," << x << "," << k << " got " << got << " want " << want;
              }
          ASSERT_TRUE(d.guards_intact());
        }
  EXPECT_GT(direct, 100);
}

}  // namespace

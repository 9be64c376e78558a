// The kernels of the add and subtract group against the plain reference:
// every kernel of every table, through its family's dispatcher, every scale
// factor, 1 to 4 channels, padded rows and guard bytes; the q lookups; the
// like-source rules; the C kernels with constants of every class.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "addsub_reference.h"
#include "muldiv_reference.h"
#include "testkit.h"

using addsub_ref::Op;
using sorn_test::Image;

namespace {

constexpr SornDimPack kPack3 = SORN_DIMPACK(3);

using Dispatcher = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                  void *, const int32_t *, uint32_t, const void *,
                                  const int32_t *, uint32_t, const void *, const int32_t *,
                                  int32_t, uint32_t);

Dispatcher dispatcher_of(Op op, bool sat) {
  switch (op) {
    case Op::Add: return sat ? &sorna__addq : &sorna__add;
    case Op::Sub: return sat ? &sorna__subq : &sorna__sub;
    default: return sat ? &sorna__rsubq : &sorna__rsub;
  }
}

// The element type an image stores for a kernel type: s8 destinations are
// the bytes of u8 images read as signed.
struct Operand {
  Image img;
  int32_t strides[3];
  Operand(int32_t rows, int32_t cols, int32_t ch, uint32_t t, int32_t pad)
      : img(rows, cols, ch, t, pad, 0x5c) {
    strides[0] = img.rowstride();
    strides[1] = ch * img.esize();
    strides[2] = img.esize();
  }
};

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

void check_rows_padding(const Image &im, const std::vector<uint8_t> &before) {
  const std::vector<uint8_t> after = im.bytes_copy();
  const size_t row_bytes = (size_t)im.cols() * im.channels() * im.esize();
  for (int32_t y = 0; y < im.rows(); ++y)
    for (size_t i = row_bytes; i < (size_t)im.rowstride(); ++i)
      ASSERT_EQ(after[y * im.rowstride() + i], before[y * im.rowstride() + i]);
  ASSERT_TRUE(im.guards_intact());
}

// --- two sources ------------------------------------------------------------

class GroupKernel : public ::testing::TestWithParam<addsub_ref::Kernel> {};

TEST_P(GroupKernel, MatchesReferenceForEveryScaleAndChannelCount) {
  const addsub_ref::Kernel &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x5b00 + k.dst * 256 + k.a * 16 + k.b + (int)k.op * 4096 + k.sat * 65536);
  const Dispatcher run = dispatcher_of(k.op, k.sat);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      const int32_t rows = 1 + (int32_t)(rng() % 4), cols = 1 + (int32_t)(rng() % 19);
      const int32_t pad = 4 * (int32_t)(rng() % 3);
      const uint32_t dimg = k.dst == SORN_S8 ? SORN_U8 : k.dst;
      Operand d(rows, cols, ch, dimg, pad), a(rows, cols, ch, k.a, pad + 4), b(rows, cols, ch, k.b, 0);
      fill_random(rng, a.img);
      fill_random(rng, b.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {rows, cols, ch};
      ASSERT_EQ(run(nullptr, 0, kPack3, dims, k.dst, d.img.base(), d.strides, k.a, a.img.base(),
                    a.strides, k.b, b.img.base(), b.strides, sf, 0),
                SORN_OK)
          << k.name << " sf " << sf;
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const double va = a.img.get(y, x, c), vb = b.img.get(y, x, c);
            const double e = addsub_ref::expected(k.op, k.sat, k.dst, k.a, k.b, va, vb, sf);
            const double g = k.dst == SORN_S8 ? (double)d.img.at<int8_t>(y, x, c) : d.img.get(y, x, c);
            ASSERT_TRUE(add_ref::same(k.dst, e, g))
                << k.name << " sf " << sf << " at " << y << "," << x << "," << c << ": " << va
                << " op " << vb << " gave " << g << ", expected " << e;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(AllTables, GroupKernel, ::testing::ValuesIn(addsub_ref::kernels()),
                         [](const ::testing::TestParamInfo<addsub_ref::Kernel> &i) { return i.param.name; });

TEST(GroupLookup, QLookupsNameOwnKernelsAndThePlainOnesElsewhere) {
  struct Pair { SornArith2Kernel (*q)(uint32_t, uint32_t, uint32_t, SornStatus *); SornArith2Kernel (*plain)(uint32_t, uint32_t, uint32_t, SornStatus *); };
  SornStatus st = 1;
  // Keys of the own kernels.
  EXPECT_EQ(sorna__aaddqfun_imp(SORN_S8, SORN_U8, SORN_U8, &st), &sorna__addq_c1_s8u8u8);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(sorna__asubqfun_imp(SORN_F32, SORN_S32, SORN_S16, &st), &sorna__subq_c1_f32s32s16);
  EXPECT_EQ(sorna__arsubqfun_imp(SORN_U8, SORN_S16, SORN_S16, &st), &sorna__rsubq_c1_u8s16s16);
  // The plain kernels under the q keys.
#define PLAIN_UNDER_Q(d, a, b)                                                                   \
  EXPECT_EQ(sorna__aaddqfun_imp(SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), &st), &sorna__add_c1_##d##a##b); \
  EXPECT_EQ(st, SORN_OK);                                                                       \
  EXPECT_EQ(sorna__asubqfun_imp(SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), &st), &sorna__sub_c1_##d##a##b); \
  EXPECT_EQ(sorna__arsubqfun_imp(SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), &st), &sorna__rsub_c1_##d##a##b);
  SORN_ADDQ_PLAIN_TRIPLES(PLAIN_UNDER_Q)
#undef PLAIN_UNDER_Q
  // The plain lookups hold the 26 triples; s8 is the q tables' own.
  sorna__asubfun_imp(SORN_S8, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__arsubfun_imp(SORN_U16, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__aaddqfun_imp(5, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  SornArith2Kernel k = sorna__asubqfun_imp(SORN_U8, SORN_U8, 0, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  int32_t dims[3] = {1, 1, 1}, s[3] = {1, 1, 1};
  uint8_t x = 3, y = 4;
  EXPECT_EQ(k(nullptr, 0, 3, dims, &x, s, &y, s, &y, s, 0, 0), SORN_EINVAL);
  EXPECT_EQ(x, 3);
  (void)sizeof(Pair);
}

// All pairs of u8 for every scale factor, for each u8 kernel of the group.
TEST(GroupU8, EveryPairForEveryScaleFactor) {
  Image a(256, 256, 1, SORN_U8), b(256, 256, 1, SORN_U8), d(256, 256, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)x;
    }
  int32_t dims[3] = {256, 256, 1}, strides[3] = {256, 1, 1};
  for (const addsub_ref::Kernel &k : addsub_ref::kernels()) {
    if (k.a != SORN_U8 || k.b != SORN_U8 || (k.dst != SORN_U8 && k.dst != SORN_S8)) continue;
    for (int32_t sf : add_ref::scale_factors()) {
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), strides, a.base(), strides, b.base(),
                         strides, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < 256; ++y)
        for (int32_t x = 0; x < 256; ++x) {
          const double g = k.dst == SORN_S8 ? (double)d.at<int8_t>(y, x) : (double)d.at<uint8_t>(y, x);
          ASSERT_EQ(g, addsub_ref::expected(k.op, k.sat, k.dst, SORN_U8, SORN_U8, y, x, sf))
              << k.name << ": " << y << ", " << x << " sf " << sf;
        }
    }
  }
  EXPECT_TRUE(d.guards_intact());
}

TEST(GroupS32, SaturatingFormsRunInSixtyFourBits) {
  int32_t a[3] = {INT32_MAX, INT32_MIN, 2000000000}, b[3] = {1, 1, -2000000000}, d[3];
  float f[3];
  int32_t dims[3] = {1, 3, 1}, s4[3] = {12, 4, 4};
  ASSERT_EQ(sorna__addq_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MAX);
  EXPECT_EQ(d[1], INT32_MIN + 1);
  ASSERT_EQ(sorna__subq_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[1], INT32_MIN);
  EXPECT_EQ(d[2], INT32_MAX) << "4e9 clamps";
  ASSERT_EQ(sorna__sub_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[2], (int32_t)(uint32_t)4000000000u) << "the plain form wraps";
  ASSERT_EQ(sorna__subq_c1_f32s32s32(nullptr, 0, 3, dims, f, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(f[2], 4e9f) << "float of the exact difference";
  ASSERT_EQ(sorna__sub_c1_f32s32s32(nullptr, 0, 3, dims, f, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(f[2], (float)(int32_t)(uint32_t)4000000000u);
  ASSERT_EQ(sorna__rsubq_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, -1, 0), SORN_OK);
  EXPECT_EQ(d[2], -2000000000) << "-4e9 / 2";
}

// --- like sources -----------------------------------------------------------

TEST(GroupLikeSources, SubtractionOfASourceFromItselfFillsZeros) {
  auto rng = sorn_test::seeded_rng(0x5b01);
  for (const addsub_ref::Kernel &k : addsub_ref::kernels()) {
    if (k.op == Op::Add || k.a != k.b) continue;
    for (int32_t sf : {0, 5, -3}) {
      const uint32_t dimg = k.dst == SORN_S8 ? SORN_U8 : k.dst;
      Operand a(3, 7, 1, k.a, 4), d(3, 7, 1, dimg, 8);
      fill_random(rng, a.img);
      fill_random(rng, d.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {3, 7, 1};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.img.base(), d.strides, a.img.base(), a.strides,
                         a.img.base(), a.strides, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 7; ++x) {
          ASSERT_EQ(d.img.get(y, x), 0.0) << k.name;
          ASSERT_FALSE(std::signbit(d.img.get(y, x))) << k.name << ": zero bytes";
        }
      check_rows_padding(d.img, before);
    }
  }
}

TEST(GroupLikeSources, SameBaseWithOtherStridesIsAnOrdinaryDifference) {
  uint8_t a[8] = {10, 20, 30, 40, 50, 60, 70, 80}, d[4];
  int32_t dims[3] = {2, 2, 1}, sa[3] = {4, 1, 1}, sb[3] = {2, 1, 1}, sd[3] = {2, 1, 1};
  ASSERT_EQ(sorna__sub_c1_u8u8u8(nullptr, 0, 3, dims, d, sd, a, sa, a, sb, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  EXPECT_EQ(d[2], 20) << "row 1: 50 - 30";
}

// The factor that the multiply-by-constant kernel of a like-source addition
// applies to element x of a row: the block of f64 2.0 read as constants of
// the kernel's own type, in its cycle of four.
double like_factor(uint32_t t, int32_t x) {
  switch (t) {
    case SORN_U8: return 0;
    case SORN_S16: return x % 4 == 3 ? 16384 : 0;
    case SORN_S32: return x % 2 == 1 ? 1073741824.0 : 0;
    default: return x % 2 == 1 ? 2.0 : 0.0;
  }
}

TEST(GroupLikeSources, AdditionOfASourceToItselfIsTheMultiplyKernelOnABlockOfTwos) {
  auto rng = sorn_test::seeded_rng(0x5b02);
  int kernels = 0;
  for (const addsub_ref::Kernel &k : addsub_ref::kernels()) {
    if (k.op != Op::Add || k.a != k.b) continue;
    ++kernels;
    for (int32_t sf : add_ref::scale_factors()) {
      const uint32_t dimg = k.dst == SORN_S8 ? SORN_U8 : k.dst;
      Operand a(3, 9, 1, k.a, 4), d(3, 9, 1, dimg, 8);
      fill_random(rng, a.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {3, 9, 1};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.img.base(), d.strides, a.img.base(), a.strides,
                         a.img.base(), a.strides, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 9; ++x) {
          const double e = muldiv_ref::mul(k.dst, k.a, k.a, a.img.get(y, x), like_factor(k.a, x), sf);
          // An s8 destination is the bytes of a u8 image read as signed.
          const double g = k.dst == SORN_S8 ? (double)(int8_t)d.img.at<uint8_t>(y, x)
                                            : d.img.get(y, x);
          ASSERT_TRUE(add_ref::same(k.dst, e, g))
              << k.name << " sf " << sf << " at " << y << "," << x << ": " << a.img.get(y, x)
              << " gave " << g << ", expected " << e;
        }
      check_rows_padding(d.img, before);
    }
  }
  EXPECT_EQ(kernels, 12 + 6) << "twelve add kernels and six addq kernels of like sources";
}

TEST(GroupLikeSources, U8DoubledInPlaceWritesZeros) {
  uint8_t a[8] = {1, 2, 3, 100, 200, 255, 0, 7};
  int32_t dims[3] = {2, 4, 1}, s[3] = {4, 1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, a, s, a, s, a, s, 0, 0), SORN_OK);
  for (uint8_t v : a) EXPECT_EQ(v, 0);
}

TEST(GroupLikeSources, SameBaseWithOtherStridesIsAnOrdinarySum) {
  uint8_t a[8] = {10, 20, 30, 40, 50, 60, 70, 80}, d[4];
  int32_t dims[3] = {2, 2, 1}, sa[3] = {4, 1, 1}, sb[3] = {2, 1, 1}, sd[3] = {2, 1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d, sd, a, sa, a, sb, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 20);
  EXPECT_EQ(d[2], 80) << "row 1: 50 + 30";
}

// --- exchange of sources ----------------------------------------------------

TEST(GroupDispatch, NarrowerFirstSourceRunsTheReversedFamilyAndKeepsTheResult) {
  auto rng = sorn_test::seeded_rng(0x5b02);
  for (bool sat : {false, true})
    for (Op op : {Op::Sub, Op::RSub}) {
      const Dispatcher run = dispatcher_of(op, sat);
      struct { uint32_t d, wide, narrow; } cases[] = {
          {SORN_S16, SORN_S16, SORN_U8}, {SORN_S32, SORN_S32, SORN_S16}, {SORN_S32, SORN_F32, SORN_U8},
          {SORN_F32, SORN_F32, SORN_S32}, {SORN_F32, SORN_S32, SORN_U8}};
      for (auto c : cases)
        for (int32_t sf : {0, 2, -2}) {
          Operand d(3, 9, 2, c.d, 4), a(3, 9, 2, c.narrow, 0), b(3, 9, 2, c.wide, 4);
          fill_random(rng, a.img);
          fill_random(rng, b.img);
          int32_t dims[3] = {3, 9, 2};
          ASSERT_EQ(run(nullptr, 0, kPack3, dims, c.d, d.img.base(), d.strides, c.narrow,
                        a.img.base(), a.strides, c.wide, b.img.base(), b.strides, sf, 0),
                    SORN_OK);
          // In kernel order the wide source is first and the operation reversed.
          const Op kop = op == Op::Sub ? Op::RSub : Op::Sub;
          for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 9; ++x)
              for (int32_t ch = 0; ch < 2; ++ch) {
                const double e = addsub_ref::expected(kop, sat, c.d, c.wide, c.narrow,
                                                      b.img.get(y, x, ch), a.img.get(y, x, ch), sf);
                ASSERT_TRUE(add_ref::same(c.d, e, d.img.get(y, x, ch)));
              }
        }
    }
}

// --- the C kernels ----------------------------------------------------------

class GroupKernelC : public ::testing::TestWithParam<addsub_ref::KernelC> {};

double random_constant(std::mt19937_64 &rng, uint32_t t) {
  switch (t) {
    case SORN_U8: return (double)(rng() % 256);
    case SORN_S16: return (double)(int16_t)rng();
    case SORN_S32: return (rng() & 1) ? (double)(int32_t)rng() : (double)((int32_t)(rng() % 70000) - 35000);
    case SORN_F32: return (double)(float)(((double)(int64_t)(rng() % 2000001) - 1000000) / 64.0);
    default: return ((double)(int64_t)(rng() % 2000000001) - 1000000000) / 7.0;
  }
}

TEST_P(GroupKernelC, MatchesReferenceForEveryScaleAndChannelCount) {
  const addsub_ref::KernelC &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x5c00 + k.dst * 256 + k.a * 16 + k.t + (int)k.op * 4096 + k.sat * 65536);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      const int32_t rows = 1 + (int32_t)(rng() % 4), cols = 1 + (int32_t)(rng() % 13);
      const uint32_t dimg = k.dst == SORN_S8 ? SORN_U8 : k.dst;
      Operand d(rows, cols, ch, dimg, 4 * (int32_t)(rng() % 2)), a(rows, cols, ch, k.a, 4);
      fill_random(rng, a.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      double cv[4];
      for (double &c : cv) c = random_constant(rng, k.t);
      alignas(8) uint8_t block[64];
      ASSERT_EQ(sorn_mkifillvalv64(k.t, block, cv, ch), SORN_OK);
      int32_t dims[3] = {rows, cols, ch};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.img.base(), d.strides, a.img.base(), a.strides,
                         block, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const double va = a.img.get(y, x, c), vc = addsub_ref::constant_in(k.t, cv[c]);
            const double e = addsub_ref::expected(k.op, k.sat, k.dst, k.a, k.t, va, vc, sf);
            const double g = k.dst == SORN_S8 ? (double)d.img.at<int8_t>(y, x, c) : d.img.get(y, x, c);
            ASSERT_TRUE(add_ref::same(k.dst, e, g))
                << k.name << " sf " << sf << " x" << ch << " at " << y << "," << x << "," << c
                << ": " << va << " with " << vc << " gave " << g << ", expected " << e;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(AllTables, GroupKernelC, ::testing::ValuesIn(addsub_ref::kernels_c()),
                         [](const ::testing::TestParamInfo<addsub_ref::KernelC> &i) { return i.param.name; });

TEST(GroupKernelCCycle, FourChannelsOnOneRowCycleByFourAndThreeByThree) {
  uint8_t a[12] = {}, d[12];
  const double c4[4] = {1, 2, 3, 4}, c3[3] = {5, 6, 7};
  alignas(8) uint8_t block[64];
  int32_t s[3] = {12, 4, 1};
  ASSERT_EQ(sorn_mkifillvalv64(SORN_U8, block, c4, 4), SORN_OK);
  int32_t dims4[3] = {1, 3, 4};
  ASSERT_EQ(sorna__addC_c1_u8u8u8(nullptr, 0, 3, dims4, d, s, a, s, block, 0, 0), SORN_OK);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(d[i], 1 + i % 4) << i;
  ASSERT_EQ(sorn_mkifillvalv64(SORN_U8, block, c3, 3), SORN_OK);
  int32_t dims3[3] = {1, 4, 3}, s3[3] = {12, 3, 1};
  ASSERT_EQ(sorna__addC_c1_u8u8u8(nullptr, 0, 3, dims3, d, s3, a, s3, block, 0, 0), SORN_OK);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(d[i], 5 + i % 3) << i;
}

TEST(GroupLookupC, TablesAndMissingKeys) {
  SornStatus st = 1;
  EXPECT_EQ(sorna__aaddcfun_imp(SORN_F32, SORN_F32, SORN_F64, &st), &sorna__addC_c1_f32f32f64);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(sorna__asubqcfun_imp(SORN_S32, SORN_F32, SORN_F32, &st), &sorna__subC_c1_s32f32f32)
      << "no overflow to saturate: the plain C kernel";
  EXPECT_EQ(sorna__arsubqcfun_imp(SORN_S8, SORN_U8, SORN_U8, &st), &sorna__rsubqC_c1_s8u8u8);
  sorna__aaddcfun_imp(SORN_S8, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__aaddqcfun_imp(SORN_S8, SORN_U8, SORN_S32, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__arsubcfun_imp(SORN_U8, SORN_U8, 27, &st);
  EXPECT_EQ(st, SORN_EINVAL) << "the big-integer class is no type";
}

}  // namespace

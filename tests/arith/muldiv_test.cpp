// Multiplication and division: every kernel of every table against the
// plain reference, over every scale factor, extremes, 1 to 4 channels and
// padded rows, all 65,536 pairs of u8; the lookups, the dispatchers with
// their exchanges, the like-source square, and the entries.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "arith_testing.h"
#include "muldiv_reference.h"
#include "testkit.h"

using arith_test::check_rows_padding;
using arith_test::fill_random;
using arith_test::kPack3;
using arith_test::Operand;
using sorn_test::Image;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

constexpr uint32_t code_s8 = SORN_S8, code_u8 = SORN_U8, code_s16 = SORN_S16,
                   code_s32 = SORN_S32, code_f32 = SORN_F32, code_f64 = SORN_F64;

struct Kernel2 {
  std::string name;
  uint32_t dst, a, b;
  SornArith2Kernel kernel;
};
struct KernelC {
  std::string name;
  uint32_t dst, a, t;
  SornArith2cKernel kernel;
};
void PrintTo(const Kernel2 &k, std::ostream *os) { *os << k.name; }
void PrintTo(const KernelC &k, std::ostream *os) { *os << k.name; }

std::vector<Kernel2> mul_kernels() {
  std::vector<Kernel2> v;
#define MK(d, a, b) v.push_back({#d #a #b, code_##d, code_##a, code_##b, &sorna__mul_c1_##d##a##b});
  SORN_MUL_TRIPLES(MK)
#undef MK
  return v;
}
std::vector<KernelC> mulc_kernels() {
  std::vector<KernelC> v;
#define MK(d, a, t) v.push_back({#d #a #t, code_##d, code_##a, code_##t, &sorna__mulC_c1_##d##a##t});
  SORN_MULC_TRIPLES(MK)
#undef MK
  return v;
}

// Reads an element of a destination; an s8 one is the bytes of a u8 image.
double got(const Image &im, uint32_t t, int32_t y, int32_t x, int32_t c) {
  return t == SORN_S8 ? (double)im.at<int8_t>(y, x, c) : im.get(y, x, c);
}

void add_float_specials(std::mt19937_64 &rng, Image &im) {
  static const float sp[] = {NAN, INFINITY, -INFINITY, -0.0f, 2147483648.0f, 1e20f, 0.5f, -2.5f};
  if (im.type() != SORN_F32) return;
  for (float f : sp)
    im.set((int32_t)(rng() % im.rows()), (int32_t)(rng() % im.cols()),
           (int32_t)(rng() % im.channels()), f);
}

// --- multiplication of two arrays -------------------------------------------

class MulKernel : public ::testing::TestWithParam<Kernel2> {};

TEST_P(MulKernel, DispatcherMatchesReferenceForEveryScaleAndChannelCount) {
  const Kernel2 &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x3a10 + k.dst * 256 + k.a * 16 + k.b);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (bool exchange : {false, true}) {
        const int32_t rows = 1 + (int32_t)(rng() % 5), cols = 1 + (int32_t)(rng() % 23);
        Operand d(rows, cols, ch, k.dst, 4 * (int32_t)(rng() % 3)), a(rows, cols, ch, k.a, 8),
            b(rows, cols, ch, k.b, 0);
        fill_random(rng, a.img);
        fill_random(rng, b.img);
        add_float_specials(rng, a.img);
        add_float_specials(rng, b.img);
        const std::vector<uint8_t> before = d.img.bytes_copy();
        int32_t dims[3] = {rows, cols, ch};
        // Multiplication commutes: the dispatcher puts the sources in the
        // kernel's order whichever way they come.
        const SornStatus st =
            exchange ? sorna__mul(nullptr, 0, kPack3, dims, k.dst, d.base(), d.strides, k.b,
                                  b.base(), b.strides, k.a, a.base(), a.strides, sf, 0)
                     : sorna__mul(nullptr, 0, kPack3, dims, k.dst, d.base(), d.strides, k.a,
                                  a.base(), a.strides, k.b, b.base(), b.strides, sf, 0);
        ASSERT_EQ(st, SORN_OK) << k.name;
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              const double va = a.img.get(y, x, c), vb = b.img.get(y, x, c);
              const double e = muldiv_ref::mul(k.dst, k.a, k.b, va, vb, sf);
              ASSERT_TRUE(add_ref::same(k.dst, e, d.img.get(y, x, c)))
                  << k.name << " sf " << sf << ": " << va << " * " << vb << " gave "
                  << d.img.get(y, x, c) << ", expected " << e;
            }
        check_rows_padding(d.img, before);
        if (HasFatalFailure()) return;
      }
}

TEST_P(MulKernel, LookupGivesTheNamedKernel) {
  const Kernel2 &k = GetParam();
  SornStatus st = 1;
  EXPECT_EQ(sorna__amulfun_imp(k.dst, k.a, k.b, &st), k.kernel);
  EXPECT_EQ(st, SORN_OK);
}

INSTANTIATE_TEST_SUITE_P(AllTriples, MulKernel, ::testing::ValuesIn(mul_kernels()),
                         [](const ::testing::TestParamInfo<Kernel2> &i) { return i.param.name; });

TEST(MulU8, EveryPairForEveryScaleFactor) {
  Image a(256, 256, 1, SORN_U8), b(256, 256, 1, SORN_U8), d(256, 256, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)x;
    }
  int32_t dims[3] = {256, 256, 1}, s[3] = {256, 1, 1};
  for (int32_t sf : add_ref::scale_factors()) {
    ASSERT_EQ(sorna__mul_c1_u8u8u8(nullptr, 0, 3, dims, d.base(), s, a.base(), s, b.base(), s, sf, 0),
              SORN_OK);
    for (int32_t y = 0; y < 256; ++y)
      for (int32_t x = 0; x < 256; ++x)
        ASSERT_EQ(d.at<uint8_t>(y, x), muldiv_ref::mul(SORN_U8, SORN_U8, SORN_U8, y, x, sf))
            << y << " * " << x << " sf " << sf;
    ASSERT_TRUE(d.guards_intact());
  }
}

TEST(MulU8, WorkedExamples) {
  uint8_t a[1] = {16}, d[1];
  int32_t dims[3] = {1, 1, 1}, s[3] = {1, 1, 1};
  uint8_t b[1] = {16};
  ASSERT_EQ(sorna__mul_c1_u8u8u8(nullptr, 0, 3, dims, d, s, a, s, b, s, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 255) << "256 clamps: no wrap, unlike the sum";
  ASSERT_EQ(sorna__mul_c1_u8u8u8(nullptr, 0, 3, dims, d, s, a, s, b, s, -2, 0), SORN_OK);
  EXPECT_EQ(d[0], 64);
}

TEST(MulLikeSources, OneSourceGivenTwiceIsTheSquareKernelAndWraps) {
  // The twelve kernels of two like sources hand the call to the square of
  // their type pair, which wraps at sf 0 where two operands saturate.
  uint8_t a[2] = {16, 3}, b[2] = {16, 3}, d[2];
  int32_t dims[3] = {1, 2, 1}, s[3] = {2, 1, 1};
  ASSERT_EQ(sorna__mul_c1_u8u8u8(nullptr, 0, 3, dims, d, s, a, s, a, s, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  EXPECT_EQ(d[1], 9);
  ASSERT_EQ(sorna__mul_c1_u8u8u8(nullptr, 0, 3, dims, d, s, a, s, b, s, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 255);

  auto rng = sorn_test::seeded_rng(0x3a11);
  int like = 0;
  for (const Kernel2 &k : mul_kernels()) {
    if (k.a != k.b) continue;
    ++like;
    for (int32_t sf : add_ref::scale_factors()) {
      Operand x(3, 11, 1, k.a, 4), dd(3, 11, 1, k.dst, 8);
      fill_random(rng, x.img);
      int32_t dm[3] = {3, 11, 1};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dm, dd.base(), dd.strides, x.base(), x.strides, x.base(),
                         x.strides, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t c = 0; c < 11; ++c)
          ASSERT_TRUE(add_ref::same(k.dst, muldiv_ref::sqr(k.dst, k.a, x.img.get(y, c), sf),
                                    dd.img.get(y, c)))
              << k.name << " sf " << sf << " of " << x.img.get(y, c);
    }
  }
  EXPECT_EQ(like, 12);
  // Through the entry, in place.
  Image im(2, 3, 1, SORN_U8);
  im.set(1, 2, 0, 16);
  SornArray r = im.record();
  ASSERT_EQ(SornMul(nullptr, 0, &r, &r, &r, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(im.get(1, 2), 0);
}

// The readings of a product scaled down: a 64-bit product (an s32 operand)
// in f64 and stored as converted, a 32-bit one in f32, as sums are.
TEST(MulScale, NegativeFactorsScaleNarrowProductsInF32AndWideOnesInF64) {
  int16_t a[1] = {32767}, b[1] = {32767};
  int32_t d[1];
  int32_t dims[3] = {1, 1, 1}, s2[3] = {2, 2, 2}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__mul_c1_s32s16s16(nullptr, 0, 3, dims, d, s4, a, s2, b, s2, -32, 0), SORN_OK);
  EXPECT_EQ(d[0], 1073676288) << "float(1073676289) at a factor of 1";
  int32_t l[1] = {16777217}, one[1] = {1};
  ASSERT_EQ(sorna__mul_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, l, s4, one, s4, -32, 0), SORN_OK);
  EXPECT_EQ(d[0], 16777217) << "f64 keeps the 64-bit product exact";
  int32_t big[1] = {46341};
  int32_t big2[1] = {46341};
  ASSERT_EQ(sorna__mul_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, big, s4, big2, s4, -32, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN) << "out of range is stored as converted";
  ASSERT_EQ(sorna__mul_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, big, s4, big2, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MAX) << "sf 0 clamps";
}

// --- multiplication by constants ---------------------------------------------

double random_constant(std::mt19937_64 &rng, uint32_t t) {
  switch (t) {
    case SORN_U8: return (double)(rng() % 256);
    case SORN_S16: return (double)(int16_t)rng();
    case SORN_S32:
      return (rng() & 1) ? (double)(int32_t)rng() : (double)((int32_t)(rng() % 70000) - 35000);
    case SORN_F32: return (double)(float)(((double)(int64_t)(rng() % 2000001) - 1000000) / 64.0);
    default: return ((double)(int64_t)(rng() % 2000000001) - 1000000000) / 7.0;
  }
}

class MulCKernel : public ::testing::TestWithParam<KernelC> {};

TEST_P(MulCKernel, MatchesReferenceForEveryScaleAndChannelCount) {
  const KernelC &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x3a20 + k.dst * 256 + k.a * 16 + k.t);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      const int32_t rows = 1 + (int32_t)(rng() % 4), cols = 1 + (int32_t)(rng() % 13);
      const uint32_t dimg = k.dst == SORN_S8 ? SORN_U8 : k.dst;
      Operand d(rows, cols, ch, dimg, 4 * (int32_t)(rng() % 2)), a(rows, cols, ch, k.a, 4);
      fill_random(rng, a.img);
      add_float_specials(rng, a.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      double cv[4];
      for (double &c : cv) c = random_constant(rng, k.t);
      alignas(8) uint8_t block[64];
      ASSERT_EQ(sorn_mkifillvalv64(k.t, block, cv, ch), SORN_OK);
      int32_t dims[3] = {rows, cols, ch};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), d.strides, a.base(), a.strides, block, sf, 0),
                SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const double va = a.img.get(y, x, c), vc = addsub_ref::constant_in(k.t, cv[c]);
            const double e = muldiv_ref::mul(k.dst, k.a, k.t, va, vc, sf);
            const double g = got(d.img, k.dst, y, x, c);
            ASSERT_TRUE(add_ref::same(k.dst, e, g))
                << k.name << " sf " << sf << " x" << ch << ": " << va << " * " << vc << " gave " << g
                << ", expected " << e;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

TEST_P(MulCKernel, LookupGivesTheNamedKernel) {
  const KernelC &k = GetParam();
  SornStatus st = 1;
  EXPECT_EQ(sorna__amulcfun_imp(k.dst, k.a, k.t, &st), k.kernel);
  EXPECT_EQ(st, SORN_OK);
}

INSTANTIATE_TEST_SUITE_P(AllTriples, MulCKernel, ::testing::ValuesIn(mulc_kernels()),
                         [](const ::testing::TestParamInfo<KernelC> &i) { return i.param.name; });

TEST(MulC, ThroughTheEntryWithClassifiedConstants) {
  // 3 on u8 stays in 8 bits; 1000 makes an s32 constant; 0.5 on f32 keeps
  // an f32 constant; 0.5 on u8 into u8 becomes the s32 constant 0.
  Image a(2, 5, 1, SORN_U8), d(2, 5, 1, SORN_U8), f(2, 5, 1, SORN_F32), af(2, 5, 1, SORN_F32);
  for (int32_t x = 0; x < 5; ++x) {
    a.set(1, x, 0, 50 * x);
    af.set(1, x, 0, 50 * x);
  }
  SornArray ra = a.record(), rd = d.record(), rf = f.record(), raf = af.record();
  const double three = 3, thousand = 1000, half = 0.5;
  ASSERT_EQ(SornMulC(nullptr, 0, &rd, &ra, &three, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(1, 1), 150);
  EXPECT_EQ(d.get(1, 2), 255);
  ASSERT_EQ(SornMulC(nullptr, 0, &rd, &ra, &thousand, nullptr, nullptr, -10, 0), SORN_OK);
  EXPECT_EQ(d.get(1, 1), 49) << "50000 / 1024, to even";
  ASSERT_EQ(SornMulC(nullptr, 0, &rf, &raf, &half, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(f.get(1, 3), 75);
  ASSERT_EQ(SornMulC(nullptr, 0, &rd, &ra, &half, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(1, 3), 0) << "rint(0.5) is 0";
}

// --- division of arrays ------------------------------------------------------

struct DivCase {
  std::string name;
  bool rounded;
  uint32_t t;
  SornArith2Kernel kernel;
};
void PrintTo(const DivCase &k, std::ostream *os) { *os << k.name; }

std::vector<DivCase> div_kernels() {
  std::vector<DivCase> v;
#define DK(d, a, b) v.push_back({"div_" #d, false, code_##d, &sorna__div_c1_##d##a##b});
#define DRK(d, a, b) v.push_back({"divr_" #d, true, code_##d, &sorna__divr_c1_##d##a##b});
  SORN_DIV_TRIPLES(DK)
  SORN_DIVR_OWN_TRIPLES(DRK)
#undef DK
#undef DRK
  return v;
}

// A divisor: any value but 0 for integers (what an integer division by 0
// gives is not promised), anything for f32.
double divisor(std::mt19937_64 &rng, uint32_t t) {
  const double v = sorn_test::random_value(rng, t, true);
  if (t != SORN_F32 && v == 0) return (rng() & 1) ? 1 : -1;
  return v;
}

class DivKernel : public ::testing::TestWithParam<DivCase> {};

TEST_P(DivKernel, DispatchersMatchReferenceInBothOrders) {
  const DivCase &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x3a30 + k.t + k.rounded * 16);
  for (int32_t sf : {-33, -32, -31, -9, -1, 0, 1, 7, 31, 32, 40})
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (bool reversed : {false, true}) {
        const int32_t rows = 1 + (int32_t)(rng() % 5), cols = 1 + (int32_t)(rng() % 23);
        Operand d(rows, cols, ch, k.t, 4), a(rows, cols, ch, k.t, 8), b(rows, cols, ch, k.t, 0);
        // The divisor is b, or a for the reversed forms.
        Operand &num = reversed ? b : a, &den = reversed ? a : b;
        fill_random(rng, num.img);
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols; ++x)
            for (int32_t c = 0; c < ch; ++c) den.img.set(y, x, c, divisor(rng, k.t));
        add_float_specials(rng, num.img);
        add_float_specials(rng, den.img);
        const std::vector<uint8_t> before = d.img.bytes_copy();
        int32_t dims[3] = {rows, cols, ch};
        auto disp = reversed ? (k.rounded ? &sorna__rdivr : &sorna__rdiv)
                             : (k.rounded ? &sorna__divr : &sorna__div);
        ASSERT_EQ(disp(nullptr, 0, kPack3, dims, k.t, d.base(), d.strides, k.t, a.base(), a.strides,
                       k.t, b.base(), b.strides, sf, 0),
                  SORN_OK);
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              const double vn = num.img.get(y, x, c), vd = den.img.get(y, x, c);
              const double e = muldiv_ref::div(k.rounded, k.t, vn, vd, sf);
              ASSERT_TRUE(add_ref::same(k.t, e, d.img.get(y, x, c)))
                  << k.name << (reversed ? " reversed" : "") << " sf " << sf << ": " << vn << " / "
                  << vd << " gave " << d.img.get(y, x, c) << ", expected " << e;
            }
        check_rows_padding(d.img, before);
        if (HasFatalFailure()) return;
      }
}

INSTANTIATE_TEST_SUITE_P(AllTriples, DivKernel, ::testing::ValuesIn(div_kernels()),
                         [](const ::testing::TestParamInfo<DivCase> &i) { return i.param.name; });

TEST(DivU8, EveryPairWithANonZeroDivisorForEveryScaleFactor) {
  Image a(256, 255, 1, SORN_U8), b(256, 255, 1, SORN_U8), d(256, 255, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 255; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)(x + 1);
    }
  int32_t dims[3] = {256, 255, 1}, s[3] = {255, 1, 1};
  for (bool rounded : {false, true})
    for (int32_t sf : {-33, -32, -31, -9, -1, 0, 1, 7, 31, 32, 40}) {
      auto k = rounded ? &sorna__divr_c1_u8u8u8 : &sorna__div_c1_u8u8u8;
      ASSERT_EQ(k(nullptr, 0, 3, dims, d.base(), s, a.base(), s, b.base(), s, sf, 0), SORN_OK);
      for (int32_t y = 0; y < 256; ++y)
        for (int32_t x = 0; x < 255; ++x)
          ASSERT_EQ(d.at<uint8_t>(y, x), muldiv_ref::div(rounded, SORN_U8, y, x + 1, sf))
              << y << " / " << x + 1 << " sf " << sf << (rounded ? " rounded" : "");
      ASSERT_TRUE(d.guards_intact());
    }
}

TEST(DivLookup, TablesAndMissingKeys) {
  SornStatus st = 1;
  EXPECT_EQ(sorna__adivrfun_imp(SORN_F32, SORN_F32, SORN_F32, &st), &sorna__div_c1_f32f32f32)
      << "rounding means nothing to an f32 quotient";
  EXPECT_EQ(sorna__adivfun_imp(SORN_U8, SORN_U8, SORN_U8, &st), &sorna__div_c1_u8u8u8);
  EXPECT_EQ(sorna__adivrfun_imp(SORN_S32, SORN_S32, SORN_S32, &st), &sorna__divr_c1_s32s32s32);
  EXPECT_EQ(st, SORN_OK);
  sorna__adivfun_imp(SORN_U8, SORN_U8, SORN_S16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__adivfun_imp(SORN_S32, SORN_S16, SORN_S16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__adivfun_imp(SORN_U8, SORN_U8, 5, &st);
  EXPECT_EQ(st, SORN_EINVAL);
#define CHECK_DIVC(c, fam, lookup, d, a)                                   \
  EXPECT_EQ(lookup(code_##d, code_##a, c, &st), &sorna__##fam##_c##c##_##d##a); \
  EXPECT_EQ(st, SORN_OK);
#define CHECK_DIVC_ALL(d, a)                                     \
  SORN_CONST_CHANNELS(CHECK_DIVC, divC, sorna__adivcfun_imp, d, a) \
  SORN_CONST_CHANNELS(CHECK_DIVC, rdivC, sorna__ardivcfun_imp, d, a)
#define CHECK_DIVRC_ALL(d, a)                                       \
  SORN_CONST_CHANNELS(CHECK_DIVC, divrC, sorna__adivrcfun_imp, d, a) \
  SORN_CONST_CHANNELS(CHECK_DIVC, rdivrC, sorna__ardivrcfun_imp, d, a)
  SORN_DIVC_PAIRS(CHECK_DIVC_ALL)
  SORN_DIVRC_OWN_PAIRS(CHECK_DIVRC_ALL)
#undef CHECK_DIVC
#undef CHECK_DIVC_ALL
#undef CHECK_DIVRC_ALL
  EXPECT_EQ(sorna__adivrcfun_imp(SORN_F32, SORN_F32, 3, &st), &sorna__divC_c3_f32f32);
  EXPECT_EQ(sorna__ardivrcfun_imp(SORN_F32, SORN_F32, 4, &st), &sorna__rdivC_c4_f32f32);
  for (int32_t c : {0, 2, 5, 11}) {
    sorna__adivcfun_imp(SORN_U8, SORN_U8, c, &st);
    EXPECT_EQ(st, SORN_EINVAL) << c;
  }
  sorna__adivcfun_imp(SORN_U8, SORN_S16, 1, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__ardivcfun_imp(SORN_F64, SORN_F64, 4, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__adivcfun_imp(SORN_U8, 0, 1, &st);
  EXPECT_EQ(st, SORN_EINVAL);
}

// The reading of a shift that follows a quotient: counted modulo 32, in 64
// bits, then clamped.
TEST(DivScale, QuotientsShiftInSixtyFourBits) {
  int32_t a[1] = {INT32_MAX}, b[1] = {1}, d[1];
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__div_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 1, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MAX) << "2^32 - 2 clamps; in 32 bits it would have wrapped to -2";
  ASSERT_EQ(sorna__div_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 32, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MAX) << "a shift of 0";
  a[0] = -7;
  ASSERT_EQ(sorna__div_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 31, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN);
}

TEST(Div, WorkedExamplesThroughTheEntries) {
  Image a(1, 3, 1, SORN_U8), b(1, 3, 1, SORN_U8), d(1, 3, 1, SORN_U8);
  const double va[3] = {7, 5, 9}, vb[3] = {2, 2, 4};
  for (int32_t x = 0; x < 3; ++x) {
    a.set(0, x, 0, va[x]);
    b.set(0, x, 0, vb[x]);
  }
  SornArray ra = a.record(), rb = b.record(), rd = d.record();
  ASSERT_EQ(SornDiv(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 3);
  ASSERT_EQ(SornDivr(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 4) << "3.5 to even";
  EXPECT_EQ(d.get(0, 1), 2) << "2.5 to even";
  EXPECT_EQ(d.get(0, 2), 2);
  ASSERT_EQ(SornRDiv(nullptr, 0, &rd, &rb, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 3) << "b / a";
  ASSERT_EQ(SornRDivr(nullptr, 0, &rd, &rb, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 4);
  // A u8 and an s16 source have no kernel.
  Image w(1, 3, 1, SORN_S16);
  SornArray rw = w.record();
  const std::vector<uint8_t> before = d.bytes_copy();
  EXPECT_EQ(SornDiv(nullptr, 0, &rd, &ra, &rw, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(d.bytes_copy(), before);
}

TEST(Div, F32RoundedIsTheSameAsTruncated) {
  auto rng = sorn_test::seeded_rng(0x3a31);
  Image a(3, 17, 2, SORN_F32), b(3, 17, 2, SORN_F32), d1(3, 17, 2, SORN_F32), d2(3, 17, 2, SORN_F32);
  fill_random(rng, a);
  fill_random(rng, b);
  SornArray ra = a.record(), rb = b.record(), r1 = d1.record(), r2 = d2.record();
  ASSERT_EQ(SornDiv(nullptr, 0, &r1, &ra, &rb, nullptr, nullptr, nullptr, 5, 0), SORN_OK);
  ASSERT_EQ(SornDivr(nullptr, 0, &r2, &ra, &rb, nullptr, nullptr, nullptr, -5, 0), SORN_OK);
  EXPECT_EQ(d1.bytes_copy(), d2.bytes_copy());
}

TEST(Divr, ZeroDivisorGivesTheConversionsValue) {
  // 5 / 0 is an infinity, 0 / 0 a NaN: both convert to 0x80000000, whose low
  // bits are 0 in a u8 store at sf 0, and which clamps to the lower end.
  uint8_t a[2] = {5, 0}, b[2] = {0, 0}, d[2] = {9, 9};
  int32_t dims[3] = {1, 2, 1}, s[3] = {2, 1, 1};
  ASSERT_EQ(sorna__divr_c1_u8u8u8(nullptr, 0, 3, dims, d, s, a, s, b, s, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  EXPECT_EQ(d[1], 0);
  int16_t w[2] = {5, -5}, z[2] = {0, 0}, dw[2];
  int32_t s2[3] = {4, 2, 2};
  ASSERT_EQ(sorna__divr_c1_s16s16s16(nullptr, 0, 3, dims, dw, s2, w, s2, z, s2, 1, 0), SORN_OK);
  EXPECT_EQ(dw[0], -32768);
  EXPECT_EQ(dw[1], -32768);
}

// --- division by constants ---------------------------------------------------

struct DivCCase {
  std::string name;
  bool reversed, rounded;
  int32_t ch;
  uint32_t t;
  SornDivCKernel kernel;
};
void PrintTo(const DivCCase &k, std::ostream *os) { *os << k.name; }

std::vector<DivCCase> divc_kernels() {
  std::vector<DivCCase> v;
#define DCK(c, fam, rev, rnd, d, a) \
  v.push_back({#fam "_c" #c "_" #d, rev, rnd, c, code_##d, &sorna__##fam##_c##c##_##d##a});
#define DC_ALL(d, a)                                  \
  SORN_CONST_CHANNELS(DCK, divC, false, false, d, a)  \
  SORN_CONST_CHANNELS(DCK, rdivC, true, false, d, a)
#define DRC_ALL(d, a)                                 \
  SORN_CONST_CHANNELS(DCK, divrC, false, true, d, a)  \
  SORN_CONST_CHANNELS(DCK, rdivrC, true, true, d, a)
  SORN_DIVC_PAIRS(DC_ALL)
  SORN_DIVRC_OWN_PAIRS(DRC_ALL)
#undef DCK
#undef DC_ALL
#undef DRC_ALL
  return v;
}

class DivCKernel : public ::testing::TestWithParam<DivCCase> {};

TEST_P(DivCKernel, MatchesReferenceForEveryScaleFactor) {
  const DivCCase &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x3a40 + k.t + k.ch * 16 + k.reversed * 64 + k.rounded * 128);
  const std::vector<double> consts = {1, -1, 2, 2.5, 3, 7, -13, 255, 300, -32768, -40000, 32767,
                                      0.3, 1e-3, 123456.7, 25, 1e10, -3.5, 1000};
  for (int32_t sf : {-33, -32, -31, -9, -1, 0, 1, 7, 31, 32, 40})
    for (int rep = 0; rep < 3; ++rep) {
      const int32_t rows = 1 + (int32_t)(rng() % 4), cols = 1 + (int32_t)(rng() % 19);
      Operand d(rows, cols, k.ch, k.t, 4), a(rows, cols, k.ch, k.t, 8);
      // A reversed form divides by the elements: none may be 0 for integers.
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < k.ch; ++c)
            a.img.set(y, x, c, k.reversed ? divisor(rng, k.t) : sorn_test::random_value(rng, k.t, true));
      add_float_specials(rng, a.img);
      double cv[4];
      for (double &c : cv) c = consts[rng() % consts.size()];
      // A forward integer division by a constant that limits to 0 is not
      // looked at here (its own test is below).
      if (!k.reversed && k.t != SORN_F32)
        for (double &c : cv)
          if (muldiv_ref::div_constant(k.t, c) == 0) c = 3;
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {rows, cols, k.ch};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), d.strides, a.base(), a.strides, cv, sf, 0, 0),
                SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < k.ch; ++c) {
            const double va = a.img.get(y, x, c), kc = cv[k.ch == 1 ? 0 : c];
            const double e = muldiv_ref::divc(k.reversed, k.rounded, k.t, va, kc, sf);
            ASSERT_TRUE(add_ref::same(k.t, e, d.img.get(y, x, c)))
                << k.name << " sf " << sf << ": " << va << " with " << kc << " gave "
                << d.img.get(y, x, c) << ", expected " << e;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(AllKernels, DivCKernel, ::testing::ValuesIn(divc_kernels()),
                         [](const ::testing::TestParamInfo<DivCCase> &i) { return i.param.name; });

TEST(DivC, ConstantsAreRoundedAndLimitedToTheType) {
  Image a(1, 1, 1, SORN_U8), d(1, 1, 1, SORN_U8);
  a.set(0, 0, 0, 255);
  SornArray ra = a.record(), rd = d.record();
  const double two_and_a_half = 2.5, three_hundred = 300;
  ASSERT_EQ(SornDivC(nullptr, 0, &rd, &ra, &two_and_a_half, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 127) << "rint(2.5) is 2";
  ASSERT_EQ(SornDivC(nullptr, 0, &rd, &ra, &three_hundred, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 1) << "300 is 255";
  ASSERT_EQ(SornRDivC(nullptr, 0, &rd, &ra, &three_hundred, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 1) << "255 / 255";
}

TEST(DivC, TwoChannelsAreInvalid) {
  Image a(2, 2, 2, SORN_U8), d(2, 2, 2, SORN_U8, 0, 0x33);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray ra = a.record(), rd = d.record();
  const double c[2] = {2, 3};
  for (auto e : {&SornDivC, &SornDivrC, &SornRDivC, &SornRDivrC})
    EXPECT_EQ(e(nullptr, 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
  EXPECT_EQ(d.bytes_copy(), before);
}

// The reading of the s32 constant division: the reciprocal of the rounded
// constant is formed in f32 and widened, so that a quotient that should be
// whole can fall just below it and truncate one lower.
TEST(DivC, S32ReciprocalIsFormedInF32) {
  Image a(1, 3, 1, SORN_S32), d(1, 3, 1, SORN_S32);
  a.set(0, 0, 0, 25);
  a.set(0, 1, 0, 100);
  a.set(0, 2, 0, -1000000);
  SornArray ra = a.record(), rd = d.record();
  const double c = 25;
  ASSERT_EQ(SornDivC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 0) << "25 * double(1.0f / 25) is 0.99999997";
  EXPECT_EQ(d.get(0, 1), 3);
  EXPECT_EQ(d.get(0, 2), -39999);
  ASSERT_EQ(SornDivrC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 1) << "rounded, it is whole again";
}

TEST(DivC, AZeroConstantGivesTheLowerEnd) {
  Image a(1, 3, 1, SORN_S16), d(1, 3, 1, SORN_S16);
  a.set(0, 0, 0, 5);
  a.set(0, 1, 0, 0);
  a.set(0, 2, 0, -5);
  SornArray ra = a.record(), rd = d.record();
  const double zero = 0;
  ASSERT_EQ(SornDivC(nullptr, 0, &rd, &ra, &zero, nullptr, nullptr, 2, 0), SORN_OK);
  for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(d.get(0, x), -32768) << x;
  ASSERT_EQ(SornDivC(nullptr, 0, &rd, &ra, &zero, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(d.get(0, x), 0) << "the low bits of 0x80000000";
}

TEST(MulDiv, EntriesWithRoisAndChannels) {
  auto rng = sorn_test::seeded_rng(0x3a50);
  using Entry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const SornArray *, const SornVolume *, const SornVolume *,
                               const SornVolume *, int32_t, uint32_t);
  for (uint32_t t : arith_test::kernel_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (Entry e : {&SornMul, &SornDiv, &SornDivr, &SornRDiv, &SornRDivr}) {
        Image d(6, 9, ch, t, 4, 0x3c), a(7, 8, ch, t, 8), b(5, 10, ch, t, 0);
        fill_random(rng, a);
        for (int32_t y = 0; y < 5; ++y)
          for (int32_t x = 0; x < 10; ++x)
            for (int32_t c = 0; c < ch; ++c) b.set(y, x, c, divisor(rng, t));
        for (int32_t y = 0; y < 7; ++y)
          for (int32_t x = 0; x < 8; ++x)
            for (int32_t c = 0; c < ch; ++c)
              if (a.get(y, x, c) == 0) a.set(y, x, c, 1);
        const std::vector<uint8_t> before = d.bytes_copy();
        SornArray rd = d.record(), ra = a.record(), rb = b.record();
        const SornVolume dr = make_roi(1, 2, 4, 6, ch), ar = make_roi(2, 0, 0, 0, ch),
                         br = make_roi(0, 3, 0, 0, ch);
        const int32_t sf = (int32_t)(rng() % 5) - 2;
        ASSERT_EQ(e(nullptr, 0, &rd, &ra, &rb, &dr, &ar, &br, sf, 0), SORN_OK);
        for (int32_t y = 0; y < 6; ++y)
          for (int32_t x = 0; x < 9; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              const bool inside = y >= 1 && y < 5 && x >= 2 && x < 8;
              const size_t off = (size_t)y * d.rowstride() + ((size_t)x * ch + c) * d.esize();
              if (!inside) {
                ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
                continue;
              }
              const double va = a.get(y + 1, x - 2, c), vb = b.get(y - 1, x + 1, c);
              const double ex = e == &SornMul    ? muldiv_ref::mul(t, t, t, va, vb, sf)
                                : e == &SornDiv  ? muldiv_ref::div(false, t, va, vb, sf)
                                : e == &SornDivr ? muldiv_ref::div(true, t, va, vb, sf)
                                : e == &SornRDiv ? muldiv_ref::div(false, t, vb, va, sf)
                                                 : muldiv_ref::div(true, t, vb, va, sf);
              ASSERT_TRUE(add_ref::same(t, ex, d.get(y, x, c))) << t << " sf " << sf;
            }
        ASSERT_TRUE(d.guards_intact());
      }
}

TEST(MulDiv, ConstantEntriesWithChannels) {
  auto rng = sorn_test::seeded_rng(0x3a51);
  using EntryC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const double *, const SornVolume *, const SornVolume *, int32_t,
                                uint32_t);
  for (uint32_t t : arith_test::kernel_types())
    for (int32_t ch : {1, 3, 4})
      for (EntryC e : {&SornDivC, &SornDivrC, &SornRDivC, &SornRDivrC}) {
        Image d(3, 7, ch, t, 4, 0x3c), a(3, 7, ch, t, 8);
        for (int32_t y = 0; y < 3; ++y)
          for (int32_t x = 0; x < 7; ++x)
            for (int32_t c = 0; c < ch; ++c) a.set(y, x, c, divisor(rng, t));
        const double cv[4] = {3, -7.25, 100, 0.5};
        SornArray rd = d.record(), ra = a.record();
        const int32_t sf = (int32_t)(rng() % 5) - 2;
        ASSERT_EQ(e(nullptr, 0, &rd, &ra, cv, nullptr, nullptr, sf, 0), SORN_OK);
        const bool reversed = e == &SornRDivC || e == &SornRDivrC;
        const bool rounded = e == &SornDivrC || e == &SornRDivrC;
        for (int32_t y = 0; y < 3; ++y)
          for (int32_t x = 0; x < 7; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              double kc = cv[c];
              if (!reversed && t != SORN_F32 && muldiv_ref::div_constant(t, kc) == 0) continue;
              const double ex = muldiv_ref::divc(reversed, rounded, t, a.get(y, x, c), kc, sf);
              ASSERT_TRUE(add_ref::same(t, ex, d.get(y, x, c)))
                  << t << " x" << ch << (reversed ? " reversed" : "") << (rounded ? " rounded" : "");
            }
        ASSERT_TRUE(d.guards_intact());
      }
}

TEST(MulDivFailures, InTheirOrder) {
  Image d(3, 4, 1, SORN_U8, 0, 7), a(3, 4, 1, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record();
  SornArray bad = rd;
  bad.dims[0] = 0;
  const SornVolume far = make_roi(0, 9, 1, 1, 1);
  const double c[4] = {1, 1, 1, 1};
  for (auto e : {&SornMul, &SornDiv, &SornDivr, &SornRDiv, &SornRDivr}) {
    EXPECT_EQ(e(nullptr, 0, &bad, &ra, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(e(nullptr, 0, &rd, &ra, &ra, &far, nullptr, nullptr, 0, 0), SORN_ENOSPC);
  }
  for (auto e : {&SornMulC, &SornDivC, &SornDivrC, &SornRDivC, &SornRDivrC}) {
    EXPECT_EQ(e(nullptr, 0, &bad, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(e(nullptr, 0, &rd, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(e(nullptr, 0, &rd, &ra, c, &far, nullptr, 0, 0), SORN_ENOSPC);
  }
  EXPECT_EQ(d.bytes_copy(), before);
  std::vector<uint8_t> buf(2 * 3 * 4, 9);
  SornArray d4 = make_record4(buf.data(), 2, 3, 4, 1, SORN_U8, 12, 4);
  EXPECT_EQ(SornMul(nullptr, 0, &d4, nullptr, &d4, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornDivC(nullptr, 0, &d4, nullptr, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  for (uint8_t v : buf) EXPECT_EQ(v, 9);
}

}  // namespace

namespace {

// Multiplication into a narrow destination goes through the tile path and
// saturates; its constant form converts first into f32 or operates first.
TEST(MulTiles, NarrowDestinationsAndConstantsThroughTiles) {
  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
  Image d(3, 4, 1, SORN_U8, 4, 0x2e), a(3, 4, 1, SORN_S32), b(3, 4, 1, SORN_S32);
  a.set(0, 0, 0, 300);
  b.set(0, 0, 0, 1);
  a.set(0, 1, 0, 100000);
  b.set(0, 1, 0, -100000);
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  EXPECT_EQ(SornMul(&xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 255);
  EXPECT_EQ(d.get(0, 1), 0) << "-10^10 clamps to the s32 range in the tile, then to 0";
  const double two = 2, half = 0.5;
  EXPECT_EQ(SornMulC(&xe, 0, &rd, &ra, &two, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 255) << "operate first, then saturate";
  Image f(3, 4, 1, SORN_F32, 0, 0x2f), u(3, 4, 1, SORN_U8);
  u.set(2, 3, 0, 9);
  SornArray rf = f.record(), ru = u.record();
  EXPECT_EQ(SornMulC(&xe, 0, &rf, &ru, &half, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(f.get(2, 3), 4.5) << "convert first";
  SornXEfini(&xe);
}

}  // namespace

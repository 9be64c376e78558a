// The one-source operations: negation and saturating negation through their
// dispatchers and entries, the square kernels, and the exponential, the
// logarithm and the sigmoid, each element function against its stated
// construction (written out below, never calling the library) and against
// the true function within its error bound.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
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

constexpr uint32_t code_u8 = SORN_U8, code_s16 = SORN_S16, code_s32 = SORN_S32,
                   code_f32 = SORN_F32;

struct UnaryKernel {
  std::string name;
  enum Kind { Neg, Negq, Sqr } kind;
  uint32_t dst, a;
  SornArith1Kernel kernel;
};
void PrintTo(const UnaryKernel &k, std::ostream *os) { *os << k.name; }

std::vector<UnaryKernel> unary_kernels() {
  std::vector<UnaryKernel> v;
#define UK(fam, kind, d, a) \
  v.push_back({#fam "_" #d #a, UnaryKernel::kind, code_##d, code_##a, &sorna__##fam##_c1_##d##a});
#define UK_NEG(d, a) UK(neg, Neg, d, a)
#define UK_NEGQ(d, a) UK(negq, Negq, d, a)
#define UK_SQR(d, a) UK(sqr, Sqr, d, a)
  SORN_NEG_PAIRS(UK_NEG)
  SORN_NEGQ_OWN_PAIRS(UK_NEGQ)
  SORN_SQR_PAIRS(UK_SQR)
#undef UK_NEG
#undef UK_NEGQ
#undef UK_SQR
#undef UK
  return v;
}

double expected(const UnaryKernel &k, double va, int32_t sf) {
  switch (k.kind) {
    case UnaryKernel::Neg: return muldiv_ref::neg(false, k.dst, k.a, va, sf);
    case UnaryKernel::Negq: return muldiv_ref::neg(true, k.dst, k.a, va, sf);
    default: return muldiv_ref::sqr(k.dst, k.a, va, sf);
  }
}

// Floats that the random values leave out: NaN, infinities, -0, the edges
// of the 32-bit conversion.
void add_float_specials(std::mt19937_64 &rng, Image &im) {
  static const float sp[] = {std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(), -0.0f, 2147483648.0f,
                             -2147483648.0f, 2147483520.0f, 255.5f, -32768.5f, 32767.5f};
  if (im.type() != SORN_F32) return;
  for (float f : sp)
    im.set((int32_t)(rng() % im.rows()), (int32_t)(rng() % im.cols()),
           (int32_t)(rng() % im.channels()), f);
}

class UnaryKernelTest : public ::testing::TestWithParam<UnaryKernel> {};

// Through the kernel with dims as they come: rows of cols * ch adjacent
// elements (what the dispatchers hand down after the fold).
TEST_P(UnaryKernelTest, MatchesReferenceForEveryScaleFactor) {
  const UnaryKernel &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x0e60 + k.dst * 16 + k.a + k.kind * 256);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      const int32_t rows = 1 + (int32_t)(rng() % 5), cols = 1 + (int32_t)(rng() % 23);
      Operand a(rows, cols, ch, k.a, 4 * (int32_t)(rng() % 3)), d(rows, cols, ch, k.dst, 8);
      fill_random(rng, a.img);
      add_float_specials(rng, a.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {rows, cols * ch, 1};
      int32_t ds[3] = {d.strides[0], d.img.esize(), d.img.esize()};
      int32_t as[3] = {a.strides[0], a.img.esize(), a.img.esize()};
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), ds, a.base(), as, sf, 0), SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const double va = a.img.get(y, x, c);
            const double e = expected(k, va, sf);
            ASSERT_TRUE(add_ref::same(k.dst, e, d.img.get(y, x, c)))
                << k.name << " sf " << sf << ": " << va << " gave " << d.img.get(y, x, c)
                << ", expected " << e;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(AllTables, UnaryKernelTest, ::testing::ValuesIn(unary_kernels()),
                         [](const ::testing::TestParamInfo<UnaryKernel> &i) { return i.param.name; });

// Every value of the narrow sources, for every scale factor.
TEST(NegateKernels, EverySourceValueOfU8AndS16) {
  for (const UnaryKernel &k : unary_kernels()) {
    if (k.a != SORN_U8 && k.a != SORN_S16) continue;
    const int32_t count = k.a == SORN_U8 ? 256 : 65536;
    Image a(1, count, 1, k.a), d(1, count, 1, k.dst);
    for (int32_t x = 0; x < count; ++x) a.set(0, x, 0, k.a == SORN_U8 ? x : x - 32768);
    int32_t dims[3] = {1, count, 1};
    int32_t as[3] = {a.rowstride(), a.esize(), a.esize()}, ds[3] = {d.rowstride(), d.esize(), d.esize()};
    for (int32_t sf : add_ref::scale_factors()) {
      ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), ds, a.base(), as, sf, 0), SORN_OK);
      for (int32_t x = 0; x < count; ++x)
        ASSERT_TRUE(add_ref::same(k.dst, expected(k, a.get(0, x), sf), d.get(0, x)))
            << k.name << " sf " << sf << " of " << a.get(0, x);
      ASSERT_TRUE(d.guards_intact());
    }
  }
}

TEST(NegateKernels, WorkedValues) {
  uint8_t u[3] = {0, 1, 200}, du[3];
  int32_t dims[3] = {1, 3, 1}, s1[3] = {3, 1, 1};
  ASSERT_EQ(sorna__neg_c1_u8u8(nullptr, 0, 3, dims, du, s1, u, s1, 0, 0), SORN_OK);
  EXPECT_EQ(du[0], 0);
  EXPECT_EQ(du[1], 255) << "256 minus the value";
  EXPECT_EQ(du[2], 56);
  int16_t w[3] = {-32768, 5, -5}, dw[3];
  int32_t s2[3] = {6, 2, 2};
  ASSERT_EQ(sorna__negq_c1_s16s16(nullptr, 0, 3, dims, dw, s2, w, s2, 0, 0), SORN_OK);
  EXPECT_EQ(dw[0], 32767);
  ASSERT_EQ(sorna__neg_c1_s16s16(nullptr, 0, 3, dims, dw, s2, w, s2, 0, 0), SORN_OK);
  EXPECT_EQ(dw[0], -32768) << "the plain form wraps";
  int32_t l[3] = {INT32_MIN, 7, 0}, dl[3];
  int32_t s4[3] = {12, 4, 4};
  ASSERT_EQ(sorna__negq_c1_s32s32(nullptr, 0, 3, dims, dl, s4, l, s4, 0, 0), SORN_OK);
  EXPECT_EQ(dl[0], INT32_MAX);
  ASSERT_EQ(sorna__negq_c1_u8s16(nullptr, 0, 3, dims, du, s1, w, s2, 0, 0), SORN_OK);
  EXPECT_EQ(du[0], 255);
  EXPECT_EQ(du[1], 0) << "any non-negative source gives 0";
  EXPECT_EQ(du[2], 5);
}

TEST(NegateKernels, FloatSourceRoundsToEvenAndWrapsOrClamps) {
  // -(-300.5) is 300.5, to even 300: the plain u8 form keeps its low bits,
  // the saturating one clamps. -0.0 stays -0.0 in f32.
  float f[3] = {-300.5f, 2.5f, 0.0f};
  uint8_t du[3];
  float df[3];
  int32_t dims[3] = {1, 3, 1}, s1[3] = {3, 1, 1}, s4[3] = {12, 4, 4};
  for (int32_t sf : {0, 3, -3}) {
    ASSERT_EQ(sorna__neg_c1_u8f32(nullptr, 0, 3, dims, du, s1, f, s4, sf, 0), SORN_OK);
    EXPECT_EQ(du[0], 300 - 256) << "sf " << sf << " is not used";
    EXPECT_EQ(du[1], 254) << "-2 wraps";
    ASSERT_EQ(sorna__negq_c1_u8f32(nullptr, 0, 3, dims, du, s1, f, s4, sf, 0), SORN_OK);
    EXPECT_EQ(du[0], 255);
    EXPECT_EQ(du[1], 0);
    ASSERT_EQ(sorna__neg_c1_f32f32(nullptr, 0, 3, dims, df, s4, f, s4, sf, 0), SORN_OK);
    EXPECT_EQ(df[0], 300.5f);
    EXPECT_TRUE(std::signbit(df[2])) << "-(0.0) is -0.0";
  }
}

TEST(SquareKernels, WrapAtScaleZeroLikeASum) {
  uint8_t u[2] = {16, 3}, du[2];
  int32_t dims[3] = {1, 2, 1}, s1[3] = {2, 1, 1};
  ASSERT_EQ(sorna__sqr_c1_u8u8(nullptr, 0, 3, dims, du, s1, u, s1, 0, 0), SORN_OK);
  EXPECT_EQ(du[0], 0) << "256 wraps";
  EXPECT_EQ(du[1], 9);
  ASSERT_EQ(sorna__sqr_c1_u8u8(nullptr, 0, 3, dims, du, s1, u, s1, 1, 0), SORN_OK);
  EXPECT_EQ(du[0], 255) << "a positive scale shifts and clamps";
  // The s32 square is 32 bits wide, as a sum is: 65536^2 wraps to 0 before
  // any scale applies.
  int32_t l[2] = {65536, 46341}, dl[2];
  int32_t s4[3] = {8, 4, 4};
  ASSERT_EQ(sorna__sqr_c1_s32s32(nullptr, 0, 3, dims, dl, s4, l, s4, 0, 0), SORN_OK);
  EXPECT_EQ(dl[0], 0);
  EXPECT_EQ(dl[1], (int32_t)(46341u * 46341u));
  ASSERT_EQ(sorna__sqr_c1_s32s32(nullptr, 0, 3, dims, dl, s4, l, s4, -1, 0), SORN_OK);
  EXPECT_EQ(dl[0], 0);
}

// --- lookups ----------------------------------------------------------------

TEST(NegateLookup, TablesAndMissingKeys) {
  SornStatus st = 1;
#define CHECK_NEG(d, a)                                                             \
  EXPECT_EQ(sorna__anegfun_imp(code_##d, code_##a, &st), &sorna__neg_c1_##d##a);   \
  EXPECT_EQ(st, SORN_OK);
  SORN_NEG_PAIRS(CHECK_NEG)
#undef CHECK_NEG
#define CHECK_NEGQ_OWN(d, a) \
  EXPECT_EQ(sorna__anegqfun_imp(code_##d, code_##a, &st), &sorna__negq_c1_##d##a);
#define CHECK_NEGQ_PLAIN(d, a) \
  EXPECT_EQ(sorna__anegqfun_imp(code_##d, code_##a, &st), &sorna__neg_c1_##d##a);
  SORN_NEGQ_OWN_PAIRS(CHECK_NEGQ_OWN)
  SORN_NEGQ_PLAIN_PAIRS(CHECK_NEGQ_PLAIN)
#undef CHECK_NEGQ_OWN
#undef CHECK_NEGQ_PLAIN
  sorna__anegqfun_imp(SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP) << "u8 from u8 has no saturating key";
  sorna__anegfun_imp(SORN_U16, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__anegfun_imp(SORN_U8, 5, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  sorna__anegfun_imp(0, SORN_U8, &st);
  EXPECT_EQ(st, SORN_EINVAL);
}

// --- negation through the entry ---------------------------------------------

bool negq_own(uint32_t d, uint32_t a) {
#define NEGQ_OWN(dd, aa) \
  if (d == code_##dd && a == code_##aa) return true;
  SORN_NEGQ_OWN_PAIRS(NEGQ_OWN)
#undef NEGQ_OWN
  return false;
}

TEST(Negate, EveryPairWithRoisPaddingAndChannels) {
  auto rng = sorn_test::seeded_rng(0x0e61);
  for (bool sat : {false, true})
    for (uint32_t td : arith_test::kernel_types())
      for (uint32_t ta : arith_test::kernel_types())
        for (int32_t ch = 1; ch <= 4; ++ch) {
          if (sat && td == SORN_U8 && ta == SORN_U8) continue;
          const int32_t sf = (int32_t)(rng() % 5) - 2;
          Image d(7, 9, ch, td, 4, 0x3c), a(6, 10, ch, ta, 8);
          fill_random(rng, a);
          const std::vector<uint8_t> before = d.bytes_copy();
          SornArray rd = d.record(), ra = a.record();
          const SornVolume dr = make_roi(1, 2, 4, 5, ch), ar = make_roi(2, 1, 0, 0, ch);
          auto entry = sat ? &SornNegateq : &SornNegate;
          ASSERT_EQ(entry(nullptr, 0, &rd, &ra, &dr, &ar, sf, 0), SORN_OK);
          for (int32_t y = 0; y < d.rows(); ++y)
            for (int32_t x = 0; x < d.cols(); ++x)
              for (int32_t c = 0; c < ch; ++c) {
                const bool inside = y >= 1 && y < 5 && x >= 2 && x < 7;
                const size_t off = (size_t)y * d.rowstride() + ((size_t)x * ch + c) * d.esize();
                if (!inside) {
                  ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
                  continue;
                }
                const double va = a.get(y + 1, x - 1, c);
                // The saturating lookup names the plain kernels where it
                // has none of its own.
                const double e = muldiv_ref::neg(sat && negq_own(td, ta), td, ta, va, sf);
                ASSERT_TRUE(add_ref::same(td, e, d.get(y, x, c)))
                    << (sat ? "negq " : "neg ") << td << " " << ta << " sf " << sf;
              }
          ASSERT_TRUE(d.guards_intact());
        }
}

TEST(Negate, NullSourceNegatesInPlace) {
  Image d(2, 3, 2, SORN_S16, 0);
  for (int32_t x = 0; x < 3; ++x) d.set(1, x, 1, 100 + x);
  SornArray rd = d.record();
  const SornVolume roi = make_roi(1, 0, 1, 3, 2);
  ASSERT_EQ(SornNegate(nullptr, 0, &rd, nullptr, &roi, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(1, 2, 1), -102);
  EXPECT_EQ(d.get(0, 0, 0), 0);
}

TEST(Negate, SaturatingFromS16ToU8GivesZeroForPositiveValues) {
  Image d(1, 4, 1, SORN_U8, 0, 9), a(1, 4, 1, SORN_S16);
  const double v[4] = {1, 32767, -7, -32768};
  for (int32_t x = 0; x < 4; ++x) a.set(0, x, 0, v[x]);
  SornArray rd = d.record(), ra = a.record();
  ASSERT_EQ(SornNegateq(nullptr, 0, &rd, &ra, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 0);
  EXPECT_EQ(d.get(0, 1), 0);
  EXPECT_EQ(d.get(0, 2), 7);
  EXPECT_EQ(d.get(0, 3), 255);
}

TEST(Negate, F32IgnoresTheScaleFactor) {
  Image d(1, 2, 1, SORN_F32), a(1, 2, 1, SORN_F32);
  a.set(0, 0, 0, 1.25);
  a.set(0, 1, 0, -3);
  SornArray rd = d.record(), ra = a.record();
  for (int32_t sf : {-40, -1, 0, 1, 31}) {
    ASSERT_EQ(SornNegate(nullptr, 0, &rd, &ra, nullptr, nullptr, sf, 0), SORN_OK);
    EXPECT_EQ(d.get(0, 0), -1.25);
    EXPECT_EQ(d.get(0, 1), 3);
  }
}

TEST(UnaryFailures, InTheirOrder) {
  Image d(3, 4, 1, SORN_U8, 0, 7), a(3, 4, 1, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record();
  EXPECT_EQ(_T_SornArith(SORN_FOURCC('n', 'e', 'g', 'x'), nullptr, 0, &rd, &ra, nullptr, nullptr,
                         0, 0),
            SORN_EINVAL);
  EXPECT_EQ(_T_SornArith(SORN_FOURCC('a', 'a', 'd', 'd'), nullptr, 0, &rd, &ra, nullptr, nullptr,
                         0, 0),
            SORN_EINVAL)
      << "the two-source selectors are not the one-source entry's";
  SornArray bad = rd;
  bad.ndims = 2;
  SornArray ch2 = ra;
  ch2.dims[3] = 2;
  const SornVolume far = make_roi(10, 10, 2, 2, 1);
  for (auto entry : {&SornNegate, &SornNegateq, &SornExp, &SornLn}) {
    EXPECT_EQ(entry(nullptr, 0, &bad, &ra, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(entry(nullptr, 0, &rd, &ch2, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(entry(nullptr, 0, &rd, &ra, &far, nullptr, 0, 0), SORN_ENOSPC);
  }
  // Exp and ln know f32 only.
  EXPECT_EQ(SornExp(nullptr, 0, &rd, &ra, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornLn(nullptr, 0, &rd, &ra, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  SornArray u16 = rd;
  u16.elemtype = SORN_U16;
  EXPECT_EQ(SornExp(nullptr, 0, &u16, &ra, nullptr, nullptr, 0, 0), SORN_EINVAL);
  EXPECT_EQ(SornNegate(nullptr, 0, &u16, &ra, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(d.bytes_copy(), before);

  // Four dimensions, after every other check.
  std::vector<float> buf(2 * 3 * 4, 1.0f);
  SornArray d4 = make_record4(buf.data(), 2, 3, 4, 1, SORN_F32, 48, 16);
  EXPECT_EQ(SornExp(nullptr, 0, &d4, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  const SornVolume empty = make_roi(5, 0, 1, 1, 1);
  EXPECT_EQ(SornExp(nullptr, 0, &d4, nullptr, &empty, nullptr, 0, 0), SORN_ENOSPC);
  const double one[4] = {1, 1, 1, 1};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &d4, nullptr, one, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  for (float v : buf) EXPECT_EQ(v, 1.0f);
}

// --- exp and ln: the constructions, written out -----------------------------

float from_bits(uint32_t b) {
  float f;
  std::memcpy(&f, &b, 4);
  return f;
}
uint32_t to_bits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, 4);
  return b;
}
// The processor's truncating conversion: 0x80000000 when out of range.
int32_t cvtt32(float v) {
  if (!(v >= -2147483648.0f && v < 2147483648.0f)) return INT32_MIN;
  return (int32_t)v;
}
int64_t cvtt64(float v) {
  if (!(v >= -9223372036854775808.0f && v < 9223372036854775808.0f)) return INT64_MIN;
  return (int64_t)v;
}

float ref_exp_superfast(float x, float mul = 12102203.0f) {
  const float p = x * mul;
  const float t = p + 1064866816.0f;
  return from_bits((uint32_t)cvtt32(t));
}

float ref_exp_fast(float x) {
  const float m = x * 6051102.0f;
  const float p = from_bits((uint32_t)(uint64_t)cvtt64(m + 1056478208.0f));
  const float q = from_bits((uint32_t)(uint64_t)cvtt64(1056478208.0f - m));
  return p / q;
}

float ref_exp_acc(float x) {
  if (x < -88.37625885009766) return 0.0f;
  if (x > 88.37625885009766) return INFINITY;
  const double zd = (double)x * 1.4426950408889634 + 0.5;
  const float z = (float)zd;
  const float n = std::floor(z);
  const double gd = (double)x - (double)n * 0.693359375 + (double)n * 0.00021219444;
  const float g = (float)gd;
  const double c[6] = {0.000198756915, 0.0013981999507, 0.0083334519073,
                       0.041665795894, 0.16666665459,   0.50000001201};
  float p = (float)(c[0] * (double)g + c[1]);
  for (int i = 2; i < 6; ++i) {
    const float prod = p * g;
    p = (float)((double)prod + c[i]);
  }
  const float pg = p * g;
  const float pgg = pg * g;
  const float r = (pgg + g) + 1.0f;
  const int32_t ni = std::isnan(n) ? INT32_MIN : (int32_t)n;
  return r * from_bits((uint32_t)(ni + 127) << 23);
}

float ref_ln_superfast(float x) {
  if (!(x > 0.0f)) return -INFINITY;
  const int32_t i = (int32_t)to_bits(x);
  return (float)(i - 0x3f7893f5) * 8.262958317573066e-08f;
}

float ref_ln_acc(float x) {
  if (x <= 0.0f) return -INFINITY;
  const int32_t bits = (int32_t)to_bits(x);
  float m = from_bits(((uint32_t)bits & 0x807fffffu) | 0x3f000000u);
  float e = (float)((bits >> 23) - 127) + 1.0f;
  if (m < 0.7071067811865476) {
    m = m + m;
    e = e - 1.0f;
  }
  m = m - 1.0f;
  const float z = m * m;
  const double c[8] = {-0.1151461031,  0.1167699874,   -0.12420140846, 0.14249322787,
                       -0.16668057665, 0.20000714765,  -0.24999993993, 0.33333331174};
  float y = 0.07037683576345444f * m;
  for (double ci : c) y = (float)((double)y + ci) * m;
  const float a = (float)((double)e * -0.00021219444);
  const float r = (a + y * z) - z * 0.5f;
  return (e * 0.693359375f + r) + m;
}

bool same_float(float e, float g) {
  if (std::isnan(e) || std::isnan(g)) return std::isnan(e) && std::isnan(g);
  return to_bits(e) == to_bits(g);
}

// Bit patterns across every exponent, with the values around the edges.
std::vector<float> float_sweep() {
  std::vector<float> v;
  for (uint64_t b = 0; b < 0x100000000ull; b += 65521) v.push_back(from_bits((uint32_t)b));
  for (float x = -100.0f; x <= 100.0f; x += 0.001953125f) v.push_back(x);
  for (float x : {0.0f, -0.0f, INFINITY, -INFINITY, NAN, -NAN, 88.37625885009766f,
                  -88.37625885009766f, std::nextafter(88.37625885009766f, 100.0f),
                  std::nextafter(-88.37625885009766f, -100.0f), 0.70710677f, 0.70710683f,
                  1.0f, 2.0f, 0.5f, 1e-45f, 1.17549435e-38f, 3.4028235e38f, 1e10f, -1e10f})
    v.push_back(x);
  return v;
}

TEST(ExpLnFunctions, EachFormIsItsConstructionToTheBit) {
  struct Form {
    const char *name;
    float (*lib)(float);
    float (*ref)(float);
  };
  const Form forms[] = {
      {"exp accurate", &_T_sorna__exp_fast_acc, &ref_exp_acc},
      {"exp fast", &_T_sorna__exp_fast, &ref_exp_fast},
      {"exp superfast", &_T_sorna__exp_superfast, [](float x) { return ref_exp_superfast(x); }},
      {"ln accurate", &_T_sorna__ln_fast_acc, &ref_ln_acc},
      {"ln superfast", &_T_sorna__ln_superfast, &ref_ln_superfast},
  };
  const std::vector<float> xs = float_sweep();
  for (const Form &f : forms)
    for (float x : xs)
      ASSERT_TRUE(same_float(f.ref(x), f.lib(x)))
          << f.name << " of " << x << " (bits " << std::hex << to_bits(x) << std::dec << ") gave "
          << f.lib(x) << ", expected " << f.ref(x);
}

// How close each form comes to the true function: the accurate forms within
// a unit or two in the last place over the whole range of f32 results, the
// fast one within 2.5 per cent, the superfast ones within 6 per cent.
TEST(ExpLnFunctions, ErrorBoundsAgainstTheTrueFunctions) {
  double worst[5] = {0, 0, 0, 0, 0};
  for (float x = -87.0f; x <= 88.0f; x += 0.0078125f) {
    const double t = std::exp((double)x);
    worst[0] = std::fmax(worst[0], std::fabs(_T_sorna__exp_fast_acc(x) - t) / t);
    if (x > -80.0f && x < 80.0f)
      worst[1] = std::fmax(worst[1], std::fabs(_T_sorna__exp_fast(x) - t) / t);
    if (x > -87.0f && x < 88.0f)
      worst[2] = std::fmax(worst[2], std::fabs(_T_sorna__exp_superfast(x) - t) / t);
  }
  for (uint32_t b = 0x00800000u; b < 0x7f800000u; b += 4099) {
    const float x = from_bits(b);
    const double t = std::log((double)x);
    const double scale = std::fmax(1.0, std::fabs(t));
    worst[3] = std::fmax(worst[3], std::fabs(_T_sorna__ln_fast_acc(x) - t) / scale);
    worst[4] = std::fmax(worst[4], std::fabs(_T_sorna__ln_superfast(x) - t) / scale);
  }
  std::printf("worst relative errors: exp %.3g, fast %.3g, superfast %.3g; ln %.3g, superfast %.3g\n",
              worst[0], worst[1], worst[2], worst[3], worst[4]);
  EXPECT_LT(worst[0], 2e-7);
  EXPECT_LT(worst[1], 2.5e-2);
  EXPECT_LT(worst[2], 6e-2);
  EXPECT_LT(worst[3], 2e-7);
  EXPECT_LT(worst[4], 6e-2);
}

// --- exp, ln and the sigmoid through the entries ----------------------------

// An f32 image of the sweep's values, with a padded row and a region inside.
struct FloatImages {
  Image a{4, 40, 1, SORN_F32, 8}, d{4, 40, 1, SORN_F32, 4, 0x6d};
  std::vector<uint8_t> before;
  explicit FloatImages(std::mt19937_64 &rng) {
    const std::vector<float> xs = float_sweep();
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < 40; ++x) a.set(y, x, 0, xs[rng() % xs.size()]);
    a.set(0, 0, 0, 100.0f);
    a.set(0, 1, 0, -100.0f);
    before = d.bytes_copy();
  }
  // Runs fn over the region rows 1..2, columns 3..36, checking every
  // element against ref and everything else against its old bytes.
  template <class Entry, class Ref> void check(Entry entry, Ref ref) {
    SornArray rd = d.record(), ra = a.record();
    const SornVolume roi = make_roi(1, 3, 2, 34, 1);
    ASSERT_EQ(entry(&rd, &ra, &roi), SORN_OK);
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < 40; ++x) {
        const bool inside = y >= 1 && y < 3 && x >= 3 && x < 37;
        const float g = (float)d.get(y, x);
        if (!inside) {
          const size_t off = (size_t)y * d.rowstride() + (size_t)x * 4;
          ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, 4)) << y << "," << x;
        } else {
          const float v = (float)a.get(y - 1, x - 3);  // the source starts at its origin
          ASSERT_TRUE(same_float(ref(v), g)) << "of " << v << " gave " << g << ", expected " << ref(v);
        }
      }
    check_rows_padding(d, before);
  }
};

TEST(Exp, FlagsChooseTheForm) {
  auto rng = sorn_test::seeded_rng(0x0e62);
  struct Case {
    SornFlags flags;
    float (*ref)(float);
  };
  const Case cases[] = {
      {0, &ref_exp_acc},
      {SORN_F_EXP_ACCURATE, &ref_exp_acc},
      {SORN_F_EXP_FAST, &ref_exp_fast},
      {SORN_F_EXP_SUPERFAST, [](float x) { return ref_exp_superfast(x); }},
      {SORN_F_EXP_ACCURATE | SORN_F_EXP_SUPERFAST, &ref_exp_acc},
      {SORN_F_EXP_FAST | SORN_F_EXP_SUPERFAST, &ref_exp_fast},
  };
  for (const Case &c : cases) {
    FloatImages im(rng);
    im.check([&](SornArray *d, SornArray *a, const SornVolume *roi) {
      return SornExp(nullptr, c.flags, d, a, roi, nullptr, 0, 0);
    }, c.ref);
    if (HasFatalFailure()) return;
  }
}

TEST(Exp, AccurateFormSaturatesToInfinityAndZero) {
  Image a(1, 3, 1, SORN_F32), d(1, 3, 1, SORN_F32);
  a.set(0, 0, 0, 100);
  a.set(0, 1, 0, -100);
  a.set(0, 2, 0, 0);
  SornArray rd = d.record(), ra = a.record();
  ASSERT_EQ(SornExp(nullptr, 0, &rd, &ra, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), INFINITY);
  EXPECT_EQ(d.get(0, 1), 0.0);
  EXPECT_EQ(d.get(0, 2), 1.0);
}

TEST(Ln, FlagsChooseTheForm) {
  auto rng = sorn_test::seeded_rng(0x0e63);
  struct Case {
    SornFlags flags;
    float (*ref)(float);
  };
  const Case cases[] = {
      {0, &ref_ln_acc},
      {SORN_F_EXP_SUPERFAST, &ref_ln_superfast},
      {SORN_F_EXP_SUPERFAST | SORN_F_EXP_ACCURATE, &ref_ln_acc},
      {SORN_F_EXP_SUPERFAST | SORN_F_EXP_FAST, &ref_ln_acc},
      {SORN_F_EXP_FAST, &ref_ln_acc},
  };
  for (const Case &c : cases) {
    FloatImages im(rng);
    im.check([&](SornArray *d, SornArray *a, const SornVolume *roi) {
      return SornLn(nullptr, c.flags, d, a, roi, nullptr, 0, 0);
    }, c.ref);
    if (HasFatalFailure()) return;
  }
}

TEST(Ln, ZeroAndNegativeValuesGiveMinusInfinityInBothForms) {
  Image a(1, 4, 1, SORN_F32), d(1, 4, 1, SORN_F32);
  const float v[4] = {0.0f, -0.0f, -1.0f, -1e30f};
  for (int32_t x = 0; x < 4; ++x) a.set(0, x, 0, v[x]);
  SornArray rd = d.record(), ra = a.record();
  for (SornFlags f : {SornFlags{0}, SornFlags{SORN_F_EXP_SUPERFAST}}) {
    ASSERT_EQ(SornLn(nullptr, f, &rd, &ra, nullptr, nullptr, 0, 0), SORN_OK);
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(d.get(0, x), -INFINITY) << v[x];
  }
}

TEST(ExpLn, ChannelsFoldAndInPlaceWorks) {
  Image d(3, 5, 3, SORN_F32, 12, 0x21);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int32_t c = 0; c < 3; ++c) d.set(y, x, c, 0.25 * (y - x + c));
  const Image orig = d;
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record();
  ASSERT_EQ(SornExp(nullptr, 0, &rd, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int32_t c = 0; c < 3; ++c)
        ASSERT_TRUE(same_float(ref_exp_acc((float)orig.get(y, x, c)), (float)d.get(y, x, c)));
  check_rows_padding(d, before);
}

float sigmoid_ref(SornFlags flags, float alpha_x) {
  if (flags & SORN_F_EXP_ACCURATE) return 1.0f / (ref_exp_acc(alpha_x) + 1.0f);
  if (flags & SORN_F_EXP_FAST) return 1.0f / (ref_exp_fast(alpha_x) + 1.0f);
  if (flags & SORN_F_EXP_SUPERFAST) return 1.0f / (ref_exp_superfast(alpha_x, -12102203.0f) + 1.0f);
  return 1.0f / (ref_exp_acc(alpha_x) + 1.0f);
}

TEST(SigmoidAlpha, EverySlopeClassAndForm) {
  auto rng = sorn_test::seeded_rng(0x0e64);
  for (SornFlags flags : {SornFlags{0}, SornFlags{SORN_F_EXP_ACCURATE}, SornFlags{SORN_F_EXP_FAST},
                          SornFlags{SORN_F_EXP_SUPERFAST}})
    for (double slope : {1.0, 1.0 + 1e-8, -1.0, -1.0 + 1e-8, 2.5, -0.75, 1e-3}) {
      FloatImages im(rng);
      const double s[4] = {slope, slope, slope, slope};
      // A slope within the tolerance of 1 or -1 is exactly 1 or -1.
      const float alpha = std::fabs(slope - 1.0) <= 1.1920928955078125e-7    ? 1.0f
                          : std::fabs(slope + 1.0) <= 1.1920928955078125e-7 ? -1.0f
                                                                             : (float)slope;
      im.check([&](SornArray *d, SornArray *a, const SornVolume *roi) {
        return SornSigmoidAlpha(nullptr, flags, d, a, s, roi, nullptr, 0, 0);
      }, [&](float x) { return sigmoid_ref(flags, alpha == 1.0f ? x : alpha == -1.0f ? -x : alpha * x); });
      if (HasFatalFailure()) return;
    }
}

TEST(SigmoidAlpha, SuperfastFormRisesWhereTheOthersFall) {
  Image a(1, 2, 1, SORN_F32), d(1, 2, 1, SORN_F32);
  a.set(0, 0, 0, -4);
  a.set(0, 1, 0, 4);
  SornArray rd = d.record(), ra = a.record();
  const double one[1] = {1};
  ASSERT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, one, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_GT(d.get(0, 0), d.get(0, 1));
  ASSERT_EQ(SornSigmoidAlpha(nullptr, SORN_F_EXP_SUPERFAST, &rd, &ra, one, nullptr, nullptr, 0, 0),
            SORN_OK);
  EXPECT_LT(d.get(0, 0), d.get(0, 1));
}

TEST(SigmoidAlpha, ZeroSlopesFillTheRegionWithoutReadingTheSource) {
  // The source is all NaN: a read would show.
  Image a(5, 6, 2, SORN_F32, 0), d(5, 6, 2, SORN_F32, 4, 0x44);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 6; ++x)
      for (int32_t c = 0; c < 2; ++c) a.set(y, x, c, NAN);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record();
  const SornVolume roi = make_roi(1, 1, 3, 4, 2);
  const double zero[2] = {0.0, -1e-8};
  ASSERT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, zero, &roi, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 6; ++x)
      for (int32_t c = 0; c < 2; ++c) {
        const bool inside = y >= 1 && y < 4 && x >= 1 && x < 5;
        const size_t off = (size_t)y * d.rowstride() + ((size_t)x * 2 + c) * 4;
        if (inside)
          EXPECT_EQ(d.get(y, x, c), 0.5);
        else
          EXPECT_EQ(0, std::memcmp(d.base() + off, before.data() + off, 4));
      }
  EXPECT_TRUE(d.guards_intact());
  // Integer destinations take 1, whatever the source type.
  Image du(2, 2, 1, SORN_S16, 0), au(2, 2, 1, SORN_U8);
  SornArray rdu = du.record(), rau = au.record();
  ASSERT_EQ(SornSigmoidAlpha(nullptr, 0, &rdu, &rau, zero, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(du.get(1, 1), 1);
}

TEST(SigmoidAlpha, DifferentSlopesPerChannelAreNotSupported) {
  Image a(2, 3, 2, SORN_F32), d(2, 3, 2, SORN_F32, 0, 0x19);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record();
  const double s[2] = {1, 2};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, s, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(d.bytes_copy(), before);
  // Slopes -1 and 3: only the first slope decides the -1 form.
  const double s2[2] = {-1, 3};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, s2, nullptr, nullptr, 0, 0), SORN_OK);
  // Equal slopes on two channels run.
  const double s3[2] = {0.5, 0.5 + 1e-9};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, s3, nullptr, nullptr, 0, 0), SORN_OK);
}

TEST(SigmoidAlpha, NonFloatImagesAreNotSupportedAndANullSlopeVectorIsInvalid) {
  Image a(2, 3, 1, SORN_S16), d(2, 3, 1, SORN_F32, 0, 0x19);
  SornArray rd = d.record(), ra = a.record();
  const double s[1] = {2};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, s, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  const double one[1] = {1};
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, one, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornSigmoidAlpha(nullptr, 0, &rd, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
}

}  // namespace

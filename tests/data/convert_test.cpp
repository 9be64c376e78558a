// Conversion between element types: the plain saturating conversion, the
// map of one value range onto another, and the map by scale and offset, at
// the entries, against plain per-element rules written here; the worked
// examples; the failures in their order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_roi;

namespace {

const uint32_t kTypes[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};

double type_lo(uint32_t t) {
  switch (t) {
    case SORN_U8: return 0;
    case SORN_S16: return -32768;
    case SORN_S32: return -2147483648.0;
    default: return -3.4028234663852886e38;
  }
}
double type_hi(uint32_t t) {
  switch (t) {
    case SORN_U8: return 255;
    case SORN_S16: return 32767;
    case SORN_S32: return 2147483647.0;
    default: return 3.4028234663852886e38;
  }
}

// A float to 32 bits as the processor converts: nearest, ties to even, and
// 0x80000000 for what does not fit.
int64_t to_i32(double v) {
  const double r = std::nearbyint(v);
  if (!(r >= -2147483648.0 && r < 2147483648.0)) return INT32_MIN;
  return (int64_t)r;
}

// The plain conversion of a value of type s into type d.
double ref_t(uint32_t d, uint32_t s, double v) {
  if (d == SORN_F32) return (double)(float)v;
  const int64_t i = s == SORN_F32 ? to_i32(v) : (int64_t)v;
  if (d == SORN_S32) return (double)i;
  return std::clamp((double)i, type_lo(d), type_hi(d));
}

// A double narrowed to the nearest float, through memory, as the
// measurement stores its extremes.
double as_float(double v) {
  volatile float f = (float)v;
  return (double)f;
}

bool same(uint32_t t, double want, double got) {
  if (t == SORN_F32 && std::isnan(want)) return std::isnan(got);
  return want == got;
}

// The range map of one element, by the rules of the two kinds of kernel.
struct RefMap {
  uint32_t d, s;
  SornVrng dr, sr;   // the channel's ranges
  SornVrng dall, sall;  // every channel's, for the span test (one range for all here)
  double operator()(double x) const {
    if (d == SORN_F32 || s == SORN_F32) {
      const double a = (dr.hi - dr.lo) / (sr.hi - sr.lo);
      const double b = dr.lo - sr.lo * a;
      const double v = x * a + b;
      if (d == SORN_F32) return (double)(float)v;
      const int64_t i = to_i32(v);
      return d == SORN_S32 ? (double)i : std::clamp((double)i, type_lo(d), type_hi(d));
    }
    auto fits = [](const SornVrng &r, int bits) {
      return std::fabs(r.hi - r.lo) <= std::ldexp(1.0, bits) - 1;
    };
    int k;
    uint64_t r;
    bool wide = true;
    if (fits(sall, 8)) {
      if (fits(dall, 8)) k = 23, r = 0x400000, wide = false;
      else if (fits(dall, 16)) k = 16, r = 0x8000, wide = false;
      else k = 32, r = (uint64_t)0 - 0x80000000ull;
    } else if (fits(sall, 16) || !fits(dall, 16)) {
      k = 32, r = (uint64_t)0 - 0x80000000ull;
    } else if (!fits(dall, 8)) {
      k = 48, r = 1ull << 47;
    } else if (fits(sall, 31)) {
      k = 39, r = 1ull << 38;
    } else {
      k = 40, r = 1ull << 39;
    }
    auto end = [](uint32_t t, double v) {
      return (int64_t)std::clamp(std::nearbyint(v), type_lo(t), type_hi(t));
    };
    const int64_t dl = end(d, dr.lo), dh = end(d, dr.hi), sl = end(s, sr.lo), sh = end(s, sr.hi);
    double f = std::nearbyint(std::ldexp((double)(dh - dl), k) / (double)(sh - sl));
    if (!(f > 0) || f >= 0x1p64) f = 0;
    const uint64_t fu = (uint64_t)f;
    uint64_t q;
    if (wide) {
      q = ((uint64_t)((int64_t)x - sl) * fu + r) >> k;
    } else {
      q = (uint32_t)((uint32_t)((int64_t)x - sl) * (uint32_t)fu + (uint32_t)r) >> k;
    }
    const uint64_t v = q + (uint64_t)dl;
    switch (d) {
      case SORN_U8: return (uint8_t)v;
      case SORN_S16: return (int16_t)(uint16_t)v;
      default: return (int32_t)(uint32_t)v;
    }
  }
};

void fill_image(std::mt19937_64 &rng, Image &im, double lo, double hi) {
  std::uniform_real_distribution<double> u(lo, hi);
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c) {
        double v = u(rng);
        if (im.type() != SORN_F32) v = std::floor(v);
        im.set(y, x, c, v);
      }
}

// Checks every element of dst: inside the region want(y, x, c) of the
// source element below it, outside it the bytes before.
template <class F>
void expect_region(const Image &d, const std::vector<uint8_t> &before, const SornVolume &dr,
                   F want, const char *what) {
  for (int32_t y = 0; y < d.rows(); ++y)
    for (int32_t x = 0; x < d.cols(); ++x)
      for (int32_t c = 0; c < d.channels(); ++c) {
        const bool in = y >= dr.origin[1] && y < dr.origin[1] + dr.size[1] && x >= dr.origin[2] &&
                        x < dr.origin[2] + dr.size[2];
        if (!in) {
          const size_t off = (size_t)y * d.rowstride() + ((size_t)x * d.channels() + c) * d.esize();
          ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize())) << what;
          continue;
        }
        const double w = want(y - dr.origin[1], x - dr.origin[2], c);
        ASSERT_TRUE(same(d.type(), w, d.get(y, x, c)))
            << what << " at " << y << "," << x << "," << c << ": got " << d.get(y, x, c)
            << ", expected " << w;
      }
  ASSERT_TRUE(d.guards_intact()) << what;
}

// --- the plain conversion ---------------------------------------------------

TEST(ConvertT, EveryPairWithRoisPaddingAndChannels) {
  auto rng = sorn_test::seeded_rng(0xc0e1);
  sorn_test::ScratchEnv env;
  const double ones[4] = {1, 1, 1, 1};
  const double none[4] = {NAN, NAN, NAN, NAN};
  for (uint32_t dt : kTypes)
    for (uint32_t st : kTypes)
      for (int32_t ch = 1; ch <= 4; ++ch)
        for (int round = 0; round < 3; ++round) {
          Image s(7, 9, ch, st, 8);
          for (int32_t y = 0; y < s.rows(); ++y)
            for (int32_t x = 0; x < s.cols(); ++x)
              for (int32_t c = 0; c < ch; ++c) s.set(y, x, c, sorn_test::random_value(rng, st, true));
          Image d(8, 11, ch, dt, 4, 0x5a);
          const std::vector<uint8_t> before = d.bytes_copy();
          const SornVolume dr = make_roi(1, 2, 6, 8, ch), sr = make_roi(1, 1, 6, 8, ch);
          SornArray rd = d.record(), rs = s.record();
          // A scale of 1 and no offset, or no ranges at all: the plain
          // conversion, nothing measured.
          const SornStatus status =
              round == 0 ? SornVConvert(env.xe(), 0, &rd, &rs, &dr, &sr, nullptr, nullptr)
                         : SornConvert(env.xe(), 0, &rd, &rs, &dr, &sr, ones, none, nullptr);
          ASSERT_EQ(status, SORN_OK);
          ASSERT_TRUE(env.at_mark());
          expect_region(d, before, dr,
                        [&](int32_t y, int32_t x, int32_t c) {
                          return ref_t(dt, st, s.get(y + 1, x + 1, c));
                        },
                        sorn_test::type_name(dt));
        }
}

TEST(ConvertT, EverySourceValueOfU8AndS16) {
  sorn_test::ScratchEnv env;
  for (uint32_t st : {SORN_U8, SORN_S16}) {
    const int32_t count = st == SORN_U8 ? 256 : 65536;
    Image s(1, count, 1, st);
    for (int32_t i = 0; i < count; ++i) s.set(0, i, 0, st == SORN_U8 ? i : i - 32768);
    for (uint32_t dt : kTypes) {
      Image d(1, count, 1, dt, 0, 0x11);
      SornArray rd = d.record(), rs = s.record();
      ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr), SORN_OK);
      for (int32_t i = 0; i < count; ++i)
        ASSERT_EQ(d.get(0, i), ref_t(dt, st, s.get(0, i))) << i;
    }
  }
}

TEST(ConvertT, FloatsRoundToEvenAndWhatDoesNotFitIsTheLeastS32) {
  sorn_test::ScratchEnv env;
  std::vector<double> v = {0.5, 1.5, 2.5, -0.5, -1.5, -2.5, 254.5, 255.5, 255.49, -0.49, 32766.5,
                           32767.5, -32767.5, -32768.5, -32769, 1e10, -1e10, NAN, INFINITY,
                           -INFINITY, 2147483520.0, 2147483648.0, -2147483648.0, 3.4e38, -3.4e38};
  for (double x = -300; x <= 300; x += 0.25) v.push_back(x);
  Image s(1, (int32_t)v.size(), 1, SORN_F32);
  for (size_t i = 0; i < v.size(); ++i) s.set(0, (int32_t)i, 0, v[i]);
  for (uint32_t dt : kTypes) {
    Image d(1, (int32_t)v.size(), 1, dt);
    SornArray rd = d.record(), rs = s.record();
    ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr), SORN_OK);
    for (size_t i = 0; i < v.size(); ++i)
      ASSERT_TRUE(same(dt, ref_t(dt, SORN_F32, (float)v[i]), d.get(0, (int32_t)i)))
          << sorn_test::type_name(dt) << " from " << v[i] << " got " << d.get(0, (int32_t)i);
  }
  // 1e10 is past 32 bits: 0 in u8, -32768 in s16.
  Image s1(1, 1, 1, SORN_F32), d8(1, 1, 1, SORN_U8, 0, 7), d16(1, 1, 1, SORN_S16);
  s1.set(0, 0, 0, 1e10);
  SornArray r1 = s1.record(), r8 = d8.record(), r16 = d16.record();
  ASSERT_EQ(SornVConvert(env.xe(), 0, &r8, &r1, nullptr, nullptr, nullptr, nullptr), SORN_OK);
  ASSERT_EQ(SornVConvert(env.xe(), 0, &r16, &r1, nullptr, nullptr, nullptr, nullptr), SORN_OK);
  EXPECT_EQ(d8.get(0, 0), 0);
  EXPECT_EQ(d16.get(0, 0), -32768);
}

// The conversion rounds as the processor does in its current rounding mode:
// in each of the four, every float of a sweep, halves and values past the
// ends included, lands where the mode rounds it and then saturates.
TEST(ConvertT, FloatsRoundInTheCurrentRoundingMode) {
  sorn_test::ScratchEnv env;
  std::vector<double> v = {0.5,    -0.5,      0.49,     -0.49, 254.5,      255.5,       255.49,
                           -0.999, 32766.5,   32767.5,  -32768.5, 65535.5, 1e10,     -1e10,
                           NAN,    INFINITY,  -INFINITY, 2147483520.0, 2147483648.0, -2147483648.0};
  for (double x = -300; x <= 300; x += 0.125) v.push_back(x);
  Image s(1, (int32_t)v.size(), 1, SORN_F32);
  for (size_t i = 0; i < v.size(); ++i) s.set(0, (int32_t)i, 0, v[i]);
  const int modes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
  const char *names[] = {"to nearest", "downward", "upward", "toward zero"};
  for (int m = 0; m < 4; ++m) {
    for (uint32_t dt : {SORN_U8, SORN_S16, SORN_S32}) {
      Image d(1, (int32_t)v.size(), 1, dt);
      SornArray rd = d.record(), rs = s.record();
      ASSERT_EQ(std::fesetround(modes[m]), 0);
      const SornStatus st = SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr);
      std::vector<double> want(v.size());
      for (size_t i = 0; i < v.size(); ++i) want[i] = ref_t(dt, SORN_F32, (float)v[i]);
      std::fesetround(FE_TONEAREST);
      ASSERT_EQ(st, SORN_OK);
      for (size_t i = 0; i < v.size(); ++i)
        ASSERT_TRUE(same(dt, want[i], d.get(0, (int32_t)i)))
            << names[m] << ", " << sorn_test::type_name(dt) << " from " << v[i] << " got "
            << d.get(0, (int32_t)i) << ", want " << want[i];
    }
  }
}

// --- the range map -------------------------------------------------------------

// Source values by span: narrow (8 bits), 16 bits, or the whole type.
void fill_span(std::mt19937_64 &rng, Image &s, int span) {
  const uint32_t t = s.type();
  double lo = type_lo(t), hi = type_hi(t);
  if (t == SORN_F32) lo = -1e6, hi = 1e6;
  if (span == 0) hi = std::min(hi, lo + 200);
  if (span == 1 && t != SORN_U8) lo = std::max(lo, -20000.0), hi = std::min(hi, 30000.0);
  fill_image(rng, s, lo, hi + (t == SORN_F32 ? 0 : 0.999));
}

TEST(ConvertV, EveryPairAndKernelRowAgainstThePlainMap) {
  auto rng = sorn_test::seeded_rng(0xc0e2);
  sorn_test::ScratchEnv env;
  int checked = 0;
  for (uint32_t dt : kTypes)
    for (uint32_t st : kTypes)
      for (int sspan = 0; sspan < 3; ++sspan)
        for (int dspan = 0; dspan < 3; ++dspan) {
          // Measuring takes 1, 3 or 4 channels.
          const int32_t ch = (int32_t[]){1, 3, 4}[rng() % 3];
          Image s(6, 10, ch, st, 4);
          fill_span(rng, s, sspan);
          Image d(7, 12, ch, dt, 8, 0x3c);
          const std::vector<uint8_t> before = d.bytes_copy();
          // The destination's range inside its type, of 8, 16 or more bits.
          double dl = type_lo(dt) == 0 ? 3 : -100;
          double dh = dl + (dspan == 0 ? 200 : dspan == 1 ? 40000 : 3e9);
          dh = std::min(dh, type_hi(dt));
          if (dt == SORN_F32) dl += 0.25;
          SornVrng drange[4];
          for (int32_t c = 0; c < ch; ++c) drange[c] = {dl, dh};
          const SornVolume dr = make_roi(1, 2, 5, 9, ch), sr = make_roi(1, 1, 5, 9, ch);
          SornArray rd = d.record(), rs = s.record();
          ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, &dr, &sr, drange, nullptr), SORN_OK);
          ASSERT_TRUE(env.at_mark());
          // The source is measured over the region, one range for all
          // channels.
          double lo = INFINITY, hi = -INFINITY;
          for (int32_t y = 1; y < 6; ++y)
            for (int32_t x = 1; x < 10; ++x)
              for (int32_t c = 0; c < ch; ++c) {
                lo = std::min(lo, s.get(y, x, c));
                hi = std::max(hi, s.get(y, x, c));
              }
          // The measurement gives its extremes as floats.
          lo = as_float(lo);
          hi = as_float(hi);
          // The destination's range stands, narrowed to a float for f32.
          const SornVrng srange{lo, hi}, want_d = drange[0];
          ASSERT_EQ(want_d.lo, dt == SORN_F32 ? (double)(float)dl : dl);
          ASSERT_EQ(want_d.hi, dt == SORN_F32 ? (double)(float)dh : dh);
          const bool equal = std::fabs(lo - dl) <= 1.1920929e-7 && std::fabs(hi - dh) <= 1.1920929e-7;
          RefMap m{dt, st, want_d, srange, want_d, srange};
          expect_region(d, before, dr,
                        [&](int32_t y, int32_t x, int32_t c) {
                          const double v = s.get(y + 1, x + 1, c);
                          return equal ? ref_t(dt, st, v) : m(v);
                        },
                        (std::string(sorn_test::type_name(dt)) + sorn_test::type_name(st) + " spans " +
                         std::to_string(sspan) + std::to_string(dspan) + " src " + std::to_string(lo) +
                         ".." + std::to_string(hi) + " ch " + std::to_string(ch))
                            .c_str());
          ++checked;
        }
  EXPECT_EQ(checked, 144);
}

TEST(ConvertV, EqualRangesAreThePlainConversion) {
  sorn_test::ScratchEnv env;
  Image s(2, 4, 1, SORN_U8), d(2, 4, 1, SORN_S16);
  for (int32_t x = 0; x < 4; ++x) s.set(0, x, 0, 60 * x + 7);
  SornArray rd = d.record(), rs = s.record();
  SornVrng from{0, 255}, to{0, 255};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, &to, &from), SORN_OK);
  for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(d.get(0, x), 60 * x + 7);
}

TEST(ConvertV, U8TenToTwentyOntoZeroToHundredIsFixedPointAtK23) {
  sorn_test::ScratchEnv env;
  Image s(1, 11, 1, SORN_U8), d(1, 11, 1, SORN_U8);
  for (int32_t x = 0; x < 11; ++x) s.set(0, x, 0, 10 + x);
  SornArray rd = d.record(), rs = s.record();
  SornVrng to{0, 100};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, &to, nullptr), SORN_OK);
  const uint32_t f = (uint32_t)std::nearbyint(std::ldexp(100.0, 23) / 10.0);
  for (int32_t x = 0; x < 11; ++x)
    EXPECT_EQ(d.get(0, x), (((uint32_t)x * f + 0x400000u) >> 23) + 0) << x;
}

TEST(ConvertV, AFlatSourceFillsWithTheLowEnd) {
  sorn_test::ScratchEnv env;
  Image s(3, 4, 3, SORN_S16, 0), d(3, 4, 3, SORN_F32, 4, 0x77);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x)
      for (int32_t c = 0; c < 3; ++c) s.set(y, x, c, 42);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), rs = s.record();
  SornVrng to[3] = {{-1.5, 9}, {-1.5, 9}, {-1.5, 9}};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, to, nullptr), SORN_OK);
  expect_region(d, before, make_roi(0, 0, 3, 4, 3), [](int32_t, int32_t, int32_t) { return -1.5; },
                "flat");
  // A destination range without span fills too, whatever the source.
  s.set(1, 1, 0, 1000);
  SornVrng point[3] = {{7, 7}, {7, 7}, {7, 7}};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, point, nullptr), SORN_OK);
  expect_region(d, before, make_roi(0, 0, 3, 4, 3), [](int32_t, int32_t, int32_t) { return 7.0; },
                "flat destination");
}

TEST(ConvertV, S16SpanOfAThousandMapsItsBottomOneBelowDLow) {
  sorn_test::ScratchEnv env;
  Image s(1, 3, 1, SORN_S16), d(1, 3, 1, SORN_S16);
  s.set(0, 0, 0, -500);
  s.set(0, 1, 0, 0);
  s.set(0, 2, 0, 500);
  SornArray rd = d.record(), rs = s.record();
  SornVrng to{100, 1100};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, &to, nullptr), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 99) << "the rounding term of k 32 is minus 2^31";
  EXPECT_EQ(d.get(0, 2), 1099);
}

TEST(ConvertV, TheDestinationRangeIsCompletedInPlace) {
  sorn_test::ScratchEnv env;
  Image s(1, 3, 3, SORN_U8), d(1, 3, 3, SORN_U8);
  for (int32_t x = 0; x < 3; ++x)
    for (int32_t c = 0; c < 3; ++c) s.set(0, x, c, 10 * x + c);
  SornArray rd = d.record(), rs = s.record();
  SornVrng to[3] = {{0, 100}, {50, 200}, {0, 255}};
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, to, nullptr), SORN_OK);
  for (int32_t c = 1; c < 3; ++c) {
    EXPECT_EQ(to[c].lo, to[0].lo) << "one range for every channel";
    EXPECT_EQ(to[c].hi, to[0].hi);
  }
}

// --- the scale-and-offset map -----------------------------------------------

TEST(ConvertE, NoScaleNoOffsetNoRangeMovesTheMinimumToZero) {
  sorn_test::ScratchEnv env;
  Image s(2, 3, 1, SORN_S16), d(2, 3, 1, SORN_S16);
  const int v[6] = {-300, -200, 0, 100, 200, 700};
  for (int i = 0; i < 6; ++i) s.set(i / 3, i % 3, 0, v[i]);
  SornArray rd = d.record(), rs = s.record();
  ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr, nullptr),
            SORN_OK);
  const RefMap m{SORN_S16, SORN_S16, {0, 1000}, {-300, 700}, {0, 1000}, {-300, 700}};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(d.get(i / 3, i % 3), m(v[i])) << v[i];
  EXPECT_EQ(d.get(0, 0), -1) << "k 32 puts the bottom one below 0";
}

TEST(ConvertE, ScaleOneAndNaNOffsetIsThePlainConversion) {
  sorn_test::ScratchEnv env;
  Image s(1, 4, 1, SORN_F32), d(1, 4, 1, SORN_U8);
  const double v[4] = {-3.5, 2.5, 254.5, 1e10};
  for (int i = 0; i < 4; ++i) s.set(0, i, 0, v[i]);
  SornArray rd = d.record(), rs = s.record();
  const double one = 1.0, nan = NAN;
  ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, &one, &nan, nullptr), SORN_OK);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(d.get(0, i), ref_t(SORN_U8, SORN_F32, v[i])) << v[i];
}

TEST(ConvertE, ScaleAndOffsetAgainstThePlainMap) {
  auto rng = sorn_test::seeded_rng(0xc0e3);
  sorn_test::ScratchEnv env;
  for (uint32_t dt : kTypes)
    for (uint32_t st : kTypes)
      for (int round = 0; round < 4; ++round) {
        const int32_t ch = (int32_t[]){1, 3, 4, 1}[round];
        Image s(5, 6, ch, st, 4);
        fill_span(rng, s, round % 2);
        Image d(5, 6, ch, dt, 0, 0x21);
        const std::vector<uint8_t> before = d.bytes_copy();
        const double sc = round == 3 ? NAN : 0.5 + round, off = round == 2 ? INFINITY : 7;
        const double scale[4] = {sc, sc, sc, sc}, offset[4] = {off, off, off, off};
        SornArray rd = d.record(), rs = s.record();
        ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, scale, offset, nullptr),
                  SORN_OK);
        double lo = INFINITY, hi = -INFINITY;
        for (int32_t y = 0; y < 5; ++y)
          for (int32_t x = 0; x < 6; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              lo = std::min(lo, s.get(y, x, c));
              hi = std::max(hi, s.get(y, x, c));
            }
        lo = as_float(lo);
        hi = as_float(hi);
        // The destination range by the library's own scaling of ranges.
        SornVrng from[4], to[4];
        for (int32_t c = 0; c < ch; ++c) from[c] = {lo, hi};
        const double g = std::isnan(sc) ? 1.0 : sc, b = std::isfinite(off) ? off : 0.0;
        const double gv[4] = {g, g, g, g}, bv[4] = {b, b, b, b};
        ASSERT_EQ(sorn_vrng_scale_$cn$Q((SornElemType)dt, to, from, gv, bv, ch), SORN_OK);
        const bool equal = std::fabs(to[0].lo - lo) <= 1.1920929e-7 &&
                           std::fabs(to[0].hi - hi) <= 1.1920929e-7;
        const bool flat = std::fabs(lo - hi) <= 0x1p-23 || std::fabs(to[0].lo - to[0].hi) <= 0x1p-23;
        const RefMap m{dt, st, to[0], from[0], to[0], from[0]};
        expect_region(d, before, make_roi(0, 0, 5, 6, ch),
                      [&](int32_t y, int32_t x, int32_t c) {
                        const double v = s.get(y, x, c);
                        return equal ? ref_t(dt, st, v) : flat ? ref_t(dt, SORN_F32, to[0].lo) : m(v);
                      },
                      (std::string(sorn_test::type_name(dt)) + sorn_test::type_name(st) + " round " +
                       std::to_string(round) + " src " + std::to_string(lo) + ".." +
                       std::to_string(hi) + " to " + std::to_string(to[0].lo) + ".." +
                       std::to_string(to[0].hi))
                          .c_str());
      }
}

// --- channels whose maps differ ---------------------------------------------

// Scales that differ by channel give each channel its own map, which the
// constant form of multiply-accumulate applies: with the source measured
// as 0..100 in every channel, channel c maps onto 0..100 * scale[c], so
// its gain is scale[c] and its bias 0. On even values every product is
// exact, so the result is the plain product in every pair of types.
TEST(ConvertPerChannel, DifferentScalesMapEachChannelOnItsOwn) {
  sorn_test::ScratchEnv env;
  const double scale[4] = {1, 2, 0.5, 1.5};
  for (uint32_t dt : kTypes)
    for (uint32_t st : kTypes)
      for (int32_t ch = 3; ch <= 4; ++ch) {
        Image s(3, 5, ch, st, 4), d(3, 5, ch, dt, 8, 0x19);
        for (int32_t y = 0; y < 3; ++y)
          for (int32_t x = 0; x < 5; ++x)
            for (int32_t c = 0; c < ch; ++c) s.set(y, x, c, 2 * ((7 * y + 3 * x + c) % 51));
        s.set(0, 0, 0, 0);
        s.set(2, 4, ch - 1, 100);
        SornArray rd = d.record(), rs = s.record();
        const std::string what = std::string(sorn_test::type_name(dt)) +
                                 sorn_test::type_name(st) + " c" + std::to_string(ch);
        ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, scale, nullptr, nullptr),
                  SORN_OK)
            << what;
        for (int32_t y = 0; y < 3; ++y)
          for (int32_t x = 0; x < 5; ++x)
            for (int32_t c = 0; c < ch; ++c)
              ASSERT_EQ(d.get(y, x, c), s.get(y, x, c) * scale[c])
                  << what << " at " << y << "," << x << "," << c;
        EXPECT_TRUE(d.guards_intact()) << what;
        EXPECT_TRUE(env.at_mark()) << what;
      }
}

// The same maps give what multiply-accumulate gives with the gains and
// biases of the ranges, rounding and saturation included, on values that
// round: random sources, scales and offsets, every pair of types.
TEST(ConvertPerChannel, RoundsAndSaturatesAsMultiplyAccumulate) {
  sorn_test::ScratchEnv env;
  std::mt19937 rng(20261124);
  std::printf("seed 20261124\n");
  std::uniform_real_distribution<double> pick(0.0, 1.0);
  for (uint32_t dt : kTypes)
    for (uint32_t st : kTypes)
      for (int round = 0; round < 6; ++round) {
        const int32_t ch = 3 + round % 2;
        Image s(4, 7, ch, st, 4), d(4, 7, ch, dt, 4, 0x5a), want(4, 7, ch, dt, 4, 0x5a);
        for (int32_t y = 0; y < 4; ++y)
          for (int32_t x = 0; x < 7; ++x)
            for (int32_t c = 0; c < ch; ++c) s.set(y, x, c, 3 + std::floor(pick(rng) * 90));
        s.set(0, 0, 0, 3);
        s.set(3, 6, 0, 93);
        double scale[4], offset[4];
        for (int32_t c = 0; c < ch; ++c) {
          scale[c] = 0.25 + std::floor(pick(rng) * 12) * 0.125;
          offset[c] = std::floor(pick(rng) * 20);
        }
        scale[1] = scale[0] + 0.5;
        // The source range is measured over all channels: 3..93. Channel c
        // maps onto offset .. 90 * scale + offset, which fits every type.
        double gains[4], biases[4];
        for (int32_t c = 0; c < ch; ++c) {
          gains[c] = scale[c];
          biases[c] = offset[c] - gains[c] * 3;
        }
        SornArray rd = d.record(), rs = s.record(), rw = want.record();
        const std::string what = std::string(sorn_test::type_name(dt)) +
                                 sorn_test::type_name(st) + " round " + std::to_string(round);
        ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, scale, offset, nullptr),
                  SORN_OK)
            << what;
        ASSERT_EQ(SornMulAddCC(env.xe(), 0, &rw, &rs, gains, biases, nullptr, nullptr, 0, 0),
                  SORN_OK)
            << what;
        EXPECT_EQ(d.bytes_copy(), want.bytes_copy()) << what;
        EXPECT_TRUE(env.at_mark()) << what;
      }
}

// A constant image has an empty source range: every channel keeps gain 1
// and is moved onto its own low, not flattened by a zero gain.
TEST(ConvertPerChannel, AnEmptySourceRangeShiftsTheChannel) {
  sorn_test::ScratchEnv env;
  Image s(2, 3, 3, SORN_U8, 0, 7), d(2, 3, 3, SORN_S16, 2, 0x19);
  const double offset[3] = {10, 20, 30};
  SornArray rd = d.record(), rs = s.record();
  ASSERT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, offset, nullptr),
            SORN_OK);
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 3; ++x)
      for (int32_t c = 0; c < 3; ++c) EXPECT_EQ(d.get(y, x, c), offset[c]);
  EXPECT_TRUE(d.guards_intact());
}

// The v dispatcher completes the caller's destination ranges and then
// gives all channels their common span, in place: two channels asked for
// 0..255 and 0..100 both become 0..255 and take the one-range map.
TEST(ConvertPerChannel, VConvertGivesEveryChannelOneDestinationRange) {
  sorn_test::ScratchEnv env;
  Image s(2, 4, 2, SORN_U8), d(2, 4, 2, SORN_U8, 0, 0x19), one(2, 4, 2, SORN_U8, 0, 0x19);
  for (int32_t x = 0; x < 4; ++x)
    for (int32_t c = 0; c < 2; ++c) {
      s.set(0, x, c, 10 + 20 * x + c);
      s.set(1, x, c, 15 + 20 * x);
    }
  // Two channels are not measured: the source range is given.
  const SornVrng from[2] = {{10, 80}, {10, 80}};
  SornVrng to[2] = {{0, 255}, {0, 100}}, same[2] = {{0, 255}, {0, 255}};
  SornArray rd = d.record(), rs = s.record(), r1 = one.record();
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, to, from), SORN_OK);
  ASSERT_EQ(SornVConvert(env.xe(), 0, &r1, &rs, nullptr, nullptr, same, from), SORN_OK);
  EXPECT_EQ(to[1].lo, 0);
  EXPECT_EQ(to[1].hi, 255);
  EXPECT_EQ(d.bytes_copy(), one.bytes_copy());
}

// --- failures, in their order ---------------------------------------------

TEST(ConvertFailures, InTheirOrder) {
  sorn_test::ScratchEnv env;
  Image a(3, 4, 2, SORN_U8), b(3, 4, 2, SORN_S16, 0, 0x44), c1(3, 4, 1, SORN_S16);
  Image w(3, 4, 2, SORN_U16), f64(3, 4, 2, SORN_F64);
  const std::vector<uint8_t> before = b.bytes_copy();
  SornArray ra = a.record(), rb = b.record(), rc = c1.record(), rw = w.record(), rf = f64.record();
  SornVrng to[2] = {{0, 9}, {0, 9}};
  // Records first: a null, a channel count that differs, a rank that
  // differs, an outermost extent that differs.
  EXPECT_EQ(SornConvert(env.xe(), 0, nullptr, &ra, nullptr, nullptr, nullptr, nullptr, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(SornVConvert(env.xe(), 0, &rb, nullptr, nullptr, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornConvert(env.xe(), 0, &rc, &ra, nullptr, nullptr, nullptr, nullptr, nullptr),
            SORN_EINVAL);
  std::vector<uint8_t> planes(2 * 3 * 4 * 2);
  SornArray r4 = sorn_test::make_record4(planes.data(), 2, 3, 4, 2, SORN_U8, 24, 8);
  EXPECT_EQ(SornVConvert(env.xe(), 0, &rb, &r4, nullptr, nullptr, nullptr, nullptr), SORN_EINVAL);
  SornArray r4b = sorn_test::make_record4(planes.data(), 1, 3, 4, 2, SORN_U8, 24, 8);
  std::vector<uint8_t> planes2(2 * 3 * 4 * 2);
  SornArray r4d = sorn_test::make_record4(planes2.data(), 2, 3, 4, 2, SORN_U8, 24, 8);
  EXPECT_EQ(SornVConvert(env.xe(), 0, &r4d, &r4b, nullptr, nullptr, nullptr, nullptr), SORN_EINVAL);
  // Then an empty region.
  const SornVolume empty = make_roi(0, 0, 0, 4, 2);
  EXPECT_EQ(SornVConvert(env.xe(), 0, &rb, &ra, &empty, nullptr, to, nullptr), SORN_ENOSPC);
  // Then pairs without kernels: u16, f64.
  EXPECT_EQ(SornVConvert(env.xe(), 0, &rb, &rw, nullptr, nullptr, to, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornConvert(env.xe(), 0, &rf, &ra, nullptr, nullptr, nullptr, nullptr, nullptr),
            SORN_ENOTSUP);
  EXPECT_EQ(b.bytes_copy(), before);
  // Unknown codes are invalid at the lookups.
  SornStatus st = SORN_OK;
  (void)sorna__vcvtfun_imp(7, SORN_U8, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  (void)sorna__tcvtfun_imp(SORN_U8, SORN_S8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  EXPECT_TRUE(env.at_mark());
}

// The range of a two-channel image cannot be measured: that status comes
// back as it is, and nothing is written.
TEST(ConvertFailures, AMeasurementThatFailsComesBackUntouched) {
  sorn_test::ScratchEnv env;
  Image s(2, 3, 2, SORN_U8), d(2, 3, 2, SORN_U8, 0, 0x66);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), rs = s.record();
  SornVrng to[2] = {{0, 9}, {0, 9}};
  EXPECT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, to, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(d.bytes_copy(), before);
}

TEST(ConvertFrame, ARegionWhoseChannelsBeginInsideThePixelConvertsWholePixels) {
  // Channel 2 of three, and channels 2 and 3 of four: the conversion is a
  // copy that changes the type and moves whole pixels from the pixel's
  // start, in the plain, the mapped and the flat (filled) ways alike;
  // nothing past the region's last pixel changes, the row padding included.
  sorn_test::ScratchEnv env;
  const double scale[4] = {2, 2, 2, 2}, offset[4] = {1, 1, 1, 1};
  for (int32_t ch : {3, 4})
    for (int way = 0; way < 3; ++way) {
      Image s(3, 6, ch, SORN_U8, 3), d(3, 6, ch, SORN_F32, 8, 0x77);
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 6; ++x)
          for (int32_t c = 0; c < ch; ++c) s.set(y, x, c, way == 2 ? 9 : 10 * y + x + c);
      const std::vector<uint8_t> before = d.bytes_copy();
      SornArray rd = d.record(), rs = s.record();
      SornVolume roi = make_roi(1, 3, 2, 40, ch);
      roi.origin[3] = 2;
      const SornVolume at = make_roi(1, 3, 2, 3, ch);
      const SornStatus st =
          way == 0 ? SornVConvert(env.xe(), 0, &rd, &rs, &roi, &at, nullptr, nullptr)
                   : SornConvert(env.xe(), 0, &rd, &rs, &roi, &at, scale, offset, nullptr);
      ASSERT_EQ(st, SORN_OK) << ch << " way " << way;
      // The mapped way measures the region: its least value goes to 1.
      double low = 1e300;
      for (int32_t y = 1; y < 3; ++y)
        for (int32_t x = 3; x < 6; ++x)
          for (int32_t c = 0; c < ch; ++c) low = std::min(low, s.get(y, x, c));
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 6; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const bool in = y >= 1 && x >= 3;
            const double v = s.get(y, x, c);
            const double want = way == 0 ? v : way == 1 ? (v - low) * 2 + 1 : 1;
            if (in) {
              EXPECT_EQ(d.get(y, x, c), want) << ch << " way " << way << " at " << y << "," << x;
            }
          }
      const std::vector<uint8_t> after = d.bytes_copy();
      for (int32_t y = 0; y < 3; ++y)
        for (size_t b = 0; b < (size_t)d.rowstride(); ++b) {
          const size_t i = (size_t)y * d.rowstride() + b;
          const bool in = y >= 1 && b >= (size_t)3 * ch * 4 && b < (size_t)6 * ch * 4;
          if (!in) {
            EXPECT_EQ(after[i], before[i]) << ch << " way " << way << " byte " << i;
          }
        }
      EXPECT_TRUE(d.guards_intact());
      EXPECT_TRUE(env.at_mark());
    }
}

TEST(ConvertFrame, FourDimensionalArraysGoPlaneByPlane) {
  sorn_test::ScratchEnv env;
  std::vector<uint8_t> src(2 * 3 * 4);
  std::vector<float> dst(2 * 3 * 4, -1.0f);
  for (size_t i = 0; i < src.size(); ++i) src[i] = (uint8_t)(i * 11);
  SornArray rs = sorn_test::make_record4(src.data(), 2, 3, 4, 1, SORN_U8, 12, 4);
  SornArray rd = sorn_test::make_record4(dst.data(), 2, 3, 4, 1, SORN_F32, 48, 16);
  ASSERT_EQ(SornVConvert(env.xe(), 0, &rd, &rs, nullptr, nullptr, nullptr, nullptr), SORN_OK);
  for (size_t i = 0; i < src.size(); ++i) EXPECT_EQ(dst[i], (float)src[i]);
}

}  // namespace

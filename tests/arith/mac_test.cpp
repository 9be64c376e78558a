// Multiply-accumulate: dst = a + b * c, a - b * c, b * c - a, with c an
// array, one constant per channel (C), or with both factors constants
// (CC: a * c1 + c2, a * c1 - c2 and its negation). The entries' checks in
// their order, the behaviour the operation is known by, and every type
// combination of the kernel tables against a plain per-element reference
// written here, through regions with non-zero origins, padded rows and
// guarded buffers; the combinations without a kernel through the tiles,
// and the tiles without memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "alloc_failure.h"
#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_roi;

namespace {

using Arrays = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornArray *, const SornVolume *,
                              const SornVolume *, const SornVolume *, const SornVolume *, int32_t,
                              uint32_t);
using Constant = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornArray *, const double *, const SornVolume *,
                                const SornVolume *, const SornVolume *, int32_t, uint32_t);
using Constants = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const double *, const double *, const SornVolume *,
                                 const SornVolume *, int32_t, uint32_t);

// How the product joins the other operand, and whether the result is
// negated afterwards.
enum class Join { Add, Sub, Rev };

struct Family {
  const char *name;
  Arrays arrays;
  Constant constant;
  Constants constants;
  Join join;        // of the array and C forms
  Join cc_join;     // of the CC form
  bool negated;     // the reversed form: the difference, negated
};
const Family kFamilies[] = {
    {"MulAdd", &SornMulAdd, &SornMulAddC, &SornMulAddCC, Join::Add, Join::Add, false},
    {"MulSub", &SornMulSub, &SornMulSubC, &SornMulSubCC, Join::Sub, Join::Rev, false},
    {"MulRSub", &SornMulRSub, &SornMulRSubC, &SornMulRSubCC, Join::Sub, Join::Rev, true}};

/* ---------------- the reference ---------------- */

double lo_of(uint32_t t) { return t == SORN_U8 ? 0 : t == SORN_S16 ? -32768 : -2147483648.0; }
double hi_of(uint32_t t) { return t == SORN_U8 ? 255 : t == SORN_S16 ? 32767 : 2147483647.0; }
double clamp_to(uint32_t t, double v) { return v < lo_of(t) ? lo_of(t) : v > hi_of(t) ? hi_of(t) : v; }

double join_d(Join j, double x, double p) { return j == Join::Add ? x + p : j == Join::Sub ? x - p : p - x; }
float join_f(Join j, float x, float p) { return j == Join::Add ? x + p : j == Join::Sub ? x - p : p - x; }
int64_t join_i(Join j, int64_t x, int64_t p) { return j == Join::Add ? x + p : j == Join::Sub ? x - p : p - x; }

// A float into an integer destination: rounded to nearest-even; what does
// not fit 32 bits (NaN too) is the most negative s32, which a narrower
// destination then clamps.
double float_into(uint32_t d, double r) {
  const double q = std::nearbyint(r);
  const double i = (q >= -2147483648.0 && q < 2147483648.0) ? q : -2147483648.0;
  return d == SORN_S32 ? i : clamp_to(d, i);
}

// One element of x joined to b * c, with the types of destination, x, b, c.
double mac_reference(uint32_t d, uint32_t tx, uint32_t tb, uint32_t tc, double x, double b,
                     double c, Join j, int32_t sf) {
  const bool fx = tx == SORN_F32, fb = tb == SORN_F32, fc = tc == SORN_F32;
  const bool wide = tx == SORN_S32 || tb == SORN_S32 || tc == SORN_S32;
  if (fx || fb || fc) {
    if (wide) {
      const double p = (!fb && !fc) ? (double)((int64_t)b * (int64_t)c) : b * c;
      const double r = join_d(j, x, p);
      return d == SORN_F32 ? (double)(float)r : float_into(d, r);
    }
    const float r = join_f(j, (float)x, (float)b * (float)c);
    return d == SORN_F32 ? (double)r : float_into(d, r);
  }
  const int64_t s = join_i(j, (int64_t)x, (int64_t)b * (int64_t)c);
  if (d == SORN_F32) return (double)(float)s;
  if (sf == 0) return clamp_to(d, (double)s);
  if (sf > 0) {
    const int64_t v = (int64_t)((uint64_t)s << ((uint32_t)sf & 63u));
    return v < (int64_t)lo_of(d) ? lo_of(d) : v > (int64_t)hi_of(d) ? hi_of(d) : (double)v;
  }
  const float f = 1.0f / (float)(int32_t)(1u << ((0u - (uint32_t)sf) & 31u));
  if (wide) return clamp_to(d, std::nearbyint((double)s * (double)f));
  return clamp_to(d, std::nearbyint((double)((float)s * f)));
}

// The saturating negation of a destination element.
double negated(uint32_t d, double v) {
  if (d == SORN_F32) return (double)-(float)v;
  return clamp_to(d, -v);
}

bool same(uint32_t d, double want, double got) {
  if (d == SORN_F32 && std::isnan(want)) return std::isnan(got);
  return want == got;
}

/* ---------------- operands ---------------- */

// A value for an operand of type t; f32 also NaN and infinities now and
// then.
double operand_value(std::mt19937_64 &rng, uint32_t t) {
  if (t == SORN_F32 && rng() % 16 == 0) {
    static const double special[] = {NAN, INFINITY, -INFINITY, 0.0, -0.0};
    return special[rng() % 5];
  }
  return sorn_test::random_value(rng, t, true);
}

// A constant of the class cls: u8, s16 (one negative at least, as the
// caller asks), an integer beyond s16, or a fraction.
double constant_of(std::mt19937_64 &rng, uint32_t cls, bool force) {
  switch (cls) {
    case SORN_U8: return (double)(rng() % 256);
    case SORN_S16: return force ? -1.0 - (double)(rng() % 32767) : (double)(int16_t)rng();
    case SORN_S32: {
      const double v = 40000.0 + (double)(rng() % 16000000);
      return (rng() & 1) ? v : -v;
    }
    default: return (double)(int32_t)(rng() % 2001) - 1000.0 + 0.25 + 0.5 * (double)(rng() % 2);
  }
}

// What a constant of the C forms becomes in its block.
double as_stored(uint32_t t, double c) { return t == SORN_F32 ? (double)(float)c : c; }

struct Geometry {
  int32_t rows, cols, ch;
};

// An image of the operand with room around the region, padded rows, and
// random values everywhere.
Image random_image(std::mt19937_64 &rng, const Geometry &g, uint32_t t) {
  Image im(g.rows + 4, g.cols + 5, g.ch, t, 4 * (int32_t)(rng() % 3), 0x5c);
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < g.ch; ++c) im.set(y, x, c, operand_value(rng, t));
  return im;
}

// Destination elements: inside the region the expected values, outside it
// the bytes from before the call.
void expect_region(const Image &d, const std::vector<uint8_t> &before, int32_t oy, int32_t ox,
                   const Geometry &g, const std::function<double(int32_t, int32_t, int32_t)> &want,
                   const std::string &what) {
  int bad = 0;
  for (int32_t y = 0; y < d.rows(); ++y)
    for (int32_t x = 0; x < d.cols(); ++x)
      for (int32_t c = 0; c < g.ch; ++c) {
        const bool inside = y >= oy && y < oy + g.rows && x >= ox && x < ox + g.cols;
        if (!inside) continue;
        const double w = want(y - oy, x - ox, c), got = d.get(y, x, c);
        if (!same(d.type(), w, got) && bad++ < 3)
          ADD_FAILURE() << what << " at " << y - oy << "," << x - ox << "," << c << ": want " << w
                        << " got " << got;
      }
  // Outside the region and in the row padding nothing changed.
  const std::vector<uint8_t> after = d.bytes_copy();
  const size_t es = (size_t)d.esize();
  for (int32_t y = 0; y < d.rows(); ++y)
    for (size_t i = 0; i < (size_t)d.rowstride(); ++i) {
      const size_t col = i / (es * g.ch);
      const bool inside = y >= oy && y < oy + g.rows && (int32_t)col >= ox &&
                          (int32_t)col < ox + g.cols && i < (size_t)d.cols() * g.ch * es;
      if (!inside && after[y * d.rowstride() + i] != before[y * d.rowstride() + i]) {
        ADD_FAILURE() << what << ": byte written outside the region, row " << y << " byte " << i;
        return;
      }
    }
  EXPECT_TRUE(d.guards_intact()) << what;
}

std::string quad_name(const char *fam, uint32_t d, uint32_t a, uint32_t b, uint32_t c, int32_t sf,
                      int32_t ch) {
  char s[96];
  std::snprintf(s, sizeof s, "%s d%u a%u b%u c%u sf %d ch %d", fam, d, a, b, c, sf, ch);
  return s;
}

/* ---------------- one call of each form against the reference ---------------- */

void check_arrays(const Family &f, uint32_t td, uint32_t ta, uint32_t tb, uint32_t tc, int32_t sf,
                  std::mt19937_64 &rng, sorn_test::ScratchEnv &env) {
  const Geometry g{1 + (int32_t)(rng() % 13), 1 + (int32_t)(rng() % 23), 1 + (int32_t)(rng() % 4)};
  Image d = random_image(rng, g, td), a = random_image(rng, g, ta), b = random_image(rng, g, tb),
        c = random_image(rng, g, tc);
  const std::vector<uint8_t> before = d.bytes_copy();
  const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
  const SornVolume droi = make_roi(1, 2, g.rows, g.cols, g.ch), aroi = make_roi(3, 0, 1, 1, g.ch),
                   broi = make_roi(0, 4, 1, 1, g.ch), croi = make_roi(2, 1, g.rows, g.cols, g.ch);
  const std::string what = quad_name(f.name, td, ta, tb, tc, sf, g.ch);
  const SornStatus st =
      f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc, &droi, &aroi, &broi, &croi, sf, 0);
  EXPECT_TRUE(env.at_mark()) << what;
  if (f.negated && td == SORN_U8) {
    EXPECT_EQ(st, SORN_ENOTSUP) << what;
    EXPECT_EQ(d.bytes_copy(), before) << what;
    return;
  }
  ASSERT_EQ(st, SORN_OK) << what;
  expect_region(
      d, before, 1, 2, g,
      [&](int32_t y, int32_t x, int32_t ch) {
        const double v = mac_reference(td, ta, tb, tc, a.get(y + 3, x, ch), b.get(y, x + 4, ch),
                                       c.get(y + 2, x + 1, ch), f.join, sf);
        return f.negated ? negated(td, v) : v;
      },
      what);
}

void check_constant(const Family &f, uint32_t td, uint32_t ta, uint32_t tb, uint32_t tt, int32_t sf,
                    std::mt19937_64 &rng, sorn_test::ScratchEnv &env) {
  const Geometry g{1 + (int32_t)(rng() % 13), 1 + (int32_t)(rng() % 23), 1 + (int32_t)(rng() % 4)};
  Image d = random_image(rng, g, td), a = random_image(rng, g, ta), b = random_image(rng, g, tb);
  double cvec[4];
  for (int32_t k = 0; k < 4; ++k) cvec[k] = constant_of(rng, tt, k == 0);
  const std::vector<uint8_t> before = d.bytes_copy();
  const SornArray rd = d.record(), ra = a.record(), rb = b.record();
  const SornVolume droi = make_roi(2, 1, g.rows, g.cols, g.ch), aroi = make_roi(0, 3, 1, 1, g.ch),
                   broi = make_roi(1, 2, g.rows, g.cols, g.ch);
  const std::string what = quad_name(f.name, td, ta, tb, tt, sf, g.ch) + " C";
  const SornStatus st = f.constant(env.xe(), 0, &rd, &ra, &rb, cvec, &droi, &aroi, &broi, sf, 0);
  EXPECT_TRUE(env.at_mark()) << what;
  if (f.negated && td == SORN_U8) {
    EXPECT_EQ(st, SORN_ENOTSUP) << what;
    EXPECT_EQ(d.bytes_copy(), before) << what;
    return;
  }
  ASSERT_EQ(st, SORN_OK) << what;
  expect_region(
      d, before, 2, 1, g,
      [&](int32_t y, int32_t x, int32_t ch) {
        const double v = mac_reference(td, ta, tb, tt, a.get(y, x + 3, ch), b.get(y + 1, x + 2, ch),
                                       as_stored(tt, cvec[ch]), f.join, sf);
        return f.negated ? negated(td, v) : v;
      },
      what);
}

void check_constants(const Family &f, uint32_t td, uint32_t tu, int32_t sf, std::mt19937_64 &rng,
                     sorn_test::ScratchEnv &env) {
  const Geometry g{1 + (int32_t)(rng() % 13), 1 + (int32_t)(rng() % 23), 1 + (int32_t)(rng() % 4)};
  Image d = random_image(rng, g, td), a = random_image(rng, g, tu);
  double c1[4], c2[4];
  for (int32_t k = 0; k < 4; ++k) {
    c1[k] = constant_of(rng, tu, k == 0);
    c2[k] = constant_of(rng, tu == SORN_F32 ? SORN_S16 : SORN_U8, false);
  }
  const std::vector<uint8_t> before = d.bytes_copy();
  const SornArray rd = d.record(), ra = a.record();
  const SornVolume droi = make_roi(1, 1, g.rows, g.cols, g.ch), aroi = make_roi(3, 4, 1, 1, g.ch);
  const std::string what = quad_name(f.name, td, tu, tu, tu, sf, g.ch) + " CC";
  const SornStatus st = f.constants(env.xe(), 0, &rd, &ra, c1, c2, &droi, &aroi, sf, 0);
  EXPECT_TRUE(env.at_mark()) << what;
  if (f.negated && td == SORN_U8) {
    EXPECT_EQ(st, SORN_ENOTSUP) << what;
    EXPECT_EQ(d.bytes_copy(), before) << what;
    return;
  }
  ASSERT_EQ(st, SORN_OK) << what;
  expect_region(
      d, before, 1, 1, g,
      [&](int32_t y, int32_t x, int32_t ch) {
        const double v = mac_reference(td, tu, tu, tu, as_stored(tu, c2[ch]), a.get(y + 3, x + 4, ch),
                                       as_stored(tu, c1[ch]), f.cc_join, sf);
        return f.negated ? negated(td, v) : v;
      },
      what);
}

struct Quad {
  uint32_t d, a, b, c;
};
#define MAC_QUAD(d, a, b, c) {SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), SORN_TYPECODE(c)},
const Quad kArrayQuads[] = {SORN_MLA_QUADS(MAC_QUAD)};
const Quad kConstantQuads[] = {SORN_MLAC_QUADS(MAC_QUAD)};
#undef MAC_QUAD
#define MAC_CC_TYPE(t) SORN_TYPECODE(t),
const uint32_t kCcTypes[] = {SORN_MLACC_TYPES(MAC_CC_TYPE)};
#undef MAC_CC_TYPE
const uint32_t kDsts[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
// Every case of the scale factor: wrap-free clamp, shifts below and above
// 31, scaling down, and the two powers of two that wrap in 32 bits.
const int32_t kScales[] = {0, 1, 3, 40, -1, -3, -31, -32};

std::mt19937_64 seeded(uint64_t seed, const char *test) {
  std::printf("%s: seed %llu\n", test, (unsigned long long)seed);
  return std::mt19937_64(seed);
}

/* ---------------- the tests ---------------- */

TEST(MacKernels, EveryArrayQuadrupleMatchesTheReference) {
  std::mt19937_64 rng = seeded(0x6d6c6131, "EveryArrayQuadrupleMatchesTheReference");
  sorn_test::ScratchEnv env;
  for (const Family &f : kFamilies)
    for (const Quad &q : kArrayQuads)
      for (int32_t sf : kScales) check_arrays(f, q.d, q.a, q.b, q.c, sf, rng, env);
}

TEST(MacKernels, EveryConstantQuadrupleMatchesTheReference) {
  std::mt19937_64 rng = seeded(0x6d6c6132, "EveryConstantQuadrupleMatchesTheReference");
  sorn_test::ScratchEnv env;
  for (const Family &f : kFamilies)
    for (const Quad &q : kConstantQuads)
      for (int32_t sf : kScales) check_constant(f, q.d, q.a, q.b, q.c, sf, rng, env);
}

TEST(MacKernels, EveryTwoConstantQuadrupleMatchesTheReference) {
  std::mt19937_64 rng = seeded(0x6d6c6133, "EveryTwoConstantQuadrupleMatchesTheReference");
  sorn_test::ScratchEnv env;
  for (const Family &f : kFamilies)
    for (uint32_t d : kDsts)
      for (uint32_t u : kCcTypes)
        for (int32_t sf : kScales) check_constants(f, d, u, sf, rng, env);
}

TEST(MacKernels, LookupsHoldTheirTables) {
  SornStatus st = 1;
  for (const Quad &q : kArrayQuads) {
    (void)sorna__amlafun_imp(q.d, q.a, q.b, q.c, &st);
    EXPECT_EQ(st, SORN_OK);
    (void)sorna__amlsfun_imp(q.d, q.a, q.b, q.c, &st);
    EXPECT_EQ(st, SORN_OK);
  }
  for (const Quad &q : kConstantQuads) {
    (void)sorna__amlacfun_imp(q.d, q.a, q.b, q.c, &st);
    EXPECT_EQ(st, SORN_OK);
  }
  for (uint32_t d : kDsts)
    for (uint32_t u : kCcTypes) {
      (void)sorna__amlaccfun_imp(d, u, u, u, &st);
      EXPECT_EQ(st, SORN_OK);
    }
  EXPECT_EQ(sizeof kArrayQuads / sizeof kArrayQuads[0], 36u);
  EXPECT_EQ(sizeof kConstantQuads / sizeof kConstantQuads[0], 37u);
  // Known types without a kernel, and a code that is no type.
  (void)sorna__amlafun_imp(SORN_U8, SORN_U8, SORN_U8, SORN_S16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  (void)sorna__amlafun_imp(SORN_U8, SORN_U8, 5, SORN_U8, &st);
  EXPECT_EQ(st, SORN_EINVAL);
}

// Combinations without a kernel of their own, through the tiles, the
// product in place, or the product apart: the sum or difference is exact
// for integers (values kept where no intermediate saturates), and for
// floats the reference in f64 within a few ulps.
TEST(MacFallBack, CombinationsWithoutAKernelMatchTheReference) {
  std::mt19937_64 rng = seeded(0x6d6c6134, "CombinationsWithoutAKernelMatchTheReference");
  sorn_test::ScratchEnv env;
  const uint32_t types[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  int runs = 0;
  for (const Family &f : kFamilies)
    for (uint32_t td : types)
      for (uint32_t ta : types)
        for (uint32_t tb : types)
          for (uint32_t tc : types) {
            SornStatus st = SORN_OK;
            (void)sorna__amlafun_imp(td, ta, tb, tc, &st);
            if (st == SORN_OK || rng() % 3 != 0) continue;  // a sample of a third
            ++runs;
            const Geometry g{1 + (int32_t)(rng() % 25), 1 + (int32_t)(rng() % 40),
                             1 + (int32_t)(rng() % 4)};
            // Small values: every way forms the same exact sum.
            auto small = [&](uint32_t t) {
              Image im(g.rows + 2, g.cols + 2, g.ch, t, 8, 0x5c);
              for (int32_t y = 0; y < im.rows(); ++y)
                for (int32_t x = 0; x < im.cols(); ++x)
                  for (int32_t c = 0; c < g.ch; ++c)
                    im.set(y, x, c, t == SORN_U8 ? (double)(rng() % 16) : (double)(int)(rng() % 61) - 30);
              return im;
            };
            Image d = small(td), a = small(ta), b = small(tb), c = small(tc);
            const std::vector<uint8_t> before = d.bytes_copy();
            const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
            const SornVolume droi = make_roi(1, 1, g.rows, g.cols, g.ch),
                             aroi = make_roi(2, 0, 1, 1, g.ch);
            const int32_t sf = (int32_t)(rng() % 3);
            const std::string what = quad_name(f.name, td, ta, tb, tc, sf, g.ch);
            st = f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc, &droi, &aroi, nullptr, nullptr, sf, 0);
            EXPECT_TRUE(env.at_mark()) << what;
            if (f.negated && td == SORN_U8) {
              EXPECT_EQ(st, SORN_ENOTSUP) << what;
              continue;
            }
            ASSERT_EQ(st, SORN_OK) << what;
            const bool floating = ta == SORN_F32 || tb == SORN_F32 || tc == SORN_F32;
            expect_region(
                d, before, 1, 1, g,
                [&](int32_t y, int32_t x, int32_t ch) {
                  const double av = a.get(y + 2, x, ch), p = b.get(y, x, ch) * c.get(y, x, ch);
                  double v = join_d(f.join, av, p);
                  if (!floating && td != SORN_F32) v *= (double)(1 << sf);
                  if (td != SORN_F32) v = clamp_to(td, v);
                  return f.negated ? negated(td, v) : v;
                },
                what);
          }
  EXPECT_GT(runs, 20);
}

TEST(MacFallBack, ConstantCombinationsWithoutAKernelMatchTheReference) {
  std::mt19937_64 rng = seeded(0x6d6c6135, "ConstantCombinationsWithoutAKernelMatchTheReference");
  sorn_test::ScratchEnv env;
  const uint32_t types[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  const double kConsts[][4] = {{3, 5, 7, 9}, {-3, 2, 1, 4}, {2.5, -1.5, 0.5, 3}, {40000, 2, 3, 1}};
  for (const Family &f : kFamilies)
    for (uint32_t td : types)
      for (uint32_t ta : types)
        for (uint32_t tb : types)
          for (const auto &cv : kConsts) {
            const Geometry g{1 + (int32_t)(rng() % 25), 1 + (int32_t)(rng() % 30),
                             1 + (int32_t)(rng() % 4)};
            Image d(g.rows, g.cols, g.ch, td, 4, 0x5c), a(g.rows, g.cols, g.ch, ta, 0),
                b(g.rows, g.cols, g.ch, tb, 8);
            for (int32_t y = 0; y < g.rows; ++y)
              for (int32_t x = 0; x < g.cols; ++x)
                for (int32_t c = 0; c < g.ch; ++c) {
                  a.set(y, x, c, (double)(rng() % 20));
                  b.set(y, x, c, (double)(rng() % 20));
                }
            const std::vector<uint8_t> before = d.bytes_copy();
            const SornArray rd = d.record(), ra = a.record(), rb = b.record();
            const std::string what = quad_name(f.name, td, ta, tb, 0, 0, g.ch) + " C";
            const SornStatus st =
                f.constant(env.xe(), 0, &rd, &ra, &rb, cv, nullptr, nullptr, nullptr, 0, 0);
            EXPECT_TRUE(env.at_mark()) << what;
            if (f.negated && td == SORN_U8) {
              EXPECT_EQ(st, SORN_ENOTSUP) << what;
              continue;
            }
            ASSERT_EQ(st, SORN_OK) << what;
            expect_region(
                d, before, 0, 0, g,
                [&](int32_t y, int32_t x, int32_t ch) {
                  double v = join_d(f.join, a.get(y, x, ch), b.get(y, x, ch) * cv[ch]);
                  if (td != SORN_F32) v = clamp_to(td, std::nearbyint(v));
                  return f.negated ? negated(td, v) : v;
                },
                what);
          }
}

/* ---------------- the behaviour it is known by ---------------- */

struct Mac1 {
  Image d, a, b, c;
  SornArray rd, ra, rb, rc;
  Mac1(uint32_t t, double av, double bv, double cv)
      : d(1, 1, 1, t, 0, 0x33), a(1, 1, 1, t), b(1, 1, 1, t), c(1, 1, 1, t) {
    a.set(0, 0, 0, av);
    b.set(0, 0, 0, bv);
    c.set(0, 0, 0, cv);
    rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
  }
};

TEST(MacEdges, BytesSaturateAtScaleZero) {
  sorn_test::ScratchEnv env;
  Mac1 m(SORN_U8, 200, 10, 10);
  ASSERT_EQ(SornMulAdd(env.xe(), 0, &m.rd, &m.ra, &m.rb, &m.rc, nullptr, nullptr, nullptr, nullptr,
                       0, 0),
            SORN_OK);
  EXPECT_EQ(m.d.get(0, 0), 255);
  ASSERT_EQ(SornMulSub(env.xe(), 0, &m.rd, &m.ra, &m.rb, &m.rc, nullptr, nullptr, nullptr, nullptr,
                       0, 0),
            SORN_OK);
  EXPECT_EQ(m.d.get(0, 0), 100);
}

TEST(MacEdges, NullFirstSourceIsTheDestination) {
  sorn_test::ScratchEnv env;
  Image d(3, 4, 2, SORN_S16, 6), b(3, 4, 2, SORN_S16), c(3, 4, 2, SORN_S16);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x)
      for (int32_t k = 0; k < 2; ++k) {
        d.set(y, x, k, y * 10 + x);
        b.set(y, x, k, x - 2);
        c.set(y, x, k, k + 3);
      }
  const SornArray rd = d.record(), rb = b.record(), rc = c.record();
  // The region of the destination serves the first source too.
  const SornVolume roi = make_roi(1, 1, 2, 3, 2);
  ASSERT_EQ(SornMulAdd(env.xe(), 0, &rd, nullptr, &rb, &rc, &roi, nullptr, nullptr, nullptr, 0, 0),
            SORN_OK);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x)
      for (int32_t k = 0; k < 2; ++k) {
        const bool in = y >= 1 && x >= 1;
        const double want = in ? y * 10 + x + (x - 1 - 2) * (k + 3) : y * 10 + x;
        EXPECT_EQ(d.get(y, x, k), want) << y << "," << x << "," << k;
      }
}

TEST(MacEdges, ReversedDifferenceRefusesBytesAndWritesNothing) {
  sorn_test::ScratchEnv env;
  Mac1 m(SORN_U8, 3, 2, 2);
  const double c[4] = {2, 2, 2, 2};
  EXPECT_EQ(SornMulRSub(env.xe(), 0, &m.rd, &m.ra, &m.rb, &m.rc, nullptr, nullptr, nullptr,
                        nullptr, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(SornMulRSubC(env.xe(), 0, &m.rd, &m.ra, &m.rb, c, nullptr, nullptr, nullptr, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(SornMulRSubCC(env.xe(), 0, &m.rd, &m.ra, c, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(m.d.get(0, 0), 0x33);
  EXPECT_TRUE(env.at_mark());
}

TEST(MacEdges, ReversedDifferenceIsProductLessFirstSource) {
  sorn_test::ScratchEnv env;
  Mac1 m(SORN_S16, 3, 2, 2);
  ASSERT_EQ(SornMulRSub(env.xe(), 0, &m.rd, &m.ra, &m.rb, &m.rc, nullptr, nullptr, nullptr,
                        nullptr, 0, 0),
            SORN_OK);
  EXPECT_EQ(m.d.get(0, 0), 1);
  // The negation saturates: -(-32768 - 0) is 32767.
  Mac1 n(SORN_S16, -32768, 0, 5);
  ASSERT_EQ(SornMulRSub(env.xe(), 0, &n.rd, &n.ra, &n.rb, &n.rc, nullptr, nullptr, nullptr,
                        nullptr, 0, 0),
            SORN_OK);
  EXPECT_EQ(n.d.get(0, 0), 32767);
}

TEST(MacEdges, TwoConstantDifferenceSubtractsTheConstant) {
  sorn_test::ScratchEnv env;
  Image d(1, 1, 1, SORN_S16), a(1, 1, 1, SORN_S16);
  a.set(0, 0, 0, 7);
  const SornArray rd = d.record(), ra = a.record();
  const double c1[1] = {3}, c2[1] = {5};
  ASSERT_EQ(SornMulSubCC(env.xe(), 0, &rd, &ra, c1, c2, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 16);  // 7 * 3 - 5
  ASSERT_EQ(SornMulRSubCC(env.xe(), 0, &rd, &ra, c1, c2, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), -16);
  ASSERT_EQ(SornMulAddCC(env.xe(), 0, &rd, &ra, c1, c2, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 26);
}

TEST(MacEdges, FloatFactorIsExchangedBeforeTheLookup) {
  sorn_test::ScratchEnv env;
  // b of u8 and c of f32 run as b of f32 and c of u8: the same result as
  // the call with the two exchanged by the caller.
  Image d1(2, 3, 1, SORN_F32), d2(2, 3, 1, SORN_F32), a(2, 3, 1, SORN_F32),
      bu(2, 3, 1, SORN_U8), cf(2, 3, 1, SORN_F32);
  for (int32_t x = 0; x < 3; ++x)
    for (int32_t y = 0; y < 2; ++y) {
      a.set(y, x, 0, 0.25 * x);
      bu.set(y, x, 0, 3 + x + y);
      cf.set(y, x, 0, 1.5 - x);
    }
  const SornArray r1 = d1.record(), r2 = d2.record(), ra = a.record(), rb = bu.record(),
                  rc = cf.record();
  ASSERT_EQ(SornMulAdd(env.xe(), 0, &r1, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, 0, 0),
            SORN_OK);
  ASSERT_EQ(SornMulAdd(env.xe(), 0, &r2, &ra, &rc, &rb, nullptr, nullptr, nullptr, nullptr, 0, 0),
            SORN_OK);
  EXPECT_EQ(d1.bytes_copy(), d2.bytes_copy());
  EXPECT_EQ(d1.get(1, 2), 0.5f + 6 * -0.5f);
}

TEST(MacEdges, FourDimensionsAreRefusedAfterTheRegionChecks) {
  sorn_test::ScratchEnv env;
  std::vector<uint8_t> buf(2 * 3 * 4, 7);
  const SornArray d4 = sorn_test::make_record4(buf.data(), 2, 3, 4, 1, SORN_U8, 12, 4);
  const SornVolume roi = make_roi(0, 0, 3, 4, 1, 0, 2), empty = make_roi(0, 0, 0, 4, 1, 0, 2);
  const double c[4] = {1, 1, 1, 1};
  EXPECT_EQ(SornMulAdd(env.xe(), 0, &d4, &d4, &d4, &d4, &roi, nullptr, nullptr, nullptr, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(SornMulAdd(env.xe(), 0, &d4, &d4, &d4, &d4, &empty, nullptr, nullptr, nullptr, 0, 0),
            SORN_ENOSPC);
  EXPECT_EQ(SornMulSubC(env.xe(), 0, &d4, &d4, &d4, c, &roi, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornMulRSubCC(env.xe(), 0, &d4, &d4, c, c, &roi, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornMulRSubCC(env.xe(), 0, &d4, &d4, c, c, &empty, nullptr, 0, 0), SORN_ENOSPC);
  EXPECT_EQ(buf, std::vector<uint8_t>(2 * 3 * 4, 7));
}

// The way of the C and CC forms is chosen by the constants' class, not by
// the values each time: an integer constant beyond the mantissa of an f32
// with an f32 source joins in f64, where f32 arithmetic would round.
TEST(MacEdges, ConstantsBeyondTheFloatMantissaJoinInDouble) {
  sorn_test::ScratchEnv env;
  Image d(1, 1, 1, SORN_S32), a(1, 1, 1, SORN_F32), b(1, 1, 1, SORN_S32);
  a.set(0, 0, 0, 1.0);
  b.set(0, 0, 0, 1.0);
  const SornArray rd = d.record(), ra = a.record(), rb = b.record();
  const double c[1] = {16777217.0};
  ASSERT_EQ(SornMulAddC(env.xe(), 0, &rd, &ra, &rb, c, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 16777218.0);  // in f32 it would be 16777216
  // A fraction is an f32 constant: 0.1f, not 0.1.
  Image df(1, 1, 1, SORN_F32), af(1, 1, 1, SORN_F32);
  af.set(0, 0, 0, 3.0);
  const SornArray rdf = df.record(), raf = af.record();
  const double c1[1] = {0.1}, c2[1] = {0.0};
  ASSERT_EQ(SornMulAddCC(env.xe(), 0, &rdf, &raf, c1, c2, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(df.at<float>(0, 0), 3.0f * 0.1f);
}

/* ---------------- failures ---------------- */

TEST(MacEntries, FailuresInTheirOrder) {
  sorn_test::ScratchEnv env;
  Image d(4, 5, 1, SORN_U8, 0, 0x31), a(4, 5, 1, SORN_U8), b(4, 5, 1, SORN_U8),
      c3(4, 5, 3, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc3 = c3.record();
  const double c[4] = {2, 2, 2, 2};
  for (const Family &f : kFamilies) {
    // Records: no destination, a source of other channels, no constants.
    EXPECT_EQ(f.arrays(env.xe(), 0, nullptr, &ra, &rb, &rb, nullptr, nullptr, nullptr, nullptr, 0,
                       0),
              SORN_EINVAL);
    EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc3, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_EINVAL);
    EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_EINVAL);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, nullptr, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    // Then an empty region, before the operation is asked for.
    const SornVolume empty = make_roi(0, 0, 0, 5, 1);
    EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rb, &empty, nullptr, nullptr, nullptr, 0, 0),
              SORN_ENOSPC);
    EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, c, &empty, nullptr, nullptr, 0, 0),
              SORN_ENOSPC);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, c, &empty, nullptr, 0, 0), SORN_ENOSPC);
  }
  EXPECT_EQ(_T_SornArith3(SORN_FOURCC('m', 'u', 'l', ' '), env.xe(), 0, &rd, &ra, &rb, &rb,
                          nullptr, nullptr, nullptr, nullptr, 0, 0),
            SORN_EINVAL)
      << "an unknown selector";
  EXPECT_EQ(d.bytes_copy(), before);
}

TEST(MacEntries, TypesWithoutKernelsAreRefusedAndNothingIsWritten) {
  sorn_test::ScratchEnv env;
  const double c[4] = {2, 2, 2, 2};
  for (const Family &f : kFamilies) {
    // u16 is a known type without kernels: not supported, on every way.
    for (uint32_t td : {SORN_U8, SORN_S16, SORN_S32, SORN_F32}) {
      Image d(3, 4, 1, td, 0, 0x44), a(3, 4, 1, SORN_U16), b(3, 4, 1, SORN_U8), cc(3, 4, 1, SORN_U8);
      const std::vector<uint8_t> before = d.bytes_copy();
      const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = cc.record();
      EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, 0, 0),
                SORN_ENOTSUP)
          << f.name << " " << td;
      EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, c, nullptr, nullptr, nullptr, 0, 0),
                SORN_ENOTSUP)
          << f.name << " " << td;
      EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP)
          << f.name << " " << td;
      EXPECT_EQ(d.bytes_copy(), before);
      EXPECT_TRUE(env.at_mark());
    }
  }
  // A code that is no type at all is invalid, at the dispatcher.
  uint8_t d[4] = {1, 2, 3, 4}, a[4] = {1, 1, 1, 1};
  int32_t dims[3] = {1, 4, 1}, s[3] = {4, 1, 1};
  EXPECT_EQ(sorna__mla(env.xe(), 0, SORN_DIMPACK(3), dims, SORN_U8, d, s, 5, a, s, SORN_U8, a, s,
                       SORN_U8, a, s, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(sorna__mlaC(env.xe(), 0, SORN_DIMPACK(3), dims, 5, d, s, SORN_U8, a, s, SORN_U8, a, s,
                        c, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(sorna__mlsCC(env.xe(), 0, SORN_DIMPACK(3), dims, SORN_U8, d, s, 5, a, s, c, c, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(d[0], 1);
}

/* ---------------- the tiles without memory ---------------- */

// Each way through scratch: a converted in a tile, the result formed in
// a tile, the product apart in a tile, and the product in the destination.
TEST(MacTiles, EveryWayGivesItsMemoryBackWhenItHasNone) {
  sorn_test::ScratchEnv env;
  struct Way {
    uint32_t d, a, b, c;
    const char *what;
  };
  const Way ways[] = {{SORN_U8, SORN_U8, SORN_S16, SORN_S16, "a read wider"},
                      {SORN_U8, SORN_F32, SORN_U8, SORN_U8, "the result formed in f32"},
                      {SORN_U8, SORN_U8, SORN_S16, SORN_U8, "the product apart"},
                      {SORN_S32, SORN_U8, SORN_S16, SORN_U8, "the product in the destination"}};
  for (const Way &w : ways) {
    Image d(23, 17, 1, w.d, 0, 0x21), a(23, 17, 1, w.a), b(23, 17, 1, w.b), c(23, 17, 1, w.c);
    for (int32_t y = 0; y < 23; ++y)
      for (int32_t x = 0; x < 17; ++x) {
        a.set(y, x, 0, x % 5);
        b.set(y, x, 0, y % 7);
        c.set(y, x, 0, 3);
      }
    const std::vector<uint8_t> before = d.bytes_copy();
    const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
    int64_t blocks = 0;
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      bool fired;
      {
        sorn_test::AllocFailure fail(k, false, sorn_test::kStackBlock);
        const SornStatus st = SornMulAdd(env.xe(), 0, &rd, &ra, &rb, &rc, nullptr, nullptr,
                                         nullptr, nullptr, 0, 0);
        fired = fail.fired();
        if (fired) {
          EXPECT_EQ(st, SORN_ENOMEM) << w.what;
          if (k == 0) {
            EXPECT_EQ(d.bytes_copy(), before) << w.what;
          }
        } else {
          EXPECT_EQ(st, SORN_OK) << w.what;
          blocks = fail.requests();
        }
      }
      EXPECT_TRUE(env.at_mark()) << w.what;
      return fired;
    });
    EXPECT_EQ(runs, blocks) << w.what;
    for (int32_t y = 0; y < 23; ++y)
      for (int32_t x = 0; x < 17; ++x)
        ASSERT_EQ(d.get(y, x), std::min(255.0, (double)(x % 5 + (y % 7) * 3))) << w.what;
  }
  // Without an environment there is no scratch to take.
  Image d(3, 3, 1, SORN_U8, 0, 0x21), a(3, 3, 1, SORN_U8), b(3, 3, 1, SORN_S16),
      c(3, 3, 1, SORN_S16);
  const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
  EXPECT_EQ(SornMulAdd(nullptr, 0, &rd, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, 0, 0),
            SORN_ENOMEM);
}

// Tiles are at most 10 rows: the scratch block of a 500-row call is that
// of 10 rows.
TEST(MacTiles, TilesHoldAtMostTenRows) {
  sorn_test::ScratchEnv env;
  auto block_for = [&](int32_t rows) {
    Image d(rows, 64, 1, SORN_U8), a(rows, 64, 1, SORN_U8), b(rows, 64, 1, SORN_S16),
        c(rows, 64, 1, SORN_S16);
    const SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = c.record();
    sorn_test::AllocFailure watch(-1);
    EXPECT_EQ(SornMulAdd(env.xe(), 0, &rd, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_OK);
    return watch.last_block_size();
  };
  const size_t ten = block_for(10);
  EXPECT_GE(ten, 10u * 64 * 2);
  EXPECT_EQ(block_for(500), ten);
  EXPECT_LT(block_for(3), ten);
}

}  // namespace

// SornCompare, SornCompareC, SornECompare and SornECompareC from the public
// records down, against the plain reference of compare_reference.h: every
// destination and source type, operator codes 0 to 15, one to four
// channels, both sides of the table limit, ROIs and sites, padded rows and
// guard bytes; then the edge cases, the failures and the frame.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "alloc_failure.h"
#include "compare_reference.h"
#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double *const kKeepSrc = SORN_CMP_KEEPSRC;

// An environment whose scratch level is checked after each call.
using Env = sorn_test::ScratchEnv;

enum Form { kPlain, kPlainC, kValues, kValuesC };
bool with_values(Form f) { return f == kValues || f == kValuesC; }
bool with_constant(Form f) { return f == kPlainC || f == kValuesC; }

const uint32_t kDstTypes[] = {SORN_U8, SORN_S8, SORN_U16, SORN_S16, SORN_U32, SORN_S32, SORN_F32};
const uint32_t kSrcTypes[] = {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32};

void set_value(Image &im, int32_t y, int32_t x, int32_t c, double v) {
  uint8_t b[8];
  fill_ref::element(im.type(), v, b);
  std::memcpy(&im.at<uint8_t>(y, x, 0) + (size_t)c * im.esize(), b, im.esize());
}

// A value of type t near `near` half the time, so that equal and close
// elements are common.
double source_value(std::mt19937_64 &rng, uint32_t t, double near) {
  if (rng() % 2) return sorn_test::random_value(rng, t, true);
  if (t == SORN_F32) {
    static const double steps[] = {0.0, 1e-7, -1e-7, 1.2e-7, -1.2e-7, 0.5, kNaN};
    return near + steps[rng() % 7];
  }
  return near + (double)((int)(rng() % 3) - 1);
}

double value_arg(std::mt19937_64 &rng) {
  static const double special[] = {255, 256, 65535, 0, -1, -0.4, 127.5, 300, -300, 1e10, kNaN,
                                   2.5, 1.99999988079071044921875};
  if (rng() % 2) return special[rng() % (sizeof special / sizeof special[0])];
  return std::round(std::uniform_real_distribution<double>(-70000, 70000)(rng));
}

// One call of any form on images with room around the region, checked
// element by element, with the padding and the guards.
struct Case {
  Form form;
  uint32_t dt, st;
  int32_t channels;
  uint32_t op;
  int32_t rows, cols;
  bool exact_fit = false;  // sites at the images' corners, no room around
};

void run_case(Env &env, std::mt19937_64 &rng, const Case &k) {
  const int32_t c = k.channels;
  const int32_t oy = k.exact_fit ? 0 : (int32_t)(rng() % 3), ox = k.exact_fit ? 0 : (int32_t)(rng() % 4);
  const int32_t sy = k.exact_fit ? 0 : (int32_t)(rng() % 3), sx = k.exact_fit ? 0 : (int32_t)(rng() % 4);
  const int32_t ty = k.exact_fit ? 0 : (int32_t)(rng() % 3), tx = k.exact_fit ? 0 : (int32_t)(rng() % 4);
  const int32_t pad = k.exact_fit ? 0 : (int32_t)(rng() % 3) * 4;
  Image dst(k.rows + oy + (k.exact_fit ? 0 : 1), k.cols + ox + (k.exact_fit ? 0 : 2), c, k.dt, pad);
  Image a(k.rows + sy, k.cols + sx + (k.exact_fit ? 0 : 1), c, k.st, pad / 2 * 2);
  Image b(k.rows + ty + (k.exact_fit ? 0 : 2), k.cols + tx, c, k.st);
  for (size_t i = 0; i < dst.bytes(); ++i) dst.base()[i] = (uint8_t)rng();
  double cvec[4];
  for (int32_t ch = 0; ch < c; ++ch) {
    cvec[ch] = sorn_test::random_value(rng, k.st, true) + ((rng() % 4 == 0) ? 0.5 : 0.0);
    if (rng() % 8 == 0) cvec[ch] = value_arg(rng);
  }
  for (int32_t y = 0; y < a.rows(); ++y)
    for (int32_t x = 0; x < a.cols(); ++x)
      for (int32_t ch = 0; ch < c; ++ch) set_value(a, y, x, ch, source_value(rng, k.st, cvec[ch]));
  for (int32_t y = 0; y < b.rows(); ++y)
    for (int32_t x = 0; x < b.cols(); ++x)
      for (int32_t ch = 0; ch < c; ++ch) {
        const int32_t ay = y - ty + sy, ax = x - tx + sx;
        const double near = (ay >= 0 && ay < a.rows() && ax >= 0 && ax < a.cols())
                                ? a.get(ay, ax, ch)
                                : 0.0;
        set_value(b, y, x, ch, source_value(rng, k.st, near));
      }
  // Values: pointers mostly, small values now and then.
  double tv[4], fv[4];
  for (int32_t ch = 0; ch < c; ++ch) {
    tv[ch] = value_arg(rng);
    fv[ch] = value_arg(rng);
  }
  const double *tval = tv, *fval = fv;
  if (with_values(k.form)) {
    const int pick = (int)(rng() % 8);
    if (pick == 0) tval = nullptr;
    if (pick == 1) tval = kKeepSrc;
    if (pick == 2) fval = nullptr;
    if (pick == 3) fval = kKeepSrc;
    if (pick == 4) fval = (const double *)9;
    if (pick == 5) {
      // The values of a mask: the shortcut through the plain form.
      for (int32_t ch = 0; ch < c; ++ch) {
        tv[ch] = (k.dt & 7u) == 1u ? 255.0 : 65535.0;
        fv[ch] = 0.0;
      }
    }
    if (pick == 6) tval = fval = nullptr;
  }

  const std::vector<uint8_t> before = dst.bytes_copy();
  SornArray rd = dst.record(), ra = a.record(), rb = b.record();
  SornVolume roi = make_roi(oy, ox, k.rows, k.cols, c);
  SornVolume s1 = make_roi(sy, sx, 0, 0, 0), s2 = make_roi(ty, tx, 0, 0, 0);
  SornStatus got = 0;
  switch (k.form) {
    case kPlain: got = SornCompare(env.xe(), 0, &rd, &ra, &rb, &roi, &s1, &s2, k.op); break;
    case kPlainC: got = SornCompareC(env.xe(), 0, &rd, &ra, cvec, &roi, &s1, k.op); break;
    case kValues:
      got = SornECompare(env.xe(), 0, &rd, &ra, &rb, &roi, &s1, &s2, k.op, tval, fval);
      break;
    case kValuesC:
      got = SornECompareC(env.xe(), 0, &rd, &ra, cvec, &roi, &s1, k.op, tval, fval);
      break;
  }
  cmp_ref::Plan p = cmp_ref::plan(with_values(k.form), with_constant(k.form), k.dt, k.st, c,
                                  k.op, tval, fval);
  cmp_ref::take_tables(p, with_constant(k.form), k.dt, k.st, c, (int64_t)k.rows * k.cols);
  std::string what = std::string(sorn_test::type_name(k.dt)) + "<-" + sorn_test::type_name(k.st) +
                     " form " + std::to_string(k.form) + " op " + std::to_string(k.op) + " x" +
                     std::to_string(c) + " " + std::to_string(k.rows) + "x" + std::to_string(k.cols);
  ASSERT_EQ(got, p.status) << what;
  ASSERT_TRUE(env.at_mark()) << what;
  ASSERT_TRUE(dst.guards_intact()) << what;
  const int32_t es = dst.esize();
  for (int32_t y = 0; y < dst.rows(); ++y)
    for (int32_t x = 0; x < dst.cols(); ++x)
      for (int32_t ch = 0; ch < c; ++ch) {
        const size_t off = (size_t)y * dst.rowstride() + ((size_t)x * c + ch) * es;
        uint8_t want[8];
        std::memcpy(want, before.data() + off, es);
        const bool inside = y >= oy && y < oy + k.rows && x >= ox && x < ox + k.cols;
        if (inside && got == SORN_OK) {
          const int32_t i = y - oy, j = x - ox;
          const uint8_t *ae = &a.at<uint8_t>(sy + i, sx + j, 0) + (size_t)ch * a.esize();
          double bv;
          if (with_constant(k.form)) {
            uint8_t cb[8] = {};
            fill_ref::element(k.st, cvec[ch], cb);
            bv = cmp_ref::value(k.st, cb);
          } else {
            bv = b.get(ty + i, tx + j, ch);
          }
          cmp_ref::element(p, k.dt, k.st, ch, ae, bv, before.data() + off, want);
        }
        ASSERT_EQ(0, std::memcmp(want, dst.base() + off, es))
            << what << " at " << y << "," << x << "," << ch;
      }
  // Row padding is part of the bytes compared above only where it lies
  // inside a row; the rest of each stride must be as it was.
  const size_t row_bytes = (size_t)dst.cols() * c * es;
  for (int32_t y = 0; y < dst.rows(); ++y)
    ASSERT_EQ(0, std::memcmp(dst.base() + (size_t)y * dst.rowstride() + row_bytes,
                             before.data() + (size_t)y * dst.rowstride() + row_bytes,
                             dst.rowstride() - row_bytes))
        << what;
}

}  // namespace

/* ---------------- against the reference ---------------- */

TEST(Compare, EveryTypePairOperatorAndChannelCountAgainstTheReference) {
  Env env;
  auto rng = sorn_test::seeded_rng(0xc0a1);
  for (Form f : {kPlain, kPlainC, kValues, kValuesC})
    for (uint32_t dt : kDstTypes)
      for (uint32_t st : kSrcTypes)
        for (uint32_t op = 0; op < 16; ++op)
          for (int32_t c = 1; c <= 4; ++c) {
            Case k{f, dt, st, c, op | (rng() % 4 == 0 ? 0x30u : 0u), 1 + (int32_t)(rng() % 5),
                   1 + (int32_t)(rng() % 23)};
            ASSERT_NO_FATAL_FAILURE(run_case(env, rng, k));
          }
}

TEST(Compare, LongRowsAndManyChannelsTakeEveryLoop) {
  Env env;
  auto rng = sorn_test::seeded_rng(0xc0a2);
  for (Form f : {kPlain, kPlainC, kValues, kValuesC})
    for (uint32_t dt : {SORN_U8, SORN_S16, SORN_S32, SORN_F32})
      for (uint32_t st : kSrcTypes)
        for (int32_t c : {1, 3, 4}) {
          Case k{f, dt, st, c, 3u + (uint32_t)(rng() % 6), 2, 300 + (int32_t)(rng() % 400)};
          ASSERT_NO_FATAL_FAILURE(run_case(env, rng, k));
        }
}

TEST(Compare, ByteConstantsOnBothSidesOfTheTableLimit) {
  Env env;
  auto rng = sorn_test::seeded_rng(0xc0a3);
  for (Form f : {kPlainC, kValuesC})
    for (uint32_t dt : {SORN_U8, SORN_S8})
      for (uint32_t st : {SORN_U8, SORN_S8})
        for (int32_t c = 1; c <= 4; ++c)
          for (uint32_t op = 0; op < 16; ++op)
            for (int32_t cols : {128, 129}) {
              Case k{f, dt, st, c, op, 128, cols, (rng() % 2) == 0};
              ASSERT_NO_FATAL_FAILURE(run_case(env, rng, k));
            }
}

TEST(Compare, DenseImagesMergeTheirRows) {
  Env env;
  auto rng = sorn_test::seeded_rng(0xc0a4);
  for (Form f : {kPlain, kPlainC, kValues, kValuesC})
    for (uint32_t st : kSrcTypes)
      for (int32_t c : {1, 2, 3}) {
        Case k{f, SORN_U8, st, c, 3u + (uint32_t)(rng() % 6), 7, 31, true};
        ASSERT_NO_FATAL_FAILURE(run_case(env, rng, k));
      }
}

TEST(Compare, AllByteOperandsExhaustively) {
  // Every u8 and s8 element against every constant, every operator: the
  // direct loops on one row of 256 pixels.
  Env env;
  for (uint32_t st : {SORN_U8, SORN_S8})
    for (uint32_t op = 3; op <= 8; ++op)
      for (int v = 0; v < 256; ++v) {
        Image src(1, 256, 1, st), dst(1, 256, 1, SORN_U8);
        for (int x = 0; x < 256; ++x) src.at<uint8_t>(0, x) = (uint8_t)x;
        SornArray rs = src.record(), rd = dst.record();
        const double cv = st == SORN_S8 ? (double)(int8_t)v : (double)v;
        ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &rs, &cv, nullptr, nullptr, op), SORN_OK);
        for (int x = 0; x < 256; ++x) {
          const double a = st == SORN_S8 ? (double)(int8_t)x : (double)x;
          ASSERT_EQ(dst.at<uint8_t>(0, x), cmp_ref::holds(op, st, a, cv) ? 255 : 0)
              << x << " op " << op << " against " << cv;
        }
      }
}

/* ---------------- edge cases ---------------- */

TEST(Compare, FloatDestinationTrueIsTheBitPattern3FFFFFFF) {
  Image a(1, 3, 1, SORN_F32), b(1, 3, 1, SORN_F32), d(1, 3, 1, SORN_F32);
  a.at<float>(0, 0) = 1; b.at<float>(0, 0) = 1;
  a.at<float>(0, 1) = 1; b.at<float>(0, 1) = 2;
  a.at<float>(0, 2) = 3; b.at<float>(0, 2) = 3;
  SornArray ra = a.record(), rb = b.record(), rd = d.record();
  ASSERT_EQ(SornCompare(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, SORN_CMP_EQ), SORN_OK);
  uint32_t bits[3];
  std::memcpy(bits, &d.at<float>(0, 0), sizeof bits);
  EXPECT_EQ(bits[0], 0x3FFFFFFFu);
  EXPECT_EQ(bits[1], 0u);
  EXPECT_EQ(bits[2], 0x3FFFFFFFu);
  EXPECT_NE(d.at<float>(0, 0), 1.0f);
}

TEST(Compare, NullTrueValueComplementsTheOperatorAndKeepsTheDestination) {
  Image a(1, 4, 1, SORN_U8), d(1, 4, 1, SORN_U8);
  const uint8_t av[] = {1, 5, 9, 5};
  for (int x = 0; x < 4; ++x) {
    a.at<uint8_t>(0, x) = av[x];
    d.at<uint8_t>(0, x) = (uint8_t)(100 + x);
  }
  SornArray ra = a.record(), rd = d.record();
  const double c = 5, f = 77;
  // Less than 5: element 1 meets it and keeps the destination; the others
  // fail it and get fval.
  ASSERT_EQ(SornECompareC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr, SORN_CMP_LT, SORN_CMP_KEEPDST, &f),
            SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 0), 100);
  EXPECT_EQ(d.at<uint8_t>(0, 1), 77);
  EXPECT_EQ(d.at<uint8_t>(0, 2), 77);
  EXPECT_EQ(d.at<uint8_t>(0, 3), 77);
}

TEST(Compare, FloatsWithinTheToleranceAreEqualAndNaNIsOnlyUnequal) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Row { float a, b; uint32_t op; bool want; } rows[] = {
      {1.0f, 1.0f + 1e-7f, SORN_CMP_EQ, true},  {1.0f, 1.0f + 1e-7f, SORN_CMP_LT, false},
      {1.0f, 1.0f + 1e-7f, SORN_CMP_LE, true},  {1.0f + 1e-7f, 1.0f, SORN_CMP_GT, false},
      {nan, 1.0f, SORN_CMP_NE, true},           {nan, 1.0f, SORN_CMP_EQ, false},
      {nan, 1.0f, SORN_CMP_LT, false},          {nan, 1.0f, SORN_CMP_LE, false},
      {nan, 1.0f, SORN_CMP_GT, false},          {nan, 1.0f, SORN_CMP_GE, false},
      {1.0f, nan, SORN_CMP_GE, false},          {nan, nan, SORN_CMP_EQ, false},
  };
  for (const Row &r : rows) {
    Image a(1, 1, 1, SORN_F32), b(1, 1, 1, SORN_F32), d(1, 1, 1, SORN_U8);
    a.at<float>(0, 0) = r.a;
    b.at<float>(0, 0) = r.b;
    SornArray ra = a.record(), rb = b.record(), rd = d.record();
    ASSERT_EQ(SornCompare(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, r.op), SORN_OK);
    EXPECT_EQ(d.at<uint8_t>(0, 0), r.want ? 255 : 0) << r.a << " op " << r.op << " " << r.b;
  }
}

TEST(Compare, ConstantSaturatesIntoTheSourceTypeFirst) {
  Image a(1, 4, 1, SORN_U8), d(1, 4, 1, SORN_U8);
  const uint8_t av[] = {0, 3, 254, 255};
  for (int x = 0; x < 4; ++x) a.at<uint8_t>(0, x) = av[x];
  SornArray ra = a.record(), rd = d.record();
  const double c300 = 300;
  ASSERT_EQ(SornCompareC(nullptr, 0, &rd, &ra, &c300, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 0), 255);
  EXPECT_EQ(d.at<uint8_t>(0, 2), 255);
  EXPECT_EQ(d.at<uint8_t>(0, 3), 0);
  // Less than 3.5 is less than 4; less than -1 is less than 0.
  const double c35 = 3.5, cm1 = -1;
  ASSERT_EQ(SornCompareC(nullptr, 0, &rd, &ra, &c35, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 1), 255);
  ASSERT_EQ(SornCompareC(nullptr, 0, &rd, &ra, &cm1, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 0), 0);
}

TEST(Compare, TwoChannelBytesAboveTheTableLimitAreNotSupported) {
  Env env;
  const double c[2] = {10, 20};
  {
    Image a(128, 129, 2, SORN_U8), d(128, 129, 2, SORN_U8);
    const std::vector<uint8_t> before = d.bytes_copy();
    SornArray ra = a.record(), rd = d.record();
    EXPECT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, SORN_CMP_LT), SORN_ENOTSUP);
    EXPECT_EQ(before, d.bytes_copy());
  }
  {
    Image a(128, 128, 2, SORN_U8), d(128, 128, 2, SORN_U8);
    SornArray ra = a.record(), rd = d.record();
    EXPECT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
    EXPECT_EQ(d.at<uint8_t>(5, 5, 0), 255);
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(Compare, SignedBytesCompareUnsignedAboveTheTableLimit) {
  Env env;
  const double c = -1;
  for (int32_t cols : {20000, 100}) {
    Image a(1, cols, 1, SORN_S8), d(1, cols, 1, SORN_U8);
    SornArray ra = a.record(), rd = d.record();
    ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, &c, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
    // 0 against 0xFF: true as unsigned bytes, false as signed ones.
    EXPECT_EQ(d.at<uint8_t>(0, 7), cols == 20000 ? 255 : 0) << cols;
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(Compare, OperatorZeroIsNotEqualInKernelsButInvalidForTables) {
  Env env;
  const double c = 7;
  {
    Image a(1, 100, 1, SORN_U8), d(1, 100, 1, SORN_U8);
    a.at<uint8_t>(0, 3) = 7;
    SornArray ra = a.record(), rd = d.record();
    ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, &c, nullptr, nullptr, 0), SORN_OK);
    EXPECT_EQ(d.at<uint8_t>(0, 0), 255);
    EXPECT_EQ(d.at<uint8_t>(0, 3), 0);
  }
  for (uint32_t st : {SORN_U8, SORN_S8}) {
    Image a(1, 20000, 1, st), d(1, 20000, 1, SORN_U8, 0, 0x5a);
    SornArray ra = a.record(), rd = d.record();
    EXPECT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, &c, nullptr, nullptr, 0), SORN_EINVAL);
    EXPECT_EQ(d.at<uint8_t>(0, 0), 0x5a);
  }
  uint8_t t0[256];
  uint8_t *tabs[1] = {t0};
  EXPECT_EQ(sorn_mkcmpxlatab(tabs, 0, &c, nullptr, nullptr, 1), SORN_EINVAL);
  EXPECT_TRUE(env.at_mark());
}

TEST(Compare, OperatorNames) {
  EXPECT_STREQ(sorn_cmpop_str(0), "nul-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(3), "equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(4), "less-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(5), "less-or-equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(6), "greater-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(7), "greater-or-equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(8), "unknown-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(0x13), "equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(1), "unknown-cmpop");
}

TEST(Compare, SignedByteDestinationTakesTheMaskShortcut) {
  Image a(1, 2, 1, SORN_S8), b(1, 2, 1, SORN_S8), d(1, 2, 1, SORN_S8);
  a.at<int8_t>(0, 0) = 4; b.at<int8_t>(0, 0) = 4;
  a.at<int8_t>(0, 1) = 4; b.at<int8_t>(0, 1) = 5;
  SornArray ra = a.record(), rb = b.record(), rd = d.record();
  const double t = 255, f = 0;
  ASSERT_EQ(SornECompare(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, SORN_CMP_EQ, &t, &f),
            SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 0), 0xFF);  // -1, not the saturated 127
  EXPECT_EQ(d.at<uint8_t>(0, 1), 0);
  // Without the shortcut the value saturates.
  const double f1 = 1;
  ASSERT_EQ(SornECompare(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, SORN_CMP_EQ, &t, &f1),
            SORN_OK);
  EXPECT_EQ(d.at<int8_t>(0, 0), 127);
  EXPECT_EQ(d.at<int8_t>(0, 1), 1);
}

TEST(Compare, TheComplementOfAnOperator) {
  const uint32_t pairs[][2] = {{3, 8}, {4, 7}, {5, 6}};
  for (auto &p : pairs) {
    EXPECT_EQ(SORN_CMP_COMPLEMENT(p[0]), p[1]);
    EXPECT_EQ(SORN_CMP_COMPLEMENT(p[1]), p[0]);
  }
  EXPECT_EQ(SORN_CMP_COMPLEMENT(0x104u), 0x107u);
}

/* ---------------- tables ---------------- */

TEST(CompareTables, OneConditionTablesByHand) {
  uint8_t t0[256], t1[256];
  uint8_t *tabs[2] = {t0, t1};
  const uint8_t cb[2] = {10, 200};
  const uint8_t tv[2] = {7, 8}, fv[2] = {1, 2};
  ASSERT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_LT, cb, tv, fv, 2), SORN_OK);
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(t0[i], i < 10 ? 7 : 1);
    ASSERT_EQ(t1[i], i < 200 ? 8 : 2);
  }
  // Both 0: 255 and 0.
  ASSERT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_GE, cb, nullptr, nullptr, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i >= 10 ? 255 : 0);
  // A small fval is the identity.
  ASSERT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_EQ, cb, tv, (const uint8_t *)1, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i == 10 ? 7 : i);
  // A small tval complements: not equal to 10 takes fval's 1, 10 itself
  // stays 10.
  ASSERT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_EQ, cb, nullptr, fv, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i == 10 ? 10 : 1);
  // Not equal: all but the constant's entry.
  ASSERT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_NE, cb, tv, fv, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i == 10 ? 1 : 7);
  for (uint32_t op : {SORN_CMP_LE, SORN_CMP_GT}) {
    ASSERT_EQ(sorn__mkcmpxlatab(tabs, op, cb, tv, fv, 1), SORN_OK);
    for (int i = 0; i < 256; ++i)
      ASSERT_EQ(t0[i], (op == SORN_CMP_LE ? i <= 10 : i > 10) ? 7 : 1);
  }
}

TEST(CompareTables, FailuresWriteNothing) {
  uint8_t t0[256];
  std::memset(t0, 0x33, sizeof t0);
  uint8_t *tabs[1] = {t0};
  const uint8_t cb[1] = {10};
  EXPECT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_EQ, cb, (const uint8_t *)1, (const uint8_t *)1, 1),
            SORN_EINVAL);
  EXPECT_EQ(sorn__mkcmpxlatab(tabs, 2, cb, nullptr, nullptr, 1), SORN_EINVAL);
  EXPECT_EQ(sorn__mkcmpxlatab(tabs, 9, cb, nullptr, nullptr, 1), SORN_EINVAL);
  EXPECT_EQ(sorn__mkcmpxlatab(tabs, SORN_CMP_EQ, cb, nullptr, nullptr, 0), SORN_EINVAL);
  EXPECT_EQ(sorn__mkcmpxlatab2(tabs, 3, 9, cb, cb, nullptr, nullptr, 1), SORN_EINVAL);
  for (uint8_t v : t0) ASSERT_EQ(v, 0x33);
}

TEST(CompareTables, PublicBuildersTakeDoublesForConstantsAndValues) {
  // The values of the public builder read like those of the e forms: one
  // double per channel, converted by the u8 fill vector rule.
  uint8_t t0[256];
  uint8_t *tabs[1] = {t0};
  const double c = 9.6, t = 300, f = -4;
  ASSERT_EQ(sorn_mkcmpxlatab(tabs, SORN_CMP_LE, &c, &t, &f, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i <= 10 ? 255 : 0) << i;
  const double t2 = 17.5;
  ASSERT_EQ(sorn_mkcmpxlatab(tabs, SORN_CMP_GT, &c, &t2, SORN_CMP_KEEPSRC, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i > 10 ? 18 : i) << i;
  EXPECT_EQ(sorn_mkcmpxlatab(tabs, SORN_CMP_GT, &c, &t2, &f, 5), SORN_ENOTSUP);
}

TEST(CompareTables, TwoConditionTablesByHand) {
  uint8_t t0[256];
  uint8_t *tabs[1] = {t0};
  const uint8_t c1 = 50, c2 = 200, lo = 5, hi = 250;
  // Below 50 low, above 200 high, the identity between.
  ASSERT_EQ(sorn__mkcmpxlatab2(tabs, SORN_CMP_LT, SORN_CMP_GT, &c1, &c2, nullptr, nullptr, 1),
            SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i < 50 ? 0 : i > 200 ? 255 : i);
  ASSERT_EQ(sorn__mkcmpxlatab2(tabs, SORN_CMP_LT, SORN_CMP_GT, &c1, &c2, &lo, &hi, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i < 50 ? 5 : i > 200 ? 250 : i);
  // Overlap: the second condition wins.
  ASSERT_EQ(sorn__mkcmpxlatab2(tabs, SORN_CMP_LE, SORN_CMP_GE, &c2, &c1, &lo, &hi, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i >= 50 ? 250 : 5);
  // Not equal fills all and gives the constant's entry its identity.
  ASSERT_EQ(sorn__mkcmpxlatab2(tabs, SORN_CMP_NE, SORN_CMP_EQ, &c1, &c2, &lo, &hi, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i == 50 ? 50 : i == 200 ? 250 : 5);
  // Both not equal: the second alone decides.
  ASSERT_EQ(sorn__mkcmpxlatab2(tabs, SORN_CMP_NE, SORN_CMP_NE, &c1, &c2, &lo, &hi, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i == 200 ? 200 : 250);
  // The public form converts its doubles.
  const double d1 = 49.7, d2 = 200.2, dl = -3, dh = 999;
  ASSERT_EQ(sorn_mkcmpxlatab2(tabs, SORN_CMP_LT, SORN_CMP_GT, &d1, &d2, &dl, &dh, 1), SORN_OK);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t0[i], i < 50 ? 0 : i > 200 ? 255 : i);
}

TEST(CompareTables, TranslationOfEveryChannelCountAndTableShape) {
  auto rng = sorn_test::seeded_rng(0x7ab);
  uint8_t store[4][256];
  uint8_t *tabs[4] = {store[0], store[1], store[2], store[3]};
  for (int rep = 0; rep < 200; ++rep) {
    const int32_t nchan = (int32_t)(1 + rng() % 4);
    // Random tables, and the steps a comparison makes.
    for (int32_t k = 0; k < nchan; ++k) {
      const int shape = (int)(rng() % 4);
      if (shape == 0) {
        for (int i = 0; i < 256; ++i) store[k][i] = (uint8_t)rng();
      } else {
        const uint8_t cb = (uint8_t)rng(), tv = (uint8_t)rng(), fv = (uint8_t)rng();
        uint8_t *one[1] = {store[k]};
        const uint32_t op = 3 + (uint32_t)(rng() % 6);
        const uint8_t *f = shape == 1 ? &fv : shape == 2 ? (const uint8_t *)1 : nullptr;
        const uint8_t *t = shape == 3 ? nullptr : &tv;
        if (t == nullptr && f == nullptr) f = &fv;
        ASSERT_EQ(sorn__mkcmpxlatab(one, op, &cb, t, f, 1), SORN_OK);
      }
    }
    const int32_t rows = (int32_t)(1 + rng() % 6), width = (int32_t)(1 + rng() % 70);
    const int32_t pad = (int32_t)(rng() % 3);
    Image src(rows, width, nchan, SORN_U8, pad), dst(rows, width, nchan, SORN_U8, pad);
    for (size_t i = 0; i < src.bytes(); ++i) src.base()[i] = (uint8_t)rng();
    for (size_t i = 0; i < dst.bytes(); ++i) dst.base()[i] = (uint8_t)rng();
    const std::vector<uint8_t> before = dst.bytes_copy();
    const bool in_place = rng() % 4 == 0;
    Image &out = in_place ? src : dst;
    const std::vector<uint8_t> sbefore = src.bytes_copy();
    SornStatus st = sorn_xlat2d_u8(tabs, out.base(), src.base(), out.rowstride(),
                                   src.rowstride(), rows, width, nchan);
    if (nchan == 2) {
      ASSERT_EQ(st, SORN_ENOTSUP);
      continue;
    }
    ASSERT_EQ(st, SORN_OK);
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < width * nchan; ++x) {
        const size_t off = (size_t)y * src.rowstride() + x;
        ASSERT_EQ(out.base()[off], store[x % nchan][sbefore[off]]) << y << "," << x;
      }
    if (!in_place) {
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = width * nchan; x < dst.rowstride(); ++x) {
          const size_t off = (size_t)y * dst.rowstride() + x;
          ASSERT_EQ(dst.base()[off], before[off]);
        }
    }
    ASSERT_TRUE(out.guards_intact());
  }
}

TEST(CompareTables, TranslationChannelCountsAndEmptyImages) {
  uint8_t t[256];
  uint8_t *tabs[5] = {t, t, t, t, t};
  uint8_t px[64] = {};
  EXPECT_EQ(sorn_xlat2d_u8(tabs, px, px, 10, 10, 1, 5, 2), SORN_ENOTSUP);
  EXPECT_EQ(sorn_xlat2d_u8(tabs, px, px, 10, 10, 1, 2, 5), SORN_EINVAL);
  EXPECT_EQ(sorn_xlat2d_u8(tabs, px, px, 10, 10, 1, 2, 0), SORN_EINVAL);
  EXPECT_EQ(sorn_xlat2d_u8(tabs, px, px, 10, 10, 0, 5, 2), SORN_OK);
  EXPECT_EQ(sorn_xlat2d_u8(tabs, px, px, 10, 10, 3, 0, 7), SORN_OK);
}

TEST(CompareTables, ScratchThatCantBeHadFallsBackToTheLoopsSilently) {
  // Without its tables an s8 source above the limit compares signed again.
  Env env;
  const double c = -1;
  Image a(1, 20000, 1, SORN_S8), d(1, 20000, 1, SORN_U8);
  SornArray ra = a.record(), rd = d.record();
  {
    sorn_test::AllocFailure fail(0, true);
    ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, &c, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
    EXPECT_TRUE(fail.fired());
  }
  EXPECT_EQ(d.at<uint8_t>(0, 7), 0);
  ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, &c, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(0, 7), 255);
  EXPECT_TRUE(env.at_mark());
}

/* ---------------- failures ---------------- */

TEST(CompareFailures, BadRecordsEmptyRegionsAndTypesWriteNothing) {
  Image a(4, 6, 1, SORN_U8), b(4, 6, 1, SORN_U8), d(4, 6, 1, SORN_U8, 0, 0x5a);
  Image a3(4, 6, 3, SORN_U8), s16(4, 6, 1, SORN_S16), u16(4, 6, 1, SORN_U16);
  Image f32(4, 6, 1, SORN_F32), s64(4, 6, 1, SORN_S64);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray ra = a.record(), rb = b.record(), rd = d.record(), r3 = a3.record();
  SornArray rs16 = s16.record(), ru16 = u16.record(), rf = f32.record(), rs64 = s64.record();
  const double c = 3, t = 1, f = 2;
  auto cmp = [&](const SornArray *dd, const SornArray *x, const SornArray *y,
                 const SornVolume *roi = nullptr, const SornVolume *s2 = nullptr) {
    return SornCompare(nullptr, 0, dd, x, y, roi, nullptr, s2, SORN_CMP_EQ);
  };
  // Records: rank, planes, channels of each operand.
  SornArray bad = ra;
  bad.ndims = 2;
  EXPECT_EQ(cmp(&rd, &bad, &rb), SORN_EINVAL);
  bad = ra;
  bad.dims[0] = 0;
  EXPECT_EQ(cmp(&rd, &bad, &rb), SORN_EINVAL);
  bad = ra;
  bad.dims[3] = 5;
  EXPECT_EQ(cmp(&rd, &bad, &rb), SORN_EINVAL);
  EXPECT_EQ(cmp(&rd, &ra, nullptr), SORN_EINVAL);
  EXPECT_EQ(cmp(&rd, nullptr, &rb), SORN_EINVAL);
  EXPECT_EQ(cmp(nullptr, &ra, &rb), SORN_EINVAL);
  SornArray four = make_record4(a.base(), 2, 2, 6, 1, SORN_U8, 12, 6);
  EXPECT_EQ(cmp(&rd, &ra, &four), SORN_EINVAL);   // second source of a higher rank
  EXPECT_EQ(cmp(&rd, &four, &rb), SORN_EINVAL);   // destination of another rank
  SornArray planes = make_record4(a.base(), 2, 2, 6, 1, SORN_U8, 12, 6);
  SornArray three = make_record4(a.base(), 3, 1, 6, 1, SORN_U8, 6, 6);
  EXPECT_EQ(cmp(&planes, &planes, &three), SORN_EINVAL);  // 3 planes against 2
  EXPECT_EQ(cmp(&rd, &ra, &r3), SORN_EINVAL);    // channels of the sources
  EXPECT_EQ(cmp(&rd, &r3, &r3), SORN_EINVAL);    // channels of the destination
  // Empty regions.
  SornVolume empty = make_roi(0, 0, 0, 3, 1), out = make_roi(10, 10, 2, 2, 1);
  EXPECT_EQ(cmp(&rd, &ra, &rb, &empty), SORN_ENOSPC);
  EXPECT_EQ(cmp(&rd, &ra, &rb, &out), SORN_ENOSPC);
  SornVolume far = make_roi(4, 0, 0, 0, 0);
  EXPECT_EQ(cmp(&rd, &ra, &rb, nullptr, &far), SORN_ENOSPC);
  // Types: unlike sources; pairs without kernels.
  EXPECT_EQ(cmp(&rd, &ra, &rs16), SORN_EINVAL);
  EXPECT_EQ(cmp(&rd, &ru16, &ru16), SORN_ENOTSUP);
  EXPECT_EQ(cmp(&rf, &ra, &rb), SORN_ENOTSUP);     // f32 destination, u8 sources
  EXPECT_EQ(cmp(&rs64, &ra, &rb), SORN_ENOTSUP);
  SornArray unknown = ra;
  unknown.elemtype = 7;
  EXPECT_EQ(cmp(&rd, &unknown, &unknown), SORN_EINVAL);
  EXPECT_EQ(SornCompareC(nullptr, 0, &rd, &rs64, &c, nullptr, nullptr, 3), SORN_ENOTSUP);
  EXPECT_EQ(SornCompareC(nullptr, 0, &rd, &unknown, &c, nullptr, nullptr, 3), SORN_EINVAL);
  // Value arguments.
  EXPECT_EQ(SornECompare(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 3, kKeepSrc, kKeepSrc),
            SORN_EINVAL);
  EXPECT_EQ(SornECompareC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr, 3, kKeepSrc, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(SornECompare(nullptr, 0, &rd, &rs16, &rs16, nullptr, nullptr, nullptr, 3, &t, kKeepSrc),
            SORN_EINVAL);
  EXPECT_EQ(SornECompareC(nullptr, 0, &rd, &rs16, &c, nullptr, nullptr, 3, kKeepSrc, &f),
            SORN_EINVAL);  // swapped: fval 1 with unlike types
  EXPECT_EQ(SornECompareC(nullptr, 0, &rs64, &ra, &c, nullptr, nullptr, 3, &t, &f), SORN_ENOTSUP);
  EXPECT_EQ(before, d.bytes_copy());
  EXPECT_TRUE(d.guards_intact());
  // The slice form checks the sources' types itself.
  int32_t dims[3] = {4, 6, 1}, o[3] = {0, 0, 0};
  SornCompareArgs args{SORN_CMP_EQ, nullptr, nullptr, nullptr};
  EXPECT_EQ(SornTGAcompare(nullptr, 0, &args, SORN_DIMPACK(3), dims, SORN_U8, d.base(), o,
                           rd.strides + 1, SORN_U8, a.base(), o, ra.strides + 1, SORN_S16,
                           s16.base(), o, rs16.strides + 1),
            SORN_EINVAL);
  EXPECT_EQ(before, d.bytes_copy());
}

TEST(CompareFailures, LookupsAnswerByTheKnownCodes) {
  SornStatus st = 0;
  sorna__cmpfun_imp(SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_OK);
  sorna__cmpfun_imp(SORN_U16, SORN_S8, &st);
  EXPECT_EQ(st, SORN_OK);  // one kernel for both widths' signedness
  EXPECT_EQ((void *)sorna__cmpfun_imp(SORN_U16, SORN_S8, nullptr),
            (void *)sorna__cmpfun_imp(SORN_S16, SORN_S8, nullptr));
  sorna__cmpfun_imp(SORN_U8, SORN_U16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__cmpfun_imp(SORN_U8, SORN_F64, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__cmpfun_imp(SORN_F32, SORN_F32, &st);
  EXPECT_EQ(st, SORN_EINVAL);  // no float destination among the plain forms
  sorna__ecmpfun_imp(SORN_F32, SORN_F32, &st);
  EXPECT_EQ(st, SORN_OK);
  sorna__ecmpcfun_imp(SORN_F32, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__ecmpcfun_imp(SORN_F64, SORN_F64, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__cmpcfun_imp(SORN_U8, 5, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  sorna__cmpcfun_imp(SORN_U8, 16, &st);
  EXPECT_EQ(st, SORN_EINVAL);
}

/* ---------------- the frame ---------------- */

TEST(CompareFrame, FourDimensionalImagesGoThroughTheFrame) {
  Env env;
  auto rng = sorn_test::seeded_rng(0xf4);
  const int32_t planes = 3, rows = 4, cols = 5;
  const int32_t rs = cols * 2, ps = rows * rs;
  std::vector<int16_t> a(planes * rows * cols * 2), b(a.size()), b1(rows * cols * 2);
  std::vector<uint8_t> d(a.size(), 0x11);
  for (auto &v : a) v = (int16_t)(rng() % 7);
  for (auto &v : b) v = (int16_t)(rng() % 7);
  for (auto &v : b1) v = (int16_t)(rng() % 7);
  SornArray ra = make_record4(a.data(), planes, rows, cols, 2, SORN_S16, ps * 2, rs * 2);
  SornArray rb = make_record4(b.data(), planes, rows, cols, 2, SORN_S16, ps * 2, rs * 2);
  SornArray rd = make_record4(d.data(), planes, rows, cols, 2, SORN_U8, ps, rs);
  ASSERT_EQ(SornCompare(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  for (size_t i = 0; i < d.size(); ++i) ASSERT_EQ(d[i], a[i] < b[i] ? 255 : 0) << i;
  const double c[2] = {3, 4};
  ASSERT_EQ(SornCompareC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, SORN_CMP_GE), SORN_OK);
  for (size_t i = 0; i < d.size(); ++i) ASSERT_EQ(d[i], a[i] >= c[i % 2] ? 255 : 0) << i;
  const double t[2] = {10, 20};
  ASSERT_EQ(SornECompareC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, SORN_CMP_EQ, t, kKeepSrc),
            SORN_EINVAL);
  ASSERT_EQ(SornECompare(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, SORN_CMP_EQ, t,
                         nullptr),
            SORN_OK);
  // A rank-3 second source under a rank-4 first source: planes that can't
  // merge leave the first plane to be worked, as the frame does.
  std::fill(d.begin(), d.end(), 0x11);
  SornArray r3 = make_record(b1.data(), rows, cols, 2, SORN_S16, rs * 2);
  ASSERT_EQ(SornCompare(env.xe(), 0, &rd, &ra, &r3, nullptr, nullptr, nullptr, SORN_CMP_LT), SORN_OK);
  for (size_t i = 0; i < d.size(); ++i)
    ASSERT_EQ(d[i], i < (size_t)ps ? (a[i] < b1[i] ? 255 : 0) : 0x11) << i;
  EXPECT_TRUE(env.at_mark());
}

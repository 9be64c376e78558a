// Value ranges: saturation to every type, defaults, scaling into a type,
// the map between two ranges, equalising channels and the range tests,
// against plain references written here.
#include <gtest/gtest.h>
#include <testkit.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

using sorn_test::seeded_rng;

namespace {

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kFltMax = 3.4028234663852886e38;

const uint32_t kRuled[] = {SORN_U8, SORN_U16, SORN_U32, SORN_S8, SORN_S16, SORN_S32, SORN_F32};

// ---------------------------------------------------------------- references

struct Full {
  double lo, hi;
};

Full full_of(uint32_t t) {
  switch (t) {
    case SORN_U8: return {0, 255};
    case SORN_S8: return {-128, 127};
    case SORN_U16: return {0, 65535};
    case SORN_S16: return {-32768, 32767};
    case SORN_U32: return {0, 4294967295.0};
    case SORN_S32: return {-2147483648.0, 2147483647.0};
    case SORN_F32: return {-kFltMax, kFltMax};
    default: return {-kInf, kInf};
  }
}

// The 32-bit conversion of an integral value: outside 32 bits, 0x80000000.
int64_t conv32(double v) {
  return v >= -2147483648.0 && v <= 2147483647.0 ? (int64_t)v : (int64_t)INT32_MIN;
}

// One end brought into the type: floor or ceiling, 32-bit conversion, clamp.
double ref_end(uint32_t t, double x, bool up) {
  if (t == SORN_F32) return (double)(float)x;
  int64_t v = conv32(up ? std::ceil(x) : std::floor(x));
  switch (t) {
    case SORN_U8: v = std::min<int64_t>(255, std::max<int64_t>(0, v)); break;
    case SORN_U16: v = std::min<int64_t>(65535, std::max<int64_t>(0, v)); break;
    case SORN_U32: v = std::max<int64_t>(0, v); break;
    case SORN_S8: v = std::min<int64_t>(127, std::max<int64_t>(-128, v)); break;
    case SORN_S16: v = std::min<int64_t>(32767, std::max<int64_t>(-32768, v)); break;
    default: break;
  }
  return (double)v;
}

bool ruled(uint32_t t) {
  for (uint32_t r : kRuled)
    if (r == t) return true;
  return false;
}

SornVrng ref_saturate(uint32_t t, SornVrng r) {
  if (!ruled(t)) return r;
  return SornVrng{ref_end(t, r.lo, false), ref_end(t, r.hi, true)};
}

// Same doubles, NaN matching NaN.
bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }
::testing::AssertionResult same(const SornVrng &a, const SornVrng &b) {
  if (same(a.lo, b.lo) && same(a.hi, b.hi)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "(" << a.lo << ", " << a.hi << ") vs (" << b.lo << ", "
                                       << b.hi << ")";
}

double random_double(std::mt19937_64 &rng) {
  static const double special[] = {0.0,   -0.0,        0.5,          -0.5,         1.5,      2.5,
                                   -2.5,  254.5,       255.5,        -127.5,       -128.5,   32767.5,
                                   65535.2, 2147483647.4, 2147483647.6, -2147483648.4,
                                   -2147483648.6, 3e9,  -3e9,         4294967295.0, 1e300,    -1e300,
                                   kInf,  -kInf,       kNaN,         3.5e38,       -3.5e38,  1e-320};
  switch (rng() % 4) {
    case 0: return special[rng() % (sizeof special / sizeof special[0])];
    case 1: return (double)(int64_t)(rng() % 600) - 300 + (double)(rng() % 8) / 8;
    case 2: return std::ldexp((double)(int64_t)(rng() >> 11) - (double)(1ull << 52), (int)(rng() % 40) - 60);
    default: return (double)(int32_t)rng() + (double)(rng() % 16) / 16;
  }
}

// A minimum and maximum record laid out field by field: the selector word,
// then four minimum entries and four maximum entries of six 32-bit cells.
struct Entry {
  int32_t ivalue;
  float fvalue;
  int32_t unused0, row, col, unused1;
};
struct MinmaxRecord {
  uint32_t what;
  Entry min[4];
  Entry max[4];
};
static_assert(sizeof(MinmaxRecord) == 4 * 49, "49 cells");

const SornMinmaxRec *as_record(const MinmaxRecord &r) {
  return reinterpret_cast<const SornMinmaxRec *>(&r);
}

// ---------------------------------------------------------------- saturation

TEST(VrngSaturate, U8ClampsAndRoundsOutward) {
  SornVrng r{-3.5, 300.2};
  sorn_vrng_saturate(SORN_U8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{0, 255}, r));
  r = {2.2, 3.1};
  sorn_vrng_saturate(SORN_U8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{2, 4}, r));
}

TEST(VrngSaturate, U32HighEndBeyond32BitsBecomesZero) {
  SornVrng r{5, 3000000000.0};
  sorn_vrng_saturate(SORN_U32, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{5, 0}, r));
}

TEST(VrngSaturate, SignedTypesClampToTheirEnds) {
  SornVrng r{-200, 200};
  sorn_vrng_saturate(SORN_S8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{-128, 127}, r));
  r = {-127.5, 126.2};
  sorn_vrng_saturate(SORN_S8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{-128, 127}, r));
  r = {-40000, 40000};
  sorn_vrng_saturate(SORN_S16, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{-32768, 32767}, r));
  // s32: no clamp, only the conversion, which sends 3e9 to the lowest value.
  r = {-1.5, 3e9};
  sorn_vrng_saturate(SORN_S32, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{-2, -2147483648.0}, r));
}

TEST(VrngSaturate, F32NarrowsEachEnd) {
  SornVrng r{0.1, 1e39};
  sorn_vrng_saturate(SORN_F32, &r, nullptr);
  EXPECT_EQ((double)0.1f, r.lo);
  EXPECT_TRUE(std::isinf(r.hi));
}

TEST(VrngSaturate, TypesWithoutARuleLeaveTheOutputAlone) {
  for (uint32_t t : {0u, 4u, 5u, 6u, 7u, 8u, 12u, 14u, 15u, 16u, 0xffffffffu}) {
    const SornVrng in{-3.7, 1e20};
    SornVrng out{11, 12};
    sorn_vrng_saturate(t, &out, &in);
    EXPECT_TRUE(same(SornVrng{11, 12}, out)) << t;  // not even copied
  }
}

TEST(VrngSaturate, MatchesTheReferenceOnRandomRangesOfEveryType) {
  auto rng = seeded_rng(0x5A70);
  for (uint32_t t = 0; t <= 16; ++t)
    for (int i = 0; i < 4000; ++i) {
      const SornVrng in{random_double(rng), random_double(rng)};
      SornVrng out{1, 2};
      sorn_vrng_saturate(t, &out, &in);
      const SornVrng want = ruled(t) ? ref_saturate(t, in) : SornVrng{1, 2};
      ASSERT_TRUE(same(want, out)) << "type " << t << " in (" << in.lo << ", " << in.hi << ")";
    }
}

TEST(VrngSaturate, ChannelFormsWorkEachChannelAndCountTheWord) {
  const SornVrng in[4] = {{-1, 256}, {3.5, 4.5}, {100, 99}, {-1e9, 1e9}};
  for (int32_t chword : {0, 1, 2, 3, 4, 8, 11, 0x13}) {
    SornVrng out[4] = {{7, 7}, {7, 7}, {7, 7}, {7, 7}};
    sorn_vrng_saturate_$cn(SORN_U8, out, in, chword);
    const int32_t n = SORN_CHANNELS(chword);
    for (int32_t c = 0; c < 4; ++c)
      EXPECT_TRUE(same(c < n ? ref_saturate(SORN_U8, in[c]) : SornVrng{7, 7}, out[c])) << chword << " " << c;
  }
  SornVrng inplace[2] = {{-1, 256}, {3.5, 4.5}};
  sorn_vrng_saturate_$cn(SORN_U8, inplace, nullptr, 2);
  EXPECT_TRUE(same(SornVrng{0, 255}, inplace[0]));
  EXPECT_TRUE(same(SornVrng{3, 5}, inplace[1]));
}

// ---------------------------------------------------------------- ranges from values

TEST(VrngFromValues, MinmaxRecordGivesTheF32CellsOfEachChannel) {
  MinmaxRecord rec;
  std::memset(&rec, 0, sizeof rec);
  for (int c = 0; c < 4; ++c) {
    rec.min[c].ivalue = 1000 + c;  // not read: the range takes the floats
    rec.min[c].fvalue = -2.75f - (float)c;
    rec.max[c].ivalue = -1000;
    rec.max[c].fvalue = 300.25f + (float)c;
  }
  SornVrng r{};
  __sorn_vrng__$minmax(&r, as_record(rec));
  EXPECT_TRUE(same(SornVrng{-2.75, 300.25}, r));
  __sorn_vrng__$minmax$Q(SORN_U8, &r, as_record(rec));
  EXPECT_TRUE(same(SornVrng{0, 255}, r));
  SornVrng cn[4];
  __sorn_vrng__$cn$minmax(cn, 4, as_record(rec));
  for (int c = 0; c < 4; ++c) EXPECT_TRUE(same(SornVrng{-2.75 - c, 300.25 + c}, cn[c]));
  __sorn_vrng__$cn$minmax$Q(SORN_S16, cn, 3, as_record(rec));
  for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(SornVrng{-3.0 - c, 301.0 + c}, cn[c]));
  EXPECT_TRUE(same(SornVrng{-2.75 - 3, 300.25 + 3}, cn[3]));  // channel 3 not counted
}

TEST(VrngFromValues, OnePairForEveryChannel) {
  SornVrng r[4] = {{9, 9}, {9, 9}, {9, 9}, {9, 9}};
  __sorn_vrng__$cn$2(r, 3, -0.5, 260.5);
  for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(SornVrng{-0.5, 260.5}, r[c]));
  EXPECT_TRUE(same(SornVrng{9, 9}, r[3]));
  __sorn_vrng__$cn$2$Q(SORN_U8, r, 11, -0.5, 260.5);
  for (int c = 0; c < 4; ++c) EXPECT_TRUE(same(SornVrng{0, 255}, r[c]));
}

// ---------------------------------------------------------------- normalization

TEST(VrngNormalize, NaNLowEndGivesTheTypesDefaultSpan) {
  for (uint32_t t = 0; t <= 15; ++t) {
    SornVrng r{kNaN, 5};
    sorn_vrng_normalize_$I(t, &r, nullptr);
    const bool bytes = t == SORN_U8 || t == SORN_S16 || t == SORN_S32;
    EXPECT_TRUE(same(SornVrng{0, bytes ? 255.0 : 1.0}, r)) << t;
    // A default does not take part, and the Q form does not saturate it.
    const SornVrng def{-9, 9};
    r = {kNaN, kNaN};
    sorn_vrng_normalize_$IQ(t, &r, &def);
    EXPECT_TRUE(same(SornVrng{0, bytes ? 255.0 : 1.0}, r)) << t;
  }
}

TEST(VrngNormalize, ReversedOrInfiniteLowEndTakesTheDefaultOrTheFullRange) {
  SornVrng r{10, 5};
  sorn_vrng_normalize_$I(SORN_U8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{0, 255}, r));
  const SornVrng def{-20, 3000};
  r = {10, 5};
  sorn_vrng_normalize_$IQ(SORN_U8, &r, &def);
  EXPECT_TRUE(same(def, r));  // the default as given, not saturated
  for (uint32_t t = 0; t <= 15; ++t) {
    r = {-kInf, 5};
    sorn_vrng_normalize_$I(t, &r, nullptr);
    EXPECT_TRUE(same(SornVrng{full_of(t).lo, full_of(t).hi}, r)) << t;
    r = {kInf, kInf};
    sorn_vrng_normalize_$IQ(t, &r, nullptr);
    EXPECT_TRUE(same(SornVrng{full_of(t).lo, full_of(t).hi}, r)) << t;
  }
}

TEST(VrngNormalize, AValidRangeStandsAndIsSaturatedByTheQForm) {
  SornVrng r{-3.5, 300.2};
  sorn_vrng_normalize_$I(SORN_U8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{-3.5, 300.2}, r));
  sorn_vrng_normalize_$IQ(SORN_U8, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{0, 255}, r));
  // hi NaN with a finite lo is not reversed: it stands.
  r = {1, kNaN};
  sorn_vrng_normalize_$I(SORN_F32, &r, nullptr);
  EXPECT_TRUE(same(SornVrng{1, kNaN}, r));
}

TEST(VrngNormalize, ChannelFormsTakeOneDefaultPerChannel) {
  const SornVrng def[3] = {{1, 2}, {3, 4}, {5, 6}};
  SornVrng r[4] = {{9, 8}, {kNaN, 0}, {-kInf, 0}, {9, 8}};
  sorn_vrng_normalize_$cn$I(SORN_S16, r, def, 3);
  EXPECT_TRUE(same(SornVrng{1, 2}, r[0]));
  EXPECT_TRUE(same(SornVrng{0, 255}, r[1]));
  EXPECT_TRUE(same(SornVrng{5, 6}, r[2]));
  EXPECT_TRUE(same(SornVrng{9, 8}, r[3]));  // beyond the count: untouched
}

TEST(VrngNormalize, ChannelFormsWithoutDefaultsGiveTheFullRangeToEveryChannel) {
  SornVrng r[4] = {{9, 8}, {9, 8}, {-kInf, 1}, {0.4, 0.6}};
  sorn_vrng_normalize_$cn$IQ(SORN_U8, r, nullptr, 4);
  for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(SornVrng{0, 255}, r[c])) << c;
  EXPECT_TRUE(same(SornVrng{0, 1}, r[3]));
}

TEST(VrngNormalize, CopyingFormsLeaveTheSourceAndTheQSFormTakesANullOutput) {
  const SornVrng in[2] = {{300, -5}, {-0.5, 0.5}};
  SornVrng out[2] = {};
  sorn_vrng_normalize_$cn(SORN_U8, out, in, nullptr, 2);
  EXPECT_TRUE(same(SornVrng{0, 255}, out[0]));
  EXPECT_TRUE(same(SornVrng{-0.5, 0.5}, out[1]));
  sorn_vrng_normalize_$cn$Q(SORN_U8, out, in, nullptr, 2);
  EXPECT_TRUE(same(SornVrng{0, 1}, out[1]));
  EXPECT_TRUE(same(SornVrng{300, -5}, in[0]));
  EXPECT_EQ(nullptr, sorn_vrng_normalize_$cn$QS(SORN_U8, nullptr, in, nullptr, 2));
  SornVrng keep[2] = {{-0.5, 300}, {7, 8}};
  sorn_vrng_normalize_$cn$QS(SORN_U8, keep, nullptr, nullptr, 2);  // in place
  EXPECT_TRUE(same(SornVrng{0, 255}, keep[0]));
}

TEST(VrngNormalize, ChannelWordZeroDoesNothing) {
  SornVrng r{9, 8};
  sorn_vrng_normalize_$cn$IQ(SORN_U8, &r, nullptr, 0);
  sorn_vrng_saturate_$cn(SORN_U8, &r, nullptr, 0);
  EXPECT_TRUE(same(SornVrng{9, 8}, r));
}

// ---------------------------------------------------------------- scaling

TEST(VrngScale, TypeCodesOutsideTheTableAreRefused) {
  SornVrng in{0, 1}, out{};
  for (uint32_t t = 0; t < 40; ++t) {
    const SornStatus s = sorn_vrng_scale_$cn$Q(t, &out, &in, nullptr, nullptr, 1);
    SornStatus want = SORN_EINVAL;
    if (t == 4 || t == 12 || t == 14 || t == 15) want = SORN_ENOTSUP;
    if (ruled(t)) want = SORN_OK;
    EXPECT_EQ(want, s) << t;
  }
  EXPECT_EQ(SORN_EINVAL, sorn_vrng_scale_$cn$Q(0xffffffffu, &out, &in, nullptr, nullptr, 1));
}

TEST(VrngScale, SpanOf300InU8IsCutAtTheTop) {
  const SornVrng in{0, 300};
  SornVrng out{};
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, &out, &in, nullptr, nullptr, 1));
  EXPECT_TRUE(same(SornVrng{0, 255}, out));
}

TEST(VrngScale, RangesThatFitStayAsScaled) {
  const SornVrng in[2] = {{10, 20}, {0, 100}};
  const double gains[2] = {2, 0.5}, bases[2] = {5, 1};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, gains, bases, 2));
  EXPECT_TRUE(same(SornVrng{5, 25}, out[0]));
  EXPECT_TRUE(same(SornVrng{1, 51}, out[1]));
}

TEST(VrngScale, RangesAboveTheTypeMoveDownTogetherWhileTheyFit) {
  // 100..200 and 230..280 in u8: 25 over the top, and 25 of room below.
  const SornVrng in[2] = {{0, 100}, {0, 50}};
  const double bases[2] = {100, 230};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, nullptr, bases, 2));
  EXPECT_TRUE(same(SornVrng{75, 175}, out[0]));
  EXPECT_TRUE(same(SornVrng{205, 255}, out[1]));
}

TEST(VrngScale, WhenMovingDownWouldLeaveTheBottomTheHighEndsAreCut) {
  const SornVrng in[2] = {{0, 100.4}, {0, 300.2}};
  const double bases[2] = {40, 3};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, nullptr, bases, 2));
  EXPECT_TRUE(same(SornVrng{40, 141}, out[0]));  // rounded up
  EXPECT_TRUE(same(SornVrng{3, 255}, out[1]));   // and clamped
}

TEST(VrngScale, RangesBelowTheTypeMoveUpTogetherWhileTheyFit) {
  // -100..-90 and -50..-30 in u8: 100 below the bottom, room above.
  const SornVrng in[2] = {{0, 10}, {0, 20}};
  const double bases[2] = {-100, -50};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, nullptr, bases, 2));
  EXPECT_TRUE(same(SornVrng{0, 10}, out[0]));
  EXPECT_TRUE(same(SornVrng{50, 70}, out[1]));
}

TEST(VrngScale, WhenMovingUpWouldLeaveTheTopTheLowEndsAreCut) {
  // -20.5..249.5 and 2.7..12.7: moving up by 20.5 would pass 255.
  const SornVrng in[2] = {{0, 270}, {0, 10}};
  const double bases[2] = {-20.5, 2.7};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, nullptr, bases, 2));
  EXPECT_TRUE(same(SornVrng{0, 249.5}, out[0]));  // rounded down, clamped; hi stays
  EXPECT_TRUE(same(SornVrng{2, 12.7}, out[1]));
}

TEST(VrngScale, RangesBeyondBothEndsAreSaturated) {
  const SornVrng in[2] = {{0, 400}, {0, 1}};
  const double gains[2] = {1, 1}, bases[2] = {-10.5, 7.25};
  SornVrng out[2];
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_U8, out, in, gains, bases, 2));
  EXPECT_TRUE(same(SornVrng{0, 255}, out[0]));
  EXPECT_TRUE(same(SornVrng{7, 9}, out[1]));
}

TEST(VrngScale, F32RangesMoveOrAreOnlyNarrowed) {
  // -4e38..1e38: below the type by less than the room above it: moved up.
  const SornVrng in{0, 5e38};
  const double bases[1] = {-4e38};
  SornVrng out;
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_F32, &out, &in, nullptr, bases, 1));
  const double shift = -kFltMax - -4e38;
  EXPECT_EQ(-4e38 + shift, out.lo);
  EXPECT_EQ((5e38 + -4e38) + shift, out.hi);
  // -1e39..0 cannot move up far enough: its low end narrows to f32, where
  // it is infinite.
  const SornVrng wide{0, 1e39};
  const double far[1] = {-1e39};
  ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(SORN_F32, &out, &wide, nullptr, far, 1));
  EXPECT_EQ(-kInf, out.lo);
  EXPECT_EQ(0.0, out.hi);
}

TEST(VrngScale, MatchesAPlainReferenceOnRandomRanges) {
  auto rng = seeded_rng(0x5CA1);
  for (uint32_t t : kRuled)
    for (int it = 0; it < 3000; ++it) {
      const int32_t chword = 1 + (int32_t)(rng() % 4);
      const int32_t n = SORN_CHANNELS(chword);
      SornVrng in[4];
      double gains[4], bases[4];
      const Full f = full_of(t);
      const double span = f.hi - f.lo;
      for (int c = 0; c < 4; ++c) {
        const double a = f.lo + span * (double)(rng() % 1000) / 700.0 - span * 0.2;
        in[c] = {a, a + span * (double)(rng() % 1000) / 1500.0};
        gains[c] = (double)(rng() % 300) / 100.0;
        bases[c] = f.lo + span * ((double)(rng() % 1000) / 800.0 - 0.2);
      }
      const bool use_g = rng() & 1, use_b = rng() & 1;
      SornVrng out[4];
      ASSERT_EQ(SORN_OK, sorn_vrng_scale_$cn$Q(t, out, in, use_g ? gains : nullptr,
                                               use_b ? bases : nullptr, chword));
      // The reference.
      SornVrng want[4];
      double m = f.hi, M = f.lo;
      for (int c = 0; c < n; ++c) {
        const double g = use_g ? gains[c] : 1, b = use_b ? bases[c] : 0;
        want[c] = {b, (in[c].hi - in[c].lo) * g + b};
        m = std::min(m, want[c].lo);
        M = std::max(M, want[c].hi);
      }
      if (m >= f.lo && M > f.hi) {
        const double d = M - f.hi;
        for (int c = 0; c < n; ++c) {
          if (m - d >= f.lo)
            want[c] = {want[c].lo - d, want[c].hi - d};
          else
            want[c].hi = ref_end(t, want[c].hi, true);
        }
      } else if (m < f.lo && M > f.hi) {
        for (int c = 0; c < n; ++c) want[c] = ref_saturate(t, want[c]);
      } else if (m < f.lo) {
        const double d = f.lo - m;
        for (int c = 0; c < n; ++c) {
          if (M + d <= f.hi)
            want[c] = {want[c].lo + d, want[c].hi + d};
          else
            want[c].lo = ref_end(t, want[c].lo, false);
        }
      }
      for (int c = 0; c < n; ++c) ASSERT_TRUE(same(want[c], out[c])) << "type " << t << " channel " << c;
    }
}

// ---------------------------------------------------------------- solve

TEST(VrngSolve, MapsFromOntoTo) {
  const SornVrng to{0, 100}, from{10, 20};
  double g, b;
  sorn_vrng_solve(&g, &b, &to, &from);
  EXPECT_EQ(10.0, g);
  EXPECT_EQ(-100.0, b);
}

TEST(VrngSolve, EmptySourceGivesGainOneAndAShift) {
  const SornVrng to{5, 100}, from{42, 42 + 1e-7};
  double g, b;
  sorn_vrng_solve(&g, &b, &to, &from);
  EXPECT_EQ(1.0, g);
  EXPECT_EQ(5.0 - 42.0, b);
  const SornVrng wide{42, 42 + 2e-7};
  sorn_vrng_solve(&g, &b, &to, &wide);
  EXPECT_NE(1.0, g);
}

TEST(VrngSolve, ChannelFormSolvesEachChannel) {
  const SornVrng to[3] = {{0, 255}, {0, 100}, {7, 9}}, from[3] = {{0, 255}, {0, 50}, {3, 3}};
  double g[4] = {-1, -1, -1, -1}, b[4] = {-1, -1, -1, -1};
  sorn_vrng_solve_$cn(g, b, to, from, 3);
  EXPECT_EQ(1.0, g[0]);
  EXPECT_EQ(0.0, b[0]);
  EXPECT_EQ(2.0, g[1]);
  EXPECT_EQ(1.0, g[2]);
  EXPECT_EQ(4.0, b[2]);
  EXPECT_EQ(-1.0, g[3]);
}

// ---------------------------------------------------------------- equalising

TEST(VrngEqualize, EveryChannelTakesTheWidestEnds) {
  SornVrng r[4] = {{5, 10}, {-3, 4}, {6, 200}, {-100, 1000}};
  sorn_vrng_equalize_$I(r, 3);
  for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(SornVrng{-3, 200}, r[c]));
  EXPECT_TRUE(same(SornVrng{-100, 1000}, r[3]));
  SornVrng one{9, 1};
  sorn_vrng_equalize_$I(&one, 1);
  EXPECT_TRUE(same(SornVrng{9, 1}, one));
  const SornVrng in[2] = {{1, 2}, {0, 5}};
  SornVrng out[2];
  sorn_vrng_equalize(out, in, 2);
  EXPECT_TRUE(same(SornVrng{0, 5}, out[0]));
  EXPECT_TRUE(same(SornVrng{1, 2}, in[0]));
}

TEST(VrngXEqualize, LooksAtRepairedAndSaturatedChannels) {
  // Channel 1 is reversed (full range 0..255 for u8); channel 2 NaN (0..255).
  SornVrng r[3] = {{10.5, 20.5}, {9, 1}, {kNaN, 0}};
  sorn_vrng_xequalize_$I(SORN_U8, r, 3);
  for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(SornVrng{0, 255}, r[c]));
  SornVrng s[2] = {{10.5, 20.5}, {30.2, 40.2}};
  sorn_vrng_xequalize_$I(SORN_U8, s, 2);
  for (int c = 0; c < 2; ++c) EXPECT_TRUE(same(SornVrng{10, 41}, s[c]));
  SornVrng f[2] = {{10.5, 20.5}, {30.2, 40.2}};
  sorn_vrng_xequalize_$I(SORN_F32, f, 2);
  EXPECT_TRUE(same(SornVrng{10.5, (double)40.2f}, f[0]));
  SornVrng one{9, 1};
  sorn_vrng_xequalize_$I(SORN_U8, &one, 1);
  EXPECT_TRUE(same(SornVrng{9, 1}, one));
}

TEST(VrngXEqualize, CopyingFormCopiesThenEqualisesTheOutput) {
  const SornVrng in[2] = {{1.2, 2.2}, {3, 4}};
  SornVrng out[2];
  sorn_vrng_xequalize(SORN_S16, out, in, 2);
  EXPECT_TRUE(same(SornVrng{1, 4}, out[1]));
  EXPECT_TRUE(same(SornVrng{1.2, 2.2}, in[0]));
  // Without a source there is nothing to copy: the output is equalised as
  // it stands.
  SornVrng own[2] = {{-7.5, 2}, {kNaN, 0}};
  sorn_vrng_xequalize(SORN_S16, own, nullptr, 2);
  EXPECT_TRUE(same(SornVrng{-8, 255}, own[0]));
  EXPECT_TRUE(same(SornVrng{-8, 255}, own[1]));
  // One channel: the copy alone.
  SornVrng single{0, 0};
  const SornVrng src{9, 1};
  sorn_vrng_xequalize(SORN_S16, &single, &src, 1);
  EXPECT_TRUE(same(SornVrng{9, 1}, single));
  EXPECT_EQ(nullptr, sorn_vrng_xequalize_$I(SORN_U8, nullptr, 3));
}

TEST(VrngEqualize, EqualisedChannelsAreEqualisedAfterwards) {
  // A destination range that is equalised in place then passes the test for
  // equal channels, whatever its channels were before.
  SornVrng r[4] = {{0, 1}, {-5, 3}, {7, 9}, {2, 2}};
  EXPECT_FALSE(sorn_vrng_equalized(r, 4));
  sorn_vrng_equalize_$I(r, 4);
  EXPECT_TRUE(sorn_vrng_equalized(r, 4));
  SornVrng x[3] = {{kNaN, 0}, {9, 8}, {0.25, 0.5}};
  sorn_vrng_xequalize_$I(SORN_F32, x, 3);
  EXPECT_TRUE(sorn_vrng_equalized(x, 3));
}

// ---------------------------------------------------------------- tests

TEST(VrngEqual, AgreementIsWithinTheF32Tolerance) {
  const SornVrng a[2] = {{0, 1}, {100, 200}};
  SornVrng b[2] = {{1e-7, 1}, {100, 200}};
  EXPECT_TRUE(sorn_vrng_equal_$cn(a, b, 2));
  b[0].lo = 2e-7;
  EXPECT_FALSE(sorn_vrng_equal_$cn(a, b, 2));
  EXPECT_TRUE(sorn_vrng_equal_$cn(a, b, 0));
  // Large values agree when their f32 forms do.
  const SornVrng big{0, 1e10}, big2{0, 1e10 + 100};
  EXPECT_TRUE(sorn_vrng_equal_$cn(&big, &big2, 1));
  const SornVrng nan{kNaN, 1};
  EXPECT_FALSE(sorn_vrng_equal_$cn(&nan, &nan, 1));
}

TEST(VrngEqualized, AllChannelsAgainstTheFirst) {
  SornVrng r[3] = {{0, 255}, {0, 255}, {0, 255}};
  EXPECT_TRUE(sorn_vrng_equalized(r, 3));
  r[2].hi = 100;
  EXPECT_FALSE(sorn_vrng_equalized(r, 3));
  EXPECT_TRUE(sorn_vrng_equalized(r, 2));
  EXPECT_TRUE(sorn_vrng_equalized(r, 1));
  EXPECT_TRUE(sorn_vrng_equalized(r, 0));
  sorn_vrng_equalize_$I(r, 3);
  EXPECT_TRUE(sorn_vrng_equalized(r, 3));
}

TEST(VrngXEqual, ComparesRepairedRanges) {
  const SornVrng a{9, 1}, b{0, 255};  // a repairs to u8's full range
  EXPECT_TRUE(sorn_vrng_xequal_$cn(SORN_U8, &a, &b, 1));
  EXPECT_FALSE(sorn_vrng_equal_$cn(&a, &b, 1));
  const SornVrng c{-3, 300};
  EXPECT_TRUE(sorn_vrng_xequal_$cn(SORN_U8, &c, &b, 1));
  EXPECT_FALSE(sorn_vrng_xequal_$cn(SORN_S16, &c, &b, 1));
  EXPECT_TRUE(same(SornVrng{9, 1}, a));  // the arguments are left alone
}

TEST(VrngChecks, UnsignedBitsAndSpan) {
  const SornVrng r[2] = {{0, 255}, {10, 20}};
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(r, 2, 8, 8));
  EXPECT_FALSE(sorn_vrng_uxchk_$cn(r, 2, 7, 7));
  // Bits above dbits: the span must fit dbits too.
  EXPECT_FALSE(sorn_vrng_uxchk_$cn(r, 2, 16, 4));
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(r + 1, 1, 16, 4));
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(r, 1, 16, 8));
  const SornVrng neg{-1, 5};
  EXPECT_FALSE(sorn_vrng_uxchk_$cn(&neg, 1, 32, 32));
  const SornVrng zero{0, 0}, one{0, 1};
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(&zero, 1, 64, 64));  // 64 & 63 is 0 bits
  EXPECT_FALSE(sorn_vrng_uxchk_$cn(&one, 1, 64, 64));
  EXPECT_FALSE(sorn_vrng_uxchk_$cn(&one, 1, 8, -3));  // a negative dbits allows a span of 0
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(&zero, 1, 8, -3));
  EXPECT_TRUE(sorn_vrng_uxchk_$cn(&neg, 0, 1, 1));
}

TEST(VrngChecks, SignedBitsFormedIn32Bits) {
  const SornVrng s8{-128, 127}, s9{-129, 127}, s32{-2147483648.0, 2147483647.0};
  EXPECT_TRUE(sorn_vrng_sxchk_$cn(&s8, 1, 8, 8));
  EXPECT_FALSE(sorn_vrng_sxchk_$cn(&s9, 1, 8, 8));
  EXPECT_TRUE(sorn_vrng_sxchk_$cn(&s32, 1, 32, 32));
  EXPECT_TRUE(sorn_vrng_sxchk_$cn(&s32, 1, 0, 0));  // a shift by 31: all of s32
  const SornVrng small{-1, 0};
  EXPECT_TRUE(sorn_vrng_sxchk_$cn(&small, 1, 1, 1));
  EXPECT_FALSE(sorn_vrng_sxchk_$cn(&s8, 1, 16, 4));  // span 255 beyond 4 bits
}

TEST(VrngChecks, SpanBits) {
  const SornVrng r[2] = {{10, 265}, {300, 45}};
  EXPECT_TRUE(sorn_vrng_diffuxchk_$cn(r, 2, 8));
  const SornVrng w{0, 256};
  EXPECT_FALSE(sorn_vrng_diffuxchk_$cn(&w, 1, 8));
  EXPECT_TRUE(sorn_vrng_diffuxchk_$cn(&w, 1, 16));
  const SornVrng z{3, 3};
  EXPECT_TRUE(sorn_vrng_diffuxchk_$cn(&z, 1, -5));
  EXPECT_TRUE(sorn_vrng_diffuxchk_$cn(&w, 0, 0));
}

TEST(VrngChecks, PowerOfTwoSpans) {
  const SornVrng ok[3] = {{0, 256}, {5, 5}, {1, 1025.4}};
  EXPECT_TRUE(sorn_vrng_m2chk_$cn(ok, 3));
  const SornVrng bad{0, 255};
  EXPECT_FALSE(sorn_vrng_m2chk_$cn(&bad, 1));
  const SornVrng reversed{255, 0}, nan{kNaN, 0};
  EXPECT_TRUE(sorn_vrng_m2chk_$cn(&reversed, 1));  // negative counts as 0
  EXPECT_TRUE(sorn_vrng_m2chk_$cn(&nan, 1));
  EXPECT_TRUE(sorn_vrng_m2chk_$cn(&bad, 0));
  const SornVrng half{0, 2.5}, three{0, 3.4};
  EXPECT_TRUE(sorn_vrng_m2chk_$cn(&half, 1));  // rint(2.5) is 2
  EXPECT_FALSE(sorn_vrng_m2chk_$cn(&three, 1));
}

}  // namespace

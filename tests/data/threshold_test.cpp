// SornThreshold and SornComputeThresholdByOtsu: Otsu's threshold against a
// plain walk over a histogram written here, every method on images whose
// result is known by hand, constant and adaptive conditions against the
// comparison reference, two passes, scratch and its failure, and the
// failures of the entries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
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
const double kEps = 1.1920928955078125e-7;  // 2^-23

using Env = sorn_test::ScratchEnv;

SornThresholdCriterion sheer(uint32_t op, double t, double v) {
  SornThresholdCriterion c;
  std::memset(&c, 0, sizeof c);
  c.op = op;
  for (int k = 0; k < 4; ++k) {
    c.thresh[k] = t;
    c.value[k] = v;
  }
  return c;
}

SornThresholdCriterion adaptive(uint32_t op, const SornArray *a, double v) {
  SornThresholdCriterion c = sheer(op, 0, v);
  c.thresh[0] = kNaN;
  std::memcpy(&c.thresh[1], &a, sizeof a);
  return c;
}

SornThresholdSpec method(uint32_t m) {
  SornThresholdSpec s;
  std::memset(&s, 0, sizeof s);
  s.method = m;
  for (auto &r : s.vrng) r = SornVrng{kNaN, 0};
  return s;
}

/* ---------------- Otsu on a histogram, the plain way ---------------- */

// Classes below and from each candidate bin on: the between-class variance
// times the pixel count squared, from sums over the classes written out in
// full; the candidate that first reaches the largest wins unless a later
// one is larger by more than 2^-23.
struct OtsuRef {
  double threshold;
  double variance;  // of the chosen parting
};
OtsuRef otsu_reference(const std::vector<uint32_t> &counts, double w, double low, double total) {
  const size_t bins = counts.size();
  size_t i0 = 0;
  while (i0 < bins && counts[i0] == 0) ++i0;
  std::vector<double> value(bins);
  double v = (double)i0 * w + low;
  for (size_t i = i0; i < bins; ++i, v += w) value[i] = v;
  double best = 0, t = low, var = 0;
  for (size_t k = i0; k < bins; ++k) {
    if (counts[k] == 0) continue;
    double n0 = 0, s0 = 0, n1 = 0, s1 = 0;
    for (size_t i = i0; i < bins; ++i) {
      if (i <= k) { n0 += counts[i]; s0 += counts[i] * value[i]; }
      else { n1 += counts[i]; s1 += counts[i] * value[i]; }
    }
    n1 = total - n0;  // the pixels not counted below
    if (n1 <= 0) break;
    const double m0 = s0 / n0, m1 = s1 / n1;
    const double score = n0 * n1 * (m0 - m1) * (m0 - m1);
    if (score - best > kEps) {
      best = score;
      t = value[k];
      var = (n0 / total) * (n1 / total) * (m0 - m1) * (m0 - m1);
    }
  }
  return {t + w - kEps, var};
}

SornHist hist_of(std::vector<uint32_t> &counts, double w, double low, uint32_t total) {
  SornHist h;
  std::memset(&h, 0, sizeof h);
  h.width = (float)w;
  h.low = (float)low;
  h.bins = (uint32_t)counts.size() - 1;
  h.total = total;
  h.counts = counts.data();
  return h;
}

}  // namespace

TEST(Otsu, HistogramWalkAgainstAPlainReference) {
  auto rng = sorn_test::seeded_rng(0x0757);
  for (int rep = 0; rep < 400; ++rep) {
    const size_t bins = 2 + rng() % 300;
    std::vector<uint32_t> counts(bins + 1, 0);
    const int modes = 1 + (int)(rng() % 3);
    uint64_t total = 0;
    for (int m = 0; m < modes; ++m) {
      const size_t at = rng() % bins, spread = 1 + rng() % 20;
      for (int k = 0; k < 200; ++k) {
        const size_t b = (at + rng() % spread) % bins;
        const uint32_t n = (uint32_t)(rng() % 50);
        counts[b] += n;
        total += n;
      }
    }
    if (total == 0) counts[0] = 1, total = 1;
    // Integral widths and lows keep every sum exact in both walks.
    const double w = (double)(1 + rng() % 3), low = (double)((int)(rng() % 100) - 50);
    SornHist h = hist_of(counts, w, low, (uint32_t)total);
    const OtsuRef ref = otsu_reference(std::vector<uint32_t>(counts.begin(), counts.end() - 1), w,
                                       low, (double)total);
    ASSERT_EQ(sorna_calculate_threshold_otsu_f(&h), ref.threshold) << "rep " << rep;
    ASSERT_EQ(sorna_calculate_threshold_otsu_i(&h), std::nearbyint(ref.threshold));
  }
}

TEST(Otsu, ChosenPartingHasTheLargestBetweenClassVariance) {
  // Fractional widths: the chosen bin's variance is the largest of all
  // partings, within rounding.
  auto rng = sorn_test::seeded_rng(0x0758);
  for (int rep = 0; rep < 100; ++rep) {
    const size_t bins = 16 + rng() % 400;
    std::vector<uint32_t> counts(bins + 1, 0);
    uint64_t total = 0;
    for (size_t b = 0; b < bins; ++b) {
      counts[b] = (uint32_t)(rng() % 7 == 0 ? rng() % 1000 : 0);
      total += counts[b];
    }
    if (total == 0) counts[3] = 5, total = 5;
    const float w = 1.0f / (float)(bins - 1);
    SornHist h = hist_of(counts, w, 0.0, (uint32_t)total);
    const double t = sorna_calculate_threshold_otsu_f(&h);
    const OtsuRef ref = otsu_reference(std::vector<uint32_t>(counts.begin(), counts.end() - 1),
                                       (double)w, 0.0, (double)total);
    ASSERT_NEAR(t, ref.threshold, 1e-9) << rep;
  }
}

TEST(Otsu, ConstantImageStopsAtTheFirstBin) {
  std::vector<uint32_t> counts(257, 0);
  counts[77] = 500;
  SornHist h = hist_of(counts, 1.0, 0.0, 500);
  EXPECT_EQ(sorna_calculate_threshold_otsu_f(&h), 0.0 + 1.0 - kEps);
  Env env;
  Image img(10, 50, 1, SORN_U8, 0, 77);
  SornArray a = img.record();
  double t = 0;
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, nullptr, nullptr), SORN_OK);
  EXPECT_EQ(t, 1.0 - kEps);
}

TEST(Otsu, TwoLevelImageThresholdsJustAboveTheLowerLevel) {
  Env env;
  Image img(6, 20, 1, SORN_U8, 3, 10), out(6, 20, 1, SORN_U8);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 20; ++x)
      if ((x + y) % 3 == 0) img.set(y, x, 0, 200);
  SornArray a = img.record(), o = out.record();
  double t = 0;
  SornVrng r = {kNaN, 0};
  int32_t bins = 0;
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, &r, &bins), SORN_OK);
  EXPECT_EQ(t, 11.0 - kEps);
  EXPECT_EQ(bins, 256);
  const SornThresholdSpec otsu = method(SORN_THH_OTSU);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &otsu, nullptr, 0), SORN_OK);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 20; ++x)
      ASSERT_EQ(out.get(y, x, 0), img.get(y, x, 0) == 10 ? 0 : 255) << y << "," << x;
  EXPECT_TRUE(env.at_mark());
}

TEST(Otsu, FloatImagesTakeTheDefaultRangeOf384Bins) {
  Env env;
  Image img(4, 30, 1, SORN_F32), out(4, 30, 1, SORN_F32);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 30; ++x) img.at<float>(y, x) = x < 12 ? 0.2f : 0.75f;
  SornArray a = img.record(), o = out.record();
  double t = 0;
  int32_t bins = 0;
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, nullptr, &bins), SORN_OK);
  EXPECT_EQ(bins, 384);
  const double w = (double)(1.0f / 383.0f);
  const double bin = std::trunc((double)(0.2f - 0.0f) * (double)(383.0f / 1.0f));
  EXPECT_NEAR(t, bin * w + w - kEps, 1e-12);
  EXPECT_GT(t, 0.2);
  EXPECT_LT(t, 0.75);
  const SornThresholdSpec otsu = method(SORN_THH_OTSU | SORN_THH_DEFAULTS);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &otsu, nullptr, 0), SORN_OK);
  EXPECT_EQ(out.at<float>(2, 3), 0.0f);
  EXPECT_EQ(out.at<float>(2, 20), 1.0f);
}

TEST(Otsu, MeasuredRangeAndGivenBinsComeBack) {
  Env env;
  Image img(5, 9, 1, SORN_S16);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 9; ++x) img.set(y, x, 0, x < 4 ? -1000 : 3000 + y);
  SornArray a = img.record();
  double t = 0;
  SornVrng r = {std::numeric_limits<double>::infinity(), 0};
  int32_t bins = 1;
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, &r, &bins), SORN_OK);
  EXPECT_EQ(r.lo, -1000);
  EXPECT_EQ(r.hi, 3004);
  EXPECT_EQ(bins, 256);
  EXPECT_GT(t, -1000);
  EXPECT_LT(t, 3000);
  // A default range that misses the values counts what it covers and
  // never writes beyond its counters.
  SornVrng d = {kNaN, 0};
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, &d, nullptr), SORN_OK);
  EXPECT_TRUE(env.at_mark());
}

TEST(Otsu, MethodNames) {
  EXPECT_STREQ(sorn_thhmethod_str(0), "null(immediate)-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(0x10), "null(immediate)-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(1), "unknown-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(3), "otsu-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(4), "usto-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(5), "blur-threshold-method");
}

/* ---------------- methods by hand ---------------- */

TEST(Threshold, ClippingWithANaNValue) {
  Image img(2, 5, 1, SORN_U8), out(2, 5, 1, SORN_U8);
  const uint8_t v[] = {10, 99, 100, 101, 250};
  for (int x = 0; x < 5; ++x) img.set(1, x, 0, v[x]);
  SornArray a = img.record(), o = out.record();
  const SornThresholdCriterion c = sheer(SORN_CMP_GT, 100, kNaN);
  ASSERT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, &c, 1), SORN_OK);
  const uint8_t want[] = {10, 99, 100, 100, 100};
  for (int x = 0; x < 5; ++x) EXPECT_EQ(out.get(1, x, 0), want[x]);
}

TEST(Threshold, InPlaceWithoutASource) {
  Image img(3, 40, 3, SORN_S16, 6);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 40; ++x)
      for (int c = 0; c < 3; ++c) img.set(y, x, c, x * 10 - 200 + c);
  SornArray a = img.record();
  SornThresholdCriterion c = sheer(SORN_CMP_LT, 0, -7);
  c.value[1] = -8;
  SornVolume roi = make_roi(1, 5, 2, 30, 3);
  ASSERT_EQ(SornThreshold(nullptr, 0, &a, nullptr, &roi, nullptr, nullptr, &c, 1), SORN_OK);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 40; ++x)
      for (int ch = 0; ch < 3; ++ch) {
        const double v = x * 10 - 200 + ch;
        const bool in = y >= 1 && x >= 5 && x < 35;
        ASSERT_EQ(img.get(y, x, ch), in && v < 0 ? (ch == 1 ? -8 : -7) : v) << y << "," << x;
      }
  EXPECT_TRUE(img.guards_intact());
}

TEST(Threshold, TwoConditionsInOnePassAndInTwo) {
  Env env;
  Image img(1, 8, 1, SORN_U8), out(1, 8, 1, SORN_U8);
  const uint8_t v[] = {0, 49, 50, 51, 99, 100, 101, 255};
  for (int x = 0; x < 8; ++x) img.set(0, x, 0, v[x]);
  SornArray a = img.record(), o = out.record();
  // Less than 50, at or above 50: one pass, every element one of the two.
  SornThresholdCriterion one[2] = {sheer(SORN_CMP_LT, 50, 1), sheer(SORN_CMP_GE, 50, 2)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, one, 2), SORN_OK);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(out.get(0, x, 0), v[x] < 50 ? 1 : 2) << x;
  // Less than 50, at or above 100: two passes; what the first leaves keeps
  // its value, and the second sees the first one's output.
  SornThresholdCriterion two[2] = {sheer(SORN_CMP_LT, 50, 150), sheer(SORN_CMP_GE, 100, 7)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, two, 2), SORN_OK);
  const uint8_t want[] = {7, 7, 50, 51, 99, 7, 7, 7};
  for (int x = 0; x < 8; ++x) EXPECT_EQ(out.get(0, x, 0), want[x]) << x;
  // Greater than 100, less than 200: every element meets one of the two,
  // and one pass writes the first value where the first holds.
  SornThresholdCriterion cover[2] = {sheer(SORN_CMP_GT, 100, 9), sheer(SORN_CMP_LT, 200, 8)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, cover, 2), SORN_OK);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(out.get(0, x, 0), v[x] > 100 ? 9 : 8) << x;
  // Greater than 200, less than 100: two passes, so a value the first one
  // writes (9) is seen by the second (9 is less than 100).
  SornThresholdCriterion apart[2] = {sheer(SORN_CMP_GT, 200, 9), sheer(SORN_CMP_LT, 100, 8)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, apart, 2), SORN_OK);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(out.get(0, x, 0), v[x] < 100 || v[x] > 200 ? 8 : v[x]) << x;
  EXPECT_TRUE(env.at_mark());
}

TEST(Threshold, AdaptiveConditionsAgainstAThresholdImage) {
  Env env;
  Image img(3, 6, 1, SORN_S32), th(4, 7, 1, SORN_S32), th2(3, 6, 1, SORN_S32), out(3, 6, 1, SORN_S32);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 6; ++x) {
      img.set(y, x, 0, y * 6 + x);
      th.set(y, x, 0, 8);
      th2.set(y, x, 0, 12);
    }
  SornArray a = img.record(), t = th.record(), t2 = th2.record(), o = out.record();
  const SornThresholdCriterion c1 = adaptive(SORN_CMP_GE, &t, -5);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, &c1, 1), SORN_OK);
  for (int i = 0; i < 18; ++i) EXPECT_EQ(out.get(i / 6, i % 6, 0), i >= 8 ? -5 : i);
  // Two conditions on one array: one pass.
  SornThresholdCriterion same[2] = {adaptive(SORN_CMP_LT, &t, 1), adaptive(SORN_CMP_GE, &t, 2)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, same, 2), SORN_OK);
  for (int i = 0; i < 18; ++i) EXPECT_EQ(out.get(i / 6, i % 6, 0), i < 8 ? 1 : 2);
  // Two arrays: two passes, the second seeing the first's output.
  SornThresholdCriterion apart[2] = {adaptive(SORN_CMP_LT, &t, 100), adaptive(SORN_CMP_GE, &t2, 3)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, apart, 2), SORN_OK);
  for (int i = 0; i < 18; ++i) EXPECT_EQ(out.get(i / 6, i % 6, 0), i < 8 || i >= 12 ? 3 : i);
  // A second condition without an array takes the first's.
  SornThresholdCriterion borrow[2] = {adaptive(SORN_CMP_LT, &t, 1), adaptive(SORN_CMP_GE, nullptr, 2)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, nullptr, borrow, 2), SORN_OK);
  for (int i = 0; i < 18; ++i) EXPECT_EQ(out.get(i / 6, i % 6, 0), i < 8 ? 1 : 2);
  EXPECT_TRUE(env.at_mark());
}

TEST(Threshold, OtsuWithTheCallersConditions) {
  Env env;
  Image img(4, 10, 1, SORN_U8, 0, 20), out(4, 10, 1, SORN_U8);
  for (int x = 5; x < 10; ++x)
    for (int y = 0; y < 4; ++y) img.set(y, x, 0, 180);
  SornArray a = img.record(), o = out.record();
  const SornThresholdSpec otsu = method(SORN_THH_OTSU);
  // One condition: at or above the threshold becomes 99, the rest stays.
  const SornThresholdCriterion c = sheer(SORN_CMP_GE, -1, 99);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &otsu, &c, 1), SORN_OK);
  EXPECT_EQ(out.get(1, 2, 0), 20);
  EXPECT_EQ(out.get(1, 7, 0), 99);
  // A NaN value writes the threshold, rounded into the type: 21.
  const SornThresholdCriterion clip[3] = {sheer(SORN_CMP_GE, -1, kNaN), sheer(SORN_CMP_LT, -1, 1),
                                          sheer(SORN_CMP_EQ, -1, 5)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &otsu, clip, 3), SORN_OK);
  EXPECT_EQ(out.get(1, 2, 0), 1);
  EXPECT_EQ(out.get(1, 7, 0), 21);
}

TEST(Threshold, UstoWithoutABlurBoxIsOtsu) {
  Env env;
  auto rng = sorn_test::seeded_rng(0x05f0);
  Image img(9, 33, 1, SORN_U8), o1(9, 33, 1, SORN_U8), o2(9, 33, 1, SORN_U8);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 33; ++x) img.set(y, x, 0, (x > 15 ? 150 : 40) + (double)(rng() % 30));
  SornArray a = img.record(), r1 = o1.record(), r2 = o2.record();
  SornThresholdSpec usto = method(SORN_THH_USTO), otsu = method(SORN_THH_OTSU);
  usto.bins[0] = otsu.bins[0] = 64;
  ASSERT_EQ(SornThreshold(env.xe(), 0, &r1, &a, nullptr, nullptr, &usto, nullptr, 0), SORN_OK);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &r2, &a, nullptr, nullptr, &otsu, nullptr, 0), SORN_OK);
  EXPECT_EQ(o1.bytes_copy(), o2.bytes_copy());
  EXPECT_EQ(o1.get(3, 3, 0), 0);
  EXPECT_EQ(o1.get(3, 30, 0), 255);
}

/* ---------------- usto and blur against plain references ---------------- */

namespace {

// Reflection about the edge pixels of [lo, lo + n): ..2 1 | 0 1 .. n-1 | n-2..
int32_t reflect_in(int32_t i, int32_t lo, int32_t n) {
  if (n == 1) return lo;
  const int32_t p = 2 * (n - 1), j = (((i - lo) % p) + p) % p;
  return lo + (j < n ? j : p - j);
}

// A box of an image: origin row and column, rows and columns.
struct Rect {
  int32_t y, x, h, w;
};

// The u8 box mean over the window (h by w, anchor ay, ax) around each pixel
// of `region`, read from `img` where the pixel lies in `readable` and
// reflected about its edges elsewhere: the sum of the window, times the
// float reciprocal of its area, rounded to nearest-even.
std::vector<int32_t> box_mean(const Image &img, Rect region, Rect readable, int32_t h, int32_t w,
                              int32_t ay, int32_t ax) {
  std::vector<int32_t> out;
  const float scale = 1.0f / (float)(h * w);
  for (int32_t y = 0; y < region.h; ++y)
    for (int32_t x = 0; x < region.w; ++x) {
      int32_t sum = 0;
      for (int32_t i = 0; i < h; ++i)
        for (int32_t j = 0; j < w; ++j)
          sum += img.at<uint8_t>(reflect_in(region.y + y - ay + i, readable.y, readable.h),
                                 reflect_in(region.x + x - ax + j, readable.x, readable.w));
      out.push_back((int32_t)std::nearbyintf((float)sum * scale));
    }
  return out;
}

// The region's pixels of an image, row by row.
std::vector<int32_t> pixels_of(const Image &img, Rect region) {
  std::vector<int32_t> out;
  for (int32_t y = 0; y < region.h; ++y)
    for (int32_t x = 0; x < region.w; ++x) out.push_back(img.at<uint8_t>(region.y + y, region.x + x));
  return out;
}

// Otsu's threshold of u8 values over the default range: one bin per value.
double otsu_of(const std::vector<int32_t> &values) {
  std::vector<uint32_t> counts(256, 0);
  for (int32_t v : values) ++counts[(size_t)v];
  return otsu_reference(counts, 1.0, 0.0, (double)values.size()).threshold;
}

// A background that drifts across the image, dark specks and noise.
Image drifting_scene(int32_t rows, int32_t cols, uint64_t seed) {
  auto rng = sorn_test::seeded_rng(seed);
  Image img(rows, cols, 1, SORN_U8, 8);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      const int32_t back = 60 + 3 * x + y, speck = rng() % 9 == 0 ? 45 : 0;
      img.at<uint8_t>(y, x) = (uint8_t)std::clamp(back - speck + (int32_t)(rng() % 7), 0, 255);
    }
  return img;
}

// Checks that the region of `out` holds `want`, that nothing around it
// changed, and that no guard byte was touched.
void expect_region(const Image &out, const std::vector<uint8_t> &before, Rect region,
                   const std::vector<int32_t> &want, const std::string &what) {
  for (int32_t y = 0; y < out.rows(); ++y)
    for (int32_t x = 0; x < out.cols(); ++x) {
      const bool inside =
          y >= region.y && y < region.y + region.h && x >= region.x && x < region.x + region.w;
      const uint8_t got = out.at<uint8_t>(y, x);
      if (inside)
        ASSERT_EQ(got, want[(size_t)(y - region.y) * region.w + (x - region.x)])
            << what << " at " << y << "," << x;
      else
        ASSERT_EQ(got, before[(size_t)(&out.at<uint8_t>(y, x) - out.base())])
            << what << " outside at " << y << "," << x;
    }
  ASSERT_TRUE(out.guards_intact()) << what;
}

}  // namespace

TEST(Threshold, BlurComparesEachPixelWithItsBoxMean) {
  Env env;
  const int32_t rows = 23, cols = 41;
  Image img = drifting_scene(rows, cols, 0xb1a5);
  const Rect region = {4, 5, 14, 29};
  const SornVolume roi = make_roi(region.y, region.x, region.h, region.w, 1);
  const Rect whole = {0, 0, rows, cols};
  SornArray a = img.record();
  struct Box {
    int32_t h, w, ay, ax;
  };
  // The default box, centred boxes, an anchor off the centre, one row.
  const Box boxes[] = {{0, 0, 0, 0}, {3, 3, 1, 1}, {7, 5, 3, 2}, {4, 6, 0, 5}, {1, 9, 0, 4}};
  for (const Box &bx : boxes)
    for (SornFlags flags : {(SornFlags)0, (SornFlags)SORN_F_THH_MARGIN,
                            (SornFlags)(SORN_F_THH_MARGIN | SORN_F_THH_PARMARGIN)})
      for (int32_t count : {0, 1, 3}) {
        SornThresholdSpec blur = method(SORN_THH_BLUR);
        const SornVolume window = {{0, bx.ay, bx.ax, 0}, {1, bx.h, bx.w, 0}};
        std::memcpy(blur.vrng, &window, sizeof window);
        const bool dflt = bx.h == 0;
        const int32_t h = dflt ? 5 : bx.h, w = dflt ? 5 : bx.w;
        const int32_t ay = dflt ? 2 : bx.ay, ax = dflt ? 2 : bx.ax;
        // Without the margin flags the filter sees the region alone; with
        // them the real pixels around it, as far as the image goes.
        const Rect readable = flags == 0 ? region : whole;
        const std::vector<int32_t> mean = box_mean(img, region, readable, h, w, ay, ax);
        const std::vector<int32_t> px = pixels_of(img, region);
        std::vector<int32_t> want(px.size());
        // The conditions given: above the mean 9, and then below it 1; a
        // third is not read.
        const SornThresholdCriterion given[3] = {sheer(SORN_CMP_GT, 0, 9), sheer(SORN_CMP_LT, 0, 1),
                                                 sheer(SORN_CMP_EQ, 0, 77)};
        for (size_t i = 0; i < px.size(); ++i) {
          if (count == 0)
            want[i] = px[i] < mean[i] ? 0 : 255;
          else if (count == 1)
            want[i] = px[i] > mean[i] ? 9 : px[i];
          else {
            // Two passes: the second condition sees the first one's output.
            const int32_t first = px[i] > mean[i] ? 9 : px[i];
            want[i] = first < mean[i] ? 1 : first;
          }
        }
        Image out(rows, cols, 1, SORN_U8, 8, 0x5a);
        SornArray o = out.record();
        const std::vector<uint8_t> before = out.bytes_copy();
        ASSERT_EQ(SornThreshold(env.xe(), flags, &o, &a, &roi, &roi, &blur, given, count),
                  SORN_OK);
        ASSERT_NO_FATAL_FAILURE(expect_region(out, before, region, want,
                                              "box " + std::to_string(h) + "x" +
                                                  std::to_string(w) + " flags " +
                                                  std::to_string(flags) + " count " +
                                                  std::to_string(count)));
        ASSERT_TRUE(env.at_mark());
      }
}

TEST(Threshold, BlurWithoutASpecAndInPlaceTakesTheDefaultBox) {
  Env env;
  Image img = drifting_scene(12, 20, 0xb1a6), copy = img;
  const Rect whole = {0, 0, 12, 20};
  const std::vector<int32_t> mean = box_mean(img, whole, whole, 5, 5, 2, 2);
  const std::vector<int32_t> px = pixels_of(img, whole);
  SornArray a = img.record();
  const SornThresholdSpec blur = method(SORN_THH_BLUR | SORN_THH_DEFAULTS);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &a, nullptr, nullptr, nullptr, &blur, nullptr, 0), SORN_OK);
  for (size_t i = 0; i < px.size(); ++i)
    ASSERT_EQ(img.at<uint8_t>((int32_t)i / 20, (int32_t)i % 20), px[i] < mean[i] ? 0 : 255) << i;
  // A method record whose box is left zero is the same default.
  SornArray c = copy.record();
  SornThresholdSpec zero = method(SORN_THH_BLUR);
  std::memset(zero.vrng, 0, sizeof zero.vrng);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &c, nullptr, nullptr, nullptr, &zero, nullptr, 0), SORN_OK);
  EXPECT_EQ(img.bytes_copy(), copy.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

namespace {

// The flattened image of the usto method, in u8 arithmetic that wraps: the
// source, plus the rounded mean of the region or its blur by the second
// box, minus its blur by the first.
std::vector<int32_t> flattened(const std::vector<int32_t> &px, const std::vector<int32_t> &blur_a,
                               const std::vector<int32_t> *blur_b) {
  double sum = 0;
  for (int32_t v : px) sum += v;
  const int32_t mean = (int32_t)std::nearbyint(sum / (double)px.size());
  std::vector<int32_t> t(px.size());
  for (size_t i = 0; i < px.size(); ++i)
    t[i] = (px[i] + (blur_b ? (*blur_b)[i] : mean) - blur_a[i]) & 255;
  return t;
}

}  // namespace

TEST(Threshold, UstoTakesOtsusThresholdOfTheFlattenedImage) {
  Env env;
  const int32_t rows = 26, cols = 44;
  Image img = drifting_scene(rows, cols, 0x0575);
  const Rect region = {3, 6, 19, 33}, whole = {0, 0, rows, cols};
  const SornVolume roi = make_roi(region.y, region.x, region.h, region.w, 1);
  SornArray a = img.record();
  const std::vector<int32_t> px = pixels_of(img, region);
  struct Boxes {
    int32_t a, b;  // square sizes; b 0 for none
  };
  // No method record (5 by 5 and the mean); a second box larger than the first,
  // and smaller, so that the copy made for the two has the margin of both.
  for (const Boxes bx : {Boxes{0, 0}, Boxes{3, 0}, Boxes{3, 9}, Boxes{7, 3}})
    for (SornFlags flags : {(SornFlags)0, (SornFlags)SORN_F_THH_MARGIN}) {
      SornThresholdSpec usto = method(SORN_THH_USTO);
      const int32_t sa = bx.a == 0 ? 5 : bx.a;
      usto.blurSize[0] = 1;
      usto.blurSize[1] = usto.blurSize[2] = bx.a;
      if (bx.b != 0) {
        usto.flatSize[0] = 1;
        usto.flatSize[1] = usto.flatSize[2] = bx.b;
      }
      // Without the margin flag the region is bordered by reflection; with
      // it the image's own pixels around the region are read (the region
      // lies far enough inside that no window leaves the image).
      const Rect readable = flags == 0 ? region : whole;
      const std::vector<int32_t> blur_a = box_mean(img, region, readable, sa, sa, sa / 2, sa / 2);
      std::vector<int32_t> blur_b;
      if (bx.b != 0) blur_b = box_mean(img, region, readable, bx.b, bx.b, bx.b / 2, bx.b / 2);
      const std::vector<int32_t> t = flattened(px, blur_a, bx.b != 0 ? &blur_b : nullptr);
      const double thr = otsu_of(t);
      std::vector<int32_t> want(t.size());
      for (size_t i = 0; i < t.size(); ++i) want[i] = (double)t[i] < thr ? 0 : 255;
      Image out(rows, cols, 1, SORN_U8, 8, 0x5a);
      SornArray o = out.record();
      const std::vector<uint8_t> before = out.bytes_copy();
      const SornThresholdSpec defaults = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
      ASSERT_EQ(SornThreshold(env.xe(), flags, &o, &a, &roi, &roi, bx.a == 0 ? &defaults : &usto,
                              nullptr, 0),
                SORN_OK);
      ASSERT_NO_FATAL_FAILURE(expect_region(out, before, region, want,
                                            "boxes " + std::to_string(sa) + "," +
                                                std::to_string(bx.b) + " flags " +
                                                std::to_string(flags)));
      ASSERT_TRUE(env.at_mark());
    }
}

TEST(Threshold, UstoConditionsSeeTheFlattenedElements) {
  Env env;
  Image img = drifting_scene(15, 24, 0x0576);
  const Rect whole = {0, 0, 15, 24};
  const std::vector<int32_t> px = pixels_of(img, whole);
  const std::vector<int32_t> t = flattened(px, box_mean(img, whole, whole, 5, 5, 2, 2), nullptr);
  const double thr = otsu_of(t);
  SornArray a = img.record();
  Image out(15, 24, 1, SORN_U8);
  SornArray o = out.record();
  const SornThresholdSpec usto = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
  // One condition: at or above the threshold 250; the flattened element
  // elsewhere, not the source's.
  const SornThresholdCriterion c = sheer(SORN_CMP_GE, 0, 250);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &usto, &c, 1), SORN_OK);
  for (size_t i = 0; i < t.size(); ++i)
    ASSERT_EQ(out.at<uint8_t>((int32_t)i / 24, (int32_t)i % 24), (double)t[i] < thr ? t[i] : 250)
        << i;
  EXPECT_TRUE(env.at_mark());
}

TEST(Threshold, UstoFlatteningWrapsInTheElementType) {
  // A dark dot on a bright field: the mean is 247, the dot's blur 240, and
  // the flattened dot 0 + 247 - 240 = 7; its neighbours, whose windows hold
  // the dot too, give 250 + 247 - 240 = 257, which wraps to 1 and joins the
  // dot on the dark side.
  Env env;
  Image img(9, 9, 1, SORN_U8, 0, 250);
  img.at<uint8_t>(4, 4) = 0;
  const Rect whole = {0, 0, 9, 9};
  const std::vector<int32_t> px = pixels_of(img, whole);
  const std::vector<int32_t> blur = box_mean(img, whole, whole, 5, 5, 2, 2);
  const std::vector<int32_t> t = flattened(px, blur, nullptr);
  EXPECT_EQ(blur[4 * 9 + 4], 240);
  EXPECT_EQ(t[4 * 9 + 4], 7);
  EXPECT_EQ(t[0], 247);
  EXPECT_EQ(t[4 * 9 + 5], 1);
  const double thr = otsu_of(t);
  SornArray a = img.record();
  Image out(9, 9, 1, SORN_U8);
  SornArray o = out.record();
  const SornThresholdSpec usto = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &usto, nullptr, 0), SORN_OK);
  for (size_t i = 0; i < t.size(); ++i)
    ASSERT_EQ(out.at<uint8_t>((int32_t)i / 9, (int32_t)i % 9), (double)t[i] < thr ? 0 : 255) << i;
  EXPECT_EQ(out.at<uint8_t>(4, 5), 0);
  EXPECT_EQ(out.at<uint8_t>(0, 0), 255);
  EXPECT_TRUE(env.at_mark());
}

/* ---------------- conditions against the comparison reference ---------------- */

namespace {

// What one comparison pass with a constant writes into `out`, element by
// element, from `in` (out may be in).
void reference_pass(uint32_t type, int32_t c, const SornThresholdCriterion &k, const double *tval,
                    const double *fval, std::vector<std::vector<uint8_t>> &px, int64_t pixels) {
  cmp_ref::Plan p = cmp_ref::plan(true, true, type, type, c, k.op, tval, fval);
  cmp_ref::take_tables(p, true, type, type, c, pixels);
  ASSERT_EQ(p.status, SORN_OK);
  const int32_t es = SORN_ELEMSIZE(type);
  for (auto &e : px) {
    for (int32_t ch = 0; ch < c; ++ch) {
      uint8_t cb[8] = {};
      fill_ref::element(type, k.thresh[ch], cb);
      uint8_t out[8];
      cmp_ref::element(p, type, type, ch, e.data() + ch * es, cmp_ref::value(type, cb),
                       e.data() + ch * es, out);
      std::memcpy(e.data() + ch * es, out, es);
    }
  }
}

}  // namespace

TEST(Threshold, ConstantConditionsAgainstTheComparisonReference) {
  Env env;
  auto rng = sorn_test::seeded_rng(0x7e57);
  for (uint32_t t : {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32})
    for (int32_t c = 1; c <= 4; ++c)
      for (int rep = 0; rep < 30; ++rep) {
        const int32_t rows = 1 + (int32_t)(rng() % 5), cols = 1 + (int32_t)(rng() % 30);
        Image img(rows + 1, cols + 2, c, t, (int32_t)(rng() % 2) * 8);
        Image out(rows, cols + 1, c, t);
        for (int32_t y = 0; y < img.rows(); ++y)
          for (int32_t x = 0; x < img.cols(); ++x)
            for (int32_t ch = 0; ch < c; ++ch)
              img.set(y, x, ch, (double)(int)(rng() % 9) - 4 + (t == SORN_U8 ? 4 : 0));
        const int32_t n = 1 + (int32_t)(rng() % 2);
        SornThresholdCriterion k[2];
        for (int i = 0; i < 2; ++i) {
          k[i] = sheer(3 + (uint32_t)(rng() % 5), 0, 0);
          for (int ch = 0; ch < 4; ++ch) {
            k[i].thresh[ch] = (double)(int)(rng() % 9) - 4 + (rng() % 3 == 0 ? 0.5 : 0.0);
            k[i].value[ch] = rng() % 4 == 0 ? kNaN : (double)(int)(rng() % 300) - 100;
          }
        }
        SornArray a = img.record(), o = out.record();
        const SornVolume site = make_roi(1, 2, 0, 0, 0);
        const std::vector<uint8_t> before = out.bytes_copy();
        ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, &site, nullptr, k, n), SORN_OK);
        // The expected pixels: one pass or two, as the pair and the
        // thresholds decide.
        const int32_t es = SORN_ELEMSIZE(t);
        std::vector<std::vector<uint8_t>> px;
        double v0[4], v1[4];
        for (int ch = 0; ch < 4; ++ch) {
          v0[ch] = std::isnan(k[0].value[ch]) ? k[0].thresh[ch] : k[0].value[ch];
          v1[ch] = std::isnan(k[1].value[ch]) ? k[1].thresh[ch] : k[1].value[ch];
        }
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols; ++x)
            px.emplace_back(&img.at<uint8_t>(y + 1, x + 2, 0), &img.at<uint8_t>(y + 1, x + 2, 0) + c * es);
        bool one_pass = false;
        if (n == 2) {
          const uint32_t o0 = k[0].op & 15, o1 = k[1].op & 15;
          const float e = 1.1920929e-7f;
          one_pass = true;
          for (int ch = 0; ch < c; ++ch) {
            const float t0 = (float)k[0].thresh[ch], t1 = (float)k[1].thresh[ch];
            bool ok = false;
            if ((o0 == 4 && o1 == 7) || (o0 == 5 && o1 == 6)) ok = t1 - t0 <= e;
            else if ((o0 == 7 && o1 == 4) || (o0 == 6 && o1 == 5)) ok = t0 - t1 <= e;
            else if (o0 == 4 && o1 == 6) ok = t0 - t1 > e;
            else if (o0 == 6 && o1 == 4) ok = t1 - t0 > e;
            one_pass = one_pass && ok;
          }
        }
        const int64_t pixels = (int64_t)rows * cols;
        if (n == 1) {
          ASSERT_NO_FATAL_FAILURE(reference_pass(t, c, k[0], v0, SORN_CMP_KEEPSRC, px, pixels));
        } else if (one_pass) {
          ASSERT_NO_FATAL_FAILURE(reference_pass(t, c, k[0], v0, v1, px, pixels));
        } else {
          ASSERT_NO_FATAL_FAILURE(reference_pass(t, c, k[0], v0, SORN_CMP_KEEPSRC, px, pixels));
          ASSERT_NO_FATAL_FAILURE(reference_pass(t, c, k[1], v1, SORN_CMP_KEEPSRC, px, pixels));
        }
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols + 1; ++x) {
            const uint8_t *got = &out.at<uint8_t>(y, x, 0);
            if (x < cols)
              ASSERT_EQ(0, std::memcmp(got, px[(size_t)y * cols + x].data(), (size_t)c * es))
                  << sorn_test::type_name(t) << " x" << c << " rep " << rep << " n " << n
                  << (one_pass ? " one pass" : "") << " at " << y << "," << x;
            else
              ASSERT_EQ(0, std::memcmp(got, before.data() + (got - out.base()), (size_t)c * es));
          }
        ASSERT_TRUE(out.guards_intact());
        ASSERT_TRUE(env.at_mark());
      }
}

TEST(Threshold, FourDimensionalImagesGoThroughTheFrame) {
  Env env;
  const int32_t planes = 3, rows = 4, cols = 6;
  std::vector<uint8_t> src(planes * rows * cols), dst(src.size(), 0x11);
  for (size_t i = 0; i < src.size(); ++i) src[i] = (uint8_t)(i * 7 % 256);
  SornArray a = make_record4(src.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornArray d = make_record4(dst.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  const SornThresholdCriterion two[2] = {sheer(SORN_CMP_LT, 50, 1), sheer(SORN_CMP_GE, 100, 2)};
  ASSERT_EQ(SornThreshold(env.xe(), 0, &d, &a, nullptr, nullptr, nullptr, two, 2), SORN_OK);
  for (size_t i = 0; i < src.size(); ++i) {
    const uint8_t first = src[i] < 50 ? 1 : src[i];
    ASSERT_EQ(dst[i], first >= 100 ? 2 : first) << i;
  }
  const SornThresholdSpec otsu = method(SORN_THH_OTSU);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &d, &a, nullptr, nullptr, &otsu, nullptr, 0), SORN_OK);
  double t = 0;
  ASSERT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, &t, nullptr, nullptr), SORN_OK);
  for (size_t i = 0; i < src.size(); ++i) ASSERT_EQ(dst[i], src[i] < t ? 0 : 255) << i;
  EXPECT_TRUE(env.at_mark());
}

TEST(Threshold, FourDimensionalBlurAndUstoSeeTheMarginsOfTheirPlane) {
  // Planes apart in memory (a gap between them) cannot merge: the frame
  // calls the slice form once, and the first plane of the region alone is
  // thresholded, as a three-dimensional call on that plane would be,
  // margins and all; the other planes stay as they were.
  Env env;
  const int32_t planes = 3, rows = 14, cols = 21, gap = 40;
  const int32_t pstride = rows * cols + gap;
  std::vector<uint8_t> src((size_t)planes * pstride), dst(src.size()), one(rows * cols);
  auto rng = sorn_test::seeded_rng(0x4d4d);
  for (uint8_t &v : src) v = (uint8_t)(40 + rng() % 150);
  SornArray a = make_record4(src.data(), planes, rows, cols, 1, SORN_U8, pstride, cols);
  SornArray d = make_record4(dst.data(), planes, rows, cols, 1, SORN_U8, pstride, cols);
  const SornVolume roi = make_roi(3, 4, 8, 13, 1, 1, 2);
  const SornVolume plane_roi = make_roi(3, 4, 8, 13, 1);
  const SornThresholdSpec blur = method(SORN_THH_BLUR | SORN_THH_DEFAULTS);
  SornThresholdSpec usto = method(SORN_THH_USTO);
  usto.blurSize[0] = usto.flatSize[0] = 1;
  usto.blurSize[1] = usto.blurSize[2] = 3;
  usto.flatSize[1] = usto.flatSize[2] = 7;
  for (const SornThresholdSpec *how : {&blur, (const SornThresholdSpec *)&usto})
    for (SornFlags flags : {(SornFlags)0, (SornFlags)SORN_F_THH_MARGIN}) {
      std::fill(dst.begin(), dst.end(), 0x11);
      ASSERT_EQ(SornThreshold(env.xe(), flags, &d, &a, &roi, &roi, how, nullptr, 0), SORN_OK);
      std::fill(one.begin(), one.end(), 0x11);
      SornArray ap = make_record(src.data() + pstride, rows, cols, 1, SORN_U8, cols);
      SornArray op = make_record(one.data(), rows, cols, 1, SORN_U8, cols);
      ASSERT_EQ(SornThreshold(env.xe(), flags, &op, &ap, &plane_roi, &plane_roi, how, nullptr, 0),
                SORN_OK);
      for (int32_t i = 0; i < pstride; ++i) {
        ASSERT_EQ(dst[i], 0x11) << i;
        ASSERT_EQ(dst[2 * (size_t)pstride + i], 0x11) << i;
        if (i < rows * cols) {
          ASSERT_EQ(dst[pstride + i], one[i]) << i << " flags " << flags;
        }
      }
      EXPECT_TRUE(env.at_mark());
    }
}

/* ---------------- scratch ---------------- */

TEST(Threshold, ScratchThatCantBeHadIsNoMemoryAndWritesNothing) {
  Env env;
  const SornThresholdCriterion two[2] = {sheer(SORN_CMP_LT, 10, 500), sheer(SORN_CMP_GE, 20, 7)};
  const SornThresholdSpec otsu = method(SORN_THH_OTSU);
  const SornThresholdSpec usto = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
  const SornThresholdSpec blur = method(SORN_THH_BLUR | SORN_THH_DEFAULTS);
  struct Case {
    uint32_t type;
    const SornThresholdSpec *how;
  };
  const Case cases[] = {{SORN_S16, nullptr}, {SORN_S16, &otsu}, {SORN_S16, &blur},
                        {SORN_U8, &usto},    {SORN_U8, &blur}};
  // Every allocation of each call failed in turn: the call answers
  // SORN_ENOMEM, the scratch goes back, and a failed call writes nothing.
  for (const Case &c : cases) {
    Image img(5, 40, 1, c.type), out(5, 40, 1, c.type, 0, 0x33);
    for (int x = 0; x < 40; ++x) img.set(2, x, 0, x);
    SornArray a = img.record(), o = out.record();
    const std::vector<uint8_t> before = out.bytes_copy();
    const SornThresholdSpec *how = c.how;
    const int64_t failed = sorn_test::for_each_allocation_failure([&](int64_t k) {
      SornStatus st;
      bool fired;
      std::memcpy(out.base(), before.data(), before.size());
      {
        sorn_test::AllocFailure fail(k);
        st = SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, how, two, how ? 0 : 2);
        fired = fail.fired();
      }
      if (fired) {
        EXPECT_EQ(st, SORN_ENOMEM) << k;
        EXPECT_EQ(before, out.bytes_copy()) << k;
      } else {
        EXPECT_EQ(st, SORN_OK) << k;
      }
      EXPECT_TRUE(env.at_mark()) << k;
      return fired;
    });
    EXPECT_GE(failed, how == &usto ? 2 : 1);
  }
}

// On s16 the flattening subtracts the rounded mean in the element type when
// it is whole; a fractional mean is formed wider and saturated back into s16
// by the conversion. Either way the flattened values stay near 1000, which
// the default range 0 to 255 does not reach, so every element is above the
// threshold.
TEST(Threshold, UstoOnS16WithAFractionalMeanGoesThroughTheConversion) {
  Env env;
  Image img(6, 10, 1, SORN_S16), out(6, 10, 1, SORN_S16, 0, 0x33);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) img.set(y, x, 0, 1000);
  SornArray a = img.record(), o = out.record();
  const SornThresholdSpec usto = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
  // A whole mean (1000): the flattened image is the source itself, a
  // constant that the default range 0 to 255 does not reach: no bin counts
  // it, the threshold is just under 1, and every element is above it.
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &usto, nullptr, 0), SORN_OK);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) ASSERT_EQ(out.get(y, x, 0), 255);
  img.set(0, 0, 0, 1001);  // mean 1000.0166...
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) out.set(y, x, 0, 7);
  ASSERT_EQ(SornThreshold(env.xe(), 0, &o, &a, nullptr, nullptr, &usto, nullptr, 0), SORN_OK);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) ASSERT_EQ(out.get(y, x, 0), 255) << y << "," << x;
  EXPECT_TRUE(env.at_mark());
}

/* ---------------- failures ---------------- */

TEST(ThresholdFailures, RecordsRegionsTypesMethodsAndChannels) {
  Env env;
  Image u8(4, 6, 1, SORN_U8), s16(4, 6, 1, SORN_S16), c3(4, 6, 3, SORN_U8), c2(4, 6, 2, SORN_U8);
  Image u16(4, 6, 1, SORN_U16), out(4, 6, 1, SORN_U8, 0, 0x5a), c3out(4, 6, 3, SORN_U8);
  Image c2out(4, 6, 2, SORN_U8);
  SornArray a = u8.record(), as16 = s16.record(), a3 = c3.record(), o = out.record();
  SornArray au16 = u16.record(), o3 = c3out.record(), a2 = c2.record(), o2 = c2out.record();
  const std::vector<uint8_t> before = out.bytes_copy();
  const SornThresholdCriterion c = sheer(SORN_CMP_LT, 3, 0);
  SornArray bad = a;
  bad.ndims = 2;
  EXPECT_EQ(SornThreshold(nullptr, 0, &bad, &a, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &bad, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 6;
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &bad, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a3, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(nullptr, 0, nullptr, &a, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  SornArray four = make_record4(u8.base(), 2, 2, 6, 1, SORN_U8, 12, 6);
  SornArray three = make_record4(u8.base(), 3, 1, 6, 1, SORN_U8, 6, 6);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &four, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(nullptr, 0, &four, &three, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, nullptr, 1), SORN_EINVAL);
  SornVolume empty = make_roi(1, 1, 0, 2, 1);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, &empty, nullptr, nullptr, &c, 1), SORN_ENOSPC);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &as16, nullptr, nullptr, nullptr, &c, 1), SORN_EINVAL);
  SornThresholdSpec unknown = method(1);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, &unknown, &c, 1), SORN_EINVAL);
  unknown.method = 9;
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, &unknown, &c, 1), SORN_EINVAL);
  const SornThresholdCriterion wrong = adaptive(SORN_CMP_LT, &as16, 0);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, &wrong, 1), SORN_EINVAL);
  Image small(3, 6, 1, SORN_U8);
  SornArray sm = small.record();
  const SornThresholdCriterion short_rows = adaptive(SORN_CMP_LT, &sm, 0);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, &short_rows, 1), SORN_EINVAL);
  const SornThresholdCriterion none = adaptive(SORN_CMP_LT, nullptr, 0);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, &none, 1), SORN_EINVAL);
  // A threshold array is checked as an image: one of no planes is refused
  // before anything is read from it.
  SornArray no_planes = a;
  no_planes.dims[0] = -3;
  const SornThresholdCriterion planeless = adaptive(SORN_CMP_LT, &no_planes, 0);
  EXPECT_EQ(SornThreshold(nullptr, 0, &o, &a, nullptr, nullptr, nullptr, &planeless, 1), SORN_EINVAL);
  EXPECT_EQ(before, out.bytes_copy());
  // Otsu counts one channel; a type without a histogram kernel is not
  // supported either.
  const SornThresholdSpec otsu = method(SORN_THH_OTSU);
  EXPECT_EQ(SornThreshold(env.xe(), 0, &o3, &a3, nullptr, nullptr, &otsu, nullptr, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornThreshold(env.xe(), 0, &o2, &a2, nullptr, nullptr, &otsu, nullptr, 0), SORN_EINVAL);
  SornArray ou16 = au16;
  EXPECT_EQ(SornThreshold(env.xe(), 0, &ou16, &au16, nullptr, nullptr, &otsu, nullptr, 0),
            SORN_ENOTSUP);
  // The box filter under the usto and blur methods takes one channel, and
  // u8, s16, s32 and f32 alone.
  const SornThresholdSpec usto = method(SORN_THH_USTO | SORN_THH_DEFAULTS);
  const SornThresholdSpec blur = method(SORN_THH_BLUR | SORN_THH_DEFAULTS);
  const std::vector<uint8_t> before3 = c3out.bytes_copy();
  EXPECT_EQ(SornThreshold(env.xe(), 0, &o3, &a3, nullptr, nullptr, &usto, nullptr, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornThreshold(env.xe(), 0, &o3, &a3, nullptr, nullptr, &blur, nullptr, 0), SORN_ENOTSUP);
  EXPECT_EQ(before3, c3out.bytes_copy());
  Image s8(4, 6, 1, SORN_S8);
  SornArray as8 = s8.record(), os8 = as8;
  EXPECT_EQ(SornThreshold(env.xe(), 0, &os8, &as8, nullptr, nullptr, &blur, nullptr, 0), SORN_EINVAL);
  EXPECT_EQ(SornThreshold(env.xe(), 0, &os8, &as8, nullptr, nullptr, &usto, nullptr, 0), SORN_EINVAL);
  double t[4];
  EXPECT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a3, nullptr, t, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, nullptr, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &a, &empty, t, nullptr, nullptr), SORN_ENOSPC);
  EXPECT_EQ(SornComputeThresholdByOtsu(env.xe(), 0, &bad, nullptr, t, nullptr, nullptr), SORN_EINVAL);
  EXPECT_TRUE(env.at_mark());
}

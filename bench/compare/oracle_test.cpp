// Sorn against OpenCV where both define a result the same way: saturating
// arithmetic on 8- and 16-bit elements, float addition, multiply-add,
// histogram counts, sums, means with and without a mask, fill, comparison
// masks, extremes with their first places, Otsu's threshold,
// nearest-neighbour shrinking, border copies, box filters of odd windows,
// rectangular erosion and dilation, and erosion, dilation and their chains
// with masks of any shape. On random images of random shapes (odd widths,
// 1 to 4 channels, padded rows) the outputs must agree element for element.
// Where the two differ by design, the test says why and checks only what
// they share.
#include <gtest/gtest.h>
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr uint64_t kSeed = 0x0c0ffee5;

std::mt19937_64 rng_for(const char *what) {
  uint64_t h = kSeed;
  for (const char *p = what; *p; ++p) h = h * 1099511628211ull ^ (uint8_t)*p;
  std::printf("seed of %s: 0x%llx\n", what, (unsigned long long)h);
  return std::mt19937_64(h);
}

uint32_t sorn_type(int depth) {
  switch (depth) {
    case CV_8U: return SORN_U8;
    case CV_16S: return SORN_S16;
    case CV_32S: return SORN_S32;
    case CV_32F: return SORN_F32;
  }
  ADD_FAILURE() << "no Sorn type for depth " << depth;
  return 0;
}

// A matrix whose rows are padded: a view into a wider one, so that a row
// stride differs from the row's length, as in a real region of interest.
cv::Mat padded(int rows, int cols, int type, std::mt19937_64 &rng) {
  const int pad = (int)(rng() % 5);
  cv::Mat big(rows + 1, cols + pad, type, cv::Scalar::all(0));
  return big(cv::Rect(pad > 0 ? 1 : 0, 1, cols, rows));
}

SornArray rec_of(const cv::Mat &m) {
  // Rows, columns, channels; strides in bytes of a row, a pixel, an element.
  const uint32_t type = sorn_type(m.depth());
  const int32_t dims[3] = {m.rows, m.cols, m.channels()};
  const int32_t strides[3] = {(int32_t)m.step[0], (int32_t)m.elemSize(), (int32_t)m.elemSize1()};
  SornArray r;
  __sorn_array__$xtrn(&r, 3 | 3 << 8, dims, type, m.data, nullptr, strides);
  return r;
}

void fill_random(cv::Mat &m, std::mt19937_64 &rng, double lo, double hi) {
  cv::RNG cvrng(rng());
  cvrng.fill(m, cv::RNG::UNIFORM, cv::Scalar::all(lo), cv::Scalar::all(hi));
}

struct Env {
  SornXE xe;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Env() { SornXEfini(&xe); }
};

// Element-for-element equality with the first difference shown.
void expect_same(const cv::Mat &sorn, const cv::Mat &peer, const char *what) {
  ASSERT_EQ(sorn.size(), peer.size());
  ASSERT_EQ(sorn.type(), peer.type());
  cv::Mat diff;
  cv::compare(sorn.reshape(1), peer.reshape(1), diff, cv::CMP_NE);
  if (sorn.depth() == CV_32F) {
    // Equal bits: compare the words, so that NaN and -0 would not pass.
    cv::Mat si(sorn.rows, sorn.cols * sorn.channels(), CV_32S, sorn.data, sorn.step[0]);
    cv::Mat pi(peer.rows, peer.cols * peer.channels(), CV_32S, peer.data, peer.step[0]);
    cv::compare(si, pi, diff, cv::CMP_NE);
  }
  const int bad = cv::countNonZero(diff);
  if (bad) {
    std::vector<cv::Point> where;
    cv::findNonZero(diff, where);
    ADD_FAILURE() << what << ": " << bad << " elements differ, the first at row " << where[0].y
                  << ", element " << where[0].x;
  }
}

struct Shape {
  int rows, cols, channels;
};

Shape random_shape(std::mt19937_64 &rng) {
  return {1 + (int)(rng() % 70), 1 + (int)(rng() % 131), 1 + (int)(rng() % 4)};
}

// Sums and means have kernels for 1, 3 and 4 channels; two channels are
// refused as a bad channel word.
Shape random_stats_shape(std::mt19937_64 &rng) {
  static const int kChannels[3] = {1, 3, 4};
  Shape s = random_shape(rng);
  s.channels = kChannels[rng() % 3];
  return s;
}

// ---------------------------------------------------------------- arithmetic

// Saturating addition and subtraction: both libraries compute the exact
// result and clamp it to the destination's range.
template <class SornFn, class CvFn>
void saturating_case(int depth, double lo, double hi, SornFn sorn_fn, CvFn cv_fn, const char *what) {
  auto rng = rng_for(what);
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_shape(rng);
    const int type = CV_MAKETYPE(depth, s.channels);
    cv::Mat a = padded(s.rows, s.cols, type, rng), b = padded(s.rows, s.cols, type, rng);
    fill_random(a, rng, lo, hi);
    fill_random(b, rng, lo, hi);
    cv::Mat d = padded(s.rows, s.cols, type, rng), c;
    const SornArray ra = rec_of(a), rb = rec_of(b), rd = rec_of(d);
    ASSERT_EQ(sorn_fn(&env.xe, &rd, &ra, &rb), SORN_OK) << what;
    cv_fn(a, b, c);
    expect_same(d, c, what);
  }
}

TEST(OracleAdd, SaturatingU8MatchesCvAdd) {
  saturating_case(
      CV_8U, 0, 256,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornAddq(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::add(a, b, c); }, "addq u8");
}

TEST(OracleAdd, ScaleFactorOfSixtyFourSaturatesLikeCvAdd) {
  // A positive scale factor shifts by sf & 63 and saturates: 64 is a
  // saturating add without a shift, through the plain SornAdd.
  saturating_case(
      CV_8U, 0, 256,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornAdd(xe, 0, d, a, b, nullptr, nullptr, nullptr, 64, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::add(a, b, c); }, "add u8 sf 64");
}

TEST(OracleAdd, SaturatingS16MatchesCvAdd) {
  saturating_case(
      CV_16S, -32768, 32768,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornAddq(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::add(a, b, c); }, "addq s16");
}

TEST(OracleAdd, F32MatchesCvAddBitForBit) {
  // One rounded float addition per element in both.
  saturating_case(
      CV_32F, -1e6, 1e6,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornAdd(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::add(a, b, c); }, "add f32");
}

TEST(OracleSub, SaturatingU8MatchesCvSubtract) {
  saturating_case(
      CV_8U, 0, 256,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornSubq(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::subtract(a, b, c); }, "subq u8");
}

TEST(OracleSub, SaturatingS16MatchesCvSubtract) {
  saturating_case(
      CV_16S, -32768, 32768,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornSubq(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::subtract(a, b, c); }, "subq s16");
}

TEST(OracleSub, F32MatchesCvSubtractBitForBit) {
  saturating_case(
      CV_32F, -1e6, 1e6,
      [](SornXE *xe, const SornArray *d, const SornArray *a, const SornArray *b) {
        return SornSub(xe, 0, d, a, b, nullptr, nullptr, nullptr, 0, 0);
      },
      [](const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::subtract(a, b, c); }, "sub f32");
}

TEST(OracleAdd, WideningU8ToS16MatchesCvAddWithDepth) {
  // Two bytes never leave the range of s16: plain sums in both.
  auto rng = rng_for("add s16u8u8");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_shape(rng);
    cv::Mat a = padded(s.rows, s.cols, CV_8UC(s.channels), rng);
    cv::Mat b = padded(s.rows, s.cols, CV_8UC(s.channels), rng);
    fill_random(a, rng, 0, 256);
    fill_random(b, rng, 0, 256);
    cv::Mat d = padded(s.rows, s.cols, CV_16SC(s.channels), rng), c;
    const SornArray ra = rec_of(a), rb = rec_of(b), rd = rec_of(d);
    ASSERT_EQ(SornAdd(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
    cv::add(a, b, c, cv::noArray(), CV_16S);
    expect_same(d, c, "add s16u8u8");
  }
}

TEST(OracleAdd, WrappingU8DiffersFromCvAddByDesign) {
  // With a scale factor of 0 Sorn keeps the low eight bits of the sum, while
  // OpenCV always saturates: they agree exactly where the sum fits a byte,
  // and elsewhere Sorn's result is the saturated one minus 256.
  auto rng = rng_for("add u8 sf 0");
  Env env;
  cv::Mat a(37, 53, CV_8UC3), b(37, 53, CV_8UC3), d(37, 53, CV_8UC3), c;
  fill_random(a, rng, 0, 256);
  fill_random(b, rng, 0, 256);
  const SornArray ra = rec_of(a), rb = rec_of(b), rd = rec_of(d);
  ASSERT_EQ(SornAdd(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  cv::add(a, b, c);
  for (int y = 0; y < a.rows; ++y)
    for (int x = 0; x < a.cols * 3; ++x) {
      const int sum = a.ptr<uint8_t>(y)[x] + b.ptr<uint8_t>(y)[x];
      if (sum <= 255) ASSERT_EQ(d.ptr<uint8_t>(y)[x], c.ptr<uint8_t>(y)[x]);
      else ASSERT_EQ(d.ptr<uint8_t>(y)[x], (uint8_t)sum);
    }
}

TEST(OracleAdd, ConstantU8MatchesCvAddOfScalar) {
  // Both round the constant to the element type once and add with
  // saturation; integral constants keep the rounding out of the question.
  auto rng = rng_for("addqC u8");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_shape(rng);
    cv::Mat a = padded(s.rows, s.cols, CV_8UC(s.channels), rng);
    fill_random(a, rng, 0, 256);
    double k[4];
    for (double &v : k) v = (double)(rng() % 300) - 20;
    cv::Mat d = padded(s.rows, s.cols, CV_8UC(s.channels), rng), c;
    const SornArray ra = rec_of(a), rd = rec_of(d);
    ASSERT_EQ(SornAddqC(&env.xe, 0, &rd, &ra, k, nullptr, nullptr, 0, 0), SORN_OK);
    cv::add(a, cv::Scalar(k[0], k[1], k[2], k[3]), c);
    expect_same(d, c, "addqC u8");
  }
}

// ---------------------------------------------------------------- fill

TEST(OracleFill, MatchesSetTo) {
  auto rng = rng_for("fill");
  Env env;
  for (int i = 0; i < 40; ++i) {
    const Shape s = random_shape(rng);
    for (int depth : {CV_8U, CV_16S, CV_32S, CV_32F}) {
      const int type = CV_MAKETYPE(depth, s.channels);
      cv::Mat d = padded(s.rows, s.cols, type, rng), c = padded(s.rows, s.cols, type, rng);
      double v[4];
      for (double &x : v) x = (double)(rng() % 200);
      const SornArray rd = rec_of(d);
      ASSERT_EQ(SornFill(&env.xe, 0, &rd, nullptr, v), SORN_OK);
      c.setTo(cv::Scalar(v[0], v[1], v[2], v[3]));
      expect_same(d, c, "fill");
    }
  }
}

// ---------------------------------------------------------------- histogram

std::vector<uint32_t> sorn_histogram(const cv::Mat &img, int bins, double low, double high,
                                     uint32_t type) {
  Env env;
  std::vector<uint32_t> counts((size_t)bins + 1);
  SornHist h;
  std::memset(&h, 0, sizeof h);
  const SornHistInit init = {type, bins, low, high, 1, img.rows, img.cols};
  sorn_hist_inithdr(&h, &init);
  h.counts = counts.data();
  const SornArray r = rec_of(img);
  EXPECT_EQ(SornHistogram(&env.xe, 0, &r, nullptr, 0, &h), SORN_OK);
  counts.pop_back();  // the spare counter no kernel writes
  return counts;
}

std::vector<uint32_t> cv_histogram(const cv::Mat &img, int bins, float low, float high,
                                   const cv::Mat &mask = cv::Mat()) {
  cv::Mat hist;
  const int channels[1] = {0}, sizes[1] = {bins};
  const float range[2] = {low, high};
  const float *ranges[1] = {range};
  cv::calcHist(&img, 1, channels, mask, hist, 1, sizes, ranges);
  std::vector<uint32_t> out(bins);
  for (int i = 0; i < bins; ++i) out[i] = (uint32_t)hist.at<float>(i);
  return out;
}

TEST(OracleHistogram, U8CountsMatchCalcHist) {
  // Sorn's range names the lowest and highest value, both inside; OpenCV's
  // upper bound is outside. For 0..255 that is [0, 256) in OpenCV, and then
  // both put value x in bin x * bins / 256, truncated, for every bin count.
  auto rng = rng_for("histogram u8");
  for (int i = 0; i < 40; ++i) {
    const int rows = 1 + (int)(rng() % 90), cols = 1 + (int)(rng() % 200);
    cv::Mat img = padded(rows, cols, CV_8U, rng);
    if (i % 3 == 0) {
      // Flat stretches, as in real images, for the counting banks.
      fill_random(img, rng, 0, 4);
      img *= 60;
    } else {
      fill_random(img, rng, 0, 256);
    }
    for (int bins : {256, 128, 100, 64, 17, 1}) {
      SCOPED_TRACE(testing::Message() << rows << "x" << cols << ", " << bins << " bins");
      EXPECT_EQ(sorn_histogram(img, bins, 0, 255, SORN_U8), cv_histogram(img, bins, 0, 256));
    }
  }
}

TEST(OracleHistogram, MaskedU8CountsMatchCalcHistWithMask) {
  auto rng = rng_for("histogram u8 masked");
  Env env;
  for (int i = 0; i < 30; ++i) {
    const int rows = 1 + (int)(rng() % 90), cols = 1 + (int)(rng() % 200);
    cv::Mat img = padded(rows, cols, CV_8U, rng), mask = padded(rows, cols, CV_8U, rng);
    fill_random(img, rng, 0, 256);
    fill_random(mask, rng, 0, 3);  // 0 skips, 1 and 2 count, in both
    std::vector<uint32_t> counts(257);
    SornHist h;
    std::memset(&h, 0, sizeof h);
    const SornHistInit init = {SORN_U8, 256, 0.0, 255.0, 1, rows, cols};
    sorn_hist_inithdr(&h, &init);
    h.counts = counts.data();
    const SornArray r = rec_of(img), m = rec_of(mask);
    ASSERT_EQ(SornHistogramEx(&env.xe, 0, &r, &m, nullptr, nullptr, 0, &h), SORN_OK);
    counts.pop_back();
    EXPECT_EQ(counts, cv_histogram(img, 256, 0, 256, mask));
  }
}

TEST(OracleHistogram, S16UnitBinsMatchCalcHist) {
  // With one value per bin both count value x in bin x - low. calcHist
  // takes no 16-bit signed images: it counts the same values as floats.
  auto rng = rng_for("histogram s16");
  for (int i = 0; i < 20; ++i) {
    const int rows = 1 + (int)(rng() % 60), cols = 1 + (int)(rng() % 100);
    cv::Mat img = padded(rows, cols, CV_16S, rng);
    fill_random(img, rng, -300, 300);
    cv::Mat asfloat;
    img.convertTo(asfloat, CV_32F);
    EXPECT_EQ(sorn_histogram(img, 600, -300, 299, SORN_S16),
              cv_histogram(asfloat, 600, -300, 300));
  }
}

TEST(OracleHistogram, F32ShareTheUnitStepBins) {
  // The float bins differ by design: Sorn spreads bins - 1 steps over
  // low..high, so that high itself lands in the last bin, while OpenCV
  // spreads bins steps over [low, high). With Sorn's high set to bins - 1
  // and OpenCV's to bins, both steps are 1 and every value from 0 up to
  // (not including) bins falls in bin floor(x) in both; that is checked.
  auto rng = rng_for("histogram f32");
  for (int i = 0; i < 20; ++i) {
    const int rows = 1 + (int)(rng() % 60), cols = 1 + (int)(rng() % 100);
    const int bins = 1 + (int)(rng() % 64);
    cv::Mat img = padded(rows, cols, CV_32F, rng);
    fill_random(img, rng, 0, bins);
    EXPECT_EQ(sorn_histogram(img, bins, 0, bins - 1, SORN_F32),
              cv_histogram(img, bins, 0, (float)bins));
  }
}

// ---------------------------------------------------------------- sums and means

TEST(OracleSum, IntegerSumsMatchCvSumExactly) {
  // Integer totals are exact in both, with one difference by design: OpenCV
  // adds s32 elements in 32-bit vector lanes before it widens the partial
  // sums, so its total of large s32 values wraps, while Sorn's accumulator
  // has 64 bits. The s32 images keep to values whose partial sums fit.
  auto rng = rng_for("sum int");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_stats_shape(rng);
    static const int kDepths[3] = {CV_8U, CV_16S, CV_32S};
    const int depth = kDepths[i % 3];
    cv::Mat img = padded(s.rows, s.cols, CV_MAKETYPE(depth, s.channels), rng);
    if (depth == CV_8U) fill_random(img, rng, 0, 256);
    else if (depth == CV_16S) fill_random(img, rng, -32768, 32768);
    else fill_random(img, rng, -100000, 100000);
    double sums[4] = {-1, -1, -1, -1};
    const SornArray r = rec_of(img);
    ASSERT_EQ(SornSum(&env.xe, 0, &r, nullptr, sums), SORN_OK);
    const cv::Scalar c = cv::sum(img);
    for (int ch = 0; ch < s.channels; ++ch) EXPECT_EQ(sums[ch], c[ch]) << "channel " << ch;
  }
}

TEST(OracleSum, F32SumsOfExactValuesMatch) {
  // Both add floats into doubles, but in different orders (Sorn row by row
  // in address order, OpenCV in vector lanes and blocks), so a general
  // float image may differ in the last bits. On values that every order
  // adds exactly -- multiples of 1/4 well inside the double's mantissa --
  // the totals must be equal; on general values they are close.
  auto rng = rng_for("sum f32");
  Env env;
  for (int i = 0; i < 40; ++i) {
    const Shape s = random_stats_shape(rng);
    cv::Mat img = padded(s.rows, s.cols, CV_32FC(s.channels), rng);
    fill_random(img, rng, -4000, 4000);
    cv::Mat quarters;
    img.convertTo(quarters, CV_32S, 4.0);
    quarters.convertTo(img, CV_32F, 0.25);
    double sums[4];
    const SornArray r = rec_of(img);
    ASSERT_EQ(SornSum(&env.xe, 0, &r, nullptr, sums), SORN_OK);
    cv::Scalar c = cv::sum(img);
    for (int ch = 0; ch < s.channels; ++ch) EXPECT_EQ(sums[ch], c[ch]) << "channel " << ch;

    fill_random(img, rng, -1e3, 1e3);
    ASSERT_EQ(SornSum(&env.xe, 0, &r, nullptr, sums), SORN_OK);
    c = cv::sum(img);
    for (int ch = 0; ch < s.channels; ++ch)
      EXPECT_NEAR(sums[ch], c[ch], 1e-9 * (double)img.total() * 1e3) << "channel " << ch;
  }
}

TEST(OracleMean, U8MeansAgreeToTheLastBit) {
  // The sums are the same integers; Sorn divides by the pixel count, OpenCV
  // multiplies by its reciprocal, which can round differently in the last
  // bit. Checked: Sorn's mean is the exact quotient, and OpenCV's is within
  // one unit in the last place of it.
  auto rng = rng_for("mean u8");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_stats_shape(rng);
    cv::Mat img = padded(s.rows, s.cols, CV_8UC(s.channels), rng);
    fill_random(img, rng, 0, 256);
    double means[4];
    const SornArray r = rec_of(img);
    ASSERT_EQ(SornMean(&env.xe, 0, &r, nullptr, means), SORN_OK);
    const cv::Scalar sum = cv::sum(img), mean = cv::mean(img);
    for (int ch = 0; ch < s.channels; ++ch) {
      EXPECT_EQ(means[ch], sum[ch] / (double)img.total()) << "channel " << ch;
      EXPECT_LE(std::fabs(means[ch] - mean[ch]), std::nextafter(means[ch], INFINITY) - means[ch])
          << "channel " << ch;
    }
  }
}

TEST(OracleMean, MaskedU8MeansAndCountsAgree) {
  // SornMeanEx answers the number of selected pixels, which is what
  // countNonZero says of the mask; the means compare as above.
  auto rng = rng_for("mean u8 masked");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const Shape s = random_stats_shape(rng);
    cv::Mat img = padded(s.rows, s.cols, CV_8UC(s.channels), rng);
    cv::Mat mask = padded(s.rows, s.cols, CV_8U, rng);
    fill_random(img, rng, 0, 256);
    fill_random(mask, rng, 0, 2);
    double means[4] = {0, 0, 0, 0};
    const SornArray r = rec_of(img), m = rec_of(mask);
    const SornStatus n = SornMeanEx(&env.xe, 0, &r, &m, nullptr, nullptr, means);
    ASSERT_GE(n, 0);
    EXPECT_EQ(n, cv::countNonZero(mask));
    const cv::Scalar mean = cv::mean(img, mask);
    for (int ch = 0; ch < s.channels; ++ch) {
      if (n == 0) {
        // Nothing selected: both give zeros.
        EXPECT_EQ(means[ch], 0.0);
        EXPECT_EQ(mean[ch], 0.0);
      } else {
        EXPECT_LE(std::fabs(means[ch] - mean[ch]),
                  std::nextafter(means[ch], INFINITY) - means[ch])
            << "channel " << ch;
      }
    }
  }
}

}  // namespace

// ---------------------------------------------------------------- resize

// Nearest-neighbour resizing. When shrinking, both take source column
// floor(x * src / dst) and source row floor(y * src / dst), clamped, with
// the factor computed in double from the extents: the results agree
// element for element, for every pixel size Sorn moves (1, 4, 8, 12, 16
// bytes). When enlarging the rules differ: cv::resize still floors, Sorn
// rounds the column to nearest with ties to even and truncates the row
// after adding one half. The enlarging test computes both index rules,
// checks each library against its own, and checks that the two agree
// exactly where the rules name the same source pixel.
struct ResizeCase {
  int depth, channels;
};
const ResizeCase kResizeCases[] = {{CV_8U, 1}, {CV_8U, 4}, {CV_16S, 2}, {CV_16S, 4},
                                   {CV_32S, 1}, {CV_32F, 1}, {CV_32F, 2}, {CV_32F, 3},
                                   {CV_32F, 4}};

cv::Mat sorn_resized(Env &env, const cv::Mat &src, int rows, int cols, std::mt19937_64 &rng) {
  cv::Mat dst = padded(rows, cols, src.type(), rng);
  const SornArray rs = rec_of(src), rd = rec_of(dst);
  EXPECT_EQ(SORN_OK, SornEResize(&env.xe, 0, &rd, &rs, nullptr, nullptr, 0, nullptr));
  return dst;
}

TEST(OracleResize, ShrinkingMatchesCvResizeNearest) {
  auto rng = rng_for("resize shrinking");
  Env env;
  for (const ResizeCase &c : kResizeCases) {
    for (int i = 0; i < 40; ++i) {
      const int sh = 1 + (int)(rng() % 90), sw = 1 + (int)(rng() % 150);
      const int dh = 1 + (int)(rng() % (uint64_t)sh), dw = 1 + (int)(rng() % (uint64_t)sw);
      cv::Mat src = padded(sh, sw, CV_MAKETYPE(c.depth, c.channels), rng);
      fill_random(src, rng, -1000, 1000);
      const cv::Mat ours = sorn_resized(env, src, dh, dw, rng);
      cv::Mat theirs;
      cv::resize(src, theirs, cv::Size(dw, dh), 0, 0, cv::INTER_NEAREST);
      expect_same(ours, theirs, "shrinking");
    }
  }
  // The factors of the comparison rows: halving, exactly.
  cv::Mat src(480, 640, CV_8UC4);
  fill_random(src, rng, 0, 255);
  cv::Mat theirs;
  cv::resize(src, theirs, cv::Size(320, 240), 0, 0, cv::INTER_NEAREST);
  expect_same(sorn_resized(env, src, 240, 320, rng), theirs, "halving");
}

// Source index of destination index i by each library's rule.
int floor_rule(int i, int d, int s) {
  return std::min((int)std::floor(i * (1.0 / ((double)d / s))), s - 1);
}
int sorn_column(int i, int d, int s) {
  const double g = 1.0 / ((double)d / s);
  const double v = g >= 1.0 ? std::trunc(i * g) : std::nearbyint(i * g);
  return std::min((int)v, s - 1);
}
int sorn_row(int i, int d, int s) {
  const double g = 1.0 / ((double)d / s);
  const double t = 1.0 - g <= 1.1920928955078125e-7 ? 0.0 : 0.5;
  return std::min((int)std::trunc(i * g + t), s - 1);
}

TEST(OracleResize, EnlargingTakesSourcePixelsByADifferentRule) {
  auto rng = rng_for("resize enlarging");
  Env env;
  int differ = 0;
  for (const ResizeCase &c : kResizeCases) {
    for (int i = 0; i < 30; ++i) {
      const int sh = 1 + (int)(rng() % 40), sw = 1 + (int)(rng() % 60);
      const int dh = sh + 1 + (int)(rng() % 80), dw = sw + 1 + (int)(rng() % 120);
      cv::Mat src(sh, sw, CV_MAKETYPE(c.depth, c.channels));
      fill_random(src, rng, -1000, 1000);
      const cv::Mat ours = sorn_resized(env, src, dh, dw, rng);
      cv::Mat theirs;
      cv::resize(src, theirs, cv::Size(dw, dh), 0, 0, cv::INTER_NEAREST);
      const size_t px = src.elemSize();
      for (int y = 0; y < dh; ++y) {
        for (int x = 0; x < dw; ++x) {
          const uint8_t *o = ours.ptr(y) + x * px, *t = theirs.ptr(y) + x * px;
          const uint8_t *so = src.ptr(sorn_row(y, dh, sh)) + sorn_column(x, dw, sw) * px;
          const uint8_t *st = src.ptr(floor_rule(y, dh, sh)) + floor_rule(x, dw, sw) * px;
          ASSERT_EQ(0, std::memcmp(o, so, px)) << "Sorn by its rule at " << y << ", " << x;
          ASSERT_EQ(0, std::memcmp(t, st, px)) << "OpenCV by the floor at " << y << ", " << x;
          if (so == st)
            ASSERT_EQ(0, std::memcmp(o, t, px)) << "the same source pixel at " << y << ", " << x;
          else
            ++differ;
        }
      }
    }
  }
  EXPECT_GT(differ, 0);
  // Doubling: OpenCV repeats each source pixel twice; Sorn takes columns
  // 0, 0, 1, 2, 2, 2, 3, 4, ... (halves round to even) and rows 0, 1, 1,
  // 2, 2, ... (a half is added before truncating).
  EXPECT_EQ(1, floor_rule(3, 8, 4));
  EXPECT_EQ(2, sorn_column(3, 8, 4));
  EXPECT_EQ(0, floor_rule(1, 8, 4));
  EXPECT_EQ(1, sorn_row(1, 8, 4));
}

// ---------------------------------------------------------------- stable regions

namespace {

TEST(OracleMser, FlatSquaresAreFoundWithTheirExactAreas) {
  // Each library defines stability and prunes near-duplicates by its own
  // rules, so on natural images the regions differ. What they share: a
  // flat square on a flat background stays the same set of pixels over
  // many levels, which every definition calls perfectly stable. Dark and
  // bright squares on grey must be found, each with its exact area, by
  // both. Squares keep away from column 0, which Sorn's fast flooding
  // leaves out of every region.
  cv::Mat img(240, 320, CV_8U, cv::Scalar(128));
  struct Square { int y, x, h, w, v; };
  const Square squares[] = {{20, 20, 20, 20, 30},   {20, 80, 10, 30, 30},  {100, 40, 25, 25, 230},
                            {150, 150, 6, 40, 230}, {60, 200, 30, 50, 20}, {180, 260, 12, 12, 240}};
  std::vector<int> areas;
  for (const Square &q : squares) {
    img(cv::Rect(q.x, q.y, q.w, q.h)).setTo(cv::Scalar(q.v));
    areas.push_back(q.h * q.w);
  }
  std::sort(areas.begin(), areas.end());

  Env env;
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  const SornArray r = rec_of(img);
  ASSERT_EQ(SornGenerateFMSERs(&env.xe, 0, &r, nullptr, &f), SORN_OK);
  std::vector<int> sorn_areas;
  SornFWTSRegion **picked = static_cast<SornFWTSRegion **>(f.regions.items);
  for (uint32_t i = 0; i < f.count1 + f.count2; ++i) sorn_areas.push_back((int)picked[i]->size);
  sorn_fmserf_destroy(&f);
  std::sort(sorn_areas.begin(), sorn_areas.end());

  auto cvm = cv::MSER::create(10, 9, (int)(img.total() * 3 / 4), 0.33, 0.2);
  std::vector<std::vector<cv::Point>> regions;
  std::vector<cv::Rect> boxes;
  cvm->detectRegions(img, regions, boxes);
  std::vector<int> cv_areas;
  for (const auto &reg : regions) cv_areas.push_back((int)reg.size());

  for (int a : areas) {
    EXPECT_TRUE(std::count(sorn_areas.begin(), sorn_areas.end(), a) >= 1) << "Sorn misses " << a;
    EXPECT_TRUE(std::count(cv_areas.begin(), cv_areas.end(), a) >= 1) << "OpenCV misses " << a;
  }
  // Nothing else is stable in this picture for Sorn: the grey background
  // is too large, and the root is never a candidate.
  EXPECT_EQ(sorn_areas, areas);
}

// ---------------------------------------------------------------- comparison

// Integer sources compare exactly in both, and both write 255 where the
// comparison holds. OpenCV's operators 0..5 are Sorn's codes 3, 6, 7, 4, 5, 8.
const int kCvOps[6] = {cv::CMP_EQ, cv::CMP_GT, cv::CMP_GE, cv::CMP_LT, cv::CMP_LE, cv::CMP_NE};
const uint32_t kSornOps[6] = {SORN_CMP_EQ, SORN_CMP_GT, SORN_CMP_GE,
                              SORN_CMP_LT, SORN_CMP_LE, SORN_CMP_NE};

TEST(OracleCompare, IntegerImagesMatchCvCompare) {
  auto rng = rng_for("compare");
  Env env;
  for (int depth : {CV_8U, CV_16S, CV_32S})
    for (int i = 0; i < 30; ++i) {
      const Shape s = random_shape(rng);
      const int type = CV_MAKETYPE(depth, s.channels);
      cv::Mat a = padded(s.rows, s.cols, type, rng), b = padded(s.rows, s.cols, type, rng);
      // A narrow range makes equal elements common.
      fill_random(a, rng, -3, 4);
      fill_random(b, rng, -3, 4);
      cv::Mat d = padded(s.rows, s.cols, CV_MAKETYPE(CV_8U, s.channels), rng), c;
      const SornArray ra = rec_of(a), rb = rec_of(b), rd = rec_of(d);
      for (int k = 0; k < 6; ++k) {
        ASSERT_EQ(SornCompare(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, kSornOps[k]),
                  SORN_OK);
        cv::compare(a.reshape(1), b.reshape(1), c, kCvOps[k]);
        expect_same(d.reshape(1), c, "SornCompare");
      }
    }
}

TEST(OracleCompare, ByteImagesAgainstAnIntegerConstantMatchCvCompare) {
  // Below and above the table limit. OpenCV takes a fractional constant
  // by its own rounding rule for each operator; Sorn rounds it to nearest
  // into the source type first: only integral constants are shared.
  auto rng = rng_for("compareC");
  Env env;
  for (int cols : {100, 300}) {
    cv::Mat a = padded(64, cols, CV_8UC1, rng);
    fill_random(a, rng, 0, 256);
    cv::Mat d = padded(64, cols, CV_8UC1, rng), c;
    const SornArray ra = rec_of(a), rd = rec_of(d);
    for (int k = 0; k < 6; ++k)
      for (double v : {0.0, 1.0, 77.0, 254.0, 255.0}) {
        ASSERT_EQ(SornCompareC(&env.xe, 0, &rd, &ra, &v, nullptr, nullptr, kSornOps[k]), SORN_OK);
        cv::compare(a, cv::Scalar(v), c, kCvOps[k]);
        expect_same(d, c, "SornCompareC");
      }
  }
}

TEST(OracleCompare, FloatsApartMoreThanTheToleranceMatchCvCompare) {
  // Sorn compares floats within 1.1920929e-7, OpenCV exactly: on values
  // that are equal or further apart than that, they agree.
  auto rng = rng_for("compare f32");
  Env env;
  for (int i = 0; i < 30; ++i) {
    const Shape s = random_shape(rng);
    cv::Mat a = padded(s.rows, s.cols, CV_32FC1, rng), b = padded(s.rows, s.cols, CV_32FC1, rng);
    // Quarters: two values are equal or a quarter apart.
    for (int y = 0; y < s.rows; ++y)
      for (int x = 0; x < s.cols; ++x) {
        a.at<float>(y, x) = 0.25f * (float)((int)(rng() % 9) - 4);
        b.at<float>(y, x) = 0.25f * (float)((int)(rng() % 9) - 4);
      }
    cv::Mat d(s.rows, s.cols, CV_8UC1), c;
    const SornArray ra = rec_of(a), rb = rec_of(b), rd = rec_of(d);
    for (int k = 0; k < 6; ++k) {
      ASSERT_EQ(SornCompare(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, kSornOps[k]),
                SORN_OK);
      cv::compare(a, b, c, kCvOps[k]);
      expect_same(d, c, "SornCompare f32");
    }
  }
}

// ---------------------------------------------------------------- min and max

TEST(OracleMinmax, ValuesAndFirstPlacesMatchMinMaxLoc) {
  // Both give the first occurrence in row order. Sorn also ends its walk
  // once the type's ends are reached, which changes nothing here.
  auto rng = rng_for("minmax");
  Env env;
  for (int depth : {CV_8U, CV_16S, CV_32S, CV_32F})
    for (int i = 0; i < 40; ++i) {
      const Shape s = random_shape(rng);
      cv::Mat a = padded(s.rows, s.cols, CV_MAKETYPE(depth, 1), rng);
      fill_random(a, rng, -20, 20 + (double)(rng() % 200));
      SornMinmaxRec r;
      std::memset(&r, 0, sizeof r);
      r.what = SORN_MINMAX_POSITIONS | SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
      const SornArray ra = rec_of(a);
      ASSERT_EQ(SornMinmax(&env.xe, 0, &ra, nullptr, &r), SORN_OK);
      double mn, mx;
      cv::Point pmin, pmax;
      cv::minMaxLoc(a, &mn, &mx, &pmin, &pmax);
      const double smin = depth == CV_32F ? r.min[0].fvalue : r.min[0].ivalue;
      const double smax = depth == CV_32F ? r.max[0].fvalue : r.max[0].ivalue;
      EXPECT_EQ(smin, mn);
      EXPECT_EQ(smax, mx);
      EXPECT_EQ(r.min[0].col, pmin.x);
      EXPECT_EQ(r.min[0].row, pmin.y);
      EXPECT_EQ(r.max[0].col, pmax.x);
      EXPECT_EQ(r.max[0].row, pmax.y);
    }
}

// ---------------------------------------------------------------- Otsu

TEST(OracleOtsu, U8ThresholdsAndResultsMatchCvThreshold) {
  // OpenCV's Otsu threshold t puts the values up to t below; Sorn's is
  // just under t + 1 and puts the values below it below, so the two part
  // the pixels alike. Both keep the first of equal scores (Sorn unless a
  // later one is better by more than 2^-23, on unnormalised scores): images
  // of well-parted levels have no near ties.
  auto rng = rng_for("otsu");
  Env env;
  for (int i = 0; i < 30; ++i) {
    const int rows = 20 + (int)(rng() % 60), cols = 20 + (int)(rng() % 90);
    cv::Mat a(rows, cols, CV_8UC1);
    const int lo = (int)(rng() % 80), hi = 140 + (int)(rng() % 80), spread = 5 + (int)(rng() % 25);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x)
        a.at<uint8_t>(y, x) = (uint8_t)((rng() % 3 ? lo : hi) + (int)(rng() % (uint64_t)spread));
    const SornArray ra = rec_of(a);
    double t = 0;
    ASSERT_EQ(SornComputeThresholdByOtsu(&env.xe, 0, &ra, nullptr, &t, nullptr, nullptr), SORN_OK);
    cv::Mat c;
    const double cvt = cv::threshold(a, c, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    EXPECT_EQ(std::floor(t), cvt) << i;
    cv::Mat d(rows, cols, CV_8UC1);
    const SornArray rd = rec_of(d);
    SornThresholdSpec how;
    std::memset(&how, 0, sizeof how);
    how.method = SORN_THH_OTSU | SORN_THH_DEFAULTS;
    ASSERT_EQ(SornThreshold(&env.xe, 0, &rd, &ra, nullptr, nullptr, &how, nullptr, 0), SORN_OK);
    expect_same(d, c, "SornThreshold with Otsu");
  }
}

TEST(OracleBlurThreshold, MatchesAdaptiveThresholdAwayFromBordersAndTies) {
  // Both compare each pixel with the rounded mean of the 5 by 5 box around
  // it. Two differences by design: OpenCV makes white what lies above the
  // mean, Sorn what lies at or above it (its default conditions are "below
  // is 0, the rest the top"); and OpenCV replicates the edge pixels where
  // Sorn reflects about them, so the two outermost rows and columns are
  // left out.
  auto rng = rng_for("blur threshold");
  Env env;
  for (int i = 0; i < 20; ++i) {
    const int rows = 12 + (int)(rng() % 50), cols = 12 + (int)(rng() % 70);
    cv::Mat a(rows, cols, CV_8UC1);
    fill_random(a, rng, 0, 255);
    if (i % 2) cv::GaussianBlur(a, a, cv::Size(3, 3), 0);  // smoother, with more ties
    cv::Mat c, mean;
    cv::adaptiveThreshold(a, c, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 5, 0);
    cv::blur(a, mean, cv::Size(5, 5), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::Mat d(rows, cols, CV_8UC1, cv::Scalar(7));
    const SornArray ra = rec_of(a), rd = rec_of(d);
    SornThresholdSpec how;
    std::memset(&how, 0, sizeof how);
    how.method = SORN_THH_BLUR | SORN_THH_DEFAULTS;
    ASSERT_EQ(SornThreshold(&env.xe, 0, &rd, &ra, nullptr, nullptr, &how, nullptr, 0), SORN_OK);
    int ties = 0;
    for (int y = 2; y < rows - 2; ++y)
      for (int x = 2; x < cols - 2; ++x) {
        const int v = a.at<uint8_t>(y, x), m = mean.at<uint8_t>(y, x);
        if (v == m) {
          ++ties;
          ASSERT_EQ(d.at<uint8_t>(y, x), 255) << i << " at " << y << "," << x;
          ASSERT_EQ(c.at<uint8_t>(y, x), 0) << i << " at " << y << "," << x;
        } else {
          ASSERT_EQ(d.at<uint8_t>(y, x), c.at<uint8_t>(y, x)) << i << " at " << y << "," << x;
        }
      }
    if (i % 2) {
      EXPECT_GT(ties, 0) << i;
    }
  }
}

// ---------------------------------------------------------------- borders and filters

// A region of a larger matrix, as both libraries see a sub-array: its record
// has the matrix in its bounds and its start in its offset, so that Sorn may
// read the pixels around it as OpenCV does for a region of interest.
SornArray sub_rec_of(const cv::Mat &m) {
  cv::Size whole;
  cv::Point at;
  m.locateROI(whole, at);
  SornArray r = rec_of(m);
  r.bounds[1] = whole.height;
  r.bounds[2] = whole.width;
  r.offset = (int64_t)at.y * r.strides[1] + (int64_t)at.x * r.strides[2];
  r.data = m.data - r.offset;
  return r;
}

// A window of kw columns by kh rows, its anchor at column ax, row ay.
SornSeShape window_of(int kw, int kh, int ax, int ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = kh;
  se.size[2] = kw;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

int cv_border(int32_t kind) {
  switch (kind) {
    case SORN_BORDER_CONST: return cv::BORDER_CONSTANT;
    case SORN_BORDER_REPLICATE: return cv::BORDER_REPLICATE;
    case SORN_BORDER_WRAP: return cv::BORDER_WRAP;
    case SORN_BORDER_REFLECT: return cv::BORDER_REFLECT;
    default: return cv::BORDER_REFLECT_101;
  }
}

// cv::copyMakeBorder and SornCopyMkb make the same frame, with real pixels
// of the parent where there are some (and none, isolated, under
// SORN_F_SITEMARGIN), for every kind both have. Borders stay within twice
// the image: beyond that OpenCV's wrap no longer repeats the period.
TEST(OracleBorder, EveryKindMatchesCopyMakeBorder) {
  auto rng = rng_for("OracleBorder");
  Env env;
  const int32_t kinds[] = {SORN_BORDER_CONST, SORN_BORDER_REPLICATE, SORN_BORDER_WRAP,
                           SORN_BORDER_REFLECT, SORN_BORDER_REFLECT101};
  const int depths[] = {CV_8U, CV_16S, CV_32S, CV_32F};
  for (int i = 0; i < 300; ++i) {
    const int32_t kind = kinds[rng() % 5];
    const int depth = depths[rng() % 4];
    const Shape s = random_shape(rng);
    const int type = CV_MAKETYPE(depth, s.channels);
    cv::Mat parent(s.rows + 6, s.cols + 6, type);
    fill_random(parent, rng, -300, 300);
    const int oy = (int)(rng() % 7), ox = (int)(rng() % 7);
    const int h = 1 + (int)(rng() % (s.rows + 6 - oy)), w = 1 + (int)(rng() % (s.cols + 6 - ox));
    cv::Mat src = parent(cv::Rect(ox, oy, w, h));
    const int t = (int)(rng() % (2 * h + 1)), b = (int)(rng() % (2 * h + 1));
    const int l = (int)(rng() % (2 * w + 1)), r = (int)(rng() % (2 * w + 1));
    const bool isolated = rng() % 2;
    const cv::Scalar value(rng() % 200, 7, -9, 1000);
    cv::Mat peer, mine(h + t + b, w + l + r, type, cv::Scalar::all(0));
    cv::copyMakeBorder(src, peer, t, b, l, r, cv_border(kind) | (isolated ? cv::BORDER_ISOLATED : 0),
                       value);
    SornBrShape br;
    std::memset(&br, 0, sizeof br);
    br.lo[1] = -t;
    br.lo[2] = -l;
    br.hi[1] = b;
    br.hi[2] = r;
    for (int k = 0; k < 4; ++k) br.fill[k] = value[k];
    const SornArray rs = sub_rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornCopyMkb(&env.xe, isolated ? SORN_F_SITEMARGIN : 0, &rd, &rs, nullptr, nullptr,
                          kind, &br),
              SORN_OK);
    expect_same(mine, peer, "copyMakeBorder");
    if (HasFailure()) {
      ADD_FAILURE() << "kind " << kind << " depth " << depth << " " << h << "x" << w
                    << " borders " << t << " " << l << " " << b << " " << r
                    << (isolated ? " isolated" : "");
      return;
    }
  }
}

// The means of odd windows of u8 agree: f32(sum) times f32(1 / cells) and
// OpenCV's product in doubles are never on either side of a half apart, as
// a sum of an odd count of cells is never a half from a multiple of it.
// Even windows have ties and f32 images another order of additions (Sorn
// keeps running column sums with their rounding; OpenCV sums rows first):
// those agree to within a rounding of the sum.
TEST(OracleBox, OddWindowsOfU8MatchBlur) {
  auto rng = rng_for("OracleBox");
  Env env;
  for (int i = 0; i < 200; ++i) {
    const int rows = 1 + (int)(rng() % 60), cols = 1 + (int)(rng() % 90);
    cv::Mat parent(rows + 10, cols + 10, CV_8U);
    fill_random(parent, rng, 0, 256);
    const bool sub = rng() % 2;
    cv::Mat src = sub ? parent(cv::Rect(5, 5, cols, rows)) : parent;
    const int kw = 1 + 2 * (int)(rng() % 5), kh = 1 + 2 * (int)(rng() % 5);
    if (kw == 1 && kh == 1) continue;
    const int ax = (int)(rng() % kw), ay = (int)(rng() % kh);
    cv::Mat peer, mine(src.size(), CV_8U);
    cv::blur(src, peer, cv::Size(kw, kh), cv::Point(ax, ay), cv::BORDER_REFLECT_101);
    const SornSeShape se = window_of(kw, kh, ax, ay);
    const SornArray rs = sub_rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornFilter(&env.xe, 0, &rd, &rs, nullptr, nullptr, SORN_FILTER_BOX, &se), SORN_OK);
    expect_same(mine, peer, "blur");
    if (HasFailure()) {
      ADD_FAILURE() << kw << "x" << kh << " anchor " << ax << "," << ay << " on " << rows << "x"
                    << cols << (sub ? " inside a parent" : "");
      return;
    }
  }
}

TEST(OracleBox, F32AgreesToARoundingOfTheSum) {
  auto rng = rng_for("OracleBoxF32");
  Env env;
  for (int i = 0; i < 60; ++i) {
    const int rows = 1 + (int)(rng() % 50), cols = 1 + (int)(rng() % 70);
    cv::Mat src(rows, cols, CV_32F);
    fill_random(src, rng, -100, 100);
    const int kw = 1 + (int)(rng() % 8), kh = 1 + (int)(rng() % 8);
    if (kw == 1 && kh == 1) continue;
    cv::Mat peer, mine(src.size(), CV_32F);
    cv::blur(src, peer, cv::Size(kw, kh), cv::Point(kw / 2, kh / 2), cv::BORDER_REFLECT_101);
    const SornSeShape se = window_of(kw, kh, kw / 2, kh / 2);
    const SornArray rs = rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornFilter(&env.xe, 0, &rd, &rs, nullptr, nullptr, SORN_FILTER_BOX, &se), SORN_OK);
    // Sums of up to 64 cells of magnitude 100: a few ulps of 6400.
    const double worst = cv::norm(mine, peer, cv::NORM_INF);
    EXPECT_LE(worst, 64 * 100 * 4e-7) << kw << "x" << kh;
  }
}

// Rectangular erosion and dilation are window minima and maxima in both
// libraries, exact for every type, NaN aside.
TEST(OracleMinMax, RectangularErodeAndDilateMatch) {
  auto rng = rng_for("OracleMinMax");
  Env env;
  const int depths[] = {CV_8U, CV_16S, CV_32F};
  for (int i = 0; i < 240; ++i) {
    const int depth = depths[rng() % 3];
    const int rows = 1 + (int)(rng() % 60), cols = 1 + (int)(rng() % 90);
    cv::Mat parent(rows + 12, cols + 12, depth);
    fill_random(parent, rng, -1000, 1000);
    const bool sub = rng() % 2;
    cv::Mat src = sub ? parent(cv::Rect(6, 6, cols, rows)) : parent;
    const int kw = 1 + (int)(rng() % 11), kh = 1 + (int)(rng() % 11);
    if (kw == 1 && kh == 1) continue;
    const int ax = (int)(rng() % kw), ay = (int)(rng() % kh);
    const bool max = rng() % 2;
    const cv::Mat k = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(kw, kh));
    cv::Mat peer, mine(src.size(), src.type());
    if (max)
      cv::dilate(src, peer, k, cv::Point(ax, ay), 1, cv::BORDER_REFLECT_101);
    else
      cv::erode(src, peer, k, cv::Point(ax, ay), 1, cv::BORDER_REFLECT_101);
    const SornSeShape se = window_of(kw, kh, ax, ay);
    const SornArray rs = sub_rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornFilter(&env.xe, 0, &rd, &rs, nullptr, nullptr,
                         max ? SORN_FILTER_MAX : SORN_FILTER_MIN, &se),
              SORN_OK);
    expect_same(mine, peer, max ? "dilate" : "erode");
    if (HasFailure()) {
      ADD_FAILURE() << kw << "x" << kh << " anchor " << ax << "," << ay << " depth " << depth
                    << (sub ? " inside a parent" : "");
      return;
    }
  }
}

// Multiply-accumulate with one f32 constant is cv::scaleAdd(b, c, a).
// OpenCV may fuse the product and the sum into one rounding where Sorn
// rounds each, so the two agree within a few units in the last place.
TEST(OracleMac, MultiplyAddF32WithAConstantIsScaleAdd) {
  std::mt19937_64 rng = rng_for("multiply-add f32");
  Env env;
  for (int round = 0; round < 20; ++round) {
    const int rows = 1 + (int)(rng() % 40), cols = 1 + (int)(rng() % 70);
    cv::Mat a = padded(rows, cols, CV_32F, rng), b = padded(rows, cols, CV_32F, rng),
            d = padded(rows, cols, CV_32F, rng), want(rows, cols, CV_32F);
    fill_random(a, rng, -1000.0, 1000.0);
    fill_random(b, rng, -1000.0, 1000.0);
    // A fraction, taken as f32 by both.
    const double c[1] = {(double)(float)((double)(rng() % 20001) / 1000.0 - 10.0 + 0.0005)};
    const SornArray rd = rec_of(d), ra = rec_of(a), rb = rec_of(b);
    ASSERT_EQ(SornMulAddC(&env.xe, 0, &rd, &ra, &rb, c, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
    cv::scaleAdd(b, c[0], a, want);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x) {
        const float got = d.at<float>(y, x), w = want.at<float>(y, x);
        ASSERT_LE(std::fabs(got - w), 4e-7f * (std::fabs(w) + 1000.0f)) << y << "," << x;
      }
  }
}

// With u8 arrays the sum of a and the product saturates once, as
// cv::multiply and cv::add in 32 bits and a saturating conversion give it.
TEST(OracleMac, MultiplyAddU8IsMultiplyThenAddIn32Bits) {
  std::mt19937_64 rng = rng_for("multiply-add u8");
  Env env;
  for (int round = 0; round < 20; ++round) {
    const int rows = 1 + (int)(rng() % 40), cols = 1 + (int)(rng() % 70);
    cv::Mat a = padded(rows, cols, CV_8U, rng), b = padded(rows, cols, CV_8U, rng),
            c = padded(rows, cols, CV_8U, rng), d = padded(rows, cols, CV_8U, rng);
    fill_random(a, rng, 0, 256);
    fill_random(b, rng, 0, 20);
    fill_random(c, rng, 0, 20);
    const SornArray rd = rec_of(d), ra = rec_of(a), rb = rec_of(b), rc = rec_of(c);
    ASSERT_EQ(SornMulAdd(&env.xe, 0, &rd, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_OK);
    cv::Mat p, s, want;
    cv::multiply(b, c, p, 1.0, CV_32S);
    cv::add(p, a, s, cv::noArray(), CV_32S);
    s.convertTo(want, CV_8U);
    expect_same(d, want, "multiply-add u8");
  }
}

// ---------------------------------------------------------------- morphology

// A random mask of 0 and 255 with at least one set cell, as an OpenCV
// kernel (whose non-zero cells count as Sorn's do) and as a strel over it.
struct OracleMask {
  cv::Mat cells;
  SornStrel strel;
  int ax, ay;
};
OracleMask random_mask(std::mt19937_64 &rng) {
  OracleMask m;
  const int kw = 1 + (int)(rng() % 7), kh = 1 + (int)(rng() % 7);
  m.cells = cv::Mat(kh, kw, CV_8U);
  const bool flat = rng() % 5 == 0;
  for (int i = 0; i < kh; ++i)
    for (int j = 0; j < kw; ++j) m.cells.at<uint8_t>(i, j) = flat || rng() % 2 ? 255 : 0;
  m.cells.at<uint8_t>((int)(rng() % kh), (int)(rng() % kw)) = 255;
  m.ax = (int)(rng() % kw);
  m.ay = (int)(rng() % kh);
  std::memset(&m.strel, 0, sizeof m.strel);
  m.strel.anchor[1] = m.ay;
  m.strel.anchor[2] = m.ax;
  m.strel.mask = rec_of(m.cells);
  return m;
}

// Erosion and dilation with a mask of any shape: the extreme over the set
// cells in both libraries, neither reflecting the mask.
TEST(OracleMorph, MaskedErodeAndDilateMatch) {
  auto rng = rng_for("OracleMorph");
  Env env;
  const int depths[] = {CV_8U, CV_16S, CV_32F};
  for (int i = 0; i < 240; ++i) {
    const int depth = depths[rng() % 3];
    const int rows = 1 + (int)(rng() % 50), cols = 1 + (int)(rng() % 70);
    cv::Mat parent(rows + 12, cols + 12, depth);
    fill_random(parent, rng, -1000, 1000);
    const bool sub = rng() % 2;
    cv::Mat src = sub ? parent(cv::Rect(6, 6, cols, rows)) : parent;
    const OracleMask m = random_mask(rng);
    const bool max = rng() % 2;
    cv::Mat peer, mine(src.size(), src.type());
    if (max)
      cv::dilate(src, peer, m.cells, cv::Point(m.ax, m.ay), 1, cv::BORDER_REFLECT_101);
    else
      cv::erode(src, peer, m.cells, cv::Point(m.ax, m.ay), 1, cv::BORDER_REFLECT_101);
    const SornArray rs = sub_rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornMorphop(&env.xe, 0, &rd, &rs, nullptr, nullptr,
                          max ? SORN_MORPH_DILATE : SORN_MORPH_ERODE, &m.strel),
              SORN_OK);
    expect_same(mine, peer, max ? "dilate" : "erode");
    if (HasFailure()) {
      ADD_FAILURE() << m.cells.cols << "x" << m.cells.rows << " anchor " << m.ax << "," << m.ay
                    << " depth " << depth << (sub ? " inside a parent" : "");
      return;
    }
  }
}

// The chains differ by design near the edges: OpenCV's second pass reads
// the first pass's results reflected beyond the image, Sorn's sees the
// results within it only (the frame never wins). Where the second pass's
// window lies inside the image the two agree, hats included.
TEST(OracleMorph, ChainsMatchWhereTheSecondPassStaysInside) {
  auto rng = rng_for("OracleMorphChains");
  Env env;
  const int depths[] = {CV_8U, CV_16S, CV_32F};
  const struct {
    int sorn, cv;
  } kinds[] = {{SORN_MORPH_OPEN, cv::MORPH_OPEN},
               {SORN_MORPH_CLOSE, cv::MORPH_CLOSE},
               {SORN_MORPH_TOPHAT, cv::MORPH_TOPHAT},
               {SORN_MORPH_BOTHAT, cv::MORPH_BLACKHAT}};
  for (int i = 0; i < 160; ++i) {
    const int depth = depths[rng() % 3];
    const int rows = 8 + (int)(rng() % 40), cols = 8 + (int)(rng() % 60);
    cv::Mat src(rows, cols, depth);
    fill_random(src, rng, -1000, 1000);
    const OracleMask m = random_mask(rng);
    const auto k = kinds[rng() % 4];
    cv::Mat peer, mine(src.size(), src.type());
    cv::morphologyEx(src, peer, k.cv, m.cells, cv::Point(m.ax, m.ay), 1, cv::BORDER_REFLECT_101);
    const SornArray rs = rec_of(src), rd = rec_of(mine);
    ASSERT_EQ(SornMorphop(&env.xe, 0, &rd, &rs, nullptr, nullptr, k.sorn, &m.strel), SORN_OK);
    const int y0 = m.ay, y1 = rows - m.cells.rows + m.ay, x0 = m.ax, x1 = cols - m.cells.cols + m.ax;
    if (y1 < y0 || x1 < x0) continue;
    const cv::Rect inside(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
    expect_same(mine(inside), peer(inside), "chain");
    if (HasFailure()) {
      ADD_FAILURE() << "kind " << k.sorn << " " << m.cells.cols << "x" << m.cells.rows
                    << " anchor " << m.ax << "," << m.ay << " depth " << depth;
      return;
    }
  }
}

}  // namespace

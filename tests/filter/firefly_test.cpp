// The firefly filter against its script rebuilt here step by step from the
// public entries of the families it runs on (Gaussian filter, histogram,
// relative box count, multiplication and multiply-accumulate by constants,
// conversion, logarithm, subtraction), so that a change in any of them
// shows up here too: every kind, every type of the Gaussian's table, one,
// three and four channels, regions at non-zero origins, padded rows, guard
// bytes, in place, four dimensions. The one window made three, the checks
// in their order with nothing written, the windows and the quantile where
// they hide, the mixing constants as the arithmetic rounds them, and the
// scratch: given back by the frame, left taken by a script that fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "alloc_failure.h"
#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

// The scratch stack of every call, checked to be back at its mark; warm
// enough that the bordered copies of the largest windows here stay in the
// chunk of the mark.
struct Env : sorn_test::ScratchEnv {
  Env() : sorn_test::ScratchEnv(size_t{1} << 20) {}
};

SornSeShape window(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

// A centred square window of side s.
SornSeShape square(int32_t s) { return window(s, s, s / 2, s / 2); }

// A second window that only carries the quantile num / den in its depth
// cells (kinds 3 and 4 read nothing else of it).
SornSeShape quantile(int32_t num, int32_t den) {
  SornSeShape se = square(3);
  se.anchor[0] = num;
  se.size[0] = den;
  return se;
}

struct Views {
  SornSeShape shapes[4];
  int32_t weights[4];
  int32_t count;
};

Image random_image(int32_t rows, int32_t cols, int32_t ch, uint32_t type, uint64_t seed,
                   int32_t pad = 0, uint8_t fill = 0) {
  Image im(rows, cols, ch, type, pad, fill);
  auto rng = sorn_test::seeded_rng(seed);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x)
      for (int32_t c = 0; c < ch; ++c) {
        double v = sorn_test::random_value(rng, type, false);
        // Floats within a few thousand, as images hold them.
        if (type == SORN_F32) v = std::fmod(v, 4096.0);
        im.set(y, x, c, v);
      }
  return im;
}

// A smooth image: blurs and ranks of it vary slowly, and its byte range is
// wide.
Image smooth_u8(int32_t rows, int32_t cols, uint64_t seed) {
  Image im(rows, cols, 1, SORN_U8);
  auto rng = sorn_test::seeded_rng(seed);
  const double fy = 0.05 + (double)(rng() % 100) / 1000.0,
               fx = 0.07 + (double)(rng() % 100) / 900.0;
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x)
      im.at<uint8_t>(y, x) = (uint8_t)std::lround(
          127.5 + 100.0 * std::sin(fy * y) * std::cos(fx * x) + (double)(rng() % 21) - 10.0);
  return im;
}

// The bytes of an image's region (rows x cols from oy, ox) as an image of
// its own.
Image region_of(const Image &im, int32_t oy, int32_t ox, int32_t rows, int32_t cols) {
  Image out(rows, cols, im.channels(), im.type());
  for (int32_t y = 0; y < rows; ++y)
    std::memcpy(&out.at<uint8_t>(y, 0), &im.at<uint8_t>(oy + y, ox),
                (size_t)cols * im.channels() * im.esize());
  return out;
}

// Every element of `want` equals the element of `got` at (oy, ox) on,
// compared as bytes (a NaN made the same way has the same bits).
void expect_region(const Image &want, const Image &got, int32_t oy = 0, int32_t ox = 0) {
  const size_t row = (size_t)want.cols() * want.channels() * want.esize();
  for (int32_t y = 0; y < want.rows(); ++y)
    if (std::memcmp(&want.at<uint8_t>(y, 0), &got.at<uint8_t>(oy + y, ox), row) != 0) {
      for (int32_t x = 0; x < want.cols(); ++x)
        for (int32_t c = 0; c < want.channels(); ++c)
          ASSERT_EQ(want.get(y, x, c), got.get(oy + y, ox + x, c)) << "at " << y << "," << x;
      FAIL() << "row " << y << " differs";
    }
}

// Outside the region (oy, ox, rows, cols) every byte of `got` is as in
// `before`, the guards included.
void expect_untouched_outside(const std::vector<uint8_t> &before, const Image &got, int32_t oy,
                              int32_t ox, int32_t rows, int32_t cols) {
  const std::vector<uint8_t> now = got.bytes_copy();
  const size_t px = (size_t)got.channels() * got.esize();
  for (size_t i = 0; i < now.size(); ++i) {
    const int64_t y = (int64_t)(i / (size_t)got.rowstride());
    const int64_t x = (int64_t)((i % (size_t)got.rowstride()) / px);
    const bool inside = y >= oy && y < oy + rows && x >= ox && x < ox + cols &&
                        (i % (size_t)got.rowstride()) < (size_t)got.cols() * px;
    if (!inside) {
      ASSERT_EQ(before[i], now[i]) << "byte " << i;
    }
  }
  EXPECT_TRUE(got.guards_intact());
}

void per_channel(double *c, double v) {
  for (int k = 0; k < 16; ++k) c[k] = v;
}

// One explicit firefly of the region (oy, ox, rows, cols) of `big`, in place
// or into a padded destination at another origin, against `script(src,
// site, start)`, the script of the public entries from the destination's
// first content `start`; nothing outside the region may change.
template <class Script>
void expect_script(Env &env, Image &big, int32_t oy, int32_t ox, int32_t rows, int32_t cols,
                   bool in_place, int32_t dy, int32_t dx, int32_t pad, int32_t kind,
                   const Views &v, Script script) {
  const int32_t ch = big.channels();
  const SornVolume site = make_roi(oy, ox, rows, cols, ch);
  SornArray s = big.record();
  if (in_place) {
    const Image start = region_of(big, oy, ox, rows, cols);
    const Image ref = script(s, &site, &start);
    const std::vector<uint8_t> before = big.bytes_copy();
    ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &s, nullptr, &site, nullptr, kind, v.shapes,
                                     v.weights, v.count));
    expect_region(ref, big, oy, ox);
    expect_untouched_outside(before, big, oy, ox, rows, cols);
  } else {
    Image dst(rows + dy + 2, cols + dx + 3, ch, big.type(), pad, 0xC3);
    const Image start = region_of(dst, dy, dx, rows, cols);
    const Image ref = script(s, &site, &start);
    const std::vector<uint8_t> before = dst.bytes_copy();
    SornArray d = dst.record();
    const SornVolume droi = make_roi(dy, dx, rows, cols, ch);
    ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, &droi, &site, kind, v.shapes,
                                     v.weights, v.count));
    expect_region(ref, dst, dy, dx);
    expect_untouched_outside(before, dst, dy, dx, rows, cols);
  }
  EXPECT_TRUE(env.at_mark());
}

// ---------------------------------------------------------------- the scripts, from public entries

// Kind 5: three Gaussians of the source (each window's own sigma) into
// three images, then dst * w0 / sum, + t1 * w1 / sum, + t2 * w2 / sum by
// the constant forms, with the sum over all count weights. A blur of three
// or four channels writes the first elements of each row alone: the rest
// of dst is what it held (`start`, or 0), and that of t1 and t2 is 0.
Image gauss_script(Env &env, const SornArray &src, const SornVolume *srcSite, int32_t rows,
                   int32_t cols, const Views &v, const Image *start = nullptr) {
  const int32_t ch = SORN_CHANNELS(src.dims[3]);
  Image d = start ? region_of(*start, 0, 0, rows, cols) : Image(rows, cols, ch, src.elemtype);
  Image t1(rows, cols, ch, src.elemtype), t2(rows, cols, ch, src.elemtype);
  SornArray r[3] = {d.record(), t1.record(), t2.record()};
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &r[i], &src, nullptr, srcSite, &v.shapes[i],
                                          nullptr));
  double sum = 0;
  for (int32_t i = 0; i < v.count; ++i) sum += v.weights[i];
  double c[16];
  per_channel(c, v.weights[0] / sum);
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &r[0], &r[0], c, nullptr, nullptr, 0, 0));
  for (int i = 1; i < 3; ++i) {
    per_channel(c, v.weights[i] / sum);
    EXPECT_EQ(SORN_OK,
              SornMulAddC(env.xe(), 0, &r[0], &r[0], &r[i], c, nullptr, nullptr, nullptr, 0, 0));
  }
  return d;
}

// The expansion of one window: itself, 5 and 15 times its extent around
// the middle, weighted 1, 6, 9.
Views expanded(const SornSeShape &se) {
  Views v;
  v.shapes[0] = se;
  for (int i = 1; i < 3; ++i) {
    const int32_t t = i == 1 ? 5 : 15;
    v.shapes[i] = window(t * se.size[2], t * se.size[1], t * se.size[2] / 2, t * se.size[1] / 2);
    v.shapes[i].size[0] = 1;
  }
  v.weights[0] = 1;
  v.weights[1] = 6;
  v.weights[2] = 9;
  v.count = 3;
  return v;
}

// Kinds 3 and 4, their common half: the source's histogram over the byte
// range; first, the value where the running count from first exceeds the
// target (the quantile of the second window's depth cells times the
// pixels), last; the gain 255 / q (q of 0 as 1); the rank image, each
// pixel's count of box pixels at most its value in the rank window of side
// 2^k, shifted by 8 - 2k, over the range first..last.
struct RankHalf {
  int32_t first = 0, q = 0, last = 0;
  double gain = 0;
  Image rank{1, 1, 1, SORN_U8};
};
RankHalf rank_half(Env &env, const SornArray &src, const SornVolume *srcSite, int32_t rows,
                   int32_t cols, const Views &v) {
  RankHalf r;
  SornHist h;
  const SornHistInit init = {SORN_U8, 256, 0.0, 255.0, 1, rows, cols};
  EXPECT_EQ(SORN_OK, sorn_hist__init(1, &h, &init));
  EXPECT_EQ(SORN_OK, SornHistogram(env.xe(), 0, &src, srcSite, 0, &h));
  const int64_t target = (int64_t)((double)v.shapes[1].anchor[0] / (double)v.shapes[1].size[0] *
                                   (double)(rows * cols));
  while (r.first < 255 && h.counts[r.first] == 0) ++r.first;
  r.last = 255;
  while (r.last > 0 && h.counts[r.last] == 0) --r.last;
  r.q = r.first;
  for (int64_t sum = h.counts[r.q]; sum <= target && r.q < 255;) sum += h.counts[++r.q];
  r.gain = 255.0 / (r.q == 0 ? 1 : r.q);
  sorn_hist_fini(&h);
  const int32_t side = v.shapes[2].size[1];
  int32_t k = 0;
  while ((1 << k) < side) ++k;
  const SornVrng range = {(double)r.first, (double)r.last};
  r.rank = Image(rows, cols, 1, SORN_U8);
  SornArray rk = r.rank.record();
  EXPECT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &rk, &src, nullptr, srcSite, SORN_CMP_LE,
                                     &v.shapes[2], &range, 8 - 2 * k, 0));
  return r;
}

// Kind 3: G = src * gain, T = G * w1 in s16, T += rank * w2, T += src *
// w0, dst = T * (1 / (w0 + w1 + w2)).
Image crb_script(Env &env, const SornArray &src, const SornVolume *srcSite, int32_t rows,
                 int32_t cols, const Views &v, RankHalf *half = nullptr) {
  RankHalf r = rank_half(env, src, srcSite, rows, cols, v);
  Image g(rows, cols, 1, SORN_U8), t(rows, cols, 1, SORN_S16), d(rows, cols, 1, SORN_U8);
  SornArray rg = g.record(), rt = t.record(), rd = d.record(), rk = r.rank.record();
  double c[16];
  per_channel(c, r.gain);
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &rg, &src, c, nullptr, srcSite, 0, 0));
  per_channel(c, v.weights[1]);
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &rt, &rg, c, nullptr, nullptr, 0, 0));
  per_channel(c, v.weights[2]);
  EXPECT_EQ(SORN_OK, SornMulAddC(env.xe(), 0, &rt, &rt, &rk, c, nullptr, nullptr, nullptr, 0, 0));
  per_channel(c, v.weights[0]);
  EXPECT_EQ(SORN_OK, SornMulAddC(env.xe(), 0, &rt, &rt, &src, c, nullptr, nullptr, srcSite, 0, 0));
  per_channel(c, 1.0 / (double)(v.weights[0] + v.weights[1] + v.weights[2]));
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &rd, &rt, c, nullptr, nullptr, 0, 0));
  if (half != nullptr) *half = std::move(r);
  return d;
}

// Kind 4: A = ln(1 + src), B = ln(1 + rank), C = A - B; the gain image
// gain * src; A -= ln(1 + gain image); C = C * w2 + A * w1; dst = C's
// extremes stretched onto 0..255.
Image crbln_script(Env &env, const SornArray &src, const SornVolume *srcSite, int32_t rows,
                   int32_t cols, const Views &v) {
  RankHalf r = rank_half(env, src, srcSite, rows, cols, v);
  Image a(rows, cols, 1, SORN_F32), b(rows, cols, 1, SORN_F32), c(rows, cols, 1, SORN_F32);
  Image g(rows, cols, 1, SORN_U8), d(rows, cols, 1, SORN_U8);
  SornArray ra = a.record(), rb = b.record(), rc = c.record(), rg = g.record(), rd = d.record(),
            rk = r.rank.record();
  double one[16], k[16];
  per_channel(one, 1.0);
  SornVrng bytes[4] = {{0, 255}, {0, 255}, {0, 255}, {0, 255}};
  EXPECT_EQ(SORN_OK, SornConvert(env.xe(), 0, &ra, &src, nullptr, srcSite, nullptr, one, bytes));
  EXPECT_EQ(SORN_OK, SornConvert(env.xe(), 0, &rb, &rk, nullptr, nullptr, nullptr, one, bytes));
  per_channel(k, r.gain);
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &rg, &src, k, nullptr, srcSite, 0, 0));
  EXPECT_EQ(SORN_OK, SornLn(env.xe(), 0, &ra, &ra, nullptr, nullptr, 0, 0));
  EXPECT_EQ(SORN_OK, SornLn(env.xe(), 0, &rb, &rb, nullptr, nullptr, 0, 0));
  EXPECT_EQ(SORN_OK, SornSub(env.xe(), 0, &rc, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
  EXPECT_EQ(SORN_OK, SornConvert(env.xe(), 0, &rb, &rg, nullptr, nullptr, nullptr, one, bytes));
  EXPECT_EQ(SORN_OK, SornLn(env.xe(), 0, &rb, &rb, nullptr, nullptr, 0, 0));
  EXPECT_EQ(SORN_OK, SornSub(env.xe(), 0, &ra, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
  per_channel(k, v.weights[2]);
  EXPECT_EQ(SORN_OK, SornMulC(env.xe(), 0, &rc, &rc, k, nullptr, nullptr, 0, 0));
  per_channel(k, v.weights[1]);
  EXPECT_EQ(SORN_OK, SornMulAddC(env.xe(), 0, &rc, &rc, &ra, k, nullptr, nullptr, nullptr, 0, 0));
  SornVrng to[4] = {{0, 255}, {0, 255}, {0, 255}, {0, 255}};
  EXPECT_EQ(SORN_OK, SornVConvert(env.xe(), 0, &rd, &rc, nullptr, nullptr, to, nullptr));
  return d;
}

Views rank_views(int32_t side, int32_t num, int32_t den, int32_t w0, int32_t w1, int32_t w2) {
  Views v;
  v.shapes[0] = square(3);
  v.shapes[1] = quantile(num, den);
  v.shapes[2] = square(side);
  v.weights[0] = w0;
  v.weights[1] = w1;
  v.weights[2] = w2;
  v.weights[3] = 0;
  v.count = 3;
  return v;
}

// ---------------------------------------------------------------- kind 5

TEST(Firefly, ANullWindowMixesBlursOfFiveTwentyFiveAndSeventyFiveOneSixNine) {
  Env env;
  const uint64_t seed = 0xF1F1;
  SCOPED_TRACE(seed);
  Image src = smooth_u8(40, 52, seed), dst(40, 52, 1, SORN_U8, 0, 0x5A);
  SornArray d = dst.record(), s = src.record();
  ASSERT_EQ(SORN_OK,
            SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, nullptr));
  const Views v = expanded(square(5));
  EXPECT_EQ(25, v.shapes[1].size[1]);
  EXPECT_EQ(12, v.shapes[1].anchor[2]);
  EXPECT_EQ(75, v.shapes[2].size[2]);
  EXPECT_EQ(37, v.shapes[2].anchor[1]);
  expect_region(gauss_script(env, s, nullptr, 40, 52, v), dst);
  EXPECT_TRUE(dst.guards_intact());
  EXPECT_TRUE(env.at_mark());
}

TEST(Firefly, OneWindowIsTheExplicitFormWithItsFiveAndFifteenFoldWindows) {
  Env env;
  Image src = random_image(23, 31, 1, SORN_U8, 0xF1F2);
  for (const SornSeShape se : {square(3), window(7, 7, 0, 6), window(1, 1, 0, 0)}) {
    Image a(23, 31, 1, SORN_U8), b(23, 31, 1, SORN_U8);
    SornArray da = a.record(), db = b.record(), s = src.record();
    ASSERT_EQ(SORN_OK,
              SornFirefly(env.xe(), 0, &da, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se));
    // A 1 by 1 window is the 5 by 5 default before it is expanded.
    SornSeShape norm = se;
    if (se.size[1] == 1) norm = square(5);
    const Views v = expanded(norm);
    ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &db, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                     v.shapes, v.weights, v.count));
    expect_region(b, a);
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(Firefly, KindFiveWithAThreeByFiveWindowFailsTheSquareTest) {
  Env env;
  Image src = random_image(12, 14, 1, SORN_U8, 0xF1F3), dst(12, 14, 1, SORN_U8, 0, 0x77);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(3, 5, 1, 2);
  const std::vector<uint8_t> before = dst.bytes_copy();
  EXPECT_EQ(SORN_ENOTSUP,
            SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se));
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

// By the rules of the constant forms, a fractional constant on an integer
// source with an integer destination is an integer constant: w0 / sum =
// 1/16 rounds to 0, while the accumulations keep 6/16 and 9/16. A constant
// byte image comes back constant, at 15/16 of its value less the
// roundings; a float image keeps its value up to the float roundings.
TEST(Firefly, AConstantImageComesBackConstant) {
  Env env;
  for (uint32_t type : {SORN_U8, SORN_S16, SORN_S32, SORN_F32}) {
    SCOPED_TRACE(sorn_test::type_name(type));
    Image src(30, 33, 1, type), dst(30, 33, 1, type);
    for (int32_t y = 0; y < 30; ++y)
      for (int32_t x = 0; x < 33; ++x) src.set(y, x, 0, 100.0);
    SornArray d = dst.record(), s = src.record();
    ASSERT_EQ(SORN_OK,
              SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, nullptr));
    const double want = type == SORN_F32 ? 100.0 : 94.0;  // round(round(37.5) + 56.25)
    for (int32_t y = 0; y < 30; ++y)
      for (int32_t x = 0; x < 33; ++x)
        ASSERT_NEAR(want, dst.get(y, x), type == SORN_F32 ? 1e-4 : 0.0) << y << "," << x;
    expect_region(gauss_script(env, s, nullptr, 30, 33, expanded(square(5))), dst);
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(Firefly, KindFiveOnThreeChannelBytesWorks) {
  Env env;
  Image src = random_image(17, 19, 3, SORN_U8, 0xF1F4), dst(17, 19, 3, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = square(3);
  const Image start = region_of(dst, 0, 0, 17, 19);
  ASSERT_EQ(SORN_OK, SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se));
  expect_region(gauss_script(env, s, nullptr, 17, 19, expanded(se), &start), dst);
  EXPECT_TRUE(env.at_mark());
}

// Random windows in ascending order (the first square), and with count 4 a
// fourth window that only widens the bordered copy and a fourth weight that
// only enlarges the sum, every type of the Gaussian's table,
// one, three and four channels, a source region inside a larger array
// (whose real pixels are read), a destination region at another origin,
// padded rows, guard bytes, and in place.
TEST(FireflyEx, KindFiveMatchesItsScriptOverTypesChannelsRegionsAndPlaces) {
  const uint64_t seed = 0xF1F5;
  SCOPED_TRACE(seed);
  auto rng = sorn_test::seeded_rng(seed);
  Env env;
  int cases = 0;
  for (uint32_t type : {SORN_U8, SORN_S16, SORN_S32, SORN_F32})
    for (int32_t ch : {1, 3, 4})
      for (int rep = 0; rep < 4; ++rep) {
        SCOPED_TRACE(std::string(sorn_test::type_name(type)) + " ch " + std::to_string(ch) +
                     " rep " + std::to_string(rep));
        const int32_t rows = 5 + (int32_t)(rng() % 20), cols = 5 + (int32_t)(rng() % 24);
        const int32_t es = (int32_t)SORN_ELEMSIZE(type);
        const int32_t pad = (int32_t)(rng() % 3) * es * ch;
        // Windows whose reach grows from one to the next, the first square.
        Views v;
        const int32_t s0 = 3 + 2 * (int32_t)(rng() % 3);
        int32_t before[2] = {(int32_t)(rng() % s0), (int32_t)(rng() % s0)};
        int32_t after[2] = {s0 - 1 - before[0], s0 - 1 - before[1]};
        for (int i = 0; i < 4; ++i) {
          if (i > 0)
            for (int a = 0; a < 2; ++a) {
              before[a] += (int32_t)(rng() % 5);
              after[a] += (int32_t)(rng() % 5);
            }
          v.shapes[i] =
              window(before[1] + after[1] + 1, before[0] + after[0] + 1, before[1], before[0]);
        }
        for (int i = 0; i < 4; ++i) v.weights[i] = (int32_t)(rng() % 9) - 1;
        v.count = 3 + (int32_t)(rng() % 2);
        if (v.weights[0] + v.weights[1] + v.weights[2] + (v.count > 3 ? v.weights[3] : 0) == 0)
          v.weights[0] += 2;
        // The source: a region at (oy, ox) inside a larger padded array.
        const int32_t oy = (int32_t)(rng() % 6), ox = (int32_t)(rng() % 6);
        const int32_t dy = (int32_t)(rng() % 4), dx = (int32_t)(rng() % 4);
        Image big = random_image(rows + oy + 4, cols + ox + 5, ch, type, rng(), pad);
        expect_script(env, big, oy, ox, rows, cols, rep == 3, dy, dx, pad, SORN_FIREFLY_GAUSS, v,
                      [&](const SornArray &src, const SornVolume *site, const Image *start) {
                        return gauss_script(env, src, site, rows, cols, v, start);
                      });
        if (HasFatalFailure()) return;
        ++cases;
      }
  EXPECT_EQ(48, cases);
}

TEST(Firefly, FourDimensionsWorkPlaneByPlane) {
  Env env;
  const int32_t planes = 3, rows = 11, cols = 13;
  std::vector<uint8_t> sbuf((size_t)planes * rows * cols), dbuf(sbuf.size(), 0);
  auto rng = sorn_test::seeded_rng(0xF1F6);
  for (uint8_t &b : sbuf) b = (uint8_t)rng();
  SornArray s = make_record4(sbuf.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornArray d = make_record4(dbuf.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  const SornSeShape se = square(3);
  ASSERT_EQ(SORN_OK, SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se));
  for (int32_t p = 0; p < planes; ++p) {
    const SornArray sp =
        make_record(sbuf.data() + (size_t)p * rows * cols, rows, cols, 1, SORN_U8, cols);
    const Image want = gauss_script(env, sp, nullptr, rows, cols, expanded(se));
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x)
        ASSERT_EQ(want.at<uint8_t>(y, x), dbuf[(size_t)p * rows * cols + (size_t)y * cols + x])
            << p << ":" << y << "," << x;
  }
  EXPECT_TRUE(env.at_mark());
}

// ---------------------------------------------------------------- kinds 3 and 4

TEST(FireflyEx, ARankWindowOfSixteenHasAShiftOfZero) {
  Env env;
  const uint64_t seed = 0xF300;
  SCOPED_TRACE(seed);
  Image src = smooth_u8(37, 45, seed), dst(37, 45, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  // Weights 0, 0, 1: the mix is the rank image itself.
  const Views v = rank_views(16, 1, 4, 0, 0, 1);
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_CRB,
                                   v.shapes, v.weights, 3));
  RankHalf half;
  const Image want = crb_script(env, s, nullptr, 37, 45, v, &half);
  expect_region(want, dst);
  // k is 4, and the count of a 16 by 16 box (up to 256) is stored as it
  // stands, saturated to 255.
  Image rank(37, 45, 1, SORN_U8);
  SornArray rk = rank.record();
  const SornVrng range = {(double)half.first, (double)half.last};
  ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &rk, &s, nullptr, nullptr, SORN_CMP_LE,
                                     &v.shapes[2], &range, 0, 0));
  expect_region(rank, dst);
  EXPECT_TRUE(env.at_mark());
}

TEST(FireflyEx, RankWindowsThatAreNoSquarePowerOfTwoAreNotSupported) {
  Env env;
  Image src = random_image(30, 30, 1, SORN_U8, 0xF301), dst(30, 30, 1, SORN_U8, 0, 0x19);
  SornArray d = dst.record(), s = src.record();
  const std::vector<uint8_t> before = dst.bytes_copy();
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN}) {
    for (int32_t side : {12, 3, 6, 24}) {
      const Views v = rank_views(side, 0, 1, 1, 1, 1);
      EXPECT_EQ(SORN_ENOTSUP,
                SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3))
          << kind << " " << side;
    }
    Views v = rank_views(8, 0, 1, 1, 1, 1);
    v.shapes[2] = window(8, 16, 4, 8);
    EXPECT_EQ(SORN_ENOTSUP,
              SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3));
  }
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(FireflyEx, ABlackImageHasFirstQAndLastZeroAndTheFullGain) {
  Env env;
  Image src(20, 21, 1, SORN_U8), dst(20, 21, 1, SORN_U8, 0, 0x66);
  SornArray d = dst.record(), s = src.record();
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN}) {
    const Views v = rank_views(4, 1, 2, 1, 6, 9);
    ASSERT_EQ(SORN_OK,
              SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3));
    RankHalf half;
    const Image want = kind == SORN_FIREFLY_CRB ? crb_script(env, s, nullptr, 20, 21, v, &half)
                                                : crbln_script(env, s, nullptr, 20, 21, v);
    if (kind == SORN_FIREFLY_CRB) {
      EXPECT_EQ(0, half.first);
      EXPECT_EQ(0, half.q);
      EXPECT_EQ(0, half.last);
      EXPECT_EQ(255.0, half.gain);
    }
    expect_region(want, dst);
  }
  EXPECT_TRUE(env.at_mark());
}

// Half the pixels 0, half 200. A quantile of 0 stops at the first value:
// q 0, gain 255 over 1, so the gain image saturates. A quantile of one half
// has a running count at 0 that does not exceed the target: q is 200, and
// the gain 1.275 is an integer constant of the multiplication, 1.
TEST(FireflyEx, TheQuantileRidesInTheSecondWindowsDepthCells) {
  Env env;
  Image src(10, 10, 1, SORN_U8), dst(10, 10, 1, SORN_U8);
  for (int32_t y = 0; y < 10; ++y)
    for (int32_t x = 0; x < 10; ++x) src.at<uint8_t>(y, x) = x < 5 ? 0 : 200;
  SornArray d = dst.record(), s = src.record();
  for (int32_t num : {0, 1}) {
    const Views v = rank_views(2, num, 2, 0, 1, 0);  // the gain image alone
    ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_CRB,
                                     v.shapes, v.weights, 3));
    for (int32_t y = 0; y < 10; ++y)
      for (int32_t x = 0; x < 10; ++x)
        ASSERT_EQ(x < 5 ? 0 : (num == 0 ? 255 : 200), dst.at<uint8_t>(y, x)) << num;
  }
  EXPECT_TRUE(env.at_mark());
}

// The last constant, 1 / (w0 + w1 + w2), is fractional on an s16 source
// with a byte destination: the multiplication makes it an integer, and
// for a sum of 3 or more that is 0. Weights summing to 1 keep the mix.
TEST(FireflyEx, KindThreeDividesByTheWeightsAsAnIntegerConstant) {
  Env env;
  Image src = smooth_u8(24, 26, 0xF302), dst(24, 26, 1, SORN_U8, 0, 0x11);
  SornArray d = dst.record(), s = src.record();
  const Views v = rank_views(8, 1, 3, 1, 6, 9);
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_CRB,
                                   v.shapes, v.weights, 3));
  for (int32_t y = 0; y < 24; ++y)
    for (int32_t x = 0; x < 26; ++x) ASSERT_EQ(0, dst.at<uint8_t>(y, x));
  // 2 * src - rank: a sum of 1.
  const Views one = rank_views(8, 1, 3, 2, 0, -1);
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_CRB,
                                   one.shapes, one.weights, 3));
  RankHalf half;
  const Image want = crb_script(env, s, nullptr, 24, 26, one, &half);
  for (int32_t y = 0; y < 24; ++y)
    for (int32_t x = 0; x < 26; ++x)
      ASSERT_EQ(std::clamp(2 * src.at<uint8_t>(y, x) - half.rank.at<uint8_t>(y, x), 0, 255),
                dst.at<uint8_t>(y, x));
  expect_region(want, dst);
  EXPECT_TRUE(env.at_mark());
}

// Random smooth and noisy byte images, rank windows of 2 to 32, quantiles,
// weights, and with count 4 a larger last window; regions at non-zero
// origins inside padded arrays, destinations at other origins, in place.
TEST(FireflyEx, KindsThreeAndFourMatchTheirScripts) {
  const uint64_t seed = 0xF303;
  SCOPED_TRACE(seed);
  auto rng = sorn_test::seeded_rng(seed);
  Env env;
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN})
    for (int rep = 0; rep < 12; ++rep) {
      SCOPED_TRACE("kind " + std::to_string(kind) + " rep " + std::to_string(rep));
      const int32_t rows = 6 + (int32_t)(rng() % 30), cols = 6 + (int32_t)(rng() % 40);
      const int32_t side = 2 << (rng() % 5);
      const int32_t den = 1 + (int32_t)(rng() % 10);
      Views v = rank_views(side, (int32_t)(rng() % den), den, (int32_t)(rng() % 5) - 1,
                           (int32_t)(rng() % 5) - 1, (int32_t)(rng() % 5) - 1);
      if (kind == SORN_FIREFLY_CRB) {
        // A sum of 1 keeps the mix (any other sum of 2 or more ends in 0).
        v.weights[2] = 1 - v.weights[0] - v.weights[1];
      }
      v.shapes[2].anchor[1] = (int32_t)(rng() % side);
      v.shapes[2].anchor[2] = (int32_t)(rng() % side);
      if (rep % 3 == 2) {
        v.count = 4;
        v.shapes[3] =
            window(side + 3, side + 2, v.shapes[2].anchor[2] + 1, v.shapes[2].anchor[1] + 1);
      }
      const int32_t pad = (int32_t)(rng() % 5);
      const int32_t oy = (int32_t)(rng() % 5), ox = (int32_t)(rng() % 5);
      const int32_t dy = (int32_t)(rng() % 3), dx = (int32_t)(rng() % 3);
      Image big = rep % 2 ? random_image(rows + oy + 3, cols + ox + 2, 1, SORN_U8, rng(), pad)
                          : smooth_u8(rows + oy + 3, cols + ox + 2, rng());
      expect_script(env, big, oy, ox, rows, cols, rep % 4 == 3, dy, dx, pad, kind, v,
                    [&](const SornArray &src, const SornVolume *site, const Image *) {
                      return kind == SORN_FIREFLY_CRB ? crb_script(env, src, site, rows, cols, v)
                                                      : crbln_script(env, src, site, rows, cols, v);
                    });
      if (HasFatalFailure()) return;
    }
}

TEST(FireflyEx, KindsThreeAndFourOnFourDimensionsWorkPlaneByPlane) {
  Env env;
  const int32_t planes = 2, rows = 13, cols = 17;
  std::vector<uint8_t> sbuf((size_t)planes * rows * cols), dbuf(sbuf.size(), 0);
  auto rng = sorn_test::seeded_rng(0xF304);
  for (uint8_t &b : sbuf) b = (uint8_t)(rng() % 200);
  SornArray s = make_record4(sbuf.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornArray d = make_record4(dbuf.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN}) {
    const Views v = rank_views(4, 1, 5, 1, 1, -1);
    ASSERT_EQ(SORN_OK,
              SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3));
    for (int32_t p = 0; p < planes; ++p) {
      const SornArray sp =
          make_record(sbuf.data() + (size_t)p * rows * cols, rows, cols, 1, SORN_U8, cols);
      const Image want = kind == SORN_FIREFLY_CRB ? crb_script(env, sp, nullptr, rows, cols, v)
                                                  : crbln_script(env, sp, nullptr, rows, cols, v);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          ASSERT_EQ(want.at<uint8_t>(y, x), dbuf[(size_t)p * rows * cols + (size_t)y * cols + x])
              << kind << " " << p << ":" << y << "," << x;
    }
  }
  EXPECT_TRUE(env.at_mark());
}

// The rank image exists for one-channel bytes alone: three channels stop
// at the histogram, other types at the relative box count or the
// histogram. Types beyond 16 bits would need 2^31 counters, more scratch
// than any filter takes: out of memory, before anything is counted.
TEST(FireflyEx, KindsThreeAndFourAreForOneChannelBytes) {
  Env env;
  struct Case {
    uint32_t type;
    int32_t ch;
    SornStatus want;
  } cases[] = {{SORN_U8, 3, SORN_ENOTSUP}, {SORN_U8, 4, SORN_ENOTSUP},  {SORN_U8, 2, SORN_EINVAL},
               {SORN_S8, 1, SORN_ENOTSUP}, {SORN_S16, 1, SORN_ENOTSUP}, {SORN_U16, 1, SORN_ENOTSUP},
               {SORN_S32, 1, SORN_ENOMEM}, {SORN_F32, 1, SORN_ENOMEM}};
  for (const Case &c : cases)
    for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN}) {
      SCOPED_TRACE(std::string(sorn_test::type_name(c.type)) + " ch " + std::to_string(c.ch));
      Image src = random_image(16, 16, c.ch, c.type, 0xF305), dst(16, 16, c.ch, c.type, 0, 0x3C);
      const std::vector<uint8_t> before = dst.bytes_copy();
      SornArray d = dst.record(), s = src.record();
      const Views v = rank_views(4, 0, 1, 1, 1, -1);
      EXPECT_EQ(c.want,
                SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3));
      EXPECT_EQ(before, dst.bytes_copy());
      EXPECT_TRUE(env.at_mark());
    }
}

TEST(FireflyEx, KindsThreeAndFourGiveTheScratchBackOnEveryAllocationFailure) {
  Image src = smooth_u8(20, 30, 0xF306);
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN}) {
    Image dst(20, 30, 1, SORN_U8);
    SornArray d = dst.record(), s = src.record();
    const Views v = rank_views(8, 1, 2, 1, 1, -1);
    Image want(20, 30, 1, SORN_U8);
    {
      Env env;
      SornArray w = want.record();
      ASSERT_EQ(SORN_OK,
                SornFireflyEx(env.xe(), 0, &w, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3));
    }
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      Env env;
      sorn_test::AllocFailure fail(k, false, sorn_test::kStackBlock);
      const SornStatus st =
          SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3);
      if (fail.fired()) {
        // The box count's 8-bit kernel gives way to the general one when
        // its block cannot be had: that failure costs nothing.
        if (st == SORN_OK)
          expect_region(want, dst);
        else
          EXPECT_EQ(SORN_ENOMEM, st) << k;
        EXPECT_TRUE(env.at_mark()) << k;
      } else {
        EXPECT_EQ(SORN_OK, st) << k;
      }
      return fail.fired();
    });
    // The windows' copy, the bordered copy, the script's block, the
    // histogram's counters and banks, the box count's.
    EXPECT_GE(runs, 5) << kind;
  }
}

// ---------------------------------------------------------------- kind 0 and the kinds table

TEST(Firefly, KindZeroIsACopyWithNoWindowCheckBeyondNormalisation) {
  Env env;
  Image src = random_image(9, 11, 3, SORN_U8, 0xF1F7), dst(9, 11, 3, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape odd = window(3, 5, 1, 2);  // not square, no power of two
  ASSERT_EQ(SORN_OK, SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_COPY, &odd));
  expect_region(src, dst);
  // Kind 256 is read as one byte: a copy too.
  Image dst2(9, 11, 3, SORN_U8);
  SornArray d2 = dst2.record();
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d2, &s, nullptr, nullptr, 256, &odd, nullptr, 1));
  expect_region(src, dst2);
  EXPECT_TRUE(env.at_mark());
}

TEST(Firefly, KindsOutsideTheTableAreInvalidAndWriteNothing) {
  Env env;
  Image src = random_image(9, 11, 1, SORN_U8, 0xF1F8), dst(9, 11, 1, SORN_U8, 0, 0x42);
  SornArray d = dst.record(), s = src.record();
  const std::vector<uint8_t> before = dst.bytes_copy();
  for (int32_t kind : {1, 2, 6, 7, 105, 255, 258}) {
    EXPECT_EQ(SORN_EINVAL, SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, kind, nullptr))
        << kind;
    const Views v = expanded(square(3));
    EXPECT_EQ(SORN_EINVAL,
              SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, kind, v.shapes, v.weights, 3))
        << kind;
  }
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

// 15 times a side is never a power of two: the one-window form reaches
// kinds 3 and 4 only to refuse them at the rank window, before the script
// takes any scratch.
TEST(Firefly, KindsThreeAndFourThroughOneWindowAreNeverSupported) {
  Env env;
  Image src = random_image(20, 20, 1, SORN_U8, 0xF1F9), dst(20, 20, 1, SORN_U8, 0, 0x42);
  SornArray d = dst.record(), s = src.record();
  const std::vector<uint8_t> before = dst.bytes_copy();
  for (int32_t kind : {SORN_FIREFLY_CRB, SORN_FIREFLY_CRBLN})
    for (const SornSeShape se : {square(1), square(2), square(4), square(16), window(2, 4, 0, 0)}) {
      EXPECT_EQ(SORN_ENOTSUP, SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, kind, &se));
      EXPECT_EQ(SORN_ENOTSUP, SornFirefly(env.xe(), 0, &d, nullptr, nullptr, nullptr, kind, &se));
    }
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

// ---------------------------------------------------------------- the explicit form's windows

TEST(FireflyEx, ANullListIsOneFiveByFiveWindow) {
  Env env;
  Image src = random_image(10, 12, 1, SORN_U8, 0xF1FA), dst(10, 12, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  // A copy needs no more than one window.
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_COPY,
                                   nullptr, nullptr, 7));
  expect_region(src, dst);
  // A script expects three: with one it is invalid.
  const int32_t w[3] = {1, 6, 9};
  EXPECT_EQ(SORN_EINVAL, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                       nullptr, w, 3));
  EXPECT_TRUE(env.at_mark());
}

TEST(FireflyEx, ACountBelowOneHasNoWindowAndCopies) {
  Env env;
  Image src = random_image(10, 12, 1, SORN_U8, 0xF1FB), dst(10, 12, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = square(3);
  for (int32_t count : {0, -5}) {
    ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_COPY, &se,
                                     nullptr, count));
    expect_region(src, dst);
    const int32_t w[3] = {1, 6, 9};
    EXPECT_EQ(SORN_EINVAL, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                         &se, w, count));
  }
  EXPECT_TRUE(env.at_mark());
}

// Each window is normalised against the source's region: a relative size,
// an empty window, an anchor out of range.
TEST(FireflyEx, WindowsAreNormalisedAgainstTheSourceRegion) {
  Env env;
  Image src = random_image(20, 24, 1, SORN_U8, 0xF1FC), a(20, 24, 1, SORN_U8),
        b(20, 24, 1, SORN_U8);
  SornArray da = a.record(), db = b.record(), s = src.record();
  Views given;
  given.shapes[0] = window(0, 0, 0, 0);        // the 5 by 5 default
  given.shapes[1] = window(-17, -13, -1, 99);  // 7 by 7, anchors 6
  given.shapes[2] = window(-11, -9, 6, 6);     // 13 by 11
  given.weights[0] = 2;
  given.weights[1] = 3;
  given.weights[2] = 5;
  Views norm = given;
  norm.shapes[0] = square(5);
  norm.shapes[1] = window(7, 7, 6, 6);
  norm.shapes[2] = window(13, 11, 6, 6);
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &da, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                   given.shapes, given.weights, 3));
  ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &db, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                   norm.shapes, norm.weights, 3));
  expect_region(b, a);
  // The caller's windows are read, not changed.
  EXPECT_EQ(-17, given.shapes[1].size[2]);
  EXPECT_EQ(99, given.shapes[1].anchor[1]);
  EXPECT_TRUE(env.at_mark());
}

// The bordered copy is made for the last window alone, so a window that a
// kind reads beyond it cannot be served.
TEST(FireflyEx, AWindowReachingBeyondTheLastIsInvalid) {
  Env env;
  Image src = random_image(12, 12, 1, SORN_U8, 0xF1FD), dst(12, 12, 1, SORN_U8, 0, 0x31);
  SornArray d = dst.record(), s = src.record();
  const std::vector<uint8_t> before = dst.bytes_copy();
  Views v = expanded(square(3));
  std::swap(v.shapes[0], v.shapes[2]);
  EXPECT_EQ(SORN_EINVAL, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                       v.shapes, v.weights, 3));
  // An anchor that reaches further back than the last window's.
  v = expanded(square(3));
  v.shapes[1] = window(15, 15, 14, 14);
  v.shapes[2] = window(17, 17, 8, 8);
  EXPECT_EQ(SORN_EINVAL, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS,
                                       v.shapes, v.weights, 3));
  // Kind 0 reads no window but the last.
  EXPECT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_COPY,
                                   v.shapes, v.weights, 3));
  expect_region(src, dst);
  EXPECT_TRUE(env.at_mark());
  (void)before;
}

// ---------------------------------------------------------------- failures

TEST(Firefly, FailuresComeInTheFrameOrderAndWriteNothing) {
  Env env;
  Image src = random_image(8, 9, 1, SORN_U8, 0xF1FE), dst(8, 9, 1, SORN_U8, 0, 0x24);
  Image s16(8, 9, 1, SORN_S16), src3(8, 9, 3, SORN_U8);
  const std::vector<uint8_t> before = dst.bytes_copy();
  SornArray d = dst.record(), s = src.record(), w = s16.record(), s3 = src3.record();
  const SornSeShape se = square(3);
  const Views v = expanded(se);
  auto both = [&](SornStatus want, const SornArray *dd, const SornArray *ss, const SornVolume *droi,
                  const SornVolume *sroi, int32_t kind) {
    EXPECT_EQ(want, SornFirefly(env.xe(), 0, dd, ss, droi, sroi, kind, &se));
    EXPECT_EQ(want, SornFireflyEx(env.xe(), 0, dd, ss, droi, sroi, kind, v.shapes, v.weights, 3));
  };
  SornArray bad = d;
  bad.ndims = 2;
  both(SORN_EINVAL, &bad, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS);
  bad = d;
  bad.dims[0] = 0;
  both(SORN_EINVAL, &bad, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS);
  bad = d;
  bad.dims[3] = 5;
  bad.bounds[3] = 5;
  both(SORN_EINVAL, &bad, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS);
  // Channel counts that differ.
  both(SORN_EINVAL, &d, &s3, nullptr, nullptr, SORN_FIREFLY_GAUSS);
  // No common region.
  const SornVolume outside = make_roi(20, 20, 3, 3, 1);
  both(SORN_ENOSPC, &d, &s, nullptr, &outside, SORN_FIREFLY_GAUSS);
  // Types that differ, after the region.
  both(SORN_EINVAL, &d, &w, nullptr, nullptr, SORN_FIREFLY_GAUSS);
  both(SORN_ENOSPC, &d, &w, nullptr, &outside, SORN_FIREFLY_GAUSS);
  // A kind outside the table, and a bad record before it.
  both(SORN_EINVAL, &d, &s, nullptr, nullptr, 9);
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(Firefly, EveryAllocationFailureIsOutOfMemoryAndGivesTheScratchBack) {
  Image src = random_image(14, 15, 1, SORN_U8, 0xF200);
  for (bool ex : {false, true}) {
    Image dst(14, 15, 1, SORN_U8);
    SornArray d = dst.record(), s = src.record();
    const SornSeShape se = square(3);
    const Views v = expanded(se);
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      Env env;
      sorn_test::AllocFailure fail(k, false, sorn_test::kStackBlock);
      const SornStatus st =
          ex ? SornFireflyEx(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, v.shapes,
                             v.weights, 3)
             : SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se);
      if (fail.fired()) {
        EXPECT_EQ(SORN_ENOMEM, st) << k;
        EXPECT_TRUE(env.at_mark()) << k;
      } else {
        EXPECT_EQ(SORN_OK, st) << k;
      }
      return fail.fired();
    });
    // The windows' copy (explicit form), the bordered copy, the block of
    // two images, the three Gaussians' coefficients and passes.
    EXPECT_GE(runs, ex ? 6 : 5);
  }
}

// The first failure of a step ends the script at once and leaves its block
// taken. The frame's release of a bordered copy gives it back with
// everything above it, and so does the explicit form's release of its
// windows' copy; where no bordered copy was needed (a region with its
// margin real inside the array, and a separate destination) the block
// stays until the caller's stack goes back to a mark.
TEST(Firefly, AStepThatFailsLeavesTheScriptsBlockToTheStack) {
  Env env;
  // u16 has no Gaussian: the first blur refuses it after the block is taken.
  Image src(100, 100, 1, SORN_U16), dst(100, 100, 1, SORN_U16);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = square(3);  // 3, 15 and 45: a margin of 22
  EXPECT_EQ(SORN_EINVAL,
            SornFirefly(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FIREFLY_GAUSS, &se));
  EXPECT_TRUE(env.at_mark());
  const SornVolume mid = make_roi(48, 48, 4, 4, 1);
  const Views v = expanded(se);
  EXPECT_EQ(SORN_EINVAL, SornFireflyEx(env.xe(), 0, &d, &s, &mid, &mid, SORN_FIREFLY_GAUSS,
                                       v.shapes, v.weights, 3));
  EXPECT_TRUE(env.at_mark());
  KuMark mark;
  SornXEgetmmsp(env.xe(), &mark);
  EXPECT_EQ(SORN_EINVAL, SornFirefly(env.xe(), 0, &d, &s, &mid, &mid, SORN_FIREFLY_GAUSS, &se));
  EXPECT_FALSE(env.at_mark());
  SornXEsetmmsp(env.xe(), &mark);
  EXPECT_TRUE(env.at_mark());
}

}  // namespace

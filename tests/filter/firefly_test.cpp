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

// The scratch stack of every call, checked to be back at its mark. A block
// held at the bottom keeps the stack from emptying, so that a call whose
// scratch opened a chunk of its own (the bordered copy of a large window)
// comes back to the very level of the mark and not to a spare chunk.
class Env {
 public:
  Env() {
    std::memset(&xe_, 0, sizeof xe_);
    SornXEinit(&xe_, nullptr);
    (void)SornXEalloca(&xe_, 16, 0);
    mark_ = probe();
  }
  ~Env() { SornXEfini(&xe_); }
  Env(const Env &) = delete;
  Env &operator=(const Env &) = delete;
  SornXE *xe() { return &xe_; }
  bool at_mark() { return probe() == mark_; }

 private:
  void *probe() {
    void *p = SornXEalloca(&xe_, 16, 0);
    SornXEfreea(&xe_, p);
    return p;
  }
  SornXE xe_;
  void *mark_;
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
        const bool in_place = rep == 3;
        // The source: a region at (oy, ox) inside a larger padded array.
        const int32_t oy = (int32_t)(rng() % 6), ox = (int32_t)(rng() % 6);
        Image big = random_image(rows + oy + 4, cols + ox + 5, ch, type, rng(), pad);
        const SornVolume site = make_roi(oy, ox, rows, cols, ch);
        SornArray s = big.record();
        const Image start_in_place = region_of(big, oy, ox, rows, cols);
        if (in_place) {
          const Image ref = gauss_script(env, s, &site, rows, cols, v, &start_in_place);
          const std::vector<uint8_t> before = big.bytes_copy();
          ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &s, nullptr, &site, nullptr,
                                           SORN_FIREFLY_GAUSS, v.shapes, v.weights, v.count));
          expect_region(ref, big, oy, ox);
          expect_untouched_outside(before, big, oy, ox, rows, cols);
        } else {
          const int32_t dy = (int32_t)(rng() % 4), dx = (int32_t)(rng() % 4);
          Image dst(rows + dy + 2, cols + dx + 3, ch, type, pad, 0xC3);
          const Image start = region_of(dst, dy, dx, rows, cols);
          const Image ref = gauss_script(env, s, &site, rows, cols, v, &start);
          const std::vector<uint8_t> before = dst.bytes_copy();
          SornArray d = dst.record();
          const SornVolume droi = make_roi(dy, dx, rows, cols, ch);
          ASSERT_EQ(SORN_OK, SornFireflyEx(env.xe(), 0, &d, &s, &droi, &site, SORN_FIREFLY_GAUSS,
                                           v.shapes, v.weights, v.count));
          expect_region(ref, dst, dy, dx);
          expect_untouched_outside(before, dst, dy, dx, rows, cols);
        }
        ASSERT_TRUE(env.at_mark());
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

// SornCountRelBox from the entry to the kernels, against a brute-force box
// scan written here: every operator, boxes from one pixel to larger than
// the image with anchors anywhere, the bins of the speed flags, both
// destinations, shifts both ways with saturation, ranges given and
// measured, the 8-bit counters' wrap, strips, regions inside arrays and
// their parents, padded rows, in place, four dimensions, the failures with
// nothing written, and scratch given back on every way out.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>

#include "../filter/filter_reference.h"
#include "alloc_failure.h"
#include "stats_testutil.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;
using stats_test::Env;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
// Room for the scratch of the larger calls in the stack's first chunk.
constexpr size_t kWarm = size_t{4} << 20;

SornSeShape box_of(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

/* ---------------- the reference ---------------- */

using filter_ref::reflect101;

// A box in the coordinates of the region's first pixel.
struct Box {
  int32_t y, x, h, w;
};

// What the count reads at (y, x) of the region: the region widened by the
// box, cut to the pixels that may be read (`readable`), and beyond that
// reflected about the edges of what is left. `img` is the array the
// region lies in at (oy, ox).
struct Reading {
  const Image *img;
  int32_t oy, ox;
  Box avail;
  int32_t at(int32_t y, int32_t x) const {
    return img->at<uint8_t>(oy + avail.y + reflect101(y - avail.y, avail.h),
                            ox + avail.x + reflect101(x - avail.x, avail.w));
  }
};

Reading reading(const Image &img, int32_t oy, int32_t ox, int32_t rows, int32_t cols,
                const SornSeShape &b, Box readable) {
  const Box need{-b.anchor[1], -b.anchor[2], rows + b.size[1] - 1, cols + b.size[2] - 1};
  const int32_t y0 = std::max(need.y, readable.y), x0 = std::max(need.x, readable.x);
  const int32_t y1 = std::min(need.y + need.h, readable.y + readable.h);
  const int32_t x1 = std::min(need.x + need.w, readable.x + readable.w);
  return Reading{&img, oy, ox, Box{y0, x0, y1 - y0, x1 - x0}};
}

// The range the count settles on: a caller's range, or the start by the
// box's size (NaN for small boxes, +infinity for large ones); a NaN low
// is 0..255, an infinite or inverted one the region's own extremes.
SornVrng settle(const SornVrng *given, const SornSeShape &b, int32_t vmin, int32_t vmax) {
  const bool large =
      (b.size[2] >= 64 || b.size[1] >= 32) && (int64_t)b.size[1] * b.size[2] > 256;
  SornVrng r = given ? *given : SornVrng{large ? kInf : kNaN, 0.0};
  if (std::isnan(r.lo)) return {0.0, 255.0};
  if (std::isinf(r.lo) || r.lo > r.hi) return {(double)vmin, (double)vmax};
  return r;
}

// The bins of a range: floor of lo and ceiling of hi clipped to bytes,
// then both and every value shifted down by q; a value outside counts as
// the nearer end.
struct RefBins {
  int32_t lo, hi, q;
  int32_t of(int32_t v) const { return std::clamp(v >> q, lo, hi); }
};
int32_t clip(double v) { return v >= 255.0 ? 255 : v >= 0.0 ? (int32_t)v : 0; }
RefBins bins(SornFlags flags, const SornVrng &r) {
  int32_t lo = clip(std::floor(r.lo)), hi = std::max(lo, clip(std::ceil(r.hi)));
  const int32_t n = hi - lo + 1;
  int32_t q = 0;
  if ((flags & SORN_F_RANK_FAST) && n > 79) q = 1;
  if (flags & SORN_F_RANK_FAST2) q = n > 79 ? 2 : n >= 40 ? 1 : q;
  return RefBins{lo >> q, hi >> q, q};
}

bool holds(uint32_t op, int32_t p, int32_t x) {
  switch (op & 15u) {
    case SORN_CMP_EQ: return p == x;
    case SORN_CMP_LT: return p < x;
    case SORN_CMP_LE: return p <= x;
    case SORN_CMP_GT: return p > x;
    default: return p >= x;
  }
}

// The count of one pixel, as the counters hold it: boxes of up to 256
// pixels count in 8 bits, larger ones in 16.
uint32_t ref_count(const Reading &s, int32_t y, int32_t x, uint32_t op, const SornSeShape &b,
                   const RefBins &bn) {
  const int32_t c = bn.of(s.at(y, x));
  uint32_t n = 0;
  for (int32_t dy = 0; dy < b.size[1]; ++dy)
    for (int32_t dx = 0; dx < b.size[2]; ++dx)
      n += holds(op, bn.of(s.at(y - b.anchor[1] + dy, x - b.anchor[2] + dx)), c);
  return (int64_t)b.size[1] * b.size[2] <= 256 ? n & 0xffu : n & 0xffffu;
}

int64_t ref_scale(uint32_t n, int32_t shift, uint32_t dtype) {
  const int64_t top = dtype == SORN_U8 ? 255 : 32767;
  int64_t v;
  if (shift < 0)
    v = -shift > 40 ? 0 : ((int64_t)n + ((int64_t)1 << (-shift - 1))) >> -shift;
  else
    v = (int64_t)n << std::min(shift, 40);
  return std::min(v, top);
}

// Everything one call of the reference needs.
struct Case {
  uint32_t op = SORN_CMP_EQ;
  SornSeShape box{};
  SornFlags flags = 0;
  int32_t shift = 0;
  uint32_t dtype = SORN_U8;
  const SornVrng *vrange = nullptr;
};

// The expected destination region of rows x cols at (doy, dox) of `want`,
// from the source region at (oy, ox) of `src`, readable box given.
void expect_counts(const Case &c, const Image &src, int32_t oy, int32_t ox, int32_t rows,
                   int32_t cols, Box readable, const Image &got, int32_t doy, int32_t dox,
                   const std::string &what) {
  int32_t vmin = 255, vmax = 0;
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      vmin = std::min<int32_t>(vmin, src.at<uint8_t>(oy + y, ox + x));
      vmax = std::max<int32_t>(vmax, src.at<uint8_t>(oy + y, ox + x));
    }
  const RefBins bn = bins(c.flags, settle(c.vrange, c.box, vmin, vmax));
  const Reading s = reading(src, oy, ox, rows, cols, c.box, readable);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      const int64_t want = ref_scale(ref_count(s, y, x, c.op, c.box, bn), c.shift, c.dtype);
      const int64_t have = (int64_t)got.get(doy + y, dox + x);
      ASSERT_EQ(want, have) << what << " at " << y << "," << x;
    }
}

// Every byte of `after` outside the region equals `before`.
void expect_outside_unchanged(const Image &img, const std::vector<uint8_t> &before, int32_t oy,
                              int32_t ox, int32_t rows, int32_t cols) {
  const std::vector<uint8_t> after = img.bytes_copy();
  ASSERT_EQ(before.size(), after.size());
  for (size_t i = 0; i < after.size(); ++i) {
    const int32_t y = (int32_t)(i / (size_t)img.rowstride());
    const int32_t x = (int32_t)(i % (size_t)img.rowstride()) / img.esize();
    const bool inside = y >= oy && y < oy + rows && x >= ox && x < ox + cols &&
                        (int32_t)(i % (size_t)img.rowstride()) < img.cols() * img.esize();
    if (!inside) {
      ASSERT_EQ(before[i], after[i]) << "byte " << i << " outside the region";
    }
  }
  ASSERT_TRUE(img.guards_intact());
}

void fill_random(Image &im, std::mt19937_64 &rng, int32_t lo, int32_t hi) {
  std::uniform_int_distribution<int32_t> v(lo, hi);
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) im.at<uint8_t>(y, x) = (uint8_t)v(rng);
}

void fill_flat(Image &im, uint8_t v) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) im.at<uint8_t>(y, x) = v;
}

// One call on whole images and its check against the reference.
void run_whole(Env &env, const Case &c, const Image &src, const std::string &what) {
  Image out(src.rows(), src.cols(), 1, c.dtype, 6, 0x77);
  SornArray d = out.record(), s = src.record();
  ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), c.flags, &d, &s, nullptr, nullptr, c.op, &c.box,
                                     c.vrange, c.shift, 0))
      << what;
  expect_counts(c, src, 0, 0, src.rows(), src.cols(), {0, 0, src.rows(), src.cols()}, out, 0, 0,
                what);
  ASSERT_TRUE(out.guards_intact()) << what;
  ASSERT_TRUE(env.at_mark()) << what;
}

/* ---------------- the worked cases ---------------- */

TEST(CountRelBox, EqualOnAFlatImageCountsTheWholeBox) {
  Env env;
  Image src(6, 7, 1, SORN_U8), out(6, 7, 1, SORN_U8);
  fill_flat(src, 90);
  SornArray d = out.record(), s = src.record();
  const SornSeShape b = box_of(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b, nullptr, 0, 0));
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 7; ++x) EXPECT_EQ(9, out.at<uint8_t>(y, x)) << y << "," << x;
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, LessOnAFlatImageIsZeroAndLessOrEqualTheArea) {
  Env env;
  Image src(5, 9, 1, SORN_U8), out(5, 9, 1, SORN_U8);
  fill_flat(src, 3);
  SornArray d = out.record(), s = src.record();
  const SornSeShape b = box_of(5, 3, 2, 1);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_LT, &b, nullptr, 0, 0));
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 9; ++x) EXPECT_EQ(0, out.at<uint8_t>(y, x));
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_LE, &b, nullptr, 0, 0));
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 9; ++x) EXPECT_EQ(15, out.at<uint8_t>(y, x));
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, ShiftMinusOneRoundsNineToFive) {
  Env env;
  Image src(4, 4, 1, SORN_U8), out(4, 4, 1, SORN_U8);
  fill_flat(src, 200);
  SornArray d = out.record(), s = src.record();
  const SornSeShape b = box_of(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b,
                                     nullptr, -1, 0));
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(5, out.at<uint8_t>(y, x));
}

TEST(CountRelBox, ShiftTwoOfAHundredSaturatesInBytesAndNotInS16) {
  Env env;
  Image src(12, 12, 1, SORN_U8), out(12, 12, 1, SORN_U8), wide(12, 12, 1, SORN_S16);
  fill_flat(src, 17);
  SornArray d = out.record(), w = wide.record(), s = src.record();
  const SornSeShape b = box_of(10, 10, 5, 5);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_GE, &b, nullptr, 2, 0));
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &w, &s, nullptr, nullptr, SORN_CMP_GE, &b, nullptr, 2, 0));
  for (int32_t y = 0; y < 12; ++y)
    for (int32_t x = 0; x < 12; ++x) {
      EXPECT_EQ(255, out.at<uint8_t>(y, x));
      EXPECT_EQ(400, wide.at<int16_t>(y, x));
    }
  // And far enough up, s16 saturates too.
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &w, &s, nullptr, nullptr, SORN_CMP_GE, &b, nullptr, 9, 0));
  EXPECT_EQ(32767, wide.at<int16_t>(3, 3));
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, TwoChannelsAreNotSupportedAndNothingIsWritten) {
  Env env;
  Image src(5, 5, 2, SORN_U8), out(5, 5, 2, SORN_U8, 0, 0x3c);
  const std::vector<uint8_t> before = out.bytes_copy();
  SornArray d = out.record(), s = src.record();
  EXPECT_EQ(SORN_ENOTSUP,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, nullptr, nullptr, 0, 0));
  // Also where the box is large enough that the range would be measured.
  const SornSeShape big = box_of(70, 5, 3, 2);
  EXPECT_EQ(SORN_ENOTSUP,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &big, nullptr, 0, 0));
  EXPECT_EQ(before, out.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, SecondSpeedFlagOnAHundredLevelsBinsFourValuesTogether) {
  Env env;
  Image src(6, 8, 1, SORN_U8), out(6, 8, 1, SORN_U8);
  // Values 4k to 4k + 3 alternate over the image; with the range 0..99 they
  // all fall into bin k.
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x) src.at<uint8_t>(y, x) = (uint8_t)(40 + (y * 8 + x) % 4);
  SornArray d = out.record(), s = src.record();
  const SornVrng r{0.0, 99.0};
  const SornSeShape b = box_of(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), SORN_F_RANK_FAST2, &d, &s, nullptr, nullptr,
                                     SORN_CMP_EQ, &b, &r, 0, 0));
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x) EXPECT_EQ(9, out.at<uint8_t>(y, x));
  // Without the flag they are four values.
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b, &r, 0, 0));
  EXPECT_GT(9, out.at<uint8_t>(2, 2));
  // 44 is the next bin.
  src.at<uint8_t>(2, 2) = 44;
  ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), SORN_F_RANK_FAST2, &d, &s, nullptr, nullptr,
                                     SORN_CMP_EQ, &b, &r, 0, 0));
  EXPECT_EQ(1, out.at<uint8_t>(2, 2));
  EXPECT_EQ(8, out.at<uint8_t>(2, 3));
}

TEST(CountRelBox, TheQuantisationFollowsTheRangeAndTheFlags) {
  // Ranges of 39, 40, 79 and 80 levels under each flag.
  struct Q {
    SornFlags flags;
    double hi;
    int32_t q;
  } qs[] = {{SORN_F_RANK_FAST, 79, 1},  {SORN_F_RANK_FAST, 78, 0},   {SORN_F_RANK_FAST, 79.5, 1},
            {SORN_F_RANK_FAST2, 38, 0}, {SORN_F_RANK_FAST2, 39, 1},  {SORN_F_RANK_FAST2, 78, 1},
            {SORN_F_RANK_FAST2, 79, 2}, {SORN_F_RANK_FAST | SORN_F_RANK_FAST2, 79, 2},
            {0, 255, 0}};
  Env env;
  for (const Q &q : qs) {
    // Two pixels 2^q apart whose bins differ exactly when the shift is
    // below q + 1: 8 and 8 + 2^q - 1 share a bin, 8 and 8 + 2^q do not.
    Image src(1, 3, 1, SORN_U8), out(1, 3, 1, SORN_U8);
    src.at<uint8_t>(0, 0) = 8;
    src.at<uint8_t>(0, 1) = (uint8_t)(8 + (1 << q.q) - 1);
    src.at<uint8_t>(0, 2) = (uint8_t)(8 + (1 << q.q));
    SornArray d = out.record(), s = src.record();
    const SornVrng r{0.0, q.hi};
    const SornSeShape b = box_of(2, 1, 0, 0);
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), q.flags, &d, &s, nullptr, nullptr, SORN_CMP_EQ,
                                       &b, &r, 0, 0));
    EXPECT_EQ(2, out.at<uint8_t>(0, 0)) << q.flags << " " << q.hi;
    EXPECT_EQ(1, out.at<uint8_t>(0, 1)) << q.flags << " " << q.hi;
  }
}

/* ---------------- the counters ---------------- */

TEST(CountRelBox, AFlatSixteenBySixteenBoxCountsTwoHundredFiftySixAsZero) {
  Env env(kWarm);
  Image src(20, 20, 1, SORN_U8), out(20, 20, 1, SORN_S16);
  fill_flat(src, 128);
  SornArray d = out.record(), s = src.record();
  for (SornSeShape b : {box_of(16, 16, 8, 8), box_of(256, 1, 9, 0), box_of(8, 32, 3, 20)}) {
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b,
                                       nullptr, 0, 0));
    for (int32_t y = 0; y < 20; ++y)
      for (int32_t x = 0; x < 20; ++x) ASSERT_EQ(0, out.at<int16_t>(y, x)) << y << "," << x;
  }
  // One pixel more and the wide counters count it.
  const SornSeShape b = box_of(17, 16, 8, 8);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b, nullptr, 0, 0));
  EXPECT_EQ(272, out.at<int16_t>(10, 10));
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, CountsBeyondSixteenBitsWrap) {
  Env env(kWarm);
  Image src(3, 4, 1, SORN_U8), out(3, 4, 1, SORN_S16);
  fill_flat(src, 1);
  SornArray d = out.record(), s = src.record();
  const SornSeShape b = box_of(257, 256, 128, 128);  // 65792 = 65536 + 256
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_LE, &b, nullptr, 0, 0));
  EXPECT_EQ(256, out.at<int16_t>(1, 1));
  EXPECT_TRUE(env.at_mark());
}

// The scratch block of the wide counters: histogram rows of (r * 2 + 63) &
// ~63 bytes, box width + min(width, 384) + 1 of them, 64 bytes, and the
// box height unless the operator is equal.
TEST(CountRelBox, TheWideCountersTakeTheirScratchByTheRule) {
  Env env;
  struct S {
    int32_t cols;
    uint32_t op;
    double lo, hi;
    SornFlags flags;
  } cases[] = {{50, SORN_CMP_EQ, 0, 255, 0},         {50, SORN_CMP_LT, 0, 255, 0},
               {500, SORN_CMP_GE, 10, 40, 0},        {383, SORN_CMP_LE, 0, 31, 0},
               {384, SORN_CMP_GT, 0, 255, SORN_F_RANK_FAST2}};
  for (const S &c : cases) {
    Image src(4, c.cols, 1, SORN_U8), out(4, c.cols, 1, SORN_U8);
    SornArray d = out.record(), s = src.record();
    const SornVrng r{c.lo, c.hi};
    const SornSeShape b = box_of(20, 15, 10, 7);
    size_t taken;
    {
      sorn_test::AllocFailure watch(-1);
      ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), c.flags, &d, &s, nullptr, nullptr, c.op, &b, &r,
                                         0, 0));
      taken = watch.last_block_size();
    }
    int32_t levels = (int32_t)(c.hi - c.lo) + 1;
    if (c.flags & SORN_F_RANK_FAST2) levels = (255 >> 2) - (0 >> 2) + 1;
    const size_t rb = ((size_t)levels * 2 + 63) & ~(size_t)63;
    const size_t want =
        (20 + (size_t)std::min(c.cols, 384) + 1) * rb + 64 + (c.op == SORN_CMP_EQ ? 0 : 15);
    EXPECT_EQ(want, taken) << c.cols << " " << c.op;
  }
}

/* ---------------- against the brute-force scan ---------------- */

TEST(CountRelBox, EveryOperatorAndBoxAgreesWithTheScan) {
  const uint64_t seed = 0x52414e4b;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env(kWarm);
  const int32_t sizes[][2] = {{1, 1}, {1, 7}, {6, 1}, {9, 13}, {17, 30}};
  for (const auto &sz : sizes) {
    Image src(sz[0], sz[1], 1, SORN_U8);
    fill_random(src, rng, 0, 255);
    for (uint32_t op = SORN_CMP_EQ; op <= SORN_CMP_GE; ++op)
      for (const std::pair<int32_t, int32_t> &bs : std::array<std::pair<int32_t, int32_t>, 7>{
               {{3, 3}, {1, 5}, {4, 1}, {7, 2}, {2, 9}, {11, 8}, {40, 33}}}) {
        std::uniform_int_distribution<int32_t> ax(0, bs.first - 1), ay(0, bs.second - 1);
        Case c;
        c.op = op;
        c.box = box_of(bs.first, bs.second, ax(rng), ay(rng));
        run_whole(env, c, src,
                  "op " + std::to_string(op) + " box " + std::to_string(bs.first) + "x" +
                      std::to_string(bs.second) + " image " + std::to_string(sz[0]) + "x" +
                      std::to_string(sz[1]));
      }
  }
}

TEST(CountRelBox, RandomCallsAgreeWithTheScan) {
  const uint64_t seed = 20261124;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env(kWarm);
  std::uniform_int_distribution<int32_t> u(0, 1 << 30);
  const SornFlags speed[] = {0, SORN_F_RANK_FAST, SORN_F_RANK_FAST2,
                             SORN_F_RANK_FAST | SORN_F_RANK_FAST2};
  for (int32_t it = 0; it < 400; ++it) {
    const int32_t rows = 1 + u(rng) % 14, cols = 1 + u(rng) % 40;
    const int32_t pr = rows + u(rng) % 4, pc = cols + u(rng) % 5;
    Image src(pr, pc, 1, SORN_U8, u(rng) % 9);
    // Narrow and wide spreads of values, so that ranges of every size come.
    const int32_t lo = u(rng) % 200, spread = std::array<int32_t, 4>{3, 45, 90, 255}[u(rng) % 4];
    fill_random(src, rng, lo, std::min(255, lo + spread));
    const int32_t oy = u(rng) % (pr - rows + 1), ox = u(rng) % (pc - cols + 1);
    Case c;
    c.op = SORN_CMP_EQ + (uint32_t)(u(rng) % 5);
    const int32_t bw = 1 + u(rng) % (cols + 6), bh = 1 + u(rng) % (rows + 6);
    c.box = box_of(bw, bh, u(rng) % bw, u(rng) % bh);
    if (bw == 1 && bh == 1) c.box = box_of(5, 5, 2, 2);  // what a 1 by 1 box becomes
    c.flags = speed[u(rng) % 4];
    c.shift = u(rng) % 15 - 7;
    c.dtype = u(rng) % 2 ? SORN_U8 : SORN_S16;
    SornVrng given[] = {{0.0, 255.0}, {kInf, 0.0}, {9.0, 2.0}, {kNaN, 0.0}, {(double)lo - 0.5, 255.5}};
    const int32_t g = u(rng) % 6;
    c.vrange = g < 5 ? &given[g] : nullptr;
    Image out(rows + 2, cols + 3, 1, c.dtype, (u(rng) % 3) * 2, 0x5a);
    const std::vector<uint8_t> before = out.bytes_copy();
    SornArray d = out.record(), s = src.record();
    const SornVolume droi = make_roi(1, 2, rows, cols, 1), sroi = make_roi(oy, ox, rows, cols, 1);
    const std::string what = "iteration " + std::to_string(it);
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), c.flags, &d, &s, &droi, &sroi, c.op, &c.box,
                                       c.vrange, c.shift, 0))
        << what;
    // The source region reads the rest of its array as real pixels.
    expect_counts(c, src, oy, ox, rows, cols, {-oy, -ox, pr, pc}, out, 1, 2, what);
    expect_outside_unchanged(out, before, 1, 2, rows, cols);
    ASSERT_TRUE(env.at_mark()) << what;
  }
}

TEST(CountRelBox, WideImagesGoInStripsAndAgreeWithTheScan) {
  const uint64_t seed = 384256;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env(kWarm);
  for (int32_t cols : {383, 384, 385, 512, 700, 769}) {
    Image src(5, cols, 1, SORN_U8, 3);
    fill_random(src, rng, 0, 255);
    for (uint32_t op : {SORN_CMP_EQ, SORN_CMP_LT, SORN_CMP_GE})
      for (SornSeShape b : {box_of(5, 3, 2, 1), box_of(21, 4, 20, 0), box_of(70, 2, 1, 1)}) {
        Case c;
        c.op = op;
        c.box = b;
        c.dtype = SORN_S16;
        run_whole(env, c, src, "width " + std::to_string(cols) + " op " + std::to_string(op));
      }
  }
}

// A large box starts at +infinity and is measured over the region; a range
// of the caller's replaces that start.
TEST(CountRelBox, LargeBoxesMeasureTheRangeAndSmallOnesTakeTheTypesLimits) {
  Env env(kWarm);
  // 100 levels over the region: measured under FAST2 that is q 2; the
  // type's limits (256 levels) would be q 2 as well, so a range of 60
  // levels tells them apart: q 1 when measured, q 2 from the limits.
  Image src(8, 70, 1, SORN_U8);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 70; ++x) src.at<uint8_t>(y, x) = (uint8_t)(100 + (x * 7 + y) % 60);
  for (SornSeShape b : {box_of(64, 5, 3, 2), box_of(9, 32, 4, 4), box_of(9, 28, 4, 4),
                        box_of(63, 4, 4, 1), box_of(64, 4, 4, 2), box_of(16, 16, 1, 1)}) {
    Case c;
    c.op = SORN_CMP_LT;
    c.box = b;
    c.flags = SORN_F_RANK_FAST2;
    c.dtype = SORN_S16;
    run_whole(env, c, src, "box " + std::to_string(b.size[2]) + "x" + std::to_string(b.size[1]));
  }
}

TEST(CountRelBox, ASubArrayReadsItsParentAndAtItsOwnSiteReflects) {
  const uint64_t seed = 77;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env;
  Image parent(14, 16, 1, SORN_U8);
  fill_random(parent, rng, 0, 255);
  SornArray sub = parent.record();
  sub.dims[1] = 6;
  sub.dims[2] = 7;
  sub.offset = 4 * sub.strides[1] + 5 * sub.strides[2];
  struct R {
    SornFlags flags;
    Box readable;
  } rs[] = {{0, {-4, -5, 14, 16}}, {SORN_F_SITEMARGIN, {0, 0, 6, 7}}, {SORN_F_NOMARGIN, {0, 0, 6, 7}}};
  for (const R &r : rs) {
    Case c;
    c.op = SORN_CMP_LE;
    c.box = box_of(5, 7, 1, 5);
    c.flags = r.flags;
    Image out(6, 7, 1, SORN_U8);
    SornArray d = out.record();
    const SornVrng all{0.0, 255.0};
    c.vrange = &all;
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), c.flags, &d, &sub, nullptr, nullptr, c.op, &c.box,
                                       c.vrange, 0, 0));
    expect_counts(c, parent, 4, 5, 6, 7, r.readable, out, 0, 0, "flags " + std::to_string(r.flags));
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, InPlaceGivesWhatASeparateDestinationGets) {
  const uint64_t seed = 5150;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env;
  for (uint32_t op = SORN_CMP_EQ; op <= SORN_CMP_GE; ++op) {
    Image im(9, 11, 1, SORN_U8, 2), out(9, 11, 1, SORN_U8);
    fill_random(im, rng, 0, 255);
    SornArray d = out.record(), s = im.record();
    const SornSeShape b = box_of(4, 6, 3, 2);
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, op, &b, nullptr, 3, 0));
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &s, nullptr, nullptr, nullptr, op, &b, nullptr, 3, 0));
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 11; ++x) ASSERT_EQ(out.at<uint8_t>(y, x), im.at<uint8_t>(y, x));
    // In place on a region: the rest of the array stays.
    Image again(9, 11, 1, SORN_U8, 2);
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 11; ++x) again.at<uint8_t>(y, x) = (uint8_t)(y * 20 + x);
    const std::vector<uint8_t> before = again.bytes_copy();
    SornArray a = again.record();
    const SornVolume roi = make_roi(2, 3, 4, 5, 1);
    ASSERT_EQ(SORN_OK, SornCountRelBox(env.xe(), 0, &a, nullptr, &roi, nullptr, op, &b, nullptr, 0, 0));
    expect_outside_unchanged(again, before, 2, 3, 4, 5);
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, FourDimensionsCountPlaneByPlane) {
  const uint64_t seed = 4444;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env;
  const int32_t P = 3, R = 5, C = 6;
  std::vector<uint8_t> src((size_t)P * R * C), dst((size_t)P * R * C, 0);
  for (uint8_t &v : src) v = (uint8_t)(rng() & 0x3f);
  SornArray s = make_record4(src.data(), P, R, C, 1, SORN_U8, R * C, C);
  SornArray d = make_record4(dst.data(), P, R, C, 1, SORN_U8, R * C, C);
  const SornSeShape b = box_of(3, 4, 1, 2);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_GT, &b, nullptr, 0, 0));
  for (int32_t p = 0; p < P; ++p) {
    Image plane(R, C, 1, SORN_U8), want(R, C, 1, SORN_U8);
    for (int32_t y = 0; y < R; ++y)
      for (int32_t x = 0; x < C; ++x) {
        plane.at<uint8_t>(y, x) = src[(size_t)p * R * C + y * C + x];
        want.at<uint8_t>(y, x) = dst[(size_t)p * R * C + y * C + x];
      }
    Case c;
    c.op = SORN_CMP_GT;
    c.box = b;
    expect_counts(c, plane, 0, 0, R, C, {0, 0, R, C}, want, 0, 0, "plane " + std::to_string(p));
  }
  // One source plane serves every plane of a 4-dimensional destination.
  SornArray one = make_record(src.data(), R, C, 1, SORN_U8, C);
  std::fill(dst.begin(), dst.end(), 0);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &d, &one, nullptr, nullptr, SORN_CMP_GT, &b, nullptr, 0, 0));
  for (int32_t p = 1; p < P; ++p)
    for (int32_t i = 0; i < R * C; ++i) ASSERT_EQ(dst[i], dst[(size_t)p * R * C + i]);
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, ANullOrOnePixelBoxIsTheFiveByFiveDefault) {
  Env env;
  Image src(9, 9, 1, SORN_U8), a(9, 9, 1, SORN_U8), b(9, 9, 1, SORN_U8);
  for (int32_t y = 0; y < 9; ++y)
    for (int32_t x = 0; x < 9; ++x) src.at<uint8_t>(y, x) = (uint8_t)((x * 13 + y * 29) % 7);
  SornArray s = src.record(), da = a.record(), db = b.record();
  const SornSeShape one = box_of(1, 1, 0, 0);
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &da, &s, nullptr, nullptr, SORN_CMP_LE, nullptr, nullptr, 0, 0));
  ASSERT_EQ(SORN_OK,
            SornCountRelBox(env.xe(), 0, &db, &s, nullptr, nullptr, SORN_CMP_LE, &one, nullptr, 0, 0));
  Case c;
  c.op = SORN_CMP_LE;
  c.box = box_of(5, 5, 2, 2);
  expect_counts(c, src, 0, 0, 9, 9, {0, 0, 9, 9}, a, 0, 0, "null");
  expect_counts(c, src, 0, 0, 9, 9, {0, 0, 9, 9}, b, 0, 0, "1x1");
}

// Through the inner layers a box of one pixel counts itself, and a
// caller's range that leaves values out counts them as its nearer end.
TEST(CountRelBox, TheInnerLayerTakesAnyNormalisedBoxAndClampsOutsideTheRange) {
  Env env;
  Image src(6, 6, 1, SORN_U8), out(6, 6, 1, SORN_U8);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 6; ++x) src.at<uint8_t>(y, x) = (uint8_t)(x * 40 + y);
  int32_t sizes[3] = {6, 6, 1}, ds[3] = {out.rowstride(), 1, 1}, ss[3] = {src.rowstride(), 1, 1};
  const SornSeShape one = box_of(1, 1, 0, 0);
  const SornVrng r{0.0, 255.0};
  ASSERT_EQ(SORN_OK, sorna__countrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes, SORN_U8, out.base(), ds,
                                        SORN_U8, src.base(), ss, SORN_CMP_EQ, &one, &r, 0, 0));
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(1, out.at<uint8_t>(y, x));
  // The range 50..120 folds everything below 50 into the first bin and
  // everything above 120 into the last. One pixel, whose box is row 0:
  // 0 40 | 80 | 120 160 200.
  const SornVrng part{50.0, 120.0};
  const SornSeShape row = box_of(6, 1, 0, 0);
  int32_t corner[3] = {1, 1, 1};
  for (uint32_t op : {SORN_CMP_EQ, SORN_CMP_GT}) {
    ASSERT_EQ(SORN_OK, sorna__countrelbox(env.xe(), 0, SORN_DIMPACK(3), corner, SORN_U8, out.base(),
                                          ds, SORN_U8, src.base(), ss, op, &row, &part, 0, 0));
    EXPECT_EQ(op == SORN_CMP_EQ ? 2 : 4, out.at<uint8_t>(0, 0)) << op;
  }
  EXPECT_TRUE(env.at_mark());
}

// The question whether a kernel can do without a margin: it cannot; the
// edge-handling layer never passes the question on.
TEST(CountRelBox, TheKernelsAnswerTheMarginlessQuestionWithAgain) {
  Env env;
  Image src(4, 4, 1, SORN_U8), out(4, 4, 1, SORN_U8, 0, 0x11);
  int32_t sizes[3] = {4, 4, 1}, ds[3] = {out.rowstride(), 1, 1}, ss[3] = {src.rowstride(), 1, 1};
  const SornSeShape b = box_of(3, 3, 1, 1);
  const SornVrng r{0.0, 255.0};
  EXPECT_EQ(SORN_EAGAIN, sorna__countrelbox_c1_u8u8(env.xe(), SORN_F_NOMARGIN, 3, sizes, out.base(),
                                                    ds, src.base(), ss, SORN_CMP_EQ, &b, &r, 0, 0));
  EXPECT_EQ(SORN_EAGAIN,
            sorna__countrelbox256_c1_s16u8(env.xe(), SORN_F_NOMARGIN, 3, sizes, out.base(), ds,
                                           src.base(), ss, SORN_CMP_EQ, &b, &r, 0, 0));
  EXPECT_EQ(SORN_EAGAIN, sorna__countrelbox(env.xe(), SORN_F_NOMARGIN, SORN_DIMPACK(3), sizes, SORN_U8,
                                            out.base(), ds, SORN_U8, src.base(), ss, SORN_CMP_EQ,
                                            &b, &r, 0, 0));
  SornSites sites;
  std::memset(&sites, 0, sizeof sites);
  EXPECT_EQ(SORN_OK, sorna__ecountrelbox(env.xe(), SORN_F_NOMARGIN, SORN_DIMPACK(3), sizes, SORN_U8,
                                         out.base(), ds, SORN_U8, src.base(), ss, SORN_CMP_EQ, &b,
                                         &r, 0, 0, nullptr, nullptr));
  // The 256 kernels leave larger boxes to the wide ones.
  const SornSeShape big = box_of(17, 16, 1, 1);
  EXPECT_EQ(SORN_ENOTSUP, sorna__countrelbox256_c1_u8u8(env.xe(), 0, 3, sizes, out.base(), ds,
                                                        src.base(), ss, SORN_CMP_EQ, &big, &r, 0, 0));
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, TheLookupHasTwoPairsOfOneChannel) {
  SornStatus st = 1;
  EXPECT_EQ(&sorna__countrelbox_c1_u8u8,
            sorna__countrelboxfun_imp(0, 1, SORN_U8, SORN_U8, &st));
  EXPECT_EQ(SORN_OK, st);
  EXPECT_EQ(&sorna__countrelbox_c1_s16u8,
            sorna__countrelboxfun_imp(0, 1, SORN_S16, SORN_U8, &st));
  EXPECT_EQ(SORN_OK, st);
  for (uint32_t d : {SORN_U8, SORN_S8, SORN_U16, SORN_S16, SORN_S32, SORN_F32, SORN_U64, SORN_F64})
    for (uint32_t s : {SORN_S8, SORN_U16, SORN_S16, SORN_F32}) {
      sorna__countrelboxfun_imp(0, 1, d, s, &st);
      EXPECT_EQ(SORN_ENOTSUP, st) << d << " " << s;
    }
  for (uint32_t d : {SORN_S32, SORN_F32, SORN_U16}) {
    sorna__countrelboxfun_imp(0, 1, d, SORN_U8, &st);
    EXPECT_EQ(SORN_ENOTSUP, st);
  }
  for (uint32_t ch : {2u, 3u, 4u, 11u}) {
    sorna__countrelboxfun_imp(0, ch, SORN_U8, SORN_U8, &st);
    EXPECT_EQ(SORN_ENOTSUP, st) << ch;
  }
  sorna__countrelboxfun_imp(0, 1, 5u, SORN_U8, &st);
  EXPECT_EQ(SORN_EINVAL, st);
  sorna__countrelboxfun_imp(0, 1, SORN_U8, 0u, &st);
  EXPECT_EQ(SORN_EINVAL, st);
  sorna__countrelboxfun_imp(0, 0, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(SORN_EINVAL, st);
  // A refusal is callable and answers its status.
  const SornCountRelBoxKernel k = sorna__countrelboxfun_imp(0, 3, SORN_U8, SORN_U8, nullptr);
  EXPECT_EQ(SORN_ENOTSUP, k(nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
                            nullptr, 0, 0));
}

/* ---------------- failures ---------------- */

TEST(CountRelBox, EveryFailureAnswersItsStatusAndWritesNothing) {
  Env env;
  Image src(6, 6, 1, SORN_U8), out(6, 6, 1, SORN_U8, 0, 0x6b), two(6, 6, 2, SORN_U8),
      wide(6, 6, 1, SORN_S32, 0, 0x6b), s16(6, 6, 1, SORN_S16), u16d(6, 6, 1, SORN_U16, 0, 0x6b);
  fill_flat(src, 4);
  const SornSeShape b = box_of(3, 3, 1, 1);
  auto call = [&](SornArray *d, const SornArray *s, const SornVolume *roi = nullptr,
                  uint32_t op = SORN_CMP_EQ, const SornSeShape *box = nullptr) {
    return SornCountRelBox(env.xe(), 0, d, s, roi, nullptr, op, box ? box : &b, nullptr, 0, 0);
  };
  const std::vector<uint8_t> before = out.bytes_copy();
  SornArray d = out.record(), s = src.record();
  {
    SornArray bad = d;
    bad.ndims = 2;
    EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
    bad = d;
    bad.dims[0] = 0;
    EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
    bad = d;
    bad.dims[3] = 12;  // five channels
    EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
    SornArray bs = s;
    bs.dims[0] = 2;
    EXPECT_EQ(SORN_EINVAL, call(&d, &bs));
    SornArray t = two.record();
    EXPECT_EQ(SORN_EINVAL, call(&d, &t));  // channels differ
    EXPECT_EQ(SORN_EINVAL, call(nullptr, &s));
  }
  for (uint32_t op : {0u, 1u, 2u, 8u, 9u, 15u})
    EXPECT_EQ(SORN_EINVAL, call(&d, &s, nullptr, op)) << op;
  const SornVolume empty = make_roi(0, 0, 0, 3, 1), outside = make_roi(7, 0, 2, 2, 1);
  EXPECT_EQ(SORN_ENOSPC, call(&d, &s, &empty));
  EXPECT_EQ(SORN_ENOSPC, call(&d, &s, &outside));
  SornArray w = wide.record(), u = u16d.record(), h = s16.record();
  EXPECT_EQ(SORN_ENOTSUP, call(&w, &s));
  EXPECT_EQ(SORN_ENOTSUP, call(&u, &s));
  EXPECT_EQ(SORN_ENOTSUP, call(&d, &h));
  SornArray unknown = d;
  unknown.elemtype = 5;
  EXPECT_EQ(SORN_EINVAL, call(&unknown, &s));
  EXPECT_EQ(before, out.bytes_copy());
  EXPECT_EQ(wide.bytes_copy(), Image(6, 6, 1, SORN_S32, 0, 0x6b).bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

// Every request for memory failed in turn: the answer is SORN_ENOMEM with
// nothing written and the stack at its mark, except where the 8-bit
// counters' block is the one refused: the wide counters then count, and a
// flat 16 by 16 box reads its 256.
TEST(CountRelBox, OutOfMemoryAtEveryRequest) {
  Env env(kWarm);
  for (SornSeShape b : {box_of(16, 16, 8, 8), box_of(40, 9, 3, 3)}) {
    Image src(20, 24, 1, SORN_U8);
    fill_flat(src, 9);
    std::vector<SornStatus> seen;
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      Image out(20, 24, 1, SORN_U8, 0, 0x42);
      const std::vector<uint8_t> before = out.bytes_copy();
      SornArray d = out.record(), s = src.record();
      SornStatus st;
      bool fired;
      {
        sorn_test::AllocFailure fail(k);
        st = SornCountRelBox(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_CMP_EQ, &b, nullptr, 0, 0);
        fired = fail.fired();
      }
      EXPECT_TRUE(env.at_mark()) << k;
      if (!fired) {
        EXPECT_EQ(SORN_OK, st);
        return false;
      }
      seen.push_back(st);
      if (st == SORN_ENOMEM) {
        EXPECT_EQ(before, out.bytes_copy()) << k;
      } else {
        EXPECT_EQ(SORN_OK, st) << k;
        EXPECT_EQ(256, b.size[1] * b.size[2]) << k;
        EXPECT_EQ(255, out.at<uint8_t>(10, 10)) << k;
      }
      return true;
    });
    EXPECT_GE(runs, 1);
    EXPECT_NE(std::find(seen.begin(), seen.end(), SORN_ENOMEM), seen.end());
  }
}

// The inner layers as another family calls them: the plain layer 3 on a
// region whose margin the caller has made, and layer 2 with origins, give
// what the entry gives on the whole image inside the margin.
TEST(CountRelBox, TheInnerLayersCountARegionWhoseMarginIsThere) {
  const uint64_t seed = 31337;
  std::printf("seed %llu\n", (unsigned long long)seed);
  std::mt19937_64 rng = sorn_test::seeded_rng(seed);
  Env env(kWarm);
  Image src(30, 40, 1, SORN_U8, 4);
  fill_random(src, rng, 0, 255);
  const SornSeShape b = box_of(16, 16, 8, 8);
  const SornVrng ranges[1] = {{0.0, 255.0}};
  // The region 8 rows and columns in from every edge: its box stays inside.
  const int32_t rows = 30 - 15, cols = 40 - 15;
  for (uint32_t dtype : {SORN_U8, SORN_S16}) {
    Image out(rows, cols, 1, dtype, 2), again(rows, cols, 1, dtype, 2);
    // Four cells each, given from cell 1 on, as the packing word says.
    int32_t sizes[4] = {1, rows, cols, 1};
    const int32_t es = SORN_ELEMSIZE(dtype);
    int32_t ds[4] = {0, out.rowstride(), es, es}, ss[4] = {0, src.rowstride(), 1, 1};
    ASSERT_EQ(SORN_OK, sorna__countrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes + 1, dtype,
                                          out.base(), ds + 1, SORN_U8, &src.at<uint8_t>(8, 8),
                                          ss + 1, SORN_CMP_LE, &b, ranges, 0, 0));
    int32_t dorigin[4] = {0, 0, 0, 0}, sorigin[4] = {0, 8, 8, 0};
    ASSERT_EQ(SORN_OK, sorna_countrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes + 1, dtype,
                                         again.base(), dorigin + 1, ds + 1, SORN_U8, src.base(),
                                         sorigin + 1, ss + 1, SORN_CMP_LE, &b, ranges, 0, 0));
    Case c;
    c.op = SORN_CMP_LE;
    c.box = b;
    c.dtype = dtype;
    c.vrange = ranges;
    expect_counts(c, src, 8, 8, rows, cols, {-8, -8, 30, 40}, out, 0, 0, "layer 3");
    expect_counts(c, src, 8, 8, rows, cols, {-8, -8, 30, 40}, again, 0, 0, "layer 2");
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(CountRelBox, TheInnerLayersRefuseABoxThatIsNotNormalised) {
  Env env;
  Image src(6, 6, 1, SORN_U8), out(4, 4, 1, SORN_U8, 0, 0x19);
  const std::vector<uint8_t> before = out.bytes_copy();
  int32_t sizes[3] = {4, 4, 1}, ds[3] = {out.rowstride(), 1, 1}, ss[3] = {src.rowstride(), 1, 1};
  const SornVrng r{0.0, 255.0};
  const void *at = &src.at<uint8_t>(1, 1);
  const SornSeShape bad[] = {box_of(0, 3, 0, 1), box_of(3, 3, 3, 1), box_of(3, 3, 1, -1),
                             box_of(3, -2, 1, 0)};
  for (const SornSeShape &b : bad) {
    EXPECT_EQ(SORN_EINVAL, sorna__countrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes, SORN_U8,
                                              out.base(), ds, SORN_U8, at, ss, SORN_CMP_EQ, &b, &r,
                                              0, 0));
    EXPECT_EQ(SORN_EINVAL, sorna__ecountrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes, SORN_U8,
                                               out.base(), ds, SORN_U8, at, ss, SORN_CMP_EQ, &b,
                                               &r, 0, 0, nullptr, nullptr));
    EXPECT_EQ(SORN_EINVAL, sorna__countrelbox_c1_u8u8(env.xe(), 0, 3, sizes, out.base(), ds, at,
                                                      ss, SORN_CMP_EQ, &b, &r, 0, 0));
  }
  EXPECT_EQ(SORN_EINVAL, sorna__countrelbox(env.xe(), 0, SORN_DIMPACK(3), sizes, SORN_U8,
                                            out.base(), ds, SORN_U8, at, ss, SORN_CMP_EQ, nullptr,
                                            &r, 0, 0));
  EXPECT_EQ(before, out.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

}  // namespace

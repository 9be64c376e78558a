// SornMinmax and SornMinmaxEx from the entry to the kernels, against a
// brute-force walk written here; the early end of the walk; the value ranges
// of an image; the failures.
#include <sys/mman.h>
#include <unistd.h>

#include <cfloat>
#include <limits>

#include "stats_testutil.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;
using stats_test::Env;

namespace {

constexpr SornFlags kInv = 0x20000;
const float kNaNf = std::numeric_limits<float>::quiet_NaN();

// The 32-bit conversion to nearest: NaN and what doesn't fit give INT32_MIN.
int32_t nearest_i32(float v) {
  const double r = std::nearbyint((double)v);
  return std::isnan(r) || r < -2147483648.0 || r > 2147483647.0 ? INT32_MIN : (int32_t)r;
}

// A record filled with a pattern, so that cells the call must not touch can
// be checked.
SornMinmaxRec blank(uint32_t what) {
  SornMinmaxRec r;
  std::memset(&r, 0x5c, sizeof r);
  r.what = what;
  return r;
}

struct RefEntry {
  double value;
  int32_t row, col;
};
struct Ref {
  RefEntry min[4], max[4];
  int32_t y0 = 0, x0 = 0;
};

// The walk of the rules: from the start (the first element, or the first
// selected pixel), a value replaces an extreme only when strictly better;
// NaN compares with nothing; the walk ends after a row once every channel
// has reached both ends of the type. Positions: the first element, in
// address order, that holds the extreme (selected pixels only).
Ref reference(const Image &img, const SornVolume &roi, const Image *mask, uint8_t skip) {
  const int32_t oy = roi.origin[1], ox = roi.origin[2], ny = roi.size[1], nx = roi.size[2];
  const int32_t C = img.channels();
  auto sel = [&](int32_t y, int32_t x) { return !mask || mask->get(y, x, 0) != skip; };
  Ref r;
  bool found = false;
  for (int32_t y = 0; y < ny && !found; ++y)
    for (int32_t x = 0; x < nx && !found; ++x)
      if (sel(y, x)) {
        r.y0 = y;
        r.x0 = x;
        found = true;
      }
  double lo = 0, hi = 0;
  switch (img.type()) {
    case SORN_U8: lo = 0; hi = 255; break;
    case SORN_S16: lo = -32768; hi = 32767; break;
    case SORN_S32: lo = -2147483648.0; hi = 2147483647.0; break;
    default: lo = -FLT_MAX; hi = FLT_MAX; break;
  }
  double mn[4], mx[4];
  for (int32_t c = 0; c < C; ++c) mn[c] = mx[c] = img.get(oy + r.y0, ox + r.x0, c);
  bool stop = false;
  for (int32_t y = r.y0; y < ny && !stop; ++y) {
    for (int32_t x = y == r.y0 ? r.x0 : 0; x < nx; ++x) {
      if (!sel(y, x)) continue;
      for (int32_t c = 0; c < C; ++c) {
        const double v = img.get(oy + y, ox + x, c);
        if (v < mn[c]) mn[c] = v;
        if (v > mx[c]) mx[c] = v;
      }
    }
    stop = true;
    for (int32_t c = 0; c < C; ++c) stop = stop && mn[c] <= lo && mx[c] >= hi;
  }
  for (int32_t c = 0; c < C; ++c) {
    r.min[c] = {mn[c], r.y0, r.x0};
    r.max[c] = {mx[c], r.y0, r.x0};
    bool fmin = false, fmax = false;
    for (int32_t y = r.y0; y < ny; ++y)
      for (int32_t x = y == r.y0 ? r.x0 : 0; x < nx; ++x) {
        if (!sel(y, x)) continue;
        const double v = img.get(oy + y, ox + x, c);
        if (!fmin && v == mn[c]) {
          r.min[c] = {v, y, x};  // the element itself: -0 and +0 differ
          fmin = true;
        }
        if (!fmax && v == mx[c]) {
          r.max[c] = {v, y, x};
          fmax = true;
        }
      }
  }
  return r;
}

// The record a call must leave, from the reference and the request.
void expect_record(const SornMinmaxRec &got, const SornMinmaxRec &before, const Ref &r,
                   uint32_t type, int32_t C, uint32_t what, const std::string &ctx) {
  if ((what & 7u) == 0) what = 3;
  ASSERT_EQ(got.what, what) << ctx;
  for (int32_t c = 0; c < 4; ++c)
    for (int s = 0; s < 2; ++s) {
      const SornMinmaxEntry &g = s ? got.max[c] : got.min[c];
      const SornMinmaxEntry &b = s ? before.max[c] : before.min[c];
      const std::string at = ctx + (s ? " max" : " min") + " channel " + std::to_string(c);
      EXPECT_EQ(g.unused0, b.unused0) << at;
      EXPECT_EQ(g.unused1, b.unused1) << at;
      if (c >= C) {
        EXPECT_EQ(0, std::memcmp(&g, &b, sizeof g)) << at;
        continue;
      }
      const RefEntry &e = s ? r.max[c] : r.min[c];
      const bool colbit = (what >> s) & 1u;
      if (type == SORN_F32) {
        float want = (float)e.value;
        EXPECT_EQ(0, std::memcmp(&g.fvalue, &want, 4)) << at << " " << g.fvalue << " " << want;
        if (colbit) EXPECT_EQ(g.ivalue, nearest_i32(want)) << at;
        else EXPECT_EQ(g.ivalue, b.ivalue) << at;
      } else {
        EXPECT_EQ(g.ivalue, (int32_t)e.value) << at;
        if (colbit) EXPECT_EQ(g.fvalue, (float)(int32_t)e.value) << at;
        else EXPECT_EQ(0, std::memcmp(&g.fvalue, &b.fvalue, 4)) << at;
      }
      if (what & 4u) {
        EXPECT_EQ(g.row, e.row) << at;
        EXPECT_EQ(g.col, colbit ? e.col : 0) << at;
      } else {
        EXPECT_EQ(g.row, r.y0) << at;
        EXPECT_EQ(g.col, r.x0) << at;
      }
    }
}

double minmax_value(std::mt19937_64 &rng, uint32_t type, int range) {
  // A narrow range makes ties and repeated extremes common.
  if (range > 0 && rng() % 4 != 0) {
    const double v = (double)(int)(rng() % (uint64_t)range) - (type == SORN_U8 ? 0 : range / 2);
    return type == SORN_F32 && rng() % 5 == 0 ? -0.0 * v : v;
  }
  if (type == SORN_F32 && rng() % 16 == 0) return rng() % 2 ? kNaNf : -0.0;
  return sorn_test::random_value(rng, type, true);
}

void fill(Image &img, std::mt19937_64 &rng, int range) {
  for (int32_t y = 0; y < img.rows(); ++y)
    for (int32_t x = 0; x < img.cols(); ++x)
      for (int32_t c = 0; c < img.channels(); ++c) img.set(y, x, c, minmax_value(rng, img.type(), range));
}

const uint32_t kTypes[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};

}  // namespace

/* ---------------- against the reference ---------------- */

TEST(Minmax, EveryTypeChannelCountAndRequestAgainstABruteForceWalk) {
  Env env;
  auto rng = sorn_test::seeded_rng(0x3131);
  for (uint32_t t : kTypes)
    for (int32_t C : {1, 3, 4})
      for (int rep = 0; rep < 40; ++rep) {
        const int32_t rows = 1 + (int32_t)(rng() % 9), cols = 1 + (int32_t)(rng() % 40);
        Image img(rows, cols, C, t, (int32_t)(rng() % 3) * 4);
        fill(img, rng, rep % 3 == 0 ? 0 : 1 + (int)(rng() % 20));
        const uint32_t what = (uint32_t)(rng() % 8) | (rng() % 4 == 0 ? 0x100u : 0u);
        SornVolume roi = make_roi((int32_t)(rng() % rows), (int32_t)(rng() % cols), rows, cols, C);
        roi.size[1] = rows - roi.origin[1];
        roi.size[2] = cols - roi.origin[2];
        SornMinmaxRec rec = blank(what), before = rec;
        SornArray a = img.record();
        ASSERT_EQ(SornMinmax(env.xe(), 0, &a, &roi, &rec), SORN_OK);
        const Ref r = reference(img, roi, nullptr, 0);
        ASSERT_NO_FATAL_FAILURE(expect_record(rec, before, r, t, C, what,
                                              std::string(sorn_test::type_name(t)) + " x" +
                                                  std::to_string(C) + " rep " +
                                                  std::to_string(rep)));
        ASSERT_TRUE(env.at_mark());
      }
}

TEST(Minmax, MaskedAgainstABruteForceWalk) {
  Env env;
  auto rng = sorn_test::seeded_rng(0x3132);
  for (uint32_t t : kTypes)
    for (SornFlags flags : {(SornFlags)0, kInv})
      for (int rep = 0; rep < 60; ++rep) {
        const int32_t rows = 1 + (int32_t)(rng() % 8), cols = 1 + (int32_t)(rng() % 30);
        Image img(rows, cols, 1, t, (int32_t)(rng() % 2) * 4);
        Image mask(rows + 1, cols + 2, 1, SORN_U8);
        fill(img, rng, rep % 2 ? 6 : 0);
        const uint8_t skip = flags ? 255 : 0;
        // Masks that start late, in a later row, or select almost nothing.
        const int32_t first = (int32_t)(rng() % (uint64_t)(rows * cols));
        for (int32_t y = 0; y < mask.rows(); ++y)
          for (int32_t x = 0; x < mask.cols(); ++x) {
            const int32_t i = (y - 1) * cols + (x - 2);
            const bool on = y >= 1 && x >= 2 && i >= first && rng() % 3 != 0;
            mask.set(y, x, 0, on ? (rng() % 2 ? 1 : 0xb0) : skip);
          }
        const int32_t fy = 1 + first / cols, fx = 2 + first % cols;
        mask.set(fy, fx, 0, skip == 0 ? 9 : 0);
        const uint32_t what = (uint32_t)(rng() % 8);
        SornMinmaxRec rec = blank(what), before = rec;
        SornArray a = img.record(), m = mask.record();
        SornVolume site = make_roi(1, 2, 0, 0, 0);
        ASSERT_EQ(SornMinmaxEx(env.xe(), flags, &a, &m, nullptr, &site, &rec), SORN_OK);
        // The reference reads the mask where the image's pixels meet it.
        Image shifted(rows, cols, 1, SORN_U8);
        for (int32_t y = 0; y < rows; ++y)
          for (int32_t x = 0; x < cols; ++x) shifted.set(y, x, 0, mask.get(y + 1, x + 2, 0));
        const Ref r = reference(img, make_roi(0, 0, rows, cols, 1), &shifted, skip);
        ASSERT_NO_FATAL_FAILURE(expect_record(rec, before, r, t, 1, what,
                                              std::string(sorn_test::type_name(t)) + " masked rep " +
                                                  std::to_string(rep)));
      }
}

TEST(Minmax, ChannelMaskOfTheFlagsLimitsTheSecondValueCell) {
  Image img(2, 3, 3, SORN_S16);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 3; ++c) img.set(y, x, c, y * 10 + x - c);
  SornMinmaxRec rec = blank(3), before = rec;
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0x20, &a, nullptr, &rec), SORN_OK);  // channel 1 only
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(rec.min[c].ivalue, -c);  // every channel is searched
    EXPECT_EQ(rec.max[c].ivalue, 12 - c);
    if (c == 1) EXPECT_EQ(rec.max[c].fvalue, 11.0f);
    else EXPECT_EQ(0, std::memcmp(&rec.max[c].fvalue, &before.max[c].fvalue, 4));
  }
}

/* ---------------- edge cases ---------------- */

TEST(Minmax, RequestZeroBecomesBothValuesWithoutPositions) {
  Image img(4, 6, 1, SORN_U8, 0, 100);
  img.set(3, 4, 0, 7);
  img.set(2, 1, 0, 200);
  SornMinmaxRec rec = blank(0);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.what, 3u);
  EXPECT_EQ(rec.min[0].ivalue, 7);
  EXPECT_EQ(rec.max[0].ivalue, 200);
  EXPECT_EQ(rec.min[0].fvalue, 7.0f);
  EXPECT_EQ(rec.min[0].row, 0);
  EXPECT_EQ(rec.min[0].col, 0);
  EXPECT_EQ(rec.max[0].row, 0);
  EXPECT_EQ(rec.max[0].col, 0);
}

TEST(Minmax, FirstRowOfTheMinimumAndItsFirstPixel) {
  Image img(5, 9, 1, SORN_U8, 0, 50);
  img.set(2, 5, 0, 3);
  img.set(2, 7, 0, 3);
  img.set(3, 0, 0, 3);
  img.set(4, 8, 0, 90);
  SornMinmaxRec rec = blank(7);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].ivalue, 3);
  EXPECT_EQ(rec.min[0].row, 2);
  EXPECT_EQ(rec.min[0].col, 5);
  EXPECT_EQ(rec.max[0].row, 4);
  EXPECT_EQ(rec.max[0].col, 8);
  // Positions without the minimum's column bit: its column is 0.
  SornMinmaxRec only_max = blank(6);
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &only_max), SORN_OK);
  EXPECT_EQ(only_max.min[0].row, 2);
  EXPECT_EQ(only_max.min[0].col, 0);
  EXPECT_EQ(only_max.max[0].col, 8);
}

namespace {

// A block of two pages whose second one can't be read: a row laid there
// faults when read.
class FencedRows {
 public:
  FencedRows() {
    page_ = (size_t)sysconf(_SC_PAGESIZE);
    base_ = (uint8_t *)mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base_ != MAP_FAILED) mprotect(base_ + page_, page_, PROT_NONE);
  }
  ~FencedRows() {
    if (base_ != MAP_FAILED) munmap(base_, 2 * page_);
  }
  bool ok() const { return base_ != MAP_FAILED; }
  uint8_t *first_row() { return base_; }
  int32_t row_bytes() const { return (int32_t)page_; }

 private:
  size_t page_;
  uint8_t *base_;
};

}  // namespace

TEST(Minmax, FullContrastFirstRowEndsTheWalk) {
  // The second row lies in memory that can't be read: only a walk that
  // ends after the first row returns.
  FencedRows mem;
  ASSERT_TRUE(mem.ok());
  const int32_t width = 64;
  uint8_t *row = mem.first_row();
  for (int32_t x = 0; x < width; ++x) row[x] = 100;
  row[9] = 255;
  row[33] = 0;
  row[40] = 0;
  SornArray a = make_record(row, 2, width, 1, SORN_U8, mem.row_bytes());
  SornMinmaxRec rec = blank(7);
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].ivalue, 0);
  EXPECT_EQ(rec.max[0].ivalue, 255);
  EXPECT_EQ(rec.min[0].row, 0);
  EXPECT_EQ(rec.min[0].col, 33);
  EXPECT_EQ(rec.max[0].col, 9);
  // f32 ends at the largest finite floats.
  float *f = (float *)mem.first_row();
  for (int32_t x = 0; x < 16; ++x) f[x] = 1.0f;
  f[3] = -FLT_MAX;
  f[7] = FLT_MAX;
  SornArray af = make_record(f, 2, 16, 1, SORN_F32, mem.row_bytes());
  SornMinmaxRec rf = blank(7);
  ASSERT_EQ(SornMinmax(nullptr, 0, &af, nullptr, &rf), SORN_OK);
  EXPECT_EQ(rf.min[0].fvalue, -FLT_MAX);
  EXPECT_EQ(rf.max[0].col, 7);
  // s16 in three channels: every channel has to reach both ends.
  int16_t *s = (int16_t *)mem.first_row();
  for (int32_t i = 0; i < 12; ++i) s[i] = (int16_t)(i % 2 ? 32767 : -32768);
  SornArray as = make_record(s, 2, 4, 3, SORN_S16, mem.row_bytes());
  SornMinmaxRec rs = blank(3);
  ASSERT_EQ(SornMinmax(nullptr, 0, &as, nullptr, &rs), SORN_OK);
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(rs.min[c].ivalue, -32768);
    EXPECT_EQ(rs.max[c].ivalue, 32767);
  }
}

TEST(Minmax, InfinitiesBeyondTheEndsAreNotLookedFor) {
  // The walk ends at the largest finite floats, so an infinity in a later
  // row is not seen: intended, the ends of the type end the search.
  Image img(2, 3, 1, SORN_F32);
  img.at<float>(0, 0) = -FLT_MAX;
  img.at<float>(0, 1) = FLT_MAX;
  img.at<float>(1, 2) = -std::numeric_limits<float>::infinity();
  SornMinmaxRec rec = blank(3);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].fvalue, -FLT_MAX);
  img.at<float>(0, 1) = 5;
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].fvalue, -std::numeric_limits<float>::infinity());
}

TEST(Minmax, NaNFirstElementStaysBothExtremes) {
  Image img(3, 4, 1, SORN_F32);
  img.at<float>(0, 0) = kNaNf;
  img.at<float>(1, 2) = -5;
  img.at<float>(2, 3) = 8;
  SornMinmaxRec rec = blank(7);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_TRUE(std::isnan(rec.min[0].fvalue));
  EXPECT_TRUE(std::isnan(rec.max[0].fvalue));
  EXPECT_EQ(rec.min[0].ivalue, INT32_MIN);
  EXPECT_EQ(rec.min[0].row, 0);
  // Elsewhere a NaN is passed over.
  img.at<float>(0, 0) = 1;
  img.at<float>(1, 0) = kNaNf;
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].fvalue, -5.0f);
  EXPECT_EQ(rec.max[0].fvalue, 8.0f);
  EXPECT_EQ(rec.min[0].row, 1);
  EXPECT_EQ(rec.min[0].col, 2);
}

TEST(Minmax, SignedZerosCompareEqualAndTheFirstStays) {
  Image img(2, 3, 1, SORN_F32);
  img.at<float>(0, 0) = 0.0f;
  img.at<float>(0, 1) = -0.0f;
  img.at<float>(1, 2) = 4;
  SornMinmaxRec rec = blank(7);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_FALSE(std::signbit(rec.min[0].fvalue));
  EXPECT_EQ(rec.min[0].col, 0);
  img.at<float>(0, 0) = 3;
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_TRUE(std::signbit(rec.min[0].fvalue));
  EXPECT_EQ(rec.min[0].col, 1);
}

TEST(Minmax, S32AboveTwoToThe24IsExactAsAnIntegerOnly) {
  Image img(1, 2, 1, SORN_S32);
  img.at<int32_t>(0, 0) = 16777217;
  img.at<int32_t>(0, 1) = -3;
  SornMinmaxRec rec = blank(3);
  SornArray a = img.record();
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.max[0].ivalue, 16777217);
  EXPECT_EQ(rec.max[0].fvalue, 16777216.0f);
}

TEST(Minmax, MaskedExtremeEqualToTheStartKeepsTheStartsPlace) {
  // Every selected pixel holds the start's value: both extremes stay where
  // the mask starts, also with positions asked for.
  Image img(4, 8, 1, SORN_U8, 0, 42), mask(4, 8, 1, SORN_U8);
  mask.set(2, 5, 0, 1);
  mask.set(2, 7, 0, 1);
  mask.set(3, 1, 0, 1);
  SornArray a = img.record(), m = mask.record();
  for (uint32_t what : {3u, 7u}) {
    SornMinmaxRec rec = blank(what);
    ASSERT_EQ(SornMinmaxEx(nullptr, 0, &a, &m, nullptr, nullptr, &rec), SORN_OK);
    EXPECT_EQ(rec.min[0].ivalue, 42);
    EXPECT_EQ(rec.min[0].row, 2) << what;
    EXPECT_EQ(rec.min[0].col, 5) << what;
    EXPECT_EQ(rec.max[0].row, 2) << what;
    EXPECT_EQ(rec.max[0].col, 5) << what;
  }
  // Unselected pixels count as the start: a smaller value under the mask's
  // holes is not seen.
  img.set(0, 0, 0, 1);
  img.set(3, 1, 0, 43);
  SornMinmaxRec rec = blank(7);
  ASSERT_EQ(SornMinmaxEx(nullptr, 0, &a, &m, nullptr, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].ivalue, 42);
  EXPECT_EQ(rec.max[0].ivalue, 43);
  EXPECT_EQ(rec.max[0].row, 3);
  EXPECT_EQ(rec.max[0].col, 1);
}

TEST(Minmax, MaskThatSelectsNothingLeavesTheRecord) {
  Image img(3, 5, 1, SORN_S16), mask(3, 5, 1, SORN_U8);
  SornArray a = img.record(), m = mask.record();
  SornMinmaxRec rec = blank(7), before = rec;
  EXPECT_EQ(SornMinmaxEx(nullptr, 0, &a, &m, nullptr, nullptr, &rec), SORN_ENOSPC);
  EXPECT_EQ(0, std::memcmp(&rec, &before, sizeof rec));
}

TEST(Minmax, FourDimensionalPlanesStackAsRows) {
  const int32_t planes = 3, rows = 2, cols = 4;
  std::vector<int16_t> px(planes * rows * cols, 5);
  px[1 * rows * cols + 1 * cols + 2] = -9;  // plane 1, row 1, pixel 2
  SornArray a = make_record4(px.data(), planes, rows, cols, 1, SORN_S16, rows * cols * 2, cols * 2);
  SornMinmaxRec rec = blank(7);
  ASSERT_EQ(SornMinmax(nullptr, 0, &a, nullptr, &rec), SORN_OK);
  EXPECT_EQ(rec.min[0].ivalue, -9);
  EXPECT_EQ(rec.min[0].row, 3);
  EXPECT_EQ(rec.min[0].col, 2);
}

/* ---------------- value ranges ---------------- */

TEST(MinmaxVrange, ComputeGivesTheFloatExtremesOfEachSelectedChannel) {
  Image img(2, 2, 3, SORN_S32);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x)
      for (int c = 0; c < 3; ++c) img.set(y, x, c, (y * 2 + x) * (c + 1) - 1);
  img.set(1, 1, 2, 16777217);
  SornArray a = img.record();
  const int32_t dims[3] = {2, 2, 3};
  SornVrng v[3] = {{-1, -1}, {-1, -1}, {-1, -1}};
  ASSERT_EQ(sorna__compute_vrange(nullptr, 0, SORN_DIMPACK(3), dims, SORN_S32, a.data,
                                  a.strides + 1, v),
            SORN_OK);
  EXPECT_EQ(v[0].lo, -1);
  EXPECT_EQ(v[0].hi, 2);
  EXPECT_EQ(v[1].hi, 5);
  EXPECT_EQ(v[2].hi, 16777216.0);  // float-rounded
  SornVrng w[3] = {{-1, -1}, {-1, -1}, {-1, -1}};
  ASSERT_EQ(sorna__compute_vrange(nullptr, 0x20, SORN_DIMPACK(3), dims, SORN_S32, a.data,
                                  a.strides + 1, w),
            SORN_OK);
  EXPECT_EQ(w[0].lo, -1);
  EXPECT_EQ(w[0].hi, -1);
  EXPECT_EQ(w[1].hi, 5);
}

TEST(MinmaxVrange, AdjustCompletesWhatTheCallerLeftOpen) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Image img(2, 3, 4, SORN_U8);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 4; ++c) img.set(y, x, c, 10 * c + y + x + 3);
  SornArray a = img.record();
  const int32_t dims[3] = {2, 3, 4};
  SornVrng v[4] = {{nan, 0}, {-3.5, 300.2}, {inf, 0}, {9, 1}};
  ASSERT_EQ(sorna__adjust_vrange(nullptr, 0, SORN_DIMPACK(3), dims, SORN_U8, a.data,
                                 a.strides + 1, v),
            SORN_OK);
  EXPECT_EQ(v[0].lo, 0);
  EXPECT_EQ(v[0].hi, 255);
  EXPECT_EQ(v[1].lo, 0);
  EXPECT_EQ(v[1].hi, 255);
  EXPECT_EQ(v[2].lo, 23);  // measured: an infinite low
  EXPECT_EQ(v[2].hi, 26);
  EXPECT_EQ(v[3].lo, 33);  // measured: low above high
  EXPECT_EQ(v[3].hi, 36);
  // The default span of other types is 0 to 1; masked forms measure too.
  Image f(1, 2, 1, SORN_F32), m(1, 2, 1, SORN_U8);
  f.at<float>(0, 0) = -2;
  f.at<float>(0, 1) = 6;
  m.set(0, 1, 0, 1);
  SornArray af = f.record(), am = m.record();
  const int32_t fd[3] = {1, 2, 1};
  SornVrng g{nan, 0};
  ASSERT_EQ(sorna__adjust_vrange_xm(nullptr, 0, SORN_DIMPACK(3), fd, SORN_F32, af.data,
                                    af.strides + 1, am.data, am.strides + 1, &g),
            SORN_OK);
  EXPECT_EQ(g.hi, 1);
  SornVrng h{-inf, 0};
  ASSERT_EQ(sorna__adjust_vrange_xm(nullptr, 0, SORN_DIMPACK(3), fd, SORN_F32, af.data,
                                    af.strides + 1, am.data, am.strides + 1, &h),
            SORN_OK);
  EXPECT_EQ(h.lo, 6);
  EXPECT_EQ(h.hi, 6);
  SornVrng k{-inf, 0};
  ASSERT_EQ(sorna__compute_vrange_xm(nullptr, 0, SORN_DIMPACK(3), fd, SORN_F32, af.data,
                                     af.strides + 1, nullptr, nullptr, &k),
            SORN_OK);
  EXPECT_EQ(k.lo, -2);
}

/* ---------------- failures ---------------- */

TEST(MinmaxFailures, RecordsRegionsTypesAndMasks) {
  Image u8(3, 4, 1, SORN_U8), s8(3, 4, 1, SORN_S8), u16(3, 4, 1, SORN_U16), u32(3, 4, 1, SORN_U32);
  Image c3(3, 4, 3, SORN_U8), c2(3, 4, 2, SORN_U8), m(3, 4, 1, SORN_U8), m16(3, 4, 1, SORN_S16);
  SornArray a = u8.record(), as8 = s8.record(), au16 = u16.record(), au32 = u32.record();
  SornArray a3 = c3.record(), a2 = c2.record(), am = m.record(), am16 = m16.record();
  SornMinmaxRec rec = blank(7), before = rec;
  auto untouched = [&] { return std::memcmp(&rec, &before, sizeof rec) == 0; };
  SornArray bad = a;
  bad.ndims = 5;
  EXPECT_EQ(SornMinmax(nullptr, 0, &bad, nullptr, &rec), SORN_EINVAL);
  bad = a;
  bad.dims[0] = 0;
  EXPECT_EQ(SornMinmax(nullptr, 0, &bad, nullptr, &rec), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 0;
  EXPECT_EQ(SornMinmax(nullptr, 0, &bad, nullptr, &rec), SORN_EINVAL);
  EXPECT_EQ(SornMinmax(nullptr, 0, &a, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornMinmaxEx(nullptr, 0, &a, &am16, nullptr, nullptr, &rec), SORN_EINVAL);
  EXPECT_EQ(SornMinmaxEx(nullptr, 0, &a, &a3, nullptr, nullptr, &rec), SORN_EINVAL);
  SornVolume empty = make_roi(0, 0, 2, 0, 1), far = make_roi(3, 0, 1, 1, 1);
  EXPECT_EQ(SornMinmax(nullptr, 0, &a, &empty, &rec), SORN_ENOSPC);
  EXPECT_EQ(SornMinmax(nullptr, 0, &a, &far, &rec), SORN_ENOSPC);
  EXPECT_EQ(SornMinmax(nullptr, 0, &as8, nullptr, &rec), SORN_ENOTSUP);
  EXPECT_EQ(SornMinmax(nullptr, 0, &au16, nullptr, &rec), SORN_ENOTSUP);
  EXPECT_EQ(SornMinmax(nullptr, 0, &au32, nullptr, &rec), SORN_ENOTSUP);
  EXPECT_EQ(SornMinmax(nullptr, 0, &a2, nullptr, &rec), SORN_EINVAL);  // no 2-channel kernels
  EXPECT_EQ(SornMinmaxEx(nullptr, 0, &a3, &am, nullptr, nullptr, &rec), SORN_ENOTSUP);
  EXPECT_TRUE(untouched());
  SornArray unknown = a;
  unknown.elemtype = 6;
  EXPECT_EQ(SornMinmax(nullptr, 0, &unknown, nullptr, &rec), SORN_EINVAL);
  EXPECT_TRUE(untouched());
}

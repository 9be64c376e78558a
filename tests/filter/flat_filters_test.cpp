// Box, minimum and maximum filters through SornFilter against brute-force
// window loops: every type of the tables, odd and even windows, anchors at
// the corners, windows larger than the image, regions inside larger sources
// whose real pixels are read and whole images that reflect about their edge
// pixels, a channel picked from a multi-channel image, padded rows, guard
// bytes, in place; and the kernels' own cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "alloc_failure.h"
#include "filter_reference.h"
#include "testkit.h"

using filter_ref::Grid;
using sorn_test::Image;
using sorn_test::make_roi;

namespace {

// The scratch stack of every call, checked to be back at its mark.
using Env = sorn_test::ScratchEnv;

SornSeShape window(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

template <class T> T random_of(std::mt19937_64 &rng, bool big) {
  if constexpr (std::is_same_v<T, float>) {
    std::uniform_real_distribution<float> d(-1000.f, 1000.f);
    if (big && rng() % 16 == 0) return (rng() & 1) ? 3.0e7f : -2.5e7f;
    return rng() % 4 == 0 ? std::round(d(rng)) : d(rng);
  } else {
    const double v = sorn_test::random_value(rng, filter_ref::code_of<T>, true);
    if (!big && sizeof(T) == 4) return (T)((int64_t)v % 100000);
    return (T)v;
  }
}

// Reads channel c of an image as a grid.
template <class T> Grid<T> grid_of(const Image &im, int32_t c = 0) {
  Grid<T> g(im.rows(), im.cols());
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) g.at(y, x) = im.at<T>(y, x, c);
  return g;
}

template <class T> bool same(T a, T b, bool by_value) {
  if constexpr (std::is_same_v<T, float>) {
    if (by_value) return a == b;
    return std::memcmp(&a, &b, sizeof a) == 0;
  }
  return a == b;
}

// One random call against the reference.
template <class T> void random_call(std::mt19937_64 &rng, int32_t kind, int it) {
  Env env;
  const uint32_t type = filter_ref::code_of<T>;
  const int32_t ch = rng() % 5 == 0 ? 3 : 1;
  const int32_t pr = 1 + (int32_t)(rng() % 24), pc = 1 + (int32_t)(rng() % 24);
  const int32_t sy = (int32_t)(rng() % pr), sx = (int32_t)(rng() % pc);
  const int32_t sh = 1 + (int32_t)(rng() % (pr - sy)), sw = 1 + (int32_t)(rng() % (pc - sx));
  Image parent(pr, pc, ch, type, (int32_t)(rng() % 3) * (int32_t)sizeof(T));
  const bool big = kind == SORN_FILTER_BOX && rng() % 3 == 0;
  for (int32_t y = 0; y < pr; ++y)
    for (int32_t x = 0; x < pc; ++x)
      for (int32_t c = 0; c < ch; ++c) parent.at<T>(y, x, c) = random_of<T>(rng, big);
  SornArray src = parent.record();
  src.dims[1] = sh;
  src.dims[2] = sw;
  src.offset = (int64_t)sy * src.strides[1] + (int64_t)sx * src.strides[2];
  const bool in_place = rng() % 6 == 0;
  Image other(1 + (int32_t)(rng() % 26), 1 + (int32_t)(rng() % 26), ch, type,
              (int32_t)(rng() % 2) * (int32_t)sizeof(T));
  for (size_t i = 0; i < other.bytes(); ++i) other.base()[i] = (uint8_t)rng();
  Image &dimg = in_place ? parent : other;
  SornArray dst = in_place ? src : other.record();
  const int32_t drows = in_place ? sh : other.rows(), dcols = in_place ? sw : other.cols();

  // Regions: dst's ROI decides the size, src's offers a start.
  const int32_t ry = (int32_t)(rng() % sh), rx = (int32_t)(rng() % sw);
  SornVolume roi_s = make_roi(ry, rx, 0, 0, ch);
  int32_t dy = (int32_t)(rng() % drows), dx = (int32_t)(rng() % dcols);
  if (in_place) {
    dy = ry;
    dx = rx;
  }
  SornVolume roi_d =
      make_roi(dy, dx, 1 + (int32_t)(rng() % drows), 1 + (int32_t)(rng() % dcols), ch == 3 ? 1 : 1);
  const int32_t rows = std::min({roi_d.size[1], drows - dy, sh - ry});
  const int32_t cols = std::min({roi_d.size[2], dcols - dx, sw - rx});

  // Windows of 1 to 9 by 1 to 9, anchors anywhere in them; a null window.
  const bool null_se = rng() % 12 == 0;
  int32_t w = 1 + (int32_t)(rng() % 9), h = 1 + (int32_t)(rng() % 9);
  if (rng() % 3 == 0) h = 1 + (int32_t)(rng() % 3);
  int32_t ax = (int32_t)(rng() % w), ay = (int32_t)(rng() % h);
  if (rng() % 4 == 0) ax = rng() % 2 ? 0 : w - 1;
  if (rng() % 4 == 0) ay = rng() % 2 ? 0 : h - 1;
  const SornSeShape se = window(w, h, ax, ay);
  if (null_se || (w == 1 && h == 1)) {
    w = h = 5;
    ax = ay = 2;
  }
  static const SornFlags flagsets[] = {0, SORN_F_NOMARGIN, SORN_F_SITEMARGIN};
  const SornFlags flags = flagsets[rng() % 3];

  // What may be read around the region, in its coordinates.
  filter_ref::Box readable;
  if (flags & SORN_F_NOMARGIN)
    readable = {0, 0, rows, cols};
  else if (flags & SORN_F_SITEMARGIN)
    readable = {-ry, -rx, sh, sw};
  else
    readable = {-(sy + ry), -(sx + rx), pr, pc};
  const filter_ref::Box av =
      filter_ref::available({-ay, -ax, rows + h - 1, cols + w - 1}, readable);
  const Grid<T> plane = grid_of<T>(parent);
  const filter_ref::Source<T> s{&plane, sy + ry, sx + rx, av.y, av.x, av.h, av.w};
  Grid<T> want;
  if (kind == SORN_FILTER_BOX)
    want = filter_ref::box(s, rows, cols, w, h, ax, ay);
  else
    want = filter_ref::extreme(s, rows, cols, w, h, ax, ay, kind == SORN_FILTER_MAX);

  const std::vector<uint8_t> before = dimg.bytes_copy();
  const std::vector<uint8_t> src_before = parent.bytes_copy();
  const SornStatus st = SornFilter(env.xe(), flags, &dst, in_place ? nullptr : &src, &roi_d,
                                   in_place ? nullptr : &roi_s, kind, null_se ? nullptr : &se);
  const std::string what =
      std::string(sorn_test::type_name(type)) + " kind " + std::to_string(kind) + " case " +
      std::to_string(it) + " window " + std::to_string(w) + "x" + std::to_string(h) + " anchor " +
      std::to_string(ax) + "," + std::to_string(ay) + " region " + std::to_string(rows) + "x" +
      std::to_string(cols) + " flags " + std::to_string(flags) + (in_place ? " in place" : "") +
      " channels " + std::to_string(ch);
  ASSERT_EQ(SORN_OK, st) << what;
  ASSERT_TRUE(env.at_mark()) << what;
  ASSERT_TRUE(dimg.guards_intact()) << what;
  if (!in_place) {
    ASSERT_EQ(src_before, parent.bytes_copy()) << what;
  }
  const int32_t oy = in_place ? sy + dy : dy, ox = in_place ? sx + dx : dx;
  const int32_t es = (int32_t)sizeof(T);
  for (int32_t y = 0; y < dimg.rows(); ++y)
    for (int32_t x = 0; x < dimg.cols(); ++x)
      for (int32_t c = 0; c < ch; ++c) {
        const size_t off = (size_t)y * dimg.rowstride() + ((size_t)x * ch + c) * es;
        const bool in = c == 0 && y >= oy && y < oy + rows && x >= ox && x < ox + cols;
        if (!in) {
          ASSERT_EQ(0, std::memcmp(before.data() + off, dimg.base() + off, (size_t)es))
              << what << " wrote outside at " << y << "," << x << "," << c;
          continue;
        }
        const T got = dimg.at<T>(y, x, c), exp = want.at(y - oy, x - ox);
        ASSERT_TRUE(same(exp, got, kind != SORN_FILTER_BOX))
            << what << " at " << y - oy << "," << x - ox << ": " << +exp << " != " << +got;
      }
}

template <class T> void random_calls(uint64_t seed, int32_t kind, int count) {
  auto rng = sorn_test::seeded_rng(seed);
  for (int it = 0; it < count; ++it) {
    random_call<T>(rng, kind, it);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

#define FLAT_TYPE_TESTS(t)                                                           \
  TEST(BoxFilter, MatchesTheRunningSumReference_##t) {                               \
    random_calls<filter_ref::tok::t>(0xB0 + SORN_TYPECODE(t), SORN_FILTER_BOX, 700); \
  }                                                                                  \
  TEST(MinFilter, MatchesTheWindowMinimum_##t) {                                     \
    random_calls<filter_ref::tok::t>(0x30 + SORN_TYPECODE(t), SORN_FILTER_MIN, 700); \
  }                                                                                  \
  TEST(MaxFilter, MatchesTheWindowMaximum_##t) {                                     \
    random_calls<filter_ref::tok::t>(0x40 + SORN_TYPECODE(t), SORN_FILTER_MAX, 700); \
  }
SORN_FILTER_TYPES(FLAT_TYPE_TESTS)
#undef FLAT_TYPE_TESTS

// ---------------------------------------------------------------- the box's own cases

template <class T> T box_of(std::vector<T> row, int32_t w, int32_t h = 1) {
  Env env;
  Image src(h, w, 1, filter_ref::code_of<T>), dst(1, 1, 1, filter_ref::code_of<T>);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) src.at<T>(y, x) = row[(size_t)y * w + x];
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(w, h, 0, 0);
  const SornVolume one = make_roi(0, 0, 1, 1, 1);
  EXPECT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, &one, nullptr, SORN_FILTER_BOX, &se));
  return dst.at<T>(0, 0);
}

TEST(BoxFilter, TiesOfTwoCellsGoToEven) {
  EXPECT_EQ(2, box_of<uint8_t>({2, 3}, 2));
  EXPECT_EQ(2, box_of<uint8_t>({1, 2}, 2));
  EXPECT_EQ(2, box_of<uint8_t>({1, 2}, 1, 2));
  EXPECT_EQ(-2, box_of<int16_t>({-1, -2}, 2));
  EXPECT_EQ(6, box_of<int32_t>({4, 7, 6, 7}, 4));     // 24 * 0.25
  EXPECT_EQ(2, box_of<uint8_t>({1, 2, 2, 5}, 2, 2));  // 10 * 0.25 = 2.5
}

TEST(BoxFilter, AConstantImageStaysConstantUnderThreeByThree) {
  Env env;
  for (int v = 0; v < 256; ++v) {
    Image src(7, 9, 1, SORN_U8, 0, (uint8_t)v), dst(7, 9, 1, SORN_U8);
    SornArray d = dst.record(), s = src.record();
    const SornSeShape se = window(3, 3, 1, 1);
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_BOX, &se));
    for (int32_t y = 0; y < 7; ++y)
      for (int32_t x = 0; x < 9; ++x) ASSERT_EQ(v, dst.at<uint8_t>(y, x)) << v;
  }
}

TEST(BoxFilter, SixteenBitSumsStayExact) {
  EXPECT_EQ(-32768, box_of<int16_t>(std::vector<int16_t>(49, -32768), 7, 7));
  EXPECT_EQ(32767, box_of<int16_t>(std::vector<int16_t>(81, 32767), 9, 9));
}

// The mean of a window whose 32-bit sum wrapped, rounded as every mean
// and then clamped to the element's range.
template <class T> T wrapped_mean(int64_t sum, int64_t cells) {
  const float m = (float)(int32_t)(uint32_t)(uint64_t)sum * (1.0f / (float)(int32_t)cells);
  const long r = std::lrint(m);
  return (T)std::clamp<long>(r, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
}

TEST(BoxFilter, MeansOfWrappedSumsAreClampedToTheRange) {
  // 65537 cells of s16 whose sum is 2^31 - 1 past a wrap: f32 makes it 2^31,
  // and its mean, 32767.5, rounds to 32768, which is clamped to 32767.
  std::vector<int16_t> row(65537, -32768);
  row[7] = -1;
  const int64_t sum = -32768LL * 65537 + 32767;
  EXPECT_EQ(32767, wrapped_mean<int16_t>(sum, 65537));
  EXPECT_EQ(32767, box_of<int16_t>(row, 65537));
  // 2903 x 2901 cells of 255: the sum wraps below zero, and the mean of
  // about -255 is clamped to 0.
  const int32_t w = 2903, h = 2901;
  const int64_t cells = (int64_t)w * h;
  EXPECT_EQ(0, wrapped_mean<uint8_t>(255 * cells, cells));
  EXPECT_EQ(0, box_of<uint8_t>(std::vector<uint8_t>((size_t)cells, 255), w, h));
  // Just short of a possible wrap the means need no clamp: 65535 cells of
  // -32768 and of 32767.
  EXPECT_EQ(-32768, box_of<int16_t>(std::vector<int16_t>(65535, -32768), 65535));
  EXPECT_EQ(32767, box_of<int16_t>(std::vector<int16_t>(65535, 32767), 65535));
}

TEST(BoxFilter, ThirtyTwoBitSumsWrapAndLoseTheirLowBitsInF32) {
  // Two cells of 2^31 - 1: the sum wraps to -2, and -2 * 0.5 is -1.
  EXPECT_EQ(-1, box_of<int32_t>({2147483647, 2147483647}, 2));
  // 2^24 + 1 and 2^24 + 2 sum to 2^25 + 3, which f32 holds as 2^25 + 4.
  EXPECT_EQ(16777218, box_of<int32_t>({16777217, 16777218}, 2));
}

TEST(BoxFilter, FloatRunningSumsKeepTheRoundingOfALargeValue) {
  // A large value passes through a row's window: once it has left, the
  // running sum still carries what its adding and removing rounded away.
  Env env;
  const int32_t n = 12;
  Image src(1, n, 1, SORN_F32), dst(1, n, 1, SORN_F32);
  for (int32_t x = 0; x < n; ++x) src.at<float>(0, x) = 0.1f * (float)(x + 1);
  src.at<float>(0, 5) = 1.0e8f;
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(3, 1, 1, 0);
  ASSERT_EQ(SORN_OK,
            SornFilter(env.xe(), SORN_F_NOMARGIN, &d, &s, nullptr, nullptr, SORN_FILTER_BOX, &se));
  const float got = dst.at<float>(0, 9);  // window 8 .. 10, long past the large value
  const float exact = (0.9f + 1.0f + 1.1f) / 3.0f;
  EXPECT_NE(exact, got);
  // The running sum's own value, step by step.
  Grid<float> g(1, n);
  for (int32_t x = 0; x < n; ++x) g.at(0, x) = src.at<float>(0, x);
  const filter_ref::Source<float> rs{&g, 0, 0, 0, 0, 1, n};
  EXPECT_EQ(filter_ref::box(rs, 1, n, 3, 1, 1, 0).at(0, 9), got);
}

// ---------------------------------------------------------------- the extremes' own cases

TEST(MaxFilter, NaNsGoOnFromTheFirstCellAndDropFromTheSecond) {
  Env env;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  Image src(1, 3, 1, SORN_F32), dst(1, 2, 1, SORN_F32);
  src.at<float>(0, 0) = 1.0f;
  src.at<float>(0, 1) = nan;
  src.at<float>(0, 2) = 3.0f;
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(2, 1, 0, 0);
  const SornVolume two = make_roi(0, 0, 1, 2, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, &two, nullptr, SORN_FILTER_MAX, &se));
  EXPECT_EQ(1.0f, dst.at<float>(0, 0));          // max(1, NaN): NaN in b is dropped
  EXPECT_TRUE(std::isnan(dst.at<float>(0, 1)));  // max(NaN, 3): NaN in a goes on
}

// Which kernel a window reaches shows in the scratch blocks it takes: the
// narrow-column kernel one row, the general window its block and one per
// pass that needs one.
int64_t requests_of(int32_t w, int32_t h, int32_t kind) {
  Env env;
  Image src(12, 12, 1, SORN_U8, 0, 7), dst(4, 4, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(w, h, 0, 0);
  // A region with its whole margin inside the source: no bordered copy.
  const SornVolume at = make_roi(2, 2, 0, 0, 1);
  void *warm = SornXEalloca(env.xe(), 16, 0);  // the stack is open already
  SornXEfreea(env.xe(), warm);
  sorn_test::AllocFailure count(1 << 30);
  EXPECT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &at, kind, &se));
  return count.requests();
}

TEST(MinFilter, TwoColumnsOfFiveRowsTakeTheGeneralWindow) {
  EXPECT_EQ(1, requests_of(2, 3, SORN_FILTER_MIN));      // 2xN: its row
  EXPECT_EQ(2, requests_of(2, 5, SORN_FILTER_MIN));      // NxM: its block, the column pass's rows
  EXPECT_EQ(1, requests_of(3, 2, SORN_FILTER_MIN));      // 3xN for two rows too
  EXPECT_EQ(1, requests_of(4, 2, SORN_FILTER_MAX));      // NxM: its block; both passes fold
  EXPECT_EQ(0, requests_of(2, 2, SORN_FILTER_MAX));      // 2x2 folds
  EXPECT_EQ(1, requests_of(5, 1, SORN_FILTER_MAX));      // Nx1
  EXPECT_EQ(1, requests_of(1, 5, SORN_FILTER_MAX));      // 1xN
  EXPECT_EQ(0, requests_of(3, 3, SORN_FILTER_BOX) - 1);  // box NxM: its column sums
  EXPECT_EQ(0, requests_of(5, 1, SORN_FILTER_BOX));      // box Nx1 takes none
}

// The two-pass order with NaNs: the row pass first when w - 1 >= 2h. Each
// pass is the block algorithm of its axis, in which a NaN cuts the backward
// extremes short; so the values next to NaNs show which pass came first.
std::vector<float> line_max(const std::vector<float> &a, int32_t w) {
  const int32_t b = w - 1, n = (int32_t)a.size() - b;
  auto ext = [](float x, float y) { return x <= y ? y : x; };
  std::vector<float> out((size_t)n), s((size_t)b);
  for (int32_t o = 0; o < n; o += b) {
    const int32_t e = o + b;
    s[b - 1] = a[e - 1];
    for (int32_t k = b - 2; k >= 0; --k) s[k] = ext(a[e - b + k], s[k + 1]);
    float r = a[e];
    out[o] = ext(s[0], r);
    for (int32_t k = 1; k < b && o + k < n; ++k) {
      r = ext(r, a[e + k]);
      out[o + k] = ext(s[k], r);
    }
  }
  return out;
}

Grid<float> two_pass(const Grid<float> &in, int32_t w, int32_t h, bool rows_first) {
  auto rows = [&](const Grid<float> &g) {
    Grid<float> o(g.rows, g.cols - w + 1);
    for (int32_t y = 0; y < g.rows; ++y) {
      std::vector<float> a(g.v.begin() + (ptrdiff_t)y * g.cols,
                           g.v.begin() + (ptrdiff_t)(y + 1) * g.cols);
      const std::vector<float> r = line_max(a, w);
      for (int32_t x = 0; x < o.cols; ++x) o.at(y, x) = r[x];
    }
    return o;
  };
  auto cols = [&](const Grid<float> &g) {
    Grid<float> o(g.rows - h + 1, g.cols);
    for (int32_t x = 0; x < g.cols; ++x) {
      std::vector<float> a((size_t)g.rows);
      for (int32_t y = 0; y < g.rows; ++y) a[y] = g.at(y, x);
      const std::vector<float> r = line_max(a, h);
      for (int32_t y = 0; y < o.rows; ++y) o.at(y, x) = r[y];
    }
    return o;
  };
  return rows_first ? cols(rows(in)) : rows(cols(in));
}

void check_pass_order(int32_t w, int32_t h, bool rows_first) {
  // NaNs scattered over the image, the whole margin real.
  Env env;
  const int32_t R = 13, C = 19;
  Image src(R + h - 1, C + w - 1, 1, SORN_F32), dst(R, C, 1, SORN_F32);
  auto rng = sorn_test::seeded_rng(0x0DE5 + (uint64_t)w * 16 + h);
  Grid<float> g(R + h - 1, C + w - 1);
  for (int32_t y = 0; y < g.rows; ++y)
    for (int32_t x = 0; x < g.cols; ++x)
      src.at<float>(y, x) = g.at(y, x) =
          rng() % 12 == 0 ? std::numeric_limits<float>::quiet_NaN() : (float)(rng() % 100);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(w, h, 0, 0);
  const SornVolume at = make_roi(0, 0, 0, 0, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &at, SORN_FILTER_MAX, &se));
  const Grid<float> want = two_pass(g, w, h, rows_first), other = two_pass(g, w, h, !rows_first);
  int differ = 0;
  for (int32_t y = 0; y < R; ++y)
    for (int32_t x = 0; x < C; ++x) {
      const float a = want.at(y, x), got = dst.at<float>(y, x);
      ASSERT_TRUE((std::isnan(a) && std::isnan(got)) || a == got) << y << "," << x;
      const float b = other.at(y, x);
      differ += !((std::isnan(a) && std::isnan(b)) || a == b);
    }
  EXPECT_GT(differ, 0) << "the image does not tell the two orders apart";
}

TEST(MaxFilter, NineByFourGoesAlongRowsFirstAndEightByFourDownColumnsFirst) {
  check_pass_order(9, 4, true);
  check_pass_order(8, 4, false);
}

TEST(MaxFilter, ARowShorterThanABlockIsAPlainScan) {
  Env env;
  Image src(1, 11, 1, SORN_S16), dst(1, 2, 1, SORN_S16);
  const int16_t v[11] = {5, -3, 9, 12, -7, 1, 8, 30, 2, 2, -40};
  for (int32_t x = 0; x < 11; ++x) src.at<int16_t>(0, x) = v[x];
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(10, 1, 0, 0);  // blocks of 9, two outputs
  const SornVolume at = make_roi(0, 0, 0, 0, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &at, SORN_FILTER_MAX, &se));
  EXPECT_EQ(30, dst.at<int16_t>(0, 0));
  EXPECT_EQ(30, dst.at<int16_t>(0, 1));
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &at, SORN_FILTER_MIN, &se));
  EXPECT_EQ(-7, dst.at<int16_t>(0, 0));
  EXPECT_EQ(-40, dst.at<int16_t>(0, 1));
}

TEST(MaxFilter, FiveCellsAlongARowWorkInBlocksOfFour) {
  // Outputs 0-3 share the backward extremes of cells 0-3, outputs 4-7 those
  // of cells 4-7. A NaN cuts a backward extreme short, so what lies after it
  // inside the block is lost and what lies in the next block is kept: cell 3
  // (50) is lost to outputs 0 and 1 behind the NaN in cell 2, and cell 7
  // (60) to output 4 behind the NaN in cell 6. A plain scan of each window
  // would give 50 and 60.
  Env env;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float v[12] = {1, 2, nan, 50, 3, 1, nan, 60, 4, 1, 2, 1};
  Image src(1, 12, 1, SORN_F32), dst(1, 8, 1, SORN_F32);
  for (int32_t x = 0; x < 12; ++x) src.at<float>(0, x) = v[x];
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = window(5, 1, 0, 0);
  const SornVolume at = make_roi(0, 0, 0, 0, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &at, SORN_FILTER_MAX, &se));
  EXPECT_EQ(3.0f, dst.at<float>(0, 0));  // s[0] = 2 (NaN and 50 cut off), r = 3
  EXPECT_EQ(3.0f, dst.at<float>(0, 1));
  EXPECT_TRUE(std::isnan(dst.at<float>(0, 2)));
  EXPECT_EQ(60.0f, dst.at<float>(0, 3));  // its window reaches cell 7
  EXPECT_EQ(4.0f, dst.at<float>(0, 4));   // s[0] = 3 (NaN and 60 cut off), r = 4
  EXPECT_EQ(4.0f, dst.at<float>(0, 5));
  EXPECT_TRUE(std::isnan(dst.at<float>(0, 6)));
  EXPECT_EQ(60.0f, dst.at<float>(0, 7));
  // The same row through the block model of the general reference.
  const std::vector<float> want = line_max(std::vector<float>(v, v + 12), 5);
  for (int32_t x = 0; x < 8; ++x)
    EXPECT_TRUE((std::isnan(want[x]) && std::isnan(dst.at<float>(0, x))) ||
                want[x] == dst.at<float>(0, x))
        << x;
}

// ---------------------------------------------------------------- dispatchers and kernels

TEST(FlatDispatchers, AMarginlessQuestionIsDeclinedAndAProbeDoesNoWork) {
  uint8_t src[64], dst[16];
  std::memset(src, 9, sizeof src);
  std::memset(dst, 1, sizeof dst);
  const int32_t sizes[3] = {4, 4, 1}, ds[3] = {4, 1, 1}, ss[3] = {8, 1, 1};
  const SornSeShape se = window(3, 3, 1, 1);
  for (auto *f : {&sorna__boxfilter_c1_u8, &sorna__minfilter_c1_u8, &sorna__maxfilter_c1_u8}) {
    EXPECT_EQ(SORN_EAGAIN, f(nullptr, SORN_F_NOMARGIN, 3, sizes, dst, ds, src + 9, ss, &se));
    EXPECT_EQ(SORN_EAGAIN,
              f(nullptr, SORN_F_NOMARGIN | SORN_F_PROBE, 3, sizes, dst, ds, src + 9, ss, &se));
    EXPECT_EQ(SORN_OK, f(nullptr, SORN_F_PROBE, 3, sizes, dst, ds, src + 9, ss, &se));
  }
  for (uint8_t v : dst) EXPECT_EQ(1, v);
  // A window of one cell is a copy, which asks nothing of the margin; a
  // probe of it does no work either.
  const SornSeShape one = window(1, 1, 0, 0);
  EXPECT_EQ(SORN_OK,
            sorna__boxfilter_c1_u8(nullptr, SORN_F_PROBE, 3, sizes, dst, ds, src, ss, &one));
  for (uint8_t v : dst) EXPECT_EQ(1, v);
  EXPECT_EQ(SORN_OK,
            sorna__maxfilter_c1_u8(nullptr, SORN_F_NOMARGIN, 3, sizes, dst, ds, src, ss, &one));
  for (uint8_t v : dst) EXPECT_EQ(9, v);
}

TEST(FlatDispatchers, ThreeAndFourChannelFormsAreNotSupported) {
  uint8_t buf[64] = {};
  const int32_t sizes[3] = {2, 2, 3}, st[3] = {6, 3, 1};
  const SornSeShape se = window(3, 3, 1, 1);
#define FLAT_MULTI(t)                                                                            \
  for (auto *f : {&sorna__boxfilter_c3_##t, &sorna__boxfilter_c4_##t, &sorna__minfilter_c3_##t,  \
                  &sorna__minfilter_c4_##t, &sorna__maxfilter_c3_##t, &sorna__maxfilter_c4_##t}) \
    EXPECT_EQ(SORN_ENOTSUP, f(nullptr, 0, 3, sizes, buf, st, buf + 32, st, &se));
  SORN_FILTER_TYPES(FLAT_MULTI)
#undef FLAT_MULTI
}

TEST(FlatTables, ChannelWordsAndTypesOutsideTheTablesAreInvalid) {
  for (auto *lookup : {&sorna__boxfiltfun_imp, &sorna__minfiltfun_imp, &sorna__maxfiltfun_imp}) {
    SornStatus st = 1;
    EXPECT_EQ(&sorna_proc_einval, (void *)lookup(2, SORN_U8, &st));
    EXPECT_EQ(SORN_EINVAL, st);
    for (uint32_t t : {SORN_U16, SORN_S8, SORN_U32, SORN_F64, 0u, 15u}) {
      lookup(1, t, &st);
      EXPECT_EQ(SORN_EINVAL, st) << t;
    }
    for (uint32_t w : {1u, 3u, 4u, 11u}) {
      lookup(w, SORN_F32, &st);
      EXPECT_EQ(SORN_OK, st) << w;
    }
    lookup(8, SORN_U8, &st);  // one channel by the count, not a word of the table
    EXPECT_EQ(SORN_EINVAL, st);
    EXPECT_NE(nullptr, (void *)lookup(1, SORN_U8, nullptr));
  }
  SornStatus st;
  EXPECT_EQ((void *)&sorna__boxfilter_c1_s16, (void *)sorna__boxfiltfun_imp(1, SORN_S16, &st));
  EXPECT_EQ((void *)&sorna__maxfilter_c4_u8, (void *)sorna__maxfiltfun_imp(11, SORN_U8, &st));
  EXPECT_EQ((void *)&sorna__minfilter_c3_s32, (void *)sorna__minfiltfun_imp(3, SORN_S32, &st));
}

TEST(FlatKernels, ScratchThatCannotBeHadIsOutOfMemoryAndGivenBack) {
  // Every kernel that takes scratch answers SORN_ENOMEM when it fails, with
  // the blocks taken before given back.
  struct K {
    SornFilterKernel f;
    int32_t w, h;
  };
  const K kernels[] = {
      {&_T_sorna__maxfilter_c1_u8_Nx1, 6, 1},  {&_T_sorna__minfilter_c1_s16_1xN, 1, 5},
      {&_T_sorna__maxfilter_c1_s32_2xN, 2, 3}, {&_T_sorna__minfilter_c1_f32_3xN, 3, 2},
      {&_T_sorna__maxfilter_c1_f32_NxM, 7, 6}, {&_T_sorna__minfilter_c1_u8_NxM, 12, 3},
      {&_T_sorna__boxfilter_c1_u8_NxM, 5, 5},
  };
  std::vector<uint8_t> src(32 * 32 * 4, 3), dst(8 * 8 * 4, 0);
  for (const K &k : kernels) {
    const SornSeShape se = window(k.w, k.h, 0, 0);
    const int32_t sizes[3] = {8, 8, 1}, ds[3] = {32, 4, 4}, ss[3] = {128, 4, 4};
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t n) {
      Env env;
      void *warm = SornXEalloca(env.xe(), 16, 0);
      SornXEfreea(env.xe(), warm);
      SornStatus st;
      bool fired;
      {
        sorn_test::AllocFailure fail(n);
        st = k.f(env.xe(), 0, 3, sizes, dst.data(), ds, src.data(), ss, &se);
        fired = fail.fired();
      }
      EXPECT_EQ(fired ? SORN_ENOMEM : SORN_OK, st);
      EXPECT_TRUE(env.at_mark());
      return fired;
    });
    EXPECT_GE(runs, 1) << k.w << "x" << k.h;
  }
}

}  // namespace

// The row kernels of nearest-neighbour resizing, each called directly:
// every kernel of the catalogue, every family and selector gives what the
// source index rule gives, on every unit, for shrinking and enlarging
// factors, widths around their rounds, padded rows, with and without a
// table of the caller's, and writes nothing beside the destination pixels.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "resize_reference.h"
#include "resize_testutil.h"
#include "testkit.h"

namespace {

using resize_test::Env;
using resize_test::Kernel;

struct Case {
  int32_t dw, dh, sw, sh;
  double fx, fy;
};

std::string describe(const Kernel &k, const Case &c, bool given) {
  char buf[200];
  std::snprintf(buf, sizeof buf, "%s: %dx%d from %dx%d, fx %.17g fy %.17g, %s table",
                k.name.c_str(), c.dw, c.dh, c.sw, c.sh, c.fx, c.fy, given ? "given" : "own");
  return buf;
}

// One call of a kernel on random pixels, against the reference: every byte
// of the destination buffer (row padding included) and its guards.
void check(const Kernel &k, const Case &c, std::mt19937_64 &rng, bool given_table) {
  const int32_t B = k.bytes;
  const ptrdiff_t sstep = (ptrdiff_t)c.sw * B + (ptrdiff_t)(rng() % 3) * 7;
  const ptrdiff_t dstep = (ptrdiff_t)c.dw * B + (ptrdiff_t)(rng() % 3) * 5;
  // The source ends with its last pixel, so that a read past it is seen by
  // the address sanitizer.
  std::vector<uint8_t> src((size_t)(c.sh - 1) * (size_t)sstep + (size_t)c.sw * B);
  resize_test::fill_random(src, rng);
  sorn_test::Guarded dst((size_t)c.dh * (size_t)dstep);
  std::vector<uint8_t> before((size_t)c.dh * (size_t)dstep);
  resize_test::fill_random(before, rng);
  std::memcpy(dst.data(), before.data(), before.size());
  std::vector<uint8_t> expected = before;
  resize_ref::resize({expected.data(), dstep, c.dh, c.dw}, {src.data(), sstep, c.sh, c.sw}, B, c.fx,
                     c.fy);

  Env env;
  uint32_t *table = nullptr;
  if (given_table) table = __sorna_rsz_nn__make_offtab1x4(env.xe(), c.dw, c.sw, 1, c.fx);
  const SornStatus st = k.run(env.xe(), c.dh, c.dw, dst.data(), (int32_t)dstep, c.sh, c.sw,
                              src.data(), (int32_t)sstep, c.fx, c.fy, table);
  if (table) SornXEfreea(env.xe(), table);
  const std::string what = describe(k, c, given_table);
  ASSERT_EQ(SORN_OK, st) << what;
  ASSERT_TRUE(dst.guards_intact()) << what;
  for (size_t i = 0; i < expected.size(); ++i)
    ASSERT_EQ(expected[i], dst.data()[i])
        << what << ", byte " << i << " (row " << (ptrdiff_t)i / dstep << ", byte in row "
        << (ptrdiff_t)i % dstep << ")";
  ASSERT_TRUE(env.at_mark()) << what;
}

// Destination widths around rounds of 1, 4, 8, 12 and 16 pixels and the
// chunks of the regular shapes.
const int32_t kWidths[] = {1,  2,  3,  4,  5,  7,  8,  9,  11, 12, 13, 15, 16,  17,
                           23, 24, 25, 31, 32, 33, 47, 48, 49, 63, 64, 65, 100, 129};

// The factors every kernel is tried with, and one taken from the extents
// (filled in per width).
const double kFactors[] = {0.5, 2.0, 3.7, 0.13, 1.0, 0.0};

int32_t source_extent(int32_t d, double f) {
  const double s = std::nearbyint((double)d / f);
  return s < 1 ? 1 : (int32_t)s;
}

TEST(ResizeKernels, EveryKernelFollowsTheSourceIndexRule) {
  auto rng = sorn_test::seeded_rng(0x5E512E);
  for (const Kernel &k : resize_test::all_kernels()) {
    for (double f : kFactors) {
      for (int32_t dw : kWidths) {
        Case c;
        c.dw = dw;
        c.dh = 1 + (int32_t)(rng() % 4);
        if (f == 0.0) {
          // From the extents: a ratio that no factor above gives.
          c.sw = dw + 1 + (int32_t)(rng() % 40);
          c.sh = c.dh + (int32_t)(rng() % 3);
          if (rng() & 1) std::swap(c.sw, c.dw), c.dw = c.dw < 1 ? 1 : c.dw;
          c.fx = (double)c.dw / (double)c.sw;
          c.fy = (double)c.dh / (double)c.sh;
        } else {
          c.fx = c.fy = f;
          c.sw = source_extent(dw, f);
          c.sh = source_extent(c.dh, f);
        }
        check(k, c, rng, (rng() & 3) == 0);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

TEST(ResizeKernels, OnePixelImagesInEveryDirection) {
  auto rng = sorn_test::seeded_rng(0x1D1C5);
  const Case cases[] = {
      {1, 1, 1, 1, 1.0, 1.0},     {1, 1, 1, 1, 0.5, 2.0},   {1, 1, 60, 40, 1.0 / 60, 1.0 / 40},
      {70, 50, 1, 1, 70.0, 50.0}, {70, 1, 1, 1, 70.0, 1.0}, {1, 50, 1, 1, 1.0, 50.0},
      {33, 1, 33, 1, 1.0, 1.0},   {1, 9, 1, 9, 1.0, 1.0},
  };
  for (const Kernel &k : resize_test::all_kernels())
    for (const Case &c : cases) {
      check(k, c, rng, false);
      if (testing::Test::HasFatalFailure()) return;
    }
}

// Rows that keep a regular shape for only part of their width: the clamp
// to the last source column ends the shape, and the walk finishes the row.
TEST(ResizeKernels, RegularRowsEndWhereTheClampBegins) {
  auto rng = sorn_test::seeded_rng(0xC1A3);
  for (const Kernel &k : resize_test::all_kernels()) {
    for (int32_t sw : {1, 2, 3, 5, 8, 31, 40, 65}) {
      for (int32_t extra : {0, 1, 2, 3, 4, 7, 17, 70}) {
        for (double f : {0.5, 1.0, 2.0}) {
          Case c;
          c.sw = sw;
          c.sh = 2;
          c.dw = std::max(1, (int32_t)std::nearbyint(sw * f)) + extra;
          c.dh = 3;
          c.fx = f;
          c.fy = f;
          check(k, c, rng, false);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  }
}

// Factors close to the regular ones are served by the walk, and so are
// tables that keep a shape for a while and then leave it.
TEST(ResizeKernels, FactorsNearTheRegularOnesFollowTheRule) {
  auto rng = sorn_test::seeded_rng(0x4EA2);
  const double near[] = {0.5 + 1e-9, 0.5 - 1e-9, 2.0 + 1e-7, 2.0 - 1e-7, 1.0 + 1e-6,
                         1.0 - 1e-6, 1.0 + 1e-8, 0.5000001,  1.9999,     0.4999};
  for (const Kernel &k : resize_test::all_kernels())
    for (double f : near) {
      const Case c{300, 3, source_extent(300, f), source_extent(3, f), f, f};
      check(k, c, rng, false);
      if (testing::Test::HasFatalFailure()) return;
    }
}

// A step is one byte: from 256 pixels on it keeps its low eight bits, and
// the kernels follow the wrapped steps. Factor 1/300 has steps of 300,
// served as 44.
TEST(ResizeKernels, StepsAboveTwoHundredFiftyFiveWrap) {
  std::vector<uint8_t> src(1000);
  for (size_t i = 0; i < src.size(); ++i) src[i] = (uint8_t)(i * 7 + 3);
  const double fx = 1.0 / 300.0;
  for (const Kernel &k : resize_test::all_kernels()) {
    if (k.bytes != 1) continue;
    uint8_t dst[3] = {0, 0, 0};
    Env env;
    ASSERT_EQ(SORN_OK, k.run(env.xe(), 1, 3, dst, 3, 1, 1000, src.data(), 1000, fx, 1.0, nullptr));
    EXPECT_EQ(src[0], dst[0]) << k.name;
    EXPECT_EQ(src[44], dst[1]) << k.name;
    EXPECT_EQ(src[88], dst[2]) << k.name;
  }
  // The reference serves the same columns, and the rule's would be 0, 300, 600.
  EXPECT_EQ((std::vector<int32_t>{0, 44, 88}), resize_ref::served_columns(3, fx, 1000));
  EXPECT_EQ(600, resize_ref::column_by_rule(2, fx, 1000));
}

// The widths at which the selectors change their choice: each side of
// every window gives the rule's result.
TEST(ResizeKernels, SelectorsAtTheEdgesOfTheirTables) {
  auto rng = sorn_test::seeded_rng(0x5E1EC7);
  struct Edge {
    double fx;
    int32_t sw;
  };
  const Edge edges[] = {
      {0.96, 851},    {0.96, 852},   {0.96, 2815}, {0.96, 2816}, {0.9, 799},   {0.9, 800},
      {0.9, 3071},    {0.9, 3072},   {0.45, 559},  {0.45, 560},  {0.18, 315},  {0.18, 316},
      {0.16, 615},    {0.16, 616},   {0.16, 1179}, {0.16, 1180}, {0.24, 8191}, {0.24, 8192},
      {0.23, 4735},   {0.23, 4736},  {0.95, 36},   {0.95, 35},   {0.95, 2816}, {0.95, 8191},
      {0.82, 2303},   {0.82, 2304},  {0.81, 1215}, {0.81, 1216}, {0.8, 835},   {0.8, 836},
      {0.0577, 2000}, {0.056, 3000}, {0.05, 3000}, {0.08, 1000}, {1.5, 900},
  };
  for (const Edge &e : edges) {
    for (int32_t dw : {4, 5, 15, 16, 17, -1}) {
      Case c;
      c.sw = e.sw;
      c.dw = dw > 0 ? dw : std::max(1, (int32_t)std::nearbyint(e.sw * e.fx));
      c.fx = e.fx;
      c.dh = 2;
      c.sh = 3;
      c.fy = 2.0 / 3.0;
      for (const Kernel &k : resize_test::all_kernels()) {
        if (k.name.find("selector") == std::string::npos) continue;
        check(k, c, rng, false);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

TEST(ResizeKernels, NothingToDoWritesNothing) {
  uint8_t src[4] = {1, 2, 3, 4}, dst[4] = {9, 9, 9, 9};
  Env env;
  for (const Kernel &k : resize_test::all_kernels()) {
    EXPECT_EQ(SORN_OK, k.run(env.xe(), 0, 1, dst, 4, 1, 1, src, 4, 1.0, 1.0, nullptr)) << k.name;
    EXPECT_EQ(SORN_OK, k.run(env.xe(), 1, 0, dst, 4, 1, 1, src, 4, 1.0, 1.0, nullptr)) << k.name;
    EXPECT_EQ(SORN_OK, k.run(env.xe(), 1, 1, dst, 4, 0, 1, src, 4, 1.0, 1.0, nullptr)) << k.name;
    EXPECT_EQ(SORN_OK, k.run(env.xe(), 1, 1, dst, 4, 1, 0, src, 4, 1.0, 1.0, nullptr)) << k.name;
  }
  for (uint8_t b : dst) EXPECT_EQ(9, b);
  EXPECT_TRUE(env.at_mark());
}

// A destination row whose source row is the row before's is that row
// copied; where destination and source share bytes, every row is made
// from the source again, since the row before may have written over it.
// In one buffer with the destination rows over the source's, the result
// is that of making every pixel in order from the buffer as it stands.
TEST(ResizeKernels, OverlappingRowsAreMadeAgainFromTheSource) {
  // Columns shrink (each row reads at or ahead of where it writes) and rows
  // repeat: a row made again from its source, which the row before has
  // just overwritten, differs from a copy of the row before.
  const int32_t sw = 14, sh = 10, dw = 10, dh = 13, stride = 16;
  const double fx = 0.7, fy = 1.3;
  for (int32_t shift : {0, 2, 5}) {
    std::vector<uint8_t> buf((size_t)(shift + dh) * stride + 16);
    for (size_t i = 0; i < buf.size(); ++i) buf[i] = (uint8_t)(i * 37 + 11);
    std::vector<uint8_t> expected = buf;
    const std::vector<int32_t> cols = resize_ref::served_columns(dw, fx, sw);
    for (int32_t y = 0; y < dh; ++y)
      for (int32_t x = 0; x < dw; ++x)
        expected[(size_t)(shift + y) * stride + (size_t)x] =
            expected[(size_t)resize_ref::row_by_rule(y, fy, sh) * stride + (size_t)cols[(size_t)x]];
    Env env;
    ASSERT_EQ(SORN_OK,
              __sorna__resize_nn_c1w8L16_10(env.xe(), dh, dw, buf.data() + shift * stride, stride,
                                            sh, sw, buf.data(), stride, fx, fy, nullptr));
    EXPECT_EQ(expected, buf) << shift;
  }
}

}  // namespace

// The integer hull leaves out the points strictly inside the polygon of its
// extremes before it sorts, where that gives the very hull of the whole
// list. Here the answer is checked against the whole list taken the plain
// way: sorted by the library's sort, tested for a line, scanned by a scan
// written here.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "testkit.h"

namespace {

int64_t turn(const Sorn2dPt &a, const Sorn2dPt &b, const Sorn2dPt &c) {
  return (int64_t)(c.x - a.x) * (b.y - a.y) - (int64_t)(b.x - a.x) * (c.y - a.y);
}

// The whole list: sort, the test for a line, the scan.
std::vector<Sorn2dPt> plain_hull(std::vector<Sorn2dPt> p) {
  const int32_t n = (int32_t)p.size();
  if (n < 4) return p;
  sorn_2d_ptv_sort_$I(p.data(), n);
  if (sorn_2d_ptv_all_colinear(p.data(), n)) return p;
  int32_t t = 0;
  Sorn2dPt b = p[1];
  for (int32_t i = 2; i < n; ++i) {
    const Sorn2dPt c = p[i];
    int64_t k = turn(p[t], b, c);
    while (k < 0 && t > 0) {
      b = p[t];
      --t;
      k = turn(p[t], b, c);
    }
    if (k > 0) ++t;
    p[t + 1] = c;
    b = c;
  }
  p.resize(t + 2);
  return p;
}

void expect_same_hull(const std::vector<Sorn2dPt> &v, const char *what, int k) {
  auto expect = plain_hull(v);
  std::vector<Sorn2dPt> got(v.size());
  const int32_t n = sorn_2d_ptv_convexhull(got.data(), v.data(), (int32_t)v.size());
  ASSERT_EQ((size_t)n, expect.size()) << what << " " << k;
  for (int32_t i = 0; i < n; ++i) {
    ASSERT_EQ(got[i].x, expect[i].x) << what << " " << k << " at " << i;
    ASSERT_EQ(got[i].y, expect[i].y) << what << " " << k << " at " << i;
  }
  // The least-area quad runs on that hull.
  if (v.size() >= 3) {
    SornR2dQuad a, b;
    ASSERT_NE(sorn_2d_ptv_minbquad_$r(&a, v.data(), (int32_t)v.size()), nullptr);
    if (expect.size() >= 3) {
      sorn_2d_ptv__minbquad_$r(&b, expect.data(), (int32_t)expect.size());
      EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << what << " " << k;
    }
  }
}

std::vector<Sorn2dPt> cloud(std::mt19937_64 &rng, int n, int32_t cx, int32_t cy, int32_t r) {
  std::uniform_int_distribution<int32_t> u(-r, r);
  std::vector<Sorn2dPt> v;
  for (int i = 0; i < n; ++i) v.push_back({cx + u(rng), cy + u(rng)});
  return v;
}

TEST(HullPaths, RandomCloudsWithinAndBeyondTheExactSpan) {
  auto rng = sorn_test::seeded_rng(97001);
  for (int k = 0; k < 400; ++k) {
    // Half-spans around the limit of 1400 units from the lowest point.
    const int32_t r = k % 4 == 0 ? 700 : k % 4 == 1 ? 699 : k % 4 == 2 ? 701 : 50;
    const int n = 4 + (int)(rng() % 2000);
    expect_same_hull(cloud(rng, n, (int32_t)(rng() % 100000) - 50000, 12345, r), "cloud", k);
  }
}

// Repeated points make sorted neighbours fall on lines; a list of few
// distinct points repeated many times takes the whole-list way, and the
// answer is the same.
TEST(HullPaths, ManyRepeatsOfFewPoints) {
  auto rng = sorn_test::seeded_rng(97002);
  for (int k = 0; k < 2000; ++k) {
    const int n = 4 + (int)(rng() % 40);
    expect_same_hull(cloud(rng, n, 0, 0, 1 + (int32_t)(k % 4)), "repeats", k);
  }
}

TEST(HullPaths, RegionLikePixelSets) {
  auto rng = sorn_test::seeded_rng(97003);
  for (int k = 0; k < 200; ++k) {
    // Filled ellipses and rectangles of pixels, as regions are.
    const double a = 2 + (double)(rng() % 300), b = 2 + (double)(rng() % 300);
    const double rot = (double)(rng() % 628) / 100;
    const double s = std::sin(rot), c = std::cos(rot);
    std::vector<Sorn2dPt> v;
    const int32_t r = (int32_t)std::max(a, b) + 1;
    for (int32_t y = -r; y <= r; ++y)
      for (int32_t x = -r; x <= r; ++x) {
        const double u = (x * c + y * s) / a, w = (y * c - x * s) / b;
        if (k % 3 == 0 ? (std::fabs(u) <= 1 && std::fabs(w) <= 1) : u * u + w * w <= 1)
          v.push_back({x + 500, y + 600});
      }
    if (v.empty()) continue;
    std::shuffle(v.begin(), v.end(), rng);
    expect_same_hull(v, "region", k);
  }
}

TEST(HullPaths, LinesAndThinSets) {
  std::vector<Sorn2dPt> line, two_rows;
  for (int i = 0; i < 100; ++i) line.push_back({i * 3, 7 - i});
  for (int i = 0; i < 100; ++i) two_rows.push_back({i, i % 2});
  expect_same_hull(line, "line", 0);
  expect_same_hull(two_rows, "two rows", 0);
  std::vector<Sorn2dPt> tri;
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x <= y; ++x) tri.push_back({x, y});
  expect_same_hull(tri, "triangle", 0);
}

}  // namespace

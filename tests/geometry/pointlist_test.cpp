// Point lists in the three families: signed area, convexity, the sort
// around the lowest point, the convex hull, moments and bounding boxes.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "families.h"
#include "testkit.h"

namespace {

using namespace geom_test;

template <class Fam>
class PointList : public ::testing::Test {};
TYPED_TEST_SUITE(PointList, Families, FamilyNames);

template <class Pt>
bool same(const Pt &a, const Pt &b) {
  return a.x == b.x && a.y == b.y;
}

/* ---- signed area ---- */

TYPED_TEST(PointList, SignedAreaIsNegativeTurningFromXTowardY) {
  using F = TypeParam;
  auto ccw = pts<F>({{0, 0}, {4, 0}, {4, 3}, {0, 3}});
  EXPECT_EQ(F::sarea(ccw.data(), 4), -12.0);
  std::reverse(ccw.begin(), ccw.end());
  EXPECT_EQ(F::sarea(ccw.data(), 4), 12.0);
  EXPECT_EQ(F::sarea(ccw.data(), 1), 0.0);
  EXPECT_EQ(F::sarea(ccw.data(), 0), 0.0);
}

TYPED_TEST(PointList, SignedAreaIsTheShoelaceSum) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94001);
  for (int k = 0; k < 300; ++k) {
    auto v = random_points<F>(rng, 1 + (int)(rng() % 60), -1000, 1000);
    EXPECT_DOUBLE_EQ(F::sarea(v.data(), (int32_t)v.size()), shoelace(v));
  }
}

TEST(PointListInt, SignedAreaSumsExactlyIn64BitsNearTheEnds) {
  // Each product is near 2^62 and the partial sums leave 64 bits, but the
  // area fits: it comes out exact.
  const std::vector<Sorn2dPt> v = {{INT32_MIN, INT32_MAX - 1000},
                                   {INT32_MAX, INT32_MAX - 1000},
                                   {INT32_MAX, INT32_MAX},
                                   {INT32_MIN, INT32_MAX}};
  EXPECT_EQ(sorn_2d_ptv___sarea(v.data(), 4), -4294967295000.0);
  const std::vector<Sorn2dPt> small = {{INT32_MAX - 3, INT32_MIN}, {INT32_MAX, INT32_MIN},
                                       {INT32_MAX, INT32_MIN + 5}};
  EXPECT_EQ(sorn_2d_ptv___sarea(small.data(), 3), -7.5);
}

/* ---- convexity ---- */

TYPED_TEST(PointList, ConvexityOfSquaresInBothSenses) {
  using F = TypeParam;
  auto sq = pts<F>({{0, 0}, {4, 0}, {4, 4}, {0, 4}});
  EXPECT_EQ(F::isconvex(sq.data(), 4), 1);
  std::reverse(sq.begin(), sq.end());
  EXPECT_EQ(F::isconvex(sq.data(), 4), 1);
  auto dart = pts<F>({{0, 0}, {4, 0}, {1, 1}, {0, 4}});
  EXPECT_EQ(F::isconvex(dart.data(), 4), 0);
  EXPECT_EQ(F::isconvex(sq.data(), 2), 0);
  EXPECT_EQ(F::isconvex(sq.data(), 0), 0);
}

TYPED_TEST(PointList, ThreePointsAreConvex) {
  using F = TypeParam;
  auto t = pts<F>({{0, 0}, {5, 1}, {2, 7}});
  EXPECT_EQ(F::isconvex(t.data(), 3), 1);
  std::swap(t[0], t[1]);
  EXPECT_EQ(F::isconvex(t.data(), 3), 1);
}

// A point on a side makes a flat turn, which never rejects: in both senses.
TYPED_TEST(PointList, FlatLaterTurnsNeverReject) {
  using F = TypeParam;
  auto sq = pts<F>({{0, 0}, {4, 0}, {4, 4}, {2, 4}, {0, 4}});
  EXPECT_EQ(F::isconvex(sq.data(), 5), 1);
  std::reverse(sq.begin(), sq.end());
  EXPECT_EQ(F::isconvex(sq.data(), 5), 1);
}

// Only the first turn is the reference. A flat first turn has no sense in
// the float families, so nothing is rejected after it; the integer family
// counts a flat first turn as positive.
TYPED_TEST(PointList, OnlyTheFirstTurnIsTheReference) {
  using F = TypeParam;
  // The first turn (last two points, then the first) is flat; the others
  // are a mix of senses.
  auto v = pts<F>({{2, 0}, {5, 3}, {4, 0}, {0, 0}, {1, 0}});
  EXPECT_EQ(F::isconvex(v.data(), 5), F::kExact ? 0 : 1);
  // From a flat first turn, turns of the hull's (positive) sense only:
  // convex in every family.
  auto pos = pts<F>({{0, 4}, {4, 4}, {4, 0}, {0, 0}, {0, 2}});
  EXPECT_EQ(F::isconvex(pos.data(), 5), 1);
}

TYPED_TEST(PointList, RandomConvexityAgreesWithTheTurns) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94002);
  for (int k = 0; k < 500; ++k) {
    int n = 3 + (int)(rng() % 6);
    auto v = random_points<F>(rng, n, -20, 20);
    // The reference: no turn against the first one's sense, a flat later
    // turn allowed; a flat first turn is positive in the integer family
    // and undecided in the float families.
    double r = turn(v[n - 2], v[n - 1], v[0]);
    bool convex = true;
    for (int i = 1; i < n; ++i) {
      const double kk = turn(v[(i + n - 2) % n], v[(i + n - 1) % n], v[i]);
      if (F::kExact ? (r >= 0 ? kk < 0 : kk > 0) : (r * kk < 0)) convex = false;
    }
    EXPECT_EQ(F::isconvex(v.data(), n), convex ? 1 : 0);
  }
}

/* ---- points on one line ---- */

TYPED_TEST(PointList, AllColinear) {
  using F = TypeParam;
  auto line = pts<F>({{0, 0}, {1, 2}, {3, 6}, {-2, -4}, {3, 6}});
  EXPECT_EQ(F::all_colinear(line.data(), 5), 1);
  auto bent = pts<F>({{0, 0}, {1, 2}, {3, 7}});
  EXPECT_EQ(F::all_colinear(bent.data(), 3), 0);
  EXPECT_EQ(F::all_colinear(bent.data(), 2), 1);
  EXPECT_EQ(F::all_colinear(bent.data(), 0), 1);
  // Neighbours only, not around the ring: the last turn is never tested.
  auto open = pts<F>({{0, 0}, {1, 1}, {2, 2}});
  EXPECT_EQ(F::all_colinear(open.data(), 3), 1);
}

TEST(PointListFloat, ColinearWithinTheTolerance) {
  const std::vector<SornR2dPt> v = {{0, 0}, {1, 1e-8}, {2, 0}};
  EXPECT_EQ(sorn_r2d_ptv_all_colinear(v.data(), 3), 1);
  const std::vector<SornR2dPt> w = {{0, 0}, {1, 1e-6}, {2, 0}};
  EXPECT_EQ(sorn_r2d_ptv_all_colinear(w.data(), 3), 0);
}

/* ---- lowest point ---- */

TYPED_TEST(PointList, LowestIsSmallestXThenSmallestY) {
  using F = TypeParam;
  auto v = pts<F>({{3, 1}, {1, 5}, {2, -9}, {1, 2}, {1, 7}});
  EXPECT_EQ(F::lowest(v.data(), 5), &v[3]);
  EXPECT_EQ(F::lowest(v.data(), 1), &v[0]);
  EXPECT_EQ(F::lowest(v.data(), 0), v.data());
  // The first of equal points wins.
  auto d = pts<F>({{1, 1}, {0, 0}, {0, 0}});
  EXPECT_EQ(F::lowest(d.data(), 3), &d[1]);
}

TEST(PointListFloat, LowestTieWithinToleranceMayTakeASlightlyLargerX) {
  const std::vector<SornR2dPt> v = {{0.0, 5.0}, {1e-8, 1.0}};
  EXPECT_EQ(sorn_r2d_ptv_lowest(v.data(), 2), &v[1]);
  const std::vector<Sorn2dPt> i = {{0, 5}, {1, 1}};
  EXPECT_EQ(sorn_2d_ptv_lowest(i.data(), 2), &i[0]);
}

/* ---- the comparison and the sort ---- */

TYPED_TEST(PointList, CompareByAngleThenDistance) {
  using F = TypeParam;
  auto v = pts<F>({{0, 0}, {0, 5}, {3, 3}, {0, 2}, {3, 3}});
  const auto *piv = &v[0];
  EXPECT_EQ(F::compare(&v[1], &v[1], piv), 0);
  EXPECT_EQ(F::compare(&v[2], &v[4], piv), 0);  // same coordinates
  EXPECT_EQ(F::compare(&v[1], &v[2], piv), -1);  // angle 0 before pi / 4
  EXPECT_EQ(F::compare(&v[2], &v[1], piv), 1);
  EXPECT_EQ(F::compare(&v[3], &v[1], piv), -1);  // same angle, nearer first
  EXPECT_EQ(F::compare(&v[1], &v[3], piv), 1);
  // Equal angle and distance but different points: never 0.
  auto t = pts<F>({{0, 0}, {3, 4}, {4, 3}, {5, 0}});
  auto u = pts<F>({{0, 0}, {0, 5}, {0, 5}});
  EXPECT_EQ(F::compare(&t[1], &t[2], &t[0]), -1);
  EXPECT_EQ(F::compare(&u[1], &u[2], &u[0]), 0);
}

TEST(PointListFloat, CompareTiesOfDistanceAreNeverEqual) {
  // Angles tie within the tolerance, distances too: the answer is 1 both
  // ways.
  const SornR2dPt pivot = {0, 0}, a = {0, 1000.0}, b = {1e-5, 1000.0};
  EXPECT_EQ(_T_r2d_ptv_sort_compare(&a, &b, &pivot), 1);
  EXPECT_EQ(_T_r2d_ptv_sort_compare(&b, &a, &pivot), 1);
  // The f2d form judges coincidence on f32 differences.
  const SornF2dPt fp = {0, 0}, fa = {1.0f, 1.0f}, fb = {1.0f + 1.1920929e-7f, 1.0f};
  EXPECT_EQ(_T_ptv_sort_compare(&fa, &fb, &fp), 0);
}

// A reference order: the angle atan2(dx, dy) around the lowest point, then
// the distance. On small integer points distinct angles differ by more than
// the tolerance, so the order is total up to equal points.
template <class F>
std::vector<typename F::Pt> reference_sorted(std::vector<typename F::Pt> v) {
  if (v.empty()) return v;
  size_t lo = 0;
  for (size_t i = 1; i < v.size(); ++i)
    if (px(v[i]) < px(v[lo]) || (px(v[i]) == px(v[lo]) && py(v[i]) < py(v[lo]))) lo = i;
  const auto piv = v[lo];
  auto key = [&](const typename F::Pt &p) {
    const double dx = px(p) - px(piv), dy = py(p) - py(piv);
    return std::make_pair(std::atan2(dx, dy), std::sqrt(dx * dx + dy * dy));
  };
  std::stable_sort(v.begin(), v.end(), [&](auto &a, auto &b) { return key(a) < key(b); });
  return v;
}

TYPED_TEST(PointList, SortGoesAroundTheLowestPoint) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94003);
  for (int k = 0; k < 400; ++k) {
    const int n = (int)(rng() % 200);
    const int32_t span = k % 3 == 0 ? 4 : 1000;  // small spans repeat points
    auto v = random_points<F>(rng, n, -span, span);
    auto expect = reference_sorted<F>(v);
    EXPECT_EQ(F::sort(v.data(), n), v.data());
    for (int i = 0; i < n; ++i) {
      ASSERT_TRUE(same(v[i], expect[i])) << "n " << n << " at " << i;
    }
  }
}

TYPED_TEST(PointList, SortOfManyRepeatedPoints) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94004);
  for (int32_t span : {0, 1, 3, 30}) {
    auto v = random_points<F>(rng, 50000, -span, span);
    auto expect = reference_sorted<F>(v);
    F::sort(v.data(), (int32_t)v.size());
    for (size_t i = 0; i < v.size(); ++i) ASSERT_TRUE(same(v[i], expect[i])) << span << " " << i;
  }
}

TYPED_TEST(PointList, RepeatedPointsStayAdjacentInSmallRanges) {
  using F = TypeParam;
  auto v = pts<F>({{2, 2}, {0, 0}, {1, 3}, {2, 2}, {3, 1}});
  F::sort(v.data(), 5);
  auto e = pts<F>({{0, 0}, {1, 3}, {2, 2}, {2, 2}, {3, 1}});
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(same(v[i], e[i])) << i;
}

/* ---- convex hull ---- */

TYPED_TEST(PointList, HullOfAShuffledSquareStartsAtTheLowest) {
  using F = TypeParam;
  auto v = pts<F>({{4, 4}, {0, 4}, {4, 0}, {0, 0}});
  EXPECT_EQ(F::hull_inplace(v.data(), 4), 4);
  auto e = pts<F>({{0, 0}, {0, 4}, {4, 4}, {4, 0}});
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(same(v[i], e[i])) << i;
}

TYPED_TEST(PointList, HullOfThreePointsLeavesThemAlone) {
  using F = TypeParam;
  auto v = pts<F>({{5, 5}, {0, 0}, {9, 1}});
  const auto before = v;
  EXPECT_EQ(F::hull_inplace(v.data(), 3), 3);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(same(v[i], before[i]));
  EXPECT_EQ(F::hull_inplace(v.data(), 1), 1);
  EXPECT_EQ(F::hull_inplace(v.data(), 0), 0);
}

TYPED_TEST(PointList, HullOfPointsOnALineKeepsThemAllSorted) {
  using F = TypeParam;
  auto v = pts<F>({{3, 3}, {1, 1}, {4, 4}, {0, 0}, {2, 2}});
  EXPECT_EQ(F::hull_inplace(v.data(), 5), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(px(v[i]), i);
}

TYPED_TEST(PointList, HullDropsARepeatedPoint) {
  using F = TypeParam;
  auto v = pts<F>({{4, 0}, {0, 0}, {4, 4}, {0, 4}, {4, 4}, {2, 1}});
  EXPECT_EQ(F::hull_inplace(v.data(), 6), 4);
  auto e = pts<F>({{0, 0}, {0, 4}, {4, 4}, {4, 0}});
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(same(v[i], e[i])) << i;
}

template <class F>
void expect_hull_of(const std::vector<typename F::Pt> &in, const typename F::Pt *h, int32_t nh) {
  std::vector<typename F::Pt> hull(h, h + nh);
  // Every point lies on the hull's inner side, and every turn has one sense.
  for (int32_t i = 0; i < nh; ++i) {
    const auto &a = hull[i], &b = hull[(i + 1) % nh];
    for (auto &p : in) ASSERT_GE(turn(a, b, p), 0.0) << "edge " << i;
    ASSERT_GT(turn(a, b, hull[(i + 2) % nh]), 0.0) << "vertex " << i;
  }
  // The vertices are those of a reference hull.
  auto ref = reference_hull(in);
  std::sort(ref.begin(), ref.end());
  std::vector<std::pair<double, double>> got;
  for (auto &p : hull) got.push_back({px(p), py(p)});
  std::sort(got.begin(), got.end());
  ASSERT_EQ(got, ref);
}

TYPED_TEST(PointList, RandomHullsHoldEveryPointAndAreConvex) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94005);
  for (int k = 0; k < 400; ++k) {
    const int n = 4 + (int)(rng() % 300);
    const int32_t span = k % 4 == 0 ? 3 : 500;
    auto v = random_points<F>(rng, n, -span, span);
    std::vector<typename F::Pt> h(n);
    const int32_t nh = F::hull(h.data(), v.data(), n);
    SCOPED_TRACE(::testing::Message() << "n " << n << " span " << span);
    auto sorted = reference_sorted<F>(v);
    if (F::all_colinear(sorted.data(), n)) {
      // Neighbours on lines (repeated points make that easy): all stay.
      ASSERT_EQ(nh, n);
      for (int i = 0; i < n; ++i) ASSERT_TRUE(same(h[i], sorted[i]));
      continue;
    }
    ASSERT_GE(nh, 3);
    expect_hull_of<F>(v, h.data(), nh);
    // The first vertex is the lowest point.
    const auto *lo = F::lowest(v.data(), n);
    EXPECT_TRUE(same(h[0], *lo));
    EXPECT_EQ(F::isconvex(h.data(), nh), 1);
  }
}

// The test for a line looks at sorted neighbours only, so repeated points
// can make a set that is not on one line pass it: the list is then kept
// whole, sorted, as for points on a line.
TYPED_TEST(PointList, HullKeepsAListWhoseSortedNeighboursAreOnLines) {
  using F = TypeParam;
  auto v = pts<F>({{3, 1}, {3, 3}, {1, 3}, {3, 1}, {2, 3}, {3, 3}});
  EXPECT_EQ(F::hull_inplace(v.data(), 6), 6);
  auto e = pts<F>({{1, 3}, {2, 3}, {3, 3}, {3, 3}, {3, 1}, {3, 1}});
  for (int i = 0; i < 6; ++i) EXPECT_TRUE(same(v[i], e[i])) << i;
}

TYPED_TEST(PointList, HullIntoANewBlock) {
  using F = TypeParam;
  auto v = pts<F>({{4, 4}, {0, 4}, {2, 2}, {4, 0}, {0, 0}});
  typename F::Pt *block = reinterpret_cast<typename F::Pt *>(&v);  // overwritten with null
  EXPECT_EQ(F::ahull(&block, v.data(), 5), 4);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(same(block[0], v[4]));
  std::free(block);
  EXPECT_EQ(F::ahull(&block, v.data(), 0), 0);
  EXPECT_EQ(block, nullptr);
  // The source is left as it was.
  EXPECT_EQ(px(v[0]), 4);
  std::vector<typename F::Pt> out(5);
  EXPECT_EQ(F::hull(out.data(), v.data(), 0), 0);
  EXPECT_EQ(F::hull(out.data(), v.data(), 5), 4);
}

TEST(PointListInt, HullNearTheEndsOfS32) {
  auto rng = sorn_test::seeded_rng(94006);
  std::uniform_int_distribution<int32_t> u(0, 3000);
  for (int corner = 0; corner < 4; ++corner)
    for (int k = 0; k < 50; ++k) {
      std::vector<Sorn2dPt> v(40);
      for (auto &p : v) {
        const int32_t a = u(rng), b = u(rng);
        p.x = corner & 1 ? INT32_MAX - a : INT32_MIN + a;
        p.y = corner & 2 ? INT32_MAX - b : INT32_MIN + b;
      }
      std::vector<Sorn2dPt> h(v.size());
      const int32_t nh = sorn_2d_ptv_convexhull(h.data(), v.data(), (int32_t)v.size());
      expect_hull_of<geom_test::IntFamily>(v, h.data(), nh);
    }
}

// Where coordinates are small integers, exact in every family, the three
// hulls are the same list.
TEST(PointListFamilies, AgreeOnSmallIntegerPoints) {
  auto rng = sorn_test::seeded_rng(94007);
  for (int k = 0; k < 200; ++k) {
    const int n = 1 + (int)(rng() % 100);
    auto vi = random_points<IntFamily>(rng, n, -300, 300);
    std::vector<SornF2dPt> vf;
    std::vector<SornR2dPt> vr;
    for (auto &p : vi) {
      vf.push_back({(float)p.x, (float)p.y});
      vr.push_back({(double)p.x, (double)p.y});
    }
    EXPECT_EQ(sorn_2d_ptv___sarea(vi.data(), n), sorn_f2d_ptv___sarea(vf.data(), n));
    EXPECT_EQ(sorn_2d_ptv___sarea(vi.data(), n), sorn_r2d_ptv___sarea(vr.data(), n));
    const int32_t ni = sorn_2d_ptv_convexhull_$I(vi.data(), n);
    ASSERT_EQ(sorn_f2d_ptv_convexhull_$I(vf.data(), n), ni);
    ASSERT_EQ(sorn_r2d_ptv_convexhull_$I(vr.data(), n), ni);
    for (int i = 0; i < ni; ++i) {
      EXPECT_EQ(vf[i].x, vi[i].x);
      EXPECT_EQ(vf[i].y, vi[i].y);
      EXPECT_EQ(vr[i].x, vi[i].x);
      EXPECT_EQ(vr[i].y, vi[i].y);
    }
    SornR2dQuad qi, qf, qr;
    ASSERT_NE(sorn_2d_ptv_minbquad_$r(&qi, vi.data(), ni), nullptr);
    ASSERT_NE(sorn_f2d_ptv_minbquad_$r(&qf, vf.data(), ni), nullptr);
    ASSERT_NE(sorn_r2d_ptv_minbquad(&qr, vr.data(), ni), nullptr);
    for (int c = 0; c < 4; ++c) {
      EXPECT_NEAR(qf.q[c].x, qi.q[c].x, 1e-9);
      EXPECT_NEAR(qr.q[c].y, qi.q[c].y, 1e-9);
    }
  }
}

/* ---- moments ---- */

TYPED_TEST(PointList, MomentsAreMeansOfTheSums) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(94008);
  for (int k = 0; k < 200; ++k) {
    const int n = 1 + (int)(rng() % 100);
    auto v = random_points<F>(rng, n, -1000, 1000);
    double sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
    for (auto &p : v) {
      sx += px(p), sy += py(p);
      sxx += px(p) * px(p), sxy += px(p) * py(p), syy += py(p) * py(p);
    }
    const double r = 1.0 / n;
    SornR2dPt m1;
    EXPECT_EQ(F::moment1(&m1, v.data(), n), &m1);
    EXPECT_EQ(m1.x, sx * r);
    EXPECT_EQ(m1.y, sy * r);
    SornMoment2 m2;
    EXPECT_EQ(F::moment2(&m2, v.data(), n), &m2);
    EXPECT_EQ(m2.m20, sxx * r);
    EXPECT_EQ(m2.m11, sxy * r);
    EXPECT_EQ(m2.m02, syy * r);
    SornMoment2 mc;
    EXPECT_EQ(F::moment2c(&mc, v.data(), n), &mc);
    EXPECT_EQ(mc.m20, sxx * r - (sx * r) * (sx * r));
    EXPECT_EQ(mc.m11, sxy * r - (sy * r) * (sx * r));
    EXPECT_EQ(mc.m02, syy * r - (sy * r) * (sy * r));
    double cov[4];
    EXPECT_EQ(F::covariance(cov, v.data(), n), cov);
    EXPECT_EQ(cov[0], mc.m20);
    EXPECT_EQ(cov[1], mc.m11);
    EXPECT_EQ(cov[2], mc.m11);
    EXPECT_EQ(cov[3], mc.m02);
    SornF2dPt c;
    EXPECT_EQ(F::centroid_f(&c, v.data(), n), &c);
    EXPECT_EQ(c.x, (float)(sx * r));
    EXPECT_EQ(c.y, (float)(sy * r));
  }
}

TYPED_TEST(PointList, MomentsOfNoPointAreNotNumbers) {
  using F = TypeParam;
  typename F::Pt none[1] = {};
  SornR2dPt m1;
  F::moment1(&m1, none, 0);
  EXPECT_TRUE(std::isnan(m1.x));
  SornMoment2 m2;
  F::moment2c(&m2, none, 0);
  EXPECT_TRUE(std::isnan(m2.m20));
}

TEST(PointListInt, MomentSumsAre64BitIntegers) {
  // The sums leave 32 bits (and the products f64's 53) but fit in 64.
  const std::vector<Sorn2dPt> v = {{INT32_MAX, INT32_MIN}, {INT32_MAX, INT32_MIN},
                                   {INT32_MAX - 1, INT32_MIN + 1}};
  SornR2dPt m1;
  sorn_2d_ptv_moment1(&m1, v.data(), 3);
  const int64_t sx = 3 * (int64_t)INT32_MAX - 1;
  EXPECT_EQ(m1.x, (double)sx * (1.0 / 3));
  SornMoment2 m2;
  sorn_2d_ptv_moment2(&m2, v.data(), 2);
  const int64_t xx = 2 * (int64_t)INT32_MAX * INT32_MAX;
  EXPECT_EQ(m2.m20, (double)xx * 0.5);
}

TEST(PointListInt, CentroidRoundsToNearestEven) {
  const std::vector<Sorn2dPt> v = {{2, 3}, {3, 4}};  // mean (2.5, 3.5)
  Sorn2dPt c;
  EXPECT_EQ(sorn_2d_ptv_centroid(&c, v.data(), 2), &c);
  EXPECT_EQ(c.x, 2);
  EXPECT_EQ(c.y, 4);
  const std::vector<Sorn2dPt> w = {{-7, 1}, {0, 1}, {0, 0}};  // (-2.33, 0.67)
  sorn_2d_ptv_centroid(&c, w.data(), 3);
  EXPECT_EQ(c.x, -2);
  EXPECT_EQ(c.y, 1);
  // No point: the mean is not a number, which converts to 0x80000000.
  sorn_2d_ptv_centroid(&c, w.data(), 0);
  EXPECT_EQ(c.x, INT32_MIN);
  EXPECT_EQ(c.y, INT32_MIN);
}

/* ---- bounding boxes ---- */

TYPED_TEST(PointList, BoundingRectangleAndQuad) {
  using F = TypeParam;
  auto v = pts<F>({{3, -1}, {-2, 5}, {7, 2}});
  typename F::Rect r;
  EXPECT_EQ(F::brect(&r, v.data(), 3), &r);
  EXPECT_EQ(r.x, -2);
  EXPECT_EQ(r.y, -1);
  EXPECT_EQ(r.width, 9);  // no plus one
  EXPECT_EQ(r.height, 6);
  SornR2dQuad q;
  EXPECT_EQ(F::bquad_r(&q, v.data(), 3), &q);
  const double e[4][2] = {{-2, -1}, {-2, 5}, {7, 5}, {7, -1}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(q.q[i].x, e[i][0]);
    EXPECT_EQ(q.q[i].y, e[i][1]);
  }
}

TEST(PointListEmpty, BoxesGiveTheStartValuesOfTheirScan) {
  Sorn2dRect ir;
  sorn_2d_ptv_brect(&ir, nullptr, 0);
  EXPECT_EQ(ir.x, INT32_MAX);
  EXPECT_EQ(ir.y, INT32_MAX);
  EXPECT_EQ(ir.width, 1);
  EXPECT_EQ(ir.height, 1);
  SornF2dRect fr;
  sorn_f2d_ptv_brect(&fr, nullptr, 0);
  EXPECT_EQ(fr.x, FLT_MAX);
  EXPECT_EQ(fr.width, -INFINITY);
  SornR2dRect rr;
  sorn_r2d_ptv_brect(&rr, nullptr, 0);
  EXPECT_EQ(rr.y, DBL_MAX);
  EXPECT_EQ(rr.height, -INFINITY);

  auto expect_quad = [](const auto &q, double lo, double hi) {
    EXPECT_EQ((double)q.q[0].x, lo);
    EXPECT_EQ((double)q.q[0].y, lo);
    EXPECT_EQ((double)q.q[2].x, hi);
    EXPECT_EQ((double)q.q[2].y, hi);
    EXPECT_EQ((double)q.q[1].y, hi);
    EXPECT_EQ((double)q.q[3].x, hi);
  };
  SornF2dQuad fq;
  SornR2dQuad rq;
  sorn_f2d_ptv_bquad(&fq, nullptr, 0);
  expect_quad(fq, FLT_MAX, -FLT_MAX);
  sorn_f2d_ptv_bquad_$r(&rq, nullptr, 0);
  expect_quad(rq, (double)FLT_MAX, -(double)FLT_MAX);
  sorn_r2d_ptv_bquad(&rq, nullptr, 0);
  expect_quad(rq, DBL_MAX, -DBL_MAX);
  sorn_r2d_ptv_bquad_$f(&fq, nullptr, 0);
  expect_quad(fq, INFINITY, -INFINITY);
  sorn_2d_ptv_bquad_$f(&fq, nullptr, 0);
  expect_quad(fq, 2147483648.0, -2147483648.0);
  sorn_2d_ptv_bquad_$r(&rq, nullptr, 0);
  expect_quad(rq, 2147483647.0, -2147483648.0);
}

}  // namespace

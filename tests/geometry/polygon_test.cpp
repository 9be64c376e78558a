// Polygons in the three families: the inside test, the area, and the
// moments of the enclosed area with the ellipse fitted to them.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

#include "families.h"
#include "testkit.h"

namespace {

using namespace geom_test;

template <class Fam>
class Polygon : public ::testing::Test {};
TYPED_TEST_SUITE(Polygon, Families, FamilyNames);

template <class F>
using C = typename F::Coord;

/* ---- inside ---- */

// The crossing rule compares the point with the edge's y at x; read with
// the sign of prev.x - c.x, the centre of a square is inside.
TYPED_TEST(Polygon, CentreOfASquareIsInsideInBothSenses) {
  using F = TypeParam;
  auto sq = pts<F>({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
  EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(5)), 1);
  EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(15), C<F>(5)), 0);
  EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(-1)), 0);
  std::reverse(sq.begin(), sq.end());
  EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(5)), 1);
  EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(11)), 0);
}

// On the boundary the half-open span decides: the sides of largest x and
// of largest y count in, those of smallest x and smallest y out.
TYPED_TEST(Polygon, BoundaryPointsOfOneSideCountInOfTheOtherOut) {
  using F = TypeParam;
  for (bool reversed : {false, true}) {
    auto sq = pts<F>({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
    if (reversed) std::reverse(sq.begin(), sq.end());
    SCOPED_TRACE(reversed);
    EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(10), C<F>(5)), 1);  // largest x
    EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(0), C<F>(5)), 0);   // smallest x
    EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(10)), 1);  // largest y
    EXPECT_EQ(F::poly_inside(sq.data(), 4, C<F>(5), C<F>(0)), 0);   // smallest y
  }
}

TYPED_TEST(Polygon, FewerThanTwoPointsHoldNothing) {
  using F = TypeParam;
  auto p = pts<F>({{0, 0}, {10, 0}});
  EXPECT_EQ(F::poly_inside(p.data(), 1, C<F>(0), C<F>(0)), 0);
  EXPECT_EQ(F::poly_inside(p.data(), 0, C<F>(0), C<F>(0)), 0);
  EXPECT_EQ(F::poly_inside(p.data(), 2, C<F>(5), C<F>(0)), 0);
}

// A plain even-odd ray cast, for points off the boundary.
template <class Pt>
bool ray_cast(const std::vector<Pt> &v, double x, double y) {
  bool in = false;
  for (size_t i = 0, j = v.size() - 1; i < v.size(); j = i++) {
    const double ax = px(v[i]), ay = py(v[i]), bx = px(v[j]), by = py(v[j]);
    if ((ax > x) != (bx > x)) {
      const double yi = ay + (x - ax) * (by - ay) / (bx - ax);
      if (y > yi) in = !in;
    }
  }
  return in;
}

template <class Pt>
bool near_boundary(const std::vector<Pt> &v, double x, double y, double tol) {
  for (size_t i = 0, j = v.size() - 1; i < v.size(); j = i++) {
    const double ax = px(v[i]), ay = py(v[i]), bx = px(v[j]), by = py(v[j]);
    const double dx = bx - ax, dy = by - ay, len2 = dx * dx + dy * dy;
    double t = len2 > 0 ? ((x - ax) * dx + (y - ay) * dy) / len2 : 0;
    t = std::clamp(t, 0.0, 1.0);
    if (std::hypot(ax + t * dx - x, ay + t * dy - y) <= tol) return true;
  }
  return false;
}

TYPED_TEST(Polygon, RandomPolygonsAgreeWithARayCastOffTheBoundary) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(96001);
  std::uniform_real_distribution<double> u(-60.0, 60.0);
  for (int k = 0; k < 300; ++k) {
    const int n = 3 + (int)(rng() % 20);
    auto v = random_points<F>(rng, n, -50, 50);  // self-crossing rings too
    for (int t = 0; t < 100; ++t) {
      double x = u(rng), y = u(rng);
      if (F::kExact) x = std::round(x), y = std::round(y);
      if constexpr (std::is_same_v<C<F>, float>) x = (float)x, y = (float)y;
      if (near_boundary(v, x, y, 1e-6)) continue;
      ASSERT_EQ(F::poly_inside(v.data(), n, (C<F>)x, (C<F>)y), ray_cast(v, x, y) ? 1 : 0)
          << "k " << k << " at " << x << ", " << y;
    }
  }
}

// The products are 64-bit: exact while the coordinates of an edge and the
// point differ by less than 2^31 or so, wherever they lie.
TEST(PolygonInt, InsideNearTheEndsOfS32) {
  const int32_t M = INT32_MAX, m = INT32_MIN, H = 1 << 30;
  const std::vector<Sorn2dPt> tri = {{m, m}, {m + H, m}, {m, m + H}};
  EXPECT_EQ(sorn_2d_poly_inside2(tri.data(), 3, m + 10, m + 10), 1);
  EXPECT_EQ(sorn_2d_poly_inside2(tri.data(), 3, m + H / 2 + 1, m + H / 2 + 1), 0);
  EXPECT_EQ(sorn_2d_poly_inside2(tri.data(), 3, m + H / 2 - 1, m + H / 2), 1);
  const std::vector<Sorn2dPt> box = {{M - 4, M - 4}, {M, M - 4}, {M, M}, {M - 4, M}};
  EXPECT_EQ(sorn_2d_poly_inside2(box.data(), 4, M - 2, M - 2), 1);
  EXPECT_EQ(sorn_2d_poly_inside2(box.data(), 4, M - 5, M - 2), 0);
}

/* ---- area ---- */

TYPED_TEST(Polygon, AreaIsTheShoelaceSumInEitherDirection) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(96002);
  for (int k = 0; k < 300; ++k) {
    const int n = (int)(rng() % 40);
    auto v = random_points<F>(rng, n, -1000, 1000);
    const double a = F::poly_area(v.data(), n);
    EXPECT_DOUBLE_EQ(a, std::fabs(shoelace(v)));
    std::reverse(v.begin(), v.end());
    EXPECT_EQ(F::poly_area(v.data(), n), a);
  }
  auto one = pts<F>({{3, 4}});
  EXPECT_EQ(F::poly_area(one.data(), 1), 0.0);
}

/* ---- moments ---- */

// The walk of the definition: prev from the last point, c over the first
// n - 1 points, so the edge from the second last point to the last is left
// out; sums in long double here.
template <class F>
void reference_moments(const std::vector<typename F::Pt> &v, SornR2dPt &m1, SornMoment2 &m2) {
  const size_t n = v.size();
  long double A = 0, Sx = 0, Sy = 0, Mxx = 0, Myy = 0, Mxy = 0;
  for (size_t i = 0; i + 1 < n; ++i) {
    const long double cx = px(v[i]), cy = py(v[i]);
    const long double qx = px(v[i == 0 ? n - 1 : i - 1]), qy = py(v[i == 0 ? n - 1 : i - 1]);
    const long double w = cx * qy - cy * qx;
    A += w;
    Sx += (qx + cx) * w;
    Sy += (qy + cy) * w;
    Mxx += (cx * cx + (cx + qx) * qx) * w;
    Myy += (cy * cy + (cy + qy) * qy) * w;
    Mxy += (2 * cx * cy + (cx + qx) * qx + (cy + qy) * qy) * w;
  }
  m1 = {(double)(Sx / (3 * A)), (double)(Sy / (3 * A))};
  m2 = {(double)(Mxx / (6 * A)), (double)(Mxy / (6 * A) / 2), (double)(Myy / (6 * A))};
}

TYPED_TEST(Polygon, MomentsFollowTheWalkThatLeavesOutOneEdge) {
  using F = TypeParam;
  auto rng = sorn_test::seeded_rng(96003);
  for (int k = 0; k < 300; ++k) {
    const int n = 3 + (int)(rng() % 30);
    auto v = random_points<F>(rng, n, -500, 500);
    SornR2dPt r1;
    SornMoment2 r2;
    reference_moments<F>(v, r1, r2);
    if (!std::isfinite(r1.x) || std::fabs(shoelace(v)) < 1.0) continue;
    SornR2dPt m1;
    SornMoment2 m2, mc;
    EXPECT_EQ(F::poly_moment1(&m1, v.data(), n), &m1);
    EXPECT_EQ(F::poly_moment2(&m2, v.data(), n), &m2);
    EXPECT_EQ(F::poly_moment2c(&mc, v.data(), n), &mc);
    auto tol = [](double r) { return 1e-9 * (1 + std::fabs(r)); };
    // Thin rings divide by a small area: compare relative to the sums.
    const double rel = 1e-9 * (1 + 1e6 / std::fabs(shoelace(v)));
    EXPECT_NEAR(m1.x, r1.x, tol(r1.x) + rel * 500);
    EXPECT_NEAR(m1.y, r1.y, tol(r1.y) + rel * 500);
    EXPECT_NEAR(m2.m20, r2.m20, tol(r2.m20) + rel * 250000);
    EXPECT_NEAR(m2.m11, r2.m11, tol(r2.m11) + rel * 250000);
    EXPECT_NEAR(m2.m02, r2.m02, tol(r2.m02) + rel * 250000);
    // The central moments and what is made of them.
    EXPECT_EQ(mc.m20, m2.m20 - m1.x * m1.x);
    EXPECT_EQ(mc.m11, m2.m11 - m1.x * m1.y);
    EXPECT_EQ(mc.m02, m2.m02 - m1.y * m1.y);
    double cov[4];
    EXPECT_EQ(F::poly_covariance(cov, v.data(), n), cov);
    EXPECT_EQ(cov[0], mc.m20);
    EXPECT_EQ(cov[1], mc.m11);
    EXPECT_EQ(cov[2], mc.m11);
    EXPECT_EQ(cov[3], mc.m02);
    SornF2dPt c;
    EXPECT_EQ(F::poly_centroid_f(&c, v.data(), n), &c);
    EXPECT_EQ(c.x, (float)m1.x);
    EXPECT_EQ(c.y, (float)m1.y);
    EXPECT_EQ(F::poly_rotation(v.data(), n), std::atan2(2 * mc.m11, mc.m02 - mc.m20) * 0.5);
    SornR2dEll er;
    EXPECT_EQ(F::poly_fitell_r(&er, v.data(), n), &er);
    SornR2dEll expect;
    __sorn_r2d_ellipse__$moment2$c(&expect, &m1, &mc, 2.0);
    EXPECT_EQ(std::memcmp(&er, &expect, sizeof er), 0);
    SornF2dEll ef, expectf;
    EXPECT_EQ(F::poly_fitell_f(&ef, v.data(), n), &ef);
    __sorn_f2d_ellipse__$moment2$c(&expectf, &c, &mc, 2.0);
    EXPECT_EQ(std::memcmp(&ef, &expectf, sizeof ef), 0);
  }
}

// With the last point repeated, the edge the walk leaves out has no length:
// the moments are then those of the whole ring.
TYPED_TEST(Polygon, RectangleWithItsLastPointRepeated) {
  using F = TypeParam;
  auto r = pts<F>({{2, 1}, {8, 1}, {8, 5}, {2, 5}, {2, 5}});
  SornR2dPt m1;
  F::poly_moment1(&m1, r.data(), 5);
  EXPECT_DOUBLE_EQ(m1.x, 5.0);
  EXPECT_DOUBLE_EQ(m1.y, 3.0);
  SornMoment2 mc;
  F::poly_moment2c(&mc, r.data(), 5);
  EXPECT_NEAR(mc.m20, 36.0 / 12, 1e-12);  // the x extent 6
  EXPECT_NEAR(mc.m02, 16.0 / 12, 1e-12);  // the y extent 4
  EXPECT_EQ(F::poly_area(r.data(), 5), 24.0);
  // Without the repeat the closing edge is missing and the centre moves.
  F::poly_moment1(&m1, r.data(), 4);
  EXPECT_GT(std::fabs(m1.x - 5.0) + std::fabs(m1.y - 3.0), 0.1);
}

TYPED_TEST(Polygon, FewPointsGiveZerosAndNoAreaGivesNotANumber) {
  using F = TypeParam;
  auto v = pts<F>({{0, 0}, {1, 1}, {2, 2}});
  SornR2dPt m1 = {9, 9};
  EXPECT_EQ(F::poly_moment1(&m1, v.data(), 1), &m1);
  EXPECT_EQ(m1.x, 0.0);
  EXPECT_EQ(m1.y, 0.0);
  SornMoment2 m2 = {9, 9, 9};
  F::poly_moment2(&m2, v.data(), 0);
  EXPECT_EQ(m2.m20, 0.0);
  EXPECT_EQ(m2.m02, 0.0);
  F::poly_moment1(&m1, v.data(), 3);  // on a line through 0: no area
  EXPECT_TRUE(std::isnan(m1.x));
}

TEST(PolygonInt, CentroidRoundsToNearestEven) {
  // A 5 by 5 square with a repeated last point: centre (2.5, 2.5).
  const std::vector<Sorn2dPt> sq = {{0, 0}, {5, 0}, {5, 5}, {0, 5}, {0, 5}};
  Sorn2dPt c;
  EXPECT_EQ(sorn_2d_poly_centroid(&c, sq.data(), 5), &c);
  EXPECT_EQ(c.x, 2);
  EXPECT_EQ(c.y, 2);
  const std::vector<Sorn2dPt> line = {{0, 0}, {1, 1}, {2, 2}};
  sorn_2d_poly_centroid(&c, line.data(), 3);
  EXPECT_EQ(c.x, INT32_MIN);
}

// The moment sums of the integer family are 64-bit integers: exact where
// f64 sums of the same terms would round.
TEST(PolygonInt, MomentSumsAre64BitIntegers) {
  const int32_t B = 1 << 28;
  const std::vector<Sorn2dPt> sq = {{B, B}, {B + 3, B}, {B + 3, B + 2}, {B, B + 2}, {B, B + 2}};
  SornR2dPt m1;
  sorn_2d_poly_moment1(&m1, sq.data(), 5);
  EXPECT_EQ(m1.x, B + 1.5);
  EXPECT_EQ(m1.y, B + 1.0);
}

TEST(PolygonFamilies, AgreeOnSmallIntegerPolygons) {
  auto rng = sorn_test::seeded_rng(96004);
  for (int k = 0; k < 200; ++k) {
    const int n = 3 + (int)(rng() % 20);
    auto vi = random_points<IntFamily>(rng, n, -100, 100);
    std::vector<SornF2dPt> vf;
    std::vector<SornR2dPt> vr;
    for (auto &p : vi) {
      vf.push_back({(float)p.x, (float)p.y});
      vr.push_back({(double)p.x, (double)p.y});
    }
    EXPECT_EQ(sorn_2d_poly_area(vi.data(), n), sorn_r2d_poly_area(vr.data(), n));
    EXPECT_EQ(sorn_f2d_poly_area(vf.data(), n), sorn_r2d_poly_area(vr.data(), n));
    SornR2dPt a, b, c;
    sorn_2d_poly_moment1(&a, vi.data(), n);
    sorn_f2d_poly_moment1(&b, vf.data(), n);
    sorn_r2d_poly_moment1(&c, vr.data(), n);
    if (!std::isfinite(a.x)) continue;
    EXPECT_EQ(a.x, c.x);
    EXPECT_EQ(b.y, c.y);
    for (int t = 0; t < 20; ++t) {
      const int32_t x = (int32_t)(rng() % 201) - 100, y = (int32_t)(rng() % 201) - 100;
      const int in = sorn_2d_poly_inside2(vi.data(), n, x, y);
      EXPECT_EQ(sorn_f2d_poly_inside2(vf.data(), n, (float)x, (float)y), in);
      EXPECT_EQ(sorn_r2d_poly_inside2(vr.data(), n, (double)x, (double)y), in);
    }
  }
}

}  // namespace

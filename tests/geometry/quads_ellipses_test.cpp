// Quadrilaterals and ellipses of the two float families.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "testkit.h"

namespace {

constexpr double kPi = std::numbers::pi;

template <class Q>
void expect_corners(const Q &q, std::initializer_list<std::pair<double, double>> c) {
  int i = 0;
  for (auto [x, y] : c) {
    EXPECT_EQ(q.q[i].x, x) << "corner " << i;
    EXPECT_EQ(q.q[i].y, y) << "corner " << i;
    ++i;
  }
}

TEST(QuadFromRect, CornersGoAroundFromTheOrigin) {
  const SornF2dRect fr = {1, 2, 3, 4};
  SornF2dQuad fq;
  EXPECT_EQ(__sorn_f2d_quad__$rect(&fq, &fr), &fq);
  expect_corners(fq, {{1, 2}, {1, 6}, {4, 6}, {4, 2}});
  EXPECT_EQ(sorn_f2d_quad_width(&fq), 4.0f);
  EXPECT_EQ(sorn_f2d_quad_height(&fq), 3.0f);
  EXPECT_EQ(sorn_f2d_quad_width_sqr(&fq), 16.0f);
  EXPECT_EQ(sorn_f2d_quad_height_sqr(&fq), 9.0f);
  EXPECT_EQ(sorn_f2d_quad_rotation(&fq), 0.0);
  EXPECT_EQ(sorn_f2d_quad_area(&fq), 12.0);

  const SornR2dRect rr = {1, 2, 3, 4};
  SornR2dQuad rq;
  EXPECT_EQ(__sorn_r2d_quad__$rect(&rq, &rr), &rq);
  expect_corners(rq, {{1, 2}, {1, 6}, {4, 6}, {4, 2}});
  EXPECT_EQ(sorn_r2d_quad_width(&rq), 4.0);
  EXPECT_EQ(sorn_r2d_quad_height(&rq), 3.0);
  EXPECT_EQ(sorn_r2d_quad_width_sqr(&rq), 16.0);
  EXPECT_EQ(sorn_r2d_quad_height_sqr(&rq), 9.0);
  EXPECT_EQ(sorn_r2d_quad_rotation(&rq), 0.0);
  EXPECT_EQ(sorn_r2d_quad_area(&rq), 12.0);
}

TEST(QuadFromRect, EveryFamilyOfSource) {
  const Sorn2dRect ir = {1, 2, 3, 4};
  const Sorn2dRcpt ic = {1, 2, 4, 6};
  const SornF2dRcpt fc = {1, 2, 4, 6};
  const SornR2dRcpt rc = {1, 2, 4, 6};
  const SornF2dRect fr = {1, 2, 3, 4};
  const SornR2dRect rr = {1, 2, 3, 4};
  SornF2dQuad fq;
  SornR2dQuad rq;
  for (int k = 0; k < 6; ++k) {
    switch (k) {
      case 0: __sorn_f2d_quad__$rect$i(&fq, &ir); __sorn_r2d_quad__$rect$i(&rq, &ir); break;
      case 1: __sorn_f2d_quad__$rcpt$i(&fq, &ic); __sorn_r2d_quad__$rcpt$i(&rq, &ic); break;
      case 2: __sorn_f2d_quad__$rcpt(&fq, &fc); __sorn_r2d_quad__$rcpt$f(&rq, &fc); break;
      case 3: __sorn_f2d_quad__$rcpt$r(&fq, &rc); __sorn_r2d_quad__$rcpt(&rq, &rc); break;
      case 4: __sorn_f2d_quad__$rect(&fq, &fr); __sorn_r2d_quad__$rect$f(&rq, &fr); break;
      default: __sorn_f2d_quad__$rect$r(&fq, &rr); __sorn_r2d_quad__$rect(&rq, &rr); break;
    }
    SCOPED_TRACE(k);
    expect_corners(fq, {{1, 2}, {1, 6}, {4, 6}, {4, 2}});
    expect_corners(rq, {{1, 2}, {1, 6}, {4, 6}, {4, 2}});
  }
}

TEST(QuadFromRect, FarCornerIsSummedInTheSourceFamily) {
  // 32-bit sums wrap before the conversion.
  const Sorn2dRect ir = {INT32_MAX, 0, 1, 1};
  SornR2dQuad rq;
  __sorn_r2d_quad__$rect$i(&rq, &ir);
  EXPECT_EQ(rq.q[2].x, (double)INT32_MIN);
  SornF2dQuad fq;
  __sorn_f2d_quad__$rect$i(&fq, &ir);
  EXPECT_EQ(fq.q[2].x, (float)INT32_MIN);
  // f64 sums are rounded to f32 once; f32 sums in f32.
  auto rng = sorn_test::seeded_rng(93001);
  std::uniform_real_distribution<double> u(-1e3, 1e3);
  for (int i = 0; i < 2000; ++i) {
    const SornR2dRect rr = {u(rng), u(rng), u(rng), u(rng)};
    __sorn_f2d_quad__$rect$r(&fq, &rr);
    EXPECT_EQ(fq.q[2].x, (float)(rr.x + rr.width));
    EXPECT_EQ(fq.q[2].y, (float)(rr.y + rr.height));
    EXPECT_EQ(fq.q[0].x, (float)rr.x);
    const SornF2dRect fr = {(float)u(rng), (float)u(rng), (float)u(rng), (float)u(rng)};
    __sorn_r2d_quad__$rect$f(&rq, &fr);
    EXPECT_EQ(rq.q[2].x, (double)(fr.x + fr.width));
    EXPECT_EQ(rq.q[2].y, (double)(fr.y + fr.height));
  }
}

TEST(QuadCast, ConvertsTheEightNumbers) {
  const SornR2dQuad r = {{{0.1, 0.2}, {0.3, 0.4}, {0.5, 0.6}, {0.7, 0.8}}};
  SornF2dQuad f;
  EXPECT_EQ(__sorn_f2d_quad__$cast$r(&f, &r), &f);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(f.q[i].x, (float)r.q[i].x);
    EXPECT_EQ(f.q[i].y, (float)r.q[i].y);
  }
  SornR2dQuad back;
  EXPECT_EQ(__sorn_r2d_quad__$cast$f(&back, &f), &back);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(back.q[i].x, (double)f.q[i].x);
    EXPECT_EQ(back.q[i].y, (double)f.q[i].y);
  }
}

TEST(QuadMeasures, SinglesSquareAndMultiplyInF32) {
  auto rng = sorn_test::seeded_rng(93002);
  std::uniform_real_distribution<double> u(-1e4, 1e4);
  for (int i = 0; i < 2000; ++i) {
    SornF2dQuad q;
    for (auto &p : q.q) p = {(float)u(rng), (float)u(rng)};
    const float wx = q.q[1].x - q.q[0].x, wy = q.q[1].y - q.q[0].y;
    const float hx = q.q[3].x - q.q[0].x, hy = q.q[3].y - q.q[0].y;
    const float w2 = wx * wx + wy * wy, h2 = hx * hx + hy * hy;
    EXPECT_EQ(sorn_f2d_quad_width_sqr(&q), w2);
    EXPECT_EQ(sorn_f2d_quad_height_sqr(&q), h2);
    EXPECT_EQ(sorn_f2d_quad_width(&q), std::sqrt(w2));
    EXPECT_EQ(sorn_f2d_quad_height(&q), std::sqrt(h2));
    EXPECT_EQ(sorn_f2d_quad_area(&q), std::sqrt((double)(w2 * h2)));
    EXPECT_EQ(sorn_f2d_quad_rotation(&q), std::atan2((double)wx, (double)wy));
  }
}

TEST(QuadMeasures, RotationOfATurnedSquare) {
  const double c = std::cos(0.3), s = std::sin(0.3);
  // The first side runs along (sin, cos) of the angle.
  const SornR2dQuad q = {{{0, 0}, {s, c}, {s + c, c - s}, {c, -s}}};
  EXPECT_NEAR(sorn_r2d_quad_rotation(&q), 0.3, 1e-15);
  EXPECT_NEAR(sorn_r2d_quad_area(&q), 1.0, 1e-15);
}

// An ellipse of the central moments: the semi-axes are the square roots of
// the eigenvalues times the scale, the smaller one a.
TEST(EllipseFromMoments, SemiAxesAreRootsOfEigenvaluesTimesScale) {
  const SornMoment2 m = {4.0, 0.0, 9.0};
  const SornR2dPt rc = {10.0, 20.0};
  SornR2dEll re;
  EXPECT_EQ(__sorn_r2d_ellipse__$moment2$c(&re, &rc, &m, 2.0), &re);
  EXPECT_EQ(re.cx, 10.0);
  EXPECT_EQ(re.cy, 20.0);
  EXPECT_EQ(re.a, 4.0);
  EXPECT_EQ(re.b, 6.0);
  EXPECT_EQ(re.rotation, 0.0);
  const SornF2dPt fc = {10.0f, 20.0f};
  SornF2dEll fe;
  EXPECT_EQ(__sorn_f2d_ellipse__$moment2$c(&fe, &fc, &m, 3.0), &fe);
  EXPECT_EQ(fe.a, 6.0f);
  EXPECT_EQ(fe.b, 9.0f);
  EXPECT_EQ(fe.rotation, 0.0f);
}

TEST(EllipseFromMoments, EqualEigenvaluesHaveRotationZero) {
  const SornMoment2 m = {2.25, 0.0, 2.25};
  const SornR2dPt c = {0, 0};
  SornR2dEll e;
  __sorn_r2d_ellipse__$moment2$c(&e, &c, &m, 2.0);
  EXPECT_EQ(e.rotation, 0.0);
  EXPECT_EQ(e.a, 3.0);
  EXPECT_EQ(e.b, 3.0);
}

TEST(EllipseFromMoments, CovarianceFormIsTheSame) {
  auto rng = sorn_test::seeded_rng(93003);
  std::uniform_real_distribution<double> u(-10.0, 10.0);
  for (int i = 0; i < 500; ++i) {
    const double a = 20 + u(rng), d = 20 + u(rng), b = u(rng);
    const SornMoment2 m = {a, b, d};
    const double cov[4] = {a, b, b, d};
    const SornR2dPt c = {u(rng), u(rng)};
    const SornF2dPt cf = {(float)c.x, (float)c.y};
    SornR2dEll e1, e2;
    __sorn_r2d_ellipse__$moment2$c(&e1, &c, &m, 2.0);
    EXPECT_EQ(__sorn_r2d_ellipse__$covariance(&e2, &c, cov, 2.0), &e2);
    EXPECT_EQ(std::memcmp(&e1, &e2, sizeof e1), 0);
    SornF2dEll f1, f2;
    __sorn_f2d_ellipse__$moment2$c(&f1, &cf, &m, 2.0);
    EXPECT_EQ(__sorn_f2d_ellipse__$covariance(&f2, &cf, cov, 2.0), &f2);
    EXPECT_EQ(std::memcmp(&f1, &f2, sizeof f1), 0);
    // The f32 ellipse is the f64 one rounded once: the eigenvalues stay f64.
    EXPECT_EQ(f1.a, (float)e1.a);
    EXPECT_EQ(f1.b, (float)e1.b);
    EXPECT_EQ(f1.rotation, (float)e1.rotation);
  }
}

// The normalised moments of a filled ellipse give back its semi-axes
// within what the pixel grid allows, and its orientation.
TEST(EllipseFromMoments, FilledEllipseGivesBackItsAxes) {
  auto rng = sorn_test::seeded_rng(93004);
  std::uniform_real_distribution<double> ua(8.0, 40.0), ur(-kPi / 2, kPi / 2);
  for (int k = 0; k < 40; ++k) {
    double A = ua(rng), B = ua(rng);
    if (A > B) std::swap(A, B);  // A the shorter semi-axis
    if (B - A < 2.0) B = A + 2.0;
    const double rot = ur(rng), cx = 100.25, cy = 80.5;
    // Pixels whose centres lie inside: the long axis along (sin, cos) of
    // the rotation, the short one across it.
    const double s = std::sin(rot), c = std::cos(rot);
    double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
    for (int x = 0; x < 220; ++x)
      for (int y = 0; y < 180; ++y) {
        const double dx = x - cx, dy = y - cy;
        const double along = dx * s + dy * c, across = dx * c - dy * s;
        if ((along / B) * (along / B) + (across / A) * (across / A) > 1.0) continue;
        n += 1;
        sx += x;
        sy += y;
        sxx += (double)x * x;
        sxy += (double)x * y;
        syy += (double)y * y;
      }
    const SornR2dPt centre = {sx / n, sy / n};
    const SornMoment2 m = {sxx / n - centre.x * centre.x, sxy / n - centre.x * centre.y,
                           syy / n - centre.y * centre.y};
    SornR2dEll e;
    __sorn_r2d_ellipse__$moment2$c(&e, &centre, &m, 2.0);
    SCOPED_TRACE(::testing::Message() << "A " << A << " B " << B << " rotation " << rot);
    EXPECT_NEAR(e.a, A, 0.5);
    EXPECT_NEAR(e.b, B, 0.5);
    EXPECT_NEAR(e.cx, cx, 0.2);
    EXPECT_NEAR(e.cy, cy, 0.2);
    double drot = std::remainder(e.rotation - rot, kPi);
    EXPECT_NEAR(drot, 0.0, 0.05);
    // inside2 turns the other way: it holds the points of the same ellipse
    // turned by minus the rotation, away from the boundary.
    for (int t = 0; t < 200; ++t) {
      const double px = cx + (rng() % 1000) / 10.0 - 50, py = cy + (rng() % 1000) / 10.0 - 50;
      const double dx = px - cx, dy = py - cy;
      const double along = -dx * s + dy * c, across = dx * c + dy * s;
      const double q = (along / B) * (along / B) + (across / A) * (across / A);
      if (std::fabs(q - 1.0) < 0.1) continue;
      const SornR2dEll exact = {cx, cy, A, B, rot};
      EXPECT_EQ(sorn_r2d_ell_inside2(&exact, px, py), q <= 1.0) << px << " " << py;
    }
  }
}

TEST(EllipseCast, ConvertsTheFiveNumbers) {
  const SornR2dEll r = {0.1, 0.2, 0.3, 0.4, 0.5};
  SornF2dEll f;
  EXPECT_EQ(__sorn_f2d_ellipse__$cast$r(&f, &r), &f);
  EXPECT_EQ(f.cx, 0.1f);
  EXPECT_EQ(f.cy, 0.2f);
  EXPECT_EQ(f.a, 0.3f);
  EXPECT_EQ(f.b, 0.4f);
  EXPECT_EQ(f.rotation, 0.5f);
  SornR2dEll back;
  EXPECT_EQ(__sorn_r2d_ellipse__$cast$f(&back, &f), &back);
  EXPECT_EQ(back.cx, (double)0.1f);
  EXPECT_EQ(back.rotation, (double)0.5f);
}

TEST(EllipseMeasures, AreaIsPiAB) {
  const SornF2dEll f = {0, 0, 2.0f, 3.0f, 1.0f};
  const double fa = sorn_f2d_ell_area(&f);
  EXPECT_EQ(fa, 3.0 * kPi * 2.0);
  const SornR2dEll r = {0, 0, 0.1, 0.7, 0.0};
  EXPECT_EQ(sorn_r2d_ell_area(&r), 0.7 * kPi * 0.1);
}

// Area moments that ignore the rotation, m20 from b and m02 from a.
TEST(EllipseMeasures, MomentsIgnoreTheRotation) {
  const SornR2dEll r = {1.0, 2.0, 2.0, 4.0, 0.7};
  const double k = (kPi / 4) * 4.0 * 2.0;
  SornMoment2 m;
  EXPECT_EQ(sorn_r2d_ell_moment2(&m, &r), &m);
  EXPECT_DOUBLE_EQ(m.m20, 16.0 * k + 1.0);
  EXPECT_EQ(m.m11, 2.0);
  EXPECT_DOUBLE_EQ(m.m02, 4.0 + 4.0 * k);
  EXPECT_EQ(sorn_r2d_ell_moment2_$c(&m, &r), &m);
  EXPECT_DOUBLE_EQ(m.m20, 16.0 * k);
  EXPECT_EQ(m.m11, 0.0);
  EXPECT_DOUBLE_EQ(m.m02, 4.0 * k);
  const SornF2dEll f = {1.0f, 2.0f, 2.0f, 4.0f, 0.7f};
  SornMoment2 fm;
  sorn_f2d_ell_moment2(&fm, &f);
  EXPECT_DOUBLE_EQ(fm.m20, 16.0 * k + 1.0);
  EXPECT_DOUBLE_EQ(fm.m02, 4.0 + 4.0 * k);
  sorn_f2d_ell_moment2_$c(&fm, &f);
  EXPECT_DOUBLE_EQ(fm.m02, 4.0 * k);
}

TEST(EllipseBoxes, AtRotationZero) {
  const SornR2dEll r = {10.0, 20.0, 2.0, 3.0, 0.0};
  SornR2dQuad q;
  EXPECT_EQ(sorn_r2d_ell_bquad(&q, &r), &q);
  expect_corners(q, {{8, 17}, {8, 23}, {12, 23}, {12, 17}});
  SornR2dRect b;
  EXPECT_EQ(sorn_r2d_ell_brect(&b, &r), &b);
  EXPECT_NEAR(b.x, 8.0, 1e-12);
  EXPECT_NEAR(b.y, 17.0, 1e-12);
  EXPECT_NEAR(b.width, 4.0, 1e-12);
  EXPECT_NEAR(b.height, 6.0, 1e-12);
  const SornF2dEll f = {10.0f, 20.0f, 2.0f, 3.0f, 0.0f};
  SornF2dQuad fq;
  EXPECT_EQ(sorn_f2d_ell_bquad(&fq, &f), &fq);
  expect_corners(fq, {{8, 17}, {8, 23}, {12, 23}, {12, 17}});
  SornR2dQuad frq;
  EXPECT_EQ(sorn_f2d_ell_bquad_$r(&frq, &f), &frq);
  expect_corners(frq, {{8, 17}, {8, 23}, {12, 23}, {12, 17}});
  SornF2dQuad rfq;
  EXPECT_EQ(sorn_r2d_ell_bquad_$f(&rfq, &r), &rfq);
  expect_corners(rfq, {{8, 17}, {8, 23}, {12, 23}, {12, 17}});
  SornF2dRect fb;
  EXPECT_EQ(sorn_f2d_ell_brect(&fb, &f), &fb);
  EXPECT_NEAR(fb.x, 8.0f, 1e-5);
  EXPECT_NEAR(fb.height, 6.0f, 1e-5);
}

// The bquad corners for (u, v) sit at (cx + u cos + v sin, cy - u sin + v
// cos); the bounding rectangle is that of the boundary traced the same way.
TEST(EllipseBoxes, TurnedEllipses) {
  auto rng = sorn_test::seeded_rng(93005);
  std::uniform_real_distribution<double> ur(-3.0, 3.0), ua(0.5, 20.0);
  for (int k = 0; k < 300; ++k) {
    const SornR2dEll e = {ur(rng) * 10, ur(rng) * 10, ua(rng), ua(rng), ur(rng)};
    const double s = std::sin(e.rotation), c = std::cos(e.rotation);
    SornR2dQuad q;
    sorn_r2d_ell_bquad(&q, &e);
    const double u[4] = {-e.a, -e.a, e.a, e.a}, v[4] = {-e.b, e.b, e.b, -e.b};
    for (int i = 0; i < 4; ++i) {
      EXPECT_NEAR(q.q[i].x, e.cx + u[i] * c + v[i] * s, 1e-12);
      EXPECT_NEAR(q.q[i].y, e.cy - u[i] * s + v[i] * c, 1e-12);
    }
    double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
    for (int t = 0; t < 20000; ++t) {
      const double p = 2 * kPi * t / 20000;
      const double x = e.cx + e.a * std::sin(p) * c + e.b * std::cos(p) * s;
      const double y = e.cy - e.a * std::sin(p) * s + e.b * std::cos(p) * c;
      x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
    }
    SornR2dRect b;
    sorn_r2d_ell_brect(&b, &e);
    const double tol = 1e-5 * (e.a + e.b);
    EXPECT_NEAR(b.x, x0, tol);
    EXPECT_NEAR(b.y, y0, tol);
    EXPECT_NEAR(b.width, x1 - x0, 2 * tol);
    EXPECT_NEAR(b.height, y1 - y0, 2 * tol);
  }
}

TEST(EllipseInside, CentreAndTheEndOfAAtRotationZero) {
  const SornF2dEll f = {10.0f, 20.0f, 2.0f, 3.0f, 0.0f};
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, 10.0f, 20.0f), 1);
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, 12.0f, 20.0f), 1);
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, 10.0f, 23.0f), 1);
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, 12.01f, 20.0f), 0);
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, 10.0f, 23.01f), 0);
  const SornR2dEll r = {10.0, 20.0, 2.0, 3.0, 0.0};
  EXPECT_EQ(sorn_r2d_ell_inside2(&r, 10.0, 20.0), 1);
  EXPECT_EQ(sorn_r2d_ell_inside2(&r, 12.0, 20.0), 1);
  EXPECT_EQ(sorn_r2d_ell_inside2(&r, 8.0, 20.0), 1);
  EXPECT_EQ(sorn_r2d_ell_inside2(&r, 7.99, 20.0), 0);
}

// inside2 turns its a axis to (cos, sin), the bquad to (cos, -sin): the two
// senses differ, and both are kept.
TEST(EllipseInside, TurnsTheOtherWayFromTheBquad) {
  const double rot = 0.6, s = std::sin(rot), c = std::cos(rot);
  const SornR2dEll e = {0.0, 0.0, 1.0, 1.05, rot};
  EXPECT_EQ(sorn_r2d_ell_inside2(&e, 0.999 * c, 0.999 * s), 1);
  EXPECT_EQ(sorn_r2d_ell_inside2(&e, 1.2 * c, -1.2 * s), 0);
  SornR2dQuad q;
  sorn_r2d_ell_bquad(&q, &e);
  // The middle of the bquad's side at u = a lies at (cos, -sin).
  EXPECT_NEAR((q.q[2].x + q.q[3].x) / 2, c, 1e-12);
  EXPECT_NEAR((q.q[2].y + q.q[3].y) / 2, -s, 1e-12);
  const SornF2dEll f = {0.0f, 0.0f, 1.0f, 1.05f, (float)rot};
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, (float)(0.99 * c), (float)(0.99 * s)), 1);
  EXPECT_EQ(sorn_f2d_ell_inside2(&f, (float)(1.2 * c), (float)(-1.2 * s)), 0);
}

}  // namespace

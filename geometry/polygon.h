// Polygons, a point list read as a closed ring, written once for the three
// families: the inside test, area, the moments of the enclosed area and the
// ellipse fitted to them. The units PolyUtilsInt, PolyUtilsF and PolyUtilsR
// stamp out the exported names.
#pragma once

#include <sorn.h>

#include <cmath>

#include "family.h"
#include "pointlist.h"

namespace sorn_geom {

// Even-odd crossing along the second coordinate. An edge counts when x
// lies in its half-open span (one end below x, the other not), and flips
// the answer when the point lies above the edge's y at x. The comparison is
// multiplied out by prev.x - c.x, so it holds as written when that is
// positive and turns round when it is negative.
template <class F>
int poly_inside2(const typename F::Pt *p, int32_t n, typename F::Coord x, typename F::Coord y) {
  using W = typename F::Wide;
  if (n < 2) return 0;
  int inside = 0;
  typename F::Pt prev = p[n - 1];
  const W wx = F::wide(x), wy = F::wide(y);
  for (int32_t i = 0; i < n; ++i) {
    const typename F::Pt c = p[i];
    if ((c.x < x) != (prev.x < x)) {
      const W cx = F::wide(c.x), cy = F::wide(c.y);
      const W dx = sub(F::wide(prev.x), cx);
      const W lhs = mul(dx, sub(wy, cy)), rhs = mul(sub(F::wide(prev.y), cy), sub(wx, cx));
      if (dx > 0 ? lhs > rhs : lhs < rhs) inside ^= 1;
    }
    prev = c;
  }
  return inside;
}

template <class F> double poly_area(const typename F::Pt *p, int32_t n) {
  return std::fabs(sarea<F>(p, n));
}

// The walk of the moments: prev starts at the last point and c goes over
// the first n - 1 points, so the edge from the second last point to the
// last one is never taken. That is the definition of these moments, kept
// as it is.
template <class F, class Step> void ring_walk(const typename F::Pt *p, int32_t n, Step &&step) {
  typename F::Pt prev = p[n - 1];
  for (int32_t i = 0; i + 1 < n; ++i) {
    step(prev, p[i]);
    prev = p[i];
  }
}

template <class F> SornR2dPt *poly_moment1(SornR2dPt *out, const typename F::Pt *p, int32_t n) {
  using W = typename F::Wide;
  *out = {0.0, 0.0};
  if (n < 2) return out;
  W A = 0, Sx = 0, Sy = 0;
  ring_walk<F>(p, n, [&](const typename F::Pt &pv, const typename F::Pt &c) {
    const W px = F::wide(pv.x), py = F::wide(pv.y), cx = F::wide(c.x), cy = F::wide(c.y);
    const W w = sub(mul(cx, py), mul(cy, px));
    A = add(A, w);
    Sx = add(Sx, mul(add(px, cx), w));
    Sy = add(Sy, mul(add(py, cy), w));
  });
  const double r = 1.0 / (static_cast<double>(A) * 3.0);
  *out = {static_cast<double>(Sx) * r, static_cast<double>(Sy) * r};
  return out;
}

// The sum for m11 holds both squared terms as well as the mixed one; it is
// kept as it is.
template <class F> SornMoment2 *poly_moment2(SornMoment2 *out, const typename F::Pt *p, int32_t n) {
  using W = typename F::Wide;
  *out = {0.0, 0.0, 0.0};
  if (n < 2) return out;
  W A = 0, Mxx = 0, Myy = 0, Mxy = 0;
  ring_walk<F>(p, n, [&](const typename F::Pt &pv, const typename F::Pt &c) {
    const W px = F::wide(pv.x), py = F::wide(pv.y), cx = F::wide(c.x), cy = F::wide(c.y);
    const W w = sub(mul(cx, py), mul(cy, px));
    const W xx = add(mul(cx, cx), mul(add(cx, px), px));
    const W yy = add(mul(cy, cy), mul(add(cy, py), py));
    const W xy = add(add(mul(add(cx, cx), cy), mul(add(cx, px), px)), mul(add(cy, py), py));
    A = add(A, w);
    Mxx = add(Mxx, mul(xx, w));
    Myy = add(Myy, mul(yy, w));
    Mxy = add(Mxy, mul(xy, w));
  });
  const double r = 1.0 / (static_cast<double>(A) * 6.0);
  *out = {static_cast<double>(Mxx) * r, static_cast<double>(Mxy) * r * 0.5,
          static_cast<double>(Myy) * r};
  return out;
}

template <class F>
SornMoment2 *poly_moment2c(SornMoment2 *out, const typename F::Pt *p, int32_t n) {
  SornR2dPt c;
  poly_moment1<F>(&c, p, n);
  poly_moment2<F>(out, p, n);
  return sorn_r2d_moment2_centralize_$I(out, &c);
}

template <class F> double *poly_covariance(double *out, const typename F::Pt *p, int32_t n) {
  SornMoment2 m;
  poly_moment2c<F>(&m, p, n);
  return sorn_r2d_moment2c_covariance(out, &m);
}

template <class F> SornF2dPt *poly_centroid_f(SornF2dPt *out, const typename F::Pt *p, int32_t n) {
  SornR2dPt c;
  poly_moment1<F>(&c, p, n);
  *out = {static_cast<float>(c.x), static_cast<float>(c.y)};
  return out;
}

template <class F> double poly_rotation(const typename F::Pt *p, int32_t n) {
  SornMoment2 m;
  poly_moment2c<F>(&m, p, n);
  return sorn_r2d_moment2c_rotation(&m);
}

// The ellipse of the central moments with the scale 2 of all the library's
// ellipses: centred on the centroid in f32, or on the first moments in f64.
template <class F> SornF2dEll *poly_fitell_f(SornF2dEll *out, const typename F::Pt *p, int32_t n) {
  SornF2dPt c;
  SornMoment2 m;
  poly_centroid_f<F>(&c, p, n);
  poly_moment2c<F>(&m, p, n);
  return __sorn_f2d_ellipse__$moment2$c(out, &c, &m, 2.0);
}

template <class F> SornR2dEll *poly_fitell_r(SornR2dEll *out, const typename F::Pt *p, int32_t n) {
  SornR2dPt c;
  SornMoment2 m;
  poly_moment1<F>(&c, p, n);
  poly_moment2c<F>(&m, p, n);
  return __sorn_r2d_ellipse__$moment2$c(out, &c, &m, 2.0);
}

}  // namespace sorn_geom

// The members every family has.
#define SORN_POLY_FAMILY(fam, F)                                                                \
  int sorn_##fam##_poly_inside2(const F::Pt *points, int32_t n, F::Coord x, F::Coord y) {       \
    return poly_inside2<F>(points, n, x, y);                                                    \
  }                                                                                             \
  double sorn_##fam##_poly_area(const F::Pt *points, int32_t n) {                               \
    return poly_area<F>(points, n);                                                             \
  }                                                                                             \
  SornR2dPt *sorn_##fam##_poly_moment1(SornR2dPt *out, const F::Pt *points, int32_t n) {        \
    return poly_moment1<F>(out, points, n);                                                     \
  }                                                                                             \
  SornMoment2 *sorn_##fam##_poly_moment2(SornMoment2 *out, const F::Pt *points, int32_t n) {    \
    return poly_moment2<F>(out, points, n);                                                     \
  }                                                                                             \
  SornMoment2 *sorn_##fam##_poly_moment2_$c(SornMoment2 *out, const F::Pt *points, int32_t n) { \
    return poly_moment2c<F>(out, points, n);                                                    \
  }                                                                                             \
  double *sorn_##fam##_poly_covariance(double *out, const F::Pt *points, int32_t n) {           \
    return poly_covariance<F>(out, points, n);                                                  \
  }                                                                                             \
  double sorn_##fam##_poly_rotation(const F::Pt *points, int32_t n) {                           \
    return poly_rotation<F>(points, n);                                                         \
  }

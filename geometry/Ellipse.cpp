// Ellipses of the two float families: from second moments, and their area,
// moments, bounding boxes and inside test. Everything is computed in f64;
// the f2d family rounds to f32 only when it stores.
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "family.h"

namespace {

using namespace sorn_geom;
constexpr double kPi = std::numbers::pi;

// Semi-axes are the square roots of the eigenvalues times scale: with a
// scale of 2 the normalised central moments of a filled ellipse give back
// its semi-axes. The smaller one is a, which lies along the first
// coordinate at rotation 0.
template <class E, class P>
E *from_eigen(E *out, const P *centre, const double *ev, double rot, double scale) {
  using T = decltype(out->a);
  const double a = std::sqrt(ev[0]) * scale, b = std::sqrt(ev[1]) * scale;
  *out = {static_cast<T>(centre->x), static_cast<T>(centre->y), static_cast<T>(a),
          static_cast<T>(b), static_cast<T>(rot)};
  return out;
}

template <class E, class P>
E *from_moment2c(E *out, const P *centre, const SornMoment2 *m, double scale) {
  double ev[2];
  const double rot = sorn_r2d_moment2c_xeigvals(ev, m);
  return from_eigen(out, centre, ev, rot, scale);
}

template <class E, class P>
E *from_covariance(E *out, const P *centre, const double *cov, double scale) {
  double ev[2];
  const double rot = sorn_f64_symmat2x2_xeigvals(ev, cov);
  return from_eigen(out, centre, ev, rot, scale);
}

template <class E, class S> E *cast(E *out, const S *e) {
  using T = decltype(out->a);
  const S v = *e;
  *out = {static_cast<T>(v.cx), static_cast<T>(v.cy), static_cast<T>(v.a), static_cast<T>(v.b),
          static_cast<T>(v.rotation)};
  return out;
}

template <class E> double area(const E *e) {
  return static_cast<double>(e->b) * kPi * static_cast<double>(e->a);
}

// Area moments that take no account of the rotation, with m20 from b and
// m02 from a, in the way of the rectangle's.
template <class E> SornMoment2 *moment2(SornMoment2 *out, const E *e) {
  const double cx = e->cx, cy = e->cy, a = e->a, b = e->b;
  const double k = (kPi / 4.0) * b * a;
  out->m20 = b * b * k + cx * cx;
  out->m11 = cx * cy + 0.0;
  out->m02 = cy * cy + k * (a * a);
  return out;
}

template <class E> SornMoment2 *moment2c(SornMoment2 *out, const E *e) {
  const double a = e->a, b = e->b;
  const double k = (kPi / 4.0) * b * a;
  out->m20 = b * b * k;
  out->m11 = 0.0;
  out->m02 = a * a * k;
  return out;
}

// The box of the axes, turned by the rotation.
template <class Q, class E> Q *bquad(Q *out, const E *e) {
  using T = decltype(out->q[0].x);
  const double cx = e->cx, cy = e->cy, a = e->a, b = e->b;
  double s, c;
  sincos(static_cast<double>(e->rotation), &s, &c);
  const double u[4] = {-a, -a, a, a}, v[4] = {-b, b, b, -b};
  for (int i = 0; i < 4; ++i)
    out->q[i] = {static_cast<T>(cx + u[i] * c + v[i] * s),
                 static_cast<T>(cy - u[i] * s + v[i] * c)};
  return out;
}

// The offset from the centre is taken in the family's type, then widened.
// The turn goes the other way from that of bquad: both are kept as they
// are.
template <class E, class T> int inside2(const E *e, T x, T y) {
  const double dx = static_cast<T>(x - e->cx), dy = static_cast<T>(y - e->cy);
  double s, c;
  sincos(static_cast<double>(e->rotation), &s, &c);
  const double u = (dx * c + dy * s) / e->a, v = (dy * c - dx * s) / e->b;
  return u * u + v * v <= 1.0;
}

// The extremes of the parametrised boundary, at the angles where its
// derivative in each coordinate vanishes. At rotation 0 the tangent is 0
// and its reciprocal infinite, whose arctangent is pi / 2: no special case
// is needed.
template <class R, class E> R *brect(R *out, const E *e) {
  using T = decltype(out->x);
  const double cx = e->cx, cy = e->cy, a = e->a, b = e->b;
  double s, c;
  sincos(static_cast<double>(e->rotation), &s, &c);
  const double t = std::tan(static_cast<double>(e->rotation));
  const double t1 = std::atan(-a * t / b), t2 = std::atan((1.0 / t) * a / b);
  auto X = [&](double p) { return cx + b * std::cos(p) * s + a * std::sin(p) * c; };
  auto Y = [&](double p) { return cy + b * std::cos(p) * c - a * std::sin(p) * s; };
  const double x0 = X(t2), x1 = X(t2 + kPi), y0 = Y(t1), y1 = Y(t1 + kPi);
  out->x = static_cast<T>(std::min(x0, x1));
  out->y = static_cast<T>(std::min(y0, y1));
  out->width = static_cast<T>(std::fabs(x1 - x0));
  out->height = static_cast<T>(std::fabs(y1 - y0));
  return out;
}

}  // namespace

extern "C" {

SornF2dEll *__sorn_f2d_ellipse__$moment2$c(SornF2dEll *out, const SornF2dPt *centre,
                                           const SornMoment2 *m, double scale) {
  return from_moment2c(out, centre, m, scale);
}
SornF2dEll *__sorn_f2d_ellipse__$covariance(SornF2dEll *out, const SornF2dPt *centre,
                                            const double *cov, double scale) {
  return from_covariance(out, centre, cov, scale);
}
SornF2dEll *__sorn_f2d_ellipse__$cast$r(SornF2dEll *out, const SornR2dEll *e) {
  return cast(out, e);
}

SornR2dEll *__sorn_r2d_ellipse__$moment2$c(SornR2dEll *out, const SornR2dPt *centre,
                                           const SornMoment2 *m, double scale) {
  return from_moment2c(out, centre, m, scale);
}
SornR2dEll *__sorn_r2d_ellipse__$covariance(SornR2dEll *out, const SornR2dPt *centre,
                                            const double *cov, double scale) {
  return from_covariance(out, centre, cov, scale);
}
SornR2dEll *__sorn_r2d_ellipse__$cast$f(SornR2dEll *out, const SornF2dEll *e) {
  return cast(out, e);
}

double sorn_f2d_ell_area(const SornF2dEll *e) { return area(e); }
SornMoment2 *sorn_f2d_ell_moment2(SornMoment2 *out, const SornF2dEll *e) { return moment2(out, e); }
SornMoment2 *sorn_f2d_ell_moment2_$c(SornMoment2 *out, const SornF2dEll *e) {
  return moment2c(out, e);
}
SornF2dRect *sorn_f2d_ell_brect(SornF2dRect *out, const SornF2dEll *e) { return brect(out, e); }
SornF2dQuad *sorn_f2d_ell_bquad(SornF2dQuad *out, const SornF2dEll *e) { return bquad(out, e); }
SornR2dQuad *sorn_f2d_ell_bquad_$r(SornR2dQuad *out, const SornF2dEll *e) { return bquad(out, e); }
int sorn_f2d_ell_inside2(const SornF2dEll *e, float x, float y) { return inside2(e, x, y); }

double sorn_r2d_ell_area(const SornR2dEll *e) { return area(e); }
SornMoment2 *sorn_r2d_ell_moment2(SornMoment2 *out, const SornR2dEll *e) { return moment2(out, e); }
SornMoment2 *sorn_r2d_ell_moment2_$c(SornMoment2 *out, const SornR2dEll *e) {
  return moment2c(out, e);
}
SornR2dRect *sorn_r2d_ell_brect(SornR2dRect *out, const SornR2dEll *e) { return brect(out, e); }
SornR2dQuad *sorn_r2d_ell_bquad(SornR2dQuad *out, const SornR2dEll *e) { return bquad(out, e); }
SornF2dQuad *sorn_r2d_ell_bquad_$f(SornF2dQuad *out, const SornR2dEll *e) { return bquad(out, e); }
int sorn_r2d_ell_inside2(const SornR2dEll *e, double x, double y) { return inside2(e, x, y); }

}  // extern "C"

// Quadrilaterals of the two float families: made from rectangles, cast
// between the families, and measured along their first two sides.
#include <sorn.h>

#include <cmath>

#include "shapes.h"

namespace {

using namespace sorn_geom;

// A rectangle's far corner is summed in its own family's type (32 bits,
// f32 or f64) before the conversion.
template <class Q, class F> Q *from_rect(Q *out, const typename F::Rect &r) {
  return quad_from_rcpt(out, to_rcpt<F>(r));
}

// Squared side lengths in the family's own float type.
template <class Q> auto side_sqr(const Q *q, int to) {
  const auto dx = q->q[to].x - q->q[0].x, dy = q->q[to].y - q->q[0].y;
  return dx * dx + dy * dy;
}

template <class Q> double area(const Q *q) {
  // The product of the squares is taken in the family's type, then widened.
  return std::sqrt(static_cast<double>(side_sqr(q, 1) * side_sqr(q, 3)));
}

template <class Q> double rotation(const Q *q) {
  return std::atan2(static_cast<double>(q->q[1].x - q->q[0].x),
                    static_cast<double>(q->q[1].y - q->q[0].y));
}

}  // namespace

extern "C" {

SornF2dQuad *__sorn_f2d_quad__$rcpt(SornF2dQuad *out, const SornF2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$rcpt$i(SornF2dQuad *out, const Sorn2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$rcpt$r(SornF2dQuad *out, const SornR2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$rect(SornF2dQuad *out, const SornF2dRect *r) {
  return from_rect<SornF2dQuad, Single>(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$rect$i(SornF2dQuad *out, const Sorn2dRect *r) {
  return from_rect<SornF2dQuad, Int>(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$rect$r(SornF2dQuad *out, const SornR2dRect *r) {
  return from_rect<SornF2dQuad, Real>(out, *r);
}
SornF2dQuad *__sorn_f2d_quad__$cast$r(SornF2dQuad *out, const SornR2dQuad *q) {
  return quad_cast(out, q);
}

SornR2dQuad *__sorn_r2d_quad__$rcpt(SornR2dQuad *out, const SornR2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$rcpt$i(SornR2dQuad *out, const Sorn2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$rcpt$f(SornR2dQuad *out, const SornF2dRcpt *r) {
  return quad_from_rcpt(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$rect(SornR2dQuad *out, const SornR2dRect *r) {
  return from_rect<SornR2dQuad, Real>(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$rect$i(SornR2dQuad *out, const Sorn2dRect *r) {
  return from_rect<SornR2dQuad, Int>(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$rect$f(SornR2dQuad *out, const SornF2dRect *r) {
  return from_rect<SornR2dQuad, Single>(out, *r);
}
SornR2dQuad *__sorn_r2d_quad__$cast$f(SornR2dQuad *out, const SornF2dQuad *q) {
  return quad_cast(out, q);
}

float sorn_f2d_quad_width_sqr(const SornF2dQuad *q) { return side_sqr(q, 1); }
float sorn_f2d_quad_width(const SornF2dQuad *q) { return std::sqrt(side_sqr(q, 1)); }
float sorn_f2d_quad_height_sqr(const SornF2dQuad *q) { return side_sqr(q, 3); }
float sorn_f2d_quad_height(const SornF2dQuad *q) { return std::sqrt(side_sqr(q, 3)); }
double sorn_f2d_quad_area(const SornF2dQuad *q) { return area(q); }
double sorn_f2d_quad_rotation(const SornF2dQuad *q) { return rotation(q); }

double sorn_r2d_quad_width_sqr(const SornR2dQuad *q) { return side_sqr(q, 1); }
double sorn_r2d_quad_width(const SornR2dQuad *q) { return std::sqrt(side_sqr(q, 1)); }
double sorn_r2d_quad_height_sqr(const SornR2dQuad *q) { return side_sqr(q, 3); }
double sorn_r2d_quad_height(const SornR2dQuad *q) { return std::sqrt(side_sqr(q, 3)); }
double sorn_r2d_quad_area(const SornR2dQuad *q) { return area(q); }
double sorn_r2d_quad_rotation(const SornR2dQuad *q) { return rotation(q); }

}  // extern "C"

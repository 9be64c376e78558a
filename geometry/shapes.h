// Rectangles and quadrilaterals made from one another, shared by the
// rectangle, quadrilateral and point-list units.
#pragma once

#include "family.h"

namespace sorn_geom {

// A rectangle as two corners and back, the sums and differences taken in
// the family's coordinate type.
template <class F> inline typename F::Rcpt to_rcpt(const typename F::Rect &r) {
  return {r.x, r.y, F::cadd(r.x, r.width), F::cadd(r.y, r.height)};
}

template <class F> inline typename F::Rect to_rect(const typename F::Rcpt &c) {
  return {c.x0, c.y0, F::csub(c.x1, c.x0), F::csub(c.y1, c.y0)};
}

// The corners of a corner rectangle, going (x0, y0), (x0, y1), (x1, y1),
// (x1, y0), each cell converted to the quad's coordinate type.
template <class Q, class R> inline Q *quad_from_rcpt(Q *out, const R &r) {
  using T = decltype(out->q[0].x);
  const T x0 = static_cast<T>(r.x0), y0 = static_cast<T>(r.y0);
  const T x1 = static_cast<T>(r.x1), y1 = static_cast<T>(r.y1);
  out->q[0] = {x0, y0};
  out->q[1] = {x0, y1};
  out->q[2] = {x1, y1};
  out->q[3] = {x1, y0};
  return out;
}

template <class Q, class S> inline Q *quad_cast(Q *out, const S *q) {
  using T = decltype(out->q[0].x);
  const S v = *q;
  for (int i = 0; i < 4; ++i) out->q[i] = {static_cast<T>(v.q[i].x), static_cast<T>(v.q[i].y)};
  return out;
}

}  // namespace sorn_geom

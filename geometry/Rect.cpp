// Rectangles by origin and extents (rect) and by two corners (rcpt), in the
// three families: conversions, union and the library's own intersection,
// moments, and for the integer family growing by borders.
#include <sorn.h>

#include <algorithm>
#include <type_traits>

#include "shapes.h"

namespace {

using namespace sorn_geom;

// Every cell takes the larger value, the far corner too: the result
// reaches as far as the further of the two rectangles. This is the
// library's defined intersection, not the geometric one.
template <class F> typename F::Rcpt intersec(const typename F::Rcpt &a, const typename F::Rcpt &b) {
  return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

template <class F> typename F::Rcpt general(const typename F::Rcpt &a, const typename F::Rcpt &b) {
  return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

template <class F, class Out, class In>
Out *rcpt_op(Out *out, const In *a, const In *b,
             typename F::Rcpt (*op)(const typename F::Rcpt &, const typename F::Rcpt &)) {
  *out = op(a ? *a : *out, *b);
  return out;
}

template <class F>
typename F::Rect *rect_op(typename F::Rect *out, const typename F::Rect *a,
                          const typename F::Rect *b,
                          typename F::Rcpt (*op)(const typename F::Rcpt &,
                                                 const typename F::Rcpt &)) {
  *out = to_rect<F>(op(to_rcpt<F>(a ? *a : *out), to_rcpt<F>(*b)));
  return out;
}

// The moments of a rectangle from its centre and extents. The second
// moments are area moments, not divided by the area, and m20 pairs with
// the second extent, m02 with the first: both are the library's
// definition.
SornMoment2 *moment2(SornMoment2 *out, double cx, double cy, double w, double h) {
  const double k = w * h / 12.0;
  out->m20 = h * h * k + cx * cx;
  out->m11 = cx * cy + 0.0;
  out->m02 = cy * cy + w * w * k;
  return out;
}

SornMoment2 *moment2c(SornMoment2 *out, double w, double h) {
  const double k = w * h / 12.0;
  out->m20 = h * h * k;
  out->m11 = 0.0;
  out->m02 = w * w * k;
  return out;
}

// Centre and extents as f64. Sums and differences are taken in the
// family's coordinate type (32 bits for integers, f32 for f2d) and only
// then widened.
struct Shape {
  double cx, cy, w, h;
};

template <class F> Shape shape_of(const typename F::Rcpt &r) {
  return {static_cast<double>(F::cadd(r.x0, r.x1)) * 0.5,
          static_cast<double>(F::cadd(r.y0, r.y1)) * 0.5, static_cast<double>(F::csub(r.x1, r.x0)),
          static_cast<double>(F::csub(r.y1, r.y0))};
}

template <class F> Shape shape_of(const typename F::Rect &r) {
  Shape s{0, 0, static_cast<double>(r.width), static_cast<double>(r.height)};
  if constexpr (std::is_same_v<F, Single>) {
    s.cx = r.x + r.width * 0.5f;
    s.cy = r.y + r.height * 0.5f;
  } else {
    s.cx = static_cast<double>(r.x) + static_cast<double>(r.width) * 0.5;
    s.cy = static_cast<double>(r.y) + static_cast<double>(r.height) * 0.5;
  }
  return s;
}

// The moments of either kind of rectangle, B its record.
template <class F, class B> SornR2dPt *box_moment1(SornR2dPt *out, const B *r) {
  const Shape s = shape_of<F>(*r);
  *out = {s.cx, s.cy};
  return out;
}
template <class F, class B> SornMoment2 *box_moment2(SornMoment2 *out, const B *r) {
  const Shape s = shape_of<F>(*r);
  return moment2(out, s.cx, s.cy, s.w, s.h);
}
template <class F, class B> SornMoment2 *box_moment2c(SornMoment2 *out, const B *r) {
  const Shape s = shape_of<F>(*r);
  return moment2c(out, s.w, s.h);
}

// The centre computed in f32 throughout.
template <class F> SornF2dPt *rcpt_centroid(SornF2dPt *out, const typename F::Rcpt *r) {
  out->x = static_cast<float>(F::cadd(r->x0, r->x1)) * 0.5f;
  out->y = static_cast<float>(F::cadd(r->y0, r->y1)) * 0.5f;
  return out;
}
template <class F> SornF2dPt *rect_centroid(SornF2dPt *out, const typename F::Rect *r) {
  out->x = static_cast<float>(r->x) + static_cast<float>(r->width) * 0.5f;
  out->y = static_cast<float>(r->y) + static_cast<float>(r->height) * 0.5f;
  return out;
}

// Both edges belong to the rectangle.
template <class F>
int inside2(const typename F::Rect *r, typename F::Coord x, typename F::Coord y) {
  const typename F::Coord dx = x - r->x, dy = y - r->y;
  return dx >= 0 && dx <= r->width && dy >= 0 && dy <= r->height;
}

}  // namespace

// The members every family has.
#define SORN_RECT_FAMILY(fam, F)                                                          \
  F::Rcpt *sorn_##fam##_rcpt_convert(F::Rcpt *out, const F::Rect *rect) {                 \
    *out = to_rcpt<F>(rect ? *rect : *reinterpret_cast<const F::Rect *>(out));            \
    return out;                                                                           \
  }                                                                                       \
  F::Rect *sorn_##fam##_rect_convert(F::Rect *out, const F::Rcpt *rcpt) {                 \
    *out = to_rect<F>(rcpt ? *rcpt : *reinterpret_cast<const F::Rcpt *>(out));            \
    return out;                                                                           \
  }                                                                                       \
  F::Rcpt *sorn_##fam##_rcpt_intersec(F::Rcpt *out, const F::Rcpt *a, const F::Rcpt *b) { \
    return rcpt_op<F>(out, a, b, intersec<F>);                                            \
  }                                                                                       \
  F::Rcpt *sorn_##fam##_rcpt_general(F::Rcpt *out, const F::Rcpt *a, const F::Rcpt *b) {  \
    return rcpt_op<F>(out, a, b, general<F>);                                             \
  }                                                                                       \
  F::Rect *sorn_##fam##_rect_intersec(F::Rect *out, const F::Rect *a, const F::Rect *b) { \
    return rect_op<F>(out, a, b, intersec<F>);                                            \
  }                                                                                       \
  F::Rect *sorn_##fam##_rect_intersec_$I(F::Rect *out, const F::Rect *b) {                \
    return rect_op<F>(out, out, b, intersec<F>);                                          \
  }                                                                                       \
  F::Rect *sorn_##fam##_rect_general(F::Rect *out, const F::Rect *a, const F::Rect *b) {  \
    return rect_op<F>(out, a, b, general<F>);                                             \
  }                                                                                       \
  F::Rect *sorn_##fam##_rect_general_$I(F::Rect *out, const F::Rect *b) {                 \
    return rect_op<F>(out, out, b, general<F>);                                           \
  }                                                                                       \
  SornR2dPt *sorn_##fam##_rcpt_moment1(SornR2dPt *out, const F::Rcpt *r) {                \
    return box_moment1<F, F::Rcpt>(out, r);                                               \
  }                                                                                       \
  SornMoment2 *sorn_##fam##_rcpt_moment2(SornMoment2 *out, const F::Rcpt *r) {            \
    return box_moment2<F, F::Rcpt>(out, r);                                               \
  }                                                                                       \
  SornMoment2 *sorn_##fam##_rcpt_moment2_$c(SornMoment2 *out, const F::Rcpt *r) {         \
    return box_moment2c<F, F::Rcpt>(out, r);                                              \
  }                                                                                       \
  SornR2dPt *sorn_##fam##_rect_moment1(SornR2dPt *out, const F::Rect *r) {                \
    return box_moment1<F, F::Rect>(out, r);                                               \
  }                                                                                       \
  SornMoment2 *sorn_##fam##_rect_moment2(SornMoment2 *out, const F::Rect *r) {            \
    return box_moment2<F, F::Rect>(out, r);                                               \
  }                                                                                       \
  SornMoment2 *sorn_##fam##_rect_moment2_$c(SornMoment2 *out, const F::Rect *r) {         \
    return box_moment2c<F, F::Rect>(out, r);                                              \
  }

extern "C" {

SORN_RECT_FAMILY(2d, Int)
SORN_RECT_FAMILY(f2d, Single)
SORN_RECT_FAMILY(r2d, Real)

SornF2dPt *sorn_2d_rcpt_centroid_$f(SornF2dPt *out, const Sorn2dRcpt *r) {
  return rcpt_centroid<Int>(out, r);
}
SornF2dPt *sorn_2d_rect_centroid_$f(SornF2dPt *out, const Sorn2dRect *r) {
  return rect_centroid<Int>(out, r);
}
SornF2dPt *sorn_f2d_rcpt_centroid(SornF2dPt *out, const SornF2dRcpt *r) {
  return rcpt_centroid<Single>(out, r);
}
SornF2dPt *sorn_f2d_rect_centroid(SornF2dPt *out, const SornF2dRect *r) {
  return rect_centroid<Single>(out, r);
}

int sorn_f2d_rect_inside2(const SornF2dRect *rect, float x, float y) {
  return inside2<Single>(rect, x, y);
}
int sorn_r2d_rect_inside2(const SornR2dRect *rect, double x, double y) {
  return inside2<Real>(rect, x, y);
}

/* ---- growing integer rectangles ---- */

Sorn2dRect *sorn_2d_rect_extend(Sorn2dRect *out, const Sorn2dRect *rect, const int32_t *border) {
  if (!rect) return sorn_2d_rect_extend_$I(out, border);
  const Sorn2dRect r = *rect;
  const int32_t left = border[0], top = border[1], right = border[2], bottom = border[3];
  out->x = Int::csub(r.x, left);
  out->y = Int::csub(r.y, top);
  out->width = Int::cadd(Int::cadd(r.width, left), right);
  out->height = Int::cadd(Int::cadd(r.height, top), bottom);
  return out;
}

Sorn2dRect *sorn_2d_rect_extend_$I(Sorn2dRect *out, const int32_t *border) {
  return sorn_2d_rect_extend(out, out, border);
}

int sorn_2d_rect_rextend(Sorn2dRect *out, Sorn2dRect *extended, const Sorn2dRect *rect,
                         const int32_t *border, const Sorn2dRect *limit) {
  sorn_2d_rect_extend(extended, rect, border);
  const Sorn2dRect ext = *extended;
  sorn_2d_rect_intersec(out, &ext, limit);
  return ext.width <= out->width && ext.height <= out->height;
}

Sorn2dRect *sorn_2d_rect_srextend(Sorn2dRect *out, const Sorn2dRect *rect, int32_t dx, int32_t dy,
                                  int32_t width, int32_t height) {
  const Sorn2dRect r = rect ? *rect : *out;
  const Sorn2dRect grown = {Int::csub(r.x, dx), Int::csub(r.y, dy),
                            Int::cadd(r.width, Int::cadd(dx, dx)),
                            Int::cadd(r.height, Int::cadd(dy, dy))};
  const Sorn2dRect frame = {0, 0, width, height};
  return sorn_2d_rect_intersec(out, &frame, &grown);
}

}  // extern "C"

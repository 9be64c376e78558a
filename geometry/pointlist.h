// Point lists, written once for the three families: signed area,
// convexity, the sort around the lowest point, the convex hull, moments,
// bounding boxes and the bounding quadrilateral of least area by rotating
// calipers. The units PointListInt, PointListF and PointListR instantiate
// these templates behind the exported names.
#pragma once

#include <sorn.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "family.h"
#include "shapes.h"

namespace sorn_geom {

// Half the sum of cur.x prev.y - prev.x cur.y around the ring.
template <class F> double sarea(const typename F::Pt *p, int32_t n) {
  if (n < 2) return 0.0;
  typename F::Wide sum = 0;
  typename F::Pt prev = p[n - 1];
  for (int32_t i = 0; i < n; ++i) {
    const typename F::Pt cur = p[i];
    sum = add(sum, sub(mul(F::wide(cur.x), F::wide(prev.y)), mul(F::wide(prev.x), F::wide(cur.y))));
    prev = cur;
  }
  return static_cast<double>(sum) * 0.5;
}

// Only the first turn is the reference. In the float families a flat turn
// (within the tolerance) never decides, so a list whose first turn is flat
// is never rejected. In the integer family a flat first turn counts as
// positive, and a flat later turn is never rejected.
template <class F> int isconvex(const typename F::Pt *p, int32_t n) {
  if (n < 3) return 0;
  typename F::Pt p0 = p[n - 2], p1 = p[n - 1];
  typename F::Wide r = 0;
  for (int32_t i = 0; i < n; ++i) {
    const typename F::Pt c = p[i];
    const typename F::Wide k = cross<F>(p0, p1, c);
    if (i == 0) {
      r = k;
    } else if constexpr (F::kExact) {
      if (r >= 0 ? k < 0 : k > 0) return 0;
    } else {
      if ((F::above(k) && F::below(r)) || (F::below(k) && F::above(r))) return 0;
    }
    p0 = p1;
    p1 = c;
  }
  return 1;
}

// Three neighbours at a time from the start, without wrapping around.
template <class F> int all_colinear(const typename F::Pt *p, int32_t n) {
  for (int32_t i = 0; i + 2 < n; ++i) {
    const typename F::Wide k = cross<F>(p[i], p[i + 1], p[i + 2]);
    if constexpr (F::kExact) {
      if (k != 0) return 0;
    } else {
      if (std::fabs(k) > kEps) return 0;
    }
  }
  return 1;
}

// A tie of x within the tolerance goes to the smaller y, so the winner may
// have a slightly larger x: that is intended.
template <class F> const typename F::Pt *lowest(const typename F::Pt *p, int32_t n) {
  const typename F::Pt *best = p;
  for (int32_t i = 1; i < n; ++i) {
    const typename F::Pt &c = p[i];
    bool tie;
    if constexpr (F::kExact)
      tie = c.x == best->x;
    else
      tie = std::fabs(F::wide(c.x) - F::wide(best->x)) <= kEps;
    if (best->x > c.x || (tie && best->y > c.y)) best = &c;
  }
  return best;
}

// The order of two offsets from the pivot: by their angles atan2(x, y),
// apart by more than the tolerance, else by their lengths, the nearer
// first and never 0. The angles are only taken where they decide near the
// tolerance: elsewhere the sign of the cross product tells the same (two
// offsets with x > 0, or x = 0 and y > 0, lie within half a turn, where the
// cross and dot products fix the difference of the angles), and the test
// keeps a margin of a factor of 2 on either side of the tolerance, many
// orders above the rounding of either way of computing. Offsets whose
// squared lengths leave the comfortable range of f64 take the angles too.
inline int32_t compare_offsets(double ax, double ay, double bx, double by) {
  auto plain = [](double x, double y) { return x > 0 || (x == 0 && y > 0); };
  const double norms = (ax * ax + ay * ay) * (bx * bx + by * by);
  if (plain(ax, ay) && plain(bx, by) && norms > 1e-280 && norms < 1e280) {
    const double cross = ay * bx - ax * by;  // positive when b's angle is the larger
    const double dot = ax * bx + ay * by;
    const double c2 = cross * cross;
    if (dot <= 0 || c2 > 4 * kEps * kEps * norms) {
      if (cross > 0) return -1;
      if (cross < 0) return 1;
    } else if (c2 < 0.25 * kEps * kEps * norms) {
      const double da = std::sqrt(ax * ax + ay * ay), db = std::sqrt(bx * bx + by * by);
      return db - da > kEps ? -1 : 1;
    }
  }
  const double anga = std::atan2(ax, ay), angb = std::atan2(bx, by);
  if (angb - anga > kEps) return -1;
  if (anga - angb > kEps) return 1;
  const double da = std::sqrt(ax * ax + ay * ay), db = std::sqrt(bx * bx + by * by);
  return db - da > kEps ? -1 : 1;
}

// Below 0 when a goes before b: by the angle around the pivot, measured
// from the second coordinate toward the first, then by the distance. Only
// coincident points compare equal; a tie of distances is never 0.
template <class F>
int32_t sort_compare(const typename F::Pt *a, const typename F::Pt *b,
                     const typename F::Pt *pivot) {
  if (a == b) return 0;
  if (F::same(*a, *b)) return 0;
  const double px = F::wide(pivot->x), py = F::wide(pivot->y);
  const double ax = static_cast<double>(F::wide(a->x)) - px,
               ay = static_cast<double>(F::wide(a->y)) - py;
  const double bx = static_cast<double>(F::wide(b->x)) - px,
               by = static_cast<double>(F::wide(b->y)) - py;
  return compare_offsets(ax, ay, bx, by);
}

// Integer offsets from the pivot of at most this many units in either
// coordinate have lengths below 1400 sqrt(2), so that two offsets that are
// not parallel differ in angle by more than twice the tolerance (the sine
// of the difference is at least 1 / (|a| |b|)), and two points on one ray
// differ in distance by at least 1. There the order of the comparison is
// exactly that of the cross product, then of the squared lengths.
inline constexpr int64_t kExactSpan = 1400;

// The comparison on such offsets, in integers. Every offset lies in the
// half-plane of x > 0, or x = 0 and y >= 0, the pivot being the lowest
// point.
inline int32_t compare_exact_offsets(int64_t ax, int64_t ay, int64_t bx, int64_t by) {
  const int64_t cross = ay * bx - ax * by;
  if (cross > 0) return -1;
  if (cross < 0) return 1;
  return bx * bx + by * by > ax * ax + ay * ay ? -1 : 1;
}

// Whether every point lies within kExactSpan of the pivot in both
// coordinates.
inline bool within_exact_span(const Sorn2dPt *p, int32_t n, const Sorn2dPt &pivot) {
  int64_t span = 0;
  for (int32_t i = 0; i < n; ++i) {
    const int64_t dx = (int64_t)p[i].x - pivot.x, dy = (int64_t)p[i].y - pivot.y;
    span = std::max(span, std::max(dx < 0 ? -dx : dx, dy < 0 ? -dy : dy));
  }
  return span <= kExactSpan;
}

// An iterative quicksort with an explicit stack of ranges: the larger side
// is pushed and the smaller goes on, so the stack never holds more than
// log2(n) ranges, and 64 entries hold any s32 count.
template <class Pt, class Cmp> void quicksort(Pt *p, int32_t n, Cmp &&cmp) {
  auto swap = [p](int32_t i, int32_t j) { std::swap(p[i], p[j]); };
  struct Range {
    int32_t lo, hi;
  };
  Range stack[64];
  int32_t depth = 0;
  int32_t lo = 0, hi = n - 1;
  for (;;) {
    const int32_t count = hi - lo + 1;
    if (count <= 8) {
      if (count == 2) {
        if (cmp(&p[lo], &p[hi]) > 0) swap(lo, hi);
      } else if (count >= 3) {
        for (int32_t i = lo; i < hi; ++i) {
          int32_t m = i;
          for (int32_t j = i + 1; j <= hi; ++j)
            if (cmp(&p[j], &p[m]) < 0) m = j;
          if (m != i) swap(i, m);
        }
      }
      if (depth == 0) break;
      --depth;
      lo = stack[depth].lo;
      hi = stack[depth].hi;
      continue;
    }
    // The median of first, middle and last comes to the last place.
    const int32_t mid = lo + count / 2;
    if (cmp(&p[lo], &p[mid]) > 0) swap(lo, mid);
    if (cmp(&p[mid], &p[hi]) < 0) swap(mid, hi);
    if (cmp(&p[lo], &p[hi]) > 0) swap(lo, hi);
    const Pt *v = &p[hi];
    int32_t i = lo;
    while (cmp(&p[i], v) < 0) ++i;
    int32_t j = hi - 1;
    while (j > i && !(cmp(&p[j], v) < 0)) --j;
    while (i < j) {
      swap(i, j);
      while (cmp(&p[i], v) < 0) ++i;
      while (j > i && !(cmp(&p[j], v) < 0)) --j;
    }
    if (i == lo) {
      // Nothing compares below v: v is a smallest value. It goes first,
      // the points equal to it gather behind it, and the range goes on
      // after that block.
      if (cmp(&p[lo], &p[hi]) != 0) swap(lo, hi);
      int32_t a = lo + 1, b = hi;
      for (;;) {
        while (a <= b && cmp(&p[a], &p[lo]) == 0) ++a;
        while (b > a && cmp(&p[b], &p[lo]) > 0) --b;
        if (a >= b) break;
        swap(a, b);
        ++a;
        --b;
      }
      lo = a;
      continue;
    }
    swap(i, hi);
    if (i == hi) {
      hi = i - 1;
      continue;
    }
    const Range left = {lo, i - 1}, right = {i + 1, hi};
    const bool left_smaller = left.hi - left.lo < right.hi - right.lo;
    if (depth == 64) std::abort();  // cannot happen: see above
    stack[depth++] = left_smaller ? right : left;
    lo = left_smaller ? left.lo : right.lo;
    hi = left_smaller ? left.hi : right.hi;
  }
}

// Sorts around the lowest point. Integer lists within the exact span take
// the integer form of the comparison, which orders them the same way.
template <class F> typename F::Pt *sort(typename F::Pt *p, int32_t n) {
  using Pt = typename F::Pt;
  if (n < 1) return p;
  const Pt pivot = *lowest<F>(p, n);
  if constexpr (F::kExact) {
    if (within_exact_span(p, n, pivot)) {
      quicksort(p, n, [&pivot](const Pt *a, const Pt *b) {
        if (a == b || F::same(*a, *b)) return 0;
        return compare_exact_offsets((int64_t)a->x - pivot.x, (int64_t)a->y - pivot.y,
                                     (int64_t)b->x - pivot.x, (int64_t)b->y - pivot.y);
      });
      return p;
    }
  }
  quicksort(p, n, [&pivot](const Pt *a, const Pt *b) { return sort_compare<F>(a, b, &pivot); });
  return p;
}

// A Graham scan in place over a sorted list. t is the index of the point
// below the top; the top b always equals p[t + 1]. A turn the wrong way
// pops the top, a flat turn replaces it.
template <class F> int32_t graham_scan(typename F::Pt *p, int32_t n) {
  using Pt = typename F::Pt;
  int32_t t = 0;
  Pt b = p[1];
  for (int32_t i = 2; i < n; ++i) {
    const Pt c = p[i];
    typename F::Wide k = cross<F>(p[t], b, c);
    // The first point is the pivot and is never popped; a wrong turn there
    // (possible only between points whose angles tie within the tolerance)
    // is treated as flat.
    while (F::below(k) && t > 0) {
      b = p[t];
      --t;
      k = cross<F>(p[t], b, c);
    }
    if (F::above(k)) ++t;
    p[t + 1] = c;
    b = c;
  }
  return t + 2;
}

int32_t convexhull_filtered(Sorn2dPt *p, int32_t n);

// The hull in place: fewer than four points are left as they stand, and a
// list on one line keeps all its points, sorted. Integer lists first try
// the way that leaves out the points strictly inside (see
// convexhull_filtered), which gives the same hull where it applies.
template <class F> int32_t convexhull_inplace(typename F::Pt *p, int32_t n) {
  if (n < 4) return n;
  if constexpr (F::kExact) {
    const int32_t h = convexhull_filtered(p, n);
    if (h >= 0) return h;
  }
  sort<F>(p, n);
  if (all_colinear<F>(p, n)) return n;
  return graham_scan<F>(p, n);
}

template <class F> int32_t convexhull(typename F::Pt *out, const typename F::Pt *p, int32_t n) {
  if (n < 1) return 0;
  std::memmove(out, p, static_cast<size_t>(n) * sizeof *p);
  return convexhull_inplace<F>(out, n);
}

// The block comes from the system allocator: the caller frees it with free.
template <class F>
int32_t aconvexhull(typename F::Pt **outpointer, const typename F::Pt *p, int32_t n) {
  *outpointer = nullptr;
  if (n < 1) return 0;
  auto *block = static_cast<typename F::Pt *>(std::malloc(static_cast<size_t>(n) * sizeof *p));
  if (!block) return 0;
  *outpointer = block;
  return convexhull<F>(block, p, n);
}

// Sums in the family's wide type (64-bit integers, wrapping, for the
// integer family), converted at the end and scaled by the reciprocal of n.
// An empty list gives values that are not numbers.
template <class F> SornR2dPt *moment1(SornR2dPt *out, const typename F::Pt *p, int32_t n) {
  typename F::Wide sx = 0, sy = 0;
  for (int32_t i = 0; i < n; ++i) {
    sx = add(sx, F::wide(p[i].x));
    sy = add(sy, F::wide(p[i].y));
  }
  const double r = 1.0 / n;
  *out = {static_cast<double>(sx) * r, static_cast<double>(sy) * r};
  return out;
}

template <class F> SornMoment2 *moment2(SornMoment2 *out, const typename F::Pt *p, int32_t n) {
  typename F::Wide sxx = 0, sxy = 0, syy = 0;
  for (int32_t i = 0; i < n; ++i) {
    const typename F::Wide x = F::wide(p[i].x), y = F::wide(p[i].y);
    sxx = add(sxx, mul(x, x));
    sxy = add(sxy, mul(x, y));
    syy = add(syy, mul(y, y));
  }
  const double r = 1.0 / n;
  *out = {static_cast<double>(sxx) * r, static_cast<double>(sxy) * r, static_cast<double>(syy) * r};
  return out;
}

template <class F> SornMoment2 *moment2c(SornMoment2 *out, const typename F::Pt *p, int32_t n) {
  SornR2dPt c;
  moment1<F>(&c, p, n);
  moment2<F>(out, p, n);
  return sorn_r2d_moment2_centralize_$I(out, &c);
}

template <class F> double *covariance(double *out, const typename F::Pt *p, int32_t n) {
  SornMoment2 m;
  moment2c<F>(&m, p, n);
  return sorn_r2d_moment2c_covariance(out, &m);
}

template <class F> SornF2dPt *centroid_f(SornF2dPt *out, const typename F::Pt *p, int32_t n) {
  SornR2dPt c;
  moment1<F>(&c, p, n);
  *out = {static_cast<float>(c.x), static_cast<float>(c.y)};
  return out;
}

// The smallest and largest coordinates, as a corner rectangle in the
// family's coordinate type. The scan starts from the type's extremes,
// which an empty list gives back.
template <class F> typename F::Rcpt scan_box(const typename F::Pt *p, int32_t n) {
  using C = typename F::Coord;
  C x0 = std::numeric_limits<C>::max(), y0 = x0;
  C x1 = std::numeric_limits<C>::lowest(), y1 = x1;
  for (int32_t i = 0; i < n; ++i) {
    if (p[i].x < x0) x0 = p[i].x;
    if (p[i].x > x1) x1 = p[i].x;
    if (p[i].y < y0) y0 = p[i].y;
    if (p[i].y > y1) y1 = p[i].y;
  }
  return {x0, y0, x1, y1};
}

// Extents without a plus one; an empty integer list thus has widths that
// wrap to 1.
template <class F>
typename F::Rect *brect(typename F::Rect *out, const typename F::Pt *p, int32_t n) {
  *out = to_rect<F>(scan_box<F>(p, n));
  return out;
}

template <class F, class Q> Q *bquad(Q *out, const typename F::Pt *p, int32_t n) {
  return quad_from_rcpt(out, scan_box<F>(p, n));
}

// The edge leaving vertex i of the hull.
template <class F>
void edge(const typename F::Pt *hull, int32_t n, int32_t i, typename F::Wide &ex,
          typename F::Wide &ey) {
  const typename F::Pt &a = hull[i], &b = hull[(i + 1) % n];
  ex = sub(F::wide(b.x), F::wide(a.x));
  ey = sub(F::wide(b.y), F::wide(a.y));
}

// Of the jaw pair[0] and the jaw opposite it, which next edge turns less
// from its jaw's line: compared by how far the opposite vertex and the one
// after it lie from the line of the first jaw's edge. The opposite jaw goes
// first; both are chosen when the edges are parallel.
template <class F>
int32_t dorotjawsel(int32_t *pair, const int32_t *jaws, const typename F::Pt *hull, int32_t n) {
  using W = typename F::Wide;
  const int32_t j = pair[0], o = (j + 2) % 4;
  W ex, ey;
  edge<F>(hull, n, jaws[j], ex, ey);
  const typename F::Pt &v = hull[jaws[j]];
  auto measure = [&](const typename F::Pt &q) {
    return absval(
        sub(mul(ex, sub(F::wide(q.y), F::wide(v.y))), mul(ey, sub(F::wide(q.x), F::wide(v.x)))));
  };
  const W c1 = measure(hull[jaws[o]]), c2 = measure(hull[(jaws[o] + 1) % n]);
  int32_t count = 0;
  if (F::at_most(c1, c2)) pair[count++] = o;
  if (F::at_most(c2, c1)) pair[count++] = j;
  return count;
}

// The box flush with the edge that ends at vertex P = hull[jaws[r]], in
// the line A x + B y + C = 0 through it and the vertex before it.
template <class F> struct Flush {
  using W = typename F::Wide;
  W A, B, C;
  typename F::Pt O, R, L;

  Flush(const typename F::Pt *hull, int32_t n, const int32_t *jaws, int32_t r) {
    const typename F::Pt &P = hull[jaws[r]], &Q = hull[(jaws[r] + n - 1) % n];
    A = sub(F::wide(P.y), F::wide(Q.y));
    B = sub(F::wide(Q.x), F::wide(P.x));
    C = sub(mul(F::wide(P.x), F::wide(Q.y)), mul(F::wide(Q.x), F::wide(P.y)));
    O = hull[jaws[(r + 2) % 4]];
    R = hull[jaws[(r + 1) % 4]];
    L = hull[jaws[(r + 3) % 4]];
  }
  // |height times width| times A^2 + B^2, and A^2 + B^2.
  W numerator() const {
    const W h = add(add(mul(A, F::wide(O.x)), mul(B, F::wide(O.y))), C);
    const W w =
        sub(mul(sub(F::wide(R.y), F::wide(L.y)), A), mul(sub(F::wide(R.x), F::wide(L.x)), B));
    return absval(mul(h, w));
  }
  W denominator() const { return add(mul(A, A), mul(B, B)); }

  // The four projections: O's side at R and at L, then the edge's line at
  // L and at R. The integer family sums its numerators in 64 bits and
  // scales them by the f64 reciprocal.
  SornR2dQuad *corners(SornR2dQuad *out) const {
    const double s = 1.0 / static_cast<double>(denominator());
    const W A2 = mul(A, A), B2 = mul(B, B), AB = mul(A, B);
    const W ox = F::wide(O.x), oy = F::wide(O.y), rx = F::wide(R.x), ry = F::wide(R.y);
    const W lx = F::wide(L.x), ly = F::wide(L.y);
    auto f = [s](W v) { return static_cast<double>(v) * s; };
    out->q[0] = {f(add(add(mul(ox, A2), mul(rx, B2)), mul(sub(oy, ry), AB))),
                 f(add(add(mul(ry, A2), mul(oy, B2)), mul(sub(ox, rx), AB)))};
    out->q[1] = {f(add(add(mul(ox, A2), mul(lx, B2)), mul(sub(oy, ly), AB))),
                 f(add(add(mul(ly, A2), mul(oy, B2)), mul(sub(ox, lx), AB)))};
    out->q[2] = {f(sub(sub(mul(lx, B2), mul(ly, AB)), mul(C, A))),
                 f(sub(sub(mul(ly, A2), mul(lx, AB)), mul(C, B)))};
    out->q[3] = {f(sub(sub(mul(rx, B2), mul(ry, AB)), mul(C, A))),
                 f(sub(sub(mul(ry, A2), mul(rx, AB)), mul(C, B)))};
    return out;
  }
};

// Rotating calipers over a hull of three points or more, in the hull's
// order: four jaws at the vertices of smallest x, largest y, largest x and
// smallest y turn together, each round advancing the jaws whose next edge
// turns least, until jaw 0 has passed the vertex where jaw 1 began. Every
// box flush with an edge is measured; the first of equal areas is kept.
template <class F>
SornR2dQuad *minbquad_hull(SornR2dQuad *out, const typename F::Pt *hull, int32_t n) {
  using W = typename F::Wide;
  int32_t jaws[4] = {0, 0, 0, 0};
  for (int32_t i = 1; i < n; ++i) {
    if (hull[i].x < hull[jaws[0]].x) jaws[0] = i;
    if (hull[i].y > hull[jaws[1]].y) jaws[1] = i;
    if (hull[i].x > hull[jaws[2]].x) jaws[2] = i;
    if (hull[i].y < hull[jaws[3]].y) jaws[3] = i;
  }
  const int32_t stop = (jaws[1] + 1) % n;
  // The best area: an f64 starting at the largest value, or in the integer
  // family a fraction starting at 1 / 0, compared by cross products.
  double best = DBL_MAX;
  W bestnum = 1, bestden = 0;
  int32_t saved[4] = {jaws[0], jaws[1], jaws[2], jaws[3]}, savedr = 0;
  // Each round advances a jaw, and no jaw goes round more than once: the
  // bound only stops coordinates that are not numbers, which advance none.
  const int64_t rounds = 8 * static_cast<int64_t>(n) + 16;
  for (int64_t round = 0; round < rounds; ++round) {
    int32_t p1[2] = {2, 0}, p2[2] = {3, 1};
    int32_t n1 = dorotjawsel<F>(p1, jaws, hull, n);
    int32_t n2 = dorotjawsel<F>(p2, jaws, hull, n);
    // Of the two leading jaws, y is made the one before x; the sign of the
    // dot product of their edges tells which turns less.
    int32_t x = p1[0], y = p2[0];
    const bool exchanged = y == (x + 1) % 4;
    if (exchanged) std::swap(x, y);
    W xx, xy, yx, yy;
    edge<F>(hull, n, jaws[x], xx, xy);
    edge<F>(hull, n, jaws[y], yx, yy);
    const W d = add(mul(yx, xx), mul(yy, xy));
    if (F::below(d))
      (exchanged ? n2 : n1) = 0;
    else if (F::above(d))
      (exchanged ? n1 : n2) = 0;
    int32_t chosen[4], m = 0;
    for (int32_t k = 0; k < n1; ++k) chosen[m++] = p1[k];
    for (int32_t k = 0; k < n2; ++k) chosen[m++] = p2[k];
    if (m == 0) break;
    for (int32_t k = 0; k < m; ++k) jaws[chosen[k]] = (jaws[chosen[k]] + 1) % n;
    const int32_t r = chosen[0];
    const Flush<F> box(hull, n, jaws, r);
    bool better;
    if constexpr (F::kExact) {
      const W num = box.numerator(), den = box.denominator();
      better = mul(bestnum, den) > mul(bestden, num);
      if (better) {
        bestnum = num;
        bestden = den;
      }
    } else {
      const double area = box.numerator() / box.denominator();
      better = best > area;
      if (better) best = area;
    }
    if (better) {
      std::memcpy(saved, jaws, sizeof saved);
      savedr = r;
    }
    if (jaws[0] == stop) break;
  }
  return Flush<F>(hull, n, saved, savedr).corners(out);
}

// The least-area quad of a list: the hull goes into a local array for up
// to 32 points and into a block from malloc beyond.
template <class F, class Q> Q *minbquad(Q *out, const typename F::Pt *p, int32_t n) {
  using Pt = typename F::Pt;
  if (n < 1) return nullptr;
  if (n < 3) return bquad<F>(out, p, n);
  Pt local[32];
  Pt *block = nullptr;
  Pt *hull = local;
  int32_t h;
  if (n <= 32) {
    h = convexhull<F>(local, p, n);
  } else {
    h = aconvexhull<F>(&block, p, n);
    hull = block;
  }
  Q *result = out;
  if (h == 0) {
    result = nullptr;
  } else if (h < 3) {
    bquad<F>(out, hull, h);
  } else {
    SornR2dQuad q;
    minbquad_hull<F>(&q, hull, h);
    quad_cast(out, &q);
  }
  std::free(block);
  return result;
}

}  // namespace sorn_geom

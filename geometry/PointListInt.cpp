// Point lists of s32 points: exact tests, 64-bit sums.
#include "pointlist_family.h"

#include <algorithm>

using namespace sorn_geom;

namespace sorn_geom {

// The hull of an integer list without sorting the points that lie strictly
// inside the polygon of its extreme points in eight directions, which can
// be no corner of the hull. It answers -1 where that would not give the
// very hull of the whole list, and the caller then takes the whole list:
//   - beyond the exact span, where the order of the sort may follow
//     distances between points whose angles tie within the tolerance, and
//     the scan over a list with fewer points could go another way;
//   - when the extremes enclose no area (the list may lie on one line);
//   - when the sorted list might pass the test for a line although it is
//     not on one: that needs every corner between the first and the last in
//     sorted order to be repeated (a corner met once has neighbours that
//     are not on one line with it), so one corner met once rules it out.
// The list stays a permutation of itself until the scan, so the caller can
// start over on it.
int32_t convexhull_filtered(Sorn2dPt *p, int32_t n) {
  // One pass: the points of largest x, x + y, y, y - x, -x, -x - y, -y and
  // x - y (counterclockwise, x to the right and y up), the first met of
  // equals, and the lowest point, the pivot of the sort.
  int64_t best[8];
  int32_t at[8];
  auto keys = [](const Sorn2dPt &q, int64_t *k) {
    const int64_t x = q.x, y = q.y;
    k[0] = x, k[1] = x + y, k[2] = y, k[3] = y - x;
    k[4] = -x, k[5] = -x - y, k[6] = -y, k[7] = x - y;
  };
  keys(p[0], best);
  for (int k = 0; k < 8; ++k) at[k] = 0;
  int32_t low = 0;
  for (int32_t i = 1; i < n; ++i) {
    int64_t k8[8];
    keys(p[i], k8);
    for (int k = 0; k < 8; ++k)
      if (k8[k] > best[k]) best[k] = k8[k], at[k] = i;
    if (p[i].x < p[low].x || (p[i].x == p[low].x && p[i].y < p[low].y)) low = i;
  }
  const Sorn2dPt pivot = p[low];
  const int64_t span = std::max({best[0] - pivot.x, best[2] - pivot.y, (int64_t)pivot.y + best[6]});
  if (span > kExactSpan) return -1;

  // The polygon of the extremes lies in the hull; what is strictly inside
  // it is no corner. Each edge a -> b as e.x q.y - e.y q.x > c.
  Sorn2dPt poly[8];
  int m = 0;
  for (int k = 0; k < 8; ++k) {
    const Sorn2dPt &q = p[at[k]];
    if (m == 0 || !Int::same(q, poly[m - 1])) poly[m++] = q;
  }
  while (m > 1 && Int::same(poly[m - 1], poly[0])) --m;
  int64_t area = 0, ex[8], ey[8], ec[8];
  for (int k = 0; k < m; ++k) {
    const Sorn2dPt &a = poly[k], &b = poly[(k + 1) % m];
    area += (int64_t)a.x * b.y - (int64_t)b.x * a.y;
    ex[k] = (int64_t)b.x - a.x;
    ey[k] = (int64_t)b.y - a.y;
    ec[k] = ex[k] * a.y - ey[k] * a.x;
  }
  if (m < 3 || area <= 0) return -1;
  int32_t kept = 0;
  for (int32_t i = 0; i < n; ++i) {
    const int64_t x = p[i].x, y = p[i].y;
    bool inside = true;
    for (int k = 0; k < m && inside; ++k) inside = ex[k] * y - ey[k] * x > ec[k];
    if (!inside) std::swap(p[kept++], p[i]);
  }
  if (kept == n) return -1;

  sort<Int>(p, kept);
  // The sorted list is taken for a line when every corner between its
  // first and last point is repeated. The extremes with their ties broken
  // by the next direction are corners; one of them met once rules that out.
  const Sorn2dPt &last = p[kept - 1];
  bool corner_met_once = false;
  for (int k = 0; k < 8 && !corner_met_once; ++k) {
    int32_t c = 0;
    int64_t kc[8], kq[8];
    keys(p[0], kc);
    for (int32_t i = 1; i < kept; ++i) {
      keys(p[i], kq);
      if (kq[k] > kc[k] || (kq[k] == kc[k] && kq[(k + 1) & 7] > kc[(k + 1) & 7])) {
        c = i;
        keys(p[c], kc);
      }
    }
    if (Int::same(p[c], pivot) || Int::same(p[c], last)) continue;
    int32_t times = 0;
    for (int32_t i = 0; i < kept && times < 2; ++i) times += Int::same(p[i], p[c]);
    corner_met_once = times == 1;
  }
  if (!corner_met_once || all_colinear<Int>(p, kept)) return -1;
  return graham_scan<Int>(p, kept);
}

}  // namespace sorn_geom

extern "C" {

SORN_PTV_FAMILY(2d, Int)

int32_t _T_2d_ptv_sort_compare(const Sorn2dPt *a, const Sorn2dPt *b, const Sorn2dPt *pivot) {
  return sort_compare<Int>(a, b, pivot);
}

// The mean rounded to the nearest integer by the current rounding mode.
Sorn2dPt *sorn_2d_ptv_centroid(Sorn2dPt *out, const Sorn2dPt *points, int32_t n) {
  SornR2dPt c;
  moment1<Int>(&c, points, n);
  *out = {round_i32(c.x), round_i32(c.y)};
  return out;
}

SornF2dPt *sorn_2d_ptv_centroid_$f(SornF2dPt *out, const Sorn2dPt *points, int32_t n) {
  return centroid_f<Int>(out, points, n);
}

SornF2dQuad *sorn_2d_ptv_bquad_$f(SornF2dQuad *out, const Sorn2dPt *points, int32_t n) {
  return bquad<Int>(out, points, n);
}
SornR2dQuad *sorn_2d_ptv_bquad_$r(SornR2dQuad *out, const Sorn2dPt *points, int32_t n) {
  return bquad<Int>(out, points, n);
}

SornF2dQuad *sorn_2d_ptv_minbquad_$f(SornF2dQuad *out, const Sorn2dPt *points, int32_t n) {
  return minbquad<Int>(out, points, n);
}
SornR2dQuad *sorn_2d_ptv_minbquad_$r(SornR2dQuad *out, const Sorn2dPt *points, int32_t n) {
  return minbquad<Int>(out, points, n);
}
SornR2dQuad *sorn_2d_ptv__minbquad_$r(SornR2dQuad *out, const Sorn2dPt *hull, int32_t n) {
  return minbquad_hull<Int>(out, hull, n);
}

int32_t _T_2d_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const Sorn2dPt *hull,
                                    int32_t n) {
  return dorotjawsel<Int>(pair, jaws, hull, n);
}

}  // extern "C"

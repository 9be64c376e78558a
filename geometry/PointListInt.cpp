// Point lists of s32 points: exact tests, 64-bit sums.
#include "pointlist_family.h"

using namespace sorn_geom;

extern "C" {

SORN_PTV_FAMILY(2d, Int)

int32_t _T_2d_ptv_sort_compare(const Sorn2dPt *a, const Sorn2dPt *b, const Sorn2dPt *pivot) {
  return sort_compare<Int>(a, b, pivot);
}

// The mean rounded to the nearest integer by the current rounding mode.
Sorn2dPt *sorn_2d_ptv_centroid(Sorn2dPt *out, const Sorn2dPt *points, int32_t n) {
  SornR2dPt c;
  moment1<Int>(&c, points, n);
  *out = {rint_s32(c.x), rint_s32(c.y)};
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

// Point lists of f64 points, with the f32 epsilon as the tolerance.
#include "pointlist_family.h"

using namespace sorn_geom;

extern "C" {

SORN_PTV_FAMILY(r2d, Real)

int32_t _T_r2d_ptv_sort_compare(const SornR2dPt *a, const SornR2dPt *b, const SornR2dPt *pivot) {
  return sort_compare<Real>(a, b, pivot);
}

SornF2dPt *sorn_r2d_ptv_centroid_$f(SornF2dPt *out, const SornR2dPt *points, int32_t n) {
  return centroid_f<Real>(out, points, n);
}

SornR2dQuad *sorn_r2d_ptv_bquad(SornR2dQuad *out, const SornR2dPt *points, int32_t n) {
  return bquad<Real>(out, points, n);
}
SornF2dQuad *sorn_r2d_ptv_bquad_$f(SornF2dQuad *out, const SornR2dPt *points, int32_t n) {
  return bquad<Real>(out, points, n);
}

SornR2dQuad *sorn_r2d_ptv_minbquad(SornR2dQuad *out, const SornR2dPt *points, int32_t n) {
  return minbquad<Real>(out, points, n);
}
SornF2dQuad *sorn_r2d_ptv_minbquad_$f(SornF2dQuad *out, const SornR2dPt *points, int32_t n) {
  return minbquad<Real>(out, points, n);
}
SornR2dQuad *sorn_r2d_ptv__minbquad(SornR2dQuad *out, const SornR2dPt *hull, int32_t n) {
  return minbquad_hull<Real>(out, hull, n);
}

int32_t _T_r2d_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const SornR2dPt *hull,
                                     int32_t n) {
  return dorotjawsel<Real>(pair, jaws, hull, n);
}

}  // extern "C"

// Point lists of f32 points, computed in f64 with the f32 epsilon as the
// tolerance. The internals without a family in their names are these.
#include "pointlist_family.h"

using namespace sorn_geom;

extern "C" {

SORN_PTV_FAMILY(f2d, Single)

int32_t _T_ptv_sort_compare(const SornF2dPt *a, const SornF2dPt *b, const SornF2dPt *pivot) {
  return sort_compare<Single>(a, b, pivot);
}

SornF2dPt *sorn_f2d_ptv_centroid(SornF2dPt *out, const SornF2dPt *points, int32_t n) {
  return centroid_f<Single>(out, points, n);
}

SornF2dQuad *sorn_f2d_ptv_bquad(SornF2dQuad *out, const SornF2dPt *points, int32_t n) {
  return bquad<Single>(out, points, n);
}
SornR2dQuad *sorn_f2d_ptv_bquad_$r(SornR2dQuad *out, const SornF2dPt *points, int32_t n) {
  return bquad<Single>(out, points, n);
}

SornF2dQuad *sorn_f2d_ptv_minbquad(SornF2dQuad *out, const SornF2dPt *points, int32_t n) {
  return minbquad<Single>(out, points, n);
}
SornR2dQuad *sorn_f2d_ptv_minbquad_$r(SornR2dQuad *out, const SornF2dPt *points, int32_t n) {
  return minbquad<Single>(out, points, n);
}
SornR2dQuad *sorn_f2d_ptv__minbquad_$r(SornR2dQuad *out, const SornF2dPt *hull, int32_t n) {
  return minbquad_hull<Single>(out, hull, n);
}

int32_t _T_calipers__dorotjawsel(int32_t *pair, const int32_t *jaws, const SornF2dPt *hull,
                                 int32_t n) {
  return dorotjawsel<Single>(pair, jaws, hull, n);
}

}  // extern "C"

// Polygons of f32 points, computed in f64.
#include "polygon.h"

using namespace sorn_geom;

extern "C" {

SORN_POLY_FAMILY(f2d, Single)

SornF2dPt *sorn_f2d_poly_centroid(SornF2dPt *out, const SornF2dPt *points, int32_t n) {
  return poly_centroid_f<Single>(out, points, n);
}
SornF2dEll *sorn_f2d_poly_fitell(SornF2dEll *out, const SornF2dPt *points, int32_t n) {
  return poly_fitell_f<Single>(out, points, n);
}
SornR2dEll *sorn_f2d_poly_fitell_$r(SornR2dEll *out, const SornF2dPt *points, int32_t n) {
  return poly_fitell_r<Single>(out, points, n);
}

}  // extern "C"

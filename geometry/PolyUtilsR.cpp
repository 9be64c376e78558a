// Polygons of f64 points.
#include "polygon.h"

using namespace sorn_geom;

extern "C" {

SORN_POLY_FAMILY(r2d, Real)

SornF2dPt *sorn_r2d_poly_centroid_$f(SornF2dPt *out, const SornR2dPt *points, int32_t n) {
  return poly_centroid_f<Real>(out, points, n);
}
SornR2dEll *sorn_r2d_poly_fitell(SornR2dEll *out, const SornR2dPt *points, int32_t n) {
  return poly_fitell_r<Real>(out, points, n);
}
SornF2dEll *sorn_r2d_poly_fitell_$f(SornF2dEll *out, const SornR2dPt *points, int32_t n) {
  return poly_fitell_f<Real>(out, points, n);
}

}  // extern "C"

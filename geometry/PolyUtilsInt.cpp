// Polygons of s32 points: products and sums in 64 bits.
#include "polygon.h"

using namespace sorn_geom;

extern "C" {

SORN_POLY_FAMILY(2d, Int)

Sorn2dPt *sorn_2d_poly_centroid(Sorn2dPt *out, const Sorn2dPt *points, int32_t n) {
  SornR2dPt c;
  poly_moment1<Int>(&c, points, n);
  *out = {round_i32(c.x), round_i32(c.y)};
  return out;
}
SornF2dPt *sorn_2d_poly_centroid_$f(SornF2dPt *out, const Sorn2dPt *points, int32_t n) {
  return poly_centroid_f<Int>(out, points, n);
}
SornF2dEll *sorn_2d_poly_fitell_$f(SornF2dEll *out, const Sorn2dPt *points, int32_t n) {
  return poly_fitell_f<Int>(out, points, n);
}
SornR2dEll *sorn_2d_poly_fitell_$r(SornR2dEll *out, const Sorn2dPt *points, int32_t n) {
  return poly_fitell_r<Int>(out, points, n);
}

}  // extern "C"

// Second moments: centralising, and what the central ones tell about the
// orientation and spread of a set.
#include <sorn.h>

#include "eigen.h"

extern "C" {

SornMoment2 *sorn_r2d_moment2_centralize(SornMoment2 *out, const SornMoment2 *m,
                                         const SornR2dPt *centre) {
  const double c0 = centre->x, c1 = centre->y;
  const SornMoment2 v = *m;
  out->m20 = v.m20 - c0 * c0;
  out->m11 = v.m11 - c1 * c0;
  out->m02 = v.m02 - c1 * c1;
  return out;
}

SornMoment2 *sorn_r2d_moment2_centralize_$I(SornMoment2 *m, const SornR2dPt *centre) {
  return sorn_r2d_moment2_centralize(m, m, centre);
}

double sorn_r2d_moment2c_rotation(const SornMoment2 *m) {
  return sorn_geom::rotation(m->m20, m->m11, m->m02);
}

double *sorn_r2d_moment2c_covariance(double *out, const SornMoment2 *m) {
  const SornMoment2 v = *m;
  out[0] = v.m20;
  out[1] = v.m11;
  out[2] = v.m11;
  out[3] = v.m02;
  return out;
}

double *sorn_r2d_moment2c_eigvals(double *out, const SornMoment2 *m) {
  return sorn_geom::eigvals(out, m->m20, m->m11, m->m02);
}

double sorn_r2d_moment2c_xeigvals(double *out, const SornMoment2 *m) {
  const SornMoment2 v = *m;
  sorn_geom::eigvals(out, v.m20, v.m11, v.m02);
  return sorn_geom::rotation(v.m20, v.m11, v.m02);
}

}  // extern "C"

// The one eigenvalue rule of the plane geometry, shared by the matrix and
// the moment forms.
#pragma once

#include <cmath>

namespace sorn_geom {

// Mean minus and plus the half spread, for the matrix a, b, b, d.
inline double *eigvals(double *out, double a, double b, double d) {
  const double mean = (a + d) * 0.5;
  const double dd = d - a, bb = 2.0 * b;
  const double half = 0.5 * std::sqrt(dd * dd + bb * bb);
  out[0] = mean - half;
  out[1] = mean + half;
  return out;
}

// The difference is d - a, so that a set elongated along the second
// coordinate has rotation 0; equal eigenvalues give atan2(0, 0), that is 0.
inline double rotation(double a, double b, double d) { return std::atan2(2.0 * b, d - a) * 0.5; }

}  // namespace sorn_geom

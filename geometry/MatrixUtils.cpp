// Eigenvalues of a symmetric 2x2 matrix a, b, b, d (cells 0, 1 and 3 are
// read), smaller first, and the rotation of its eigenvectors.
#include <sorn.h>

#include <cmath>

#include "eigen.h"

extern "C" {

double *sorn_f64_symmat2x2_eigvals(double *out, const double *m) {
  return sorn_geom::eigvals(out, m[0], m[1], m[3]);
}

double sorn_f64_symmat2x2_xeigvals(double *out, const double *m) {
  const double a = m[0], b = m[1], d = m[3];
  sorn_geom::eigvals(out, a, b, d);
  return sorn_geom::rotation(a, b, d);
}

}  // extern "C"

// Roots of quadratic equations, smaller first. Nothing tests the
// discriminant or the leading coefficient: a negative discriminant or an a
// of 0 gives values that are not numbers, which the caller can see.
#include <sorn.h>

#include <cmath>

namespace {

// The two candidates come larger first for a positive leading coefficient;
// they are exchanged only when the first is strictly the larger, so equal
// roots keep their places.
double *smaller_first(double *out, double r0, double r1) {
  if (r0 > r1) {
    out[0] = r1;
    out[1] = r0;
  } else {
    out[0] = r0;
    out[1] = r1;
  }
  return out;
}

}  // namespace

extern "C" {

double *sorn_f64_quadequ_solve(double *out, double a, double b, double c) {
  const double r = 1.0 / (a + a);
  const double w = std::sqrt(b * b - (a + a) * (c + c)) * r;
  return smaller_first(out, w - b * r, -(b * r) - w);
}

double *sorn_f64_quadequ_solve_$mm(double *out, const double *coeffs) {
  return sorn_f64_quadequ_solve(out, coeffs[0], coeffs[1], coeffs[2]);
}

double *sorn_f64_quadequ_solve_$simple(double *out, double p, double q) {
  const double w = 0.5 * std::sqrt(p * p - 4.0 * q);
  return smaller_first(out, w - p * 0.5, -(p * 0.5) - w);
}

}  // extern "C"

// Checks of constants shared by the families that take them.
#include <sorn.h>

#include <cmath>

int sorn_sclu8rngchk(const double *cvec, int32_t chword) {
  const int32_t n = SORN_CHANNELS(chword);
  for (int32_t k = 0; k < n; ++k)
    if (!(cvec[k] >= 0.0 && cvec[k] <= 255.0)) return 0;  // a NaN fails too
  return 1;
}

uint32_t sorn_scfochk(const double *a, const double *b, int32_t n) {
  // Bit 0: a scale other than one has to be applied; bit 1: an offset.
  uint32_t r = 3;
  if (a != nullptr) {
    r = 2;
    for (int32_t k = 0; k < n; ++k) {
      const double v = a[k];
      const bool passes = std::isnan(v) || std::fabs((float)v - 1.0f) <= 1.1920929e-7f;
      if (!passes) {
        r = 3;
        break;
      }
    }
  }
  if (b == nullptr) return r;
  for (int32_t k = 0; k < n; ++k)
    if (std::isfinite(b[k])) return r;
  return r & ~2u;
}

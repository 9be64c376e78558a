// The moment feature: count and the five sums of first and second order.
#include <sorn.h>

#include <cmath>
#include <cstdlib>

#include "region/features.h"

namespace {

inline void add_point(SornWTSMF *v, double r, double c) {
  v->sr += r;
  v->sc += c;
  v->srr += r * r;
  v->src += r * c;
  v->scc += c * c;
}

inline void add_sums(SornWTSMF *v, const SornWTSMF *o) {
  v->sr += o->sr;
  v->sc += o->sc;
  v->srr += o->srr;
  v->src += o->src;
  v->scc += o->scc;
}

// A complete count grows, a lazy one (zero or below) grows in magnitude.
inline void move_count(SornWTSMF *v, int32_t n) {
  if (v->count > 0)
    v->count += n;
  else
    v->count -= n;
}

static_assert(sizeof(SornWTSMF) == 48, "moment value of 48 bytes");

}  // namespace

extern "C" {

SornWTSMF *SornWTSMF_update2D(SornWTSMF *v, int32_t row, int32_t column) {
  add_point(v, static_cast<double>(row), static_cast<double>(column));
  return v;
}

SornWTSMF *SornWTSMF_update2D_n(SornWTSMF *v, const int32_t *points, int32_t n) {
  for (int32_t i = 0; i < n; ++i)
    add_point(v, static_cast<double>(points[2 * i]), static_cast<double>(points[2 * i + 1]));
  return v;
}

SornWTSMF *SornWTSMF_update_n(SornWTSMF *v, const uint32_t *points, int32_t n) {
  for (int32_t i = 0; i < n; ++i)
    add_point(v, static_cast<double>(points[8 * i + 1]), static_cast<double>(points[8 * i + 2]));
  return v;
}

void __SornWTSMF__update__(void *value, const uint32_t *points, int32_t n) {
  SornWTSMF *v = static_cast<SornWTSMF *>(value);
  move_count(v, n);
  SornWTSMF_update_n(v, points, n);
}

void __SornWTSMF__update2D__(void *value, const int32_t *points, int32_t n) {
  SornWTSMF *v = static_cast<SornWTSMF *>(value);
  move_count(v, n);
  SornWTSMF_update2D_n(v, points, n);
}

// An eager merge makes the survivor complete: the count of both, positive.
void __SornWTSMF__merge__(void *value, const void *other) {
  SornWTSMF *v = static_cast<SornWTSMF *>(value);
  const SornWTSMF *o = static_cast<const SornWTSMF *>(other);
  v->count = std::abs(v->count) + std::abs(o->count);
  add_sums(v, o);
}

void __SornWTSMF__lazymerge__(void *value, const void *other) {
  add_sums(static_cast<SornWTSMF *>(value), static_cast<const SornWTSMF *>(other));
}

int __SornWTSMF__isgathered__(const void *value) {
  return static_cast<const SornWTSMF *>(value)->count > 0;
}

void __SornWTSMF__ongather__(void *value, SornWTSRegion *region) {
  static_cast<SornWTSMF *>(value)->count = static_cast<int32_t>(region->size);
}

// Moments need no set-up or clean-up: a zeroed value is an empty one.
SornWTSFeatureDs *SornWTSMFinitFeatureDs(SornWTSFeatureDs *ds, void *arg) {
  *ds = SORN_WTS_FEATURE_DS(MF, SORN_WTS_MAGIC_MOMENTS, arg, nullptr, nullptr);
  return ds;
}

// A count of 0 is not tested: the results are then not numbers.
double *sorn_mf_M2(double *out, const SornWTSMF *v) {
  double n = static_cast<double>(v->count);
  double i = 1.0 / n;
  out[0] = (v->srr - v->sr * v->sr * i) * i;
  out[1] = (v->src - v->sr * v->sc * i) * i;
  out[2] = i * (v->scc - v->sc * v->sc * i);
  return out;
}

double sorn_mf_theta(const SornWTSMF *v) {
  double m[3];
  sorn_mf_M2(m, v);
  return std::atan2(2.0 * m[1], m[2] - m[0]) * 0.5;
}

}  // extern "C"

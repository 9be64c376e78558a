// The exported point-list members that every family has, stamped out once
// per family from the templates of pointlist.h.
#pragma once

#include "pointlist.h"

#define SORN_PTV_FAMILY(fam, F)                                                                    \
  double sorn_##fam##_ptv___sarea(const F::Pt *points, int32_t n) { return sarea<F>(points, n); }  \
  int sorn_##fam##_ptv_isconvex(const F::Pt *points, int32_t n) { return isconvex<F>(points, n); } \
  int sorn_##fam##_ptv_all_colinear(const F::Pt *points, int32_t n) {                              \
    return all_colinear<F>(points, n);                                                             \
  }                                                                                                \
  const F::Pt *sorn_##fam##_ptv_lowest(const F::Pt *points, int32_t n) {                           \
    return lowest<F>(points, n);                                                                   \
  }                                                                                                \
  F::Pt *sorn_##fam##_ptv_sort_$I(F::Pt *points, int32_t n) { return sort<F>(points, n); }         \
  int32_t sorn_##fam##_ptv_convexhull_$I(F::Pt *points, int32_t n) {                               \
    return convexhull_inplace<F>(points, n);                                                       \
  }                                                                                                \
  int32_t sorn_##fam##_ptv_convexhull(F::Pt *out, const F::Pt *points, int32_t n) {                \
    return convexhull<F>(out, points, n);                                                          \
  }                                                                                                \
  int32_t sorn_##fam##_ptv_aconvexhull(F::Pt **outpointer, const F::Pt *points, int32_t n) {       \
    return aconvexhull<F>(outpointer, points, n);                                                  \
  }                                                                                                \
  SornR2dPt *sorn_##fam##_ptv_moment1(SornR2dPt *out, const F::Pt *points, int32_t n) {            \
    return moment1<F>(out, points, n);                                                             \
  }                                                                                                \
  SornMoment2 *sorn_##fam##_ptv_moment2(SornMoment2 *out, const F::Pt *points, int32_t n) {        \
    return moment2<F>(out, points, n);                                                             \
  }                                                                                                \
  SornMoment2 *sorn_##fam##_ptv_moment2_$c(SornMoment2 *out, const F::Pt *points, int32_t n) {     \
    return moment2c<F>(out, points, n);                                                            \
  }                                                                                                \
  double *sorn_##fam##_ptv_covariance(double *out, const F::Pt *points, int32_t n) {               \
    return covariance<F>(out, points, n);                                                          \
  }                                                                                                \
  F::Rect *sorn_##fam##_ptv_brect(F::Rect *out, const F::Pt *points, int32_t n) {                  \
    return brect<F>(out, points, n);                                                               \
  }

// A plain reference for the add and subtract group: one element at a time,
// in 64-bit integers and doubles, from the rules of each form. It never
// calls the library.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "add_reference.h"

namespace addsub_ref {

enum class Op { Add, Sub, RSub };

inline int64_t lo_of(uint32_t t) {
  switch (t) {
    case SORN_U8: return 0;
    case SORN_S8: return -128;
    case SORN_S16: return -32768;
    default: return INT32_MIN;
  }
}
inline int64_t hi_of(uint32_t t) {
  switch (t) {
    case SORN_U8: return 255;
    case SORN_S8: return 127;
    case SORN_S16: return 32767;
    default: return INT32_MAX;
  }
}
inline int64_t clamp(uint32_t t, int64_t v) {
  return v < lo_of(t) ? lo_of(t) : v > hi_of(t) ? hi_of(t) : v;
}
inline int64_t wrap(uint32_t t, int64_t v) {
  const uint64_t u = (uint64_t)v;
  switch (t) {
    case SORN_U8: return (int64_t)(u & 0xff);
    case SORN_S8: return (int64_t)(int8_t)(uint8_t)(u & 0xff);
    case SORN_S16: return (int64_t)(int16_t)(uint16_t)(u & 0xffff);
    default: return (int64_t)(int32_t)(uint32_t)(u & 0xffffffffu);
  }
}

template <class T> T combine(Op op, T a, T b) {
  return op == Op::Add ? a + b : op == Op::Sub ? a - b : b - a;
}

// dst = a op b (or a op constant, with tb the constant's type and vb its
// value in that type), for kernel order: a float source, if any, is a.
inline double expected(Op op, bool sat, uint32_t d, uint32_t ta, uint32_t tb, double va,
                       double vb, int32_t sf) {
  const bool fd = d == SORN_F32;
  if (tb == SORN_F64 || ((ta == SORN_F32 || tb == SORN_F32) && (ta == SORN_S32 || tb == SORN_S32))) {
    const double r = combine(op, va, vb);
    return fd ? (double)(float)r : (double)add_ref::round_s32(r);
  }
  if (ta == SORN_F32 || tb == SORN_F32) {
    const float r = combine(op, (float)va, (float)vb);
    return fd ? (double)r : (double)add_ref::round_s32(r);
  }
  const int64_t exact = combine(op, (int64_t)va, (int64_t)vb);
  const float neg = add_ref::negative_scale(sf);
  if (!sat) {
    const int32_t s = (int32_t)wrap(SORN_S32, exact);
    if (fd) return (double)(float)s;
    if (sf == 0) return (double)wrap(d, s);
    if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)(int64_t)s << (sf & 63)));
    const int32_t r = add_ref::round_s32((float)s * neg);
    return d == SORN_S32 ? (double)r : (double)clamp(d, r);
  }
  if (fd) return (double)(float)exact;
  if (sf == 0) return (double)clamp(d, exact);
  if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)exact << (sf & 63)));
  const double r = std::nearbyint((double)((float)exact * neg));
  return (double)clamp(d, (int64_t)std::fmax(-9e18, std::fmin(9e18, r)));
}

// A constant as the kernels see it in its type T.
inline double constant_in(uint32_t t, double c) {
  auto r32 = [](double v) -> int64_t {
    if (std::isnan(v)) return INT32_MIN;
    const double r = std::nearbyint(v);
    return (r < -2147483648.0 || r > 2147483647.0) ? INT32_MIN : (int64_t)r;
  };
  switch (t) {
    case SORN_U8: return (double)clamp(SORN_U8, r32(c));
    case SORN_S16: return (double)clamp(SORN_S16, r32(c));
    case SORN_S32: return (double)r32(c);
    case SORN_F32: return (double)(float)c;
    default: return c;
  }
}

struct Kernel {
  std::string name;
  Op op;
  bool sat;
  uint32_t dst, a, b;
  SornArith2Kernel kernel;
};
struct KernelC {
  std::string name;
  Op op;
  bool sat;
  uint32_t dst, a, t;
  SornArith2cKernel kernel;
};
inline void PrintTo(const Kernel &k, std::ostream *os) { *os << k.name; }
inline void PrintTo(const KernelC &k, std::ostream *os) { *os << k.name; }

// Every kernel of the group with two sources, from the type tables.
inline std::vector<Kernel> kernels() {
  std::vector<Kernel> v;
#define K2(fam, op, sat, d, a, b) \
  v.push_back({#fam "_" #d #a #b, op, sat, SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), &sorna__##fam##_c1_##d##a##b});
#define K_ADD(d, a, b) K2(add, Op::Add, false, d, a, b)
#define K_SUB(d, a, b) K2(sub, Op::Sub, false, d, a, b)
#define K_RSUB(d, a, b) K2(rsub, Op::RSub, false, d, a, b)
#define K_ADDQ(d, a, b) K2(addq, Op::Add, true, d, a, b)
#define K_SUBQ(d, a, b) K2(subq, Op::Sub, true, d, a, b)
#define K_RSUBQ(d, a, b) K2(rsubq, Op::RSub, true, d, a, b)
  SORN_ADD_TRIPLES(K_ADD)
  SORN_ADD_TRIPLES(K_SUB)
  SORN_ADD_TRIPLES(K_RSUB)
  SORN_ADDQ_OWN_TRIPLES(K_ADDQ)
  SORN_ADDQ_OWN_TRIPLES(K_SUBQ)
  SORN_ADDQ_OWN_TRIPLES(K_RSUBQ)
#undef K_ADD
#undef K_SUB
#undef K_RSUB
#undef K_ADDQ
#undef K_SUBQ
#undef K_RSUBQ
#undef K2
  return v;
}

// Every kernel of the C forms.
inline std::vector<KernelC> kernels_c() {
  std::vector<KernelC> v;
#define KC(fam, op, sat, d, a, t) \
  v.push_back({#fam "C_" #d #a #t, op, sat, SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(t), &sorna__##fam##C_c1_##d##a##t});
#define K_ADD(d, a, t) KC(add, Op::Add, false, d, a, t)
#define K_SUB(d, a, t) KC(sub, Op::Sub, false, d, a, t)
#define K_RSUB(d, a, t) KC(rsub, Op::RSub, false, d, a, t)
#define K_ADDQ(d, a, t) KC(addq, Op::Add, true, d, a, t)
#define K_SUBQ(d, a, t) KC(subq, Op::Sub, true, d, a, t)
#define K_RSUBQ(d, a, t) KC(rsubq, Op::RSub, true, d, a, t)
  SORN_ADDC_TRIPLES(K_ADD)
  SORN_ADDC_TRIPLES(K_SUB)
  SORN_ADDC_TRIPLES(K_RSUB)
  SORN_ADDQC_OWN_TRIPLES(K_ADDQ)
  SORN_ADDQC_OWN_TRIPLES(K_SUBQ)
  SORN_ADDQC_OWN_TRIPLES(K_RSUBQ)
#undef K_ADD
#undef K_SUB
#undef K_RSUB
#undef K_ADDQ
#undef K_SUBQ
#undef K_RSUBQ
#undef KC
  return v;
}

// The public entries, with two arrays and with constants.
using Entry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const SornArray *, const SornVolume *, const SornVolume *,
                             const SornVolume *, int32_t, uint32_t);
using EntryC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const double *, const SornVolume *, const SornVolume *, int32_t,
                              uint32_t);

struct Family {
  const char *name;
  Entry entry;
  EntryC entry_c;
  Op op;
  bool sat, signed_sat;
};

// The nine entries of the group, each with its constant form.
inline const Family kFamilies[] = {
    {"Add", &SornAdd, &SornAddC, Op::Add, false, false},
    {"Addq", &SornAddq, &SornAddqC, Op::Add, true, false},
    {"Addsq", &SornAddsq, &SornAddsqC, Op::Add, true, true},
    {"Sub", &SornSub, &SornSubC, Op::Sub, false, false},
    {"Subq", &SornSubq, &SornSubqC, Op::Sub, true, false},
    {"Subsq", &SornSubsq, &SornSubsqC, Op::Sub, true, true},
    {"RSub", &SornRSub, &SornRSubC, Op::RSub, false, false},
    {"RSubq", &SornRSubq, &SornRSubqC, Op::RSub, true, false},
    {"RSubsq", &SornRSubsq, &SornRSubsqC, Op::RSub, true, true},
};

}  // namespace addsub_ref

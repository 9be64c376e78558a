// A plain reference for the multiplicative group, the unary functions and
// the logical operations: one element at a time, in 64-bit integers and
// doubles (or in f32 where the rule says f32), from the rules of each form.
// It never calls the library.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "addsub_reference.h"

namespace muldiv_ref {

using addsub_ref::clamp;
using addsub_ref::wrap;
using add_ref::negative_scale;
using add_ref::round_s32;

inline bool is_float(uint32_t t) { return t == SORN_F32 || t == SORN_F64; }

// Truncation toward zero into 32 bits; what does not fit (NaN included) is
// 0x80000000, as the processor's conversion gives it.
inline int32_t trunc_s32(double x) {
  if (std::isnan(x) || x <= -2147483649.0 || x >= 2147483648.0) return INT32_MIN;
  return (int32_t)std::trunc(x);
}

// The power of two of a positive scale factor, formed in a signed 32-bit
// word: 1 << 31 is the most negative word.
inline double positive_scale(int32_t sf) { return (double)(int32_t)(1u << ((uint32_t)sf & 31u)); }

/* ---------------- multiplication ---------------- */

// dst = a * b, for kernel order (a float source, if any, is a; tb may be
// the constant's type of a C form, f64 included). Products clamp at every
// scale factor; at sf 0 an integer product is exact.
inline double mul(uint32_t d, uint32_t ta, uint32_t tb, double va, double vb, int32_t sf) {
  const bool fd = d == SORN_F32;
  const bool wide = ta == SORN_S32 || tb == SORN_S32;
  if (tb == SORN_F64 || ((is_float(ta) || is_float(tb)) && wide)) {
    const double r = va * vb;
    if (fd) return (double)(float)r;
    const int32_t i = round_s32(r);
    return d == SORN_S32 ? (double)i : (double)clamp(d, i);
  }
  if (is_float(ta) || is_float(tb)) {
    const float r = (float)va * (float)vb;
    if (fd) return (double)r;
    const int32_t i = round_s32(r);
    return d == SORN_S32 ? (double)i : (double)clamp(d, i);
  }
  const int64_t p = (int64_t)va * (int64_t)vb;  // exact: at most 2^62
  if (fd) return (double)(float)p;
  if (sf == 0) return (double)clamp(d, p);
  if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)p << (sf & 63)));
  if (wide) {
    // A 64-bit product is scaled in f64 and stored as converted.
    const int32_t i = round_s32((double)p * (double)negative_scale(sf));
    return d == SORN_S32 ? (double)i : (double)clamp(d, i);
  }
  const int32_t i = round_s32((float)p * negative_scale(sf));
  return d == SORN_S32 ? (double)i : (double)clamp(d, i);
}

// The square kernels: the product of a source with itself by the rules of
// addition, the product 32 bits wide and wrapping at sf 0.
inline double sqr(uint32_t d, uint32_t ta, double va, int32_t sf) {
  const bool fd = d == SORN_F32;
  if (ta == SORN_F32) {
    const float r = (float)va * (float)va;
    return fd ? (double)r : (double)round_s32(r);
  }
  const int32_t s = (int32_t)wrap(SORN_S32, (int64_t)va * (int64_t)va);
  if (fd) return (double)(float)s;
  if (sf == 0) return (double)wrap(d, s);
  if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)(int64_t)s << (sf & 63)));
  const int32_t r = round_s32((float)s * negative_scale(sf));
  return d == SORN_S32 ? (double)r : (double)clamp(d, r);
}

/* ---------------- negation ---------------- */

// dst = -a. The plain form wraps at sf 0 (an f32 source rounds, then wraps
// into a narrow destination); the saturating form clamps at every sf.
inline double neg(bool sat, uint32_t d, uint32_t ta, double va, int32_t sf) {
  const bool fd = d == SORN_F32;
  if (ta == SORN_F32) {
    const float r = -(float)va;
    if (fd) return (double)r;
    const int32_t i = round_s32(r);
    if (d == SORN_S32) return (double)i;
    return sat ? (double)clamp(d, i) : (double)wrap(d, i);
  }
  const int64_t exact = -(int64_t)va;
  if (!sat) {
    const int32_t s = (int32_t)wrap(SORN_S32, exact);
    if (fd) return (double)(float)s;
    if (sf == 0) return (double)wrap(d, s);
    if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)(int64_t)s << (sf & 63)));
    const int32_t r = round_s32((float)s * negative_scale(sf));
    return d == SORN_S32 ? (double)r : (double)clamp(d, r);
  }
  if (fd) return (double)(float)exact;
  if (sf == 0) return (double)clamp(d, exact);
  if (sf > 0) return (double)clamp(d, (int64_t)((uint64_t)exact << (sf & 63)));
  const double r = std::nearbyint((double)((float)exact * negative_scale(sf)));
  return (double)clamp(d, (int64_t)std::fmax(-9e18, std::fmin(9e18, r)));
}

/* ---------------- division ---------------- */

// The scale factor of the division kernels on a value that is already a
// quotient: truncated (div) or rounded (divr) first at sf 0 and above, the
// shift counted modulo 32 in 64 bits; below 0 the value times the factor,
// rounded. Every result passes through the 32-bit conversion, whose answer
// for what does not fit is 0x80000000, before it is clamped; at sf 0 it is
// stored in the low bits.
inline double scale_quotient(uint32_t d, double value, bool rounded, int32_t sf, bool in_f64) {
  if (sf == 0) {
    const int32_t i = rounded ? round_s32(value) : trunc_s32(value);
    return (double)wrap(d, i);
  }
  if (sf > 0) {
    if (rounded) {
      const double v = in_f64 ? value * positive_scale(sf) : (double)((float)value * (float)positive_scale(sf));
      return (double)clamp(d, round_s32(v));
    }
    const int64_t q = trunc_s32(value);
    return (double)clamp(d, (int64_t)((uint64_t)q << ((uint32_t)sf & 31u)));
  }
  const double v = in_f64 ? value * (double)negative_scale(sf) : (double)((float)value * negative_scale(sf));
  return (double)clamp(d, round_s32(v));
}

// dst = a / b of two arrays of one type: truncated, or rounded (divr).
inline double div(bool rounded, uint32_t t, double va, double vb, int32_t sf) {
  if (t == SORN_F32) return (double)((float)va / (float)vb);
  if (!rounded) {
    // The exact integer quotient, truncated toward zero.
    const int64_t q = (int64_t)va / (int64_t)vb;
    if (sf == 0) return (double)wrap(t, q);
    if (sf > 0) return (double)clamp(t, (int64_t)((uint64_t)q << ((uint32_t)sf & 31u)));
    return (double)clamp(t, round_s32((float)q * negative_scale(sf)));
  }
  if (t == SORN_S32) return scale_quotient(t, va / vb, true, sf, true);
  return scale_quotient(t, (double)((float)va / (float)vb), true, sf, false);
}

// The constant of a division kernel as the kernel uses it: rint, then
// limited to the type; s32 stays a rounded f64.
inline double div_constant(uint32_t t, double c) {
  switch (t) {
    case SORN_U8: return (double)clamp(SORN_U8, round_s32(c));
    case SORN_S16: return (double)clamp(SORN_S16, round_s32(c));
    case SORN_S32: return std::nearbyint(c);
    default: return c;
  }
}

// dst = a / c (reversed: c / a) with a constant of one channel.
inline double divc(bool reversed, bool rounded, uint32_t t, double va, double c, int32_t sf) {
  const double k = div_constant(t, c);
  switch (t) {
    case SORN_F32:
      return reversed ? (double)((float)c / (float)va) : (double)((float)va * (1.0f / (float)c));
    case SORN_U8: {
      const float v = reversed ? (float)k / (float)va : (float)va / (float)k;
      return scale_quotient(t, v, rounded, sf, false);
    }
    case SORN_S16: {
      const float v = reversed ? (float)k / (float)va : (float)va * (1.0f / (float)k);
      return scale_quotient(t, v, rounded, sf, false);
    }
    default: {
      // The reciprocal of an s32 constant is formed in f32 and widened.
      const double v = reversed ? k / va : va * (double)(1.0f / (float)k);
      return scale_quotient(t, v, rounded, sf, true);
    }
  }
}

/* ---------------- logic ---------------- */

// A logical constant as an integer of its type: rint in 32 bits, then the
// clamp of the type; for s16 every value from -32767 down is -32768.
inline int64_t logic_constant(uint32_t t, double c) {
  const int32_t i = round_s32(c);
  if (t == SORN_U8) return clamp(SORN_U8, i);
  if (t == SORN_S16) return i <= -32767 ? -32768 : i > 32767 ? 32767 : i;
  return i;
}

}  // namespace muldiv_ref

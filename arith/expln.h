// The exponential and the natural logarithm as the library computes them:
// short constructions on the bits of an f32, with three grades of accuracy.
// Every step says in which width it is rounded, because the results are
// promised to the bit: an f32 product widened to f64 for the next sum is
// not the same number as an f32 sum.
//
// The exported _T_sorna__exp_* and _T_sorna__ln_* call these; the row loops
// inline them.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "core/elem_types.h"

namespace sorn::arith {

// A float's bits from a 32-bit integer, and back.
inline float float_of_bits(uint32_t b) { return std::bit_cast<float>(b); }
inline uint32_t bits_of_float(float x) { return std::bit_cast<uint32_t>(x); }

// One step of Horner's rule: the f32 value widened for the sum with the next
// coefficient (an f64), the sum rounded back to f32.
inline float horner_step(float v, double coefficient) { return (float)((double)v + coefficient); }

// Every function computes its value unconditionally and picks the result
// of its range tests with selects at the end: the arithmetic is the same
// for the arguments the tests let through, and rows vectorise.

// c ? a : b, both computed.
inline float select_f(bool c, float a, float b) { return sorn::pick_f32(c, a, b); }

// floor() of a float whose magnitude is below 2^31, by truncation. Beyond
// that (or for a NaN) it gives a number that the callers' selects discard.
inline float floor_f32(float z) {
  const float t = (float)sorn::trunc_i32(z);
  return select_f(t > z, t - 1.0f, t);
}

// The low 32 bits of a float truncated to a 64-bit integer, 0 for a NaN or
// for a magnitude of 2^63 and more (whose conversion is the most negative
// value). Above 2^31 a float is a whole multiple of 2^8, so its remainder
// modulo 2^32 is exact in f32.
inline uint32_t trunc64_low32(float v) {
  const bool fits32 = (v >= -2147483648.0f) & (v < 2147483648.0f);
  const bool fits64 = (v >= -9223372036854775808.0f) & (v < 9223372036854775808.0f);
  const float k = floor_f32(v * 2.3283064365386963e-10f);  // v / 2^32
  const float r = v - k * 4294967296.0f;                   // in [0, 2^32)
  const float rs = select_f(r < 2147483648.0f, r, r - 4294967296.0f);
  const uint32_t wide = (uint32_t)sorn::trunc_i32(rs);
  const uint32_t narrow = (uint32_t)sorn::trunc_i32(v);
  const uint32_t m32 = 0u - (uint32_t)fits32, m64 = 0u - (uint32_t)fits64;
  return (narrow & m32) | (wide & ~m32 & m64);
}

// The bounds of the accurate exponential: the same value as an f32 and as
// an f64, so the comparisons may be made in f32.
constexpr float kExpLimit = 88.37625885009766f;
static_assert((double)kExpLimit == 88.37625885009766, "the bound is a float");

// The most accurate form: a reduction by ln 2 in two parts, a polynomial of
// degree 6 on the remainder, and the power of two put into the exponent
// bits. Beyond the range of f32, 0 or infinity.
inline float exp_fast_acc(float x) {
  const float z = (float)((double)x * 1.4426950408889634 + 0.5);
  const float n = floor_f32(z);  // z lies within [-127, 128.5] for the x that count
  const float g = (float)((double)x - (double)n * 0.693359375 + (double)n * 0.00021219444);
  float p = (float)(0.000198756915 * (double)g + 0.0013981999507);
  p = horner_step(p * g, 0.0083334519073);
  p = horner_step(p * g, 0.041665795894);
  p = horner_step(p * g, 0.16666665459);
  p = horner_step(p * g, 0.50000001201);
  const float r = p * g * g + g + 1.0f;
  const uint32_t e = ((uint32_t)sorn::trunc_i32(n) + 127u) << 23;
  const float v = r * float_of_bits(e);
  const float low = select_f(x < -kExpLimit, 0.0f, v);
  return select_f(x > kExpLimit, std::numeric_limits<float>::infinity(), low);
}

// A quotient of two linear pieces in the exponent bits.
inline float exp_fast(float x) {
  const float m = x * 6051102.0f;
  const float p = float_of_bits(trunc64_low32(m + 1056478208.0f));
  const float q = float_of_bits(trunc64_low32(1056478208.0f - m));
  return p / q;
}

// One multiplication and one addition: the value lands in the exponent
// bits. No test of range. The sigmoid's form has the opposite multiplier
// and computes exp(-x).
template <bool Negated = false> inline float exp_superfast(float x) {
  const float t = x * (Negated ? -12102203.0f : 12102203.0f) + 1064866816.0f;
  return float_of_bits((uint32_t)sorn::trunc_i32(t));
}

// The exponent bits, less an offset, as a number, times 1 / 2^23 ln 2.
inline float ln_superfast(float x) {
  // In 32 bits without overflow: for x of 0 and below, whose bits are large
  // or negative, the difference is thrown away below.
  const int32_t b = (int32_t)(bits_of_float(x) - 0x3f7893f5u);
  const float v = (float)b * 8.262958317573066e-08f;
  return select_f(x > 0.0f, v, -std::numeric_limits<float>::infinity());
}

// The largest float below sqrt(1/2): a mantissa compares below the f64
// value of sqrt(1/2) exactly when it is at most this float.
constexpr uint32_t kBelowSqrtHalf = 0x3f3504f3u;

// The mantissa brought to [sqrt(1/2), sqrt(2)), a polynomial of degree 9
// on it less 1, and the exponent times ln 2 in two parts.
inline float ln_fast_acc(float x) {
  const int32_t b = (int32_t)bits_of_float(x);
  float m = float_of_bits(((uint32_t)b & 0x807fffffu) | 0x3f000000u);
  float e = (float)((b >> 23) - 127) + 1.0f;
  const bool low = m <= float_of_bits(kBelowSqrtHalf);  // m < 0.7071067811865476 in f64
  m = select_f(low, m + m, m);
  e = select_f(low, e - 1.0f, e);
  m = m - 1.0f;
  const float z = m * m;
  float y = 0.07037683576345444f * m;
  y = horner_step(y, -0.1151461031) * m;
  y = horner_step(y, 0.1167699874) * m;
  y = horner_step(y, -0.12420140846) * m;
  y = horner_step(y, 0.14249322787) * m;
  y = horner_step(y, -0.16668057665) * m;
  y = horner_step(y, 0.20000714765) * m;
  y = horner_step(y, -0.24999993993) * m;
  y = horner_step(y, 0.33333331174) * m;
  const float r = (float)((double)e * -0.00021219444) + y * z - z * 0.5f;
  const float v = e * 0.693359375f + r + m;
  return select_f(x <= 0.0f, -std::numeric_limits<float>::infinity(), v);
}

}  // namespace sorn::arith

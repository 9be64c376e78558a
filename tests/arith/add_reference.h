// A plain reference for element-wise addition, written from the rules of the
// operation and never calling the library: one element at a time, in the
// widest arithmetic that shows each rule directly.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "testkit.h"

namespace add_ref {

struct Triple {
  std::string name;
  uint32_t dst, a, b;
  SornArith2Kernel kernel;
};

// Test names and failure messages show a triple by its name.
inline void PrintTo(const Triple &t, std::ostream *os) { *os << t.name; }

inline std::vector<Triple> add_triples() {
  std::vector<Triple> v;
#define ADD_REF_TRIPLE(d, a, b) \
  v.push_back({#d #a #b, SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b), &sorna__add_c1_##d##a##b});
  SORN_ADD_TRIPLES(ADD_REF_TRIPLE)
#undef ADD_REF_TRIPLE
  return v;
}

// The scale factors worth trying: around the signed 32-bit power-of-two
// wrap, small ones, and shifts that leave 32 bits.
inline const std::vector<int32_t> &scale_factors() {
  static const std::vector<int32_t> sfs = {-33, -32, -31, -9, -1, 0, 1, 7, 31, 40};
  return sfs;
}

// Float to s32 as the processor does it: nearest-even, and the "integer
// indefinite" 0x80000000 for anything that does not fit.
inline int32_t round_s32(double x) {
  if (std::isnan(x) || x < -2147483648.0 || x >= 2147483648.0) return INT32_MIN;
  return (int32_t)std::nearbyint(x);
}

inline double range_lo(uint32_t t) { return t == SORN_U8 ? 0 : t == SORN_S16 ? -32768 : -2147483648.0; }
inline double range_hi(uint32_t t) { return t == SORN_U8 ? 255 : t == SORN_S16 ? 32767 : 2147483647.0; }

inline int64_t clamp(uint32_t t, int64_t v) {
  const int64_t lo = (int64_t)range_lo(t), hi = (int64_t)range_hi(t);
  return v < lo ? lo : v > hi ? hi : v;
}

// The low bits of v as an element of type t.
inline int64_t wrap(uint32_t t, int64_t v) {
  const uint64_t u = (uint64_t)v;
  if (t == SORN_U8) return (int64_t)(u & 0xff);
  if (t == SORN_S16) return (int64_t)(int16_t)(uint16_t)(u & 0xffff);
  return (int64_t)(int32_t)(uint32_t)(u & 0xffffffffu);
}

// The scale factor below zero multiplies by 1 / (1 << (-sf mod 32)), where
// the power of two lives in a signed 32-bit word.
inline float negative_scale(int32_t sf) {
  const int e = (int)((-(int64_t)sf) % 32 + 32) % 32;
  if (e == 31) return -std::ldexp(1.0f, -31);
  return std::ldexp(1.0f, -e);
}

// Expected result of dst = a + b, with a and b given as exact doubles of
// their types, for kernel order: a float source, if any, is a.
inline double expected(uint32_t d, uint32_t ta, uint32_t tb, double va, double vb, int32_t sf) {
  if (ta == SORN_F32) {
    if (tb == SORN_S32) {
      const double s = va + vb;
      return d == SORN_F32 ? (double)(float)s : (double)round_s32(s);
    }
    const float s = (float)va + (float)vb;
    return d == SORN_F32 ? (double)s : (double)round_s32(s);
  }
  const int64_t exact = (int64_t)va + (int64_t)vb;
  const int32_t s = (int32_t)wrap(SORN_S32, exact);  // the sum is 32 bits wide
  if (d == SORN_F32) return (double)(float)s;
  if (sf == 0) return (double)wrap(d, s);
  if (sf > 0) {
    const int64_t shifted = (int64_t)((uint64_t)(int64_t)s << (sf & 63));
    return (double)clamp(d, shifted);
  }
  const float t = (float)s * negative_scale(sf);
  const int32_t r = round_s32(t);
  return d == SORN_S32 ? (double)r : (double)clamp(d, r);
}

// Compares an element with the expectation; floats bit for bit (so that -0
// and +0 differ), NaN with NaN.
inline bool same(uint32_t t, double expect, double got) {
  if (t != SORN_F32) return expect == got;
  const float e = (float)expect, g = (float)got;
  if (std::isnan(e) || std::isnan(g)) return std::isnan(e) && std::isnan(g);
  uint32_t be, bg;
  std::memcpy(&be, &e, 4);
  std::memcpy(&bg, &g, 4);
  return be == bg;
}

}  // namespace add_ref

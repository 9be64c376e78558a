// The division kernels: two arrays of one type, or an array and one
// constant per channel, truncated or rounded quotients.
//
// The quotient is formed in floating point: f32 for u8 and s16, f64 for
// s32. For a divisor that is not zero the truncated float quotient is the
// integer quotient exactly (the rounding error of a / b is below 1 / |b|,
// the distance from a fraction with denominator b to the next integer), so
// rows vectorise where an integer division would not. What a zero divisor
// gives is not promised.
//
// Every integer result passes through the processor's float-to-integer
// conversion in 32 bits, whose answer for what does not fit (an infinity,
// a NaN) is 0x80000000, before it is stored: so a quotient by zero ends at
// the lower end of the range wherever the store clamps, and as the low bits
// of 0x80000000 where it does not.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/kernel_rows.h"
#include "core/elem_types.h"

namespace sorn::arith {

// The arithmetic of the quotient of an element type.
template <class T> using QuotientOf = std::conditional_t<std::is_same_v<T, int32_t>, double, float>;

enum class DivScale { Store, Shift, Mul };

// The scale factor of the division kernels: the shift counts modulo 32,
// the powers of two are formed in a signed 32-bit word as for the other
// kernels (1 << 31 is negative).
template <class V> struct DivArgs {
  DivScale kind;
  uint32_t shift;  // sf & 31
  V up;            // float(1 << (sf & 31)) for the rounded forms
  V down;          // 1 / float(1 << (-sf & 31))
  float down32;    // the same in f32, for an integer quotient
};

template <class V> inline DivArgs<V> div_args(int32_t sf) {
  DivArgs<V> k{};
  k.kind = sf == 0 ? DivScale::Store : sf > 0 ? DivScale::Shift : DivScale::Mul;
  k.shift = (uint32_t)sf & 31u;
  k.up = (V)(int32_t)(1u << k.shift);
  const uint32_t e = (0u - (uint32_t)sf) & 31u;
  k.down = (V)1 / (V)(int32_t)(1u << e);
  k.down32 = 1.0f / (float)(int32_t)(1u << e);
  return k;
}

// Whether a kernel keeps the quotient as an integer (the two-array div: its
// negative scale works on float(quotient)) or scales the value itself (the
// constant forms).
enum class Quotient { Integer, Value };

// One quotient value into the destination.
template <bool Rounded, Quotient Q, DivScale S, class T, class V>
inline T div_store(V v, const DivArgs<V> &k) {
  if constexpr (std::is_floating_point_v<T>) {
    return (T)v;
  } else if constexpr (S == DivScale::Store) {
    // The low bits, no clamp.
    return (T)(Rounded ? sorn::round_i32(v) : sorn::trunc_i32(v));
  } else if constexpr (S == DivScale::Shift) {
    if constexpr (Rounded) return sorn::sat32<T>(sorn::round_i32(v * k.up));
    const int64_t q = sorn::trunc_i32(v);
    return sorn::sat<T>((int64_t)((uint64_t)q << k.shift));
  } else if constexpr (!Rounded && Q == Quotient::Integer) {
    return sorn::sat32<T>(sorn::round_i32((float)sorn::trunc_i32(v) * k.down32));
  } else {
    return sorn::sat32<T>(sorn::round_i32(v * k.down));
  }
}

template <class Run> inline void by_div_scale(DivScale kind, Run run) {
  switch (kind) {
    case DivScale::Store: run(std::integral_constant<DivScale, DivScale::Store>{}); break;
    case DivScale::Shift: run(std::integral_constant<DivScale, DivScale::Shift>{}); break;
    case DivScale::Mul: run(std::integral_constant<DivScale, DivScale::Mul>{}); break;
  }
}

// a / b of two arrays of one type T. Reversal is the dispatcher's: it
// exchanges the operands.
template <bool Rounded, class T>
SornStatus div_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                      const void *pa, const int32_t *astrides, const void *pb,
                      const int32_t *bstrides, int32_t sf) {
  using V = QuotientOf<T>;
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, bstrides, 1, &r)) return SORN_OK;
  const DivArgs<V> k = div_args<V>(std::is_floating_point_v<T> ? 0 : sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  const char *b = static_cast<const char *>(pb);
  by_div_scale(k.kind, [&](auto s) {
    constexpr DivScale S = decltype(s)::value;
    for (int32_t y = 0; y < r.rows; ++y) {
      T *dr = reinterpret_cast<T *>(d);
      const T *ar = reinterpret_cast<const T *>(a);
      const T *br = reinterpret_cast<const T *>(b);
      for (int32_t x = 0; x < r.len; ++x)
        dr[x] = div_store<Rounded, Quotient::Integer, S, T, V>((V)ar[x] / (V)br[x], k);
      d += r.ds;
      a += r.as;
      b += r.bs;
    }
  });
  return SORN_OK;
}

// The constants of one call, made once: the divisor of each channel limited
// to the type (u8 as f32 and divided by, s16 and s32 by their reciprocal;
// f32 by the reciprocal of the constant as it is), or for the reversed
// forms the numerator.
template <class T> struct DivConstants {
  using V = QuotientOf<T>;
  V k[4];
};

template <bool Reversed, class T> DivConstants<T> div_constants(const double *cvec, int32_t count) {
  DivConstants<T> c{};
  for (int32_t j = 0; j < count && j < 4; ++j) {
    const double v = cvec[j];
    if constexpr (std::is_same_v<T, float>) {
      c.k[j] = Reversed ? (float)v : 1.0f / (float)v;
    } else if constexpr (std::is_same_v<T, int32_t>) {
      // Rounded only, kept in f64; its reciprocal is formed in f32.
      const double d = std::nearbyint(v);
      c.k[j] = Reversed ? d : (double)(1.0f / (float)d);
    } else {
      const float d = (float)sorn::sat32<T>(sorn::round_i32(v));
      c.k[j] = Reversed || std::is_same_v<T, uint8_t> ? d : 1.0f / d;
    }
  }
  return c;
}

// The value of one element against its constant.
template <bool Reversed, class T, class V> inline V div_value(T a, V c) {
  if constexpr (Reversed)
    return c / (V)a;
  else if constexpr (std::is_same_v<T, uint8_t>)
    return (V)a / c;  // a byte division
  else
    return (V)a * c;
}

// a / c (or c / a) with one constant per channel of C channels: a c1 kernel
// takes the first constant for every element, c3 and c4 kernels one per
// channel in order along the row of dims[n-2] * C elements.
template <bool Reversed, bool Rounded, int32_t C, class T>
SornStatus divc_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                       const void *pa, const int32_t *astrides, const double *cvec, int32_t sf) {
  using V = QuotientOf<T>;
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, C, &r)) return SORN_OK;
  const DivConstants<T> c = div_constants<Reversed, T>(cvec, C);
  const DivArgs<V> k = div_args<V>(std::is_floating_point_v<T> ? 0 : sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  by_div_scale(k.kind, [&](auto s) {
    constexpr DivScale S = decltype(s)::value;
    auto one = [&](T x, V cj) {
      return div_store<Rounded, Quotient::Value, S, T, V>(div_value<Reversed>(x, cj), k);
    };
    for (int32_t y = 0; y < r.rows; ++y) {
      T *dr = reinterpret_cast<T *>(d);
      const T *ar = reinterpret_cast<const T *>(a);
      if constexpr (C == 1) {
        const V c0 = c.k[0];
        for (int32_t x = 0; x < r.len; ++x) dr[x] = one(ar[x], c0);
      } else {
        // len is a whole number of pixels.
        for (int32_t x = 0; x < r.len; x += C)
          for (int32_t j = 0; j < C; ++j) dr[x + j] = one(ar[x + j], c.k[j]);
      }
      d += r.ds;
      a += r.as;
    }
  });
  return SORN_OK;
}

}  // namespace sorn::arith

// The pattern behind every two-source element-wise kernel of the arithmetic
// families: walk rows, convert each pair of elements by a per-element rule
// that depends on the destination and source types, on the scale factor and
// on an operation policy (add, subtract, reversed subtract, multiply, and
// their saturating forms; negation and the square as one-source uses).
//
// Private to arith/: the exported kernels are thin wrappers over
// binary_kernel<> instantiated from the type tables in sorn.h.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "arith/kernel_rows.h"
#include "core/elem_types.h"

namespace sorn::arith {

// The integer cases of the scale factor, chosen once per call. A positive
// scale shifts the sum as a 64-bit value: up to 31 places that never wraps,
// so the clamp is decided on the sum itself against precomputed limits and
// everything stays in 32 bits. Larger shifts can wrap the 64-bit value and
// take that literal route.
enum class Scale { Wrap, Shift, WideShift, Mul };

struct ScaleArgs {
  uint32_t shift;  // sf & 63
  int32_t sum_hi;  // Shift: sums above this saturate high ...
  int32_t sum_lo;  // ... and sums below this low
  float factor;    // Mul
};

inline Scale scale_kind(int32_t sf) {
  if (sf == 0) return Scale::Wrap;
  if (sf < 0) return Scale::Mul;
  return ((uint32_t)sf & 63u) < 32u ? Scale::Shift : Scale::WideShift;
}

template <class D> inline ScaleArgs scale_args(int32_t sf) {
  ScaleArgs k{};
  k.shift = (uint32_t)sf & 63u;
  if constexpr (std::is_integral_v<D>) {
    if (k.shift < 32u) {
      // floor(hi / 2^shift) and ceil(lo / 2^shift), lo being 0 or below.
      k.sum_hi = (int32_t)(int_range<D>::hi >> k.shift);
      k.sum_lo = (int32_t) - ((-int_range<D>::lo) >> k.shift);
    }
  }
  // The power of two is formed in a signed 32-bit word: an sf of -31 makes
  // it INT32_MIN and thus the factor negative, -32 wraps to a factor of 1.
  // Both are intended: the scale rule is kept to the bit.
  const uint32_t e = (0u - (uint32_t)sf) & 31u;
  k.factor = 1.0f / (float)(int32_t)(1u << e);
  return k;
}

// What a kernel does when both sources are the very same elements.
enum class Like {
  // Nothing of its own: the element rule runs as for any two sources.
  Plain,
  // Addition hands the operation to the multiply-by-constant kernel of its
  // triple, with a block of f64 2.0 on the stack (below).
  Multiply,
  // Multiplication hands it to the square kernel of its type pair, which
  // wraps at sf 0 where the product of two operands saturates.
  Square,
  // Subtraction knows the answer: zero, written by the fill.
  Zero,
};

// Operation policies: the operator on each arithmetic width in use, whether
// it saturates at a scale factor of 0 (the q forms, and every product), its
// like sources, and whether a 64-bit result is scaled down in f64 (products)
// or in f32. The second operand is the second source, or the constant of the
// C forms.
struct AddOp {
  static constexpr bool saturate = false;
  static constexpr bool wide_scale_f64 = false;
  static constexpr Like like = Like::Multiply;
  static int32_t i32(int32_t a, int32_t b) { return (int32_t)((uint32_t)a + (uint32_t)b); }
  static int64_t i64(int64_t a, int64_t b) { return a + b; }
  static float f32(float a, float b) { return a + b; }
  static double f64(double a, double b) { return a + b; }
  // Saturating forms at sf 0 in the sources' own width, so that a row runs
  // in lanes of that width. A u8 sum wraps below its first operand exactly
  // when it carries (a compare and a blend; the clamp min(a, ~b) + b would
  // be one instruction fewer, but the AVX-512 copy computes ~b with an
  // instruction that waits for the previous iteration's result). An s16 sum
  // is clamped instead, with operations that never leave 16 bits: it stays
  // in range when a lies between -32768 - b (for negative b) and 32767 - b
  // (for positive b), and a clamped there gives the saturated sum.
  static uint8_t sat_u8(uint8_t a, uint8_t b) {
    const uint8_t s = (uint8_t)(a + b);
    return s < a ? (uint8_t)255 : s;
  }
  static int16_t sat_s16(int16_t a, int16_t b) {
    const int16_t pos = b > 0 ? b : (int16_t)0, neg = b < 0 ? b : (int16_t)0;
    const int16_t hi = (int16_t)(32767 - pos);
    const int16_t lo = (int16_t)(uint16_t)(0x8000u - (uint16_t)neg);
    const int16_t below = a < hi ? a : hi;
    const int16_t c = below > lo ? below : lo;
    return (int16_t)(c + b);
  }
};
struct SubOp {
  static constexpr bool saturate = false;
  static constexpr bool wide_scale_f64 = false;
  static constexpr Like like = Like::Zero;
  static int32_t i32(int32_t a, int32_t b) { return (int32_t)((uint32_t)a - (uint32_t)b); }
  static int64_t i64(int64_t a, int64_t b) { return a - b; }
  static float f32(float a, float b) { return a - b; }
  static double f64(double a, double b) { return a - b; }
  // The same clamps as the sum's: a u8 difference is max(a, b) - b, which
  // is 0 where b is the larger; an s16 one keeps a between -32768 + b (for
  // positive b) and 32767 + b (for negative b).
  static uint8_t sat_u8(uint8_t a, uint8_t b) { return (uint8_t)((a > b ? a : b) - b); }
  static int16_t sat_s16(int16_t a, int16_t b) {
    const int16_t pos = b > 0 ? b : (int16_t)0, neg = b < 0 ? b : (int16_t)0;
    const int16_t hi = (int16_t)(uint16_t)(32767u + (uint16_t)neg);
    const int16_t lo = (int16_t)(uint16_t)(0x8000u + (uint16_t)pos);
    const int16_t below = a < hi ? a : hi;
    const int16_t c = below > lo ? below : lo;
    return (int16_t)(uint16_t)((uint16_t)c - (uint16_t)b);
  }
};
// An operation with its operands exchanged: the reversed difference is the
// second operand less the first.
template <class Op> struct Reversed {
  static constexpr bool saturate = Op::saturate;
  static constexpr bool wide_scale_f64 = Op::wide_scale_f64;
  static constexpr Like like = Op::like;
  static int32_t i32(int32_t a, int32_t b) { return Op::i32(b, a); }
  static int64_t i64(int64_t a, int64_t b) { return Op::i64(b, a); }
  static float f32(float a, float b) { return Op::f32(b, a); }
  static double f64(double a, double b) { return Op::f64(b, a); }
  static uint8_t sat_u8(uint8_t a, uint8_t b) { return Op::sat_u8(b, a); }
  static int16_t sat_s16(int16_t a, int16_t b) { return Op::sat_s16(b, a); }
};
using RSubOp = Reversed<SubOp>;
// The product. Plain, it is the square kernels' rule: 32 bits wide and
// wrapping at sf 0, as a sum is; saturated, the multiplications' rule.
struct MulOp {
  static constexpr bool saturate = false;
  static constexpr bool wide_scale_f64 = true;
  static constexpr Like like = Like::Square;
  static int32_t i32(int32_t a, int32_t b) { return (int32_t)((uint32_t)a * (uint32_t)b); }
  static int64_t i64(int64_t a, int64_t b) { return a * b; }
  static float f32(float a, float b) { return a * b; }
  static double f64(double a, double b) { return a * b; }
  // A byte product is at most 65025: 16 bits hold it.
  static uint8_t sat_u8(uint8_t a, uint8_t b) {
    const uint16_t p = (uint16_t)((uint16_t)a * (uint16_t)b);
    return p > 255 ? (uint8_t)255 : (uint8_t)p;
  }
  static int16_t sat_s16(int16_t a, int16_t b) { return sat32<int16_t>((int32_t)a * (int32_t)b); }
};
// Negation of the first operand; the second is not read. The one-source
// kernels pass the source for both.
struct NegOp {
  static constexpr bool saturate = false;
  static constexpr bool wide_scale_f64 = false;
  static constexpr Like like = Like::Plain;
  static int32_t i32(int32_t a, int32_t) { return (int32_t)(0u - (uint32_t)a); }
  static int64_t i64(int64_t a, int64_t) { return -a; }
  // The sign flips: -(0.0) is -0.0, and a NaN keeps its payload.
  static float f32(float a, float) { return -a; }
  static double f64(double a, double) { return -a; }
  static uint8_t sat_u8(uint8_t, uint8_t) { return 0; }
  static int16_t sat_s16(int16_t a, int16_t) { return a == INT16_MIN ? INT16_MAX : (int16_t)-a; }
};
// The saturating form of an operation: exact results, clamped at sf 0 too.
template <class Op> struct Sat : Op {
  using Plain = Op;
  static constexpr bool saturate = true;
};
using AddqOp = Sat<AddOp>;
using SubqOp = Sat<SubOp>;
using RSubqOp = Sat<RSubOp>;
using MulqOp = Sat<MulOp>;
using NegqOp = Sat<NegOp>;

// Round a float to an integer value in the current mode, then saturate it
// to the destination: the q rule for negative scale factors.
template <class D> inline D sat_round(float x) {
  const float c = x < 0.0f ? -8388608.0f : 8388608.0f;
  const float near = (x + c) - c;
  const float r = pick_f32((x > -8388608.0f) & (x < 8388608.0f), near, x);
  if constexpr (std::is_same_v<D, int32_t>) {
    const bool fits = (r >= -2147483648.0f) & (r < 2147483648.0f);
    const int32_t v = (int32_t)pick_f32(fits, r, 0.0f);
    return pick_i32(fits, v, r >= 2147483648.0f ? INT32_MAX : INT32_MIN);
  } else {
    constexpr float lo = (float)int_range<D>::lo, hi = (float)int_range<D>::hi;
    const float cl = r < lo ? lo : r > hi ? hi : r;
    return (D)(int32_t)cl;
  }
}

// A converted integer into the destination: an s32 takes it as it is (out
// of range it is already 0x80000000), narrower ones are clamped.
template <class D> inline D store_converted(int32_t v) {
  if constexpr (std::is_same_v<D, int32_t>)
    return v;
  else
    return sat32<D>(v);
}

// A float result into the destination: an f32 takes it rounded to f32, an
// integer one rounded to nearest-even in 32 bits, then clamped by the
// saturating forms and wrapped into its low bits by the plain ones.
template <class Op, class D, class R> inline D float_result(R r) {
  if constexpr (std::is_floating_point_v<D>)
    return (D)r;
  else if constexpr (Op::saturate)
    return store_converted<D>(round_i32(r));
  else
    return (D)round_i32(r);
}

// One element. Integer sources combine in 32 bits (wrapping); the scale rule
// then brings the result into an integer destination. A float source or a
// float destination takes the float rules, which ignore the scale. The
// saturating forms combine exactly (in 64 bits when an s32 is involved) and
// clamp where the plain ones wrap.
template <class Op, Scale S, class D, class A, class B>
inline D binary_elem(A a, B b, const ScaleArgs &k) {
  constexpr bool fa = std::is_floating_point_v<A>, fb = std::is_floating_point_v<B>;
  constexpr bool fd = std::is_floating_point_v<D>;
  if constexpr (std::is_same_v<B, double>) {
    // A constant of the f64 class: the operation runs in f64.
    return float_result<Op, D>(Op::f64((double)a, b));
  } else if constexpr (fa || fb) {
    if constexpr (std::is_same_v<A, int32_t> || std::is_same_v<B, int32_t>) {
      // An s32 does not fit a float's mantissa: the combination runs in f64.
      return float_result<Op, D>(Op::f64((double)a, (double)b));
    } else {
      return float_result<Op, D>(Op::f32((float)a, (float)b));
    }
  } else if constexpr (Op::saturate) {
    constexpr bool wide = std::is_same_v<A, int32_t> || std::is_same_v<B, int32_t>;
    if constexpr (wide) {
      const int64_t s = Op::i64((int64_t)a, (int64_t)b);
      if constexpr (fd)
        return (float)s;
      else if constexpr (S == Scale::Wrap)
        return sat<D>(s);
      else if constexpr (S == Scale::Shift || S == Scale::WideShift)
        return sat<D>((int64_t)((uint64_t)s << k.shift));
      else if constexpr (Op::wide_scale_f64)
        return store_converted<D>(round_i32((double)s * (double)k.factor));
      else
        return sat_round<D>((float)s * k.factor);
    } else if constexpr (S == Scale::Wrap && std::is_same_v<D, uint8_t> &&
                         std::is_same_v<A, uint8_t> && std::is_same_v<B, uint8_t>) {
      // The clamp of the exact 32-bit result, found in 8 bits.
      return Op::sat_u8(a, b);
    } else if constexpr (S == Scale::Wrap && std::is_same_v<D, int16_t> &&
                         std::is_same_v<A, int16_t> && std::is_same_v<B, int16_t>) {
      // The same in 16 bits.
      return Op::sat_s16(a, b);
    } else {
      // Narrow sources: the exact result fits 32 bits, and the plain rules
      // for a non-zero scale are already those of the saturating form.
      const int32_t s = Op::i32((int32_t)a, (int32_t)b);
      if constexpr (fd)
        return (float)s;
      else if constexpr (S == Scale::Wrap)
        return sat32<D>(s);
      else
        return binary_elem<typename Op::Plain, S, D, A, B>(a, b, k);
    }
  } else {
    const int32_t s = Op::i32((int32_t)a, (int32_t)b);
    if constexpr (fd) {
      return (float)s;
    } else if constexpr (S == Scale::Wrap) {
      return (D)(uint32_t)s;
    } else if constexpr (S == Scale::Shift) {
      // Within the limits the shifted sum fits the destination, so 32 bits
      // hold it; beyond them it saturates.
      const int32_t v = (int32_t)((uint32_t)s << k.shift);
      constexpr int32_t lo = (int32_t)int_range<D>::lo, hi = (int32_t)int_range<D>::hi;
      return (D)(s > k.sum_hi ? hi : s < k.sum_lo ? lo : v);
    } else if constexpr (S == Scale::WideShift) {
      const int64_t v = (int64_t)((uint64_t)(int64_t)s << k.shift);
      return sat<D>(v);
    } else {
      return store_converted<D>(round_i32((float)s * k.factor));
    }
  }
}

template <class Op, Scale S, class D, class A, class B>
inline void binary_rows(int32_t rows, int32_t cols, char *d, ptrdiff_t ds, const char *a,
                        ptrdiff_t as, const char *b, ptrdiff_t bs, const ScaleArgs &k) {
  // No __restrict: the destination may be the very same rows as a source,
  // which is safe since every element is read before it is written.
  for (int32_t y = 0; y < rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const A *ar = reinterpret_cast<const A *>(a);
    const B *br = reinterpret_cast<const B *>(b);
    for (int32_t x = 0; x < cols; ++x) dr[x] = binary_elem<Op, S, D, A, B>(ar[x], br[x], k);
    d += ds;
    a += as;
    b += bs;
  }
}

// The scale factor's case is chosen once per call; float sources or a float
// destination have only one.
template <class D, class A, class B, class Run> inline void by_scale(int32_t sf, Run run) {
  constexpr bool scaled =
      !std::is_floating_point_v<D> && !std::is_floating_point_v<A> && !std::is_floating_point_v<B>;
  if constexpr (scaled) {
    switch (scale_kind(sf)) {
      case Scale::Wrap: run(std::integral_constant<Scale, Scale::Wrap>{}); break;
      case Scale::Shift: run(std::integral_constant<Scale, Scale::Shift>{}); break;
      case Scale::WideShift: run(std::integral_constant<Scale, Scale::WideShift>{}); break;
      case Scale::Mul: run(std::integral_constant<Scale, Scale::Mul>{}); break;
    }
  } else {
    run(std::integral_constant<Scale, Scale::Wrap>{});
  }
}

// The kernels that take over from a two-source kernel whose sources are the
// very same elements: the multiply-by-constant kernel of the same triple for
// addition, the square kernel of the type pair for multiplication. Filled in
// from the type tables below the pattern; a triple that is not there has none.
template <class D, class A, class T> struct MulCKernel { static constexpr bool exists = false; };
template <class D, class A> struct SqrKernel { static constexpr bool exists = false; };
#define SORN_MULC_KERNEL_OF(d, a, t)                                       \
  template <> struct MulCKernel<tok::d, tok::a, tok::t> {                  \
    static constexpr bool exists = true;                                   \
    static constexpr SornArith2cKernel kernel = &sorna__mulC_c1_##d##a##t; \
  };
#define SORN_SQR_KERNEL_OF(d, a)                                      \
  template <> struct SqrKernel<tok::d, tok::a> {                      \
    static constexpr bool exists = true;                              \
    static constexpr SornArith1Kernel kernel = &sorna__sqr_c1_##d##a; \
  };
SORN_MULC_TRIPLES(SORN_MULC_KERNEL_OF)
SORN_SQR_PAIRS(SORN_SQR_KERNEL_OF)
#undef SORN_MULC_KERNEL_OF
#undef SORN_SQR_KERNEL_OF

// Like sources of an addition: the multiply-by-constant kernel of the triple
// on a block that holds the f64 value 2.0 four times. The kernel reads the
// block as a vector of its own constant type, not as doubles, so the factors
// it applies in its cycle of four are the first 16 bytes of that block: the
// bytes 0, 0, 0, 0 for u8 constants, the words 0, 0, 0, 16384 for s16,
// 0, 2^30, 0, 2^30 for s32 and 0.0, 2.0, 0.0, 2.0 for f32. So x + x in place
// on u8 writes zeros. That is how this operation has always answered, and it
// is kept: it is not a doubling.
template <class D, class A, class B>
SornStatus add_like_sources(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                            const int32_t *dststrides, const void *pa, const int32_t *astrides,
                            int32_t sf, uint32_t extra) {
  static_assert(MulCKernel<D, A, B>::exists, "every triple of like sources has a multiply kernel");
  alignas(16) const double two[4] = {2.0, 2.0, 2.0, 2.0};
  return MulCKernel<D, A, B>::kernel(xe, flags, n, dims, dst, dststrides, pa, astrides, two, sf,
                                     extra);
}

// The kernel: rows are dims[n-3] (one row with no step when n is 2), the row
// length dims[n-2]; elements along a row are adjacent whatever the strides say.
template <class Op, class D, class A, class B>
SornStatus binary_kernel(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                         const int32_t *dststrides, const void *pa, const int32_t *astrides,
                         const void *pb, const int32_t *bstrides, int32_t sf, uint32_t extra) {
  if (n < 2) return SORN_OK;
  if constexpr (Op::like != Like::Plain && (Op::like == Like::Zero || std::is_same_v<A, B>)) {
    if (pa == pb && sorn_vec__equal(n, astrides, bstrides)) {
      if constexpr (Op::like == Like::Zero) {
        // a - a is 0 whatever the scale factor: a block of zero bytes.
        const uint32_t zero[4] = {0, 0, 0, 0};
        if (sorna__dofill(xe, flags, n, dims, dst, dststrides, zero) == SORN_OK) return SORN_OK;
      } else if constexpr (Op::like == Like::Multiply) {
        return add_like_sources<D, A, B>(xe, flags, n, dims, dst, dststrides, pa, astrides, sf,
                                         extra);
      } else {
        static_assert(SqrKernel<D, A>::exists, "every pair of like sources has a square kernel");
        if (SqrKernel<D, A>::kernel(xe, flags, n, dims, dst, dststrides, pa, astrides, sf, extra) ==
            SORN_OK)
          return SORN_OK;
      }
    }
  }
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, bstrides, 1, &r)) return SORN_OK;
  merge_dense_rows(&r, sizeof(D), sizeof(A), sizeof(B));
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  const char *b = static_cast<const char *>(pb);
  const ScaleArgs k = scale_args<D>(sf);
  by_scale<D, A, B>(sf, [&](auto s) {
    binary_rows<Op, decltype(s)::value, D, A, B>(r.rows, r.len, d, r.ds, a, r.as, b, r.bs, k);
  });
  return SORN_OK;
}

// Rows of a C form: the constants c[0..period-1] cycle along the row.
template <class Op, Scale S, class D, class A, class T>
inline void const_rows(int32_t rows, int32_t len, int32_t period, char *d, ptrdiff_t ds,
                       const char *a, ptrdiff_t as, const T *c, const ScaleArgs &k) {
  const bool uniform = c[0] == c[1] && c[1] == c[2] && (period == 3 || c[2] == c[3]);
  for (int32_t y = 0; y < rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const A *ar = reinterpret_cast<const A *>(a);
    int32_t x = 0;
    if (uniform) {
      const T c0 = c[0];
      for (; x < len; ++x) dr[x] = binary_elem<Op, S, D, A, T>(ar[x], c0, k);
    } else if (period == 4) {
      for (; x + 4 <= len; x += 4)
        for (int32_t j = 0; j < 4; ++j) dr[x + j] = binary_elem<Op, S, D, A, T>(ar[x + j], c[j], k);
      for (int32_t j = 0; x < len; ++x, ++j) dr[x] = binary_elem<Op, S, D, A, T>(ar[x], c[j], k);
    } else {
      for (; x + 3 <= len; x += 3)
        for (int32_t j = 0; j < 3; ++j) dr[x + j] = binary_elem<Op, S, D, A, T>(ar[x + j], c[j], k);
      for (int32_t j = 0; x < len; ++x, ++j) dr[x] = binary_elem<Op, S, D, A, T>(ar[x], c[j], k);
    }
    d += ds;
    a += as;
  }
}

// The kernel of a C form. The channels are not folded: the last dims cell
// tells the cycle (three values for 3, four from the block otherwise) and
// multiplies the row length.
template <class Op, class D, class A, class T>
SornStatus const_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                        const void *pa, const int32_t *astrides, const void *block, int32_t sf) {
  const int32_t ch = n >= 1 ? dims[n - 1] & 15 : 0;
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, ch, &r)) return SORN_OK;
  T c[4];
  std::memcpy(c, block, sizeof c);
  const int32_t period = ch == 3 ? 3 : 4;
  const ScaleArgs k = scale_args<D>(sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  by_scale<D, A, T>(sf, [&](auto s) {
    const_rows<Op, decltype(s)::value, D, A, T>(r.rows, r.len, period, d, r.ds, a, r.as, c, k);
  });
  return SORN_OK;
}

}  // namespace sorn::arith

// The pattern behind every multiply-accumulate kernel: walk rows, and for
// each element form the product of two operands and join it to a third,
// by a per-element rule that depends on the four types, on the scale factor
// and on the way the product is joined (added, taken away, or the third
// taken from it). The array, constant and two-constant forms differ only
// in where the operands come from along a row.
//
// Private to arith/: the exported kernels are thin wrappers over these
// templates, instantiated from the type tables in sorn.h.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "arith/binary_kernel.h"
#include "arith/kernel_rows.h"
#include "core/elem_types.h"

namespace sorn::arith {

// How the product p joins the other operand x.
struct MacAdd {  // x + p
  static int32_t i32(int32_t x, int32_t p) { return (int32_t)((uint32_t)x + (uint32_t)p); }
  static int64_t i64(int64_t x, int64_t p) { return x + p; }
  static float f32(float x, float p) { return x + p; }
  static double f64(double x, double p) { return x + p; }
};
struct MacSub {  // x - p
  static int32_t i32(int32_t x, int32_t p) { return (int32_t)((uint32_t)x - (uint32_t)p); }
  static int64_t i64(int64_t x, int64_t p) { return x - p; }
  static float f32(float x, float p) { return x - p; }
  static double f64(double x, double p) { return x - p; }
};
struct MacRev {  // p - x
  static int32_t i32(int32_t x, int32_t p) { return (int32_t)((uint32_t)p - (uint32_t)x); }
  static int64_t i64(int64_t x, int64_t p) { return p - x; }
  static float f32(float x, float p) { return p - x; }
  static double f64(double x, double p) { return p - x; }
};

// A 64-bit result into an integer destination by the scale rule: clamped
// at sf 0, shifted and clamped above, scaled down below (in f64, which
// holds the f32 factor exactly), rounded to nearest-even and clamped.
template <Scale S, class D> inline D mac_scale_i64(int64_t s, const ScaleArgs &k) {
  if constexpr (S == Scale::Wrap) {
    return sat<D>(s);
  } else if constexpr (S == Scale::Shift || S == Scale::WideShift) {
    return sat<D>((int64_t)((uint64_t)s << k.shift));
  } else {
    const double v = std::nearbyint((double)s * (double)k.factor);
    constexpr double lo = (double)int_range<D>::lo, hi = (double)int_range<D>::hi;
    return (D)(int64_t)(v < lo ? lo : v > hi ? hi : v);
  }
}

// One element: x joined to the product b * c. Integer operands combine
// exactly, in 32 bits for u8 and s16 and in 64 bits once an s32 is among
// them, and the scale rule brings the result into an integer destination
// (always clamped, also at sf 0). A float among the operands, or a float
// destination, leaves sf unused: operands that an f32 holds exactly combine
// in f32, rounded after the product and after the sum; an s32 product is
// formed in 64 bits and joined in f64. The result goes into an integer
// destination rounded to nearest-even (s32 as the conversion gives it,
// narrower ones clamped).
template <class Op, Scale S, class D, class X, class B, class C>
inline D mac_elem(X x, B b, C c, const ScaleArgs &k) {
  constexpr bool fx = std::is_floating_point_v<X>, fb = std::is_floating_point_v<B>,
                 fc = std::is_floating_point_v<C>, fd = std::is_floating_point_v<D>;
  constexpr bool wide =
      std::is_same_v<X, int32_t> || std::is_same_v<B, int32_t> || std::is_same_v<C, int32_t>;
  if constexpr (fx || fb || fc) {
    if constexpr (wide) {
      double r;
      if constexpr (!fb && !fc)
        r = Op::f64((double)x, (double)((int64_t)b * (int64_t)c));
      else
        r = Op::f64((double)x, (double)b * (double)c);
      if constexpr (fd)
        return (float)r;
      else
        return store_converted<D>(round_i32(r));
    } else {
      const float r = Op::f32((float)x, (float)b * (float)c);
      if constexpr (fd)
        return r;
      else
        return store_converted<D>(round_i32(r));
    }
  } else if constexpr (wide) {
    const int64_t s = Op::i64((int64_t)x, (int64_t)b * (int64_t)c);
    if constexpr (fd)
      return (float)s;
    else
      return mac_scale_i64<S, D>(s, k);
  } else {
    const int32_t s = Op::i32((int32_t)x, (int32_t)b * (int32_t)c);
    if constexpr (fd)
      return (float)s;
    else if constexpr (S == Scale::Wrap)
      return sat32<D>(s);
    else if constexpr (S == Scale::Mul)
      return sat_round<D>((float)s * k.factor);
    else
      return mac_scale_i64<S, D>(s, k);
  }
}

// The scale's case, chosen once per call; with a float anywhere there is one.
template <class D, class X, class B, class C, class Run>
inline void mac_by_scale(int32_t sf, Run run) {
  if constexpr (std::is_floating_point_v<X> || std::is_floating_point_v<B> ||
                std::is_floating_point_v<C>)
    run(std::integral_constant<Scale, Scale::Wrap>{});
  else
    by_scale<D, X, B>(sf, run);
}

// Three arrays: dst = a joined to b * c.
template <class Op, class D, class A, class B, class C>
SornStatus mac_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                      const void *pa, const int32_t *astrides, const void *pb,
                      const int32_t *bstrides, const void *pc, const int32_t *cstrides,
                      int32_t sf) {
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, bstrides, 1, &r)) return SORN_OK;
  const ptrdiff_t cs = n >= 3 ? cstrides[n - 3] : 0;
  const ScaleArgs k = scale_args<D>(sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa), *b = static_cast<const char *>(pb),
             *c = static_cast<const char *>(pc);
  mac_by_scale<D, A, B, C>(sf, [&](auto s) {
    constexpr Scale S = decltype(s)::value;
    for (int32_t y = 0; y < r.rows; ++y) {
      D *dr = reinterpret_cast<D *>(d + y * r.ds);
      const A *ar = reinterpret_cast<const A *>(a + y * r.as);
      const B *br = reinterpret_cast<const B *>(b + y * r.bs);
      const C *cr = reinterpret_cast<const C *>(c + y * cs);
      for (int32_t i = 0; i < r.len; ++i)
        dr[i] = mac_elem<Op, S, D, A, B, C>(ar[i], br[i], cr[i], k);
    }
  });
  return SORN_OK;
}

// The cycle of constants along a row: three values for three channels, the
// four of the block otherwise.
inline int32_t constant_period(int32_t n, const int32_t *dims) {
  return n >= 1 && (dims[n - 1] & 15) == 3 ? 3 : 4;
}

// Calls elem(i, j) along a row of len elements, j the place of element i in
// the cycle of constants; one loop without the cycle when all constants
// are equal, else whole cycles at a time, so that rows vectorise.
template <class Elem>
inline void along_cycle(int32_t len, int32_t period, bool uniform, Elem elem) {
  int32_t i = 0;
  if (uniform) {
    for (; i < len; ++i) elem(i, 0);
  } else if (period == 4) {
    for (; i + 4 <= len; i += 4)
      for (int32_t j = 0; j < 4; ++j) elem(i + j, j);
  } else {
    for (; i + 3 <= len; i += 3)
      for (int32_t j = 0; j < 3; ++j) elem(i + j, j);
  }
  for (int32_t j = 0; i < len; ++i, ++j) elem(i, j);
}

template <class T> inline bool uniform_cycle(const T *c, int32_t period) {
  return c[0] == c[1] && c[1] == c[2] && (period == 3 || c[2] == c[3]);
}

// Two arrays and a constant per channel: dst = a joined to b * c.
template <class Op, class D, class A, class B, class T>
SornStatus mac_const_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                            const void *pa, const int32_t *astrides, const void *pb,
                            const int32_t *bstrides, const void *block, int32_t sf) {
  const int32_t ch = n >= 1 ? dims[n - 1] & 15 : 0;
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, bstrides, ch, &r)) return SORN_OK;
  T cv[4];
  std::memcpy(cv, block, sizeof cv);
  const int32_t period = constant_period(n, dims);
  const bool uniform = uniform_cycle(cv, period);
  const ScaleArgs k = scale_args<D>(sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa), *b = static_cast<const char *>(pb);
  mac_by_scale<D, A, B, T>(sf, [&](auto s) {
    constexpr Scale S = decltype(s)::value;
    for (int32_t y = 0; y < r.rows; ++y) {
      D *dr = reinterpret_cast<D *>(d + y * r.ds);
      const A *ar = reinterpret_cast<const A *>(a + y * r.as);
      const B *br = reinterpret_cast<const B *>(b + y * r.bs);
      along_cycle(r.len, period, uniform, [&](int32_t i, int32_t j) {
        dr[i] = mac_elem<Op, S, D, A, B, T>(ar[i], br[i], cv[j], k);
      });
    }
  });
  return SORN_OK;
}

// One array and two constants per channel: dst = a * c1 joined to c2 (the
// constant is the operand x of the rule).
template <class Op, class D, class T>
SornStatus mac_const2_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                             const void *pa, const int32_t *astrides, const void *block1,
                             const void *block2, int32_t sf) {
  const int32_t ch = n >= 1 ? dims[n - 1] & 15 : 0;
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, ch, &r)) return SORN_OK;
  T c1[4], c2[4];
  std::memcpy(c1, block1, sizeof c1);
  std::memcpy(c2, block2, sizeof c2);
  const int32_t period = constant_period(n, dims);
  const bool uniform = uniform_cycle(c1, period) && uniform_cycle(c2, period);
  const ScaleArgs k = scale_args<D>(sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  mac_by_scale<D, T, T, T>(sf, [&](auto s) {
    constexpr Scale S = decltype(s)::value;
    for (int32_t y = 0; y < r.rows; ++y) {
      D *dr = reinterpret_cast<D *>(d + y * r.ds);
      const T *ar = reinterpret_cast<const T *>(a + y * r.as);
      along_cycle(r.len, period, uniform, [&](int32_t i, int32_t j) {
        dr[i] = mac_elem<Op, S, D, T, T, T>(c2[j], ar[i], c1[j], k);
      });
    }
  });
  return SORN_OK;
}

}  // namespace sorn::arith

// The exported kernels: sorna__<fam>_c1_<d><a><b><c>, sorna__<fam>C_c1_...
// and sorna__<fam>CC_c1_<d><t><t><t>, each one call of its template.
#define SORN_MAC_KERNEL_DEF(fam, op, d, a, b, c)                                                 \
  SornStatus sorna__##fam##_c1_##d##a##b##c(                                                     \
      SornXE *, SornFlags, int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides, \
      const void *pa, const int32_t *astrides, const void *pb, const int32_t *bstrides,          \
      const void *pc, const int32_t *cstrides, int32_t sf, uint32_t) {                           \
    using namespace sorn;                                                                        \
    return arith::mac_kernel<arith::op, tok::d, tok::a, tok::b, tok::c>(                         \
        n, dims, dst, dststrides, pa, astrides, pb, bstrides, pc, cstrides, sf);                 \
  }
#define SORN_MACC_KERNEL_DEF(fam, op, d, a, b, t)                                                \
  SornStatus sorna__##fam##C_c1_##d##a##b##t(                                                    \
      SornXE *, SornFlags, int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides, \
      const void *pa, const int32_t *astrides, const void *pb, const int32_t *bstrides,          \
      const void *block, int32_t sf, uint32_t) {                                                 \
    using namespace sorn;                                                                        \
    return arith::mac_const_kernel<arith::op, tok::d, tok::a, tok::b, tok::t>(                   \
        n, dims, dst, dststrides, pa, astrides, pb, bstrides, block, sf);                        \
  }
#define SORN_MACCC_KERNEL_DEF(fam, op, d, t)                                                       \
  SornStatus sorna__##fam##CC_c1_##d##t##t##t(                                                     \
      SornXE *, SornFlags, int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,   \
      const void *pa, const int32_t *astrides, const void *block1, const void *block2, int32_t sf, \
      uint32_t) {                                                                                  \
    using namespace sorn;                                                                          \
    return arith::mac_const2_kernel<arith::op, tok::d, tok::t>(n, dims, dst, dststrides, pa,       \
                                                               astrides, block1, block2, sf);      \
  }

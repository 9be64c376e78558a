// The logical kernels: and, or, xor of two arrays of one type, the
// complement of one, and the forms with one constant per channel. Bits know
// no types, so each kernel is a loop over elements of its width with the
// operator as a small policy; the compiler turns the body into whole words.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "arith/kernel_rows.h"
#include "core/elem_types.h"

namespace sorn::arith {

struct AndOp {
  template <class T> static T op(T a, T b) { return (T)(a & b); }
};
struct OrrOp {
  template <class T> static T op(T a, T b) { return (T)(a | b); }
};
struct XorOp {
  template <class T> static T op(T a, T b) { return (T)(a ^ b); }
};

template <class Op, class T>
SornStatus logic_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                        const void *pa, const int32_t *astrides, const void *pb,
                        const int32_t *bstrides) {
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, bstrides, 1, &r)) return SORN_OK;
  merge_dense_rows(&r, sizeof(T), sizeof(T), sizeof(T));
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  const char *b = static_cast<const char *>(pb);
  for (int32_t y = 0; y < r.rows; ++y) {
    // The destination may be either source: every element is read first.
    T *dr = reinterpret_cast<T *>(d);
    const T *ar = reinterpret_cast<const T *>(a);
    const T *br = reinterpret_cast<const T *>(b);
    for (int32_t x = 0; x < r.len; ++x) dr[x] = Op::op(ar[x], br[x]);
    d += r.ds;
    a += r.as;
    b += r.bs;
  }
  return SORN_OK;
}

template <class T>
SornStatus not_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                      const void *pa, const int32_t *astrides) {
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, 1, &r)) return SORN_OK;
  merge_dense_rows(&r, sizeof(T), sizeof(T), 0);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  for (int32_t y = 0; y < r.rows; ++y) {
    T *dr = reinterpret_cast<T *>(d);
    const T *ar = reinterpret_cast<const T *>(a);
    for (int32_t x = 0; x < r.len; ++x) dr[x] = (T)~ar[x];
    d += r.ds;
    a += r.as;
  }
  return SORN_OK;
}

// A constant as an integer of the type, made once per call: rint in the
// current mode into 32 bits (what does not fit is 0x80000000), then the
// clamp of the type. The s16 clamp sends -32767 and everything below to
// -32768, one value further than the range would need; that is how the
// constant has always been limited, and it stays.
template <class T> inline T logic_constant(double c) {
  const int32_t i = sorn::round_i32(c);
  if constexpr (std::is_same_v<T, int16_t>)
    return (T)(i <= -32767 ? -32768 : i > 32767 ? 32767 : i);
  else if constexpr (std::is_same_v<T, uint8_t>)
    return sorn::sat32<uint8_t>(i);
  else
    return (T)i;
}

// With one constant per channel: a c1 kernel repeats the first constant
// through the row (for bytes, four to a word), c3 and c4 kernels take one
// per channel in order along the row of dims[n-2] * C elements.
template <class Op, int32_t C, class T>
SornStatus logicc_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                         const void *pa, const int32_t *astrides, const double *cvec) {
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, C, &r)) return SORN_OK;
  T c[C];
  for (int32_t j = 0; j < C; ++j) c[j] = logic_constant<T>(cvec[j]);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  for (int32_t y = 0; y < r.rows; ++y) {
    T *dr = reinterpret_cast<T *>(d);
    const T *ar = reinterpret_cast<const T *>(a);
    if constexpr (C == 1) {
      const T c0 = c[0];
      for (int32_t x = 0; x < r.len; ++x) dr[x] = Op::op(ar[x], c0);
    } else {
      for (int32_t x = 0; x < r.len; x += C)
        for (int32_t j = 0; j < C; ++j) dr[x + j] = Op::op(ar[x + j], c[j]);
    }
    d += r.ds;
    a += r.as;
  }
  return SORN_OK;
}

}  // namespace sorn::arith

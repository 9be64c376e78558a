// The pattern behind the one-source kernels of the arithmetic (negation,
// saturating negation, square): the element rule of the two-source kernels
// with the source given as both operands, so that the scale factor, the
// saturation and the float rules are the very same code. The operation
// policies read only what they need: negation ignores its second operand.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "arith/binary_kernel.h"
#include "arith/kernel_rows.h"

namespace sorn::arith {

template <class Op, Scale S, class D, class A>
inline void unary_rows(int32_t rows, int32_t cols, char *d, ptrdiff_t ds, const char *a,
                       ptrdiff_t as, const ScaleArgs &k) {
  // No __restrict: the destination may be the source itself.
  for (int32_t y = 0; y < rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const A *ar = reinterpret_cast<const A *>(a);
    for (int32_t x = 0; x < cols; ++x) dr[x] = binary_elem<Op, S, D, A, A>(ar[x], ar[x], k);
    d += ds;
    a += as;
  }
}

template <class Op, class D, class A>
SornStatus unary_kernel(int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides,
                        const void *pa, const int32_t *astrides, int32_t sf) {
  KernelRows r;
  if (!kernel_rows(n, dims, dststrides, astrides, nullptr, 1, &r)) return SORN_OK;
  merge_dense_rows(&r, sizeof(D), sizeof(A), 0);
  const ScaleArgs k = scale_args<D>(sf);
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(pa);
  by_scale<D, A, A>(sf, [&](auto s) {
    unary_rows<Op, decltype(s)::value, D, A>(r.rows, r.len, d, r.ds, a, r.as, k);
  });
  return SORN_OK;
}

}  // namespace sorn::arith

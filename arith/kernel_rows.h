// How an arithmetic kernel walks its operands: rows dims[n-3] apart by the
// row strides of cell n-3 (a single row without a step when n is 2), each of
// dims[n-2] * per adjacent elements, whatever the other strides say. Up to
// three operands: the destination and one or two sources.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sorn::arith {

struct KernelRows {
  int32_t rows, len;
  ptrdiff_t ds, as, bs;
};

// False when there is nothing to walk.
inline bool kernel_rows(int32_t n, const int32_t *dims, const int32_t *ds, const int32_t *as,
                        const int32_t *bs, int32_t per, KernelRows *r) {
  if (n < 2) return false;
  *r = {1, dims[n - 2] * per, 0, 0, 0};
  if (n >= 3) {
    r->rows = dims[n - 3];
    r->ds = ds[n - 3];
    r->as = as[n - 3];
    r->bs = bs ? bs[n - 3] : 0;
  }
  return r->rows >= 1 && r->len >= 1;
}

}  // namespace sorn::arith

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

// Rows that follow each other without a gap in every operand are one long
// row: a small image (8 x 8 bytes, say) then runs through the wide loop once
// instead of through the tail of it row by row. Elements meet the same
// elements in the same order, so nothing else changes. Sizes are those of
// the destination's and the sources' elements (0 for a source not there).
inline void merge_dense_rows(KernelRows *r, ptrdiff_t dsize, ptrdiff_t asize, ptrdiff_t bsize) {
  if (r->rows <= 1) return;
  const ptrdiff_t len = r->len;
  if (r->ds != len * dsize || r->as != len * asize || r->bs != len * bsize) return;
  if ((int64_t)len * r->rows > INT32_MAX) return;
  r->len = (int32_t)(len * r->rows);
  r->rows = 1;
}

}  // namespace sorn::arith

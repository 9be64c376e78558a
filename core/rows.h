// How a kernel (layer 4) walks its operand: rows of elements a row step
// apart, and dense rows taken as one long row. Kernels are called with a
// plain count n of cells: rows are dims[n-3] (a single row when n is 2), the
// row length dims[n-2] pixels.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

namespace sorn {

struct Rows {
  int32_t rows;
  int32_t cols;     // pixels of a row
  ptrdiff_t step;   // bytes from row to row of the operand
  ptrdiff_t mstep;  // the same for a mask, 0 without one
};

inline Rows rows_of(int32_t n, const int32_t *dims, const int32_t *strides,
                    const int32_t *mstrides = nullptr) {
  Rows r{1, 1, 0, 0};
  if (n >= 2) r.cols = dims[n - 2];
  if (n >= 3) {
    r.rows = dims[n - 3];
    r.step = strides[n - 3];
    if (mstrides) r.mstep = mstrides[n - 3];
  }
  if (r.rows < 0) r.rows = 0;
  if (r.cols < 0) r.cols = 0;
  return r;
}

// Dense rows become one long row: the pixel stride times the row length is
// the row step, for the operand and for its mask when there is one.
inline void merge_dense(Rows &r, int32_t n, const int32_t *strides,
                        const int32_t *mstrides = nullptr) {
  if (r.rows <= 1 || n < 3) return;
  if ((ptrdiff_t)strides[n - 2] * r.cols != r.step) return;
  if (mstrides && (ptrdiff_t)mstrides[n - 2] * r.cols != r.mstep) return;
  r.cols *= r.rows;
  r.rows = 1;
}

}  // namespace sorn

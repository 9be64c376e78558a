// The kernels of the conversion between element types: the walk of the
// rows, merged into one when both arrays are dense, and the per-element
// rules of the saturating conversion (sorn::sat_convert).
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "core/dispatch.h"
#include "core/elem_types.h"

namespace sorn::data {

// The rows of a destination and a source: rows of width * channels
// elements, a row step apart. Dense arrays make one long row, unless the
// destination lies above the source and within the source's span, where a
// row-by-row walk keeps each row's elements read before later rows are
// written.
struct ConvertRows {
  int32_t rows, len;
  ptrdiff_t dstep, sstep;
};

inline bool convert_rows(SornDimPack pack, const int32_t *dims, const int32_t *dststrides,
                         const void *dst, const int32_t *srcstrides, const void *src,
                         ConvertRows *r) {
  const sorn::Inner in = sorn::inner3(pack, dims, dststrides, srcstrides);
  const int32_t n = in.n;
  if (n < 2) return false;
  const int32_t width = in.dims[n - 2], ch = sorn::channels_of(in.dims[n - 1]);
  *r = {n >= 3 ? in.dims[n - 3] : 1, width * ch, 0, 0};
  if (n >= 3) {
    r->dstep = in.strides[n - 3];
    r->sstep = in.mstrides[n - 3];
  }
  if (r->rows < 1 || r->len < 1) return false;
  const bool dense = (ptrdiff_t)in.strides[n - 2] * width == r->dstep &&
                     (ptrdiff_t)in.mstrides[n - 2] * width == r->sstep;
  const intptr_t d = (intptr_t)dst, s = (intptr_t)src;
  const bool above = d > s && r->sstep * r->rows > d - s;
  if (r->rows > 1 && dense && !above) {
    r->len *= r->rows;
    r->rows = 1;
  }
  return true;
}

// The t conversion of one region from S to D.
template <class D, class S>
SornStatus tconvert_kernel(SornDimPack pack, const int32_t *dims, void *dst,
                           const int32_t *dststrides, const void *src, const int32_t *srcstrides) {
  ConvertRows r;
  if (!convert_rows(pack, dims, dststrides, dst, srcstrides, src, &r)) return SORN_OK;
  char *d = static_cast<char *>(dst);
  const char *s = static_cast<const char *>(src);
  for (int32_t y = 0; y < r.rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const S *sr = reinterpret_cast<const S *>(s);
    for (int32_t x = 0; x < r.len; ++x) dr[x] = sorn::sat_convert<D, S>(sr[x]);
    d += r.dstep;
    s += r.sstep;
  }
  return SORN_OK;
}

}  // namespace sorn::data

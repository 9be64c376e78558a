// Windows of the neighbourhood operations: normalising a window against the
// extents of the region it runs over, centring its anchor, and the extents
// that a window adds to a region or takes from it.
#include <sorn.h>

#include <cstdint>

#include "filter/shape_cells.h"

using sorn::shapes::Cells;
using sorn::shapes::cells_of;

// A window that would reach no neighbour along rows and columns is no
// window at all: it is replaced by 5 by 5 around the centre, so that an
// entry point never hands a 1 by 1 window to a kernel. Only rows and
// columns decide this; the depth cell never reaches a kernel.
int sorn_seshape__adjust_$gv$I(SornSeShape *se, int32_t n, const int32_t *dims) {
  se->anchor[3] = 0;
  se->size[3] = 0;
  const Cells c = cells_of(n);
  for (int32_t k = 0; k < c.count; ++k) {
    int32_t &size = se->size[c.rec(k)], &anchor = se->anchor[c.rec(k)];
    if (size < 0 && dims != nullptr) {
      // Relative to the region: its extent less so many cells.
      const int64_t t = (int64_t)size + dims[k];
      if (t >= 0) size = (int32_t)t;
    }
    if (size <= 0) {
      size = 1;
      anchor = 0;
    }
  }
  bool reaches = false;
  for (int32_t k = 0; k < c.count; ++k)
    if (c.rec(k) >= 1 && se->size[c.rec(k)] != 1) reaches = true;
  if (!reaches) {
    se->size[1] = se->size[2] = 5;
    se->anchor[1] = se->anchor[2] = 2;
  }
  for (int32_t k = 0; k < c.count; ++k) {
    const int32_t size = se->size[c.rec(k)];
    int32_t &anchor = se->anchor[c.rec(k)];
    if (anchor >= size)
      anchor = size - 1;
    else if (anchor < 0)
      anchor = anchor + size < 0 ? 0 : anchor + size;  // counted back from the end
  }
  return 1;
}

int sorn_seshape__adjust_$gv(SornSeShape *out, const SornSeShape *se, int32_t n,
                             const int32_t *dims) {
  if (se != nullptr && se != out) *out = *se;
  return sorn_seshape__adjust_$gv$I(out, n, dims);
}

// Unlike its neighbours this walks the cells from the front: cells 0 to
// min(n, 3) - 1. Callers pass 3, for which the two ways agree.
SornSeShape *sorn_seshape_rstanchor_$gn(SornSeShape *se, int32_t n) {
  const int32_t m = n > 3 ? 3 : n;
  for (int32_t i = 0; i < m; ++i) se->anchor[i] = se->size[i] / 2;
  return se;
}

// A region grows by the window less one cell along each axis: the extent a
// source needs so that every output cell has its whole window.
int32_t *sorn_volume__widen_$se(int32_t n, int32_t *out, const int32_t *dims,
                                const SornSeShape *se) {
  const Cells c = cells_of(n);
  sorn_vec__add(c.count, out, dims ? dims : out, se->size + c.first);
  return sorn_vec__add_$C$I(c.count, out, -1);
}

int32_t *sorn_volume__widen_$I$se(int32_t n, int32_t *dims, const SornSeShape *se) {
  return sorn_volume__widen_$se(n, dims, dims, se);
}

int32_t *sorn_volume__narrow_$se(int32_t n, int32_t *out, const int32_t *dims,
                                 const SornSeShape *se) {
  const Cells c = cells_of(n);
  sorn_vec__sub(c.count, out, dims ? dims : out, se->size + c.first);
  return sorn_vec__add_$C$I(c.count, out, 1);
}

int32_t *sorn_volume__narrow_$I$se(int32_t n, int32_t *dims, const SornSeShape *se) {
  return sorn_volume__narrow_$se(n, dims, dims, se);
}

// Which cells a count n names, for the window and border helpers. Internal:
// nothing here is exported.
//
// Windows, borders and site boxes are records of four cells (depth, rows,
// columns, channels), while the extents and boxes they are combined with
// are short vectors of the cells that take part. A count n above 3 acts as
// 3 (the channel cell never takes part), and with n below 3 the last n of
// the three spatial cells are used: vector cell k goes with record cell
// 3 - n + k, so that n = 2 is rows and columns, whatever the vectors' own
// length.
#pragma once

#include <sorn.h>

#include <cstdint>

namespace sorn::shapes {

struct Cells {
  int32_t count;  // cells that take part, 0 to 3
  int32_t first;  // the record cell that vector cell 0 goes with

  int32_t rec(int32_t k) const { return first + k; }
};

inline Cells cells_of(int32_t n) {
  const int32_t m = n > 3 ? 3 : n < 0 ? 0 : n;
  return Cells{m, 3 - m};
}

// Whether the box that a window reads around extents of the n - 1 spatial
// cells of `dims` (the window grown by its size less one, shifted back by
// its anchor) still has 32-bit extents. A window from a caller may be as
// large as a cell holds; its box is then larger than any image and can be
// neither read from a parent nor built in scratch.
inline bool box_fits(int32_t n, const int32_t *dims, const SornSeShape *se) {
  if (se == nullptr) return true;
  const Cells c = cells_of(n - 1);
  for (int32_t k = 0; k < c.count; ++k) {
    const int64_t extent = (int64_t)dims[k] + se->size[c.rec(k)] - 1;
    const int64_t start = -(int64_t)se->anchor[c.rec(k)];
    if (extent > INT32_MAX || start < INT32_MIN + 1) return false;
  }
  return true;
}

}  // namespace sorn::shapes

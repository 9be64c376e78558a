// Plain references for the copies, written from the rules and never calling
// the library: the index rule of each border kind, the fitting of a border
// into the room a destination leaves, and source records that are
// sub-arrays of a larger parent, built field by field.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "testkit.h"

namespace copy_ref {

// The cell that coordinate i of an axis of n cells reads under a border
// kind (i inside 0 .. n-1 reads itself).
inline int32_t map(int32_t kind, int32_t i, int32_t n) {
  switch (kind) {
    case SORN_BORDER_REPLICATE: return std::clamp(i, 0, n - 1);
    case SORN_BORDER_WRAP: return ((i % n) + n) % n;
    case SORN_BORDER_REFLECT: {
      const int32_t p = 2 * n, j = ((i % p) + p) % p;
      return j < n ? j : p - 1 - j;
    }
    default: {  // reflect101
      if (n == 1) return 0;
      const int32_t p = 2 * (n - 1), j = ((i % p) + p) % p;
      return j < n ? j : p - j;
    }
  }
}

// A border fitted to the room between an outer and an inner extent, one
// cell: false when lo ends above 0 or hi below 0.
inline bool fit(int32_t outer, int32_t inner, int32_t *lo, int32_t *hi) {
  const int32_t room = outer - inner;
  if (room <= 0) {
    *lo = -room;
    *hi = 0;
  } else if (room < *hi - *lo) {
    *lo = (int32_t)std::nearbyintf((float)(*lo * room) / (float)(*hi - *lo));
    *hi = room + *lo;
  }
  return !(*lo > 0 || *hi < 0);
}

// A source: a parent image and the sub-array of it that the record shows.
struct Source {
  sorn_test::Image parent;
  int32_t sy, sx, sh, sw;  // the sub-array in the parent

  Source(int32_t rows, int32_t cols, int32_t ch, uint32_t type, int32_t pad, int32_t sy_,
         int32_t sx_, int32_t sh_, int32_t sw_)
      : parent(rows, cols, ch, type, pad), sy(sy_), sx(sx_), sh(sh_), sw(sw_) {}

  // The record of the sub-array, with the parent in its bounds and its start
  // in its offset, as a constructor with an origin makes it.
  SornArray record() const {
    SornArray a = parent.record();
    a.dims[1] = sh;
    a.dims[2] = sw;
    a.offset = (int64_t)sy * a.strides[1] + (int64_t)sx * a.strides[2];
    return a;
  }
  const uint8_t *pixel(int32_t y, int32_t x) const {
    return parent.base() + (size_t)y * parent.rowstride() +
           (size_t)x * parent.channels() * parent.esize();
  }
};

// The pixels a border copy may read for real around a region of the
// source, as (up, down, left, right) cells beyond it; ry, rx is the region's
// origin in the sub-array.
struct Reach {
  int32_t up = 0, down = 0, left = 0, right = 0;
};
inline Reach reach(SornFlags flags, const Source &s, int32_t ry, int32_t rx, int32_t rh,
                   int32_t rw) {
  Reach r;
  if (flags & SORN_F_NOMARGIN) return r;
  if (flags & SORN_F_SITEMARGIN) {
    r.up = ry;
    r.left = rx;
    r.down = s.sh - ry - rh;
    r.right = s.sw - rx - rw;
  } else {
    r.up = s.sy + ry;
    r.left = s.sx + rx;
    r.down = s.parent.rows() - (s.sy + ry) - rh;
    r.right = s.parent.cols() - (s.sx + rx) - rw;
  }
  return r;
}

}  // namespace copy_ref

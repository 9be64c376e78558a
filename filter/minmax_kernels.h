// Minimum and maximum filters, one template for both extremes: small
// windows fold their cells; rows, columns and general windows run the block
// algorithm, whose cost per pixel does not depend on the window.
//
// The block algorithm along a line: with b = w - 1, the outputs go in
// blocks of b. For a block whose first window ends at cell e, a backward
// pass gives s[k], the extreme of cells e - b + k .. e - 1, and a forward
// pass keeps r, the extreme of cells e .. e + k; output k of the block is
// extreme(s[k], r). Three comparisons per pixel, whatever w is.
//
// Down the image the passes work on whole rows at a time. Along a row they
// would be one cell at a time, so a row pass takes 16 rows together: their
// cells are interleaved into lanes (cell i of row k at 16 i + k), the
// column algorithm runs on rows of 16 lanes, and the results are spread
// back. Each lane meets its cells in the order of the row algorithm, so
// the results are those of the one-row form, NaNs included.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <cstring>

#include "filter/flat_kernels.h"

namespace sorn::filter {

// Rows of a row pass taken together.
constexpr int32_t kLanes = 16;

/* ---------------- whole-row steps ---------------- */

template <class E, class T>
inline void ext_rows(T *__restrict o, const T *__restrict a, const T *__restrict b, int32_t n) {
  for (int32_t i = 0; i < n; ++i) o[i] = E::of(a[i], b[i]);
}
template <class E, class T>
inline void ext_into(T *__restrict r, const T *__restrict a, int32_t n) {
  for (int32_t i = 0; i < n; ++i) r[i] = E::of(r[i], a[i]);
}
// A row of the image (elements a step apart) into contiguous cells.
template <class T, bool U> inline void take_row(T *__restrict o, Line<const T, U> a, int32_t n) {
  for (int32_t i = 0; i < n; ++i) o[i] = a[i];
}
template <class E, class T, bool U>
inline void ext_rows(T *__restrict o, Line<const T, U> a, const T *__restrict b, int32_t n) {
  for (int32_t i = 0; i < n; ++i) o[i] = E::of(a[i], b[i]);
}
template <class E, class T, bool U>
inline void ext_into(T *__restrict r, Line<const T, U> a, int32_t n) {
  for (int32_t i = 0; i < n; ++i) r[i] = E::of(r[i], a[i]);
}
template <class E, class T, bool U>
inline void ext_out(Line<T, U> o, const T *__restrict a, const T *__restrict b, int32_t n) {
  for (int32_t i = 0; i < n; ++i) o[i] = E::of(a[i], b[i]);
}

// The column block algorithm over `rows` outputs of `n` cells each: input
// row k at in(k) (cells e - b .. of each block), output row k at out(k).
// S holds b + 1 rows of `pitch` cells: the backward extremes and the
// running row.
template <class E, class T, class In, class Out>
void column_blocks(int32_t rows, int32_t n, int32_t b, T *__restrict S, ptrdiff_t pitch, In in,
                   Out out) {
  T *R = S + (ptrdiff_t)b * pitch;
  for (int32_t o = 0; o < rows; o += b) {
    const int32_t e = o + b, len = std::min(b, rows - o);
    in.take(S + (ptrdiff_t)(b - 1) * pitch, e - 1, n);
    for (int32_t k = b - 2; k >= 0; --k)
      in.ext(S + (ptrdiff_t)k * pitch, e - b + k, S + (ptrdiff_t)(k + 1) * pitch, n);
    in.take(R, e, n);
    out(o, S, R, n);
    for (int32_t k = 1; k < len; ++k) {
      in.ext_into(R, e + k, n);
      out(o + k, S + (ptrdiff_t)k * pitch, R, n);
    }
  }
}

/* ---------------- shapes ---------------- */

// A shape's run(): the plane of the call, d at the first output, s at the
// region's first pixel; each shape steps back by the anchors of the axes it
// reads along, and no others, so that it can serve as one pass of a
// general window.
template <class T, bool U>
inline Line<const T, U> src_row(const char *s, const Plane &p, ptrdiff_t r) {
  return Line<const T, U>{row_at<const T>(s, p.srs, r), p.sps};
}
template <class T, bool U> inline Line<T, U> dst_row(char *d, const Plane &p, ptrdiff_t r) {
  return Line<T, U>{row_at<T>(d, p.drs, r), p.dps};
}
template <class T> inline const char *back_cols(const char *s, const Plane &p, int32_t a) {
  return s - (ptrdiff_t)a * p.sps * (ptrdiff_t)sizeof(T);
}
inline const char *back_rows(const char *s, const Plane &p, int32_t a) {
  return s - (ptrdiff_t)a * p.srs;
}

// The plain copy of a window of one cell (reached only by direct calls).
template <class T, bool U> SornStatus copy_plane(const Plane &p, char *d, const char *s) {
  for (int32_t y = 0; y < p.rows; ++y) {
    const Line<T, U> o = dst_row<T, U>(d, p, y);
    const Line<const T, U> a = src_row<T, U>(s, p, y);
    for (int32_t i = 0; i < p.cols; ++i) o[i] = a[i];
  }
  return SORN_OK;
}

// Folds of 2, 3 or 4 cells along a row; neighbouring outputs share the
// extremes of pairs.
template <int W> struct RowFold {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    s = back_cols<T>(s, p, se->anchor[2]);
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> o = dst_row<T, U>(d, p, y);
      const Line<const T, U> a = src_row<T, U>(s, p, y);
      for (int32_t i = 0; i < p.cols; ++i) {
        if constexpr (W == 2) o[i] = E::of(a[i], a[i + 1]);
        if constexpr (W == 3) o[i] = E::of(E::of(a[i], a[i + 1]), a[i + 2]);
        if constexpr (W == 4) o[i] = E::of(E::of(a[i], a[i + 1]), E::of(a[i + 2], a[i + 3]));
      }
    }
    return SORN_OK;
  }
};

// Folds of 2 or 3 rows.
template <int H> struct ColFold {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    s = back_rows(s, p, se->anchor[1]);
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> o = dst_row<T, U>(d, p, y);
      const Line<const T, U> a = src_row<T, U>(s, p, y), b = src_row<T, U>(s, p, y + 1);
      if constexpr (H == 2) {
        for (int32_t i = 0; i < p.cols; ++i) o[i] = E::of(a[i], b[i]);
      } else {
        const Line<const T, U> c = src_row<T, U>(s, p, y + 2);
        for (int32_t i = 0; i < p.cols; ++i) o[i] = E::of(E::of(a[i], b[i]), c[i]);
      }
    }
    return SORN_OK;
  }
};

// Two by two: the extremes of column pairs, then of neighbouring ones.
struct Square2 {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    s = back_rows(back_cols<T>(s, p, se->anchor[2]), p, se->anchor[1]);
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> o = dst_row<T, U>(d, p, y);
      const Line<const T, U> a = src_row<T, U>(s, p, y), b = src_row<T, U>(s, p, y + 1);
      for (int32_t i = 0; i < p.cols; ++i)
        o[i] = E::of(E::of(a[i], b[i]), E::of(a[i + 1], b[i + 1]));
    }
    return SORN_OK;
  }
};

// 2 or 3 columns of a few rows: each output row folds its h rows column by
// column into one scratch row, anew, then folds that row W wide.
template <int W> struct NarrowCols {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    const int32_t h = se->size[1], span = p.cols + W - 1;
    s = back_rows(back_cols<T>(s, p, se->anchor[2]), p, se->anchor[1]);
    Scratch block(xe, sizeof(T) * (size_t)span);
    if (!block.ok()) return SORN_ENOMEM;
    T *__restrict c = block.as<T>();
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<const T, U> a = src_row<T, U>(s, p, y), b = src_row<T, U>(s, p, y + 1);
      if (h == 3) {
        const Line<const T, U> e = src_row<T, U>(s, p, y + 2);
        for (int32_t i = 0; i < span; ++i) c[i] = E::of(E::of(a[i], b[i]), e[i]);
      } else {
        for (int32_t i = 0; i < span; ++i) c[i] = E::of(a[i], b[i]);
        for (int32_t r = 2; r < h; ++r) ext_into<E>(c, src_row<T, U>(s, p, y + r), span);
      }
      const Line<T, U> o = dst_row<T, U>(d, p, y);
      for (int32_t i = 0; i < p.cols; ++i) {
        if constexpr (W == 2) o[i] = E::of(c[i], c[i + 1]);
        if constexpr (W == 3) o[i] = E::of(E::of(c[i], c[i + 1]), c[i + 2]);
      }
    }
    return SORN_OK;
  }
};

// A column of any height: the block algorithm on whole rows.
struct Column {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    const int32_t b = se->size[1] - 1;
    s = back_rows(s, p, se->anchor[1]);
    if (b < 1) return copy_plane<T, U>(p, d, s);
    const ptrdiff_t pitch = pitch_of<T>(p.cols);
    Scratch block(xe, sizeof(T) * (size_t)pitch * (size_t)(b + 1));
    if (!block.ok()) return SORN_ENOMEM;
    struct In {
      const char *s;
      const Plane &p;
      void take(T *o, int32_t k, int32_t n) const { take_row(o, src_row<T, U>(s, p, k), n); }
      void ext(T *o, int32_t k, const T *b, int32_t n) const {
        ext_rows<E>(o, src_row<T, U>(s, p, k), b, n);
      }
      void ext_into(T *r, int32_t k, int32_t n) const {
        sorn::filter::ext_into<E>(r, src_row<T, U>(s, p, k), n);
      }
    };
    column_blocks<E>(p.rows, p.cols, b, block.as<T>(), pitch, In{s, p},
                     [&](int32_t k, const T *a, const T *r, int32_t n) {
                       ext_out<E>(dst_row<T, U>(d, p, k), a, r, n);
                     });
    return SORN_OK;
  }
};

// A row of any width: the block algorithm on 16 rows at a time, in lanes.
struct Row {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    const int32_t b = se->size[2] - 1;
    s = back_cols<T>(s, p, se->anchor[2]);
    if (b < 1) return copy_plane<T, U>(p, d, s);
    const int32_t cells = p.cols + b;
    const size_t lanes = (size_t)kLanes;
    // The interleaved input, the interleaved output, the b + 1 lane rows of
    // the algorithm.
    Scratch block(xe, sizeof(T) * lanes * ((size_t)cells + (size_t)p.cols + (size_t)b + 1));
    if (!block.ok()) return SORN_ENOMEM;
    T *__restrict in = block.as<T>();
    T *__restrict out = in + lanes * (size_t)cells;
    T *__restrict S = out + lanes * (size_t)p.cols;
    for (int32_t y0 = 0; y0 < p.rows; y0 += kLanes) {
      const int32_t g = std::min(kLanes, p.rows - y0);
      // Rows past the last one repeat it: their lanes are worked and not
      // written back.
      const T *rows[kLanes];
      for (int32_t k = 0; k < kLanes; ++k)
        rows[k] = &*src_row<T, U>(s, p, y0 + std::min(k, g - 1)).p;
      interleave<T, U>(in, rows, cells, p.sps);
      struct In {
        const T *in;
        void take(T *o, int32_t k, int32_t) const {
          std::memcpy(o, in + (ptrdiff_t)k * kLanes, sizeof(T) * kLanes);
        }
        void ext(T *o, int32_t k, const T *b, int32_t) const {
          ext_rows<E>(o, in + (ptrdiff_t)k * kLanes, b, kLanes);
        }
        void ext_into(T *r, int32_t k, int32_t) const {
          sorn::filter::ext_into<E>(r, in + (ptrdiff_t)k * kLanes, kLanes);
        }
      };
      column_blocks<E>(p.cols, kLanes, b, S, kLanes, In{in},
                       [&](int32_t k, const T *a, const T *r, int32_t) {
                         ext_rows<E>(out + (ptrdiff_t)k * kLanes, a, r, kLanes);
                       });
      T *to[kLanes];
      for (int32_t k = 0; k < kLanes; ++k) to[k] = &*dst_row<T, U>(d, p, y0 + std::min(k, g - 1)).p;
      spread<T, U>(to, g, out, p.cols, p.dps);
    }
    return SORN_OK;
  }

  // Cell i of row k to lane k of cell i.
  template <class T, bool U>
  static void interleave(T *__restrict o, const T *const *rows, int32_t cells, int32_t step) {
    for (int32_t i = 0; i < cells; ++i)
      for (int32_t k = 0; k < kLanes; ++k)
        o[(ptrdiff_t)i * kLanes + k] = rows[k][U ? i : (ptrdiff_t)i * step];
  }
  // Lane k of cell i back to cell i of row k, for the first g rows. With a
  // step of one element, 16 cells at a time go through a small block that
  // is interleaved like the input (the form the compiler does well) and
  // leave as runs of the rows.
  template <class T, bool U>
  static void spread(T *const *to, int32_t g, const T *__restrict lanes, int32_t n, int32_t step) {
    alignas(16) T block[kLanes * kLanes];
    int32_t c0 = 0;
    if (U) {
      for (; c0 + kLanes <= n; c0 += kLanes) {
        const T *cells[kLanes];
        for (int32_t j = 0; j < kLanes; ++j) cells[j] = lanes + (ptrdiff_t)(c0 + j) * kLanes;
        interleave<T, true>(block, cells, kLanes, 1);
        for (int32_t k = 0; k < g; ++k)
          std::memcpy(to[k] + c0, block + (ptrdiff_t)k * kLanes, sizeof(T) * kLanes);
      }
    }
    for (; c0 < n; ++c0)
      for (int32_t k = 0; k < g; ++k)
        to[k][U ? c0 : (ptrdiff_t)c0 * step] = lanes[(ptrdiff_t)c0 * kLanes + k];
  }
};

/* ---------------- calls ---------------- */

template <class T, class E, class Shape>
SornStatus run_shape(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
  if (p.rows < 1 || p.cols < 1) return SORN_OK;
  return by_unit(p, [&]<bool U>() { return Shape::template run<T, E, U>(xe, p, d, s, se); });
}

template <class T, class E, class Shape>
SornStatus kernel(SornXE *xe, int32_t n, const int32_t *sizes, void *dst, const int32_t *ds,
                  const void *src, const int32_t *ss, const SornSeShape *se) {
  const Plane p = plane_of<T>(n, sizes, ds, ss);
  return run_shape<T, E, Shape>(xe, p, static_cast<char *>(dst), static_cast<const char *>(src),
                                se);
}

// A general window in two passes through a scratch block of the widened
// extents: along rows first when the window is much wider than high
// (w - 1 >= 2h), else down columns first. Each pass is the routine of its
// axis, applying its own anchor.
template <class T, class E> struct General {
  static SornStatus row_pass(SornXE *xe, const Plane &p, char *d, const char *s,
                             const SornSeShape *se) {
    switch (se->size[2]) {
      case 2: return run_shape<T, E, RowFold<2>>(xe, p, d, s, se);
      case 3: return run_shape<T, E, RowFold<3>>(xe, p, d, s, se);
      case 4: return run_shape<T, E, RowFold<4>>(xe, p, d, s, se);
      default: return run_shape<T, E, Row>(xe, p, d, s, se);
    }
  }
  static SornStatus col_pass(SornXE *xe, const Plane &p, char *d, const char *s,
                             const SornSeShape *se) {
    switch (se->size[1]) {
      case 2: return run_shape<T, E, ColFold<2>>(xe, p, d, s, se);
      case 3: return run_shape<T, E, ColFold<3>>(xe, p, d, s, se);
      default: return run_shape<T, E, Column>(xe, p, d, s, se);
    }
  }
  static SornStatus run2(SornXE *xe, const Plane &p, char *d, const char *s,
                         const SornSeShape *se) {
    const int32_t w = se->size[2], h = se->size[1], ax = se->anchor[2], ay = se->anchor[1];
    const int32_t wide = p.cols + w - 1, high = p.rows + h - 1;
    const ptrdiff_t pitch = pitch_of<T>(wide);
    Scratch block(xe, sizeof(T) * (size_t)pitch * (size_t)high, 8);
    if (!block.ok()) return SORN_ENOMEM;
    T *mid = block.as<T>();
    const ptrdiff_t mrs = pitch * (ptrdiff_t)sizeof(T);
    if (w - 1 >= 2 * h) {
      const Plane first{high, p.cols, mrs, p.srs, 1, p.sps};
      const SornStatus st =
          row_pass(xe, first, reinterpret_cast<char *>(mid + ax), back_rows(s, p, ay), se);
      if (st != SORN_OK) return st;
      const Plane second{p.rows, p.cols, p.drs, mrs, p.dps, 1};
      return col_pass(xe, second, d, reinterpret_cast<const char *>(mid + ax + ay * pitch), se);
    }
    const Plane first{p.rows, wide, mrs, p.srs, 1, p.sps};
    const SornStatus st =
        col_pass(xe, first, reinterpret_cast<char *>(mid + ay * pitch), back_cols<T>(s, p, ax), se);
    if (st != SORN_OK) return st;
    const Plane second{p.rows, p.cols, p.drs, mrs, p.dps, 1};
    return row_pass(xe, second, d, reinterpret_cast<const char *>(mid + ax + ay * pitch), se);
  }
};

struct Wide {
  template <class T, class E, bool U>
  static SornStatus run(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    return General<T, E>::run2(xe, p, d, s, se);
  }
};

// The kernel of a window, by its height and width.
template <class T, class E>
SornStatus dispatch(SornXE *xe, SornFlags flags, int32_t n, const int32_t *sizes, void *dst,
                    const int32_t *ds, const void *src, const int32_t *ss, const SornSeShape *se) {
  const int32_t h = se->size[1], w = se->size[2];
  if (h == 1 && w == 1) {
    if (flags & SORN_F_PROBE) return SORN_OK;
    return sorna__copy(xe, flags, (SornDimPack)n, sizes, code_of<T>, dst, ds, src, ss);
  }
  SornStatus st;
  if (guarded(flags, &st)) return st;
  auto k = [&](auto shape) {
    return kernel<T, E, decltype(shape)>(xe, n, sizes, dst, ds, src, ss, se);
  };
  if (h == 1) {
    switch (w) {
      case 2: return k(RowFold<2>{});
      case 3: return k(RowFold<3>{});
      case 4: return k(RowFold<4>{});
      default: return k(Row{});
    }
  }
  if (h == 2) {
    if (w == 1) return k(ColFold<2>{});
    if (w == 2) return k(Square2{});
    if (w == 3) return k(NarrowCols<3>{});
    return k(Wide{});
  }
  if (h == 3) {
    if (w == 1) return k(ColFold<3>{});
    if (w == 2) return k(NarrowCols<2>{});
    if (w == 3) return k(NarrowCols<3>{});
    return k(Wide{});
  }
  if (w == 1) return k(Column{});
  return k(Wide{});
}

}  // namespace sorn::filter

// The exported kernels and dispatchers of one extreme, `name` min or max.
#define SORN_FLAT_SHAPE_2x1 sorn::filter::RowFold<2>
#define SORN_FLAT_SHAPE_3x1 sorn::filter::RowFold<3>
#define SORN_FLAT_SHAPE_4x1 sorn::filter::RowFold<4>
#define SORN_FLAT_SHAPE_Nx1 sorn::filter::Row
#define SORN_FLAT_SHAPE_1x2 sorn::filter::ColFold<2>
#define SORN_FLAT_SHAPE_1x3 sorn::filter::ColFold<3>
#define SORN_FLAT_SHAPE_1xN sorn::filter::Column
#define SORN_FLAT_SHAPE_2x2 sorn::filter::Square2
#define SORN_FLAT_SHAPE_2xN sorn::filter::NarrowCols<2>
#define SORN_FLAT_SHAPE_3xN sorn::filter::NarrowCols<3>
#define SORN_MINMAX_KERNEL(t, shape, name, Ext)                                  \
  SornStatus _T_sorna__##name##filter_c1_##t##_##shape SORN_FILTER_KERNEL_ARGS { \
    return sorn::filter::kernel<sorn::tok::t, Ext, SORN_FLAT_SHAPE_##shape>(     \
        xe, n, sizes, dst, dstStrides, src, srcStrides, se);                     \
  }
#define SORN_FLAT_SHAPE_NxM sorn::filter::Wide
#define SORN_MINMAX_DISPATCH(t, name, Ext)                                                      \
  SornStatus sorna__##name##filter_c1_##t SORN_FILTER_KERNEL_ARGS {                             \
    return sorn::filter::dispatch<sorn::tok::t, Ext>(xe, flags, n, sizes, dst, dstStrides, src, \
                                                     srcStrides, se);                           \
  }                                                                                             \
  SornStatus sorna__##name##filter_c3_##t SORN_FILTER_KERNEL_ARGS { return SORN_ENOTSUP; }      \
  SornStatus sorna__##name##filter_c4_##t SORN_FILTER_KERNEL_ARGS { return SORN_ENOTSUP; }

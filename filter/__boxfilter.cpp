// Box filters: each pixel becomes the mean of its window, f32(sum) * scale
// with the scale the reciprocal of the window's cells. Small windows fold
// their cells; the others keep running sums, so that the cost of a pixel
// does not depend on the window: along a row the sum takes the cell that
// enters and gives back the one that leaves, and down the image each
// column sum does the same with rows. With f32 the running sums carry
// every rounding along the row and down the image; that drift is the
// result, and so is the order of each update, (new - old) + sum.
#include <sorn.h>

#include <algorithm>
#include <cstring>

#include "filter/flat_kernels.h"

namespace sorn::filter {
namespace {

// Sums are made in chunks of this many outputs, then turned into means in
// one loop that the compiler vectorises.
constexpr int32_t kChunk = 256;

template <class T, bool U>
void out_chunk(Line<T, U> d, const typename Box<T>::Acc *__restrict sums, int32_t n, float scale) {
  for (int32_t i = 0; i < n; ++i) d[i] = Box<T>::out(sums[i], scale);
}

// The running sum along one row of `x` outputs over windows of `w` cells:
// the first sum in cell order, then one update per output, (enter - leave)
// + sum. The update after the last output would read past the last window
// and is left out. cells(out, from, n) gives the sums' terms of cells
// from .. from + n - 1. The terms and their differences come in chunks
// through loops that vectorise; only the running sum itself is serial.
template <class T, bool U, class Cells>
void running_row(Line<T, U> d, int32_t x, int32_t w, float scale, Cells cells) {
  using B = Box<T>;
  using A = typename B::Acc;
  A enter[kChunk], leave[kChunk], sums[kChunk];
  A sum = A(0);
  for (int32_t k0 = 0; k0 < w; k0 += kChunk) {
    const int32_t m = std::min(kChunk, w - k0);
    cells(enter, k0, m);
    int32_t k = 0;
    if (k0 == 0) sum = enter[k++];
    for (; k < m; ++k) sum = B::add(sum, enter[k]);
  }
  for (int32_t o0 = 0; o0 < x; o0 += kChunk) {
    const int32_t m = std::min(kChunk, x - o0);
    const int32_t updates = std::min(m, x - 1 - o0);
    cells(enter, o0 + w, updates);
    cells(leave, o0, updates);
    for (int32_t i = 0; i < updates; ++i) enter[i] = B::sub(enter[i], leave[i]);
    for (int32_t i = 0; i < updates; ++i) {
      sums[i] = sum;
      sum = B::add(enter[i], sum);
    }
    if (updates < m) sums[m - 1] = sum;
    out_chunk(d.at(o0), sums, m, scale);
  }
}

// The terms of a row of the image, and of a row of column sums.
template <class T, bool U> struct ImageCells {
  Line<const T, U> row;
  void operator()(typename Box<T>::Acc *__restrict out, int32_t from, int32_t n) const {
    for (int32_t i = 0; i < n; ++i) out[i] = Box<T>::acc(row[from + i]);
  }
};
template <class A> struct SumCells {
  const A *col;
  void operator()(A *__restrict out, int32_t from, int32_t n) const {
    const A *__restrict c = col + from;
    for (int32_t i = 0; i < n; ++i) out[i] = c[i];
  }
};

struct Shape2x1 {
  template <class T, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *) {
    using B = Box<T>;
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> dr{row_at<T>(d, p.drs, y), p.dps};
      const Line<const T, U> sr{row_at<const T>(s, p.srs, y), p.sps};
      for (int32_t i = 0; i < p.cols; ++i)
        dr[i] = B::out(B::add(B::acc(sr[i]), B::acc(sr[i + 1])), 0.5f);
    }
    return SORN_OK;
  }
};

struct Shape4x1 {
  template <class T, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *) {
    using B = Box<T>;
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> dr{row_at<T>(d, p.drs, y), p.dps};
      const Line<const T, U> sr{row_at<const T>(s, p.srs, y), p.sps};
      for (int32_t i = 0; i < p.cols; ++i) {
        const typename B::Acc a = B::add(
            B::add(B::add(B::acc(sr[i]), B::acc(sr[i + 1])), B::acc(sr[i + 2])), B::acc(sr[i + 3]));
        dr[i] = B::out(a, 0.25f);
      }
    }
    return SORN_OK;
  }
};

struct Shape1x2 {
  template <class T, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *) {
    using B = Box<T>;
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> dr{row_at<T>(d, p.drs, y), p.dps};
      const Line<const T, U> a{row_at<const T>(s, p.srs, y), p.sps};
      const Line<const T, U> b{row_at<const T>(s, p.srs, y + 1), p.sps};
      for (int32_t i = 0; i < p.cols; ++i) dr[i] = B::out(B::add(B::acc(a[i]), B::acc(b[i])), 0.5f);
    }
    return SORN_OK;
  }
};

// Two rows summed column by column, then neighbouring column sums.
struct Shape2x2 {
  template <class T, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *) {
    using B = Box<T>;
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<T, U> dr{row_at<T>(d, p.drs, y), p.dps};
      const Line<const T, U> a{row_at<const T>(s, p.srs, y), p.sps};
      const Line<const T, U> b{row_at<const T>(s, p.srs, y + 1), p.sps};
      for (int32_t i = 0; i < p.cols; ++i) {
        const typename B::Acc c0 = B::add(B::acc(a[i]), B::acc(b[i]));
        const typename B::Acc c1 = B::add(B::acc(a[i + 1]), B::acc(b[i + 1]));
        dr[i] = B::out(B::add(c0, c1), 0.25f);
      }
    }
    return SORN_OK;
  }
};

struct ShapeNx1 {
  template <class T, bool U>
  static SornStatus run(SornXE *, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    const int32_t w = se->size[2];
    const float scale = 1.0f / (float)w;
    for (int32_t y = 0; y < p.rows; ++y) {
      const Line<const T, U> sr{row_at<const T>(s, p.srs, y), p.sps};
      running_row(Line<T, U>{row_at<T>(d, p.drs, y), p.dps}, p.cols, w, scale,
                  ImageCells<T, U>{sr});
    }
    return SORN_OK;
  }
};

// Column sums over the window's rows, kept running down the image; each
// output row is a running sum of w column sums.
struct ShapeNxM {
  template <class T, bool U>
  static SornStatus run(SornXE *xe, const Plane &p, char *d, const char *s, const SornSeShape *se) {
    using B = Box<T>;
    using A = typename B::Acc;
    const int32_t w = se->size[2], h = se->size[1];
    // The cells of the window counted in 32 bits, as every extent is.
    const float scale = 1.0f / (float)(int32_t)((uint32_t)w * (uint32_t)h);
    const int32_t span = p.cols + w - 1;
    Scratch block(xe, sizeof(A) * (size_t)(p.cols + w + 8));
    if (!block.ok()) return SORN_ENOMEM;
    A *__restrict col = block.as<A>();
    for (int32_t c = 0; c < span; ++c) col[c] = A(0);
    for (int32_t r = 0; r < h; ++r) {
      const Line<const T, U> sr{row_at<const T>(s, p.srs, r), p.sps};
      for (int32_t c = 0; c < span; ++c) col[c] = B::add(col[c], B::acc(sr[c]));
    }
    for (int32_t y = 0; y < p.rows; ++y) {
      running_row(Line<T, U>{row_at<T>(d, p.drs, y), p.dps}, p.cols, w, scale, SumCells<A>{col});
      if (y + 1 == p.rows) break;
      const Line<const T, U> enter{row_at<const T>(s, p.srs, y + h), p.sps};
      const Line<const T, U> leave{row_at<const T>(s, p.srs, y), p.sps};
      for (int32_t c = 0; c < span; ++c)
        col[c] = B::add(B::sub(B::acc(enter[c]), B::acc(leave[c])), col[c]);
    }
    return SORN_OK;
  }
};

// A kernel from the call's arguments: the plane, the source moved back by
// the anchor to the first cell of the first window.
template <class T, class Shape>
SornStatus kernel(SornXE *xe, int32_t n, const int32_t *sizes, void *dst, const int32_t *ds,
                  const void *src, const int32_t *ss, const SornSeShape *se) {
  const Plane p = plane_of<T>(n, sizes, ds, ss);
  if (p.rows < 1 || p.cols < 1) return SORN_OK;
  const char *s = static_cast<const char *>(src) - (ptrdiff_t)se->anchor[1] * p.srs -
                  (ptrdiff_t)se->anchor[2] * p.sps * (ptrdiff_t)sizeof(T);
  char *d = static_cast<char *>(dst);
  return by_unit(p, [&]<bool U>() { return Shape::template run<T, U>(xe, p, d, s, se); });
}

// The kernel of a window: by its height first. There is no column kernel
// and no 3-wide one: they are the general forms, with the reciprocal scale.
template <class T>
SornStatus dispatch(SornXE *xe, SornFlags flags, int32_t n, const int32_t *sizes, void *dst,
                    const int32_t *ds, const void *src, const int32_t *ss, const SornSeShape *se) {
  const int32_t h = se->size[1], w = se->size[2];
  if (h == 1 && w == 1) {
    if (flags & SORN_F_PROBE) return SORN_OK;
    return sorna__copy(xe, flags, (SornDimPack)n, sizes, code_of<T>, dst, ds, src, ss);
  }
  SornStatus st;
  if (guarded(flags, &st)) return st;
  if (h == 1) {
    if (w == 2) return kernel<T, Shape2x1>(xe, n, sizes, dst, ds, src, ss, se);
    if (w == 4) return kernel<T, Shape4x1>(xe, n, sizes, dst, ds, src, ss, se);
    return kernel<T, ShapeNx1>(xe, n, sizes, dst, ds, src, ss, se);
  }
  if (h == 2 && w == 1) return kernel<T, Shape1x2>(xe, n, sizes, dst, ds, src, ss, se);
  if (h == 2 && w == 2) return kernel<T, Shape2x2>(xe, n, sizes, dst, ds, src, ss, se);
  return kernel<T, ShapeNxM>(xe, n, sizes, dst, ds, src, ss, se);
}

}  // namespace
}  // namespace sorn::filter

#define SORN_BOX_SHAPE_OF_2x1 Shape2x1
#define SORN_BOX_SHAPE_OF_4x1 Shape4x1
#define SORN_BOX_SHAPE_OF_Nx1 ShapeNx1
#define SORN_BOX_SHAPE_OF_1x2 Shape1x2
#define SORN_BOX_SHAPE_OF_2x2 Shape2x2
#define SORN_BOX_SHAPE_OF_NxM ShapeNxM
#define SORN_BOX_KERNEL(t, shape)                                                       \
  SornStatus _T_sorna__boxfilter_c1_##t##_##shape SORN_FILTER_KERNEL_ARGS {             \
    return sorn::filter::kernel<sorn::tok::t, sorn::filter::SORN_BOX_SHAPE_OF_##shape>( \
        xe, n, sizes, dst, dstStrides, src, srcStrides, se);                            \
  }
#define SORN_BOX_DISPATCH(t)                                                               \
  SornStatus sorna__boxfilter_c1_##t SORN_FILTER_KERNEL_ARGS {                             \
    return sorn::filter::dispatch<sorn::tok::t>(xe, flags, n, sizes, dst, dstStrides, src, \
                                                srcStrides, se);                           \
  }                                                                                        \
  SornStatus sorna__boxfilter_c3_##t SORN_FILTER_KERNEL_ARGS { return SORN_ENOTSUP; }      \
  SornStatus sorna__boxfilter_c4_##t SORN_FILTER_KERNEL_ARGS { return SORN_ENOTSUP; }      \
  SORN_BOXFILTER_SHAPES(SORN_BOX_KERNEL, t)
SORN_FILTER_TYPES(SORN_BOX_DISPATCH)

// Erosion and dilation with a mask, one template for both extremes and
// every shape: for each output row, the mask's rows are taken in turn, and
// within a row each output starts from the mask's first cell (the source
// cell when it is set, the neutral value when not) and folds in the source
// cell under every further set cell; the first mask row writes the row of
// dst, each further one folds into it. A mask of one column copies the
// source row under its first cell and folds in the rows of the further set
// cells only. The cost is proportional to the set cells: a mask has no
// structure for running extremes to exploit, and a mask of all 255 is sent
// to the rectangular filters instead.
//
// Rows are walked by elements: the source and destination rows are read as
// `columns` adjacent elements, whatever the channel count, so that with
// three or four channels a window reaches across channels and only the
// first `columns` elements of a row are written. The shapes of their own
// per channel form step back by the anchor times the channel count; the
// shared ones by the anchor alone.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <limits>
#include <type_traits>

#include "filter/flat_kernels.h"

namespace sorn::filter {

// The value a window with no set cell gives: the lowest finite value of the
// type for dilation, the highest for erosion (finite for f32 too).
template <class T, class E> inline T neutral() {
  if constexpr (std::is_same_v<E, Max>) return std::numeric_limits<T>::lowest();
  return std::numeric_limits<T>::max();
}

inline const SornStrel *strel_of(const SornSeShape *se) {
  return reinterpret_cast<const SornStrel *>(se);
}

// The first mask cell, or null when the mask has no data.
inline const uint8_t *first_mask_cell(const SornStrel *s) {
  if (s->mask.data == nullptr) return nullptr;
  return static_cast<const uint8_t *>(s->mask.data) + s->mask.offset;
}

// Whether the mask's cells are all 255 (or it has none): the question of
// the flat test, asked in the mask's own type.
inline bool flat_mask(const SornStrel *s) {
  return sorn_memcelem2dS((SornElemType)s->mask.elemtype, first_mask_cell(s), s->mask.strides[1],
                          s->mask.dims[1], s->mask.dims[2] * s->mask.dims[3], 255.0) < 0;
}

// A kernel shape: W columns and H rows (0 when given by the mask), the
// anchor's column scaled by the channel count or not, and whether the two
// cells of a mask row are tested together first (the 2 by 2 form: with
// cells 1 and 2 the test fails and the row has only its first cell; with 0
// and 255, as masks are meant to be, it is the same as two tests).
template <int W, int H, bool Scaled, bool Pair = false> struct MaskShape {};

// Outputs built together in a row: a kilobyte of them, so that each pass
// over a mask cell runs long enough for its vector loop to pay.
template <class T> constexpr int32_t kMaskRun = 1024 / (int32_t)sizeof(T);

template <class T, class E, int W, int H, bool Scaled, bool Pair, bool U>
SornStatus masked_rows(int32_t n, const int32_t *sizes, void *dst, const int32_t *ds,
                       const void *src, const int32_t *ss, const SornStrel *s, int32_t channels) {
  const int32_t cols = n >= 2 ? sizes[n - 2] : 1, rows = n >= 3 ? sizes[n - 3] : 1;
  const ptrdiff_t drs = n >= 3 ? ds[n - 3] : 0, srs = n >= 3 ? ss[n - 3] : 0;
  const int32_t de = U ? 1 : ds[n - 1] / (int32_t)sizeof(T);
  const int32_t se = U ? 1 : ss[n - 1] / (int32_t)sizeof(T);
  const int32_t h = H ? H : s->mask.dims[1], w = W ? W : s->mask.dims[2];
  const int32_t ay = s->anchor[1], back = s->anchor[2] * (Scaled ? channels : 1);
  const uint8_t *m = first_mask_cell(s);
  const ptrdiff_t mrs = s->mask.strides[1];
  const T start = neutral<T, E>();
  auto counts = [&](const uint8_t *mr, int32_t j) -> bool {
    if constexpr (Pair) {
      if (j == 1) return mr[1] != 0 && (mr[0] == 0 || (mr[0] & mr[1]) != 0);
    }
    return mr[j] != 0;
  };
  for (int32_t y = 0; y < rows; ++y) {
    const Line<T, U> d{row_at<T>(dst, drs, y), de};
    for (int32_t x0 = 0; x0 < cols; x0 += kMaskRun<T>) {
      const int32_t len = std::min(kMaskRun<T>, cols - x0);
      const Line<T, U> o = d.at(x0);
      T acc[kMaskRun<T>];
      for (int32_t i = 0; i < h; ++i) {
        const uint8_t *mr = m + (ptrdiff_t)i * mrs;
        const Line<const T, U> a =
            Line<const T, U>{row_at<const T>(src, srs, y - ay + i), se}.at((ptrdiff_t)x0 - back);
        if (w == 1) {
          if (i == 0) {
            if (mr[0] != 0)
              for (int32_t k = 0; k < len; ++k) o[k] = a[k];
            else
              for (int32_t k = 0; k < len; ++k) o[k] = start;
          } else if (mr[0] != 0) {
            for (int32_t k = 0; k < len; ++k) o[k] = E::of(o[k], a[k]);
          }
          continue;
        }
        if (mr[0] != 0)
          for (int32_t k = 0; k < len; ++k) acc[k] = a[k];
        else
          for (int32_t k = 0; k < len; ++k) acc[k] = start;
        for (int32_t j = 1; j < w; ++j) {
          if (!counts(mr, j)) continue;
          const Line<const T, U> b = a.at(j);
          for (int32_t k = 0; k < len; ++k) acc[k] = E::of(acc[k], b[k]);
        }
        if (i == 0)
          for (int32_t k = 0; k < len; ++k) o[k] = acc[k];
        else
          for (int32_t k = 0; k < len; ++k) o[k] = E::of(o[k], acc[k]);
      }
    }
  }
  return SORN_OK;
}

template <class T, class E, class Shape> struct MaskKernel;
template <class T, class E, int W, int H, bool Scaled, bool Pair>
struct MaskKernel<T, E, MaskShape<W, H, Scaled, Pair>> {
  static SornStatus run(int32_t n, const int32_t *sizes, void *dst, const int32_t *ds,
                        const void *src, const int32_t *ss, const SornSeShape *se,
                        int32_t channels) {
    if (n < 2 || n > 4) return SORN_EINVAL;
    const SornStrel *s = strel_of(se);
    if ((n >= 2 && sizes[n - 2] < 1) || (n >= 3 && sizes[n - 3] < 1)) return SORN_OK;
    const bool unit = ds[n - 1] == (int32_t)sizeof(T) && ss[n - 1] == (int32_t)sizeof(T);
    if (unit)
      return masked_rows<T, E, W, H, Scaled, Pair, true>(n, sizes, dst, ds, src, ss, s, channels);
    return masked_rows<T, E, W, H, Scaled, Pair, false>(n, sizes, dst, ds, src, ss, s, channels);
  }
};

template <class T, class E, class Shape>
SornStatus mask_kernel(int32_t n, const int32_t *sizes, void *dst, const int32_t *ds,
                       const void *src, const int32_t *ss, const SornSeShape *se,
                       int32_t channels) {
  return MaskKernel<T, E, Shape>::run(n, sizes, dst, ds, src, ss, se, channels);
}

// The dispatcher of one channel form: a mask of all 255 (or none) is the
// rectangle's dispatcher of the same form (which refuses three and four
// channels); any other mask picks its kernel by height and width, then
// meets the guard of every filter dispatcher.
template <class T, class E, int C>
SornStatus mask_dispatch(SornFilterKernel rect, SornXE *xe, SornFlags flags, int32_t n,
                         const int32_t *sizes, void *dst, const int32_t *ds, const void *src,
                         const int32_t *ss, const SornSeShape *se) {
  const SornStrel *s = strel_of(se);
  if (flat_mask(s)) return rect(xe, flags, n, sizes, dst, ds, src, ss, se);
  SornStatus st;
  if (answered_first<T>(xe, flags, n, sizes, dst, ds, src, ss, se, &st)) return st;
  const int32_t h = s->mask.dims[1], w = s->mask.dims[2];
  auto k = [&](auto shape) {
    return mask_kernel<T, E, decltype(shape)>(n, sizes, dst, ds, src, ss, se, C);
  };
  if (h == 1) {
    if (w == 2) return k(MaskShape<2, 1, false>{});
    if (w == 3) return k(MaskShape<3, 1, false>{});
    return k(MaskShape<0, 1, false>{});
  }
  if (w == 1) {
    if (h == 2) return k(MaskShape<1, 2, false>{});
    if (h == 3) return k(MaskShape<1, 3, false>{});
    return k(MaskShape<1, 0, false>{});
  }
  if (w == 2) {
    if (h == 2) return k(MaskShape<2, 2, true, true>{});
    return k(MaskShape<2, 0, true>{});
  }
  if (w == 3) return k(MaskShape<3, 0, true>{});
  return k(MaskShape<0, 0, true>{});
}

}  // namespace sorn::filter

// The exported kernels of one extreme (`name` dilate or erode) and type:
// the shapes of their own per channel form, and the shared ones, whose c1
// and c3 names forward to the c4 routine.
#define SORN_MORPH_SHAPE_NxM sorn::filter::MaskShape<0, 0, true>
#define SORN_MORPH_SHAPE_2x2 sorn::filter::MaskShape<2, 2, true, true>
#define SORN_MORPH_SHAPE_2xN sorn::filter::MaskShape<2, 0, true>
#define SORN_MORPH_SHAPE_3xN sorn::filter::MaskShape<3, 0, true>
#define SORN_MORPH_SHAPE_Nx1 sorn::filter::MaskShape<0, 1, false>
#define SORN_MORPH_SHAPE_1xN sorn::filter::MaskShape<1, 0, false>
#define SORN_MORPH_SHAPE_2x1 sorn::filter::MaskShape<2, 1, false>
#define SORN_MORPH_SHAPE_1x2 sorn::filter::MaskShape<1, 2, false>
#define SORN_MORPH_SHAPE_3x1 sorn::filter::MaskShape<3, 1, false>
#define SORN_MORPH_SHAPE_1x3 sorn::filter::MaskShape<1, 3, false>
#define SORN_MORPH_OWN_KERNEL(c, t, shape, name, Ext)                              \
  SornStatus _T_sorna__##name##_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS {     \
    return sorn::filter::mask_kernel<sorn::tok::t, Ext, SORN_MORPH_SHAPE_##shape>( \
        n, sizes, dst, dstStrides, src, srcStrides, se, c);                        \
  }
#define SORN_MORPH_SHARED_KERNEL(c, t, shape, name, Ext)                                    \
  SornStatus _T_sorna__##name##_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS {              \
    if constexpr (c != 4)                                                                   \
      return _T_sorna__##name##_c4_##t##_##shape(xe, flags, n, sizes, dst, dstStrides, src, \
                                                 srcStrides, se);                           \
    return sorn::filter::mask_kernel<sorn::tok::t, Ext, SORN_MORPH_SHAPE_##shape>(          \
        n, sizes, dst, dstStrides, src, srcStrides, se, 1);                                 \
  }
#define SORN_MORPH_DISPATCH(c, t, name, rect, Ext)                                                 \
  SornStatus sorna__##name##_c##c##_##t SORN_FILTER_KERNEL_ARGS {                                  \
    return sorn::filter::mask_dispatch<sorn::tok::t, Ext, c>(&sorna__##rect##filter_c##c##_##t,    \
                                                             xe, flags, n, sizes, dst, dstStrides, \
                                                             src, srcStrides, se);                 \
  }

// Separable filters: each output is the sum over the taps of coefficient
// times source cell, in f64 and in tap order, rounded once into the
// element type. Windows of one row or one column are one pass; the others
// are two, through a block of the element type, so that an integer image
// is rounded after each pass. Three- and five-tap passes fold their taps
// in one expression; the others keep f64
// accumulators, along a row in a chunk on the stack, down the image in a
// few rows of scratch that four output rows share.
//
// Three and four channels run the one-channel passes on neighbouring
// elements of each row: their neighbours are the next elements, not the
// same channel of the next pixel, and only as many elements as the row has
// pixels are written. That is the behaviour of these kernels, kept on
// purpose.
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "core/elem_types.h"
#include "filter/flat_kernels.h"

namespace sorn::filter {
namespace {

// Outputs of a row accumulated together on the stack.
constexpr int32_t kChunk = 256;

// A sum into the element type: to nearest even, what leaves the 32-bit
// range (NaN too) is 0x80000000, and u8 and s16 then saturate; f32
// narrows. Adding and removing 1.5 * 2^52 rounds every sum below 2^51 in
// magnitude to nearest even and keeps every larger one outside the 32-bit
// range; with the choice made by a select, rows vectorise.
template <class T> inline T rounded(double v) {
  if constexpr (std::is_same_v<T, float>) {
    return (float)v;
  } else {
    const double r = (v + 0x1.8p52) - 0x1.8p52;
    const bool fits = (r >= -2147483648.0) & (r < 2147483648.0);
    const int32_t i = (int32_t)(fits ? r : -2147483648.0);
    if constexpr (std::is_same_v<T, int32_t>)
      return i;
    else
      return sat32<T>(i);
  }
}

template <class T> inline const char *cols_back(const char *s, const Plane &p, int32_t a) {
  return s - (ptrdiff_t)a * p.sps * (ptrdiff_t)sizeof(T);
}
inline const char *rows_back(const char *s, const Plane &p, int32_t a) {
  return s - (ptrdiff_t)a * p.srs;
}

// A pass whose kernel is null is the box along its axis: the box filter
// of the channel form with the other axis cut to one cell. The box has no
// three- or four-channel kernels, and their refusal is the pass's answer.
template <class T, int C>
SornStatus box_pass(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                    const SornSepShape *sep, bool across) {
  SornSeShape local;
  std::memcpy(local.anchor, sep->anchor, sizeof local.anchor);
  std::memcpy(local.size, sep->size, sizeof local.size);
  const int32_t cut = across ? 1 : 2;
  local.anchor[cut] = 0;
  local.size[cut] = 1;
  const int32_t sizes[3] = {p.rows, p.cols, C};
  const int32_t ds[3] = {(int32_t)p.drs, p.dps * (int32_t)sizeof(T), (int32_t)sizeof(T)};
  const int32_t ss[3] = {(int32_t)p.srs, p.sps * (int32_t)sizeof(T), (int32_t)sizeof(T)};
  SornStatus st;
  const SornFilterKernel box = sorna__boxfiltfun_imp((uint32_t)C, code_of<T>, &st);
  if (st != SORN_OK) return st;
  return box(xe, flags, 3, sizes, d, ds, s, ss, &local);
}

// Along rows: K taps folded in one expression (3 or 5), or any width
// (K = 0) through f64 accumulators.
template <int K> struct Across {
  template <class T, int C>
  static SornStatus run(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                        const SornSepShape *sep) {
    const double *k = sep->kernels[1];
    if (k == nullptr) return box_pass<T, C>(xe, flags, p, d, s, sep, true);
    const int32_t w = K ? K : sep->size[2];
    s = cols_back<T>(s, p, sep->anchor[2]);
    return by_unit(p, [&]<bool U>() {
      for (int32_t y = 0; y < p.rows; ++y)
        row<T, U>(Line<T, U>{row_at<T>(d, p.drs, y), p.dps},
                  Line<const T, U>{row_at<const T>(s, p.srs, y), p.sps}, k, w, p.cols);
      return SORN_OK;
    });
  }

  template <class T, bool U>
  static void row(Line<T, U> o, Line<const T, U> a, const double *k, int32_t w, int32_t x) {
    if constexpr (K == 3) {
      const double k0 = k[0], k1 = k[1], k2 = k[2];
      for (int32_t i = 0; i < x; ++i)
        o[i] = rounded<T>(k0 * (double)a[i] + k1 * (double)a[i + 1] + k2 * (double)a[i + 2]);
    } else if constexpr (K == 5) {
      const double k0 = k[0], k1 = k[1], k2 = k[2], k3 = k[3], k4 = k[4];
      for (int32_t i = 0; i < x; ++i)
        o[i] = rounded<T>(k0 * (double)a[i] + k1 * (double)a[i + 1] + k2 * (double)a[i + 2] +
                          k3 * (double)a[i + 3] + k4 * (double)a[i + 4]);
    } else {
      double acc[kChunk];
      for (int32_t o0 = 0; o0 < x; o0 += kChunk) {
        const int32_t m = std::min(kChunk, x - o0);
        const Line<const T, U> b = a.at(o0);
        const double k0 = k[0];
        for (int32_t i = 0; i < m; ++i) acc[i] = k0 * (double)b[i];
        for (int32_t t = 1; t < w; ++t) {
          const double kt = k[t];
          const Line<const T, U> bt = b.at(t);
          for (int32_t i = 0; i < m; ++i) acc[i] += kt * (double)bt[i];
        }
        const Line<T, U> out = o.at(o0);
        for (int32_t i = 0; i < m; ++i) out[i] = rounded<T>(acc[i]);
      }
    }
  }
};

// Down columns: K taps folded in one expression (3 or 5), or any height
// (K = 0): groups of four output rows keep their f64 sums in four rows of
// scratch, and each tap adds one source row to each of them.
template <int K> struct Down {
  template <class T, int C>
  static SornStatus run(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                        const SornSepShape *sep) {
    const double *k = sep->kernels[0];
    if (k == nullptr) return box_pass<T, C>(xe, flags, p, d, s, sep, false);
    s = rows_back(s, p, sep->anchor[1]);
    if constexpr (K == 0) {
      return column<T>(xe, p, d, s, k, sep->size[1]);
    } else {
      return taps<T>(p, d, s, k);
    }
  }

  template <class T>
  static SornStatus taps(const Plane &p, char *d, const char *s, const double *k) {
    return by_unit(p, [&]<bool U>() {
      auto src = [&](int32_t r) { return Line<const T, U>{row_at<const T>(s, p.srs, r), p.sps}; };
      for (int32_t y = 0; y < p.rows; ++y) {
        const Line<T, U> o{row_at<T>(d, p.drs, y), p.dps};
        const Line<const T, U> a0 = src(y), a1 = src(y + 1), a2 = src(y + 2);
        if constexpr (K == 3) {
          const double k0 = k[0], k1 = k[1], k2 = k[2];
          for (int32_t i = 0; i < p.cols; ++i)
            o[i] = rounded<T>(k0 * (double)a0[i] + k1 * (double)a1[i] + k2 * (double)a2[i]);
        } else {
          const Line<const T, U> a3 = src(y + 3), a4 = src(y + 4);
          const double k0 = k[0], k1 = k[1], k2 = k[2], k3 = k[3], k4 = k[4];
          for (int32_t i = 0; i < p.cols; ++i)
            o[i] = rounded<T>(k0 * (double)a0[i] + k1 * (double)a1[i] + k2 * (double)a2[i] +
                              k3 * (double)a3[i] + k4 * (double)a4[i]);
        }
      }
      return SORN_OK;
    });
  }

  template <class T>
  static SornStatus column(SornXE *xe, const Plane &p, char *d, const char *s, const double *k,
                           int32_t h) {
    const int32_t group = std::min(p.rows, 4);
    const ptrdiff_t pitch = (ptrdiff_t)((((size_t)p.cols * 8) + 15) & ~(size_t)15) / 8;
    Scratch block(xe, (size_t)group * (size_t)pitch * sizeof(double), 0);
    if (!block.ok()) return SORN_ENOMEM;
    double *const acc = block.as<double>();
    const int32_t x = p.cols;
    return by_unit(p, [&]<bool U>() {
      auto src = [&](int32_t r) { return Line<const T, U>{row_at<const T>(s, p.srs, r), p.sps}; };
      for (int32_t y0 = 0; y0 < p.rows; y0 += 4) {
        const int32_t g = std::min(4, p.rows - y0);
        for (int32_t r = 0; r < g; ++r) {
          double *__restrict a = acc + r * pitch;
          const Line<const T, U> b = src(y0 + r);
          const double k0 = k[0];
          for (int32_t i = 0; i < x; ++i) a[i] = k0 * (double)b[i];
        }
        for (int32_t t = 1; t + 1 < h; ++t) {
          const double kt = k[t];
          for (int32_t r = 0; r < g; ++r) {
            double *__restrict a = acc + r * pitch;
            const Line<const T, U> b = src(y0 + r + t);
            for (int32_t i = 0; i < x; ++i) a[i] += kt * (double)b[i];
          }
        }
        // The last tap adds and converts into the destination.
        for (int32_t r = 0; r < g; ++r) {
          const double *__restrict a = acc + r * pitch;
          const Line<T, U> o{row_at<T>(d, p.drs, y0 + r), p.dps};
          if (h > 1) {
            const double kl = k[h - 1];
            const Line<const T, U> b = src(y0 + r + h - 1);
            for (int32_t i = 0; i < x; ++i) o[i] = rounded<T>(a[i] + kl * (double)b[i]);
          } else {
            for (int32_t i = 0; i < x; ++i) o[i] = rounded<T>(a[i]);
          }
        }
      }
      return SORN_OK;
    });
  }
};

// The pass of a kernel's taps: unrolled for 3 and 5, any count otherwise.
template <template <int> class Pass, class T, int C>
SornStatus by_taps(int32_t taps, SornXE *xe, SornFlags flags, const Plane &p, char *d,
                   const char *s, const SornSepShape *sep) {
  switch (taps) {
    case 3: return Pass<3>::template run<T, C>(xe, flags, p, d, s, sep);
    case 5: return Pass<5>::template run<T, C>(xe, flags, p, d, s, sep);
    default: return Pass<0>::template run<T, C>(xe, flags, p, d, s, sep);
  }
}
template <class T, int C>
SornStatus across(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                  const SornSepShape *sep) {
  return by_taps<Across, T, C>(sep->size[2], xe, flags, p, d, s, sep);
}
template <class T, int C>
SornStatus down(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                const SornSepShape *sep) {
  return by_taps<Down, T, C>(sep->size[1], xe, flags, p, d, s, sep);
}

// Two passes through a block of the element type with the widened
// extents: along rows first when the window is much wider than high
// (w - 1 >= 2h), else down columns first. Each pass applies its own
// anchor; the block holds the first pass's results rounded to the type.
struct Both {
  template <class T, int C>
  static SornStatus run(SornXE *xe, SornFlags flags, const Plane &p, char *d, const char *s,
                        const SornSepShape *sep) {
    const int32_t w = sep->size[2], h = sep->size[1], ax = sep->anchor[2], ay = sep->anchor[1];
    const int32_t wide = p.cols + w - 1, high = p.rows + h - 1;
    const ptrdiff_t pitch = pitch_of<T>(wide);
    Scratch block(xe, sizeof(T) * (size_t)pitch * (size_t)high, 8);
    if (!block.ok()) return SORN_ENOMEM;
    T *mid = block.as<T>();
    const ptrdiff_t mrs = pitch * (ptrdiff_t)sizeof(T);
    char *m0 = reinterpret_cast<char *>(mid);
    const char *m1 = reinterpret_cast<const char *>(mid + ax + ay * pitch);
    const Plane second{p.rows, p.cols, p.drs, mrs, p.dps, 1};
    if ((int64_t)w - 1 >= 2 * (int64_t)h) {
      const Plane first{high, p.cols, mrs, p.srs, 1, p.sps};
      const SornStatus st =
          across<T, C>(xe, flags, first, m0 + ax * (ptrdiff_t)sizeof(T), rows_back(s, p, ay), sep);
      if (st != SORN_OK) return st;
      return down<T, C>(xe, flags, second, d, m1, sep);
    }
    const Plane first{p.rows, wide, mrs, p.srs, 1, p.sps};
    const SornStatus st = down<T, C>(xe, flags, first, m0 + ay * mrs, cols_back<T>(s, p, ax), sep);
    if (st != SORN_OK) return st;
    return across<T, C>(xe, flags, second, d, m1, sep);
  }
};

// A kernel from the call's arguments. The window arrives as the SornSeShape
// that its SornSepShape begins with. Three and four channels walk elements.
template <class T, int C, class Shape>
SornStatus kernel(SornXE *xe, SornFlags flags, int32_t n, const int32_t *sizes, void *dst,
                  const int32_t *ds, const void *src, const int32_t *ss, const SornSeShape *se) {
  const SornSepShape *sep = reinterpret_cast<const SornSepShape *>(se);
  Plane p = plane_of<T>(n, sizes, ds, ss);
  if (C > 1) p.dps = p.sps = 1;
  if (p.rows < 1 || p.cols < 1) return SORN_OK;
  return Shape::template run<T, C>(xe, flags, p, static_cast<char *>(dst),
                                   static_cast<const char *>(src), sep);
}

// The kernel of a window: one row by its width, one column by its height,
// any other window in two passes.
template <class T, int C>
SornStatus dispatch(SornXE *xe, SornFlags flags, int32_t n, const int32_t *sizes, void *dst,
                    const int32_t *ds, const void *src, const int32_t *ss, const SornSeShape *se) {
  SornStatus st;
  if (answered_first<T>(xe, flags, n, sizes, dst, ds, src, ss, se, &st)) return st;
  const int32_t h = se->size[1], w = se->size[2];
  auto k = [&](auto shape) {
    return kernel<T, C, decltype(shape)>(xe, flags, n, sizes, dst, ds, src, ss, se);
  };
  if (h == 1) {
    if (w == 3) return k(Across<3>{});
    if (w == 5) return k(Across<5>{});
    return k(Across<0>{});
  }
  if (w == 1) {
    if (h == 3) return k(Down<3>{});
    if (h == 5) return k(Down<5>{});
    return k(Down<0>{});
  }
  return k(Both{});
}

}  // namespace
}  // namespace sorn::filter

#define SORN_SEP_SHAPE_3x1 sorn::filter::Across<3>
#define SORN_SEP_SHAPE_5x1 sorn::filter::Across<5>
#define SORN_SEP_SHAPE_Nx1 sorn::filter::Across<0>
#define SORN_SEP_SHAPE_1x3 sorn::filter::Down<3>
#define SORN_SEP_SHAPE_1x5 sorn::filter::Down<5>
#define SORN_SEP_SHAPE_1xN sorn::filter::Down<0>
#define SORN_SEP_SHAPE_NxM sorn::filter::Both
#define SORN_SEP_KERNEL(c, t, shape)                                            \
  SornStatus _T_sorna__sepfilter_c##c##_##t##_##shape SORN_FILTER_KERNEL_ARGS { \
    return sorn::filter::kernel<sorn::tok::t, c, SORN_SEP_SHAPE_##shape>(       \
        xe, flags, n, sizes, dst, dstStrides, src, srcStrides, se);             \
  }
#define SORN_SEP_DISPATCH(c, t)                                                               \
  SornStatus sorna__sepfilter_c##c##_##t SORN_FILTER_KERNEL_ARGS {                            \
    return sorn::filter::dispatch<sorn::tok::t, c>(xe, flags, n, sizes, dst, dstStrides, src, \
                                                   srcStrides, se);                           \
  }                                                                                           \
  SORN_SEPFILTER_SHAPES(SORN_SEP_KERNEL, c, t)
#define SORN_SEP_FAMILY(t) SORN_FILTER_CHANNELS(SORN_SEP_DISPATCH, t)
SORN_FILTER_TYPES(SORN_SEP_FAMILY)

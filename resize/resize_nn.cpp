// Nearest-neighbour resizing below the entries: the settling of extents and
// factors (sorna__resize_nn), the pixel classes by element type, the
// selection of a row kernel by factor and source width, and the step table.
#include <sorn.h>

#include <climits>
#include <cmath>
#include <cstdint>

#include "core/entry.h"
#include "resize/nn_kernel.h"

namespace {

using sorn::resize::source_column;

/* ---------------- settling extents ---------------- */

// An extent from a real value: rounded to nearest, 0 below 1 (or not a
// number), at most the 32-bit range.
int32_t extent_of(double v) {
  v = std::nearbyint(v);
  if (!(v >= 1.0)) return 0;
  return v >= (double)INT32_MAX ? INT32_MAX : (int32_t)v;
}

// One pixel moves as one unit: bytes in twos and fours become wider
// elements, so that their class is chosen by the pixel's size.
uint32_t unit_type(uint32_t type, int32_t channels) {
  const int32_t es = sorn::elem_size(type);
  if (es == 1 && channels == 2) return SORN_S16;
  if (es == 1 && channels == 4) return SORN_S32;
  if (es == 2 && (channels == 2 || channels == 4)) return SORN_S32;
  return type;
}

/* ---------------- kernel choice ---------------- */

// A row of a selection ladder: factors from `lo` up to (not including)
// `hi`, source widths from `wlo` to `whi`.
template <class K> struct Rung {
  double lo, hi;
  int32_t wlo, whi;
  K kernel;
};

template <class K, size_t N>
bool climb(const Rung<K> (&ladder)[N], double fx, int32_t sw, K *kernel) {
  for (const Rung<K> &r : ladder) {
    if (fx >= r.lo && fx < r.hi && sw >= r.wlo && sw <= r.whi) {
      *kernel = r.kernel;
      return true;
    }
  }
  return false;
}

constexpr double kAbove = 1e300;

// Bytes. The rungs are the measured exceptions to the default; a narrower
// band stands before a wider one that contains it.
constexpr Rung<SornResizeRowKernel> kC1w8Ladder[] = {
    {0.1579, 0.1612, 616, 1179, &__sorna__resize_nn_c1w8L16_21_prfm128},
    {0.95, kAbove, 852, 2815, &__sorna__resize_nn_c1w8L16_11},
    {0.85, 0.95, 800, 3071, &__sorna__resize_nn_c1w8L16_11},
    {0.425, 0.475, 560, INT32_MAX, &__sorna__resize_nn_c1w8L16_11},
    {0.235, 0.245, 8192, INT32_MAX, &__sorna__resize_nn_c1w8L16_21_prfm512},
    {0.2275, 0.235, 4736, INT32_MAX, &__sorna__resize_nn_c1w8L16_21_prfm512},
    {0.1575, 0.203, 316, INT32_MAX, &__sorna__resize_nn_c1w8L16_11},
};

SornResizeRowKernel pick_c1w8(int32_t dw, int32_t sw, int32_t sh, double fx, double fy) {
  if (dw <= 15) return &__sorna__resize_nn_c1w8L4_00;
  SornResizeRowKernel k = &__sorna__resize_nn_c1w8L16_10;
  if (fx < 0.09) k = &__sorna__resize_nn_c1w8L16_40_prfm128;
  if (fx < 0.055) k = &__sorna__resize_nn_c1w8L16_42_prfm512;
  climb(kC1w8Ladder, fx, sw, &k);
  // Far down, a source that outgrows a budget for its scale is read one
  // pixel a round.
  if (fx < 0.0578) {
    const double budget = fx >= 0.0575 ? 3523215.36 : fx >= 0.055 ? 2558525.44 : 2055208.96;
    if (std::trunc(budget / fy) < (double)sw * (double)sh) k = &__sorna__resize_nn_c1w8L1_00;
  }
  return k;
}

// Four-byte pixels: the family in the low four bits, the index of its
// kernel above them.
enum : int32_t { kL4 = 4, kL8 = 8, kL12 = 12, kL16 = 15 };
constexpr int32_t code(int32_t family, int32_t index) { return family | index << 4; }

struct Window {
  int32_t below;  // source widths below this
  int32_t code;
};
struct Band {
  double from;  // factors from this up to the band above
  Window windows[4];
};

// Measured with bench/bench_resize.cpp (BM_ResizeKernel) on a full-HD
// source of four-byte pixels on an AMD EPYC (Zen 5) machine: rounds of 16
// with two lines ahead are the fastest or tied wherever the table is walked,
// rounds of four (loads first) at factors near 1, and the kernels that
// prefetch each pixel's own address the slowest; short sources take rounds
// of four. Where sources sit in cache, prefetching decides little.
constexpr Band kC1w32Bands[] = {
    {0.975, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.905,
     {{36, code(kL4, 0)}, {2816, code(kL16, 0)}, {8191, code(kL4, 5)}, {INT32_MAX, code(kL16, 1)}}},
    {0.845, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.835, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 1)}}},
    {0.805, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.785, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.7715, {{36, code(kL4, 0)}, {INT32_MAX, code(kL12, 0)}}},
    {0.7675, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 1)}}},
    {0.685, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.645, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
    {0.0, {{36, code(kL4, 0)}, {INT32_MAX, code(kL16, 0)}}},
};

// Pixels of 8, 12 and 16 bytes: all with rounds of four, the plain kernel
// unless a rung says otherwise (the same measurements found all four within
// noise of each other elsewhere). The rungs hold for every one of the three
// units; index 1 is L4_20a64 for 8 and 16 bytes and L4_40 for 12.
enum : int32_t { kPlain = 0, kNear = 1, kA128 = 2, kA256 = 3 };
constexpr Rung<int32_t> kCnw32Ladder[] = {
    {0.815, 0.825, 2304, INT32_MAX, kA128}, {0.805, 0.815, 1216, INT32_MAX, kA128},
    {0.795, 0.805, 836, INT32_MAX, kA128},  {0.325, 0.342, 0, INT32_MAX, kA256},
    {0.21, 0.22, 0, INT32_MAX, kNear},
};

constexpr SornResizeRowKernel kCnw32Kernels[3][4] = {
    {&__sorna__resize_nn_c2w32L4_00, &__sorna__resize_nn_c2w32L4_20a64,
     &__sorna__resize_nn_c2w32L4_40a128, &__sorna__resize_nn_c2w32L4_40a256},
    {&__sorna__resize_nn_c3w32L4_00, &__sorna__resize_nn_c3w32L4_40,
     &__sorna__resize_nn_c3w32L4_40a128, &__sorna__resize_nn_c3w32L4_40a256},
    {&__sorna__resize_nn_c4w32L4_00, &__sorna__resize_nn_c4w32L4_20a64,
     &__sorna__resize_nn_c4w32L4_40a128, &__sorna__resize_nn_c4w32L4_40a256},
};

// The kernels of each c1w32 family, in the order of their index.
#define SORN_RESIZE_C1W32_ENTRY(name) &__sorna__resize_nn_c1w32##name,
constexpr SornResizeRowKernel kC1w32L4[] = {SORN_RESIZE_NN_C1W32_L4(SORN_RESIZE_C1W32_ENTRY)};
constexpr SornResizeRowKernel kC1w32L8[] = {SORN_RESIZE_NN_C1W32_L8(SORN_RESIZE_C1W32_ENTRY)};
constexpr SornResizeRowKernel kC1w32L12[] = {SORN_RESIZE_NN_C1W32_L12(SORN_RESIZE_C1W32_ENTRY)};
constexpr SornResizeRowKernel kC1w32L16[] = {SORN_RESIZE_NN_C1W32_L16(SORN_RESIZE_C1W32_ENTRY)};
#undef SORN_RESIZE_C1W32_ENTRY

template <size_t N>
SornResizeRowKernel family_kernel(const SornResizeRowKernel (&family)[N], int32_t family_code,
                                  int32_t dw, int32_t sw, double fx) {
  const int32_t c = __sorna__nn_c1w32_algsel(dw, sw, fx);
  const int32_t index = (c & 15) == family_code ? c >> 4 : 0;
  return family[index >= 0 && (size_t)index < N ? index : 0];
}

}  // namespace

/* ---------------- the step table ---------------- */

uint32_t *__sorna_rsz_nn__init_offtab1x4(uint32_t *table, int32_t dstWidth, int32_t srcWidth,
                                         int32_t pixelStep, double fx) {
  const double g = 1.0 / fx;
  int32_t prev = 0, w = 0;
  uint32_t word = 0;
  for (int32_t i = 0; i < dstWidth; ++i) {
    const int32_t col = source_column(i, g, srcWidth);
    // Steps keep their low eight bits: a longer one wraps, and factors
    // below 1/255 are served from the wrapped steps, as they always were.
    const uint32_t step = (uint32_t)(col - prev) * (uint32_t)pixelStep & 255u;
    word |= step << (8 * (i & 3));
    if ((i & 3) == 3) {
      table[w++] = word;
      word = 0;
    }
    prev = col;
  }
  if (dstWidth > 0 && (dstWidth & 3) != 0) table[w++] = word;  // a rest of zero steps
  table[w++] = 0;
  table[w] = (uint32_t)(dstWidth > 0 ? dstWidth : 0);
  return table;
}

uint32_t *__sorna_rsz_nn__make_offtab1x4(SornXE *xe, int32_t bytes, int32_t srcWidth,
                                         int32_t pixelStep, double fx) {
  if (bytes < 0) bytes = 0;
  void *block = SornXEalloca(xe, (size_t)bytes + 12, 64);
  if (block == nullptr) return nullptr;
  return __sorna_rsz_nn__init_offtab1x4(static_cast<uint32_t *>(block), bytes, srcWidth, pixelStep,
                                        fx);
}

/* ---------------- kernel choice ---------------- */

SornResizeRowKernel __sorna__nn_c1w8_pick(int32_t dstWidth, int32_t srcWidth, int32_t srcRows,
                                          double fx, double fy) {
  return pick_c1w8(dstWidth, srcWidth, srcRows, fx, fy);
}

int32_t __sorna__nn_c1w32_algsel(int32_t dstWidth, int32_t srcWidth, double fx) {
  if (!(fx <= 1.002)) return 0;
  if (dstWidth < 5) return 1;
  for (const Band &b : kC1w32Bands) {
    if (fx < b.from) continue;
    for (const Window &w : b.windows)
      if (w.code != 0 && srcWidth < w.below) return w.code;
    break;
  }
  return 0;
}

SornResizeRowKernel __sorna__nn_c1w32_pick(int32_t dstWidth, int32_t srcWidth, double fx) {
  if (!(fx <= 1.002) || dstWidth <= 4) return &__sorna__resize_nn_c1w32L16_111;
  switch (__sorna__nn_c1w32_algsel(dstWidth, srcWidth, fx) & 15) {
    case kL4: return family_kernel(kC1w32L4, kL4, dstWidth, srcWidth, fx);
    case kL8: return family_kernel(kC1w32L8, kL8, dstWidth, srcWidth, fx);
    case kL12: return family_kernel(kC1w32L12, kL12, dstWidth, srcWidth, fx);
    case kL16: return family_kernel(kC1w32L16, kL16, dstWidth, srcWidth, fx);
    default: return &__sorna__resize_nn_c1w32L16_111;
  }
}

SornResizeRowKernel __sorna__nn_cNw32_pick(int32_t units, int32_t dstWidth, int32_t srcWidth,
                                           double fx) {
  if (units < 2 || units > 4) return nullptr;
  const SornResizeRowKernel *kernels = kCnw32Kernels[units - 2];
  if (dstWidth <= 16) return kernels[kPlain];
  int32_t which = kPlain;
  climb(kCnw32Ladder, fx, srcWidth, &which);
  return kernels[which];
}

/* ---------------- the selectors ---------------- */

#define SORN_RESIZE_ROW_ARGS                                                                 \
  SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst, int32_t dstStep, int32_t srcRows, \
      int32_t srcCols, const void *src, int32_t srcStep, double fx, double fy,               \
      const uint32_t *offtab
#define SORN_RESIZE_ROW_PASS \
  xe, dstRows, dstCols, dst, dstStep, srcRows, srcCols, src, srcStep, fx, fy, offtab

SornStatus __sorna__resize_nn_c1w8(SORN_RESIZE_ROW_ARGS) {
  return pick_c1w8(dstCols, srcCols, srcRows, fx, fy)(SORN_RESIZE_ROW_PASS);
}

// The default of four-byte pixels makes the table once for its kernel.
SornStatus __sorna__resize_nn_c1w32_dfl(SORN_RESIZE_ROW_ARGS) {
  if (offtab != nullptr || dstRows < 1 || dstCols < 1 || srcRows < 1 || srcCols < 1)
    return __sorna__resize_nn_c1w32L16_111(SORN_RESIZE_ROW_PASS);
  uint32_t *table = __sorna_rsz_nn__make_offtab1x4(xe, dstCols, srcCols, 1, fx);
  if (table == nullptr) return SORN_ENOMEM;
  const SornStatus st = __sorna__resize_nn_c1w32L16_111(xe, dstRows, dstCols, dst, dstStep, srcRows,
                                                        srcCols, src, srcStep, fx, fy, table);
  SornXEfreea(xe, table);
  return st;
}

SornStatus __sorna__resize_nn_c1w32(SORN_RESIZE_ROW_ARGS) {
  if (!(fx <= 1.002) || dstCols <= 4) return __sorna__resize_nn_c1w32_dfl(SORN_RESIZE_ROW_PASS);
  switch (__sorna__nn_c1w32_algsel(dstCols, srcCols, fx) & 15) {
    case kL4: return __sorna__resize_nn_c1w32L4(SORN_RESIZE_ROW_PASS);
    case kL8: return __sorna__resize_nn_c1w32L8(SORN_RESIZE_ROW_PASS);
    case kL12: return __sorna__resize_nn_c1w32L12(SORN_RESIZE_ROW_PASS);
    case kL16: return __sorna__resize_nn_c1w32L16(SORN_RESIZE_ROW_PASS);
    default: return __sorna__resize_nn_c1w32_dfl(SORN_RESIZE_ROW_PASS);
  }
}

// The families choose their kernel by the index the choice gives them.
#define SORN_RESIZE_C1W32_FAMILY_DEF(fam)                                                  \
  SornStatus __sorna__resize_nn_c1w32##fam(SORN_RESIZE_ROW_ARGS) {                         \
    return family_kernel(kC1w32##fam, k##fam, dstCols, srcCols, fx)(SORN_RESIZE_ROW_PASS); \
  }
SORN_RESIZE_NN_C1W32_FAMILIES(SORN_RESIZE_C1W32_FAMILY_DEF)
#undef SORN_RESIZE_C1W32_FAMILY_DEF

SornStatus __sorna__resize_nn_c2w32(SORN_RESIZE_ROW_ARGS) {
  return __sorna__nn_cNw32_pick(2, dstCols, srcCols, fx)(SORN_RESIZE_ROW_PASS);
}
SornStatus __sorna__resize_nn_c3w32(SORN_RESIZE_ROW_ARGS) {
  return __sorna__nn_cNw32_pick(3, dstCols, srcCols, fx)(SORN_RESIZE_ROW_PASS);
}
SornStatus __sorna__resize_nn_c4w32(SORN_RESIZE_ROW_ARGS) {
  return __sorna__nn_cNw32_pick(4, dstCols, srcCols, fx)(SORN_RESIZE_ROW_PASS);
}

/* ---------------- pixel classes ---------------- */

#define SORN_RESIZE_CLASS_ARGS                                                                \
  SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst, int32_t dstStep, int32_t dstPixel, \
      int32_t srcRows, int32_t srcCols, const void *src, int32_t srcStep, int32_t srcPixel,   \
      double fx, double fy
#define SORN_RESIZE_CLASS_PASS \
  xe, dstRows, dstCols, dst, dstStep, srcRows, srcCols, src, srcStep, fx, fy, nullptr

// Bytes move one by one; a byte pixel of any other stride (three channels)
// has no kernel.
SornStatus __sorna__resize_nn_u8(SORN_RESIZE_CLASS_ARGS) {
  if (dstPixel != 1 || srcPixel != 1) return SORN_ENOTSUP;
  return __sorna__resize_nn_c1w8(SORN_RESIZE_CLASS_PASS);
}

// Pixels of two or six bytes have no kernel.
SornStatus __sorna__resize_nn_s16(SORN_RESIZE_CLASS_ARGS) { return SORN_ENOTSUP; }

// Pixels of one to four 32-bit units.
SornStatus __sorna__resize_nn_s32(SORN_RESIZE_CLASS_ARGS) {
  if (dstPixel != srcPixel) return SORN_ENOTSUP;
  switch (dstPixel) {
    case 4: return __sorna__resize_nn_c1w32(SORN_RESIZE_CLASS_PASS);
    case 8: return __sorna__resize_nn_c2w32(SORN_RESIZE_CLASS_PASS);
    case 12: return __sorna__resize_nn_c3w32(SORN_RESIZE_CLASS_PASS);
    case 16: return __sorna__resize_nn_c4w32(SORN_RESIZE_CLASS_PASS);
    default: return SORN_ENOTSUP;
  }
}

namespace {
#define SORN_RESIZE_CLASS_ROW(code, proc) SORN_KERNEL_ROW(proc, code)
constexpr sorn::KernelRow<SornResizeNNProc> kClasses[] = {
    SORN_RESIZE_CLASS_ROW(SORN_U8, __sorna__resize_nn_u8) SORN_RESIZE_CLASS_ROW(
        SORN_S8, __sorna__resize_nn_u8) SORN_RESIZE_CLASS_ROW(SORN_U16, __sorna__resize_nn_s16)
        SORN_RESIZE_CLASS_ROW(SORN_S16, __sorna__resize_nn_s16)
            SORN_RESIZE_CLASS_ROW(SORN_U32, __sorna__resize_nn_s32)
                SORN_RESIZE_CLASS_ROW(SORN_S32, __sorna__resize_nn_s32)
                    SORN_RESIZE_CLASS_ROW(SORN_F32, __sorna__resize_nn_s32)};
#undef SORN_RESIZE_CLASS_ROW
}  // namespace

SornResizeNNProc sorna__resize_nn_imp(uint32_t type, SornStatus *status) {
  return sorn::lookup(kClasses, sorn::kernel_key(type), sorn::refusal_for(type), status);
}

SornStatus __sorna__swresize_nn(SornXE *xe, uint32_t type, int32_t dstRows, int32_t dstCols,
                                void *dst, int32_t dstStep, int32_t dstPixel, int32_t srcRows,
                                int32_t srcCols, const void *src, int32_t srcStep, int32_t srcPixel,
                                double fx, double fy) {
  SornStatus st;
  const SornResizeNNProc proc = sorna__resize_nn_imp(type, &st);
  if (st != SORN_OK) return st;
  return proc(xe, dstRows, dstCols, dst, dstStep, dstPixel, srcRows, srcCols, src, srcStep,
              srcPixel, fx, fy);
}

/* ---------------- settling extents and factors ---------------- */

SornStatus sorna__resize_nn(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dstDims,
                            const int32_t *srcDims, uint32_t type, void *dst,
                            const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                            const double *factors) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4 || (dstDims == nullptr && srcDims == nullptr)) return SORN_EINVAL;
  const int32_t m = n - 1;  // every cell but the channels
  double f[3];
  int32_t d[4], s[4];
  int32_t larger = 0;
  if (factors != nullptr)
    larger = sorn_fixreszfS(m, f, factors, dstDims, srcDims);
  else
    sorn_mkreszfS(m, f, dstDims, srcDims);
  if (dstDims != nullptr)
    for (int32_t i = 0; i < n; ++i) d[i] = dstDims[i];
  if (srcDims != nullptr)
    for (int32_t i = 0; i < n; ++i) s[i] = srcDims[i];
  if (dstDims == nullptr || larger != 0) {
    // A destination box larger than the scaled source is cut to it; a
    // missing one is the scaled source.
    for (int32_t i = 0; i < m; ++i) {
      const int32_t e = extent_of((double)s[i] * f[i]);
      d[i] = dstDims != nullptr && dstDims[i] < e ? dstDims[i] : e;
    }
    d[m] = s[m];
  }
  if (srcDims == nullptr) {
    for (int32_t i = 0; i < m; ++i) s[i] = extent_of((double)d[i] / f[i]);
    s[m] = d[m];
  }
  const int32_t dh = m >= 2 ? d[m - 2] : 1, sh = m >= 2 ? s[m - 2] : 1;
  if (dh < 1 || sh < 1 || d[m - 1] < 1 || s[m - 1] < 1) return SORN_ENOSPC;

  const int32_t channels = sorn::channels_of(d[m]);
  if (channels < 1 || channels > 4) return SORN_EINVAL;
  const uint32_t unit = unit_type(type, channels);
  // Pixels with room between them have no kernel: a unit is exactly the
  // pixel's elements, and nothing beside them may be written.
  const int32_t bytes = sorn::elem_size(type) * channels;
  const int32_t dpix = dstStrides[n - 2], spix = srcStrides[n - 2];
  if (sorn::known_type(unit) && (dpix != bytes || spix != bytes)) return SORN_ENOTSUP;
  const int32_t dstep = n >= 3 ? dstStrides[n - 3] : 0, sstep = n >= 3 ? srcStrides[n - 3] : 0;
  const double fx = f[m - 1], fy = m >= 2 ? f[m - 2] : 1.0;
  (void)flags;
  return __sorna__swresize_nn(xe, unit, dh, d[m - 1], dst, dstep, dpix, sh, s[m - 1], src, sstep,
                              spix, fx, fy);
}

// The kernels of the conversion between element types: the walk of the
// rows, merged into one when both arrays are dense, and the per-element
// rules of the saturating conversion (sorn::sat_convert).
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

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
  // The row's length in a local: a byte store could otherwise be taken to
  // change it, and the row would not vectorise.
  const int32_t len = r.len;
  for (int32_t y = 0; y < r.rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const S *sr = reinterpret_cast<const S *>(s);
    for (int32_t x = 0; x < len; ++x) dr[x] = sorn::sat_convert<D, S>(sr[x]);
    d += r.dstep;
    s += r.sstep;
  }
  return SORN_OK;
}

// The v map, per channel c of the pixel, from srcRange[c] onto
// dstRange[c]. Where a float is on either side the map is x * a + b in
// doubles, narrowed or converted as the t conversion does. Between integers
// it is fixed point: ((x - sLow) * f + r) >> k, plus dLow, truncated to the
// destination's width, with k and r picked by the spans of the two ranges.
struct FixedRow {
  int32_t k;
  uint64_t r;
  bool wide;  // a 64-bit product; otherwise 32 bits
};

// The row of the fixed-point map by the spans of the ranges as they came:
// the fewer bits the source needs, the larger the share of the factor the
// destination can take.
inline FixedRow fixed_row(const SornVrng *dst, const SornVrng *src, int32_t chword) {
  const bool s8 = sorn_vrng_diffuxchk_$cn(src, chword, 8) != 0;
  const bool s16 = sorn_vrng_diffuxchk_$cn(src, chword, 16) != 0;
  const bool s31 = sorn_vrng_diffuxchk_$cn(src, chword, 31) != 0;
  const bool d8 = sorn_vrng_diffuxchk_$cn(dst, chword, 8) != 0;
  const bool d16 = sorn_vrng_diffuxchk_$cn(dst, chword, 16) != 0;
  // At k 32 the rounding term is minus 2^31: the map then rounds half
  // down, and the low end of the source comes out one below dLow.
  constexpr FixedRow k32{32, (uint64_t)0 - 0x80000000ull, true};
  if (s8) return d8 ? FixedRow{23, 0x400000u, false} : d16 ? FixedRow{16, 0x8000u, false} : k32;
  if (s16 || !d16) return k32;
  if (!d8) return {48, 0x800000000000ull, true};
  return s31 ? FixedRow{39, 0x4000000000ull, true} : FixedRow{40, 0x8000000000ull, true};
}

// A range end rounded to nearest and saturated to type T.
template <class T> int64_t range_end(double v) {
  const double r = std::nearbyint(v);
  const double lo = (double)std::numeric_limits<T>::min(),
               hi = (double)std::numeric_limits<T>::max();
  if (!(r >= lo)) return (int64_t)std::numeric_limits<T>::min();
  return r > hi ? (int64_t)std::numeric_limits<T>::max() : (int64_t)r;
}

// One channel's map.
struct VMap {
  double a, b;       // the float map
  int64_t slo, dlo;  // the fixed-point map's ends
  uint64_t f;
};

template <class D, class S>
constexpr bool kFloatMap = std::is_floating_point_v<D> || std::is_floating_point_v<S>;

template <class D, class S> struct VElem {
  static D apply(S x, const VMap &m, const FixedRow &row) {
    if constexpr (kFloatMap<D, S>) {
      const double v = (double)x * m.a + m.b;
      return sorn::sat_convert<D, double>(v);
    } else if (row.wide) {
      const uint64_t p = (uint64_t)((int64_t)x - m.slo) * m.f + row.r;
      return (D)((p >> row.k) + (uint64_t)m.dlo);
    } else {
      const uint32_t p = (uint32_t)((int64_t)x - m.slo) * (uint32_t)m.f + (uint32_t)row.r;
      return (D)((p >> row.k) + (uint32_t)m.dlo);
    }
  }
};

// The walk of the v map for C channels: one map per channel of the pixel.
template <class D, class S, int32_t C>
void vconvert_rows(const ConvertRows &r, char *d, const char *s, const VMap *maps,
                   const FixedRow &row) {
  VMap m[C];
  for (int32_t c = 0; c < C; ++c) m[c] = maps[c];
  const int32_t pixels = r.len / C;
  for (int32_t y = 0; y < r.rows; ++y) {
    D *dr = reinterpret_cast<D *>(d);
    const S *sr = reinterpret_cast<const S *>(s);
    for (int32_t x = 0; x < pixels; ++x)
      for (int32_t c = 0; c < C; ++c) dr[x * C + c] = VElem<D, S>::apply(sr[x * C + c], m[c], row);
    d += r.dstep;
    s += r.sstep;
  }
}

// True when every channel's range is empty within 2^-23.
inline bool all_flat(const SornVrng *range, int32_t nch) {
  for (int32_t c = 0; c < nch; ++c)
    if (!(std::fabs(range[c].lo - range[c].hi) <= 0x1p-23)) return false;
  return true;
}

// The region filled with each channel's dLow.
inline SornStatus fill_low(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                           uint32_t type, void *dst, const int32_t *dststrides,
                           const SornVrng *dstRange, int32_t nch) {
  double low[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  for (int32_t c = 0; c < nch && c < 8; ++c) low[c] = dstRange[c].lo;
  return sorna__fill(xe, flags, (SornDimPack)(uint32_t)(n << 8 | n), dims, type, dst, dststrides,
                     low);
}

// The v map of one region from S to D.
template <class D, class S>
SornStatus vconvert_kernel(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t type, void *dst, const int32_t *dststrides, const void *src,
                           const int32_t *srcstrides, const SornVrng *dstRange,
                           const SornVrng *srcRange) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2) return SORN_EINVAL;
  const int32_t chword = dims[n - 1], nch = sorn::channels_of(chword);
  if (nch > 4) return SORN_EINVAL;
  if (nch == 0 || all_flat(srcRange, nch))
    return fill_low(xe, flags, n, dims, type, dst, dststrides, dstRange, nch);
  ConvertRows r;
  if (!convert_rows(pack, dims, dststrides, dst, srcstrides, src, &r)) return SORN_OK;
  FixedRow row{0, 0, false};
  VMap maps[4];
  if constexpr (!kFloatMap<D, S>) row = fixed_row(dstRange, srcRange, chword);
  for (int32_t c = 0; c < nch; ++c) {
    VMap &m = maps[c];
    if constexpr (kFloatMap<D, S>) {
      m.a = (dstRange[c].hi - dstRange[c].lo) / (srcRange[c].hi - srcRange[c].lo);
      m.b = dstRange[c].lo - srcRange[c].lo * m.a;
    } else {
      m.dlo = range_end<D>(dstRange[c].lo);
      m.slo = range_end<S>(srcRange[c].lo);
      const int64_t dspan = range_end<D>(dstRange[c].hi) - m.dlo;
      const int64_t sspan = range_end<S>(srcRange[c].hi) - m.slo;
      const double f = std::nearbyint(std::ldexp((double)dspan, row.k) / (double)sspan);
      // A falling map, or none (ends that round together), has no factor.
      m.f = f > 0 && f < 0x1p64 ? (uint64_t)f : 0;
    }
  }
  char *d = static_cast<char *>(dst);
  const char *s = static_cast<const char *>(src);
  switch (nch) {
    case 1: vconvert_rows<D, S, 1>(r, d, s, maps, row); break;
    case 2: vconvert_rows<D, S, 2>(r, d, s, maps, row); break;
    case 3: vconvert_rows<D, S, 3>(r, d, s, maps, row); break;
    default: vconvert_rows<D, S, 4>(r, d, s, maps, row); break;
  }
  return SORN_OK;
}

}  // namespace sorn::data

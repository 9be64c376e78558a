// Minimum and maximum kernels. One pattern for all 24: element type,
// channel count and pixel mask are its parameters.
//
// Each row is reduced to its extremes first, in a loop the compiler
// vectorises, and only then held against the running ones: a row replaces
// an extreme only when strictly better, so the row of the first occurrence
// is known without looking at single elements, and the pixel within it is
// found afterwards by one scan of that row. Elements are compared as keys
// of an integer type whose order is theirs: integers are their own keys; an
// f32 becomes the s32 whose order is the float order, -0 taking the key of
// +0 (they compare equal), and a NaN the key that can't win.
#include <sorn.h>

#include <bit>
#include <type_traits>

#include "stats/stat_layers.h"

using namespace sorn::stats;

namespace {

/* ---------------- keys ---------------- */

// All ones where m is set: a select without a branch, so that rows
// vectorise.
template <class K> K pick(bool m, K a, K b) {
  const K mm = (K) - (K)m;
  return (K)((a & mm) | (b & (K)~mm));
}

template <class T> struct Keys {
  using K = T;
  static K bits(T v) { return v; }
  // The keys an element takes part with against the minimum and the
  // maximum.
  static void keys(K b, K &kn, K &kx) { kn = kx = b; }
  static K key(T v) { return v; }
  static bool nan(T) { return false; }
  static constexpr K lo = (K)sorn::int_range<T>::lo, hi = (K)sorn::int_range<T>::hi;
};

// Negative floats count down from -1 by magnitude, shifted up by one so
// that -0 meets +0 at 0.
constexpr int32_t float_key(int32_t b) {
  const int32_t k = b ^ ((b >> 31) & 0x7fffffff);
  return k + (int32_t)((uint32_t)k >> 31);
}
constexpr bool nan_bits(int32_t b) { return (b & 0x7fffffff) > 0x7f800000; }

template <> struct Keys<float> {
  using K = int32_t;
  static K bits(float v) { return std::bit_cast<int32_t>(v); }
  // A NaN takes the key that can't win.
  static void keys(K b, K &kn, K &kx) {
    const K k = float_key(b);
    const bool n = nan_bits(b);
    kn = pick<K>(n, INT32_MAX, k);
    kx = pick<K>(n, INT32_MIN, k);
  }
  static K key(float v) { return float_key(bits(v)); }
  static bool nan(float v) { return nan_bits(bits(v)); }
  static constexpr K lo = float_key(std::bit_cast<int32_t>(-3.4028235e38f)),
                     hi = float_key(std::bit_cast<int32_t>(3.4028235e38f));
};

/* ---------------- one row ---------------- */

// The extremes of one row of one channel, from the running ones: a
// selected element takes part as itself, an unselected one as `start`.
template <class T, int C, bool Masked>
void reduce_row(const T *__restrict p, const uint8_t *__restrict m, uint8_t skip, int32_t from,
                int32_t cols, int c, T start, typename Keys<T>::K &mn, typename Keys<T>::K &mx) {
  using KT = Keys<T>;
  using K = typename KT::K;
  const K sb = KT::bits(start);
  K a = mn, b = mx;
  for (int32_t x = from; x < cols; ++x) {
    K v = KT::bits(p[(ptrdiff_t)x * C + c]);
    if constexpr (Masked) v = pick<K>(m[x] != skip, v, sb);
    K kn, kx;
    KT::keys(v, kn, kx);
    a = kn < a ? kn : a;
    b = kx > b ? kx : b;
  }
  mn = a;
  mx = b;
}

// The first pixel of a row from `from` on whose element equals the key, or
// -1. Under a mask only selected pixels are looked at.
template <class T, int C, bool Masked>
int32_t find_key(const T *p, const uint8_t *m, uint8_t skip, int32_t from, int32_t cols, int c,
                 typename Keys<T>::K key) {
  for (int32_t x = from; x < cols; ++x) {
    if (Masked && m[x] == skip) continue;
    const T v = p[(ptrdiff_t)x * C + c];
    if (!Keys<T>::nan(v) && Keys<T>::key(v) == key) return x;
  }
  return -1;
}

/* ---------------- the kernel ---------------- */

template <class T, int C, bool Masked>
SornStatus minmax_kernel(SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                         const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                         SornMinmaxRec *res) {
  using KT = Keys<T>;
  using K = typename KT::K;
  // Rows are never merged: a row number is part of the answer.
  const sorn::Rows r = sorn::rows_of(n, dims, strides, Masked ? mstrides : nullptr);
  if (r.rows < 1 || r.cols < 1) return SORN_OK;
  const uint8_t skip = skip_value(flags);
  const uint32_t what = res->what;
  auto row_of = [&](int32_t y) {
    return (const T *)((const uint8_t *)src + (ptrdiff_t)y * r.step);
  };
  auto mask_of = [&](int32_t y) { return Masked ? mask + (ptrdiff_t)y * r.mstep : nullptr; };

  // The start: the first element, or under a mask the first selected pixel.
  int32_t y0 = 0, x0 = 0;
  if constexpr (Masked) {
    for (y0 = 0; y0 < r.rows; ++y0) {
      const uint8_t *m = mask_of(y0);
      for (x0 = 0; x0 < r.cols && m[x0] == skip; ++x0) {
      }
      if (x0 < r.cols) break;
    }
    if (y0 == r.rows) return SORN_ENOSPC;
  }
  T start[C];
  K mn[C], mx[C];
  int32_t mnrow[C], mxrow[C];
  bool nan_start[C];
  for (int c = 0; c < C; ++c) {
    start[c] = row_of(y0)[(ptrdiff_t)x0 * C + c];
    mn[c] = mx[c] = KT::key(start[c]);
    mnrow[c] = mxrow[c] = y0;
    nan_start[c] = KT::nan(start[c]);
  }

  // The walk. A channel that starts with a NaN has nothing to do: no value
  // compares with it, so it stays both extremes; it also never lets the
  // walk end early.
  for (int32_t y = y0; y < r.rows; ++y) {
    const T *p = row_of(y);
    const uint8_t *m = mask_of(y);
    const int32_t from = y == y0 ? x0 : 0;
    bool ends = true;
    for (int c = 0; c < C; ++c) {
      if (nan_start[c]) {
        ends = false;
        continue;
      }
      K a = mn[c], b = mx[c];
      reduce_row<T, C, Masked>(p, m, skip, from, r.cols, c, start[c], a, b);
      if (a < mn[c]) {
        mn[c] = a;
        mnrow[c] = y;
      }
      if (b > mx[c]) {
        mx[c] = b;
        mxrow[c] = y;
      }
      ends = ends && mn[c] <= KT::lo && mx[c] >= KT::hi;
    }
    if (ends) break;
  }

  // Values and places. A float extreme is the element itself, found in its
  // row (its key alone would not tell -0 from +0).
  const bool positions = (what & SORN_MINMAX_POSITIONS) != 0;
  for (int c = 0; c < C; ++c) {
    SornMinmaxEntry *e[2] = {&res->min[c], &res->max[c]};
    const K key[2] = {mn[c], mx[c]};
    const int32_t row[2] = {mnrow[c], mxrow[c]};
    const uint32_t colbit[2] = {SORN_MINMAX_MINCOL, SORN_MINMAX_MAXCOL};
    for (int s = 0; s < 2; ++s) {
      int32_t col = -1;
      const int32_t from = row[s] == y0 ? x0 : 0;
      const bool need_col = positions && (what & colbit[s]);
      // An integer is its key; a float is looked up.
      T v = std::is_same_v<T, float> ? start[c] : (T)key[s];
      if (!nan_start[c] && (need_col || std::is_same_v<T, float>)) {
        col =
            find_key<T, C, Masked>(row_of(row[s]), mask_of(row[s]), skip, from, r.cols, c, key[s]);
        if (col >= 0) v = row_of(row[s])[(ptrdiff_t)col * C + c];
      }
      if constexpr (std::is_same_v<T, float>)
        e[s]->fvalue = v;
      else
        e[s]->ivalue = (int32_t)v;
      if (positions) {
        e[s]->row = row[s];
        e[s]->col = need_col ? (col >= 0 ? col : from) : 0;
      } else {
        e[s]->row = y0;
        e[s]->col = x0;
      }
    }
  }
  return SORN_OK;
}

}  // namespace

#define SORN_MINMAX_KERNELS(c, t)                                                                 \
  SornStatus sorna__minmax_c##c##_##t(SornXE *, SornFlags flags, int32_t n, const int32_t *dims,  \
                                      const void *src, const int32_t *strides,                    \
                                      SornMinmaxRec *res) {                                       \
    return minmax_kernel<sorn::tok::t, c, false>(flags, n, dims, src, strides, nullptr, nullptr,  \
                                                 res);                                            \
  }                                                                                               \
  SornStatus sorna__minmax_xm_c##c##_##t(                                                         \
      SornXE *, SornFlags flags, int32_t n, const int32_t *dims, const void *src,                 \
      const int32_t *strides, const uint8_t *mask, const int32_t *mstrides, SornMinmaxRec *res) { \
    /* Only one channel is searched under a mask. */                                              \
    if (c != 1) return SORN_ENOTSUP;                                                              \
    return minmax_kernel<sorn::tok::t, c, true>(flags, n, dims, src, strides, mask, mstrides,     \
                                                res);                                             \
  }
#define SORN_MINMAX_KERNEL_ROWS(t) SORN_STATS_CHANNELS(SORN_MINMAX_KERNELS, t)
SORN_MINMAX_TYPES(SORN_MINMAX_KERNEL_ROWS)

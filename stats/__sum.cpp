// Sum kernels. One pattern for all 48: element type, channel count,
// accumulator width (sum or fastsum) and pixel mask are its parameters.
#include <sorn.h>

#include <bit>
#include <cstdint>
#include <type_traits>

#include "stats/stat_layers.h"

using namespace sorn::stats;
using sorn::Rows;

namespace {

// Accumulators. fastsum keeps the narrowest exact-enough word, 32 bits for
// integers and float for floats; sum widens to 64 bits and double.
template <class T, bool Fast> struct Acc {
  using type = std::conditional_t<std::is_same_v<T, float>, std::conditional_t<Fast, float, double>,
                                  std::conditional_t<Fast, uint32_t, uint64_t>>;
  static double result(type a) {
    if constexpr (std::is_same_v<T, float>)
      return (double)a;
    else if constexpr (Fast)
      return (double)(int32_t)a;  // so a u8 total above 2^31 comes out negative
    else
      return (double)(int64_t)a;
  }
  static type widen(T v) {
    if constexpr (std::is_same_v<T, float>)
      return (type)v;
    else
      return (type)(int64_t)v;  // sign-extend, then wrap into the accumulator
  }
};

// Up to this many pixels the 32-bit total of a sum kernel is exact, and the
// fastsum kernel does the work: 255 * 8421504 and 32768 * 65538 stay within
// 2^31 plus a row.
template <class T> constexpr int64_t narrow_limit() {
  if constexpr (std::is_same_v<T, uint8_t>)
    return 8421505;
  else if constexpr (std::is_same_v<T, int16_t>)
    return 65539;
  else
    return 0;
}

// The total of one u8 row into an accumulator of either width. Partial
// totals of 256 bytes fit 16 bits (256 * 255 < 65536), so the inner loop runs
// in 16-bit lanes; integer addition is exact in any order, and a block total
// wraps into the accumulator exactly as its bytes one by one would.
template <class acc_t> inline acc_t u8_row_total(const uint8_t *__restrict p, int32_t cols) {
  acc_t t = 0;
  int32_t x = 0;
  for (; x + 256 <= cols; x += 256) {
    uint16_t s = 0;
    for (int32_t j = 0; j < 256; ++j) s = (uint16_t)(s + p[x + j]);
    t += s;
  }
  for (; x < cols; ++x) t += p[x];
  return t;
}

// The f32 sum adds in double, in address order. Where no partial sum can
// round, every order gives that same total, and the additions may run in
// lanes. A finite f32 of biased exponent e is a multiple of 2^(max(e,1) -
// 150) below 2^(e - 126) in magnitude; so with lo the least max(e,1) of the
// non-zero values and hi the greatest e, every partial sum of n values is a
// multiple of 2^(lo - 150) below n * 2^(hi - 126), and a double holds it
// exactly when n <= 2^(29 - (hi - lo)). An exact zero total is +0.0 in
// either way, since every sum starts from +0.0.
//
// The count of the values is known before the first of them is read, and
// with it the widest spread allowed: a chunk that shows a wider one ends the
// attempt there, so that a sum that cannot take the lanes pays little more
// than the serial chain.
class F32Lanes {
 public:
  static constexpr int kLanes = 16;        // four chains of 32-byte vectors
  static constexpr int32_t kChunk = 1024;  // the values of a chunk are read twice, from L1

  explicit F32Lanes(int64_t count) {
    int32_t bits = 0;  // ceil(log2(count))
    while (bits < 62 && ((int64_t)1 << bits) < count) ++bits;
    max_spread_ = 29 - bits;
  }
  bool possible() const { return max_spread_ >= 0; }

  // False, with nothing added, when the values of p break the bound.
  bool add(const float *__restrict p, int32_t n) {
    uint32_t l = lo_, h = hi_;
    for (int32_t x = 0; x < n; ++x) {
      const uint32_t u = std::bit_cast<uint32_t>(p[x]) & 0x7fffffffu;
      const uint32_t e = u >> 23;
      const uint32_t grain = u == 0 ? 255u : (e | (uint32_t)(e == 0));
      l = grain < l ? grain : l;
      h = e > h ? e : h;
    }
    lo_ = l;
    hi_ = h;
    if (!within()) return false;
    double s[kLanes];
    for (int j = 0; j < kLanes; ++j) s[j] = lane_[j];
    int32_t x = 0;
    for (; x + kLanes <= n; x += kLanes)
      for (int j = 0; j < kLanes; ++j) s[j] += (double)p[x + j];
    for (int j = 0; x < n; ++x, ++j) s[j] += (double)p[x];
    for (int j = 0; j < kLanes; ++j) lane_[j] = s[j];
    return true;
  }
  double total() const {
    double t = 0.0;
    for (int j = 0; j < kLanes; ++j) t += lane_[j];
    return t;
  }

 private:
  // hi 255 is a NaN or an infinity; hi below lo, zeros only.
  bool within() const { return hi_ != 255 && (hi_ < lo_ || (int32_t)(hi_ - lo_) <= max_spread_); }

  double lane_[kLanes] = {};
  uint32_t lo_ = 255, hi_ = 0;
  int32_t max_spread_;
};

// The f32 total of one channel in lanes, when it is exact (see F32Lanes).
inline bool f32_total_in_lanes(const Rows &r, const void *src, double *total) {
  F32Lanes lanes((int64_t)r.rows * r.cols);
  if (!lanes.possible()) return false;
  const uint8_t *row = (const uint8_t *)src;
  for (int32_t y = 0; y < r.rows; ++y, row += r.step) {
    const float *p = (const float *)row;
    for (int32_t x = 0; x < r.cols; x += F32Lanes::kChunk)
      if (!lanes.add(p + x, r.cols - x < F32Lanes::kChunk ? r.cols - x : F32Lanes::kChunk))
        return false;
  }
  *total = lanes.total();
  return true;
}

template <class T, int C, bool Fast, bool Masked>
SornStatus sum_kernel(SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                      const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                      double *sums) {
  using A = Acc<T, Fast>;
  using acc_t = typename A::type;
  Rows r = sorn::rows_of(n, dims, strides, Masked ? mstrides : nullptr);
  sorn::merge_dense(r, n, strides, Masked ? mstrides : nullptr);
  if constexpr (std::is_same_v<T, float> && !Fast && C == 1 && !Masked) {
    double total;
    if (f32_total_in_lanes(r, src, &total)) {
      sums[0] = total;
      return SORN_OK;
    }
  }
  const uint8_t skip = skip_value(flags);
  const bool counting = Masked && (flags & SORN_F_SUM_COUNT);
  acc_t acc[C];
  for (int c = 0; c < C; ++c) acc[c] = 0;
  int64_t count = 0;
  const uint8_t *row = (const uint8_t *)src;
  const uint8_t *mrow = mask;
  for (int32_t y = 0; y < r.rows; ++y) {
    const T *__restrict p = (const T *)row;
    const uint8_t *__restrict m = mrow;
    if constexpr (C == 1 && !std::is_same_v<T, float>) {
      // Integer order doesn't matter: a row-local total lets the loop run wide.
      acc_t t = 0;
      if (!Masked) {
        if constexpr (std::is_same_v<T, uint8_t>)
          t = u8_row_total<acc_t>(p, r.cols);
        else
          for (int32_t x = 0; x < r.cols; ++x) t += A::widen(p[x]);
      } else {
        // A selected element is added through an all-ones mask: no branch.
        for (int32_t x = 0; x < r.cols; ++x)
          t += A::widen(p[x]) & ((acc_t)0 - (acc_t)(m[x] != skip));
        if (counting) {
          uint32_t k = 0;
          for (int32_t x = 0; x < r.cols; ++x) k += (uint32_t)(m[x] != skip);
          count += k;
        }
      }
      acc[0] += t;
    } else {
      // Floats add in address order, one accumulator per channel.
      for (int32_t x = 0; x < r.cols; ++x) {
        if (Masked && m[x] == skip) continue;
        for (int c = 0; c < C; ++c) acc[c] += A::widen(p[x * C + c]);
        if (counting) ++count;
      }
    }
    row += r.step;
    if (Masked) mrow += r.mstep;
  }
  for (int c = 0; c < C; ++c) sums[c] = A::result(acc[c]);
  return counting ? (SornStatus)count : SORN_OK;
}

template <class T, int C, bool Masked>
SornStatus wide_kernel(SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                       const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                       double *sums) {
  constexpr int64_t limit = narrow_limit<T>();
  if constexpr (limit > 0) {
    // The region's pixel count decides, also under a mask.
    if (n >= 2 && sorn_volume__capacity(n - 1, dims) < limit) {
      SornStatus st =
          sum_kernel<T, C, true, Masked>(flags, n, dims, src, strides, mask, mstrides, sums);
      if (st >= 0) return st;
    }
  }
  return sum_kernel<T, C, false, Masked>(flags, n, dims, src, strides, mask, mstrides, sums);
}

}  // namespace

#define SUM_KERNELS1(c, t)                                                                         \
  SornStatus sorna__sum_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,    \
                                   const void *src, const int32_t *strides, double *sums) {        \
    return wide_kernel<sorn::tok::t, c, false>(flags, n, dims, src, strides, nullptr, nullptr,     \
                                               sums);                                              \
  }                                                                                                \
  SornStatus sorna__fastsum_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,                     \
                                       const int32_t *dims, const void *src,                       \
                                       const int32_t *strides, double *sums) {                     \
    return sum_kernel<sorn::tok::t, c, true, false>(flags, n, dims, src, strides, nullptr,         \
                                                    nullptr, sums);                                \
  }                                                                                                \
  SornStatus sorna__sum_xm_c##c##_##t(                                                             \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, const void *src,                \
      const int32_t *strides, const uint8_t *mask, const int32_t *mstrides, double *sums) {        \
    return wide_kernel<sorn::tok::t, c, true>(flags, n, dims, src, strides, mask, mstrides, sums); \
  }                                                                                                \
  SornStatus sorna__fastsum_xm_c##c##_##t(                                                         \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, const void *src,                \
      const int32_t *strides, const uint8_t *mask, const int32_t *mstrides, double *sums) {        \
    return sum_kernel<sorn::tok::t, c, true, true>(flags, n, dims, src, strides, mask, mstrides,   \
                                                   sums);                                          \
  }
#define SUM_KERNELS(t) SORN_STATS_CHANNELS(SUM_KERNELS1, t)
SORN_SUM_TYPES(SUM_KERNELS)

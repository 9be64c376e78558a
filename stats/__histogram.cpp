// Counting kernels of the histograms. One pattern per kind of element:
// 8-bit values go through eight banks of counters, wider integers and floats
// through plain loops over rows.
#include <sorn.h>

#include <cstring>
#include <type_traits>

#include "stats/stat_layers.h"

using namespace sorn::stats;
using sorn::Rows;

namespace {

// The low end of the range, brought into the element's own range; an s32
// low end is used as it stands.
template <class T> inline int32_t low_of(int32_t ilow) {
  if constexpr (sizeof(T) < 4)
    return sorn::sat32<T>(ilow);
  else
    return ilow;
}

// The bin of value offset d = x - ilow: itself when the range has as many
// values as there are bins, otherwise d * bins / irange in signed 32 bits.
inline int32_t scaled_bin(int32_t d, int32_t bins, int32_t irange) {
  int32_t prod = (int32_t)((uint32_t)d * (uint32_t)bins);
  return (int32_t)((int64_t)prod / irange);
}

// Counts bin b when the histogram has it. A value outside the range falls
// outside the bins and is not counted, as the bank path loses it at the
// merge: no counter outside the record is ever touched, whatever the data
// (NaN included, whose bin is the most negative integer).
inline void count_in(uint32_t *c, int32_t b, int32_t bins) {
  if ((uint32_t)b < (uint32_t)bins) ++c[b];
}

inline void prefetch(const void *p) { __builtin_prefetch(p, 0, 3); }

// The weighted sum over every counter of the histogram, earlier counts
// included: a second call on the same record sums them again, on purpose.
void sum_all_counts(SornHist *h, int32_t lo) {
  uint32_t s = h->isum;
  const uint32_t *c = h->counts;
  for (uint32_t i = 0; i < h->bins; ++i) s += c[i] * ((uint32_t)lo + i);  // wraps, as the sum does
  h->isum = s;
}

// Folds a table of counters based at lo (entry i for value lo + i) into the
// histogram, adding only these counts to the sum. Entries past the 256
// values an 8-bit element can take hold nothing of this call.
void fold_table(SornHist *h, int32_t lo, const uint32_t *const *banks, int32_t nbanks) {
  int32_t bins = (int32_t)h->bins, irange = h->irange;
  int32_t top = irange < 256 ? irange : 256;
  uint32_t s = h->isum;
  for (int32_t i = 0; i < top; ++i) {
    uint32_t t = 0;
    for (int32_t b = 0; b < nbanks; ++b) t += banks[b][i];
    if (irange == bins)
      h->counts[i] += t;
    else
      h->counts[scaled_bin(i, bins, irange)] += t;
    s += t * ((uint32_t)lo + (uint32_t)i);
  }
  h->isum = s;
}

// A range that the division rule could not map: it would divide by zero.
inline bool unmappable(const SornHist *h) { return h->irange == 0 && (int32_t)h->bins != 0; }

// Hands each selected element of the rows of r to `count`: every element, or
// with a mask those whose mask byte is not `skip`.
template <class T, bool Masked, class Count>
inline void each_selected(const Rows &r, const void *src, const uint8_t *mask, uint8_t skip,
                          Count count) {
  const uint8_t *row = (const uint8_t *)src;
  const uint8_t *mrow = mask;
  for (int32_t y = 0; y < r.rows; ++y) {
    const T *p = (const T *)row;
    for (int32_t x = 0; x < r.cols; ++x)
      if (!Masked || mrow[x] != skip) count(p[x]);
    row += r.step;
    if (Masked) mrow += r.mstep;
  }
}

/* ---- 8-bit elements ---- */

// Index of an 8-bit element as a table offset.
template <class T> inline int32_t ix(T v) { return (int32_t)v; }

// One row into the eight banks. banks[b] is bank b + 1 shifted so that it is
// indexed by the element's value. Neighbouring bytes go to different banks,
// so that a run of equal bytes never updates one counter twice in turn.
template <class T, bool Masked>
void bank_row(const T *__restrict p, const uint8_t *__restrict m, int32_t cols, uint8_t skip,
              uint32_t *const *banks) {
  int32_t x = 0;
  // Head up to the alignment of the body: the source to 16 bytes, or the
  // mask to 8 when there is one.
  uintptr_t a = Masked ? (uintptr_t)m : (uintptr_t)p;
  int32_t head = (int32_t)((Masked ? 8 - (a & 7) : 16 - (a & 15)) & (Masked ? 7 : 15));
  if (head > cols) head = cols;
  for (; x < head; ++x)
    if (!Masked || m[x] != skip) ++banks[0][ix(p[x])];
  for (; x + 16 <= cols; x += 16) {
    if (!Masked) {
      for (int k = 0; k < 8; ++k) ++banks[k][ix(p[x + k])];
      for (int k = 0; k < 8; ++k) ++banks[k][ix(p[x + 8 + k])];
    } else {
      for (int k = 0; k < 8; ++k)
        if (m[x + k] != skip) ++banks[k][ix(p[x + k])];
      for (int k = 0; k < 8; ++k)
        if (m[x + 8 + k] != skip) ++banks[k][ix(p[x + 8 + k])];
    }
  }
  if (x + 8 <= cols) {
    for (int k = 0; k < 8; ++k)
      if (!Masked || m[x + k] != skip) ++banks[k][ix(p[x + k])];
    x += 8;
  }
  if (x + 4 <= cols) {
    for (int k = 0; k < 4; ++k)
      if (!Masked || m[x + k] != skip) ++banks[k][ix(p[x + k])];
    x += 4;
  }
  for (; x < cols; ++x)
    if (!Masked || m[x] != skip) ++banks[0][ix(p[x])];
}

template <class T, bool Masked>
SornStatus count8(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                  const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                  SornHist *h) {
  if (unmappable(h)) return SORN_EINVAL;
  Rows r = sorn::rows_of(n, dims, strides, Masked ? mstrides : nullptr);
  sorn::merge_dense(r, n, strides, Masked ? mstrides : nullptr);
  const int32_t lo = low_of<T>(h->ilow);
  const int32_t bins = (int32_t)h->bins;
  const uint8_t skip = skip_value(flags);
  const uint8_t *row = (const uint8_t *)src;
  const uint8_t *mrow = mask;
  const int32_t bank_limit = Masked ? 39 : 14;

  if (r.cols > bank_limit) {
    // Ten blocks of 256 counters: eight banks between two guard blocks that
    // catch what lies below or above the range, lost at the merge.
    uint32_t *blk = (uint32_t *)SornXEalloca(xe, 10240, 8);
    if (blk == nullptr) return SORN_ENOMEM;
    memset(blk, 0, 10240);
    uint32_t *banks[8];
    const uint32_t *merged[8];
    for (int b = 0; b < 8; ++b) {
      banks[b] = blk + (b + 1) * 256 - lo;
      merged[b] = blk + (b + 1) * 256;
    }
    for (int32_t y = 0; y < r.rows; ++y) {
      prefetch(row);
      if (r.cols > 23) prefetch(row + 64);
      if (y + 1 < r.rows) prefetch(row + r.step);
      bank_row<T, Masked>((const T *)row, mrow, r.cols, skip, banks);
      row += r.step;
      if (Masked) mrow += r.mstep;
    }
    fold_table(h, lo, merged, 8);
    SornXEfreea(xe, blk);
    return SORN_OK;
  }

  if (h->irange == bins) {
    uint32_t *c = h->counts;
    each_selected<T, Masked>(r, row, mrow, skip, [&](T v) { count_in(c, ix(v) - lo, bins); });
    sum_all_counts(h, lo);
    return SORN_OK;
  }

  // Short rows with a division rule: a local table based at lo, with guard
  // blocks on both sides as in the bank path.
  uint32_t local[768];
  memset(local, 0, sizeof local);
  uint32_t *t = local + 256 - lo;
  each_selected<T, Masked>(r, row, mrow, skip, [&](T v) { ++t[ix(v)]; });
  const uint32_t *one[1] = {local + 256};
  fold_table(h, lo, one, 1);
  return SORN_OK;
}

/* ---- wider integers ---- */

template <class T, bool Masked>
SornStatus count_int(SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                     const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                     SornHist *h) {
  if (unmappable(h)) return SORN_EINVAL;
  Rows r = sorn::rows_of(n, dims, strides, Masked ? mstrides : nullptr);
  const int32_t lo = low_of<T>(h->ilow);
  const int32_t bins = (int32_t)h->bins, irange = h->irange;
  const uint8_t skip = skip_value(flags);
  uint32_t *c = h->counts;
  // The offset from lo wraps like the element's 32-bit difference.
  const auto offset = [lo](T v) { return (int32_t)((uint32_t)(int32_t)v - (uint32_t)lo); };
  if (irange == bins)
    each_selected<T, Masked>(r, src, mask, skip, [&](T v) { count_in(c, offset(v), bins); });
  else
    each_selected<T, Masked>(r, src, mask, skip,
                             [&](T v) { count_in(c, scaled_bin(offset(v), bins, irange), bins); });
  sum_all_counts(h, lo);
  return SORN_OK;
}

/* ---- floats ---- */

template <bool Masked>
SornStatus count_f32(SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                     const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                     SornHist *h) {
  Rows r = sorn::rows_of(n, dims, strides, Masked ? mstrides : nullptr);
  const float low = h->low;
  const float fscale = h->span != 0.0f ? (float)((int32_t)h->bins - 1) / h->span : 0.0f;
  const double scale = (double)fscale;
  const int32_t bins = (int32_t)h->bins;
  const uint8_t skip = skip_value(flags);
  uint32_t *c = h->counts;
  each_selected<float, Masked>(r, src, mask, skip, [&](float v) {
    count_in(c, sorn::trunc_i32((double)(v - low) * scale), bins);
  });
  // The value of bin i is taken as i + low, a step of 1 and not the width:
  // the float sum is defined so, and kept.
  float s = h->fsum;
  for (uint32_t i = 0; i < h->bins; ++i) s += ((float)i + low) * (float)c[i];
  h->fsum = s;
  return SORN_OK;
}

// The counting loop for elements of type T: banks for bytes, the float
// rule, the wider integers.
template <class T, bool Masked>
SornStatus count(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, const void *src,
                 const int32_t *strides, const uint8_t *mask, const int32_t *mstrides,
                 SornHist *h) {
  if constexpr (sizeof(T) == 1)
    return count8<T, Masked>(xe, flags, n, dims, src, strides, mask, mstrides, h);
  else if constexpr (std::is_same_v<T, float>)
    return count_f32<Masked>(flags, n, dims, src, strides, mask, mstrides, h);
  else
    return count_int<T, Masked>(flags, n, dims, src, strides, mask, mstrides, h);
}

}  // namespace

// Only one channel is ever counted: the c3 and c4 forms are refusals.
#define HIST_KERNEL(c, t)                                                                         \
  SornStatus sorna__histogram_c##c##_##t(SornXE *xe, SornFlags flags, int32_t n,                  \
                                         const int32_t *dims, const void *src,                    \
                                         const int32_t *strides, SornHist *hists) {               \
    if (c != 1) return SORN_ENOTSUP;                                                              \
    return count<sorn::tok::t, false>(xe, flags, n, dims, src, strides, nullptr, nullptr, hists); \
  }
#define HIST_KERNELS(t) SORN_STATS_CHANNELS(HIST_KERNEL, t)
SORN_HIST_TYPES(HIST_KERNELS)

#define HIST_XM_KERNEL(c, t)                                                                   \
  SornStatus sorna__histogram_xm_c##c##_##t(                                                   \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, const void *src,            \
      const int32_t *strides, const uint8_t *mask, const int32_t *mstrides, SornHist *hists) { \
    if (c != 1) return SORN_ENOTSUP;                                                           \
    return count<sorn::tok::t, true>(xe, flags, n, dims, src, strides, mask, mstrides, hists); \
  }
#define HIST_XM_KERNELS(t) SORN_STATS_CHANNELS(HIST_XM_KERNEL, t)
SORN_HIST_XM_TYPES(HIST_XM_KERNELS)

// Shared pieces of the statistics units: the entry checks that histogram,
// sum and mean have in common, the walk of a kernel's rows, and the few
// numeric conversions whose exact results the kernels promise.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace sorn_stats {

constexpr uint32_t kKnownTypes = SORN_KNOWN_TYPES;

// Element types by their names in kernel names, for the X-macro tables.
using elem_u8 = uint8_t;
using elem_s8 = int8_t;
using elem_s16 = int16_t;
using elem_s32 = int32_t;
using elem_f32 = float;
constexpr uint32_t code_u8 = SORN_U8;
constexpr uint32_t code_s8 = SORN_S8;
constexpr uint32_t code_s16 = SORN_S16;
constexpr uint32_t code_s32 = SORN_S32;
constexpr uint32_t code_f32 = SORN_F32;

inline bool known_type(uint32_t t) { return t < 16 && ((kKnownTypes >> t) & 1u); }

// The channel words that have a kernel: 1, 3, and 4 or 11 for four channels.
// 0 for any other word.
inline int32_t kernel_channels(uint32_t cw) {
  switch (cw) {
    case 1: return 1;
    case 3: return 3;
    case 4:
    case 11: return 4;
    default: return 0;
  }
}

inline int32_t channels_of(uint32_t w) { return (int32_t)((w & 7) + ((w >> 3) & 1)); }

// The selected channels of a channels word: bits 4-7, where 0 stands for all
// of a count of 1 to 4 and for none of any other count.
inline uint32_t channel_mask(uint32_t w) {
  uint32_t m = (w >> 4) & 15u;
  if (m) return m;
  int32_t c = channels_of(w);
  return (c >= 1 && c <= 4) ? (1u << c) - 1u : 0u;
}
inline bool selected(uint32_t mask, int32_t c) { return c < 32 && ((mask >> c) & 1u); }

// The channel-format nibble of the flags comes from the channels word when
// the caller gave none.
inline SornFlags fill_format(SornFlags flags, uint32_t w) {
  if ((flags & SORN_F_CHFORMAT) == 0 && (w & 0xf0u) != 0) flags |= (SornFlags)(w & 0xf0u);
  return flags;
}

inline uint8_t skip_value(SornFlags flags) { return (flags & SORN_F_STATS_INVMASK) ? 255 : 0; }

// Float to 32-bit integer, to nearest with ties to even; anything outside the
// 32-bit range (NaN too) becomes 0x80000000, as the processor's conversion does.
inline int32_t round_i32(double v) {
  if (!(v >= -2147483648.5 && v < 2147483647.5)) return INT32_MIN;
  return (int32_t)std::nearbyint(v);
}
// The same with truncation toward zero.
inline int32_t trunc_i32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
  return (int32_t)v;
}

// Layers 2 to 4 look at the last three cells only: an outer dimension that
// the frame could not merge leaves the first plane to be worked.
struct Shape {
  int32_t n;
  const int32_t *dims;
  const int32_t *strides;
};
inline Shape inner3(SornDimPack pack, const int32_t *dims, const int32_t *strides) {
  int32_t n = (int32_t)(pack & 15);
  if (n > 3) {
    dims += n - 3;
    if (strides) strides += n - 3;
    n = 3;
  }
  return {n, dims, strides};
}

// Rows of a kernel call: rows dims[n-3] and row stride strides[n-3] when
// there are three cells, a single row otherwise; columns dims[n-2].
struct Rows {
  int32_t rows;
  int32_t cols;
  int32_t step;   // bytes from row to row of the source
  int32_t mstep;  // the same for the mask
};
inline Rows rows_of(int32_t n, const int32_t *dims, const int32_t *strides,
                    const int32_t *mstrides) {
  Rows r{1, 1, 0, 0};
  if (n >= 2) r.cols = dims[n - 2];
  if (n >= 3) {
    r.rows = dims[n - 3];
    r.step = strides[n - 3];
    if (mstrides) r.mstep = mstrides[n - 3];
  }
  if (r.rows < 0) r.rows = 0;
  if (r.cols < 0) r.cols = 0;
  return r;
}
// Dense rows become one long row: the source's pixel stride times the width
// equals its row stride (and the mask's likewise when there is one).
inline void merge_rows(Rows &r, int32_t n, const int32_t *strides, const int32_t *mstrides) {
  if (r.rows <= 1 || n < 3) return;
  int64_t row = (int64_t)strides[n - 2] * r.cols;
  if (row != r.step) return;
  if (mstrides && (int64_t)mstrides[n - 2] * r.cols != r.mstep) return;
  r.cols *= r.rows;
  r.rows = 1;
}

// Checks of an image operand shared by every entry of the statistics:
// rank 3 or 4, outermost extent at least 1, one to four channels.
inline bool bad_image(const SornArray *a) {
  if (a == nullptr) return true;
  if (a->ndims != 3 && a->ndims != 4) return true;
  if (a->dims[0] < 1) return true;
  int32_t c = channels_of((uint32_t)a->dims[3]);
  return c < 1 || c > 4;
}

// A pixel mask against its image: same rank, or rank 3 under rank 4; same
// outermost extent or 1; exactly one channel of u8.
inline bool bad_mask(const SornArray *src, const SornArray *mask) {
  if (mask->ndims != src->ndims && !(mask->ndims == 3 && src->ndims == 4)) return true;
  if (mask->dims[0] != src->dims[0] && mask->dims[0] != 1) return true;
  if (channels_of((uint32_t)mask->dims[3]) != 1) return true;
  return mask->elemtype != SORN_U8;
}

// The operand of a call once checked: its ROI with the origin counted from
// data, and a private copy of its strides for the frame.
struct Operand {
  SornVolume roi;
  int32_t strides[4];
  uint32_t type;
  void *data;
};

// One image: checks, ROI, origin from data. 0 or a status.
SornStatus prepare_image(const SornArray *src, const SornVolume *roi, Operand *op);
// An image and its mask: checks of both, negotiation of one extent, origins.
SornStatus prepare_masked(const SornArray *src, const SornArray *mask, const SornVolume *roi,
                          const SornVolume *maskSite, Operand *op, Operand *mop);

using Layer2 = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                              const void *, const int32_t *, const int32_t *, void *);
using Layer2Xm = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                const void *, const int32_t *, const int32_t *, uint32_t,
                                const void *, const int32_t *, const int32_t *, void *);

// Rank 3 goes to the type-generic layer at once; rank 4 through the frame,
// which merges what it can, down to two cells, and calls the slice form.
SornStatus run_image(SornXE *xe, SornFlags flags, int32_t ndims, Operand *op, uint32_t tag,
                     SornSliceProc proc, Layer2 layer2, void *out);
SornStatus run_masked(SornXE *xe, SornFlags flags, int32_t ndims, Operand *op, Operand *mop,
                      uint32_t tag, SornSliceProc proc, Layer2Xm layer2, void *out);

}  // namespace sorn_stats

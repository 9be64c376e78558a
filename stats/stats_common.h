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

// The layers above the kernels have one shape in every statistic; each
// operation names its own functions and these templates are the glue.
// Layer 3 takes data pointers; layer 2 takes bases and origins.
template <class Out>
using Layer3Of = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                const void *, const int32_t *, Out *);
template <class Out>
using Layer3XmOf = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                  const void *, const int32_t *, const void *, const int32_t *,
                                  Out *);
template <class Out>
using Layer2Of = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                const void *, const int32_t *, const int32_t *, Out *);
template <class Out>
using Layer2XmOf = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                  const void *, const int32_t *, const int32_t *, uint32_t,
                                  const void *, const int32_t *, const int32_t *, Out *);

inline const void *at_origin(const void *base, SornDimPack pack, const int32_t *origin,
                             const int32_t *strides) {
  return sorn_advance_ptr(base, sorn_vec_mkloff_$LS(pack, origin, strides));
}

// Layer 2 over layer 3: the origins go into the pointers; no mask base
// gives a null mask.
template <class Out, Layer3Of<Out> F>
SornStatus from_origin(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, const void *base, const int32_t *origin,
                       const int32_t *strides, Out *out) {
  return F(xe, flags, pack, dims, type, at_origin(base, pack, origin, strides), strides, out);
}
template <class Out, Layer3XmOf<Out> F>
SornStatus from_origin_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, const void *base, const int32_t *origin,
                          const int32_t *strides, uint32_t, const void *mbase,
                          const int32_t *morigin, const int32_t *mstrides, Out *out) {
  const void *mask = mbase ? at_origin(mbase, pack, morigin, mstrides) : nullptr;
  return F(xe, flags, pack, dims, type, at_origin(base, pack, origin, strides), strides, mask,
           mstrides, out);
}

// The slice forms the frame calls: the operation's result rides in data.
template <class Out, Layer2Of<Out> F>
SornStatus slice_of(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                    uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0) {
  return F(xe, flags, pack, dims, type0, base0, origin0, strides0, static_cast<Out *>(data));
}
template <class Out, Layer2XmOf<Out> F>
SornStatus slice_of_xm(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                       uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  return F(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1, origin1,
           strides1, static_cast<Out *>(data));
}

// Layer 2 as run_image and run_masked take it, with an untyped result.
template <class Out, Layer2Of<Out> F>
SornStatus untyped(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                   uint32_t type, const void *base, const int32_t *origin, const int32_t *strides,
                   void *out) {
  return F(xe, flags, pack, dims, type, base, origin, strides, static_cast<Out *>(out));
}
template <class Out, Layer2XmOf<Out> F>
SornStatus untyped_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, const void *base, const int32_t *origin,
                      const int32_t *strides, uint32_t mtype, const void *mbase,
                      const int32_t *morigin, const int32_t *mstrides, void *out) {
  return F(xe, flags, pack, dims, type, base, origin, strides, mtype, mbase, morigin, mstrides,
           static_cast<Out *>(out));
}

// An entry without a mask and one with: checks, then the frame or layer 2.
// `pre` is a status of the entry's own checks, answered after the operands'.
template <class Out, Layer2Of<Out> F>
SornStatus image_entry(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *roi,
                       uint32_t tag, SornSliceProc slice, Out *out, SornStatus pre = SORN_OK) {
  if (out == nullptr) return SORN_EINVAL;
  Operand op;
  SornStatus st = prepare_image(src, roi, &op);
  if (st != SORN_OK) return st;
  if (pre != SORN_OK) return pre;
  return run_image(xe, flags, src->ndims, &op, tag, slice, untyped<Out, F>, out);
}
template <class Out, Layer2XmOf<Out> F>
SornStatus masked_entry(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                        const SornVolume *roi, const SornVolume *maskSite, uint32_t tag,
                        SornSliceProc slice, Out *out, SornStatus pre = SORN_OK) {
  if (out == nullptr) return SORN_EINVAL;
  Operand op, mop;
  SornStatus st = prepare_masked(src, mask, roi, maskSite, &op, &mop);
  if (st != SORN_OK) return st;
  if (pre != SORN_OK) return pre;
  return run_masked(xe, flags, src->ndims, &op, &mop, tag, slice, untyped_xm<Out, F>, out);
}

}  // namespace sorn_stats

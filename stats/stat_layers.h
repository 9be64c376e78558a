// What the statistics units share beyond the core layers: the channels a
// channels word selects, the skip value of a pixel mask, the entries of an
// image with or without a mask, and one definition of the type-generic
// layer and the slice forms of a statistic.
#pragma once

#include <sorn.h>

#include <cstdint>

#include "core/entry.h"
#include "core/rows.h"

namespace sorn::stats {

// The selected channels of a channels word: bits 4-7, where 0 stands for all
// of a count of 1 to 4 and for none of any other count.
inline uint32_t channel_mask(uint32_t w) {
  uint32_t m = (w >> 4) & 15u;
  if (m) return m;
  int32_t c = sorn::channels_of(w);
  return (c >= 1 && c <= 4) ? (1u << c) - 1u : 0u;
}
inline bool selected(uint32_t mask, int32_t c) { return c < 32 && ((mask >> c) & 1u); }

inline uint8_t skip_value(SornFlags flags) { return (flags & SORN_F_STATS_INVMASK) ? 255 : 0; }

// The entries of a statistic, without and with a pixel mask: the result
// pointer, the operands' records, their region and its channel cell, then
// `pre`, a status of the entry's own checks; then the slice form, at once or
// through the frame, with the result riding in the call's data. A statistic
// whose result record carries requests settles them in `ready` once every
// check has passed, and one whose results name rows keeps them (kKeepRows).
struct EntryWay {
  void (*ready)(void *out) = nullptr;
  int32_t keep = sorn::kKeepRow;
};

inline SornStatus image_entry(SornXE *xe, SornFlags flags, uint32_t tag, sorn::SliceProc<1> slice,
                              const SornArray *src, const SornVolume *roi, void *out,
                              SornStatus pre = SORN_OK, EntryWay way = {}) {
  if (out == nullptr) return SORN_EINVAL;
  sorn::Operand op;
  SornStatus st = sorn::prepare_image(src, roi, &op);
  if (st != SORN_OK) return st;
  if (sorn::no_channels(op.roi)) return SORN_ENOSPC;
  if (pre != SORN_OK) return pre;
  if (way.ready) way.ready(out);
  return sorn::run({xe, flags, tag, out, way.keep}, slice, op);
}

inline SornStatus masked_entry(SornXE *xe, SornFlags flags, uint32_t tag, sorn::SliceProc<2> slice,
                               const SornArray *src, const SornArray *mask, const SornVolume *roi,
                               const SornVolume *maskSite, void *out, SornStatus pre = SORN_OK,
                               EntryWay way = {}) {
  if (out == nullptr) return SORN_EINVAL;
  // A pixel mask is one channel of bytes.
  if (mask->elemtype != SORN_U8) return SORN_EINVAL;
  sorn::Operand op, mop;
  SornStatus st = sorn::prepare_pair(src, mask, sorn::Channels::One, roi, maskSite, &op, &mop);
  if (st != SORN_OK) return st;
  if (sorn::no_channels(op.roi)) return SORN_ENOSPC;
  if (pre != SORN_OK) return pre;
  if (way.ready) way.ready(out);
  return sorn::run({xe, flags, tag, out, way.keep}, slice, op, mop);
}

}  // namespace sorn::stats

// The type-generic layer of a statistic `op` with results of type Out, and
// its slice forms: sorna_<op> and sorna_<op>_xm move the bases to their
// origins (no mask base gives a null mask) and call the dispatchers
// sorna__<op> and sorna__<op>_xm; SornTGA<op> and SornTGA<op>Ex take the
// results from the call's data.
#define SORN_STATS_LAYER2(op, Out)                                                                 \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,        \
                        uint32_t type, const void *base, const int32_t *origin,                    \
                        const int32_t *strides, Out *out) {                                        \
    return sorna__##op(xe, flags, pack, dims, type, sorn::at_origin(base, pack, origin, strides),  \
                       strides, out);                                                              \
  }                                                                                                \
  SornStatus sorna_##op##_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                             uint32_t type, const void *base, const int32_t *origin,               \
                             const int32_t *strides, uint32_t mtype, const void *mbase,            \
                             const int32_t *morigin, const int32_t *mstrides, Out *out) {          \
    (void)mtype;                                                                                   \
    const void *mask = mbase ? sorn::at_origin(mbase, pack, morigin, mstrides) : nullptr;          \
    return sorna__##op##_xm(xe, flags, pack, dims, type,                                           \
                            sorn::at_origin(base, pack, origin, strides), strides, mask, mstrides, \
                            out);                                                                  \
  }                                                                                                \
  SornStatus SornTGA##op(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims, \
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0) {       \
    return sorna_##op(xe, flags, pack, dims, type0, base0, origin0, strides0,                      \
                      static_cast<Out *>(data));                                                   \
  }                                                                                                \
  SornStatus SornTGA##op##Ex(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,            \
                             int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,         \
                             int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,     \
                             int32_t *strides1) {                                                  \
    return sorna_##op##_xm(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,   \
                           origin1, strides1, static_cast<Out *>(data));                           \
  }

// The entries of a statistic with one double per channel, Sorn<Name> and
// Sorn<Name>Ex: the latter without a mask is the former.
#define SORN_STATS_ENTRIES(Name, op, tag, tagx)                                                   \
  SornStatus Sorn##Name(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *roi, \
                        double *out) {                                                            \
    return sorn::stats::image_entry(xe, flags, tag, &SornTGA##op, src, roi, out);                 \
  }                                                                                               \
  SornStatus Sorn##Name##Ex(SornXE *xe, SornFlags flags, const SornArray *src,                    \
                            const SornArray *mask, const SornVolume *roi,                         \
                            const SornVolume *maskSite, double *out) {                            \
    if (mask == nullptr) return Sorn##Name(xe, flags, src, roi, out);                             \
    return sorn::stats::masked_entry(xe, flags, tagx, &SornTGA##op##Ex, src, mask, roi, maskSite, \
                                     out);                                                        \
  }

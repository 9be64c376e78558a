// Public entries of the two-source arithmetic families: the selector table,
// the checks of three operands (or two with a constant), and the call of
// layer 2. These families have no path through the call frame: a rank-4
// destination is declined once everything else has been checked.
#include <sorn.h>

#include "core/entry.h"

using sorn::Channels;
using sorn::Operand;

namespace {

// Layer 2 of a family with two array sources, and of one with a constant.
using Arith2Layer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                   void *, const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, int32_t, uint32_t);
using Arith2cLayer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                    void *, const int32_t *, const int32_t *, uint32_t,
                                    const void *, const int32_t *, const int32_t *, const double *,
                                    int32_t, uint32_t);

// Every selector the two entries know. A selector without a layer in this
// build (the multiplications and divisions, the sigmoid) passes all the
// checks and is then declined as not supported.
struct Arith2Slot {
  uint32_t tag;
  Arith2Layer arrays;
  Arith2cLayer constant;
};

constexpr Arith2Slot kArith2Slots[] = {
    {SORN_FOURCC('a', 'a', 'd', 'd'), &sorna_add, &sorna_addC},
    {SORN_FOURCC('a', 'd', 'd', 'q'), &sorna_addq, &sorna_addqC},
    {SORN_FOURCC('a', 'd', 'i', 'v'), nullptr, nullptr},
    {SORN_FOURCC('a', 'd', 's', 'q'), &sorna_addsq, &sorna_addsqC},
    {SORN_FOURCC('a', 'm', 'u', 'l'), nullptr, nullptr},
    {SORN_FOURCC('a', 's', 'u', 'b'), &sorna_sub, &sorna_subC},
    {SORN_FOURCC('d', 'i', 'v', 'r'), nullptr, nullptr},
    {SORN_FOURCC('r', 'd', 'i', 'v'), nullptr, nullptr},
    {SORN_FOURCC('r', 'd', 'v', 'r'), nullptr, nullptr},
    {SORN_FOURCC('r', 's', 'b', 'q'), &sorna_rsubq, &sorna_rsubqC},
    {SORN_FOURCC('r', 's', 's', 'q'), &sorna_rsubsq, &sorna_rsubsqC},
    {SORN_FOURCC('r', 's', 'u', 'b'), &sorna_rsub, &sorna_rsubC},
    {SORN_FOURCC('s', 'b', 's', 'q'), &sorna_subsq, &sorna_subsqC},
    {SORN_FOURCC('s', 'u', 'b', 'q'), &sorna_subq, &sorna_subqC},
};
// The sigmoid shares the constant entry only.
constexpr Arith2Slot kSigmoidSlot = {SORN_FOURCC('s', 'i', 'g', 'm'), nullptr, nullptr};

const Arith2Slot *find_slot(uint32_t tag, bool constant) {
  for (const Arith2Slot &s : kArith2Slots)
    if (s.tag == tag) return &s;
  if (constant && tag == kSigmoidSlot.tag) return &kSigmoidSlot;
  return nullptr;
}

}  // namespace

SornStatus _T_SornArith2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstRoi,
                         const SornVolume *aSite, const SornVolume *bSite, int32_t sf,
                         uint32_t extra) {
  if (a == nullptr) {
    a = dst;
    if (aSite == nullptr) aSite = dstRoi;
  }
  const Arith2Slot *slot = find_slot(tag, false);
  if (slot == nullptr) return SORN_EINVAL;
  if (!sorn::good_image(dst)) return SORN_EINVAL;
  if (!sorn::fits_image(a, dst, Channels::Same) || !sorn::fits_image(b, dst, Channels::Same))
    return SORN_EINVAL;

  // The destination and the second source negotiate; the first source only
  // offers a start and is fitted to their rows and columns.
  SornVolume roiD, roiA, roiB;
  if (!sorn::negotiate(dst, b, dstRoi, bSite, &roiD, &roiB)) return SORN_ENOSPC;
  if (!sorn::fit_operand(a, aSite, &roiA, &roiB, &roiD)) return SORN_ENOSPC;
  if (sorn::no_channels(roiD)) return SORN_ENOSPC;
  Operand d(dst, roiD), oa(a, roiA), ob(b, roiB);

  // Checked this late on purpose: an empty ROI is reported first.
  if (d.rank == 4) return SORN_ENOTSUP;
  if (slot->arrays == nullptr) return SORN_ENOTSUP;
  return slot->arrays(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                      d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), ob.type,
                      ob.base, ob.origin_at(), ob.strides_at(), sf, extra);
}

SornStatus _T_SornArith2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstRoi,
                          const SornVolume *aSite, int32_t sf, uint32_t extra) {
  if (a == nullptr) {
    a = dst;
    if (aSite == nullptr) aSite = dstRoi;
  }
  const Arith2Slot *slot = find_slot(tag, true);
  if (slot == nullptr) return SORN_EINVAL;
  if (!sorn::good_image(dst) || !sorn::fits_image(a, dst, Channels::Same)) return SORN_EINVAL;
  if (cvec == nullptr) return SORN_EINVAL;

  SornVolume roiD, roiA;
  if (!sorn::negotiate(dst, a, dstRoi, aSite, &roiD, &roiA)) return SORN_ENOSPC;
  if (sorn::no_channels(roiD)) return SORN_ENOSPC;
  Operand d(dst, roiD), oa(a, roiA);

  if (d.rank == 4) return SORN_ENOTSUP;
  if (slot->constant == nullptr) return SORN_ENOTSUP;
  return slot->constant(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                        d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), cvec, sf,
                        extra);
}

// The public entries of the group: one selector each, for two arrays and
// for an array and constants.
#define SORN_ARITH2_ENTRIES(name, a, b, c, d)                                                      \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,   \
                        const SornArray *src2, const SornVolume *dstRoi, const SornVolume *aSite,  \
                        const SornVolume *bSite, int32_t sf, uint32_t extra) {                     \
    return _T_SornArith2(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, src2, dstRoi, aSite, bSite, \
                         sf, extra);                                                               \
  }                                                                                                \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                      \
                           const SornArray *src, const double *cvec, const SornVolume *dstRoi,     \
                           const SornVolume *aSite, int32_t sf, uint32_t extra) {                  \
    return _T_SornArith2c(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, cvec, dstRoi, aSite, sf,   \
                          extra);                                                                  \
  }

SORN_ARITH2_ENTRIES(Add, 'a', 'a', 'd', 'd')
SORN_ARITH2_ENTRIES(Addq, 'a', 'd', 'd', 'q')
SORN_ARITH2_ENTRIES(Addsq, 'a', 'd', 's', 'q')
SORN_ARITH2_ENTRIES(Sub, 'a', 's', 'u', 'b')
SORN_ARITH2_ENTRIES(Subq, 's', 'u', 'b', 'q')
SORN_ARITH2_ENTRIES(Subsq, 's', 'b', 's', 'q')
SORN_ARITH2_ENTRIES(RSub, 'r', 's', 'u', 'b')
SORN_ARITH2_ENTRIES(RSubq, 'r', 's', 'b', 'q')
SORN_ARITH2_ENTRIES(RSubsq, 'r', 's', 's', 'q')

// Public entries of the two-source arithmetic families and their shared
// checks: records, ROI negotiation between three operands, and the move of
// origins from site to data coordinates before layer 2 takes over.
#include <sorn.h>

#include <cstring>

namespace {

// Layer 2 of a family with two array sources, and of one with a constant.
using Arith2Layer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                   void *, const int32_t *, const int32_t *, uint32_t,
                                   const void *, const int32_t *, const int32_t *, uint32_t,
                                   const void *, const int32_t *, const int32_t *, int32_t,
                                   uint32_t);
using Arith2cLayer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                    void *, const int32_t *, const int32_t *, uint32_t,
                                    const void *, const int32_t *, const int32_t *,
                                    const double *, int32_t, uint32_t);

// Every selector the two entries know. A family that is not part of the
// library yet keeps its slot with a null layer: its calls pass all the
// checks and are then declined as not supported.
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

bool good_destination(const SornArray *d) {
  if (d == nullptr) return false;
  if (d->ndims != 3 && d->ndims != 4) return false;
  if (d->dims[0] < 1) return false;
  const int32_t ch = SORN_CHANNELS(d->dims[3]);
  return ch >= 1 && ch <= 4;
}

// A source may have one dimension less than a 4-dimensional destination,
// and a single plane where the destination has several.
bool matches_destination(const SornArray *s, const SornArray *d) {
  if (s == nullptr) return false;
  if (s->ndims != d->ndims && !(s->ndims == 3 && d->ndims == 4)) return false;
  if (s->dims[0] != d->dims[0] && s->dims[0] != 1) return false;
  return SORN_CHANNELS(s->dims[3]) == SORN_CHANNELS(d->dims[3]);
}

// Origins count from the site until here; from now on they count from data.
void to_data_coordinates(SornVolume *roi, const SornArray *a) {
  sorn_vec_update_$loff(4, roi->origin, a->strides, (int32_t)a->offset);
}

}  // namespace

SornStatus _T_SornArith2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstroi,
                         const SornVolume *aroi, const SornVolume *broi, int32_t sf,
                         uint32_t extra) {
  if (a == nullptr) {
    a = dst;
    if (aroi == nullptr) aroi = dstroi;
  }
  const Arith2Slot *slot = find_slot(tag, false);
  if (slot == nullptr) return SORN_EINVAL;
  if (!good_destination(dst)) return SORN_EINVAL;
  if (!matches_destination(a, dst) || !matches_destination(b, dst)) return SORN_EINVAL;

  SornVolume roiD, roiB;
  if (!sorn_arr_negotiateRoi(dst, b, &roiD, &roiB, dstroi, broi, 3)) return SORN_ENOSPC;

  // The first source only offers a start: its extent follows the second
  // source's rows and columns, cut to what the first source has.
  SornVolume roiA;
  if (aroi != nullptr)
    std::memcpy(roiA.origin, aroi->origin, sizeof roiA.origin);
  else
    std::memset(roiA.origin, 0, sizeof roiA.origin);
  roiA.size[0] = a->dims[0];
  roiA.size[1] = roiB.size[1];
  roiA.size[2] = roiB.size[2];
  roiA.size[3] = SORN_CHANNELS(a->dims[3]);
  sorn_arr_adjustRoi_$I(a, &roiA);
  if (roiA.size[0] < 1 || roiA.size[1] < 1 || roiA.size[2] < 1) return SORN_ENOSPC;
  roiD.size[1] = roiB.size[1] = roiA.size[1];
  roiD.size[2] = roiB.size[2] = roiA.size[2];
  // The channel cell is the count of elements per pixel that the layers
  // below fold into the row; a ROI that cuts it to nothing leaves no work.
  if (roiD.size[3] < 1) return SORN_ENOSPC;

  to_data_coordinates(&roiD, dst);
  to_data_coordinates(&roiA, a);
  to_data_coordinates(&roiB, b);

  // Checked this late on purpose: an empty ROI is reported first.
  if (dst->ndims == 4) return SORN_ENOTSUP;
  if (slot->arrays == nullptr) return SORN_ENOTSUP;

  const int32_t nd = dst->ndims;
  const int32_t c = 4 - nd;
  return slot->arrays(xe, flags, SORN_DIMPACK(nd), &roiD.size[c], dst->elemtype, dst->data,
                      &roiD.origin[c], &dst->strides[c], a->elemtype, a->data, &roiA.origin[c],
                      &a->strides[c], b->elemtype, b->data, &roiB.origin[c], &b->strides[c], sf,
                      extra);
}

SornStatus _T_SornArith2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstroi,
                          const SornVolume *aroi, int32_t sf, uint32_t extra) {
  if (a == nullptr) {
    a = dst;
    if (aroi == nullptr) aroi = dstroi;
  }
  const Arith2Slot *slot = find_slot(tag, true);
  if (slot == nullptr) return SORN_EINVAL;
  if (!good_destination(dst)) return SORN_EINVAL;
  if (!matches_destination(a, dst)) return SORN_EINVAL;
  if (cvec == nullptr) return SORN_EINVAL;

  SornVolume roiD, roiA;
  if (!sorn_arr_negotiateRoi(dst, a, &roiD, &roiA, dstroi, aroi, 3)) return SORN_ENOSPC;
  // A channel cell cut to nothing leaves no element to work on.
  if (roiD.size[3] < 1) return SORN_ENOSPC;
  to_data_coordinates(&roiD, dst);
  to_data_coordinates(&roiA, a);

  if (dst->ndims == 4) return SORN_ENOTSUP;
  if (slot->constant == nullptr) return SORN_ENOTSUP;

  const int32_t nd = dst->ndims;
  const int32_t c = 4 - nd;
  return slot->constant(xe, flags, SORN_DIMPACK(nd), &roiD.size[c], dst->elemtype, dst->data,
                        &roiD.origin[c], &dst->strides[c], a->elemtype, a->data,
                        &roiA.origin[c], &a->strides[c], cvec, sf, extra);
}

// The public entries of the group: one selector each, for two arrays and
// for an array and constants.
#define SORN_ARITH2_ENTRIES(name, a, b, c, d)                                                  \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src, \
                        const SornArray *src2, const SornVolume *dstroi,                        \
                        const SornVolume *aroi, const SornVolume *broi, int32_t sf,             \
                        uint32_t extra) {                                                       \
    return _T_SornArith2(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, src2, dstroi, aroi,      \
                         broi, sf, extra);                                                      \
  }                                                                                             \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                   \
                           const SornArray *src, const double *cvec, const SornVolume *dstroi,  \
                           const SornVolume *aroi, int32_t sf, uint32_t extra) {                \
    return _T_SornArith2c(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, cvec, dstroi, aroi, sf, \
                          extra);                                                               \
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

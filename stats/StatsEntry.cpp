// Entry work shared by histogram, sum and mean: operand checks, the region
// that the operands agree on, and the way to the type-generic layer, either
// directly or through the call frame for 4-dimensional operands.
#include "stats_common.h"

namespace sorn_stats {

namespace {

void take(const SornArray *a, Operand *op) {
  for (int i = 0; i < 4; ++i) op->strides[i] = a->strides[i];
  op->type = a->elemtype;
  op->data = a->data;
}

// The origin so far counts from the site; the kernels want it from data.
void origin_from_data(const SornArray *a, Operand *op) {
  sorn_vec_update_$loff(4, op->roi.origin, a->strides, (int32_t)a->offset);
}

// At rank 4 the origin goes into the base before the frame sees the
// operand. Merging folds an origin cell into the next inner one weighted by
// the outer stride, which is exact only for an inner stride of 1; with the
// base advanced and no origin vector there is nothing to fold, and a region
// that starts inside the array is worked where it lies.
void *based(Operand *op) {
  return sorn_advance_ptr(op->data, sorn_vec_mkloff(4, op->roi.origin, op->strides));
}

// A channel cell cut to nothing (or to less than nothing, when the region's
// channels begin past the pixel's) leaves no element to work.
bool no_channels(const Operand *op) { return op->roi.size[3] < 1; }

}  // namespace

SornStatus prepare_image(const SornArray *src, const SornVolume *roi, Operand *op) {
  if (bad_image(src)) return SORN_EINVAL;
  sorn_arr_adjorgetRoi(src, &op->roi, roi);
  if (sorn_volume__empty(3, op->roi.size) || no_channels(op)) return SORN_ENOSPC;
  take(src, op);
  origin_from_data(src, op);
  return SORN_OK;
}

SornStatus prepare_masked(const SornArray *src, const SornArray *mask, const SornVolume *roi,
                          const SornVolume *maskSite, Operand *op, Operand *mop) {
  if (bad_image(src)) return SORN_EINVAL;
  if (bad_mask(src, mask)) return SORN_EINVAL;
  if (!sorn_arr_negotiateRoi(src, mask, &op->roi, &mop->roi, roi, maskSite, 3))
    return SORN_ENOSPC;
  if (no_channels(op)) return SORN_ENOSPC;
  take(src, op);
  take(mask, mop);
  origin_from_data(src, op);
  origin_from_data(mask, mop);
  return SORN_OK;
}

SornStatus run_image(SornXE *xe, SornFlags flags, int32_t ndims, Operand *op, uint32_t tag,
                     SornSliceProc proc, Layer2 layer2, void *out) {
  int32_t first = 4 - ndims;
  SornDimPack dp = SORN_DIMPACK(ndims);
  if (ndims == 3)
    return layer2(xe, flags, dp, op->roi.size + first, op->type, op->data,
                  op->roi.origin + first, op->strides + first, out);
  SornPack pack;
  return sorna_call(sorna_genpackL(&pack, tag, proc, xe, flags, out, dp, 2, op->roi.size,
                                   op->type, based(op), nullptr, op->strides));
}

SornStatus run_masked(SornXE *xe, SornFlags flags, int32_t ndims, Operand *op, Operand *mop,
                      uint32_t tag, SornSliceProc proc, Layer2Xm layer2, void *out) {
  int32_t first = 4 - ndims;
  SornDimPack dp = SORN_DIMPACK(ndims);
  if (ndims == 3)
    return layer2(xe, flags, dp, op->roi.size + first, op->type, op->data,
                  op->roi.origin + first, op->strides + first, mop->type, mop->data,
                  mop->roi.origin + first, mop->strides + first, out);
  SornPack pack;
  return sorna_call(sorna_mappackL(&pack, tag, proc, xe, flags, out, dp, 2, op->roi.size,
                                   op->type, based(op), nullptr, op->strides, mop->type,
                                   based(mop), nullptr, mop->strides));
}

}  // namespace sorn_stats

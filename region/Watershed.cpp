// Watershed flooding: the entries and the dispatchers of both forms. The
// type-generic layer is in tgwatershed.cpp, the plain flooding in
// __watershed_c1_u8.cpp and the f form in __fwatershed_c1_u8.cpp.
#include <sorn.h>

#include <cstdint>
#include <cstring>

#include "region/flooding.h"

using namespace sorn::region;

namespace {

/* ---------------- entries ---------------- */

bool bad_image(const SornArray *a) {
  if (a == nullptr) return true;
  if (a->ndims != 3 && a->ndims != 4) return true;
  if (a->dims[0] < 1) return true;
  int32_t c = SORN_CHANNELS(a->dims[3]);
  return c < 1 || c > 4;
}

bool bad_mask(const SornArray *image, const SornArray *mask) {
  if (mask->ndims != image->ndims && !(mask->ndims == 3 && image->ndims == 4)) return true;
  if (mask->dims[0] != image->dims[0] && mask->dims[0] != 1) return true;
  return SORN_CHANNELS(mask->dims[3]) != 1;
}

struct Operand {
  SornVolume roi;
  int32_t strides[4];
  uint32_t type;
  void *data;
};

// The origin so far counts from the site; the lower layers count from data.
void take(const SornArray *a, Operand *op) {
  for (int i = 0; i < 4; ++i) op->strides[i] = a->strides[i];
  op->type = a->elemtype;
  op->data = a->data;
  sorn_vec_update_$loff(4, op->roi.origin, a->strides, (int32_t)a->offset);
}

// At rank 4 the origin goes into the base before the frame sees the
// operand: merging folds an origin cell into the next inner one weighted by
// the outer stride, which reads outside the operand for a region that does
// not start at the first plane. With no origin vector there is nothing to
// fold.
void *based(const Operand &op) {
  return sorn_advance_ptr(op.data, sorn_vec_mkloff(4, op.roi.origin, op.strides));
}

// The frame keeps three cells, so that planes it can merge are stacked as
// rows of one image and a flooding always sees rows and columns.
constexpr int32_t kKeep = 3;

/* ---------------- dispatch ---------------- */

// Only one channel of bytes is flooded: wider elements and more channels
// are known and refused, anything else is not understood.
SornStatus classify(SornDimPack code, const int32_t *dims, const int32_t *strides) {
  int32_t n = (int32_t)(code & 15);
  if (n < 1 || dims == nullptr || strides == nullptr) return SORN_EINVAL;
  int32_t esize = strides[n - 1];
  if (esize == 2 || esize == 4 || esize == 8) return SORN_ENOTSUP;
  if (esize != 1) return SORN_EINVAL;
  int32_t ch = SORN_CHANNELS(dims[n - 1]);
  if (ch == 1) return SORN_OK;
  if (ch >= 2 && ch <= 4) return SORN_ENOTSUP;
  return SORN_EINVAL;
}

}  // namespace

extern "C" {

SornStatus SornWatershed(SornXE *xe, SornFlags flags, const SornArray *image, const SornVolume *roi,
                         SornWTSState *state) {
  if (state == nullptr || bad_image(image)) return SORN_EINVAL;
  Operand op;
  sorn_arr_adjorgetRoi(image, &op.roi, roi);
  if (sorn_volume__empty(3, op.roi.size)) return SORN_ENOSPC;
  take(image, &op);
  const int32_t nd = image->ndims, first = 4 - nd;
  const SornDimPack dp = SORN_DIMPACK(nd);
  if (nd == 4) {
    SornPack pack;
    return sorna_call(sorna_genpackL(
        &pack, SORN_TAG_WTSH, (SornSliceProc)(void (*)(void))SornTGAwatershed, xe, flags, state, dp,
        kKeep, op.roi.size, op.type, based(op), nullptr, op.strides));
  }
  return sorna_watershed(xe, flags, state, dp, op.roi.size + first, op.type, op.data,
                         op.roi.origin + first, op.strides + first);
}

SornStatus SornWatershedEx(SornXE *xe, SornFlags flags, const SornArray *image,
                           const SornArray *mask, const SornVolume *roi, const SornVolume *maskroi,
                           SornWTSState *state) {
  if (mask == nullptr) return SornWatershed(xe, flags, image, roi, state);
  if (state == nullptr || bad_image(image) || bad_mask(image, mask)) return SORN_EINVAL;
  Operand op, mop;
  if (!sorn_arr_negotiateRoi(image, mask, &op.roi, &mop.roi, roi, maskroi, 3)) return SORN_ENOSPC;
  take(image, &op);
  take(mask, &mop);
  const int32_t nd = image->ndims, first = 4 - nd;
  const SornDimPack dp = SORN_DIMPACK(nd);
  if (nd == 4) {
    SornPack pack;
    return sorna_call(sorna_mappackL(&pack, SORN_TAG_WTSX,
                                     (SornSliceProc)(void (*)(void))SornTGAwatershedEx, xe, flags,
                                     state, dp, kKeep, op.roi.size, op.type, based(op), nullptr,
                                     op.strides, mop.type, based(mop), nullptr, mop.strides));
  }
  if (mop.type == SORN_U8)
    return sorna_watershed_xm(xe, flags, state, dp, op.roi.size + first, op.type, op.data,
                              op.roi.origin + first, op.strides + first, mop.type, mop.data,
                              mop.roi.origin + first, mop.strides + first);
  return SornTGAwatershedEx(xe, flags, state, dp, op.roi.size + first, op.type, op.data,
                            op.roi.origin + first, op.strides + first, mop.type, mop.data,
                            mop.roi.origin + first, mop.strides + first);
}

/* ---------------- dispatchers ---------------- */

SornStatus sorna__watershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                            const int32_t *dims, uint32_t, const void *src,
                            const int32_t *strides) {
  SornStatus s = classify(code, dims, strides);
  if (s != SORN_OK) return s;
  return __sorna__watershed_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides);
}

SornStatus sorna__watershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                               const int32_t *dims, uint32_t, const void *src,
                               const int32_t *strides, const void *mask,
                               const int32_t *maskstrides) {
  SornStatus s = classify(code, dims, strides);
  if (s != SORN_OK) return s;
  if (mask == nullptr)
    return __sorna__watershed_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides);
  return __sorna__watershed_xm_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides,
                                     (const uint8_t *)mask, maskstrides);
}

SornStatus sorna__fwatershed(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                             const int32_t *dims, uint32_t, const void *src,
                             const int32_t *strides) {
  SornStatus s = classify(code, dims, strides);
  if (s != SORN_OK) return s;
  return __sorna__fwatershed_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides);
}

SornStatus sorna__fwatershed_xm(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                                const int32_t *dims, uint32_t, const void *src,
                                const int32_t *strides, const void *mask,
                                const int32_t *maskstrides) {
  SornStatus s = classify(code, dims, strides);
  if (s != SORN_OK) return s;
  if (mask == nullptr)
    return __sorna__fwatershed_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides);
  return __sorna__fwatershed_xm_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides,
                                      (const uint8_t *)mask, maskstrides);
}

}  // extern "C"

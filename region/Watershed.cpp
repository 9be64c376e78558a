// Watershed flooding: the entries and the dispatchers of both forms. The
// type-generic layer is in tgwatershed.cpp, the plain flooding in
// __watershed_c1_u8.cpp and the f form in __fwatershed_c1_u8.cpp.
#include <sorn.h>

#include <cstdint>

#include "core/entry.h"

namespace {

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
  if (state == nullptr) return SORN_EINVAL;
  sorn::Operand op;
  const SornStatus st = sorn::prepare_image(image, roi, &op);
  if (st != SORN_OK) return st;
  // The slice form also lets the flags choose the f flooding; below rank 4
  // the plain flooding is called at once.
  if (op.rank == 4)
    return sorn::through_frame({xe, flags, SORN_TAG_WTSH, state, sorn::kKeepRows},
                               &SornTGAwatershed, op);
  return sorna_watershed(xe, flags, state, op.pack(), op.dims_at(), op.type, op.base,
                         op.origin_at(), op.strides_at());
}

SornStatus SornWatershedEx(SornXE *xe, SornFlags flags, const SornArray *image,
                           const SornArray *mask, const SornVolume *roi, const SornVolume *maskSite,
                           SornWTSState *state) {
  if (mask == nullptr) return SornWatershed(xe, flags, image, roi, state);
  if (state == nullptr) return SORN_EINVAL;
  sorn::Operand op, mop;
  const SornStatus st =
      sorn::prepare_pair(image, mask, sorn::Channels::One, roi, maskSite, &op, &mop);
  if (st != SORN_OK) return st;
  if (op.rank == 4)
    return sorn::through_frame({xe, flags, SORN_TAG_WTSX, state, sorn::kKeepRows},
                               &SornTGAwatershedEx, op, mop);
  // A mask of other elements than bytes is refused, as the slice form does.
  if (mop.type != SORN_U8) return SORN_EINVAL;
  return sorna_watershed_xm(xe, flags, state, op.pack(), op.dims_at(), op.type, op.base,
                            op.origin_at(), op.strides_at(), mop.type, mop.base, mop.origin_at(),
                            mop.strides_at());
}

/* ---------------- dispatchers ---------------- */

// The dispatchers of one form: the operand classified, then its setup with
// or without the mask (no mask is the plain setup).
#define SORN_WTS_DISPATCHERS(form)                                                                 \
  SornStatus sorna__##form(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,     \
                           const int32_t *dims, uint32_t, const void *src,                         \
                           const int32_t *strides) {                                               \
    SornStatus s = classify(code, dims, strides);                                                  \
    if (s != SORN_OK) return s;                                                                    \
    return __sorna__##form##_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides);   \
  }                                                                                                \
  SornStatus sorna__##form##_xm(SornXE *xe, SornFlags flags, SornWTSState *state,                  \
                                SornDimPack code, const int32_t *dims, uint32_t type,              \
                                const void *src, const int32_t *strides, const void *mask,         \
                                const int32_t *maskstrides) {                                      \
    if (mask == nullptr) return sorna__##form(xe, flags, state, code, dims, type, src, strides);   \
    SornStatus s = classify(code, dims, strides);                                                  \
    if (s != SORN_OK) return s;                                                                    \
    return __sorna__##form##_xm_c1_u8(xe, flags, state, code, dims, (const uint8_t *)src, strides, \
                                      (const uint8_t *)mask, maskstrides);                         \
  }

SORN_WTS_DISPATCHERS(watershed)
SORN_WTS_DISPATCHERS(fwatershed)

}  // extern "C"

// The type-generic layer of the watershed floodings, both forms, and their
// slice forms: each base moved to the origin of its cells.
#include <sorn.h>

#include <cstdint>

#include "core/entry.h"

using sorn::at_origin;

extern "C" {

SornStatus SornTGAwatershed(SornXE *xe, SornFlags flags, void *state, SornDimPack code,
                            int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                            int32_t *strides) {
  SornWTSState *st = static_cast<SornWTSState *>(state);
  if (flags & SORN_F_WTS_FFORM)
    return sorna_fwatershed(xe, flags, st, code, dims, type, base, loffs, strides);
  return sorna_watershed(xe, flags, st, code, dims, type, base, loffs, strides);
}

SornStatus SornTGAwatershedEx(SornXE *xe, SornFlags flags, void *state, SornDimPack code,
                              int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                              int32_t *strides, uint32_t masktype, void *maskbase,
                              int32_t *maskloffs, int32_t *maskstrides) {
  if (masktype != SORN_U8) return SORN_EINVAL;
  SornWTSState *st = static_cast<SornWTSState *>(state);
  if (flags & SORN_F_WTS_FFORM)
    return sorna_fwatershed_xm(xe, flags, st, code, dims, type, base, loffs, strides, masktype,
                               maskbase, maskloffs, maskstrides);
  return sorna_watershed_xm(xe, flags, st, code, dims, type, base, loffs, strides, masktype,
                            maskbase, maskloffs, maskstrides);
}
/* ---------------- type-generic layer ---------------- */

// The layer of one form: each base moved to the origin of its cells; no
// mask base is the form without a mask.
#define SORN_WTS_LAYER2(form)                                                                  \
  SornStatus sorna_##form(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,  \
                          const int32_t *dims, uint32_t type, const void *base,                \
                          const int32_t *loffs, const int32_t *strides) {                      \
    const void *src = at_origin(base, code, loffs, strides);                                   \
    return sorna__##form(xe, flags, state, code, dims, type, src, strides);                    \
  }                                                                                            \
  SornStatus sorna_##form##_xm(                                                                \
      SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code, const int32_t *dims, \
      uint32_t type, const void *base, const int32_t *loffs, const int32_t *strides, uint32_t, \
      const void *maskbase, const int32_t *maskloffs, const int32_t *maskstrides) {            \
    if (maskbase == nullptr)                                                                   \
      return sorna_##form(xe, flags, state, code, dims, type, base, loffs, strides);           \
    const void *src = at_origin(base, code, loffs, strides);                                   \
    const void *mask = at_origin(maskbase, code, maskloffs, maskstrides);                      \
    return sorna__##form##_xm(xe, flags, state, code, dims, type, src, strides, mask,          \
                              maskstrides);                                                    \
  }

SORN_WTS_LAYER2(watershed)
SORN_WTS_LAYER2(fwatershed)

}  // extern "C"

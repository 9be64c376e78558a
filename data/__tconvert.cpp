// The kernels of the t and v conversions between the types that have
// kernels, expanded from SORN_TCVT_PAIRS, and the v scalings of one type.
#include <sorn.h>

#include "data/convert_kernel.h"

#define SORN_TCVT_KERNEL(d, s)                                                                  \
  SornStatus __sorna__tconvert_##d##s(                                                          \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,        \
      void *dst, const int32_t *dststrides, const void *src, const int32_t *srcstrides) {       \
    (void)xe;                                                                                   \
    (void)flags;                                                                                \
    (void)type;                                                                                 \
    return sorn::data::tconvert_kernel<sorn::tok::d, sorn::tok::s>(pack, dims, dst, dststrides, \
                                                                   src, srcstrides);            \
  }
SORN_TCVT_PAIRS(SORN_TCVT_KERNEL)

#define SORN_VCVT_KERNEL(d, s)                                                              \
  SornStatus __sorna__vconvert_##d##s(                                                      \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,    \
      void *dst, const int32_t *dststrides, const void *src, const int32_t *srcstrides,     \
      const SornVrng *dstRange, const SornVrng *srcRange) {                                 \
    return sorn::data::vconvert_kernel<sorn::tok::d, sorn::tok::s>(                         \
        xe, flags, pack, dims, type, dst, dststrides, src, srcstrides, dstRange, srcRange); \
  }
SORN_TCVT_PAIRS(SORN_VCVT_KERNEL)

#define SORN_VSCALE_KERNEL(t)                                                               \
  SornStatus __sorna__vscale_##t(                                                           \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,    \
      void *dst, const int32_t *dststrides, const void *src, const int32_t *srcstrides,     \
      const SornVrng *dstRange, const SornVrng *srcRange) {                                 \
    return sorn::data::vconvert_kernel<sorn::tok::t, sorn::tok::t>(                         \
        xe, flags, pack, dims, type, dst, dststrides, src, srcstrides, dstRange, srcRange); \
  }
SORN_VSCALE_TYPES(SORN_VSCALE_KERNEL)

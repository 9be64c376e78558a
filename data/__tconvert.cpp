// The kernels of the t conversion between the types that have kernels,
// expanded from SORN_TCVT_PAIRS.
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

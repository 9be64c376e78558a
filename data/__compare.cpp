// The plain comparison kernels, __sorna__compare_DS and
// __sorna__compareC_DS: thin wrappers over compare_kernel.h, one pair of
// each line of SORN_CMP_PAIRS.
#include <sorn.h>

#include "data/compare_kernel.h"

#define SORN_CMP_KERNELS(d, s)                                                                     \
  SornStatus __sorna__compare_##d##s(SornXE *, SornFlags, int32_t n, const int32_t *dims,          \
                                     void *dst, const int32_t *dststrides, const void *src1,       \
                                     const int32_t *strides1, const void *src2,                    \
                                     const int32_t *strides2, SornCmpOp op) {                      \
    return sorn::compare::compare_arrays<sorn::tok::d, sorn::tok::s>(                              \
        n, dims, dst, dststrides, src1, strides1, src2, strides2, op);                             \
  }                                                                                                \
  SornStatus __sorna__compareC_##d##s(                                                             \
      SornXE *xe, SornFlags, int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides, \
      const void *src, const int32_t *srcstrides, const void *cvector, SornCmpOp op) {             \
    return sorn::compare::compare_constant<sorn::tok::d, sorn::tok::s>(                            \
        xe, n, dims, dst, dststrides, src, srcstrides, cvector, op);                               \
  }
SORN_CMP_PAIRS(SORN_CMP_KERNELS)

// The comparison kernels that write values, __sorna__ecompare_DS: thin
// wrappers over compare_kernel.h, one for each line of SORN_ECMP_PAIRS.
#include <sorn.h>

#include "data/compare_kernel.h"

#define SORN_ECMP_KERNEL(d, s)                                                                   \
  SornStatus __sorna__ecompare_##d##s(                                                           \
      SornXE *, SornFlags, int32_t n, const int32_t *dims, void *dst, const int32_t *dststrides, \
      const void *src1, const int32_t *strides1, const void *src2, const int32_t *strides2,      \
      SornCmpOp op, const void *tval, const void *fval) {                                        \
    return sorn::compare::ecompare_arrays<sorn::tok::d, sorn::tok::s>(                           \
        n, dims, dst, dststrides, src1, strides1, src2, strides2, op, tval, fval);               \
  }
SORN_ECMP_PAIRS(SORN_ECMP_KERNEL)

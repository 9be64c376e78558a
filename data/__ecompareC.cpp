// The comparison kernels with a constant that write values,
// __sorna__ecompareC_DS: thin wrappers over compare_kernel.h, one for each
// line of SORN_ECMP_PAIRS.
#include <sorn.h>

#include "data/compare_kernel.h"

#define SORN_ECMPC_KERNEL(d, s)                                                               \
  SornStatus __sorna__ecompareC_##d##s(SornXE *xe, SornFlags, int32_t n, const int32_t *dims, \
                                       void *dst, const int32_t *dststrides, const void *src, \
                                       const int32_t *srcstrides, const void *cvector,        \
                                       SornCmpOp op, const void *tval, const void *fval) {    \
    return sorn::compare::ecompare_constant<sorn::tok::d, sorn::tok::s>(                      \
        xe, n, dims, dst, dststrides, src, srcstrides, cvector, op, tval, fval);              \
  }
SORN_ECMP_PAIRS(SORN_ECMPC_KERNEL)

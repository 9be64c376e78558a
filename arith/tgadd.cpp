// Layer 2 of the two-source groups, add and subtract, multiply and divide,
// with their constant forms: origins become base pointers, and the signed
// saturating forms take the destination's type with bit 3 set (a u8
// destination is written as s8) on their way to the q dispatchers.
#include <sorn.h>

#include "arith/layer2.h"

#define SORN_LAYER2(op, dispatch, bits)                                                         \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,     \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,              \
                        const int32_t *dststrides, uint32_t atype, const void *abase,           \
                        const int32_t *aorigin, const int32_t *astrides, uint32_t btype,        \
                        const void *bbase, const int32_t *borigin, const int32_t *bstrides,     \
                        int32_t sf, uint32_t extra) {                                           \
    return sorn::arith::layer2_arrays<&sorna__##dispatch, bits>(                                \
        xe, flags, pack, dims, dsttype, dstbase, dstorigin, dststrides, atype, abase, aorigin,  \
        astrides, btype, bbase, borigin, bstrides, sf, extra);                                  \
  }                                                                                             \
  SornStatus sorna_##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,  \
                           uint32_t dsttype, void *dstbase, const int32_t *dstorigin,           \
                           const int32_t *dststrides, uint32_t atype, const void *abase,        \
                           const int32_t *aorigin, const int32_t *astrides, const double *cvec, \
                           int32_t sf, uint32_t extra) {                                        \
    return sorn::arith::layer2_constant<&sorna__##dispatch##C, bits>(                           \
        xe, flags, pack, dims, dsttype, dstbase, dstorigin, dststrides, atype, abase, aorigin,  \
        astrides, cvec, sf, extra);                                                             \
  }

SORN_LAYER2(add, add, 0u)
SORN_LAYER2(addq, addq, 0u)
SORN_LAYER2(addsq, addq, 8u)
SORN_LAYER2(sub, sub, 0u)
SORN_LAYER2(subq, subq, 0u)
SORN_LAYER2(subsq, subq, 8u)
SORN_LAYER2(rsub, rsub, 0u)
SORN_LAYER2(rsubq, rsubq, 0u)
SORN_LAYER2(rsubsq, rsubq, 8u)
SORN_LAYER2(mul, mul, 0u)
SORN_LAYER2(div, div, 0u)
SORN_LAYER2(divr, divr, 0u)
SORN_LAYER2(rdiv, rdiv, 0u)
SORN_LAYER2(rdivr, rdivr, 0u)

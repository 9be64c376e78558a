// Layer 2 of the one-source operations and of the sigmoid: origins become
// base pointers.
#include <sorn.h>

#include "arith/layer2.h"

#define SORN_LAYER2_UNARY(op)                                                                    \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,      \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,               \
                        const int32_t *dststrides, uint32_t atype, const void *abase,            \
                        const int32_t *aorigin, const int32_t *astrides, int32_t sf,             \
                        uint32_t extra) {                                                        \
    return sorn::arith::layer2_unary<&sorna__##op>(xe, flags, pack, dims, dsttype, dstbase,      \
                                                   dstorigin, dststrides, atype, abase, aorigin, \
                                                   astrides, sf, extra);                         \
  }

SORN_LAYER2_UNARY(neg)
SORN_LAYER2_UNARY(negq)
SORN_LAYER2_UNARY(exp)
SORN_LAYER2_UNARY(ln)

SornStatus sorna_sigmoidalpha(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                              uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                              const int32_t *dststrides, uint32_t atype, const void *abase,
                              const int32_t *aorigin, const int32_t *astrides, const double *cvec,
                              int32_t sf, uint32_t extra) {
  return sorn::arith::layer2_constant<&sorna__sigmoidalpha>(xe, flags, pack, dims, dsttype, dstbase,
                                                            dstorigin, dststrides, atype, abase,
                                                            aorigin, astrides, cvec, sf, extra);
}

// Layer 2 of multiply-accumulate: origins become base pointers.
#include <sorn.h>

#include "arith/layer2.h"

#define SORN_LAYER2_MAC(op)                                                                       \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,       \
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,                \
                        const int32_t *dststrides, uint32_t atype, const void *abase,             \
                        const int32_t *aorigin, const int32_t *astrides, uint32_t btype,          \
                        const void *bbase, const int32_t *borigin, const int32_t *bstrides,       \
                        uint32_t ctype, const void *cbase, const int32_t *corigin,                \
                        const int32_t *cstrides, int32_t sf, uint32_t extra) {                    \
    return sorn::arith::layer2_three<&sorna__##op>(                                               \
        xe, flags, pack, dims, dsttype, dstbase, dstorigin, dststrides, atype, abase, aorigin,    \
        astrides, btype, bbase, borigin, bstrides, ctype, cbase, corigin, cstrides, sf, extra);   \
  }                                                                                               \
  SornStatus sorna_##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,    \
                           uint32_t dsttype, void *dstbase, const int32_t *dstorigin,             \
                           const int32_t *dststrides, uint32_t atype, const void *abase,          \
                           const int32_t *aorigin, const int32_t *astrides, uint32_t btype,       \
                           const void *bbase, const int32_t *borigin, const int32_t *bstrides,    \
                           const double *cvec, int32_t sf, uint32_t extra) {                      \
    return sorn::arith::layer2_two_constant<&sorna__##op##C>(                                     \
        xe, flags, pack, dims, dsttype, dstbase, dstorigin, dststrides, atype, abase, aorigin,    \
        astrides, btype, bbase, borigin, bstrides, cvec, sf, extra);                              \
  }                                                                                               \
  SornStatus sorna_##op##CC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                            uint32_t dsttype, void *dstbase, const int32_t *dstorigin,            \
                            const int32_t *dststrides, uint32_t atype, const void *abase,         \
                            const int32_t *aorigin, const int32_t *astrides, const double *c1vec, \
                            const double *c2vec, int32_t sf, uint32_t extra) {                    \
    return sorn::arith::layer2_constants<&sorna__##op##CC>(                                       \
        xe, flags, pack, dims, dsttype, dstbase, dstorigin, dststrides, atype, abase, aorigin,    \
        astrides, c1vec, c2vec, sf, extra);                                                       \
  }

SORN_LAYER2_MAC(mla)
SORN_LAYER2_MAC(mls)
SORN_LAYER2_MAC(mlrs)

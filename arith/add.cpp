// The dispatchers of the add families, addition and saturating addition of
// two arrays and of an array and constants, with their kernel lookups.
#include <sorn.h>

#include <utility>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

/* ---------------- kernel lookups ---------------- */

// The q tables hold the saturating kernels where saturation can matter and
// name the family's plain kernels for the other keys.
namespace {

#define ADD_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__add_c1_, d, a, b)
#define ADDQ_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__addq_c1_, d, a, b)
#define ADDC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__addC_c1_, d, a, t)
#define ADDQC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__addqC_c1_, d, a, t)
constexpr sorn::KernelRow<SornArith2Kernel> kAdd[] = {SORN_ADD_TRIPLES(ADD_ROW)};
constexpr sorn::KernelRow<SornArith2Kernel> kAddq[] = {SORN_ADDQ_OWN_TRIPLES(ADDQ_ROW)
                                                           SORN_ADDQ_PLAIN_TRIPLES(ADD_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kAddC[] = {SORN_ADDC_TRIPLES(ADDC_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kAddqC[] = {SORN_ADDQC_OWN_TRIPLES(ADDQC_ROW)
                                                             SORN_ADDQC_PLAIN_TRIPLES(ADDC_ROW)};

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__aaddfun_imp, SornArith2Kernel, kAdd)
SORN_TRIPLE_LOOKUP(sorna__aaddqfun_imp, SornArith2Kernel, kAddq)
SORN_TRIPLE_LOOKUP(sorna__aaddcfun_imp, SornArith2cKernel, kAddC)
SORN_TRIPLE_LOOKUP(sorna__aaddqcfun_imp, SornArith2cKernel, kAddqC)

/* ---------------- dispatchers ---------------- */

SornStatus sorna__add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,
                      const int32_t *bstrides, int32_t sf, uint32_t extra) {
  return dispatch_commuting(&sorna__aaddfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                            atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

SornStatus sorna__addq(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,
                       const int32_t *bstrides, int32_t sf, uint32_t extra) {
  return dispatch_commuting(&sorna__aaddqfun_imp, xe, flags, pack, dims, dsttype, dstptr,
                            dststrides, atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

SornStatus sorna__addC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                       uint32_t extra) {
  return dispatch_constant(&sorna__aaddcfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                           atype, aptr, astrides, cvec, sf, extra);
}

SornStatus sorna__addqC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                        const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                        uint32_t extra) {
  return dispatch_constant(&sorna__aaddqcfun_imp, xe, flags, pack, dims, dsttype, dstptr,
                           dststrides, atype, aptr, astrides, cvec, sf, extra);
}

// The dispatchers of multiplication, of two arrays and of an array and
// constants, with their kernel lookups. They are those of addition with
// the multiplications' tables: the same order of sources, fold, direct path
// and tile path, the same classification of constants.
#include <sorn.h>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

namespace {

#define MUL_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__mul_c1_, d, a, b)
#define MULC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__mulC_c1_, d, a, t)
constexpr sorn::KernelRow<SornArith2Kernel> kMul[] = {SORN_MUL_TRIPLES(MUL_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kMulC[] = {SORN_MULC_TRIPLES(MULC_ROW)};

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__amulfun_imp, SornArith2Kernel, kMul)
SORN_TRIPLE_LOOKUP(sorna__amulcfun_imp, SornArith2cKernel, kMulC)

SornStatus sorna__mul(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,
                      const int32_t *bstrides, int32_t sf, uint32_t extra) {
  return dispatch_commuting(&sorna__amulfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                            atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

SornStatus sorna__mulC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                       uint32_t extra) {
  return dispatch_constant(&sorna__amulcfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                           atype, aptr, astrides, cvec, sf, extra);
}

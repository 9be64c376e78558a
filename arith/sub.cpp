// The dispatchers of the subtract families. Subtraction does not commute:
// when the sources have to change places for the kernels, the reversed
// family runs on them, so that the result stays a - b.
#include <sorn.h>

#include <utility>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

/* ---------------- kernel lookups ---------------- */

// The plain tables have the triples of addition; the q tables hold the
// saturating kernels where saturation can matter and name the family's
// plain kernels for the other keys.
namespace {

#define SUB_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__sub_c1_, d, a, b)
#define RSUB_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__rsub_c1_, d, a, b)
#define SUBQ_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__subq_c1_, d, a, b)
#define RSUBQ_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__rsubq_c1_, d, a, b)
#define SUBC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__subC_c1_, d, a, t)
#define RSUBC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__rsubC_c1_, d, a, t)
#define SUBQC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__subqC_c1_, d, a, t)
#define RSUBQC_ROW(d, a, t) SORN_TRIPLE_ROW(sorna__rsubqC_c1_, d, a, t)
constexpr sorn::KernelRow<SornArith2Kernel> kSub[] = {SORN_ADD_TRIPLES(SUB_ROW)};
constexpr sorn::KernelRow<SornArith2Kernel> kRSub[] = {SORN_ADD_TRIPLES(RSUB_ROW)};
constexpr sorn::KernelRow<SornArith2Kernel> kSubq[] = {SORN_ADDQ_OWN_TRIPLES(SUBQ_ROW)
                                                           SORN_ADDQ_PLAIN_TRIPLES(SUB_ROW)};
constexpr sorn::KernelRow<SornArith2Kernel> kRSubq[] = {SORN_ADDQ_OWN_TRIPLES(RSUBQ_ROW)
                                                            SORN_ADDQ_PLAIN_TRIPLES(RSUB_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kSubC[] = {SORN_ADDC_TRIPLES(SUBC_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kRSubC[] = {SORN_ADDC_TRIPLES(RSUBC_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kSubqC[] = {SORN_ADDQC_OWN_TRIPLES(SUBQC_ROW)
                                                             SORN_ADDQC_PLAIN_TRIPLES(SUBC_ROW)};
constexpr sorn::KernelRow<SornArith2cKernel> kRSubqC[] = {SORN_ADDQC_OWN_TRIPLES(RSUBQC_ROW)
                                                              SORN_ADDQC_PLAIN_TRIPLES(RSUBC_ROW)};

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__asubfun_imp, SornArith2Kernel, kSub)
SORN_TRIPLE_LOOKUP(sorna__arsubfun_imp, SornArith2Kernel, kRSub)
SORN_TRIPLE_LOOKUP(sorna__asubqfun_imp, SornArith2Kernel, kSubq)
SORN_TRIPLE_LOOKUP(sorna__arsubqfun_imp, SornArith2Kernel, kRSubq)
SORN_TRIPLE_LOOKUP(sorna__asubcfun_imp, SornArith2cKernel, kSubC)
SORN_TRIPLE_LOOKUP(sorna__arsubcfun_imp, SornArith2cKernel, kRSubC)
SORN_TRIPLE_LOOKUP(sorna__asubqcfun_imp, SornArith2cKernel, kSubqC)
SORN_TRIPLE_LOOKUP(sorna__arsubqcfun_imp, SornArith2cKernel, kRSubqC)

/* ---------------- dispatchers ---------------- */

namespace {

// The order is decided once, by the same two exchanges as for addition; an
// odd number of them hands the call to the other family of the pair. Done
// this way a pair that both rules want first (an 8-byte source against an
// f32) cannot pass between the two families for ever.
SornStatus sub_pair(Arith2Lookup forward, Arith2Lookup reversed, SornXE *xe, SornFlags flags,
                    SornDimPack pack, const int32_t *dims, uint32_t dsttype, void *dstptr,
                    const int32_t *dststrides, uint32_t atype, const void *aptr,
                    const int32_t *astrides, uint32_t btype, const void *bptr,
                    const int32_t *bstrides, int32_t sf, uint32_t extra) {
  bool exchanged = false;
  if (wants_exchange_by_size(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
    exchanged = !exchanged;
  }
  if (wants_exchange_by_float(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
    exchanged = !exchanged;
  }
  return dispatch_arrays(exchanged ? reversed : forward, xe, flags, pack, dims, dsttype, dstptr,
                         dststrides, atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

}  // namespace

#define SORN_SUB_DISPATCHER(name, forward, reversed)                                           \
  SornStatus name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,          \
                  uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,   \
                  const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr, \
                  const int32_t *bstrides, int32_t sf, uint32_t extra) {                       \
    return sub_pair(&forward, &reversed, xe, flags, pack, dims, dsttype, dstptr, dststrides,   \
                    atype, aptr, astrides, btype, bptr, bstrides, sf, extra);                  \
  }
SORN_SUB_DISPATCHER(sorna__sub, sorna__asubfun_imp, sorna__arsubfun_imp)
SORN_SUB_DISPATCHER(sorna__rsub, sorna__arsubfun_imp, sorna__asubfun_imp)
SORN_SUB_DISPATCHER(sorna__subq, sorna__asubqfun_imp, sorna__arsubqfun_imp)
SORN_SUB_DISPATCHER(sorna__rsubq, sorna__arsubqfun_imp, sorna__asubqfun_imp)

#define SORN_SUBC_DISPATCHER(name, lookup)                                                       \
  SornStatus name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,            \
                  uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,     \
                  const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,     \
                  uint32_t extra) {                                                              \
    return dispatch_constant(&lookup, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, \
                             aptr, astrides, cvec, sf, extra);                                   \
  }
SORN_SUBC_DISPATCHER(sorna__subC, sorna__asubcfun_imp)
SORN_SUBC_DISPATCHER(sorna__rsubC, sorna__arsubcfun_imp)
SORN_SUBC_DISPATCHER(sorna__subqC, sorna__asubqcfun_imp)
SORN_SUBC_DISPATCHER(sorna__rsubqC, sorna__arsubqcfun_imp)

// The dispatchers of the subtract families. Subtraction does not commute:
// when the sources have to change places for the kernels, the reversed
// family runs on them, so that the result stays a - b.
#include <sorn.h>

#include "arith/binary_dispatch.h"

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

// Subtraction does not commute: sources exchanged for the kernels go to the
// reversed family, so that the result stays a - b.
SORN_ARRAYS_DISPATCHER(sorna__sub, sorna__asubfun_imp, sorna__arsubfun_imp)
SORN_ARRAYS_DISPATCHER(sorna__rsub, sorna__arsubfun_imp, sorna__asubfun_imp)
SORN_ARRAYS_DISPATCHER(sorna__subq, sorna__asubqfun_imp, sorna__arsubqfun_imp)
SORN_ARRAYS_DISPATCHER(sorna__rsubq, sorna__arsubqfun_imp, sorna__asubqfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__subC, sorna__asubcfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__rsubC, sorna__arsubcfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__subqC, sorna__asubqcfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__rsubqC, sorna__arsubqcfun_imp)

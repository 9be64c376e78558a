// The dispatchers of the add families, addition and saturating addition of
// two arrays and of an array and constants, with their kernel lookups.
#include <sorn.h>

#include "arith/binary_dispatch.h"

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

// Addition commutes: exchanged sources stay with the family.
SORN_ARRAYS_DISPATCHER(sorna__add, sorna__aaddfun_imp, sorna__aaddfun_imp)
SORN_ARRAYS_DISPATCHER(sorna__addq, sorna__aaddqfun_imp, sorna__aaddqfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__addC, sorna__aaddcfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__addqC, sorna__aaddqcfun_imp)

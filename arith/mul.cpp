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

// Multiplication commutes: exchanged sources stay with the family.
SORN_ARRAYS_DISPATCHER(sorna__mul, sorna__amulfun_imp, sorna__amulfun_imp)
SORN_CONSTANT_DISPATCHER(sorna__mulC, sorna__amulcfun_imp)

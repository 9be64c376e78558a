// The multiply-accumulate kernels with constants: two arrays and one
// constant per channel, and one array with two (a * c1 + c2, a * c1 - c2).
#include <sorn.h>

#include "arith/mac_kernel.h"

#define SORN_K_MLAC(d, a, b, t) SORN_MACC_KERNEL_DEF(mla, MacAdd, d, a, b, t)
#define SORN_K_MLSC(d, a, b, t) SORN_MACC_KERNEL_DEF(mls, MacSub, d, a, b, t)
#define SORN_K_MLACC(d, t) SORN_MACCC_KERNEL_DEF(mla, MacAdd, d, t)
#define SORN_K_MLSCC(d, t) SORN_MACCC_KERNEL_DEF(mls, MacRev, d, t)
#define SORN_K_MLACC_ALL(t) SORN_MLACC_DSTS(SORN_K_MLACC, t)
#define SORN_K_MLSCC_ALL(t) SORN_MLACC_DSTS(SORN_K_MLSCC, t)
SORN_MLAC_QUADS(SORN_K_MLAC)
SORN_MLAC_QUADS(SORN_K_MLSC)
SORN_MLACC_TYPES(SORN_K_MLACC_ALL)
SORN_MLACC_TYPES(SORN_K_MLSCC_ALL)

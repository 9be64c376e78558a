// The multiply-accumulate kernels of three arrays, sum and difference.
#include <sorn.h>

#include "arith/mac_kernel.h"

#define SORN_K_MLA(d, a, b, c) SORN_MAC_KERNEL_DEF(mla, MacAdd, d, a, b, c)
#define SORN_K_MLS(d, a, b, c) SORN_MAC_KERNEL_DEF(mls, MacSub, d, a, b, c)
SORN_MLA_QUADS(SORN_K_MLA)
SORN_MLA_QUADS(SORN_K_MLS)

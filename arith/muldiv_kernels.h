// Emits the exported kernels of the multiplicative group and of the
// one-source operations from the type tables: sorna__mul_c1_<dst><a><b>,
// sorna__mulC_c1_<dst><a><T>, sorna__sqr_c1_<dst><a>, sorna__neg_c1_<dst><a>
// and sorna__negq_c1_<dst><a>, split by destination size like the add
// kernels (SORN_KEEP_1, SORN_KEEP_2, SORN_KEEP_4).
#pragma once

#include "arith/addsub_kernels.h"
#include "arith/unary_kernel.h"

#define SORN_ARITH1_KERNEL_DEF(fam, policy, d, a)                                                  \
  SornStatus sorna__##fam##_c1_##d##a(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, \
                                      void *dst, const int32_t *dststrides, const void *pa,        \
                                      const int32_t *astrides, int32_t sf, uint32_t extra) {       \
    (void)xe;                                                                                      \
    (void)flags;                                                                                   \
    (void)extra;                                                                                   \
    return sorn::arith::unary_kernel<sorn::arith::policy, sorn::tok::d, sorn::tok::a>(             \
        n, dims, dst, dststrides, pa, astrides, sf);                                               \
  }

#define SORN_K_MUL(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(mul, MulqOp, d, a, b))
#define SORN_K_MULC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(mul, MulqOp, d, a, t))
#define SORN_K_SQR(d, a) SORN_ARITH_BY_SIZE(d, SORN_ARITH1_KERNEL_DEF(sqr, MulOp, d, a))
#define SORN_K_NEG(d, a) SORN_ARITH_BY_SIZE(d, SORN_ARITH1_KERNEL_DEF(neg, NegOp, d, a))
#define SORN_K_NEGQ(d, a) SORN_ARITH_BY_SIZE(d, SORN_ARITH1_KERNEL_DEF(negq, NegqOp, d, a))

// Everything of the multiplications and the one-source kernels.
#define SORN_MUL_GROUP_KERNELS() \
  SORN_MUL_TRIPLES(SORN_K_MUL)   \
  SORN_MULC_TRIPLES(SORN_K_MULC) \
  SORN_SQR_PAIRS(SORN_K_SQR)     \
  SORN_NEG_PAIRS(SORN_K_NEG)     \
  SORN_NEGQ_OWN_PAIRS(SORN_K_NEGQ)

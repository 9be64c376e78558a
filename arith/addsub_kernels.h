// Emits the exported kernels of the add and subtract group from the type
// tables: sorna__<family>_c1_<dst><a><b> with two sources and
// sorna__<family>C_c1_<dst><a><T> with a constant. Each kernel unit defines
// SORN_KEEP_1, SORN_KEEP_2 and SORN_KEEP_4 so that it holds the kernels of
// one destination size only, and the units compile side by side.
#pragma once

#include "arith/binary_kernel.h"

#define SORN_ARITH_SIZE_u8 1
#define SORN_ARITH_SIZE_s8 1
#define SORN_ARITH_SIZE_s16 2
#define SORN_ARITH_SIZE_s32 4
#define SORN_ARITH_SIZE_f32 4
#define SORN_ARITH_CAT_(x, y) x##y
#define SORN_ARITH_CAT(x, y) SORN_ARITH_CAT_(x, y)
#define SORN_ARITH_BY_SIZE(d, ...) SORN_ARITH_CAT(SORN_KEEP_, SORN_ARITH_SIZE_##d)(__VA_ARGS__)

#define SORN_ARITH2_KERNEL_DEF(fam, policy, d, a, b)                                         \
  SornStatus sorna__##fam##_c1_##d##a##b(                                                    \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                \
      const int32_t *dststrides, const void *pa, const int32_t *astrides, const void *pb,    \
      const int32_t *bstrides, int32_t sf, uint32_t extra) {                                 \
    return sorn::arith::binary_kernel<sorn::arith::policy, sorn::tok::d, sorn::tok::a,       \
                                      sorn::tok::b>(xe, flags, n, dims, dst, dststrides, pa, \
                                                    astrides, pb, bstrides, sf, extra);      \
  }

#define SORN_ARITH2C_KERNEL_DEF(fam, policy, d, a, t)                                             \
  SornStatus sorna__##fam##C_c1_##d##a##t(                                                        \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                     \
      const int32_t *dststrides, const void *pa, const int32_t *astrides, const void *block,      \
      int32_t sf, uint32_t extra) {                                                               \
    (void)xe;                                                                                     \
    (void)flags;                                                                                  \
    (void)extra;                                                                                  \
    return sorn::arith::const_kernel<sorn::arith::policy, sorn::tok::d, sorn::tok::a,             \
                                     sorn::tok::t>(n, dims, dst, dststrides, pa, astrides, block, \
                                                   sf);                                           \
  }

// The families of the group, each with its policy.
#define SORN_K_ADD(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(add, AddOp, d, a, b))
#define SORN_K_SUB(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(sub, SubOp, d, a, b))
#define SORN_K_RSUB(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(rsub, RSubOp, d, a, b))
#define SORN_K_ADDQ(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(addq, AddqOp, d, a, b))
#define SORN_K_SUBQ(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(subq, SubqOp, d, a, b))
#define SORN_K_RSUBQ(d, a, b) SORN_ARITH_BY_SIZE(d, SORN_ARITH2_KERNEL_DEF(rsubq, RSubqOp, d, a, b))
#define SORN_K_ADDC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(add, AddOp, d, a, t))
#define SORN_K_SUBC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(sub, SubOp, d, a, t))
#define SORN_K_RSUBC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(rsub, RSubOp, d, a, t))
#define SORN_K_ADDQC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(addq, AddqOp, d, a, t))
#define SORN_K_SUBQC(d, a, t) SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(subq, SubqOp, d, a, t))
#define SORN_K_RSUBQC(d, a, t) \
  SORN_ARITH_BY_SIZE(d, SORN_ARITH2C_KERNEL_DEF(rsubq, RSubqOp, d, a, t))

// Everything of the add families, and of the subtract families.
#define SORN_ADD_GROUP_KERNELS()     \
  SORN_ADD_TRIPLES(SORN_K_ADD)       \
  SORN_ADDQ_OWN_TRIPLES(SORN_K_ADDQ) \
  SORN_ADDC_TRIPLES(SORN_K_ADDC)     \
  SORN_ADDQC_OWN_TRIPLES(SORN_K_ADDQC)
#define SORN_SUB_GROUP_KERNELS()       \
  SORN_ADD_TRIPLES(SORN_K_SUB)         \
  SORN_ADD_TRIPLES(SORN_K_RSUB)        \
  SORN_ADDQ_OWN_TRIPLES(SORN_K_SUBQ)   \
  SORN_ADDQ_OWN_TRIPLES(SORN_K_RSUBQ)  \
  SORN_ADDC_TRIPLES(SORN_K_SUBC)       \
  SORN_ADDC_TRIPLES(SORN_K_RSUBC)      \
  SORN_ADDQC_OWN_TRIPLES(SORN_K_SUBQC) \
  SORN_ADDQC_OWN_TRIPLES(SORN_K_RSUBQC)

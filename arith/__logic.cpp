// Logical kernels of u8, s16 and s32: and, or, xor of two arrays, the
// complement, and the forms with one constant per channel for 1, 3 and 4
// channels.
#include <sorn.h>

#include "arith/logic_kernel.h"

// The operators' names pass whole (prefix): and, xor and not are operator
// tokens in C++ and cannot be pasted.
#define SORN_K_LOGIC2(prefix, op, t)                                                              \
  SornStatus prefix##t##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,         \
                             void *dst, const int32_t *dststrides, const void *pa,                \
                             const int32_t *astrides, const void *pb, const int32_t *bstrides) {  \
    (void)xe;                                                                                     \
    (void)flags;                                                                                  \
    return sorn::arith::logic_kernel<sorn::arith::op, sorn::tok::t>(n, dims, dst, dststrides, pa, \
                                                                    astrides, pb, bstrides);      \
  }
#define SORN_K_LOGICC(c, prefix, op, t)                                                           \
  SornStatus prefix##c##_##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,      \
                                void *dst, const int32_t *dststrides, const void *pa,             \
                                const int32_t *astrides, const double *cvec, int32_t zero) {      \
    (void)xe;                                                                                     \
    (void)flags;                                                                                  \
    (void)zero;                                                                                   \
    return sorn::arith::logicc_kernel<sorn::arith::op, c, sorn::tok::t>(n, dims, dst, dststrides, \
                                                                        pa, astrides, cvec);      \
  }
#define SORN_DEF_LOGIC(t)                                                                      \
  SORN_K_LOGIC2(sorna__and_c1_, AndOp, t)                                                      \
  SORN_K_LOGIC2(sorna__orr_c1_, OrrOp, t)                                                      \
  SORN_K_LOGIC2(sorna__xor_c1_, XorOp, t)                                                      \
  SornStatus sorna__not_c1_##t##t(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, \
                                  void *dst, const int32_t *dststrides, const void *pa,        \
                                  const int32_t *astrides) {                                   \
    (void)xe;                                                                                  \
    (void)flags;                                                                               \
    return sorn::arith::not_kernel<sorn::tok::t>(n, dims, dst, dststrides, pa, astrides);      \
  }                                                                                            \
  SORN_CONST_CHANNELS(SORN_K_LOGICC, sorna__andC_c, AndOp, t)                                  \
  SORN_CONST_CHANNELS(SORN_K_LOGICC, sorna__orrC_c, OrrOp, t)                                  \
  SORN_CONST_CHANNELS(SORN_K_LOGICC, sorna__xorC_c, XorOp, t)

SORN_LOGIC_TYPES(SORN_DEF_LOGIC)

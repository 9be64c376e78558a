// Division kernels: two arrays of one type, truncated (div) or rounded
// (divr), and one constant per channel of 1, 3 or 4 channels, in both orders
// (divC, rdivC) and rounded (divrC, rdivrC).
#include <sorn.h>

#include "arith/div_kernel.h"

#define SORN_K_DIV(fam, rounded, d, a, b)                                                         \
  SornStatus sorna__##fam##_c1_##d##a##b(                                                         \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                     \
      const int32_t *dststrides, const void *pa, const int32_t *astrides, const void *pb,         \
      const int32_t *bstrides, int32_t sf, uint32_t extra) {                                      \
    (void)xe;                                                                                     \
    (void)flags;                                                                                  \
    (void)extra;                                                                                  \
    return sorn::arith::div_kernel<rounded, sorn::tok::d>(n, dims, dst, dststrides, pa, astrides, \
                                                          pb, bstrides, sf);                      \
  }
#define SORN_K_DIVC(c, fam, reversed, rounded, d, a)                                              \
  SornStatus sorna__##fam##_c##c##_##d##a(                                                        \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                     \
      const int32_t *dststrides, const void *pa, const int32_t *astrides, const double *cvec,     \
      int32_t sf, uint32_t extra, int32_t zero) {                                                 \
    (void)xe;                                                                                     \
    (void)flags;                                                                                  \
    (void)extra;                                                                                  \
    (void)zero;                                                                                   \
    return sorn::arith::divc_kernel<reversed, rounded, c, sorn::tok::d>(n, dims, dst, dststrides, \
                                                                        pa, astrides, cvec, sf);  \
  }

#define SORN_DEF_DIV(d, a, b) SORN_K_DIV(div, false, d, a, b)
#define SORN_DEF_DIVR(d, a, b) SORN_K_DIV(divr, true, d, a, b)
#define SORN_DEF_DIVC(d, a) SORN_CONST_CHANNELS(SORN_K_DIVC, divC, false, false, d, a)
#define SORN_DEF_RDIVC(d, a) SORN_CONST_CHANNELS(SORN_K_DIVC, rdivC, true, false, d, a)
#define SORN_DEF_DIVRC(d, a) SORN_CONST_CHANNELS(SORN_K_DIVC, divrC, false, true, d, a)
#define SORN_DEF_RDIVRC(d, a) SORN_CONST_CHANNELS(SORN_K_DIVC, rdivrC, true, true, d, a)

SORN_DIV_TRIPLES(SORN_DEF_DIV)
SORN_DIVR_OWN_TRIPLES(SORN_DEF_DIVR)
SORN_DIVC_PAIRS(SORN_DEF_DIVC)
SORN_DIVC_PAIRS(SORN_DEF_RDIVC)
SORN_DIVRC_OWN_PAIRS(SORN_DEF_DIVRC)
SORN_DIVRC_OWN_PAIRS(SORN_DEF_RDIVRC)

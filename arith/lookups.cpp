// The kernel lookups of the add and subtract group, expanded from the type
// tables. The q lookups hold the saturating kernels where saturation can
// matter and name the family's plain kernels for the other keys.
#include <sorn.h>

#include "dispatch2.h"

using namespace sorn_arith;

#define SORN_KEY(d, a, b) \
  triple_key(type_code<tok::d>::value, type_code<tok::a>::value, type_code<tok::b>::value)
#define SORN_CASE(kernel, d, a, b)  \
  case SORN_KEY(d, a, b):           \
    if (status) *status = SORN_OK;  \
    return &kernel;

#define SORN_LOOKUP_BEGIN(name, K)                                                      \
  K name(uint32_t dsttype, uint32_t atype, uint32_t btype, SornStatus *status) {        \
    if (dsttype < 16 && atype < 16 && btype < 16) {                                     \
      switch (triple_key(dsttype, atype, btype)) {
#define SORN_LOOKUP_END(K)                                        \
        default:                                                  \
          break;                                                  \
      }                                                           \
    }                                                             \
    return missing_kernel<K>(dsttype, atype, btype, status);      \
  }

#define SORN_C_SUB(d, a, b) SORN_CASE(sorna__sub_c1_##d##a##b, d, a, b)
#define SORN_C_RSUB(d, a, b) SORN_CASE(sorna__rsub_c1_##d##a##b, d, a, b)
#define SORN_C_ADD(d, a, b) SORN_CASE(sorna__add_c1_##d##a##b, d, a, b)
#define SORN_C_ADDQ(d, a, b) SORN_CASE(sorna__addq_c1_##d##a##b, d, a, b)
#define SORN_C_SUBQ(d, a, b) SORN_CASE(sorna__subq_c1_##d##a##b, d, a, b)
#define SORN_C_RSUBQ(d, a, b) SORN_CASE(sorna__rsubq_c1_##d##a##b, d, a, b)
#define SORN_C_ADDC(d, a, t) SORN_CASE(sorna__addC_c1_##d##a##t, d, a, t)
#define SORN_C_SUBC(d, a, t) SORN_CASE(sorna__subC_c1_##d##a##t, d, a, t)
#define SORN_C_RSUBC(d, a, t) SORN_CASE(sorna__rsubC_c1_##d##a##t, d, a, t)
#define SORN_C_ADDQC(d, a, t) SORN_CASE(sorna__addqC_c1_##d##a##t, d, a, t)
#define SORN_C_SUBQC(d, a, t) SORN_CASE(sorna__subqC_c1_##d##a##t, d, a, t)
#define SORN_C_RSUBQC(d, a, t) SORN_CASE(sorna__rsubqC_c1_##d##a##t, d, a, t)

SORN_LOOKUP_BEGIN(sorna__asubfun_imp, SornArith2Kernel)
SORN_ADD_TRIPLES(SORN_C_SUB)
SORN_LOOKUP_END(SornArith2Kernel)

SORN_LOOKUP_BEGIN(sorna__arsubfun_imp, SornArith2Kernel)
SORN_ADD_TRIPLES(SORN_C_RSUB)
SORN_LOOKUP_END(SornArith2Kernel)

SORN_LOOKUP_BEGIN(sorna__aaddqfun_imp, SornArith2Kernel)
SORN_ADDQ_OWN_TRIPLES(SORN_C_ADDQ)
SORN_ADDQ_PLAIN_TRIPLES(SORN_C_ADD)
SORN_LOOKUP_END(SornArith2Kernel)

SORN_LOOKUP_BEGIN(sorna__asubqfun_imp, SornArith2Kernel)
SORN_ADDQ_OWN_TRIPLES(SORN_C_SUBQ)
SORN_ADDQ_PLAIN_TRIPLES(SORN_C_SUB)
SORN_LOOKUP_END(SornArith2Kernel)

SORN_LOOKUP_BEGIN(sorna__arsubqfun_imp, SornArith2Kernel)
SORN_ADDQ_OWN_TRIPLES(SORN_C_RSUBQ)
SORN_ADDQ_PLAIN_TRIPLES(SORN_C_RSUB)
SORN_LOOKUP_END(SornArith2Kernel)

SORN_LOOKUP_BEGIN(sorna__aaddcfun_imp, SornArith2cKernel)
SORN_ADDC_TRIPLES(SORN_C_ADDC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__asubcfun_imp, SornArith2cKernel)
SORN_ADDC_TRIPLES(SORN_C_SUBC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__arsubcfun_imp, SornArith2cKernel)
SORN_ADDC_TRIPLES(SORN_C_RSUBC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__aaddqcfun_imp, SornArith2cKernel)
SORN_ADDQC_OWN_TRIPLES(SORN_C_ADDQC)
SORN_ADDQC_PLAIN_TRIPLES(SORN_C_ADDC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__asubqcfun_imp, SornArith2cKernel)
SORN_ADDQC_OWN_TRIPLES(SORN_C_SUBQC)
SORN_ADDQC_PLAIN_TRIPLES(SORN_C_SUBC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__arsubqcfun_imp, SornArith2cKernel)
SORN_ADDQC_OWN_TRIPLES(SORN_C_RSUBQC)
SORN_ADDQC_PLAIN_TRIPLES(SORN_C_RSUBC)
SORN_LOOKUP_END(SornArith2cKernel)

SORN_LOOKUP_BEGIN(sorna__aaddfun_imp, SornArith2Kernel)
SORN_ADD_TRIPLES(SORN_C_ADD)
SORN_LOOKUP_END(SornArith2Kernel)

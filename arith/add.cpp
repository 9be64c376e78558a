// The add dispatcher and its kernel lookup.
#include <sorn.h>

#include "dispatch2.h"

#include <utility>

using namespace sorn_arith;

SornArith2Kernel sorna__aaddfun_imp(uint32_t dsttype, uint32_t atype, uint32_t btype,
                                    SornStatus *status) {
  if (dsttype < 16 && atype < 16 && btype < 16) {
    switch (triple_key(dsttype, atype, btype)) {
#define SORN_ADD_CASE(d, a, b)                                                        \
  case triple_key(type_code<tok::d>::value, type_code<tok::a>::value,                 \
                  type_code<tok::b>::value):                                          \
    if (status) *status = SORN_OK;                                                    \
    return &sorna__add_c1_##d##a##b;
      SORN_ADD_TRIPLES(SORN_ADD_CASE)
#undef SORN_ADD_CASE
      default:
        break;
    }
  }
  // Stubs stand in for the missing kernel so that the caller can still call
  // what it was given and get the status from it.
  const bool known = known_type(dsttype) && known_type(atype) && known_type(btype);
  if (status) *status = known ? SORN_ENOTSUP : SORN_EINVAL;
  // void (*)(void) is the generic function pointer type of the language.
  auto stub = reinterpret_cast<void (*)(void)>(known ? &sorna_proc_enotsup : &sorna_proc_einval);
  return reinterpret_cast<SornArith2Kernel>(stub);
}

SornStatus sorna__add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, uint32_t btype,
                      const void *bptr, const int32_t *bstrides, int32_t sf, uint32_t extra) {
  // Addition commutes: the sources are put in the order the kernels expect.
  if (wants_exchange_by_size(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
  }
  if (wants_exchange_by_float(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
  }
  return dispatch2(&sorna__aaddfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,
                   aptr, astrides, btype, bptr, bstrides, sf, extra);
}

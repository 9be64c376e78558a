// The dispatchers of the add families: addition and saturating addition of
// two arrays, and of an array and constants.
#include <sorn.h>

#include "dispatch2.h"
#include "dispatch2c.h"

#include <utility>

using namespace sorn_arith;

namespace {

// Addition commutes: the sources are put in the order the kernels expect,
// the wider first, a float before an integer of the same size.
SornStatus add_family(Arith2Lookup lookup, SornXE *xe, SornFlags flags, SornDimPack pack,
                      const int32_t *dims, uint32_t dsttype, void *dstptr,
                      const int32_t *dststrides, uint32_t atype, const void *aptr,
                      const int32_t *astrides, uint32_t btype, const void *bptr,
                      const int32_t *bstrides, int32_t sf, uint32_t extra) {
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
  return dispatch2(lookup, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr,
                   astrides, btype, bptr, bstrides, sf, extra);
}

}  // namespace

SornStatus sorna__add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, uint32_t btype,
                      const void *bptr, const int32_t *bstrides, int32_t sf, uint32_t extra) {
  return add_family(&sorna__aaddfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                    atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

SornStatus sorna__addq(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, uint32_t btype,
                       const void *bptr, const int32_t *bstrides, int32_t sf, uint32_t extra) {
  return add_family(&sorna__aaddqfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                    atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

SornStatus sorna__addC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                       uint32_t extra) {
  return dispatch2c(&sorna__aaddcfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                    atype, aptr, astrides, cvec, sf, extra);
}

SornStatus sorna__addqC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                        const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,
                        uint32_t extra) {
  return dispatch2c(&sorna__aaddqcfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides,
                    atype, aptr, astrides, cvec, sf, extra);
}

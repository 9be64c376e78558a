// Layer 2 of the arithmetic and logical families: each base moves to its
// origin (the second source first, then the first, then the destination),
// and the dispatcher is called with data pointers. One template per operand
// shape; the exported sorna_xxx are thin instances.
#pragma once

#include <sorn.h>

#include "core/entry.h"

namespace sorn::arith {

// Two array sources, with a scale factor and the extra word. DstBits is
// or'ed into the destination's type (the signed saturating forms).
template <auto Dispatch, uint32_t DstBits = 0>
SornStatus layer2_arrays(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                         const int32_t *dststrides, uint32_t atype, const void *abase,
                         const int32_t *aorigin, const int32_t *astrides, uint32_t btype,
                         const void *bbase, const int32_t *borigin, const int32_t *bstrides,
                         int32_t sf, uint32_t extra) {
  const void *bptr = at_origin(bbase, pack, borigin, bstrides);
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype | DstBits, dstptr, dststrides, atype, aptr,
                  astrides, btype, bptr, bstrides, sf, extra);
}

// One array source and one constant per channel.
template <auto Dispatch, uint32_t DstBits = 0>
SornStatus layer2_constant(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                           const int32_t *dststrides, uint32_t atype, const void *abase,
                           const int32_t *aorigin, const int32_t *astrides, const double *cvec,
                           int32_t sf, uint32_t extra) {
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype | DstBits, dstptr, dststrides, atype, aptr,
                  astrides, cvec, sf, extra);
}

// One array source.
template <auto Dispatch>
SornStatus layer2_unary(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                        const int32_t *dststrides, uint32_t atype, const void *abase,
                        const int32_t *aorigin, const int32_t *astrides, int32_t sf,
                        uint32_t extra) {
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, sf,
                  extra);
}

// Three array sources (the multiply-accumulate family).
template <auto Dispatch>
SornStatus layer2_three(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                        const int32_t *dststrides, uint32_t atype, const void *abase,
                        const int32_t *aorigin, const int32_t *astrides, uint32_t btype,
                        const void *bbase, const int32_t *borigin, const int32_t *bstrides,
                        uint32_t ctype, const void *cbase, const int32_t *corigin,
                        const int32_t *cstrides, int32_t sf, uint32_t extra) {
  const void *cptr = at_origin(cbase, pack, corigin, cstrides);
  const void *bptr = at_origin(bbase, pack, borigin, bstrides);
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, btype,
                  bptr, bstrides, ctype, cptr, cstrides, sf, extra);
}

// Two array sources and one constant per channel.
template <auto Dispatch>
SornStatus layer2_two_constant(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                               uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                               const int32_t *dststrides, uint32_t atype, const void *abase,
                               const int32_t *aorigin, const int32_t *astrides, uint32_t btype,
                               const void *bbase, const int32_t *borigin, const int32_t *bstrides,
                               const double *cvec, int32_t sf, uint32_t extra) {
  const void *bptr = at_origin(bbase, pack, borigin, bstrides);
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, btype,
                  bptr, bstrides, cvec, sf, extra);
}

// One array source and two constants per channel.
template <auto Dispatch>
SornStatus layer2_constants(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                            const int32_t *dststrides, uint32_t atype, const void *abase,
                            const int32_t *aorigin, const int32_t *astrides, const double *c1vec,
                            const double *c2vec, int32_t sf, uint32_t extra) {
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return Dispatch(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, c1vec,
                  c2vec, sf, extra);
}

}  // namespace sorn::arith

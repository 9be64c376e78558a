// What the dispatchers of the two-source families share once their sources
// are in order: the channel-format nibble, folding channels into rows, and
// the choice between the direct kernel and the tile path.
#pragma once

#include <sorn.h>

#include "arith/binary_kernel.h"
#include "core/entry.h"

namespace sorn_arith {

using Arith2Lookup = SornArith2Kernel (*)(uint32_t, uint32_t, uint32_t, SornStatus *);
using Arith2cLookup = SornArith2cKernel (*)(uint32_t, uint32_t, uint32_t, SornStatus *);

using sorn::elem_size;
using sorn::known_type;

// Puts the wider source first, and a float source before an integer one of
// the same size. Each exchange is done once: a second pass could undo the
// first for pairs such as s64 and f32, which then fail in the lookup anyway.
inline bool wants_exchange_by_size(uint32_t atype, uint32_t btype) {
  return elem_size(btype) > elem_size(atype);
}
inline bool wants_exchange_by_float(uint32_t atype, uint32_t btype) {
  return btype == SORN_F32 && atype != SORN_F32;
}

inline SornStatus dispatch2(Arith2Lookup lookup, SornXE *xe, SornFlags flags, SornDimPack pack,
                            const int32_t *dims, uint32_t dsttype, void *dstptr,
                            const int32_t *dststrides, uint32_t atype, const void *aptr,
                            const int32_t *astrides, uint32_t btype, const void *bptr,
                            const int32_t *bstrides, int32_t sf, uint32_t extra) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2) return SORN_EINVAL;  // no row length to walk
  const int32_t w = dims[n - 1];
  flags = sorn::with_channel_format(flags, (uint32_t)w);

  int32_t ldims[4], lds[4], las[4], lbs[4];
  for (int32_t i = 0; i < n; ++i) {
    ldims[i] = dims[i];
    lds[i] = dststrides[i];
    las[i] = astrides[i];
    lbs[i] = bstrides[i];
  }
  // Adjacent channels are one longer row of single elements to the kernels.
  const int32_t c = w & 15;
  if (c > 1) {
    ldims[n - 1] = 1;
    ldims[n - 2] *= c;
    lds[n - 2] /= c;
    las[n - 2] /= c;
    lbs[n - 2] /= c;
  }

  const int32_t dsize = elem_size(dsttype), asize = elem_size(atype);
  if (dsize >= asize || (dsttype == SORN_U8 && atype == SORN_S16)) {
    SornStatus st = SORN_OK;
    SornArith2Kernel k = lookup(dsttype, atype, btype, &st);
    if (st != SORN_OK) return st;
    return k(xe, flags, n, ldims, dstptr, lds, aptr, las, bptr, lbs, sf, extra);
  }

  // A destination narrower than the first source: the operation is formed
  // in the source's type in a scratch tile and saturated into the
  // destination by the conversion, which this build leaves out. So after
  // refusing what the tile path refuses, the answer is "not supported", and
  // nothing is written.
  if (asize == 0 || dsize >= asize) return SORN_EINVAL;
  if (!known_type(dsttype)) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  (void)lookup(atype, atype, btype, &st);
  if (st != SORN_OK) return st;
  return SORN_ENOTSUP;
}

}  // namespace sorn_arith

// Layer 2 of the logical operations: origins become base pointers (the
// second source first, then the first, then the destination).
#include <sorn.h>

#include "core/entry.h"

using sorn::at_origin;

// The operators' names pass whole: and, xor and not are operator tokens in
// C++ and cannot be pasted.
#define SORN_LOGIC_LAYER2(l2, l2c, l3, l3c)                                                      \
  SornStatus l2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,              \
                uint32_t dsttype, void *dstbase, const int32_t *dstorigin,                       \
                const int32_t *dststrides, uint32_t atype, const void *abase,                    \
                const int32_t *aorigin, const int32_t *astrides, uint32_t btype,                 \
                const void *bbase, const int32_t *borigin, const int32_t *bstrides) {            \
    const void *bptr = at_origin(bbase, pack, borigin, bstrides);                                \
    const void *aptr = at_origin(abase, pack, aorigin, astrides);                                \
    void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);                              \
    return l3(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, btype,  \
              bptr, bstrides);                                                                   \
  }                                                                                              \
  SornStatus l2c(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,             \
                 uint32_t dsttype, void *dstbase, const int32_t *dstorigin,                      \
                 const int32_t *dststrides, uint32_t atype, const void *abase,                   \
                 const int32_t *aorigin, const int32_t *astrides, const double *cvec) {          \
    const void *aptr = at_origin(abase, pack, aorigin, astrides);                                \
    void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);                              \
    return l3c(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides, cvec); \
  }

SORN_LOGIC_LAYER2(sorna_and, sorna_andC, sorna__and, sorna__andC)
SORN_LOGIC_LAYER2(sorna_orr, sorna_orrC, sorna__orr, sorna__orrC)
SORN_LOGIC_LAYER2(sorna_xor, sorna_xorC, sorna__xor, sorna__xorC)

SornStatus sorna_not(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                     const int32_t *dststrides, uint32_t atype, const void *abase,
                     const int32_t *aorigin, const int32_t *astrides) {
  const void *aptr = at_origin(abase, pack, aorigin, astrides);
  void *dstptr = at_origin(dstbase, pack, dstorigin, dststrides);
  return sorna__not(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides);
}

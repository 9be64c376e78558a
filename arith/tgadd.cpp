// Layer 2 of the add family: origins become base pointers.
#include <sorn.h>

SornStatus sorna_add(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t dsttype, void *dstbase, const int32_t *dstorigin,
                     const int32_t *dststrides, uint32_t atype, const void *abase,
                     const int32_t *aorigin, const int32_t *astrides, uint32_t btype,
                     const void *bbase, const int32_t *borigin, const int32_t *bstrides,
                     int32_t sf, uint32_t extra) {
  const void *bptr = sorn_advance_ptr(bbase, sorn_vec_mkloff_$LS(pack, borigin, bstrides));
  const void *aptr = sorn_advance_ptr(abase, sorn_vec_mkloff_$LS(pack, aorigin, astrides));
  void *dstptr = sorn_advance_ptr(dstbase, sorn_vec_mkloff_$LS(pack, dstorigin, dststrides));
  return sorna__add(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides,
                    btype, bptr, bstrides, sf, extra);
}

// Emits the exported add kernels sorna__add_c1_<dst><a><b> from the type
// table. Each kernel unit defines SORN_ADD_UNIT_SIZE to the byte size of the
// destinations it holds, so that the 26 kernels are spread over three units
// that compile side by side.
#pragma once

#include "binary_kernel.h"

#define SORN_ARITH_SIZE_u8 1
#define SORN_ARITH_SIZE_s16 2
#define SORN_ARITH_SIZE_s32 4
#define SORN_ARITH_SIZE_f32 4
#define SORN_ARITH_CAT_(x, y) x##y
#define SORN_ARITH_CAT(x, y) SORN_ARITH_CAT_(x, y)

#define SORN_ADD_KERNEL_DEF(d, a, b)                                                          \
  SornStatus sorna__add_c1_##d##a##b(SornXE *xe, SornFlags flags, int32_t n,                 \
                                     const int32_t *dims, void *dst,                         \
                                     const int32_t *dststrides, const void *pa,              \
                                     const int32_t *astrides, const void *pb,                \
                                     const int32_t *bstrides, int32_t sf, uint32_t extra) {  \
    return sorn_arith::binary_kernel<sorn_arith::AddOp, sorn_arith::tok::d,                   \
                                     sorn_arith::tok::a, sorn_arith::tok::b>(                 \
        n, dims, dst, dststrides, pa, astrides, pb, bstrides, sf);                            \
  }

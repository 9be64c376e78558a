// Matrix by matrix: the public entry, the layer that applies origins, the
// dispatcher and the lookup of kernels by type triple.
#include <sorn.h>

#include <algorithm>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

/* ---------------- kernel lookups ---------------- */

namespace {

// The pairs of the table are (result, both sources): key d << 8 | s << 4 | s.
#define MULMM_ROW(d, s) \
  SORN_KERNEL_ROW(sorna__mulmm_##d##s, SORN_TYPECODE(d), SORN_TYPECODE(s), SORN_TYPECODE(s))
#define MULMVN_ROW(d, s) \
  SORN_KERNEL_ROW(sorna__mulmvn_##d##s, SORN_TYPECODE(d), SORN_TYPECODE(s), SORN_TYPECODE(s))
constexpr sorn::KernelRow<SornMulMMKernel> kMulMM[] = {SORN_MULMM_PAIRS(MULMM_ROW)};
constexpr sorn::KernelRow<SornMulMVnKernel> kMulMVn[] = {SORN_MULMM_PAIRS(MULMVN_ROW)};

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__amulmmfun_imp, SornMulMMKernel, kMulMM)
SORN_TRIPLE_LOOKUP(sorna__amulmvnfun_imp, SornMulMVnKernel, kMulMVn)

/* ---------------- dispatchers ---------------- */

SornStatus sorna__mulmm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *strides1, uint32_t type2, const void *src2,
                        const int32_t *strides2, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  if (n < 3) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  const SornMulMMKernel k =
      product_kernel(&sorna__amulmmfun_imp, &flags, dims1[n - 1], dstType, type1, type2, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, pack, dims1, dims2, dst, dstStrides, src1, strides1, src2, strides2, shift,
           reserved);
}

// A transposed second source is a list of its rows: row j of src2 is the
// vector that column j of the result is made from.
SornStatus sorna__mulmmt(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                         const int32_t *dims2, uint32_t dstType, void *dst,
                         const int32_t *dstStrides, uint32_t type1, const void *src1,
                         const int32_t *strides1, uint32_t type2, const void *src2,
                         const int32_t *strides2, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  const int32_t count = n >= 3 ? dims2[n - 3] : 1;
  const void *list[3] = {nullptr, nullptr, nullptr};
  make_strided_list(list, src2, n >= 3 ? strides2[n - 3] : 0, count < 0 ? 0 : count);
  return sorna__mulmvn(xe, flags, pack, dims1, dims2, dstType, dst, dstStrides, type1, src1,
                       strides1, type2, list, strides2, count, shift, reserved);
}

SornStatus sorna_mulmm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                       const int32_t *dims2, uint32_t dstType, void *dst, const int32_t *dstOrigin,
                       const int32_t *dstStrides, uint32_t type1, const void *src1,
                       const int32_t *origin1, const int32_t *strides1, uint32_t type2,
                       const void *src2, const int32_t *origin2, const int32_t *strides2,
                       int32_t shift, uint32_t reserved) {
  void *d = sorn::at_origin(dst, pack, dstOrigin, dstStrides);
  const void *a = sorn::at_origin(src1, pack, origin1, strides1);
  const void *b = sorn::at_origin(src2, pack, origin2, strides2);
  if (flags & SORN_F_MUL_TRANSPOSED)
    return sorna__mulmmt(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1, a, strides1,
                         type2, b, strides2, shift, reserved);
  return sorna__mulmm(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1, a, strides1,
                      type2, b, strides2, shift, reserved);
}

SornStatus SornMulMM(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                     const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Roi,
                     const SornVolume *src2Site, int32_t shift, uint32_t reserved) {
  if (!src1) {
    src1 = dst;
    if (!src1Roi) src1Roi = dstRoi;
  }
  // Three planes of one rank 3: rows and columns are the matrix.
  if (!sorn::good_image(dst) || dst->ndims != 3 ||
      !sorn::fits_image(src1, dst, sorn::Channels::Same) ||
      !sorn::fits_image(src2, dst, sorn::Channels::Same))
    return SORN_EINVAL;

  SornVolume r1, r2, rd;
  sorn_arr_adjorgetRoi(src1, &r1, src1Roi);
  sorn_arr__siteofAt(src2, 4, r2.origin, r2.size, src2Site ? src2Site->origin : nullptr);
  sorn_arr_adjorgetRoi(dst, &rd, dstRoi);

  // Rows and columns agree; whatever a source lacks shrinks the product.
  const int32_t M = std::min(rd.size[1], r1.size[1]);
  int32_t K, N;
  if (flags & SORN_F_MUL_TRANSPOSED) {
    K = std::min(r2.size[2], r1.size[2]);
    N = std::min(rd.size[2], r2.size[1]);
    r2.size[1] = N;
    r2.size[2] = K;
  } else {
    K = std::min(r2.size[1], r1.size[2]);
    N = std::min(rd.size[2], r2.size[2]);
    r2.size[1] = K;
    r2.size[2] = N;
  }
  r1.size[1] = M;
  r1.size[2] = K;
  rd.size[1] = M;
  rd.size[2] = N;
  if (box_empty(r1) || box_empty(r2) || box_empty(rd)) return SORN_ENOSPC;

  sorn::count_from_data(&r1, src1);
  sorn::count_from_data(&r2, src2);
  sorn::count_from_data(&rd, dst);
  const SornDimPack pack = SORN_DIMPACK(dst->ndims);
  return sorna_mulmm(xe, flags, pack, r1.size + 1, r2.size + 1, dst->elemtype, dst->data,
                     rd.origin + 1, dst->strides + 1, src1->elemtype, src1->data, r1.origin + 1,
                     src1->strides + 1, src2->elemtype, src2->data, r2.origin + 1,
                     src2->strides + 1, shift, reserved);
}

// Matrix by one vector. The vector operands are rows: the second source
// gives K elements along its columns and the result takes M elements along
// the columns of the destination. Below the entry it is the list product
// with a single vector, written along the destination's row.
#include <sorn.h>

#include <algorithm>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

SornStatus sorna__mulmv(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *strides1, uint32_t type2, const void *src2,
                        const int32_t *strides2, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  const int32_t off = (int32_t)((pack >> 4) & 15);
  if (n != 2 || off < 1) return SORN_EINVAL;
  // One dimension more: the matrix's rows come into view in front.
  const SornDimPack raised = (SornDimPack)((n + 1) | (off - 1) << 4 | (pack & 0x1f00));
  // Result i goes to column i: the step between "rows" of the list product
  // is the destination's pixel stride.
  const int32_t dstRow[3] = {dstStrides[0], dstStrides[0], dstStrides[1]};
  const void *list[1] = {src2};
  return sorna__mulmvn(xe, flags, raised, dims1 - 1, dims2 - 1, dstType, dst, dstRow, type1, src1,
                       strides1 - 1, type2, list, strides2 - 1, 1, shift, reserved);
}

SornStatus sorna_mulmv(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                       const int32_t *dims2, uint32_t dstType, void *dst, const int32_t *dstOrigin,
                       const int32_t *dstStrides, uint32_t type1, const void *src1,
                       const int32_t *origin1, const int32_t *strides1, uint32_t type2,
                       const void *src2, const int32_t *origin2, const int32_t *strides2,
                       int32_t shift, uint32_t reserved) {
  void *d = sorn::at_origin(dst, pack, dstOrigin, dstStrides);
  const void *a = sorn::at_origin(src1, pack, origin1, strides1);
  const void *b = sorn::at_origin(src2, pack, origin2, strides2);
  return sorna__mulmv(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1, a, strides1,
                      type2, b, strides2, shift, reserved);
}

SornStatus SornMulMV(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                     const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Roi,
                     const SornVolume *src2Site, int32_t shift, uint32_t reserved) {
  if (!src1) {
    src1 = dst;
    if (!src1Roi) src1Roi = dstRoi;
  }
  if (!dst || !src1 || !src2) return SORN_EINVAL;
  const int32_t ch = SORN_CHANNELS(dst->dims[3]);
  // Vector operands are records of two dimensions, filled by hand; records
  // from the constructors, which have three, are taken too, as their first
  // row.
  const auto vector_rank = [](const SornArray *v) { return v->ndims == 2 || v->ndims == 3; };
  if (!vector_rank(dst) || dst->dims[0] < 1 || ch < 1 || ch > 4 || src1->ndims != 3 ||
      !vector_rank(src2) || !depth_ok(src1, dst) || !depth_ok(src2, dst) ||
      SORN_CHANNELS(src1->dims[3]) != ch || SORN_CHANNELS(src2->dims[3]) != ch)
    return SORN_EINVAL;

  SornVolume r1, r2, rd;
  sorn_arr_adjorgetRoi(src1, &r1, src1Roi);
  sorn_arr__siteofAt(src2, 4, r2.origin, r2.size, src2Site ? src2Site->origin : nullptr);
  sorn_arr_adjorgetRoi(dst, &rd, dstRoi);

  const int32_t K = std::min(r1.size[2], r2.size[2]);
  const int32_t M = std::min(r1.size[1], rd.size[2]);
  r1.size[1] = M;
  r1.size[2] = K;
  r2.size[1] = std::min(r2.size[1], 1);
  r2.size[2] = K;
  rd.size[1] = std::min(rd.size[1], 1);
  rd.size[2] = M;
  if (box_empty(r1) || box_empty(r2) || box_empty(rd)) return SORN_ENOSPC;

  sorn::count_from_data(&r1, src1);
  sorn::count_from_data(&r2, src2);
  sorn::count_from_data(&rd, dst);
  const SornDimPack pack = SORN_DIMPACK(2);
  return sorna_mulmv(xe, flags, pack, r1.size + 2, r2.size + 2, dst->elemtype, dst->data,
                     rd.origin + 2, dst->strides + 2, src1->elemtype, src1->data, r1.origin + 2,
                     src1->strides + 2, src2->elemtype, src2->data, r2.origin + 2,
                     src2->strides + 2, shift, reserved);
}

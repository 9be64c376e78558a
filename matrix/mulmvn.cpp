// Matrix by a list of vectors: result column j is the matrix times vector j.
#include <sorn.h>

#include <algorithm>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

SornStatus sorna__mulmvn(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                         const int32_t *dims2, uint32_t dstType, void *dst,
                         const int32_t *dstStrides, uint32_t type1, const void *src1,
                         const int32_t *strides1, uint32_t type2, const void *const *vectors,
                         const int32_t *strides2, int32_t count, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  if (n < 3 || !vectors || count < 1) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  const SornMulMVnKernel k =
      product_kernel(&sorna__amulmvnfun_imp, &flags, dims1[n - 1], dstType, type1, type2, &st);
  if (st != SORN_OK) return st;
  if (dims1[n - 3] < 1 || dims1[n - 2] < 1) return SORN_OK;
  return k(xe, flags, pack, dims1, dims2, dst, dstStrides, src1, strides1, vectors, strides2, count,
           shift, reserved);
}

// The list gets the origin of the vectors. Without the ready flag it is the
// caller's and is copied to scratch first; with it, it is changed in place.
SornStatus sorna_mulmvn(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *origin1, const int32_t *strides1, uint32_t type2,
                        void **vectors, const int32_t *origin2, const int32_t *strides2,
                        int32_t count, int32_t shift, uint32_t reserved) {
  if (!vectors || count < 1) return SORN_EINVAL;
  void *d = sorn::at_origin(dst, pack, dstOrigin, dstStrides);
  const void *a = sorn::at_origin(src1, pack, origin1, strides1);
  const int32_t off2 = sorn_vec_mkloff_$LS(pack, origin2, strides2);
  const bool strided = count >= 3 && vectors[2] == nullptr;
  const int32_t len = strided ? 3 : count;
  void **list = vectors;
  void *blk = nullptr;
  if (!(flags & SORN_F_MUL_VECREADY)) {
    blk = SornXEalloca(xe, (size_t)len * sizeof(void *), 8);
    if (!blk) return SORN_ENOMEM;
    std::memcpy(blk, vectors, (size_t)len * sizeof(void *));
    list = static_cast<void **>(blk);
  }
  if (off2) {
    if (strided)
      list[0] = sorn_advance_ptr(list[0], off2);
    else
      for (int32_t j = 0; j < count; ++j) list[j] = sorn_advance_ptr(list[j], off2);
  }
  const SornStatus st = sorna__mulmvn(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1,
                                      a, strides1, type2, list, strides2, count, shift, reserved);
  if (blk) SornXEfreea(xe, blk);
  return st;
}

SornStatus SornMulMV_n(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                       const SornArray *const *vectors, const SornVolume *dstRoi,
                       const SornVolume *src1Roi, const SornVolume *vecSite, int32_t count,
                       int32_t shift, uint32_t reserved) {
  if (!src1) {
    src1 = dst;
    if (!src1Roi) src1Roi = dstRoi;
  }
  if (!dst || !src1 || !vectors || count < 1) return SORN_EINVAL;
  if (!sorn::good_image(dst) || dst->ndims != 3 ||
      !sorn::fits_image(src1, dst, sorn::Channels::Same))
    return SORN_EINVAL;
  const int32_t ch = sorn::channels_of(dst->dims[3]);
  const SornArray *v0 = vectors[0];
  if (!v0 || !depth_ok(v0, dst)) return SORN_EINVAL;
  // Vectors are records of two dimensions, filled by hand; those of three
  // from the constructors are taken too, as their first row. The list
  // encoding needs every pointer non-null.
  for (int32_t j = 0; j < count; ++j) {
    const SornArray *v = vectors[j];
    if (!v || !(v->ndims == 2 || v->ndims == 3) || v->elemtype != v0->elemtype ||
        v->dims[0] != v0->dims[0] || SORN_CHANNELS(v->dims[3]) != ch || !v->data)
      return SORN_EINVAL;
  }

  SornVolume r1, rv, rd;
  sorn_arr_adjorgetRoi(src1, &r1, src1Roi);
  sorn_arr_adjorgetRoi(dst, &rd, dstRoi);
  const int32_t *at = vecSite ? vecSite->origin : nullptr;
  int32_t K = r1.size[2];
  int32_t vRows = 1, vDepth = 1;
  for (int32_t j = 0; j < count; ++j) {
    sorn_arr__siteofAt(vectors[j], 4, rv.origin, rv.size, at);
    K = std::min(K, rv.size[2]);
    vRows = std::min(vRows, rv.size[1]);
    vDepth = std::min(vDepth, rv.size[0]);
  }
  const int32_t M = std::min(rd.size[1], r1.size[1]);
  const int32_t N = std::min(rd.size[2], count);
  r1.size[1] = M;
  r1.size[2] = K;
  rd.size[1] = M;
  rd.size[2] = N;
  if (box_empty(r1) || box_empty(rd) || vRows < 1 || vDepth < 1 || K < 1) return SORN_ENOSPC;

  void **list = static_cast<void **>(SornXEalloca(xe, (size_t)N * sizeof(void *), 8));
  if (!list) return SORN_ENOMEM;
  for (int32_t j = 0; j < N; ++j) {
    sorn_arr__siteofAt(vectors[j], 4, rv.origin, rv.size, at);
    sorn::count_from_data(&rv, vectors[j]);
    list[j] =
        sorn_advance_ptr(vectors[j]->data, sorn_vec_mkloff(4, rv.origin, vectors[j]->strides));
  }
  sorn::count_from_data(&r1, src1);
  sorn::count_from_data(&rd, dst);
  int32_t vdims[4] = {1, 1, K, v0->dims[3]};
  const SornDimPack pack = SORN_DIMPACK(dst->ndims);
  const SornStatus st = sorna_mulmvn(
      xe, flags | SORN_F_MUL_VECREADY, pack, r1.size + 1, vdims + 1, dst->elemtype, dst->data,
      rd.origin + 1, dst->strides + 1, src1->elemtype, src1->data, r1.origin + 1, src1->strides + 1,
      v0->elemtype, list, nullptr, v0->strides + 1, N, shift, reserved);
  SornXEfreea(xe, list);
  return st;
}

// Matrix by matrix: the public entry, the layer that applies origins, the
// dispatcher and the lookup of kernels by type triple.
#include <sorn.h>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

#define SORN_MUL_CODE_u8 SORN_U8
#define SORN_MUL_CODE_s16 SORN_S16
#define SORN_MUL_CODE_s32 SORN_S32
#define SORN_MUL_CODE_f32 SORN_F32
#define SORN_MUL_KEY(d, s) (SORN_MUL_CODE_##d << 8 | SORN_MUL_CODE_##s << 4 | SORN_MUL_CODE_##s)

namespace sorn::matrix {

static bool known_type(uint32_t t) { return t < 16 && ((SORN_KNOWN_TYPES >> t) & 1u); }

// A combination of known codes without a kernel is unsupported; any unknown
// code is an invalid argument.
template <class Kernel>
static Kernel no_kernel(uint32_t d, uint32_t s1, uint32_t s2, SornStatus *status) {
  const bool known = known_type(d) && known_type(s1) && known_type(s2);
  if (status) *status = known ? SORN_ENOTSUP : SORN_EINVAL;
  using AnyProc = void (*)(void);
  return reinterpret_cast<Kernel>(
      reinterpret_cast<AnyProc>(known ? &sorna_proc_enotsup : &sorna_proc_einval));
}

}  // namespace sorn::matrix

SornMulMMKernel sorna__amulmmfun_imp(uint32_t dstType, uint32_t src1Type, uint32_t src2Type,
                                     SornStatus *status) {
  if (known_type(dstType) && known_type(src1Type) && known_type(src2Type)) {
    switch (dstType << 8 | src1Type << 4 | src2Type) {
#define SORN_MUL_CASE(d, s)        \
  case SORN_MUL_KEY(d, s):         \
    if (status) *status = SORN_OK; \
    return &sorna__mulmm_##d##s;
      SORN_MULMM_PAIRS(SORN_MUL_CASE)
#undef SORN_MUL_CASE
      default: break;
    }
  }
  return no_kernel<SornMulMMKernel>(dstType, src1Type, src2Type, status);
}

SornMulMVnKernel sorna__amulmvnfun_imp(uint32_t dstType, uint32_t src1Type, uint32_t src2Type,
                                       SornStatus *status) {
  if (known_type(dstType) && known_type(src1Type) && known_type(src2Type)) {
    switch (dstType << 8 | src1Type << 4 | src2Type) {
#define SORN_MUL_CASE(d, s)        \
  case SORN_MUL_KEY(d, s):         \
    if (status) *status = SORN_OK; \
    return &sorna__mulmvn_##d##s;
      SORN_MULMM_PAIRS(SORN_MUL_CASE)
#undef SORN_MUL_CASE
      default: break;
    }
  }
  return no_kernel<SornMulMVnKernel>(dstType, src1Type, src2Type, status);
}

SornStatus sorna__mulmm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                        const int32_t *dims2, uint32_t dstType, void *dst,
                        const int32_t *dstStrides, uint32_t type1, const void *src1,
                        const int32_t *strides1, uint32_t type2, const void *src2,
                        const int32_t *strides2, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  if (n < 3) return SORN_EINVAL;
  const int32_t chword = dims1[n - 1];
  flags = with_channel_format(flags, chword);
  if (SORN_CHANNELS(chword) > 1) return SORN_ENOTSUP;
  SornStatus st = SORN_OK;
  const SornMulMMKernel k = sorna__amulmmfun_imp(dstType, type1, type2, &st);
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
  void *d = at_origin(dst, pack, dstOrigin, dstStrides);
  const void *a = at_origin(src1, pack, origin1, strides1);
  const void *b = at_origin(src2, pack, origin2, strides2);
  if (flags & SORN_F_MUL_TRANSPOSED)
    return sorna__mulmmt(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1, a, strides1,
                         type2, b, strides2, shift, reserved);
  return sorna__mulmm(xe, flags, pack, dims1, dims2, dstType, d, dstStrides, type1, a, strides1,
                      type2, b, strides2, shift, reserved);
}

SornStatus SornMulMM(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                     const SornArray *src2, const SornVolume *roiDst, const SornVolume *roi1,
                     const SornVolume *roi2, int32_t shift, uint32_t reserved) {
  if (!src1) {
    src1 = dst;
    if (!roi1) roi1 = roiDst;
  }
  if (!dst || !src1 || !src2) return SORN_EINVAL;
  const int32_t ch = SORN_CHANNELS(dst->dims[3]);
  if (dst->ndims != 3 || dst->dims[0] < 1 || !channels_ok(ch) || src1->ndims != 3 ||
      src2->ndims != 3 || !depth_ok(src1, dst) || !depth_ok(src2, dst) ||
      SORN_CHANNELS(src1->dims[3]) != ch || SORN_CHANNELS(src2->dims[3]) != ch)
    return SORN_EINVAL;

  SornVolume r1, r2, rd;
  sorn_arr_adjorgetRoi(src1, &r1, roi1);
  sorn_arr__siteofAt(src2, 4, r2.origin, r2.size, roi2 ? roi2->origin : nullptr);
  sorn_arr_adjorgetRoi(dst, &rd, roiDst);

  // Rows and columns agree; whatever a source lacks shrinks the product.
  const int32_t M = min32(rd.size[1], r1.size[1]);
  int32_t K, N;
  if (flags & SORN_F_MUL_TRANSPOSED) {
    K = min32(r2.size[2], r1.size[2]);
    N = min32(rd.size[2], r2.size[1]);
    r2.size[1] = N;
    r2.size[2] = K;
  } else {
    K = min32(r2.size[1], r1.size[2]);
    N = min32(rd.size[2], r2.size[2]);
    r2.size[1] = K;
    r2.size[2] = N;
  }
  r1.size[1] = M;
  r1.size[2] = K;
  rd.size[1] = M;
  rd.size[2] = N;
  if (box_empty(r1) || box_empty(r2) || box_empty(rd)) return SORN_ENOSPC;

  to_data_coords(r1, src1);
  to_data_coords(r2, src2);
  to_data_coords(rd, dst);
  const SornDimPack pack = (SornDimPack)(dst->ndims | 0x410);
  return sorna_mulmm(xe, flags, pack, r1.size + 1, r2.size + 1, dst->elemtype, dst->data,
                     rd.origin + 1, dst->strides + 1, src1->elemtype, src1->data, r1.origin + 1,
                     src1->strides + 1, src2->elemtype, src2->data, r2.origin + 1,
                     src2->strides + 1, shift, reserved);
}

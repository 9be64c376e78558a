// The integer products. Each kernel exists three times, for a shift of 0,
// above 0 and below 0, so that no loop tests the scale; their ladder is
// shorter than that of f32, since the small shapes gain less here.
#include <sorn.h>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

namespace sorn::matrix {

using ct_u8 = uint8_t;
using ct_s16 = int16_t;
using ct_s32 = int32_t;

template <class D, class S, Scale SC>
SornStatus mm_int(SornXE *xe, int32_t M, int32_t K, int32_t N, void *dst, ptrdiff_t ds,
                  const void *a, ptrdiff_t as, const void *b, ptrdiff_t bs, int32_t shift) {
  using P = IntPol<D, S, SC>;
  switch (K) {
    case 1: mm_fixed_k<P, 1>(M, N, dst, ds, a, as, b, bs, shift); return SORN_OK;
    case 2: mm_fixed_k<P, 2>(M, N, dst, ds, a, as, b, bs, shift); return SORN_OK;
    case 3: mm_fixed_k<P, 3>(M, N, dst, ds, a, as, b, bs, shift); return SORN_OK;
    case 4: {
      void *packed = maybe_pack_b(xe, M, K, N, (int32_t)sizeof(S), b, bs);
      mm_fixed_k<P, 4>(M, N, dst, ds, a, as, b, bs, shift);
      if (packed) SornXEfreea(xe, packed);
      return SORN_OK;
    }
    default: return mm_general<P>(xe, M, K, N, dst, ds, a, as, b, bs, shift);
  }
}

template <class D, class S, Scale SC>
void mvn_int(SornXE *xe, int32_t M, int32_t K, int32_t count, void *dst, ptrdiff_t ds,
             const void *a, ptrdiff_t as, const void *const *vectors, int32_t shift) {
  using P = IntPol<D, S, SC>;
  const VecList v(vectors, count);
  switch (K) {
    case 1: mvn_fixed_k<P, 1>(M, count, dst, ds, a, as, v, shift); return;
    case 2: mvn_fixed_k<P, 2>(M, count, dst, ds, a, as, v, shift); return;
    case 3: {
      PackedList pl(xe, M, K, count, vectors, (int32_t)sizeof(S));
      mvn_fixed_k<P, 3>(M, count, dst, ds, a, as, VecList(pl.list, count), shift);
      pl.release();
      return;
    }
    default: mvn_general<P>(xe, M, K, count, dst, ds, a, as, vectors, shift); return;
  }
}

template <class D, class S, int K>
void shape_k(int32_t m, int32_t n, void *dst, int32_t ds, const void *a, int32_t as, const void *b,
             int32_t bs, int32_t shift) {
  if (shift == 0)
    mm_fixed_k<IntPol<D, S, Scale::None>, K>(m, n, dst, ds, a, as, b, bs, shift);
  else if (shift > 0)
    mm_fixed_k<IntPol<D, S, Scale::Left>, K>(m, n, dst, ds, a, as, b, bs, shift);
  else
    mm_fixed_k<IntPol<D, S, Scale::Right>, K>(m, n, dst, ds, a, as, b, bs, shift);
}

template <class D, class S, int K>
void list_k(int32_t m, int32_t count, void *dst, int32_t ds, const void *a, int32_t as,
            const void *const *vectors, int32_t shift) {
  const VecList v(vectors, count);
  if (shift == 0)
    mvn_fixed_k<IntPol<D, S, Scale::None>, K>(m, count, dst, ds, a, as, v, shift);
  else if (shift > 0)
    mvn_fixed_k<IntPol<D, S, Scale::Left>, K>(m, count, dst, ds, a, as, v, shift);
  else
    mvn_fixed_k<IntPol<D, S, Scale::Right>, K>(m, count, dst, ds, a, as, v, shift);
}

}  // namespace sorn::matrix

#define SORN_MUL_INT_DEFS(d, s)                                                                    \
  void _T_sorna__mulmm_##d##s##_w11(SORN_MUL_SHAPE_ARGS) {                                         \
    shape_k<ct_##d, ct_##s, 1>(m, n, dst, dstStride, a, aStride, b, bStride, shift);               \
  }                                                                                                \
  void _T_sorna__mulmm_##d##s##_w12(SORN_MUL_SHAPE_ARGS) {                                         \
    shape_k<ct_##d, ct_##s, 2>(m, n, dst, dstStride, a, aStride, b, bStride, shift);               \
  }                                                                                                \
  void _T_sorna__mulmm_##d##s##_w13(SORN_MUL_SHAPE_ARGS) {                                         \
    shape_k<ct_##d, ct_##s, 3>(m, n, dst, dstStride, a, aStride, b, bStride, shift);               \
  }                                                                                                \
  void _T_sorna__mulmvn_##d##s##_w1(SORN_MUL_LIST_ARGS) {                                          \
    list_k<ct_##d, ct_##s, 1>(m, count, dst, dstStride, a, aStride, vectors, shift);               \
  }                                                                                                \
  void _T_sorna__mulmvn_##d##s##_w2(SORN_MUL_LIST_ARGS) {                                          \
    list_k<ct_##d, ct_##s, 2>(m, count, dst, dstStride, a, aStride, vectors, shift);               \
  }                                                                                                \
  SornStatus sorna__mulmm_##d##s(                                                                  \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1, const int32_t *dims2,   \
      void *dst, const int32_t *dstStrides, const void *src1, const int32_t *strides1,             \
      const void *src2, const int32_t *strides2, int32_t shift, uint32_t reserved) {               \
    const int32_t n = pack_n(pack);                                                                \
    const int32_t M = dims1[n - 3], K = dims1[n - 2], N = dims2[n - 2];                            \
    const int32_t ds = dstStrides[n - 3], as = strides1[n - 3], bs = strides2[n - 3];              \
    if (shift == 0)                                                                                \
      return mm_int<ct_##d, ct_##s, Scale::None>(xe, M, K, N, dst, ds, src1, as, src2, bs, shift); \
    if (shift > 0)                                                                                 \
      return mm_int<ct_##d, ct_##s, Scale::Left>(xe, M, K, N, dst, ds, src1, as, src2, bs, shift); \
    return mm_int<ct_##d, ct_##s, Scale::Right>(xe, M, K, N, dst, ds, src1, as, src2, bs, shift);  \
  }                                                                                                \
  SornStatus sorna__mulmvn_##d##s(                                                                 \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1, const int32_t *dims2,   \
      void *dst, const int32_t *dstStrides, const void *src1, const int32_t *strides1,             \
      const void *const *vectors, const int32_t *strides2, int32_t count, int32_t shift,           \
      uint32_t reserved) {                                                                         \
    const int32_t n = pack_n(pack);                                                                \
    const int32_t M = dims1[n - 3], K = dims1[n - 2];                                              \
    const int32_t ds = dstStrides[n - 3], as = strides1[n - 3];                                    \
    if (shift == 0)                                                                                \
      mvn_int<ct_##d, ct_##s, Scale::None>(xe, M, K, count, dst, ds, src1, as, vectors, shift);    \
    else if (shift > 0)                                                                            \
      mvn_int<ct_##d, ct_##s, Scale::Left>(xe, M, K, count, dst, ds, src1, as, vectors, shift);    \
    else                                                                                           \
      mvn_int<ct_##d, ct_##s, Scale::Right>(xe, M, K, count, dst, ds, src1, as, vectors, shift);   \
    return SORN_OK;                                                                                \
  }

SORN_MULMM_INT_PAIRS(SORN_MUL_INT_DEFS)

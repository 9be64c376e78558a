// The f32 products: the full ladder of shapes. Small and narrow shapes never
// reach the general path, which is worth its scratch only when every side
// is long.
#include <sorn.h>

#include <array>
#include <utility>

#include "matrix/mul_kernels.h"

using namespace sorn::matrix;

namespace sorn::matrix {

using FixedMM = void (*)(void *, ptrdiff_t, const void *, ptrdiff_t, const void *, ptrdiff_t,
                         int32_t);
using FixedMVN = void (*)(void *, ptrdiff_t, const void *, ptrdiff_t, const VecList &, int32_t);

template <class P, size_t... I>
constexpr std::array<FixedMM, 64> make_mm_table(std::index_sequence<I...>) {
  return {{&mm_fixed<P, (int)(I >> 4) + 1, (int)((I >> 2) & 3) + 1, (int)(I & 3) + 1>...}};
}
template <class P, size_t... I>
constexpr std::array<FixedMVN, 64> make_mvn_table(std::index_sequence<I...>) {
  return {{&mvn_fixed<P, (int)(I >> 4) + 1, (int)((I >> 2) & 3) + 1, (int)(I & 3) + 1>...}};
}

// Indexed by (M - 1) << 4 | (K - 1) * 4 | (N - 1).
constexpr auto kFixedMM = make_mm_table<F32Pol>(std::make_index_sequence<64>{});
// Indexed by (M - 1) * 16 | (K - 1) * 4 | (count - 1).
constexpr auto kFixedMVN = make_mvn_table<F32Pol>(std::make_index_sequence<64>{});

// K and N both fixed, rows looped.
template <int K, int N>
void mm_fixed_kn(int32_t m, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as, const void *b,
                 ptrdiff_t bs) {
  for (int32_t i = 0; i < m; ++i)
    mm_fixed<F32Pol, 1, K, N>(row_at<float>(dst, ds, i), ds, row_at<float>(a, as, i), as, b, bs, 0);
}

// One column of b against every row of a, read with b's row stride: the
// last resort when the column can't be gathered.
void mm_column(int32_t m, int32_t kk, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as,
               const void *b, ptrdiff_t bs) {
  for (int32_t i = 0; i < m; ++i) {
    const float *ai = row_at<float>(a, as, i);
    float s = ai[0] * *row_at<float>(b, bs, 0);
    for (int32_t k = 1; k < kk; ++k) s += ai[k] * *row_at<float>(b, bs, k);
    *row_at<float>(dst, ds, i) = s;
  }
}

}  // namespace sorn::matrix

void __sorna__mulmm_f32f32_w11(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_k<F32Pol, 1>(m, n, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w12(SORN_MUL_SHAPE_ARGS) {
  if (n == 2)
    return __sorna__mulmm_f32f32_w12_w22(m, k, n, dst, dstStride, a, aStride, b, bStride, shift);
  mm_fixed_k<F32Pol, 2>(m, n, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w13(SORN_MUL_SHAPE_ARGS) {
  if (n == 3)
    return __sorna__mulmm_f32f32_w13_w23(m, k, n, dst, dstStride, a, aStride, b, bStride, shift);
  mm_fixed_k<F32Pol, 3>(m, n, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w14(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_k<F32Pol, 4>(m, n, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w15_h1(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_k<F32Pol, 5>(m, n, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w22(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_n<F32Pol, 2>(m, k, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w23(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_n<F32Pol, 3>(m, k, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w24(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_n<F32Pol, 4>(m, k, dst, dstStride, a, aStride, b, bStride, 0);
}
void __sorna__mulmm_f32f32_w12_w22(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_kn<2, 2>(m, dst, dstStride, a, aStride, b, bStride);
}
void __sorna__mulmm_f32f32_w13_w23(SORN_MUL_SHAPE_ARGS) {
  mm_fixed_kn<3, 3>(m, dst, dstStride, a, aStride, b, bStride);
}

void __sorna__mulmvn_f32f32_n1(SORN_MUL_LIST_ARGS) {
  mvn_fixed_count<F32Pol, 1>(m, k, dst, dstStride, a, aStride, VecList(vectors, 1), 0);
}
void __sorna__mulmvn_f32f32_n2(SORN_MUL_LIST_ARGS) {
  mvn_fixed_count<F32Pol, 2>(m, k, dst, dstStride, a, aStride, VecList(vectors, 2), 0);
}
void __sorna__mulmvn_f32f32_n3(SORN_MUL_LIST_ARGS) {
  mvn_fixed_count<F32Pol, 3>(m, k, dst, dstStride, a, aStride, VecList(vectors, 3), 0);
}
void __sorna__mulmvn_f32f32_n4(SORN_MUL_LIST_ARGS) {
  mvn_fixed_count<F32Pol, 4>(m, k, dst, dstStride, a, aStride, VecList(vectors, 4), 0);
}
void __sorna__mulmvn_f32f32_w1(SORN_MUL_LIST_ARGS) {
  mvn_fixed_k<F32Pol, 1>(m, count, dst, dstStride, a, aStride, VecList(vectors, count), 0);
}
void __sorna__mulmvn_f32f32_w2(SORN_MUL_LIST_ARGS) {
  mvn_fixed_k<F32Pol, 2>(m, count, dst, dstStride, a, aStride, VecList(vectors, count), 0);
}
void __sorna__mulmvn_f32f32_w3(SORN_MUL_LIST_ARGS) {
  mvn_fixed_k<F32Pol, 3>(m, count, dst, dstStride, a, aStride, VecList(vectors, count), 0);
}
void __sorna__mulmvn_f32f32_w4(SORN_MUL_LIST_ARGS) {
  mvn_fixed_k<F32Pol, 4>(m, count, dst, dstStride, a, aStride, VecList(vectors, count), 0);
}

void __sorna__mulmm_transpose_f32_w2(void *out, const void *src, int32_t rowBytes,
                                     int32_t srcStride, int32_t k) {
  float *__restrict o0 = static_cast<float *>(out);
  float *__restrict o1 = row_at<float>(out, rowBytes, 1);
  for (int32_t r = 0; r < k; ++r) {
    const float *s = row_at<float>(src, srcStride, r);
    o0[r] = s[0];
    o1[r] = s[1];
  }
}

SornStatus sorna__mulmm_f32f32(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                               const int32_t *dims2, void *dst, const int32_t *dstStrides,
                               const void *src1, const int32_t *strides1, const void *src2,
                               const int32_t *strides2, int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  const int32_t M = dims1[n - 3], K = dims1[n - 2], N = dims2[n - 2];
  const int32_t ds = dstStrides[n - 3], as = strides1[n - 3], bs = strides2[n - 3];
  if (M <= 4 && K <= 4 && N <= 4) {
    kFixedMM[(size_t)((M - 1) << 4 | (K - 1) * 4 | (N - 1))](dst, ds, src1, as, src2, bs, 0);
    return SORN_OK;
  }
  switch (K) {
    case 1: __sorna__mulmm_f32f32_w11(M, K, N, dst, ds, src1, as, src2, bs, 0); return SORN_OK;
    case 2: __sorna__mulmm_f32f32_w12(M, K, N, dst, ds, src1, as, src2, bs, 0); return SORN_OK;
    case 3: __sorna__mulmm_f32f32_w13(M, K, N, dst, ds, src1, as, src2, bs, 0); return SORN_OK;
    case 4: __sorna__mulmm_f32f32_w14(M, K, N, dst, ds, src1, as, src2, bs, 0); return SORN_OK;
    case 5:
      if (M == 1) {
        __sorna__mulmm_f32f32_w15_h1(M, K, N, dst, ds, src1, as, src2, bs, 0);
        return SORN_OK;
      }
      break;
    default: break;
  }
  if (N == 1) {
    // The column is a vector once its elements are adjacent.
    if (bs == (int32_t)sizeof(float)) {
      __sorna__mulmvn_f32f32_n1(M, K, 1, dst, ds, src1, as, &src2, 0);
      return SORN_OK;
    }
    void *col = SornXEalloca(xe, (size_t)K * sizeof(float), 16);
    if (!col) {
      mm_column(M, K, dst, ds, src1, as, src2, bs);
      return SORN_OK;
    }
    C_sorn_bcopy2d(col, src2, (int32_t)sizeof(float), bs, K, sizeof(float));
    const void *list[1] = {col};
    __sorna__mulmvn_f32f32_n1(M, K, 1, dst, ds, src1, as, list, 0);
    SornXEfreea(xe, col);
    return SORN_OK;
  }
  if (N == 2) {
    // Two gathered columns pay once the rows are many against K.
    void *cols = 3 * M + K > 109 ? SornXEalloca(xe, (size_t)K * 2 * sizeof(float), 16) : nullptr;
    if (cols) {
      const int32_t rowBytes = K * (int32_t)sizeof(float);
      __sorna__mulmm_transpose_f32_w2(cols, src2, rowBytes, bs, K);
      const void *list[2] = {cols, static_cast<byte *>(cols) + rowBytes};
      __sorna__mulmvn_f32f32_n2(M, K, 2, dst, ds, src1, as, list, 0);
      SornXEfreea(xe, cols);
    } else {
      __sorna__mulmm_f32f32_w22(M, K, N, dst, ds, src1, as, src2, bs, 0);
    }
    return SORN_OK;
  }
  if (N == 3) {
    __sorna__mulmm_f32f32_w23(M, K, N, dst, ds, src1, as, src2, bs, 0);
    return SORN_OK;
  }
  if (N == 4) {
    __sorna__mulmm_f32f32_w24(M, K, N, dst, ds, src1, as, src2, bs, 0);
    return SORN_OK;
  }
  return mm_general<F32Pol>(xe, M, K, N, dst, ds, src1, as, src2, bs, 0);
}

SornStatus sorna__mulmvn_f32f32(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims1,
                                const int32_t *dims2, void *dst, const int32_t *dstStrides,
                                const void *src1, const int32_t *strides1,
                                const void *const *vectors, const int32_t *strides2, int32_t count,
                                int32_t shift, uint32_t reserved) {
  const int32_t n = pack_n(pack);
  const int32_t M = dims1[n - 3], K = dims1[n - 2];
  const int32_t ds = dstStrides[n - 3], as = strides1[n - 3];
  const VecList v(vectors, count);
  if (M <= 4 && K <= 4 && count <= 4) {
    kFixedMVN[(size_t)((M - 1) * 16 | (K - 1) * 4 | (count - 1))](dst, ds, src1, as, v, 0);
    return SORN_OK;
  }
  if (count == 1) {
    __sorna__mulmvn_f32f32_n1(M, K, count, dst, ds, src1, as, vectors, 0);
    return SORN_OK;
  }
  if (count <= 4) {
    // Scattered vectors read by many rows are worth packing first.
    PackedList pl(xe, M, K, count, vectors, (int32_t)sizeof(float));
    SornMulListProc proc = count == 2   ? &__sorna__mulmvn_f32f32_n2
                           : count == 3 ? &__sorna__mulmvn_f32f32_n3
                                        : &__sorna__mulmvn_f32f32_n4;
    proc(M, K, count, dst, ds, src1, as, pl.list, 0);
    pl.release();
    return SORN_OK;
  }
  if (K == 1) {
    // Vectors of one element, evenly spaced, are one row of the product.
    if (v.strided && v.step == (ptrdiff_t)sizeof(float)) {
      __sorna__mulmm_f32f32_w11(M, 1, count, dst, ds, src1, as, v.base, 0, 0);
      return SORN_OK;
    }
    void *row = v.strided ? SornXEalloca(xe, (size_t)count * sizeof(float), 16) : nullptr;
    if (row) {
      C_sorn_bcopy2d(row, v.base, (int32_t)sizeof(float), (int32_t)v.step, count, sizeof(float));
      __sorna__mulmm_f32f32_w11(M, 1, count, dst, ds, src1, as, row, 0, 0);
      SornXEfreea(xe, row);
    } else {
      PackedList pl(xe, M, K, count, vectors, (int32_t)sizeof(float));
      __sorna__mulmvn_f32f32_w1(M, K, count, dst, ds, src1, as, pl.list, 0);
      pl.release();
    }
    return SORN_OK;
  }
  if (K == 2) {
    void *rows = v.strided && 3 * M + count > 96
                     ? SornXEalloca(xe, (size_t)count * 2 * sizeof(float), 16)
                     : nullptr;
    if (rows) {
      const int32_t rowBytes = count * (int32_t)sizeof(float);
      __sorna__mulmm_transpose_f32_w2(rows, v.base, rowBytes, (int32_t)v.step, count);
      __sorna__mulmm_f32f32_w12(M, 2, count, dst, ds, src1, as, rows, rowBytes, 0);
      SornXEfreea(xe, rows);
    } else {
      PackedList pl(xe, M, K, count, vectors, (int32_t)sizeof(float));
      __sorna__mulmvn_f32f32_w2(M, K, count, dst, ds, src1, as, pl.list, 0);
      pl.release();
    }
    return SORN_OK;
  }
  if (K == 3 || K == 4) {
    PackedList pl(xe, M, K, count, vectors, (int32_t)sizeof(float));
    (K == 3 ? &__sorna__mulmvn_f32f32_w3 : &__sorna__mulmvn_f32f32_w4)(M, K, count, dst, ds, src1,
                                                                       as, pl.list, 0);
    pl.release();
    return SORN_OK;
  }
  mvn_general<F32Pol>(xe, M, K, count, dst, ds, src1, as, vectors, 0);
  return SORN_OK;
}

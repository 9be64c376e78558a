// Shared machinery of the matrix products: element policies (products,
// accumulators, scale and result conversion), vector lists, and the loop
// patterns from which every kernel and shape helper is instantiated.
//
// A product helper computes dst (m by n) = a (m by k) times b (k by n); a
// list helper computes dst[i][j] = a row i dot vector j. Strides are bytes
// between rows; elements within a row are adjacent, as the records promise.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/entry.h"

namespace sorn::matrix {

using byte = unsigned char;

template <class T> inline T *row_at(void *base, ptrdiff_t stride, int32_t i) {
  return reinterpret_cast<T *>(static_cast<byte *>(base) + (ptrdiff_t)i * stride);
}
template <class T> inline const T *row_at(const void *base, ptrdiff_t stride, int32_t i) {
  return reinterpret_cast<const T *>(static_cast<const byte *>(base) + (ptrdiff_t)i * stride);
}

// ------------------------------------------------------------------ policies

// How an integer scale is applied: one instance per case, so that no loop
// tests the shift.
enum class Scale { None, Left, Right };

// The scale of a negative shift. 1 << 31 is the lowest int, so a shift of
// -31 scales by a negative power of two; that is the defined behaviour.
inline double right_scale(int32_t shift) { return 1.0 / (double)(int32_t)(1u << (-shift & 31)); }

struct F32Pol {
  using Dst = float;
  using Src = float;
  using Acc = float;
  static constexpr bool kExactOrder = false;
  static Acc prod(Src a, Src b) { return a * b; }
  static Dst out(Acc s, int32_t, double) { return s; }
};

template <class D> inline D narrow_result(int32_t v);
template <> inline uint8_t narrow_result<uint8_t>(int32_t v) {
  return (uint8_t)(v < 1 ? 0 : v > 255 ? 255 : v);
}
// Sources of this result are unsigned bytes, so only the top is clamped;
// a sum that a left shift wrapped below zero keeps its low 16 bits.
template <> inline int16_t narrow_result<int16_t>(int32_t v) {
  return (int16_t)(v > 32767 ? 32767 : v);
}
template <> inline int32_t narrow_result<int32_t>(int32_t v) { return v; }

// Integer triples: 32-bit wrapping sums for a shift of 0 or above, f64 sums
// for a negative one.
template <class D, class S, Scale SC> struct IntPol {
  using Dst = D;
  using Src = S;
  using Acc = std::conditional_t<SC == Scale::Right, double, uint32_t>;
  static constexpr bool kExactOrder = SC == Scale::Right;
  static Acc prod(Src a, Src b) {
    if constexpr (SC == Scale::Right)
      return (double)a * (double)b;
    else
      return (uint32_t)(int32_t)a * (uint32_t)(int32_t)b;
  }
  static Dst out(Acc s, int32_t shift, double scale) {
    if constexpr (SC == Scale::Right)
      return narrow_result<D>(sorn::round_i32(s * scale));
    else if constexpr (SC == Scale::Left)
      return narrow_result<D>((int32_t)(s << (shift & 31)));
    else
      return narrow_result<D>((int32_t)s);
  }
};

template <class P> inline double scale_of(int32_t shift) {
  return shift < 0 ? right_scale(shift) : 1.0;
}

// ------------------------------------------------------------------ vector lists

// A list of count pointers, or, with count 3 or more and a null third
// pointer, a start and a byte step.
struct VecList {
  const void *const *list;
  const byte *base = nullptr;
  ptrdiff_t step = 0;
  bool strided = false;
  VecList(const void *const *l, int32_t count) : list(l) {
    if (count >= 3 && l[2] == nullptr) {
      strided = true;
      base = static_cast<const byte *>(l[0]);
      step = (ptrdiff_t)(intptr_t)l[1];
    }
  }
  template <class T> const T *at(int32_t j) const {
    return strided ? reinterpret_cast<const T *>(base + (ptrdiff_t)j * step)
                   : static_cast<const T *>(list[j]);
  }
};

// Fills a list for count vectors starting at base, step bytes apart.
inline void make_strided_list(const void **out, const void *base, ptrdiff_t step, int32_t count) {
  if (count >= 3) {
    out[0] = base;
    out[1] = (const void *)(intptr_t)step;
    out[2] = nullptr;
  } else {
    for (int32_t j = 0; j < count; ++j) out[j] = static_cast<const byte *>(base) + j * step;
  }
}

// ------------------------------------------------------------------ product patterns

// Every shape fixed: no loop survives unrolling.
template <class P, int M, int K, int N>
void mm_fixed(void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as, const void *b, ptrdiff_t bs,
              int32_t shift) {
  const double scale = scale_of<P>(shift);
  for (int i = 0; i < M; ++i) {
    const typename P::Src *ai = row_at<typename P::Src>(a, as, i);
    typename P::Dst *di = row_at<typename P::Dst>(dst, ds, i);
    for (int j = 0; j < N; ++j) {
      typename P::Acc s = P::prod(ai[0], row_at<typename P::Src>(b, bs, 0)[j]);
      for (int k = 1; k < K; ++k) s += P::prod(ai[k], row_at<typename P::Src>(b, bs, k)[j]);
      di[j] = P::out(s, shift, scale);
    }
  }
}

// K fixed and small: each result row is a sum of K scaled rows of b, which
// vectorises along the row.
template <class P, int K>
void mm_fixed_k(int32_t m, int32_t n, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as,
                const void *b, ptrdiff_t bs, int32_t shift) {
  using S = typename P::Src;
  using D = typename P::Dst;
  const double scale = scale_of<P>(shift);
  const S *bk[K];
  for (int k = 0; k < K; ++k) bk[k] = row_at<S>(b, bs, k);
  for (int32_t i = 0; i < m; ++i) {
    const S *ai = row_at<S>(a, as, i);
    S av[K];
    for (int k = 0; k < K; ++k) av[k] = ai[k];
    D *__restrict di = row_at<D>(dst, ds, i);
    for (int32_t j = 0; j < n; ++j) {
      typename P::Acc s = P::prod(av[0], bk[0][j]);
      for (int k = 1; k < K; ++k) s += P::prod(av[k], bk[k][j]);
      di[j] = P::out(s, shift, scale);
    }
  }
}

// N fixed and small: N running sums along k for each row.
template <class P, int N>
void mm_fixed_n(int32_t m, int32_t kk, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as,
                const void *b, ptrdiff_t bs, int32_t shift) {
  using S = typename P::Src;
  using D = typename P::Dst;
  const double scale = scale_of<P>(shift);
  for (int32_t i = 0; i < m; ++i) {
    const S *ai = row_at<S>(a, as, i);
    typename P::Acc s[N];
    const S *b0 = row_at<S>(b, bs, 0);
    for (int j = 0; j < N; ++j) s[j] = P::prod(ai[0], b0[j]);
    for (int32_t k = 1; k < kk; ++k) {
      const S *bk = row_at<S>(b, bs, k);
      for (int j = 0; j < N; ++j) s[j] += P::prod(ai[k], bk[j]);
    }
    D *di = row_at<D>(dst, ds, i);
    for (int j = 0; j < N; ++j) di[j] = P::out(s[j], shift, scale);
  }
}

// The general path. Four rows of accumulators live in scratch; K goes in
// groups (the first one takes the remainder so that all later ones are
// full), each group's a values are loaded once and every row of b in the
// group adds into the four accumulator rows. Columns go in blocks so that
// the accumulators and the group's rows of b stay in the first-level cache.
// The sum of each element still runs in the order of k.
template <class P, int R, int G, bool Last>
inline void mm_group(int32_t j0, int32_t j1, typename P::Acc *const *acc,
                     const typename P::Src *const *ar, const typename P::Src *const *bk,
                     typename P::Dst *const *dr, int32_t shift, double scale) {
  using S = typename P::Src;
  using A = typename P::Acc;
  S av[R][G];
  for (int r = 0; r < R; ++r)
    for (int g = 0; g < G; ++g) av[r][g] = ar[r][g];
  for (int r = 0; r < R; ++r) {
    A *__restrict ac = acc[r];
    if constexpr (Last) {
      typename P::Dst *__restrict d = dr[r];
      for (int32_t j = j0; j < j1; ++j) {
        A s = ac[j];
        for (int g = 0; g < G; ++g) s += P::prod(av[r][g], bk[g][j]);
        d[j] = P::out(s, shift, scale);
        ac[j] = A(0);
      }
    } else {
      for (int32_t j = j0; j < j1; ++j) {
        A s = ac[j];
        for (int g = 0; g < G; ++g) s += P::prod(av[r][g], bk[g][j]);
        ac[j] = s;
      }
    }
  }
}

template <class P, int R, int G>
inline void mm_group_any(bool last, int32_t j0, int32_t j1, typename P::Acc *const *acc,
                         const typename P::Src *const *ar, const typename P::Src *const *bk,
                         typename P::Dst *const *dr, int32_t shift, double scale) {
  if (last)
    mm_group<P, R, G, true>(j0, j1, acc, ar, bk, dr, shift, scale);
  else
    mm_group<P, R, G, false>(j0, j1, acc, ar, bk, dr, shift, scale);
}

template <class P, int R>
void mm_rows(int32_t i0, int32_t kk, int32_t j0, int32_t j1, typename P::Acc *const *acc, void *dst,
             ptrdiff_t ds, const void *a, ptrdiff_t as, const void *b, ptrdiff_t bs, int32_t shift,
             double scale) {
  using S = typename P::Src;
  using D = typename P::Dst;
  D *dr[R];
  for (int r = 0; r < R; ++r) dr[r] = row_at<D>(dst, ds, i0 + r);
  const int32_t first = (kk & 3) ? (kk & 3) : 4;
  int32_t k = 0;
  int32_t g = first;
  while (k < kk) {
    const bool last = k + g >= kk;
    const S *ar[R];
    for (int r = 0; r < R; ++r) ar[r] = row_at<S>(a, as, i0 + r) + k;
    const S *bk[4];
    for (int t = 0; t < g; ++t) bk[t] = row_at<S>(b, bs, k + t);
    switch (g) {
      case 1: mm_group_any<P, R, 1>(last, j0, j1, acc, ar, bk, dr, shift, scale); break;
      case 2: mm_group_any<P, R, 2>(last, j0, j1, acc, ar, bk, dr, shift, scale); break;
      case 3: mm_group_any<P, R, 3>(last, j0, j1, acc, ar, bk, dr, shift, scale); break;
      default: mm_group_any<P, R, 4>(last, j0, j1, acc, ar, bk, dr, shift, scale); break;
    }
    k += g;
    g = 4;
  }
}

// Runs the general path with accumulator rows acc (four of accStride bytes,
// cleared). b may already be a packed copy.
template <class P>
void mm_general_run(int32_t m, int32_t kk, int32_t n, void *dst, ptrdiff_t ds, const void *a,
                    ptrdiff_t as, const void *b, ptrdiff_t bs, int32_t shift, void *accBlock,
                    ptrdiff_t accStride) {
  using A = typename P::Acc;
  const double scale = scale_of<P>(shift);
  A *acc[4];
  for (int r = 0; r < 4; ++r) acc[r] = row_at<A>(accBlock, accStride, r < m ? r : 0);
  const int32_t kColBlock = (int32_t)(4096 / sizeof(A));
  for (int32_t j0 = 0; j0 < n; j0 += kColBlock) {
    const int32_t j1 = n - j0 > kColBlock ? j0 + kColBlock : n;
    int32_t i = 0;
    for (; i + 4 <= m; i += 4)
      mm_rows<P, 4>(i, kk, j0, j1, acc, dst, ds, a, as, b, bs, shift, scale);
    switch (m - i) {
      case 3: mm_rows<P, 3>(i, kk, j0, j1, acc, dst, ds, a, as, b, bs, shift, scale); break;
      case 2: mm_rows<P, 2>(i, kk, j0, j1, acc, dst, ds, a, as, b, bs, shift, scale); break;
      case 1: mm_rows<P, 1>(i, kk, j0, j1, acc, dst, ds, a, as, b, bs, shift, scale); break;
      default: break;
    }
  }
}

// Packs b into scratch when the packing rule says so; answers the block (to
// be freed by the caller) or null, and updates b and bs.
inline void *maybe_pack_b(SornXE *xe, int32_t m, int32_t kk, int32_t n, int32_t esize,
                          const void *&b, ptrdiff_t &bs) {
  const int64_t rowBytes = (int64_t)n * esize;
  if (!__sorn_mulmm_should_copy_src2(m, (int64_t)kk * esize, rowBytes, (int64_t)bs - rowBytes))
    return nullptr;
  void *blk = SornXEalloca(xe, (size_t)kk * (size_t)rowBytes, 16);
  if (!blk) return nullptr;
  C_sorn_bcopy2d(blk, b, (int32_t)rowBytes, (int32_t)bs, kk, (size_t)rowBytes);
  b = blk;
  bs = rowBytes;
  return blk;
}

// The whole general path: optional packing, the accumulator block, the run.
template <class P>
SornStatus mm_general(SornXE *xe, int32_t m, int32_t kk, int32_t n, void *dst, ptrdiff_t ds,
                      const void *a, ptrdiff_t as, const void *b, ptrdiff_t bs, int32_t shift) {
  using A = typename P::Acc;
  void *packed = maybe_pack_b(xe, m, kk, n, (int32_t)sizeof(typename P::Src), b, bs);
  int32_t adims[2] = {m < 4 ? m : 4, n};
  int32_t astr[2] = {-64, (int32_t)sizeof(A)};
  const size_t bytes = sorn_vmemsize(2, adims, astr, 0);
  void *acc = bytes ? SornXEalloca(xe, bytes, 8) : nullptr;
  if (!acc) {
    if (packed) SornXEfreea(xe, packed);
    return SORN_ENOMEM;
  }
  std::memset(acc, 0, bytes);
  mm_general_run<P>(m, kk, n, dst, ds, a, as, b, bs, shift, acc, astr[0]);
  SornXEfreea(xe, acc);
  if (packed) SornXEfreea(xe, packed);
  return SORN_OK;
}

// ------------------------------------------------------------------ list patterns

template <class P, int M, int K, int C>
void mvn_fixed(void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as, const VecList &v,
               int32_t shift) {
  using S = typename P::Src;
  const double scale = scale_of<P>(shift);
  const S *vp[C];
  for (int j = 0; j < C; ++j) vp[j] = v.at<S>(j);
  for (int i = 0; i < M; ++i) {
    const S *ai = row_at<S>(a, as, i);
    typename P::Dst *di = row_at<typename P::Dst>(dst, ds, i);
    for (int j = 0; j < C; ++j) {
      typename P::Acc s = P::prod(ai[0], vp[j][0]);
      for (int k = 1; k < K; ++k) s += P::prod(ai[k], vp[j][k]);
      di[j] = P::out(s, shift, scale);
    }
  }
}

// A run of dot products of one row with one vector. Where the sum's order
// is free (f32 and wrapping integers), eight partial sums let the loop
// vectorise; f64 sums keep the order of k.
template <class P>
inline typename P::Acc dot(const typename P::Src *__restrict x, const typename P::Src *__restrict y,
                           int32_t kk) {
  using A = typename P::Acc;
  if constexpr (P::kExactOrder) {
    A s = A(0);
    for (int32_t k = 0; k < kk; ++k) s += P::prod(x[k], y[k]);
    return s;
  } else {
    A part[8] = {};
    int32_t k = 0;
    for (; k + 8 <= kk; k += 8)
      for (int l = 0; l < 8; ++l) part[l] += P::prod(x[k + l], y[k + l]);
    A s = ((part[0] + part[4]) + (part[1] + part[5])) + ((part[2] + part[6]) + (part[3] + part[7]));
    for (; k < kk; ++k) s += P::prod(x[k], y[k]);
    return s;
  }
}

// count fixed (1 to 4): every row meets every vector.
template <class P, int C>
void mvn_fixed_count(int32_t m, int32_t kk, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as,
                     const VecList &v, int32_t shift) {
  using S = typename P::Src;
  const double scale = scale_of<P>(shift);
  const S *vp[C];
  for (int j = 0; j < C; ++j) vp[j] = v.at<S>(j);
  for (int32_t i = 0; i < m; ++i) {
    const S *ai = row_at<S>(a, as, i);
    typename P::Dst *di = row_at<typename P::Dst>(dst, ds, i);
    for (int j = 0; j < C; ++j) di[j] = P::out(dot<P>(ai, vp[j], kk), shift, scale);
  }
}

// K fixed (1 to 4): a short dot product for every pair.
template <class P, int K>
void mvn_fixed_k(int32_t m, int32_t count, void *dst, ptrdiff_t ds, const void *a, ptrdiff_t as,
                 const VecList &v, int32_t shift) {
  using S = typename P::Src;
  const double scale = scale_of<P>(shift);
  for (int32_t i = 0; i < m; ++i) {
    const S *ai = row_at<S>(a, as, i);
    S av[K];
    for (int k = 0; k < K; ++k) av[k] = ai[k];
    typename P::Dst *di = row_at<typename P::Dst>(dst, ds, i);
    for (int32_t j = 0; j < count; ++j) {
      const S *vj = v.at<S>(j);
      typename P::Acc s = P::prod(av[0], vj[0]);
      for (int k = 1; k < K; ++k) s += P::prod(av[k], vj[k]);
      di[j] = P::out(s, shift, scale);
    }
  }
}

// The general list path: tiles of up to four rows by four vectors, sixteen
// sums kept in registers while k runs.
template <class P, int R, int C>
inline void mvn_tile(int32_t i0, int32_t j0, int32_t kk, void *dst, ptrdiff_t ds, const void *a,
                     ptrdiff_t as, const VecList &v, int32_t shift, double scale) {
  using S = typename P::Src;
  using A = typename P::Acc;
  const S *ar[R];
  const S *vc[C];
  for (int r = 0; r < R; ++r) ar[r] = row_at<S>(a, as, i0 + r);
  for (int c = 0; c < C; ++c) vc[c] = v.at<S>(j0 + c);
  A s[R][C] = {};
  for (int32_t k = 0; k < kk; ++k)
    for (int r = 0; r < R; ++r)
      for (int c = 0; c < C; ++c) s[r][c] += P::prod(ar[r][k], vc[c][k]);
  for (int r = 0; r < R; ++r) {
    typename P::Dst *d = row_at<typename P::Dst>(dst, ds, i0 + r) + j0;
    for (int c = 0; c < C; ++c) d[c] = P::out(s[r][c], shift, scale);
  }
}

template <class P, int R>
inline void mvn_tiles_row(int32_t i0, int32_t kk, int32_t count, void *dst, ptrdiff_t ds,
                          const void *a, ptrdiff_t as, const VecList &v, int32_t shift,
                          double scale) {
  int32_t j = 0;
  for (; j + 4 <= count; j += 4) mvn_tile<P, R, 4>(i0, j, kk, dst, ds, a, as, v, shift, scale);
  switch (count - j) {
    case 3: mvn_tile<P, R, 3>(i0, j, kk, dst, ds, a, as, v, shift, scale); break;
    case 2: mvn_tile<P, R, 2>(i0, j, kk, dst, ds, a, as, v, shift, scale); break;
    case 1: mvn_tile<P, R, 1>(i0, j, kk, dst, ds, a, as, v, shift, scale); break;
    default: break;
  }
}

template <class P>
void mvn_general_run(int32_t m, int32_t kk, int32_t count, void *dst, ptrdiff_t ds, const void *a,
                     ptrdiff_t as, const VecList &v, int32_t shift) {
  const double scale = scale_of<P>(shift);
  int32_t i = 0;
  for (; i + 4 <= m; i += 4) mvn_tiles_row<P, 4>(i, kk, count, dst, ds, a, as, v, shift, scale);
  switch (m - i) {
    case 3: mvn_tiles_row<P, 3>(i, kk, count, dst, ds, a, as, v, shift, scale); break;
    case 2: mvn_tiles_row<P, 2>(i, kk, count, dst, ds, a, as, v, shift, scale); break;
    case 1: mvn_tiles_row<P, 1>(i, kk, count, dst, ds, a, as, v, shift, scale); break;
    default: break;
  }
}

// The vectors packed into rows of kk elements when the packing rule says so;
// otherwise (or when the scratch request fails) the list as it is. The block
// goes back with release().
struct PackedList {
  SornXE *xe;
  void *blk = nullptr;
  const void *own[3] = {nullptr, nullptr, nullptr};
  const void *const *list;
  PackedList(SornXE *x, int32_t m, int32_t kk, int32_t count, const void *const *vectors,
             int32_t esize)
      : xe(x), list(vectors) {
    const VecList v(vectors, count);
    const int64_t rowBytes = (int64_t)kk * esize;
    const int64_t step = v.strided ? (int64_t)v.step : -1;
    if (!__sorn_mulmvn_should_copy_src2(m, rowBytes, count, step - rowBytes)) return;
    blk = SornXEalloca(xe, (size_t)count * (size_t)rowBytes, 16);
    if (!blk) return;
    for (int32_t j = 0; j < count; ++j)
      std::memcpy(static_cast<byte *>(blk) + j * rowBytes, v.at<byte>(j), (size_t)rowBytes);
    make_strided_list(own, blk, (ptrdiff_t)rowBytes, count);
    list = own;
  }
  void release() {
    if (blk) SornXEfreea(xe, blk);
    blk = nullptr;
  }
};

template <class P>
void mvn_general(SornXE *xe, int32_t m, int32_t kk, int32_t count, void *dst, ptrdiff_t ds,
                 const void *a, ptrdiff_t as, const void *const *vectors, int32_t shift) {
  PackedList pl(xe, m, kk, count, vectors, (int32_t)sizeof(typename P::Src));
  mvn_general_run<P>(m, kk, count, dst, ds, a, as, VecList(pl.list, count), shift);
  pl.release();
}

// Row index and column index of the cells a pack word points at.
inline int32_t pack_n(SornDimPack pack) { return (int32_t)(pack & 15); }

}  // namespace sorn::matrix

// The parameters of the shape helpers (SornMulShapeProc) and of the list
// helpers (SornMulListProc), for their definitions.
#define SORN_MUL_SHAPE_ARGS                                                                      \
  int32_t m, int32_t k, int32_t n, void *dst, int32_t dstStride, const void *a, int32_t aStride, \
      const void *b, int32_t bStride, int32_t shift
#define SORN_MUL_LIST_ARGS                                                          \
  int32_t m, int32_t k, int32_t count, void *dst, int32_t dstStride, const void *a, \
      int32_t aStride, const void *const *vectors, int32_t shift

// ------------------------------------------------------------------ entry helpers

namespace sorn::matrix {

// A source may have the destination's depth or a single plane; only the
// first plane takes part either way.
inline bool depth_ok(const SornArray *s, const SornArray *dst) {
  return s->dims[0] == dst->dims[0] || s->dims[0] == 1;
}

// What both product dispatchers do before they call: the channel-format
// nibble into the flags, a refusal of more than one channel, and the kernel
// of the types, or the status of their refusal in *status.
template <class K>
K product_kernel(K (*lookup)(uint32_t, uint32_t, uint32_t, SornStatus *), SornFlags *flags,
                 int32_t chword, uint32_t dstType, uint32_t type1, uint32_t type2,
                 SornStatus *status) {
  *flags = sorn::with_channel_format(*flags, (uint32_t)chword);
  if (SORN_CHANNELS(chword) > 1) return sorn::refusal<K>(SORN_ENOTSUP, status);
  return lookup(dstType, type1, type2, status);
}

// A box with no plane, row or column.
inline bool box_empty(const SornVolume &v) { return sorn_volume__empty(3, v.size) != 0; }

}  // namespace sorn::matrix

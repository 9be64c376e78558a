// What the dispatchers of the two-source families share: with two arrays,
// the order of the sources, folding channels into rows and the choice
// between the direct kernel and the tile path; with a constant, the
// classification of the constants into the narrowest type that holds them
// all, fitted to the source and made a fill vector once, so that a kernel of
// (destination, source, constant type) runs over the rows.
#pragma once

#include <sorn.h>

#include <cmath>
#include <utility>

#include "arith/binary_kernel.h"
#include "core/entry.h"

namespace sorn::arith {

using Arith2Lookup = SornArith2Kernel (*)(uint32_t, uint32_t, uint32_t, SornStatus *);
using Arith2cLookup = SornArith2cKernel (*)(uint32_t, uint32_t, uint32_t, SornStatus *);

// Puts the wider source first, and a float source before an integer one of
// the same size. Each exchange is done once: a second pass could undo the
// first for pairs such as s64 and f32, which then fail in the lookup anyway.
inline bool wants_exchange_by_size(uint32_t atype, uint32_t btype) {
  return elem_size(btype) > elem_size(atype);
}
inline bool wants_exchange_by_float(uint32_t atype, uint32_t btype) {
  return btype == SORN_F32 && atype != SORN_F32;
}

// The vectors a dispatcher hands its kernel, its own copies: dims and K
// stride vectors, with the channels of the last cell (w & 15 of them) folded
// into the row, so that the kernels run along each row over cols * c
// adjacent elements.
template <int K> struct Folded {
  int32_t n;
  int32_t dims[4];
  int32_t strides[K][4];
};

// False when the packing word has no row to walk (fewer than 2 cells, or
// more than the 4 there are).
template <int K>
inline bool fold_channels(SornDimPack pack, const int32_t *dims, const int32_t *const (&strides)[K],
                          Folded<K> *f) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4) return false;
  f->n = n;
  for (int32_t i = 0; i < n; ++i) {
    f->dims[i] = dims[i];
    for (int k = 0; k < K; ++k) f->strides[k][i] = strides[k][i];
  }
  const int32_t c = dims[n - 1] & 15;
  if (c > 1) {
    f->dims[n - 1] = 1;
    f->dims[n - 2] *= c;
    for (int k = 0; k < K; ++k) f->strides[k][n - 2] /= c;
  }
  return true;
}

inline SornStatus dispatch_arrays(Arith2Lookup lookup, SornXE *xe, SornFlags flags,
                                  SornDimPack pack, const int32_t *dims, uint32_t dsttype,
                                  void *dstptr, const int32_t *dststrides, uint32_t atype,
                                  const void *aptr, const int32_t *astrides, uint32_t btype,
                                  const void *bptr, const int32_t *bstrides, int32_t sf,
                                  uint32_t extra) {
  Folded<3> f;
  if (!fold_channels<3>(pack, dims, {dststrides, astrides, bstrides}, &f)) return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)dims[f.n - 1]);

  const int32_t dsize = elem_size(dsttype), asize = elem_size(atype);
  if (dsize >= asize || (dsttype == SORN_U8 && atype == SORN_S16)) {
    SornStatus st = SORN_OK;
    SornArith2Kernel k = lookup(dsttype, atype, btype, &st);
    if (st != SORN_OK) return st;
    return k(xe, flags, f.n, f.dims, dstptr, f.strides[0], aptr, f.strides[1], bptr, f.strides[2],
             sf, extra);
  }

  // A destination narrower than the first source: the operation is formed
  // in the source's type in a scratch tile and saturated into the
  // destination by the conversion, which this build leaves out. So after
  // refusing what the tile path refuses, the answer is "not supported", and
  // nothing is written.
  if (asize == 0 || dsize >= asize) return SORN_EINVAL;
  if (!known_type(dsttype)) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  (void)lookup(atype, atype, btype, &st);
  if (st != SORN_OK) return st;
  return SORN_ENOTSUP;
}

// The dispatcher of a family of two arrays: the sources put in the order
// the kernels expect, by the two exchanges above, each done once. An odd
// number of exchanges hands the call to `reversed`, the family that gives
// the same result with the sources exchanged: the family itself for
// addition, the reversed difference for subtraction. Decided once, a pair
// that both rules want first (an 8-byte source against an f32) cannot pass
// between the two for ever.
inline SornStatus dispatch_pair(Arith2Lookup forward, Arith2Lookup reversed, SornXE *xe,
                                SornFlags flags, SornDimPack pack, const int32_t *dims,
                                uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                                uint32_t atype, const void *aptr, const int32_t *astrides,
                                uint32_t btype, const void *bptr, const int32_t *bstrides,
                                int32_t sf, uint32_t extra) {
  bool exchanged = false;
  if (wants_exchange_by_size(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
    exchanged = !exchanged;
  }
  if (wants_exchange_by_float(atype, btype)) {
    std::swap(atype, btype);
    std::swap(aptr, bptr);
    std::swap(astrides, bstrides);
    exchanged = !exchanged;
  }
  return dispatch_arrays(exchanged ? reversed : forward, xe, flags, pack, dims, dsttype, dstptr,
                         dststrides, atype, aptr, astrides, btype, bptr, bstrides, sf, extra);
}

/* ---------------- constants ---------------- */

// An integer constant too large for the 24-bit mantissa of an f32: an s32
// with bit 4 set.
constexpr uint32_t kBigInt = 27;

inline uint32_t classify_constant(double c) {
  const int64_t i = sorn::trunc_i64(c);
  const int32_t i32 = (int32_t)(uint32_t)(uint64_t)i;
  // The tolerance of the library's float comparisons; NaN compares false
  // and goes on as the integer 0.
  if (std::fabs(c - (double)i32) > 1.1920928955078125e-7) return SORN_F32;
  const int32_t neg = (int32_t)(0u - (uint32_t)i32);
  if ((i32 > neg ? i32 : neg) > 0x1000000) return kBigInt;
  if ((uint64_t)(i + 32768) > 65535u) return SORN_S32;
  if ((uint64_t)i < 256u) return SORN_U8;
  return SORN_S16;
}

// One type for all constants: a larger type replaces a smaller one; at equal
// size the flags decide between f32 and f64.
inline uint32_t constant_class(const double *cvec, int32_t nchan, SornFlags flags) {
  uint32_t t = SORN_U8;
  const bool relaxed = (flags & SORN_F_CONST_CLASS) != 0;
  for (int32_t k = 0; k < nchan; ++k) {
    const uint32_t c = classify_constant(cvec[k]);
    const int32_t cs = elem_size(c), ts = elem_size(t);
    if (cs > ts) {
      t = c;
    } else if (cs == ts && c != t) {
      if (!relaxed) {
        if (t == SORN_S32)
          t = c;
        else if (c == kBigInt || c == SORN_F32)
          t = SORN_F64;
      } else if (c == SORN_F32) {
        t = SORN_F32;
      }
    }
  }
  if (relaxed && t == kBigInt) t = SORN_S32;
  return t;
}

// The constant type fitted to the source and the destination.
inline uint32_t fit_constant(uint32_t t, uint32_t atype, uint32_t dsttype, SornFlags flags) {
  const int32_t ts = elem_size(t), as = elem_size(atype);
  if (ts < as)
    t = atype;
  else if (ts == as && t != atype)
    t = t == SORN_S32 ? SORN_F32 : SORN_F64;
  if (atype != SORN_F32 && t != SORN_S32 && t != atype &&
      !(dsttype == SORN_F32 && sorn::float_type(t)))
    t = SORN_S32;
  if ((flags & SORN_F_CONST_WIDE) && t == SORN_F32 && atype == SORN_F32) {
    const uint32_t cls = dsttype & 7u;
    if (cls != 1u && cls != 2u) t = SORN_F64;
  }
  return t;
}

inline bool constant_direct(uint32_t t, uint32_t atype, uint32_t dsttype) {
  const int32_t ds = elem_size(dsttype), as = elem_size(atype);
  if (t == atype && (ds >= as || (dsttype == SORN_U8 && atype == SORN_S16))) return true;
  if (t == SORN_S32 && atype == SORN_U8) return true;
  if (t == SORN_S32 && ((dsttype & 7u) == 3u || (dsttype & 7u) == 5u)) return true;
  return t == SORN_F64 && ds == as;
}

inline SornStatus dispatch_constant(Arith2cLookup lookup, SornXE *xe, SornFlags flags,
                                    SornDimPack pack, const int32_t *dims, uint32_t dsttype,
                                    void *dstptr, const int32_t *dststrides, uint32_t atype,
                                    const void *aptr, const int32_t *astrides, const double *cvec,
                                    int32_t sf, uint32_t extra) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2) return SORN_EINVAL;
  const int32_t w = dims[n - 1];
  flags = sorn::with_channel_format(flags, (uint32_t)w);
  const int32_t nchan = w;
  uint32_t t = nchan >= 1 ? constant_class(cvec, nchan, flags) : SORN_U8;
  t = fit_constant(t, atype, dsttype, flags);

  alignas(8) uint8_t block[64];
  const SornStatus st = sorn_mkifillvalv64(t, block, cvec, nchan);
  if (st != SORN_OK) return st;

  if (constant_direct(t, atype, dsttype)) {
    SornStatus kst = SORN_OK;
    SornArith2cKernel k = lookup(dsttype, atype, t, &kst);
    if (kst != SORN_OK) return kst;
    return k(xe, flags, n, dims, dstptr, dststrides, aptr, astrides, block, sf, extra);
  }

  // The tile paths: the source converted to s32 or f32 first for an f32
  // destination, the operation formed in a wider type and saturated into
  // the destination otherwise. Both end in the saturating conversion, which
  // this build leaves out: after what they refuse, the answer is "not
  // supported", and nothing is written.
  if (!known_type(dsttype)) return SORN_EINVAL;
  SornStatus kst = SORN_OK;
  if (dsttype == SORN_F32) {
    (void)lookup(SORN_F32, t == SORN_F32 ? SORN_F32 : SORN_S32, t, &kst);
  } else {
    if (elem_size(t) <= elem_size(dsttype)) return SORN_EINVAL;
    (void)lookup(t == SORN_F32 ? SORN_F32 : SORN_S32, atype, t, &kst);
  }
  if (kst != SORN_OK) return kst;
  return SORN_ENOTSUP;
}

}  // namespace sorn::arith

// The exported dispatchers: of two arrays, with the lookups of the family
// and of its reversed form; of an array and constants, with its lookup.
#define SORN_ARRAYS_DISPATCHER(name, forward, reversed)                                         \
  SornStatus name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,           \
                  uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,    \
                  const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,  \
                  const int32_t *bstrides, int32_t sf, uint32_t extra) {                        \
    return ::sorn::arith::dispatch_pair(&forward, &reversed, xe, flags, pack, dims, dsttype,    \
                                        dstptr, dststrides, atype, aptr, astrides, btype, bptr, \
                                        bstrides, sf, extra);                                   \
  }
#define SORN_CONSTANT_DISPATCHER(name, lookup)                                                   \
  SornStatus name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,            \
                  uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,     \
                  const void *aptr, const int32_t *astrides, const double *cvec, int32_t sf,     \
                  uint32_t extra) {                                                              \
    return ::sorn::arith::dispatch_constant(&lookup, xe, flags, pack, dims, dsttype, dstptr,     \
                                            dststrides, atype, aptr, astrides, cvec, sf, extra); \
  }

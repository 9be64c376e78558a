// The dispatchers of division: two arrays of one type, or an array and one
// constant per channel, truncated or rounded, in both orders. They are
// short: no order of sources, no tile path, no classification of the
// constants, which the kernels take as f64 and limit to their type once.
#include <sorn.h>

#include <utility>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

/* ---------------- kernel lookups ---------------- */

// Rounding means nothing to f32 quotients: the rounded lookups name the
// truncating f32 kernels.
namespace {

#define DIV_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__div_c1_, d, a, b)
#define DIVR_ROW(d, a, b) SORN_TRIPLE_ROW(sorna__divr_c1_, d, a, b)
#define DIVC_ROW(d, a) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__divC_c, d, a)
#define RDIVC_ROW(d, a) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__rdivC_c, d, a)
#define DIVRC_ROW(d, a) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__divrC_c, d, a)
#define RDIVRC_ROW(d, a) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__rdivrC_c, d, a)
constexpr sorn::KernelRow<SornArith2Kernel> kDiv[] = {SORN_DIV_TRIPLES(DIV_ROW)};
constexpr sorn::KernelRow<SornArith2Kernel> kDivr[] = {SORN_DIVR_OWN_TRIPLES(DIVR_ROW)
                                                           DIV_ROW(f32, f32, f32)};
constexpr sorn::KernelRow<SornDivCKernel> kDivC[] = {SORN_DIVC_PAIRS(DIVC_ROW)};
constexpr sorn::KernelRow<SornDivCKernel> kRDivC[] = {SORN_DIVC_PAIRS(RDIVC_ROW)};
constexpr sorn::KernelRow<SornDivCKernel> kDivrC[] = {SORN_DIVRC_OWN_PAIRS(DIVRC_ROW)
                                                          DIVC_ROW(f32, f32)};
constexpr sorn::KernelRow<SornDivCKernel> kRDivrC[] = {SORN_DIVRC_OWN_PAIRS(RDIVRC_ROW)
                                                           RDIVC_ROW(f32, f32)};

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__adivfun_imp, SornArith2Kernel, kDiv)
SORN_TRIPLE_LOOKUP(sorna__adivrfun_imp, SornArith2Kernel, kDivr)
SORN_COUNT_LOOKUP(sorna__adivcfun_imp, SornDivCKernel, kDivC)
SORN_COUNT_LOOKUP(sorna__ardivcfun_imp, SornDivCKernel, kRDivC)
SORN_COUNT_LOOKUP(sorna__adivrcfun_imp, SornDivCKernel, kDivrC)
SORN_COUNT_LOOKUP(sorna__ardivrcfun_imp, SornDivCKernel, kRDivrC)

/* ---------------- dispatchers ---------------- */

namespace {

// The flags nibble, the fold, and the kernel once.
SornStatus divide_arrays(Arith2Lookup lookup, SornXE *xe, SornFlags flags, SornDimPack pack,
                         const int32_t *dims, uint32_t dsttype, void *dstptr,
                         const int32_t *dststrides, uint32_t atype, const void *aptr,
                         const int32_t *astrides, uint32_t btype, const void *bptr,
                         const int32_t *bstrides, int32_t sf, uint32_t extra) {
  Folded<3> f;
  if (!fold_channels<3>(pack, dims, {dststrides, astrides, bstrides}, &f)) return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)dims[f.n - 1]);
  SornStatus st = SORN_OK;
  const SornArith2Kernel k = lookup(dsttype, atype, btype, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, f.n, f.dims, dstptr, f.strides[0], aptr, f.strides[1], bptr, f.strides[2], sf,
           extra);
}

// The flags nibble and the kernel of the channel count, once; the channels
// stay unfolded, the kernel takes one constant per channel along the row.
SornStatus divide_constant(SornDivCKernel (*lookup)(uint32_t, uint32_t, int32_t, SornStatus *),
                           SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                           uint32_t atype, const void *aptr, const int32_t *astrides,
                           const double *cvec, int32_t sf, uint32_t extra) {
  const int32_t n = constant_cells(pack, dims, &flags);
  if (n == 0) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  const SornDivCKernel k = lookup(dsttype, atype, dims[n - 1] & 15, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, n, dims, dstptr, dststrides, aptr, astrides, cvec, sf, extra, 0);
}

}  // namespace

// The reversed forms exchange the operands, with their types and strides,
// and divide.
#define SORN_DIV_DISPATCHERS(op, lookup, lookupc, lookuprc)                                        \
  SornStatus sorna__##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,       \
                         uint32_t dsttype, void *dstptr, const int32_t *dststrides,                \
                         uint32_t atype, const void *aptr, const int32_t *astrides,                \
                         uint32_t btype, const void *bptr, const int32_t *bstrides, int32_t sf,    \
                         uint32_t extra) {                                                         \
    return divide_arrays(&lookup, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, \
                         astrides, btype, bptr, bstrides, sf, extra);                              \
  }                                                                                                \
  SornStatus sorna__r##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,      \
                          uint32_t dsttype, void *dstptr, const int32_t *dststrides,               \
                          uint32_t atype, const void *aptr, const int32_t *astrides,               \
                          uint32_t btype, const void *bptr, const int32_t *bstrides, int32_t sf,   \
                          uint32_t extra) {                                                        \
    return sorna__##op(xe, flags, pack, dims, dsttype, dstptr, dststrides, btype, bptr, bstrides,  \
                       atype, aptr, astrides, sf, extra);                                          \
  }                                                                                                \
  SornStatus sorna__##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,    \
                            uint32_t dsttype, void *dstptr, const int32_t *dststrides,             \
                            uint32_t atype, const void *aptr, const int32_t *astrides,             \
                            const double *cvec, int32_t sf, uint32_t extra) {                      \
    return divide_constant(&lookupc, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,    \
                           aptr, astrides, cvec, sf, extra);                                       \
  }                                                                                                \
  SornStatus sorna__r##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                             uint32_t dsttype, void *dstptr, const int32_t *dststrides,            \
                             uint32_t atype, const void *aptr, const int32_t *astrides,            \
                             const double *cvec, int32_t sf, uint32_t extra) {                     \
    return divide_constant(&lookuprc, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,   \
                           aptr, astrides, cvec, sf, extra);                                       \
  }
SORN_DIV_DISPATCHERS(div, sorna__adivfun_imp, sorna__adivcfun_imp, sorna__ardivcfun_imp)
SORN_DIV_DISPATCHERS(divr, sorna__adivrfun_imp, sorna__adivrcfun_imp, sorna__ardivrcfun_imp)

// The dispatchers of negation and saturating negation, with their lookups:
// the flags nibble, the channels folded into the row, the kernel of the
// type pair called once.
#include <sorn.h>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

namespace {

// The saturating lookup holds the kernels of its own where saturation can
// matter and names the plain kernels for the other keys; u8 from u8 has no
// key.
#define NEG_ROW(d, a) SORN_PAIR_ROW(sorna__neg_c1_, d, a)
#define NEGQ_ROW(d, a) SORN_PAIR_ROW(sorna__negq_c1_, d, a)
constexpr sorn::KernelRow<SornArith1Kernel> kNeg[] = {SORN_NEG_PAIRS(NEG_ROW)};
constexpr sorn::KernelRow<SornArith1Kernel> kNegq[] = {SORN_NEGQ_OWN_PAIRS(NEGQ_ROW)
                                                           SORN_NEGQ_PLAIN_PAIRS(NEG_ROW)};

SornStatus negate(SornArith1Kernel (*lookup)(uint32_t, uint32_t, SornStatus *), SornXE *xe,
                  SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t dsttype,
                  void *dstptr, const int32_t *dststrides, uint32_t atype, const void *aptr,
                  const int32_t *astrides, int32_t sf, uint32_t extra) {
  Folded<2> f;
  if (!fold_channels<2>(pack, dims, {dststrides, astrides}, &f)) return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)dims[f.n - 1]);
  SornStatus st = SORN_OK;
  const SornArith1Kernel k = lookup(dsttype, atype, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, f.n, f.dims, dstptr, f.strides[0], aptr, f.strides[1], sf, extra);
}

}  // namespace

SORN_PAIR_LOOKUP(sorna__anegfun_imp, SornArith1Kernel, kNeg)
SORN_PAIR_LOOKUP(sorna__anegqfun_imp, SornArith1Kernel, kNegq)

SornStatus sorna__neg(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, int32_t sf, uint32_t extra) {
  return negate(&sorna__anegfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,
                aptr, astrides, sf, extra);
}

SornStatus sorna__negq(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                       const void *aptr, const int32_t *astrides, int32_t sf, uint32_t extra) {
  return negate(&sorna__anegqfun_imp, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,
                aptr, astrides, sf, extra);
}

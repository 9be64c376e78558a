// Conversion between element types: the lookups of the t and v kernels and
// the switches by types that the other families call.
#include <sorn.h>

#include "core/dispatch.h"

namespace {

// Keys (full destination code << 4) | full source code: only exact pairs
// match.
#define TCVT_ROW(d, s) SORN_PAIR_ROW(__sorna__tconvert_, d, s)
// Like types are a copy of whole pixels.
#define TCVT_COPY_ROW(t) SORN_KERNEL_ROW(sorna__copy, SORN_TYPECODE(t), SORN_TYPECODE(t))
constexpr sorn::KernelRow<SornTcvtKernel> kTcvt[] = {SORN_TCVT_PAIRS(TCVT_ROW) TCVT_COPY_ROW(
    u8) TCVT_COPY_ROW(s16) TCVT_COPY_ROW(s32) TCVT_COPY_ROW(f32)};

}  // namespace

SORN_PAIR_LOOKUP(sorna__tcvtfun_imp, SornTcvtKernel, kTcvt)

SornStatus __sorna__swtconvert(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides) {
  SornStatus st = SORN_OK;
  const SornTcvtKernel k = sorna__tcvtfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  // The kernels read the count of cells from the packing word's low bits.
  return k(xe, flags, (SornDimPack)(uint32_t)n, dims, dsttype, dst, dststrides, src, srcstrides);
}

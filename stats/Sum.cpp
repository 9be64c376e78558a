// Sums of all elements of a region, one double per channel: the entries,
// the type-generic layer, the dispatcher and its kernel lookups. Kernels in
// __sum.cpp.
#include <sorn.h>

#include "stats/stat_layers.h"

using namespace sorn::stats;

/* ---------------- dispatch ---------------- */

namespace {

#define SUM_ROW(c, t) SORN_KERNEL_ROW(sorna__sum_c##c##_##t, c, SORN_TYPECODE(t))
#define FASTSUM_ROW(c, t) SORN_KERNEL_ROW(sorna__fastsum_c##c##_##t, c, SORN_TYPECODE(t))
#define SUM_XM_ROW(c, t) SORN_KERNEL_ROW(sorna__sum_xm_c##c##_##t, c, SORN_TYPECODE(t))
#define FASTSUM_XM_ROW(c, t) SORN_KERNEL_ROW(sorna__fastsum_xm_c##c##_##t, c, SORN_TYPECODE(t))
#define SUM_ROWS(t) SORN_STATS_CHANNELS(SUM_ROW, t)
#define FASTSUM_ROWS(t) SORN_STATS_CHANNELS(FASTSUM_ROW, t)
#define SUM_XM_ROWS(t) SORN_STATS_CHANNELS(SUM_XM_ROW, t)
#define FASTSUM_XM_ROWS(t) SORN_STATS_CHANNELS(FASTSUM_XM_ROW, t)
constexpr sorn::KernelRow<SornSumKernel> kSum[] = {SORN_SUM_TYPES(SUM_ROWS)};
constexpr sorn::KernelRow<SornSumKernel> kFastSum[] = {SORN_SUM_TYPES(FASTSUM_ROWS)};
constexpr sorn::KernelRow<SornSumXmKernel> kSumXm[] = {SORN_SUM_TYPES(SUM_XM_ROWS)};
constexpr sorn::KernelRow<SornSumXmKernel> kFastSumXm[] = {SORN_SUM_TYPES(FASTSUM_XM_ROWS)};

// Either speed bit asks for the narrow accumulators.
bool fast(SornFlags flags) { return (flags & (SORN_F_SUM_FAST | SORN_F_SUM_FAST2)) != 0; }

}  // namespace

SornSumKernel sorna__sumfun_imp(SornFlags flags, uint32_t chword, SornElemType type,
                                SornStatus *status) {
  const SornStatus missing = sorn::refusal_for(type);
  return fast(flags) ? sorn::lookup_channels(kFastSum, chword, type, missing, status)
                     : sorn::lookup_channels(kSum, chword, type, missing, status);
}

SornSumXmKernel sorna__sumfunxm_imp(SornFlags flags, uint32_t chword, SornElemType type,
                                    SornStatus *status) {
  const SornStatus missing = sorn::refusal_for(type);
  return fast(flags) ? sorn::lookup_channels(kFastSumXm, chword, type, missing, status)
                     : sorn::lookup_channels(kSumXm, chword, type, missing, status);
}

SornStatus sorna__sum(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, const void *src, const int32_t *strides, double *sums) {
  return dispatch(
      xe, flags, pack, dims, type, src, strides, nullptr, nullptr, sums,
      [type](SornFlags f, uint32_t c, SornStatus *st) { return sorna__sumfun_imp(f, c, type, st); },
      settled<double>);
}

SornStatus sorna__sum_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *src, const int32_t *strides, const void *mask,
                         const int32_t *mstrides, double *sums) {
  if (mask == nullptr) {
    // No mask selects every pixel; a counting caller gets them all.
    SornStatus st = sorna__sum(xe, flags, pack, dims, type, src, strides, sums);
    if (st < 0 || !(flags & SORN_F_SUM_COUNT)) return st;
    const sorn::Inner s = sorn::inner3(pack, dims, strides);
    return (SornStatus)sorn_volume__capacity(s.n - 1, s.dims);
  }
  return dispatch(
      xe, flags, pack, dims, type, src, strides, mask, mstrides, sums,
      [type](SornFlags f, uint32_t c, SornStatus *st) {
        return sorna__sumfunxm_imp(f, c, type, st);
      },
      settled<double>);
}

/* ---------------- type-generic layer and slice forms ---------------- */

SORN_STATS_LAYER2(sum, double)

/* ---------------- entries ---------------- */

SORN_STATS_ENTRIES(Sum, sum, SORN_TAG_SUM, SORN_TAG_SUMX)

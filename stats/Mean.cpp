// Means: a sum divided by the pixel count, or under a mask by the count of
// the selected pixels, which the masked form also answers.
#include <sorn.h>

#include "stats/stat_layers.h"

using namespace sorn::stats;

/* ---------------- dispatch ---------------- */

SornStatus sorna__mean(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, const void *src, const int32_t *strides, double *means) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides);
  double p = (double)sorn_volume__capacity(s.n - 1, s.dims);
  SornStatus st = sorna__sum(xe, flags, pack, dims, type, src, strides, means);
  if (st < 0) return st;
  int32_t count = sorn::channels_of(s.dims[s.n - 1]);
  for (int32_t c = 0; c < count; ++c) means[c] /= p;
  return st;
}

SornStatus sorna__mean_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, const void *src, const int32_t *strides, const void *mask,
                          const int32_t *mstrides, double *means) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides);
  SornStatus st = sorna__sum_xm(xe, flags | SORN_F_SUM_COUNT, pack, dims, type, src, strides, mask,
                                mstrides, means);
  // A count of 0 leaves the means at 0 and is the answer: callers take only
  // negative answers for errors.
  if (st >= 1) {
    int32_t count = sorn::channels_of(s.dims[s.n - 1]);
    for (int32_t c = 0; c < count; ++c) means[c] /= (double)st;
  }
  return st;
}

/* ---------------- type-generic layer and slice forms ---------------- */

SORN_STATS_LAYER2(mean, double)

/* ---------------- entries ---------------- */

SORN_STATS_ENTRIES(Mean, mean, SORN_TAG_MEAN, SORN_TAG_MEAX)

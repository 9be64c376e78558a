// Means: a sum divided by the pixel count, or under a mask by the count of
// the selected pixels, which the masked form also answers.
#include "stats_common.h"

using namespace sorn_stats;

SornStatus sorna__mean(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, const void *src, const int32_t *strides, double *means) {
  Shape s = inner3(pack, dims, strides);
  double p = (double)sorn_volume__capacity(s.n - 1, s.dims);
  SornStatus st = sorna__sum(xe, flags, pack, dims, type, src, strides, means);
  if (st < 0) return st;
  int32_t count = channels_of((uint32_t)s.dims[s.n - 1]);
  for (int32_t c = 0; c < count; ++c) means[c] /= p;
  return st;
}

SornStatus sorna__mean_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, const void *src, const int32_t *strides,
                          const void *mask, const int32_t *mstrides, double *means) {
  Shape s = inner3(pack, dims, strides);
  SornStatus st = sorna__sum_xm(xe, flags | SORN_F_SUM_COUNT, pack, dims, type, src, strides,
                                mask, mstrides, means);
  // A count of 0 leaves the means at 0 and is the answer: callers take only
  // negative answers for errors.
  if (st >= 1) {
    int32_t count = channels_of((uint32_t)s.dims[s.n - 1]);
    for (int32_t c = 0; c < count; ++c) means[c] /= (double)st;
  }
  return st;
}

SornStatus sorna_mean(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t type, const void *base, const int32_t *origin,
                     const int32_t *strides, double *means) {
  return from_origin<double, sorna__mean>(xe, flags, pack, dims, type, base, origin, strides, means);
}

SornStatus sorna_mean_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, const void *base, const int32_t *origin,
                        const int32_t *strides, uint32_t mtype, const void *mbase,
                        const int32_t *morigin, const int32_t *mstrides, double *means) {
  return from_origin_xm<double, sorna__mean_xm>(xe, flags, pack, dims, type, base, origin, strides, mtype,
                                       mbase, morigin, mstrides, means);
}

SornStatus SornTGAmean(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                      uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0) {
  return slice_of<double, sorna_mean>(xe, flags, data, pack, dims, type0, base0, origin0, strides0);
}

SornStatus SornTGAmeanEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                        int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                        int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                        int32_t *strides1) {
  return slice_of_xm<double, sorna_mean_xm>(xe, flags, data, pack, dims, type0, base0, origin0,
                                             strides0, type1, base1, origin1, strides1);
}

SornStatus SornMean(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *roi,
                   double *means) {
  return image_entry<double, sorna_mean>(xe, flags, src, roi, SORN_TAG_MEAN,
                                          (SornSliceProc)(void (*)(void))SornTGAmean, means);
}

SornStatus SornMeanEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                     const SornVolume *roi, const SornVolume *maskSite, double *means) {
  if (mask == nullptr) return SornMean(xe, flags, src, roi, means);
  return masked_entry<double, sorna_mean_xm>(xe, flags, src, mask, roi, maskSite, SORN_TAG_MEAX,
                                              (SornSliceProc)(void (*)(void))SornTGAmeanEx, means);
}

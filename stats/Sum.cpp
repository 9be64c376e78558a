// Sums of all elements of a region, one double per channel: the entries,
// the type-generic layer and the dispatcher. Kernels in sum_kernels.cpp.
#include "stats_common.h"

using namespace sorn_stats;

SornStatus sorna__sum(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, const void *src, const int32_t *strides, double *sums) {
  Shape s = inner3(pack, dims, strides);
  uint32_t w = (uint32_t)s.dims[s.n - 1];
  flags = fill_format(flags, w);
  // A refused key is answered with its status: the stub the lookup gives
  // for it takes no arguments and is never called through the kernel type.
  SornStatus st = SORN_OK;
  SornSumKernel k = sorna__sumfun_imp(flags, w & 15u, type, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, s.n, s.dims, src, s.strides, sums);
}

SornStatus sorna__sum_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *src, const int32_t *strides,
                         const void *mask, const int32_t *mstrides, double *sums) {
  Shape s = inner3(pack, dims, strides);
  if (mask == nullptr) {
    // No mask selects every pixel; a counting caller gets them all.
    SornStatus st = sorna__sum(xe, flags, pack, dims, type, src, strides, sums);
    if (st < 0 || !(flags & SORN_F_SUM_COUNT)) return st;
    return (SornStatus)sorn_volume__capacity(s.n - 1, s.dims);
  }
  Shape m = inner3(pack, dims, mstrides);
  uint32_t w = (uint32_t)s.dims[s.n - 1];
  flags = fill_format(flags, w);
  SornStatus st = SORN_OK;
  SornSumXmKernel k = sorna__sumfunxm_imp(flags, w & 15u, type, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, s.n, s.dims, src, s.strides, (const uint8_t *)mask, m.strides, sums);
}

SornStatus sorna_sum(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t type, const void *base, const int32_t *origin,
                     const int32_t *strides, double *sums) {
  return from_origin<double, sorna__sum>(xe, flags, pack, dims, type, base, origin, strides, sums);
}

SornStatus sorna_sum_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, const void *base, const int32_t *origin,
                        const int32_t *strides, uint32_t mtype, const void *mbase,
                        const int32_t *morigin, const int32_t *mstrides, double *sums) {
  return from_origin_xm<double, sorna__sum_xm>(xe, flags, pack, dims, type, base, origin, strides, mtype,
                                       mbase, morigin, mstrides, sums);
}

SornStatus SornTGAsum(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                      uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0) {
  return slice_of<double, sorna_sum>(xe, flags, data, pack, dims, type0, base0, origin0, strides0);
}

SornStatus SornTGAsumEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                        int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                        int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                        int32_t *strides1) {
  return slice_of_xm<double, sorna_sum_xm>(xe, flags, data, pack, dims, type0, base0, origin0,
                                             strides0, type1, base1, origin1, strides1);
}

SornStatus SornSum(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *roi,
                   double *sums) {
  return image_entry<double, sorna_sum>(xe, flags, src, roi, SORN_TAG_SUM,
                                          (SornSliceProc)(void (*)(void))SornTGAsum, sums);
}

SornStatus SornSumEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                     const SornVolume *roi, const SornVolume *maskSite, double *sums) {
  if (mask == nullptr) return SornSum(xe, flags, src, roi, sums);
  return masked_entry<double, sorna_sum_xm>(xe, flags, src, mask, roi, maskSite, SORN_TAG_SUMX,
                                              (SornSliceProc)(void (*)(void))SornTGAsumEx, sums);
}

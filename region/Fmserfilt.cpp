// The filter record of the f form: its parameters, the results of its two
// passes and the regions picked from them.
#include <sorn.h>

#include <cstring>

#include "region/stable_regions.h"

extern "C" {

SornFMSERFilter *__sorn_fmserfilt__$ex(SornFMSERFilter *f, SornFWTSRES *res1, SornFWTSRES *res2,
                                       int32_t delta, int32_t mode, int32_t restore,
                                       int32_t connectivity, int32_t shift, const uint32_t *seed,
                                       double minarea, double maxarea, double maxvariation,
                                       double mindiversity) {
  // Everything the parameters leave, the embedded results included, starts
  // at zero: a result with no stack is opened by the first pass that uses it.
  std::memset(f, 0, sizeof *f);
  sorn::region::store_params(f, delta, mode, restore, connectivity, shift, seed, minarea, maxarea,
                             maxvariation, mindiversity);
  f->res1 = res1;
  f->res2 = res2;
  return f;
}

SornFMSERFilter *__sorn_fmserfilt__$fwtsres(SornFMSERFilter *f, SornFWTSRES *res1,
                                            SornFWTSRES *res2) {
  return __sorn_fmserfilt__$ex(f, res1, res2, SORN_MSER_DEFAULT_PARAMS);
}

SornFMSERFilter *__sorn_fmserfilt__$(SornFMSERFilter *f) {
  return __sorn_fmserfilt__$fwtsres(f, nullptr, nullptr);
}

SornFMSERFilter *sorn_fmserf_destroy(SornFMSERFilter *f) {
  f->count1 = 0;
  f->count2 = 0;
  f->list1 = nullptr;
  f->list2 = nullptr;
  sorn::region::drop_regions(&f->regions);
  // Only the embedded results are the filter's; one from outside is the
  // caller's to finish.
  if (f->res1 == &f->res1own) SornFWTSRESfini(&f->res1own);
  if (f->res2 == &f->res2own) SornFWTSRESfini(&f->res2own);
  f->res1 = nullptr;
  f->res2 = nullptr;
  return f;
}

SornFMSERFilter *sorn_fmserf_setimvol_$2d(SornFMSERFilter *f, int32_t rows, int32_t columns,
                                          int32_t rowstride) {
  f->imdims[0] = 1;
  f->imdims[1] = (uint32_t)rows;
  f->imdims[2] = (uint32_t)columns;
  f->imdims[3] = 1;
  f->imstrides[0] = (uint32_t)rows * (uint32_t)rowstride;
  f->imstrides[1] = (uint32_t)rowstride;
  f->imstrides[2] = 1;
  f->imstrides[3] = 1;
  return f;
}

SornFMSERFilter *sorn_fmserf_setimvol(SornFMSERFilter *f, SornDimPack code, const int32_t *dims,
                                      const int32_t *strides) {
  const int32_t n = (int32_t)(code & 15);
  if (n > 2) return sorn_fmserf_setimvol_$2d(f, dims[n - 3], dims[n - 2], strides[n - 3]);
  // Below rank 3 an image is one row; a rank below 2 has no column cell.
  return sorn_fmserf_setimvol_$2d(f, 1, n == 2 ? dims[0] : 1, 0);
}

}  // extern "C"

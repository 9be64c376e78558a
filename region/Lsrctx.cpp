// The region layout context: features of a region and the image of a run.
#include <sorn.h>

extern "C" {

SornWTSLSC *SornWTSLSCsetimvol2D(SornWTSLSC *lsc, int32_t rows, int32_t columns,
                                 int32_t rowstride) {
  lsc->dims[0] = 1;
  lsc->dims[1] = static_cast<uint32_t>(rows);
  lsc->dims[2] = static_cast<uint32_t>(columns);
  lsc->dims[3] = 1;
  lsc->strides[0] = static_cast<uint32_t>(rows) * static_cast<uint32_t>(rowstride);
  lsc->strides[1] = static_cast<uint32_t>(rowstride);
  lsc->strides[2] = 1;
  lsc->strides[3] = 1;
  return lsc;
}

SornWTSLSC *SornWTSLSCsetimvol(SornWTSLSC *lsc, SornDimPack code, const int32_t *dims,
                               const int32_t *strides) {
  int32_t n = static_cast<int32_t>(code & 15);
  if (n > 2) return SornWTSLSCsetimvol2D(lsc, dims[n - 3], dims[n - 2], strides[n - 3]);
  // Below rank 3 an image is one row; a rank below 2 has no column cell.
  return SornWTSLSCsetimvol2D(lsc, 1, n == 2 ? dims[0] : 1, 0);
}

SornWTSLSC *SornWTSLSCinit2D(SornWTSLSC *lsc, SornWTSFeatureDs *features, int32_t nfeatures,
                             int32_t rows, int32_t columns, int32_t rowstride) {
  lsc->features = features;
  lsc->nfeatures = nfeatures < 0 ? 0 : nfeatures;
  lsc->regionsize = 0;
  return SornWTSLSCsetimvol2D(lsc, rows, columns, rowstride);
}

SornWTSLSC *SornWTSLSCinit(SornWTSLSC *lsc, SornWTSFeatureDs *features, int32_t nfeatures,
                           SornDimPack code, const int32_t *dims, const int32_t *strides) {
  lsc->features = features;
  lsc->nfeatures = nfeatures < 0 ? 0 : nfeatures;
  lsc->regionsize = 0;
  return SornWTSLSCsetimvol(lsc, code, dims, strides);
}

SornWTSLSC *SornWTSLSCfixup(SornWTSLSC *lsc) {
  if (lsc->regionsize > SORN_WTS_REGION_HEAD) return lsc;
  uint32_t offset = SORN_WTS_REGION_HEAD;
  for (int32_t i = 0; i < lsc->nfeatures; ++i) {
    lsc->features[i].offset = offset;
    offset += (lsc->features[i].size + 7u) & ~7u;
  }
  lsc->regionsize = offset;
  return lsc;
}

}  // extern "C"

// The filter record of the plain form: its parameters, the layout of its
// regions, the builders of its two passes and the regions picked in them.
#include <sorn.h>

#include <cstring>

#include "region/stable_regions.h"

extern "C" {

SornMSERFilter *__sorn_mserfilt__$ex(SornMSERFilter *f, SornWTSFeatureDs *features,
                                     int32_t nfeatures, int32_t delta, int32_t mode,
                                     int32_t restore, int32_t connectivity, int32_t shift,
                                     const uint32_t *seed, double minarea, double maxarea,
                                     double maxvariation, double mindiversity) {
  // mfds is left alone: the features given may be the one it holds.
  std::memset(f, 0, offsetof(SornMSERFilter, mfds));
  sorn::region::store_params(f, delta, mode, restore, connectivity, shift, seed, minarea, maxarea,
                             maxvariation, mindiversity);
  f->lsc.features = features;
  f->lsc.nfeatures = nfeatures;
  return f;
}

SornMSERFilter *__sorn_mserfilt__$mf(SornMSERFilter *f, int32_t delta, int32_t mode,
                                     int32_t restore, int32_t connectivity, int32_t shift,
                                     const uint32_t *seed, double minarea, double maxarea,
                                     double maxvariation, double mindiversity) {
  SornWTSMFinitFeatureDs(&f->mfds, nullptr);
  return __sorn_mserfilt__$ex(f, &f->mfds, 1, delta, mode, restore, connectivity, shift, seed,
                              minarea, maxarea, maxvariation, mindiversity);
}

SornMSERFilter *__sorn_mserfilt__$feats(SornMSERFilter *f, SornWTSFeatureDs *features,
                                        int32_t nfeatures) {
  return __sorn_mserfilt__$ex(f, features, nfeatures, SORN_MSER_DEFAULT_PARAMS);
}

SornMSERFilter *__sorn_mserfilt__$(SornMSERFilter *f) {
  SornWTSMFinitFeatureDs(&f->mfds, nullptr);
  return __sorn_mserfilt__$feats(f, &f->mfds, 1);
}

SornMSERFilter *sorn_mserf_destroy(SornMSERFilter *f) {
  SornSTB *b1 = f->builder1, *b2 = f->builder2;
  f->count1 = 0;
  f->count2 = 0;
  f->list1 = nullptr;
  f->list2 = nullptr;
  sorn::region::drop_regions(&f->regions);
  // Closing ends the trees, the features of their regions and the stacks.
  SornSTBclose(b1, 0);
  SornSTBclose(b2, 0);
  f->builder1 = nullptr;
  f->builder2 = nullptr;
  return f;
}

}  // extern "C"

// Gathering, on demand, the features of picked regions of the plain form:
// in a lazy tree a region holds only what it took itself, and a gather sums
// its subtree into it.
#include <sorn.h>

namespace {

const SornWTSTBwtsl *wtsl_of(const SornSTB *b) {
  if (b == nullptr) return nullptr;
  return static_cast<const SornWTSTBwtsl *>(_T_stb__findblock(b->ops, SORN_STB_TAG_WTSL));
}

inline bool gatherable(const SornWTSFeatureDs &f) { return f.lazymerge && f.isgathered; }

inline void *value_of(SornWTSRegion *r, const SornWTSFeatureDs &f) {
  return reinterpret_cast<char *>(r) + f.offset;
}

// The first feature that a gather has any business with, or -1.
int32_t first_gatherable(const SornWTSLSC *lsc) {
  for (int32_t i = 0; i < lsc->nfeatures; ++i)
    if (lsc->features[i].lazymerge || lsc->features[i].isgathered) return i;
  return -1;
}

void gather_all(const SornWTSTBwtsl *w, SornSTB *b, SornWTSLSC *lsc, SornWTSRegion *r,
                int32_t from) {
  for (int32_t i = from; i < lsc->nfeatures; ++i)
    w->gatherfeat(b, lsc, value_of(r, lsc->features[i]), nullptr, i, lsc->features[i].magic);
}

// The builder of the pass that holds region, by which: above 0 the dark
// pass, below 0 the bright one, 0 a search of the dark pass's list. A region
// of the bright pass must be named with a negative which.
SornSTB *builder_for(const SornMSERFilter *f, const SornWTSRegion *region, int32_t which) {
  if (which > 0) return f->count1 ? f->builder1 : nullptr;
  if (which < 0) return f->count2 ? f->builder2 : nullptr;
  for (uint32_t i = 0; i < f->count1; ++i)
    if (f->list1[i] == region) return f->builder1;
  // The second search runs over the same list, so it finds nothing the
  // first did not: a which of 0 never places a region of the bright pass.
  for (uint32_t i = 0; i < f->count1; ++i)
    if (f->list1[i] == region) return f->builder2;
  return nullptr;
}

}  // namespace

extern "C" {

SornWTSRegion **SornGatherMSERsFeatures(SornWTSRegion **list, int32_t n, SornSTB *builder,
                                        SornWTSLSC *lsc) {
  if (lsc->nfeatures < 1) return list;
  const int32_t from = first_gatherable(lsc);
  if (from < 0) return list;
  const SornWTSTBwtsl *w = wtsl_of(builder);
  if (w == nullptr) return nullptr;
  for (int32_t k = 0; k < n; ++k) gather_all(w, builder, lsc, list[k], from);
  return list;
}

SornWTSRegion *SornGatherMSERFeatures(SornWTSRegion *region, SornSTB *builder, SornWTSLSC *lsc) {
  if (lsc->nfeatures < 1) return region;
  const int32_t from = first_gatherable(lsc);
  if (from < 0) return region;
  const SornWTSTBwtsl *w = wtsl_of(builder);
  if (w == nullptr) return nullptr;
  gather_all(w, builder, lsc, region, from);
  return region;
}

SornWTSRegion *SornGatherMSERFeature(SornWTSRegion *region, SornSTB *builder, SornWTSLSC *lsc,
                                     int32_t index, uint32_t magic) {
  if (index < 0) index = SornWTSFindexByMagic(lsc->features, lsc->nfeatures, magic);
  if (index < 0 || index >= lsc->nfeatures) return nullptr;
  const SornWTSFeatureDs &f = lsc->features[index];
  if (!gatherable(f)) return region;
  if (f.isgathered(value_of(region, f))) return region;
  const SornWTSTBwtsl *w = wtsl_of(builder);
  if (w == nullptr) return nullptr;
  w->gatherfeat(builder, lsc, value_of(region, f), nullptr, index, f.magic);
  return region;
}

SornStatus SornMSERgatherFeatures(SornMSERFilter *filter) {
  if (filter == nullptr) return SORN_EINVAL;
  if (filter->count1)
    SornGatherMSERsFeatures(filter->list1, (int32_t)filter->count1, filter->builder1, &filter->lsc);
  if (filter->count2)
    SornGatherMSERsFeatures(filter->list2, (int32_t)filter->count2, filter->builder2, &filter->lsc);
  return SORN_OK;
}

SornStatus SornMSERgatherFeaturesOfRegion(SornMSERFilter *filter, SornWTSRegion *region,
                                          int32_t which) {
  if (filter == nullptr || region == nullptr) return SORN_EINVAL;
  SornSTB *b = builder_for(filter, region, which);
  if (b == nullptr) return SORN_EINVAL;
  SornGatherMSERFeatures(region, b, &filter->lsc);
  return SORN_OK;
}

SornStatus SornMSERgatherFeatureOfRegion(SornMSERFilter *filter, SornWTSRegion *region,
                                         int32_t which, int32_t index, uint32_t magic) {
  if (filter == nullptr || region == nullptr) return SORN_EINVAL;
  SornSTB *b = builder_for(filter, region, which);
  if (b == nullptr) return SORN_EINVAL;
  SornGatherMSERFeature(region, b, &filter->lsc, index, magic);
  return SORN_OK;
}

}  // extern "C"

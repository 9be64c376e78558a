// Stable region generation, plain form, the type-generic layer and its slice
// forms: one or two floodings, each into a watershed tree builder of its
// own, then the selection on each tree.
#include <sorn.h>

#include "region/stable_regions.h"

using namespace sorn::region;

namespace {

// A builder of its own stack over the environment's.
SornSTB *open_builder(SornXE *xe) {
  return SornWTSTBopen(nullptr, nullptr, nullptr, SornXEmmstack(xe));
}

void drop_all(SornMSERFilter *f) {
  SornSTB *b1 = f->builder1, *b2 = f->builder2;
  f->builder1 = nullptr;
  f->builder2 = nullptr;
  f->count1 = 0;
  f->count2 = 0;
  f->list1 = nullptr;
  f->list2 = nullptr;
  drop_regions(&f->regions);
  SornSTBclose(b1, 0);
  SornSTBclose(b2, 0);
}

}  // namespace

extern "C" {

SornStatus sorna_mser_xm(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                         uint32_t type, const void *base, const int32_t *loffs,
                         const int32_t *strides, const void *maskbase, const int32_t *maskloffs,
                         const int32_t *maskstrides, SornMSERFilter *f) {
  if (f == nullptr || dims == nullptr) return SORN_EINVAL;
  // The builders of an earlier run die here: their regions could not be
  // told from this run's, and nothing else would end them.
  if (f->builder1 || f->builder2) drop_all(f);

  SornSTB *b1 = nullptr, *b2 = nullptr;
  if (f->mode != SORN_MSER_BRIGHT && (b1 = open_builder(xe)) == nullptr) return SORN_ENOMEM;
  if (f->mode != SORN_MSER_DARK && (b2 = open_builder(xe)) == nullptr) {
    SornSTBclose(b1, 0);
    return SORN_ENOMEM;
  }
  f->lsc.regionsize = 0;
  f->builder1 = b1;
  f->builder2 = b2;

  SornWTSState st{};
  st.lsc = &f->lsc;
  state_from(&st, f);
  const Operands o{code, dims, type, base, loffs, strides, maskbase, maskloffs, maskstrides};
  const SornStatus s = run_passes<&sorna_watershed, &sorna_watershed_xm>(xe, flags, &st, o, b1, b2);
  if (s != SORN_OK) {
    drop_all(f);
    return s;
  }

  const SornMSERParams p = params_of(f, code, dims, f->delta);
  if (b1 && SornDetectMSERs(&f->regions, b1->tree, &p) == nullptr) {
    drop_all(f);
    return SORN_ENOMEM;
  }
  const uint64_t count1 = f->regions.count;
  if (b2) {
    if (SornDetectMSERs(&f->regions, b2->tree, &p) == nullptr) {
      drop_all(f);
      return SORN_ENOMEM;
    }
    // Picked regions of the bright pass hold true levels; the others of
    // that tree keep the inverted ones.
    SornWTSRegion **items = static_cast<SornWTSRegion **>(f->regions.items);
    for (uint64_t i = count1; i < f->regions.count; ++i) items[i]->pivotval ^= 255u;
  }
  publish(f, count1);
  if ((flags & SORN_F_WTS_FFORM) && f->gathernow) {
    if (f->count1) SornGatherMSERsFeatures(f->list1, (int32_t)f->count1, b1, &f->lsc);
    if (f->count2) SornGatherMSERsFeatures(f->list2, (int32_t)f->count2, b2, &f->lsc);
  }
  return SORN_OK;
}

SORN_MSER_LAYER2(mser, MSERs, SornMSERFilter)

}  // extern "C"

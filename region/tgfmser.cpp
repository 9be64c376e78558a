// Stable region generation, f form, the type-generic layer and its slice
// forms: one or two f floodings into results, then the selection on each
// result's tree.
#include <sorn.h>

#include "region/stable_regions.h"

using namespace sorn::region;

namespace {

// The result of a pass: the one the filter names, else the embedded one,
// which is opened here.
SornFWTSRES *result_for(SornFWTSRES *&field, SornFWTSRES *own) {
  if (field == nullptr) {
    SornFWTSRESinit(own, nullptr, nullptr);
    field = own;
  }
  return field;
}

SornStatus fail(SornFMSERFilter *f, SornStatus s) {
  SornFWTSRES *r1 = f->res1, *r2 = f->res2;
  f->res1 = nullptr;
  f->res2 = nullptr;
  f->count1 = 0;
  f->count2 = 0;
  f->list1 = nullptr;
  f->list2 = nullptr;
  drop_regions(&f->regions);
  if (r1 == &f->res1own) SornFWTSRESfini(r1);
  if (r2 == &f->res2own) SornFWTSRESfini(r2);
  return s;
}

}  // namespace

extern "C" {

SornStatus sorna_fmser_xm(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                          uint32_t type, const void *base, const int32_t *loffs,
                          const int32_t *strides, const void *maskbase, const int32_t *maskloffs,
                          const int32_t *maskstrides, SornFMSERFilter *f) {
  if (f == nullptr || dims == nullptr || strides == nullptr) return SORN_EINVAL;
  sorn_fmserf_setimvol(f, code, dims, strides);
  SornFWTSRES *r1 = f->mode != SORN_MSER_BRIGHT ? result_for(f->res1, &f->res1own) : nullptr;
  SornFWTSRES *r2 = f->mode != SORN_MSER_DARK ? result_for(f->res2, &f->res2own) : nullptr;

  SornWTSState st{};
  state_from(&st, f);
  const Operands o{code, dims, type, base, loffs, strides, maskbase, maskloffs, maskstrides};
  const SornStatus s =
      run_passes<&sorna_fwatershed, &sorna_fwatershed_xm>(xe, flags, &st, o, r1, r2);
  if (s != SORN_OK) return fail(f, s);

  const uint32_t sh = shift_bits(f->shift);
  const SornMSERParams p = params_of(f, code, dims, sh < 32 ? f->delta >> sh : 0u);
  if (r1 && SornDetectFMSERs(&f->regions, r1->root, &p) == nullptr) return fail(f, SORN_ENOMEM);
  const uint64_t count1 = f->regions.count;
  if (r2) {
    if (SornDetectFMSERs(&f->regions, r2->root, &p) == nullptr) return fail(f, SORN_ENOMEM);
    // Picked regions of the bright pass hold true levels; the others of
    // that tree keep the inverted ones.
    const int32_t inv = sh < 8 ? 255 >> sh : 0;
    SornFWTSRegion **items = static_cast<SornFWTSRegion **>(f->regions.items);
    for (uint64_t i = count1; i < f->regions.count; ++i) items[i]->level ^= inv;
  }
  publish(f, count1);
  return SORN_OK;
}

SORN_MSER_LAYER2(fmser, FMSERs, SornFMSERFilter)

}  // extern "C"

// Stable region generation, plain form: one or two floodings, each into a
// watershed tree builder of its own, then the selection on each tree.
//
// The builders of a filter run with tables that are the watershed builder's
// own but for two slots, which take note of the regions that no tree will
// hold: the bottom region of the run, and the one region of a run that
// never merges. Clearing a builder only reaches regions of its tree, so
// these two have their features ended as soon as the pass is done; for a
// feature that holds heap memory (the pixel list) nothing else would.
#include <sorn.h>

#include "MSERcommon.h"

using namespace sorn_mser;

namespace {

/* ---------------- builders that keep track of their outsiders ---------------- */

// Behind the layout copy in the builder's extension area.
struct Outsiders {
  SornWTSRegion *bottom;  // the first region of a run
  SornWTSRegion *last;    // the latest region made afresh
};
constexpr size_t kExtSize = SORN_WTSTB_EXTSIZE + sizeof(Outsiders);

Outsiders *outsiders_of(SornSTB *b) {
  return reinterpret_cast<Outsiders *>(static_cast<char *>(SORN_STB_EXT(b)) +
                                       SORN_WTSTB_EXTSIZE);
}

void track_start(SornSTB *b, SornWTSLSC *lsc, SornFlags flags, const uint16_t *options);

SornWTSRegion *track_newregion(SornWTSRegion *region, SornSTB *b, SornWTSLSC *lsc) {
  SornWTSRegion *r = _T_wtstb__newregion_v2__(region, b, lsc);
  if (region == nullptr) {
    Outsiders *o = outsiders_of(b);
    if (o->bottom == nullptr) o->bottom = r;
    o->last = r;
  }
  return r;
}

constexpr SornWTSTBopv make_twin(decltype(SornWTSTBwtsl::accumulate) acc,
                                 decltype(SornWTSTBwtsl::accumulate2D) acc2d,
                                 decltype(SornWTSTBwtsl::merge) merge) {
  return SornWTSTBopv{
      {{SORN_STB_TAG_STBL, sizeof(SornSTBstbl)},
       _T_wtstb__getddtor__,
       _T_wtstb__attached__,
       _T_wtstb__become_detached__},
      {{SORN_STB_TAG_WTSL, sizeof(SornWTSTBwtsl)},
       _T_wtstb__alloca__,
       track_start,
       _T_wtstb__finish__,
       track_newregion,
       _T_wtstb__destroyrgn__,
       _T_wtstb__disposergn__,
       acc,
       acc2d,
       merge,
       _T_wtstb__gatherfeat__},
      0};
}

// In the order of the builder's own tables: lazy, eager, moments, pixels.
constexpr SornWTSTBopv kTwins[4] = {
    make_twin(_T_wtstb__accumulate__, _T_wtstb__accumulate2D__, _T_wtstb__lazymerge_v2__),
    make_twin(_T_wtstb__accumulate__, _T_wtstb__accumulate2D__, _T_wtstb__merge_v2__),
    make_twin(_T_wtstb__accumulate_mf__, _T_wtstb__accumulate2D_mf__, _T_wtstb__lazymerge_v2__),
    make_twin(_T_wtstb__accumulate_pf__, _T_wtstb__accumulate2D_pf__, _T_wtstb__lazymerge_v2__),
};

// start may choose one of the builder's own tables; the run goes on with
// its twin.
void track_start(SornSTB *b, SornWTSLSC *lsc, SornFlags flags, const uint16_t *options) {
  _T_wtstb__start__(b, lsc, flags, options);
  const SornWTSTBopv *own[4] = {&_S_wtstb_lazy_opv, &_S_wtstb_opv, &_S_wtstb_mf_opv,
                                &_S_wtstb_pf_opv};
  for (int i = 0; i < 4; ++i)
    if (b->ops == &own[i]->stbl.hdr) b->ops = &kTwins[i].stbl.hdr;
  *outsiders_of(b) = Outsiders{nullptr, nullptr};
}

// A builder of its own stack over the environment's, as the watershed
// builder opens one, with the twin of its default table.
SornSTB *open_builder(SornXE *xe) {
  SornSTB *b = SornSTBopen(nullptr, &kTwins[0].stbl.hdr, kExtSize, nullptr, nullptr,
                           SornXEmmstack(xe));
  return b;
}

// After a pass: the bottom region is never in the tree, nor is the region
// of a run that never merged (the tree then has no root).
void end_outsiders(SornSTB *b, SornWTSLSC *lsc) {
  Outsiders *o = outsiders_of(b);
  const bool rooted = b->tree != nullptr && b->tree->root != nullptr;
  if (o->bottom) __SornWTSTBdestroyrgn(o->bottom, nullptr, lsc);
  if (!rooted && o->last && o->last != o->bottom) __SornWTSTBdestroyrgn(o->last, nullptr, lsc);
  *o = Outsiders{nullptr, nullptr};
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

SornStatus flood(SornXE *xe, SornFlags flags, SornWTSState *st, SornDimPack code,
                 const int32_t *dims, uint32_t type, const void *base, const int32_t *loffs,
                 const int32_t *strides, const void *maskbase, const int32_t *maskloffs,
                 const int32_t *maskstrides) {
  SornStatus s;
  if (maskbase)
    s = sorna_watershed_xm(xe, flags, st, code, dims, type, base, loffs, strides, SORN_U8,
                           maskbase, maskloffs, maskstrides);
  else
    s = sorna_watershed(xe, flags, st, code, dims, type, base, loffs, strides);
  end_outsiders(static_cast<SornSTB *>(st->builder), st->lsc);
  return s;
}

}  // namespace

extern "C" {

SornStatus sorna_mser_xm(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                         uint32_t type, const void *base, const int32_t *loffs,
                         const int32_t *strides, const void *maskbase,
                         const int32_t *maskloffs, const int32_t *maskstrides,
                         SornMSERFilter *f) {
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
  if (b1) {
    st.builder = b1;
    st.polarity = 0;
    SornStatus s = flood(xe, flags, &st, code, dims, type, base, loffs, strides, maskbase,
                         maskloffs, maskstrides);
    if (s != SORN_OK) {
      drop_all(f);
      return s;
    }
  }
  if (b2) {
    st.builder = b2;
    st.polarity = 1;
    st.restore = 0;
    SornStatus s = flood(xe, flags, &st, code, dims, type, base, loffs, strides, maskbase,
                         maskloffs, maskstrides);
    if (s != SORN_OK) {
      drop_all(f);
      return s;
    }
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
  f->count1 = (uint32_t)count1;
  f->count2 = (uint32_t)(f->regions.count - count1);
  f->list1 = static_cast<SornWTSRegion **>(f->regions.items);
  f->list2 = f->list1 ? f->list1 + count1 : nullptr;
  if ((flags & SORN_F_WTS_FFORM) && f->gathernow) {
    if (f->count1) SornGatherMSERsFeatures(f->list1, (int32_t)f->count1, b1, &f->lsc);
    if (f->count2) SornGatherMSERsFeatures(f->list2, (int32_t)f->count2, b2, &f->lsc);
  }
  return SORN_OK;
}

SornStatus sorna_mser(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,
                      uint32_t type, const void *base, const int32_t *loffs,
                      const int32_t *strides, SornMSERFilter *filter) {
  return sorna_mser_xm(xe, flags, code, dims, type, base, loffs, strides, nullptr, nullptr,
                       nullptr, filter);
}

SornStatus SornTGAgenerateMSERs(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,
                                int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                                int32_t *strides) {
  return sorna_mser(xe, flags, code, dims, type, base, loffs, strides,
                    static_cast<SornMSERFilter *>(filter));
}

SornStatus SornTGAgenerateMSERsEx(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,
                                  int32_t *dims, uint32_t type, void *base, int32_t *loffs,
                                  int32_t *strides, uint32_t masktype, void *maskbase,
                                  int32_t *maskloffs, int32_t *maskstrides) {
  if (masktype != SORN_U8) return SORN_EINVAL;
  return sorna_mser_xm(xe, flags, code, dims, type, base, loffs, strides, maskbase, maskloffs,
                       maskstrides, static_cast<SornMSERFilter *>(filter));
}

SornStatus SornGenerateMSERs(SornXE *xe, SornFlags flags, const SornArray *image,
                             const SornVolume *roi, SornMSERFilter *filter) {
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateMSERsEx};
  return generate(xe, flags, image, roi, filter, route, sorna_mser);
}

SornStatus SornGenerateMSERsEx(SornXE *xe, SornFlags flags, const SornArray *image,
                               const SornArray *mask, const SornVolume *roi,
                               const SornVolume *maskroi, SornMSERFilter *filter) {
  if (mask == nullptr) return SornGenerateMSERs(xe, flags, image, roi, filter);
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateMSERsEx};
  return generate_ex(xe, flags, image, mask, roi, maskroi, filter, route, sorna_mser_xm,
                     SornTGAgenerateMSERsEx);
}

}  // extern "C"

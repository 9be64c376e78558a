// What the two forms of stable region generation share: the parameters a
// selection gets from a filter, and the selection itself,
// one recursion written once for the nodes of a builder's tree and for the
// regions of an f-form result.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "core/elem_types.h"

namespace sorn::region {

/* ---------------- parameters ---------------- */

// The parameters both filter records begin with, as a construction gives
// them: the four ratios stored as f32, a null seed as zeros (the record is
// cleared before).
template <class Filter>
Filter *store_params(Filter *f, int32_t delta, int32_t mode, int32_t restore, int32_t connectivity,
                     int32_t shift, const uint32_t *seed, double minarea, double maxarea,
                     double maxvariation, double mindiversity) {
  f->delta = (uint32_t)delta;
  f->minarea = (float)minarea;
  f->maxarea = (float)maxarea;
  f->maxvariation = (float)maxvariation;
  f->mindiversity = (float)mindiversity;
  f->mode = (uint16_t)mode;
  f->restore = (uint16_t)restore;
  f->connectivity = (uint16_t)connectivity;
  f->shift = (uint16_t)shift;
  if (seed) __builtin_memcpy(f->seed, seed, sizeof f->seed);
  return f;
}

// A construction with the default parameters.
#define SORN_MSER_DEFAULT_PARAMS                                                        \
  SORN_MSER_DEFAULT_DELTA, SORN_MSER_BOTH, 0, 0, 0, nullptr, SORN_MSER_DEFAULT_MINAREA, \
      SORN_MSER_DEFAULT_MAXAREA, SORN_MSER_DEFAULT_MAXVARIATION, SORN_MSER_DEFAULT_MINDIVERSITY

// Bits of a level shift as the f flooding reads them: one byte.
inline uint32_t shift_bits(uint16_t shift) { return shift & 0xFFu; }

template <class Filter>
SornMSERParams params_of(const Filter *f, SornDimPack code, const int32_t *dims, uint32_t delta) {
  const int32_t n = (int32_t)(code & 15);
  const float cap = (float)sorn_volume__capacity(n - 1, dims);
  SornMSERParams p;
  p.delta = (int32_t)delta;
  p.minpixels = sorn::trunc_i32(cap * f->minarea);
  if (p.minpixels == 0) p.minpixels = f->minpixels < 1 ? 9 : f->minpixels;
  p.maxpixels = sorn::trunc_i32(cap * f->maxarea);
  p.maxvariation = f->maxvariation;
  p.mindiversity = f->mindiversity;
  return p;
}

// Copies mode to seed of a filter onto polarity to seed of a run.
template <class Filter> void state_from(SornWTSState *st, const Filter *f) {
  static_assert(offsetof(Filter, seed) - offsetof(Filter, mode) ==
                    offsetof(SornWTSState, seed) - offsetof(SornWTSState, polarity),
                "mode to seed is laid out as polarity to seed");
  __builtin_memcpy(&st->polarity, &f->mode,
                   offsetof(Filter, seed) + sizeof f->seed - offsetof(Filter, mode));
}

/* ---------------- the passes ---------------- */

// Where a run's image and its mask start, as the type-generic layer is given
// them; a null mask base is no mask.
struct Operands {
  SornDimPack code;
  const int32_t *dims;
  uint32_t type;
  const void *base;
  const int32_t *loffs;
  const int32_t *strides;
  const void *maskbase;
  const int32_t *maskloffs;
  const int32_t *maskstrides;
};

// One flooding of a form, Plain or Masked, over the operands.
template <auto Plain, auto Masked>
SornStatus flood(SornXE *xe, SornFlags flags, SornWTSState *st, const Operands &o) {
  if (o.maskbase)
    return Masked(xe, flags, st, o.code, o.dims, o.type, o.base, o.loffs, o.strides, SORN_U8,
                  o.maskbase, o.maskloffs, o.maskstrides);
  return Plain(xe, flags, st, o.code, o.dims, o.type, o.base, o.loffs, o.strides);
}

// The dark pass into `dark`, then the bright pass into `bright`, which
// clears `restore`; a null target leaves its pass out. The first failure is
// the answer.
template <auto Plain, auto Masked>
SornStatus run_passes(SornXE *xe, SornFlags flags, SornWTSState *st, const Operands &o, void *dark,
                      void *bright) {
  if (dark) {
    st->builder = dark;
    st->polarity = 0;
    const SornStatus s = flood<Plain, Masked>(xe, flags, st, o);
    if (s != SORN_OK) return s;
  }
  if (bright) {
    st->builder = bright;
    st->polarity = 1;
    st->restore = 0;
    return flood<Plain, Masked>(xe, flags, st, o);
  }
  return SORN_OK;
}

// The picked regions as the filter's lists: the dark pass's count1 first.
template <class Filter> void publish(Filter *f, uint64_t count1) {
  using List = decltype(f->list1);
  f->count1 = (uint32_t)count1;
  f->count2 = (uint32_t)(f->regions.count - count1);
  f->list1 = static_cast<List>(f->regions.items);
  f->list2 = f->list1 ? f->list1 + count1 : nullptr;
}

/* ---------------- the selection ---------------- */

// A picked region goes into the vector, which doubles; when it can't grow
// the region is left out and keeps its flag.
inline void append(SornVec *v, void *item) {
  if (v->count == v->capacity) {
    const uint64_t cap = v->capacity ? v->capacity * 2 : 2;
    void *p = _KuMrealloc(v->items, (size_t)cap * sizeof(void *), 0);
    if (!p) return;
    v->items = p;
    v->capacity = cap;
  }
  static_cast<void **>(v->items)[v->count++] = item;
}

// (s - x) / s in f32 from the signed 32-bit difference.
inline float relative(uint32_t s, uint32_t x) { return (float)(int32_t)(s - x) / (float)s; }

// Regions of the f form.
struct FRegions {
  using R = SornFWTSRegion;
  static int64_t level(const R *r) { return r->level; }
  static uint32_t size(const R *r) { return r->size; }
  static uint32_t &flag(R *r) { return r->mserflag; }
  static R *parent(const R *r) { return r->parent; }
  static R *child(const R *r) { return r->child; }
  static R *next(const R *r) { return r->next; }
  static void *item(R *r) { return r; }
  static uint32_t item_flag(const void *p) { return static_cast<const R *>(p)->mserflag; }
};

// Nodes of a builder's tree, whose regions hold the level in pivotval.
struct TreeNodes {
  using R = SornAGTnode;
  static SornWTSRegion *region(const R *n) { return static_cast<SornWTSRegion *>(n->data); }
  static int64_t level(const R *n) { return region(n)->pivotval; }
  static uint32_t size(const R *n) { return region(n)->size; }
  static uint32_t &flag(R *n) { return region(n)->mserflag; }
  static R *parent(const R *n) { return n->parent; }
  static R *child(const R *n) { return n->child; }
  static R *next(const R *n) { return n->next; }
  static void *item(R *n) { return n->data; }
  static uint32_t item_flag(const void *p) {
    return static_cast<const SornWTSRegion *>(p)->mserflag;
  }
};

template <class P>
void remove_duplicates(typename P::R *region, typename P::R *list, float threshold) {
  const uint32_t s = P::size(region);
  for (typename P::R *x = list; x; x = P::next(x)) {
    if (!(threshold > relative(s, P::size(x)))) continue;
    if (P::flag(x))
      P::flag(x) = 0;
    else
      remove_duplicates<P>(region, P::child(x), threshold);
  }
}

template <class P> int32_t detect(SornVec *vec, typename P::R *r, const SornMSERParams *prm) {
  P::flag(r) = 0;
  uint32_t below = 0;  // some descendant was picked
  const int64_t level = P::level(r);
  if (level >= prm->delta)
    for (typename P::R *x = P::child(r); x; x = P::next(x))
      below |= (uint32_t)detect<P>(vec, x, prm);
  const int64_t size = P::size(r);
  if (size < prm->minpixels) return 0;
  if (below == 0 && size > prm->maxpixels) return 0;
  typename P::R *p = P::parent(r);
  if (!p) return 0;
  int64_t d = std::llabs(P::level(p) - level);
  while (d < prm->delta) {
    p = P::parent(p);
    if (!p) return 0;
    d = std::llabs(P::level(p) - level);
  }
  // A step that jumps over the delta level counts as perfectly stable.
  float v = 0.0f;
  if (d == prm->delta) v = std::fabs(relative(P::size(p), P::size(r)));
  // Not at or above: a variation that is not a number is rejected too.
  if (!(prm->maxvariation >= v)) return 0;
  const uint32_t picked = size <= prm->maxpixels ? 1u : 0u;
  P::flag(r) = picked;
  if (picked) append(vec, P::item(r));
  // Also a stable region too large to keep clears the duplicates under it.
  remove_duplicates<P>(r, P::child(r), prm->mindiversity);
  return (int32_t)picked;
}

// Runs the selection from root and keeps, of what it appended, the entries
// still flagged, in order.
template <class P>
SornVec *detect_from(SornVec *vec, typename P::R *root, const SornMSERParams *prm) {
  if (root == nullptr) return vec;
  if (vec == nullptr || prm == nullptr) return nullptr;
  const uint64_t start = vec->count;
  detect<P>(vec, root, prm);
  void **items = static_cast<void **>(vec->items);
  uint64_t w = start;
  for (uint64_t i = start; i < vec->count; ++i)
    if (P::item_flag(items[i])) items[w++] = items[i];
  vec->count = w;
  return vec;
}

inline void drop_regions(SornVec *v) {
  _KuMfree(v->items);
  v->items = nullptr;
  v->capacity = 0;
  v->count = 0;
}

}  // namespace sorn::region

// The rest of a form's type-generic layer over its masked work
// sorna_<low>_xm: the form without a mask, and the slice forms, whose data
// is the filter.
#define SORN_MSER_LAYER2(low, Name, Filter)                                                        \
  SornStatus sorna_##low(SornXE *xe, SornFlags flags, SornDimPack code, const int32_t *dims,       \
                         uint32_t type, const void *base, const int32_t *loffs,                    \
                         const int32_t *strides, Filter *filter) {                                 \
    return sorna_##low##_xm(xe, flags, code, dims, type, base, loffs, strides, nullptr, nullptr,   \
                            nullptr, filter);                                                      \
  }                                                                                                \
  SornStatus SornTGAgenerate##Name(SornXE *xe, SornFlags flags, void *filter, SornDimPack code,    \
                                   int32_t *dims, uint32_t type, void *base, int32_t *loffs,       \
                                   int32_t *strides) {                                             \
    return sorna_##low(xe, flags, code, dims, type, base, loffs, strides,                          \
                       static_cast<Filter *>(filter));                                             \
  }                                                                                                \
  SornStatus SornTGAgenerate##Name##Ex(SornXE *xe, SornFlags flags, void *filter,                  \
                                       SornDimPack code, int32_t *dims, uint32_t type, void *base, \
                                       int32_t *loffs, int32_t *strides, uint32_t masktype,        \
                                       void *maskbase, int32_t *maskloffs, int32_t *maskstrides) { \
    if (masktype != SORN_U8) return SORN_EINVAL;                                                   \
    return sorna_##low##_xm(xe, flags, code, dims, type, base, loffs, strides, maskbase,           \
                            maskloffs, maskstrides, static_cast<Filter *>(filter));                \
  }

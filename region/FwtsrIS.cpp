// Regions of a result: counts, links, walks and the enumeration of pixels.
#include <sorn.h>

#include "region/tree_walk.h"

using namespace sorn::region;

namespace {

auto region_caller(SornFwtsrWalkFn fn, void *arg) {
  return [fn, arg](SornFWTSRegion *r, int32_t index) { return fn(r, arg, index); };
}

int32_t count_marked(const SornFWTSRegion *r, bool recursive) {
  int32_t n = 0;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    if (c->mserflag) ++n;
    if (recursive) n += count_marked(c, true);
  }
  return n;
}

// The enumeration's rule on an answer r: below -1 gives -1, 0 and -1 give
// their magnitude, and all of these end the region; above 0 goes on.
inline bool stops(int32_t r, int32_t &out) {
  if (r > 0) return false;
  out = r < -1 ? -1 : -r;
  return true;
}

}  // namespace

extern "C" {

int32_t sorn_fwtsr_countpix_$proper(const SornFWTSRegion *r) {
  uint32_t n = r->size;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) n -= c->size;
  return static_cast<int32_t>(n);
}

SornFWTSRegion *sorn_fwtsr_fixup(SornFWTSRegion *r, const uint32_t *links) {
  int32_t own = sorn_fwtsr_countpix_$proper(r);
  if (own < 1 || r->head == SORN_FWTSR_END) return r;
  int32_t p = r->head;
  for (int32_t k = 1; k < own; ++k) p = static_cast<int32_t>(links[p]);
  r->tail = p;
  return r;
}

SornFWTSRegion *sorn_fwtsr_addcld(SornFWTSRegion *parent, SornFWTSRegion *child) {
  child->parent = parent;
  child->next = parent->child;
  parent->child = child;
  return parent;
}

int32_t sorn_fwtsr_countcld(const SornFWTSRegion *r, int recursive) {
  return count_children(r, recursive != 0);
}

int32_t sorn_fwtsr_countcld_$R(const SornFWTSRegion *r) { return count_children(r, true); }

int32_t sorn_fwtsr_countcld_$mser(const SornFWTSRegion *r, int recursive) {
  return count_marked(r, recursive != 0);
}

int32_t sorn_fwtsr_countcld_$mser$R(const SornFWTSRegion *r) { return count_marked(r, true); }

int32_t sorn_fwtsr_walk(SornFWTSRegion *r, int32_t order, SornFwtsrWalkFn fn, void *arg) {
  return walk(r, order, region_caller(fn, arg));
}

int32_t sorn_fwtsr_walk_$preorder(SornFWTSRegion *r, SornFwtsrWalkFn fn, void *arg) {
  return r ? walk_preorder(r, region_caller(fn, arg)) : 0;
}

// In the order of the node walks: a leaf is called with index -1.
int32_t sorn_fwtsr_walk_$inorder(SornFWTSRegion *r, SornFwtsrWalkFn fn, void *arg) {
  return r ? walk_inorder(r, region_caller(fn, arg)) : 0;
}

int32_t sorn_fwtsr_walk_$postorder(SornFWTSRegion *r, SornFwtsrWalkFn fn, void *arg) {
  return r ? walk_postorder(r, region_caller(fn, arg)) : 0;
}

int32_t _T_fwtsr__pixenum(SornFWTSRegion *r, const uint32_t *links, int32_t columns,
                          SornFwtsrRegionFn regionfn, SornFwtsrPixelFn pixelfn, void *arg,
                          int32_t *nregions) {
  int32_t out;
  if (nregions) ++*nregions;
  if (stops(regionfn(r, arg, -1, 0), out)) return out;
  int32_t own = sorn_fwtsr_countpix_$proper(r);
  for (int32_t p = r->head; own > 0 && p != SORN_FWTSR_END;
       --own, p = static_cast<int32_t>(links[p]))
    pixelfn(p / columns, p % columns, arg);
  int32_t k = -1;
  if (SornFWTSRegion *c = r->child) {
    if (stops(_T_fwtsr__pixenum(c, links, columns, regionfn, pixelfn, arg, nregions), out))
      return out;
    k = 0;
    for (c = c->next; c; c = c->next) {
      if (stops(regionfn(r, arg, k, 0), out)) return out;
      ++k;
      if (stops(_T_fwtsr__pixenum(c, links, columns, regionfn, pixelfn, arg, nregions), out))
        return out;
    }
  }
  int32_t last = regionfn(r, arg, k, 1);
  return stops(last, out) ? out : last;
}

int32_t sorn_fwtsr_pixenum_$2d(SornFWTSRegion *r, const uint32_t *links, int32_t rows,
                               int32_t columns, SornFwtsrRegionFn regionfn,
                               SornFwtsrPixelFn pixelfn, void *arg) {
  if (!r || static_cast<int32_t>(r->size) < 1) return 0;
  int32_t n = 0;
  _T_fwtsr__pixenum(r, links, columns, regionfn, pixelfn, arg, &n);
  return n;
}

}  // extern "C"

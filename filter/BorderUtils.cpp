// Borders: the frame that a window needs around a region, the frame
// between a needed box and the box that may be read, fitting a frame into
// the room a destination leaves, and the decision whether every pixel a
// window reads around a region really exists.
#include <sorn.h>

#include <cstdint>

#include "core/elem_types.h"
#include "filter/shape_cells.h"

using sorn::shapes::Cells;
using sorn::shapes::cells_of;

namespace {

int32_t wrap_sub(int32_t a, int32_t b) { return (int32_t)((uint32_t)a - (uint32_t)b); }

// The need box grows by the window: back by the anchor, out by the size.
void widen_box(const Cells &c, int32_t *needO, int32_t *needS, const SornSeShape *se) {
  if (se == nullptr) return;
  sorn_vec__sub_$I(c.count, needO, se->anchor + c.first);
  sorn_volume__widen_$I$se(c.count, needS, se);
}

// Extents stepped by a border: dims - sub + add over the used cells (a
// null dims is out itself). Widening subtracts lo and adds hi, narrowing
// the other way round.
int32_t *step_extent(int32_t n, int32_t *out, const int32_t *dims, const int32_t *sub,
                     const int32_t *add) {
  const Cells c = cells_of(n);
  sorn_vec__sub(c.count, out, dims ? dims : out, sub + c.first);
  return sorn_vec__add_$I(c.count, out, add + c.first);
}

}  // namespace

SornBrShape *__sorn_brshape__$se(SornBrShape *br, const SornSeShape *se) {
  sorn_vec__neg(3, br->lo, se->anchor);
  sorn_vec__sub(3, br->hi, se->size, se->anchor);
  sorn_vec__add_$C$I(3, br->hi, -1);
  br->lo[3] = br->hi[3] = 0;
  return br;
}

SornBrShape *sorn_brshape__compute_$gv(SornBrShape *br, int32_t n, const int32_t *needO,
                                       const int32_t *needS, const int32_t *haveO,
                                       const int32_t *haveS) {
  const Cells c = cells_of(n);
  int32_t needEnd[3], haveEnd[3];
  sorn_vec__add(c.count, needEnd, needO, needS);
  sorn_vec__add(c.count, haveEnd, haveO, haveS);
  sorn_vec__sub(c.count, br->lo + c.first, needO, haveO);
  sorn_vec__sub(c.count, br->hi + c.first, needEnd, haveEnd);
  br->lo[3] = br->hi[3] = 0;
  return br;
}

// A border that does not fit the room is shared out in proportion to its
// two sides; the division is in f32, rounded to nearest even, so that the
// split is the same on every machine.
int sorn_brshape__adjust_$gv$I(SornBrShape *br, int32_t n, const int32_t *outerO,
                               const int32_t *outer, const int32_t *innerO, const int32_t *inner) {
  br->lo[3] = br->hi[3] = 0;
  const Cells c = cells_of(n);
  int ok = 1;
  for (int32_t k = 0; k < c.count; ++k) {
    int32_t &lo = br->lo[c.rec(k)], &hi = br->hi[c.rec(k)];
    const int32_t room = wrap_sub(outer[k], inner[k]);
    const int32_t want = wrap_sub(hi, lo);
    if (room <= 0) {
      lo = wrap_sub(0, room);
      hi = 0;
    } else if (room < want) {
      const int32_t part = (int32_t)((uint32_t)lo * (uint32_t)room);
      lo = sorn::round_i32((float)part / (float)want);
      hi = (int32_t)((uint32_t)room + (uint32_t)lo);
    }
    if (lo > 0 || hi < 0) ok = 0;
  }
  return ok;
}

int sorn_brshape__adjust_$gv(SornBrShape *out, const SornBrShape *br, int32_t n,
                             const int32_t *outerO, const int32_t *outer, const int32_t *innerO,
                             const int32_t *inner) {
  if (br != nullptr && br != out) *out = *br;
  return sorn_brshape__adjust_$gv$I(out, n, outerO, outer, innerO, inner);
}

int32_t *sorn_volume__widen_$br(int32_t n, int32_t *out, const int32_t *dims,
                                const SornBrShape *br) {
  return step_extent(n, out, dims, br->lo, br->hi);
}

int32_t *sorn_volume__widen_$I$br(int32_t n, int32_t *dims, const SornBrShape *br) {
  return step_extent(n, dims, dims, br->lo, br->hi);
}

int32_t *sorn_volume__narrow_$br(int32_t n, int32_t *out, const int32_t *dims,
                                 const SornBrShape *br) {
  return step_extent(n, out, dims, br->hi, br->lo);
}

int32_t *sorn_volume__narrow_br(int32_t n, int32_t *out, const int32_t *dims,
                                const SornBrShape *br) {
  return sorn_volume__narrow_$br(n, out, dims, br);
}

int32_t *sorn_volume__narrow_$I$br(int32_t n, int32_t *dims, const SornBrShape *br) {
  return step_extent(n, dims, dims, br->hi, br->lo);
}

// The box of pixels a window reads around a region (need), and the part of
// it that may really be read (avail): the region itself under
// SORN_F_NOMARGIN, else the source's site under SORN_F_SITEMARGIN, else its
// parent's site. True when all of need may be read, so that no bordered copy
// is needed. A missing site or parent site offers the region alone.
int sorn__compute_roi_$se(SornFlags flags, int32_t n, int32_t *availO, int32_t *availS,
                          int32_t *needO, int32_t *needS, const int32_t *origin,
                          const int32_t *size, const SornSeShape *se, const SornVolume *site,
                          const SornVolume *parsite) {
  const Cells c = cells_of(n);
  if (size != nullptr) {
    if (origin != nullptr)
      sorn_vec__assign(c.count, needO, origin);
    else
      sorn_vec__dup(c.count, needO, 0);
    sorn_vec__assign(c.count, needS, size);
  } else if (site != nullptr) {
    sorn_vec__assign(c.count, needO, site->origin + c.first);
    sorn_vec__assign(c.count, needS, site->size + c.first);
  } else {
    sorn_vec__dup(c.count, needO, 0);
    sorn_vec__dup(c.count, needS, 0);
  }
  const SornVolume *from = (flags & SORN_F_SITEMARGIN) ? site : parsite;
  if ((flags & SORN_F_NOMARGIN) || from == nullptr) {
    sorn_vec__assign(c.count, availO, needO);
    sorn_vec__assign(c.count, availS, needS);
    widen_box(c, needO, needS, se);
    return 0;
  }
  sorn_vec__assign(c.count, availO, from->origin + c.first);
  sorn_vec__assign(c.count, availS, from->size + c.first);
  widen_box(c, needO, needS, se);
  sorn__intersecI(c.count, availO, availS, needO, needS);
  return sorn_vec__equal(c.count, availS, needS);
}

// The block form: the boxes are copied and cut in all four cells, the
// window widens and the answer compares the three spatial ones.
int sorn_compute_roi_$se(SornVolume *avail, SornVolume *need, SornFlags flags,
                         const SornVolume *roi, const SornSeShape *se, const SornVolume *site,
                         const SornVolume *parsite) {
  if (roi == nullptr) roi = site;
  if (roi != nullptr) {
    *need = *roi;
  } else {
    sorn_vec__dup(4, need->origin, 0);
    sorn_vec__dup(4, need->size, 0);
  }
  const Cells three = cells_of(3);
  const SornVolume *from = (flags & SORN_F_SITEMARGIN) ? site : parsite;
  if ((flags & SORN_F_NOMARGIN) || from == nullptr) {
    *avail = *need;
    widen_box(three, need->origin, need->size, se);
    return 0;
  }
  *avail = *from;
  widen_box(three, need->origin, need->size, se);
  sorn__intersecI(4, avail->origin, avail->size, need->origin, need->size);
  return sorn_vec__equal(3, avail->size, need->size);
}

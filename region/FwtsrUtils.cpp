// Fetching regions of a result into point lists and region records.
#include <sorn.h>

#include <cstdint>
#include <cstring>

#include "fwtsr_vec.h"

namespace {

static_assert(sizeof(Sorn2dPt) == 8, "a point of two s32");
static_assert(sizeof(SornFwtsrPixReg) == 48, "a fetched region of six words");

using sorn_region::reserve;
using sorn_region::reserve_records;

inline Sorn2dPt *pts(SornVec *v) { return static_cast<Sorn2dPt *>(v->items); }
inline SornFwtsrPixReg *recs(SornVec *v) { return static_cast<SornFwtsrPixReg *>(v->items); }

// Appends the region's own chain and gives how many points were taken.
// Points that find no room (the vector failed to grow) are dropped rather
// than written past the block.
uint32_t append_chain(SornVec *points, const SornFWTSRegion *r, const uint32_t *links,
                      int32_t columns) {
  int32_t own = sorn_fwtsr_countpix_$proper(r);
  uint32_t n = 0;
  Sorn2dPt *dst = pts(points);
  for (int32_t p = r->head; own > 0 && p != SORN_FWTSR_END;
       --own, p = static_cast<int32_t>(links[p])) {
    if (points->count >= points->capacity) break;
    dst[points->count].x = p / columns;
    dst[points->count].y = p % columns;
    ++points->count;
    ++n;
  }
  return n;
}

void append_all(SornVec *points, const SornFWTSRegion *r, const uint32_t *links, int32_t columns) {
  append_chain(points, r, links, columns);
  for (const SornFWTSRegion *c = r->child; c; c = c->next) append_all(points, c, links, columns);
}

void fill_record(SornFwtsrPixReg *rec, Sorn2dPt *first, uint32_t own, const SornFWTSRegion *r) {
  rec->pixels = first;
  rec->level = r->level;
  rec->ownpixels = own;
  rec->size = r->size;
  rec->mserflag = r->mserflag;
  rec->next = nullptr;
  rec->child = nullptr;
  rec->parent = nullptr;
}

void link_child(SornFwtsrPixReg *parent, SornFwtsrPixReg *child) {
  child->parent = parent;
  child->next = parent->child;
  parent->child = child;
}

inline bool empty(const SornFWTSRegion *r) { return !r || static_cast<int32_t>(r->size) < 1; }

int32_t rows_of(SornDimPack code, const int32_t *dims) {
  int32_t n = static_cast<int32_t>(code & 15);
  return n >= 3 ? dims[n - 3] : 1;
}

int32_t columns_of(SornDimPack code, const int32_t *dims) {
  int32_t n = static_cast<int32_t>(code & 15);
  return n >= 2 ? dims[n - 2] : 1;
}

// The records of a vector point into the point block, which may move when
// a fetch grows it: those written before are moved along with it.
void follow_block(SornVec *regs, uint64_t n, uintptr_t before, const SornVec *points) {
  uintptr_t after = reinterpret_cast<uintptr_t>(points->items);
  if (after == before) return;
  SornFwtsrPixReg *r = recs(regs);
  for (uint64_t i = 0; i < n; ++i)
    r[i].pixels =
        reinterpret_cast<Sorn2dPt *>(reinterpret_cast<uintptr_t>(r[i].pixels) - before + after);
}

}  // namespace

extern "C" {

SornVec *sorn_fwtsr_fetchpix_$2d(SornVec *points, const SornFWTSRegion *r, const uint32_t *links,
                                 int proper, int32_t rows, int32_t columns) {
  if (proper) {
    int32_t own = sorn_fwtsr_countpix_$proper(r);
    if (own < 1) return points;
    reserve(points, static_cast<uint64_t>(own), sizeof(Sorn2dPt));
    append_chain(points, r, links, columns);
    return points;
  }
  if (empty(r)) return points;
  reserve(points, r->size, sizeof(Sorn2dPt));
  append_all(points, r, links, columns);
  return points;
}

SornVec *sorn_fwtsr_fetchpix(SornVec *points, const SornFWTSRegion *r, const uint32_t *links,
                             int proper, SornDimPack code, const int32_t *dims) {
  return sorn_fwtsr_fetchpix_$2d(points, r, links, proper, rows_of(code, dims),
                                 columns_of(code, dims));
}

SornFwtsrPixReg *_T_fwtsr__fetchpixregs2D(SornFwtsrPixReg *rec, SornVec *points,
                                          const SornFWTSRegion *r, const uint32_t *links,
                                          int32_t columns) {
  Sorn2dPt *first = pts(points) + points->count;
  uint32_t own = append_chain(points, r, links, columns);
  fill_record(rec, first, own, r);
  SornFwtsrPixReg *cursor = rec + 1;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    SornFwtsrPixReg *crec = cursor;
    cursor = _T_fwtsr__fetchpixregs2D(crec, points, c, links, columns);
    link_child(rec, crec);
  }
  return cursor;
}

int32_t sorn_fwtsr__fetchpixregs_$2d(SornFwtsrPixReg *regs, SornVec *points,
                                     const SornFWTSRegion *r, const uint32_t *links, int32_t rows,
                                     int32_t columns) {
  if (empty(r)) return 0;
  reserve(points, r->size, sizeof(Sorn2dPt));
  return static_cast<int32_t>(_T_fwtsr__fetchpixregs2D(regs, points, r, links, columns) - regs);
}

int32_t sorn_fwtsr_fetchpixregs_$2d(SornFwtsrPixReg *regs, int32_t capacity, SornVec *points,
                                    const SornFWTSRegion *r, const uint32_t *links, int32_t rows,
                                    int32_t columns) {
  if (empty(r)) return 0;
  int32_t n = sorn_fwtsr_countcld(r, 1) + 1;
  if (n > capacity) return n;
  sorn_fwtsr__fetchpixregs_$2d(regs, points, r, links, rows, columns);
  return n;
}

int32_t sorn_fwtsr__efetchpixregs_$2d(SornVec *regs, SornVec *points, const SornFWTSRegion *r,
                                      int32_t ndesc, const uint32_t *links, int32_t rows,
                                      int32_t columns) {
  if (empty(r)) return 0;
  uint64_t old = regs->count;
  uintptr_t before = reinterpret_cast<uintptr_t>(points->items);
  sorn_fwtsr__fetchpixregs_$2d(recs(regs) + old, points, r, links, rows, columns);
  follow_block(regs, old, before, points);
  regs->count += static_cast<uint64_t>(ndesc) + 1;
  return ndesc + 1;
}

int32_t sorn_fwtsr_efetchpixregs_$2d(SornVec *regs, SornVec *points, const SornFWTSRegion *r,
                                     const uint32_t *links, int32_t rows, int32_t columns) {
  if (empty(r)) return 0;
  int32_t ndesc = sorn_fwtsr_countcld(r, 1);
  reserve_records(regs, static_cast<uint64_t>(ndesc) + 1);
  // A vector that could not grow gets no record rather than one past its end.
  if (regs->capacity < regs->count + static_cast<uint64_t>(ndesc) + 1) return 0;
  return sorn_fwtsr__efetchpixregs_$2d(regs, points, r, ndesc, links, rows, columns);
}

/* ---- only the regions marked by the selection ---- */

SornFwtsrPixReg *_T_fwtsr__fetchmserpixregs2D(SornFwtsrPixReg *parent, SornFwtsrPixReg *cursor,
                                              SornVec *points, const SornFWTSRegion *r,
                                              const uint32_t *links, int32_t columns) {
  // Unmarked regions give their points to the marked region above them.
  Sorn2dPt *first = pts(points) + points->count;
  uint32_t own = append_chain(points, r, links, columns);
  if (r->mserflag) {
    fill_record(cursor, first, own, r);
    parent = cursor++;
  }
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    SornFwtsrPixReg *crec = cursor;
    cursor = _T_fwtsr__fetchmserpixregs2D(parent, cursor, points, c, links, columns);
    if (c->mserflag && parent) link_child(parent, crec);
  }
  return cursor;
}

int32_t _T_fwtsr__findrootmsers(const SornFWTSRegion **out, const SornFWTSRegion *r) {
  int32_t n = 0;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    if (c->mserflag)
      out[n++] = c;
    else
      n += _T_fwtsr__findrootmsers(out + n, c);
  }
  return n;
}

int32_t sorn_fwtsr__fetchpixregs_$mser$2d(SornFwtsrPixReg *regs, SornVec *points,
                                          const SornFWTSRegion *r, int32_t ndesc,
                                          const uint32_t *links, int32_t rows, int32_t columns) {
  if (empty(r)) return 0;
  if (r->mserflag) {
    reserve(points, r->size, sizeof(Sorn2dPt));
    return static_cast<int32_t>(
        _T_fwtsr__fetchmserpixregs2D(nullptr, regs, points, r, links, columns) - regs);
  }
  if (ndesc <= 0) return 0;
  const SornFWTSRegion **roots = static_cast<const SornFWTSRegion **>(
      _KuMcalloc(static_cast<size_t>(ndesc), sizeof(SornFWTSRegion *), 0));
  // Not part of the contract, which writes to the array unchecked; with no
  // array there is nothing to fetch.
  if (!roots) return 0;
  int32_t nroots = _T_fwtsr__findrootmsers(roots, r);
  uint64_t total = 0;
  for (int32_t i = 0; i < nroots; ++i) total += roots[i]->size;
  reserve(points, total, sizeof(Sorn2dPt));
  SornFwtsrPixReg *cursor = regs;
  SornFwtsrPixReg *prev = nullptr;
  for (int32_t i = 0; i < nroots; ++i) {
    SornFwtsrPixReg *rec = cursor;
    cursor = _T_fwtsr__fetchmserpixregs2D(nullptr, cursor, points, roots[i], links, columns);
    if (prev) prev->next = rec;
    prev = rec;
  }
  _KuMfree(roots);
  return static_cast<int32_t>(cursor - regs);
}

int32_t sorn_fwtsr_fetchpixregs_$mser$2d(SornFwtsrPixReg *regs, int32_t capacity, SornVec *points,
                                         const SornFWTSRegion *r, const uint32_t *links,
                                         int32_t rows, int32_t columns) {
  if (empty(r)) return 0;
  int32_t ndesc = sorn_fwtsr_countcld_$mser(r, 1);
  int32_t n = ndesc + (r->mserflag ? 1 : 0);
  if (n > capacity) return n;
  sorn_fwtsr__fetchpixregs_$mser$2d(regs, points, r, ndesc, links, rows, columns);
  return n;
}

int32_t sorn_fwtsr__efetchpixregs_$mser$2d(SornVec *regs, SornVec *points, const SornFWTSRegion *r,
                                           int32_t ndesc, const uint32_t *links, int32_t rows,
                                           int32_t columns) {
  if (empty(r)) return 0;
  int32_t n = ndesc + (r->mserflag ? 1 : 0);
  uint64_t old = regs->count;
  uintptr_t before = reinterpret_cast<uintptr_t>(points->items);
  sorn_fwtsr__fetchpixregs_$mser$2d(recs(regs) + old, points, r, ndesc, links, rows, columns);
  follow_block(regs, old, before, points);
  regs->count += static_cast<uint64_t>(n);
  return n;
}

int32_t sorn_fwtsr_efetchpixregs_$mser$2d(SornVec *regs, SornVec *points, const SornFWTSRegion *r,
                                          const uint32_t *links, int32_t rows, int32_t columns) {
  if (empty(r)) return 0;
  int32_t ndesc = sorn_fwtsr_countcld_$mser(r, 1);
  int32_t n = ndesc + (r->mserflag ? 1 : 0);
  reserve_records(regs, static_cast<uint64_t>(n));
  if (regs->capacity < regs->count + static_cast<uint64_t>(n)) return 0;
  return sorn_fwtsr__efetchpixregs_$mser$2d(regs, points, r, ndesc, links, rows, columns);
}

}  // extern "C"

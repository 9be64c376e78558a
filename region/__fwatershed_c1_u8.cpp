// The f form of the watershed flooding: it writes a SornFWTSRES directly.
// Every pixel has one word in a working array, which holds first its level
// and whether it may be flooded, then its link in a level list, and last
// its link in the list of its region's pixels.
#include <sorn.h>

#include <cstdint>
#include <cstring>

#include "region/flooding.h"

using namespace sorn::region;

namespace {

constexpr uint32_t kIndexMask = 0x0FFFFFFFu;
constexpr uint32_t kMaxPixels = 0x7FFFFFFu;

void pool_put(SornFWTSRegionPool *pool, SornFWTSRegion *r) {
  if (pool->count == pool->capacity) {
    int32_t cap = pool->capacity ? pool->capacity * 2 : 2;
    void *q = _KuMrealloc(pool->items, (size_t)cap * sizeof(SornFWTSRegion *), 0);
    if (!q) return;  // the region stays unused in the result's memory
    pool->items = static_cast<SornFWTSRegion **>(q);
    pool->capacity = cap;
  }
  pool->items[pool->count++] = r;
}

inline void add_child(SornFWTSRegion *parent, SornFWTSRegion *child) {
  child->parent = parent;
  child->next = parent->child;
  parent->child = child;
}

// Fills the working array: the level of every pixel, with bit 31 where the
// pixel may be flooded. Column 0 never may: a step left from column 1 or
// right from the last column lands there, and the zero pads catch the steps
// off the top and bottom, so one bit test bounds the whole flooding. A
// masked run decides each row by the one mask byte in the seed's column.
void fill_links(uint32_t *links, const Frame &f, const uint8_t *src, uint8_t pm, uint32_t sh,
                const uint8_t *mask, const int32_t *mst, int32_t seedcol, uint8_t excl) {
  const size_t pad = (size_t)f.cols + 2;
  std::memset(links - pad, 0, pad * sizeof(uint32_t));
  for (int32_t r = 0; r < f.rows; ++r) {
    const uint8_t *row = src + (int64_t)r * f.rowstride;
    uint32_t *__restrict out = links + (size_t)r * f.cols;
    uint32_t flood = kFloodable;
    if (mask && mask[(int64_t)r * mst[0] + (int64_t)seedcol * mst[1]] == excl) flood = 0;
    out[0] = (uint32_t)(row[0] ^ pm) >> sh;
    if (f.pixstride == 1) {
      for (int32_t c = 1; c < f.cols; ++c) out[c] = ((uint32_t)(row[c] ^ pm) >> sh) | flood;
    } else {
      for (int32_t c = 1; c < f.cols; ++c)
        out[c] = ((uint32_t)(row[(int64_t)c * f.pixstride] ^ pm) >> sh) | flood;
    }
  }
  std::memset(links + (size_t)f.rows * f.cols, 0, pad * sizeof(uint32_t));
}

SornStatus prepare(SornWTSState *state, const Frame &f, uint32_t **links) {
  SornFWTSRES *res = static_cast<SornFWTSRES *>(state->builder);
  if (!res->linkbase) {
    // A link array from an earlier run is used as it stands: the caller
    // clears the result before a larger image.
    size_t words = (size_t)f.rows * (size_t)f.cols + 2 * ((size_t)f.cols + 2);
    void *p = SornFWTSRESalloca(res, words * sizeof(uint32_t), 8);
    if (!p) return SORN_ENOMEM;
    res->linkbase = static_cast<uint32_t *>(p);
  }
  res->links = res->linkbase + f.cols + 2;
  *links = res->links;
  return SORN_OK;
}

SornStatus check(SornWTSState *state, const Frame &f) {
  if (state == nullptr || state->builder == nullptr) return SORN_EINVAL;
  if (f.rows < 1 || f.cols < 1) return SORN_ENOSPC;
  if ((uint32_t)f.rows * (uint32_t)f.cols > kMaxPixels) return SORN_EINVAL;
  if (!seed_in(f, state)) return SORN_EINVAL;
  return SORN_OK;
}

inline uint32_t shift_of(const SornWTSState *st) {
  uint32_t sh = st->shift & 0xFFu;
  return sh > 8 ? 8 : sh;
}

// Returns to waiting pixels. A level list is a stack threaded through the
// working array, and the flooding takes it up again only when it reaches
// that level, after a stretch of work elsewhere that grows with the flooded
// boundary: on a large image the word of the next pixel of a list, and the
// rows above and below it, have long left the caches, and following the
// links one miss at a time would make the cost per pixel grow with the
// image. A shadow of every list, one word per entry in a block of scratch,
// names the entry that will be taken up some pops from now, so that its
// rows can be fetched while the flooding is busy with the pixels before it.
// The shadow only ever prefetches: the lists in the working array stay what
// the flooding follows, and the result is the same with or without it.
//
// A list holds distinct pixels of its level, so the counts of the levels in
// the working array bound each shadow; the seed, which may lie on column 0
// or in the back pad, gets one place more.
struct Shadow {
  uint32_t *base[256];
  int64_t count[256];

  void place(uint32_t *block, const uint32_t *W, int64_t npix, int64_t seed) {
    int64_t n[4][256] = {};
    int64_t i = 0;
    // Four banks, so that a run of one level does not wait on one counter.
    for (; i + 4 <= npix; i += 4) {
      ++n[0][W[i] & 0xFFu];
      ++n[1][W[i + 1] & 0xFFu];
      ++n[2][W[i + 2] & 0xFFu];
      ++n[3][W[i + 3] & 0xFFu];
    }
    for (; i < npix; ++i) ++n[0][W[i] & 0xFFu];
    ++n[0][W[seed] & 0xFFu];
    for (int l = 0; l < 256; ++l) {
      base[l] = block;
      count[l] = 0;
      block += n[0][l] + n[1][l] + n[2][l] + n[3][l];
    }
  }
  void push(uint32_t level, uint32_t pix) { base[level][count[level]++] = pix; }
  void pop(uint32_t level, const uint32_t *W, int64_t cols) {
    const int64_t m = --count[level];
    if (m < kReturnsAhead) return;
    prefetch_rows<kForWrite>(W + base[level][m - kReturnsAhead], cols * (int64_t)sizeof(uint32_t));
  }
};

// From this many pixels on (a working array of 1 MB) the shadow pays for
// its pass over the array and its store per push.
constexpr int64_t kShadowFrom = int64_t{1} << 18;

// The flooding. Runs: the level lists take runs of unvisited pixels of the
// current level east or west of a pixel in one go. Ahead: the lists have a
// shadow that prefetches returns; without it 'shadow' is null.
template <bool Runs, bool Ahead>
SornStatus flood(int32_t rows, int32_t columns, int32_t seedrow, int32_t seedcolumn,
                 SornWTSState *state, Shadow *shadow) {
  SornFWTSRES *res = static_cast<SornFWTSRES *>(state->builder);
  uint32_t *const W = res->links;
  const int64_t npix = (int64_t)rows * columns;
  const int64_t cap0 = npix < 256 ? (npix < 1 ? 1 : npix) : 256;
  const int64_t cols = columns;

  PtrStack<SornFWTSRegion> rs{
      static_cast<SornFWTSRegion **>(_KuMcalloc((size_t)cap0, sizeof(void *), 0)), 0, 0};
  rs.capacity = rs.items ? cap0 : 0;
  SornFWTSRegionPool pool{
      static_cast<SornFWTSRegion **>(_KuMcalloc((size_t)cap0, sizeof(void *), 0)), 0, 0};
  pool.capacity = pool.items ? (int32_t)cap0 : 0;
  pool_put(&pool, nullptr);
  // Regions that the result's memory cannot hold end the run with
  // SORN_ENOMEM; the heap blocks go back on every way out.
  auto release = [&](SornStatus status) {
    _KuMfree(rs.items);
    _KuMfree(pool.items);
    return status;
  };

  uint32_t heads[257];
  for (int i = 0; i < 256; ++i) heads[i] = kListEnd;
  heads[256] = 0x80000000u;

  SornFWTSRegion bottom{};
  bottom.head = (int32_t)kListEnd;
  bottom.tail = (int32_t)kListEnd;
  bottom.level = (int32_t)kListEnd;
  rs.push(&bottom);

  auto push = [&](uint32_t pix, uint32_t level, uint32_t code) {
    W[pix] = heads[level];
    heads[level] = pix | (code << 28);
    if (Ahead) shadow->push(level, pix);
  };
  auto take = [&](int32_t tail, int32_t level) {
    SornFWTSRegion *r = _T_fwtsregion_pool_new(&pool, tail, level);
    return r ? r : SornFWTSRESnewregion(res, tail, level);
  };

  int64_t p = (int64_t)seedrow * cols + seedcolumn;
  uint32_t L = W[p] & 0xFFu;
  // The seed is visited like any pixel moved to, so that no neighbour
  // takes it up again.
  W[p] = kListEnd;
  SornFWTSRegion *R = nullptr;
  uint32_t s = 1;

visit_east : {
  const int64_t q = p + 1;
  const uint32_t wq = W[q];
  if (wq & kFloodable) {
    const uint32_t e = wq & 0xFFu;
    if (L > e) {
      push((uint32_t)p, L, s);
      W[q] = kListEnd;
      p = q;
      L = e;
      s = 2;
      R = nullptr;
      goto visit_east;
    }
    if (Runs && e == L) {
      int64_t a = q;
      for (uint32_t wn; ((wn = W[a + 1]) & kFloodable) && (wn & 0xFFu) == L; ++a)
        push((uint32_t)a, L, 2);
      push((uint32_t)a, L, 0);
    } else {
      push((uint32_t)q, e, 0);
    }
  }
}
visit_west : {
  const int64_t q = p - 1;
  const uint32_t wq = W[q];
  if (wq & kFloodable) {
    const uint32_t e = wq & 0xFFu;
    if (L > e) {
      push((uint32_t)p, L, 2);
      W[q] = kListEnd;
      p = q;
      L = e;
      s = 2;
      R = nullptr;
      goto visit_east;
    }
    if (Runs && e == L) {
      int64_t a = q;
      for (uint32_t wn; ((wn = W[a - 1]) & kFloodable) && (wn & 0xFFu) == L; --a)
        push((uint32_t)a, L, 2);
      push((uint32_t)a, L, 0);
    } else {
      push((uint32_t)q, e, 0);
    }
  }
}
visit_north : {
  const int64_t q = p - cols;
  const uint32_t wq = W[q];
  if (wq & kFloodable) {
    const uint32_t e = wq & 0xFFu;
    if (L > e) {
      push((uint32_t)p, L, 3);
      W[q] = kListEnd;
      p = q;
      L = e;
      s = 1;
      R = nullptr;
      goto visit_east;
    }
    push((uint32_t)q, e, 0);
  }
}
visit_south : {
  const int64_t q = p + cols;
  const uint32_t wq = W[q];
  if (wq & kFloodable) {
    const uint32_t e = wq & 0xFFu;
    if (L > e) {
      push((uint32_t)p, L, 4);
      W[q] = kListEnd;
      p = q;
      L = e;
      s = 1;
      R = nullptr;
      goto visit_east;
    }
    push((uint32_t)q, e, 0);
  }
}
accumulate:
  if (R == nullptr) {
    R = take((int32_t)p, (int32_t)L);
    if (R == nullptr) return release(SORN_ENOMEM);
    rs.push(R);
  }
  W[p] = (uint32_t)R->head;
  R->head = (int32_t)p;
  R->size += 1;
  if (heads[L] == kListEnd) {
    do ++L;
    while (heads[L] == kListEnd);
    if (L > 255) {
      res->root = R;
      return release(SORN_OK);
    }
    const int32_t q = (int32_t)(heads[L] & kIndexMask);
    for (;;) {
      // Fewer than two regions are left only after pushes that the stack
      // could not take.
      if (rs.count < 2) return release(SORN_ENOMEM);
      SornFWTSRegion *S = rs.items[rs.count - 2];
      if ((int32_t)L < S->level) {
        if (R->size > 15) {
          SornFWTSRegion *F = take(q, (int32_t)L);
          if (F == nullptr) return release(SORN_ENOMEM);
          F->size = R->size;
          add_child(F, R);
          rs.items[rs.count - 1] = F;
          R = F;
        } else {
          R->level = (int32_t)L;
        }
        break;
      }
      if (R->size < 16) {
        W[R->tail] = (uint32_t)S->head;
        S->head = R->head;
        S->size += R->size;
        pool_put(&pool, R);
      } else {
        add_child(S, R);
        S->size += R->size;
      }
      --rs.count;
      R = S;
      if (!((int32_t)L > R->level)) break;
    }
  }
  {
    const uint32_t h = heads[L];
    p = h & kIndexMask;
    heads[L] = W[p];
    if (Ahead) shadow->pop(L, W, cols);
    switch (h >> 28) {
      case 0: s = 1; goto visit_east;
      case 1: goto visit_west;
      case 2: goto visit_north;
      case 3: goto visit_south;
      default: goto accumulate;
    }
  }
}

// A large image floods with a shadow of its lists when the scratch has room
// for one; without room (or without an environment, for a caller of the
// flooding itself) it floods as a small one does.
template <bool Runs>
SornStatus with_shadow(int32_t rows, int32_t columns, int32_t seedrow, int32_t seedcolumn,
                       SornXE *xe, SornWTSState *state) {
  const int64_t npix = (int64_t)rows * columns;
  uint32_t *block = nullptr;
  if (xe != nullptr && npix >= kShadowFrom)
    block = static_cast<uint32_t *>(SornXEalloca(xe, ((size_t)npix + 1) * sizeof(uint32_t), 64));
  if (block == nullptr)
    return flood<Runs, false>(rows, columns, seedrow, seedcolumn, state, nullptr);
  Shadow shadow;
  const SornFWTSRES *res = static_cast<const SornFWTSRES *>(state->builder);
  shadow.place(block, res->links, npix, (int64_t)seedrow * columns + seedcolumn);
  SornStatus st = flood<Runs, true>(rows, columns, seedrow, seedcolumn, state, &shadow);
  SornXEfreea(xe, block);
  return st;
}

SornStatus run(SornXE *xe, SornFlags flags, SornWTSState *state, Frame f, const uint8_t *src,
               const uint8_t *mask, const int32_t *mst) {
  SornStatus st = check(state, f);
  if (st != SORN_OK) return st;
  int32_t seedrow = (int32_t)state->seed[1], seedcol = (int32_t)state->seed[2];
  const uint8_t excl = excluded_value(flags);
  if (mask && !find_seed(f, src, mask, mst, excl, seedrow, seedcol)) return SORN_OK;
  uint32_t *links = nullptr;
  if ((st = prepare(state, f, &links)) != SORN_OK) return st;
  fill_links(links, f, src, polarity_mask(state), shift_of(state), mask, mst, seedcol, excl);
  // The seed moves one column right, off column 0, which is never flooded;
  // at the end of a row that is column 0 of the next row.
  return __T_sorna__fwatershed_c1_u8_01(f.rows, f.cols, seedrow, seedcol + 1, xe, flags, state);
}

}  // namespace

extern "C" {

SornFWTSRegion *_T_fwtsregion_pool_new(SornFWTSRegionPool *pool, int32_t tail, int32_t level) {
  if (pool->count < 1) return nullptr;
  SornFWTSRegion *r = pool->items[pool->count - 1];
  if (r == nullptr) return nullptr;
  --pool->count;
  r->head = (int32_t)kListEnd;
  r->tail = tail;
  r->level = level;
  r->size = 0;
  r->mserflag = 0;
  r->next = r->child = r->parent = nullptr;
  return r;
}

SornStatus __T_sorna__fwatershed_c1_u8_01(int32_t rows, int32_t columns, int32_t seedrow,
                                          int32_t seedcolumn, SornXE *xe, SornFlags,
                                          SornWTSState *state) {
  return with_shadow<false>(rows, columns, seedrow, seedcolumn, xe, state);
}

SornStatus __T_sorna__fwatershed_c1_u8_00(int32_t rows, int32_t columns, int32_t seedrow,
                                          int32_t seedcolumn, SornXE *xe, SornFlags,
                                          SornWTSState *state) {
  return with_shadow<true>(rows, columns, seedrow, seedcolumn, xe, state);
}

SornStatus __sorna__fwatershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                     SornDimPack code, const int32_t *dims, const uint8_t *src,
                                     const int32_t *strides) {
  return run(xe, flags, state, frame_of(code, dims, strides), src, nullptr, nullptr);
}

SornStatus __sorna__fwatershed_xm_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                        SornDimPack code, const int32_t *dims, const uint8_t *src,
                                        const int32_t *strides, const uint8_t *mask,
                                        const int32_t *maskstrides) {
  int32_t mst[2];
  mask_steps(code, maskstrides, mst);
  return run(xe, flags, state, frame_of(code, dims, strides), src, mask, mst);
}

}  // extern "C"

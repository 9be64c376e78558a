// The plain form of the watershed flooding, which builds a component tree
// through a tree builder's operation chain: its setups, with and without a
// mask, and the flooding itself.
#include <sorn.h>

#include <cstdint>
#include <cstring>

#include "region/flooding.h"

using namespace sorn::region;

namespace {

/* ---------------- the plain flooding ---------------- */

// What small and full regions have in common at the same places.
struct Head {
  uint64_t node;
  uint32_t pivot;
  uint32_t pivotval;
};
static_assert(offsetof(SornWTSSmallRegion, pivot) == offsetof(SornWTSRegion, pivot), "pivot");
static_assert(offsetof(SornWTSSmallRegion, pivotval) == offsetof(SornWTSRegion, pivotval),
              "pivotval");

constexpr uint64_t kSmall = ~0ull;

inline Head *head_of(void *r) { return static_cast<Head *>(r); }
inline bool is_small(void *r) { return head_of(r)->node == kSmall; }

struct Neighbour {
  int32_t lin;  // step of the linear index
  int32_t drow;
  int32_t dcol;
  int64_t bytes;  // step in the image
};

// Entry of a level stack: index, neighbour to go on with, column, row.
inline uint64_t pack_entry(uint32_t index, uint32_t k, uint32_t col, uint32_t row) {
  return (uint64_t)(index & 0x0FFFFFFFu) | ((uint64_t)k << 28) | ((uint64_t)col << 32) |
         ((uint64_t)row << 48);
}

struct LevelStack {
  uint32_t capacity;
  uint32_t count;
  uint64_t *items;
};

// What a walk over a subtree that the tree does not hold needs to end the
// features of its regions.
struct Outsider {
  void (*destroy)(SornWTSRegion *region, void *unused, SornWTSLSC *lsc);
  SornWTSLSC *lsc;
};
int32_t end_features(SornAGTnode *node, void *arg, int32_t) {
  const Outsider *o = static_cast<const Outsider *>(arg);
  o->destroy(static_cast<SornWTSRegion *>(node->data), nullptr, o->lsc);
  return 1;
}

inline bool test_bit(const uint8_t *m, int64_t n) { return (m[n >> 3] >> (n & 7)) & 1u; }
inline void set_bit(uint8_t *m, int64_t n) { m[n >> 3] |= (uint8_t)(1u << (n & 7)); }

// Bytes of the visited mask: a front guard of ones, then a bit per pixel
// and ones behind them, so that steps off the top or the bottom row read
// as visited.
struct VisitedLayout {
  size_t front;
  size_t body;
};
inline VisitedLayout visited_layout(int32_t rows, int32_t cols) {
  return {((size_t)cols + 9) / 8, ((size_t)(rows + 1) * (size_t)cols + 9) / 8};
}

uint8_t *build_visited(uint8_t *block, const VisitedLayout &v, int64_t npix) {
  std::memset(block, 0xFF, v.front);
  uint8_t *m = block + v.front;
  size_t full = (size_t)(npix >> 3);
  std::memset(m, 0, full);
  size_t at = full;
  if (npix & 7) m[at++] = (uint8_t)(0xFFu << (npix & 7));
  if (v.body > at) std::memset(m + at, 0xFF, v.body - at);
  return m;
}

void reverse_bins(SornHist *h) {
  for (int i = 0; i < 128; ++i) {
    uint32_t t = h->counts[i];
    h->counts[i] = h->counts[255 - i];
    h->counts[255 - i] = t;
  }
}

SornHistInit byte_histogram(int32_t rows, int32_t cols) {
  SornHistInit in{};
  in.elemtype = SORN_U8;
  in.bins = 256;
  in.low = 0.0;
  in.high = 255.0;
  in.planes = 1;
  in.rows = rows;
  in.cols = cols;
  return in;
}

// The common tail of both plain setups: histogram in the run's polarity,
// the flooding, and the scratch back in reverse order.
SornStatus count_and_flood(SornXE *xe, SornFlags flags, SornWTSState *st, const Frame &f,
                           const uint8_t *src, const uint8_t *mask, const int32_t *mst,
                           int32_t seedrow, int32_t seedcol, uint8_t *visited) {
  SornHist hist;
  SornHistInit init = byte_histogram(f.rows, f.cols);
  // Scratch that runs out is answered, not run into: the histogram, its
  // counting banks and the flooding's own blocks all say SORN_ENOMEM.
  if (__sorn_histogram__$xe(&hist, &init, xe) != SORN_OK) return SORN_ENOMEM;
  const int32_t dims3[3] = {f.rows, f.cols, 1};
  const int32_t strides3[3] = {f.rowstride, f.pixstride, 1};
  SornStatus s;
  if (mask) {
    const int32_t mstrides3[3] = {mst[0], mst[1], 1};
    s = sorna__histogram_xm_c1_u8(xe, flags, 3, dims3, src, strides3, mask, mstrides3, &hist);
  } else {
    s = sorna__histogram_c1_u8(xe, flags, 3, dims3, src, strides3, &hist);
  }
  if (s == SORN_OK) {
    if (st->polarity == 1) reverse_bins(&hist);
    s = __T_sorna__watershed_c1_u8(xe, flags, st, f.rows, f.cols, f.rowstride, f.pixstride, src,
                                   seedrow, seedcol, visited, &hist);
  }
  sorn_hist_fini_$xe(&hist, xe);
  return s;
}

// The visited mask of a plain flooding, with a front guard of ones, and
// with a mask the pixels it leaves out marked visited from the start; then
// the count and the flooding. A masked run starts at the first pixel the
// mask lets in, from the seed on.
SornStatus plain_setup(SornXE *xe, SornFlags flags, SornWTSState *state, SornDimPack code,
                       const int32_t *dims, const uint8_t *src, const int32_t *strides,
                       const uint8_t *mask, const int32_t *maskstrides) {
  if (state == nullptr) return SORN_EINVAL;
  Frame f = frame_of(code, dims, strides);
  if (f.rows < 1 || f.cols < 1) return SORN_ENOSPC;
  if (!seed_in(f, state)) return SORN_EINVAL;
  int32_t mst[2] = {0, 0};
  const uint8_t excl = excluded_value(flags);
  int32_t seedrow = (int32_t)state->seed[1], seedcol = (int32_t)state->seed[2];
  if (mask) {
    mask_steps(code, maskstrides, mst);
    if (!find_seed(f, src, mask, mst, excl, seedrow, seedcol)) return SORN_OK;
  }
  const VisitedLayout v = visited_layout(f.rows, f.cols);
  const size_t bytes = v.front + v.body;
  uint8_t local[64];
  uint8_t *block = bytes <= sizeof local ? local : (uint8_t *)SornXEalloca(xe, bytes, 8);
  if (block == nullptr) return SORN_ENOMEM;
  uint8_t *visited = build_visited(block, v, (int64_t)f.rows * f.cols);
  if (mask) {
    for (int32_t r = 0; r < f.rows; ++r) {
      const uint8_t *m = mask + (int64_t)r * mst[0];
      for (int32_t c = 0; c < f.cols; ++c)
        if (m[(int64_t)c * mst[1]] == excl) set_bit(visited, (int64_t)r * f.cols + c);
    }
  }
  SornStatus s = count_and_flood(xe, flags, state, f, src, mask, mask ? mst : nullptr, seedrow,
                                 seedcol, visited);
  if (block != local) SornXEfreea(xe, block);
  return s;
}

}  // namespace

extern "C" {

/* ---------------- plain setups ---------------- */

SornStatus __sorna__watershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                    SornDimPack code, const int32_t *dims, const uint8_t *src,
                                    const int32_t *strides) {
  return plain_setup(xe, flags, state, code, dims, src, strides, nullptr, nullptr);
}

SornStatus __sorna__watershed_xm_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                       SornDimPack code, const int32_t *dims, const uint8_t *src,
                                       const int32_t *strides, const uint8_t *mask,
                                       const int32_t *maskstrides) {
  return plain_setup(xe, flags, state, code, dims, src, strides, mask, maskstrides);
}

/* ---------------- the plain flooding ---------------- */

SornStatus __T_sorna__watershed_c1_u8(SornXE *xe, SornFlags flags, SornWTSState *state,
                                      int32_t rows, int32_t columns, int32_t rowstride,
                                      int32_t pixstride, const uint8_t *src, int32_t seedrow,
                                      int32_t seedcolumn, uint8_t *visited, const SornHist *hist) {
  SornSTB *b = static_cast<SornSTB *>(state->builder);
  SornWTSLSC *lsc = state->lsc;
  if (b == nullptr || lsc == nullptr) return SORN_EINVAL;
  SornWTSLSCsetimvol2D(lsc, rows, columns, rowstride);
  SornWTSLSCfixup(lsc);
  auto find = [&]() {
    return static_cast<const SornWTSTBwtsl *>(_T_stb__findblock(b->ops, SORN_STB_TAG_WTSL));
  };
  const SornWTSTBwtsl *w = find();
  if (w == nullptr) return SORN_EINVAL;
  w->start(b, lsc, flags, &state->polarity);
  // start may have chosen another table.
  if ((w = find()) == nullptr) return SORN_EINVAL;
  auto *const newregion = w->newregion;
  auto *const accumulate2D = w->accumulate2D;
  auto *const merge = w->merge;

  Neighbour nb[8];
  const int32_t nn = state->connectivity == 0 ? 4 : 8;
  {
    static const int8_t d8[8][2] = {{0, 1},  {1, 1},   {1, 0},  {1, -1},
                                    {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}};
    for (int32_t k = 0; k < nn; ++k) {
      const int8_t *d = d8[nn == 4 ? 2 * k : k];
      nb[k] = {d[0] * columns + d[1], d[0], d[1],
               (int64_t)d[0] * rowstride + (int64_t)d[1] * pixstride};
    }
  }

  const int64_t npix = (int64_t)rows * columns;
  const int64_t cap0 = npix < 256 ? npix : 256;
  SornWTSSmallRegion *pool =
      static_cast<SornWTSSmallRegion *>(_KuMcalloc((size_t)cap0, sizeof(SornWTSSmallRegion), 0));
  int32_t npool = 0;
  PtrStack<void> rs{static_cast<void **>(_KuMcalloc((size_t)cap0, sizeof(void *), 0)), 0, 0};
  rs.capacity = rs.items ? cap0 : 0;

  uint64_t *entries = static_cast<uint64_t *>(SornXEalloca(xe, 8 * (size_t)hist->total, 8));
  // Every way out once the blocks are taken: the scratch goes back first,
  // then the heap blocks.
  auto release = [&](SornStatus status) {
    // Regions still on the stack that no merge took into the tree (the
    // bottom region always, the only region of an image of one level, and
    // after a run cut short the tops of the subtrees it built) are out of
    // reach of the builder's clean-up, which walks the tree: their
    // features, and those of everything merged into them, end here.
    if (w->destroyrgn) {
      Outsider out{w->destroyrgn, lsc};
      for (int64_t i = 0; i < rs.count; ++i) {
        if (is_small(rs.items[i])) continue;
        SornWTSRegion *r = static_cast<SornWTSRegion *>(rs.items[i]);
        SornAGTnode *node = r->node;
        if (node == nullptr) {
          out.destroy(r, nullptr, lsc);
        } else if (node->parent == nullptr && !(b->tree && b->tree->root == node)) {
          _T_agt_walk_postorder(node, end_features, &out);
        }
      }
    }
    if (entries) SornXEfreea(xe, entries);
    _KuMfree(rs.items);
    _KuMfree(pool);
    return status;
  };
  if (pool == nullptr || entries == nullptr) return release(SORN_ENOMEM);
  LevelStack lv[256];
  {
    uint64_t *at = entries;
    for (int i = 0; i < 256; ++i) {
      lv[i] = {hist->counts[i], 0, at};
      at += hist->counts[i];
    }
  }

  SornWTSRegion *bottom = newregion(nullptr, b, lsc);
  if (bottom == nullptr) return release(SORN_ENOMEM);
  bottom->pivot = 0xFFFFFFFFu;
  bottom->pivotval = 0x7FFFFFFFu;
  // A stack that can't grow leaves a region out; later pops then disagree
  // with the regions, which is left as it stands.
  rs.push(bottom);

  const uint8_t pm = polarity_mask(state);
  const uint32_t ucols = (uint32_t)columns;
  uint32_t index = (uint32_t)(seedrow * columns + seedcolumn);
  uint32_t row = (uint32_t)seedrow, col = (uint32_t)seedcolumn;
  const uint8_t *pix = src + (int64_t)row * rowstride + (int64_t)col * pixstride;
  uint32_t L = (uint32_t)(*pix ^ pm);
  uint32_t k = 0;
  set_bit(visited, index);

descend : {
  // A region left off a stack that could not grow never comes back to the
  // pool, which then may fill up.
  if (npool >= cap0) return release(SORN_ENOMEM);
  SornWTSSmallRegion *sr = &pool[npool++];
  sr->node = kSmall;
  sr->pivot = index;
  sr->pivotval = L;
  sr->npoints = 0;
  rs.push(sr);
  k = 0;
}
scan:
  while (k < (uint32_t)nn) {
    const Neighbour &d = nb[k];
    const int64_t n = (int64_t)index + d.lin;
    if (test_bit(visited, n)) {
      ++k;
      continue;
    }
    const uint32_t c = col + (uint32_t)d.dcol;
    if (c >= ucols) {
      ++k;
      continue;
    }
    const uint8_t *q = pix + d.bytes;
    const uint32_t v = (uint32_t)(*q ^ pm);
    set_bit(visited, n);
    if (v < L) {
      LevelStack &s = lv[L];
      s.items[s.count++] = pack_entry(index, k + 1, col, row);
      index = (uint32_t)n;
      row += (uint32_t)d.drow;
      col = c;
      pix = q;
      L = v;
      goto descend;
    }
    LevelStack &s = lv[v];
    s.items[s.count++] = pack_entry((uint32_t)n, 0, c, row + (uint32_t)d.drow);
    ++k;
  }

accumulate : {
  if (rs.count < 1) return release(SORN_ENOMEM);
  void *top = rs.items[rs.count - 1];
  const int32_t pt[2] = {(int32_t)row, (int32_t)col};
  if (!is_small(top)) {
    accumulate2D(b, lsc, static_cast<SornWTSRegion *>(top), pt, 1);
  } else {
    SornWTSSmallRegion *sr = static_cast<SornWTSSmallRegion *>(top);
    sr->points[sr->npoints][0] = pt[0];
    sr->points[sr->npoints][1] = pt[1];
    if (++sr->npoints == 16) {
      SornWTSRegion *fresh = newregion(nullptr, b, lsc);
      if (fresh == nullptr) return release(SORN_ENOMEM);
      fresh->pivot = sr->pivot;
      fresh->pivotval = sr->pivotval;
      accumulate2D(b, lsc, fresh, &sr->points[0][0], 16);
      rs.items[rs.count - 1] = fresh;
      --npool;
    }
  }
}

  // Next pixel: the same level while it has any, else the next level up.
  {
    auto pop = [&](LevelStack &s) {
      const int64_t m = --s.count;
      // The pixel taken up some pops from now: its rows of the image and
      // of the visited mask are fetched while the pixels before it run.
      if (m >= kReturnsAhead) {
        const uint64_t a = s.items[m - kReturnsAhead];
        const int64_t ai = (int64_t)(a & 0x0FFFFFFFu);
        prefetch_rows<kForRead>(
            src + (int64_t)(a >> 48) * rowstride + (int64_t)((a >> 32) & 0xFFFFu) * pixstride,
            rowstride);
        prefetch_rows<kForWrite>(visited + (ai >> 3), columns / 8);
      }
      const uint64_t e = s.items[m];
      index = (uint32_t)(e & 0x0FFFFFFFu);
      k = (uint32_t)(e >> 28) & 15u;
      col = (uint32_t)(e >> 32) & 0xFFFFu;
      row = (uint32_t)(e >> 48);
      pix = src + (int64_t)row * rowstride + (int64_t)col * pixstride;
    };
    if (lv[L].count) {
      pop(lv[L]);
      if (k < (uint32_t)nn) goto scan;
      goto accumulate;
    }
    do ++L;
    while (L < 256 && lv[L].count == 0);
    if (L > 255) {
      w->finish(b, lsc, &state->polarity);
      return release(SORN_OK);
    }
    pop(lv[L]);
  }

  // Close the top regions below the new level.
  for (;;) {
    // Fewer than two regions are left only after pushes that the stack
    // could not take.
    if (rs.count < 2) return release(SORN_ENOMEM);
    void *R = rs.items[rs.count - 1];
    void *S = rs.items[rs.count - 2];
    if (L < head_of(S)->pivotval) {
      if (is_small(R)) {
        head_of(R)->pivot = index;
        head_of(R)->pivotval = L;
      } else {
        SornWTSRegion *fresh = newregion(nullptr, b, lsc);
        if (fresh == nullptr) return release(SORN_ENOMEM);
        fresh->pivot = index;
        fresh->pivotval = L;
        merge(b, lsc, fresh, static_cast<SornWTSRegion *>(R));
        rs.items[rs.count - 1] = fresh;
      }
      break;
    }
    if (!is_small(S)) {
      SornWTSRegion *s = static_cast<SornWTSRegion *>(S);
      if (!is_small(R)) {
        merge(b, lsc, s, static_cast<SornWTSRegion *>(R));
      } else {
        SornWTSSmallRegion *r = static_cast<SornWTSSmallRegion *>(R);
        if (r->npoints) accumulate2D(b, lsc, s, &r->points[0][0], (int32_t)r->npoints);
        --npool;
      }
    } else {
      SornWTSSmallRegion *s = static_cast<SornWTSSmallRegion *>(S);
      if (!is_small(R)) {
        SornWTSRegion *fresh = newregion(nullptr, b, lsc);
        if (fresh == nullptr) return release(SORN_ENOMEM);
        fresh->pivot = s->pivot;
        fresh->pivotval = s->pivotval;
        if (s->npoints) accumulate2D(b, lsc, fresh, &s->points[0][0], (int32_t)s->npoints);
        merge(b, lsc, fresh, static_cast<SornWTSRegion *>(R));
        --npool;
        rs.items[rs.count - 2] = fresh;
      } else {
        SornWTSSmallRegion *r = static_cast<SornWTSSmallRegion *>(R);
        if (s->npoints + r->npoints <= 15) {
          std::memcpy(s->points[s->npoints], r->points, sizeof(int32_t) * 2 * r->npoints);
          s->npoints += r->npoints;
          --npool;
        } else {
          SornWTSRegion *fresh = newregion(nullptr, b, lsc);
          if (fresh == nullptr) return release(SORN_ENOMEM);
          fresh->pivot = s->pivot;
          fresh->pivotval = s->pivotval;
          if (s->npoints) accumulate2D(b, lsc, fresh, &s->points[0][0], (int32_t)s->npoints);
          accumulate2D(b, lsc, fresh, &r->points[0][0], (int32_t)r->npoints);
          npool -= 2;
          rs.items[rs.count - 2] = fresh;
        }
      }
    }
    --rs.count;
    if (rs.count < 1) return release(SORN_ENOMEM);
    if (!(L > head_of(rs.items[rs.count - 1])->pivotval)) break;
  }
  if (k < (uint32_t)nn) goto scan;
  goto accumulate;
}

}  // extern "C"

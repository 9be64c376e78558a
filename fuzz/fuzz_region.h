// What the region targets share: images whose levels form regions big
// enough to become nodes, masks, seeds, and the checks of the trees and
// results a flooding leaves.
#pragma once

#include "fuzz_input.h"

#include <algorithm>

namespace sorn_fuzz {

inline const uint32_t kRegionTypes[] = {SORN_U8};

// Rewrites the pixels of a byte image (the whole block, the parent's bytes
// in front included) with levels that a flooding can make something of:
// few levels, blocks of one level, slopes with noise, or the generator's
// raw bytes with their runs of extremes.
inline void shape_levels(Input &in, Operand &op, Pixels &px) {
  const uint8_t mode = in.u8();
  const int32_t levels = 1 + in.u8();
  const int32_t block = 1 + (in.u8() & 7);
  const int32_t slope_r = in.range(-9, 9), slope_c = in.range(-9, 9);
  if (op.esize != 1 || op.rowstride <= 0) return;
  uint8_t *p = op.data();
  const int32_t step = levels > 1 ? 255 / (levels - 1) : 0;
  for (size_t i = 0; i < op.bytes; ++i) {
    const int64_t row = (int64_t)(i / (size_t)op.rowstride);
    const int64_t col = (int64_t)(i % (size_t)op.rowstride);
    const uint64_t r = px.next();
    switch (mode & 3) {
      case 0: p[i] = (uint8_t)((int32_t)(r % (uint64_t)levels) * step); break;
      case 1: {
        uint64_t h = (uint64_t)(row / block) * 0x9E3779B97F4A7C15ull ^
                     (uint64_t)(col / block) * 0xC2B2AE3D27D4EB4Full;
        h ^= h >> 29;
        p[i] = (uint8_t)((int32_t)(h % (uint64_t)levels) * step);
        break;
      }
      case 2: {
        const int64_t v = 128 + slope_r * row + slope_c * col + (int64_t)(r % (uint64_t)levels);
        p[i] = (uint8_t)std::min<int64_t>(255, std::max<int64_t>(0, v));
        break;
      }
      default: break;
    }
  }
}

// A mask shaped after the image: mostly of its extents, one byte channel,
// now and then another rank, depth, size, type or channel word.
inline Shape decode_mask_shape(Input &in, const Shape &img) {
  Shape m = img;
  m.type = in.chance(240) ? SORN_U8 : decode_type(in, kRegionTypes, 1);
  m.chword = in.chance(240) ? 1 : (int32_t)decode_chword(in);
  const uint8_t rank = in.u8();
  if (rank >= 224) m.ndims = rank & 1 ? 3 : 4;
  if (rank >= 248) m.ndims = (uint16_t)(rank & 7);
  m.planes = in.chance(200) ? img.planes : in.range(-1, 3);
  if (!in.chance(220)) m.rows = img.rows + in.range(-2, 2);
  if (!in.chance(220)) m.cols = img.cols + in.range(-2, 2);
  const uint8_t pad = in.u8();
  m.rowpad = pad & 7;
  m.planepad = (pad >> 3) & 7;
  const uint8_t org = in.u8();
  m.py = org & 3;
  m.px = (org >> 2) & 3;
  m.pz = (org >> 4) & 1;
  return m;
}

// Mask bytes: everything inside, everything outside (0 or 255), sparse or
// dense scatterings of inside pixels, or the generator's raw bytes.
inline void fill_mask(Input &in, Operand &m, Pixels &px) {
  const uint8_t mode = in.u8();
  const uint8_t density = in.u8();
  uint8_t *p = m.data();
  for (size_t i = 0; i < m.bytes; ++i) {
    const uint64_t r = px.next();
    switch (mode % 5) {
      case 0: p[i] = 1; break;
      case 1: p[i] = mode & 8 ? 255 : 0; break;
      case 2: p[i] = (uint8_t)(r & 255) < density ? (uint8_t)(1 + (r >> 8) % 255) : 0; break;
      case 3: p[i] = (uint8_t)(r & 255) < density ? 0 : 255; break;
      default: break;
    }
  }
}

// The operands of a region target, read in the one order every target
// uses: the image with levels a flooding can make something of, the mask
// and its bytes, then a byte choosing which regions of interest are given
// and the two regions. Bits 0 and 1 give the image's and the mask's region;
// bits 2 and 3 together leave the mask out.
struct RegionOperands {
  uint8_t which;
  SornVolume rv, mv;
  const SornVolume *roi() const { return (which & 1) ? &rv : nullptr; }
  const SornVolume *mroi() const { return (which & 2) ? &mv : nullptr; }
  bool mask_left_out() const { return (which & 12) == 12; }
};

inline RegionOperands build_region_operands(Input &in, Pixels &px, Operand &img, const Shape &is,
                                            Operand &mask, const Shape &ms) {
  build(img, is, px);
  shape_levels(in, img, px);
  build(mask, ms, px);
  fill_mask(in, mask, px);
  RegionOperands r;
  r.which = in.u8();
  r.rv = decode_roi(in, img.channels);
  r.mv = decode_roi(in, mask.channels);
  return r;
}

// Seed cells: mostly inside a site of rows x cols, sometimes on its edge or
// anywhere. Cells 0 and 3 are not used by the flooding; they vary anyway.
inline void decode_seed(Input &in, uint32_t seed[4], int32_t rows, int32_t cols) {
  const uint8_t how = in.u8();
  seed[0] = how & 0x80 ? in.u32() : 0;
  seed[3] = how & 0x40 ? in.u32() : 0;
  if ((how & 3) == 0) {
    seed[1] = seed[2] = 0;
  } else if ((how & 3) != 3) {
    seed[1] = (uint32_t)in.range(0, std::max(rows, 1) + 1);
    seed[2] = (uint32_t)in.range(0, std::max(cols, 1) + 1);
  } else {
    seed[1] = in.chance(128) ? (uint32_t)in.range(-2, 30) : in.u32();
    seed[2] = in.chance(128) ? (uint32_t)in.range(-2, 44) : in.u32();
  }
}

// An f-form result: every region's own chain ends after its own pixels,
// inside the working array, and a region's size is its own pixels and its
// children's sizes; children point back at their parent. 'bound' is one
// past the largest pixel index a run of that image may use.
inline void check_fregion(const SornFWTSRegion *r, const SornFWTSRegion *parent,
                          const uint32_t *links, int64_t bound, int64_t &budget) {
  FUZZ_CHECK(--budget >= 0);
  FUZZ_CHECK(r->parent == parent);
  uint64_t own = 0;
  for (int64_t i = r->head; i != SORN_FWTSR_END; i = links[i]) {
    FUZZ_CHECK(i >= 0 && i < bound);
    FUZZ_CHECK(++own <= r->size);
  }
  uint64_t below = 0;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    check_fregion(c, r, links, bound, budget);
    below += c->size;
  }
  FUZZ_CHECK(own + below == r->size);
}

inline void check_fres(const SornFWTSRES &res, int64_t bound) {
  if (res.root == nullptr) return;
  FUZZ_CHECK(res.links != nullptr);
  int64_t budget = bound + 64;
  check_fregion(res.root, nullptr, res.links, bound, budget);
}

// A plain form's tree: a finite tree whose children point back at their
// parent and whose nodes all carry a region.
inline void check_node(const SornAGTnode *n, const SornAGTnode *parent, int64_t &budget) {
  FUZZ_CHECK(--budget >= 0);
  FUZZ_CHECK(n->parent == parent);
  FUZZ_CHECK(n->data != nullptr);
  for (const SornAGTnode *c = n->child; c; c = c->next) check_node(c, n, budget);
}

inline void check_tree(const SornSTB *b, int64_t pixels) {
  if (b == nullptr || b->tree == nullptr || b->tree->root == nullptr) return;
  int64_t budget = pixels + 64;
  check_node(b->tree->root, nullptr, budget);
}

// One past the largest pixel index of an f-form run on an image of that
// shape: its pixels (dense planes run as one taller plane) and the pad row
// behind them (a 1 x 1 image seeds into the pad).
inline int64_t link_bound(const Shape &s) {
  const int64_t planes = s.ndims == 4 ? std::max(s.planes, 1) : 1;
  const int64_t rows = std::max(s.rows, 1), cols = std::max(s.cols, 1);
  return planes * rows * cols + cols + 2;
}

inline int64_t all_pixels(const Shape &s) {
  const int64_t planes = s.ndims == 4 ? std::max(s.planes, 1) : 1;
  return planes * std::max(s.rows, 1) * std::max(s.cols, 1);
}

}  // namespace sorn_fuzz

// Relative box count kernels: two patterns, each for both destinations.
//
// The general kernels slide histograms. Every column of a strip keeps a histogram of the bins of
// its pixels in the box's rows; the box's histogram is the sum of box-width of them, and it slides
// along the row by taking one column's histogram away and adding the next. Going down a row touches
// two pixels per column (the one that leaves at the top, the one that enters at the bottom), so the
// work per pixel does not depend on the box's height. Only the bins that the row in hand can ask
// for are kept in the box's histogram: those between the row's own lowest and highest bins, widened
// to the lowest (or highest) bin of the box's rows for the operators that sum below (or above) the
// centre.
//
// The 256 kernels serve boxes of at most 256 pixels and hold each
// neighbour against the centre directly, a row at a time.
//
// Counts live in 16-bit counters, 8-bit ones in the 256 kernels: a count
// is the true count modulo 65536, or 256. In a box of at most 256 pixels
// the only count that does not fit is 256 itself (a flat box), which reads
// 0: that is kept, not mended.
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/elem_types.h"
#include "core/rows.h"
#include "stats/rel_box.h"

namespace {

// A strip is the whole row below this width, else kStrip columns.
constexpr int32_t kWholeBelow = 384;
constexpr int32_t kStrip = 256;

/* ---------------- bins ---------------- */

// The range's ends as bytes: the floor of lo and the ceiling of hi, each
// clipped to 0..255 (a NaN end to 0), hi never below lo.
int32_t clip_byte(double v) { return v >= 255.0 ? 255 : v >= 0.0 ? (int32_t)v : 0; }

// The bins of one call: value v goes to bin (v >> q) - lo, where a value
// outside the range counts as the nearer end (no caller-given range is
// trusted with memory), r bins in all. `of` is that map as a table.
struct Bins {
  int32_t q, lo, hi, r;
  uint8_t of[256];
};

Bins bins_of(SornFlags flags, const SornVrng &range) {
  Bins b;
  b.lo = clip_byte(std::floor(range.lo));
  b.hi = std::max(b.lo, clip_byte(std::ceil(range.hi)));
  const int32_t r = b.hi - b.lo + 1;
  b.q = 0;
  if ((flags & SORN_F_RANK_FAST) && r > 79) b.q = 1;
  if (flags & SORN_F_RANK_FAST2) {
    if (r > 79)
      b.q = 2;
    else if (r >= 40)
      b.q = 1;
  }
  b.lo >>= b.q;
  b.hi >>= b.q;
  b.r = b.hi - b.lo + 1;
  for (int32_t v = 0; v < 256; ++v) b.of[v] = (uint8_t)(std::clamp(v >> b.q, b.lo, b.hi) - b.lo);
  return b;
}

/* ---------------- scaling ---------------- */

// A count scaled by 2^shift (rounded when shifting right) and saturated to
// the destination. Counts are below 65536 and never negative, so 32 bits
// hold every step: a shift left of 16 or more saturates any count but 0,
// and one right of more than 17 leaves 0.
template <class D, class N>
void scale_row(D *__restrict out, const N *__restrict counts, int32_t n, int32_t shift) {
  constexpr uint32_t top = (uint32_t)sorn::int_range<D>::hi;
  if (shift < 0) {
    const int32_t s = std::min(-shift, 18);
    const uint32_t half = 1u << (s - 1);
    for (int32_t x = 0; x < n; ++x)
      out[x] = (D)std::min<uint32_t>(((uint32_t)counts[x] + half) >> s, top);
  } else {
    const int32_t s = std::min(shift, 16);
    for (int32_t x = 0; x < n; ++x) out[x] = (D)std::min<uint32_t>((uint32_t)counts[x] << s, top);
  }
}

/* ---------------- the pattern ---------------- */

struct Plane {
  int32_t rows, cols;
  const uint8_t *src;
  ptrdiff_t srs, scs;  // source row and pixel steps
  uint8_t *dst;
  ptrdiff_t drs, dcs;  // destination row and pixel steps
};

// Counts n pixels of row y from column x0 on, scaled and saturated into
// the destination.
template <class D, class N>
void store_row(const Plane &pl, int32_t y, int32_t x0, const N *counts, int32_t n, int32_t shift) {
  uint8_t *out = pl.dst + (ptrdiff_t)y * pl.drs + (ptrdiff_t)x0 * pl.dcs;
  if (pl.dcs == (ptrdiff_t)sizeof(D))
    return scale_row(reinterpret_cast<D *>(out), counts, n, shift);
  for (int32_t x = 0; x < n; x += kStrip) {
    D tmp[kStrip];
    const int32_t k = std::min(kStrip, n - x);
    scale_row(tmp, counts + x, k, shift);
    for (int32_t i = 0; i < k; ++i)
      std::memcpy(out + (ptrdiff_t)(x + i) * pl.dcs, &tmp[i], sizeof(D));
  }
}

// The lowest (low) or highest bin of n pixels a step apart.
uint8_t row_extreme(const uint8_t *p, ptrdiff_t step, int32_t n, bool low) {
  if (step == 1) return low ? C_sorn_minu8_n(p, n) : C_sorn_maxu8_n(p, n);
  uint8_t e = p[0];
  for (int32_t k = 1; k < n; ++k) e = low ? std::min(e, p[k * step]) : std::max(e, p[k * step]);
  return e;
}

// Scratch for 16-bit counters of r bins over an image w columns wide with
// a box of bw by bh: histogram rows of (r * 2 + 63) & ~63 bytes, box
// width + min(width, 384) + 1 of them (every column of a strip, the box's
// own, and a spare), 64 bytes beyond, and for the operators that sum to
// one side a ring of one byte per box row.
size_t row_bytes(int32_t r) { return ((size_t)r * 2u + 63u) & ~(size_t)63u; }
size_t scratch_bytes(int32_t r, int32_t width, int64_t bw, int64_t bh, bool eq) {
  const size_t rows = (size_t)bw + (size_t)std::min(width, kWholeBelow) + 1u;
  return rows * row_bytes(r) + 64u + (eq ? 0u : (size_t)bh);
}

// A count of the 16-bit counters: their sum modulo 65536.
uint32_t sum16(const uint16_t *a, int32_t n) { return C_sorn_sumi16_n(a, n) & 0xffffu; }

template <class D>
SornStatus count_rel_box(SornXE *xe, SornFlags flags, const Plane &pl, uint32_t op,
                         const SornSeShape *box, const SornVrng &range, int32_t shift) {
  const int32_t bw = box->size[2], bh = box->size[1];
  const int32_t ax = box->anchor[2], ay = box->anchor[1];
  const bool eq = op == SORN_CMP_EQ;
  const bool below = op == SORN_CMP_LT || op == SORN_CMP_LE;
  const Bins bins = bins_of(flags, range);
  const int32_t r = bins.r;
  const size_t rb = row_bytes(r);
  const size_t bytes = scratch_bytes(r, pl.cols, bw, bh, eq);
  uint8_t *block = static_cast<uint8_t *>(SornXEalloca(xe, bytes, 64));
  if (block == nullptr) return SORN_ENOMEM;
  const size_t hist_rows = (size_t)bw + (size_t)std::min(pl.cols, kWholeBelow) + 1u;
  uint8_t *ring = block + hist_rows * rb + 64u;  // one extreme bin per box row
  auto hist = [&](int64_t c) { return reinterpret_cast<uint16_t *>(block + (size_t)c * rb); };
  const uint8_t *of = bins.of;

  uint32_t counts[kWholeBelow];
  const int32_t strip = pl.cols < kWholeBelow ? pl.cols : kStrip;
  for (int32_t x0 = 0; x0 < pl.cols; x0 += strip) {
    const int32_t sw = std::min(strip, pl.cols - x0);
    const int64_t ncols = (int64_t)sw + bw - 1;
    uint16_t *const boxh = hist(ncols);
    std::memset(block, 0, (size_t)(ncols + 1) * rb);
    // The strip's first column of the box, and the source row of box row k
    // for output row y at y - ay + k.
    const uint8_t *const s0 = pl.src + (ptrdiff_t)(x0 - ax) * pl.scs - (ptrdiff_t)ay * pl.srs;
    auto count_column_pixel = [&](int64_t c, const uint8_t *row, int delta) {
      uint16_t *h = hist(c);
      h[of[row[c * pl.scs]]] = (uint16_t)(h[of[row[c * pl.scs]]] + delta);
    };
    for (int32_t k = 0; k < bh; ++k) {
      const uint8_t *row = s0 + (ptrdiff_t)k * pl.srs;
      for (int64_t c = 0; c < ncols; ++c) count_column_pixel(c, row, 1);
      if (!eq) ring[k] = of[row_extreme(row, pl.scs, (int32_t)ncols, below)];
    }

    for (int32_t y = 0; y < pl.rows; ++y) {
      const uint8_t *centre = pl.src + (ptrdiff_t)y * pl.srs + (ptrdiff_t)x0 * pl.scs;
      // The bins the row in hand can ask for.
      int32_t a = of[row_extreme(centre, pl.scs, sw, true)];
      int32_t b = of[row_extreme(centre, pl.scs, sw, false)];
      if (!eq) {
        const uint8_t e =
            below ? *std::min_element(ring, ring + bh) : *std::max_element(ring, ring + bh);
        if (below)
          a = e;
        else
          b = e;
      }
      const int32_t span = b - a + 1;
      std::memcpy(boxh + a, hist(0) + a, (size_t)span * sizeof(uint16_t));
      for (int32_t c = 1; c < bw; ++c) C_sorn_addLE256_16(boxh + a, nullptr, hist(c) + a, span);

      const bool more = y + 1 < pl.rows;
      const uint8_t *top = s0 + (ptrdiff_t)y * pl.srs;       // leaves after this row
      const uint8_t *bottom = top + (ptrdiff_t)bh * pl.srs;  // enters for the next
      for (int32_t x = 0; x < sw; ++x) {
        const int32_t v = of[centre[x * pl.scs]];
        uint32_t n;
        switch (op) {
          case SORN_CMP_EQ: n = boxh[v]; break;
          case SORN_CMP_LT: n = sum16(boxh + a, v - a); break;
          case SORN_CMP_LE: n = sum16(boxh + a, v - a + 1); break;
          case SORN_CMP_GT: n = sum16(boxh + v + 1, b - v); break;
          default: n = sum16(boxh + v, b - v + 1); break;
        }
        counts[x] = n;
        if (x + 1 < sw) C_sorn_subaLE256_16(boxh + a, nullptr, hist(x + bw) + a, hist(x) + a, span);
        if (more) {
          count_column_pixel(x, top, -1);
          count_column_pixel(x, bottom, 1);
        }
      }
      if (more) {
        for (int64_t c = sw; c < ncols; ++c) {
          count_column_pixel(c, top, -1);
          count_column_pixel(c, bottom, 1);
        }
        // Box rows go round a ring: the entering row takes the leaving
        // row's place.
        if (!eq) ring[y % bh] = of[row_extreme(bottom, pl.scs, (int32_t)ncols, below)];
      }
      store_row<D>(pl, y, x0, counts, sw, shift);
    }
  }
  SornXEfreea(xe, block);
  return SORN_OK;
}

/* ---------------- small boxes ---------------- */

// The relation of a neighbour's bin p to the centre's c, as 0 or 1.
template <uint32_t Op> inline uint8_t rel(uint8_t p, uint8_t c) {
  if constexpr (Op == SORN_CMP_EQ) return p == c;
  if constexpr (Op == SORN_CMP_LT) return p < c;
  if constexpr (Op == SORN_CMP_LE) return p <= c;
  if constexpr (Op == SORN_CMP_GT) return p > c;
  return p >= c;
}

// The counts of n pixels (n at most kBlock) from the box rows `rows`, each
// read from the pixel's box column 0 on: the counters of a block stay in
// registers while every cell of the box passes.
constexpr int32_t kBlock = 64;
template <uint32_t Op, int32_t N>
void count_block(uint8_t *__restrict counts, const uint8_t *const *rows, int32_t bh, int32_t bw,
                 const uint8_t *__restrict centre, int32_t n) {
  uint8_t acc[N] = {};
  uint8_t c[N];
  std::memcpy(c, centre, (size_t)(N < n ? N : n));
  for (int32_t k = 0; k < bh; ++k)
    for (int32_t dx = 0; dx < bw; ++dx) {
      const uint8_t *__restrict r = rows[k] + dx;
      if (N == n) {
        for (int32_t i = 0; i < N; ++i) acc[i] = (uint8_t)(acc[i] + rel<Op>(r[i], c[i]));
      } else {
        for (int32_t i = 0; i < n; ++i) acc[i] = (uint8_t)(acc[i] + rel<Op>(r[i], c[i]));
      }
    }
  std::memcpy(counts, acc, (size_t)n);
}

// A box of at most 256 pixels holds every neighbour against the centre, a
// row of 8-bit counters at a time (which wrap at 256 as narrow histograms
// would): for a few dozen pixels that is less work than sliding histograms
// over the range, and it vectorises along the row. Source rows are binned
// once, as they enter a ring of the box's rows; the centre's bins are those
// of the ring's row at the anchor. Scratch: the ring, box height rows of
// width + box width - 1 bins, and a row of counters.
template <class D, uint32_t Op>
SornStatus count_small_box(SornXE *xe, SornFlags flags, const Plane &pl, const SornSeShape *box,
                           const SornVrng &range, int32_t shift) {
  const int32_t bw = box->size[2], bh = box->size[1];
  const int32_t ax = box->anchor[2], ay = box->anchor[1];
  const Bins bins = bins_of(flags, range);
  const size_t span = (size_t)pl.cols + (size_t)bw - 1u;
  uint8_t *block =
      static_cast<uint8_t *>(SornXEalloca(xe, (size_t)bh * span + (size_t)pl.cols, 64));
  if (block == nullptr) return SORN_ENOMEM;
  uint8_t *const counts = block + (size_t)bh * span;
  auto slot = [&](int64_t k) { return block + (size_t)(k % bh) * span; };
  // Row k of the box for output row 0, from its column -ax on.
  const uint8_t *const s0 = pl.src - (ptrdiff_t)ax * pl.scs - (ptrdiff_t)ay * pl.srs;
  auto bin_row = [&](uint8_t *__restrict out, const uint8_t *row) {
    for (size_t i = 0; i < span; ++i) out[i] = bins.of[row[(ptrdiff_t)i * pl.scs]];
  };
  for (int32_t k = 0; k < bh; ++k) bin_row(slot(k), s0 + (ptrdiff_t)k * pl.srs);
  // Box row k of output row y is in slot y + k: the row that enters for the
  // next output row takes the slot of the one that leaves.
  for (int32_t y = 0; y < pl.rows; ++y) {
    const uint8_t *centre = slot((int64_t)y + ay) + ax;
    const uint8_t *rows[256];
    for (int32_t k = 0; k < bh; ++k) rows[k] = slot((int64_t)y + k);
    int32_t x = 0;
    for (; x + kBlock <= pl.cols; x += kBlock) {
      count_block<Op, kBlock>(counts + x, rows, bh, bw, centre + x, kBlock);
      for (int32_t k = 0; k < bh; ++k) rows[k] += kBlock;
    }
    if (x < pl.cols) count_block<Op, kBlock>(counts + x, rows, bh, bw, centre + x, pl.cols - x);
    store_row<D>(pl, y, 0, counts, pl.cols, shift);
    if (y + 1 < pl.rows) bin_row(slot(y), s0 + (ptrdiff_t)(y + bh) * pl.srs);
  }
  SornXEfreea(xe, block);
  return SORN_OK;
}

template <class D>
SornStatus count_small_box(SornXE *xe, SornFlags flags, const Plane &pl, uint32_t op,
                           const SornSeShape *box, const SornVrng &range, int32_t shift) {
  switch (op) {
    case SORN_CMP_EQ: return count_small_box<D, SORN_CMP_EQ>(xe, flags, pl, box, range, shift);
    case SORN_CMP_LT: return count_small_box<D, SORN_CMP_LT>(xe, flags, pl, box, range, shift);
    case SORN_CMP_LE: return count_small_box<D, SORN_CMP_LE>(xe, flags, pl, box, range, shift);
    case SORN_CMP_GT: return count_small_box<D, SORN_CMP_GT>(xe, flags, pl, box, range, shift);
    default: return count_small_box<D, SORN_CMP_GE>(xe, flags, pl, box, range, shift);
  }
}

// What both kernels check before any work.
SornStatus refusal(SornFlags flags, SornCmpOp op, const SornSeShape *box) {
  // No pixel outside the region may be read: the kernel cannot do so.
  if (flags & SORN_F_NOMARGIN) return SORN_EAGAIN;
  if (sorn::stats::rel_box_refused(op, box)) return SORN_EINVAL;
  return SORN_OK;
}

Plane plane_of(int32_t n, const int32_t *dims, void *dst, const int32_t *dstStrides,
               const void *src, const int32_t *srcStrides) {
  const sorn::Rows d = sorn::rows_of(n, dims, dstStrides);
  const sorn::Rows s = sorn::rows_of(n, dims, srcStrides);
  return Plane{d.rows,
               d.cols,
               static_cast<const uint8_t *>(src),
               s.step,
               n >= 2 ? srcStrides[n - 2] : 1,
               static_cast<uint8_t *>(dst),
               d.step,
               n >= 2 ? dstStrides[n - 2] : (ptrdiff_t)1};
}

template <class D>
SornStatus kernel256(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                     const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                     SornCmpOp op, const SornSeShape *box, const SornVrng *vrange, int32_t shift) {
  const SornStatus st = refusal(flags, op, box);
  if (st != SORN_OK) return st;
  if ((int64_t)box->size[1] * box->size[2] > 256) return SORN_ENOTSUP;
  if (vrange == nullptr) return SORN_EINVAL;
  const Plane pl = plane_of(n, dims, dst, dstStrides, src, srcStrides);
  if (pl.rows < 1 || pl.cols < 1) return SORN_OK;
  return count_small_box<D>(xe, flags, pl, op & 15u, box, *vrange, shift);
}

template <class D>
SornStatus kernel(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                  const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                  SornCmpOp op, const SornSeShape *box, const SornVrng *vrange, int32_t shift) {
  const SornStatus st = refusal(flags, op, box);
  if (st != SORN_OK) return st;
  if (vrange == nullptr) return SORN_EINVAL;
  // Small boxes try the narrow counters first; whatever they decline (their
  // scratch included) the wide ones do.
  if ((int64_t)box->size[1] * box->size[2] <= 256 &&
      kernel256<D>(xe, flags, n, dims, dst, dstStrides, src, srcStrides, op, box, vrange, shift) ==
          SORN_OK)
    return SORN_OK;
  const Plane pl = plane_of(n, dims, dst, dstStrides, src, srcStrides);
  if (pl.rows < 1 || pl.cols < 1) return SORN_OK;
  return count_rel_box<D>(xe, flags, pl, op & 15u, box, *vrange, shift);
}

}  // namespace

#define SORN_COUNTRELBOX_KERNELS(d, s)                                                            \
  SornStatus sorna__countrelbox_c1_##d##s(                                                        \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                     \
      const int32_t *dstStrides, const void *src, const int32_t *srcStrides, SornCmpOp op,        \
      const SornSeShape *box, const SornVrng *vrange, int32_t shift, uint32_t) {                  \
    return kernel<sorn::tok::d>(xe, flags, n, dims, dst, dstStrides, src, srcStrides, op, box,    \
                                vrange, shift);                                                   \
  }                                                                                               \
  SornStatus sorna__countrelbox256_c1_##d##s(                                                     \
      SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,                     \
      const int32_t *dstStrides, const void *src, const int32_t *srcStrides, SornCmpOp op,        \
      const SornSeShape *box, const SornVrng *vrange, int32_t shift, uint32_t) {                  \
    return kernel256<sorn::tok::d>(xe, flags, n, dims, dst, dstStrides, src, srcStrides, op, box, \
                                   vrange, shift);                                                \
  }
SORN_COUNTRELBOX_PAIRS(SORN_COUNTRELBOX_KERNELS)
#undef SORN_COUNTRELBOX_KERNELS

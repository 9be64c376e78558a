// The border kernels: a rectangle of pixels copied into a destination block
// with a frame around it, whose pixels follow the border kind from the
// pixels of the rectangle. Each row of the rectangle is finished first
// (left margin, centre, right margin); the rows of the top and bottom
// margins are then copies of finished rows, so corners need no code of
// their own. Along a row or down the rows the same index rule applies:
// the cells next to the data come from the data (one or two bounces of a
// mirror, one period of a wrap), and what lies further out repeats cells
// already written, period by period.
#include <sorn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/dispatch.h"

namespace sorn::data {
namespace {

enum class Kind { Replicate, Wrap, Reflect, Reflect101 };

// Writes the cells outside 0 .. n-1 of a line: `before` cells at -1,
// -2, ... and `after` cells at n, n+1, ... A Line copies a cell of the data
// to a cell outside (put), or a run of cells already written in the
// destination to another place of it (dup, never overlapping).
template <class Line> void extend(Line &line, Kind kind, int32_t n, int32_t before, int32_t after) {
  if (n < 1) return;
  if (kind == Kind::Reflect101 && n == 1) kind = Kind::Replicate;
  // The period of the rule and the cells that the first bounces write.
  int32_t period = 0, b = 0;
  switch (kind) {
    case Kind::Replicate:
      for (int32_t k = 1; k <= before; ++k) line.put(-k, 0);
      for (int32_t k = 0; k < after; ++k) line.put(n + k, n - 1);
      return;
    case Kind::Wrap: {
      period = n;
      const int32_t m = std::min(before, n), r = std::min(after, n);
      line.run(-m, n - m, m);
      line.run(n, 0, r);
      break;
    }
    case Kind::Reflect:
    case Kind::Reflect101: {
      // b cells to a bounce: n for reflect (the edge cell repeats), n - 1
      // for reflect101 (mirrored about the edge cell).
      b = kind == Kind::Reflect ? n : n - 1;
      period = 2 * b;
      const int32_t off = kind == Kind::Reflect ? 1 : 0;
      const int32_t c1 = std::min(b, before), c2 = std::min(b, before - c1);
      for (int32_t k = 1; k <= c1; ++k) line.put(-k, k - off);
      for (int32_t k = 1; k <= c2; ++k) line.put(-(b + k), n - (1 - off) - k);
      const int32_t d1 = std::min(b, after), d2 = std::min(b, after - d1);
      for (int32_t k = 0; k < d1; ++k) line.put(n + k, n - 1 - k - (1 - off));
      for (int32_t k = 0; k < d2; ++k) line.put(n + b + k, k + (1 - off));
      break;
    }
  }
  // Further out the cells repeat with the period, from what is written.
  for (int32_t done = period; done < before;) {
    const int32_t chunk = std::min(period, before - done);
    line.dup(-(done + chunk), -(done + chunk) + period, chunk);
    done += chunk;
  }
  for (int32_t done = period; done < after;) {
    const int32_t chunk = std::min(period, after - done);
    line.dup(n + done, n + done - period, chunk);
    done += chunk;
  }
}

// A row of pixels of PS bytes (0: of ps bytes, given at run time): the data
// read from src, the cells written around dst.
template <int PS> struct PixelLine {
  uint8_t *dst;
  const uint8_t *src;
  int32_t ps;

  size_t bytes() const { return PS ? (size_t)PS : (size_t)ps; }
  void put(int32_t i, int32_t j) {
    std::memcpy(dst + (ptrdiff_t)i * (ptrdiff_t)bytes(), src + (ptrdiff_t)j * (ptrdiff_t)bytes(),
                bytes());
  }
  void run(int32_t i, int32_t j, int32_t m) {
    if (m > 0)
      std::memcpy(dst + (ptrdiff_t)i * (ptrdiff_t)bytes(), src + (ptrdiff_t)j * (ptrdiff_t)bytes(),
                  (size_t)m * bytes());
  }
  void dup(int32_t i, int32_t j, int32_t m) {
    std::memcpy(dst + (ptrdiff_t)i * (ptrdiff_t)bytes(), dst + (ptrdiff_t)j * (ptrdiff_t)bytes(),
                (size_t)m * bytes());
  }
};

// The rows of the destination block, whole width: the data rows are the
// finished rows of the rectangle.
struct RowLine {
  uint8_t *row0;  // the first finished row, at its left margin
  ptrdiff_t step;
  size_t bytes;

  uint8_t *at(int32_t i) const { return row0 + (ptrdiff_t)i * step; }
  void put(int32_t i, int32_t j) { std::memcpy(at(i), at(j), bytes); }
  void run(int32_t i, int32_t j, int32_t m) {
    for (int32_t k = 0; k < m; ++k) put(i + k, j + k);
  }
  void dup(int32_t i, int32_t j, int32_t m) { run(i, j, m); }
};

// Where the pieces of one call lie. The rectangle is the region, grown by
// the real pixels that the source has around it; the margins are what the
// rule must still make.
struct Frame {
  uint8_t *d;          // the rectangle in the destination
  const uint8_t *s;    // the rectangle in the source
  ptrdiff_t drs, srs;  // row steps
  int32_t ps;          // bytes of a pixel
  int32_t rows, cols;
  int32_t top, left, bottom, right;
  // The region within the rectangle (for a border-only copy of real pixels).
  int32_t rtop, rleft, rrows, rcols;
  bool coincide;  // the region already stands where it is to go
  bool moved;     // source and destination share bytes without coinciding
};

int32_t margin(int32_t v) { return v > 0 ? v : 0; }
// The cells before the data: -lo, none for a positive lo.
int32_t before(int32_t lo) { return lo < 0 ? (lo == INT32_MIN ? INT32_MAX : -lo) : 0; }

// The geometry of a call; false when nothing is to be written.
bool frame_of(SornFlags flags, SornDimPack pack, const int32_t *dims, uint8_t *dst,
              const int32_t *dstStrides, const uint8_t *src, const int32_t *srcStrides,
              const SornBrShape *br, const SornSites *sites, Frame *f) {
  const Inner in = inner3(pack, dims, dstStrides);
  const Inner sin = inner3(pack, dims, srcStrides);
  const int32_t n = in.n;
  if (n < 2) return false;
  f->rows = n >= 3 ? in.dims[0] : 1;
  f->cols = in.dims[n - 2];
  f->drs = n >= 3 ? in.strides[0] : 0;
  f->srs = n >= 3 ? sin.strides[0] : 0;
  f->ps = in.strides[n - 2];
  if (f->rows < 1 || f->cols < 1) return false;
  // Margins of the depth cell don't exist: the frame runs planes.
  f->top = n >= 3 ? before(br->lo[1]) : 0;
  f->bottom = n >= 3 ? margin(br->hi[1]) : 0;
  f->left = before(br->lo[2]);
  f->right = margin(br->hi[2]);
  f->d = dst + (ptrdiff_t)f->top * f->drs + (ptrdiff_t)f->left * f->ps;
  f->s = src;
  f->coincide = f->d == f->s && f->drs == f->srs && f->ps == sin.strides[n - 2];
  f->rtop = f->rleft = 0;
  f->rrows = f->rows;
  f->rcols = f->cols;

  // Real pixels around the region are data, not border: the parent's site,
  // or the source's own under SORN_F_SITEMARGIN or when there is no parent.
  if (sites != nullptr && !(flags & SORN_F_NOMARGIN)) {
    const SornVolume *v = &sites->parsite;
    if ((flags & SORN_F_SITEMARGIN) || sorn_volume__empty(3, v->size)) v = &sites->site;
    // A site that does not hold the whole region (a record whose strides
    // put the region outside its own bounds) says nothing about the pixels
    // around it: none are taken as data then.
    const bool holds = (n < 3 || (v->origin[1] <= 0 && v->origin[1] + v->size[1] >= f->rows)) &&
                       v->origin[2] <= 0 && v->origin[2] + v->size[2] >= f->cols;
    if (!sorn_volume__empty(3, v->size) && holds) {
      // Cells 1 and 2 are rows and columns, counted from the region's first
      // pixel.
      const int32_t up = n >= 3 ? std::min(f->top, margin(-v->origin[1])) : 0;
      const int32_t down =
          n >= 3 ? std::min(f->bottom, margin(v->origin[1] + v->size[1] - f->rows)) : 0;
      const int32_t lf = std::min(f->left, margin(-v->origin[2]));
      const int32_t rt = std::min(f->right, margin(v->origin[2] + v->size[2] - f->cols));
      f->d -= (ptrdiff_t)up * f->drs + (ptrdiff_t)lf * f->ps;
      f->s -= (ptrdiff_t)up * f->srs + (ptrdiff_t)lf * f->ps;
      f->top -= up;
      f->bottom -= down;
      f->left -= lf;
      f->right -= rt;
      f->rtop = up;
      f->rleft = lf;
      f->rows += up + down;
      f->cols += lf + rt;
    }
  }
  // Does the destination block share bytes with the source rectangle?
  const int32_t bsize[2] = {f->top + f->rows + f->bottom, f->left + f->cols + f->right};
  const int32_t ssize[2] = {f->rows, f->cols};
  const uint8_t *block = f->d - (ptrdiff_t)f->top * f->drs - (ptrdiff_t)f->left * f->ps;
  const ptrdiff_t bend = (ptrdiff_t)(bsize[0] - 1) * f->drs + (ptrdiff_t)bsize[1] * f->ps;
  const ptrdiff_t send = (ptrdiff_t)(ssize[0] - 1) * f->srs + (ptrdiff_t)ssize[1] * f->ps;
  const uint8_t *blo = std::min(block, block + bend), *bhi = std::max(block, block + bend);
  const uint8_t *slo = std::min(f->s, f->s + send), *shi = std::max(f->s, f->s + send);
  f->moved = !f->coincide && blo < shi && slo < bhi;
  return true;
}

// The rectangle (or, for a border-only copy, the real pixels around the
// region) copied to the destination. A source that shares bytes with the
// destination is moved row by row in the order that reads each row before
// it is overwritten.
void copy_data(SornFlags flags, const Frame &f) {
  const size_t w = (size_t)f.cols * (size_t)f.ps;
  if (f.coincide) return;
  const bool border_only = (flags & SORN_F_BORDER_ONLY) != 0;
  if (!f.moved && !border_only) {
    C_sorn_bcopy2d(f.d, f.s, (int32_t)f.drs, (int32_t)f.srs, f.rows, w);
    return;
  }
  // Row by row, last row first when the destination lies after the source.
  // A border-only copy takes, in the region's rows, only the pixels beside
  // the region.
  const bool down = f.moved && f.d > f.s;
  const size_t lb = (size_t)f.rleft * (size_t)f.ps;
  const ptrdiff_t ro = (ptrdiff_t)(f.rleft + f.rcols) * f.ps;
  for (int32_t k = 0; k < f.rows; ++k) {
    const int32_t r = down ? f.rows - 1 - k : k;
    uint8_t *d = f.d + (ptrdiff_t)r * f.drs;
    const uint8_t *src = f.s + (ptrdiff_t)r * f.srs;
    if (border_only && r >= f.rtop && r < f.rtop + f.rrows) {
      // The piece further along first when moving forward, so that neither
      // piece is written over before it is read.
      if (down) std::memmove(d + ro, src + ro, w - (size_t)ro);
      std::memmove(d, src, lb);
      if (!down) std::memmove(d + ro, src + ro, w - (size_t)ro);
    } else {
      std::memmove(d, src, w);
    }
  }
}

// Side margins of every row, then the rows above and below, for one kind
// and one pixel size.
template <int PS> void extend_block(Kind kind, const Frame &f, bool from_dst) {
  if (f.left > 0 || f.right > 0) {
    for (int32_t r = 0; r < f.rows; ++r) {
      uint8_t *d = f.d + (ptrdiff_t)r * f.drs;
      PixelLine<PS> line{d, from_dst ? d : f.s + (ptrdiff_t)r * f.srs, f.ps};
      extend(line, kind, f.cols, f.left, f.right);
    }
  }
  if (f.top > 0 || f.bottom > 0) {
    RowLine rows{f.d - (ptrdiff_t)f.left * f.ps, f.drs,
                 (size_t)(f.left + f.cols + f.right) * (size_t)f.ps};
    extend(rows, kind, f.rows, f.top, f.bottom);
  }
}

SornStatus mkb(Kind kind, SornFlags flags, SornDimPack pack, const int32_t *dims, void *dst,
               const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
               const SornBrShape *br, const SornSites *sites) {
  if (br == nullptr) {
    if (flags & SORN_F_BORDER_ONLY) return SORN_OK;
    return sorna__copy(nullptr, flags, pack, dims, 0, dst, dstStrides, src, srcStrides);
  }
  Frame f;
  if (!frame_of(flags, pack, dims, static_cast<uint8_t *>(dst), dstStrides,
                static_cast<const uint8_t *>(src), srcStrides, br, sites, &f))
    return SORN_OK;
  copy_data(flags, f);
  // The side margins read the data from the source; from the destination
  // once a shared-byte move has put it there, or when the caller says that
  // the region stands there already.
  const bool from_dst = f.moved || (flags & SORN_F_BORDER_ONLY);
  switch (f.ps) {
    case 1: extend_block<1>(kind, f, from_dst); break;
    case 2: extend_block<2>(kind, f, from_dst); break;
    case 3: extend_block<3>(kind, f, from_dst); break;
    case 4: extend_block<4>(kind, f, from_dst); break;
    case 6: extend_block<6>(kind, f, from_dst); break;
    case 8: extend_block<8>(kind, f, from_dst); break;
    case 12: extend_block<12>(kind, f, from_dst); break;
    case 16: extend_block<16>(kind, f, from_dst); break;
    default: extend_block<0>(kind, f, from_dst); break;
  }
  return SORN_OK;
}

}  // namespace
}  // namespace sorn::data

using sorn::data::Kind;

// The kernels of the kinds that copy cells of the data.
#define SORN_COPYMKB_KERNEL(name, kind)                                                       \
  SornStatus sorna__copymkb_##name(                                                           \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,      \
      void *dst, const int32_t *dstStrides, const void *src, const int32_t *srcStrides,       \
      const SornBrShape *border, const SornSites *sites) {                                    \
    return sorn::data::mkb(kind, flags, pack, dims, dst, dstStrides, src, srcStrides, border, \
                           sites);                                                            \
  }
SORN_COPYMKB_KERNEL(replicate, Kind::Replicate)
SORN_COPYMKB_KERNEL(wrap, Kind::Wrap)
SORN_COPYMKB_KERNEL(reflect, Kind::Reflect)
SORN_COPYMKB_KERNEL(reflect101, Kind::Reflect101)
#undef SORN_COPYMKB_KERNEL

// Bytes of the constant pixel from `vector` over a run. The block fill
// keeps a period of 12 bytes for three channels and 16 otherwise, which
// holds every pixel of elements up to 4 bytes; wider pixels (8-byte
// elements in three or four channels) are laid pixel by pixel.
struct ConstRun {
  const uint8_t *vector;
  int32_t nchan, ps;
  bool block;

  void operator()(uint8_t *d, size_t bytes) const {
    if (block) {
      C_sorn_bfill(d, bytes, nchan, vector);
      return;
    }
    for (size_t i = 0; i < bytes; i += (size_t)ps)
      std::memcpy(d + i, vector, std::min((size_t)ps, bytes - i));
  }
  void rows(uint8_t *d, ptrdiff_t step, int32_t n, size_t bytes) const {
    if (block) {
      C_sorn_bfill2d(d, (int32_t)step, n, bytes, nchan, vector);
      return;
    }
    for (int32_t r = 0; r < n; ++r) (*this)(d + (ptrdiff_t)r * step, bytes);
  }
};

// The constant border: one fill vector of the pixel, made once; the side
// margins are filled row by row, the rows above and below over the whole
// width.
SornStatus sorna__copymkb_const(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                                uint32_t type, void *dst, const int32_t *dstStrides,
                                const void *src, const int32_t *srcStrides,
                                const SornBrShape *border, const SornSites *sites) {
  using namespace sorn::data;
  if (border == nullptr) {
    if (flags & SORN_F_BORDER_ONLY) return SORN_OK;
    return sorna__copy(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides);
  }
  Frame f;
  if (!frame_of(flags, pack, dims, static_cast<uint8_t *>(dst), dstStrides,
                static_cast<const uint8_t *>(src), srcStrides, border, sites, &f))
    return SORN_OK;
  // Elements of a pixel: the pattern's period.
  const int32_t es = sorn::elem_size(type);
  const int32_t nchan = es > 0 ? f.ps / es : 0;
  alignas(8) uint8_t vector[64];
  const SornStatus st = sorn_mkifillvalv64(type, vector, border->fill, nchan);
  if (st != SORN_OK) return st;
  copy_data(flags, f);
  const ConstRun fill{vector, nchan, f.ps, (nchan == 3 ? 12 : 16) % f.ps == 0};
  const size_t lb = (size_t)f.left * (size_t)f.ps, rb = (size_t)f.right * (size_t)f.ps;
  const size_t wb = (size_t)f.cols * (size_t)f.ps;
  if (lb > 0 || rb > 0) {
    // In a dense destination the right margin of a row and the left margin
    // of the next one are one run.
    const bool dense = (ptrdiff_t)(lb + wb + rb) == f.drs;
    for (int32_t r = 0; r < f.rows; ++r) {
      uint8_t *d = f.d + (ptrdiff_t)r * f.drs;
      if (dense && r > 0) {
        fill(d - (ptrdiff_t)f.drs + (ptrdiff_t)wb, rb + lb);
        continue;
      }
      fill(d - (ptrdiff_t)lb, lb);
      if (!dense) fill(d + wb, rb);
    }
    if (dense) fill(f.d + (ptrdiff_t)(f.rows - 1) * f.drs + (ptrdiff_t)wb, rb);
  }
  const size_t full = lb + wb + rb;
  fill.rows(f.d - (ptrdiff_t)f.top * f.drs - (ptrdiff_t)lb, f.drs, f.top, full);
  fill.rows(f.d + (ptrdiff_t)f.rows * f.drs - (ptrdiff_t)lb, f.drs, f.bottom, full);
  return SORN_OK;
}

// The border kind picks the kernel; only its low four bits count, and kind
// 2, which the public entries take for reflect101, is unknown here.
SornStatus sorna__copymkb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind, const SornBrShape *border,
                          const SornSites *sites) {
  switch (kind & 15) {
    case SORN_BORDER_NONE:
      return sorna__copy(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides);
    case SORN_BORDER_CONST:
      return sorna__copymkb_const(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides,
                                  border, sites);
    case SORN_BORDER_REPLICATE:
      return sorna__copymkb_replicate(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides,
                                      border, sites);
    case SORN_BORDER_WRAP:
      return sorna__copymkb_wrap(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides,
                                 border, sites);
    case SORN_BORDER_REFLECT:
      return sorna__copymkb_reflect(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides,
                                    border, sites);
    case SORN_BORDER_REFLECT101:
      return sorna__copymkb_reflect101(xe, flags, pack, dims, type, dst, dstStrides, src,
                                       srcStrides, border, sites);
    default: return SORN_EINVAL;
  }
}

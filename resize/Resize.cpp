// Resizing: the entries SornEResize and SornResize, the slice form and the
// type-generic layer, the method check of layer 3, and the factor helpers.
#include <sorn.h>

#include <cmath>
#include <cstring>

#include "core/entry.h"

namespace {

constexpr double kEps = SORN_RESIZE_EPS;

double snapped(double f) { return std::fabs(f - 1.0) <= kEps ? 1.0 : f; }
bool from_extents(double f) { return std::fabs(f) <= kEps; }

// The factor block of an entry: one cell for each of plane, rows and
// columns, whatever the rank, so that the negotiation and the layers below
// find each factor in the cell of its dimension. A rank-3 operand has no
// planes to scale: its cell 0 is 1.0 and its two factors sit in the rows'
// and columns' cells. Cell 3, the channels, is 1.0. Without factors, every
// given cell is 0: taken from the extents.
void factor_block(int32_t rank, const double *factors, double *block) {
  const int32_t first = 4 - rank;
  for (int32_t c = 0; c < 4; ++c) block[c] = 1.0;
  for (int32_t c = first; c < 3; ++c) block[c] = factors != nullptr ? factors[c - first] : 0.0;
}

// Whether the planes that the frame stacked into rows (cells from the
// record's first to the slice's first) stack row for row in both
// operands: same extents, factor 1, down to the rows themselves.
bool stacks_row_for_row(const SornResizeArgs *a, int32_t off) {
  for (int32_t c = 4 - a->rank; c <= off; ++c)
    if (a->factors[c] != 1.0 || a->dstSize[c] != a->srcSize[c]) return false;
  return true;
}

}  // namespace

/* ---------------- factor helpers ---------------- */

double *sorn_mkreszf(int32_t n, double *out, const int32_t *dstDims, const int32_t *srcDims) {
  for (int32_t i = 0; i < n; ++i) out[i] = snapped((double)dstDims[i] / (double)srcDims[i]);
  return out;
}

double *sorn_mkreszfS(int32_t n, double *out, const int32_t *dstDims, const int32_t *srcDims) {
  if (out == nullptr) return nullptr;
  if (dstDims == nullptr || srcDims == nullptr) {
    for (int32_t i = 0; i < n; ++i) out[i] = 1.0;
    return out;
  }
  return sorn_mkreszf(n, out, dstDims, srcDims);
}

int32_t sorn_fixreszf(int32_t n, double *out, const double *factors, const int32_t *dstDims,
                      const int32_t *srcDims) {
  int32_t larger = 0;
  for (int32_t i = 0; i < n; ++i) {
    double f = factors[i];
    if (from_extents(f))
      f = (double)dstDims[i] / (double)srcDims[i];
    else if ((double)dstDims[i] > (double)srcDims[i] * f)
      ++larger;
    out[i] = snapped(f);
  }
  return larger;
}

int32_t sorn_fixreszfS(int32_t n, double *out, const double *factors, const int32_t *dstDims,
                       const int32_t *srcDims) {
  if (out == nullptr) return 0;
  static const double kNone[4] = {0.0, 0.0, 0.0, 0.0};
  if (factors == nullptr) {
    if (n > 4) return 0;
    factors = kNone;
  }
  if (dstDims == nullptr || srcDims == nullptr) {
    for (int32_t i = 0; i < n; ++i) out[i] = from_extents(factors[i]) ? 1.0 : snapped(factors[i]);
    return 0;
  }
  return sorn_fixreszf(n, out, factors, dstDims, srcDims);
}

/* ---------------- layers 3 and 2 ---------------- */

SornStatus sorna__resize(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dstDims,
                         const int32_t *srcDims, uint32_t type, void *dst,
                         const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                         int32_t method, const double *factors) {
  if (((SORN_RESIZE_METHODS >> ((uint32_t)method & 15u)) & 1u) == 0) return SORN_EINVAL;
  return sorna__resize_nn(xe, flags, pack, dstDims, srcDims, type, dst, dstStrides, src, srcStrides,
                          factors);
}

SornStatus sorna_resize(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dstDims,
                        const int32_t *srcDims, uint32_t type, void *dstBase,
                        const int32_t *dstOrigin, const int32_t *dstStrides, const void *srcBase,
                        const int32_t *srcOrigin, const int32_t *srcStrides, int32_t method,
                        const double *factors) {
  void *dst = sorn::at_origin(dstBase, pack, dstOrigin, dstStrides);
  const void *src = sorn::at_origin(srcBase, pack, srcOrigin, srcStrides);
  return sorna__resize(xe, flags, pack, dstDims, srcDims, type, dst, dstStrides, src, srcStrides,
                       method, factors);
}

// The slice form: the frame's cells are the destination's; the source's
// extents and the factors come from the entry's block, from the slice's
// first cell on. Where the frame stacked planes into rows, the stack is one
// image only when the planes match row for row; otherwise, as for planes
// that the frame cannot stack, the first plane is resized alone.
SornStatus SornTGAresize(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                         uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  if (type0 != type1) return SORN_EINVAL;
  const SornResizeArgs *a = static_cast<const SornResizeArgs *>(data);
  const int32_t n = (int32_t)(pack & 15u), off = (int32_t)((pack >> 4) & 15u);
  if (a == nullptr || dims == nullptr || n < 2 || off + n != 4 || a->rank < 3 || a->rank > 4)
    return SORN_EINVAL;
  int32_t dcells[4], scells[4];
  std::memcpy(dcells, a->dstSize, sizeof dcells);
  std::memcpy(scells, a->srcSize, sizeof scells);
  for (int32_t i = 0; i < n; ++i) dcells[off + i] = dims[i];
  if (off > 4 - a->rank) {
    if (stacks_row_for_row(a, off))
      scells[off] = dcells[off];
    else
      dcells[off] = a->dstSize[off];
  }
  return sorna_resize(xe, flags, pack, dcells + off, scells + off, type0, base0, origin0, strides0,
                      base1, origin1, strides1, a->method, a->factors + off);
}

/* ---------------- the entries ---------------- */

SornStatus SornEResize(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcVolume, int32_t method,
                       const double *factors) {
  if (src == nullptr) {
    src = dst;
    if (srcVolume == nullptr) srcVolume = dstRoi;
  }
  if (!sorn::good_image(dst) || !sorn::fits_image(src, dst, sorn::Channels::Same))
    return SORN_EINVAL;
  SornResizeArgs args;
  std::memset(&args, 0, sizeof args);
  args.method = method;
  args.rank = dst->ndims;
  factor_block(args.rank, factors, args.factors);
  SornVolume dbox, sbox;
  if (!sorn_arr_negotiateRoiEx(dst, src, &dbox, &sbox, args.factors, dstRoi, srcVolume, 3))
    return SORN_ENOSPC;
  // Pixels move whole, whatever the regions say of their channels.
  sorn::whole_pixels(&dbox, dst);
  sorn::whole_pixels(&sbox, src);
  std::memcpy(args.dstSize, dbox.size, sizeof args.dstSize);
  std::memcpy(args.srcSize, sbox.size, sizeof args.srcSize);
  sorn::Operand dop(dst, dbox), sop(src, sbox);
  return sorn::run({xe, flags & ~SORN_F_PROBE, SORN_TAG_RESZ, &args, sorn::kKeepRows},
                   &SornTGAresize, dop, sop);
}

SornStatus SornResize(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornVolume *dstRoi, const int32_t *srcSite, int32_t method,
                      const double *factors) {
  const SornArray *from = src != nullptr ? src : dst;
  if (from == nullptr) return SORN_EINVAL;
  SornVolume volume;
  sorn_arr__siteofAt(from, 4, volume.origin, volume.size, srcSite);
  return SornEResize(xe, flags, dst, src, dstRoi, &volume, method, factors);
}

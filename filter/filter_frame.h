// The edge decision that every neighbourhood family runs once per call
// (layer 3 of its edge-handling form): where the pixels outside the region
// come from. Kernels never test an edge; they read every cell of every
// window. The decision makes that safe: the source is read where it stands
// when every needed pixel is real and the destination does not share its
// bytes; otherwise the needed box is built in scratch memory, the real
// pixels copied and the rest made by the border kind, and the kernel reads
// that block.
#pragma once

#include <sorn.h>

#include <cstdint>
#include <cstring>

#include "core/entry.h"
#include "filter/shape_cells.h"

namespace sorn::filter {

// How a family's form differs: whether it first asks its kernel whether it
// can do without a margin (the probe), and whether the bordering clears
// SORN_F_BORDER_ONLY before it copies.
struct EdgeForm {
  bool probe;
  bool clear_border_only;
};

// `pass(flags, src, srcStrides)` runs the family's layer 3 (the dispatch
// by kind) on a source laid out as the region's first pixel and its
// strides. n cells: the last is the channel cell, the others spatial.
template <class Pass>
SornStatus edge_decision(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, const SornSeShape *se,
                         const SornBorderSpec *border, const SornSites *sites, EdgeForm form,
                         Pass pass) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4) return SORN_EINVAL;
  // No source offers, and no scratch holds, a box past the 32-bit range.
  if (!sorn::shapes::box_fits(n, sizes, se)) return SORN_ENOMEM;
  const bool overlap = sorn__overlapped(n, sizes, dst, dstStrides, src, srcStrides) != 0;
  int32_t availO[4], availS[4], needO[4], needS[4];
  const bool covered =
      sorn__compute_roi_$se(flags, n - 1, availO, availS, needO, needS, nullptr, sizes, se,
                            sites ? &sites->site : nullptr, sites ? &sites->parsite : nullptr) != 0;
  availO[n - 1] = needO[n - 1] = 0;
  availS[n - 1] = needS[n - 1] = sizes[n - 1];
  const SornFlags plain = flags & ~(SornFlags)(SORN_F_NOMARGIN | SORN_F_SITEMARGIN);

  // The source offers the region alone: a kernel that needs no margin may
  // say so before any scratch is taken, and a refusal ends the call here.
  if (form.probe && !overlap && !covered && sorn_vec__equal(n, sizes, availS)) {
    const SornStatus st = pass(flags | SORN_F_NOMARGIN, src, srcStrides);
    if (st != SORN_EAGAIN) return st;
  }
  if (!overlap && covered) return pass(plain, src, srcStrides);

  // The needed box in scratch: rows tight, pixels as in the source. A
  // window so large that the box leaves the 32-bit range (its extents wrap,
  // or a row has more bytes than a stride holds) cannot be had either.
  int32_t strides[4] = {0, 0, 0, 0};
  strides[n - 2] = srcStrides[n - 2];
  strides[n - 1] = srcStrides[n - 1];
  for (int32_t k = 0; k < n; ++k)
    if (needS[k] < 1) return SORN_ENOMEM;
  const int64_t row =
      (int64_t)needS[n - 2] * (strides[n - 2] < 0 ? -(int64_t)strides[n - 2] : strides[n - 2]);
  if (row > INT32_MAX) return SORN_ENOMEM;
  const size_t bytes = sorn_vmemsize(n, needS, strides, 2);
  // Nor can a box whose plane has more bytes than a 32-bit stride holds.
  if (bytes > (size_t)INT32_MAX) return SORN_ENOMEM;
  void *scratch = bytes > 0 ? SornXEalloca(xe, bytes, 0) : nullptr;
  if (scratch == nullptr) return SORN_ENOMEM;
  if (form.clear_border_only) flags &= ~(SornFlags)SORN_F_BORDER_ONLY;
  const void *p = sorn_advance_ptr(src, sorn_vec_mkloff(n, availO, srcStrides));
  // The copy can fail only where the kernel would report the same reason:
  // its status is not looked at.
  if (overlap && covered) {
    (void)sorna__copy(xe, flags, (SornDimPack)n, availS, type, scratch, strides, p, srcStrides);
  } else {
    SornBrShape br = {};
    sorn_brshape__compute_$gv(&br, n - 1, needO, needS, availO, availS);
    const int32_t kind = border ? (int32_t)border->kind : SORN_BORDER_REFLECT101;
    if (border && (kind & 15) == SORN_BORDER_CONST)
      for (int k = 0; k < 4; ++k) br.fill[k] = border->value[k];
    (void)sorna__copymkb(xe, flags, (SornDimPack)n, availS, type, scratch, strides, p, srcStrides,
                         kind, &br, nullptr);
  }
  const void *at = sorn_advance_ptr(scratch, -sorn_vec_mkloff(n, needO, strides));
  const SornStatus st = pass(plain, at, strides);
  SornXEfreea(xe, scratch);
  return st;
}

// The planes of a 4-dimensional call, one at a time: plane k of dst from
// plane k of src, or from src's only plane. Each plane is a 3-dimensional
// call of the slice form; windows never reach from one plane into the
// next.
struct PlaneOperand {
  uint32_t type;
  void *base;
  int32_t origin[4];
  int32_t strides[4];
};
template <class Slice>
SornStatus each_plane(int32_t planes, const int32_t *sizes, PlaneOperand d, PlaneOperand s,
                      bool one_source_plane, Slice slice) {
  // Four cells each, given from cell 1 on: the packing word tells the
  // layers below that one valid cell lies in front.
  int32_t dims[4] = {1, sizes[1], sizes[2], sizes[3]};
  for (int32_t k = 0; k < planes; ++k) {
    const int32_t sk = one_source_plane ? 0 : k;
    int32_t dorigin[4] = {0, d.origin[1], d.origin[2], d.origin[3]};
    int32_t sorigin[4] = {0, s.origin[1], s.origin[2], s.origin[3]};
    void *dp = sorn_advance_ptr(d.base, (d.origin[0] + k) * d.strides[0]);
    void *sp = sorn_advance_ptr(s.base, (s.origin[0] + sk) * s.strides[0]);
    const SornStatus st = slice(SORN_DIMPACK(3), dims + 1, d.type, dp, dorigin + 1, d.strides + 1,
                                s.type, sp, sorigin + 1, s.strides + 1);
    if (st != SORN_OK) return st;
  }
  return SORN_OK;
}

// One route of layer 3: the channel-format nibble from the channel cell,
// then the table's kernel for the channel word and the type, called with
// the window (a masked window as the SornSeShape it begins with).
inline SornStatus table_route(SornFilterKernel (*table)(uint32_t, SornElemType, SornStatus *),
                              SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                              const int32_t *srcStrides, const SornSeShape *se) {
  const sorn::Inner in = sorn::inner3(pack, sizes, dstStrides);
  const sorn::Inner sin = sorn::inner3(pack, sizes, srcStrides);
  if (in.n < 2) return SORN_EINVAL;
  const uint32_t chword = (uint32_t)in.dims[in.n - 1];
  flags = sorn::with_channel_format(flags, chword);
  SornStatus st;
  const SornFilterKernel k = table(chword & 15u, type, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, in.n, in.dims, dst, in.strides, src, sin.strides, se);
}

// One kind of a family's layer 3 and its routine, taking the family's
// window; a kind with a name and no routine (null) is not implemented.
template <class Window> struct KindRoute {
  int32_t kind;
  SornStatus (*routine)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t, void *,
                        const int32_t *, const void *, const int32_t *, const Window *);
};

// Layer 3 by kind: kind 0 is a copy, a kind of the table its routine, any
// other invalid.
template <class Window, size_t N>
SornStatus route_kind(const KindRoute<Window> (&routes)[N], int32_t kind, SornXE *xe,
                      SornFlags flags, SornDimPack pack, const int32_t *sizes, uint32_t type,
                      void *dst, const int32_t *dstStrides, const void *src,
                      const int32_t *srcStrides, const Window *w) {
  if (kind == 0) return sorna__copy(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides);
  for (const KindRoute<Window> &r : routes)
    if (r.kind == kind)
      return r.routine == nullptr
                 ? SORN_ENOTIMP
                 : r.routine(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, w);
  return SORN_EINVAL;
}

// The way down of a filter entry once its checks have passed and the
// regions are agreed (rd of dst, rs of src): at rank 4 plane by plane, a
// source of one plane serving every plane of dst's region (which the
// agreement with it cut to one); at rank 3 the slice form at once.
inline SornStatus enter_slices(SornXE *xe, SornFlags flags, const SornArray *dst,
                               const SornArray *src, const SornVolume *dstRoi, SornVolume rd,
                               const SornVolume &rs, uint32_t tag, void *args,
                               sorn::SliceProc<2> slice) {
  using namespace sorn;
  if (dst->ndims == 4) {
    const bool one = src->dims[0] == 1;
    if (one) {
      SornVolume whole;
      region_of(dst, dstRoi, &whole);
      rd.size[0] = whole.size[0];
    }
    Operand d(dst, rd), s(src, rs);
    PlaneOperand pd{d.type, d.base, {}, {}}, ps{s.type, s.base, {}, {}};
    std::memcpy(pd.origin, d.roi.origin, sizeof pd.origin);
    std::memcpy(pd.strides, d.strides, sizeof pd.strides);
    std::memcpy(ps.origin, s.roi.origin, sizeof ps.origin);
    std::memcpy(ps.strides, s.strides, sizeof ps.strides);
    return each_plane(d.roi.size[0], d.roi.size, pd, ps, one,
                      [&](SornDimPack pack, int32_t *sizes, uint32_t dt, void *dp, int32_t *dor,
                          int32_t *dst_s, uint32_t st, void *sp, int32_t *sor, int32_t *src_s) {
                        return slice(xe, flags, args, pack, sizes, dt, dp, dor, dst_s, st, sp, sor,
                                     src_s);
                      });
  }
  Operand d(dst, rd), s(src, rs);
  return call_slice(Call{xe, flags, tag, args, kKeepRows}, slice, d, s);
}

// What every public filter entry does before its family's own work, in
// this order: a null src filters dst in place; the records are checked
// and the region agreed on (one with no channel left is no region); the window is normalised once,
// against the region; the probe bit is cleared; the border is reflect101 and the sites come from
// the source. Then family(pack, window, border, sites, run, region) makes its slice arguments and
// calls run(tag, slice, args), which goes down plane by plane for a 4-dimensional dst and at once
// otherwise. `region` is the agreed region's four extents; `pack` is the packing word of the whole
// call (its spatial cells are those of dst). `se` null is a window of no size, which normalises to
// the 5 by 5 default. A call that copies (`copies`) moves whole pixels: from the pixel's start also
// where the region's channels begin inside it, so that no row spills past the site.
template <class Family>
SornStatus filter_entry(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstRoi, const SornVolume *srcSite, const SornSeShape *se,
                        Family family, bool copies = false) {
  if (src == nullptr) {
    src = dst;
    if (srcSite == nullptr && dstRoi != nullptr) srcSite = dstRoi;
  }
  if (!good_image(dst) || !fits_image(src, dst, Channels::Same)) return SORN_EINVAL;
  SornVolume rd, rs;
  // A region whose channel cell is cut to nothing has no element to write.
  if (!negotiate(dst, src, dstRoi, srcSite, &rd, &rs) || no_channels(rd)) return SORN_ENOSPC;
  if (copies) {
    whole_pixels(&rd, dst);
    whole_pixels(&rs, src);
  }
  SornSeShape window;
  if (se != nullptr)
    window = *se;
  else
    std::memset(&window, 0, sizeof window);
  sorn_seshape__adjust_$gv$I(&window, 3, rs.size);
  flags &= ~(SornFlags)SORN_F_PROBE;
  const SornBorderSpec border = {SORN_BORDER_REFLECT101, {0, 0, 0, 0}};
  const SornSites sites = source_sites(src);

  auto run = [&](uint32_t tag, SliceProc<2> slice, void *args) -> SornStatus {
    return enter_slices(xe, flags, dst, src, dstRoi, rd, rs, tag, args, slice);
  };
  return family(SORN_DIMPACK(dst->ndims), &window, &border, &sites, run, (const int32_t *)rs.size);
}

// The entry of a family whose kind and one window go down in a
// SornFilterArgs (the filter, the firefly filter): the slice form `slice`
// under `tag`, and `copy_kind` the kind that copies whole pixels.
inline SornStatus kind_entry(SornXE *xe, SornFlags flags, const SornArray *dst,
                             const SornArray *src, const SornVolume *dstRoi,
                             const SornVolume *srcSite, int32_t kind, const SornSeShape *se,
                             uint32_t tag, SliceProc<2> slice, int32_t copy_kind) {
  return filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, se,
      [&](SornDimPack, const SornSeShape *window, const SornBorderSpec *border,
          const SornSites *sites, auto run, const int32_t *) {
        SornFilterArgs args = {(uint32_t)kind, window, border, sites};
        return run(tag, slice, &args);
      },
      (kind & 255) == copy_kind);
}

}  // namespace sorn::filter

// Layer 2 of a family taking a kind and a window of type Window (the
// filter's SornSeShape, morphology's SornStrel), and its slice form: the
// origins go into the bases, and the sites settle in the edge-handling
// form: a missing or empty site is the region itself, a missing or empty
// parent site is the site (so that no margin exists at all), and both move
// into the coordinates of the region's first pixel. The slice form reads a
// SornFilterArgs, whose window `window_from` turns into the family's.
#define SORN_FILTER_LAYER2(fam, Window, window_from)                                             \
  SornStatus sorna_##fam(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,    \
                         uint32_t type, void *dst, const int32_t *dstOrigin,                     \
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,   \
                         const int32_t *srcStrides, int32_t kind, const Window *w) {             \
    return sorna__##fam(xe, flags, pack, sizes, type,                                            \
                        sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,           \
                        sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, w); \
  }                                                                                              \
  SornStatus sorna_e##fam(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,   \
                          uint32_t type, void *dst, const int32_t *dstOrigin,                    \
                          const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,  \
                          const int32_t *srcStrides, int32_t kind, const Window *w,              \
                          const SornBorderSpec *border, const SornSites *sites) {                \
    const SornSites at = sorn::sites_at_region(pack, sizes, srcOrigin, sites);                   \
    return sorna__e##fam(xe, flags, pack, sizes, type,                                           \
                         sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,          \
                         sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, w, \
                         border, &at);                                                           \
  }                                                                                              \
  SornStatus SornTGA##fam(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,             \
                          int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,       \
                          int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,  \
                          int32_t *srcStrides) {                                                 \
    if (dstType != srcType) return SORN_EINVAL;                                                  \
    const SornFilterArgs *a = static_cast<const SornFilterArgs *>(args);                         \
    return sorna_e##fam(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src,        \
                        srcOrigin, srcStrides, (int32_t)a->kind, window_from(a->se), a->border,  \
                        a->sites);                                                               \
  }

// Morphology: SornMorphop from entry to dispatcher (a mask of any shape),
// the tables of the masked dilation and erosion, and the chains built from
// two passes and a subtraction, with a rectangle (filter kinds 105 to 108)
// and with a mask.
#include <sorn.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "core/entry.h"
#include "filter/filter_frame.h"
#include "filter/morph_kernels.h"

/* ---------------- kernel tables ---------------- */

namespace {

#define SORN_MORPH_ROW1(c, t, name) \
  SORN_KERNEL_ROW(sorna__##name##_c##c##_##t, (uint32_t)c, SORN_TYPECODE(t))
#define SORN_DILATE_ROW1(c, t) SORN_MORPH_ROW1(c, t, dilate)
#define SORN_ERODE_ROW1(c, t) SORN_MORPH_ROW1(c, t, erode)
#define SORN_DILATE_ROW(t) SORN_FILTER_CHANNELS(SORN_DILATE_ROW1, t)
#define SORN_ERODE_ROW(t) SORN_FILTER_CHANNELS(SORN_ERODE_ROW1, t)
constexpr sorn::KernelRow<SornFilterKernel> kDilate[] = {SORN_FILTER_TYPES(SORN_DILATE_ROW)};
constexpr sorn::KernelRow<SornFilterKernel> kErode[] = {SORN_FILTER_TYPES(SORN_ERODE_ROW)};

const SornSeShape *window_of(const SornStrel *strel) {
  return reinterpret_cast<const SornSeShape *>(strel);
}

// The value the frame around a chain's intermediate is filled with: the
// neutral element of the second pass (the low end of the type for an
// opening, the high end for a closing), so that the frame never wins and
// the second pass sees only the first pass's results.
double frame_fill(uint32_t type, bool high) {
  switch (type) {
    case SORN_U8: return high ? 255.0 : 0.0;
    case SORN_S8: return high ? 127.0 : -128.0;
    case SORN_U16: return high ? 65535.0 : 0.0;
    case SORN_S16: return high ? 32767.0 : -32768.0;
    case SORN_U32: return high ? 4294967295.0 : 0.0;
    case SORN_S32: return high ? 2147483647.0 : -2147483648.0;
    case SORN_F32:
      return high ? (double)std::numeric_limits<float>::max()
                  : (double)std::numeric_limits<float>::lowest();
    default: return high ? HUGE_VAL : -HUGE_VAL;
  }
}

// One pass of a chain: (flags, dst, dstStrides, src, srcStrides).
template <class First, class Second>
SornStatus chain(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes, uint32_t type,
                 void *dst, const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                 const SornSeShape *se, bool fill_high, First first, Second second) {
  // The first pass's dispatcher answers for the chain before any work:
  // whether it can do without a margin, and whether its table holds the
  // channel word and the type at all.
  const SornStatus asked = first(flags | SORN_F_PROBE, nullptr, dstStrides, src, srcStrides);
  if (asked != SORN_OK || (flags & SORN_F_PROBE)) return asked;
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4) return SORN_EINVAL;
  // A region whose channels begin past the pixel's has no element left,
  // whatever word its cut cell reads as.
  if (sizes[n - 1] < 1) return SORN_EINVAL;
  if (!sorn::shapes::box_fits(n, sizes, se)) return SORN_ENOMEM;

  // The intermediate in scratch, with the window's margin around it: rows
  // tight, pixels as in dst.
  int32_t strides[4] = {0, 0, 0, 0}, widened[4], at[4] = {0, 0, 0, 0};
  strides[n - 2] = dstStrides[n - 2];
  strides[n - 1] = dstStrides[n - 1];
  std::memcpy(widened, sizes, sizeof(int32_t) * (size_t)n);
  sorn_volume__widen_$I$se(n - 1, widened, se);
  for (int32_t k = 0; k < n; ++k)
    if (widened[k] < 1) return SORN_OK;  // nothing to filter
  const int64_t row =
      (int64_t)widened[n - 2] * (strides[n - 2] < 0 ? -(int64_t)strides[n - 2] : strides[n - 2]);
  if (row > INT32_MAX) return SORN_ENOMEM;
  const size_t bytes = sorn_vmemsize(n, widened, strides, 2);
  if (bytes == 0 || bytes > (size_t)INT32_MAX) return SORN_ENOMEM;
  void *scratch = SornXEalloca(xe, bytes, 8);
  if (scratch == nullptr) return SORN_ENOMEM;
  at[n - 2] = se->anchor[2];
  if (n >= 3) at[n - 3] = se->anchor[1];
  void *t = sorn_advance_ptr(scratch, sorn_vec_mkloff(n, at, strides));

  SornStatus st = first(flags, t, strides, src, srcStrides);
  if (st == SORN_OK) {
    SornBrShape br;
    __sorn_brshape__$se(&br, se);
    br.lo[0] = br.hi[0] = 0;  // a window of rows and columns only
    for (double &f : br.fill) f = frame_fill(type, fill_high);
    st = sorna__copymkb(xe, (flags & 255u) | SORN_F_BORDER_ONLY, (SornDimPack)n, sizes, type,
                        scratch, strides, t, strides, SORN_BORDER_CONST, &br, nullptr);
  }
  if (st == SORN_OK)
    st = second(flags & ~(SornFlags)(SORN_F_NOMARGIN | SORN_F_SITEMARGIN), dst, dstStrides, t,
                strides);
  SornXEfreea(xe, scratch);
  return st;
}

// A pass of a chain through a layer-3 routine of the window's form.
template <class Routine, class Window>
auto pass_of(Routine routine, SornXE *xe, SornDimPack pack, const int32_t *sizes, uint32_t type,
             const Window *w) {
  return [=](SornFlags f, void *d, const int32_t *ds, const void *s, const int32_t *ss) {
    return routine(xe, f, pack, sizes, type, d, ds, s, ss, w);
  };
}

// An opening (erosion, then dilation of its result) or a closing (the
// other way) through the erosion and dilation routines of one window form.
template <class Routine, class Window>
SornStatus open_or_close(bool close, Routine erode, Routine dilate, SornXE *xe, SornFlags flags,
                         SornDimPack pack, const int32_t *sizes, uint32_t type, void *dst,
                         const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                         const SornSeShape *se, const Window *w) {
  const auto e = pass_of(erode, xe, pack, sizes, type, w);
  const auto d = pass_of(dilate, xe, pack, sizes, type, w);
  if (close)
    return chain(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se, true, d, e);
  return chain(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se, false, e, d);
}

// dst = src - dst after an opening into dst, or dst - src after a closing:
// the chain runs into dst first.
template <class Chain, class Window>
SornStatus hat(Chain chain, bool top, SornXE *xe, SornFlags flags, SornDimPack pack,
               const int32_t *sizes, uint32_t type, void *dst, const int32_t *dstStrides,
               const void *src, const int32_t *srcStrides, const Window *w) {
  const SornStatus chained =
      chain(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, w);
  if (chained != SORN_OK || (flags & SORN_F_PROBE)) return chained;
  if (top)
    return sorna__subq(xe, flags, pack, sizes, type, dst, dstStrides, type, src, srcStrides, type,
                       dst, dstStrides, 0, 0);
  return sorna__subq(xe, flags, pack, sizes, type, dst, dstStrides, type, dst, dstStrides, type,
                     src, srcStrides, 0, 0);
}

}  // namespace

SornFilterKernel sorna__dilatefun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kDilate, chword, type, SORN_EINVAL, status);
}
SornFilterKernel sorna__erodefun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kErode, chword, type, SORN_EINVAL, status);
}

/* ---------------- chains with a rectangle ---------------- */

#define SORN_FILTER_CHAIN_ARGS                                                                     \
  (SornXE * xe, SornFlags flags, SornDimPack pack, const int32_t *sizes, uint32_t type, void *dst, \
   const int32_t *dstStrides, const void *src, const int32_t *srcStrides, const SornSeShape *se)

SornStatus sorna__filter_open SORN_FILTER_CHAIN_ARGS {
  return open_or_close(false, &sorna__filter_min, &sorna__filter_max, xe, flags, pack, sizes, type,
                       dst, dstStrides, src, srcStrides, se, se);
}
SornStatus sorna__filter_close SORN_FILTER_CHAIN_ARGS {
  return open_or_close(true, &sorna__filter_min, &sorna__filter_max, xe, flags, pack, sizes, type,
                       dst, dstStrides, src, srcStrides, se, se);
}
// The hats of a window form: top-hat after its opening, bottom-hat after
// its closing.
#define SORN_HATS(fam, ARGS, w)                                                                  \
  SornStatus sorna__##fam##_tophat ARGS {                                                        \
    return hat(&sorna__##fam##_open, true, xe, flags, pack, sizes, type, dst, dstStrides, src,   \
               srcStrides, w);                                                                   \
  }                                                                                              \
  SornStatus sorna__##fam##_bothat ARGS {                                                        \
    return hat(&sorna__##fam##_close, false, xe, flags, pack, sizes, type, dst, dstStrides, src, \
               srcStrides, w);                                                                   \
  }
SORN_HATS(filter, SORN_FILTER_CHAIN_ARGS, se)
#undef SORN_FILTER_CHAIN_ARGS

/* ---------------- with a mask ---------------- */

#define SORN_MORPHOP_ARGS                                                                          \
  (SornXE * xe, SornFlags flags, SornDimPack pack, const int32_t *sizes, uint32_t type, void *dst, \
   const int32_t *dstStrides, const void *src, const int32_t *srcStrides, const SornStrel *strel)

SornStatus sorna__morphop_dilate SORN_MORPHOP_ARGS {
  return sorn::filter::table_route(&sorna__dilatefun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides, window_of(strel));
}
SornStatus sorna__morphop_erode SORN_MORPHOP_ARGS {
  return sorn::filter::table_route(&sorna__erodefun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides, window_of(strel));
}
// A mask of all 255 is the rectangle's chain.
#define SORN_MASKED_CHAIN(name, close)                                                            \
  SornStatus sorna__morphop_##name SORN_MORPHOP_ARGS {                                            \
    if (sorn::filter::flat_mask(strel))                                                           \
      return sorna__filter_##name(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, \
                                  window_of(strel));                                              \
    return open_or_close(close, &sorna__morphop_erode, &sorna__morphop_dilate, xe, flags, pack,   \
                         sizes, type, dst, dstStrides, src, srcStrides, window_of(strel), strel); \
  }
SORN_MASKED_CHAIN(open, false)
SORN_MASKED_CHAIN(close, true)
#undef SORN_MASKED_CHAIN
SORN_HATS(morphop, SORN_MORPHOP_ARGS, strel)
#undef SORN_HATS
#undef SORN_MORPHOP_ARGS

/* ---------------- layer 3 ---------------- */

// By kind, read as its low four bits.
SornStatus sorna__morphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind, const SornStrel *strel) {
  static constexpr sorn::filter::KindRoute<SornStrel> kRoutes[] = {
      {SORN_MORPH_ERODE, &sorna__morphop_erode},
      {SORN_MORPH_DILATE, &sorna__morphop_dilate},
      {SORN_MORPH_CLOSE, &sorna__morphop_close},
      {SORN_MORPH_OPEN, &sorna__morphop_open},
      {SORN_MORPH_BOTHAT, &sorna__morphop_bothat},
      {SORN_MORPH_TOPHAT, &sorna__morphop_tophat},
      {SORN_MORPH_GRADIENT, nullptr}};
  return sorn::filter::route_kind(kRoutes, kind & 15, xe, flags, pack, sizes, type, dst, dstStrides,
                                  src, srcStrides, strel);
}

// The edge decision of the filters, with the mask's box as the window; the
// bordering keeps SORN_F_BORDER_ONLY as the caller gave it.
SornStatus sorna__emorphop(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                           const int32_t *srcStrides, int32_t kind, const SornStrel *strel,
                           const SornBorderSpec *border, const SornSites *sites) {
  return sorn::filter::edge_decision(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, window_of(strel), border,
      sites, sorn::filter::EdgeForm{true, false},
      [&](SornFlags f, const void *s, const int32_t *ss) {
        return sorna__morphop(xe, f, pack, sizes, type, dst, dstStrides, s, ss, kind, strel);
      });
}

/* ---------------- layer 2 ---------------- */

SORN_FILTER_LAYER2(morphop, SornStrel, sorn::filter::strel_of)

/* ---------------- entry ---------------- */

SornStatus SornMorphop(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                       const SornStrel *strel) {
  using namespace sorn;
  // Without a mask the window is a rectangle: the filter's kinds.
  if (strel == nullptr || filter::first_mask_cell(strel) == nullptr) {
    static constexpr int32_t kFilterKind[16] = {SORN_FILTER_NONE,
                                                -1,
                                                -1,
                                                SORN_FILTER_MIN,
                                                SORN_FILTER_MAX,
                                                SORN_FILTER_CLOSE,
                                                SORN_FILTER_OPEN,
                                                SORN_FILTER_BOTHAT,
                                                SORN_FILTER_TOPHAT,
                                                SORN_FILTER_GRADIENT,
                                                -1,
                                                -1,
                                                -1,
                                                -1,
                                                -1,
                                                -1};
    if ((kind & 15) == SORN_MORPH_NONE) {
      // A copy onto itself when there is no source.
      if (src == nullptr) return SornCopy(xe, flags, dst, dst, dstRoi, srcSite ? srcSite : dstRoi);
      return SornCopy(xe, flags, dst, src, dstRoi, srcSite);
    }
    return SornFilter(xe, flags, dst, src, dstRoi, srcSite, kFilterKind[kind & 15],
                      window_of(strel));
  }
  if (src == nullptr) src = dst;
  if (srcSite == nullptr) srcSite = dstRoi;
  flags &= ~(SornFlags)SORN_F_PROBE;
  // The mask is taken as it is: no default, no clipping of the anchor.
  const int32_t h = strel->mask.dims[1], w = strel->mask.dims[2];
  if (w < 1 || h < 1 || strel->anchor[2] < 0 || strel->anchor[2] >= w || strel->anchor[1] < 0 ||
      strel->anchor[1] >= h)
    return SORN_EINVAL;
  // A window of one cell, or kind 0, is a copy of the region, which the
  // copy itself makes: it moves whole pixels from the pixel's start also
  // where the region's channels begin inside the pixel.
  if ((w == 1 && h == 1) || (kind & 15) == SORN_MORPH_NONE)
    return SornCopy(xe, flags, dst, src, dstRoi, srcSite);
  if (!good_image(dst)) return SORN_EINVAL;
  if (dstRoi != nullptr && dstRoi->size[3] != channels_of(dst->dims[3])) return SORN_EINVAL;
  if (!fits_image(src, dst, Channels::Same)) return SORN_EINVAL;
  SornVolume rd, rs;
  // A region whose channel cell is cut to nothing has no element to write.
  if (!negotiate(dst, src, dstRoi, srcSite, &rd, &rs) || no_channels(rd)) return SORN_ENOSPC;
  const SornBorderSpec border = {SORN_BORDER_REFLECT101, {0, 0, 0, 0}};
  SornSites sites = source_sites(src);
  SornFilterArgs args = {(uint32_t)kind, window_of(strel), &border, &sites};
  return filter::enter_slices(xe, flags, dst, src, dstRoi, rd, rs, SORN_TAG_MRPH, &args,
                              &SornTGAmorphop);
}

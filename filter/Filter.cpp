// SornFilter from entry to dispatcher: the checks and the region, the
// window normalised once per call, the border request and the sites around
// the source; layer 2 with and without the edge decision; layer 3 by kind;
// the box, minimum and maximum routes with their kernel tables.
#include <sorn.h>

#include <cstring>

#include "core/entry.h"
#include "filter/filter_frame.h"

/* ---------------- kernel tables ---------------- */

namespace {

#define SORN_FLAT_ROW1(c, t, family) \
  SORN_KERNEL_ROW(sorna__##family##filter_c##c##_##t, (uint32_t)c, SORN_TYPECODE(t))
#define SORN_BOX_ROW1(c, t) SORN_FLAT_ROW1(c, t, box)
#define SORN_MIN_ROW1(c, t) SORN_FLAT_ROW1(c, t, min)
#define SORN_MAX_ROW1(c, t) SORN_FLAT_ROW1(c, t, max)
#define SORN_BOX_ROW(t) SORN_FILTER_CHANNELS(SORN_BOX_ROW1, t)
#define SORN_MIN_ROW(t) SORN_FILTER_CHANNELS(SORN_MIN_ROW1, t)
#define SORN_MAX_ROW(t) SORN_FILTER_CHANNELS(SORN_MAX_ROW1, t)
constexpr sorn::KernelRow<SornFilterKernel> kBox[] = {SORN_FILTER_TYPES(SORN_BOX_ROW)};
constexpr sorn::KernelRow<SornFilterKernel> kMin[] = {SORN_FILTER_TYPES(SORN_MIN_ROW)};
constexpr sorn::KernelRow<SornFilterKernel> kMax[] = {SORN_FILTER_TYPES(SORN_MAX_ROW)};

// A pair outside a filter table is invalid, whatever its codes: the
// filters have no unsupported types, only missing ones.
template <size_t N>
SornFilterKernel filter_lookup(const sorn::KernelRow<SornFilterKernel> (&table)[N], uint32_t chword,
                               uint32_t type, SornStatus *status) {
  return sorn::lookup_channels(table, chword, type, SORN_EINVAL, status);
}

}  // namespace

SornFilterKernel sorna__boxfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return filter_lookup(kBox, chword, type, status);
}
SornFilterKernel sorna__minfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return filter_lookup(kMin, chword, type, status);
}
SornFilterKernel sorna__maxfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return filter_lookup(kMax, chword, type, status);
}

/* ---------------- layer 3 ---------------- */

SornStatus sorna__filter_box(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, const SornSeShape *se) {
  return sorn::filter::table_route(&sorna__boxfiltfun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides, se);
}

SornStatus sorna__filter_min(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, const SornSeShape *se) {
  return sorn::filter::table_route(&sorna__minfiltfun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides, se);
}

SornStatus sorna__filter_max(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, const SornSeShape *se) {
  return sorn::filter::table_route(&sorna__maxfiltfun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides, se);
}

// By kind, read as one byte. The median has a name and no routine: it is
// refused as not implemented rather than run.
SornStatus sorna__filter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se) {
  switch (kind & 255) {
    case SORN_FILTER_NONE:
      return sorna__copy(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides);
    case SORN_FILTER_MIN:
      return sorna__filter_min(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se);
    case SORN_FILTER_MAX:
      return sorna__filter_max(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se);
    case SORN_FILTER_BOX:
      return sorna__filter_box(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se);
    case SORN_FILTER_CLOSE:
      return sorna__filter_close(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides,
                                 se);
    case SORN_FILTER_OPEN:
      return sorna__filter_open(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se);
    case SORN_FILTER_BOTHAT:
      return sorna__filter_bothat(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides,
                                  se);
    case SORN_FILTER_TOPHAT:
      return sorna__filter_tophat(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides,
                                  se);
    case SORN_FILTER_MEDIAN:
    case SORN_FILTER_GRADIENT: return SORN_ENOTIMP;
    default: return SORN_EINVAL;
  }
}

SornStatus sorna__efilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                          const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                          const SornBorderSpec *border, const SornSites *sites) {
  return sorn::filter::edge_decision(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, se, border, sites,
      sorn::filter::EdgeForm{true, true}, [&](SornFlags f, const void *s, const int32_t *ss) {
        return sorna__filter(xe, f, pack, sizes, type, dst, dstStrides, s, ss, kind, se);
      });
}

/* ---------------- layer 2 ---------------- */

SornStatus sorna_filter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, int32_t kind, const SornSeShape *se) {
  return sorna__filter(xe, flags, pack, sizes, type,
                       sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
                       sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, se);
}

// The sites settle here: a missing or empty site is the region itself, a
// missing or empty parent site is the site (so that no margin exists at
// all), and both move into the coordinates of the region's first pixel.
SornStatus sorna_efilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                         const SornBorderSpec *border, const SornSites *sites) {
  const bool site_empty = sites == nullptr || sorn_volume__empty(3, sites->site.size);
  const bool par_empty = sites == nullptr || sorn_volume__empty(3, sites->parsite.size);
  SornSites local;
  if (site_empty) {
    __sorn_dims__$v$L(local.site.origin, pack, srcOrigin);
    __sorn_Nvolume__$v$L(local.site.size, pack, sizes);
  } else {
    local.site = sites->site;
  }
  local.parsite = par_empty ? local.site : sites->parsite;
  if (srcOrigin != nullptr) {
    int32_t o[4];
    __sorn_dims__$v$L(o, pack, srcOrigin);
    sorn_vec__sub_$I(4, local.site.origin, o);
    sorn_vec__sub_$I(4, local.parsite.origin, o);
  }
  return sorna__efilter(
      xe, flags, pack, sizes, type, sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
      sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, se, border, &local);
}

SornStatus SornTGAfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack, int32_t *sizes,
                         uint32_t dstType, void *dst, int32_t *dstOrigin, int32_t *dstStrides,
                         uint32_t srcType, void *src, int32_t *srcOrigin, int32_t *srcStrides) {
  if (dstType != srcType) return SORN_EINVAL;
  const SornFilterArgs *a = static_cast<const SornFilterArgs *>(args);
  return sorna_efilter(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src, srcOrigin,
                       srcStrides, (int32_t)a->kind, a->se, a->border, a->sites);
}

/* ---------------- entry ---------------- */

SornStatus SornFilter(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                      const SornSeShape *se) {
  return sorn::filter::filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, se,
      [&](SornDimPack, const SornSeShape *window, const SornBorderSpec *border,
          const SornSites *sites, auto run, const int32_t *) {
        SornFilterArgs args = {(uint32_t)kind, window, border, sites};
        return run(SORN_TAG_FILT, &SornTGAfilter, &args);
      },
      (kind & 255) == SORN_FILTER_NONE);
}

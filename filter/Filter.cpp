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

// The box, minimum and maximum routes: each through its table.
#define SORN_FILTER_ROUTE(kind)                                                                 \
  SornStatus sorna__filter_##kind(SornXE *xe, SornFlags flags, SornDimPack pack,                \
                                  const int32_t *sizes, uint32_t type, void *dst,               \
                                  const int32_t *dstStrides, const void *src,                   \
                                  const int32_t *srcStrides, const SornSeShape *se) {           \
    return sorn::filter::table_route(&sorna__##kind##filtfun_imp, xe, flags, pack, sizes, type, \
                                     dst, dstStrides, src, srcStrides, se);                     \
  }
SORN_FILTER_ROUTE(box)
SORN_FILTER_ROUTE(min)
SORN_FILTER_ROUTE(max)
#undef SORN_FILTER_ROUTE

// By kind, read as one byte. The median has a name and no routine: it is
// refused as not implemented rather than run.
SornStatus sorna__filter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se) {
  static constexpr sorn::filter::KindRoute<SornSeShape> kRoutes[] = {
      {SORN_FILTER_MIN, &sorna__filter_min},
      {SORN_FILTER_MAX, &sorna__filter_max},
      {SORN_FILTER_BOX, &sorna__filter_box},
      {SORN_FILTER_CLOSE, &sorna__filter_close},
      {SORN_FILTER_OPEN, &sorna__filter_open},
      {SORN_FILTER_BOTHAT, &sorna__filter_bothat},
      {SORN_FILTER_TOPHAT, &sorna__filter_tophat},
      {SORN_FILTER_MEDIAN, nullptr},
      {SORN_FILTER_GRADIENT, nullptr}};
  return sorn::filter::route_kind(kRoutes, kind & 255, xe, flags, pack, sizes, type, dst,
                                  dstStrides, src, srcStrides, se);
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

SORN_FILTER_LAYER2(filter, SornSeShape, )

/* ---------------- entry ---------------- */

SornStatus SornFilter(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                      const SornSeShape *se) {
  return sorn::filter::kind_entry(xe, flags, dst, src, dstRoi, srcSite, kind, se, SORN_TAG_FILT,
                                  &SornTGAfilter, SORN_FILTER_NONE);
}

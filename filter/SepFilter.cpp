// SornSepFilter from entry to dispatcher: the frame of SornFilter with a
// window that carries its two kernels; layer 2 with and without the edge
// decision; layer 3 through the separable table.
#include <sorn.h>

#include <cstring>

#include "core/entry.h"
#include "filter/filter_frame.h"

namespace {

#define SORN_SEP_ROW1(c, t) \
  SORN_KERNEL_ROW(sorna__sepfilter_c##c##_##t, (uint32_t)c, SORN_TYPECODE(t))
#define SORN_SEP_ROW(t) SORN_FILTER_CHANNELS(SORN_SEP_ROW1, t)
constexpr sorn::KernelRow<SornFilterKernel> kSep[] = {SORN_FILTER_TYPES(SORN_SEP_ROW)};

// The window part of a separable shape, as the frame and the kernels read
// it.
SornSeShape window_of(const SornSepShape *sep) {
  SornSeShape se;
  std::memcpy(se.anchor, sep->anchor, sizeof se.anchor);
  std::memcpy(se.size, sep->size, sizeof se.size);
  return se;
}

}  // namespace

SornFilterKernel sorna__sepfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kSep, chword, type, SORN_EINVAL, status);
}

/* ---------------- layer 3 ---------------- */

// The kernels take the shape as the SornSeShape it begins with.
SornStatus sorna__sepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, const SornSepShape *sep) {
  if (sep == nullptr) return SORN_EINVAL;
  return sorn::filter::table_route(&sorna__sepfiltfun_imp, xe, flags, pack, sizes, type, dst,
                                   dstStrides, src, srcStrides,
                                   reinterpret_cast<const SornSeShape *>(sep));
}

SornStatus sorna__esepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, const SornSepShape *sep,
                             const SornBorderSpec *border, const SornSites *sites) {
  if (sep == nullptr) return SORN_EINVAL;
  const SornSeShape se = window_of(sep);
  return sorn::filter::edge_decision(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, &se, border, sites,
      sorn::filter::EdgeForm{true, true}, [&](SornFlags f, const void *s, const int32_t *ss) {
        return sorna__sepfilter(xe, f, pack, sizes, type, dst, dstStrides, s, ss, sep);
      });
}

/* ---------------- layer 2 ---------------- */

SornStatus sorna_sepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstOrigin,
                           const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                           const int32_t *srcStrides, const SornSepShape *sep) {
  return sorna__sepfilter(xe, flags, pack, sizes, type,
                          sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
                          sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, sep);
}

SornStatus sorna_esepfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstOrigin,
                            const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                            const int32_t *srcStrides, const SornSepShape *sep,
                            const SornBorderSpec *border, const SornSites *sites) {
  const SornSites at = sorn::sites_at_region(pack, sizes, srcOrigin, sites);
  return sorna__esepfilter(
      xe, flags, pack, sizes, type, sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
      sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, sep, border, &at);
}

SornStatus SornTGAsepfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                            int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                            int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                            int32_t *srcStrides) {
  if (dstType != srcType) return SORN_EINVAL;
  const SornSepFilterArgs *a = static_cast<const SornSepFilterArgs *>(args);
  return sorna_esepfilter(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src,
                          srcOrigin, srcStrides, a->sep, a->border, a->sites);
}

/* ---------------- entry ---------------- */

// The window is normalised like any filter's; the kernels ride along
// unchanged. A null record is the 5 by 5 box, both kernels null.
SornStatus SornSepFilter(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite,
                         const SornSepShape *sep) {
  SornSeShape given;
  if (sep != nullptr) given = window_of(sep);
  return sorn::filter::filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, sep != nullptr ? &given : nullptr,
      [&](SornDimPack, const SornSeShape *window, const SornBorderSpec *border,
          const SornSites *sites, auto run, const int32_t *) {
        SornSepShape local;
        std::memcpy(local.anchor, window->anchor, sizeof local.anchor);
        std::memcpy(local.size, window->size, sizeof local.size);
        for (int k = 0; k < 3; ++k) local.kernels[k] = sep != nullptr ? sep->kernels[k] : nullptr;
        SornSepFilterArgs args = {&local, border, sites};
        return run(SORN_TAG_SEPF, &SornTGAsepfilter, &args);
      });
}

// The Gaussian filter: a separable filter whose kernels the library makes
// from the window and from optional sigmas, once per call, and then hands
// down the separable way. It has no kernels of its own.
//
// The kernels of all spatial axes lie one after another in one scratch
// block, in the order of the axes. The separable passes read the first two
// by their fixed places (the column pass kernels[0], the row pass
// kernels[1]), so with three spatial axes, as a 4-dimensional call at the
// entry has, the column pass reads the depth kernel and runs on into the
// row taps, and the row pass reads the row kernel and runs on into the
// column taps. That is what such calls compute, and it is kept on purpose.
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/entry.h"
#include "filter/filter_frame.h"

namespace {

// The spatial axes of a packing word, and the window cell of the first.
struct Axes {
  int32_t n, first;
};
Axes axes_of(SornDimPack pack) {
  return Axes{(int32_t)(pack & 15u) - 1, (int32_t)((pack >> 4) & 15u)};
}

// Makes the kernels of the window se in scratch, calls body with the
// separable shape that carries them, and gives the block back.
template <class Body>
SornStatus with_kernels(SornXE *xe, SornDimPack pack, const SornSeShape *se, const double *sigmas,
                        Body body) {
  if (se == nullptr) return SORN_EINVAL;
  const Axes a = axes_of(pack);
  if (a.n < 1 || a.first + a.n > 3) return SORN_EINVAL;
  size_t taps = 0;
  for (int32_t i = 0; i < a.n; ++i)
    taps += se->size[a.first + i] > 0 ? (size_t)se->size[a.first + i] : 0;
  // Like every scratch block of the filters, the coefficients stay within
  // the 32-bit range: a window with more taps cannot be had.
  if (taps > (size_t)INT32_MAX / sizeof(double)) return SORN_ENOMEM;
  void *block = SornXEalloca(xe, taps * sizeof(double), 0);
  if (block == nullptr) return SORN_ENOMEM;
  double *kernels[3] = {nullptr, nullptr, nullptr};
  double *at = static_cast<double *>(block);
  for (int32_t i = 0; i < a.n; ++i) {
    kernels[i] = at;
    at += se->size[a.first + i] > 0 ? se->size[a.first + i] : 0;
  }
  double sig[3];
  sorn_adjustgaussigmas(pack, sig, se, sigmas);
  sorn__computegauskernel(a.n, kernels, se->anchor + a.first, se->size + a.first, sig);
  SornSepShape sep;
  std::memcpy(sep.anchor, se->anchor, sizeof sep.anchor);
  std::memcpy(sep.size, se->size, sizeof sep.size);
  for (int k = 0; k < 3; ++k) sep.kernels[k] = kernels[k];
  const SornStatus st = body(&sep);
  SornXEfreea(xe, block);
  return st;
}

}  // namespace

/* ---------------- coefficients ---------------- */

// The sigma of a size: 0.8 for 3, 1.1 for 5, 0.5 for 1. Sigmas given
// replace them on every axis, a 0 taking the last value given before it,
// or the first given after it for the leading axes; a NaN counts as given.
double *sorn_adjustgaussigmas(SornDimPack pack, double *out, const SornSeShape *se,
                              const double *sigmas) {
  Axes a = axes_of(pack);
  if (a.n < 1) return out;
  if (a.first + a.n > 4) a.n = 4 - a.first;
  for (int32_t i = 0; i < a.n; ++i)
    out[i] = (((double)se->size[a.first + i] - 1.0) * 0.5 - 1.0) * 0.3 + 0.8;
  if (sigmas == nullptr) return out;
  int32_t given = -1;
  for (int32_t i = 0; i < a.n && given < 0; ++i)
    if (sigmas[i] != 0.0) given = i;
  if (given < 0) return out;
  double last = sigmas[given];
  for (int32_t i = 0; i < a.n; ++i) {
    if (sigmas[i] != 0.0) last = sigmas[i];
    out[i] = last;
  }
  return out;
}

// The bell is centred on the anchor, not on the middle of the window, and
// cut by the window. d * d is taken in 32 bits, as the window's cells are.
double *sorn__computegauskernel1(double *k, int32_t anchor, int32_t size, double sigma) {
  if (size < 1) return k;
  const double twice = (sigma + sigma) * sigma;
  double sum = 0.0;
  for (int32_t t = 0; t < size; ++t) {
    const int32_t d = (int32_t)((uint32_t)anchor - (uint32_t)t);
    const int32_t dd = (int32_t)((uint32_t)d * (uint32_t)d);
    k[t] = std::exp(-(double)dd / twice);
    sum += k[t];
  }
  for (int32_t t = 0; t < size; ++t) k[t] /= sum;
  return k;
}

void sorn__computegauskernel(int32_t n, double *const *kernels, const int32_t *anchors,
                             const int32_t *sizes, const double *sigmas) {
  for (int32_t i = 0; i < n; ++i)
    sorn__computegauskernel1(kernels[i], anchors[i], sizes[i], sigmas[i]);
}

/* ---------------- layer 3 ---------------- */

SornStatus sorna__filter_gaussian(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *sizes, uint32_t type, void *dst,
                                  const int32_t *dstStrides, const void *src,
                                  const int32_t *srcStrides, const SornSeShape *se,
                                  const double *sigmas) {
  return with_kernels(xe, pack, se, sigmas, [&](const SornSepShape *sep) {
    return sorna__sepfilter(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, sep);
  });
}

SornStatus sorna__efilter_gaussian(SornXE *xe, SornFlags flags, SornDimPack pack,
                                   const int32_t *sizes, uint32_t type, void *dst,
                                   const int32_t *dstStrides, const void *src,
                                   const int32_t *srcStrides, const SornSeShape *se,
                                   const double *sigmas, const SornBorderSpec *border,
                                   const SornSites *sites) {
  return with_kernels(xe, pack, se, sigmas, [&](const SornSepShape *sep) {
    return sorna__esepfilter(xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, sep,
                             border, sites);
  });
}

/* ---------------- layer 2 ---------------- */

SornStatus sorna_gaussianfilter(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                                uint32_t type, void *dst, const int32_t *dstOrigin,
                                const int32_t *dstStrides, const void *src,
                                const int32_t *srcOrigin, const int32_t *srcStrides,
                                const SornSeShape *se, const double *sigmas) {
  return with_kernels(xe, pack, se, sigmas, [&](const SornSepShape *sep) {
    return sorna_sepfilter(xe, flags, pack, sizes, type, dst, dstOrigin, dstStrides, src, srcOrigin,
                           srcStrides, sep);
  });
}

SornStatus sorna_egaussianfilter(SornXE *xe, SornFlags flags, SornDimPack pack,
                                 const int32_t *sizes, uint32_t type, void *dst,
                                 const int32_t *dstOrigin, const int32_t *dstStrides,
                                 const void *src, const int32_t *srcOrigin,
                                 const int32_t *srcStrides, const SornSeShape *se,
                                 const double *sigmas, const SornBorderSpec *border,
                                 const SornSites *sites) {
  return with_kernels(xe, pack, se, sigmas, [&](const SornSepShape *sep) {
    return sorna_esepfilter(xe, flags, pack, sizes, type, dst, dstOrigin, dstStrides, src,
                            srcOrigin, srcStrides, sep, border, sites);
  });
}

SornStatus SornTGAgaussianfilter(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                                 int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                                 int32_t *dstStrides, uint32_t srcType, void *src,
                                 int32_t *srcOrigin, int32_t *srcStrides) {
  if (dstType != srcType) return SORN_EINVAL;
  const SornGaussianFilterArgs *a = static_cast<const SornGaussianFilterArgs *>(args);
  return sorna_egaussianfilter(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src,
                               srcOrigin, srcStrides, a->se, a->sigmas, a->border, a->sites);
}

/* ---------------- entry ---------------- */

// The kernels are made once, for the whole call, and every slice goes
// through the separable slice form with them. A window whose reach leaves
// the 32-bit range cannot be read by any slice; it is refused as the frame
// refuses it, before coefficients are made for it.
SornStatus SornGaussianFilter(SornXE *xe, SornFlags flags, const SornArray *dst,
                              const SornArray *src, const SornVolume *dstRoi,
                              const SornVolume *srcSite, const SornSeShape *se,
                              const double *sigmas) {
  return sorn::filter::filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, se,
      [&](SornDimPack pack, const SornSeShape *window, const SornBorderSpec *border,
          const SornSites *sites, auto run, const int32_t *region) {
        if (!sorn::shapes::box_fits(4, region, window)) return SORN_ENOMEM;
        return with_kernels(xe, pack, window, sigmas, [&](const SornSepShape *sep) {
          SornSepFilterArgs args = {sep, border, sites};
          return run(SORN_TAG_SEPF, &SornTGAsepfilter, &args);
        });
      });
}

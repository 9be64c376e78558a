// Otsu's threshold: the histogram of each channel over a range that is
// given, defaulted or measured, and the bin that best parts its pixels into
// two classes. The entry SornComputeThresholdByOtsu, its type-generic layer
// and slice form, and the computation the threshold methods call.
#include <sorn.h>

#include <cmath>
#include <cstring>

#include "core/entry.h"
#include "data/threshold.h"

using sorn::threshold::default_bins;
using sorn::threshold::value_top;

/* ---------------- from a histogram ---------------- */

namespace {

// A later bin must beat the best score by more than this; and the result
// lies this far below the next bin's value.
constexpr double kEpsilon = 1.1920928955078125e-7;

}  // namespace

double sorna_calculate_threshold_otsu_f(const SornHist *hist) {
  // All in double: the bin width and the low end of the range are the
  // record's float ones, widened.
  const double w = (double)hist->width, low = (double)hist->low;
  const uint32_t bins = hist->bins;
  const uint32_t *c = hist->counts;
  uint32_t i0 = 0;
  while (i0 < bins && c[i0] == 0) ++i0;
  if (i0 == bins) return low + w - kEpsilon;  // nothing counted: no bin parts anything
  // Bin values by repeated addition of the width, in the sum as in the walk.
  double v = (double)i0 * w + low, s = 0.0;
  for (uint32_t i = i0; i < bins; ++i, v += w) s += (double)c[i] * v;
  double a = 0.0, b = 0.0, best = 0.0, t = low, r = (double)hist->total;
  v = (double)i0 * w + low;
  // The walk is bounded by the bins: a range that misses pixels leaves the
  // rest uncounted, and their share of the total never reaches the end.
  for (uint32_t i = i0; i < bins; ++i, v += w) {
    if (c[i] == 0) continue;
    const double n = (double)c[i];
    r -= n;
    if (0.0 >= r) break;
    a += n;
    const double x = v * n;
    b += x;
    s -= x;
    const double m1 = b / a, m2 = s / r;
    const double score = r * a * (m1 - m2) * (m1 - m2);
    if (score - best > kEpsilon) {
      best = score;
      t = v;
    }
  }
  return t + w - kEpsilon;
}

double sorna_calculate_threshold_otsu_i(const SornHist *hist) {
  return std::nearbyint(sorna_calculate_threshold_otsu_f(hist));
}

/* ---------------- from an image ---------------- */

SornStatus sorna__compute_threshold_otsu(SornXE *xe, SornFlags flags, SornDimPack pack,
                                         const int32_t *dims, uint32_t type, const void *src,
                                         const int32_t *strides, double *thresholds,
                                         SornVrng *vranges, int32_t *bins) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides);
  const uint32_t w = (uint32_t)s.dims[s.n - 1];
  const int32_t count = sorn::channels_of(w) < 4 ? sorn::channels_of(w) : 4;
  uint32_t mask = (uint32_t)(flags >> 4) & 15u;
  if (mask == 0) mask = (1u << count) - 1u;
  mask &= (1u << count) - 1u;

  // The range and the bins of each selected channel: a NaN low end is the
  // default span, a finite range is kept inside the type, and an infinite
  // or reversed one is measured.
  SornVrng range[4] = {};
  int32_t nbins[4] = {};
  uint32_t marked = 0;
  for (int32_t c = 0; c < count; ++c) {
    if (!((mask >> c) & 1u)) continue;
    range[c] = vranges ? vranges[c] : SornVrng{NAN, 0.0};
    nbins[c] = bins ? bins[c] : 0;
    if (std::isnan(range[c].lo))
      range[c] = SornVrng{0.0, value_top(type)};
    else if (std::isfinite(range[c].lo) && !(range[c].lo > range[c].hi))
      sorn_vrng_saturate(type, &range[c], nullptr);
    else
      marked |= 1u << c;
    if (nbins[c] < 2) nbins[c] = default_bins(type);
    if (bins) bins[c] = nbins[c];
  }
  if (marked != 0) {
    SornMinmaxRec rec;
    rec.what = SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
    const SornFlags f = (flags & ~(SornFlags)0xf0u) | ((SornFlags)marked << 4);
    const SornStatus st = sorna__minmax(xe, f, pack, dims, type, src, strides, &rec);
    if (st != SORN_OK) return st;
    for (int32_t c = 0; c < count; ++c) {
      if (!((marked >> c) & 1u)) continue;
      range[c] = SornVrng{(double)rec.min[c].fvalue, (double)rec.max[c].fvalue};
      if (vranges) vranges[c] = range[c];
    }
  }

  // One histogram for each selected channel, counted over the region.
  const int32_t rows = s.n >= 3 ? s.dims[s.n - 3] : 1, cols = s.n >= 2 ? s.dims[s.n - 2] : 1;
  SornHist hists[4];
  SornHistInit inits[4];
  std::memset(hists, 0, sizeof hists);
  std::memset(inits, 0, sizeof inits);
  for (int32_t c = 0; c < count; ++c)
    inits[c] = SornHistInit{type, nbins[c], range[c].lo, range[c].hi, 1, rows, cols};
  const uint32_t hw = (w & 15u) | (mask << 4);
  SornStatus st = __sorn_histogram__$n$xe(hw, hists, inits, xe);
  if (st != SORN_OK) return st;
  const SornFlags f = (flags & ~(SornFlags)0xf0u) | ((SornFlags)mask << 4);
  st = sorna__histogram(xe, f, pack, dims, type, src, strides, hists);
  if (st == SORN_OK)
    for (int32_t c = 0; c < count; ++c)
      if ((mask >> c) & 1u) thresholds[c] = sorna_calculate_threshold_otsu_f(&hists[c]);
  sorn_hist_fini_$n$xe(hw, hists, xe);
  return st;
}

SornStatus sorna_compute_threshold_otsu(SornXE *xe, SornFlags flags, SornDimPack pack,
                                        const int32_t *dims, uint32_t type, const void *src,
                                        const int32_t *origin, const int32_t *strides,
                                        double *thresholds, SornVrng *vranges, int32_t *bins) {
  return sorna__compute_threshold_otsu(xe, flags, pack, dims, type,
                                       sorn::at_origin(src, pack, origin, strides), strides,
                                       thresholds, vranges, bins);
}

SornStatus SornTGAcomputeThresholdByOtsu(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                                         int32_t *dims, uint32_t type0, void *base0,
                                         int32_t *origin0, int32_t *strides0) {
  const SornOtsuArgs *a = static_cast<const SornOtsuArgs *>(data);
  return sorna_compute_threshold_otsu(xe, flags, pack, dims, type0, base0, origin0, strides0,
                                      a->thresholds, a->vranges, a->bins);
}

SornStatus SornComputeThresholdByOtsu(SornXE *xe, SornFlags flags, const SornArray *src,
                                      const SornVolume *roi, double *thresholds, SornVrng *vranges,
                                      int32_t *bins) {
  if (thresholds == nullptr) return SORN_EINVAL;
  if (!sorn::good_image(src)) return SORN_EINVAL;
  SornVolume r;
  if (!sorn::region_of(src, roi, &r)) return SORN_ENOSPC;
  sorn::whole_pixels(&r, src);
  sorn::Operand op(src, r);
  SornOtsuArgs args{thresholds, vranges, bins};
  return sorn::run({xe, flags, SORN_TAG_CTHH, &args, sorn::kKeepRows},
                   &SornTGAcomputeThresholdByOtsu, op);
}

// Histograms: the record with its life cycle, the counting entries, the
// type-generic layer, the dispatcher and its kernel lookups. The kernels are
// in __histogram.cpp.
#include <sorn.h>

#include <cstring>

#include "stats/stat_layers.h"

using namespace sorn::stats;
using sorn::channels_of;

namespace {

template <class F> void for_selected(uint32_t w, F f) {
  uint32_t mask = channel_mask(w);
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c)
    if (selected(mask, c)) f(c);
}

size_t counts_bytes(const SornHist *h) { return ((size_t)h->bins + 1) * sizeof(uint32_t); }

// The float results of the counts and the integer ones are kept in step: a
// float histogram rounds its sum into isum, an integer one widens isum.
void settle_sums(SornFlags flags, uint32_t w, uint32_t type, SornHist *hists) {
  uint32_t mask = channel_mask((w & ~0xf0u) | (uint32_t)(flags & 0xf0u));
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c) {
    if (!selected(mask, c)) continue;
    SornHist *h = &hists[c];
    if (type == SORN_F32)
      h->isum = (uint32_t)sorn::round_i32((double)h->fsum);
    else
      h->fsum = (float)(int32_t)h->isum;
  }
}

}  // namespace

/* ---------------- the record ---------------- */

uint32_t sorn_hist_inithdr(SornHist *hist, const SornHistInit *init) {
  int32_t bins = init->bins;
  hist->isum = 0;
  hist->fsum = 0.0f;
  hist->low = (float)init->low;
  hist->high = (float)init->high;
  hist->span = hist->high - hist->low;
  hist->width = bins == 1 ? 0.0f : hist->span / (float)(bins - 1);
  hist->ilow = sorn::round_i32(init->low);
  hist->ihigh = sorn::round_i32(init->high);
  int32_t r = (int32_t)((uint32_t)hist->ihigh - (uint32_t)hist->ilow);
  hist->irange = (int32_t)((uint32_t)r + 1u);
  int32_t d = (bins - 1 < hist->irange) ? bins - 1 : r;
  hist->iwidth = d ? r / d : 0;
  hist->total = (uint32_t)init->rows * (uint32_t)init->cols;
  hist->bins = (uint32_t)bins;
  hist->counts = nullptr;
  return (uint32_t)bins;
}

int32_t sorn_hist_inithdr_$n(uint32_t w, SornHist *hists, const SornHistInit *inits) {
  uint32_t mask = channel_mask(w);
  int32_t count = channels_of(w), done = 0;
  for (int32_t c = 0; c < count; ++c) {
    if (selected(mask, c)) {
      sorn_hist_inithdr(&hists[c], &inits[c]);
      ++done;
    } else {
      hists[c].total = 0;
      hists[c].bins = 0;
      hists[c].counts = nullptr;
      // The sums cleared for a channel left out are those of the first
      // record, not the channel's own: intended, callers rely on it.
      hists[0].isum = 0;
      hists[0].fsum = 0.0f;
    }
  }
  return done;
}

SornStatus __sorn_histogram__$ia(SornHist *hist, const SornHistInit *init) {
  sorn_hist_inithdr(hist, init);
  hist->counts = (uint32_t *)_KuMcalloc(counts_bytes(hist), 1, 0);
  return hist->counts ? SORN_OK : SORN_ENOMEM;
}

SornStatus __sorn_histogram__$n$ia(uint32_t w, SornHist *hists, const SornHistInit *inits) {
  uint32_t mask = channel_mask(w);
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c) {
    if (!selected(mask, c)) continue;
    if (__sorn_histogram__$ia(&hists[c], &inits[c]) != SORN_OK) {
      for (int32_t k = c; k >= 0; --k)
        if (selected(mask, k)) sorn_hist_fini(&hists[k]);
      return SORN_ENOMEM;
    }
  }
  return SORN_OK;
}

SornStatus __sorn_histogram__$xe(SornHist *hist, const SornHistInit *init, SornXE *xe) {
  sorn_hist_inithdr(hist, init);
  size_t bytes = counts_bytes(hist);
  hist->counts = (uint32_t *)SornXEalloca(xe, bytes, 0);
  if (!hist->counts) return SORN_ENOMEM;
  memset(hist->counts, 0, bytes);
  return SORN_OK;
}

SornStatus __sorn_histogram__$n$xe(uint32_t w, SornHist *hists, const SornHistInit *inits,
                                   SornXE *xe) {
  uint32_t mask = channel_mask(w);
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c) {
    if (!selected(mask, c)) continue;
    if (__sorn_histogram__$xe(&hists[c], &inits[c], xe) != SORN_OK) {
      // Downward, so that the scratch goes back in reverse order.
      for (int32_t k = c; k >= 0; --k)
        if (selected(mask, k)) sorn_hist_fini_$xe(&hists[k], xe);
      return SORN_ENOMEM;
    }
  }
  return SORN_OK;
}

SornHist *sorn_hist_reset(SornHist *hist) {
  hist->isum = 0;
  hist->fsum = 0.0f;
  if (hist->counts) memset(hist->counts, 0, counts_bytes(hist));
  return hist;
}

SornHist *sorn_hist_reset_$n(uint32_t w, SornHist *hists) {
  for_selected(w, [&](int32_t c) { sorn_hist_reset(&hists[c]); });
  return hists;
}

SornHist *sorn_hist_fini(SornHist *hist) {
  hist->isum = 0;
  hist->fsum = 0.0f;
  hist->total = 0;
  hist->bins = 0;
  KuMfree(hist->counts);
  hist->counts = nullptr;
  return hist;
}

SornHist *sorn_hist_fini_$n(uint32_t w, SornHist *hists) {
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c) sorn_hist_fini(&hists[c]);
  return hists;
}

SornHist *sorn_hist_fini_$xe(SornHist *hist, SornXE *xe) {
  hist->isum = 0;
  hist->fsum = 0.0f;
  hist->total = 0;
  hist->bins = 0;
  if (hist->counts) SornXEfreea(xe, hist->counts);
  hist->counts = nullptr;
  return hist;
}

SornHist *sorn_hist_fini_$n$xe(uint32_t w, SornHist *hists, SornXE *xe) {
  // Upward: freeing the first block gives back the later ones with it, and a
  // block that is no longer live is passed over by the stack.
  int32_t count = channels_of(w);
  for (int32_t c = 0; c < count; ++c) sorn_hist_fini_$xe(&hists[c], xe);
  return hists;
}

SornStatus sorn_hist__init(int32_t mode, SornHist *hist, const SornHistInit *init) {
  switch (mode) {
    case 0: sorn_hist_inithdr(hist, init); return SORN_OK;
    case 1: return __sorn_histogram__$ia(hist, init);
    case 2: sorn_hist_reset(hist); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

SornStatus sorn_hist__init_n(int32_t mode, uint32_t w, SornHist *hists, const SornHistInit *inits) {
  switch (mode) {
    case 0: sorn_hist_inithdr_$n(w, hists, inits); return SORN_OK;
    case 1: return __sorn_histogram__$n$ia(w, hists, inits);
    case 2: sorn_hist_reset_$n(w, hists); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

SornStatus sorn_hist__init_xe(int32_t mode, SornHist *hist, const SornHistInit *init, SornXE *xe) {
  switch (mode) {
    case 0: sorn_hist_inithdr(hist, init); return SORN_OK;
    case 1: return __sorn_histogram__$xe(hist, init, xe);
    case 2: sorn_hist_reset(hist); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

SornStatus sorn_hist__init_n_xe(int32_t mode, uint32_t w, SornHist *hists,
                                const SornHistInit *inits, SornXE *xe) {
  switch (mode) {
    case 0: sorn_hist_inithdr_$n(w, hists, inits); return SORN_OK;
    case 1: return __sorn_histogram__$n$xe(w, hists, inits, xe);
    case 2: sorn_hist_reset_$n(w, hists); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

/* ---------------- dispatch ---------------- */

namespace {

#define HIST_ROW(c, t) SORN_KERNEL_ROW(sorna__histogram_c##c##_##t, c, SORN_TYPECODE(t))
#define HIST_ROWS(t) SORN_STATS_CHANNELS(HIST_ROW, t)
#define HIST_XM_ROW(c, t) SORN_KERNEL_ROW(sorna__histogram_xm_c##c##_##t, c, SORN_TYPECODE(t))
#define HIST_XM_ROWS(t) SORN_STATS_CHANNELS(HIST_XM_ROW, t)
constexpr sorn::KernelRow<SornHistKernel> kHist[] = {SORN_HIST_TYPES(HIST_ROWS)};
constexpr sorn::KernelRow<SornHistXmKernel> kHistXm[] = {SORN_HIST_XM_TYPES(HIST_XM_ROWS)};

}  // namespace

SornHistKernel sorna__histofun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kHist, chword, type, sorn::refusal_for(type), status);
}

SornHistXmKernel sorna__histofunxm_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kHistXm, chword, type, sorn::refusal_for(type), status);
}

SORN_STATS_DISPATCHERS(histogram, SornHist, sorna__histofun_imp, sorna__histofunxm_imp, settle_sums)

/* ---------------- type-generic layer and slice forms ---------------- */

SORN_STATS_LAYER2(histogram, SornHist)

/* ---------------- entries ---------------- */

namespace {

SornStatus mode_rule(int32_t mode) {
  if (mode == 0) return SORN_OK;
  if (mode < 0 || mode > 3) return SORN_EINVAL;
  return SORN_ENOTIMP;
}

}  // namespace

SornStatus SornHistogram(SornXE *xe, SornFlags flags, const SornArray *src,
                         const SornVolume *srcRoi, int32_t mode, SornHist *hists) {
  return image_entry(xe, flags, SORN_TAG_HIST, &SornTGAhistogram, src, srcRoi, hists,
                     mode_rule(mode));
}

SornStatus SornHistogramEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                           const SornVolume *srcRoi, const SornVolume *maskSite, int32_t mode,
                           SornHist *hists) {
  if (mask == nullptr) return SornHistogram(xe, flags, src, srcRoi, mode, hists);
  return masked_entry(xe, flags, SORN_TAG_HSTX, &SornTGAhistogramEx, src, mask, srcRoi, maskSite,
                      hists, mode_rule(mode));
}

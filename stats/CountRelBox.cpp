// SornCountRelBox from entry to dispatcher: the filter family's entry and
// edge decision (the count reads a box around every pixel, as a filter
// reads its window), layer 2 with and without the edge decision, the value
// range settled before the kernel, and the kernel lookup. Kernels in
// __countrelbox.cpp.
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/entry.h"
#include "filter/filter_frame.h"
#include "stats/rel_box.h"

/* ---------------- lookup ---------------- */

namespace {

#define CRB_ROW(d, s) SORN_PAIR_ROW(sorna__countrelbox_c1_, d, s)
constexpr sorn::KernelRow<SornCountRelBoxKernel> kCountRelBox[] = {SORN_COUNTRELBOX_PAIRS(CRB_ROW)};

// What layer 3 refuses before it measures or copies anything: the lookup's
// refusals, an unknown operator, a box not normalised.
SornStatus kernel_for(SornFlags flags, uint32_t chword, uint32_t dstType, uint32_t srcType,
                      SornCmpOp op, const SornSeShape *box, SornCountRelBoxKernel *k) {
  SornStatus st = SORN_OK;
  *k = sorna__countrelboxfun_imp(flags, chword, dstType, srcType, &st);
  if (st != SORN_OK) return st;
  if (sorn::stats::rel_box_refused(op, box)) return SORN_EINVAL;
  return SORN_OK;
}

uint32_t channel_word(SornDimPack pack, const int32_t *sizes) {
  const sorn::Inner in = sorn::inner3(pack, sizes, nullptr);
  return in.n < 1 ? 0u : (uint32_t)in.dims[in.n - 1];
}

}  // namespace

SornCountRelBoxKernel sorna__countrelboxfun_imp(SornFlags, uint32_t chword, uint32_t dstType,
                                                uint32_t srcType, SornStatus *status) {
  if (!sorn::known_types(dstType, srcType))
    return sorn::refusal<SornCountRelBoxKernel>(SORN_EINVAL, status);
  const int32_t c = sorn::channels_of(chword);
  if (c < 1 || c > 4) return sorn::refusal<SornCountRelBoxKernel>(SORN_EINVAL, status);
  if (c > 1) return sorn::refusal<SornCountRelBoxKernel>(SORN_ENOTSUP, status);
  return sorn::lookup_pair(kCountRelBox, dstType, srcType, status);
}

/* ---------------- layer 3 ---------------- */

SornStatus sorna__countrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t dstType, void *dst, const int32_t *dstStrides,
                              uint32_t srcType, const void *src, const int32_t *srcStrides,
                              SornCmpOp op, const SornSeShape *box, const SornVrng *vrange,
                              int32_t shift, uint32_t reserved) {
  const sorn::Inner in = sorn::inner3(pack, sizes, dstStrides);
  const sorn::Inner sin = sorn::inner3(pack, sizes, srcStrides);
  if (in.n < 2) return SORN_EINVAL;
  const uint32_t chword = (uint32_t)in.dims[in.n - 1];
  flags = sorn::with_channel_format(flags, chword);
  SornCountRelBoxKernel k;
  SornStatus st = kernel_for(flags, chword, dstType, srcType, op, box, &k);
  if (st != SORN_OK) return st;

  // The range of each channel. A box large enough that a histogram over
  // the type's whole span would cost more than finding the image's own
  // span starts out to be measured; a smaller one starts at the type's
  // limits. A caller's range takes the place of either.
  const int32_t channels = sorn::channels_of(chword);
  const bool large =
      (box->size[2] >= 64 || box->size[1] >= 32) && (int64_t)box->size[1] * box->size[2] > 256;
  SornVrng ranges[4];
  bool measure = false;
  for (int32_t c = 0; c < channels; ++c) {
    SornVrng &r = ranges[c];
    r = large ? SornVrng{HUGE_VAL, 0.0} : SornVrng{std::nan(""), 0.0};
    if (vrange != nullptr) r = vrange[c];
    // The lookup admits bytes only: their limits are 0 and 255.
    if (std::isnan(r.lo))
      r = {(double)sorn::int_range<uint8_t>::lo, (double)sorn::int_range<uint8_t>::hi};
    else if (std::isinf(r.lo) || r.lo > r.hi)
      measure = true;
  }
  if (measure) {
    SornMinmaxRec rec;
    std::memset(&rec, 0, sizeof rec);
    rec.what = SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
    st = sorna__minmax(xe, flags, pack, sizes, srcType, src, srcStrides, &rec);
    if (st != SORN_OK) return st;
    for (int32_t c = 0; c < channels; ++c) {
      SornVrng &r = ranges[c];
      if (std::isinf(r.lo) || r.lo > r.hi)
        r = {(double)rec.min[c].fvalue, (double)rec.max[c].fvalue};
    }
  }
  return k(xe, flags, in.n, in.dims, dst, in.strides, src, sin.strides, op, box, ranges, shift,
           reserved);
}

SornStatus sorna__ecountrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                               uint32_t dstType, void *dst, const int32_t *dstStrides,
                               uint32_t srcType, const void *src, const int32_t *srcStrides,
                               SornCmpOp op, const SornSeShape *box, const SornVrng *vrange,
                               int32_t shift, uint32_t reserved, const SornBorderSpec *border,
                               const SornSites *sites) {
  // A refusal comes before any scratch is taken.
  SornCountRelBoxKernel k;
  const SornStatus st = kernel_for(flags, channel_word(pack, sizes), dstType, srcType, op, box, &k);
  if (st != SORN_OK) return st;
  // No kernel can do without the margin, so there is no probe; the copy in
  // scratch is whole.
  return sorn::filter::edge_decision(
      xe, flags, pack, sizes, srcType, dst, dstStrides, src, srcStrides, box, border, sites,
      sorn::filter::EdgeForm{false, true}, [&](SornFlags f, const void *s, const int32_t *ss) {
        return sorna__countrelbox(xe, f, pack, sizes, dstType, dst, dstStrides, srcType, s, ss, op,
                                  box, vrange, shift, reserved);
      });
}

/* ---------------- layer 2 ---------------- */

SornStatus sorna_countrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t dstType, void *dst, const int32_t *dstOrigin,
                             const int32_t *dstStrides, uint32_t srcType, const void *src,
                             const int32_t *srcOrigin, const int32_t *srcStrides, SornCmpOp op,
                             const SornSeShape *box, const SornVrng *vrange, int32_t shift,
                             uint32_t reserved) {
  return sorna__countrelbox(xe, flags, pack, sizes, dstType,
                            sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides, srcType,
                            sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, op, box,
                            vrange, shift, reserved);
}

SornStatus sorna_ecountrelbox(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t dstType, void *dst, const int32_t *dstOrigin,
                              const int32_t *dstStrides, uint32_t srcType, const void *src,
                              const int32_t *srcOrigin, const int32_t *srcStrides, SornCmpOp op,
                              const SornSeShape *box, const SornVrng *vrange, int32_t shift,
                              uint32_t reserved, const SornBorderSpec *border,
                              const SornSites *sites) {
  const SornSites at = sorn::sites_at_region(pack, sizes, srcOrigin, sites);
  return sorna__ecountrelbox(xe, flags, pack, sizes, dstType,
                             sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides, srcType,
                             sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, op, box,
                             vrange, shift, reserved, border, &at);
}

SornStatus SornTGAcountrelbox(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                              int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                              int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                              int32_t *srcStrides) {
  const SornCountRelBoxArgs *a = static_cast<const SornCountRelBoxArgs *>(args);
  return sorna_ecountrelbox(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, srcType,
                            src, srcOrigin, srcStrides, a->op, a->box, a->vrange, a->shift,
                            a->reserved, a->border, a->sites);
}

/* ---------------- entry ---------------- */

SornStatus SornCountRelBox(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                           const SornVolume *dstRoi, const SornVolume *srcSite, SornCmpOp op,
                           const SornSeShape *box, const SornVrng *vrange, int32_t shift,
                           uint32_t reserved) {
  return sorn::filter::filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, box,
      [&](SornDimPack, const SornSeShape *window, const SornBorderSpec *border,
          const SornSites *sites, auto run, const int32_t *) {
        SornCountRelBoxArgs args = {op, window, vrange, shift, reserved, border, sites};
        return run(SORN_TAG_FILT, &SornTGAcountrelbox, &args);
      });
}

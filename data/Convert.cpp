// Conversion between element types: the public entries and their slice
// forms, layer 2, the e and v dispatchers, the lookups of the t and v
// kernels and the switches by types that the other families call.
#include <sorn.h>

#include <cmath>
#include <cstring>

#include "core/entry.h"

namespace {

// Keys (full destination code << 4) | full source code: only exact pairs
// match. Like types are a copy of whole pixels, or a scaling.
#define TCVT_ROW(d, s) SORN_PAIR_ROW(__sorna__tconvert_, d, s)
#define TCVT_COPY_ROW(t) SORN_KERNEL_ROW(sorna__copy, SORN_TYPECODE(t), SORN_TYPECODE(t))
constexpr sorn::KernelRow<SornTcvtKernel> kTcvt[] = {SORN_TCVT_PAIRS(TCVT_ROW)
                                                         SORN_VSCALE_TYPES(TCVT_COPY_ROW)};

#define VCVT_ROW(d, s) SORN_PAIR_ROW(__sorna__vconvert_, d, s)
#define VSCALE_ROW(t) SORN_KERNEL_ROW(__sorna__vscale_##t, SORN_TYPECODE(t), SORN_TYPECODE(t))
constexpr sorn::KernelRow<SornVcvtKernel> kVcvt[] = {SORN_TCVT_PAIRS(VCVT_ROW)
                                                         SORN_VSCALE_TYPES(VSCALE_ROW)};

}  // namespace

SORN_PAIR_LOOKUP(sorna__tcvtfun_imp, SornTcvtKernel, kTcvt)
SORN_PAIR_LOOKUP(sorna__vcvtfun_imp, SornVcvtKernel, kVcvt)

SornStatus __sorna__swtconvert(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides) {
  SornStatus st = SORN_OK;
  const SornTcvtKernel k = sorna__tcvtfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  // The kernels read the count of cells from the packing word's low bits.
  return k(xe, flags, (SornDimPack)(uint32_t)n, dims, dsttype, dst, dststrides, src, srcstrides);
}

SornStatus __sorna__swvconvert(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides,
                               const SornVrng *dstRange, const SornVrng *srcRange) {
  SornStatus st = SORN_OK;
  const SornVcvtKernel k = sorna__vcvtfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  // A channel that has no span on either side has no slope: the whole
  // region takes the low ends of the destination's ranges.
  const int32_t nch = n >= 1 ? sorn::channels_of(dims[n - 1]) : 0;
  for (int32_t c = 0; c < nch; ++c) {
    const bool flat = std::fabs(srcRange[c].lo - srcRange[c].hi) <= 0x1p-23 ||
                      std::fabs(dstRange[c].lo - dstRange[c].hi) <= 0x1p-23;
    if (flat) {
      double low[8] = {0, 0, 0, 0, 0, 0, 0, 0};
      for (int32_t i = 0; i < nch && i < 8; ++i) low[i] = dstRange[i].lo;
      return sorna__fill(xe, flags, (SornDimPack)(uint32_t)(n << 8 | n), dims, dsttype, dst,
                         dststrides, low);
    }
  }
  return k(xe, flags, (SornDimPack)(uint32_t)n, dims, dsttype, dst, dststrides, src, srcstrides,
           dstRange, srcRange);
}

namespace {

// The range of every channel of the source: the caller's, completed from the
// image where it leaves ends open, or measured; then one range for all
// channels, the least low and the largest high.
SornStatus source_range(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t srctype, const void *src, const int32_t *srcstrides,
                        const SornVrng *given, int32_t chword, SornVrng *out) {
  const int32_t nch = sorn::channels_of(chword);
  SornStatus st;
  if (given != nullptr) {
    std::memcpy(out, given, sizeof(SornVrng) * (size_t)nch);
    st = sorna__adjust_vrange(xe, flags, pack, dims, srctype, src, srcstrides, out);
  } else {
    st = sorna__compute_vrange(xe, flags, pack, dims, srctype, src, srcstrides, out);
  }
  if (st != SORN_OK) return st;
  sorn_vrng_equalize_$I(out, chword);
  return SORN_OK;
}

// The end of both dispatchers, once the source's range (from) and the
// destination's (to) are known: ranges that agree are the plain
// conversion, one range for every channel the v map. Channels whose
// destination ranges differ cannot share the v kernels' one map: each
// channel gets its own gain and bias, and the constant form of
// multiply-accumulate applies them, dst = src * gain + bias, with its own
// rounding and saturation (not the v kernels' fixed point).
SornStatus map_ranges(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                      const void *src, const int32_t *srcstrides, const SornVrng *to,
                      const SornVrng *from) {
  const int32_t n = (int32_t)(pack & 15u);
  const int32_t chword = dims[n - 1];
  if (sorn_vrng_equal_$cn(to, from, chword))
    return __sorna__swtconvert(xe, flags, n, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides);
  if (sorn_vrng_equalized(to, chword))
    return __sorna__swvconvert(xe, flags, n, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides, to, from);
  double gains[4], biases[4];
  sorn_vrng_solve_$cn(gains, biases, to, from, chword);
  return sorna__mlaCC(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src, srcstrides,
                      gains, biases, 0, 0);
}

}  // namespace

SornStatus sorna__vconvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                           const void *src, const int32_t *srcstrides, SornVrng *dstRange,
                           const SornVrng *srcRange) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 1) return SORN_EINVAL;
  // A pair without kernels is refused before the source is measured.
  SornStatus st = SORN_OK;
  (void)sorna__tcvtfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const int32_t chword = dims[n - 1];
  if (sorn::channels_of(chword) > 4) return SORN_EINVAL;
  if (dstRange == nullptr && srcRange == nullptr)
    return __sorna__swtconvert(xe, flags, n, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides);
  SornVrng from[8];
  st = source_range(xe, flags, pack, dims, srctype, src, srcstrides, srcRange, chword, from);
  if (st != SORN_OK) return st;
  if (dstRange != nullptr) {
    sorn_vrng_normalize_$cn$IQ((SornElemType)dsttype, dstRange, from, chword);
    sorn_vrng_equalize_$I(dstRange, chword);
  }
  if (dstRange == nullptr)
    return __sorna__swtconvert(xe, flags, n, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides);
  return map_ranges(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src, srcstrides,
                    dstRange, from);
}

SornStatus sorna__econvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                           const void *src, const int32_t *srcstrides, const double *scale,
                           const double *offset, const SornVrng *srcRange) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 1) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  (void)sorna__tcvtfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const int32_t chword = dims[n - 1], nch = sorn::channels_of(chword);
  if (nch > 4) return SORN_EINVAL;
  // Bit 0: a scale to apply, bit 1: an offset. Neither is the plain
  // conversion, without measuring; no pointer at all still measures, so
  // that the image moves to start at 0.
  const uint32_t which = sorn_scfochk(scale, offset, nch);
  if (which == 0)
    return __sorna__swtconvert(xe, flags, n, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides);
  double gains[4], bases[4];
  const double *g = nullptr, *b = nullptr;
  if ((which & 1u) && scale != nullptr) {
    for (int32_t c = 0; c < nch; ++c) gains[c] = std::isnan(scale[c]) ? 1.0 : scale[c];
    g = gains;
  }
  if ((which & 2u) && offset != nullptr) {
    for (int32_t c = 0; c < nch; ++c) bases[c] = std::isfinite(offset[c]) ? offset[c] : 0.0;
    b = bases;
  }
  SornVrng from[8], to[8];
  st = source_range(xe, flags, pack, dims, srctype, src, srcstrides, srcRange, chword, from);
  if (st != SORN_OK) return st;
  st = sorn_vrng_scale_$cn$Q((SornElemType)dsttype, to, from, g, b, chword);
  if (st != SORN_OK) return st;
  return map_ranges(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src, srcstrides, to,
                    from);
}

/* ---------------- layer 2 ---------------- */

SornStatus sorna_econvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, uint32_t srctype, const void *src,
                          const int32_t *srcOrigin, const int32_t *srcStrides, const double *scale,
                          const double *offset, const SornVrng *srcRange) {
  return sorna__econvert(xe, flags, pack, dims, dsttype,
                         sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides, srctype,
                         sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, scale,
                         offset, srcRange);
}

SornStatus sorna_vconvert(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, uint32_t srctype, const void *src,
                          const int32_t *srcOrigin, const int32_t *srcStrides, SornVrng *dstRange,
                          const SornVrng *srcRange) {
  return sorna__vconvert(
      xe, flags, pack, dims, dsttype, sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
      srctype, sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, dstRange, srcRange);
}

SornStatus sorna_escale(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const double *scale, const double *offset,
                        const SornVrng *srcRange) {
  return sorna_econvert(xe, flags, pack, dims, type, dst, dstOrigin, dstStrides, type, src,
                        srcOrigin, srcStrides, scale, offset, srcRange);
}

SornStatus sorna_vscale(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, SornVrng *dstRange, const SornVrng *srcRange) {
  return sorna_vconvert(xe, flags, pack, dims, type, dst, dstOrigin, dstStrides, type, src,
                        srcOrigin, srcStrides, dstRange, srcRange);
}

/* ---------------- slice forms ---------------- */

SornStatus SornTGAconvert(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                          uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                          uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  const SornConvertArgs *a = static_cast<const SornConvertArgs *>(data);
  return sorna_econvert(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                        origin1, strides1, a->scale, a->offset, a->srcRange);
}

SornStatus SornTGAvconvert(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                           uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                           uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  const SornVConvertArgs *a = static_cast<const SornVConvertArgs *>(data);
  return sorna_vconvert(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                        origin1, strides1, a->dstRange, a->srcRange);
}

/* ---------------- entries ---------------- */

namespace {

// dst and src of a conversion: both images of one rank, as many planes and
// channels; the element types are the lookups' to judge. A conversion is a
// copy that changes the type: it moves whole pixels, as the copy does, from
// the pixel's start also where the region's channels begin inside it, since
// its kernels walk a row as its pixels' elements side by side.
SornStatus prepare_convert(const SornArray *dst, const SornArray *src, const SornVolume *dstRoi,
                           const SornVolume *srcSite, sorn::Operand *d, sorn::Operand *s) {
  if (dst == nullptr || src == nullptr || !sorn::good_image(dst)) return SORN_EINVAL;
  if (src->ndims != dst->ndims || src->dims[0] != dst->dims[0]) return SORN_EINVAL;
  return sorn::prepare_pair(dst, src, sorn::Channels::Same, dstRoi, srcSite, d, s, true);
}

}  // namespace

SornStatus SornConvert(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, const double *scale,
                       const double *offset, const SornVrng *srcRange) {
  sorn::Operand d, s;
  const SornStatus st = prepare_convert(dst, src, dstRoi, srcSite, &d, &s);
  if (st != SORN_OK) return st;
  SornConvertArgs args{scale, offset, srcRange};
  return sorn::run(sorn::Call{xe, flags, SORN_TAG_ECVT, &args, sorn::kKeepRow}, &SornTGAconvert, d,
                   s);
}

SornStatus SornVConvert(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstRoi, const SornVolume *srcSite, SornVrng *dstRange,
                        const SornVrng *srcRange) {
  sorn::Operand d, s;
  const SornStatus st = prepare_convert(dst, src, dstRoi, srcSite, &d, &s);
  if (st != SORN_OK) return st;
  SornVConvertArgs args{dstRange, srcRange};
  return sorn::run(sorn::Call{xe, flags, SORN_TAG_VCVT, &args, sorn::kKeepRow}, &SornTGAvconvert, d,
                   s);
}

// The minimum and maximum of each channel with their first places: the
// entries, the type-generic layer, the dispatchers and their kernel
// lookups; and the value ranges that the conversions take from an image.
// Kernels in __minmax.cpp.
#include <sorn.h>

#include <cmath>

#include "stats/stat_layers.h"

using namespace sorn::stats;

/* ---------------- dispatch ---------------- */

namespace {

#define MINMAX_ROW(c, t) SORN_KERNEL_ROW(sorna__minmax_c##c##_##t, c, SORN_TYPECODE(t))
#define MINMAX_ROWS(t) SORN_STATS_CHANNELS(MINMAX_ROW, t)
#define MINMAX_XM_ROW(c, t) SORN_KERNEL_ROW(sorna__minmax_xm_c##c##_##t, c, SORN_TYPECODE(t))
#define MINMAX_XM_ROWS(t) SORN_STATS_CHANNELS(MINMAX_XM_ROW, t)
constexpr sorn::KernelRow<SornMinmaxKernel> kMinmax[] = {SORN_MINMAX_TYPES(MINMAX_ROWS)};
constexpr sorn::KernelRow<SornMinmaxXmKernel> kMinmaxXm[] = {SORN_MINMAX_TYPES(MINMAX_XM_ROWS)};

// The channels the flags select: bits 4-7, or all of the channels word.
uint32_t selected_channels(SornFlags flags, uint32_t w) {
  return channel_mask((w & ~0xf0u) | (uint32_t)(flags & 0xf0u));
}

// The value cell the kernel leaves: the f32 value rounded to nearest, or
// the integer converted to float, for each selected channel and each
// extreme whose column is asked for.
void settle_values(SornFlags flags, uint32_t w, uint32_t type, SornMinmaxRec *res) {
  const uint32_t mask = selected_channels(flags, w);
  for (int32_t c = 0; c < sorn::channels_of(w) && c < 4; ++c) {
    if (!selected(mask, c)) continue;
    SornMinmaxEntry *e[2] = {&res->min[c], &res->max[c]};
    const uint32_t bit[2] = {SORN_MINMAX_MINCOL, SORN_MINMAX_MAXCOL};
    for (int s = 0; s < 2; ++s) {
      if (!(res->what & bit[s])) continue;
      if (type == SORN_F32)
        e[s]->ivalue = sorn::round_i32(e[s]->fvalue);
      else
        e[s]->fvalue = (float)e[s]->ivalue;
    }
  }
}

}  // namespace

SornMinmaxKernel sorna__minmaxfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kMinmax, chword, type, sorn::refusal_for(type), status);
}

SornMinmaxXmKernel sorna__minmaxfunxm_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return sorn::lookup_channels(kMinmaxXm, chword, type, sorn::refusal_for(type), status);
}

SornStatus sorna__minmax(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, const void *src, const int32_t *strides,
                         SornMinmaxRec *res) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides);
  const uint32_t w = (uint32_t)s.dims[s.n - 1];
  flags = sorn::with_channel_format(flags, w);
  SornStatus st = SORN_OK;
  SornMinmaxKernel k = sorna__minmaxfun_imp(w & 15u, type, &st);
  if (st != SORN_OK) return st;
  st = k(xe, flags, s.n, s.dims, src, s.strides, res);
  if (st == SORN_OK) settle_values(flags, w, type, res);
  return st;
}

SornStatus sorna__minmax_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t type, const void *src, const int32_t *strides,
                            const void *mask, const int32_t *mstrides, SornMinmaxRec *res) {
  if (mask == nullptr) return sorna__minmax(xe, flags, pack, dims, type, src, strides, res);
  const sorn::Inner s = sorn::inner3(pack, dims, strides, mstrides);
  const uint32_t w = (uint32_t)s.dims[s.n - 1];
  flags = sorn::with_channel_format(flags, w);
  SornStatus st = SORN_OK;
  SornMinmaxXmKernel k = sorna__minmaxfunxm_imp(w & 15u, type, &st);
  if (st != SORN_OK) return st;
  st = k(xe, flags, s.n, s.dims, src, s.strides, (const uint8_t *)mask, s.mstrides, res);
  if (st == SORN_OK) settle_values(flags, w, type, res);
  return st;
}

/* ---------------- value ranges of an image ---------------- */

namespace {

// Measures the channels of `mask` (a channel mask, as flag bits 4-7 take
// it) and gives them the float extremes as their ranges.
template <class Measure>
SornStatus measure(SornFlags flags, uint32_t w, uint32_t mask, SornVrng *vranges, Measure &&run) {
  SornMinmaxRec rec;
  rec.what = SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
  const SornStatus st = run((flags & ~(SornFlags)0xf0u) | ((SornFlags)mask << 4), &rec);
  if (st != SORN_OK) return st;
  for (int32_t c = 0; c < sorn::channels_of(w) && c < 4; ++c)
    if (selected(mask, c))
      vranges[c] = SornVrng{(double)rec.min[c].fvalue, (double)rec.max[c].fvalue};
  return SORN_OK;
}

// The measured range of every selected channel.
template <class Measure>
SornStatus compute(SornFlags flags, uint32_t w, SornVrng *vranges, Measure &&run) {
  return measure(flags, w, selected_channels(flags, w), vranges, run);
}

// A caller's range completed: the default span for a NaN lo, the type's
// limits for a range that stands, and a measurement for the others.
template <class Measure>
SornStatus adjust(SornFlags flags, uint32_t w, uint32_t type, SornVrng *vranges, Measure &&run) {
  const uint32_t mask = selected_channels(flags, w);
  const double top = (type == SORN_U8 || type == SORN_S16 || type == SORN_S32) ? 255.0 : 1.0;
  uint32_t marked = 0;
  for (int32_t c = 0; c < sorn::channels_of(w) && c < 4; ++c) {
    if (!selected(mask, c)) continue;
    SornVrng &r = vranges[c];
    if (std::isnan(r.lo))
      r = SornVrng{0.0, top};
    else if (std::isfinite(r.lo) && !(r.lo > r.hi))
      sorn_vrng_saturate(type, &r, nullptr);
    else
      marked |= 1u << c;
  }
  if (marked == 0) return SORN_OK;
  return measure(flags, w, marked, vranges, run);
}

uint32_t channels_word(SornDimPack pack, const int32_t *dims) {
  const sorn::Inner s = sorn::inner3(pack, dims, nullptr);
  return (uint32_t)s.dims[s.n - 1];
}

}  // namespace

SornStatus sorna__compute_vrange(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                                 uint32_t type, const void *src, const int32_t *strides,
                                 SornVrng *vranges) {
  return compute(flags, channels_word(pack, dims), vranges, [&](SornFlags f, SornMinmaxRec *rec) {
    return sorna__minmax(xe, f, pack, dims, type, src, strides, rec);
  });
}

SornStatus sorna__compute_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                    const int32_t *dims, uint32_t type, const void *src,
                                    const int32_t *strides, const void *mask,
                                    const int32_t *mstrides, SornVrng *vranges) {
  return compute(flags, channels_word(pack, dims), vranges, [&](SornFlags f, SornMinmaxRec *rec) {
    return sorna__minmax_xm(xe, f, pack, dims, type, src, strides, mask, mstrides, rec);
  });
}

SornStatus sorna__adjust_vrange(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                                uint32_t type, const void *src, const int32_t *strides,
                                SornVrng *vranges) {
  return adjust(flags, channels_word(pack, dims), type, vranges,
                [&](SornFlags f, SornMinmaxRec *rec) {
                  return sorna__minmax(xe, f, pack, dims, type, src, strides, rec);
                });
}

SornStatus sorna__adjust_vrange_xm(SornXE *xe, SornFlags flags, SornDimPack pack,
                                   const int32_t *dims, uint32_t type, const void *src,
                                   const int32_t *strides, const void *mask,
                                   const int32_t *mstrides, SornVrng *vranges) {
  return adjust(
      flags, channels_word(pack, dims), type, vranges, [&](SornFlags f, SornMinmaxRec *rec) {
        return sorna__minmax_xm(xe, f, pack, dims, type, src, strides, mask, mstrides, rec);
      });
}

/* ---------------- type-generic layer and slice forms ---------------- */

SORN_STATS_LAYER2(minmax, SornMinmaxRec)

// The value-range layer: bases moved to their origins, a mask base absent
// when null.
#define SORN_VRANGE_LAYER2(op)                                                                     \
  SornStatus sorna_##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,        \
                        uint32_t type, const void *base, const int32_t *origin,                    \
                        const int32_t *strides, SornVrng *vranges) {                               \
    return sorna__##op(xe, flags, pack, dims, type, sorn::at_origin(base, pack, origin, strides),  \
                       strides, vranges);                                                          \
  }                                                                                                \
  SornStatus sorna_##op##_xm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                             uint32_t type, const void *base, const int32_t *origin,               \
                             const int32_t *strides, uint32_t, const void *mbase,                  \
                             const int32_t *morigin, const int32_t *mstrides, SornVrng *vranges) { \
    const void *mask = mbase ? sorn::at_origin(mbase, pack, morigin, mstrides) : nullptr;          \
    return sorna__##op##_xm(xe, flags, pack, dims, type,                                           \
                            sorn::at_origin(base, pack, origin, strides), strides, mask, mstrides, \
                            vranges);                                                              \
  }
SORN_VRANGE_LAYER2(compute_vrange)
SORN_VRANGE_LAYER2(adjust_vrange)

/* ---------------- entries ---------------- */

namespace {

// A request without any of the three bits asks for both values.
void settle_request(void *out) {
  SornMinmaxRec *res = static_cast<SornMinmaxRec *>(out);
  if ((res->what & 7u) == 0) res->what = SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
}

// Rows are part of the answer: planes stack as rows, rows never merge.
constexpr EntryWay kMinmaxWay{&settle_request, sorn::kKeepRows};

}  // namespace

SornStatus SornMinmax(SornXE *xe, SornFlags flags, const SornArray *src, const SornVolume *roi,
                      SornMinmaxRec *res) {
  return image_entry(xe, flags, SORN_TAG_MIMA, &SornTGAminmax, src, roi, res, SORN_OK, kMinmaxWay);
}

SornStatus SornMinmaxEx(SornXE *xe, SornFlags flags, const SornArray *src, const SornArray *mask,
                        const SornVolume *roi, const SornVolume *maskSite, SornMinmaxRec *res) {
  if (mask == nullptr) return SornMinmax(xe, flags, src, roi, res);
  return masked_entry(xe, flags, SORN_TAG_MIMX, &SornTGAminmaxEx, src, mask, roi, maskSite, res,
                      SORN_OK, kMinmaxWay);
}

// The firefly filter: three views of an image mixed with integer weights.
// It has no kernels of its own. Kind 5 blurs at three scales; kinds 3 and 4
// put a global gain image and a local rank image beside the source, kind 3
// as a linear mix in 16 bits, kind 4 as differences of logarithms stretched
// back to the full byte range. Each step is another family's dispatcher
// (Gaussian filter, histogram, relative box count, multiplication and
// multiply-accumulate by constants, conversion, logarithm, subtraction), so
// every product rounds and saturates by its family's rules: on an integer
// image a fractional mixing constant becomes an integer one, as the
// constant forms of the arithmetic decide.
//
// The frame is the filter's: one bordered copy, made for the last (the
// largest) window, serves every pass. A script that fails part way returns
// at once and leaves its scratch block taken; the caller's frame, or the
// stack of the environment, gives it back.
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/entry.h"
#include "filter/filter_frame.h"

namespace {

// The scripts of kinds 3, 4 and 5 read three windows and three weights.
constexpr int32_t kViews = 3;
// Room for one constant (or range) per channel of any channels word: the
// constant forms read as many as the word's value.
constexpr int32_t kChannelRoom = 16;

// The windows and weights that layer 3 hands its routes.
struct Views {
  const SornSeShape *shapes;
  const int32_t *weights;
  int32_t count;
};

const void *round_up8(const void *p) {
  return reinterpret_cast<const void *>((reinterpret_cast<uintptr_t>(p) + 7u) & ~(uintptr_t)7u);
}
void *round_up8(void *p) { return const_cast<void *>(round_up8(static_cast<const void *>(p))); }

// One scratch image of the region: rows tight, the element cell's stride
// `widen` times the source's, and the bytes of the block with its slack.
// Like every scratch block of the filters it stays within the 32-bit
// range; a larger one cannot be had.
struct Scratch {
  int32_t strides[4];
  size_t bytes;
};
bool scratch_of(int32_t n, const int32_t *sizes, const int32_t *srcStrides, int32_t widen,
                Scratch *s) {
  std::memset(s->strides, 0, sizeof s->strides);
  const int64_t cell = (int64_t)srcStrides[n - 1] * widen;
  if (cell < 1 || cell > INT32_MAX) return false;
  s->strides[n - 1] = (int32_t)cell;
  s->bytes = sorn_vmemsize(n, sizes, s->strides, 2);
  return s->bytes > 0 && s->bytes <= (size_t)INT32_MAX;
}

// One constant per channel, for every channel the word can name.
struct PerChannel {
  double c[kChannelRoom];
  explicit PerChannel(double v) {
    for (double &x : c) x = v;
  }
};

/* ---------------- kinds 3 and 4 ---------------- */

// The histogram of a type: its limits, and a bin per value where the
// values number at most 65536, else 0x7fffffff bins.
SornHistInit histogram_init(uint32_t type, int32_t rows, int32_t cols) {
  SornVrng full = {-HUGE_VAL, HUGE_VAL};
  sorn_vrng_normalize_$I(type, &full, nullptr);
  const double values = full.hi - full.lo + 1.0;
  SornHistInit init;
  init.elemtype = type;
  init.bins = values <= 65536.0 ? (int32_t)values : 0x7fffffff;
  init.low = full.lo;
  init.high = full.hi;
  init.planes = 1;
  init.rows = rows;
  init.cols = cols;
  return init;
}

// The gain of one channel and the range of its values: first is the
// lowest value present, q the value at which the running count from first
// exceeds the target (first itself for a target of 0), last the highest
// value present. The gain is ihigh / q, q of 0 counting as 1.
void gain_and_range(const SornHist &h, int64_t target, double *gain, SornVrng *range) {
  const int64_t bins = (int64_t)h.bins;
  int64_t first = 0, last = bins - 1;
  if (h.counts != nullptr) {
    while (first < bins - 1 && h.counts[first] == 0) ++first;
    while (last > 0 && h.counts[last] == 0) --last;
  }
  int64_t q = first;
  if (h.counts != nullptr) {
    int64_t sum = h.counts[q];
    while (sum <= target && q < bins - 1) sum += h.counts[++q];
  }
  const int64_t qv = h.ilow + q;
  *gain = (double)h.ihigh / (double)(qv == 0 ? 1 : qv);
  range->lo = (double)(h.ilow + first);
  range->hi = (double)(h.ilow + last);
}

// The target count: the quantile that rides in the depth cells of the
// second window, anchor over size, of the region's pixels, truncated.
int64_t target_count(const SornSeShape &quantile, int32_t n, const int32_t *sizes) {
  const double pixels = (double)sizes[n - 2] * (n >= 3 ? (double)sizes[n - 3] : 1.0);
  const double t = (double)quantile.anchor[0] / (double)quantile.size[0] * pixels;
  if (!(t == t)) return 0;
  if (t >= 9.2e18) return INT64_MAX;
  if (t <= -9.2e18) return INT64_MIN;
  return (int64_t)t;
}

// Bits of an element by its size class.
int32_t element_bits(uint32_t type) {
  switch (type & 7u) {
    case 2: return 16;
    case 3:
    case 5: return 32;
    case 4:
    case 6: return 64;
    default: return 8;
  }
}

// The first half of kinds 3 and 4, then `second(block, each, strides, gain)`
// on `blocks` scratch images of `widen` times the element width (`each`
// bytes apart, each with `strides`), with dst holding the rank image: each
// pixel's count of box pixels at most its value, scaled so that a full
// window of the rank window's 2^k by 2^k reaches the type's full scale.
template <class Second>
SornStatus rank_script(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                       uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                       const int32_t *srcStrides, const SornSeShape *shapes, int32_t widen,
                       int32_t blocks, Second second) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4 || shapes == nullptr) return SORN_EINVAL;
  const uint32_t chword = (uint32_t)sizes[n - 1];
  flags = sorn::with_channel_format(flags, chword);
  // The rank window: square, with a side that is a power of two up to the
  // tolerance of the library's float comparisons.
  const int32_t side = shapes[2].size[1];
  if (side < 1 || shapes[2].size[2] != side) return SORN_ENOTSUP;
  const double lg = std::log2((double)side);
  const int32_t k = (int32_t)lg;
  if (std::fabs(lg - (double)k) > 1.1920928955078125e-7) return SORN_ENOTSUP;

  Scratch s;
  if (!scratch_of(n, sizes, srcStrides, widen, &s)) return SORN_ENOMEM;
  const size_t each = (s.bytes + 7u) & ~(size_t)7u;
  void *block = SornXEalloca(xe, each * (size_t)blocks, 8);
  if (block == nullptr) return SORN_ENOMEM;

  SornHist hists[8];
  SornHistInit inits[8];
  const int32_t channels = sorn::channels_of(chword);
  const SornHistInit init = histogram_init(type, n >= 3 ? sizes[n - 3] : 1, sizes[n - 2]);
  for (int32_t c = 0; c < channels; ++c) inits[c] = init;
  // The counters of a type beyond 16 bits (2^31 of them) are more scratch
  // than any block of the filters may be: the script ends there.
  if (((uint64_t)(uint32_t)init.bins + 1u) * 4u > (uint64_t)INT32_MAX) return SORN_ENOMEM;
  std::memset(hists, 0, sizeof hists);
  SornStatus st = __sorn_histogram__$n$xe(chword, hists, inits, xe);
  if (st != SORN_OK) return st;
  st = sorna__histogram(xe, flags, pack, sizes, type, src, srcStrides, hists);
  if (st != SORN_OK) {
    sorn_hist_fini_$n$xe(chword, hists, xe);
    return st;
  }
  const int64_t target = target_count(shapes[1], n, sizes);
  PerChannel gain(1.0);
  SornVrng ranges[kChannelRoom];
  for (SornVrng &r : ranges) r = SornVrng{0.0, 0.0};
  for (int32_t c = 0; c < channels; ++c) gain_and_range(hists[c], target, &gain.c[c], &ranges[c]);
  sorn_hist_fini_$n$xe(chword, hists, xe);

  st = sorna__countrelbox(xe, flags, pack, sizes, type, dst, dstStrides, type, src, srcStrides,
                          SORN_CMP_LE, &shapes[2], ranges, element_bits(type) - 2 * k, 0);
  if (st != SORN_OK) return st;
  st = second(flags, block, each, (const int32_t *)s.strides, gain.c);
  if (st != SORN_OK) return st;
  SornXEfreea(xe, block);
  return SORN_OK;
}

}  // namespace

/* ---------------- the three scripts ---------------- */

// dst = (w0 * src + w1 * gain * src + w2 * rank) / (w0 + w1 + w2), the
// intermediate in 16 bits. The block holds T (s16, twice the element
// width); G, the gain image in the element type, lies in its upper half
// with every stride halved, so that the widening product T = G * w1 runs
// over it in place, row by row, without overtaking what it reads.
SornStatus sorna__firefly_crb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                              uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                              const int32_t *srcStrides, const SornSeShape *shapes,
                              const int32_t *weights) {
  if (weights == nullptr) return SORN_EINVAL;
  const int32_t n = (int32_t)(pack & 15u);
  return rank_script(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, shapes, 2, 1,
      [&](SornFlags f, void *block, size_t bytes, const int32_t *ts, const double *gain) {
        int32_t gs[4] = {0, 0, 0, 0};
        for (int32_t i = 0; i < n; ++i) gs[i] = ts[i] / 2;
        void *g = round_up8(static_cast<char *>(block) + bytes / 2);
        SornStatus st =
            sorna__mulC(xe, f, pack, sizes, type, g, gs, type, src, srcStrides, gain, 0, 0);
        if (st != SORN_OK) return st;
        st = sorna__mulC(xe, f, pack, sizes, SORN_S16, block, ts, type, g, gs,
                         PerChannel(weights[1]).c, 0, 0);
        if (st != SORN_OK) return st;
        st = sorna__mlaC(xe, f, pack, sizes, SORN_S16, block, ts, SORN_S16, block, ts, type, dst,
                         dstStrides, PerChannel(weights[2]).c, 0, 0);
        if (st != SORN_OK) return st;
        st = sorna__mlaC(xe, f, pack, sizes, SORN_S16, block, ts, SORN_S16, block, ts, type, src,
                         srcStrides, PerChannel(weights[0]).c, 0, 0);
        if (st != SORN_OK) return st;
        const int32_t sum =
            (int32_t)((uint32_t)weights[0] + (uint32_t)weights[1] + (uint32_t)weights[2]);
        return sorna__mulC(xe, f, pack, sizes, type, dst, dstStrides, SORN_S16, block, ts,
                           PerChannel(1.0 / (double)sum).c, 0, 0);
      });
}

// dst = stretch(w2 * (ln(1 + src) - ln(1 + rank)) + w1 * (ln(1 + src) -
// ln(1 + gain * src))) onto 0..255, through three f32 images A, B, C.
// Converting with an offset of 1 over the range 0..255 maps each value v to
// v + 1, so no logarithm sees 0 in a byte image; gain * src saturates in
// the element type before its logarithm is taken. weights[0] plays no part.
SornStatus sorna__firefly_crbln(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                                uint32_t type, void *dst, const int32_t *dstStrides,
                                const void *src, const int32_t *srcStrides,
                                const SornSeShape *shapes, const int32_t *weights) {
  if (weights == nullptr) return SORN_EINVAL;
  return rank_script(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, shapes, 4, 3,
      [&](SornFlags f, void *block, size_t each, const int32_t *fs, const double *gain) {
        char *a = static_cast<char *>(block);
        char *b = a + each;
        char *c = b + each;
        const PerChannel offset(1.0);
        SornVrng bytes[kChannelRoom];
        for (SornVrng &r : bytes) r = SornVrng{0.0, 255.0};
        const auto plus_one = [&](void *to, const void *from, const int32_t *fromStrides) {
          return sorna__econvert(xe, f, pack, sizes, SORN_F32, to, fs, type, from, fromStrides,
                                 nullptr, offset.c, bytes);
        };
        const auto ln = [&](void *p) {
          return sorna__ln(xe, f, pack, sizes, SORN_F32, p, fs, SORN_F32, p, fs, 0, 0);
        };
        SornStatus st = plus_one(a, src, srcStrides);
        if (st == SORN_OK) st = plus_one(b, dst, dstStrides);
        if (st == SORN_OK)
          st = sorna__mulC(xe, f, pack, sizes, type, dst, dstStrides, type, src, srcStrides, gain,
                           0, 0);
        if (st == SORN_OK) st = ln(a);
        if (st == SORN_OK) st = ln(b);
        if (st == SORN_OK)
          st = sorna__sub(xe, f, pack, sizes, SORN_F32, c, fs, SORN_F32, a, fs, SORN_F32, b, fs, 0,
                          0);
        if (st == SORN_OK) st = plus_one(b, dst, dstStrides);
        if (st == SORN_OK) st = ln(b);
        if (st == SORN_OK)
          st = sorna__sub(xe, f, pack, sizes, SORN_F32, a, fs, SORN_F32, a, fs, SORN_F32, b, fs, 0,
                          0);
        if (st == SORN_OK)
          st = sorna__mulC(xe, f, pack, sizes, SORN_F32, c, fs, SORN_F32, c, fs,
                           PerChannel(weights[2]).c, 0, 0);
        if (st == SORN_OK)
          st = sorna__mlaC(xe, f, pack, sizes, SORN_F32, c, fs, SORN_F32, c, fs, SORN_F32, a, fs,
                           PerChannel(weights[1]).c, 0, 0);
        if (st != SORN_OK) return st;
        // The conversion completes the destination range in place: a copy.
        SornVrng to[kChannelRoom];
        for (SornVrng &r : to) r = SornVrng{0.0, 255.0};
        return sorna__vconvert(xe, f, pack, sizes, type, dst, dstStrides, SORN_F32, c, fs, to,
                               nullptr);
      });
}

// dst = (w0 * blur0 + w1 * blur1 + w2 * blur2) / (w0 + ... + w[count-1]),
// each blur a Gaussian of its window with the sigma that follows from the
// window, all in the element type: dst takes the first blur and then the
// mix, two scratch images the others.
SornStatus sorna__firefly_gauss(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                                uint32_t type, void *dst, const int32_t *dstStrides,
                                const void *src, const int32_t *srcStrides,
                                const SornSeShape *shapes, const int32_t *weights, int32_t count) {
  const int32_t n = (int32_t)(pack & 15u);
  if (n < 2 || n > 4 || shapes == nullptr || weights == nullptr || count < kViews)
    return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)sizes[n - 1]);
  if (shapes[0].size[1] != shapes[0].size[2]) return SORN_ENOTSUP;
  Scratch s;
  if (!scratch_of(n, sizes, srcStrides, 1, &s)) return SORN_ENOMEM;
  void *block = SornXEalloca(xe, 2 * s.bytes, 8);
  if (block == nullptr) return SORN_ENOMEM;
  // A blur of three or four channels walks the first elements of each row
  // alone, as the separable filters do; the rest of its image is not
  // written. The mix reads those elements as 0, never as what the stack
  // held before.
  if (sorn::channels_of(sizes[n - 1]) > 1) std::memset(block, 0, 2 * s.bytes);
  void *t1 = block;
  void *t2 = round_up8(static_cast<char *>(block) + s.bytes);
  double sum = 0.0;
  for (int32_t i = 0; i < count; ++i) sum += (double)weights[i];

  void *const views[kViews] = {dst, t1, t2};
  const int32_t *const strides[kViews] = {dstStrides, s.strides, s.strides};
  for (int32_t i = 0; i < kViews; ++i) {
    const SornStatus st = sorna__filter_gaussian(xe, flags, pack, sizes, type, views[i], strides[i],
                                                 src, srcStrides, &shapes[i], nullptr);
    if (st != SORN_OK) return st;
  }
  SornStatus st = sorna__mulC(xe, flags, pack, sizes, type, dst, dstStrides, type, dst, dstStrides,
                              PerChannel((double)weights[0] / sum).c, 0, 0);
  for (int32_t i = 1; i < kViews && st == SORN_OK; ++i)
    st = sorna__mlaC(xe, flags, pack, sizes, type, dst, dstStrides, type, dst, dstStrides, type,
                     views[i], strides[i], PerChannel((double)weights[i] / sum).c, 0, 0);
  if (st != SORN_OK) return st;
  SornXEfreea(xe, block);
  return SORN_OK;
}

/* ---------------- layer 3 ---------------- */

namespace {

// The routes of the kinds with a script; each expects three windows.
#define SORN_FIREFLY_ROUTE(name, call)                                                          \
  SornStatus name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,          \
                  uint32_t type, void *dst, const int32_t *dstStrides, const void *src,         \
                  const int32_t *srcStrides, const Views *v) {                                  \
    if (v->shapes == nullptr || v->weights == nullptr || v->count < kViews) return SORN_EINVAL; \
    return call;                                                                                \
  }
SORN_FIREFLY_ROUTE(route_crb, sorna__firefly_crb(xe, flags, pack, sizes, type, dst, dstStrides, src,
                                                 srcStrides, v->shapes, v->weights))
SORN_FIREFLY_ROUTE(route_crbln, sorna__firefly_crbln(xe, flags, pack, sizes, type, dst, dstStrides,
                                                     src, srcStrides, v->shapes, v->weights))
SORN_FIREFLY_ROUTE(route_gauss,
                   sorna__firefly_gauss(xe, flags, pack, sizes, type, dst, dstStrides, src,
                                        srcStrides, v->shapes, v->weights, v->count))
#undef SORN_FIREFLY_ROUTE

// Whether the box a window reads around a pixel lies inside the box of
// `outer`, along the spatial cells of n cells.
bool reads_within(const SornSeShape &w, const SornSeShape &outer, int32_t n) {
  const int32_t first = n - 1 >= 3 ? 0 : 3 - (n - 1);
  for (int32_t k = first; k < 3; ++k) {
    const int64_t before = w.anchor[k], after = (int64_t)w.size[k] - 1 - w.anchor[k];
    const int64_t obefore = outer.anchor[k];
    const int64_t oafter = (int64_t)outer.size[k] - 1 - outer.anchor[k];
    if (before > obefore || after > oafter) return false;
  }
  return true;
}

// The bordered copy is made for the last window alone: the windows that a
// kind reads (the three blurs of kind 5, the rank window of kinds 3 and 4)
// must lie inside it, as windows given in ascending order do.
bool windows_ordered(int32_t kind, const Views &v, int32_t n) {
  if (v.shapes == nullptr || v.count < kViews) return true;
  const SornSeShape &last = v.shapes[v.count - 1];
  const int32_t from = kind == SORN_FIREFLY_GAUSS ? 0 : 2;
  if (kind != SORN_FIREFLY_GAUSS && kind != SORN_FIREFLY_CRB && kind != SORN_FIREFLY_CRBLN)
    return true;
  for (int32_t i = from; i < kViews; ++i)
    if (!reads_within(v.shapes[i], last, n)) return false;
  return true;
}

}  // namespace

// By kind, read as one byte: 0 a copy, 3, 4, 5 their scripts, any other
// invalid.
SornStatus sorna__fireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                            const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                            const int32_t *weights, int32_t count) {
  static constexpr sorn::filter::KindRoute<Views> kRoutes[] = {{SORN_FIREFLY_CRB, &route_crb},
                                                               {SORN_FIREFLY_CRBLN, &route_crbln},
                                                               {SORN_FIREFLY_GAUSS, &route_gauss}};
  const Views v{shapes, weights, count};
  return sorn::filter::route_kind(kRoutes, kind & 255, xe, flags, pack, sizes, type, dst,
                                  dstStrides, src, srcStrides, &v);
}

// The edge decision for the last window, without the probe: no script can
// do without a margin. With no window at all (a count below 1) no margin is
// needed.
SornStatus sorna__efireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                             uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                             const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                             const int32_t *weights, int32_t count, const SornBorderSpec *border,
                             const SornSites *sites) {
  const Views v{shapes, weights, count};
  if (!windows_ordered(kind & 255, v, (int32_t)(pack & 15u))) return SORN_EINVAL;
  const SornSeShape *window = shapes != nullptr && count >= 1 ? &shapes[count - 1] : nullptr;
  return sorn::filter::edge_decision(
      xe, flags, pack, sizes, type, dst, dstStrides, src, srcStrides, window, border, sites,
      sorn::filter::EdgeForm{false, true}, [&](SornFlags f, const void *s, const int32_t *ss) {
        return sorna__fireflyex(xe, f, pack, sizes, type, dst, dstStrides, s, ss, kind, shapes,
                                weights, count);
      });
}

/* ---------------- layer 2 ---------------- */

namespace {

// One window made three: itself, 5 and 15 times its extent around the
// middle, weighted 1, 6 and 9. A window whose 15-fold extent leaves the
// 32-bit range has a box that no scratch holds.
struct Expanded {
  SornSeShape shapes[kViews];
  int32_t weights[kViews];
};
SornStatus expand(const SornSeShape *se, Expanded *e) {
  if (se == nullptr) return SORN_EINVAL;
  e->shapes[0] = *se;
  constexpr int32_t kTimes[kViews] = {1, 5, 15};
  constexpr int32_t kWeights[kViews] = {1, 6, 9};
  for (int32_t i = 0; i < kViews; ++i) e->weights[i] = kWeights[i];
  for (int32_t i = 1; i < kViews; ++i) {
    const int64_t h = (int64_t)kTimes[i] * se->size[1], w = (int64_t)kTimes[i] * se->size[2];
    if (h > INT32_MAX || w > INT32_MAX || h < INT32_MIN || w < INT32_MIN) return SORN_ENOMEM;
    SornSeShape &s = e->shapes[i];
    s.anchor[0] = 0;
    s.anchor[1] = (int32_t)(h / 2);
    s.anchor[2] = (int32_t)(w / 2);
    s.anchor[3] = 0;
    s.size[0] = 1;
    s.size[1] = (int32_t)h;
    s.size[2] = (int32_t)w;
    s.size[3] = 1;
  }
  return SORN_OK;
}

}  // namespace

SornStatus sorna_fireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                           uint32_t type, void *dst, const int32_t *dstOrigin,
                           const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                           const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                           const int32_t *weights, int32_t count) {
  return sorna__fireflyex(
      xe, flags, pack, sizes, type, sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
      sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, shapes, weights, count);
}

SornStatus sorna_efireflyex(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                            uint32_t type, void *dst, const int32_t *dstOrigin,
                            const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                            const int32_t *srcStrides, int32_t kind, const SornSeShape *shapes,
                            const int32_t *weights, int32_t count, const SornBorderSpec *border,
                            const SornSites *sites) {
  const SornSites at = sorn::sites_at_region(pack, sizes, srcOrigin, sites);
  return sorna__efireflyex(xe, flags, pack, sizes, type,
                           sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
                           sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind,
                           shapes, weights, count, border, &at);
}

SornStatus SornTGAfireflyex(SornXE *xe, SornFlags flags, void *args, SornDimPack pack,
                            int32_t *sizes, uint32_t dstType, void *dst, int32_t *dstOrigin,
                            int32_t *dstStrides, uint32_t srcType, void *src, int32_t *srcOrigin,
                            int32_t *srcStrides) {
  if (dstType != srcType) return SORN_EINVAL;
  const SornFireflyArgs *a = static_cast<const SornFireflyArgs *>(args);
  return sorna_efireflyex(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src,
                          srcOrigin, srcStrides, (int32_t)a->kind, a->shapes, a->weights,
                          (int32_t)a->count, a->border, a->sites);
}

SornStatus sorna_firefly(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornSeShape *se) {
  Expanded e;
  const SornStatus st = expand(se, &e);
  if (st != SORN_OK) return st;
  return sorna_fireflyex(xe, flags, pack, sizes, type, dst, dstOrigin, dstStrides, src, srcOrigin,
                         srcStrides, kind, e.shapes, e.weights, kViews);
}

SornStatus sorna_efirefly(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *sizes,
                          uint32_t type, void *dst, const int32_t *dstOrigin,
                          const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                          const int32_t *srcStrides, int32_t kind, const SornSeShape *se,
                          const SornBorderSpec *border, const SornSites *sites) {
  Expanded e;
  const SornStatus st = expand(se, &e);
  if (st != SORN_OK) return st;
  return sorna_efireflyex(xe, flags, pack, sizes, type, dst, dstOrigin, dstStrides, src, srcOrigin,
                          srcStrides, kind, e.shapes, e.weights, kViews, border, sites);
}

SornStatus SornTGAfirefly(SornXE *xe, SornFlags flags, void *args, SornDimPack pack, int32_t *sizes,
                          uint32_t dstType, void *dst, int32_t *dstOrigin, int32_t *dstStrides,
                          uint32_t srcType, void *src, int32_t *srcOrigin, int32_t *srcStrides) {
  if (dstType != srcType) return SORN_EINVAL;
  const SornFilterArgs *a = static_cast<const SornFilterArgs *>(args);
  return sorna_efirefly(xe, flags, pack, sizes, dstType, dst, dstOrigin, dstStrides, src, srcOrigin,
                        srcStrides, (int32_t)a->kind, a->se, a->border, a->sites);
}

/* ---------------- entries ---------------- */

SornStatus SornFirefly(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                       const SornSeShape *se) {
  return sorn::filter::kind_entry(xe, flags, dst, src, dstRoi, srcSite, kind, se, SORN_TAG_FRFL,
                                  &SornTGAfirefly, SORN_FIREFLY_COPY);
}

// The windows are copied to scratch and each normalised against the
// source's region, as the filter normalises its one window; a null list is
// one window of no size (the 5 by 5 default), and a count below 1 has
// nothing to normalise.
SornStatus SornFireflyEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                         const SornSeShape *shapes, const int32_t *weights, int32_t count) {
  return sorn::filter::filter_entry(
      xe, flags, dst, src, dstRoi, srcSite, nullptr,
      [&](SornDimPack, const SornSeShape *, const SornBorderSpec *border, const SornSites *sites,
          auto run, const int32_t *region) {
        SornSeShape none;
        std::memset(&none, 0, sizeof none);
        const SornSeShape *given = shapes != nullptr ? shapes : &none;
        const int32_t n = shapes != nullptr ? count : 1;
        SornSeShape *copy = nullptr;
        if (n >= 1) {
          const uint64_t bytes = (uint64_t)n * sizeof(SornSeShape);
          if (bytes > (uint64_t)INT32_MAX) return SORN_ENOMEM;
          copy = static_cast<SornSeShape *>(SornXEalloca(xe, (size_t)bytes, 0));
          if (copy == nullptr) return SORN_ENOMEM;
          std::memcpy(copy, given, (size_t)bytes);
          for (int32_t i = 0; i < n; ++i) sorn_seshape__adjust_$gv$I(&copy[i], 3, region);
        }
        SornFireflyArgs args = {(uint32_t)kind,      weights, (uint32_t)n,
                                copy ? copy : given, border,  sites};
        const SornStatus st = run(SORN_TAG_FFLX, &SornTGAfireflyex, &args);
        if (copy != nullptr) SornXEfreea(xe, copy);
        return st;
      },
      (kind & 255) == SORN_FIREFLY_COPY);
}

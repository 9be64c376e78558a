// Copies and neighbourhood filters from the public entries: SornCopy,
// SornCopyEx, SornCopyMkb, SornCopyRMkb, SornFilter, SornSepFilter,
// SornGaussianFilter, SornFirefly and SornFireflyEx, at rank 3 and 4,
// in place and not, on operands decoded from the input, with regions,
// borders, windows, kinds and flags of every sort. Every operand lives in a
// block of exactly its size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a destination record that breaks the checks answers SORN_EINVAL;
//   - sources and masks are never written, unless the call works in place;
//   - no byte of the destination's block outside its site is written, and a
//     failing call writes nothing at all, but for the firefly filter, whose
//     script may fail after a step has written the destination;
//   - the environment's stack is at the same level after the call, but
//     after a failing firefly script, which leaves its block to the stack.
#include "fuzz_input.h"

#include <algorithm>

namespace {

using namespace sorn_fuzz;

const uint32_t kTypes[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32, SORN_U16, SORN_S8, SORN_F64};
const uint32_t kMaskTypes[] = {SORN_U8};

enum Op {
  kCopy,
  kCopyEx,
  kCopyMkb,
  kCopyRMkb,
  kFilter,
  kSepFilter,
  kGaussian,
  kFirefly,
  kFireflyEx
};

// The first byte picks the operation. The separable ones and the firefly
// filter have ranges of their own, so that the inputs kept for the others
// keep their meaning.
Op decode_op(uint8_t b) {
  if (b >= 200 && b < 240) return (b & 1) ? kGaussian : kSepFilter;
  if (b >= 240) return (b & 1) ? kFireflyEx : kFirefly;
  return (Op)(b % 5);
}

bool bad_image(const SornArray &a) {
  if (a.ndims != 3 && a.ndims != 4) return true;
  if (a.dims[0] < 1) return true;
  const int32_t ch = SORN_CHANNELS(a.dims[3]);
  return ch < 1 || ch > 4;
}

// Cells of a border or a window: small mostly, anything now and then.
int32_t cell(Input &in, int32_t lo, int32_t hi) {
  if (in.chance(240)) return in.range(lo, hi);
  static const int32_t wild[] = {INT32_MIN, INT32_MIN + 1, -65536,        -1000,
                                 1000,      65536,         INT32_MAX - 1, INT32_MAX};
  return in.pick(wild);
}

SornBrShape decode_border(Input &in) {
  SornBrShape b;
  std::memset(&b, 0, sizeof b);
  for (int k = 0; k < 3; ++k) {
    b.lo[k] = k == 0 && in.chance(230) ? 0 : cell(in, -40, 2);
    b.hi[k] = k == 0 && in.chance(230) ? 0 : cell(in, -2, 40);
  }
  for (double &f : b.fill) f = in.chance(200) ? (double)in.range(-300, 300) : in.f64();
  return b;
}

SornSeShape decode_window(Input &in) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  for (int k = 0; k < 4; ++k) {
    se.size[k] = cell(in, -6, 12);
    se.anchor[k] = cell(in, -6, 12);
  }
  return se;
}

// Coefficients for a window: as many taps as any normalised size of it
// can have (a caller must give that many), or none, the box, for windows
// too long to give taps for. Mostly small values, now and then anything.
const double *decode_kernel(Input &in, const SornSeShape &se, std::vector<double> &taps) {
  int32_t n = 32;
  for (int k = 1; k < 3; ++k) n = std::max(n, se.size[k]);
  if (n > 4096 || in.chance(30)) return nullptr;
  taps.resize((size_t)n);
  for (double &t : taps) t = in.chance(230) ? (double)in.range(-64, 64) / 16.0 : in.f64();
  return taps.data();
}

// The explicit firefly's windows and weights: mostly what its scripts can
// run (a square first window, the quantile in the second's depth cells, a
// square rank window of a power of two, ascending), now and then anything.
struct FireflyList {
  SornSeShape shapes[6];
  int32_t weights[6];
  int32_t count;
};
void decode_firefly(Input &in, FireflyList *f) {
  static const int32_t counts[] = {3, 3, 3, 3, 4, 1, 2, 0, -1, 6};
  f->count = in.pick(counts);
  for (int32_t i = 0; i < 6; ++i) {
    f->shapes[i] = decode_window(in);
    f->weights[i] = in.chance(230) ? in.range(-3, 12) : (int32_t)in.u32();
  }
  if (in.chance(200)) {
    const int32_t s0 = 1 + 2 * in.range(0, 3), k = in.range(0, 5), side = std::max(s0, 1 << k);
    for (int32_t i = 0; i < 6; ++i) {
      const int32_t s = i == 0 ? s0 : i == 2 ? side : side + 2 * (i - 2) + (i == 1 ? 0 : 1);
      SornSeShape &w = f->shapes[i];
      w.size[1] = w.size[2] = i == 1 ? s0 : s;
      w.anchor[1] = w.anchor[2] = w.size[1] / 2;
      if (i == 1) {
        w.size[0] = in.range(1, 10);
        w.anchor[0] = in.range(0, w.size[0] - 1);
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Op op = decode_op(in.u8());
  Pixels px(in.u64());
  Operand dst, src, mask;
  const Shape ds = decode_shape(in, kTypes, 7, 20, 28);
  build(dst, ds, px);
  Shape ss = decode_shape(in, kTypes, 7, 20, 28);
  if (in.chance(200)) {
    // Mostly a source that the checks accept.
    ss.type = ds.type;
    ss.chword = ds.chword;
    if (in.chance(200)) ss.ndims = ds.ndims;
    if (ss.ndims == ds.ndims && in.chance(200)) ss.planes = ds.planes;
  }
  build(src, ss, px);
  Shape ms = decode_shape(in, kMaskTypes, 1, 20, 28);
  if (in.chance(160)) {
    ms.ndims = ds.ndims;
    ms.planes = in.chance(200) ? ds.planes : 1;
    ms.rows = ds.rows;
    ms.cols = ds.cols;
    if (in.chance(128)) ms.chword = 1;
  }
  build(mask, ms, px);
  const bool in_place = in.chance(40);
  const SornArray *psrc = in_place ? nullptr : &src.rec;

  SornVolume r1 = decode_roi(in, dst.channels), r2 = decode_roi(in, dst.channels),
             r3 = decode_roi(in, 1);
  const SornVolume *p1 = in.chance(128) ? &r1 : nullptr;
  const SornVolume *p2 = in.chance(128) ? &r2 : nullptr;
  const SornVolume *p3 = in.chance(128) ? &r3 : nullptr;
  static const SornFlags common[] = {0,
                                     0,
                                     0,
                                     SORN_F_NOMARGIN,
                                     SORN_F_SITEMARGIN,
                                     SORN_F_BORDER_ONLY,
                                     SORN_F_ELEMMASK,
                                     SORN_F_INVMASK,
                                     SORN_F_PROBE,
                                     0x30};
  const SornFlags flags = in.chance(240) ? in.pick(common) : in.u64();
  static const int32_t borders[] = {0, 2, 3, 4, 5, 6, 7, 7, 7, 1, 8, 15, 0x17};
  static const int32_t kinds[] = {3, 4, 5, 5, 3, 4, 0, 256, 261, 6, 109, 105, 1, 255};
  static const int32_t firefly_kinds[] = {5, 5, 5, 3, 3, 4, 4, 0, 256, 259, 1, 6, 255};
  const bool firefly = op == kFirefly || op == kFireflyEx;
  const int32_t kind = op == kFilter ? in.pick(kinds)
                       : firefly     ? in.pick(firefly_kinds)
                                     : in.pick(borders);
  const SornBrShape border = decode_border(in);
  const SornBrShape *pborder = in.chance(240) ? &border : nullptr;
  const SornSeShape window = decode_window(in);
  const SornSeShape *pwindow = in.chance(220) ? &window : nullptr;
  std::vector<double> kcol, krow;
  SornSepShape sep;
  std::memcpy(sep.anchor, window.anchor, sizeof sep.anchor);
  std::memcpy(sep.size, window.size, sizeof sep.size);
  sep.kernels[0] = decode_kernel(in, window, kcol);
  sep.kernels[1] = decode_kernel(in, window, krow);
  sep.kernels[2] = nullptr;
  double sigmas[3];
  for (double &v : sigmas)
    v = in.chance(128) ? 0.0 : in.chance(230) ? in.range(1, 40) / 8.0 : in.f64();
  const double *psigmas = in.chance(128) ? sigmas : nullptr;
  FireflyList fl;
  decode_firefly(in, &fl);
  const bool null_list = in.chance(16), null_weights = in.chance(16);

  if (verbose()) {
    std::fprintf(stderr, "op %d kind %d flags %llx%s\n", (int)op, kind, (unsigned long long)flags,
                 in_place ? " in place" : "");
    describe("dst", dst.rec);
    if (psrc) describe("src", src.rec);
    describe("mask", mask.rec);
    describe("roi1", p1);
    describe("roi2", p2);
    describe("roi3", p3);
    if (pwindow)
      std::fprintf(stderr, "window: size {%d %d %d %d} anchor {%d %d %d %d}\n", window.size[0],
                   window.size[1], window.size[2], window.size[3], window.anchor[0],
                   window.anchor[1], window.anchor[2], window.anchor[3]);
  }

  const std::vector<uint8_t> d0 = dst.snapshot(), s0 = src.snapshot(), m0 = mask.snapshot();
  Env env;
  const KuMark before = env.level();
  SornStatus st = SORN_EINVAL;
  switch (op) {
    case kCopy: st = SornCopy(&env.xe, flags, &dst.rec, in_place ? &dst.rec : psrc, p1, p2); break;
    case kCopyEx:
      st = SornCopyEx(&env.xe, flags, &dst.rec, in_place ? &dst.rec : psrc,
                      in.chance(230) ? &mask.rec : nullptr, p1, p2, p3);
      break;
    case kCopyMkb: st = SornCopyMkb(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, pborder); break;
    case kCopyRMkb: st = SornCopyRMkb(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, pborder); break;
    case kFilter: st = SornFilter(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, pwindow); break;
    case kSepFilter:
      st = SornSepFilter(&env.xe, flags, &dst.rec, psrc, p1, p2, pwindow ? &sep : nullptr);
      break;
    case kGaussian:
      st = SornGaussianFilter(&env.xe, flags, &dst.rec, psrc, p1, p2, pwindow, psigmas);
      break;
    case kFirefly: st = SornFirefly(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, pwindow); break;
    case kFireflyEx:
      st = SornFireflyEx(&env.xe, flags, &dst.rec, psrc, p1, p2, kind,
                         null_list ? nullptr : fl.shapes, null_weights ? nullptr : fl.weights,
                         fl.count);
      break;
  }

  FUZZ_CHECK(is_status(st) || st == SORN_ENOTIMP);
  if (bad_image(dst.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  FUZZ_CHECK(same_level(before, env.level()) || (firefly && st != SORN_OK));
  FUZZ_CHECK(m0 == mask.snapshot());
  if (!in_place) FUZZ_CHECK(s0 == src.snapshot());
  const std::vector<uint8_t> d1 = dst.snapshot();
  if (st != SORN_OK && !firefly) FUZZ_CHECK(d0 == d1);
  for (size_t i = 0; i < d1.size(); ++i)
    if (d0[i] != d1[i]) FUZZ_CHECK(dst.in_site(i));
  return 0;
}

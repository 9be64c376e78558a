// Histograms, sums and means, with and without a pixel mask, at rank 3 and
// through the call frame at rank 4, on operands decoded from the input.
// Every operand lives in a block of exactly its size. A histogram's range
// covers the image's values (the kernels index their counters without a
// test, and say so), and for s32 it is narrow enough for the bin rule's
// 32-bit product; inside those terms nothing may go wrong. Properties,
// beside the sanitizers' silence:
//   - the answer is a status of the library, or for the masked forms that
//     count, a count no larger than the region;
//   - a source record that breaks the checks answers SORN_EINVAL;
//   - a failing call writes nothing: neither the histogram records and
//     their counters nor the result vector; a succeeding one writes no
//     result past the image's channels, and no histogram record past them;
//   - a histogram gains at most one count per pixel of the site;
//   - images and masks are never written; the environment's stack is at
//     the same level after the call.
#include "fuzz_input.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace sorn_fuzz;

const uint32_t kImageTypes[] = {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32};
const uint32_t kMaskTypes[] = {SORN_U8};

enum Op { kHist, kHistEx, kSum, kSumEx, kMean, kMeanEx };

bool bad_image(const SornArray &a) {
  if (a.ndims != 3 && a.ndims != 4) return true;
  if (a.dims[0] < 1) return true;
  const int32_t ch = SORN_CHANNELS(a.dims[3]);
  return ch < 1 || ch > 4;
}

bool bad_mask(const SornArray &s, const SornArray &m) {
  if (m.ndims != s.ndims && !(m.ndims == 3 && s.ndims == 4)) return true;
  if (m.dims[0] != s.dims[0] && m.dims[0] != 1) return true;
  return SORN_CHANNELS(m.dims[3]) != 1;
}

// The value range of a histogram, and the image's values inside it.
struct Range {
  double low = 0, high = 255;
  int32_t bins = 256;
};

Range decode_range(Input &in, uint32_t type) {
  Range r;
  r.bins = in.chance(200) ? 1 + in.u8() % 64 : in.range(1, 4096);
  int64_t lo = 0, hi = 0;
  switch (type) {
    case SORN_U8: lo = in.range(0, 255), hi = in.range((int32_t)lo, 255); break;
    case SORN_S8: lo = in.range(-128, 127), hi = in.range((int32_t)lo, 127); break;
    case SORN_S16: lo = in.range(-32768, 32767), hi = in.range((int32_t)lo, 32767); break;
    case SORN_S32: {
      // (value - ilow) * bins stays inside 32 bits.
      const int64_t widest = (int64_t)INT32_MAX / r.bins - 1;
      lo = (int32_t)in.u32();
      const int64_t w = in.chance(128) ? in.u8() : (int64_t)(in.u32() % (uint64_t)(widest + 1));
      hi = std::min<int64_t>(lo + std::min<int64_t>(w, widest), INT32_MAX);
      break;
    }
    case SORN_F32: {
      r.low = (float)((double)in.range(-1000000, 1000000) / (1 + in.u8()));
      r.high = in.chance(32) ? r.low : (float)(r.low + (double)in.u32() / (1 + in.u16()));
      return r;
    }
    default: return r;
  }
  r.low = (double)lo;
  r.high = (double)hi;
  return r;
}

// Every element of the block gets a value in [low, high].
void fill_in_range(Operand &op, const Range &r, Pixels &px) {
  const size_t es = (size_t)op.esize;
  if (es == 0) return;
  const size_t n = op.bytes / es;
  uint8_t *p = op.data();
  for (size_t i = 0; i < n; ++i) {
    const uint64_t u = px.next();
    const double span = r.high - r.low;
    if (op.shape.type == SORN_F32) {
      float v = (float)(r.low + span * (double)(u >> 11) * 0x1.0p-53);
      if ((u & 15) == 0) v = (float)r.low;
      if ((u & 15) == 1) v = (float)r.high;
      v = std::min(std::max(v, (float)r.low), (float)r.high);
      std::memcpy(p + i * es, &v, 4);
      continue;
    }
    const int64_t w = (int64_t)span + 1;
    const int64_t v = (int64_t)r.low + (int64_t)(u % (uint64_t)w);
    switch (op.shape.type) {
      case SORN_U8: p[i] = (uint8_t)v; break;
      case SORN_S8: p[i] = (uint8_t)(int8_t)v; break;
      case SORN_S16: { int16_t x = (int16_t)v; std::memcpy(p + i * es, &x, 2); break; }
      case SORN_S32: { int32_t x = (int32_t)v; std::memcpy(p + i * es, &x, 4); break; }
      default: break;
    }
  }
}

uint64_t sum_counts(const SornHist &h, uint32_t bins) {
  uint64_t s = 0;
  for (uint32_t i = 0; i <= bins; ++i) s += h.counts[i];
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Op op = (Op)(in.u8() % 6);
  const bool masked = op == kHistEx || op == kSumEx || op == kMeanEx;
  const bool hist = op == kHist || op == kHistEx;

  Pixels px(in.u64());
  Operand src, mask;
  Shape ss = decode_shape(in, kImageTypes, 5);
  build(src, ss, px);
  // Masks mostly share the image's extents, with a margin now and then.
  Shape ms = decode_shape(in, kMaskTypes, 1);
  if (in.chance(160)) {
    ms.ndims = ss.ndims;
    ms.planes = in.chance(200) ? ss.planes : 1;
    ms.rows = ss.rows + (in.chance(200) ? 0 : in.range(-2, 3));
    ms.cols = ss.cols + (in.chance(200) ? 0 : in.range(-2, 3));
    if (in.chance(230)) ms.chword = 1;
  }
  build(mask, ms, px);
  const SornArray *pmask = (masked && in.chance(240)) ? &mask.rec : nullptr;

  SornVolume roi = decode_roi(in, src.channels), site = decode_roi(in, 1);
  const SornVolume *proi = in.chance(128) ? &roi : nullptr;
  const SornVolume *psite = in.chance(128) ? &site : nullptr;

  static const SornFlags common[] = {0, 0, 0, SORN_F_STATS_INVMASK, SORN_F_SUM_FAST,
                                     SORN_F_SUM_FAST2, SORN_F_SUM_COUNT,
                                     SORN_F_SUM_COUNT | SORN_F_STATS_INVMASK,
                                     SORN_F_SUM_COUNT | SORN_F_SUM_FAST, 0x30};
  SornFlags flags = in.chance(240) ? in.pick(common) : in.u64();
  const int32_t mode = in.chance(230) ? 0 : in.range(-2, 5);

  // Histogram records: one per channel, one spare behind them that must
  // stay as it is.
  Range range = decode_range(in, ss.type);
  if (hist) fill_in_range(src, range, px);
  SornHist hists[5];
  std::memset(hists, 0, sizeof hists);
  SornHistInit init;
  std::memset(&init, 0, sizeof init);
  init.elemtype = ss.type;
  init.bins = range.bins;
  init.low = range.low;
  init.high = range.high;
  init.planes = 1;
  init.rows = ss.rows;
  init.cols = ss.cols;
  const int32_t nrec = std::min(std::max(src.channels, 1), 4);
  for (int32_t c = 0; c < nrec; ++c) FUZZ_CHECK(__sorn_histogram__$ia(&hists[c], &init) == SORN_OK);
  hists[4].bins = 0xA5A5A5A5u;
  SornHist hists0[5];
  std::memcpy(hists0, hists, sizeof hists);
  std::vector<std::vector<uint32_t>> counts0(nrec);
  for (int32_t c = 0; c < nrec; ++c)
    counts0[c].assign(hists[c].counts, hists[c].counts + hists[c].bins + 1);

  double out[8];
  for (int i = 0; i < 8; ++i) out[i] = -1234.5 - i;
  double out0[8];
  std::memcpy(out0, out, sizeof out);

  if (verbose()) {
    std::fprintf(stderr, "op %d flags %llx mode %d bins %d low %g high %g\n", (int)op,
                 (unsigned long long)flags, mode, range.bins, range.low, range.high);
    describe("src", src.rec);
    if (pmask) describe("mask", mask.rec);
    describe("roi", proi);
    describe("maskSite", psite);
  }

  const std::vector<uint8_t> s0 = src.snapshot(), m0 = mask.snapshot();
  Env env;
  const KuMark before = env.level();
  SornStatus st = SORN_EINVAL;
  switch (op) {
    case kHist: st = SornHistogram(&env.xe, flags, &src.rec, proi, mode, hists); break;
    case kHistEx:
      st = SornHistogramEx(&env.xe, flags, &src.rec, pmask, proi, psite, mode, hists);
      break;
    case kSum: st = SornSum(&env.xe, flags, &src.rec, proi, out); break;
    case kSumEx: st = SornSumEx(&env.xe, flags, &src.rec, pmask, proi, psite, out); break;
    case kMean: st = SornMean(&env.xe, flags, &src.rec, proi, out); break;
    case kMeanEx: st = SornMeanEx(&env.xe, flags, &src.rec, pmask, proi, psite, out); break;
  }

  const int64_t planes = ss.ndims == 4 ? std::max(ss.planes, 0) : 1;
  const int64_t pixels = planes * std::max(ss.rows, 0) * std::max(ss.cols, 0);
  const bool counting = (op == kSumEx || op == kMeanEx) && pmask != nullptr;
  if (counting && st > 0)
    FUZZ_CHECK(st <= pixels);
  else
    FUZZ_CHECK(is_status(st) || st == SORN_ENOTIMP);
  if (bad_image(src.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  if (!bad_image(src.rec) && pmask && bad_mask(src.rec, mask.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  FUZZ_CHECK(same_level(before, env.level()));
  FUZZ_CHECK(s0 == src.snapshot());
  FUZZ_CHECK(m0 == mask.snapshot());

  FUZZ_CHECK(std::memcmp(&hists[4], &hists0[4], sizeof hists[4]) == 0);
  if (!hist) {
    for (int32_t c = 0; c < nrec; ++c) {
      FUZZ_CHECK(std::memcmp(&hists[c], &hists0[c], sizeof hists[c]) == 0);
      FUZZ_CHECK(std::equal(counts0[c].begin(), counts0[c].end(), hists[c].counts));
    }
  }
  if (hist) FUZZ_CHECK(std::memcmp(out, out0, sizeof out) == 0);

  if (st < 0) {
    FUZZ_CHECK(std::memcmp(out, out0, sizeof out) == 0);
    for (int32_t c = 0; c < nrec; ++c) {
      FUZZ_CHECK(std::memcmp(&hists[c], &hists0[c], sizeof hists[c]) == 0);
      FUZZ_CHECK(std::equal(counts0[c].begin(), counts0[c].end(), hists[c].counts));
    }
  } else if (hist) {
    for (int32_t c = 0; c < nrec; ++c) {
      FUZZ_CHECK(hists[c].counts == hists0[c].counts && hists[c].bins == hists0[c].bins);
      uint64_t was = 0;
      for (uint32_t v : counts0[c]) was += v;
      FUZZ_CHECK(sum_counts(hists[c], hists[c].bins) - was <= (uint64_t)pixels);
    }
  } else {
    const int32_t ch = src.channels;
    for (int i = ch; i < 8; ++i) FUZZ_CHECK(std::memcmp(&out[i], &out0[i], sizeof out[i]) == 0);
  }

  for (int32_t c = 0; c < nrec; ++c) sorn_hist_fini(&hists[c]);
  return 0;
}

// Comparison, minimum and maximum, and thresholding, on operands decoded
// from the input, at rank 3 and through the call frame at rank 4: the four
// comparison entries with every kind of value argument, the byte tables
// applied directly, SornMinmax and SornMinmaxEx, SornThreshold with every
// method and constant or adaptive conditions, and
// SornComputeThresholdByOtsu. Every operand lives in a block of exactly its
// size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a source record that breaks the checks answers SORN_EINVAL;
//   - sources, masks and threshold images are never written (unless the
//     destination is the source); no byte of the destination's block
//     outside its site's elements changes;
//   - at rank 3 a failing call writes nothing;
//   - the plain comparisons into integer destinations write only all ones
//     or zero;
//   - a found integer minimum is not above the maximum, and both lie in the
//     image's type;
//   - the environment's stack is at the same level after the call.
#include <algorithm>
#include <cmath>

#include "fuzz_input.h"

namespace {

using namespace sorn_fuzz;

const uint32_t kSourceTypes[] = {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32};
const uint32_t kDestTypes[] = {SORN_U8, SORN_S8, SORN_U16, SORN_S16, SORN_S32, SORN_F32};
const uint32_t kMaskTypes[] = {SORN_U8};

enum Op { kCompare, kCompareC, kECompare, kECompareC, kTables, kMinmax, kThreshold, kOtsu, kOps };

bool bad_image(const SornArray &a) {
  if (a.ndims != 3 && a.ndims != 4) return true;
  if (a.dims[0] < 1) return true;
  const int32_t ch = SORN_CHANNELS(a.dims[3]);
  return ch < 1 || ch > 4;
}

// A value argument of the e forms: a pointer to doubles, or a small value.
const double *decode_value(Input &in, const double *vals) {
  const uint8_t b = in.u8();
  if (b < 160) return vals;
  if (b < 200) return nullptr;
  if (b < 240) return SORN_CMP_KEEPSRC;
  return (const double *)(uintptr_t)(2 + b % 14);
}

double decode_double(Input &in) {
  const uint8_t b = in.u8();
  static const double special[] = {0, 255, 256, 65535, -1, 127.5, -0.5, 1e10, -1e10, 3e38,
                                   NAN, INFINITY, -INFINITY, 1.99999988079071044921875};
  if (b < 96) return (double)(int32_t)(in.u16() % 600) - 300;
  if (b < 192) return special[b % (sizeof special / sizeof special[0])];
  return in.f64();
}

// Where a destination may be written: the bytes of its site's elements.
void check_outside_site(const Operand &op, const std::vector<uint8_t> &before) {
  for (size_t i = 0; i < op.bytes; ++i)
    if (!op.in_site(i)) FUZZ_CHECK(op.store[i] == before[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Op op = (Op)(in.u8() % kOps);
  Pixels px(in.u64());

  Operand src, src2, dst, extra;
  Shape ss = decode_shape(in, kSourceTypes, 5);
  // The byte tables pay above 16384 pixels: wide images now and then.
  if (in.chance(24)) {
    ss.rows = 130;
    ss.cols = 131;
  }
  build(src, ss, px);
  // The other operands mostly share the source's extents and channels.
  auto like_source = [&](Shape s) {
    if (in.chance(200)) {
      s.ndims = in.chance(230) ? ss.ndims : 3;
      s.planes = in.chance(220) ? ss.planes : 1;
      s.rows = ss.rows + (in.chance(210) ? 0 : in.range(-2, 3));
      s.cols = ss.cols + (in.chance(210) ? 0 : in.range(-2, 3));
      if (in.chance(230)) s.chword = ss.chword;
    }
    return s;
  };
  Shape s2 = like_source(decode_shape(in, kSourceTypes, 5));
  if (in.chance(220)) s2.type = ss.type;
  build(src2, s2, px);
  Shape ds = like_source(decode_shape(in, kDestTypes, 6));
  if (op == kThreshold && in.chance(220)) ds.type = ss.type;
  build(dst, ds, px);
  const bool masked_minmax = op == kMinmax && in.chance(128);
  Shape es = like_source(decode_shape(in, masked_minmax ? kMaskTypes : kSourceTypes,
                                      masked_minmax ? 1 : 5));
  if (masked_minmax && in.chance(220)) es.chword = 1;
  if (!masked_minmax && in.chance(200)) es.type = ss.type;
  build(extra, es, px);

  SornVolume roi = decode_roi(in, dst.channels), site1 = decode_roi(in, src.channels),
             site2 = decode_roi(in, src2.channels);
  const SornVolume *proi = in.chance(128) ? &roi : nullptr;
  const SornVolume *psite1 = in.chance(128) ? &site1 : nullptr;
  const SornVolume *psite2 = in.chance(128) ? &site2 : nullptr;
  static const SornFlags common[] = {0,    0,    0,    SORN_F_STATS_INVMASK, 0x10, 0x20, 0x30,
                                     SORN_F_PROBE, SORN_F_THH_MARGIN,
                                     SORN_F_THH_MARGIN | SORN_F_THH_PARMARGIN};
  const SornFlags flags = in.chance(240) ? in.pick(common) : in.u64();
  const uint32_t cmpop = in.chance(220) ? 3 + in.u8() % 6 : in.u32();

  double cvec[4], tv[4], fv[4];
  for (int k = 0; k < 4; ++k) {
    cvec[k] = decode_double(in);
    tv[k] = decode_double(in);
    fv[k] = decode_double(in);
  }
  const double *tval = decode_value(in, tv), *fval = decode_value(in, fv);
  const bool in_place = op == kThreshold && in.chance(40);

  // The threshold method record and conditions.
  SornThresholdSpec how;
  std::memset(&how, 0, sizeof how);
  static const uint32_t kMethods[] = {0u, 3u, 4u, 5u, 19u, 20u, 21u};
  how.method = in.chance(230) ? in.pick(kMethods) : in.u32();
  for (int k = 0; k < 4; ++k) {
    const uint8_t b = in.u8();
    how.vrng[k] = b < 128 ? SornVrng{NAN, 0.0}
                           : SornVrng{decode_double(in), decode_double(in)};
    how.bins[k] = in.chance(200) ? 0 : in.range(-2, 1000);
  }
  for (int k = 0; k < 3; ++k) {
    how.blurSize[k] = in.chance(200) ? 0 : in.range(-2, 9);
    how.flatSize[k] = in.chance(200) ? 0 : in.range(-2, 9);
  }
  // The blur method reads a window where the ranges stand. Ranges read as
  // a window are boxes of a billion rows, whose bordered copies no machine
  // holds: the window is always a small one from the input, or the default.
  if ((how.method & 15) == 5) {
    SornVolume box = {{0, 0, 0, 0}, {0, 0, 0, 0}};
    if (in.chance(128))
      box = {{0, in.range(-2, 4), in.range(-2, 4), 0},
             {in.range(0, 2), in.range(-2, 7), in.range(-2, 7), 0}};
    std::memcpy(how.vrng, &box, sizeof box);
  }
  const SornThresholdSpec *pspec = in.chance(200) ? &how : nullptr;
  SornThresholdCriterion crit[3];
  std::memset(crit, 0, sizeof crit);
  for (auto &c : crit) {
    c.op = in.chance(220) ? 3 + in.u8() % 6 : in.u32();
    for (int k = 0; k < 4; ++k) {
      c.thresh[k] = decode_double(in);
      c.value[k] = decode_double(in);
    }
    // A NaN first threshold makes a condition adaptive, reading a pointer
    // from the next one: only the adaptive conditions made here have one.
    if (std::isnan(c.thresh[0])) c.thresh[0] = 0;
    if (in.chance(64)) {
      c.thresh[0] = NAN;
      const SornArray *a = in.chance(220) ? &extra.rec : nullptr;
      std::memcpy(&c.thresh[1], &a, sizeof a);
    }
  }
  const int32_t count = in.chance(220) ? in.range(0, 3) : in.range(-2, 5);

  if (verbose()) {
    std::fprintf(stderr, "op %d flags %llx cmpop %u method %u count %d\n", (int)op,
                 (unsigned long long)flags, cmpop, how.method, count);
    describe("src", src.rec);
    describe("src2", src2.rec);
    describe("dst", dst.rec);
    describe("extra", extra.rec);
    describe("roi", proi);
  }

  const std::vector<uint8_t> s0 = src.snapshot(), t0 = src2.snapshot(), d0 = dst.snapshot(),
                             e0 = extra.snapshot();
  Env env;
  const KuMark before = env.level();
  SornStatus st = SORN_EINVAL;
  SornMinmaxRec mm;
  std::memset(&mm, 0x5c, sizeof mm);
  mm.what = in.u8() & 7;
  double thr[8];
  for (double &t : thr) t = -77.0;
  SornVrng vr[4] = {how.vrng[0], how.vrng[1], how.vrng[2], how.vrng[3]};
  int32_t bins[4] = {how.bins[0], how.bins[1], how.bins[2], how.bins[3]};
  switch (op) {
    case kCompare:
      st = SornCompare(&env.xe, flags, &dst.rec, &src.rec, &src2.rec, proi, psite1, psite2, cmpop);
      break;
    case kCompareC:
      st = SornCompareC(&env.xe, flags, &dst.rec, &src.rec, cvec, proi, psite1, cmpop);
      break;
    case kECompare:
      st = SornECompare(&env.xe, flags, &dst.rec, &src.rec, &src2.rec, proi, psite1, psite2, cmpop,
                        tval, fval);
      break;
    case kECompareC:
      st = SornECompareC(&env.xe, flags, &dst.rec, &src.rec, cvec, proi, psite1, cmpop, tval,
                         fval);
      break;
    case kTables: {
      // Tables built from the input, applied to the source's bytes in place
      // of the destination's.
      uint8_t store[4][256];
      uint8_t *tabs[4] = {store[0], store[1], store[2], store[3]};
      const int32_t nchan = in.chance(230) ? std::clamp(src.channels, 1, 4) : in.range(-1, 6);
      SornStatus b = in.chance(128)
                         ? sorn_mkcmpxlatab(tabs, cmpop, cvec, tval, fval, nchan)
                         : sorn_mkcmpxlatab2(tabs, cmpop, in.u8() % 9, cvec, tv, tval, fval, nchan);
      FUZZ_CHECK(is_status(b));
      if (b != SORN_OK) break;
      if (src.shape.type != SORN_U8 || dst.shape.type != SORN_U8 || bad_image(src.rec) ||
          bad_image(dst.rec) || src.channels != nchan)
        break;
      const int32_t rows = std::min(std::max(ss.rows, 0), std::max(ds.rows, 0));
      const int32_t cols = std::min(std::max(ss.cols, 0), std::max(ds.cols, 0));
      if (dst.channels != nchan) break;
      st = sorn_xlat2d_u8(tabs, dst.data() + dst.offset, src.data() + src.offset, dst.rowstride,
                          src.rowstride, rows, cols, nchan);
      break;
    }
    case kMinmax:
      st = SornMinmaxEx(&env.xe, flags, &src.rec, masked_minmax ? &extra.rec : nullptr, proi,
                        psite1, &mm);
      break;
    case kThreshold:
      st = SornThreshold(&env.xe, flags, in_place ? &src.rec : &dst.rec,
                         in_place ? nullptr : &src.rec, proi, psite1, pspec, crit, count);
      break;
    case kOtsu:
      st = SornComputeThresholdByOtsu(&env.xe, flags, &src.rec, proi, thr,
                                      in.chance(128) ? vr : nullptr, in.chance(128) ? bins : nullptr);
      break;
    default: break;
  }

  FUZZ_CHECK(is_status(st));
  const bool entry = op != kTables;
  if (entry && bad_image(src.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  FUZZ_CHECK(same_level(before, env.level()));
  if (!in_place) FUZZ_CHECK(s0 == src.snapshot());
  FUZZ_CHECK(t0 == src2.snapshot());
  FUZZ_CHECK(e0 == extra.snapshot());
  check_outside_site(dst, d0);
  if (in_place) check_outside_site(src, s0);
  if (st != SORN_OK && ss.ndims == 3 && ds.ndims == 3) {
    FUZZ_CHECK(d0 == dst.snapshot());
    if (in_place) FUZZ_CHECK(s0 == src.snapshot());
  }
  if (op == kMinmax && st != SORN_OK) {
    SornMinmaxRec untouched;
    std::memset(&untouched, 0x5c, sizeof untouched);
    FUZZ_CHECK(std::memcmp(&mm.min, &untouched.min, sizeof mm.min) == 0);
  }

  // Plain comparisons into integer destinations write masks.
  if (st == SORN_OK && (op == kCompare || op == kCompareC) && ds.type != SORN_F32) {
    for (size_t i = 0; i < dst.bytes; i += (size_t)dst.esize) {
      if (!dst.in_site(i) || std::memcmp(&dst.store[i], &d0[i], (size_t)dst.esize) == 0) continue;
      bool zero = true, ones = true;
      for (int32_t b = 0; b < dst.esize; ++b) {
        zero = zero && dst.store[i + b] == 0;
        ones = ones && dst.store[i + b] == 0xff;
      }
      FUZZ_CHECK(zero || ones);
    }
  }
  // Integer extremes are ordered and lie in the type.
  if (st == SORN_OK && op == kMinmax && ss.type != SORN_F32) {
    const int32_t lo = ss.type == SORN_U8 ? 0 : ss.type == SORN_S16 ? -32768 : INT32_MIN;
    const int32_t hi = ss.type == SORN_U8 ? 255 : ss.type == SORN_S16 ? 32767 : INT32_MAX;
    // A region whose channel cell is narrower than the pixel measures (and
    // writes) only the channels it holds.
    SornVolume region;
    sorn_arr_adjorgetRoi(&src.rec, &region, proi);
    for (int32_t c = 0; c < std::min(region.size[3], 4); ++c) {
      FUZZ_CHECK(mm.min[c].ivalue <= mm.max[c].ivalue);
      FUZZ_CHECK(mm.min[c].ivalue >= lo && mm.max[c].ivalue <= hi);
    }
  }
  return 0;
}

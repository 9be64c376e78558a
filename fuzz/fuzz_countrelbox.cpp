// The relative box count from its public entry, SornCountRelBox, at rank 3
// and 4, in place and not, on operands decoded from the input: element
// types and channel counts of every sort (u8 to u8 and u8 to s16 work),
// regions, boxes from none to wild, operators, shifts of any size, value
// ranges given, inverted, infinite or leaving the image's values out, and
// the speed and margin flags. Every operand lives in a block of exactly
// its size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a destination record that breaks the checks answers SORN_EINVAL, and
//     an operator other than 3 to 7 on records that pass never succeeds;
//   - the source is never written, unless the call works in place;
//   - no byte of the destination's block outside its site is written, and a
//     failing call writes nothing at all;
//   - the environment's stack is at the same level after the call.
#include "fuzz_input.h"

#include <cmath>

namespace {

using namespace sorn_fuzz;

const uint32_t kTypes[] = {SORN_U8, SORN_U8, SORN_S16, SORN_S32, SORN_U16, SORN_S8, SORN_F32};

bool bad_image(const SornArray &a) {
  if (a.ndims != 3 && a.ndims != 4) return true;
  if (a.dims[0] < 1) return true;
  const int32_t ch = SORN_CHANNELS(a.dims[3]);
  return ch < 1 || ch > 4;
}

// Cells of a box: small mostly, anything now and then.
int32_t cell(Input &in, int32_t lo, int32_t hi) {
  if (in.chance(240)) return in.range(lo, hi);
  static const int32_t wild[] = {INT32_MIN, INT32_MIN + 1, -65536, -1000, 300, 1000, 65536,
                                 INT32_MAX - 1, INT32_MAX};
  return in.pick(wild);
}

// A range's end: mostly a byte value, now and then anything a double holds.
double end(Input &in) {
  if (in.chance(200)) return (double)in.range(-20, 275) + (in.chance(200) ? 0.0 : 0.5);
  static const double odd[] = {NAN, INFINITY, -INFINITY, 1e300, -1e300, 0.0, 255.0};
  return in.pick(odd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  Pixels px(in.u64());
  Operand dst, src;
  Shape ds = decode_shape(in, kTypes, 7, 20, 28);
  // Mostly one channel: two to four are refused before any work.
  if (in.chance(200)) ds.chword = 1;
  build(dst, ds, px);
  Shape ss = decode_shape(in, kTypes, 7, 20, 28);
  if (in.chance(200)) {
    // Mostly a source that the checks accept.
    ss.type = SORN_U8;
    ss.chword = ds.chword;
    if (in.chance(200)) ss.ndims = ds.ndims;
    if (ss.ndims == ds.ndims && in.chance(200)) ss.planes = ds.planes;
  }
  build(src, ss, px);
  const bool in_place = in.chance(40);
  const SornArray *psrc = in_place ? nullptr : &src.rec;

  SornVolume r1 = decode_roi(in, dst.channels), r2 = decode_roi(in, dst.channels);
  const SornVolume *p1 = in.chance(128) ? &r1 : nullptr;
  const SornVolume *p2 = in.chance(128) ? &r2 : nullptr;
  static const SornFlags common[] = {0, 0, 0, SORN_F_RANK_FAST, SORN_F_RANK_FAST2,
                                     SORN_F_RANK_FAST | SORN_F_RANK_FAST2, SORN_F_NOMARGIN,
                                     SORN_F_SITEMARGIN, SORN_F_PROBE, 0x30};
  const SornFlags flags = in.chance(240) ? in.pick(common) : in.u64();
  static const uint32_t ops[] = {3, 4, 5, 6, 7, 3, 5, 7, 0, 2, 8, 0x13, 0x25, 15};
  const uint32_t op = in.chance(240) ? in.pick(ops) : in.u32();
  SornSeShape box;
  std::memset(&box, 0, sizeof box);
  for (int k = 0; k < 4; ++k) {
    box.size[k] = cell(in, -6, 20);
    box.anchor[k] = cell(in, -6, 20);
  }
  const SornSeShape *pbox = in.chance(220) ? &box : nullptr;
  SornVrng ranges[4];
  for (SornVrng &r : ranges) r = {end(in), end(in)};
  const SornVrng *prange = in.chance(128) ? ranges : nullptr;
  const int32_t shift = in.chance(230) ? in.range(-10, 10) : (int32_t)in.u32();

  if (verbose()) {
    std::fprintf(stderr, "op %u flags %llx shift %d%s\n", op, (unsigned long long)flags, shift,
                 in_place ? " in place" : "");
    describe("dst", dst.rec);
    if (psrc) describe("src", src.rec);
    describe("roi1", p1);
    describe("roi2", p2);
    if (pbox)
      std::fprintf(stderr, "box: size {%d %d %d %d} anchor {%d %d %d %d}\n", box.size[0],
                   box.size[1], box.size[2], box.size[3], box.anchor[0], box.anchor[1],
                   box.anchor[2], box.anchor[3]);
    if (prange) std::fprintf(stderr, "range: %g %g\n", ranges[0].lo, ranges[0].hi);
  }

  const std::vector<uint8_t> d0 = dst.snapshot(), s0 = src.snapshot();
  Env env;
  const KuMark before = env.level();
  const SornStatus st =
      SornCountRelBox(&env.xe, flags, &dst.rec, psrc, p1, p2, op, pbox, prange, shift, 0);

  FUZZ_CHECK(is_status(st));
  if (bad_image(dst.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  if ((op & 15u) < 3 || (op & 15u) > 7) FUZZ_CHECK(st != SORN_OK);
  FUZZ_CHECK(same_level(before, env.level()));
  if (!in_place) FUZZ_CHECK(s0 == src.snapshot());
  const std::vector<uint8_t> d1 = dst.snapshot();
  if (st != SORN_OK) FUZZ_CHECK(d0 == d1);
  for (size_t i = 0; i < d1.size(); ++i)
    if (d0[i] != d1[i]) FUZZ_CHECK(dst.in_site(i));
  return 0;
}

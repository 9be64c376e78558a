// Nearest-neighbour resizing through SornEResize and SornResize, at rank 3
// and through the call frame at rank 4, in place and between two operands,
// with factors from ordinary ones (1/2, 2, 1, from the extents) to any bit
// pattern of a double. Every operand lives in a block of exactly its size.
// Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a record that breaks the checks answers SORN_EINVAL;
//   - a failing call writes nothing;
//   - a succeeding one writes no byte outside the destination's site, and
//     never the source (unless it is the destination);
//   - the environment's stack is at the same level after the call.
#include "fuzz_input.h"

#include <cmath>

namespace {

using namespace sorn_fuzz;

const uint32_t kTypes[] = {SORN_U8, SORN_U8, SORN_S8, SORN_S16, SORN_U16, SORN_S32, SORN_F32};

bool bad_image(const SornArray &a) {
  if (a.ndims != 3 && a.ndims != 4) return true;
  if (a.dims[0] < 1) return true;
  const int32_t ch = SORN_CHANNELS(a.dims[3]);
  return ch < 1 || ch > 4;
}

bool bad_source(const SornArray &s, const SornArray &d) {
  if (s.ndims != d.ndims && !(s.ndims == 3 && d.ndims == 4)) return true;
  if (s.dims[0] != d.dims[0] && s.dims[0] != 1) return true;
  return SORN_CHANNELS(s.dims[3]) != SORN_CHANNELS(d.dims[3]);
}

double decode_factor(Input &in) {
  static const double usual[] = {0.5,  2.0,        1.0,        0.0,       3.7,  0.13, 1.0 / 3, 1.5,
                                 0.75, 1.0 + 1e-8, 1.0 - 1e-7, 1.0 / 300, 40.0, -0.5, 1e-9};
  const uint8_t b = in.u8();
  if (b < 200) return usual[b % (sizeof usual / sizeof usual[0])];
  if (b < 230) return (double)in.range(1, 4000) / (double)in.range(1, 4000);
  return in.f64();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  Pixels px(in.u64());
  const uint8_t how = in.u8();
  const bool in_place = (how & 7) == 0;
  const bool by_site = (how & 8) != 0;

  Operand dst, src;
  Shape ds = decode_shape(in, kTypes, sizeof kTypes / sizeof kTypes[0], 40, 70);
  build(dst, ds, px);
  Shape ss = decode_shape(in, kTypes, sizeof kTypes / sizeof kTypes[0], 40, 70);
  // Sources mostly fit the destination's records.
  if (in.chance(200)) {
    ss.type = ds.type;
    ss.chword = ds.chword;
    ss.ndims = in.chance(220) ? ds.ndims : 3;
    ss.planes = in.chance(200) ? ds.planes : 1;
  }
  build(src, ss, px);

  SornVolume droi = decode_roi(in, dst.channels), sroi = decode_roi(in, src.channels);
  const SornVolume *pdroi = in.chance(128) ? &droi : nullptr;
  const SornVolume *psroi = in.chance(128) ? &sroi : nullptr;
  int32_t site[4] = {0, 0, 0, 0};
  site[0] = in.chance(230) ? 0 : in.range(-1, 2);
  site[1] = in.range(-3, 20);
  site[2] = in.range(-3, 30);
  const int32_t *psite = in.chance(160) ? site : nullptr;

  double factors[3];
  for (double &f : factors) f = decode_factor(in);
  const double *pf = in.chance(230) ? factors : nullptr;
  static const int32_t methods[] = {0, 0, 0, 3, 4, 5, 6, 14, 15, 1, 7, 0x20};
  const int32_t method = in.chance(240) ? in.pick(methods) : (int32_t)in.u32();
  const SornFlags flags = in.chance(240) ? 0 : in.u64();

  const SornArray *psrc = in_place ? nullptr : &src.rec;
  if (verbose()) {
    std::fprintf(stderr, "in place %d by site %d method %d flags %llx factors %s %g %g %g\n",
                 in_place, by_site, method, (unsigned long long)flags, pf ? "" : "(none)",
                 factors[0], factors[1], factors[2]);
    describe("dst", dst.rec);
    if (psrc) describe("src", src.rec);
    describe("dstRoi", pdroi);
    if (by_site)
      std::fprintf(stderr, "srcSite: %s {%d %d %d}\n", psite ? "" : "null", site[0], site[1],
                   site[2]);
    else
      describe("srcVolume", psroi);
  }

  const std::vector<uint8_t> d0 = dst.snapshot(), s0 = src.snapshot();
  Env env;
  const KuMark before = env.level();
  const SornStatus st = by_site
                            ? SornResize(&env.xe, flags, &dst.rec, psrc, pdroi, psite, method, pf)
                            : SornEResize(&env.xe, flags, &dst.rec, psrc, pdroi, psroi, method, pf);

  FUZZ_CHECK(is_status(st));
  FUZZ_CHECK(same_level(before, env.level()));
  const SornArray &effective = in_place ? dst.rec : src.rec;
  if (bad_image(dst.rec) || bad_source(effective, dst.rec)) FUZZ_CHECK(st == SORN_EINVAL);
  FUZZ_CHECK(src.snapshot() == s0);
  const std::vector<uint8_t> d1 = dst.snapshot();
  if (st != SORN_OK) {
    FUZZ_CHECK(d1 == d0);
  } else {
    for (size_t i = 0; i < d1.size(); ++i)
      if (d1[i] != d0[i]) FUZZ_CHECK(dst.in_site(i));
  }
  return 0;
}

// SornAdd and SornAddC on records decoded from the input: element types,
// channel words, ranks, dims, strides, origins in the parent, ROIs, sf,
// flags and aliasing of destination and sources. Every operand lives in a
// block of exactly its size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a record that breaks the entry's checks answers SORN_EINVAL;
//   - success only comes with good records of 3 dimensions and a type
//     triple that has a kernel;
//   - a failing call writes nothing, a succeeding one nothing outside the
//     destination's site, and no call writes a source that is not also the
//     destination;
//   - the environment's stack is at the same level after the call.
#include "fuzz_input.h"

#include <algorithm>

namespace {

using namespace sorn_fuzz;

const uint32_t kUsual[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};

bool good_destination(const SornArray &d) {
  if (d.ndims != 3 && d.ndims != 4) return false;
  if (d.dims[0] < 1) return false;
  const int32_t ch = SORN_CHANNELS(d.dims[3]);
  return ch >= 1 && ch <= 4;
}

bool matches(const SornArray &s, const SornArray &d) {
  if (s.ndims != d.ndims && !(s.ndims == 3 && d.ndims == 4)) return false;
  if (s.dims[0] != d.dims[0] && s.dims[0] != 1) return false;
  return SORN_CHANNELS(s.dims[3]) == SORN_CHANNELS(d.dims[3]);
}

struct Triple {
  uint32_t d, a, b;
};
#define FUZZ_TRIPLE(d, a, b) {SORN_##d, SORN_##a, SORN_##b},
#define SORN_u8 SORN_U8
#define SORN_s16 SORN_S16
#define SORN_s32 SORN_S32
#define SORN_f32 SORN_F32
const Triple kTriples[] = {SORN_ADD_TRIPLES(FUZZ_TRIPLE)};
#undef FUZZ_TRIPLE

// Whether the call has a kernel to run: the sources ordered as the
// dispatcher orders them, then looked up in the table.
bool has_kernel(uint32_t d, uint32_t a, uint32_t b) {
  if (SORN_ELEMSIZE(b) > SORN_ELEMSIZE(a)) std::swap(a, b);
  if (b == SORN_F32 && a != SORN_F32) std::swap(a, b);
  for (const Triple &t : kTriples)
    if (t.d == d && t.a == a && t.b == b) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t form = in.u8();
  const bool constant = (form & 0x80) != 0;
  // 0: three operands; 1: no first source, the destination is also it;
  // 2: the second source is the destination's record; 3: the first is.
  const int alias = form & 3;

  Pixels px(in.u64());
  Operand dst, a, b;
  build(dst, decode_shape(in, kUsual, 4), px);
  build(a, decode_shape(in, kUsual, 4), px);
  build(b, decode_shape(in, kUsual, 4), px);

  const uint8_t which = in.u8();
  SornVolume rd = decode_roi(in, dst.channels), ra = decode_roi(in, a.channels),
             rb = decode_roi(in, b.channels);
  const SornVolume *dstroi = (which & 1) ? &rd : nullptr;
  const SornVolume *aroi = (which & 2) ? &ra : nullptr;
  const SornVolume *broi = (which & 4) ? &rb : nullptr;

  int32_t sf = in.chance(240) ? in.range(-34, 34) : (int32_t)in.u32();
  SornFlags flags = in.chance(200) ? 0 : in.u64();
  uint32_t extra = in.u32();
  double cvec[4];
  for (double &c : cvec) c = in.chance(200) ? (double)in.range(-70000, 70000) / 4 : in.f64();
  const double *cv = in.chance(250) ? cvec : nullptr;

  const SornArray *pa = &a.rec, *pb = &b.rec;
  if (alias == 1) pa = nullptr;
  if (alias == 2) pb = &dst.rec;
  if (alias == 3) pa = &dst.rec;
  const SornArray &ea = pa ? *pa : dst.rec;  // the first source in effect
  const bool a_is_dst = &ea == &dst.rec, b_is_dst = pb == &dst.rec;

  if (verbose()) {
    std::fprintf(stderr, "%s alias %d sf %d flags %llx extra %u\n", constant ? "SornAddC" : "SornAdd",
                 alias, sf, (unsigned long long)flags, extra);
    describe("dst", dst.rec);
    describe("a", a.rec);
    describe("b", b.rec);
    describe("dstroi", dstroi);
    describe("aroi", aroi);
    describe("broi", broi);
  }
  const std::vector<uint8_t> d0 = dst.snapshot(), a0 = a.snapshot(), b0 = b.snapshot();
  Env env;
  const KuMark before = env.level();

  SornStatus st;
  bool records_good;
  if (constant) {
    st = SornAddC(&env.xe, flags, &dst.rec, pa, cv, dstroi, aroi, sf, extra);
    records_good = good_destination(dst.rec) && matches(ea, dst.rec);
    if (records_good && cv == nullptr) FUZZ_CHECK(st == SORN_EINVAL);
  } else {
    st = SornAdd(&env.xe, flags, &dst.rec, pa, pb, dstroi, aroi, broi, sf, extra);
    records_good = good_destination(dst.rec) && matches(ea, dst.rec) && matches(*pb, dst.rec);
  }

  FUZZ_CHECK(is_status(st));
  if (!records_good) FUZZ_CHECK(st == SORN_EINVAL);
  if (st == SORN_OK) {
    FUZZ_CHECK(records_good && dst.rec.ndims == 3);
    if (!constant) FUZZ_CHECK(has_kernel(dst.rec.elemtype, ea.elemtype, pb->elemtype));
  }
  FUZZ_CHECK(same_level(before, env.level()));

  const std::vector<uint8_t> d1 = dst.snapshot();
  if (st != SORN_OK) {
    FUZZ_CHECK(d0 == d1);
  } else {
    for (size_t i = 0; i < d1.size(); ++i)
      if (!dst.in_site(i)) FUZZ_CHECK(d0[i] == d1[i]);
  }
  if (!a_is_dst) FUZZ_CHECK(a0 == a.snapshot());
  if (!b_is_dst) FUZZ_CHECK(b0 == b.snapshot());
  return 0;
}

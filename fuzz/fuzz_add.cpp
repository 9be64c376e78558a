// The entries of the arithmetic (multiply-accumulate with its third
// operand or constants among them), the logical operations and the
// conversions on records
// decoded from the input: element types, channel words, ranks, dims,
// strides, origins in the parent, ROIs, sf, flags and aliasing of
// destination and sources (the source given twice, the destination doubling
// as a source). Every operand lives in a block of exactly its size.
// Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a record that breaks the entry's checks answers SORN_EINVAL;
//   - success only comes with good records of 3 dimensions and, but where a
//     flat sigmoid fills the destination, element types that have kernels;
//   - a failing call writes nothing, a succeeding one nothing outside the
//     destination's site, and no call writes a source that is not also the
//     destination;
//   - the environment's stack is at the same level after the call.
//
// The first byte chooses the family (bits 2 to 6), the constant form (bit
// 7) and the aliasing (bits 0 and 1, and the like-source form). The third
// operand of multiply-accumulate, its ROI, second constants and aliasing
// are read last, so that the inputs of the other families keep their
// meaning.
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

bool kernel_type(uint32_t t) {
  return t == SORN_U8 || t == SORN_S16 || t == SORN_S32 || t == SORN_F32;
}
bool logic_type(uint32_t t) { return t == SORN_U8 || t == SORN_S16 || t == SORN_S32; }

// The entries by their shape.
using Two = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                           const SornArray *, const SornVolume *, const SornVolume *,
                           const SornVolume *, int32_t, uint32_t);
using Const = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const double *, const SornVolume *, const SornVolume *, int32_t,
                             uint32_t);
using One = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                           const SornVolume *, const SornVolume *, int32_t, uint32_t);
using Logic2 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornVolume *, const SornVolume *,
                              const SornVolume *);
using LogicC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const double *, const SornVolume *, const SornVolume *);
using Logic1 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornVolume *, const SornVolume *);
using Three = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const SornArray *, const SornArray *, const SornVolume *,
                             const SornVolume *, const SornVolume *, const SornVolume *, int32_t,
                             uint32_t);
using ThreeC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const double *, const SornVolume *,
                              const SornVolume *, const SornVolume *, int32_t, uint32_t);
using ThreeCC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const double *, const double *, const SornVolume *,
                               const SornVolume *, int32_t, uint32_t);

// One family: its two-array form and its constant form (either may be
// absent, then the other serves), and what success says of the types.
enum class Types { Arith, SameType, F32Only, Logic, Any, Convert, Mac, MacReversed };
struct Family {
  const char *name;
  Two two;
  Const constant;
  One one;
  Logic2 logic2;
  LogicC logicc;
  Logic1 logic1;
  Types types;
  // Multiply-accumulate: three arrays, two and a constant, one and two.
  Three three = nullptr;
  ThreeC threec = nullptr;
  ThreeCC threecc = nullptr;
};

const Family kFamilies[] = {
    {"Add", &SornAdd, &SornAddC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Addq", &SornAddq, &SornAddqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Addsq", &SornAddsq, &SornAddsqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Sub", &SornSub, &SornSubC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Subq", &SornSubq, &SornSubqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Subsq", &SornSubsq, &SornSubsqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"RSub", &SornRSub, &SornRSubC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"RSubq", &SornRSubq, &SornRSubqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"RSubsq", &SornRSubsq, &SornRSubsqC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Mul", &SornMul, &SornMulC, nullptr, nullptr, nullptr, nullptr, Types::Arith},
    {"Div", &SornDiv, &SornDivC, nullptr, nullptr, nullptr, nullptr, Types::SameType},
    {"Divr", &SornDivr, &SornDivrC, nullptr, nullptr, nullptr, nullptr, Types::SameType},
    {"RDiv", &SornRDiv, &SornRDivC, nullptr, nullptr, nullptr, nullptr, Types::SameType},
    {"RDivr", &SornRDivr, &SornRDivrC, nullptr, nullptr, nullptr, nullptr, Types::SameType},
    {"Negate", nullptr, nullptr, &SornNegate, nullptr, nullptr, nullptr, Types::Arith},
    {"Negateq", nullptr, nullptr, &SornNegateq, nullptr, nullptr, nullptr, Types::Arith},
    {"Exp", nullptr, nullptr, &SornExp, nullptr, nullptr, nullptr, Types::F32Only},
    {"Ln", nullptr, nullptr, &SornLn, nullptr, nullptr, nullptr, Types::F32Only},
    {"SigmoidAlpha", nullptr, &SornSigmoidAlpha, nullptr, nullptr, nullptr, nullptr, Types::Any},
    {"And", nullptr, nullptr, nullptr, &SornAnd, &SornAndC, nullptr, Types::Logic},
    {"Orr", nullptr, nullptr, nullptr, &SornOrr, &SornOrrC, nullptr, Types::Logic},
    {"Xor", nullptr, nullptr, nullptr, &SornXor, &SornXorC, nullptr, Types::Logic},
    {"Not", nullptr, nullptr, nullptr, nullptr, nullptr, &SornNot, Types::Logic},
    // The conversions, called by their own shape below: the constant form
    // is SornConvert (the constants its scale and offset), the other
    // SornVConvert.
    {"Convert", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, Types::Convert},
    {"MulAdd", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, Types::Mac, &SornMulAdd,
     &SornMulAddC, &SornMulAddCC},
    {"MulSub", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, Types::Mac, &SornMulSub,
     &SornMulSubC, &SornMulSubCC},
    {"MulRSub", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, Types::MacReversed,
     &SornMulRSub, &SornMulRSubC, &SornMulRSubCC},
};
constexpr size_t kFamilyCount = sizeof kFamilies / sizeof kFamilies[0];

bool types_have_kernels(Types t, uint32_t d, uint32_t a, uint32_t b, bool with_b) {
  switch (t) {
    // A destination outside the kernels' types is reached through a tile
    // and the saturating conversion; the sources always meet a kernel.
    case Types::Arith: return kernel_type(a) && (!with_b || kernel_type(b));
    case Types::SameType: return kernel_type(d) && a == d && (!with_b || b == d);
    case Types::F32Only: return d == SORN_F32 && a == SORN_F32;
    case Types::Logic: return logic_type(d) && a == d && (!with_b || b == d);
    case Types::Convert: return kernel_type(d) && kernel_type(a);
    // Every operand of one of the four types; the reversed difference
    // refuses a byte destination.
    case Types::Mac: return kernel_type(d) && kernel_type(a) && (!with_b || kernel_type(b));
    case Types::MacReversed:
      return d != SORN_U8 && kernel_type(d) && kernel_type(a) && (!with_b || kernel_type(b));
    default: return true;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t form = in.u8();
  const Family &fam = kFamilies[((form >> 2) & 31) % kFamilyCount];
  // The constant form where the family has one and the byte asks for it,
  // or where it has nothing else.
  const bool mac = fam.three != nullptr;
  const bool has_arrays = fam.two || fam.logic2 || mac;
  const bool convert = fam.types == Types::Convert;
  const bool has_constant = fam.constant || fam.logicc || convert || mac;
  const bool constant = has_constant && ((form & 0x80) || !has_arrays) && !fam.one && !fam.logic1;
  const bool unary = fam.one || fam.logic1 || (convert && !(form & 0x80));
  // 0: all operands apart; 1: no first source, the destination is also it;
  // 2: the second source is the destination's record; 3: the first is.
  int alias = form & 3;

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
  // Like sources: the second source is the first one's record, with its ROI.
  const bool like = (which & 8) != 0;

  int32_t sf = in.chance(240) ? in.range(-34, 34) : (int32_t)in.u32();
  SornFlags flags = in.chance(200) ? 0 : in.u64();
  uint32_t extra = in.u32();
  double cvec[4];
  for (double &c : cvec) c = in.chance(200) ? (double)in.range(-70000, 70000) / 4 : in.f64();
  if (in.chance(40)) std::fill(cvec, cvec + 4, in.chance(128) ? 0.0 : (in.chance(128) ? 1.0 : -1.0));
  const double *cv = in.chance(250) ? cvec : nullptr;

  const SornArray *pa = &a.rec, *pb = &b.rec;
  if (alias == 1) pa = nullptr;
  if (alias == 2) pb = &dst.rec;
  if (alias == 3) pa = &dst.rec;
  if (like) {
    pb = pa ? pa : &dst.rec;
    broi = pa ? aroi : (aroi ? aroi : dstroi);
  }
  const SornArray &ea = pa ? *pa : dst.rec;  // the first source in effect
  const bool a_is_dst = &ea == &dst.rec, b_is_dst = pb == &dst.rec;

  if (verbose()) {
    std::fprintf(stderr, "%s%s alias %d like %d sf %d flags %llx extra %u\n", fam.name,
                 constant ? "C" : "", alias, like, sf, (unsigned long long)flags, extra);
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
  bool records_good = good_destination(dst.rec) && matches(ea, dst.rec);
  // A conversion takes a source of the destination's rank and planes.
  if (convert)
    records_good = records_good && ea.ndims == dst.rec.ndims && ea.dims[0] == dst.rec.dims[0];
  const bool with_b = !constant && !unary;
  if (with_b) records_good = records_good && matches(*pb, dst.rec);
  // Ranges for the conversions, low then high per channel; the destination's
  // is completed in place.
  SornVrng ranges[8];
  for (SornVrng &r : ranges) r = {cvec[in.u8() & 3], cvec[in.u8() & 3] + in.range(-2, 300)};
  const SornVrng *srange = in.chance(128) ? ranges + 4 : nullptr;
  double offsets[4];
  for (double &o : offsets) o = in.chance(200) ? (double)in.range(-300, 300) : in.f64();

  // Multiply-accumulate: the third array (or the second constants), read
  // from what is left. Its record may be the destination's.
  Operand c;
  double c2vec[4];
  const SornArray *pc = nullptr;
  const SornVolume *croi = nullptr;
  SornVolume rc{};
  bool two_constants = false;
  if (mac) {
    build(c, decode_shape(in, kUsual, 4), px);
    rc = decode_roi(in, c.channels);
    const uint8_t how = in.u8();
    two_constants = constant && (how & 1);
    pc = (how & 2) ? &dst.rec : &c.rec;
    croi = (how & 4) ? &rc : nullptr;
    for (double &v : c2vec) v = in.chance(200) ? (double)in.range(-300, 300) : in.f64();
    if (!constant) records_good = records_good && matches(*pc, dst.rec);
    if (constant && !two_constants) records_good = records_good && matches(*pb, dst.rec);
  }
  const std::vector<uint8_t> c0 = mac ? c.snapshot() : std::vector<uint8_t>();
  if (mac && !constant) {
    st = fam.three(&env.xe, flags, &dst.rec, pa, pb, pc, dstroi, aroi, broi, croi, sf, extra);
  } else if (mac && !two_constants) {
    st = fam.threec(&env.xe, flags, &dst.rec, pa, pb, cv, dstroi, aroi, broi, sf, extra);
    if (records_good && cv == nullptr) FUZZ_CHECK(st == SORN_EINVAL);
  } else if (mac) {
    st = fam.threecc(&env.xe, flags, &dst.rec, pa, cv, c2vec, dstroi, aroi, sf, extra);
    if (records_good && cv == nullptr) FUZZ_CHECK(st == SORN_EINVAL);
  } else if (convert && constant) {
    st = SornConvert(&env.xe, flags, &dst.rec, pa, dstroi, aroi, cv,
                     in.chance(128) ? offsets : nullptr, srange);
  } else if (convert) {
    st = SornVConvert(&env.xe, flags, &dst.rec, pa, dstroi, aroi, in.chance(128) ? ranges : nullptr,
                      srange);
  } else if (constant) {
    st = fam.constant ? fam.constant(&env.xe, flags, &dst.rec, pa, cv, dstroi, aroi, sf, extra)
                      : fam.logicc(&env.xe, flags, &dst.rec, pa, cv, dstroi, aroi);
    if (records_good && cv == nullptr) FUZZ_CHECK(st == SORN_EINVAL);
  } else if (unary) {
    st = fam.one ? fam.one(&env.xe, flags, &dst.rec, pa, dstroi, aroi, sf, extra)
                 : fam.logic1(&env.xe, flags, &dst.rec, pa, dstroi, aroi);
  } else {
    st = fam.two ? fam.two(&env.xe, flags, &dst.rec, pa, pb, dstroi, aroi, broi, sf, extra)
                 : fam.logic2(&env.xe, flags, &dst.rec, pa, pb, dstroi, aroi, broi);
  }

  if (verbose()) std::fprintf(stderr, "status %lld\n", (long long)st);
  FUZZ_CHECK(is_status(st));
  if (!records_good) FUZZ_CHECK(st == SORN_EINVAL);
  if (st == SORN_OK) {
    FUZZ_CHECK(records_good && (dst.rec.ndims == 3 || convert));
    FUZZ_CHECK(types_have_kernels(fam.types, dst.rec.elemtype, ea.elemtype,
                                  with_b ? pb->elemtype : 0, with_b));
    if (mac && !two_constants) FUZZ_CHECK(kernel_type(pb->elemtype));
    if (mac && !constant) FUZZ_CHECK(kernel_type(pc->elemtype));
  }
  FUZZ_CHECK(same_level(before, env.level()));

  const std::vector<uint8_t> d1 = dst.snapshot();
  // A conversion of planes through the frame may fail in a later plane,
  // after earlier ones are written.
  if (st != SORN_OK && !(convert && dst.rec.ndims == 4)) {
    FUZZ_CHECK(d0 == d1);
  } else if (st == SORN_OK) {
    for (size_t i = 0; i < d1.size(); ++i)
      if (!dst.in_site(i)) FUZZ_CHECK(d0[i] == d1[i]);
  }
  if (!a_is_dst) FUZZ_CHECK(a0 == a.snapshot());
  if (!b_is_dst) FUZZ_CHECK(b0 == b.snapshot());
  if (mac) FUZZ_CHECK(c0 == c.snapshot());
  return 0;
}

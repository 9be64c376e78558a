// The logical operations: and, or, xor of two arrays and with constants,
// and the complement, from the kernels up through the dispatchers and the
// entries, against a plain per-element reference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arith_testing.h"
#include "muldiv_reference.h"
#include "testkit.h"

using arith_test::check_rows_padding;
using arith_test::fill_random;
using arith_test::kPack3;
using arith_test::Operand;
using sorn_test::Image;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

enum class LOp { And, Orr, Xor };

int64_t apply(LOp op, int64_t a, int64_t b) {
  return op == LOp::And ? (a & b) : op == LOp::Orr ? (a | b) : (a ^ b);
}

// Bit patterns of an element of type t as an unsigned number, and back.
int64_t bits(uint32_t t, double v) {
  const int64_t i = (int64_t)v;
  return t == SORN_U8 ? (i & 0xff) : t == SORN_S16 ? (i & 0xffff) : (i & 0xffffffffll);
}
double value(uint32_t t, int64_t b) {
  return t == SORN_U8 ? (double)(uint8_t)b : t == SORN_S16 ? (double)(int16_t)b : (double)(int32_t)b;
}

constexpr uint32_t code_u8 = SORN_U8, code_s16 = SORN_S16, code_s32 = SORN_S32;

struct LogicKernel {
  std::string name;
  LOp op;
  uint32_t t;
  SornLogic2Kernel kernel;
  SornLogicCKernel c1, c3, c4;
};
void PrintTo(const LogicKernel &k, std::ostream *os) { *os << k.name; }

std::vector<LogicKernel> logic_kernels() {
  std::vector<LogicKernel> v;
#define LK(t)                                                                                     \
  v.push_back({"and_" #t, LOp::And, code_##t, &sorna__and_c1_##t##t##t, &sorna__andC_c1_##t##t,   \
               &sorna__andC_c3_##t##t, &sorna__andC_c4_##t##t});                                  \
  v.push_back({"orr_" #t, LOp::Orr, code_##t, &sorna__orr_c1_##t##t##t, &sorna__orrC_c1_##t##t,   \
               &sorna__orrC_c3_##t##t, &sorna__orrC_c4_##t##t});                                  \
  v.push_back({"xor_" #t, LOp::Xor, code_##t, &sorna__xor_c1_##t##t##t, &sorna__xorC_c1_##t##t,   \
               &sorna__xorC_c3_##t##t, &sorna__xorC_c4_##t##t});
  SORN_LOGIC_TYPES(LK)
#undef LK
  return v;
}

using Dispatcher = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                  void *, const int32_t *, uint32_t, const void *,
                                  const int32_t *, uint32_t, const void *, const int32_t *);
Dispatcher dispatcher_of(LOp op) {
  return op == LOp::And ? &sorna__and : op == LOp::Orr ? &sorna__orr : &sorna__xor;
}
using Entry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const SornArray *, const SornVolume *, const SornVolume *,
                             const SornVolume *);
using EntryC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const double *, const SornVolume *, const SornVolume *);
Entry entry_of(LOp op) { return op == LOp::And ? &SornAnd : op == LOp::Orr ? &SornOrr : &SornXor; }
EntryC entry_c_of(LOp op) {
  return op == LOp::And ? &SornAndC : op == LOp::Orr ? &SornOrrC : &SornXorC;
}

class LogicKernelTest : public ::testing::TestWithParam<LogicKernel> {};

TEST_P(LogicKernelTest, DispatcherMatchesReferenceWithChannelsAndPadding) {
  const LogicKernel &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x10a0 + k.t * 4 + (int)k.op);
  for (int32_t ch = 1; ch <= 4; ++ch)
    for (int rep = 0; rep < 3; ++rep) {
      const int32_t rows = 1 + (int32_t)(rng() % 6), cols = 1 + (int32_t)(rng() % 45);
      Operand d(rows, cols, ch, k.t, 4 * (int32_t)(rng() % 3)), a(rows, cols, ch, k.t, 8),
          b(rows, cols, ch, k.t, 0);
      fill_random(rng, a.img);
      fill_random(rng, b.img);
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {rows, cols, ch};
      ASSERT_EQ(dispatcher_of(k.op)(nullptr, 0, kPack3, dims, k.t, d.base(), d.strides, k.t,
                                    a.base(), a.strides, k.t, b.base(), b.strides),
                SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const double e =
                value(k.t, apply(k.op, bits(k.t, a.img.get(y, x, c)), bits(k.t, b.img.get(y, x, c))));
            ASSERT_EQ(d.img.get(y, x, c), e) << k.name << " at " << y << "," << x << "," << c;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
}

TEST_P(LogicKernelTest, ConstantKernelsCycleOneConstantPerChannel) {
  const LogicKernel &k = GetParam();
  auto rng = sorn_test::seeded_rng(0x10a1 + k.t * 4 + (int)k.op);
  const std::vector<double> consts = {0,      1,      -1,         255,  256,  300, -300,
                                      32767,  -32767, -32768,     1e10, -1e10, 2.5, 3.5,
                                      -2.5,   NAN,    65535,      2147483647.0, -2147483648.0,
                                      0x55aa, 127.49, -32766.5};
  for (int32_t ch : {1, 3, 4}) {
    SornLogicCKernel kc = ch == 1 ? k.c1 : ch == 3 ? k.c3 : k.c4;
    for (int rep = 0; rep < 12; ++rep) {
      const int32_t rows = 1 + (int32_t)(rng() % 4), cols = 1 + (int32_t)(rng() % 37);
      Operand d(rows, cols, ch, k.t, 4), a(rows, cols, ch, k.t, 8);
      fill_random(rng, a.img);
      double cv[4];
      for (double &c : cv) c = consts[rng() % consts.size()];
      const std::vector<uint8_t> before = d.img.bytes_copy();
      int32_t dims[3] = {rows, cols, ch};
      ASSERT_EQ(kc(nullptr, 0, 3, dims, d.base(), d.strides, a.base(), a.strides, cv, 0), SORN_OK);
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            // A c1 kernel uses the first constant only.
            const int64_t kb = bits(k.t, (double)muldiv_ref::logic_constant(k.t, cv[ch == 1 ? 0 : c]));
            const double e = value(k.t, apply(k.op, bits(k.t, a.img.get(y, x, c)), kb));
            ASSERT_EQ(d.img.get(y, x, c), e)
                << k.name << " c" << ch << " constant " << cv[c] << " at " << y << "," << x;
          }
      check_rows_padding(d.img, before);
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllTypes, LogicKernelTest, ::testing::ValuesIn(logic_kernels()),
                         [](const ::testing::TestParamInfo<LogicKernel> &i) { return i.param.name; });

TEST(LogicU8, EveryPairOfEveryOperator) {
  Image a(256, 256, 1, SORN_U8), b(256, 256, 1, SORN_U8), d(256, 256, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)x;
    }
  int32_t dims[3] = {256, 256, 1}, s[3] = {256, 1, 1};
  for (const LogicKernel &k : logic_kernels()) {
    if (k.t != SORN_U8) continue;
    ASSERT_EQ(k.kernel(nullptr, 0, 3, dims, d.base(), s, a.base(), s, b.base(), s), SORN_OK);
    for (int32_t y = 0; y < 256; ++y)
      for (int32_t x = 0; x < 256; ++x)
        ASSERT_EQ(d.at<uint8_t>(y, x), apply(k.op, y, x)) << k.name << " " << y << ", " << x;
    ASSERT_TRUE(d.guards_intact());
  }
}

TEST(LogicNot, EveryValueOfU8AndS16AndRandomS32) {
  auto rng = sorn_test::seeded_rng(0x10a2);
  for (uint32_t t : {SORN_U8, SORN_S16, SORN_S32}) {
    const int32_t count = t == SORN_U8 ? 256 : 65536;
    Operand a(1, count, 1, t, 0), d(1, count, 1, t, 4);
    for (int32_t x = 0; x < count; ++x)
      a.img.set(0, x, 0, t == SORN_U8 ? x : t == SORN_S16 ? x - 32768 : sorn_test::random_value(rng, t, true));
    int32_t dims[3] = {1, count, 1};
    SornLogic1Kernel k = t == SORN_U8 ? &sorna__not_c1_u8u8 : t == SORN_S16 ? &sorna__not_c1_s16s16 : &sorna__not_c1_s32s32;
    ASSERT_EQ(k(nullptr, 0, 3, dims, d.base(), d.strides, a.base(), a.strides), SORN_OK);
    for (int32_t x = 0; x < count; ++x)
      ASSERT_EQ(d.img.get(0, x), value(t, ~bits(t, a.img.get(0, x)))) << t << " " << x;
    ASSERT_TRUE(d.img.guards_intact());
  }
}

// --- lookups ----------------------------------------------------------------

TEST(LogicLookup, SingleTypeKeysOnly) {
  SornStatus st = 1;
  for (const LogicKernel &k : logic_kernels()) {
    auto lookup = k.op == LOp::And ? &sorna__landfun_imp : k.op == LOp::Orr ? &sorna__lorrfun_imp : &sorna__lxorfun_imp;
    auto lookupc = k.op == LOp::And ? &sorna__landcfun_imp : k.op == LOp::Orr ? &sorna__lorrcfun_imp : &sorna__lxorcfun_imp;
    EXPECT_EQ(lookup(k.t, k.t, k.t, &st), k.kernel);
    EXPECT_EQ(st, SORN_OK);
    EXPECT_EQ(lookupc(k.t, k.t, 1, &st), k.c1);
    EXPECT_EQ(lookupc(k.t, k.t, 3, &st), k.c3);
    EXPECT_EQ(lookupc(k.t, k.t, 4, &st), k.c4);
    EXPECT_EQ(st, SORN_OK);
    lookup(k.t, k.t, SORN_F32, &st);
    EXPECT_EQ(st, SORN_ENOTSUP);
    lookup(SORN_S16, SORN_U8, SORN_U8, &st);
    EXPECT_EQ(st, SORN_ENOTSUP);
    lookup(k.t, k.t, 5, &st);
    EXPECT_EQ(st, SORN_EINVAL);
    for (int32_t c : {0, 2, 5, 11, -1}) {
      lookupc(k.t, k.t, c, &st);
      EXPECT_EQ(st, SORN_EINVAL) << "count " << c;
    }
    lookupc(SORN_F32, SORN_F32, 1, &st);
    EXPECT_EQ(st, SORN_ENOTSUP);
    lookupc(SORN_U8, SORN_S16, 4, &st);
    EXPECT_EQ(st, SORN_ENOTSUP);
    lookupc(7, SORN_U8, 1, &st);
    EXPECT_EQ(st, SORN_EINVAL);
  }
  EXPECT_EQ(sorna__lnotfun_imp(SORN_U8, SORN_U8, &st), &sorna__not_c1_u8u8);
  EXPECT_EQ(sorna__lnotfun_imp(SORN_S16, SORN_S16, &st), &sorna__not_c1_s16s16);
  EXPECT_EQ(sorna__lnotfun_imp(SORN_S32, SORN_S32, &st), &sorna__not_c1_s32s32);
  EXPECT_EQ(st, SORN_OK);
  sorna__lnotfun_imp(SORN_U8, SORN_S16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__lnotfun_imp(SORN_F64, SORN_F64, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__lnotfun_imp(6, 6, &st);
  EXPECT_EQ(st, SORN_EINVAL);
}

// --- the entries ------------------------------------------------------------

TEST(Logic, EveryOperatorAndTypeWithRoisThroughTheEntries) {
  auto rng = sorn_test::seeded_rng(0x10a3);
  for (const LogicKernel &k : logic_kernels())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      Image d(6, 9, ch, k.t, 4, 0x3c), a(7, 8, ch, k.t, 8), b(5, 10, ch, k.t, 0);
      fill_random(rng, a);
      fill_random(rng, b);
      const std::vector<uint8_t> before = d.bytes_copy();
      SornArray rd = d.record(), ra = a.record(), rb = b.record();
      // The destination's region decides; b offers a start and bounds it,
      // a offers a start only.
      const SornVolume dr = make_roi(1, 2, 4, 6, ch), ar = make_roi(2, 0, 0, 0, ch),
                       br = make_roi(0, 3, 0, 0, ch);
      ASSERT_EQ(entry_of(k.op)(nullptr, 0, &rd, &ra, &rb, &dr, &ar, &br), SORN_OK);
      for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 9; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const bool inside = y >= 1 && y < 5 && x >= 2 && x < 8;
            const size_t off = (size_t)y * d.rowstride() + ((size_t)x * ch + c) * d.esize();
            if (!inside) {
              ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
              continue;
            }
            const int64_t va = bits(k.t, a.get(y + 1, x - 2, c)), vb = bits(k.t, b.get(y - 1, x + 1, c));
            ASSERT_EQ(d.get(y, x, c), value(k.t, apply(k.op, va, vb))) << k.name;
          }
      ASSERT_TRUE(d.guards_intact());
    }
}

TEST(Logic, ConstantFormsThroughTheEntries) {
  auto rng = sorn_test::seeded_rng(0x10a4);
  for (const LogicKernel &k : logic_kernels())
    for (int32_t ch : {1, 3, 4}) {
      Image d(5, 7, ch, k.t, 4, 0x3c), a(5, 7, ch, k.t, 8);
      fill_random(rng, a);
      const double cv[4] = {300, -1, 0x5a5a, -40000};
      SornArray rd = d.record(), ra = a.record();
      ASSERT_EQ(entry_c_of(k.op)(nullptr, 0, &rd, &ra, cv, nullptr, nullptr), SORN_OK);
      for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x)
          for (int32_t c = 0; c < ch; ++c) {
            const int64_t kb = bits(k.t, (double)muldiv_ref::logic_constant(k.t, cv[ch == 1 ? 0 : c]));
            ASSERT_EQ(d.get(y, x, c), value(k.t, apply(k.op, bits(k.t, a.get(y, x, c)), kb)))
                << k.name << " c" << ch;
          }
      ASSERT_TRUE(d.guards_intact());
    }
}

TEST(LogicC, U8ConstantsAreRoundedAndClampedOncePerCall) {
  Image a(1, 4, 1, SORN_U8), d(1, 4, 1, SORN_U8);
  for (int32_t x = 0; x < 4; ++x) a.set(0, x, 0, 0xff);
  SornArray rd = d.record(), ra = a.record();
  auto and_with = [&](double c) {
    EXPECT_EQ(SornAndC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr), SORN_OK);
    return d.get(0, 3);
  };
  EXPECT_EQ(and_with(300), 255);
  EXPECT_EQ(and_with(-1), 0);
  EXPECT_EQ(and_with(2.5), 2) << "rint: ties to even";
  EXPECT_EQ(and_with(3.5), 4);
  // Far outside 32 bits the conversion gives 0x80000000 before the clamp:
  // the reading kept for every constant of the library, here giving 0.
  EXPECT_EQ(and_with(1e10), 0);
  EXPECT_EQ(and_with(-1e10), 0);
  EXPECT_EQ(and_with(NAN), 0);
}

TEST(LogicC, S16ConstantsFromMinus32767DownAreMinus32768) {
  Image a(1, 1, 1, SORN_S16), d(1, 1, 1, SORN_S16);
  a.set(0, 0, 0, -1);
  SornArray rd = d.record(), ra = a.record();
  auto and_with = [&](double c) {
    EXPECT_EQ(SornAndC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr), SORN_OK);
    return d.get(0, 0);
  };
  EXPECT_EQ(and_with(-32766), -32766);
  EXPECT_EQ(and_with(-32767), -32768);
  EXPECT_EQ(and_with(-32767.4), -32768);
  EXPECT_EQ(and_with(-1e6), -32768);
  EXPECT_EQ(and_with(40000), 32767);
}

TEST(LogicC, S32ConstantsAreTheConversionsValue) {
  Image a(1, 1, 1, SORN_S32), d(1, 1, 1, SORN_S32);
  a.set(0, 0, 0, -1);
  SornArray rd = d.record(), ra = a.record();
  auto and_with = [&](double c) {
    EXPECT_EQ(SornAndC(nullptr, 0, &rd, &ra, &c, nullptr, nullptr), SORN_OK);
    return d.get(0, 0);
  };
  EXPECT_EQ(and_with(123456789.5), 123456790);
  EXPECT_EQ(and_with(3e9), -2147483648.0);
  EXPECT_EQ(and_with(NAN), -2147483648.0);
}

TEST(LogicFailures, TheEdgeCases) {
  Image du(3, 4, 1, SORN_U8, 0, 7), au(3, 4, 1, SORN_U8), as(3, 4, 1, SORN_S16);
  const std::vector<uint8_t> before = du.bytes_copy();
  SornArray rd = du.record(), ra = au.record(), rs = as.record();
  // Only single-type keys exist.
  EXPECT_EQ(SornAnd(nullptr, 0, &rd, &ra, &rs, nullptr, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornXor(nullptr, 0, &rd, &rs, &ra, nullptr, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornNot(nullptr, 0, &rd, &rs, nullptr, nullptr), SORN_ENOTSUP);
  // Two channels have no constant kernels: invalid.
  Image d2(3, 4, 2, SORN_U8, 0, 7), a2(3, 4, 2, SORN_U8);
  const std::vector<uint8_t> before2 = d2.bytes_copy();
  SornArray rd2 = d2.record(), ra2 = a2.record();
  const double c[4] = {1, 2, 3, 4};
  EXPECT_EQ(SornAndC(nullptr, 0, &rd2, &ra2, c, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(d2.bytes_copy(), before2);
  // f32 has no kernels.
  Image df(3, 4, 1, SORN_F32, 0, 7), af(3, 4, 1, SORN_F32);
  SornArray rdf = df.record(), raf = af.record();
  EXPECT_EQ(SornXorC(nullptr, 0, &rdf, &raf, c, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornOrr(nullptr, 0, &rdf, &raf, &raf, nullptr, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornNot(nullptr, 0, &rdf, &raf, nullptr, nullptr), SORN_ENOTSUP);
  // Records, regions, tags, a null constant vector.
  SornArray bad = rd;
  bad.ndims = 5;
  EXPECT_EQ(SornAnd(nullptr, 0, &bad, &ra, &ra, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornAnd(nullptr, 0, &rd, &ra, &rd2, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornNot(nullptr, 0, &bad, &ra, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornAndC(nullptr, 0, &rd, &ra, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(_T_SornLogic2(SORN_FOURCC('a', 'n', 'o', 't'), nullptr, 0, &rd, &ra, &ra, nullptr,
                          nullptr, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(_T_SornLogic2c(SORN_FOURCC('a', 'a', 'd', 'd'), nullptr, 0, &rd, &ra, c, nullptr,
                           nullptr),
            SORN_EINVAL);
  const SornVolume far = make_roi(3, 0, 1, 1, 1);
  EXPECT_EQ(SornOrr(nullptr, 0, &rd, &ra, &ra, &far, nullptr, nullptr), SORN_ENOSPC);
  EXPECT_EQ(SornOrrC(nullptr, 0, &rd, &ra, c, &far, nullptr), SORN_ENOSPC);
  EXPECT_EQ(SornNot(nullptr, 0, &rd, &ra, &far, nullptr), SORN_ENOSPC);
  EXPECT_EQ(du.bytes_copy(), before);
  // Four dimensions, after the region checks.
  std::vector<uint8_t> buf(2 * 3 * 4, 9);
  SornArray d4 = make_record4(buf.data(), 2, 3, 4, 1, SORN_U8, 12, 4);
  EXPECT_EQ(SornAnd(nullptr, 0, &d4, &d4, &d4, nullptr, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornAndC(nullptr, 0, &d4, nullptr, c, nullptr, nullptr), SORN_ENOTSUP);
  EXPECT_EQ(SornNot(nullptr, 0, &d4, nullptr, nullptr, nullptr), SORN_ENOTSUP);
  const SornVolume empty = make_roi(9, 0, 1, 1, 1);
  EXPECT_EQ(SornNot(nullptr, 0, &d4, nullptr, &empty, nullptr), SORN_ENOSPC);
  for (uint8_t v : buf) EXPECT_EQ(v, 9);
}

TEST(LogicNot, NullSourceInvertsTheDestinationInPlace) {
  Image d(2, 3, 3, SORN_S16, 6, 0x12);
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 3; ++x)
      for (int32_t c = 0; c < 3; ++c) d.set(y, x, c, y * 1000 - x * 7 + c);
  const Image orig = d;
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record();
  ASSERT_EQ(SornNot(nullptr, 0, &rd, nullptr, nullptr, nullptr), SORN_OK);
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 3; ++x)
      for (int32_t c = 0; c < 3; ++c) EXPECT_EQ(d.get(y, x, c), -orig.get(y, x, c) - 1);
  check_rows_padding(d, before);
}

TEST(Logic, InPlaceOverEitherSource) {
  auto rng = sorn_test::seeded_rng(0x10a5);
  Image a(4, 33, 2, SORN_S32, 8), b(4, 33, 2, SORN_S32, 0);
  fill_random(rng, a);
  fill_random(rng, b);
  const Image ia = a, ib = b;
  SornArray ra = a.record(), rb = b.record();
  ASSERT_EQ(SornXor(nullptr, 0, &ra, &ra, &rb, nullptr, nullptr, nullptr), SORN_OK);
  ASSERT_EQ(SornAnd(nullptr, 0, &rb, &ra, &rb, nullptr, nullptr, nullptr), SORN_OK);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 33; ++x)
      for (int32_t c = 0; c < 2; ++c) {
        const int64_t x1 = bits(SORN_S32, ia.get(y, x, c)) ^ bits(SORN_S32, ib.get(y, x, c));
        EXPECT_EQ(a.get(y, x, c), value(SORN_S32, x1));
        EXPECT_EQ(b.get(y, x, c), value(SORN_S32, x1 & bits(SORN_S32, ib.get(y, x, c))));
      }
}

}  // namespace

// Worked values, the failure table, and the lookup of kernels.
#include "mul_ref.h"

using namespace mul_test;
using sorn_test::make_record;
using sorn_test::make_roi;

namespace {

// A 1 by K times K by 1 product of the given values; answers the status and
// the single result.
SornStatus dot1(uint32_t dt, uint32_t st, std::vector<double> a, std::vector<double> b,
                int32_t shift, double *out) {
  const int32_t K = (int32_t)a.size();
  Image A(1, K, 1, st), B(K, 1, 1, st), D(1, 1, 1, dt);
  for (int32_t k = 0; k < K; ++k) {
    A.set(0, k, 0, a[k]);
    B.set(k, 0, 0, b[k]);
  }
  const SornArray ra = A.record(), rb = B.record(), rd = D.record();
  Env env;
  const SornStatus s = SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, shift, 0);
  EXPECT_TRUE(env.at_mark());
  *out = D.get(0, 0);
  return s;
}

}  // namespace

TEST(MulMM, OneByOneByOneIsOneProduct) {
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_F32, SORN_F32, {3.0}, {-4.5}, 0, &r));
  EXPECT_EQ(-13.5, r);
  ASSERT_EQ(SORN_OK, dot1(SORN_S32, SORN_S32, {-7}, {6}, 0, &r));
  EXPECT_EQ(-42, r);
}

TEST(MulMMU8, SaturatesAtShiftZero) {
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {16}, {16}, 0, &r));
  EXPECT_EQ(255, r);
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {15}, {17}, 0, &r));
  EXPECT_EQ(255, r);
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {0}, {200}, 0, &r));
  EXPECT_EQ(0, r);
}

TEST(MulMMU8, NegativeShiftRoundsHalvesToEven) {
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {3}, {1}, -1, &r));
  EXPECT_EQ(2, r);  // 1.5
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {5}, {1}, -1, &r));
  EXPECT_EQ(2, r);  // 2.5
}

TEST(MulMMU8, LeftShiftThatWrapsBelowOneGivesZero) {
  double r;
  // 1 << 31 is negative in 32 bits.
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {1}, {1}, 31, &r));
  EXPECT_EQ(0, r);
  ASSERT_EQ(SORN_OK, dot1(SORN_U8, SORN_U8, {1}, {1}, 7, &r));
  EXPECT_EQ(128, r);
}

TEST(MulMMS16, ManyTermsSaturateAt32767) {
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_S16, SORN_U8, std::vector<double>(100, 255), std::vector<double>(100, 255), 0, &r));
  EXPECT_EQ(32767, r);
}

TEST(MulMMS16, OnlyTheTopIsClamped) {
  // 131073 << 14 wraps to 0x80004000: below the top, so it is not clamped,
  // and its low 16 bits remain.
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_S16, SORN_U8, {255, 255, 31}, {255, 255, 33}, 14, &r));
  EXPECT_EQ(16384, r);
}

TEST(MulMMS32, SumsWrapUnlessTheShiftIsNegative) {
  double r;
  const double big = 1073741824.0;  // 2^30
  ASSERT_EQ(SORN_OK, dot1(SORN_S32, SORN_S32, {big, big}, {2, 2}, 0, &r));
  EXPECT_EQ(0, r);  // 2^32 wraps to 0
  ASSERT_EQ(SORN_OK, dot1(SORN_S32, SORN_S32, {big, big}, {2, 2}, -2, &r));
  EXPECT_EQ(big, r);  // 2^32 / 4 in f64
}

TEST(MulMMS32, ShiftOfMinus31ScalesByANegativePowerOfTwo) {
  // 1 << 31 is the lowest int, so the scale is -2^-31.
  double r;
  ASSERT_EQ(SORN_OK, dot1(SORN_S32, SORN_S32, {1073741824.0}, {4}, -31, &r));
  EXPECT_EQ(-2, r);
}

TEST(MulMM, KOfFiveWithOneRowAndWithTwo) {
  for (int32_t M : {1, 2}) {
    Image A(M, 5, 1, SORN_F32), B(5, 6, 1, SORN_F32), D(M, 6, 1, SORN_F32);
    for (int32_t i = 0; i < M; ++i)
      for (int32_t k = 0; k < 5; ++k) A.set(i, k, 0, i + k + 1);
    for (int32_t k = 0; k < 5; ++k)
      for (int32_t j = 0; j < 6; ++j) B.set(k, j, 0, k - j);
    const SornArray ra = A.record(), rb = B.record(), rd = D.record();
    Env env;
    ASSERT_EQ(SORN_OK, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
    for (int32_t i = 0; i < M; ++i)
      for (int32_t j = 0; j < 6; ++j) {
        double s = 0;
        for (int32_t k = 0; k < 5; ++k) s += (i + k + 1) * (k - j);
        EXPECT_EQ(s, D.get(i, j)) << M << " rows";
      }
  }
}

TEST(MulMM, DestinationWithFewerRowsComputesOnlyThose) {
  Image A(5, 3, 1, SORN_S32), B(3, 2, 1, SORN_S32), D(2, 2, 1, SORN_S32);
  for (int32_t i = 0; i < 5; ++i)
    for (int32_t k = 0; k < 3; ++k) A.set(i, k, 0, i * 3 + k);
  for (int32_t k = 0; k < 3; ++k)
    for (int32_t j = 0; j < 2; ++j) B.set(k, j, 0, k + j);
  const SornArray ra = A.record(), rb = B.record(), rd = D.record();
  Env env;
  ASSERT_EQ(SORN_OK, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
  for (int32_t i = 0; i < 2; ++i)
    for (int32_t j = 0; j < 2; ++j) {
      double s = 0;
      for (int32_t k = 0; k < 3; ++k) s += (i * 3 + k) * (k + j);
      EXPECT_EQ(s, D.get(i, j));
    }
  EXPECT_TRUE(D.guards_intact());
}

TEST(MulMM, NullFirstSourceIsTheDestination) {
  Image B(1, 1, 1, SORN_F32), D(1, 1, 1, SORN_F32);
  B.set(0, 0, 0, 2.0);
  D.set(0, 0, 0, 3.0);
  const SornArray rb = B.record(), rd = D.record();
  Env env;
  ASSERT_EQ(SORN_OK, SornMulMM(&env.xe, 0, &rd, nullptr, &rb, nullptr, nullptr, nullptr, 0, 0));
  EXPECT_EQ(6.0, D.get(0, 0));
}

TEST(MulMM, DeeperSourcesUseTheirFirstPlane) {
  std::vector<float> a(2 * 2, 1.0f), b(2 * 2, 1.0f);
  a[1] = 5.0f;  // a second plane that must not count
  SornArray ra = sorn_test::make_record(a.data(), 1, 1, 1, SORN_F32, 4);
  ra.dims[0] = 2; ra.bounds[0] = 2; ra.strides[0] = 4;
  SornArray rb = sorn_test::make_record(b.data(), 1, 1, 1, SORN_F32, 4);
  float d[2] = {0, 0};
  SornArray rd = sorn_test::make_record(d, 1, 1, 1, SORN_F32, 4);
  rd.dims[0] = 2; rd.bounds[0] = 2; rd.strides[0] = 4;
  Env env;
  ASSERT_EQ(SORN_OK, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
  EXPECT_EQ(1.0f, d[0]);
  EXPECT_EQ(0.0f, d[1]);
}

// ---------------------------------------------------------------- failures

namespace {

struct Operands {
  Image A{3, 4, 1, SORN_F32}, B{4, 5, 1, SORN_F32}, D{3, 5, 1, SORN_F32, 0, 0x77};
  SornArray ra = A.record(), rb = B.record(), rd = D.record();
};

void expect_fails(SornStatus want, Operands &o, const SornVolume *roiD = nullptr,
                  const SornVolume *roiA = nullptr, SornFlags flags = 0) {
  const auto before = o.D.bytes_copy();
  Env env;
  EXPECT_EQ(want, SornMulMM(&env.xe, flags, &o.rd, &o.ra, &o.rb, roiD, roiA, nullptr, 0, 0));
  EXPECT_TRUE(env.at_mark());
  EXPECT_EQ(before, o.D.bytes_copy()) << "written on failure";
  EXPECT_TRUE(o.D.guards_intact());
}

}  // namespace

TEST(MulMMFails, BadRecordsAreInvalid) {
  { Operands o; o.rd.ndims = 4; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.rd.dims[0] = 0; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.rd.dims[3] = 0; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.rd.dims[3] = 5; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.ra.ndims = 4; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.rb.ndims = 2; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.ra.dims[0] = 2; expect_fails(SORN_EINVAL, o); }
  { Operands o; o.rb.dims[3] = 2; expect_fails(SORN_EINVAL, o); }
  {
    Operands o;
    Env env;
    EXPECT_EQ(SORN_EINVAL, SornMulMM(&env.xe, 0, &o.rd, &o.ra, nullptr, nullptr, nullptr, nullptr, 0, 0));
    EXPECT_EQ(SORN_EINVAL, SornMulMM(&env.xe, 0, nullptr, &o.ra, &o.rb, nullptr, nullptr, nullptr, 0, 0));
  }
}

TEST(MulMMFails, EmptyRoiHasNoSpace) {
  Operands o;
  const SornVolume empty = make_roi(0, 0, 0, 5, 1);
  expect_fails(SORN_ENOSPC, o, &empty);
  const SornVolume outside = make_roi(0, 9, 3, 2, 1);
  expect_fails(SORN_ENOSPC, o, nullptr, &outside);
}

TEST(MulMMFails, BadRecordComesBeforeEmptyRoi) {
  Operands o;
  o.rb.ndims = 4;
  const SornVolume empty = make_roi(0, 0, 0, 5, 1);
  expect_fails(SORN_EINVAL, o, &empty);
}

TEST(MulMMFails, ThreeChannelsAreNotSupported) {
  Image A(2, 6, 3, SORN_F32), B(2, 2, 3, SORN_F32), D(2, 2, 3, SORN_F32, 0, 0x11);
  const SornArray ra = A.record(), rb = B.record(), rd = D.record();
  const auto before = D.bytes_copy();
  Env env;
  EXPECT_EQ(SORN_ENOTSUP, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
  EXPECT_EQ(before, D.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(MulMMFails, TriplesWithoutKernelAreNotSupported) {
  const uint32_t bad[][3] = {{SORN_U8, SORN_S16, SORN_S16}, {SORN_F32, SORN_U8, SORN_U8},
                             {SORN_S32, SORN_U8, SORN_F32}, {SORN_S16, SORN_S16, SORN_S16},
                             {SORN_F64, SORN_F64, SORN_F64}, {SORN_U16, SORN_U8, SORN_U8}};
  for (const auto &t : bad) {
    Image A(2, 2, 1, t[1]), B(2, 2, 1, t[2]), D(2, 2, 1, t[0], 0, 0x22);
    const SornArray ra = A.record(), rb = B.record(), rd = D.record();
    const auto before = D.bytes_copy();
    Env env;
    EXPECT_EQ(SORN_ENOTSUP, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0));
    EXPECT_EQ(before, D.bytes_copy());
  }
}

TEST(MulMMFails, UnknownTypeCodesAreInvalid) {
  for (uint32_t code : {5u, 6u, 7u, 8u, 0u}) {
    float a[4] = {}, b[4] = {}, d[4] = {7, 7, 7, 7};
    SornArray ra = make_record(a, 2, 2, 1, SORN_F32, 8), rb = make_record(b, 2, 2, 1, SORN_F32, 8);
    SornArray rd = make_record(d, 2, 2, 1, SORN_F32, 8);
    ra.elemtype = code;
    Env env;
    EXPECT_EQ(SORN_EINVAL, SornMulMM(&env.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0)) << code;
    EXPECT_EQ(7.0f, d[0]);
  }
}

// ---------------------------------------------------------------- lookups

TEST(MulLookup, EveryTripleOfTheTableHasAKernel) {
  for (const Pair &p : all_pairs()) {
    SornStatus st = 1;
    EXPECT_NE(nullptr, (void *)sorna__amulmmfun_imp(p.dst, p.src, p.src, &st));
    EXPECT_EQ(SORN_OK, st) << p.name;
    st = 1;
    EXPECT_NE(nullptr, (void *)sorna__amulmvnfun_imp(p.dst, p.src, p.src, &st));
    EXPECT_EQ(SORN_OK, st) << p.name;
  }
}

TEST(MulLookup, OthersGetStubsThatAnswerTheirStatus) {
  SornStatus st = 0;
  SornMulMMKernel k = sorna__amulmmfun_imp(SORN_U8, SORN_S8, SORN_S8, &st);
  EXPECT_EQ(SORN_ENOTSUP, st);
  EXPECT_EQ(SORN_ENOTSUP, k(nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, 0, 0));
  SornMulMVnKernel kv = sorna__amulmvnfun_imp(SORN_U8, 5, SORN_U8, &st);
  EXPECT_EQ(SORN_EINVAL, st);
  EXPECT_EQ(SORN_EINVAL, kv(nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, 0, 0, 0));
  sorna__amulmmfun_imp(SORN_U8, SORN_U8, 16, &st);
  EXPECT_EQ(SORN_EINVAL, st);
}

TEST(MulDispatch, MoreThanOneChannelIsNotSupported) {
  const int32_t dims1[3] = {2, 2, 2}, dims2[3] = {2, 2, 2}, strides[3] = {16, 8, 4};
  float buf[16] = {};
  EXPECT_EQ(SORN_ENOTSUP, sorna__mulmm(nullptr, 0, 0x413, dims1, dims2, SORN_F32, buf, strides,
                                       SORN_F32, buf, strides, SORN_F32, buf, strides, 0, 0));
  const void *list[1] = {buf};
  EXPECT_EQ(SORN_ENOTSUP, sorna__mulmvn(nullptr, 0, 0x413, dims1, dims2, SORN_F32, buf, strides,
                                        SORN_F32, buf, strides, SORN_F32, list, strides, 1, 0, 0));
}

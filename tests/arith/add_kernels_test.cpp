// The add kernels, their lookup and the dispatcher, called below the entry
// point with hand-made dimension and stride vectors.
#include <gtest/gtest.h>

#include <cstring>

#include "add_reference.h"
#include "testkit.h"

using sorn_test::Image;

namespace {

constexpr SornDimPack kPack3 = SORN_DIMPACK(3);

// One row-major block of rows x cols x ch elements inside a guarded image,
// handed to the dispatcher as the layers above would: dims end in the
// channel count, strides are plane-less (3 cells).
struct Operand {
  Image img;
  int32_t strides[3];
  Operand(int32_t rows, int32_t cols, int32_t ch, uint32_t t, int32_t pad)
      : img(rows, cols, ch, t, pad, 0x5c) {
    strides[0] = img.rowstride();
    strides[1] = ch * img.esize();
    strides[2] = img.esize();
  }
};

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

// Runs dst = a + b through sorna__add on random data and compares every
// element, padding and guards included.
void check_dispatch(std::mt19937_64 &rng, const add_ref::Triple &t, int32_t sf, int32_t rows,
                    int32_t cols, int32_t ch, bool exchange) {
  const int32_t pad = 4 * (int32_t)(rng() % 3);
  Operand d(rows, cols, ch, t.dst, pad), a(rows, cols, ch, t.a, pad + 4), b(rows, cols, ch, t.b, 0);
  fill_random(rng, a.img);
  fill_random(rng, b.img);
  const std::vector<uint8_t> before = d.img.bytes_copy();
  int32_t dims[3] = {rows, cols, ch};
  SornStatus st;
  if (!exchange)
    st = sorna__add(nullptr, 0, kPack3, dims, t.dst, d.img.base(), d.strides, t.a, a.img.base(),
                    a.strides, t.b, b.img.base(), b.strides, sf, 0);
  else
    st = sorna__add(nullptr, 0, kPack3, dims, t.dst, d.img.base(), d.strides, t.b, b.img.base(),
                    b.strides, t.a, a.img.base(), a.strides, sf, 0);
  ASSERT_EQ(st, SORN_OK) << t.name << " sf " << sf;
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x)
      for (int32_t c = 0; c < ch; ++c) {
        const double va = a.img.get(y, x, c), vb = b.img.get(y, x, c);
        const double e = add_ref::expected(t.dst, t.a, t.b, va, vb, sf);
        const double g = d.img.get(y, x, c);
        ASSERT_TRUE(add_ref::same(t.dst, e, g))
            << t.name << " sf " << sf << " at " << y << "," << x << "," << c << ": " << va
            << " + " << vb << " gave " << g << ", expected " << e;
      }
  // Row padding is not part of the rows the kernel writes.
  const std::vector<uint8_t> after = d.img.bytes_copy();
  const size_t row_bytes = (size_t)cols * ch * d.img.esize();
  for (int32_t y = 0; y < rows; ++y)
    for (size_t i = row_bytes; i < (size_t)d.img.rowstride(); ++i)
      ASSERT_EQ(after[y * d.img.rowstride() + i], before[y * d.img.rowstride() + i]);
  ASSERT_TRUE(d.img.guards_intact());
}

class AddKernelTriple : public ::testing::TestWithParam<add_ref::Triple> {};

TEST_P(AddKernelTriple, MatchesReferenceForEveryScaleAndChannelCount) {
  const add_ref::Triple &t = GetParam();
  auto rng = sorn_test::seeded_rng(0xadd0 + t.dst * 256 + t.a * 16 + t.b);
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      const int32_t rows = 1 + (int32_t)(rng() % 5), cols = 1 + (int32_t)(rng() % 23);
      check_dispatch(rng, t, sf, rows, cols, ch, false);
      if (HasFatalFailure()) return;
    }
}

TEST_P(AddKernelTriple, LookupGivesTheNamedKernel) {
  const add_ref::Triple &t = GetParam();
  SornStatus st = 12345;
  EXPECT_EQ(sorna__aaddfun_imp(t.dst, t.a, t.b, &st), t.kernel);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(sorna__aaddfun_imp(t.dst, t.a, t.b, nullptr), t.kernel);
}

INSTANTIATE_TEST_SUITE_P(AllTriples, AddKernelTriple, ::testing::ValuesIn(add_ref::add_triples()),
                         [](const ::testing::TestParamInfo<add_ref::Triple> &i) { return i.param.name; });

TEST(AddDispatch, GivesTheSameWithSourcesExchanged) {
  auto rng = sorn_test::seeded_rng(0xadd1);
  for (const add_ref::Triple &t : add_ref::add_triples()) {
    if (t.a == t.b) continue;
    SCOPED_TRACE(t.name);
    for (int32_t sf : {0, 1, -1})
      for (int32_t ch = 1; ch <= 4; ch += 3) {
        check_dispatch(rng, t, sf, 3, 17, ch, true);
        if (HasFatalFailure()) return;
      }
  }
}

// The destination may be exactly a source: each element is read before it
// is written.
void check_in_place(std::mt19937_64 &rng, const add_ref::Triple &t, bool over_a, int32_t sf) {
  Operand a(4, 33, 2, t.a, 8), b(4, 33, 2, t.b, over_a ? 0 : 8);
  fill_random(rng, a.img);
  fill_random(rng, b.img);
  const Image ia = a.img, ib = b.img;
  Operand &d = over_a ? a : b;
  int32_t dims[3] = {4, 33, 2};
  ASSERT_EQ(t.kernel(nullptr, 0, 3, dims, d.img.base(), d.strides, a.img.base(), a.strides,
                     b.img.base(), b.strides, sf, 0),
            SORN_OK);
  // The kernel takes dims as they come: 4 rows of 33 adjacent elements.
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 66; ++x) {
      const double va = ia.get(y, x / 2, x % 2), vb = ib.get(y, x / 2, x % 2);
      const double e = x < 33 ? add_ref::expected(t.dst, t.a, t.b, va, vb, sf) : (over_a ? va : vb);
      ASSERT_TRUE(add_ref::same(t.dst, e, d.img.get(y, x / 2, x % 2)))
          << t.name << " sf " << sf << " at " << y << "," << x;
    }
  ASSERT_TRUE(d.img.guards_intact());
}

TEST(AddKernel, WritesInPlaceOverEitherSource) {
  auto rng = sorn_test::seeded_rng(0xadd2);
  for (const add_ref::Triple &t : add_ref::add_triples())
    for (int32_t sf : add_ref::scale_factors()) {
      if (t.dst == t.a) check_in_place(rng, t, true, sf);
      if (t.dst == t.b) check_in_place(rng, t, false, sf);
      if (HasFatalFailure()) return;
    }
}

// All 65,536 pairs of u8 for each scale factor, through the kernel directly.
TEST(AddU8, EveryPairForEveryScaleFactor) {
  Image a(256, 256, 1, SORN_U8), b(256, 256, 1, SORN_U8), d(256, 256, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)x;
    }
  int32_t dims[3] = {256, 256, 1}, strides[3] = {256, 1, 1};
  for (int32_t sf : add_ref::scale_factors()) {
    ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d.base(), strides, a.base(), strides,
                                   b.base(), strides, sf, 0),
              SORN_OK);
    for (int32_t y = 0; y < 256; ++y)
      for (int32_t x = 0; x < 256; ++x)
        ASSERT_EQ(d.at<uint8_t>(y, x), add_ref::expected(SORN_U8, SORN_U8, SORN_U8, y, x, sf))
            << y << " + " << x << " sf " << sf;
    ASSERT_TRUE(d.guards_intact());
  }
}

TEST(AddU8, WorkedExamples) {
  uint8_t a[2] = {200, 151}, b[2] = {100, 100}, d[2];
  int32_t dims[3] = {1, 2, 1}, strides[3] = {2, 1, 1};
  auto run = [&](int32_t sf) {
    EXPECT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d, strides, a, strides, b, strides, sf, 0),
              SORN_OK);
  };
  run(0);
  EXPECT_EQ(d[0], 44);
  run(1);
  EXPECT_EQ(d[0], 255);
  run(-1);
  EXPECT_EQ(d[0], 150);
  EXPECT_EQ(d[1], 126) << "125.5 rounds to the even 126";
}

TEST(AddS16, U8SourcesNeverOverflowAtScaleZero) {
  uint8_t a[1] = {255}, b[1] = {255};
  int16_t d[1];
  int32_t dims[3] = {1, 1, 1}, s8[3] = {1, 1, 1}, s16[3] = {2, 2, 2};
  ASSERT_EQ(sorna__add_c1_s16u8u8(nullptr, 0, 3, dims, d, s16, a, s8, b, s8, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 510);
}

TEST(AddScale, MinusThirtyOneGivesANegativeFactor) {
  int16_t a[1] = {100}, b[1] = {0};
  int32_t d[1];
  int32_t dims[3] = {1, 1, 1}, s2[3] = {2, 2, 2}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__add_c1_s32s16s16(nullptr, 0, 3, dims, d, s4, a, s2, b, s2, -31, 0), SORN_OK);
  EXPECT_EQ(d[0], 0) << "100 * -2^-31 rounds to -0";
  a[0] = -32768;
  b[0] = -32768;
  ASSERT_EQ(sorna__add_c1_s32s16s16(nullptr, 0, 3, dims, d, s4, a, s2, b, s2, -31, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  int32_t a32[1] = {INT32_MIN}, b32[1] = {-536870912};
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a32, s4, b32, s4, -31, 0), SORN_OK);
  EXPECT_EQ(d[0], -1) << "the wrapped sum 1.5 * 2^30 times -2^-31";
}

TEST(AddScale, MinusThirtyTwoIsAFactorOfOne) {
  int32_t a[1] = {INT32_MAX}, b[1] = {0}, d[1];
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, -32, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN) << "float(2^31 - 1) is 2^31, out of range";
  a[0] = 1000;
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, -32, 0), SORN_OK);
  EXPECT_EQ(d[0], 1000);
}

TEST(AddS32, WrapsAtScaleZeroAndSaturatesAbove) {
  int32_t a[1] = {INT32_MAX}, b[1] = {1}, d[1];
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN);
  // The sum is 32 bits wide: it has wrapped before the shift saturates it.
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 1, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN);
  a[0] = 0x40000000;
  b[0] = 0;
  ASSERT_EQ(sorna__add_c1_s32s32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 1, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MAX);
}

TEST(AddScale, ShiftCountIsTakenModuloSixtyFour) {
  uint8_t a[1] = {3}, b[1] = {4}, d[1];
  int32_t dims[3] = {1, 1, 1}, s1[3] = {1, 1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d, s1, a, s1, b, s1, 64, 0), SORN_OK);
  EXPECT_EQ(d[0], 7) << "a shift of 0, clamped";
  // 1 << 63 is the most negative 64-bit value: it clamps low.
  a[0] = 1;
  b[0] = 0;
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d, s1, a, s1, b, s1, 63, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  a[0] = 2;
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d, s1, a, s1, b, s1, 63, 0), SORN_OK);
  EXPECT_EQ(d[0], 0) << "2 << 63 wraps to 0";
}

TEST(AddFloat, S32FromFloatRoundsToEvenAndOutOfRangeIsMin) {
  float a[4] = {0.5f, 1.5f, -2.5f, 3e9f};
  float b[4] = {0, 0, 0, 0};
  int32_t d[4];
  int32_t dims[3] = {1, 4, 1}, s4[3] = {16, 4, 4};
  ASSERT_EQ(sorna__add_c1_s32f32f32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 0);
  EXPECT_EQ(d[1], 2);
  EXPECT_EQ(d[2], -2);
  EXPECT_EQ(d[3], INT32_MIN);
  a[0] = std::nanf("");
  ASSERT_EQ(sorna__add_c1_s32f32f32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], INT32_MIN);
}

TEST(AddFloat, S32SecondSourceAddsInDouble) {
  float a[1] = {0.25f};
  int32_t b[1] = {16777217}, d[1];
  float f[1];
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4};
  ASSERT_EQ(sorna__add_c1_f32f32s32(nullptr, 0, 3, dims, f, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(f[0], (float)(16777217.25));
  ASSERT_EQ(sorna__add_c1_s32f32s32(nullptr, 0, 3, dims, d, s4, a, s4, b, s4, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 16777217) << "no float rounding of the s32 source";
}

TEST(AddFloat, ScaleIsIgnoredWithFloatInvolved) {
  float a[1] = {3.0f}, f[1];
  uint8_t b[1] = {4};
  int32_t d[1];
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4}, s1[3] = {1, 1, 1};
  for (int32_t sf : {-5, 0, 5}) {
    ASSERT_EQ(sorna__add_c1_f32f32u8(nullptr, 0, 3, dims, f, s4, a, s4, b, s1, sf, 0), SORN_OK);
    EXPECT_EQ(f[0], 7.0f);
    ASSERT_EQ(sorna__add_c1_s32f32u8(nullptr, 0, 3, dims, d, s4, a, s4, b, s1, sf, 0), SORN_OK);
    EXPECT_EQ(d[0], 7);
  }
}

TEST(AddKernel, WalksOneRowWithTwoDimensionsAndNothingForZeroRows) {
  uint8_t a[4] = {1, 2, 3, 4}, b[4] = {10, 20, 30, 40}, d[4] = {0, 0, 0, 0};
  int32_t dims2[2] = {3, 1}, s2[2] = {1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 2, dims2, d, s2, a, s2, b, s2, 0, 0), SORN_OK);
  EXPECT_EQ(d[0], 11);
  EXPECT_EQ(d[2], 33);
  EXPECT_EQ(d[3], 0);
  int32_t dims3[3] = {0, 4, 1}, s3[3] = {4, 1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims3, d, s3, a, s3, b, s3, 0, 0), SORN_OK);
  EXPECT_EQ(d[3], 0);
}

TEST(AddKernel, NegativeRowStridesWalkUpwards) {
  uint8_t a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {10, 20, 30, 40, 50, 60}, d[6] = {};
  int32_t dims[3] = {3, 2, 1}, s[3] = {-2, 1, 1};
  ASSERT_EQ(sorna__add_c1_u8u8u8(nullptr, 0, 3, dims, d + 4, s, a + 4, s, b + 4, s, 0, 0), SORN_OK);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(d[i], a[i] + b[i]);
}

TEST(AddLookup, KnownTypesWithoutKernelAreNotSupported) {
  SornStatus st = 0;
  SornArith2Kernel k = sorna__aaddfun_imp(SORN_U16, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  int32_t dims[3] = {1, 1, 1}, s[3] = {1, 1, 1};
  uint8_t x = 0;
  EXPECT_EQ(k(nullptr, 0, 3, dims, &x, s, &x, s, &x, s, 0, 0), SORN_ENOTSUP);
  sorna__aaddfun_imp(SORN_S8, SORN_S8, SORN_S8, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__aaddfun_imp(SORN_F64, SORN_F32, SORN_F32, &st);
  EXPECT_EQ(st, SORN_ENOTSUP);
  sorna__aaddfun_imp(SORN_U8, SORN_U8, SORN_S16, &st);
  EXPECT_EQ(st, SORN_ENOTSUP) << "kernel order has the wider source first";
}

TEST(AddLookup, UnknownCodesAreInvalid) {
  SornStatus st = 0;
  SornArith2Kernel k = sorna__aaddfun_imp(5, SORN_U8, SORN_U8, &st);
  EXPECT_EQ(st, SORN_EINVAL);
  int32_t dims[3] = {1, 1, 1}, s[3] = {1, 1, 1};
  uint8_t x = 0;
  EXPECT_EQ(k(nullptr, 0, 3, dims, &x, s, &x, s, &x, s, 0, 0), SORN_EINVAL);
  for (uint32_t bad : {0u, 5u, 6u, 7u, 8u, 16u, 0x101u}) {
    sorna__aaddfun_imp(SORN_S32, SORN_S32, bad, &st);
    EXPECT_EQ(st, SORN_EINVAL) << bad;
    sorna__aaddfun_imp(SORN_S32, bad, SORN_U8, &st);
    EXPECT_EQ(st, SORN_EINVAL) << bad;
    sorna__aaddfun_imp(bad, SORN_U8, SORN_U8, &st);
    EXPECT_EQ(st, SORN_EINVAL) << bad;
  }
  EXPECT_NE(sorna__aaddfun_imp(0x100 | SORN_U8, SORN_U8, SORN_U8, nullptr), &sorna__add_c1_u8u8u8)
      << "codes above 15 do not alias a key";
}

// --- the dispatcher -------------------------------------------------------

TEST(AddDispatch, U8FromS16SourcesIsDirectAndWraps) {
  int16_t a[1] = {200}, b[1] = {100};
  uint8_t d[1] = {0};
  int32_t dims[3] = {1, 1, 1}, s2[3] = {2, 2, 2}, s1[3] = {1, 1, 1};
  ASSERT_EQ(sorna__add(nullptr, 0, kPack3, dims, SORN_U8, d, s1, SORN_S16, a, s2, SORN_S16, b, s2, 0, 0),
            SORN_OK);
  EXPECT_EQ(d[0], 44) << "300 wraps";
}

TEST(AddDispatch, U8AndF32SourcesAreExchangedForAnS32Destination) {
  uint8_t a[2] = {1, 2};
  float b[2] = {0.5f, 1.5f};
  int32_t d[2] = {7, 7};
  int32_t dims[3] = {1, 2, 1}, s1[3] = {2, 1, 1}, s4[3] = {8, 4, 4};
  ASSERT_EQ(sorna__add(nullptr, 0, kPack3, dims, SORN_S32, d, s4, SORN_U8, a, s1, SORN_F32, b, s4, 0, 0),
            SORN_OK);
  EXPECT_EQ(d[0], 2) << "1.5 to even";
  EXPECT_EQ(d[1], 4) << "3.5 to even";
}

TEST(AddDispatch, ThreeChannelsFoldIntoTheRow) {
  // Rows of 2 pixels of 3 channels, padded to 8 bytes: a kernel that did not
  // fold would stop after 2 elements of each row.
  uint8_t a[16], b[16], d[16];
  for (int i = 0; i < 16; ++i) {
    a[i] = (uint8_t)i;
    b[i] = 100;
    d[i] = 0xee;
  }
  int32_t dims[3] = {2, 2, 3}, s[3] = {8, 3, 1};
  ASSERT_EQ(sorna__add(nullptr, 0, kPack3, dims, SORN_U8, d, s, SORN_U8, a, s, SORN_U8, b, s, 0, 0), SORN_OK);
  for (int y = 0; y < 2; ++y)
    for (int i = 0; i < 8; ++i) EXPECT_EQ(d[y * 8 + i], i < 6 ? 100 + y * 8 + i : 0xee) << y << "," << i;
  // The caller's vectors are left as they were.
  EXPECT_EQ(dims[1], 2);
  EXPECT_EQ(dims[2], 3);
  EXPECT_EQ(s[1], 3);
}

TEST(AddDispatch, TilePathRefusesUnknownTypesFirst) {
  int32_t a[1] = {1};
  uint8_t d[1] = {9};
  int32_t dims[3] = {1, 1, 1}, s4[3] = {4, 4, 4}, s1[3] = {1, 1, 1};
  // Destination code 0 has no size: narrower than s32, and unknown.
  EXPECT_EQ(sorna__add(nullptr, 0, kPack3, dims, 0, d, s1, SORN_S32, a, s4, SORN_S32, a, s4, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(d[0], 9);
}

TEST(AddDispatch, KnownTriplesWithoutKernelAreNotSupported) {
  uint16_t d[1] = {9};
  uint8_t a[1] = {1};
  int32_t dims[3] = {1, 1, 1}, s2[3] = {2, 2, 2}, s1[3] = {1, 1, 1};
  EXPECT_EQ(sorna__add(nullptr, 0, kPack3, dims, SORN_U16, d, s2, SORN_U8, a, s1, SORN_U8, a, s1, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(sorna__add(nullptr, 0, kPack3, dims, 7, d, s2, SORN_U8, a, s1, SORN_U8, a, s1, 0, 0), SORN_EINVAL);
  EXPECT_EQ(d[0], 9);
}

TEST(AddDispatch, S64WithF32SourcesEndsInTheLookup) {
  // The two exchanges are done once each, so a pair that both wants first
  // cannot ping-pong; it has no kernel.
  int64_t a[1] = {1};
  float b[1] = {1};
  float d[1] = {9};
  int32_t dims[3] = {1, 1, 1}, s8[3] = {8, 8, 8}, s4[3] = {4, 4, 4};
  EXPECT_EQ(sorna__add(nullptr, 0, kPack3, dims, SORN_F32, d, s4, SORN_S64, a, s8, SORN_F32, b, s4, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(d[0], 9);
}

}  // namespace

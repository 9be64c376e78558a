// Element search and byte hashes.
#include <gtest/gtest.h>
#include <testkit.h>

#include <cmath>
#include <cstring>
#include <string>

using sorn_test::Image;
using sorn_test::seeded_rng;

// ---------------------------------------------------------------- element search

namespace {

// The plain rule: first element (row by row) that equals v, as a double
// compare in the element's type, or -1.
int32_t first_index(const Image &im, double v, bool equal) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) {
      const double e = im.get(y, x);
      const bool eq = im.type() == SORN_F32 ? std::fabs((float)e - (float)v) <= 1.1920929e-7f
                                           : e == v;
      if (eq == equal) return y * im.cols() + x;
    }
  return -1;
}

}  // namespace

TEST(Memelem2d, FindsTheFirstMatchOverRandomRegionsOfEveryType) {
  auto rng = seeded_rng(0x3E3E);
  for (uint32_t type : {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32}) {
    for (int iter = 0; iter < 60; ++iter) {
      const int32_t rows = 1 + (int32_t)(rng() % 6), cols = 1 + (int32_t)(rng() % 9);
      Image im(rows, cols, 1, type, (int32_t)(rng() % 3) * 4);
      // Few distinct values, so that hits and misses both occur.
      for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < cols; ++x) im.set(y, x, 0, (double)(int)(rng() % 4));
      const double v = (double)(int)(rng() % 5);
      EXPECT_EQ(first_index(im, v, true),
                sorn_memelem2d(type, im.base(), im.rowstride(), rows, cols, v))
          << sorn_test::type_name(type);
      EXPECT_EQ(first_index(im, v, false),
                sorn_memcelem2d(type, im.base(), im.rowstride(), rows, cols, v))
          << sorn_test::type_name(type);
    }
  }
}

TEST(Memelem2d, IndexCountsColumnsWhateverTheStride) {
  Image im(3, 5, 1, SORN_S16, 6);
  im.at<int16_t>(2, 3) = 42;
  EXPECT_EQ(2 * 5 + 3, sorn_memelem2d(SORN_S16, im.base(), im.rowstride(), 3, 5, 42.0));
}

TEST(Memelem2d, U8ValueAboveRangeSearchesFor255) {
  Image im(2, 4, 1, SORN_U8);
  im.at<uint8_t>(1, 2) = 255;
  EXPECT_EQ(6, sorn_memelem2d(SORN_U8, im.base(), im.rowstride(), 2, 4, 300.0));
  EXPECT_EQ(0, sorn_memelem2d(SORN_U8, im.base(), im.rowstride(), 2, 4, -5.0));
}

TEST(Memelem2d, ValuesRoundToNearestEven) {
  Image im(1, 3, 1, SORN_S8);
  im.at<int8_t>(0, 0) = 2; im.at<int8_t>(0, 1) = 3; im.at<int8_t>(0, 2) = -128;
  EXPECT_EQ(0, sorn_memelem2d(SORN_S8, im.base(), im.rowstride(), 1, 3, 2.5));
  EXPECT_EQ(1, sorn_memelem2d(SORN_S8, im.base(), im.rowstride(), 1, 3, 3.4));
  EXPECT_EQ(2, sorn_memelem2d(SORN_S8, im.base(), im.rowstride(), 1, 3, -1000.0));
}

TEST(Memelem2d, ValuesBeyond32BitsBecomeTheLowestInteger) {
  // 1e10 has no 32-bit form: it converts to 0x80000000 and, for u8, clamps to 0.
  Image im(1, 2, 1, SORN_U8);
  im.at<uint8_t>(0, 0) = 255; im.at<uint8_t>(0, 1) = 0;
  EXPECT_EQ(1, sorn_memelem2d(SORN_U8, im.base(), im.rowstride(), 1, 2, 1e10));
  Image s(1, 2, 1, SORN_S32);
  s.at<int32_t>(0, 1) = INT32_MIN;
  EXPECT_EQ(1, sorn_memelem2d(SORN_S32, s.base(), s.rowstride(), 1, 2, 5e9));
}

TEST(Memelem2d, F32ComparesWithinTheTolerance) {
  Image im(1, 3, 1, SORN_F32);
  im.at<float>(0, 0) = 0.5f; im.at<float>(0, 1) = 1e-7f; im.at<float>(0, 2) = 0.0f;
  EXPECT_EQ(1, sorn_memelem2d(SORN_F32, im.base(), im.rowstride(), 1, 3, 0.0));
  EXPECT_EQ(0, sorn_memcelem2d(SORN_F32, im.base(), im.rowstride(), 1, 3, 0.0));
  EXPECT_EQ(-1, sorn_memelem2d(SORN_F32, im.base(), im.rowstride(), 1, 3, 0.25));
}

TEST(Memelem2d, OtherTypesAndEmptyRegionsGiveMinusOne) {
  Image im(2, 2, 1, SORN_U8);
  for (uint32_t t : {SORN_U16, SORN_U32, SORN_S64, SORN_F64, 0u, 7u, 99u})
    EXPECT_EQ(-1, sorn_memelem2d(t, im.base(), im.rowstride(), 2, 2, 0.0)) << t;
  EXPECT_EQ(-1, sorn_memelem2d(SORN_U8, im.base(), im.rowstride(), 0, 2, 0.0));
  EXPECT_EQ(-1, sorn_memelem2d(SORN_U8, im.base(), im.rowstride(), -1, 2, 0.0));
  EXPECT_EQ(-1, sorn_memcelem2d(SORN_U8, im.base(), im.rowstride(), 2, 2, 0.0));
}

TEST(Memelem2dS, NullBaseGivesMinusTwo) {
  EXPECT_EQ(-2, sorn_memelem2dS(SORN_U8, nullptr, 4, 2, 2, 0.0));
  EXPECT_EQ(-2, sorn_memcelem2dS(SORN_U8, nullptr, 4, 2, 2, 0.0));
  Image im(1, 2, 1, SORN_U8);
  im.at<uint8_t>(0, 1) = 9;
  EXPECT_EQ(1, sorn_memelem2dS(SORN_U8, im.base(), im.rowstride(), 1, 2, 9.0));
  EXPECT_EQ(1, sorn_memcelem2dS(SORN_U8, im.base(), im.rowstride(), 1, 2, 0.0));
}

// ---------------------------------------------------------------- hashes

namespace {

uint32_t plain_hash(const std::string &s) {
  uint32_t h = 0;
  for (char c : s) {
    h = (h << 4) + (uint32_t)(int32_t)(signed char)c;
    uint32_t g = h & 0xF0000000u;
    h ^= g | (g >> 24);
  }
  return h;
}

}  // namespace

TEST(ByteHash, SingleLetterIsItsCode) {
  EXPECT_EQ(97u, sorn_bcshash("a"));
  EXPECT_EQ(97u * 16 + 98, sorn_bcshash("ab"));
}

TEST(ByteHash, EmptyInputsGiveZero) {
  EXPECT_EQ(0u, sorn_bcshash(""));
  EXPECT_EQ(0u, sorn_bcsnhash("abc", 0));
  EXPECT_EQ(0u, sorn_bhash("abc", 0));
}

TEST(ByteHash, BytesAbove127CountAsNegative) {
  // 0 + (-1) is 0xffffffff; its top nibble folds down and clears.
  EXPECT_EQ(0x0FFFFF0Fu, sorn_bhash("\xff", 1));
  EXPECT_EQ(0x0FFFFF0Fu, sorn_bcshash("\xff"));
}

TEST(ByteHash, LongStringsFoldTheTopBits) {
  // Seven characters fit in 28 bits; the eighth pushes into the top nibble.
  const std::string s7 = "zzzzzzz", s8 = "zzzzzzzz";
  EXPECT_EQ(plain_hash(s7), sorn_bcshash(s7.c_str()));
  uint64_t unfolded = 0;
  for (char c : s8) unfolded = (unfolded << 4) + (uint8_t)c;
  EXPECT_NE((uint32_t)unfolded, sorn_bcshash(s8.c_str()));
  EXPECT_EQ(plain_hash(s8), sorn_bcshash(s8.c_str()));
}

TEST(ByteHash, AgreesWithThePlainRuleOnRandomBytes) {
  auto rng = seeded_rng(0x4A54);
  for (int iter = 0; iter < 200; ++iter) {
    std::string s(rng() % 40, '\0');
    for (char &c : s) c = (char)(1 + rng() % 255);
    EXPECT_EQ(plain_hash(s), sorn_bcshash(s.c_str()));
    EXPECT_EQ(plain_hash(s), sorn_bhash(s.data(), s.size()));
    const size_t n = rng() % 50;
    EXPECT_EQ(plain_hash(s.substr(0, n)), sorn_bcsnhash(s.c_str(), n));
  }
}

TEST(ByteHash, CountedFormStopsAtNulButRawFormHashesIt) {
  const char buf[] = {'a', 'b', '\0', 'c'};
  EXPECT_EQ(sorn_bcshash("ab"), sorn_bcsnhash(buf, 4));
  EXPECT_EQ(plain_hash(std::string(buf, 4)), sorn_bhash(buf, 4));
  EXPECT_NE(sorn_bcshash("ab"), sorn_bhash(buf, 4));
  EXPECT_EQ(sorn_bcshash("a"), sorn_bcsnhash(buf, 1));
}

// Fill vectors: conversion of each value to its element, the layout of the
// 16-, 32- and 64-byte blocks, the word duplication, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "fill_reference.h"
#include "testkit.h"

namespace {

using MakeFn = SornStatus (*)(SornElemType, void *, const double *, int32_t);

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// Values worth converting: ties, type limits and one past them, values
// outside 32 bits, NaN and infinities.
const double kValues[] = {0.0,   -0.0,     0.5,      1.5,         2.5,        -0.5,  -1.5,
                          254.5, 255.5,    256.0,    -127.6,      -128.5,     127.5, 32767.5,
                          -32768.5, 65535.5, 65536.0, 2147483647.0, 2147483647.5, -2147483648.0,
                          5e9,   -5e9,     1e300,    kNaN,        kInf,       -kInf, 3.25,
                          -7.75, 1e-45,    4e38};

void expect_block(MakeFn make, size_t bytes, uint32_t type, const double *v, int32_t nchan) {
  alignas(8) uint8_t out[80];
  std::memset(out, 0xEE, sizeof out);
  ASSERT_EQ(make(type, out, v, nchan), SORN_OK) << sorn_test::type_name(type) << " x" << nchan;
  const std::vector<uint8_t> want = fill_ref::block(type, v, nchan, bytes);
  for (size_t i = 0; i < bytes; ++i)
    ASSERT_EQ(out[i], want[i]) << sorn_test::type_name(type) << " x" << nchan << " byte " << i
                               << " of " << bytes << ", first value " << v[0];
  for (size_t i = bytes; i < sizeof out; ++i) ASSERT_EQ(out[i], 0xEE) << "beyond the block";
}

TEST(FillVector, EveryTypeAndChannelCountRepeatsThePixel) {
  auto rng = sorn_test::seeded_rng(0xf111);
  const size_t nv = sizeof kValues / sizeof kValues[0];
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (int rep = 0; rep < 40; ++rep) {
        double v[4];
        for (int k = 0; k < 4; ++k) v[k] = kValues[rng() % nv];
        expect_block(&sorn_mkifillvalv16, 16, t, v, ch);
        expect_block(&sorn_mkifillvalv32, 32, t, v, ch);
        expect_block(&sorn_mkifillvalv64, 64, t, v, ch);
        if (HasFatalFailure()) return;
      }
}

TEST(FillVector, EveryCodeOutsideTheFillTableIsRefused) {
  const std::vector<uint32_t> &types = fill_ref::fill_types();
  const double v[4] = {1, 2, 3, 4};
  for (uint32_t code = 0; code < 32; ++code) {
    if (std::find(types.begin(), types.end(), code) != types.end()) continue;
    alignas(8) uint8_t out[16];
    EXPECT_LT(sorn_mkifillvalv16(code, out, v, 1), 0) << "code " << code;
  }
}

TEST(FillVector, F64TakesTheDoublesThemselvesInTheWideBlocks) {
  const double v[4] = {1.25, -3.5, kNaN, 1e300};
  for (int32_t ch = 1; ch <= 4; ++ch) {
    expect_block(&sorn_mkifillvalv32, 32, SORN_F64, v, ch);
    expect_block(&sorn_mkifillvalv64, 64, SORN_F64, v, ch);
  }
  alignas(8) uint8_t out[16];
  EXPECT_EQ(sorn_mkifillvalv16(SORN_F64, out, v, 1), SORN_ENOTSUP);
}

TEST(FillVector, U8TiesGoToEvenAndThenSaturate) {
  uint8_t out[16];
  const double a = 255.5, b = 254.5, c = -0.5, d = 0.5;
  ASSERT_EQ(sorn_mkifillvalv16(SORN_U8, out, &a, 1), SORN_OK);
  EXPECT_EQ(out[0], 255) << "256 clamps to 255";
  ASSERT_EQ(sorn_mkifillvalv16(SORN_U8, out, &b, 1), SORN_OK);
  EXPECT_EQ(out[0], 254);
  ASSERT_EQ(sorn_mkifillvalv16(SORN_U8, out, &c, 1), SORN_OK);
  EXPECT_EQ(out[0], 0);
  ASSERT_EQ(sorn_mkifillvalv16(SORN_U8, out, &d, 1), SORN_OK);
  EXPECT_EQ(out[15], 0);
}

TEST(FillVector, S8BelowMinus127IsMinus128) {
  int8_t out[16];
  const double v[2] = {-127.6, 200.0};
  ASSERT_EQ(sorn_mkifillvalv16(SORN_S8, out, v, 2), SORN_OK);
  EXPECT_EQ(out[0], -128);
  EXPECT_EQ(out[1], 127);
  EXPECT_EQ(out[14], -128);
}

TEST(FillVector, U32OutsideThirtyTwoBitsIsZero) {
  uint32_t out[4];
  const double v[3] = {5e9, 4294967295.0, 2147483647.0};
  ASSERT_EQ(sorn_mkifillvalv16(SORN_U32, out, v, 3), SORN_OK);
  EXPECT_EQ(out[0], 0u) << "0x80000000 is negative, so 0";
  EXPECT_EQ(out[1], 0u) << "2^32 - 1 does not fit 32 signed bits either";
  EXPECT_EQ(out[2], 2147483647u);
  EXPECT_EQ(out[3], 0u);
}

TEST(FillVector, S32OutOfRangeAndNaNAreMin) {
  int32_t out[4];
  const double v[4] = {3e9, kNaN, -kInf, -2147483648.0};
  ASSERT_EQ(sorn_mkifillvalv16(SORN_S32, out, v, 4), SORN_OK);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], INT32_MIN) << i;
}

TEST(FillVector, F32IsNarrowedNotRounded) {
  float out[4];
  const double v[3] = {2.5, 1e300, -0.0};
  ASSERT_EQ(sorn_mkifillvalv16(SORN_F32, out, v, 3), SORN_OK);
  EXPECT_EQ(out[0], 2.5f);
  EXPECT_TRUE(std::isinf(out[1]));
  EXPECT_TRUE(std::signbit(out[2]));
  EXPECT_EQ(out[3], 2.5f) << "three channels: a b c a";
}

TEST(FillVector, ThreeChannelBytesHaveATwelveBytePeriodInEveryBlock) {
  const double v[3] = {1, 2, 3};
  uint8_t out[64];
  ASSERT_EQ(sorn_mkifillvalv64(SORN_U8, out, v, 3), SORN_OK);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(out[i], 1 + i % 3) << i;
}

TEST(FillVector, NullValuesAreZeros) {
  uint8_t out[64];
  std::memset(out, 0xEE, sizeof out);
  ASSERT_EQ(sorn_mkifillvalv64(SORN_S16, out, nullptr, 2), SORN_OK);
  for (uint8_t b : out) ASSERT_EQ(b, 0);
}

TEST(FillVector, RefusalsOfTheSixteenByteBlock) {
  uint8_t out[16];
  std::memset(out, 0xEE, sizeof out);
  const double v[4] = {1, 2, 3, 4};
  for (int32_t ch : {0, 5, -1, 100}) EXPECT_EQ(sorn_mkifillvalv16(SORN_U8, out, v, ch), SORN_ENOTSUP) << ch;
  EXPECT_EQ(sorn_mkifillvalv16(16, out, v, 1), SORN_EINVAL);
  EXPECT_EQ(sorn_mkifillvalv16(0x101, out, v, 1), SORN_EINVAL);
  for (uint32_t t : {4u, 12u, 14u, 15u}) EXPECT_EQ(sorn_mkifillvalv16(t, out, v, 1), SORN_ENOTSUP) << t;
  for (uint32_t t : {0u, 5u, 6u, 7u, 8u}) EXPECT_EQ(sorn_mkifillvalv16(t, out, v, 1), SORN_EINVAL) << t;
  for (uint8_t b : out) EXPECT_EQ(b, 0xEE) << "nothing written on a refusal";
}

TEST(FillVector, RefusalsOfTheWideBlocks) {
  alignas(8) uint8_t out[64];
  std::memset(out, 0xEE, sizeof out);
  const double v[4] = {1, 2, 3, 4};
  for (MakeFn make : {&sorn_mkifillvalv32, &sorn_mkifillvalv64}) {
    for (uint32_t t : {4u, 12u, 15u}) EXPECT_EQ(make(t, out, v, 1), SORN_ENOTSUP) << t;
    EXPECT_EQ(make(6, out, v, 1), SORN_EINVAL) << "an eight-byte class without a type";
    EXPECT_EQ(make(5, out, v, 1), SORN_EINVAL);
    EXPECT_EQ(make(16, out, v, 1), SORN_EINVAL);
    EXPECT_EQ(make(SORN_F64, out, v, 0), SORN_ENOTSUP);
    EXPECT_EQ(make(SORN_F64, out, v, 5), SORN_ENOTSUP);
    EXPECT_EQ(make(SORN_U8, out, v, 5), SORN_ENOTSUP);
  }
  for (uint8_t b : out) EXPECT_EQ(b, 0xEE);
}

TEST(FillVectorDup, WordsRepeatUpwardByTheChannelStep) {
  uint32_t w[16];
  for (int i = 0; i < 16; ++i) w[i] = 100 + i;
  EXPECT_EQ(sorn_dupifillvalv3216(w, 3), w);
  const uint32_t want8[8] = {100, 101, 102, 100, 101, 102, 100, 101};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(w[i], want8[i]) << i;
  EXPECT_EQ(w[8], 108u) << "the 32-byte form stops at word 7";

  for (int i = 0; i < 16; ++i) w[i] = 100 + i;
  sorn_dupifillvalv6416(w, 1);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(w[i], 100u) << i;

  for (int i = 0; i < 16; ++i) w[i] = 100 + i;
  sorn_dupifillvalv6432(w, 3);  // three doubles: steps of six words
  for (int i = 0; i < 16; ++i) EXPECT_EQ(w[i], 100u + i % 6) << i;
}

TEST(FillVectorDup, ChannelCountsBeyondTheBlockLeaveItAlone) {
  uint32_t w[16];
  for (int i = 0; i < 16; ++i) w[i] = i;
  sorn_dupifillvalv3216(w, 8);
  sorn_dupifillvalv6416(w, 16);
  sorn_dupifillvalv6432(w, 8);
  sorn_dupifillvalv6416(w, 0);
  sorn_dupifillvalv6416(w, -2);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(w[i], (uint32_t)i) << i;
}

}  // namespace

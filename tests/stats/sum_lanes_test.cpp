// The f32 sum in double adds in address order; where no partial sum can
// round (the spread of the values' exponents against their count), it adds
// in lanes. Either way its total is, to the bit, the serial chain written
// here: on pictures converted to f32, on values whose partial sums would
// round in another order, on zeros, NaN and infinities.
#include <cmath>
#include <cstring>

#include "stats_testutil.h"

using sorn_test::Image;
using stats_test::Env;

namespace {

// One double addition per element, in address order.
double serial_total(const Image &img, const SornVolume &roi) {
  double s = 0.0;
  for (int y = roi.origin[1]; y < roi.origin[1] + roi.size[1]; ++y)
    for (int x = roi.origin[2]; x < roi.origin[2] + roi.size[2]; ++x)
      s += (double)img.at<float>(y, x);
  return s;
}

uint64_t bits_of(double v) {
  uint64_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

double sum_of(Env &env, const Image &img, const SornVolume *roi) {
  SornArray a = img.record();
  double s = -7.0;
  EXPECT_EQ(SornSum(env.xe(), 0, &a, roi, &s), SORN_OK);
  return s;
}

void expect_serial_total(Env &env, const Image &img, const SornVolume &roi) {
  EXPECT_EQ(bits_of(sum_of(env, img, &roi)), bits_of(serial_total(img, roi)))
      << img.rows() << "x" << img.cols() << " region at " << roi.origin[1] << "," << roi.origin[2];
}

// A picture as a camera gives it, converted to f32: values 0 to 255,
// optionally scaled.
Image picture(int rows, int cols, int pad, std::mt19937_64 &rng, float scale) {
  Image img(rows, cols, 1, SORN_F32, pad);
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < cols; ++x) {
      const int v = (int)((x * 7 + y * 3 + (int)(rng() % 40)) % 256);
      img.at<float>(y, x) = (float)v * scale;
    }
  return img;
}

}  // namespace

TEST(SumF32Lanes, PicturesConvertedToF32AddUpToTheSerialTotal) {
  auto rng = sorn_test::seeded_rng(0x5a11a7e5);
  Env env;
  for (float scale : {1.0f, 1.0f / 255.0f, 0.37f}) {
    for (int size : {1, 7, 64, 333}) {
      Image img = picture(size + 3, size + 5, 8, rng, scale);
      expect_serial_total(env, img, sorn_test::make_roi(0, 0, size + 3, size + 5, 1));
      expect_serial_total(env, img, sorn_test::make_roi(2, 3, size, size, 1));
    }
  }
}

TEST(SumF32Lanes, AFullHdPictureAddsUpToTheSerialTotal) {
  auto rng = sorn_test::seeded_rng(0x1080);
  Env env;
  Image img = picture(1080, 1920, 0, rng, 1.0f);
  expect_serial_total(env, img, sorn_test::make_roi(0, 0, 1080, 1920, 1));
}

TEST(SumF32Lanes, ValuesWhosePartialSumsWouldRoundKeepTheAddressOrder) {
  Env env;
  // 2^30 and 1: the 1s are lost one by one after the large value, not when
  // added first among themselves.
  Image img(1, 40, 1, SORN_F32);
  img.at<float>(0, 0) = 1.0f;
  img.at<float>(0, 1) = 9007199254740992.0f;  // 2^53
  for (int x = 2; x < 40; ++x) img.at<float>(0, x) = 1.0f;
  const SornVolume roi = sorn_test::make_roi(0, 0, 1, 40, 1);
  EXPECT_EQ(sum_of(env, img, &roi), 9007199254740992.0);
  expect_serial_total(env, img, roi);
}

TEST(SumF32Lanes, RandomSpreadsOfExponentsGiveTheSerialTotal) {
  auto rng = sorn_test::seeded_rng(0xe4b0);
  Env env;
  for (int round = 0; round < 200; ++round) {
    const int cols = 1 + (int)(rng() % 300), rows = 1 + (int)(rng() % 5);
    const int spread = (int)(rng() % 40);
    Image img(rows, cols, 1, SORN_F32, 4 * (int)(rng() % 3));
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x) {
        const double m = (double)(rng() % 16777216) / 16777216.0 + 0.5;
        const int e = (int)(rng() % (spread + 1)) - spread / 2;
        img.at<float>(y, x) = (float)((rng() & 1 ? -m : m) * std::ldexp(1.0, e));
      }
    expect_serial_total(env, img, sorn_test::make_roi(0, 0, rows, cols, 1));
  }
}

TEST(SumF32Lanes, ZerosOfEitherSignSumToPositiveZero) {
  Env env;
  Image img(3, 50, 1, SORN_F32);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 50; ++x) img.at<float>(y, x) = (x & 1) ? -0.0f : 0.0f;
  const SornVolume roi = sorn_test::make_roi(0, 0, 3, 50, 1);
  EXPECT_EQ(bits_of(sum_of(env, img, &roi)), bits_of(0.0));
  expect_serial_total(env, img, roi);
}

TEST(SumF32Lanes, NaNAndInfinitiesTakeTheSerialChain) {
  Env env;
  for (float odd : {NAN, INFINITY, -INFINITY}) {
    Image img(2, 33, 1, SORN_F32);
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 33; ++x) img.at<float>(y, x) = (float)(x + y);
    img.at<float>(1, 17) = odd;
    img.at<float>(0, 5) = INFINITY;
    const SornVolume roi = sorn_test::make_roi(0, 0, 2, 33, 1);
    expect_serial_total(env, img, roi);
  }
}

// What the kernel and dispatcher tests of the arithmetic share: an image
// handed down as the layers above would (dims ending in the channel count,
// plane-less strides), random fills with extremes, and the check that a call
// wrote nothing outside the rows it was given. Nothing here calls the
// library.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <cstdint>
#include <random>
#include <vector>

#include "testkit.h"

namespace arith_test {

using sorn_test::Image;

constexpr SornDimPack kPack3 = SORN_DIMPACK(3);

// One row-major block of rows x cols x ch elements inside a guarded image,
// its rows padded by pad bytes.
struct Operand {
  Image img;
  int32_t strides[3];
  Operand(int32_t rows, int32_t cols, int32_t ch, uint32_t t, int32_t pad, uint8_t fill = 0x5c)
      : img(rows, cols, ch, t, pad, fill) {
    strides[0] = img.rowstride();
    strides[1] = ch * img.esize();
    strides[2] = img.esize();
  }
  void *base() { return img.base(); }
};

inline void fill_random(std::mt19937_64 &rng, Image &im, bool extremes = true) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), extremes));
}

// The row padding and the guards are as they were before the call.
inline void check_rows_padding(const Image &im, const std::vector<uint8_t> &before) {
  const std::vector<uint8_t> after = im.bytes_copy();
  const size_t row_bytes = (size_t)im.cols() * im.channels() * im.esize();
  for (int32_t y = 0; y < im.rows(); ++y)
    for (size_t i = row_bytes; i < (size_t)im.rowstride(); ++i)
      ASSERT_EQ(after[y * im.rowstride() + i], before[y * im.rowstride() + i]) << "row " << y;
  ASSERT_TRUE(im.guards_intact());
}

// The types that have kernels in the arithmetic.
inline const std::vector<uint32_t> &kernel_types() {
  static const std::vector<uint32_t> t = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  return t;
}

}  // namespace arith_test

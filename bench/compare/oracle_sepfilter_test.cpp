// The separable and Gaussian filters against OpenCV's sepFilter2D and
// GaussianBlur, both correlating without reversing the kernel, with the
// anchor counted alike and reflection about the edge pixel. Where they
// differ by design the test allows exactly that:
//   - Sorn sums in f64; OpenCV sums f32 images in f32: f32 results agree
//     to the rounding of an f32 sum;
//   - Sorn rounds a u8 image to u8 after the first pass of a window of
//     more than one row and column (up to half a level off), and OpenCV
//     runs its u8 Gaussian in 16-bit fixed point, whose taps are rounded to
//     a few fractional bits: u8 results differ by at most 2;
//   - a window of one row or one column is one pass in Sorn, which never
//     reads the kernel of the axis of one cell; OpenCV multiplies by that
//     one tap. The tests give such a kernel the tap 1;
//   - OpenCV's Gaussian without a sigma uses fixed tables for 3, 5 and 7
//     taps, so the sigmas are given here, where both use the bell.
#include <gtest/gtest.h>
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

namespace {

SornArray sep_rec_of(const cv::Mat &m) {
  const uint32_t type = m.depth() == CV_8U ? SORN_U8 : SORN_F32;
  const int32_t dims[3] = {m.rows, m.cols, m.channels()};
  const int32_t strides[3] = {(int32_t)m.step[0], (int32_t)m.elemSize(), (int32_t)m.elemSize1()};
  SornArray r;
  __sorn_array__$xtrn(&r, 3 | 3 << 8, dims, type, m.data, nullptr, strides);
  return r;
}

class XE {
 public:
  XE() {
    std::memset(&xe_, 0, sizeof xe_);
    SornXEinit(&xe_, nullptr);
  }
  ~XE() { SornXEfini(&xe_); }
  SornXE *get() { return &xe_; }

 private:
  SornXE xe_;
};

// The largest difference of two images of one type, as doubles.
double largest_difference(const cv::Mat &a, const cv::Mat &b) {
  cv::Mat da, db;
  a.convertTo(da, CV_64F);
  b.convertTo(db, CV_64F);
  return cv::norm(da, db, cv::NORM_INF);
}

TEST(OracleSepFilter, AgreesWithSepFilter2DOnFloatImages) {
  std::mt19937_64 rng(0x5e9f);
  std::printf("seed 0x5e9f\n");
  XE xe;
  for (int it = 0; it < 60; ++it) {
    const int rows = 1 + (int)(rng() % 40), cols = 1 + (int)(rng() % 40);
    const int w = 1 + 2 * (int)(rng() % 5), h = 1 + 2 * (int)(rng() % 5);
    if (w == 1 && h == 1) continue;
    const int ax = (int)(rng() % w), ay = (int)(rng() % h);
    cv::Mat src(rows, cols, CV_32F), mine(rows, cols, CV_32F), theirs;
    cv::RNG(rng()).fill(src, cv::RNG::UNIFORM, cv::Scalar(-100), cv::Scalar(100));
    std::vector<double> kx((size_t)w), ky((size_t)h);
    std::uniform_real_distribution<double> d(0.0, 1.0);
    for (double &v : kx) v = d(rng);
    for (double &v : ky) v = d(rng);
    if (w == 1) kx[0] = 1.0;
    if (h == 1) ky[0] = 1.0;
    SornSepShape sep;
    std::memset(&sep, 0, sizeof sep);
    sep.size[1] = h;
    sep.size[2] = w;
    sep.anchor[1] = ay;
    sep.anchor[2] = ax;
    sep.kernels[0] = ky.data();
    sep.kernels[1] = kx.data();
    const SornArray s = sep_rec_of(src), m = sep_rec_of(mine);
    ASSERT_EQ(SORN_OK, SornSepFilter(xe.get(), 0, &m, &s, nullptr, nullptr, &sep));
    cv::sepFilter2D(src, theirs, CV_32F, cv::Mat(kx), cv::Mat(ky), cv::Point(ax, ay), 0,
                    cv::BORDER_REFLECT_101);
    EXPECT_LE(largest_difference(mine, theirs), 2e-3)
        << rows << "x" << cols << " window " << w << "x" << h << " anchor " << ax << "," << ay;
  }
}

TEST(OracleSepFilter, GaussianOfU8IsWithinTwoOfGaussianBlur) {
  std::mt19937_64 rng(0x6a55);
  std::printf("seed 0x6a55\n");
  XE xe;
  for (int it = 0; it < 40; ++it) {
    const int rows = 2 + (int)(rng() % 50), cols = 2 + (int)(rng() % 50);
    const int w = 3 + 2 * (int)(rng() % 3), h = 3 + 2 * (int)(rng() % 3);
    const double sx = 0.5 + (double)(rng() % 30) / 10.0, sy = 0.5 + (double)(rng() % 30) / 10.0;
    cv::Mat src(rows, cols, CV_8U), mine(rows, cols, CV_8U), theirs;
    cv::RNG(rng()).fill(src, cv::RNG::UNIFORM, cv::Scalar(0), cv::Scalar(256));
    SornSeShape se;
    std::memset(&se, 0, sizeof se);
    se.size[1] = h;
    se.size[2] = w;
    se.anchor[1] = h / 2;
    se.anchor[2] = w / 2;
    const double sigmas[2] = {sy, sx};  // rows first
    const SornArray s = sep_rec_of(src), m = sep_rec_of(mine);
    ASSERT_EQ(SORN_OK, SornGaussianFilter(xe.get(), 0, &m, &s, nullptr, nullptr, &se, sigmas));
    cv::GaussianBlur(src, theirs, cv::Size(w, h), sx, sy, cv::BORDER_REFLECT_101);
    EXPECT_LE(largest_difference(mine, theirs), 2.0)
        << rows << "x" << cols << " window " << w << "x" << h << " sigmas " << sx << "," << sy;
  }
}

}  // namespace

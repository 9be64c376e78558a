// Comparison rows of data movement: filling a region and copying rows,
// against OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <cstddef>

#include "compare.h"

using namespace compare;

namespace {

void data_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 2);
  const size_t n = (size_t)rows * cols;
  cv::Mat d8(rows, cols, CV_8U), c8(rows, cols, CV_8U);
  SornArray rd8 = rec_of(d8);

  {
    const double v[4] = {91, 91, 91, 91};
    add_row("fill u8", rows, cols, "Mat::setTo",
            [&] { check(SornFill(xe, 0, &rd8, nullptr, v), "SornFill"); },
            [&] { c8.setTo(cv::Scalar(91)); }, 2 * n, 1.0, samples);
    add_row("copy u8 (C_sorn_bcopy2d)", rows, cols, "Mat::copyTo",
            [&] { C_sorn_bcopy2d(d8.data, a8.data, (int32_t)d8.step[0], (int32_t)a8.step[0], rows, (size_t)cols); },
            [&] { a8.copyTo(c8); }, 2 * n, 1.0, samples);
  }
}

void data(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) data_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(data, 20, data);

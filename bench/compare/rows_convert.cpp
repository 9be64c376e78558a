// Comparison rows of the conversion between element types, against
// OpenCV's Mat::convertTo and cv::normalize.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <cstddef>

#include "compare.h"

using namespace compare;

namespace {

void convert_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 2);
  const size_t n = (size_t)rows * cols;
  cv::Mat d32(rows, cols, CV_32F), c32(rows, cols, CV_32F);
  SornArray ra8 = rec_of(a8), rd32 = rec_of(d32);

  add_row("convert u8 to f32", rows, cols, "Mat::convertTo",
          [&] {
            check(SornVConvert(xe, 0, &rd32, &ra8, nullptr, nullptr, nullptr, nullptr),
                  "SornVConvert");
          },
          [&] { a8.convertTo(c32, CV_32F); }, 5 * n, 1.0, samples);

  // Values past both ends of u8, and halves, which both round to even.
  cv::Mat f32;
  a8.convertTo(f32, CV_32F, 1.5, -60.5);
  cv::Mat d8(rows, cols, CV_8U), c8(rows, cols, CV_8U);
  SornArray rf32 = rec_of(f32), rd8 = rec_of(d8);
  add_row("convert f32 to u8, saturating", rows, cols, "Mat::convertTo",
          [&] {
            check(SornVConvert(xe, 0, &rd8, &rf32, nullptr, nullptr, nullptr, nullptr),
                  "SornVConvert");
          },
          [&] { f32.convertTo(c8, CV_8U); }, 5 * n, 1.0, samples);

  // The picture's own range onto 0..1: measured, then mapped.
  add_row("v-conversion u8 to f32", rows, cols, "cv::normalize NORM_MINMAX",
          [&] {
            SornVrng to{0.0, 1.0};
            check(SornVConvert(xe, 0, &rd32, &ra8, nullptr, nullptr, &to, nullptr),
                  "SornVConvert");
          },
          [&] { cv::normalize(a8, c32, 0.0, 1.0, cv::NORM_MINMAX, CV_32F); }, 6 * n, 1.0,
          samples, "both measure the picture first; the map is in doubles, narrowed once");
}

void convert(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) convert_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(convert, 21, convert);

// Comparison rows of the element-wise arithmetic: sums and differences of
// arrays and with a constant, against OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <cstddef>

#include "compare.h"

using namespace compare;

namespace {

void arith_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 2), b8 = scenes.at(rows, cols, 3);
  const size_t n = (size_t)rows * cols;
  cv::Mat d8(rows, cols, CV_8U), c8(rows, cols, CV_8U);
  SornArray ra8 = rec_of(a8), rb8 = rec_of(b8), rd8 = rec_of(d8);

  add_row("add u8, saturating", rows, cols, "cv::add",
          [&] { check(SornAddq(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr, 0, 0), "SornAddq"); },
          [&] { cv::add(a8, b8, c8); }, 3 * n, 1.0, samples);
  add_row("sub u8, saturating", rows, cols, "cv::subtract",
          [&] { check(SornSubq(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr, 0, 0), "SornSubq"); },
          [&] { cv::subtract(a8, b8, c8); }, 3 * n, 1.0, samples);
  {
    const double k[4] = {37, 37, 37, 37};
    add_row("add u8 + constant, saturating", rows, cols, "cv::add(Scalar)",
            [&] { check(SornAddqC(xe, 0, &rd8, &ra8, k, nullptr, nullptr, 0, 0), "SornAddqC"); },
            [&] { cv::add(a8, cv::Scalar(37), c8); }, 2 * n, 1.0, samples);
  }
  {
    cv::Mat d16(rows, cols, CV_16S), c16(rows, cols, CV_16S);
    SornArray rd16 = rec_of(d16);
    add_row("add u8 + u8 -> s16", rows, cols, "cv::add(CV_16S)",
            [&] { check(SornAdd(xe, 0, &rd16, &ra8, &rb8, nullptr, nullptr, nullptr, 0, 0), "SornAdd"); },
            [&] { cv::add(a8, b8, c16, cv::noArray(), CV_16S); }, 4 * n, 1.0, samples);
    cv::Mat a16, b16;
    a8.convertTo(a16, CV_16S, 128.0, -16384.0);
    b8.convertTo(b16, CV_16S, 128.0, -16384.0);
    SornArray ra16 = rec_of(a16), rb16 = rec_of(b16);
    add_row("add s16, saturating", rows, cols, "cv::add",
            [&] { check(SornAddq(xe, 0, &rd16, &ra16, &rb16, nullptr, nullptr, nullptr, 0, 0), "SornAddq"); },
            [&] { cv::add(a16, b16, c16); }, 6 * n, 1.0, samples);
  }
  {
    cv::Mat a32, b32;
    a8.convertTo(a32, CV_32F, 0.37, -11.0);
    b8.convertTo(b32, CV_32F, 1.91, 3.5);
    cv::Mat d32(rows, cols, CV_32F), c32(rows, cols, CV_32F);
    SornArray ra32 = rec_of(a32), rb32 = rec_of(b32), rd32 = rec_of(d32);
    add_row("add f32", rows, cols, "cv::add",
            [&] { check(SornAdd(xe, 0, &rd32, &ra32, &rb32, nullptr, nullptr, nullptr, 0, 0), "SornAdd"); },
            [&] { cv::add(a32, b32, c32); }, 12 * n, 1.0, samples);
    add_row("sub f32", rows, cols, "cv::subtract",
            [&] { check(SornSub(xe, 0, &rd32, &ra32, &rb32, nullptr, nullptr, nullptr, 0, 0), "SornSub"); },
            [&] { cv::subtract(a32, b32, c32); }, 12 * n, 1.0, samples);
  }
}

void arith(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) arith_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(arith, 10, arith);

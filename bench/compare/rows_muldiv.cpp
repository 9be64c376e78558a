// Comparison rows of multiplication, division, the logical operations and
// the exponential and logarithm, against OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <cstddef>

#include "compare.h"

using namespace compare;

namespace {

void muldiv_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 2), b8 = scenes.at(rows, cols, 3);
  const size_t n = (size_t)rows * cols;
  cv::Mat d8(rows, cols, CV_8U), c8(rows, cols, CV_8U);
  SornArray ra8 = rec_of(a8), rb8 = rec_of(b8), rd8 = rec_of(d8);

  add_row("multiply u8, saturating", rows, cols, "cv::multiply",
          [&] { check(SornMul(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr, 0, 0), "SornMul"); },
          [&] { cv::multiply(a8, b8, c8); }, 3 * n, 1.0, samples);
  add_row("divide u8, rounded", rows, cols, "cv::divide",
          [&] { check(SornDivr(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr, 0, 0), "SornDivr"); },
          [&] { cv::divide(a8, b8, c8); }, 3 * n, 1.0, samples,
          "a zero divisor gives 0 in both (here by the conversion)");
  add_row("and u8", rows, cols, "cv::bitwise_and",
          [&] { check(SornAnd(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr), "SornAnd"); },
          [&] { cv::bitwise_and(a8, b8, c8); }, 3 * n, 1.0, samples);
  add_row("xor u8", rows, cols, "cv::bitwise_xor",
          [&] { check(SornXor(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr), "SornXor"); },
          [&] { cv::bitwise_xor(a8, b8, c8); }, 3 * n, 1.0, samples);

  cv::Mat a32, b32;
  a8.convertTo(a32, CV_32F, 0.37, -11.0);
  b8.convertTo(b32, CV_32F, 1.91, 3.5);
  cv::Mat d32(rows, cols, CV_32F), c32(rows, cols, CV_32F);
  SornArray ra32 = rec_of(a32), rb32 = rec_of(b32), rd32 = rec_of(d32);
  add_row("multiply f32", rows, cols, "cv::multiply",
          [&] { check(SornMul(xe, 0, &rd32, &ra32, &rb32, nullptr, nullptr, nullptr, 0, 0), "SornMul"); },
          [&] { cv::multiply(a32, b32, c32); }, 12 * n, 1.0, samples);
  add_row("divide f32", rows, cols, "cv::divide",
          [&] { check(SornDiv(xe, 0, &rd32, &ra32, &rb32, nullptr, nullptr, nullptr, 0, 0), "SornDiv"); },
          [&] { cv::divide(a32, b32, c32); }, 12 * n, 1.0, samples);

  // The arguments of exp stay within its range, those of ln above 0.
  cv::Mat e32, l32;
  a8.convertTo(e32, CV_32F, 1.0 / 16, -8.0);
  a8.convertTo(l32, CV_32F, 0.5, 0.25);
  SornArray re32 = rec_of(e32), rl32 = rec_of(l32);
  add_row("exp f32", rows, cols, "cv::exp",
          [&] { check(SornExp(xe, 0, &rd32, &re32, nullptr, nullptr, 0, 0), "SornExp"); },
          [&] { cv::exp(e32, c32); }, 8 * n, 1.0, samples,
          "accurate form; both within a few units in the last place");
  add_row("ln f32", rows, cols, "cv::log",
          [&] { check(SornLn(xe, 0, &rd32, &rl32, nullptr, nullptr, 0, 0), "SornLn"); },
          [&] { cv::log(l32, c32); }, 8 * n, 1.0, samples,
          "accurate form; both within a few units in the last place");
}

void muldiv(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) muldiv_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(muldiv, 11, muldiv);

// Comparison rows of multiply-accumulate against OpenCV: the sum of an
// array and another times a constant, the contract of cv::scaleAdd.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <cstddef>

#include "compare.h"

using namespace compare;

namespace {

void mac_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 2), b8 = scenes.at(rows, cols, 3);
  const size_t n = (size_t)rows * cols;
  cv::Mat a32, b32;
  a8.convertTo(a32, CV_32F, 0.37, -11.0);
  b8.convertTo(b32, CV_32F, 1.91, 3.5);
  cv::Mat d32(rows, cols, CV_32F), c32(rows, cols, CV_32F);
  SornArray ra32 = rec_of(a32), rb32 = rec_of(b32), rd32 = rec_of(d32);
  const double factor[1] = {0.731};
  add_row("multiply-add f32", rows, cols, "cv::scaleAdd",
          [&] {
            check(SornMulAddC(xe, 0, &rd32, &ra32, &rb32, factor, nullptr, nullptr, nullptr, 0, 0),
                  "SornMulAddC");
          },
          [&] { cv::scaleAdd(b32, factor[0], a32, c32); }, 12 * n, 1.0, samples,
          "a + b * c with the constant rounded to f32, the product and the sum each rounded");
}

void mac(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) mac_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(mac, 12, mac);

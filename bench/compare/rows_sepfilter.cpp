// Comparison rows of the Gaussian and separable filters, against OpenCV's
// GaussianBlur and sepFilter2D with the same border (reflection about the
// edge pixel). Sorn sums in f64 and rounds after each pass; OpenCV's u8
// Gaussian runs in fixed point. The goals hold at both sizes.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <string>

#include "compare.h"

using namespace compare;

namespace {

SornSeShape square(int32_t n) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = se.size[2] = n;
  se.anchor[1] = se.anchor[2] = n / 2;
  return se;
}

void sep_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 5);
  cv::Mat a32;
  a8.convertTo(a32, CV_32F, 1.0 / 255);
  const SornSeShape s3 = square(3), s5 = square(5);
  // A smoothing kernel of seven taps, the same along both axes.
  const double k7[7] = {0.03, 0.1, 0.22, 0.3, 0.22, 0.1, 0.03};
  SornSepShape sep;
  std::memset(&sep, 0, sizeof sep);
  sep.size[1] = sep.size[2] = 7;
  sep.anchor[1] = sep.anchor[2] = 3;
  sep.kernels[0] = sep.kernels[1] = k7;
  const cv::Mat ck7(7, 1, CV_64F, const_cast<double *>(k7));
  const int r101 = cv::BORDER_REFLECT_101;
  for (const cv::Mat *a : {&a8, (const cv::Mat *)&a32}) {
    const std::string t = a->depth() == CV_8U ? "u8" : "f32";
    cv::Mat d(rows, cols, a->type()), c(rows, cols, a->type());
    const SornArray ra = rec_of(*a), rd = rec_of(d);
    auto row = [&](const std::string &op, const std::string &peer, std::function<void()> sorn,
                   std::function<void()> other, double goal) {
      const auto times = race({std::move(sorn), std::move(other)}, samples);
      add_timed_row(op + " " + t, rows, cols, peer, times[0], times[1], goal, "");
    };
    row("Gaussian 3x3", "cv::GaussianBlur",
        [&] {
          check(SornGaussianFilter(xe, 0, &rd, &ra, nullptr, nullptr, &s3, nullptr),
                "SornGaussianFilter");
        },
        [&] { cv::GaussianBlur(*a, c, cv::Size(3, 3), 0, 0, r101); }, NAN);
    row("Gaussian 5x5", "cv::GaussianBlur",
        [&] {
          check(SornGaussianFilter(xe, 0, &rd, &ra, nullptr, nullptr, &s5, nullptr),
                "SornGaussianFilter");
        },
        [&] { cv::GaussianBlur(*a, c, cv::Size(5, 5), 0, 0, r101); }, 0.7);
    row("separable 7x7", "cv::sepFilter2D",
        [&] {
          check(SornSepFilter(xe, 0, &rd, &ra, nullptr, nullptr, &sep), "SornSepFilter");
        },
        [&] { cv::sepFilter2D(*a, c, -1, ck7, ck7, cv::Point(-1, -1), 0, r101); }, 1.0);
  }
}

void sepfilters(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) sep_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(sepfilter, 26, sepfilters);

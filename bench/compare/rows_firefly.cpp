// Comparison rows of the firefly filter's blurs (kind 5 with the default
// window: Gaussians of 5, 25 and 75 mixed 1:6:9) against the same composite
// built from OpenCV: three cv::GaussianBlur of those sizes (its sigma rule
// for a size is the same formula) and two cv::addWeighted. OpenCV has no
// firefly of its own; the row times the composite, not one function. Both
// reflect about the edge pixel; the pixels differ, since Sorn's byte mix
// multiplies by integer constants (1/16 becomes 0) and OpenCV's in floats.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>

#include "compare.h"

using namespace compare;

namespace {

void firefly_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a = scenes.at(rows, cols, 7);
  cv::Mat d(rows, cols, CV_8UC1), b5, b25, b75, mix;
  const SornArray ra = rec_of(a), rd = rec_of(d);
  const int r101 = cv::BORDER_REFLECT_101;
  const auto times = race(
      {[&] {
         check(SornFirefly(xe, 0, &rd, &ra, nullptr, nullptr, SORN_FIREFLY_GAUSS, nullptr),
               "SornFirefly");
       },
       [&] {
         cv::GaussianBlur(a, b5, cv::Size(5, 5), 0, 0, r101);
         cv::GaussianBlur(a, b25, cv::Size(25, 25), 0, 0, r101);
         cv::GaussianBlur(a, b75, cv::Size(75, 75), 0, 0, r101);
         cv::addWeighted(b5, 1.0 / 16, b25, 6.0 / 16, 0.0, mix);
         cv::addWeighted(mix, 1.0, b75, 9.0 / 16, 0.0, mix);
       }},
      samples);
  add_timed_row("firefly blurs u8, 5/25/75 mixed 1:6:9", rows, cols,
                "3 cv::GaussianBlur + 2 cv::addWeighted", times[0], times[1], 1.0,
                "a composite: OpenCV has no such filter; Sorn sums every tap in f64 (75 taps a "
                "pass), OpenCV's u8 Gaussian runs in fixed point");
}

void fireflies(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) firefly_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(firefly, 27, fireflies);

// Comparison rows of the statistics: histogram, sums and means, against
// OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <opencv2/imgproc.hpp>

#include <cstddef>
#include <cstring>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

void stats_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 4);
  const size_t n = (size_t)rows * cols;
  SornArray ra8 = rec_of(a8);
  {
    std::vector<uint32_t> counts(257);
    SornHist h;
    std::memset(&h, 0, sizeof h);
    const SornHistInit init = {SORN_U8, 256, 0.0, 255.0, 1, rows, cols};
    sorn_hist_inithdr(&h, &init);
    h.counts = counts.data();
    cv::Mat hist;
    const int channels[1] = {0}, bins[1] = {256};
    const float range[2] = {0, 256};
    const float *ranges[1] = {range};
    add_row("histogram u8, 256 bins", rows, cols, "cv::calcHist",
            [&] {
              sorn_hist_reset(&h);
              check(SornHistogram(xe, 0, &ra8, nullptr, 0, &h), "SornHistogram");
            },
            [&] { cv::calcHist(&a8, 1, channels, cv::noArray(), hist, 1, bins, ranges); }, n, 1.0,
            samples);
  }
  double s[4] = {0, 0, 0, 0};
  cv::Scalar cs;
  add_row("sum u8", rows, cols, "cv::sum",
          [&] { check(SornSum(xe, 0, &ra8, nullptr, s), "SornSum"); },
          [&] { cs = cv::sum(a8); }, n, 1.0, samples);
  cv::Mat a32;
  a8.convertTo(a32, CV_32F, 0.37, -11.0);
  SornArray ra32 = rec_of(a32);
  add_row("sum f32", rows, cols, "cv::sum",
          [&] { check(SornSum(xe, 0, &ra32, nullptr, s), "SornSum"); },
          [&] { cs = cv::sum(a32); }, 4 * n, 1.0, samples);
  add_row("mean u8", rows, cols, "cv::mean",
          [&] { check(SornMean(xe, 0, &ra8, nullptr, s), "SornMean"); },
          [&] { cs = cv::mean(a8); }, n, 1.0, samples);
  cv::Mat mask;
  cv::threshold(a8, mask, 110, 255, cv::THRESH_BINARY);
  SornArray rm = rec_of(mask);
  add_row("mean u8, masked", rows, cols, "cv::mean(mask)",
          [&] { check(SornMeanEx(xe, 0, &ra8, &rm, nullptr, nullptr, s), "SornMeanEx"); },
          [&] { cs = cv::mean(a8, mask); }, 2 * n, 1.0, samples);
}

void stats(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) stats_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(stats, 30, stats);

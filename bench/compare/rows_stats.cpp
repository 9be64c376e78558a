// Comparison rows of the statistics: histogram, sums and means, against
// OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

// Whether the f32 sum of a picture can add in lanes: no partial sum of its
// values can round when their count is at most 2^(29 - spread), the spread
// being that of their exponents (the least counted as 1 for subnormals),
// zeros left out. See stats/__sum.cpp.
bool lanes_exact(const cv::Mat &m) {
  uint32_t lo = 255, hi = 0;
  for (int y = 0; y < m.rows; ++y) {
    const float *p = m.ptr<float>(y);
    for (int x = 0; x < m.cols * m.channels(); ++x) {
      uint32_t u;
      std::memcpy(&u, &p[x], 4);
      u &= 0x7fffffffu;
      const uint32_t e = u >> 23;
      if (u != 0) lo = std::min(lo, std::max(e, 1u));
      hi = std::max(hi, e);
    }
  }
  if (hi == 255) return false;
  if (hi < lo) return true;
  const uint32_t spread = hi - lo;
  return spread <= 29 && (double)m.total() * m.channels() <= std::ldexp(1.0, 29 - (int)spread);
}

std::string lanes_note(const cv::Mat &m) {
  return lanes_exact(m) ? "exact in lanes: added in lanes"
                        : "not provably exact in lanes: added in address order";
}

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
          [&] { cs = cv::sum(a32); }, 4 * n, 1.0, samples, lanes_note(a32));
  {
    // The bound of the serial chain: one double addition per element, in
    // address order, as the sum adds where it cannot prove its lanes exact.
    volatile double chain = 0;
    add_row("sum f32", rows, cols, "plain loop, one double addition per element",
            [&] { check(SornSum(xe, 0, &ra32, nullptr, s), "SornSum"); },
            [&] {
              double t = 0;
              for (int y = 0; y < a32.rows; ++y) {
                const float *p = a32.ptr<float>(y);
                for (int x = 0; x < a32.cols; ++x) t += (double)p[x];
              }
              chain = t;
            },
            4 * n, 1.10, samples, lanes_note(a32));
  }
  cv::Mat p32;
  a8.convertTo(p32, CV_32F);
  SornArray rp32 = rec_of(p32);
  add_row("sum f32, picture 0 to 255", rows, cols, "cv::sum",
          [&] { check(SornSum(xe, 0, &rp32, nullptr, s), "SornSum"); },
          [&] { cs = cv::sum(p32); }, 4 * n, 1.0, samples, lanes_note(p32));
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

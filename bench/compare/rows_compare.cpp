// Comparison rows of comparing, minimum and maximum with their places, and
// thresholding, against OpenCV.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstddef>
#include <cstring>

#include "compare.h"

using namespace compare;

namespace {

SornThresholdSpec spec_of(uint32_t method) {
  SornThresholdSpec s;
  std::memset(&s, 0, sizeof s);
  s.method = method;
  return s;
}

void compare_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 6), b8 = scenes.at(rows, cols, 7);
  const size_t n = (size_t)rows * cols;
  cv::Mat d8(rows, cols, CV_8U), c8(rows, cols, CV_8U);
  const SornArray ra8 = rec_of(a8), rb8 = rec_of(b8), rd8 = rec_of(d8);

  const double v = 100;
  add_row(
      "compare u8 < constant", rows, cols, "cv::compare(Scalar)",
      [&] {
        check(SornCompareC(xe, 0, &rd8, &ra8, &v, nullptr, nullptr, SORN_CMP_LT), "SornCompareC");
      },
      [&] { cv::compare(a8, cv::Scalar(v), c8, cv::CMP_LT); }, 2 * n, 1.0, samples);
  add_row(
      "compare u8 < u8", rows, cols, "cv::compare",
      [&] {
        check(SornCompare(xe, 0, &rd8, &ra8, &rb8, nullptr, nullptr, nullptr, SORN_CMP_LT),
              "SornCompare");
      },
      [&] { cv::compare(a8, b8, c8, cv::CMP_LT); }, 3 * n, 1.0, samples);
  cv::Mat a32, b32;
  a8.convertTo(a32, CV_32F, 0.37, -11.0);
  b8.convertTo(b32, CV_32F, 0.37, -11.0);
  const SornArray ra32 = rec_of(a32), rb32 = rec_of(b32);
  add_row(
      "compare f32 < f32", rows, cols, "cv::compare",
      [&] {
        check(SornCompare(xe, 0, &rd8, &ra32, &rb32, nullptr, nullptr, nullptr, SORN_CMP_LT),
              "SornCompare");
      },
      [&] { cv::compare(a32, b32, c8, cv::CMP_LT); }, 9 * n, 1.0, samples,
      "Sorn compares floats within 1.1920929e-7, OpenCV exactly");

  // Extremes with their places, on a picture that never reaches 0 and 255:
  // Sorn's walk, which ends once both ends of the type are found, reads
  // every row here as OpenCV's does.
  cv::Mat m8;
  a8.convertTo(m8, CV_8U, 252.0 / 255.0, 1.0);
  const SornArray rm8 = rec_of(m8);
  SornMinmaxRec r;
  double mn, mx;
  cv::Point pmin, pmax;
  add_row(
      "min/max with places u8", rows, cols, "cv::minMaxLoc",
      [&] {
        r.what = SORN_MINMAX_POSITIONS | SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
        check(SornMinmax(xe, 0, &rm8, nullptr, &r), "SornMinmax");
      },
      [&] { cv::minMaxLoc(m8, &mn, &mx, &pmin, &pmax); }, n, 0.7, samples,
      "values 1 to 254: no early end");
  add_row(
      "min/max with places f32", rows, cols, "cv::minMaxLoc",
      [&] {
        r.what = SORN_MINMAX_POSITIONS | SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
        check(SornMinmax(xe, 0, &ra32, nullptr, &r), "SornMinmax");
      },
      [&] { cv::minMaxLoc(a32, &mn, &mx, &pmin, &pmax); }, 4 * n, NAN, samples);

  const SornThresholdSpec otsu = spec_of(SORN_THH_OTSU | SORN_THH_DEFAULTS);
  add_row(
      "Otsu threshold u8", rows, cols, "cv::threshold(OTSU)",
      [&] {
        check(SornThreshold(xe, 0, &rd8, &ra8, nullptr, nullptr, &otsu, nullptr, 0),
              "SornThreshold");
      },
      [&] { cv::threshold(a8, c8, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU); }, 2 * n, 0.6,
      samples);
  // The blur method runs the box filter, which is not in the library yet.
  const double peer_ms = race({[&] {
                                cv::adaptiveThreshold(a8, c8, 255, cv::ADAPTIVE_THRESH_MEAN_C,
                                                      cv::THRESH_BINARY, 5, 0);
                              }},
                              samples)[0];
  add_timed_row("blur threshold u8, 5x5 mean", rows, cols, "cv::adaptiveThreshold(MEAN)", NAN,
                peer_ms, rows == 1080 ? 1.0 : NAN, "pending: the box filter");
}

void compare_family(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) compare_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(compare, 25, compare_family);

// Comparison rows of morphology: the rectangular opening through SornFilter
// against cv::morphologyEx, and erosion with a disc mask through
// SornMorphop against cv::erode with the same mask, both reflecting about
// the edge pixel. The goals hold at both sizes.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <string>

#include "compare.h"

using namespace compare;

namespace {

void morph_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 6);
  cv::Mat a32;
  a8.convertTo(a32, CV_32F, 1.0 / 255);
  const int r101 = cv::BORDER_REFLECT_101;
  const cv::Mat rect = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5));
  const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(5, 5));
  // The same disc as a mask of 0 and 255.
  cv::Mat cells = disc * 255;
  SornStrel strel;
  std::memset(&strel, 0, sizeof strel);
  strel.anchor[1] = strel.anchor[2] = 2;
  strel.mask = rec_of(cells);
  const SornSeShape square = {{0, 2, 2, 0}, {1, 5, 5, 0}};
  for (const cv::Mat *a : {&a8, (const cv::Mat *)&a32}) {
    const std::string t = a->depth() == CV_8U ? "u8" : "f32";
    cv::Mat d(rows, cols, a->type()), c(rows, cols, a->type());
    const SornArray ra = rec_of(*a), rd = rec_of(d);
    auto t1 =
        race({[&] {
                check(SornFilter(xe, 0, &rd, &ra, nullptr, nullptr, SORN_FILTER_OPEN, &square),
                      "SornFilter");
              },
              [&] { cv::morphologyEx(*a, c, cv::MORPH_OPEN, rect, cv::Point(-1, -1), 1, r101); }},
             samples);
    add_timed_row("opening 5x5 " + t, rows, cols, "cv::morphologyEx(OPEN)", t1[0], t1[1], 1.0,
                  "Sorn's second pass sees the first pass's results within the image only, "
                  "OpenCV's reflects them: the same inside, a band of 2 px apart");
    auto t2 =
        race({[&] {
                check(SornMorphop(xe, 0, &rd, &ra, nullptr, nullptr, SORN_MORPH_ERODE, &strel),
                      "SornMorphop");
              },
              [&] { cv::erode(*a, c, disc, cv::Point(-1, -1), 1, r101); }},
             samples);
    add_timed_row("erosion 5x5 disc mask " + t, rows, cols, "cv::erode", t2[0], t2[1], 1.0,
                  "the same 21-cell disc in both; the same values (oracle tests)");
  }
}

void morphs(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) morph_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(morph, 26, morphs);

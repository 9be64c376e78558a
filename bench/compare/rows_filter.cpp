// Comparison rows of the border copy and the flat filters, against OpenCV's
// copyMakeBorder, blur, erode and dilate with the same border (reflection
// about the edge pixel). The goals hold at both sizes.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

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

void race_row(const std::string &op, int rows, int cols, const std::string &peer,
              std::function<void()> sorn, std::function<void()> other, double goal, int samples,
              const std::string &note = "") {
  const auto t = race({std::move(sorn), std::move(other)}, samples);
  add_timed_row(op, rows, cols, peer, t[0], t[1], goal, note);
}

void filter_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat a8 = scenes.at(rows, cols, 4);
  cv::Mat a32;
  a8.convertTo(a32, CV_32F, 1.0 / 255);
  const SornSeShape s3 = square(3), s7 = square(7);
  const cv::Mat k3 = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
  const cv::Mat k7 = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(7, 7));
  const int r101 = cv::BORDER_REFLECT_101;
  for (const cv::Mat *a : {&a8, (const cv::Mat *)&a32}) {
    const std::string t = a->depth() == CV_8U ? "u8" : "f32";
    cv::Mat framed(rows + 4, cols + 4, a->type()), peer_framed(rows + 4, cols + 4, a->type());
    cv::Mat d(rows, cols, a->type()), c(rows, cols, a->type());
    const SornArray ra = rec_of(*a), rf = rec_of(framed), rd = rec_of(d);
    SornBrShape br;
    std::memset(&br, 0, sizeof br);
    br.lo[1] = br.lo[2] = -2;
    br.hi[1] = br.hi[2] = 2;
    race_row("border copy " + t + ", reflect101 2 px", rows, cols, "cv::copyMakeBorder",
             [&] {
               check(SornCopyMkb(xe, 0, &rf, &ra, nullptr, nullptr, SORN_BORDER_REFLECT101, &br),
                     "SornCopyMkb");
             },
             [&] { cv::copyMakeBorder(*a, peer_framed, 2, 2, 2, 2, r101); }, 1.0, samples);
    auto filter = [&](int32_t kind, const SornSeShape *se) {
      return [&, kind, se] {
        check(SornFilter(xe, 0, &rd, &ra, nullptr, nullptr, kind, se), "SornFilter");
      };
    };
    race_row("box 3x3 " + t, rows, cols, "cv::blur", filter(SORN_FILTER_BOX, &s3),
             [&] { cv::blur(*a, c, cv::Size(3, 3), cv::Point(-1, -1), r101); }, 0.5, samples);
    race_row("box 7x7 " + t, rows, cols, "cv::blur", filter(SORN_FILTER_BOX, &s7),
             [&] { cv::blur(*a, c, cv::Size(7, 7), cv::Point(-1, -1), r101); }, 0.5, samples);
    race_row("min 3x3 " + t, rows, cols, "cv::erode", filter(SORN_FILTER_MIN, &s3),
             [&] { cv::erode(*a, c, k3, cv::Point(-1, -1), 1, r101); }, 1.0, samples);
    race_row("max 7x7 " + t, rows, cols, "cv::dilate", filter(SORN_FILTER_MAX, &s7),
             [&] { cv::dilate(*a, c, k7, cv::Point(-1, -1), 1, r101); }, 0.7, samples);
  }
}

void filters(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) filter_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(filter, 25, filters);

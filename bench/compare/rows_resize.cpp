// Comparison rows of nearest-neighbour resizing: u8 images of one and four
// channels by 1/2 and by 2, against cv::resize with INTER_NEAREST. The two
// agree pixel for pixel when shrinking; when enlarging they take their
// source pixels by different rules (oracle_test.cpp names the difference)
// and move the same bytes. The memcpy column moves what the resize reads
// (the source rows it uses) and what it writes.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstddef>
#include <string>

#include "compare.h"

using namespace compare;

namespace {

void resize_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  const cv::Mat grey = scenes.at(rows, cols, 4);
  cv::Mat bgra;
  cv::cvtColor(grey, bgra, cv::COLOR_GRAY2BGRA);
  for (const cv::Mat *src : {&grey, (const cv::Mat *)&bgra}) {
    const int ch = src->channels();
    for (double f : {0.5, 2.0}) {
      const int dw = (int)std::lround(cols * f), dh = (int)std::lround(rows * f);
      cv::Mat ours(dh, dw, src->type()), theirs(dh, dw, src->type());
      const SornArray rs = rec_of(*src), rd = rec_of(ours);
      const double factors[2] = {f, f};
      const size_t read = (size_t)(f < 1 ? dh : rows) * (size_t)cols * (size_t)ch;
      const size_t written = (size_t)dw * (size_t)dh * (size_t)ch;
      const std::string op = std::string("resize u8 ") +
                             (ch == 1 ? "one channel" : "four channels") +
                             (f < 1 ? ", x0.5" : ", x2");
      add_row(
          op, rows, cols, "cv::resize NEAREST",
          [&] {
            check(SornEResize(&env.xe, 0, &rd, &rs, nullptr, nullptr, 0, factors), "SornEResize");
          },
          [&] { cv::resize(*src, theirs, cv::Size(dw, dh), 0, 0, cv::INTER_NEAREST); },
          read + written, f < 1 ? 0.6 : 0.3, samples,
          f < 1 ? "same pixels as OpenCV" : "source pixels by its own rule (see the oracle tests)");
    }
  }
}

void resize(const Scenes &scenes, const Options &opt) {
  for (const auto &s : kFrameSizes) resize_rows(scenes, s[0], s[1], opt.samples);
}

}  // namespace

SORN_COMPARE_FAMILY(resize, 35, resize);

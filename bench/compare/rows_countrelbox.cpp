// Comparison rows of the relative box count: the count of the box's pixels
// at or below the centre, beside OpenCV's median filter, the same class of
// rank statistic over a box (there is no direct peer), at the three box
// sizes of the benchmarks.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <opencv2/imgproc.hpp>

#include <cstring>
#include <string>

#include "compare.h"

using namespace compare;

namespace {

struct Size {
  int side;
  double goal;
};

void countrelbox(const Scenes &scenes, const Options &opt) {
  const int rows = kFrameSizes[1][0], cols = kFrameSizes[1][1];
  Env env;
  const cv::Mat a8 = scenes.at(rows, cols, 6);
  cv::Mat out(rows, cols, CV_8UC1), med(rows, cols, CV_8UC1);
  SornArray ra = rec_of(a8), ro = rec_of(out);
  // Boxes of at most 256 pixels count directly and are held to the
  // median's time. A larger one slides column histograms whose work per
  // pixel follows the range of values in the row (the median's coarse and
  // fine histograms make its own constant): at most three times the
  // median's time.
  for (const Size &s : {Size{5, 1.0}, Size{15, 1.0}, Size{51, 3.0}}) {
    SornSeShape box;
    std::memset(&box, 0, sizeof box);
    box.size[1] = box.size[2] = s.side;
    box.anchor[1] = box.anchor[2] = s.side / 2;
    const std::string side = std::to_string(s.side);
    add_row("relative box count u8, " + side + "x" + side + ", at or below", rows, cols,
            "cv::medianBlur",
            [&] {
              check(SornCountRelBox(&env.xe, 0, &ro, &ra, nullptr, nullptr, SORN_CMP_LE, &box,
                                    nullptr, 0, 0),
                    "SornCountRelBox");
            },
            [&] { cv::medianBlur(a8, med, s.side); }, 0, s.goal, opt.samples,
            "Sorn: how many of the box's pixels are at or below the centre, borders reflected; "
            "OpenCV: the box's median, borders replicated; the same class of rank statistic, "
            "for scale");
  }
}

}  // namespace

SORN_COMPARE_FAMILY(countrelbox, 31, countrelbox);

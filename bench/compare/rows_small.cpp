// Comparison rows of small images: what one call costs on 8x8, 64x64 and
// 640x480 pictures, for the add, the subtract, the fill, the histogram and
// the sum, against OpenCV; and the fixed cost of one call (the entry's
// checks, the negotiation of the region, the frame and the dispatch), in
// nanoseconds, from the straight line through the 8x8 and 64x64 times.
#include <sorn.h>

#include <opencv2/core.hpp>

#include <opencv2/imgproc.hpp>

#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

constexpr int kSmallSizes[3] = {8, 64, 0};  // 0: 640x480

// One operation of the rows: Sorn's call and the peer's, on an image of
// the given size.
struct Contest {
  std::function<void()> sorn, peer;
};
using MakeContest =
    std::function<Contest(const cv::Mat &a, const cv::Mat &b, cv::Mat &d, cv::Mat &c)>;

struct Op {
  const char *name;
  const char *peer;
  MakeContest make;
};

// Sorn's two-source operation against OpenCV's, on a, b into d (Sorn) and c.
using SornTwo = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const SornArray *, const SornVolume *, const SornVolume *,
                               const SornVolume *, int32_t, uint32_t);
using PeerTwo = void (*)(const cv::Mat &, const cv::Mat &, cv::Mat &);
void cv_add(const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::add(a, b, c); }
void cv_subtract(const cv::Mat &a, const cv::Mat &b, cv::Mat &c) { cv::subtract(a, b, c); }

MakeContest two_sources(SornTwo sorn, const char *what, PeerTwo peer) {
  return [=](const cv::Mat &a, const cv::Mat &b, cv::Mat &d, cv::Mat &c) {
    auto env = std::make_shared<Env>();
    auto r = std::make_shared<std::vector<SornArray>>(
        std::vector<SornArray>{rec_of(a), rec_of(b), rec_of(d)});
    return Contest{
        [=] {
          check(sorn(&env->xe, 0, &(*r)[2], &(*r)[0], &(*r)[1], nullptr, nullptr, nullptr, 0, 0),
                what);
        },
        [&a, &b, &c, peer] { peer(a, b, c); }};
  };
}

std::string ns(double ms) { return std::to_string((long)(ms * 1e6 + 0.5)); }

void small_rows(const Scenes &scenes, const Op &op, int samples) {
  double sorn_ms[3], peer_ms[3];
  int pixels[3];
  for (int i = 0; i < 3; ++i) {
    const int rows = kSmallSizes[i] ? kSmallSizes[i] : 480;
    const int cols = kSmallSizes[i] ? kSmallSizes[i] : 640;
    const cv::Mat a = scenes.at(rows, cols, 2), b = scenes.at(rows, cols, 3);
    cv::Mat d(rows, cols, CV_8U), c(rows, cols, CV_8U);
    Contest k = op.make(a, b, d, c);
    // A small call is timed in batches of many calls: race() sizes them.
    const auto t = race({k.sorn, k.peer}, samples);
    sorn_ms[i] = t[0];
    peer_ms[i] = t[1];
    pixels[i] = rows * cols;
    add_timed_row(op.name, rows, cols, op.peer, t[0], t[1], NAN,
                  "ns per call: Sorn " + ns(t[0]) + ", OpenCV " + ns(t[1]));
  }
  // t(n) = fixed + n * per_pixel through the two small sizes.
  auto fixed = [&](const double *t) {
    const double per = (t[1] - t[0]) / (pixels[1] - pixels[0]);
    return t[0] - per * pixels[0];
  };
  const double fs = fixed(sorn_ms), fp = fixed(peer_ms);
  add_sized_row(std::string(op.name) + ", fixed cost of a call", "8x8 to 64x64", op.peer, fs, fp,
                1.0,
                "ns: Sorn " + ns(fs) + ", OpenCV " + ns(fp) +
                    "; the time of a call less its pixels' share, from the two small sizes");
}

void small(const Scenes &scenes, const Options &opt) {
  const std::vector<Op> ops = {
      {"add u8, saturating, small", "cv::add", two_sources(&SornAddq, "SornAddq", &cv_add)},
      {"sub u8, saturating, small", "cv::subtract",
       two_sources(&SornSubq, "SornSubq", &cv_subtract)},
      {"fill u8, small", "Mat::setTo",
       [](const cv::Mat &, const cv::Mat &, cv::Mat &d, cv::Mat &c) {
         auto env = std::make_shared<Env>();
         auto r = std::make_shared<SornArray>(rec_of(d));
         return Contest{[env, r] {
                          const double v[4] = {91, 91, 91, 91};
                          check(SornFill(&env->xe, 0, r.get(), nullptr, v), "SornFill");
                        },
                        [&c] { c.setTo(cv::Scalar(91)); }};
       }},
      {"histogram u8, 256 bins, small", "cv::calcHist",
       [](const cv::Mat &a, const cv::Mat &, cv::Mat &, cv::Mat &) {
         struct State {
           Env env;
           std::vector<uint32_t> counts = std::vector<uint32_t>(257);
           SornHist h;
           SornArray ra;
           cv::Mat hist;
         };
         auto s = std::make_shared<State>();
         std::memset(&s->h, 0, sizeof s->h);
         const SornHistInit init = {SORN_U8, 256, 0.0, 255.0, 1, a.rows, a.cols};
         sorn_hist_inithdr(&s->h, &init);
         s->h.counts = s->counts.data();
         s->ra = rec_of(a);
         return Contest{[s] {
                          sorn_hist_reset(&s->h);
                          check(SornHistogram(&s->env.xe, 0, &s->ra, nullptr, 0, &s->h),
                                "SornHistogram");
                        },
                        [s, &a] {
                          const int channels[1] = {0}, bins[1] = {256};
                          const float range[2] = {0, 256};
                          const float *ranges[1] = {range};
                          cv::calcHist(&a, 1, channels, cv::noArray(), s->hist, 1, bins, ranges);
                        }};
       }},
      {"sum u8, small", "cv::sum",
       [](const cv::Mat &a, const cv::Mat &, cv::Mat &, cv::Mat &) {
         auto env = std::make_shared<Env>();
         auto r = std::make_shared<SornArray>(rec_of(a));
         return Contest{[env, r] {
                          double s[4];
                          check(SornSum(&env->xe, 0, r.get(), nullptr, s), "SornSum");
                        },
                        [&a] {
                          volatile double s = cv::sum(a)[0];
                          (void)s;
                        }};
       }},
  };
  for (const Op &op : ops) small_rows(scenes, op, opt.samples);
  add_note(
      "Small images: each row times one call on an 8x8, 64x64 or 640x480 picture (the notes give "
      "the times in ns); the fixed cost of a call is the time at 8x8 less 64 times the cost of a "
      "pixel, taken from the 8x8 and 64x64 times, and its goal is OpenCV's fixed cost.");
}

}  // namespace

SORN_COMPARE_FAMILY(small, 15, small);

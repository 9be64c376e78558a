// Comparison rows of the stable regions: Sorn's floodings and its stable
// regions against OpenCV's and VLFeat's detectors, on the same picture.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

extern "C" {
#include <vl/mser.h>
}

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

// The library's default parameters, given to every detector.
struct MserParams {
  int delta = SORN_MSER_DEFAULT_DELTA;
  double minarea = SORN_MSER_DEFAULT_MINAREA, maxarea = SORN_MSER_DEFAULT_MAXAREA;
  double maxvariation = SORN_MSER_DEFAULT_MAXVARIATION;
  double mindiversity = SORN_MSER_DEFAULT_MINDIVERSITY;
};

// The flooding that the stable-region generation runs once for dark and
// once for bright regions; regions counted are those of 16 pixels or more,
// which become nodes.
int count_nodes(const SornFWTSRegion *r) {
  int n = 1;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) n += count_nodes(c);
  return n;
}

int sorn_floodings(SornXE *xe, const cv::Mat &img) {
  // The layer below reads whole four-cell vectors, given at the first of
  // the three cells in use.
  const int32_t dims4[4] = {1, img.rows, img.cols, 1};
  const int32_t strides4[4] = {0, (int32_t)img.step[0], 1, 1};
  const int32_t origin4[4] = {0, 0, 0, 0};
  const int32_t *dims = dims4 + 1, *strides = strides4 + 1, *origin = origin4 + 1;
  int nodes = 0;
  for (uint16_t pol = 0; pol < 2; ++pol) {
    SornFWTSRES res;
    std::memset(&res, 0, sizeof res);
    SornFWTSRESinit(&res, nullptr, nullptr);
    SornWTSState st;
    std::memset(&st, 0, sizeof st);
    st.builder = &res;
    st.polarity = pol;
    check(sorna_fwatershed(xe, SORN_F_WTS_FFORM, &st, SORN_DIMPACK(3), dims, SORN_U8, img.data,
                           origin, strides),
          "sorna_fwatershed");
    if (res.root) nodes += count_nodes(res.root);
    SornFWTSRESfini(&res);
  }
  return nodes;
}

int sorn_msers(SornXE *xe, const SornArray *img) {
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  check(SornGenerateFMSERs(xe, 0, img, nullptr, &f), "SornGenerateFMSERs");
  const int n = (int)f.count1 + (int)f.count2;
  sorn_fmserf_destroy(&f);
  return n;
}

void mser_rows(const Scenes &scenes, int rows, int cols, int samples) {
  Env env;
  SornXE *xe = &env.xe;
  const cv::Mat img = scenes.at(rows, cols, 6);
  cv::Mat inv;
  const MserParams p;
  const double px = (double)rows * cols;

  auto cvm = cv::MSER::create(p.delta, std::max(1, (int)(px * p.minarea)), (int)(px * p.maxarea),
                              p.maxvariation, p.mindiversity);
  std::vector<std::vector<cv::Point>> cvregions;
  std::vector<cv::Rect> boxes;
  auto opencv = [&] { cvm->detectRegions(img, cvregions, boxes); };

  const int vdims[2] = {cols, rows};  // the first dimension varies fastest
  VlMserFilt *vf = vl_mser_new(2, vdims);
  vl_mser_set_delta(vf, (vl_mser_pix)p.delta);
  vl_mser_set_min_area(vf, p.minarea);
  vl_mser_set_max_area(vf, p.maxarea);
  vl_mser_set_max_variation(vf, p.maxvariation);
  vl_mser_set_min_diversity(vf, p.mindiversity);
  int vlcount = 0;
  auto vlfeat = [&] {
    // One pass finds dark regions; the bright ones come from the inverse.
    vl_mser_process(vf, img.ptr<vl_mser_pix>());
    vlcount = (int)vl_mser_get_regions_num(vf);
    cv::bitwise_not(img, inv);
    vl_mser_process(vf, inv.ptr<vl_mser_pix>());
    vlcount += (int)vl_mser_get_regions_num(vf);
  };
  opencv();
  vlfeat();
  const std::string counts = "regions: OpenCV " + std::to_string(cvregions.size()) +
                             ", VLFeat " + std::to_string(vlcount);

  int nodes = 0;
  auto flood = [&] { nodes = sorn_floodings(xe, img); };
  flood();
  std::vector<std::function<void()>> fns = {flood, opencv, vlfeat};
  SornArray rimg = rec_of(img);
  int found = 0;
  auto sorn = [&] { found = sorn_msers(xe, &rimg); };
  sorn();
  fns.push_back(sorn);
  // One race for all four, so that the peers are timed once per size.
  const auto t = race(fns, samples);
  add_timed_row("component trees (f flooding x2)", rows, cols, "cv::MSER", t[0], t[1], NAN,
                "the floodings alone: Sorn tree nodes " + std::to_string(nodes) + "; " + counts);
  const std::string all = "regions: Sorn " + std::to_string(found) + ", OpenCV " +
                          std::to_string(cvregions.size()) + ", VLFeat " + std::to_string(vlcount);
  add_timed_row("MSER, dark and bright", rows, cols, "cv::MSER", t[3], t[1], 0.5, all);
  add_timed_row("MSER, dark and bright", rows, cols, "vl_mser_process", t[3], t[2], NAN, all);
  vl_mser_delete(vf);
}

void msers(const Scenes &scenes, const Options &opt) {
  // About 1 and 4 megapixels, in the photograph's proportions.
  const int sizes[2][2] = {{816, 1224}, {1632, 2448}};
  for (const auto &s : sizes) {
    mser_rows(scenes, s[0], s[1], opt.quick ? 5 : opt.samples);
    if (opt.quick) break;  // a check of the program, not a measurement
  }
}

}  // namespace

SORN_COMPARE_FAMILY(mser, 40, msers);

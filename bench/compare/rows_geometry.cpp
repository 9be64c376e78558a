// Comparison rows of the plane geometry: convex hulls, least-area
// quadrilaterals and polygons against OpenCV on the same points, and the
// measures of every picked stable region beside the detection that picked
// them.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

// Random points in a disc, the same for both libraries.
struct Disc {
  std::vector<Sorn2dPt> s;
  std::vector<cv::Point> c;
  std::vector<SornF2dPt> sf;
  std::vector<cv::Point2f> cf;
  Disc(size_t n, double radius, uint64_t seed) {
    cv::RNG rng(seed);
    while (s.size() < n) {
      const double x = rng.uniform(-1.0, 1.0), y = rng.uniform(-1.0, 1.0);
      if (x * x + y * y > 1.0) continue;
      const int X = (int)std::lround(x * radius), Y = (int)std::lround(y * radius);
      s.push_back({X, Y});
      c.push_back({X, Y});
      sf.push_back({(float)(x * radius), (float)(y * radius)});
      cf.push_back({(float)(x * radius), (float)(y * radius)});
    }
  }
};

void geometry_rows(const Scenes &scenes, int samples) {
  for (size_t n : {(size_t)1000, (size_t)1000000}) {
    const std::string size = n == 1000 ? "10^3 points" : "10^6 points";
    // Image-scale coordinates (a disc 1400 units across), and wide ones.
    for (double radius : {700.0, 1e6}) {
      const Disc d(n, radius, 7 + n);
      std::vector<Sorn2dPt> out(n);
      std::vector<cv::Point> hull;
      int32_t h = 0;
      const auto t = race({[&] { h = sorn_2d_ptv_convexhull(out.data(), d.s.data(), (int32_t)n); },
                           [&] { cv::convexHull(d.c, hull); }},
                          samples);
      const bool wide = radius > 1000;
      add_sized_row(
          wide ? "convex hull, s32, wide coordinates" : "convex hull, s32", size, "cv::convexHull",
          t[0], t[1], wide ? NAN : 1.0,
          (wide ? "disc of radius 10^6: every point is sorted; " : "disc of radius 700; ") +
              std::string("hull ") + std::to_string(h) + " points, OpenCV " +
              std::to_string(hull.size()));
    }
    // The least-area box of the same hull, f32 points.
    const Disc d(n, 1e4, 11 + n);
    std::vector<SornF2dPt> hs(n);
    const int32_t h = sorn_f2d_ptv_convexhull(hs.data(), d.sf.data(), (int32_t)n);
    std::vector<cv::Point2f> hc;
    for (int32_t i = 0; i < h; ++i) hc.push_back({hs[i].x, hs[i].y});
    SornR2dQuad q;
    cv::RotatedRect rr;
    const auto t = race(
        {[&] { sorn_f2d_ptv__minbquad_$r(&q, hs.data(), h); }, [&] { rr = cv::minAreaRect(hc); }},
        samples);
    add_sized_row("least-area quadrilateral of a hull, f32", size, "cv::minAreaRect", t[0], t[1],
                  1.0, "the same hull of " + std::to_string(h) + " points as input to both");
  }

  // A star-shaped ring of 10^4 vertices.
  std::vector<Sorn2dPt> ring;
  std::vector<cv::Point> cring;
  cv::RNG rng(3);
  for (int i = 0; i < 10000; ++i) {
    const double a = 2 * CV_PI * i / 10000, r = rng.uniform(5000.0, 10000.0);
    const int x = (int)std::lround(r * std::cos(a)), y = (int)std::lround(r * std::sin(a));
    ring.push_back({x, y});
    cring.push_back({x, y});
  }
  double area = 0;
  auto t = race({[&] { area = sorn_2d_poly_area(ring.data(), 10000); },
                 [&] { area = cv::contourArea(cring); }},
                samples);
  add_sized_row("polygon area, s32", "10^4 vertices", "cv::contourArea", t[0], t[1], 1.0,
                "the same value to the bit");
  int inside = 0, k = 0;
  t = race({[&] {
              inside += sorn_2d_poly_inside2(ring.data(), 10000, (k * 37) % 9000 - 4500,
                                             (k * 91) % 9000 - 4500);
              ++k;
            },
            [&] {
              inside += cv::pointPolygonTest(cring,
                                             cv::Point2f((float)((k * 37) % 9000 - 4500),
                                                         (float)((k * 91) % 9000 - 4500)),
                                             false) > 0;
              ++k;
            }},
           samples);
  add_sized_row("inside test, s32", "10^4 vertices", "cv::pointPolygonTest", t[0], t[1], NAN,
                "one point a call, off the boundary the same answer");

  // Every picked region of a megapixel photograph measured, beside the
  // detection that picked them.
  Env env;
  const int rows = 816, cols = 1224;
  const cv::Mat img = scenes.at(rows, cols, 6);
  const SornArray rimg = rec_of(img);
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  check(SornGenerateFMSERs(&env.xe, 0, &rimg, nullptr, &f), "SornGenerateFMSERs");
  SornVec regs = {0, 0, nullptr}, pts = {0, 0, nullptr}, ell = {0, 0, nullptr},
          quad = {0, 0, nullptr};
  auto fetch = [&] {
    regs.count = pts.count = 0;
    sorn_fmserf_pixreg_$2d(&f, &regs, &pts, 2);
  };
  auto measure = [&] {
    ell.count = quad.count = 0;
    sorn_fwtsr_ellipse_$f2d(&ell, &regs);
    sorn_fwtsr_minbquad_$f2d(&quad, &regs);
  };
  fetch();
  uint64_t points = 0;
  for (uint64_t i = 0; i < regs.count; ++i)
    points += static_cast<SornFwtsrPixReg *>(regs.items)[i].size;
  int found = 0;
  auto detect = [&] {
    SornFMSERFilter g;
    __sorn_fmserfilt__$(&g);
    check(SornGenerateFMSERs(&env.xe, 0, &rimg, nullptr, &g), "SornGenerateFMSERs");
    found = (int)g.count1 + (int)g.count2;
    sorn_fmserf_destroy(&g);
  };
  const auto tm = race({[&] {
                          fetch();
                          measure();
                        },
                        detect, fetch, measure},
                       samples);
  const std::string what =
      std::to_string(regs.count) + " regions, " + std::to_string(points) + " points in all";
  add_timed_row("measures of every picked region", rows, cols, "Sorn MSER detection", tm[0], tm[1],
                0.10, "one fetch, then ellipse and least-area quad of each: " + what);
  add_timed_row("- the fetch alone", rows, cols, "Sorn MSER detection", tm[2], tm[1], NAN,
                "following each region's pixel links through the result");
  add_timed_row("- ellipse and least-area quad alone", rows, cols, "Sorn MSER detection", tm[3],
                tm[1], NAN, "on the fetched regions");
  _KuMfree(regs.items);
  _KuMfree(pts.items);
  _KuMfree(ell.items);
  _KuMfree(quad.items);
  sorn_fmserf_destroy(&f);
}

void geometry(const Scenes &scenes, const Options &opt) {
  geometry_rows(scenes, opt.quick ? 5 : opt.samples);
  add_note(
      "Plane geometry: random points in a disc, the same for both libraries. Sorn's hull "
      "keeps an exact order around the lowest point: within 1400 units of it the integer hull "
      "sorts only the points outside the polygon of its extremes, beyond that it sorts every "
      "point (the rows with wide coordinates). There, a million points put many pairs closer "
      "than the sort's angle tolerance (2^-23) as seen from the lowest point; the sort orders "
      "such pairs by distance, and the scan can then keep points that are no corners: the "
      "hull's point count beside OpenCV's shows it (docs/geometry.md). The least-area "
      "quadrilateral gets the same hull "
      "as cv::minAreaRect, which computes the hull once more inside. The region measures are "
      "timed beside the detection that picked the regions: one fetch of every picked region "
      "(dark and bright), then its ellipse and least-area quadrilateral, as `sorn mser` does.");
}

}  // namespace

SORN_COMPARE_FAMILY(geometry, 80, geometry);

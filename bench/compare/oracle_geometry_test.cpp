// Sorn's plane geometry against OpenCV's where both define a result: the
// convex hull (cv::convexHull), the least-area bounding box
// (cv::minAreaRect), polygon area (cv::contourArea), the inside test
// (cv::pointPolygonTest), moments of pixel sets and of polygons
// (cv::moments) and ellipses (cv::fitEllipse against the ellipse of the
// moments). Where the two differ by design, the test names the difference
// and checks only what they share.
#include <gtest/gtest.h>
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <random>
#include <set>
#include <vector>

namespace {

constexpr double kPi = std::numbers::pi;

std::mt19937_64 rng_for(const char *what) {
  uint64_t h = 0x9e0de7e5;
  for (const char *p = what; *p; ++p) h = h * 1099511628211ull ^ (uint8_t)*p;
  std::printf("seed of %s: 0x%llx\n", what, (unsigned long long)h);
  return std::mt19937_64(h);
}

// Integer points as both libraries hold them: Sorn's (x, y) is OpenCV's
// (x, y) here; nothing in these tests depends on which is the row.
struct Cloud {
  std::vector<Sorn2dPt> sorn;
  std::vector<cv::Point> cv;
};

Cloud random_cloud(std::mt19937_64 &rng, int n, int lo, int hi) {
  std::uniform_int_distribution<int> u(lo, hi);
  Cloud c;
  for (int i = 0; i < n; ++i) {
    const int x = u(rng), y = u(rng);
    c.sorn.push_back({x, y});
    c.cv.push_back({x, y});
  }
  return c;
}

std::set<std::pair<int, int>> as_set(const Sorn2dPt *p, int n) {
  std::set<std::pair<int, int>> s;
  for (int i = 0; i < n; ++i) s.insert({p[i].x, p[i].y});
  return s;
}

std::set<std::pair<int, int>> as_set(const std::vector<cv::Point> &v) {
  std::set<std::pair<int, int>> s;
  for (auto &p : v) s.insert({p.x, p.y});
  return s;
}

double quad_area(const SornR2dQuad &q) {
  double s = 0;
  for (int i = 0; i < 4; ++i)
    s += q.q[i].x * q.q[(i + 1) % 4].y - q.q[(i + 1) % 4].x * q.q[i].y;
  return std::fabs(s) * 0.5;
}

// Whether the sorted neighbours of a list all lie on lines: Sorn then keeps
// the whole list as its hull (by design; OpenCV drops what is not a
// corner). Repeated points make this easy, so the random clouds below
// avoid repeats.
bool kept_whole(std::vector<Sorn2dPt> v) {
  sorn_2d_ptv_sort_$I(v.data(), (int32_t)v.size());
  return sorn_2d_ptv_all_colinear(v.data(), (int32_t)v.size());
}

Cloud distinct_cloud(std::mt19937_64 &rng, int n, int lo, int hi) {
  Cloud c = random_cloud(rng, n, lo, hi);
  std::set<std::pair<int, int>> seen;
  Cloud d;
  for (size_t i = 0; i < c.sorn.size(); ++i)
    if (seen.insert({c.sorn[i].x, c.sorn[i].y}).second) {
      d.sorn.push_back(c.sorn[i]);
      d.cv.push_back(c.cv[i]);
    }
  return d;
}

/* ---------------- convex hull ---------------- */

// The same corners. Differences by design: Sorn's hull starts at the point
// of smallest x (then y) and goes by the angle atan2(dx, dy), OpenCV's
// starts elsewhere and may go the other way; compared as sets.
TEST(OracleHull, SameCornersAsConvexHull) {
  auto rng = rng_for("hull");
  int compared = 0;
  for (int k = 0; k < 300; ++k) {
    const int n = 4 + (int)(rng() % 500);
    Cloud c = distinct_cloud(rng, n, -1000, 1000);
    if (c.sorn.size() < 4 || kept_whole(c.sorn)) continue;
    std::vector<Sorn2dPt> h(c.sorn.size());
    const int32_t nh = sorn_2d_ptv_convexhull(h.data(), c.sorn.data(), (int32_t)c.sorn.size());
    std::vector<cv::Point> ch;
    cv::convexHull(c.cv, ch, true, true);
    ASSERT_EQ(as_set(h.data(), nh), as_set(ch)) << "cloud " << k;
    // And the float families on the same points.
    std::vector<SornF2dPt> f;
    std::vector<cv::Point2f> cf;
    for (auto &p : c.sorn) {
      f.push_back({(float)p.x, (float)p.y});
      cf.push_back({(float)p.x, (float)p.y});
    }
    const int32_t nf = sorn_f2d_ptv_convexhull_$I(f.data(), (int32_t)f.size());
    std::vector<cv::Point2f> chf;
    cv::convexHull(cf, chf, true, true);
    ASSERT_EQ(nf, (int32_t)chf.size());
    ++compared;
  }
  EXPECT_GT(compared, 250);
}

// Points on one line: OpenCV keeps the two ends, Sorn keeps every point,
// sorted (by design: its line test looks at sorted neighbours).
TEST(OracleHull, PointsOnALineDifferByDesign) {
  std::vector<Sorn2dPt> s = {{3, 3}, {0, 0}, {2, 2}, {1, 1}};
  std::vector<cv::Point> c = {{3, 3}, {0, 0}, {2, 2}, {1, 1}};
  EXPECT_EQ(sorn_2d_ptv_convexhull_$I(s.data(), 4), 4);
  std::vector<cv::Point> ch;
  cv::convexHull(c, ch);
  EXPECT_EQ(ch.size(), 2u);
}

/* ---------------- least-area box ---------------- */

// The same least area as cv::minAreaRect on the same hull. OpenCV answers
// a RotatedRect in f32; Sorn the four corners. Differences by design: the
// integer family compares areas in 64 bits that wrap, so its choice is
// exact for spreads up to some hundreds of units, used here; equal areas
// may be met by different boxes, so only the areas are compared.
TEST(OracleMinAreaRect, SameLeastAreaOnTheSameHull) {
  auto rng = rng_for("minarea");
  int compared = 0;
  for (int k = 0; k < 300; ++k) {
    const int n = 3 + (int)(rng() % 300);
    Cloud c = distinct_cloud(rng, n, -300, 300);
    if (c.sorn.size() < 4 || kept_whole(c.sorn)) continue;
    std::vector<Sorn2dPt> h(c.sorn.size());
    const int32_t nh = sorn_2d_ptv_convexhull(h.data(), c.sorn.data(), (int32_t)c.sorn.size());
    std::vector<cv::Point> hcv;
    for (int i = 0; i < nh; ++i) hcv.push_back({h[i].x, h[i].y});
    const cv::RotatedRect rr = cv::minAreaRect(hcv);
    const double cv_area = (double)rr.size.width * rr.size.height;
    SornR2dQuad q;
    ASSERT_EQ(sorn_2d_ptv__minbquad_$r(&q, h.data(), nh), &q);
    EXPECT_NEAR(quad_area(q), cv_area, 1e-5 * cv_area) << "cloud " << k;
    std::vector<SornR2dPt> hr;
    for (int i = 0; i < nh; ++i) hr.push_back({(double)h[i].x, (double)h[i].y});
    ASSERT_EQ(sorn_r2d_ptv__minbquad(&q, hr.data(), nh), &q);
    EXPECT_NEAR(quad_area(q), cv_area, 1e-5 * cv_area) << "cloud " << k;
    ++compared;
  }
  EXPECT_GT(compared, 250);
}

/* ---------------- polygons ---------------- */

// contourArea sums the same products in f64: the same value to the bit,
// in either direction of the ring.
TEST(OracleContourArea, SameAreaToTheBit) {
  auto rng = rng_for("area");
  for (int k = 0; k < 500; ++k) {
    const int n = 3 + (int)(rng() % 200);
    Cloud c = random_cloud(rng, n, -5000, 5000);
    EXPECT_EQ(sorn_2d_poly_area(c.sorn.data(), n), cv::contourArea(c.cv));
    std::vector<SornF2dPt> f;
    std::vector<cv::Point2f> cf;
    for (auto &p : c.sorn) {
      f.push_back({(float)p.x * 0.25f, (float)p.y * 0.5f});
      cf.push_back({(float)p.x * 0.25f, (float)p.y * 0.5f});
    }
    EXPECT_EQ(sorn_f2d_poly_area(f.data(), n), cv::contourArea(cf));
  }
}

// pointPolygonTest answers +1 inside, -1 outside, 0 on the boundary; Sorn
// answers 1 or 0, and on the boundary by its half-open rule (the sides of
// largest x and y in, the others out): compared off the boundary.
TEST(OraclePointPolygonTest, SameAnswerOffTheBoundary) {
  auto rng = rng_for("inside");
  std::uniform_int_distribution<int> u(-120, 120);
  int inside = 0, outside = 0;
  for (int k = 0; k < 200; ++k) {
    // Star-shaped rings, simple as pointPolygonTest assumes.
    const int n = 3 + (int)(rng() % 30);
    std::vector<double> ang(n);
    for (auto &a : ang) a = std::uniform_real_distribution<double>(0, 2 * kPi)(rng);
    std::sort(ang.begin(), ang.end());
    Cloud c;
    for (double a : ang) {
      const double r = 20 + (double)(rng() % 80);
      const int x = (int)std::lround(r * std::cos(a)), y = (int)std::lround(r * std::sin(a));
      c.sorn.push_back({x, y});
      c.cv.push_back({x, y});
    }
    for (int t = 0; t < 200; ++t) {
      const int x = u(rng), y = u(rng);
      const double d = cv::pointPolygonTest(c.cv, cv::Point2f((float)x, (float)y), false);
      if (d == 0) continue;
      const int s = sorn_2d_poly_inside2(c.sorn.data(), n, x, y);
      ASSERT_EQ(s, d > 0 ? 1 : 0) << "ring " << k << " at " << x << ", " << y;
      (s ? inside : outside)++;
    }
  }
  EXPECT_GT(inside, 1000);
  EXPECT_GT(outside, 1000);
}

TEST(OraclePointPolygonTest, TheBoundaryDiffersByDesign) {
  const std::vector<Sorn2dPt> s = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const std::vector<cv::Point> c = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  EXPECT_EQ(cv::pointPolygonTest(c, cv::Point2f(10, 5), false), 0.0);
  EXPECT_EQ(cv::pointPolygonTest(c, cv::Point2f(0, 5), false), 0.0);
  EXPECT_EQ(sorn_2d_poly_inside2(s.data(), 4, 10, 5), 1);
  EXPECT_EQ(sorn_2d_poly_inside2(s.data(), 4, 0, 5), 0);
}

// cv::moments of a contour integrates over the enclosed area like Sorn's
// polygon moments. Sorn's walk leaves out the edge from the second last
// point to the last, by design: with the last point repeated that edge has
// no length and the two agree on the centroid and on m20 and m02. Sorn's
// m11 sums both squared terms as well, by design, and is not compared.
TEST(OracleMoments, PolygonMomentsWithTheLastPointRepeated) {
  auto rng = rng_for("polymoments");
  for (int k = 0; k < 200; ++k) {
    const int n = 3 + (int)(rng() % 40);
    std::vector<double> ang(n);
    for (auto &a : ang) a = std::uniform_real_distribution<double>(0, 2 * kPi)(rng);
    std::sort(ang.begin(), ang.end());
    std::vector<Sorn2dPt> s;
    std::vector<cv::Point> c;
    for (double a : ang) {
      const double r = 20 + (double)(rng() % 200);
      const int x = 300 + (int)std::lround(r * std::cos(a)), y = 200 + (int)std::lround(r * std::sin(a));
      s.push_back({x, y});
      c.push_back({x, y});
    }
    const cv::Moments m = cv::moments(c);
    if (std::fabs(m.m00) < 10) continue;
    s.push_back(s.back());
    SornR2dPt m1;
    sorn_2d_poly_moment1(&m1, s.data(), (int32_t)s.size());
    EXPECT_NEAR(m1.x, m.m10 / m.m00, 1e-9 * 300);
    EXPECT_NEAR(m1.y, m.m01 / m.m00, 1e-9 * 300);
    SornMoment2 m2;
    sorn_2d_poly_moment2(&m2, s.data(), (int32_t)s.size());
    EXPECT_NEAR(m2.m20, m.m20 / m.m00, 1e-9 * m.m20 / m.m00);
    EXPECT_NEAR(m2.m02, m.m02 / m.m00, 1e-9 * m.m02 / m.m00);
    EXPECT_NEAR(sorn_2d_poly_area(s.data(), (int32_t)s.size()), std::fabs(m.m00), 1e-9);
  }
}

// Moments of pixel sets: cv::moments of a binary picture sums over its
// set pixels, x the column and y the row; Sorn's region sums go over
// (row, column) points. Exact sums on both sides.
TEST(OracleMoments, PixelSetSumsMatchMomentsOfABinaryPicture) {
  auto rng = rng_for("pixelmoments");
  for (int k = 0; k < 50; ++k) {
    cv::Mat img(97, 131, CV_8U, cv::Scalar(0));
    const int cx = 20 + (int)(rng() % 90), cy = 20 + (int)(rng() % 60);
    cv::ellipse(img, cv::Point(cx, cy), cv::Size(5 + (int)(rng() % 15), 3 + (int)(rng() % 15)),
                (double)(rng() % 180), 0, 360, cv::Scalar(1), cv::FILLED);
    std::vector<Sorn2dPt> pts;
    for (int r = 0; r < img.rows; ++r)
      for (int col = 0; col < img.cols; ++col)
        if (img.at<uint8_t>(r, col)) pts.push_back({r, col});
    SornFwtsrPixReg reg{};
    reg.pixels = pts.data();
    reg.size = (uint32_t)pts.size();
    SornVec regs = {1, 1, &reg}, out = {0, 0, nullptr};
    sorn_fwtsr_mf_$2d(&out, &regs);
    const SornWTSMF &s = *static_cast<SornWTSMF *>(out.items);
    const cv::Moments m = cv::moments(img, true);
    EXPECT_EQ((double)s.count, m.m00);
    EXPECT_EQ(s.sr, m.m01);
    EXPECT_EQ(s.sc, m.m10);
    EXPECT_EQ(s.srr, m.m02);
    EXPECT_EQ(s.src, m.m11);
    EXPECT_EQ(s.scc, m.m20);
    _KuMfree(out.items);
    // The central moments, normalised by the count.
    SornMoment2 c;
    sorn_2d_ptv_moment2_$c(&c, pts.data(), (int32_t)pts.size());
    EXPECT_NEAR(c.m20, m.mu02 / m.m00, 1e-9 * (1 + m.mu02 / m.m00));
    EXPECT_NEAR(c.m11, m.mu11 / m.m00, 1e-9 * (1 + std::fabs(m.mu11) / m.m00));
    EXPECT_NEAR(c.m02, m.mu20 / m.m00, 1e-9 * (1 + m.mu20 / m.m00));
  }
}

// The ellipse of the moments against cv::fitEllipse of the boundary of a
// filled ellipse. They are different fits by design (equal second moments
// against least squares on the contour), and OpenCV gives full axes and an
// angle in degrees: the semi-axes agree within about a pixel.
TEST(OracleFitEllipse, SemiAxesAgreeWithinAPixel) {
  auto rng = rng_for("fitellipse");
  for (int k = 0; k < 60; ++k) {
    cv::Mat img(240, 320, CV_8U, cv::Scalar(0));
    const int A = 10 + (int)(rng() % 60), B = 10 + (int)(rng() % 60);
    cv::ellipse(img, cv::Point(160, 120), cv::Size(A, B), (double)(rng() % 180), 0, 360,
                cv::Scalar(255), cv::FILLED);
    std::vector<Sorn2dPt> pts;
    for (int r = 0; r < img.rows; ++r)
      for (int c = 0; c < img.cols; ++c)
        if (img.at<uint8_t>(r, c)) pts.push_back({c, r});
    SornR2dEll e;
    SornR2dPt centre;
    SornMoment2 m;
    sorn_2d_ptv_moment1(&centre, pts.data(), (int32_t)pts.size());
    sorn_2d_ptv_moment2_$c(&m, pts.data(), (int32_t)pts.size());
    __sorn_r2d_ellipse__$moment2$c(&e, &centre, &m, 2.0);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(img, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    ASSERT_EQ(contours.size(), 1u);
    const cv::RotatedRect fit = cv::fitEllipse(contours[0]);
    const double lo = std::min(fit.size.width, fit.size.height) / 2;
    const double hi = std::max(fit.size.width, fit.size.height) / 2;
    EXPECT_NEAR(e.a, lo, 1.0) << "A " << A << " B " << B;
    EXPECT_NEAR(e.b, hi, 1.0) << "A " << A << " B " << B;
    EXPECT_NEAR(e.cx, fit.center.x, 0.5);
    EXPECT_NEAR(e.cy, fit.center.y, 0.5);
  }
}

}  // namespace

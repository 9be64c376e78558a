// The three coordinate families behind one face, so that one typed test
// runs on all of them: the exported names of each family, and plain
// references written here that never call the library.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace geom_test {

struct IntFamily {
  using Pt = Sorn2dPt;
  using Coord = int32_t;
  using Rect = Sorn2dRect;
  static constexpr const char *kName = "2d";
  static constexpr bool kExact = true;
  static constexpr auto sarea = sorn_2d_ptv___sarea;
  static constexpr auto isconvex = sorn_2d_ptv_isconvex;
  static constexpr auto all_colinear = sorn_2d_ptv_all_colinear;
  static constexpr auto lowest = sorn_2d_ptv_lowest;
  static constexpr auto sort = sorn_2d_ptv_sort_$I;
  static constexpr auto compare = _T_2d_ptv_sort_compare;
  static constexpr auto hull_inplace = sorn_2d_ptv_convexhull_$I;
  static constexpr auto hull = sorn_2d_ptv_convexhull;
  static constexpr auto ahull = sorn_2d_ptv_aconvexhull;
  static constexpr auto moment1 = sorn_2d_ptv_moment1;
  static constexpr auto moment2 = sorn_2d_ptv_moment2;
  static constexpr auto moment2c = sorn_2d_ptv_moment2_$c;
  static constexpr auto covariance = sorn_2d_ptv_covariance;
  static constexpr auto centroid_f = sorn_2d_ptv_centroid_$f;
  static constexpr auto brect = sorn_2d_ptv_brect;
  static constexpr auto bquad_r = sorn_2d_ptv_bquad_$r;
  static constexpr auto minbquad_r = sorn_2d_ptv_minbquad_$r;
  static constexpr auto minbquad_f = sorn_2d_ptv_minbquad_$f;
  static constexpr auto minbquad_hull = sorn_2d_ptv__minbquad_$r;
  static constexpr auto jawsel = _T_2d_calipers__dorotjawsel;
  static constexpr auto poly_inside = sorn_2d_poly_inside2;
  static constexpr auto poly_area = sorn_2d_poly_area;
  static constexpr auto poly_moment1 = sorn_2d_poly_moment1;
  static constexpr auto poly_moment2 = sorn_2d_poly_moment2;
  static constexpr auto poly_moment2c = sorn_2d_poly_moment2_$c;
  static constexpr auto poly_covariance = sorn_2d_poly_covariance;
  static constexpr auto poly_centroid_f = sorn_2d_poly_centroid_$f;
  static constexpr auto poly_rotation = sorn_2d_poly_rotation;
  static constexpr auto poly_fitell_r = sorn_2d_poly_fitell_$r;
  static constexpr auto poly_fitell_f = sorn_2d_poly_fitell_$f;
};

struct SingleFamily {
  using Pt = SornF2dPt;
  using Coord = float;
  using Rect = SornF2dRect;
  static constexpr const char *kName = "f2d";
  static constexpr bool kExact = false;
  static constexpr auto sarea = sorn_f2d_ptv___sarea;
  static constexpr auto isconvex = sorn_f2d_ptv_isconvex;
  static constexpr auto all_colinear = sorn_f2d_ptv_all_colinear;
  static constexpr auto lowest = sorn_f2d_ptv_lowest;
  static constexpr auto sort = sorn_f2d_ptv_sort_$I;
  static constexpr auto compare = _T_ptv_sort_compare;
  static constexpr auto hull_inplace = sorn_f2d_ptv_convexhull_$I;
  static constexpr auto hull = sorn_f2d_ptv_convexhull;
  static constexpr auto ahull = sorn_f2d_ptv_aconvexhull;
  static constexpr auto moment1 = sorn_f2d_ptv_moment1;
  static constexpr auto moment2 = sorn_f2d_ptv_moment2;
  static constexpr auto moment2c = sorn_f2d_ptv_moment2_$c;
  static constexpr auto covariance = sorn_f2d_ptv_covariance;
  static constexpr auto centroid_f = sorn_f2d_ptv_centroid;
  static constexpr auto brect = sorn_f2d_ptv_brect;
  static constexpr auto bquad_r = sorn_f2d_ptv_bquad_$r;
  static constexpr auto minbquad_r = sorn_f2d_ptv_minbquad_$r;
  static constexpr auto minbquad_f = sorn_f2d_ptv_minbquad;
  static constexpr auto minbquad_hull = sorn_f2d_ptv__minbquad_$r;
  static constexpr auto jawsel = _T_calipers__dorotjawsel;
  static constexpr auto poly_inside = sorn_f2d_poly_inside2;
  static constexpr auto poly_area = sorn_f2d_poly_area;
  static constexpr auto poly_moment1 = sorn_f2d_poly_moment1;
  static constexpr auto poly_moment2 = sorn_f2d_poly_moment2;
  static constexpr auto poly_moment2c = sorn_f2d_poly_moment2_$c;
  static constexpr auto poly_covariance = sorn_f2d_poly_covariance;
  static constexpr auto poly_centroid_f = sorn_f2d_poly_centroid;
  static constexpr auto poly_rotation = sorn_f2d_poly_rotation;
  static constexpr auto poly_fitell_r = sorn_f2d_poly_fitell_$r;
  static constexpr auto poly_fitell_f = sorn_f2d_poly_fitell;
};

struct RealFamily {
  using Pt = SornR2dPt;
  using Coord = double;
  using Rect = SornR2dRect;
  static constexpr const char *kName = "r2d";
  static constexpr bool kExact = false;
  static constexpr auto sarea = sorn_r2d_ptv___sarea;
  static constexpr auto isconvex = sorn_r2d_ptv_isconvex;
  static constexpr auto all_colinear = sorn_r2d_ptv_all_colinear;
  static constexpr auto lowest = sorn_r2d_ptv_lowest;
  static constexpr auto sort = sorn_r2d_ptv_sort_$I;
  static constexpr auto compare = _T_r2d_ptv_sort_compare;
  static constexpr auto hull_inplace = sorn_r2d_ptv_convexhull_$I;
  static constexpr auto hull = sorn_r2d_ptv_convexhull;
  static constexpr auto ahull = sorn_r2d_ptv_aconvexhull;
  static constexpr auto moment1 = sorn_r2d_ptv_moment1;
  static constexpr auto moment2 = sorn_r2d_ptv_moment2;
  static constexpr auto moment2c = sorn_r2d_ptv_moment2_$c;
  static constexpr auto covariance = sorn_r2d_ptv_covariance;
  static constexpr auto centroid_f = sorn_r2d_ptv_centroid_$f;
  static constexpr auto brect = sorn_r2d_ptv_brect;
  static constexpr auto bquad_r = sorn_r2d_ptv_bquad;
  static constexpr auto minbquad_r = sorn_r2d_ptv_minbquad;
  static constexpr auto minbquad_f = sorn_r2d_ptv_minbquad_$f;
  static constexpr auto minbquad_hull = sorn_r2d_ptv__minbquad;
  static constexpr auto jawsel = _T_r2d_calipers__dorotjawsel;
  static constexpr auto poly_inside = sorn_r2d_poly_inside2;
  static constexpr auto poly_area = sorn_r2d_poly_area;
  static constexpr auto poly_moment1 = sorn_r2d_poly_moment1;
  static constexpr auto poly_moment2 = sorn_r2d_poly_moment2;
  static constexpr auto poly_moment2c = sorn_r2d_poly_moment2_$c;
  static constexpr auto poly_covariance = sorn_r2d_poly_covariance;
  static constexpr auto poly_centroid_f = sorn_r2d_poly_centroid_$f;
  static constexpr auto poly_rotation = sorn_r2d_poly_rotation;
  static constexpr auto poly_fitell_r = sorn_r2d_poly_fitell;
  static constexpr auto poly_fitell_f = sorn_r2d_poly_fitell_$f;
};

using Families = ::testing::Types<IntFamily, SingleFamily, RealFamily>;

struct FamilyNames {
  template <class T>
  static std::string GetName(int) {
    return T::kName;
  }
};

// Points of small integer coordinates, exact in every family.
template <class Fam>
std::vector<typename Fam::Pt> random_points(std::mt19937_64 &rng, int n, int32_t lo, int32_t hi) {
  std::uniform_int_distribution<int32_t> u(lo, hi);
  std::vector<typename Fam::Pt> v(n);
  for (auto &p : v) p = {static_cast<typename Fam::Coord>(u(rng)), static_cast<typename Fam::Coord>(u(rng))};
  return v;
}

// A list of the family's points from (x, y) pairs.
template <class Fam>
std::vector<typename Fam::Pt> pts(std::initializer_list<std::pair<double, double>> l) {
  std::vector<typename Fam::Pt> v;
  for (auto [x, y] : l)
    v.push_back({static_cast<typename Fam::Coord>(x), static_cast<typename Fam::Coord>(y)});
  return v;
}

template <class Pt>
double px(const Pt &p) {
  return static_cast<double>(p.x);
}
template <class Pt>
double py(const Pt &p) {
  return static_cast<double>(p.y);
}

// (c - a) x (b - a) the way the library orients its turns: positive when
// a, b, c turn from the second coordinate toward the first, which is how a
// hull goes round.
template <class A, class B, class C>
double turn(const A &a, const B &b, const C &c) {
  return (px(c) - px(a)) * (py(b) - py(a)) - (px(b) - px(a)) * (py(c) - py(a));
}

// The shoelace sum as the library signs it: half of the sum of
// cur.x prev.y - prev.x cur.y, in long double.
template <class Pt>
double shoelace(const std::vector<Pt> &v) {
  if (v.size() < 2) return 0.0;
  long double s = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    const Pt &cur = v[i], &prev = v[(i + v.size() - 1) % v.size()];
    s += (long double)px(cur) * py(prev) - (long double)px(prev) * py(cur);
  }
  return (double)(s * 0.5L);
}

// The convex hull by the monotone chain, strict turns only: its vertices
// in order around it.
template <class Pt>
std::vector<std::pair<double, double>> reference_hull(const std::vector<Pt> &in) {
  std::vector<std::pair<double, double>> p;
  for (auto &q : in) p.push_back({px(q), py(q)});
  std::sort(p.begin(), p.end());
  p.erase(std::unique(p.begin(), p.end()), p.end());
  if (p.size() < 3) return p;
  auto cr = [](auto &o, auto &a, auto &b) {
    return (a.first - o.first) * (b.second - o.second) - (a.second - o.second) * (b.first - o.first);
  };
  std::vector<std::pair<double, double>> h(2 * p.size());
  size_t k = 0;
  for (size_t i = 0; i < p.size(); ++i) {
    while (k >= 2 && cr(h[k - 2], h[k - 1], p[i]) <= 0) --k;
    h[k++] = p[i];
  }
  for (size_t i = p.size() - 1, t = k + 1; i > 0; --i) {
    while (k >= t && cr(h[k - 2], h[k - 1], p[i - 1]) <= 0) --k;
    h[k++] = p[i - 1];
  }
  h.resize(k - 1);
  return h;
}

// The area of a quad by the shoelace formula.
template <class Q>
double quad_area(const Q &q) {
  double s = 0;
  for (int i = 0; i < 4; ++i) {
    const auto &a = q.q[i], &b = q.q[(i + 1) % 4];
    s += (double)a.x * (double)b.y - (double)b.x * (double)a.y;
  }
  return std::fabs(s) * 0.5;
}

// True when every point lies in the quad, up to tol.
template <class Q, class Pt>
bool quad_holds(const Q &q, const std::vector<Pt> &pts, double tol) {
  double orient = 0;
  for (int i = 0; i < 4; ++i) orient += turn(q.q[i], q.q[(i + 1) % 4], q.q[(i + 2) % 4]);
  for (auto &p : pts)
    for (int i = 0; i < 4; ++i) {
      double t = turn(q.q[i], q.q[(i + 1) % 4], p);
      if (orient < 0) t = -t;
      if (t < -tol) return false;
    }
  return true;
}

// The least area of a box flush with one of the hull's edges, over all
// edges: the least-area bounding rectangle has a side on the hull.
template <class Pt>
double reference_min_box(const std::vector<Pt> &pts) {
  auto h = reference_hull(pts);
  if (h.size() < 3) return 0.0;
  double best = INFINITY;
  for (size_t i = 0; i < h.size(); ++i) {
    const auto &a = h[i], &b = h[(i + 1) % h.size()];
    double ux = b.first - a.first, uy = b.second - a.second;
    const double len = std::hypot(ux, uy);
    ux /= len, uy /= len;
    double u0 = INFINITY, u1 = -INFINITY, v0 = INFINITY, v1 = -INFINITY;
    for (auto &p : h) {
      const double u = p.first * ux + p.second * uy, v = -p.first * uy + p.second * ux;
      u0 = std::min(u0, u), u1 = std::max(u1, u), v0 = std::min(v0, v), v1 = std::max(v1, v);
    }
    best = std::min(best, (u1 - u0) * (v1 - v0));
  }
  return best;
}

}  // namespace geom_test

// Plane geometry: the convex hull and the least-area quadrilateral of 10^3
// and 10^6 random points in a disc, the area and the inside test of a
// 10^4-vertex polygon, and the measures of every region a stable-region
// filter picked on a textured megapixel image.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "texture.h"

namespace {

template <class Pt>
std::vector<Pt> disc(size_t n, double radius, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<Pt> v;
  while (v.size() < n) {
    const double x = u(rng), y = u(rng);
    if (x * x + y * y > 1.0) continue;
    v.push_back({static_cast<decltype(Pt{}.x)>(std::lround(x * radius)),
                 static_cast<decltype(Pt{}.x)>(std::lround(y * radius))});
  }
  return v;
}

// A star-shaped ring of n vertices.
std::vector<Sorn2dPt> ring(size_t n, uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::vector<Sorn2dPt> v;
  for (size_t i = 0; i < n; ++i) {
    const double a = 2 * std::numbers::pi * (double)i / (double)n;
    const double r = 5000 + (double)(rng() % 5000);
    v.push_back({(int32_t)std::lround(r * std::cos(a)), (int32_t)std::lround(r * std::sin(a))});
  }
  return v;
}

void BM_ConvexHull(benchmark::State &state) {
  const auto pts = disc<Sorn2dPt>((size_t)state.range(0), 1e6, 1);
  std::vector<Sorn2dPt> out(pts.size());
  int32_t h = 0;
  for (auto _ : state) {
    h = sorn_2d_ptv_convexhull(out.data(), pts.data(), (int32_t)pts.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["hull"] = h;
}

void BM_LeastAreaQuad(benchmark::State &state) {
  const auto pts = disc<SornF2dPt>((size_t)state.range(0), 1e4, 2);
  std::vector<SornF2dPt> hull(pts.size());
  const int32_t h = sorn_f2d_ptv_convexhull(hull.data(), pts.data(), (int32_t)pts.size());
  SornR2dQuad q;
  for (auto _ : state) {
    sorn_f2d_ptv__minbquad_$r(&q, hull.data(), h);
    benchmark::DoNotOptimize(&q);
  }
  state.counters["hull"] = h;
}

void BM_LeastAreaQuadOfPoints(benchmark::State &state) {
  const auto pts = disc<SornF2dPt>((size_t)state.range(0), 1e4, 2);
  SornF2dQuad q;
  for (auto _ : state) {
    sorn_f2d_ptv_minbquad(&q, pts.data(), (int32_t)pts.size());
    benchmark::DoNotOptimize(&q);
  }
}

void BM_PolygonArea(benchmark::State &state) {
  const auto v = ring(10000, 3);
  double a = 0;
  for (auto _ : state) {
    a = sorn_2d_poly_area(v.data(), (int32_t)v.size());
    benchmark::DoNotOptimize(a);
  }
}

void BM_PolygonInside(benchmark::State &state) {
  const auto v = ring(10000, 3);
  int in = 0;
  int32_t k = 0;
  for (auto _ : state) {
    in += sorn_2d_poly_inside2(v.data(), (int32_t)v.size(), (k * 37) % 9000 - 4500, (k * 91) % 9000 - 4500);
    ++k;
  }
  benchmark::DoNotOptimize(in);
}

// Every picked region of both passes: its ellipse and its least-area
// quadrilateral, as the tool draws them; the detection runs once outside.
void BM_RegionMeasures(benchmark::State &state) {
  const sorn_bench::Texture &t = sorn_bench::texture((int32_t)state.range(0), (int32_t)state.range(1));
  SornArray a = sorn_bench::record(t, 3);
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  if (SornGenerateFMSERs(&xe, 0, &a, nullptr, &f) != SORN_OK) state.SkipWithError("generation failed");
  SornVec ell = {0, 0, nullptr}, quad = {0, 0, nullptr};
  for (auto _ : state) {
    ell.count = quad.count = 0;
    sorn_fmserf_ellipse_$f2d(&f, &ell, 2);
    sorn_fmserf_minbquad_$f2d(&f, &quad, 2);
    benchmark::DoNotOptimize(quad.items);
  }
  state.counters["regions"] = (double)(f.count1 + f.count2);
  uint64_t points = 0;
  SornVec regs = {0, 0, nullptr}, pts = {0, 0, nullptr};
  sorn_fmserf_pixreg_$2d(&f, &regs, &pts, 2);
  for (uint64_t i = 0; i < regs.count; ++i) points += static_cast<SornFwtsrPixReg *>(regs.items)[i].size;
  state.counters["points"] = (double)points;
  _KuMfree(regs.items);
  _KuMfree(pts.items);
  _KuMfree(ell.items);
  _KuMfree(quad.items);
  sorn_fmserf_destroy(&f);
  SornXEfini(&xe);
}

}  // namespace

BENCHMARK(BM_ConvexHull)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LeastAreaQuad)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LeastAreaQuadOfPoints)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PolygonArea)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PolygonInside)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RegionMeasures)->Args({816, 1224})->Unit(benchmark::kMillisecond);

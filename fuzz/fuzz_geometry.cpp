// Point lists and polygons of the three coordinate families, on points
// decoded from the input: clustered or spread, with repeats, the s32 ends,
// and for the float families infinities and NaNs. Every list lives in a
// heap block of exactly its size, so a read past it is reported. Properties,
// beside the sanitizers' silence:
//   - the sort is a permutation of the list, and the hull's points are
//     points of the list, no more of them than there were;
//   - in the integer family, where the 64-bit products are exact (a spread
//     below 2^20), every point lies on the inner side of every hull edge;
//   - the least-area quad is null only for an empty list;
//   - with small integer coordinates the quad holds every point, unless
//     the hull kept a list that is not convex whole (sorted neighbours on
//     lines, which repeats make easy);
//   - the inside test answers 0 or 1, convexity and the line test 0 or 1;
//   - the polygon area is not negative.
#include "fuzz_input.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

using namespace sorn_fuzz;

template <class T>
struct Block {
  T *p;
  int32_t n;
  explicit Block(int32_t count) : p(static_cast<T *>(std::malloc(sizeof(T) * (size_t)std::max(count, 1)))), n(count) {}
  ~Block() { std::free(p); }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;
};

int32_t decode_s32(Input &in, int32_t base, int32_t spread) {
  switch (in.u8() % 8) {
    case 0: return INT32_MAX - (int32_t)(in.u8() % 4);
    case 1: return INT32_MIN + (int32_t)(in.u8() % 4);
    case 2: return (int32_t)in.u32();
    default: return (int32_t)((int64_t)base + in.range(-spread, spread));
  }
}

double decode_f64(Input &in, int32_t base, int32_t spread) {
  switch (in.u8() % 16) {
    case 0: return std::numeric_limits<double>::infinity();
    case 1: return std::numeric_limits<double>::quiet_NaN();
    case 2: return in.f64();
    case 3: return (double)decode_s32(in, base, spread);
    default: return base + in.range(-spread, spread) / (double)(1 + in.u8() % 4);
  }
}

template <class Pt>
bool same(const Pt &a, const Pt &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

template <class Pt>
bool in_list(const Pt &p, const Pt *list, int32_t n) {
  for (int32_t i = 0; i < n; ++i)
    if (same(p, list[i])) return true;
  return false;
}

template <class Pt>
bool is_permutation(const Pt *a, const Pt *b, int32_t n) {
  std::vector<bool> used((size_t)n, false);
  for (int32_t i = 0; i < n; ++i) {
    bool found = false;
    for (int32_t j = 0; j < n && !found; ++j)
      if (!used[(size_t)j] && same(a[i], b[j])) used[(size_t)j] = found = true;
    if (!found) return false;
  }
  return true;
}

void integer_family(Input &in, int32_t n) {
  const int32_t base = in.chance(64) ? (int32_t)in.u32() : 0;
  const int32_t spread = in.chance(128) ? 1 + in.u8() % 8 : in.range(1, 1 << 24);
  const bool tame = in.chance(160);  // no extremes: exact 64-bit arithmetic
  Block<Sorn2dPt> pts(n);
  for (int32_t i = 0; i < n; ++i) {
    if (i > 0 && in.chance(40)) {
      pts.p[i] = pts.p[in.u8() % i];  // a repeat
      continue;
    }
    if (tame) {
      const int32_t b = std::clamp(base, -(1 << 28), 1 << 28);
      pts.p[i] = {b + in.range(-spread, spread), b + in.range(-spread, spread)};
    } else {
      pts.p[i] = {decode_s32(in, base, spread), decode_s32(in, base, spread)};
    }
  }
  const double area = sorn_2d_ptv___sarea(pts.p, n);
  (void)area;
  const int convex = sorn_2d_ptv_isconvex(pts.p, n);
  FUZZ_CHECK(convex == 0 || convex == 1);

  Block<Sorn2dPt> sorted(n);
  std::memcpy(sorted.p, pts.p, sizeof(Sorn2dPt) * (size_t)n);
  sorn_2d_ptv_sort_$I(sorted.p, n);
  FUZZ_CHECK(is_permutation(sorted.p, pts.p, n));
  const int line = sorn_2d_ptv_all_colinear(sorted.p, n);
  FUZZ_CHECK(line == 0 || line == 1);

  Block<Sorn2dPt> hull(n);
  const int32_t nh = sorn_2d_ptv_convexhull(hull.p, pts.p, n);
  FUZZ_CHECK(nh >= 0 && nh <= n);
  for (int32_t i = 0; i < nh; ++i) FUZZ_CHECK(in_list(hull.p[i], pts.p, n));
  const bool whole = n >= 4 && line;
  if (tame && spread < (1 << 20) && !whole && n >= 4 && nh >= 3) {
    for (int32_t i = 0; i < nh; ++i) {
      const Sorn2dPt &a = hull.p[i], &b = hull.p[(i + 1) % nh];
      for (int32_t k = 0; k < n; ++k) {
        const Sorn2dPt &c = pts.p[k];
        const int64_t t = (int64_t)(c.x - a.x) * (b.y - a.y) - (int64_t)(b.x - a.x) * (c.y - a.y);
        FUZZ_CHECK(t >= 0);
      }
    }
  }

  SornR2dQuad q;
  SornR2dQuad *r = sorn_2d_ptv_minbquad_$r(&q, pts.p, n);
  FUZZ_CHECK((r == nullptr) == (n < 1));
  if (r && tame && spread <= 8 && !whole && nh >= 3) {
    double orient = 0;
    for (int i = 0; i < 4; ++i) {
      const SornR2dPt &a = q.q[i], &b = q.q[(i + 1) % 4], &c = q.q[(i + 2) % 4];
      orient += (c.x - a.x) * (b.y - a.y) - (b.x - a.x) * (c.y - a.y);
    }
    // Three points are run as given: they are held when they turn the way
    // a hull does.
    bool held = n != 3;
    if (n == 3) {
      const int64_t t0 = (int64_t)(pts.p[2].x - pts.p[0].x) * (pts.p[1].y - pts.p[0].y) -
                         (int64_t)(pts.p[1].x - pts.p[0].x) * (pts.p[2].y - pts.p[0].y);
      held = t0 > 0;
    }
    if (held)
      for (int32_t k = 0; k < n; ++k)
        for (int i = 0; i < 4; ++i) {
          const SornR2dPt &a = q.q[i], &b = q.q[(i + 1) % 4];
          double t = (pts.p[k].x - a.x) * (b.y - a.y) - (b.x - a.x) * (pts.p[k].y - a.y);
          if (orient < 0) t = -t;
          FUZZ_CHECK(t >= -1e-6 * (1 + std::fabs(a.x) + std::fabs(a.y)));
        }
  }
  SornF2dQuad fq;
  FUZZ_CHECK((sorn_2d_ptv_minbquad_$f(&fq, pts.p, n) == nullptr) == (n < 1));

  const int inside = sorn_2d_poly_inside2(pts.p, n, decode_s32(in, base, spread),
                                          decode_s32(in, base, spread));
  FUZZ_CHECK(inside == 0 || inside == 1);
  FUZZ_CHECK(!(sorn_2d_poly_area(pts.p, n) < 0));
  SornR2dEll e;
  sorn_2d_poly_fitell_$r(&e, pts.p, n);
  Sorn2dPt c;
  sorn_2d_ptv_centroid(&c, pts.p, n);
  sorn_2d_poly_centroid(&c, pts.p, n);
  Sorn2dRect br;
  sorn_2d_ptv_brect(&br, pts.p, n);
}

template <class Pt, class Quad>
void float_family(Input &in, int32_t n, bool single) {
  using C = decltype(Pt{}.x);
  const int32_t base = in.chance(64) ? (int32_t)in.u16() * 1000 : 0;
  const int32_t spread = 1 + in.u16();
  Block<Pt> pts(n);
  for (int32_t i = 0; i < n; ++i) {
    if (i > 0 && in.chance(40)) {
      pts.p[i] = pts.p[in.u8() % i];
      continue;
    }
    pts.p[i] = {(C)decode_f64(in, base, spread), (C)decode_f64(in, base, spread)};
  }
  Block<Pt> sorted(n), hull(n);
  std::memcpy(sorted.p, pts.p, sizeof(Pt) * (size_t)n);
  int32_t nh;
  if (single) {
    auto *s = reinterpret_cast<SornF2dPt *>(sorted.p);
    auto *p = reinterpret_cast<const SornF2dPt *>(pts.p);
    sorn_f2d_ptv_sort_$I(s, n);
    FUZZ_CHECK(is_permutation(s, p, n));
    nh = sorn_f2d_ptv_convexhull(reinterpret_cast<SornF2dPt *>(hull.p), p, n);
    SornF2dQuad q;
    FUZZ_CHECK((sorn_f2d_ptv_minbquad(&q, p, n) == nullptr) == (n < 1));
    const int in2 = sorn_f2d_poly_inside2(p, n, (float)decode_f64(in, base, spread),
                                          (float)decode_f64(in, base, spread));
    FUZZ_CHECK(in2 == 0 || in2 == 1);
    SornF2dEll e;
    sorn_f2d_poly_fitell(&e, p, n);
    FUZZ_CHECK(sorn_f2d_ptv_isconvex(p, n) <= 1);
  } else {
    auto *s = reinterpret_cast<SornR2dPt *>(sorted.p);
    auto *p = reinterpret_cast<const SornR2dPt *>(pts.p);
    sorn_r2d_ptv_sort_$I(s, n);
    FUZZ_CHECK(is_permutation(s, p, n));
    nh = sorn_r2d_ptv_convexhull(reinterpret_cast<SornR2dPt *>(hull.p), p, n);
    SornF2dQuad q;
    FUZZ_CHECK((sorn_r2d_ptv_minbquad_$f(&q, p, n) == nullptr) == (n < 1));
    const int in2 = sorn_r2d_poly_inside2(p, n, decode_f64(in, base, spread),
                                          decode_f64(in, base, spread));
    FUZZ_CHECK(in2 == 0 || in2 == 1);
    SornR2dEll e;
    sorn_r2d_poly_fitell(&e, p, n);
    FUZZ_CHECK(sorn_r2d_ptv_isconvex(p, n) <= 1);
  }
  FUZZ_CHECK(nh >= 0 && nh <= n);
  for (int32_t i = 0; i < nh; ++i) FUZZ_CHECK(in_list(hull.p[i], pts.p, n));
  (void)sizeof(Quad);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t family = in.u8() % 3;
  // Mostly short lists, around the 32 points of the local hull array, now
  // and then long ones.
  int32_t n;
  switch (in.u8() % 4) {
    case 0: n = in.u8() % 8; break;
    case 1: n = 28 + in.u8() % 10; break;
    case 2: n = in.u8() % 64; break;
    default: n = in.u16() % 2048; break;
  }
  if (family == 0)
    integer_family(in, n);
  else if (family == 1)
    float_family<SornF2dPt, SornF2dQuad>(in, n, true);
  else
    float_family<SornR2dPt, SornR2dQuad>(in, n, false);
  return 0;
}

// Measures of the regions an f-form stable-region filter picked: fetched
// into records, then measured, by hand or in one call.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "alloc_failure.h"
#include "mser_common.h"
#include "testkit.h"

using namespace mser_test;

namespace {

// A scene with dark and bright regions, some nested: discs and squares on
// a fine checker, so that each pass picks a handful.
struct Scene {
  Env env;
  Canvas c{96, 120};
  FForm form;
  std::vector<PtSet> dark, bright;  // the picked regions of each pass

  explicit Scene(int mode = 2) {
    c.checker(120, 130);
    c.disc(24, 30, 14, 30);
    c.disc(24, 30, 6, 5);
    c.square(60, 10, 20, 30, 60);
    c.disc(50, 90, 16, 230);
    c.square(46, 86, 8, 8, 250);
    c.square(80, 80, 10, 30, 200);
    form.f.mode = (uint16_t)mode;
    SornArray img = c.record();
    EXPECT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    for (uint32_t i = 0; i < form.f.count1; ++i) dark.push_back(form.pixels(1, i));
    for (uint32_t i = 0; i < form.f.count2; ++i) bright.push_back(form.pixels(2, i));
  }
};

struct Vec {
  SornVec v{0, 0, nullptr};
  ~Vec() { _KuMfree(v.items); }
  template <class T>
  T *at(uint64_t i) {
    return static_cast<T *>(v.items) + i;
  }
};

PtSet points_of(const SornFwtsrPixReg &r) {
  PtSet s;
  for (uint32_t i = 0; i < r.size; ++i) s.insert({r.pixels[i].x, r.pixels[i].y});
  return s;
}

std::vector<PtSet> fetched(const SornFMSERFilter &f, int32_t which, Vec &regs, Vec &points) {
  const int32_t n = sorn_fmserf_pixreg_$2d(&f, &regs.v, &points.v, which);
  EXPECT_EQ((uint64_t)n, regs.v.count);
  std::vector<PtSet> out;
  for (int32_t i = 0; i < n; ++i) out.push_back(points_of(*regs.at<SornFwtsrPixReg>(i)));
  return out;
}

std::multiset<PtSet> as_multiset(const std::vector<PtSet> &v) { return {v.begin(), v.end()}; }

TEST(RegionMeasures, TheSceneHasRegionsInBothPasses) {
  Scene s;
  ASSERT_GE(s.form.f.count1, 2u);
  ASSERT_GE(s.form.f.count2, 2u);
  // Some region of each pass holds a picked region inside it.
  auto nested = [](const std::vector<PtSet> &v) {
    for (auto &a : v)
      for (auto &b : v)
        if (&a != &b && std::includes(a.begin(), a.end(), b.begin(), b.end())) return true;
    return false;
  };
  EXPECT_TRUE(nested(s.dark));
  EXPECT_TRUE(nested(s.bright));
}

TEST(RegionMeasures, FetchDeliversEveryPickedRegionDarkFirst) {
  Scene s;
  Vec regs, points;
  auto got = fetched(s.form.f, 2, regs, points);
  ASSERT_EQ(got.size(), s.form.f.count1 + s.form.f.count2);
  const std::vector<PtSet> first(got.begin(), got.begin() + s.form.f.count1);
  const std::vector<PtSet> second(got.begin() + s.form.f.count1, got.end());
  EXPECT_EQ(as_multiset(first), as_multiset(s.dark));
  EXPECT_EQ(as_multiset(second), as_multiset(s.bright));
  for (uint64_t i = 0; i < regs.v.count; ++i) EXPECT_EQ(regs.at<SornFwtsrPixReg>(i)->mserflag, 1u);
}

TEST(RegionMeasures, WhichChoosesThePasses) {
  Scene s;
  {
    Vec regs, points;
    EXPECT_EQ(as_multiset(fetched(s.form.f, 0, regs, points)), as_multiset(s.dark));
  }
  {
    Vec regs, points;
    EXPECT_EQ(as_multiset(fetched(s.form.f, 1, regs, points)), as_multiset(s.bright));
  }
  Vec out;
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, 7), (int32_t)(s.form.f.count1 + s.form.f.count2));
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, -1), (int32_t)(s.form.f.count1 + s.form.f.count2));
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, 0), (int32_t)s.form.f.count1);
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, 1), (int32_t)s.form.f.count2);
}

TEST(RegionMeasures, ADarkOnlyFilterHasNothingForTheBrightPass) {
  Scene s(0);
  ASSERT_GT(s.form.f.count1, 0u);
  Vec out;
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, 1), 0);
  EXPECT_EQ(out.v.items, nullptr);
  EXPECT_EQ(sorn_fmserf_m1_$2d(&s.form.f, &out.v, 2), (int32_t)s.form.f.count1);
  Scene b(1);
  Vec out2;
  EXPECT_EQ(sorn_fmserf_brect_$2d(&b.form.f, &out2.v, 0), 0);
  EXPECT_EQ(sorn_fmserf_brect_$2d(&b.form.f, &out2.v, 2), (int32_t)b.form.f.count2);
}

TEST(RegionMeasures, AFilterWithNoRegionLeavesOutAsItWas) {
  Env env;
  Canvas c(40, 40);
  c.flat(77);
  FForm form;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(form.f.count1 + form.f.count2, 0u);
  SornR2dPt keep = {1.5, 2.5};
  SornVec out = {1, 1, _KuMcalloc(1, sizeof keep, 0)};
  std::memcpy(out.items, &keep, sizeof keep);
  const SornVec before = out;
  for (int32_t which : {0, 1, 2}) {
    EXPECT_EQ(sorn_fmserf_m1_$2d(&form.f, &out, which), 0);
    EXPECT_EQ(sorn_fmserf_ellipse_$r2d(&form.f, &out, which), 0);
    EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0);
  }
  EXPECT_EQ(std::memcmp(out.items, &keep, sizeof keep), 0);
  SornVec regs = {0, 0, nullptr}, points = {0, 0, nullptr};
  EXPECT_EQ(sorn_fmserf_pixreg_$2d(&form.f, &regs, &points, 2), 0);
  EXPECT_EQ(regs.items, nullptr);
  _KuMfree(out.items);
  // A filter that never ran has no results to read.
  FForm unrun;
  SornVec none = {0, 0, nullptr};
  EXPECT_EQ(sorn_fmserf_mf_$2d(&unrun.f, &none, 2), 0);
  EXPECT_EQ(none.items, nullptr);
}

// Each measure of the one-call forms is the measure of the fetched
// records, record for record, appended behind what out held.
TEST(RegionMeasures, OneCallFormsMeasureTheFetchedRecords) {
  Scene s;
  Vec regs, points;
  fetched(s.form.f, 2, regs, points);
  const int32_t n = (int32_t)regs.v.count;
  auto check = [&](auto tag, auto fm, auto fw) {
    using Rec = decltype(tag);
    Vec a, b;
    // a starts with one record of its own, which must stay.
    a.v = {1, 1, _KuMcalloc(1, sizeof(Rec), 0)};
    std::memset(a.v.items, 0x3c, sizeof(Rec));
    EXPECT_EQ(fm(&s.form.f, &a.v, 2), n);
    ASSERT_EQ(a.v.count, (uint64_t)n + 1);
    EXPECT_EQ(a.v.capacity, (uint64_t)n + 1);
    EXPECT_EQ(*static_cast<unsigned char *>(a.v.items), 0x3c);
    EXPECT_EQ(fw(&b.v, &regs.v), &b.v);
    ASSERT_EQ(b.v.count, (uint64_t)n);
    EXPECT_EQ(std::memcmp(a.at<Rec>(1), b.v.items, n * sizeof(Rec)), 0);
  };
  check(SornWTSMF{}, sorn_fmserf_mf_$2d, sorn_fwtsr_mf_$2d);
  check(SornR2dPt{}, sorn_fmserf_m1_$2d, sorn_fwtsr_m1_$2d);
  check(SornMoment2{}, sorn_fmserf_m2_$2d, sorn_fwtsr_m2_$2d);
  check(SornMoment2{}, sorn_fmserf_m2c_$2d, sorn_fwtsr_m2c_$2d);
  check(Sorn2dRect{}, sorn_fmserf_brect_$2d, sorn_fwtsr_brect_$2d);
  check(SornF2dQuad{}, sorn_fmserf_minbquad_$f2d, sorn_fwtsr_minbquad_$f2d);
  check(SornR2dQuad{}, sorn_fmserf_minbquad_$r2d, sorn_fwtsr_minbquad_$r2d);
  check(SornF2dEll{}, sorn_fmserf_ellipse_$f2d, sorn_fwtsr_ellipse_$f2d);
  check(SornR2dEll{}, sorn_fmserf_ellipse_$r2d, sorn_fwtsr_ellipse_$r2d);
}

// The records against sums and geometry taken here from each record's
// points.
TEST(RegionMeasures, RecordsAreTheGeometryOfTheRegionPoints) {
  Scene s;
  Vec regs, points;
  fetched(s.form.f, 2, regs, points);
  Vec mf, m1, m2, m2c, br, qf, qr, ef, er;
  sorn_fwtsr_mf_$2d(&mf.v, &regs.v);
  sorn_fwtsr_m1_$2d(&m1.v, &regs.v);
  sorn_fwtsr_m2_$2d(&m2.v, &regs.v);
  sorn_fwtsr_m2c_$2d(&m2c.v, &regs.v);
  sorn_fwtsr_brect_$2d(&br.v, &regs.v);
  sorn_fwtsr_minbquad_$f2d(&qf.v, &regs.v);
  sorn_fwtsr_minbquad_$r2d(&qr.v, &regs.v);
  sorn_fwtsr_ellipse_$f2d(&ef.v, &regs.v);
  sorn_fwtsr_ellipse_$r2d(&er.v, &regs.v);
  for (uint64_t i = 0; i < regs.v.count; ++i) {
    const SornFwtsrPixReg &r = *regs.at<SornFwtsrPixReg>(i);
    const int32_t n = (int32_t)r.size;
    int64_t sr = 0, sc = 0, srr = 0, src = 0, scc = 0;
    int32_t r0 = INT32_MAX, r1 = INT32_MIN, c0 = INT32_MAX, c1 = INT32_MIN;
    for (int32_t k = 0; k < n; ++k) {
      const int64_t y = r.pixels[k].x, x = r.pixels[k].y;
      sr += y, sc += x, srr += y * y, src += y * x, scc += x * x;
      r0 = std::min<int32_t>(r0, y), r1 = std::max<int32_t>(r1, y);
      c0 = std::min<int32_t>(c0, x), c1 = std::max<int32_t>(c1, x);
    }
    const SornWTSMF &s5 = *mf.at<SornWTSMF>(i);
    EXPECT_EQ(s5.count, n);
    EXPECT_EQ(s5.sr, (double)sr);
    EXPECT_EQ(s5.sc, (double)sc);
    EXPECT_EQ(s5.srr, (double)srr);
    EXPECT_EQ(s5.src, (double)src);
    EXPECT_EQ(s5.scc, (double)scc);
    const double inv = 1.0 / n;
    EXPECT_EQ(m1.at<SornR2dPt>(i)->x, (double)sr * inv);
    EXPECT_EQ(m1.at<SornR2dPt>(i)->y, (double)sc * inv);
    EXPECT_EQ(m2.at<SornMoment2>(i)->m20, (double)srr * inv);
    EXPECT_EQ(m2.at<SornMoment2>(i)->m11, (double)src * inv);
    EXPECT_EQ(m2.at<SornMoment2>(i)->m02, (double)scc * inv);
    const double mr = sr * inv, mc = sc * inv;
    EXPECT_EQ(m2c.at<SornMoment2>(i)->m20, (double)srr * inv - mr * mr);
    EXPECT_EQ(m2c.at<SornMoment2>(i)->m11, (double)src * inv - mc * mr);
    EXPECT_EQ(m2c.at<SornMoment2>(i)->m02, (double)scc * inv - mc * mc);
    const Sorn2dRect &b = *br.at<Sorn2dRect>(i);
    EXPECT_EQ(b.x, r0);
    EXPECT_EQ(b.y, c0);
    EXPECT_EQ(b.width, r1 - r0);
    EXPECT_EQ(b.height, c1 - c0);
    // The quads hold every point; the f32 one is the f64 one rounded.
    const SornR2dQuad &q = *qr.at<SornR2dQuad>(i);
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(qf.at<SornF2dQuad>(i)->q[k].x, (float)q.q[k].x);
      EXPECT_EQ(qf.at<SornF2dQuad>(i)->q[k].y, (float)q.q[k].y);
    }
    double orient = 0;
    for (int k = 0; k < 4; ++k) {
      const SornR2dPt &a = q.q[k], &c = q.q[(k + 1) % 4], &d = q.q[(k + 2) % 4];
      orient += (d.x - a.x) * (c.y - a.y) - (c.x - a.x) * (d.y - a.y);
    }
    for (int32_t k = 0; k < n; ++k)
      for (int e = 0; e < 4; ++e) {
        const SornR2dPt &a = q.q[e], &c = q.q[(e + 1) % 4];
        double t = (r.pixels[k].x - a.x) * (c.y - a.y) - (c.x - a.x) * (r.pixels[k].y - a.y);
        if (orient < 0) t = -t;
        ASSERT_GE(t, -1e-6) << "region " << i << " point " << k;
      }
    // The ellipse: centred on the mean, axes from the central moments.
    const SornR2dEll &e = *er.at<SornR2dEll>(i);
    EXPECT_EQ(e.cx, mr);
    EXPECT_EQ(e.cy, mc);
    const SornMoment2 &cm = *m2c.at<SornMoment2>(i);
    const double half = 0.5 * std::sqrt((cm.m02 - cm.m20) * (cm.m02 - cm.m20) + 4 * cm.m11 * cm.m11);
    const double mean = (cm.m20 + cm.m02) * 0.5;
    EXPECT_NEAR(e.a, 2 * std::sqrt(mean - half), 1e-9);
    EXPECT_NEAR(e.b, 2 * std::sqrt(mean + half), 1e-9);
    const SornF2dEll &f = *ef.at<SornF2dEll>(i);
    EXPECT_EQ(f.cx, (float)mr);
    EXPECT_EQ(f.a, (float)e.a);
    EXPECT_EQ(f.rotation, (float)e.rotation);
  }
}

// A disc of radius 14 gives an ellipse of nearly that radius.
TEST(RegionMeasures, TheEllipseOfADiscHasItsRadius) {
  Scene s;
  Vec regs, points, er;
  fetched(s.form.f, 0, regs, points);
  sorn_fwtsr_ellipse_$r2d(&er.v, &regs.v);
  bool found = false;
  for (uint64_t i = 0; i < regs.v.count; ++i) {
    const SornR2dEll &e = *er.at<SornR2dEll>(i);
    if (std::fabs(e.cx - 24) < 0.5 && std::fabs(e.cy - 30) < 0.5 && e.a > 10) {
      EXPECT_NEAR(e.a, 14.0, 0.6);
      EXPECT_NEAR(e.b, 14.0, 0.6);
      found = true;
    }
  }
  EXPECT_TRUE(found);
}

TEST(RegionMeasures, OneRegionMeansAndAnEmptyRegionsZeros) {
  const Sorn2dPt p[3] = {{1, 2}, {3, 5}, {5, 8}};
  SornFwtsrPixReg r{};
  r.pixels = const_cast<Sorn2dPt *>(p);
  r.size = 3;
  SornWTSMF m;
  EXPECT_EQ(sorn_fwtsr_mf1_$2d(&m, &r), &m);
  EXPECT_EQ(m.count, 3);
  EXPECT_EQ(m.sr, 9.0 * (1.0 / 3));
  EXPECT_EQ(m.sc, 15.0 * (1.0 / 3));
  EXPECT_EQ(m.srr, 35.0 * (1.0 / 3));
  EXPECT_EQ(m.src, 57.0 * (1.0 / 3));
  EXPECT_EQ(m.scc, 93.0 * (1.0 / 3));
  // The vector form holds sums instead.
  SornVec regs = {1, 1, &r};
  Vec out;
  sorn_fwtsr_mf_$2d(&out.v, &regs);
  EXPECT_EQ(out.at<SornWTSMF>(0)->sr, 9.0);
  EXPECT_EQ(out.at<SornWTSMF>(0)->scc, 93.0);
  // An empty region: count 0 and five zeros; its quad is a zero record.
  SornFwtsrPixReg empty{};
  SornVec one = {1, 1, &empty};
  Vec z, q;
  sorn_fwtsr_mf_$2d(&z.v, &one);
  const SornWTSMF &e = *z.at<SornWTSMF>(0);
  EXPECT_EQ(e.count, 0);
  EXPECT_EQ(e.sr, 0.0);
  EXPECT_EQ(e.sc, 0.0);
  EXPECT_EQ(e.srr, 0.0);
  EXPECT_EQ(e.src, 0.0);
  EXPECT_EQ(e.scc, 0.0);
  sorn_fwtsr_minbquad_$r2d(&q.v, &one);
  ASSERT_EQ(q.v.count, 1u);
  const SornR2dQuad zero{};
  EXPECT_EQ(std::memcmp(q.v.items, &zero, sizeof zero), 0);
}

// Fetching twice into the same vectors: the second batch goes behind the
// first, whose links and points follow their blocks when they move.
TEST(RegionMeasures, FetchingAgainAppendsAndKeepsTheFirstRecordsWhole) {
  Scene s;
  Vec regs, points;
  auto first = fetched(s.form.f, 0, regs, points);
  const uint64_t n1 = regs.v.count;
  const int32_t n2 = sorn_fmserf_pixreg_$2d(&s.form.f, &regs.v, &points.v, 1);
  EXPECT_EQ((uint64_t)n2, s.form.f.count2);
  ASSERT_EQ(regs.v.count, n1 + n2);
  const auto *recs = regs.at<SornFwtsrPixReg>(0);
  const auto *lo = static_cast<Sorn2dPt *>(points.v.items);
  for (uint64_t i = 0; i < regs.v.count; ++i) {
    EXPECT_GE(recs[i].pixels, lo);
    EXPECT_LE(recs[i].pixels + recs[i].size, lo + points.v.count);
    for (auto *l : {recs[i].next, recs[i].child, recs[i].parent}) {
      if (l) {
        EXPECT_TRUE(l >= recs && l < recs + regs.v.count);
      }
    }
    if (i < n1) {
      EXPECT_EQ(points_of(recs[i]), first[i]);
    }
  }
  std::vector<PtSet> second;
  for (uint64_t i = n1; i < regs.v.count; ++i) second.push_back(points_of(recs[i]));
  EXPECT_EQ(as_multiset(second), as_multiset(s.bright));
}

// Every allocation of a call failed in turn: the call delivers every
// region or none, never reads past what was fetched, and gives its own
// blocks back (the sanitizer build checks that nothing leaks).
TEST(RegionMeasures, RunningOutOfMemoryDeliversAllOrNothing) {
  Scene s;
  const int32_t n = (int32_t)(s.form.f.count1 + s.form.f.count2);
  using Measure = int32_t (*)(const SornFMSERFilter *, SornVec *, int32_t);
  const Measure measures[] = {sorn_fmserf_mf_$2d,        sorn_fmserf_m1_$2d,
                              sorn_fmserf_m2c_$2d,       sorn_fmserf_brect_$2d,
                              sorn_fmserf_minbquad_$f2d, sorn_fmserf_ellipse_$r2d};
  for (Measure m : measures) {
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      Vec out;
      int32_t got;
      {
        sorn_test::AllocFailure failure(k);
        got = m(&s.form.f, &out.v, 2);
        if (!failure.fired()) {
          EXPECT_EQ(got, n);
          return false;
        }
      }
      EXPECT_TRUE(got == 0 || got == n) << "request " << k << " gave " << got;
      EXPECT_EQ(out.v.count, (uint64_t)got);
      return true;
    });
    EXPECT_GE(runs, 2);
  }
  const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
    Vec regs, points;
    int32_t got;
    {
      sorn_test::AllocFailure failure(k);
      got = sorn_fmserf_pixreg_$2d(&s.form.f, &regs.v, &points.v, 2);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(got == 0 || got == n);
    EXPECT_EQ(regs.v.count, (uint64_t)got);
    EXPECT_LE(regs.v.count, regs.v.capacity);
    EXPECT_LE(points.v.count, points.v.capacity);
    return true;
  });
  EXPECT_GE(runs, 2);
}

}  // namespace

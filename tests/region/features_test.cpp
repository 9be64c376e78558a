// Region features: moments and pixel lists, their descriptors and states.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "region_common.h"
#include "testkit.h"

using namespace region_test;

namespace {

SornWTSFeatureDs mf_ds() {
  SornWTSFeatureDs d;
  std::memset(&d, 0xee, sizeof d);
  SornWTSMFinitFeatureDs(&d, &d);
  return d;
}

SornWTSFeatureDs pf_ds() {
  SornWTSFeatureDs d;
  std::memset(&d, 0xee, sizeof d);
  SornWTSPFinitFeatureDs(&d, nullptr);
  return d;
}

}  // namespace

TEST(FeatureDs, MomentDescriptor) {
  SornWTSFeatureDs d;
  int marker = 0;
  EXPECT_EQ(SornWTSMFinitFeatureDs(&d, &marker), &d);
  EXPECT_EQ(d.magic, 0x6D6E7466u);
  EXPECT_EQ(d.size, 48u);
  EXPECT_EQ(d.offset, 0u);
  EXPECT_EQ(d.arg, &marker);
  EXPECT_EQ(d.init, nullptr);
  EXPECT_EQ(d.destroy, nullptr);
  EXPECT_EQ(d.copy, nullptr);
  EXPECT_NE(d.update, nullptr);
  EXPECT_NE(d.update2D, nullptr);
  EXPECT_NE(d.merge, nullptr);
  EXPECT_NE(d.lazymerge, nullptr);
  EXPECT_NE(d.isgathered, nullptr);
  EXPECT_NE(d.ongather, nullptr);
}

TEST(FeatureDs, PixelDescriptor) {
  SornWTSFeatureDs d = pf_ds();
  EXPECT_EQ(d.magic, 0x70786C66u);
  EXPECT_EQ(d.size, 24u);
  EXPECT_EQ(d.offset, 0u);
  EXPECT_EQ(d.arg, nullptr);
  EXPECT_NE(d.init, nullptr);
  EXPECT_NE(d.destroy, nullptr);
  EXPECT_EQ(d.copy, nullptr);
  EXPECT_NE(d.update, nullptr);
  EXPECT_NE(d.update2D, nullptr);
  EXPECT_NE(d.merge, nullptr);
  EXPECT_NE(d.lazymerge, nullptr);
  EXPECT_NE(d.isgathered, nullptr);
  EXPECT_NE(d.ongather, nullptr);
}

TEST(FeatureDs, IndexByMagic) {
  SornWTSFeatureDs d[3] = {pf_ds(), mf_ds(), mf_ds()};
  EXPECT_EQ(SornWTSFindexByMagic(d, 0, SORN_WTS_MAGIC_PIXELS), -1);
  EXPECT_EQ(SornWTSFindexByMagic(d, -1, SORN_WTS_MAGIC_PIXELS), -1);
  EXPECT_EQ(SornWTSFindexByMagic(d, 3, SORN_WTS_MAGIC_PIXELS), 0);
  EXPECT_EQ(SornWTSFindexByMagic(d, 3, SORN_WTS_MAGIC_MOMENTS), 1);
  EXPECT_EQ(SornWTSFindexByMagic(d, 1, SORN_WTS_MAGIC_MOMENTS), -1);
  EXPECT_EQ(SornWTSFindexByMagic(d, 3, 0x12345678u), -1);
}

/* ---------------- Moments ---------------- */

TEST(Moments, PlainUpdatesLeaveTheCount) {
  auto rng = sorn_test::seeded_rng(84001);
  SornWTSMF v{};
  v.count = -7;
  std::vector<Pt> all;
  std::vector<int32_t> flat;
  std::vector<uint32_t> vec;
  for (int i = 0; i < 50; ++i) {
    int32_t r = static_cast<int32_t>(rng() % 2000) - 1000, c = static_cast<int32_t>(rng() % 5000);
    all.push_back({r, c});
  }
  SornWTSMF_update2D(&v, all[0].first, all[0].second);
  for (int i = 1; i < 30; ++i) {
    flat.push_back(all[i].first);
    flat.push_back(all[i].second);
  }
  EXPECT_EQ(SornWTSMF_update2D_n(&v, flat.data(), 29), &v);
  for (int i = 30; i < 50; ++i) {
    uint32_t w[8] = {99, static_cast<uint32_t>(all[i].first), static_cast<uint32_t>(all[i].second),
                     1, 2, 3, 4, 5};
    vec.insert(vec.end(), w, w + 8);
  }
  SornWTSMF_update_n(&v, vec.data(), 20);
  // The reference reads the 8-word vectors as u32, as the update does.
  double s[5];
  std::vector<Pt> ref = all;
  s[0] = s[1] = s[2] = s[3] = s[4] = 0;
  for (int i = 0; i < 50; ++i) {
    double r = i < 30 ? static_cast<double>(ref[i].first) : static_cast<double>(vec[8 * (i - 30) + 1]);
    double c = i < 30 ? static_cast<double>(ref[i].second) : static_cast<double>(vec[8 * (i - 30) + 2]);
    s[0] += r;
    s[1] += c;
    s[2] += r * r;
    s[3] += r * c;
    s[4] += c * c;
  }
  EXPECT_EQ(v.count, -7);
  EXPECT_EQ(v.sr, s[0]);
  EXPECT_EQ(v.sc, s[1]);
  EXPECT_EQ(v.srr, s[2]);
  EXPECT_EQ(v.src, s[3]);
  EXPECT_EQ(v.scc, s[4]);
}

TEST(Moments, SlotUpdatesMoveTheCountAwayFromZero) {
  SornWTSFeatureDs d = mf_ds();
  SornWTSMF v{};
  const int32_t p[6] = {1, 2, 3, 4, 5, 6};
  d.update2D(&v, p, 3);
  EXPECT_EQ(v.count, -3);
  uint32_t w[16] = {0, 7, 8, 0, 0, 0, 0, 0, 0, 9, 10, 0, 0, 0, 0, 0};
  d.update(&v, w, 2);
  EXPECT_EQ(v.count, -5);
  EXPECT_FALSE(d.isgathered(&v));
  v.count = 4;
  d.update2D(&v, p, 3);
  EXPECT_EQ(v.count, 7);
  EXPECT_TRUE(d.isgathered(&v));
  EXPECT_EQ(v.sr, 1 + 3 + 5 + 7 + 9 + 1 + 3 + 5.0);
}

TEST(Moments, EagerMergeAddsMagnitudes) {
  SornWTSFeatureDs d = mf_ds();
  SornWTSMF a{}, b{};
  a.count = -3;
  b.count = 5;
  a.sr = 1;
  b.sr = 2;
  b.scc = 4;
  d.merge(&a, &b);
  EXPECT_EQ(a.count, 8);
  EXPECT_EQ(a.sr, 3.0);
  EXPECT_EQ(a.scc, 4.0);
  d.lazymerge(&a, &b);
  EXPECT_EQ(a.count, 8);
  EXPECT_EQ(a.sr, 5.0);
}

TEST(Moments, GatherSetsTheRegionSize) {
  SornWTSFeatureDs d = mf_ds();
  SornWTSMF v{};
  v.count = -2;
  SornWTSRegion r{};
  r.size = 17;
  d.ongather(&v, &r);
  EXPECT_EQ(v.count, 17);
  EXPECT_TRUE(d.isgathered(&v));
}

TEST(Moments, CentralMomentsAndOrientation) {
  auto rng = sorn_test::seeded_rng(84002);
  for (int round = 0; round < 50; ++round) {
    SornWTSMF v{};
    int n = 1 + static_cast<int>(rng() % 40);
    for (int i = 0; i < n; ++i)
      SornWTSMF_update2D(&v, static_cast<int32_t>(rng() % 100), static_cast<int32_t>(rng() % 100));
    v.count = n;
    double i = 1.0 / n;
    double m20 = (v.srr - v.sr * v.sr * i) * i;
    double m11 = (v.src - v.sr * v.sc * i) * i;
    double m02 = i * (v.scc - v.sc * v.sc * i);
    double out[3];
    EXPECT_EQ(sorn_mf_M2(out, &v), out);
    EXPECT_EQ(out[0], m20);
    EXPECT_EQ(out[1], m11);
    EXPECT_EQ(out[2], m02);
    EXPECT_EQ(sorn_mf_theta(&v), std::atan2(2 * m11, m02 - m20) * 0.5);
  }
}

TEST(Moments, OrientationOfLines) {
  SornWTSMF row{}, col{}, diag{}, dot{};
  for (int k = 0; k < 10; ++k) {
    SornWTSMF_update2D(&row, 3, k);
    SornWTSMF_update2D(&col, k, 3);
    SornWTSMF_update2D(&diag, k, k);
    SornWTSMF_update2D(&dot, 4, 4);
  }
  row.count = col.count = diag.count = dot.count = 10;
  EXPECT_EQ(sorn_mf_theta(&row), 0.0);
  EXPECT_DOUBLE_EQ(sorn_mf_theta(&col), M_PI / 2);
  EXPECT_DOUBLE_EQ(sorn_mf_theta(&diag), M_PI / 4);
  EXPECT_EQ(sorn_mf_theta(&dot), 0.0);  // no spread: atan2(0, 0) * 0.5
}

TEST(Moments, ZeroCountGivesNoNumbers) {
  SornWTSMF v{};
  SornWTSMF_update2D(&v, 1, 2);
  double out[3];
  sorn_mf_M2(out, &v);
  EXPECT_FALSE(std::isfinite(out[0]));
  EXPECT_FALSE(std::isfinite(out[1]));
  EXPECT_FALSE(std::isfinite(out[2]));
  SornWTSMF z{};
  SornWTSMF_update2D(&z, 0, 0);
  sorn_mf_M2(out, &z);
  EXPECT_TRUE(std::isnan(out[0]));
  EXPECT_TRUE(std::isnan(out[1]));
  EXPECT_TRUE(std::isnan(out[2]));
}

/* ---------------- Pixels ---------------- */

class Pixels : public ::testing::Test {
 protected:
  void SetUp() override {
    d = pf_ds();
    std::memset(&v, 0x77, sizeof v);
    d.init(&v, nullptr);
  }
  void TearDown() override { d.destroy(&v); }
  SornWTSFeatureDs d;
  SornWTSPF v;
};

TEST_F(Pixels, InitZeroesAndDestroyFreesAndZeroes) {
  EXPECT_EQ(v.capacity, 0u);
  EXPECT_EQ(v.count, 0u);
  EXPECT_EQ(v.points, nullptr);
  SornWTSPF_update2D(&v, 1, 2);
  v.capacity |= SORN_WTSPF_GATHERED;
  d.destroy(&v);
  EXPECT_EQ(v.capacity, 0u);
  EXPECT_EQ(v.count, 0u);
  EXPECT_EQ(v.points, nullptr);
}

TEST_F(Pixels, SinglePointsDoubleTheCapacity) {
  std::vector<uint64_t> caps;
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(SornWTSPF_update2D(&v, i, -i), &v);
    caps.push_back(v.capacity);
  }
  EXPECT_EQ(caps, (std::vector<uint64_t>{2, 2, 4, 4, 8, 8, 8, 8, 16}));
  const int32_t one[2] = {50, 51};
  SornWTSPF_update2D_n(&v, one, 1);
  EXPECT_EQ(v.count, 10u);
  EXPECT_EQ(v.points[18], 50);
  EXPECT_EQ(v.points[19], 51);
}

TEST_F(Pixels, BatchesGrowByWhatIsMissing) {
  std::vector<int32_t> p(200);
  for (int i = 0; i < 200; ++i) p[i] = i;
  SornWTSPF_update2D_n(&v, p.data(), 0);
  EXPECT_EQ(v.capacity, 0u);
  SornWTSPF_update2D_n(&v, p.data(), 5);  // 0 + max(0, 5) - 0
  EXPECT_EQ(v.capacity, 5u);
  EXPECT_EQ(v.count, 5u);
  SornWTSPF_update2D_n(&v, p.data() + 10, 3);  // free 0: 5 + max(5, 3) - 0
  EXPECT_EQ(v.capacity, 10u);
  EXPECT_EQ(v.count, 8u);
  SornWTSPF_update2D_n(&v, p.data() + 16, 2);  // room enough
  EXPECT_EQ(v.capacity, 10u);
  SornWTSPF_update2D_n(&v, p.data() + 20, 40);  // free 0: 10 + max(10, 40) - 0
  EXPECT_EQ(v.capacity, 50u);
  EXPECT_EQ(v.count, 50u);
  std::vector<Pt> want;
  for (int i = 0; i < 5; ++i) want.push_back({p[2 * i], p[2 * i + 1]});
  for (int i = 0; i < 3; ++i) want.push_back({p[10 + 2 * i], p[11 + 2 * i]});
  for (int i = 0; i < 2; ++i) want.push_back({p[16 + 2 * i], p[17 + 2 * i]});
  for (int i = 0; i < 40; ++i) want.push_back({p[20 + 2 * i], p[21 + 2 * i]});
  EXPECT_EQ(pf_points(&v), want);
}

TEST_F(Pixels, EightWordVectorsGiveRowAndColumn) {
  uint32_t w[24] = {9, 1, 2, 9, 9, 9, 9, 9, 9, 3, 4, 9, 9, 9, 9, 9, 9, 5, 6, 9, 9, 9, 9, 9};
  SornWTSPF_update_n(&v, w, 3);
  EXPECT_EQ(pf_points(&v), (std::vector<Pt>{{1, 2}, {3, 4}, {5, 6}}));
  d.update(&v, w + 8, 1);
  EXPECT_EQ(v.count, 4u);
}

TEST_F(Pixels, UpdatesKeepTheGatheredBit) {
  const int32_t p[6] = {1, 2, 3, 4, 5, 6};
  d.update2D(&v, p, 3);
  EXPECT_FALSE(d.isgathered(&v));
  d.ongather(&v, nullptr);
  EXPECT_TRUE(d.isgathered(&v));
  d.update2D(&v, p, 1);
  d.update2D(&v, p, 3);
  uint32_t w[8] = {0, 8, 9, 0, 0, 0, 0, 0};
  d.update(&v, w, 1);
  EXPECT_TRUE(d.isgathered(&v));
  EXPECT_EQ(v.count, 8u);
  EXPECT_EQ(v.capacity & ~SORN_WTSPF_GATHERED, v.capacity & 0x7fffffffffffffffull);
  EXPECT_GE(v.capacity & ~SORN_WTSPF_GATHERED, 8u);
}

TEST_F(Pixels, MergeMarksGatheredAndLazyMergeRestores) {
  SornWTSPF o;
  d.init(&o, nullptr);
  const int32_t p[6] = {1, 2, 3, 4, 5, 6};
  SornWTSPF_update2D_n(&o, p, 3);
  SornWTSPF_update2D_n(&v, p, 2);  // capacity 2, count 2
  d.lazymerge(&v, &o);
  EXPECT_EQ(v.capacity, 5u);  // grew by exactly what was missing
  EXPECT_FALSE(d.isgathered(&v));
  d.ongather(&v, nullptr);
  d.lazymerge(&v, &o);
  EXPECT_TRUE(d.isgathered(&v));
  EXPECT_EQ(v.capacity & ~SORN_WTSPF_GATHERED, 8u);
  EXPECT_EQ(v.count, 8u);
  SornWTSPF e;
  d.init(&e, nullptr);
  d.merge(&e, &o);
  EXPECT_TRUE(d.isgathered(&e));
  EXPECT_EQ(pf_points(&e), (std::vector<Pt>{{1, 2}, {3, 4}, {5, 6}}));
  SornWTSPF empty;
  d.init(&empty, nullptr);
  SornWTSPF f;
  d.init(&f, nullptr);
  d.merge(&f, &empty);  // nothing to copy, still complete
  EXPECT_TRUE(d.isgathered(&f));
  EXPECT_EQ(f.points, nullptr);
  d.destroy(&o);
  d.destroy(&e);
  d.destroy(&f);
}

// Gathering the features of picked regions of the plain form: at once,
// on demand for all or one region, and on stated lists and builders.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>

#include "mser_common.h"

using namespace mser_test;

namespace {

// Two dark squares and a bright disc on a checker; their reference sums.
struct Scene {
  Canvas c{64, 64};
  PtSet a, b, d;
  Scene() {
    c.checker(100, 110);
    a = c.square(8, 8, 12, 12, 40);
    b = c.square(40, 10, 6, 9, 30);
    d = c.disc(40, 44, 7, 210);
  }
};

void sums_of(const PtSet &p, double s[5]) {
  for (int k = 0; k < 5; ++k) s[k] = 0;
  for (auto &q : p) {
    double r = q.first, c = q.second;
    s[0] += r;
    s[1] += c;
    s[2] += r * r;
    s[3] += r * c;
    s[4] += c * c;
  }
}

const SornWTSMF *mf_of(const SornWTSRegion *r, const SornWTSFeatureDs &f) {
  return reinterpret_cast<const SornWTSMF *>(reinterpret_cast<const char *>(r) + f.offset);
}

// Which shape a region is, by size.
const PtSet &shape_of(const Scene &s, const SornWTSRegion *r) {
  if (r->size == s.a.size()) return s.a;
  if (r->size == s.b.size()) return s.b;
  return s.d;
}

void expect_complete(const Scene &s, const SornWTSRegion *r, const SornWTSFeatureDs &f) {
  const SornWTSMF *m = mf_of(r, f);
  const PtSet &p = shape_of(s, r);
  ASSERT_EQ(m->count, (int32_t)p.size());
  double want[5];
  sums_of(p, want);
  EXPECT_EQ(m->sr, want[0]);
  EXPECT_EQ(m->sc, want[1]);
  EXPECT_EQ(m->srr, want[2]);
  EXPECT_EQ(m->src, want[3]);
  EXPECT_EQ(m->scc, want[4]);
}

struct Picked {
  Env env;
  Scene s;
  SornMSERFilter f;
  Picked(SornFlags flags = 0, uint32_t gathernow = 0) {
    __sorn_mserfilt__$(&f);
    f.gathernow = gathernow;
    SornArray img = s.c.record();
    EXPECT_EQ(SornGenerateMSERs(&env.xe, flags, &img, nullptr, &f), SORN_OK);
    EXPECT_EQ(f.count1, 2u);
    EXPECT_EQ(f.count2, 1u);
  }
  ~Picked() { sorn_mserf_destroy(&f); }
};

TEST(MserGather, PickedRegionsAreLazyUntilGathered) {
  Picked r;
  for (uint32_t i = 0; i < 3; ++i) EXPECT_LE(mf_of(r.f.list1[i], r.f.mfds)->count, 0);
  EXPECT_EQ(SornMSERgatherFeatures(&r.f), SORN_OK);
  for (uint32_t i = 0; i < r.f.count1; ++i) expect_complete(r.s, r.f.list1[i], r.f.mfds);
  expect_complete(r.s, r.f.list2[0], r.f.mfds);
}

TEST(MserGather, GatherNowWithTheFormBitsCompletesAtOnce) {
  Picked r(0x200000, 1);
  for (uint32_t i = 0; i < 3; ++i) expect_complete(r.s, r.f.list1[i], r.f.mfds);
}

TEST(MserGather, GatherNowWithoutTheFormBitsDoesNothing) {
  Picked r(0, 1);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_LE(mf_of(r.f.list1[i], r.f.mfds)->count, 0);
}

TEST(MserGather, TheFormBitsWithoutGatherNowDoNothing) {
  Picked r(0x400000, 0);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(mf_of(r.f.list1[i], r.f.mfds)->count, 0);
}

TEST(MserGather, EagerMergesHoldWholeSumsBeforeAGather) {
  // A picked region that nothing merged into keeps its lazy count; its sums
  // are whole all the same, and a gather only marks it complete.
  Picked r(0x100000, 0);
  for (uint32_t i = 0; i < 3; ++i) {
    const SornWTSMF *m = mf_of(r.f.list1[i], r.f.mfds);
    double want[5];
    sums_of(shape_of(r.s, r.f.list1[i]), want);
    EXPECT_EQ(m->sr, want[0]);
    EXPECT_EQ(m->scc, want[4]);
  }
  EXPECT_EQ(SornMSERgatherFeatures(&r.f), SORN_OK);
  for (uint32_t i = 0; i < 3; ++i) expect_complete(r.s, r.f.list1[i], r.f.mfds);
}

TEST(MserGather, OneRegionByPass) {
  Picked r;
  SornWTSRegion *dark = r.f.list1[0], *bright = r.f.list2[0];
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&r.f, dark, 0), SORN_OK);
  expect_complete(r.s, dark, r.f.mfds);
  EXPECT_LE(mf_of(r.f.list1[1], r.f.mfds)->count, 0) << "only the one named";
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&r.f, bright, -1), SORN_OK);
  expect_complete(r.s, bright, r.f.mfds);
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&r.f, r.f.list1[1], 3), SORN_OK);
  expect_complete(r.s, r.f.list1[1], r.f.mfds);
}

TEST(MserGather, ARegionOfTheBrightPassNamedWithZeroIsNotPlaced) {
  Picked r;
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&r.f, r.f.list2[0], 0), SORN_EINVAL);
  EXPECT_EQ(SornMSERgatherFeatureOfRegion(&r.f, r.f.list2[0], 0, -1, SORN_WTS_MAGIC_MOMENTS),
            SORN_EINVAL);
  EXPECT_LE(mf_of(r.f.list2[0], r.f.mfds)->count, 0);
}

TEST(MserGather, APassWithoutRegionsPlacesNothing) {
  Env env;
  Scene s;
  SornMSERFilter f;
  __sorn_mserfilt__$(&f);
  f.mode = 0;
  SornArray img = s.c.record();
  ASSERT_EQ(SornGenerateMSERs(&env.xe, 0, &img, nullptr, &f), SORN_OK);
  EXPECT_EQ(f.builder2, nullptr);
  EXPECT_EQ(f.count2, 0u);
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&f, f.list1[0], -1), SORN_EINVAL);
  EXPECT_EQ(SornMSERgatherFeatures(&f), SORN_OK);
  sorn_mserf_destroy(&f);
  __sorn_mserfilt__$(&f);
  f.mode = 1;
  ASSERT_EQ(SornGenerateMSERs(&env.xe, 0, &img, nullptr, &f), SORN_OK);
  EXPECT_EQ(f.builder1, nullptr);
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&f, f.list2[0], 1), SORN_EINVAL);
  EXPECT_EQ(SornMSERgatherFeatureOfRegion(&f, f.list2[0], 1, 0, 0), SORN_EINVAL);
  EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&f, f.list2[0], -1), SORN_OK);
  sorn_mserf_destroy(&f);
}

TEST(MserGather, OneFeatureByMagicOrIndex) {
  Picked r;
  EXPECT_EQ(SornMSERgatherFeatureOfRegion(&r.f, r.f.list1[0], 1, -1, SORN_WTS_MAGIC_MOMENTS),
            SORN_OK);
  expect_complete(r.s, r.f.list1[0], r.f.mfds);
  EXPECT_EQ(SornMSERgatherFeatureOfRegion(&r.f, r.f.list1[1], 1, 0, 0), SORN_OK);
  expect_complete(r.s, r.f.list1[1], r.f.mfds);
  // A magic the layout lacks places the region but gathers nothing.
  EXPECT_EQ(SornMSERgatherFeatureOfRegion(&r.f, r.f.list2[0], -1, -1, SORN_WTS_MAGIC_PIXELS),
            SORN_OK);
  EXPECT_LE(mf_of(r.f.list2[0], r.f.mfds)->count, 0);
}

TEST(MserGather, ASecondGatherFindsTheValueCompleteAndDoesNothing) {
  Picked r;
  SornWTSRegion *x = r.f.list1[0];
  ASSERT_EQ(SornGatherMSERFeature(x, r.f.builder1, &r.f.lsc, 0, 0), x);
  SornWTSMF once;
  std::memcpy(&once, mf_of(x, r.f.mfds), sizeof once);
  ASSERT_EQ(SornGatherMSERFeature(x, r.f.builder1, &r.f.lsc, 0, 0), x);
  EXPECT_EQ(std::memcmp(&once, mf_of(x, r.f.mfds), sizeof once), 0);
  ASSERT_EQ(SornGatherMSERFeatures(x, r.f.builder1, &r.f.lsc), x);
  EXPECT_EQ(std::memcmp(&once, mf_of(x, r.f.mfds), sizeof once), 0);
}

TEST(MserGather, ListsAndBuildersAsStated) {
  Picked r;
  EXPECT_EQ(SornGatherMSERsFeatures(r.f.list1, (int32_t)r.f.count1, r.f.builder1, &r.f.lsc),
            r.f.list1);
  for (uint32_t i = 0; i < r.f.count1; ++i) expect_complete(r.s, r.f.list1[i], r.f.mfds);
  EXPECT_LE(mf_of(r.f.list2[0], r.f.mfds)->count, 0);
}

TEST(MserGather, NothingToGatherGivesTheListOrRegion) {
  Picked r;
  SornWTSLSC none = r.f.lsc;
  none.nfeatures = 0;
  EXPECT_EQ(SornGatherMSERsFeatures(r.f.list1, 2, nullptr, &none), r.f.list1);
  EXPECT_EQ(SornGatherMSERFeatures(r.f.list1[0], nullptr, &none), r.f.list1[0]);
  // A feature that can't be gathered lazily.
  SornWTSFeatureDs plain = r.f.mfds;
  plain.lazymerge = nullptr;
  plain.isgathered = nullptr;
  SornWTSLSC eager = r.f.lsc;
  eager.features = &plain;
  EXPECT_EQ(SornGatherMSERsFeatures(r.f.list1, 2, nullptr, &eager), r.f.list1);
  EXPECT_EQ(SornGatherMSERFeatures(r.f.list1[0], nullptr, &eager), r.f.list1[0]);
  EXPECT_EQ(SornGatherMSERFeature(r.f.list1[0], nullptr, &eager, 0, 0), r.f.list1[0]);
  EXPECT_LE(mf_of(r.f.list1[0], r.f.mfds)->count, 0);
}

TEST(MserGather, UnknownFeaturesAndChainsWithoutTheBlockGiveNull) {
  Picked r;
  EXPECT_EQ(SornGatherMSERFeature(r.f.list1[0], r.f.builder1, &r.f.lsc, -1,
                                  SORN_WTS_MAGIC_PIXELS),
            nullptr);
  // A builder whose chain has only the tree block.
  struct {
    SornSTBstbl stbl;
    uint64_t end;
  } chain = {{{SORN_STB_TAG_STBL, sizeof(SornSTBstbl)}, nullptr, nullptr, nullptr}, 0};
  SornSTB other;
  std::memset(&other, 0, sizeof other);
  other.ops = &chain.stbl.hdr;
  EXPECT_EQ(SornGatherMSERsFeatures(r.f.list1, 2, &other, &r.f.lsc), nullptr);
  EXPECT_EQ(SornGatherMSERFeatures(r.f.list1[0], &other, &r.f.lsc), nullptr);
  EXPECT_EQ(SornGatherMSERFeature(r.f.list1[0], &other, &r.f.lsc, 0, 0), nullptr);
  EXPECT_LE(mf_of(r.f.list1[0], r.f.mfds)->count, 0);
}

TEST(MserGather, PixelListsOfPickedRegionsAreTheirShapes) {
  Env env;
  Scene s;
  SornWTSFeatureDs ds[2];
  SornWTSMFinitFeatureDs(&ds[0], nullptr);
  SornWTSPFinitFeatureDs(&ds[1], nullptr);
  SornMSERFilter f;
  __sorn_mserfilt__$feats(&f, ds, 2);
  SornArray img = s.c.record();
  ASSERT_EQ(SornGenerateMSERs(&env.xe, 0, &img, nullptr, &f), SORN_OK);
  ASSERT_EQ(SornMSERgatherFeatures(&f), SORN_OK);
  ASSERT_EQ(f.regions.count, 3u);
  for (uint32_t i = 0; i < 3; ++i) {
    SornWTSRegion *x = f.list1[i];
    EXPECT_EQ(pf_pixels(x, ds[1]), shape_of(s, x));
    expect_complete(s, x, ds[0]);
  }
  sorn_mserf_destroy(&f);
}

}  // namespace

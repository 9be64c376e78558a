// The filter records: layout, construction with its defaults, destruction
// and the image volume of the f form.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstddef>
#include <cstring>

#include "mser_common.h"

using namespace mser_test;

namespace {

template <class F>
void expect_defaults(const F &f) {
  EXPECT_EQ(f.delta, 10u);
  EXPECT_EQ(f.minarea, 0.0001f);
  EXPECT_EQ(f.maxarea, 0.75f);
  EXPECT_EQ(f.maxvariation, 0.33f);
  EXPECT_EQ(f.mindiversity, 0.2f);
  EXPECT_EQ(f.minpixels, 0);
  EXPECT_EQ(f.gathernow, 0u);
  EXPECT_EQ(f.mode, 2);
  EXPECT_EQ(f.restore, 0);
  EXPECT_EQ(f.connectivity, 0);
  EXPECT_EQ(f.shift, 0);
  for (uint32_t s : f.seed) EXPECT_EQ(s, 0u);
  EXPECT_EQ(f.regions.capacity, 0u);
  EXPECT_EQ(f.regions.count, 0u);
  EXPECT_EQ(f.regions.items, nullptr);
  EXPECT_EQ(f.count1, 0u);
  EXPECT_EQ(f.count2, 0u);
  EXPECT_EQ(f.list1, nullptr);
  EXPECT_EQ(f.list2, nullptr);
}

TEST(MserFilterLayout, ModeToSeedLiesAsPolarityToSeedOfARun) {
  const size_t run = offsetof(SornWTSState, seed) - offsetof(SornWTSState, polarity);
  EXPECT_EQ(offsetof(SornMSERFilter, seed) - offsetof(SornMSERFilter, mode), run);
  EXPECT_EQ(offsetof(SornFMSERFilter, seed) - offsetof(SornFMSERFilter, mode), run);
  EXPECT_EQ(offsetof(SornMSERFilter, restore) - offsetof(SornMSERFilter, mode),
            offsetof(SornWTSState, restore) - offsetof(SornWTSState, polarity));
  EXPECT_EQ(offsetof(SornMSERFilter, shift) - offsetof(SornMSERFilter, mode),
            offsetof(SornWTSState, shift) - offsetof(SornWTSState, polarity));
}

TEST(MserFilterLayout, BothRecordsStartWithTheSameParameters) {
  EXPECT_EQ(offsetof(SornMSERFilter, delta), 0u);
  EXPECT_EQ(offsetof(SornMSERFilter, minarea), 4u);
  EXPECT_EQ(offsetof(SornMSERFilter, maxarea), 8u);
  EXPECT_EQ(offsetof(SornMSERFilter, maxvariation), 12u);
  EXPECT_EQ(offsetof(SornMSERFilter, mindiversity), 16u);
  EXPECT_EQ(offsetof(SornMSERFilter, minpixels), 20u);
  EXPECT_EQ(offsetof(SornMSERFilter, gathernow), 24u);
  EXPECT_EQ(offsetof(SornMSERFilter, mode), 28u);
  EXPECT_EQ(offsetof(SornMSERFilter, seed), 36u);
  EXPECT_EQ(offsetof(SornFMSERFilter, mode), offsetof(SornMSERFilter, mode));
  EXPECT_EQ(offsetof(SornFMSERFilter, seed), offsetof(SornMSERFilter, seed));
  EXPECT_LT(offsetof(SornMSERFilter, lsc), offsetof(SornMSERFilter, regions));
  EXPECT_LT(offsetof(SornMSERFilter, builder2), offsetof(SornMSERFilter, mfds));
  EXPECT_LT(offsetof(SornFMSERFilter, imstrides), offsetof(SornFMSERFilter, res1));
  EXPECT_LT(offsetof(SornFMSERFilter, res2), offsetof(SornFMSERFilter, res1own));
}

TEST(MserFilterLayout, TheSelectionParametersInOrder) {
  EXPECT_EQ(offsetof(SornMSERParams, delta), 0u);
  EXPECT_EQ(offsetof(SornMSERParams, minpixels), 4u);
  EXPECT_EQ(offsetof(SornMSERParams, maxpixels), 8u);
  EXPECT_EQ(offsetof(SornMSERParams, maxvariation), 12u);
  EXPECT_EQ(offsetof(SornMSERParams, mindiversity), 16u);
  EXPECT_EQ(sizeof(SornMSERParams), 20u);
}

TEST(FmserFilter, DefaultsAndNoResults) {
  SornFMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  EXPECT_EQ(__sorn_fmserfilt__$(&f), &f);
  expect_defaults(f);
  EXPECT_EQ(f.res1, nullptr);
  EXPECT_EQ(f.res2, nullptr);
  EXPECT_EQ(f.res1own.linkbase, nullptr);
  EXPECT_EQ(f.res1own.mmstack, nullptr);
  EXPECT_EQ(f.res2own.linkbase, nullptr);
  EXPECT_EQ(f.res2own.mmstack, nullptr);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(f.imdims[i], 0u);
    EXPECT_EQ(f.imstrides[i], 0u);
  }
}

TEST(FmserFilter, ResultsFromOutsideAreStored) {
  SornFMSERFilter f;
  SornFWTSRES a{}, b{};
  EXPECT_EQ(__sorn_fmserfilt__$fwtsres(&f, &a, &b), &f);
  expect_defaults(f);
  EXPECT_EQ(f.res1, &a);
  EXPECT_EQ(f.res2, &b);
}

TEST(FmserFilter, EveryParameterAsGiven) {
  SornFMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  const uint32_t seed[4] = {9, 3, 4, 8};
  __sorn_fmserfilt__$ex(&f, nullptr, nullptr, 7, 1, 1, 1, 2, seed, 0.5, 0.25, 0.125, 1.0 / 3);
  EXPECT_EQ(f.delta, 7u);
  EXPECT_EQ(f.mode, 1);
  EXPECT_EQ(f.restore, 1);
  EXPECT_EQ(f.connectivity, 1);
  EXPECT_EQ(f.shift, 2);
  EXPECT_EQ(f.seed[0], 9u);
  EXPECT_EQ(f.seed[1], 3u);
  EXPECT_EQ(f.seed[2], 4u);
  EXPECT_EQ(f.seed[3], 8u);
  EXPECT_EQ(f.minarea, 0.5f);
  EXPECT_EQ(f.maxarea, 0.25f);
  EXPECT_EQ(f.maxvariation, 0.125f);
  EXPECT_EQ(f.mindiversity, (float)(1.0 / 3));
  EXPECT_EQ(f.minpixels, 0);
  EXPECT_EQ(f.gathernow, 0u);
  EXPECT_EQ(f.regions.items, nullptr);
}

TEST(FmserFilter, ImageVolume) {
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  EXPECT_EQ(sorn_fmserf_setimvol_$2d(&f, 30, 40, 64), &f);
  const uint32_t d[4] = {1, 30, 40, 1}, s[4] = {30 * 64, 64, 1, 1};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(f.imdims[i], d[i]);
    EXPECT_EQ(f.imstrides[i], s[i]);
  }
  int32_t dims[4] = {2, 12, 16, 1}, strides[4] = {400, 20, 1, 1};
  sorn_fmserf_setimvol(&f, SORN_DIMPACK(4), dims, strides);
  EXPECT_EQ(f.imdims[1], 12u);
  EXPECT_EQ(f.imdims[2], 16u);
  EXPECT_EQ(f.imstrides[0], 240u);
  EXPECT_EQ(f.imstrides[1], 20u);
  sorn_fmserf_setimvol(&f, SORN_DIMPACK(3), dims + 1, strides + 1);
  EXPECT_EQ(f.imdims[1], 12u);
  EXPECT_EQ(f.imdims[2], 16u);
  // Two cells: one row of that many columns, no row stride.
  sorn_fmserf_setimvol(&f, (SornDimPack)((2 << 4) | 2 | 0x400), dims + 2, strides + 2);
  EXPECT_EQ(f.imdims[1], 1u);
  EXPECT_EQ(f.imdims[2], 16u);
  EXPECT_EQ(f.imstrides[1], 0u);
}

TEST(FmserFilter, DestroyOfAFilterNeverRunIsHarmlessAndRepeatable) {
  SornFMSERFilter f;
  __sorn_fmserfilt__$(&f);
  EXPECT_EQ(sorn_fmserf_destroy(&f), &f);
  EXPECT_EQ(sorn_fmserf_destroy(&f), &f);
  EXPECT_EQ(f.res1, nullptr);
}

TEST(FmserFilter, DestroyLeavesAResultFromOutsideAlone) {
  Env env;
  Canvas c(40, 40);
  c.checker(100, 110);
  c.square(10, 10, 8, 8, 30);
  SornFWTSRES ext;
  std::memset(&ext, 0, sizeof ext);
  SornFWTSRESinit(&ext, nullptr, nullptr);
  SornFMSERFilter f;
  __sorn_fmserfilt__$fwtsres(&f, &ext, nullptr);
  SornArray img = c.record();
  ASSERT_EQ(SornGenerateFMSERs(&env.xe, 0, &img, nullptr, &f), SORN_OK);
  EXPECT_EQ(f.res1, &ext);
  EXPECT_EQ(f.res2, &f.res2own);
  ASSERT_EQ(f.count1, 1u);
  void *stack = ext.mmstack;
  SornFWTSRegion *root = ext.root;
  sorn_fmserf_destroy(&f);
  EXPECT_EQ(f.res1, nullptr);
  EXPECT_EQ(f.res2, nullptr);
  EXPECT_EQ(f.res2own.mmstack, nullptr);
  EXPECT_EQ(f.regions.items, nullptr);
  EXPECT_EQ(f.count1, 0u);
  EXPECT_EQ(ext.mmstack, stack);
  EXPECT_EQ(ext.root, root);
  SornFWTSRESfini(&ext);
}

TEST(MserFilter, DefaultsMeasureMomentsInTheFilter) {
  SornMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  EXPECT_EQ(__sorn_mserfilt__$(&f), &f);
  expect_defaults(f);
  EXPECT_EQ(f.lsc.features, &f.mfds);
  EXPECT_EQ(f.lsc.nfeatures, 1);
  EXPECT_EQ(f.lsc.regionsize, 0u);
  EXPECT_EQ(f.mfds.magic, SORN_WTS_MAGIC_MOMENTS);
  EXPECT_EQ(f.mfds.size, 48u);
  EXPECT_EQ(f.builder1, nullptr);
  EXPECT_EQ(f.builder2, nullptr);
}

TEST(MserFilter, GivenFeaturesAreTakenAsTheyStand) {
  SornMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  SornWTSFeatureDs ds[2];
  SornWTSPFinitFeatureDs(&ds[0], nullptr);
  SornWTSMFinitFeatureDs(&ds[1], nullptr);
  __sorn_mserfilt__$feats(&f, ds, 2);
  expect_defaults(f);
  EXPECT_EQ(f.lsc.features, ds);
  EXPECT_EQ(f.lsc.nfeatures, 2);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(f.lsc.dims[i], 0u);
    EXPECT_EQ(f.lsc.strides[i], 0u);
  }
}

TEST(MserFilter, TheFullFormLeavesTheDescriptorStorageAlone) {
  SornMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  SornWTSFeatureDs before;
  std::memcpy(&before, &f.mfds, sizeof before);
  const uint32_t seed[4] = {0, 5, 6, 0};
  __sorn_mserfilt__$ex(&f, nullptr, 0, 12, 0, 1, 1, 3, seed, 0.01, 0.5, 0.25, 0.1);
  EXPECT_EQ(std::memcmp(&before, &f.mfds, sizeof before), 0);
  EXPECT_EQ(f.delta, 12u);
  EXPECT_EQ(f.mode, 0);
  EXPECT_EQ(f.restore, 1);
  EXPECT_EQ(f.connectivity, 1);
  EXPECT_EQ(f.shift, 3);
  EXPECT_EQ(f.seed[1], 5u);
  EXPECT_EQ(f.seed[2], 6u);
  EXPECT_EQ(f.minarea, 0.01f);
  EXPECT_EQ(f.maxarea, 0.5f);
  EXPECT_EQ(f.lsc.features, nullptr);
  EXPECT_EQ(f.builder1, nullptr);
}

TEST(MserFilter, TheMomentFormMakesItsOwnDescriptor) {
  SornMSERFilter f;
  std::memset(&f, 0x5A, sizeof f);
  __sorn_mserfilt__$mf(&f, 5, 1, 0, 1, 0, nullptr, 0.001, 0.5, 0.2, 0.1);
  EXPECT_EQ(f.lsc.features, &f.mfds);
  EXPECT_EQ(f.lsc.nfeatures, 1);
  EXPECT_EQ(f.mfds.magic, SORN_WTS_MAGIC_MOMENTS);
  EXPECT_EQ(f.delta, 5u);
  EXPECT_EQ(f.mode, 1);
  EXPECT_EQ(f.connectivity, 1);
  for (uint32_t s : f.seed) EXPECT_EQ(s, 0u);
}

TEST(MserFilter, DestroyOfAFilterNeverRunIsHarmless) {
  SornMSERFilter f;
  __sorn_mserfilt__$(&f);
  EXPECT_EQ(sorn_mserf_destroy(&f), &f);
  EXPECT_EQ(sorn_mserf_destroy(&f), &f);
  EXPECT_EQ(f.builder1, nullptr);
}

TEST(MserFilter, DestroyEndsBuildersRegionsAndPixelLists) {
  // Under the sanitizer build this shows that nothing stays behind, also
  // for the one region of a run that never merges.
  Env env;
  SornWTSFeatureDs pf;
  SornWTSPFinitFeatureDs(&pf, nullptr);
  for (int img_kind = 0; img_kind < 2; ++img_kind) {
    Canvas c(50, 50);
    if (img_kind == 0) {
      c.checker(100, 110);
      c.square(10, 10, 12, 12, 30);
      c.disc(35, 35, 6, 200);
    } else {
      c.flat(90);
    }
    SornMSERFilter f;
    __sorn_mserfilt__$feats(&f, &pf, 1);
    SornArray img = c.record();
    KuMark m = env.mark();
    ASSERT_EQ(SornGenerateMSERs(&env.xe, 0, &img, nullptr, &f), SORN_OK);
    EXPECT_TRUE(env.at(m));
    EXPECT_NE(f.builder1, nullptr);
    EXPECT_NE(f.builder2, nullptr);
    EXPECT_EQ(SornMSERgatherFeatures(&f), SORN_OK);
    sorn_mserf_destroy(&f);
    EXPECT_EQ(f.builder1, nullptr);
    EXPECT_EQ(f.builder2, nullptr);
    EXPECT_EQ(f.regions.items, nullptr);
    EXPECT_EQ(f.count1 + f.count2, 0u);
  }
}

}  // namespace

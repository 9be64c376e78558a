// Generation through the entries: failures and what they leave, the
// parameters a filter gives its selection, shapes with a known answer,
// masks, the bright pass's levels and the agreement of the two forms.
#include <gtest/gtest.h>
#include <sorn.h>

#include <array>
#include <random>

#include "mser_common.h"
#include "testkit.h"

using namespace mser_test;

namespace {

template <class Form>
class MserGenerate : public ::testing::Test {};
using Forms = ::testing::Types<FForm, PForm>;
TYPED_TEST_SUITE(MserGenerate, Forms);

/* ---------------- failures ---------------- */

TYPED_TEST(MserGenerate, BadRecordsAreRefusedBeforeAnythingIsTouched) {
  Env env;
  Canvas c(40, 40);
  c.checker(100, 110);
  TypeParam form;
  const auto before = c.snapshot();
  KuMark m = env.mark();
  SornArray good = c.record();
  EXPECT_EQ(SornGenerateFMSERs(&env.xe, 0, &good, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornGenerateMSERs(&env.xe, 0, &good, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornGenerateFMSERsEx(&env.xe, 0, &good, &good, nullptr, nullptr, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(SornGenerateMSERsEx(&env.xe, 0, &good, &good, nullptr, nullptr, nullptr),
            SORN_EINVAL);
  EXPECT_EQ(form.run(&env.xe, 0, nullptr), SORN_EINVAL);
  SornArray a = good;
  a.ndims = 2;
  EXPECT_EQ(form.run(&env.xe, 0, &a), SORN_EINVAL);
  a = good;
  a.ndims = 5;
  EXPECT_EQ(form.run(&env.xe, 0, &a), SORN_EINVAL);
  a = good;
  a.dims[0] = 0;
  EXPECT_EQ(form.run(&env.xe, 0, &a), SORN_EINVAL);
  a = good;
  a.dims[3] = 5;  // five channels
  EXPECT_EQ(form.run(&env.xe, 0, &a), SORN_EINVAL);
  a = good;
  a.dims[3] = 0;
  EXPECT_EQ(form.run(&env.xe, 0, &a), SORN_EINVAL);
  // Masks: rank, depth and channels.
  SornArray mask = good;
  mask.dims[3] = 2;
  EXPECT_EQ(form.run_ex(&env.xe, 0, &good, &mask), SORN_EINVAL);
  mask = good;
  mask.ndims = 4;
  EXPECT_EQ(form.run_ex(&env.xe, 0, &good, &mask), SORN_EINVAL);
  SornArray img4 = good;
  img4.ndims = 4;
  img4.dims[0] = 2;
  img4.strides[0] = 40 * 40;
  mask = good;
  mask.ndims = 4;
  mask.dims[0] = 3;
  EXPECT_EQ(form.run_ex(&env.xe, 0, &img4, &mask), SORN_EINVAL);
  EXPECT_EQ(c.snapshot(), before);
  EXPECT_TRUE(env.at(m));
  EXPECT_TRUE(form.holds_nothing());
}

TYPED_TEST(MserGenerate, AnEmptyRoiIsNoSpace) {
  Env env;
  Canvas c(40, 40);
  c.checker(100, 110);
  TypeParam form;
  SornArray img = c.record();
  SornVolume roi = sorn_test::make_roi(0, 0, 0, 40, 1);
  EXPECT_EQ(form.run(&env.xe, 0, &img, &roi), SORN_ENOSPC);
  roi = sorn_test::make_roi(45, 0, 10, 40, 1);
  EXPECT_EQ(form.run(&env.xe, 0, &img, &roi), SORN_ENOSPC);
  SornArray mask = c.record();
  EXPECT_EQ(form.run_ex(&env.xe, 0, &img, &mask, &roi), SORN_ENOSPC);
  EXPECT_TRUE(form.holds_nothing());
}

TYPED_TEST(MserGenerate, WideElementsAndSeveralChannelsAreNotSupported) {
  Env env;
  std::vector<uint16_t> wide(40 * 40, 100);
  SornArray img = sorn_test::make_record(wide.data(), 40, 40, 1, SORN_U16, 80);
  TypeParam form;
  KuMark m = env.mark();
  EXPECT_EQ(form.run(&env.xe, 0, &img), SORN_ENOTSUP);
  EXPECT_TRUE(form.holds_nothing());
  std::vector<uint8_t> two(40 * 40 * 2, 100);
  img = sorn_test::make_record(two.data(), 40, 40, 2, SORN_U8, 80);
  EXPECT_EQ(form.run(&env.xe, 0, &img), SORN_ENOTSUP);
  EXPECT_TRUE(form.holds_nothing());
  EXPECT_TRUE(env.at(m));
}

TYPED_TEST(MserGenerate, AFailedRunLeavesNoRegionsOfAnEarlierOne) {
  Env env;
  Canvas c(48, 48);
  c.checker(100, 110);
  c.square(10, 10, 10, 10, 30);
  TypeParam form;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(form.f.count1, 1u);
  std::vector<uint8_t> two(48 * 48 * 2, 100);
  SornArray bad = sorn_test::make_record(two.data(), 48, 48, 2, SORN_U8, 96);
  EXPECT_EQ(form.run(&env.xe, 0, &bad), SORN_ENOTSUP);
  EXPECT_TRUE(form.holds_nothing());
}

TYPED_TEST(MserGenerate, AMaskThatIsNotBytesIsInvalid) {
  Env env;
  Canvas c(40, 40);
  c.checker(100, 110);
  TypeParam form;
  SornArray img = c.record();
  std::vector<uint16_t> wide(40 * 40, 1);
  SornArray mask = sorn_test::make_record(wide.data(), 40, 40, 1, SORN_U16, 80);
  EXPECT_EQ(form.run_ex(&env.xe, 0, &img, &mask), SORN_EINVAL);
  int32_t dims[4] = {1, 40, 40, 1}, strides[4] = {0, 40, 1, 1};
  EXPECT_EQ(form.tga_ex(&env.xe, SORN_DIMPACK(3), dims + 1, c.base(), strides + 1, SORN_S8,
                        c.base()),
            SORN_EINVAL);
  EXPECT_TRUE(form.holds_nothing());
}

/* ---------------- shapes with a known answer ---------------- */

TYPED_TEST(MserGenerate, AOneValuedImageGivesNoRegion) {
  Env env;
  Canvas c(40, 40);
  c.flat(77);
  TypeParam form;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(form.f.count1, 0u);
  EXPECT_EQ(form.f.count2, 0u);
  EXPECT_EQ(form.f.regions.count, 0u);
}

// Rings two pixels wide and two levels apart, from a centre of 10 x 10 at 40
// to 50 x 50 at 60. Below 51 a region more than doubles over ten levels;
// from 52 on its delta ancestor is the background, so it is stable, and
// each such region is within 0.2 of the next one around it.
struct GradedBlob {
  Canvas c{90, 90};
  PtSet whole;
  GradedBlob() {
    c.checker(100, 110);
    for (int k = 10; k >= 0; --k) {
      PtSet s = c.square(20 + 2 * (10 - k), 20 + 2 * (10 - k), 10 + 4 * k, 10 + 4 * k,
                         (uint8_t)(40 + 2 * k));
      if (k == 10) whole = s;
    }
  }
};

TYPED_TEST(MserGenerate, OfAGradedBlobOnlyTheWholeIsKept) {
  Env env;
  GradedBlob b;
  TypeParam form;
  form.f.mode = 0;
  SornArray img = b.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(picked(form.f, 1), ls({{60, 50 * 50}}));
  EXPECT_EQ(form.pixels(1, 0), b.whole);
}

TYPED_TEST(MserGenerate, OfAGradedBlobTheRingsNearTheTopAreStable) {
  Env env;
  GradedBlob b;
  TypeParam form;
  form.f.mode = 0;
  form.f.mindiversity = 0.0f;
  SornArray img = b.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(form.f, 1),
            ls({{52, 34 * 34}, {54, 38 * 38}, {56, 42 * 42}, {58, 46 * 46}, {60, 50 * 50}}));
}

TYPED_TEST(MserGenerate, ACloseNestedRegionLosesToTheOneAroundIt) {
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.square(10, 10, 22, 22, 60);
  c.square(11, 11, 20, 20, 40);  // 400 in 484: 0.17 apart
  c.square(40, 10, 20, 20, 60);
  c.square(45, 15, 10, 10, 40);  // 100 in 400: 0.75 apart
  TypeParam form;
  form.f.mode = 0;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{60, 484}, {60, 400}, {40, 100}}));
}

TYPED_TEST(MserGenerate, ZeroDiversityKeepsNestedRegions) {
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.square(10, 10, 22, 22, 60);
  c.square(11, 11, 20, 20, 40);
  TypeParam form;
  form.f.mode = 0;
  form.f.mindiversity = 0.0f;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{60, 484}, {40, 400}}));
}

TYPED_TEST(MserGenerate, GrowthOverExactlyDeltaIsMeasured) {
  // The inner square at 40 grows to 676 pixels at 50: variation 0.41.
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.square(10, 10, 26, 26, 50);
  c.square(13, 13, 20, 20, 40);
  {
    TypeParam form;
    form.f.mode = 0;
    SornArray img = c.record();
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{50, 676}}));
  }
  {
    TypeParam form;
    form.f.mode = 0;
    form.f.maxvariation = 0.5f;
    SornArray img = c.record();
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{50, 676}, {40, 400}}));
  }
}

// 96 x 96 = 9216 pixels; a square of 400 and one of 16.
struct TwoSquares {
  Canvas c{96, 96};
  TwoSquares() {
    c.checker(100, 110);
    c.square(10, 10, 20, 20, 40);
    c.square(70, 20, 4, 4, 30);
    c.square(40, 70, 3, 5, 20);  // 15 pixels: never a node
  }
};

TYPED_TEST(MserGenerate, AreaLimitsAreFractionsOfThePixelCount) {
  Env env;
  TwoSquares s;
  SornArray img = s.c.record();
  {
    TypeParam form;  // defaults: 0.92 pixels, so the floor, 9, holds
    form.f.mode = 0;
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 16}}));
  }
  {
    TypeParam form;
    form.f.mode = 0;
    form.f.minarea = 17.0f / 9216.0f + 1e-6f;  // 17 pixels
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}}));
  }
  {
    TypeParam form;
    form.f.mode = 0;
    form.f.maxarea = 399.5f / 9216.0f;  // 399 pixels
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{30, 16}}));
  }
}

TYPED_TEST(MserGenerate, WhereTheAreaGivesNoPixelsTheFloorIsMinpixelsOrNine) {
  Env env;
  TwoSquares s;
  SornArray img = s.c.record();
  {
    TypeParam form;
    form.f.mode = 0;
    form.f.minarea = 0.0f;
    form.f.minpixels = 17;
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}}));
  }
  {
    // A floor of 1 still picks nothing below 16 pixels: smaller sets are
    // not nodes of either tree.
    TypeParam form;
    form.f.mode = 0;
    form.f.minarea = 0.0f;
    form.f.minpixels = 1;
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 16}}));
  }
  {
    // An area that gives pixels leads: the field is not looked at.
    TypeParam form;
    form.f.mode = 0;
    form.f.minarea = 2.0f / 9216.0f;
    form.f.minpixels = 1000;
    ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 16}}));
  }
}

TYPED_TEST(MserGenerate, TheBrightPassHoldsTrueLevelsOnlyInWhatItPicked) {
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.disc(30, 30, 6, 200);
  c.square(50, 50, 5, 5, 20);
  TypeParam form;
  form.f.mode = 1;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(form.f.count2, 1u);
  if constexpr (TypeParam::kF) {
    EXPECT_EQ(form.f.list2[0]->level, 200);
    EXPECT_EQ(form.f.list2[0]->parent->level, 255 - 110);
    EXPECT_EQ(form.f.res2->root->level, 255 - 20);
  } else {
    EXPECT_EQ(form.f.list2[0]->pivotval, 200u);
    const SornAGTnode *parent = form.f.list2[0]->node->parent;
    EXPECT_EQ(static_cast<SornWTSRegion *>(parent->data)->pivotval, 255u - 110u);
    EXPECT_EQ(static_cast<SornWTSRegion *>(form.f.builder2->tree->root->data)->pivotval,
              255u - 20u);
  }
}

TYPED_TEST(MserGenerate, RestoreHasNoEffect) {
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.disc(30, 30, 6, 200);
  c.square(50, 50, 5, 5, 20);
  TypeParam form;
  form.f.restore = 1;
  SornArray img = c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(form.f, 2), ls({{200, 113}}));
  EXPECT_EQ(picked(form.f, 1), ls({{20, 25}}));
}

/* ---------------- masks ---------------- */

struct MaskedScene {
  Canvas c{80, 80};
  PtSet a, b;
  MaskedScene() {
    c.checker(100, 110);
    a = c.square(20, 10, 20, 20, 40);
    b = c.square(50, 50, 10, 10, 30);
  }
};

TYPED_TEST(MserGenerate, TopRowsOutsideTheMaskAreTrimmed) {
  Env env;
  MaskedScene s;
  MaskCanvas m(80, 80);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 80; ++x) m.at(y, x) = 0;
  TypeParam form;
  form.f.mode = 0;
  SornArray img = s.c.record(), mask = m.record();
  ASSERT_EQ(form.run_ex(&env.xe, 0, &img, &mask), SORN_OK);
  ASSERT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 100}}));
  std::set<PtSet> got;
  for (uint32_t i = 0; i < form.f.count1; ++i) got.insert(form.pixels(1, i));
  auto up = [](const PtSet &p) {
    PtSet o;
    for (auto &q : p) o.insert({q.first - 5, q.second});
    return o;
  };
  EXPECT_EQ(got, (std::set<PtSet>{up(s.a), up(s.b)}));
}

TYPED_TEST(MserGenerate, AMaskThatExcludesEverythingGivesNothing) {
  Env env;
  MaskedScene s;
  MaskCanvas zero(80, 80, 0), full(80, 80, 255);
  SornArray img = s.c.record();
  {
    TypeParam form;
    SornArray mask = zero.record();
    ASSERT_EQ(form.run_ex(&env.xe, 0, &img, &mask), SORN_OK);
    EXPECT_EQ(form.f.regions.count, 0u);
  }
  {
    // With the inverse flag 255 is outside and 0 inside.
    TypeParam form;
    SornArray mask = full.record();
    ASSERT_EQ(form.run_ex(&env.xe, SORN_F_WTS_INVMASK, &img, &mask), SORN_OK);
    EXPECT_EQ(form.f.regions.count, 0u);
    mask = zero.record();
    ASSERT_EQ(form.run_ex(&env.xe, SORN_F_WTS_INVMASK, &img, &mask), SORN_OK);
    EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 100}}));
  }
}

TYPED_TEST(MserGenerate, ANullMaskIsTheUnmaskedForm) {
  Env env;
  MaskedScene s;
  TypeParam form;
  form.f.mode = 0;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run_ex(&env.xe, 0, &img, nullptr), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 100}}));
}

TEST(MserMask, ThePlainFormLeavesOutMaskedPixels) {
  Env env;
  MaskedScene s;
  MaskCanvas m(80, 80);
  for (int32_t y = 18; y < 42; ++y)
    for (int32_t x = 8; x < 32; ++x) m.at(y, x) = 0;
  PForm form;
  form.f.mode = 0;
  SornArray img = s.c.record(), mask = m.record();
  ASSERT_EQ(form.run_ex(&env.xe, 0, &img, &mask), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{30, 100}}));
}

TEST(MserMask, TheFFormReadsOneMaskByteARowInTheSeedsColumn) {
  // Masking column 0 of rows 10 to 69 shuts those rows: the flooding from
  // the top never reaches the squares. The plain form just loses column 0.
  Env env;
  MaskedScene s;
  MaskCanvas m(80, 80);
  for (int32_t y = 10; y < 70; ++y) m.at(y, 0) = 0;
  SornArray img = s.c.record(), mask = m.record();
  FForm f;
  f.f.mode = 0;
  ASSERT_EQ(f.run_ex(&env.xe, 0, &img, &mask), SORN_OK);
  EXPECT_EQ(f.f.count1, 0u);
  PForm p;
  p.f.mode = 0;
  ASSERT_EQ(p.run_ex(&env.xe, 0, &img, &mask), SORN_OK);
  EXPECT_EQ(picked(p.f, 1), ls({{40, 400}, {30, 100}}));
}

TYPED_TEST(MserGenerate, MaskedFourDimensionalRunsGoThroughTheFrame) {
  Env env;
  MaskedScene s;
  MaskCanvas m(80, 80);
  TypeParam form;
  form.f.mode = 0;
  SornArray img = s.c.record(), mask = m.record();
  img.ndims = 4;
  img.ndimsall = 4;
  SornVolume roi = sorn_test::make_roi(2, 3, 70, 70, 1);
  ASSERT_EQ(form.run_ex(&env.xe, 0, &img, &mask, &roi, &roi), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 100}}));
}

/* ---------------- the two forms side by side ---------------- */

TEST(MserForms, EightNeighboursPickTheSameShapes) {
  Env env;
  MaskedScene s;
  PForm form;
  form.f.mode = 0;
  form.f.connectivity = 1;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 100}}));
}

TEST(MserForms, TheFFormShiftsLevelsAndDelta) {
  Env env;
  Canvas c(64, 64);
  c.checker(100, 110);
  c.square(10, 10, 20, 20, 40);
  c.disc(45, 45, 6, 220);
  FForm f;
  f.f.shift = 1;
  SornArray img = c.record();
  ASSERT_EQ(f.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(picked(f.f, 1), ls({{20, 400}}));
  EXPECT_EQ(picked(f.f, 2), ls({{110, 113}}));
}

TEST(MserForms, ASecondFRunExtendsTheRegions) {
  Env env;
  MaskedScene s;
  s.c.disc(65, 20, 6, 220);
  SornArray img = s.c.record();
  FForm f;
  ASSERT_EQ(f.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(f.f.count1, 2u);
  ASSERT_EQ(f.f.count2, 1u);
  ASSERT_EQ(f.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(f.f.regions.count, 6u);
  EXPECT_EQ(f.f.count1, 5u) << "the first pass's count is the vector's count";
  EXPECT_EQ(f.f.count2, 1u);
  EXPECT_EQ(f.f.list2, f.f.list1 + 5);
}

TEST(MserForms, ASecondPlainRunStartsAfresh) {
  Env env;
  MaskedScene s;
  s.c.disc(65, 20, 6, 220);
  SornArray img = s.c.record();
  PForm p;
  ASSERT_EQ(p.run(&env.xe, 0, &img), SORN_OK);
  ASSERT_EQ(p.run(&env.xe, 0, &img), SORN_OK);
  EXPECT_EQ(p.f.regions.count, 3u);
  EXPECT_EQ(p.f.count1, 2u);
  EXPECT_EQ(p.f.count2, 1u);
}

TEST(MserForms, RandomShapesArePickedAlikeByBothForms) {
  auto rng = sorn_test::seeded_rng(86006);
  Env env;
  size_t total = 0;
  for (int round = 0; round < 40; ++round) {
    Canvas c(100, 120);
    c.checker(100, 110);
    std::vector<std::array<int32_t, 4>> boxes;  // y0, x0, y1, x1 with a margin
    for (int k = 0; k < 8; ++k) {
      const bool disc = rng() & 1;
      const int32_t ext = disc ? 2 * (3 + (int32_t)(rng() % 6)) + 1 : 4 + (int32_t)(rng() % 14);
      const int32_t h = ext, w = disc ? ext : 4 + (int32_t)(rng() % 14);
      const int32_t y0 = 2 + (int32_t)(rng() % (100 - h - 4));
      const int32_t x0 = 3 + (int32_t)(rng() % (120 - w - 5));
      bool clash = false;
      for (auto &b : boxes)
        if (y0 <= b[2] + 2 && b[0] <= y0 + h + 1 && x0 <= b[3] + 2 && b[1] <= x0 + w + 1)
          clash = true;
      if (clash) continue;
      boxes.push_back({y0, x0, y0 + h - 1, x0 + w - 1});
      const uint8_t v = (rng() & 1) ? (uint8_t)(rng() % 81) : (uint8_t)(130 + rng() % 126);
      if (disc)
        c.disc(y0 + h / 2, x0 + h / 2, h / 2, v);
      else
        c.square(y0, x0, h, w, v);
    }
    SornArray img = c.record();
    FForm f;
    PForm p;
    ASSERT_EQ(f.run(&env.xe, 0, &img), SORN_OK);
    ASSERT_EQ(p.run(&env.xe, 0, &img), SORN_OK);
    ASSERT_EQ(picked(f.f, 1), picked(p.f, 1)) << "round " << round;
    ASSERT_EQ(picked(f.f, 2), picked(p.f, 2)) << "round " << round;
    total += f.f.regions.count;
    for (int pass = 1; pass <= 2; ++pass) {
      std::set<PtSet> a, b;
      const uint32_t n = pass == 1 ? f.f.count1 : f.f.count2;
      for (uint32_t i = 0; i < n; ++i) {
        a.insert(f.pixels(pass, i));
        b.insert(p.pixels(pass, i));
      }
      ASSERT_EQ(a, b) << "round " << round << " pass " << pass;
    }
  }
  EXPECT_GT(total, 100u);
}

}  // namespace

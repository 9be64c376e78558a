// Stable regions of synthetic images, through the entries of both forms:
// squares and discs of several sizes and contrasts on a checker background
// whose own regions are either too small to be nodes or unstable, so that
// what is picked can be told by hand.
#include <gtest/gtest.h>
#include <sorn.h>

#include <random>

#include "mser_common.h"
#include "testkit.h"

using namespace mser_test;

namespace {

template <class Form>
class MserScene : public ::testing::Test {};
using Forms = ::testing::Types<FForm, PForm>;
TYPED_TEST_SUITE(MserScene, Forms);

// A 96 x 96 checker of 100 and 110 with a dark square of 20 x 20 at 40, a
// dark square of 16 pixels at 30, one of 15 pixels at 20 and a bright disc
// of radius 8 at 220.
struct Scene {
  Canvas c{96, 96};
  PtSet big, small16, small15, disc;
  explicit Scene(int32_t pad = 0) : c(96, 96, pad) {
    c.checker(100, 110);
    big = c.square(10, 10, 20, 20, 40);
    small16 = c.square(70, 20, 4, 4, 30);
    small15 = c.square(40, 70, 3, 5, 20);
    disc = c.disc(60, 60, 8, 220);
  }
};

template <class Form>
void expect_scene(Form &form, const Scene &s, int32_t dy = 0, int32_t dx = 0) {
  auto shift = [&](const PtSet &p) {
    PtSet o;
    for (auto &q : p) o.insert({q.first - dy, q.second - dx});
    return o;
  };
  const uint16_t mode = form.f.mode;
  if (mode != 1) {
    ASSERT_EQ(picked(form.f, 1), ls({{40, 400}, {30, 16}}));
    std::set<PtSet> got;
    for (uint32_t i = 0; i < form.f.count1; ++i) got.insert(form.pixels(1, i));
    EXPECT_EQ(got, (std::set<PtSet>{shift(s.big), shift(s.small16)}));
  } else {
    EXPECT_EQ(form.f.count1, 0u);
  }
  if (mode != 0) {
    ASSERT_EQ(picked(form.f, 2), ls({{220, (uint32_t)s.disc.size()}}));
    EXPECT_EQ(form.pixels(2, 0), shift(s.disc));
  } else {
    EXPECT_EQ(form.f.count2, 0u);
  }
  EXPECT_EQ(form.f.list1, (decltype(form.f.list1))form.f.regions.items);
  EXPECT_EQ(form.f.list2, form.f.list1 + form.f.count1);
  EXPECT_EQ(form.f.regions.count, (uint64_t)form.f.count1 + form.f.count2);
}

TYPED_TEST(MserScene, BothPassesPickTheSquaresAndTheDisc) {
  Env env;
  Scene s;
  TypeParam form;
  SornArray img = s.c.record();
  KuMark m = env.mark();
  const std::vector<uint8_t> before = s.c.snapshot();
  ASSERT_EQ(form.run(&env.xe, 0, &img, nullptr), SORN_OK);
  EXPECT_TRUE(env.at(m)) << "scratch given back";
  EXPECT_EQ(s.c.snapshot(), before) << "the image is only read";
  expect_scene(form, s);
}

TYPED_TEST(MserScene, ModeZeroMakesOnlyTheDarkPass) {
  Env env;
  Scene s;
  TypeParam form;
  form.f.mode = 0;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img, nullptr), SORN_OK);
  expect_scene(form, s);
  EXPECT_EQ(form.f.count2, 0u);
  if constexpr (TypeParam::kF)
    EXPECT_EQ(form.f.res2, nullptr);
  else
    EXPECT_EQ(form.f.builder2, nullptr);
}

TYPED_TEST(MserScene, ModeOneMakesOnlyTheBrightPass) {
  Env env;
  Scene s;
  TypeParam form;
  form.f.mode = 1;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img, nullptr), SORN_OK);
  expect_scene(form, s);
  if constexpr (TypeParam::kF)
    EXPECT_EQ(form.f.res1, nullptr);
  else
    EXPECT_EQ(form.f.builder1, nullptr);
}

TYPED_TEST(MserScene, AnyOtherModeMakesBothPasses) {
  Env env;
  Scene s;
  TypeParam form;
  form.f.mode = 7;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img, nullptr), SORN_OK);
  expect_scene(form, s);
}

TYPED_TEST(MserScene, PaddedRowsGiveTheSameRegions) {
  Env env;
  Scene s(13);
  TypeParam form;
  SornArray img = s.c.record();
  ASSERT_EQ(form.run(&env.xe, 0, &img, nullptr), SORN_OK);
  expect_scene(form, s);
  for (int32_t i = 0; i < 2 * Canvas::kGuard; ++i)
    ASSERT_EQ(s.c.store[i < Canvas::kGuard ? i : s.c.store.size() - 1 - (i - Canvas::kGuard)],
              0xA5);
}

TYPED_TEST(MserScene, ARoiWithAnOriginCountsFromItsCorner) {
  Env env;
  Scene s;
  TypeParam form;
  SornArray img = s.c.record();
  // Rows 4 to 91 and columns 3 to 93: every shape inside, away from the
  // ROI's column 0.
  SornVolume roi = sorn_test::make_roi(4, 3, 88, 91, 1);
  ASSERT_EQ(form.run(&env.xe, 0, &img, &roi), SORN_OK);
  expect_scene(form, s, 4, 3);
}

TYPED_TEST(MserScene, FourDimensionalImagesGoThroughTheFrame) {
  Env env;
  Scene s;
  TypeParam form;
  SornArray img = s.c.record();
  img.ndims = 4;
  img.ndimsall = 4;
  SornVolume roi = sorn_test::make_roi(4, 3, 88, 91, 1);
  ASSERT_EQ(form.run(&env.xe, 0, &img, &roi), SORN_OK);
  expect_scene(form, s, 4, 3);
}
}  // namespace

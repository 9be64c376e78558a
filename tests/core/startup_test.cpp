// Library start and end, checks of constants and the enumeration names.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

TEST(Startup, LoadingRanTheStartAndHooksAnswerZero) {
  EXPECT_EQ(_S_ku_crtaction_processed, 1);
  EXPECT_EQ(ShlibInit(), 0);
  EXPECT_EQ(ShlibFini(), 0);
}

TEST(Startup, WithoutActionsUnloadAndLoadOnlyToggleTheState) {
  _t_ShlibFini();
  EXPECT_EQ(_S_ku_crtaction_processed, 0);
  _t_ShlibFini();  // a second end runs only the hook
  EXPECT_EQ(_S_ku_crtaction_processed, 0);
  _t_ShlibInit();
  EXPECT_EQ(_S_ku_crtaction_processed, 1);
  _t_ShlibInit();  // already started: only the hook
  EXPECT_EQ(_S_ku_crtaction_processed, 1);
}

// Trivially destructible log, so that end functions running at process exit
// still find it.
int g_log[32];
int g_logged = 0;
int32_t run_action(void *arg) {
  g_log[g_logged++] = (int)(intptr_t)arg;
  return 0;
}
void end_action(void *arg) { g_log[g_logged++] = -(int)(intptr_t)arg; }
int32_t failing_action(void *) { return -1; }

// Registers five actions and checks the order of starting and ending;
// exits with 0 when both are right.
void register_and_cycle() {
  static KuCrtAction acts[5];
  const int prio[5] = {5, 1, 5, 3, 1};
  _t_ShlibFini();
  for (int i = 0; i < 5; ++i) {
    acts[i] = KuCrtAction{};
    acts[i].run = run_action;
    acts[i].runarg = (void *)(intptr_t)(i + 1);
    acts[i].end = end_action;
    acts[i].endarg = (void *)(intptr_t)(i + 1);
    acts[i].priority = prio[i];
    __ku_crtaction(&acts[i]);
  }
  g_logged = 0;
  _t_ShlibInit();
  const int started[5] = {2, 5, 4, 1, 3};
  for (int i = 0; i < 5; ++i)
    if (g_log[i] != started[i]) std::_Exit(10 + i);
  _t_ShlibFini();
  for (int i = 0; i < 5; ++i)
    if (g_log[5 + i] != -started[4 - i]) std::_Exit(20 + i);
  if (g_logged != 10) std::_Exit(30);
  std::_Exit(0);
}

void register_failing() {
  static KuCrtAction bad{};
  bad.run = failing_action;
  _t_ShlibFini();
  __ku_crtaction(&bad);
  _t_ShlibInit();
}

TEST(StartupDeathTest, ActionsRunByPriorityTiesInRegistrationOrderAndEndInReverse) {
  // Registration changes process-wide state: it happens in a child.
  EXPECT_EXIT(register_and_cycle(), ::testing::ExitedWithCode(0), "");
}

TEST(StartupDeathTest, FailingStartActionAborts) {
  EXPECT_DEATH(register_failing(), "");
}

TEST(ConstantChecks, ByteRangeIsInclusiveAndRefusesNaN) {
  const double ok[4] = {0.0, 255.0, 12.5, -0.0};
  EXPECT_TRUE(sorn_sclu8rngchk(ok, 4));
  const double over[1] = {255.5};
  EXPECT_FALSE(sorn_sclu8rngchk(over, 1));
  const double under[2] = {1.0, -0.5};
  EXPECT_FALSE(sorn_sclu8rngchk(under, 2));
  const double nan[1] = {std::numeric_limits<double>::quiet_NaN()};
  EXPECT_FALSE(sorn_sclu8rngchk(nan, 1));
  EXPECT_TRUE(sorn_sclu8rngchk(nullptr, 0));  // no channels, nothing read
}

TEST(ConstantChecks, ByteRangeCountsChannelsFromTheChannelsWord) {
  const double v[4] = {1.0, 2.0, 3.0, 300.0};
  EXPECT_TRUE(sorn_sclu8rngchk(v, 3));
  EXPECT_FALSE(sorn_sclu8rngchk(v, 11));  // 3 + bit 3: four channels
  EXPECT_TRUE(sorn_sclu8rngchk(v, 8));    // bit 3 alone: one channel
}

TEST(ConstantChecks, ScaleAndOffsetClassification) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(sorn_scfochk(nullptr, nullptr, 3), 3u);
  const double ones[3] = {1.0, 1.0 + 1e-8, nan};
  EXPECT_EQ(sorn_scfochk(ones, nullptr, 3), 2u);
  const double scale[3] = {1.0, 2.0, 1.0};
  EXPECT_EQ(sorn_scfochk(scale, nullptr, 3), 3u);
  EXPECT_EQ(sorn_scfochk(scale, nullptr, 0), 2u);
  const double dead[3] = {nan, inf, -inf};
  EXPECT_EQ(sorn_scfochk(scale, dead, 3), 1u);
  EXPECT_EQ(sorn_scfochk(ones, dead, 3), 0u);
  const double live[3] = {nan, 0.0, inf};
  EXPECT_EQ(sorn_scfochk(ones, live, 3), 2u);
  EXPECT_EQ(sorn_scfochk(nullptr, live, 0), 1u);  // no offsets at all
}

TEST(ConstantChecks, ScaleToleranceIsOneFloatEpsilon) {
  const double just_in[1] = {1.0 + 1.1920928955078125e-7};
  EXPECT_EQ(sorn_scfochk(just_in, nullptr, 1), 2u);
  const double out[1] = {1.0 + 2.5e-7};
  EXPECT_EQ(sorn_scfochk(out, nullptr, 1), 3u);
}

TEST(Names, ComparisonOperators) {
  EXPECT_STREQ(sorn_cmpop_str(0), "nul-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(3), "equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(4), "less-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(5), "less-or-equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(6), "greater-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(7), "greater-or-equal-cmpop");
  EXPECT_STREQ(sorn_cmpop_str(8), "unknown-cmpop");  // works, but has no name
  EXPECT_STREQ(sorn_cmpop_str(0x13), "equal-cmpop");
}

TEST(Names, ThresholdMethods) {
  EXPECT_STREQ(sorn_thhmethod_str(0x10), "null(immediate)-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(1), "unknown-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(3), "otsu-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(4), "usto-threshold-method");
  EXPECT_STREQ(sorn_thhmethod_str(5), "blur-threshold-method");
}

TEST(Names, BorderKinds) {
  EXPECT_STREQ(sorn_border_str(0), "nul-border");
  EXPECT_STREQ(sorn_border_str(2), "unknown-border");
  EXPECT_STREQ(sorn_border_str(3), "const-border");
  EXPECT_STREQ(sorn_border_str(4), "replicate-border");
  EXPECT_STREQ(sorn_border_str(5), "wrap-border");
  EXPECT_STREQ(sorn_border_str(6), "reflect-border");
  EXPECT_STREQ(sorn_border_str(7), "reflect101-border");
  EXPECT_STREQ(sorn_border_str(0x17), "reflect101-border");
  EXPECT_STREQ(sorn_border_str(9), "unknown-border");
}

TEST(Names, FilterKindsReadAsOneByte) {
  EXPECT_STREQ(sorn_filter_str(0), "nul-filter");
  EXPECT_STREQ(sorn_filter_str(3), "min-filter");
  EXPECT_STREQ(sorn_filter_str(4), "max-filter");
  EXPECT_STREQ(sorn_filter_str(5), "box-filter");
  EXPECT_STREQ(sorn_filter_str(6), "median-filter");
  EXPECT_STREQ(sorn_filter_str(105), "close-filter");
  EXPECT_STREQ(sorn_filter_str(106), "open-filter");
  EXPECT_STREQ(sorn_filter_str(107), "bothat-filter");
  EXPECT_STREQ(sorn_filter_str(108), "tophat-filter");
  EXPECT_STREQ(sorn_filter_str(109), "gradient-filter");
  EXPECT_STREQ(sorn_filter_str(256 + 5), "box-filter");
  EXPECT_STREQ(sorn_filter_str(7), "unknown-filter");
}

TEST(Names, MorphologyKindsKeepTheirOwnSpelling) {
  EXPECT_STREQ(sorn_morphop_str(0), "nul-morhop");
  EXPECT_STREQ(sorn_morphop_str(3), "erode");
  EXPECT_STREQ(sorn_morphop_str(4), "dilate");
  EXPECT_STREQ(sorn_morphop_str(5), "morph-close");
  EXPECT_STREQ(sorn_morphop_str(6), "morph-open");
  EXPECT_STREQ(sorn_morphop_str(7), "morph-bothat");
  EXPECT_STREQ(sorn_morphop_str(8), "morph-tophat");
  EXPECT_STREQ(sorn_morphop_str(9), "morph-gradient");
  EXPECT_STREQ(sorn_morphop_str(10), "unknown-morhop");
  EXPECT_STREQ(sorn_morphop_str(0x13), "erode");
}

TEST(FillLimits, TopAndBottomOfEveryType) {
  struct Row { uint32_t type; double hi, lo; };
  const Row rows[] = {{SORN_U8, 255, 0},           {SORN_U16, 65535, 0},
                      {SORN_U32, 4294967295.0, 0}, {SORN_S8, 127, -128},
                      {SORN_S16, 32767, -32768},   {SORN_S32, 2147483647.0, -2147483648.0},
                      {SORN_F32, 1.0, 0.0}};
  for (const Row &r : rows) {
    double hi[4] = {-1, -1, -1, -1}, lo[4] = {-1, -1, -1, -1};
    ASSERT_EQ(sorn_defillvals(r.type, hi, lo, 3), SORN_OK);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(hi[k], r.hi);
      EXPECT_EQ(lo[k], r.lo);
    }
    EXPECT_EQ(hi[3], -1);  // only nchan cells written
    EXPECT_EQ(sorn_defillvals(r.type, nullptr, lo, 1), SORN_OK);
    EXPECT_EQ(sorn_defillvals(r.type, hi, nullptr, 1), SORN_OK);
  }
}

TEST(FillLimits, WideTypesAreUnsupportedAndUnknownCodesInvalid) {
  double hi[1] = {-1}, lo[1] = {-1};
  for (uint32_t t : {4u, 12u, 14u, 15u}) EXPECT_EQ(sorn_defillvals(t, hi, lo, 1), SORN_ENOTSUP);
  for (uint32_t t : {0u, 5u, 6u, 7u, 8u, 16u}) EXPECT_EQ(sorn_defillvals(t, hi, lo, 1), SORN_EINVAL);
  EXPECT_EQ(hi[0], -1);
  EXPECT_EQ(lo[0], -1);
}

}  // namespace

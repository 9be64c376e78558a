// Float to integer rounding has two forms in the library: the processor's
// own conversion, where the compiler gives it inline (GCC optimising on
// x86-64), and selects over float arithmetic everywhere else (other
// compilers, -O0, other processors). Only one of them runs in the kernels
// of a given build, so both are held here to the rule, written out below
// with the C library's rounding: the current mode's nearest integer, and
// 0x80000000 for whatever does not fit 32 bits, NaN included; into u8 and
// u16 that value then saturates.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "core/elem_types.h"
#include "testkit.h"

namespace {

int32_t rule_i32(double x) {
  if (std::isnan(x)) return INT32_MIN;
  const double r = std::nearbyint(x);  // the current rounding mode
  if (r < -2147483648.0 || r >= 2147483648.0) return INT32_MIN;
  return (int32_t)r;
}

template <class D> D rule_unsigned(double x) {
  const int64_t v = rule_i32(x);
  return (D)(v < 0 ? 0 : v > sorn::int_range<D>::hi ? sorn::int_range<D>::hi : v);
}

// Halves and their neighbours, the ends of each destination, the edges of
// 32 bits, the magnitudes where floats stop having fractions, infinities
// and NaN; then random bit patterns of every exponent.
std::vector<double> sweep(bool single) {
  std::vector<double> v = {0.0, -0.0, 0.5, -0.5, 1.5, -1.5, 2.5, 254.5, 255.5, 256.0, 65534.5,
                           65535.5, 65536.0, 32767.5, -32768.5, 8388607.5, 8388608.0, -8388607.5,
                           4503599627370495.5, 2147483520.0, 2147483647.0, 2147483647.5,
                           2147483648.0, -2147483648.0, -2147483648.5, -2147483649.0, 1e10, -1e10,
                           1e300, -1e300, INFINITY, -INFINITY, NAN, -NAN};
  for (double x = -300; x <= 300; x += 0.125) v.push_back(x);
  for (double x : {0.5, 255.5, 65535.5, 2147483647.5, 8388607.5}) {
    v.push_back(std::nextafter(x, 0.0));
    v.push_back(std::nextafter(x, 1e308));
    v.push_back(-std::nextafter(x, 0.0));
  }
  auto rng = sorn_test::seeded_rng(0x20d1);
  for (int i = 0; i < 200000; ++i) {
    if (single)
      v.push_back(std::bit_cast<float>((uint32_t)rng()));
    else
      v.push_back(std::bit_cast<double>((uint64_t)rng()));
  }
  return v;
}

const int kModes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
const char *const kModeNames[] = {"to nearest", "downward", "upward", "toward zero"};

// Runs `check` once in each rounding mode, back to nearest afterwards.
template <class F> void in_every_mode(F check) {
  for (int m = 0; m < 4; ++m) {
    ASSERT_EQ(std::fesetround(kModes[m]), 0);
    check(kModeNames[m]);
    std::fesetround(FE_TONEAREST);
  }
}

// Both forms of T into s32, over the sweep of T's values in every mode.
template <class T> void both_forms_to_s32() {
  const std::vector<double> v = sweep(std::is_same_v<T, float>);
  in_every_mode([&](const char *mode) {
    for (double d : v) {
      const T x = (T)d;  // floats from the sweep rounded in this mode
      const int32_t want = rule_i32(x);
      ASSERT_EQ(sorn::round_i32_select(x), want) << mode << ", " << x;
      ASSERT_EQ(sorn::round_i32(x), want) << mode << ", " << x;
    }
  });
}

TEST(Rounding, FloatsToS32InBothFormsFollowTheRule) { both_forms_to_s32<float>(); }
TEST(Rounding, DoublesToS32InBothFormsFollowTheRule) { both_forms_to_s32<double>(); }

TEST(Rounding, FloatsToU8AndU16InBothFormsSaturateTheRoundedValue) {
  const std::vector<double> v = sweep(true);
  in_every_mode([&](const char *mode) {
    for (double d : v) {
      const float x = (float)d;
      ASSERT_EQ(sorn::round_sat_unsigned_select<uint8_t>(x), rule_unsigned<uint8_t>(x)) << mode << ", " << x;
      ASSERT_EQ(sorn::round_sat_unsigned<uint8_t>(x), rule_unsigned<uint8_t>(x)) << mode << ", " << x;
      ASSERT_EQ(sorn::round_sat_unsigned_select<uint16_t>(x), rule_unsigned<uint16_t>(x)) << mode << ", " << x;
      ASSERT_EQ(sorn::round_sat_unsigned<uint16_t>(x), rule_unsigned<uint16_t>(x)) << mode << ", " << x;
    }
  });
}

// Which form this build's kernels run, for the log.
TEST(Rounding, NamesTheFormThisBuildRuns) {
  std::printf("float to integer in this build: %s\n",
              SORN_NATIVE_ROUND_I32 ? "the processor's conversion" : "selects");
  SUCCEED();
}

}  // namespace

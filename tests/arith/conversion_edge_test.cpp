// Conversion of a sum to s32 at the top of the range: a value that rounds
// to 2^31 is out of range like any larger one.
#include <gtest/gtest.h>
#include <sorn.h>

#include "testkit.h"

namespace {

TEST(ArithToS32, SumThatRoundsUpToTwoToTheThirtyOneGivesTheOutOfRangeValue) {
  sorn_test::Image d(1, 2, 1, SORN_S32), a(1, 2, 1, SORN_F32), b(1, 2, 1, SORN_S32);
  a.at<float>(0, 0) = 0.5f;
  b.at<int32_t>(0, 0) = 2147483647;  // f64 sum 2147483647.5, ties to even: 2^31
  a.at<float>(0, 1) = -0.5f;
  b.at<int32_t>(0, 1) = 2147483647;  // 2147483646.5, ties to even: 2147483646
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  ASSERT_EQ(SornAdd(&xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  SornXEfini(&xe);
  EXPECT_EQ(d.at<int32_t>(0, 0), INT32_MIN);
  EXPECT_EQ(d.at<int32_t>(0, 1), 2147483646);
}

}  // namespace

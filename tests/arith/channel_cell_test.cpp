// The channel cell of a ROI: how many elements per pixel the layers below
// fold into a row. A ROI can cut it; what is left must stay inside every
// operand's rows.
#include <gtest/gtest.h>
#include <sorn.h>

#include "testkit.h"

namespace {

using sorn_test::Image;

struct Three {
  Image d, a, b;
  explicit Three(int32_t ch, uint32_t t = SORN_U8)
      : d(3, 4, ch, t, 0, 0x11), a(3, 4, ch, t, 0, 1), b(3, 4, ch, t, 0, 2) {}
};

SornXE env() {
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  return xe;
}

TEST(ArithChannelCell, NegativeChannelCellInDestinationRoiIsEmpty) {
  Three t(1);
  SornArray d = t.d.record(), a = t.a.record(), b = t.b.record();
  SornVolume roi = sorn_test::make_roi(0, 0, 3, 4, -1);
  SornXE xe = env();
  const auto before = t.d.bytes_copy();
  EXPECT_EQ(SornAdd(&xe, 0, &d, &a, &b, &roi, nullptr, nullptr, 0, 0), SORN_ENOSPC);
  EXPECT_EQ(SornAddC(&xe, 0, &d, &a, (const double[]){1.0}, &roi, nullptr, 0, 0), SORN_ENOSPC);
  EXPECT_EQ(t.d.bytes_copy(), before);
  EXPECT_TRUE(t.d.guards_intact());
  SornXEfini(&xe);
}

TEST(ArithChannelCell, ChannelOriginAtTheCountLeavesNothing) {
  Three t(2, SORN_S16);
  SornArray d = t.d.record(), a = t.a.record(), b = t.b.record();
  SornVolume roi = sorn_test::make_roi(0, 0, 3, 4, 2);
  roi.origin[3] = 2;
  SornXE xe = env();
  const auto before = t.d.bytes_copy();
  EXPECT_EQ(SornAdd(&xe, 0, &d, &a, &b, &roi, nullptr, nullptr, 0, 0), SORN_ENOSPC);
  EXPECT_EQ(t.d.bytes_copy(), before);
  SornXEfini(&xe);
}

TEST(ArithChannelCell, FirstSourceChannelOriginIsNotUsed) {
  // The first source's ROI is cut to the site with the channel cell reset,
  // so a channel origin there moves nothing: all three channels are added.
  Three t(3);
  SornArray d = t.d.record(), a = t.a.record(), b = t.b.record();
  SornVolume aroi = sorn_test::make_roi(0, 0, 3, 4, 3);
  aroi.origin[3] = 1;
  SornXE xe = env();
  ASSERT_EQ(SornAdd(&xe, 0, &d, &a, &b, nullptr, &aroi, nullptr, 0, 0), SORN_OK);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x)
      for (int c = 0; c < 3; ++c) EXPECT_EQ(t.d.at<uint8_t>(y, x, c), 3);
  EXPECT_TRUE(t.d.guards_intact());
  EXPECT_TRUE(t.a.guards_intact());
  SornXEfini(&xe);
}

}  // namespace

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

TEST(ArithChannelCell, ARegionWhoseChannelsBeginInsideThePixelTakesWholePixels) {
  // Channel 2 of three: the operation runs on whole pixels from the pixel's
  // start, by its own kernel and through the tiles of a wider source alike,
  // and nothing outside the region's pixels changes, row padding included.
  for (uint32_t bt : {(uint32_t)SORN_U8, (uint32_t)SORN_F32}) {
    Image d(4, 6, 3, SORN_U8, 5, 0x11), a(4, 6, 3, SORN_U8, 3), b(4, 6, 3, bt, 8);
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < 6; ++x)
        for (int32_t c = 0; c < 3; ++c) {
          a.set(y, x, c, 100 + 10 * y + x + c);
          b.set(y, x, c, 3 * x + c);
        }
    SornArray rd = d.record(), ra = a.record(), rb = b.record();
    SornVolume roi = sorn_test::make_roi(1, 2, 2, 40, 3);
    roi.origin[3] = 2;
    const auto before = d.bytes_copy();
    SornXE xe = env();
    ASSERT_EQ(SornSub(&xe, 0, &rd, &ra, &rb, &roi, nullptr, nullptr, 0, 0), SORN_OK) << bt;
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < 6; ++x)
        for (int32_t c = 0; c < 3; ++c) {
          const bool in = y >= 1 && y < 3 && x >= 2;
          // The sources start at their own first pixel.
          const double want = in ? a.get(y - 1, x - 2, c) - b.get(y - 1, x - 2, c) : 0x11;
          EXPECT_EQ(d.get(y, x, c), want) << bt << " at " << y << "," << x << "," << c;
        }
    const auto after = d.bytes_copy();
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t k = 18; k < d.rowstride(); ++k) {
        const size_t i = (size_t)y * d.rowstride() + k;
        EXPECT_EQ(after[i], before[i]) << bt << " padding of row " << y;
      }
    EXPECT_TRUE(d.guards_intact());
    SornXEfini(&xe);
  }
}

}  // namespace

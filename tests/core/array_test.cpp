// The array record: constructors, sites, regions of interest and their
// negotiation between two operands.
#include <gtest/gtest.h>
#include <sorn.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>

#include "testkit.h"

namespace {

using V4 = std::array<int32_t, 4>;

V4 v4(const int32_t *p) { return V4{p[0], p[1], p[2], p[3]}; }

SornVolume vol(V4 o, V4 s) {
  SornVolume v;
  for (int i = 0; i < 4; ++i) {
    v.origin[i] = o[i];
    v.size[i] = s[i];
  }
  return v;
}

alignas(16) unsigned char g_buf[1 << 16];

/* ---------------- constructors ---------------- */

TEST(ArrayXtrn, ThreeDimensionalRecord) {
  const int32_t dims[3] = {10, 20, 3};
  SornArray a;
  std::memset(&a, 0xcd, sizeof a);
  EXPECT_EQ(__sorn_array__$xtrn(&a, 3, dims, SORN_S16, g_buf, nullptr, nullptr), &a);
  EXPECT_EQ(v4(a.dims), (V4{1, 10, 20, 3}));
  EXPECT_EQ(v4(a.bounds), (V4{1, 10, 20, 3}));
  EXPECT_EQ(v4(a.strides), (V4{0, 20 * 3 * 2, 3 * 2, 2}));
  EXPECT_EQ(a.ndims, 3);
  EXPECT_EQ(a.ndimsall, 3);
  EXPECT_EQ(a.elemtype, SORN_S16);
  EXPECT_EQ(a.reserved, 0u);
  EXPECT_EQ(a.marker, 0x22u);
  EXPECT_EQ(a.offset, 0);
  EXPECT_EQ(a.data, g_buf);
  EXPECT_EQ(a.link, 0u);
}

TEST(ArrayXtrn, PackThreeGivesUnitDepthAndZeroPlaneStride) {
  const int32_t dims[3] = {4, 5, 1};
  const int32_t strides[3] = {64, 0, 0};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, dims, SORN_U8, g_buf, nullptr, strides);
  EXPECT_EQ(a.dims[0], 1);
  EXPECT_EQ(a.strides[0], 0);
  EXPECT_EQ(a.ndims, 3);
  EXPECT_EQ(v4(a.strides), (V4{0, 64, 1, 1}));
}

TEST(ArrayXtrn, PackTwoTakesChannelsFromTheColumns) {
  const int32_t dims[2] = {7, 3};  // rows, columns
  SornArray a;
  __sorn_array__$xtrn(&a, 2, dims, SORN_F32, g_buf, nullptr, nullptr);
  EXPECT_EQ(a.ndims, 3);
  EXPECT_EQ(a.ndimsall, 3);
  EXPECT_EQ(v4(a.dims), (V4{1, 1, 7, 3}));
  // The last given cell (3 columns) is read as a channels word.
  EXPECT_EQ(a.strides[3], 4);
  EXPECT_EQ(a.strides[2], 3 * 4);
  EXPECT_EQ(a.strides[1], 7 * 12);
  EXPECT_EQ(a.strides[0], 0);
}

TEST(ArrayXtrn, OriginWidensBoundsAndSetsOffsetButLeavesDims) {
  const int32_t dims[3] = {10, 20, 2};
  const int32_t origin[3] = {3, 4, 0};
  const int32_t strides[3] = {200, 0, 0};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, dims, SORN_U8, g_buf, origin, strides);
  EXPECT_EQ(v4(a.dims), (V4{1, 10, 20, 2}));
  EXPECT_EQ(v4(a.bounds), (V4{1, 13, 24, 2}));
  EXPECT_EQ(v4(a.strides), (V4{0, 200, 2, 1}));
  EXPECT_EQ(a.offset, 3 * 200 + 4 * 2);
}

TEST(ArrayXtrn, DefaultRowStrideUsesTheWidenedColumns) {
  const int32_t dims[3] = {10, 20, 1};
  const int32_t origin[3] = {0, 5, 0};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, dims, SORN_S32, g_buf, origin, nullptr);
  EXPECT_EQ(a.strides[1], 25 * 4);
  EXPECT_EQ(a.offset, 5 * 4);
}

TEST(ArrayXtrn, LeadingCellsGoIntoBoundsAndStridesOnly) {
  // n = 3 with one valid cell in front: a plane of the parent volume.
  const int32_t dims[4] = {6, 10, 20, 1};
  const int32_t origin[4] = {2, 1, 1, 0};
  const int32_t strides[4] = {4096, 64, 1, 1};
  SornArray a;
  __sorn_array__$xtrn(&a, SORN_DIMPACK(3), dims + 1, SORN_U8, g_buf, origin + 1, strides + 1);
  EXPECT_EQ(a.ndims, 3);
  EXPECT_EQ(a.ndimsall, 4);
  EXPECT_EQ(v4(a.dims), (V4{1, 10, 20, 1}));
  EXPECT_EQ(v4(a.bounds), (V4{8, 11, 21, 1}));
  EXPECT_EQ(v4(a.strides), (V4{4096, 64, 1, 1}));
  EXPECT_EQ(a.offset, 2 * 4096 + 64 + 1);
}

TEST(ArrayXtrn, FourDimensionsKeepThePlaneStrideAsGiven) {
  const int32_t dims[4] = {3, 10, 20, 4};
  SornArray a;
  __sorn_array__$xtrn(&a, 4, dims, SORN_U8, g_buf, nullptr, nullptr);
  EXPECT_EQ(a.ndims, 4);
  EXPECT_EQ(a.ndimsall, 4);
  EXPECT_EQ(v4(a.dims), (V4{3, 10, 20, 4}));
  EXPECT_EQ(v4(a.strides), (V4{0, 80, 4, 1}));  // no default for the plane stride
}

TEST(ArrayXtrn, ChannelsWordWithBitThree) {
  const int32_t d8[3] = {2, 2, 8}, d11[3] = {2, 2, 11}, d12[3] = {2, 2, 12};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, d8, SORN_U8, g_buf, nullptr, nullptr);
  EXPECT_EQ(a.strides[2], 1);  // 8 is one channel
  EXPECT_EQ(a.dims[3], 8);    // the word itself is kept
  __sorn_array__$xtrn(&a, 3, d11, SORN_U8, g_buf, nullptr, nullptr);
  EXPECT_EQ(a.strides[2], 4);  // 3 + 8 is four channels
  __sorn_array__$xtrn(&a, 3, d12, SORN_U8, g_buf, nullptr, nullptr);
  EXPECT_EQ(a.strides[2], 5);  // 4 + 8 is five, which operations refuse
  EXPECT_EQ(SORN_CHANNELS(8), 1);
  EXPECT_EQ(SORN_CHANNELS(11), 4);
  EXPECT_EQ(SORN_CHANNELS(12), 5);
  EXPECT_EQ(SORN_CHANNELS(0x23), 3);  // format nibble does not count
}

TEST(ArrayXtrn, ElementSizeComesFromTheSizeClass) {
  const int32_t dims[3] = {1, 1, 1};
  const struct { uint32_t code; int32_t size; } cases[] = {
      {1, 1}, {2, 2}, {3, 4}, {4, 8}, {9, 1}, {10, 2}, {11, 4}, {12, 8}, {13, 4}, {14, 8},
      {15, 0}, {0, 0}, {5, 4}, {6, 8}, {7, 0}};
  for (auto c : cases) {
    SornArray a;
    __sorn_array__$xtrn(&a, 3, dims, c.code, g_buf, nullptr, nullptr);
    EXPECT_EQ(a.strides[3], c.size) << "code " << c.code;
    EXPECT_EQ(SORN_ELEMSIZE(c.code), c.size);
  }
}

// The shortcut hands its four-cell vectors over as three: the record is
// shifted by one cell and loses its channels word.
TEST(ArrayXtrn3, DeliberateShiftByOneCell) {
  SornArray a;
  EXPECT_EQ(__sorn_array__$xtrn$3(&a, 10, 20, 3, SORN_S16, g_buf, 0, 0, 160), &a);
  EXPECT_EQ(v4(a.dims), (V4{1, 1, 10, 20}));
  EXPECT_EQ(a.strides[0], 0);
  EXPECT_EQ(a.strides[2], 160);
  EXPECT_EQ(a.strides[3], 3 * 2);
  // The one zero stride that the constructor completes: bounds[2] * strides[2].
  EXPECT_EQ(a.strides[1], 10 * 160);
  EXPECT_EQ(a.ndims, 3);
  EXPECT_EQ(a.offset, 0);
  EXPECT_EQ(v4(a.bounds), (V4{1, 1, 10, 20}));
  EXPECT_EQ(a.marker, 0x22u);
}

TEST(ArrayXtrn3, OriginIsShiftedToo) {
  SornArray a;
  __sorn_array__$xtrn$3(&a, 10, 20, 1, SORN_U8, g_buf, 2, 3, 64);
  EXPECT_EQ(v4(a.dims), (V4{1, 1, 10, 20}));
  EXPECT_EQ(v4(a.bounds), (V4{1, 1, 12, 23}));
  // origin {0, oy, ox} against strides {0, rowstride, pixel}
  EXPECT_EQ(a.offset, 2 * 64 + 3 * 1);
}

TEST(ArrayCp, CopiesAllButTheLink) {
  SornArray a = sorn_test::make_record(g_buf, 5, 6, 2, SORN_U8, 16);
  a.offset = -12;
  a.link = 0x1234;
  a.reserved = 7;
  SornArray b;
  std::memset(&b, 0xee, sizeof b);
  EXPECT_EQ(__sorn_array__$cp$xtrn(&b, &a), &b);
  SornArray expect = a;
  expect.link = 0;
  EXPECT_EQ(std::memcmp(&b, &expect, sizeof b), 0);
  EXPECT_EQ(__sorn_array__$cp$xtrn(&a, &a), &a);
  EXPECT_EQ(a.link, 0u);
}

TEST(ArraySar, SubArrayOfRowsAndColumns) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  a.link = 5;
  SornArray s;
  const int32_t o[2] = {2, 4}, z[2] = {5, 6};
  EXPECT_EQ(__sorn_array__$_sar(&s, &a, 2, o, z), &s);
  EXPECT_EQ(v4(s.dims), (V4{1, 5, 6, 3}));
  EXPECT_EQ(s.offset, 2 * 64 + 4 * 3);
  EXPECT_EQ(v4(s.bounds), v4(a.bounds));
  EXPECT_EQ(s.link, 0u);
}

TEST(ArraySar, ClipsToTheSite) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  SornArray s;
  const int32_t o[2] = {-2, 15}, z[2] = {5, 10};
  __sorn_array__$_sar(&s, &a, 2, o, z);
  EXPECT_EQ(v4(s.dims), (V4{1, 3, 5, 1}));
  EXPECT_EQ(s.offset, 15);
}

TEST(ArraySar, EmptyIntersectionZeroesTheCellsAndStillMovesTheOffset) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  SornArray s;
  const int32_t o[2] = {12, 3}, z[2] = {5, 5};
  __sorn_array__$_sar(&s, &a, 2, o, z);
  EXPECT_EQ(v4(s.dims), (V4{1, 0, 0, 1}));
  EXPECT_EQ(s.offset, 12 * 32 + 3);
}

TEST(ArraySar, NullSizeOnlyCopies) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  SornArray s;
  const int32_t o[2] = {1, 1};
  __sorn_array__$_sar(&s, &a, 2, o, nullptr);
  EXPECT_EQ(std::memcmp(&s, &a, sizeof s), 0);
}

TEST(ArraySar, InPlaceAccumulatesOffset) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  const int32_t o[2] = {1, 2}, z[2] = {100, 100};
  __sorn_array__$_sar(&a, &a, 2, o, z);
  __sorn_array__$_sar(&a, nullptr, 2, o, z);
  EXPECT_EQ(v4(a.dims), (V4{1, 8, 16, 1}));
  EXPECT_EQ(a.offset, 2 * (32 + 2));
}

TEST(ArraySar, FourCellsSetTheChannelCount) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 0x13, SORN_U8, 64);
  SornArray s;
  const int32_t o[4] = {0, 1, 1, 0}, z[4] = {1, 4, 4, 1};
  __sorn_array__$_sar(&s, &a, 4, o, z);
  // Cell 3 is the count of the channels word, and is not cut by the region.
  EXPECT_EQ(v4(s.dims), (V4{1, 4, 4, 3}));
  EXPECT_EQ(s.offset, 64 + 3);
}

/* ---------------- sites ---------------- */

TEST(ArraySite, NCellFormsAddressRowsAndColumnsFirst) {
  SornArray a = sorn_test::make_record4(g_buf, 2, 10, 20, 3, SORN_U8, 4096, 64);
  int32_t o[4] = {9, 9, 9, 9}, s[4] = {9, 9, 9, 9};
  EXPECT_TRUE(sorn_arr__siteof(&a, 2, o, s));
  EXPECT_EQ(v4(o), (V4{0, 0, 9, 9}));
  EXPECT_EQ(v4(s), (V4{10, 20, 9, 9}));
  EXPECT_TRUE(sorn_arr__siteof(&a, 3, o, s));
  EXPECT_EQ(v4(s), (V4{2, 10, 20, 9}));
  EXPECT_TRUE(sorn_arr__siteof(&a, 4, o, s));
  EXPECT_EQ(v4(s), (V4{2, 10, 20, 3}));
  EXPECT_TRUE(sorn_arr__siteof(&a, 1, nullptr, s));
  EXPECT_EQ(s[0], 20);
}

TEST(ArraySite, FalseWhenACellIsNotPositive) {
  SornArray a = sorn_test::make_record(g_buf, 0, 20, 1, SORN_U8, 64);
  int32_t o[4], s[4];
  EXPECT_FALSE(sorn_arr__siteof(&a, 3, o, s));
}

TEST(ArraySite, BlockFormKeepsTheRawChannelsWord) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 0x1b, SORN_U8, 128);
  SornVolume r = vol({7, 7, 7, 7}, {7, 7, 7, 7});
  EXPECT_EQ(sorn_arr_siteof(&a, &r), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 0, 0, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 10, 20, 0x1b}));
}

TEST(ArraySiteAt, PointGivesOriginAndShrinksTheSize) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  int32_t o[2], s[2];
  const int32_t at[2] = {3, 5};
  EXPECT_TRUE(sorn_arr__siteofAt(&a, 2, o, s, at));
  EXPECT_EQ(o[0], 3);
  EXPECT_EQ(o[1], 5);
  EXPECT_EQ(s[0], 7);
  EXPECT_EQ(s[1], 15);
}

TEST(ArraySiteAt, NegativePointShrinksSizeAndKeepsOriginZero) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  int32_t o[2], s[2];
  EXPECT_TRUE(sorn_arr__siteofAt_$g2(&a, o, s, -3, 2));
  EXPECT_EQ(o[0], 0);
  EXPECT_EQ(s[0], 7);
  EXPECT_EQ(o[1], 2);
  EXPECT_EQ(s[1], 18);
}

TEST(ArraySiteAt, PointBeyondTheSiteIsEmpty) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  int32_t o[2], s[2];
  EXPECT_FALSE(sorn_arr__siteofAt_$g2(&a, o, s, 10, 0));
  EXPECT_EQ(s[0], 0);
}

TEST(ArraySiteAt, NullPointIsTheSite) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 2, SORN_U8, 64);
  int32_t o[4], s[4];
  EXPECT_TRUE(sorn_arr__siteofAt(&a, 4, o, s, nullptr));
  EXPECT_EQ(v4(s), (V4{1, 10, 20, 2}));
}

TEST(ArraySiteAt, FourCellsLeaveTheChannelsCell) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 2, SORN_U8, 64);
  int32_t o[4], s[4];
  const int32_t at[4] = {0, 4, 4, 1};
  EXPECT_TRUE(sorn_arr__siteofAt(&a, 4, o, s, at));
  EXPECT_EQ(v4(o), (V4{0, 4, 4, 0}));
  EXPECT_EQ(v4(s), (V4{1, 6, 16, 2}));
}

TEST(ArraySiteAt, PointMayBeTheOriginVector) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 1, SORN_U8, 32);
  int32_t o[2] = {2, 3}, s[2];
  EXPECT_TRUE(sorn_arr__siteofAt(&a, 2, o, s, o));
  EXPECT_EQ(o[0], 2);
  EXPECT_EQ(o[1], 3);
  EXPECT_EQ(s[0], 8);
  EXPECT_EQ(s[1], 17);
}

TEST(ArraySiteAt, BlockForms) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  SornVolume r;
  EXPECT_EQ(sorn_arr_siteofAt_$g2(&a, &r, 2, 5), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 2, 5, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 8, 15, 3}));
  const int32_t p2[2] = {1, 1};
  EXPECT_EQ(sorn_arr_siteofAt_$gv(&a, &r, 2, p2), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 1, 1, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 9, 19, 3}));
  const int32_t p3[3] = {0, 4, 6};
  sorn_arr_siteofAt_$gv(&a, &r, 3, p3);
  EXPECT_EQ(v4(r.origin), (V4{0, 4, 6, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 6, 14, 3}));
  const int32_t p4[4] = {0, 4, 6, 2};
  sorn_arr_siteofAt_$gv(&a, &r, 4, p4);
  EXPECT_EQ(v4(r.origin), (V4{0, 4, 6, 0}));  // cell 3 takes no point
  EXPECT_EQ(v4(r.size), (V4{1, 6, 14, 3}));
}

TEST(ArrayParsite, ParentSeenFromTheSite) {
  const int32_t dims[3] = {10, 20, 2};
  const int32_t origin[3] = {3, 4, 0};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, dims, SORN_U8, g_buf, origin, nullptr);
  int32_t o[4], s[4];
  EXPECT_TRUE(sorn_arr__parsiteof(&a, 4, o, s));
  EXPECT_EQ(v4(o), (V4{0, -3, -4, 0}));
  EXPECT_EQ(v4(s), (V4{1, 13, 24, 2}));
  SornVolume r;
  EXPECT_EQ(sorn_arr_parsiteof(&a, &r), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, -3, -4, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 13, 24, 2}));
  EXPECT_TRUE(sorn_arr__parsiteof(&a, 2, o, s));
  EXPECT_EQ(o[0], -3);
  EXPECT_EQ(o[1], -4);
  EXPECT_EQ(s[0], 13);
  EXPECT_EQ(s[1], 24);
}

/* ---------------- regions of interest ---------------- */

TEST(ArrayAdjorget, SiteWithTheChannelCount) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 0x2b, SORN_U8, 128);
  SornVolume r;
  EXPECT_EQ(sorn_arr_adjorgetRoi(&a, &r, nullptr), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 0, 0, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 10, 20, 4}));
}

TEST(ArrayAdjorget, BlockFormCutsAllFourCells) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  SornVolume in = vol({0, 2, 3, 0}, {5, 100, 4, 2});
  SornVolume r;
  sorn_arr_adjorgetRoi(&a, &r, &in);
  EXPECT_EQ(v4(r.origin), (V4{0, 2, 3, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 8, 4, 2}));  // a smaller size cell 3 lowers the count
}

TEST(ArrayAdjorget, BlockFormMayWorkInPlace) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  SornVolume r = vol({0, 2, 3, 0}, {1, 4, 4, 3});
  sorn_arr_adjorgetRoi(&a, &r, &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 2, 3, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 4, 4, 3}));
}

TEST(ArrayAdjorget, NCellFormCutsOnlyThreeCellsAndCountsChannels) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 3, SORN_U8, 64);
  int32_t o[4], s[4];
  const int32_t ro[4] = {0, 8, -1, 1}, rs[4] = {1, 5, 6, 1};
  EXPECT_TRUE(sorn_arr__adjorgetRoi(&a, 4, o, s, ro, rs));
  EXPECT_EQ(v4(o), (V4{0, 8, 0, 0}));
  EXPECT_EQ(v4(s), (V4{1, 2, 5, 3}));
  EXPECT_FALSE(sorn_arr__adjorgetRoi(&a, 2, o, s, ro + 1, ro + 1));  // size {8, -1}
  EXPECT_TRUE(sorn_arr__adjorgetRoi(&a, 2, o, s, nullptr, nullptr));
  EXPECT_EQ(s[0], 10);
  EXPECT_EQ(s[1], 20);
}

TEST(ArrayAdjust, NCellFormIntersectsInPlace) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 2, SORN_U8, 64);
  int32_t o[2] = {-3, 15}, s[2] = {5, 10};
  EXPECT_TRUE(sorn_arr__adjustRoi_$I(&a, 2, o, s));
  EXPECT_EQ(o[0], 0);
  EXPECT_EQ(o[1], 15);
  EXPECT_EQ(s[0], 2);
  EXPECT_EQ(s[1], 5);
  int32_t o4[4] = {0, 11, 0, 1}, s4[4] = {1, 3, 3, 1};
  EXPECT_FALSE(sorn_arr__adjustRoi_$I(&a, 4, o4, s4));
  EXPECT_EQ(o4[3], 0);
  EXPECT_EQ(s4[3], 2);
}

TEST(ArrayAdjust, BlockFormSetsTheChannelCell) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 0x1a, SORN_U8, 64);
  SornVolume r = vol({0, 4, 18, 1}, {3, 10, 10, 1});
  EXPECT_EQ(sorn_arr_adjustRoi_$I(&a, &r), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 4, 18, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 6, 2, 3}));
}

TEST(ArrayAdjust, PlainNamedFormIsTheSame) {
  SornArray a = sorn_test::make_record(g_buf, 10, 20, 2, SORN_U8, 64);
  SornVolume r = vol({0, 8, 3, 0}, {1, 5, 100, 4});
  EXPECT_EQ(sorn_arr_adjustRoi_I(&a, &r), &r);
  EXPECT_EQ(v4(r.origin), (V4{0, 8, 3, 0}));
  EXPECT_EQ(v4(r.size), (V4{1, 2, 17, 2}));
}

/* ---------------- from site to data coordinates ---------------- */

TEST(ArrayTopcs, AddsTheDecomposedOffset) {
  const int32_t dims[3] = {10, 20, 2};
  const int32_t origin[3] = {3, 4, 0};
  SornArray a;
  __sorn_array__$xtrn(&a, 3, dims, SORN_S16, g_buf, origin, nullptr);
  int32_t out[4] = {}, in[4] = {0, 1, 2, 1};
  EXPECT_EQ(sorn_arr_topcs(&a, 4, out, in), (void *)g_buf);
  EXPECT_EQ(v4(out), (V4{0, 4, 6, 1}));
  EXPECT_EQ(v4(in), (V4{0, 1, 2, 1}));
  int32_t p[2] = {1, 2};
  sorn_arr_topcs(&a, 2, p, p);
  EXPECT_EQ(p[0], 4);
  EXPECT_EQ(p[1], 6);
  int32_t q[4];
  EXPECT_EQ(sorn_arr_pt2pcs(&a, q, in), (void *)g_buf);
  EXPECT_EQ(v4(q), (V4{0, 4, 6, 1}));
}

}  // namespace

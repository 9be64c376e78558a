// SornAdd and SornAddC from the public records down: checks, the order in
// which failures are reported, ROI negotiation between three operands, and
// results against the plain reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "add_reference.h"
#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

constexpr uint32_t kAadd = SORN_FOURCC('a', 'a', 'd', 'd');

// The multiply and divide families, on the same shared entries.
const uint32_t kMulDivTags[] = {
    SORN_FOURCC('a', 'd', 'i', 'v'), SORN_FOURCC('a', 'm', 'u', 'l'), SORN_FOURCC('d', 'i', 'v', 'r'),
    SORN_FOURCC('r', 'd', 'i', 'v'), SORN_FOURCC('r', 'd', 'v', 'r')};

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

void fill_ramp(Image &im, int32_t base) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c) im.set(y, x, c, base + y * 10 + x + c);
}

// Three small u8 images and an environment, for the checks.
struct Trio {
  Image d{6, 8, 1, SORN_U8, 0, 0x77}, a{6, 8, 1, SORN_U8}, b{6, 8, 1, SORN_U8};
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornXE xe;
  std::vector<uint8_t> before;
  Trio() {
    fill_ramp(a, 1);
    fill_ramp(b, 2);
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
    before = d.bytes_copy();
  }
  ~Trio() { SornXEfini(&xe); }
  bool untouched() const { return d.bytes_copy() == before && d.guards_intact(); }
};

// --- worked examples ---------------------------------------------------

TEST(AddU8, WorkedExamplesThroughTheEntry) {
  Trio t;
  t.a.at<uint8_t>(0, 0) = 200;
  t.b.at<uint8_t>(0, 0) = 100;
  t.a.at<uint8_t>(0, 1) = 151;
  t.b.at<uint8_t>(0, 1) = 100;
  ASSERT_EQ(SornAdd(&t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(t.d.at<uint8_t>(0, 0), 44);
  ASSERT_EQ(SornAdd(&t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr, nullptr, nullptr, 1, 0), SORN_OK);
  EXPECT_EQ(t.d.at<uint8_t>(0, 0), 255);
  ASSERT_EQ(SornAdd(&t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr, nullptr, nullptr, -1, 0), SORN_OK);
  EXPECT_EQ(t.d.at<uint8_t>(0, 0), 150);
  EXPECT_EQ(t.d.at<uint8_t>(0, 1), 126) << "125.5 rounds to the even 126";
}

TEST(AddU8, S16SourcesTakeADirectKernelAndWrap) {
  Image d(2, 3, 1, SORN_U8), a(2, 3, 1, SORN_S16), b(2, 3, 1, SORN_S16);
  a.at<int16_t>(1, 2) = 200;
  b.at<int16_t>(1, 2) = 100;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(1, 2), 44);
}

TEST(AddS16, U8SourcesNeverOverflowThroughTheEntry) {
  Image d(16, 16, 1, SORN_S16), a(16, 16, 1, SORN_U8), b(16, 16, 1, SORN_U8);
  for (int32_t y = 0; y < 16; ++y)
    for (int32_t x = 0; x < 16; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)(255 - y);
      b.at<uint8_t>(y, x) = (uint8_t)(255 - x);
    }
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 16; ++y)
    for (int32_t x = 0; x < 16; ++x) ASSERT_EQ(d.at<int16_t>(y, x), 510 - y - x);
}

TEST(AddS32, U8AndF32SourcesUseTheS32F32U8Kernel) {
  Image d(1, 2, 1, SORN_S32), a(1, 2, 1, SORN_U8), b(1, 2, 1, SORN_F32);
  a.at<uint8_t>(0, 0) = 1;
  b.at<float>(0, 0) = 1.5f;
  a.at<uint8_t>(0, 1) = 2;
  b.at<float>(0, 1) = 0.5f;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<int32_t>(0, 0), 2) << "2.5 to even";
  EXPECT_EQ(d.at<int32_t>(0, 1), 2) << "2.5 to even";
}

TEST(AddChannels, ThreeChannelsAreAddedAsOneLongRow) {
  Image d(3, 5, 3, SORN_S16, 4), a(3, 5, 3, SORN_S16, 8), b(3, 5, 3, SORN_U8, 3);
  fill_ramp(a, 100);
  fill_ramp(b, 1);
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int32_t c = 0; c < 3; ++c) ASSERT_EQ(d.get(y, x, c), a.get(y, x, c) + b.get(y, x, c));
  EXPECT_TRUE(d.guards_intact());
}

// --- the failure table, in its order -------------------------------------

TEST(AddFailures, UnknownTagIsInvalid) {
  Trio t;
  EXPECT_EQ(_T_SornArith2(SORN_FOURCC('a', 'd', 'd', ' '), &t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr,
                          nullptr, nullptr, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(_T_SornArith2(0, &t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
  // The sigmoid's selector belongs to the constant entry only.
  EXPECT_EQ(_T_SornArith2(SORN_FOURCC('s', 'i', 'g', 'm'), &t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr,
                          nullptr, nullptr, 0, 0),
            SORN_EINVAL);
  EXPECT_TRUE(t.untouched());
}

TEST(AddFailures, MultiplyAndDivideSelectorsCheckAsAdditionDoes) {
  Trio t;
  SornVolume far = make_roi(50, 50, 2, 2, 1);
  SornArray bad = t.rd;
  bad.ndims = 2;
  for (uint32_t tag : kMulDivTags) {
    t.before = t.d.bytes_copy();
    EXPECT_EQ(_T_SornArith2(tag, &t.xe, 0, &bad, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0),
              SORN_EINVAL);
    EXPECT_EQ(_T_SornArith2(tag, &t.xe, 0, &t.rd, &t.ra, &t.rb, &far, nullptr, nullptr, 0, 0),
              SORN_ENOSPC);
    EXPECT_TRUE(t.untouched());
    EXPECT_EQ(_T_SornArith2(tag, &t.xe, 0, &t.rd, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0),
              SORN_OK);
  }
  // The last selector was rdvr: b / a rounded, ramps from 2 over ramps from 1.
  EXPECT_EQ(t.d.at<uint8_t>(0, 0), 2);
  EXPECT_EQ(t.d.at<uint8_t>(0, 2), 1) << "4 / 3 rounds to 1";
}

TEST(AddFailures, BadDestinationIsInvalid) {
  Trio t;
  auto run = [&](const SornArray *d) {
    return SornAdd(&t.xe, 0, d, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0);
  };
  EXPECT_EQ(run(nullptr), SORN_EINVAL);
  SornArray r = t.rd;
  r.ndims = 2;
  EXPECT_EQ(run(&r), SORN_EINVAL);
  r.ndims = 5;
  EXPECT_EQ(run(&r), SORN_EINVAL);
  r = t.rd;
  r.dims[0] = 0;
  EXPECT_EQ(run(&r), SORN_EINVAL);
  r = t.rd;
  r.dims[3] = 0;  // no channel
  EXPECT_EQ(run(&r), SORN_EINVAL);
  r = t.rd;
  r.dims[3] = 12;  // 4 + 1: five channels
  EXPECT_EQ(run(&r), SORN_EINVAL);
  EXPECT_TRUE(t.untouched());
}

TEST(AddFailures, SourcesNotMatchingTheDestinationAreInvalid) {
  Trio t;
  auto run = [&](const SornArray *a, const SornArray *b) {
    return SornAdd(&t.xe, 0, &t.rd, a, b, nullptr, nullptr, nullptr, 0, 0);
  };
  SornArray r = t.ra;
  r.dims[3] = 2;  // two channels against one
  EXPECT_EQ(run(&r, &t.rb), SORN_EINVAL);
  EXPECT_EQ(run(&t.ra, &r), SORN_EINVAL);
  r = t.ra;
  r.ndims = 4;  // more dimensions than the destination
  EXPECT_EQ(run(&r, &t.rb), SORN_EINVAL);
  EXPECT_EQ(run(&t.ra, &r), SORN_EINVAL);
  r = t.ra;
  r.dims[0] = 2;  // planes where the destination has one
  EXPECT_EQ(run(&r, &t.rb), SORN_EINVAL);
  EXPECT_EQ(run(&t.ra, &r), SORN_EINVAL);
  EXPECT_EQ(run(&t.ra, nullptr), SORN_EINVAL) << "the second source is required";
  EXPECT_EQ(run(nullptr, nullptr), SORN_EINVAL);
  // A channels word of 8 is one channel, like 1.
  r = t.ra;
  r.dims[3] = 8;
  EXPECT_EQ(run(&r, &t.rb), SORN_OK);
}

TEST(AddFailures, ElementTypesAreNotCheckedAtTheEntry) {
  Trio t;
  SornArray r = t.rd;
  r.elemtype = SORN_U16;  // known, no kernel
  EXPECT_EQ(SornAdd(&t.xe, 0, &r, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  r.elemtype = 5;  // unknown
  EXPECT_EQ(SornAdd(&t.xe, 0, &r, &t.ra, &t.rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
  SornArray rb = t.rb;
  rb.elemtype = 0;  // unknown
  EXPECT_EQ(SornAdd(&t.xe, 0, &t.rd, &t.ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
  rb.elemtype = 15;  // the reserved code is known, and has no kernel
  EXPECT_EQ(SornAdd(&t.xe, 0, &t.rd, &t.ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_TRUE(t.untouched());
}

TEST(AddFailures, ROIsWithoutACommonRegionHaveNoSpace) {
  Trio t;
  auto run = [&](const SornVolume *dr, const SornVolume *ar, const SornVolume *br) {
    return SornAdd(&t.xe, 0, &t.rd, &t.ra, &t.rb, dr, ar, br, 0, 0);
  };
  SornVolume out = make_roi(6, 0, 2, 2, 1);    // below the destination
  SornVolume empty = make_roi(0, 0, 0, 3, 1);  // no rows
  SornVolume at_end = make_roi(0, 8, 1, 1, 1); // a start past the last column
  EXPECT_EQ(run(&out, nullptr, nullptr), SORN_ENOSPC);
  EXPECT_EQ(run(&empty, nullptr, nullptr), SORN_ENOSPC);
  EXPECT_EQ(run(nullptr, nullptr, &at_end), SORN_ENOSPC);
  EXPECT_EQ(run(nullptr, &at_end, nullptr), SORN_ENOSPC);
  // A bad record is reported before an empty region.
  SornArray bad = t.rd;
  bad.dims[3] = 0;
  EXPECT_EQ(SornAdd(&t.xe, 0, &bad, &t.ra, &t.rb, &out, nullptr, nullptr, 0, 0), SORN_EINVAL);
  EXPECT_TRUE(t.untouched());
}

TEST(AddFailures, FourDimensionsAreNotSupported) {
  std::vector<uint8_t> dbuf(2 * 4 * 4, 0x33), abuf(2 * 4 * 4, 1), bbuf(2 * 4 * 4, 2);
  SornArray d = make_record4(dbuf.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  SornArray a = make_record4(abuf.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  SornArray b = make_record4(bbuf.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  SornVolume roi = make_roi(1, 1, 2, 2, 1, 0, 2);
  EXPECT_EQ(SornAdd(nullptr, 0, &d, &a, &b, &roi, &roi, &roi, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(SornAdd(nullptr, 0, &d, &a, &b, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  // A 3-dimensional second source of one plane passes the checks under it.
  SornArray b3 = make_record(bbuf.data(), 4, 4, 1, SORN_U8, 4);
  EXPECT_EQ(SornAdd(nullptr, 0, &d, &a, &b3, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  SornArray b1 = make_record4(bbuf.data(), 1, 4, 4, 1, SORN_U8, 16, 4);
  EXPECT_EQ(SornAdd(nullptr, 0, &d, &a, &b1, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  // The 4-dimensional refusal comes after the ROI: an empty one says so.
  SornVolume out = make_roi(9, 9, 2, 2, 1, 0, 2);
  EXPECT_EQ(SornAdd(nullptr, 0, &d, &a, &b, &out, nullptr, nullptr, 0, 0), SORN_ENOSPC);
  for (uint8_t v : dbuf) ASSERT_EQ(v, 0x33);
}

TEST(AddLikeSources, InPlaceOnU8WritesZeros) {
  // The add kernels hand two like sources to the multiply-by-constant
  // kernel of their triple, whose u8 factors are all 0.
  Image d(3, 4, 1, SORN_U8, 0, 7);
  fill_ramp(d, 1);
  SornArray rd = d.record();
  EXPECT_EQ(SornAdd(nullptr, 0, &rd, &rd, &rd, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(d.at<uint8_t>(y, x), 0) << y << "," << x;
  fill_ramp(d, 1);
  EXPECT_EQ(SornAdd(nullptr, 0, &rd, nullptr, &rd, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.at<uint8_t>(2, 3), 0);
  EXPECT_TRUE(d.guards_intact());
}

TEST(AddLikeSources, F32SourceGivenTwiceDoublesEveryOtherElement) {
  // The f32 factors of the cycle are 0, 2, 0, 2; three channels fold into
  // one row of 6 elements, so the cycle restarts on every row.
  Image a(2, 2, 3, SORN_F32), d(2, 2, 3, SORN_F32, 4, 0x11);
  fill_ramp(a, 1);
  SornArray rd = d.record(), ra = a.record();
  EXPECT_EQ(SornAdd(nullptr, 0, &rd, &ra, &ra, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 6; ++x) {
      const float v = (float)a.get(y, x / 3, x % 3);
      EXPECT_EQ(d.get(y, x / 3, x % 3), x % 2 ? 2.0f * v : 0.0f) << y << "," << x;
    }
  EXPECT_TRUE(d.guards_intact());
}

// --- ROI negotiation with three operands ------------------------------------

// The extent every operand agrees on, worked out by hand from the rules: the
// destination's ROI cut to its site, then bounded by what the second and the
// first source have from their starts on.
struct Extent {
  int32_t od[2], oa[2], ob[2];
  int32_t rows, cols;
};

Extent negotiate_by_hand(const Image &d, const Image &a, const Image &b, const SornVolume *dr,
                         const SornVolume *ar, const SornVolume *br) {
  Extent e{};
  int32_t size[2] = {d.rows(), d.cols()};
  for (int i = 0; i < 2; ++i) {
    e.od[i] = dr ? std::max(0, dr->origin[1 + i]) : 0;
    if (dr) size[i] = std::min(dr->origin[1 + i] + dr->size[1 + i], size[i]) - e.od[i];
    e.ob[i] = br ? br->origin[1 + i] : 0;
    e.oa[i] = ar ? ar->origin[1 + i] : 0;
  }
  e.rows = std::min({size[0], b.rows() - e.ob[0], a.rows() - e.oa[0]});
  e.cols = std::min({size[1], b.cols() - e.ob[1], a.cols() - e.oa[1]});
  return e;
}

// Checks dst against a + b over the extent and its old bytes elsewhere.
void check_result(const add_ref::Triple &t, const Image &d, const Image &before, const Image &a,
                  const Image &b, const Extent &e, int32_t sf) {
  for (int32_t y = 0; y < d.rows(); ++y)
    for (int32_t x = 0; x < d.cols(); ++x)
      for (int32_t c = 0; c < d.channels(); ++c) {
        const int32_t ry = y - e.od[0], rx = x - e.od[1];
        double expect;
        if (ry >= 0 && ry < e.rows && rx >= 0 && rx < e.cols)
          expect = add_ref::expected(t.dst, t.a, t.b, a.get(e.oa[0] + ry, e.oa[1] + rx, c),
                                     b.get(e.ob[0] + ry, e.ob[1] + rx, c), sf);
        else
          expect = before.get(y, x, c);
        ASSERT_TRUE(add_ref::same(t.dst, expect, d.get(y, x, c)))
            << t.name << " sf " << sf << " at " << y << "," << x << "," << c;
      }
  // Bytes of the row padding stay as they were.
  const size_t row_bytes = (size_t)d.cols() * d.channels() * d.esize();
  for (int32_t y = 0; y < d.rows(); ++y)
    ASSERT_EQ(0, std::memcmp(d.base() + (size_t)y * d.rowstride() + row_bytes,
                             before.base() + (size_t)y * before.rowstride() + row_bytes,
                             d.rowstride() - row_bytes));
  ASSERT_TRUE(d.guards_intact());
}

TEST(AddRoi, DestinationDecidesAndSourcesOnlyOfferAStart) {
  const add_ref::Triple t{"u8u8u8", SORN_U8, SORN_U8, SORN_U8, nullptr};
  Image d(7, 9, 1, SORN_U8, 3, 0xee), a(6, 8, 1, SORN_U8, 1), b(8, 7, 1, SORN_U8, 2);
  fill_ramp(a, 0);
  fill_ramp(b, 100);
  const Image before = d;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornVolume dr = make_roi(1, 2, 3, 4, 1);
  SornVolume ar = make_roi(2, 1, 0, 0, 0);  // its size cells are not read
  SornVolume br = make_roi(3, 2, 0, 0, 0);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, &dr, &ar, &br, 0, 0), SORN_OK);
  Extent e = negotiate_by_hand(d, a, b, &dr, &ar, &br);
  EXPECT_EQ(e.rows, 3);
  EXPECT_EQ(e.cols, 4);
  check_result(t, d, before, a, b, e, 0);
}

TEST(AddRoi, SecondSourceBoundsTheExtent) {
  const add_ref::Triple t{"u8u8u8", SORN_U8, SORN_U8, SORN_U8, nullptr};
  Image d(7, 9, 1, SORN_U8, 0, 0xee), a(7, 9, 1, SORN_U8), b(7, 9, 1, SORN_U8);
  fill_ramp(a, 0);
  fill_ramp(b, 50);
  const Image before = d;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornVolume br = make_roi(5, 6, 1, 1, 1);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, &br, 0, 0), SORN_OK);
  Extent e = negotiate_by_hand(d, a, b, nullptr, nullptr, &br);
  EXPECT_EQ(e.rows, 2);
  EXPECT_EQ(e.cols, 3);
  check_result(t, d, before, a, b, e, 0);
}

TEST(AddRoi, FirstSourceBoundsTheExtentOfAll) {
  const add_ref::Triple t{"s16u8u8", SORN_S16, SORN_U8, SORN_U8, nullptr};
  Image d(7, 9, 2, SORN_S16, 4, 0xee), a(4, 5, 2, SORN_U8, 1), b(7, 9, 2, SORN_U8);
  fill_ramp(a, 0);
  fill_ramp(b, 50);
  const Image before = d;
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  SornVolume ar = make_roi(1, 2, 99, 99, 2);
  SornVolume dr = make_roi(2, 1, 99, 99, 2);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, &dr, &ar, nullptr, 0, 0), SORN_OK);
  Extent e = negotiate_by_hand(d, a, b, &dr, &ar, nullptr);
  EXPECT_EQ(e.rows, 3);
  EXPECT_EQ(e.cols, 3);
  check_result(t, d, before, a, b, e, 0);
}

TEST(AddRoi, NullFirstSourceMeansTheDestinationInPlace) {
  const add_ref::Triple t{"u8u8u8", SORN_U8, SORN_U8, SORN_U8, nullptr};
  Image d(5, 6, 1, SORN_U8, 2), b(5, 6, 1, SORN_U8);
  fill_ramp(d, 7);
  fill_ramp(b, 30);
  const Image before = d;
  SornArray rd = d.record(), rb = b.record();
  SornVolume dr = make_roi(1, 1, 3, 4, 1);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, nullptr, &rb, &dr, nullptr, nullptr, 0, 0), SORN_OK);
  // With aroi null too, the destination's ROI also places the first source.
  Extent e = negotiate_by_hand(d, before, b, &dr, &dr, nullptr);
  check_result(t, d, before, before, b, e, 0);
}

TEST(AddRoi, NullFirstSourceWithItsOwnRoiStartsThere) {
  const add_ref::Triple t{"u8u8u8", SORN_U8, SORN_U8, SORN_U8, nullptr};
  Image d(5, 6, 1, SORN_U8, 2), b(5, 6, 1, SORN_U8);
  fill_ramp(d, 7);
  fill_ramp(b, 30);
  const Image before = d;
  SornArray rd = d.record(), rb = b.record();
  SornVolume dr = make_roi(0, 0, 2, 2, 1);
  SornVolume ar = make_roi(3, 4, 0, 0, 0);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, nullptr, &rb, &dr, &ar, nullptr, 0, 0), SORN_OK);
  Extent e = negotiate_by_hand(d, before, b, &dr, &ar, nullptr);
  EXPECT_EQ(e.rows, 2);
  EXPECT_EQ(e.cols, 2);
  check_result(t, d, before, before, b, e, 0);
}

TEST(AddRoi, SiteOffsetsAreTurnedIntoDataCoordinates) {
  // The destination record describes a 3 x 4 window at (2, 3) of a larger
  // image through its offset; only that window may change.
  Image big(8, 10, 1, SORN_S16, 4, 0), a(3, 4, 1, SORN_S16), b(3, 4, 1, SORN_S16);
  fill_ramp(a, 1);
  fill_ramp(b, 1000);
  const Image before = big;
  SornArray rd = big.record();
  rd.dims[1] = 3;
  rd.dims[2] = 4;
  rd.offset = 2 * big.rowstride() + 3 * 2;
  SornArray ra = a.record(), rb = b.record();
  SornVolume dr = make_roi(1, 1, 5, 5, 1);
  ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, &dr, nullptr, nullptr, 0, 0), SORN_OK);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 10; ++x) {
      const bool in = y >= 3 && y < 5 && x >= 4 && x < 7;
      const double e = in ? a.get(y - 3, x - 4) + b.get(y - 3, x - 4) : before.get(y, x);
      ASSERT_EQ(big.get(y, x), e) << y << "," << x;
    }
  EXPECT_TRUE(big.guards_intact());
}

// --- every kernel through the entry -----------------------------------------

class AddEntryTriple : public ::testing::TestWithParam<add_ref::Triple> {};

TEST_P(AddEntryTriple, MatchesReferenceWithRoisPaddingAndChannels) {
  const add_ref::Triple &t = GetParam();
  auto rng = sorn_test::seeded_rng(0xe0 + t.dst * 256 + t.a * 16 + t.b);
  auto pick = [&](int32_t lo, int32_t hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  for (int32_t sf : add_ref::scale_factors())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      Image d(pick(1, 7), pick(1, 19), ch, t.dst, 4 * pick(0, 2), 0xc3);
      Image a(pick(1, 7), pick(1, 19), ch, t.a, 4 * pick(0, 2));
      Image b(pick(1, 7), pick(1, 19), ch, t.b, 4 * pick(0, 2));
      fill_random(rng, a);
      fill_random(rng, b);
      const Image before = d;
      SornVolume dr = make_roi(pick(0, d.rows() - 1), pick(0, d.cols() - 1), pick(1, 8), pick(1, 20), ch);
      SornVolume ar = make_roi(pick(0, a.rows() - 1), pick(0, a.cols() - 1), 0, 0, ch);
      SornVolume br = make_roi(pick(0, b.rows() - 1), pick(0, b.cols() - 1), 0, 0, ch);
      SornArray rd = d.record(), ra = a.record(), rb = b.record();
      ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, &dr, &ar, &br, sf, 0xdeadbeef), SORN_OK);
      check_result(t, d, before, a, b, negotiate_by_hand(d, a, b, &dr, &ar, &br), sf);
      if (HasFatalFailure()) return;
    }
}

TEST_P(AddEntryTriple, InPlaceOverTheDestination) {
  const add_ref::Triple &t = GetParam();
  if (t.dst != t.a && t.dst != t.b) return;  // no source of the destination's type
  auto rng = sorn_test::seeded_rng(0xe1 + t.dst * 256 + t.a * 16 + t.b);
  const bool d_is_a = t.dst == t.a;
  for (int32_t sf : {0, 1, -1, 40}) {
    Image d(5, 11, 2, t.dst, 4), other(5, 11, 2, d_is_a ? t.b : t.a, 8);
    fill_random(rng, d);
    fill_random(rng, other);
    const Image before = d;
    SornArray rd = d.record(), ro = other.record();
    SornVolume dr = make_roi(1, 2, 3, 7, 2);
    SornStatus st = d_is_a ? SornAdd(nullptr, 0, &rd, nullptr, &ro, &dr, nullptr, &dr, sf, 0)
                           : SornAdd(nullptr, 0, &rd, &ro, &rd, &dr, &dr, &dr, sf, 0);
    ASSERT_EQ(st, SORN_OK);
    Extent e = negotiate_by_hand(d, d, d, &dr, &dr, &dr);
    if (d_is_a)
      check_result(t, d, before, before, other, e, sf);
    else
      check_result(t, d, before, other, before, e, sf);
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(AllTriples, AddEntryTriple, ::testing::ValuesIn(add_ref::add_triples()),
                         [](const ::testing::TestParamInfo<add_ref::Triple> &i) { return i.param.name; });

TEST(AddU8, EveryPairForEveryScaleFactorThroughTheEntry) {
  Image a(256, 256, 1, SORN_U8), b(256, 256, 1, SORN_U8), d(256, 256, 1, SORN_U8);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      a.at<uint8_t>(y, x) = (uint8_t)y;
      b.at<uint8_t>(y, x) = (uint8_t)x;
    }
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  for (int32_t sf : add_ref::scale_factors()) {
    ASSERT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, sf, 0), SORN_OK);
    for (int32_t y = 0; y < 256; ++y)
      for (int32_t x = 0; x < 256; ++x)
        ASSERT_EQ(d.at<uint8_t>(y, x), add_ref::expected(SORN_U8, SORN_U8, SORN_U8, y, x, sf))
            << y << " + " << x << " sf " << sf;
  }
  EXPECT_TRUE(d.guards_intact());
}

// --- the constant form ------------------------------------------------------

TEST(AddC, MultiplyDivideAndSigmoidSelectorsAnswerValues) {
  Trio t;
  const double c[4] = {2, 2, 2, 2};
  for (uint32_t tag : kMulDivTags)
    EXPECT_EQ(_T_SornArith2c(tag, &t.xe, 0, &t.rd, &t.ra, c, nullptr, nullptr, 0, 0), SORN_OK);
  // The last selector was rdvr: 2 / a rounded, over a ramp from 1.
  EXPECT_EQ(t.d.at<uint8_t>(0, 0), 2);
  EXPECT_EQ(t.d.at<uint8_t>(0, 2), 1) << "2 / 3 rounds to 1";
  // The sigmoid of a u8 image has no function: not supported, untouched ...
  t.before = t.d.bytes_copy();
  EXPECT_EQ(_T_SornArith2c(SORN_FOURCC('s', 'i', 'g', 'm'), &t.xe, 0, &t.rd, &t.ra, c, nullptr,
                           nullptr, 0, 0),
            SORN_ENOTSUP);
  EXPECT_TRUE(t.untouched());
  // ... but a slope of 0 fills the destination with 1 before types matter.
  const double zero[4] = {0, 0, 0, 0};
  EXPECT_EQ(_T_SornArith2c(SORN_FOURCC('s', 'i', 'g', 'm'), &t.xe, 0, &t.rd, &t.ra, zero, nullptr,
                           nullptr, 0, 0),
            SORN_OK);
  EXPECT_EQ(t.d.at<uint8_t>(5, 7), 1);
}

TEST(AddC, FailuresInTheirOrder) {
  Trio t;
  const double c[4] = {1, 2, 3, 4};
  EXPECT_EQ(_T_SornArith2c(SORN_FOURCC('n', 'o', 'n', 'e'), &t.xe, 0, &t.rd, &t.ra, c, nullptr,
                           nullptr, 0, 0),
            SORN_EINVAL);
  SornArray bad = t.rd;
  bad.dims[0] = 0;
  EXPECT_EQ(SornAddC(&t.xe, 0, &bad, &t.ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
  SornArray a2 = t.ra;
  a2.dims[3] = 3;
  EXPECT_EQ(SornAddC(&t.xe, 0, &t.rd, &a2, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
  EXPECT_EQ(SornAddC(&t.xe, 0, &t.rd, &t.ra, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
  SornVolume out = make_roi(0, 8, 1, 1, 1);
  EXPECT_EQ(SornAddC(&t.xe, 0, &t.rd, &t.ra, c, &out, nullptr, 0, 0), SORN_ENOSPC);
  EXPECT_EQ(SornAddC(&t.xe, 0, &t.rd, &t.ra, c, nullptr, &out, 0, 0), SORN_ENOSPC);
  EXPECT_TRUE(t.untouched());

  std::vector<uint8_t> dbuf(2 * 16, 0x33);
  SornArray d4 = make_record4(dbuf.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  EXPECT_EQ(SornAddC(nullptr, 0, &d4, nullptr, c, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  SornVolume out4 = make_roi(9, 9, 2, 2, 1, 0, 2);
  EXPECT_EQ(SornAddC(nullptr, 0, &d4, nullptr, c, &out4, nullptr, 0, 0), SORN_ENOSPC);
  for (uint8_t v : dbuf) ASSERT_EQ(v, 0x33);
}

}  // namespace

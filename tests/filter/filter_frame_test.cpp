// SornFilter's frame: where the pixels outside the region come from (the
// parent's real pixels, the source's own site, the region alone), in place,
// regions of different sizes, four dimensions plane by plane, the kinds and
// their names, the checks in their order with nothing written, scratch
// given back on every way out.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "alloc_failure.h"
#include "filter_reference.h"
#include "testkit.h"

using filter_ref::Grid;
using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

// The scratch stack of every call, checked to be back at its mark.
using Env = sorn_test::ScratchEnv;

SornSeShape window(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

void ramp(Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.at<uint8_t>(y, x, c) = (uint8_t)((y * 37 + x * 11 + c * 5) & 0xff);
}

Grid<uint8_t> grid_of(const Image &im) {
  Grid<uint8_t> g(im.rows(), im.cols());
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) g.at(y, x) = im.at<uint8_t>(y, x);
  return g;
}

// The 3x3 maximum of a region at (oy, ox) of `rows` x `cols` in the plane,
// with the readable box (region coordinates) given.
Grid<uint8_t> max3(const Grid<uint8_t> &plane, int32_t oy, int32_t ox, int32_t rows, int32_t cols,
                   filter_ref::Box readable) {
  const filter_ref::Box av = filter_ref::available({-1, -1, rows + 2, cols + 2}, readable);
  const filter_ref::Source<uint8_t> s{&plane, oy, ox, av.y, av.x, av.h, av.w};
  return filter_ref::extreme(s, rows, cols, 3, 3, 1, 1, true);
}

void expect_grid(const Grid<uint8_t> &want, const Image &got, int32_t oy = 0, int32_t ox = 0) {
  for (int32_t y = 0; y < want.rows; ++y)
    for (int32_t x = 0; x < want.cols; ++x)
      ASSERT_EQ(want.at(y, x), got.at<uint8_t>(oy + y, ox + x)) << y << "," << x;
}

// ---------------------------------------------------------------- where the margin comes from

TEST(FilterFrame, AWholeImageReflectsAndASubArrayReadsItsParent) {
  Env env;
  Image parent(10, 12, 1, SORN_U8);
  ramp(parent);
  const Grid<uint8_t> plane = grid_of(parent);
  const SornSeShape se = window(3, 3, 1, 1);
  // The whole image: reflected about its edge pixels.
  {
    Image out(10, 12, 1, SORN_U8);
    SornArray d = out.record(), s = parent.record();
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MAX, &se));
    expect_grid(max3(plane, 0, 0, 10, 12, {0, 0, 10, 12}), out);
  }
  // A 4x5 sub-array at (3, 4): its edges read the parent's pixels, with the
  // source's own site only its own, with no margin the region's.
  SornArray sub = parent.record();
  sub.dims[1] = 4;
  sub.dims[2] = 5;
  sub.offset = 3 * sub.strides[1] + 4 * sub.strides[2];
  struct Case {
    SornFlags flags;
    filter_ref::Box readable;
  } cases[] = {
      {0, {-3, -4, 10, 12}}, {SORN_F_SITEMARGIN, {0, 0, 4, 5}}, {SORN_F_NOMARGIN, {0, 0, 4, 5}}};
  Grid<uint8_t> parent_read;
  for (const Case &c : cases) {
    Image out(4, 5, 1, SORN_U8);
    SornArray d = out.record();
    ASSERT_EQ(SORN_OK,
              SornFilter(env.xe(), c.flags, &d, &sub, nullptr, nullptr, SORN_FILTER_MAX, &se));
    const Grid<uint8_t> want = max3(plane, 3, 4, 4, 5, c.readable);
    expect_grid(want, out);
    if (c.flags == 0) parent_read = want;
  }
  // The two readings differ along the sub-array's edge.
  EXPECT_NE(parent_read.v, max3(plane, 3, 4, 4, 5, {0, 0, 4, 5}).v);
  EXPECT_TRUE(env.at_mark());
}

// A whole image offers exactly its region and no margin: the frame first
// asks the kernel whether it can work so, and on its refusal makes the
// bordered copy. The refusal is the frame's own business: the caller gets
// the filtered image, for every kind and every type.
TEST(FilterFrame, TheMarginlessQuestionNeverReachesTheCaller) {
  Env env;
  for (uint32_t type : {SORN_U8, SORN_S16, SORN_S32, SORN_F32})
    for (int32_t kind : {SORN_FILTER_BOX, SORN_FILTER_MIN, SORN_FILTER_MAX})
      for (int32_t n : {1, 2, 7}) {
        Image src(n, n + 1, 1, type), dst(n, n + 1, 1, type);
        SornArray d = dst.record(), s = src.record();
        const SornSeShape se = window(3, 3, 1, 1);
        EXPECT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, kind, &se))
            << type << " " << kind << " " << n;
        EXPECT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, nullptr, nullptr, nullptr, kind, &se))
            << type << " " << kind << " " << n;
      }
  Image im(4, 5, 1, SORN_U8), out(4, 5, 1, SORN_U8);
  ramp(im);
  SornArray d = out.record(), s = im.record();
  const SornSeShape se = window(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MAX, &se));
  expect_grid(max3(grid_of(im), 0, 0, 4, 5, {0, 0, 4, 5}), out);
  EXPECT_TRUE(env.at_mark());
}

TEST(FilterFrame, WithoutAMarginTheRegionReflectsInTheMiddleOfTheArray) {
  Env env;
  Image im(9, 9, 1, SORN_U8), out(3, 3, 1, SORN_U8);
  ramp(im);
  SornArray d = out.record(), s = im.record();
  const SornVolume mid = make_roi(3, 3, 3, 3, 1);
  const SornSeShape se = window(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK,
            SornFilter(env.xe(), SORN_F_NOMARGIN, &d, &s, nullptr, &mid, SORN_FILTER_MAX, &se));
  expect_grid(max3(grid_of(im), 3, 3, 3, 3, {0, 0, 3, 3}), out);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, &mid, SORN_FILTER_MAX, &se));
  expect_grid(max3(grid_of(im), 3, 3, 3, 3, {-3, -3, 9, 9}), out);
}

TEST(FilterFrame, InPlaceGivesWhatASeparateDestinationGets) {
  Env env;
  for (int32_t kind : {SORN_FILTER_BOX, SORN_FILTER_MIN, SORN_FILTER_MAX, SORN_FILTER_NONE}) {
    Image a(11, 13, 1, SORN_U8), b(11, 13, 1, SORN_U8);
    ramp(a);
    SornArray ra = a.record(), rb = b.record();
    const SornVolume roi = make_roi(2, 3, 6, 7, 1);
    const SornSeShape se = window(4, 3, 3, 0);
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &rb, &ra, &roi, &roi, kind, &se));
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &ra, nullptr, &roi, nullptr, kind, &se));
    for (int32_t y = 0; y < 6; ++y)
      for (int32_t x = 0; x < 7; ++x)
        ASSERT_EQ(b.at<uint8_t>(2 + y, 3 + x), a.at<uint8_t>(2 + y, 3 + x)) << kind;
    EXPECT_TRUE(env.at_mark());
  }
}

TEST(FilterFrame, TheDestinationsRegionRulesTheSize) {
  Env env;
  Image src(10, 10, 1, SORN_U8), out(10, 10, 1, SORN_U8, 0, 0xEE);
  ramp(src);
  SornArray d = out.record(), s = src.record();
  const SornVolume small = make_roi(1, 2, 3, 4, 1), large = make_roi(0, 0, 10, 10, 1);
  const SornSeShape se = window(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, &small, &large, SORN_FILTER_MAX, &se));
  for (int32_t y = 0; y < 10; ++y)
    for (int32_t x = 0; x < 10; ++x) {
      const bool in = y >= 1 && y < 4 && x >= 2 && x < 6;
      if (!in) {
        EXPECT_EQ(0xEE, out.at<uint8_t>(y, x));
      }
    }
  // The source's region starts at its own origin (0, 0) and has the size of
  // the destination's.
  expect_grid(max3(grid_of(src), 0, 0, 3, 4, {0, 0, 10, 10}), out, 1, 2);
}

TEST(FilterFrame, KindsAreReadAsOneByte) {
  // 256 is 0, a copy of the region; 256 + 5 is the box.
  Env env;
  Image src(6, 7, 1, SORN_S16), a(6, 7, 1, SORN_S16), b(6, 7, 1, SORN_S16);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 7; ++x) src.at<int16_t>(y, x) = (int16_t)(y * 1000 - x * 77);
  SornArray s = src.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &ra, &s, nullptr, nullptr, 256, nullptr));
  EXPECT_EQ(src.bytes_copy(), a.bytes_copy());
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &ra, &s, nullptr, nullptr, 261, nullptr));
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &rb, &s, nullptr, nullptr, SORN_FILTER_BOX, nullptr));
  EXPECT_EQ(b.bytes_copy(), a.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(FilterFrame, ANullOneByOneOrZeroWindowIsFiveByFiveAroundTheCentre) {
  Env env;
  Image src(9, 9, 1, SORN_U8), a(9, 9, 1, SORN_U8), b(9, 9, 1, SORN_U8);
  ramp(src);
  SornArray s = src.record(), ra = a.record(), rb = b.record();
  const SornSeShape five = window(5, 5, 2, 2), one = window(1, 1, 0, 0), zero = window(0, 0, 0, 0);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &rb, &s, nullptr, nullptr, SORN_FILTER_MIN, &five));
  for (const SornSeShape *se : {(const SornSeShape *)nullptr, &one, &zero}) {
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &ra, &s, nullptr, nullptr, SORN_FILTER_MIN, se));
    EXPECT_EQ(b.bytes_copy(), a.bytes_copy());
  }
}

// ---------------------------------------------------------------- four dimensions

TEST(Filter4D, OneSourcePlaneIsFilteredIntoEveryPlane) {
  Env env;
  const int32_t P = 3, H = 5, W = 6;
  Image src(H, W, 1, SORN_U8);
  ramp(src);
  std::vector<uint8_t> buf(P * H * W, 0xEE);
  SornArray d = make_record4(buf.data(), P, H, W, 1, SORN_U8, H * W, W);
  SornArray s = src.record();
  const SornSeShape se = window(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MAX, &se));
  const Grid<uint8_t> want = max3(grid_of(src), 0, 0, H, W, {0, 0, H, W});
  for (int32_t p = 0; p < P; ++p)
    for (int32_t y = 0; y < H; ++y)
      for (int32_t x = 0; x < W; ++x)
        ASSERT_EQ(want.at(y, x), buf[(size_t)p * H * W + y * W + x]) << p << " " << y << "," << x;
}

TEST(Filter4D, DensePlanesAreFilteredEachOnItsOwn) {
  // Planes one after the other in memory could be merged into one tall
  // image; a window would then reach from one plane into the next. Each
  // plane is filtered alone, reflected at its own edges.
  Env env;
  const int32_t P = 3, H = 4, W = 5;
  std::vector<uint8_t> sbuf(P * H * W), dbuf(P * H * W);
  for (size_t i = 0; i < sbuf.size(); ++i) sbuf[i] = (uint8_t)((i * 53) & 0xff);
  SornArray s = make_record4(sbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  SornArray d = make_record4(dbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  const SornSeShape se = window(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MAX, &se));
  for (int32_t p = 0; p < P; ++p) {
    Grid<uint8_t> plane(H, W);
    for (int32_t y = 0; y < H; ++y)
      for (int32_t x = 0; x < W; ++x) plane.at(y, x) = sbuf[(size_t)p * H * W + y * W + x];
    const Grid<uint8_t> want = max3(plane, 0, 0, H, W, {0, 0, H, W});
    for (int32_t y = 0; y < H; ++y)
      for (int32_t x = 0; x < W; ++x)
        ASSERT_EQ(want.at(y, x), dbuf[(size_t)p * H * W + y * W + x]) << p << " " << y << "," << x;
  }
  // In place too, plane by plane from a private copy.
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &s, nullptr, nullptr, nullptr, SORN_FILTER_MAX, &se));
  EXPECT_EQ(dbuf, sbuf);
  EXPECT_TRUE(env.at_mark());
}

TEST(Filter4D, ARegionOfPlanesIsWorkedWhereItLies) {
  Env env;
  const int32_t P = 4, H = 6, W = 6;
  std::vector<int16_t> sbuf(P * H * W), dbuf(P * H * W, -1);
  for (size_t i = 0; i < sbuf.size(); ++i) sbuf[i] = (int16_t)(i * 7 % 501 - 250);
  SornArray s = make_record4(sbuf.data(), P, H, W, 1, SORN_S16, H * W * 2, W * 2);
  SornArray d = make_record4(dbuf.data(), P, H, W, 1, SORN_S16, H * W * 2, W * 2);
  const SornVolume roi = {{1, 1, 2, 0}, {2, 3, 3, 1}};
  const SornSeShape se = window(2, 2, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, &roi, &roi, SORN_FILTER_MIN, &se));
  for (int32_t p = 0; p < P; ++p)
    for (int32_t y = 0; y < H; ++y)
      for (int32_t x = 0; x < W; ++x) {
        const bool in = p >= 1 && p < 3 && y >= 1 && y < 4 && x >= 2 && x < 5;
        const int16_t got = dbuf[(size_t)p * H * W + y * W + x];
        if (!in) {
          ASSERT_EQ(-1, got);
          continue;
        }
        int16_t m = 32767;
        for (int32_t i = -1; i <= 0; ++i)
          for (int32_t j = -1; j <= 0; ++j)
            m = std::min(m, sbuf[(size_t)p * H * W + (y + i) * W + (x + j)]);
        ASSERT_EQ(m, got) << p << " " << y << "," << x;
      }
}

// ---------------------------------------------------------------- kinds without a filter

TEST(FilterKinds, GradientAndMedianAreNotImplemented) {
  Env env;
  Image src(5, 5, 1, SORN_U8, 0, 3), dst(5, 5, 1, SORN_U8, 0, 0x77);
  SornArray d = dst.record(), s = src.record();
  EXPECT_EQ(SORN_ENOTIMP,
            SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_GRADIENT, nullptr));
  EXPECT_EQ(SORN_ENOTIMP,
            SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MEDIAN, nullptr));
  for (int32_t kind : {1, 2, 7, 100, 104, 110, 255}) {
    EXPECT_EQ(SORN_EINVAL, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, kind, nullptr))
        << kind;
  }
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x77), dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(FilterKinds, NamesOfTheKinds) {
  EXPECT_STREQ("box-filter", sorn_filter_str(SORN_FILTER_BOX));
  EXPECT_STREQ("nul-filter", sorn_filter_str(256));
  EXPECT_STREQ("min-filter", sorn_filter_str(SORN_FILTER_MIN));
  EXPECT_STREQ("max-filter", sorn_filter_str(SORN_FILTER_MAX));
  EXPECT_STREQ("unknown-filter", sorn_filter_str(1));
}

// ---------------------------------------------------------------- failures

TEST(FilterFailures, RecordsAreCheckedBeforeTheRegionAndTypesAfterIt) {
  Env env;
  Image src(5, 6, 1, SORN_U8), dst(5, 6, 1, SORN_U8, 0, 0x44);
  SornArray d = dst.record(), s = src.record();
  auto call = [&](const SornArray *dd, const SornArray *ss, const SornVolume *rd = nullptr,
                  const SornVolume *rs = nullptr) {
    return SornFilter(env.xe(), 0, dd, ss, rd, rs, SORN_FILTER_BOX, nullptr);
  };
  SornArray bad = d;
  bad.ndims = 2;
  EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
  bad = d;
  bad.dims[0] = 0;
  EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
  bad = d;
  bad.dims[3] = 5;
  EXPECT_EQ(SORN_EINVAL, call(&bad, &s));
  EXPECT_EQ(SORN_EINVAL, call(nullptr, &s));
  bad = s;
  bad.ndims = 4;
  EXPECT_EQ(SORN_EINVAL, call(&d, &bad));
  bad = s;
  bad.dims[3] = 3;
  EXPECT_EQ(SORN_EINVAL, call(&d, &bad));
  std::vector<uint8_t> buf(2 * 5 * 6);
  SornArray d4 = make_record4(buf.data(), 3, 5, 6, 1, SORN_U8, 30, 6);
  SornArray s4 = make_record4(buf.data(), 2, 5, 6, 1, SORN_U8, 30, 6);
  EXPECT_EQ(SORN_EINVAL, call(&d4, &s4));
  // An empty region, then the element types.
  const SornVolume outside = make_roi(9, 0, 1, 1, 1);
  EXPECT_EQ(SORN_ENOSPC, call(&d, &s, &outside));
  bad = s;
  bad.elemtype = SORN_S16;
  EXPECT_EQ(SORN_ENOSPC, call(&d, &bad, &outside));
  EXPECT_EQ(SORN_EINVAL, call(&d, &bad));
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x44), dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(FilterFailures, TypesAndChannelsOutsideTheTables) {
  Env env;
  // Types the tables don't hold are invalid, not unsupported.
  for (uint32_t t : {SORN_U16, SORN_S8, SORN_U32, SORN_F64}) {
    Image src(4, 4, 1, t), dst(4, 4, 1, t);
    SornArray d = dst.record(), s = src.record();
    EXPECT_EQ(SORN_EINVAL,
              SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MAX, nullptr));
  }
  // Two channels: invalid; three and four: not supported.
  const int32_t expect[5] = {0, SORN_OK, SORN_EINVAL, SORN_ENOTSUP, SORN_ENOTSUP};
  for (int32_t ch = 1; ch <= 4; ++ch) {
    Image src(4, 4, ch, SORN_F32), dst(4, 4, ch, SORN_F32);
    SornArray d = dst.record(), s = src.record();
    EXPECT_EQ(expect[ch],
              SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_BOX, nullptr))
        << ch;
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(FilterFailures, ThreeChannelsAreRefusedBeforeAnyScratchIsTaken) {
  Env env;
  Image src(8, 8, 3, SORN_U8), dst(8, 8, 3, SORN_U8, 0, 0x21);
  SornArray d = dst.record(), s = src.record();
  sorn_test::AllocFailure fail(0, true);
  EXPECT_EQ(SORN_ENOTSUP,
            SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_BOX, nullptr));
  EXPECT_EQ(0, fail.requests());
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x21), dst.bytes_copy());
}

TEST(FilterFailures, ChannelWordElevenReachesTheFourChannelRowBelowTheEntries) {
  // Entries give the channel count in the channel cell; a caller of layer 3
  // may give the word itself, and 11 is four channels.
  Env env;
  uint8_t buf[256] = {};
  const int32_t sizes[3] = {2, 2, 11}, st[3] = {32, 4, 1};
  EXPECT_EQ(SORN_ENOTSUP,
            sorna__filter_box(env.xe(), 0, 3, sizes, SORN_U8, buf, st, buf + 128, st, nullptr));
  const int32_t one[3] = {2, 2, 0x11}, st1[3] = {8, 1, 1};
  const SornSeShape se = window(2, 1, 0, 0);
  EXPECT_EQ(SORN_OK,
            sorna__filter_box(env.xe(), 0, 3, one, SORN_U8, buf, st1, buf + 128, st1, &se));
  const int32_t eight[3] = {2, 2, 8};
  EXPECT_EQ(SORN_EINVAL,
            sorna__filter_box(env.xe(), 0, 3, eight, SORN_U8, buf, st1, buf + 128, st1, &se));
}

// A window may be as large as a cell holds; the box it reads around the
// region is then larger than any image, so no parent offers it and no
// scratch holds it. The call is out of memory before any kernel runs, for
// a sub-array with a parent as for a whole image, and writes nothing.
TEST(FilterFailures, AWindowWhoseBoxLeavesThe32BitRangeIsOutOfMemory) {
  Env env;
  Image parent(10, 12, 1, SORN_F32);
  for (int32_t y = 0; y < 10; ++y)
    for (int32_t x = 0; x < 12; ++x) parent.at<float>(y, x) = (float)(y + x);
  SornArray sub = parent.record();
  sub.dims[1] = 4;
  sub.dims[2] = 5;
  sub.offset = 3 * sub.strides[1] + 4 * sub.strides[2];
  const SornSeShape huge[] = {window(3, INT32_MAX, 1, 2), window(INT32_MAX, 2, INT32_MAX - 1, 0),
                              window(INT32_MAX, INT32_MAX, 0, 0), window(-6, INT32_MAX - 1, 2, 2)};
  for (const SornSeShape &se : huge)
    for (int32_t kind : {SORN_FILTER_BOX, SORN_FILTER_MAX, SORN_FILTER_MIN})
      for (SornFlags flags : {(SornFlags)0, (SornFlags)SORN_F_NOMARGIN}) {
        Image out(4, 5, 1, SORN_F32, 0, 0x5a);
        const std::vector<uint8_t> before = out.bytes_copy();
        SornArray d = out.record(), whole = parent.record();
        EXPECT_EQ(SORN_ENOMEM, SornFilter(env.xe(), flags, &d, &sub, nullptr, nullptr, kind, &se))
            << kind;
        EXPECT_EQ(SORN_ENOMEM,
                  SornFilter(env.xe(), flags, &whole, nullptr, nullptr, nullptr, kind, &se))
            << kind;
        EXPECT_EQ(before, out.bytes_copy()) << kind;
        EXPECT_TRUE(env.at_mark());
      }
}

TEST(FilterFailures, EveryFailedScratchRequestIsOutOfMemoryAndAllIsGivenBack) {
  // In place, so that the frame takes its bordered copy, and a general
  // window, so that the kernel takes its blocks too.
  for (int32_t kind : {SORN_FILTER_BOX, SORN_FILTER_MAX, SORN_FILTER_MIN}) {
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t n) {
      Env env;
      Image im(9, 10, 1, SORN_F32);
      for (int32_t y = 0; y < 9; ++y)
        for (int32_t x = 0; x < 10; ++x) im.at<float>(y, x) = (float)(y * x);
      SornArray a = im.record();
      const SornSeShape se = window(6, 5, 2, 2);
      SornStatus st;
      bool fired;
      {
        sorn_test::AllocFailure fail(n);
        st = SornFilter(env.xe(), 0, &a, nullptr, nullptr, nullptr, kind, &se);
        fired = fail.fired();
      }
      EXPECT_EQ(fired ? SORN_ENOMEM : SORN_OK, st);
      EXPECT_TRUE(env.at_mark());
      return fired;
    });
    EXPECT_GE(runs, 2) << kind;
  }
}

}  // namespace

TEST(FilterFrame, ARegionWithNoChannelLeftIsNoRegion) {
  // A channel cell that starts past the image's channels is cut to nothing:
  // the region is empty, and nothing is written, for a copy too.
  sorn_test::ScratchEnv env;
  Image src(6, 7, 1, SORN_F32, 0, 3), dst(6, 7, 1, SORN_F32, 0, 0x5a);
  SornArray d = dst.record(), s = src.record();
  const SornVolume past = make_roi(1, 1, 3, 3, 1, 0, 1);
  SornVolume roi = past;
  roi.origin[3] = 3;
  for (int32_t kind : {SORN_FILTER_NONE, SORN_FILTER_BOX, 256})
    EXPECT_EQ(SORN_ENOSPC, SornFilter(env.xe(), 0, &d, &s, &roi, nullptr, kind, nullptr)) << kind;
  EXPECT_EQ(SORN_ENOSPC, SornSepFilter(env.xe(), 0, &d, &s, &roi, nullptr, nullptr));
  EXPECT_EQ(SORN_ENOSPC, SornGaussianFilter(env.xe(), 0, &d, &s, &roi, nullptr, nullptr, nullptr));
  EXPECT_TRUE(env.at_mark());
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x5a), dst.bytes_copy());
  EXPECT_TRUE(dst.guards_intact());
}

// SornCopyMkb and SornCopyRMkb: every border kind against a plain reference
// that indexes the source with the kind's rule, on sizes from 1x1 up,
// borders wider than the image, regions inside larger sources whose real
// pixels take the border's place, padded rows and guard bytes; the fitting
// of a border into the room left; in place; 4-dimensional arrays; and the
// failures, with nothing written.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "copy_reference.h"
#include "fill_reference.h"
#include "testkit.h"

using copy_ref::Source;
using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

SornBrShape border(int32_t top, int32_t left, int32_t bottom, int32_t right,
                   const double *fill = nullptr) {
  SornBrShape b;
  std::memset(&b, 0, sizeof b);
  b.lo[1] = -top;
  b.lo[2] = -left;
  b.hi[1] = bottom;
  b.hi[2] = right;
  for (int k = 0; k < 4; ++k) b.fill[k] = fill ? fill[k] : 0.0;
  return b;
}

// One row of u8 values bordered on the left by `left` cells into a row of
// left + n cells: the row that comes out.
std::vector<int> left_margin(const std::vector<uint8_t> &row, int32_t left, int32_t kind) {
  const int32_t n = (int32_t)row.size();
  Image src(1, n, 1, SORN_U8), dst(1, left + n, 1, SORN_U8, 0, 0xEE);
  for (int32_t x = 0; x < n; ++x) src.at<uint8_t>(0, x) = row[x];
  SornArray d = dst.record(), s = src.record();
  const SornBrShape b = border(0, left, 0, 0);
  EXPECT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, kind, &b));
  std::vector<int> out;
  for (int32_t x = 0; x < left + n; ++x) out.push_back(dst.at<uint8_t>(0, x));
  EXPECT_TRUE(dst.guards_intact());
  return out;
}

// ---------------------------------------------------------------- the rules

TEST(CopyMkbRules, OnePixelRowRepeatsItsPixelUnderEveryKindButConst) {
  for (int32_t kind : {SORN_BORDER_REPLICATE, SORN_BORDER_WRAP, SORN_BORDER_REFLECT,
                       SORN_BORDER_REFLECT101, SORN_BORDER_UNKNOWN})
    EXPECT_EQ((std::vector<int>{9, 9, 9, 9}), left_margin({9}, 3, kind)) << kind;
  EXPECT_EQ((std::vector<int>{0, 0, 0, 9}), left_margin({9}, 3, SORN_BORDER_CONST));
}

TEST(CopyMkbRules, TwoPixelsFiveToTheLeft) {
  const uint8_t a = 10, b = 20;
  // reflect101: b a b a b, then a b.
  EXPECT_EQ((std::vector<int>{b, a, b, a, b, a, b}), left_margin({a, b}, 5, SORN_BORDER_REFLECT101));
  // reflect, period 4: a a b b a, then a b.
  EXPECT_EQ((std::vector<int>{a, a, b, b, a, a, b}), left_margin({a, b}, 5, SORN_BORDER_REFLECT));
}

TEST(CopyMkbRules, ThreePixelsTwoToTheLeft) {
  const uint8_t a = 1, b = 2, c = 3;
  EXPECT_EQ((std::vector<int>{a, a, a, b, c}), left_margin({a, b, c}, 2, SORN_BORDER_REPLICATE));
  EXPECT_EQ((std::vector<int>{b, c, a, b, c}), left_margin({a, b, c}, 2, SORN_BORDER_WRAP));
  EXPECT_EQ((std::vector<int>{b, a, a, b, c}), left_margin({a, b, c}, 2, SORN_BORDER_REFLECT));
  EXPECT_EQ((std::vector<int>{c, b, a, b, c}), left_margin({a, b, c}, 2, SORN_BORDER_REFLECT101));
}

TEST(CopyMkbRules, KindTwoAtTheEntryIsReflect101) {
  const std::vector<uint8_t> row = {5, 6, 7, 8};
  EXPECT_EQ(left_margin(row, 9, SORN_BORDER_REFLECT101), left_margin(row, 9, SORN_BORDER_UNKNOWN));
}

TEST(CopyMkbRules, OnlyTheLowFourBitsOfTheKindCount) {
  const std::vector<uint8_t> row = {5, 6, 7, 8};
  EXPECT_EQ(left_margin(row, 6, SORN_BORDER_WRAP), left_margin(row, 6, 0x10 | SORN_BORDER_WRAP));
  EXPECT_EQ(left_margin(row, 6, SORN_BORDER_REFLECT), left_margin(row, 6, 0x7f36));
}

TEST(CopyMkbRules, ABorderTooLargeForItsRoomIsSharedInProportion) {
  // Free room 3 columns, the border wants 4 before and 2 after:
  // lo = rint(-4 * 3 / 6) = -2, hi = 3 - 2 = 1.
  Image src(1, 4, 1, SORN_U8), dst(1, 7, 1, SORN_U8, 0, 0xEE);
  for (int32_t x = 0; x < 4; ++x) src.at<uint8_t>(0, x) = (uint8_t)(x + 1);
  SornArray d = dst.record(), s = src.record();
  const SornBrShape b = border(0, 4, 0, 2);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_REPLICATE, &b));
  const int expect[7] = {1, 1, 1, 2, 3, 4, 4};
  for (int32_t x = 0; x < 7; ++x) EXPECT_EQ(expect[x], dst.at<uint8_t>(0, x)) << x;
  // The record the caller gave is not changed.
  EXPECT_EQ(-4, b.lo[2]);
}

TEST(CopyMkbRules, ProportionalSharesRoundToNearestEven) {
  // Room 2, border 1 before and 3 after: rint(-1 * 2 / 4) = rint(-0.5) = 0,
  // so the region starts at the corner and both free columns go after it.
  Image src(1, 3, 1, SORN_U8), dst(1, 5, 1, SORN_U8, 0, 0xEE);
  for (int32_t x = 0; x < 3; ++x) src.at<uint8_t>(0, x) = (uint8_t)(7 + x);
  SornArray d = dst.record(), s = src.record();
  const SornBrShape b = border(0, 1, 0, 3);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_REPLICATE, &b));
  const int expect[5] = {7, 8, 9, 9, 9};
  for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(expect[x], dst.at<uint8_t>(0, x)) << x;
}

TEST(CopyMkbRules, ARegionLargerThanTheDestinationIsCut) {
  // No room at all: the region loses what the destination lacks, and no
  // border is written.
  Image src(3, 6, 1, SORN_U8), dst(2, 4, 1, SORN_U8, 0, 0xEE);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 6; ++x) src.at<uint8_t>(y, x) = (uint8_t)(10 * y + x);
  SornArray d = dst.record(), s = src.record();
  const SornBrShape b = border(1, 1, 1, 1);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_WRAP, &b));
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(10 * y + x, dst.at<uint8_t>(y, x));
}

TEST(CopyMkbRules, ConstBorderTakesOneValuePerChannelSaturated) {
  Image src(1, 1, 3, SORN_U8), dst(3, 3, 3, SORN_U8, 0, 0xEE);
  for (int32_t c = 0; c < 3; ++c) src.at<uint8_t>(0, 0, c) = (uint8_t)(40 + c);
  SornArray d = dst.record(), s = src.record();
  const double fill[4] = {300, 254.5, -7, 99};
  const SornBrShape b = border(1, 1, 1, 1, fill);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_CONST, &b));
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 3; ++x) {
      const bool centre = y == 1 && x == 1;
      EXPECT_EQ(centre ? 40 : 255, dst.at<uint8_t>(y, x, 0));
      EXPECT_EQ(centre ? 41 : 254, dst.at<uint8_t>(y, x, 1));
      EXPECT_EQ(centre ? 42 : 0, dst.at<uint8_t>(y, x, 2));
    }
}

// ---------------------------------------------------------------- against the reference

// One random bordered copy against the reference: type, channels, a source
// that is a sub-array of a padded parent, a region inside it, a border of
// any width, a destination of any size, and which real pixels may be used.
void random_case(std::mt19937_64 &rng, bool turned, int it) {
  static const uint32_t types[] = {SORN_U8, SORN_S8, SORN_U16, SORN_S16, SORN_S32, SORN_F32,
                                   SORN_F64};
  static const int32_t kinds[] = {SORN_BORDER_NONE, SORN_BORDER_UNKNOWN, SORN_BORDER_CONST,
                                  SORN_BORDER_REPLICATE, SORN_BORDER_WRAP, SORN_BORDER_REFLECT,
                                  SORN_BORDER_REFLECT101};
  static const SornFlags flagsets[] = {0, SORN_F_NOMARGIN, SORN_F_SITEMARGIN,
                                       SORN_F_NOMARGIN | SORN_F_SITEMARGIN};
  const uint32_t type = types[rng() % 7];
  const int32_t ch = 1 + (int32_t)(rng() % 4);
  const int32_t es = SORN_ELEMSIZE(type);
  const int32_t kind = kinds[rng() % 7];
  const SornFlags flags = flagsets[rng() % 4];
  const int32_t pr = 1 + (int32_t)(rng() % 10), pc = 1 + (int32_t)(rng() % 10);
  const int32_t sy = (int32_t)(rng() % pr), sx = (int32_t)(rng() % pc);
  const int32_t sh = 1 + (int32_t)(rng() % (pr - sy)), sw = 1 + (int32_t)(rng() % (pc - sx));
  Source src(pr, pc, ch, type, (int32_t)(rng() % 3) * es, sy, sx, sh, sw);
  for (size_t i = 0; i < src.parent.bytes(); ++i) src.parent.base()[i] = (uint8_t)rng();
  const std::vector<uint8_t> src_before = src.parent.bytes_copy();
  const int32_t dr = 1 + (int32_t)(rng() % 30), dc = 1 + (int32_t)(rng() % 30);
  Image dst(dr, dc, ch, type, (int32_t)(rng() % 3) * es);
  for (size_t i = 0; i < dst.bytes(); ++i) dst.base()[i] = (uint8_t)rng();
  const std::vector<uint8_t> before = dst.bytes_copy();
  // Borders up to about three times the image, some of them none at all.
  auto width = [&](int32_t n) { return rng() % 4 == 0 ? 0 : (int32_t)(rng() % (3 * n + 3)); };
  const int32_t bt = width(sh), bl = width(sw), bb = width(sh), bri = width(sw);
  double fill[4];
  for (double &f : fill) f = (double)(int32_t)(rng() % 600) - 200.0 + ((rng() & 1) ? 0.5 : 0.0);
  const SornBrShape b = border(bt, bl, bb, bri, fill);

  // The boxes: a random region of the source (or its whole site) and the
  // destination's box; which is which depends on the entry.
  const bool null_a = rng() % 5 == 0, null_b = rng() % 5 == 0;
  SornVolume ra = make_roi((int32_t)(rng() % (sh + 1)) - 1, (int32_t)(rng() % (sw + 1)) - 1,
                           1 + (int32_t)(rng() % (sh + 1)), 1 + (int32_t)(rng() % (sw + 1)), ch);
  SornVolume rb = make_roi((int32_t)(rng() % (dr + 2)) - 1, (int32_t)(rng() % (dc + 2)) - 1,
                           1 + (int32_t)(rng() % (dr + 4)), 1 + (int32_t)(rng() % (dc + 4)), ch);

  // The reference: the region in the sub-array and the block in dst.
  int32_t ry, rx, rh, rw, by, bx, bh, bw;
  auto cut = [](int32_t o, int32_t s, int32_t n, int32_t *oo, int32_t *ss) {
    const int32_t lo = std::max(o, 0), hi = std::min(o + s, n);
    *oo = lo;
    *ss = hi - lo;
  };
  // A box from a point on: a point before the start shrinks it instead.
  auto from = [](int32_t o, int32_t n, int32_t *oo, int32_t *ss) {
    *oo = std::max(o, 0);
    *ss = o >= 0 ? n - o : n + o;
  };
  SornStatus want = SORN_OK;
  int32_t top = 0, left = 0, bottom = 0, right = 0;
  if (!turned) {
    // Region: the source ROI; box: dst from rb's origin on.
    if (null_a) { ry = 0; rx = 0; rh = sh; rw = sw; }
    else { cut(ra.origin[1], ra.size[1], sh, &ry, &rh); cut(ra.origin[2], ra.size[2], sw, &rx, &rw); }
    if (null_b) { by = 0; bx = 0; bh = dr; bw = dc; }
    else { from(rb.origin[1], dr, &by, &bh); from(rb.origin[2], dc, &bx, &bw); }
    if (rh < 1 || rw < 1 || bh < 1 || bw < 1) want = SORN_ENOSPC;
  } else {
    // Box: the destination ROI; region: src from ra's origin on, at most the
    // box narrowed by the border.
    if (null_b) { by = 0; bx = 0; bh = dr; bw = dc; }
    else { cut(rb.origin[1], rb.size[1], dr, &by, &bh); cut(rb.origin[2], rb.size[2], dc, &bx, &bw); }
    if (null_a) { ry = 0; rx = 0; rh = sh; rw = sw; }
    else { from(ra.origin[1], sh, &ry, &rh); from(ra.origin[2], sw, &rx, &rw); }
    if (rh < 1 || rw < 1 || bh < 1 || bw < 1) want = SORN_ENOSPC;
    else if (kind != SORN_BORDER_NONE) {
      rh = std::min(rh, bh - bt - bb);
      rw = std::min(rw, bw - bl - bri);
      if (rh < 1 || rw < 1) want = SORN_ENOSPC;
    }
  }
  if (want == SORN_OK) {
    if (kind == SORN_BORDER_NONE) {
      rh = std::min(rh, bh);
      rw = std::min(rw, bw);
    } else {
      int32_t lo[2] = {-bt, -bl}, hi[2] = {bb, bri};
      int32_t *ext[2] = {&rh, &rw};
      const int32_t room[2] = {bh, bw};
      for (int k = 0; k < 2; ++k) {
        copy_ref::fit(room[k], *ext[k], &lo[k], &hi[k]);
        if (lo[k] > 0) {
          *ext[k] -= lo[k];
          lo[k] = 0;
        }
      }
      top = -lo[0];
      left = -lo[1];
      bottom = hi[0];
      right = hi[1];
    }
  }
  SornArray d = dst.record(), s = src.record();
  const SornVolume *pa = null_a ? nullptr : &ra, *pb = null_b ? nullptr : &rb;
  const SornStatus st = turned ? SornCopyRMkb(nullptr, flags, &d, &s, pb, pa, kind, &b)
                               : SornCopyMkb(nullptr, flags, &d, &s, pb, pa, kind, &b);
  const std::string what = std::string(turned ? "RMkb" : "Mkb") + " case " + std::to_string(it) +
                           " " + sorn_test::type_name(type) + "x" + std::to_string(ch) +
                           " kind " + std::to_string(kind) + " flags " + std::to_string(flags);
  ASSERT_EQ(want, st) << what;
  ASSERT_EQ(src_before, src.parent.bytes_copy()) << what;
  ASSERT_TRUE(dst.guards_intact()) << what;
  if (want != SORN_OK) {
    ASSERT_EQ(before, dst.bytes_copy()) << what;
    return;
  }
  // What the source really has around the region, as far as the border
  // reaches.
  copy_ref::Reach re = copy_ref::reach(flags, src, ry, rx, rh, rw);
  const int32_t up = std::min(top, re.up), down = std::min(bottom, re.down);
  const int32_t lf = std::min(left, re.left), rt = std::min(right, re.right);
  const int32_t R = up + rh + down, C = lf + rw + rt;
  const int32_t ps = ch * es;
  const std::vector<uint8_t> fillpx = fill_ref::pixel(type, fill, ch);
  for (int32_t y = 0; y < dr; ++y)
    for (int32_t x = 0; x < dc; ++x) {
      const uint8_t *got = dst.base() + (size_t)y * dst.rowstride() + (size_t)x * ps;
      const uint8_t *old = before.data() + (size_t)y * dst.rowstride() + (size_t)x * ps;
      const int32_t bi = y - by, bj = x - bx;
      const bool in_block = bi >= 0 && bi < top + rh + bottom && bj >= 0 && bj < left + rw + right;
      const uint8_t *want_px = old;
      if (in_block) {
        const int32_t i = bi - (top - up), j = bj - (left - lf);
        if (kind == SORN_BORDER_CONST && (i < 0 || i >= R || j < 0 || j >= C)) {
          want_px = fillpx.data();
        } else {
          const int32_t k = kind == SORN_BORDER_UNKNOWN ? SORN_BORDER_REFLECT101 : kind;
          const int32_t mi = kind == SORN_BORDER_NONE ? i : copy_ref::map(k, i, R);
          const int32_t mj = kind == SORN_BORDER_NONE ? j : copy_ref::map(k, j, C);
          want_px = src.pixel(sy + ry - up + mi, sx + rx - lf + mj);
        }
      }
      ASSERT_EQ(0, std::memcmp(want_px, got, (size_t)ps))
          << what << " at " << y << "," << x << " block " << by << "," << bx << " region " << rh
          << "x" << rw << " margins " << top << " " << left << " " << bottom << " " << right;
    }
  // Row padding is never written.
  const size_t row_bytes = (size_t)dc * ps;
  for (int32_t y = 0; y < dr; ++y)
    ASSERT_EQ(0, std::memcmp(dst.base() + (size_t)y * dst.rowstride() + row_bytes,
                             before.data() + (size_t)y * dst.rowstride() + row_bytes,
                             dst.rowstride() - row_bytes))
        << what;
}

TEST(CopyMkb, RandomCopiesMatchTheIndexRuleOfEveryKind) {
  auto rng = sorn_test::seeded_rng(0xC0B0);
  for (int it = 0; it < 6000; ++it) {
    random_case(rng, false, it);
    if (HasFatalFailure()) return;
  }
}

TEST(CopyRMkb, RandomCopiesMatchTheIndexRuleOfEveryKind) {
  auto rng = sorn_test::seeded_rng(0xC0B1);
  for (int it = 0; it < 6000; ++it) {
    random_case(rng, true, it);
    if (HasFatalFailure()) return;
  }
}

// ---------------------------------------------------------------- real pixels

TEST(CopyMkb, RealPixelsAroundASubArrayTakeTheBordersPlace) {
  // A 2x2 sub-array in the middle of a 6x6 parent, bordered by 2: its parent
  // has every pixel of the frame; its own site has none.
  Source src(6, 6, 1, SORN_U8, 3, 2, 2, 2, 2);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 6; ++x) src.parent.at<uint8_t>(y, x) = (uint8_t)(10 * y + x);
  const SornArray s = src.record();
  const SornBrShape b = border(2, 2, 2, 2);
  for (SornFlags flags : {0ull, SORN_F_SITEMARGIN, SORN_F_NOMARGIN}) {
    Image dst(6, 6, 1, SORN_U8);
    SornArray d = dst.record();
    ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, flags, &d, &s, nullptr, nullptr, SORN_BORDER_REFLECT101, &b));
    for (int32_t y = 0; y < 6; ++y)
      for (int32_t x = 0; x < 6; ++x) {
        const int32_t want = flags == 0 ? 10 * y + x
                                        : 10 * (2 + copy_ref::map(7, y - 2, 2)) +
                                              (2 + copy_ref::map(7, x - 2, 2));
        EXPECT_EQ(want, dst.at<uint8_t>(y, x)) << flags << " " << y << "," << x;
      }
  }
}

TEST(CopyMkb, RealPixelsAsFarAsTheyGoThenTheRuleAboutTheirEdge) {
  // Region: the last column of a 1x4 row; to the left the row has three real
  // pixels, and the border of five reflects about the edge of those.
  Image src(1, 4, 1, SORN_U8), dst(1, 6, 1, SORN_U8);
  for (int32_t x = 0; x < 4; ++x) src.at<uint8_t>(0, x) = (uint8_t)(1 + x);
  SornArray d = dst.record(), s = src.record();
  const SornVolume roi = make_roi(0, 3, 1, 1, 1);
  const SornBrShape b = border(0, 5, 0, 0);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, &roi, SORN_BORDER_REFLECT101, &b));
  const int expect[6] = {3, 2, 1, 2, 3, 4};
  for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(expect[x], dst.at<uint8_t>(0, x)) << x;
}

// Border copies move whole pixels: a channel cell in the destination's box
// or the source's region, even one that begins past the pixel's channels,
// gives what the same call without it gives, and nothing past the box.
TEST(CopyMkb, ChannelCellsOfBoxesAndRegionsTakeNoPart) {
  Image src(3, 4, 3, SORN_U8);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 4; ++x)
      for (int32_t c = 0; c < 3; ++c) src.at<uint8_t>(y, x, c) = (uint8_t)(40 * y + 8 * x + c);
  SornArray s = src.record();
  const SornBrShape b = border(1, 1, 1, 1);
  SornVolume site = make_roi(0, 0, 5, 6, 3), roi = make_roi(0, 0, 3, 4, 3);
  for (bool turned : {false, true}) {
    Image plain(5, 6, 3, SORN_U8, 0, 0x11), odd(5, 6, 3, SORN_U8, 0, 0x11);
    SornArray dp = plain.record(), dodd = odd.record();
    SornVolume oddsite = site, oddroi = roi;
    oddsite.origin[3] = 2;
    oddroi.origin[3] = 3;
    oddroi.size[3] = 1;
    if (!turned) {
      ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &dp, &s, &site, &roi, SORN_BORDER_REPLICATE, &b));
      ASSERT_EQ(SORN_OK,
                SornCopyMkb(nullptr, 0, &dodd, &s, &oddsite, &oddroi, SORN_BORDER_REPLICATE, &b));
    } else {
      // Turned, the destination's region is the box and the source's site
      // offers the start.
      ASSERT_EQ(SORN_OK, SornCopyRMkb(nullptr, 0, &dp, &s, &site, &roi, SORN_BORDER_REPLICATE, &b));
      oddsite.origin[3] = 3;
      oddroi.origin[3] = 2;
      ASSERT_EQ(SORN_OK,
                SornCopyRMkb(nullptr, 0, &dodd, &s, &oddsite, &oddroi, SORN_BORDER_REPLICATE, &b));
    }
    EXPECT_EQ(plain.bytes_copy(), odd.bytes_copy()) << turned;
    EXPECT_TRUE(odd.guards_intact()) << turned;
    EXPECT_EQ(src.at<uint8_t>(0, 0, 2), odd.at<uint8_t>(0, 0, 2)) << turned;
  }
}

// ---------------------------------------------------------------- border only, in place

TEST(CopyMkb, BorderOnlyTakesTheRegionThatStandsInTheDestination) {
  // The centre is not copied: the border is made from what the
  // destination's centre holds.
  Image src(3, 3, 1, SORN_S16), dst(5, 5, 1, SORN_S16);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 3; ++x) src.at<int16_t>(y, x) = (int16_t)(100 * y + x);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 5; ++x) dst.at<int16_t>(y, x) = (int16_t)(-100 * y - x);
  SornArray d = dst.record(), s = src.record();
  const SornBrShape b = border(1, 1, 1, 1);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, SORN_F_BORDER_ONLY, &d, &s, nullptr, nullptr,
                                 SORN_BORDER_REPLICATE, &b));
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 5; ++x) {
      const int32_t cy = std::clamp(y, 1, 3), cx = std::clamp(x, 1, 3);
      EXPECT_EQ(-100 * cy - cx, dst.at<int16_t>(y, x)) << y << "," << x;
    }
}

TEST(CopyMkb, BorderOnlyOfARegionInPlaceAtItsOwnCorner) {
  // The layout a chained filter uses: the region already sits in its block
  // at -lo from the corner, and only the frame around it is made.
  Image im(6, 7, 1, SORN_U8, 0, 0);
  for (int32_t y = 2; y < 4; ++y)
    for (int32_t x = 1; x < 4; ++x) im.at<uint8_t>(y, x) = (uint8_t)(10 * y + x);
  SornArray a = im.record();
  const SornVolume region = make_roi(2, 1, 2, 3, 1);
  const SornVolume corner = make_roi(0, 0, 1, 1, 1);
  const SornBrShape b = border(2, 1, 2, 3);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, SORN_F_BORDER_ONLY | SORN_F_NOMARGIN, &a, nullptr,
                                 &corner, &region, SORN_BORDER_REFLECT, &b));
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 7; ++x) {
      const int32_t sy = 2 + copy_ref::map(SORN_BORDER_REFLECT, y - 2, 2);
      const int32_t sx = 1 + copy_ref::map(SORN_BORDER_REFLECT, x - 1, 3);
      EXPECT_EQ(10 * sy + sx, im.at<uint8_t>(y, x)) << y << "," << x;
    }
}

TEST(CopyMkb, InPlaceWithoutASiteMovesTheRegionByTheBorder) {
  // A null src works in dst, and a null dstSite is the region's own origin:
  // the border's corner goes there, so the region moves by -lo. The move
  // reads every pixel before it is overwritten.
  for (int32_t kind : {SORN_BORDER_CONST, SORN_BORDER_REFLECT101, SORN_BORDER_WRAP}) {
    Image im(9, 9, 2, SORN_U8), ref(9, 9, 2, SORN_U8);
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 9; ++x)
        for (int32_t c = 0; c < 2; ++c)
          im.at<uint8_t>(y, x, c) = ref.at<uint8_t>(y, x, c) = (uint8_t)(20 * y + 2 * x + c);
    // The same copy out of place, from a copy of the image.
    Image copy(9, 9, 2, SORN_U8);
    std::memcpy(copy.base(), im.base(), im.bytes());
    const SornVolume region = make_roi(1, 2, 4, 3, 2);
    const SornBrShape b = border(2, 3, 1, 2);
    for (SornFlags flags : {0ull, SORN_F_NOMARGIN}) {
      SornArray a = im.record(), r = ref.record(), cs = copy.record();
      ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, flags, &a, nullptr, nullptr, &region, kind, &b));
      ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, flags, &r, &cs, &region, &region, kind, &b));
      EXPECT_EQ(ref.bytes_copy(), im.bytes_copy()) << kind << " " << flags;
      std::memcpy(im.base(), copy.base(), im.bytes());
      std::memcpy(ref.base(), copy.base(), im.bytes());
    }
  }
}

TEST(CopyMkb, BorderOnlyInPlaceMovesThePixelsAroundTheRegionAsACopyWould) {
  // A border-only copy that moves its rows over themselves reads each row
  // before it is written, the pieces beside the region included: the same
  // as the copy out of place from an untouched copy of the image.
  for (int32_t kind : {SORN_BORDER_CONST, SORN_BORDER_REFLECT101, SORN_BORDER_WRAP}) {
    for (const SornBrShape &b : {border(2, 3, 1, 2), border(0, 1, 0, 0), border(1, 0, 0, 0)}) {
      Image im(9, 9, 2, SORN_U8), ref(9, 9, 2, SORN_U8), copy(9, 9, 2, SORN_U8);
      for (int32_t y = 0; y < 9; ++y)
        for (int32_t x = 0; x < 9; ++x)
          for (int32_t c = 0; c < 2; ++c)
            im.at<uint8_t>(y, x, c) = ref.at<uint8_t>(y, x, c) = copy.at<uint8_t>(y, x, c) =
                (uint8_t)(20 * y + 2 * x + c);
      const SornVolume region = make_roi(3, 3, 4, 1, 2);
      const SornFlags flags = SORN_F_BORDER_ONLY;
      SornArray a = im.record(), r = ref.record(), cs = copy.record();
      ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, flags, &a, nullptr, nullptr, &region, kind, &b));
      ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, flags, &r, &cs, &region, &region, kind, &b));
      EXPECT_EQ(ref.bytes_copy(), im.bytes_copy()) << kind << " " << b.lo[1] << "," << b.lo[2];
      EXPECT_TRUE(im.guards_intact());
    }
  }
}

TEST(CopyMkb, InPlaceAtTheBordersCornerLeavesTheRegionWhereItIs) {
  Image im(8, 8, 1, SORN_F32);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 8; ++x) im.at<float>(y, x) = (float)(y * 8 + x) + 0.25f;
  const SornVolume region = make_roi(3, 3, 2, 2, 1);
  const SornVolume corner = make_roi(1, 2, 1, 1, 1);
  const SornBrShape b = border(2, 1, 2, 1);
  SornArray a = im.record();
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, SORN_F_NOMARGIN, &a, nullptr, &corner, &region,
                                 SORN_BORDER_REPLICATE, &b));
  for (int32_t y = 1; y < 7; ++y)
    for (int32_t x = 2; x < 6; ++x) {
      const int32_t sy = 3 + std::clamp(y - 3, 0, 1), sx = 3 + std::clamp(x - 3, 0, 1);
      EXPECT_EQ((float)(sy * 8 + sx) + 0.25f, im.at<float>(y, x)) << y << "," << x;
    }
}

// ---------------------------------------------------------------- four dimensions

TEST(CopyMkb4D, PlanesThatCannotMergeBorderTheFirstPlaneOnly) {
  // A bordered block has more rows per plane than the region: the frame
  // cannot merge the planes and hands the layers below the first one.
  const int32_t P = 3, H = 2, W = 3;
  std::vector<uint8_t> sbuf(P * H * W), dbuf(P * (H + 2) * (W + 2), 0xEE);
  for (size_t i = 0; i < sbuf.size(); ++i) sbuf[i] = (uint8_t)(i + 1);
  SornArray s = make_record4(sbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  SornArray d = make_record4(dbuf.data(), P, H + 2, W + 2, 1, SORN_U8, (H + 2) * (W + 2), W + 2);
  const SornBrShape b = border(1, 1, 1, 1);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_REPLICATE, &b));
  for (int32_t y = 0; y < H + 2; ++y)
    for (int32_t x = 0; x < W + 2; ++x)
      EXPECT_EQ(sbuf[std::clamp(y - 1, 0, H - 1) * W + std::clamp(x - 1, 0, W - 1)],
                dbuf[y * (W + 2) + x]);
  for (size_t i = (H + 2) * (W + 2); i < dbuf.size(); ++i) EXPECT_EQ(0xEE, dbuf[i]) << i;
}

TEST(CopyMkb4D, PlanesWithOnlySideBordersMergeIntoRows) {
  // Without rows above or below, stacked planes are rows of one image and
  // every plane is bordered.
  const int32_t P = 3, H = 2, W = 3;
  std::vector<uint8_t> sbuf(P * H * W), dbuf(P * H * (W + 3), 0xEE);
  for (size_t i = 0; i < sbuf.size(); ++i) sbuf[i] = (uint8_t)(i + 1);
  SornArray s = make_record4(sbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  SornArray d = make_record4(dbuf.data(), P, H, W + 3, 1, SORN_U8, H * (W + 3), W + 3);
  const SornBrShape b = border(0, 1, 0, 2);
  ASSERT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_WRAP, &b));
  for (int32_t r = 0; r < P * H; ++r)
    for (int32_t x = 0; x < W + 3; ++x)
      EXPECT_EQ(sbuf[r * W + copy_ref::map(SORN_BORDER_WRAP, x - 1, W)], dbuf[r * (W + 3) + x]);
}

// ---------------------------------------------------------------- failures

struct Failing {
  Image src{4, 5, 2, SORN_U8}, dst{6, 7, 2, SORN_U8, 0, 0x5A};
  SornArray s = src.record(), d = dst.record();
  std::vector<uint8_t> before = dst.bytes_copy();
  SornBrShape b = border(1, 1, 1, 1);
  bool untouched() const { return before == dst.bytes_copy() && dst.guards_intact(); }
};

TEST(CopyMkbFailures, BadRecordsAreInvalid) {
  Failing f;
  SornArray bad = f.s;
  bad.ndims = 2;
  EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &f.d, &bad, nullptr, nullptr, 7, &f.b));
  bad = f.s;
  bad.dims[3] = 3;  // channels differ
  EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &f.d, &bad, nullptr, nullptr, 7, &f.b));
  bad = f.s;
  bad.elemtype = SORN_S8;
  EXPECT_EQ(SORN_EINVAL, SornCopyRMkb(nullptr, 0, &f.d, &bad, nullptr, nullptr, 7, &f.b));
  SornArray badd = f.d;
  badd.dims[0] = 0;
  EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &badd, &f.s, nullptr, nullptr, 7, &f.b));
  badd = f.d;
  badd.dims[3] = 5;
  EXPECT_EQ(SORN_EINVAL, SornCopyRMkb(nullptr, 0, &badd, nullptr, nullptr, nullptr, 7, &f.b));
  EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, nullptr, &f.s, nullptr, nullptr, 7, &f.b));
  EXPECT_TRUE(f.untouched());
}

TEST(CopyMkbFailures, AKindOtherThanNoneNeedsABorder) {
  Failing f;
  for (int32_t kind : {2, 3, 4, 5, 6, 7, 1, 9}) {
    EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, kind, nullptr));
    EXPECT_EQ(SORN_EINVAL, SornCopyRMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, kind, nullptr));
  }
  // Kind 0 copies without one.
  EXPECT_TRUE(f.untouched());
  EXPECT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, 0, nullptr));
}

TEST(CopyMkbFailures, UnknownKindsAreInvalid) {
  Failing f;
  for (int32_t kind : {1, 8, 9, 10, 11, 12, 13, 14, 15, 0x21}) {
    EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, kind, &f.b)) << kind;
    EXPECT_EQ(SORN_EINVAL, SornCopyRMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, kind, &f.b)) << kind;
  }
  EXPECT_TRUE(f.untouched());
  // Below the entries kind 2 is unknown too.
  int32_t dims[3] = {2, 2, 2}, strides[3] = {14, 2, 1};
  EXPECT_EQ(SORN_EINVAL, sorna__copymkb(nullptr, 0, SORN_DIMPACK(3), dims, SORN_U8, f.dst.base(),
                                        strides, f.src.base(), strides, 2, &f.b, nullptr));
  EXPECT_TRUE(f.untouched());
}

TEST(CopyMkbFailures, EmptyRegionsAndSitesHaveNoSpace) {
  Failing f;
  const SornVolume outside = make_roi(10, 0, 2, 2, 2), empty = make_roi(0, 0, 0, 3, 2);
  EXPECT_EQ(SORN_ENOSPC, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, &outside, 7, &f.b));
  EXPECT_EQ(SORN_ENOSPC, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, &empty, 7, &f.b));
  EXPECT_EQ(SORN_ENOSPC, SornCopyMkb(nullptr, 0, &f.d, &f.s, &outside, nullptr, 7, &f.b));
  EXPECT_EQ(SORN_ENOSPC, SornCopyRMkb(nullptr, 0, &f.d, &f.s, &outside, nullptr, 7, &f.b));
  EXPECT_EQ(SORN_ENOSPC, SornCopyRMkb(nullptr, 0, &f.d, &f.s, nullptr, &outside, 7, &f.b));
  // Empty regions come before a missing border.
  EXPECT_EQ(SORN_ENOSPC, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, &outside, 7, nullptr));
  // A border that leaves the turned copy no room for the region.
  const SornBrShape wide = border(3, 4, 3, 3);
  EXPECT_EQ(SORN_ENOSPC, SornCopyRMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, 7, &wide));
  EXPECT_TRUE(f.untouched());
}

TEST(CopyMkbFailures, ABorderWhoseValuesWrapIsInvalid) {
  // -2^31 before the data: the fitting's 32-bit arithmetic wraps and keeps
  // it; such a record is refused rather than written past the destination.
  Failing f;
  SornBrShape wild = border(0, 0, 0, 0);
  wild.lo[2] = INT32_MIN;
  EXPECT_EQ(SORN_EINVAL, SornCopyMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, 4, &wild));
  wild = border(0, 0, 0, 0);
  wild.hi[1] = INT32_MAX;
  wild.lo[1] = -10;  // 6 - 10 - (2^31 - 1) wraps to a large inner extent
  EXPECT_EQ(SORN_EINVAL, SornCopyRMkb(nullptr, 0, &f.d, &f.s, nullptr, nullptr, 6, &wild));
  EXPECT_TRUE(f.untouched());
}

TEST(CopyMkbFailures, ConstBorderOfATypeWithoutFillValuesIsNotSupported) {
  std::vector<uint64_t> sbuf(4, 7), dbuf(16, 9);
  SornArray s = make_record(sbuf.data(), 2, 2, 1, SORN_U64, 16);
  SornArray d = make_record(dbuf.data(), 4, 4, 1, SORN_U64, 32);
  const SornBrShape b = border(1, 1, 1, 1);
  EXPECT_EQ(SORN_ENOTSUP, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_CONST, &b));
  for (uint64_t v : dbuf) EXPECT_EQ(9u, v);
  // Other kinds move the bytes whatever the type.
  EXPECT_EQ(SORN_OK, SornCopyMkb(nullptr, 0, &d, &s, nullptr, nullptr, SORN_BORDER_WRAP, &b));
  for (uint64_t v : dbuf) EXPECT_EQ(7u, v);
}

}  // namespace

// Window and border shapes: normalising windows, centring anchors, the
// borders a window needs and fitting them into the room left, widening and
// narrowing extents, and the decision whether every pixel a window reads
// around a region exists. Plain references are written here, cell by cell.
#include <gtest/gtest.h>
#include <testkit.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

using sorn_test::seeded_rng;

namespace {

using V4 = std::array<int32_t, 4>;

SornSeShape window(V4 anchor, V4 size) {
  SornSeShape se;
  std::memcpy(se.anchor, anchor.data(), sizeof se.anchor);
  std::memcpy(se.size, size.data(), sizeof se.size);
  return se;
}

V4 v4(const int32_t *p) { return V4{p[0], p[1], p[2], p[3]}; }

SornVolume volume(V4 origin, V4 size) {
  SornVolume v;
  std::memcpy(v.origin, origin.data(), sizeof v.origin);
  std::memcpy(v.size, size.data(), sizeof v.size);
  return v;
}

// ---------------------------------------------------------------- normalising a window

TEST(SeShapeAdjust, EmptyWindowsBecomeFiveByFiveAroundTheCentre) {
  const int32_t roi[3] = {1, 40, 60};
  SornSeShape one = window({0, 0, 0, 0}, {1, 1, 1, 0});
  SornSeShape zero = window({0, 0, 0, 0}, {0, 0, 0, 0});
  SornSeShape from_null = window({9, 9, 9, 9}, {0, 0, 0, 0});  // a caller's zeroed local
  EXPECT_EQ(1, sorn_seshape__adjust_$gv$I(&one, 3, roi));
  EXPECT_EQ(1, sorn_seshape__adjust_$gv$I(&zero, 3, roi));
  EXPECT_EQ(1, sorn_seshape__adjust_$gv(&from_null, nullptr, 3, roi));
  for (const SornSeShape *se : {&one, &zero, &from_null}) {
    EXPECT_EQ((V4{0, 2, 2, 0}), v4(se->anchor));
    EXPECT_EQ((V4{1, 5, 5, 0}), v4(se->size));
  }
}

TEST(SeShapeAdjust, TheDepthCellDoesNotKeepAOneByOneWindow) {
  // Rows and columns decide: a window 3 deep but 1 by 1 in the plane would
  // reach no neighbour in any kernel, so it takes the default as well; the
  // depth cell keeps what it has.
  const int32_t roi[3] = {4, 40, 60};
  SornSeShape se = window({7, 0, 0, 0}, {3, 1, 1, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{3, 5, 5, 0}), v4(se.size));
  EXPECT_EQ((V4{2, 2, 2, 0}), v4(se.anchor));
  // One row of three is a window.
  SornSeShape row = window({0, 0, 0, 0}, {1, 1, 3, 0});
  sorn_seshape__adjust_$gv$I(&row, 3, roi);
  EXPECT_EQ((V4{1, 1, 3, 0}), v4(row.size));
}

TEST(SeShapeAdjust, RelativeSizesCountFromTheRegion) {
  const int32_t roi[3] = {1, 30, 100};
  SornSeShape se = window({0, 0, 0, 0}, {1, 3, -1, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{1, 3, 99, 0}), v4(se.size));
  // -200 leaves nothing: one column, anchor 0 ...
  se = window({0, 1, 7, 0}, {1, 3, -200, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{1, 3, 1, 0}), v4(se.size));
  EXPECT_EQ((V4{0, 1, 0, 0}), v4(se.anchor));
  // ... and with the rows at 1 too the default takes over.
  se = window({0, 0, 7, 0}, {1, 1, -200, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{1, 5, 5, 0}), v4(se.size));
  // Exactly the region's extent away gives 0, which is no size: 1.
  se = window({0, 0, 0, 0}, {1, -30, 4, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{1, 1, 4, 0}), v4(se.size));
}

TEST(SeShapeAdjust, AnchorsComeIntoTheWindow) {
  const int32_t roi[3] = {1, 30, 100};
  SornSeShape se = window({0, -1, 9, 0}, {1, 5, 5, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{0, 4, 4, 0}), v4(se.anchor));
  se = window({0, -5, -6, 0}, {1, 5, 5, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{0, 0, 0, 0}), v4(se.anchor));  // -5 + 5 is 0; -6 + 5 stays below: 0
  se = window({0, 3, 4, 0}, {1, 5, 5, 0});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ((V4{0, 3, 4, 0}), v4(se.anchor));
}

TEST(SeShapeAdjust, TheChannelCellIsAlwaysCleared) {
  const int32_t roi[3] = {1, 30, 100};
  SornSeShape se = window({0, 1, 1, 77}, {1, 3, 3, 99});
  sorn_seshape__adjust_$gv$I(&se, 3, roi);
  EXPECT_EQ(0, se.anchor[3]);
  EXPECT_EQ(0, se.size[3]);
}

TEST(SeShapeAdjust, ShortCountsUseTheLastCellsAndShortExtents) {
  // n = 2: rows and columns, from an extent vector of two cells; the depth
  // cell is not looked at.
  const int32_t rows_cols[2] = {10, 20};
  SornSeShape se = window({-3, -1, 30, 0}, {-9, -2, -5, 0});
  sorn_seshape__adjust_$gv$I(&se, 2, rows_cols);
  EXPECT_EQ((V4{-9, 8, 15, 0}), v4(se.size));
  EXPECT_EQ((V4{-3, 7, 14, 0}), v4(se.anchor));
  // n = 1: the columns alone; a 1 there gives the default in rows and
  // columns both.
  const int32_t cols[1] = {20};
  se = window({0, 0, 0, 0}, {0, 7, 1, 0});
  sorn_seshape__adjust_$gv$I(&se, 1, cols);
  EXPECT_EQ((V4{0, 5, 5, 0}), v4(se.size));
  se = window({0, 0, -1, 0}, {0, 7, -10, 0});
  sorn_seshape__adjust_$gv$I(&se, 1, cols);
  EXPECT_EQ((V4{0, 7, 10, 0}), v4(se.size));
  EXPECT_EQ(9, se.anchor[2]);
  // Counts above 3 act as 3.
  const int32_t four[4] = {1, 30, 100, 3};
  SornSeShape a = window({0, 0, 0, 0}, {1, 3, -1, 0}), b = a;
  sorn_seshape__adjust_$gv$I(&a, 4, four);
  sorn_seshape__adjust_$gv$I(&b, 3, four);
  EXPECT_EQ(v4(b.size), v4(a.size));
  EXPECT_EQ(v4(b.anchor), v4(a.anchor));
}

TEST(SeShapeAdjust, CopyingFormLeavesItsSource) {
  const int32_t roi[3] = {1, 30, 100};
  const SornSeShape se = window({0, 9, 9, 0}, {1, 3, 3, 0});
  SornSeShape out;
  EXPECT_EQ(1, sorn_seshape__adjust_$gv(&out, &se, 3, roi));
  EXPECT_EQ((V4{0, 2, 2, 0}), v4(out.anchor));
  EXPECT_EQ((V4{0, 9, 9, 0}), v4(se.anchor));
}

TEST(SeShapeAdjust, RandomWindowsMatchAPlainReference) {
  auto rng = seeded_rng(0x5E5A);
  for (int it = 0; it < 20000; ++it) {
    const int32_t n = (int32_t)(rng() % 5);
    int32_t dims[3];
    for (auto &d : dims) d = (int32_t)(rng() % 12);
    V4 anchor, size;
    for (int i = 0; i < 4; ++i) {
      anchor[i] = (int32_t)(rng() % 15) - 7;
      size[i] = (int32_t)(rng() % 15) - 7;
    }
    SornSeShape se = window(anchor, size);
    sorn_seshape__adjust_$gv$I(&se, n, dims);
    // Reference.
    const int32_t m = n > 3 ? 3 : n, first = 3 - m;
    V4 a = anchor, s = size;
    a[3] = s[3] = 0;
    for (int32_t k = 0; k < m; ++k) {
      const int c = first + k;
      if (s[c] < 0 && s[c] + dims[k] >= 0) s[c] += dims[k];
      if (s[c] <= 0) {
        s[c] = 1;
        a[c] = 0;
      }
    }
    bool one = true;
    for (int c = first; c < 3; ++c)
      if (c >= 1 && s[c] != 1) one = false;
    if (one) {
      s[1] = s[2] = 5;
      a[1] = a[2] = 2;
    }
    for (int c = first; c < 3; ++c) {
      if (a[c] >= s[c]) a[c] = s[c] - 1;
      if (a[c] < 0) a[c] = std::max(0, a[c] + s[c]);
    }
    ASSERT_EQ(s, v4(se.size)) << "iteration " << it;
    ASSERT_EQ(a, v4(se.anchor)) << "iteration " << it;
  }
}

TEST(SeShapeRstAnchor, CentresFromTheFrontCells) {
  SornSeShape se = window({9, 9, 9, 9}, {5, 4, 7, -3});
  sorn_seshape_rstanchor_$gn(&se, 3);
  EXPECT_EQ((V4{2, 2, 3, 9}), v4(se.anchor));
  // n = 2 walks cells 0 and 1, not rows and columns.
  se = window({9, 9, 9, 9}, {5, 4, 7, -3});
  sorn_seshape_rstanchor_$gn(&se, 2);
  EXPECT_EQ((V4{2, 2, 9, 9}), v4(se.anchor));
  se = window({9, 9, 9, 9}, {-5, 4, 7, -3});
  sorn_seshape_rstanchor_$gn(&se, 8);
  EXPECT_EQ((V4{-2, 2, 3, 9}), v4(se.anchor));  // truncating
}

// ---------------------------------------------------------------- borders

TEST(BrShapeFromWindow, BeforeIsTheAnchorAfterIsTheRest) {
  const SornSeShape se = window({1, 2, 0, 5}, {3, 5, 4, 9});
  SornBrShape br;
  for (double &f : br.fill) f = 7.5;
  __sorn_brshape__$se(&br, &se);
  EXPECT_EQ((V4{-1, -2, 0, 0}), v4(br.lo));
  EXPECT_EQ((V4{1, 2, 3, 0}), v4(br.hi));
  EXPECT_EQ(7.5, br.fill[0]);  // fill untouched
}

TEST(BrShapeCompute, BorderBetweenNeededAndAvailableBoxes) {
  // Two cells: rows and columns of short vectors, in cells 1 and 2.
  const int32_t needO[2] = {-2, -3}, needS[2] = {14, 25}, haveO[2] = {0, -1}, haveS[2] = {10, 30};
  SornBrShape br;
  std::memset(&br, 0x11, sizeof br);
  sorn_brshape__compute_$gv(&br, 2, needO, needS, haveO, haveS);
  EXPECT_EQ(0x11111111, br.lo[0]);  // not a used cell
  EXPECT_EQ(-2, br.lo[1]);
  EXPECT_EQ(-2, br.lo[2]);
  EXPECT_EQ(2, br.hi[1]);
  EXPECT_EQ(-7, br.hi[2]);
  EXPECT_EQ(0, br.lo[3]);
  EXPECT_EQ(0, br.hi[3]);
}

// Plain reference of fitting one cell.
void ref_fit(int32_t room, int32_t &lo, int32_t &hi) {
  if (room <= 0) {
    lo = -room;
    hi = 0;
  } else if (room < hi - lo) {
    const float q = (float)(lo * room) / (float)(hi - lo);
    lo = (int32_t)std::nearbyint(q);
    hi = room + lo;
  }
}

TEST(BrShapeAdjust, ABorderWiderThanItsRoomShrinksInProportion) {
  // Free 3 with lo -4 and hi 2: lo = rint(-12 / 6) = -2, hi = 1.
  SornBrShape br = {};
  br.lo[1] = -4;
  br.hi[1] = 2;
  const int32_t outer[3] = {1, 13, 10}, inner[3] = {1, 10, 10};
  EXPECT_EQ(1, sorn_brshape__adjust_$gv$I(&br, 3, nullptr, outer, nullptr, inner));
  EXPECT_EQ(-2, br.lo[1]);
  EXPECT_EQ(1, br.hi[1]);
  // No room along the columns: nothing either side.
  EXPECT_EQ(0, br.lo[2]);
  EXPECT_EQ(0, br.hi[2]);
}

TEST(BrShapeAdjust, TheShareIsRoundedToNearestEven) {
  // lo -1, hi 1, room 1: -1 * 1 / 2 = -0.5, which rounds to 0 (even), not -1.
  SornBrShape br = {};
  br.lo[2] = -1;
  br.hi[2] = 1;
  const int32_t outer[1] = {11}, inner[1] = {10};
  EXPECT_EQ(1, sorn_brshape__adjust_$gv$I(&br, 1, nullptr, outer, nullptr, inner));
  EXPECT_EQ(0, br.lo[2]);
  EXPECT_EQ(1, br.hi[2]);
  // -5 * 5 / 10 = -2.5 rounds to -2 (even), not -3; -3 * 2 / 4 = -1.5 to -2.
  const int32_t outer5[1] = {15}, outer2[1] = {12};
  br.lo[2] = -5;
  br.hi[2] = 5;
  EXPECT_EQ(1, sorn_brshape__adjust_$gv$I(&br, 1, nullptr, outer5, nullptr, inner));
  EXPECT_EQ(-2, br.lo[2]);
  EXPECT_EQ(3, br.hi[2]);
  br.lo[2] = -3;
  br.hi[2] = 1;
  EXPECT_EQ(1, sorn_brshape__adjust_$gv$I(&br, 1, nullptr, outer2, nullptr, inner));
  EXPECT_EQ(-2, br.lo[2]);
  EXPECT_EQ(0, br.hi[2]);
}

TEST(BrShapeAdjust, ADestinationSmallerThanTheRegionFailsTheFit) {
  SornBrShape br = {};
  br.lo[1] = -2;
  br.hi[1] = 2;
  const int32_t outer[2] = {8, 10}, inner[2] = {10, 10};
  EXPECT_EQ(0, sorn_brshape__adjust_$gv$I(&br, 2, nullptr, outer, nullptr, inner));
  EXPECT_EQ(2, br.lo[1]);  // -room: the region is cut by it
  EXPECT_EQ(0, br.hi[1]);
}

TEST(BrShapeAdjust, ABorderThatFitsStays) {
  SornBrShape br = {};
  br.lo[0] = -1;
  br.hi[0] = 1;
  br.lo[1] = -2;
  br.hi[1] = 3;
  br.lo[3] = -9;
  br.hi[3] = 9;
  const int32_t outer[3] = {5, 20, 20}, inner[3] = {3, 15, 20};
  SornBrShape out;
  EXPECT_EQ(1, sorn_brshape__adjust_$gv(&out, &br, 3, nullptr, outer, nullptr, inner));
  EXPECT_EQ((V4{-1, -2, 0, 0}), v4(out.lo));
  EXPECT_EQ((V4{1, 3, 0, 0}), v4(out.hi));
  EXPECT_EQ(-9, br.lo[3]);  // the source is left alone
}

TEST(BrShapeAdjust, RandomBordersMatchAPlainReference) {
  auto rng = seeded_rng(0xB0DE);
  for (int it = 0; it < 20000; ++it) {
    const int32_t n = 1 + (int32_t)(rng() % 3);
    SornBrShape br;
    V4 lo, hi;
    for (int i = 0; i < 4; ++i) {
      lo[i] = -(int32_t)(rng() % 40);
      hi[i] = (int32_t)(rng() % 40);
    }
    std::memcpy(br.lo, lo.data(), 16);
    std::memcpy(br.hi, hi.data(), 16);
    int32_t outer[3], inner[3];
    for (int k = 0; k < 3; ++k) {
      inner[k] = (int32_t)(rng() % 50);
      outer[k] = inner[k] + (int32_t)(rng() % 90) - 10;
    }
    const int ok = sorn_brshape__adjust_$gv$I(&br, n, nullptr, outer, nullptr, inner);
    lo[3] = hi[3] = 0;
    bool want_ok = true;
    for (int k = 0; k < n; ++k) {
      const int c = 3 - n + k;
      ref_fit(outer[k] - inner[k], lo[c], hi[c]);
      if (lo[c] > 0 || hi[c] < 0) want_ok = false;
    }
    ASSERT_EQ(lo, v4(br.lo)) << it;
    ASSERT_EQ(hi, v4(br.hi)) << it;
    ASSERT_EQ(want_ok ? 1 : 0, ok) << it;
  }
}

// ---------------------------------------------------------------- widening and narrowing

TEST(VolumeWidenNarrow, ByWindowAndByBorder) {
  const SornSeShape se = window({0, 1, 2, 0}, {3, 3, 5, 0});
  SornBrShape br = {};
  br.lo[0] = -1;
  br.lo[1] = -2;
  br.lo[2] = -3;
  br.hi[0] = 4;
  br.hi[1] = 5;
  br.hi[2] = 6;
  const int32_t dims[3] = {10, 20, 30};
  int32_t out[3];
  sorn_volume__widen_$se(3, out, dims, &se);
  EXPECT_EQ(12, out[0]);
  EXPECT_EQ(22, out[1]);
  EXPECT_EQ(34, out[2]);
  sorn_volume__narrow_$I$se(3, out, &se);
  EXPECT_EQ(dims[2], out[2]);
  sorn_volume__widen_$br(3, out, dims, &br);
  EXPECT_EQ(15, out[0]);
  EXPECT_EQ(27, out[1]);
  EXPECT_EQ(39, out[2]);
  sorn_volume__narrow_$br(3, out, nullptr, &br);  // null dims: in place
  EXPECT_EQ(10, out[0]);
  EXPECT_EQ(30, out[2]);
  // Two cells: rows and columns of a two-cell vector.
  int32_t rc[2] = {20, 30};
  sorn_volume__widen_$I$se(2, rc, &se);
  EXPECT_EQ(22, rc[0]);
  EXPECT_EQ(34, rc[1]);
  sorn_volume__widen_$I$br(2, rc, &br);
  EXPECT_EQ(29, rc[0]);
  EXPECT_EQ(43, rc[1]);
  sorn_volume__narrow_$br(2, rc, nullptr, &br);
  sorn_volume__narrow_$se(2, rc, nullptr, &se);
  EXPECT_EQ(20, rc[0]);
  EXPECT_EQ(30, rc[1]);
}

// ---------------------------------------------------------------- the needed box

struct Box {
  V4 o, s;
};

// Plain reference of the n-cell form, over record cells first..2.
int ref_compute(SornFlags flags, int n, Box &avail, Box &need, const int32_t *origin,
                const int32_t *size, const SornSeShape &se, const SornVolume &site,
                const SornVolume &parsite) {
  const int m = n > 3 ? 3 : n, first = 3 - m;
  for (int k = 0; k < m; ++k) {
    need.o[k] = size ? (origin ? origin[k] : 0) : site.origin[first + k];
    need.s[k] = size ? size[k] : site.size[first + k];
  }
  const SornVolume &from = (flags & SORN_F_SITEMARGIN) ? site : parsite;
  for (int k = 0; k < m; ++k) {
    if (flags & SORN_F_NOMARGIN) {
      avail.o[k] = need.o[k];
      avail.s[k] = need.s[k];
    } else {
      avail.o[k] = from.origin[first + k];
      avail.s[k] = from.size[first + k];
    }
    need.o[k] -= se.anchor[first + k];
    need.s[k] += se.size[first + k] - 1;
  }
  if (flags & SORN_F_NOMARGIN) return 0;
  bool all = true;
  for (int k = 0; k < m; ++k) {
    const int32_t lo = std::max(avail.o[k], need.o[k]);
    const int32_t hi = std::min(avail.o[k] + avail.s[k], need.o[k] + need.s[k]);
    avail.o[k] = lo;
    avail.s[k] = hi - lo;
    if (avail.s[k] != need.s[k]) all = false;
  }
  return all ? 1 : 0;
}

TEST(ComputeRoi, ASubRegionWellInsideItsParentReadsRealPixels) {
  // Rows and columns, as the filter frame asks: a 10 x 10 region at (5, 5)
  // of a 30 x 30 parent, 3 x 3 window centred.
  const SornSeShape se = window({0, 1, 1, 0}, {1, 3, 3, 0});
  const SornVolume site = volume({0, 0, 0, 0}, {1, 10, 10, 1});
  const SornVolume parsite = volume({0, -5, -5, 0}, {1, 30, 30, 1});
  const int32_t sizes[3] = {10, 10, 1};  // rows, columns, channels
  int32_t aO[3], aS[3], nO[3], nS[3];
  EXPECT_EQ(1, sorn__compute_roi_$se(0, 2, aO, aS, nO, nS, nullptr, sizes, &se, &site, &parsite));
  EXPECT_EQ(-1, nO[0]);
  EXPECT_EQ(-1, nO[1]);
  EXPECT_EQ(12, nS[0]);
  EXPECT_EQ(12, nS[1]);
  EXPECT_EQ(-1, aO[0]);
  EXPECT_EQ(12, aS[1]);
  // Kept to its own site, the region has no margin.
  EXPECT_EQ(0, sorn__compute_roi_$se(SORN_F_SITEMARGIN, 2, aO, aS, nO, nS, nullptr, sizes, &se,
                                     &site, &parsite));
  EXPECT_EQ(0, aO[0]);
  EXPECT_EQ(10, aS[0]);
  // No margin at all: the region alone, answer 0.
  EXPECT_EQ(0, sorn__compute_roi_$se(SORN_F_NOMARGIN, 2, aO, aS, nO, nS, nullptr, sizes, &se,
                                     &site, &parsite));
  EXPECT_EQ(0, aO[1]);
  EXPECT_EQ(10, aS[1]);
  EXPECT_EQ(-1, nO[1]);
  EXPECT_EQ(12, nS[1]);
}

TEST(ComputeRoi, WithoutASizeTheBoxIsTheSite) {
  const SornSeShape se = window({0, 0, 0, 0}, {1, 1, 2, 0});
  const SornVolume site = volume({0, 2, 3, 0}, {1, 4, 5, 1});
  const SornVolume parsite = volume({0, 0, 0, 0}, {1, 10, 10, 1});
  int32_t aO[3], aS[3], nO[3], nS[3];
  EXPECT_EQ(1, sorn__compute_roi_$se(0, 3, aO, aS, nO, nS, nullptr, nullptr, &se, &site, &parsite));
  EXPECT_EQ(2, nO[1]);
  EXPECT_EQ(3, nO[2]);
  EXPECT_EQ(6, nS[2]);
}

TEST(ComputeRoi, RandomBoxesMatchAPlainReference) {
  auto rng = seeded_rng(0xC0B0);
  auto r = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  for (int it = 0; it < 20000; ++it) {
    const int n = r(1, 4);
    const SornSeShape se = window({r(0, 3), r(0, 3), r(0, 3), 0}, {r(1, 4), r(1, 4), r(1, 4), 0});
    const SornVolume site = volume({r(-2, 2), r(-2, 2), r(-2, 2), 0}, {r(1, 8), r(1, 8), r(1, 8), 1});
    const SornVolume parsite = volume({r(-6, 0), r(-6, 0), r(-6, 0), 0}, {r(1, 20), r(1, 20), r(1, 20), 1});
    int32_t origin[3] = {r(-2, 3), r(-2, 3), r(-2, 3)}, size[3] = {r(1, 6), r(1, 6), r(1, 6)};
    const SornFlags flags = (rng() & 1 ? SORN_F_NOMARGIN : 0) | (rng() & 1 ? SORN_F_SITEMARGIN : 0);
    const bool with_size = rng() % 4 != 0, with_origin = rng() & 1;
    Box wa{}, wn{};
    const int want = ref_compute(flags, n, wa, wn, with_origin ? origin : nullptr,
                                 with_size ? size : nullptr, se, site, parsite);
    int32_t aO[3] = {}, aS[3] = {}, nO[3] = {}, nS[3] = {};
    const int got = sorn__compute_roi_$se(flags, n, aO, aS, nO, nS, with_origin ? origin : nullptr,
                                          with_size ? size : nullptr, &se, &site, &parsite);
    ASSERT_EQ(want, got) << it;
    const int m = n > 3 ? 3 : n;
    for (int k = 0; k < m; ++k) {
      ASSERT_EQ(wn.o[k], nO[k]) << it;
      ASSERT_EQ(wn.s[k], nS[k]) << it;
      ASSERT_EQ(wa.o[k], aO[k]) << it;
      ASSERT_EQ(wa.s[k], aS[k]) << it;
    }
  }
}

TEST(ComputeRoiBlock, CopiesAndCutsFourCellsComparesThree) {
  const SornSeShape se = window({0, 1, 1, 0}, {1, 3, 3, 0});
  const SornVolume site = volume({0, 0, 0, 0}, {1, 10, 10, 3});
  const SornVolume parsite = volume({0, -5, -5, 0}, {1, 30, 30, 3});
  const SornVolume roi = volume({0, 2, 2, 0}, {1, 5, 5, 1});  // one channel of three
  SornVolume avail, need;
  EXPECT_EQ(1, sorn_compute_roi_$se(&avail, &need, 0, &roi, &se, &site, &parsite));
  EXPECT_EQ((V4{0, 1, 1, 0}), v4(need.origin));
  EXPECT_EQ((V4{1, 7, 7, 1}), v4(need.size));
  EXPECT_EQ((V4{1, 7, 7, 1}), v4(avail.size));  // the channel cell is cut too
  // A null region is the site: its margin lies in the parent.
  EXPECT_EQ(1, sorn_compute_roi_$se(&avail, &need, 0, nullptr, &se, &site, &parsite));
  EXPECT_EQ((V4{0, -1, -1, 0}), v4(need.origin));
  EXPECT_EQ((V4{1, 12, 12, 3}), v4(need.size));
  EXPECT_EQ(0, sorn_compute_roi_$se(&avail, &need, SORN_F_SITEMARGIN, nullptr, &se, &site, &parsite));
  EXPECT_EQ((V4{1, 10, 10, 3}), v4(avail.size));
  EXPECT_EQ(0, sorn_compute_roi_$se(&avail, &need, SORN_F_NOMARGIN, &roi, &se, &site, &parsite));
  EXPECT_EQ(v4(roi.origin), v4(avail.origin));
  EXPECT_EQ(v4(roi.size), v4(avail.size));
  // A window along the depth counts in the block form.
  const SornSeShape deep = window({1, 0, 0, 0}, {3, 1, 1, 0});
  EXPECT_EQ(0, sorn_compute_roi_$se(&avail, &need, 0, &roi, &deep, &site, &parsite));
  EXPECT_EQ(-1, need.origin[0]);
  EXPECT_EQ(3, need.size[0]);
}

}  // namespace

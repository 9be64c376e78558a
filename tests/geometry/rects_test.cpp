// Integer points and the rectangles of the three families: conversions,
// the union and the library's own intersection, moments, borders, inside.
#include <gtest/gtest.h>
#include <sorn.h>

#include <climits>
#include <cstring>
#include <random>

#include "testkit.h"

namespace {

template <class R>
bool same_cells(const R &a, const R &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(IntPoint, AdvanceMovesOutWithoutABase) {
  Sorn2dPt p = {3, 4};
  EXPECT_EQ(sorn_2d_pt_advance(&p, nullptr, 2, -7), &p);
  EXPECT_EQ(p.x, 5);
  EXPECT_EQ(p.y, -3);
}

TEST(IntPoint, AdvanceFromABase) {
  const Sorn2dPt base = {10, 20};
  Sorn2dPt p = {99, 99};
  sorn_2d_pt_advance(&p, &base, 1, 2);
  EXPECT_EQ(p.x, 11);
  EXPECT_EQ(p.y, 22);
}

TEST(IntPoint, SetAdvanceIsTheOffsetPlusAnyBase) {
  Sorn2dPt p = {99, 99};
  EXPECT_EQ(sorn_2d_pt_setadv(&p, nullptr, 5, 6), &p);
  EXPECT_EQ(p.x, 5);
  EXPECT_EQ(p.y, 6);
  const Sorn2dPt base = {-1, 1};
  sorn_2d_pt_setadv(&p, &base, 5, 6);
  EXPECT_EQ(p.x, 4);
  EXPECT_EQ(p.y, 7);
}

TEST(IntPoint, SumsWrapIn32Bits) {
  Sorn2dPt p = {INT32_MAX, INT32_MIN};
  sorn_2d_pt_advance(&p, nullptr, 1, -1);
  EXPECT_EQ(p.x, INT32_MIN);
  EXPECT_EQ(p.y, INT32_MAX);
}

TEST(RectConvert, CornersFromOriginAndSize) {
  const Sorn2dRect r = {1, 2, 3, 4};
  Sorn2dRcpt c;
  EXPECT_EQ(sorn_2d_rcpt_convert(&c, &r), &c);
  EXPECT_TRUE(same_cells(c, Sorn2dRcpt{1, 2, 4, 6}));
  Sorn2dRect back;
  EXPECT_EQ(sorn_2d_rect_convert(&back, &c), &back);
  EXPECT_TRUE(same_cells(back, r));
}

TEST(RectConvert, NullOrSameSourceConvertsInPlace) {
  union {
    Sorn2dRect rect;
    Sorn2dRcpt rcpt;
  } u;
  u.rect = {1, 2, 3, 4};
  sorn_2d_rcpt_convert(&u.rcpt, nullptr);
  EXPECT_TRUE(same_cells(u.rcpt, Sorn2dRcpt{1, 2, 4, 6}));
  sorn_2d_rect_convert(&u.rect, nullptr);
  EXPECT_TRUE(same_cells(u.rect, Sorn2dRect{1, 2, 3, 4}));
  sorn_2d_rcpt_convert(&u.rcpt, &u.rect);
  EXPECT_TRUE(same_cells(u.rcpt, Sorn2dRcpt{1, 2, 4, 6}));
  sorn_2d_rect_convert(&u.rect, &u.rcpt);
  EXPECT_TRUE(same_cells(u.rect, Sorn2dRect{1, 2, 3, 4}));

  union {
    SornF2dRect rect;
    SornF2dRcpt rcpt;
  } f;
  f.rect = {0.5f, 1.5f, 2.0f, 3.0f};
  sorn_f2d_rcpt_convert(&f.rcpt, nullptr);
  EXPECT_TRUE(same_cells(f.rcpt, SornF2dRcpt{0.5f, 1.5f, 2.5f, 4.5f}));
  sorn_f2d_rect_convert(&f.rect, nullptr);
  EXPECT_TRUE(same_cells(f.rect, SornF2dRect{0.5f, 1.5f, 2.0f, 3.0f}));

  union {
    SornR2dRect rect;
    SornR2dRcpt rcpt;
  } r;
  r.rect = {0.25, 1.5, 2.0, 3.0};
  sorn_r2d_rcpt_convert(&r.rcpt, nullptr);
  EXPECT_TRUE(same_cells(r.rcpt, SornR2dRcpt{0.25, 1.5, 2.25, 4.5}));
  sorn_r2d_rect_convert(&r.rect, &r.rcpt);
  EXPECT_TRUE(same_cells(r.rect, SornR2dRect{0.25, 1.5, 2.0, 3.0}));
}

TEST(RectConvert, IntegerCornersWrapIn32Bits) {
  const Sorn2dRect r = {INT32_MAX, 0, 1, 0};
  Sorn2dRcpt c;
  sorn_2d_rcpt_convert(&c, &r);
  EXPECT_EQ(c.x1, INT32_MIN);
  Sorn2dRect back;
  sorn_2d_rect_convert(&back, &c);
  EXPECT_EQ(back.width, 1);
}

TEST(RectConvert, FloatFamiliesSumInTheirOwnType) {
  auto rng = sorn_test::seeded_rng(92001);
  std::uniform_real_distribution<double> u(-1e6, 1e6);
  for (int i = 0; i < 1000; ++i) {
    const float x = (float)u(rng), y = (float)u(rng), w = (float)u(rng), h = (float)u(rng);
    const SornF2dRect fr = {x, y, w, h};
    SornF2dRcpt fc;
    sorn_f2d_rcpt_convert(&fc, &fr);
    EXPECT_EQ(fc.x1, x + w);
    EXPECT_EQ(fc.y1, y + h);
    const SornR2dRect rr = {(double)x, (double)y, (double)w * 1.1, (double)h * 1.1};
    SornR2dRcpt rc;
    sorn_r2d_rcpt_convert(&rc, &rr);
    EXPECT_EQ(rc.x1, rr.x + rr.width);
    EXPECT_EQ(rc.y1, rr.y + rr.height);
  }
}

TEST(CornerIntersection, TakesTheLargerValueInEveryCell) {
  const Sorn2dRcpt a = {0, 0, 10, 10}, b = {5, 5, 20, 20};
  Sorn2dRcpt out;
  EXPECT_EQ(sorn_2d_rcpt_intersec(&out, &a, &b), &out);
  EXPECT_TRUE(same_cells(out, Sorn2dRcpt{5, 5, 20, 20}));
  const SornF2dRcpt fa = {0, 0, 10, 10}, fb = {5, 5, 20, 20};
  SornF2dRcpt fo;
  sorn_f2d_rcpt_intersec(&fo, &fa, &fb);
  EXPECT_TRUE(same_cells(fo, SornF2dRcpt{5, 5, 20, 20}));
  const SornR2dRcpt ra = {0, 0, 10, 10}, rb = {5, 5, 20, 20};
  SornR2dRcpt ro;
  sorn_r2d_rcpt_intersec(&ro, &ra, &rb);
  EXPECT_TRUE(same_cells(ro, SornR2dRcpt{5, 5, 20, 20}));
}

TEST(CornerIntersection, NullFirstOperandIsTheOutput) {
  Sorn2dRcpt out = {0, 7, 10, 3};
  const Sorn2dRcpt b = {5, 5, 20, 20};
  sorn_2d_rcpt_intersec(&out, nullptr, &b);
  EXPECT_TRUE(same_cells(out, Sorn2dRcpt{5, 7, 20, 20}));
}

TEST(CornerUnion, SmallerOriginLargerFarCorner) {
  const Sorn2dRcpt a = {0, 6, 10, 10}, b = {5, 5, 20, 8};
  Sorn2dRcpt out;
  EXPECT_EQ(sorn_2d_rcpt_general(&out, &a, &b), &out);
  EXPECT_TRUE(same_cells(out, Sorn2dRcpt{0, 5, 20, 10}));
  SornF2dRcpt fo = {0, 6, 10, 10};
  const SornF2dRcpt fb = {5, 5, 20, 8};
  sorn_f2d_rcpt_general(&fo, nullptr, &fb);
  EXPECT_TRUE(same_cells(fo, SornF2dRcpt{0, 5, 20, 10}));
  SornR2dRcpt ro = {0, 6, 10, 10};
  const SornR2dRcpt rb = {5, 5, 20, 8};
  sorn_r2d_rcpt_general(&ro, nullptr, &rb);
  EXPECT_TRUE(same_cells(ro, SornR2dRcpt{0, 5, 20, 10}));
}

TEST(RectIntersection, GoesThroughTheCorners) {
  const Sorn2dRect a = {0, 0, 10, 10}, b = {5, 5, 15, 15};
  Sorn2dRect out;
  EXPECT_EQ(sorn_2d_rect_intersec(&out, &a, &b), &out);
  EXPECT_TRUE(same_cells(out, Sorn2dRect{5, 5, 15, 15}));
  Sorn2dRect in = a;
  EXPECT_EQ(sorn_2d_rect_intersec_$I(&in, &b), &in);
  EXPECT_TRUE(same_cells(in, Sorn2dRect{5, 5, 15, 15}));
  Sorn2dRect nul = a;
  sorn_2d_rect_intersec(&nul, nullptr, &b);
  EXPECT_TRUE(same_cells(nul, Sorn2dRect{5, 5, 15, 15}));
}

TEST(RectUnion, GoesThroughTheCorners) {
  const Sorn2dRect a = {0, 6, 10, 4}, b = {5, 5, 15, 3};
  Sorn2dRect out;
  EXPECT_EQ(sorn_2d_rect_general(&out, &a, &b), &out);
  EXPECT_TRUE(same_cells(out, Sorn2dRect{0, 5, 20, 5}));
  Sorn2dRect in = a;
  sorn_2d_rect_general_$I(&in, &b);
  EXPECT_TRUE(same_cells(in, Sorn2dRect{0, 5, 20, 5}));
}

// The three families agree where their values are exact in all of them.
TEST(RectFamilies, AgreeOnSmallIntegers) {
  auto rng = sorn_test::seeded_rng(92002);
  std::uniform_int_distribution<int32_t> u(-1000, 1000);
  for (int i = 0; i < 500; ++i) {
    const int32_t v[8] = {u(rng), u(rng), u(rng), u(rng), u(rng), u(rng), u(rng), u(rng)};
    const Sorn2dRect ia = {v[0], v[1], v[2], v[3]}, ib = {v[4], v[5], v[6], v[7]};
    const SornF2dRect fa = {(float)v[0], (float)v[1], (float)v[2], (float)v[3]};
    const SornF2dRect fb = {(float)v[4], (float)v[5], (float)v[6], (float)v[7]};
    const SornR2dRect ra = {(double)v[0], (double)v[1], (double)v[2], (double)v[3]};
    const SornR2dRect rb = {(double)v[4], (double)v[5], (double)v[6], (double)v[7]};
    for (int op = 0; op < 2; ++op) {
      Sorn2dRect io;
      SornF2dRect fo;
      SornR2dRect ro;
      if (op == 0) {
        sorn_2d_rect_intersec(&io, &ia, &ib);
        sorn_f2d_rect_intersec(&fo, &fa, &fb);
        sorn_r2d_rect_intersec(&ro, &ra, &rb);
      } else {
        sorn_2d_rect_general(&io, &ia, &ib);
        sorn_f2d_rect_general(&fo, &fa, &fb);
        sorn_r2d_rect_general(&ro, &ra, &rb);
      }
      EXPECT_EQ(fo.x, io.x);
      EXPECT_EQ(fo.y, io.y);
      EXPECT_EQ(fo.width, io.width);
      EXPECT_EQ(fo.height, io.height);
      EXPECT_EQ(ro.x, io.x);
      EXPECT_EQ(ro.y, io.y);
      EXPECT_EQ(ro.width, io.width);
      EXPECT_EQ(ro.height, io.height);
    }
    SornMoment2 im, fm, rm;
    sorn_2d_rect_moment2(&im, &ia);
    sorn_f2d_rect_moment2(&fm, &fa);
    sorn_r2d_rect_moment2(&rm, &ra);
    EXPECT_EQ(im.m20, rm.m20);
    EXPECT_EQ(fm.m20, rm.m20);
    EXPECT_EQ(im.m02, rm.m02);
    EXPECT_EQ(fm.m02, rm.m02);
    EXPECT_EQ(im.m11, rm.m11);
    EXPECT_EQ(fm.m11, rm.m11);
  }
}

// m20 pairs with the second extent and m02 with the first, and the central
// ones are area moments (not divided by the area): the library's
// definition.
TEST(RectMoments, FromCornersAndFromOriginAndSize) {
  const Sorn2dRcpt c = {1, 2, 5, 8};  // centre (3, 5), extents 4 by 6
  SornR2dPt m1;
  EXPECT_EQ(sorn_2d_rcpt_moment1(&m1, &c), &m1);
  EXPECT_EQ(m1.x, 3.0);
  EXPECT_EQ(m1.y, 5.0);
  SornMoment2 m;
  EXPECT_EQ(sorn_2d_rcpt_moment2(&m, &c), &m);
  EXPECT_EQ(m.m20, 36.0 * 2.0 + 9.0);
  EXPECT_EQ(m.m11, 15.0);
  EXPECT_EQ(m.m02, 25.0 + 16.0 * 2.0);
  EXPECT_EQ(sorn_2d_rcpt_moment2_$c(&m, &c), &m);
  EXPECT_EQ(m.m20, 72.0);
  EXPECT_EQ(m.m11, 0.0);
  EXPECT_EQ(m.m02, 32.0);

  const Sorn2dRect r = {1, 2, 4, 6};
  sorn_2d_rect_moment1(&m1, &r);
  EXPECT_EQ(m1.x, 3.0);
  EXPECT_EQ(m1.y, 5.0);
  sorn_2d_rect_moment2(&m, &r);
  EXPECT_EQ(m.m20, 81.0);
  EXPECT_EQ(m.m11, 15.0);
  EXPECT_EQ(m.m02, 57.0);
  sorn_2d_rect_moment2_$c(&m, &r);
  EXPECT_EQ(m.m20, 72.0);
  EXPECT_EQ(m.m02, 32.0);

  const SornF2dRcpt fc = {1, 2, 5, 8};
  sorn_f2d_rcpt_moment2(&m, &fc);
  EXPECT_EQ(m.m20, 81.0);
  sorn_f2d_rcpt_moment1(&m1, &fc);
  EXPECT_EQ(m1.y, 5.0);
  sorn_f2d_rcpt_moment2_$c(&m, &fc);
  EXPECT_EQ(m.m02, 32.0);
  const SornR2dRcpt rc = {1, 2, 5, 8};
  sorn_r2d_rcpt_moment2(&m, &rc);
  EXPECT_EQ(m.m02, 57.0);
  sorn_r2d_rcpt_moment1(&m1, &rc);
  EXPECT_EQ(m1.x, 3.0);
  sorn_r2d_rcpt_moment2_$c(&m, &rc);
  EXPECT_EQ(m.m20, 72.0);
  const SornF2dRect fr = {1, 2, 4, 6};
  sorn_f2d_rect_moment1(&m1, &fr);
  EXPECT_EQ(m1.x, 3.0);
  sorn_f2d_rect_moment2_$c(&m, &fr);
  EXPECT_EQ(m.m20, 72.0);
  const SornR2dRect rr = {1, 2, 4, 6};
  sorn_r2d_rect_moment1(&m1, &rr);
  EXPECT_EQ(m1.y, 5.0);
  sorn_r2d_rect_moment2_$c(&m, &rr);
  EXPECT_EQ(m.m02, 32.0);
}

TEST(RectMoments, IntegerCornerSumIs32Bits) {
  const Sorn2dRcpt c = {INT32_MAX, 0, 1, 0};
  SornR2dPt m1;
  sorn_2d_rcpt_moment1(&m1, &c);
  EXPECT_EQ(m1.x, (double)INT32_MIN * 0.5);
}

TEST(RectMoments, SingleFamilySumsInF32ThenWidens) {
  const SornF2dRcpt c = {16777216.0f, 0.0f, 1.0f, 0.0f};  // 2^24 + 1 is no f32
  SornR2dPt m1;
  sorn_f2d_rcpt_moment1(&m1, &c);
  EXPECT_EQ(m1.x, 8388608.0);
  const SornF2dRect r = {16777216.0f, 0.0f, 1.0f, 0.0f};
  sorn_f2d_rect_moment1(&m1, &r);
  EXPECT_EQ(m1.x, (double)(16777216.0f + 0.5f));
  const SornR2dRcpt rc = {16777216.0, 0.0, 1.0, 0.0};
  sorn_r2d_rcpt_moment1(&m1, &rc);
  EXPECT_EQ(m1.x, 8388608.5);
}

TEST(RectCentroid, ComputedInF32) {
  const Sorn2dRcpt c = {1, 2, 4, 7};
  SornF2dPt p;
  EXPECT_EQ(sorn_2d_rcpt_centroid_$f(&p, &c), &p);
  EXPECT_EQ(p.x, 2.5f);
  EXPECT_EQ(p.y, 4.5f);
  const Sorn2dRect r = {1, 2, 3, 5};
  sorn_2d_rect_centroid_$f(&p, &r);
  EXPECT_EQ(p.x, 2.5f);
  EXPECT_EQ(p.y, 4.5f);
  const SornF2dRcpt fc = {16777216.0f, 0.0f, 2.0f, 1.0f};
  sorn_f2d_rcpt_centroid(&p, &fc);
  EXPECT_EQ(p.x, 8388609.0f);
  EXPECT_EQ(p.y, 0.5f);
  const SornF2dRect fr = {0.1f, 0.2f, 0.3f, 0.4f};
  sorn_f2d_rect_centroid(&p, &fr);
  EXPECT_EQ(p.x, 0.1f + 0.3f * 0.5f);
  EXPECT_EQ(p.y, 0.2f + 0.4f * 0.5f);
  // From integers the extent is widened to f32 before the halving.
  const Sorn2dRect big = {0, 0, 16777217, 1};
  sorn_2d_rect_centroid_$f(&p, &big);
  EXPECT_EQ(p.x, 8388608.0f);
}

TEST(RectExtend, WidensByLeftTopRightBottom) {
  const Sorn2dRect r = {10, 20, 30, 40};
  const int32_t border[4] = {1, 2, 3, 4};
  Sorn2dRect out;
  EXPECT_EQ(sorn_2d_rect_extend(&out, &r, border), &out);
  EXPECT_TRUE(same_cells(out, Sorn2dRect{9, 18, 34, 46}));
  Sorn2dRect in = r;
  EXPECT_EQ(sorn_2d_rect_extend_$I(&in, border), &in);
  EXPECT_TRUE(same_cells(in, out));
  Sorn2dRect nul = r;
  sorn_2d_rect_extend(&nul, nullptr, border);
  EXPECT_TRUE(same_cells(nul, out));
}

TEST(RectExtend, RextendAnswersWhetherTheLimitKeptTheWholeExtension) {
  const Sorn2dRect r = {10, 20, 30, 40};
  const int32_t border[4] = {1, 2, 3, 4};
  // A limit inside the extension: the larger cells win, out covers it all.
  const Sorn2dRect inner = {0, 0, 5, 5};
  Sorn2dRect out, ext;
  EXPECT_EQ(sorn_2d_rect_rextend(&out, &ext, &r, border, &inner), 1);
  EXPECT_TRUE(same_cells(ext, Sorn2dRect{9, 18, 34, 46}));
  Sorn2dRect expect;
  sorn_2d_rect_intersec(&expect, &ext, &inner);
  EXPECT_TRUE(same_cells(out, expect));
  // A limit whose origin lies further on shortens out below the extension.
  const Sorn2dRect shifted = {30, 40, 2, 2};
  EXPECT_EQ(sorn_2d_rect_rextend(&out, &ext, &r, border, &shifted), 0);
  EXPECT_TRUE(same_cells(out, Sorn2dRect{30, 40, 13, 24}));
}

TEST(RectExtend, SymmetricExtensionInsideAFrame) {
  const Sorn2dRect r = {10, 20, 30, 40};
  Sorn2dRect out;
  EXPECT_EQ(sorn_2d_rect_srextend(&out, &r, 2, 3, 100, 200), &out);
  // (8, 17, 34, 46) against (0, 0, 100, 200), cell by cell the larger.
  EXPECT_TRUE(same_cells(out, Sorn2dRect{8, 17, 92, 183}));
  Sorn2dRect in = r;
  sorn_2d_rect_srextend(&in, nullptr, 2, 3, 100, 200);
  EXPECT_TRUE(same_cells(in, out));
}

TEST(RectInside, BothEdgesBelongToTheRectangle) {
  const SornF2dRect f = {1.0f, 2.0f, 3.0f, 4.0f};
  const float fx[4] = {1, 1, 4, 4}, fy[4] = {2, 6, 6, 2};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(sorn_f2d_rect_inside2(&f, fx[i], fy[i]), 1) << i;
  EXPECT_EQ(sorn_f2d_rect_inside2(&f, 2.5f, 4.0f), 1);
  EXPECT_EQ(sorn_f2d_rect_inside2(&f, 0.99f, 4.0f), 0);
  EXPECT_EQ(sorn_f2d_rect_inside2(&f, 4.01f, 4.0f), 0);
  EXPECT_EQ(sorn_f2d_rect_inside2(&f, 2.0f, 6.01f), 0);
  EXPECT_EQ(sorn_f2d_rect_inside2(&f, 2.0f, 1.99f), 0);
  const SornR2dRect r = {1.0, 2.0, 3.0, 4.0};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(sorn_r2d_rect_inside2(&r, fx[i], fy[i]), 1) << i;
  EXPECT_EQ(sorn_r2d_rect_inside2(&r, 4.000001, 4.0), 0);
  EXPECT_EQ(sorn_r2d_rect_inside2(&r, 2.0, std::nan("")), 0);
}

}  // namespace

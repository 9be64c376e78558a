// The f form of the flooding: a result of plain region records threaded
// through the link array. Column 0 is never flooded, the seed moves one
// column right, a masked run takes one mask byte per row, and the root is
// the last region whatever its size. Random images are compared with a
// brute-force component tree built under those rules.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "f_run.h"
#include "testkit.h"
#include "watershed_ref.h"

using sorn_test::Image;
using sorn_test::make_record4;
using sorn_test::make_roi;

using f_run::FCase;
using f_run::FRun;

namespace {

constexpr SornFlags kF = 0x200000;

SornArray u8_record4(std::vector<uint8_t> &img, int rows, int cols) {
  return make_record4(img.data(), 1, rows, cols, 1, SORN_U8, rows * cols, cols);
}

int g_compared = 0;

void check_against_reference(const FRun &run, const FCase &fc) {
  int trim, sr, sc;
  if (!fc.locate(trim, sr, sc)) {
    EXPECT_EQ(run.res.root, nullptr);
    EXPECT_EQ(run.res.linkbase, nullptr) << "no inside pixel: nothing allocated";
    return;
  }
  ASSERT_NE(run.res.root, nullptr);
  std::vector<wts_ref::Node> ref = fc.reference(trim, sr, sc);
  wts_ref::Got got;
  run.collect(run.res.root, -1, got, (int64_t)fc.rows * fc.cols + 2 * fc.cols + 4);
  if (ref.size() >= 2) ++g_compared;
  wts_ref::expect_same(got, ref);
}

FCase random_case(std::mt19937_64 &rng, bool with_mask) {
  FCase fc;
  auto [rows, cols] = wts_ref::random_shape(rng);
  fc.rows = rows;
  fc.cols = cols;
  fc.img = wts_ref::random_levels(rng, rows, cols);
  if (rng() % 3) {
    fc.seedrow = (int)(rng() % rows);
    fc.seedcol = (int)(rng() % cols);
  }
  if (with_mask) {
    if (rng() & 1) fc.excl = 255;
    fc.mask.resize((size_t)rows * cols);
    int lead = rng() % 4 == 0 ? (int)(rng() % (rows + 1)) : 0;
    for (int r = 0; r < rows; ++r) {
      bool rowout = r < lead || rng() % 5 == 0;
      for (int c = 0; c < cols; ++c) {
        bool out = rowout ? rng() % 4 != 0 : rng() % 4 == 0;
        fc.mask[(size_t)r * cols + c] =
            out ? fc.excl : (uint8_t)(fc.excl == 0 ? 1 + rng() % 255 : rng() % 255);
      }
    }
  }
  return fc;
}

void run_random(std::mt19937_64 &rng, bool with_mask, int how) {
  FCase fc = random_case(rng, with_mask);
  FRun run;
  run.st.polarity = (uint16_t)(rng() % 3 == 0 ? 1 : 0);
  fc.pm = run.st.polarity == 1 ? 0xFF : 0;
  static const uint16_t shifts[] = {0, 0, 0, 1, 2, 5, 9, 0x102};
  run.st.shift = shifts[rng() % 8];
  fc.sh = std::min<uint32_t>(run.st.shift & 0xFFu, 8);
  run.st.connectivity = (uint16_t)(rng() % 2 ? 8 : 0);  // ignored by this form
  run.st.seed[1] = (uint32_t)fc.seedrow;
  run.st.seed[2] = (uint32_t)fc.seedcol;
  SornFlags flags = (rng() & 1) ? 0x200000 : 0x400000;
  if (fc.excl == 255) flags |= SORN_F_WTS_INVMASK;
  SCOPED_TRACE(testing::Message() << fc.rows << "x" << fc.cols << " seed " << fc.seedrow << ","
                                  << fc.seedcol << " mask " << with_mask << " shift "
                                  << run.st.shift << " pol " << run.st.polarity);

  SornStatus s;
  if (how == 0) {
    // Rank 4 through the public entries, in a padded buffer at an offset.
    const int oy = (int)(rng() % 3), ox = (int)(rng() % 3);
    Image im(fc.rows + oy + 1, fc.cols + ox + 1, 1, SORN_U8, (int)(rng() % 4));
    Image mk(fc.rows + oy + 1, fc.cols + ox + 1, 1, SORN_U8, 2);
    for (int r = 0; r < fc.rows; ++r)
      for (int c = 0; c < fc.cols; ++c) {
        im.at<uint8_t>(r + oy, c + ox) = fc.img[(size_t)r * fc.cols + c];
        if (with_mask) mk.at<uint8_t>(r + oy, c + ox) = fc.mask[(size_t)r * fc.cols + c];
      }
    SornArray a = make_record4(im.base(), 1, im.rows(), im.cols(), 1, SORN_U8,
                               im.rowstride() * im.rows(), im.rowstride());
    SornArray m = make_record4(mk.base(), 1, mk.rows(), mk.cols(), 1, SORN_U8,
                               mk.rowstride() * mk.rows(), mk.rowstride());
    SornVolume roi = make_roi(oy, ox, fc.rows, fc.cols, 1);
    s = SornWatershedEx(&run.xe, flags, &a, with_mask ? &m : nullptr, &roi, &roi, &run.st);
    EXPECT_TRUE(im.guards_intact());
  } else {
    // The layers below, on a dense image of rank 3: the vectors hold all
    // four cells and are given at the first of the three.
    const int32_t dims4[4] = {1, fc.rows, fc.cols, 1};
    const int32_t strides4[4] = {0, fc.cols, 1, 1};
    const int32_t origin4[4] = {0, 0, 0, 0};
    const int32_t *dims = dims4 + 1, *strides = strides4 + 1, *origin = origin4 + 1;
    if (with_mask)
      s = sorna_fwatershed_xm(&run.xe, flags, &run.st, SORN_DIMPACK(3), dims, SORN_U8,
                              fc.img.data(), origin, strides, SORN_U8, fc.mask.data(), origin,
                              strides);
    else
      s = sorna_fwatershed(&run.xe, flags, &run.st, SORN_DIMPACK(3), dims, SORN_U8,
                           fc.img.data(), origin, strides);
  }
  ASSERT_EQ(s, SORN_OK);
  check_against_reference(run, fc);
}

}  // namespace

/* ---------------- random images against the brute force ---------------- */

TEST(WatershedF, RandomImagesMatchTheComponentTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0311);
  g_compared = 0;
  for (int i = 0; i < 400; ++i) {
    run_random(rng, false, i & 1);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(g_compared, 150) << "too few trees of two nodes or more";
}

TEST(WatershedF, RandomMaskedImagesMatchTheComponentTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0312);
  g_compared = 0;
  for (int i = 0; i < 400; ++i) {
    run_random(rng, true, i & 1);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(g_compared, 80) << "too few trees of two nodes or more";
}

TEST(WatershedF, RunLinkingFloodingGivesTheSameTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0313);
  g_compared = 0;
  for (int i = 0; i < 200; ++i) {
    FCase fc = random_case(rng, false);
    FRun run;
    run.st.seed[1] = (uint32_t)fc.seedrow;
    run.st.seed[2] = (uint32_t)fc.seedcol;
    std::vector<uint8_t> img = fc.img;
    SornArray a = u8_record4(img, fc.rows, fc.cols);
    ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
    // Fill the working array again as the setup does and flood it with the
    // form that takes runs of a level in one go.
    uint32_t *W = run.res.links;
    const int C = fc.cols;
    std::memset(W - (C + 2), 0, sizeof(uint32_t) * (C + 2));
    for (int r = 0; r < fc.rows; ++r)
      for (int c = 0; c < C; ++c)
        W[r * C + c] = fc.img[(size_t)r * C + c] | (c ? 0x80000000u : 0u);
    std::memset(W + fc.rows * C, 0, sizeof(uint32_t) * (C + 2));
    run.res.root = nullptr;
    ASSERT_EQ(__T_sorna__fwatershed_c1_u8_00(fc.rows, C, fc.seedrow, fc.seedcol + 1, &run.xe,
                                             kF, &run.st),
              SORN_OK);
    check_against_reference(run, fc);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(g_compared, 80);
}

/* ---------------- edge cases ---------------- */

TEST(WatershedF, OnePixelFloodsTheBackPadAtLevelZero) {
  std::vector<uint8_t> img(1, 200);
  SornArray a = u8_record4(img, 1, 1);
  FRun run;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  EXPECT_EQ(run.res.root->size, 1u);
  EXPECT_EQ(run.res.root->level, 0);
  EXPECT_EQ(run.res.root->head, 1) << "the seed index lies behind the only pixel";
  EXPECT_EQ(run.res.links[1], (uint32_t)SORN_FWTSR_END);
  EXPECT_EQ(run.res.root->child, nullptr);
  EXPECT_EQ(run.res.links, run.res.linkbase + 3);
}

TEST(WatershedF, ColumnZeroIsNeverFlooded) {
  std::vector<uint8_t> img(4 * 5, 7);
  SornArray a = u8_record4(img, 4, 5);
  FRun run;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  EXPECT_EQ(run.res.root->size, 16u);
  EXPECT_EQ(run.res.root->level, 7);
  EXPECT_EQ(run.res.root->tail, 1) << "the seed (0, 0) is taken at (0, 1)";
  for (int64_t i = run.res.root->head; i != SORN_FWTSR_END; i = run.res.links[i])
    EXPECT_NE(i % 5, 0);
}

TEST(WatershedF, OneRowAndOneColumn) {
  // One row: every pixel but the first. One column: only where the seed
  // landed, on column 0 of the row below (or behind the image).
  std::vector<uint8_t> row = {9, 3, 3, 8, 1, 1, 2};
  SornArray a = u8_record4(row, 1, 7);
  FRun r1;
  ASSERT_EQ(SornWatershed(&r1.xe, kF, &a, nullptr, &r1.st), SORN_OK);
  ASSERT_NE(r1.res.root, nullptr);
  EXPECT_EQ(r1.res.root->size, 6u);
  EXPECT_EQ(r1.res.root->level, 8);

  std::vector<uint8_t> col = {4, 5, 6, 7};
  SornArray c = u8_record4(col, 4, 1);
  for (uint32_t s = 0; s < 4; ++s) {
    FRun r;
    r.st.seed[1] = s;
    ASSERT_EQ(SornWatershed(&r.xe, kF, &c, nullptr, &r.st), SORN_OK);
    ASSERT_NE(r.res.root, nullptr);
    EXPECT_EQ(r.res.root->size, 1u);
    EXPECT_EQ(r.res.root->head, (int32_t)s + 1);
    EXPECT_EQ(r.res.root->level, s + 1 < 4 ? col[s + 1] : 0);
  }
}

TEST(WatershedF, SeedInTheLastColumnStartsOnColumnZeroOfTheNextRow) {
  std::vector<uint8_t> img(3 * 4, 9);
  img[4] = 2;  // (1, 0), where the seed lands
  SornArray a = u8_record4(img, 3, 4);
  FRun run;
  run.st.seed[1] = 0;
  run.st.seed[2] = 3;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  EXPECT_EQ(run.res.root->size, 10u);
  EXPECT_EQ(run.res.root->level, 9);
  std::vector<int64_t> px;
  for (int64_t i = run.res.root->head; i != SORN_FWTSR_END; i = run.res.links[i]) px.push_back(i);
  EXPECT_NE(std::find(px.begin(), px.end(), 4), px.end());
  // Its west step wraps to the end of the row above.
  EXPECT_NE(std::find(px.begin(), px.end(), 3), px.end());

  // The last pixel's seed lands behind the image, at level 0.
  FRun last;
  last.st.seed[1] = 2;
  last.st.seed[2] = 3;
  ASSERT_EQ(SornWatershed(&last.xe, kF, &a, nullptr, &last.st), SORN_OK);
  ASSERT_NE(last.res.root, nullptr);
  EXPECT_EQ(last.res.root->size, 10u);
  EXPECT_EQ(last.res.root->level, 9);
  EXPECT_EQ(last.res.root->tail, 12);
}

TEST(WatershedF, EqualNeighboursArePushedNotDescendedTo) {
  std::vector<uint8_t> img(6 * 8, 20);
  for (int r = 2; r < 6; ++r)
    for (int c = 4; c < 8; ++c) img[(size_t)r * 8 + c] = 5;
  SornArray a = u8_record4(img, 6, 8);
  FRun run;
  run.st.seed[2] = 1;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  EXPECT_EQ(run.res.root->tail, 2) << "the first region opened at the seed itself";
  EXPECT_EQ(run.res.root->size, 6u * 7u);
  ASSERT_NE(run.res.root->child, nullptr);
  EXPECT_EQ(run.res.root->child->size, 16u);
  EXPECT_EQ(run.res.root->child->level, 5);
}

TEST(WatershedF, SmallSetsGoToTheRegionAbove) {
  // A basin of 15 pixels is absorbed; one of 16 is a child.
  for (int n : {15, 16}) {
    std::vector<uint8_t> img(6 * 9, 50);
    for (int i = 0; i < n; ++i) img[(size_t)(i / 5) * 9 + 1 + i % 5] = 10;
    SornArray a = u8_record4(img, 6, 9);
    FRun run;
    run.st.seed[1] = 5;
    run.st.seed[2] = 7;
    ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
    ASSERT_NE(run.res.root, nullptr);
    EXPECT_EQ(run.res.root->size, 48u);
    EXPECT_EQ(run.res.root->child != nullptr, n == 16) << n;
  }
}

TEST(WatershedF, MaskedRunsReadOneMaskBytePerRow) {
  const int rows = 6, cols = 7;
  std::vector<uint8_t> img(rows * cols, 30), mask(rows * cols, 1);
  // Row 2: only the seed's column is outside, so the whole row is out.
  mask[2 * cols + 3] = 0;
  // Row 4: everything but the seed's column is outside, so the row is in.
  for (int c = 0; c < cols; ++c)
    if (c != 3) mask[4 * cols + c] = 0;
  SornArray a = u8_record4(img, rows, cols), m = u8_record4(mask, rows, cols);
  FRun run;
  run.st.seed[1] = 0;
  run.st.seed[2] = 3;
  ASSERT_EQ(SornWatershedEx(&run.xe, kF, &a, &m, nullptr, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  // Rows 0 and 1 above the cut, columns 1 to 6.
  EXPECT_EQ(run.res.root->size, 12u);

  FRun below;
  below.st.seed[1] = 3;
  below.st.seed[2] = 3;
  ASSERT_EQ(SornWatershedEx(&below.xe, kF, &a, &m, nullptr, nullptr, &below.st), SORN_OK);
  ASSERT_NE(below.res.root, nullptr);
  EXPECT_EQ(below.res.root->size, 18u) << "rows 3, 4 and 5, row 4 by its one byte";
}

TEST(WatershedF, DefaultSeedTrimsRowsWhollyOutsideTheMask) {
  const int rows = 7, cols = 5;
  std::vector<uint8_t> img(rows * cols, 40), mask(rows * cols, 0);
  for (int i = 3 * cols + 2; i < rows * cols; ++i) mask[i] = 1;
  SornArray a = u8_record4(img, rows, cols), m = u8_record4(mask, rows, cols);
  FRun run;
  ASSERT_EQ(SornWatershedEx(&run.xe, kF, &a, &m, nullptr, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  // Seed found at (3, 2), rows 3 to 6 kept and counted from 0; the seed
  // moves to (0, 3).
  EXPECT_EQ(run.res.root->tail, 3);
  EXPECT_EQ(run.res.root->size, 16u);
  EXPECT_EQ(run.res.links, run.res.linkbase + cols + 2);

  FRun other;
  other.st.seed[1] = 1;
  ASSERT_EQ(SornWatershedEx(&other.xe, kF, &a, &m, nullptr, nullptr, &other.st), SORN_OK);
  ASSERT_NE(other.res.root, nullptr);
  EXPECT_EQ(other.res.root->tail, 3 * cols + 3) << "no rows dropped";
}

TEST(WatershedF, InvertedPolarityAndShiftMakeTheLevels) {
  std::vector<uint8_t> img(5 * 6, 0x37);
  SornArray a = u8_record4(img, 5, 6);
  FRun run;
  run.st.polarity = 1;
  run.st.shift = 0x0302;  // read as one byte: 2
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.res.root, nullptr);
  EXPECT_EQ(run.res.root->level, (0x37 ^ 0xFF) >> 2);
}

TEST(WatershedF, ALinkArrayAlreadySetIsUsedAsItStands) {
  auto rng = sorn_test::seeded_rng(0x5eed0314);
  FCase fc;
  fc.rows = 20;
  fc.cols = 23;
  fc.img = wts_ref::random_levels(rng, fc.rows, fc.cols);
  SornArray a = u8_record4(fc.img, fc.rows, fc.cols);
  FRun run;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  uint32_t *base = run.res.linkbase;
  ASSERT_EQ(SornWatershed(&run.xe, kF, &a, nullptr, &run.st), SORN_OK);
  EXPECT_EQ(run.res.linkbase, base);
  check_against_reference(run, fc);
}

TEST(WatershedF, SeveralPlanesStackAsRows) {
  auto rng = sorn_test::seeded_rng(0x5eed0315);
  FCase fc;
  fc.rows = 2 * 11;
  fc.cols = 17;
  fc.img = wts_ref::random_levels(rng, fc.rows, fc.cols);
  SornArray a = make_record4(fc.img.data(), 2, 11, 17, 1, SORN_U8, 11 * 17, 17);
  FRun run;
  ASSERT_EQ(SornWatershed(&run.xe, 0x400000, &a, nullptr, &run.st), SORN_OK);
  check_against_reference(run, fc);
}

/* ---------------- failures ---------------- */

TEST(WatershedFFailures, NoMemoryForTheLinkArray) {
  std::vector<uint8_t> img(4 * 4, 1);
  SornArray a = u8_record4(img, 4, 4);
  SornFWTSRES res{};  // no memory stack at all
  SornWTSState st{};
  st.builder = &res;
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  EXPECT_EQ(SornWatershed(&xe, kF, &a, nullptr, &st), SORN_ENOMEM);
  EXPECT_EQ(res.root, nullptr);
  EXPECT_EQ(res.linkbase, nullptr);
  EXPECT_EQ(res.links, nullptr);
  SornXEfini(&xe);
}

TEST(WatershedFFailures, TooManyPixels) {
  uint8_t byte = 0;
  FRun run;
  const int32_t dims[4] = {1, 0x4000, 0x2001, 1};
  const int32_t strides[4] = {0, 0x2001, 1, 1};
  const int32_t origin[4] = {0, 0, 0, 0};
  EXPECT_EQ(sorna_fwatershed(&run.xe, kF, &run.st, SORN_DIMPACK(3), dims + 1, SORN_U8, &byte,
                             origin + 1, strides + 1),
            SORN_EINVAL);
  EXPECT_EQ(run.res.linkbase, nullptr);
}

TEST(WatershedFFailures, DispatchAndMaskTypeFailures) {
  std::vector<uint8_t> store(4 * 4 * 8, 0);
  FRun run;
  SornArray s16 = make_record4(store.data(), 1, 4, 4, 1, SORN_S16, 32, 8);
  EXPECT_EQ(SornWatershed(&run.xe, kF, &s16, nullptr, &run.st), SORN_ENOTSUP);
  SornArray c3 = make_record4(store.data(), 1, 4, 4, 3, SORN_U8, 48, 12);
  EXPECT_EQ(SornWatershed(&run.xe, kF, &c3, nullptr, &run.st), SORN_ENOTSUP);
  SornArray u8 = make_record4(store.data(), 1, 4, 4, 1, SORN_U8, 16, 4);
  SornArray ms = make_record4(store.data(), 1, 4, 4, 1, SORN_S16, 32, 8);
  EXPECT_EQ(SornWatershedEx(&run.xe, kF, &u8, &ms, nullptr, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(run.res.linkbase, nullptr);
  SornWTSState nobody{};
  EXPECT_EQ(SornWatershed(&run.xe, kF, &u8, nullptr, &nobody), SORN_EINVAL);
  SornVolume empty = make_roi(0, 0, 0, 4, 1);
  EXPECT_EQ(SornWatershed(&run.xe, kF, &u8, &empty, &run.st), SORN_ENOSPC);
  run.st.seed[2] = 4;
  EXPECT_EQ(SornWatershed(&run.xe, kF, &u8, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(run.res.linkbase, nullptr);
}

TEST(WatershedFFailures, MaskExcludingEveryPixelBuildsNothing) {
  std::vector<uint8_t> img(5 * 5, 1), mask(5 * 5, 255);
  SornArray a = u8_record4(img, 5, 5), m = u8_record4(mask, 5, 5);
  for (uint32_t s : {0u, 2u}) {
    FRun run;
    run.st.seed[1] = s;
    EXPECT_EQ(SornWatershedEx(&run.xe, kF | SORN_F_WTS_INVMASK, &a, &m, nullptr, nullptr, &run.st),
              SORN_OK);
    EXPECT_EQ(run.res.root, nullptr);
    EXPECT_EQ(run.res.linkbase, nullptr);
  }
}

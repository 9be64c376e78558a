// The plain flooding: entry checks and failures, the edge cases of its
// small regions and guards, and random images against a brute-force
// component tree (sets under 16 pixels are no nodes; the root exists only
// when something merged), with every call the flooding makes of its builder
// logged and held to the rules of the chain.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "plain_run.h"
#include "testkit.h"
#include "watershed_ref.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

using plain_run::PlainCase;
using plain_run::PlainRun;

bool same_mark(const KuMark &a, const KuMark &b) {
  return a.w[0] == b.w[0] && a.w[1] == b.w[1] && a.w[2] == b.w[2];
}

SornArray u8_record(std::vector<uint8_t> &img, int rows, int cols) {
  return make_record(img.data(), rows, cols, 1, SORN_U8, cols);
}

// Runs one random case through the public entries in a padded buffer with an
// ROI away from the origin.
int g_compared = 0;  // cases with a tree of two nodes or more

void run_random_case(std::mt19937_64 &rng, bool with_mask, bool rank4) {
  auto [rows, cols] = wts_ref::random_shape(rng);
  PlainCase pc;
  pc.rows = rows;
  pc.cols = cols;
  pc.img = wts_ref::random_levels(rng, rows, cols);
  const int oy = (int)(rng() % 3), ox = (int)(rng() % 3);
  Image im(rows + oy + 1, cols + ox + 2, 1, SORN_U8, (int)(rng() % 5));
  for (int r = 0; r < im.rows(); ++r)
    for (int c = 0; c < im.cols(); ++c) im.at<uint8_t>(r, c) = (uint8_t)(rng() & 0xff);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) im.at<uint8_t>(r + oy, c + ox) = pc.img[(size_t)r * cols + c];
  Image mk(rows + oy + 1, cols + ox + 2, 1, SORN_U8, 3);
  SornFlags flags = 0;
  if (with_mask) {
    if (rng() & 1) {
      flags |= SORN_F_WTS_INVMASK;
      pc.excl = 255;
    }
    pc.mask.resize((size_t)rows * cols);
    // Blocks of outside pixels, now and then whole leading rows.
    int lead = rng() % 4 == 0 ? (int)(rng() % (rows + 1)) : 0;
    int bh = 1 + (int)(rng() % 6), bw = 1 + (int)(rng() % 6);
    std::vector<uint8_t> coarse((size_t)(rows / bh + 1) * (cols / bw + 1));
    for (auto &v : coarse) v = rng() % 4 == 0;
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        bool out = r < lead || coarse[(size_t)(r / bh) * (cols / bw + 1) + c / bw];
        uint8_t v = out ? pc.excl : (uint8_t)(pc.excl == 0 ? 1 + rng() % 255 : rng() % 255);
        pc.mask[(size_t)r * cols + c] = v;
        mk.at<uint8_t>(r + oy, c + ox) = v;
      }
  }
  PlainRun run;
  run.st.polarity = (uint16_t)(rng() % 3 == 0 ? 1 : (rng() % 2 ? 0 : 7));
  pc.pm = run.st.polarity == 1 ? 0xFF : 0;
  run.st.connectivity = (uint16_t)(rng() % 2 ? 0 : 1 + rng() % 8);
  pc.eight = run.st.connectivity != 0;
  if (rng() % 3) {
    pc.seedrow = (int)(rng() % rows);
    pc.seedcol = (int)(rng() % cols);
  }
  run.st.seed[1] = (uint32_t)pc.seedrow;
  run.st.seed[2] = (uint32_t)pc.seedcol;

  SornStatus s;
  if (rank4) {
    SornArray a = make_record4(im.base(), 1, im.rows(), im.cols(), 1, SORN_U8,
                               im.rowstride() * im.rows(), im.rowstride());
    SornArray m = make_record4(mk.base(), 1, mk.rows(), mk.cols(), 1, SORN_U8,
                               mk.rowstride() * mk.rows(), mk.rowstride());
    SornVolume roi = make_roi(oy, ox, rows, cols, 1);
    s = SornWatershedEx(&run.xe, flags, &a, with_mask ? &m : nullptr, &roi, &roi, &run.st);
  } else {
    SornArray a = im.record(), m = mk.record();
    SornVolume roi = make_roi(oy, ox, rows, cols, 1);
    s = with_mask ? SornWatershedEx(&run.xe, flags, &a, &m, &roi, &roi, &run.st)
                  : SornWatershed(&run.xe, flags, &a, &roi, &run.st);
  }
  ASSERT_EQ(s, SORN_OK);
  ASSERT_TRUE(im.guards_intact());

  int trim, sr, sc;
  if (!pc.locate(trim, sr, sc)) {
    EXPECT_EQ(run.root(), nullptr);
    EXPECT_EQ(run.b->userdata, nullptr) << "a run with no inside pixel starts nothing";
    return;
  }
  const wts_ref::Graph g = pc.graph(trim, sr, sc);
  std::vector<wts_ref::Node> ref = wts_ref::component_tree(g, 16, false);
  SCOPED_TRACE(testing::Message() << rows << "x" << cols << " seed " << pc.seedrow << ","
                                  << pc.seedcol << " mask " << with_mask << " conn "
                                  << run.st.connectivity << " pol " << run.st.polarity);
  plain_run::check_calls(run.log, pc.flooded(g, trim), ref.size() < 2 ? 0 : ref.size());
  if (ref.size() < 2) {
    EXPECT_EQ(run.root(), nullptr);
    return;
  }
  ASSERT_NE(run.root(), nullptr);
  ++g_compared;
  wts_ref::Got got;
  std::vector<uint32_t> pivots;
  run.collect(run.root(), -1, got, cols, pivots);
  wts_ref::expect_same(got, ref);
  for (size_t i = 0; i < got.nodes.size(); ++i) {
    EXPECT_TRUE(std::binary_search(got.nodes[i].pixels.begin(), got.nodes[i].pixels.end(),
                                   (int64_t)pivots[i]));
    EXPECT_EQ((int)(pc.img[(size_t)pivots[i] + (size_t)trim * cols] ^ pc.pm), got.nodes[i].level);
  }
}

}  // namespace

/* ---------------- random images against the brute force ---------------- */

TEST(WatershedPlain, RandomImagesMatchTheComponentTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0301);
  g_compared = 0;
  for (int i = 0; i < 300; ++i) {
    run_random_case(rng, false, false);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(g_compared, 120) << "too few trees with a root to compare";
}

TEST(WatershedPlain, RandomMaskedImagesMatchTheComponentTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0302);
  g_compared = 0;
  for (int i = 0; i < 300; ++i) {
    run_random_case(rng, true, false);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(g_compared, 100) << "too few trees with a root to compare";
}

TEST(WatershedPlain, RankFourTakesThePlainPathWithoutFlags) {
  auto rng = sorn_test::seeded_rng(0x5eed0303);
  for (int i = 0; i < 100; ++i) {
    run_random_case(rng, (i & 1) != 0, true);
    if (HasFatalFailure()) return;
  }
}

/* ---------------- edge cases ---------------- */

TEST(WatershedPlain, EmptyRoiAnswersNoSpaceBeforeAnyAllocation) {
  std::vector<uint8_t> img(16, 3);
  SornArray a = u8_record(img, 4, 4);
  PlainRun run;
  KuMark before = run.mark();
  SornVolume roi = make_roi(1, 1, 0, 2, 1);
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, &roi, &run.st), SORN_ENOSPC);
  SornVolume off = make_roi(9, 9, 2, 2, 1);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &a, &off, &off, &run.st), SORN_ENOSPC);
  EXPECT_TRUE(same_mark(before, run.mark()));
  EXPECT_EQ(run.b->userdata, nullptr);
}

TEST(WatershedPlain, OneValueImageLeavesTheTreeWithoutRoot) {
  std::vector<uint8_t> img(40 * 30, 77);
  SornArray a = u8_record(img, 40, 30);
  PlainRun run;
  KuMark before = run.mark();
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  EXPECT_EQ(run.root(), nullptr);
  EXPECT_NE(run.b->userdata, nullptr) << "start ran";
  EXPECT_TRUE(same_mark(before, run.mark()));
}

TEST(WatershedPlain, OnePixelReachesTheBuilderOnlyThroughStartAndFinish) {
  std::vector<uint8_t> img(1, 9);
  SornArray a = u8_record(img, 1, 1);
  PlainRun run;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  EXPECT_EQ(run.b->tree, nullptr) << "no merge, so no tree was ever attached";
  EXPECT_NE(run.b->userdata, nullptr);
  // Start, the bottom region, finish: the pixel stays in the small region.
  using plain_run::Call;
  ASSERT_EQ(run.log.calls.size(), 3u);
  EXPECT_EQ(run.log.calls[0].kind, Call::kStart);
  EXPECT_EQ(run.log.calls[1].kind, Call::kNewRegion);
  EXPECT_EQ(run.log.calls[1].b, nullptr);
  EXPECT_EQ(run.log.calls[2].kind, Call::kFinish);
}

TEST(WatershedPlain, FifteenPixelsNeverBecomeANode) {
  // A basin of 15 pixels in a plain of 30: only the plain is a region, and
  // nothing merges.
  std::vector<uint8_t> img(5 * 9, 50);
  for (int c = 0; c < 5; ++c)
    for (int r = 0; r < 3; ++r) img[(size_t)r * 9 + c] = 10;
  SornArray a = u8_record(img, 5, 9);
  PlainRun run;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  EXPECT_EQ(run.root(), nullptr);

  // Sixteen make a node, and the plain above it merges it.
  img[(size_t)3 * 9 + 0] = 10;
  PlainRun run2;
  EXPECT_EQ(SornWatershed(&run2.xe, 0, &a, nullptr, &run2.st), SORN_OK);
  ASSERT_NE(run2.root(), nullptr);
  SornWTSRegion *top = PlainRun::region(run2.root());
  EXPECT_EQ(top->size, 45u);
  EXPECT_EQ(top->pivotval, 50u);
  ASSERT_NE(run2.root()->child, nullptr);
  EXPECT_EQ(PlainRun::region(run2.root()->child)->size, 16u);
  EXPECT_EQ(PlainRun::region(run2.root()->child)->pivotval, 10u);
  EXPECT_EQ(run2.root()->child->next, nullptr);
}

TEST(WatershedPlain, SmallRegionsTakeTheirLevelAlongWhenRaised) {
  // Levels 1, 2, 3 of 5 pixels each in a row, then 20 at level 4: the three
  // small sets rise together and their points reach the plain's region.
  std::vector<uint8_t> img;
  for (int v = 1; v <= 3; ++v) img.insert(img.end(), 5, (uint8_t)v);
  img.insert(img.end(), 20, 4);
  SornArray a = u8_record(img, 1, (int)img.size());
  PlainRun run;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  EXPECT_EQ(run.root(), nullptr) << "a small region that grows up merges nothing";

  // With a level-0 run of 16 in front, the others become its ancestors.
  std::vector<uint8_t> img2(16, 0);
  img2.insert(img2.end(), img.begin(), img.end());
  SornArray a2 = u8_record(img2, 1, (int)img2.size());
  PlainRun run2;
  EXPECT_EQ(SornWatershed(&run2.xe, 0, &a2, nullptr, &run2.st), SORN_OK);
  ASSERT_NE(run2.root(), nullptr);
  std::vector<uint32_t> levels;
  for (SornAGTnode *n = run2.root(); n; n = n->child) levels.push_back(PlainRun::region(n)->pivotval);
  EXPECT_EQ(levels, (std::vector<uint32_t>{4, 3, 2, 1, 0}));
}

TEST(WatershedPlain, OneRowAndOneColumnStayInsideTheirRoi) {
  auto rng = sorn_test::seeded_rng(0x5eed0304);
  int compared = 0;
  for (int t = 0; t < 80; ++t) {
    const bool column = t & 1;
    const int len = 17 + (int)(rng() % 60);
    // A large buffer whose pixels outside the ROI are all lower, which any
    // step out of the ROI would find first.
    Image im(column ? len + 4 : 5, column ? 5 : len + 4, 1, SORN_U8);
    // Three levels, pixel by pixel or in runs long enough to make nodes.
    std::vector<uint8_t> line(len);
    const bool runs = (t & 2) != 0;
    for (int i = 0; i < len;) {
      const int run = runs ? 1 + (int)(rng() % 24) : 1;
      const uint8_t v = (uint8_t)(100 + rng() % 3);
      for (int k = 0; k < run && i < len; ++k) line[i++] = v;
    }
    for (int i = 0; i < len; ++i) {
      if (column)
        im.at<uint8_t>(2 + i, 2) = line[i];
      else
        im.at<uint8_t>(2, 2 + i) = line[i];
    }
    SornArray a = im.record();
    SornVolume roi = column ? make_roi(2, 2, len, 1, 1) : make_roi(2, 2, 1, len, 1);
    PlainRun run;
    run.st.connectivity = (uint16_t)(t & 4 ? 8 : 0);
    PlainCase pc;
    pc.rows = column ? len : 1;
    pc.cols = column ? 1 : len;
    pc.img = line;
    pc.eight = run.st.connectivity != 0;
    pc.seedrow = column ? (int)(rng() % len) : 0;
    pc.seedcol = column ? 0 : (int)(rng() % len);
    run.st.seed[1] = (uint32_t)pc.seedrow;
    run.st.seed[2] = (uint32_t)pc.seedcol;
    SCOPED_TRACE(testing::Message() << (column ? "column" : "row") << " of " << len << ", seed "
                                    << pc.seedrow << "," << pc.seedcol);
    ASSERT_EQ(SornWatershed(&run.xe, 0, &a, &roi, &run.st), SORN_OK);
    const wts_ref::Graph g = pc.graph(0, pc.seedrow, pc.seedcol);
    ASSERT_EQ(g.ids.size(), (size_t)len) << "the whole line is reachable, nothing more";
    const std::vector<wts_ref::Node> ref = wts_ref::component_tree(g, 16, false);
    plain_run::check_calls(run.log, pc.flooded(g, 0), ref.size() < 2 ? 0 : ref.size());
    if (ref.size() < 2) {
      EXPECT_EQ(run.root(), nullptr) << "nothing merged";
      continue;
    }
    ASSERT_NE(run.root(), nullptr);
    ++compared;
    wts_ref::Got got;
    std::vector<uint32_t> pivots;
    run.collect(run.root(), -1, got, pc.cols, pivots);
    wts_ref::expect_same(got, ref);
    EXPECT_EQ(PlainRun::region(run.root())->size, (uint32_t)len);
  }
  EXPECT_GT(compared, 20) << "too few lines with a tree";
}

TEST(WatershedPlain, EqualNeighboursArePushedNotDescendedTo) {
  // A plateau at the seed's level and a lower basin: the basin's region
  // starts at its own first pixel, and the plateau's region keeps the seed
  // as its pivot, since no equal neighbour ever opened a region.
  std::vector<uint8_t> img(6 * 8, 20);
  for (int r = 2; r < 6; ++r)
    for (int c = 4; c < 8; ++c) img[(size_t)r * 8 + c] = 5;
  SornArray a = u8_record(img, 6, 8);
  PlainRun run;
  run.st.seed[1] = 0;
  run.st.seed[2] = 1;
  ASSERT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.root(), nullptr);
  EXPECT_EQ(PlainRun::region(run.root())->pivot, 1u);
  EXPECT_EQ(PlainRun::region(run.root())->size, 48u);
  EXPECT_EQ(PlainRun::region(run.root()->child)->pivotval, 5u);
}

TEST(WatershedPlain, DefaultSeedTrimsRowsWhollyOutsideTheMask) {
  std::vector<uint8_t> img(8 * 6), mask(8 * 6, 0);
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 6; ++c) img[(size_t)r * 6 + c] = (uint8_t)(r < 6 ? 30 : 90);
  for (int r = 3; r < 8; ++r)
    for (int c = 0; c < 6; ++c) mask[(size_t)r * 6 + c] = 1;
  mask[(size_t)3 * 6 + 0] = 0;  // the seed found is (3, 1)
  SornArray a = u8_record(img, 8, 6), m = u8_record(mask, 8, 6);
  PlainRun run;
  ASSERT_EQ(SornWatershedEx(&run.xe, 0, &a, &m, nullptr, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.root(), nullptr);
  EXPECT_EQ(PlainRun::region(run.root())->size, 29u);
  int minrow = 99, maxrow = -1;
  std::vector<SornAGTnode *> todo{run.root()};
  while (!todo.empty()) {
    SornAGTnode *n = todo.back();
    todo.pop_back();
    for (auto &p : run.own(n)) {
      minrow = std::min(minrow, p.first);
      maxrow = std::max(maxrow, p.first);
    }
    for (SornAGTnode *c = n->child; c; c = c->next) todo.push_back(c);
  }
  EXPECT_EQ(minrow, 0);
  EXPECT_EQ(maxrow, 4);
  EXPECT_EQ(run.lsc.dims[1], 5u) << "the layout sees the trimmed image";

  // Any other seed keeps the rows as they are.
  PlainRun run2;
  run2.st.seed[1] = 1;
  run2.st.seed[2] = 2;
  ASSERT_EQ(SornWatershedEx(&run2.xe, 0, &a, &m, nullptr, nullptr, &run2.st), SORN_OK);
  ASSERT_NE(run2.root(), nullptr);
  EXPECT_EQ(PlainRun::region(run2.root())->size, 29u);
  EXPECT_EQ(run2.lsc.dims[1], 8u);
  EXPECT_GE(PlainRun::region(run2.root())->pivot / 6, 6u) << "rows count from the top";
}

TEST(WatershedPlain, SeedSearchWrapsForAnotherSeedOnly) {
  std::vector<uint8_t> img(4 * 5, 1), mask(4 * 5, 0);
  mask[(size_t)1 * 5 + 1] = 9;  // the only inside pixel, before the seed
  SornArray a = u8_record(img, 4, 5), m = u8_record(mask, 4, 5);
  PlainRun run;
  run.st.seed[1] = 2;
  run.st.seed[2] = 3;
  ASSERT_EQ(SornWatershedEx(&run.xe, 0, &a, &m, nullptr, nullptr, &run.st), SORN_OK);
  EXPECT_NE(run.b->userdata, nullptr) << "found after wrapping, the run started";
}

TEST(WatershedPlain, InverseMaskSkipsOnly255) {
  std::vector<uint8_t> img(4 * 5), mask(4 * 5, 0);
  for (size_t i = 0; i < img.size(); ++i) img[i] = (uint8_t)(i < 10 ? 3 : 8);
  mask[0] = 255;
  SornArray a = u8_record(img, 4, 5), m = u8_record(mask, 4, 5);
  PlainRun run;
  ASSERT_EQ(SornWatershedEx(&run.xe, SORN_F_WTS_INVMASK, &a, &m, nullptr, nullptr, &run.st),
            SORN_OK);
  EXPECT_EQ(run.root(), nullptr) << "a set of 9 then 19: one region, no merge";
  EXPECT_NE(run.b->userdata, nullptr);
}

TEST(WatershedPlain, InvertedPolarityMatchesCountsAndRestoresLevels) {
  // A bright basin in a dark plain: inverted, the bright pixels are low.
  std::vector<uint8_t> img(10 * 10, 10);
  for (int r = 0; r < 5; ++r)
    for (int c = 0; c < 5; ++c) img[(size_t)r * 10 + c] = 250;
  SornArray a = u8_record(img, 10, 10);
  PlainRun run;
  run.st.polarity = 1;
  ASSERT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
  ASSERT_NE(run.root(), nullptr);
  EXPECT_EQ(PlainRun::region(run.root())->pivotval, 255u - 10u);
  EXPECT_EQ(PlainRun::region(run.root()->child)->pivotval, 255u - 250u);
  EXPECT_EQ(PlainRun::region(run.root()->child)->size, 25u);

  PlainRun run2;
  run2.st.polarity = 1;
  run2.st.restore = 1;
  ASSERT_EQ(SornWatershed(&run2.xe, 0, &a, nullptr, &run2.st), SORN_OK);
  ASSERT_NE(run2.root(), nullptr);
  EXPECT_EQ(PlainRun::region(run2.root())->pivotval, 10u);
  EXPECT_EQ(PlainRun::region(run2.root()->child)->pivotval, 250u);
}

TEST(WatershedPlain, EagerMergesGiveCompleteMomentsAtTheRoot) {
  auto rng = sorn_test::seeded_rng(0x5eed0305);
  std::vector<uint8_t> img = wts_ref::random_levels(rng, 30, 33);
  SornArray a = u8_record(img, 30, 33);
  SornSTB *b = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
  SornWTSFeatureDs ds;
  SornWTSMFinitFeatureDs(&ds, nullptr);
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, &ds, 1, 0, 0, 0);
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  SornWTSState st{};
  st.builder = b;
  st.lsc = &lsc;
  ASSERT_EQ(SornWatershed(&xe, 0x100000, &a, nullptr, &st), SORN_OK);
  if (b->tree && b->tree->root) {
    SornWTSRegion *r = static_cast<SornWTSRegion *>(b->tree->root->data);
    const SornWTSMF *mf = reinterpret_cast<const SornWTSMF *>(reinterpret_cast<char *>(r) + ds.offset);
    double sr = 0, sc = 0;
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 33; ++x) sr += y, sc += x;
    EXPECT_EQ(r->size, 990u);
    EXPECT_DOUBLE_EQ(mf->sr, sr);
    EXPECT_DOUBLE_EQ(mf->sc, sc);
  }
  SornSTBclose(b, 0);
  SornXEfini(&xe);
}

TEST(WatershedPlain, PlanesOfRankFourAreStackedAsRows) {
  auto rng = sorn_test::seeded_rng(0x5eed0306);
  const int planes = 2, rows = 9, cols = 13;
  std::vector<uint8_t> img = wts_ref::random_levels(rng, planes * rows, cols);
  SornArray a4 = make_record4(img.data(), planes, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornArray a3 = u8_record(img, planes * rows, cols);
  PlainRun r4, r3;
  ASSERT_EQ(SornWatershed(&r4.xe, 0, &a4, nullptr, &r4.st), SORN_OK);
  ASSERT_EQ(SornWatershed(&r3.xe, 0, &a3, nullptr, &r3.st), SORN_OK);
  ASSERT_EQ(r4.root() == nullptr, r3.root() == nullptr);
  if (r4.root()) {
    wts_ref::Got g4, g3;
    std::vector<uint32_t> p4, p3;
    r4.collect(r4.root(), -1, g4, cols, p4);
    r3.collect(r3.root(), -1, g3, cols, p3);
    ASSERT_EQ(g4.nodes.size(), g3.nodes.size());
    for (size_t i = 0; i < g4.nodes.size(); ++i) EXPECT_EQ(g4.nodes[i].pixels, g3.nodes[i].pixels);
  }
  // Planes with a gap between them can't be merged: the first plane alone.
  std::vector<uint8_t> gap((size_t)2 * (rows * cols + 7), 0);
  for (int p = 0; p < 2; ++p)
    std::memcpy(gap.data() + (size_t)p * (rows * cols + 7), img.data() + (size_t)p * rows * cols,
                (size_t)rows * cols);
  SornArray g = make_record4(gap.data(), 2, rows, cols, 1, SORN_U8, rows * cols + 7, cols);
  SornArray first = u8_record(img, rows, cols);
  PlainRun rg, rf;
  ASSERT_EQ(SornWatershed(&rg.xe, 0, &g, nullptr, &rg.st), SORN_OK);
  ASSERT_EQ(SornWatershed(&rf.xe, 0, &first, nullptr, &rf.st), SORN_OK);
  ASSERT_EQ(rg.root() == nullptr, rf.root() == nullptr);
  if (rg.root()) {
    EXPECT_EQ(PlainRun::region(rg.root())->size, (uint32_t)(rows * cols));
  }
}

TEST(WatershedPlain, ScratchIsBackAtItsMarkAfterEveryRun) {
  auto rng = sorn_test::seeded_rng(0x5eed0307);
  PlainRun run;
  KuMark before = run.mark();
  for (int i = 0; i < 10; ++i) {
    std::vector<uint8_t> img = wts_ref::random_levels(rng, 37, 29);
    SornArray a = u8_record(img, 37, 29);
    SornSTBclear(run.b, 0);
    ASSERT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_OK);
    EXPECT_TRUE(same_mark(before, run.mark()));
  }
}

/* ---------------- failures ---------------- */

TEST(WatershedPlainFailures, BadRecordsAreInvalid) {
  std::vector<uint8_t> img(16, 1);
  SornArray a = u8_record(img, 4, 4);
  PlainRun run;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(SornWatershed(&run.xe, 0, nullptr, nullptr, &run.st), SORN_EINVAL);
  SornArray r2 = a;
  r2.ndims = 2;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &r2, nullptr, &run.st), SORN_EINVAL);
  SornArray r5 = a;
  r5.ndims = 5;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &r5, nullptr, &run.st), SORN_EINVAL);
  SornArray d0 = a;
  d0.dims[0] = 0;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &d0, nullptr, &run.st), SORN_EINVAL);
  SornArray c0 = a;
  c0.dims[3] = 0;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &c0, nullptr, &run.st), SORN_EINVAL);
  SornArray c5 = a;
  c5.dims[3] = 5;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &c5, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(run.b->userdata, nullptr);
}

TEST(WatershedPlainFailures, WideElementsAndChannelsAreNotSupported) {
  std::vector<uint8_t> store(64 * 8, 0);
  PlainRun run;
  for (uint32_t t : {SORN_S16, SORN_S32, SORN_F32, SORN_F64}) {
    SornArray a = make_record(store.data(), 4, 4, 1, t, 4 * SORN_ELEMSIZE(t));
    EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_ENOTSUP) << t;
  }
  for (int32_t ch : {2, 3, 4}) {
    SornArray a = make_record(store.data(), 4, 4, ch, SORN_U8, 4 * ch);
    EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_ENOTSUP) << ch;
  }
  SornArray odd = make_record(store.data(), 4, 4, 1, SORN_U8, 12);
  odd.strides[3] = 3;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &odd, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(run.b->userdata, nullptr);
}

TEST(WatershedPlainFailures, BuilderWithoutTheFloodingBlockIsInvalid) {
  static const SornSTBstbl only_stbl[2] = {
      {{SORN_STB_TAG_STBL, sizeof(SornSTBstbl)}, nullptr, nullptr, nullptr}, {}};
  SornSTB b{};
  SornSTBinit(&b, &only_stbl[0].hdr, 0, nullptr, nullptr, nullptr);
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, nullptr, 0, 0, 0, 0);
  SornWTSState st{};
  st.builder = &b;
  st.lsc = &lsc;
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  KuMark before, after;
  SornXEgetmmsp(&xe, &before);
  std::vector<uint8_t> img(30 * 30, 4);
  SornArray a = u8_record(img, 30, 30);
  EXPECT_EQ(SornWatershed(&xe, 0, &a, nullptr, &st), SORN_EINVAL);
  SornXEgetmmsp(&xe, &after);
  EXPECT_TRUE(same_mark(before, after));
  SornSTBfini(&b, 0);
  SornXEfini(&xe);
}

TEST(WatershedPlainFailures, MaskChecks) {
  std::vector<uint8_t> img(16, 1), mask(16 * 2, 1);
  SornArray a = u8_record(img, 4, 4);
  PlainRun run;
  SornArray m2 = u8_record(mask, 4, 4);
  m2.dims[3] = 2;
  m2.strides[2] = 2;
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &m2, nullptr, nullptr, &run.st), SORN_EINVAL);
  SornArray m4 = make_record4(mask.data(), 1, 4, 4, 1, SORN_U8, 16, 4);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &m4, nullptr, nullptr, &run.st), SORN_EINVAL)
      << "a mask of higher rank than its image";
  SornArray a4 = make_record4(img.data(), 1, 4, 4, 1, SORN_U8, 16, 4);
  SornArray md = make_record4(mask.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  SornArray a42 = make_record4(img.data(), 3, 4, 4, 1, SORN_U8, 0, 4);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a42, &md, nullptr, nullptr, &run.st), SORN_EINVAL)
      << "outer extents 3 and 2";
  SornArray ms = make_record(mask.data(), 4, 4, 1, SORN_S16, 8);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &ms, nullptr, nullptr, &run.st), SORN_EINVAL);
  SornArray ms4 = make_record4(mask.data(), 1, 4, 4, 1, SORN_S16, 32, 8);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a4, &ms4, nullptr, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &m2, nullptr, nullptr, nullptr), SORN_EINVAL);
  EXPECT_EQ(run.b->userdata, nullptr);
  // A rank-3 mask under a rank-4 image is fine.
  SornArray m3 = u8_record(mask, 4, 4);
  EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a4, &m3, nullptr, nullptr, &run.st), SORN_OK);
}

TEST(WatershedPlainFailures, MaskExcludingEveryPixelBuildsNothing) {
  std::vector<uint8_t> img(5 * 5, 1), mask(5 * 5, 0);
  SornArray a = u8_record(img, 5, 5), m = u8_record(mask, 5, 5);
  for (uint32_t sr : {0u, 3u}) {
    PlainRun run;
    run.st.seed[1] = sr;
    run.st.seed[2] = sr;
    KuMark before = run.mark();
    EXPECT_EQ(SornWatershedEx(&run.xe, 0, &a, &m, nullptr, nullptr, &run.st), SORN_OK);
    EXPECT_EQ(run.b->userdata, nullptr);
    EXPECT_EQ(run.b->tree, nullptr);
    EXPECT_TRUE(same_mark(before, run.mark()));
  }
}

TEST(WatershedPlainFailures, SeedOutsideTheImageIsInvalid) {
  std::vector<uint8_t> img(5 * 5, 1);
  SornArray a = u8_record(img, 5, 5);
  PlainRun run;
  run.st.seed[1] = 5;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_EINVAL);
  run.st.seed[1] = 0;
  run.st.seed[2] = 7;
  EXPECT_EQ(SornWatershed(&run.xe, 0, &a, nullptr, &run.st), SORN_EINVAL);
  EXPECT_EQ(run.b->userdata, nullptr);
}

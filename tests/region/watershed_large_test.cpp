// Large images. From 2^18 pixels on, the f-form flooding keeps a shadow of
// its level lists in scratch, which names the pixels it will take up some
// pops ahead so that their rows can be prefetched. The shadow may change
// nothing: with it and without it (its scratch request failed) the link
// array and the tree are the same word for word, and both are the
// brute-force component tree. The plain flooding, which fetches ahead from
// its level stacks at every size, is held to the brute-force tree at this
// size too, with every call it makes of its builder.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>
#include <random>
#include <vector>

#include <alloc_failure.h>
#include "f_run.h"
#include "plain_run.h"
#include "testkit.h"
#include "watershed_ref.h"

using sorn_test::AllocFailure;
using sorn_test::kStackBlock;
using sorn_test::make_record4;
using f_run::FCase;
using f_run::FRun;

namespace {

constexpr SornFlags kF = 0x200000;
// A frame just above the size from which the shadow is kept.
constexpr int kRows = 560, kCols = 510;

// Smooth noise on 12-pixel cells with grain: levels in long runs and
// basins of every size, as in photographs.
std::vector<uint8_t> texture(std::mt19937_64 &rng) {
  return wts_ref::smooth_noise(rng, kRows, kCols, 12, 200, 8);
}

// Few levels in blocks and noise: many equal neighbours and long lists.
std::vector<uint8_t> blocks(std::mt19937_64 &rng) {
  std::vector<uint8_t> img((size_t)kRows * kCols);
  for (int r = 0; r < kRows; ++r)
    for (int c = 0; c < kCols; ++c)
      img[(size_t)r * kCols + c] =
          rng() % 7 ? (uint8_t)(((r / 40 + c / 30) % 4) * 60) : (uint8_t)(rng() % 4 * 60);
  return img;
}

// Everything a caller can reach after a run of 'rows' rows, as words: the
// whole link array with its pads, then the tree depth first.
std::vector<int64_t> snapshot(const SornFWTSRES &res, int rows = kRows) {
  const size_t words = (size_t)rows * kCols + 2 * ((size_t)kCols + 2);
  std::vector<int64_t> out(res.linkbase, res.linkbase + words);
  out.push_back(res.links - res.linkbase);
  std::vector<const SornFWTSRegion *> todo;
  if (res.root) todo.push_back(res.root);
  while (!todo.empty()) {
    const SornFWTSRegion *r = todo.back();
    todo.pop_back();
    out.insert(out.end(), {r->head, r->tail, r->level, (int64_t)r->size, (int64_t)r->mserflag,
                           r->parent ? r->parent->head : -1});
    int64_t children = 0;
    for (const SornFWTSRegion *c = r->child; c; c = c->next, ++children) todo.push_back(c);
    out.push_back(children);
  }
  return out;
}

struct Setting {
  int seedrow, seedcol;
  uint16_t polarity, shift;
  bool masked;
};

struct LargeRun {
  SornFWTSRES res{};
  SornXE xe{};
  SornWTSState st{};
  explicit LargeRun(const Setting &s) {
    SornFWTSRESinit(&res, nullptr, nullptr);
    SornXEinit(&xe, nullptr);
    st.builder = &res;
    st.polarity = s.polarity;
    st.shift = s.shift;
    st.seed[1] = (uint32_t)s.seedrow;
    st.seed[2] = (uint32_t)s.seedcol;
  }
  ~LargeRun() {
    SornFWTSRESfini(&res);
    SornXEfini(&xe);
  }
  LargeRun(const LargeRun &) = delete;
  LargeRun &operator=(const LargeRun &) = delete;
};

SornStatus flood(LargeRun &run, std::vector<uint8_t> &img, std::vector<uint8_t> &mask, bool masked) {
  SornArray a = make_record4(img.data(), 1, kRows, kCols, 1, SORN_U8, kRows * kCols, kCols);
  SornArray m = make_record4(mask.data(), 1, kRows, kCols, 1, SORN_U8, kRows * kCols, kCols);
  return SornWatershedEx(&run.xe, kF, &a, masked ? &m : nullptr, nullptr, nullptr, &run.st);
}

// Rows 0 to 29 wholly outside, then a pattern, with pixel (30, 0) inside;
// the byte in the seed's column decides for a whole row.
std::vector<uint8_t> mask_of(std::mt19937_64 &rng) {
  std::vector<uint8_t> mask((size_t)kRows * kCols, 1);
  for (size_t i = 0; i < mask.size(); ++i)
    if (i < (size_t)30 * kCols || rng() % 11 == 0) mask[i] = 0;
  mask[(size_t)30 * kCols] = 1;
  return mask;
}

const Setting kSettings[] = {
    {0, 0, 0, 0, false},                  // the default seed
    {kRows / 2, kCols / 3, 1, 0, false},  // inverted, seed inside
    {0, kCols - 1, 0, 2, false},          // seed on column 0 of row 1, levels shifted
    {kRows - 1, kCols - 1, 0, 0, false},  // seed in the back pad
    {0, 0, 0, 0, true},                   // masked, top rows trimmed
    {kRows / 3, 7, 1, 1, true},           // masked from a seed inside
};

}  // namespace

TEST(WatershedFLarge, TheLookAheadChangesNothing) {
  auto rng = sorn_test::seeded_rng(0x5eed0a01);
  for (int kind = 0; kind < 2; ++kind) {
    std::vector<uint8_t> img = kind == 0 ? texture(rng) : blocks(rng);
    std::vector<uint8_t> mask = mask_of(rng);
    for (const Setting &s : kSettings) {
      SCOPED_TRACE(testing::Message() << "image " << kind << " seed " << s.seedrow << ","
                                      << s.seedcol << " polarity " << s.polarity << " shift "
                                      << s.shift << " masked " << s.masked);
      LargeRun with(s), without(s);
      ASSERT_EQ(flood(with, img, mask, s.masked), SORN_OK);
      {
        // The link array is the run's first block and the shadow its
        // second; failing the shadow leaves the flooding without it.
        AllocFailure no_shadow(1, false, kStackBlock);
        ASSERT_EQ(flood(without, img, mask, s.masked), SORN_OK);
        ASSERT_TRUE(no_shadow.fired());
      }
      ASSERT_NE(with.res.root, nullptr);
      // Masked rows wall the flooding in; open images it fills.
      EXPECT_GT(with.res.root->size, (uint32_t)(s.masked ? 1000 : kRows * kCols / 2));
      // The default seed drops the rows wholly outside.
      const int rows = s.masked && s.seedrow == 0 && s.seedcol == 0 ? kRows - 30 : kRows;
      EXPECT_TRUE(snapshot(with.res, rows) == snapshot(without.res, rows));
    }
  }
}

// The flooding that links runs of a level in one go keeps a shadow too;
// called without an environment, it floods without one.
TEST(WatershedFLarge, TheLookAheadChangesNothingInTheRunLinkingFlooding) {
  auto rng = sorn_test::seeded_rng(0x5eed0a02);
  std::vector<uint8_t> img = blocks(rng), unused;
  const Setting s{3, 4, 0, 0, false};
  std::vector<int64_t> got[3];
  for (int how = 0; how < 3; ++how) {
    SCOPED_TRACE(how == 0 ? "with the shadow" : how == 1 ? "shadow refused" : "no environment");
    LargeRun run(s);
    ASSERT_EQ(flood(run, img, unused, false), SORN_OK);
    // The working array again as the setup fills it, flooded directly.
    uint32_t *W = run.res.links;
    std::memset(W - (kCols + 2), 0, sizeof(uint32_t) * (kCols + 2));
    for (int r = 0; r < kRows; ++r)
      for (int c = 0; c < kCols; ++c)
        W[r * kCols + c] = img[(size_t)r * kCols + c] | (c ? 0x80000000u : 0u);
    std::memset(W + kRows * kCols, 0, sizeof(uint32_t) * (kCols + 2));
    run.res.root = nullptr;
    AllocFailure no_shadow(how == 1 ? 0 : int64_t{1} << 40, false, kStackBlock);
    ASSERT_EQ(__T_sorna__fwatershed_c1_u8_00(kRows, kCols, s.seedrow, s.seedcol + 1,
                                             how == 2 ? nullptr : &run.xe, kF, &run.st),
              SORN_OK);
    EXPECT_EQ(no_shadow.fired(), how == 1);
    got[how] = snapshot(run.res);
  }
  EXPECT_TRUE(got[0] == got[1]);
  EXPECT_TRUE(got[0] == got[2]);
}

// A run cut short by a region block gives the shadow's scratch back like
// the rest.
TEST(WatershedFLarge, RunningOutOfRegionsGivesTheScratchBack) {
  auto rng = sorn_test::seeded_rng(0x5eed0a03);
  std::vector<uint8_t> img = texture(rng), unused;
  const Setting s{0, 0, 0, 0, false};
  for (int64_t k : {2, 3, 50, 2000}) {
    SCOPED_TRACE(testing::Message() << "failing block " << k << " and every later one");
    LargeRun run(s);
    KuMark before, after;
    KuSMEMSTGgetstate(&before, SornXEmmstack(&run.xe), 0);
    {
      AllocFailure cut(k, true, kStackBlock);
      EXPECT_EQ(flood(run, img, unused, false), SORN_ENOMEM);
      EXPECT_TRUE(cut.fired());
    }
    KuSMEMSTGgetstate(&after, SornXEmmstack(&run.xe), 0);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
  }
}

// Few levels, so that the brute force, which floods every level afresh,
// stays quick: the blocks, the texture cut to eight levels, and patches of
// eight levels, thousands of basins nested in one another.
std::vector<uint8_t> eight_levels(std::mt19937_64 &rng) {
  std::vector<uint8_t> img = texture(rng);
  for (uint8_t &v : img) v &= 0xE0;
  return img;
}

std::vector<uint8_t> patches(std::mt19937_64 &rng) {
  const int ch = 7, cw = 9, gr = kRows / ch + 1, gc = kCols / cw + 1;
  std::vector<uint8_t> level((size_t)gr * gc);
  for (uint8_t &v : level) v = (uint8_t)(rng() % 8 * 32);
  std::vector<uint8_t> img((size_t)kRows * kCols);
  for (int r = 0; r < kRows; ++r)
    for (int c = 0; c < kCols; ++c) img[(size_t)r * kCols + c] = level[(size_t)(r / ch) * gc + c / cw];
  return img;
}

std::vector<uint8_t> large_image(int kind, std::mt19937_64 &rng) {
  switch (kind) {
    case 0: return blocks(rng);
    case 1: return eight_levels(rng);
    case 2: return patches(rng);
    default: return texture(rng);
  }
}

TEST(WatershedFLarge, TreesWithTheLookAheadAreTheBruteForceTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0a04);
  struct Case {
    int kind;  // 0 blocks, 1 eight levels, 2 patches, 3 the texture with its levels shifted
    Setting s;
  };
  const Case cases[] = {
      {0, {0, 0, 0, 0, false}},
      {2, {kRows / 2, kCols / 3, 1, 0, false}},
      {3, {kRows - 1, kCols - 1, 0, 5, false}},
      {1, {0, 0, 0, 0, true}},
      {2, {kRows / 3, 7, 1, 0, true}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "image " << c.kind << " seed " << c.s.seedrow << ","
                                    << c.s.seedcol << " polarity " << c.s.polarity << " shift "
                                    << c.s.shift << " masked " << c.s.masked);
    FCase fc;
    fc.rows = kRows;
    fc.cols = kCols;
    fc.img = large_image(c.kind, rng);
    if (c.s.masked) fc.mask = mask_of(rng);
    fc.pm = c.s.polarity == 1 ? 0xFF : 0;
    fc.sh = c.s.shift;
    fc.seedrow = c.s.seedrow;
    fc.seedcol = c.s.seedcol;
    ASSERT_GE((int64_t)kRows * kCols, int64_t{1} << 18);
    FRun run;
    run.st.polarity = c.s.polarity;
    run.st.shift = c.s.shift;
    run.st.seed[1] = (uint32_t)c.s.seedrow;
    run.st.seed[2] = (uint32_t)c.s.seedcol;
    SornArray a = make_record4(fc.img.data(), 1, kRows, kCols, 1, SORN_U8, kRows * kCols, kCols);
    SornArray m = make_record4(fc.mask.data(), 1, kRows, kCols, 1, SORN_U8, kRows * kCols, kCols);
    ASSERT_EQ(SornWatershedEx(&run.xe, kF, &a, c.s.masked ? &m : nullptr, nullptr, nullptr, &run.st),
              SORN_OK);
    int trim, sr, sc;
    ASSERT_TRUE(fc.locate(trim, sr, sc));
    ASSERT_NE(run.res.root, nullptr);
    const std::vector<wts_ref::Node> ref = fc.reference(trim, sr, sc);
    EXPECT_GT(ref.size(), c.kind == 2 ? 50u : 10u) << "a tree with work in it";
    wts_ref::Got got;
    run.collect(run.res.root, -1, got, (int64_t)kRows * kCols + 2 * kCols + 4);
    wts_ref::expect_same(got, ref);
  }
}

TEST(WatershedPlainLarge, TreesAndBuilderCallsMatchTheBruteForce) {
  auto rng = sorn_test::seeded_rng(0x5eed0a05);
  struct Case {
    int kind;  // 0 blocks, 1 eight levels, 2 patches
    int seedrow, seedcol;
    uint16_t polarity, connectivity;
    bool masked;
  };
  const Case cases[] = {
      {0, 0, 0, 0, 0, false},
      {2, kRows / 2, kCols / 3, 1, 8, false},
      {2, 0, 0, 0, 0, true},
      {1, kRows - 1, kCols - 1, 1, 0, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "image " << c.kind << " seed " << c.seedrow << ","
                                    << c.seedcol << " polarity " << c.polarity << " connectivity "
                                    << c.connectivity << " masked " << c.masked);
    plain_run::PlainCase pc;
    pc.rows = kRows;
    pc.cols = kCols;
    pc.img = large_image(c.kind, rng);
    if (c.masked) pc.mask = mask_of(rng);
    pc.pm = c.polarity == 1 ? 0xFF : 0;
    pc.eight = c.connectivity != 0;
    pc.seedrow = c.seedrow;
    pc.seedcol = c.seedcol;
    plain_run::PlainRun run;
    run.st.polarity = c.polarity;
    run.st.connectivity = c.connectivity;
    run.st.seed[1] = (uint32_t)c.seedrow;
    run.st.seed[2] = (uint32_t)c.seedcol;
    SornArray a = sorn_test::make_record(pc.img.data(), kRows, kCols, 1, SORN_U8, kCols);
    SornArray m = sorn_test::make_record(pc.mask.data(), kRows, kCols, 1, SORN_U8, kCols);
    ASSERT_EQ(c.masked ? SornWatershedEx(&run.xe, 0, &a, &m, nullptr, nullptr, &run.st)
                       : SornWatershed(&run.xe, 0, &a, nullptr, &run.st),
              SORN_OK);
    int trim, sr, sc;
    ASSERT_TRUE(pc.locate(trim, sr, sc));
    const wts_ref::Graph g = pc.graph(trim, sr, sc);
    const std::vector<wts_ref::Node> ref = wts_ref::component_tree(g, 16, false);
    ASSERT_GT(ref.size(), c.kind == 2 ? 50u : 10u) << "a tree with work in it";
    plain_run::check_calls(run.log, pc.flooded(g, trim), ref.size());
    ASSERT_NE(run.root(), nullptr);
    wts_ref::Got got;
    std::vector<uint32_t> pivots;
    run.collect(run.root(), -1, got, kCols, pivots);
    wts_ref::expect_same(got, ref);
  }
}

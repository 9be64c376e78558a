// Large images in the f form. From 2^18 pixels on, the flooding keeps a
// shadow of its level lists in scratch, which names the pixels it will take
// up some pops ahead so that their rows can be prefetched. The shadow may
// change nothing: with it and without it (its scratch request failed) the
// link array and the tree are the same word for word. Small images, which
// flood without it, are compared with the brute-force trees elsewhere.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>
#include <random>
#include <vector>

#include <alloc_failure.h>
#include "testkit.h"

using sorn_test::AllocFailure;
using sorn_test::kStackBlock;
using sorn_test::make_record4;

namespace {

constexpr SornFlags kF = 0x200000;
// A frame just above the size from which the shadow is kept.
constexpr int kRows = 560, kCols = 510;

// Smooth noise on 12-pixel cells with grain: levels in long runs and
// basins of every size, as in photographs.
std::vector<uint8_t> texture(std::mt19937_64 &rng) {
  const int cell = 12, gr = kRows / cell + 2, gc = kCols / cell + 2;
  std::vector<int> grid((size_t)gr * gc);
  for (int &g : grid) g = (int)(rng() % 200);
  std::vector<uint8_t> img((size_t)kRows * kCols);
  for (int r = 0; r < kRows; ++r)
    for (int c = 0; c < kCols; ++c) {
      const int y = r / cell, x = c / cell, wy = r % cell, wx = c % cell;
      const int *g0 = &grid[(size_t)y * gc + x], *g1 = g0 + gc;
      const int top = g0[0] * (cell - wx) + g0[1] * wx, bot = g1[0] * (cell - wx) + g1[1] * wx;
      const int v = (top * (cell - wy) + bot * wy) / (cell * cell) + (int)(rng() % 9);
      img[(size_t)r * kCols + c] = (uint8_t)v;
    }
  return img;
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

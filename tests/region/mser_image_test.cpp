// Stable regions from image to result. Random and textured images go
// through the brute-force component tree of the flooding tests (for the
// plain form: four or eight neighbours from the seed; for the f form: four
// neighbours, column 0 left out, the seed one column to the right, levels
// shifted) and through the selection model over that tree; the regions that
// SornGenerateMSERs and SornGenerateFMSERs pick must be the ones the model
// picks, as sets of pixels, with their sizes and levels, in every mode and
// over a sweep of the parameters. Each tree the library built is compared
// with the brute-force one as well, node for node, with the selection flag
// of every node.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "mser_ref.h"
#include "plain_run.h"
#include "testkit.h"
#include "watershed_ref.h"

namespace {

using mser_ref::RefTree;
using mser_ref::Shape;

// ---------------------------------------------------------------- images

// Flat shapes of several levels on a slanted background: regions that stay
// the same set over many levels, nested or side by side.
std::vector<uint8_t> shapes(std::mt19937_64 &rng, int rows, int cols) {
  std::vector<uint8_t> img((size_t)rows * cols);
  const int slope = (int)(rng() % 4);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) img[(size_t)r * cols + c] = (uint8_t)(100 + (slope * (r + c)) / 8);
  const int n = 2 + (int)(rng() % 6);
  for (int k = 0; k < n; ++k) {
    const int h = 4 + (int)(rng() % (rows / 2)), w = 4 + (int)(rng() % (cols / 2));
    const int y0 = (int)(rng() % (rows - 3)), x0 = (int)(rng() % (cols - 3));
    const uint8_t v = (uint8_t)(rng() % 256);
    const bool disc = rng() & 1;
    for (int r = y0; r < std::min(rows, y0 + h); ++r)
      for (int c = x0; c < std::min(cols, x0 + w); ++c) {
        if (disc) {
          const int dy = 2 * (r - y0) - h, dx = 2 * (c - x0) - w;
          if ((int64_t)dy * dy * w * w + (int64_t)dx * dx * h * h > (int64_t)h * h * w * w) continue;
        }
        img[(size_t)r * cols + c] = v;
      }
  }
  return img;
}

// One of the kinds above, or few levels in blocks and noise.
std::vector<uint8_t> any_image(std::mt19937_64 &rng, int rows, int cols) {
  switch (rng() % 4) {
    case 0: return wts_ref::random_levels(rng, rows, cols);
    case 1: return wts_ref::smooth_noise(rng, rows, cols, 3 + (int)(rng() % 8), 230, (int)(rng() % 12));
    case 2: return wts_ref::smooth_noise(rng, rows, cols, 2, 230, 40);
    default: return shapes(rng, rows, cols);
  }
}

// ---------------------------------------------------------------- the model

struct Setting {
  uint32_t delta;
  float minarea, maxarea, maxvariation, mindiversity;
  int32_t minpixels;
  uint16_t mode, restore, connectivity, shift;
  uint32_t seedrow, seedcol;
};

// The brute-force tree of one pass, as the form builds it.
std::vector<wts_ref::Node> build_reference_tree(const std::vector<uint8_t> &img, int rows,
                                                int cols, const Setting &s, bool f, bool bright) {
  const int64_t R = rows, C = cols, n = R * C;
  const int pm = bright ? 0xFF : 0;
  const int sh = f ? std::min<int>(s.shift & 0xFF, 8) : 0;
  auto level = [&](int64_t i) {
    if (i < 0 || i >= n) return 0;  // the f form's pads
    return (img[(size_t)i] ^ pm) >> sh;
  };
  if (f) {
    auto allowed = [&](int64_t i) { return i >= 0 && i < n && i % C != 0; };
    auto next = [&](int64_t i, std::vector<int64_t> &out) {
      out.insert(out.end(), {i + 1, i - 1, i + C, i - C});
    };
    const wts_ref::Graph g =
        wts_ref::reach((int64_t)s.seedrow * C + s.seedcol + 1, allowed, next, level);
    return wts_ref::component_tree(g, 16, true);
  }
  const bool eight = s.connectivity != 0;
  auto next = [&](int64_t id, std::vector<int64_t> &out) {
    const int64_t r = id / C, c = id % C;
    for (int dr = -1; dr <= 1; ++dr)
      for (int dc = -1; dc <= 1; ++dc) {
        if ((dr == 0 && dc == 0) || (!eight && dr != 0 && dc != 0)) continue;
        if (r + dr >= 0 && r + dr < R && c + dc >= 0 && c + dc < C) out.push_back((r + dr) * C + c + dc);
      }
  };
  const wts_ref::Graph g =
      wts_ref::reach((int64_t)s.seedrow * C + s.seedcol, [](int64_t) { return true; }, next, level);
  std::vector<wts_ref::Node> t = wts_ref::component_tree(g, 16, false);
  if (t.size() < 2) t.clear();  // nothing merged: the plain tree has no root
  return t;
}

// The trees of one image, each built once: by form, pass, and what else
// shapes the tree of that form (neighbours for the plain form, the level
// shift for the f form, the seed for both).
struct TreeCache {
  std::map<std::vector<int64_t>, std::vector<wts_ref::Node>> trees;
  const std::vector<wts_ref::Node> &get(const std::vector<uint8_t> &img, int rows, int cols,
                                        const Setting &s, bool f, bool bright) {
    const std::vector<int64_t> key = {f, bright, f ? (s.shift & 0xFF) : (s.connectivity != 0),
                                      s.seedrow, s.seedcol};
    auto it = trees.find(key);
    if (it == trees.end())
      it = trees.emplace(key, build_reference_tree(img, rows, cols, s, f, bright)).first;
    return it->second;
  }
};

// The parameters the generation hands to the selection.
SornMSERParams selection_params(const Setting &s, int rows, int cols, bool f) {
  const float cap = (float)((int64_t)rows * cols);
  SornMSERParams p;
  p.delta = (int32_t)(f ? s.delta >> std::min<int>(s.shift & 0xFF, 31) : s.delta);
  p.minpixels = (int32_t)(cap * s.minarea);
  if (p.minpixels == 0) p.minpixels = s.minpixels < 1 ? 9 : s.minpixels;
  p.maxpixels = (int32_t)(cap * s.maxarea);
  p.maxvariation = s.maxvariation;
  p.mindiversity = s.mindiversity;
  return p;
}

// The model's picks over a brute-force tree: the tree as shapes, parents
// first, and the selection flag of every node.
struct ModelPass {
  const std::vector<wts_ref::Node> &tree;
  std::vector<uint32_t> flag;  // by node of 'tree'
  size_t picked = 0;
};

ModelPass model_pass(const std::vector<wts_ref::Node> &tree, const SornMSERParams &p) {
  ModelPass m{tree, {}, 0};
  m.flag.assign(m.tree.size(), 0);
  if (m.tree.empty()) return m;
  // Parents first: a breadth-first order from the root.
  std::vector<std::vector<int>> kids(m.tree.size());
  int root = -1;
  for (size_t i = 0; i < m.tree.size(); ++i) {
    if (m.tree[i].parent < 0) {
      EXPECT_EQ(root, -1) << "one root";
      root = (int)i;
    } else {
      kids[m.tree[i].parent].push_back((int)i);
    }
  }
  std::vector<int> order{root}, at(m.tree.size(), -1);
  at[root] = 0;
  for (size_t k = 0; k < order.size(); ++k)
    for (int c : kids[order[k]]) {
      at[c] = (int)order.size();
      order.push_back(c);
    }
  std::vector<Shape> shape;
  for (int i : order)
    shape.push_back({m.tree[i].parent < 0 ? -1 : at[m.tree[i].parent], (int64_t)m.tree[i].level,
                     (uint32_t)m.tree[i].pixels.size()});
  RefTree ref(shape);
  ref.picked(p);
  for (size_t k = 0; k < order.size(); ++k) {
    m.flag[order[k]] = ref.flag[k];
    m.picked += ref.flag[k];
  }
  return m;
}

// ---------------------------------------------------------------- results read back

// A region of a tree the library built: its pixels (ids in the frame), its
// level and size as the region holds them, its selection flag, its parent.
struct GotNode {
  const void *region;
  std::vector<int64_t> pixels;
  int64_t level;
  uint32_t size, flag;
  int parent;
};

void read_f(const SornFWTSRegion *r, int parent, const uint32_t *links, std::vector<GotNode> &out,
            int64_t limit) {
  const int me = (int)out.size();
  out.push_back({r, {}, r->level, r->size, r->mserflag, parent});
  std::vector<int64_t> px;
  for (int64_t i = r->head; i != SORN_FWTSR_END && (int64_t)px.size() <= limit; i = links[i])
    px.push_back(i);
  for (const SornFWTSRegion *c = r->child; c; c = c->next) {
    EXPECT_EQ(c->parent, r);
    const size_t k = out.size();
    read_f(c, me, links, out, limit);
    px.insert(px.end(), out[k].pixels.begin(), out[k].pixels.end());
  }
  std::sort(px.begin(), px.end());
  out[me].pixels = std::move(px);
}

void read_plain(SornAGTnode *n, int parent, const SornWTSFeatureDs &book, int cols,
                std::vector<GotNode> &out) {
  const SornWTSRegion *r = static_cast<const SornWTSRegion *>(n->data);
  const int me = (int)out.size();
  out.push_back({r, {}, (int64_t)r->pivotval, r->size, r->mserflag, parent});
  const plain_run::PointValue *v = reinterpret_cast<const plain_run::PointValue *>(
      reinterpret_cast<const char *>(r) + book.offset);
  std::vector<int64_t> px;
  for (const auto &p : v->book->regions[(size_t)v->id]) px.push_back((int64_t)p.first * cols + p.second);
  for (SornAGTnode *c = n->child; c; c = c->next) {
    const size_t k = out.size();
    read_plain(c, me, book, cols, out);
    px.insert(px.end(), out[k].pixels.begin(), out[k].pixels.end());
  }
  std::sort(px.begin(), px.end());
  out[me].pixels = std::move(px);
}

// Compares one pass: the trees node for node (pixels, size, level, parent,
// flag), and the picked list against the model's flags. Picked regions of
// the bright pass hold true levels, the others the inverted ones.
void compare_pass(const std::vector<GotNode> &got, const ModelPass &m, const void *const *list,
                  uint32_t count, int64_t level_mask, const char *what) {
  SCOPED_TRACE(what);
  ASSERT_EQ(got.size(), m.tree.size()) << "nodes of the tree";
  std::map<wts_ref::Key, int> at;
  for (size_t i = 0; i < m.tree.size(); ++i) at[wts_ref::key_of(m.tree[i].pixels)] = (int)i;
  std::map<const void *, int> model_of;
  for (size_t i = 0; i < got.size(); ++i) {
    const GotNode &g = got[i];
    ASSERT_FALSE(g.pixels.empty());
    auto it = at.find(wts_ref::key_of(g.pixels));
    ASSERT_NE(it, at.end()) << "a region that is no component, size " << g.size;
    const wts_ref::Node &r = m.tree[it->second];
    ASSERT_EQ(g.pixels, r.pixels);
    ASSERT_EQ(g.size, (uint32_t)r.pixels.size());
    const uint32_t want_flag = m.flag[it->second];
    ASSERT_EQ(g.flag, want_flag) << "selection flag of the region of " << g.size << " pixels at "
                                 << r.level;
    ASSERT_EQ(g.level, want_flag ? (r.level ^ level_mask) : r.level);
    if (g.parent < 0)
      ASSERT_EQ(r.parent, -1);
    else
      ASSERT_EQ(wts_ref::key_of(got[g.parent].pixels), wts_ref::key_of(m.tree[r.parent].pixels));
    model_of[g.region] = it->second;
  }
  ASSERT_EQ(count, m.picked) << "regions picked";
  std::vector<int> seen;
  for (uint32_t i = 0; i < count; ++i) {
    auto it = model_of.find(list[i]);
    ASSERT_NE(it, model_of.end()) << "a picked region outside the tree";
    ASSERT_EQ(m.flag[it->second], 1u);
    seen.push_back(it->second);
  }
  std::sort(seen.begin(), seen.end());
  ASSERT_EQ(std::unique(seen.begin(), seen.end()), seen.end()) << "a region picked twice";
}

// ---------------------------------------------------------------- one case

struct Totals {
  size_t picked = 0, cases = 0;
};

void run_case(const std::vector<uint8_t> &img, int rows, int cols, const Setting &s, TreeCache &cache,
              Totals &tot) {
  SCOPED_TRACE(testing::Message()
               << rows << "x" << cols << " delta " << s.delta << " minarea " << s.minarea
               << " maxarea " << s.maxarea << " maxvar " << s.maxvariation << " mindiv "
               << s.mindiversity << " minpixels " << s.minpixels << " mode " << s.mode << " conn "
               << s.connectivity << " shift " << s.shift << " seed " << s.seedrow << ","
               << s.seedcol);
  // The image inside a larger buffer of other values, reached by a ROI.
  const int oy = 1, ox = 2;
  sorn_test::Image im(rows + 3, cols + 5, 1, SORN_U8, 3, 0x33);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) im.at<uint8_t>(r + oy, c + ox) = img[(size_t)r * cols + c];
  const SornArray rec = im.record();
  const SornVolume roi = sorn_test::make_roi(oy, ox, rows, cols, 1);
  const uint32_t seed[4] = {0, s.seedrow, s.seedcol, 0};
  const bool dark = s.mode != 1, bright = s.mode != 0;
  SornXE xe{};
  SornXEinit(&xe, nullptr);

  // The f form.
  {
    SornFMSERFilter f;
    __sorn_fmserfilt__$ex(&f, nullptr, nullptr, (int32_t)s.delta, s.mode, s.restore, s.connectivity,
                          s.shift, seed, s.minarea, s.maxarea, s.maxvariation, s.mindiversity);
    f.minpixels = s.minpixels;
    ASSERT_EQ(SornGenerateFMSERs(&xe, 0, &rec, &roi, &f), SORN_OK);
    ASSERT_TRUE(im.guards_intact());
    const SornMSERParams p = selection_params(s, rows, cols, true);
    const int64_t limit = (int64_t)rows * cols + 2 * cols + 4;
    for (int pass = 1; pass <= 2; ++pass) {
      const bool on = pass == 1 ? dark : bright;
      const SornFWTSRES *res = pass == 1 ? f.res1 : f.res2;
      const uint32_t count = pass == 1 ? f.count1 : f.count2;
      if (!on) {
        EXPECT_EQ(res, nullptr);
        EXPECT_EQ(count, 0u);
        continue;
      }
      ASSERT_NE(res, nullptr);
      const ModelPass m = model_pass(cache.get(img, rows, cols, s, true, pass == 2), p);
      std::vector<GotNode> got;
      if (res->root) read_f(res->root, -1, res->links, got, limit);
      compare_pass(got, m, reinterpret_cast<const void *const *>(pass == 1 ? f.list1 : f.list2),
                   count, pass == 2 ? (255 >> std::min<int>(s.shift & 0xFF, 8)) : 0,
                   pass == 1 ? "f form, dark pass" : "f form, bright pass");
      tot.picked += count;
      if (::testing::Test::HasFatalFailure()) break;
    }
    EXPECT_EQ(f.list2, f.list1 + f.count1);
    EXPECT_EQ(f.regions.count, (uint64_t)f.count1 + f.count2);
    sorn_fmserf_destroy(&f);
    if (::testing::Test::HasFatalFailure()) {
      SornXEfini(&xe);
      return;
    }
  }

  // The plain form, with a feature that books each region's points.
  {
    plain_run::PointBook book;
    SornWTSFeatureDs ds = plain_run::book_feature(&book);
    SornMSERFilter f;
    __sorn_mserfilt__$ex(&f, &ds, 1, (int32_t)s.delta, s.mode, s.restore, s.connectivity, s.shift,
                         seed, s.minarea, s.maxarea, s.maxvariation, s.mindiversity);
    f.minpixels = s.minpixels;
    ASSERT_EQ(SornGenerateMSERs(&xe, 0, &rec, &roi, &f), SORN_OK);
    const SornMSERParams p = selection_params(s, rows, cols, false);
    for (int pass = 1; pass <= 2; ++pass) {
      const bool on = pass == 1 ? dark : bright;
      SornSTB *b = pass == 1 ? f.builder1 : f.builder2;
      const uint32_t count = pass == 1 ? f.count1 : f.count2;
      if (!on) {
        EXPECT_EQ(b, nullptr);
        EXPECT_EQ(count, 0u);
        continue;
      }
      ASSERT_NE(b, nullptr);
      const ModelPass m = model_pass(cache.get(img, rows, cols, s, false, pass == 2), p);
      std::vector<GotNode> got;
      if (b->tree && b->tree->root) read_plain(b->tree->root, -1, ds, cols, got);
      compare_pass(got, m, reinterpret_cast<const void *const *>(pass == 1 ? f.list1 : f.list2),
                   count, pass == 2 ? 255 : 0,
                   pass == 1 ? "plain form, dark pass" : "plain form, bright pass");
      tot.picked += count;
      if (::testing::Test::HasFatalFailure()) break;
    }
    EXPECT_EQ(f.list2, f.list1 + f.count1);
    sorn_mserf_destroy(&f);
  }
  SornXEfini(&xe);
  ++tot.cases;
}

Setting random_setting(std::mt19937_64 &rng) {
  static const uint32_t deltas[] = {1, 2, 3, 5, 10, 10, 16, 40};
  static const float minareas[] = {0.0f, 0.0001f, 0.004f, 0.02f};
  static const float maxareas[] = {0.75f, 0.25f, 1.0f, 0.05f};
  static const float maxvars[] = {0.33f, 0.1f, 0.6f, 1.5f, 0.0f};
  static const float mindivs[] = {0.2f, 0.0f, 0.5f, 0.9f};
  static const int32_t minpix[] = {0, 0, 20, 60, -3};
  static const uint16_t modes[] = {0, 1, 2, 2, 5};
  static const uint16_t shifts[] = {0, 0, 0, 1, 2, 4};
  Setting s;
  auto pick = [&](const auto &a) { return a[rng() % (sizeof a / sizeof a[0])]; };
  s.delta = pick(deltas);
  s.minarea = pick(minareas);
  s.maxarea = pick(maxareas);
  s.maxvariation = pick(maxvars);
  s.mindiversity = pick(mindivs);
  s.minpixels = pick(minpix);
  s.mode = pick(modes);
  s.restore = (uint16_t)(rng() & 1);
  s.connectivity = (uint16_t)(rng() % 3 == 0 ? 8 : 0);
  s.shift = pick(shifts);
  s.seedrow = s.seedcol = 0;
  return s;
}

}  // namespace

TEST(MserFromImages, BothFormsPickWhatTheModelPicksOverTheBruteForceTree) {
  auto rng = sorn_test::seeded_rng(0x5eed0861);
  Totals tot;
  for (int i = 0; i < 120; ++i) {
    const int rows = 6 + (int)(rng() % 40), cols = 6 + (int)(rng() % 40);
    const std::vector<uint8_t> img = any_image(rng, rows, cols);
    TreeCache cache;
    // Several settings on each image, from one seed: the first pixel, one
    // inside, or the last.
    const int where = (int)(rng() % 3);
    const uint32_t seedrow = where == 0 ? 0 : where == 1 ? (uint32_t)(rng() % rows) : rows - 1;
    const uint32_t seedcol = where == 0 ? 0 : where == 1 ? (uint32_t)(rng() % cols) : cols - 1;
    for (int k = 0; k < 3; ++k) {
      Setting s = random_setting(rng);
      s.seedrow = seedrow;
      s.seedcol = seedcol;
      run_case(img, rows, cols, s, cache, tot);
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_EQ(tot.cases, 360u);
  EXPECT_GT(tot.picked, 1000u) << "the images must give the selection work to do";
}

TEST(MserFromImages, EveryModeWithTheDefaultParameters) {
  // The defaults on each kind of image, in each mode, from the first pixel
  // and from one inside.
  auto rng = sorn_test::seeded_rng(0x5eed0862);
  Totals tot;
  for (int i = 0; i < 16; ++i) {
    const int rows = 24 + (int)(rng() % 25), cols = 24 + (int)(rng() % 25);
    const std::vector<uint8_t> img = any_image(rng, rows, cols);
    TreeCache cache;
    for (uint16_t mode : {0, 1, 2})
      for (uint16_t conn : {0, 8}) {
        Setting s{10, 0.0001f, 0.75f, 0.33f, 0.2f, 0, mode, 0, conn, 0, 0, 0};
        if (i & 1) {
          s.seedrow = (uint32_t)(rng() % rows);
          s.seedcol = (uint32_t)(rng() % cols);
        }
        run_case(img, rows, cols, s, cache, tot);
        if (HasFatalFailure()) return;
      }
  }
  EXPECT_GT(tot.picked, 50u);
}

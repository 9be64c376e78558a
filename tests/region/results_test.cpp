// Results of the f-form flooding built by hand: the record, walks, pixel
// enumeration and fetching into point lists and region records.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "testkit.h"

namespace {

using Pt = std::pair<int32_t, int32_t>;

// A result whose regions own random sets of the pixels of a rows x columns
// frame, linked in random order, in a random tree.
struct HandResult {
  int32_t rows, cols;
  SornFWTSRES res;
  std::vector<SornFWTSRegion *> regs;
  std::vector<std::vector<int32_t>> own;   // own pixels in chain order
  std::vector<int> parent;

  HandResult(std::mt19937_64 &rng, int32_t rows_, int32_t cols_, int n, double pmark = 0.0)
      : rows(rows_), cols(cols_) {
    std::memset(&res, 0, sizeof res);
    SornFWTSRESinit(&res, nullptr, nullptr);
    int32_t npix = rows * cols;
    res.linkbase = static_cast<uint32_t *>(
        SornFWTSRESalloca(&res, sizeof(uint32_t) * static_cast<size_t>(npix + 2 * (cols + 2)), 8));
    res.links = res.linkbase + cols + 2;
    std::vector<int32_t> pix(npix);
    for (int32_t i = 0; i < npix; ++i) pix[i] = i;
    std::shuffle(pix.begin(), pix.end(), rng);
    own.resize(n);
    parent.assign(n, -1);
    // Every region takes at least one pixel; the rest go anywhere, or to
    // no region at all.
    for (int i = 0; i < n; ++i) own[i].push_back(pix[i]);
    for (int32_t k = n; k < npix; ++k)
      if (rng() % 4) own[rng() % n].push_back(pix[k]);
    std::bernoulli_distribution mark(pmark);
    for (int i = 0; i < n; ++i) {
      SornFWTSRegion *r = SornFWTSRESnewregion(&res, own[i].back(), static_cast<int32_t>(i));
      EXPECT_EQ(r->head, SORN_FWTSR_END);
      r->head = own[i][0];
      for (size_t k = 0; k + 1 < own[i].size(); ++k) res.links[own[i][k]] = own[i][k + 1];
      res.links[own[i].back()] = SORN_FWTSR_END;
      r->mserflag = mark(rng) ? 1 : 0;
      regs.push_back(r);
      if (i > 0) {
        parent[i] = static_cast<int>(rng() % i);
        sorn_fwtsr_addcld(regs[parent[i]], r);
      }
    }
    for (int i = n - 1; i >= 0; --i) {
      regs[i]->size = static_cast<uint32_t>(own[i].size());
      for (SornFWTSRegion *c = regs[i]->child; c; c = c->next) regs[i]->size += c->size;
    }
    res.root = regs[0];
  }
  ~HandResult() { SornFWTSRESfini(&res); }

  int index_of(const SornFWTSRegion *r) const {
    return static_cast<int>(std::find(regs.begin(), regs.end(), r) - regs.begin());
  }
  Pt pt(int32_t p) const { return {p / cols, p % cols}; }
  std::vector<Pt> own_pts(int i) const {
    std::vector<Pt> v;
    for (int32_t p : own[i]) v.push_back(pt(p));
    return v;
  }
  void subtree_pts(const SornFWTSRegion *r, std::vector<Pt> &out) const {
    auto o = own_pts(index_of(r));
    out.insert(out.end(), o.begin(), o.end());
    for (const SornFWTSRegion *c = r->child; c; c = c->next) subtree_pts(c, out);
  }
  std::vector<Pt> subtree_sorted(const SornFWTSRegion *r) const {
    std::vector<Pt> v;
    subtree_pts(r, v);
    std::sort(v.begin(), v.end());
    return v;
  }
};

std::vector<Pt> sorted_range(const Sorn2dPt *p, uint32_t n) {
  std::vector<Pt> v;
  for (uint32_t i = 0; i < n; ++i) v.push_back({p[i].x, p[i].y});
  std::sort(v.begin(), v.end());
  return v;
}

std::vector<Pt> vec_points(const SornVec &v) {
  std::vector<Pt> out;
  const Sorn2dPt *p = static_cast<const Sorn2dPt *>(v.items);
  for (uint64_t i = 0; i < v.count; ++i) out.push_back({p[i].x, p[i].y});
  return out;
}

void free_vec(SornVec &v) {
  _KuMfree(v.items);
  std::memset(&v, 0, sizeof v);
}

struct Call {
  SornFWTSRegion *r;
  int32_t index, phase;
  bool operator==(const Call &o) const { return r == o.r && index == o.index && phase == o.phase; }
};

struct EnumLog {
  std::vector<Call> calls;
  std::vector<Pt> pixels;
  SornFWTSRegion *stop_at = nullptr;
  int32_t stop_answer = 0;
};

int32_t enum_region(SornFWTSRegion *r, void *arg, int32_t index, int32_t phase) {
  EnumLog *log = static_cast<EnumLog *>(arg);
  log->calls.push_back({r, index, phase});
  if (r == log->stop_at && index == -1) return log->stop_answer;
  return 1;
}

void enum_pixel(int32_t row, int32_t col, void *arg) {
  static_cast<EnumLog *>(arg)->pixels.push_back({row, col});
}

// The enumeration's calls written from its definition.
void ref_enum(const HandResult &h, SornFWTSRegion *r, std::vector<Call> &calls,
              std::vector<Pt> &pixels) {
  calls.push_back({r, -1, 0});
  auto o = h.own_pts(h.index_of(r));
  pixels.insert(pixels.end(), o.begin(), o.end());
  int32_t k = -1;
  if (SornFWTSRegion *c = r->child) {
    ref_enum(h, c, calls, pixels);
    k = 0;
    for (c = c->next; c; c = c->next) {
      calls.push_back({r, k++, 0});
      ref_enum(h, c, calls, pixels);
    }
  }
  calls.push_back({r, k, 1});
}

std::vector<SornFWTSRegion *> g_walk;
int32_t walk_fn(SornFWTSRegion *r, void *, int32_t) {
  g_walk.push_back(r);
  return 1;
}
void ref_pre(SornFWTSRegion *r, std::vector<SornFWTSRegion *> &v) {
  v.push_back(r);
  for (SornFWTSRegion *c = r->child; c; c = c->next) ref_pre(c, v);
}
void ref_post(SornFWTSRegion *r, std::vector<SornFWTSRegion *> &v) {
  for (SornFWTSRegion *c = r->child; c; c = c->next) ref_post(c, v);
  v.push_back(r);
}
void ref_in(SornFWTSRegion *r, std::vector<SornFWTSRegion *> &v) {
  if (!r->child) {
    v.push_back(r);
    return;
  }
  ref_in(r->child, v);
  if (!r->child->next) {
    v.push_back(r);
    return;
  }
  for (SornFWTSRegion *c = r->child->next; c; c = c->next) {
    v.push_back(r);
    ref_in(c, v);
  }
}

bool at_level(void *stack, const KuMark &mark) {
  KuMark now;
  KuSMEMSTGgetstate(&now, stack, 0);
  return std::memcmp(&now, &mark, sizeof mark) == 0;
}

// Checks records fetched from a tree: pre-order, children reversed, own
// points first, the whole region contiguous.
void check_records(const HandResult &h, const SornFwtsrPixReg *rec, const SornFWTSRegion *r) {
  EXPECT_EQ(rec->level, r->level);
  EXPECT_EQ(rec->size, r->size);
  EXPECT_EQ(rec->mserflag, r->mserflag);
  EXPECT_EQ(rec->ownpixels, static_cast<uint32_t>(sorn_fwtsr_countpix_$proper(r)));
  std::vector<Pt> own;
  for (uint32_t i = 0; i < rec->ownpixels; ++i) own.push_back({rec->pixels[i].x, rec->pixels[i].y});
  EXPECT_EQ(own, h.own_pts(h.index_of(r)));
  EXPECT_EQ(sorted_range(rec->pixels, rec->size), h.subtree_sorted(r));
  std::vector<const SornFWTSRegion *> kids;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) kids.push_back(c);
  std::reverse(kids.begin(), kids.end());
  uint32_t sum = rec->ownpixels;
  size_t k = 0;
  for (const SornFwtsrPixReg *c = rec->child; c; c = c->next, ++k) {
    ASSERT_LT(k, kids.size());
    EXPECT_EQ(c->parent, rec);
    check_records(h, c, kids[k]);
    sum += c->size;
  }
  EXPECT_EQ(k, kids.size());
  EXPECT_EQ(sum, rec->size);
}

}  // namespace

/* ---------------- The record ---------------- */

TEST(FwtsResult, InitWithItsOwnStackAndFini) {
  SornFWTSRES res;
  std::memset(&res, 0, sizeof res);
  EXPECT_EQ(SornFWTSRESinit(&res, nullptr, nullptr), &res);
  EXPECT_EQ(res.mmstack, static_cast<void *>(res.mmown));
  EXPECT_EQ(res.root, nullptr);
  EXPECT_EQ(res.links, nullptr);
  SornFWTSRegion *r = SornFWTSRESnewregion(&res, 12, 34);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(r) % 8, 0u);
  EXPECT_EQ(r->head, SORN_FWTSR_END);
  EXPECT_EQ(r->tail, 12);
  EXPECT_EQ(r->level, 34);
  EXPECT_EQ(r->size, 0u);
  EXPECT_EQ(r->mserflag, 0u);
  EXPECT_EQ(r->next, nullptr);
  EXPECT_EQ(r->child, nullptr);
  EXPECT_EQ(r->parent, nullptr);
  void *p = SornFWTSRESalloca(&res, 1000, 0);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
  void *q = SornFWTSRESalloca(&res, 10, 64);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 64, 0u);
  SornFWTSRES_freea(&res, q);
  for (int i = 0; i < 5000; ++i) SornFWTSRESnewregion(&res, i, i);
  EXPECT_EQ(SornFWTSRESfini(&res), &res);  // destroyed: no leak under the sanitizer
  EXPECT_EQ(res.mmstack, nullptr);
  EXPECT_EQ(res.linkbase, nullptr);
}

TEST(FwtsResult, AGivenStackIsRewoundToItsMark) {
  void *stack = KuSMEMSTGopen(nullptr, 0, 0);
  ASSERT_NE(KuSMEMSTGaalloc(stack, 64, 8, 0), nullptr);
  KuMark mark;
  KuSMEMSTGgetstate(&mark, stack, 0);
  uint32_t links[4];
  SornFWTSRES res;
  std::memset(&res, 0, sizeof res);
  SornFWTSRESinit(&res, links, stack);
  EXPECT_EQ(res.linkbase, links);
  EXPECT_EQ(res.mmstack, stack);
  for (int i = 0; i < 100; ++i) SornFWTSRESnewregion(&res, i, i);
  SornFWTSRESfini(&res);
  EXPECT_TRUE(at_level(stack, mark));
  EXPECT_EQ(res.root, nullptr);
  EXPECT_EQ(res.linkbase, nullptr);
  EXPECT_EQ(res.mmstack, nullptr);
  KuMEMSTGclose(stack);
}

/* ---------------- Counts, links and walks ---------------- */

TEST(FwtsRegions, CountsAndOwnPixels) {
  auto rng = sorn_test::seeded_rng(85001);
  for (int round = 0; round < 20; ++round) {
    HandResult h(rng, 9, 11, 1 + static_cast<int>(rng() % 20), 0.4);
    for (size_t i = 0; i < h.regs.size(); ++i) {
      SornFWTSRegion *r = h.regs[i];
      int direct = 0, all = 0, mdirect = 0, mall = 0;
      for (size_t j = 0; j < h.regs.size(); ++j) {
        if (h.parent[j] == static_cast<int>(i)) {
          ++direct;
          mdirect += h.regs[j]->mserflag ? 1 : 0;
        }
        for (int a = h.parent[j]; a >= 0; a = h.parent[a])
          if (a == static_cast<int>(i)) {
            ++all;
            mall += h.regs[j]->mserflag ? 1 : 0;
          }
      }
      EXPECT_EQ(sorn_fwtsr_countcld(r, 0), direct);
      EXPECT_EQ(sorn_fwtsr_countcld(r, 1), all);
      EXPECT_EQ(sorn_fwtsr_countcld_$R(r), all);
      EXPECT_EQ(sorn_fwtsr_countcld_$mser(r, 0), mdirect);
      EXPECT_EQ(sorn_fwtsr_countcld_$mser(r, 1), mall);
      EXPECT_EQ(sorn_fwtsr_countcld_$mser$R(r), mall);
      EXPECT_EQ(sorn_fwtsr_countpix_$proper(r), static_cast<int32_t>(h.own[i].size()));
      int32_t tail = r->tail;
      r->tail = -5;
      EXPECT_EQ(sorn_fwtsr_fixup(r, h.res.links), r);
      EXPECT_EQ(r->tail, tail);
    }
  }
}

TEST(FwtsRegions, AddChildPutsTheNewestFirst) {
  SornFWTSRegion p{}, a{}, b{};
  EXPECT_EQ(sorn_fwtsr_addcld(&p, &a), &p);
  sorn_fwtsr_addcld(&p, &b);
  EXPECT_EQ(p.child, &b);
  EXPECT_EQ(b.next, &a);
  EXPECT_EQ(a.parent, &p);
  EXPECT_EQ(b.parent, &p);
}

TEST(FwtsRegions, WalksInAllThreeOrders) {
  auto rng = sorn_test::seeded_rng(85002);
  for (int round = 0; round < 20; ++round) {
    HandResult h(rng, 6, 7, 1 + static_cast<int>(rng() % 25));
    SornFWTSRegion *root = h.res.root;
    std::vector<SornFWTSRegion *> want;
    ref_pre(root, want);
    g_walk.clear();
    EXPECT_EQ(sorn_fwtsr_walk(root, 1, walk_fn, nullptr), 1);
    EXPECT_EQ(g_walk, want);
    g_walk.clear();
    sorn_fwtsr_walk_$preorder(root, walk_fn, nullptr);
    EXPECT_EQ(g_walk, want);
    want.clear();
    ref_post(root, want);
    g_walk.clear();
    EXPECT_EQ(sorn_fwtsr_walk(root, 3, walk_fn, nullptr), 1);
    EXPECT_EQ(g_walk, want);
    g_walk.clear();
    sorn_fwtsr_walk_$postorder(root, walk_fn, nullptr);
    EXPECT_EQ(g_walk, want);
    want.clear();
    ref_in(root, want);
    g_walk.clear();
    sorn_fwtsr_walk(root, 2, walk_fn, nullptr);
    EXPECT_EQ(g_walk, want);
    g_walk.clear();
    sorn_fwtsr_walk_$inorder(root, walk_fn, nullptr);
    EXPECT_EQ(g_walk, want);
  }
  g_walk.clear();
  EXPECT_EQ(sorn_fwtsr_walk(nullptr, 1, walk_fn, nullptr), 0);
  SornFWTSRegion lone{};
  EXPECT_EQ(sorn_fwtsr_walk(&lone, 7, walk_fn, nullptr), 0);
  EXPECT_TRUE(g_walk.empty());
}

/* ---------------- Pixel enumeration ---------------- */

TEST(FwtsPixenum, VisitsEveryPixelOnceInTheDefinedOrder) {
  auto rng = sorn_test::seeded_rng(85003);
  for (int round = 0; round < 20; ++round) {
    int32_t rows = 1 + static_cast<int32_t>(rng() % 12), cols = 1 + static_cast<int32_t>(rng() % 12);
    int n = 1 + static_cast<int>(rng() % std::min(20, rows * cols));
    HandResult h(rng, rows, cols, n);
    EnumLog log;
    EXPECT_EQ(sorn_fwtsr_pixenum_$2d(h.res.root, h.res.links, h.rows, h.cols, enum_region,
                                     enum_pixel, &log),
              n);
    std::vector<Call> calls;
    std::vector<Pt> pixels;
    ref_enum(h, h.res.root, calls, pixels);
    EXPECT_EQ(log.calls, calls);
    EXPECT_EQ(log.pixels, pixels);
    std::set<Pt> unique(log.pixels.begin(), log.pixels.end());
    EXPECT_EQ(unique.size(), log.pixels.size());
    EXPECT_EQ(log.pixels.size(), h.res.root->size);
  }
}

TEST(FwtsPixenum, AnswersStopTheEnumeration) {
  auto rng = sorn_test::seeded_rng(85004);
  HandResult h(rng, 8, 8, 6);
  SornFWTSRegion *root = h.res.root;
  EnumLog log;
  log.stop_at = root;
  log.stop_answer = 0;
  EXPECT_EQ(_T_fwtsr__pixenum(root, h.res.links, h.cols, enum_region, enum_pixel, &log, nullptr), 0);
  EXPECT_EQ(log.calls.size(), 1u);
  EXPECT_TRUE(log.pixels.empty());
  log = EnumLog{};
  log.stop_at = root;
  log.stop_answer = -1;
  EXPECT_EQ(_T_fwtsr__pixenum(root, h.res.links, h.cols, enum_region, enum_pixel, &log, nullptr), 1);
  log = EnumLog{};
  log.stop_at = root;
  log.stop_answer = -9;
  EXPECT_EQ(_T_fwtsr__pixenum(root, h.res.links, h.cols, enum_region, enum_pixel, &log, nullptr), -1);
  SornFWTSRegion empty{};
  empty.head = SORN_FWTSR_END;
  EXPECT_EQ(sorn_fwtsr_pixenum_$2d(&empty, h.res.links, 8, 8, enum_region, enum_pixel, &log), 0);
}

/* ---------------- Fetching points ---------------- */

TEST(FwtsFetch, PointsOfARegionOwnOrAll) {
  auto rng = sorn_test::seeded_rng(85005);
  for (int round = 0; round < 20; ++round) {
    HandResult h(rng, 10, 13, 1 + static_cast<int>(rng() % 15));
    for (size_t i = 0; i < h.regs.size(); ++i) {
      SornVec v{};
      EXPECT_EQ(sorn_fwtsr_fetchpix_$2d(&v, h.regs[i], h.res.links, 1, h.rows, h.cols), &v);
      EXPECT_EQ(vec_points(v), h.own_pts(static_cast<int>(i)));
      free_vec(v);
      sorn_fwtsr_fetchpix_$2d(&v, h.regs[i], h.res.links, 0, h.rows, h.cols);
      std::vector<Pt> want;
      h.subtree_pts(h.regs[i], want);
      EXPECT_EQ(vec_points(v), want);  // pre-order, own chains in order
      // The form with a dimension word: rows and columns from the cells.
      const int32_t dims[3] = {h.rows, h.cols, 1};
      sorn_fwtsr_fetchpix(&v, h.regs[i], h.res.links, 0, SORN_DIMPACK(3), dims);
      EXPECT_EQ(v.count, 2 * want.size());
      free_vec(v);
    }
  }
}

TEST(FwtsFetch, EmptyRegionsAddNothing) {
  SornFWTSRegion r{};
  r.head = SORN_FWTSR_END;
  uint32_t links[1] = {SORN_FWTSR_END};
  SornVec v{};
  sorn_fwtsr_fetchpix_$2d(&v, &r, links, 0, 1, 1);
  EXPECT_EQ(v.count, 0u);
  sorn_fwtsr_fetchpix_$2d(&v, &r, links, 1, 1, 1);
  EXPECT_EQ(v.count, 0u);
  // A parent with no own pixel: the proper fetch adds nothing.
  SornFWTSRegion c{};
  c.head = 0;
  c.size = 1;
  r.size = 1;
  sorn_fwtsr_addcld(&r, &c);
  sorn_fwtsr_fetchpix_$2d(&v, &r, links, 1, 1, 1);
  EXPECT_EQ(v.count, 0u);
  sorn_fwtsr_fetchpix_$2d(&v, &r, links, 0, 1, 1);
  EXPECT_EQ(v.count, 1u);
  free_vec(v);
  SornFwtsrPixReg regs[1];
  EXPECT_EQ(sorn_fwtsr_fetchpixregs_$2d(regs, 1, &v, &c, links, 1, 1), 1);
  SornFWTSRegion z{};
  EXPECT_EQ(sorn_fwtsr_fetchpixregs_$2d(regs, 1, &v, &z, links, 1, 1), 0);
  free_vec(v);
}

/* ---------------- Fetching region records ---------------- */

TEST(FwtsFetch, RecordsInPreorderWithChildrenReversed) {
  auto rng = sorn_test::seeded_rng(85006);
  for (int round = 0; round < 20; ++round) {
    int n = 1 + static_cast<int>(rng() % 25);
    HandResult h(rng, 11, 12, n);
    SornVec points{};
    std::vector<SornFwtsrPixReg> regs(n + 2);
    std::vector<SornFwtsrPixReg> before = regs;
    std::memset(regs.data(), 0x3c, regs.size() * sizeof regs[0]);
    before = regs;
    // Too small: the count, and nothing written.
    EXPECT_EQ(sorn_fwtsr_fetchpixregs_$2d(regs.data(), n - 1, &points, h.res.root, h.res.links,
                                          h.rows, h.cols),
              n);
    EXPECT_EQ(std::memcmp(regs.data(), before.data(), regs.size() * sizeof regs[0]), 0);
    EXPECT_EQ(points.count, 0u);
    EXPECT_EQ(sorn_fwtsr_fetchpixregs_$2d(regs.data(), n, &points, h.res.root, h.res.links,
                                          h.rows, h.cols),
              n);
    EXPECT_EQ(std::memcmp(&regs[n], &before[n], 2 * sizeof regs[0]), 0);
    EXPECT_EQ(points.count, h.res.root->size);
    EXPECT_EQ(regs[0].parent, nullptr);
    EXPECT_EQ(regs[0].next, nullptr);
    check_records(h, &regs[0], h.res.root);
    // Pre-order: the record of a region follows its parent's, and the
    // records of a subtree are contiguous.
    std::vector<SornFWTSRegion *> pre;
    ref_pre(h.res.root, pre);
    for (int i = 0; i < n; ++i) EXPECT_EQ(regs[i].level, pre[i]->level);
    free_vec(points);
    EXPECT_EQ(sorn_fwtsr__fetchpixregs_$2d(regs.data(), &points, h.res.root, h.res.links, h.rows,
                                           h.cols),
              n);
    check_records(h, &regs[0], h.res.root);
    free_vec(points);
  }
}

TEST(FwtsFetch, VectorFormsFollowThePointBlockWhenItMoves) {
  auto rng = sorn_test::seeded_rng(85007);
  HandResult a(rng, 20, 20, 30), b(rng, 15, 9, 12);
  SornVec regs{}, points{};
  EXPECT_EQ(sorn_fwtsr_efetchpixregs_$2d(&regs, &points, a.res.root, a.res.links, a.rows, a.cols),
            30);
  EXPECT_EQ(regs.count, 30u);
  const void *first_block = points.items;
  EXPECT_EQ(sorn_fwtsr_efetchpixregs_$2d(&regs, &points, b.res.root, b.res.links, b.rows, b.cols),
            12);
  EXPECT_EQ(regs.count, 42u);
  EXPECT_EQ(points.count, a.res.root->size + b.res.root->size);
  (void)first_block;
  SornFwtsrPixReg *r = static_cast<SornFwtsrPixReg *>(regs.items);
  // Whether or not the block moved, the first records still point into it.
  const Sorn2dPt *base = static_cast<const Sorn2dPt *>(points.items);
  EXPECT_EQ(r[0].pixels, base);
  EXPECT_EQ(r[30].pixels, base + a.res.root->size);
  check_records(a, &r[0], a.res.root);
  check_records(b, &r[30], b.res.root);
  free_vec(regs);
  free_vec(points);
}

/* ---------------- Only the marked regions ---------------- */

namespace {

// The marked regions' tree: each marked region's nearest marked ancestor.
void check_mser_records(const HandResult &h, const SornFwtsrPixReg *recs, int count,
                        const SornFWTSRegion *top) {
  std::vector<const SornFWTSRegion *> marked;
  std::vector<const SornFWTSRegion *> stack{top};
  // Pre-order list of marked regions under (and with) top.
  std::function<void(const SornFWTSRegion *)> pre = [&](const SornFWTSRegion *r) {
    if (r->mserflag) marked.push_back(r);
    for (const SornFWTSRegion *c = r->child; c; c = c->next) pre(c);
  };
  pre(top);
  ASSERT_EQ(static_cast<int>(marked.size()), count);
  for (int i = 0; i < count; ++i) {
    const SornFWTSRegion *r = marked[i];
    const SornFwtsrPixReg &rec = recs[i];
    EXPECT_EQ(rec.level, r->level);
    EXPECT_EQ(rec.size, r->size);
    EXPECT_EQ(rec.ownpixels, h.own[h.index_of(r)].size());
    EXPECT_EQ(sorted_range(rec.pixels, rec.size), h.subtree_sorted(r));
    const SornFWTSRegion *up = r->parent;
    while (up && up != top->parent && !up->mserflag) up = up->parent;
    if (up == top->parent) up = nullptr;
    if (!up) {
      EXPECT_EQ(rec.parent, nullptr);
    } else {
      int k = static_cast<int>(std::find(marked.begin(), marked.end(), up) - marked.begin());
      EXPECT_EQ(rec.parent, &recs[k]);
    }
  }
}

}  // namespace

TEST(FwtsFetchMser, UnmarkedRootWithTwoMarkedChildren) {
  auto rng = sorn_test::seeded_rng(85008);
  HandResult h(rng, 6, 6, 3);
  h.regs[0]->mserflag = 0;
  // Make both others children of the root.
  SornFWTSRegion *root = h.regs[0];
  root->child = nullptr;
  for (int i = 1; i < 3; ++i) {
    h.regs[i]->child = h.regs[i]->next = nullptr;
    h.regs[i]->mserflag = 1;
    h.parent[i] = 0;
  }
  sorn_fwtsr_addcld(root, h.regs[1]);
  sorn_fwtsr_addcld(root, h.regs[2]);
  for (int i = 1; i < 3; ++i) h.regs[i]->size = static_cast<uint32_t>(h.own[i].size());
  root->size = static_cast<uint32_t>(h.own[0].size()) + h.regs[1]->size + h.regs[2]->size;
  SornFwtsrPixReg regs[3];
  SornVec points{};
  EXPECT_EQ(sorn_fwtsr_fetchpixregs_$mser$2d(regs, 3, &points, root, h.res.links, h.rows, h.cols),
            2);
  EXPECT_EQ(regs[0].parent, nullptr);
  EXPECT_EQ(regs[1].parent, nullptr);
  EXPECT_EQ(regs[0].next, &regs[1]);
  EXPECT_EQ(regs[1].next, nullptr);
  EXPECT_EQ(regs[0].level, h.regs[2]->level);  // the list order: newest child first
  EXPECT_EQ(regs[1].level, h.regs[1]->level);
  EXPECT_EQ(points.count, h.regs[1]->size + h.regs[2]->size);  // the root's own are left out
  free_vec(points);
}

TEST(FwtsFetchMser, RandomMarksGiveTheTreeOfMarkedRegions) {
  auto rng = sorn_test::seeded_rng(85009);
  for (int round = 0; round < 30; ++round) {
    int n = 1 + static_cast<int>(rng() % 25);
    HandResult h(rng, 12, 12, n, 0.4);
    SornFWTSRegion *root = h.res.root;
    int32_t ndesc = sorn_fwtsr_countcld_$mser(root, 1);
    int32_t need = ndesc + (root->mserflag ? 1 : 0);
    std::vector<SornFwtsrPixReg> regs(n + 1);
    std::memset(regs.data(), 0x3c, regs.size() * sizeof regs[0]);
    auto before = regs;
    SornVec points{};
    if (need > 0) {
      EXPECT_EQ(sorn_fwtsr_fetchpixregs_$mser$2d(regs.data(), need - 1, &points, root,
                                                 h.res.links, h.rows, h.cols),
                need);
      EXPECT_EQ(std::memcmp(regs.data(), before.data(), regs.size() * sizeof regs[0]), 0);
    }
    EXPECT_EQ(sorn_fwtsr_fetchpixregs_$mser$2d(regs.data(), need, &points, root, h.res.links,
                                               h.rows, h.cols),
              need);
    if (root->mserflag) {
      check_mser_records(h, regs.data(), need, root);
      EXPECT_EQ(points.count, root->size);
    } else {
      // The topmost marked regions, chained in pre-order.
      int at = 0;
      const SornFwtsrPixReg *prev = nullptr;
      std::function<void(const SornFWTSRegion *)> tops = [&](const SornFWTSRegion *r) {
        for (const SornFWTSRegion *c = r->child; c; c = c->next) {
          if (c->mserflag) {
            if (prev) {
              EXPECT_EQ(prev->next, &regs[at]);
            }
            prev = &regs[at];
            int k = 1 + sorn_fwtsr_countcld_$mser(c, 1);
            check_mser_records(h, &regs[at], k, c);
            at += k;
          } else {
            tops(c);
          }
        }
      };
      tops(root);
      EXPECT_EQ(at, need);
      if (prev) {
        EXPECT_EQ(prev->next, nullptr);
      }
    }
    free_vec(points);

    // The vector forms, twice into the same vectors.
    SornVec vregs{};
    EXPECT_EQ(sorn_fwtsr_efetchpixregs_$mser$2d(&vregs, &points, root, h.res.links, h.rows, h.cols),
              need);
    EXPECT_EQ(sorn_fwtsr_efetchpixregs_$mser$2d(&vregs, &points, root, h.res.links, h.rows, h.cols),
              need);
    EXPECT_EQ(vregs.count, static_cast<uint64_t>(2 * need));
    SornFwtsrPixReg *v = static_cast<SornFwtsrPixReg *>(vregs.items);
    const Sorn2dPt *base = static_cast<const Sorn2dPt *>(points.items);
    for (int i = 0; i < need; ++i) {
      EXPECT_GE(v[i].pixels, base);
      EXPECT_LE(v[i].pixels + v[i].size, base + points.count);
      EXPECT_EQ(sorted_range(v[i].pixels, v[i].size),
                sorted_range(v[i + need].pixels, v[i + need].size));
    }
    free_vec(vregs);
    free_vec(points);
  }
}

// The selection on trees built by hand, for both forms: the regions of an
// f-form result and the nodes of a builder's tree, from one description.
// Random trees are checked against a reference written here over indexes.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "mser_ref.h"
#include "testkit.h"

namespace {

using mser_ref::RefTree;
using mser_ref::Shape;

SornMSERParams params(int32_t delta = 10, int32_t minpix = 1, int32_t maxpix = 100000,
                      float maxvar = 0.33f, float mindiv = 0.2f) {
  return SornMSERParams{delta, minpix, maxpix, maxvar, mindiv};
}

// The same tree as f-form regions.
struct FTree {
  std::vector<SornFWTSRegion> r;
  explicit FTree(const std::vector<Shape> &shape) : r(shape.size()) {
    for (size_t i = 0; i < shape.size(); ++i) {
      r[i] = SornFWTSRegion{};
      r[i].level = (int32_t)shape[i].level;
      r[i].size = shape[i].size;
      if (shape[i].parent >= 0) {
        SornFWTSRegion &p = r[shape[i].parent];
        r[i].parent = &p;
        r[i].next = p.child;
        p.child = &r[i];
      }
    }
  }
  SornVec *detect(SornVec *v, const SornMSERParams &p) { return SornDetectFMSERs(v, &r[0], &p); }
  int index_of(const void *item) const {
    return (int)(static_cast<const SornFWTSRegion *>(item) - r.data());
  }
  uint32_t &flag(int i) { return r[i].mserflag; }
};

// The same tree as nodes carrying watershed regions.
struct NodeTree {
  std::vector<SornAGTnode> n;
  std::vector<SornWTSRegion> r;
  SornSTree tree{};
  explicit NodeTree(const std::vector<Shape> &shape) : n(shape.size()), r(shape.size()) {
    for (size_t i = 0; i < shape.size(); ++i) {
      n[i] = SornAGTnode{};
      r[i] = SornWTSRegion{};
      n[i].data = &r[i];
      r[i].node = &n[i];
      r[i].pivotval = (uint32_t)shape[i].level;
      r[i].size = shape[i].size;
      if (shape[i].parent >= 0) {
        SornAGTnode &p = n[shape[i].parent];
        n[i].parent = &p;
        n[i].next = p.child;
        p.child = &n[i];
      }
    }
    tree.root = &n[0];
  }
  SornVec *detect(SornVec *v, const SornMSERParams &p) { return SornDetectMSERs(v, &tree, &p); }
  int index_of(const void *item) const {
    return (int)(static_cast<const SornWTSRegion *>(item) - r.data());
  }
  uint32_t &flag(int i) { return r[i].mserflag; }
};

template <class T>
class MserDetect : public ::testing::Test {};
using Trees = ::testing::Types<FTree, NodeTree>;
TYPED_TEST_SUITE(MserDetect, Trees);

template <class T>
std::vector<int> run(T &t, const SornMSERParams &p) {
  SornVec v{0, 0, nullptr};
  EXPECT_EQ(t.detect(&v, p), &v);
  std::vector<int> out;
  for (uint64_t i = 0; i < v.count; ++i) out.push_back(t.index_of(static_cast<void **>(v.items)[i]));
  _KuMfree(v.items);
  return out;
}

// root 100/1000 <- A 50/500 <- B 40/480 <- C 30/470: each within delta of
// the next, each stable, each close in size to the one around it.
const std::vector<Shape> kChain = {{-1, 100, 1000}, {0, 50, 500}, {1, 40, 480}, {2, 30, 470}};

TYPED_TEST(MserDetect, OfANestedChainTheOutermostStays) {
  TypeParam t(kChain);
  EXPECT_EQ(run(t, params()), (std::vector<int>{1}));
  EXPECT_EQ(t.flag(1), 1u);
  EXPECT_EQ(t.flag(2), 0u);
  EXPECT_EQ(t.flag(3), 0u);
}

TYPED_TEST(MserDetect, ZeroDiversityRemovesNothingAndKeepsBottomUpOrder) {
  TypeParam t(kChain);
  EXPECT_EQ(run(t, params(10, 1, 100000, 0.33f, 0.0f)), (std::vector<int>{3, 2, 1}));
}

TYPED_TEST(MserDetect, DuplicateSearchGoesBelowUnpickedRegions) {
  // X is close in size to A but unstable (its delta ancestor P is three
  // times larger); Y below it is close to A as well and goes.
  std::vector<Shape> s = {{-1, 100, 5000}, {0, 65, 3000}, {1, 60, 1000}, {2, 55, 960},
                         {3, 40, 900}};
  TypeParam t(s);
  EXPECT_EQ(run(t, params()), (std::vector<int>{2, 1}));
  // A Y differing enough in size is passed by.
  s[4].size = 700;
  TypeParam u(s);
  EXPECT_EQ(run(u, params()), (std::vector<int>{4, 2, 1}));
}

TYPED_TEST(MserDetect, AStableRegionTooLargeToKeepStillClearsItsDuplicates) {
  std::vector<Shape> s = {{-1, 100, 5000}, {0, 50, 1000}, {1, 40, 950}};
  TypeParam t(s);
  EXPECT_EQ(run(t, params(10, 1, 980)), (std::vector<int>{}));
  EXPECT_EQ(t.flag(2), 0u);
  // Without A's duplicate test (diversity 0) B stays.
  TypeParam u(s);
  EXPECT_EQ(run(u, params(10, 1, 980, 0.33f, 0.0f)), (std::vector<int>{2}));
}

TYPED_TEST(MserDetect, TheRootIsNeverPicked) {
  TypeParam t(std::vector<Shape>{{-1, 100, 1000}});
  EXPECT_EQ(run(t, params()), (std::vector<int>{}));
}

TYPED_TEST(MserDetect, ARegionWhoseAncestorsAreAllWithinDeltaHasNoMeasure) {
  TypeParam t(std::vector<Shape>{{-1, 25, 1000}, {0, 20, 990}, {1, 16, 500}});
  EXPECT_EQ(run(t, params()), (std::vector<int>{}));
}

TYPED_TEST(MserDetect, AParentMoreThanDeltaAboveGivesVariationZero) {
  TypeParam t(std::vector<Shape>{{-1, 50, 100000}, {0, 30, 100}});
  EXPECT_EQ(run(t, params(10, 1, 1000000, 0.0f)), (std::vector<int>{1}));
}

TYPED_TEST(MserDetect, AtExactlyDeltaTheVariationIsAtOrBelowTheLimit) {
  const std::vector<Shape> s = {{-1, 60, 1000}, {0, 50, 500}};  // variation 0.5
  TypeParam a(s), b(s), c(s);
  EXPECT_EQ(run(a, params(10, 1, 100000, 0.33f)), (std::vector<int>{}));
  EXPECT_EQ(run(b, params(10, 1, 100000, 0.5f)), (std::vector<int>{1}));
  EXPECT_EQ(run(c, params(10, 1, 100000, 0.4999f)), (std::vector<int>{}));
}

TYPED_TEST(MserDetect, VariationComesFromASignedDifference) {
  // An ancestor smaller than the region: |(400 - 500) / 400| = 0.25.
  TypeParam t(std::vector<Shape>{{-1, 60, 400}, {0, 50, 500}});
  EXPECT_EQ(run(t, params(10, 1, 100000, 0.3f)), (std::vector<int>{1}));
}

TYPED_TEST(MserDetect, AVariationLimitThatIsNotANumberRejectsAll) {
  TypeParam t(kChain);
  EXPECT_EQ(run(t, params(10, 1, 100000, std::numeric_limits<float>::quiet_NaN())),
            (std::vector<int>{}));
}

TYPED_TEST(MserDetect, SizesOutsideTheLimitsAreLeftOut) {
  const std::vector<Shape> s = {{-1, 100, 5000}, {0, 50, 500}, {0, 40, 200}};
  TypeParam a(s), b(s), c(s);
  EXPECT_EQ(run(a, params(10, 200, 500)), (std::vector<int>{2, 1}));  // limits inclusive
  EXPECT_EQ(run(b, params(10, 201, 500)), (std::vector<int>{1}));
  EXPECT_EQ(run(c, params(10, 200, 499)), (std::vector<int>{2}));
}

TYPED_TEST(MserDetect, BelowDeltaTheTreeIsNotVisited) {
  TypeParam t(std::vector<Shape>{{-1, 100, 1000}, {0, 5, 500}, {1, 2, 100}});
  t.flag(2) = 7;
  t.flag(1) = 7;
  EXPECT_EQ(run(t, params()), (std::vector<int>{1}));
  EXPECT_EQ(t.flag(2), 7u) << "never reached";
}

TYPED_TEST(MserDetect, EntriesFromBeforeStayAndTheVectorDoubles) {
  TypeParam t(kChain);
  SornFWTSRegion dummy{};  // flag 0, yet not this call's to drop
  SornVec v{0, 0, nullptr};
  v.items = _KuMrealloc(nullptr, sizeof(void *), 0);
  v.capacity = 1;
  v.count = 1;
  static_cast<void **>(v.items)[0] = &dummy;
  const SornMSERParams p = params(10, 1, 100000, 0.33f, 0.0f);
  ASSERT_EQ(t.detect(&v, p), &v);
  ASSERT_EQ(v.count, 4u);
  EXPECT_EQ(v.capacity, 4u);
  EXPECT_EQ(static_cast<void **>(v.items)[0], &dummy);
  _KuMfree(v.items);
}

TYPED_TEST(MserDetect, FirstGrowthIsToTwo) {
  TypeParam t(std::vector<Shape>{{-1, 100, 5000}, {0, 50, 500}});
  SornVec v{0, 0, nullptr};
  const SornMSERParams p = params();
  ASSERT_EQ(t.detect(&v, p), &v);
  EXPECT_EQ(v.count, 1u);
  EXPECT_EQ(v.capacity, 2u);
  _KuMfree(v.items);
}

TEST(MserDetectEdges, NullRootsGiveTheVectorBack) {
  SornVec v{0, 0, nullptr};
  const SornMSERParams p = params();
  EXPECT_EQ(SornDetectFMSERs(&v, nullptr, &p), &v);
  EXPECT_EQ(SornDetectMSERs(&v, nullptr, &p), &v);
  SornSTree empty{};
  EXPECT_EQ(SornDetectMSERs(&v, &empty, &p), &v);
  EXPECT_EQ(v.count, 0u);
  EXPECT_EQ(v.items, nullptr);
}

TEST(MserDetectEdges, RemoveDuplicatesUnpicksCloseRegionsOnly) {
  std::vector<SornFWTSRegion> r(4);
  for (auto &x : r) x = SornFWTSRegion{};
  r[0].size = 100;
  r[1].size = 85;  // 0.15: close
  r[2].size = 70;  // 0.30: passed by
  r[3].size = 90;  // under 2, never looked at
  r[1].next = &r[2];
  r[2].child = &r[3];
  r[1].mserflag = r[2].mserflag = r[3].mserflag = 1;
  _T_RemoveDuplicates(&r[0], &r[1], 0.2f);
  EXPECT_EQ(r[1].mserflag, 0u);
  EXPECT_EQ(r[2].mserflag, 1u);
  EXPECT_EQ(r[3].mserflag, 1u);
}

/* ---------------- random trees against a reference ---------------- */

// Levels fall and sizes shrink from parent to child, as in a component tree.
std::vector<Shape> random_tree(std::mt19937_64 &rng, int n) {
  std::vector<Shape> s;
  s.push_back({-1, 200 + (int64_t)(rng() % 56), 20000 + (uint32_t)(rng() % 20000)});
  std::vector<uint32_t> room{s[0].size};
  for (int i = 1; i < n; ++i) {
    int p = (int)(rng() % s.size());
    if (s[p].level < 2 || room[p] < 40) continue;
    int64_t lvl = s[p].level - 1 - (int64_t)(rng() % std::min<int64_t>(s[p].level, 14));
    uint32_t size = 16 + (uint32_t)(rng() % (room[p] - 16));
    room[p] -= size / 2;
    s.push_back({p, lvl, size});
    room.push_back(size);
  }
  return s;
}

TEST(MserDetectRandom, BothFormsAgreeWithTheReference) {
  auto rng = sorn_test::seeded_rng(86001);
  size_t total = 0;
  for (int round = 0; round < 300; ++round) {
    const std::vector<Shape> s = random_tree(rng, 2 + (int)(rng() % 60));
    SornMSERParams p = params(1 + (int32_t)(rng() % 12), (int32_t)(rng() % 400),
                              2000 + (int32_t)(rng() % 30000), (float)(rng() % 100) / 100.0f,
                              (float)(rng() % 50) / 100.0f);
    RefTree ref(s);
    const std::vector<int> want = ref.picked(p);
    total += want.size();
    FTree f(s);
    NodeTree t(s);
    ASSERT_EQ(run(f, p), want) << "round " << round;
    ASSERT_EQ(run(t, p), want) << "round " << round;
    for (size_t i = 0; i < s.size(); ++i) {
      ASSERT_EQ(f.flag((int)i), ref.flag[i]) << "round " << round << " region " << i;
      ASSERT_EQ(t.flag((int)i), ref.flag[i]) << "round " << round << " region " << i;
    }
  }
  EXPECT_GT(total, 300u) << "the trees must give the selection work to do";
}

}  // namespace

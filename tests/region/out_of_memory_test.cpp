// Running out of memory in the region code: growing point lists and vectors
// that cannot grow, builders and results that cannot be made, and whole
// generations with every request failed in turn. Nothing may be written past
// a block, nothing may be left behind (the sanitizer build checks the heap),
// and a filter that failed holds nothing.
#include <alloc_failure.h>
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "mser_common.h"
#include "testkit.h"

using namespace mser_test;
using sorn_test::AllocFailure;
using sorn_test::for_each_allocation_failure;
using sorn_test::kHeapCalloc;
using sorn_test::kHeapRealloc;
using sorn_test::kStackBlock;
using sorn_test::kStackOpen;

namespace {

constexpr uint64_t kGatheredBit = SORN_WTSPF_GATHERED;

// A pixel value holding n points (r, r + 100) and room for exactly n.
SornWTSPF value_with(int32_t n) {
  SornWTSPF v{};
  for (int32_t i = 0; i < n; ++i) SornWTSPF_update2D(&v, i, i + 100);
  if (v.capacity != (uint64_t)n) {
    v.points = static_cast<int32_t *>(_KuMrealloc(v.points, (size_t)n * 8, 0));
    v.capacity = (uint64_t)n;
  }
  return v;
}

std::vector<int32_t> points_of(const SornWTSPF &v) {
  return std::vector<int32_t>(v.points, v.points + 2 * v.count);
}

}  // namespace

/* ---------------- the pixel feature ---------------- */

TEST(PixelFeatureOutOfMemory, ASinglePointIsLostWhenTheBlockCannotDouble) {
  SornWTSPF v = value_with(4);
  const auto before = points_of(v);
  {
    AllocFailure failure(0);
    SornWTSPF_update2D(&v, 7, 8);
    EXPECT_TRUE(failure.fired());
  }
  EXPECT_EQ(4u, v.count);
  EXPECT_EQ(4u, v.capacity);
  EXPECT_EQ(before, points_of(v));
  SornWTSPF_update2D(&v, 7, 8);  // memory again: the point goes in
  EXPECT_EQ(5u, v.count);
  __SornWTSPF__destroy__(&v);
}

TEST(PixelFeatureOutOfMemory, ABatchTakesOnlyWhatFitsWhenTheBlockCannotGrow) {
  // Room for 6, 4 taken: a batch of 5 fits 2. The rest is lost rather than
  // written past the block, which the sanitizer build would report.
  SornWTSPF v = value_with(6);
  v.count = 4;
  const int32_t batch[10] = {50, 51, 52, 53, 54, 55, 56, 57, 58, 59};
  {
    AllocFailure failure(0);
    SornWTSPF_update2D_n(&v, batch, 5);
    EXPECT_TRUE(failure.fired());
  }
  ASSERT_EQ(6u, v.count);
  EXPECT_EQ(6u, v.capacity);
  EXPECT_EQ(50, v.points[8]);
  EXPECT_EQ(53, v.points[11]);
  __SornWTSPF__destroy__(&v);
}

TEST(PixelFeatureOutOfMemory, AnEagerMergeThatCannotCopyStillCountsAsComplete) {
  SornWTSPF v = value_with(3), o = value_with(5);
  const auto before = points_of(v);
  {
    AllocFailure failure(0);
    __SornWTSPF__merge__(&v, &o);
    EXPECT_TRUE(failure.fired());
  }
  EXPECT_EQ(before, points_of(v)) << "nothing copied";
  EXPECT_TRUE(__SornWTSPF__isgathered__(&v));
  __SornWTSPF__destroy__(&v);
  __SornWTSPF__destroy__(&o);
}

TEST(PixelFeatureOutOfMemory, ALazyMergeThatCannotCopyKeepsItsGatheredBit) {
  for (bool gathered : {false, true}) {
    SornWTSPF v = value_with(3), o = value_with(5);
    if (gathered) v.capacity |= kGatheredBit;
    {
      AllocFailure failure(0);
      __SornWTSPF__lazymerge__(&v, &o);
      EXPECT_TRUE(failure.fired());
    }
    EXPECT_EQ(3u, v.count);
    EXPECT_EQ(gathered, __SornWTSPF__isgathered__(&v) != 0);
    __SornWTSPF__destroy__(&v);
    __SornWTSPF__destroy__(&o);
  }
}

/* ---------------- fetching from a result ---------------- */

namespace {

// A result of three regions over a 4 x 5 frame: the root owns row 0, a
// child rows 1 and 2, a grandchild row 3. All three are marked.
struct SmallResult {
  static constexpr int32_t kRows = 4, kCols = 5;
  SornFWTSRES res{};
  SornFWTSRegion *r[3];
  SmallResult() {
    SornFWTSRESinit(&res, nullptr, nullptr);
    res.linkbase = static_cast<uint32_t *>(
        SornFWTSRESalloca(&res, sizeof(uint32_t) * (kRows * kCols + 2 * (kCols + 2)), 8));
    res.links = res.linkbase + kCols + 2;
    const int32_t first[3] = {0, 5, 15}, count[3] = {5, 10, 5};
    for (int i = 0; i < 3; ++i) {
      r[i] = SornFWTSRESnewregion(&res, first[i] + count[i] - 1, i);
      r[i]->head = first[i];
      for (int32_t p = first[i]; p < first[i] + count[i] - 1; ++p) res.links[p] = (uint32_t)p + 1;
      res.links[first[i] + count[i] - 1] = SORN_FWTSR_END;
      r[i]->mserflag = 1;
    }
    sorn_fwtsr_addcld(r[1], r[2]);
    sorn_fwtsr_addcld(r[0], r[1]);
    r[2]->size = 5;
    r[1]->size = 15;
    r[0]->size = 20;
    res.root = r[0];
  }
  ~SmallResult() { SornFWTSRESfini(&res); }
};

}  // namespace

TEST(FetchOutOfMemory, PointsThatFindNoRoomAreDroppedNotWrittenPastTheBlock) {
  SmallResult h;
  SornVec v{};
  {
    AllocFailure failure(0);
    sorn_fwtsr_fetchpix_$2d(&v, h.r[0], h.res.links, 0, h.kRows, h.kCols);
    EXPECT_TRUE(failure.fired());
  }
  EXPECT_EQ(0u, v.count);
  EXPECT_EQ(nullptr, v.items);
  // A vector with room for 7 keeps 7 of the 20 points.
  v.items = _KuMrealloc(nullptr, 7 * sizeof(Sorn2dPt), 0);
  v.capacity = 7;
  {
    AllocFailure failure(0);
    sorn_fwtsr_fetchpix_$2d(&v, h.r[0], h.res.links, 0, h.kRows, h.kCols);
  }
  EXPECT_EQ(7u, v.count);
  _KuMfree(v.items);
}

TEST(FetchOutOfMemory, ARecordVectorThatCannotGrowGetsNoRecord) {
  SmallResult h;
  SornVec regs{}, points{};
  {
    AllocFailure failure(0, true);
    EXPECT_EQ(0, sorn_fwtsr_efetchpixregs_$2d(&regs, &points, h.res.root, h.res.links, h.kRows,
                                              h.kCols));
    EXPECT_EQ(0, sorn_fwtsr_efetchpixregs_$mser$2d(&regs, &points, h.res.root, h.res.links,
                                                   h.kRows, h.kCols));
  }
  EXPECT_EQ(0u, regs.count);
  EXPECT_EQ(0u, points.count);
  // With memory, all three.
  EXPECT_EQ(3, sorn_fwtsr_efetchpixregs_$2d(&regs, &points, h.res.root, h.res.links, h.kRows,
                                            h.kCols));
  _KuMfree(regs.items);
  _KuMfree(points.items);
}

TEST(FetchOutOfMemory, MarkedRegionsUnderAnUnmarkedRootNeedTheirRootList) {
  SmallResult h;
  h.r[0]->mserflag = 0;
  SornFwtsrPixReg recs[3];
  std::memset(recs, 0x3c, sizeof recs);
  SornVec points{};
  // The list of topmost marked regions is a heap block; without it nothing
  // is fetched and nothing written.
  {
    AllocFailure failure(0, false, kHeapCalloc);
    sorn_fwtsr__fetchpixregs_$mser$2d(recs, &points, h.res.root, 2, h.res.links, h.kRows, h.kCols);
    EXPECT_TRUE(failure.fired());
  }
  EXPECT_EQ(0u, points.count);
  SornFwtsrPixReg untouched;
  std::memset(&untouched, 0x3c, sizeof untouched);
  EXPECT_EQ(0, std::memcmp(&recs[0], &untouched, sizeof untouched));
  _KuMfree(points.items);
}

/* ---------------- whole generations ---------------- */

namespace {

// A scene with a handful of stable regions on a textured background.
Canvas scene() {
  Canvas c(48, 56, 8);
  c.checker(120, 128);
  c.square(5, 6, 10, 12, 30);
  c.disc(30, 20, 7, 220);
  c.square(20, 36, 16, 14, 60);
  c.square(25, 40, 5, 5, 10);
  return c;
}

template <class Form>
LevelSize both_passes(Form &form) {
  LevelSize all = picked(form.f, 1), two = picked(form.f, 2);
  all.insert(all.end(), two.begin(), two.end());
  return all;
}

// Fails every request of the given kinds in turn during a generation. Each
// run answers SORN_ENOMEM with a filter that holds nothing, or succeeds; in
// every case the scratch stack is back at its mark, and a later run on the
// same filter picks what a run with memory picks.
template <class Form>
void sweep_generation(unsigned kinds, int64_t *failed_runs, int64_t *enomem_runs) {
  Canvas c = scene();
  const SornArray img = c.record();
  LevelSize want;
  {
    Env env;
    Form form;
    ASSERT_EQ(SORN_OK, form.run(&env.xe, 0, &img));
    want = both_passes(form);
    ASSERT_GE(want.size(), 3u);
  }
  *failed_runs = for_each_allocation_failure([&](int64_t k) {
    Env env;
    Form form;
    const KuMark mark = env.mark();
    SornStatus st;
    {
      AllocFailure failure(k, false, kinds);
      st = form.run(&env.xe, 0, &img);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(env.at(mark)) << "request " << k;
    if (st == SORN_ENOMEM) {
      ++*enomem_runs;
      EXPECT_TRUE(form.holds_nothing()) << "request " << k;
    } else {
      EXPECT_EQ(SORN_OK, st) << "request " << k;
    }
    // The plain form starts afresh on a filter that ran before; the f form
    // would extend its regions, so it gets a new filter.
    Form fresh;
    Form &again = Form::kF ? fresh : form;
    EXPECT_EQ(SORN_OK, again.run(&env.xe, 0, &img));
    EXPECT_EQ(want, both_passes(again)) << "request " << k;
    return true;
  });
  std::printf("[ requests ] %lld failed in turn, %lld answered SORN_ENOMEM\n",
              (long long)*failed_runs, (long long)*enomem_runs);
}

}  // namespace

template <class Form>
class GenerateOutOfMemory : public ::testing::Test {};
using Forms = ::testing::Types<FForm, PForm>;
TYPED_TEST_SUITE(GenerateOutOfMemory, Forms);

TYPED_TEST(GenerateOutOfMemory, BuildersAndResultsThatCannotBeMadeAnswerNoMemory) {
  int64_t runs = 0, enomem = 0;
  sweep_generation<TypeParam>(kStackOpen, &runs, &enomem);
  if (TypeParam::kF) {
    EXPECT_EQ(0, runs) << "the f form's results live in the filter, their stacks in its records";
  } else {
    EXPECT_EQ(2, runs) << "a builder for each pass";
  }
  EXPECT_EQ(runs, enomem);
}

TYPED_TEST(GenerateOutOfMemory, EveryScratchOrRegionBlockFailsCleanly) {
  int64_t runs = 0, enomem = 0;
  sweep_generation<TypeParam>(kStackBlock, &runs, &enomem);
  EXPECT_GE(runs, 10);
  EXPECT_EQ(runs, enomem) << "none of these blocks can be done without";
}

TYPED_TEST(GenerateOutOfMemory, EveryHeapBlockFailsCleanly) {
  int64_t runs = 0, enomem = 0;
  sweep_generation<TypeParam>(kHeapCalloc | kHeapRealloc, &runs, &enomem);
  EXPECT_GE(runs, 5);
}

// The watershed tree builder: layouts, its operation tables, regions,
// merges under both regimes, gathers, finish and destruction.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "region_common.h"
#include "testkit.h"

using namespace region_test;

namespace {

class Run : public ::testing::Test {
 protected:
  // A builder on its own stack over a parent stack, as the stable region
  // detection opens it.
  void open(int nfeatures, const uint32_t *magics) {
    parent = KuSMEMSTGopen(nullptr, 0, 0);
    b = SornWTSTBopen(nullptr, nullptr, nullptr, parent);
    ASSERT_NE(b, nullptr);
    for (int i = 0; i < nfeatures; ++i) {
      if (magics[i] == SORN_WTS_MAGIC_MOMENTS)
        SornWTSMFinitFeatureDs(&ds[i], nullptr);
      else
        SornWTSPFinitFeatureDs(&ds[i], nullptr);
    }
    SornWTSLSCinit2D(&lsc, ds, nfeatures, 100, 37, 37);
    SornWTSLSCfixup(&lsc);
  }
  void start(SornFlags flags) { wtsl_of(b)->start(b, &lsc, flags, opts); }
  void TearDown() override {
    SornSTBclose(b, 0);
    if (parent) KuMEMSTGclose(parent);
  }
  const SornWTSTBwtsl *w() { return wtsl_of(b); }

  void *parent = nullptr;
  SornSTB *b = nullptr;
  SornWTSFeatureDs ds[4]{};
  SornWTSLSC lsc{};
  uint16_t opts[2] = {0, 0};
};

const uint32_t kMoments[] = {SORN_WTS_MAGIC_MOMENTS};
const uint32_t kPixels[] = {SORN_WTS_MAGIC_PIXELS};
const uint32_t kBoth[] = {SORN_WTS_MAGIC_MOMENTS, SORN_WTS_MAGIC_PIXELS};

}  // namespace

/* ---------------- Layout ---------------- */

TEST(Lsc, ZeroFeaturesGiveTheHeadAlone) {
  SornWTSLSC lsc;
  std::memset(&lsc, 0xff, sizeof lsc);
  SornWTSLSCinit2D(&lsc, nullptr, -3, 4, 5, 8);
  EXPECT_EQ(lsc.nfeatures, 0);
  EXPECT_EQ(lsc.regionsize, 0u);
  SornWTSLSCfixup(&lsc);
  EXPECT_EQ(lsc.regionsize, 24u);
}

TEST(Lsc, FixupPlacesFeaturesOnEightByteSteps) {
  SornWTSFeatureDs ds[3]{};
  ds[0].size = 48;
  ds[1].size = 5;
  ds[2].size = 24;
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, ds, 3, 4, 5, 8);
  EXPECT_EQ(SornWTSLSCfixup(&lsc), &lsc);
  EXPECT_EQ(ds[0].offset, 24u);
  EXPECT_EQ(ds[1].offset, 72u);
  EXPECT_EQ(ds[2].offset, 80u);
  EXPECT_EQ(lsc.regionsize, 104u);
  // A layout above the head stands.
  ds[0].offset = 999;
  SornWTSLSCfixup(&lsc);
  EXPECT_EQ(ds[0].offset, 999u);
}

TEST(Lsc, ImageVolumeIn2DAndFromDimensionCells) {
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, nullptr, 0, 6, 7, 9);
  EXPECT_EQ(lsc.dims[0], 1u);
  EXPECT_EQ(lsc.dims[1], 6u);
  EXPECT_EQ(lsc.dims[2], 7u);
  EXPECT_EQ(lsc.dims[3], 1u);
  EXPECT_EQ(lsc.strides[0], 54u);
  EXPECT_EQ(lsc.strides[1], 9u);
  EXPECT_EQ(lsc.strides[2], 1u);
  EXPECT_EQ(lsc.strides[3], 1u);

  const int32_t dims4[4] = {2, 11, 13, 1};
  const int32_t strides4[4] = {2000, 16, 1, 1};
  SornWTSLSCinit(&lsc, nullptr, 0, SORN_DIMPACK(4), dims4, strides4);
  EXPECT_EQ(lsc.dims[1], 11u);
  EXPECT_EQ(lsc.dims[2], 13u);
  EXPECT_EQ(lsc.strides[1], 16u);
  EXPECT_EQ(lsc.strides[0], 11u * 16u);

  const int32_t dims3[3] = {11, 13, 1};
  const int32_t strides3[3] = {20, 1, 1};
  SornWTSLSCsetimvol(&lsc, SORN_DIMPACK(3), dims3, strides3);
  EXPECT_EQ(lsc.dims[1], 11u);
  EXPECT_EQ(lsc.dims[2], 13u);
  EXPECT_EQ(lsc.strides[1], 20u);

  // Rank 2: one row of dims[0] columns and no row stride.
  const int32_t dims2[2] = {17, 1};
  const int32_t strides2[2] = {1, 1};
  SornWTSLSCsetimvol(&lsc, 2, dims2, strides2);
  EXPECT_EQ(lsc.dims[1], 1u);
  EXPECT_EQ(lsc.dims[2], 17u);
  EXPECT_EQ(lsc.strides[1], 0u);
  EXPECT_EQ(lsc.strides[0], 0u);
}

/* ---------------- Tables ---------------- */

TEST(WtstbTables, FourTablesOfSixteenWords) {
  const SornWTSTBopv *tables[4] = {&_S_wtstb_lazy_opv, &_S_wtstb_opv, &_S_wtstb_mf_opv,
                                   &_S_wtstb_pf_opv};
  for (const SornWTSTBopv *t : tables) {
    const uint32_t *w32 = reinterpret_cast<const uint32_t *>(t);
    const uint64_t *w64 = reinterpret_cast<const uint64_t *>(t);
    EXPECT_EQ(w32[0], 0x7374626Cu);
    EXPECT_EQ(w32[1], 32u);
    EXPECT_EQ(w32[8], 0x7774736Cu);
    EXPECT_EQ(w32[9], 88u);
    EXPECT_EQ(w64[15], 0u);
    EXPECT_EQ(t->stbl.getddtor, _T_wtstb__getddtor__);
    EXPECT_EQ(t->stbl.attached, _T_wtstb__attached__);
    EXPECT_EQ(t->stbl.become_detached, _T_wtstb__become_detached__);
    EXPECT_EQ(t->wtsl.alloca, _T_wtstb__alloca__);
    EXPECT_EQ(t->wtsl.start, _T_wtstb__start__);
    EXPECT_EQ(t->wtsl.finish, _T_wtstb__finish__);
    EXPECT_EQ(t->wtsl.newregion, _T_wtstb__newregion_v2__);
    EXPECT_EQ(t->wtsl.destroyrgn, _T_wtstb__destroyrgn__);
    EXPECT_EQ(t->wtsl.disposergn, _T_wtstb__disposergn__);
    EXPECT_EQ(t->wtsl.gatherfeat, _T_wtstb__gatherfeat__);
    EXPECT_EQ(_T_stb__findblock(&t->stbl.hdr, SORN_STB_TAG_WTSL), &t->wtsl);
    EXPECT_EQ(_T_stb__findblock(&t->stbl.hdr, SORN_FOURCC('n', 'o', 'n', 'e')), nullptr);
  }
  EXPECT_EQ(_S_wtstb_lazy_opv.wtsl.accumulate, _T_wtstb__accumulate__);
  EXPECT_EQ(_S_wtstb_lazy_opv.wtsl.accumulate2D, _T_wtstb__accumulate2D__);
  EXPECT_EQ(_S_wtstb_lazy_opv.wtsl.merge, _T_wtstb__lazymerge_v2__);
  EXPECT_EQ(_S_wtstb_opv.wtsl.accumulate, _T_wtstb__accumulate__);
  EXPECT_EQ(_S_wtstb_opv.wtsl.accumulate2D, _T_wtstb__accumulate2D__);
  EXPECT_EQ(_S_wtstb_opv.wtsl.merge, _T_wtstb__merge_v2__);
  EXPECT_EQ(_S_wtstb_mf_opv.wtsl.accumulate, _T_wtstb__accumulate_mf__);
  EXPECT_EQ(_S_wtstb_mf_opv.wtsl.accumulate2D, _T_wtstb__accumulate2D_mf__);
  EXPECT_EQ(_S_wtstb_mf_opv.wtsl.merge, _T_wtstb__lazymerge_v2__);
  EXPECT_EQ(_S_wtstb_pf_opv.wtsl.accumulate, _T_wtstb__accumulate_pf__);
  EXPECT_EQ(_S_wtstb_pf_opv.wtsl.accumulate2D, _T_wtstb__accumulate2D_pf__);
  EXPECT_EQ(_S_wtstb_pf_opv.wtsl.merge, _T_wtstb__lazymerge_v2__);
  EXPECT_EQ(SornWTSTBxinterface(), &_S_wtstb_lazy_opv.stbl.hdr);
}

TEST(WtstbTables, InitInCallerStorageTakesTheLazyTable) {
  std::vector<uint64_t> store((sizeof(SornSTB) + SORN_WTSTB_EXTSIZE) / 8, 0);
  SornSTB *b = reinterpret_cast<SornSTB *>(store.data());
  EXPECT_EQ(SornWTSTBinit(b, nullptr, nullptr, nullptr), b);
  EXPECT_EQ(b->ops, SornWTSTBxinterface());
  EXPECT_EQ(b->extsize, 48);
  SornSTBfini(b, 0);
}

/* ---------------- Start, regions, accumulation ---------------- */

TEST_F(Run, ZeroFeaturesGiveNoDestructor) {
  open(0, nullptr);
  EXPECT_EQ(lsc.regionsize, 24u);
  start(0);
  EXPECT_EQ(b->userdata, SORN_STB_EXT(b));
  EXPECT_EQ(_T_wtstb__getddtor__(b, 0, 0), nullptr);
}

TEST_F(Run, DestructorOnlyForFeaturesThatHaveOne) {
  open(1, kMoments);
  EXPECT_EQ(_T_wtstb__getddtor__(b, 0, 0), nullptr);  // no layout yet
  start(0);
  EXPECT_EQ(_T_wtstb__getddtor__(b, 0, 0), nullptr);
  lsc.nfeatures = 2;
  SornWTSPFinitFeatureDs(&ds[1], nullptr);
  lsc.regionsize = 0;
  SornWTSLSCfixup(&lsc);
  start(0);
  EXPECT_EQ(_T_wtstb__getddtor__(b, 0, 0), _T_wtstb__destroy_node_region);
}

TEST_F(Run, StartCopiesTheLayoutIntoTheExtension) {
  open(2, kBoth);
  start(0);
  ASSERT_EQ(b->userdata, SORN_STB_EXT(b));
  EXPECT_EQ(std::memcmp(b->userdata, &lsc, sizeof lsc), 0);
  EXPECT_EQ(b->ops, SornWTSTBxinterface());
  w()->start(b, nullptr, 0, opts);
  EXPECT_EQ(b->userdata, nullptr);
}

TEST_F(Run, StartChoosesTheTableByFlagsAndFeature) {
  open(1, kMoments);
  start(0x100000);
  EXPECT_EQ(b->ops, &_S_wtstb_opv.stbl.hdr);
  b->ops = SornWTSTBxinterface();
  start(0x200000);
  EXPECT_EQ(b->ops, &_S_wtstb_mf_opv.stbl.hdr);
  // A later run without those bits keeps the table.
  start(0);
  EXPECT_EQ(b->ops, &_S_wtstb_mf_opv.stbl.hdr);
  b->ops = SornWTSTBxinterface();  // the reset is the caller's
  SornWTSPFinitFeatureDs(&ds[0], nullptr);
  start(0x400000);
  EXPECT_EQ(b->ops, &_S_wtstb_pf_opv.stbl.hdr);
  // Two features: no specialised table.
  b->ops = SornWTSTBxinterface();
  SornWTSMFinitFeatureDs(&ds[0], nullptr);
  SornWTSPFinitFeatureDs(&ds[1], nullptr);
  lsc.nfeatures = 2;
  lsc.regionsize = 0;
  SornWTSLSCfixup(&lsc);
  start(0x600000);
  EXPECT_EQ(b->ops, SornWTSTBxinterface());
  // Bit 20 wins over the others.
  start(0x700000);
  EXPECT_EQ(b->ops, &_S_wtstb_opv.stbl.hdr);
}

TEST_F(Run, NewRegionIsOneBlockWithItsNode) {
  open(2, kBoth);
  start(0);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  ASSERT_NE(r, nullptr);
  SornAGTnode *node = r->node;
  EXPECT_EQ(reinterpret_cast<char *>(node) + sizeof(SornAGTnode), reinterpret_cast<char *>(r));
  EXPECT_EQ(node->data, r);
  EXPECT_EQ(node->child, nullptr);
  EXPECT_EQ(r->size, 0u);
  EXPECT_EQ(r->pivot, 0u);
  EXPECT_EQ(mf_in(r, ds[0])->count, 0);
  EXPECT_EQ(pf_in(r, ds[1])->points, nullptr);
  // Given again: size and flag clear, node and pivot stay.
  r->pivot = 77;
  r->pivotval = 12;
  r->size = 5;
  r->mserflag = 1;
  EXPECT_EQ(w()->newregion(r, b, &lsc), r);
  EXPECT_EQ(r->node, node);
  EXPECT_EQ(r->pivot, 77u);
  EXPECT_EQ(r->pivotval, 12u);
  EXPECT_EQ(r->size, 0u);
  EXPECT_EQ(r->mserflag, 0u);
  // The slot allocator zeroes and aligns.
  char *p = static_cast<char *>((w()->alloca)(b, 40, 0));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(p[i], 0);
}

TEST_F(Run, AccumulateFeedsEveryFeature) {
  open(2, kBoth);
  start(0);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  const int32_t pts[6] = {1, 2, 3, 4, 5, 6};
  w()->accumulate2D(b, &lsc, r, pts, 3);
  uint32_t vec[16] = {0, 7, 8, 0, 0, 0, 0, 0, 9, 10, 11, 9, 9, 9, 9, 9};
  w()->accumulate(b, &lsc, r, vec, 2);
  EXPECT_EQ(r->size, 5u);
  SornWTSMF *m = mf_in(r, ds[0]);
  EXPECT_EQ(m->count, -5);
  EXPECT_EQ(m->sr, 1.0 + 3 + 5 + 7 + 10);
  EXPECT_EQ(m->sc, 2.0 + 4 + 6 + 8 + 11);
  EXPECT_EQ(pf_points(pf_in(r, ds[1])),
            (std::vector<Pt>{{1, 2}, {3, 4}, {5, 6}, {7, 8}, {10, 11}}));
  // Never merged, the region is in no tree: its features are ended by hand.
  w()->destroyrgn(r, nullptr, &lsc);
}

TEST_F(Run, MomentTableLeavesTheCountAtZero) {
  open(1, kMoments);
  start(0x200000);
  ASSERT_EQ(b->ops, &_S_wtstb_mf_opv.stbl.hdr);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  const int32_t pts[4] = {2, 3, 4, 5};
  w()->accumulate2D(b, &lsc, r, pts, 2);
  uint32_t vec[8] = {0, 1, 1, 0, 0, 0, 0, 0};
  w()->accumulate(b, &lsc, r, vec, 1);
  EXPECT_EQ(r->size, 3u);
  SornWTSMF *m = mf_in(r, ds[0]);
  EXPECT_EQ(m->count, 0);
  EXPECT_EQ(m->sr, 7.0);
  EXPECT_EQ(m->scc, 9.0 + 25 + 1);
}

TEST_F(Run, PixelTableStoresNoPoints) {
  open(1, kPixels);
  start(0x400000);
  ASSERT_EQ(b->ops, &_S_wtstb_pf_opv.stbl.hdr);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  const int32_t pts[4] = {2, 3, 4, 5};
  w()->accumulate2D(b, &lsc, r, pts, 2);
  uint32_t vec[8] = {0, 1, 1, 0, 0, 0, 0, 0};
  w()->accumulate(b, &lsc, r, vec, 1);
  EXPECT_EQ(r->size, 3u);
  EXPECT_EQ(pf_in(r, ds[0])->count, 0u);
  EXPECT_EQ(pf_in(r, ds[0])->points, nullptr);
}

/* ---------------- Merges ---------------- */

TEST_F(Run, LazyMergeLinksAndTheRootFollowsTheLastMerge) {
  open(1, kMoments);
  start(0);
  SornWTSRegion *a = w()->newregion(nullptr, b, &lsc);
  SornWTSRegion *c = w()->newregion(nullptr, b, &lsc);
  SornWTSRegion *d = w()->newregion(nullptr, b, &lsc);
  const int32_t p1[2] = {1, 1}, p2[4] = {2, 2, 3, 3};
  w()->accumulate2D(b, &lsc, c, p1, 1);
  w()->accumulate2D(b, &lsc, d, p2, 2);
  EXPECT_EQ(b->tree, nullptr);  // no tree before the first merge
  SornSTree *t = w()->merge(b, &lsc, a, c);
  EXPECT_EQ(t, &b->owntree);
  EXPECT_EQ(t->root, a->node);
  EXPECT_EQ(a->size, 1u);
  EXPECT_EQ(mf_in(a, ds[0])->sr, 0.0);  // lazily: the features stay
  w()->merge(b, &lsc, d, a);
  EXPECT_EQ(t->root, d->node);
  EXPECT_EQ(d->size, 3u);
  EXPECT_EQ(d->node->child, a->node);
  EXPECT_EQ(a->node->child, c->node);
  EXPECT_EQ(c->node->parent, a->node);
}

TEST_F(Run, EagerMergeCombinesAndALaterGatherFindsItDone) {
  open(2, kBoth);
  start(0x100000);
  SornWTSRegion *a = w()->newregion(nullptr, b, &lsc);
  SornWTSRegion *c = w()->newregion(nullptr, b, &lsc);
  const int32_t p1[2] = {1, 2}, p2[4] = {3, 4, 5, 6};
  w()->accumulate2D(b, &lsc, a, p1, 1);
  w()->accumulate2D(b, &lsc, c, p2, 2);
  w()->merge(b, &lsc, a, c);
  SornWTSMF *m = mf_in(a, ds[0]);
  EXPECT_EQ(m->count, 3);
  EXPECT_EQ(m->sr, 9.0);
  EXPECT_EQ(m->src, 2.0 + 12 + 30);
  EXPECT_TRUE(ds[1].isgathered(pf_in(a, ds[1])));
  EXPECT_EQ(pf_points(pf_in(a, ds[1])), (std::vector<Pt>{{1, 2}, {3, 4}, {5, 6}}));
  SornWTSMF before = *m;
  EXPECT_EQ(w()->gatherfeat(b, &lsc, m, nullptr, -1, SORN_WTS_MAGIC_MOMENTS), m);
  EXPECT_EQ(std::memcmp(&before, m, sizeof before), 0);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, pf_in(a, ds[1]), nullptr, 1, 0), pf_in(a, ds[1]));
  EXPECT_EQ(pf_in(a, ds[1])->count, 3u);
}

/* ---------------- Gathers ---------------- */

TEST_F(Run, InPlaceGatherOfALeafMarksItGathered) {
  open(2, kBoth);
  start(0);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  const int32_t p[4] = {1, 2, 3, 4};
  w()->accumulate2D(b, &lsc, r, p, 2);
  SornWTSMF *m = mf_in(r, ds[0]);
  EXPECT_EQ(m->count, -2);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, m, m, 0, 0), m);
  EXPECT_EQ(m->count, 2);
  EXPECT_EQ(m->sr, 4.0);
  SornWTSPF *pf = pf_in(r, ds[1]);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, pf, nullptr, -1, SORN_WTS_MAGIC_PIXELS), pf);
  EXPECT_TRUE(ds[1].isgathered(pf));
  EXPECT_EQ(pf->count, 2u);
  w()->destroyrgn(r, nullptr, &lsc);
}

TEST_F(Run, GatherFailures) {
  open(1, kMoments);
  start(0);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  SornWTSMF *m = mf_in(r, ds[0]);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, nullptr, nullptr, 0, 0), nullptr);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, m, nullptr, -1, SORN_WTS_MAGIC_PIXELS), nullptr);
  // A region whose node does not point back fails the check.
  SornAGTnode stray{};
  SornAGTnode *node = r->node;
  r->node = &stray;
  EXPECT_EQ(w()->gatherfeat(b, &lsc, m, nullptr, 0, 0), nullptr);
  EXPECT_EQ(m->count, 0);
  r->node = node;
  EXPECT_EQ(w()->gatherfeat(b, &lsc, m, nullptr, 0, 0), m);
}

TEST_F(Run, GatherIntoASeparateTargetFromAGatheredRegionCopies) {
  open(2, kBoth);
  start(0);
  SornWTSRegion *a = w()->newregion(nullptr, b, &lsc);
  SornWTSRegion *c = w()->newregion(nullptr, b, &lsc);
  const int32_t p1[2] = {1, 2}, p2[2] = {3, 4};
  w()->accumulate2D(b, &lsc, a, p1, 1);
  w()->accumulate2D(b, &lsc, c, p2, 1);
  w()->merge(b, &lsc, a, c);
  SornWTSMF *m = mf_in(a, ds[0]);
  w()->gatherfeat(b, &lsc, m, nullptr, 0, 0);
  ASSERT_EQ(m->count, 2);
  // Poison the child: a walk would show.
  mf_in(c, ds[0])->sr = 1000;
  SornWTSMF out;
  std::memset(&out, 0x5a, sizeof out);
  EXPECT_EQ(w()->gatherfeat(b, &lsc, &out, m, 0, 0), &out);
  EXPECT_EQ(std::memcmp(&out, m, sizeof out), 0);
}

TEST_F(Run, GatherIntoASeparateTargetSumsTheSubtree) {
  open(1, kMoments);
  start(0);
  auto rng = sorn_test::seeded_rng(82001);
  Plan plan = Plan::random(rng, 12, 20);
  auto regions = build(b, &lsc, plan, rng);
  SornWTSMF out{};
  SornWTSMF *src = mf_in(regions[0], ds[0]);
  SornWTSMF before = *src;
  EXPECT_EQ(w()->gatherfeat(b, &lsc, &out, src, 0, 0), &out);
  std::vector<Pt> all;
  plan.subtree_points(0, all);
  double s[5];
  ref_moments(all, s);
  EXPECT_EQ(out.count, static_cast<int32_t>(all.size()));
  EXPECT_EQ(out.sr, s[0]);
  EXPECT_EQ(out.sc, s[1]);
  EXPECT_EQ(out.srr, s[2]);
  EXPECT_EQ(out.src, s[3]);
  EXPECT_EQ(out.scc, s[4]);
  EXPECT_EQ(std::memcmp(&before, src, sizeof before), 0);  // the source is untouched
}

TEST_F(Run, LazyAndEagerRunsGiveTheSameFeaturesAfterAGather) {
  auto rng = sorn_test::seeded_rng(82002);
  for (int round = 0; round < 10; ++round) {
    int n = 1 + static_cast<int>(rng() % 30);
    Plan plan = Plan::random(rng, n, 25);
    SornSTB *lazy = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    SornSTB *eager = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    SornWTSFeatureDs f[2];
    SornWTSMFinitFeatureDs(&f[0], nullptr);
    SornWTSPFinitFeatureDs(&f[1], nullptr);
    SornWTSLSC l;
    SornWTSLSCinit2D(&l, f, 2, 100, 37, 37);
    SornWTSLSCfixup(&l);
    wtsl_of(lazy)->start(lazy, &l, 0, opts);
    wtsl_of(eager)->start(eager, &l, 0x100000, opts);
    auto rl = build(lazy, &l, plan, rng);
    auto re = build(eager, &l, plan, rng);
    if (n > 1) {
      EXPECT_EQ(lazy->tree->root, rl[0]->node);
      EXPECT_EQ(eager->tree->root, re[0]->node);
    }
    // Gather in place, in a random order of regions, so that nested
    // gathers meet regions gathered before.
    std::vector<int> order(n);
    for (int i = 0; i < n; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), rng);
    for (int i : order) {
      for (int k = 0; k < 2; ++k) {
        void *v = value_in(rl[i], f[k]);
        EXPECT_EQ(wtsl_of(lazy)->gatherfeat(lazy, &l, v, nullptr, k, 0), v);
      }
    }
    for (int i = 0; i < n; ++i) {
      std::vector<Pt> all;
      plan.subtree_points(i, all);
      double s[5];
      ref_moments(all, s);
      SornWTSMF *ml = mf_in(rl[i], f[0]);
      SornWTSMF *me = mf_in(re[i], f[0]);
      EXPECT_EQ(rl[i]->size, all.size());
      EXPECT_EQ(ml->count, static_cast<int32_t>(all.size())) << "region " << i;
      // A leaf of the eager run was never merged: its count stays lazy.
      EXPECT_EQ(std::abs(me->count), static_cast<int32_t>(all.size()));
      EXPECT_EQ(ml->sr, s[0]);
      EXPECT_EQ(ml->sc, s[1]);
      EXPECT_EQ(ml->srr, s[2]);
      EXPECT_EQ(ml->src, s[3]);
      EXPECT_EQ(ml->scc, s[4]);
      EXPECT_EQ(me->sr, s[0]);
      EXPECT_EQ(me->sc, s[1]);
      EXPECT_EQ(me->srr, s[2]);
      EXPECT_EQ(me->src, s[3]);
      EXPECT_EQ(me->scc, s[4]);
      EXPECT_EQ(sorted(pf_points(pf_in(rl[i], f[1]))), sorted(all));
      EXPECT_EQ(sorted(pf_points(pf_in(re[i], f[1]))), sorted(all));
    }
    SornSTBclose(lazy, 0);  // the pixel blocks go with the destructors
    SornSTBclose(eager, 0);
  }
}

/* ---------------- Finish and destruction ---------------- */

TEST_F(Run, FinishRestoresLevelsOnlyWhenAsked) {
  open(0, nullptr);
  start(0);
  auto rng = sorn_test::seeded_rng(82003);
  Plan plan = Plan::random(rng, 9, 3);
  auto regions = build(b, &lsc, plan, rng);
  opts[0] = 1;
  opts[1] = 0;
  w()->finish(b, &lsc, opts);
  for (size_t i = 0; i < regions.size(); ++i) EXPECT_EQ(regions[i]->pivotval, i % 256);
  opts[1] = 1;
  w()->finish(b, &lsc, opts);
  for (size_t i = 0; i < regions.size(); ++i) EXPECT_EQ(regions[i]->pivotval, (i % 256) ^ 255u);
  opts[0] = 0;
  w()->finish(b, &lsc, opts);
  for (size_t i = 0; i < regions.size(); ++i) EXPECT_EQ(regions[i]->pivotval, (i % 256) ^ 255u);
}

TEST_F(Run, DestroyRegionEndsItsFeatures) {
  open(2, kBoth);
  start(0);
  SornWTSRegion *r = w()->newregion(nullptr, b, &lsc);
  const int32_t p[4] = {1, 2, 3, 4};
  w()->accumulate2D(b, &lsc, r, p, 2);
  w()->disposergn(r, nullptr, &lsc);
  EXPECT_EQ(pf_in(r, ds[1])->count, 2u);
  w()->destroyrgn(r, nullptr, &lsc);
  EXPECT_EQ(pf_in(r, ds[1])->count, 0u);
  EXPECT_EQ(pf_in(r, ds[1])->points, nullptr);
  EXPECT_EQ(mf_in(r, ds[0])->sr, 4.0);  // moments have nothing to end
}

TEST_F(Run, ClearEndsEveryRegionAndRewindsTheStack) {
  open(1, kPixels);
  start(0);
  auto rng = sorn_test::seeded_rng(82004);
  for (int round = 0; round < 3; ++round) {
    Plan plan = Plan::random(rng, 20, 40);
    build(b, &lsc, plan, rng);
    SornSTBclear(b, 0);  // the sanitizer build proves the blocks freed
    EXPECT_EQ(b->tree, nullptr);
    KuMark now;
    KuSMEMSTGgetstate(&now, b->mmstack, 0);
    EXPECT_EQ(std::memcmp(&now, &b->mmbase, sizeof now), 0);
  }
}

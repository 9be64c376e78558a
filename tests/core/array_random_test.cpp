// Randomised checks of the constructors and of the way from a region of
// interest to a base pointer, against references written from the rules.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>

#include "testkit.h"

namespace {

using V4 = std::array<int32_t, 4>;

V4 v4(const int32_t *p) { return V4{p[0], p[1], p[2], p[3]}; }

alignas(16) unsigned char g_buf[1 << 16];

int32_t esize(uint32_t t) { return SORN_ELEMSIZE(t); }

TEST(ArrayXtrnRandom, MatchesTheConstructionRules) {
  auto rng = sorn_test::seeded_rng(0x7e7a);
  auto rnd = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  const uint32_t types[] = {SORN_U8, SORN_S8, SORN_S16, SORN_U16, SORN_S32, SORN_F32, SORN_F64};
  for (int iter = 0; iter < 2000; ++iter) {
    int32_t n = rnd(0, 4), off = rnd(0, 4 - n), t = n + off;
    uint32_t type = types[rng() % 7];
    V4 d{rnd(1, 9), rnd(1, 50), rnd(1, 50), rnd(1, 15)};
    V4 o{rnd(0, 3), rnd(0, 9), rnd(0, 9), 0};
    V4 s{rnd(0, 1) ? 0 : rnd(1, 100000), rnd(0, 1) ? 0 : rnd(1, 5000), rnd(0, 1) ? 0 : rnd(1, 64),
         rnd(0, 1) ? 0 : rnd(1, 8)};
    bool withOrigin = rng() % 2;
    // The given cells are the last t of each vector.
    const int32_t *gd = d.data() + 4 - n, *go = o.data() + 4 - n, *gs = s.data() + 4 - n;
    SornDimPack pack = (SornDimPack)(n | off << 4 | t << 8);

    SornArray a;
    std::memset(&a, 0x5a, sizeof a);
    __sorn_array__$xtrn(&a, pack, gd, type, g_buf, withOrigin ? go : nullptr, gs);

    V4 ed, eb, es;
    for (int i = 0; i < 4; ++i) {
      ed[i] = i < 4 - n ? 1 : d[i];
      eb[i] = i < 4 - t ? 1 : d[i] + (withOrigin ? o[i] : 0);
      es[i] = i < 4 - t ? 0 : s[i];
    }
    if (es[3] == 0) es[3] = esize(type);
    if (es[2] == 0) es[2] = SORN_CHANNELS(ed[3]) * es[3];
    if (es[1] == 0) es[1] = eb[2] * es[2];
    int64_t eoff = 0;
    if (withOrigin)
      for (int i = 4 - t; i < 4; ++i) eoff += (int64_t)o[i] * es[i];

    ASSERT_EQ(v4(a.dims), ed) << "n " << n << " off " << off;
    ASSERT_EQ(v4(a.bounds), eb);
    ASSERT_EQ(v4(a.strides), es);
    ASSERT_EQ(a.ndims, std::max(n, 3));
    ASSERT_EQ(a.ndimsall, std::max(t, 3));
    ASSERT_EQ(a.elemtype, type);
    ASSERT_EQ(a.offset, (int64_t)(int32_t)eoff);
    ASSERT_EQ(a.reserved, 0u);
    ASSERT_EQ(a.marker, 0x22u);
    ASSERT_EQ(a.link, 0u);
    ASSERT_EQ(a.data, (void *)g_buf);
  }
}

// A site point taken to data coordinates lands on the same byte that the
// site's offset plus the point's own offset gives.
TEST(ArrayTopcsRandom, PointLandsOnTheSameByte) {
  auto rng = sorn_test::seeded_rng(0x70c5);
  auto rnd = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  for (int iter = 0; iter < 2000; ++iter) {
    const int32_t ch = rnd(1, 4);
    const int32_t dims[4] = {rnd(1, 3), rnd(1, 20), rnd(1, 20), ch};
    const int32_t origin[4] = {rnd(0, 2), rnd(0, 5), rnd(0, 5), 0};
    SornArray a;
    __sorn_array__$xtrn(&a, 4, dims, SORN_S16, g_buf, origin, nullptr);
    a.strides[0] = a.bounds[1] * a.strides[1];
    a.offset = sorn_vec_mkloff(4, origin, a.strides);
    int32_t p[4] = {rnd(0, dims[0] - 1), rnd(0, dims[1] - 1), rnd(0, dims[2] - 1), rnd(0, ch - 1)};
    int32_t q[4];
    ASSERT_EQ(sorn_arr_pt2pcs(&a, q, p), (void *)g_buf);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(q[i], p[i] + origin[i]);
    ASSERT_EQ(sorn_vec_mkloff(4, q, a.strides), a.offset + sorn_vec_mkloff(4, p, a.strides));
    int32_t r[4];
    sorn_arr_topcs(&a, 4, r, p);
    ASSERT_EQ(v4(r), v4(q));
  }
}

// Sub-arrays: the site is cut to the region and the offset moves to its
// first pixel.
TEST(ArraySarRandom, MatchesIntersectionReference) {
  auto rng = sorn_test::seeded_rng(0x5a7);
  auto rnd = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  for (int iter = 0; iter < 2000; ++iter) {
    int32_t rows = rnd(1, 30), cols = rnd(1, 30), ch = rnd(1, 4);
    SornArray a = sorn_test::make_record(g_buf, rows, cols, ch, SORN_U8, cols * ch + rnd(0, 9));
    a.offset = rnd(0, 50);
    const int32_t o[2] = {rnd(-5, 35), rnd(-5, 35)}, z[2] = {rnd(-2, 30), rnd(-2, 30)};
    int32_t eo[2], es[2];
    bool ok = true;
    const int32_t site[2] = {rows, cols};
    for (int i = 0; i < 2; ++i) {
      eo[i] = std::max(0, o[i]);
      es[i] = std::min(site[i], o[i] + z[i]) - eo[i];
      if (es[i] < 1) ok = false;
    }
    SornArray s;
    __sorn_array__$_sar(&s, &a, 2, o, z);
    V4 expectDims{1, ok ? es[0] : 0, ok ? es[1] : 0, ch};
    ASSERT_EQ(v4(s.dims), expectDims);
    ASSERT_EQ(s.offset, a.offset + eo[0] * a.strides[1] + eo[1] * a.strides[2]);
    ASSERT_EQ(v4(s.bounds), v4(a.bounds));
    ASSERT_EQ(v4(s.strides), v4(a.strides));
  }
}

// The way every entry point goes: negotiate, bring origins into data
// coordinates, advance the base. The pointers land on the pixels that the
// region names, in images that are views with their own offsets.
TEST(ArrayRoiToBase, PointersLandOnTheNegotiatedPixels) {
  auto rng = sorn_test::seeded_rng(0xba5e);
  auto rnd = [&](int lo, int hi) { return lo + (int32_t)(rng() % (uint64_t)(hi - lo + 1)); };
  sorn_test::Image parent(40, 40, 3, SORN_S16, 6);
  int agreed_count = 0, empty = 0;
  for (int iter = 0; iter < 1000; ++iter) {
    // Two views into the parent, each with its own origin.
    const int32_t va[3] = {rnd(1, 20), rnd(1, 20), 3}, vb[3] = {rnd(1, 20), rnd(1, 20), 3};
    const int32_t oa[3] = {rnd(0, 19), rnd(0, 19), 0}, ob[3] = {rnd(0, 19), rnd(0, 19), 0};
    const int32_t st[3] = {parent.rowstride(), 0, 0};
    SornArray a, b;
    __sorn_array__$xtrn(&a, 3, va, SORN_S16, parent.base(), oa, st);
    __sorn_array__$xtrn(&b, 3, vb, SORN_S16, parent.base(), ob, st);
    SornVolume inA = sorn_test::make_roi(rnd(0, 5), rnd(0, 5), rnd(1, 20), rnd(1, 20), 3);
    SornVolume inB = sorn_test::make_roi(rnd(0, 5), rnd(0, 5), 0, 0, 0);
    SornVolume ra, rb;
    // The extent by the rules: a's view cut to inA, bounded by what b's view
    // has from inB's origin on. Only inB's origin counts.
    const int32_t rows = std::min(std::min(inA.origin[1] + inA.size[1], va[0]) - inA.origin[1],
                                  vb[0] - inB.origin[1]);
    const int32_t cols = std::min(std::min(inA.origin[2] + inA.size[2], va[1]) - inA.origin[2],
                                  vb[1] - inB.origin[2]);
    const bool agreed = sorn_arr_negotiateRoi(&a, &b, &ra, &rb, &inA, &inB, 3);
    ASSERT_EQ(agreed, rows > 0 && cols > 0) << "rows " << rows << " cols " << cols;
    ASSERT_EQ(ra.size[1], rows);
    ASSERT_EQ(ra.size[2], cols);
    ASSERT_EQ(rb.size[1], rows);
    ASSERT_EQ(rb.size[2], cols);
    ASSERT_EQ(ra.size[3], 3);
    ASSERT_EQ(rb.size[3], 3);
    if (!agreed) {
      ++empty;
      continue;
    }
    ++agreed_count;
    sorn_vec_update_$loff(4, ra.origin, a.strides, (int32_t)a.offset);
    sorn_vec_update_$loff(4, rb.origin, b.strides, (int32_t)b.offset);
    const SornDimPack pack = SORN_DIMPACK(3);
    void *pa = sorn_advance_ptr(a.data, sorn_vec_mkloff_$LS(pack, ra.origin + 1, a.strides + 1));
    void *pb = sorn_advance_ptr(b.data, sorn_vec_mkloff_$LS(pack, rb.origin + 1, b.strides + 1));
    ASSERT_EQ(pa, (void *)&parent.at<int16_t>(oa[0] + inA.origin[1], oa[1] + inA.origin[2]));
    ASSERT_EQ(pb, (void *)&parent.at<int16_t>(ob[0] + inB.origin[1], ob[1] + inB.origin[2]));
  }
  // Both outcomes occur often enough to be tested.
  EXPECT_GT(agreed_count, 500);
  EXPECT_GT(empty, 50);
}

}  // namespace

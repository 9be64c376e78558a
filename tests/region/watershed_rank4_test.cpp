// Rank-4 operands whose region starts inside them, in every cell: the
// frame stacks the planes into one image, and the flooding must see the
// same pixels, and build the same tree, as a rank-3 run on a dense copy of
// the region. Each operand lies in a guarded buffer that ends at the last
// byte its record describes, so that a read past the operand leaves the
// buffer (and the sanitizer build stops there).
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>
#include <vector>

#include "testkit.h"
#include "watershed_ref.h"

using sorn_test::Guarded;
using sorn_test::make_record;
using sorn_test::make_roi;

namespace {

constexpr SornFlags kF = 0x200000;

// A rank-4 operand of `planes` planes whose plane stride is `rows` rows
// (the region's rows, so that the frame can stack them), each plane record
// reaching `rows + oy` rows down: the region of `rows` rows at row oy of a
// plane runs on into the next plane's memory, which is one block of rows.
struct Stacked {
  int32_t planes, rows, cols, rowstride, planestride;
  int32_t oz, oy, ox;  // where the region starts
  int32_t prows, pcols;
  Guarded buf;

  Stacked(int32_t planes_, int32_t rows_, int32_t cols_, int32_t pad, int32_t oz_, int32_t oy_,
          int32_t ox_)
      : planes(planes_), rows(rows_), cols(cols_), oz(oz_), oy(oy_), ox(ox_),
        prows(rows_ + oy_), pcols(cols_ + ox_ + 2), buf(bytes_for(planes_, rows_, cols_ + ox_ + 2,
                                                                 pad, oy_)) {
    rowstride = pcols + pad;
    planestride = rows * rowstride;
  }

  // Exactly the bytes from the first element to the last the record holds.
  static size_t bytes_for(int32_t planes, int32_t rows, int32_t pcols, int32_t pad, int32_t oy) {
    const size_t rs = (size_t)(pcols + pad);
    return (size_t)(planes - 1) * rows * rs + (size_t)(rows + oy - 1) * rs + (size_t)pcols;
  }

  SornArray record() {
    SornArray a = sorn_test::make_record4(buf.data(), planes, prows, pcols, 1, SORN_U8,
                                          planestride, rowstride);
    return a;
  }
  SornVolume roi(int32_t nplanes) const {
    return make_roi(oy, ox, rows, cols, 1, oz, nplanes);
  }
  // Row y, column x of the stacked region (y counts over its planes).
  uint8_t &at(int32_t y, int32_t x) {
    return buf.data()[(size_t)oz * planestride + (size_t)(oy + y) * rowstride + (size_t)(ox + x)];
  }
};

// Random content everywhere, then the region's pixels from `img`.
void fill(Stacked &s, std::mt19937_64 &rng, const std::vector<uint8_t> &img, int32_t rows) {
  for (size_t i = 0; i < s.buf.size(); ++i) s.buf.data()[i] = (uint8_t)(rng() & 0xff);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < s.cols; ++x) s.at(y, x) = img[(size_t)y * s.cols + x];
}

// A tree as a flat list in preorder: what each region holds and how many
// children it has.
using Flat = std::vector<int64_t>;

void flatten_plain(const SornAGTnode *n, Flat &out) {
  const SornWTSRegion *r = static_cast<const SornWTSRegion *>(n->data);
  int64_t kids = 0;
  for (const SornAGTnode *c = n->child; c; c = c->next) ++kids;
  out.insert(out.end(), {(int64_t)r->pivot, (int64_t)r->pivotval, (int64_t)r->size, kids});
  for (const SornAGTnode *c = n->child; c; c = c->next) flatten_plain(c, out);
}

// The f form's regions with their own pixels in the order of their chains.
void flatten_f(const SornFWTSRegion *r, const uint32_t *links, int64_t npix, Flat &out) {
  int64_t kids = 0;
  for (const SornFWTSRegion *c = r->child; c; c = c->next) ++kids;
  out.insert(out.end(), {(int64_t)r->head, (int64_t)r->tail, (int64_t)r->level,
                         (int64_t)r->size, kids});
  int64_t n = 0;
  for (int64_t i = r->head; i != SORN_FWTSR_END && n <= npix; i = links[i], ++n)
    out.push_back(i);
  out.push_back(-1);
  for (const SornFWTSRegion *c = r->child; c; c = c->next) flatten_f(c, links, npix, out);
}

// The same flooding on a dense rank-3 image: the plain form through its
// entry, the f form (which its entry reaches only at rank 4) through the
// type-generic layer.
SornStatus dense_run(SornXE *xe, SornFlags flags, SornWTSState *st, bool fform,
                     std::vector<uint8_t> &img, std::vector<uint8_t> *mask, int32_t rows,
                     int32_t cols) {
  if (!fform) {
    SornArray a = make_record(img.data(), rows, cols, 1, SORN_U8, cols);
    if (!mask) return SornWatershed(xe, flags, &a, nullptr, st);
    SornArray m = make_record(mask->data(), rows, cols, 1, SORN_U8, cols);
    return SornWatershedEx(xe, flags, &a, &m, nullptr, nullptr, st);
  }
  // The vectors hold all four cells and are given at the first of the three.
  const int32_t dims4[4] = {1, rows, cols, 1}, strides4[4] = {0, cols, 1, 1};
  const int32_t origin4[4] = {0, 0, 0, 0};
  const int32_t *dims = dims4 + 1, *strides = strides4 + 1, *origin = origin4 + 1;
  if (!mask)
    return sorna_fwatershed(xe, flags, st, SORN_DIMPACK(3), dims, SORN_U8, img.data(), origin,
                            strides);
  return sorna_fwatershed_xm(xe, flags, st, SORN_DIMPACK(3), dims, SORN_U8, img.data(), origin,
                             strides, SORN_U8, mask->data(), origin, strides);
}

struct Outcome {
  SornStatus status;
  Flat tree;
};

// One run of either form; `call` makes the entry call with the state.
template <class Call>
Outcome run(bool fform, const SornWTSState &proto, int64_t npix, Call call) {
  Outcome o;
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  SornWTSState st = proto;
  if (fform) {
    SornFWTSRES res{};
    SornFWTSRESinit(&res, nullptr, nullptr);
    st.builder = &res;
    o.status = call(&xe, kF, &st);
    if (res.root) flatten_f(res.root, res.links, npix, o.tree);
    SornFWTSRESfini(&res);
  } else {
    SornSTB *b = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    SornWTSLSC lsc;
    SornWTSLSCinit2D(&lsc, nullptr, 0, 0, 0, 0);
    st.builder = b;
    st.lsc = &lsc;
    o.status = call(&xe, 0, &st);
    if (b->tree && b->tree->root) flatten_plain(b->tree->root, o.tree);
    SornSTBclose(b, 0);
  }
  SornXEfini(&xe);
  return o;
}

void expect_same(const Outcome &got, const Outcome &want) {
  EXPECT_EQ(got.status, want.status);
  EXPECT_EQ(got.tree, want.tree);
}

// Two planes of a three-plane image from plane 1, row 3, column 5, under a
// mask of other strides from plane 1, row 1, column 2, against the same
// pixels as a dense rank-3 image of twice the rows.
int g_trees = 0;

void compare_case(std::mt19937_64 &rng, bool fform, bool masked) {
  const int32_t rows = 6 + (int32_t)(rng() % 10), cols = 4 + (int32_t)(rng() % 20);
  const int32_t nplanes = 2;
  Stacked im(3, rows, cols, (int32_t)(rng() % 4), 1, 3, 5);
  Stacked mk(3, rows, cols, (int32_t)(rng() % 4), 1, 1, 2);
  const int32_t srows = nplanes * rows;
  std::vector<uint8_t> img = wts_ref::random_levels(rng, srows, cols);
  std::vector<uint8_t> msk((size_t)srows * cols);
  const bool inv = (rng() & 1) != 0;
  const uint8_t excl = inv ? 0xFF : 0;
  {
    const int32_t bh = 1 + (int32_t)(rng() % 5), bw = 1 + (int32_t)(rng() % 5);
    const int32_t lead = rng() % 3 == 0 ? (int32_t)(rng() % 4) : 0;
    std::vector<uint8_t> coarse((size_t)(srows / bh + 1) * (cols / bw + 1));
    for (auto &v : coarse) v = rng() % 4 == 0;
    for (int32_t y = 0; y < srows; ++y)
      for (int32_t x = 0; x < cols; ++x) {
        const bool out = y < lead || coarse[(size_t)(y / bh) * (cols / bw + 1) + x / bw];
        msk[(size_t)y * cols + x] = out ? excl : (uint8_t)(inv ? rng() % 255 : 1 + rng() % 255);
      }
  }
  fill(im, rng, img, srows);
  fill(mk, rng, msk, srows);

  SornWTSState proto{};
  proto.polarity = (uint16_t)(rng() % 3 == 0 ? 1 : 0);
  proto.connectivity = (uint16_t)(rng() % 2);
  proto.shift = (uint16_t)(fform && rng() % 4 == 0 ? 2 : 0);
  if (rng() % 3) {
    proto.seed[1] = (uint32_t)(rng() % srows);
    proto.seed[2] = (uint32_t)(rng() % cols);
  }
  const SornFlags extra = inv ? SORN_F_WTS_INVMASK : 0;
  SCOPED_TRACE(testing::Message() << (fform ? "f form " : "plain form ") << srows << "x" << cols
                                  << (masked ? " masked" : "") << " seed " << proto.seed[1]
                                  << "," << proto.seed[2]);
  const int64_t npix = (int64_t)srows * cols;

  SornArray a4 = im.record(), m4 = mk.record();
  const SornVolume roi = im.roi(nplanes), mroi = mk.roi(nplanes);
  Outcome got = run(fform, proto, npix, [&](SornXE *xe, SornFlags f, SornWTSState *st) {
    return masked ? SornWatershedEx(xe, f | extra, &a4, &m4, &roi, &mroi, st)
                  : SornWatershed(xe, f | extra, &a4, &roi, st);
  });
  EXPECT_TRUE(im.buf.guards_intact());
  EXPECT_TRUE(mk.buf.guards_intact());

  Outcome want = run(fform, proto, npix, [&](SornXE *xe, SornFlags f, SornWTSState *st) {
    return dense_run(xe, f | extra, st, fform, img, masked ? &msk : nullptr, srows, cols);
  });
  ASSERT_EQ(want.status, SORN_OK);
  expect_same(got, want);
  if (!want.tree.empty() && want.tree[fform ? 4 : 3] > 0) ++g_trees;  // the root has children
}

// Runs of 40 cases, of which enough must build a tree of two nodes or more.
void compare_cases(uint64_t seed, bool fform, bool masked) {
  auto rng = sorn_test::seeded_rng(seed);
  g_trees = 0;
  for (int i = 0; i < 40; ++i) {
    compare_case(rng, fform, masked);
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(g_trees, 15) << "too few trees of two nodes or more";
}

}  // namespace

TEST(WatershedRankFour, PlainRegionFromInsideEveryCellFloodsOnlyItsPixels) {
  compare_cases(0x5eed0401, false, false);
}

TEST(WatershedRankFour, PlainMaskedRegionFromInsideEveryCellFloodsOnlyItsPixels) {
  compare_cases(0x5eed0402, false, true);
}

TEST(WatershedRankFour, FRegionFromInsideEveryCellFloodsOnlyItsPixels) {
  compare_cases(0x5eed0403, true, false);
}

TEST(WatershedRankFour, FMaskedRegionFromInsideEveryCellFloodsOnlyItsPixels) {
  compare_cases(0x5eed0404, true, true);
}

// The smallest form of the finding: dense planes, the region from the
// second on. Stacked by the frame, the plane's place was once added in
// rows, far past the operand.
TEST(WatershedRankFour, SecondOfDensePlanesIsFloodedWhereItLies) {
  const int32_t rows = 5, cols = 6;
  Guarded buf((size_t)3 * rows * cols);
  for (size_t i = 0; i < buf.size(); ++i) buf.data()[i] = (uint8_t)(200 + i % 7);
  std::vector<uint8_t> plane((size_t)rows * cols);
  for (int32_t i = 0; i < rows * cols; ++i) plane[(size_t)i] = (uint8_t)(i < 18 ? 10 : 40);
  std::memcpy(buf.data() + (size_t)rows * cols, plane.data(), plane.size());
  SornArray a4 = sorn_test::make_record4(buf.data(), 3, rows, cols, 1, SORN_U8, rows * cols, cols);
  const SornVolume roi = make_roi(0, 0, rows, cols, 1, 1, 1);
  for (bool fform : {false, true}) {
    SCOPED_TRACE(fform ? "f form" : "plain form");
    SornWTSState proto{};
    Outcome got = run(fform, proto, rows * cols, [&](SornXE *xe, SornFlags f, SornWTSState *st) {
      return SornWatershed(xe, f, &a4, &roi, st);
    });
    Outcome want = run(fform, proto, rows * cols, [&](SornXE *xe, SornFlags f, SornWTSState *st) {
      return dense_run(xe, f, st, fform, plane, nullptr, rows, cols);
    });
    ASSERT_EQ(want.status, SORN_OK);
    EXPECT_FALSE(want.tree.empty());
    expect_same(got, want);
    EXPECT_TRUE(buf.guards_intact());
  }
}

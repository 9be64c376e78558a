// Regression tests of what the fuzzers found, one test per finding, each
// with the smallest call that shows it. The operands sit in canvases large
// enough to hold what the faulty paths touch, so that a finding that came
// back makes its test fail and never corrupts the test program. A finding
// lands here together with its fix: no test waits for one.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>

#include "canvas.h"
#include "testkit.h"

namespace sorn_reliability {
namespace {

SornXE fresh_env() {
  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
  return xe;
}

// An empty channel cell in an entry's ROI reached the kernels as a channel
// count and an element offset: the arithmetic folded (count & 15) channels
// of a negative count into a far longer row and wrote past the
// destination's ROI, or with the cell's origin at the channel count started
// each row past its first pixel; the sums chose the four-channel kernel
// for a one-channel image and wrote four results.
TEST(Findings, AddWithNegativeChannelCellInDestinationRoiWritesNothing) {
  // Margins wide enough for the fifteen-fold row the finding wrote.
  Image d, a, b;
  make_image(d, SORN_U8, 1, 4, 4, 1, 16, 0);
  make_image(a, SORN_U8, 1, 4, 4, 1, 16, 0);
  make_image(b, SORN_U8, 1, 4, 4, 1, 16, 0);
  SornVolume roi = sorn_test::make_roi(0, 0, 4, 4, -1);
  SornXE xe = fresh_env();
  d.canvas.snapshot();
  const SornStatus st = SornAdd(&xe, 0, &d.rec, &a.rec, &b.rec, &roi, nullptr, nullptr, 0, 0);
  SornXEfini(&xe);
  EXPECT_EQ(st, SORN_ENOSPC);
  EXPECT_TRUE(d.canvas.unchanged());
}

TEST(Findings, AddWithChannelOriginAtTheCountInDestinationRoiWritesNothing) {
  // Two channels, the ROI's channel cell from 2 on: no channel is left, but
  // each row would start one pixel further on.
  Image d, a, b;
  make_image(d, SORN_S16, 1, 4, 3, 2, 2, 0);
  make_image(a, SORN_S16, 1, 4, 3, 2, 2, 0);
  make_image(b, SORN_S16, 1, 4, 3, 2, 2, 0);
  SornVolume roi = sorn_test::make_roi(0, 0, 4, 3, 2);
  roi.origin[3] = 2;
  SornXE xe = fresh_env();
  d.canvas.snapshot();
  const SornStatus st = SornAdd(&xe, 0, &d.rec, &a.rec, &b.rec, &roi, nullptr, nullptr, 0, 0);
  SornXEfini(&xe);
  EXPECT_EQ(st, SORN_ENOSPC);
  EXPECT_TRUE(d.canvas.unchanged());
}

TEST(Findings, SumWithNegativeChannelCellInRoiWritesNoMoreResultsThanChannels) {
  Image src;
  make_image(src, SORN_U8, 1, 4, 4, 1, 16, 0);
  Block out;
  out.make(sizeof(double));  // one channel: one result
  SornVolume roi = sorn_test::make_roi(0, 0, 4, 4, -5);  // count -5: word bits of four
  SornXE xe = fresh_env();
  out.canvas.snapshot();
  const SornStatus st = SornSum(&xe, 0, &src.rec, &roi, reinterpret_cast<double *>(out.data()));
  SornXEfini(&xe);
  EXPECT_EQ(st, SORN_ENOSPC);
  EXPECT_TRUE(out.canvas.unchanged());
}

// Volume capacities formed the product of four cells in a signed 64-bit
// word, which overflowed (undefined) for large cells.
TEST(Findings, VolumeCapacityOfLargeCellsIsDefined) {
  // 2^16 four times is 2^64: the product wraps to 0 like the library's other
  // cell arithmetic, and is never undefined (the sanitizer build checks).
  const int32_t cells[4] = {65536, 65536, 65536, 65536};
  EXPECT_EQ(sorn_volume__capacity(4, cells), 0);
  EXPECT_EQ(sorn_volume__capacity_$Q(4, cells), 0);
  const int32_t neg[4] = {-65536, 65536, 65536, 32768};
  EXPECT_EQ(sorn_volume__capacity(4, neg), INT64_MIN);
}

// The weighted sum of a histogram formed ilow + i in a signed 32-bit word,
// which overflowed (undefined) for a range near the top of s32.
TEST(Findings, HistogramSumNearTheTopOfS32Wraps) {
  // Ten values of 2^31 - 1 in a range of one value and 19 bins: the sum runs
  // over every counter with the value ilow + i, wrapping, and is never
  // undefined (the sanitizer build checks).
  Image src;
  make_image(src, SORN_S32, 1, 1, 10, 1, 1, 0);
  std::mt19937_64 rng(1);
  fill_site(src, rng, [](std::mt19937_64 &) { return 2147483647.0; });
  SornHistInit init;
  std::memset(&init, 0, sizeof init);
  init.elemtype = SORN_S32;
  init.bins = 19;
  init.low = 2147483647.0;
  init.high = 2147483647.0;
  init.planes = 1;
  init.rows = 1;
  init.cols = 10;
  SornHist h;
  ASSERT_EQ(__sorn_histogram__$ia(&h, &init), SORN_OK);
  SornXE xe = fresh_env();
  const SornStatus st = SornHistogram(&xe, 0, &src.rec, nullptr, 0, &h);
  SornXEfini(&xe);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(h.counts[0], 10u);
  EXPECT_EQ(h.isum, (uint32_t)(10u * 2147483647u));
  sorn_hist_fini(&h);
}

// A sum formed in f64 that rounds up to 2^31 (2147483647.5 and above) was
// converted to s32 as it stood, which is undefined, instead of giving
// 0x80000000 like every other value outside 32 bits.
TEST(Findings, AddOfDoubleSumRoundingUpTo2Pow31GivesTheOutOfRangeValue) {
  Image d, a, b;
  make_image(d, SORN_S32, 1, 1, 2, 1, 1, 0);
  make_image(a, SORN_F32, 1, 1, 2, 1, 1, 0);
  make_image(b, SORN_S32, 1, 1, 2, 1, 1, 0);
  std::mt19937_64 rng(1);
  fill_site(a, rng, [](std::mt19937_64 &) { return 0.5; });
  fill_site(b, rng, [](std::mt19937_64 &) { return 2147483647.0; });
  SornXE xe = fresh_env();
  const SornStatus st = SornAdd(&xe, 0, &d.rec, &a.rec, &b.rec, nullptr, nullptr, nullptr, 0, 0);
  SornXEfini(&xe);
  ASSERT_EQ(st, SORN_OK);
  // 2147483647.5 rounds to the even 2^31, outside 32 bits.
  int32_t v;
  std::memcpy(&v, d.canvas.data() + d.at(0, 0, 0), 4);
  EXPECT_EQ(v, INT32_MIN);
}

// At rank 4 the call frame merges dense dimensions and adds the outer
// origin times the outer byte stride to the inner origin cell, which counts
// elements: with an origin off zero the kernels read outside the operand.
TEST(Findings, RankFourSumWithPlaneOriginReadsOnlyItsOperand) {
  // Two planes of 3 x 4 s16 ones, behind one plane of the parent, inside a
  // canvas whose other elements are large. Without a margin the planes lie
  // back to back and the frame merges them into one slice of six rows: the
  // sum covers both. With a margin the planes have a gap, cannot be merged,
  // and the one call the frame makes sees the first plane alone.
  for (int32_t margin : {0, 1}) {
    Image im;
    make_image(im, SORN_S16, 2, 3, 4, 1, margin, 0, 4);
    for (size_t i = 0; i + 1 < im.canvas.bytes.size(); i += 2) {
      const int16_t big = 10000;
      std::memcpy(im.canvas.data() + i, &big, 2);
    }
    std::mt19937_64 rng(1);
    fill_site(im, rng, [](std::mt19937_64 &) { return 1.0; });
    double sums[4] = {0, 0, 0, 0};
    SornXE xe = fresh_env();
    const SornStatus st = SornSum(&xe, 0, &im.rec, nullptr, sums);
    SornXEfini(&xe);
    ASSERT_EQ(st, SORN_OK);
    EXPECT_EQ(sums[0], margin == 0 ? 24.0 : 12.0) << "margin " << margin;
  }
}

// A lookup answers a key it holds no kernel for with a status stub that
// takes no arguments; the dispatchers called it through the kernel's type,
// which is undefined (clang's function sanitizer reports it; g++ has no
// such check). They now take the lookup's status and return it without a
// call. What callers see is unchanged, and pinned down by the refusal tests
// of each family (AddDispatch.KnownTriplesWithoutKernelAreNotSupported,
// HistogramEntry.TypesWithoutKernelAreNotSupported, ...) and below; the
// fuzz targets, built with that sanitizer, check the calls themselves.
TEST(Findings, DispatchersAnswerARefusedKernelKeyWithItsStatusAndWriteNothing) {
  const SornDimPack pack = SORN_DIMPACK(3);
  int32_t dims[3] = {1, 2, 1}, s1[3] = {2, 1, 1}, s2[3] = {4, 2, 2}, s8[3] = {16, 8, 8};
  uint8_t src[2] = {1, 2}, mask[2] = {1, 1};
  uint16_t d16[2] = {9, 9};
  // Known types without a kernel, and a code that is no type.
  EXPECT_EQ(sorna__add(nullptr, 0, pack, dims, SORN_U16, d16, s2, SORN_U8, src, s1, SORN_U8, src,
                       s1, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(sorna__add(nullptr, 0, pack, dims, 7, d16, s2, SORN_U8, src, s1, SORN_U8, src, s1, 0, 0),
            SORN_EINVAL);
  EXPECT_EQ(d16[0], 9);
  EXPECT_EQ(d16[1], 9);

  const double untouched[4] = {-7, -7, -7, -7};
  double sums[4];
  std::memcpy(sums, untouched, sizeof sums);
  uint64_t wide[2] = {1, 2};
  EXPECT_EQ(sorna__sum(nullptr, 0, pack, dims, SORN_U64, wide, s8, sums), SORN_ENOTSUP);
  EXPECT_EQ(sorna__sum(nullptr, 0, pack, dims, 6, src, s1, sums), SORN_EINVAL);
  EXPECT_EQ(sorna__sum_xm(nullptr, 0, pack, dims, SORN_U64, wide, s8, mask, s1, sums), SORN_ENOTSUP);
  EXPECT_EQ(sorna__mean(nullptr, 0, pack, dims, 6, src, s1, sums), SORN_EINVAL);
  EXPECT_EQ(std::memcmp(sums, untouched, sizeof sums), 0);

  SornHist h, h0;
  std::memset(&h, 0x5a, sizeof h);
  std::memcpy(&h0, &h, sizeof h);
  EXPECT_EQ(sorna__histogram(nullptr, 0, pack, dims, SORN_U64, wide, s8, &h), SORN_ENOTSUP);
  EXPECT_EQ(sorna__histogram_xm(nullptr, 0, pack, dims, 6, src, s1, mask, s1, &h), SORN_EINVAL);
  EXPECT_EQ(std::memcmp(&h, &h0, sizeof h), 0);
}

// A plain flooding that ends with regions on its stack which never took
// part in a merge (an image of one level and at least 16 pixels, say)
// leaves them outside the tree. Closing the builder destroyed the features
// of the tree's regions only, so the feature values of those regions were
// never destroyed: the pixel feature's point lists leaked.
//
// A feature that counts its live values: init adds one, destroy takes one.
struct LiveCount {
  int64_t live = 0;
  int64_t made = 0;
};
void count_init(void *value, void *arg) {
  std::memcpy(value, &arg, sizeof arg);
  ++static_cast<LiveCount *>(arg)->live;
  ++static_cast<LiveCount *>(arg)->made;
}
void count_destroy(void *value) {
  LiveCount *c;
  std::memcpy(&c, value, sizeof c);
  --c->live;
}
void count_update2D(void *, const int32_t *, int32_t) {}
void count_merge(void *, const void *) {}

TEST(Findings, ClosingTheBuilderDestroysTheFeaturesOfEveryRegionOfAFlooding) {
  LiveCount count;
  SornWTSFeatureDs ds;
  std::memset(&ds, 0, sizeof ds);
  ds.magic = SORN_FOURCC('l', 'i', 'v', 'e');
  ds.size = sizeof(void *);
  ds.arg = &count;
  ds.init = count_init;
  ds.destroy = count_destroy;
  ds.update2D = count_update2D;
  ds.merge = count_merge;
  ds.lazymerge = count_merge;
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, &ds, 1, 0, 0, 0);
  // One row of twenty pixels of one level: a region of 20 pixels that
  // nothing is ever merged with.
  Image im;
  make_image(im, SORN_U8, 1, 1, 20, 1, 2, 0);
  std::mt19937_64 rng(1);
  fill_site(im, rng, [](std::mt19937_64 &) { return 7.0; });
  SornSTB *b = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(b, nullptr);
  SornWTSState st;
  std::memset(&st, 0, sizeof st);
  st.builder = b;
  st.lsc = &lsc;
  SornXE xe = fresh_env();
  const SornStatus status = SornWatershed(&xe, 0, &im.rec, nullptr, &st);
  SornXEfini(&xe);
  EXPECT_EQ(status, SORN_OK);
  EXPECT_GT(count.made, 0) << "the flooding made a region";
  SornSTBclose(b, 0);
  EXPECT_EQ(count.live, 0);
}

}  // namespace
}  // namespace sorn_reliability

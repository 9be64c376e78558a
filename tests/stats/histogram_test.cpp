// Counting: SornHistogram and SornHistogramEx from the entry to the kernels,
// against a plain count written here.
#include <limits>

#include "stats_testutil.h"

using sorn_test::Image;
using stats_test::Env;
using stats_test::ref_histogram;
using stats_test::TestHist;

namespace {

constexpr SornFlags kInv = 0x20000;

std::vector<double> values_of(const Image &img, const SornVolume *roi = nullptr) {
  std::vector<double> v;
  int32_t oy = roi ? roi->origin[1] : 0, ox = roi ? roi->origin[2] : 0;
  int32_t ny = roi ? roi->size[1] : img.rows(), nx = roi ? roi->size[2] : img.cols();
  for (int32_t y = oy; y < oy + ny; ++y)
    for (int32_t x = ox; x < ox + nx; ++x) v.push_back(img.get(y, x, 0));
  return v;
}

void fill_u8(Image &img, std::mt19937_64 &rng, int lo = 0, int hi = 255) {
  for (int32_t y = 0; y < img.rows(); ++y)
    for (int32_t x = 0; x < img.cols(); ++x)
      for (int32_t c = 0; c < img.channels(); ++c)
        img.set(y, x, c, lo + (double)(rng() % (uint64_t)(hi - lo + 1)));
}

void expect_counts(const TestHist &t, const stats_test::RefHist &r) {
  for (size_t i = 0; i < r.counts.size(); ++i)
    ASSERT_EQ(t.store[i], r.counts[i]) << "bin " << i;
  EXPECT_EQ(t.h.isum, r.isum);
  EXPECT_EQ(t.h.fsum, r.fsum);
}

}  // namespace

/* ---------------- edge cases ---------------- */

TEST(HistogramU8, FullRangeBinIsTheValue) {
  Env env;
  Image img(7, 33, 1, SORN_U8);
  for (int y = 0; y < 7; ++y)
    for (int x = 0; x < 33; ++x) img.set(y, x, 0, (y * 33 + x) % 256);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  uint32_t s = 0;
  for (double v : values_of(img)) s += (uint32_t)v;
  for (int b = 0; b < 256; ++b) {
    uint32_t n = 0;
    for (double v : values_of(img)) n += (v == b);
    ASSERT_EQ(t.store[b], n) << b;
  }
  EXPECT_EQ(t.h.isum, s);
  EXPECT_EQ(t.h.fsum, (float)(int32_t)s);
  EXPECT_EQ(t.store[256], 0u);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistogramU8, HalfTheBinsHalveTheValue) {
  Env env;
  for (int cols : {9, 40}) {
    Image img(3, cols, 1, SORN_U8);
    auto rng = sorn_test::seeded_rng(101 + cols);
    fill_u8(img, rng);
    TestHist t(128, 0, 255);
    ASSERT_EQ(t.h.irange, 256);
    SornArray a = img.record();
    ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
    std::vector<uint32_t> want(129, 0);
    for (double v : values_of(img)) want[(int)v / 2]++;
    for (int b = 0; b <= 128; ++b) ASSERT_EQ(t.store[b], want[b]) << b;
  }
}

TEST(HistogramU8, WidthFourteenAndFifteenCountAlike) {
  Env env;
  auto rng = sorn_test::seeded_rng(14);
  Image wide(5, 15, 1, SORN_U8);
  fill_u8(wide, rng);
  Image narrow(5, 14, 1, SORN_U8);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 14; ++x) narrow.set(y, x, 0, wide.get(y, x, 0));
  // The fifteenth column is made a value already counted elsewhere, then
  // taken out of the comparison by counting it on its own.
  TestHist t15(256, 0, 255), t14(256, 0, 255);
  SornArray a15 = wide.record(), a14 = narrow.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a15, nullptr, 0, &t15.h), SORN_OK);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a14, nullptr, 0, &t14.h), SORN_OK);
  for (int y = 0; y < 5; ++y) t14.store[(int)wide.get(y, 14, 0)]++;
  for (int b = 0; b < 256; ++b) ASSERT_EQ(t15.store[b], t14.store[b]) << b;
  // Same data, one by the bank path and one by the direct path: ROI of 14.
  TestHist r14(256, 0, 255);
  SornVolume roi = sorn_test::make_roi(0, 0, 5, 14, 1);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a15, &roi, 0, &r14.h), SORN_OK);
  TestHist d14(256, 0, 255);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a14, nullptr, 0, &d14.h), SORN_OK);
  for (int b = 0; b < 256; ++b) ASSERT_EQ(r14.store[b], d14.store[b]) << b;
  EXPECT_EQ(r14.h.isum, d14.h.isum);
}

TEST(HistogramU8, TwiceWithoutResetAboveTheBankLimitDoublesTheSum) {
  Env env;
  auto rng = sorn_test::seeded_rng(2);
  Image img(4, 64, 1, SORN_U8);
  fill_u8(img, rng);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  uint32_t once = t.h.isum;
  std::vector<uint32_t> first = t.store;
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  for (int b = 0; b < 256; ++b) ASSERT_EQ(t.store[b], 2 * first[b]);
  EXPECT_EQ(t.h.isum, 2 * once);
}

TEST(HistogramU8, TwiceWithoutResetBelowTheBankLimitTriplesTheSum) {
  Env env;
  auto rng = sorn_test::seeded_rng(3);
  Image img(4, 10, 1, SORN_U8);
  fill_u8(img, rng);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  // Padded rows stay rows of 10: no merge into one long row.
  Image padded(4, 10, 1, SORN_U8, 6);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 10; ++x) padded.set(y, x, 0, img.get(y, x, 0));
  SornArray p = padded.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &p, nullptr, 0, &t.h), SORN_OK);
  uint32_t once = t.h.isum;
  ASSERT_EQ(SornHistogram(env.xe(), 0, &p, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.h.isum, 3 * once);
  EXPECT_EQ(t.h.fsum, (float)(int32_t)(3 * once));
  (void)a;
}

TEST(HistogramF32, OneBinTakesEveryValue) {
  Env env;
  Image img(3, 5, 1, SORN_F32);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) img.set(y, x, 0, -1.0 + 0.5 * (y * 5 + x));
  TestHist t(1, -1.0, 6.0);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[0], 15u);
  EXPECT_EQ(t.store[1], 0u);
  EXPECT_EQ(t.h.fsum, (0.0f + -1.0f) * 15.0f);
  EXPECT_EQ(t.h.isum, (uint32_t)-15);
}

TEST(HistogramF32, LowEqualHighPutsEverythingInBinZero) {
  Env env;
  Image img(2, 4, 1, SORN_F32);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) img.set(y, x, 0, 2.0);
  TestHist t(8, 2.0, 2.0);
  EXPECT_EQ(t.h.width, 0.0f);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[0], 8u);
  EXPECT_EQ(t.h.fsum, 16.0f);
  EXPECT_EQ(t.h.isum, 16u);
}

TEST(HistogramF32, HighFallsInTheLastBin) {
  Env env;
  Image img(1, 3, 1, SORN_F32);
  img.set(0, 0, 0, 0.0);
  img.set(0, 1, 0, 5.0);
  img.set(0, 2, 0, 10.0);
  TestHist t(11, 0.0, 10.0);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[0], 1u);
  EXPECT_EQ(t.store[5], 1u);
  EXPECT_EQ(t.store[10], 1u);
  // The sum steps by 1 from low, not by the width.
  EXPECT_EQ(t.h.fsum, 0.0f + 5.0f + 10.0f);
}

TEST(HistogramF32, SumStepsByOneNotByTheWidth) {
  Env env;
  Image img(1, 2, 1, SORN_F32);
  img.set(0, 0, 0, 0.0);
  img.set(0, 1, 0, 4.0);
  TestHist t(3, 0.0, 4.0);  // width 2
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[0], 1u);
  EXPECT_EQ(t.store[2], 1u);
  EXPECT_EQ(t.h.fsum, 2.0f);  // (2 + low) * 1, not 4
}

TEST(HistogramS8, LowBelowTheTypeIsClampedToItsLeast) {
  Env env;
  Image img(1, 4, 1, SORN_S8);
  img.set(0, 0, 0, -128);
  img.set(0, 1, 0, -1);
  img.set(0, 2, 0, 0);
  img.set(0, 3, 0, 127);
  TestHist t(256, -300.0, -45.0);  // irange 256, low clamped to -128
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[0], 1u);
  EXPECT_EQ(t.store[127], 1u);
  EXPECT_EQ(t.store[128], 1u);
  EXPECT_EQ(t.store[255], 1u);
  EXPECT_EQ(t.h.isum, (uint32_t)(-128 - 1 + 0 + 127));
}

TEST(HistogramU8, BankPathLosesValuesOutsideTheRange) {
  Env env;
  Image img(1, 64, 1, SORN_U8);
  for (int x = 0; x < 64; ++x) img.set(0, x, 0, x * 4);  // 0..252
  TestHist t(51, 50, 100);
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  uint32_t total = 0, s = 0;
  for (int b = 0; b <= 51; ++b) total += t.store[b];
  for (int v = 52; v <= 100; v += 4) s += v;
  EXPECT_EQ(total, 13u);  // 52, 56, ..., 100
  EXPECT_EQ(t.h.isum, s);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistogramS16, DivisionRuleTruncates) {
  Env env;
  Image img(1, 5, 1, SORN_S16);
  int16_t v[5] = {-100, -99, -1, 0, 99};
  for (int x = 0; x < 5; ++x) img.set(0, x, 0, v[x]);
  TestHist t(3, -100, 99);  // irange 200
  SornArray a = img.record();
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  // bins: 0, (1*3)/200=0, (99*3)/200=1, (100*3)/200=1, (199*3)/200=2
  EXPECT_EQ(t.store[0], 2u);
  EXPECT_EQ(t.store[1], 2u);
  EXPECT_EQ(t.store[2], 1u);
  // The sum weighs bin i by ilow + i, whatever the bin's width.
  EXPECT_EQ(t.h.isum, (uint32_t)(2 * -100 + 2 * -99 + 1 * -98));
}

/* ---------------- entries: failure rows ---------------- */

TEST(HistogramEntry, ModeTwoIsNotImplementedAndModeFourInvalid) {
  Env env;
  Image img(2, 2, 1, SORN_U8, 0, 7);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 2, &t.h), SORN_ENOTIMP);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 1, &t.h), SORN_ENOTIMP);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 3, &t.h), SORN_ENOTIMP);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 4, &t.h), SORN_EINVAL);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, -1, &t.h), SORN_EINVAL);
  EXPECT_EQ(t.store[7], 0u);
}

TEST(HistogramEntry, BadRecordsAreInvalidAndCountNothing) {
  Env env;
  Image img(2, 2, 1, SORN_U8, 0, 7);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  SornArray bad = a;
  bad.ndims = 2;
  EXPECT_EQ(SornHistogram(env.xe(), 0, &bad, nullptr, 0, &t.h), SORN_EINVAL);
  bad = a;
  bad.ndims = 5;
  EXPECT_EQ(SornHistogram(env.xe(), 0, &bad, nullptr, 0, &t.h), SORN_EINVAL);
  bad = a;
  bad.dims[0] = 0;
  EXPECT_EQ(SornHistogram(env.xe(), 0, &bad, nullptr, 0, &t.h), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 0;
  EXPECT_EQ(SornHistogram(env.xe(), 0, &bad, nullptr, 0, &t.h), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 12;  // five channels
  EXPECT_EQ(SornHistogram(env.xe(), 0, &bad, nullptr, 0, &t.h), SORN_EINVAL);
  EXPECT_EQ(SornHistogram(env.xe(), 0, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, nullptr), SORN_EINVAL);
  EXPECT_EQ(t.store[7], 0u);
}

TEST(HistogramEntry, EmptyRoiIsNoSpaceBeforeTheModeRule) {
  Env env;
  Image img(4, 4, 1, SORN_U8, 0, 7);
  TestHist t(256, 0, 255);
  SornArray a = img.record();
  SornVolume roi = sorn_test::make_roi(5, 0, 2, 2, 1);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, &roi, 4, &t.h), SORN_ENOSPC);
  roi = sorn_test::make_roi(0, 0, 0, 2, 1);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, &roi, 0, &t.h), SORN_ENOSPC);
  EXPECT_EQ(t.store[7], 0u);
}

TEST(HistogramEntry, SeveralChannelsAreRefusedBeforeAnyCount) {
  Env env;
  for (int ch : {3, 4}) {
    Image img(2, 20, ch, SORN_U8, 0, 7);
    TestHist t[4] = {TestHist(256, 0, 255), TestHist(256, 0, 255), TestHist(256, 0, 255),
                     TestHist(256, 0, 255)};
    SornHist h[4] = {t[0].h, t[1].h, t[2].h, t[3].h};
    SornArray a = img.record();
    EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, h), SORN_ENOTSUP);
    for (int c = 0; c < 4; ++c) {
      EXPECT_EQ(t[c].store[7], 0u);
      EXPECT_EQ(h[c].isum, 0u);
    }
  }
  // Two channels have no kernel name at all: the lookup says invalid.
  Image two(2, 4, 2, SORN_U8, 0, 7);
  TestHist t0(256, 0, 255), t1(256, 0, 255);
  SornHist h2[2] = {t0.h, t1.h};
  SornArray a2 = two.record();
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a2, nullptr, 0, h2), SORN_EINVAL);
  EXPECT_EQ(t0.store[7], 0u);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistogramEntry, TypesWithoutKernelAreNotSupported) {
  Env env;
  for (uint32_t type : {SORN_U16, SORN_U32, SORN_F64, SORN_S64, SORN_U64}) {
    Image img(2, 2, 1, type);
    TestHist t(16, 0, 15);
    SornArray a = img.record();
    EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_ENOTSUP)
        << sorn_test::type_name(type);
    EXPECT_EQ(t.store[0], 0u);
  }
  Image img(2, 2, 1, SORN_U8);
  SornArray a = img.record();
  a.elemtype = 6;  // unknown code
  TestHist t(16, 0, 15);
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_EINVAL);
}

TEST(HistogramLookup, ChannelWordsAndTypesChooseKernelsOrStubs) {
  SornStatus st = 1;
  EXPECT_EQ(sorna__histofun_imp(1, SORN_U8, &st), &sorna__histogram_c1_u8);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(sorna__histofun_imp(3, SORN_S8, &st), &sorna__histogram_c3_s8);
  EXPECT_EQ(sorna__histofun_imp(4, SORN_F32, &st), &sorna__histogram_c4_f32);
  EXPECT_EQ(sorna__histofun_imp(11, SORN_S32, &st), &sorna__histogram_c4_s32);
  EXPECT_EQ((void *)sorna__histofun_imp(2, SORN_U8, &st), (void *)&sorna_proc_einval);
  EXPECT_EQ(st, SORN_EINVAL);
  EXPECT_EQ((void *)sorna__histofun_imp(8, SORN_U8, &st), (void *)&sorna_proc_einval);
  EXPECT_EQ((void *)sorna__histofun_imp(1, SORN_U16, &st), (void *)&sorna_proc_enotsup);
  EXPECT_EQ(st, SORN_ENOTSUP);
  EXPECT_EQ((void *)sorna__histofun_imp(1, 7, &st), (void *)&sorna_proc_einval);
  EXPECT_EQ(st, SORN_EINVAL);
  EXPECT_EQ(sorna__histofunxm_imp(1, SORN_S16, &st), &sorna__histogram_xm_c1_s16);
  EXPECT_EQ((void *)sorna__histofunxm_imp(1, SORN_S8, &st), (void *)&sorna_proc_enotsup);
  EXPECT_EQ(st, SORN_ENOTSUP);
  EXPECT_EQ((void *)sorna__histofunxm_imp(1, 0, nullptr), (void *)&sorna_proc_einval);
  int32_t dims[3] = {1, 1, 1}, strides[3] = {1, 1, 1};
  SornHist h;
  std::memset(&h, 0, sizeof h);
  for (auto k : {sorna__histogram_c3_u8, sorna__histogram_c4_u8, sorna__histogram_c3_f32,
                 sorna__histogram_c4_s16})
    EXPECT_EQ(k(nullptr, 0, 3, dims, nullptr, strides, &h), SORN_ENOTSUP);
  EXPECT_EQ(sorna__histogram_xm_c3_u8(nullptr, 0, 3, dims, nullptr, strides, nullptr, strides, &h),
            SORN_ENOTSUP);
}

/* ---------------- masks ---------------- */

TEST(HistogramEx, InverseMaskSkipsOnly255) {
  Env env;
  for (int cols : {12, 48}) {
    Image img(3, cols, 1, SORN_U8);
    Image mask(3, cols, 1, SORN_U8);
    auto rng = sorn_test::seeded_rng(77 + cols);
    fill_u8(img, rng);
    std::vector<double> kept, kept_inv;
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < cols; ++x) {
        int m = (x % 3 == 0) ? 0 : (x % 3 == 1) ? 255 : 17;
        mask.set(y, x, 0, m);
        if (m != 0) kept.push_back(img.get(y, x, 0));
        if (m != 255) kept_inv.push_back(img.get(y, x, 0));
      }
    SornArray a = img.record(), m = mask.record();
    TestHist t(256, 0, 255), ti(256, 0, 255);
    ASSERT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, nullptr, 0, &t.h), SORN_OK);
    ASSERT_EQ(SornHistogramEx(env.xe(), kInv, &a, &m, nullptr, nullptr, 0, &ti.h), SORN_OK);
    expect_counts(t, ref_histogram(SORN_U8, t.h, kept));
    expect_counts(ti, ref_histogram(SORN_U8, ti.h, kept_inv));
    EXPECT_TRUE(env.at_mark());
  }
}

TEST(HistogramEx, NullMaskIsThePlainCount) {
  Env env;
  Image img(2, 3, 1, SORN_U8, 0, 9);
  SornArray a = img.record();
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogramEx(env.xe(), 0, &a, nullptr, nullptr, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[9], 6u);
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, nullptr, nullptr, nullptr, 2, &t.h), SORN_ENOTIMP);
}

TEST(HistogramEx, MaskRecordsMustFit) {
  Env env;
  Image img(4, 4, 1, SORN_U8, 0, 9);
  Image mask(4, 4, 1, SORN_U8, 0, 1);
  SornArray a = img.record(), m = mask.record();
  TestHist t(256, 0, 255);
  SornArray bad = m;
  bad.elemtype = SORN_S8;
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &bad, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  bad = m;
  bad.dims[3] = 3;
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &bad, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  bad = m;
  bad.ndims = 4;  // a rank-4 mask under a rank-3 image
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &bad, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  SornArray a4 = sorn_test::make_record4(img.base(), 2, 2, 4, 1, SORN_U8, 8, 4);
  SornArray m4 = sorn_test::make_record4(mask.base(), 3, 1, 4, 1, SORN_U8, 4, 4);
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a4, &m4, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  SornArray badsrc = a;
  badsrc.dims[3] = 5;
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &badsrc, &m, nullptr, nullptr, 0, &t.h), SORN_EINVAL);
  SornVolume far = sorn_test::make_roi(4, 4, 1, 1, 1);
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, &far, 0, &t.h), SORN_ENOSPC);
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, nullptr, 9, &t.h), SORN_EINVAL);
  EXPECT_EQ(t.store[9], 0u);
}

TEST(HistogramEx, MaskSiteOffsetsTheMask) {
  Env env;
  Image img(3, 3, 1, SORN_U8, 0, 5);
  Image mask(5, 5, 1, SORN_U8, 0, 0);
  mask.set(2, 2, 0, 1);  // under image pixel (1, 1) with the site at (1, 1)
  SornArray a = img.record(), m = mask.record();
  img.set(1, 1, 0, 99);
  SornVolume site = sorn_test::make_roi(1, 1, 0, 0, 0);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, &site, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[99], 1u);
  EXPECT_EQ(t.store[5], 0u);
}

/* ---------------- random images against the reference ---------------- */

namespace {

struct Range {
  double low, high;
  int32_t bins;
};

Range random_range(std::mt19937_64 &rng, uint32_t type) {
  switch (type) {
    case SORN_U8: {
      int lo = (int)(rng() % 200), hi = lo + 1 + (int)(rng() % (255 - lo));
      int32_t irange = hi - lo + 1;
      int32_t bins = (rng() & 1) ? irange : 1 + (int32_t)(rng() % 300);
      return {(double)lo, (double)hi, bins};
    }
    case SORN_S8: {
      int lo = -128 + (int)(rng() % 200), hi = lo + 1 + (int)(rng() % (127 - lo));
      int32_t irange = hi - lo + 1;
      int32_t bins = (rng() & 1) ? irange : 1 + (int32_t)(rng() % 300);
      return {(double)lo, (double)hi, bins};
    }
    case SORN_S16: {
      int lo = -32768 + (int)(rng() % 65000);
      int hi = lo + 1 + (int)(rng() % std::min(3000, 32767 - lo));
      int32_t irange = hi - lo + 1;
      int32_t bins = (rng() & 1) ? irange : 1 + (int32_t)(rng() % 500);
      return {(double)lo, (double)hi, bins};
    }
    case SORN_S32: {
      int64_t lo = (int64_t)(int32_t)(uint32_t)rng() / 2;
      int64_t hi = lo + 1 + (int64_t)(rng() % 100000);
      int32_t irange = (int32_t)(hi - lo + 1);
      int32_t bins = (rng() & 1) ? irange : 1 + (int32_t)(rng() % 1000);
      return {(double)lo, (double)hi, bins};
    }
    default: {
      std::uniform_real_distribution<double> d(-1e4, 1e4);
      double lo = (float)d(rng), hi = (float)(lo + std::fabs(d(rng)) + 1);
      return {lo, hi, 1 + (int32_t)(rng() % 400)};
    }
  }
}

double random_in(std::mt19937_64 &rng, uint32_t type, const Range &r) {
  if (type == SORN_F32) {
    std::uniform_real_distribution<double> d(r.low, r.high);
    double v = (float)d(rng);
    if (v > r.high) v = r.high;
    if ((rng() & 15) == 0) v = (rng() & 1) ? r.low : r.high;
    return v;
  }
  int64_t lo = (int64_t)r.low, hi = (int64_t)r.high;
  if ((rng() & 15) == 0) return (double)((rng() & 1) ? lo : hi);
  return (double)(lo + (int64_t)(rng() % (uint64_t)(hi - lo + 1)));
}

}  // namespace

class HistogramRandom : public ::testing::TestWithParam<uint32_t> {};

TEST_P(HistogramRandom, MatchesThePlainCountWithRoisPaddingAndMasks) {
  const uint32_t type = GetParam();
  Env env;
  auto rng = sorn_test::seeded_rng(0x4157 + type);
  for (int iter = 0; iter < 60; ++iter) {
    int32_t rows = 1 + (int32_t)(rng() % 9), cols = 1 + (int32_t)(rng() % 70);
    int32_t pad = (rng() & 1) ? (int32_t)(rng() % 9) * 4 : 0;
    Image img(rows, cols, 1, type, pad);
    Range r = random_range(rng, type);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x) img.set(y, x, 0, random_in(rng, type, r));
    SornVolume roi = sorn_test::make_roi((int32_t)(rng() % rows), (int32_t)(rng() % cols), rows,
                                         cols, 1);
    roi.size[1] = 1 + (int32_t)(rng() % (rows - roi.origin[1]));
    roi.size[2] = 1 + (int32_t)(rng() % (cols - roi.origin[2]));
    const bool masked = (type != SORN_S8) && (rng() % 3 != 0);
    const SornFlags flags = (masked && (rng() & 1)) ? kInv : 0;
    Image mask(rows, cols, 1, SORN_U8, (int32_t)(rng() % 5));
    std::vector<double> want;
    for (int y = roi.origin[1]; y < roi.origin[1] + roi.size[1]; ++y)
      for (int x = roi.origin[2]; x < roi.origin[2] + roi.size[2]; ++x) {
        uint8_t m = (uint8_t)((rng() % 3 == 0) ? 0 : (rng() % 3 == 0) ? 255 : rng());
        mask.set(y, x, 0, m);
        if (!masked || m != ((flags & kInv) ? 255 : 0)) want.push_back(img.get(y, x, 0));
      }
    TestHist t(r.bins, r.low, r.high);
    auto before = img.bytes_copy();
    SornArray a = img.record(), m = mask.record();
    SornStatus st = masked ? SornHistogramEx(env.xe(), flags, &a, &m, &roi, &roi, 0, &t.h)
                           : SornHistogram(env.xe(), flags, &a, &roi, 0, &t.h);
    ASSERT_EQ(st, SORN_OK) << "iteration " << iter;
    SCOPED_TRACE(::testing::Message() << "iteration " << iter << " bins " << r.bins << " low "
                                      << r.low << " high " << r.high);
    expect_counts(t, ref_histogram(type, t.h, want));
    EXPECT_EQ(img.bytes_copy(), before);
    EXPECT_TRUE(img.guards_intact());
    EXPECT_TRUE(mask.guards_intact());
    EXPECT_TRUE(env.at_mark());
  }
}

// Every type of the histogram table.
#define HIST_TEST_TYPE(t) SORN_TYPECODE(t),
INSTANTIATE_TEST_SUITE_P(AllTypes, HistogramRandom,
                         ::testing::ValuesIn(std::vector<uint32_t>{SORN_HIST_TYPES(HIST_TEST_TYPE)}),
                         [](const auto &info) { return std::string(sorn_test::type_name(info.param)); });
#undef HIST_TEST_TYPE

TEST(HistogramRandom, U8ExhaustiveBanksAgreeWithTheDirectCount) {
  // Every value at every position of a long row, all 16 alignments.
  Env env;
  std::vector<uint8_t> buf(4096 + 64);
  for (size_t i = 0; i < buf.size(); ++i) buf[i] = (uint8_t)(i * 7 + (i >> 8));
  for (int shift = 0; shift < 16; ++shift) {
    SornArray a = sorn_test::make_record(buf.data() + shift, 1, 4096, 1, SORN_U8, 4096);
    TestHist t(256, 0, 255);
    ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
    std::vector<uint32_t> want(257, 0);
    uint32_t s = 0;
    for (int i = 0; i < 4096; ++i) {
      want[buf[shift + i]]++;
      s += buf[shift + i];
    }
    ASSERT_EQ(t.store, want) << "shift " << shift;
    EXPECT_EQ(t.h.isum, s);
  }
}

/* ---------------- four dimensions ---------------- */

TEST(Histogram4D, DenseArrayCountsEveryPlane) {
  Env env;
  const int P = 3, R = 4, C = 5;
  std::vector<uint8_t> buf(P * R * C);
  auto rng = sorn_test::seeded_rng(44);
  for (auto &b : buf) b = (uint8_t)rng();
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, R * C, C);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  std::vector<uint32_t> want(257, 0);
  for (uint8_t b : buf) want[b]++;
  EXPECT_EQ(t.store, want);
}

TEST(Histogram4D, PaddedRowsWithDensePlanesCountEveryPlane) {
  Env env;
  const int P = 2, R = 3, C = 5, S = 8;
  std::vector<int16_t> buf(P * R * S, 0);
  for (int p = 0; p < P; ++p)
    for (int y = 0; y < R; ++y)
      for (int x = 0; x < C; ++x) buf[(p * R + y) * S + x] = (int16_t)(p * 100 + y * 10 + x);
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_S16, R * S * 2, S * 2);
  TestHist t(200, 0, 199);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  uint32_t total = 0;
  for (uint32_t c : t.store) total += c;
  EXPECT_EQ(total, (uint32_t)(P * R * C));
  EXPECT_EQ(t.store[0], 1u);  // the padding's zeros are not pixels
  EXPECT_EQ(t.store[124], 1u);
}

TEST(Histogram4D, GappedPlanesCountTheFirstPlaneOnly) {
  Env env;
  const int P = 3, R = 4, C = 6, PS = R * C + 16;
  std::vector<uint8_t> buf(P * PS, 0);
  for (int p = 0; p < P; ++p)
    for (int i = 0; i < R * C; ++i) buf[p * PS + i] = (uint8_t)(p + 1);
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, PS, C);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store[1], (uint32_t)(R * C));
  EXPECT_EQ(t.store[2], 0u);
  EXPECT_EQ(t.store[3], 0u);
  EXPECT_TRUE(env.at_mark());
}

TEST(Histogram4D, DenseMaskedArrayCountsEveryPlane) {
  Env env;
  const int P = 2, R = 5, C = 9;
  std::vector<uint8_t> buf(P * R * C), mbuf(P * R * C);
  auto rng = sorn_test::seeded_rng(45);
  std::vector<uint32_t> want(257, 0);
  for (size_t i = 0; i < buf.size(); ++i) {
    buf[i] = (uint8_t)rng();
    mbuf[i] = (uint8_t)(rng() % 2);
    if (mbuf[i]) want[buf[i]]++;
  }
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, R * C, C);
  SornArray m = sorn_test::make_record4(mbuf.data(), P, R, C, 1, SORN_U8, R * C, C);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, nullptr, 0, &t.h), SORN_OK);
  EXPECT_EQ(t.store, want);
  EXPECT_TRUE(env.at_mark());
}

TEST(Histogram4D, ThreeDimensionalMaskUnderPlanesCountsTheFirstPlane) {
  Env env;
  const int P = 2, R = 2, C = 3;
  std::vector<uint8_t> buf(P * R * C), mbuf(R * C, 1);
  for (int p = 0; p < P; ++p)
    for (int i = 0; i < R * C; ++i) buf[p * R * C + i] = (uint8_t)(10 * (p + 1));
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, R * C, C);
  SornArray m = sorn_test::make_record(mbuf.data(), R, C, 1, SORN_U8, C);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, nullptr, nullptr, 0, &t.h), SORN_OK);
  // The mask's single plane bounds the negotiated region: one plane, the
  // first, is counted.
  EXPECT_EQ(t.store[10], (uint32_t)(R * C));
  EXPECT_EQ(t.store[20], 0u);
}

TEST(HistogramDispatch, SumsAreSettledForSelectedChannelsOnly) {
  Env env;
  uint8_t px[4] = {1, 2, 3, 4};
  int32_t strides[3] = {4, 1, 1};
  // Channel mask 1 in the channels word: channel 0 selected, fsum follows isum.
  int32_t dims[3] = {1, 4, 0x11};
  TestHist t(256, 0, 255);
  ASSERT_EQ(sorna__histogram(env.xe(), 0, 0x413, dims, SORN_U8, px, strides, &t.h), SORN_OK);
  EXPECT_EQ(t.h.isum, 10u);
  EXPECT_EQ(t.h.fsum, 10.0f);
  // The nibble names channel 1 only: counted, but its sums are not settled.
  int32_t dims2[3] = {1, 4, 0x21};
  TestHist u(256, 0, 255);
  ASSERT_EQ(sorna__histogram(env.xe(), 0, 0x413, dims2, SORN_U8, px, strides, &u.h), SORN_OK);
  EXPECT_EQ(u.h.isum, 10u);
  EXPECT_EQ(u.h.fsum, 0.0f);
  // A format nibble given in the flags wins over the word's.
  TestHist v(256, 0, 255);
  ASSERT_EQ(sorna__histogram(env.xe(), 0x10, 0x413, dims2, SORN_U8, px, strides, &v.h), SORN_OK);
  EXPECT_EQ(v.h.fsum, 10.0f);
}

TEST(HistogramDispatch, FloatCountRoundsItsSumIntoIsum) {
  Env env;
  float px[3] = {0.0f, 1.0f, 2.0f};
  int32_t dims[3] = {1, 3, 1}, strides[3] = {12, 4, 4};
  TestHist t(5, 0.5, 2.5);  // scale 4 / 2 = 2
  px[0] = 0.5f;
  ASSERT_EQ(sorna__histogram(env.xe(), 0, 0x413, dims, SORN_F32, px, strides, &t.h), SORN_OK);
  // bins 0, 1, 3; fsum = 0.5 + 1.5 + 3.5 = 5.5, rounded to even: 6.
  EXPECT_EQ(t.store[0], 1u);
  EXPECT_EQ(t.store[1], 1u);
  EXPECT_EQ(t.store[3], 1u);
  EXPECT_EQ(t.h.fsum, 5.5f);
  EXPECT_EQ(t.h.isum, 6u);
}

TEST(HistogramEntry, ChannelCellCutToNothingIsAnEmptyRegion) {
  Env env;
  Image img(2, 2, 1, SORN_U8, 0, 7);
  Image mask(2, 2, 1, SORN_U8, 0, 1);
  SornArray a = img.record(), m = mask.record();
  TestHist t(256, 0, 255);
  SornVolume roi = {{0, 0, 0, 3}, {1, 2, 2, -8}};
  EXPECT_EQ(SornHistogram(env.xe(), 0, &a, &roi, 0, &t.h), SORN_ENOSPC);
  EXPECT_EQ(SornHistogramEx(env.xe(), 0, &a, &m, &roi, nullptr, 0, &t.h), SORN_ENOSPC);
  EXPECT_EQ(t.store[7], 0u);
  EXPECT_EQ(t.h.isum, 0u);
}

TEST(Histogram4D, RegionInsideDensePlanesCountsWhereItLies) {
  Env env;
  const int P = 3, R = 4, C = 4;
  std::vector<uint8_t> buf(P * R * C);
  for (int p = 0; p < P; ++p)
    for (int y = 0; y < R; ++y)
      for (int x = 0; x < C; ++x) buf[(p * R + y) * C + x] = (uint8_t)(p * 100 + y * 10 + x);
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, R * C, C);
  // Planes 1 and 2 whole: dense, merged into one row.
  SornVolume roi = sorn_test::make_roi(0, 0, R, C, 1, 1, 2);
  TestHist t(256, 0, 255);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, &roi, 0, &t.h), SORN_OK);
  std::vector<uint32_t> want(257, 0);
  for (int i = R * C; i < P * R * C; ++i) want[buf[i]]++;
  EXPECT_EQ(t.store, want);
  // Rows 1 and 2, columns 2 and 3 of plane 2 on: not dense, the first plane
  // of the region alone.
  roi = sorn_test::make_roi(1, 2, 2, 2, 1, 2, 1);
  TestHist u(256, 0, 255);
  ASSERT_EQ(SornHistogram(env.xe(), 0, &a, &roi, 0, &u.h), SORN_OK);
  std::vector<uint32_t> want2(257, 0);
  for (int y = 1; y < 3; ++y)
    for (int x = 2; x < 4; ++x) want2[200 + y * 10 + x]++;
  EXPECT_EQ(u.store, want2);
}

TEST(HistogramRange, ValuesOutsideTheRangeAreNotCounted) {
  // Whatever the data, no counter outside the record is touched: values
  // below or above the range, and NaN, fall outside the bins.
  Env env;
  for (uint32_t t : {SORN_U8, SORN_S16, SORN_S32, SORN_F32}) {
    for (int32_t cols : {5, 40}) {
      Image img(3, cols, 1, t);
      for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < cols; ++x) img.set(y, x, 0, 10 + (x % 5));  // 10..14
      img.set(0, 1, 0, 2);
      img.set(1, 2, 0, 250);
      if (t == SORN_F32) img.set(2, 3, 0, std::numeric_limits<double>::quiet_NaN());
      TestHist th(5, 10, 14);
      th.store.resize(th.store.size() + 64, 0);  // room to see a stray write
      th.h.counts = th.store.data();
      SornArray a = img.record();
      ASSERT_EQ(SornHistogram(env.xe(), 0, &a, nullptr, 0, &th.h), SORN_OK);
      uint32_t counted = 0;
      for (int b = 0; b < 5; ++b) counted += th.store[b];
      const uint32_t outside = t == SORN_F32 ? 3 : 2;
      EXPECT_EQ(counted, 3u * cols - outside) << sorn_test::type_name(t) << " " << cols;
      for (size_t i = 5; i < th.store.size(); ++i)
        ASSERT_EQ(th.store[i], 0u) << sorn_test::type_name(t) << " " << cols << " entry " << i;
    }
  }
}

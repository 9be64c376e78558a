// Sums and means: SornSum, SornSumEx, SornMean, SornMeanEx against plain
// sums written here, the narrow-accumulator limits, counting masks.
#include "stats_testutil.h"

using sorn_test::Image;
using stats_test::Env;

namespace {

constexpr SornFlags kInv = 0x20000, kFast = 0x200000, kFast2 = 0x400000, kCount = 0x10000000;

// Sums of a region, per channel, by the accumulator rules: exact 64-bit
// integers or double for the wide kernels, wrapping 32 bits or float for the
// narrow ones. Floats add in address order.
std::vector<double> ref_sums(const Image &img, const SornVolume &roi, const Image *mask,
                             uint8_t skip, bool fast, int64_t *count) {
  int ch = img.channels();
  std::vector<int64_t> wide(ch, 0);
  std::vector<uint32_t> narrow(ch, 0);
  std::vector<double> dsum(ch, 0.0);
  std::vector<float> fsum(ch, 0.0f);
  int64_t n = 0;
  for (int y = roi.origin[1]; y < roi.origin[1] + roi.size[1]; ++y)
    for (int x = roi.origin[2]; x < roi.origin[2] + roi.size[2]; ++x) {
      if (mask && mask->at<uint8_t>(y, x) == skip) continue;
      ++n;
      for (int c = 0; c < ch; ++c) {
        double v = img.get(y, x, c);
        wide[c] += (int64_t)v;
        narrow[c] += (uint32_t)(int64_t)v;
        dsum[c] += v;
        fsum[c] += (float)v;
      }
    }
  if (count) *count = n;
  std::vector<double> out(ch);
  for (int c = 0; c < ch; ++c) {
    if (img.type() == SORN_F32)
      out[c] = fast ? (double)fsum[c] : dsum[c];
    else
      out[c] = fast ? (double)(int32_t)narrow[c] : (double)wide[c];
  }
  return out;
}

double finite_value(std::mt19937_64 &rng, uint32_t type) {
  double v = sorn_test::random_value(rng, type, true);
  if (type == SORN_F32 && std::fabs(v) > 1e6) v = std::fmod(v, 1e6);
  return v;
}

}  // namespace

/* ---------------- limits of the narrow accumulators ---------------- */

TEST(SumLimits, U8JustBelowTheLimitTakesTheNarrowPathExactly) {
  Env env;
  std::vector<uint8_t> buf(8421504, 255);
  SornArray a = sorn_test::make_record(buf.data(), 1, (int32_t)buf.size(), 1, SORN_U8,
                                       (int32_t)buf.size());
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 2147483520.0);
}

TEST(SumLimits, U8AtTheLimitTakesTheWidePath) {
  Env env;
  std::vector<uint8_t> buf(8421505, 255);
  SornArray a = sorn_test::make_record(buf.data(), 5, 8421505 / 5, 1, SORN_U8, 8421505 / 5);
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 2147483775.0);
}

TEST(SumLimits, ForcedFastSumWrapsNegative) {
  Env env;
  std::vector<uint8_t> buf(8421506, 255);
  SornArray a = sorn_test::make_record(buf.data(), 1, (int32_t)buf.size(), 1, SORN_U8,
                                       (int32_t)buf.size());
  for (SornFlags f : {kFast, kFast2}) {
    double s = 0;
    ASSERT_EQ(SornSum(env.xe(), f, &a, nullptr, &s), SORN_OK);
    EXPECT_EQ(s, (double)(int32_t)(uint32_t)(255ull * 8421506ull));
    EXPECT_LT(s, 0.0);
  }
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 255.0 * 8421506.0);
}

TEST(SumLimits, S16BelowTheLimitAddsInThirtyTwoBits) {
  // 65538 pixels of -32768 are within the narrow limit: the total leaves the
  // 32-bit range and wraps, as the narrow accumulator does.
  Env env;
  std::vector<int16_t> buf(65538, -32768);
  SornArray a = sorn_test::make_record(buf.data(), 2, 32769, 1, SORN_S16, 32769 * 2);
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, (double)(int32_t)(uint32_t)(-32768ll * 65538ll));
  // 32767 each stays exact.
  std::fill(buf.begin(), buf.end(), 32767);
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 32767.0 * 65538.0);
}

TEST(SumLimits, S16AtTheLimitAddsWide) {
  Env env;
  std::vector<int16_t> buf(65539, -32768);
  SornArray a = sorn_test::make_record(buf.data(), 1, 65539, 1, SORN_S16, 65539 * 2);
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, -32768.0 * 65539.0);
}

TEST(SumLimits, MaskedSumSwitchesByTheRegionNotTheSelection) {
  Env env;
  std::vector<int16_t> buf(65538, -32768);
  std::vector<uint8_t> mbuf(65538, 1);
  mbuf[0] = 0;  // 65537 selected, the region still 65538: the narrow path
  SornArray a = sorn_test::make_record(buf.data(), 1, 65538, 1, SORN_S16, 65538 * 2);
  SornArray m = sorn_test::make_record(mbuf.data(), 1, 65538, 1, SORN_U8, 65538);
  double s = 0;
  EXPECT_EQ(SornSumEx(env.xe(), kCount, &a, &m, nullptr, nullptr, &s), 65537);
  EXPECT_EQ(s, (double)(int32_t)(uint32_t)(-32768ll * 65537ll));
}

TEST(SumPrecision, F32WideKeepsTheOneThatFastLoses) {
  Env env;
  Image img(1, 3, 1, SORN_F32);
  img.set(0, 0, 0, 1e8);
  img.set(0, 1, 0, 1);
  img.set(0, 2, 0, -1e8);
  SornArray a = img.record();
  double s = -7;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 1.0);
  ASSERT_EQ(SornSum(env.xe(), kFast, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 0.0);
}

/* ---------------- means and counts ---------------- */

TEST(MeanEx, ThreeOfTenSelectedAnswerThreeAndTheirMean) {
  Env env;
  Image img(2, 5, 1, SORN_S32);
  Image mask(2, 5, 1, SORN_U8);
  for (int i = 0; i < 10; ++i) img.set(i / 5, i % 5, 0, i * 10);
  mask.set(0, 1, 0, 1);
  mask.set(1, 0, 0, 200);
  mask.set(1, 4, 0, 255);
  SornArray a = img.record(), m = mask.record();
  double mean = -1;
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, &m, nullptr, nullptr, &mean), 3);
  EXPECT_EQ(mean, (10.0 + 50.0 + 90.0) / 3.0);
  // Under the inverse mask the 255 is the one skipped.
  EXPECT_EQ(SornMeanEx(env.xe(), kInv, &a, &m, nullptr, nullptr, &mean), 9);
  EXPECT_EQ(mean, (450.0 - 90.0) / 9.0);
}

TEST(MeanEx, AllSkippedAnswersZeroWithMeansZero) {
  Env env;
  Image img(2, 3, 3, SORN_U8, 0, 9);
  Image mask(2, 3, 1, SORN_U8, 0, 0);
  SornArray a = img.record(), m = mask.record();
  double means[3] = {5, 5, 5};
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, &m, nullptr, nullptr, means), 0);
  for (double v : means) EXPECT_EQ(v, 0.0);
}

TEST(SumEx, CountsPixelsOnlyWhenAsked) {
  Env env;
  Image img(3, 4, 4, SORN_S16, 6);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x)
      for (int c = 0; c < 4; ++c) img.set(y, x, c, 1);
  Image mask(3, 4, 1, SORN_U8, 0, 0);
  mask.set(0, 0, 0, 1);
  mask.set(2, 3, 0, 1);
  SornArray a = img.record(), m = mask.record();
  double s[4];
  EXPECT_EQ(SornSumEx(env.xe(), 0, &a, &m, nullptr, nullptr, s), SORN_OK);
  for (double v : s) EXPECT_EQ(v, 2.0);
  // Pixels, not elements: four channels still count 2.
  EXPECT_EQ(SornSumEx(env.xe(), kCount, &a, &m, nullptr, nullptr, s), 2);
  EXPECT_EQ(SornSumEx(env.xe(), kCount | kFast, &a, &m, nullptr, nullptr, s), 2);
}

TEST(SumEx, NullMaskIsThePlainSum) {
  Env env;
  Image img(2, 2, 1, SORN_U8, 0, 3);
  SornArray a = img.record();
  double s = 0;
  EXPECT_EQ(SornSumEx(env.xe(), kCount, &a, nullptr, nullptr, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 12.0);
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, nullptr, nullptr, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 3.0);
}

TEST(Mean, DividesByThePixelCount) {
  Env env;
  Image img(3, 3, 3, SORN_F32, 4);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 3; ++c) img.set(y, x, c, (c + 1) * (y * 3 + x));
  SornArray a = img.record();
  double m[3];
  ASSERT_EQ(SornMean(env.xe(), 0, &a, nullptr, m), SORN_OK);
  EXPECT_EQ(m[0], 36.0 / 9);
  EXPECT_EQ(m[1], 72.0 / 9);
  EXPECT_EQ(m[2], 108.0 / 9);
}

/* ---------------- failure rows ---------------- */

TEST(SumEntry, FailuresWriteNothing) {
  Env env;
  Image img(4, 4, 1, SORN_U8, 0, 1);
  Image mask(4, 4, 1, SORN_U8, 0, 1);
  SornArray a = img.record(), m = mask.record();
  double s[4] = {-3, -3, -3, -3};
  auto untouched = [&] {
    for (double v : s) EXPECT_EQ(v, -3.0);
  };
  SornArray bad = a;
  bad.ndims = 2;
  EXPECT_EQ(SornSum(env.xe(), 0, &bad, nullptr, s), SORN_EINVAL);
  bad = a;
  bad.dims[0] = 0;
  EXPECT_EQ(SornMean(env.xe(), 0, &bad, nullptr, s), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 13;  // six channels
  EXPECT_EQ(SornSum(env.xe(), 0, &bad, nullptr, s), SORN_EINVAL);
  bad = a;
  bad.dims[3] = 2;  // two channels: no kernel form
  EXPECT_EQ(SornSum(env.xe(), 0, &bad, nullptr, s), SORN_EINVAL);
  SornArray badm = m;
  badm.elemtype = SORN_S16;
  EXPECT_EQ(SornSumEx(env.xe(), 0, &a, &badm, nullptr, nullptr, s), SORN_EINVAL);
  badm = m;
  badm.dims[3] = 3;
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, &badm, nullptr, nullptr, s), SORN_EINVAL);
  SornVolume empty = sorn_test::make_roi(4, 0, 1, 1, 1);
  EXPECT_EQ(SornSum(env.xe(), 0, &a, &empty, s), SORN_ENOSPC);
  EXPECT_EQ(SornMean(env.xe(), 0, &a, &empty, s), SORN_ENOSPC);
  EXPECT_EQ(SornSumEx(env.xe(), 0, &a, &m, &empty, nullptr, s), SORN_ENOSPC);
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, &m, nullptr, &empty, s), SORN_ENOSPC);
  EXPECT_EQ(SornSum(env.xe(), 0, nullptr, nullptr, s), SORN_EINVAL);
  EXPECT_EQ(SornSum(env.xe(), 0, &a, nullptr, nullptr), SORN_EINVAL);
  for (uint32_t type : {SORN_S8, SORN_U16, SORN_U32, SORN_U64, SORN_S64, SORN_F64}) {
    Image t(2, 2, 1, type);
    SornArray ta = t.record();
    EXPECT_EQ(SornSum(env.xe(), 0, &ta, nullptr, s), SORN_ENOTSUP) << sorn_test::type_name(type);
    EXPECT_EQ(SornMean(env.xe(), kFast, &ta, nullptr, s), SORN_ENOTSUP);
    EXPECT_EQ(SornSumEx(env.xe(), 0, &ta, &m, nullptr, nullptr, s), SORN_ENOTSUP);
    EXPECT_EQ(SornMeanEx(env.xe(), 0, &ta, &m, nullptr, nullptr, s), SORN_ENOTSUP);
  }
  untouched();
}

TEST(SumLookup, SpeedFlagsChooseTheNarrowKernels) {
  SornStatus st = 1;
  EXPECT_EQ(sorna__sumfun_imp(0, 1, SORN_U8, &st), &sorna__sum_c1_u8);
  EXPECT_EQ(st, SORN_OK);
  EXPECT_EQ(sorna__sumfun_imp(kFast, 1, SORN_U8, &st), &sorna__fastsum_c1_u8);
  EXPECT_EQ(sorna__sumfun_imp(kFast2, 3, SORN_S16, &st), &sorna__fastsum_c3_s16);
  EXPECT_EQ(sorna__sumfun_imp(0, 11, SORN_F32, &st), &sorna__sum_c4_f32);
  EXPECT_EQ(sorna__sumfun_imp(0, 4, SORN_S32, &st), &sorna__sum_c4_s32);
  EXPECT_EQ(sorna__sumfunxm_imp(0, 1, SORN_S16, &st), &sorna__sum_xm_c1_s16);
  EXPECT_EQ(sorna__sumfunxm_imp(kFast, 4, SORN_F32, &st), &sorna__fastsum_xm_c4_f32);
  EXPECT_EQ((void *)sorna__sumfun_imp(0, 2, SORN_U8, &st), (void *)&sorna_proc_einval);
  EXPECT_EQ(st, SORN_EINVAL);
  EXPECT_EQ((void *)sorna__sumfun_imp(0, 1, SORN_S8, &st), (void *)&sorna_proc_enotsup);
  EXPECT_EQ(st, SORN_ENOTSUP);
  EXPECT_EQ((void *)sorna__sumfunxm_imp(0, 1, 5, &st), (void *)&sorna_proc_einval);
  EXPECT_EQ(st, SORN_EINVAL);
}

/* ---------------- random images against the reference ---------------- */

struct SumCase {
  uint32_t type;
  int32_t channels;
};

class SumRandom : public ::testing::TestWithParam<SumCase> {};

TEST_P(SumRandom, MatchesThePlainSumWithRoisPaddingAndMasks) {
  const SumCase k = GetParam();
  Env env;
  auto rng = sorn_test::seeded_rng(0x5u + k.type * 16 + (uint32_t)k.channels);
  for (int iter = 0; iter < 40; ++iter) {
    int32_t rows = 1 + (int32_t)(rng() % 9), cols = 1 + (int32_t)(rng() % 90);
    int32_t pad = (rng() & 1) ? (int32_t)(rng() % 5) * 4 : 0;
    Image img(rows, cols, k.channels, k.type, pad);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x)
        for (int c = 0; c < k.channels; ++c) img.set(y, x, c, finite_value(rng, k.type));
    SornVolume roi = sorn_test::make_roi((int32_t)(rng() % rows), (int32_t)(rng() % cols), 0, 0,
                                         k.channels);
    roi.size[1] = 1 + (int32_t)(rng() % (rows - roi.origin[1]));
    roi.size[2] = 1 + (int32_t)(rng() % (cols - roi.origin[2]));
    Image mask(rows, cols, 1, SORN_U8, (int32_t)(rng() % 3));
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x)
        mask.set(y, x, 0, (rng() % 3 == 0) ? 0 : (rng() % 3 == 0) ? 255 : (double)(rng() & 255));
    const int form = (int)(rng() % 4);  // sum, sumEx, mean, meanEx
    const bool masked = form & 1;
    SornFlags flags = (rng() & 1) ? kInv : 0;
    const bool fast = rng() % 3 == 0;
    if (fast) flags |= (rng() & 1) ? kFast : kFast2;
    if (form == 1 && (rng() & 1)) flags |= kCount;
    int64_t n = 0;
    std::vector<double> want =
        ref_sums(img, roi, masked ? &mask : nullptr, (flags & kInv) ? 255 : 0, fast, &n);
    double out[4] = {-0.5, -0.5, -0.5, -0.5};
    SornArray a = img.record(), m = mask.record();
    auto before = img.bytes_copy();
    SornStatus st;
    switch (form) {
      case 0: st = SornSum(env.xe(), flags, &a, &roi, out); break;
      case 1: st = SornSumEx(env.xe(), flags, &a, &m, &roi, &roi, out); break;
      case 2: st = SornMean(env.xe(), flags, &a, &roi, out); break;
      default: st = SornMeanEx(env.xe(), flags, &a, &m, &roi, &roi, out); break;
    }
    SCOPED_TRACE(::testing::Message() << "iteration " << iter << " form " << form << " flags 0x"
                                      << std::hex << flags);
    if (form == 3 || (form == 1 && (flags & kCount)))
      ASSERT_EQ(st, n);
    else
      ASSERT_EQ(st, SORN_OK);
    double div = form == 2 ? (double)roi.size[1] * roi.size[2] : form == 3 ? (double)n : 1.0;
    for (int c = 0; c < k.channels; ++c) {
      double w = want[c];
      if (form >= 2 && div >= 1) w /= div;
      if (masked && n == 0) w = 0.0;
      EXPECT_EQ(out[c], w) << "channel " << c;
    }
    for (int c = k.channels; c < 4; ++c) EXPECT_EQ(out[c], -0.5) << "beyond the channels";
    EXPECT_EQ(img.bytes_copy(), before);
    EXPECT_TRUE(img.guards_intact());
    EXPECT_TRUE(env.at_mark());
  }
}

// Every kernel of the sum table: its types, each with its channel forms.
static std::vector<SumCase> sum_cases() {
  std::vector<SumCase> v;
#define SUM_TEST_CASE(c, t) v.push_back({SORN_TYPECODE(t), c});
#define SUM_TEST_CASES(t) SORN_STATS_CHANNELS(SUM_TEST_CASE, t)
  SORN_SUM_TYPES(SUM_TEST_CASES)
#undef SUM_TEST_CASES
#undef SUM_TEST_CASE
  return v;
}

INSTANTIATE_TEST_SUITE_P(
    AllTypesAndChannels, SumRandom,
    ::testing::ValuesIn(sum_cases()),
    [](const auto &info) {
      return std::string(sorn_test::type_name(info.param.type)) + "_c" +
             std::to_string(info.param.channels);
    });

/* ---------------- four dimensions ---------------- */

TEST(Sum4D, DenseArraySumsEveryPlaneAndMeansOverAll) {
  Env env;
  const int P = 3, R = 4, C = 5;
  std::vector<int32_t> buf(P * R * C * 3);
  for (size_t i = 0; i < buf.size(); ++i) buf[i] = (int32_t)(i % 3 == 0 ? i : -(int32_t)i);
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 3, SORN_S32, R * C * 12, C * 12);
  double s[3], m[3];
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, s), SORN_OK);
  ASSERT_EQ(SornMean(env.xe(), 0, &a, nullptr, m), SORN_OK);
  for (int c = 0; c < 3; ++c) {
    double w = 0;
    for (size_t i = c; i < buf.size(); i += 3) w += buf[i];
    EXPECT_EQ(s[c], w);
    EXPECT_EQ(m[c], w / (P * R * C));
  }
}

TEST(Sum4D, GappedArraySumsTheFirstPlaneOnly) {
  Env env;
  const int P = 2, R = 3, C = 4, PS = R * C * 4 + 32;
  std::vector<uint8_t> raw(P * PS, 0);
  for (int p = 0; p < P; ++p)
    for (int i = 0; i < R * C; ++i) {
      float v = (float)(p * 1000 + i);
      std::memcpy(&raw[p * PS + i * 4], &v, 4);
    }
  SornArray a = sorn_test::make_record4(raw.data(), P, R, C, 1, SORN_F32, PS, C * 4);
  double s = 0, m = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, nullptr, &s), SORN_OK);
  EXPECT_EQ(s, 66.0);  // 0 + 1 + ... + 11
  ASSERT_EQ(SornMean(env.xe(), 0, &a, nullptr, &m), SORN_OK);
  EXPECT_EQ(m, 66.0 / 12);
}

TEST(Sum4D, DenseMaskedMeanCountsAcrossPlanes) {
  Env env;
  const int P = 4, R = 2, C = 3;
  std::vector<int16_t> buf(P * R * C);
  std::vector<uint8_t> mbuf(P * R * C);
  double w = 0;
  int64_t n = 0;
  for (size_t i = 0; i < buf.size(); ++i) {
    buf[i] = (int16_t)(i * 37 - 400);
    mbuf[i] = (uint8_t)(i % 4 == 1 ? 255 : i % 5);
    if (mbuf[i] != 255) {
      w += buf[i];
      ++n;
    }
  }
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_S16, R * C * 2, C * 2);
  SornArray m = sorn_test::make_record4(mbuf.data(), P, R, C, 1, SORN_U8, R * C, C);
  double mean = 0;
  EXPECT_EQ(SornMeanEx(env.xe(), kInv, &a, &m, nullptr, nullptr, &mean), n);
  EXPECT_EQ(mean, w / (double)n);
}

TEST(Sum4D, RoiOnPlanesSelectsThePlanesOfTheRoi) {
  Env env;
  const int P = 4, R = 2, C = 2;
  std::vector<uint8_t> buf(P * R * C);
  for (int p = 0; p < P; ++p)
    for (int i = 0; i < R * C; ++i) buf[p * R * C + i] = (uint8_t)(p + 1);
  SornArray a = sorn_test::make_record4(buf.data(), P, R, C, 1, SORN_U8, R * C, C);
  SornVolume roi = sorn_test::make_roi(0, 0, R, C, 1, 1, 2);  // planes 1 and 2
  double s = 0;
  ASSERT_EQ(SornSum(env.xe(), 0, &a, &roi, &s), SORN_OK);
  EXPECT_EQ(s, (2.0 + 3.0) * R * C);
  roi = sorn_test::make_roi(0, 0, R, C, 1, 3, 5);  // cut to the last plane
  ASSERT_EQ(SornMean(env.xe(), 0, &a, &roi, &s), SORN_OK);
  EXPECT_EQ(s, 4.0);
}

TEST(Sum4D, RandomRegionsOfPlanesStayInsideTheArray) {
  // Every block is exactly the array's size, so that a read past it shows
  // under the address sanitizer.
  Env env;
  auto rng = sorn_test::seeded_rng(0x4d);
  for (int iter = 0; iter < 200; ++iter) {
    const int P = 1 + (int)(rng() % 4), R = 1 + (int)(rng() % 5), C = 1 + (int)(rng() % 7);
    const int ch = (rng() & 1) ? 1 : 3;
    const int pad = (rng() % 3 == 0) ? 2 : 0;  // elements of padding per row
    const int rowe = C * ch + pad, plane = R * rowe + ((rng() % 3 == 0) ? 5 : 0);
    std::vector<int16_t> buf((size_t)P * plane);
    for (auto &v : buf) v = (int16_t)(rng() % 2001) - 1000;
    std::vector<uint8_t> mbuf((size_t)P * R * C);
    for (auto &m : mbuf) m = (uint8_t)(rng() % 3);
    SornArray a =
        sorn_test::make_record4(buf.data(), P, R, C, ch, SORN_S16, plane * 2, rowe * 2);
    SornArray m = sorn_test::make_record4(mbuf.data(), P, R, C, 1, SORN_U8, R * C, C);
    SornVolume roi = sorn_test::make_roi((int)(rng() % R), (int)(rng() % C), R, C, ch,
                                         (int)(rng() % P), P);
    const bool masked = rng() & 1;
    double out[3] = {0, 0, 0};
    SornStatus st = masked ? SornSumEx(env.xe(), 0x10000000, &a, &m, &roi, &roi, out)
                           : SornSum(env.xe(), 0, &a, &roi, out);
    ASSERT_GE(st, 0) << "iteration " << iter;
    // The region once cut to the array. Planes merge into rows where a plane
    // follows the region's last row without a gap: all rows taken, planes
    // not padded. Otherwise the region's first plane alone is summed.
    const int oz = roi.origin[0], oy = roi.origin[1], ox = roi.origin[2];
    const int nz = P - oz, ny = R - oy, nx = C - ox;
    const int planes = (plane == R * rowe && oy == 0) ? nz : 1;
    double want[3] = {0, 0, 0};
    int64_t n = 0;
    for (int z = oz; z < oz + planes; ++z)
      for (int y = oy; y < oy + ny; ++y)
        for (int x = ox; x < ox + nx; ++x) {
          if (masked && mbuf[(size_t)(z * R + y) * C + x] == 0) continue;
          ++n;
          for (int c = 0; c < ch; ++c) want[c] += buf[(size_t)z * plane + y * rowe + x * ch + c];
        }
    if (masked) {
      ASSERT_EQ(st, n) << "iteration " << iter;
    }
    for (int c = 0; c < ch; ++c) ASSERT_EQ(out[c], want[c]) << "iteration " << iter;
  }
}

TEST(SumEntry, ChannelCellCutToNothingIsAnEmptyRegion) {
  Env env;
  Image img(2, 2, 1, SORN_U8, 0, 1);
  Image mask(2, 2, 1, SORN_U8, 0, 1);
  SornArray a = img.record(), m = mask.record();
  double s[4] = {-3, -3, -3, -3};
  // Channels from 2 on, one of them: past the pixel's only channel.
  SornVolume roi = {{0, 0, 0, 2}, {1, 2, 2, 1}};
  EXPECT_EQ(SornSum(env.xe(), 0, &a, &roi, s), SORN_ENOSPC);
  EXPECT_EQ(SornMeanEx(env.xe(), 0, &a, &m, &roi, nullptr, s), SORN_ENOSPC);
  roi.origin[3] = 0;
  roi.size[3] = 0;
  EXPECT_EQ(SornMean(env.xe(), 0, &a, &roi, s), SORN_ENOSPC);
  for (double v : s) EXPECT_EQ(v, -3.0);
}

TEST(SumSlice, SliceFormWithFourCellsWorksTheFirstPlane) {
  // What the frame hands over when it can't merge: n 4, off 0.
  Env env;
  int32_t buf[2][2][3] = {{{1, 2, 3}, {4, 5, 6}}, {{100, 100, 100}, {100, 100, 100}}};
  int32_t dims[4] = {2, 2, 3, 1}, origin[4] = {0, 0, 0, 0}, strides[4] = {64, 12, 4, 4};
  double s = 0;
  EXPECT_EQ(SornTGAsum(env.xe(), 0, &s, 0x404, dims, SORN_S32, buf, origin, strides), SORN_OK);
  EXPECT_EQ(s, 21.0);
  EXPECT_EQ(SornTGAmean(env.xe(), 0, &s, 0x404, dims, SORN_S32, buf, origin, strides), SORN_OK);
  EXPECT_EQ(s, 21.0 / 6);
  // The plane coordinate still chooses the plane.
  origin[0] = 1;
  int32_t strides2[4] = {24, 12, 4, 4};
  EXPECT_EQ(SornTGAsum(env.xe(), 0, &s, 0x404, dims, SORN_S32, buf, origin, strides2), SORN_OK);
  EXPECT_EQ(s, 600.0);
  uint8_t mask[2][3] = {{1, 0, 1}, {0, 0, 1}};
  int32_t mdims[4] = {1, 2, 3, 1}, mo[4] = {0, 0, 0, 0}, ms[4] = {0, 3, 1, 1};
  origin[0] = 0;
  (void)mdims;
  EXPECT_EQ(SornTGAmeanEx(env.xe(), 0, &s, 0x404, dims, SORN_S32, buf, origin, strides, SORN_U8,
                          mask, mo, ms),
            3);
  EXPECT_EQ(s, (1.0 + 3.0 + 6.0) / 3);
  EXPECT_EQ(SornTGAsumEx(env.xe(), 0, &s, 0x404, dims, SORN_S32, buf, origin, strides, SORN_U8,
                         mask, mo, ms),
            SORN_OK);
  EXPECT_EQ(s, 10.0);
}

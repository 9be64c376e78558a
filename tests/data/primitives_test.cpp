// Bulk primitives against plain element loops written here, on random data
// with odd lengths, unaligned starts and guard bytes around every buffer.
#include <gtest/gtest.h>
#include <testkit.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

using sorn_test::Guarded;
using sorn_test::seeded_rng;

namespace {

void fill_random(uint8_t *p, size_t n, std::mt19937_64 &rng) {
  for (size_t i = 0; i < n; ++i) p[i] = (uint8_t)rng();
}

// A float run with a mix of magnitudes, signs and a few extremes.
std::vector<float> random_floats(std::mt19937_64 &rng, int32_t n) {
  std::vector<float> v(n);
  for (auto &x : v) x = (float)sorn_test::random_value(rng, SORN_F32, true);
  return v;
}

bool same_bits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

// ---------------------------------------------------------------- bcopy2d

TEST(Bcopy2d, MatchesRowLoopOverOddShapesAndStrides) {
  auto rng = seeded_rng(0xB10C);
  for (int iter = 0; iter < 400; ++iter) {
    const int32_t rows = (int32_t)(rng() % 7);
    const size_t bytes = rng() % 41;
    const int32_t spad = (int32_t)(rng() % 9), dpad = (int32_t)(rng() % 9);
    const size_t soff = rng() % 4, doff = rng() % 4;
    const int32_t ss = (int32_t)bytes + spad, ds = (int32_t)bytes + dpad;
    const size_t sbytes = soff + (size_t)rows * ss + 8, dbytes = doff + (size_t)rows * ds + 8;
    Guarded src(sbytes), dst(dbytes);
    fill_random(src.data(), sbytes, rng);
    fill_random(dst.data(), dbytes, rng);
    std::vector<uint8_t> want(dst.data(), dst.data() + dbytes);
    for (int32_t r = 0; r < rows; ++r)
      for (size_t i = 0; i < bytes; ++i) want[doff + r * ds + i] = src.data()[soff + r * ss + i];
    C_sorn_bcopy2d(dst.data() + doff, src.data() + soff, ds, ss, rows, bytes);
    ASSERT_EQ(0, std::memcmp(want.data(), dst.data(), dbytes))
        << "rows " << rows << " bytes " << bytes << " ss " << ss << " ds " << ds;
    ASSERT_TRUE(dst.guards_intact());
  }
}

TEST(Bcopy2d, DenseBlocksCopyInOne) {
  Guarded src(60), dst(60);
  for (int i = 0; i < 60; ++i) src.data()[i] = (uint8_t)(i * 7 + 1);
  C_sorn_bcopy2d(dst.data(), src.data(), 12, 12, 5, 12);
  EXPECT_EQ(0, std::memcmp(src.data(), dst.data(), 60));
  EXPECT_TRUE(dst.guards_intact());
}

TEST(Bcopy2d, ZeroSourceStrideRepeatsOneRow) {
  for (size_t bytes : {1u, 3u, 8u, 9u, 33u}) {
    Guarded src(bytes), dst(4 * 40);
    for (size_t i = 0; i < bytes; ++i) src.data()[i] = (uint8_t)(i + 1);
    C_sorn_bcopy2d(dst.data(), src.data(), 40, 0, 4, bytes);
    for (int r = 0; r < 4; ++r) {
      EXPECT_EQ(0, std::memcmp(dst.data() + r * 40, src.data(), bytes));
      for (int i = (int)bytes; i < 40; ++i) EXPECT_EQ(0, dst.data()[r * 40 + i]);
    }
    EXPECT_TRUE(dst.guards_intact());
  }
}

TEST(Bcopy2d, NegativeStridesWalkBackward) {
  Guarded src(5 * 10), dst(5 * 10);
  for (int i = 0; i < 50; ++i) src.data()[i] = (uint8_t)i;
  // Source rows read from the last up, written from the first down.
  C_sorn_bcopy2d(dst.data(), src.data() + 40, 10, -10, 5, 7);
  for (int r = 0; r < 5; ++r)
    for (int i = 0; i < 7; ++i) EXPECT_EQ(src.data()[(4 - r) * 10 + i], dst.data()[r * 10 + i]);
  EXPECT_TRUE(dst.guards_intact());
}

TEST(Bcopy2d, RowsCopiedFromRowsJustWrittenRepeatThePeriod) {
  // A dense buffer whose first two rows are copied onward within itself:
  // the rows go in order, so the two-row period repeats.
  for (size_t bytes : {4u, 16u}) {
    Guarded buf(8 * bytes);
    for (size_t i = 0; i < 2 * bytes; ++i) buf.data()[i] = (uint8_t)(i + 1);
    C_sorn_bcopy2d(buf.data() + 2 * bytes, buf.data(), (int32_t)bytes, (int32_t)bytes, 6, bytes);
    for (int r = 0; r < 8; ++r)
      EXPECT_EQ(0, std::memcmp(buf.data() + r * bytes, buf.data() + (r % 2) * bytes, bytes));
    EXPECT_TRUE(buf.guards_intact());
  }
}

TEST(Bcopy2d, ZeroRowsOrBytesWriteNothing) {
  Guarded src(32, 7), dst(32, 1);
  C_sorn_bcopy2d(dst.data(), src.data(), 8, 8, 0, 8);
  C_sorn_bcopy2d(dst.data(), src.data(), 8, 8, -3, 8);
  C_sorn_bcopy2d(dst.data(), src.data(), 8, 8, 4, 0);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(1, dst.data()[i]);
  EXPECT_TRUE(dst.guards_intact());
}

// ---------------------------------------------------------------- bfill

namespace {

void expect_pattern(const uint8_t *d, size_t bytes, const uint8_t *v, int32_t nchan) {
  const size_t period = nchan == 3 ? 12 : 16;
  for (size_t i = 0; i < bytes; ++i) ASSERT_EQ(v[i % period], d[i]) << "byte " << i;
}

}  // namespace

TEST(Bfill, RepeatsTheVectorFromAnyStart) {
  auto rng = seeded_rng(0xF111);
  uint8_t v[64];
  fill_random(v, sizeof v, rng);
  for (int32_t nchan = 1; nchan <= 4; ++nchan)
    for (size_t off = 0; off < 4; ++off)
      for (size_t bytes = 0; bytes < 150; bytes += 1 + (bytes > 40) * 7) {
        Guarded dst(off + bytes + 4, 0x5A);
        C_sorn_bfill(dst.data() + off, bytes, nchan, v);
        expect_pattern(dst.data() + off, bytes, v, nchan);
        for (size_t i = 0; i < off; ++i) EXPECT_EQ(0x5A, dst.data()[i]);
        for (size_t i = off + bytes; i < off + bytes + 4; ++i) EXPECT_EQ(0x5A, dst.data()[i]);
        ASSERT_TRUE(dst.guards_intact());
      }
}

TEST(Bfill, ThreeChannelBytesKeepTheirPeriodAtAnOddAddress) {
  // Eight pixels of three bytes at an odd address.
  const uint8_t v[16] = {10, 20, 30, 10, 20, 30, 10, 20, 30, 10, 20, 30, 10, 0, 0, 0};
  Guarded dst(40);
  C_sorn_bfill(dst.data() + 1, 24, 3, v);
  for (int p = 0; p < 8; ++p) {
    EXPECT_EQ(10, dst.data()[1 + 3 * p]);
    EXPECT_EQ(20, dst.data()[2 + 3 * p]);
    EXPECT_EQ(30, dst.data()[3 + 3 * p]);
  }
  EXPECT_EQ(0, dst.data()[0]);
  EXPECT_EQ(0, dst.data()[25]);
  EXPECT_TRUE(dst.guards_intact());
}

TEST(Bfill2d, FillsEveryRowFromItsStartAndNothingBetween) {
  auto rng = seeded_rng(0xF112);
  uint8_t v[64];
  fill_random(v, sizeof v, rng);
  for (int iter = 0; iter < 200; ++iter) {
    const int32_t nchan = 1 + (int32_t)(rng() % 4);
    const int32_t rows = (int32_t)(rng() % 5);
    const size_t bytes = rng() % 60;
    const int32_t stride = (int32_t)bytes + (int32_t)(rng() % 3) * (int32_t)(rng() % 9);
    const size_t off = rng() % 4;
    const size_t total = off + (size_t)rows * stride + 4;
    Guarded dst(total, 0x33);
    C_sorn_bfill2d(dst.data() + off, stride, rows, bytes, nchan, v);
    std::vector<uint8_t> want(total, 0x33);
    if ((size_t)stride == bytes) {
      // A dense block is one run: the phase carries from row to row.
      for (size_t i = 0; i < rows * bytes; ++i) want[off + i] = v[i % (nchan == 3 ? 12 : 16)];
    } else {
      for (int32_t r = 0; r < rows; ++r)
        for (size_t i = 0; i < bytes; ++i)
          want[off + r * stride + i] = v[i % (nchan == 3 ? 12 : 16)];
    }
    ASSERT_EQ(0, std::memcmp(want.data(), dst.data(), total))
        << "rows " << rows << " bytes " << bytes << " stride " << stride;
    ASSERT_TRUE(dst.guards_intact());
  }
}

// ---------------------------------------------------------------- histogram runs

template <class T>
class HistRuns : public ::testing::Test {};
using HistTypes = ::testing::Types<uint8_t, uint16_t>;
TYPED_TEST_SUITE(HistRuns, HistTypes);

namespace {

void add_run(uint8_t *d, const uint8_t *a, const uint8_t *b, int32_t n) { C_sorn_addLE256_8(d, a, b, n); }
void add_run(uint16_t *d, const uint16_t *a, const uint16_t *b, int32_t n) {
  C_sorn_addLE256_16(d, a, b, n);
}
void suba_run(uint8_t *d, const uint8_t *acc, const uint8_t *a, const uint8_t *b, int32_t n) {
  C_sorn_subaLE256_8(d, acc, a, b, n);
}
void suba_run(uint16_t *d, const uint16_t *acc, const uint16_t *a, const uint16_t *b, int32_t n) {
  C_sorn_subaLE256_16(d, acc, a, b, n);
}

}  // namespace

TYPED_TEST(HistRuns, AddWrapsAndTakesDstForANullFirstSource) {
  using T = TypeParam;
  auto rng = seeded_rng(0xADD5 + sizeof(T));
  for (int32_t n : {0, 1, 2, 5, 12, 13, 31, 256, 257}) {
    for (int off = 0; off < 2; ++off) {
      Guarded gd((n + 1) * sizeof(T)), ga((n + 1) * sizeof(T)), gb((n + 1) * sizeof(T));
      fill_random(gd.data(), gd.size(), rng);
      fill_random(ga.data(), ga.size(), rng);
      fill_random(gb.data(), gb.size(), rng);
      T *d = reinterpret_cast<T *>(gd.data()) + off;
      const T *a = reinterpret_cast<const T *>(ga.data()) + off;
      const T *b = reinterpret_cast<const T *>(gb.data()) + off;
      std::vector<T> d0(d, d + n), want(n), want_inplace(n);
      for (int32_t i = 0; i < n; ++i) {
        want[i] = (T)(a[i] + b[i]);
        want_inplace[i] = (T)(d0[i] + b[i]);
      }
      add_run(d, a, b, n);
      for (int32_t i = 0; i < n; ++i) ASSERT_EQ(want[i], d[i]);
      std::copy(d0.begin(), d0.end(), d);
      add_run(d, nullptr, b, n);
      for (int32_t i = 0; i < n; ++i) ASSERT_EQ(want_inplace[i], d[i]);
      EXPECT_TRUE(gd.guards_intact());
    }
  }
}

TYPED_TEST(HistRuns, SubtractAddWrapsAndUpdatesInPlaceForANullAccumulator) {
  using T = TypeParam;
  auto rng = seeded_rng(0x50BA + sizeof(T));
  for (int32_t n : {0, 1, 3, 7, 12, 13, 64, 255, 256}) {
    std::vector<T> acc(n), a(n), b(n), d(n, 0), d0(n);
    for (int32_t i = 0; i < n; ++i) {
      acc[i] = (T)rng(); a[i] = (T)rng(); b[i] = (T)rng(); d0[i] = (T)rng();
    }
    suba_run(d.data(), acc.data(), a.data(), b.data(), n);
    for (int32_t i = 0; i < n; ++i) ASSERT_EQ((T)(a[i] - b[i] + acc[i]), d[i]);
    d = d0;
    suba_run(d.data(), nullptr, a.data(), b.data(), n);
    for (int32_t i = 0; i < n; ++i) ASSERT_EQ((T)(d0[i] + a[i] - b[i]), d[i]);
  }
}

TEST(SubaLE256_8, NullAccumulatorAddsTheDifferenceToDst) {
  uint8_t d[3] = {10, 0, 250};
  const uint8_t a[3] = {5, 0, 10}, b[3] = {2, 1, 0};
  C_sorn_subaLE256_8(d, nullptr, a, b, 3);
  EXPECT_EQ(13, d[0]);
  EXPECT_EQ(255, d[1]);  // 0 + 0 - 1 wraps
  EXPECT_EQ(4, d[2]);    // 250 + 10 wraps
}

// ---------------------------------------------------------------- float runs with a constant

TEST(FloatRunsWithConstant, MatchTheElementRuleBitForBit) {
  auto rng = seeded_rng(0xF10A7);
  for (int32_t n : {0, 1, 4, 11, 12, 13, 17, 100}) {
    for (float c : {0.5f, -3.25f, 7.0f, 1e-3f, 0.0f}) {
      std::vector<float> src = random_floats(rng, n + 1);
      const float *s = src.data() + 1;  // an unaligned start
      std::vector<float> d(n + 1, 99.0f);
      float *dp = d.data() + 1;
      struct Case {
        void (*f)(float *, const float *, int32_t, float);
        float (*rule)(float, float);
      } cases[] = {
          {C_sorn_addvcf, [](float x, float k) { return x + k; }},
          {C_sorn_subvcf, [](float x, float k) { return x - k; }},
          {C_sorn_rsubvcf, [](float x, float k) { return k - x; }},
          {C_sorn_mulvcf, [](float x, float k) { return x * k; }},
          {C_sorn_rdivvcf, [](float x, float k) { return k / x; }},
      };
      for (const Case &cs : cases) {
        cs.f(dp, s, n, c);
        for (int32_t i = 0; i < n; ++i) ASSERT_TRUE(same_bits(cs.rule(s[i], c), dp[i]));
        ASSERT_EQ(99.0f, d[0]);
        // A null source works in place.
        std::vector<float> ip(s, s + n);
        cs.f(ip.data(), nullptr, n, c);
        for (int32_t i = 0; i < n; ++i) ASSERT_TRUE(same_bits(cs.rule(s[i], c), ip[i]));
      }
      const float r = C_sorn_divvcf(dp, s, n, c);
      EXPECT_TRUE(same_bits(1.0f / c, r));
      for (int32_t i = 0; i < n; ++i) ASSERT_TRUE(same_bits(s[i] * (1.0f / c), dp[i]));
    }
  }
}

TEST(Divvcf, MultipliesByTheReciprocalNotDivides) {
  // 3 / 3 is exactly 1, but 3 times the float nearest 1/3 is not.
  float x = 3.0f, y = 0.0f;
  const float r = C_sorn_divvcf(&y, &x, 1, 3.0f);
  EXPECT_EQ(1.0f / 3.0f, r);
  EXPECT_EQ(3.0f * (1.0f / 3.0f), y);
  float q = 0.0f;
  C_sorn_rdivvcf(&q, &x, 1, 3.0f);
  EXPECT_EQ(1.0f, q);
}

TEST(Divvcf, AnswersTheReciprocalForAnEmptyRun) {
  EXPECT_EQ(0.25f, C_sorn_divvcf(nullptr, nullptr, 0, 4.0f));
}

// ---------------------------------------------------------------- reductions

TEST(RunReductions, AgreeWithPlainLoops) {
  auto rng = seeded_rng(0x4ED);
  for (int32_t n : {1, 2, 5, 12, 13, 14, 63, 255, 256, 1001}) {
    for (int off = 0; off < 3; ++off) {
      std::vector<uint8_t> b(n + off);
      fill_random(b.data(), b.size(), rng);
      const uint8_t *p = b.data() + off;
      uint8_t mx = p[0], mn = p[0];
      uint64_t s8 = 0;
      for (int32_t i = 0; i < n; ++i) {
        mx = std::max(mx, p[i]);
        mn = std::min(mn, p[i]);
        s8 += p[i];
      }
      EXPECT_EQ(mx, C_sorn_maxu8_n(p, n));
      EXPECT_EQ(mn, C_sorn_minu8_n(p, n));
      EXPECT_EQ(s8, C_sorn_sumu8_n(p, n));

      std::vector<uint16_t> h(n + off);
      for (auto &x : h) x = (uint16_t)(rng() % 300);
      uint32_t s16 = 0;
      for (int32_t i = 0; i < n; ++i) s16 += h[off + i];
      EXPECT_EQ(s16 & 0xffff, C_sorn_sumi16_n(h.data() + off, n) & 0xffff);

      std::vector<float> f = random_floats(rng, n + off);
      const float *q = f.data() + off;
      float fmx = q[0], fmn = q[0], fs = 0.0f;
      for (int32_t i = 0; i < n; ++i) {
        if (q[i] > fmx) fmx = q[i];
        if (q[i] < fmn) fmn = q[i];
        fs += q[i];
      }
      EXPECT_TRUE(same_bits(fmx, C_sorn_maxf_n(q, n)));
      EXPECT_TRUE(same_bits(fmn, C_sorn_minf_n(q, n)));
      EXPECT_TRUE(same_bits(fs, C_sorn_sumf_n(q, n)));
    }
  }
}

TEST(RunReductions, EmptyRunsGiveZero) {
  const uint8_t b[1] = {7};
  const float f[1] = {5.0f};
  EXPECT_EQ(0, C_sorn_minu8_n(b, 0));
  EXPECT_EQ(0, C_sorn_maxu8_n(b, 0));
  EXPECT_EQ(0u, C_sorn_sumu8_n(b, 0));
  EXPECT_EQ(0u, C_sorn_sumi16_n(nullptr, 0));
  EXPECT_EQ(0.0f, C_sorn_sumf_n(f, 0));
  EXPECT_EQ(0.0f, C_sorn_maxf_n(f, 0));
  EXPECT_EQ(0.0f, C_sorn_minf_n(f, 0));
}

TEST(RunReductions, FloatSumKeepsIndexOrder) {
  // (1e8 + 1) + -1e8 loses the 1; any other order would keep it.
  const float f[3] = {1e8f, 1.0f, -1e8f};
  EXPECT_EQ(0.0f, C_sorn_sumf_n(f, 3));
}

TEST(RunReductions, SumOfSixteenBitCountsHoldsInItsLowBits) {
  std::vector<uint16_t> h(256, 255);  // 65280 in all
  EXPECT_EQ(65280u, C_sorn_sumi16_n(h.data(), 256) & 0xffff);
}

// Matrix by one vector and by a list of vectors, against the plain loop.
#include "mul_ref.h"

using namespace mul_test;
using sorn_test::make_record;
using sorn_test::make_roi;
using sorn_test::seeded_rng;

namespace {

// A two-dimensional record, as a caller fills it by hand: a row of n
// elements.
SornArray vector_record(void *data, int32_t n, uint32_t type) {
  SornArray v = make_record(data, 1, n, 1, type, n * SORN_ELEMSIZE(type));
  v.ndims = 2;
  v.ndimsall = 2;
  v.strides[1] = 0;
  return v;
}

}  // namespace

class MulMVTypes : public ::testing::TestWithParam<Pair> {};

TEST_P(MulMVTypes, MatrixTimesRowVectorMatchesPlainLoop) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x3E7 + p.dst * 16 + p.src);
  for (int32_t M : {1, 3, 4, 5, 9, 17})
    for (int32_t K : {1, 2, 4, 5, 13, 40}) {
      const int32_t shift = p.src == SORN_F32 ? 0 : (int32_t)(rng() % 5) - 2;
      const int32_t ox = (int32_t)(rng() % 3);
      Image A(M + 1, K + 2, 1, p.src, 4);
      Image X(1, K + ox, 1, p.src), Y(1, M + 3, 1, p.dst, 0, 0x5A);
      randomize(A, rng);
      randomize(X, rng);
      const SornArray ra = A.record();
      SornArray rx = vector_record(X.base(), K + ox, p.src);
      SornArray ry = vector_record(Y.base(), M + 3, p.dst);
      const SornVolume roiA = make_roi(1, 2, M, K, 1);
      const SornVolume roiX = make_roi(0, ox, 0, 0, 0);
      const SornVolume roiY = make_roi(0, 1, 1, M, 1);
      const auto before = Y.bytes_copy();
      Env env;
      ASSERT_EQ(SORN_OK, SornMulMV(&env.xe, 0, &ry, &ra, &rx, &roiY, &roiA, &roiX, shift, 0));
      ASSERT_TRUE(env.at_mark());
      ASSERT_TRUE(Y.guards_intact());
      for (int32_t x : {0, M + 1, M + 2}) ASSERT_EQ(before[x * Y.esize()], Y.base()[x * Y.esize()]);
      for (int32_t i = 0; i < M; ++i) {
        double mag;
        const double want = ref_elem(
            p.dst, p.src, K, shift, [&](int32_t k) { return A.get(1 + i, 2 + k); },
            [&](int32_t k) { return X.get(0, ox + k); }, &mag);
        if (p.src == SORN_F32)
          ASSERT_NEAR(want, Y.get(0, 1 + i), 2e-6 * mag + 1e-6);
        else
          ASSERT_EQ(want, Y.get(0, 1 + i)) << p.name << " M " << M << " K " << K << " i " << i;
      }
    }
}

TEST_P(MulMVTypes, MatrixTimesVectorListMatchesPlainLoop) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x3E8 + p.dst * 16 + p.src);
  for (int32_t count : {1, 2, 3, 4, 5, 7, 9})
    for (int32_t M : {1, 4, 6, 11})
      for (int32_t K : {1, 2, 3, 4, 6, 21}) {
        const int32_t shift = p.src == SORN_F32 ? 0 : (int32_t)(rng() % 5) - 2;
        const int32_t ox = (int32_t)(rng() % 2);
        Image A(M, K, 1, p.src, 8);
        std::vector<Image> vs;
        vs.reserve(count);
        std::vector<SornArray> rv(count);
        std::vector<const SornArray *> pv(count);
        for (int32_t j = 0; j < count; ++j) {
          vs.emplace_back(1, K + ox + (int32_t)(rng() % 3), 1, p.src);
          randomize(vs.back(), rng);
        }
        for (int32_t j = 0; j < count; ++j) {
          rv[j] = vector_record(vs[j].base(), vs[j].cols(), p.src);
          pv[j] = &rv[j];
        }
        Image D(M + 1, count + 2, 1, p.dst, 4, 0x5A);
        randomize(A, rng);
        const SornArray ra = A.record(), rd = D.record();
        const SornVolume roiD = make_roi(1, 1, M, count + 1, 1);
        const SornVolume roiV = make_roi(0, ox, 0, 0, 0);
        const auto before = D.bytes_copy();
        Env env;
        ASSERT_EQ(SORN_OK, SornMulMV_n(&env.xe, 0, &rd, &ra, pv.data(), &roiD, nullptr, &roiV,
                                       count, shift, 0));
        ASSERT_TRUE(env.at_mark());
        ASSERT_TRUE(D.guards_intact());
        for (int32_t y = 0; y < D.rows(); ++y)
          for (int32_t x = 0; x < D.cols(); ++x) {
            const bool inside = y >= 1 && x >= 1 && x < 1 + count;
            if (!inside) {
              ASSERT_EQ(before[(size_t)y * D.rowstride() + x * D.esize()],
                        D.base()[(size_t)y * D.rowstride() + x * D.esize()]);
              continue;
            }
            double mag;
            const int32_t i = y - 1, j = x - 1;
            const double want = ref_elem(
                p.dst, p.src, K, shift, [&](int32_t k) { return A.get(i, k); },
                [&](int32_t k) { return vs[j].get(0, ox + k); }, &mag);
            if (p.src == SORN_F32)
              ASSERT_NEAR(want, D.get(y, x), 2e-6 * mag + 1e-6);
            else
              ASSERT_EQ(want, D.get(y, x)) << p.name << " count " << count << " M " << M << " K " << K;
          }
      }
}

INSTANTIATE_TEST_SUITE_P(AllTriples, MulMVTypes, ::testing::ValuesIn(all_pairs()),
                         [](const ::testing::TestParamInfo<Pair> &i) { return std::string(i.param.name); });

TEST(MulMV, ConstructedRecordsAreTakenAsTheirFirstRow) {
  float a[2 * 2] = {1, 2, 3, 4}, x[2] = {10, 100}, y[2] = {0, 0};
  const SornArray ra = make_record(a, 2, 2, 1, SORN_F32, 8);
  const SornArray rx = make_record(x, 1, 2, 1, SORN_F32, 8);
  const SornArray ry = make_record(y, 1, 2, 1, SORN_F32, 8);
  Env env;
  ASSERT_EQ(SORN_OK, SornMulMV(&env.xe, 0, &ry, &ra, &rx, nullptr, nullptr, nullptr, 0, 0));
  EXPECT_EQ(210.0f, y[0]);
  EXPECT_EQ(430.0f, y[1]);
}

TEST(MulMVFails, RanksAndEmptyVectors) {
  float a[4] = {}, x[2] = {}, y[2] = {5, 5};
  const SornArray ra = make_record(a, 2, 2, 1, SORN_F32, 8);
  SornArray rx = vector_record(x, 2, SORN_F32), ry = vector_record(y, 2, SORN_F32);
  Env env;
  SornArray bad = ra;
  bad.ndims = 2;
  EXPECT_EQ(SORN_EINVAL, SornMulMV(&env.xe, 0, &ry, &bad, &rx, nullptr, nullptr, nullptr, 0, 0));
  bad = rx;
  bad.ndims = 4;
  EXPECT_EQ(SORN_EINVAL, SornMulMV(&env.xe, 0, &ry, &ra, &bad, nullptr, nullptr, nullptr, 0, 0));
  const SornVolume far = make_roi(0, 5, 0, 0, 0);
  EXPECT_EQ(SORN_ENOSPC, SornMulMV(&env.xe, 0, &ry, &ra, &rx, nullptr, nullptr, &far, 0, 0));
  EXPECT_EQ(5.0f, y[0]);
  EXPECT_TRUE(env.at_mark());
}

TEST(MulMVn, CountOfZeroIsInvalid) {
  float a[4] = {}, x[2] = {}, d[4] = {9, 9, 9, 9};
  const SornArray ra = make_record(a, 2, 2, 1, SORN_F32, 8);
  const SornArray rd = make_record(d, 2, 2, 1, SORN_F32, 8);
  const SornArray rx = vector_record(x, 2, SORN_F32);
  const SornArray *list[1] = {&rx};
  Env env;
  EXPECT_EQ(SORN_EINVAL, SornMulMV_n(&env.xe, 0, &rd, &ra, list, nullptr, nullptr, nullptr, 0, 0, 0));
  EXPECT_EQ(SORN_EINVAL, SornMulMV_n(&env.xe, 0, &rd, &ra, list, nullptr, nullptr, nullptr, -1, 0, 0));
  EXPECT_EQ(9.0f, d[0]);
  EXPECT_TRUE(env.at_mark());
}

TEST(MulMVn, VectorsMustAgreeInTypeAndDepth) {
  float a[4] = {}, x[2] = {}, d[4] = {9, 9, 9, 9};
  int32_t xi[2] = {};
  const SornArray ra = make_record(a, 2, 2, 1, SORN_F32, 8);
  const SornArray rd = make_record(d, 2, 2, 1, SORN_F32, 8);
  const SornArray rx = vector_record(x, 2, SORN_F32), ri = vector_record(xi, 2, SORN_S32);
  SornArray deep = rx;
  deep.dims[0] = 2;
  Env env;
  const SornArray *mixed[2] = {&rx, &ri};
  EXPECT_EQ(SORN_EINVAL, SornMulMV_n(&env.xe, 0, &rd, &ra, mixed, nullptr, nullptr, nullptr, 2, 0, 0));
  const SornArray *depth[2] = {&rx, &deep};
  EXPECT_EQ(SORN_EINVAL, SornMulMV_n(&env.xe, 0, &rd, &ra, depth, nullptr, nullptr, nullptr, 2, 0, 0));
  const SornArray *null[2] = {&rx, nullptr};
  EXPECT_EQ(SORN_EINVAL, SornMulMV_n(&env.xe, 0, &rd, &ra, null, nullptr, nullptr, nullptr, 2, 0, 0));
  EXPECT_EQ(9.0f, d[0]);
}

TEST(MulMVn, CountCapsTheResultColumns) {
  float a[2] = {1, 2}, x[2] = {3, 4}, d[3] = {-1, -1, -1};
  const SornArray ra = make_record(a, 1, 2, 1, SORN_F32, 8);
  const SornArray rd = make_record(d, 1, 3, 1, SORN_F32, 12);
  const SornArray rx = vector_record(x, 2, SORN_F32);
  const SornArray *list[1] = {&rx};
  Env env;
  ASSERT_EQ(SORN_OK, SornMulMV_n(&env.xe, 0, &rd, &ra, list, nullptr, nullptr, nullptr, 1, 0, 0));
  EXPECT_EQ(11.0f, d[0]);
  EXPECT_EQ(-1.0f, d[1]);
  EXPECT_EQ(-1.0f, d[2]);
}

TEST(MulMVn, ListLayerCopiesTheCallersListUnlessItIsReady) {
  // Without the ready flag the origin goes onto a copy of the list; with it
  // the list itself is moved.
  float a[2] = {1, 1}, v[4] = {1, 2, 3, 4}, d[1] = {0};
  const int32_t dims1[3] = {1, 2, 1}, dims2[3] = {1, 2, 1};
  const int32_t st4[4] = {0, 8, 4, 4}, ds4[4] = {0, 4, 4, 4};
  const int32_t *st = st4 + 1, *ds = ds4 + 1;
  const int32_t origin[4] = {0, 0, 1, 0};
  void *list[1] = {v};
  Env env;
  ASSERT_EQ(SORN_OK, sorna_mulmvn(&env.xe, 0, 0x413, dims1, dims2, SORN_F32, d, nullptr, ds,
                                  SORN_F32, a, nullptr, st, SORN_F32, list, origin + 1, st, 1, 0, 0));
  EXPECT_EQ(5.0f, d[0]);
  EXPECT_EQ((void *)v, list[0]);
  ASSERT_EQ(SORN_OK, sorna_mulmvn(&env.xe, SORN_F_MUL_VECREADY, 0x413, dims1, dims2, SORN_F32, d,
                                  nullptr, ds, SORN_F32, a, nullptr, st, SORN_F32, list,
                                  origin + 1, st, 1, 0, 0));
  EXPECT_EQ(5.0f, d[0]);
  EXPECT_EQ((void *)(v + 1), list[0]);
  EXPECT_TRUE(env.at_mark());
}

// Scratch exhaustion in the products. The accumulator block of the general
// path is the one request a product cannot do without: its failure answers
// SORN_ENOMEM and writes nothing. Every other request (packing the second
// source, gathering a column, the vector list of the matrix-by-vector entry)
// is optional for the product, which then runs the path without it and gives
// the very same bytes.
#include <alloc_failure.h>

#include "mul_ref.h"

using namespace mul_test;
using sorn_test::AllocFailure;
using sorn_test::for_each_allocation_failure;
using sorn_test::make_record;
using sorn_test::make_roi;
using sorn_test::seeded_rng;

namespace {

struct Case {
  int32_t M, K, N;
  int32_t pad2;      // bytes of gap after each row of the second source
  bool transposed;
  bool needs_accumulators;  // the shape takes the general path of the product
  bool optional_request;    // the shape makes a request it can do without
};

// Shapes that reach each scratch request: a wide gap after the rows of the
// second source makes the general path pack it; one column with padded rows
// is gathered; two columns of a tall product are transposed into rows.
const Case kCases[] = {
    {40, 9, 8, 2000, false, true, true},  // general path, packed
    {9, 12, 7, 0, false, true, false},    // general path, rows adjacent
    {9, 12, 7, 0, true, false, false},    // transposed: a list of rows, no accumulators
    {6, 9, 1, 12, false, false, true},    // one column, gathered (f32)
    {40, 9, 2, 0, false, false, true},    // two columns, transposed into rows (f32)
};

// The path without an optional block may group the terms of an f32 sum
// differently, so its last bits may differ; integers are exact either way.
void expect_same_product(const Image &want, const Image &got, const char *name, int64_t k) {
  if (want.type() != SORN_F32) {
    EXPECT_EQ(want.bytes_copy(), got.bytes_copy()) << name << " request " << k;
    return;
  }
  for (int32_t y = 0; y < want.rows(); ++y)
    for (int32_t x = 0; x < want.cols(); ++x) {
      const double w = want.get(y, x), g = got.get(y, x);
      ASSERT_NEAR(w, g, 1e-5 * std::fabs(w) + 1e-6) << name << " request " << k << " at " << y << "," << x;
    }
}

struct Outcome {
  int64_t enomem = 0, recovered = 0;
};

Outcome sweep_mm(const Pair &p, const Case &c, std::mt19937_64 &rng) {
  Image a(c.M, c.K, 1, p.src, 4);
  Image b(c.transposed ? c.N : c.K, c.transposed ? c.K : c.N, 1, p.src, c.pad2);
  randomize(a, rng);
  randomize(b, rng);
  const SornArray ra = a.record(), rb = b.record();
  const SornFlags flags = c.transposed ? SORN_F_MUL_TRANSPOSED : 0;
  const int32_t shift = p.src == SORN_F32 ? 0 : 1;

  Image want(c.M + 2, c.N + 2, 1, p.dst, 8, 0x5A);
  const SornArray rwant = want.record();
  const SornVolume roiD = make_roi(1, 1, c.M, c.N, 1);
  {
    Env env;
    EXPECT_EQ(SORN_OK, SornMulMM(&env.xe, flags, &rwant, &ra, &rb, &roiD, nullptr, nullptr, shift, 0));
  }

  Outcome out;
  for_each_allocation_failure([&](int64_t k) {
    Image d(c.M + 2, c.N + 2, 1, p.dst, 8, 0x5A);
    const auto before = d.bytes_copy();
    const SornArray rd = d.record();
    Env env;
    SornStatus st;
    {
      AllocFailure failure(k);
      st = SornMulMM(&env.xe, flags, &rd, &ra, &rb, &roiD, nullptr, nullptr, shift, 0);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(env.at_mark()) << p.name << " request " << k;
    EXPECT_TRUE(d.guards_intact());
    if (st == SORN_ENOMEM) {
      ++out.enomem;
      EXPECT_EQ(before, d.bytes_copy()) << p.name << " wrote before failing, request " << k;
    } else {
      EXPECT_EQ(SORN_OK, st) << p.name << " request " << k;
      ++out.recovered;
      expect_same_product(want, d, p.name, k);
    }
    return true;
  });
  return out;
}

}  // namespace

class MulOutOfMemory : public ::testing::TestWithParam<Pair> {};

TEST_P(MulOutOfMemory, AccumulatorsAreRequiredAndEveryOtherRequestIsOptional) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x00E0 + p.dst * 16 + p.src);
  for (const Case &c : kCases) {
    if (c.optional_request && !c.needs_accumulators && p.src != SORN_F32) continue;
    SCOPED_TRACE(::testing::Message() << p.name << " " << c.M << "x" << c.K << "x" << c.N
                                      << (c.transposed ? " T" : "") << " gap " << c.pad2);
    const Outcome o = sweep_mm(p, c, rng);
    if (c.needs_accumulators) {
      EXPECT_EQ(1, o.enomem) << "only the accumulator block is required";
    } else {
      EXPECT_EQ(0, o.enomem);
    }
    if (c.optional_request) {
      EXPECT_GE(o.recovered, 1) << "an optional request was failed and the product went on";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllPairs, MulOutOfMemory, ::testing::ValuesIn(all_pairs()),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(MulMVOutOfMemory, EveryRequestOfAListProductFailsCleanly) {
  auto rng = seeded_rng(0x00E2);
  const int32_t M = 9, K = 21, count = 7;
  Image A(M, K, 1, SORN_F32, 8);
  std::vector<Image> vs;
  vs.reserve(count);
  std::vector<SornArray> rv(count);
  std::vector<const SornArray *> pv(count);
  for (int32_t j = 0; j < count; ++j) {
    vs.emplace_back(1, K, 1, SORN_F32);
    randomize(vs.back(), rng);
    rv[j] = make_record(vs.back().base(), 1, K, 1, SORN_F32, K * 4);
    rv[j].ndims = rv[j].ndimsall = 2;
    rv[j].strides[1] = 0;
    pv[j] = &rv[j];
  }
  randomize(A, rng);
  const SornArray ra = A.record();
  Image want(M, count, 1, SORN_F32);
  const SornArray rwant = want.record();
  {
    Env env;
    ASSERT_EQ(SORN_OK, SornMulMV_n(&env.xe, 0, &rwant, &ra, pv.data(), nullptr, nullptr, nullptr,
                                   count, 0, 0));
  }
  const int64_t runs = for_each_allocation_failure([&](int64_t k) {
    Image d(M, count, 1, SORN_F32, 0, 0x5A);
    const auto before = d.bytes_copy();
    const SornArray rd = d.record();
    Env env;
    SornStatus st;
    {
      AllocFailure failure(k);
      st = SornMulMV_n(&env.xe, 0, &rd, &ra, pv.data(), nullptr, nullptr, nullptr, count, 0, 0);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(env.at_mark());
    if (st == SORN_ENOMEM)
      EXPECT_EQ(before, d.bytes_copy()) << "request " << k;
    else
      expect_same_product(want, d, "f32f32", k);
    return true;
  });
  EXPECT_GE(runs, 1);
}

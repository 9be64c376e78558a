// Products of every type triple against the plain triple loop, over shapes
// that reach every rung of the ladder and cross every block boundary, with
// and without a transposed second source, ROIs with origins, padded rows and
// guard bytes.
#include "mul_ref.h"

using namespace mul_test;
using sorn_test::make_roi;
using sorn_test::seeded_rng;

namespace {

struct Shape {
  int32_t M, K, N;
  int32_t pad2 = 0;  // extra bytes at the end of each row of the second source
};

// Runs one product and checks every byte of the destination buffer.
// The destination's bytes, guards aside, go to *out when it is given.
void check_mm(const Pair &p, const Shape &s, bool transposed, int32_t shift, std::mt19937_64 &rng,
              std::vector<uint8_t> *out = nullptr) {
  const int32_t o1y = (int32_t)(rng() % 3), o1x = (int32_t)(rng() % 3);
  const int32_t o2y = (int32_t)(rng() % 2), o2x = (int32_t)(rng() % 2);
  const int32_t ody = (int32_t)(rng() % 2), odx = (int32_t)(rng() % 3);
  const int32_t esd = SORN_ELEMSIZE(p.dst);
  Image a(s.M + o1y + 1, s.K + o1x + 1, 1, p.src, (int32_t)(rng() % 3) * 4);
  Image b(transposed ? s.N + o2y : s.K + o2y, transposed ? s.K + o2x : s.N + o2x, 1, p.src, s.pad2);
  Image d(s.M + ody + 1, s.N + odx + 2, 1, p.dst, 8, 0x5A);
  randomize(a, rng);
  randomize(b, rng);
  const auto before = d.bytes_copy();
  const SornArray ra = a.record(), rb = b.record(), rd = d.record();
  const SornVolume roiA = make_roi(o1y, o1x, s.M, s.K, 1);
  const SornVolume roiB = make_roi(o2y, o2x, 0, 0, 0);
  const SornVolume roiD = make_roi(ody, odx, s.M, s.N, 1);
  Env env;
  const SornFlags flags = transposed ? SORN_F_MUL_TRANSPOSED : 0;
  ASSERT_EQ(SORN_OK, SornMulMM(&env.xe, flags, &rd, &ra, &rb, &roiD, &roiA, &roiB, shift, 0))
      << p.name << " " << s.M << "x" << s.K << "x" << s.N << " T" << transposed << " shift " << shift;
  ASSERT_TRUE(env.at_mark());
  ASSERT_TRUE(d.guards_intact());
  if (out) *out = d.bytes_copy();
  for (int32_t y = 0; y < d.rows(); ++y)
    for (int32_t x = 0; x < d.rowstride(); ++x) {
      const bool inside = y >= ody && y < ody + s.M && x >= odx * esd && x < (odx + s.N) * esd;
      if (!inside) {
        ASSERT_EQ(before[(size_t)y * d.rowstride() + x], d.base()[(size_t)y * d.rowstride() + x])
            << "written outside the ROI at row " << y << " byte " << x;
      }
    }
  for (int32_t i = 0; i < s.M; ++i)
    for (int32_t j = 0; j < s.N; ++j) {
      double mag;
      const double want = ref_elem(
          p.dst, p.src, s.K, shift, [&](int32_t k) { return a.get(o1y + i, o1x + k); },
          [&](int32_t k) { return transposed ? b.get(o2y + j, o2x + k) : b.get(o2y + k, o2x + j); },
          &mag);
      const double got = d.get(ody + i, odx + j);
      if (p.src == SORN_F32)
        ASSERT_NEAR(want, got, 2e-6 * mag + 1e-6) << p.name << " " << s.M << "x" << s.K << "x" << s.N
                                                  << " T" << transposed << " at " << i << "," << j;
      else
        ASSERT_EQ(want, got) << p.name << " " << s.M << "x" << s.K << "x" << s.N << " T" << transposed
                             << " shift " << shift << " at " << i << "," << j;
    }
}

const int32_t kShifts[] = {0, 0, 1, 3, 9, -1, -2, -5, 31, -31};

int32_t pick_shift(const Pair &p, std::mt19937_64 &rng) {
  if (p.src == SORN_F32) return 0;
  return kShifts[rng() % (sizeof kShifts / sizeof kShifts[0])];
}

std::vector<Shape> ladder_shapes() {
  std::vector<Shape> v;
  // Every fixed product up to 4 by 4 by 4.
  for (int32_t M = 1; M <= 4; ++M)
    for (int32_t K = 1; K <= 4; ++K)
      for (int32_t N = 1; N <= 4; ++N) v.push_back({M, K, N});
  // Narrow K with longer sides, including the paired shapes.
  for (int32_t K = 1; K <= 5; ++K)
    for (int32_t N : {1, 2, 3, 5, 7}) v.push_back({7, K, N});
  v.push_back({1, 5, 9});  // one row, K of 5
  v.push_back({2, 5, 9});  // two rows: the general path
  // One column: adjacent and strided, and two, three, four columns.
  for (int32_t N = 1; N <= 4; ++N) {
    v.push_back({6, 9, N});
    v.push_back({6, 9, N, 12});
  }
  v.push_back({40, 6, 2});  // gathered pair of columns
  v.push_back({36, 6, 2});  // just below the gathering threshold
  // General path: every remainder of rows and of K groups.
  for (int32_t M : {5, 6, 7, 8, 13})
    for (int32_t K : {5, 6, 7, 8, 9, 13}) v.push_back({M, K, 5 + (M * K) % 13});
  // Columns across the accumulator blocks.
  v.push_back({5, 6, 1030});
  v.push_back({3, 7, 1100});
  // Rows of the second source far apart: packed into scratch.
  v.push_back({64, 6, 8, 400});
  v.push_back({64, 4, 8, 400});
  return v;
}

std::vector<Shape> list_shapes() {
  std::vector<Shape> v;
  for (int32_t M = 1; M <= 4; ++M)
    for (int32_t K = 1; K <= 4; ++K)
      for (int32_t N = 1; N <= 4; ++N) v.push_back({M, K, N});
  for (int32_t N = 1; N <= 4; ++N) v.push_back({7, 9, N});   // one to four vectors
  v.push_back({7, 1, 9});                                     // K of 1, dense list: one row
  v.push_back({7, 1, 9, 8});                                  // K of 1, spaced list: gathered
  v.push_back({30, 2, 10});                                   // K of 2, transposed into rows
  v.push_back({5, 2, 10});                                    // K of 2, as it is
  v.push_back({6, 3, 11});
  v.push_back({6, 4, 11});
  for (int32_t M : {5, 6, 7, 8, 9})
    for (int32_t K : {5, 8, 13}) v.push_back({M, K, 5 + (M + K) % 6});
  v.push_back({64, 5, 64, 4000});     // vectors far apart: packed
  v.push_back({64, 3, 64, 121000});   // short vectors very far apart: packed
  return v;
}

}  // namespace

class MulMMTypes : public ::testing::TestWithParam<Pair> {};

TEST_P(MulMMTypes, MatchesTripleLoopOnEveryRungOfTheLadder) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x3A7 + p.dst * 16 + p.src);
  for (const Shape &s : ladder_shapes()) {
    check_mm(p, s, false, pick_shift(p, rng), rng);
    if (HasFatalFailure()) return;
  }
}

TEST_P(MulMMTypes, TransposedSecondSourceMatchesTripleLoop) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x7A7 + p.dst * 16 + p.src);
  for (const Shape &s : list_shapes()) {
    check_mm(p, s, true, pick_shift(p, rng), rng);
    if (HasFatalFailure()) return;
  }
}

TEST_P(MulMMTypes, EveryShiftOnTheGeneralPath) {
  const Pair p = GetParam();
  auto rng = seeded_rng(0x5C1 + p.dst * 16 + p.src);
  // The f32 kernels have no scale: on the same inputs every shift writes
  // the bytes that shift 0 writes, and those are the plain product.
  const std::mt19937_64 inputs = rng;
  std::vector<uint8_t> unscaled[2], got;
  for (int32_t shift = -32; shift <= 32; ++shift) {
    const bool transposed = (shift & 1) != 0;
    if (p.src != SORN_F32) {
      check_mm(p, {6, 7, 9}, transposed, shift, rng);
    } else {
      std::mt19937_64 same = inputs;
      check_mm(p, {6, 7, 9}, transposed, shift, same, &got);
      if (!HasFatalFailure()) {
        std::vector<uint8_t> &first = unscaled[transposed];
        if (first.empty()) first = got;
        ASSERT_EQ(got, first) << "shift " << shift << " changed an f32 product";
      }
    }
    if (HasFatalFailure()) return;
  }
  if (p.src == SORN_F32) {
    EXPECT_FALSE(unscaled[0].empty() || unscaled[1].empty());
  }
}

INSTANTIATE_TEST_SUITE_P(AllTriples, MulMMTypes, ::testing::ValuesIn(all_pairs()),
                         [](const ::testing::TestParamInfo<Pair> &i) { return std::string(i.param.name); });

// The hull into a new block takes it from the system allocator, and the
// least-area quad of more than 32 points goes through it: when malloc
// answers null, the hull answers 0 and the quad null. The test program
// stands in front of the C library's malloc for that; under the address
// sanitizer, whose allocator owns malloc, these tests are not built.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#if !defined(__SANITIZE_ADDRESS__)

extern "C" void *__libc_malloc(size_t size);

namespace {
// Set to fail the next request of exactly this many bytes.
size_t g_fail_size = 0;
}  // namespace

extern "C" void *malloc(size_t size) {
  if (g_fail_size != 0 && size == g_fail_size) {
    g_fail_size = 0;
    return nullptr;
  }
  return __libc_malloc(size);
}

namespace {

std::vector<Sorn2dPt> circle_points(int n) {
  std::vector<Sorn2dPt> v;
  for (int i = 0; i < n; ++i) v.push_back({(i * 7919) % 101, (i * 104729) % 97});
  return v;
}

TEST(HullBlock, NoBlockGivesZeroAndANullPointer) {
  auto v = circle_points(40);
  Sorn2dPt *block = reinterpret_cast<Sorn2dPt *>(v.data());
  g_fail_size = v.size() * sizeof(Sorn2dPt);
  EXPECT_EQ(sorn_2d_ptv_aconvexhull(&block, v.data(), 40), 0);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(g_fail_size, 0u);  // the request was made and failed
  const std::vector<SornF2dPt> f(40, SornF2dPt{1, 2});
  SornF2dPt *fb = nullptr;
  g_fail_size = 40 * sizeof(SornF2dPt);
  EXPECT_EQ(sorn_f2d_ptv_aconvexhull(&fb, f.data(), 40), 0);
  EXPECT_EQ(fb, nullptr);
  const std::vector<SornR2dPt> r(40, SornR2dPt{1, 2});
  SornR2dPt *rb = nullptr;
  g_fail_size = 40 * sizeof(SornR2dPt);
  EXPECT_EQ(sorn_r2d_ptv_aconvexhull(&rb, r.data(), 40), 0);
  EXPECT_EQ(rb, nullptr);
}

TEST(HullBlock, LeastAreaQuadWithoutItsBlockIsNull) {
  auto v = circle_points(33);
  SornR2dQuad q;
  std::memset(&q, 0x77, sizeof q);
  const SornR2dQuad before = q;
  g_fail_size = 33 * sizeof(Sorn2dPt);
  EXPECT_EQ(sorn_2d_ptv_minbquad_$r(&q, v.data(), 33), nullptr);
  EXPECT_EQ(std::memcmp(&q, &before, sizeof q), 0);
  // Up to 32 points the hull lies in a local array: nothing to fail.
  g_fail_size = 32 * sizeof(Sorn2dPt);
  EXPECT_EQ(sorn_2d_ptv_minbquad_$r(&q, v.data(), 32), &q);
  EXPECT_EQ(g_fail_size, 32 * sizeof(Sorn2dPt));
  g_fail_size = 0;
  EXPECT_EQ(sorn_2d_ptv_minbquad_$r(&q, v.data(), 33), &q);
}

}  // namespace

#endif

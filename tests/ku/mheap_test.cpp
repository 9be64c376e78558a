// Heap blocks of the base library: zeroed blocks, resizing that keeps the
// contents and never frees, and both names of freeing.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>

TEST(KuMheap, CallocGivesZeroedMemory) {
  auto *p = static_cast<uint8_t *>(_KuMcalloc(1000, 8, 0));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 8000; ++i) ASSERT_EQ(p[i], 0) << i;
  _KuMfree(p);
}

TEST(KuMheap, CallocOfNothingIsStillABlock) {
  void *a = _KuMcalloc(0, 8, 0);
  void *b = _KuMcalloc(8, 0, 0);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  _KuMfree(a);
  KuMfree(b);
}

TEST(KuMheap, CallocWhoseProductOverflowsAnswersNull) {
  EXPECT_EQ(_KuMcalloc(SIZE_MAX / 2, 4, 0), nullptr);
  EXPECT_EQ(_KuMcalloc(size_t{1} << 40, size_t{1} << 30, 0), nullptr);
}

TEST(KuMheap, ReallocFromNullAllocates) {
  auto *p = static_cast<uint8_t *>(_KuMrealloc(nullptr, 64, 0));
  ASSERT_NE(p, nullptr);
  std::memset(p, 0x5a, 64);
  KuMfree(p);
}

TEST(KuMheap, ReallocKeepsTheContents) {
  auto *p = static_cast<uint8_t *>(_KuMrealloc(nullptr, 16, 0));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 16; ++i) p[i] = static_cast<uint8_t>(i * 3);
  for (size_t size = 32; size <= (size_t{1} << 20); size *= 4) {
    p = static_cast<uint8_t *>(_KuMrealloc(p, size, 0));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 16; ++i) ASSERT_EQ(p[i], i * 3);
  }
  p = static_cast<uint8_t *>(_KuMrealloc(p, 8, 0));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(p[i], i * 3);
  _KuMfree(p);
}

TEST(KuMheap, ReallocToZeroKeepsALiveBlock) {
  void *p = _KuMrealloc(nullptr, 100, 0);
  ASSERT_NE(p, nullptr);
  void *q = _KuMrealloc(p, 0, 0);
  // Null would mean failure with p still live; a block means p was moved.
  ASSERT_NE(q, nullptr);
  _KuMfree(q);
}

TEST(KuMheap, ReallocThatFailsAnswersNullAndKeepsTheOldBlock) {
  auto *p = static_cast<uint8_t *>(_KuMrealloc(nullptr, 32, 0));
  ASSERT_NE(p, nullptr);
  std::memset(p, 0x77, 32);
  EXPECT_EQ(_KuMrealloc(p, SIZE_MAX - 64, 0), nullptr);
  EXPECT_EQ(_KuMrealloc(p, size_t{1} << 62, 0), nullptr);
  for (int i = 0; i < 32; ++i) ASSERT_EQ(p[i], 0x77);
  _KuMfree(p);
}

TEST(KuMheap, FreeingNullDoesNothing) {
  _KuMfree(nullptr);
  KuMfree(nullptr);
}

// The geometry records are plain arrays of their family's coordinates, with
// one layout for C and C++ callers.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstddef>

extern "C" {
struct GeometryLayoutEntry {
  const char *name;
  size_t offset;
  size_t size;
};
size_t geometry_c99_layout(const GeometryLayoutEntry **out);
}

namespace {

struct Expected {
  const char *name;
  size_t offset, size;
  size_t cxx_offset, cxx_size;
};

#define FIELD(T, f, off, sz) {#T "." #f, off, sz, offsetof(T, f), sizeof(((T *)0)->f)},
#define RECORD(T, sz) {#T, 0, sz, 0, sizeof(T)},

const Expected kExpected[] = {
    RECORD(Sorn2dPt, 8) FIELD(Sorn2dPt, x, 0, 4) FIELD(Sorn2dPt, y, 4, 4)
    RECORD(SornF2dPt, 8) FIELD(SornF2dPt, x, 0, 4) FIELD(SornF2dPt, y, 4, 4)
    RECORD(SornR2dPt, 16) FIELD(SornR2dPt, x, 0, 8) FIELD(SornR2dPt, y, 8, 8)
    RECORD(Sorn2dRect, 16) FIELD(Sorn2dRect, x, 0, 4) FIELD(Sorn2dRect, y, 4, 4)
    FIELD(Sorn2dRect, width, 8, 4) FIELD(Sorn2dRect, height, 12, 4)
    RECORD(SornF2dRect, 16) FIELD(SornF2dRect, width, 8, 4) FIELD(SornF2dRect, height, 12, 4)
    RECORD(SornR2dRect, 32) FIELD(SornR2dRect, width, 16, 8) FIELD(SornR2dRect, height, 24, 8)
    RECORD(Sorn2dRcpt, 16) FIELD(Sorn2dRcpt, x0, 0, 4) FIELD(Sorn2dRcpt, y0, 4, 4)
    FIELD(Sorn2dRcpt, x1, 8, 4) FIELD(Sorn2dRcpt, y1, 12, 4)
    RECORD(SornF2dRcpt, 16) FIELD(SornF2dRcpt, x1, 8, 4) FIELD(SornF2dRcpt, y1, 12, 4)
    RECORD(SornR2dRcpt, 32) FIELD(SornR2dRcpt, x1, 16, 8) FIELD(SornR2dRcpt, y1, 24, 8)
    RECORD(SornF2dQuad, 32) FIELD(SornF2dQuad, q, 0, 32)
    RECORD(SornR2dQuad, 64) FIELD(SornR2dQuad, q, 0, 64)
    RECORD(SornF2dEll, 20) FIELD(SornF2dEll, cx, 0, 4) FIELD(SornF2dEll, cy, 4, 4)
    FIELD(SornF2dEll, a, 8, 4) FIELD(SornF2dEll, b, 12, 4) FIELD(SornF2dEll, rotation, 16, 4)
    RECORD(SornR2dEll, 40) FIELD(SornR2dEll, cx, 0, 8) FIELD(SornR2dEll, cy, 8, 8)
    FIELD(SornR2dEll, a, 16, 8) FIELD(SornR2dEll, b, 24, 8) FIELD(SornR2dEll, rotation, 32, 8)
    RECORD(SornMoment2, 24) FIELD(SornMoment2, m20, 0, 8) FIELD(SornMoment2, m11, 8, 8)
    FIELD(SornMoment2, m02, 16, 8)
};

#undef FIELD
#undef RECORD

TEST(GeometryLayout, CppMatchesThePlatformLayout) {
  for (const Expected &e : kExpected) {
    EXPECT_EQ(e.cxx_offset, e.offset) << e.name;
    EXPECT_EQ(e.cxx_size, e.size) << e.name;
  }
}

TEST(GeometryLayout, C99UnitSeesTheSameLayout) {
  const GeometryLayoutEntry *c = nullptr;
  const size_t n = geometry_c99_layout(&c);
  constexpr size_t kCount = sizeof kExpected / sizeof kExpected[0];
  ASSERT_EQ(n, kCount);
  for (size_t i = 0; i < n; ++i) {
    ASSERT_STREQ(c[i].name, kExpected[i].name);
    EXPECT_EQ(c[i].offset, kExpected[i].offset) << c[i].name;
    EXPECT_EQ(c[i].size, kExpected[i].size) << c[i].name;
  }
}

}  // namespace

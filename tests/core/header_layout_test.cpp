// The records of the public header have one layout for C and C++ callers,
// and the one that the interface fixes for x86-64.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstddef>
#include <cstring>
#include <string>

extern "C" {
struct HeaderLayoutEntry {
  const char *name;
  size_t offset;
  size_t size;
};
size_t header_c99_layout(const HeaderLayoutEntry **out);
}

namespace {

struct Expected {
  const char *name;
  size_t offset, size;        // the x86-64 layout
  size_t cxx_offset, cxx_size;  // what C++ sees
};

#define FIELD(T, f, off, sz) {#T "." #f, off, sz, offsetof(T, f), sizeof(((T *)0)->f)},
#define RECORD(T, sz) {#T, 0, sz, 0, sizeof(T)},

const Expected kExpected[] = {
    RECORD(SornArray, 88)
    FIELD(SornArray, dims, 0, 16) FIELD(SornArray, bounds, 16, 16) FIELD(SornArray, strides, 32, 16)
    FIELD(SornArray, ndims, 48, 2) FIELD(SornArray, ndimsall, 50, 2) FIELD(SornArray, elemtype, 52, 4)
    FIELD(SornArray, reserved, 56, 4) FIELD(SornArray, marker, 60, 4) FIELD(SornArray, offset, 64, 8)
    FIELD(SornArray, data, 72, 8) FIELD(SornArray, link, 80, 8)
    RECORD(SornVolume, 32)
    FIELD(SornVolume, origin, 0, 16) FIELD(SornVolume, size, 16, 16)
    RECORD(KuMark, 24)
    FIELD(KuMark, w, 0, 24)
    RECORD(SornXE, 104)
    FIELD(SornXE, mmstack, 0, 8) FIELD(SornXE, state, 8, 8) FIELD(SornXE, openarg, 16, 8)
    FIELD(SornXE, stackstore, 24, 48) FIELD(SornXE, mark, 72, 24) FIELD(SornXE, tail, 96, 8)
    RECORD(SornPackOperand, 32)
    FIELD(SornPackOperand, type, 0, 4) FIELD(SornPackOperand, base, 8, 8)
    FIELD(SornPackOperand, origin, 16, 8) FIELD(SornPackOperand, strides, 24, 8)
    RECORD(SornPack, 232)
    FIELD(SornPack, count, 0, 2) FIELD(SornPack, tolerance, 2, 2) FIELD(SornPack, tag, 4, 4)
    FIELD(SornPack, types, 8, 4) FIELD(SornPack, proc, 16, 8) FIELD(SornPack, name, 24, 8)
    FIELD(SornPack, xe, 32, 8) FIELD(SornPack, flags, 40, 8) FIELD(SornPack, data, 48, 8)
    FIELD(SornPack, total, 56, 4) FIELD(SornPack, keep, 60, 4) FIELD(SornPack, dims, 64, 8)
    FIELD(SornPack, op, 72, 160)
    RECORD(SornSliceOperand, 16)
    FIELD(SornSliceOperand, origin, 0, 8) FIELD(SornSliceOperand, strides, 8, 8)
    RECORD(SornSlice, 96)
    FIELD(SornSlice, total, 0, 2) FIELD(SornSlice, skip, 2, 2) FIELD(SornSlice, pack, 4, 4)
    FIELD(SornSlice, dims, 8, 8) FIELD(SornSlice, op, 16, 80)
    RECORD(SornDimPack, 4)
    RECORD(SornStatus, 8)
    RECORD(SornFlags, 8)
    RECORD(SornElemType, 4)
    RECORD(SornVrng, 16)
    FIELD(SornVrng, lo, 0, 8) FIELD(SornVrng, hi, 8, 8)
    RECORD(SornSeShape, 32)
    FIELD(SornSeShape, anchor, 0, 16) FIELD(SornSeShape, size, 16, 16)
    RECORD(SornSepShape, 56)
    FIELD(SornSepShape, anchor, 0, 16) FIELD(SornSepShape, size, 16, 16)
    FIELD(SornSepShape, kernels, 32, 24)
    RECORD(SornBrShape, 64)
    FIELD(SornBrShape, lo, 0, 16) FIELD(SornBrShape, hi, 16, 16) FIELD(SornBrShape, fill, 32, 32)
    RECORD(SornBorderSpec, 40)
    FIELD(SornBorderSpec, kind, 0, 4) FIELD(SornBorderSpec, value, 8, 32)
    RECORD(SornSites, 64)
    FIELD(SornSites, site, 0, 32) FIELD(SornSites, parsite, 32, 32)
};

#undef FIELD
#undef RECORD

TEST(HeaderLayout, CppMatchesThePlatformLayout) {
  for (const Expected &e : kExpected) {
    EXPECT_EQ(e.cxx_offset, e.offset) << e.name;
    EXPECT_EQ(e.cxx_size, e.size) << e.name;
  }
}

TEST(HeaderLayout, C99UnitSeesTheSameLayout) {
  const HeaderLayoutEntry *c = nullptr;
  size_t n = header_c99_layout(&c);
  constexpr size_t kCount = sizeof kExpected / sizeof kExpected[0];
  ASSERT_EQ(n, kCount);
  for (size_t i = 0; i < n; ++i) {
    ASSERT_STREQ(c[i].name, kExpected[i].name);
    EXPECT_EQ(c[i].offset, kExpected[i].offset) << c[i].name;
    EXPECT_EQ(c[i].size, kExpected[i].size) << c[i].name;
    EXPECT_EQ(c[i].offset, kExpected[i].cxx_offset) << c[i].name;
  }
}

TEST(HeaderLayout, StatusAndTypeConstants) {
  EXPECT_EQ(SORN_OK, 0);
  EXPECT_EQ(SORN_EINVAL, -0x10000 + 22);
  EXPECT_EQ(SORN_ENOMEM, -0x10000 + 12);
  EXPECT_EQ(SORN_ENOSPC, -0x10000 + 28);
  EXPECT_EQ(SORN_ENOTSUP, -0x10000 + 95);
  EXPECT_EQ(SORN_ENOTIMP, -0x10000 + 38);
  EXPECT_EQ(SORN_EAGAIN, -0x10000 + 11);
  EXPECT_EQ(SORN_EINVAL, -65514);
  EXPECT_EQ(SORN_ENOSPC, -65508);
  EXPECT_EQ(SORN_ENOTSUP, -65441);
  EXPECT_EQ(SORN_KNOWN_TYPES, 0xfe1eu);
  const unsigned known[] = {1, 2, 3, 4, 9, 10, 11, 12, 13, 14, 15};
  unsigned mask = 0;
  for (unsigned c : known) mask |= 1u << c;
  EXPECT_EQ(mask, SORN_KNOWN_TYPES);
  EXPECT_EQ(SORN_U8, 1u);
  EXPECT_EQ(SORN_S8, 9u);
  EXPECT_EQ(SORN_F32, 13u);
  EXPECT_EQ(SORN_F64, 14u);
  EXPECT_EQ(SORN_DIMPACK(3), 0x413u);
  EXPECT_EQ(SORN_DIMPACK(4), 0x404u);
  EXPECT_EQ(SORN_FOURCC('r', 'e', 's', 'z'), 0x7265737Au);
}

}  // namespace

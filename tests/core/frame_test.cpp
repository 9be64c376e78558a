// The call frame: what a slice callback sees after the frame merged what it
// could of up to five operands.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>
#include <vector>

namespace {

// What one callback invocation saw.
struct Seen {
  SornFlags flags;
  void *data;
  SornDimPack pack;
  std::vector<int32_t> cells;                  // dims from 'off' cells before the pointer
  std::vector<std::vector<int32_t>> origins;   // per operand, same cells; empty for null
  std::vector<std::vector<int32_t>> strides;
  std::vector<void *> bases;
  std::vector<uint32_t> types;
};

std::vector<Seen> g_seen;
SornStatus g_answer = SORN_OK;

std::vector<int32_t> cells_of(const int32_t *p, SornDimPack dp) {
  if (!p) return {};
  const int32_t n = dp & 15, off = (dp >> 4) & 15;
  return std::vector<int32_t>(p - off, p + n);
}

void record(SornFlags flags, void *data, SornDimPack dp, int32_t *dims, int count, uint32_t *types,
            void **bases, int32_t **origins, int32_t **strides) {
  Seen s;
  s.flags = flags;
  s.data = data;
  s.pack = dp;
  s.cells = cells_of(dims, dp);
  for (int k = 0; k < count; ++k) {
    s.types.push_back(types[k]);
    s.bases.push_back(bases[k]);
    s.origins.push_back(cells_of(origins[k], dp));
    s.strides.push_back(cells_of(strides[k], dp));
  }
  g_seen.push_back(s);
}

SornStatus cb1(SornXE *, SornFlags flags, void *data, SornDimPack dp, int32_t *dims, uint32_t t0,
               void *b0, int32_t *o0, int32_t *s0) {
  uint32_t t[] = {t0};
  void *b[] = {b0};
  int32_t *o[] = {o0}, *s[] = {s0};
  record(flags, data, dp, dims, 1, t, b, o, s);
  return g_answer;
}

SornStatus cb2(SornXE *, SornFlags flags, void *data, SornDimPack dp, int32_t *dims, uint32_t t0,
               void *b0, int32_t *o0, int32_t *s0, uint32_t t1, void *b1, int32_t *o1,
               int32_t *s1) {
  uint32_t t[] = {t0, t1};
  void *b[] = {b0, b1};
  int32_t *o[] = {o0, o1}, *s[] = {s0, s1};
  record(flags, data, dp, dims, 2, t, b, o, s);
  return g_answer;
}

SornStatus cb5(SornXE *, SornFlags flags, void *data, SornDimPack dp, int32_t *dims, uint32_t t0,
               void *b0, int32_t *o0, int32_t *s0, uint32_t t1, void *b1, int32_t *o1,
               int32_t *s1, uint32_t t2, void *b2, int32_t *o2, int32_t *s2, uint32_t t3,
               void *b3, int32_t *o3, int32_t *s3, uint32_t t4, void *b4, int32_t *o4,
               int32_t *s4) {
  uint32_t t[] = {t0, t1, t2, t3, t4};
  void *b[] = {b0, b1, b2, b3, b4};
  int32_t *o[] = {o0, o1, o2, o3, o4}, *s[] = {s0, s1, s2, s3, s4};
  record(flags, data, dp, dims, 5, t, b, o, s);
  return g_answer;
}

SornPack *g_raw_pack;
int32_t g_raw_mode;
SornSlice *g_raw_slice;
SornStatus raw(SornPack *pack, int32_t mode, SornSlice *slice) {
  g_raw_pack = pack;
  g_raw_mode = mode;
  g_raw_slice = slice;
  return 7;
}

template <class F>
SornSliceProc proc(F f) {
  return reinterpret_cast<SornSliceProc>(f);
}

const uint32_t kTag = SORN_FOURCC('t', 'e', 's', 't');

class Frame : public ::testing::Test {
 protected:
  void SetUp() override {
    g_seen.clear();
    g_answer = SORN_OK;
  }
};

// A dense array of planes x rows x cols x ch bytes.
struct Dense {
  int32_t dims[4], strides[4], origin[4] = {0, 0, 0, 0};
  Dense(int32_t p, int32_t r, int32_t c, int32_t ch) {
    dims[0] = p; dims[1] = r; dims[2] = c; dims[3] = ch;
    strides[3] = 1; strides[2] = ch; strides[1] = c * ch; strides[0] = r * c * ch;
  }
};

TEST_F(Frame, DenseFourDimensionsBecomeOneLongRow) {
  Dense a(3, 5, 7, 2);
  uint8_t buf[1];
  SornPack pack;
  SornStatus st = sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr,
                                            SORN_DIMPACK(4), 2, a.dims, SORN_U8, buf, a.origin,
                                            a.strides));
  ASSERT_EQ(st, SORN_OK);
  ASSERT_EQ(g_seen.size(), 1u);
  const Seen &s = g_seen[0];
  EXPECT_EQ(s.pack & 15, 2u);            // n
  EXPECT_EQ((s.pack >> 4) & 15, 2u);     // off
  EXPECT_EQ((s.pack >> 8) & 31, 4u);     // total
  EXPECT_EQ(s.cells[2], 3 * 5 * 7);      // every pixel in one cell
  EXPECT_EQ(s.cells[3], 2);              // channels
  EXPECT_EQ(s.strides[0][2], 2);
  EXPECT_EQ(s.strides[0][3], 1);
  EXPECT_EQ(s.bases[0], (void *)buf);
  // The caller's vectors are untouched.
  EXPECT_EQ(a.dims[0], 3);
  EXPECT_EQ(a.dims[1], 5);
  EXPECT_EQ(a.strides[0], 70);
}

TEST_F(Frame, KeepIsClampedToTwoThroughThreeInThePack) {
  Dense a(2, 2, 2, 1);
  uint8_t buf[1];
  SornPack pack;
  sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4), 1,
                            a.dims, SORN_U8, buf, a.origin, a.strides));
  EXPECT_EQ(pack.keep, 2);
  EXPECT_EQ(g_seen.back().pack & 15, 2u);
  sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4), 5,
                            a.dims, SORN_U8, buf, a.origin, a.strides));
  EXPECT_EQ(pack.keep, 3);
  EXPECT_EQ(g_seen.back().pack & 15, 3u);
  EXPECT_EQ(g_seen.back().cells[1], 4);  // planes folded into rows
}

TEST_F(Frame, DifferentStrideRatiosStopMergingAndEarlierMergesStand) {
  // Operand 0 dense; operand 1 dense in planes but with padded rows.
  Dense a(2, 3, 4, 1);
  int32_t sb[4] = {3 * 8, 8, 1, 1};
  int32_t ob[4] = {0, 0, 0, 0};
  uint8_t buf[1];
  SornPack pack;
  SornStatus st = sorna_call(sorna_mappackL(&pack, kTag, proc(cb2), nullptr, 0, nullptr,
                                            SORN_DIMPACK(4), 2, a.dims, SORN_U8, buf, a.origin,
                                            a.strides, SORN_U8, buf, ob, sb));
  ASSERT_EQ(st, SORN_OK);
  const Seen &s = g_seen.at(0);
  // Planes merged into rows (ratio 3 for both), rows not into columns (4 vs 8).
  EXPECT_EQ((s.pack >> 4) & 15, 1u);
  EXPECT_EQ(s.pack & 15, 3u);
  EXPECT_EQ(s.cells[1], 6);
  EXPECT_EQ(s.strides[0][0], 24);  // first operand: plane stride times planes
  EXPECT_EQ(s.strides[1][0], 48);
}

TEST_F(Frame, ZeroStrideForAllOperandsSkipsTheCellWithoutMerging) {
  int32_t dims[4] = {5, 3, 4, 1};
  int32_t st[4] = {0, 4, 1, 1};
  int32_t org[4] = {0, 0, 0, 0};
  uint8_t buf[1];
  SornPack pack;
  ASSERT_EQ(sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4),
                                      3, dims, SORN_U8, buf, org, st)),
            SORN_OK);
  const Seen &s = g_seen.at(0);
  EXPECT_EQ((s.pack >> 4) & 15, 1u);  // slice begins after the broadcast cell
  EXPECT_EQ(s.cells[0], 5);           // which keeps its value
  EXPECT_EQ(s.cells[1], 3);
}

TEST_F(Frame, ZeroInnerStrideUnderANonZeroOuterStrideIsInvalid) {
  int32_t dims[4] = {2, 3, 4, 1};
  int32_t st[4] = {12, 0, 1, 1};
  int32_t org[4] = {0, 0, 0, 0};
  uint8_t buf[1];
  SornPack pack;
  EXPECT_EQ(sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4),
                                      2, dims, SORN_U8, buf, org, st)),
            SORN_EINVAL);
  EXPECT_TRUE(g_seen.empty());
}

TEST_F(Frame, GappedPlanesGiveOneCallWithAllFourCells) {
  Dense a(3, 2, 2, 1);
  a.strides[0] = 100;  // planes far apart
  uint8_t buf[1];
  SornPack pack;
  ASSERT_EQ(sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4),
                                      2, a.dims, SORN_U8, buf, a.origin, a.strides)),
            SORN_OK);
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_EQ(g_seen[0].pack & 15, 4u);
  EXPECT_EQ((g_seen[0].pack >> 4) & 15, 0u);
  EXPECT_EQ(g_seen[0].cells, (std::vector<int32_t>{3, 2, 2, 1}));
}

TEST_F(Frame, CallbackFlagsAreTheEntryFlags) {
  Dense a(1, 2, 2, 1);
  uint8_t buf[1];
  int payload = 0;
  SornPack pack;
  const SornFlags flags = 0x12345678f0ull;
  sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, flags, &payload, SORN_DIMPACK(3), 2,
                            a.dims + 1, SORN_U8, buf, a.origin + 1, a.strides + 1));
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_EQ(g_seen[0].flags, flags);
  EXPECT_EQ(g_seen[0].data, &payload);
}

TEST_F(Frame, ModeOneAddsItsFlagBit) {
  Dense a(1, 2, 2, 1);
  uint8_t buf[1];
  SornPack pack;
  sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0x100000, nullptr, SORN_DIMPACK(4), 3, a.dims,
                 SORN_U8, buf, a.origin, a.strides);
  SornSlice slice;
  std::memset(&slice, 0, sizeof slice);
  slice.total = 4;
  slice.skip = 1;
  slice.pack = (4u << 8) | 3u | 16u;
  slice.dims = a.dims + 1;
  slice.op[0].origin = a.origin + 1;
  slice.op[0].strides = a.strides + 1;
  ASSERT_EQ(sorna__call(&pack, 1, &slice), SORN_OK);
  EXPECT_EQ(g_seen.at(0).flags, 0x100000ull | SORN_F_MODE1);
}

TEST_F(Frame, CallbackStatusGoesUpUnchanged) {
  Dense a(1, 2, 2, 1);
  uint8_t buf[1];
  SornPack pack;
  g_answer = SORN_ENOSPC;
  EXPECT_EQ(sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4),
                                      2, a.dims, SORN_U8, buf, a.origin, a.strides)),
            SORN_ENOSPC);
}

TEST_F(Frame, PacksKeepPointersOffCellsEarlierAndTypesByNibble) {
  int32_t dims[4] = {1, 4, 5, 11};
  int32_t st[4] = {0, 80, 16, 4};
  int32_t org[4] = {0, 1, 2, 0};
  uint8_t b0[1], b1[1], b2[1], b3[1], b4[1];
  SornPack pack;
  sorna_zip4packL(&pack, kTag, proc(cb5), nullptr, 0, nullptr, SORN_DIMPACK(3), 2, dims + 1,
                  SORN_F32, b0, org + 1, st + 1, SORN_U8, b1, nullptr, st + 1, SORN_S16, b2,
                  org + 1, st + 1, SORN_S32, nullptr, org + 1, st + 1, SORN_U16, b4, org + 1,
                  nullptr);
  EXPECT_EQ(pack.count, 5);
  EXPECT_EQ(pack.tag, kTag);
  EXPECT_STREQ(pack.name, "unknown");
  EXPECT_EQ(pack.total, 4u);
  EXPECT_EQ(pack.dims, dims);
  EXPECT_EQ(pack.types, 13u | 1u << 4 | 10u << 8 | 11u << 12 | 2u << 16 | 11u << 24);
  EXPECT_EQ(pack.op[0].origin, org);
  EXPECT_EQ(pack.op[0].strides, st);
  EXPECT_EQ(pack.op[1].origin, nullptr);
  // Without a base or strides an operand keeps only its type.
  EXPECT_EQ(pack.op[3].base, nullptr);
  EXPECT_EQ(pack.op[3].origin, nullptr);
  EXPECT_EQ(pack.op[3].strides, nullptr);
  EXPECT_EQ(pack.op[3].type, (uint32_t)SORN_S32);
  EXPECT_EQ(pack.op[4].base, nullptr);
  (void)b3;
}

TEST_F(Frame, FiveOperandsReachTheCallbackMerged) {
  Dense a(2, 3, 4, 1);
  uint8_t b[5][1];
  SornPack pack;
  ASSERT_EQ(sorna_call(sorna_zip4packL(&pack, kTag, proc(cb5), nullptr, 0, nullptr, SORN_DIMPACK(4),
                                       2, a.dims, 1, b[0], a.origin, a.strides, 1, b[1],
                                       a.origin, a.strides, 1, b[2], a.origin, a.strides, 1,
                                       b[3], a.origin, a.strides, 1, b[4], a.origin, a.strides)),
            SORN_OK);
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_EQ(g_seen[0].cells[2], 24);
  for (int k = 0; k < 5; ++k) EXPECT_EQ(g_seen[0].bases[k], (void *)b[k]);
}

TEST_F(Frame, OriginsFoldIntoTheMergedCell) {
  // Byte image, unit inner stride: the folded origin is exact.
  int32_t dims[4] = {2, 3, 4, 1};
  int32_t st[4] = {12, 4, 1, 1};
  int32_t org[4] = {1, 2, 3, 0};
  uint8_t buf[1];
  SornPack pack;
  sorna_call(sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, SORN_DIMPACK(4), 3, dims,
                            SORN_U8, buf, org, st));
  const Seen &s = g_seen.at(0);
  EXPECT_EQ(s.origins[0][0], 0);
  EXPECT_EQ(s.origins[0][1], 2 + 12 * 1);  // coordinate plus stride times plane
  EXPECT_EQ(s.cells[1], 6);
}

TEST_F(Frame, PackWithoutOperandsGetsPackModeAndNoSlice) {
  SornPack pack;
  int32_t dims[4] = {1, 1, 1, 1};
  sorna_genpackL(&pack, kTag, proc(raw), nullptr, 0, nullptr, SORN_DIMPACK(4), 2, dims, 1, nullptr,
                 nullptr, nullptr);
  pack.count = 0;
  EXPECT_EQ(sorna_call(&pack), 7);
  EXPECT_EQ(g_raw_pack, &pack);
  EXPECT_EQ(g_raw_mode, 0);
  EXPECT_EQ(g_raw_slice, nullptr);
}

TEST_F(Frame, DeepSliceIteratesItsOutermostUnmergeableCell) {
  // Five cells: cell 0 merges into cell 1, cell 1 has a gap: the frame
  // iterates cell 1 and moves the origin along it by that cell's stride.
  int32_t dims[5] = {2, 3, 2, 2, 1};
  int32_t st[5] = {0, 0, 2, 1, 1};
  st[1] = 10;       // a gap after the 2 x 2 block
  st[0] = 3 * 10;   // planes exactly three rows-blocks apart
  int32_t org[5] = {0, 0, 0, 0, 0};
  uint8_t buf[1];
  SornPack pack;
  sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0, nullptr, 5 | 5 << 8, 3, dims, SORN_U8, buf,
                 org, st);
  SornSlice slice;
  std::memset(&slice, 0, sizeof slice);
  slice.total = 5;
  slice.skip = 0;
  slice.pack = (5u << 8) | 5u;
  slice.dims = dims;
  slice.op[0].origin = org;
  slice.op[0].strides = st;
  ASSERT_EQ(sorna__call(&pack, 0, &slice), SORN_OK);
  ASSERT_EQ(g_seen.size(), 6u);  // 2 planes x 3 blocks
  for (size_t j = 0; j < g_seen.size(); ++j) {
    EXPECT_EQ(g_seen[j].pack & 15, 3u);
    EXPECT_EQ((g_seen[j].pack >> 4) & 15, 2u);
    EXPECT_EQ(g_seen[j].origins[0][1], (int32_t)j * 10);
  }
}

TEST(FrameReduce, GapToleranceAppliesOnlyToThreeCells) {
  // Rows padded by 3 bytes: merged with a tolerance of 4 on three cells.
  int32_t dims[3] = {4, 5, 1};
  int32_t st[3] = {8, 1, 1};
  int32_t *o[1] = {nullptr};
  int32_t *s[1] = {st};
  EXPECT_EQ(sorn_dims_xreduceI(dims, o, s, 0, 3, 2, 1, 4), 1);
  EXPECT_EQ(dims[1], 4 * 8);  // the new extent counts the gap
  int32_t dims4[4] = {1, 4, 5, 1};
  int32_t st4[4] = {0, 8, 1, 1};
  int32_t dims4b[4] = {2, 4, 5, 1};
  int32_t st4b[4] = {32, 8, 1, 1};  // planes dense, rows padded
  s[0] = st4;
  EXPECT_EQ(sorn_dims_xreduceI(dims4, o, s, 0, 4, 2, 1, 4), 1);  // broadcast cell, then row gap stops
  s[0] = st4b;
  EXPECT_EQ(sorn_dims_xreduceI(dims4b, o, s, 0, 4, 2, 1, 4), 1);
  EXPECT_EQ(dims4b[1], 8);
}

TEST(FrameReduce, KeepAtLeastRemainingReturnsSkip) {
  int32_t dims[4] = {2, 3, 4, 1};
  int32_t st[4] = {12, 4, 1, 1};
  int32_t *o[1] = {nullptr};
  int32_t *s[1] = {st};
  EXPECT_EQ(sorn_dims_xreduceI(dims, o, s, 1, 4, 3, 1, 0), 1);
  EXPECT_EQ(dims[1], 3);
}

TEST(FrameReduce, CopyLeavesTheInputsAlone) {
  const int32_t dims[4] = {2, 3, 4, 1};
  int32_t st[4] = {12, 4, 1, 1};
  int32_t org[4] = {1, 1, 1, 0};
  int32_t dout[4], sout[4], oout[4];
  int32_t *oin[1] = {org}, *sin[1] = {st};
  int32_t *op[1] = {oout}, *sp[1] = {sout};
  EXPECT_EQ(sorn_dims_xreduce(dout, op, sp, 0, 4, 2, 1, 0, dims, oin, sin), 2);
  EXPECT_EQ(dout[2], 24);
  EXPECT_EQ(st[0], 12);
  EXPECT_EQ(org[0], 1);
}

TEST(FrameGapTolerance, BothGapBitsWithNegativeRequestGiveFour) {
  // Three-cell pack with padded rows: merged only when the flags allow it.
  int32_t dims[3] = {4, 5, 1};
  int32_t st[3] = {8, 1, 1};
  int32_t org[3] = {0, 0, 0};
  uint8_t buf[1];
  SornPack pack;
  g_seen.clear();
  sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0x300, nullptr, 3 | 3 << 8, 2, dims, SORN_U8, buf,
                 org, st);
  pack.tolerance = -1;
  sorna_call(&pack);
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_EQ(g_seen[0].pack & 15, 2u);
  g_seen.clear();
  sorna_genpackL(&pack, kTag, proc(cb1), nullptr, 0x200, nullptr, 3 | 3 << 8, 2, dims, SORN_U8, buf,
                 org, st);
  pack.tolerance = -1;
  sorna_call(&pack);
  EXPECT_EQ(g_seen.at(0).pack & 15, 3u);  // without 0x100 nothing survives
}

}  // namespace

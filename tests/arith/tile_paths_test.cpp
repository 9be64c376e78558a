// The tile paths of the two-source families: a destination narrower than
// its first source takes the operation in the source's type through a
// scratch tile and the saturating conversion; the constant forms convert
// the source first for an f32 destination and operate first for a narrow
// one. Every family of the group and multiplication, against the plain
// reference of the operation followed by the conversion; the rows of a tile
// by the ladder; scratch given back, out of memory, and the signed
// saturating forms, whose s8 destination the conversion does not have.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "addsub_reference.h"
#include "alloc_failure.h"
#include "muldiv_reference.h"
#include "testkit.h"

using addsub_ref::Op;
using sorn_test::Image;
using sorn_test::make_roi;

namespace {

// The families with tile paths: the nine of the add and subtract group and
// multiplication.
struct Family {
  const char *name;
  addsub_ref::Entry entry;
  addsub_ref::EntryC entry_c;
  Op op;
  bool sat, signed_sat, mul;
};
std::vector<Family> families() {
  std::vector<Family> v;
  for (const addsub_ref::Family &f : addsub_ref::kFamilies)
    v.push_back({f.name, f.entry, f.entry_c, f.op, f.sat, f.signed_sat, false});
  v.push_back({"Mul", &SornMul, &SornMulC, Op::Add, true, false, true});
  return v;
}

// The family's kernel on one element pair, in kernel order (a float, or the
// wider, source first), into a destination of type d.
double kernel_value(const Family &f, uint32_t d, uint32_t ta, uint32_t tb, double va, double vb,
                    int32_t sf) {
  if (f.mul) return muldiv_ref::mul(d, ta, tb, va, vb, sf);
  return addsub_ref::expected(f.op, f.sat, d, ta, tb, va, vb, sf);
}

// The saturating conversion of a value of type s into type d.
double convert(uint32_t d, uint32_t s, double v) {
  if (d == SORN_F32) return (double)(float)v;
  const int64_t i = s == SORN_F32 ? (int64_t)add_ref::round_s32(v) : (int64_t)v;
  return d == SORN_S32 ? (double)i : (double)addsub_ref::clamp(d, i);
}

using Env = sorn_test::ScratchEnv;

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

// Shapes around the rungs of the ladder (32 elements a row after the fold,
// then 33), with channels, long rows past every rung, and rows that do not
// fill the last tile.
struct Shape {
  int32_t rows, cols, channels;
};
const Shape kShapes[] = {{3, 32, 1},  {3, 33, 1},   {17, 11, 3}, {2, 97, 4},
                         {40, 8, 2},  {5, 1800, 1}, {7, 193, 1}, {11, 257, 2}};

struct Types {
  uint32_t dst, a, b;
};

TEST(TilePath, NarrowDestinationsSaturateThroughTheConversion) {
  auto rng = sorn_test::seeded_rng(0x7113);
  std::vector<Types> narrow;
  for (uint32_t d : {SORN_U8, SORN_S16})
    for (Types t : {Types{0, SORN_S32, SORN_U8}, Types{0, SORN_S32, SORN_S16},
                    Types{0, SORN_S32, SORN_S32}, Types{0, SORN_F32, SORN_U8},
                    Types{0, SORN_F32, SORN_S16}, Types{0, SORN_F32, SORN_S32},
                    Types{0, SORN_F32, SORN_F32}})
      narrow.push_back({d, t.a, t.b});
  Env env;
  int checked = 0;
  for (const Family &f : families())
    for (const Types &t : narrow)
      for (const Shape &s : kShapes)
        for (bool swap : {false, true}) {
          // The wider source second: the dispatcher exchanges the sources
          // (running the reversed family for a difference) before the tile
          // path.
          const uint32_t ta = swap ? t.b : t.a, tb = swap ? t.a : t.b;
          const int32_t sf = (int32_t)(rng() % 5) - 2;
          Image d(s.rows + 2, s.cols + 1, s.channels, t.dst, 4, 0xA7);
          Image a(s.rows, s.cols, s.channels, ta, 8), b(s.rows + 1, s.cols, s.channels, tb);
          fill_random(rng, a);
          fill_random(rng, b);
          const std::vector<uint8_t> before = d.bytes_copy();
          SornArray rd = d.record(), ra = a.record(), rb = b.record();
          const SornVolume dr = make_roi(1, 1, s.rows, s.cols, s.channels);
          const SornVolume br = make_roi(1, 0, 0, 0, s.channels);
          const SornStatus st = f.entry(env.xe(), 0, &rd, &ra, &rb, &dr, nullptr, &br, sf, 0);
          ASSERT_TRUE(env.at_mark()) << f.name << ": the tile went back";
          if (f.signed_sat && t.dst == SORN_U8) {
            // Written as s8, which the conversion does not have.
            ASSERT_EQ(st, SORN_ENOTSUP) << f.name;
            ASSERT_EQ(d.bytes_copy(), before) << f.name;
            continue;
          }
          ASSERT_EQ(st, SORN_OK) << f.name;
          for (int32_t y = 0; y < d.rows(); ++y)
            for (int32_t x = 0; x < d.cols(); ++x)
              for (int32_t c = 0; c < s.channels; ++c) {
                const bool in = y >= 1 && y <= s.rows && x >= 1 && x <= s.cols;
                if (!in) {
                  const size_t off = (size_t)y * d.rowstride() + ((size_t)x * s.channels + c) * d.esize();
                  ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
                  continue;
                }
                const double va = a.get(y - 1, x - 1, c), vb = b.get(y, x - 1, c);
                // The kernel's order: the wide source first, and for a
                // difference the family that keeps a op b.
                Family k = f;
                double wa = va, wb = vb;
                uint32_t wta = ta, wtb = tb;
                if (swap) {
                  std::swap(wa, wb);
                  std::swap(wta, wtb);
                  if (f.op == Op::Sub) k.op = Op::RSub;
                  else if (f.op == Op::RSub) k.op = Op::Sub;
                }
                const double e = convert(t.dst, wta, kernel_value(k, wta, wta, wtb, wa, wb, sf));
                ASSERT_TRUE(add_ref::same(t.dst, e, d.get(y, x, c)))
                    << f.name << " " << sorn_test::type_name(t.dst) << sorn_test::type_name(ta)
                    << sorn_test::type_name(tb) << " " << s.rows << "x" << s.cols << "x"
                    << s.channels << " sf " << sf << " at " << y << "," << x << "," << c << ": "
                    << va << ", " << vb << " gave " << d.get(y, x, c) << ", expected " << e;
                ++checked;
              }
          ASSERT_TRUE(d.guards_intact());
        }
  EXPECT_GT(checked, 100000);
}

TEST(TilePath, U8FromS32SaturatesThreeHundredTo255) {
  Env env;
  Image d(2, 3, 1, SORN_U8, 0, 9), a(2, 3, 1, SORN_S32), b(2, 3, 1, SORN_S32);
  a.set(0, 0, 0, 300);
  a.set(1, 2, 0, -7);
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  ASSERT_EQ(SornAdd(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(d.get(0, 0), 255) << "saturated by the conversion, where a direct kernel wraps";
  EXPECT_EQ(d.get(1, 2), 0);
  EXPECT_EQ(d.get(0, 1), 0);
}

// The rows of a tile, seen in the size of the block it takes: rows * the
// folded row length * the source's element size, and 64 bytes of slack.
size_t tile_block(uint32_t dt, uint32_t at, uint32_t bt, int32_t rows, int32_t cols, int32_t ch) {
  Env env;
  Image d(rows, cols, ch, dt), a(rows, cols, ch, at), b(rows, cols, ch, bt);
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  sorn_test::AllocFailure watch(-1);
  EXPECT_EQ(SornAdd(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_OK);
  return watch.last_block_size();
}

TEST(TilePath, TheLadderPicksTheRowsOfATile) {
  // u8 from s32: all rows up to 32 elements a row, then 16 up to 192, 8 up
  // to 288, 4 up to 1200, and 2 beyond.
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 50, 32, 1), 50u * 32 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 50, 33, 1), 16u * 33 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_U8, 50, 64, 3), 16u * 192 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_F32, SORN_F32, 50, 193, 1), 8u * 193 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 50, 288, 1), 8u * 288 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 50, 1200, 1), 4u * 1200 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 50, 1201, 1), 2u * 1201 * 4 + 64);
  // s16 from s32 or f32: 16 up to 224, 10 up to 384, 4 up to 1024, then 2.
  EXPECT_EQ(tile_block(SORN_S16, SORN_S32, SORN_S32, 50, 224, 1), 16u * 224 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_S16, SORN_F32, SORN_U8, 50, 225, 1), 10u * 225 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_S16, SORN_S32, SORN_S32, 50, 1024, 1), 4u * 1024 * 4 + 64);
  EXPECT_EQ(tile_block(SORN_S16, SORN_S32, SORN_S32, 50, 1025, 1), 2u * 1025 * 4 + 64);
  // A single row of 32 is that one row.
  EXPECT_EQ(tile_block(SORN_U8, SORN_S32, SORN_S32, 1, 32, 1), 1u * 32 * 4 + 64);
}

TEST(TilePath, OutOfMemoryWritesNothingAndGivesEverythingBack) {
  Env env;
  Image d(20, 300, 1, SORN_U8, 0, 0x44), a(20, 300, 1, SORN_F32), b(20, 300, 1, SORN_S16);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record(), rb = b.record();
  // Without an environment there is no scratch to take.
  EXPECT_EQ(SornAdd(nullptr, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0), SORN_ENOMEM);
  EXPECT_EQ(d.bytes_copy(), before);
  const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
    bool fired;
    {
      sorn_test::AllocFailure fail(k, false, sorn_test::kStackBlock);
      const SornStatus st = SornAdd(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0);
      fired = fail.fired();
      if (fired) {
        EXPECT_EQ(st, SORN_ENOMEM);
        EXPECT_EQ(d.bytes_copy(), before);
      }
    }
    EXPECT_TRUE(env.at_mark());
    return fired;
  });
  EXPECT_EQ(runs, 1) << "one block for the whole call";
}

TEST(TilePath, KnownDestinationsWithoutAConversionAreNotSupported) {
  Env env;
  const SornDimPack pack = SORN_DIMPACK(3);
  int32_t a[2] = {300, -5}, b[2] = {1, 1};
  uint16_t d[2] = {9, 9};
  int32_t dims[3] = {1, 2, 1}, s4[3] = {8, 4, 4}, s2[3] = {4, 2, 2};
  EXPECT_EQ(sorna__add(env.xe(), 0, pack, dims, SORN_U16, d, s2, SORN_S32, a, s4, SORN_S32, b, s4, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(d[0], 9);
  EXPECT_EQ(d[1], 9);
  // The signed saturating forms write a u8 destination as s8: from s16
  // sources that is a tile path too, and the conversion has no s8.
  Image d8(2, 3, 1, SORN_U8, 0, 0x12), w(2, 3, 1, SORN_S16);
  const std::vector<uint8_t> before = d8.bytes_copy();
  SornArray r8 = d8.record(), rw = w.record();
  EXPECT_EQ(SornAddsq(env.xe(), 0, &r8, &rw, &rw, nullptr, nullptr, nullptr, 0, 0), SORN_ENOTSUP);
  EXPECT_EQ(d8.bytes_copy(), before);
}

// --- the constant forms -------------------------------------------------------

struct ConstCase {
  uint32_t dst, a;
  double c;
  uint32_t t;  // the constant's type, as the classification and fit give it
  bool convert_first;
};
// Worked by hand from the rules of the classification: 1.5 and -2.25 are
// f32 and stay so for an f32 destination, which converts the source first;
// into narrow destinations an f32 constant on an integer source becomes s32,
// a u8 one on a wider source takes the source's type.
const ConstCase kConstCases[] = {
    {SORN_F32, SORN_U8, 1.5, SORN_F32, true},    {SORN_F32, SORN_S16, -2.25, SORN_F32, true},
    {SORN_U8, SORN_S32, 1, SORN_S32, false},     {SORN_U8, SORN_F32, 1, SORN_F32, false},
    {SORN_S16, SORN_S32, 7, SORN_S32, false},    {SORN_S16, SORN_F32, 0.5, SORN_F32, false},
    {SORN_U8, SORN_S16, 300.5, SORN_S32, false}, {SORN_S16, SORN_S32, -70000, SORN_S32, false},
};

TEST(TilePath, ConstantFormsConvertFirstOrOperateFirst) {
  auto rng = sorn_test::seeded_rng(0x7114);
  Env env;
  for (const Family &f : families())
    for (const ConstCase &k : kConstCases)
      for (const Shape &s : kShapes) {
        const int32_t sf = (int32_t)(rng() % 3) - 1;
        Image d(s.rows, s.cols + 2, s.channels, k.dst, 4, 0x5B), a(s.rows, s.cols, s.channels, k.a);
        fill_random(rng, a);
        const std::vector<uint8_t> before = d.bytes_copy();
        const std::vector<double> c(s.channels, k.c);
        SornArray rd = d.record(), ra = a.record();
        const SornVolume dr = make_roi(0, 2, s.rows, s.cols, s.channels);
        const SornStatus st = f.entry_c(env.xe(), 0, &rd, &ra, c.data(), &dr, nullptr, sf, 0);
        ASSERT_TRUE(env.at_mark());
        if (f.signed_sat && k.dst == SORN_U8) {
          ASSERT_EQ(st, SORN_ENOTSUP) << f.name << ": no conversion into s8";
          ASSERT_EQ(d.bytes_copy(), before);
          continue;
        }
        ASSERT_EQ(st, SORN_OK) << f.name << "C " << sorn_test::type_name(k.dst)
                               << sorn_test::type_name(k.a) << " constant " << k.c;
        const double vc = addsub_ref::constant_in(k.t, k.c);
        const uint32_t wide = k.t == SORN_F32 ? SORN_F32 : SORN_S32;
        for (int32_t y = 0; y < s.rows; ++y)
          for (int32_t x = 0; x < d.cols(); ++x)
            for (int32_t ch = 0; ch < s.channels; ++ch) {
              const size_t off = (size_t)y * d.rowstride() + ((size_t)x * s.channels + ch) * d.esize();
              if (x < 2) {
                ASSERT_EQ(0, std::memcmp(d.base() + off, before.data() + off, d.esize()));
                continue;
              }
              const double va = a.get(y, x - 2, ch);
              const double e =
                  k.convert_first
                      ? kernel_value(f, SORN_F32, wide, k.t, convert(wide, k.a, va), vc, sf)
                      : convert(k.dst, wide, kernel_value(f, wide, k.a, k.t, va, vc, sf));
              ASSERT_TRUE(add_ref::same(k.dst, e, d.get(y, x, ch)))
                  << f.name << "C " << sorn_test::type_name(k.dst) << sorn_test::type_name(k.a)
                  << " constant " << k.c << " sf " << sf << ": " << va << " gave "
                  << d.get(y, x, ch) << ", expected " << e;
            }
        ASSERT_TRUE(d.guards_intact());
      }
}

TEST(TilePath, ConstantTilesAreTenRows) {
  Env env;
  Image d(25, 7, 3, SORN_U8), a(25, 7, 3, SORN_S32);
  SornArray rd = d.record(), ra = a.record();
  const double c[3] = {1, 2, 3};
  {
    sorn_test::AllocFailure watch(-1);
    ASSERT_EQ(SornAddC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_OK);
    EXPECT_EQ(watch.last_block_size(), 10u * 7 * 3 * 4 + 64);
  }
  const SornVolume few = make_roi(0, 0, 9, 7, 3);
  sorn_test::AllocFailure watch(-1);
  ASSERT_EQ(SornAddC(env.xe(), 0, &rd, &ra, c, &few, nullptr, 0, 0), SORN_OK);
  EXPECT_EQ(watch.last_block_size(), 9u * 7 * 3 * 4 + 64) << "all rows below 11";
}

TEST(TilePath, ConstantOutOfMemoryWritesNothing) {
  Env env;
  Image d(12, 5, 1, SORN_F32, 0, 0x61), a(12, 5, 1, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record();
  const double c[1] = {0.5};
  sorn_test::AllocFailure fail(0, false, sorn_test::kStackBlock);
  EXPECT_EQ(SornAddC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_ENOMEM);
  EXPECT_TRUE(fail.fired());
  EXPECT_EQ(d.bytes_copy(), before);
}

}  // namespace

namespace {

// The operate-first path forms the result in s32 or f32, which is no wider
// than a destination of 8-byte elements: a fractional constant on an s16
// source, taken as s32, has no way into s64 or f64 and is refused before
// anything is written.
TEST(TilePath, OperateFirstWithAConstantNoWiderThanTheDestinationIsInvalid) {
  Env env;
  for (uint32_t dt : {SORN_S64, SORN_F64}) {
    Image d(3, 4, 1, dt, 0, 0x3c), a(3, 4, 1, SORN_S16);
    const std::vector<uint8_t> before = d.bytes_copy();
    SornArray rd = d.record(), ra = a.record();
    const double c[1] = {1.5};
    EXPECT_EQ(SornAddC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(SornSubC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(SornMulC(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(d.bytes_copy(), before);
  }
}

}  // namespace

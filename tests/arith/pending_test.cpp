// The paths of the add and subtract group that end in operations the library
// does not have yet. Each is pinned here by one test: after every check has
// passed it answers SORN_ENOTSUP and writes nothing, not a byte of the
// destination, its row padding or its guards. The day a path is built its
// test fails, and gives way to a test of its values.
//
// - The tile path: a destination narrower than the first source (other than
//   u8 from s16) takes the operation in the source's type through a scratch
//   tile and the saturating conversion.
// - The tile paths of the constant forms: convert first for an f32
//   destination, operate first for a narrow one.
#include <gtest/gtest.h>

#include <vector>

#include "addsub_reference.h"
#include "testkit.h"

using addsub_ref::Op;
using sorn_test::Image;
using sorn_test::make_roi;

namespace {

using addsub_ref::Entry;
using addsub_ref::Family;
using addsub_ref::kFamilies;

// Shapes around the first rung of the tile ladder (32 elements a row after
// the fold, then 33), with channels, and a long row.
struct Shape {
  int32_t rows, cols, channels;
};
const Shape kShapes[] = {{3, 32, 1}, {3, 33, 1}, {17, 11, 3}, {2, 97, 4}, {40, 8, 2}};

void fill_random(std::mt19937_64 &rng, Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.set(y, x, c, sorn_test::random_value(rng, im.type(), true));
}

struct Types {
  uint32_t dst, a, b;
};

TEST(Pending, TilePathOfANarrowDestinationDeclinesAndWritesNothing) {
  auto rng = sorn_test::seeded_rng(0x7113);
  // Every first source wider than the destination with its (a, a, b) kernel
  // in the table, and for the signed saturating forms the u8 destination
  // (an s8 one to the kernels) from s16 sources as well.
  std::vector<Types> narrow;
  for (uint32_t d : {SORN_U8, SORN_S16})
    for (Types t : {Types{0, SORN_S32, SORN_U8}, Types{0, SORN_S32, SORN_S16},
                    Types{0, SORN_S32, SORN_S32}, Types{0, SORN_F32, SORN_U8},
                    Types{0, SORN_F32, SORN_S16}, Types{0, SORN_F32, SORN_S32},
                    Types{0, SORN_F32, SORN_F32}})
      narrow.push_back({d, t.a, t.b});
  int calls = 0;
  for (const Family &f : kFamilies) {
    std::vector<Types> cases = narrow;
    if (f.signed_sat) {
      cases.push_back({SORN_U8, SORN_S16, SORN_U8});
      cases.push_back({SORN_U8, SORN_S16, SORN_S16});
    }
    for (const Types &t : cases)
      for (const Shape &s : kShapes)
        for (bool swap : {false, true}) {
          // The wider source second: the dispatcher exchanges the sources
          // before it takes the tile path.
          const uint32_t ta = swap ? t.b : t.a, tb = swap ? t.a : t.b;
          Image d(s.rows + 2, s.cols + 1, s.channels, t.dst, 4, 0xA7);
          Image a(s.rows, s.cols, s.channels, ta, 8), b(s.rows + 1, s.cols, s.channels, tb);
          fill_random(rng, a);
          fill_random(rng, b);
          const std::vector<uint8_t> before = d.bytes_copy();
          SornArray rd = d.record(), ra = a.record(), rb = b.record();
          const SornVolume dr = make_roi(1, 1, s.rows, s.cols, s.channels);
          const SornVolume br = make_roi(1, 0, 0, 0, s.channels);
          ASSERT_EQ(f.entry(nullptr, 0, &rd, &ra, &rb, &dr, nullptr, &br, 0, 0), SORN_ENOTSUP)
              << f.name << " " << sorn_test::type_name(t.dst) << sorn_test::type_name(ta)
              << sorn_test::type_name(tb) << " " << s.rows << "x" << s.cols << "x" << s.channels;
          ASSERT_EQ(d.bytes_copy(), before) << f.name;
          ASSERT_TRUE(d.guards_intact()) << f.name;
          ++calls;
        }
  }
  EXPECT_EQ(calls, 9 * 14 * 5 * 2 + 3 * 2 * 5 * 2);

  // A known destination type without kernels of its own (u16) from s32
  // sources reaches the tile path as well, at the dispatcher.
  const SornDimPack pack = SORN_DIMPACK(3);
  int32_t a[2] = {300, -5}, b[2] = {1, 1};
  uint16_t d[2] = {9, 9};
  int32_t dims[3] = {1, 2, 1}, s4[3] = {8, 4, 4}, s2[3] = {4, 2, 2};
  EXPECT_EQ(sorna__add(nullptr, 0, pack, dims, SORN_U16, d, s2, SORN_S32, a, s4, SORN_S32, b, s4, 0, 0),
            SORN_ENOTSUP);
  EXPECT_EQ(d[0], 9);
  EXPECT_EQ(d[1], 9);
}

TEST(Pending, ConstantTilePathsDeclineAndWriteNothing) {
  auto rng = sorn_test::seeded_rng(0x7114);
  struct Case {
    uint32_t dst, a;
    double c;
    const char *path;
  };
  const Case cases[] = {
      // Convert first: a fractional constant on an integer source into f32.
      {SORN_F32, SORN_U8, 1.5, "convert first"},
      {SORN_F32, SORN_S16, -2.25, "convert first"},
      // Operate first, then saturate into the narrow destination.
      {SORN_U8, SORN_S32, 1, "operate first"},
      {SORN_U8, SORN_F32, 1, "operate first"},
      {SORN_S16, SORN_S32, 7, "operate first"},
      {SORN_S16, SORN_F32, 0.5, "operate first"},
      {SORN_U8, SORN_S16, 300.5, "operate first"},
  };
  for (const Family &f : kFamilies)
    for (const Case &k : cases)
      for (const Shape &s : kShapes) {
        Image d(s.rows, s.cols + 2, s.channels, k.dst, 4, 0x5B), a(s.rows, s.cols, s.channels, k.a);
        fill_random(rng, a);
        const std::vector<uint8_t> before = d.bytes_copy();
        const std::vector<double> c(s.channels, k.c);
        SornArray rd = d.record(), ra = a.record();
        const SornVolume dr = make_roi(0, 2, s.rows, s.cols, s.channels);
        ASSERT_EQ(f.entry_c(nullptr, 0, &rd, &ra, c.data(), &dr, nullptr, 0, 0), SORN_ENOTSUP)
            << f.name << "C " << k.path << ": " << sorn_test::type_name(k.dst)
            << sorn_test::type_name(k.a) << " constant " << k.c;
        ASSERT_EQ(d.bytes_copy(), before) << f.name;
        ASSERT_TRUE(d.guards_intact()) << f.name;
      }
}

}  // namespace

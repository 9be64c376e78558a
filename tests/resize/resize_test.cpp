// SornEResize and SornResize: the worked cases, every failure (with nothing
// written), regions and factors against a plain reference of the
// negotiation and the index rule, in place, and 4-dimensional operands.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "alloc_failure.h"
#include "resize_reference.h"
#include "resize_testutil.h"
#include "testkit.h"

namespace {

using resize_test::Env;
using sorn_test::Image;

// An image whose bytes are a counter, so that every pixel can be told apart.
Image numbered(int32_t rows, int32_t cols, int32_t ch, uint32_t type, int32_t pad = 0) {
  Image im(rows, cols, ch, type, pad);
  for (size_t i = 0; i < im.bytes(); ++i) im.base()[i] = (uint8_t)(i * 13 + 1);
  return im;
}

SornStatus resize(Env &env, Image &dst, Image &src, const double *factors = nullptr,
                  const SornVolume *droi = nullptr, const SornVolume *svol = nullptr,
                  int32_t method = 0) {
  SornArray d = dst.record(), s = src.record();
  return SornEResize(env.xe(), 0, &d, &s, droi, svol, method, factors);
}

/* ---------------- the worked cases ---------------- */

TEST(Resize, FourByFourToTwoByTwoTakesColumnsAndRowsZeroAndTwo) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_U8), dst(2, 2, 1, SORN_U8);
  ASSERT_EQ(SORN_OK, resize(env, dst, src));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) EXPECT_EQ(src.at<uint8_t>(2 * y, 2 * x), dst.at<uint8_t>(y, x));
  EXPECT_TRUE(env.at_mark());
}

TEST(Resize, TwoByTwoToFourByFourRoundsColumnsToEvenAndRowsUpFromAHalf) {
  Env env;
  Image src = numbered(2, 2, 1, SORN_U8), dst(4, 4, 1, SORN_U8);
  ASSERT_EQ(SORN_OK, resize(env, dst, src));
  // Columns 0, 0, 1, 1: 0.5 rounds to 0, 1.5 to 2 and is clamped to 1.
  // Rows trunc(i * 0.5 + 0.5): 0, 1, 1, and 2 clamped to 1.
  const int cols[4] = {0, 0, 1, 1}, rows[4] = {0, 1, 1, 1};
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(src.at<uint8_t>(rows[y], cols[x]), dst.at<uint8_t>(y, x)) << y << " " << x;
}

TEST(Resize, SameSizeIsAnExactCopy) {
  Env env;
  for (uint32_t type : {SORN_U8, SORN_S32, SORN_F32}) {
    Image src = numbered(7, 29, 1, type, 3), dst(7, 29, 1, type, 5);
    const double ones[2] = {1.0, 1.0};
    ASSERT_EQ(SORN_OK, resize(env, dst, src, ones));
    for (int y = 0; y < 7; ++y)
      EXPECT_EQ(0, std::memcmp(src.base() + y * src.rowstride(), dst.base() + y * dst.rowstride(),
                               29 * (size_t)src.esize()));
  }
}

TEST(Resize, OneChannelS16HasNoKernel) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_S16), dst(2, 2, 1, SORN_S16, 0, 0x77);
  const auto before = dst.bytes_copy();
  EXPECT_EQ(SORN_ENOTSUP, resize(env, dst, src));
  EXPECT_EQ(before, dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(Resize, FourChannelBytesMoveAsThirtyTwoBitUnits) {
  Env env;
  Image src = numbered(5, 9, 4, SORN_U8), dst(10, 18, 4, SORN_U8);
  ASSERT_EQ(SORN_OK, resize(env, dst, src));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 18; ++x) {
      const int sy = resize_ref::row_by_rule(y, 2.0, 5), sx = resize_ref::column_by_rule(x, 2.0, 9);
      EXPECT_EQ(0, std::memcmp(&src.at<uint8_t>(sy, sx), &dst.at<uint8_t>(y, x), 4));
    }
  // Through the class of four-byte pixels, the same as a one-channel s32.
  EXPECT_EQ(&__sorna__resize_nn_s32, sorna__resize_nn_imp(SORN_S32, nullptr));
}

TEST(Resize, AFactorOfZeroIsTakenFromTheExtents) {
  Env env;
  Image src = numbered(6, 10, 1, SORN_U8), dst(3, 4, 1, SORN_U8);
  const double factors[2] = {0.0, 0.4};  // rows 3/6 from the extents
  ASSERT_EQ(SORN_OK, resize(env, dst, src, factors));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(src.at<uint8_t>(resize_ref::row_by_rule(y, 0.5, 6),
                                resize_ref::column_by_rule(x, 0.4, 10)),
                dst.at<uint8_t>(y, x));
}

// 5 columns at 0.5 are 2.5: the agreement lets a destination of 3 stand
// (it does not exceed 2.5 rounded up), and then the destination is cut to
// 2.5 rounded to even, 2. The third column is not written.
TEST(Resize, ADestinationLargerThanTheScaledSourceIsCut) {
  Env env;
  Image src = numbered(5, 5, 1, SORN_U8), dst(3, 3, 1, SORN_U8, 0, 0xEE);
  const double factors[2] = {0.5, 0.5};
  ASSERT_EQ(SORN_OK, resize(env, dst, src, factors));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x) {
      if (y < 2 && x < 2)
        EXPECT_EQ(src.at<uint8_t>(2 * y, 2 * x), dst.at<uint8_t>(y, x));
      else
        EXPECT_EQ(0xEE, dst.at<uint8_t>(y, x)) << y << " " << x;
    }
}

// The factors of a rank-3 call are rows, then columns: they sit in the
// cells of the rows and the columns, and cell 0 (planes) is 1.
TEST(Resize, RankThreeFactorsAreRowsThenColumns) {
  Env env;
  Image src = numbered(4, 8, 1, SORN_U8), dst(8, 4, 1, SORN_U8, 0, 0xEE);
  const double factors[2] = {2.0, 0.5};
  ASSERT_EQ(SORN_OK, resize(env, dst, src, factors));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(src.at<uint8_t>(resize_ref::row_by_rule(y, 2.0, 4), 2 * x), dst.at<uint8_t>(y, x))
          << y << " " << x;
  // Swapped factors scale the other way: 4 rows by 0.5 give 2, and the
  // rest of the destination stays; 4 destination columns at 2 take the
  // first 2 source columns.
  Image dst2(8, 4, 1, SORN_U8, 0, 0xEE);
  const double swapped[2] = {0.5, 2.0};
  ASSERT_EQ(SORN_OK, resize(env, dst2, src, swapped));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 4; ++x) {
      if (y < 2)
        EXPECT_EQ(src.at<uint8_t>(2 * y, resize_ref::column_by_rule(x, 2.0, 2)),
                  dst2.at<uint8_t>(y, x));
      else
        EXPECT_EQ(0xEE, dst2.at<uint8_t>(y, x));
    }
}

TEST(Resize, EveryMethodCodeOfTheMaskRunsNearestNeighbour) {
  Env env;
  Image src = numbered(6, 6, 1, SORN_U8);
  Image ref(3, 3, 1, SORN_U8);
  ASSERT_EQ(SORN_OK, resize(env, ref, src));
  for (int32_t m : {0, 3, 4, 5, 6, 14, 15, 0x10, 0x7F3, -16}) {
    Image dst(3, 3, 1, SORN_U8);
    ASSERT_EQ(SORN_OK, resize(env, dst, src, nullptr, nullptr, nullptr, m)) << m;
    EXPECT_EQ(ref.bytes_copy(), dst.bytes_copy()) << m;
  }
}

/* ---------------- failures ---------------- */

struct Failure {
  const char *what;
  SornStatus status;
};

// Every call here fails, and writes nothing.
void expect_fails(Env &env, SornStatus want, SornArray *d, const SornArray *s, Image &dst,
                  const SornVolume *droi, const SornVolume *svol, int32_t method,
                  const double *factors, const char *what) {
  const auto before = dst.bytes_copy();
  EXPECT_EQ(want, SornEResize(env.xe(), 0, d, s, droi, svol, method, factors)) << what;
  EXPECT_EQ(before, dst.bytes_copy()) << what;
  EXPECT_TRUE(dst.guards_intact()) << what;
  EXPECT_TRUE(env.at_mark()) << what;
}

TEST(ResizeFailures, BadRecordsAreInvalid) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_U8), dst(2, 2, 1, SORN_U8, 0, 0x33);
  const SornArray s = src.record(), d0 = dst.record();
  EXPECT_EQ(SORN_EINVAL, SornEResize(env.xe(), 0, nullptr, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(SORN_EINVAL, SornResize(env.xe(), 0, nullptr, nullptr, nullptr, nullptr, 0, nullptr));
  SornArray d = d0;
  d.ndims = 2;
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "rank 2");
  d = d0;
  d.ndims = 5;
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "rank 5");
  d = d0;
  d.dims[0] = 0;
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "no plane");
  d = d0;
  d.dims[3] = 12;  // five channels
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "five channels");
  d = d0;
  d.dims[3] = 0;
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "no channels");
  d = d0;
  SornArray s2 = s;
  s2.dims[3] = 2;
  expect_fails(env, SORN_EINVAL, &d, &s2, dst, nullptr, nullptr, 0, nullptr, "channels differ");
  s2 = s;
  s2.ndims = 4;
  expect_fails(env, SORN_EINVAL, &d, &s2, dst, nullptr, nullptr, 0, nullptr,
               "rank-4 source under a rank-3 destination");
  s2 = s;
  s2.ndims = 2;
  expect_fails(env, SORN_EINVAL, &d, &s2, dst, nullptr, nullptr, 0, nullptr, "source rank 2");
  // Planes: equal or one.
  std::vector<uint8_t> store(3 * 16);
  SornArray d4 = sorn_test::make_record4(store.data(), 3, 4, 4, 1, SORN_U8, 16, 4);
  SornArray s4 = sorn_test::make_record4(store.data(), 2, 4, 4, 1, SORN_U8, 16, 4);
  const auto before = store;
  EXPECT_EQ(SORN_EINVAL, SornEResize(env.xe(), 0, &d4, &s4, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(before, store);
}

TEST(ResizeFailures, ElementTypesThatDifferAreInvalid) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_S8), dst(2, 2, 1, SORN_U8, 0, 0x33);
  SornArray d = dst.record(), s = src.record();
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 0, nullptr, "u8 from s8");
}

TEST(ResizeFailures, MethodsOutsideTheMaskAreInvalid) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_U8), dst(2, 2, 1, SORN_U8, 0, 0x33);
  SornArray d = dst.record(), s = src.record();
  for (int32_t m : {1, 2, 7, 8, 9, 10, 11, 12, 13, 0x11, -15}) {
    char what[32];
    std::snprintf(what, sizeof what, "method %d", m);
    expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, m, nullptr, what);
  }
}

TEST(ResizeFailures, EmptyBoxesHaveNoSpace) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_U8), dst(2, 2, 1, SORN_U8, 0, 0x33);
  SornArray d = dst.record(), s = src.record();
  const SornVolume outside = sorn_test::make_roi(5, 0, 2, 2, 1);
  const SornVolume empty = sorn_test::make_roi(0, 0, 0, 2, 1);
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, &outside, nullptr, 0, nullptr, "destination outside");
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, &empty, nullptr, 0, nullptr, "empty destination");
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, nullptr, &outside, 0, nullptr, "source outside");
  // A factor that scales the source to less than a pixel.
  const double tiny[2] = {0.1, 0.1};
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, nullptr, nullptr, 0, tiny, "below one pixel");
  const double negative[2] = {-1.0, 0.5};
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, nullptr, nullptr, 0, negative, "negative factor");
}

// The order of the checks: records, then space, then types, then methods.
TEST(ResizeFailures, RecordsComeBeforeSpaceAndSpaceBeforeTypes) {
  Env env;
  Image src = numbered(4, 4, 1, SORN_S8), dst(2, 2, 1, SORN_U8, 0, 0x33);
  SornArray d = dst.record(), s = src.record();
  const SornVolume outside = sorn_test::make_roi(5, 0, 2, 2, 1);
  expect_fails(env, SORN_ENOSPC, &d, &s, dst, &outside, nullptr, 7, nullptr,
               "empty region with types that differ and a bad method");
  expect_fails(env, SORN_EINVAL, &d, &s, dst, nullptr, nullptr, 7, nullptr,
               "types that differ and a bad method");
  SornArray d2 = d;
  d2.dims[3] = 5;
  expect_fails(env, SORN_EINVAL, &d2, &s, dst, &outside, nullptr, 0, nullptr,
               "a bad record and an empty region");
  // A bad method before a pixel class without a kernel.
  Image src3 = numbered(4, 4, 3, SORN_U8), dst3(2, 2, 3, SORN_U8, 0, 0x33);
  SornArray d3 = dst3.record(), s3 = src3.record();
  expect_fails(env, SORN_EINVAL, &d3, &s3, dst3, nullptr, nullptr, 1, nullptr,
               "bad method, no kernel");
}

TEST(ResizeFailures, PixelClassesWithoutAKernelAreNotSupported) {
  Env env;
  struct Class {
    uint32_t type;
    int32_t channels;
  };
  const Class classes[] = {{SORN_U8, 2},  {SORN_U8, 3},  {SORN_S8, 3},  {SORN_S16, 1},
                           {SORN_S16, 3}, {SORN_U16, 1}, {SORN_U16, 3}, {SORN_F64, 1},
                           {SORN_S64, 2}, {SORN_U64, 1}};
  for (const Class &c : classes) {
    Image src = numbered(4, 4, c.channels, c.type), dst(2, 2, c.channels, c.type, 0, 0x33);
    SornArray d = dst.record(), s = src.record();
    char what[48];
    std::snprintf(what, sizeof what, "%s, %d channels", sorn_test::type_name(c.type), c.channels);
    expect_fails(env, SORN_ENOTSUP, &d, &s, dst, nullptr, nullptr, 0, nullptr, what);
  }
  // A pixel with room beside its elements: one f32 channel every 8 bytes.
  std::vector<uint8_t> sbuf(4 * 32), dbuf(2 * 16, 0x33);
  SornArray s = sorn_test::make_record(sbuf.data(), 4, 4, 1, SORN_F32, 32);
  SornArray d = sorn_test::make_record(dbuf.data(), 2, 2, 1, SORN_F32, 16);
  s.strides[2] = d.strides[2] = 8;
  const auto before = dbuf;
  EXPECT_EQ(SORN_ENOTSUP, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(before, dbuf);
}

TEST(ResizeFailures, UnknownElementTypesAreInvalid) {
  Env env;
  for (uint32_t type : {0u, 5u, 6u, 7u, 8u, 16u}) {
    std::vector<uint8_t> sbuf(64, 1), dbuf(16, 0x33);
    SornArray s = sorn_test::make_record(sbuf.data(), 4, 4, 1, type, 16);
    SornArray d = sorn_test::make_record(dbuf.data(), 2, 2, 1, type, 8);
    s.strides[2] = d.strides[2] = 4;  // whatever the size class says
    const auto before = dbuf;
    EXPECT_EQ(SORN_EINVAL, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr)) << type;
    EXPECT_EQ(before, dbuf);
  }
  // Code 15 is known and has no kernel.
  std::vector<uint8_t> sbuf(64, 1), dbuf(16, 0x33);
  SornArray s = sorn_test::make_record(sbuf.data(), 4, 4, 1, 15u, 16);
  SornArray d = sorn_test::make_record(dbuf.data(), 2, 2, 1, 15u, 8);
  EXPECT_EQ(SORN_ENOTSUP, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr));
}

TEST(ResizeFailures, WithoutScratchForTheTableThereIsNoMemory) {
  Image src = numbered(40, 60, 1, SORN_U8);
  int64_t failed = sorn_test::for_each_allocation_failure([&](int64_t k) {
    Env env;
    Image dst(20, 30, 1, SORN_U8, 0, 0x33);
    const auto before = dst.bytes_copy();
    SornArray d = dst.record(), s = src.record();
    SornStatus st;
    bool fired;
    {
      sorn_test::AllocFailure fail(k, true);
      st = SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr);
      fired = fail.fired();
    }
    if (fired) {
      EXPECT_EQ(SORN_ENOMEM, st) << k;
      EXPECT_EQ(before, dst.bytes_copy()) << k;
    } else {
      EXPECT_EQ(SORN_OK, st);
    }
    EXPECT_TRUE(env.at_mark()) << k;
    return fired;
  });
  EXPECT_GE(failed, 1);
}

/* ---------------- regions and factors against the reference ---------------- */

// The agreement of the two boxes, written out: the destination region
// decides, cell by cell the factor (or the extents' ratio) scales the
// source, and a destination larger than the scaled source is cut at the
// layer below.
struct Boxes {
  SornVolume d, s;
  double fy, fx;
  bool ok;
};

int32_t rint32(double v) { return (int32_t)std::nearbyint(v); }

bool intersect(SornVolume &r, const Image &im, const SornVolume *in) {
  r = {{0, 0, 0, 0}, {1, im.rows(), im.cols(), im.channels()}};
  if (in) {
    for (int c = 1; c < 3; ++c) {
      const int32_t lo = std::max(0, in->origin[c]);
      const int32_t hi = std::min(r.size[c], in->origin[c] + in->size[c]);
      r.origin[c] = lo;
      r.size[c] = hi - lo;
    }
  }
  return r.size[1] > 0 && r.size[2] > 0;
}

Boxes agree(const Image &dst, const Image &src, const SornVolume *droi, const SornVolume *svol,
            const double *factors) {
  Boxes b{};
  b.ok = intersect(b.d, dst, droi) && intersect(b.s, src, svol);
  if (!b.ok) return b;
  double f[3] = {1, 0, 0};
  int larger = 0;
  for (int c = 1; c < 3; ++c) {
    double r = factors ? factors[c - 1] : 0.0;
    if (std::fabs(r) <= resize_ref::kEps) r = (double)b.d.size[c] / b.s.size[c];
    const double t = b.s.size[c] * r;
    if (b.d.size[c] > std::ceil(t)) {
      b.d.size[c] = rint32(t);
      if (b.d.size[c] < 1) b.ok = false;
    } else if (b.d.size[c] < std::floor(t)) {
      b.s.size[c] = rint32(b.d.size[c] / r);
      if (b.s.size[c] < 1) b.ok = false;
    }
    // The layer below sees the factor the agreement used (a ratio of the
    // extents included) and counts a destination larger than the scaled
    // source.
    if (std::fabs(r) <= resize_ref::kEps)
      r = (double)b.d.size[c] / b.s.size[c];
    else if (b.d.size[c] > b.s.size[c] * r)
      ++larger;
    f[c] = std::fabs(r - 1.0) <= resize_ref::kEps ? 1.0 : r;
  }
  if (larger)
    for (int c = 1; c < 3; ++c) b.d.size[c] = std::min(b.d.size[c], rint32(b.s.size[c] * f[c]));
  if (b.d.size[1] < 1 || b.d.size[2] < 1) b.ok = false;
  b.fy = f[1];
  b.fx = f[2];
  return b;
}

struct PixelClass {
  uint32_t type;
  int32_t channels;
};
// Every class with a kernel: units of 1, 4, 8, 12 and 16 bytes.
const PixelClass kClasses[] = {
    {SORN_U8, 1},  {SORN_S8, 1},  {SORN_U8, 4},  {SORN_S8, 4},  {SORN_S16, 2}, {SORN_U16, 2},
    {SORN_S16, 4}, {SORN_S32, 1}, {SORN_U32, 1}, {SORN_F32, 1}, {SORN_S32, 2}, {SORN_F32, 2},
    {SORN_S32, 3}, {SORN_F32, 3}, {SORN_S32, 4}, {SORN_F32, 4}, {SORN_U32, 4},
};

void check_against_reference(Env &env, const PixelClass &pc, Image &dst, Image &src,
                             const SornVolume *droi, const SornVolume *svol, const double *factors,
                             const std::string &what) {
  std::vector<uint8_t> expected = dst.bytes_copy();
  const Boxes b = agree(dst, src, droi, svol, factors);
  const int32_t bytes = sorn_test::Image(1, 1, pc.channels, pc.type).esize() * pc.channels;
  if (b.ok) {
    resize_ref::resize({expected.data() + b.d.origin[1] * dst.rowstride() + b.d.origin[2] * bytes,
                        dst.rowstride(), b.d.size[1], b.d.size[2]},
                       {src.base() + b.s.origin[1] * src.rowstride() + b.s.origin[2] * bytes,
                        src.rowstride(), b.s.size[1], b.s.size[2]},
                       bytes, b.fx, b.fy);
  }
  SornArray d = dst.record(), s = src.record();
  const SornStatus st = SornEResize(env.xe(), 0, &d, &s, droi, svol, 0, factors);
  ASSERT_EQ(b.ok ? SORN_OK : SORN_ENOSPC, st) << what;
  ASSERT_TRUE(dst.guards_intact()) << what;
  const auto got = dst.bytes_copy();
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_EQ(expected[i], got[i]) << what << ", byte " << i << " row " << i / dst.rowstride();
  ASSERT_TRUE(env.at_mark()) << what;
}

SornVolume random_region(std::mt19937_64 &rng, const Image &im) {
  const int32_t oy = (int32_t)(rng() % (uint64_t)im.rows()),
                ox = (int32_t)(rng() % (uint64_t)im.cols());
  const int32_t h = 1 + (int32_t)(rng() % (uint64_t)(im.rows() + 2));
  const int32_t w = 1 + (int32_t)(rng() % (uint64_t)(im.cols() + 2));
  return sorn_test::make_roi(oy, ox, h, w, im.channels());
}

TEST(ResizeReference, EveryPixelClassByEveryFactorWithRegionsAndPaddedRows) {
  auto rng = sorn_test::seeded_rng(0xAB5E1);
  const double factors[][2] = {
      {0.5, 0.5}, {2.0, 2.0}, {3.7, 3.7}, {0.13, 0.13}, {1.0, 1.0}, {1.0 + 1e-8, 1.0 - 1e-8},
      {0.0, 0.0}, {2.0, 0.5}, {0.0, 3.7}, {0.13, 0.0}};
  Env env;
  for (const PixelClass &pc : kClasses) {
    for (const auto &f : factors) {
      for (int trial = 0; trial < 6; ++trial) {
        const int32_t sh = 1 + (int32_t)(rng() % 40), sw = 1 + (int32_t)(rng() % 70);
        int32_t dh = std::max(1, rint32(sh * (f[0] > 0 ? f[0] : 0.7)));
        int32_t dw = std::max(1, rint32(sw * (f[1] > 0 ? f[1] : 1.3)));
        if (trial & 1) dh += (int32_t)(rng() % 4), dw += (int32_t)(rng() % 9);
        const int32_t es = Image(1, 1, 1, pc.type).esize();
        Image src(sh, sw, pc.channels, pc.type, (int32_t)(rng() % 3) * es);
        Image dst(dh, dw, pc.channels, pc.type, (int32_t)(rng() % 3) * es);
        for (size_t i = 0; i < src.bytes(); ++i) src.base()[i] = (uint8_t)rng();
        for (size_t i = 0; i < dst.bytes(); ++i) dst.base()[i] = (uint8_t)rng();
        SornVolume droi = random_region(rng, dst), svol = random_region(rng, src);
        const bool use_droi = trial >= 2, use_svol = trial >= 4;
        char what[160];
        std::snprintf(what, sizeof what, "%s x%d, factors %g %g, %dx%d from %dx%d, trial %d",
                      sorn_test::type_name(pc.type), pc.channels, f[0], f[1], dh, dw, sh, sw,
                      trial);
        check_against_reference(env, pc, dst, src, use_droi ? &droi : nullptr,
                                use_svol ? &svol : nullptr, f[0] == 0 && f[1] == 0 ? nullptr : f,
                                what);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

/* ---------------- in place, and the source from a point ---------------- */

TEST(ResizeInPlace, HalvingReadsEveryPixelBeforeItIsOverwritten) {
  Env env;
  for (int32_t ch : {1, 4}) {
    Image im = numbered(9, 14, ch, SORN_U8, 3);
    const auto original = im.bytes_copy();
    std::vector<uint8_t> expected = original;
    // 9 rows at 0.5 are 4.5, rounded to even: 4.
    resize_ref::resize({expected.data(), im.rowstride(), 4, 7},
                       {const_cast<uint8_t *>(original.data()), im.rowstride(), 9, 14}, ch, 0.5,
                       0.5);
    SornArray a = im.record();
    const double half[2] = {0.5, 0.5};
    ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &a, nullptr, nullptr, nullptr, 0, half));
    EXPECT_EQ(expected, im.bytes_copy()) << ch;
    EXPECT_TRUE(im.guards_intact());
  }
}

// In place, a missing source volume is the destination's region.
TEST(ResizeInPlace, TheSourceIsTheDestinationRegion) {
  Env env;
  Image im = numbered(10, 10, 1, SORN_U8);
  const auto original = im.bytes_copy();
  const SornVolume roi = sorn_test::make_roi(2, 2, 6, 6, 1);
  SornArray a = im.record();
  const double half[2] = {0.5, 0.5};
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &a, nullptr, &roi, nullptr, 0, half));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x) {
      const uint8_t was = original[(size_t)y * 10 + (size_t)x];
      if (y >= 2 && y < 5 && x >= 2 && x < 5)
        EXPECT_EQ(original[(size_t)(2 + 2 * (y - 2)) * 10 + (size_t)(2 + 2 * (x - 2))],
                  im.at<uint8_t>(y, x));
      else
        EXPECT_EQ(was, im.at<uint8_t>(y, x)) << y << " " << x;
    }
}

TEST(ResizeSite, TheSourceRegionStartsAtThePoint) {
  Env env;
  Image src = numbered(12, 15, 1, SORN_U8);
  const int32_t at[4] = {0, 3, 5, 0};
  Image a(4, 5, 1, SORN_U8), b(4, 5, 1, SORN_U8);
  SornArray da = a.record(), db = b.record(), s = src.record();
  const double half[2] = {0.5, 0.5};
  ASSERT_EQ(SORN_OK, SornResize(env.xe(), 0, &da, &s, nullptr, at, 0, half));
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x)
      EXPECT_EQ(src.at<uint8_t>(3 + 2 * y, 5 + 2 * x), a.at<uint8_t>(y, x));
  // The same as the volume from the point to the end of the site.
  const SornVolume v = {{0, 3, 5, 0}, {1, 9, 10, 1}};
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &db, &s, nullptr, &v, 0, half));
  EXPECT_EQ(a.bytes_copy(), b.bytes_copy());
  // Without a point, the whole site.
  Image c(6, 7, 1, SORN_U8);
  SornArray dc = c.record();
  ASSERT_EQ(SORN_OK, SornResize(env.xe(), 0, &dc, &s, nullptr, nullptr, 0, half));
  EXPECT_EQ(src.at<uint8_t>(10, 12), c.at<uint8_t>(5, 6));
  EXPECT_TRUE(env.at_mark());
}

TEST(ResizeSite, InPlaceFromAPointMovesTheRegionUp) {
  Env env;
  Image im = numbered(8, 8, 1, SORN_U8);
  const auto original = im.bytes_copy();
  const int32_t at[4] = {0, 2, 3, 0};
  const SornVolume roi = sorn_test::make_roi(0, 0, 4, 4, 1);
  SornArray a = im.record();
  const double ones[2] = {1.0, 1.0};
  ASSERT_EQ(SORN_OK, SornResize(env.xe(), 0, &a, nullptr, &roi, at, 0, ones));
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(original[(size_t)(y + 2) * 8 + (size_t)(x + 3)], im.at<uint8_t>(y, x));
}

TEST(ResizeOnePixel, ImagesOfOnePixelBothWays) {
  Env env;
  Image one = numbered(1, 1, 4, SORN_U8);
  Image big(5, 7, 4, SORN_U8);
  ASSERT_EQ(SORN_OK, resize(env, big, one));
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x)
      EXPECT_EQ(0, std::memcmp(&one.at<uint8_t>(0, 0), &big.at<uint8_t>(y, x), 4));
  Image src = numbered(6, 9, 1, SORN_F32), dot(1, 1, 1, SORN_F32);
  ASSERT_EQ(SORN_OK, resize(env, dot, src));
  EXPECT_EQ(0, std::memcmp(&src.at<float>(0, 0), &dot.at<float>(0, 0), 4));
}

/* ---------------- four dimensions ---------------- */

// Planes in one guarded buffer: planes of rows x cols pixels, the plane
// stride in rows.
struct Stack {
  int32_t planes, rows, cols, bytes, plane_rows;
  sorn_test::Guarded buf;
  Stack(int32_t p, int32_t r, int32_t c, int32_t b, int32_t plane_rows, uint8_t fill)
      : planes(p),
        rows(r),
        cols(c),
        bytes(b),
        plane_rows(plane_rows),
        buf((size_t)((p - 1) * plane_rows + r) * (size_t)(c * b), fill) {}
  int32_t rowstride() const { return cols * bytes; }
  int32_t planestride() const { return plane_rows * rowstride(); }
  uint8_t *plane(int32_t z) { return buf.data() + (size_t)z * (size_t)planestride(); }
  SornArray record(uint32_t type, int32_t ch) {
    return sorn_test::make_record4(buf.data(), planes, rows, cols, ch, type, planestride(),
                                   rowstride());
  }
  std::vector<uint8_t> bytes_copy() const {
    return std::vector<uint8_t>(buf.data(), buf.data() + buf.size());
  }
};

void number(Stack &s) {
  for (size_t i = 0; i < s.buf.size(); ++i) s.buf.data()[i] = (uint8_t)(i * 29 + 7);
}

// The planes that the frame stacks into rows form one image when they
// match row for row: every plane is resized.
TEST(ResizeFourDims, PlanesThatStackRowForRowAreAllResized) {
  Env env;
  Stack src(3, 5, 6, 1, 5, 0), dst(3, 5, 12, 1, 5, 0xEE);
  number(src);
  std::vector<uint8_t> expected = dst.bytes_copy();
  for (int32_t z = 0; z < 3; ++z)
    resize_ref::resize(
        {expected.data() + (size_t)z * (size_t)dst.planestride(), dst.rowstride(), 5, 12},
        {src.plane(z), src.rowstride(), 5, 6}, 1, 2.0, 1.0);
  SornArray d = dst.record(SORN_U8, 1), s = src.record(SORN_U8, 1);
  const double factors[3] = {1.0, 1.0, 2.0};
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, factors));
  EXPECT_EQ(expected, dst.bytes_copy());
  // Factors from the extents do the same.
  Stack dst2(3, 5, 12, 1, 5, 0xEE);
  SornArray d2 = dst2.record(SORN_U8, 1);
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &d2, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(expected, dst2.bytes_copy());
  EXPECT_TRUE(dst.buf.guards_intact());
  EXPECT_TRUE(env.at_mark());
}

// Planes of different heights cannot be stacked: as for every operation
// whose planes the frame cannot merge, the first plane alone is worked.
TEST(ResizeFourDims, PlanesOfDifferentHeightsResizeTheFirstPlaneAlone) {
  Env env;
  Stack src(3, 5, 6, 4, 5, 0), dst(3, 10, 12, 4, 10, 0xEE);
  number(src);
  std::vector<uint8_t> expected = dst.bytes_copy();
  resize_ref::resize({expected.data(), dst.rowstride(), 10, 12},
                     {src.plane(0), src.rowstride(), 5, 6}, 4, 2.0, 2.0);
  SornArray d = dst.record(SORN_F32, 1), s = src.record(SORN_F32, 1);
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(expected, dst.bytes_copy());
}

// Planes that the frame stacks because their strides agree, though the
// source planes hold fewer rows than the destination's: not one image, so
// again the first plane alone.
TEST(ResizeFourDims, PlanesStackedWithoutMatchingRowsResizeTheFirstPlaneAlone) {
  Env env;
  Stack src(2, 2, 6, 1, 4, 0), dst(2, 4, 12, 1, 4, 0xEE);
  number(src);
  std::vector<uint8_t> expected = dst.bytes_copy();
  resize_ref::resize({expected.data(), dst.rowstride(), 4, 12},
                     {src.plane(0), src.rowstride(), 2, 6}, 1, 2.0, 2.0);
  // Source rows stride the destination's, so that the ratios agree.
  SornArray d = dst.record(SORN_U8, 1), s = src.record(SORN_U8, 1);
  s.strides[1] = 6;
  s.strides[0] = 4 * 6;
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(expected, dst.bytes_copy());
}

// A rank-3 source under a rank-4 destination: one plane, the first.
TEST(ResizeFourDims, ARankThreeSourceFillsTheFirstPlane) {
  Env env;
  Image src = numbered(5, 6, 1, SORN_U8);
  Stack dst(3, 5, 3, 1, 5, 0xEE);
  std::vector<uint8_t> expected = dst.bytes_copy();
  resize_ref::resize({expected.data(), dst.rowstride(), 5, 3}, {src.base(), src.rowstride(), 5, 6},
                     1, 0.5, 1.0);
  SornArray d = dst.record(SORN_U8, 1), s = src.record();
  for (double planes : {1.0, 0.0}) {
    Stack fresh(3, 5, 3, 1, 5, 0xEE);
    SornArray df = fresh.record(SORN_U8, 1);
    const double factors[3] = {planes, 1.0, 0.5};
    ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &df, &s, nullptr, nullptr, 0, factors)) << planes;
    EXPECT_EQ(expected, fresh.bytes_copy()) << planes;
  }
  (void)d;
}

// The factors of a rank-4 call are planes, rows, columns.
TEST(ResizeFourDims, RankFourFactorsArePlanesRowsColumns) {
  Env env;
  Stack src(2, 4, 8, 1, 4, 0), dst(2, 8, 4, 1, 8, 0xEE);
  number(src);
  std::vector<uint8_t> expected = dst.bytes_copy();
  resize_ref::resize({expected.data(), dst.rowstride(), 8, 4},
                     {src.plane(0), src.rowstride(), 4, 8}, 1, 0.5, 2.0);
  SornArray d = dst.record(SORN_U8, 1), s = src.record(SORN_U8, 1);
  const double factors[3] = {1.0, 2.0, 0.5};
  ASSERT_EQ(SORN_OK, SornEResize(env.xe(), 0, &d, &s, nullptr, nullptr, 0, factors));
  EXPECT_EQ(expected, dst.bytes_copy());
}

}  // namespace

// SornFill, SornFillEx and SornFillEx2 from the public records down: every
// type and channel count, ROIs, padded rows, guard bytes, both mask forms,
// two values, 4-dimensional arrays through the frame, and the failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "fill_reference.h"
#include "testkit.h"

using sorn_test::Guarded;
using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

double random_fill_value(std::mt19937_64 &rng) {
  static const double special[] = {255.5, 254.5, -127.6, 5e9, -5e9, kNaN, 0.5, 1.5, -1.5,
                                   32767.5, 65535.4, -0.0, 1e300};
  if (rng() % 3 == 0) return special[rng() % (sizeof special / sizeof special[0])];
  std::uniform_real_distribution<double> d(-70000.0, 70000.0);
  return std::round(d(rng) * 4) / 4;
}

void fill_random_bytes(std::mt19937_64 &rng, uint8_t *p, size_t n) {
  for (size_t i = 0; i < n; ++i) p[i] = (uint8_t)rng();
}

bool in_roi(const SornVolume &r, int32_t y, int32_t x) {
  return y >= r.origin[1] && y < r.origin[1] + r.size[1] && x >= r.origin[2] &&
         x < r.origin[2] + r.size[2];
}

// The expected bytes of every element: `want(y, x, c, before)` gives them.
template <class Want>
void check_image(const Image &im, const std::vector<uint8_t> &before, Want want) {
  const int32_t es = im.esize();
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c) {
        const size_t off = (size_t)y * im.rowstride() + ((size_t)x * im.channels() + c) * es;
        std::vector<uint8_t> w(es);
        want(y, x, c, before.data() + off, w.data());
        ASSERT_EQ(0, std::memcmp(w.data(), im.base() + off, es))
            << sorn_test::type_name(im.type()) << " x" << im.channels() << " at " << y << ","
            << x << "," << c;
      }
  const size_t row_bytes = (size_t)im.cols() * im.channels() * es;
  for (int32_t y = 0; y < im.rows(); ++y)
    ASSERT_EQ(0, std::memcmp(im.base() + (size_t)y * im.rowstride() + row_bytes,
                             before.data() + (size_t)y * im.rowstride() + row_bytes,
                             im.rowstride() - row_bytes))
        << "row padding of row " << y;
  ASSERT_TRUE(im.guards_intact());
}

// --- SornFill ---------------------------------------------------------------

TEST(Fill, EveryTypeAndChannelCountWithRoisAndPaddedRows) {
  auto rng = sorn_test::seeded_rng(0xf1);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (int rep = 0; rep < 6; ++rep) {
        Image im(1 + rng() % 9, 1 + rng() % 37, ch, t, (int32_t)(rng() % 3) * 3);
        fill_random_bytes(rng, im.base(), im.bytes());
        const std::vector<uint8_t> before = im.bytes_copy();
        double v[4];
        for (double &x : v) x = random_fill_value(rng);
        SornVolume roi = make_roi(rng() % im.rows(), rng() % im.cols(), 1 + rng() % 10,
                                  1 + rng() % 40, ch);
        SornArray r = im.record();
        ASSERT_EQ(SornFill(nullptr, 0, &r, rep == 0 ? nullptr : &roi, v), SORN_OK);
        const SornVolume whole = make_roi(0, 0, im.rows(), im.cols(), ch);
        const SornVolume &used = rep == 0 ? whole : roi;
        const std::vector<uint8_t> px = fill_ref::pixel(t, v, ch);
        check_image(im, before, [&](int32_t y, int32_t x, int32_t c, const uint8_t *old, uint8_t *w) {
          const int32_t es = im.esize();
          if (in_roi(used, y, x)) std::memcpy(w, px.data() + (size_t)c * es, es);
          else std::memcpy(w, old, es);
        });
        if (HasFatalFailure()) return;
      }
}

TEST(Fill, NullValuesClearTheRegion) {
  Image im(4, 5, 2, SORN_S16, 4, 0x77);
  const std::vector<uint8_t> before = im.bytes_copy();
  SornArray r = im.record();
  SornVolume roi = make_roi(1, 1, 2, 3, 2);
  ASSERT_EQ(SornFill(nullptr, 0, &r, &roi, nullptr), SORN_OK);
  check_image(im, before, [&](int32_t y, int32_t x, int32_t, const uint8_t *old, uint8_t *w) {
    if (in_roi(roi, y, x)) std::memset(w, 0, 2);
    else std::memcpy(w, old, 2);
  });
}

TEST(Fill, U8TiesToEvenThenSaturate) {
  Image im(1, 2, 1, SORN_U8);
  SornArray r = im.record();
  double v = 255.5;
  ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 255);
  v = 254.5;
  ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 254);
}

TEST(Fill, S8AndU32Conversions) {
  Image s8(1, 3, 1, SORN_S8), u32(1, 3, 1, SORN_U32);
  SornArray r8 = s8.record(), r32 = u32.record();
  double v = -127.6;
  ASSERT_EQ(SornFill(nullptr, 0, &r8, nullptr, &v), SORN_OK);
  EXPECT_EQ(s8.at<int8_t>(0, 2), -128);
  v = 5e9;
  u32.at<uint32_t>(0, 0) = 7;
  ASSERT_EQ(SornFill(nullptr, 0, &r32, nullptr, &v), SORN_OK);
  EXPECT_EQ(u32.at<uint32_t>(0, 0), 0u);
}

TEST(Fill, ThreeChannelBytesKeepTheirPeriodAcrossAnOddStart) {
  // 8 pixels of 3 bytes from an odd address: the loop aligns its stores and
  // must not break the 12-byte pattern doing so.
  for (int32_t start = 0; start < 4; ++start) {
    Image im(2, 12, 3, SORN_U8, 1, 0);
    SornArray r = im.record();
    SornVolume roi = make_roi(0, start, 2, 8, 3);
    const double v[3] = {10, 20, 30};
    ASSERT_EQ(SornFill(nullptr, 0, &r, &roi, v), SORN_OK);
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 12; ++x)
        for (int32_t c = 0; c < 3; ++c)
          ASSERT_EQ(im.at<uint8_t>(y, x, c), (x >= start && x < start + 8) ? 10 * (c + 1) : 0)
              << start << ": " << y << "," << x << "," << c;
    ASSERT_TRUE(im.guards_intact());
  }
}

TEST(Fill, LongDenseRowsAndShortRows) {
  auto rng = sorn_test::seeded_rng(0xf2);
  for (int32_t cols : {1, 2, 3, 4, 5, 12, 13, 17, 33, 100, 257}) {
    for (int32_t ch = 1; ch <= 4; ++ch) {
      Image im(3, cols, ch, SORN_U8, cols % 2 ? 0 : 5);
      fill_random_bytes(rng, im.base(), im.bytes());
      const std::vector<uint8_t> before = im.bytes_copy();
      const double v[4] = {1, 2, 3, 4};
      SornArray r = im.record();
      ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, v), SORN_OK);
      check_image(im, before, [&](int32_t, int32_t, int32_t c, const uint8_t *, uint8_t *w) { *w = (uint8_t)(c + 1); });
      if (HasFatalFailure()) return;
    }
  }
}

TEST(Fill, SiteOffsetMovesTheRegion) {
  Image big(6, 8, 1, SORN_S32, 4, 0);
  SornArray r = big.record();
  r.dims[1] = 2;
  r.dims[2] = 3;
  r.offset = 3 * big.rowstride() + 4 * 4;
  const double v = -9;
  ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_OK);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x)
      ASSERT_EQ(big.at<int32_t>(y, x), (y >= 3 && y < 5 && x >= 4 && x < 7) ? -9 : 0) << y << "," << x;
}

// --- the failure table ------------------------------------------------------

TEST(FillFailures, BadRecordsAreInvalidAndEmptyRegionsHaveNoSpace) {
  Image im(3, 4, 1, SORN_U8, 0, 0x55);
  const std::vector<uint8_t> before = im.bytes_copy();
  const double v = 1;
  EXPECT_EQ(SornFill(nullptr, 0, nullptr, nullptr, &v), SORN_EINVAL);
  SornArray r = im.record();
  r.ndims = 2;
  EXPECT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_EINVAL);
  r.ndims = 5;
  EXPECT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_EINVAL);
  r = im.record();
  r.dims[0] = 0;
  EXPECT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_EINVAL);
  r = im.record();
  r.dims[3] = 0;
  EXPECT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_EINVAL);
  r.dims[3] = 12;  // five channels
  EXPECT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_EINVAL);
  SornVolume out = make_roi(3, 0, 1, 1, 1), none = make_roi(0, 0, 2, 0, 1);
  r = im.record();
  EXPECT_EQ(SornFill(nullptr, 0, &r, &out, &v), SORN_ENOSPC);
  EXPECT_EQ(SornFill(nullptr, 0, &r, &none, &v), SORN_ENOSPC);
  r.dims[3] = 0;
  EXPECT_EQ(SornFill(nullptr, 0, &r, &out, &v), SORN_EINVAL) << "a bad record before an empty region";
  EXPECT_EQ(im.bytes_copy(), before);
  EXPECT_TRUE(im.guards_intact());
}

// --- 4-dimensional arrays ---------------------------------------------------

struct Volume4 {
  int32_t planes, rows, cols, ch, es, rowstride, planestride;
  Guarded buf;
  Volume4(int32_t p, int32_t r, int32_t c, int32_t k, uint32_t t, int32_t rowpad, int32_t planepad)
      : planes(p), rows(r), cols(c), ch(k), es(SORN_ELEMSIZE(t)),
        rowstride(c * k * SORN_ELEMSIZE(t) + rowpad), planestride(r * rowstride + planepad),
        buf((size_t)p * (size_t)planestride, 0x3c), type(t) {}
  uint32_t type;
  SornArray record() { return make_record4(buf.data(), planes, rows, cols, ch, type, planestride, rowstride); }
  uint8_t *at(int32_t z, int32_t y, int32_t x, int32_t c) {
    return buf.data() + (size_t)z * planestride + (size_t)y * rowstride + ((size_t)x * ch + c) * es;
  }
};

TEST(Fill4D, DensePlanesAreFilledAsOneRunForEveryTypeAndChannelCount) {
  auto rng = sorn_test::seeded_rng(0xf4);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch) {
      Volume4 vol(3, 4, 5, ch, t, 0, 0);
      SornArray r = vol.record();
      double v[4];
      for (double &x : v) x = random_fill_value(rng);
      // Whole rows of planes 1 and 2: the planes follow each other densely.
      SornVolume roi = make_roi(0, 0, 4, 5, ch, 1, 2);
      ASSERT_EQ(SornFill(nullptr, 0, &r, &roi, v), SORN_OK);
      const std::vector<uint8_t> px = fill_ref::pixel(t, v, ch);
      for (int32_t z = 0; z < 3; ++z)
        for (int32_t y = 0; y < 4; ++y)
          for (int32_t x = 0; x < 5; ++x)
            for (int32_t c = 0; c < ch; ++c) {
              const bool in = z >= 1;
              const uint8_t *e = vol.at(z, y, x, c);
              for (int32_t b = 0; b < vol.es; ++b)
                ASSERT_EQ(e[b], in ? px[c * vol.es + b] : 0x3c)
                    << sorn_test::type_name(t) << " x" << ch << " at " << z << "," << y << "," << x;
            }
      ASSERT_TRUE(vol.buf.guards_intact());
    }
}

TEST(Fill4D, WholeDenseVolumeAndPaddedRows) {
  Volume4 vol(2, 3, 4, 2, SORN_S16, 6, 0);  // rows padded: planes still follow rows
  SornArray r = vol.record();
  const double v[2] = {-5, 7};
  ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, v), SORN_OK);
  for (int32_t z = 0; z < 2; ++z)
    for (int32_t y = 0; y < 3; ++y) {
      for (int32_t x = 0; x < 4; ++x) {
        int16_t a, b;
        std::memcpy(&a, vol.at(z, y, x, 0), 2);
        std::memcpy(&b, vol.at(z, y, x, 1), 2);
        ASSERT_EQ(a, -5);
        ASSERT_EQ(b, 7);
      }
      for (int32_t k = 0; k < 6; ++k) ASSERT_EQ(vol.at(z, y, 0, 0)[16 + k], 0x3c) << "row padding";
    }
  ASSERT_TRUE(vol.buf.guards_intact());
}

TEST(Fill4D, PlanesWithAGapAreNotMergedAndOnlyTheFirstIsWorked) {
  // The frame cannot merge planes that are not a whole multiple of their
  // content; the layers below see the first plane alone.
  Volume4 vol(3, 2, 4, 1, SORN_U8, 0, 8);
  SornArray r = vol.record();
  const double v = 9;
  ASSERT_EQ(SornFill(nullptr, 0, &r, nullptr, &v), SORN_OK);
  for (int32_t z = 0; z < 3; ++z)
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 4; ++x) ASSERT_EQ(*vol.at(z, y, x, 0), z == 0 ? 9 : 0x3c);
}

TEST(Fill4D, ARectangleInsideThePlanesIsWorkedOnItsFirstPlaneOnly) {
  // Rows of a smaller rectangle leave a gap from plane to plane: no merge,
  // one callback, and the layers below work the first plane of the region.
  Volume4 vol(3, 4, 5, 1, SORN_U8, 0, 0);
  SornArray r = vol.record();
  SornVolume roi = make_roi(1, 1, 2, 3, 1, 1, 2);
  const double v = 9;
  ASSERT_EQ(SornFill(nullptr, 0, &r, &roi, &v), SORN_OK);
  for (int32_t z = 0; z < 3; ++z)
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < 5; ++x) {
        const bool in = z == 1 && y >= 1 && y < 3 && x >= 1 && x < 4;
        ASSERT_EQ(*vol.at(z, y, x, 0), in ? 9 : 0x3c) << z << "," << y << "," << x;
      }
}

TEST(Fill4D, EmptyRegionHasNoSpace) {
  Volume4 vol(2, 2, 2, 1, SORN_U8, 0, 0);
  SornArray r = vol.record();
  SornVolume roi = make_roi(0, 0, 2, 2, 1, 2, 1);
  const double v = 9;
  EXPECT_EQ(SornFill(nullptr, 0, &r, &roi, &v), SORN_ENOSPC);
  for (int32_t z = 0; z < 2; ++z) EXPECT_EQ(*vol.at(z, 1, 1, 0), 0x3c);
}

// --- masks ------------------------------------------------------------------

// Mask bytes: mostly 0 and 255, with other values that only the element
// mask tells apart.
void random_mask(std::mt19937_64 &rng, Image &m) {
  static const uint8_t pick[] = {0, 0, 255, 255, 1, 0x80, 0x7f, 0xfe};
  for (int32_t y = 0; y < m.rows(); ++y)
    for (int32_t x = 0; x < m.cols(); ++x)
      for (int32_t c = 0; c < m.channels(); ++c) m.at<uint8_t>(y, x, c) = pick[rng() % 8];
}

// The element mask rule on bytes: the mask byte sign-extended to the width.
void blend(const uint8_t *v1, const uint8_t *v2, uint8_t m, int32_t es, uint8_t *out) {
  uint8_t mm[4];
  mm[0] = m;
  for (int32_t b = 1; b < es; ++b) mm[b] = (m & 0x80) ? 0xff : 0x00;
  for (int32_t b = 0; b < es; ++b) out[b] = (uint8_t)((mm[b] & v1[b]) | (~mm[b] & v2[b]));
}

enum class Form { Pixel, ElementOneChannel, ElementFull };

// One masked fill through the entry against the rules, for one value or two.
void check_masked(std::mt19937_64 &rng, uint32_t t, int32_t ch, Form form, bool inverse, bool two,
                  int nulls) {
  const int32_t mch = form == Form::ElementFull ? ch : 1;
  Image im(1 + rng() % 6, 1 + rng() % 21, ch, t, (int32_t)(rng() % 2) * 4);
  Image mask(1 + rng() % 7, 1 + rng() % 23, mch, SORN_U8, (int32_t)(rng() % 2) * 3);
  fill_random_bytes(rng, im.base(), im.bytes());
  random_mask(rng, mask);
  const std::vector<uint8_t> before = im.bytes_copy();
  double v1[4], v2[4];
  for (int k = 0; k < 4; ++k) {
    v1[k] = random_fill_value(rng);
    v2[k] = random_fill_value(rng);
  }
  const double *f1 = (nulls & 1) ? nullptr : v1;
  const double *f2 = (nulls & 2) ? nullptr : v2;
  SornVolume dr = make_roi(rng() % im.rows(), rng() % im.cols(), 1 + rng() % 8, 1 + rng() % 25, ch);
  SornVolume ms = make_roi(rng() % mask.rows(), rng() % mask.cols(), 0, 0, mch);
  SornFlags flags = (inverse ? SORN_F_INVMASK : 0) |
                    (form == Form::ElementOneChannel ? SORN_F_ELEMMASK : 0);
  SornArray rd = im.record(), rm = mask.record();
  const SornStatus st = two ? SornFillEx2(nullptr, flags, &rd, &rm, &dr, &ms, f1, f2)
                            : SornFillEx(nullptr, flags, &rd, &rm, &dr, &ms, f1);
  ASSERT_EQ(st, SORN_OK);

  // The region both agree on, from the rules of negotiation.
  const int32_t oy = dr.origin[1], ox = dr.origin[2];
  const int32_t rows = std::min({dr.size[1], im.rows() - oy, mask.rows() - ms.origin[1]});
  const int32_t cols = std::min({dr.size[2], im.cols() - ox, mask.cols() - ms.origin[2]});
  const int32_t es = im.esize();

  // What the two-valued form makes of its values.
  bool single = !two;
  bool inv = inverse;
  const double *a = f1, *b = f2;
  double hi[4], lo[4];
  if (two) {
    if ((f1 == nullptr) != (f2 == nullptr)) {
      single = true;
      if (f1 == nullptr) {
        inv = !inv;
        a = f2;
      }
    } else if (f1 == nullptr) {
      ASSERT_EQ(sorn_defillvals(t, hi, lo, ch), SORN_OK);
      a = hi;
      b = lo;
    }
  }
  const std::vector<uint8_t> p1 = fill_ref::pixel(t, a, ch);
  const std::vector<uint8_t> p2 = fill_ref::pixel(t, single ? a : b, ch);
  const uint8_t skip = inv ? 255 : 0;

  check_image(im, before, [&](int32_t y, int32_t x, int32_t c, const uint8_t *old, uint8_t *w) {
    std::memcpy(w, old, es);
    const int32_t ry = y - oy, rx = x - ox;
    if (ry < 0 || ry >= rows || rx < 0 || rx >= cols) return;
    const uint8_t m = mask.at<uint8_t>(ms.origin[1] + ry, ms.origin[2] + rx, mch == 1 ? 0 : c);
    const uint8_t *e1 = p1.data() + (size_t)c * es, *e2 = p2.data() + (size_t)c * es;
    if (form == Form::Pixel) {
      if (single) {
        if (m != skip) std::memcpy(w, e1, es);
      } else {
        const bool first = inv ? m == 0 : m != 0;
        std::memcpy(w, first ? e1 : e2, es);
      }
    } else {
      if (single) {
        if (!inv) blend(e1, old, m, es, w);
        else blend(old, e1, m, es, w);
      } else {
        if (!inv) blend(e1, e2, m, es, w);
        else blend(e2, e1, m, es, w);
      }
    }
  });
}

TEST(FillEx, PixelMaskEveryTypeAndChannelCount) {
  auto rng = sorn_test::seeded_rng(0xf5);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (bool inverse : {false, true})
        for (int rep = 0; rep < 3; ++rep) {
          check_masked(rng, t, ch, Form::Pixel, inverse, false, 0);
          if (HasFatalFailure()) return;
        }
}

TEST(FillEx, ElementMaskFromOneChannelWithTheFlag) {
  auto rng = sorn_test::seeded_rng(0xf6);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (bool inverse : {false, true})
        for (int rep = 0; rep < 3; ++rep) {
          check_masked(rng, t, ch, Form::ElementOneChannel, inverse, false, 0);
          if (HasFatalFailure()) return;
        }
}

TEST(FillEx, ElementMaskWithAByteForEveryChannel) {
  auto rng = sorn_test::seeded_rng(0xf7);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 2; ch <= 4; ++ch)
      for (bool inverse : {false, true})
        for (int rep = 0; rep < 3; ++rep) {
          check_masked(rng, t, ch, Form::ElementFull, inverse, false, 0);
          if (HasFatalFailure()) return;
        }
}

TEST(FillEx, ElementMaskByteOfOneTakesOnlyTheLowestBit) {
  Image im(1, 2, 1, SORN_U8, 0, 0xf0), mask(1, 2, 1, SORN_U8);
  mask.at<uint8_t>(0, 0) = 1;
  mask.at<uint8_t>(0, 1) = 0xff;
  SornArray rd = im.record(), rm = mask.record();
  const double v = 0x0f;
  ASSERT_EQ(SornFillEx(nullptr, SORN_F_ELEMMASK, &rd, &rm, nullptr, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 0xf1);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 0x0f);
  // Without the flag the same mask is a pixel mask: any byte but 0 selects.
  im.at<uint8_t>(0, 0) = 0xf0;
  ASSERT_EQ(SornFillEx(nullptr, 0, &rd, &rm, nullptr, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 0x0f);
}

TEST(FillEx, InverseMaskSkipsBytesOf255AndFillsZeros) {
  Image im(1, 3, 1, SORN_U8, 0, 7), mask(1, 3, 1, SORN_U8);
  mask.at<uint8_t>(0, 0) = 0;
  mask.at<uint8_t>(0, 1) = 255;
  mask.at<uint8_t>(0, 2) = 3;
  SornArray rd = im.record(), rm = mask.record();
  const double v = 50;
  ASSERT_EQ(SornFillEx(nullptr, SORN_F_INVMASK, &rd, &rm, nullptr, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 50);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 7);
  EXPECT_EQ(im.at<uint8_t>(0, 2), 50);
}

TEST(FillEx, NullMaskIsAPlainFill) {
  Image im(2, 3, 2, SORN_F32);
  SornArray rd = im.record();
  const double v[2] = {1.5, -2};
  ASSERT_EQ(SornFillEx(nullptr, 0, &rd, nullptr, nullptr, nullptr, v), SORN_OK);
  EXPECT_EQ(im.at<float>(1, 2, 1), -2.0f);
  ASSERT_EQ(SornFillEx2(nullptr, 0, &rd, nullptr, nullptr, nullptr, nullptr, v), SORN_OK);
  EXPECT_EQ(im.at<float>(1, 2, 1), 0.0f) << "the first value, null, clears";
}

TEST(FillEx2, TwoValuesEveryTypeBothMaskFormsAndEveryNullCase) {
  auto rng = sorn_test::seeded_rng(0xf8);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (int nulls = 0; nulls < 4; ++nulls)
        for (bool inverse : {false, true}) {
          check_masked(rng, t, ch, Form::Pixel, inverse, true, nulls);
          check_masked(rng, t, ch, Form::ElementOneChannel, inverse, true, nulls);
          if (ch > 1) check_masked(rng, t, ch, Form::ElementFull, inverse, true, nulls);
          if (HasFatalFailure()) return;
        }
}

TEST(FillEx2, FirstValueNullLeavesSelectedPixelsAlone) {
  Image im(1, 3, 1, SORN_U8, 0, 7), mask(1, 3, 1, SORN_U8);
  mask.at<uint8_t>(0, 1) = 255;
  SornArray rd = im.record(), rm = mask.record();
  const double v = 50;
  ASSERT_EQ(SornFillEx2(nullptr, 0, &rd, &rm, nullptr, nullptr, nullptr, &v), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 50);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 7);
  EXPECT_EQ(im.at<uint8_t>(0, 2), 50);
}

TEST(FillEx2, BothNullOnU8GivesTopAndBottom) {
  Image im(1, 3, 1, SORN_U8, 0, 7), mask(1, 3, 1, SORN_U8);
  mask.at<uint8_t>(0, 1) = 255;
  mask.at<uint8_t>(0, 2) = 1;
  SornArray rd = im.record(), rm = mask.record();
  ASSERT_EQ(SornFillEx2(nullptr, 0, &rd, &rm, nullptr, nullptr, nullptr, nullptr), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 0);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 255);
  EXPECT_EQ(im.at<uint8_t>(0, 2), 255);
  // With the inverse flag the values exchange.
  ASSERT_EQ(SornFillEx2(nullptr, SORN_F_INVMASK, &rd, &rm, nullptr, nullptr, nullptr, nullptr), SORN_OK);
  EXPECT_EQ(im.at<uint8_t>(0, 0), 255);
  EXPECT_EQ(im.at<uint8_t>(0, 1), 0);
}

TEST(FillExFailures, InTheirOrder) {
  Image im(3, 4, 2, SORN_U8, 0, 0x55), mask(3, 4, 1, SORN_U8, 0, 1);
  const std::vector<uint8_t> before = im.bytes_copy();
  const double v[2] = {1, 2};
  SornArray rd = im.record(), rm = mask.record();
  auto both = [&](const SornArray *d, const SornArray *m, const SornVolume *dr, const SornVolume *ms) {
    const SornStatus a = SornFillEx(nullptr, 0, d, m, dr, ms, v);
    const SornStatus b = SornFillEx2(nullptr, 0, d, m, dr, ms, v, v);
    EXPECT_EQ(a, b);
    return a;
  };
  EXPECT_EQ(both(nullptr, &rm, nullptr, nullptr), SORN_EINVAL);
  SornArray bad = rd;
  bad.dims[3] = 5;
  EXPECT_EQ(both(&bad, &rm, nullptr, nullptr), SORN_EINVAL);
  SornArray m2 = rm;
  m2.dims[3] = 3;  // neither one channel nor those of the image
  EXPECT_EQ(both(&rd, &m2, nullptr, nullptr), SORN_EINVAL);
  m2 = rm;
  m2.ndims = 4;  // more dimensions than the image
  EXPECT_EQ(both(&rd, &m2, nullptr, nullptr), SORN_EINVAL);
  m2 = rm;
  m2.dims[0] = 2;
  EXPECT_EQ(both(&rd, &m2, nullptr, nullptr), SORN_EINVAL);
  SornVolume out = make_roi(0, 4, 1, 1, 2), mout = make_roi(3, 0, 0, 0, 1);
  EXPECT_EQ(both(&rd, &rm, &out, nullptr), SORN_ENOSPC);
  EXPECT_EQ(both(&rd, &rm, nullptr, &mout), SORN_ENOSPC);
  m2 = rm;
  m2.elemtype = SORN_S8;
  EXPECT_EQ(both(&rd, &m2, nullptr, nullptr), SORN_EINVAL) << "a mask of another type";
  EXPECT_EQ(both(&rd, &m2, &out, nullptr), SORN_ENOSPC) << "the empty region is told first";
  EXPECT_EQ(im.bytes_copy(), before);
  EXPECT_TRUE(im.guards_intact());
  // A mask with the channels of the image is accepted.
  m2 = rm;
  m2.dims[3] = 2;
  m2.strides[2] = 2;
  m2.strides[1] = 8;
  Image full(3, 4, 2, SORN_U8);
  m2.data = full.base();
  EXPECT_EQ(both(&rd, &m2, nullptr, nullptr), SORN_OK);
}

TEST(FillEx4D, DenseVolumeAndMaskForEveryTypeAndChannelCountAndForm) {
  auto rng = sorn_test::seeded_rng(0xf9);
  for (uint32_t t : fill_ref::fill_types())
    for (int32_t ch = 1; ch <= 4; ++ch)
      for (int f = 0; f < 3; ++f) {
        const Form form = (Form)f;
        const int32_t mch = form == Form::ElementFull ? ch : 1;
        Volume4 vol(3, 3, 4, ch, t, 0, 0), mvol(3, 3, 4, mch, SORN_U8, 0, 0);
        for (int32_t z = 0; z < 3; ++z)
          for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 4; ++x)
              for (int32_t c = 0; c < mch; ++c) *mvol.at(z, y, x, c) = (rng() & 1) ? 0xff : 0;
        SornArray rd = vol.record(), rm = mvol.record();
        double v[4];
        for (double &x : v) x = random_fill_value(rng);
        const SornFlags flags = form == Form::ElementOneChannel ? SORN_F_ELEMMASK : 0;
        ASSERT_EQ(SornFillEx(nullptr, flags, &rd, &rm, nullptr, nullptr, v), SORN_OK);
        const std::vector<uint8_t> px = fill_ref::pixel(t, v, ch);
        for (int32_t z = 0; z < 3; ++z)
          for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 4; ++x)
              for (int32_t c = 0; c < ch; ++c) {
                const bool sel = *mvol.at(z, y, x, mch == 1 ? 0 : c) != 0;
                for (int32_t b = 0; b < vol.es; ++b)
                  ASSERT_EQ(vol.at(z, y, x, c)[b], sel ? px[c * vol.es + b] : 0x3c)
                      << sorn_test::type_name(t) << " x" << ch << " form " << f;
              }
        ASSERT_TRUE(vol.buf.guards_intact());
      }
}

TEST(FillEx4D, TwoValuesOnAVolumeWithAVolumeMask) {
  Volume4 vol(2, 2, 3, 1, SORN_S16, 0, 0), mvol(2, 2, 3, 1, SORN_U8, 0, 0);
  for (int32_t z = 0; z < 2; ++z)
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 3; ++x) *mvol.at(z, y, x, 0) = (uint8_t)((x + y + z) % 2);
  SornArray rd = vol.record(), rm = mvol.record();
  const double a = 1000, b = -1000;
  ASSERT_EQ(SornFillEx2(nullptr, 0, &rd, &rm, nullptr, nullptr, &a, &b), SORN_OK);
  for (int32_t z = 0; z < 2; ++z)
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 3; ++x) {
        int16_t e;
        std::memcpy(&e, vol.at(z, y, x, 0), 2);
        ASSERT_EQ(e, (x + y + z) % 2 ? 1000 : -1000);
      }
}

TEST(FillEx4D, ASinglePlaneMaskLimitsTheRegionToOnePlane) {
  // The mask offers one plane: the negotiated region has one plane.
  Volume4 vol(3, 2, 2, 1, SORN_U8, 0, 0);
  Image mask(2, 2, 1, SORN_U8, 0, 1);
  SornArray rd = vol.record(), rm = mask.record();
  const double v = 8;
  ASSERT_EQ(SornFillEx(nullptr, 0, &rd, &rm, nullptr, nullptr, &v), SORN_OK);
  for (int32_t z = 0; z < 3; ++z)
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < 2; ++x) ASSERT_EQ(*vol.at(z, y, x, 0), z == 0 ? 8 : 0x3c);
}

TEST(FillEx4D, MaskOfAnotherTypeIsRefusedByTheSliceCallback) {
  Volume4 vol(2, 2, 2, 1, SORN_U8, 0, 0), mvol(2, 2, 2, 1, SORN_S8, 0, 0);
  SornArray rd = vol.record(), rm = mvol.record();
  const double v = 8;
  EXPECT_EQ(SornFillEx(nullptr, 0, &rd, &rm, nullptr, nullptr, &v), SORN_EINVAL);
  EXPECT_EQ(*vol.at(1, 1, 1, 0), 0x3c);
}

}  // namespace

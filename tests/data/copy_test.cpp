// SornCopy and SornCopyEx: regions of every element type and channel count
// against a plain per-element reference, ROIs at non-zero origins, padded
// rows, guard bytes; both mask forms with their skip value and bits; four
// dimensions through the frame; and the failures, with nothing written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_record;
using sorn_test::make_record4;
using sorn_test::make_roi;

namespace {

const uint32_t kTypes[] = {SORN_U8,  SORN_S8,  SORN_U16, SORN_S16,
                           SORN_U32, SORN_S32, SORN_F32, SORN_F64};

void randomize(std::mt19937_64 &rng, Image &im) {
  for (size_t i = 0; i < im.bytes(); ++i) im.base()[i] = (uint8_t)rng();
}

const uint8_t *elem(const Image &im, const std::vector<uint8_t> &bytes, int32_t y, int32_t x,
                    int32_t c) {
  return bytes.data() + (size_t)y * im.rowstride() + ((size_t)x * im.channels() + c) * im.esize();
}

// The box a region and a start give, as the negotiation makes it: the
// first operand's region cut to its site, the second's from its start on,
// both of the smaller size.
struct Agreed {
  int32_t dy, dx, sy, sx, h, w;
};
Agreed agree(const Image &d, const SornVolume *droi, const Image &s, const SornVolume *ssite) {
  Agreed a;
  int32_t dh = d.rows(), dw = d.cols();
  a.dy = a.dx = 0;
  if (droi) {
    a.dy = std::max(droi->origin[1], 0);
    a.dx = std::max(droi->origin[2], 0);
    dh = std::min(droi->origin[1] + droi->size[1], d.rows()) - a.dy;
    dw = std::min(droi->origin[2] + droi->size[2], d.cols()) - a.dx;
  }
  const int32_t oy = ssite ? ssite->origin[1] : 0, ox = ssite ? ssite->origin[2] : 0;
  a.sy = std::max(oy, 0);
  a.sx = std::max(ox, 0);
  const int32_t sh = oy >= 0 ? s.rows() - oy : s.rows() + oy;
  const int32_t sw = ox >= 0 ? s.cols() - ox : s.cols() + ox;
  a.h = std::min(dh, sh);
  a.w = std::min(dw, sw);
  return a;
}

// ---------------------------------------------------------------- SornCopy

TEST(Copy, EveryTypeAndChannelCountWithRoisAndPaddedRows) {
  auto rng = sorn_test::seeded_rng(0xC091);
  for (int it = 0; it < 3000; ++it) {
    const uint32_t t = kTypes[rng() % 8];
    const int32_t ch = 1 + (int32_t)(rng() % 4), es = SORN_ELEMSIZE(t);
    Image dst(1 + rng() % 9, 1 + rng() % 20, ch, t, (int32_t)(rng() % 3) * es);
    Image src(1 + rng() % 9, 1 + rng() % 20, ch, t, (int32_t)(rng() % 3) * es);
    randomize(rng, dst);
    randomize(rng, src);
    const std::vector<uint8_t> before = dst.bytes_copy(), sb = src.bytes_copy();
    SornVolume roi = make_roi((int32_t)(rng() % 12) - 2, (int32_t)(rng() % 24) - 2,
                              (int32_t)(rng() % 12), (int32_t)(rng() % 24), ch);
    SornVolume site = make_roi((int32_t)(rng() % 12) - 2, (int32_t)(rng() % 24) - 2, 0, 0, 0);
    const SornVolume *pr = rng() % 4 ? &roi : nullptr, *ps = rng() % 4 ? &site : nullptr;
    const Agreed a = agree(dst, pr, src, ps);
    SornArray d = dst.record(), s = src.record();
    const SornStatus st = SornCopy(nullptr, 0, &d, &s, pr, ps);
    const SornStatus want = a.h < 1 || a.w < 1 ? SORN_ENOSPC : SORN_OK;
    ASSERT_EQ(want, st) << it;
    ASSERT_TRUE(dst.guards_intact());
    ASSERT_EQ(sb, src.bytes_copy());
    for (int32_t y = 0; y < dst.rows(); ++y)
      for (int32_t x = 0; x < dst.cols(); ++x)
        for (int32_t c = 0; c < ch; ++c) {
          const bool in =
              want == SORN_OK && y >= a.dy && y < a.dy + a.h && x >= a.dx && x < a.dx + a.w;
          const uint8_t *w =
              in ? elem(src, sb, a.sy + y - a.dy, a.sx + x - a.dx, c) : elem(dst, before, y, x, c);
          ASSERT_EQ(0, std::memcmp(w, &dst.base()[elem(dst, before, y, x, c) - before.data()],
                                   (size_t)es))
              << it << " at " << y << "," << x << "," << c;
        }
    const size_t row_bytes = (size_t)dst.cols() * ch * es;
    for (int32_t y = 0; y < dst.rows(); ++y)
      ASSERT_EQ(0, std::memcmp(dst.base() + (size_t)y * dst.rowstride() + row_bytes,
                               before.data() + (size_t)y * dst.rowstride() + row_bytes,
                               dst.rowstride() - row_bytes));
  }
}

TEST(Copy, FourDimensionalDensePlanesAreCopiedWhole) {
  const int32_t P = 3, H = 4, W = 5;
  std::vector<int16_t> s(P * H * W), d(P * H * W, -1);
  for (size_t i = 0; i < s.size(); ++i) s[i] = (int16_t)(i * 3 - 50);
  SornArray rs = make_record4(s.data(), P, H, W, 1, SORN_S16, H * W * 2, W * 2);
  SornArray rd = make_record4(d.data(), P, H, W, 1, SORN_S16, H * W * 2, W * 2);
  ASSERT_EQ(SORN_OK, SornCopy(nullptr, 0, &rd, &rs, nullptr, nullptr));
  EXPECT_EQ(s, d);
}

TEST(Copy, FourDimensionalPlanesWithAGapCopyTheFirstPlaneOnly) {
  // Planes a row apart from each other can't be merged: the frame calls the
  // slice form once with all four cells, and the layers below work the
  // first plane.
  const int32_t P = 3, H = 2, W = 4;
  std::vector<uint8_t> s((P * (H + 1)) * W, 0), d((P * (H + 1)) * W, 0xEE);
  for (size_t i = 0; i < s.size(); ++i) s[i] = (uint8_t)(i + 1);
  SornArray rs = make_record4(s.data(), P, H, W, 1, SORN_U8, (H + 1) * W, W);
  SornArray rd = make_record4(d.data(), P, H, W, 1, SORN_U8, (H + 1) * W, W);
  ASSERT_EQ(SORN_OK, SornCopy(nullptr, 0, &rd, &rs, nullptr, nullptr));
  for (size_t i = 0; i < d.size(); ++i) EXPECT_EQ(i < (size_t)H * W ? s[i] : 0xEE, d[i]) << i;
}

TEST(Copy, ARegionWhoseChannelsBeginInsideThePixelMovesWholePixels) {
  // Channels 1 and 2 of two: the copy starts at the pixel all the same, and
  // nothing past the region's last pixel changes.
  Image src(3, 5, 2, SORN_U8, 1), dst(3, 5, 2, SORN_U8, 1, 0x77);
  for (size_t i = 0; i < src.bytes(); ++i) src.base()[i] = (uint8_t)i;
  SornArray d = dst.record(), s = src.record();
  SornVolume roi = make_roi(1, 1, 2, 40, 2);
  roi.origin[3] = 1;
  const SornVolume at = make_roi(1, 1, 2, 2, 2);
  ASSERT_EQ(SORN_OK, SornCopy(nullptr, 0, &d, &s, &roi, &at));
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int32_t c = 0; c < 2; ++c)
        EXPECT_EQ(y >= 1 && x >= 1 ? src.at<uint8_t>(y, x, c) : 0x77, dst.at<uint8_t>(y, x, c))
            << y << "," << x << "," << c;
  EXPECT_TRUE(dst.guards_intact());
  for (int32_t y = 0; y < 3; ++y) EXPECT_EQ(0x77, dst.base()[(size_t)y * dst.rowstride() + 10]);
}

TEST(CopyFailures, EveryRecordMismatchIsInvalidAndWritesNothing) {
  Image src(3, 4, 2, SORN_U8), dst(3, 4, 2, SORN_U8, 0, 0x33);
  const std::vector<uint8_t> before = dst.bytes_copy();
  SornArray s = src.record(), d = dst.record();
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &d, nullptr, nullptr, nullptr));
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, nullptr, &s, nullptr, nullptr));
  SornArray bad = s;
  bad.elemtype = SORN_S8;
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &d, &bad, nullptr, nullptr));
  bad = s;
  bad.dims[3] = 1;
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &d, &bad, nullptr, nullptr));
  bad = s;
  bad.ndims = 4;  // a deeper source under a 3-dimensional destination
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &d, &bad, nullptr, nullptr));
  SornArray bd = d;
  bd.ndims = 5;
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &bd, &s, nullptr, nullptr));
  bd = d;
  bd.dims[3] = 0;
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &bd, &s, nullptr, nullptr));
  // Planes: equal, or a single source plane.
  std::vector<uint8_t> buf(3 * 3 * 4 * 2);
  SornArray d4 = make_record4(buf.data(), 3, 3, 4, 2, SORN_U8, 24, 8);
  SornArray s4 = make_record4(buf.data(), 2, 3, 4, 2, SORN_U8, 24, 8);
  EXPECT_EQ(SORN_EINVAL, SornCopy(nullptr, 0, &d4, &s4, nullptr, nullptr));
  EXPECT_EQ(before, dst.bytes_copy());
  // Negotiation comes after the records: an empty region has no space.
  const SornVolume none = make_roi(0, 9, 1, 1, 2);
  EXPECT_EQ(SORN_ENOSPC, SornCopy(nullptr, 0, &d, &s, &none, nullptr));
  EXPECT_EQ(SORN_ENOSPC, SornCopy(nullptr, 0, &d, &s, nullptr, &none));
  // So is a region whose channels begin past the pixel's last one: it
  // keeps rows and columns, and not one element.
  SornVolume past_channels = make_roi(0, 0, 2, 3, 2);
  past_channels.origin[3] = 2;
  EXPECT_EQ(SORN_ENOSPC, SornCopy(nullptr, 0, &d, &s, &past_channels, nullptr));
  EXPECT_EQ(before, dst.bytes_copy());
}

// ---------------------------------------------------------------- SornCopyEx

// The element the masked copy leaves, by the rules of both forms.
void masked_element(uint32_t t, int32_t ch, int32_t mch, SornFlags flags, const uint8_t *mpx,
                    int32_t c, const uint8_t *s, const uint8_t *d, uint8_t *out) {
  const int32_t es = std::min(SORN_ELEMSIZE(t), 8);
  const bool pixel_form = mch == 1 && !(flags & SORN_F_ELEMMASK) && !(ch == 1 && es <= 2);
  if (pixel_form) {
    const uint8_t skip = (flags & SORN_F_INVMASK) ? 0xff : 0;
    std::memcpy(out, mpx[0] != skip ? s : d, (size_t)es);
    return;
  }
  const uint8_t m = mch == 1 ? mpx[0] : mpx[c];
  const uint8_t mb = (m & 0x80) ? 0xff : 0x00;  // the sign-extension
  for (int32_t k = 0; k < es; ++k) {
    const uint8_t mk = k == 0 ? m : mb;  // little-endian: the byte itself is lowest
    out[k] = (flags & SORN_F_INVMASK) ? (uint8_t)((~mk & s[k]) | (mk & d[k]))
                                      : (uint8_t)((mk & s[k]) | (~mk & d[k]));
  }
}

TEST(CopyEx, BothMaskFormsOverEveryTypeAndChannelCount) {
  auto rng = sorn_test::seeded_rng(0xC0E7);
  static const SornFlags flagsets[] = {0, SORN_F_ELEMMASK, SORN_F_INVMASK,
                                       SORN_F_ELEMMASK | SORN_F_INVMASK};
  for (int it = 0; it < 3000; ++it) {
    const uint32_t t = kTypes[rng() % 8];
    const int32_t ch = 1 + (int32_t)(rng() % 4), es = SORN_ELEMSIZE(t);
    const int32_t mch = rng() % 2 ? 1 : ch;
    const SornFlags flags = flagsets[rng() % 4];
    Image dst(1 + rng() % 7, 1 + rng() % 19, ch, t, (int32_t)(rng() % 3) * es);
    Image src(1 + rng() % 7, 1 + rng() % 19, ch, t, (int32_t)(rng() % 3) * es);
    Image mask(1 + rng() % 7, 1 + rng() % 19, mch, SORN_U8, (int32_t)(rng() % 3));
    randomize(rng, dst);
    randomize(rng, src);
    static const uint8_t bytes[] = {0, 255, 0x0f, 0x80, 0x7f, 0x01};
    for (size_t i = 0; i < mask.bytes(); ++i)
      mask.base()[i] = rng() % 3 ? bytes[rng() % 6] : (uint8_t)rng();
    const std::vector<uint8_t> before = dst.bytes_copy(), sb = src.bytes_copy(),
                               mb = mask.bytes_copy();
    SornVolume roi = make_roi((int32_t)(rng() % 8) - 1, (int32_t)(rng() % 20) - 1,
                              1 + (int32_t)(rng() % 8), 1 + (int32_t)(rng() % 20), ch);
    SornVolume site = make_roi((int32_t)(rng() % 4), (int32_t)(rng() % 6), 0, 0, 0);
    SornVolume msite = make_roi((int32_t)(rng() % 4), (int32_t)(rng() % 6), 0, 0, 0);
    Agreed a = agree(dst, &roi, src, &site);
    const int32_t mh = mask.rows() - msite.origin[1], mw = mask.cols() - msite.origin[2];
    const bool empty = a.h < 1 || a.w < 1 || mh < 1 || mw < 1;
    a.h = std::min(a.h, mh);
    a.w = std::min(a.w, mw);
    SornArray d = dst.record(), s = src.record(), m = mask.record();
    const SornStatus st = SornCopyEx(nullptr, flags, &d, &s, &m, &roi, &site, &msite);
    ASSERT_EQ(empty ? SORN_ENOSPC : SORN_OK, st) << it;
    ASSERT_TRUE(dst.guards_intact());
    ASSERT_EQ(mb, mask.bytes_copy());
    for (int32_t y = 0; y < dst.rows(); ++y)
      for (int32_t x = 0; x < dst.cols(); ++x)
        for (int32_t c = 0; c < ch; ++c) {
          const uint8_t *old = elem(dst, before, y, x, c);
          uint8_t want[16] = {};
          std::memcpy(want, old, (size_t)es);
          if (!empty && y >= a.dy && y < a.dy + a.h && x >= a.dx && x < a.dx + a.w) {
            const int32_t my = msite.origin[1] + y - a.dy, mx = msite.origin[2] + x - a.dx;
            const uint8_t *mpx = mb.data() + (size_t)my * mask.rowstride() + (size_t)mx * mch;
            masked_element(t, ch, mch, flags, mpx, c,
                           elem(src, sb, a.sy + y - a.dy, a.sx + x - a.dx, c), old, want);
          }
          ASSERT_EQ(0, std::memcmp(want, dst.base() + (old - before.data()), (size_t)es))
              << it << " " << sorn_test::type_name(t) << "x" << ch << " mask x" << mch << " flags "
              << flags << " at " << y << "," << x << "," << c;
        }
  }
}

TEST(CopyEx, APixelMaskOnOneChannelBytesCopiesTheMaskedBitsOnly) {
  // A one-channel image of bytes hands the pixel mask to the element form:
  // a mask byte of 0x0F takes the low four bits of the source.
  Image src(1, 2, 1, SORN_U8, 0, 0xAB), dst(1, 2, 1, SORN_U8, 0, 0x54);
  Image mask(1, 2, 1, SORN_U8, 0, 0x0F);
  SornArray d = dst.record(), s = src.record(), m = mask.record();
  ASSERT_EQ(SORN_OK, SornCopyEx(nullptr, 0, &d, &s, &m, nullptr, nullptr, nullptr));
  EXPECT_EQ(0x5B, dst.at<uint8_t>(0, 0));
  EXPECT_EQ(0x5B, dst.at<uint8_t>(0, 1));
}

TEST(CopyEx, APixelMaskOnThreeChannelsCopiesWholePixels) {
  Image src(1, 2, 3, SORN_U8, 0, 0xAB), dst(1, 2, 3, SORN_U8, 0, 0x54);
  Image mask(1, 2, 1, SORN_U8, 0, 0x0F);
  mask.at<uint8_t>(0, 1) = 0;
  SornArray d = dst.record(), s = src.record(), m = mask.record();
  ASSERT_EQ(SORN_OK, SornCopyEx(nullptr, 0, &d, &s, &m, nullptr, nullptr, nullptr));
  for (int32_t c = 0; c < 3; ++c) {
    EXPECT_EQ(0xAB, dst.at<uint8_t>(0, 0, c));
    EXPECT_EQ(0x54, dst.at<uint8_t>(0, 1, c));
  }
}

TEST(CopyEx, TheInverseMaskOnSixteenBitsTakesTheBitsTheExtendedByteLacks) {
  // 0x80 sign-extends to 0xFF80; inverted, the low seven bits come from the
  // source.
  Image src(1, 1, 1, SORN_U16), dst(1, 1, 1, SORN_U16), mask(1, 1, 1, SORN_U8, 0, 0x80);
  src.at<uint16_t>(0, 0) = 0x1234;
  dst.at<uint16_t>(0, 0) = 0xABCD;
  SornArray d = dst.record(), s = src.record(), m = mask.record();
  ASSERT_EQ(SORN_OK, SornCopyEx(nullptr, SORN_F_INVMASK, &d, &s, &m, nullptr, nullptr, nullptr));
  EXPECT_EQ((0xABCD & 0xFF80) | (0x1234 & 0x007F), dst.at<uint16_t>(0, 0));
}

TEST(CopyEx, ANullMaskIsAPlainCopy) {
  Image src(2, 3, 1, SORN_F32, 0, 0x11), dst(2, 3, 1, SORN_F32, 0, 0x22);
  SornArray d = dst.record(), s = src.record();
  ASSERT_EQ(SORN_OK, SornCopyEx(nullptr, 0, &d, &s, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(src.bytes_copy(), dst.bytes_copy());
}

TEST(CopyExFailures, MaskMismatchesAreInvalidAndWriteNothing) {
  Image src(3, 4, 3, SORN_U8), dst(3, 4, 3, SORN_U8, 0, 0x33), mask(3, 4, 1, SORN_U8, 0, 255);
  const std::vector<uint8_t> before = dst.bytes_copy();
  SornArray s = src.record(), d = dst.record(), m = mask.record();
  SornArray bad = m;
  bad.dims[3] = 2;  // neither one channel nor the image's three
  EXPECT_EQ(SORN_EINVAL, SornCopyEx(nullptr, 0, &d, &s, &bad, nullptr, nullptr, nullptr));
  bad = m;
  bad.elemtype = SORN_S8;
  EXPECT_EQ(SORN_EINVAL, SornCopyEx(nullptr, 0, &d, &s, &bad, nullptr, nullptr, nullptr));
  bad = m;
  bad.ndims = 4;
  EXPECT_EQ(SORN_EINVAL, SornCopyEx(nullptr, 0, &d, &s, &bad, nullptr, nullptr, nullptr));
  EXPECT_EQ(SORN_EINVAL, SornCopyEx(nullptr, 0, &d, nullptr, &m, nullptr, nullptr, nullptr));
  EXPECT_EQ(before, dst.bytes_copy());
  // An empty box comes before the mask's element type.
  const SornVolume past = make_roi(5, 0, 0, 0, 0);
  bad = m;
  bad.elemtype = SORN_U16;
  EXPECT_EQ(SORN_ENOSPC, SornCopyEx(nullptr, 0, &d, &s, &bad, nullptr, nullptr, &past));
  EXPECT_EQ(SORN_ENOSPC, SornCopyEx(nullptr, 0, &d, &s, &m, &past, nullptr, nullptr));
  SornVolume past_channels = make_roi(0, 0, 3, 4, 3);
  past_channels.origin[3] = 3;
  EXPECT_EQ(SORN_ENOSPC, SornCopyEx(nullptr, 0, &d, &s, &m, &past_channels, nullptr, nullptr));
  EXPECT_EQ(before, dst.bytes_copy());
}

TEST(CopyExFailures, ElementMasksOfOtherElementSizesAreInvalid) {
  // The element form serves element strides of 1, 2, 4 and 8 bytes.
  uint8_t d[12] = {}, s[12] = {}, m[4] = {255, 255, 255, 255};
  const int32_t dims[3] = {1, 4, 1}, strides[3] = {12, 3, 3}, ms[3] = {4, 1, 0};
  EXPECT_EQ(SORN_EINVAL, _T_sorna__copyem(nullptr, 0, 3, dims, d, strides, s, strides, m, ms));
  EXPECT_EQ(SORN_EINVAL, _T_sorna__copyemc(nullptr, 0, 3, dims, d, strides, s, strides, m, ms));
  // The pixel form counts one to four channels.
  const int32_t dims5[3] = {1, 2, 5}, strides5[3] = {10, 5, 1};
  EXPECT_EQ(SORN_EINVAL, sorna__copyxm(nullptr, 0, SORN_DIMPACK(3), dims5, SORN_U8, d, strides5, s,
                                       strides5, m, ms));
}

}  // namespace

// Separable and Gaussian filters against a plain double loop over the taps,
// written here: every type and channel word of the table, kernels of 1 to
// 31 taps, anchors anywhere, windows larger than the image, regions inside
// larger sources whose real pixels are read, padded rows, guard bytes, in
// place; two-pass windows rounded to the element type in between; three
// and four channels walking neighbouring elements. Gaussian coefficients
// against their formula, the sigma rule, the failures and the scratch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "alloc_failure.h"
#include "filter_reference.h"
#include "testkit.h"

using filter_ref::Grid;
using sorn_test::Image;
using sorn_test::make_roi;
using sorn_test::ScratchEnv;

namespace {

constexpr int32_t kMaxTaps = 31;

// The rounding of a sum into the element type: to nearest even; what does
// not fit 32 bits (NaN too) is 0x80000000; u8 and s16 then clamp.
template <class T> T rounded(double v) {
  if constexpr (std::is_same_v<T, float>) {
    return (float)v;
  } else {
    const double r = std::nearbyint(v);
    int64_t i = (r >= -2147483648.0 && r < 2147483648.0) ? (int64_t)r : INT32_MIN;
    if (sizeof(T) == 1) i = std::clamp<int64_t>(i, 0, 255);
    if (sizeof(T) == 2) i = std::clamp<int64_t>(i, -32768, 32767);
    return (T)i;
  }
}

// Reads a T at (row, column) relative to some origin.
template <class T> struct Reader {
  std::function<T(int32_t, int32_t)> f;
  T at(int32_t y, int32_t x) const { return f(y, x); }
};
template <class T> Reader<T> shifted(const Reader<T> &r, int32_t dy, int32_t dx) {
  return {[r, dy, dx](int32_t y, int32_t x) { return r.at(y + dy, x + dx); }};
}
// A grid read with its indices held inside it: the box's running sums
// read one row past their last output, whose value is never used.
template <class T> Reader<T> of_grid(const Grid<T> &g) {
  return {[&g](int32_t y, int32_t x) {
    return g.at(std::clamp(y, 0, g.rows - 1), std::clamp(x, 0, g.cols - 1));
  }};
}

// One pass: output (y, x) is the sum over t of k[t] * s(y, x - a + t)
// along rows, or of k[t] * s(y - a + t, x) down columns, left to right in
// f64; a null kernel is the box along that axis.
template <class T>
Grid<T> pass(const Reader<T> &s, int32_t rows, int32_t cols, int32_t taps, int32_t a,
             const double *k, bool along_rows) {
  if (k == nullptr)
    return along_rows ? filter_ref::box(s, rows, cols, taps, 1, a, 0)
                      : filter_ref::box(s, rows, cols, 1, taps, 0, a);
  Grid<T> o(rows, cols);
  auto in = [&](int32_t y, int32_t x, int32_t t) {
    return (double)(along_rows ? s.at(y, x - a + t) : s.at(y - a + t, x));
  };
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      double acc = k[0] * in(y, x, 0);
      for (int32_t t = 1; t < taps; ++t) acc += k[t] * in(y, x, t);
      o.at(y, x) = rounded<T>(acc);
    }
  return o;
}

// The whole filter of a normalised window: one pass for one row or one
// column, else two through a grid of T, along rows first when
// w - 1 >= 2h.
template <class T>
Grid<T> separable(const Reader<T> &s, int32_t rows, int32_t cols, int32_t w, int32_t h,
                  int32_t ax, int32_t ay, const double *kcol, const double *krow) {
  if (w == 1 && h == 1) {
    Grid<T> o(rows, cols);
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) o.at(y, x) = s.at(y, x);
    return o;
  }
  if (h == 1) return pass(s, rows, cols, w, ax, krow, true);
  if (w == 1) return pass(s, rows, cols, h, ay, kcol, false);
  if (w - 1 >= 2 * h) {
    const Grid<T> mid = pass(shifted(s, -ay, 0), rows + h - 1, cols, w, ax, krow, true);
    return pass(shifted(of_grid(mid), ay, 0), rows, cols, h, ay, kcol, false);
  }
  const Grid<T> mid = pass(shifted(s, 0, -ax), rows, cols + w - 1, h, ay, kcol, false);
  return pass(shifted(of_grid(mid), 0, ax), rows, cols, w, ax, krow, true);
}

// The Gaussian kernel of one axis, from its formula.
std::vector<double> bell(int32_t anchor, int32_t size, double sigma) {
  std::vector<double> k((size_t)size);
  double sum = 0;
  for (int32_t t = 0; t < size; ++t) {
    const int32_t d = anchor - t;
    k[(size_t)t] = std::exp(-(double)(d * d) / ((sigma + sigma) * sigma));
    sum += k[(size_t)t];
  }
  for (double &v : k) v /= sum;
  return k;
}
double sigma_of(int32_t size) { return ((size - 1) * 0.5 - 1.0) * 0.3 + 0.8; }

SornSepShape sep_shape(int32_t w, int32_t h, int32_t ax, int32_t ay, const double *kcol,
                       const double *krow) {
  SornSepShape sep;
  std::memset(&sep, 0, sizeof sep);
  sep.size[0] = 1;
  sep.size[1] = h;
  sep.size[2] = w;
  sep.anchor[1] = ay;
  sep.anchor[2] = ax;
  sep.kernels[0] = kcol;
  sep.kernels[1] = krow;
  return sep;
}
SornSeShape se_shape(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

template <class T> T random_of(std::mt19937_64 &rng, uint32_t type) {
  if constexpr (std::is_same_v<T, float>) {
    std::uniform_real_distribution<float> d(-1000.f, 1000.f);
    return rng() % 4 == 0 ? std::round(d(rng)) : d(rng);
  } else {
    return (T)sorn_test::random_value(rng, type, true);
  }
}

// Taps: mostly the unrolled sizes and small ones, any up to 31 now and then.
int32_t random_taps(std::mt19937_64 &rng) {
  static const int32_t common[] = {1, 1, 2, 3, 3, 3, 4, 5, 5, 5, 7, 9};
  if (rng() % 4 == 0) return 1 + (int32_t)(rng() % kMaxTaps);
  return common[rng() % (sizeof common / sizeof common[0])];
}

void random_kernel(std::mt19937_64 &rng, std::vector<double> &k) {
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  const int mode = (int)(rng() % 4);
  double sum = 0;
  for (double &v : k) {
    v = mode == 0 ? std::fabs(d(rng)) : d(rng);
    if (mode == 3) v *= 1000.0;
    sum += v;
  }
  if (mode == 0)
    for (double &v : k) v /= sum;
}

// One random call of SornSepFilter, or of SornGaussianFilter with the
// kernels of its formula, against the reference.
template <class T> void random_call(std::mt19937_64 &rng, bool gaussian, int it) {
  ScratchEnv env;
  const uint32_t type = filter_ref::code_of<T>;
  static const int32_t kChannels[] = {1, 1, 1, 3, 4};
  const int32_t ch = kChannels[rng() % 5];
  const int32_t pr = 1 + (int32_t)(rng() % 20), pc = 1 + (int32_t)(rng() % 20);
  const int32_t sy = (int32_t)(rng() % pr), sx = (int32_t)(rng() % pc);
  const int32_t sh = 1 + (int32_t)(rng() % (pr - sy)), sw = 1 + (int32_t)(rng() % (pc - sx));
  Image parent(pr, pc, ch, type, (int32_t)(rng() % 3) * (int32_t)sizeof(T));
  for (int32_t y = 0; y < pr; ++y)
    for (int32_t x = 0; x < pc; ++x)
      for (int32_t c = 0; c < ch; ++c) parent.at<T>(y, x, c) = random_of<T>(rng, type);
  SornArray src = parent.record();
  src.dims[1] = sh;
  src.dims[2] = sw;
  src.offset = (int64_t)sy * src.strides[1] + (int64_t)sx * src.strides[2];
  const bool in_place = rng() % 6 == 0;
  Image other(1 + (int32_t)(rng() % 22), 1 + (int32_t)(rng() % 22), ch, type,
              (int32_t)(rng() % 2) * (int32_t)sizeof(T));
  for (size_t i = 0; i < other.bytes(); ++i) other.base()[i] = (uint8_t)rng();
  Image &dimg = in_place ? parent : other;
  SornArray dst = in_place ? src : other.record();
  const int32_t drows = in_place ? sh : other.rows(), dcols = in_place ? sw : other.cols();
  const int32_t ry = (int32_t)(rng() % sh), rx = (int32_t)(rng() % sw);
  const SornVolume roi_s = make_roi(ry, rx, 0, 0, ch);
  const int32_t dy = in_place ? ry : (int32_t)(rng() % drows);
  const int32_t dx = in_place ? rx : (int32_t)(rng() % dcols);
  const SornVolume roi_d =
      make_roi(dy, dx, 1 + (int32_t)(rng() % drows), 1 + (int32_t)(rng() % dcols), ch);
  const int32_t rows = std::min({roi_d.size[1], drows - dy, sh - ry});
  const int32_t cols = std::min({roi_d.size[2], dcols - dx, sw - rx});

  int32_t w = random_taps(rng), h = random_taps(rng);
  int32_t ax = (int32_t)(rng() % w), ay = (int32_t)(rng() % h);
  if (rng() % 4 == 0) ax = rng() % 2 ? 0 : w - 1;
  if (rng() % 4 == 0) ay = rng() % 2 ? 0 : h - 1;
  std::vector<double> kcol(kMaxTaps), krow(kMaxTaps);
  random_kernel(rng, kcol);
  random_kernel(rng, krow);
  const bool null_col = !gaussian && ch == 1 && rng() % 6 == 0;
  const bool null_row = !gaussian && ch == 1 && rng() % 6 == 0;
  const SornSepShape sep = sep_shape(w, h, ax, ay, null_col ? nullptr : kcol.data(),
                                     null_row ? nullptr : krow.data());
  const SornSeShape se = se_shape(w, h, ax, ay);
  double sigmas[2] = {0, 0};
  const bool pass_sigmas = gaussian && rng() % 2 == 0;
  if (pass_sigmas && rng() % 3 != 0) {
    sigmas[rng() % 2] = 0.3 + (double)(rng() % 40) / 10.0;
    if (rng() % 2) sigmas[0] = 0.5 + (double)(rng() % 30) / 10.0;
  }
  if (w == 1 && h == 1) {  // normalised to 5 by 5
    w = h = 5;
    ax = ay = 2;
  }
  if (gaussian) {
    const bool given = pass_sigmas && (sigmas[0] != 0 || sigmas[1] != 0);
    const double s0 = !given ? sigma_of(h) : sigmas[0] != 0 ? sigmas[0] : sigmas[1];
    const double s1 = !given ? sigma_of(w) : sigmas[1] != 0 ? sigmas[1] : s0;
    const std::vector<double> a = bell(ay, h, s0), b = bell(ax, w, s1);
    std::copy(a.begin(), a.end(), kcol.begin());
    std::copy(b.begin(), b.end(), krow.begin());
  }
  static const SornFlags kFlagsets[] = {0, SORN_F_NOMARGIN, SORN_F_SITEMARGIN};
  const SornFlags flags = kFlagsets[rng() % 3];

  // What may be read around the region, in its coordinates.
  filter_ref::Box readable;
  if (flags & SORN_F_NOMARGIN)
    readable = {0, 0, rows, cols};
  else if (flags & SORN_F_SITEMARGIN)
    readable = {-ry, -rx, sh, sw};
  else
    readable = {-(sy + ry), -(sx + rx), pr, pc};
  const filter_ref::Box av =
      filter_ref::available({-ay, -ax, rows + h - 1, cols + w - 1}, readable);
  std::vector<Grid<T>> planes((size_t)ch);
  std::vector<filter_ref::Source<T>> chans;
  for (int32_t c = 0; c < ch; ++c) {
    planes[(size_t)c] = Grid<T>(pr, pc);
    for (int32_t y = 0; y < pr; ++y)
      for (int32_t x = 0; x < pc; ++x) planes[(size_t)c].at(y, x) = parent.at<T>(y, x, c);
  }
  for (int32_t c = 0; c < ch; ++c)
    chans.push_back({&planes[(size_t)c], sy + ry, sx + rx, av.y, av.x, av.h, av.w});
  // Element e of a row is channel e mod ch of pixel e / ch, rounded down.
  const Reader<T> s{[&](int32_t y, int32_t e) {
    const int32_t p = e >= 0 ? e / ch : -((-e + ch - 1) / ch);
    return chans[(size_t)(e - p * ch)].at(y, p);
  }};
  const bool refused = ch > 1 && (null_col || null_row);
  Grid<T> want;
  if (!refused)
    want = separable(s, rows, cols, w, h, ax, ay, sep.kernels[0] ? kcol.data() : nullptr,
                     sep.kernels[1] ? krow.data() : nullptr);

  const std::vector<uint8_t> before = dimg.bytes_copy();
  const std::vector<uint8_t> src_before = parent.bytes_copy();
  const SornStatus st =
      gaussian ? SornGaussianFilter(env.xe(), flags, &dst, in_place ? nullptr : &src, &roi_d,
                                    in_place ? nullptr : &roi_s, &se,
                                    pass_sigmas ? sigmas : nullptr)
               : SornSepFilter(env.xe(), flags, &dst, in_place ? nullptr : &src, &roi_d,
                               in_place ? nullptr : &roi_s, &sep);
  const std::string what = std::string(sorn_test::type_name(type)) + " case " +
                           std::to_string(it) + " window " + std::to_string(w) + "x" +
                           std::to_string(h) + " anchor " + std::to_string(ax) + "," +
                           std::to_string(ay) + " region " + std::to_string(rows) + "x" +
                           std::to_string(cols) + " flags " + std::to_string(flags) +
                           (in_place ? " in place" : "") + " channels " + std::to_string(ch) +
                           (null_col ? " no column kernel" : "") +
                           (null_row ? " no row kernel" : "");
  ASSERT_TRUE(env.at_mark()) << what;
  ASSERT_TRUE(dimg.guards_intact()) << what;
  if (refused) {
    ASSERT_EQ(SORN_ENOTSUP, st) << what;
    ASSERT_EQ(before, dimg.bytes_copy()) << what;
    return;
  }
  ASSERT_EQ(SORN_OK, st) << what;
  if (!in_place) {
    ASSERT_EQ(src_before, parent.bytes_copy()) << what;
  }
  // Only the first cols elements of each row of the region are written.
  const int32_t oy = in_place ? sy + dy : dy, ox = (in_place ? sx + dx : dx) * ch;
  const int32_t es = (int32_t)sizeof(T);
  for (int32_t y = 0; y < dimg.rows(); ++y)
    for (int32_t e = 0; e < dimg.cols() * ch; ++e) {
      const size_t off = (size_t)y * dimg.rowstride() + (size_t)e * es;
      const bool in = y >= oy && y < oy + rows && e >= ox && e < ox + cols;
      if (!in) {
        ASSERT_EQ(0, std::memcmp(before.data() + off, dimg.base() + off, (size_t)es))
            << what << " wrote outside at " << y << "," << e;
        continue;
      }
      T got;
      std::memcpy(&got, dimg.base() + off, sizeof got);
      const T exp = want.at(y - oy, e - ox);
      ASSERT_EQ(0, std::memcmp(&exp, &got, sizeof got))
          << what << " at " << y - oy << "," << e - ox << ": " << +exp << " != " << +got;
    }
}

template <class T> void random_calls(uint64_t seed, bool gaussian, int count) {
  auto rng = sorn_test::seeded_rng(seed);
  for (int it = 0; it < count; ++it) {
    random_call<T>(rng, gaussian, it);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

#define SEP_TYPE_TESTS(t)                                                               \
  TEST(SepFilter, MatchesTheDoubleLoopOverTheTaps_##t) {                                \
    random_calls<filter_ref::tok::t>(0x5E0 + SORN_TYPECODE(t), false, 600);             \
  }                                                                                     \
  TEST(GaussianFilter, MatchesTheDoubleLoopWithTheBellsOfItsFormula_##t) {              \
    random_calls<filter_ref::tok::t>(0x6A0 + SORN_TYPECODE(t), true, 300);              \
  }
SORN_FILTER_TYPES(SEP_TYPE_TESTS)
#undef SEP_TYPE_TESTS

// A whole u8 image through the filter, reflected about its edge pixels.
Grid<uint8_t> whole_reference(const Image &im, int32_t w, int32_t h, int32_t ax, int32_t ay,
                              const double *kcol, const double *krow) {
  Grid<uint8_t> plane(im.rows(), im.cols());
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) plane.at(y, x) = im.at<uint8_t>(y, x);
  const filter_ref::Source<uint8_t> src{&plane, 0, 0, 0, 0, im.rows(), im.cols()};
  const Reader<uint8_t> s{[src](int32_t y, int32_t x) { return src.at(y, x); }};
  return separable(s, im.rows(), im.cols(), w, h, ax, ay, kcol, krow);
}

Image random_u8(int32_t rows, int32_t cols, uint64_t seed) {
  auto rng = sorn_test::seeded_rng(seed);
  Image im(rows, cols, 1, SORN_U8);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) im.at<uint8_t>(y, x) = (uint8_t)rng();
  return im;
}

void expect_grid(const Grid<uint8_t> &want, const Image &got) {
  for (int32_t y = 0; y < got.rows(); ++y)
    for (int32_t x = 0; x < got.cols(); ++x)
      ASSERT_EQ(want.at(y, x), got.at<uint8_t>(y, x)) << y << "," << x;
}

}  // namespace

TEST(GaussianFilter, NoWindowAndNoSigmasIsFiveByFiveWithSigmaOnePointOne) {
  ScratchEnv env;
  Image src = random_u8(13, 17, 0x6A51), dst(13, 17, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, nullptr, nullptr));
  EXPECT_TRUE(env.at_mark());
  const std::vector<double> k = bell(2, 5, 1.1);
  expect_grid(whole_reference(src, 5, 5, 2, 2, k.data(), k.data()), dst);
}

TEST(GaussianFilter, SigmasOfZeroFollowTheSize) {
  ScratchEnv env;
  Image src = random_u8(9, 11, 0x6A52), a(9, 11, 1, SORN_U8), b(9, 11, 1, SORN_U8);
  SornArray s = src.record(), da = a.record(), db = b.record();
  const SornSeShape se = se_shape(7, 3, 3, 1);
  const double zeros[2] = {0, 0};
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &da, &s, nullptr, nullptr, &se, zeros));
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &db, &s, nullptr, nullptr, &se, nullptr));
  EXPECT_EQ(a.bytes_copy(), b.bytes_copy());
  const std::vector<double> kc = bell(1, 3, 0.8), kr = bell(3, 7, 1.4);
  expect_grid(whole_reference(src, 7, 3, 3, 1, kc.data(), kr.data()), a);
}

TEST(GaussianFilter, SigmaRuleFillsAxesNotGiven) {
  SornSeShape se = se_shape(5, 3, 2, 1);
  double out[3];
  const SornDimPack image = SORN_DIMPACK(3);
  sorn_adjustgaussigmas(image, out, &se, nullptr);
  EXPECT_EQ(sigma_of(3), out[0]);
  EXPECT_EQ(sigma_of(5), out[1]);
  EXPECT_DOUBLE_EQ(0.8, out[0]);
  EXPECT_DOUBLE_EQ(1.1, out[1]);
  se.size[2] = 1;
  sorn_adjustgaussigmas(image, out, &se, nullptr);
  EXPECT_DOUBLE_EQ(0.5, out[1]);
  const double a[2] = {0, 2.0}, b[2] = {3.0, 0}, z[2] = {0, 0};
  EXPECT_EQ(out, sorn_adjustgaussigmas(image, out, &se, a));
  EXPECT_EQ(2.0, out[0]);
  EXPECT_EQ(2.0, out[1]);
  sorn_adjustgaussigmas(image, out, &se, b);
  EXPECT_EQ(3.0, out[0]);
  EXPECT_EQ(3.0, out[1]);
  sorn_adjustgaussigmas(image, out, &se, z);
  EXPECT_EQ(sigma_of(3), out[0]);
  EXPECT_EQ(sigma_of(1), out[1]);
  const double n[2] = {0, std::nan("")};
  sorn_adjustgaussigmas(image, out, &se, n);
  EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]));
  // Three spatial axes: from cell 0 of the window on.
  SornSeShape deep = se_shape(5, 3, 2, 1);
  deep.size[0] = 7;
  const double c[3] = {0, 2.5, 0}, e[3] = {1.0, 0, 4.0};
  sorn_adjustgaussigmas(SORN_DIMPACK(4), out, &deep, nullptr);
  EXPECT_EQ(sigma_of(7), out[0]);
  EXPECT_EQ(sigma_of(3), out[1]);
  EXPECT_EQ(sigma_of(5), out[2]);
  sorn_adjustgaussigmas(SORN_DIMPACK(4), out, &deep, c);
  EXPECT_EQ(2.5, out[0]);
  EXPECT_EQ(2.5, out[1]);
  EXPECT_EQ(2.5, out[2]);
  sorn_adjustgaussigmas(SORN_DIMPACK(4), out, &deep, e);
  EXPECT_EQ(1.0, out[0]);
  EXPECT_EQ(1.0, out[1]);
  EXPECT_EQ(4.0, out[2]);
  // No spatial axis: nothing is written.
  out[0] = -7;
  sorn_adjustgaussigmas((SornDimPack)1, out, &se, a);
  EXPECT_EQ(-7, out[0]);
}

TEST(GaussianFilter, KernelsFollowTheirFormula) {
  for (int32_t size = 1; size <= kMaxTaps; ++size)
    for (int32_t anchor : {0, size / 2, size - 1, -3, size + 2})
      for (double sigma : {0.3, 0.8, 1.1, 2.5, 9.0}) {
        std::vector<double> got((size_t)size, -1.0);
        EXPECT_EQ(got.data(), sorn__computegauskernel1(got.data(), anchor, size, sigma));
        const std::vector<double> want = bell(anchor, size, sigma);
        for (int32_t t = 0; t < size; ++t)
          ASSERT_EQ(want[(size_t)t], got[(size_t)t]) << size << " " << anchor << " " << sigma;
      }
  double k[2] = {7, 8};
  sorn__computegauskernel1(k, 0, 0, 1.0);
  EXPECT_EQ(7, k[0]);
  double k0[3], k1[5];
  double *ks[2] = {k0, k1};
  const int32_t anchors[2] = {1, 2}, sizes[2] = {3, 5};
  const double sigmas[2] = {0.8, 1.7};
  sorn__computegauskernel(2, ks, anchors, sizes, sigmas);
  EXPECT_EQ(bell(1, 3, 0.8), std::vector<double>(k0, k0 + 3));
  EXPECT_EQ(bell(2, 5, 1.7), std::vector<double>(k1, k1 + 5));
}

TEST(GaussianFilter, AFlatImageComesBackUnchanged) {
  ScratchEnv env;
  for (int32_t size : {1, 3, 5, 7, 9, 15}) {
    for (int v : {0, 1, 77, 128, 254, 255}) {
      Image src(10, 12, 1, SORN_U8, 0, (uint8_t)v), dst(10, 12, 1, SORN_U8);
      SornArray d = dst.record(), s = src.record();
      const SornSeShape se = se_shape(size, size, size / 2, size / 2);
      ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr));
      EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), (uint8_t)v), dst.bytes_copy()) << size;
    }
  }
  // f32 up to the rounding of the f64 sum.
  Image src(8, 8, 1, SORN_F32), dst(8, 8, 1, SORN_F32);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 8; ++x) src.at<float>(y, x) = 3.25f;
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = se_shape(7, 7, 3, 3);
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr));
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 8; ++x) EXPECT_NEAR(3.25f, dst.at<float>(y, x), 1e-6);
}

TEST(GaussianFilter, AnAnchorAtTheStartShiftsTheImage) {
  double k[5];
  sorn__computegauskernel1(k, 0, 5, 1.1);
  for (int t = 1; t < 5; ++t) EXPECT_GT(k[t - 1], k[t]);
  // One bright column: with the bell at the window's first cell, the
  // output peaks at the column itself and spreads to the left only.
  ScratchEnv env;
  Image src(5, 21, 1, SORN_U8), dst(5, 21, 1, SORN_U8);
  for (int32_t y = 0; y < 5; ++y) src.at<uint8_t>(y, 10) = 200;
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = se_shape(5, 1, 0, 0);
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr));
  EXPECT_EQ(0, dst.at<uint8_t>(2, 11));
  EXPECT_GT(dst.at<uint8_t>(2, 10), dst.at<uint8_t>(2, 9));
  EXPECT_GT(dst.at<uint8_t>(2, 9), dst.at<uint8_t>(2, 8));
  EXPECT_GT(dst.at<uint8_t>(2, 7), 0);
}

TEST(SepFilter, BothKernelsNullIsABoxInTwoPassesRoundedBetween) {
  ScratchEnv env;
  Image src = random_u8(11, 14, 0x5E01), dst(11, 14, 1, SORN_U8), box(11, 14, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record(), b = box.record();
  const SornSepShape sep = sep_shape(3, 3, 1, 1, nullptr, nullptr);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep));
  expect_grid(whole_reference(src, 3, 3, 1, 1, nullptr, nullptr), dst);
  // Not the one-pass box: the column means are rounded before the rows.
  const SornSeShape se = se_shape(3, 3, 1, 1);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &b, &s, nullptr, nullptr, SORN_FILTER_BOX, &se));
  EXPECT_NE(box.bytes_copy(), dst.bytes_copy());
}

TEST(SepFilter, NoRecordIsTheFiveByFiveBox) {
  ScratchEnv env;
  Image src = random_u8(9, 10, 0x5E02), dst(9, 10, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, nullptr));
  expect_grid(whole_reference(src, 5, 5, 2, 2, nullptr, nullptr), dst);
}

TEST(SepFilter, AOneCellWindowBecomesFiveByFiveWithTheCallersKernels) {
  ScratchEnv env;
  Image src = random_u8(8, 9, 0x5E03), dst(8, 9, 1, SORN_U8);
  SornArray d = dst.record(), s = src.record();
  const double kc[5] = {0.1, 0.2, 0.4, 0.2, 0.1}, kr[5] = {0.5, 0.25, 0.125, 0.0625, 0.0625};
  const SornSepShape sep = sep_shape(1, 1, 0, 0, kc, kr);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep));
  expect_grid(whole_reference(src, 5, 5, 2, 2, kc, kr), dst);
}

TEST(SepFilter, CoefficientsAreNotReversed) {
  ScratchEnv env;
  Image src(1, 7, 1, SORN_S16), dst(1, 7, 1, SORN_S16);
  for (int32_t x = 0; x < 7; ++x) src.at<int16_t>(0, x) = (int16_t)(x * 10);
  SornArray d = dst.record(), s = src.record();
  const double k[3] = {1, 0, 0};  // the cell before the output
  const SornSepShape sep = sep_shape(3, 1, 1, 0, nullptr, k);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep));
  EXPECT_EQ(10, dst.at<int16_t>(0, 0));  // reflected: cell -1 is cell 1
  for (int32_t x = 1; x < 7; ++x) EXPECT_EQ((x - 1) * 10, dst.at<int16_t>(0, x)) << x;
}

TEST(SepFilter, ThirtyTwoBitSumsOutOfRangeGiveTheIndefiniteValue) {
  ScratchEnv env;
  Image src(3, 6, 1, SORN_S32), dst(3, 6, 1, SORN_S32);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 6; ++x) src.at<int32_t>(y, x) = 2000000000;
  SornArray d = dst.record(), s = src.record();
  for (int32_t w : {3, 5, 6}) {
    const double k[6] = {1, 1, 1, 1, 1, 1};
    const SornSepShape sep = sep_shape(w, 1, 1, 0, nullptr, k);
    ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep));
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(INT32_MIN, dst.at<int32_t>(1, x)) << w;
  }
  // u8 and s16 clamp what fits 32 bits.
  Image b(2, 4, 1, SORN_U8, 0, 200), bd(2, 4, 1, SORN_U8);
  SornArray bs = b.record(), bdr = bd.record();
  const double k2[3] = {1, 1, -0.25};
  const SornSepShape sep = sep_shape(3, 1, 1, 0, nullptr, k2);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &bdr, &bs, nullptr, nullptr, &sep));
  EXPECT_EQ(255, bd.at<uint8_t>(0, 0));
}

TEST(SepFilter, HalfwaySumsRoundToEven) {
  ScratchEnv env;
  Image src(1, 4, 1, SORN_U8), dst(1, 4, 1, SORN_U8);
  const uint8_t v[4] = {1, 2, 3, 4};
  for (int32_t x = 0; x < 4; ++x) src.at<uint8_t>(0, x) = v[x];
  SornArray d = dst.record(), s = src.record();
  const double k[3] = {0, 0.5, 0};
  const SornSepShape sep = sep_shape(3, 1, 1, 0, nullptr, k);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep));
  EXPECT_EQ(0, dst.at<uint8_t>(0, 0));  // 0.5
  EXPECT_EQ(1, dst.at<uint8_t>(0, 1));  // 1.0
  EXPECT_EQ(2, dst.at<uint8_t>(0, 2));  // 1.5
  EXPECT_EQ(2, dst.at<uint8_t>(0, 3));  // 2.0
}

TEST(SepFilter, FourChannelWordsWalkElementsAlike) {
  ScratchEnv env;
  Image src(6, 5, 4, SORN_F32), a(6, 5, 4, SORN_F32), b(6, 5, 4, SORN_F32);
  auto rng = sorn_test::seeded_rng(0x5E04);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int32_t c = 0; c < 4; ++c) src.at<float>(y, x, c) = (float)(rng() % 1000);
  SornArray s = src.record(), da = a.record(), db = b.record();
  const double kc[3] = {0.25, 0.5, 0.25}, kr[5] = {1, 2, 3, 2, 1};
  const SornSepShape sep = sep_shape(5, 3, 2, 1, kc, kr);
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &da, &s, nullptr, nullptr, &sep));
  s.dims[3] = da.dims[3] = db.dims[3] = 11;
  ASSERT_EQ(SORN_OK, SornSepFilter(env.xe(), 0, &db, &s, nullptr, nullptr, &sep));
  EXPECT_EQ(a.bytes_copy(), b.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(SepFilter, FailuresWriteNothing) {
  ScratchEnv env;
  Image src = random_u8(6, 6, 0x5E05), dst(6, 6, 1, SORN_U8, 0, 0x77);
  const double k[5] = {1, 1, 1, 1, 1};
  const SornSepShape sep = sep_shape(3, 3, 1, 1, k, k);
  const SornSeShape se = se_shape(3, 3, 1, 1);
  auto both = [&](SornStatus want, const SornArray *d, const SornArray *s, const SornVolume *rd,
                  const SornVolume *rs, const char *what) {
    EXPECT_EQ(want, SornSepFilter(env.xe(), 0, d, s, rd, rs, &sep)) << what;
    EXPECT_EQ(want, SornGaussianFilter(env.xe(), 0, d, s, rd, rs, &se, nullptr)) << what;
    EXPECT_TRUE(env.at_mark()) << what;
  };
  SornArray d = dst.record(), s = src.record();
  SornArray bad = d;
  bad.ndims = 2;
  both(SORN_EINVAL, &bad, &s, nullptr, nullptr, "rank 2");
  bad = d;
  bad.dims[3] = 2;
  both(SORN_EINVAL, &bad, &s, nullptr, nullptr, "two channels");
  bad = s;
  bad.dims[3] = 3;
  both(SORN_EINVAL, &d, &bad, nullptr, nullptr, "channels differ");
  Image u16(6, 6, 1, SORN_U16), s16(6, 6, 1, SORN_S16);
  SornArray wd = u16.record(), ws = s16.record();
  both(SORN_EINVAL, &wd, &wd, nullptr, nullptr, "u16");
  both(SORN_EINVAL, &d, &ws, nullptr, nullptr, "types differ");
  const SornVolume outside = make_roi(10, 10, 2, 2, 1);
  both(SORN_ENOSPC, &d, &s, &outside, nullptr, "no common region");
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x77), dst.bytes_copy());
  EXPECT_TRUE(dst.guards_intact());
}

TEST(SepFilter, ThreeAndFourChannelsRefuseANullKernel) {
  ScratchEnv env;
  for (int32_t ch : {3, 4}) {
    Image src(5, 5, ch, SORN_S16, 0, 9), dst(5, 5, ch, SORN_S16, 0, 0x55);
    SornArray d = dst.record(), s = src.record();
    const double k[3] = {1, 2, 1};
    for (const SornSepShape &sep :
         {sep_shape(3, 3, 1, 1, nullptr, k), sep_shape(3, 3, 1, 1, k, nullptr),
          sep_shape(3, 1, 1, 0, nullptr, nullptr), sep_shape(1, 5, 0, 2, nullptr, k)}) {
      EXPECT_EQ(SORN_ENOTSUP, SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep)) << ch;
      EXPECT_TRUE(env.at_mark());
    }
    EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x55), dst.bytes_copy());
  }
}

TEST(SepFilter, TheTableHoldsEveryTypeAndChannelWord) {
  SornStatus st;
#define SEP_TABLE_ROW(c, t)                                                                \
  EXPECT_EQ(&sorna__sepfilter_c##c##_##t, sorna__sepfiltfun_imp(c, SORN_TYPECODE(t), &st)); \
  EXPECT_EQ(SORN_OK, st);
#define SEP_TABLE_ROWS(t) SORN_FILTER_CHANNELS(SEP_TABLE_ROW, t)
  SORN_FILTER_TYPES(SEP_TABLE_ROWS)
#undef SEP_TABLE_ROWS
#undef SEP_TABLE_ROW
  EXPECT_EQ(&sorna__sepfilter_c4_f32, sorna__sepfiltfun_imp(11, SORN_F32, &st));
  for (uint32_t w : {0u, 2u, 5u, 12u}) {
    sorna__sepfiltfun_imp(w, SORN_U8, &st);
    EXPECT_EQ(SORN_EINVAL, st) << w;
  }
  for (uint32_t t : {(uint32_t)SORN_U16, (uint32_t)SORN_S8, (uint32_t)SORN_F64}) {
    sorna__sepfiltfun_imp(1, t, &st);
    EXPECT_EQ(SORN_EINVAL, st) << t;
  }
}

TEST(SepFilter, ProbeAndNoMarginAtTheDispatcher) {
  ScratchEnv env;
  uint8_t src[16] = {}, dst[16] = {};
  const int32_t sizes[3] = {4, 4, 1}, strides[3] = {4, 1, 1};
  const double k[3] = {1, 1, 1};
  const SornSepShape sep = sep_shape(3, 3, 1, 1, k, k);
  const SornSeShape *se = reinterpret_cast<const SornSeShape *>(&sep);
  EXPECT_EQ(SORN_EAGAIN,
            sorna__sepfilter_c1_u8(env.xe(), SORN_F_NOMARGIN, 3, sizes, dst, strides, src + 5,
                                   strides, se));
  EXPECT_EQ(SORN_OK, sorna__sepfilter_c1_u8(env.xe(), SORN_F_PROBE, 3, sizes, dst, strides,
                                            src + 5, strides, se));
  EXPECT_EQ(std::vector<uint8_t>(16, 0), std::vector<uint8_t>(dst, dst + 16));
}

TEST(GaussianFilter, EveryAllocationFailureIsOutOfMemoryAndWritesNothing) {
  for (const SornSeShape se : {se_shape(5, 5, 2, 2), se_shape(9, 3, 4, 1), se_shape(1, 7, 0, 3),
                               se_shape(3, 9, 1, 4)}) {
    Image src = random_u8(12, 13, 0x6A53), dst(12, 13, 1, SORN_U8, 0, 0x33);
    SornArray d = dst.record(), s = src.record();
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
      ScratchEnv env;
      sorn_test::AllocFailure fail(k, false, sorn_test::kStackBlock);
      const SornStatus st = SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr);
      if (fail.fired()) {
        EXPECT_EQ(SORN_ENOMEM, st) << k;
        EXPECT_TRUE(env.at_mark()) << k;
        EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x33), dst.bytes_copy()) << k;
      } else {
        EXPECT_EQ(SORN_OK, st);
      }
      return fail.fired();
    });
    EXPECT_GE(runs, 2);  // the coefficients, the bordered copy, and the passes'
  }
}

TEST(SepFilter, EveryAllocationFailureIsOutOfMemory) {
  const double k[9] = {1, 2, 3, 4, 5, 4, 3, 2, 1};
  for (const SornSepShape sep : {sep_shape(3, 9, 1, 4, k, k), sep_shape(1, 7, 0, 3, k, k)}) {
    Image src = random_u8(10, 10, 0x5E06), dst(10, 10, 1, SORN_U8, 0, 0x44);
    SornArray d = dst.record(), s = src.record();
    const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t n) {
      ScratchEnv env;
      sorn_test::AllocFailure fail(n, false, sorn_test::kStackBlock);
      const SornStatus st = SornSepFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &sep);
      if (fail.fired()) {
        EXPECT_EQ(SORN_ENOMEM, st) << n;
        EXPECT_TRUE(env.at_mark()) << n;
        EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x44), dst.bytes_copy()) << n;
      }
      return fail.fired();
    });
    EXPECT_GE(runs, 2);
  }
}

TEST(GaussianFilter, FourDimensionsReadTheDepthKernelInTheColumnPass) {
  // Two planes of 6 x 7: the kernels of depth, rows and columns lie one
  // after another, and the passes read the first two places.
  ScratchEnv env;
  const int32_t rows = 6, cols = 7;
  std::vector<uint8_t> sbuf(2 * rows * cols), dbuf(2 * rows * cols, 0);
  auto rng = sorn_test::seeded_rng(0x6A54);
  for (uint8_t &v : sbuf) v = (uint8_t)rng();
  SornArray s = sorn_test::make_record4(sbuf.data(), 2, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornArray d = sorn_test::make_record4(dbuf.data(), 2, rows, cols, 1, SORN_U8, rows * cols, cols);
  SornSeShape se = se_shape(5, 3, 2, 1);
  se.size[0] = 1;
  ASSERT_EQ(SORN_OK, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr));
  std::vector<double> block = bell(0, 1, sigma_of(1));
  for (double v : bell(1, 3, sigma_of(3))) block.push_back(v);
  for (double v : bell(2, 5, sigma_of(5))) block.push_back(v);
  for (int32_t p = 0; p < 2; ++p) {
    Image plane(rows, cols, 1, SORN_U8), out(rows, cols, 1, SORN_U8);
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) {
        plane.at<uint8_t>(y, x) = sbuf[(size_t)(p * rows * cols + y * cols + x)];
        out.at<uint8_t>(y, x) = dbuf[(size_t)(p * rows * cols + y * cols + x)];
      }
    expect_grid(whole_reference(plane, 5, 3, 2, 1, block.data(), block.data() + 1), out);
  }
}

TEST(GaussianFilter, AWindowTooLongForItsCoefficientsIsOutOfMemory) {
  ScratchEnv env;
  Image src = random_u8(3, 2, 0x6A56), dst(3, 2, 1, SORN_U8, 0, 0x21);
  SornArray d = dst.record(), s = src.record();
  const SornSeShape se = se_shape(INT32_MAX - 1, 2, 0, 0);
  EXPECT_EQ(SORN_ENOMEM, SornGaussianFilter(env.xe(), 0, &d, &s, nullptr, nullptr, &se, nullptr));
  EXPECT_TRUE(env.at_mark());
  const int32_t sizes[3] = {3, 2, 1}, strides[3] = {2, 1, 1};
  EXPECT_EQ(SORN_ENOMEM, sorna__filter_gaussian(env.xe(), 0, SORN_DIMPACK(3), sizes, SORN_U8,
                                                dst.base(), strides, src.base(), strides, &se,
                                                nullptr));
  EXPECT_TRUE(env.at_mark());
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x21), dst.bytes_copy());
}

TEST(GaussianFilter, InnerLayersGiveWhatTheEntryGives) {
  // A region of 5 x 6 at (3, 4) inside 12 x 14: its margin is real, and
  // the plain forms read it; without sites the edge forms reflect at the
  // region's own edges, as the entry does under SORN_F_NOMARGIN.
  ScratchEnv env;
  Image parent = random_u8(12, 14, 0x6A57);
  const SornSeShape se = se_shape(5, 3, 2, 1);
  SornArray sub = parent.record();
  sub.dims[1] = 5;
  sub.dims[2] = 6;
  sub.offset = 3 * (int64_t)sub.strides[1] + 4;
  auto entry = [&](SornFlags flags) {
    Image out(5, 6, 1, SORN_U8);
    SornArray d = out.record();
    EXPECT_EQ(SORN_OK, SornGaussianFilter(env.xe(), flags, &d, &sub, nullptr, nullptr, &se, nullptr));
    return out.bytes_copy();
  };
  const std::vector<uint8_t> margin = entry(0), none = entry(SORN_F_NOMARGIN);
  EXPECT_NE(margin, none);
  // Vectors of four cells, given from cell 1 on, as the packing word says.
  const int32_t sizes4[4] = {1, 5, 6, 1}, ss4[4] = {0, parent.rowstride(), 1, 1};
  const int32_t dorigin4[4] = {0, 0, 0, 0}, sorigin4[4] = {0, 3, 4, 0};
  const int32_t *sizes = sizes4 + 1, *ss = ss4 + 1, *dorigin = dorigin4 + 1,
                *sorigin = sorigin4 + 1;
  const uint8_t *at = parent.base() + 3 * parent.rowstride() + 4;
  const std::vector<double> kc = bell(1, 3, sigma_of(3)), kr = bell(2, 5, sigma_of(5));
  const SornSepShape sep = sep_shape(5, 3, 2, 1, kc.data(), kr.data());
  const SornDimPack pack = SORN_DIMPACK(3);
  auto layer = [&](const std::vector<uint8_t> &want, const char *what, auto call) {
    Image out(5, 6, 1, SORN_U8);
    const int32_t ds4[4] = {0, out.rowstride(), 1, 1};
    EXPECT_EQ(SORN_OK, call(out.base(), ds4 + 1)) << what;
    EXPECT_EQ(want, out.bytes_copy()) << what;
    EXPECT_TRUE(env.at_mark()) << what;
  };
  layer(margin, "plain layer 2", [&](uint8_t *d, const int32_t *ds) {
    return sorna_gaussianfilter(env.xe(), 0, pack, sizes, SORN_U8, d, dorigin, ds, parent.base(),
                                sorigin, ss, &se, nullptr);
  });
  layer(margin, "plain layer 3", [&](uint8_t *d, const int32_t *ds) {
    return sorna__filter_gaussian(env.xe(), 0, pack, sizes, SORN_U8, d, ds, at, ss, &se, nullptr);
  });
  layer(margin, "separable layer 2", [&](uint8_t *d, const int32_t *ds) {
    return sorna_sepfilter(env.xe(), 0, pack, sizes, SORN_U8, d, dorigin, ds, parent.base(),
                           sorigin, ss, &sep);
  });
  layer(none, "edge layer 2", [&](uint8_t *d, const int32_t *ds) {
    return sorna_egaussianfilter(env.xe(), 0, pack, sizes, SORN_U8, d, dorigin, ds,
                                 parent.base(), sorigin, ss, &se, nullptr, nullptr, nullptr);
  });
  layer(none, "edge layer 3", [&](uint8_t *d, const int32_t *ds) {
    return sorna__efilter_gaussian(env.xe(), 0, pack, sizes, SORN_U8, d, ds, at, ss, &se, nullptr,
                                   nullptr, nullptr);
  });
  layer(none, "separable edge layer 3", [&](uint8_t *d, const int32_t *ds) {
    return sorna__esepfilter(env.xe(), 0, pack, sizes, SORN_U8, d, ds, at, ss, &sep, nullptr,
                             nullptr);
  });
  SornGaussianFilterArgs gargs = {&se, nullptr, nullptr, nullptr};
  SornSepFilterArgs sargs = {&sep, nullptr, nullptr};
  int32_t msizes4[4] = {1, 5, 6, 1}, mss4[4] = {0, parent.rowstride(), 1, 1};
  int32_t mdo4[4] = {0, 0, 0, 0}, mso4[4] = {0, 3, 4, 0};
  int32_t *msizes = msizes4 + 1, *mss = mss4 + 1, *mdo = mdo4 + 1, *mso = mso4 + 1;
  layer(none, "Gaussian slice form", [&](uint8_t *d, const int32_t *ds) {
    int32_t mds[4] = {0, ds[0], ds[1], ds[2]};
    return SornTGAgaussianfilter(env.xe(), 0, &gargs, pack, msizes, SORN_U8, d, mdo, mds + 1, SORN_U8,
                                 parent.base(), mso, mss);
  });
  layer(none, "separable slice form", [&](uint8_t *d, const int32_t *ds) {
    int32_t mds[4] = {0, ds[0], ds[1], ds[2]};
    return SornTGAsepfilter(env.xe(), 0, &sargs, pack, msizes, SORN_U8, d, mdo, mds + 1, SORN_U8,
                            parent.base(), mso, mss);
  });
  uint8_t one[64] = {};
  int32_t ods4[4] = {0, 8, 1, 1};
  int32_t *ods = ods4 + 1;
  EXPECT_EQ(SORN_EINVAL, SornTGAgaussianfilter(env.xe(), 0, &gargs, pack, msizes, SORN_S16, one,
                                               mdo, ods, SORN_U8, parent.base(), mso, mss));
  EXPECT_EQ(SORN_EINVAL, SornTGAsepfilter(env.xe(), 0, &sargs, pack, msizes, SORN_S16, one, mdo,
                                          ods, SORN_U8, parent.base(), mso, mss));
  EXPECT_EQ(SORN_EINVAL, sorna__sepfilter(env.xe(), 0, pack, sizes, SORN_U8, one, ods, at, ss,
                                          nullptr));
  EXPECT_EQ(SORN_EINVAL, sorna__filter_gaussian(env.xe(), 0, pack, sizes, SORN_U8, one, ods, at,
                                                ss, nullptr, nullptr));
  EXPECT_EQ(std::vector<uint8_t>(64, 0), std::vector<uint8_t>(one, one + 64));
}

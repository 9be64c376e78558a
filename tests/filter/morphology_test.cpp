// Erosion, dilation and their chains, with masks through SornMorphop and
// with rectangles through SornFilter, against brute-force masked windows
// written here: random masks (empty, one cell, all 255, any pattern) and
// anchors, every type of the tables, regions inside larger sources whose
// real pixels are read, whole images that reflect about their edge pixels,
// padded rows, guard bytes, in place; each chain against its definition
// from erosion and dilation; the kernels' own quirks; every refusal; and
// every allocation failed in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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

// A mask of h rows and w columns, its rows `pitch` bytes apart, held with
// its SornStrel.
struct Mask {
  int32_t h, w, pitch;
  std::vector<uint8_t> cells;
  SornStrel strel;
  Mask(int32_t rows, int32_t cols, int32_t ay, int32_t ax, int32_t pad = 0)
      : h(rows), w(cols), pitch(cols + pad), cells((size_t)rows * (cols + pad) + 1, 0) {
    std::memset(&strel, 0, sizeof strel);
    strel.anchor[1] = ay;
    strel.anchor[2] = ax;
    SornArray &m = strel.mask;
    m.dims[0] = 1;
    m.dims[1] = rows;
    m.dims[2] = cols;
    m.dims[3] = 1;
    std::memcpy(m.bounds, m.dims, sizeof m.bounds);
    m.strides[0] = rows * pitch;
    m.strides[1] = pitch;
    m.strides[2] = 1;
    m.strides[3] = 1;
    m.ndims = 3;
    m.ndimsall = 3;
    m.elemtype = SORN_U8;
    m.marker = 0x22;
    // The first cell lies one byte past data, so that offset is read.
    m.offset = 1;
    m.data = cells.data();
  }
  uint8_t &at(int32_t i, int32_t j) { return cells[1 + (size_t)i * pitch + j]; }
  uint8_t at(int32_t i, int32_t j) const { return cells[1 + (size_t)i * pitch + j]; }
  void fill(uint8_t v) {
    for (int32_t i = 0; i < h; ++i)
      for (int32_t j = 0; j < w; ++j) at(i, j) = v;
  }
  const SornStrel *get() const { return &strel; }
  SornSeShape rect() const {
    SornSeShape se;
    std::memcpy(&se, &strel, sizeof se);
    return se;
  }
};

template <class T> T lowest() { return std::numeric_limits<T>::lowest(); }
template <class T> T highest() { return std::numeric_limits<T>::max(); }

// The masked extreme at every output of a region: over the set cells of
// the mask around each pixel, read through `at(y, x)`; the neutral value
// where no cell is set or none of them may be read.
template <class T, class At>
Grid<T> masked(At at, int32_t rows, int32_t cols, const Mask &m, bool max) {
  Grid<T> o(rows, cols);
  const int32_t ay = m.strel.anchor[1], ax = m.strel.anchor[2];
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      T e = max ? lowest<T>() : highest<T>();
      for (int32_t i = 0; i < m.h; ++i)
        for (int32_t j = 0; j < m.w; ++j) {
          if (m.at(i, j) == 0) continue;
          T v;
          if (!at(y - ay + i, x - ax + j, &v)) continue;
          e = max ? std::max(e, v) : std::min(e, v);
        }
      o.at(y, x) = e;
    }
  return o;
}

// The saturating difference of the hats.
template <class T> T sat_sub(T a, T b) {
  if constexpr (std::is_same_v<T, float>) {
    return a - b;
  } else {
    const int64_t d = (int64_t)a - (int64_t)b;
    return (T)std::clamp<int64_t>(d, lowest<T>(), highest<T>());
  }
}

// A kind from its definition: erosion and dilation of the source (real
// pixels where they may be read, reflection beyond), and the chains' second
// pass over the first pass's results within the region alone.
template <class T>
Grid<T> by_definition(int32_t kind, const filter_ref::Source<T> &s, int32_t rows, int32_t cols,
                      const Mask &m) {
  auto from_source = [&](int32_t y, int32_t x, T *v) {
    *v = s.at(y, x);
    return true;
  };
  auto pass = [&](bool max) { return masked<T>(from_source, rows, cols, m, max); };
  auto second = [&](const Grid<T> &g, bool max) {
    return masked<T>(
        [&](int32_t y, int32_t x, T *v) {
          if (y < 0 || x < 0 || y >= rows || x >= cols) return false;
          *v = g.at(y, x);
          return true;
        },
        rows, cols, m, max);
  };
  switch (kind) {
    case SORN_MORPH_ERODE: return pass(false);
    case SORN_MORPH_DILATE: return pass(true);
    case SORN_MORPH_OPEN: return second(pass(false), true);
    case SORN_MORPH_CLOSE: return second(pass(true), false);
    default: break;
  }
  const bool top = kind == SORN_MORPH_TOPHAT;
  Grid<T> o = top ? second(pass(false), true) : second(pass(true), false);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x)
      o.at(y, x) = top ? sat_sub(s.at(y, x), o.at(y, x)) : sat_sub(o.at(y, x), s.at(y, x));
  return o;
}

// The filter kind of a morphological kind.
int32_t filter_kind(int32_t kind) {
  static const int32_t kinds[] = {0,
                                  -1,
                                  -1,
                                  SORN_FILTER_MIN,
                                  SORN_FILTER_MAX,
                                  SORN_FILTER_CLOSE,
                                  SORN_FILTER_OPEN,
                                  SORN_FILTER_BOTHAT,
                                  SORN_FILTER_TOPHAT};
  return kinds[kind];
}

template <class T> T random_of(std::mt19937_64 &rng) {
  if constexpr (std::is_same_v<T, float>) {
    if (rng() % 16 == 0) return rng() % 2 ? highest<T>() : lowest<T>();
    std::uniform_real_distribution<float> d(-1000.f, 1000.f);
    return rng() % 4 == 0 ? std::round(d(rng)) : d(rng);
  } else {
    return (T)sorn_test::random_value(rng, filter_ref::code_of<T>, true);
  }
}

template <class T> Grid<T> grid_of(const Image &im) {
  Grid<T> g(im.rows(), im.cols());
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) g.at(y, x) = im.at<T>(y, x);
  return g;
}

// A random mask: empty, one cell, all 255, or any pattern of 0 and 255.
Mask random_mask(std::mt19937_64 &rng, std::string *what) {
  int32_t h = 1 + (int32_t)(rng() % 6), w = 1 + (int32_t)(rng() % 6);
  if (h == 1 && w == 1) w = 2;
  Mask m(h, w, (int32_t)(rng() % h), (int32_t)(rng() % w), (int32_t)(rng() % 3));
  switch (rng() % 6) {
    case 0: *what = "empty"; break;
    case 1:
      *what = "one cell";
      m.at((int32_t)(rng() % h), (int32_t)(rng() % w)) = 255;
      break;
    case 2:
      *what = "all 255";
      m.fill(255);
      break;
    default:
      *what = "pattern";
      for (int32_t i = 0; i < h; ++i)
        for (int32_t j = 0; j < w; ++j) m.at(i, j) = rng() % 2 ? 255 : 0;
  }
  return m;
}

// One random call of a kind against its definition.
template <class T> void random_call(std::mt19937_64 &rng, int it) {
  ScratchEnv env;
  const uint32_t type = filter_ref::code_of<T>;
  const int32_t kind = 3 + (int32_t)(rng() % 6);
  std::string shape;
  const Mask m = random_mask(rng, &shape);
  const bool flat = shape == "all 255";
  // The rectangle through SornFilter for a flat mask, now and then.
  const bool through_filter = flat && rng() % 2 == 0;

  const int32_t pr = 1 + (int32_t)(rng() % 20), pc = 1 + (int32_t)(rng() % 20);
  const int32_t sy = (int32_t)(rng() % pr), sx = (int32_t)(rng() % pc);
  const int32_t sh = 1 + (int32_t)(rng() % (pr - sy)), sw = 1 + (int32_t)(rng() % (pc - sx));
  Image parent(pr, pc, 1, type, (int32_t)(rng() % 3) * (int32_t)sizeof(T));
  for (int32_t y = 0; y < pr; ++y)
    for (int32_t x = 0; x < pc; ++x) parent.at<T>(y, x) = random_of<T>(rng);
  SornArray src = parent.record();
  src.dims[1] = sh;
  src.dims[2] = sw;
  src.offset = (int64_t)sy * src.strides[1] + (int64_t)sx * src.strides[2];
  const bool in_place = rng() % 6 == 0;
  Image other(1 + (int32_t)(rng() % 22), 1 + (int32_t)(rng() % 22), 1, type,
              (int32_t)(rng() % 2) * (int32_t)sizeof(T));
  for (size_t i = 0; i < other.bytes(); ++i) other.base()[i] = (uint8_t)rng();
  Image &dimg = in_place ? parent : other;
  SornArray dst = in_place ? src : other.record();
  const int32_t drows = in_place ? sh : other.rows(), dcols = in_place ? sw : other.cols();

  int32_t ry = (int32_t)(rng() % sh), rx = (int32_t)(rng() % sw);
  int32_t dy = (int32_t)(rng() % drows), dx = (int32_t)(rng() % dcols);
  if (in_place) {
    ry = dy = std::min(dy, sh - 1);
    rx = dx = std::min(dx, sw - 1);
  }
  const SornVolume roi_s = make_roi(ry, rx, 0, 0, 1);
  const SornVolume roi_d =
      make_roi(dy, dx, 1 + (int32_t)(rng() % drows), 1 + (int32_t)(rng() % dcols), 1);
  const int32_t rows = std::min({roi_d.size[1], drows - dy, sh - ry});
  const int32_t cols = std::min({roi_d.size[2], dcols - dx, sw - rx});
  static const SornFlags flagsets[] = {0, SORN_F_NOMARGIN, SORN_F_SITEMARGIN};
  const SornFlags flags = flagsets[rng() % 3];

  filter_ref::Box readable;
  if (flags & SORN_F_NOMARGIN)
    readable = {0, 0, rows, cols};
  else if (flags & SORN_F_SITEMARGIN)
    readable = {-ry, -rx, sh, sw};
  else
    readable = {-(sy + ry), -(sx + rx), pr, pc};
  const int32_t ay = m.strel.anchor[1], ax = m.strel.anchor[2];
  const filter_ref::Box av =
      filter_ref::available({-ay, -ax, rows + m.h - 1, cols + m.w - 1}, readable);
  const Grid<T> plane = grid_of<T>(parent);
  const filter_ref::Source<T> s{&plane, sy + ry, sx + rx, av.y, av.x, av.h, av.w};
  const Grid<T> want = by_definition<T>(kind, s, rows, cols, m);

  const std::vector<uint8_t> before = dimg.bytes_copy();
  const std::vector<uint8_t> src_before = parent.bytes_copy();
  const SornSeShape rect = m.rect();
  const SornStatus st = through_filter
                            ? SornFilter(env.xe(), flags, &dst, in_place ? nullptr : &src, &roi_d,
                                         in_place ? nullptr : &roi_s, filter_kind(kind), &rect)
                            : SornMorphop(env.xe(), flags, &dst, in_place ? nullptr : &src, &roi_d,
                                          in_place ? nullptr : &roi_s, kind, m.get());
  const std::string what = std::string(sorn_test::type_name(type)) + " " + sorn_morphop_str(kind) +
                           " case " + std::to_string(it) + " mask " + shape + " " +
                           std::to_string(m.w) + "x" + std::to_string(m.h) + " anchor " +
                           std::to_string(ax) + "," + std::to_string(ay) + " region " +
                           std::to_string(rows) + "x" + std::to_string(cols) + " flags " +
                           std::to_string(flags) + (in_place ? " in place" : "") +
                           (through_filter ? " through SornFilter" : "");
  ASSERT_EQ(SORN_OK, st) << what;
  ASSERT_TRUE(env.at_mark()) << what;
  ASSERT_TRUE(dimg.guards_intact()) << what;
  if (!in_place) {
    ASSERT_EQ(src_before, parent.bytes_copy()) << what;
  }
  const int32_t oy = in_place ? sy + dy : dy, ox = in_place ? sx + dx : dx;
  const int32_t es = (int32_t)sizeof(T);
  for (int32_t y = 0; y < dimg.rows(); ++y)
    for (int32_t x = 0; x < dimg.cols(); ++x) {
      const size_t off = (size_t)y * dimg.rowstride() + (size_t)x * es;
      const bool in = y >= oy && y < oy + rows && x >= ox && x < ox + cols;
      if (!in) {
        ASSERT_EQ(0, std::memcmp(before.data() + off, dimg.base() + off, (size_t)es))
            << what << " wrote outside at " << y << "," << x;
        continue;
      }
      const T got = dimg.at<T>(y, x), exp = want.at(y - oy, x - ox);
      ASSERT_EQ(exp, got) << what << " at " << y - oy << "," << x - ox;
    }
}

#define MORPH_TYPE_TESTS(t)                                                  \
  TEST(Morphology, EveryKindMatchesItsDefinitionWithRandomMasks_##t) {       \
    const uint64_t seed = 0x6d70 + SORN_TYPECODE(t);                         \
    auto rng = sorn_test::seeded_rng(seed);                                  \
    for (int it = 0; it < 1500 && !::testing::Test::HasFatalFailure(); ++it) \
      random_call<filter_ref::tok::t>(rng, it);                              \
  }
SORN_FILTER_TYPES(MORPH_TYPE_TESTS)
#undef MORPH_TYPE_TESTS

// ---------------------------------------------------------------- helpers

template <class T> void fill_ramp(Image &im) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x)
      for (int32_t c = 0; c < im.channels(); ++c)
        im.at<T>(y, x, c) = (T)((y * 7 + x * 3 + c * 5) % 50);
}

SornSeShape rect_window(int32_t w, int32_t h, int32_t ax, int32_t ay) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = ay;
  se.anchor[2] = ax;
  return se;
}

// ---------------------------------------------------------------- the chains with a rectangle

TEST(FilterKinds, OpeningClosingAndTheHatsChainMinimumAndMaximum) {
  // Kinds 105 to 108 through SornFilter against their definitions: each
  // chain's second pass sees the first pass's results within the region.
  ScratchEnv env;
  Image src(9, 11, 1, SORN_U8);
  auto rng = sorn_test::seeded_rng(0x105);
  for (int32_t y = 0; y < 9; ++y)
    for (int32_t x = 0; x < 11; ++x) src.at<uint8_t>(y, x) = (uint8_t)rng();
  const Grid<uint8_t> plane = grid_of<uint8_t>(src);
  const filter_ref::Source<uint8_t> s{&plane, 0, 0, 0, 0, 9, 11};
  Mask m(3, 4, 1, 2);
  m.fill(255);
  const SornSeShape se = m.rect();
  for (int32_t kind = SORN_MORPH_CLOSE; kind <= SORN_MORPH_TOPHAT; ++kind) {
    Image dst(9, 11, 1, SORN_U8, 0, 0x77);
    SornArray d = dst.record(), sa = src.record();
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &sa, nullptr, nullptr, filter_kind(kind), &se));
    EXPECT_TRUE(env.at_mark());
    const Grid<uint8_t> want = by_definition<uint8_t>(kind, s, 9, 11, m);
    EXPECT_EQ(want.v, grid_of<uint8_t>(dst).v) << sorn_filter_str(filter_kind(kind));
  }
}

TEST(FilterKinds, ChainsRefuseThreeChannels) {
  ScratchEnv env;
  Image src(6, 6, 3, SORN_U8, 0, 3), dst(6, 6, 3, SORN_U8, 0, 0x77);
  SornArray d = dst.record(), s = src.record();
  for (int32_t kind :
       {SORN_FILTER_CLOSE, SORN_FILTER_OPEN, SORN_FILTER_BOTHAT, SORN_FILTER_TOPHAT}) {
    EXPECT_EQ(SORN_ENOTSUP, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, kind, nullptr));
    EXPECT_TRUE(env.at_mark());
  }
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x77), dst.bytes_copy());
}

TEST(FilterKinds, AChainAsksItsFirstPassWhetherItCanDoWithoutAMargin) {
  ScratchEnv env;
  const int32_t sizes[3] = {4, 4, 1}, st3[3] = {4, 1, 1};
  uint8_t src[16] = {}, dst[16];
  std::memset(dst, 0x77, sizeof dst);
  const SornSeShape se = rect_window(3, 3, 1, 1);
  for (auto *f :
       {&sorna__filter_open, &sorna__filter_close, &sorna__filter_tophat, &sorna__filter_bothat}) {
    EXPECT_EQ(SORN_EAGAIN,
              f(env.xe(), SORN_F_NOMARGIN, 3, sizes, SORN_U8, dst, st3, src, st3, &se));
    EXPECT_EQ(SORN_OK, f(env.xe(), SORN_F_PROBE, 3, sizes, SORN_U8, dst, st3, src, st3, &se));
    EXPECT_TRUE(env.at_mark());
  }
  for (uint8_t b : dst) EXPECT_EQ(0x77, b);
}

// ---------------------------------------------------------------- edge cases

TEST(Morphop, AThreeByThreeMaskOfAll255IsTheRectangle) {
  ScratchEnv env;
  Image src(10, 12, 1, SORN_U8);
  fill_ramp<uint8_t>(src);
  Mask m(3, 3, 1, 1);
  m.fill(255);
  const SornSeShape se = m.rect();
  for (int32_t kind = SORN_MORPH_ERODE; kind <= SORN_MORPH_TOPHAT; ++kind) {
    Image a(10, 12, 1, SORN_U8), b(10, 12, 1, SORN_U8);
    SornArray da = a.record(), db = b.record(), s = src.record();
    ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, kind, m.get()));
    ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &db, &s, nullptr, nullptr, filter_kind(kind), &se));
    EXPECT_EQ(a.bytes_copy(), b.bytes_copy()) << sorn_morphop_str(kind);
  }
  // And with three channels it is refused as the rectangle is.
  Image src3(6, 6, 3, SORN_U8, 0, 9), dst3(6, 6, 3, SORN_U8, 0, 0x77);
  SornArray d = dst3.record(), s = src3.record();
  for (int32_t kind = SORN_MORPH_ERODE; kind <= SORN_MORPH_TOPHAT; ++kind)
    EXPECT_EQ(SORN_ENOTSUP, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, kind, m.get()));
  EXPECT_EQ(std::vector<uint8_t>(dst3.bytes(), 0x77), dst3.bytes_copy());
  EXPECT_TRUE(env.at_mark());
}

TEST(Morphop, ACrossDiffersFromTheRectangleAtACorner) {
  // A bright pixel diagonal to the output: the rectangle reaches it, the
  // cross does not.
  ScratchEnv env;
  Image src(5, 5, 1, SORN_U8), a(5, 5, 1, SORN_U8), b(5, 5, 1, SORN_U8);
  src.at<uint8_t>(1, 1) = 200;
  Mask cross(3, 3, 1, 1), square(3, 3, 1, 1);
  square.fill(255);
  cross.at(0, 1) = cross.at(1, 0) = cross.at(1, 1) = cross.at(1, 2) = cross.at(2, 1) = 255;
  SornArray s = src.record(), da = a.record(), db = b.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, 4, cross.get()));
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &db, &s, nullptr, nullptr, 4, square.get()));
  EXPECT_EQ(0, a.at<uint8_t>(2, 2));
  EXPECT_EQ(200, b.at<uint8_t>(2, 2));
  EXPECT_EQ(200, a.at<uint8_t>(1, 2));
}

TEST(Morphop, ASingleSetCellShiftsTheImage) {
  ScratchEnv env;
  Image src(8, 9, 1, SORN_S16), dst(8, 9, 1, SORN_S16);
  fill_ramp<int16_t>(src);
  // The cell one row down and two columns right of the anchor.
  Mask m(3, 5, 0, 1);
  m.at(1, 3) = 255;
  SornArray s = src.record(), d = dst.record();
  for (int32_t kind : {SORN_MORPH_ERODE, SORN_MORPH_DILATE}) {
    ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, kind, m.get()));
    for (int32_t y = 0; y < 7; ++y)
      for (int32_t x = 0; x < 7; ++x)
        EXPECT_EQ(src.at<int16_t>(y + 1, x + 2), dst.at<int16_t>(y, x)) << y << "," << x;
  }
}

TEST(Morphop, AnEmptyMaskGivesTheNeutralValue) {
  ScratchEnv env;
  Mask m(3, 3, 1, 1);
  Image src(4, 4, 1, SORN_U8, 0, 77), dst(4, 4, 1, SORN_U8, 0, 5);
  SornArray s = src.record(), d = dst.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, 4, m.get()));
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0), dst.bytes_copy());
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, 3, m.get()));
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 255), dst.bytes_copy());
  // f32 starts from the largest finite value, not an infinity.
  Image fs(3, 3, 1, SORN_F32), fd(3, 3, 1, SORN_F32);
  SornArray fsa = fs.record(), fda = fd.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &fda, &fsa, nullptr, nullptr, 4, m.get()));
  EXPECT_EQ(-3.4028234663852886e38f, fd.at<float>(1, 1));
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &fda, &fsa, nullptr, nullptr, 3, m.get()));
  EXPECT_EQ(3.4028234663852886e38f, fd.at<float>(2, 0));
  Image is(3, 3, 1, SORN_S32), id(3, 3, 1, SORN_S32);
  SornArray isa = is.record(), ida = id.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &ida, &isa, nullptr, nullptr, 4, m.get()));
  EXPECT_EQ(INT32_MIN, id.at<int32_t>(0, 0));
}

TEST(Morphop, AnAnchorOutsideTheMaskIsRefusedWhereTheRectangleClipsIt) {
  ScratchEnv env;
  Image src(5, 5, 1, SORN_U8, 0, 1), dst(5, 5, 1, SORN_U8, 0, 0x77);
  SornArray s = src.record(), d = dst.record();
  for (auto anchor : {std::pair<int, int>{3, 0}, {0, 3}, {-1, 0}, {0, -1}}) {
    Mask m(3, 3, anchor.first, anchor.second);
    m.at(0, 0) = 255;
    EXPECT_EQ(SORN_EINVAL, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, 3, m.get()));
  }
  EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x77), dst.bytes_copy());
  const SornSeShape se = rect_window(3, 3, 3, 3);
  EXPECT_EQ(SORN_OK, SornFilter(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_FILTER_MIN, &se));
}

TEST(Morphop, OpeningAtTheArrayEdgeReflectsFirstAndIgnoresTheFrameSecond) {
  // A region in the corner of its array: the erosion reads reflected
  // pixels beyond the edge, the dilation sees the erosion within the region
  // only (its frame is filled with 0, which never wins a maximum).
  ScratchEnv env;
  Image src(6, 6, 1, SORN_U8), dst(6, 6, 1, SORN_U8, 0, 0x55);
  fill_ramp<uint8_t>(src);
  Mask m(3, 3, 1, 1);
  m.at(1, 0) = m.at(1, 1) = m.at(1, 2) = m.at(0, 1) = 255;
  SornArray s = src.record(), d = dst.record();
  const SornVolume roi = make_roi(0, 0, 4, 4, 1);
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, &roi, nullptr, SORN_MORPH_OPEN, m.get()));
  const Grid<uint8_t> plane = grid_of<uint8_t>(src);
  // Real pixels right and below the region, reflection above and left.
  const filter_ref::Source<uint8_t> ref{&plane, 0, 0, 0, 0, 5, 5};
  const Grid<uint8_t> want = by_definition<uint8_t>(SORN_MORPH_OPEN, ref, 4, 4, m);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(want.at(y, x), dst.at<uint8_t>(y, x));
  EXPECT_EQ(0x55, dst.at<uint8_t>(4, 4));
}

TEST(Morphop, TopHatOfAConstantImageIsZero) {
  ScratchEnv env;
  Mask m(3, 5, 1, 2);
  m.at(0, 0) = m.at(1, 2) = m.at(2, 4) = 255;
  Image src(7, 7, 1, SORN_S16, 0, 0), dst(7, 7, 1, SORN_S16, 0, 0x11);
  for (int32_t y = 0; y < 7; ++y)
    for (int32_t x = 0; x < 7; ++x) src.at<int16_t>(y, x) = -1234;
  SornArray s = src.record(), d = dst.record();
  for (int32_t kind : {SORN_MORPH_TOPHAT, SORN_MORPH_BOTHAT}) {
    ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, kind, m.get()));
    for (int32_t y = 0; y < 7; ++y)
      for (int32_t x = 0; x < 7; ++x) EXPECT_EQ(0, dst.at<int16_t>(y, x));
  }
}

TEST(Morphop, AnyKindWithAOneByOneMaskIsACopy) {
  ScratchEnv env;
  Image src(4, 5, 1, SORN_U8);
  fill_ramp<uint8_t>(src);
  for (int32_t kind = 0; kind < 16; ++kind) {
    for (uint8_t cell : {0, 255}) {
      Mask m(1, 1, 0, 0);
      m.at(0, 0) = cell;
      Image dst(4, 5, 1, SORN_U8, 0, 0x77);
      SornArray s = src.record(), d = dst.record();
      ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, kind, m.get())) << kind;
      EXPECT_EQ(src.bytes_copy(), dst.bytes_copy()) << kind;
      // In place it leaves the image as it is.
      ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, nullptr, nullptr, nullptr, kind, m.get()));
      EXPECT_EQ(src.bytes_copy(), dst.bytes_copy()) << kind;
    }
  }
}

TEST(Morphop, KindZeroWithAMaskIsACopy) {
  ScratchEnv env;
  Image src(4, 5, 1, SORN_S32), dst(4, 5, 1, SORN_S32, 0, 0x77);
  fill_ramp<int32_t>(src);
  Mask m(3, 3, 1, 1);
  m.at(0, 0) = 255;
  SornArray s = src.record(), d = dst.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, 0x10, m.get()));
  EXPECT_EQ(src.bytes_copy(), dst.bytes_copy());
  EXPECT_TRUE(env.at_mark());
  // A region whose channels begin inside the pixel copies whole pixels from
  // the pixel's start, and nothing past the region.
  Image src4(3, 4, 4, SORN_U8, 1), dst4(3, 4, 4, SORN_U8, 1, 0x77);
  for (size_t i = 0; i < src4.bytes(); ++i) src4.base()[i] = (uint8_t)i;
  SornArray s4 = src4.record(), d4 = dst4.record();
  SornVolume roi = make_roi(0, 1, 3, 9, 4);
  roi.origin[3] = 1;
  for (int through_filter = 0; through_filter < 2; ++through_filter) {
    std::memset(dst4.base(), 0x77, dst4.bytes());
    ASSERT_EQ(SORN_OK, through_filter ? SornFilter(env.xe(), 0, &d4, &s4, &roi, &roi,
                                                   SORN_FILTER_NONE, nullptr)
                                      : SornMorphop(env.xe(), 0, &d4, &s4, &roi, &roi, 0, m.get()));
    for (int32_t y = 0; y < 3; ++y)
      for (int32_t x = 0; x < 4; ++x)
        for (int32_t c = 0; c < 4; ++c)
          EXPECT_EQ(x >= 1 ? src4.at<uint8_t>(y, x, c) : 0x77, dst4.at<uint8_t>(y, x, c));
    EXPECT_TRUE(dst4.guards_intact());
    for (int32_t y = 0; y < 3; ++y)
      EXPECT_EQ(0x77, dst4.base()[(size_t)y * dst4.rowstride() + 16]) << through_filter;
  }
}

TEST(Morphop, TheTwoByTwoKernelTestsARowsCellsTogetherFirst) {
  // Cells 1 and 2: their AND is 0, so the row counts its first cell only.
  // Any other shape counts every non-zero cell.
  ScratchEnv env;
  Image src(4, 4, 1, SORN_U8), dst(4, 4, 1, SORN_U8);
  fill_ramp<uint8_t>(src);
  SornArray s = src.record(), d = dst.record();
  Mask pair(2, 2, 0, 0);
  pair.at(0, 0) = 1;
  pair.at(0, 1) = 2;
  const SornVolume roi = make_roi(1, 1, 2, 2, 1);
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, &roi, &roi, SORN_MORPH_DILATE, pair.get()));
  for (int32_t y = 1; y < 3; ++y)
    for (int32_t x = 1; x < 3; ++x) EXPECT_EQ(src.at<uint8_t>(y, x), dst.at<uint8_t>(y, x));
  Mask wide(2, 3, 0, 0);
  wide.at(0, 0) = 1;
  wide.at(0, 1) = 2;
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, &roi, &roi, SORN_MORPH_DILATE, wide.get()));
  for (int32_t y = 1; y < 3; ++y)
    for (int32_t x = 1; x < 3; ++x)
      EXPECT_EQ(std::max(src.at<uint8_t>(y, x), src.at<uint8_t>(y, x + 1)), dst.at<uint8_t>(y, x));
}

// The window walks elements across channels; the shapes of their own
// channel form step back by the anchor times the channel count, the shared
// ones by the anchor alone; only the first `columns` elements of a row
// change.
template <class T> void multichannel_walk(int32_t chword, int32_t kind) {
  ScratchEnv env;
  const int32_t H = 5, W = 6, C = (chword & 7) + ((chword >> 3) & 1);
  const uint32_t type = filter_ref::code_of<T>;
  Image src(H, W, C, type), dst(H, W, C, type);
  auto rng = sorn_test::seeded_rng(0xc0 + (uint64_t)chword * 16 + type);
  for (int32_t y = 0; y < H; ++y)
    for (int32_t x = 0; x < W; ++x)
      for (int32_t c = 0; c < C; ++c) src.at<T>(y, x, c) = random_of<T>(rng);
  const bool max = kind == SORN_MORPH_DILATE;
  struct Case {
    int32_t h, w, ax, scale;
  };
  for (const Case c : {Case{3, 4, 2, C}, Case{3, 2, 1, C}, Case{2, 2, 1, C}, Case{4, 3, 2, C},
                       Case{1, 5, 2, 1}, Case{1, 2, 1, 1}, Case{3, 1, 0, 1}, Case{5, 1, 0, 1}}) {
    Mask m(c.h, c.w, 1 % c.h, c.ax);
    for (int32_t i = 0; i < c.h; ++i)
      for (int32_t j = 0; j < c.w; ++j) m.at(i, j) = (i + j) % 2 ? 255 : 0;
    std::memset(dst.base(), 0x77, dst.bytes());
    const std::vector<uint8_t> before = dst.bytes_copy();
    SornArray s = src.record(), d = dst.record();
    s.dims[3] = d.dims[3] = chword;
    const SornVolume roi = make_roi(1, 2, 3, 2, C);
    ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, &roi, &roi, kind, m.get()));
    EXPECT_TRUE(env.at_mark());
    ASSERT_TRUE(dst.guards_intact());
    const int32_t ay = 1 % c.h, es = (int32_t)sizeof(T);
    auto elem = [&](const Image &im, int32_t y, int32_t e) {
      return *reinterpret_cast<const T *>(im.base() + (size_t)y * im.rowstride() + (size_t)e * es);
    };
    for (int32_t y = 0; y < H; ++y)
      for (int32_t e = 0; e < W * C; ++e) {
        const int32_t k = e - 2 * C;  // element of the region's row
        const size_t off = (size_t)y * dst.rowstride() + (size_t)e * es;
        if (y < 1 || y > 3 || k < 0 || k >= 2) {
          ASSERT_EQ(0, std::memcmp(before.data() + off, dst.base() + off, (size_t)es))
              << "wrote outside at " << y << "," << e;
          continue;
        }
        T want = max ? lowest<T>() : highest<T>();
        for (int32_t i = 0; i < c.h; ++i)
          for (int32_t j = 0; j < c.w; ++j)
            if (m.at(i, j)) {
              // Rows beyond the image reflect about its edge rows.
              const int32_t r = filter_ref::reflect101(y - ay + i, H);
              const T v = elem(src, r, 2 * C + k - c.ax * c.scale + j);
              want = max ? std::max(want, v) : std::min(want, v);
            }
        ASSERT_EQ(want, elem(dst, y, e))
            << sorn_test::type_name(type) << " chword " << chword << " " << c.w << "x" << c.h
            << " row " << y << " element " << e;
      }
  }
}

#define MORPH_CHANNEL_TESTS(t)                                     \
  TEST(Morphop, SeveralChannelsWalkAdjacentElements_##t) {         \
    for (int32_t chword : {3, 4, 11})                              \
      for (int32_t kind : {SORN_MORPH_ERODE, SORN_MORPH_DILATE}) { \
        multichannel_walk<filter_ref::tok::t>(chword, kind);       \
        if (::testing::Test::HasFatalFailure()) return;            \
      }                                                            \
  }
SORN_FILTER_TYPES(MORPH_CHANNEL_TESTS)
#undef MORPH_CHANNEL_TESTS

TEST(Morphop, TheSharedKernelsAnswerUnderEveryChannelName) {
  Mask m(1, 5, 0, 2);
  m.at(0, 0) = m.at(0, 4) = 255;
  const SornSeShape *se = reinterpret_cast<const SornSeShape *>(m.get());
  uint8_t src[12], a[8], b[8], c[8];
  for (int i = 0; i < 12; ++i) src[i] = (uint8_t)(i * 37);
  const int32_t sizes[3] = {1, 8, 1}, st[3] = {12, 1, 1};
  EXPECT_EQ(SORN_OK, _T_sorna__dilate_c4_u8_Nx1(nullptr, 0, 3, sizes, a, st, src + 2, st, se));
  EXPECT_EQ(SORN_OK, _T_sorna__dilate_c1_u8_Nx1(nullptr, 0, 3, sizes, b, st, src + 2, st, se));
  EXPECT_EQ(SORN_OK, _T_sorna__dilate_c3_u8_Nx1(nullptr, 0, 3, sizes, c, st, src + 2, st, se));
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(std::max(src[i], src[i + 4]), a[i]);
    EXPECT_EQ(a[i], b[i]);
    EXPECT_EQ(a[i], c[i]);
  }
}

TEST(Morphop, WithoutAMaskItIsTheFilter) {
  ScratchEnv env;
  Image src(8, 8, 1, SORN_U8), a(8, 8, 1, SORN_U8), b(8, 8, 1, SORN_U8);
  fill_ramp<uint8_t>(src);
  SornArray s = src.record(), da = a.record(), db = b.record();
  for (int32_t kind = SORN_MORPH_ERODE; kind <= SORN_MORPH_TOPHAT; ++kind) {
    ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, kind, nullptr));
    ASSERT_EQ(SORN_OK,
              SornFilter(env.xe(), 0, &db, &s, nullptr, nullptr, filter_kind(kind), nullptr));
    EXPECT_EQ(a.bytes_copy(), b.bytes_copy()) << kind;
  }
  // A strel whose mask has no data: its window is the rectangle.
  Mask m(3, 1, 1, 0);
  m.strel.mask.data = nullptr;
  m.strel.mask.offset = 0;
  const SornSeShape se = rect_window(1, 3, 0, 1);
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, 4, m.get()));
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), 0, &db, &s, nullptr, nullptr, 4, &se));
  EXPECT_EQ(a.bytes_copy(), b.bytes_copy());
  // Kind 0 copies, in place too.
  Image c(8, 8, 1, SORN_U8, 0, 3);
  SornArray dc = c.record();
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &dc, &s, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(src.bytes_copy(), c.bytes_copy());
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &dc, nullptr, nullptr, nullptr, 0, nullptr));
  EXPECT_EQ(src.bytes_copy(), c.bytes_copy());
  // Gradient has no routine, with or without a mask; other kinds are invalid.
  EXPECT_EQ(SORN_ENOTIMP, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, 9, nullptr));
  EXPECT_EQ(SORN_EINVAL, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, 10, nullptr));
  EXPECT_EQ(SORN_EINVAL, SornMorphop(env.xe(), 0, &da, &s, nullptr, nullptr, 1, nullptr));
  EXPECT_TRUE(env.at_mark());
}

TEST(Morphop, TheMaskedFormKeepsBorderOnlyForItsBorderedCopy) {
  // The masked form hands SORN_F_BORDER_ONLY to the bordered copy of its
  // source as the caller gave it: in place, the copy then writes the frame
  // of its scratch block and leaves the interior as it was. The rectangle's
  // frame clears the bit first. Here the block is left holding 9s.
  ScratchEnv env;
  Mask cross(3, 3, 1, 1);
  cross.at(0, 1) = cross.at(1, 0) = cross.at(1, 1) = cross.at(1, 2) = cross.at(2, 1) = 255;
  Image img(6, 6, 1, SORN_U8, 0, 0);
  SornArray d = img.record();
  void *block = SornXEalloca(env.xe(), 4096, 0);
  std::memset(block, 9, 4096);
  SornXEfreea(env.xe(), block);
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), SORN_F_BORDER_ONLY, &d, nullptr, nullptr, nullptr,
                                 SORN_MORPH_DILATE, cross.get()));
  EXPECT_EQ(std::vector<uint8_t>(img.bytes(), 9), img.bytes_copy());
  EXPECT_TRUE(env.at_mark());
  Image zero(6, 6, 1, SORN_U8, 0, 0);
  SornArray z = zero.record();
  const SornSeShape se = rect_window(3, 3, 1, 1);
  block = SornXEalloca(env.xe(), 4096, 0);
  std::memset(block, 9, 4096);
  SornXEfreea(env.xe(), block);
  ASSERT_EQ(SORN_OK, SornFilter(env.xe(), SORN_F_BORDER_ONLY, &z, nullptr, nullptr, nullptr,
                                SORN_FILTER_MAX, &se));
  EXPECT_EQ(std::vector<uint8_t>(zero.bytes(), 0), zero.bytes_copy());
}

TEST(Morphop, ANullSourceRegionTakesTheDestinationRegion) {
  // Separate arrays, roiSrc null: the source is read from roiDst's origin.
  ScratchEnv env;
  Image src(6, 6, 1, SORN_U8), a(6, 6, 1, SORN_U8), b(6, 6, 1, SORN_U8);
  fill_ramp<uint8_t>(src);
  Mask m(2, 3, 0, 1);
  m.at(0, 0) = m.at(1, 2) = 255;
  SornArray s = src.record(), da = a.record(), db = b.record();
  const SornVolume roi = make_roi(2, 1, 3, 4, 1);
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &da, &s, &roi, nullptr, 4, m.get()));
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &db, &s, &roi, &roi, 4, m.get()));
  EXPECT_EQ(a.bytes_copy(), b.bytes_copy());
}

TEST(Morphop, FourDimensionalDestinationsRunPlaneByPlane) {
  ScratchEnv env;
  const int32_t P = 3, H = 5, W = 6;
  std::vector<uint8_t> sbuf((size_t)P * H * W), dbuf((size_t)P * H * W, 0x77);
  for (size_t i = 0; i < sbuf.size(); ++i) sbuf[i] = (uint8_t)(i * 29 + 7);
  SornArray s = sorn_test::make_record4(sbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  SornArray d = sorn_test::make_record4(dbuf.data(), P, H, W, 1, SORN_U8, H * W, W);
  Mask m(3, 2, 2, 0);
  m.at(0, 0) = m.at(2, 1) = 255;
  ASSERT_EQ(SORN_OK, SornMorphop(env.xe(), 0, &d, &s, nullptr, nullptr, SORN_MORPH_CLOSE, m.get()));
  for (int32_t p = 0; p < P; ++p) {
    Grid<uint8_t> plane(H, W);
    std::copy(sbuf.begin() + p * H * W, sbuf.begin() + (p + 1) * H * W, plane.v.begin());
    const filter_ref::Source<uint8_t> ref{&plane, 0, 0, 0, 0, H, W};
    const Grid<uint8_t> want = by_definition<uint8_t>(SORN_MORPH_CLOSE, ref, H, W, m);
    EXPECT_TRUE(std::equal(want.v.begin(), want.v.end(), dbuf.begin() + p * H * W)) << p;
  }
}

// ---------------------------------------------------------------- failures

TEST(MorphopFailures, EveryRefusalWritesNothing) {
  ScratchEnv env;
  Image src(6, 6, 1, SORN_U8, 0, 9), dst(6, 6, 1, SORN_U8, 0, 0x77);
  Image s16(6, 6, 1, SORN_S16), u16(6, 6, 1, SORN_U16), two(6, 6, 2, SORN_U8);
  Mask good(3, 3, 1, 1);
  good.at(0, 1) = 255;
  SornArray s = src.record(), d = dst.record();
  auto expect = [&](SornStatus want, const SornArray *dd, const SornArray *ss, const SornVolume *rd,
                    const SornVolume *rs, int32_t kind, const SornStrel *m, const char *what) {
    EXPECT_EQ(want, SornMorphop(env.xe(), 0, dd, ss, rd, rs, kind, m)) << what;
    EXPECT_EQ(std::vector<uint8_t>(dst.bytes(), 0x77), dst.bytes_copy()) << what;
    EXPECT_TRUE(env.at_mark()) << what;
  };
  Mask no_cols(3, 3, 0, 0), no_rows(3, 3, 0, 0);
  no_cols.at(0, 0) = no_rows.at(0, 0) = 255;
  no_cols.strel.mask.dims[2] = 0;
  no_rows.strel.mask.dims[1] = 0;
  expect(SORN_EINVAL, &d, &s, nullptr, nullptr, 3, no_cols.get(), "a mask of no columns");
  expect(SORN_EINVAL, &d, &s, nullptr, nullptr, 3, no_rows.get(), "a mask of no rows");
  expect(SORN_EINVAL, &d, &s, nullptr, nullptr, 1, good.get(), "kind 1");
  expect(SORN_EINVAL, &d, &s, nullptr, nullptr, 2, good.get(), "kind 2");
  expect(SORN_EINVAL, &d, &s, nullptr, nullptr, 11, good.get(), "kind 11");
  expect(SORN_ENOTIMP, &d, &s, nullptr, nullptr, 9, good.get(), "gradient");
  const SornVolume wrong_channels = make_roi(0, 0, 3, 3, 2);
  expect(SORN_EINVAL, &d, &s, &wrong_channels, nullptr, 3, good.get(), "roiDst channels");
  const SornVolume empty = make_roi(0, 0, 0, 3, 1), outside = make_roi(9, 9, 3, 3, 1);
  expect(SORN_ENOSPC, &d, &s, &empty, nullptr, 3, good.get(), "an empty region");
  expect(SORN_ENOSPC, &d, &s, &outside, nullptr, 3, good.get(), "a region outside");
  SornArray bad = d;
  bad.ndims = 2;
  expect(SORN_EINVAL, &bad, &s, nullptr, nullptr, 3, good.get(), "a rank of 2");
  SornArray t = s16.record(), u = u16.record(), c2 = two.record();
  expect(SORN_EINVAL, &d, &t, nullptr, nullptr, 3, good.get(), "different types");
  expect(SORN_EINVAL, &d, &c2, nullptr, nullptr, 3, good.get(), "different channels");
  EXPECT_EQ(SORN_EINVAL, SornMorphop(env.xe(), 0, &u, &u, nullptr, nullptr, 3, good.get()));
  EXPECT_EQ(SORN_EINVAL, SornMorphop(env.xe(), 0, &u, &u, nullptr, nullptr, 6, good.get()));
  EXPECT_TRUE(env.at_mark());
}

TEST(MorphopFailures, AChainRefusesARegionWithNoChannelLeft) {
  // A region whose channels begin past the pixel's has no element to write:
  // every way in refuses it as out of space, as the filter and the copy do,
  // before the subtraction of a hat could read a pixel's worth of elements
  // from a cut channel cell.
  ScratchEnv env;
  Image img(6, 7, 1, SORN_S16, 2, 0x33);
  Mask m(3, 2, 0, 1);
  m.at(0, 0) = m.at(2, 1) = 255;
  Mask flat(3, 2, 0, 1);
  flat.fill(255);
  SornArray d = img.record();
  SornVolume roi = make_roi(4, 5, 3, 9, 1);
  roi.origin[3] = 4;
  SornVolume inside = make_roi(2, 2, 2, 2, 1);
  inside.origin[3] = 4;
  const SornSeShape se = flat.rect();
  for (int32_t kind = SORN_MORPH_CLOSE; kind <= SORN_MORPH_TOPHAT; ++kind) {
    for (const SornVolume &r : {roi, inside}) {
      const SornStatus a = SornMorphop(env.xe(), 0, &d, nullptr, &r, nullptr, kind, m.get());
      const SornStatus b = SornMorphop(env.xe(), 0, &d, nullptr, &r, nullptr, kind, flat.get());
      const SornStatus c =
          SornFilter(env.xe(), 0, &d, nullptr, &r, nullptr, filter_kind(kind), &se);
      EXPECT_EQ(SORN_ENOSPC, a);
      EXPECT_EQ(SORN_ENOSPC, b);
      EXPECT_EQ(SORN_ENOSPC, c);
    }
    EXPECT_TRUE(env.at_mark());
  }
  EXPECT_EQ(std::vector<uint8_t>(img.bytes(), 0x33), img.bytes_copy());
  EXPECT_TRUE(img.guards_intact());
}

TEST(MorphopFailures, TheTablesRefuseWhatTheyDoNotHold) {
  for (auto *t : {&sorna__dilatefun_imp, &sorna__erodefun_imp}) {
    SornStatus st;
    EXPECT_NE(nullptr, t(1, SORN_U8, &st));
    EXPECT_EQ(SORN_OK, st);
    t(11, SORN_F32, &st);
    EXPECT_EQ(SORN_OK, st);
    t(3, SORN_S16, &st);
    EXPECT_EQ(SORN_OK, st);
    t(2, SORN_U8, &st);
    EXPECT_EQ(SORN_EINVAL, st);
    t(1, SORN_U16, &st);
    EXPECT_EQ(SORN_EINVAL, st);
    t(1, SORN_S8, &st);
    EXPECT_EQ(SORN_EINVAL, st);
  }
}

TEST(MorphopFailures, EveryAllocationFailsInTurn) {
  Image src(9, 10, 1, SORN_F32);
  fill_ramp<float>(src);
  Mask m(3, 4, 1, 2);
  m.at(0, 0) = m.at(1, 2) = m.at(2, 3) = 255;
  Mask flat(2, 3, 1, 1);
  flat.fill(255);
  for (int32_t kind = SORN_MORPH_ERODE; kind <= SORN_MORPH_TOPHAT; ++kind)
    for (const Mask *mask : {&m, &flat}) {
      for (bool in_place : {false, true}) {
        const int64_t runs = sorn_test::for_each_allocation_failure([&](int64_t k) {
          ScratchEnv env;
          Image dst(9, 10, 1, SORN_F32);
          fill_ramp<float>(dst);
          SornArray d = dst.record(), s = src.record();
          SornStatus st;
          bool fired;
          {
            sorn_test::AllocFailure fail(k);
            st = SornMorphop(env.xe(), 0, &d, in_place ? nullptr : &s, nullptr, nullptr, kind,
                             mask->get());
            fired = fail.fired();
          }
          EXPECT_EQ(fired ? SORN_ENOMEM : SORN_OK, st) << kind << " at " << k;
          EXPECT_TRUE(env.at_mark()) << kind << " at " << k;
          return fired;
        });
        EXPECT_GE(runs, 1) << kind;
      }
    }
}

}  // namespace

// Plain references for the flat filters, written from the rules and never
// calling the library: which pixel a window cell reads (the real ones the
// source may offer, the rest reflected about the edge of what it offers),
// window means with the f32 running sums of each kernel shape, and window
// extremes.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace filter_ref {

// The element types of the filter tables by the tokens of SORN_FILTER_TYPES,
// and their codes.
namespace tok {
using u8 = uint8_t;
using s16 = int16_t;
using s32 = int32_t;
using f32 = float;
}  // namespace tok
template <class T> inline constexpr uint32_t code_of = 0;
template <> inline constexpr uint32_t code_of<uint8_t> = SORN_U8;
template <> inline constexpr uint32_t code_of<int16_t> = SORN_S16;
template <> inline constexpr uint32_t code_of<int32_t> = SORN_S32;
template <> inline constexpr uint32_t code_of<float> = SORN_F32;

// Reflection about the edge pixel: ..2 1 | 0 1 2 .. n-1 | n-2 ..
inline int32_t reflect101(int32_t i, int32_t n) {
  if (n == 1) return 0;
  const int32_t p = 2 * (n - 1), j = ((i % p) + p) % p;
  return j < n ? j : p - j;
}

// A plane of values of type T, read by (row, column).
template <class T> struct Grid {
  int32_t rows = 0, cols = 0;
  std::vector<T> v;
  Grid() = default;
  Grid(int32_t r, int32_t c) : rows(r), cols(c), v((size_t)r * c) {}
  T &at(int32_t y, int32_t x) { return v[(size_t)y * cols + x]; }
  const T &at(int32_t y, int32_t x) const { return v[(size_t)y * cols + x]; }
};

// The window source of a region: a box of real pixels (origin and size in
// the coordinates of the region's first pixel) that the needed box is cut
// to; what lies beyond it reflects about its edges. The real pixels are
// read from `plane` at plane coordinates py + y, px + x.
template <class T> struct Source {
  const Grid<T> *plane;
  int32_t py, px;          // the region's first pixel in the plane
  int32_t ay, ax, ah, aw;  // the available box
  T at(int32_t y, int32_t x) const {
    return plane->at(py + ay + reflect101(y - ay, ah), px + ax + reflect101(x - ax, aw));
  }
};

// The available box of a region of rows x cols with a window: the needed
// box (the region widened by the window) cut to the pixels that may be
// read, given as a box in region coordinates (oy, ox, h, w).
struct Box {
  int32_t y, x, h, w;
};
inline Box available(const Box &region_widened, const Box &readable) {
  const int32_t y0 = std::max(region_widened.y, readable.y);
  const int32_t x0 = std::max(region_widened.x, readable.x);
  const int32_t y1 = std::min(region_widened.y + region_widened.h, readable.y + readable.h);
  const int32_t x1 = std::min(region_widened.x + region_widened.w, readable.x + readable.w);
  return Box{y0, x0, y1 - y0, x1 - x0};
}

/* ---------------- means ---------------- */

template <class T> struct Mean {
  using Acc = int32_t;
  static Acc acc(T v) { return (Acc)v; }
  static Acc add(Acc a, Acc b) { return (Acc)((uint32_t)a + (uint32_t)b); }
  static Acc sub(Acc a, Acc b) { return (Acc)((uint32_t)a - (uint32_t)b); }
  static T out(Acc s, float scale) {
    const float q = std::nearbyintf((float)s * scale);
    int64_t r = (q >= -2147483648.0f && q < 2147483648.0f) ? (int64_t)q : INT32_MIN;
    if (sizeof(T) == 1) r = std::clamp<int64_t>(r, 0, 255);
    if (sizeof(T) == 2) r = std::clamp<int64_t>(r, -32768, 32767);
    return (T)r;
  }
};
template <> struct Mean<float> {
  using Acc = float;
  static Acc acc(float v) { return v; }
  static Acc add(Acc a, Acc b) { return a + b; }
  static Acc sub(Acc a, Acc b) { return a - b; }
  static float out(Acc s, float scale) { return s * scale; }
};

// The box filter of rows x cols outputs over window (w, h, ax, ay), with
// each kernel shape's order of operations: folds for 2x1, 4x1, 1x2 and
// 2x2; a running sum along rows for other one-row windows; running column
// sums and a running sum of them for the rest.
// s is a Source<T> or anything else that reads a T by at(y, x).
template <class S, class T = std::remove_cvref_t<decltype(std::declval<const S &>().at(0, 0))>>
Grid<T> box(const S &s, int32_t rows, int32_t cols, int32_t w, int32_t h, int32_t ax, int32_t ay) {
  using M = Mean<T>;
  using A = typename M::Acc;
  Grid<T> o(rows, cols);
  auto in = [&](int32_t y, int32_t x) { return M::acc(s.at(y - ay, x - ax)); };
  if (h == 1 && w == 1) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) o.at(y, x) = s.at(y, x);
  } else if (h == 1 && w == 2) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) o.at(y, x) = M::out(M::add(in(y, x), in(y, x + 1)), 0.5f);
  } else if (h == 1 && w == 4) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x)
        o.at(y, x) = M::out(
            M::add(M::add(M::add(in(y, x), in(y, x + 1)), in(y, x + 2)), in(y, x + 3)), 0.25f);
  } else if (h == 2 && w == 1) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) o.at(y, x) = M::out(M::add(in(y, x), in(y + 1, x)), 0.5f);
  } else if (h == 2 && w == 2) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x)
        o.at(y, x) = M::out(M::add(M::add(in(y, x), in(y + 1, x)),
                                   M::add(in(y, x + 1), in(y + 1, x + 1))),
                            0.25f);
  } else if (h == 1) {
    const float scale = 1.0f / (float)w;
    for (int32_t y = 0; y < rows; ++y) {
      A sum = in(y, 0);
      for (int32_t k = 1; k < w; ++k) sum = M::add(sum, in(y, k));
      for (int32_t x = 0; x < cols; ++x) {
        o.at(y, x) = M::out(sum, scale);
        sum = M::add(M::sub(in(y, x + w), in(y, x)), sum);
      }
    }
  } else {
    const float scale = 1.0f / (float)(w * h);
    std::vector<A> col((size_t)(cols + w - 1), A(0));
    for (int32_t r = 0; r < h; ++r)
      for (int32_t c = 0; c < cols + w - 1; ++c) col[c] = M::add(col[c], in(r, c));
    for (int32_t y = 0; y < rows; ++y) {
      A sum = col[0];
      for (int32_t k = 1; k < w; ++k) sum = M::add(sum, col[k]);
      for (int32_t x = 0; x < cols; ++x) {
        o.at(y, x) = M::out(sum, scale);
        if (x + 1 < cols) sum = M::add(M::sub(col[x + w], col[x]), sum);
      }
      for (int32_t c = 0; c < cols + w - 1; ++c)
        col[c] = M::add(M::sub(in(y + h, c), in(y, c)), col[c]);
    }
  }
  return o;
}

/* ---------------- extremes ---------------- */

// The extreme of every window, cells compared by value (so that with f32 a
// -0 and a 0 are alike: which of the two a kernel keeps depends on its
// order of comparisons).
template <class T>
Grid<T> extreme(const Source<T> &s, int32_t rows, int32_t cols, int32_t w, int32_t h, int32_t ax,
                int32_t ay, bool max) {
  Grid<T> o(rows, cols);
  for (int32_t y = 0; y < rows; ++y)
    for (int32_t x = 0; x < cols; ++x) {
      T e = s.at(y - ay, x - ax);
      for (int32_t i = 0; i < h; ++i)
        for (int32_t j = 0; j < w; ++j) {
          const T v = s.at(y - ay + i, x - ax + j);
          e = max ? std::max(e, v) : std::min(e, v);
        }
      o.at(y, x) = e;
    }
  return o;
}

}  // namespace filter_ref

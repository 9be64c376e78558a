// The plain reference of nearest-neighbour resizing for the resize tests:
// the source index rule, the columns that the eight-bit step table serves,
// and a resize of one plane of opaque pixels. Nothing here calls the
// library.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace resize_ref {

constexpr double kEps = 1.1920928955078125e-7;

inline int32_t clamp(double v, int32_t n) {
  if (v >= (double)n) return n - 1;
  return v > 0 ? (int32_t)v : 0;
}

// Columns: truncated when shrinking or keeping the size, rounded to nearest
// (ties to even) when enlarging; clamped to the last column.
inline int32_t column_by_rule(int32_t i, double fx, int32_t sw) {
  const double g = 1.0 / fx;
  const double v = (double)i * g;
  return clamp(g >= 1.0 ? std::trunc(v) : std::nearbyint(v), sw);
}

// Rows: truncated after adding a half when enlarging by more than 2^-23.
inline int32_t row_by_rule(int32_t i, double fy, int32_t sh) {
  const double g = 1.0 / fy;
  const double t = 1.0 - g <= kEps ? 0.0 : 0.5;
  return clamp(std::trunc((double)i * g + t), sh);
}

// The columns a table of eight-bit steps reaches: each step of the rule
// keeps its low eight bits. They are the rule's columns while no step
// exceeds 255.
inline std::vector<int32_t> served_columns(int32_t dw, double fx, int32_t sw) {
  std::vector<int32_t> c((size_t)dw);
  int32_t prev = 0, at = 0;
  for (int32_t i = 0; i < dw; ++i) {
    const int32_t rule = column_by_rule(i, fx, sw);
    at += (rule - prev) & 255;
    prev = rule;
    c[(size_t)i] = at;
  }
  return c;
}

struct Plane {
  uint8_t *data;
  ptrdiff_t step;  // bytes from row to row
  int32_t rows, cols;
};

// Every destination pixel of d (bytes each) from its source pixel in s.
inline void resize(Plane d, Plane s, int32_t bytes, double fx, double fy) {
  const std::vector<int32_t> cols = served_columns(d.cols, fx, s.cols);
  for (int32_t y = 0; y < d.rows; ++y) {
    const uint8_t *srow = s.data + (ptrdiff_t)row_by_rule(y, fy, s.rows) * s.step;
    uint8_t *drow = d.data + (ptrdiff_t)y * d.step;
    for (int32_t x = 0; x < d.cols; ++x)
      std::memcpy(drow + (size_t)x * bytes, srow + (size_t)cols[(size_t)x] * bytes, (size_t)bytes);
  }
}

}  // namespace resize_ref

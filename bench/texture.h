// Images with a natural texture for the region benchmarks: smoothed noise
// with bright and dark blobs and a little grain, and a gentle ramp. Made
// once per size and kept for the whole run.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace sorn_bench {

struct Texture {
  int32_t rows, cols;
  std::vector<uint8_t> px;
};

inline uint32_t next(uint32_t &x) {
  x = x * 1664525u + 1013904223u;
  return x >> 8;
}

// Coarse noise on a grid of 16-pixel cells, interpolated, plus blobs and
// grain: regions of every size, from single pixels to a large part of the
// frame, as the flooding meets them in photographs.
inline Texture make_texture(int32_t rows, int32_t cols, uint32_t seed) {
  Texture t{rows, cols, std::vector<uint8_t>((size_t)rows * cols)};
  const int32_t cell = 16;
  const int32_t gr = rows / cell + 2, gc = cols / cell + 2;
  std::vector<float> grid((size_t)gr * gc);
  uint32_t x = seed * 2654435761u + 7;
  for (auto &g : grid) g = (float)(next(x) % 160);
  struct Blob {
    float y, x, r, a;
  };
  std::vector<Blob> blobs;
  const int nblobs = (int)((int64_t)rows * cols / 40000) + 4;
  for (int i = 0; i < nblobs; ++i)
    blobs.push_back({(float)(next(x) % rows), (float)(next(x) % cols), 8.0f + (float)(next(x) % 60),
                     (float)((int)(next(x) % 120) - 60)});
  std::vector<float> img((size_t)rows * cols);
  for (int32_t r = 0; r < rows; ++r) {
    const float fy = (float)r / cell;
    const int32_t y0 = (int32_t)fy;
    const float wy = fy - (float)y0;
    for (int32_t c = 0; c < cols; ++c) {
      const float fx = (float)c / cell;
      const int32_t x0 = (int32_t)fx;
      const float wx = fx - (float)x0;
      const float *g0 = &grid[(size_t)y0 * gc + x0], *g1 = g0 + gc;
      img[(size_t)r * cols + c] =
          (g0[0] * (1 - wx) + g0[1] * wx) * (1 - wy) + (g1[0] * (1 - wx) + g1[1] * wx) * wy;
    }
  }
  for (const Blob &b : blobs) {
    const int32_t r0 = std::max(0, (int32_t)(b.y - b.r)), r1 = std::min(rows, (int32_t)(b.y + b.r));
    const int32_t c0 = std::max(0, (int32_t)(b.x - b.r)), c1 = std::min(cols, (int32_t)(b.x + b.r));
    for (int32_t r = r0; r < r1; ++r)
      for (int32_t c = c0; c < c1; ++c) {
        const float d2 = ((float)r - b.y) * ((float)r - b.y) + ((float)c - b.x) * ((float)c - b.x);
        img[(size_t)r * cols + c] += b.a * std::exp(-d2 / (b.r * b.r * 0.5f));
      }
  }
  for (size_t i = 0; i < img.size(); ++i) {
    float v = img[i] + 40.0f + (float)(next(x) % 9);
    t.px[i] = (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v);
  }
  return t;
}

// A gentle diagonal ramp with grain: the flooding walks it in image order,
// so that it shows the cost of the algorithm with the caches on its side.
inline Texture make_ramp(int32_t rows, int32_t cols, uint32_t seed) {
  Texture t{rows, cols, std::vector<uint8_t>((size_t)rows * cols)};
  uint32_t x = seed * 2654435761u + 3;
  const int32_t span = rows + cols;
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c)
      t.px[(size_t)r * cols + c] =
          (uint8_t)(((int64_t)(r + c) * 240 / span) + (int32_t)(next(x) % 4));
  return t;
}

// Kind 0 the texture, 1 the ramp.
inline const Texture &texture(int32_t rows, int32_t cols, int kind = 0) {
  static std::map<std::pair<std::pair<int32_t, int32_t>, int>, std::unique_ptr<Texture>> cache;
  auto &slot = cache[{{rows, cols}, kind}];
  if (!slot) {
    const uint32_t seed = (uint32_t)(rows * 31 + cols);
    slot = std::make_unique<Texture>(kind ? make_ramp(rows, cols, seed)
                                          : make_texture(rows, cols, seed));
  }
  return *slot;
}

inline SornArray record(const Texture &t, int ndims) {
  SornArray a;
  std::memset(&a, 0, sizeof a);
  a.dims[0] = 1; a.dims[1] = t.rows; a.dims[2] = t.cols; a.dims[3] = 1;
  a.bounds[0] = 1; a.bounds[1] = t.rows; a.bounds[2] = t.cols; a.bounds[3] = 1;
  a.strides[0] = t.rows * t.cols; a.strides[1] = t.cols; a.strides[2] = 1; a.strides[3] = 1;
  a.ndims = (uint16_t)ndims;
  a.ndimsall = (uint16_t)ndims;
  a.elemtype = SORN_U8;
  a.marker = 0x22;
  a.data = const_cast<uint8_t *>(t.px.data());
  return a;
}

}  // namespace sorn_bench

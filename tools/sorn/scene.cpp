// The default picture: a generated scene with a textured background and
// dark and bright blobs, some nested, so that every command has something
// to show without an input file.
//
// Only integer arithmetic, + - * / and sqrt, which IEEE rounds exactly, go
// into it: the picture is the same byte for byte on every machine, and tests
// may pin numbers of it.
#include <algorithm>
#include <cmath>

#include "cli.h"

namespace sorn::tool {

namespace {

constexpr int32_t kWidth = 320;
constexpr int32_t kHeight = 240;

uint32_t hash2(uint32_t x, uint32_t y, uint32_t salt) {
  uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ salt * 0xcb1ab31fu;
  h ^= h >> 15;
  h *= 0x2c1b3c6du;
  h ^= h >> 12;
  h *= 0x297a2d39u;
  h ^= h >> 15;
  return h;
}

// Value noise in [0, 1): lattice values every 'cell' pixels, blended with a
// smoothstep.
double value_noise(int32_t x, int32_t y, int32_t cell, uint32_t salt) {
  int32_t cx = x / cell, cy = y / cell;
  double fx = double(x % cell) / cell, fy = double(y % cell) / cell;
  fx = fx * fx * (3 - 2 * fx);
  fy = fy * fy * (3 - 2 * fy);
  auto at = [&](int32_t i, int32_t j) {
    return double(hash2(uint32_t(i), uint32_t(j), salt) >> 8) / 16777216.0;
  };
  double top = at(cx, cy) * (1 - fx) + at(cx + 1, cy) * fx;
  double bottom = at(cx, cy + 1) * (1 - fx) + at(cx + 1, cy + 1) * fx;
  return top * (1 - fy) + bottom * fy;
}

// Rounded to nearest; 255.5 truncates to 255.
uint8_t to_byte(double v) { return uint8_t(std::clamp(v, 0.0, 255.0) + 0.5); }

// A small generator for the blob layout.
struct Lcg {
  uint32_t s;
  uint32_t next() { return s = s * 1664525u + 1013904223u; }
  int32_t range(int32_t lo, int32_t hi) {
    return lo + int32_t((next() >> 8) % uint32_t(hi - lo + 1));
  }
};

struct Blob {
  double cx, cy, rx, ry;
  double c, s;  // rotation as a unit vector
  double rgb[3];
};

}  // namespace

Image default_picture() {
  Image image(kWidth, kHeight, 3);
  // Background: a diagonal colour gradient, two octaves of value noise and a
  // fine grain, around the middle grey so that blobs of both polarities
  // stand out.
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      double t = double(x + y) / (kWidth + kHeight);
      double n = 0.65 * value_noise(x, y, 24, 1) + 0.35 * value_noise(x, y, 7, 2);
      double grain = double(hash2(uint32_t(x), uint32_t(y), 3) % 9) - 4;
      double base[3] = {118 + 30 * t, 124 + 10 * t, 138 - 26 * t};
      for (int c = 0; c < 3; ++c) {
        double v = base[c] + 44 * (n - 0.5) + grain;
        image.at(y, x, c) = to_byte(v);
      }
    }
  }

  // Blobs: sizes from a few pixels to a fifth of the picture, half of them
  // darker and half brighter than the background, a few with a blob of the
  // other polarity inside.
  std::vector<Blob> blobs;
  Lcg rng{20240611u};
  for (int i = 0; i < 26; ++i) {
    Blob b;
    b.cx = rng.range(12, kWidth - 13);
    b.cy = rng.range(12, kHeight - 13);
    int32_t r = (i % 3 == 0) ? rng.range(18, 34) : rng.range(4, 15);
    b.rx = r;
    b.ry = r * rng.range(45, 100) / 100.0;
    int32_t ax = rng.range(-8, 8), ay = rng.range(1, 8);
    double len = std::sqrt(double(ax * ax + ay * ay));
    b.c = ax / len;
    b.s = ay / len;
    bool dark = (i % 2) == 0;
    for (int c = 0; c < 3; ++c) {
      b.rgb[c] = dark ? rng.range(20, 70) : rng.range(185, 245);
    }
    blobs.push_back(b);
    if (i % 5 == 0) {
      Blob inner = b;
      inner.rx *= 0.45;
      inner.ry *= 0.45;
      for (int c = 0; c < 3; ++c) inner.rgb[c] = dark ? rng.range(190, 240) : rng.range(25, 60);
      blobs.push_back(inner);
    }
  }

  for (const Blob &b : blobs) {
    int32_t reach = int32_t(std::max(b.rx, b.ry)) + 3;
    int32_t y0 = std::max(0, int32_t(b.cy) - reach),
            y1 = std::min(kHeight - 1, int32_t(b.cy) + reach);
    int32_t x0 = std::max(0, int32_t(b.cx) - reach),
            x1 = std::min(kWidth - 1, int32_t(b.cx) + reach);
    for (int32_t y = y0; y <= y1; ++y) {
      for (int32_t x = x0; x <= x1; ++x) {
        double dx = x - b.cx, dy = y - b.cy;
        double u = (dx * b.c + dy * b.s) / b.rx, v = (dy * b.c - dx * b.s) / b.ry;
        double d = std::sqrt(u * u + v * v);
        // About a pixel and a half of soft edge, whatever the size.
        double alpha = std::clamp((1 - d) * std::min(b.rx, b.ry) / 1.5, 0.0, 1.0);
        if (alpha <= 0) continue;
        double grain = double(hash2(uint32_t(x), uint32_t(y), 4) % 7) - 3;
        for (int c = 0; c < 3; ++c) {
          double mixed = image.at(y, x, c) * (1 - alpha) + (b.rgb[c] + grain) * alpha;
          image.at(y, x, c) = to_byte(mixed);
        }
      }
    }
  }
  return image;
}

}  // namespace sorn::tool

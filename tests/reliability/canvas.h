// Operands inside canvases: every array a call sees is the site of a larger
// block (its parent, with margins on every side and padded rows) that is
// filled with a known pattern, so that any byte a call writes where it
// should not shows up as a changed byte, and a read past the site stays
// inside memory the test owns. Records are filled field by field.
#pragma once

#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "testkit.h"

namespace sorn_reliability {

inline uint8_t canvas_pattern(size_t i) { return (uint8_t)(i * 131u + 77u); }

// A block of bytes with a known pattern and the ranges a call may write.
struct Canvas {
  std::vector<uint8_t> bytes;
  std::vector<std::pair<size_t, size_t>> writable;  // [begin, end) byte ranges
  std::vector<uint8_t> before;

  explicit Canvas(size_t n = 0) : bytes(n) {
    for (size_t i = 0; i < n; ++i) bytes[i] = canvas_pattern(i);
  }
  uint8_t *data() { return bytes.data(); }
  void snapshot() { before = bytes; }
  bool unchanged() const { return bytes == before; }
  // The first byte written outside the writable ranges, or -1.
  int64_t first_stray() const {
    for (size_t i = 0; i < bytes.size(); ++i) {
      if (bytes[i] == before[i]) continue;
      bool ok = false;
      for (const auto &r : writable)
        if (i >= r.first && i < r.second) ok = true;
      if (!ok) return (int64_t)i;
    }
    return -1;
  }
};

// An image of rows x cols x channels elements of one type, whose site sits
// inside a parent with 'margin' pixels and rows on every side (and planes
// in front and behind at rank 4), rows padded by 'pad' elements.
struct Image {
  Canvas canvas;
  SornArray rec;
  uint32_t type = SORN_U8;
  int32_t planes = 1, rows = 0, cols = 0, channels = 1, esize = 1;
  int32_t pixstride = 0, rowstride = 0, planestride = 0;
  size_t site = 0;  // byte of the site's first element

  size_t at(int32_t z, int32_t y, int32_t x, int32_t c = 0) const {
    return site + (size_t)z * planestride + (size_t)y * rowstride + (size_t)x * pixstride +
           (size_t)c * esize;
  }
  // Marks the pixels [y0, y0 + h) x [x0, x0 + w) of every plane writable.
  void allow(int32_t y0, int32_t x0, int32_t h, int32_t w) {
    for (int32_t z = 0; z < planes; ++z)
      for (int32_t y = y0; y < y0 + h; ++y)
        canvas.writable.push_back({at(z, y, x0), at(z, y, x0) + (size_t)w * pixstride});
  }
};

inline int32_t elem_size(uint32_t type) { return SORN_ELEMSIZE(type); }

// Fills the site's elements with values of the type; the rest keeps the
// pattern.
template <class Gen>
void fill_site(Image &im, std::mt19937_64 &rng, Gen value) {
  for (int32_t z = 0; z < im.planes; ++z)
    for (int32_t y = 0; y < im.rows; ++y)
      for (int32_t x = 0; x < im.cols; ++x)
        for (int32_t c = 0; c < im.channels; ++c) {
          uint8_t *p = im.canvas.data() + im.at(z, y, x, c);
          const double v = value(rng);
          switch (im.type) {
            case SORN_U8: *p = (uint8_t)v; break;
            case SORN_S8: { int8_t t = (int8_t)v; std::memcpy(p, &t, 1); break; }
            case SORN_S16: { int16_t t = (int16_t)v; std::memcpy(p, &t, 2); break; }
            case SORN_S32: { int32_t t = (int32_t)v; std::memcpy(p, &t, 4); break; }
            case SORN_F32: { float t = (float)v; std::memcpy(p, &t, 4); break; }
            default: break;
          }
        }
}

inline void make_image(Image &im, uint32_t type, int32_t planes, int32_t rows, int32_t cols,
                       int32_t channels, int32_t margin, int32_t pad, int32_t ndims = 3) {
  im.type = type;
  im.planes = planes;
  im.rows = rows;
  im.cols = cols;
  im.channels = channels;
  im.esize = elem_size(type);
  im.pixstride = channels * im.esize;
  const int32_t pcols = cols + 2 * margin, prows = rows + 2 * margin;
  const int32_t pplanes = ndims == 4 ? planes + 2 : 1;
  im.rowstride = pcols * im.pixstride + pad * im.esize;
  im.planestride = ndims == 4 ? prows * im.rowstride : 0;
  const size_t bytes = (size_t)pplanes * (size_t)(ndims == 4 ? im.planestride : prows * im.rowstride);
  im.canvas = Canvas(bytes);
  const int32_t oz = ndims == 4 ? 1 : 0;
  im.site = (size_t)oz * im.planestride + (size_t)margin * im.rowstride + (size_t)margin * im.pixstride;

  SornArray &a = im.rec;
  std::memset(&a, 0, sizeof a);
  a.dims[0] = planes; a.dims[1] = rows; a.dims[2] = cols; a.dims[3] = channels;
  a.bounds[0] = ndims == 4 ? pplanes : planes;
  a.bounds[1] = prows; a.bounds[2] = pcols; a.bounds[3] = channels;
  a.strides[0] = im.planestride; a.strides[1] = im.rowstride;
  a.strides[2] = im.pixstride; a.strides[3] = im.esize;
  a.ndims = (uint16_t)ndims;
  a.ndimsall = (uint16_t)ndims;
  a.elemtype = type;
  a.marker = 0x22;
  a.offset = (int64_t)im.site;
  a.data = im.canvas.data();
}

// A plain block (a result vector, histogram records, counters) with a
// margin of pattern bytes on both sides; its body is writable.
struct Block {
  Canvas canvas;
  size_t margin = 64, body = 0;
  void make(size_t bytes) {
    body = bytes;
    canvas = Canvas(bytes + 2 * margin);
    canvas.writable.push_back({margin, margin + bytes});
  }
  uint8_t *data() { return canvas.data() + margin; }
};

}  // namespace sorn_reliability

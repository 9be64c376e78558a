// Pieces that both floodings share: the frame of a run taken from the
// dimension word, and the search for an inside seed in a pixel mask.
#pragma once

#include <sorn.h>

#include <cstdint>

namespace sorn::region {

constexpr uint32_t kListEnd = 0x7FFFFFFFu;
constexpr uint32_t kFloodable = 0x80000000u;

// Both floodings take up waiting pixels in an order that the image decides,
// after a stretch of work elsewhere that grows with the flooded boundary; on
// a large image such a pixel and the rows around it have left the caches.
// Each form knows the pixel it will take up some pops ahead (the plain form
// from its level stacks, the f form from a shadow of its level lists) and
// fetches the line of that pixel and the lines a row before and after it.
// The addresses are only ever prefetched, never read, and may lie outside
// the arrays at the first and last rows; they are formed as integers.
constexpr int64_t kReturnsAhead = 16;
constexpr int kForRead = 0, kForWrite = 1;

template <int Use> inline void prefetch_rows(const void *p, int64_t rowbytes) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(p);
  __builtin_prefetch(reinterpret_cast<const void *>(a - (uintptr_t)rowbytes), Use, 3);
  __builtin_prefetch(p, Use, 3);
  __builtin_prefetch(reinterpret_cast<const void *>(a + (uintptr_t)rowbytes), Use, 3);
}

// The stack of open regions: pointers that grow by doubling; a push that
// can't grow is left out and answers false.
template <class T> struct PtrStack {
  T **items;
  int64_t count;
  int64_t capacity;

  bool push(T *p) {
    if (count == capacity) {
      int64_t cap = capacity ? capacity * 2 : 2;
      void *q = _KuMrealloc(items, (size_t)cap * sizeof(T *), 0);
      if (!q) return false;
      items = static_cast<T **>(q);
      capacity = cap;
    }
    items[count++] = p;
    return true;
  }
};

// Rows, columns and steps of a run. Up to two cells an image is one row.
struct Frame {
  int32_t rows;
  int32_t cols;
  int32_t rowstride;
  int32_t pixstride;
};

inline Frame frame_of(SornDimPack code, const int32_t *dims, const int32_t *strides) {
  int32_t n = (int32_t)(code & 15);
  Frame f{1, 1, 0, 1};
  if (n >= 2) {
    f.cols = dims[n - 2];
    f.pixstride = strides[n - 2];
  }
  if (n >= 3) {
    f.rows = dims[n - 3];
    f.rowstride = strides[n - 3];
  }
  return f;
}

inline uint8_t polarity_mask(const SornWTSState *st) { return st->polarity == 1 ? 0xFF : 0; }

inline uint8_t excluded_value(SornFlags flags) { return (flags & SORN_F_WTS_INVMASK) ? 0xFF : 0; }

inline bool seed_in(const Frame &f, const SornWTSState *st) {
  return st->seed[1] < (uint32_t)f.rows && st->seed[2] < (uint32_t)f.cols;
}

// Where a masked run starts: the first inside pixel from the seed on in
// raster order, else from the top left up to the seed (for a seed that is
// not the top left). False when no pixel is inside. A run given the top
// left drops the rows above the seed it finds, so its tree counts rows
// from the first row kept.
inline bool find_seed(Frame &f, const uint8_t *&src, const uint8_t *&mask, const int32_t *mstrides3,
                      uint8_t excl, int32_t &seedrow, int32_t &seedcol) {
  const int32_t mrow = mstrides3[0], mpix = mstrides3[1];
  auto inside = [&](int32_t r, int32_t c) {
    return mask[(int64_t)r * mrow + (int64_t)c * mpix] != excl;
  };
  const int64_t start = (int64_t)seedrow * f.cols + seedcol;
  const int64_t npix = (int64_t)f.rows * f.cols;
  int64_t found = -1;
  for (int64_t i = start; i < npix && found < 0; ++i)
    if (inside((int32_t)(i / f.cols), (int32_t)(i % f.cols))) found = i;
  if (found < 0) {
    if (start == 0) return false;
    for (int64_t i = 0; i < start && found < 0; ++i)
      if (inside((int32_t)(i / f.cols), (int32_t)(i % f.cols))) found = i;
    if (found < 0) return false;
  }
  int32_t r = (int32_t)(found / f.cols), c = (int32_t)(found % f.cols);
  if (start == 0 && r > 0) {
    f.rows -= r;
    src += (int64_t)r * f.rowstride;
    mask += (int64_t)r * mrow;
    r = 0;
  }
  seedrow = r;
  seedcol = c;
  return true;
}

// The mask's steps in the frame of a run.
inline void mask_steps(SornDimPack code, const int32_t *mstrides, int32_t out[2]) {
  int32_t n = (int32_t)(code & 15);
  out[0] = n >= 3 ? mstrides[n - 3] : 0;
  out[1] = n >= 2 ? mstrides[n - 2] : 1;
}

}  // namespace sorn::region

// The tile paths of the arithmetic: where a destination is narrower than
// its source (or a constant needs a wider type than the kernels of the
// destination have), the operation is formed in a scratch tile of a few
// rows in the wider type and the saturating conversion brings it into the
// destination, tile by tile, so that the tile stays in the first-level
// cache.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <cstdint>

#include "core/elem_types.h"

namespace sorn::arith {

// A scratch block from the environment's stack for tiles of a region: the
// region's n cells of dims with cell 0 cut to `height`, dense, elements of
// esize bytes. The block goes back when the tile goes out of scope, on every
// way out.
class Tile {
 public:
  explicit Tile(SornXE *xe) : xe_(xe) {}
  ~Tile() {
    if (block_ != nullptr) SornXEfreea(xe_, block_);
  }
  Tile(const Tile &) = delete;
  Tile &operator=(const Tile &) = delete;

  // SORN_ENOMEM when the stack has no block for it, or there is no
  // environment to take one from.
  SornStatus open(int32_t n, const int32_t *dims, int32_t height, int32_t esize) {
    if (xe_ == nullptr) return SORN_ENOMEM;
    for (int32_t i = 0; i < n; ++i) {
      dims_[i] = dims[i];
      strides_[i] = 0;
    }
    dims_[0] = height;
    strides_[n - 1] = esize;
    const size_t size = sorn_vmemsize(n, dims_, strides_, 2);
    block_ = SornXEalloca(xe_, size, 8);
    return block_ != nullptr ? SORN_OK : SORN_ENOMEM;
  }

  void *data() const { return block_; }
  int32_t *dims() { return dims_; }
  const int32_t *strides() const { return strides_; }

 private:
  SornXE *xe_;
  void *block_ = nullptr;
  int32_t dims_[4] = {0, 0, 0, 0};
  int32_t strides_[4] = {0, 0, 0, 0};
};

// The rows of a tile of the two-array path, by the length of a row after
// the fold (W) and the larger of the sources' codes: rows of up to 32
// elements take every row at once, longer ones fewer, down to 2. Limits are
// inclusive. The destination is told by its size, so that the signed
// saturating forms, whose u8 destination is written as s8, have the rows of
// u8.
inline int32_t tile_height(uint32_t dsttype, uint32_t atype, uint32_t btype, int32_t w,
                           int32_t rows) {
  struct Rung {
    int32_t limit, height;
  };
  static constexpr Rung kByteFromS16[] = {{256, 16}, {512, 10}, {1024, 8}, {1760, 4}};
  static constexpr Rung kByteFromWord[] = {{192, 16}, {288, 8}, {1200, 4}};
  static constexpr Rung kHalfFromWord[] = {{224, 16}, {384, 10}, {1024, 4}};
  const uint32_t m = std::max(atype, btype);
  const int32_t dsize = elem_size(dsttype);
  const Rung *ladder = nullptr;
  size_t count = 0;
  if (dsize == 1 && m == SORN_S16) {
    ladder = kByteFromS16;
    count = 4;
  } else if (dsize == 1 && (m == SORN_S32 || m == SORN_F32)) {
    ladder = kByteFromWord;
    count = 3;
  } else if (dsize == 2 && (m == SORN_S32 || m == SORN_F32)) {
    ladder = kHalfFromWord;
    count = 3;
  } else {
    return 2;
  }
  if (w <= 32) return rows;
  for (size_t i = 0; i < count; ++i)
    if (w <= ladder[i].limit) return ladder[i].height;
  return 2;
}

}  // namespace sorn::arith

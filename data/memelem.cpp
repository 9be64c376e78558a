// Element search in a two-dimensional region. The value arrives as a double
// and is brought once into the element's own type, the way constants are
// everywhere in the library, so that the loop compares like with like.
#include <sorn.h>

#include <cmath>
#include <cstdint>

#include "core/elem_types.h"

namespace {

// The value in the element's own type: rounded to nearest, ties to even,
// and saturated.
template <class T> T near(double value) { return sorn::sat32<T>(sorn::round_i32(value)); }

template <class T, bool Equal>
int32_t search_int(const void *base, int32_t rowStride, int32_t rows, int32_t cols, T value) {
  const unsigned char *row = static_cast<const unsigned char *>(base);
  for (int32_t y = 0; y < rows; ++y, row += rowStride) {
    const T *p = reinterpret_cast<const T *>(row);
    for (int32_t x = 0; x < cols; ++x)
      if ((p[x] == value) == Equal) return (int32_t)((int64_t)y * cols + x);
  }
  return -1;
}

template <bool Equal>
int32_t search_f32(const void *base, int32_t rowStride, int32_t rows, int32_t cols, float value) {
  const unsigned char *row = static_cast<const unsigned char *>(base);
  for (int32_t y = 0; y < rows; ++y, row += rowStride) {
    const float *p = reinterpret_cast<const float *>(row);
    for (int32_t x = 0; x < cols; ++x)
      if ((std::fabs(p[x] - value) <= 1.1920929e-7f) == Equal)
        return (int32_t)((int64_t)y * cols + x);
  }
  return -1;
}

template <bool Equal>
int32_t search(SornElemType type, const void *base, int32_t rowStride, int32_t rows, int32_t cols,
               double value) {
  if (rows <= 0 || cols <= 0) return -1;
  switch (type) {
    case SORN_U8:
      return search_int<uint8_t, Equal>(base, rowStride, rows, cols, near<uint8_t>(value));
    case SORN_S8:
      return search_int<int8_t, Equal>(base, rowStride, rows, cols, near<int8_t>(value));
    case SORN_S16:
      return search_int<int16_t, Equal>(base, rowStride, rows, cols, near<int16_t>(value));
    case SORN_S32:
      return search_int<int32_t, Equal>(base, rowStride, rows, cols, sorn::round_i32(value));
    case SORN_F32: return search_f32<Equal>(base, rowStride, rows, cols, (float)value);
    default: return -1;
  }
}

}  // namespace

int32_t sorn_memelem2d(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                       int32_t cols, double value) {
  return search<true>(type, base, rowStride, rows, cols, value);
}

int32_t sorn_memcelem2d(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                        int32_t cols, double value) {
  return search<false>(type, base, rowStride, rows, cols, value);
}

int32_t sorn_memelem2dS(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                        int32_t cols, double value) {
  if (!base) return -2;
  return sorn_memelem2d(type, base, rowStride, rows, cols, value);
}

int32_t sorn_memcelem2dS(SornElemType type, const void *base, int32_t rowStride, int32_t rows,
                         int32_t cols, double value) {
  if (!base) return -2;
  return sorn_memcelem2d(type, base, rowStride, rows, cols, value);
}

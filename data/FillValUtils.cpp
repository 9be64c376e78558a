// Fill vectors: one pixel's value, converted once from the caller's doubles,
// repeated over a block of 16, 32 or 64 bytes, so that the loops that fill or
// combine with a constant only ever move words. The limits of the element
// types for two-valued fills live here as well.
#include <sorn.h>

#include <cstring>
#include <type_traits>

#include "core/elem_types.h"

namespace {

// One constant in an element of type T: rounded to nearest and saturated
// for integers, narrowed for floats.
template <class T> T element_of(double v) {
  if constexpr (std::is_same_v<T, float>) {
    return (float)v;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return sorn::round_i32(v);
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    // The rounded value is taken as signed: what does not fit 32 bits
    // comes back as 0x80000000, negative, and so becomes 0.
    const int32_t r = sorn::round_i32(v);
    return r < 0 ? 0u : (uint32_t)r;
  } else {
    return sorn::sat32<T>(sorn::round_i32(v));
  }
}

template <class T> void repeat(void *out, const T *pixel, int32_t nchan, size_t bytes) {
  const size_t n = bytes / sizeof(T);
  T tmp[16];
  // The channel index counted round, not taken as a remainder: every fill
  // and every constant pays for this, on the smallest images too.
  for (size_t i = 0, c = 0; i < n; ++i) {
    tmp[i] = pixel[c];
    if (++c == (size_t)nchan) c = 0;
  }
  std::memcpy(out, tmp, n * sizeof(T));
}

// Words i + step take word i, upward, up to the last word: the block already
// holds whole periods of the pattern, so copying them keeps it.
uint32_t *dup_words(uint32_t *w, int32_t step, int32_t words) {
  if (w == nullptr || step < 1) return w;
  for (int32_t i = 0; i + step < words; ++i) w[i + step] = w[i];
  return w;
}

bool is_eight_byte_class(SornElemType t) { return t < 16 && ((t & 7u) == 4u || (t & 7u) == 6u); }

// The 16-byte vector of one pixel of nchan elements of type T.
template <class T> SornStatus pixel_vector16(void *out, const double *v, int32_t nchan) {
  T p[4];
  for (int32_t k = 0; k < nchan; ++k) p[k] = element_of<T>(v[k]);
  repeat(out, p, nchan, 16);
  return SORN_OK;
}

}  // namespace

SornStatus sorn_mkifillvalv16(SornElemType type, void *out, const double *fvals, int32_t nchan) {
  if (nchan < 1 || nchan > 4) return SORN_ENOTSUP;
  if (type > 15) return SORN_EINVAL;
  double v[4] = {0, 0, 0, 0};
  if (fvals)
    for (int32_t k = 0; k < nchan; ++k) v[k] = fvals[k];
  switch (type) {
    case SORN_U8: return pixel_vector16<uint8_t>(out, v, nchan);
    case SORN_S8: return pixel_vector16<int8_t>(out, v, nchan);
    case SORN_U16: return pixel_vector16<uint16_t>(out, v, nchan);
    case SORN_S16: return pixel_vector16<int16_t>(out, v, nchan);
    case SORN_U32: return pixel_vector16<uint32_t>(out, v, nchan);
    case SORN_S32: return pixel_vector16<int32_t>(out, v, nchan);
    case SORN_F32: return pixel_vector16<float>(out, v, nchan);
    case SORN_U64:
    case SORN_S64:
    case SORN_F64:
    case 15: return SORN_ENOTSUP;
    default: return SORN_EINVAL;
  }
}

SornStatus sorn_mkifillvalv32(SornElemType type, void *out, const double *fvals, int32_t nchan) {
  if (type == SORN_F64) {
    if (nchan < 1 || nchan > 4) return SORN_ENOTSUP;
    double p[4] = {0, 0, 0, 0};
    if (fvals)
      for (int32_t k = 0; k < nchan; ++k) p[k] = fvals[k];
    repeat(out, p, nchan, 32);
    return SORN_OK;
  }
  if (type == SORN_U64 || type == SORN_S64 || type == 15) return SORN_ENOTSUP;
  if (is_eight_byte_class(type)) return SORN_EINVAL;
  uint32_t w[8];
  const SornStatus st = sorn_mkifillvalv16(type, w, fvals, nchan);
  if (st != SORN_OK) return st;
  sorn_dupifillvalv3216(w, nchan);
  std::memcpy(out, w, sizeof w);
  return SORN_OK;
}

SornStatus sorn_mkifillvalv64(SornElemType type, void *out, const double *fvals, int32_t nchan) {
  uint32_t w[16];
  if (is_eight_byte_class(type)) {
    const SornStatus st = sorn_mkifillvalv32(type, w, fvals, nchan);
    if (st != SORN_OK) return st;
    sorn_dupifillvalv6432(w, nchan);
  } else {
    const SornStatus st = sorn_mkifillvalv16(type, w, fvals, nchan);
    if (st != SORN_OK) return st;
    sorn_dupifillvalv6416(w, nchan);
  }
  std::memcpy(out, w, sizeof w);
  return SORN_OK;
}

uint32_t *sorn_dupifillvalv3216(uint32_t *w, int32_t nchan) {
  return nchan <= 7 ? dup_words(w, nchan, 8) : w;
}

uint32_t *sorn_dupifillvalv6416(uint32_t *w, int32_t nchan) {
  return nchan <= 15 ? dup_words(w, nchan, 16) : w;
}

uint32_t *sorn_dupifillvalv6432(uint32_t *w, int32_t nchan) {
  return nchan <= 7 ? dup_words(w, 2 * nchan, 16) : w;
}

SornStatus sorn_defillvals(SornElemType type, double *hi, double *lo, int32_t nchan) {
  double top, bottom;
  switch (type) {
    case SORN_U8:
      top = 255.0;
      bottom = 0.0;
      break;
    case SORN_U16:
      top = 65535.0;
      bottom = 0.0;
      break;
    case SORN_U32:
      top = 4294967295.0;
      bottom = 0.0;
      break;
    case SORN_S8:
      top = 127.0;
      bottom = -128.0;
      break;
    case SORN_S16:
      top = 32767.0;
      bottom = -32768.0;
      break;
    case SORN_S32:
      top = 2147483647.0;
      bottom = -2147483648.0;
      break;
    // Floats have no type limits worth filling with; they take the unit range.
    case SORN_F32:
      top = 1.0;
      bottom = 0.0;
      break;
    case SORN_U64:
    case SORN_S64:
    case SORN_F64:
    case 15: return SORN_ENOTSUP;
    default: return SORN_EINVAL;
  }
  for (int32_t k = 0; k < nchan; ++k) {
    if (hi) hi[k] = top;
    if (lo) lo[k] = bottom;
  }
  return SORN_OK;
}

// A plain reference for fill values, written from the conversion rules and
// never calling the library: one double to the bytes of one element.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fill_ref {

inline const std::vector<uint32_t> &fill_types() {
#define SORN_FILL_REF_CODE(t) SORN_TYPECODE(t),
  static const std::vector<uint32_t> t = {SORN_FILL_TYPES(SORN_FILL_REF_CODE)};
#undef SORN_FILL_REF_CODE
  return t;
}

inline int32_t esize(uint32_t t) { return SORN_ELEMSIZE(t); }

// Nearest, ties to even; what does not fit 32 bits is 0x80000000.
inline int64_t round32(double v) {
  if (std::isnan(v)) return INT32_MIN;
  const double r = std::nearbyint(v);
  if (r < -2147483648.0 || r > 2147483647.0) return INT32_MIN;
  return (int64_t)r;
}

inline int64_t clampi(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : v > hi ? hi : v; }

// The element's bytes for value v.
inline void element(uint32_t t, double v, uint8_t *out) {
  const int64_t r = round32(v);
  switch (t) {
    case SORN_U8: { uint8_t x = (uint8_t)clampi(r, 0, 255); std::memcpy(out, &x, 1); break; }
    case SORN_S8: { int8_t x = (int8_t)clampi(r, -128, 127); std::memcpy(out, &x, 1); break; }
    case SORN_U16: { uint16_t x = (uint16_t)clampi(r, 0, 65535); std::memcpy(out, &x, 2); break; }
    case SORN_S16: { int16_t x = (int16_t)clampi(r, -32768, 32767); std::memcpy(out, &x, 2); break; }
    case SORN_U32: { uint32_t x = r < 0 ? 0u : (uint32_t)r; std::memcpy(out, &x, 4); break; }
    case SORN_S32: { int32_t x = (int32_t)r; std::memcpy(out, &x, 4); break; }
    case SORN_F32: { float x = (float)v; std::memcpy(out, &x, 4); break; }
    case SORN_F64: std::memcpy(out, &v, 8); break;
    default: break;
  }
}

// One pixel of nchan values.
inline std::vector<uint8_t> pixel(uint32_t t, const double *v, int32_t nchan) {
  std::vector<uint8_t> p((size_t)esize(t) * nchan);
  for (int32_t k = 0; k < nchan; ++k) element(t, v ? v[k] : 0.0, p.data() + (size_t)k * esize(t));
  return p;
}

// A block of `bytes` bytes in which the pixel repeats from the first byte on.
inline std::vector<uint8_t> block(uint32_t t, const double *v, int32_t nchan, size_t bytes) {
  const std::vector<uint8_t> p = pixel(t, v, nchan);
  std::vector<uint8_t> b(bytes);
  for (size_t i = 0; i < bytes; ++i) b[i] = p[i % p.size()];
  return b;
}

}  // namespace fill_ref

// Small inline helpers of the vector, dimension and array units. Internal:
// nothing here is exported.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

namespace sorn::core {

// 32-bit wrapping cell arithmetic, done on unsigned words so that the wrap
// is defined.
inline int32_t wadd(int32_t a, int32_t b) { return (int32_t)((uint32_t)a + (uint32_t)b); }
inline int32_t wsub(int32_t a, int32_t b) { return (int32_t)((uint32_t)a - (uint32_t)b); }
inline int32_t wmul(int32_t a, int32_t b) { return (int32_t)((uint32_t)a * (uint32_t)b); }
// Truncating division and remainder; the one quotient that does not fit
// (INT32_MIN / -1) wraps like the sum it stands for.
inline int32_t wdiv(int32_t a, int32_t b) { return (int32_t)(uint32_t)((int64_t)a / b); }
inline int32_t wrem(int32_t a, int32_t b) { return (int32_t)((int64_t)a % b); }

// Fields of a dimension-packing word.
inline int32_t pack_n(SornDimPack p) { return (int32_t)(p & 15u); }
inline int32_t pack_off(SornDimPack p) { return (int32_t)((p >> 4) & 15u); }
inline SornDimPack make_pack(int32_t n, int32_t off) {
  return (SornDimPack)((uint32_t)n | ((uint32_t)off << 4) | ((uint32_t)(n + off) << 8));
}

inline size_t slack_bytes(int32_t slack) { return slack == 1 ? 32 : slack >= 2 ? 64 : 0; }

// Cell-wise intersection of (o1, s1) and (o2, s2) into (oo, so). Null
// origins count as zeros; a null output origin is not written. Each cell's
// inputs are read before its outputs are written, so any of the vectors may
// be the same.
inline int intersect_cells(int32_t n, int32_t *oo, int32_t *so, const int32_t *o1,
                           const int32_t *s1, const int32_t *o2, const int32_t *s2) {
  int ok = n >= 1;
  for (int32_t i = 0; i < n; ++i) {
    int64_t a0 = o1 ? o1[i] : 0, a1 = a0 + s1[i];
    int64_t b0 = o2 ? o2[i] : 0, b1 = b0 + s2[i];
    int64_t lo = a0 > b0 ? a0 : b0;
    int64_t hi = a1 < b1 ? a1 : b1;
    int32_t size = (int32_t)(uint32_t)(uint64_t)(hi - lo);
    if (oo) oo[i] = (int32_t)lo;
    so[i] = size;
    if (hi - lo < 1) ok = 0;
  }
  return ok;
}

}  // namespace sorn::core

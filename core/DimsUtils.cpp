// Widening short vectors to the four cells of a record. The plain forms align
// to the right (the channels cell last); the spatial ($gv) forms align to the
// depth, row and column cells and leave the channels cell at the fill value.
// dims fill with 0 (an origin), Nvolume with 1 (an extent).
#include <sorn.h>

#include <cstdint>

#include "core/VecSpaceUtils.h"

using namespace sorn::core;

namespace {

int32_t *expand_right(int32_t *out, int32_t n, const int32_t *v, int32_t fill) {
  for (int32_t i = 0; i < 4; ++i) out[i] = fill;
  if (!v) return out;
  if (n > 4) {  // only the last four cells can be placed
    v += n - 4;
    n = 4;
  }
  for (int32_t i = 0; i < n; ++i) out[4 - n + i] = v[i];
  return out;
}

int32_t *expand_spatial(int32_t *out, int32_t n, const int32_t *v, int32_t fill) {
  if (n >= 4) return expand_right(out, n, v, fill);
  for (int32_t i = 0; i < 4; ++i) out[i] = fill;
  if (!v) return out;
  for (int32_t i = 0; i < n; ++i) out[3 - n + i] = v[i];
  return out;
}

// The $L forms take the off cells in front of the pointer as well.
const int32_t *lead(SornDimPack pack, const int32_t *v) { return v ? v - pack_off(pack) : v; }
int32_t cells(SornDimPack pack) { return (pack_n(pack) + pack_off(pack)) & 15; }

}  // namespace

int32_t *__sorn_dims__$v(int32_t *out, int32_t n, const int32_t *v) {
  return expand_right(out, n & 15, v, 0);
}
int32_t *__sorn_dims__$gv(int32_t *out, int32_t n, const int32_t *v) {
  return expand_spatial(out, n & 15, v, 0);
}
int32_t *__sorn_Nvolume__$v(int32_t *out, int32_t n, const int32_t *v) {
  return expand_right(out, n & 15, v, 1);
}
int32_t *__sorn_Nvolume__$gv(int32_t *out, int32_t n, const int32_t *v) {
  return expand_spatial(out, n & 15, v, 1);
}

int32_t *__sorn_dims__$v$L(int32_t *out, SornDimPack pack, const int32_t *v) {
  return expand_right(out, cells(pack), lead(pack, v), 0);
}
int32_t *__sorn_dims__$gv$L(int32_t *out, SornDimPack pack, const int32_t *v) {
  return expand_spatial(out, cells(pack), lead(pack, v), 0);
}
int32_t *__sorn_Nvolume__$v$L(int32_t *out, SornDimPack pack, const int32_t *v) {
  return expand_right(out, cells(pack), lead(pack, v), 1);
}
int32_t *__sorn_Nvolume__$gv$L(int32_t *out, SornDimPack pack, const int32_t *v) {
  return expand_spatial(out, cells(pack), lead(pack, v), 1);
}

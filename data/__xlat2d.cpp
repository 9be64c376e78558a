// Byte translation tables applied to a byte image, one table per channel: a
// kernel unit, so that the comparisons below run in the wider vector units
// too.
#include <sorn.h>

#include <cstddef>
#include <cstdint>

namespace {

// A table that is one value, or the identity, inside an interval of
// entries, and one value or the identity outside it, is what a comparison
// with a constant gives; applying it by comparing runs many times faster
// than looking each byte up, with the same bytes.
struct Step {
  uint8_t lo = 0, span = 255;  // entries lo .. lo + span are inside
  bool in_id = false, out_id = false;
  uint8_t in = 0, out = 0;
};

bool step_of(const uint8_t *tab, Step *s) {
  // The outside is the identity or the value of one end of the table.
  for (int kind = 0; kind < 3; ++kind) {
    const bool out_id = kind == 0;
    const uint8_t out = kind == 1 ? tab[0] : tab[255];
    auto outside = [&](int i) { return out_id ? (uint8_t)i : out; };
    int first = -1, last = -1;
    for (int i = 0; i < 256; ++i)
      if (tab[i] != outside(i)) {
        if (first < 0) first = i;
        last = i;
      }
    if (first < 0) {
      *s = Step{0, 255, out_id, out_id, out, out};
      return true;
    }
    bool id = true, same = true;
    for (int i = first; i <= last; ++i) {
      id = id && tab[i] == (uint8_t)i;
      same = same && tab[i] == tab[first];
    }
    if (id || same) {
      *s = Step{(uint8_t)first, (uint8_t)(last - first), id, out_id, tab[first], out};
      return true;
    }
  }
  return false;
}

template <bool InId, bool OutId>
void step_row(uint8_t *__restrict o, const uint8_t *__restrict x, ptrdiff_t len, const Step s) {
  for (ptrdiff_t i = 0; i < len; ++i) {
    const uint8_t v = x[i];
    const bool in = (uint8_t)(v - s.lo) <= s.span;
    o[i] = in ? (InId ? v : s.in) : (OutId ? v : s.out);
  }
}

template <bool InId, bool OutId>
void step_rows(uint8_t *d, const uint8_t *src, ptrdiff_t dstep, ptrdiff_t sstep, int32_t rows,
               ptrdiff_t len, const Step &s) {
  for (int32_t y = 0; y < rows; ++y) step_row<InId, OutId>(d + y * dstep, src + y * sstep, len, s);
}

void lookup_rows(uint8_t *const *tables, uint8_t *d, const uint8_t *src, ptrdiff_t dstep,
                 ptrdiff_t sstep, int32_t rows, int32_t width, int32_t nchan) {
  for (int32_t y = 0; y < rows; ++y) {
    uint8_t *o = d + y * dstep;
    const uint8_t *x = src + y * sstep;
    if (nchan == 1) {
      const uint8_t *t = tables[0];
      for (int32_t i = 0; i < width; ++i) o[i] = t[x[i]];
    } else {
      for (int32_t p = 0; p < width; ++p)
        for (int32_t k = 0; k < nchan; ++k) o[p * nchan + k] = tables[k][x[p * nchan + k]];
    }
  }
}

}  // namespace

SornStatus sorn_xlat2d_u8(uint8_t *const *tables, void *dst, const void *src, int32_t dstRowStride,
                          int32_t srcRowStride, int32_t rows, int32_t width, int32_t nchan) {
  if (rows <= 0 || width <= 0) return SORN_OK;
  if ((int64_t)width * nchan == srcRowStride && dstRowStride == srcRowStride) {
    width *= rows;
    rows = 1;
  }
  if (nchan == 2) return SORN_ENOTSUP;
  if (nchan != 1 && nchan != 3 && nchan != 4) return SORN_EINVAL;
  uint8_t *d = (uint8_t *)dst;
  const uint8_t *s = (const uint8_t *)src;
  Step st;
  if (nchan == 1 && step_of(tables[0], &st)) {
    const ptrdiff_t len = width;
    if (st.in_id && st.out_id)
      step_rows<true, true>(d, s, dstRowStride, srcRowStride, rows, len, st);
    else if (st.in_id)
      step_rows<true, false>(d, s, dstRowStride, srcRowStride, rows, len, st);
    else if (st.out_id)
      step_rows<false, true>(d, s, dstRowStride, srcRowStride, rows, len, st);
    else
      step_rows<false, false>(d, s, dstRowStride, srcRowStride, rows, len, st);
    return SORN_OK;
  }
  lookup_rows(tables, d, s, dstRowStride, srcRowStride, rows, width, nchan);
  return SORN_OK;
}

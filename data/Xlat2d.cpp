// Byte translation tables: built from one or two comparisons with a
// constant, and applied to a byte image, one table per channel.
#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "data/compare_kernel.h"

namespace {

using sorn::compare::is_vector;

bool good_channels(int32_t nchan) { return nchan >= 1 && nchan <= 4; }
bool good_operator(uint32_t op) { return (op & 15u) >= SORN_CMP_EQ && (op & 15u) <= SORN_CMP_NE; }

// Whether entry i meets the condition op against v (op one of 3 to 8).
bool meets(uint32_t op, int i, int v) {
  switch (op & 15u) {
    case SORN_CMP_EQ: return i == v;
    case SORN_CMP_LT: return i < v;
    case SORN_CMP_LE: return i <= v;
    case SORN_CMP_GT: return i > v;
    case SORN_CMP_GE: return i >= v;
    default: return i != v;
  }
}

// The doubles of a table argument as bytes, by the u8 fill vector rule; a
// small value passes on as it is.
SornStatus as_bytes(const double *vals, int32_t nchan, uint8_t (&bytes)[16], const uint8_t **out) {
  if (!is_vector(vals)) {
    *out = (const uint8_t *)vals;
    return SORN_OK;
  }
  *out = bytes;
  return sorn_mkifillvalv16(SORN_U8, bytes, vals, nchan);
}

/* ---------------- applying a table ---------------- */

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

/* ---------------- building tables ---------------- */

SornStatus sorn__mkcmpxlatab(uint8_t **tables, SornCmpOp op, const uint8_t *cbytes,
                             const uint8_t *tval, const uint8_t *fval, int32_t nchan) {
  if (!good_channels(nchan)) return SORN_EINVAL;
  const uint8_t *t = tval, *f = fval;
  uint8_t mask_t[4] = {255, 255, 255, 255}, mask_f[4] = {0, 0, 0, 0};
  if (tval == nullptr && fval == nullptr) {
    t = mask_t;
    f = mask_f;
  } else if (!is_vector(tval)) {
    if (!is_vector(fval)) return SORN_EINVAL;
    // The value side becomes the side that holds.
    op = SORN_CMP_COMPLEMENT(op);
    t = fval;
    f = nullptr;
  } else if (!is_vector(fval)) {
    f = nullptr;
  }
  if (!good_operator(op)) return SORN_EINVAL;
  for (int32_t k = 0; k < nchan; ++k) {
    uint8_t *tab = tables[k];
    const int v = cbytes[k];
    for (int i = 0; i < 256; ++i) tab[i] = meets(op, i, v) ? t[k] : f ? f[k] : (uint8_t)i;
  }
  return SORN_OK;
}

SornStatus sorn_mkcmpxlatab(uint8_t **tables, SornCmpOp op, const double *cvec, const double *tval,
                            const double *fval, int32_t nchan) {
  uint8_t cb[16], tb[16], fb[16];
  const uint8_t *t, *f;
  SornStatus st = sorn_mkifillvalv16(SORN_U8, cb, cvec, nchan);
  if (st == SORN_OK) st = as_bytes(tval, nchan, tb, &t);
  if (st == SORN_OK) st = as_bytes(fval, nchan, fb, &f);
  if (st != SORN_OK) return st;
  return sorn__mkcmpxlatab(tables, op, cb, t, f, nchan);
}

SornStatus sorn__mkcmpxlatab2(uint8_t **tables, SornCmpOp op1, SornCmpOp op2,
                              const uint8_t *c1bytes, const uint8_t *c2bytes, const uint8_t *lowval,
                              const uint8_t *highval, int32_t nchan) {
  if (!good_channels(nchan) || !good_operator(op1) || !good_operator(op2)) return SORN_EINVAL;
  const bool ne1 = (op1 & 15u) == SORN_CMP_NE, ne2 = (op2 & 15u) == SORN_CMP_NE;
  for (int32_t k = 0; k < nchan; ++k) {
    uint8_t *tab = tables[k];
    const uint8_t lo = is_vector(lowval) ? lowval[k] : 0;
    const uint8_t hi = is_vector(highval) ? highval[k] : 255;
    const int v1 = c1bytes[k], v2 = c2bytes[k];
    // A not-equal pass writes every entry, so the identity start is left
    // out before one.
    if (!(is_vector(highval) && (ne1 || ne2)))
      for (int i = 0; i < 256; ++i) tab[i] = (uint8_t)i;
    // Not equal fills everything and gives the constant's own entry back its
    // identity; the first condition's fill is left out when the second fills
    // everything anyway.
    if (ne1) {
      if (!ne2) {
        for (int i = 0; i < 256; ++i) tab[i] = lo;
        tab[v1] = (uint8_t)v1;
      }
    } else {
      for (int i = 0; i < 256; ++i)
        if (meets(op1, i, v1)) tab[i] = lo;
    }
    if (ne2) {
      for (int i = 0; i < 256; ++i) tab[i] = hi;
      tab[v2] = (uint8_t)v2;
    } else {
      for (int i = 0; i < 256; ++i)
        if (meets(op2, i, v2)) tab[i] = hi;
    }
  }
  return SORN_OK;
}

SornStatus sorn_mkcmpxlatab2(uint8_t **tables, SornCmpOp op1, SornCmpOp op2, const double *c1vec,
                             const double *c2vec, const double *lowval, const double *highval,
                             int32_t nchan) {
  uint8_t c1[16], c2[16], lb[16], hb[16];
  const uint8_t *l, *h;
  SornStatus st = sorn_mkifillvalv16(SORN_U8, c1, c1vec, nchan);
  if (st == SORN_OK) st = sorn_mkifillvalv16(SORN_U8, c2, c2vec, nchan);
  if (st == SORN_OK) st = as_bytes(lowval, nchan, lb, &l);
  if (st == SORN_OK) st = as_bytes(highval, nchan, hb, &h);
  if (st != SORN_OK) return st;
  return sorn__mkcmpxlatab2(tables, op1, op2, c1, c2, l, h, nchan);
}

/* ---------------- applying tables ---------------- */

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

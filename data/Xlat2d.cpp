// Byte translation tables: built from one or two comparisons with a
// constant, one table per channel (applied to an image in __xlat2d.cpp).
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

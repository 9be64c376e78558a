// A plain reference for the comparison family, written from its rules and
// never calling the library: which status a call answers, and the bytes of
// each destination element.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fill_reference.h"

namespace cmp_ref {

constexpr float kTol = 1.1920929e-7f;

inline bool is_small(const double *p) { return (uintptr_t)p < 16; }
inline uint32_t complement(uint32_t op) {
  return (op & ~15u) | (((((op & 15u) - 3u) ^ 7u) + 1u) & 15u);
}
inline bool known(uint32_t t) { return t < 16 && ((0xfe1eu >> t) & 1u); }
inline bool no_fill(uint32_t t) { return t == SORN_U64 || t == SORN_S64 || t == SORN_F64 || t == 15; }

// The status of making a fill vector of type t.
inline SornStatus fill_status(uint32_t t) {
  if (t > 15) return SORN_EINVAL;
  if (no_fill(t)) return SORN_ENOTSUP;
  return known(t) ? SORN_OK : SORN_EINVAL;
}

inline bool kernel_source(uint32_t s) {
  return s == SORN_U8 || s == SORN_S8 || s == SORN_S16 || s == SORN_S32 || s == SORN_F32;
}
// Whether a kernel exists, and if not which refusal.
inline SornStatus lookup_status(bool values, uint32_t d, uint32_t s) {
  const uint32_t c = d & 7u;
  if (kernel_source(s) && c >= 1 && c <= 3) return SORN_OK;
  if (values && c == 5 && s == SORN_F32) return SORN_OK;
  const bool dknown = values ? known(d) : (known(d) && d != SORN_F32 && d != SORN_F64 && d != 15);
  return dknown && known(s) ? SORN_ENOTSUP : SORN_EINVAL;
}

// The value of an element of type t.
inline double value(uint32_t t, const uint8_t *p) {
  switch (t) {
    case SORN_U8: return *p;
    case SORN_S8: return (int8_t)*p;
    case SORN_U16: { uint16_t v; std::memcpy(&v, p, 2); return v; }
    case SORN_S16: { int16_t v; std::memcpy(&v, p, 2); return v; }
    case SORN_U32: { uint32_t v; std::memcpy(&v, p, 4); return v; }
    case SORN_S32: { int32_t v; std::memcpy(&v, p, 4); return v; }
    case SORN_F32: { float v; std::memcpy(&v, p, 4); return v; }
    default: return 0.0;
  }
}

// Whether `a op b` holds for elements of type t; operators outside 3 to 7
// are "not equal".
inline bool holds(uint32_t op, uint32_t t, double a, double b) {
  op &= 15u;
  if (t == SORN_F32) {
    const float x = (float)a, y = (float)b;
    const bool eq = std::fabs(x - y) <= kTol;
    switch (op) {
      case 3: return eq;
      case 4: return (y - x) > kTol;
      case 5: return (x - y) <= kTol;
      case 6: return (x - y) > kTol;
      case 7: return (y - x) <= kTol;
      default: return !eq;
    }
  }
  switch (op) {
    case 3: return a == b;
    case 4: return a < b;
    case 5: return a <= b;
    case 6: return a > b;
    case 7: return a >= b;
    default: return a != b;
  }
}

// What a call will do.
struct Plan {
  SornStatus status = SORN_OK;
  bool mask = true;      // the plain forms' all ones or zero
  uint32_t op = 0;
  std::vector<uint8_t> t, f;  // the values of each channel, destination bytes
  enum { kValue, kKeepSrc, kKeepDst } fail = kValue;
  bool tables = false;   // the byte tables of the constant forms
};

// The plan of a call: the e forms' steps in order, then the kernel lookup.
inline Plan plan(bool values, bool constant, uint32_t d, uint32_t s, int32_t c, uint32_t op,
                 const double *tval, const double *fval) {
  Plan p;
  p.op = op;
  const double *t = values ? tval : nullptr, *f = values ? fval : nullptr;
  double fm[4], zero[4] = {0, 0, 0, 0};
  if ((t == nullptr && f == nullptr) && (d & 7u) > 4u) {
    // The plain forms into a float destination write 0x3FFFFFFF and 0.
    const uint64_t bits = 0x3FFFFFFFE0000000ull;
    for (double &v : fm) std::memcpy(&v, &bits, 8);
    t = fm;
    f = zero;
  }
  if (t != nullptr || f != nullptr) {
    if (is_small(t)) {
      if (is_small(f)) { p.status = SORN_EINVAL; return p; }
      p.op = op = complement(op);
      std::swap(t, f);
    }
    bool shortcut = false;
    if (!is_small(f) && ((d & 7u) == 1u || (d & 7u) == 2u)) {
      const int64_t top = (d & 7u) == 1u ? 255 : 65535;
      shortcut = true;
      for (int32_t k = 0; k < c; ++k)
        if (fill_ref::round32(t[k]) < top || fill_ref::round32(f[k]) > 0) shortcut = false;
    }
    if (!shortcut) {
      if (d != s && (uintptr_t)f == 1) { p.status = SORN_EINVAL; return p; }
      if ((p.status = fill_status(d)) != SORN_OK) return p;
      if (constant && (p.status = fill_status(s)) != SORN_OK) return p;
      if ((p.status = lookup_status(true, d, s)) != SORN_OK) return p;
      p.mask = false;
      p.t = fill_ref::pixel(d, t, c);
      if (!is_small(f)) p.f = fill_ref::pixel(d, f, c);
      p.fail = !is_small(f) ? Plan::kValue : f != nullptr ? Plan::kKeepSrc : Plan::kKeepDst;
      return p;
    }
  }
  if (constant && (p.status = fill_status(s)) != SORN_OK) return p;
  p.status = lookup_status(false, d, s);
  return p;
}

// The table path of a byte constant form, decided after the plan, with the
// statuses it adds: an operator outside 3 to 8, then 2 channels.
inline void take_tables(Plan &p, bool constant, uint32_t d, uint32_t s, int32_t c,
                        int64_t pixels) {
  if (p.status != SORN_OK || !constant) return;
  if ((d & 7u) != 1u || (s != SORN_U8 && s != SORN_S8) || pixels <= 16384) return;
  if (!p.mask && p.fail == Plan::kKeepDst) return;
  p.tables = true;
  const uint32_t o = p.op & 15u;
  if (o < 3 || o > 8) p.status = SORN_EINVAL;
  else if (c == 2) p.status = SORN_ENOTSUP;
}

// A source element kept in a destination of another type: integers wrap,
// floats round to nearest first.
inline void keep(uint32_t d, uint32_t s, const uint8_t *a, uint8_t *out) {
  const int32_t es = SORN_ELEMSIZE(d);
  if (d == s) { std::memcpy(out, a, es); return; }
  const double v = value(s, a);
  if (d == SORN_F32) { float x = (float)v; std::memcpy(out, &x, 4); return; }
  const int64_t i = s == SORN_F32 ? fill_ref::round32(v) : (int64_t)v;
  const uint64_t u = (uint64_t)i;
  std::memcpy(out, &u, es);  // little-endian: the low bytes
}

// The bytes of one destination element of channel k, given the source
// element a, the second operand b (as the source type's value) and the
// destination's bytes before.
inline void element(const Plan &p, uint32_t d, uint32_t s, int32_t k, const uint8_t *a, double b,
                    const uint8_t *before, uint8_t *out) {
  const int32_t es = SORN_ELEMSIZE(d);
  double av = value(s, a);
  if (p.tables) {
    // The tables index raw bytes: s8 compares as unsigned here.
    av = *a;
    b = (double)(uint8_t)(int64_t)b;
  }
  const bool h = holds(p.op, s, av, b);
  if (p.mask) {
    std::memset(out, h ? 0xff : 0, es);
    return;
  }
  if (h) std::memcpy(out, p.t.data() + (size_t)k * es, es);
  else if (p.fail == Plan::kValue) std::memcpy(out, p.f.data() + (size_t)k * es, es);
  else if (p.fail == Plan::kKeepSrc) keep(d, s, a, out);
  else std::memcpy(out, before, es);
}

}  // namespace cmp_ref

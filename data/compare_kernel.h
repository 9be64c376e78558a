// The one pattern behind the 62 comparison kernels: walk rows, test each
// element of the first source against the second source or the constant of
// its channel, and write a mask, a value, the source's element or nothing.
//
// The per-element rule is a small policy per operator; the output is chosen
// once per call; the second operand and the values are either one value for
// the whole row (one channel) or a row of their own (channels that repeat,
// laid out once per call in a pattern row on the stack). So every inner loop
// is a plain loop over elements that the compiler vectorises.
//
// Private to data/: the exported kernels are thin wrappers over these
// templates, expanded from SORN_CMP_PAIRS and SORN_ECMP_PAIRS in sorn.h.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/elem_types.h"

namespace sorn::compare {

// Two floats this close are equal, and one must exceed the other by more
// than this to be greater.
constexpr float kTolerance = 1.1920929e-7f;

// Fill vectors and small values of the e forms are told apart by the
// pointer's numeric value.
inline bool is_vector(const void *p) { return (uintptr_t)p >= SORN_CMP_SMALLVAL; }

/* ---------------- per-element rules ---------------- */

template <class T> constexpr bool is_float = std::is_floating_point_v<T>;

struct Equal {
  template <class T> static bool holds(T a, T b) {
    if constexpr (is_float<T>)
      return std::fabs(a - b) <= kTolerance;
    else
      return a == b;
  }
};
// NaN is unequal to everything.
struct NotEqual {
  template <class T> static bool holds(T a, T b) { return !Equal::holds(a, b); }
};
struct Less {
  template <class T> static bool holds(T a, T b) {
    if constexpr (is_float<T>)
      return (b - a) > kTolerance;
    else
      return a < b;
  }
};
struct LessEqual {
  template <class T> static bool holds(T a, T b) {
    if constexpr (is_float<T>)
      return (a - b) <= kTolerance;
    else
      return a <= b;
  }
};
// Greater is less with the operands exchanged, and so within the tolerance.
struct Greater {
  template <class T> static bool holds(T a, T b) { return Less::holds(b, a); }
};
struct GreaterEqual {
  template <class T> static bool holds(T a, T b) { return LessEqual::holds(b, a); }
};

// Runs f with the rule of an operator: codes 3 to 7 by name, every other
// code (only the low four bits count) as not equal.
template <class F> inline void with_rule(uint32_t op, F &&f) {
  switch (op & 15u) {
    case SORN_CMP_EQ: f(Equal{}); break;
    case SORN_CMP_LT: f(Less{}); break;
    case SORN_CMP_LE: f(LessEqual{}); break;
    case SORN_CMP_GT: f(Greater{}); break;
    case SORN_CMP_GE: f(GreaterEqual{}); break;
    default: f(NotEqual{}); break;
  }
}

/* ---------------- destinations ---------------- */

// A destination element is moved as the bits of its width: masks are all
// ones, fill values (f32 included) keep their exact bit patterns.
template <size_t N> struct bits_of;
template <> struct bits_of<1> { using type = uint8_t; };
template <> struct bits_of<2> { using type = uint16_t; };
template <> struct bits_of<4> { using type = uint32_t; };
template <class D> using Bits = typename bits_of<sizeof(D)>::type;

// The first source's element written as it is. With like types that is its
// bit pattern; a keep-source value other than the documented one can reach
// a kernel with unlike types, and then the element is converted as a value:
// integers wrap to the destination's width, floats round to nearest first.
template <class D, class S> inline Bits<D> keep(S a) {
  if constexpr (sizeof(S) == sizeof(D) && (std::is_same_v<S, D> || !is_float<S>)) {
    Bits<D> u;
    std::memcpy(&u, &a, sizeof u);
    return u;
  } else if constexpr (is_float<D>) {
    const float f = (float)a;
    Bits<D> u;
    std::memcpy(&u, &f, sizeof u);
    return u;
  } else if constexpr (is_float<S>) {
    return (Bits<D>)(uint32_t)sorn::round_i32(a);
  } else {
    return (Bits<D>)(int64_t)a;
  }
}

// What a kernel writes where the comparison fails.
enum class Out {
  Mask,     // the plain forms: all ones or zero
  Value,    // the fail value of the channel
  KeepSrc,  // the first source's element
  KeepDst,  // the destination's own element
};

/* ---------------- operands of a row ---------------- */

// A row operand read element by element, and one value for every element.
template <class T> struct Each {
  const T *__restrict p;
  T operator[](ptrdiff_t i) const { return p[i]; }
};
template <class T> struct Same {
  T v;
  T operator[](ptrdiff_t) const { return v; }
};

// One row of len elements.
template <class Rule, Out O, class D, class S, class B, class V>
inline void row(Bits<D> *__restrict d, const S *__restrict a, B b, V t, V f, ptrdiff_t len) {
  using U = Bits<D>;
  for (ptrdiff_t i = 0; i < len; ++i) {
    const bool h = Rule::holds(a[i], b[i]);
    if constexpr (O == Out::Mask)
      d[i] = h ? (U) ~(U)0 : (U)0;
    else if constexpr (O == Out::Value)
      d[i] = h ? t[i] : f[i];
    else if constexpr (O == Out::KeepSrc)
      d[i] = h ? t[i] : keep<D>(a[i]);
    else
      d[i] = h ? t[i] : d[i];
  }
}

/* ---------------- the walk ---------------- */

// Pixels per pattern row: the channel values laid out for this many pixels
// at a time when they differ from channel to channel.
constexpr int32_t kPatternPixels = 256;

template <class D, class S> struct Walk {
  using U = Bits<D>;
  int32_t rows = 0;
  int32_t cols = 0;  // pixels per row
  int32_t channels = 1;
  ptrdiff_t dstep = 0, astep = 0, bstep = 0;
  uint8_t *d = nullptr;
  const uint8_t *a = nullptr;
  const uint8_t *b = nullptr;  // the second source; null for a constant
  S bv[4] = {};                // the constant of each channel
  U tv[4] = {}, fv[4] = {};    // the values of each channel

  // Rows, columns and steps of the operands from the kernel's cells; rows
  // of dense operands become one long row, except when the destination
  // lies above the first source and within its span.
  Walk(int32_t n, const int32_t *dims, void *dst, const int32_t *ds, const void *src,
       const int32_t *as, const void *src2, const int32_t *bs) {
    d = (uint8_t *)dst;
    a = (const uint8_t *)src;
    b = (const uint8_t *)src2;
    rows = 1;
    cols = n >= 2 ? dims[n - 2] : 1;
    channels = n >= 1 ? sorn::channels_of(dims[n - 1]) : 1;
    if (n >= 3) {
      rows = dims[n - 3];
      dstep = ds[n - 3];
      astep = as[n - 3];
      bstep = bs ? bs[n - 3] : 0;
    }
    if (rows < 0) rows = 0;
    if (cols < 0) cols = 0;
    if (rows > 1 && n >= 3) {
      auto dense = [&](const int32_t *s) {
        return s == nullptr || (ptrdiff_t)s[n - 2] * cols == s[n - 3];
      };
      const bool above = d > a && astep * rows > d - a;
      if (dense(ds) && dense(as) && (b == nullptr || dense(bs)) && !above) {
        cols *= rows;
        rows = 1;
      }
    }
  }
  ptrdiff_t len() const { return (ptrdiff_t)cols * channels; }
  int64_t pixels() const { return (int64_t)rows * cols; }
};

// A row of a channel pattern: values v[0..c-1] repeated for len elements.
template <class T> inline void lay_pattern(T *out, const T *v, int32_t c, ptrdiff_t len) {
  for (ptrdiff_t i = 0; i < len; ++i) out[i] = v[i % c];
}

// The rows of a walk with one rule and one output. One channel takes the
// constant and the values as one value each; more channels read them from
// pattern rows, a chunk of whole pixels at a time.
template <class Rule, Out O, class D, class S> void run_rows(Walk<D, S> &w) {
  using U = Bits<D>;
  const ptrdiff_t len = w.len();
  const bool per_channel = w.channels > 1 && (w.b == nullptr || O != Out::Mask);
  if (!per_channel) {
    for (int32_t y = 0; y < w.rows; ++y) {
      U *d = (U *)(w.d + y * w.dstep);
      const S *a = (const S *)(w.a + y * w.astep);
      if (w.b)
        row<Rule, O, D>(d, a, Each<S>{(const S *)(w.b + y * w.bstep)}, Same<U>{w.tv[0]},
                        Same<U>{w.fv[0]}, len);
      else
        row<Rule, O, D>(d, a, Same<S>{w.bv[0]}, Same<U>{w.tv[0]}, Same<U>{w.fv[0]}, len);
    }
    return;
  }
  const ptrdiff_t chunk = (ptrdiff_t)kPatternPixels * w.channels;
  const ptrdiff_t laid = len < chunk ? len : chunk;
  S bp[kPatternPixels * 4];
  U tp[kPatternPixels * 4], fp[kPatternPixels * 4];
  if (w.b == nullptr) lay_pattern(bp, w.bv, w.channels, laid);
  if constexpr (O != Out::Mask) {
    lay_pattern(tp, w.tv, w.channels, laid);
    if constexpr (O == Out::Value) lay_pattern(fp, w.fv, w.channels, laid);
  }
  for (int32_t y = 0; y < w.rows; ++y) {
    U *d = (U *)(w.d + y * w.dstep);
    const S *a = (const S *)(w.a + y * w.astep);
    const S *b = w.b ? (const S *)(w.b + y * w.bstep) : nullptr;
    for (ptrdiff_t x = 0; x < len; x += chunk) {
      const ptrdiff_t k = len - x < chunk ? len - x : chunk;
      const Each<S> bb{b ? b + x : bp};
      row<Rule, O, D>(d + x, a + x, bb, Each<U>{tp}, Each<U>{fp}, k);
    }
  }
}

template <Out O, class D, class S> void run_op(Walk<D, S> &w, uint32_t op) {
  with_rule(op, [&](auto rule) { run_rows<decltype(rule), O>(w); });
}

// The e forms: the fail side is a fill vector, the first source or the
// destination.
template <class D, class S> void run_values(Walk<D, S> &w, uint32_t op, const void *fval) {
  if (is_vector(fval))
    run_op<Out::Value>(w, op);
  else if (fval != nullptr)
    run_op<Out::KeepSrc>(w, op);
  else
    run_op<Out::KeepDst>(w, op);
}

template <class D, class S> void take_constant(Walk<D, S> &w, const void *cvector) {
  std::memcpy(w.bv, cvector, (size_t)w.channels * sizeof(S));
}
template <class D, class S> void take_values(Walk<D, S> &w, const void *tval, const void *fval) {
  std::memcpy(w.tv, tval, (size_t)w.channels * sizeof(Bits<D>));
  if (is_vector(fval)) std::memcpy(w.fv, fval, (size_t)w.channels * sizeof(Bits<D>));
}

/* ---------------- the byte tables ---------------- */

// Byte sources into byte destinations compare with a constant through one
// 256-entry table per channel once an image has more pixels than the limit:
// building the tables then costs less than the work they save.
template <class D, class S>
constexpr bool has_tables = sizeof(D) == 1 && sizeof(S) == 1 && !is_float<S>;

// The table path, or false when it doesn't apply or its scratch can't be
// had (the direct loops then run, silently). The tables index the raw
// source byte, so an s8 source and its constant compare as unsigned bytes
// here: intended, callers rely on the table path being exactly that.
template <class D, class S>
bool by_tables(SornXE *xe, const Walk<D, S> &w, const void *cvector, uint32_t op, const void *tval,
               const void *fval, SornStatus *status) {
  if constexpr (!has_tables<D, S>) {
    return false;
  } else {
    if (w.pixels() <= SORN_CMP_TABLE_LIMIT) return false;
    uint8_t *block = (uint8_t *)SornXEalloca(xe, (size_t)w.channels * 256, 0);
    if (block == nullptr) return false;
    uint8_t *tables[4];
    for (int32_t k = 0; k < w.channels; ++k) tables[k] = block + 256 * k;
    SornStatus st = sorn__mkcmpxlatab(tables, op, (const uint8_t *)cvector, (const uint8_t *)tval,
                                      (const uint8_t *)fval, w.channels);
    if (st == SORN_OK)
      st = sorn_xlat2d_u8(tables, w.d, w.a, (int32_t)w.dstep, (int32_t)w.astep, w.rows, w.cols,
                          w.channels);
    SornXEfreea(xe, block);
    *status = st;
    return true;
  }
}

/* ---------------- the four kernel forms ---------------- */

template <class D, class S>
SornStatus compare_arrays(int32_t n, const int32_t *dims, void *dst, const int32_t *ds,
                          const void *a, const int32_t *as, const void *b, const int32_t *bs,
                          uint32_t op) {
  Walk<D, S> w(n, dims, dst, ds, a, as, b, bs);
  run_op<Out::Mask>(w, op);
  return SORN_OK;
}

template <class D, class S>
SornStatus compare_constant(SornXE *xe, int32_t n, const int32_t *dims, void *dst,
                            const int32_t *ds, const void *a, const int32_t *as,
                            const void *cvector, uint32_t op) {
  Walk<D, S> w(n, dims, dst, ds, a, as, nullptr, nullptr);
  SornStatus st = SORN_OK;
  if (by_tables(xe, w, cvector, op, nullptr, nullptr, &st)) return st;
  take_constant(w, cvector);
  run_op<Out::Mask>(w, op);
  return SORN_OK;
}

template <class D, class S>
SornStatus ecompare_arrays(int32_t n, const int32_t *dims, void *dst, const int32_t *ds,
                           const void *a, const int32_t *as, const void *b, const int32_t *bs,
                           uint32_t op, const void *tval, const void *fval) {
  Walk<D, S> w(n, dims, dst, ds, a, as, b, bs);
  take_values(w, tval, fval);
  run_values(w, op, fval);
  return SORN_OK;
}

template <class D, class S>
SornStatus ecompare_constant(SornXE *xe, int32_t n, const int32_t *dims, void *dst,
                             const int32_t *ds, const void *a, const int32_t *as,
                             const void *cvector, uint32_t op, const void *tval, const void *fval) {
  Walk<D, S> w(n, dims, dst, ds, a, as, nullptr, nullptr);
  SornStatus st = SORN_OK;
  // Keeping the destination can't be put in a table.
  if (fval != nullptr && by_tables(xe, w, cvector, op, tval, fval, &st)) return st;
  take_constant(w, cvector);
  take_values(w, tval, fval);
  run_values(w, op, fval);
  return SORN_OK;
}

}  // namespace sorn::compare

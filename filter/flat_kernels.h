// What the box, minimum and maximum kernels share: the plane a kernel
// walks, rows of elements a pixel stride apart, the per-element rules of
// the three filters, the scratch blocks they take, and the exported
// wrappers emitted from the type table.
//
// A kernel reads every cell of the window of each output pixel,
// unconditionally, from src - anchor: the frame has made every such cell
// exist. Elements of a row lie a pixel stride apart; a stride of one
// element (a one-channel image) has loops of its own that the compiler
// vectorises, a wider one (a channel of a multi-channel image, picked by a
// region's channel cell) the same loops with the stride.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "core/elem_types.h"

namespace sorn::filter {

// The plane of one call: rows and columns of the destination, the steps
// between rows in bytes and between pixels in elements, of both operands.
struct Plane {
  int32_t rows, cols;
  ptrdiff_t drs, srs;  // bytes
  int32_t dps, sps;    // elements
};

template <class T>
inline Plane plane_of(int32_t n, const int32_t *sizes, const int32_t *ds, const int32_t *ss) {
  Plane p;
  p.cols = n >= 2 ? sizes[n - 2] : 1;
  p.rows = n >= 3 ? sizes[n - 3] : 1;
  p.drs = n >= 3 ? ds[n - 3] : 0;
  p.srs = n >= 3 ? ss[n - 3] : 0;
  p.dps = n >= 2 ? ds[n - 2] / (int32_t)sizeof(T) : 1;
  p.sps = n >= 2 ? ss[n - 2] / (int32_t)sizeof(T) : 1;
  if (p.rows < 0) p.rows = 0;
  if (p.cols < 0) p.cols = 0;
  return p;
}

// A row of elements `step` apart; Unit rows have a step of 1 known to the
// compiler.
template <class T, bool Unit> struct Line {
  T *p;
  int32_t step;
  T &operator[](ptrdiff_t i) const { return p[Unit ? i : i * (ptrdiff_t)step]; }
  Line at(ptrdiff_t i) const { return Line{&(*this)[i], step}; }
};

template <class T> inline T *row_at(const void *base, ptrdiff_t rs, ptrdiff_t r) {
  return reinterpret_cast<T *>(const_cast<char *>(static_cast<const char *>(base)) + r * rs);
}

// Runs f<Unit>() with Unit true when both operands step by one element.
template <class F> inline SornStatus by_unit(const Plane &p, F &&f) {
  if (p.dps == 1 && p.sps == 1) return f.template operator()<true>();
  return f.template operator()<false>();
}

/* ---------------- the box ---------------- */

// Window sums: 32-bit integers that wrap, or f32 for f32 images; the mean
// is f32(sum) * scale, rounded to nearest even and saturated for the
// integer types (s32 not saturated: what does not fit is 0x80000000).
template <class T> struct Box {
  using Acc = int32_t;
  static Acc acc(T v) { return (Acc)v; }
  // Differences wrap like the sums they update.
  static Acc add(Acc a, Acc b) { return (Acc)((uint32_t)a + (uint32_t)b); }
  static Acc sub(Acc a, Acc b) { return (Acc)((uint32_t)a - (uint32_t)b); }
  static T out(Acc sum, float scale) {
    const int32_t v = round_i32((float)sum * scale);
    if constexpr (sizeof(T) < 4) return sat32<T>(v);
    return (T)v;
  }
};
template <> struct Box<float> {
  using Acc = float;
  static Acc acc(float v) { return v; }
  static Acc add(Acc a, Acc b) { return a + b; }
  static Acc sub(Acc a, Acc b) { return a - b; }
  static float out(Acc sum, float scale) { return sum * scale; }
};

/* ---------------- the extremes ---------------- */

// The extreme of two cells, a first: a <= b picks. A NaN in b is dropped
// and one in a goes on, so that with NaNs the result depends on the order
// in which a kernel meets the cells.
struct Max {
  template <class T> static T of(T a, T b) { return a <= b ? b : a; }
};
struct Min {
  template <class T> static T of(T a, T b) { return a <= b ? a : b; }
};

/* ---------------- scratch ---------------- */

// A block from the environment, given back when the owner goes out of
// scope; blocks are taken and given back in reverse order.
class Scratch {
 public:
  Scratch(SornXE *xe, size_t bytes, size_t align = 16)
      : xe_(xe), p_(SornXEalloca(xe, bytes, align)) {}
  ~Scratch() {
    if (p_ != nullptr) SornXEfreea(xe_, p_);
  }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  template <class T> T *as() const { return static_cast<T *>(p_); }
  bool ok() const { return p_ != nullptr; }

 private:
  SornXE *xe_;
  void *p_;
};

// Rows of scratch: `n` elements each, rounded up to 16 bytes.
template <class T> inline ptrdiff_t pitch_of(int32_t n) {
  return (ptrdiff_t)((((size_t)n * sizeof(T)) + 15) & ~(size_t)15) / (ptrdiff_t)sizeof(T);
}

// The guard that every dispatcher applies once it has chosen a kernel: no
// kernel works without a margin, and a probe does no work.
inline bool guarded(SornFlags flags, SornStatus *st) {
  if (flags & SORN_F_NOMARGIN) {
    *st = SORN_EAGAIN;
    return true;
  }
  if (flags & SORN_F_PROBE) {
    *st = SORN_OK;
    return true;
  }
  return false;
}

}  // namespace sorn::filter

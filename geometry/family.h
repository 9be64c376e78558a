// The three coordinate families of the plane geometry as one set of traits,
// so that every algorithm is written once: the integer family compares
// exactly and sums in 64 bits, the two float families compute in f64 and
// compare with the f32 epsilon.
#pragma once

#include <sorn.h>

#include <cmath>
#include <cstdint>

#include "core/elem_types.h"

namespace sorn_geom {

// The tolerance of the float families: 2^-23, the f32 machine epsilon,
// used as an f64 value whatever the coordinate type.
inline constexpr double kEps = 1.1920928955078125e-07;

// 64-bit sums and products of the integer family wrap instead of
// overflowing: a result that fits in 64 bits comes out exact however the
// partial sums ran, and huge coordinates stay defined behaviour.
inline int64_t mul(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}
inline int64_t add(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t sub(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
inline int64_t neg(int64_t a) { return static_cast<int64_t>(0 - static_cast<uint64_t>(a)); }
inline double mul(double a, double b) { return a * b; }
inline double add(double a, double b) { return a + b; }
inline double sub(double a, double b) { return a - b; }
inline double neg(double a) { return -a; }
inline int64_t absval(int64_t a) { return a < 0 ? neg(a) : a; }
inline double absval(double a) { return std::fabs(a); }

// Rounding to s32 is core's round_i32: nearest in the current mode, and
// 0x80000000 for what does not fit.
using sorn::round_i32;

struct Int {
  using Coord = int32_t;
  using Wide = int64_t;  // what cross products and sums are taken in
  using Pt = Sorn2dPt;
  using Rect = Sorn2dRect;
  using Rcpt = Sorn2dRcpt;
  static constexpr bool kExact = true;
  static Wide wide(Coord v) { return v; }
  // Sums and differences of coordinates stay in 32 bits, wrapping.
  static Coord cadd(Coord a, Coord b) {
    return static_cast<Coord>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
  }
  static Coord csub(Coord a, Coord b) {
    return static_cast<Coord>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
  }
  // Turn tests: above and below zero, exactly.
  static bool above(Wide k) { return k > 0; }
  static bool below(Wide k) { return k < 0; }
  static bool at_most(Wide a, Wide b) { return a <= b; }
  static bool same(const Pt &a, const Pt &b) { return a.x == b.x && a.y == b.y; }
};

// The two float families differ only in their types. Coincidence is judged
// on differences in the coordinate type, against the tolerance in that type.
template <class C, class P, class R, class RC, class Q, class E> struct Floating {
  using Coord = C;
  using Wide = double;
  using Pt = P;
  using Rect = R;
  using Rcpt = RC;
  using Quad = Q;
  using Ell = E;
  static constexpr bool kExact = false;
  static Wide wide(Coord v) { return v; }
  static Coord cadd(Coord a, Coord b) { return a + b; }
  static Coord csub(Coord a, Coord b) { return a - b; }
  static bool above(Wide k) { return k > kEps; }
  static bool below(Wide k) { return k < -kEps; }
  // a is not above b by more than the tolerance.
  static bool at_most(Wide a, Wide b) { return a - b <= kEps; }
  static bool same(const Pt &a, const Pt &b) {
    constexpr C e = static_cast<C>(kEps);
    return std::fabs(a.x - b.x) <= e && std::fabs(a.y - b.y) <= e;
  }
};

using Single = Floating<float, SornF2dPt, SornF2dRect, SornF2dRcpt, SornF2dQuad, SornF2dEll>;
using Real = Floating<double, SornR2dPt, SornR2dRect, SornR2dRcpt, SornR2dQuad, SornR2dEll>;

// cross(a, b, c) = (c.x - a.x)(b.y - a.y) - (b.x - a.x)(c.y - a.y), each
// coordinate widened first: positive when a, b, c turn from y toward x.
template <class F>
inline typename F::Wide cross(const typename F::Pt &a, const typename F::Pt &b,
                              const typename F::Pt &c) {
  using W = typename F::Wide;
  const W ax = F::wide(a.x), ay = F::wide(a.y);
  const W cax = sub(F::wide(c.x), ax), bay = sub(F::wide(b.y), ay);
  const W bax = sub(F::wide(b.x), ax), cay = sub(F::wide(c.y), ay);
  return sub(mul(cax, bay), mul(bax, cay));
}

}  // namespace sorn_geom

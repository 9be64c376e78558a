// What every layer knows of element types: the C++ type behind each token of
// a type table, which codes are known, sizes and classes, and the
// conversions whose exact results the operations promise (a float rounded
// or truncated to an integer, an integer saturated to a narrower type).
// Internal: nothing here is exported.
#pragma once

#include <sorn.h>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cstdint>
#include <type_traits>

// The rounding below relies on each float operation being rounded to its own
// type, as on every 64-bit target with SSE or NEON.
static_assert(FLT_EVAL_METHOD == 0, "float arithmetic must be evaluated in its own type");

namespace sorn {

// The C++ type of each token that kernel names and type tables spell:
// a table line X(s32, f32, u8) names the kernel's element types as
// tok::s32, tok::f32, tok::u8, and their codes as SORN_TYPECODE(s32), ...
namespace tok {
using u8 = uint8_t;
using u16 = uint16_t;
using u32 = uint32_t;
using u64 = uint64_t;
using s8 = int8_t;
using s16 = int16_t;
using s32 = int32_t;
using s64 = int64_t;
using f32 = float;
using f64 = double;
}  // namespace tok

// The code of a C++ element type.
template <class T> inline constexpr uint32_t code_of = 0;
template <> inline constexpr uint32_t code_of<uint8_t> = SORN_U8;
template <> inline constexpr uint32_t code_of<uint16_t> = SORN_U16;
template <> inline constexpr uint32_t code_of<uint32_t> = SORN_U32;
template <> inline constexpr uint32_t code_of<uint64_t> = SORN_U64;
template <> inline constexpr uint32_t code_of<int8_t> = SORN_S8;
template <> inline constexpr uint32_t code_of<int16_t> = SORN_S16;
template <> inline constexpr uint32_t code_of<int32_t> = SORN_S32;
template <> inline constexpr uint32_t code_of<int64_t> = SORN_S64;
template <> inline constexpr uint32_t code_of<float> = SORN_F32;
template <> inline constexpr uint32_t code_of<double> = SORN_F64;

// Known codes are what the dispatchers tell their two refusals by: known
// codes without a kernel are not supported, any other code is invalid.
constexpr bool known_type(uint32_t code) { return code < 16 && ((SORN_KNOWN_TYPES >> code) & 1u); }
template <class... C> constexpr bool known_types(C... codes) { return (known_type(codes) && ...); }

// Bytes of an element, always from the size class (code & 7).
constexpr int32_t elem_size(uint32_t code) { return SORN_ELEMSIZE(code); }
// The two float types by their codes.
constexpr bool float_type(uint32_t code) { return code == SORN_F32 || code == SORN_F64; }
// A float size class (5 or 6), whatever the rest of the code says.
constexpr bool float_class(uint32_t code) { return (code & 7u) == 5u || (code & 7u) == 6u; }

// The channel count of a channels word: 1 to 4, plus one for bit 3.
constexpr int32_t channels_of(int64_t w) { return (int32_t)((w & 7) + ((w >> 3) & 1)); }

/* ---------------- rounding ---------------- */

// c ? a : b on the bits. The conversions below choose with these so that
// the compiler keeps a select where the float arithmetic of either value
// could trap: written as c ? a : b it moves that arithmetic under the
// condition, and then cannot vectorise the row.
inline int32_t pick_i32(bool c, int32_t a, int32_t b) {
  const uint32_t m = 0u - (uint32_t)c;
  return (int32_t)(((uint32_t)a & m) | ((uint32_t)b & ~m));
}
inline float pick_f32(bool c, float a, float b) {
  const uint32_t m = 0u - (uint32_t)c;
  return std::bit_cast<float>((std::bit_cast<uint32_t>(a) & m) | (std::bit_cast<uint32_t>(b) & ~m));
}
inline double pick_f64(bool c, double a, double b) {
  const uint64_t m = 0ull - (uint64_t)c;
  return std::bit_cast<double>((std::bit_cast<uint64_t>(a) & m) |
                               (std::bit_cast<uint64_t>(b) & ~m));
}

// Float to s32 the way the processor converts in its current rounding mode
// (nearest-even by default): anything outside 32 bits, NaN included, becomes
// 0x80000000. Adding and removing 2^23 (2^52 for doubles) with the sign of
// the value rounds it to an integer in the current mode; larger magnitudes
// are integers already. Written with selects only and no library call, so
// that rows vectorise; the conversion itself only ever sees values that fit.
inline int32_t round_i32_select(float x) {
  const float c = x < 0.0f ? -8388608.0f : 8388608.0f;
  const float near = (x + c) - c;
  const float r = pick_f32((x > -8388608.0f) & (x < 8388608.0f), near, x);
  const bool fits = (x >= -2147483648.0f) & (x < 2147483648.0f);  // false for NaN
  const int32_t v = (int32_t)pick_f32(fits, r, 0.0f);
  return pick_i32(fits, v, INT32_MIN);
}

inline int32_t round_i32_select(double x) {
  const double c = x < 0.0 ? -4503599627370496.0 : 4503599627370496.0;
  const double near = (x + c) - c;
  const double r = pick_f64((x > -4503599627370496.0) & (x < 4503599627370496.0), near, x);
  // Judged on the rounded value: a double just below 2^31 rounds up to it.
  const bool fits = (r >= -2147483648.0) & (r < 2147483648.0);
  const int32_t v = (int32_t)pick_f64(fits, r, 0.0);
  return pick_i32(fits, v, INT32_MIN);
}

// x86-64's own conversion (cvtss2si, cvtps2dq and their double forms) is
// that rule in one instruction: current mode, 0x80000000 for what does not
// fit. GCC gives it for __builtin_irint when optimising without errno;
// elsewhere (other compilers, -O0, other processors, whose conversions
// saturate) the selects above stand in.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && defined(__OPTIMIZE__) && \
    defined(__NO_MATH_ERRNO__)
#define SORN_NATIVE_ROUND_I32 1
inline int32_t round_i32(float x) { return __builtin_irintf(x); }
inline int32_t round_i32(double x) { return __builtin_irint(x); }
#else
#define SORN_NATIVE_ROUND_I32 0
inline int32_t round_i32(float x) { return round_i32_select(x); }
inline int32_t round_i32(double x) { return round_i32_select(x); }
#endif

// Truncation toward zero, with the same answer for what does not fit.
// Written with selects, like round_i32, so that rows vectorise.
inline int32_t trunc_i32(double v) {
  const bool fits = (v > -2147483649.0) & (v < 2147483648.0);  // false for NaN
  const int32_t t = (int32_t)pick_f64(fits, v, 0.0);
  return pick_i32(fits, t, INT32_MIN);
}
inline int32_t trunc_i32(float v) {
  const bool fits = (v >= -2147483648.0f) & (v < 2147483648.0f);
  const int32_t t = (int32_t)pick_f32(fits, v, 0.0f);
  return pick_i32(fits, t, INT32_MIN);
}

// A double to 64 bits by truncation: what does not fit (NaN included) is
// the most negative value, as the processor's conversion gives it.
inline int64_t trunc_i64(double v) {
  if (!(v > -9223372036854775808.0 && v < 9223372036854775808.0)) return INT64_MIN;
  return (int64_t)v;
}

/* ---------------- saturation ---------------- */

template <class T> struct int_range;
template <> struct int_range<uint8_t> { static constexpr int64_t lo = 0, hi = 255; };
template <> struct int_range<int8_t> { static constexpr int64_t lo = -128, hi = 127; };
template <> struct int_range<uint16_t> { static constexpr int64_t lo = 0, hi = 65535; };
template <> struct int_range<int16_t> { static constexpr int64_t lo = -32768, hi = 32767; };
template <> struct int_range<int32_t> { static constexpr int64_t lo = INT32_MIN, hi = INT32_MAX; };

// An integer saturated to the range of D.
template <class D> inline D sat(int64_t v) {
  return (D)(v < int_range<D>::lo ? int_range<D>::lo : v > int_range<D>::hi ? int_range<D>::hi : v);
}
// The same for a value known to be 32 bits wide, compared in 32 bits so
// that rows stay in 32-bit lanes. Written as min and max, which become one
// instruction each; the nested selects became compares into masks and
// blends in the AVX-512 copy.
template <class D> inline D sat32(int32_t v) {
  constexpr int32_t lo = (int32_t)int_range<D>::lo, hi = (int32_t)int_range<D>::hi;
  return (D)std::min(std::max(v, lo), hi);
}

// The same conversion of a float into u8 or u16, in a third of the
// instructions where the processor's conversion is not at hand. Rounding in
// any mode is monotonic and leaves integers as they are, so saturating the
// rounded value is rounding the clamped one; and a clamped value, between 0
// and 65535, rounds in the current mode when 2^23 is added (its units are
// then the last place), leaving the integer in the low bits. What does not
// fit 32 bits (NaN included) saturates from 0x80000000, to 0, as in the
// general rule.
template <class D> inline D round_sat_unsigned_select(float x) {
  constexpr float hi = (float)int_range<D>::hi;
  const float top = pick_f32(x < 2147483648.0f, hi, 0.0f);
  const float c = pick_f32(x >= 0.0f, pick_f32(x > hi, top, x), 0.0f);  // NaN fails both
  return (D)(std::bit_cast<uint32_t>(c + 8388608.0f) - 0x4B000000u);
}
// With the processor's conversion, rounding and then saturating is the
// shorter way.
template <class D> inline D round_sat_unsigned(float x) {
  if constexpr (SORN_NATIVE_ROUND_I32)
    return sat32<D>(round_i32(x));
  else
    return round_sat_unsigned_select<D>(x);
}

// The saturating conversion of one element between the types that have
// kernels: integers saturate to a narrower integer and widen to a wider one,
// floats round to nearest-even in 32 bits (what does not fit, NaN included,
// is 0x80000000) and then saturate to a narrower integer; anything into f32
// is the nearest float.
template <class D, class S> inline D sat_convert(S v) {
  if constexpr (std::is_floating_point_v<D>) {
    return (D)v;
  } else if constexpr (std::is_same_v<S, float> && std::is_unsigned_v<D> && sizeof(D) <= 2) {
    return round_sat_unsigned<D>(v);
  } else if constexpr (std::is_floating_point_v<S>) {
    const int32_t i = round_i32(v);
    if constexpr (std::is_same_v<D, int32_t>)
      return i;
    else
      return sat32<D>(i);
  } else if constexpr (sizeof(D) >= sizeof(S) && std::is_signed_v<D>) {
    return (D)v;
  } else {
    return sat32<D>((int32_t)v);
  }
}

}  // namespace sorn

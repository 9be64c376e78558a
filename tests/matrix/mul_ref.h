// A plain reference of the products, written for the tests: one triple loop
// per element, with the scale and conversion rules spelled out again.
#pragma once

#include <gtest/gtest.h>
#include <testkit.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace mul_test {

using sorn_test::Image;

struct Pair {
  uint32_t dst, src;
  const char *name;
};

#define MUL_TEST_PAIR(d, s) {SORN_TYPE_##d, SORN_TYPE_##s, #d #s},
#define SORN_TYPE_u8 SORN_U8
#define SORN_TYPE_s16 SORN_S16
#define SORN_TYPE_s32 SORN_S32
#define SORN_TYPE_f32 SORN_F32
inline const std::vector<Pair> &all_pairs() {
  static const std::vector<Pair> p = {SORN_MULMM_PAIRS(MUL_TEST_PAIR)};
  return p;
}

inline int32_t to_i32(double r) {
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) return INT32_MIN;
  return (int32_t)r;
}

inline double convert(uint32_t dst, int32_t v) {
  switch (dst) {
    case SORN_U8: return v < 1 ? 0 : v > 255 ? 255 : v;
    case SORN_S16: return (int16_t)(v > 32767 ? 32767 : v);
    default: return v;
  }
}

// Element (i, j) of the product. a(i, k) and b(k, j) are accessors.
template <class A, class B>
double ref_elem(uint32_t dst, uint32_t src, int32_t K, int32_t shift, A a, B b, double *mag) {
  if (src == SORN_F32) {
    double s = 0, m = 0;
    for (int32_t k = 0; k < K; ++k) {
      const double p = (double)((float)a(k) * (float)b(k));
      s += p;
      m += std::fabs(p);
    }
    *mag = m;
    return s;
  }
  *mag = 0;
  if (shift >= 0) {
    uint32_t s = 0;
    for (int32_t k = 0; k < K; ++k)
      s += (uint32_t)(int32_t)a(k) * (uint32_t)(int32_t)b(k);
    if (shift > 0) s <<= (shift & 31);
    return convert(dst, (int32_t)s);
  }
  double s = 0;
  for (int32_t k = 0; k < K; ++k) s += a(k) * b(k);
  const double scale = 1.0 / (double)(int32_t)(1u << (-shift & 31));
  return convert(dst, to_i32(std::nearbyint(s * scale)));
}

inline void randomize(Image &im, std::mt19937_64 &rng) {
  for (int32_t y = 0; y < im.rows(); ++y)
    for (int32_t x = 0; x < im.cols(); ++x) {
      double v;
      if (im.type() == SORN_F32)
        v = std::uniform_real_distribution<double>(-2.0, 2.0)(rng);
      else
        v = sorn_test::random_value(rng, im.type(), true);
      im.set(y, x, 0, v);
    }
}

// An environment whose scratch must be back at its mark after every call.
struct Env {
  SornXE xe;
  KuMark mark;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
    SornXEgetmmsp(&xe, &mark);
  }
  ~Env() { SornXEfini(&xe); }
  bool at_mark() {
    KuMark now;
    SornXEgetmmsp(&xe, &now);
    return std::memcmp(&now, &mark, sizeof now) == 0;
  }
};

}  // namespace mul_test

// sorn_loop_shapes: the loop shapes behind the kernels that trail their
// OpenCV counterparts, beside the shapes that would close the gap, on a
// full-HD frame, with the results checked equal element for element. Each
// shape is built twice: for the baseline instruction set, and with a clone
// for AVX2 chosen at load time (target_clones). Plain portable loops only:
// what differs is the width the compiler can vectorise them at.
//
//   saturating u8 add:  now 32-bit lanes (widen, clamp, narrow);
//                       proposed: wrap in 8 bits, saturate on carry
//   saturating u8 sub:  proposed: a > b ? a - b : 0 in 8 bits
//   saturating s16 add: proposed: wrap in 16 bits, saturate on sign overflow
//   u8 sum:             now 32-bit lanes; proposed: 16-bit partial sums over
//                       blocks of 256 bytes, then widened
//   f32 sum:            one double accumulator in address order (the result
//                       depends on the order); proposed: eight lanes when
//                       the image's exponents prove every order exact
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

#define BASE __attribute__((noinline))
#define WIDE __attribute__((noinline, target_clones("avx2", "default")))

// ---------------------------------------------------------------- shapes

#define SHAPES(ATTR, SFX)                                                                     \
  ATTR void addq_u8_now##SFX(int n, uint8_t *d, const uint8_t *a, const uint8_t *b) {        \
    for (int i = 0; i < n; ++i) {                                                             \
      const int32_t s = (int32_t)a[i] + (int32_t)b[i];                                        \
      d[i] = (uint8_t)(s < 0 ? 0 : s > 255 ? 255 : s);                                        \
    }                                                                                         \
  }                                                                                           \
  ATTR void addq_u8_new##SFX(int n, uint8_t *d, const uint8_t *a, const uint8_t *b) {        \
    for (int i = 0; i < n; ++i) {                                                             \
      const uint8_t x = a[i], y = b[i], s = (uint8_t)(x + y);                                 \
      d[i] = s < x ? 255 : s;                                                                 \
    }                                                                                         \
  }                                                                                           \
  ATTR void subq_u8_now##SFX(int n, uint8_t *d, const uint8_t *a, const uint8_t *b) {        \
    for (int i = 0; i < n; ++i) {                                                             \
      const int32_t s = (int32_t)a[i] - (int32_t)b[i];                                        \
      d[i] = (uint8_t)(s < 0 ? 0 : s > 255 ? 255 : s);                                        \
    }                                                                                         \
  }                                                                                           \
  ATTR void subq_u8_new##SFX(int n, uint8_t *d, const uint8_t *a, const uint8_t *b) {        \
    for (int i = 0; i < n; ++i) {                                                             \
      const uint8_t x = a[i], y = b[i];                                                       \
      d[i] = x > y ? (uint8_t)(x - y) : 0;                                                    \
    }                                                                                         \
  }                                                                                           \
  ATTR void addq_s16_now##SFX(int n, int16_t *d, const int16_t *a, const int16_t *b) {       \
    for (int i = 0; i < n; ++i) {                                                             \
      const int32_t s = (int32_t)a[i] + (int32_t)b[i];                                        \
      d[i] = (int16_t)(s < -32768 ? -32768 : s > 32767 ? 32767 : s);                          \
    }                                                                                         \
  }                                                                                           \
  ATTR void addq_s16_new##SFX(int n, int16_t *d, const int16_t *a, const int16_t *b) {       \
    for (int i = 0; i < n; ++i) {                                                             \
      const int16_t x = a[i], y = b[i];                                                       \
      const int16_t s = (int16_t)(uint16_t)((uint16_t)x + (uint16_t)y);                       \
      const int16_t sat = (int16_t)((x >> 15) ^ 0x7fff);                                      \
      d[i] = ((x ^ s) & (y ^ s)) < 0 ? sat : s;                                               \
    }                                                                                         \
  }                                                                                           \
  ATTR uint32_t sum_u8_now##SFX(int n, const uint8_t *__restrict p) {                         \
    uint32_t t = 0;                                                                           \
    for (int i = 0; i < n; ++i) t += (uint32_t)p[i];                                          \
    return t;                                                                                 \
  }                                                                                           \
  ATTR uint32_t sum_u8_new##SFX(int n, const uint8_t *__restrict p) {                         \
    uint32_t t = 0;                                                                           \
    int i = 0;                                                                                \
    for (; i + 256 <= n; i += 256) {                                                          \
      uint16_t s = 0; /* 256 * 255 < 65536 */                                                 \
      for (int j = 0; j < 256; ++j) s = (uint16_t)(s + p[i + j]);                             \
      t += s;                                                                                 \
    }                                                                                         \
    for (; i < n; ++i) t += p[i];                                                             \
    return t;                                                                                 \
  }                                                                                           \
  ATTR double sum_f32_now##SFX(int n, const float *__restrict p) {                            \
    double t = 0;                                                                             \
    for (int i = 0; i < n; ++i) t += (double)p[i];                                            \
    return t;                                                                                 \
  }                                                                                           \
  ATTR double sum_f32_new##SFX(int n, const float *__restrict p) {                            \
    /* Every value is a whole multiple of the smallest exponent's ulp u and */                \
    /* below 2^(emax - emin + 24) u; n of them stay below 2^53 u, where a */                  \
    /* double is exact, when log2(n) + emax - emin + 24 <= 53. Then every */                  \
    /* order of addition gives the exact total, the serial one included. */                   \
    /* Magnitudes as integers order like the values; zero wraps to the top */                 \
    /* of the minimum and drops out of it. */                                                 \
    uint32_t hi = 0, lo = 0xffffffffu;                                                        \
    for (int i = 0; i < n; ++i) {                                                             \
      uint32_t w;                                                                             \
      std::memcpy(&w, p + i, 4);                                                              \
      const uint32_t m = w & 0x7fffffffu;                                                     \
      hi = hi > m ? hi : m;                                                                   \
      lo = lo < m - 1u ? lo : m - 1u;                                                         \
    }                                                                                         \
    const int emax = (int)(hi >> 23), emin = lo == 0xffffffffu ? emax : (int)((lo + 1u) >> 23); \
    int lg = 0;                                                                               \
    while ((1ll << lg) < (long long)n) ++lg;                                                  \
    if (emax == 255 || emax - (emin < 1 ? 1 : emin) + 24 + lg > 53)                           \
      return sum_f32_now##SFX(n, p);                                                          \
    double l0 = 0, l1 = 0, l2 = 0, l3 = 0, l4 = 0, l5 = 0, l6 = 0, l7 = 0;                    \
    int i = 0;                                                                                \
    for (; i + 8 <= n; i += 8) {                                                              \
      l0 += (double)p[i]; l1 += (double)p[i + 1]; l2 += (double)p[i + 2];                     \
      l3 += (double)p[i + 3]; l4 += (double)p[i + 4]; l5 += (double)p[i + 5];                 \
      l6 += (double)p[i + 6]; l7 += (double)p[i + 7];                                         \
    }                                                                                         \
    for (; i < n; ++i) l0 += (double)p[i];                                                    \
    return ((l0 + l1) + (l2 + l3)) + ((l4 + l5) + (l6 + l7));                                 \
  }

SHAPES(BASE, _base)
SHAPES(WIDE, _avx2)

// ---------------------------------------------------------------- timing

template <class F>
double median_ms(F f) {
  std::vector<double> v;
  for (int s = 0; s < 31; ++s) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int r = 0; r < 4; ++r) f();
    v.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                    .count() / 4);
  }
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

void line(const char *what, double base, double avx2, bool same) {
  std::printf("%-34s %10.4f %10.4f   %s\n", what, base, avx2, same ? "same results" : "DIFFERENT");
}

}  // namespace

int main() {
  const int n = 1920 * 1080;
  std::vector<uint8_t> a(n), b(n), d(n), e(n);
  std::vector<int16_t> a16(n), b16(n), d16(n), e16(n);
  std::vector<float> fi(n), fg(n);
  uint32_t x = 1;
  for (int i = 0; i < n; ++i) {
    x = x * 1664525u + 1013904223u;
    a[i] = (uint8_t)(x >> 24);
    b[i] = (uint8_t)(x >> 16);
    a16[i] = (int16_t)(x >> 16);
    b16[i] = (int16_t)(x >> 8);
    fi[i] = (float)a[i];                  // a u8 image in floats: the fast case
    fg[i] = (float)a[i] * 0.37f - 11.0f;  // general floats: the serial case
  }
  volatile uint32_t su = 0;
  volatile double sd = 0;
  std::printf("%-34s %10s %10s   (ms, median of 31, 1920x1080)\n", "loop", "baseline", "avx2");
#define ROW3(name, now, neu, T, dd, ee, aa, bb)                                                \
  {                                                                                           \
    now##_base(n, dd.data(), aa.data(), bb.data());                                           \
    neu##_base(n, ee.data(), aa.data(), bb.data());                                           \
    bool same = dd == ee;                                                                     \
    neu##_avx2(n, ee.data(), aa.data(), bb.data());                                           \
    same = same && dd == ee;                                                                  \
    line(name " now", median_ms([&] { now##_base(n, dd.data(), aa.data(), bb.data()); }),     \
         median_ms([&] { now##_avx2(n, dd.data(), aa.data(), bb.data()); }), true);           \
    line(name " proposed", median_ms([&] { neu##_base(n, ee.data(), aa.data(), bb.data()); }), \
         median_ms([&] { neu##_avx2(n, ee.data(), aa.data(), bb.data()); }), same);           \
  }
  ROW3("addq u8", addq_u8_now, addq_u8_new, uint8_t, d, e, a, b)
  ROW3("subq u8", subq_u8_now, subq_u8_new, uint8_t, d, e, a, b)
  ROW3("addq s16", addq_s16_now, addq_s16_new, int16_t, d16, e16, a16, b16)
  {
    const bool same = sum_u8_now_base(n, a.data()) == sum_u8_new_base(n, a.data()) &&
                      sum_u8_now_base(n, a.data()) == sum_u8_new_avx2(n, a.data());
    line("sum u8 now", median_ms([&] { su = sum_u8_now_base(n, a.data()); }),
         median_ms([&] { su = sum_u8_now_avx2(n, a.data()); }), true);
    line("sum u8 proposed", median_ms([&] { su = sum_u8_new_base(n, a.data()); }),
         median_ms([&] { su = sum_u8_new_avx2(n, a.data()); }), same);
  }
  for (const auto *img : {&fi, &fg}) {
    const bool ints = img == &fi;
    const bool same = sum_f32_now_base(n, img->data()) == sum_f32_new_base(n, img->data()) &&
                      sum_f32_now_base(n, img->data()) == sum_f32_new_avx2(n, img->data());
    line(ints ? "sum f32 now, whole values" : "sum f32 now, general values",
         median_ms([&] { sd = sum_f32_now_base(n, img->data()); }),
         median_ms([&] { sd = sum_f32_now_avx2(n, img->data()); }), true);
    line(ints ? "sum f32 proposed, whole values" : "sum f32 proposed, general values",
         median_ms([&] { sd = sum_f32_new_base(n, img->data()); }),
         median_ms([&] { sd = sum_f32_new_avx2(n, img->data()); }), same);
  }
  (void)su;
  (void)sd;
  return 0;
}

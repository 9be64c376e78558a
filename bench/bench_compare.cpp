// Comparison and thresholding through the public entries: two images of
// every type pair of the kernel table, a byte image against a constant on
// both sides of the table limit, and the threshold methods. Throughput
// counts the bytes read and written.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Picture {
  std::vector<uint8_t> store;
  SornArray rec;
  Picture(int32_t rows, int32_t cols, uint32_t type, uint32_t seed) {
    const int32_t es = SORN_ELEMSIZE(type);
    store.resize((size_t)rows * cols * es);
    // Smooth stretches with noise on top, as in photographs.
    uint32_t x = seed * 2654435761u + 1;
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t c = 0; c < cols; ++c) {
        x = x * 1664525u + 1013904223u;
        const int32_t v = (int32_t)((y / 4 + c / 8) % 200) + (int32_t)(x >> 28);
        uint8_t *p = store.data() + ((size_t)y * cols + c) * es;
        if (type == SORN_F32) {
          const float f = (float)v * 0.37f - 11.0f;
          std::memcpy(p, &f, 4);
        } else if (es == 1) {
          *p = (uint8_t)v;
        } else if (es == 2) {
          const int16_t s = (int16_t)(v * 97 - 9000);
          std::memcpy(p, &s, 2);
        } else {
          const int32_t s = v * 100003 - 9000000;
          std::memcpy(p, &s, 4);
        }
      }
    const int32_t d[3] = {rows, cols, 1}, st[3] = {cols * es, es, es};
    __sorn_array__$xtrn(&rec, 3 | 3 << 8, d, type, store.data(), nullptr, st);
  }
};

struct Env {
  SornXE xe;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Env() { SornXEfini(&xe); }
};

void fail(benchmark::State &state, SornStatus st) {
  state.SkipWithError(("the operation answered " + std::to_string(st)).c_str());
}

void BM_Compare(benchmark::State &state, uint32_t dt, uint32_t st, int32_t rows, int32_t cols) {
  Picture a(rows, cols, st, 1), b(rows, cols, st, 2), d(rows, cols, dt, 3);
  Env env;
  for (auto _ : state) {
    const SornStatus s =
        SornCompare(&env.xe, 0, &d.rec, &a.rec, &b.rec, nullptr, nullptr, nullptr, SORN_CMP_LT);
    if (s != SORN_OK) return fail(state, s);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)rows * cols *
                          (2 * SORN_ELEMSIZE(st) + SORN_ELEMSIZE(dt)));
}

void BM_CompareC(benchmark::State &state, int32_t rows, int32_t cols) {
  Picture a(rows, cols, SORN_U8, 1), d(rows, cols, SORN_U8, 3);
  Env env;
  const double v = 100;
  for (auto _ : state) {
    const SornStatus s = SornCompareC(&env.xe, 0, &d.rec, &a.rec, &v, nullptr, nullptr, SORN_CMP_LT);
    if (s != SORN_OK) return fail(state, s);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)rows * cols * 2);
}

SornThresholdSpec method_record(uint32_t method) {
  SornThresholdSpec s;
  std::memset(&s, 0, sizeof s);
  s.method = method;
  for (SornVrng &r : s.vrng) r = SornVrng{NAN, 0.0};
  return s;
}

SornThresholdCriterion condition(uint32_t op, double t, double v) {
  SornThresholdCriterion c;
  std::memset(&c, 0, sizeof c);
  c.op = op;
  for (int k = 0; k < 4; ++k) c.thresh[k] = t, c.value[k] = v;
  return c;
}

// A threshold method with the default conditions, or two given conditions
// when the method is immediate.
void BM_Threshold(benchmark::State &state, uint32_t method, int32_t rows, int32_t cols) {
  Picture a(rows, cols, SORN_U8, 1), d(rows, cols, SORN_U8, 3);
  Env env;
  const SornThresholdSpec how = method_record(method);
  const SornThresholdCriterion two[2] = {condition(SORN_CMP_LT, 50, 0),
                                         condition(SORN_CMP_GE, 150, 255)};
  const bool immediate = method == SORN_THH_IMMEDIATE;
  for (auto _ : state) {
    const SornStatus s = SornThreshold(&env.xe, 0, &d.rec, &a.rec, nullptr, nullptr, &how,
                                       immediate ? two : nullptr, immediate ? 2 : 0);
    if (s != SORN_OK) return fail(state, s);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)rows * cols * 2);
}

constexpr int32_t kSizes[2][2] = {{480, 640}, {1080, 1920}};

std::string size_name(const int32_t *s) {
  return std::to_string(s[1]) + "x" + std::to_string(s[0]);
}

const int kRegistered = [] {
#define SORN_BENCH_COMPARE(d, s)                                                            \
  benchmark::RegisterBenchmark("Compare/" #d #s "/lt/1920x1080", BM_Compare, SORN_TYPECODE(d), \
                               SORN_TYPECODE(s), 1080, 1920);
  SORN_CMP_PAIRS(SORN_BENCH_COMPARE)
#undef SORN_BENCH_COMPARE
  benchmark::RegisterBenchmark("CompareC/u8u8/lt/120x120", BM_CompareC, 120, 120);
  for (const auto &s : kSizes) {
    const std::string size = size_name(s);
    benchmark::RegisterBenchmark(("CompareC/u8u8/lt/" + size).c_str(), BM_CompareC, s[0], s[1]);
    benchmark::RegisterBenchmark(("Threshold/two-conditions/u8/" + size).c_str(), BM_Threshold,
                                 SORN_THH_IMMEDIATE, s[0], s[1]);
    benchmark::RegisterBenchmark(("Threshold/otsu/u8/" + size).c_str(), BM_Threshold,
                                 SORN_THH_OTSU | SORN_THH_DEFAULTS, s[0], s[1]);
    // Pending: the blur method runs the box filter, not in the library yet.
    benchmark::RegisterBenchmark(("Threshold/blur/u8/" + size).c_str(), BM_Threshold,
                                 SORN_THH_BLUR | SORN_THH_DEFAULTS, s[0], s[1]);
  }
  return 0;
}();

}  // namespace

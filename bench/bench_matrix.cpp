// Products at the sizes users run: f32 squares small to large, an integer
// square with a scale, and matrix by vector. Rates count a multiply and an
// add as two floating-point operations, and integer rates as multiply-adds.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstring>
#include <vector>

#include "bench_env.h"

namespace {

SornArray matrix_record(void *data, int32_t rows, int32_t cols, uint32_t type) {
  SornArray a;
  std::memset(&a, 0, sizeof a);
  const int32_t es = SORN_ELEMSIZE(type);
  const int32_t d[4] = {1, rows, cols, 1};
  for (int i = 0; i < 4; ++i) a.dims[i] = a.bounds[i] = d[i];
  a.strides[1] = cols * es;
  a.strides[2] = a.strides[3] = es;
  a.ndims = a.ndimsall = 3;
  a.elemtype = type;
  a.data = data;
  return a;
}

using Xe = bench::Env;

}  // namespace

static void BM_MulMM_f32(benchmark::State &state) {
  const int32_t n = (int32_t)state.range(0);
  std::vector<float> a((size_t)n * n), b((size_t)n * n), d((size_t)n * n);
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = (float)(i % 7) - 3.0f;
    b[i] = (float)(i % 5) * 0.5f;
  }
  const SornArray ra = matrix_record(a.data(), n, n, SORN_F32), rb = matrix_record(b.data(), n, n, SORN_F32);
  const SornArray rd = matrix_record(d.data(), n, n, SORN_F32);
  Xe x;
  for (auto _ : state) {
    if (SornMulMM(&x.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0) != SORN_OK)
      state.SkipWithError("product failed");
    benchmark::ClobberMemory();
  }
  state.counters["GFLOP/s"] = benchmark::Counter(2.0 * n * n * n * 1e-9,
                                                 benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MulMM_f32)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond);

static void BM_MulMM_f32_transposed(benchmark::State &state) {
  const int32_t n = (int32_t)state.range(0);
  std::vector<float> a((size_t)n * n, 0.5f), b((size_t)n * n, 0.25f), d((size_t)n * n);
  const SornArray ra = matrix_record(a.data(), n, n, SORN_F32), rb = matrix_record(b.data(), n, n, SORN_F32);
  const SornArray rd = matrix_record(d.data(), n, n, SORN_F32);
  Xe x;
  for (auto _ : state) {
    SornMulMM(&x.xe, SORN_F_MUL_TRANSPOSED, &rd, &ra, &rb, nullptr, nullptr, nullptr, 0, 0);
    benchmark::ClobberMemory();
  }
  state.counters["GFLOP/s"] = benchmark::Counter(2.0 * n * n * n * 1e-9,
                                                 benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MulMM_f32_transposed)->Arg(256)->Unit(benchmark::kMicrosecond);

static void BM_MulMM_s16u8(benchmark::State &state) {
  const int32_t n = (int32_t)state.range(0);
  const int32_t shift = (int32_t)state.range(1);
  std::vector<uint8_t> a((size_t)n * n), b((size_t)n * n);
  std::vector<int16_t> d((size_t)n * n);
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = (uint8_t)(i * 7);
    b[i] = (uint8_t)(i * 13);
  }
  const SornArray ra = matrix_record(a.data(), n, n, SORN_U8), rb = matrix_record(b.data(), n, n, SORN_U8);
  const SornArray rd = matrix_record(d.data(), n, n, SORN_S16);
  Xe x;
  for (auto _ : state) {
    if (SornMulMM(&x.xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, shift, 0) != SORN_OK)
      state.SkipWithError("product failed");
    benchmark::ClobberMemory();
  }
  state.counters["GMAC/s"] = benchmark::Counter(1.0 * n * n * n * 1e-9,
                                                benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MulMM_s16u8)->Args({256, 0})->Args({256, -8})->Unit(benchmark::kMicrosecond);

static void BM_MulMV_f32(benchmark::State &state) {
  const int32_t n = (int32_t)state.range(0);
  std::vector<float> a((size_t)n * n, 0.5f), v(n, 2.0f), y(n);
  const SornArray ra = matrix_record(a.data(), n, n, SORN_F32);
  SornArray rv = matrix_record(v.data(), 1, n, SORN_F32), ry = matrix_record(y.data(), 1, n, SORN_F32);
  rv.ndims = rv.ndimsall = 2;
  ry.ndims = ry.ndimsall = 2;
  Xe x;
  for (auto _ : state) {
    if (SornMulMV(&x.xe, 0, &ry, &ra, &rv, nullptr, nullptr, nullptr, 0, 0) != SORN_OK)
      state.SkipWithError("product failed");
    benchmark::ClobberMemory();
  }
  state.counters["GFLOP/s"] = benchmark::Counter(2.0 * n * n * 1e-9,
                                                 benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MulMV_f32)->Arg(1024)->Unit(benchmark::kMicrosecond);

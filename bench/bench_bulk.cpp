// Block copy against memcpy of the same bytes: rows of a padded image, and
// the short rows of a border.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstring>
#include <vector>

static void BM_Bcopy2d(benchmark::State &state) {
  const int32_t rows = (int32_t)state.range(0), bytes = (int32_t)state.range(1);
  const int32_t stride = bytes + 64;
  std::vector<unsigned char> src((size_t)rows * stride, 1), dst((size_t)rows * stride);
  for (auto _ : state) {
    C_sorn_bcopy2d(dst.data(), src.data(), stride, stride, rows, (size_t)bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * rows * bytes);
}
BENCHMARK(BM_Bcopy2d)->Args({1024, 1024})->Args({1024, 3})->Args({1024, 8})->Args({256, 100});

// The same bytes as one dense block.
static void BM_Bcopy2dDense(benchmark::State &state) {
  const int32_t rows = (int32_t)state.range(0), bytes = (int32_t)state.range(1);
  std::vector<unsigned char> src((size_t)rows * bytes, 1), dst((size_t)rows * bytes);
  for (auto _ : state) {
    C_sorn_bcopy2d(dst.data(), src.data(), bytes, bytes, rows, (size_t)bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * rows * bytes);
}
BENCHMARK(BM_Bcopy2dDense)->Args({1024, 1024});

static void BM_MemcpyRows(benchmark::State &state) {
  const int32_t rows = (int32_t)state.range(0), bytes = (int32_t)state.range(1);
  const int32_t stride = bytes + 64;
  std::vector<unsigned char> src((size_t)rows * stride, 1), dst((size_t)rows * stride);
  for (auto _ : state) {
    for (int32_t r = 0; r < rows; ++r)
      std::memcpy(dst.data() + (size_t)r * stride, src.data() + (size_t)r * stride, (size_t)bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * rows * bytes);
}
BENCHMARK(BM_MemcpyRows)->Args({1024, 1024})->Args({1024, 3})->Args({1024, 8})->Args({256, 100});

static void BM_MemcpyDense(benchmark::State &state) {
  const size_t n = (size_t)state.range(0) * (size_t)state.range(1);
  std::vector<unsigned char> src(n, 1), dst(n);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)(state.iterations() * n));
}
BENCHMARK(BM_MemcpyDense)->Args({1024, 1024});

static void BM_Bfill(benchmark::State &state) {
  const size_t n = (size_t)state.range(0);
  std::vector<unsigned char> dst(n + 4);
  const unsigned char v[16] = {1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3, 1};
  for (auto _ : state) {
    C_sorn_bfill(dst.data() + 1, n, 3, v);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)(state.iterations() * n));
}
BENCHMARK(BM_Bfill)->Arg(12)->Arg(4096);

static void BM_Sumi16(benchmark::State &state) {
  std::vector<uint16_t> h(256, 3);
  for (auto _ : state) benchmark::DoNotOptimize(C_sorn_sumi16_n(h.data(), (int32_t)state.range(0)));
}
BENCHMARK(BM_Sumi16)->Arg(7)->Arg(256);

// Sorting a million records with a caller's comparison: KuQuickSort (and the
// heap sort it falls back to) beside the C library's qsort_r, given the same
// comparison function and the same records. Each iteration sorts a fresh
// copy of the same random input; the copy is in every row alike.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

// Records of `size` bytes ordered by the unsigned key in their first four.
int compare_key(const void *a, const void *b, void *) {
  uint32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return (x > y) - (x < y);
}

std::vector<uint8_t> random_records(size_t n, size_t size) {
  std::mt19937_64 rng(0x50F7);
  std::vector<uint8_t> v(n * size);
  for (size_t i = 0; i < n; ++i) {
    const uint64_t r = rng();
    std::memcpy(&v[i * size], &r, size < 8 ? size : 8);
    for (size_t b = 8; b < size; ++b) v[i * size + b] = (uint8_t)(i + b);
  }
  return v;
}

template <class Sort>
void run(benchmark::State &state, Sort sort) {
  const size_t n = (size_t)state.range(0), size = (size_t)state.range(1);
  const std::vector<uint8_t> input = random_records(n, size);
  std::vector<uint8_t> work(input.size());
  for (auto _ : state) {
    std::memcpy(work.data(), input.data(), input.size());
    sort(work.data(), n, size);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed((int64_t)state.iterations() * (int64_t)n);
}

void BM_KuQuickSort(benchmark::State &state) {
  run(state, [](void *p, size_t n, size_t size) { KuQuickSort(p, n, size, compare_key, nullptr); });
}

void BM_KuHeapSort(benchmark::State &state) {
  run(state, [](void *p, size_t n, size_t size) { KuHeapSort(p, n, size, compare_key, nullptr); });
}

void BM_QsortR(benchmark::State &state) {
  run(state, [](void *p, size_t n, size_t size) { qsort_r(p, n, size, compare_key, nullptr); });
}

}  // namespace

BENCHMARK(BM_KuQuickSort)->Args({1000000, 4})->Args({1000000, 16})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QsortR)->Args({1000000, 4})->Args({1000000, 16})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KuHeapSort)->Args({1000000, 4})->Args({1000000, 16})->Unit(benchmark::kMillisecond);

// Statistics on a full-HD frame of one channel, through the public entries:
// the u8 histogram, sums of every type of the sum table, a masked mean,
// minimum and maximum with their places. Throughput counts the bytes read,
// the mask's included.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bench_env.h"

namespace {

constexpr int32_t kRows = 1080, kCols = 1920;

struct Frame {
  std::vector<uint8_t> store;
  SornArray rec;
  Frame(uint32_t type, uint32_t seed) {
    const int32_t es = SORN_ELEMSIZE(type);
    store.resize((size_t)kRows * kCols * es);
    // Flat stretches mixed with noise, as in real images: runs of equal
    // bytes are what the histogram's banks are for.
    uint32_t x = seed * 2654435761u + 1;
    for (size_t i = 0; i < store.size(); ++i) {
      x = x * 1664525u + 1013904223u;
      store[i] = ((i / 64) & 1) ? (uint8_t)(x >> 24) : (uint8_t)(i / 4096);
    }
    if (type == SORN_F32) {
      float *f = reinterpret_cast<float *>(store.data());
      for (size_t i = 0; i < (size_t)kRows * kCols; ++i) f[i] = (float)(i % 1021) * 0.25f;
    }
    std::memset(&rec, 0, sizeof rec);
    rec.dims[0] = 1; rec.dims[1] = kRows; rec.dims[2] = kCols; rec.dims[3] = 1;
    rec.bounds[0] = 1; rec.bounds[1] = kRows; rec.bounds[2] = kCols; rec.bounds[3] = 1;
    rec.strides[1] = kCols * es; rec.strides[2] = es; rec.strides[3] = es;
    rec.ndims = 3;
    rec.ndimsall = 3;
    rec.elemtype = type;
    rec.marker = 0x22;
    rec.data = store.data();
  }
};

using bench::Env;

void fail(benchmark::State &state) { state.SkipWithError("the operation failed"); }

void BM_HistogramU8(benchmark::State &state) {
  Frame src(SORN_U8, 1);
  Env env;
  std::vector<uint32_t> counts(257);
  SornHist h;
  std::memset(&h, 0, sizeof h);
  h.ilow = 0; h.ihigh = 255; h.irange = 256; h.iwidth = 1;
  h.low = 0.0f; h.high = 255.0f; h.span = 255.0f; h.width = 1.0f;
  h.bins = 256;
  h.counts = counts.data();
  for (auto _ : state) {
    if (SornHistogram(&env.xe, 0, &src.rec, nullptr, 0, &h) != SORN_OK) return fail(state);
    benchmark::DoNotOptimize(counts.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRows * kCols);
}

void BM_Sum(benchmark::State &state, uint32_t type) {
  Frame src(type, 2);
  Env env;
  double s = 0;
  for (auto _ : state) {
    if (SornSum(&env.xe, 0, &src.rec, nullptr, &s) != SORN_OK) return fail(state);
    benchmark::DoNotOptimize(s);
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRows * kCols * SORN_ELEMSIZE(type));
}

void BM_MeanEx(benchmark::State &state, uint32_t type) {
  Frame src(type, 3), mask(SORN_U8, 4);
  Env env;
  double m = 0;
  for (auto _ : state) {
    if (SornMeanEx(&env.xe, 0, &src.rec, &mask.rec, nullptr, nullptr, &m) < 0)
      return fail(state);
    benchmark::DoNotOptimize(m);
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRows * kCols *
                          (SORN_ELEMSIZE(type) + 1));
}

// Minimum and maximum with their places, on a frame that never reaches both
// ends of the type: the walk can't end early and reads every row.
void BM_Minmax(benchmark::State &state, uint32_t type) {
  Frame src(type, 5);
  if (type == SORN_U8)
    for (uint8_t &b : src.store) b = (uint8_t)(1 + b % 254);
  Env env;
  SornMinmaxRec r;
  for (auto _ : state) {
    r.what = SORN_MINMAX_POSITIONS | SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
    if (SornMinmax(&env.xe, 0, &src.rec, nullptr, &r) != SORN_OK) return fail(state);
    benchmark::DoNotOptimize(r);
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRows * kCols * SORN_ELEMSIZE(type));
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("Histogram/u8/c1/1920x1080", BM_HistogramU8);
  // Every type of the sum table.
#define SUM_BENCH(t) benchmark::RegisterBenchmark("Sum/" #t "/c1/1920x1080", BM_Sum, SORN_TYPECODE(t));
  SORN_SUM_TYPES(SUM_BENCH)
#undef SUM_BENCH
  benchmark::RegisterBenchmark("MeanEx/u8/c1/1920x1080", BM_MeanEx, SORN_U8);
  benchmark::RegisterBenchmark("Minmax/u8/c1/1920x1080", BM_Minmax, SORN_U8);
  benchmark::RegisterBenchmark("Minmax/f32/c1/1920x1080", BM_Minmax, SORN_F32);
  return 0;
}();

}  // namespace

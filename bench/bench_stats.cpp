// Statistics on a full-HD frame of one channel, through the public entries:
// the u8 histogram, sums of every type of the sum table, a masked mean,
// minimum and maximum with their places, and the relative box count by box
// size beside a brute-force count. Throughput counts the bytes read, the
// mask's included (for the box count: the pixels counted).
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench_env.h"
#include "texture.h"

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

// The relative box count on a textured frame, box w by h centred, for each
// destination of the type table; the speed flags bin the values.
void BM_CountRelBox(benchmark::State &state, uint32_t dtype, int32_t w, int32_t h, uint32_t op,
                    SornFlags flags) {
  const sorn_bench::Texture &t = sorn_bench::texture(kRows, kCols);
  SornArray src = sorn_bench::record(t, 3);
  std::vector<uint8_t> out((size_t)kRows * kCols * SORN_ELEMSIZE(dtype));
  SornArray dst = src;
  dst.elemtype = dtype;
  dst.strides[1] = kCols * SORN_ELEMSIZE(dtype);
  dst.strides[2] = dst.strides[3] = SORN_ELEMSIZE(dtype);
  dst.data = out.data();
  SornSeShape box;
  std::memset(&box, 0, sizeof box);
  box.size[1] = h;
  box.size[2] = w;
  box.anchor[1] = h / 2;
  box.anchor[2] = w / 2;
  Env env;
  for (auto _ : state) {
    if (SornCountRelBox(&env.xe, flags, &dst, &src, nullptr, nullptr, op, &box, nullptr, 0, 0) !=
        SORN_OK)
      return fail(state);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)kRows * kCols);
}

// For scale: the count as a plain scan of every box, borders replicated,
// what the sliding histograms replace.
void BM_CountRelBoxBruteForce(benchmark::State &state, int32_t w, int32_t h) {
  const sorn_bench::Texture &t = sorn_bench::texture(kRows, kCols);
  std::vector<uint8_t> out((size_t)kRows * kCols);
  for (auto _ : state) {
    for (int32_t y = 0; y < kRows; ++y)
      for (int32_t x = 0; x < kCols; ++x) {
        const uint8_t c = t.px[(size_t)y * kCols + x];
        uint32_t n = 0;
        for (int32_t dy = -h / 2; dy < h - h / 2; ++dy) {
          const uint8_t *row = &t.px[(size_t)std::clamp(y + dy, 0, kRows - 1) * kCols];
          for (int32_t dx = -w / 2; dx < w - w / 2; ++dx)
            n += row[std::clamp(x + dx, 0, kCols - 1)] <= c;
        }
        out[(size_t)y * kCols + x] = (uint8_t)std::min<uint32_t>(n, 255);
      }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)kRows * kCols);
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
  // Square boxes, then one width at three heights and one height at three
  // widths: the cost per pixel follows the width and not the height.
  const int32_t boxes[][2] = {{5, 5},   {15, 15}, {51, 51}, {15, 5}, {15, 51},
                              {15, 151}, {5, 15},  {51, 15}, {151, 15}};
#define CRB_BENCH(d, s)                                                                        \
  for (const auto &b : boxes)                                                                  \
    benchmark::RegisterBenchmark(("CountRelBox/le/" #d #s "/" + std::to_string(b[0]) + "x" +   \
                                  std::to_string(b[1]) + "/1920x1080")                         \
                                     .c_str(),                                                 \
                                 BM_CountRelBox, SORN_TYPECODE(d), b[0], b[1], SORN_CMP_LE,    \
                                 SornFlags{0});
  SORN_COUNTRELBOX_PAIRS(CRB_BENCH)
#undef CRB_BENCH
  for (const auto &b : {std::pair{15, 15}, std::pair{51, 51}}) {
    const std::string size = std::to_string(b.first) + "x" + std::to_string(b.second);
    benchmark::RegisterBenchmark(("CountRelBox/eq/u8u8/" + size + "/1920x1080").c_str(),
                                 BM_CountRelBox, SORN_U8, b.first, b.second, SORN_CMP_EQ,
                                 SornFlags{0});
    benchmark::RegisterBenchmark(("CountRelBox/le/u8u8/" + size + "/fast2/1920x1080").c_str(),
                                 BM_CountRelBox, SORN_U8, b.first, b.second, SORN_CMP_LE,
                                 SornFlags{SORN_F_RANK_FAST2});
  }
  benchmark::RegisterBenchmark("CountRelBox/bruteforce/5x5/1920x1080", BM_CountRelBoxBruteForce,
                               5, 5);
  benchmark::RegisterBenchmark("CountRelBox/bruteforce/15x15/1920x1080",
                               BM_CountRelBoxBruteForce, 15, 15);
  return 0;
}();

}  // namespace

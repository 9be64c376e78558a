// The border copy and the flat filters on a full-HD frame through the public
// entries: a border of reflect101 around the frame, and the box, minimum
// and maximum filters over square windows from 3 to 63 cells a side, so that
// the cost per pixel can be seen not to grow with the window; the firefly
// filter's three scripts on bytes (blurs of 5, 25 and 75; the rank kinds
// with a rank window of 16). Throughput counts the pixels written.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "bench_env.h"

namespace {

constexpr int32_t kRows = 1080, kCols = 1920;

struct Frame {
  std::vector<uint8_t> store;
  SornArray rec;
  Frame(uint32_t type, int32_t rows, int32_t cols) {
    const int32_t es = SORN_ELEMSIZE(type);
    store.assign((size_t)rows * cols * es, 0);
    for (size_t i = 0; i < store.size(); ++i) store[i] = (uint8_t)((i * 2654435761u) >> 24);
    if (type == SORN_F32)
      for (size_t i = 0; i < store.size() / 4; ++i) {
        const float v = (float)(i % 1000) * 0.25f;
        std::memcpy(&store[i * 4], &v, 4);
      }
    std::memset(&rec, 0, sizeof rec);
    rec.dims[0] = 1; rec.dims[1] = rows; rec.dims[2] = cols; rec.dims[3] = 1;
    rec.bounds[0] = 1; rec.bounds[1] = rows; rec.bounds[2] = cols; rec.bounds[3] = 1;
    rec.strides[1] = cols * es; rec.strides[2] = es; rec.strides[3] = es;
    rec.ndims = 3;
    rec.ndimsall = 3;
    rec.elemtype = type;
    rec.marker = 0x22;
    rec.data = store.data();
  }
};

void run_border(benchmark::State &state, uint32_t type) {
  const int32_t m = (int32_t)state.range(0);
  Frame src(type, kRows, kCols), dst(type, kRows + 2 * m, kCols + 2 * m);
  bench::Env env;
  SornBrShape br;
  std::memset(&br, 0, sizeof br);
  br.lo[1] = br.lo[2] = -m;
  br.hi[1] = br.hi[2] = m;
  for (auto _ : state) {
    const SornStatus st = SornCopyMkb(&env.xe, 0, &dst.rec, &src.rec, nullptr, nullptr,
                                      SORN_BORDER_REFLECT101, &br);
    benchmark::DoNotOptimize(st);
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)(kRows + 2 * m) * (kCols + 2 * m));
}

void run_filter(benchmark::State &state, uint32_t type, int32_t kind) {
  const int32_t n = (int32_t)state.range(0);
  Frame src(type, kRows, kCols), dst(type, kRows, kCols);
  bench::Env env;
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[1] = se.size[2] = n;
  se.anchor[1] = se.anchor[2] = n / 2;
  for (auto _ : state) {
    const SornStatus st = SornFilter(&env.xe, 0, &dst.rec, &src.rec, nullptr, nullptr, kind, &se);
    benchmark::DoNotOptimize(st);
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)kRows * kCols);
}

// Kind 5 through the one-window form (null: 5, 25 and 75), kinds 3 and 4
// through the explicit form with the quantile 1/2 and a 16 by 16 rank
// window.
void run_firefly(benchmark::State &state, int32_t kind) {
  Frame src(SORN_U8, kRows, kCols), dst(SORN_U8, kRows, kCols);
  bench::Env env;
  SornSeShape shapes[3];
  std::memset(shapes, 0, sizeof shapes);
  shapes[0].size[1] = shapes[0].size[2] = 3;
  shapes[0].anchor[1] = shapes[0].anchor[2] = 1;
  shapes[1] = shapes[0];
  shapes[1].anchor[0] = 1;
  shapes[1].size[0] = 2;
  shapes[2].size[1] = shapes[2].size[2] = 16;
  shapes[2].anchor[1] = shapes[2].anchor[2] = 8;
  const int32_t weights[3] = {1, 6, 9};
  for (auto _ : state) {
    const SornStatus st =
        kind == SORN_FIREFLY_GAUSS
            ? SornFirefly(&env.xe, 0, &dst.rec, &src.rec, nullptr, nullptr, kind, nullptr)
            : SornFireflyEx(&env.xe, 0, &dst.rec, &src.rec, nullptr, nullptr, kind, shapes,
                            weights, 3);
    if (st != SORN_OK) state.SkipWithError("firefly failed");
    benchmark::DoNotOptimize(st);
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)kRows * kCols);
}

#define FILTER_BENCH(name, type, kind)                                                        \
  BENCHMARK_CAPTURE(run_filter, name, type, kind)                                             \
      ->Arg(3)->Arg(7)->Arg(15)->Arg(31)->Arg(63)->Unit(benchmark::kMillisecond)

BENCHMARK_CAPTURE(run_border, reflect101_u8, SORN_U8)->Arg(2)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run_border, reflect101_f32, SORN_F32)->Arg(2)->Arg(16)->Unit(benchmark::kMillisecond);
FILTER_BENCH(box_u8, SORN_U8, SORN_FILTER_BOX);
FILTER_BENCH(box_f32, SORN_F32, SORN_FILTER_BOX);
FILTER_BENCH(min_u8, SORN_U8, SORN_FILTER_MIN);
FILTER_BENCH(max_u8, SORN_U8, SORN_FILTER_MAX);
FILTER_BENCH(max_f32, SORN_F32, SORN_FILTER_MAX);
BENCHMARK_CAPTURE(run_firefly, crb_u8, SORN_FIREFLY_CRB)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run_firefly, crbln_u8, SORN_FIREFLY_CRBLN)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run_firefly, gauss_u8, SORN_FIREFLY_GAUSS)->Unit(benchmark::kMillisecond);

}  // namespace

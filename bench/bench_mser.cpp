// Stable region generation, f form and plain form (both passes, moment
// feature), on textured images of 1 and 4 megapixels. Each iteration is
// what a caller does per image: make the filter, generate, destroy.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>

#include "texture.h"

namespace {

using namespace sorn_bench;

void report(benchmark::State &state, uint32_t dark, uint32_t bright) {
  state.counters["regions"] = (double)(dark + bright);
  state.counters["dark"] = dark;
  state.counters["bright"] = bright;
  state.counters["pixels"] = (double)state.range(0) * (double)state.range(1);
}

void BM_GenerateFMSERs(benchmark::State &state) {
  const Texture &t = texture((int32_t)state.range(0), (int32_t)state.range(1));
  SornArray a = record(t, 3);
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  uint32_t dark = 0, bright = 0;
  for (auto _ : state) {
    SornFMSERFilter f;
    __sorn_fmserfilt__$(&f);
    SornStatus s = SornGenerateFMSERs(&xe, 0, &a, nullptr, &f);
    if (s != SORN_OK) state.SkipWithError("generation failed");
    dark = f.count1;
    bright = f.count2;
    benchmark::DoNotOptimize(f.regions.items);
    sorn_fmserf_destroy(&f);
  }
  report(state, dark, bright);
  SornXEfini(&xe);
}

void BM_GenerateMSERs(benchmark::State &state) {
  const Texture &t = texture((int32_t)state.range(0), (int32_t)state.range(1));
  SornArray a = record(t, 3);
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  uint32_t dark = 0, bright = 0;
  for (auto _ : state) {
    SornMSERFilter f;
    __sorn_mserfilt__$(&f);
    SornStatus s = SornGenerateMSERs(&xe, 0, &a, nullptr, &f);
    if (s != SORN_OK) state.SkipWithError("generation failed");
    dark = f.count1;
    bright = f.count2;
    benchmark::DoNotOptimize(f.regions.items);
    sorn_mserf_destroy(&f);
  }
  report(state, dark, bright);
  SornXEfini(&xe);
}

void Sizes(benchmark::internal::Benchmark *b) {
  b->ArgNames({"rows", "cols"});
  b->Args({1024, 1024});
  b->Args({2048, 2048});
  b->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_GenerateFMSERs)->Apply(Sizes);
BENCHMARK(BM_GenerateMSERs)->Apply(Sizes);

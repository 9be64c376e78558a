// Watershed flooding, plain form and f form, on images with a natural
// texture: smoothed noise with bright and dark blobs and a little grain
// (texture.h).
// Reported per pixel; the cost per pixel should stay flat as the image
// grows, since the flooding takes linear time.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "texture.h"

namespace {

using namespace sorn_bench;

void report(benchmark::State &state, const Texture &t) {
  const double px = (double)t.rows * t.cols;
  state.SetItemsProcessed((int64_t)(px * (double)state.iterations()));
  state.counters["ns_per_px"] = benchmark::Counter(px * (double)state.iterations() * 1e-9,
                                                   benchmark::Counter::kIsRate |
                                                       benchmark::Counter::kInvert);
  state.counters["pixels"] = px;
}

// The plain form with a builder of no features: the flooding, the level
// stacks and the tree calls, nothing else.
void BM_WatershedPlain(benchmark::State &state) {
  const Texture &t = texture((int32_t)state.range(0), (int32_t)state.range(1), (int)state.range(2));
  SornArray a = record(t, 3);
  SornSTB *b = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
  SornWTSLSC lsc;
  SornWTSLSCinit2D(&lsc, nullptr, 0, 0, 0, 0);
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  SornWTSState st{};
  st.builder = b;
  st.lsc = &lsc;
  for (auto _ : state) {
    SornSTBclear(b, 0);
    SornStatus s = SornWatershed(&xe, 0, &a, nullptr, &st);
    benchmark::DoNotOptimize(s);
  }
  report(state, t);
  SornSTBclose(b, 0);
  SornXEfini(&xe);
}

// The f form through a four-dimensional entry; the result lives on a stack
// that is rewound before every run.
void BM_WatershedF(benchmark::State &state) {
  const Texture &t = texture((int32_t)state.range(0), (int32_t)state.range(1), (int)state.range(2));
  SornArray a = record(t, 4);
  void *stack = KuSMEMSTGopen(nullptr, 0, 0);
  SornFWTSRES res{};
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  SornWTSState st{};
  st.builder = &res;
  for (auto _ : state) {
    SornFWTSRESinit(&res, nullptr, stack);
    SornStatus s = SornWatershed(&xe, 0x200000, &a, nullptr, &st);
    benchmark::DoNotOptimize(s);
    SornFWTSRESfini(&res);
  }
  report(state, t);
  SornXEfini(&xe);
  KuMEMSTGclose(stack);
}

// Full HD, then 0.25, 1, 4 and 16 megapixels.
// Full HD, then 0.25, 1, 4 and 16 megapixels; the textured image first,
// then the ramp.
void Sizes(benchmark::internal::Benchmark *b) {
  b->ArgNames({"rows", "cols", "ramp"});
  for (int kind : {0, 1}) {
    b->Args({1080, 1920, kind});
    for (int32_t side : {512, 1024, 2048, 4096}) b->Args({side, side, kind});
  }
  b->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_WatershedPlain)->Apply(Sizes);
BENCHMARK(BM_WatershedF)->Apply(Sizes);

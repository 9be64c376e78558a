// Watershed flooding, plain form and f form, on images with a natural
// texture: smoothed noise with bright and dark blobs and a little grain
// (texture.h), and on a ramp.
//
// Reported per pixel, with the tree's nodes per megapixel. The texture has
// the same spatial statistics at every size (noise cells of 16 pixels,
// blobs of fixed radius at a fixed density), so its trees have the same
// number of nodes per megapixel at every size (about 21,000 in either form),
// and the flooding does the same work per pixel. Cachegrind counts, with a
// 1 MB and a 32 MB cache simulated, for the flooding with its setup on the
// texture (16 MP is 4096 x 4096):
//
//                  instructions  data refs  misses of a   misses of a
//                  per pixel     per pixel  1 MB cache    32 MB cache
//   f form  0.25 MP     71.3        19.1        0.14          0.017
//             1 MP      70.8        18.9        0.63          0.016
//             4 MP      70.7        18.9        1.17          0.016
//            16 MP      70.6        18.8        1.45          0.24
//   plain   0.25 MP    194.6        76.0        0.06          0.049
//             1 MP     194.1        75.8        0.20          0.049
//             4 MP     194.1        75.8        0.50          0.049
//            16 MP     194.0        75.7        1.18          0.081
//
// Instructions and memory references per pixel are flat: the time is
// linear. What grows is the share of references that the caches can't
// serve. A waiting pixel is taken up again only when the flooding reaches
// its level, after a stretch of work elsewhere that grows with the length
// of the flooded boundary; once the working array (4 bytes a pixel in the f
// form; the image, the visited bits and 8 bytes a waiting pixel in the
// plain form) outgrows a cache level, those returns miss it, and the order
// of returns is what fixes the tree, so it stays. On the 2-core test
// machine (1 MB L2, 32 MB L3 shared with other work, 4 KB pages) the f form
// went from about 17 ns/px at 0.25 MP to 65-70 at 16 MP, and the plain form
// from about 30 to about 77; on the ramp, flooded in image order, the f
// form stays at 10-13 and the plain form at 21-22. Huge pages for the
// working array took about 15 % off the f form at 16 MP (TLB misses across
// rows 16 KB apart).
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

void report(benchmark::State &state, const Texture &t, int64_t nodes) {
  const double px = (double)t.rows * t.cols;
  state.SetItemsProcessed((int64_t)(px * (double)state.iterations()));
  state.counters["ns_per_px"] = benchmark::Counter(px * (double)state.iterations() * 1e-9,
                                                   benchmark::Counter::kIsRate |
                                                       benchmark::Counter::kInvert);
  state.counters["pixels"] = px;
  state.counters["nodes_per_Mpx"] = (double)nodes / px * 1e6;
}

int64_t count_nodes(const SornAGTnode *root) {
  int64_t n = 0;
  std::vector<const SornAGTnode *> todo;
  if (root) todo.push_back(root);
  while (!todo.empty()) {
    const SornAGTnode *a = todo.back();
    todo.pop_back();
    ++n;
    for (const SornAGTnode *c = a->child; c; c = c->next) todo.push_back(c);
  }
  return n;
}

int64_t count_nodes(const SornFWTSRegion *root) {
  int64_t n = 0;
  std::vector<const SornFWTSRegion *> todo;
  if (root) todo.push_back(root);
  while (!todo.empty()) {
    const SornFWTSRegion *a = todo.back();
    todo.pop_back();
    ++n;
    for (const SornFWTSRegion *c = a->child; c; c = c->next) todo.push_back(c);
  }
  return n;
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
  report(state, t, count_nodes(b->tree ? b->tree->root : nullptr));
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
  SornFWTSRESinit(&res, nullptr, stack);
  SornWatershed(&xe, 0x200000, &a, nullptr, &st);
  report(state, t, count_nodes(res.root));
  SornFWTSRESfini(&res);
  SornXEfini(&xe);
  KuMEMSTGclose(stack);
}

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

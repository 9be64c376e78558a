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
//   f form  0.25 MP    103.1        28.7        0.21          0.046
//             1 MP     102.8        28.5        0.78          0.058
//             4 MP     102.7        28.5        1.30          0.049
//            16 MP     102.7        28.4        1.58          0.38
//   plain   0.25 MP    206.3        71.0        0.06          0.049
//             1 MP     206.3        70.8        0.20          0.051
//             4 MP     206.4        70.8        0.50          0.050
//            16 MP     206.4        70.8        1.18          0.081
//
// Instructions and memory references per pixel are flat: the work is
// linear. What grows is the share of references that the caches can't
// serve. A waiting pixel is taken up again only when the flooding reaches
// its level, after a stretch of work elsewhere that grows with the length
// of the flooded boundary; once the working array (4 bytes a pixel in the f
// form; the image, the visited bits and 8 bytes a waiting pixel in the
// plain form) outgrows a cache level, those returns miss it, and the order
// of returns is what fixes the tree, so it stays. Followed one at a time,
// those misses made the cost per pixel grow fourfold from 0.25 to 16 MP (f
// form 17 -> 65-70 ns, plain 30 -> 77 on the 2-core test machine: 512 KB
// L2 per core, 32 MB L3 shared with other machines).
//
// Three things take most of that back, and none changes a bit of the
// result:
// - Both forms know the pixel they will take up 16 pops ahead and prefetch
//   its row and the rows above and below: the plain form reads it from its
//   level stacks; the f form, whose lists are threaded through the working
//   array and can only be followed link by link, keeps a shadow of every
//   list in scratch from 2^18 pixels on (a word a pixel, placed by a count
//   of the levels). That is the 30 more instructions a pixel of the f form
//   in the table above; they cost less than a nanosecond at 0.25 MP.
// - The base library maps a chunk for a single request of more than 8 MB on
//   its own, aligned to 2 MB, with huge pages where the system offers them:
//   rows 16 KB apart share one address translation per 2 MB.
// - Memory stacks keep their largest released chunk, so that the working
//   blocks of one run are those of the last: memory fresh from the system is
//   cleared page by page on first touch, which had cost a fifth of a 16 MP
//   run.
//
// Medians of five, ns per pixel, same machine, whose other tenants move
// the figures by up to a quarter from run to run (at 16 MP on the texture,
// over a day of runs: f form 27-31, plain 39-51):
//
//                     0.25 MP   1 MP   4 MP   16 MP   1920x1080
//   f form  texture      19.6   24.3   24.1   29.6     23.4
//           ramp         11.7   12.1   13.5   14.0     10.7
//   plain   texture      31.3   31.8   38.2   51.2     32.3
//           ramp         21.8   19.0   18.1   19.8     24.6
//
// The f form is faster than the plain form at every size. On the texture
// the cost per pixel grows by a quarter from 0.25 to 4 MP and by a half at
// 16 MP (a working set of 128 MB in the f form with its shadow, four times
// the shared L3), where it was four times; what is left is mostly the first
// touch of the basins the flooding descends into, which no return names in
// advance. On the ramp, flooded in image order, the caches are on the
// flooding's side and it is flat.
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

// Nodes of a tree whose nodes link their first child and next sibling:
// the builder's trees and the f form's results alike.
template <class Node>
int64_t count_nodes(const Node *root) {
  int64_t n = 0;
  std::vector<const Node *> todo;
  if (root) todo.push_back(root);
  while (!todo.empty()) {
    const Node *a = todo.back();
    todo.pop_back();
    ++n;
    for (const Node *c = a->child; c; c = c->next) todo.push_back(c);
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

// Nearest-neighbour resizing: the rows of the comparison with the peers
// (640x480 and 1920x1080, u8 of one and four channels, by 1/2 and by 2)
// through SornEResize, and every row kernel of the catalogue on a
// full-HD source at factors across the selection tables, for tuning the
// tables. Throughput counts the destination bytes written.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Env {
  SornXE xe;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Env() { SornXEfini(&xe); }
};

struct Plane {
  std::vector<uint8_t> store;
  SornArray rec;
  Plane(int32_t rows, int32_t cols, int32_t ch) : store((size_t)rows * cols * ch) {
    uint32_t x = 12345u + (uint32_t)cols;
    for (auto &b : store) b = (uint8_t)((x = x * 1664525u + 1013904223u) >> 24);
    const int32_t dims[3] = {rows, cols, ch}, strides[3] = {cols * ch, ch, 1};
    __sorn_array__$xtrn(&rec, 3 | 3 << 8, dims, SORN_U8, store.data(), nullptr, strides);
  }
};

// Arguments: source columns, source rows, channels, factor in thousandths.
void BM_Resize(benchmark::State &state) {
  const int32_t sw = (int32_t)state.range(0), sh = (int32_t)state.range(1);
  const int32_t ch = (int32_t)state.range(2);
  const double f = (double)state.range(3) / 1000.0;
  const int32_t dw = (int32_t)(sw * f + 0.5), dh = (int32_t)(sh * f + 0.5);
  Plane src(sh, sw, ch), dst(dh, dw, ch);
  Env env;
  const double factors[2] = {f, f};
  for (auto _ : state) {
    if (SornEResize(&env.xe, 0, &dst.rec, &src.rec, nullptr, nullptr, 0, factors) != SORN_OK)
      state.SkipWithError("SornEResize failed");
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * dw * dh * ch);
}
BENCHMARK(BM_Resize)
    ->ArgNames({"sw", "sh", "ch", "f1000"})
    ->ArgsProduct({{640}, {480}, {1, 4}, {500, 2000}})
    ->ArgsProduct({{1920}, {1080}, {1, 4}, {500, 2000}})
    ->ArgsProduct({{1920}, {1080}, {1}, {130, 270, 3700}});

// One row kernel of the catalogue on a full-HD source of its unit.
struct KernelRun {
  SornResizeRowKernel run;
  int32_t bytes;
  double fx;
};

void run_kernel(benchmark::State &state, KernelRun k) {
  const int32_t sw = 1920, sh = 1080;
  const int32_t dw = (int32_t)(sw * k.fx + 0.5), dh = (int32_t)(sh * k.fx + 0.5);
  std::vector<uint8_t> src((size_t)sw * sh * k.bytes, 7), dst((size_t)dw * dh * k.bytes);
  Env env;
  for (auto _ : state) {
    k.run(&env.xe, dh, dw, dst.data(), dw * k.bytes, sh, sw, src.data(), sw * k.bytes, k.fx, k.fx,
          nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * dw * dh * k.bytes);
}

#define BENCH_UNIT_BYTES(unit, bytes) constexpr int32_t kBytes_##unit = bytes;
SORN_RESIZE_NN_UNITS(BENCH_UNIT_BYTES)
#undef BENCH_UNIT_BYTES

const bool registered = [] {
  for (double fx : {0.13, 0.5, 0.8, 0.95, 2.0}) {
#define BENCH_KERNEL(unit, name, ...)                                                    \
  benchmark::RegisterBenchmark(                                                          \
      ("BM_ResizeKernel/" #unit #name "/fx:" + std::to_string(fx).substr(0, 4)).c_str(), \
      run_kernel, KernelRun{&__sorna__resize_nn_##unit##name, kBytes_##unit, fx});
    SORN_RESIZE_NN_KERNELS(BENCH_KERNEL)
#undef BENCH_KERNEL
  }
  return true;
}();

}  // namespace

// SornFill on a full-HD frame through the public entry, and the masked form
// with a pixel mask of alternating bytes. Throughput counts the bytes
// written (and the mask bytes read).
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int32_t kRows = 1080, kCols = 1920;

struct Frame {
  std::vector<uint8_t> store;
  SornArray rec;
  Frame(uint32_t type, int32_t ch) {
    const int32_t es = SORN_ELEMSIZE(type);
    store.assign((size_t)kRows * kCols * ch * es, 0);
    std::memset(&rec, 0, sizeof rec);
    rec.dims[0] = 1; rec.dims[1] = kRows; rec.dims[2] = kCols; rec.dims[3] = ch;
    rec.bounds[0] = 1; rec.bounds[1] = kRows; rec.bounds[2] = kCols; rec.bounds[3] = ch;
    rec.strides[1] = kCols * ch * es; rec.strides[2] = ch * es; rec.strides[3] = es;
    rec.ndims = 3;
    rec.ndimsall = 3;
    rec.elemtype = type;
    rec.marker = 0x22;
    rec.data = store.data();
  }
};

struct FillCase {
  const char *type;
  uint32_t code;
  int32_t ch;
  bool masked;
};

const FillCase kCases[] = {
    {"u8", SORN_U8, 1, false}, {"u8", SORN_U8, 3, false}, {"f32", SORN_F32, 1, false},
    {"u8", SORN_U8, 1, true},  {"f32", SORN_F32, 1, true},
};

void run_fill(benchmark::State &state, FillCase c) {
  Frame d(c.code, c.ch), m(SORN_U8, 1);
  for (size_t i = 0; i < m.store.size(); ++i) m.store[i] = (i & 1) ? 255 : 0;
  const double v[4] = {7, 8, 9, 10};
  for (auto _ : state) {
    SornStatus st = c.masked ? SornFillEx(nullptr, 0, &d.rec, &m.rec, nullptr, nullptr, v)
                             : SornFill(nullptr, 0, &d.rec, nullptr, v);
    if (st != SORN_OK) {
      state.SkipWithError("the fill failed");
      break;
    }
    benchmark::DoNotOptimize(d.store.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() *
                          (int64_t)(d.store.size() + (c.masked ? m.store.size() : 0)));
}

const int kRegistered = [] {
  for (const FillCase &c : kCases) {
    const std::string name = std::string(c.masked ? "FillEx/" : "Fill/") + c.type + "/c" +
                             std::to_string(c.ch) + "/1920x1080";
    benchmark::RegisterBenchmark(name.c_str(), run_fill, c);
  }
  return 0;
}();

}  // namespace

// Element-wise arithmetic on a full-HD frame of one channel, through the
// public entries. Throughput counts the bytes of both sources and of the
// destination. Each family adds its rows to the case table below.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Arith2Entry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                   const SornArray *, const SornVolume *, const SornVolume *,
                                   const SornVolume *, int32_t, uint32_t);

struct Arith2Case {
  const char *family;
  Arith2Entry entry;
  uint32_t dst, a, b;
  int32_t sf;
};

constexpr uint32_t code_u8 = SORN_U8, code_s16 = SORN_S16, code_s32 = SORN_S32, code_f32 = SORN_F32;
#define BENCH_ARITH_CASE(fam, fn, d, a, b, sf) {fam, &fn, code_##d, code_##a, code_##b, sf},

const Arith2Case kCases[] = {
    BENCH_ARITH_CASE("Add", SornAdd, u8, u8, u8, 0)
    BENCH_ARITH_CASE("Add", SornAdd, u8, u8, u8, 1)
    BENCH_ARITH_CASE("Add", SornAdd, s16, s16, s16, 0)
    BENCH_ARITH_CASE("Add", SornAdd, f32, f32, f32, 0)
    BENCH_ARITH_CASE("Subq", SornSubq, u8, u8, u8, 0)
    BENCH_ARITH_CASE("Sub", SornSub, u8, u8, u8, 0)
    BENCH_ARITH_CASE("Subq", SornSubq, s16, s16, s16, 0)
};

// The constant forms: one constant per channel, classified by the entry.
using Arith2cEntry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                    const double *, const SornVolume *, const SornVolume *, int32_t,
                                    uint32_t);
struct Arith2cCase {
  const char *family;
  Arith2cEntry entry;
  uint32_t dst, a;
  double c;
  int32_t sf;
};
#define BENCH_ARITHC_CASE(fam, fn, d, a, c, sf) {fam, &fn, code_##d, code_##a, c, sf},
const Arith2cCase kCasesC[] = {
    BENCH_ARITHC_CASE("AddC", SornAddC, u8, u8, 3.0, 0)
    BENCH_ARITHC_CASE("AddC", SornAddC, u8, u8, 300.0, 0)
    BENCH_ARITHC_CASE("SubqC", SornSubqC, u8, u8, 3.0, 0)
    BENCH_ARITHC_CASE("AddC", SornAddC, f32, f32, 1.5, 0)
};

constexpr int32_t kRows = 1080, kCols = 1920;

const char *name_of(uint32_t t) {
  switch (t) {
    case SORN_U8: return "u8";
    case SORN_S16: return "s16";
    case SORN_S32: return "s32";
    case SORN_F32: return "f32";
    default: return "?";
  }
}

struct Plane {
  std::vector<uint8_t> store;
  SornArray rec;
  Plane(uint32_t type, uint8_t seed) {
    const int32_t es = SORN_ELEMSIZE(type);
    store.resize((size_t)kRows * kCols * es);
    // Small values keep every type away from its extremes.
    for (size_t i = 0; i < store.size(); ++i) store[i] = (uint8_t)((i * 131 + seed) & 0x3f);
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

void run_arith2(benchmark::State &state, Arith2Case c) {
  Plane d(c.dst, 1), a(c.a, 2), b(c.b, 3);
  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
  for (auto _ : state) {
    SornStatus st = c.entry(&xe, 0, &d.rec, &a.rec, &b.rec, nullptr, nullptr, nullptr, c.sf, 0);
    if (st != SORN_OK) {
      state.SkipWithError("the operation failed");
      break;
    }
    benchmark::DoNotOptimize(d.store.data());
    benchmark::ClobberMemory();
  }
  const int64_t px = (int64_t)kRows * kCols;
  state.SetBytesProcessed(state.iterations() * px *
                          (SORN_ELEMSIZE(c.dst) + SORN_ELEMSIZE(c.a) + SORN_ELEMSIZE(c.b)));
  SornXEfini(&xe);
}

void run_arith2c(benchmark::State &state, Arith2cCase c);

const int kRegistered = [] {
  for (const Arith2Case &c : kCases) {
    const std::string name = std::string(c.family) + "/" + name_of(c.dst) + name_of(c.a) +
                             name_of(c.b) + "/sf" + std::to_string(c.sf) + "/1920x1080";
    benchmark::RegisterBenchmark(name.c_str(), run_arith2, c);
  }
  for (const Arith2cCase &c : kCasesC) {
    const std::string name = std::string(c.family) + "/" + name_of(c.dst) + name_of(c.a) + "/c" +
                             std::to_string((int)c.c) + "/sf" + std::to_string(c.sf) + "/1920x1080";
    benchmark::RegisterBenchmark(name.c_str(), run_arith2c, c);
  }
  return 0;
}();

void run_arith2c(benchmark::State &state, Arith2cCase c) {
  Plane d(c.dst, 1), a(c.a, 2);
  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
  const double cvec[1] = {c.c};
  for (auto _ : state) {
    SornStatus st = c.entry(&xe, 0, &d.rec, &a.rec, cvec, nullptr, nullptr, c.sf, 0);
    if (st != SORN_OK) {
      state.SkipWithError("the operation failed");
      break;
    }
    benchmark::DoNotOptimize(d.store.data());
    benchmark::ClobberMemory();
  }
  const int64_t px = (int64_t)kRows * kCols;
  state.SetBytesProcessed(state.iterations() * px * (SORN_ELEMSIZE(c.dst) + SORN_ELEMSIZE(c.a)));
  SornXEfini(&xe);
}

}  // namespace

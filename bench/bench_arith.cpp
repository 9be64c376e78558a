// Element-wise arithmetic on a full-HD frame of one channel. Every kernel of
// the type tables in sorn.h has a benchmark: the families of two arrays
// through their public entries (the sources as the table orders them reach
// their kernel directly), the constant forms through their kernels with a
// fill vector of the table's constant type. Throughput counts the bytes of
// the sources and of the destination.
#include <benchmark/benchmark.h>
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bench_env.h"

namespace {

constexpr int32_t kRows = 1080, kCols = 1920;

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

using bench::Env;

/* ---------------- two arrays, through the entries ---------------- */

using Arith2Entry = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                   const SornArray *, const SornVolume *, const SornVolume *,
                                   const SornVolume *, int32_t, uint32_t);

struct Arith2Case {
  std::string name;
  Arith2Entry entry;
  uint32_t dst, a, b;
  int32_t sf;
};

void run_arith2(benchmark::State &state, Arith2Case c) {
  Plane d(c.dst, 1), a(c.a, 2), b(c.b, 3);
  Env env;
  for (auto _ : state) {
    SornStatus st = c.entry(&env.xe, 0, &d.rec, &a.rec, &b.rec, nullptr, nullptr, nullptr, c.sf, 0);
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
}

/* ---------------- array and constant, through the kernels ---------------- */

struct Arith2cCase {
  std::string name;
  SornArith2cKernel kernel;
  uint32_t dst, a, t;
};

void run_arith2c(benchmark::State &state, Arith2cCase c) {
  Plane d(c.dst, 1), a(c.a, 2);
  Env env;
  const double cvec[1] = {3.0};
  alignas(8) uint8_t block[64];
  if (sorn_mkifillvalv64(c.t, block, cvec, 1) != SORN_OK) {
    state.SkipWithError("no fill vector of the constant type");
    return;
  }
  const int32_t dims[3] = {kRows, kCols, 1};
  for (auto _ : state) {
    SornStatus st = c.kernel(&env.xe, 0, 3, dims, d.store.data(), &d.rec.strides[1],
                             a.store.data(), &a.rec.strides[1], block, 0, 0);
    if (st != SORN_OK) {
      state.SkipWithError("the kernel failed");
      break;
    }
    benchmark::DoNotOptimize(d.store.data());
    benchmark::ClobberMemory();
  }
  const int64_t px = (int64_t)kRows * kCols;
  state.SetBytesProcessed(state.iterations() * px * (SORN_ELEMSIZE(c.dst) + SORN_ELEMSIZE(c.a)));
}

const int kRegistered = [] {
  std::vector<Arith2Case> two;
#define ARITH2_CASE(fam, entry, d, a, b)                                                         \
  two.push_back({std::string(fam "/") + #d #a #b + "/sf0/1920x1080", &entry, SORN_TYPECODE(d), \
                 SORN_TYPECODE(a), SORN_TYPECODE(b), 0});
#define ADD_CASE(d, a, b) ARITH2_CASE("Add", SornAdd, d, a, b)
#define SUB_CASE(d, a, b) ARITH2_CASE("Sub", SornSub, d, a, b)
#define RSUB_CASE(d, a, b) ARITH2_CASE("RSub", SornRSub, d, a, b)
#define ADDQ_CASE(d, a, b) ARITH2_CASE("Addq", SornAddq, d, a, b)
#define SUBQ_CASE(d, a, b) ARITH2_CASE("Subq", SornSubq, d, a, b)
#define RSUBQ_CASE(d, a, b) ARITH2_CASE("RSubq", SornRSubq, d, a, b)
  SORN_ADD_TRIPLES(ADD_CASE)
  SORN_ADD_TRIPLES(SUB_CASE)
  SORN_ADD_TRIPLES(RSUB_CASE)
  SORN_ADDQ_OWN_TRIPLES(ADDQ_CASE)
  SORN_ADDQ_OWN_TRIPLES(SUBQ_CASE)
  SORN_ADDQ_OWN_TRIPLES(RSUBQ_CASE)
  // The saturating shift, on the widest-used row.
  two.push_back({"Add/u8u8u8/sf1/1920x1080", &SornAdd, SORN_U8, SORN_U8, SORN_U8, 1});
  for (const Arith2Case &c : two) benchmark::RegisterBenchmark(c.name.c_str(), run_arith2, c);

  std::vector<Arith2cCase> constant;
#define ARITH2C_CASE(fam, d, a, t)                                                         \
  constant.push_back({std::string(#fam "C/") + #d #a #t + "/1920x1080",                    \
                      &sorna__##fam##C_c1_##d##a##t, SORN_TYPECODE(d), SORN_TYPECODE(a), \
                      SORN_TYPECODE(t)});
#define ADDC_CASE(d, a, t) ARITH2C_CASE(add, d, a, t)
#define SUBC_CASE(d, a, t) ARITH2C_CASE(sub, d, a, t)
#define RSUBC_CASE(d, a, t) ARITH2C_CASE(rsub, d, a, t)
#define ADDQC_CASE(d, a, t) ARITH2C_CASE(addq, d, a, t)
#define SUBQC_CASE(d, a, t) ARITH2C_CASE(subq, d, a, t)
#define RSUBQC_CASE(d, a, t) ARITH2C_CASE(rsubq, d, a, t)
  SORN_ADDC_TRIPLES(ADDC_CASE)
  SORN_ADDC_TRIPLES(SUBC_CASE)
  SORN_ADDC_TRIPLES(RSUBC_CASE)
  SORN_ADDQC_OWN_TRIPLES(ADDQC_CASE)
  SORN_ADDQC_OWN_TRIPLES(SUBQC_CASE)
  SORN_ADDQC_OWN_TRIPLES(RSUBQC_CASE)
  for (const Arith2cCase &c : constant) benchmark::RegisterBenchmark(c.name.c_str(), run_arith2c, c);
  return 0;
}();

}  // namespace

// The shapes of the module's functions. A family of the library becomes a
// Python function by one line of the table in families.cpp: its name, its
// docstring, and one of the records below, which names the family's entries
// and its type tables. The record's type decides the Python signature, and
// one binder per shape (bind() below) makes the function: the checks before
// the call, the records, the call without the GIL on the thread's
// environment, and the result.
//
// Type tables come from the library's header, never typed out here: a
// SORN_*_TRIPLES list becomes a Keys array through SORN_PY_TRIPLE, so that
// the types the module accepts are the types the library has kernels for.
#pragma once

#include <sorn.h>

#include <pybind11/pybind11.h>

#include <cstdint>
#include <span>

namespace sorn::python {

namespace py = pybind11;

// A library function and its name, for the exception that a status raises.
template <class F> struct Entry {
  F fn = nullptr;
  const char *name = nullptr;
  explicit operator bool() const { return fn != nullptr; }
};
#define SORN_PY_ENTRY(f) {&f, #f}

// Keys of a type table: destination << 8 | first source << 4 | second
// source, as the library's lookups key their kernels; or one type per key.
using Keys = std::span<const uint32_t>;
constexpr uint32_t key3(uint32_t d, uint32_t a, uint32_t b) { return d << 8 | a << 4 | b; }
#define SORN_PY_TRIPLE(d, a, b) \
  ::sorn::python::key3(SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b)),
#define SORN_PY_PAIR(d, s) ::sorn::python::key3(SORN_TYPECODE(d), SORN_TYPECODE(s), SORN_TYPECODE(s)),
#define SORN_PY_TYPE(t) SORN_TYPECODE(t),

/* ---------------- element-wise: dst = a op b ---------------- */

using Arith2 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornVolume *, const SornVolume *,
                              const SornVolume *, int32_t, uint32_t);
using Arith2c = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const double *, const SornVolume *, const SornVolume *, int32_t,
                               uint32_t);

// Two images, or an image and one constant per channel. Three forms of each:
// wrapping, saturating, and signed saturating (for int8 destinations). The
// reversed constant forms compute constant op image; an operation that
// commutes leaves them empty.
struct Elementwise {
  Entry<Arith2> wrap, sat, ssat;
  Entry<Arith2c> wrapC, satC, ssatC;
  Entry<Arith2c> rwrapC, rsatC, rssatC;
  Keys triples, sat_triples;    // of the two-image forms
  Keys ctriples, sat_ctriples;  // of the constant forms: destination, source, constant type
};

/* ---------------- reductions: one double per channel ---------------- */

using Reduce = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                              double *);
using ReduceEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornVolume *, const SornVolume *, double *);

struct Reduction {
  Entry<Reduce> plain;
  Entry<ReduceEx> masked;
  Keys types;
  SornFlags fast;     // the flag of the narrow accumulators
  SornFlags invmask;  // the flag that makes 255 the skipped mask value
};

/* ---------------- histograms ---------------- */

using Histo = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *, int32_t,
                             SornHist *);
using HistoEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const SornVolume *, const SornVolume *, int32_t, SornHist *);

struct Histogram {
  Entry<Histo> plain;
  Entry<HistoEx> masked;
  Keys types, masked_types;
  SornFlags invmask;
};

/* ---------------- fill ---------------- */

using FillFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                              const double *);
using FillExFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornVolume *, const SornVolume *, const double *);
using FillEx2Fn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const SornVolume *, const SornVolume *, const double *,
                                 const double *);

struct Fill {
  Entry<FillFn> plain;
  Entry<FillExFn> masked;
  Entry<FillEx2Fn> masked2;
  Keys types;
  SornFlags invmask;
};

/* ---------------- matrix products ---------------- */

using MulMM = Arith2;  // the same arguments: dst, two sources, three ROIs, a shift, a word
using MulMVn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *const *, const SornVolume *, const SornVolume *,
                              const SornVolume *, int32_t, int32_t, uint32_t);

struct MatMul {
  Entry<MulMM> mm, mv;
  Entry<MulMVn> mvn;
  Keys pairs;  // destination << 8 | source << 4 | source
  SornFlags transposed;
};

/* ---------------- region trees ---------------- */

using Flood = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                             SornWTSState *);
using FloodEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const SornVolume *, const SornVolume *, SornWTSState *);

struct ComponentTree {
  Entry<Flood> plain;
  Entry<FloodEx> masked;
  SornFlags invmask;
};

using GenerateF = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                                 SornFMSERFilter *);
using GenerateFEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                   const SornVolume *, const SornVolume *, SornFMSERFilter *);
using Generate = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                                SornMSERFilter *);
using GenerateEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                  const SornVolume *, const SornVolume *, SornMSERFilter *);

struct StableRegions {
  Entry<GenerateF> fast;
  Entry<GenerateFEx> fast_masked;
  Entry<Generate> plain;
  Entry<GenerateEx> plain_masked;
  SornFlags invmask;
};

/* ---------------- binders ---------------- */

void bind(py::module_ &m, const char *name, const char *doc, const Elementwise &s);
void bind(py::module_ &m, const char *name, const char *doc, const Reduction &s);
void bind(py::module_ &m, const char *name, const char *doc, const Histogram &s);
void bind(py::module_ &m, const char *name, const char *doc, const Fill &s);
void bind(py::module_ &m, const char *name, const char *doc, const MatMul &s);
void bind(py::module_ &m, const char *name, const char *doc, const ComponentTree &s);
void bind(py::module_ &m, const char *name, const char *doc, const StableRegions &s);

// Every function of the table.
void bind_families(py::module_ &m);

// Whether a type table holds a key.
bool holds(Keys keys, uint32_t key);

}  // namespace sorn::python

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
#include <utility>

namespace sorn::python {

namespace py = pybind11;

// A library function and its name, for the exception that a status raises.
template <class F> struct Entry {
  F fn = nullptr;
  const char *name = nullptr;
  explicit operator bool() const { return fn != nullptr; }
};
#define SORN_PY_ENTRY(f) \
  { &f, #f }

// Keys of a type table: destination << 8 | first source << 4 | second
// source, as the library's lookups key their kernels; or one type per key.
using Keys = std::span<const uint32_t>;
constexpr uint32_t key3(uint32_t d, uint32_t a, uint32_t b) { return d << 8 | a << 4 | b; }
#define SORN_PY_TRIPLE(d, a, b) \
  ::sorn::python::key3(SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b)),
#define SORN_PY_PAIR(d, s) \
  ::sorn::python::key3(SORN_TYPECODE(d), SORN_TYPECODE(s), SORN_TYPECODE(s)),
#define SORN_PY_TYPE(t) SORN_TYPECODE(t),
// One type for all operands: the logical operations' keys.
#define SORN_PY_SAME3(t) SORN_PY_TRIPLE(t, t, t)
#define SORN_PY_SAME2(t) SORN_PY_PAIR(t, t)

/* ---------------- element-wise: dst = a op b ---------------- */

using Arith2 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornVolume *, const SornVolume *,
                              const SornVolume *, int32_t, uint32_t);
using Arith2c = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const double *, const SornVolume *, const SornVolume *, int32_t,
                               uint32_t);
using Logic2 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornVolume *, const SornVolume *,
                              const SornVolume *);
using Logic2c = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const double *, const SornVolume *, const SornVolume *);

// The operations without a scale factor, called like those with one.
template <Logic2 F>
SornStatus unscaled(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                    const SornArray *b, const SornVolume *rd, const SornVolume *ra,
                    const SornVolume *rb, int32_t, uint32_t) {
  return F(xe, flags, d, a, b, rd, ra, rb);
}
template <Logic2c F>
SornStatus unscaled(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                    const double *c, const SornVolume *rd, const SornVolume *ra, int32_t,
                    uint32_t) {
  return F(xe, flags, d, a, c, rd, ra);
}
#define SORN_PY_UNSCALED(f) \
  { &::sorn::python::unscaled<&f>, #f }

// The forms of an element-wise family: its plain form and, chosen by a
// keyword (saturate=, round=), another; the other form into an int8
// destination may be a third (the signed saturating forms).
template <class F> struct Forms { Entry<F> plain, other, other_int8; };

// Two images, or an image and one constant per channel, on either side: the
// reversed constant forms compute constant op image, and an operation that
// commutes has none.
struct Elementwise {
  const char *option;  // the keyword of the other form, or null for none
  bool option_default;
  bool scaled;  // takes scale=, the library's scale factor
  Forms<Arith2> images;
  Forms<Arith2c> constant, reversed;
  Keys triples, other_triples;    // of the two-image forms
  Keys ctriples, other_ctriples;  // constant forms: destination, source, (constant type)
  uint32_t const_channels;        // bit c: the constant forms take c channels
};
// Channel counts as a bit mask, from a list like SORN_CONST_CHANNELS.
#define SORN_PY_CHANNEL_BIT(c, ...) | (1u << c)
constexpr uint32_t kAnyChannels = 0x1e;

/* ---------------- one source: dst = f(a) ---------------- */

using Arith1 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornVolume *, const SornVolume *, int32_t, uint32_t);
using Logic1 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornVolume *, const SornVolume *);
template <Logic1 F>
SornStatus unscaled1(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                     const SornVolume *rd, const SornVolume *ra, int32_t, uint32_t) {
  return F(xe, flags, d, a, rd, ra);
}
#define SORN_PY_UNSCALED1(f) \
  { &::sorn::python::unscaled1<&f>, #f }

// A choice of the flags word by name (accuracy='fast').
struct FlagChoice {
  const char *name;
  SornFlags flags;
};

// One image in, one out; an optional constant per channel (the sigmoid's
// slope) makes the call the constant form.
struct Unary {
  const char *option;  // the keyword of the other form, or null
  bool option_default;
  bool scaled;
  Forms<Arith1> forms;
  Keys pairs, other_pairs;               // destination << 8 | source << 4 | source
  std::span<const FlagChoice> accuracy;  // empty: no accuracy= keyword
  const char *constant;                  // the constant's keyword, or null
  double constant_default;
  Entry<Arith2c> with_constant;
};

/* ---------------- comparison ---------------- */

using Cmp = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                           const SornArray *, const SornVolume *, const SornVolume *,
                           const SornVolume *, SornCmpOp);
using CmpC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                            const double *, const SornVolume *, const SornVolume *, SornCmpOp);
using ECmp = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                            const SornArray *, const SornVolume *, const SornVolume *,
                            const SornVolume *, SornCmpOp, const double *, const double *);
using ECmpC = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const double *, const SornVolume *, const SornVolume *, SornCmpOp,
                             const double *, const double *);

struct Compare {
  Entry<Cmp> images;
  Entry<CmpC> constant;
  Entry<ECmp> images_values;
  Entry<ECmpC> constant_values;
  Keys pairs, value_pairs;  // destination << 8 | source << 4 | source
};

/* ---------------- reductions: one double per channel ---------------- */

using Reduce = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *, double *);
using ReduceEx = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornVolume *, const SornVolume *, double *);

struct Reduction {
  Entry<Reduce> plain;
  Entry<ReduceEx> masked;
  Keys types;
  uint32_t channels;  // bit c: images of c channels have kernels
  SornFlags fast;     // the flag of the narrow accumulators
  SornFlags invmask;  // the flag that makes 255 the skipped mask value
};

/* ---------------- extremes ---------------- */

using MinmaxFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *,
                                SornMinmaxRec *);
using MinmaxExFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                  const SornVolume *, const SornVolume *, SornMinmaxRec *);

struct Extremes {
  Entry<MinmaxFn> plain;
  Entry<MinmaxExFn> masked;
  Keys types;
  uint32_t channels;
  SornFlags invmask;
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

/* ---------------- thresholds ---------------- */

using ThresholdFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                   const SornVolume *, const SornVolume *,
                                   const SornThresholdSpec *, const SornThresholdCriterion *,
                                   int32_t);
using OtsuFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornVolume *, double *,
                              SornVrng *, int32_t *);

// Elements that meet a condition against a threshold (a number per channel,
// an image of thresholds, Otsu's threshold or a blurred copy) take a value.
struct Threshold {
  Entry<ThresholdFn> threshold;
  Keys pairs;  // of the comparison the thresholds run on: a type into itself
};
struct Otsu {
  Entry<OtsuFn> otsu;
  Keys pairs;
};

/* ---------------- borders, filters, resizing ---------------- */

using CopyMkbFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const SornVolume *, const SornVolume *, int32_t,
                                 const SornBrShape *);
using FilterFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornVolume *, const SornVolume *, int32_t,
                                const SornSeShape *);
using ResizeFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornVolume *, const int32_t *, int32_t, const double *);

// A copy of an image with a frame around it, by one of the border kinds.
struct Border {
  Entry<CopyMkbFn> copy;
};

// A neighbourhood filter of one kind; the window reads the reflected image
// beyond the edges, or, for the other border kinds, a framed copy made by
// `border` first.
struct Filter {
  Entry<FilterFn> filter;
  int32_t kind;
  Keys types;
  Entry<CopyMkbFn> border;
};

struct Resize {
  Entry<ResizeFn> resize;
};

/* ---------------- conversion ---------------- */

using ConvertFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const SornVolume *, const SornVolume *, const double *,
                                 const double *, const SornVrng *);
using VConvertFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                  const SornVolume *, const SornVolume *, SornVrng *,
                                  const SornVrng *);

// A change of element type: the plain saturating conversion and the map
// onto a range go through `ranged`, the map by a scale and an offset from
// the image's least value through `scaled`.
struct Convert {
  Entry<ConvertFn> scaled;
  Entry<VConvertFn> ranged;
  Keys types;
};

/* ---------------- multiply-accumulate ---------------- */

using Mac3 = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                            const SornArray *, const SornArray *, const SornVolume *,
                            const SornVolume *, const SornVolume *, const SornVolume *, int32_t,
                            uint32_t);
using Mac3c = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const SornArray *, const double *, const SornVolume *,
                             const SornVolume *, const SornVolume *, int32_t, uint32_t);
using Mac3cc = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const double *, const double *, const SornVolume *,
                              const SornVolume *, int32_t, uint32_t);

// a joined to the product b * c: three images, or c one constant per
// channel. With a a constant as well the call is the form of one image and
// two constants, which computes image * c1 joined to c2: `constants` is the
// entry whose result is then a joined to b * c (the library's difference of
// that form subtracts the constant, so the difference a - b * c goes to its
// reversed entry and the other way round).
struct MulAcc {
  Entry<Mac3> images;
  Entry<Mac3c> constant;
  Entry<Mac3cc> constants;
  Keys types;  // of every operand and the destination; the library serves
               // every combination, those without a kernel through tiles
};

/* ---------------- separable filters and morphology ---------------- */

using SepFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                             const SornVolume *, const SornVolume *, const SornSepShape *);
using GaussianFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                  const SornVolume *, const SornVolume *, const SornSeShape *,
                                  const double *);
using MorphFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                               const SornVolume *, const SornVolume *, int32_t, const SornStrel *);

// A row kernel and a column kernel of doubles (or the box along an axis).
struct SepFilter {
  Entry<SepFn> filter;
  Keys types;
  Entry<CopyMkbFn> border;
};

// The separable filter whose kernels the library makes from the window and
// the sigmas.
struct Gaussian {
  Entry<GaussianFn> filter;
  Keys types;
  Entry<CopyMkbFn> border;
};

// Erosion, dilation and their chains by a mask of any shape (a rectangle
// is the mask of all ones).
struct Morphology {
  Entry<MorphFn> morph;
  Keys types;
  Entry<CopyMkbFn> border;
};

using FireflyFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const SornVolume *, const SornVolume *, int32_t,
                                 const SornSeShape *, const int32_t *, int32_t);

// Three views mixed by weights: the blurs of three windows, or a gain and a
// local rank beside the image; the rank kinds take one-channel bytes alone.
struct Firefly {
  Entry<FireflyFn> filter;
  Keys types;
  Entry<CopyMkbFn> border;
};

/* ---------------- relative box count ---------------- */

using CountRelBoxFn = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                     const SornVolume *, const SornVolume *, SornCmpOp,
                                     const SornSeShape *, const SornVrng *, int32_t, uint32_t);

// For every pixel, how many pixels of the box around it stand in a
// relation to it, scaled by a power of two.
struct RelBox {
  Entry<CountRelBoxFn> count;
  Keys pairs;  // destination << 8 | source << 4 | source
};

/* ---------------- plane geometry ---------------- */

// A function over a list of points in its three coordinate families: int32
// points (the integer family), float32 and float64. The binder picks the
// form by the dtype of the points it is given.
template <class I, class F, class R> struct PointForms {
  Entry<I> i;
  Entry<F> f;
  Entry<R> r;
};

// The convex hull, written to a block of n points; answers the hull's count.
struct ConvexHull {
  PointForms<int32_t (*)(Sorn2dPt *, const Sorn2dPt *, int32_t),
             int32_t (*)(SornF2dPt *, const SornF2dPt *, int32_t),
             int32_t (*)(SornR2dPt *, const SornR2dPt *, int32_t)>
      forms;
};

// A number from the list read as a closed ring.
struct PolygonArea {
  PointForms<double (*)(const Sorn2dPt *, int32_t), double (*)(const SornF2dPt *, int32_t),
             double (*)(const SornR2dPt *, int32_t)>
      forms;
};

// The bounding quadrilateral of least area; null when the hull's block could
// not be had. Integer points give the f64 quadrilateral.
struct MinAreaQuad {
  PointForms<SornR2dQuad *(*)(SornR2dQuad *, const Sorn2dPt *, int32_t),
             SornF2dQuad *(*)(SornF2dQuad *, const SornF2dPt *, int32_t),
             SornR2dQuad *(*)(SornR2dQuad *, const SornR2dPt *, int32_t)>
      forms;
};

/* ---------------- binders ---------------- */

void bind(py::module_ &m, const char *name, const char *doc, const Elementwise &s);
void bind(py::module_ &m, const char *name, const char *doc, const Unary &s);
void bind(py::module_ &m, const char *name, const char *doc, const Compare &s);
void bind(py::module_ &m, const char *name, const char *doc, const Extremes &s);
void bind(py::module_ &m, const char *name, const char *doc, const Reduction &s);
void bind(py::module_ &m, const char *name, const char *doc, const Histogram &s);
void bind(py::module_ &m, const char *name, const char *doc, const Fill &s);
void bind(py::module_ &m, const char *name, const char *doc, const MatMul &s);
void bind(py::module_ &m, const char *name, const char *doc, const ComponentTree &s);
void bind(py::module_ &m, const char *name, const char *doc, const StableRegions &s);
void bind(py::module_ &m, const char *name, const char *doc, const Threshold &s);
void bind(py::module_ &m, const char *name, const char *doc, const Otsu &s);
void bind(py::module_ &m, const char *name, const char *doc, const Border &s);
void bind(py::module_ &m, const char *name, const char *doc, const Filter &s);
void bind(py::module_ &m, const char *name, const char *doc, const Resize &s);
void bind(py::module_ &m, const char *name, const char *doc, const Convert &s);
void bind(py::module_ &m, const char *name, const char *doc, const MulAcc &s);
void bind(py::module_ &m, const char *name, const char *doc, const SepFilter &s);
void bind(py::module_ &m, const char *name, const char *doc, const Gaussian &s);
void bind(py::module_ &m, const char *name, const char *doc, const Morphology &s);
void bind(py::module_ &m, const char *name, const char *doc, const Firefly &s);
void bind(py::module_ &m, const char *name, const char *doc, const RelBox &s);
void bind(py::module_ &m, const char *name, const char *doc, const ConvexHull &s);
void bind(py::module_ &m, const char *name, const char *doc, const PolygonArea &s);
void bind(py::module_ &m, const char *name, const char *doc, const MinAreaQuad &s);

// Every function of the table.
void bind_families(py::module_ &m);

// A comparison operator by its symbol or word ('<' or 'lt', ...);
// ValueError for anything else.
SornCmpOp cmp_op_of(py::handle op, const char *name);

// Two extents, rows and columns, from one integer for both or a pair, each
// at least `least` and at most 2**20; TypeError or ValueError naming `what`.
std::pair<int64_t, int64_t> extent_pair(py::handle v, const char *name, const char *what,
                                        int64_t least);

// The border kinds by name ('reflect101', 'reflect', 'replicate', 'wrap',
// 'const'); ValueError for anything else.
int32_t border_kind_of(py::handle kind, const char *name);

// Whether a type table holds a key.
bool holds(Keys keys, uint32_t key);

}  // namespace sorn::python

// The module's functions: one line per family of the library. A family that
// lands in the library becomes a Python function by its line here (and, when
// its arguments have a shape no family had before, a record and a binder in
// shapes.h).
#include <algorithm>
#include <variant>

#include "shapes.h"

namespace sorn::python {

namespace {

// The type tables, expanded from the library's header.
constexpr uint32_t kAddTriples[] = {SORN_ADD_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kAddqTriples[] = {SORN_ADDQ_OWN_TRIPLES(SORN_PY_TRIPLE)
                                         SORN_ADDQ_PLAIN_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kAddcTriples[] = {SORN_ADDC_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kAddqcTriples[] = {SORN_ADDQC_OWN_TRIPLES(SORN_PY_TRIPLE)
                                          SORN_ADDQC_PLAIN_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kSumTypes[] = {SORN_SUM_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kHistTypes[] = {SORN_HIST_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kHistXmTypes[] = {SORN_HIST_XM_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kFillTypes[] = {SORN_FILL_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kMulPairs[] = {SORN_MULMM_PAIRS(SORN_PY_PAIR)};

using Shape = std::variant<Elementwise, Reduction, Histogram, Fill, MatMul, ComponentTree,
                           StableRegions>;

struct Family {
  const char *name;
  const char *doc;
  Shape shape;
};

const Family kFamilies[] = {
    {"add",
     R"(add(a, b, *, scale=0, saturate=True, dtype=None, out=None)

Element-wise a + b of two images of the same rows, columns and channels, or of
an image and a constant (a number, or one number per channel) on either side.

scale is the library's scale factor sf: 0 keeps the sum; a positive sf shifts
it left by sf bits and saturates; a negative sf divides it by 2**-sf, rounding
to nearest with ties to even, and saturates. saturate=True clamps the sum to
the destination's range (the library's saturating form); saturate=False lets
an integer sum wrap at scale 0. An int8 destination with saturate=True takes
the signed saturating form: uint8 sources, results clamped to -128..127.

The result has the type of the wider source (dtype= or out= choose another
the library has a kernel for: uint8, int16, int32, float32 destinations; the
error lists the combinations). out may be a or b itself.)",
     Elementwise{
         SORN_PY_ENTRY(SornAdd), SORN_PY_ENTRY(SornAddq), SORN_PY_ENTRY(SornAddsq),
         SORN_PY_ENTRY(SornAddC), SORN_PY_ENTRY(SornAddqC), SORN_PY_ENTRY(SornAddsqC),
         {}, {}, {},  // addition commutes
         kAddTriples, kAddqTriples, kAddcTriples, kAddqcTriples}},
    {"subtract",
     R"(subtract(a, b, *, scale=0, saturate=True, dtype=None, out=None)

Element-wise a - b of two images, of an image and a constant (image minus
constant), or of a constant and an image (constant minus image). scale,
saturate, dtype and out as for add: with saturate=False an integer difference
wraps (10 - 20 in uint8 is 246), with saturate=True it clamps (0), and into an
int8 destination it is the signed difference (-10).)",
     Elementwise{
         SORN_PY_ENTRY(SornSub), SORN_PY_ENTRY(SornSubq), SORN_PY_ENTRY(SornSubsq),
         SORN_PY_ENTRY(SornSubC), SORN_PY_ENTRY(SornSubqC), SORN_PY_ENTRY(SornSubsqC),
         SORN_PY_ENTRY(SornRSubC), SORN_PY_ENTRY(SornRSubqC), SORN_PY_ENTRY(SornRSubsqC),
         kAddTriples, kAddqTriples, kAddcTriples, kAddqcTriples}},
    {"sum",
     R"(sum(img, *, mask=None, invert_mask=False, fast=False)

The sum of every channel over the image, in double: a float for a 2-D image,
an array of one value per channel for a 3-D one, and for a 4-D stack one row
of sums per plane. Integer images are summed exactly (64-bit accumulators);
float32 images add their elements in double, row by row in address order.

mask: one byte per pixel (uint8 or bool); pixels whose byte is 0 are left out
(255 with invert_mask=True). fast=True takes the library's narrow
accumulators, which wrap at 32 bits (and add float32 in float32).)",
     Reduction{SORN_PY_ENTRY(SornSum), SORN_PY_ENTRY(SornSumEx), kSumTypes, SORN_F_SUM_FAST,
               SORN_F_STATS_INVMASK}},
    {"mean",
     R"(mean(img, *, mask=None, invert_mask=False, fast=False)

The mean of every channel, in double, shaped as sum() gives it. With a mask
only the selected pixels count; a mask that selects none gives means of 0.0.)",
     Reduction{SORN_PY_ENTRY(SornMean), SORN_PY_ENTRY(SornMeanEx), kSumTypes, SORN_F_SUM_FAST,
               SORN_F_STATS_INVMASK}},
    {"histogram",
     R"(histogram(img, bins=256, range=None, *, mask=None, invert_mask=False)

Counts of the image's values in bins equal-width bins over range=(low, high),
as uint32: shape (bins,) for one channel, (channels, bins) for several. A 4-D
stack is counted over all its planes.

Integer images: low and high are rounded to integers; with bins equal to
high - low + 1 a value v falls in bin v - low, otherwise in bin
((v - low) * bins) // (high - low + 1). float32 images: bin
int((v - low) * (bins - 1) / (high - low)), so that high falls in the last
bin. The default range is the type's (uint8 0..255, int8 -128..127, int16
-32768..32767) and, for int32 and float32, the data's smallest and largest
value. Every counted value must lie in range (ValueError otherwise: the
library does not test it), and float32 images may not hold NaN.

mask: one byte per pixel; pixels whose byte is 0 (255 with invert_mask) are
not counted. Channels are counted one at a time, each from a copy.)",
     Histogram{SORN_PY_ENTRY(SornHistogram), SORN_PY_ENTRY(SornHistogramEx), kHistTypes,
               kHistXmTypes, SORN_F_STATS_INVMASK}},
    {"fill",
     R"(fill(img, value=0, *, mask=None, outside=None, invert_mask=False)

Sets the image to value (a number, or one per channel), in place, and
returns it. Values are rounded to nearest, ties to even, and saturated to the
element type (float32 takes them as they are).

mask: one byte per pixel selects the pixels that take value (bytes other than
0, or other than 255 with invert_mask); with outside= the other pixels take
that value instead of keeping theirs. A mask with a byte per element (the
image's channels on its last axis) works bit by bit: an element takes the bits
of value where its mask byte has ones (255 takes the value, 0 keeps the
element); bool masks are made 0 and 255 first.)",
     Fill{SORN_PY_ENTRY(SornFill), SORN_PY_ENTRY(SornFillEx), SORN_PY_ENTRY(SornFillEx2),
          kFillTypes, SORN_F_INVMASK}},
    {"matmul",
     R"(matmul(a, b, *, shift=0, dtype=None, out=None)

The matrix product of a (M, K) and b: a matrix (K, N) gives (M, N); a vector
(K,) gives (M,); a list of vectors, each (K,), gives (M, count), column j the
product with vector j. a and b have one element type: float32 (float32
result), int32 (int32, sums wrap at 32 bits), uint8 (int32 by default, or
uint8 and int16 with saturation).

shift scales the integer products: positive shifts the sum left, negative
divides it by 2**-shift rounding to nearest even. A b that is the transpose of
a contiguous array (b = c.T) is read as it is, without a copy. float32 sums
run in groups of four terms, so their last bits may differ from a plain loop.)",
     MatMul{SORN_PY_ENTRY(SornMulMM), SORN_PY_ENTRY(SornMulMV), SORN_PY_ENTRY(SornMulMV_n),
            kMulPairs, SORN_F_MUL_TRANSPOSED}},
    {"component_tree",
     R"(component_tree(img, *, bright=False, connectivity=4, mask=None, invert_mask=False, seed=(0, 0))

The component tree of a one-channel uint8 image by linear-time flooding: each
node is a connected set of pixels at or below its level (at or above with
bright=True), its parent the next larger such set. Sets of fewer than 16
pixels are no nodes: their pixels belong to the node they merge into. Returns
a sorn.ComponentTree with the nodes in pre-order (parent, level, size, the
pixel where the set began, and each node's pixels).

connectivity: 4 or 8 neighbours. mask: pixels whose byte is 0 (255 with
invert_mask) are left out. seed: the (row, column) the flooding starts at.)",
     ComponentTree{SORN_PY_ENTRY(SornWatershed), SORN_PY_ENTRY(SornWatershedEx),
                   SORN_F_WTS_INVMASK}},
    {"mser",
     R"(mser(img, *, delta=10, min_area=0.0001, max_area=0.75, max_variation=0.33, min_diversity=0.2, mode='both', mask=None, invert_mask=False, plain=False, connectivity=4, shift=0)

Maximally stable extremal regions of a one-channel uint8 image. Returns
sorn.Regions: per region whether it is dark (a set below its level) or
bright, its grey level, its size, and its pixels as (row, column) pairs.

delta: the grey-level step of the stability measure. min_area, max_area:
smallest and largest region as fractions of the image's pixels. max_variation:
largest relative growth over delta levels. min_diversity: of two nested
stable regions closer than this in relative size, the inner one goes.
mode: 'dark', 'bright' or 'both'.

The default flooding is the library's fast one: 4 neighbours, and column 0 of
the image takes part in no region (shift= quantises levels by dropping low
bits). plain=True runs the plain flooding instead, with connectivity 4 or 8
and every column.)",
     StableRegions{SORN_PY_ENTRY(SornGenerateFMSERs), SORN_PY_ENTRY(SornGenerateFMSERsEx),
                   SORN_PY_ENTRY(SornGenerateMSERs), SORN_PY_ENTRY(SornGenerateMSERsEx),
                   SORN_F_WTS_INVMASK}},
};

}  // namespace

bool holds(Keys keys, uint32_t key) { return std::find(keys.begin(), keys.end(), key) != keys.end(); }

void bind_families(py::module_ &m) {
  for (const Family &f : kFamilies)
    std::visit([&](const auto &shape) { bind(m, f.name, f.doc, shape); }, f.shape);
}

}  // namespace sorn::python

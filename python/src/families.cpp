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
constexpr uint32_t kMulcTriples[] = {SORN_MULC_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kDivTriples[] = {SORN_DIV_TRIPLES(SORN_PY_TRIPLE)};
constexpr uint32_t kDivcPairs[] = {SORN_DIVC_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kLogicTriples[] = {SORN_LOGIC_TYPES(SORN_PY_SAME3)};
constexpr uint32_t kLogicPairs[] = {SORN_LOGIC_TYPES(SORN_PY_SAME2)};
constexpr uint32_t kConstChannels = 0u SORN_CONST_CHANNELS(SORN_PY_CHANNEL_BIT, _);
constexpr uint32_t kNegPairs[] = {SORN_NEG_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kNegqPairs[] = {SORN_NEGQ_OWN_PAIRS(SORN_PY_PAIR)
                                       SORN_NEGQ_PLAIN_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kExpPairs[] = {SORN_EXP_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kCmpPairs[] = {SORN_CMP_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kECmpPairs[] = {SORN_ECMP_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kMinmaxTypes[] = {SORN_MINMAX_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kSumTypes[] = {SORN_SUM_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kStatsChannels = 0u SORN_STATS_CHANNELS(SORN_PY_CHANNEL_BIT, _);
constexpr uint32_t kHistTypes[] = {SORN_HIST_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kHistXmTypes[] = {SORN_HIST_XM_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kFillTypes[] = {SORN_FILL_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kMulPairs[] = {SORN_MULMM_PAIRS(SORN_PY_PAIR)};
constexpr uint32_t kFilterTypes[] = {SORN_FILTER_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kConvertTypes[] = {SORN_VSCALE_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kMacTypes[] = {SORN_MLACC_TYPES(SORN_PY_TYPE)};
constexpr uint32_t kRelBoxPairs[] = {SORN_COUNTRELBOX_PAIRS(SORN_PY_PAIR)};

// The accuracy of exp (and of the sigmoid, which uses it) and of ln.
constexpr FlagChoice kExpAccuracy[] = {{"accurate", SORN_F_EXP_ACCURATE},
                                       {"fast", SORN_F_EXP_FAST},
                                       {"superfast", SORN_F_EXP_SUPERFAST}};
constexpr FlagChoice kLnAccuracy[] = {{"accurate", SORN_F_EXP_ACCURATE},
                                      {"superfast", SORN_F_EXP_SUPERFAST}};

// What the window filters' docstrings share.
#define SORN_PY_WINDOW_DOC                                                          \
  "\n\n"                                                                            \
  "Filters of a one-channel image of uint8, int16, int32 or float32 (a 4-D stack\n" \
  "plane by plane) by a window of size=(rows, columns) (or one number for both)\n"  \
  "whose pixel anchor=(row, column) lies on the output pixel (by default the\n"     \
  "centre, size // 2). Beyond the image's edges the window reads the image\n"       \
  "mirrored about its edge pixels (border='reflect101', numpy's pad mode\n"         \
  "'reflect'), or the border kind given: 'reflect' (about the edge, numpy's\n"      \
  "'symmetric'), 'replicate' ('edge'), 'wrap', or 'const' with value. A window\n"   \
  "of one pixel gives a copy. Images of several channels are filtered one\n"        \
  "channel at a time."

// What the multiply-accumulate docstrings share.
#define SORN_PY_MAC_DOC                                                            \
  "\n\n"                                                                           \
  "a, b and c are images of one shape (uint8, int16, int32 or float32, each its\n" \
  "own), or constants: c (or b) a number or one per channel, and with c a\n"       \
  "constant a may be one too. The result has the type of the widest image\n"       \
  "(dtype= or out= choose another of the four); out may be a source itself.\n"     \
  "\n"                                                                             \
  "Integer operands join in 32 bits (64 where int32 takes part) and the result\n"  \
  "saturates once, at the end: scale 0 clamps it to the destination's range, a\n"  \
  "positive scale shifts it left and clamps, a negative one multiplies it by\n"    \
  "the float32 2**scale and rounds to nearest, ties to even. With a float32\n"     \
  "operand and none of int32 the product and the sum are float32 steps; with\n"    \
  "int32 beside float32 they are doubles, the product of two int32 factors\n"      \
  "formed in 64 bits. An integer destination then takes the rounded value (to\n"   \
  "nearest, ties to even; what leaves the int32 range counts as its least\n"       \
  "value), clamped; float32 destinations take it narrowed. scale does not act\n"   \
  "where a float32 takes part. A constant is held in the narrowest type of its\n"  \
  "values (uint8, int16, int32, or float32 for fractions: 0.1 is the float32\n"    \
  "0.1). Types without a kernel of their own go through tiles of a wider type,\n"  \
  "saturating at the last step."

// What the window filters of every channel share.
#define SORN_PY_WINDOW_MULTI_DOC                                                   \
  "\n\n"                                                                           \
  "Images of uint8, int16, int32 or float32 with 1 to 4 channels, each channel\n"  \
  "filtered as an image of its own (a 4-D stack plane by plane). The window's\n"   \
  "pixel anchor=(row, column) lies on the output pixel (by default the centre,\n"  \
  "size // 2); beyond the image's edges the window reads the border kind given,\n" \
  "as for box_filter: 'reflect101' (the default), 'reflect', 'replicate',\n"       \
  "'wrap', or 'const' with value (a number, or one per channel)."

using Shape = std::variant<Elementwise, Unary, Compare, Reduction, Extremes, Histogram, Fill,
                           MatMul, ComponentTree, StableRegions, Threshold, Otsu, Border, Filter,
                           Resize, Convert, MulAcc, SepFilter, Gaussian, Morphology, Firefly,
                           RelBox, ConvexHull, PolygonArea, MinAreaQuad>;

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
error lists the combinations). out may be a or b itself.

add(x, x) with the very same array (one memory, one layout) is the library's
form for like sources, kept as the library defines it: the sum goes to its
multiply-by-constant kernel with a block of doubles that kernel reads in its
own type, so that uint8 gives zeros and other types their own factors, not a
doubling. add(x, x.copy()) doubles.)",
     Elementwise{"saturate",
                 true,
                 true,
                 {SORN_PY_ENTRY(SornAdd), SORN_PY_ENTRY(SornAddq), SORN_PY_ENTRY(SornAddsq)},
                 {SORN_PY_ENTRY(SornAddC), SORN_PY_ENTRY(SornAddqC), SORN_PY_ENTRY(SornAddsqC)},
                 {},  // addition commutes
                 kAddTriples,
                 kAddqTriples,
                 kAddcTriples,
                 kAddqcTriples,
                 kAnyChannels}},
    {"subtract",
     R"(subtract(a, b, *, scale=0, saturate=True, dtype=None, out=None)

Element-wise a - b of two images, of an image and a constant (image minus
constant), or of a constant and an image (constant minus image). scale,
saturate, dtype and out as for add: with saturate=False an integer difference
wraps (10 - 20 in uint8 is 246), with saturate=True it clamps (0), and into an
int8 destination it is the signed difference (-10).)",
     Elementwise{"saturate",
                 true,
                 true,
                 {SORN_PY_ENTRY(SornSub), SORN_PY_ENTRY(SornSubq), SORN_PY_ENTRY(SornSubsq)},
                 {SORN_PY_ENTRY(SornSubC), SORN_PY_ENTRY(SornSubqC), SORN_PY_ENTRY(SornSubsqC)},
                 {SORN_PY_ENTRY(SornRSubC), SORN_PY_ENTRY(SornRSubqC), SORN_PY_ENTRY(SornRSubsqC)},
                 kAddTriples,
                 kAddqTriples,
                 kAddcTriples,
                 kAddqcTriples,
                 kAnyChannels}},
    {"multiply",
     R"(multiply(a, b, *, scale=0, dtype=None, out=None)

Element-wise a * b of two images, or of an image and a constant (a number, or
one per channel) on either side. Integer products saturate at every scale:
scale 0 clamps the product to the destination's range, a positive scale
shifts it left and clamps, a negative one divides by 2**-scale, rounding to
nearest with ties to even. dtype and out as for add; a uint8 image times a
constant may go into int8.

multiply(x, x) with the very same array squares it by the library's square
kernels, which wrap at scale 0 where two separate equal operands saturate.)",
     Elementwise{nullptr,
                 false,
                 true,
                 {.plain = SORN_PY_ENTRY(SornMul)},
                 {.plain = SORN_PY_ENTRY(SornMulC)},
                 {},  // multiplication commutes
                 kAddTriples,
                 {},
                 kMulcTriples,
                 {},
                 kAnyChannels}},
    {"divide",
     R"(divide(a, b, *, scale=0, round=False, dtype=None, out=None)

Element-wise a / b of two images of one type (uint8, int16, int32, float32),
of an image by a constant, or of a constant by an image. round=False
truncates integer quotients toward zero, round=True rounds them to nearest,
ties to even; scale as for multiply. Constants are rounded to the image's type
first (dividing uint8 by 2.5 divides by 2), and the constant forms take 1, 3
or 4 channels. A zero divisor is no error: what it gives is whatever the
library's float quotient converts to (the lower end of the range where the
result is clamped).)",
     Elementwise{"round",
                 false,
                 true,
                 {.plain = SORN_PY_ENTRY(SornDiv), .other = SORN_PY_ENTRY(SornDivr)},
                 {.plain = SORN_PY_ENTRY(SornDivC), .other = SORN_PY_ENTRY(SornDivrC)},
                 {.plain = SORN_PY_ENTRY(SornRDivC), .other = SORN_PY_ENTRY(SornRDivrC)},
                 kDivTriples,
                 kDivTriples,
                 kDivcPairs,
                 kDivcPairs,
                 kConstChannels}},
    {"muladd",
     R"(muladd(a, b, c, *, scale=0, dtype=None, out=None)

Element-wise a + b * c in one pass.)" SORN_PY_MAC_DOC,
     MulAcc{SORN_PY_ENTRY(SornMulAdd), SORN_PY_ENTRY(SornMulAddC), SORN_PY_ENTRY(SornMulAddCC),
            kMacTypes}},
    {"mulsub",
     R"(mulsub(a, b, c, *, scale=0, dtype=None, out=None)

Element-wise a - b * c in one pass. With a constant a (and an image times a
constant) it is the library's reversed difference, which has no uint8
destination: that raises SornNotSupportedError.)" SORN_PY_MAC_DOC,
     MulAcc{SORN_PY_ENTRY(SornMulSub), SORN_PY_ENTRY(SornMulSubC), SORN_PY_ENTRY(SornMulRSubCC),
            kMacTypes}},
    {"mulrsub",
     R"(mulrsub(a, b, c, *, scale=0, dtype=None, out=None)

Element-wise b * c - a: the difference a - b * c negated (saturating: in
int16 and int32 the least value becomes the greatest). A uint8 destination
raises SornNotSupportedError, except with a constant a, where the library
subtracts the constant directly.)" SORN_PY_MAC_DOC,
     MulAcc{SORN_PY_ENTRY(SornMulRSub), SORN_PY_ENTRY(SornMulRSubC), SORN_PY_ENTRY(SornMulSubCC),
            kMacTypes}},
    {"bitwise_and",
     R"(bitwise_and(a, b, *, dtype=None, out=None)

Element-wise a & b of two images of one type (uint8, int16, int32), or of an
image and a constant, rounded and clamped into the type (the constant forms
take 1, 3 or 4 channels).)",
     Elementwise{nullptr,
                 false,
                 false,
                 {.plain = SORN_PY_UNSCALED(SornAnd)},
                 {.plain = SORN_PY_UNSCALED(SornAndC)},
                 {},
                 kLogicTriples,
                 {},
                 kLogicPairs,
                 {},
                 kConstChannels}},
    {"bitwise_or",
     R"(bitwise_or(a, b, *, dtype=None, out=None)

Element-wise a | b; types and constants as for bitwise_and.)",
     Elementwise{nullptr,
                 false,
                 false,
                 {.plain = SORN_PY_UNSCALED(SornOrr)},
                 {.plain = SORN_PY_UNSCALED(SornOrrC)},
                 {},
                 kLogicTriples,
                 {},
                 kLogicPairs,
                 {},
                 kConstChannels}},
    {"bitwise_xor",
     R"(bitwise_xor(a, b, *, dtype=None, out=None)

Element-wise a ^ b; types and constants as for bitwise_and.)",
     Elementwise{nullptr,
                 false,
                 false,
                 {.plain = SORN_PY_UNSCALED(SornXor)},
                 {.plain = SORN_PY_UNSCALED(SornXorC)},
                 {},
                 kLogicTriples,
                 {},
                 kLogicPairs,
                 {},
                 kConstChannels}},
    {"bitwise_not",
     R"(bitwise_not(a, *, dtype=None, out=None)

The complement of every bit of an image of uint8, int16 or int32.)",
     Unary{nullptr,
           false,
           false,
           {.plain = SORN_PY_UNSCALED1(SornNot)},
           kLogicPairs,
           {},
           {},
           nullptr,
           0,
           {}}},
    {"negative",
     R"(negative(a, *, scale=0, saturate=False, dtype=None, out=None)

Element-wise -a. At scale 0 an integer negation wraps (uint8 v gives 256 - v)
unless saturate=True, which clamps (int16 -32768 gives 32767; into uint8 every
non-negative value gives 0). scale as for add; dtype and out choose another
destination the library has a kernel for.)",
     Unary{"saturate",
           false,
           true,
           {.plain = SORN_PY_ENTRY(SornNegate), .other = SORN_PY_ENTRY(SornNegateq)},
           kNegPairs,
           kNegqPairs,
           {},
           nullptr,
           0,
           {}}},
    {"exp",
     R"(exp(a, *, accuracy='accurate', dtype=None, out=None)

The exponential of every element of a float32 image, by the library's fast
approximations: 'accurate' (the default, 0 below -88.376 and infinity above
88.376), 'fast' or 'superfast' (a few bit operations, no range test).)",
     Unary{nullptr,
           false,
           false,
           {.plain = SORN_PY_ENTRY(SornExp)},
           kExpPairs,
           {},
           kExpAccuracy,
           nullptr,
           0,
           {}}},
    {"log",
     R"(log(a, *, accuracy='accurate', dtype=None, out=None)

The natural logarithm of every element of a float32 image, by the library's
approximations 'accurate' or 'superfast'. Zero and negative values give minus
infinity.)",
     Unary{nullptr,
           false,
           false,
           {.plain = SORN_PY_ENTRY(SornLn)},
           kExpPairs,
           {},
           kLnAccuracy,
           nullptr,
           0,
           {}}},
    {"sigmoid",
     R"(sigmoid(a, slope=1.0, *, accuracy='accurate', dtype=None, out=None)

1 / (exp(slope * a) + 1) for every element of a float32 image: a positive
slope gives a falling curve. slope is one number, or one per channel, all
equal. A slope of 0 gives 0.5 everywhere. accuracy as for exp; note that the
'superfast' form has the opposite sign of the other two, as the library has
it.)",
     Unary{nullptr,
           false,
           false,
           {},
           kExpPairs,
           {},
           kExpAccuracy,
           "slope",
           1.0,
           SORN_PY_ENTRY(SornSigmoidAlpha)}},
    {"compare",
     R"(compare(a, b, op, *, true=None, false=None, dtype=None, out=None)

Element-wise comparison of two images of one type, or of an image and a
constant (a number or one per channel) on either side. op is one of '==',
'!=', '<', '<=', '>', '>=' (or 'eq', 'ne', 'lt', 'le', 'gt', 'ge').

Without true and false the result is a mask, uint8 by default: 255 where the
comparison holds and 0 where it fails (all ones in int16 and int32 masks; in a
float32 mask the float of bits 0x3FFFFFFF, 1.99999988). With them, true= is
written where it holds and false= where it fails; each is a value (or one per
channel), 'source' (the element of the image compared) or 'keep' (out's
element stays; needs out); the one not given keeps. The result then has the
image's type by default.

Float32 compares with a tolerance: values within 1.1920929e-7 are equal, and
NaN is unequal to everything. A constant is first rounded and saturated into
the image's type (< 3.5 on uint8 means < 4). Above 16384 pixels a byte image
compared with a constant goes through tables: there int8 compares as unsigned
bytes, and a 2-channel image raises SornNotSupportedError.)",
     Compare{SORN_PY_ENTRY(SornCompare), SORN_PY_ENTRY(SornCompareC), SORN_PY_ENTRY(SornECompare),
             SORN_PY_ENTRY(SornECompareC), kCmpPairs, kECmpPairs}},
    {"sum",
     R"(sum(img, *, mask=None, invert_mask=False, fast=False)

The sum of every channel over the image, in double: a float for a 2-D image,
an array of one value per channel for a 3-D one, and for a 4-D stack one row
of sums per plane. Integer images are summed exactly (64-bit accumulators);
float32 images add their elements in double, row by row in address order.

mask: one byte per pixel (uint8 or bool); pixels whose byte is 0 are left out
(255 with invert_mask=True). fast=True takes the library's narrow
accumulators, which wrap at 32 bits (and add float32 in float32).)",
     Reduction{SORN_PY_ENTRY(SornSum), SORN_PY_ENTRY(SornSumEx), kSumTypes, kStatsChannels,
               SORN_F_SUM_FAST, SORN_F_STATS_INVMASK}},
    {"mean",
     R"(mean(img, *, mask=None, invert_mask=False, fast=False)

The mean of every channel, in double, shaped as sum() gives it. With a mask
only the selected pixels count; a mask that selects none gives means of 0.0.)",
     Reduction{SORN_PY_ENTRY(SornMean), SORN_PY_ENTRY(SornMeanEx), kSumTypes, kStatsChannels,
               SORN_F_SUM_FAST, SORN_F_STATS_INVMASK}},
    {"minmax",
     R"(minmax(img, *, mask=None, invert_mask=False, positions=False)

The smallest and the largest value of every channel: (min, max) as numbers
for a 2-D image, arrays of one per channel for a 3-D one, a row per plane for
a 4-D stack. NaN is passed over (unless it is the first element). With
positions=True also where each first occurs: (min, max, min_at, max_at) with
(row, column) places, the first in address order.

mask: one byte per pixel, for one-channel images; pixels whose byte is 0 (255
with invert_mask) are left out, and a mask that selects none raises
SornEmptyRegionError.)",
     Extremes{SORN_PY_ENTRY(SornMinmax), SORN_PY_ENTRY(SornMinmaxEx), kMinmaxTypes, kStatsChannels,
              SORN_F_STATS_INVMASK}},
    {"histogram",
     R"(histogram(img, bins=256, range=None, *, mask=None, invert_mask=False)

Counts of the image's values in bins equal-width bins over range=(low, high),
as uint32: shape (bins,) for one channel, (channels, bins) for several. A 4-D
stack is counted over all its planes.

Integer images: low and high are rounded to integers; with bins equal to
high - low + 1 a value v falls in bin v - low, otherwise in bin
((v - low) * bins) / (high - low + 1) in 32-bit arithmetic, the division
truncating toward zero (so values less than a bin below low count in bin 0). float32 images: bin
int((v - low) * (bins - 1) / (high - low)), so that high falls in the last
bin. The default range is the type's (uint8 0..255, int8 -128..127, int16
-32768..32767) and, for int32 and float32, the data's smallest and largest
value. Values outside the range, and NaN, are not counted.

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
     R"(mser(img, *, delta=10, min_area=0.0001, max_area=0.75, max_variation=0.33, min_diversity=0.2, mode='both', mask=None, invert_mask=False, plain=False, connectivity=4, shift=0, measures=False)

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
and every column.

measures=True measures every region over its pixels as the library measures
regions, into the result's measures (a sorn.RegionMeasures; None without):
centroid, central second moments, the sums of the moment feature, bounding
box, the ellipse of the moments, the least-area bounding rectangle, the
convex hull, and the areas of hull, rectangle and ellipse. result.measures[i]
gives region i's as a named tuple.)",
     StableRegions{SORN_PY_ENTRY(SornGenerateFMSERs), SORN_PY_ENTRY(SornGenerateFMSERsEx),
                   SORN_PY_ENTRY(SornGenerateMSERs), SORN_PY_ENTRY(SornGenerateMSERsEx),
                   SORN_F_WTS_INVMASK}},
    {"threshold",
     R"(threshold(img, thresh=None, value=None, *, op='<', method=None, window=5, out=None)

Elements of img that meet `element op thresh` take value; the others keep
img's. thresh is a number or one per channel, or an image of thresholds of
img's type and shape (compared element by element). value is a number or one
per channel; None writes the threshold itself (where thresh is a number).
op is one of '==', '!=', '<', '<=', '>', '>='. Types: uint8, int16, int32,
float32; thresholds and values are rounded and saturated into the type, and
float32 compares with the tolerance of sorn.compare.

method='otsu' finds one threshold per channel by Otsu's method, 'blur'
compares every pixel with the mean of its window=(rows, columns) (the box
filter's mean): pixels below their threshold become 0, the others the type's
top (255 for uint8, int16 and int32, 1.0 for float32); they take no thresh
or value. Otsu's method takes one-channel images.

The result has img's type and shape; out may be img itself where no method
is given.)",
     Threshold{SORN_PY_ENTRY(SornThreshold), kECmpPairs}},
    {"otsu_threshold",
     R"(otsu_threshold(img, *, bins=None, range=None)

Otsu's threshold of a one-channel image (uint8, int16, int32, float32): the
histogram of bins bins (default 256 for uint8, int16 and int32, 384 for
float32) over range=(low, high) (default 0 to the type's top) is parted into
the two classes that differ most, and the threshold is the upper end of the
lower class's last bin: `img < t` is that class. A float.)",
     Otsu{SORN_PY_ENTRY(SornComputeThresholdByOtsu), kECmpPairs}},
    {"border",
     R"(border(img, widths, *, border='reflect101', value=0, out=None)

img with a frame around it: widths is one number for all four sides, or
(top, left, bottom, right). The frame's pixels follow the border kind:
'reflect101' (mirrored about the edge pixel, ..2 1 | 0 1 2.., numpy's pad
mode 'reflect'), 'reflect' (about the outer edge, ..1 0 | 0 1.., numpy's
'symmetric'), 'replicate' (the edge pixel, numpy's 'edge'), 'wrap' (numpy's
'wrap'), or 'const' with value (a number or one per channel). A frame wider
than the image goes on with the same period. Any element type, 1 to 4
channels, 4-D stacks plane by plane.)",
     Border{SORN_PY_ENTRY(SornCopyMkb)}},
    {"box_filter",
     R"(box_filter(img, size=3, *, anchor=None, border='reflect101', value=0, out=None)

The mean of each pixel's window: the window's sum as float32 times float32
1 / cells, rounded to nearest (ties to even) and saturated for the integer
types. float32 windows are summed by running sums along the rows and down
the image, so their last bits depend on where the image begins.)" SORN_PY_WINDOW_DOC,
     Filter{SORN_PY_ENTRY(SornFilter), SORN_FILTER_BOX, kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"min_filter",
     R"(min_filter(img, size=3, *, anchor=None, border='reflect101', value=0, out=None)

The smallest value of each pixel's window (an erosion by a rectangle).)" SORN_PY_WINDOW_DOC,
     Filter{SORN_PY_ENTRY(SornFilter), SORN_FILTER_MIN, kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"max_filter",
     R"(max_filter(img, size=3, *, anchor=None, border='reflect101', value=0, out=None)

The largest value of each pixel's window (a dilation by a rectangle).)" SORN_PY_WINDOW_DOC,
     Filter{SORN_PY_ENTRY(SornFilter), SORN_FILTER_MAX, kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"sep_filter",
     R"(sep_filter(img, kernel_y=None, kernel_x=None, *, size=None, anchor=None, border='reflect101', value=0, out=None)

Correlates the image with a column kernel (kernel_y, down the rows) and a row
kernel (kernel_x, along the columns) of float coefficients: the output at
column i is the sum over t of kernel_x[t] * img[i - anchor_column + t],
without reversing the kernel. A kernel of None is the box along that axis,
of size=(rows, columns) cells (3 by default; where a kernel is given its
length is the size): the mean as box_filter takes it, the sum in float32
times float32 1 / cells.

Every pass converts its cells to double, multiplies them by their
coefficients and adds the products in double, in tap order; the sum is
rounded to nearest (ties to even) and clamped for uint8 and int16, rounded
for int32 (a sum beyond its range gives -2147483648), narrowed for float32.
A window of more rows and columns than one runs in two passes through an
image of the element type (the rows first when the row kernel is longer
than twice the column kernel, else the columns), so that integer images
round twice. A window of one row has one pass, along the row: a kernel_y of
one tap t scales kernel_x by t (and a window of one column the other way
round); a window of one cell is a copy.)" SORN_PY_WINDOW_MULTI_DOC,
     SepFilter{SORN_PY_ENTRY(SornSepFilter), kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"gaussian_filter",
     R"(gaussian_filter(img, size=5, *, sigma=None, anchor=None, border='reflect101', value=0, out=None)

The separable filter (see sep_filter) by the Gaussian kernels the library
makes for a window of size=(rows, columns): tap t of an axis of n cells is
exp(-d * d / (2 * sigma * sigma)) with d = anchor - t, each divided by the
taps' sum (added in tap order, in double). The bell is centred on the
anchor, so an anchor off the centre gives a one-sided kernel.

sigma: by default ((n - 1) * 0.5 - 1) * 0.3 + 0.8 for an axis of n cells
(0.8 for 3, 1.1 for 5); one number for both axes, or (rows, columns) where
0 stands for a value not given and takes its neighbour's: (0, 2.0) is
(2.0, 2.0). A window of one cell is a copy.)" SORN_PY_WINDOW_MULTI_DOC,
     Gaussian{SORN_PY_ENTRY(SornGaussianFilter), kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"count_rel_box",
     R"(count_rel_box(img, op='<=', box=5, *, anchor=None, shift=0, range=None, speed=None, dtype='uint8', out=None)

For every pixel x, how many pixels p of the box of box=(rows, columns)
around it (x itself included) stand in the relation op to it: op is '==',
'<', '<=', '>' or '>=' (or 'eq', 'lt', 'le', 'gt', 'ge'), read as "p op x".
With '<=' that is the pixel's rank in its neighbourhood, a local
equalisation. The box's pixel anchor=(row, column) lies on x (by default
the centre, box // 2); beyond the image's edges the box reads the image
mirrored about the edge pixel (numpy's pad mode 'reflect').

The count is scaled by 2**shift: below 0 it is divided with rounding,
(count + 2**(-shift - 1)) >> -shift, and saturated into dtype, uint8
(0..255) or int16 (to 32767). Counts live in 16-bit counters, 8-bit ones
for boxes of at most 256 pixels: a count is taken modulo 65536, or 256 (a
flat 16 by 16 box counts 0).

range=(low, high) gives the values the image holds (low's floor and high's
ceiling, within 0..255); by default it is 0..255 for boxes of at most 256
pixels, or under 64 columns and 32 rows, and else the image's own least
and greatest value. A value outside the range counts as the nearer end.
speed='fast' counts values in bins of 2 over a range of more than 79
levels, speed='fast2' in bins of 4 over more than 79 levels and of 2 over
40 to 79: values of one bin count as equal. uint8 images; several channels
are counted one at a time, a 4-D stack plane by plane.)",
     RelBox{SORN_PY_ENTRY(SornCountRelBox), kRelBoxPairs}},
    {"morphology",
     R"(morphology(img, op, mask=None, *, size=None, anchor=None, border='reflect101', value=0, out=None)

Morphology by a flat structuring element: op 'erode' (the smallest value
under the element), 'dilate' (the largest), 'open' (erosion, then dilation
of its result), 'close' (dilation, then erosion), 'tophat' (img less its
opening) or 'blackhat' (the closing less img), the differences saturating in
the integer types. The element is mask, a 2-D array of uint8 or bool whose
non-zero cells count, not reflected, or without one the rectangle of
size=(rows, columns) (3 by 3 by default), which the library runs at a cost
independent of its size. A mask with no cell set gives the type's least
value for dilation and its greatest for erosion (the greatest finite
float32, not infinity). A mask of one cell gives a copy, whatever op.

The second pass of a chain sees the first pass's results within the image
only: beyond its edges it reads values that do not count (a border reaches
the first pass alone).)" SORN_PY_WINDOW_MULTI_DOC,
     Morphology{SORN_PY_ENTRY(SornMorphop), kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"firefly",
     R"(firefly(img, kind='gauss', *, window=5, weights=None, rank_window=16, quantile=0.99, out=None)

Three views of the image mixed by the integer weights (w0, w1, w2). kind:
  'gauss' (5)  three Gaussian blurs (sigma from each window's size, as
               gaussian_filter): of window=(rows, columns), which must be
               square, and of 5 and 15 times its extent (window 5: 5, 25
               and 75); dst = blur0 * w0/sum + blur1 * w1/sum + blur2 * w2/sum
               with sum = w0 + w1 + w2. Weights (1, 6, 9) by default.
  'crb' (3)    dst = (w0 * img + w1 * gain * img + w2 * rank) / sum in 16
               bits, gain = 255 / q with q the value where the count of
               pixels from the least value first exceeds the quantile of
               the pixels (0 counting as 1), rank each pixel's count of
               pixels at most its value in the rank_window by rank_window
               window (a power of two, 2 to 256) around it, scaled so that
               a full window reaches 255. Weights (1, 1, -1) by default.
  'crbln' (4)  w2 * (ln(1 + img) - ln(1 + rank)) + w1 * (ln(1 + img) -
               ln(1 + gain * img)) in float32, its extremes stretched onto
               0..255; w0 plays no part. Weights (1, 6, 9) by default.
  'copy' (0)   a copy.
quantile is a fraction from 0 to below 1 (in ten-thousandths) or
(numerator, denominator).

Every product rounds and saturates in the image's type by the rules of the
constant arithmetic: on an integer image a fractional constant becomes a
whole one, so 1/16 multiplies by 0 (the blurs keep about 15/16 of a flat
image's value in uint8), a gain of 1.3 by 1, and 'crb' gives 0 for weights
that add up to more than 2. 'gauss' takes uint8, int16, int32 and float32,
'crb' and 'crbln' uint8 alone; 1 to 4 channels, each channel on its own (a
4-D stack plane by plane). Beyond the edges every window reads the image
reflected about its edge pixel.)",
     Firefly{SORN_PY_ENTRY(SornFireflyEx), kFilterTypes, SORN_PY_ENTRY(SornCopyMkb)}},
    {"resize",
     R"(resize(img, shape=None, *, out=None)

img resized to shape=(rows, columns) (or to out's) by nearest neighbour:
every pixel a copy of one source pixel. The library moves pixels of 1, 4, 8,
12 or 16 bytes whole (uint8 with 1 or 4 channels, int16 with 2 or 4, the
32-bit types with 1 to 4); uint8 with 2 or 3 channels goes channel by
channel, and the others (int16 with 1 or 3 channels, 64-bit types) raise
SornNotSupportedError. With g the source extent over the destination's, column
i takes source column trunc(i * g) when shrinking (g >= 1) and i * g rounded
to nearest (ties to even) when enlarging; row i takes trunc(i * g + 0.5)
when enlarging and trunc(i * g) otherwise; indexes past the end take the
last. A 4-D stack keeps its planes.)",
     Resize{SORN_PY_ENTRY(SornResize)}},
    {"convert",
     R"(convert(img, dtype=None, *, range=None, scale=None, offset=None, out=None)

img in another element type (uint8, int16, int32, float32; dtype= or out=
choose it, by default img's own). With no other argument each value is
converted alone: integers are clamped into the destination's range, floats
rounded to nearest (ties to even) and clamped. A float that leaves the int32
range, an infinity or NaN counts as the least int32 (-2147483648) before
that, so it gives 0 in uint8 and the least value of int16 and int32.

range=(lo, hi), lo <= hi, maps the image's own range (its least and greatest
value over all channels) linearly onto lo..hi: range=(0, 255) stretches the
contrast to the whole of uint8. An image whose values are all one gives lo.

scale= and offset= (a number each) map the image's range of width W onto
offset .. offset + W * scale: the least value becomes offset. One per
channel is taken too; channels whose maps differ are each mapped as
value * gain + bias, computed and rounded as multiply-add computes them.
A result that leaves the destination's range is moved back into it while
its width fits, and clipped otherwise. A negative scale gives a falling map
into float32; between integer types the library's fixed-point maps only
rise, and a falling one gives offset everywhere.)",
     Convert{SORN_PY_ENTRY(SornConvert), SORN_PY_ENTRY(SornVConvert), kConvertTypes}},
    {"convex_hull",
     R"(convex_hull(points)

The convex hull of points, an (N, 2) array, as an (H, 2) array of its
vertices in the points' dtype. The dtype picks the arithmetic: int32 is
exact (coordinates strictly between -2**30 and 2**30), float32 and float64
take three points as on one line when their cross product is within 2**-23.
Other dtypes raise TypeError; coordinates that are not finite, ValueError.

The vertices start at the lowest point (smallest first coordinate, then
smallest second) and follow the others by the angle atan2(dx, dy) around it,
turning from the second coordinate toward the first, so that polygon_area
of a hull is not negative. Points on an edge of the hull are left out. Fewer than four points come back as they
are, and points that all lie on one line come back all, sorted along it.)",
     ConvexHull{{SORN_PY_ENTRY(sorn_2d_ptv_convexhull), SORN_PY_ENTRY(sorn_f2d_ptv_convexhull),
                 SORN_PY_ENTRY(sorn_r2d_ptv_convexhull)}}},
    {"polygon_area",
     R"(polygon_area(points)

The signed area of points, an (N, 2) array read as a closed ring (the last
point joins the first): half the sum of cur[0] * prev[1] - prev[0] * cur[1]
over its edges, the negative of the usual shoelace sum. A ring that turns
from the first coordinate toward the second (counter-clockwise with the
first coordinate as x and the second as y) has a negative area; abs() gives
the plain area of a simple ring. Fewer than two points give 0.0. int32
points are summed exactly in 64-bit integers (coordinates strictly
between -2**30 and 2**30), float32 and float64 points in doubles.)",
     PolygonArea{{SORN_PY_ENTRY(sorn_2d_ptv___sarea), SORN_PY_ENTRY(sorn_f2d_ptv___sarea),
                  SORN_PY_ENTRY(sorn_r2d_ptv___sarea)}}},
    {"min_area_quad",
     R"(min_area_quad(points)

The bounding rectangle of least area of points, an (N, 2) array, by
rotating calipers over their convex hull: a (4, 2) array of its corners in
order around it, float32 for float32 points and float64 for int32 and
float64 points. Its width runs from corner 0 to corner 1 and its height
from corner 0 to corner 3. One side lies along an edge of the hull.

One or two points give their axis-aligned bounding box as a quadrilateral,
corners (x0, y0), (x0, y1), (x1, y1), (x1, y0) with x the first coordinate.
Three or more points on one line give a quadrilateral of zero area along
it; three or more points that are all one give corners that are not numbers
(the calipers find no edge to lie along). No points raise ValueError.

int32 points go through the library's integer calipers, whose areas are
exact 64-bit products while the points span less than 1024 in each
coordinate and lie strictly between -2**24 and 2**24; larger int32 lists
raise ValueError (pass them as float64). float32 and float64 points take
edges within 2**-23 of parallel or perpendicular as such.)",
     MinAreaQuad{{SORN_PY_ENTRY(sorn_2d_ptv_minbquad_$r), SORN_PY_ENTRY(sorn_f2d_ptv_minbquad),
                  SORN_PY_ENTRY(sorn_r2d_ptv_minbquad)}}},
};

}  // namespace

bool holds(Keys keys, uint32_t key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

void bind_families(py::module_ &m) {
  for (const Family &f : kFamilies)
    std::visit([&](const auto &shape) { bind(m, f.name, f.doc, shape); }, f.shape);
}

}  // namespace sorn::python

// The masked kernels of both extremes, dilation (the largest value under the
// mask) and erosion (the smallest), and their dispatchers, one per channel
// form and type of the filter table, from the one template that serves
// both.
#include <sorn.h>

#include "filter/morph_kernels.h"

#define SORN_DILATE_OWN(c, t, shape) SORN_MORPH_OWN_KERNEL(c, t, shape, dilate, sorn::filter::Max)
#define SORN_DILATE_SHARED(c, t, shape) \
  SORN_MORPH_SHARED_KERNEL(c, t, shape, dilate, sorn::filter::Max)
#define SORN_ERODE_OWN(c, t, shape) SORN_MORPH_OWN_KERNEL(c, t, shape, erode, sorn::filter::Min)
#define SORN_ERODE_SHARED(c, t, shape) \
  SORN_MORPH_SHARED_KERNEL(c, t, shape, erode, sorn::filter::Min)
#define SORN_MORPH_FORMS(c, t)                              \
  SORN_MORPH_DISPATCH(c, t, dilate, max, sorn::filter::Max) \
  SORN_MORPH_OWN_SHAPES(SORN_DILATE_OWN, c, t)              \
  SORN_MORPH_SHARED_SHAPES(SORN_DILATE_SHARED, c, t)        \
  SORN_MORPH_DISPATCH(c, t, erode, min, sorn::filter::Min)  \
  SORN_MORPH_OWN_SHAPES(SORN_ERODE_OWN, c, t)               \
  SORN_MORPH_SHARED_SHAPES(SORN_ERODE_SHARED, c, t)
#define SORN_MORPH_FAMILY(t) SORN_FILTER_CHANNELS(SORN_MORPH_FORMS, t)
SORN_FILTER_TYPES(SORN_MORPH_FAMILY)

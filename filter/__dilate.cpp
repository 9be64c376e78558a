// The dilation kernels with a mask and their dispatchers, one per channel
// form and type of the filter table, from the template that serves both
// extremes.
#include <sorn.h>

#include "filter/morph_kernels.h"

#define SORN_DILATE_OWN(c, t, shape) SORN_MORPH_OWN_KERNEL(c, t, shape, dilate, sorn::filter::Max)
#define SORN_DILATE_SHARED(c, t, shape) \
  SORN_MORPH_SHARED_KERNEL(c, t, shape, dilate, sorn::filter::Max)
#define SORN_DILATE_FORM(c, t)                              \
  SORN_MORPH_DISPATCH(c, t, dilate, max, sorn::filter::Max) \
  SORN_MORPH_OWN_SHAPES(SORN_DILATE_OWN, c, t)              \
  SORN_MORPH_SHARED_SHAPES(SORN_DILATE_SHARED, c, t)
#define SORN_DILATE_FAMILY(t) SORN_FILTER_CHANNELS(SORN_DILATE_FORM, t)
SORN_FILTER_TYPES(SORN_DILATE_FAMILY)

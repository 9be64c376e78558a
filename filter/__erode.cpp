// The erosion kernels with a mask and their dispatchers, one per channel
// form and type of the filter table, from the template that serves both
// extremes.
#include <sorn.h>

#include "filter/morph_kernels.h"

#define SORN_ERODE_OWN(c, t, shape) SORN_MORPH_OWN_KERNEL(c, t, shape, erode, sorn::filter::Min)
#define SORN_ERODE_SHARED(c, t, shape) \
  SORN_MORPH_SHARED_KERNEL(c, t, shape, erode, sorn::filter::Min)
#define SORN_ERODE_FORM(c, t)                              \
  SORN_MORPH_DISPATCH(c, t, erode, min, sorn::filter::Min) \
  SORN_MORPH_OWN_SHAPES(SORN_ERODE_OWN, c, t)              \
  SORN_MORPH_SHARED_SHAPES(SORN_ERODE_SHARED, c, t)
#define SORN_ERODE_FAMILY(t) SORN_FILTER_CHANNELS(SORN_ERODE_FORM, t)
SORN_FILTER_TYPES(SORN_ERODE_FAMILY)

// The maximum filter kernels and their dispatchers, one per type of the
// filter table, from the template that serves both extremes.
//
// Predictive commoning would keep each lane of the row pass's running
// extremes in a register of its own, one element at a time; without it
// the lanes stay whole vectors.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("no-predictive-commoning")
#endif
#include <sorn.h>

#include "filter/minmax_kernels.h"

#define SORN_MAX_KERNEL(t, shape) SORN_MINMAX_KERNEL(t, shape, max, sorn::filter::Max)
#define SORN_MAX_FAMILY(t)                        \
  SORN_MINMAX_DISPATCH(t, max, sorn::filter::Max) \
  SORN_MINMAXFILTER_SHAPES(SORN_MAX_KERNEL, t)
SORN_FILTER_TYPES(SORN_MAX_FAMILY)

// The catalogue of nearest-neighbour row kernels: one instance of
// resize_rows for every line of SORN_RESIZE_NN_KERNELS, exported under the
// kernel's name.
#include <sorn.h>

#include "resize/nn_kernel.h"

namespace {

// Bytes per pixel of each unit, by its class token.
#define SORN_RESIZE_UNIT_BYTES(unit, bytes) constexpr int kBytes_##unit = bytes;
SORN_RESIZE_NN_UNITS(SORN_RESIZE_UNIT_BYTES)
#undef SORN_RESIZE_UNIT_BYTES

}  // namespace

#define SORN_RESIZE_NN_KERNEL_DEF(unit, name, round, lines, next, each, align, distance,          \
                                  loads_first)                                                    \
  SornStatus __sorna__resize_nn_##unit##name(SornXE *xe, int32_t dstRows, int32_t dstCols,        \
                                             void *dst, int32_t dstStep, int32_t srcRows,         \
                                             int32_t srcCols, const void *src, int32_t srcStep,   \
                                             double fx, double fy, const uint32_t *offtab) {      \
    return sorn::resize::resize_rows<kBytes_##unit,                                               \
                                     sorn::resize::Prefetch{round, lines, next, each != 0, align, \
                                                            distance, loads_first != 0}>(         \
        xe, dstRows, dstCols, dst, dstStep, srcRows, srcCols, src, srcStep, fx, fy, offtab);      \
  }
SORN_RESIZE_NN_KERNELS(SORN_RESIZE_NN_KERNEL_DEF)
#undef SORN_RESIZE_NN_KERNEL_DEF

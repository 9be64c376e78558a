// The places of the filter frame that belong to families not built yet:
// opening, closing, top-hat and bottom-hat (by rectangle through SornFilter,
// and with a mask), and the dilation and erosion tables. Each
// answers SORN_ENOTSUP and writes nothing, so that the frame's dispatch by
// kind and its six tables are whole; the morphology family
// replaces this unit with its own.
#include <sorn.h>

#include "core/dispatch.h"

namespace {

// A table that is not filled yet: the pairs it will hold are not supported,
// all others are invalid as in every filter table.
SornFilterKernel unbuilt_table(uint32_t chword, SornElemType type, SornStatus *status) {
  const bool typed = type == SORN_U8 || type == SORN_S16 || type == SORN_S32 || type == SORN_F32;
  const bool known = sorn::kernel_channels(chword) != 0 && typed;
  return sorn::refusal<SornFilterKernel>(known ? SORN_ENOTSUP : SORN_EINVAL, status);
}

}  // namespace

#define SORN_UNBUILT_FILTER(name)                                                     \
  SornStatus sorna__filter_##name(SornXE *xe, SornFlags flags, SornDimPack pack,      \
                                  const int32_t *sizes, uint32_t type, void *dst,     \
                                  const int32_t *dstStrides, const void *src,         \
                                  const int32_t *srcStrides, const SornSeShape *se) { \
    return SORN_ENOTSUP;                                                              \
  }
SORN_UNBUILT_FILTER(open)
SORN_UNBUILT_FILTER(close)
SORN_UNBUILT_FILTER(tophat)
SORN_UNBUILT_FILTER(bothat)
#undef SORN_UNBUILT_FILTER

#define SORN_UNBUILT_MORPHOP(name)                                                             \
  SornStatus sorna__morphop_##name(SornXE *xe, SornFlags flags, SornDimPack pack,              \
                                   const int32_t *sizes, uint32_t type, void *dst,             \
                                   const int32_t *dstStrides, const void *src,                 \
                                   const int32_t *srcStrides, const struct SornStrel *strel) { \
    return SORN_ENOTSUP;                                                                       \
  }
SORN_UNBUILT_MORPHOP(close)
SORN_UNBUILT_MORPHOP(tophat)
SORN_UNBUILT_MORPHOP(bothat)
#undef SORN_UNBUILT_MORPHOP

SornFilterKernel sorna__dilatefun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return unbuilt_table(chword, type, status);
}
SornFilterKernel sorna__erodefun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return unbuilt_table(chword, type, status);
}

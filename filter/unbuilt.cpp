// The place of the filter frame that belongs to a family not built yet: the
// separable table. It answers SORN_ENOTSUP for the pairs it will hold and
// SORN_EINVAL for the others, so that the frame's six tables are whole; the
// separable family replaces this unit with its own.
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

SornFilterKernel sorna__sepfiltfun_imp(uint32_t chword, SornElemType type, SornStatus *status) {
  return unbuilt_table(chword, type, status);
}

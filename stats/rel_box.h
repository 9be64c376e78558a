// What the relative box count's dispatcher and kernels both refuse: an
// operator other than equal, less, less or equal, greater and greater or
// equal, and a box that is not normalised (a size below 1 or an anchor
// outside it), which the entry never hands down.
#pragma once

#include <sorn.h>

namespace sorn::stats {

inline bool rel_box_refused(SornCmpOp op, const SornSeShape *box) {
  const uint32_t o = op & 15u;
  if (o < SORN_CMP_EQ || o > SORN_CMP_GE || box == nullptr) return true;
  for (int k = 1; k <= 2; ++k)
    if (box->size[k] < 1 || box->anchor[k] < 0 || box->anchor[k] >= box->size[k]) return true;
  return false;
}

}  // namespace sorn::stats

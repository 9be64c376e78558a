// What the thresholding units share: the defaults of a type, and the array
// of an adaptive condition.
#pragma once

#include <sorn.h>

#include <cstdint>
#include <cstring>

namespace sorn::threshold {

// The top of the values a type's images usually hold, which the default
// ranges and the default conditions use: 255 for u8, s16, s32 and 1.0 for
// every other type, s8 included on purpose.
inline double value_top(uint32_t type) {
  return type == SORN_U8 || type == SORN_S16 || type == SORN_S32 ? 255.0 : 1.0;
}
// Histogram bins when a caller gives fewer than 2.
inline int32_t default_bins(uint32_t type) {
  return type == SORN_U8 || type == SORN_S16 || type == SORN_S32 ? 256 : 384;
}

// The threshold array of an adaptive condition, kept in the bytes of
// thresh[1].
inline const SornArray *condition_array(const SornThresholdCriterion &c) {
  const SornArray *a;
  std::memcpy(&a, &c.thresh[1], sizeof a);
  return a;
}
inline void set_condition_array(SornThresholdCriterion &c, const SornArray *a) {
  std::memcpy(&c.thresh[1], &a, sizeof a);
}

}  // namespace sorn::threshold

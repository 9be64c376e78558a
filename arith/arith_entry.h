// The checks that every entry of the arithmetic and logical families makes,
// in their order: a null first source means the destination (and then a
// null first ROI the destination's ROI), the records, the region that the
// destination negotiates with its last array operand and that the other
// sources are fitted to, and at last the rank: these families have no path
// through the call frame, so a rank-4 destination is declined once
// everything else has been checked (a bad 4-dimensional call with an empty
// ROI reports SORN_ENOSPC).
#pragma once

#include <sorn.h>

#include "core/entry.h"

namespace sorn::arith {

// The operands of a call, checked, each with its region counted from data.
// ops[0] is the destination; then the sources in the order given.
template <int N> struct Operands {
  sorn::Operand ops[N];
  sorn::Operand &operator[](int i) { return ops[i]; }
};

// dst and `count` array sources (1 to 3, in srcs[0..count-1], with their
// ROIs). The last source negotiates the extent with the destination; the
// sources before it, from the one just before it down to the first, only
// offer a start and are fitted to what is agreed.
template <int N>
SornStatus check_operands(const SornArray *dst, const SornArray *const (&srcs)[N - 1],
                          const SornVolume *dstroi, const SornVolume *const (&rois)[N - 1],
                          Operands<N> *out) {
  static_assert(N >= 2 && N <= 4, "a destination and one to three sources");
  if (!sorn::good_image(dst)) return SORN_EINVAL;
  for (const SornArray *s : srcs)
    if (!sorn::fits_image(s, dst, sorn::Channels::Same)) return SORN_EINVAL;

  // Each box is agreed where its operand keeps it: copied out of a local
  // just written by the negotiation, the boxes stalled the call's way down.
  auto box = [out](int i) -> SornVolume & { return out->ops[i].roi; };
  if (!sorn::negotiate(dst, srcs[N - 2], dstroi, rois[N - 2], &box(0), &box(N - 1)))
    return SORN_ENOSPC;
  for (int i = N - 3; i >= 0; --i) {
    // Each fitted box passes its cut rows and columns on to the boxes
    // agreed before it.
    if (!sorn::fit_operand(srcs[i], rois[i], &box(i + 1), &box(i + 2), &box(0))) return SORN_ENOSPC;
    for (int j = i + 3; j < N; ++j) {
      box(j).size[1] = box(i + 1).size[1];
      box(j).size[2] = box(i + 1).size[2];
    }
  }
  if (sorn::no_channels(box(0))) return SORN_ENOSPC;
  // The kernels walk a row as its pixels' elements side by side (the
  // channels folded into the row, the tiles converted a row at a time), and
  // the constant forms pair their constants with the channels: whole
  // pixels, from the pixel's start also where the region's channels begin
  // inside it, as every element-wise family takes them.
  sorn::whole_pixels(&box(0), dst);
  for (int i = 0; i < N - 1; ++i) sorn::whole_pixels(&box(i + 1), srcs[i]);
  out->ops[0].take(dst);
  for (int i = 0; i < N - 1; ++i) out->ops[i + 1].take(srcs[i]);
  if (out->ops[0].rank == 4) return SORN_ENOTSUP;
  return SORN_OK;
}

// The null rule of the first source.
inline void first_source(const SornArray *dst, const SornVolume *dstroi, const SornArray **a,
                         const SornVolume **aroi) {
  if (*a == nullptr) {
    *a = dst;
    if (*aroi == nullptr) *aroi = dstroi;
  }
}

}  // namespace sorn::arith

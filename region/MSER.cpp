// Stable region generation: the entries of both forms, the plain one over
// watershed tree builders (tgmser.cpp) and the f form over f-flooding results
// (tgfmser.cpp). Both check their operands as the watershed does and go down
// through their slice forms, at once or through the frame.
#include <sorn.h>

#include "core/entry.h"

namespace {

template <class Filter>
SornStatus generate(SornXE *xe, SornFlags flags, const SornArray *image, const SornVolume *roi,
                    Filter *filter, sorn::SliceProc<1> slice) {
  if (filter == nullptr) return SORN_EINVAL;
  sorn::Operand op;
  const SornStatus st = sorn::prepare_image(image, roi, &op);
  if (st != SORN_OK) return st;
  return sorn::run({xe, flags, SORN_TAG_MSER, filter, sorn::kKeepRows}, slice, op);
}

template <class Filter>
SornStatus generate_masked(SornXE *xe, SornFlags flags, const SornArray *image,
                           const SornArray *mask, const SornVolume *roi, const SornVolume *maskSite,
                           Filter *filter, sorn::SliceProc<2> slice) {
  if (filter == nullptr) return SORN_EINVAL;
  sorn::Operand op, mop;
  const SornStatus st =
      sorn::prepare_pair(image, mask, sorn::Channels::One, roi, maskSite, &op, &mop);
  if (st != SORN_OK) return st;
  return sorn::run({xe, flags, SORN_TAG_MSRX, filter, sorn::kKeepRows}, slice, op, mop);
}

}  // namespace

// The entries of one form, without and with a mask (no mask is the former).
#define SORN_MSER_ENTRIES(Name, Filter)                                                  \
  SornStatus SornGenerate##Name(SornXE *xe, SornFlags flags, const SornArray *image,     \
                                const SornVolume *roi, Filter *filter) {                 \
    return generate(xe, flags, image, roi, filter, &SornTGAgenerate##Name);              \
  }                                                                                      \
  SornStatus SornGenerate##Name##Ex(SornXE *xe, SornFlags flags, const SornArray *image, \
                                    const SornArray *mask, const SornVolume *roi,        \
                                    const SornVolume *maskSite, Filter *filter) {        \
    if (mask == nullptr) return SornGenerate##Name(xe, flags, image, roi, filter);       \
    return generate_masked(xe, flags, image, mask, roi, maskSite, filter,                \
                           &SornTGAgenerate##Name##Ex);                                  \
  }

extern "C" {

SORN_MSER_ENTRIES(MSERs, SornMSERFilter)
SORN_MSER_ENTRIES(FMSERs, SornFMSERFilter)

}  // extern "C"

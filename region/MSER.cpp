// Stable region generation: the entries of both forms, the plain one over
// watershed tree builders (tgmser.cpp) and the f form over f-flooding results
// (tgfmser.cpp).
#include <sorn.h>

#include "region/stable_regions.h"

using namespace sorn::region;

extern "C" {

SornStatus SornGenerateMSERs(SornXE *xe, SornFlags flags, const SornArray *image,
                             const SornVolume *roi, SornMSERFilter *filter) {
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateMSERsEx};
  return generate(xe, flags, image, roi, filter, route, sorna_mser);
}

SornStatus SornGenerateMSERsEx(SornXE *xe, SornFlags flags, const SornArray *image,
                               const SornArray *mask, const SornVolume *roi,
                               const SornVolume *maskroi, SornMSERFilter *filter) {
  if (mask == nullptr) return SornGenerateMSERs(xe, flags, image, roi, filter);
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateMSERsEx};
  return generate_ex(xe, flags, image, mask, roi, maskroi, filter, route, sorna_mser_xm,
                     SornTGAgenerateMSERsEx);
}

SornStatus SornGenerateFMSERs(SornXE *xe, SornFlags flags, const SornArray *image,
                              const SornVolume *roi, SornFMSERFilter *filter) {
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateFMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateFMSERsEx};
  return generate(xe, flags, image, roi, filter, route, sorna_fmser);
}

SornStatus SornGenerateFMSERsEx(SornXE *xe, SornFlags flags, const SornArray *image,
                                const SornArray *mask, const SornVolume *roi,
                                const SornVolume *maskroi, SornFMSERFilter *filter) {
  if (mask == nullptr) return SornGenerateFMSERs(xe, flags, image, roi, filter);
  const Route route{(SornSliceProc)(void (*)(void))SornTGAgenerateFMSERs,
                    (SornSliceProc)(void (*)(void))SornTGAgenerateFMSERsEx};
  return generate_ex(xe, flags, image, mask, roi, maskroi, filter, route, sorna_fmser_xm,
                     SornTGAgenerateFMSERsEx);
}

}  // extern "C"

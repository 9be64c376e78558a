// Stable region selection on the result of the f-form flooding.
#include <sorn.h>

#include "region/stable_regions.h"

using namespace sorn::region;

extern "C" {

int32_t _T_DetectFMSERs(SornVec *vector, SornFWTSRegion *region, const SornMSERParams *params) {
  return detect<FRegions>(vector, region, params);
}

void _T_RemoveDuplicates(SornFWTSRegion *region, SornFWTSRegion *list, float threshold) {
  remove_duplicates<FRegions>(region, list, threshold);
}

SornVec *SornDetectFMSERs(SornVec *vector, SornFWTSRegion *rootregion,
                          const SornMSERParams *params) {
  return detect_from<FRegions>(vector, rootregion, params);
}

}  // extern "C"

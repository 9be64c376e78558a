// Looking features up among the descriptors of a layout.
#include <sorn.h>

extern "C" {

int32_t SornWTSFindexByMagic(const SornWTSFeatureDs *features, int32_t n, uint32_t magic) {
  for (int32_t i = 0; i < n; ++i)
    if (features[i].magic == magic) return i;
  return -1;
}

}  // extern "C"

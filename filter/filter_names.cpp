// Names of the filter and morphology kinds. "nul-morhop" and
// "unknown-morhop" are spelled so on purpose: they are the library's own
// texts and callers compare against them.
#include <sorn.h>

const char *sorn_filter_str(int32_t kind) {
  switch (kind & 255) {
    case 0: return "nul-filter";
    case 3: return "min-filter";
    case 4: return "max-filter";
    case 5: return "box-filter";
    case 6: return "median-filter";
    case 105: return "close-filter";
    case 106: return "open-filter";
    case 107: return "bothat-filter";
    case 108: return "tophat-filter";
    case 109: return "gradient-filter";
    default: return "unknown-filter";
  }
}

const char *sorn_morphop_str(int32_t kind) {
  switch (kind & 15) {
    case 0: return "nul-morhop";
    case 3: return "erode";
    case 4: return "dilate";
    case 5: return "morph-close";
    case 6: return "morph-open";
    case 7: return "morph-bothat";
    case 8: return "morph-tophat";
    case 9: return "morph-gradient";
    default: return "unknown-morhop";
  }
}

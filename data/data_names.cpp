// Names of the enumerations of comparison, thresholding and border copy.
// Only the low four bits of a code count.
#include <sorn.h>

const char *sorn_cmpop_str(int32_t op) {
  // Code 8 (not equal) works in every kernel but has no name of its own.
  switch (op & 15) {
    case 0: return "nul-cmpop";
    case 3: return "equal-cmpop";
    case 4: return "less-cmpop";
    case 5: return "less-or-equal-cmpop";
    case 6: return "greater-cmpop";
    case 7: return "greater-or-equal-cmpop";
    default: return "unknown-cmpop";
  }
}

const char *sorn_thhmethod_str(int32_t method) {
  switch (method & 15) {
    case 0: return "null(immediate)-threshold-method";
    case 3: return "otsu-threshold-method";
    case 4: return "usto-threshold-method";
    case 5: return "blur-threshold-method";
    default: return "unknown-threshold-method";
  }
}

const char *sorn_border_str(int32_t kind) {
  switch (kind & 15) {
    case 0: return "nul-border";
    case 3: return "const-border";
    case 4: return "replicate-border";
    case 5: return "wrap-border";
    case 6: return "reflect-border";
    case 7: return "reflect101-border";
    default: return "unknown-border";  // 2 among them: an alias of 7 at the entries
  }
}

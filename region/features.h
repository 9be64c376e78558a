// What the region features share: the descriptor of a feature whose
// operations follow the naming of the built-in ones.
#pragma once

#include <sorn.h>

// The descriptor of feature F (SornWTSMF, SornWTSPF, ...) whose operations
// are named __SornWTS<F>__<operation>__, with the caller's argument and its
// `init` and `destroy`, which a feature of plain bytes does without. The
// offset comes later, from the region layout; no feature copies itself.
#define SORN_WTS_FEATURE_DS(F, magic_, arg_, init_, destroy_)                                \
  SornWTSFeatureDs {                                                                         \
    .magic = magic_, .size = sizeof(SornWTS##F), .offset = 0, .reserved = 0, .arg = arg_,    \
    .init = init_, .destroy = destroy_, .copy = nullptr, .update = __SornWTS##F##__update__, \
    .update2D = __SornWTS##F##__update2D__, .merge = __SornWTS##F##__merge__,                \
    .lazymerge = __SornWTS##F##__lazymerge__, .isgathered = __SornWTS##F##__isgathered__,    \
    .ongather = __SornWTS##F##__ongather__                                                   \
  }

// Add, saturating add and add-constant kernels with two-byte destinations (s16).
#include "arith/add_kernels.h"

#define SORN_KEEP_1(...)
#define SORN_KEEP_2(...) __VA_ARGS__
#define SORN_KEEP_4(...)

SORN_ADD_GROUP_KERNELS()

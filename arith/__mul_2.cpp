// Multiply, multiply-by-constant, square and negation kernels with
// two-byte destinations (s16).
#include <sorn.h>

#include "arith/muldiv_kernels.h"

#define SORN_KEEP_1(...)
#define SORN_KEEP_2(...) __VA_ARGS__
#define SORN_KEEP_4(...)

SORN_MUL_GROUP_KERNELS()

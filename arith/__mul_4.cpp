// Multiply, multiply-by-constant, square and negation kernels with
// four-byte destinations (s32, f32).
#include <sorn.h>

#include "arith/muldiv_kernels.h"

#define SORN_KEEP_1(...)
#define SORN_KEEP_2(...)
#define SORN_KEEP_4(...) __VA_ARGS__

SORN_MUL_GROUP_KERNELS()

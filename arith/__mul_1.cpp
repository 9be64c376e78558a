// Multiply, multiply-by-constant, square and negation kernels with
// one-byte destinations (u8, s8).
#include <sorn.h>

#include "arith/muldiv_kernels.h"

#define SORN_KEEP_1(...) __VA_ARGS__
#define SORN_KEEP_2(...)
#define SORN_KEEP_4(...)

SORN_MUL_GROUP_KERNELS()

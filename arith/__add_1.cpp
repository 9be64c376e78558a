// Add, saturating add and add-constant kernels with one-byte destinations (u8, s8).
#include <sorn.h>

#include "arith/addsub_kernels.h"

#define SORN_KEEP_1(...) __VA_ARGS__
#define SORN_KEEP_2(...)
#define SORN_KEEP_4(...)

SORN_ADD_GROUP_KERNELS()

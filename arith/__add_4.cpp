// Add, saturating add and add-constant kernels with four-byte destinations (s32, f32).
#include <sorn.h>

#include "arith/addsub_kernels.h"

#define SORN_KEEP_1(...)
#define SORN_KEEP_2(...)
#define SORN_KEEP_4(...) __VA_ARGS__

SORN_ADD_GROUP_KERNELS()

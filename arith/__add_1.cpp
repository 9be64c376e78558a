// Add kernels with one-byte destinations (u8).
#include "add_kernels.h"

#define SORN_KEEP_1(...) __VA_ARGS__
#define SORN_KEEP_2(...)
#define SORN_KEEP_4(...)
#define SORN_ADD_UNIT(d, a, b) \
  SORN_ARITH_CAT(SORN_KEEP_, SORN_ARITH_SIZE_##d)(SORN_ADD_KERNEL_DEF(d, a, b))

SORN_ADD_TRIPLES(SORN_ADD_UNIT)

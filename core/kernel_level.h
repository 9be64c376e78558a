/* Which copy of the kernels this processor runs: 4 for x86-64-v4 (AVX-512:
   F, BW, CD, DQ, VL), 3 for x86-64-v3 (AVX2, FMA, BMI1/2, F16C, LZCNT,
   MOVBE), 0 for the baseline. Asked of the C library, which has read the
   processor and the system's support for the wide registers when it
   loaded, and which lets a user turn features off with
   GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F (the x86-64-v3 copy runs) or
   =-AVX512F,-AVX2 (the baseline copy runs): how CI runs every copy on one
   machine. Each level includes the one below, as the -march levels do.
   Included by the indirect functions of the kernel units (made by
   cmake/kernel_clones.cmake) and by the comparison, which names the copy
   it measured. */
#ifndef SORN_KERNEL_LEVEL_H
#define SORN_KERNEL_LEVEL_H

#include <sys/platform/x86.h>

static inline int sorn_kernel_level(void) {
  const int v2 = CPU_FEATURE_ACTIVE(SSE3) && CPU_FEATURE_ACTIVE(SSSE3) &&
                 CPU_FEATURE_ACTIVE(SSE4_1) && CPU_FEATURE_ACTIVE(SSE4_2) &&
                 CPU_FEATURE_ACTIVE(POPCNT) && CPU_FEATURE_ACTIVE(CMPXCHG16B) &&
                 CPU_FEATURE_ACTIVE(LAHF64_SAHF64);
  const int v3 = v2 && CPU_FEATURE_ACTIVE(AVX) && CPU_FEATURE_ACTIVE(AVX2) &&
                 CPU_FEATURE_ACTIVE(BMI1) && CPU_FEATURE_ACTIVE(BMI2) && CPU_FEATURE_ACTIVE(F16C) &&
                 CPU_FEATURE_ACTIVE(FMA) && CPU_FEATURE_ACTIVE(LZCNT) && CPU_FEATURE_ACTIVE(MOVBE);
  const int v4 = v3 && CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512BW) &&
                 CPU_FEATURE_ACTIVE(AVX512CD) && CPU_FEATURE_ACTIVE(AVX512DQ) &&
                 CPU_FEATURE_ACTIVE(AVX512VL);
  return v4 ? 4 : v3 ? 3 : 0;
}

#endif

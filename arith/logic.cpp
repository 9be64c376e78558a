// The dispatchers of the logical operations, with their lookups. Of two
// arrays and of the complement: the flags nibble, the fold, the kernel once;
// no order of sources and no tile path, as every key has one type. Of the
// constant forms: the flags nibble and the kernel of the channel count,
// without a fold, so that each channel keeps its constant.
#include <sorn.h>

#include "arith/binary_dispatch.h"

using namespace sorn::arith;

namespace {

#define LOGIC_ROWS(prefix, t) \
  SORN_KERNEL_ROW(prefix##t##t##t, SORN_TYPECODE(t), SORN_TYPECODE(t), SORN_TYPECODE(t))
#define AND_ROW(t) LOGIC_ROWS(sorna__and_c1_, t)
#define ORR_ROW(t) LOGIC_ROWS(sorna__orr_c1_, t)
#define XOR_ROW(t) LOGIC_ROWS(sorna__xor_c1_, t)
#define NOT_ROW(t) SORN_KERNEL_ROW(sorna__not_c1_##t##t, SORN_TYPECODE(t), SORN_TYPECODE(t))
#define ANDC_ROW(t) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__andC_c, t, t)
#define ORRC_ROW(t) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__orrC_c, t, t)
#define XORC_ROW(t) SORN_CONST_CHANNELS(SORN_COUNT_ROW, sorna__xorC_c, t, t)
constexpr sorn::KernelRow<SornLogic2Kernel> kAnd[] = {SORN_LOGIC_TYPES(AND_ROW)};
constexpr sorn::KernelRow<SornLogic2Kernel> kOrr[] = {SORN_LOGIC_TYPES(ORR_ROW)};
constexpr sorn::KernelRow<SornLogic2Kernel> kXor[] = {SORN_LOGIC_TYPES(XOR_ROW)};
constexpr sorn::KernelRow<SornLogic1Kernel> kNot[] = {SORN_LOGIC_TYPES(NOT_ROW)};
constexpr sorn::KernelRow<SornLogicCKernel> kAndC[] = {SORN_LOGIC_TYPES(ANDC_ROW)};
constexpr sorn::KernelRow<SornLogicCKernel> kOrrC[] = {SORN_LOGIC_TYPES(ORRC_ROW)};
constexpr sorn::KernelRow<SornLogicCKernel> kXorC[] = {SORN_LOGIC_TYPES(XORC_ROW)};

using Logic2Lookup = SornLogic2Kernel (*)(uint32_t, uint32_t, uint32_t, SornStatus *);
using LogicCLookup = SornLogicCKernel (*)(uint32_t, uint32_t, int32_t, SornStatus *);

SornStatus logic_arrays(Logic2Lookup lookup, SornXE *xe, SornFlags flags, SornDimPack pack,
                        const int32_t *dims, uint32_t dsttype, void *dstptr,
                        const int32_t *dststrides, uint32_t atype, const void *aptr,
                        const int32_t *astrides, uint32_t btype, const void *bptr,
                        const int32_t *bstrides) {
  Folded<3> f;
  if (!fold_channels<3>(pack, dims, {dststrides, astrides, bstrides}, &f)) return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)dims[f.n - 1]);
  SornStatus st = SORN_OK;
  const SornLogic2Kernel k = lookup(dsttype, atype, btype, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, f.n, f.dims, dstptr, f.strides[0], aptr, f.strides[1], bptr, f.strides[2]);
}

SornStatus logic_constant(LogicCLookup lookup, SornXE *xe, SornFlags flags, SornDimPack pack,
                          const int32_t *dims, uint32_t dsttype, void *dstptr,
                          const int32_t *dststrides, uint32_t atype, const void *aptr,
                          const int32_t *astrides, const double *cvec) {
  const int32_t n = constant_cells(pack, dims, &flags);
  if (n == 0) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  const SornLogicCKernel k = lookup(dsttype, atype, dims[n - 1] & 15, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, n, dims, dstptr, dststrides, aptr, astrides, cvec, 0);
}

}  // namespace

SORN_TRIPLE_LOOKUP(sorna__landfun_imp, SornLogic2Kernel, kAnd)
SORN_TRIPLE_LOOKUP(sorna__lorrfun_imp, SornLogic2Kernel, kOrr)
SORN_TRIPLE_LOOKUP(sorna__lxorfun_imp, SornLogic2Kernel, kXor)
SORN_PAIR_LOOKUP(sorna__lnotfun_imp, SornLogic1Kernel, kNot)
SORN_COUNT_LOOKUP(sorna__landcfun_imp, SornLogicCKernel, kAndC)
SORN_COUNT_LOOKUP(sorna__lorrcfun_imp, SornLogicCKernel, kOrrC)
SORN_COUNT_LOOKUP(sorna__lxorcfun_imp, SornLogicCKernel, kXorC)

// The operators' names pass whole: and, xor and not are operator tokens in
// C++ and cannot be pasted.
#define SORN_LOGIC_DISPATCHERS(l3, l3c, lookup, lookupc)                                          \
  SornStatus l3(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,               \
                uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,        \
                const void *aptr, const int32_t *astrides, uint32_t btype, const void *bptr,      \
                const int32_t *bstrides) {                                                        \
    return logic_arrays(&lookup, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, \
                        astrides, btype, bptr, bstrides);                                         \
  }                                                                                               \
  SornStatus l3c(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,              \
                 uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,       \
                 const void *aptr, const int32_t *astrides, const double *cvec) {                 \
    return logic_constant(&lookupc, xe, flags, pack, dims, dsttype, dstptr, dststrides, atype,    \
                          aptr, astrides, cvec);                                                  \
  }
SORN_LOGIC_DISPATCHERS(sorna__and, sorna__andC, sorna__landfun_imp, sorna__landcfun_imp)
SORN_LOGIC_DISPATCHERS(sorna__orr, sorna__orrC, sorna__lorrfun_imp, sorna__lorrcfun_imp)
SORN_LOGIC_DISPATCHERS(sorna__xor, sorna__xorC, sorna__lxorfun_imp, sorna__lxorcfun_imp)

SornStatus sorna__not(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides) {
  Folded<2> f;
  if (!fold_channels<2>(pack, dims, {dststrides, astrides}, &f)) return SORN_EINVAL;
  flags = sorn::with_channel_format(flags, (uint32_t)dims[f.n - 1]);
  SornStatus st = SORN_OK;
  const SornLogic1Kernel k = sorna__lnotfun_imp(dsttype, atype, &st);
  if (st != SORN_OK) return st;
  return k(xe, flags, f.n, f.dims, dstptr, f.strides[0], aptr, f.strides[1]);
}

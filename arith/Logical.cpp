// Public entries of the logical operations: the frame of the arithmetic
// entries without scale factor or extra word, one shared entry for two
// arrays (_T_SornLogic2), one for an array and constants (_T_SornLogic2c),
// and the complement with its own body.
#include <sorn.h>

#include "arith/arith_entry.h"

using sorn::Operand;
using sorn::arith::check_operands;
using sorn::arith::first_source;
using sorn::arith::Operands;

namespace {

using Logic2Layer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                   void *, const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *);
using Logic2cLayer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                    void *, const int32_t *, const int32_t *, uint32_t,
                                    const void *, const int32_t *, const int32_t *, const double *);

struct LogicSlot {
  uint32_t tag;
  Logic2Layer arrays;
  Logic2cLayer constant;
};

constexpr LogicSlot kLogicSlots[] = {
    {SORN_FOURCC('a', 'a', 'n', 'd'), &sorna_and, &sorna_andC},
    {SORN_FOURCC('a', 'o', 'r', 'r'), &sorna_orr, &sorna_orrC},
    {SORN_FOURCC('a', 'x', 'o', 'r'), &sorna_xor, &sorna_xorC},
};

const LogicSlot *find_slot(uint32_t tag) {
  for (const LogicSlot &s : kLogicSlots)
    if (s.tag == tag) return &s;
  return nullptr;
}

}  // namespace

SornStatus _T_SornLogic2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstroi,
                         const SornVolume *aroi, const SornVolume *broi) {
  first_source(dst, dstroi, &a, &aroi);
  const LogicSlot *slot = find_slot(tag);
  if (slot == nullptr) return SORN_EINVAL;
  Operands<3> o;
  const SornStatus st = check_operands<3>(dst, {a, b}, dstroi, {aroi, broi}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1], &ob = o[2];
  return slot->arrays(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                      d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), ob.type,
                      ob.base, ob.origin_at(), ob.strides_at());
}

SornStatus _T_SornLogic2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstroi,
                          const SornVolume *aroi) {
  first_source(dst, dstroi, &a, &aroi);
  const LogicSlot *slot = find_slot(tag);
  if (slot == nullptr || cvec == nullptr) return SORN_EINVAL;
  Operands<2> o;
  const SornStatus st = check_operands<2>(dst, {a}, dstroi, {aroi}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1];
  return slot->constant(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                        d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), cvec);
}

#define SORN_LOGIC_ENTRIES(name, a, b, c, d)                                                      \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,  \
                        const SornArray *src2, const SornVolume *dstroi, const SornVolume *aroi,  \
                        const SornVolume *broi) {                                                 \
    return _T_SornLogic2(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, src2, dstroi, aroi, broi); \
  }                                                                                               \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                     \
                           const SornArray *src, const double *cvec, const SornVolume *dstroi,    \
                           const SornVolume *aroi) {                                              \
    return _T_SornLogic2c(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, cvec, dstroi, aroi);      \
  }

SORN_LOGIC_ENTRIES(And, 'a', 'a', 'n', 'd')
SORN_LOGIC_ENTRIES(Orr, 'a', 'o', 'r', 'r')
SORN_LOGIC_ENTRIES(Xor, 'a', 'x', 'o', 'r')

SornStatus SornNot(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                   const SornVolume *dstroi, const SornVolume *aroi) {
  first_source(dst, dstroi, &a, &aroi);
  Operands<2> o;
  const SornStatus st = check_operands<2>(dst, {a}, dstroi, {aroi}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1];
  return sorna_not(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(), d.strides_at(),
                   oa.type, oa.base, oa.origin_at(), oa.strides_at());
}

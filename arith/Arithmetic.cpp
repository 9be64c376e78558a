// Public entries of the arithmetic families: the selector tables, the
// checks of the operands (arith/arith_entry.h), and the call of layer 2.
// One shared entry per operand shape: one source (_T_SornArith), two
// sources (_T_SornArith2), a source and constants (_T_SornArith2c), three
// sources (_T_SornArith3) and their constant forms (_T_SornArith3c, 3cc).
#include <sorn.h>

#include "arith/arith_entry.h"

using sorn::Operand;
using sorn::arith::check_operands;
using sorn::arith::first_source;
using sorn::arith::Operands;

namespace {

// Layer 2 of a family with one source, two array sources, and a constant.
using Arith1Layer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                   void *, const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, int32_t, uint32_t);
using Arith2Layer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                   void *, const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, uint32_t, const void *,
                                   const int32_t *, const int32_t *, int32_t, uint32_t);
using Arith2cLayer = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                    void *, const int32_t *, const int32_t *, uint32_t,
                                    const void *, const int32_t *, const int32_t *, const double *,
                                    int32_t, uint32_t);

// Every selector the two-source entries know, with its layer for two arrays
// and for an array and constants. The sigmoid shares the constant entry
// only.
struct Arith2Slot {
  uint32_t tag;
  Arith2Layer arrays;
  Arith2cLayer constant;
};

constexpr Arith2Slot kArith2Slots[] = {
    {SORN_FOURCC('a', 'a', 'd', 'd'), &sorna_add, &sorna_addC},
    {SORN_FOURCC('a', 'd', 'd', 'q'), &sorna_addq, &sorna_addqC},
    {SORN_FOURCC('a', 'd', 'i', 'v'), &sorna_div, &sorna_divC},
    {SORN_FOURCC('a', 'd', 's', 'q'), &sorna_addsq, &sorna_addsqC},
    {SORN_FOURCC('a', 'm', 'u', 'l'), &sorna_mul, &sorna_mulC},
    {SORN_FOURCC('a', 's', 'u', 'b'), &sorna_sub, &sorna_subC},
    {SORN_FOURCC('d', 'i', 'v', 'r'), &sorna_divr, &sorna_divrC},
    {SORN_FOURCC('r', 'd', 'i', 'v'), &sorna_rdiv, &sorna_rdivC},
    {SORN_FOURCC('r', 'd', 'v', 'r'), &sorna_rdivr, &sorna_rdivrC},
    {SORN_FOURCC('r', 's', 'b', 'q'), &sorna_rsubq, &sorna_rsubqC},
    {SORN_FOURCC('r', 's', 's', 'q'), &sorna_rsubsq, &sorna_rsubsqC},
    {SORN_FOURCC('r', 's', 'u', 'b'), &sorna_rsub, &sorna_rsubC},
    {SORN_FOURCC('s', 'b', 's', 'q'), &sorna_subsq, &sorna_subsqC},
    {SORN_FOURCC('s', 'u', 'b', 'q'), &sorna_subq, &sorna_subqC},
    {SORN_FOURCC('s', 'i', 'g', 'm'), nullptr, &sorna_sigmoidalpha},
};

struct Arith1Slot {
  uint32_t tag;
  Arith1Layer layer;
};

constexpr Arith1Slot kArith1Slots[] = {
    {SORN_FOURCC('n', 'e', 'g', ' '), &sorna_neg},
    {SORN_FOURCC('n', 'e', 'g', 'q'), &sorna_negq},
    {SORN_FOURCC('e', 'x', 'p', ' '), &sorna_exp},
    {SORN_FOURCC('l', 'n', ' ', ' '), &sorna_ln},
};

template <class Slot, size_t N> const Slot *find_slot(const Slot (&slots)[N], uint32_t tag) {
  for (const Slot &s : slots)
    if (s.tag == tag) return &s;
  return nullptr;
}

}  // namespace

SornStatus _T_SornArith(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                        const SornArray *a, const SornVolume *dstRoi, const SornVolume *aSite,
                        int32_t sf, uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith1Slot *slot = find_slot(kArith1Slots, tag);
  if (slot == nullptr) return SORN_EINVAL;
  Operands<2> o;
  const SornStatus st = check_operands<2>(dst, {a}, dstRoi, {aSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1];
  return slot->layer(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                     d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), sf, extra);
}

SornStatus _T_SornArith2(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornVolume *dstRoi,
                         const SornVolume *aSite, const SornVolume *bSite, int32_t sf,
                         uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith2Slot *slot = find_slot(kArith2Slots, tag);
  if (slot == nullptr || slot->arrays == nullptr) return SORN_EINVAL;
  // The destination and the second source negotiate; the first source only
  // offers a start and is fitted to their rows and columns.
  Operands<3> o;
  const SornStatus st = check_operands<3>(dst, {a, b}, dstRoi, {aSite, bSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1], &ob = o[2];
  return slot->arrays(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                      d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), ob.type,
                      ob.base, ob.origin_at(), ob.strides_at(), sf, extra);
}

SornStatus _T_SornArith2c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const double *cvec, const SornVolume *dstRoi,
                          const SornVolume *aSite, int32_t sf, uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith2Slot *slot = find_slot(kArith2Slots, tag);
  if (slot == nullptr || cvec == nullptr) return SORN_EINVAL;
  Operands<2> o;
  const SornStatus st = check_operands<2>(dst, {a}, dstRoi, {aSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1];
  return slot->constant(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                        d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), cvec, sf,
                        extra);
}

// The public entries of the two-source group: one selector each, for two
// arrays and for an array and constants.
#define SORN_ARITH2_ENTRIES(name, a, b, c, d)                                                      \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,   \
                        const SornArray *src2, const SornVolume *dstRoi, const SornVolume *aSite,  \
                        const SornVolume *bSite, int32_t sf, uint32_t extra) {                     \
    return _T_SornArith2(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, src2, dstRoi, aSite, bSite, \
                         sf, extra);                                                               \
  }                                                                                                \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst,                      \
                           const SornArray *src, const double *cvec, const SornVolume *dstRoi,     \
                           const SornVolume *aSite, int32_t sf, uint32_t extra) {                  \
    return _T_SornArith2c(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, cvec, dstRoi, aSite, sf,   \
                          extra);                                                                  \
  }

SORN_ARITH2_ENTRIES(Add, 'a', 'a', 'd', 'd')
SORN_ARITH2_ENTRIES(Addq, 'a', 'd', 'd', 'q')
SORN_ARITH2_ENTRIES(Addsq, 'a', 'd', 's', 'q')
SORN_ARITH2_ENTRIES(Sub, 'a', 's', 'u', 'b')
SORN_ARITH2_ENTRIES(Subq, 's', 'u', 'b', 'q')
SORN_ARITH2_ENTRIES(Subsq, 's', 'b', 's', 'q')
SORN_ARITH2_ENTRIES(RSub, 'r', 's', 'u', 'b')
SORN_ARITH2_ENTRIES(RSubq, 'r', 's', 'b', 'q')
SORN_ARITH2_ENTRIES(RSubsq, 'r', 's', 's', 'q')
SORN_ARITH2_ENTRIES(Mul, 'a', 'm', 'u', 'l')
SORN_ARITH2_ENTRIES(Div, 'a', 'd', 'i', 'v')
SORN_ARITH2_ENTRIES(Divr, 'd', 'i', 'v', 'r')
SORN_ARITH2_ENTRIES(RDiv, 'r', 'd', 'i', 'v')
SORN_ARITH2_ENTRIES(RDivr, 'r', 'd', 'v', 'r')

#define SORN_ARITH1_ENTRY(name, a, b, c, d)                                                      \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src, \
                        const SornVolume *dstRoi, const SornVolume *aSite, int32_t sf,           \
                        uint32_t extra) {                                                        \
    return _T_SornArith(SORN_FOURCC(a, b, c, d), xe, flags, dst, src, dstRoi, aSite, sf, extra); \
  }

SORN_ARITH1_ENTRY(Negate, 'n', 'e', 'g', ' ')
SORN_ARITH1_ENTRY(Negateq, 'n', 'e', 'g', 'q')
SORN_ARITH1_ENTRY(Exp, 'e', 'x', 'p', ' ')
SORN_ARITH1_ENTRY(Ln, 'l', 'n', ' ', ' ')

SornStatus SornSigmoidAlpha(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,
                            const double *cvec, const SornVolume *dstRoi, const SornVolume *aSite,
                            int32_t sf, uint32_t extra) {
  return _T_SornArith2c(SORN_FOURCC('s', 'i', 'g', 'm'), xe, flags, dst, a, cvec, dstRoi, aSite, sf,
                        extra);
}

/* ---------------- multiply-accumulate ---------------- */

namespace {

using Arith3Layer = decltype(&sorna_mla);
using Arith3cLayer = decltype(&sorna_mlaC);
using Arith3ccLayer = decltype(&sorna_mlaCC);

// The three operations of the group with their layer for three arrays, for
// two arrays and constants, and for an array and two constant vectors.
struct Arith3Slot {
  uint32_t tag;
  Arith3Layer arrays;
  Arith3cLayer constant;
  Arith3ccLayer constants;
};

constexpr Arith3Slot kArith3Slots[] = {
    {SORN_TAG_MLA, &sorna_mla, &sorna_mlaC, &sorna_mlaCC},
    {SORN_TAG_MLS, &sorna_mls, &sorna_mlsC, &sorna_mlsCC},
    {SORN_TAG_MLRS, &sorna_mlrs, &sorna_mlrsC, &sorna_mlrsCC},
};

}  // namespace

// The destination negotiates with the last array operand; the sources
// before it only offer a start and are fitted to what is agreed.
SornStatus _T_SornArith3(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                         const SornArray *a, const SornArray *b, const SornArray *c,
                         const SornVolume *dstRoi, const SornVolume *aSite, const SornVolume *bSite,
                         const SornVolume *cSite, int32_t sf, uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith3Slot *slot = find_slot(kArith3Slots, tag);
  if (slot == nullptr) return SORN_EINVAL;
  Operands<4> o;
  const SornStatus st = check_operands<4>(dst, {a, b, c}, dstRoi, {aSite, bSite, cSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1], &ob = o[2], &oc = o[3];
  return slot->arrays(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                      d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), ob.type,
                      ob.base, ob.origin_at(), ob.strides_at(), oc.type, oc.base, oc.origin_at(),
                      oc.strides_at(), sf, extra);
}

SornStatus _T_SornArith3c(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                          const SornArray *a, const SornArray *b, const double *cvec,
                          const SornVolume *dstRoi, const SornVolume *aSite,
                          const SornVolume *bSite, int32_t sf, uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith3Slot *slot = find_slot(kArith3Slots, tag);
  if (slot == nullptr || cvec == nullptr) return SORN_EINVAL;
  Operands<3> o;
  const SornStatus st = check_operands<3>(dst, {a, b}, dstRoi, {aSite, bSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1], &ob = o[2];
  return slot->constant(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                        d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), ob.type,
                        ob.base, ob.origin_at(), ob.strides_at(), cvec, sf, extra);
}

SornStatus _T_SornArith3cc(uint32_t tag, SornXE *xe, SornFlags flags, const SornArray *dst,
                           const SornArray *a, const double *c1vec, const double *c2vec,
                           const SornVolume *dstRoi, const SornVolume *aSite, int32_t sf,
                           uint32_t extra) {
  first_source(dst, dstRoi, &a, &aSite);
  const Arith3Slot *slot = find_slot(kArith3Slots, tag);
  if (slot == nullptr || c1vec == nullptr || c2vec == nullptr) return SORN_EINVAL;
  Operands<2> o;
  const SornStatus st = check_operands<2>(dst, {a}, dstRoi, {aSite}, &o);
  if (st != SORN_OK) return st;
  Operand &d = o[0], &oa = o[1];
  return slot->constants(xe, flags, d.pack(), d.dims_at(), d.type, d.base, d.origin_at(),
                         d.strides_at(), oa.type, oa.base, oa.origin_at(), oa.strides_at(), c1vec,
                         c2vec, sf, extra);
}

#define SORN_MAC_ENTRIES(name, tag)                                                                \
  SornStatus Sorn##name(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,     \
                        const SornArray *b, const SornArray *c, const SornVolume *dstRoi,          \
                        const SornVolume *aSite, const SornVolume *bSite, const SornVolume *cSite, \
                        int32_t sf, uint32_t extra) {                                              \
    return _T_SornArith3(tag, xe, flags, dst, a, b, c, dstRoi, aSite, bSite, cSite, sf, extra);    \
  }                                                                                                \
  SornStatus Sorn##name##C(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a,  \
                           const SornArray *b, const double *cvec, const SornVolume *dstRoi,       \
                           const SornVolume *aSite, const SornVolume *bSite, int32_t sf,           \
                           uint32_t extra) {                                                       \
    return _T_SornArith3c(tag, xe, flags, dst, a, b, cvec, dstRoi, aSite, bSite, sf, extra);       \
  }                                                                                                \
  SornStatus Sorn##name##CC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *a, \
                            const double *c1vec, const double *c2vec, const SornVolume *dstRoi,    \
                            const SornVolume *aSite, int32_t sf, uint32_t extra) {                 \
    return _T_SornArith3cc(tag, xe, flags, dst, a, c1vec, c2vec, dstRoi, aSite, sf, extra);        \
  }

SORN_MAC_ENTRIES(MulAdd, SORN_TAG_MLA)
SORN_MAC_ENTRIES(MulSub, SORN_TAG_MLS)
SORN_MAC_ENTRIES(MulRSub, SORN_TAG_MLRS)

// Comparison of an image with a second image or with a constant per
// channel: the entries, the type-generic layer and its slice forms, the
// dispatchers with their lookups. Kernels in __compare.cpp, __ecompare.cpp
// and __ecompareC.cpp, tables in Xlat2d.cpp.
#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "core/entry.h"
#include "data/compare_kernel.h"

using sorn::Operand;
using sorn::compare::is_vector;

/* ---------------- lookups ---------------- */

namespace {

// The key of a destination class and a source type: destinations of one
// width share a kernel, so a u8 and an s8 destination get the same bytes.
constexpr uint32_t cmp_key(uint32_t dsttype, uint32_t srctype) {
  return sorn::kernel_key(dsttype & 7u, srctype);
}

#define CMP_ROW(prefix, d, s) {cmp_key(SORN_TYPECODE(d), SORN_TYPECODE(s)), &prefix##d##s},
#define CMP_PLAIN_ROW(d, s) CMP_ROW(__sorna__compare_, d, s)
#define CMP_C_ROW(d, s) CMP_ROW(__sorna__compareC_, d, s)
#define ECMP_ROW(d, s) CMP_ROW(__sorna__ecompare_, d, s)
#define ECMP_C_ROW(d, s) CMP_ROW(__sorna__ecompareC_, d, s)
constexpr sorn::KernelRow<SornCmpKernel> kCompare[] = {SORN_CMP_PAIRS(CMP_PLAIN_ROW)};
constexpr sorn::KernelRow<SornCmpCKernel> kCompareC[] = {SORN_CMP_PAIRS(CMP_C_ROW)};
constexpr sorn::KernelRow<SornECmpKernel> kECompare[] = {SORN_ECMP_PAIRS(ECMP_ROW)};
constexpr sorn::KernelRow<SornECmpCKernel> kECompareC[] = {SORN_ECMP_PAIRS(ECMP_C_ROW)};

// The codes the family knows: a plain destination is an integer type, an e
// destination and every source any known type. A pair of known codes
// without a kernel is not supported; anything else is invalid.
constexpr uint32_t kIntegerTypes = 0x1e1eu;
bool in_set(uint32_t set, uint32_t code) { return code < 16 && ((set >> code) & 1u); }
SornStatus missing(bool values, uint32_t dsttype, uint32_t srctype) {
  const bool known = in_set(values ? SORN_KNOWN_TYPES : kIntegerTypes, dsttype) &&
                     in_set(SORN_KNOWN_TYPES, srctype);
  return known ? SORN_ENOTSUP : SORN_EINVAL;
}

template <class K, size_t N>
K cmp_lookup(const sorn::KernelRow<K> (&table)[N], bool values, uint32_t dsttype, uint32_t srctype,
             SornStatus *status) {
  return sorn::lookup(table, cmp_key(dsttype, srctype), missing(values, dsttype, srctype), status);
}

}  // namespace

SornCmpKernel sorna__cmpfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status) {
  return cmp_lookup(kCompare, false, dsttype, srctype, status);
}
SornCmpCKernel sorna__cmpcfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status) {
  return cmp_lookup(kCompareC, false, dsttype, srctype, status);
}
SornECmpKernel sorna__ecmpfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status) {
  return cmp_lookup(kECompare, true, dsttype, srctype, status);
}
SornECmpCKernel sorna__ecmpcfun_imp(uint32_t dsttype, uint32_t srctype, SornStatus *status) {
  return cmp_lookup(kECompareC, true, dsttype, srctype, status);
}

/* ---------------- dispatch ---------------- */

namespace {

// The last three cells, and the same cut of every vector of strides.
struct Cells {
  int32_t n;
  int32_t skip;
  const int32_t *dims;
  const int32_t *at(const int32_t *strides) const { return strides + skip; }
  int32_t channels() const { return sorn::channels_of(dims[n - 1]); }
};
Cells cells_of(SornDimPack pack, const int32_t *dims) {
  const int32_t n = (int32_t)(pack & 15u);
  const int32_t skip = n > 3 ? n - 3 : 0;
  return {n - skip, skip, dims + skip};
}

// The values of the plain forms into a float destination: the bit pattern
// 0x3FFFFFFF, which is 1.99999988f and deliberately not 1.0, and zero.
struct FloatMask {
  double t[4], f[4] = {0.0, 0.0, 0.0, 0.0};
  FloatMask() {
    const uint64_t bits = 0x3FFFFFFFE0000000ull;
    for (double &v : t) std::memcpy(&v, &bits, sizeof v);
  }
};
bool float_destination(uint32_t dsttype) { return (dsttype & 7u) > 4u; }

// Whether every channel's true value rounds to the top of a byte or 16-bit
// destination and its false value to 0 or below: then the values are the
// plain form's mask. An s8 destination takes this way with 255 too, and so
// gets 0xFF where a fill vector would have saturated 255 to 127: intended.
bool values_are_mask(uint32_t dsttype, const double *tval, const double *fval, int32_t c) {
  const uint32_t cls = dsttype & 7u;
  if (cls != 1u && cls != 2u) return false;
  const int32_t top = cls == 1u ? 255 : 65535;
  for (int32_t k = 0; k < c; ++k)
    if (sorn::round_i32(tval[k]) < top || sorn::round_i32(fval[k]) > 0) return false;
  return true;
}

// The steps of the e dispatchers before their kernels: the plain form for
// no values, the value side made the true side, the mask shortcut, the
// check of a kept source, and the values as fill vectors. `plain` runs the
// plain form with an operator; `kernel` the e kernel with the operator and
// the two value arguments.
template <class Plain, class Kernel>
SornStatus evalues(uint32_t dsttype, uint32_t srctype, int32_t c, SornCmpOp op, const double *tval,
                   const double *fval, Plain &&plain, Kernel &&kernel) {
  if (tval == nullptr && fval == nullptr) return plain(op);
  if (!is_vector(tval)) {
    if (!is_vector(fval)) return SORN_EINVAL;
    op = SORN_CMP_COMPLEMENT(op);
    std::swap(tval, fval);
  }
  if (is_vector(fval) && values_are_mask(dsttype, tval, fval, c)) return plain(op);
  if (dsttype != srctype && fval == SORN_CMP_KEEPSRC) return SORN_EINVAL;
  alignas(16) uint8_t tv[16], fv[16];
  SornStatus st = sorn_mkifillvalv16(dsttype, tv, tval, c);
  if (st != SORN_OK) return st;
  const void *f = fval;
  if (is_vector(fval)) {
    st = sorn_mkifillvalv16(dsttype, fv, fval, c);
    if (st != SORN_OK) return st;
    f = fv;
  }
  return kernel(op, (const void *)tv, f);
}

}  // namespace

SornStatus __sorna__swcompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                              uint32_t dsttype, void *dst, const int32_t *dststrides,
                              uint32_t srctype, const void *src1, const int32_t *strides1,
                              const void *src2, const int32_t *strides2, SornCmpOp op) {
  SornStatus st = SORN_OK;
  SornCmpKernel k = sorna__cmpfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const Cells c = cells_of(pack, dims);
  return k(xe, flags, c.n, c.dims, dst, c.at(dststrides), src1, c.at(strides1), src2,
           c.at(strides2), op);
}

SornStatus __sorna__swcompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src, const int32_t *srcstrides,
                               const void *cvector, SornCmpOp op) {
  SornStatus st = SORN_OK;
  SornCmpCKernel k = sorna__cmpcfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const Cells c = cells_of(pack, dims);
  return k(xe, flags, c.n, c.dims, dst, c.at(dststrides), src, c.at(srcstrides), cvector, op);
}

SornStatus __sorna__swecompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                               uint32_t dsttype, void *dst, const int32_t *dststrides,
                               uint32_t srctype, const void *src1, const int32_t *strides1,
                               const void *src2, const int32_t *strides2, SornCmpOp op,
                               const void *tval, const void *fval) {
  SornStatus st = SORN_OK;
  SornECmpKernel k = sorna__ecmpfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const Cells c = cells_of(pack, dims);
  return k(xe, flags, c.n, c.dims, dst, c.at(dststrides), src1, c.at(strides1), src2,
           c.at(strides2), op, tval, fval);
}

SornStatus __sorna__swecompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                                uint32_t dsttype, void *dst, const int32_t *dststrides,
                                uint32_t srctype, const void *src, const int32_t *srcstrides,
                                const void *cvector, SornCmpOp op, const void *tval,
                                const void *fval) {
  SornStatus st = SORN_OK;
  SornECmpCKernel k = sorna__ecmpcfun_imp(dsttype, srctype, &st);
  if (st != SORN_OK) return st;
  const Cells c = cells_of(pack, dims);
  return k(xe, flags, c.n, c.dims, dst, c.at(dststrides), src, c.at(srcstrides), cvector, op, tval,
           fval);
}

SornStatus sorna__compare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                          const void *src1, const int32_t *strides1, const void *src2,
                          const int32_t *strides2, SornCmpOp op) {
  const Cells c = cells_of(pack, dims);
  flags = sorn::with_channel_format(flags, (uint32_t)c.dims[c.n - 1]);
  if (float_destination(dsttype)) {
    const FloatMask m;
    return sorna__ecompare(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src1, strides1,
                           src2, strides2, op, m.t, m.f);
  }
  return __sorna__swcompare(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src1,
                            strides1, src2, strides2, op);
}

SornStatus sorna__compareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                           const void *src, const int32_t *srcstrides, const double *cvec,
                           SornCmpOp op) {
  const Cells c = cells_of(pack, dims);
  flags = sorn::with_channel_format(flags, (uint32_t)c.dims[c.n - 1]);
  if (float_destination(dsttype)) {
    const FloatMask m;
    return sorna__ecompareC(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src,
                            srcstrides, cvec, op, m.t, m.f);
  }
  // The constant is rounded and saturated into the source's type once: on
  // a u8 source "less than 3.5" is "less than 4".
  alignas(16) uint8_t cv[16];
  SornStatus st = sorn_mkifillvalv16(srctype, cv, cvec, c.channels());
  if (st != SORN_OK) return st;
  return __sorna__swcompareC(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src,
                             srcstrides, cv, op);
}

SornStatus sorna__ecompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t srctype,
                           const void *src1, const int32_t *strides1, const void *src2,
                           const int32_t *strides2, SornCmpOp op, const double *tval,
                           const double *fval) {
  const Cells c = cells_of(pack, dims);
  flags = sorn::with_channel_format(flags, (uint32_t)c.dims[c.n - 1]);
  return evalues(
      dsttype, srctype, c.channels(), op, tval, fval,
      [&](SornCmpOp o) {
        return sorna__compare(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src1,
                              strides1, src2, strides2, o);
      },
      [&](SornCmpOp o, const void *t, const void *f) {
        return __sorna__swecompare(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src1,
                                   strides1, src2, strides2, o, t, f);
      });
}

SornStatus sorna__ecompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t dsttype, void *dst, const int32_t *dststrides,
                            uint32_t srctype, const void *src, const int32_t *srcstrides,
                            const double *cvec, SornCmpOp op, const double *tval,
                            const double *fval) {
  const Cells c = cells_of(pack, dims);
  flags = sorn::with_channel_format(flags, (uint32_t)c.dims[c.n - 1]);
  return evalues(
      dsttype, srctype, c.channels(), op, tval, fval,
      [&](SornCmpOp o) {
        return sorna__compareC(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src,
                               srcstrides, cvec, o);
      },
      [&](SornCmpOp o, const void *t, const void *f) {
        alignas(16) uint8_t cv[16];
        SornStatus st = sorn_mkifillvalv16(srctype, cv, cvec, c.channels());
        if (st != SORN_OK) return st;
        return __sorna__swecompareC(xe, flags, pack, dims, dsttype, dst, dststrides, srctype, src,
                                    srcstrides, cv, o, t, f);
      });
}

/* ---------------- type-generic layer and slice forms ---------------- */

using sorn::at_origin;

SornStatus sorna_compare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t dsttype, void *dst, const int32_t *dstorigin,
                         const int32_t *dststrides, uint32_t srctype, const void *src1,
                         const int32_t *origin1, const int32_t *strides1, const void *src2,
                         const int32_t *origin2, const int32_t *strides2, SornCmpOp op) {
  return sorna__compare(xe, flags, pack, dims, dsttype, at_origin(dst, pack, dstorigin, dststrides),
                        dststrides, srctype, at_origin(src1, pack, origin1, strides1), strides1,
                        at_origin(src2, pack, origin2, strides2), strides2, op);
}

SornStatus sorna_ecompare(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstorigin,
                          const int32_t *dststrides, uint32_t srctype, const void *src1,
                          const int32_t *origin1, const int32_t *strides1, const void *src2,
                          const int32_t *origin2, const int32_t *strides2, SornCmpOp op,
                          const double *tval, const double *fval) {
  return sorna__ecompare(xe, flags, pack, dims, dsttype,
                         at_origin(dst, pack, dstorigin, dststrides), dststrides, srctype,
                         at_origin(src1, pack, origin1, strides1), strides1,
                         at_origin(src2, pack, origin2, strides2), strides2, op, tval, fval);
}

SornStatus sorna_compareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t dsttype, void *dst, const int32_t *dstorigin,
                          const int32_t *dststrides, uint32_t srctype, const void *src,
                          const int32_t *srcorigin, const int32_t *srcstrides, const double *cvec,
                          SornCmpOp op) {
  return sorna__compareC(xe, flags, pack, dims, dsttype,
                         at_origin(dst, pack, dstorigin, dststrides), dststrides, srctype,
                         at_origin(src, pack, srcorigin, srcstrides), srcstrides, cvec, op);
}

SornStatus sorna_ecompareC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dst, const int32_t *dstorigin,
                           const int32_t *dststrides, uint32_t srctype, const void *src,
                           const int32_t *srcorigin, const int32_t *srcstrides, const double *cvec,
                           SornCmpOp op, const double *tval, const double *fval) {
  return sorna__ecompareC(
      xe, flags, pack, dims, dsttype, at_origin(dst, pack, dstorigin, dststrides), dststrides,
      srctype, at_origin(src, pack, srcorigin, srcstrides), srcstrides, cvec, op, tval, fval);
}

// The two-source slice forms check what the entry leaves to them: the two
// sources must have one element type, nothing is promoted.
SornStatus SornTGAcompare(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                          uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                          uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1,
                          uint32_t type2, void *base2, int32_t *origin2, int32_t *strides2) {
  if (type1 != type2) return SORN_EINVAL;
  const SornCompareArgs *a = static_cast<const SornCompareArgs *>(data);
  return sorna_compare(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                       origin1, strides1, base2, origin2, strides2, a->op);
}

SornStatus SornTGAecompare(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                           uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                           uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1,
                           uint32_t type2, void *base2, int32_t *origin2, int32_t *strides2) {
  if (type1 != type2) return SORN_EINVAL;
  const SornCompareArgs *a = static_cast<const SornCompareArgs *>(data);
  return sorna_ecompare(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                        origin1, strides1, base2, origin2, strides2, a->op, a->tval, a->fval);
}

SornStatus SornTGAcompareC(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                           uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                           uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  const SornCompareArgs *a = static_cast<const SornCompareArgs *>(data);
  return sorna_compareC(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                        origin1, strides1, a->cvec, a->op);
}

SornStatus SornTGAecompareC(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                            int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                            int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                            int32_t *strides1) {
  const SornCompareArgs *a = static_cast<const SornCompareArgs *>(data);
  return sorna_ecompareC(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                         origin1, strides1, a->cvec, a->op, a->tval, a->fval);
}

/* ---------------- entries ---------------- */

namespace {

// The destination beside the first source: its rank, its planes, and its
// channel count, since the kernels walk both with one row length.
bool fits_source(const SornArray *dst, const SornArray *src) {
  return dst != nullptr && dst->ndims == src->ndims && dst->dims[0] == src->dims[0] &&
         sorn::channels_of(dst->dims[3]) == sorn::channels_of(src->dims[3]);
}

// The destination and the first source, checked and with one region of
// whole pixels: a constant pairs with the channel of its index.
SornStatus prepare_pair(const SornArray *dst, const SornArray *src, const SornArray *src2,
                        const SornVolume *dstRoi, const SornVolume *srcSite, SornVolume *rd,
                        SornVolume *rs) {
  if (!sorn::good_image(src)) return SORN_EINVAL;
  if (src2 != nullptr && !sorn::fits_image(src2, src, sorn::Channels::Same)) return SORN_EINVAL;
  if (!fits_source(dst, src)) return SORN_EINVAL;
  if (!sorn::negotiate(dst, src, dstRoi, srcSite, rd, rs)) return SORN_ENOSPC;
  sorn::whole_pixels(rd, dst);
  sorn::whole_pixels(rs, src);
  return SORN_OK;
}

SornStatus arrays_entry(uint32_t tag, sorn::SliceProc<3> slice, SornXE *xe, SornFlags flags,
                        const SornArray *dst, const SornArray *src1, const SornArray *src2,
                        const SornVolume *dstRoi, const SornVolume *src1Site,
                        const SornVolume *src2Site, SornCompareArgs *args) {
  if (src2 == nullptr) return SORN_EINVAL;
  SornVolume rd, r1, r2;
  SornStatus st = prepare_pair(dst, src1, src2, dstRoi, src1Site, &rd, &r1);
  if (st != SORN_OK) return st;
  // The second source only offers a start; its box is cut to what it has,
  // and all three boxes then take the cut rows and columns.
  if (!sorn::fit_operand(src2, src2Site, &r2, &rd, &r1)) return SORN_ENOSPC;
  Operand d(dst, rd), a(src1, r1), b(src2, r2);
  // A single plane of the second source serves every plane of the first.
  if (src2->dims[0] == 1) b.strides[0] = 0;
  return sorn::run({xe, flags, tag, args, sorn::kKeepRow}, slice, d, a, b);
}

SornStatus constant_entry(uint32_t tag, sorn::SliceProc<2> slice, SornXE *xe, SornFlags flags,
                          const SornArray *dst, const SornArray *src, const SornVolume *dstRoi,
                          const SornVolume *srcSite, SornCompareArgs *args) {
  SornVolume rd, rs;
  SornStatus st = prepare_pair(dst, src, nullptr, dstRoi, srcSite, &rd, &rs);
  if (st != SORN_OK) return st;
  Operand d(dst, rd), a(src, rs);
  return sorn::run({xe, flags, tag, args, sorn::kKeepRow}, slice, d, a);
}

}  // namespace

SornStatus SornCompare(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                       const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Site,
                       const SornVolume *src2Site, SornCmpOp op) {
  SornCompareArgs args{op, nullptr, nullptr, nullptr};
  return arrays_entry(SORN_TAG_COMP, &SornTGAcompare, xe, flags, dst, src1, src2, dstRoi, src1Site,
                      src2Site, &args);
}

SornStatus SornECompare(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src1,
                        const SornArray *src2, const SornVolume *dstRoi, const SornVolume *src1Site,
                        const SornVolume *src2Site, SornCmpOp op, const double *tval,
                        const double *fval) {
  SornCompareArgs args{op, nullptr, tval, fval};
  return arrays_entry(SORN_TAG_ECMP, &SornTGAecompare, xe, flags, dst, src1, src2, dstRoi, src1Site,
                      src2Site, &args);
}

SornStatus SornCompareC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const double *cvec, const SornVolume *dstRoi, const SornVolume *srcSite,
                        SornCmpOp op) {
  SornCompareArgs args{op, cvec, nullptr, nullptr};
  return constant_entry(SORN_TAG_CMPC, &SornTGAcompareC, xe, flags, dst, src, dstRoi, srcSite,
                        &args);
}

SornStatus SornECompareC(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const double *cvec, const SornVolume *dstRoi, const SornVolume *srcSite,
                         SornCmpOp op, const double *tval, const double *fval) {
  SornCompareArgs args{op, cvec, tval, fval};
  return constant_entry(SORN_TAG_ECMC, &SornTGAecompareC, xe, flags, dst, src, dstRoi, srcSite,
                        &args);
}

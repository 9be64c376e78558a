// The dispatchers of multiply-accumulate with their lookups. A combination
// of types with a kernel runs it once; the others take the first way that
// fits: one operand brought into a wider type in a scratch tile (with the
// result formed wider and converted into the destination where the kernel
// needs it), the product written into the destination and the first source
// joined to it in place, or the product formed by the multiplication in a
// tile and joined by the saturating sum or difference. Tiles are at most
// 10 rows, so that the intermediate stays in the cache.
#include <sorn.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "arith/binary_dispatch.h"

using namespace sorn;
using namespace sorn::arith;

namespace {

#define MLA_ROW(d, a, b, c)                                                       \
  SORN_KERNEL_ROW(sorna__mla_c1_##d##a##b##c, SORN_TYPECODE(d), SORN_TYPECODE(a), \
                  SORN_TYPECODE(b), SORN_TYPECODE(c))
#define MLS_ROW(d, a, b, c)                                                       \
  SORN_KERNEL_ROW(sorna__mls_c1_##d##a##b##c, SORN_TYPECODE(d), SORN_TYPECODE(a), \
                  SORN_TYPECODE(b), SORN_TYPECODE(c))
#define MLAC_ROW(d, a, b, t)                                                       \
  SORN_KERNEL_ROW(sorna__mlaC_c1_##d##a##b##t, SORN_TYPECODE(d), SORN_TYPECODE(a), \
                  SORN_TYPECODE(b), SORN_TYPECODE(t))
#define MLSC_ROW(d, a, b, t)                                                       \
  SORN_KERNEL_ROW(sorna__mlsC_c1_##d##a##b##t, SORN_TYPECODE(d), SORN_TYPECODE(a), \
                  SORN_TYPECODE(b), SORN_TYPECODE(t))
#define MLACC_ROW(d, t)                                                             \
  SORN_KERNEL_ROW(sorna__mlaCC_c1_##d##t##t##t, SORN_TYPECODE(d), SORN_TYPECODE(t), \
                  SORN_TYPECODE(t), SORN_TYPECODE(t))
#define MLSCC_ROW(d, t)                                                             \
  SORN_KERNEL_ROW(sorna__mlsCC_c1_##d##t##t##t, SORN_TYPECODE(d), SORN_TYPECODE(t), \
                  SORN_TYPECODE(t), SORN_TYPECODE(t))
#define MLACC_ROWS(t) SORN_MLACC_DSTS(MLACC_ROW, t)
#define MLSCC_ROWS(t) SORN_MLACC_DSTS(MLSCC_ROW, t)

constexpr KernelRow<SornArith3Kernel> kMla[] = {SORN_MLA_QUADS(MLA_ROW)};
constexpr KernelRow<SornArith3Kernel> kMls[] = {SORN_MLA_QUADS(MLS_ROW)};
constexpr KernelRow<SornArith3cKernel> kMlaC[] = {SORN_MLAC_QUADS(MLAC_ROW)};
constexpr KernelRow<SornArith3cKernel> kMlsC[] = {SORN_MLAC_QUADS(MLSC_ROW)};
constexpr KernelRow<SornArith3ccKernel> kMlaCC[] = {SORN_MLACC_TYPES(MLACC_ROWS)};
constexpr KernelRow<SornArith3ccKernel> kMlsCC[] = {SORN_MLACC_TYPES(MLSCC_ROWS)};

template <class K, size_t N>
K lookup_quad(const KernelRow<K> (&table)[N], uint32_t d, uint32_t a, uint32_t b, uint32_t c,
              SornStatus *status) {
  return lookup(table, kernel_key(d, a, b, c), refusal_for(d, a, b, c), status);
}

}  // namespace

#define SORN_QUAD_LOOKUP(name, K, table)                                       \
  K name(uint32_t d, uint32_t a, uint32_t b, uint32_t c, SornStatus *status) { \
    return lookup_quad(table, d, a, b, c, status);                             \
  }
SORN_QUAD_LOOKUP(sorna__amlafun_imp, SornArith3Kernel, kMla)
SORN_QUAD_LOOKUP(sorna__amlsfun_imp, SornArith3Kernel, kMls)
SORN_QUAD_LOOKUP(sorna__amlacfun_imp, SornArith3cKernel, kMlaC)
SORN_QUAD_LOOKUP(sorna__amlscfun_imp, SornArith3cKernel, kMlsC)
SORN_QUAD_LOOKUP(sorna__amlaccfun_imp, SornArith3ccKernel, kMlaCC)
SORN_QUAD_LOOKUP(sorna__amlsccfun_imp, SornArith3ccKernel, kMlsCC)
#undef SORN_QUAD_LOOKUP

uint32_t _T_sorna__get_elemtype_cn(SornFlags flags, const double *cvec, int32_t channels) {
  return channels >= 1 ? constant_class(cvec, channels, flags) : (uint32_t)SORN_U8;
}

namespace {

// The two joins: the sum with the lookups of mla, the difference with
// those of mls, each with the saturating two-source form that joins a
// product formed apart.
struct MacFamily {
  SornArith3Kernel (*arrays)(uint32_t, uint32_t, uint32_t, uint32_t, SornStatus *);
  SornArith3cKernel (*constant)(uint32_t, uint32_t, uint32_t, uint32_t, SornStatus *);
  SornArith3ccKernel (*constants)(uint32_t, uint32_t, uint32_t, uint32_t, SornStatus *);
  decltype(&sorna__addq) join;
};
constexpr MacFamily kSum{&sorna__amlafun_imp, &sorna__amlacfun_imp, &sorna__amlaccfun_imp,
                         &sorna__addq};
constexpr MacFamily kDifference{&sorna__amlsfun_imp, &sorna__amlscfun_imp, &sorna__amlsccfun_imp,
                                &sorna__subq};

const MacFamily *family_of(uint32_t tag) {
  return tag == SORN_TAG_MLA ? &kSum : tag == SORN_TAG_MLS ? &kDifference : nullptr;
}

/* ---------------- the tiles ---------------- */

// An operand on its way to or from a kernel: of type `from` where it lies,
// of type `to` where the kernel sees it. When they differ it passes
// through a tile.
struct Leg {
  uint32_t from, to;
  const void *ptr;
  const int32_t *strides;
  bool tiled() const { return from != to; }
};

// Runs kernel(dims, dst, dststrides, srcs, srcstrides) over the region,
// once when no leg is tiled, else tile by tile of at most 10 rows: the
// tiled sources are converted in, and a tiled destination converted out,
// by the saturating conversion. Everything a tile needs is asked for before
// any memory, and the blocks go back on every way out.
template <int K, class Kernel>
SornStatus through_tiles(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                         const Leg &dst, const Leg (&src)[K], Kernel kernel) {
  const void *ptrs[K];
  const int32_t *strides[K];
  bool tiled = dst.tiled();
  for (int i = 0; i < K; ++i) {
    ptrs[i] = src[i].ptr;
    strides[i] = src[i].strides;
    tiled = tiled || src[i].tiled();
  }
  if (!tiled) return kernel(dims, const_cast<void *>(dst.ptr), dst.strides, ptrs, strides);

  SornStatus st = SORN_OK;
  for (int i = 0; i < K && st == SORN_OK; ++i)
    if (src[i].tiled()) (void)sorna__tcvtfun_imp(src[i].to, src[i].from, &st);
  if (st == SORN_OK && dst.tiled()) (void)sorna__tcvtfun_imp(dst.to, dst.from, &st);
  if (st != SORN_OK) return st;

  const int32_t rows = dims[0], height = std::min(rows, 10);
  Tile tiles[4] = {Tile(xe), Tile(xe), Tile(xe), Tile(xe)};
  for (int i = 0; i < K && st == SORN_OK; ++i)
    if (src[i].tiled()) st = tiles[i].open(n, dims, height, elem_size(src[i].to));
  if (st == SORN_OK && dst.tiled()) st = tiles[3].open(n, dims, height, elem_size(dst.from));
  if (st != SORN_OK) return st;

  int32_t tdims[4];
  std::copy(dims, dims + n, tdims);
  for (int32_t y = 0; y < rows && st == SORN_OK; y += height) {
    tdims[0] = std::min(height, rows - y);
    for (int i = 0; i < K && st == SORN_OK; ++i) {
      const char *at = static_cast<const char *>(src[i].ptr) + (ptrdiff_t)y * src[i].strides[0];
      ptrs[i] = at;
      strides[i] = src[i].strides;
      if (src[i].tiled()) {
        st = __sorna__swtconvert(xe, flags, n, tdims, src[i].to, tiles[i].data(),
                                 tiles[i].strides(), src[i].from, at, src[i].strides);
        ptrs[i] = tiles[i].data();
        strides[i] = tiles[i].strides();
      }
    }
    if (st != SORN_OK) break;
    char *out = static_cast<char *>(const_cast<void *>(dst.ptr)) + (ptrdiff_t)y * dst.strides[0];
    if (!dst.tiled()) {
      st = kernel(tdims, out, dst.strides, ptrs, strides);
    } else {
      st = kernel(tdims, tiles[3].data(), tiles[3].strides(), ptrs, strides);
      if (st == SORN_OK)
        st = __sorna__swtconvert(xe, flags, n, tdims, dst.to, out, dst.strides, dst.from,
                                 tiles[3].data(), tiles[3].strides());
    }
  }
  return st;
}

// The product formed apart: product(tdims, y, tile, tilestrides) writes
// it for the rows from y into a tile of T, tile by tile of at most 10 rows,
// and the family's saturating form joins a to it into dst with sf and
// extra.
template <class Product>
SornStatus product_apart(uint32_t tag, uint32_t T, SornXE *xe, SornFlags flags, int32_t n,
                         const int32_t *dims, uint32_t dsttype, void *dst,
                         const int32_t *dststrides, uint32_t atype, const void *a,
                         const int32_t *astrides, int32_t sf, uint32_t extra, Product product) {
  const MacFamily *f = family_of(tag);
  if (f == nullptr || n < 2 || n > 4) return SORN_EINVAL;
  const int32_t rows = dims[0], height = std::min(rows, 10);
  Tile tile(xe);
  SornStatus st = tile.open(n, dims, height, elem_size(T));
  if (st != SORN_OK) return st;
  int32_t tdims[4];
  std::copy(dims, dims + n, tdims);
  for (int32_t y = 0; y < rows && st == SORN_OK; y += height) {
    tdims[0] = std::min(height, rows - y);
    st = product(tdims, y, tile.data(), tile.strides());
    if (st != SORN_OK) break;
    st = f->join(xe, flags, (SornDimPack)n, tdims, dsttype,
                 static_cast<char *>(dst) + (ptrdiff_t)y * dststrides[0], dststrides, atype,
                 static_cast<const char *>(a) + (ptrdiff_t)y * astrides[0], astrides, T,
                 tile.data(), tile.strides(), sf, extra);
  }
  return st;
}

/* ---------------- choosing a way ---------------- */

// The types a kernel is asked for: destination, a, b, c.
struct Quad {
  uint32_t d, a, b, c;
};

// An operand may be read in a wider type when that holds every value
// exactly; in f32 also inexactly, when a float among the operands makes
// the product a float one anyway (the scale factor then has no part).
bool may_read_as(uint32_t from, uint32_t to, bool floating) {
  if (from == to) return true;
  if (to == SORN_S16) return from == SORN_U8;
  if (to == SORN_S32) return from == SORN_U8 || from == SORN_S16;
  return to == SORN_F32 && floating && known_type(from);
}

// A result may be formed wider than an integer destination and converted:
// in s32, whose clamp and scale come out as the destination's own would,
// or, with a float among the operands, in f32.
bool may_form_in(uint32_t dsttype, uint32_t wide, bool floating) {
  if (wide == dsttype) return true;
  if (float_type(dsttype) || !known_type(dsttype)) return false;
  if (wide == SORN_S32) return elem_size(dsttype) < 4;
  return wide == SORN_F32 && floating;
}

// The first quadruple with a kernel (`has`) that differs from q by at most
// one operand read wider (among the first `operands` of a, b, c) and a
// result formed wider: the fewest conversions, the narrowest types first.
template <class Has> bool find_quad(Quad q, int operands, bool floating, Has has, Quad *out) {
  const uint32_t wider[] = {SORN_S16, SORN_S32, SORN_F32};
  const uint32_t results[] = {q.d, SORN_S32, SORN_F32};
  for (int r = 0; r < 3; ++r) {
    if ((r > 0 && results[r] == q.d) || !may_form_in(q.d, results[r], floating)) continue;
    Quad p = q;
    p.d = results[r];
    if (has(p)) return *out = p, true;
    for (int which = 0; which < operands; ++which)
      for (uint32_t to : wider) {
        Quad t = p;
        uint32_t &slot = which == 0 ? t.a : which == 1 ? t.b : t.c;
        if (slot == to || !may_read_as(slot, to, floating)) continue;
        slot = to;
        if (has(t)) return *out = t, true;
      }
  }
  return false;
}

bool kernel_type(uint32_t t) {
  return t == SORN_U8 || t == SORN_S16 || t == SORN_S32 || t == SORN_F32;
}

bool floating3(uint32_t a, uint32_t b, uint32_t c) {
  return a == SORN_F32 || b == SORN_F32 || c == SORN_F32;
}

}  // namespace

/* ---------------- three arrays ---------------- */

SornStatus _T_sorna__mla_convert_src1(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                      int32_t n, const int32_t *dims, uint32_t dsttype, void *dst,
                                      const int32_t *dststrides, uint32_t atype, const void *a,
                                      const int32_t *astrides, uint32_t btype, const void *b,
                                      const int32_t *bstrides, uint32_t ctype, const void *c,
                                      const int32_t *cstrides, int32_t sf, uint32_t extra) {
  const MacFamily *f = family_of(tag);
  if (f == nullptr) return SORN_EINVAL;
  SornStatus st = SORN_OK;
  const SornArith3Kernel k = f->arrays(dsttype, T, btype, ctype, &st);
  if (st != SORN_OK) return st;
  const Leg out{dsttype, dsttype, dst, dststrides};
  const Leg src[3] = {
      {atype, T, a, astrides}, {btype, btype, b, bstrides}, {ctype, ctype, c, cstrides}};
  return through_tiles<3>(xe, flags, n, dims, out, src,
                          [&](const int32_t *tdims, void *d, const int32_t *ds,
                              const void *const *p, const int32_t *const *s) {
                            return k(xe, flags, n, tdims, d, ds, p[0], s[0], p[1], s[1], p[2], s[2],
                                     sf, extra);
                          });
}

SornStatus _T_sorna__mla_call_xmuladdq(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                       int32_t n, const int32_t *dims, uint32_t dsttype, void *dst,
                                       const int32_t *dststrides, uint32_t atype, const void *a,
                                       const int32_t *astrides, uint32_t btype, const void *b,
                                       const int32_t *bstrides, uint32_t ctype, const void *c,
                                       const int32_t *cstrides, int32_t sf, uint32_t extra) {
  return product_apart(tag, T, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides, sf,
                       extra, [&](const int32_t *tdims, int32_t y, void *tile, const int32_t *ts) {
                         return sorna__mul(
                             xe, flags, (SornDimPack)n, tdims, T, tile, ts, btype,
                             static_cast<const char *>(b) + (ptrdiff_t)y * bstrides[0], bstrides,
                             ctype, static_cast<const char *>(c) + (ptrdiff_t)y * cstrides[0],
                             cstrides, 0, extra);
                       });
}

namespace {

SornStatus dispatch_arrays3(const MacFamily &f, uint32_t tag, SornXE *xe, SornFlags flags,
                            SornDimPack pack, const int32_t *dims, uint32_t dsttype, void *dst,
                            const int32_t *dststrides, uint32_t atype, const void *a,
                            const int32_t *astrides, uint32_t btype, const void *b,
                            const int32_t *bstrides, uint32_t ctype, const void *c,
                            const int32_t *cstrides, int32_t sf, uint32_t extra) {
  // The product is commutative: the wider factor first, a float one before
  // an integer one of its size.
  if (wants_exchange_by_size(btype, ctype)) {
    std::swap(btype, ctype);
    std::swap(b, c);
    std::swap(bstrides, cstrides);
  }
  if (wants_exchange_by_float(btype, ctype)) {
    std::swap(btype, ctype);
    std::swap(b, c);
    std::swap(bstrides, cstrides);
  }
  Folded<4> fd;
  if (!fold_channels<4>(pack, dims, {dststrides, astrides, bstrides, cstrides}, &fd))
    return SORN_EINVAL;
  flags = with_channel_format(flags, (uint32_t)dims[fd.n - 1]);
  const int32_t n = fd.n;
  const int32_t *ds = fd.strides[0], *as = fd.strides[1], *bs = fd.strides[2], *cs = fd.strides[3];

  SornStatus st = SORN_OK;
  const SornArith3Kernel k = f.arrays(dsttype, atype, btype, ctype, &st);
  if (st == SORN_OK) return k(xe, flags, n, fd.dims, dst, ds, a, as, b, bs, c, cs, sf, extra);
  if (st != SORN_ENOTSUP) return st;

  // Every way below is built of kernels of these four types only; the
  // others are refused before anything is written.
  if (!kernel_type(dsttype) || !kernel_type(atype) || !kernel_type(btype) || !kernel_type(ctype))
    return SORN_ENOTSUP;
  const bool floating = floating3(atype, btype, ctype);
  Quad p;
  const auto has = [&](const Quad &q) {
    SornStatus s = SORN_OK;
    (void)f.arrays(q.d, q.a, q.b, q.c, &s);
    return s == SORN_OK;
  };
  // A float product with no kernel that is one conversion away runs with
  // all three operands in f32, which every destination has.
  if (find_quad({dsttype, atype, btype, ctype}, 3, floating, has, &p) ||
      (floating && has(p = {dsttype, SORN_F32, SORN_F32, SORN_F32}))) {
    const SornArith3Kernel pk = f.arrays(p.d, p.a, p.b, p.c, &st);
    const Leg out{p.d, dsttype, dst, ds};
    const Leg src[3] = {{atype, p.a, a, as}, {btype, p.b, b, bs}, {ctype, p.c, c, cs}};
    return through_tiles<3>(xe, flags, n, fd.dims, out, src,
                            [&](const int32_t *tdims, void *d, const int32_t *dss,
                                const void *const *q, const int32_t *const *s) {
                              return pk(xe, flags, n, tdims, d, dss, q[0], s[0], q[1], s[1], q[2],
                                        s[2], sf, extra);
                            });
  }

  // No fused form. A 4-byte destination that is not the first source takes
  // the product itself (as s32, or f32 for a float destination) and the
  // first source is joined to it in place.
  const uint32_t wide = floating ? SORN_F32 : SORN_S32;
  if (elem_size(dsttype) == 4 && a != dst) {
    const uint32_t as_type = (dsttype & 7u) >= 5u ? SORN_F32 : SORN_S32;
    st = sorna__mul(xe, flags, pack, fd.dims, as_type, dst, ds, btype, b, bs, ctype, c, cs, 0,
                    extra);
    if (st != SORN_OK) return st;
    return f.join(xe, flags, pack, fd.dims, dsttype, dst, ds, atype, a, as, as_type, dst, ds, sf,
                  extra);
  }
  return _T_sorna__mla_call_xmuladdq(wide, tag, xe, flags, n, fd.dims, dsttype, dst, ds, atype, a,
                                     as, btype, b, bs, ctype, c, cs, sf, extra);
}

/* ---------------- constants ---------------- */

// The type of the constants of a C form, fitted to b: b's own type when it
// holds them all, else s32; f32 for fractions and beside an f32 b.
uint32_t constant_type_for(uint32_t cls, uint32_t btype) {
  if (float_type(cls) || btype == SORN_F32) return SORN_F32;
  if (cls == kBigInt) return SORN_S32;
  if (cls == btype || cls == SORN_U8) return btype;
  return (cls == SORN_S16 && btype == SORN_S16) ? SORN_S16 : SORN_S32;
}

// The one type of a, c1 and c2 in a CC form: the widest of them, with f32
// above every integer.
uint32_t common_type(uint32_t x, uint32_t y) {
  const auto rank = [](uint32_t t) {
    return float_type(t) ? 3 : (t == SORN_S32 || t == kBigInt) ? 2 : t == SORN_S16 ? 1 : 0;
  };
  constexpr uint32_t kByRank[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  return kByRank[std::max(rank(x), rank(y))];
}

}  // namespace

// Shared by the C ways: a C kernel over the region through the legs, with
// the constants made a block of type T.
namespace {

SornStatus run_constant(const MacFamily &f, Quad p, SornXE *xe, SornFlags flags, int32_t n,
                        const int32_t *dims, uint32_t dsttype, void *dst, const int32_t *dststrides,
                        uint32_t atype, const void *a, const int32_t *astrides, uint32_t btype,
                        const void *b, const int32_t *bstrides, const double *cvec, int32_t sf,
                        uint32_t extra) {
  SornStatus st = SORN_OK;
  const SornArith3cKernel k = f.constant(p.d, p.a, p.b, p.c, &st);
  if (st != SORN_OK) return st;
  alignas(8) uint8_t block[64];
  st = sorn_mkifillvalv64(p.c, block, cvec, dims[n - 1]);
  if (st != SORN_OK) return st;
  const Leg out{p.d, dsttype, dst, dststrides};
  const Leg src[2] = {{atype, p.a, a, astrides}, {btype, p.b, b, bstrides}};
  return through_tiles<2>(xe, flags, n, dims, out, src,
                          [&](const int32_t *tdims, void *d, const int32_t *ds,
                              const void *const *q, const int32_t *const *s) {
                            return k(xe, flags, n, tdims, d, ds, q[0], s[0], q[1], s[1], block, sf,
                                     extra);
                          });
}

uint32_t constant_type(SornFlags flags, const double *cvec, int32_t n, const int32_t *dims,
                       uint32_t btype) {
  return constant_type_for(_T_sorna__get_elemtype_cn(flags, cvec, dims[n - 1]), btype);
}

// A named way of the C forms: the kernel of p through the tiles its types
// ask for.
SornStatus constant_way(uint32_t tag, Quad p, SornXE *xe, SornFlags flags, int32_t n,
                        const int32_t *dims, uint32_t dsttype, void *dst, const int32_t *dststrides,
                        uint32_t atype, const void *a, const int32_t *astrides, uint32_t btype,
                        const void *b, const int32_t *bstrides, const double *cvec, int32_t sf,
                        uint32_t extra) {
  const MacFamily *f = family_of(tag);
  if (f == nullptr) return SORN_EINVAL;
  return run_constant(*f, p, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides,
                      btype, b, bstrides, cvec, sf, extra);
}

}  // namespace

// The ways that take one operand through a tile of T: a converted to T
// before the kernel (src1), or the result formed in T and converted into
// the destination (dst).
#define SORN_MLAC_CONVERT_WAY(side, dtype, atype_)                                                \
  SornStatus _T_sorna__mlaC_convert_##side(                                                       \
      uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,      \
      uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t atype, const void *a,      \
      const int32_t *astrides, uint32_t btype, const void *b, const int32_t *bstrides,            \
      const double *cvec, int32_t sf, uint32_t extra) {                                           \
    const Quad p{dtype, atype_, btype, constant_type(flags, cvec, n, dims, btype)};               \
    return constant_way(tag, p, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides, \
                        btype, b, bstrides, cvec, sf, extra);                                     \
  }
SORN_MLAC_CONVERT_WAY(src1, dsttype, T)
SORN_MLAC_CONVERT_WAY(dst, T, atype)
#undef SORN_MLAC_CONVERT_WAY

SornStatus _T_sorna__mlaC_call_xmulCaddq(uint32_t T, uint32_t tag, SornXE *xe, SornFlags flags,
                                         int32_t n, const int32_t *dims, uint32_t dsttype,
                                         void *dst, const int32_t *dststrides, uint32_t atype,
                                         const void *a, const int32_t *astrides, uint32_t btype,
                                         const void *b, const int32_t *bstrides, const double *cvec,
                                         int32_t sf, uint32_t extra) {
  return product_apart(tag, T, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides, sf,
                       extra, [&](const int32_t *tdims, int32_t y, void *tile, const int32_t *ts) {
                         return sorna__mulC(
                             xe, flags, (SornDimPack)n, tdims, T, tile, ts, btype,
                             static_cast<const char *>(b) + (ptrdiff_t)y * bstrides[0], bstrides,
                             cvec, 0, extra);
                       });
}

namespace {

SornStatus dispatch_constant3(const MacFamily &f, uint32_t tag, SornXE *xe, SornFlags flags,
                              SornDimPack pack, const int32_t *dims, uint32_t dsttype, void *dst,
                              const int32_t *dststrides, uint32_t atype, const void *a,
                              const int32_t *astrides, uint32_t btype, const void *b,
                              const int32_t *bstrides, const double *cvec, int32_t sf,
                              uint32_t extra) {
  const int32_t n = constant_cells(pack, dims, &flags);
  if (n == 0) return SORN_EINVAL;
  const uint32_t t = constant_type(flags, cvec, n, dims, btype);
  const Quad q{dsttype, atype, btype, t};
  SornStatus st = SORN_OK;
  (void)f.constant(q.d, q.a, q.b, q.c, &st);
  if (st != SORN_ENOTSUP) {
    if (st != SORN_OK) return st;
    return run_constant(f, q, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides,
                        btype, b, bstrides, cvec, sf, extra);
  }
  if (!kernel_type(dsttype) || !kernel_type(atype) || !kernel_type(btype)) return SORN_ENOTSUP;
  const bool floating = floating3(atype, btype, t);
  const auto has = [&](const Quad &p) {
    SornStatus s = SORN_OK;
    (void)f.constant(p.d, p.a, p.b, p.c, &s);
    return s == SORN_OK;
  };
  Quad p;
  if (find_quad(q, 1, floating, has, &p) ||
      (floating && has(p = {dsttype, SORN_F32, SORN_F32, SORN_F32})))
    return run_constant(f, p, xe, flags, n, dims, dsttype, dst, dststrides, atype, a, astrides,
                        btype, b, bstrides, cvec, sf, extra);
  return _T_sorna__mlaC_call_xmulCaddq(floating ? SORN_F32 : SORN_S32, tag, xe, flags, n, dims,
                                       dsttype, dst, dststrides, atype, a, astrides, btype, b,
                                       bstrides, cvec, sf, extra);
}

SornStatus dispatch_constants2(const MacFamily &f, SornXE *xe, SornFlags flags, SornDimPack pack,
                               const int32_t *dims, uint32_t dsttype, void *dst,
                               const int32_t *dststrides, uint32_t atype, const void *a,
                               const int32_t *astrides, const double *c1vec, const double *c2vec,
                               int32_t sf, uint32_t extra) {
  const int32_t n = constant_cells(pack, dims, &flags);
  if (n == 0) return SORN_EINVAL;
  const int32_t nchan = dims[n - 1];
  if (!known_types(dsttype, atype)) return SORN_EINVAL;
  const uint32_t t = common_type(_T_sorna__get_elemtype_cn(flags, c1vec, nchan),
                                 _T_sorna__get_elemtype_cn(flags, c2vec, nchan));
  // a of a type without kernels stays refused; otherwise everything meets
  // in the widest of the three.
  const uint32_t u = kernel_type(atype) ? common_type(t, atype) : atype;
  SornStatus st = SORN_OK;
  const SornArith3ccKernel k = f.constants(dsttype, u, u, u, &st);
  if (st != SORN_OK) return st;
  alignas(8) uint8_t block1[64], block2[64];
  st = sorn_mkifillvalv64(u, block1, c1vec, nchan);
  if (st == SORN_OK) st = sorn_mkifillvalv64(u, block2, c2vec, nchan);
  if (st != SORN_OK) return st;
  const Leg out{dsttype, dsttype, dst, dststrides};
  const Leg src[1] = {{atype, u, a, astrides}};
  return through_tiles<1>(xe, flags, n, dims, out, src,
                          [&](const int32_t *tdims, void *d, const int32_t *ds,
                              const void *const *q, const int32_t *const *s) {
                            return k(xe, flags, n, tdims, d, ds, q[0], s[0], block1, block2, sf,
                                     extra);
                          });
}

}  // namespace

/* ---------------- the exported dispatchers ---------------- */

#define SORN_MAC_DISPATCHERS(op, fam, tag)                                                         \
  SornStatus sorna__##op(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,       \
                         uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t atype,   \
                         const void *a, const int32_t *astrides, uint32_t btype, const void *b,    \
                         const int32_t *bstrides, uint32_t ctype, const void *c,                   \
                         const int32_t *cstrides, int32_t sf, uint32_t extra) {                    \
    return dispatch_arrays3(fam, tag, xe, flags, pack, dims, dsttype, dst, dststrides, atype, a,   \
                            astrides, btype, b, bstrides, ctype, c, cstrides, sf, extra);          \
  }                                                                                                \
  SornStatus sorna__##op##C(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,    \
                            uint32_t dsttype, void *dst, const int32_t *dststrides,                \
                            uint32_t atype, const void *a, const int32_t *astrides,                \
                            uint32_t btype, const void *b, const int32_t *bstrides,                \
                            const double *cvec, int32_t sf, uint32_t extra) {                      \
    return dispatch_constant3(fam, tag, xe, flags, pack, dims, dsttype, dst, dststrides, atype, a, \
                              astrides, btype, b, bstrides, cvec, sf, extra);                      \
  }                                                                                                \
  SornStatus sorna__##op##CC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,   \
                             uint32_t dsttype, void *dst, const int32_t *dststrides,               \
                             uint32_t atype, const void *a, const int32_t *astrides,               \
                             const double *c1vec, const double *c2vec, int32_t sf,                 \
                             uint32_t extra) {                                                     \
    return dispatch_constants2(fam, xe, flags, pack, dims, dsttype, dst, dststrides, atype, a,     \
                               astrides, c1vec, c2vec, sf, extra);                                 \
  }
SORN_MAC_DISPATCHERS(mla, kSum, SORN_TAG_MLA)
SORN_MAC_DISPATCHERS(mls, kDifference, SORN_TAG_MLS)
#undef SORN_MAC_DISPATCHERS

// The reversed difference has no kernels: it is the difference, negated in
// place by the saturating negation, whose status does not count. A u8
// destination could only hold the negation's zero, and is refused.
namespace {

template <class Run>
SornStatus reversed(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                    uint32_t dsttype, void *dst, const int32_t *dststrides, Run difference) {
  if (dsttype == SORN_U8) return SORN_ENOTSUP;
  const SornStatus st = difference();
  if (st == SORN_OK)
    (void)sorna__negq(xe, flags, pack, dims, dsttype, dst, dststrides, dsttype, dst, dststrides, 0,
                      0);
  return st;
}

}  // namespace

SornStatus sorna__mlrs(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t atype,
                       const void *a, const int32_t *astrides, uint32_t btype, const void *b,
                       const int32_t *bstrides, uint32_t ctype, const void *c,
                       const int32_t *cstrides, int32_t sf, uint32_t extra) {
  return reversed(xe, flags, pack, dims, dsttype, dst, dststrides, [&] {
    return sorna__mls(xe, flags, pack, dims, dsttype, dst, dststrides, atype, a, astrides, btype, b,
                      bstrides, ctype, c, cstrides, sf, extra);
  });
}

SornStatus sorna__mlrsC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t atype,
                        const void *a, const int32_t *astrides, uint32_t btype, const void *b,
                        const int32_t *bstrides, const double *cvec, int32_t sf, uint32_t extra) {
  return reversed(xe, flags, pack, dims, dsttype, dst, dststrides, [&] {
    return sorna__mlsC(xe, flags, pack, dims, dsttype, dst, dststrides, atype, a, astrides, btype,
                       b, bstrides, cvec, sf, extra);
  });
}

SornStatus sorna__mlrsCC(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t dsttype, void *dst, const int32_t *dststrides, uint32_t atype,
                         const void *a, const int32_t *astrides, const double *c1vec,
                         const double *c2vec, int32_t sf, uint32_t extra) {
  return reversed(xe, flags, pack, dims, dsttype, dst, dststrides, [&] {
    return sorna__mlsCC(xe, flags, pack, dims, dsttype, dst, dststrides, atype, a, astrides, c1vec,
                        c2vec, sf, extra);
  });
}

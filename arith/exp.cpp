// The exponential, the natural logarithm and the sigmoid: f32 to f32, each
// element through one function chosen once per call by the accuracy flags.
// There are no kernels to look up; the dispatcher runs the rows itself, with
// the function inlined into the loop.
#include <sorn.h>

#include <cmath>

#include "arith/binary_dispatch.h"
#include "arith/expln.h"
#include "arith/kernel_rows.h"

using namespace sorn::arith;

float _T_sorna__exp_fast_acc(float x) { return exp_fast_acc(x); }
float _T_sorna__exp_fast(float x) { return exp_fast(x); }
float _T_sorna__exp_superfast(float x) { return exp_superfast(x); }
float _T_sorna__ln_fast_acc(float x) { return ln_fast_acc(x); }
float _T_sorna__ln_superfast(float x) { return ln_superfast(x); }

namespace {

enum class ExpForm { Accurate, Fast, Superfast };

// The accurate form unless asked otherwise; asking for it wins over the
// others, fast over superfast.
ExpForm exp_form(SornFlags flags) {
  if (flags & SORN_F_EXP_ACCURATE) return ExpForm::Accurate;
  if (flags & SORN_F_EXP_FAST) return ExpForm::Fast;
  if (flags & SORN_F_EXP_SUPERFAST) return ExpForm::Superfast;
  return ExpForm::Accurate;
}

// The logarithm has no fast form: superfast only when it is the one flag.
bool ln_superfast_wanted(SornFlags flags) {
  return (flags & SORN_F_EXP_SUPERFAST) && !(flags & (SORN_F_EXP_ACCURATE | SORN_F_EXP_FAST));
}

// Only f32 to f32 has a function; other known pairs are not supported.
SornStatus f32_pair(uint32_t dsttype, uint32_t atype) {
  if (dsttype == SORN_F32 && atype == SORN_F32) return SORN_OK;
  auto kernel_type = [](uint32_t t) {
    return t == SORN_U8 || t == SORN_S16 || t == SORN_S32 || t == SORN_F32;
  };
  return kernel_type(dsttype) && kernel_type(atype) ? SORN_ENOTSUP : SORN_EINVAL;
}

// Every element of every row through fn.
template <class Fn> void map_rows(const Folded<2> &f, void *dst, const void *src, Fn fn) {
  KernelRows r;
  if (!kernel_rows(f.n, f.dims, f.strides[0], f.strides[1], nullptr, 1, &r)) return;
  char *d = static_cast<char *>(dst);
  const char *a = static_cast<const char *>(src);
  for (int32_t y = 0; y < r.rows; ++y) {
    float *dr = reinterpret_cast<float *>(d);
    const float *ar = reinterpret_cast<const float *>(a);
    for (int32_t x = 0; x < r.len; ++x) dr[x] = fn(ar[x]);
    d += r.ds;
    a += r.as;
  }
}

// The steps every operation of this unit starts with: the fold and the
// type rule.
SornStatus prepare(SornDimPack pack, const int32_t *dims, const int32_t *dststrides,
                   const int32_t *astrides, uint32_t dsttype, uint32_t atype, Folded<2> *f) {
  if (!fold_channels<2>(pack, dims, {dststrides, astrides}, f)) return SORN_EINVAL;
  return f32_pair(dsttype, atype);
}

// The exponential of the sigmoid by the flags, taking its argument already
// multiplied by the slope. Its superfast form is the one with the opposite
// multiplier, exp(-x): the superfast sigmoid rises where the other two
// fall. That is how it has always been, and it stays.
template <class Arg>
void sigmoid_rows(SornFlags flags, const Folded<2> &f, void *dst, const void *src, Arg arg) {
  switch (exp_form(flags)) {
    case ExpForm::Accurate:
      map_rows(f, dst, src, [&](float x) { return 1.0f / (exp_fast_acc(arg(x)) + 1.0f); });
      break;
    case ExpForm::Fast:
      map_rows(f, dst, src, [&](float x) { return 1.0f / (exp_fast(arg(x)) + 1.0f); });
      break;
    case ExpForm::Superfast:
      map_rows(f, dst, src, [&](float x) { return 1.0f / (exp_superfast<true>(arg(x)) + 1.0f); });
      break;
  }
}

// The tolerance of the library's float comparisons.
constexpr double kTolerance = 1.1920928955078125e-7;

}  // namespace

SornStatus sorna__exp(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                      const void *aptr, const int32_t *astrides, int32_t sf, uint32_t extra) {
  (void)xe, (void)sf, (void)extra;
  Folded<2> f;
  const SornStatus st = prepare(pack, dims, dststrides, astrides, dsttype, atype, &f);
  if (st != SORN_OK) return st;
  switch (exp_form(flags)) {
    case ExpForm::Accurate:
      map_rows(f, dstptr, aptr, [](float x) { return exp_fast_acc(x); });
      break;
    case ExpForm::Fast: map_rows(f, dstptr, aptr, [](float x) { return exp_fast(x); }); break;
    case ExpForm::Superfast:
      map_rows(f, dstptr, aptr, [](float x) { return exp_superfast(x); });
      break;
  }
  return SORN_OK;
}

SornStatus sorna__ln(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                     uint32_t dsttype, void *dstptr, const int32_t *dststrides, uint32_t atype,
                     const void *aptr, const int32_t *astrides, int32_t sf, uint32_t extra) {
  (void)xe, (void)sf, (void)extra;
  Folded<2> f;
  const SornStatus st = prepare(pack, dims, dststrides, astrides, dsttype, atype, &f);
  if (st != SORN_OK) return st;
  if (ln_superfast_wanted(flags))
    map_rows(f, dstptr, aptr, [](float x) { return ln_superfast(x); });
  else
    map_rows(f, dstptr, aptr, [](float x) { return ln_fast_acc(x); });
  return SORN_OK;
}

namespace {

// sigmoid(x) and sigmoid(-x) differ only in the sign of the argument.
template <bool Negated>
SornStatus sigmoid_unit(SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t dsttype,
                        void *dstptr, const int32_t *dststrides, uint32_t atype, const void *aptr,
                        const int32_t *astrides) {
  Folded<2> f;
  const SornStatus st = prepare(pack, dims, dststrides, astrides, dsttype, atype, &f);
  if (st != SORN_OK) return st;
  sigmoid_rows(flags, f, dstptr, aptr, [](float x) { return Negated ? -x : x; });
  return SORN_OK;
}

}  // namespace

SornStatus sorna__sigmoid1(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                           uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                           uint32_t atype, const void *aptr, const int32_t *astrides, int32_t sf,
                           uint32_t extra) {
  (void)xe, (void)sf, (void)extra;
  return sigmoid_unit<false>(flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides);
}

SornStatus sorna__sigmoid_1(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                            uint32_t atype, const void *aptr, const int32_t *astrides, int32_t sf,
                            uint32_t extra) {
  (void)xe, (void)sf, (void)extra;
  return sigmoid_unit<true>(flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides);
}

SornStatus sorna__sigmoidalpha(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                               uint32_t dsttype, void *dstptr, const int32_t *dststrides,
                               uint32_t atype, const void *aptr, const int32_t *astrides,
                               const double *cvec, int32_t sf, uint32_t extra) {
  const int32_t n = constant_cells(pack, dims, &flags);
  if (n == 0) return SORN_EINVAL;
  const int32_t c = dims[n - 1] & 15;
  auto all = [&](auto near) {
    for (int32_t j = 0; j < c; ++j)
      if (!near(cvec[j])) return false;
    return true;
  };

  // No slope at all: the curve is flat at 1 / (1 + 1), and the region takes
  // that value without the source being read; an integer destination, which
  // has no 0.5, takes 1.
  if (c <= 0 || all([](double s) { return std::fabs(s) <= kTolerance; })) {
    const double v = (dsttype & 7u) < 5u ? 1.0 : 0.5;
    const double fvals[4] = {v, v, v, v};
    return sorna__fill(xe, flags, pack, dims, dsttype, dstptr, dststrides, fvals);
  }
  if (all([](double s) { return std::fabs(s - 1.0) <= kTolerance; })) {
    if (sorna__sigmoid1(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides,
                        sf, extra) == SORN_OK)
      return SORN_OK;
  }
  // Only the first slope is looked at here.
  if (std::fabs(cvec[0] + 1.0) <= kTolerance) {
    if (sorna__sigmoid_1(xe, flags, pack, dims, dsttype, dstptr, dststrides, atype, aptr, astrides,
                         sf, extra) == SORN_OK)
      return SORN_OK;
  }
  // One slope for all channels, or none.
  const double s0 = cvec[0];
  if (c > 1 && !all([s0](double s) { return std::fabs(s - s0) <= kTolerance; }))
    return SORN_ENOTSUP;
  Folded<2> f;
  const SornStatus st = prepare(pack, dims, dststrides, astrides, dsttype, atype, &f);
  if (st != SORN_OK) return st;
  const float alpha = (float)s0;
  sigmoid_rows(flags, f, dstptr, aptr, [alpha](float x) { return alpha * x; });
  return SORN_OK;
}

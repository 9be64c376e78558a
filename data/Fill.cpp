// Setting a region to a value: the public entries with and without a mask,
// their slice callbacks for 4-dimensional arrays, and the loops. The value is
// turned into a fill vector once per call; the loops only move its words.
#include <sorn.h>

#include <cstring>
#include <type_traits>
#include <utility>

#include "core/entry.h"
#include "core/rows.h"

using sorn::Rows;

namespace {

// The arguments a masked fill carries through the frame. The first word is
// the choice of mask form: 0 for the pixel mask, anything else for the
// element mask.
struct MaskedArgs {
  uint64_t choice;
  const double *fvals1;
  const double *fvals2;
  int32_t two;  // SornFillEx2: two values
};

// Per-element rules of the masked fills. T is the unsigned integer of the
// element's width: elements are moved as bits, floats included.
// The pixel mask: selected pixels take v1.
struct PixelRule {
  static constexpr bool per_element = false;
  template <class T> static T apply(T cur, uint8_t m, uint8_t skip, T v1, T) {
    return m != skip ? v1 : cur;
  }
};
// The pixel mask with two values: a byte other than 0 takes v1, 0 takes v2.
struct PixelRule2 {
  static constexpr bool per_element = false;
  template <class T> static T apply(T, uint8_t m, uint8_t, T v1, T v2) { return m != 0 ? v1 : v2; }
};
// The element mask: the mask byte, sign-extended to the element, selects
// bits; so a byte of 1 takes only the lowest bit of the value. That is the
// rule, not an accident.
template <class T> T widen(uint8_t m) { return (T)(typename std::make_signed<T>::type)(int8_t)m; }
struct ElemRule {
  static constexpr bool per_element = true;
  template <class T> static T apply(T cur, uint8_t m, uint8_t, T v1, T) {
    const T mm = widen<T>(m);
    return (T)((mm & v1) | (~mm & cur));
  }
};
struct ElemRuleC {
  static constexpr bool per_element = true;
  template <class T> static T apply(T cur, uint8_t m, uint8_t, T v1, T) {
    const T mm = widen<T>(m);
    return (T)((~mm & v1) | (mm & cur));
  }
};
struct ElemRule2 {
  static constexpr bool per_element = true;
  template <class T> static T apply(T, uint8_t m, uint8_t, T v1, T v2) {
    const T mm = widen<T>(m);
    return (T)((mm & v1) | (~mm & v2));
  }
};

// One loop for every masked fill: C channels of elements of type T, pixels
// ps elements apart, mask bytes mps apart (and mes apart within a pixel for
// the element mask).
template <class Rule, class T, int C>
void masked_rows(const Rows &w, char *d, int32_t ps, const uint8_t *m, int32_t mps, int32_t mes,
                 const T *v1, const T *v2, uint8_t skip) {
  T a[C], b[C];
  for (int c = 0; c < C; ++c) {
    a[c] = v1[c];
    b[c] = v2[c];
  }
  constexpr bool pe = Rule::per_element;
  const int32_t me = pe ? mes : 0;
  const bool dense = ps == C && (pe ? (mes == 1 && mps == C) : mps == 1);
  for (int32_t y = 0; y < w.rows; ++y) {
    T *dr = reinterpret_cast<T *>(d);
    if (dense) {
      // The same rule on constant steps, which the compiler can vectorise.
      for (int32_t x = 0; x < w.cols; ++x)
        for (int c = 0; c < C; ++c)
          dr[x * C + c] = Rule::apply(dr[x * C + c], m[pe ? x * C + c : x], skip, a[c], b[c]);
    } else {
      for (int32_t x = 0; x < w.cols; ++x)
        for (int c = 0; c < C; ++c)
          dr[(ptrdiff_t)x * ps + c] =
              Rule::apply(dr[(ptrdiff_t)x * ps + c], m[(ptrdiff_t)x * mps + (ptrdiff_t)c * me],
                          skip, a[c], b[c]);
    }
    d += w.step;
    m += w.mstep;
  }
}

template <class Rule, class T>
SornStatus masked_by_channels(int32_t c, const Rows &w, char *d, int32_t ps, const uint8_t *m,
                              int32_t mps, int32_t mes, const void *v1, const void *v2,
                              uint8_t skip) {
  const T *a = static_cast<const T *>(v1);
  const T *b = static_cast<const T *>(v2);
  switch (c) {
    case 1: masked_rows<Rule, T, 1>(w, d, ps, m, mps, mes, a, b, skip); return SORN_OK;
    case 2: masked_rows<Rule, T, 2>(w, d, ps, m, mps, mes, a, b, skip); return SORN_OK;
    case 3: masked_rows<Rule, T, 3>(w, d, ps, m, mps, mes, a, b, skip); return SORN_OK;
    case 4: masked_rows<Rule, T, 4>(w, d, ps, m, mps, mes, a, b, skip); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

// The element size comes from the last stride cell, the channel count from
// the last dims cell.
template <class Rule>
SornStatus masked_fill(SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                       const int32_t *strides, const void *mask, const int32_t *mstrides,
                       const void *v1, const void *v2) {
  if (n < 2) return SORN_EINVAL;
  const int32_t c = dims[n - 1];
  const int32_t es = strides[n - 1];
  if (c < 1 || c > 4) return SORN_EINVAL;
  if (es != 1 && es != 2 && es != 4) return SORN_EINVAL;
  if (strides[n - 2] % es != 0) return SORN_EINVAL;
  Rows w = sorn::rows_of(n, dims, strides, mstrides);
  sorn::merge_dense(w, n, strides, mstrides);
  if (w.rows < 1 || w.cols < 1) return SORN_OK;
  const int32_t ps = strides[n - 2] / es;
  const int32_t mps = mstrides[n - 2];
  const int32_t mes = mstrides[n - 1];
  const uint8_t skip = (flags & SORN_F_INVMASK) ? 255 : 0;
  char *d = static_cast<char *>(dst);
  const uint8_t *m = static_cast<const uint8_t *>(mask);
  switch (es) {
    case 1: return masked_by_channels<Rule, uint8_t>(c, w, d, ps, m, mps, mes, v1, v2, skip);
    case 2: return masked_by_channels<Rule, uint16_t>(c, w, d, ps, m, mps, mes, v1, v2, skip);
    default: return masked_by_channels<Rule, uint32_t>(c, w, d, ps, m, mps, mes, v1, v2, skip);
  }
}

const double kZeros[4] = {0, 0, 0, 0};

// The vector of a value; the status is not looked at, as callers come with
// types that the rest of the library has accepted. A type without a vector
// leaves it as it was made here: zero bytes.
void make_vector(uint32_t type, uint32_t *vec, const double *fvals, int32_t nchan) {
  std::memset(vec, 0, 16);
  (void)sorn_mkifillvalv16(type, vec, fvals ? fvals : kZeros, nchan);
}

// What the two-valued forms do with the values they were given. Returns
// true when a single-valued masked fill is enough, with its value and flags.
bool single_of_two(uint32_t type, int32_t nchan, SornFlags *flags, const double **fvals1,
                   const double **fvals2, double *hi, double *lo) {
  if ((*fvals1 == nullptr) != (*fvals2 == nullptr)) {
    if (*fvals1 == nullptr) {
      // Only the unselected pixels get a value: the inverse mask.
      *flags ^= SORN_F_INVMASK;
      *fvals1 = *fvals2;
    }
    return true;
  }
  if (*fvals1 == nullptr) {
    for (int32_t k = 0; k < 4; ++k) hi[k] = lo[k] = 0.0;
    (void)sorn_defillvals(type, hi, lo, nchan > 4 ? 4 : nchan);
    *fvals1 = hi;
    *fvals2 = lo;
  }
  return false;
}

}  // namespace

/* ---------------- the loops ---------------- */

SornStatus sorna__dofill(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                         const int32_t *strides, const void *vector) {
  (void)xe;
  (void)flags;
  if (n < 2) return SORN_EINVAL;
  int32_t rows = 1, step = 0;
  if (n >= 3) {
    rows = dims[n - 3];
    step = strides[n - 3];
  }
  const int32_t cols = dims[n - 2];
  if (rows < 1 || cols < 1) return SORN_OK;
  const size_t bytes = (size_t)cols * (size_t)strides[n - 2];
  C_sorn_bfill2d(dst, step, rows, bytes, dims[n - 1], vector);
  return SORN_OK;
}

SornStatus sorna__dofillxm(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                           const int32_t *strides, const void *mask, const int32_t *mstrides,
                           const void *vector) {
  (void)xe;
  return masked_fill<PixelRule>(flags, n, dims, dst, strides, mask, mstrides, vector, vector);
}

SornStatus sorna__dofillxm2(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                            const int32_t *strides, const void *mask, const int32_t *mstrides,
                            const void *vector1, const void *vector2) {
  (void)xe;
  if (flags & SORN_F_INVMASK) std::swap(vector1, vector2);
  return masked_fill<PixelRule2>(flags, n, dims, dst, strides, mask, mstrides, vector1, vector2);
}

SornStatus _T_sorna__dofillem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                              void *dst, const int32_t *strides, const void *mask,
                              const int32_t *mstrides, const void *vector) {
  (void)xe;
  return masked_fill<ElemRule>(flags, n, dims, dst, strides, mask, mstrides, vector, vector);
}

SornStatus _T_sorna__dofillemc(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims,
                               void *dst, const int32_t *strides, const void *mask,
                               const int32_t *mstrides, const void *vector) {
  (void)xe;
  return masked_fill<ElemRuleC>(flags, n, dims, dst, strides, mask, mstrides, vector, vector);
}

SornStatus sorna__dofillem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                           const int32_t *strides, const void *mask, const int32_t *mstrides,
                           const void *vector) {
  if (flags & SORN_F_INVMASK)
    return _T_sorna__dofillemc(xe, flags, n, dims, dst, strides, mask, mstrides, vector);
  return _T_sorna__dofillem(xe, flags, n, dims, dst, strides, mask, mstrides, vector);
}

SornStatus sorna__dofillem2(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                            const int32_t *strides, const void *mask, const int32_t *mstrides,
                            const void *vector1, const void *vector2) {
  (void)xe;
  if (flags & SORN_F_INVMASK) std::swap(vector1, vector2);
  return masked_fill<ElemRule2>(flags, n, dims, dst, strides, mask, mstrides, vector1, vector2);
}

/* ---------------- layer 3 ---------------- */

SornStatus sorna__fill(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, void *dst, const int32_t *strides, const double *fvals) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides);
  if (s.n < 2) return SORN_EINVAL;
  uint32_t vec[4];
  make_vector(type, vec, fvals, s.dims[s.n - 1]);
  return sorna__dofill(xe, flags, s.n, s.dims, dst, s.strides, vec);
}

namespace {

// The masked fills have one shape for the pixel mask (xm) and the element
// mask (em), each with one value and with two; only their loops differ.
template <auto Loop>
SornStatus masked(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,
                  void *dst, const int32_t *strides, const void *mask, const int32_t *mstrides,
                  const double *fvals) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  uint32_t vec[4];
  make_vector(type, vec, fvals, s.dims[s.n - 1]);
  return Loop(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, vec);
}

template <auto Loop2, auto Single>
SornStatus masked2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                   uint32_t type, void *dst, const int32_t *strides, const void *mask,
                   const int32_t *mstrides, const double *fvals1, const double *fvals2) {
  const sorn::Inner s = sorn::inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  const int32_t nchan = s.dims[s.n - 1];
  double hi[4], lo[4];
  if (single_of_two(type, nchan, &flags, &fvals1, &fvals2, hi, lo))
    return Single(xe, flags, pack, dims, type, dst, strides, mask, mstrides, fvals1);
  uint32_t v1[4], v2[4];
  make_vector(type, v1, fvals1, nchan);
  make_vector(type, v2, fvals2, nchan);
  return Loop2(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, v1, v2);
}

// Layer 2 of a masked fill: both bases moved to their origins.
template <auto Dispatch, class... Values>
SornStatus masked_layer2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                         const void *mbase, const int32_t *morigin, const int32_t *mstrides,
                         Values... values) {
  return Dispatch(xe, flags, pack, dims, type, sorn::at_origin(base, pack, origin, strides),
                  strides, sorn::at_origin(mbase, pack, morigin, mstrides), mstrides, values...);
}

}  // namespace

// Layers 3 and 2 of the masked fills of one form.
#define SORN_FILL_MASKED(form)                                                                     \
  SornStatus sorna__fill##form(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, \
                               uint32_t type, void *dst, const int32_t *strides, const void *mask, \
                               const int32_t *mstrides, const double *fvals) {                     \
    return masked<&sorna__dofill##form>(xe, flags, pack, dims, type, dst, strides, mask, mstrides, \
                                        fvals);                                                    \
  }                                                                                                \
  SornStatus sorna__fill##form##2(                                                                 \
      SornXE * xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,          \
      void *dst, const int32_t *strides, const void *mask, const int32_t *mstrides,                \
      const double *fvals1, const double *fvals2) {                                                \
    return masked2<&sorna__dofill##form##2, &sorna__fill##form>(                                   \
        xe, flags, pack, dims, type, dst, strides, mask, mstrides, fvals1, fvals2);                \
  }                                                                                                \
  SornStatus sorna_fill##form(                                                                     \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,           \
      void *base, const int32_t *origin, const int32_t *strides, uint32_t mtype,                   \
      const void *mbase, const int32_t *morigin, const int32_t *mstrides, const double *fvals) {   \
    (void)mtype;                                                                                   \
    return masked_layer2<&sorna__fill##form>(xe, flags, pack, dims, type, base, origin, strides,   \
                                             mbase, morigin, mstrides, fvals);                     \
  }                                                                                                \
  SornStatus sorna_fill##form##2(                                                                  \
      SornXE * xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,          \
      void *base, const int32_t *origin, const int32_t *strides, uint32_t mtype,                   \
      const void *mbase, const int32_t *morigin, const int32_t *mstrides, const double *fvals1,    \
      const double *fvals2) {                                                                      \
    (void)mtype;                                                                                   \
    return masked_layer2<&sorna__fill##form##2>(xe, flags, pack, dims, type, base, origin,         \
                                                strides, mbase, morigin, mstrides, fvals1,         \
                                                fvals2);                                           \
  }

SORN_FILL_MASKED(xm)
SORN_FILL_MASKED(em)

/* ---------------- layer 2 and the slice forms ---------------- */

SornStatus sorna_fill(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                      const double *fvals) {
  return sorna__fill(xe, flags, pack, dims, type, sorn::at_origin(base, pack, origin, strides),
                     strides, fvals);
}

SornStatus SornTGAfill(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0) {
  return sorna_fill(xe, flags, pack, dims, type0, base0, origin0, strides0,
                    static_cast<const double *>(data));
}

SornStatus SornTGAfillEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                         uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  if (type1 != SORN_U8) return SORN_EINVAL;
  const MaskedArgs *args = static_cast<const MaskedArgs *>(data);
  if (args->choice == 0) {
    if (args->two)
      return sorna_fillxm2(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                           origin1, strides1, args->fvals1, args->fvals2);
    return sorna_fillxm(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                        origin1, strides1, args->fvals1);
  }
  flags &= ~(SornFlags)SORN_F_ELEMMASK;
  if (args->two)
    return sorna_fillem2(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1,
                         origin1, strides1, args->fvals1, args->fvals2);
  return sorna_fillem(xe, flags, pack, dims, type0, base0, origin0, strides0, type1, base1, origin1,
                      strides1, args->fvals1);
}

/* ---------------- entries ---------------- */

namespace {

SornStatus masked_entry(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                        const SornVolume *dstRoi, const SornVolume *maskSite, MaskedArgs *args) {
  if (!sorn::good_image(dst) || !sorn::fits_image(mask, dst, sorn::Channels::OneOrSame))
    return SORN_EINVAL;
  SornVolume rd, rm;
  if (!sorn::negotiate(dst, mask, dstRoi, maskSite, &rd, &rm)) return SORN_ENOSPC;
  sorn::whole_pixels(&rd, dst);
  sorn::whole_pixels(&rm, mask);
  sorn::Operand d(dst, rd), m(mask, rm);
  // A single mask plane serves every plane of the image.
  if (mask->dims[0] == 1) m.strides[0] = 0;
  const int32_t mch = sorn::channels_of(mask->dims[3]);
  args->choice = mch == 1 ? (uint64_t)(flags & SORN_F_ELEMMASK) : 1u;
  // One mask byte serves all elements of a pixel when the mask has a single
  // channel and is taken as an element mask.
  if (mch == 1) m.strides[3] = 0;
  return sorn::run({xe, flags, SORN_TAG_FILX, args, sorn::kKeepRow}, &SornTGAfillEx, d, m);
}

}  // namespace

SornStatus SornFill(SornXE *xe, SornFlags flags, const SornArray *dst, const SornVolume *dstRoi,
                    const double *fvals) {
  if (!sorn::good_image(dst)) return SORN_EINVAL;
  SornVolume roi;
  if (!sorn::region_of(dst, dstRoi, &roi)) return SORN_ENOSPC;
  sorn::whole_pixels(&roi, dst);
  sorn::Operand d(dst, roi);
  return sorn::run({xe, flags, SORN_TAG_FILL, const_cast<double *>(fvals), sorn::kKeepRow},
                   &SornTGAfill, d);
}

SornStatus SornFillEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                      const SornVolume *dstRoi, const SornVolume *maskSite, const double *fvals) {
  if (mask == nullptr) return SornFill(xe, flags, dst, dstRoi, fvals);
  MaskedArgs args{0, fvals, nullptr, 0};
  return masked_entry(xe, flags, dst, mask, dstRoi, maskSite, &args);
}

SornStatus SornFillEx2(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                       const SornVolume *dstRoi, const SornVolume *maskSite, const double *fvals1,
                       const double *fvals2) {
  if (mask == nullptr) return SornFill(xe, flags, dst, dstRoi, fvals1);
  MaskedArgs args{0, fvals1, fvals2, 1};
  return masked_entry(xe, flags, dst, mask, dstRoi, maskSite, &args);
}

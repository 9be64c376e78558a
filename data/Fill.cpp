// Setting a region to a value: the public entries with and without a mask,
// their slice callbacks for 4-dimensional arrays, and the loops. The value is
// turned into a fill vector once per call; the loops only move its words.
#include <sorn.h>

#include <cstring>
#include <type_traits>
#include <utility>

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

bool bad_image(const SornArray *a) {
  if (a == nullptr) return true;
  if (a->ndims != 3 && a->ndims != 4) return true;
  if (a->dims[0] < 1) return true;
  const int32_t c = SORN_CHANNELS(a->dims[3]);
  return c < 1 || c > 4;
}

// A mask against its image: same rank, or rank 3 under rank 4; the same
// outermost extent or 1; one channel or those of the image. The element type
// is the slice callback's to check.
bool bad_mask(const SornArray *dst, const SornArray *mask) {
  if (mask->ndims != dst->ndims && !(mask->ndims == 3 && dst->ndims == 4)) return true;
  if (mask->dims[0] != dst->dims[0] && mask->dims[0] != 1) return true;
  const int32_t mc = SORN_CHANNELS(mask->dims[3]);
  return mc != 1 && mc != SORN_CHANNELS(dst->dims[3]);
}

// Layers 2 to 4 look at the last three cells only: an outer dimension that
// the frame could not merge leaves the first plane to be worked.
struct Inner {
  int32_t n;
  const int32_t *dims;
  const int32_t *strides;
  const int32_t *mstrides;
};
Inner inner3(SornDimPack pack, const int32_t *dims, const int32_t *strides,
             const int32_t *mstrides) {
  int32_t n = (int32_t)(pack & 15u);
  if (n > 3) {
    dims += n - 3;
    strides += n - 3;
    if (mstrides) mstrides += n - 3;
    n = 3;
  }
  return {n, dims, strides, mstrides};
}

// Rows, row length in pixels and row steps of a call; dense rows of both
// arrays become one long row.
struct Walk {
  int32_t rows, cols;
  ptrdiff_t dstep, mstep;
};
Walk walk_of(int32_t n, const int32_t *dims, const int32_t *strides, const int32_t *mstrides) {
  Walk w{1, dims[n - 2], 0, 0};
  if (n >= 3) {
    w.rows = dims[n - 3];
    w.dstep = strides[n - 3];
    w.mstep = mstrides ? mstrides[n - 3] : 0;
  }
  if (w.rows < 0) w.rows = 0;
  if (w.cols < 0) w.cols = 0;
  if (w.rows > 1 && w.dstep == (ptrdiff_t)w.cols * strides[n - 2] &&
      (!mstrides || w.mstep == (ptrdiff_t)w.cols * mstrides[n - 2])) {
    w.cols *= w.rows;
    w.rows = 1;
  }
  return w;
}

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
void masked_rows(const Walk &w, char *d, int32_t ps, const uint8_t *m, int32_t mps, int32_t mes,
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
    d += w.dstep;
    m += w.mstep;
  }
}

template <class Rule, class T>
SornStatus masked_by_channels(int32_t c, const Walk &w, char *d, int32_t ps, const uint8_t *m,
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
  const Walk w = walk_of(n, dims, strides, mstrides);
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
  const Inner s = inner3(pack, dims, strides, nullptr);
  if (s.n < 2) return SORN_EINVAL;
  uint32_t vec[4];
  make_vector(type, vec, fvals, s.dims[s.n - 1]);
  return sorna__dofill(xe, flags, s.n, s.dims, dst, s.strides, vec);
}

SornStatus sorna__fillxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *strides, const void *mask,
                         const int32_t *mstrides, const double *fvals) {
  const Inner s = inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  uint32_t vec[4];
  make_vector(type, vec, fvals, s.dims[s.n - 1]);
  return sorna__dofillxm(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, vec);
}

SornStatus sorna__fillem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *strides, const void *mask,
                         const int32_t *mstrides, const double *fvals) {
  const Inner s = inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  uint32_t vec[4];
  make_vector(type, vec, fvals, s.dims[s.n - 1]);
  return sorna__dofillem(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, vec);
}

SornStatus sorna__fillxm2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *strides, const void *mask,
                          const int32_t *mstrides, const double *fvals1, const double *fvals2) {
  const Inner s = inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  const int32_t nchan = s.dims[s.n - 1];
  double hi[4], lo[4];
  if (single_of_two(type, nchan, &flags, &fvals1, &fvals2, hi, lo))
    return sorna__fillxm(xe, flags, pack, dims, type, dst, strides, mask, mstrides, fvals1);
  uint32_t v1[4], v2[4];
  make_vector(type, v1, fvals1, nchan);
  make_vector(type, v2, fvals2, nchan);
  return sorna__dofillxm2(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, v1, v2);
}

SornStatus sorna__fillem2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                          uint32_t type, void *dst, const int32_t *strides, const void *mask,
                          const int32_t *mstrides, const double *fvals1, const double *fvals2) {
  const Inner s = inner3(pack, dims, strides, mstrides);
  if (s.n < 2) return SORN_EINVAL;
  const int32_t nchan = s.dims[s.n - 1];
  double hi[4], lo[4];
  if (single_of_two(type, nchan, &flags, &fvals1, &fvals2, hi, lo))
    return sorna__fillem(xe, flags, pack, dims, type, dst, strides, mask, mstrides, fvals1);
  uint32_t v1[4], v2[4];
  make_vector(type, v1, fvals1, nchan);
  make_vector(type, v2, fvals2, nchan);
  return sorna__dofillem2(xe, flags, s.n, s.dims, dst, s.strides, mask, s.mstrides, v1, v2);
}

/* ---------------- layer 2 ---------------- */

namespace {

void *at(void *base, SornDimPack pack, const int32_t *origin, const int32_t *strides) {
  return sorn_advance_ptr(base, sorn_vec_mkloff_$LS(pack, origin, strides));
}

}  // namespace

SornStatus sorna_fill(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                      const double *fvals) {
  return sorna__fill(xe, flags, pack, dims, type, at(base, pack, origin, strides), strides, fvals);
}

SornStatus sorna_fillxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                        uint32_t mtype, const void *mbase, const int32_t *morigin,
                        const int32_t *mstrides, const double *fvals) {
  (void)mtype;
  const void *m = at(const_cast<void *>(mbase), pack, morigin, mstrides);
  return sorna__fillxm(xe, flags, pack, dims, type, at(base, pack, origin, strides), strides, m,
                       mstrides, fvals);
}

SornStatus sorna_fillem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                        uint32_t mtype, const void *mbase, const int32_t *morigin,
                        const int32_t *mstrides, const double *fvals) {
  (void)mtype;
  const void *m = at(const_cast<void *>(mbase), pack, morigin, mstrides);
  return sorna__fillem(xe, flags, pack, dims, type, at(base, pack, origin, strides), strides, m,
                       mstrides, fvals);
}

SornStatus sorna_fillxm2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                         uint32_t mtype, const void *mbase, const int32_t *morigin,
                         const int32_t *mstrides, const double *fvals1, const double *fvals2) {
  (void)mtype;
  const void *m = at(const_cast<void *>(mbase), pack, morigin, mstrides);
  return sorna__fillxm2(xe, flags, pack, dims, type, at(base, pack, origin, strides), strides, m,
                        mstrides, fvals1, fvals2);
}

SornStatus sorna_fillem2(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *base, const int32_t *origin, const int32_t *strides,
                         uint32_t mtype, const void *mbase, const int32_t *morigin,
                         const int32_t *mstrides, const double *fvals1, const double *fvals2) {
  (void)mtype;
  const void *m = at(const_cast<void *>(mbase), pack, morigin, mstrides);
  return sorna__fillem2(xe, flags, pack, dims, type, at(base, pack, origin, strides), strides, m,
                        mstrides, fvals1, fvals2);
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

struct Operand {
  SornVolume roi;
  int32_t strides[4];
  void *base;
};

// The frame folds an outer origin into the next cell as a coordinate, which
// is exact only for a zero origin: through the frame the operands' starts go
// into their base pointers and the origins stay zero.
void origin_into_base(Operand *op) {
  op->base = sorn_advance_ptr(op->base, sorn_vec_mkloff(4, op->roi.origin, op->strides));
  std::memset(op->roi.origin, 0, sizeof op->roi.origin);
}

void take(const SornArray *a, Operand *op) {
  std::memcpy(op->strides, a->strides, sizeof op->strides);
  op->base = a->data;
  // From here on origins count from data, not from the site.
  sorn_vec_update_$loff(4, op->roi.origin, a->strides, (int32_t)a->offset);
}

SornStatus masked_entry(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *mask,
                        const SornVolume *dstRoi, const SornVolume *maskSite, MaskedArgs *args) {
  if (bad_image(dst)) return SORN_EINVAL;
  if (bad_mask(dst, mask)) return SORN_EINVAL;
  Operand d, m;
  if (!sorn_arr_negotiateRoi(dst, mask, &d.roi, &m.roi, dstRoi, maskSite, 3)) return SORN_ENOSPC;
  const int32_t dch = SORN_CHANNELS(dst->dims[3]), mch = SORN_CHANNELS(mask->dims[3]);
  d.roi.size[3] = dch;
  m.roi.size[3] = mch;
  d.roi.origin[3] = m.roi.origin[3] = 0;
  take(dst, &d);
  take(mask, &m);
  // A single mask plane serves every plane of the image.
  if (mask->dims[0] == 1) m.strides[0] = 0;
  args->choice = mch == 1 ? (uint64_t)(flags & SORN_F_ELEMMASK) : 1u;
  // One mask byte serves all elements of a pixel when the mask has a single
  // channel and is taken as an element mask.
  if (mch == 1) m.strides[3] = 0;

  const int32_t nd = dst->ndims;
  const int32_t c = 4 - nd;
  const SornDimPack dp = SORN_DIMPACK(nd);
  if (nd == 3)
    return SornTGAfillEx(xe, flags, args, dp, &d.roi.size[c], dst->elemtype, dst->data,
                         &d.roi.origin[c], &d.strides[c], mask->elemtype, mask->data,
                         &m.roi.origin[c], &m.strides[c]);
  origin_into_base(&d);
  origin_into_base(&m);
  SornPack pack;
  return sorna_call(sorna_mappackL(&pack, SORN_TAG_FILX,
                                   (SornSliceProc)(void (*)(void))SornTGAfillEx, xe, flags, args,
                                   dp, 2, d.roi.size, dst->elemtype, d.base, d.roi.origin,
                                   d.strides, mask->elemtype, m.base, m.roi.origin, m.strides));
}

}  // namespace

SornStatus SornFill(SornXE *xe, SornFlags flags, const SornArray *dst, const SornVolume *dstRoi,
                    const double *fvals) {
  if (bad_image(dst)) return SORN_EINVAL;
  Operand d;
  sorn_arr_adjorgetRoi(dst, &d.roi, dstRoi);
  if (sorn_volume__empty(3, d.roi.size)) return SORN_ENOSPC;
  d.roi.size[3] = SORN_CHANNELS(dst->dims[3]);
  d.roi.origin[3] = 0;
  take(dst, &d);
  const int32_t nd = dst->ndims;
  const int32_t c = 4 - nd;
  const SornDimPack dp = SORN_DIMPACK(nd);
  if (nd == 3)
    return sorna_fill(xe, flags, dp, &d.roi.size[c], dst->elemtype, dst->data, &d.roi.origin[c],
                      &d.strides[c], fvals);
  origin_into_base(&d);
  SornPack pack;
  return sorna_call(sorna_genpackL(&pack, SORN_TAG_FILL, (SornSliceProc)(void (*)(void))SornTGAfill,
                                   xe, flags, const_cast<double *>(fvals), dp, 2, d.roi.size,
                                   dst->elemtype, d.base, d.roi.origin, d.strides));
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

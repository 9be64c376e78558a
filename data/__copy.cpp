// The masked copy loops. The element mask selects bits: its byte,
// sign-extended to the element's width, is a bit mask, so any byte is
// legal and partial bytes copy partial elements. The pixel mask selects
// whole pixels. Elements are moved as bits of their width, floats included.
#include <sorn.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "core/dispatch.h"
#include "core/rows.h"

namespace sorn::data {
namespace {

// The mask byte as a mask of an element of type U (unsigned).
template <class U> U widen(uint8_t m) { return (U)(typename std::make_signed<U>::type)(int8_t)m; }

// Takes the source's bits where the mask has ones; the inverse form where
// it has zeros.
struct FromSource {
  template <class U> static U apply(U d, U s, U m) { return (U)((m & s) | (~m & d)); }
};
struct FromSourceInverse {
  template <class U> static U apply(U d, U s, U m) { return (U)((~m & s) | (m & d)); }
};

// Rows of C elements per pixel (0: c at run time), pixel steps and the
// mask's steps in elements and bytes.
template <class Rule, class U>
void em_rows(const Rows &r, int32_t c, uint8_t *d, int32_t dps, const uint8_t *s, ptrdiff_t sstep,
             int32_t sps, const uint8_t *m, int32_t mps, int32_t mes) {
  const bool dense = dps == c && sps == c && mes == 1 && mps == c;
  for (int32_t y = 0; y < r.rows; ++y) {
    U *__restrict dr = reinterpret_cast<U *>(d);
    const U *__restrict sr = reinterpret_cast<const U *>(s);
    const uint8_t *__restrict mr = m;
    if (dense) {
      const int32_t n = r.cols * c;
      for (int32_t i = 0; i < n; ++i) dr[i] = Rule::apply(dr[i], sr[i], widen<U>(mr[i]));
    } else {
      for (int32_t x = 0; x < r.cols; ++x)
        for (int32_t k = 0; k < c; ++k) {
          U &e = dr[(ptrdiff_t)x * dps + k];
          e = Rule::apply(e, sr[(ptrdiff_t)x * sps + k],
                          widen<U>(mr[(ptrdiff_t)x * mps + (ptrdiff_t)k * mes]));
        }
    }
    d += r.step;
    s += sstep;
    m += r.mstep;
  }
}

// Whole pixels of C elements where the mask byte is not the skip value.
template <class U, int C>
void xm_rows(const Rows &r, uint8_t *d, int32_t dps, const uint8_t *s, ptrdiff_t sstep, int32_t sps,
             const uint8_t *m, int32_t mps, uint8_t skip) {
  for (int32_t y = 0; y < r.rows; ++y) {
    U *__restrict dr = reinterpret_cast<U *>(d);
    const U *__restrict sr = reinterpret_cast<const U *>(s);
    const uint8_t *__restrict mr = m;
    for (int32_t x = 0; x < r.cols; ++x) {
      const bool take = mr[(ptrdiff_t)x * mps] != skip;
      for (int k = 0; k < C; ++k) {
        U &e = dr[(ptrdiff_t)x * dps + k];
        e = take ? sr[(ptrdiff_t)x * sps + k] : e;
      }
    }
    d += r.step;
    s += sstep;
    m += r.mstep;
  }
}

// The walk of a masked call: rows of the destination and the mask, dense
// rows of all three merged into one.
struct Walk {
  Rows rows;
  ptrdiff_t sstep;
};
Walk walk_of(int32_t n, const int32_t *dims, const int32_t *ds, const int32_t *ss,
             const int32_t *ms) {
  Walk w{rows_of(n, dims, ds, ms), n >= 3 ? (ptrdiff_t)ss[n - 3] : 0};
  Rows merged = w.rows;
  merge_dense(merged, n, ds, ms);
  if (merged.rows == 1 && w.rows.rows > 1 && (ptrdiff_t)ss[n - 2] * w.rows.cols == w.sstep) {
    w.rows = merged;
    w.sstep = 0;
  }
  return w;
}

template <class Rule>
SornStatus em(int32_t n, const int32_t *dims, void *dst, const int32_t *ds, const void *src,
              const int32_t *ss, const void *mask, const int32_t *ms) {
  if (n < 2) return SORN_EINVAL;
  const int32_t es = ds[n - 1], c = dims[n - 1];
  if (es != 1 && es != 2 && es != 4 && es != 8) return SORN_EINVAL;
  const Walk w = walk_of(n, dims, ds, ss, ms);
  if (w.rows.rows < 1 || w.rows.cols < 1 || c < 1) return SORN_OK;
  uint8_t *d = static_cast<uint8_t *>(dst);
  const uint8_t *s = static_cast<const uint8_t *>(src);
  const uint8_t *m = static_cast<const uint8_t *>(mask);
  const int32_t dps = ds[n - 2] / es, sps = ss[n - 2] / es;
  const int32_t mps = ms[n - 2], mes = ms[n - 1];
  switch (es) {
    case 1: em_rows<Rule, uint8_t>(w.rows, c, d, dps, s, w.sstep, sps, m, mps, mes); break;
    case 2: em_rows<Rule, uint16_t>(w.rows, c, d, dps, s, w.sstep, sps, m, mps, mes); break;
    case 4: em_rows<Rule, uint32_t>(w.rows, c, d, dps, s, w.sstep, sps, m, mps, mes); break;
    default: em_rows<Rule, uint64_t>(w.rows, c, d, dps, s, w.sstep, sps, m, mps, mes); break;
  }
  return SORN_OK;
}

template <class U>
SornStatus xm_by_channels(int32_t c, const Rows &r, uint8_t *d, int32_t dps, const uint8_t *s,
                          ptrdiff_t sstep, int32_t sps, const uint8_t *m, int32_t mps,
                          uint8_t skip) {
  switch (c) {
    case 1: xm_rows<U, 1>(r, d, dps, s, sstep, sps, m, mps, skip); return SORN_OK;
    case 2: xm_rows<U, 2>(r, d, dps, s, sstep, sps, m, mps, skip); return SORN_OK;
    case 3: xm_rows<U, 3>(r, d, dps, s, sstep, sps, m, mps, skip); return SORN_OK;
    case 4: xm_rows<U, 4>(r, d, dps, s, sstep, sps, m, mps, skip); return SORN_OK;
    default: return SORN_EINVAL;
  }
}

}  // namespace
}  // namespace sorn::data

SornStatus _T_sorna__copyem(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                            const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                            const void *mask, const int32_t *maskStrides) {
  return sorn::data::em<sorn::data::FromSource>(n, dims, dst, dstStrides, src, srcStrides, mask,
                                                maskStrides);
}

SornStatus _T_sorna__copyemc(SornXE *xe, SornFlags flags, int32_t n, const int32_t *dims, void *dst,
                             const int32_t *dstStrides, const void *src, const int32_t *srcStrides,
                             const void *mask, const int32_t *maskStrides) {
  return sorn::data::em<sorn::data::FromSourceInverse>(n, dims, dst, dstStrides, src, srcStrides,
                                                       mask, maskStrides);
}

// Pixels are copied whole where the mask byte is not the skip value; a
// one-channel image of one- or two-byte elements takes the element form
// instead, so that there too the bits of the mask byte count.
SornStatus sorna__copyxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, const void *mask, const int32_t *maskStrides) {
  using namespace sorn::data;
  const sorn::Inner in = sorn::inner3(pack, dims, dstStrides, maskStrides);
  const sorn::Inner sin = sorn::inner3(pack, dims, srcStrides);
  const int32_t n = in.n;
  if (n < 2) return SORN_EINVAL;
  const int32_t c = in.dims[n - 1], es = in.strides[n - 1];
  if (c == 1 && es <= 3)
    return sorna__copyem(xe, flags, pack, dims, type, dst, dstStrides, src, srcStrides, mask,
                         maskStrides);
  if (c < 1 || c > 4) return SORN_EINVAL;
  if (es != 1 && es != 2 && es != 4 && es != 8) return SORN_EINVAL;
  const Walk w = walk_of(n, in.dims, in.strides, sin.strides, in.mstrides);
  if (w.rows.rows < 1 || w.rows.cols < 1) return SORN_OK;
  uint8_t *d = static_cast<uint8_t *>(dst);
  const uint8_t *s = static_cast<const uint8_t *>(src);
  const uint8_t *m = static_cast<const uint8_t *>(mask);
  const int32_t dps = in.strides[n - 2] / es, sps = sin.strides[n - 2] / es;
  const int32_t mps = in.mstrides[n - 2];
  const uint8_t skip = (flags & SORN_F_INVMASK) ? 0xff : 0;
  switch (es) {
    case 1: return xm_by_channels<uint8_t>(c, w.rows, d, dps, s, w.sstep, sps, m, mps, skip);
    case 2: return xm_by_channels<uint16_t>(c, w.rows, d, dps, s, w.sstep, sps, m, mps, skip);
    case 4: return xm_by_channels<uint32_t>(c, w.rows, d, dps, s, w.sstep, sps, m, mps, skip);
    default: return xm_by_channels<uint64_t>(c, w.rows, d, dps, s, w.sstep, sps, m, mps, skip);
  }
}

SornStatus sorna__copyem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                         const int32_t *srcStrides, const void *mask, const int32_t *maskStrides) {
  const sorn::Inner in = sorn::inner3(pack, dims, dstStrides, maskStrides);
  const sorn::Inner sin = sorn::inner3(pack, dims, srcStrides);
  if (flags & SORN_F_INVMASK)
    return _T_sorna__copyemc(xe, flags, in.n, in.dims, dst, in.strides, src, sin.strides, mask,
                             in.mstrides);
  return _T_sorna__copyem(xe, flags, in.n, in.dims, dst, in.strides, src, sin.strides, mask,
                          in.mstrides);
}

// One block copy of whole pixels: rows of the pixel stride times the row
// length bytes, whatever the element type.
SornStatus sorna__copy(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                       uint32_t type, void *dst, const int32_t *dstStrides, const void *src,
                       const int32_t *srcStrides) {
  const sorn::Inner in = sorn::inner3(pack, dims, dstStrides);
  const sorn::Inner sin = sorn::inner3(pack, dims, srcStrides);
  const int32_t n = in.n;
  if (n < 2) return SORN_EINVAL;
  const int32_t rows = n >= 3 ? in.dims[0] : 1, cols = in.dims[n - 2];
  if (rows < 1 || cols < 1) return SORN_OK;
  C_sorn_bcopy2d(dst, src, n >= 3 ? in.strides[0] : 0, n >= 3 ? sin.strides[0] : 0, rows,
                 (size_t)cols * (size_t)in.strides[n - 2]);
  return SORN_OK;
}

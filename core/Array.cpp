// The array record: constructors, the site (the array seen as a region of
// interest), and the negotiation that makes two operands agree on one
// extent.
//
// The n-cell forms (two underscores) address the record's cells 3 - n to 2
// when n is below 3 (n = 2: rows and columns), cells 0 to 2 when n is 3 and
// all four cells when n is 4. The block forms take SornVolume records.
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/VecSpaceUtils.h"

using namespace sorn::core;

namespace {

constexpr uint32_t kMarker = 0x22;
// f32 machine epsilon: a ratio this close to 0 means "take it from the
// extents".
constexpr double kRatioEps = 1.1920928955078125e-7;

int32_t clamp_n(int32_t n) { return n < 0 ? 0 : n > 4 ? 4 : n; }
int32_t first_cell(int32_t n) { return n < 3 ? 3 - n : 0; }
int32_t low32(int64_t v) { return (int32_t)(uint32_t)(uint64_t)v; }
int32_t channels_of(const SornArray *a) { return SORN_CHANNELS(a->dims[3]); }

// The conversion the processor makes: to nearest in the current mode, and
// 0x80000000 for anything that does not fit in 32 bits (NaN included).
int32_t to_i32(double v) {
  if (!(v >= -2147483648.0 && v <= 2147483647.0)) return INT32_MIN;
  return (int32_t)v;
}

// The site of a over four cells with the channel count in cell 3.
void site4_counted(const SornArray *a, int32_t *s) {
  s[0] = a->dims[0];
  s[1] = a->dims[1];
  s[2] = a->dims[2];
  s[3] = channels_of(a);
}

// m cells of both sizes become the smaller of the two; true when all of
// them are above 0.
int fit_sizes(int32_t m, int32_t *sa, int32_t *sb) {
  int ok = m >= 1;
  for (int32_t i = 0; i < m; ++i) {
    int32_t v = sa[i] < sb[i] ? sa[i] : sb[i];
    sa[i] = v;
    sb[i] = v;
    if (v < 1) ok = 0;
  }
  return ok;
}

}  // namespace

/* ---------------- constructors ---------------- */

SornArray *__sorn_array__$xtrn(SornArray *rec, SornDimPack pack, const int32_t *dims,
                               SornElemType elemtype, void *data, const int32_t *origin,
                               const int32_t *strides) {
  int32_t n = pack_n(pack), off = pack_off(pack);
  if (n > 4) n = 4;
  if (n + off > 4) off = 4 - n;
  const int32_t t = n + off;

  rec->ndims = (uint16_t)(n > 3 ? n : 3);
  rec->ndimsall = (uint16_t)(t > 3 ? t : 3);
  rec->elemtype = elemtype;

  for (int32_t i = 0; i < 4 - n; ++i) rec->dims[i] = 1;
  for (int32_t i = 0; i < n; ++i) rec->dims[4 - n + i] = dims[i];

  for (int32_t i = 0; i < 4 - t; ++i) {
    rec->bounds[i] = 1;
    rec->strides[i] = 0;
  }
  for (int32_t i = 0; i < t; ++i) {
    int32_t j = i - off;
    rec->bounds[4 - t + i] = origin ? wadd(dims[j], origin[j]) : dims[j];
    rec->strides[4 - t + i] = strides ? strides[j] : 0;
  }

  int32_t *st = rec->strides;
  if (st[3] == 0) st[3] = SORN_ELEMSIZE(elemtype);
  if (st[2] == 0) st[2] = wmul(SORN_CHANNELS(rec->dims[3]), st[3]);
  if (st[1] == 0) st[1] = wmul(rec->bounds[2], st[2]);

  rec->offset = origin ? (int64_t)sorn_vec_mkloff(t, origin - off, st + 4 - t) : 0;
  rec->reserved = 0;
  rec->marker = kMarker;
  rec->link = 0;
  rec->data = data;
  return rec;
}

// The three vectors are handed over from their first cell with n = 3, so the
// record sees them shifted by one cell: dims {1, 1, rows, cols}, no channels
// word. The shortcut keeps that layout on purpose; nothing in the library
// builds its records through it.
SornArray *__sorn_array__$xtrn$3(SornArray *rec, int32_t rows, int32_t cols, int32_t chword,
                                 SornElemType elemtype, void *data, int32_t oy, int32_t ox,
                                 int32_t rowstride) {
  const int32_t es = SORN_ELEMSIZE(elemtype);
  const int32_t d[4] = {1, rows, cols, chword};
  const int32_t o[4] = {0, oy, ox, 0};
  const int32_t s[4] = {0, rowstride, wmul(SORN_CHANNELS(chword), es), es};
  return __sorn_array__$xtrn(rec, 3, d, elemtype, data, (oy || ox) ? o : nullptr, s);
}

SornArray *__sorn_array__$cp$xtrn(SornArray *dst, const SornArray *src) {
  if (dst != src) std::memcpy(dst, src, sizeof *dst);
  dst->link = 0;
  return dst;
}

SornArray *__sorn_array__$_sar(SornArray *dst, const SornArray *src, int32_t n,
                               const int32_t *origin, const int32_t *size) {
  if (dst != src && src) __sorn_array__$cp$xtrn(dst, src);
  if (!size) return dst;
  n = clamp_n(n);
  const int32_t c0 = first_cell(n);
  int32_t o[4] = {0, 0, 0, 0};
  int32_t *s = dst->dims + c0;
  if (!sorn_arr__adjorgetRoi(dst, n, o, s, origin, size))
    for (int32_t i = 0; i < n; ++i) s[i] = 0;
  dst->offset = (int64_t)wadd(low32(dst->offset), sorn_vec_mkloff(n, o, dst->strides + c0));
  return dst;
}

/* ---------------- sites ---------------- */

int sorn_arr__siteof(const SornArray *a, int32_t n, int32_t *o, int32_t *s) {
  n = clamp_n(n);
  const int32_t c0 = first_cell(n);
  if (o) sorn_vec__dup(n, o, 0);
  return sorn_vec__assign_$Z(n, s, a->dims + c0);
}

SornVolume *sorn_arr_siteof(const SornArray *a, SornVolume *roi) {
  sorn_arr__siteof(a, 4, roi->origin, roi->size);
  return roi;
}

int sorn_arr__siteofAt(const SornArray *a, int32_t n, int32_t *o, int32_t *s, const int32_t *at) {
  n = clamp_n(n);
  int32_t p[4];
  if (at) sorn_vec__assign(n, p, at);  // at may be o itself
  int ok = sorn_arr__siteof(a, n, o, s);
  if (at) {
    // The point gives only an origin: its "size" is the site's own, so the
    // extent shrinks to what lies from the point on.
    int32_t k = n < 3 ? n : 3;
    intersect_cells(k, o, s, o, s, p, s);
    ok = n >= 1 && !sorn_volume__empty(n, s);
  }
  return ok;
}

int sorn_arr__siteofAt_$g2(const SornArray *a, int32_t *o, int32_t *s, int32_t y, int32_t x) {
  const int32_t p[2] = {y, x};
  return sorn_arr__siteofAt(a, 2, o, s, p);
}

SornVolume *sorn_arr_siteofAt_$gv(const SornArray *a, SornVolume *roi, int32_t n,
                                  const int32_t *v) {
  int32_t p[4];
  if ((n & 15) < 4) {
    sorn_vec_xassign(3, p, n, v);
    p[3] = 0;
  } else {
    sorn_vec_xassign(4, p, n, v);
  }
  sorn_arr__siteofAt(a, 4, roi->origin, roi->size, p);
  return roi;
}

SornVolume *sorn_arr_siteofAt_$g2(const SornArray *a, SornVolume *roi, int32_t y, int32_t x) {
  const int32_t p[4] = {0, y, x, 0};
  sorn_arr__siteofAt(a, 4, roi->origin, roi->size, p);
  return roi;
}

int sorn_arr__parsiteof(const SornArray *a, int32_t n, int32_t *o, int32_t *s) {
  n = clamp_n(n);
  const int32_t c0 = first_cell(n);
  if (o) sorn_vec__neg_$I(n, sorn_vec_fromloff(n, o, a->strides + c0, low32(a->offset)));
  return sorn_vec__assign_$Z(n, s, a->bounds + c0);
}

SornVolume *sorn_arr_parsiteof(const SornArray *a, SornVolume *roi) {
  sorn_arr__parsiteof(a, 4, roi->origin, roi->size);
  return roi;
}

/* ---------------- regions of interest ---------------- */

int sorn_arr__adjorgetRoi(const SornArray *a, int32_t n, int32_t *o, int32_t *s, const int32_t *ro,
                          const int32_t *rs) {
  n = clamp_n(n);
  int32_t po[4], ps[4];
  const int32_t k = n < 3 ? n : 3;
  if (rs) {  // the region may be the output itself
    if (ro) sorn_vec__assign(k, po, ro);
    sorn_vec__assign(k, ps, rs);
  }
  sorn_arr__siteof(a, n, o, s);
  if (n > 3) {
    s[3] = channels_of(a);
    if (o) o[3] = 0;
  }
  if (rs) intersect_cells(k, o, s, o, s, ro ? po : nullptr, ps);
  return !sorn_volume__empty(n, s);
}

SornVolume *sorn_arr_adjorgetRoi(const SornArray *a, SornVolume *roi, const SornVolume *in) {
  SornVolume r;
  if (in) r = *in;
  sorn_arr_siteof(a, roi);
  roi->size[3] = channels_of(a);
  roi->origin[3] = 0;
  if (in) intersect_cells(4, roi->origin, roi->size, roi->origin, roi->size, r.origin, r.size);
  return roi;
}

int sorn_arr__adjustRoi_$I(const SornArray *a, int32_t n, int32_t *o, int32_t *s) {
  n = clamp_n(n);
  const int32_t k = n < 3 ? n : 3;
  if (n > 3) {
    s[3] = channels_of(a);
    if (o) o[3] = 0;
  }
  intersect_cells(k, o, s, o, s, nullptr, a->dims + first_cell(n));
  return !sorn_volume__empty(n, s);
}

SornVolume *sorn_arr_adjustRoi_$I(const SornArray *a, SornVolume *roi) {
  int32_t site[4];
  site4_counted(a, site);
  roi->size[3] = site[3];
  roi->origin[3] = 0;
  intersect_cells(4, roi->origin, roi->size, roi->origin, roi->size, nullptr, site);
  return roi;
}

SornVolume *sorn_arr_adjustRoi_I(const SornArray *a, SornVolume *roi) {
  return sorn_arr_adjustRoi_$I(a, roi);
}

/* ---------------- negotiation ---------------- */

// The first operand decides the extent; the second offers only a start
// (the origin of its region; its size cells are never read) and an upper
// bound.
int sorn_arr__negotiateRoi(const SornArray *a, const SornArray *b, int32_t n, int32_t m,
                           int32_t *oa, int32_t *sa, int32_t *ob, int32_t *sb, const int32_t *ra_o,
                           const int32_t *ra_s, const int32_t *rb_at) {
  n = clamp_n(n);
  sorn_arr__adjorgetRoi(a, n, oa, sa, ra_o, ra_s);
  sorn_arr__siteofAt(b, n, ob, sb, rb_at);
  if (m < 1) m = n;
  if (m > 3) m = 3;
  return fit_sizes(m, sa, sb);
}

int sorn_arr_negotiateRoi(const SornArray *a, const SornArray *b, SornVolume *roiA,
                          SornVolume *roiB, const SornVolume *inA, const SornVolume *inB,
                          int32_t m) {
  int32_t at[4];
  if (inB) sorn_vec__assign(4, at, inB->origin);
  sorn_arr_adjorgetRoi(a, roiA, inA);
  sorn_arr__siteofAt(b, 4, roiB->origin, roiB->size, inB ? at : nullptr);
  if (m < 1 || m > 3) m = 3;
  return fit_sizes(m, roiA->size, roiB->size);
}

int sorn_arr__negotiateRoiEx(const SornArray *a, const SornArray *b, int32_t n, int32_t m,
                             int32_t *oa, int32_t *sa, int32_t *ob, int32_t *sb, double *ratio,
                             const int32_t *ra_o, const int32_t *ra_s, const int32_t *rb_o,
                             const int32_t *rb_s) {
  n = clamp_n(n);
  int okA = sorn_arr__adjorgetRoi(a, n, oa, sa, ra_o, ra_s);
  int okB = sorn_arr__adjorgetRoi(b, n, ob, sb, rb_o, rb_s);
  if (!okA || !okB) return 0;
  if (m == 0) m = n;
  if (m > 3) m = 3;
  int ok = 1;
  for (int32_t i = 0; i < m; ++i) {
    double r = ratio ? ratio[i] : 0.0;
    if (std::fabs(r) <= kRatioEps) {
      r = (double)sa[i] / (double)sb[i];
      if (ratio) ratio[i] = r;
    }
    const double t = (double)sb[i] * r;
    const double hi = std::ceil(t), lo = std::floor(t), near = std::nearbyint(t);
    if ((double)sa[i] > hi) {
      sa[i] = to_i32(near);
      if (!(near >= 1.0)) ok = 0;
    } else if ((double)sa[i] < lo) {
      sb[i] = to_i32(std::nearbyint((double)sa[i] / r));
      if (sb[i] <= 0) ok = 0;
    }
  }
  return ok;
}

int sorn_arr_negotiateRoiEx(const SornArray *a, const SornArray *b, SornVolume *roiA,
                            SornVolume *roiB, double *ratio, const SornVolume *inA,
                            const SornVolume *inB, int32_t m) {
  SornVolume ia, ib;
  if (inA)
    ia = *inA;
  else
    sorn_arr_siteof(a, &ia);
  if (inB)
    ib = *inB;
  else
    sorn_arr_siteof(b, &ib);
  if (m < 1 || m > 3) m = 3;
  return sorn_arr__negotiateRoiEx(a, b, 4, m, roiA->origin, roiA->size, roiB->origin, roiB->size,
                                  ratio, ia.origin, ia.size, ib.origin, ib.size);
}

/* ---------------- from site to data coordinates ---------------- */

void *sorn_arr_topcs(const SornArray *a, int32_t n, int32_t *out, const int32_t *in) {
  n = clamp_n(n);
  if (out != in) sorn_vec__assign(n, out, in);
  sorn_vec_update_$loff(n, out, a->strides + first_cell(n), low32(a->offset));
  return a->data;
}

void *sorn_arr_pt2pcs(const SornArray *a, int32_t *out, const int32_t *in) {
  if (out != in) std::memcpy(out, in, 4 * sizeof(int32_t));  // two words of two cells
  sorn_vec_update_$loff(4, out, a->strides, low32(a->offset));
  return a->data;
}

/* ---------------- overlap of two records ---------------- */

uint32_t sorn_arr__overlapped(const SornArray *a, const SornArray *b, int32_t n, const int32_t *oa,
                              const int32_t *sa, const int32_t *ob, const int32_t *sb) {
  n = clamp_n(n);
  const int32_t c0 = first_cell(n);
  int32_t siteA[4], siteB[4];
  if (!sa) {
    site4_counted(a, siteA);
    sa = siteA + c0;
  }
  if (!sb) {
    site4_counted(b, siteB);
    sb = siteB + c0;
  }
  const SornDimPack pack = make_pack(n, 0);
  return sorn_xoverlappedLS(a->data, low32(a->offset), pack, oa, sa, a->strides + c0, b->data,
                            low32(b->offset), pack, ob, sb, b->strides + c0);
}

uint32_t sorn_arr_overlapped(const SornArray *a, const SornArray *b, const SornVolume *roiA,
                             const SornVolume *roiB) {
  return sorn_arr__overlapped(a, b, 4, roiA ? roiA->origin : nullptr, roiA ? roiA->size : nullptr,
                              roiB ? roiB->origin : nullptr, roiB ? roiB->size : nullptr);
}

// Thresholding: the entry SornThreshold, its type-generic layer and slice
// form, the method dispatch, the constant and adaptive conditions with one
// or two passes, and the Otsu, usto and blur methods. The family owns no
// kernels: every element goes through the comparison's dispatchers.
#include <sorn.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/entry.h"
#include "data/threshold.h"
#include "filter/shape_cells.h"

using sorn::threshold::condition_array;
using sorn::threshold::set_condition_array;
using sorn::threshold::value_top;

namespace {

const double *const kKeepSource = SORN_CMP_KEEPSRC;

// The last three cells of a call and its channel count.
struct Cells {
  int32_t n;  // cells of the call
  int32_t skip;
  const int32_t *dims;
  int32_t channels() const { return sorn::channels_of(dims[n - skip - 1]); }
};
Cells cells_of(SornDimPack pack, const int32_t *dims) {
  const int32_t n = (int32_t)(pack & 15u);
  const int32_t skip = n > 3 ? n - 3 : 0;
  return {n, skip, dims + skip};
}

bool record_in_force(const SornThresholdSpec *how) {
  return how != nullptr && !(how->method & SORN_THH_DEFAULTS);
}

// The value each channel of a constant condition writes: its value, or the
// threshold itself where the value is NaN.
void values_of(const SornThresholdCriterion &c, double *v) {
  for (int k = 0; k < 4; ++k) v[k] = std::isnan(c.value[k]) ? c.thresh[k] : c.value[k];
}

/* ---------------- a scratch image of the region ---------------- */

// A dense image of `inner` cells (the last the channel count) and type from
// the scratch stack, its strides started from zero and filled out for
// those cells. Null when the stack has no room (or the extents no size).
void *scratch_image(SornXE *xe, int32_t inner, const int32_t *extents, uint32_t type,
                    int32_t *strides) {
  for (int32_t i = 0; i < inner; ++i) strides[i] = 0;
  strides[inner - 1] = sorn::elem_size(type);
  const size_t bytes = sorn_vmemsize(inner, extents, strides, 2);
  return bytes == 0 ? nullptr : SornXEalloca(xe, bytes, 16);
}

// A dense image of the call's region and type from the scratch stack, with
// strides for the call's cells, handed to `use` and given back after it.
template <class Use>
SornStatus with_scratch(SornXE *xe, SornDimPack pack, const int32_t *dims, uint32_t type,
                        Use &&use) {
  const Cells c = cells_of(pack, dims);
  const int32_t inner = c.n - c.skip;
  int32_t d[3], st[3];
  for (int32_t i = 0; i < inner; ++i) d[i] = c.dims[i];
  d[inner - 1] = c.channels();
  void *block = scratch_image(xe, inner, d, type, st);
  if (block == nullptr) return SORN_ENOMEM;
  int32_t strides[4] = {0, 0, 0, 0};
  for (int32_t i = 0; i < inner; ++i) strides[c.skip + i] = st[i];
  const SornStatus s = use(block, (const int32_t *)strides);
  SornXEfreea(xe, block);
  return s;
}

// Operator pairs whose two conditions part the values into two sides that
// one comparison can write.
bool one_pass_pair(uint32_t op0, uint32_t op1) {
  op0 &= 15u;
  op1 &= 15u;
  return (op0 == SORN_CMP_LT && op1 == SORN_CMP_GE) || (op0 == SORN_CMP_LE && op1 == SORN_CMP_GT) ||
         (op0 == SORN_CMP_GE && op1 == SORN_CMP_LT) || (op0 == SORN_CMP_GT && op1 == SORN_CMP_LE);
}

// Whether two constant conditions can be done in one pass: the pair and, for
// every channel, its test on the thresholds narrowed to float.
bool one_pass_constants(const SornThresholdCriterion &a, const SornThresholdCriterion &b,
                        int32_t channels) {
  constexpr float e = 1.1920929e-7f;
  const uint32_t op0 = a.op & 15u, op1 = b.op & 15u;
  for (int32_t k = 0; k < channels; ++k) {
    const float t0 = (float)a.thresh[k], t1 = (float)b.thresh[k];
    bool ok;
    if (op0 == SORN_CMP_LT && op1 == SORN_CMP_GE)
      ok = t1 - t0 <= e;
    else if (op0 == SORN_CMP_LE && op1 == SORN_CMP_GT)
      ok = t1 - t0 <= e;
    else if (op0 == SORN_CMP_GE && op1 == SORN_CMP_LT)
      ok = t0 - t1 <= e;
    else if (op0 == SORN_CMP_GT && op1 == SORN_CMP_LE)
      ok = t0 - t1 <= e;
    else if (op0 == SORN_CMP_LT && op1 == SORN_CMP_GT)
      ok = t0 - t1 > e;
    else if (op0 == SORN_CMP_GT && op1 == SORN_CMP_LT)
      ok = t1 - t0 > e;
    else
      ok = false;
    if (!ok) return false;
  }
  return true;
}

// The threshold array of an adaptive condition, checked against the call:
// the source's type, its channels, and room for the region's rows and
// columns from its first pixel.
SornStatus adaptive_array(const SornThresholdCriterion &c, uint32_t type, const Cells &cells,
                          const void **base, const int32_t **strides) {
  const SornArray *a = condition_array(c);
  if (a == nullptr || a->elemtype != type) return SORN_EINVAL;
  // The threshold array is read like an image beside the source: a record
  // of no planes, or of fewer planes than the call walks (unless its one
  // plane serves every plane, with a plane stride of 0), has nothing to
  // read for them.
  if (!sorn::good_image(a)) return SORN_EINVAL;
  if (cells.skip > 0 && a->dims[0] < cells.dims[-1] && a->strides[0] != 0) return SORN_EINVAL;
  const int32_t inner = cells.n - cells.skip;
  const int32_t rows = inner >= 3 ? cells.dims[inner - 3] : 1, cols = cells.dims[inner - 2];
  if (sorn::channels_of(a->dims[3]) != cells.channels()) return SORN_EINVAL;
  if (a->dims[1] < rows || a->dims[2] < cols) return SORN_EINVAL;
  *base = sorn_advance_ptr(a->data, (int32_t)a->offset);
  *strides = a->strides + (4 - cells.n);
  return SORN_OK;
}

}  // namespace

/* ---------------- constant conditions ---------------- */

SornStatus sorna__sheer_threshold_n1(SornXE *xe, SornFlags flags, SornDimPack pack,
                                     const int32_t *dims, uint32_t type, void *dst,
                                     const int32_t *dststrides, const void *src,
                                     const int32_t *srcstrides,
                                     const SornThresholdCriterion *criteria, int32_t) {
  double v[4];
  values_of(criteria[0], v);
  return sorna__ecompareC(xe, flags, pack, dims, type, dst, dststrides, type, src, srcstrides,
                          criteria[0].thresh, criteria[0].op, v, kKeepSource);
}

SornStatus sorna__sheer_threshold_n2(SornXE *xe, SornFlags flags, SornDimPack pack,
                                     const int32_t *dims, uint32_t type, void *dst,
                                     const int32_t *dststrides, const void *src,
                                     const int32_t *srcstrides,
                                     const SornThresholdCriterion *criteria, int32_t) {
  const SornThresholdCriterion &a = criteria[0], &b = criteria[1];
  double v0[4], v1[4];
  values_of(a, v0);
  values_of(b, v1);
  if (one_pass_constants(a, b, cells_of(pack, dims).channels()))
    return sorna__ecompareC(xe, flags, pack, dims, type, dst, dststrides, type, src, srcstrides,
                            a.thresh, a.op, v0, v1);
  // Two passes: the second condition sees the first one's output.
  return with_scratch(xe, pack, dims, type, [&](void *t, const int32_t *ts) {
    SornStatus st = sorna__ecompareC(xe, flags, pack, dims, type, t, ts, type, src, srcstrides,
                                     a.thresh, a.op, v0, kKeepSource);
    if (st != SORN_OK) return st;
    return sorna__ecompareC(xe, flags, pack, dims, type, dst, dststrides, type, t, ts, b.thresh,
                            b.op, v1, kKeepSource);
  });
}

/* ---------------- adaptive conditions ---------------- */

SornStatus sorna__adaptive_threshold_n1(SornXE *xe, SornFlags flags, SornDimPack pack,
                                        const int32_t *dims, uint32_t type, void *dst,
                                        const int32_t *dststrides, const void *src,
                                        const int32_t *srcstrides,
                                        const SornThresholdCriterion *criteria, int32_t) {
  const void *tb;
  const int32_t *ts;
  const SornStatus st = adaptive_array(criteria[0], type, cells_of(pack, dims), &tb, &ts);
  if (st != SORN_OK) return st;
  // A NaN value has no meaning of its own here: it is written as it is.
  return sorna__ecompare(xe, flags, pack, dims, type, dst, dststrides, type, src, srcstrides, tb,
                         ts, criteria[0].op, criteria[0].value, kKeepSource);
}

SornStatus sorna__adaptive_threshold_n2(SornXE *xe, SornFlags flags, SornDimPack pack,
                                        const int32_t *dims, uint32_t type, void *dst,
                                        const int32_t *dststrides, const void *src,
                                        const int32_t *srcstrides,
                                        const SornThresholdCriterion *criteria, int32_t) {
  const Cells cells = cells_of(pack, dims);
  const SornThresholdCriterion &a = criteria[0], &b = criteria[1];
  // The second condition's array, or the first's when it has none.
  const SornThresholdCriterion &bsrc =
      std::isnan(b.thresh[0]) && condition_array(b) != nullptr ? b : a;
  const void *tb0, *tb1;
  const int32_t *ts0, *ts1;
  SornStatus st = adaptive_array(a, type, cells, &tb0, &ts0);
  if (st == SORN_OK) st = adaptive_array(bsrc, type, cells, &tb1, &ts1);
  if (st != SORN_OK) return st;
  if (one_pass_pair(a.op, b.op) && tb0 == tb1)
    return sorna__ecompare(xe, flags, pack, dims, type, dst, dststrides, type, src, srcstrides, tb0,
                           ts0, a.op, a.value, b.value);
  return with_scratch(xe, pack, dims, type, [&](void *t, const int32_t *ts) {
    SornStatus s = sorna__ecompare(xe, flags, pack, dims, type, t, ts, type, src, srcstrides, tb0,
                                   ts0, a.op, a.value, kKeepSource);
    if (s != SORN_OK) return s;
    return sorna__ecompare(xe, flags, pack, dims, type, dst, dststrides, type, t, ts, tb1, ts1,
                           b.op, b.value, kKeepSource);
  });
}

/* ---------------- methods ---------------- */

SornStatus sorna__threshold(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                            uint32_t type, void *dst, const int32_t *dststrides, const void *src,
                            const int32_t *srcstrides, const SornThresholdCriterion *criteria,
                            int32_t count) {
  if (criteria == nullptr) return SORN_EINVAL;
  auto form = std::isnan(criteria[0].thresh[0])
                  ? (count > 1 ? &sorna__adaptive_threshold_n2 : &sorna__adaptive_threshold_n1)
                  : (count > 1 ? &sorna__sheer_threshold_n2 : &sorna__sheer_threshold_n1);
  return form(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides, criteria, count);
}

namespace {

// The conditions a method runs: with none given, below the threshold 0 and
// at or above it the type's top; otherwise the first one or two given, each
// keeping its operator and value. `fill` gives each condition its
// threshold.
template <class Fill>
int32_t method_conditions(uint32_t type, const SornThresholdCriterion *criteria, int32_t count,
                          SornThresholdCriterion *out, Fill &&fill) {
  int32_t n = count < 2 ? count : 2;
  if (n <= 0) {
    std::memset(out, 0, 2 * sizeof *out);
    out[0].op = SORN_CMP_LT;
    out[1].op = SORN_CMP_GE;
    for (int k = 0; k < 4; ++k) {
      out[0].value[k] = 0.0;
      out[1].value[k] = value_top(type);
    }
    n = 2;
  } else {
    for (int32_t i = 0; i < n; ++i) out[i] = criteria[i];
  }
  for (int32_t i = 0; i < n; ++i) fill(out[i]);
  return n;
}

}  // namespace

SornStatus sorna__ethreshold_otsu(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *dims, uint32_t type, void *dst,
                                  const int32_t *dststrides, const void *src,
                                  const int32_t *srcstrides, const SornThresholdSpec *how,
                                  const SornThresholdCriterion *criteria, int32_t count,
                                  const SornSites *) {
  SornVrng ranges[4];
  int32_t bins[4];
  for (int k = 0; k < 4; ++k) {
    ranges[k] = record_in_force(how) ? how->vrng[k] : SornVrng{NAN, 0.0};
    bins[k] = record_in_force(how) ? how->bins[k] : 0;
  }
  double t[4] = {0.0, 0.0, 0.0, 0.0};
  SornStatus st =
      sorna__compute_threshold_otsu(xe, flags, pack, dims, type, src, srcstrides, t, ranges, bins);
  if (st != SORN_OK) return st;
  SornThresholdCriterion c[2];
  const int32_t n = method_conditions(type, criteria, count, c, [&](SornThresholdCriterion &x) {
    for (int k = 0; k < 4; ++k) x.thresh[k] = t[k];
  });
  return n > 1 ? sorna__sheer_threshold_n2(xe, flags, pack, dims, type, dst, dststrides, src,
                                           srcstrides, c, n)
               : sorna__sheer_threshold_n1(xe, flags, pack, dims, type, dst, dststrides, src,
                                           srcstrides, c, n);
}

namespace {

// A box of the usto method: the given size, the channel cell the image's,
// the anchor at its centre.
SornSeShape centred_box(const int32_t *size, int32_t channels) {
  SornSeShape b;
  std::memset(&b, 0, sizeof b);
  for (int i = 0; i < 3; ++i) b.size[i] = size[i];
  b.size[3] = channels;
  sorn_seshape_rstanchor_$gn(&b, 3);
  return b;
}

// The filters' window over the call's three cells.
bool fit_box(SornSeShape *box, SornDimPack pack, const int32_t *dims) {
  const Cells c = cells_of(pack, dims);
  int32_t d[3] = {1, 1, 1};
  const int32_t inner = c.n - c.skip;
  for (int32_t i = 0; i < inner; ++i) d[3 - inner + i] = c.dims[i];
  return sorn_seshape__adjust_$gv$I(box, 3, d) != 0;
}

}  // namespace

namespace {

// The reach of the filters of the usto and blur methods: unless the caller
// lets them read the pixels around the region (SORN_F_THH_MARGIN) and
// beyond the source's own site (SORN_F_THH_PARMARGIN), they see the region
// alone and the rest is made by reflection.
SornFlags filter_reach(SornFlags flags) {
  if (!(flags & SORN_F_THH_MARGIN)) flags |= SORN_F_NOMARGIN;
  if (!(flags & SORN_F_THH_PARMARGIN)) flags |= SORN_F_SITEMARGIN;
  return flags;
}

// The window that reaches furthest along each cell of two: the margin that
// serves both boxes of the usto method.
SornSeShape furthest_reach(const SornSeShape &a, const SornSeShape &b) {
  SornSeShape r;
  for (int i = 0; i < 4; ++i) {
    const int32_t before = std::max(a.anchor[i], b.anchor[i]);
    const int32_t after = std::max(a.size[i] - a.anchor[i], b.size[i] - b.anchor[i]);
    r.anchor[i] = before;
    r.size[i] = before + after;
  }
  return r;
}

// The flattened image of the usto method, written into t: the source, plus
// the mean of the source (or its blur by box b), minus its blur by box a,
// in the element type's arithmetic.
SornStatus flatten(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                   uint32_t type, void *t, const int32_t *ts, void *dst, const int32_t *dststrides,
                   const void *src, const int32_t *srcstrides, const SornSeShape &a,
                   const SornSeShape *b) {
  SornStatus st =
      sorna__filter(xe, flags, pack, dims, type, t, ts, src, srcstrides, SORN_FILTER_BOX, &a);
  if (st == SORN_OK && b == nullptr) {
    double mean[4] = {0, 0, 0, 0};
    st = sorna__mean(xe, flags, pack, dims, type, src, srcstrides, mean);
    if (st == SORN_OK)
      st = sorna__rsubC(xe, flags, pack, dims, type, t, ts, type, t, ts, mean, 0, 0);
  } else if (st == SORN_OK) {
    // The second blur goes through the destination, which the conditions
    // overwrite at the end.
    st = sorna__filter(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                       SORN_FILTER_BOX, b);
    if (st == SORN_OK)
      st =
          sorna__rsub(xe, flags, pack, dims, type, t, ts, type, t, ts, type, dst, dststrides, 0, 0);
  }
  if (st == SORN_OK)
    st = sorna__add(xe, flags, pack, dims, type, t, ts, type, t, ts, type, src, srcstrides, 0, 0);
  return st;
}

}  // namespace

SornStatus sorna__ethreshold_usto(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *dims, uint32_t type, void *dst,
                                  const int32_t *dststrides, const void *src,
                                  const int32_t *srcstrides, const SornThresholdSpec *how,
                                  const SornThresholdCriterion *criteria, int32_t count,
                                  const SornSites *sites) {
  const Cells c = cells_of(pack, dims);
  const int32_t channels = c.channels();
  SornSeShape a, b;
  bool has_b = false;
  if (record_in_force(how)) {
    // No first box: the image needs no flattening, and this is Otsu.
    if (sorn_volume__empty(3, how->blurSize))
      return sorna__ethreshold_otsu(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                                    how, criteria, count, sites);
    a = centred_box(how->blurSize, channels);
    if (!sorn_volume__empty(3, how->flatSize)) {
      b = centred_box(how->flatSize, channels);
      has_b = true;
    }
  } else {
    const int32_t size[3] = {1, 5, 5};
    a = centred_box(size, channels);
  }
  if (!fit_box(&a, pack, dims) || (has_b && !fit_box(&b, pack, dims))) return SORN_EINVAL;

  return with_scratch(xe, pack, dims, type, [&](void *t, const int32_t *ts) {
    SornFlags f = filter_reach(flags & ~(SornFlags)SORN_F_BORDER_ONLY);
    // Whether every pixel either box reads may be read where it stands;
    // if not, both read a copy of the source bordered by reflection.
    const int32_t n = c.n - c.skip;
    const int32_t *d = c.dims;
    const int32_t *ss = srcstrides + c.skip;
    const SornSeShape reach = has_b ? furthest_reach(a, b) : a;
    if (!sorn::shapes::box_fits(n, d, &reach)) return SORN_ENOMEM;
    int32_t availO[4], availS[4], needO[4], needS[4];
    const bool covered = sorn__compute_roi_$se(f, n - 1, availO, availS, needO, needS, nullptr, d,
                                               &reach, sites ? &sites->site : nullptr,
                                               sites ? &sites->parsite : nullptr) != 0;
    f &= ~(SornFlags)(SORN_F_NOMARGIN | SORN_F_SITEMARGIN);
    const SornSeShape *second = has_b ? &b : nullptr;
    if (covered) {
      const SornStatus st =
          flatten(xe, f, pack, dims, type, t, ts, dst, dststrides, src, srcstrides, a, second);
      return st != SORN_OK ? st
                           : sorna__ethreshold_otsu(xe, f, pack, dims, type, dst, dststrides, t, ts,
                                                    how, criteria, count, sites);
    }
    availO[n - 1] = needO[n - 1] = 0;
    availS[n - 1] = needS[n - 1] = d[n - 1];
    int32_t extents[4], ps[4] = {0, 0, 0, 0};
    std::memcpy(extents, needS, sizeof extents);
    extents[n - 1] = channels;
    void *padded = scratch_image(xe, n, extents, type, ps + c.skip);
    if (padded == nullptr) return SORN_ENOMEM;
    SornBrShape br = {};
    sorn_brshape__compute_$gv(&br, n - 1, needO, needS, availO, availS);
    SornStatus st = sorna__copymkb(xe, f, (SornDimPack)n, availS, type, padded, ps + c.skip,
                                   sorn_advance_ptr(src, sorn_vec_mkloff(n, availO, ss)), ss,
                                   SORN_BORDER_REFLECT101, &br, nullptr);
    // The region inside the bordered copy stands for the source from here
    // on, in the flattening as in the sum that ends it.
    const void *at = sorn_advance_ptr(padded, -sorn_vec_mkloff(n, needO, ps + c.skip));
    if (st == SORN_OK)
      st = flatten(xe, f, pack, dims, type, t, ts, dst, dststrides, at, ps, a, second);
    if (st == SORN_OK)
      st = sorna__ethreshold_otsu(xe, f, pack, dims, type, dst, dststrides, t, ts, how, criteria,
                                  count, sites);
    SornXEfreea(xe, padded);
    return st;
  });
}

SornStatus sorna__ethreshold_blur(SornXE *xe, SornFlags flags, SornDimPack pack,
                                  const int32_t *dims, uint32_t type, void *dst,
                                  const int32_t *dststrides, const void *src,
                                  const int32_t *srcstrides, const SornThresholdSpec *how,
                                  const SornThresholdCriterion *criteria, int32_t count,
                                  const SornSites *sites) {
  // The box rides in the place of the ranges, as a window; a zero box is
  // the default.
  SornSeShape box;
  std::memset(&box, 0, sizeof box);
  if (record_in_force(how)) std::memcpy(&box, how->vrng, sizeof box);
  if (!fit_box(&box, pack, dims)) return SORN_EINVAL;
  return with_scratch(xe, pack, dims, type, [&](void *t, const int32_t *ts) {
    const SornFlags f = filter_reach(flags);
    const SornBorderSpec border = {SORN_BORDER_REFLECT101, {0, 0, 0, 0}};
    SornStatus st = sorna__efilter(xe, f, pack, dims, type, t, ts, src, srcstrides, SORN_FILTER_BOX,
                                   &box, &border, sites);
    if (st != SORN_OK) return st;
    // Each pixel's threshold is its own blurred value.
    const Cells c = cells_of(pack, dims);
    SornArray blurred;
    __sorn_array__$xtrn(&blurred, (SornDimPack)(c.n - c.skip), c.dims, type, t, nullptr,
                        ts + c.skip);
    SornThresholdCriterion k[2];
    const int32_t n = method_conditions(type, criteria, count, k, [&](SornThresholdCriterion &x) {
      x.thresh[0] = NAN;
      set_condition_array(x, &blurred);
    });
    return n > 1 ? sorna__adaptive_threshold_n2(xe, f, pack, dims, type, dst, dststrides, src,
                                                srcstrides, k, n)
                 : sorna__adaptive_threshold_n1(xe, f, pack, dims, type, dst, dststrides, src,
                                                srcstrides, k, n);
  });
}

SornStatus sorna__ethreshold(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                             uint32_t type, void *dst, const int32_t *dststrides, const void *src,
                             const int32_t *srcstrides, const SornThresholdSpec *how,
                             const SornThresholdCriterion *criteria, int32_t count,
                             const SornSites *sites) {
  const uint32_t method = how ? how->method & 15u : SORN_THH_IMMEDIATE;
  switch (method) {
    case SORN_THH_IMMEDIATE:
      return sorna__threshold(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                              criteria, count);
    case SORN_THH_OTSU:
      return sorna__ethreshold_otsu(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                                    how, criteria, count, sites);
    case SORN_THH_USTO:
      return sorna__ethreshold_usto(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                                    how, criteria, count, sites);
    case SORN_THH_BLUR:
      return sorna__ethreshold_blur(xe, flags, pack, dims, type, dst, dststrides, src, srcstrides,
                                    how, criteria, count, sites);
    default: return SORN_EINVAL;
  }
}

/* ---------------- type-generic layer and slice form ---------------- */

#define SORN_THRESHOLD_LAYER2(name)                                                               \
  SornStatus sorna_##name(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,     \
                          uint32_t type, void *dst, const int32_t *dstorigin,                     \
                          const int32_t *dststrides, const void *src, const int32_t *srcorigin,   \
                          const int32_t *srcstrides, const SornThresholdCriterion *criteria,      \
                          int32_t count) {                                                        \
    return sorna__##name(xe, flags, pack, dims, type,                                             \
                         sorn::at_origin(dst, pack, dstorigin, dststrides), dststrides,           \
                         sorn::at_origin(src, pack, srcorigin, srcstrides), srcstrides, criteria, \
                         count);                                                                  \
  }
#define SORN_ETHRESHOLD_LAYER2(name)                                                         \
  SornStatus sorna_##name(                                                                   \
      SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims, uint32_t type,     \
      void *dst, const int32_t *dstorigin, const int32_t *dststrides, const void *src,       \
      const int32_t *srcorigin, const int32_t *srcstrides, const SornThresholdSpec *how,     \
      const SornThresholdCriterion *criteria, int32_t count, const SornSites *sites) {       \
    const SornSites at = sorn::sites_at_region(pack, dims, srcorigin, sites);                \
    return sorna__##name(xe, flags, pack, dims, type,                                        \
                         sorn::at_origin(dst, pack, dstorigin, dststrides), dststrides,      \
                         sorn::at_origin(src, pack, srcorigin, srcstrides), srcstrides, how, \
                         criteria, count, &at);                                              \
  }
SORN_THRESHOLD_LAYER2(threshold)
SORN_THRESHOLD_LAYER2(sheer_threshold_n1)
SORN_THRESHOLD_LAYER2(sheer_threshold_n2)
SORN_THRESHOLD_LAYER2(adaptive_threshold_n1)
SORN_THRESHOLD_LAYER2(adaptive_threshold_n2)
SORN_ETHRESHOLD_LAYER2(ethreshold)
SORN_ETHRESHOLD_LAYER2(ethreshold_otsu)
SORN_ETHRESHOLD_LAYER2(ethreshold_usto)
SORN_ETHRESHOLD_LAYER2(ethreshold_blur)

// Destination and source must have one element type: nothing is
// converted.
SornStatus SornTGAthreshold(SornXE *xe, SornFlags flags, void *data, SornDimPack pack,
                            int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                            int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                            int32_t *strides1) {
  if (type0 != type1) return SORN_EINVAL;
  const SornThresholdArgs *a = static_cast<const SornThresholdArgs *>(data);
  return sorna_ethreshold(xe, flags, pack, dims, type0, base0, origin0, strides0, base1, origin1,
                          strides1, a->how, a->criteria, a->count, a->sites);
}

/* ---------------- entry ---------------- */

SornStatus SornThreshold(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                         const SornVolume *dstRoi, const SornVolume *srcSite,
                         const SornThresholdSpec *how, const SornThresholdCriterion *criteria,
                         int32_t count) {
  if (src == nullptr) {
    src = dst;
    if (srcSite == nullptr) srcSite = dstRoi;
  }
  if (!sorn::good_image(dst) || !sorn::fits_image(src, dst, sorn::Channels::Same))
    return SORN_EINVAL;
  // The immediate method and given conditions read criteria.
  const bool immediate = how == nullptr || (how->method & 15u) == SORN_THH_IMMEDIATE;
  if (criteria == nullptr && (immediate || count > 0)) return SORN_EINVAL;
  SornVolume rd, rs;
  if (!sorn::negotiate(dst, src, dstRoi, srcSite, &rd, &rs)) return SORN_ENOSPC;
  // Conditions pair their constants with channels: whole pixels.
  sorn::whole_pixels(&rd, dst);
  sorn::whole_pixels(&rs, src);
  // The source's site and its parent's, for the filters of the usto and
  // blur methods, which may read pixels around the region; counted from
  // data, like the region's origin.
  SornSites sites = sorn::source_sites(src);
  sorn::Operand d(dst, rd), s(src, rs);
  // A single plane of the source serves every plane of the destination.
  if (src->dims[0] == 1) s.strides[0] = 0;
  // Through the frame every start moves into its base and slices count
  // from there: so do the sites.
  if (s.rank == 4) {
    sorn_vec__sub_$I(4, sites.site.origin, s.roi.origin);
    sorn_vec__sub_$I(4, sites.parsite.origin, s.roi.origin);
  }
  SornThresholdArgs args{how, criteria, count, &sites};
  return sorn::run({xe, flags & ~SORN_F_PROBE, SORN_TAG_THRH, &args, sorn::kKeepRows},
                   &SornTGAthreshold, d, s);
}

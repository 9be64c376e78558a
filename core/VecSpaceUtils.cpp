// Arithmetic on the short integer vectors (at most four cells) that describe
// extents, origins and strides, and on the regions they span.
//
// Cell arithmetic wraps at 32 bits like the machine words it models; it is
// done through unsigned words so that a wrap is defined behaviour.
#include <sorn.h>

#include <cstdint>

#include "core/VecSpaceUtils.h"

using namespace sorn::core;

/* ---------------- plain cell-wise vector arithmetic ---------------- */

int32_t *sorn_vec__dup(int32_t n, int32_t *v, int32_t x) {
  for (int32_t i = 0; i < n; ++i) v[i] = x;
  return v;
}

int32_t *sorn_vec__assign(int32_t n, int32_t *d, const int32_t *s) {
  for (int32_t i = 0; i < n; ++i) d[i] = s[i];
  return d;
}

int sorn_vec__assign_$Z(int32_t n, int32_t *d, const int32_t *s) {
  int ok = n >= 1;
  for (int32_t i = 0; i < n; ++i) {
    d[i] = s[i];
    if (s[i] < 1) ok = 0;
  }
  return ok;
}

int32_t *sorn_vec_xassign(int32_t nd, int32_t *d, int32_t ns, const int32_t *s) {
  nd &= 15;
  ns &= 15;
  int32_t lead = nd - ns;  // > 0: zero-filled front of d; < 0: cells of s dropped
  for (int32_t i = 0; i < nd; ++i) {
    int32_t j = i - lead;
    d[i] = j >= 0 ? s[j] : 0;
  }
  return d;
}

int32_t *sorn_vec__neg(int32_t n, int32_t *d, const int32_t *a) {
  for (int32_t i = 0; i < n; ++i) d[i] = wsub(0, a[i]);
  return d;
}

int32_t *sorn_vec__neg_$I(int32_t n, int32_t *a) { return sorn_vec__neg(n, a, a); }

namespace {

inline int32_t wrsb(int32_t a, int32_t b) { return wsub(b, a); }
inline int32_t lesser(int32_t a, int32_t b) { return a < b ? a : b; }
inline int32_t greater(int32_t a, int32_t b) { return a > b ? a : b; }

}  // namespace

// A cell-wise operation `rule` of two vectors into a third, and its form in
// place (into the first).
#define SORN_VEC_CELLWISE(op, rule)                                                    \
  int32_t *sorn_vec__##op(int32_t n, int32_t *d, const int32_t *a, const int32_t *b) { \
    for (int32_t i = 0; i < n; ++i) d[i] = rule(a[i], b[i]);                           \
    return d;                                                                          \
  }                                                                                    \
  int32_t *sorn_vec__##op##_$I(int32_t n, int32_t *a, const int32_t *b) {              \
    return sorn_vec__##op(n, a, a, b);                                                 \
  }

// The same with a constant for every cell of the second vector.
#define SORN_VEC_WITH_CONSTANT(op, rule)                                             \
  int32_t *sorn_vec__##op##_$C(int32_t n, int32_t *d, const int32_t *a, int32_t x) { \
    for (int32_t i = 0; i < n; ++i) d[i] = rule(a[i], x);                            \
    return d;                                                                        \
  }                                                                                  \
  int32_t *sorn_vec__##op##_$C$I(int32_t n, int32_t *a, int32_t x) {                 \
    return sorn_vec__##op##_$C(n, a, a, x);                                          \
  }

SORN_VEC_CELLWISE(add, wadd)
SORN_VEC_WITH_CONSTANT(add, wadd)
SORN_VEC_CELLWISE(sub, wsub)
SORN_VEC_WITH_CONSTANT(sub, wsub)
SORN_VEC_CELLWISE(rsb, wrsb)
SORN_VEC_WITH_CONSTANT(rsb, wrsb)
SORN_VEC_CELLWISE(min, lesser)
SORN_VEC_CELLWISE(max, greater)

int sorn_vec__equal(int32_t n, const int32_t *a, const int32_t *b) {
  if (n < 1) return n == 0;
  for (int32_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return 0;
  return 1;
}

int sorn_vec__equal0(int32_t n, const int32_t *v) {
  for (int32_t i = 0; i < n; ++i)
    if (v[i] != 0) return 0;
  return 1;
}

/* ---------------- linear offsets ---------------- */

int32_t sorn_vec_mkloff(int32_t n, const int32_t *c, const int32_t *s) {
  n &= 15;
  uint32_t sum = 0;
  for (int32_t i = 0; i < n; ++i) sum += (uint32_t)c[i] * (uint32_t)s[i];
  return (int32_t)sum;
}

int32_t sorn_vec_mkloff_$L(SornDimPack pack, const int32_t *c, const int32_t *s) {
  int32_t off = pack_off(pack);
  return sorn_vec_mkloff(pack_n(pack) + off, c - off, s - off);
}

int32_t sorn_vec_mkloff_$LS(SornDimPack pack, const int32_t *c, const int32_t *s) {
  return c ? sorn_vec_mkloff_$L(pack, c, s) : 0;
}

int32_t *sorn_vec_fromloff(int32_t n, int32_t *out, const int32_t *s, int32_t off) {
  for (int32_t i = 0; i < n; ++i) {
    out[i] = 0;
    if (s[i] != 0) {
      out[i] = wdiv(off, s[i]);
      off = wrem(off, s[i]);
    }
  }
  return out;
}

int32_t *sorn_vec_update_$loff(int32_t n, int32_t *c, const int32_t *s, int32_t off) {
  // Once nothing is left of the offset, no cell changes: the common offset
  // of 0 costs no division at all.
  for (int32_t i = 0; i < n && off != 0; ++i) {
    if (s[i] != 0) {
      c[i] = wadd(c[i], wdiv(off, s[i]));
      off = wrem(off, s[i]);
    }
  }
  return c;
}

void *sorn_advance_ptr(const void *p, int32_t off) {
  return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(p) + (uintptr_t)(intptr_t)off);
}

void *sorn_base_at_$2d(const void *p, int32_t off, int32_t y, int32_t x, const int32_t *s) {
  intptr_t d = (intptr_t)off + (intptr_t)y * s[0] + (intptr_t)x * s[1];
  return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(p) + (uintptr_t)d);
}

/* ---------------- volumes ---------------- */

int sorn_volume__empty(int32_t n, const int32_t *size) {
  for (int32_t i = 0; i < n; ++i)
    if (size[i] < 1) return 1;
  return 0;
}

// Products wrap at 64 bits like the cell arithmetic wraps at 32: four large
// cells give a defined (if useless) value instead of an overflow.
int64_t sorn_volume__capacity(int32_t n, const int32_t *size) {
  uint64_t c = (uint64_t)(int64_t)size[0];
  for (int32_t i = 1; i < n; ++i) c *= (uint64_t)(int64_t)size[i];
  return (int64_t)c;
}

int64_t sorn_volume__capacity_$Q(int32_t n, const int32_t *size) {
  uint64_t c = 1;
  for (int32_t i = 0; i < n; ++i) {
    if (size[i] < 0) return 0;
    c *= (uint64_t)size[i];
  }
  return (int64_t)c;
}

// Every cell is computed, also after one has come out empty, so that callers
// may read the clipped origin of a failed intersection. The second region
// may be the first's own size vector (a point given as origin, see
// sorn_arr__siteofAt), hence all inputs of a cell are read before it is
// written.
int sorn__intersecI(int32_t n, int32_t *o1, int32_t *s1, const int32_t *o2, const int32_t *s2) {
  return intersect_cells(n, o1, s1, o1, s1, o2, s2);
}

int sorn__intersec(int32_t n, int32_t *oo, int32_t *so, const int32_t *o1, const int32_t *s1,
                   const int32_t *o2, const int32_t *s2) {
  if (!s1) return sorn__intersecI(n, oo, so, o2, s2);
  return intersect_cells(n, oo, so, o1, s1, o2, s2);
}

int sorn_intersecIS(int32_t n, int32_t *o1, int32_t *s1, const int32_t *o2, const int32_t *s2) {
  return intersect_cells(n & 15, o1, s1, o1, s1, o2, s2);
}

int sorn_intersecS(int32_t n, int32_t *oo, int32_t *so, const int32_t *o1, const int32_t *s1,
                   const int32_t *o2, const int32_t *s2) {
  if (!s1) return sorn_intersecIS(n, oo, so, o2, s2);
  return intersect_cells(n & 15, oo, so, o1, s1, o2, s2);
}

/* ---------------- scratch sizing ---------------- */

size_t sorn_vmemsize(int32_t n, const int32_t *dims, int32_t *strides, int32_t slack) {
  if (n < 1 || strides[n - 1] < 1) return 0;
  for (int32_t i = 0; i < n; ++i)
    if (dims[i] < 1) return 0;
  int64_t bytes = (int64_t)dims[n - 1] * strides[n - 1];
  for (int32_t i = n - 2; i >= 0; --i) {
    int64_t st = strides[i];
    if (st < bytes) {
      // A negative stride asks for rows aligned to its magnitude (a power
      // of two); any other too-small stride, 0 included, gives a tight one.
      if (st < 0) bytes = (bytes - st - 1) & st;
      strides[i] = (int32_t)bytes;
    }
    bytes = (int64_t)dims[i] * strides[i];
  }
  return (size_t)bytes + slack_bytes(slack);
}

size_t sorn_vmemsizeL(SornDimPack pack, const int32_t *dims, int32_t *strides, int32_t slack) {
  int32_t off = pack_off(pack);
  return sorn_vmemsize(pack_n(pack) + off, dims - off, strides - off, slack);
}

size_t sorn__vmemsize0(int32_t d, int32_t s, int32_t slack) {
  if ((d | s) < 1) return 0;
  return (size_t)((int64_t)d * s) + slack_bytes(slack);
}

/* ---------------- overlap ---------------- */

namespace {

// Two operands: their first byte and the cells that give their extent.
struct Span {
  intptr_t start;
  intptr_t end;
  int32_t n;
  const int32_t *s;
  const int32_t *st;
};

uint32_t spans_overlap(const Span &x, const Span &y) {
  intptr_t xlo = x.start < x.end ? x.start : x.end, xhi = x.start < x.end ? x.end : x.start;
  intptr_t ylo = y.start < y.end ? y.start : y.end, yhi = y.start < y.end ? y.end : y.start;
  if (xhi <= ylo || yhi <= xlo) return 0;
  // Without a column cell there is no row to look at: meeting spans are
  // all that can be said.
  if (x.n < 2 || y.n < 2) return 0xffffffffu;
  // Rows laid out differently may interleave anywhere: assume the worst.
  if (x.n > 2 && y.n > 2 && x.st[x.n - 3] != y.st[y.n - 3]) return 0xffffffffu;
  // Same row layout: only the first row of each is compared.
  intptr_t xrow = (intptr_t)x.s[x.n - 2] * x.st[x.n - 2];
  intptr_t yrow = (intptr_t)y.s[y.n - 2] * y.st[y.n - 2];
  return (x.start < y.start + yrow && y.start < x.start + xrow) ? 0xffffffffu : 0;
}

Span make_span(const void *p, int32_t off, SornDimPack pack, const int32_t *o, const int32_t *s,
               const int32_t *st) {
  Span r;
  r.start = (intptr_t) reinterpret_cast<uintptr_t>(p) + off + sorn_vec_mkloff_$LS(pack, o, st);
  r.end = r.start + sorn_vec_mkloff_$LS(pack, s, st);
  r.n = pack_n(pack);
  r.s = s;
  r.st = st;
  return r;
}

}  // namespace

uint32_t sorn_xoverlappedLS(const void *p0, int32_t off0, SornDimPack pack0, const int32_t *o0,
                            const int32_t *s0, const int32_t *st0, const void *p1, int32_t off1,
                            SornDimPack pack1, const int32_t *o1, const int32_t *s1,
                            const int32_t *st1) {
  return spans_overlap(make_span(p0, off0, pack0, o0, s0, st0),
                       make_span(p1, off1, pack1, o1, s1, st1));
}

uint32_t sorn_overlappedLS(SornDimPack pack, const int32_t *s, const void *p0, const int32_t *o0,
                           const int32_t *st0, const void *p1, const int32_t *o1,
                           const int32_t *st1) {
  return sorn_xoverlappedLS(p0, 0, pack, o0, s, st0, p1, 0, pack, o1, s, st1);
}

uint32_t sorn__overlapped(int32_t n, const int32_t *s, const void *p0, const int32_t *st0,
                          const void *p1, const int32_t *st1) {
  n &= 15;
  Span x{(intptr_t) reinterpret_cast<uintptr_t>(p0), 0, n, s, st0};
  x.end = x.start + sorn_vec_mkloff(n, s, st0);
  Span y{(intptr_t) reinterpret_cast<uintptr_t>(p1), 0, n, s, st1};
  y.end = y.start + sorn_vec_mkloff(n, s, st1);
  return spans_overlap(x, y);
}

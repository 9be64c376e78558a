/* The geometry records as a C99 compiler sees them, for
 * geometry_layout_test.cpp to compare with the C++ view and the sizes the
 * interface fixes. */
#if !defined(__STDC_VERSION__) || __STDC_VERSION__ != 199901L
#error "the header layout check must be compiled as C99"
#endif

#include <sorn.h>

#include <stddef.h>

struct GeometryLayoutEntry {
  const char *name;
  size_t offset;
  size_t size;
};

size_t geometry_c99_layout(const struct GeometryLayoutEntry **out);

#define FIELD(T, f) {#T "." #f, offsetof(T, f), sizeof(((T *)0)->f)},
#define RECORD(T) {#T, 0, sizeof(T)},

static const struct GeometryLayoutEntry kLayout[] = {
    RECORD(Sorn2dPt) FIELD(Sorn2dPt, x) FIELD(Sorn2dPt, y)
    RECORD(SornF2dPt) FIELD(SornF2dPt, x) FIELD(SornF2dPt, y)
    RECORD(SornR2dPt) FIELD(SornR2dPt, x) FIELD(SornR2dPt, y)
    RECORD(Sorn2dRect) FIELD(Sorn2dRect, x) FIELD(Sorn2dRect, y) FIELD(Sorn2dRect, width)
    FIELD(Sorn2dRect, height)
    RECORD(SornF2dRect) FIELD(SornF2dRect, width) FIELD(SornF2dRect, height)
    RECORD(SornR2dRect) FIELD(SornR2dRect, width) FIELD(SornR2dRect, height)
    RECORD(Sorn2dRcpt) FIELD(Sorn2dRcpt, x0) FIELD(Sorn2dRcpt, y0) FIELD(Sorn2dRcpt, x1)
    FIELD(Sorn2dRcpt, y1)
    RECORD(SornF2dRcpt) FIELD(SornF2dRcpt, x1) FIELD(SornF2dRcpt, y1)
    RECORD(SornR2dRcpt) FIELD(SornR2dRcpt, x1) FIELD(SornR2dRcpt, y1)
    RECORD(SornF2dQuad) FIELD(SornF2dQuad, q)
    RECORD(SornR2dQuad) FIELD(SornR2dQuad, q)
    RECORD(SornF2dEll) FIELD(SornF2dEll, cx) FIELD(SornF2dEll, cy) FIELD(SornF2dEll, a)
    FIELD(SornF2dEll, b) FIELD(SornF2dEll, rotation)
    RECORD(SornR2dEll) FIELD(SornR2dEll, cx) FIELD(SornR2dEll, cy) FIELD(SornR2dEll, a)
    FIELD(SornR2dEll, b) FIELD(SornR2dEll, rotation)
    RECORD(SornMoment2) FIELD(SornMoment2, m20) FIELD(SornMoment2, m11) FIELD(SornMoment2, m02)
};

size_t geometry_c99_layout(const struct GeometryLayoutEntry **out) {
  *out = kLayout;
  return sizeof kLayout / sizeof kLayout[0];
}

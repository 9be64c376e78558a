// Measures of fetched regions: one record per SornFwtsrPixReg, over all the
// points of the region, by the point-list geometry of the integer family.
#include <sorn.h>

#include <cstdint>

#include "fwtsr_vec.h"

namespace {

// Appends one record per region: each starts zeroed (a region with no
// point, whose quad is null, keeps zeros) and is measured in place. A
// vector that could not grow gets the records that fit and no more.
template <class Rec, class Measure>
SornVec *measure_all(SornVec *out, const SornVec *pixregs, Measure &&measure) {
  sorn_region::reserve(out, pixregs->count, sizeof(Rec));
  const auto *regs = static_cast<const SornFwtsrPixReg *>(pixregs->items);
  for (uint64_t i = 0; i < pixregs->count && out->count < out->capacity; ++i) {
    Rec rec{};
    measure(&rec, regs[i].pixels, static_cast<int32_t>(regs[i].size));
    static_cast<Rec *>(out->items)[out->count++] = rec;
  }
  return out;
}

// Exact sums: 64-bit integers, wrapping rather than overflowing.
SornWTSMF *sums(SornWTSMF *out, const Sorn2dPt *p, int32_t n) {
  uint64_t sr = 0, sc = 0, srr = 0, src = 0, scc = 0;
  for (int32_t i = 0; i < n; ++i) {
    const int64_t r = p[i].x, c = p[i].y;
    sr += static_cast<uint64_t>(r);
    sc += static_cast<uint64_t>(c);
    srr += static_cast<uint64_t>(r * r);
    src += static_cast<uint64_t>(r * c);
    scc += static_cast<uint64_t>(c * c);
  }
  out->count = n;
  out->reserved = 0;
  out->sr = static_cast<double>(static_cast<int64_t>(sr));
  out->sc = static_cast<double>(static_cast<int64_t>(sc));
  out->srr = static_cast<double>(static_cast<int64_t>(srr));
  out->src = static_cast<double>(static_cast<int64_t>(src));
  out->scc = static_cast<double>(static_cast<int64_t>(scc));
  return out;
}

SornF2dEll *ellipse_f(SornF2dEll *out, const Sorn2dPt *p, int32_t n) {
  SornF2dPt centre;
  SornMoment2 m;
  sorn_2d_ptv_centroid_$f(&centre, p, n);
  sorn_2d_ptv_moment2_$c(&m, p, n);
  return __sorn_f2d_ellipse__$moment2$c(out, &centre, &m, 2.0);
}

SornR2dEll *ellipse_r(SornR2dEll *out, const Sorn2dPt *p, int32_t n) {
  SornR2dPt centre;
  SornMoment2 m;
  sorn_2d_ptv_moment1(&centre, p, n);
  sorn_2d_ptv_moment2_$c(&m, p, n);
  return __sorn_r2d_ellipse__$moment2$c(out, &centre, &m, 2.0);
}

}  // namespace

extern "C" {

SornVec *sorn_fwtsr_mf_$2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornWTSMF>(out, pixregs, sums);
}
SornVec *sorn_fwtsr_m1_$2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornR2dPt>(out, pixregs, sorn_2d_ptv_moment1);
}
SornVec *sorn_fwtsr_m2_$2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornMoment2>(out, pixregs, sorn_2d_ptv_moment2);
}
SornVec *sorn_fwtsr_m2c_$2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornMoment2>(out, pixregs, sorn_2d_ptv_moment2_$c);
}
SornVec *sorn_fwtsr_brect_$2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<Sorn2dRect>(out, pixregs, sorn_2d_ptv_brect);
}
SornVec *sorn_fwtsr_minbquad_$f2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornF2dQuad>(out, pixregs, sorn_2d_ptv_minbquad_$f);
}
SornVec *sorn_fwtsr_minbquad_$r2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornR2dQuad>(out, pixregs, sorn_2d_ptv_minbquad_$r);
}
SornVec *sorn_fwtsr_ellipse_$f2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornF2dEll>(out, pixregs, ellipse_f);
}
SornVec *sorn_fwtsr_ellipse_$r2d(SornVec *out, const SornVec *pixregs) {
  return measure_all<SornR2dEll>(out, pixregs, ellipse_r);
}

// Unlike the vector form, the five fields hold means: count, then the
// first and second moments of the points.
SornWTSMF *sorn_fwtsr_mf1_$2d(SornWTSMF *out, const SornFwtsrPixReg *pixreg) {
  const int32_t n = static_cast<int32_t>(pixreg->size);
  SornR2dPt m1;
  SornMoment2 m2;
  sorn_2d_ptv_moment1(&m1, pixreg->pixels, n);
  sorn_2d_ptv_moment2(&m2, pixreg->pixels, n);
  out->count = n;
  out->reserved = 0;
  out->sr = m1.x;
  out->sc = m1.y;
  out->srr = m2.m20;
  out->src = m2.m11;
  out->scc = m2.m02;
  return out;
}

}  // extern "C"

// The picked regions of an f-form stable-region filter, fetched into
// SornFwtsrPixReg records, or fetched and measured in one call.
#include <sorn.h>

#include <cstdint>

#include "fwtsr_vec.h"

namespace {

// The passes a call takes, with the count of each pass's picked regions
// below its root (the root itself left out when it is picked).
struct Passes {
  const SornFWTSRES *res[2] = {nullptr, nullptr};
  int32_t ndesc[2] = {0, 0};
  uint32_t n = 0;
};

// which: 0 the dark pass, 1 the bright pass, any other value both. A pass
// asked for alone without a result to read gives nothing.
bool choose(const SornFMSERFilter *f, int32_t which, Passes &p) {
  const SornFWTSRES *res[2] = {f->res1, f->res2};
  const uint32_t count[2] = {f->count1, f->count2};
  for (int k = 0; k < 2; ++k) {
    if (which == 1 - k) continue;  // 1 skips the dark pass, 0 the bright one
    if (res[k] && res[k]->root) {
      p.res[k] = res[k];
      p.n += count[k];
      p.ndesc[k] = static_cast<int32_t>(count[k]) - (res[k]->root->mserflag ? 1 : 0);
    } else if (which == k) {
      return false;
    }
  }
  return p.n != 0;
}

void fetch(const SornFMSERFilter *f, const Passes &p, SornVec *regs, SornVec *points) {
  const int32_t rows = static_cast<int32_t>(f->imdims[1]);
  const int32_t columns = static_cast<int32_t>(f->imdims[2]);
  for (int k = 0; k < 2; ++k)
    if (p.res[k])
      sorn_fwtsr__efetchpixregs_$mser$2d(regs, points, p.res[k]->root, p.ndesc[k], p.res[k]->links,
                                         rows, columns);
}

// True when every record has all its points in the point block: a point
// block that could not grow leaves records short, and those are not read.
bool fetched_whole(const SornVec *regs, const SornVec *points) {
  const auto *r = static_cast<const SornFwtsrPixReg *>(regs->items);
  const auto *first = static_cast<const Sorn2dPt *>(points->items);
  for (uint64_t i = 0; i < regs->count; ++i) {
    if (!r[i].pixels || r[i].size < 1 || r[i].pixels < first ||
        static_cast<uint64_t>(r[i].pixels - first) + r[i].size > points->count)
      return false;
  }
  return true;
}

// Fetch into blocks of the call's own, measure into out, give the blocks
// back. Without the memory to fetch every region whole nothing is measured.
template <class Rec>
int32_t fetch_and_measure(const SornFMSERFilter *f, SornVec *out, int32_t which,
                          SornVec *(*measure)(SornVec *, const SornVec *)) {
  Passes p;
  if (!choose(f, which, p)) return 0;
  SornVec regs = {p.n, 0, _KuMcalloc(p.n, sizeof(SornFwtsrPixReg), 0)};
  if (!regs.items) return 0;
  SornVec points = {0, 0, nullptr};
  fetch(f, p, &regs, &points);
  sorn_region::reserve(out, p.n, sizeof(Rec));
  const uint64_t before = out->count;
  if (fetched_whole(&regs, &points)) measure(out, &regs);
  _KuMfree(points.items);
  _KuMfree(regs.items);
  return static_cast<int32_t>(out->count - before);
}

}  // namespace

extern "C" {

int32_t sorn_fmserf_pixreg_$2d(const SornFMSERFilter *f, SornVec *regs, SornVec *points,
                               int32_t which) {
  Passes p;
  if (!choose(f, which, p)) return 0;
  sorn_region::reserve_records(regs, p.n);
  // Records that find no room are not written past the block.
  if (regs->capacity < regs->count + p.n) return 0;
  fetch(f, p, regs, points);
  return static_cast<int32_t>(p.n);
}

int32_t sorn_fmserf_mf_$2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornWTSMF>(f, out, which, sorn_fwtsr_mf_$2d);
}
int32_t sorn_fmserf_m1_$2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornR2dPt>(f, out, which, sorn_fwtsr_m1_$2d);
}
int32_t sorn_fmserf_m2_$2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornMoment2>(f, out, which, sorn_fwtsr_m2_$2d);
}
int32_t sorn_fmserf_m2c_$2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornMoment2>(f, out, which, sorn_fwtsr_m2c_$2d);
}
int32_t sorn_fmserf_brect_$2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<Sorn2dRect>(f, out, which, sorn_fwtsr_brect_$2d);
}
int32_t sorn_fmserf_minbquad_$f2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornF2dQuad>(f, out, which, sorn_fwtsr_minbquad_$f2d);
}
int32_t sorn_fmserf_minbquad_$r2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornR2dQuad>(f, out, which, sorn_fwtsr_minbquad_$r2d);
}
int32_t sorn_fmserf_ellipse_$f2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornF2dEll>(f, out, which, sorn_fwtsr_ellipse_$f2d);
}
int32_t sorn_fmserf_ellipse_$r2d(const SornFMSERFilter *f, SornVec *out, int32_t which) {
  return fetch_and_measure<SornR2dEll>(f, out, which, sorn_fwtsr_ellipse_$r2d);
}

}  // extern "C"

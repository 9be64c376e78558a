// Integer points moved by an offset, with 32-bit sums that wrap.
#include <sorn.h>

#include "family.h"

using sorn_geom::Int;

extern "C" {

Sorn2dPt *sorn_2d_pt_advance(Sorn2dPt *out, const Sorn2dPt *base, int32_t dx, int32_t dy) {
  const Sorn2dPt from = base ? *base : *out;
  out->x = Int::cadd(from.x, dx);
  out->y = Int::cadd(from.y, dy);
  return out;
}

Sorn2dPt *sorn_2d_pt_setadv(Sorn2dPt *out, const Sorn2dPt *base, int32_t dx, int32_t dy) {
  const Sorn2dPt from = base ? *base : Sorn2dPt{0, 0};
  out->x = Int::cadd(from.x, dx);
  out->y = Int::cadd(from.y, dy);
  return out;
}

}  // extern "C"

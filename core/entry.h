// The entry layer that every family shares (layers 1 and 2): checks of the
// operand records, the region each operand works on, the operand record
// that carries it down, and the way down, directly at rank 3 and through
// the call frame at rank 4; and the one step of layer 2, a base moved to its
// origin. It brings the dispatcher's pieces (core/dispatch.h) and the
// element types (core/elem_types.h) along, so that a family's units
// include this header alone.
//
// An entry reads, in the order its statuses must come:
//
//   if (out == nullptr) return SORN_EINVAL;
//   sorn::Operand op;
//   SornStatus st = sorn::prepare_image(src, roi, &op);   // EINVAL, ENOSPC
//   if (st != SORN_OK) return st;
//   return sorn::run({xe, flags, SORN_TAG_SUM, out, sorn::kKeepRow}, &SornTGAsum, op);
//
// run() calls the slice form SornTGAxxx at once for rank 3 and hands it to
// the frame for rank 4; docs/architecture.md tells the whole way.
#pragma once

#include <sorn.h>

#include <cstdint>
#include <cstring>
#include <tuple>

#include "core/dispatch.h"
#include "core/elem_types.h"

namespace sorn {

/* ---------------- records ---------------- */

// An image operand: rank 3 or 4, at least one plane, one to four channels.
inline bool good_image(const SornArray *a) {
  if (a == nullptr) return false;
  if (a->ndims != 3 && a->ndims != 4) return false;
  if (a->dims[0] < 1) return false;
  const int32_t c = channels_of(a->dims[3]);
  return c >= 1 && c <= 4;
}

// How the channels of an operand beside an image must relate to the image's.
enum class Channels {
  Same,       // a second source
  One,        // a pixel mask
  OneOrSame,  // a mask of pixels or of elements
};

// An operand beside an image: the image's rank, or rank 3 under a rank-4
// image; the image's planes or a single one; channels by the rule. Element
// types are the family's to compare.
inline bool fits_image(const SornArray *a, const SornArray *image, Channels rule) {
  if (a == nullptr) return false;
  if (a->ndims != image->ndims && !(a->ndims == 3 && image->ndims == 4)) return false;
  if (a->dims[0] != image->dims[0] && a->dims[0] != 1) return false;
  const int32_t c = channels_of(a->dims[3]);
  switch (rule) {
    case Channels::One: return c == 1;
    case Channels::Same: return c == channels_of(image->dims[3]);
    case Channels::OneOrSame: return c == 1 || c == channels_of(image->dims[3]);
  }
  return false;
}

/* ---------------- regions ---------------- */

// The region of one operand: its site cut down to `in` (the whole site when
// in is null), the channel cell its channel count. False when no plane, row
// or column is left.
inline bool region_of(const SornArray *a, const SornVolume *in, SornVolume *roi) {
  sorn_arr_adjorgetRoi(a, roi, in);
  return !sorn_volume__empty(3, roi->size);
}

// Two operands agree on one extent: the first one's region decides, the
// second offers a start and an upper bound. False when nothing is common.
inline bool negotiate(const SornArray *a, const SornArray *b, const SornVolume *ina,
                      const SornVolume *inb, SornVolume *roia, SornVolume *roib) {
  return sorn_arr_negotiateRoi(a, b, roia, roib, ina, inb, 3) != 0;
}

// A third operand only offers a start, `at` (zeros when null): its box takes
// the rows and columns already agreed in `r1`, its own planes and channel
// count, and is cut to what the operand has. False when that leaves no
// plane, row or column; otherwise r1 and r2 take the cut rows and columns,
// so that all three boxes are equally large.
inline bool fit_operand(const SornArray *a, const SornVolume *at, SornVolume *box, SornVolume *r1,
                        SornVolume *r2) {
  if (at != nullptr)
    std::memcpy(box->origin, at->origin, sizeof box->origin);
  else
    std::memset(box->origin, 0, sizeof box->origin);
  box->size[0] = a->dims[0];
  box->size[1] = r1->size[1];
  box->size[2] = r1->size[2];
  box->size[3] = channels_of(a->dims[3]);
  sorn_arr_adjustRoi_$I(a, box);
  if (box->size[0] < 1 || box->size[1] < 1 || box->size[2] < 1) return false;
  r1->size[1] = r2->size[1] = box->size[1];
  r1->size[2] = r2->size[2] = box->size[2];
  return true;
}

// The channel cell is the count of elements per pixel that the layers below
// work on; a region that cuts it to nothing (or to less, when its channels
// begin past the pixel's) leaves no element. Families that take it so
// answer SORN_ENOSPC.
inline bool no_channels(const SornVolume &roi) { return roi.size[3] < 1; }

// Families that work whole pixels whatever the region's channel cell says.
// Before the operand is made, since its origin then counts from data.
inline void whole_pixels(SornVolume *roi, const SornArray *a) {
  roi->size[3] = channels_of(a->dims[3]);
  roi->origin[3] = 0;
}

/* ---------------- operands ---------------- */

// Origins count from the site until an operand is made; from then on they
// count from data, which is what layer 2 adds to the base.
inline void count_from_data(SornVolume *roi, const SornArray *a) {
  sorn_vec_update_$loff(4, roi->origin, a->strides, (int32_t)a->offset);
}

// An operand once checked, on its way to layer 2: its region with the origin
// counted from data, its own copy of the strides (a family may change one,
// as for a mask plane that serves every image plane), its type, its rank
// and its base.
struct Operand {
  SornVolume roi;
  int32_t strides[4];
  uint32_t type;
  int32_t rank;
  void *base;

  Operand() = default;
  Operand(const SornArray *a, const SornVolume &region) : roi(region) { take(a); }

  // Filled in place: `roi` first, with the region in the record's
  // coordinates (where the entry's checks find it), then the rest from the
  // record.
  void take(const SornArray *a) {
    type = a->elemtype;
    rank = a->ndims;
    base = a->data;
    std::memcpy(strides, a->strides, sizeof strides);
    count_from_data(&roi, a);
  }

  // What layer 2 is called with: the dimension-packing word of the rank and
  // the vectors from its first cell, 4 - rank.
  SornDimPack pack() const { return SORN_DIMPACK(rank); }
  int32_t *dims_at() { return roi.size + (4 - rank); }
  int32_t *origin_at() { return roi.origin + (4 - rank); }
  int32_t *strides_at() { return strides + (4 - rank); }
};

// One image operand, checked and with its region. SORN_EINVAL for a bad
// record, SORN_ENOSPC for an empty region.
inline SornStatus prepare_image(const SornArray *a, const SornVolume *roi, Operand *op) {
  if (!good_image(a)) return SORN_EINVAL;
  // The region is found where the operand keeps it: a copy of what the
  // callee has just stored, read back at once, stalls the call's way down.
  if (!region_of(a, roi, &op->roi)) return SORN_ENOSPC;
  op->take(a);
  return SORN_OK;
}

// An image and an operand over the same pixels (a mask, a second source):
// both records checked, the channels by the rule, one extent negotiated.
// A region that keeps no plane, row, column or channel is empty: SORN_ENOSPC.
// Families whose kernels walk a row as its pixels' elements side by side
// (`whole`) then take whole pixels from the pixel's start, whatever channels
// the region names.
inline SornStatus prepare_pair(const SornArray *image, const SornArray *other, Channels rule,
                               const SornVolume *roi, const SornVolume *site, Operand *op,
                               Operand *otherop, bool whole = false) {
  if (!good_image(image) || !fits_image(other, image, rule)) return SORN_EINVAL;
  // Negotiated in place, as for one image.
  SornVolume &r = op->roi, &ro = otherop->roi;
  if (!negotiate(image, other, roi, site, &r, &ro) || no_channels(r)) return SORN_ENOSPC;
  if (whole) {
    whole_pixels(&r, image);
    whole_pixels(&ro, other);
  }
  op->take(image);
  otherop->take(other);
  return SORN_OK;
}

/* ---------------- the way down ---------------- */

// Slice callbacks by their operand count: SornTGAxxx(xe, flags, data, pack,
// dims, type0, base0, origin0, strides0, ...), four words per operand.
template <int N, class... A>
struct SliceProcOf : SliceProcOf<N - 1, A..., uint32_t, void *, int32_t *, int32_t *> {};
template <class... A> struct SliceProcOf<0, A...> {
  using type = SornStatus (*)(SornXE *, SornFlags, void *, SornDimPack, int32_t *, A...);
};
template <int N> using SliceProc = typename SliceProcOf<N>::type;

// What a call carries besides its operands.
struct Call {
  SornXE *xe;
  SornFlags flags;
  uint32_t tag;  // the operation's four-character tag in the pack
  void *data;    // the operation's own arguments, for the slice form
  int32_t keep;  // cells the frame leaves to a slice: kKeepRow or kKeepRows
};
// Dense planes merge into one long row: for operations that see only
// elements (sums, fills).
constexpr int32_t kKeepRow = 2;
// Planes that merge are stacked as rows of one image, and a slice always has
// rows and columns: for operations that see neighbours (floodings, filters).
constexpr int32_t kKeepRows = 3;

// At rank 4 an operand's start goes into its base and its origin becomes
// zero before the frame sees it. Merging folds an origin cell into the next
// inner one weighted by the outer stride, which is exact only where the
// inner stride is 1 or the origin is zero; with the start in the base there
// is nothing to fold, and a region that starts inside the array is worked
// where it lies.
inline void origin_into_base(Operand *op) {
  op->base = sorn_advance_ptr(op->base, sorn_vec_mkloff(4, op->roi.origin, op->strides));
  std::memset(op->roi.origin, 0, sizeof op->roi.origin);
}

// Packs the operands (the first one's rank decides the cells of all) and
// runs the pack through sorna_call. In core/entry.cpp.
SornStatus frame_call(const Call &c, SornSliceProc proc, Operand *const *ops, int32_t count);

// The way down at rank 4: origins into bases, then the frame, which merges
// what it can and calls the slice form once per slice.
template <class... Ops>
SornStatus through_frame(const Call &c, SliceProc<sizeof...(Ops)> proc, Ops &...ops) {
  static_assert(sizeof...(Ops) >= 1 && sizeof...(Ops) <= 5, "the frame takes 1 to 5 operands");
  Operand *op[] = {&ops...};
  for (Operand *o : op) origin_into_base(o);
  return frame_call(c, reinterpret_cast<SornSliceProc>(proc), op, (int32_t)sizeof...(Ops));
}

// The slice form called at once, with the operands' own vectors.
template <class... Ops>
SornStatus call_slice(const Call &c, SliceProc<sizeof...(Ops) + 1> proc, Operand &lead,
                      Ops &...more) {
  const int32_t first = 4 - lead.rank;
  auto words = [first](Operand &o) {
    return std::make_tuple(o.type, o.base, o.roi.origin + first, o.strides + first);
  };
  return std::apply(
      [&](auto... w) {
        return proc(c.xe, c.flags, c.data, lead.pack(), lead.roi.size + first, w...);
      },
      std::tuple_cat(words(lead), words(more)...));
}

// The usual way down: the slice form at once for rank 3, the frame for 4.
template <class... Ops>
SornStatus run(const Call &c, SliceProc<sizeof...(Ops) + 1> proc, Operand &lead, Ops &...more) {
  if (lead.rank == 4) return through_frame(c, proc, lead, more...);
  return call_slice(c, proc, lead, more...);
}

/* ---------------- layer 2 ---------------- */

// Layer 2 moves each base to the origin of its cells (a null origin is
// zero) and calls the dispatcher with data pointers.
inline void *at_origin(const void *base, SornDimPack pack, const int32_t *origin,
                       const int32_t *strides) {
  return sorn_advance_ptr(base, sorn_vec_mkloff_$LS(pack, origin, strides));
}

// The source's site and its parent's, counted from data, for the families
// that may read real pixels around a region. A record whose strides let
// its own rows, planes or pixels overlap (a row stride smaller than its
// bounds' row, say) has no geometry to speak of around the region: both
// sites are left empty, and only the region itself is read.
inline SornSites source_sites(const SornArray *src) {
  SornSites sites;
  std::memset(&sites, 0, sizeof sites);
  const int32_t first = src->ndims == 4 ? 0 : 1;
  for (int32_t k = first; k < 3; ++k) {
    const int64_t inner =
        (int64_t)src->bounds[k + 1] *
        (src->strides[k + 1] < 0 ? -(int64_t)src->strides[k + 1] : (int64_t)src->strides[k + 1]);
    const int64_t outer = src->strides[k] < 0 ? -(int64_t)src->strides[k] : src->strides[k];
    if (outer < inner) return sites;
  }
  sorn_arr_siteof(src, &sites.site);
  count_from_data(&sites.site, src);
  sorn_arr_parsiteof(src, &sites.parsite);
  count_from_data(&sites.parsite, src);
  return sites;
}

// The sites around a source, given in data coordinates, as the layers below
// layer 2 take them: in the coordinates of the region's first pixel. A
// missing or empty site is the region itself and a missing or empty parent
// site is the site, so that no margin exists beyond what is given.
inline SornSites sites_at_region(SornDimPack pack, const int32_t *dims, const int32_t *origin,
                                 const SornSites *sites) {
  SornSites at;
  int32_t o[4] = {0, 0, 0, 0};
  if (origin != nullptr) __sorn_dims__$v$L(o, pack, origin);
  if (sites == nullptr || sorn_volume__empty(3, sites->site.size)) {
    std::memcpy(at.site.origin, o, sizeof o);
    __sorn_Nvolume__$v$L(at.site.size, pack, dims);
  } else {
    at.site = sites->site;
  }
  at.parsite =
      sites == nullptr || sorn_volume__empty(3, sites->parsite.size) ? at.site : sites->parsite;
  sorn_vec__sub_$I(4, at.site.origin, o);
  sorn_vec__sub_$I(4, at.parsite.origin, o);
  return at;
}

}  // namespace sorn

// Copying a region: the public entries of the plain, masked and bordered
// copies, their slice forms for 4-dimensional arrays, and layer 2.
#include <sorn.h>

#include <cstring>
#include <initializer_list>

#include "core/entry.h"

/* ---------------- layer 2 ---------------- */

SornStatus sorna_copy(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                      uint32_t type, void *dst, const int32_t *dstOrigin, const int32_t *dstStrides,
                      const void *src, const int32_t *srcOrigin, const int32_t *srcStrides) {
  return sorna__copy(xe, flags, pack, dims, type, sorn::at_origin(dst, pack, dstOrigin, dstStrides),
                     dstStrides, sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides);
}

namespace {

// Both mask forms move the three bases alike.
using MaskedCopy = SornStatus (*)(SornXE *, SornFlags, SornDimPack, const int32_t *, uint32_t,
                                  void *, const int32_t *, const void *, const int32_t *,
                                  const void *, const int32_t *);
SornStatus masked(MaskedCopy layer3, SornXE *xe, SornFlags flags, SornDimPack pack,
                  const int32_t *dims, uint32_t type, void *dst, const int32_t *dstOrigin,
                  const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                  const int32_t *srcStrides, const void *mask, const int32_t *maskOrigin,
                  const int32_t *maskStrides) {
  return layer3(xe, flags, pack, dims, type, sorn::at_origin(dst, pack, dstOrigin, dstStrides),
                dstStrides, sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides,
                sorn::at_origin(mask, pack, maskOrigin, maskStrides), maskStrides);
}

}  // namespace

SornStatus sorna_copyxm(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const void *mask, const int32_t *maskOrigin,
                        const int32_t *maskStrides) {
  return masked(&sorna__copyxm, xe, flags, pack, dims, type, dst, dstOrigin, dstStrides, src,
                srcOrigin, srcStrides, mask, maskOrigin, maskStrides);
}

SornStatus sorna_copyem(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                        uint32_t type, void *dst, const int32_t *dstOrigin,
                        const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                        const int32_t *srcStrides, const void *mask, const int32_t *maskOrigin,
                        const int32_t *maskStrides) {
  return masked(&sorna__copyem, xe, flags, pack, dims, type, dst, dstOrigin, dstStrides, src,
                srcOrigin, srcStrides, mask, maskOrigin, maskStrides);
}

// The sites come in the coordinates of the source's origin and leave
// relative to it, so that the kernel sees the region's first pixel at 0; a
// site that is empty is the region itself.
SornStatus sorna_copymkb(SornXE *xe, SornFlags flags, SornDimPack pack, const int32_t *dims,
                         uint32_t type, void *dst, const int32_t *dstOrigin,
                         const int32_t *dstStrides, const void *src, const int32_t *srcOrigin,
                         const int32_t *srcStrides, int32_t kind, const SornBrShape *border,
                         const SornSites *sites) {
  SornSites local;
  if (sites != nullptr) {
    local = *sites;
    int32_t o[4], s[4];
    __sorn_dims__$v$L(o, pack, srcOrigin);
    __sorn_Nvolume__$v$L(s, pack, dims);
    for (SornVolume *v : {&local.site, &local.parsite}) {
      if (sorn_volume__empty(3, v->size)) {
        std::memcpy(v->origin, o, sizeof o);
        std::memcpy(v->size, s, sizeof s);
      }
      sorn_vec__sub_$I(4, v->origin, o);
    }
  }
  return sorna__copymkb(xe, flags, pack, dims, type,
                        sorn::at_origin(dst, pack, dstOrigin, dstStrides), dstStrides,
                        sorn::at_origin(src, pack, srcOrigin, srcStrides), srcStrides, kind, border,
                        sites != nullptr ? &local : nullptr);
}

/* ---------------- slice forms ---------------- */

SornStatus SornTGAcopy(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                       uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                       uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  if (type0 != type1) return SORN_EINVAL;
  return sorna_copy(xe, flags, pack, dims, type0, base0, origin0, strides0, base1, origin1,
                    strides1);
}

SornStatus SornTGAcopyEx(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                         uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                         uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1,
                         uint32_t type2, void *base2, int32_t *origin2, int32_t *strides2) {
  if (type0 != type1 || type2 != SORN_U8) return SORN_EINVAL;
  const SornCopyArgs *args = static_cast<const SornCopyArgs *>(data);
  if (args->elemform == 0)
    return sorna_copyxm(xe, flags, pack, dims, type0, base0, origin0, strides0, base1, origin1,
                        strides1, base2, origin2, strides2);
  return sorna_copyem(xe, flags & ~(SornFlags)SORN_F_ELEMMASK, pack, dims, type0, base0, origin0,
                      strides0, base1, origin1, strides1, base2, origin2, strides2);
}

SornStatus SornTGAcopymkb(SornXE *xe, SornFlags flags, void *data, SornDimPack pack, int32_t *dims,
                          uint32_t type0, void *base0, int32_t *origin0, int32_t *strides0,
                          uint32_t type1, void *base1, int32_t *origin1, int32_t *strides1) {
  if (type0 != type1) return SORN_EINVAL;
  const SornCopyMkbArgs *args = static_cast<const SornCopyMkbArgs *>(data);
  return sorna_copymkb(xe, flags, pack, dims, type0, base0, origin0, strides0, base1, origin1,
                       strides1, (int32_t)args->kind, args->border, args->sites);
}

/* ---------------- entries ---------------- */

namespace sorn::data {
namespace {

// dst and src of a copy: both images, src beside dst, one element type.
bool copy_pair(const SornArray *dst, const SornArray *src) {
  if (dst == nullptr || src == nullptr) return false;
  return good_image(dst) && fits_image(src, dst, Channels::Same) && src->elemtype == dst->elemtype;
}

// The smaller of two extents in the three cells that a border copy fits.
bool fit_extents(SornVolume *a, const SornVolume &b) {
  for (int k = 0; k < 3; ++k)
    if (b.size[k] < a->size[k]) a->size[k] = b.size[k];
  return !sorn_volume__empty(3, a->size);
}

// The border fitted to the room that the destination's box leaves around
// the region. A border that does not fit even shrunk (the destination
// smaller than the region) cuts the region instead, by the cells it lacks.
bool fit_border(SornBrShape *br, const SornVolume &box, SornVolume *region) {
  if (sorn_brshape__adjust_$gv$I(br, 3, box.origin, box.size, region->origin, region->size))
    return true;
  for (int k = 0; k < 3; ++k)
    if (br->lo[k] > 0) {
      region->size[k] -= br->lo[k];
      br->lo[k] = 0;
    }
  return !sorn_volume__empty(3, region->size);
}

// What both border copies share once the two boxes are known: the border's
// corner in dst at `corner`, the region of `region` in src.
SornStatus border_copy(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume &corner, const SornVolume &region, int32_t kind,
                       const SornBrShape *border) {
  SornCopyMkbArgs args{(uint32_t)(kind == SORN_BORDER_UNKNOWN ? SORN_BORDER_REFLECT101 : kind),
                       kind == SORN_BORDER_NONE ? nullptr : border, nullptr};
  SornSites sites = sorn::source_sites(src);
  args.sites = &sites;

  SornVolume dbox = region;
  std::memcpy(dbox.origin, corner.origin, sizeof dbox.origin);
  Operand d(dst, dbox), s(src, region);
  const Call call{xe, flags, SORN_TAG_CMKB, &args, kKeepRows};
  if (d.rank != 4) return call_slice(call, &SornTGAcopymkb, d, s);
  // Through the frame the origins go into the bases: the sites then count
  // from the region's first pixel already.
  for (SornVolume *v : {&sites.site, &sites.parsite}) sorn_vec__sub_$I(4, v->origin, s.roi.origin);
  return through_frame(call, &SornTGAcopymkb, d, s);
}

}  // namespace
}  // namespace sorn::data

using namespace sorn;

SornStatus SornCopy(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                    const SornVolume *dstRoi, const SornVolume *srcSite) {
  if (!data::copy_pair(dst, src)) return SORN_EINVAL;
  Operand d, s;
  const SornStatus st = prepare_pair(dst, src, Channels::Same, dstRoi, srcSite, &d, &s);
  if (st != SORN_OK) return st;
  return run(Call{xe, flags, SORN_TAG_COPY, nullptr, kKeepRow}, &SornTGAcopy, d, s);
}

SornStatus SornCopyEx(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                      const SornArray *mask, const SornVolume *dstRoi, const SornVolume *srcSite,
                      const SornVolume *maskSite) {
  if (mask == nullptr) return SornCopy(xe, flags, dst, src, dstRoi, srcSite);
  if (!data::copy_pair(dst, src)) return SORN_EINVAL;
  if (!fits_image(mask, dst, Channels::OneOrSame)) return SORN_EINVAL;
  // The extents agreed between dst and src, then cut to what the mask has.
  SornVolume dr, sr, mbox;
  if (!negotiate(dst, src, dstRoi, srcSite, &dr, &sr) || no_channels(dr)) return SORN_ENOSPC;
  if (!fit_operand(mask, maskSite, &mbox, &dr, &sr)) return SORN_ENOSPC;
  Operand d(dst, dr), s(src, sr);
  Operand m(mask, mbox);
  const int32_t mch = channels_of(mask->dims[3]);
  // A single mask plane serves every plane; a one-channel mask taken as an
  // element mask serves every element of its pixel with one byte.
  if (mask->dims[0] == 1) m.strides[0] = 0;
  if (mch == 1) m.strides[3] = 0;
  SornCopyArgs args{mch == 1 ? (uint64_t)(flags & SORN_F_ELEMMASK) : 1u};
  return run(Call{xe, flags, SORN_TAG_CPEX, &args, kKeepRow}, &SornTGAcopyEx, d, s, m);
}

namespace sorn::data {
namespace {

// Both border copies once their boxes are known: the region fitted to the
// box (kind 0) or the border fitted around it. The turned form first
// narrows its region to the box less the border.
SornStatus bordered(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                    const SornVolume &box, SornVolume region, int32_t kind,
                    const SornBrShape *border, bool turned) {
  kind &= 15;
  SornBrShape br{};
  if (kind == SORN_BORDER_NONE) {
    if (!fit_extents(&region, box)) return SORN_ENOSPC;
  } else {
    if (border == nullptr) return SORN_EINVAL;
    br = *border;
    if (turned) {
      SornVolume inner;
      sorn_volume__narrow_$br(3, inner.size, box.size, &br);
      if (!fit_extents(&region, inner)) return SORN_ENOSPC;
    }
    if (!fit_border(&br, box, &region)) return SORN_ENOSPC;
    // A record whose values wrap the fitting's 32-bit arithmetic may still
    // not fit: it is refused rather than written past the box.
    for (int k = 1; k < 3; ++k) {
      const int64_t block = (int64_t)region.size[k] + (br.lo[k] < 0 ? -(int64_t)br.lo[k] : 0) +
                            (br.hi[k] > 0 ? br.hi[k] : 0);
      if (block > box.size[k]) return SORN_EINVAL;
    }
  }
  return border_copy(xe, flags, dst, src, box, region, kind, &br);
}

}  // namespace
}  // namespace sorn::data

namespace sorn::data {
namespace {

// The box that an operand has from the start `at` offers (null: its
// origin) on.
bool site_from(const SornArray *a, const SornVolume *at, SornVolume *box) {
  return sorn_arr__siteofAt(a, 4, box->origin, box->size, at ? at->origin : nullptr) != 0;
}

// Both forms' entry: one operand gives a region and the other a start,
// src's region in the plain form and dst's in the turned one. Border copies
// move whole pixels: the channel cells of the region and of the box take no
// part.
SornStatus border_entry(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstArea, const SornVolume *srcArea, int32_t kind,
                        const SornBrShape *border, bool turned) {
  if (!copy_pair(dst, src)) return SORN_EINVAL;
  SornVolume box, region;
  const bool found = turned ? region_of(dst, dstArea, &box) && site_from(src, srcArea, &region)
                            : region_of(src, srcArea, &region) && site_from(dst, dstArea, &box);
  if (!found) return SORN_ENOSPC;
  whole_pixels(&region, src);
  whole_pixels(&box, dst);
  return bordered(xe, flags, dst, src, box, region, kind, border, turned);
}

}  // namespace
}  // namespace sorn::data

SornStatus SornCopyMkb(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                       const SornVolume *dstSite, const SornVolume *srcRoi, int32_t kind,
                       const SornBrShape *border) {
  // In place: the region moves to dstSite's origin with the border's corner
  // there, so without a dstSite the region moves by the border's width.
  if (src == nullptr) {
    src = dst;
    if (dstSite == nullptr) dstSite = srcRoi;
  }
  return data::border_entry(xe, flags, dst, src, dstSite, srcRoi, kind, border, false);
}

// The boxes turned: dstRoi is the bordered block, and the region is what src
// has from srcSite's origin on, at most the block less the border.
SornStatus SornCopyRMkb(SornXE *xe, SornFlags flags, const SornArray *dst, const SornArray *src,
                        const SornVolume *dstRoi, const SornVolume *srcSite, int32_t kind,
                        const SornBrShape *border) {
  if (src == nullptr) {
    src = dst;
    if (srcSite == nullptr) srcSite = dstRoi;
  }
  return data::border_entry(xe, flags, dst, src, dstRoi, srcSite, kind, border, true);
}

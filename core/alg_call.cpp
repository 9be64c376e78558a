// The call frame: merges the outer dimensions of up to five operands where
// their strides allow, so that contiguous data reach a kernel as long rows,
// and calls the operation's slice callback. The caller's vectors are never
// changed: reduction works on copies in this frame's locals.
#include <sorn.h>

#include <cstring>

#include "core/entry.h"

namespace {

// Room for every cell a dimension-packing word can describe (n and off are
// four bits each).
constexpr int kCells = 32;
constexpr int kOps = 5;

struct Locals {
  int32_t dims[kCells];
  int32_t origin[kOps][kCells];
  int32_t strides[kOps][kCells];
  int32_t *originp[kOps];
  int32_t *stridesp[kOps];
};

// Gap tolerance of merging. The library's own packs carry tolerance 0, so
// its calls merge with no gap; the defaults only matter for a caller that
// asks with both gap bits.
int32_t gap_tolerance(const SornPack *pack, int32_t mode, bool inner) {
  int32_t tol = 0;
  if (pack->flags & SORN_F_GAPTOL2) {
    tol = pack->tolerance;
    if (tol < 0) tol = (inner && (mode & 1)) ? 16 : 4;
    if (!(pack->flags & SORN_F_GAPTOL)) tol = 0;
  }
  return tol;
}

// Prepares the locals as outputs for the operands that have vectors; an
// operand without origin or strides keeps a null there.
void bind_outputs(Locals &l, int count, int32_t *const *origins, int32_t *const *strides) {
  std::memset(&l, 0, sizeof l);
  for (int k = 0; k < count; ++k) {
    l.originp[k] = origins[k] ? l.origin[k] : nullptr;
    l.stridesp[k] = strides[k] ? l.strides[k] : nullptr;
  }
}

SornSlice make_slice(int32_t total, int32_t skip, int32_t *dims, int count, int32_t *const *origins,
                     int32_t *const *strides) {
  SornSlice s;
  std::memset(&s, 0, sizeof s);
  s.total = (uint16_t)total;
  s.skip = (uint16_t)skip;
  s.pack = ((uint32_t)(total & 31) << 8) | ((uint32_t)(total - skip) & 15u) |
           ((uint32_t)(skip * 16) & 255u);
  s.dims = dims + skip;
  for (int k = 0; k < count; ++k) {
    s.op[k].origin = origins[k] ? origins[k] + skip : nullptr;
    s.op[k].strides = strides[k] ? strides[k] + skip : nullptr;
  }
  return s;
}

using sorn::SliceProc;
using ProcRaw = SornStatus (*)(SornPack *, int32_t, SornSlice *);

SornStatus invoke(SornPack *pack, int32_t mode, SornSlice *slice) {
  const SornFlags flags = pack->flags | ((mode & 1) ? SORN_F_MODE1 : 0);
  const SornPackOperand *o = pack->op;
  if (pack->count < 1 || pack->count > kOps || slice == nullptr)
    return reinterpret_cast<ProcRaw>(pack->proc)(pack, mode, slice);
  SornXE *xe = pack->xe;
  void *data = pack->data;
  const SornDimPack dp = slice->pack;
  int32_t *dims = slice->dims;
  const SornSliceOperand *s = slice->op;
  switch (pack->count) {
    case 1:
      return reinterpret_cast<SliceProc<1>>(pack->proc)(xe, flags, data, dp, dims, o[0].type,
                                                        o[0].base, s[0].origin, s[0].strides);
    case 2:
      return reinterpret_cast<SliceProc<2>>(pack->proc)(
          xe, flags, data, dp, dims, o[0].type, o[0].base, s[0].origin, s[0].strides, o[1].type,
          o[1].base, s[1].origin, s[1].strides);
    case 3:
      return reinterpret_cast<SliceProc<3>>(pack->proc)(
          xe, flags, data, dp, dims, o[0].type, o[0].base, s[0].origin, s[0].strides, o[1].type,
          o[1].base, s[1].origin, s[1].strides, o[2].type, o[2].base, s[2].origin, s[2].strides);
    case 4:
      return reinterpret_cast<SliceProc<4>>(pack->proc)(
          xe, flags, data, dp, dims, o[0].type, o[0].base, s[0].origin, s[0].strides, o[1].type,
          o[1].base, s[1].origin, s[1].strides, o[2].type, o[2].base, s[2].origin, s[2].strides,
          o[3].type, o[3].base, s[3].origin, s[3].strides);
    default:
      return reinterpret_cast<SliceProc<5>>(pack->proc)(
          xe, flags, data, dp, dims, o[0].type, o[0].base, s[0].origin, s[0].strides, o[1].type,
          o[1].base, s[1].origin, s[1].strides, o[2].type, o[2].base, s[2].origin, s[2].strides,
          o[3].type, o[3].base, s[3].origin, s[3].strides, o[4].type, o[4].base, s[4].origin,
          s[4].strides);
  }
}

}  // namespace

int32_t sorn_dims_xreduceI(int32_t *dims, int32_t **origins, int32_t **strides, int32_t skip,
                           int32_t total, int32_t keep, int32_t count, int32_t tol) {
  int32_t remaining = total - skip;
  if (keep >= remaining) return skip;
  int32_t i = skip;
  // A merge reads cell i + 1, so it stops one short of the last cell.
  while (i + 1 < total) {
    bool any = false;
    for (int32_t k = 0; k < count; ++k)
      if (strides[k] && strides[k][i] != 0) any = true;
    if (any) {
      int32_t first = -1;
      for (int32_t k = 0; k < count; ++k) {
        if (!strides[k]) continue;
        if (strides[k][i + 1] == 0) return (int32_t)SORN_EINVAL;
        if (first < 0) first = k;
      }
      if (count > 1) {
        const int32_t *f = strides[first];
        if (f[i] % f[i + 1] != 0) return i;
        const int32_t ratio = f[i] / f[i + 1];
        for (int32_t k = first + 1; k < count; ++k) {
          if (!strides[k]) continue;
          if (strides[k][i] % strides[k][i + 1] != 0 || strides[k][i] / strides[k][i + 1] != ratio)
            return i;
        }
      }
      int32_t *f = strides[first];
      const int32_t gap = f[i] - dims[i + 1] * f[i + 1];
      if (total == 3 ? gap > tol : gap > 0) return i;
      // The origin step adds a stride-weighted coordinate to a coordinate
      // cell; it is exact where the inner stride is 1 or the origin is 0,
      // and is kept as it is.
      if (origins[first]) {
        origins[first][i + 1] += f[i] * origins[first][i];
        origins[first][i] = 0;
      }
      f[i] *= dims[i];
      dims[i + 1] = f[i] / f[i + 1];
      for (int32_t k = first + 1; k < count; ++k) {
        if (!strides[k]) continue;
        if (origins[k]) {
          origins[k][i + 1] += strides[k][i] * origins[k][i];
          origins[k][i] = 0;
        }
        strides[k][i] *= dims[i];
      }
      dims[i] = 1;
    }
    --remaining;
    ++i;
    if (remaining <= keep) return i;
  }
  return i;
}

int32_t sorn_dims_xreduce(int32_t *dimsOut, int32_t **originsOut, int32_t **stridesOut,
                          int32_t skip, int32_t total, int32_t keep, int32_t count, int32_t tol,
                          const int32_t *dimsIn, int32_t *const *originsIn,
                          int32_t *const *stridesIn) {
  if (count >= 1) {
    if (dimsIn) std::memcpy(dimsOut, dimsIn, sizeof(int32_t) * (size_t)total);
    for (int32_t k = 0; k < count; ++k) {
      if (originsIn[k] && originsOut[k])
        std::memcpy(originsOut[k], originsIn[k], sizeof(int32_t) * (size_t)total);
      if (stridesIn[k] && stridesOut[k])
        std::memcpy(stridesOut[k], stridesIn[k], sizeof(int32_t) * (size_t)total);
    }
  }
  return sorn_dims_xreduceI(dimsOut, originsOut, stridesOut, skip, total, keep, count, tol);
}

SornStatus sorna_call(SornPack *pack) {
  const int count = pack->count;
  if (count < 1 || count > kOps) return sorna__call(pack, 0, nullptr);
  const int32_t total = (int32_t)pack->total;
  if (total < 1 || total > kCells) return SORN_EINVAL;
  int32_t *originsIn[kOps] = {}, *stridesIn[kOps] = {};
  for (int k = 0; k < count; ++k) {
    originsIn[k] = pack->op[k].origin;
    stridesIn[k] = pack->op[k].strides;
  }
  Locals l;
  bind_outputs(l, count, originsIn, stridesIn);
  const int32_t tol = gap_tolerance(pack, 0, false);
  if (pack->keep < 2) pack->keep = 2;
  if (pack->keep > 3) pack->keep = 3;
  const int32_t skip = sorn_dims_xreduce(l.dims, l.originp, l.stridesp, 0, total, pack->keep, count,
                                         tol, pack->dims, originsIn, stridesIn);
  if (skip < 0) return skip;
  SornSlice slice = make_slice(total, skip, l.dims, count, l.originp, l.stridesp);
  return sorna__call(pack, 0, &slice);
}

SornStatus sorna__call(SornPack *pack, int32_t mode, SornSlice *slice) {
  const int count = pack->count;
  if (count >= 1 && count <= kOps && slice != nullptr && slice->total - slice->skip > 3) {
    const int32_t total = slice->total;
    const int32_t skip0 = slice->skip;
    if (total > kCells) return SORN_EINVAL;
    int32_t *originsIn[kOps] = {}, *stridesIn[kOps] = {};
    for (int k = 0; k < count; ++k) {
      originsIn[k] = slice->op[k].origin ? slice->op[k].origin - skip0 : nullptr;
      stridesIn[k] = slice->op[k].strides ? slice->op[k].strides - skip0 : nullptr;
    }
    Locals l;
    bind_outputs(l, count, originsIn, stridesIn);
    const int32_t tol = gap_tolerance(pack, mode, true);
    const int32_t skip = sorn_dims_xreduce(l.dims, l.originp, l.stridesp, skip0, total, pack->keep,
                                           count, tol, slice->dims - skip0, originsIn, stridesIn);
    if (skip < 0) return skip;
    if (skip > skip0) {
      SornSlice reduced = make_slice(total, skip, l.dims, count, l.originp, l.stridesp);
      if (total - skip <= 3) return invoke(pack, mode, &reduced);
      // Still too deep: iterate the outermost remaining dimension, one
      // sub-call per index, moving each operand's origin along it.
      const int32_t n = l.dims[skip];
      l.dims[skip] = 1;
      SornSlice inner = make_slice(total, skip + 1, l.dims, count, l.originp, l.stridesp);
      SornStatus st = SORN_OK;
      for (int32_t j = 0; j < n; ++j) {
        st = sorna__call(pack, mode, &inner);
        for (int k = 0; k < count; ++k)
          if (l.originp[k] && l.stridesp[k]) l.originp[k][skip] += l.stridesp[k][skip];
        if (st != SORN_OK) break;
      }
      return st;
    }
  }
  return invoke(pack, mode, slice);
}

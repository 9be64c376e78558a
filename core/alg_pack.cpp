// Packing of an operation call for the frame. Each form adds one operand to
// the one before it, so that an entry point nests them:
//   sorna_call(sorna_mappackL(&pack, ...)).
// Pointers arrive at the first of the n cells of the dimension-packing word;
// the pack keeps them 'off' cells earlier, where the whole vector begins.
#include <sorn.h>

namespace {

inline int32_t *back(int32_t *p, SornDimPack dp) { return p ? p - ((dp >> 4) & 15) : nullptr; }

void put_operand(SornPack *pack, int k, SornDimPack dp, uint32_t type, void *base, int32_t *origin,
                 int32_t *strides) {
  SornPackOperand &op = pack->op[k];
  op.type = type;
  // An operand without storage keeps only its type: the frame passes its
  // pointers through as nulls.
  if (base == nullptr || strides == nullptr) {
    op.base = nullptr;
    op.origin = nullptr;
    op.strides = nullptr;
  } else {
    op.base = base;
    op.origin = back(origin, dp);
    op.strides = back(strides, dp);
  }
  pack->count = (uint16_t)(k + 1);
  pack->types = (pack->types & ~(15u << (4 * k))) | ((type & 15u) << (4 * k));
}

}  // namespace

SornPack *sorna_genpackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0) {
  const int32_t n = (int32_t)(dimpack & 15);
  pack->count = 0;
  pack->tolerance = 0;
  pack->tag = tag;
  pack->types = 0;
  if (dims != nullptr && n > 0) pack->types = ((uint32_t)dims[n - 1] & 15u) << 24;
  pack->proc = proc;
  pack->name = "unknown";
  pack->xe = xe;
  pack->flags = flags;
  pack->data = data;
  pack->total = (dimpack & 15) + ((dimpack >> 4) & 15);
  pack->keep = keep;
  pack->dims = back(dims, dimpack);
  put_operand(pack, 0, dimpack, type0, base0, origin0, strides0);
  return pack;
}

SornPack *sorna_mappackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1) {
  sorna_genpackL(pack, tag, proc, xe, flags, data, dimpack, keep, dims, type0, base0, origin0,
                 strides0);
  put_operand(pack, 1, dimpack, type1, base1, origin1, strides1);
  return pack;
}

SornPack *sorna_zippackL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                         SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                         int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                         int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                         int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                         int32_t *strides2) {
  sorna_mappackL(pack, tag, proc, xe, flags, data, dimpack, keep, dims, type0, base0, origin0,
                 strides0, type1, base1, origin1, strides1);
  put_operand(pack, 2, dimpack, type2, base2, origin2, strides2);
  return pack;
}

SornPack *sorna_zip3packL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                          SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                          int32_t *strides2, uint32_t type3, void *base3, int32_t *origin3,
                          int32_t *strides3) {
  sorna_zippackL(pack, tag, proc, xe, flags, data, dimpack, keep, dims, type0, base0, origin0,
                 strides0, type1, base1, origin1, strides1, type2, base2, origin2, strides2);
  put_operand(pack, 3, dimpack, type3, base3, origin3, strides3);
  return pack;
}

SornPack *sorna_zip4packL(SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe,
                          SornFlags flags, void *data, SornDimPack dimpack, int32_t keep,
                          int32_t *dims, uint32_t type0, void *base0, int32_t *origin0,
                          int32_t *strides0, uint32_t type1, void *base1, int32_t *origin1,
                          int32_t *strides1, uint32_t type2, void *base2, int32_t *origin2,
                          int32_t *strides2, uint32_t type3, void *base3, int32_t *origin3,
                          int32_t *strides3, uint32_t type4, void *base4, int32_t *origin4,
                          int32_t *strides4) {
  sorna_zip3packL(pack, tag, proc, xe, flags, data, dimpack, keep, dims, type0, base0, origin0,
                  strides0, type1, base1, origin1, strides1, type2, base2, origin2, strides2, type3,
                  base3, origin3, strides3);
  put_operand(pack, 4, dimpack, type4, base4, origin4, strides4);
  return pack;
}

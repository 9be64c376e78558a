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

// The parameters every form shares, operand k's four, and the same as
// arguments: each form below is the one before it and one operand more.
#define PACK_PARAMS                                                                          \
  SornPack *pack, uint32_t tag, SornSliceProc proc, SornXE *xe, SornFlags flags, void *data, \
      SornDimPack dimpack, int32_t keep, int32_t *dims
#define PACK_ARGS pack, tag, proc, xe, flags, data, dimpack, keep, dims
#define OPERAND_PARAMS(k) uint32_t type##k, void *base##k, int32_t *origin##k, int32_t *strides##k
#define OPERAND_ARGS(k) type##k, base##k, origin##k, strides##k

SornPack *sorna_mappackL(PACK_PARAMS, OPERAND_PARAMS(0), OPERAND_PARAMS(1)) {
  sorna_genpackL(PACK_ARGS, OPERAND_ARGS(0));
  put_operand(pack, 1, dimpack, OPERAND_ARGS(1));
  return pack;
}

SornPack *sorna_zippackL(PACK_PARAMS, OPERAND_PARAMS(0), OPERAND_PARAMS(1), OPERAND_PARAMS(2)) {
  sorna_mappackL(PACK_ARGS, OPERAND_ARGS(0), OPERAND_ARGS(1));
  put_operand(pack, 2, dimpack, OPERAND_ARGS(2));
  return pack;
}

SornPack *sorna_zip3packL(PACK_PARAMS, OPERAND_PARAMS(0), OPERAND_PARAMS(1), OPERAND_PARAMS(2),
                          OPERAND_PARAMS(3)) {
  sorna_zippackL(PACK_ARGS, OPERAND_ARGS(0), OPERAND_ARGS(1), OPERAND_ARGS(2));
  put_operand(pack, 3, dimpack, OPERAND_ARGS(3));
  return pack;
}

SornPack *sorna_zip4packL(PACK_PARAMS, OPERAND_PARAMS(0), OPERAND_PARAMS(1), OPERAND_PARAMS(2),
                          OPERAND_PARAMS(3), OPERAND_PARAMS(4)) {
  sorna_zip3packL(PACK_ARGS, OPERAND_ARGS(0), OPERAND_ARGS(1), OPERAND_ARGS(2), OPERAND_ARGS(3));
  put_operand(pack, 4, dimpack, OPERAND_ARGS(4));
  return pack;
}

// The way of an entry through the call frame: the operands packed with the
// pack function of their count, and the pack run by sorna_call.
#include <sorn.h>

#include "core/entry.h"

namespace sorn {

SornStatus frame_call(const Call &c, SornSliceProc proc, Operand *const *ops, int32_t count) {
  const int32_t first = 4 - ops[0]->rank;
  const SornDimPack dp = ops[0]->pack();
  int32_t *dims = ops[0]->roi.size + first;
  uint32_t t[5] = {};
  void *b[5] = {};
  int32_t *o[5] = {}, *s[5] = {};
  for (int32_t k = 0; k < count; ++k) {
    t[k] = ops[k]->type;
    b[k] = ops[k]->base;
    o[k] = ops[k]->roi.origin + first;
    s[k] = ops[k]->strides + first;
  }
  SornPack pack;
  switch (count) {
    case 1:
      sorna_genpackL(&pack, c.tag, proc, c.xe, c.flags, c.data, dp, c.keep, dims, t[0], b[0], o[0],
                     s[0]);
      break;
    case 2:
      sorna_mappackL(&pack, c.tag, proc, c.xe, c.flags, c.data, dp, c.keep, dims, t[0], b[0], o[0],
                     s[0], t[1], b[1], o[1], s[1]);
      break;
    case 3:
      sorna_zippackL(&pack, c.tag, proc, c.xe, c.flags, c.data, dp, c.keep, dims, t[0], b[0], o[0],
                     s[0], t[1], b[1], o[1], s[1], t[2], b[2], o[2], s[2]);
      break;
    case 4:
      sorna_zip3packL(&pack, c.tag, proc, c.xe, c.flags, c.data, dp, c.keep, dims, t[0], b[0], o[0],
                      s[0], t[1], b[1], o[1], s[1], t[2], b[2], o[2], s[2], t[3], b[3], o[3], s[3]);
      break;
    default:
      sorna_zip4packL(&pack, c.tag, proc, c.xe, c.flags, c.data, dp, c.keep, dims, t[0], b[0], o[0],
                      s[0], t[1], b[1], o[1], s[1], t[2], b[2], o[2], s[2], t[3], b[3], o[3], s[3],
                      t[4], b[4], o[4], s[4]);
      break;
  }
  return sorna_call(&pack);
}

}  // namespace sorn

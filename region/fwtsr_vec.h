// Growing the vectors that fetches and measures of region results write
// into: to exactly what is needed, by _KuMrealloc. A failed growth keeps
// the old block, and the writers then write only what fits.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

namespace sorn_region {

// Room for count + more items.
inline void reserve(SornVec *v, uint64_t more, size_t itemsize) {
  uint64_t need = v->count + more;
  if (need <= v->capacity) return;
  void *p = _KuMrealloc(v->items, need * itemsize, 0);
  if (!p) return;
  v->items = p;
  v->capacity = need;
}

// The same for a vector of fetched regions: growing it may move them, and
// the links among the records already in it move along.
inline void reserve_records(SornVec *regs, uint64_t more) {
  uintptr_t before = reinterpret_cast<uintptr_t>(regs->items);
  reserve(regs, more, sizeof(SornFwtsrPixReg));
  uintptr_t after = reinterpret_cast<uintptr_t>(regs->items);
  if (before == after || before == 0) return;
  auto move = [before, after](SornFwtsrPixReg *&p) {
    if (p) p = reinterpret_cast<SornFwtsrPixReg *>(reinterpret_cast<uintptr_t>(p) - before + after);
  };
  SornFwtsrPixReg *r = static_cast<SornFwtsrPixReg *>(regs->items);
  for (uint64_t i = 0; i < regs->count; ++i) {
    move(r[i].next);
    move(r[i].child);
    move(r[i].parent);
  }
}

}  // namespace sorn_region

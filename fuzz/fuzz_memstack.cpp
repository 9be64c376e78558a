// The memory stacks of libKu, driven by a sequence of allocations, frees,
// marks, returns to a mark and clears decoded from the input, on two
// stacks at once: one opened directly (in caller's room or on the heap)
// and the own stack of an environment, reached through SornXE. A model
// keeps the live blocks of each; after every step:
//   - every block is aligned as asked and still holds what was written to
//     it (no two live blocks share a byte);
//   - giving a block back, or returning to a mark, leaves the stack at
//     exactly the level it had before that block, or at the mark;
//   - ending the stacks leaks nothing (the leak checker runs at exit).
#include "fuzz_input.h"

#include <vector>

namespace {

using namespace sorn_fuzz;

struct Block {
  uint8_t *p;
  size_t size;
  uint32_t serial;
  KuMark before;  // the level before the block was taken
};

struct Mark {
  KuMark level;
  size_t depth;  // live blocks when it was taken
};

uint8_t pattern(uint32_t serial, size_t i) {
  return (uint8_t)((serial * 167u) ^ (uint32_t)(i * 13u) ^ (uint32_t)(i >> 9));
}

// Only the ends and a stride of the middle are written and checked, which
// finds any overlap of two blocks without touching megabytes per step.
template <class F>
void each_probe(const Block &b, F f) {
  if (b.size == 0) return;
  const size_t step = b.size > 4096 ? b.size / 61 + 1 : 1;
  for (size_t i = 0; i < b.size && i < 64; ++i) f(i);
  for (size_t i = 64; i < b.size; i += step) f(i);
  for (size_t i = b.size > 64 ? b.size - 64 : 0; i < b.size; ++i) f(i);
}

struct Model {
  std::vector<Block> live;
  std::vector<Mark> marks;

  // Blocks from index d on are gone; marks above d now name levels that
  // were released, and are dropped.
  void truncate(size_t d) {
    if (d < live.size()) live.resize(d);
    std::vector<Mark> keep;
    for (const Mark &m : marks)
      if (m.depth <= d) keep.push_back(m);
    marks.swap(keep);
  }
  void check() const {
    for (const Block &b : live) each_probe(b, [&](size_t i) { FUZZ_CHECK(b.p[i] == pattern(b.serial, i)); });
  }
};

// One stack reached either directly or through an environment.
struct Target {
  void *stack = nullptr;  // direct
  SornXE *xe = nullptr;   // through the environment
  Model model;

  KuMark level() {
    KuMark m;
    if (xe)
      SornXEgetmmsp(xe, &m);
    else
      KuSMEMSTGgetstate(&m, stack, 0);
    return m;
  }
  void *alloc(size_t size, size_t align) {
    return xe ? SornXEalloca(xe, size, align) : KuSMEMSTGaalloc(stack, size, align, 0);
  }
  void free(void *p) {
    if (xe)
      SornXEfreea(xe, p);
    else
      KuSMEMSTGfree(stack, p);
  }
  void set(const KuMark &m) {
    if (xe)
      SornXEsetmmsp(xe, &m);
    else
      KuSMEMSTGsetstate(stack, &m);
  }
  void clear() {
    if (xe)
      SornXEclear(xe);
    else
      KuSMEMSTGclear(stack);
  }
};

size_t decode_size(Input &in) {
  const uint8_t k = in.u8();
  switch (k & 7) {
    case 0: return 0;
    case 1: case 2: case 3: return in.u8();
    case 4: case 5: return in.u16();
    case 6: return (size_t)in.u16() << 4;  // up to a megabyte
    default: return k == 0xff ? (size_t)9 << 20 : in.u16() + (size_t)(64 << 10) - 32;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t setup = in.u8();
  const uint64_t parent = in.u64();

  // The direct stack lives in caller's room or on the heap.
  uint64_t room[6];
  Target direct;
  direct.stack = KuSMEMSTGopen((setup & 1) ? nullptr : room, parent, 0);
  FUZZ_CHECK(direct.stack != nullptr);
  FUZZ_CHECK(KuSMEMSTGparent(direct.stack) == parent);

  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
  Target env;
  env.xe = &xe;

  uint32_t serial = 0;
  for (int steps = 0; in.left() > 0 && steps < 400; ++steps) {
    const uint8_t op = in.u8();
    Target &t = (op & 0x80) ? env : direct;
    Model &m = t.model;
    switch (op & 7) {
      case 0: case 1: case 2: {  // take a block
        size_t bytes = decode_size(in);
        static const size_t aligns[] = {0, 1, 2, 4, 8, 16, 16, 32, 64, 128, 256, 4096};
        const size_t align = in.pick(aligns);
        size_t total = 0;
        for (const Block &x : direct.model.live) total += x.size;
        for (const Block &x : env.model.live) total += x.size;
        if (total + bytes > ((size_t)48 << 20)) bytes = 0;
        Block b;
        b.before = t.level();
        b.p = static_cast<uint8_t *>(t.alloc(bytes, align));
        FUZZ_CHECK(b.p != nullptr);
        FUZZ_CHECK(reinterpret_cast<uintptr_t>(b.p) % (align ? align : 16) == 0);
        b.size = bytes;
        b.serial = ++serial;
        each_probe(b, [&](size_t i) { b.p[i] = pattern(b.serial, i); });
        m.live.push_back(b);
        break;
      }
      case 3: {  // give a live block back, and all after it
        if (m.live.empty()) break;
        const size_t i = in.u8() % m.live.size();
        const KuMark before = m.live[i].before;
        t.free(m.live[i].p);
        m.truncate(i);
        FUZZ_CHECK(same_level(t.level(), before));
        break;
      }
      case 4: {  // mark the present level
        Mark mk;
        mk.level = t.level();
        mk.depth = m.live.size();
        m.marks.push_back(mk);
        break;
      }
      case 5: {  // return to a mark that is still valid
        if (m.marks.empty()) break;
        const Mark mk = m.marks[in.u8() % m.marks.size()];
        t.set(mk.level);
        m.truncate(mk.depth);
        FUZZ_CHECK(same_level(t.level(), mk.level));
        break;
      }
      case 6: {  // clear
        if (in.u8() & 3) break;  // rarely: it makes the rest of the run short
        t.clear();
        m.truncate(0);
        break;
      }
      case 7: {  // a level taken now and set again changes nothing
        const KuMark now = t.level();
        t.set(now);
        FUZZ_CHECK(same_level(t.level(), now));
        break;
      }
    }
    m.check();
  }
  direct.model.check();
  env.model.check();

  SornXEfini(&xe);
  if (setup & 1)
    KuMEMSTGclose(direct.stack);
  else
    KuMEMSTGdestroy(direct.stack);
  return 0;
}

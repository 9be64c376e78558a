// The execution environment: where an operation takes its scratch memory
// from, plus the one question about the machine that kernels may ask.
//
// An environment is either attached to a memory stack of the caller, and then
// only remembers the stack's level at attachment (finishing returns the stack
// there), or owns a stack that lives inside the record itself ('stackstore'),
// opened on first need and destroyed on finishing. A record made by
// SornXEopen(null, ...) lives on its stack and dies with it.
#include <sorn.h>

#include <cstring>

namespace {

constexpr size_t kDefaultAlign = 16;

inline void *own_store(SornXE *xe) { return static_cast<void *>(xe->stackstore); }

// The own room passed as a caller's stack is no caller's stack at all.
inline void *caller_stack(SornXE *xe, void *mmstack) {
  return mmstack == own_store(xe) ? nullptr : mmstack;
}

}  // namespace

extern "C" {

// Undecided (-1) until the first question; then 0 for good, since every
// kernel of this library is plain portable code.
int32_t _G_sorn_use_simd = -1;

int32_t __sorn_use_simd(void) {
  _G_sorn_use_simd = 0;
  return 0;
}

SornXE *SornXEinit2(SornXE *xe, void *mmstack, uint64_t openarg) {
  if (xe->state & SORN_XE_INITED) return xe;
  mmstack = caller_stack(xe, mmstack);
  xe->mmstack = mmstack;
  xe->openarg = openarg;
  if (mmstack) KuSMEMSTGgetstate(&xe->mark, mmstack, openarg);
  xe->state = SORN_XE_INITED;
  return xe;
}

SornXE *SornXEinit(SornXE *xe, void *mmstack) { return SornXEinit2(xe, mmstack, 0); }

SornXE *SornXEopen(SornXE *xe, void *mmstack, uint64_t openarg) {
  bool fresh = false;
  if (xe == nullptr) {
    bool opened = false;
    if (mmstack == nullptr) {
      mmstack = KuSMEMSTGopen(nullptr, openarg, 0);
      if (mmstack == nullptr) return nullptr;
      opened = true;
    }
    xe = static_cast<SornXE *>(KuSMEMSTGaalloc(mmstack, sizeof(SornXE), 8, 0));
    if (xe == nullptr) {
      if (opened) KuMEMSTGclose(mmstack);
      return nullptr;
    }
    fresh = true;
  }
  std::memset(xe, 0, sizeof *xe);
  SornXEinit2(xe, mmstack, openarg);
  if (fresh) xe->state |= SORN_XE_ONSTACK;
  return xe;
}

SornXE *SornXEfini(SornXE *xe) {
  if (!(xe->state & SORN_XE_INITED)) return xe;
  if (xe->mmstack) {
    if (xe->mmstack == own_store(xe)) {
      KuMEMSTGdestroy(xe->mmstack);
      xe->mmstack = nullptr;
    } else {
      KuSMEMSTGsetstate(xe->mmstack, &xe->mark);
    }
  }
  xe->openarg = 0;
  xe->state &= ~static_cast<uint64_t>(SORN_XE_INITED);
  return xe;
}

void SornXEclose(SornXE *xe) {
  if (xe == nullptr) return;
  void *mmstack = xe->mmstack;
  uint64_t state = xe->state;
  SornXEfini(xe);
  // The record may lie on this very stack: it is not touched after this.
  // A record opened on a caller's stack takes that stack with it, as it was
  // handed over to the environment.
  if (mmstack && (state & SORN_XE_ONSTACK)) KuMEMSTGclose(mmstack);
}

SornXE *SornXEclear(SornXE *xe) {
  if (xe->mmstack) KuSMEMSTGsetstate(xe->mmstack, &xe->mark);
  return xe;
}

SornXE *SornXEinitMmstack(SornXE *xe, uint64_t openarg) {
  if (xe->mmstack) return xe;
  if (openarg) xe->openarg = openarg;
  void *s = KuSMEMSTGopen(own_store(xe), xe->openarg, 0);
  KuSMEMSTGgetstate(&xe->mark, s, xe->openarg);
  xe->mmstack = s;
  return xe;
}

SornXE *SornXEresetMmstack(SornXE *xe, void *mmstack, uint64_t openarg) {
  if (xe->mmstack == mmstack) return xe;
  mmstack = caller_stack(xe, mmstack);
  if (xe->state & SORN_XE_ONSTACK) {
    SornXEclose(xe);
    return SornXEopen(nullptr, mmstack, openarg);
  }
  SornXEfini(xe);
  return SornXEinit2(xe, mmstack, openarg);
}

SornXE *SornXEdestroyMmstack(SornXE *xe) { return SornXEresetMmstack(xe, nullptr, 0); }

void *SornXEmmstack(SornXE *xe) {
  if (xe->mmstack == nullptr) SornXEinitMmstack(xe, xe->openarg);
  return xe->mmstack;
}

KuMark *SornXEgetmmsp(SornXE *xe, KuMark *mark) {
  return KuSMEMSTGgetstate(mark, SornXEmmstack(xe), 0);
}

void SornXEsetmmsp(SornXE *xe, const KuMark *mark) { KuSMEMSTGsetstate(SornXEmmstack(xe), mark); }

void *SornXEalloca(SornXE *xe, size_t size, size_t align) {
  return KuSMEMSTGaalloc(SornXEmmstack(xe), size, align ? align : kDefaultAlign, 0);
}

void SornXEfreea(SornXE *xe, void *block) {
  if (xe->mmstack) KuSMEMSTGfree(xe->mmstack, block);
}

int SornXEuseSimd(SornXE *xe, SornFlags flags) {
  if (flags & SORN_F_PLAIN) return 0;
  if (_G_sorn_use_simd >= 0) return _G_sorn_use_simd != 0;
  return __sorn_use_simd() != 0;
}

void *sorn_mmstack_open(void *store, uint64_t arg) { return KuSMEMSTGopen(store, arg, 0); }

void sorn_mmstack_close(void *stack) { KuMEMSTGclose(stack); }

void sorn_mmstack_destroy(void *stack) { KuMEMSTGdestroy(stack); }

void sorn_mmstack_reset(void *stack) { KuSMEMSTGclear(stack); }

KuMark *sorn_mmstack_state(void *stack, KuMark *mark, uint64_t arg) {
  KuSMEMSTGgetstate(mark, stack, arg);
  return mark;
}

void sorn_mmstack_setstate(void *stack, const KuMark *mark) { KuSMEMSTGsetstate(stack, mark); }

void *sorn_mmstack_alloca(void *stack, size_t size, size_t align) {
  return KuSMEMSTGaalloc(stack, size, align ? align : kDefaultAlign, 0);
}

void sorn_mmstack_freea(void *stack, void *block) { KuSMEMSTGfree(stack, block); }

}  // extern "C"

// The result of the f-form flooding: plain region records and the link
// array, both on the result's memory stack.
#include <sorn.h>

#include <cstring>

static_assert(sizeof(SornFWTSRegion) == 48, "region record of six words");

extern "C" {

SornFWTSRES *SornFWTSRESinit(SornFWTSRES *res, uint32_t *linkbase, void *mmstack) {
  res->root = nullptr;
  res->links = nullptr;
  if (linkbase) res->linkbase = linkbase;
  if (mmstack) res->mmstack = mmstack;
  if (!res->mmstack) {
    // A stack of its own, which fini destroys whole: no level to remember.
    res->mmstack = KuSMEMSTGopen(res->mmown, 0, 0);
  } else {
    KuSMEMSTGgetstate(&res->mmbase, res->mmstack, 0);
  }
  return res;
}

SornFWTSRES *SornFWTSRESfini(SornFWTSRES *res) {
  if (res->mmstack == static_cast<void *>(res->mmown))
    KuMEMSTGdestroy(res->mmstack);
  else if (res->mmstack)
    KuSMEMSTGsetstate(res->mmstack, &res->mmbase);
  res->root = nullptr;
  res->links = nullptr;
  res->linkbase = nullptr;
  res->mmstack = nullptr;
  return res;
}

SornFWTSRegion *SornFWTSRESnewregion(SornFWTSRES *res, int32_t tail, int32_t level) {
  void *p = KuSMEMSTGaalloc(res->mmstack, sizeof(SornFWTSRegion), 8, 0);
  if (!p) return nullptr;
  SornFWTSRegion *r = static_cast<SornFWTSRegion *>(p);
  std::memset(r, 0, sizeof *r);
  r->head = SORN_FWTSR_END;
  r->tail = tail;
  r->level = level;
  return r;
}

void *SornFWTSRESalloca(SornFWTSRES *res, size_t size, size_t align) {
  return KuSMEMSTGaalloc(res->mmstack, size, align ? align : 16, 0);
}

void SornFWTSRES_freea(SornFWTSRES *res, void *block) {
  if (res->mmstack) KuSMEMSTGfree(res->mmstack, block);
}

}  // extern "C"

#include "alloc_failure.h"

#include <sorn.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

struct Plan {
  bool armed = false;
  bool every_later = false;
  unsigned kinds = 0;
  int64_t fail_at = 0;
  int64_t seen = 0;
  bool fired = false;
  size_t last_block = 0;
};
Plan plan;

// Counts one request and says whether it is to fail.
bool take_request(unsigned kind) {
  if (!plan.armed || !(plan.kinds & kind)) return false;
  int64_t n = plan.seen++;
  bool fail = n == plan.fail_at || (plan.every_later && n > plan.fail_at);
  if (fail) plan.fired = true;
  return fail;
}

template <class F>
F next_definition(const char *name) {
  void *p = dlsym(RTLD_NEXT, name);
  if (p == nullptr) {
    std::fprintf(stderr, "alloc_failure: the base library has no %s\n", name);
    std::abort();
  }
  return reinterpret_cast<F>(p);
}

}  // namespace

extern "C" {

void *KuSMEMSTGopen(void *store, uint64_t arg, int32_t flags) {
  static auto real = next_definition<void *(*)(void *, uint64_t, int32_t)>("KuSMEMSTGopen");
  // A stack opened in a caller's store takes nothing from the heap.
  if (store == nullptr && take_request(sorn_test::kStackOpen)) return nullptr;
  return real(store, arg, flags);
}

void *KuSMEMSTGaalloc(void *stack, size_t size, size_t align, int32_t flags) {
  static auto real = next_definition<void *(*)(void *, size_t, size_t, int32_t)>("KuSMEMSTGaalloc");
  if (plan.armed) plan.last_block = size;
  if (take_request(sorn_test::kStackBlock)) return nullptr;
  return real(stack, size, align, flags);
}

void *_KuMcalloc(size_t count, size_t size, int32_t flags) {
  static auto real = next_definition<void *(*)(size_t, size_t, int32_t)>("_KuMcalloc");
  if (take_request(sorn_test::kHeapCalloc)) return nullptr;
  return real(count, size, flags);
}

void *_KuMrealloc(void *block, size_t size, int32_t flags) {
  static auto real = next_definition<void *(*)(void *, size_t, int32_t)>("_KuMrealloc");
  if (take_request(sorn_test::kHeapRealloc)) return nullptr;
  return real(block, size, flags);
}

}  // extern "C"

namespace sorn_test {

AllocFailure::AllocFailure(int64_t fail_at, bool every_later, unsigned kinds) {
  plan = Plan{};
  plan.armed = true;
  plan.kinds = kinds;
  plan.every_later = every_later;
  plan.fail_at = fail_at;
}

AllocFailure::~AllocFailure() { plan.armed = false; }

int64_t AllocFailure::requests() const { return plan.seen; }
bool AllocFailure::fired() const { return plan.fired; }
size_t AllocFailure::last_block_size() const { return plan.last_block; }

int64_t for_each_allocation_failure(const std::function<bool(int64_t)> &run, int64_t limit) {
  for (int64_t k = 0; k < limit; ++k)
    if (!run(k)) return k;
  return limit;
}

}  // namespace sorn_test

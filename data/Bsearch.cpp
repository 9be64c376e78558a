// Binary searches over sorted records with a caller's comparison
// cmp(element, key, ctx). One walk serves the three answers: a record equal
// to the key, or where the key would go (the first record above it), or the
// last record below it.
#include <sorn.h>

#include <cstdint>

namespace sorn::bsearch {
namespace {

enum class Miss { Null, Next, Previous };

// The first record is tested on its own: equal answers it, above the key
// ends the search before the walk; the walk then halves records 1 to n - 1.
template <Miss miss>
void *walk(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx) {
  const char *const rec = static_cast<const char *>(base);
  if (n == 0) return nullptr;
  int c = cmp(rec, key, ctx);
  if (c == 0) return const_cast<char *>(rec);
  if (c > 0) return miss == Miss::Next ? const_cast<char *>(rec) : nullptr;
  if (n == 1) {
    if (miss == Miss::Next) return const_cast<char *>(rec + size);
    return miss == Miss::Previous ? const_cast<char *>(rec) : nullptr;
  }
  size_t lo = 1, hi = n - 1;
  while (lo <= hi) {
    const size_t mid = (lo + hi) >> 1;
    const char *at = rec + mid * size;
    c = cmp(at, key, ctx);
    if (c == 0) return const_cast<char *>(at);
    if (c > 0)
      hi = mid - 1;  // mid is at least 1
    else
      lo = mid + 1;
  }
  if (miss == Miss::Next) return const_cast<char *>(rec + lo * size);
  if (miss == Miss::Previous) return const_cast<char *>(rec + hi * size);
  return nullptr;
}

}  // namespace
}  // namespace sorn::bsearch

using sorn::bsearch::Miss;
using sorn::bsearch::walk;

void *KuBsearch(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                void *ctx) {
  return walk<Miss::Null>(key, base, n, size, cmp, ctx);
}

void *KuBsearchN(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                 void *ctx) {
  return walk<Miss::Next>(key, base, n, size, cmp, ctx);
}

void *KuBsearchP(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                 void *ctx) {
  return walk<Miss::Previous>(key, base, n, size, cmp, ctx);
}

// The checked search: a sequence whose bytes would not fit in 31 bits, or
// a missing operand of a non-empty one, is refused with status -1. The
// status then says whether a record was found.
void *KuBsearch_s(const void *key, const void *base, size_t n, size_t size, KuCompareProc cmp,
                  void *ctx, int64_t *status) {
  const bool ok = size != 0 && n <= 0x7FFFFFFFu / size &&
                  (n == 0 || (key != nullptr && base != nullptr && cmp != nullptr));
  void *found = ok ? KuBsearch(key, base, n, size, cmp, ctx) : nullptr;
  if (status != nullptr) *status = found != nullptr ? 0 : -1;
  return found;
}

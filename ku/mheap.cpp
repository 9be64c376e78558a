// Heap blocks for containers that grow and shrink out of stack order (the
// region analysis keeps its pools, vectors and point lists here). A thin layer
// over the C library's heap, with one difference that callers rely on: a
// resize never frees. A size of 0 still yields a live block, so that null
// always means "no memory, the old block is untouched".
#include <sorn.h>

#include <cstdlib>

extern "C" {

void *_KuMcalloc(size_t count, size_t size, int32_t flags) {
  if (count == 0 || size == 0) return std::calloc(1, 1);
  return std::calloc(count, size);
}

void *_KuMrealloc(void *block, size_t size, int32_t flags) {
  return std::realloc(block, size ? size : 1);
}

void _KuMfree(void *block) { std::free(block); }

void KuMfree(void *block) { std::free(block); }

}  // extern "C"

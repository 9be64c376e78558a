// Comparison rows of sorting: a million records with a caller's comparison,
// against the C library's qsort_r given the same function and records.
#include <sorn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "compare.h"

using namespace compare;

namespace {

// Records of `size` bytes ordered by the unsigned key in their first four;
// both sorts are given this same function.
int compare_record_key(const void *a, const void *b, void *) {
  uint32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return (x > y) - (x < y);
}

// A million random records, 4 and 16 bytes each. Every call sorts a fresh
// copy of the same input; the copy is in both times alike.
void sort(const Scenes &, const Options &opt) {
  const size_t n = 1000000;
  const int samples = opt.quick ? 5 : opt.samples;
  for (size_t size : {(size_t)4, (size_t)16}) {
    std::vector<uint8_t> input(n * size), work(n * size);
    uint64_t x = 0x50F7;
    for (size_t i = 0; i < n; ++i) {
      x = x * 6364136223846793005ull + 1442695040888963407ull;
      std::memcpy(&input[i * size], &x, 4);
      for (size_t b = 4; b < size; ++b) input[i * size + b] = (uint8_t)(i + b);
    }
    const auto t = race({[&] {
                           std::memcpy(work.data(), input.data(), input.size());
                           if (KuQuickSort(work.data(), n, size, compare_record_key, nullptr) != 0)
                             check(SORN_EINVAL, "KuQuickSort");
                         },
                         [&] {
                           std::memcpy(work.data(), input.data(), input.size());
                           qsort_r(work.data(), n, size, compare_record_key, nullptr);
                         }},
                        samples);
    add_sized_row("sort, caller's comparison (KuQuickSort)",
                  "10^6 x " + std::to_string(size) + " B", "qsort_r", t[0], t[1], 1.0,
                  "same comparison function and records");
  }
}

}  // namespace

SORN_COMPARE_FAMILY(sort, 90, sort);

// In-place sorts of fixed-size records with a caller's comparison and a
// context word: quick sort with a guaranteed worst case, heap sort, stable
// insertion sort and selection sort, each at three levels (checked entry,
// unchecked entry, kernel).
//
// Every sort is one template over a record policy: sizes that records often
// have (1, 2, 4, 8, 12, 16 bytes) move as blocks whose length the compiler
// knows, any other size in 8-byte words and a byte tail. The comparisons a
// sort makes depend only on the algorithm, never on the policy, so that a
// caller who counts them sees the same count for every record size.
#include <sorn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace sorn::sort {
namespace {

// Records of a size known when compiling.
template <size_t N> struct FixedRecord {
  static constexpr size_t size() { return N; }
  static void swap(char *a, char *b) {
    unsigned char t[N];
    std::memcpy(t, a, N);
    std::memcpy(a, b, N);
    std::memcpy(b, t, N);
  }
};

// Records of any size: words while they last, then bytes.
struct AnyRecord {
  size_t bytes;
  size_t size() const { return bytes; }
  void swap(char *a, char *b) const {
    size_t k = 0;
    for (; k + 8 <= bytes; k += 8) {
      uint64_t x, y;
      std::memcpy(&x, a + k, 8);
      std::memcpy(&y, b + k, 8);
      std::memcpy(a + k, &y, 8);
      std::memcpy(b + k, &x, 8);
    }
    for (; k < bytes; ++k) {
      const char t = a[k];
      a[k] = b[k];
      b[k] = t;
    }
  }
};

// Calls f with the policy that fits records of `size` bytes.
template <class F> void with_record(size_t size, F &&f) {
  switch (size) {
    case 1: return f(FixedRecord<1>{});
    case 2: return f(FixedRecord<2>{});
    case 4: return f(FixedRecord<4>{});
    case 8: return f(FixedRecord<8>{});
    case 12: return f(FixedRecord<12>{});
    case 16: return f(FixedRecord<16>{});
    default: return f(AnyRecord{size});
  }
}

// Two records: one comparison, and a swap when they are out of order.
template <class R> void sort_pair(char *base, R r, KuCompareProc cmp, void *ctx) {
  if (cmp(base, base + r.size(), ctx) > 0) r.swap(base, base + r.size());
}

// The unchecked form of a sort: fewer than two records need nothing, two
// take one comparison, more go to `kernel`.
template <class Kernel, class R>
void unchecked(Kernel kernel, char *base, size_t n, R r, KuCompareProc cmp, void *ctx) {
  if (n < 2) return;
  if (n == 2) return sort_pair(base, r, cmp, ctx);
  kernel(base, n, r, cmp, ctx);
}

// Selection: each place takes the first of the strictly smallest records
// after it. Not stable; n(n-1)/2 comparisons whatever the order.
template <class R> void select_sort(char *base, size_t n, R r, KuCompareProc cmp, void *ctx) {
  if (n < 2) return;
  const size_t sz = r.size();
  char *const last = base + (n - 1) * sz;
  for (char *i = base; i < last; i += sz) {
    char *least = i;
    for (char *j = i + sz; j <= last; j += sz)
      if (cmp(j, least, ctx) < 0) least = j;
    if (least != i) r.swap(i, least);
  }
}

constexpr auto kSelectSort = [](char *base, size_t n, auto r, KuCompareProc cmp, void *ctx) {
  select_sort(base, n, r, cmp, ctx);
};

// Heap sort with records numbered from 1: the heap is built from record
// n / 2 down, then the root is swapped behind the shrinking heap.
template <class R> void heap_sort(char *base, size_t n, R r, KuCompareProc cmp, void *ctx) {
  if (n < 2) return;
  const size_t sz = r.size();
  auto at = [&](size_t k) { return base + (k - 1) * sz; };
  size_t l = n / 2 + 1, hi = n;
  for (;;) {
    size_t root;
    if (l > 1) {
      root = --l;
    } else {
      --hi;
      r.swap(at(1), at(hi + 1));
      if (hi == 1) return;
      root = 1;
    }
    for (size_t j = 2 * root; j <= hi; j = 2 * root) {
      if (j < hi && cmp(at(j), at(j + 1), ctx) < 0) ++j;
      if (cmp(at(root), at(j), ctx) >= 0) break;
      r.swap(at(root), at(j));
      root = j;
    }
  }
}

// Three records by a network of two or three comparisons.
template <class R> void sort_three(char *base, R r, KuCompareProc cmp, void *ctx) {
  const size_t sz = r.size();
  char *r0 = base, *r1 = base + sz, *r2 = base + 2 * sz;
  const int c1 = cmp(r0, r1, ctx), c2 = cmp(r1, r2, ctx);
  if (c1 <= 0 && c2 <= 0) return;
  if (c1 > 0 && c2 > 0) return r.swap(r0, r2);
  const int c3 = cmp(r0, r2, ctx);
  if (c1 <= 0) {
    r.swap(r1, r2);
    if (c3 > 0) r.swap(r0, r1);
  } else {
    r.swap(r0, r1);
    if (c3 > 0) r.swap(r1, r2);
  }
}

constexpr auto kHeapSort = [](char *base, size_t n, auto r, KuCompareProc cmp, void *ctx) {
  heap_sort(base, n, r, cmp, ctx);
};
// Unchecked, three records take the network rather than the heap.
constexpr auto kHeapSortSmall = [](char *base, size_t n, auto r, KuCompareProc cmp, void *ctx) {
  if (n == 3) return sort_three(base, r, cmp, ctx);
  heap_sort(base, n, r, cmp, ctx);
};

// Stable insertion sort. A record that moves further than its neighbour's
// place waits in a buffer while the records it passes shift up by one; the
// buffer lives on the stack for records up to 256 bytes and on the heap
// above. Without a heap buffer the sequence stays as it was.
template <class R> void insert_sort(char *base, size_t n, R r, KuCompareProc cmp, void *ctx) {
  const size_t sz = r.size();
  alignas(16) unsigned char local[256];
  unsigned char *held = local;
  if (sz > sizeof local) {
    held = static_cast<unsigned char *>(std::malloc(sz));
    if (held == nullptr) return;
  }
  for (size_t k = 1; k < n; ++k) {
    char *x = base + k * sz;
    if (cmp(x, x - sz, ctx) >= 0) continue;
    size_t p = k - 1;
    while (p > 0 && cmp(x, base + (p - 1) * sz, ctx) < 0) --p;
    char *to = base + p * sz;
    if (k - p == 1) {
      r.swap(to, x);
    } else {
      std::memcpy(held, x, sz);
      std::memmove(to + sz, to, (k - p) * sz);
      std::memcpy(to, held, sz);
    }
  }
  if (held != local) std::free(held);
}

constexpr auto kInsertSort = [](char *base, size_t n, auto r, KuCompareProc cmp, void *ctx) {
  insert_sort(base, n, r, cmp, ctx);
};

// Quick sort on an explicit stack, without recursion.
//
// Each segment carries its level: how many partitions lie between it and
// the whole sequence, which is how deep a recursive sort would have nested
// to reach it. A segment found more than 63 levels deep is heap sorted, so
// an input built to defeat the median of three costs at most 64 passes over
// the records plus one heap sort, never a quadratic number of comparisons.
// The larger part of a partition waits on the stack while the smaller goes
// on, so the stack itself never holds more than log2(n) segments.
//
// Positions are byte offsets from the segment's first record. The bounds
// tests on the scans never stop a scan early when the comparison is a
// consistent order (a sentinel always stops it first); they only keep an
// inconsistent comparison from leading the scans out of the segment.
constexpr uint32_t kDeepestLevel = 63;

template <class R> void quick_sort(char *base, size_t n, R r, KuCompareProc cmp, void *ctx) {
  const ptrdiff_t sz = (ptrdiff_t)r.size();
  struct Segment {
    char *first;
    size_t count;
    uint32_t level;
  };
  Segment stack[64];
  int depth = 0;

  char *lo = base;
  size_t m = n;
  uint32_t level = 0;
  for (;;) {
    if (m < 9) {
      unchecked(kSelectSort, lo, m, r, cmp, ctx);
      if (depth == 0) return;
      --depth;
      lo = stack[depth].first;
      m = stack[depth].count;
      level = stack[depth].level;
      continue;
    }

    // The median of the first, middle and last records goes last.
    char *a = lo, *b = lo + (ptrdiff_t)(m / 2) * sz;
    const ptrdiff_t zo = (ptrdiff_t)(m - 1) * sz;
    char *z = lo + zo;
    {
      const int c1 = cmp(a, z, ctx), c2 = cmp(b, z, ctx);
      if (c1 <= 0 && c2 > 0) {
      } else if (c1 > 0 && c2 <= 0) {
        r.swap(a, b);
      } else {
        if (cmp(a, b, ctx) > 0) r.swap(a, b);
        if (c1 <= 0)
          r.swap(b, z);
        else
          r.swap(a, z);
      }
    }

    // Partition against the pivot in z: records below it end in front of i.
    ptrdiff_t i = 0;
    int at_first = 0;  // what the first record compared as
    while (i < zo && (at_first = cmp(lo + i, z, ctx)) < 0) i += sz;
    for (ptrdiff_t j = zo - sz; j > i; j -= sz) {
      if (cmp(lo + j, z, ctx) < 0) {
        do {
          r.swap(lo + i, lo + j);
          do i += sz;
          while (i < zo && cmp(lo + i, z, ctx) < 0);
          do j -= sz;
          while (j >= 0 && cmp(lo + j, z, ctx) >= 0);
        } while (i < j);
        break;
      }
    }

    if (i != 0) {
      if (level > kDeepestLevel) {
        unchecked(kHeapSortSmall, lo, m, r, cmp, ctx);
        m = 0;
        continue;
      }
      if (i != zo) r.swap(lo + i, z);
      ++level;
      const size_t below = (size_t)(i / sz), above = (size_t)((zo - i) / sz);
      if (above == 1) {
        m = below;  // the one record above the pivot is in place
      } else if (above <= below) {
        stack[depth++] = Segment{lo, below, level};
        lo += i + sz;
        m = above;
      } else {
        stack[depth++] = Segment{lo + i + sz, above, level};
        m = below;
      }
      continue;
    }

    // No record is below the pivot: it is the segment's minimum. Records
    // equal to it gather in front and the segment goes on after them.
    ptrdiff_t f = 0;
    if (at_first == 0) {
      do f += sz;
      while (f < zo && cmp(lo + f, a, ctx) == 0);
      if (f == zo) {
        lo += zo;  // all equal: only the pivot is left
        m = 1;
        continue;
      }
    }
    ptrdiff_t t = zo;
    do {
      r.swap(lo + f, lo + t);
      do f += sz;
      while (f <= zo && cmp(lo + f, a, ctx) == 0);
      do t -= sz;
      while (t >= 0 && cmp(a, lo + t, ctx) < 0);
    } while (f < t);
    lo += f;
    m -= (size_t)(f / sz);
    if (++level > kDeepestLevel && m >= 9) {
      unchecked(kHeapSortSmall, lo, m, r, cmp, ctx);
      m = 0;
    }
  }
}

constexpr auto kQuickSort = [](char *base, size_t n, auto r, KuCompareProc cmp, void *ctx) {
  quick_sort(base, n, r, cmp, ctx);
};

// Checks shared by the four checked entries. Answers 1 when the kernel is
// to run, else the status to return (0 or -1) through *status.
bool checked_start(void *base, size_t n, size_t size, KuCompareProc cmp, int *status) {
  *status = -1;
  if (size == 0 || n > 0x7FFFFFFFu / size) return false;
  *status = 0;
  if (n == 0) return false;
  if (base == nullptr || cmp == nullptr) {
    *status = -1;
    return false;
  }
  return n >= 2;
}

}  // namespace
}  // namespace sorn::sort

using namespace sorn::sort;

// The three levels of each sort are spelled out by one macro, so that they
// cannot differ in their checks: the kernel (n at least 3), the unchecked
// entry (shorter sequences by hand, then `small`) and the checked entry.
#define SORN_SORT_LEVELS(Name, kernel, small)                                            \
  void __Ku##Name(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx) {     \
    with_record(size, [&](auto r) { kernel((char *)base, n, r, cmp, ctx); });            \
  }                                                                                      \
  void Ku##Name##_nck(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx) { \
    with_record(size, [&](auto r) { unchecked(small, (char *)base, n, r, cmp, ctx); });  \
  }                                                                                      \
  int Ku##Name(void *base, size_t n, size_t size, KuCompareProc cmp, void *ctx) {        \
    int status;                                                                          \
    if (!checked_start(base, n, size, cmp, &status)) return status;                      \
    with_record(size, [&](auto r) { unchecked(kernel, (char *)base, n, r, cmp, ctx); }); \
    return 0;                                                                            \
  }

SORN_SORT_LEVELS(QuickSort, kQuickSort, kQuickSort)
SORN_SORT_LEVELS(HeapSort, kHeapSort, kHeapSortSmall)
SORN_SORT_LEVELS(InsertSort, kInsertSort, kInsertSort)
SORN_SORT_LEVELS(SelectSort, kSelectSort, kSelectSort)

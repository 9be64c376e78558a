// Plain models of the four sorts, written on a vector of items with indexes
// instead of byte offsets, each step as the algorithm states it. Every
// comparison is logged with the ids of its two items, so that a test can
// hold the library's sequence of comparisons, and not only its result, to
// the algorithm. Nothing here calls the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace sort_ref {

struct Item {
  uint32_t key;
  uint32_t id;
};

struct Log {
  std::vector<std::pair<uint32_t, uint32_t>> calls;  // ids of (a, b)
  bool fell_back = false;  // quick sort gave a segment to heap sort
  // When set, decides each comparison by the ids instead of the keys (an
  // adversary that fixes values as they are compared), and nothing is
  // logged.
  std::function<int(uint32_t, uint32_t)> decide;
  uint64_t count = 0;
};

using Seq = std::vector<Item>;

inline int compare(Log &log, const Item &a, const Item &b) {
  ++log.count;
  if (log.decide) return log.decide(a.id, b.id);
  log.calls.emplace_back(a.id, b.id);
  return a.key < b.key ? -1 : a.key > b.key ? 1 : 0;
}

inline void pair_sort(Seq &s, size_t lo, Log &log) {
  if (compare(log, s[lo], s[lo + 1]) > 0) std::swap(s[lo], s[lo + 1]);
}

inline void select_kernel(Seq &s, size_t lo, size_t n, Log &log) {
  for (size_t i = lo; i + 1 < lo + n; ++i) {
    size_t least = i;
    for (size_t j = i + 1; j < lo + n; ++j)
      if (compare(log, s[j], s[least]) < 0) least = j;
    if (least != i) std::swap(s[i], s[least]);
  }
}

inline void select_nck(Seq &s, size_t lo, size_t n, Log &log) {
  if (n < 2) return;
  if (n == 2) return pair_sort(s, lo, log);
  select_kernel(s, lo, n, log);
}

// Records numbered from 1.
inline void heap_kernel(Seq &s, size_t lo, size_t n, Log &log) {
  auto at = [&](size_t k) -> Item & { return s[lo + k - 1]; };
  size_t l = n / 2 + 1, r = n;
  for (;;) {
    size_t root;
    if (l > 1) {
      --l;
      root = l;
    } else {
      --r;
      std::swap(at(1), at(r + 1));
      if (r == 1) return;
      root = 1;
    }
    size_t j = 2 * root;
    while (j <= r) {
      size_t child = j;
      if (j + 1 <= r && compare(log, at(j), at(j + 1)) < 0) child = j + 1;
      if (compare(log, at(root), at(child)) >= 0) break;
      std::swap(at(root), at(child));
      root = child;
      j = 2 * root;
    }
  }
}

inline void heap_nck(Seq &s, size_t lo, size_t n, Log &log) {
  if (n < 2) return;
  if (n == 2) return pair_sort(s, lo, log);
  if (n == 3) {
    Item &r0 = s[lo], &r1 = s[lo + 1], &r2 = s[lo + 2];
    const int c1 = compare(log, r0, r1), c2 = compare(log, r1, r2);
    if (c1 <= 0 && c2 <= 0) return;
    if (c1 > 0 && c2 > 0) return std::swap(r0, r2);
    const int c3 = compare(log, r0, r2);
    if (c1 <= 0) {
      std::swap(r1, r2);
      if (c3 > 0) std::swap(r0, r1);
    } else {
      std::swap(r0, r1);
      if (c3 > 0) std::swap(r1, r2);
    }
    return;
  }
  heap_kernel(s, lo, n, log);
}

inline void insert_kernel(Seq &s, size_t lo, size_t n, Log &log) {
  for (size_t k = lo + 1; k < lo + n; ++k) {
    const Item x = s[k];
    if (compare(log, s[k], s[k - 1]) >= 0) continue;
    size_t p = k - 1;
    while (p > lo && compare(log, s[k], s[p - 1]) < 0) --p;
    for (size_t q = k; q > p; --q) s[q] = s[q - 1];
    s[p] = x;
  }
}

// Quick sort with its level limit (deepest 63), or without it when
// `limited` is false: then it is a plain median-of-three quick sort, the
// kind that a crafted input drives to a quadratic number of comparisons.
inline void quick_kernel(Seq &s, size_t base, size_t n, Log &log, bool limited = true) {
  struct Seg {
    size_t lo, m;
    unsigned level;
  };
  std::vector<Seg> stack;
  size_t lo = base, m = n;
  unsigned level = 0;
  for (;;) {
    if (m < 9) {
      select_nck(s, lo, m, log);
      if (stack.empty()) return;
      lo = stack.back().lo;
      m = stack.back().m;
      level = stack.back().level;
      stack.pop_back();
      continue;
    }
    const size_t a = lo, b = lo + m / 2, z = lo + m - 1;
    const int c1 = compare(log, s[a], s[z]), c2 = compare(log, s[b], s[z]);
    if (c1 <= 0 && c2 > 0) {
    } else if (c1 > 0 && c2 <= 0) {
      std::swap(s[a], s[b]);
    } else {
      const int c3 = compare(log, s[a], s[b]);
      if (c3 > 0) std::swap(s[a], s[b]);
      if (c1 <= 0)
        std::swap(s[b], s[z]);
      else
        std::swap(s[a], s[z]);
    }
    size_t i = a;
    int first = 0;
    while ((first = compare(log, s[i], s[z])) < 0) ++i;
    size_t j = z;
    for (;;) {
      --j;
      if (j <= i) break;
      if (compare(log, s[j], s[z]) < 0) {
        do {
          std::swap(s[i], s[j]);
          do ++i; while (compare(log, s[i], s[z]) < 0);
          do --j; while (compare(log, s[j], s[z]) >= 0);
        } while (i < j);
        break;
      }
    }
    if (i != a) {
      if (limited && level > 63) {
        log.fell_back = true;
        heap_nck(s, lo, m, log);
        m = 0;
        continue;
      }
      std::swap(s[i], s[z]);
      ++level;
      if (z == i + 1) {
        m = i - lo;
        continue;
      }
      const size_t below = i - lo, above = z - i;
      if (below >= above) {
        stack.push_back(Seg{lo, below, level});
        lo = i + 1;
        m = above;
      } else {
        stack.push_back(Seg{i + 1, above, level});
        m = below;
      }
      continue;
    }
    // The pivot is the minimum: records equal to it go to the front.
    size_t f = a;
    if (first == 0) {
      do ++f; while (f < z && compare(log, s[f], s[a]) == 0);
      if (f == z) {
        lo = z;
        m = 1;
        continue;
      }
    }
    size_t t = z;
    do {
      std::swap(s[f], s[t]);
      do ++f; while (compare(log, s[f], s[a]) == 0);
      do --t; while (compare(log, s[a], s[t]) < 0);
    } while (f < t);
    m -= f - lo;
    lo = f;
    ++level;
    if (limited && level > 63 && m >= 9) {
      log.fell_back = true;
      heap_nck(s, lo, m, log);
      m = 0;
    }
  }
}

// The checked entries' handling of short sequences (n of 3 and more go to
// the kernel).
template <class Kernel>
void checked(Seq &s, Log &log, Kernel kernel) {
  if (s.size() < 2) return;
  if (s.size() == 2) return pair_sort(s, 0, log);
  kernel(s, 0, s.size(), log);
}

}  // namespace sort_ref

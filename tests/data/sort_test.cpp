// The four sorts at their three levels: checks of the entries, results
// against std::sort and std::stable_sort over record sizes of 1 to 100 bytes
// and counts up to 100000, the exact sequence of comparisons against plain
// models of the algorithms, and the worst case of the quick sort on inputs
// built to defeat it.
#include <gtest/gtest.h>
#include <testkit.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <malloc.h>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "sort_reference.h"

// Under the address sanitizer the heap is its allocator, which counts the
// bytes it has given out; its runtime has the function whatever headers the
// compiler ships.
#if defined(__SANITIZE_ADDRESS__)
#define SORN_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SORN_TEST_ASAN 1
#endif
#endif
#ifdef SORN_TEST_ASAN
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif

using sorn_test::seeded_rng;

// A request that no heap can meet answers null under the address sanitizer
// too, as it does under the C library.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

using SortFn = int (*)(void *, size_t, size_t, KuCompareProc, void *);
using VoidSortFn = void (*)(void *, size_t, size_t, KuCompareProc, void *);

struct Sorts {
  const char *name;
  SortFn checked;
  VoidSortFn nck;
  VoidSortFn kernel;
  bool stable;
  size_t max_n;  // the quadratic sorts are tried on shorter sequences
};

const Sorts kSorts[] = {
    {"quick", KuQuickSort, KuQuickSort_nck, __KuQuickSort, false, 100000},
    {"heap", KuHeapSort, KuHeapSort_nck, __KuHeapSort, false, 100000},
    {"insert", KuInsertSort, KuInsertSort_nck, __KuInsertSort, true, 3000},
    {"select", KuSelectSort, KuSelectSort_nck, __KuSelectSort, false, 1500},
};

// ---------------------------------------------------------------- records

// A record of `size` bytes: its key is the first min(size, 4) bytes, little
// endian; the other bytes carry a tag that tells records with equal keys
// apart.
struct Layout {
  size_t size;
  size_t keybytes() const { return size < 4 ? size : 4; }
};

uint32_t key_of(const uint8_t *r, size_t keybytes) {
  uint32_t k = 0;
  for (size_t i = 0; i < keybytes; ++i) k |= (uint32_t)r[i] << (8 * i);
  return k;
}

struct Counter {
  size_t keybytes;
  uint64_t calls = 0;
};

int compare_keys(const void *a, const void *b, void *ctx) {
  Counter *c = static_cast<Counter *>(ctx);
  ++c->calls;
  const uint32_t x = key_of(static_cast<const uint8_t *>(a), c->keybytes);
  const uint32_t y = key_of(static_cast<const uint8_t *>(b), c->keybytes);
  return x < y ? -1 : x > y ? 1 : 0;
}

enum class Pattern { Random, FewKeys, Sorted, Reversed, AllEqual, OrganPipe, Sawtooth };
const Pattern kPatterns[] = {Pattern::Random,   Pattern::FewKeys,   Pattern::Sorted,  Pattern::Reversed,
                             Pattern::AllEqual, Pattern::OrganPipe, Pattern::Sawtooth};

const char *pattern_name(Pattern p) {
  switch (p) {
    case Pattern::Random: return "random";
    case Pattern::FewKeys: return "few keys";
    case Pattern::Sorted: return "sorted";
    case Pattern::Reversed: return "reversed";
    case Pattern::AllEqual: return "all equal";
    case Pattern::OrganPipe: return "organ pipe";
    case Pattern::Sawtooth: return "sawtooth";
  }
  return "?";
}

// n records of the pattern; keys are limited to what the key bytes hold.
std::vector<uint8_t> make_records(Layout lay, size_t n, Pattern p, std::mt19937_64 &rng) {
  std::vector<uint8_t> v(n * lay.size);
  const uint64_t kmax = lay.keybytes() == 4 ? 0xFFFFFFFFull : (1ull << (8 * lay.keybytes())) - 1;
  for (size_t i = 0; i < n; ++i) {
    uint64_t k = 0;
    switch (p) {
      case Pattern::Random: k = rng(); break;
      case Pattern::FewKeys: k = rng() % 5; break;
      case Pattern::Sorted: k = i; break;
      case Pattern::Reversed: k = n - i; break;
      case Pattern::AllEqual: k = 7; break;
      case Pattern::OrganPipe: k = i < n / 2 ? i : n - i; break;
      case Pattern::Sawtooth: k = i % 17; break;
    }
    if (p == Pattern::Sorted || p == Pattern::Reversed || p == Pattern::OrganPipe)
      k = k * kmax / (n ? n : 1);  // keep the order within narrow keys
    else
      k %= kmax + 1;
    uint8_t *r = v.data() + i * lay.size;
    for (size_t b = 0; b < lay.keybytes(); ++b) r[b] = (uint8_t)(k >> (8 * b));
    for (size_t b = lay.keybytes(); b < lay.size; ++b) r[b] = (uint8_t)((i >> (8 * ((b - 4) % 4))) ^ (b * 31));
  }
  return v;
}

// A record as a string of bytes, which orders and compares whole records.
using Rec = std::string;

std::vector<Rec> split(const uint8_t *v, size_t bytes, size_t size) {
  std::vector<Rec> out;
  for (size_t i = 0; i * size < bytes; ++i) out.emplace_back((const char *)v + i * size, size);
  return out;
}

const uint8_t *bytes_of(const Rec &r) { return reinterpret_cast<const uint8_t *>(r.data()); }

// ---------------------------------------------------------------- results against std::sort

void check_against_std(const Sorts &s, Layout lay, size_t n, Pattern p, std::mt19937_64 &rng,
                       int level) {
  std::vector<uint8_t> data = make_records(lay, n, p, rng);
  std::vector<Rec> expect = split(data.data(), data.size(), lay.size);
  const size_t kb = lay.keybytes();
  auto less = [kb](const Rec &a, const Rec &b) { return key_of(bytes_of(a), kb) < key_of(bytes_of(b), kb); };
  if (s.stable)
    std::stable_sort(expect.begin(), expect.end(), less);
  else
    std::sort(expect.begin(), expect.end(), less);

  Counter c{kb};
  sorn_test::Guarded buf(data.size() ? data.size() : 1);
  if (!data.empty()) std::memcpy(buf.data(), data.data(), data.size());
  if (level == 0) {
    ASSERT_EQ(0, s.checked(buf.data(), n, lay.size, compare_keys, &c));
  } else if (level == 1) {
    s.nck(buf.data(), n, lay.size, compare_keys, &c);
  } else {
    s.kernel(buf.data(), n, lay.size, compare_keys, &c);
  }
  ASSERT_TRUE(buf.guards_intact()) << s.name;
  std::vector<Rec> got = split(buf.data(), data.size(), lay.size);
  const std::string what = std::string(s.name) + " level " + std::to_string(level) + ", " +
                           pattern_name(p) + ", n " + std::to_string(n) + ", size " +
                           std::to_string(lay.size);
  if (s.stable) {
    ASSERT_TRUE(expect == got) << what;
    return;
  }
  // Unstable sorts: the keys in order, and the same records.
  for (size_t i = 0; i < n; ++i)
    ASSERT_EQ(key_of(bytes_of(expect[i]), kb), key_of(bytes_of(got[i]), kb)) << what << " at " << i;
  std::sort(expect.begin(), expect.end());
  std::sort(got.begin(), got.end());
  ASSERT_TRUE(expect == got) << what;
}

TEST(Sort, EveryRecordSizeFrom1To100MatchesTheStandardSorts) {
  auto rng = seeded_rng(0x5047);
  const size_t counts[] = {0, 1, 2, 3, 4, 8, 9, 10, 17, 64, 257, 1000};
  for (const Sorts &s : kSorts)
    for (size_t size = 1; size <= 100; ++size)
      for (size_t n : counts) {
        if (n > s.max_n) continue;
        const Pattern p = kPatterns[(size + n) % 7];
        // The kernels are for three records and more.
        const int level = (int)((size + n) % (n >= 3 ? 3 : 2));
        check_against_std(s, Layout{size}, n, p, rng, level);
        if (HasFatalFailure()) return;
      }
}

TEST(Sort, EveryPatternUpTo100000RecordsMatchesTheStandardSorts) {
  auto rng = seeded_rng(0x5048);
  const size_t counts[] = {5, 9, 31, 100, 1000, 10000, 100000};
  const size_t sizes[] = {1, 4, 7, 16, 100};
  for (const Sorts &s : kSorts)
    for (size_t size : sizes)
      for (Pattern p : kPatterns)
        for (size_t n : counts) {
          // Heap sort of 100-byte records is the slowest of these; the
          // largest count once per pattern is enough.
          if (n > s.max_n || (n == 100000 && size != 4 && size != 100)) continue;
          check_against_std(s, Layout{size}, n, p, rng, 0);
          if (HasFatalFailure()) return;
        }
}

TEST(InsertSort, KeepsRecordsWithEqualKeysInTheirOrder) {
  // Two keys only, tags in the payload: the stable order is the order of
  // appearance within each key.
  auto rng = seeded_rng(0x5049);
  std::vector<uint8_t> v(500 * 8);
  for (uint32_t i = 0; i < 500; ++i) {
    const uint32_t key = (uint32_t)(rng() & 1), tag = i;
    std::memcpy(&v[i * 8], &key, 4);
    std::memcpy(&v[i * 8 + 4], &tag, 4);
  }
  Counter c{4};
  ASSERT_EQ(0, KuInsertSort(v.data(), 500, 8, compare_keys, &c));
  uint32_t last_key = 0, last_tag = 0;
  for (uint32_t i = 0; i < 500; ++i) {
    uint32_t key, tag;
    std::memcpy(&key, &v[i * 8], 4);
    std::memcpy(&tag, &v[i * 8 + 4], 4);
    if (i > 0) {
      ASSERT_LE(last_key, key);
      if (key == last_key) {
        ASSERT_LT(last_tag, tag);
      }
    }
    last_key = key;
    last_tag = tag;
  }
}

// ---------------------------------------------------------------- checks of the entries

int never_called(const void *, const void *, void *ctx) {
  ++*static_cast<int *>(ctx);
  return 0;
}

TEST(SortChecks, SizeZeroAndOversizedSequencesAreRefused) {
  for (const Sorts &s : kSorts) {
    int calls = 0;
    uint8_t rec[4] = {3, 2, 1, 0};
    EXPECT_EQ(-1, s.checked(rec, 4, 0, never_called, &calls)) << s.name;
    EXPECT_EQ(-1, s.checked(rec, 0x80000000u, 1, never_called, &calls)) << s.name;
    EXPECT_EQ(-1, s.checked(rec, 0x7FFFFFFFu / 3 + 1, 3, never_called, &calls)) << s.name;
    // The limit itself is still a sequence: it has its n of 0 checked first.
    EXPECT_EQ(-1, s.checked(rec, (size_t)1 << 40, 1, never_called, &calls)) << s.name;
    EXPECT_EQ(0, calls) << s.name;
    EXPECT_EQ(3, rec[0]);
  }
}

TEST(SortChecks, EmptySequenceNeedsNoOperands) {
  for (const Sorts &s : kSorts) {
    EXPECT_EQ(0, s.checked(nullptr, 0, 4, nullptr, nullptr)) << s.name;
    // The size is looked at before the count.
    EXPECT_EQ(-1, s.checked(nullptr, 0, 0, nullptr, nullptr)) << s.name;
  }
}

TEST(SortChecks, MissingBaseOrComparisonIsRefused) {
  for (const Sorts &s : kSorts) {
    int calls = 0;
    uint8_t rec[2] = {2, 1};
    EXPECT_EQ(-1, s.checked(nullptr, 2, 1, never_called, &calls)) << s.name;
    EXPECT_EQ(-1, s.checked(rec, 2, 1, nullptr, &calls)) << s.name;
    // One record, as well: the operands are checked before n of 1 returns.
    EXPECT_EQ(-1, s.checked(nullptr, 1, 1, never_called, &calls)) << s.name;
    EXPECT_EQ(0, calls);
    EXPECT_EQ(2, rec[0]);
  }
}

TEST(SortChecks, OneRecordMakesNoComparison) {
  for (const Sorts &s : kSorts) {
    int calls = 0;
    uint8_t rec = 9;
    EXPECT_EQ(0, s.checked(&rec, 1, 1, never_called, &calls)) << s.name;
    s.nck(&rec, 1, 1, never_called, &calls);
    s.nck(nullptr, 0, 1, never_called, &calls);
    EXPECT_EQ(0, calls) << s.name;
  }
}

TEST(SortChecks, TwoRecordsMakeOneComparisonAtEveryLevelAbove) {
  for (const Sorts &s : kSorts) {
    for (int level = 0; level < 2; ++level) {
      uint8_t recs[2] = {5, 4};
      Counter c{1};
      if (level == 0)
        ASSERT_EQ(0, s.checked(recs, 2, 1, compare_keys, &c));
      else
        s.nck(recs, 2, 1, compare_keys, &c);
      EXPECT_EQ(1u, c.calls) << s.name;
      EXPECT_EQ(4, recs[0]);
      EXPECT_EQ(5, recs[1]);
      // In order already: one comparison and no move.
      Counter d{1};
      s.nck(recs, 2, 1, compare_keys, &d);
      EXPECT_EQ(1u, d.calls);
      EXPECT_EQ(4, recs[0]);
    }
  }
}

// ---------------------------------------------------------------- comparisons against the models

// Items {key, id} sorted through the library with every comparison logged.
struct Logged {
  std::vector<std::pair<uint32_t, uint32_t>> calls;
};

int compare_items(const void *a, const void *b, void *ctx) {
  sort_ref::Item x, y;
  std::memcpy(&x, a, sizeof x);
  std::memcpy(&y, b, sizeof y);
  static_cast<Logged *>(ctx)->calls.emplace_back(x.id, y.id);
  return x.key < y.key ? -1 : x.key > y.key ? 1 : 0;
}

sort_ref::Seq random_items(std::mt19937_64 &rng, size_t n, uint32_t keys) {
  sort_ref::Seq s(n);
  for (size_t i = 0; i < n; ++i) s[i] = sort_ref::Item{(uint32_t)(rng() % keys), (uint32_t)i};
  return s;
}

// The library at one level and the model of the same call make the same
// comparisons in the same order and leave the same permutation.
void expect_same_as_model(const sort_ref::Seq &input, VoidSortFn lib,
                          const std::function<void(sort_ref::Seq &, sort_ref::Log &)> &model,
                          const std::string &what) {
  sort_ref::Seq mine = input, ref = input;
  Logged lg;
  lib(mine.data(), mine.size(), sizeof(sort_ref::Item), compare_items, &lg);
  sort_ref::Log rl;
  model(ref, rl);
  ASSERT_EQ(rl.calls.size(), lg.calls.size()) << what;
  ASSERT_TRUE(rl.calls == lg.calls) << what;
  for (size_t i = 0; i < input.size(); ++i) ASSERT_EQ(ref[i].id, mine[i].id) << what << " at " << i;
}

TEST(SortModels, EveryKernelMakesExactlyTheComparisonsOfItsSteps) {
  auto rng = seeded_rng(0x50D1);
  const uint32_t key_ranges[] = {1, 2, 3, 10, 1000000};
  for (size_t n = 3; n <= 300; n += (n < 40 ? 1 : 37))
    for (uint32_t keys : key_ranges) {
      const sort_ref::Seq in = random_items(rng, n, keys);
      const std::string what = "n " + std::to_string(n) + ", keys " + std::to_string(keys);
      expect_same_as_model(in, __KuQuickSort,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::quick_kernel(s, 0, s.size(), l); },
                           "quick " + what);
      expect_same_as_model(in, __KuHeapSort,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::heap_kernel(s, 0, s.size(), l); },
                           "heap " + what);
      expect_same_as_model(in, __KuInsertSort,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::insert_kernel(s, 0, s.size(), l); },
                           "insert " + what);
      expect_same_as_model(in, __KuSelectSort,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::select_kernel(s, 0, s.size(), l); },
                           "select " + what);
      expect_same_as_model(in, KuHeapSort_nck,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::heap_nck(s, 0, s.size(), l); },
                           "heap nck " + what);
      if (HasFatalFailure()) return;
    }
}

TEST(SortModels, PatternedInputsFollowTheModelToo) {
  for (size_t n : {9u, 10u, 33u, 500u, 4096u}) {
    for (int p = 0; p < 5; ++p) {
      sort_ref::Seq in(n);
      for (size_t i = 0; i < n; ++i) {
        const uint32_t k = p == 0 ? (uint32_t)i : p == 1 ? (uint32_t)(n - i) : p == 2 ? 4u
                         : p == 3 ? (uint32_t)(i < n / 2 ? i : n - i) : (uint32_t)(i % 3);
        in[i] = sort_ref::Item{k, (uint32_t)i};
      }
      expect_same_as_model(in, KuQuickSort_nck,
                           [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::quick_kernel(s, 0, s.size(), l); },
                           "quick pattern " + std::to_string(p) + " n " + std::to_string(n));
      if (HasFatalFailure()) return;
    }
  }
}

TEST(HeapSortNck, ThreeRecordsGoThroughTheNetwork) {
  // Every weak order of three keys: two comparisons when the first two
  // agree in direction, three otherwise, and the records end sorted.
  for (uint32_t a = 0; a < 3; ++a)
    for (uint32_t b = 0; b < 3; ++b)
      for (uint32_t c = 0; c < 3; ++c) {
        sort_ref::Seq s = {{a, 0}, {b, 1}, {c, 2}};
        Logged lg;
        KuHeapSort_nck(s.data(), 3, sizeof(sort_ref::Item), compare_items, &lg);
        const bool agree = (a <= b && b <= c) || (a > b && b > c);
        EXPECT_EQ(agree ? 2u : 3u, lg.calls.size()) << a << b << c;
        EXPECT_TRUE(s[0].key <= s[1].key && s[1].key <= s[2].key) << a << b << c;
      }
}

TEST(HeapSortChecked, ThreeRecordsGoToTheKernelNotTheNetwork) {
  // 3 2 1: the network swaps the ends after two comparisons; the kernel
  // sifts and needs more.
  sort_ref::Seq s = {{3, 0}, {2, 1}, {1, 2}};
  Logged net, kern;
  sort_ref::Seq t = s;
  KuHeapSort_nck(s.data(), 3, sizeof(sort_ref::Item), compare_items, &net);
  ASSERT_EQ(0, KuHeapSort(t.data(), 3, sizeof(sort_ref::Item), compare_items, &kern));
  EXPECT_EQ(2u, net.calls.size());
  sort_ref::Seq m = {{3, 0}, {2, 1}, {1, 2}};
  sort_ref::Log ml;
  sort_ref::heap_kernel(m, 0, 3, ml);
  EXPECT_TRUE(ml.calls == kern.calls);
  EXPECT_EQ(1u, t[0].key);
  EXPECT_EQ(3u, t[2].key);
}

TEST(SelectSort, MakesNTimesNMinusOneHalfComparisons) {
  auto rng = seeded_rng(0x5E1E);
  for (size_t n : {3u, 8u, 50u, 333u}) {
    std::vector<uint32_t> v(n);
    for (auto &x : v) x = (uint32_t)rng();
    Counter c{4};
    ASSERT_EQ(0, KuSelectSort(v.data(), n, 4, compare_keys, &c));
    EXPECT_EQ(n * (n - 1) / 2, c.calls);
    EXPECT_TRUE(std::is_sorted(v.begin(), v.end()));
  }
}

TEST(SelectSort, TakesTheFirstOfEqualSmallestRecords) {
  // Keys 2a 1b 1c: place 0 takes 1b (the first of the two smallest), which
  // swaps 2a behind, to the place of 1b: 1b 2a 1c; then 1c moves up.
  sort_ref::Seq s = {{2, 0}, {1, 1}, {1, 2}};
  Logged lg;
  ASSERT_EQ(0, KuSelectSort(s.data(), 3, sizeof(sort_ref::Item), compare_items, &lg));
  EXPECT_EQ(1u, s[0].id);
  EXPECT_EQ(2u, s[1].id);
  EXPECT_EQ(0u, s[2].id);
}

// ---------------------------------------------------------------- quick sort edges

TEST(QuickSort, EightRecordsGoStraightToSelection) {
  // Selection's first comparison is record 1 against record 0; a partition
  // starts with record 0 against the last.
  sort_ref::Seq s(8);
  for (uint32_t i = 0; i < 8; ++i) s[i] = {8 - i, i};
  Logged lg;
  ASSERT_EQ(0, KuQuickSort(s.data(), 8, sizeof(sort_ref::Item), compare_items, &lg));
  EXPECT_EQ(28u, lg.calls.size());
  EXPECT_EQ(std::make_pair(1u, 0u), lg.calls[0]);
}

TEST(QuickSort, NineRecordsArePartitioned) {
  sort_ref::Seq s(9);
  for (uint32_t i = 0; i < 9; ++i) s[i] = {9 - i, i};
  Logged lg;
  ASSERT_EQ(0, KuQuickSort(s.data(), 9, sizeof(sort_ref::Item), compare_items, &lg));
  ASSERT_GE(lg.calls.size(), 2u);
  EXPECT_EQ(std::make_pair(0u, 8u), lg.calls[0]);  // first against last
  EXPECT_EQ(std::make_pair(4u, 8u), lg.calls[1]);  // middle (9 / 2) against last
  for (uint32_t i = 0; i < 9; ++i) EXPECT_EQ(i + 1, s[i].key);
}

TEST(QuickSort, AllEqualRecordsTakeOnePassOfTwoComparisonsARecord) {
  // Three for the median, one for the first record against the pivot, then
  // one descent over the n - 2 records between and one walk over them
  // gathering the equal ones: 2n in all, and the sort is done.
  for (size_t n : {9u, 10u, 1000u, 100000u}) {
    std::vector<uint32_t> v(n, 42);
    Counter c{4};
    ASSERT_EQ(0, KuQuickSort(v.data(), n, 4, compare_keys, &c));
    EXPECT_EQ(2 * n, c.calls) << n;
  }
}

// ---------------------------------------------------------------- the worst case

// An adversary after McIlroy ("A killer adversary for quicksort"): record
// values are decided only as the sort compares them. Undecided records
// ("gas") are above every decided one; when two gas records meet, the one
// that is not the likely pivot is frozen to the next value. Whatever the
// pivot rule, this drives a quick sort without a limit to a quadratic number
// of comparisons, and the values left at the end are an input that does so.
struct Adversary {
  std::vector<uint32_t> val;
  uint32_t gas, solid = 0, candidate = 0;
  uint64_t calls = 0;
  explicit Adversary(size_t n) : val(n, (uint32_t)n), gas((uint32_t)n) {}
  int compare(uint32_t x, uint32_t y) {
    ++calls;
    if (val[x] == gas && val[y] == gas) val[x == candidate ? x : y] = solid++;
    if (val[x] == gas)
      candidate = x;
    else if (val[y] == gas)
      candidate = y;
    return val[x] < val[y] ? -1 : val[x] > val[y] ? 1 : 0;
  }
  // The input the adversary built: every record that is still gas takes a
  // value above the frozen ones.
  std::vector<uint32_t> input() {
    for (auto &v : val)
      if (v == gas) v = solid++;
    return val;
  }
};

int compare_adversarial(const void *a, const void *b, void *ctx) {
  uint32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return static_cast<Adversary *>(ctx)->compare(x, y);
}

// What the level limit guarantees: at most 65 passes over the records (each
// at most three comparisons a record, plus five for each segment of 9 or
// more), the heap sort of what is left (2 n log2 n), and selection on
// segments below 9 records (3.5 a record).
double worst_case_bound(size_t n) {
  const double x = (double)n;
  return 65.0 * (3.0 * x + 5.0 * x / 9.0) + 2.0 * x * std::log2(x) + 3.5 * x;
}

TEST(QuickSortWorstCase, AnAdversaryCannotMakeItQuadratic) {
  for (size_t n : {1000u, 20000u, 100000u}) {
    Adversary adv(n);
    std::vector<uint32_t> idx(n);
    std::iota(idx.begin(), idx.end(), 0u);
    ASSERT_EQ(0, KuQuickSort(idx.data(), n, 4, compare_adversarial, &adv));
    std::printf("[ adversary ] n %zu: %llu comparisons, bound %.0f, n^2/4 %.0f\n", n,
                (unsigned long long)adv.calls, worst_case_bound(n), (double)n * n / 4);
    EXPECT_LE((double)adv.calls, worst_case_bound(n)) << n;
    for (size_t i = 1; i < n; ++i) ASSERT_LT(adv.val[idx[i - 1]], adv.val[idx[i]]);
  }
}

TEST(QuickSortWorstCase, TheInputThatDefeatsAPlainQuickSortIsHeapSortedPastLevel63) {
  // The adversary against the same steps without the level limit (the
  // model): quadratic there. Its input through the library: the heap sort
  // takes over below level 63, the comparisons are those of the limited
  // model, and their count stays within the bound.
  const size_t n = 10000;
  Adversary adv(n);
  sort_ref::Seq plain(n);
  for (uint32_t i = 0; i < n; ++i) plain[i] = {0, i};
  sort_ref::Log plain_log;
  plain_log.decide = [&](uint32_t x, uint32_t y) { return adv.compare(x, y); };
  sort_ref::quick_kernel(plain, 0, n, plain_log, /*limited=*/false);
  EXPECT_FALSE(plain_log.fell_back);
  std::printf("[ adversary ] plain quick sort, n %zu: %llu comparisons\n", n,
              (unsigned long long)plain_log.count);
  EXPECT_GT((double)plain_log.count, (double)n * n / 8);
  EXPECT_GT((double)plain_log.count, worst_case_bound(n));

  const std::vector<uint32_t> values = adv.input();
  sort_ref::Seq in(n);
  for (uint32_t i = 0; i < n; ++i) in[i] = {values[i], i};
  sort_ref::Seq limited = in;
  sort_ref::Log limited_log;
  sort_ref::quick_kernel(limited, 0, n, limited_log);
  EXPECT_TRUE(limited_log.fell_back);
  expect_same_as_model(in, __KuQuickSort,
                       [](sort_ref::Seq &s, sort_ref::Log &l) { sort_ref::quick_kernel(s, 0, s.size(), l); },
                       "adversarial input");
  std::printf("[ adversary ] the same input through the library: %llu comparisons, bound %.0f\n",
              (unsigned long long)limited_log.count, worst_case_bound(n));
  EXPECT_LE((double)limited_log.count, worst_case_bound(n));
  for (size_t i = 0; i < n; ++i) ASSERT_EQ(i, limited[i].key);
}

TEST(QuickSortWorstCase, MedianOfThreeKillerSequenceStaysWithinTheBound) {
  // Musser's sequence that makes every median of three the second smallest
  // record of its segment.
  for (size_t n : {1024u, 65536u}) {
    std::vector<uint32_t> v(n);
    const size_t k = n / 2;
    for (size_t i = 1; i <= k; ++i) {
      if (i % 2 == 1) {
        v[i - 1] = (uint32_t)i;
        v[i] = (uint32_t)(k + i);
      }
      v[k + i - 1] = (uint32_t)(2 * i);
    }
    Counter c{4};
    ASSERT_EQ(0, KuQuickSort(v.data(), n, 4, compare_keys, &c));
    EXPECT_LE((double)c.calls, worst_case_bound(n)) << n;
    EXPECT_TRUE(std::is_sorted(v.begin(), v.end()));
  }
}

// ---------------------------------------------------------------- the insertion buffer

// Bytes the heap has given out and not taken back.
size_t heap_in_use() {
#ifdef SORN_TEST_ASAN
  return __sanitizer_get_current_allocated_bytes();
#else
  return mallinfo2().uordblks;
#endif
}

struct HeapWatch {
  size_t keybytes = 1;
  size_t before = 0;
  size_t most = 0;
};

int compare_watching_heap(const void *a, const void *b, void *ctx) {
  HeapWatch *w = static_cast<HeapWatch *>(ctx);
  const size_t now = heap_in_use();
  if (now > w->most) w->most = now;
  const uint8_t x = *static_cast<const uint8_t *>(a), y = *static_cast<const uint8_t *>(b);
  return x < y ? -1 : x > y;
}

TEST(InsertSort, RecordsAbove256BytesWaitInAHeapBuffer) {
  // Each sort runs on a thread of its own, whose heap cache is empty, so
  // that a block it takes shows in the heap's count of bytes in use.
  for (size_t size : {256u, 257u, 4000u}) {
    std::vector<uint8_t> v(5 * size);
    for (size_t i = 0; i < 5; ++i) std::memset(&v[i * size], (int)(9 - i), size);
    HeapWatch w;
    int status = -2;
    std::thread t([&] {
      w.before = w.most = heap_in_use();
      status = KuInsertSort(v.data(), 5, size, compare_watching_heap, &w);
    });
    t.join();
    ASSERT_EQ(0, status);
    if (size <= 256)
      EXPECT_EQ(w.before, w.most) << size;
    else
      EXPECT_GE(w.most, w.before + size) << size;
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(5 + i, v[i * size + size - 1]) << size;
  }
}

TEST(InsertSort, WithoutItsBufferTheRecordsStayAsTheyWere) {
  // No heap holds a buffer of 2^62 bytes: the kernel gives up before its
  // first comparison, without a word.
  uint8_t recs[3] = {3, 2, 1};
  int calls = 0;
  __KuInsertSort(recs, 3, (size_t)1 << 62, never_called, &calls);
  EXPECT_EQ(0, calls);
  EXPECT_EQ(3, recs[0]);
  EXPECT_EQ(1, recs[2]);
}

}  // namespace

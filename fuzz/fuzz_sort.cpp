// The sorts at every level and the binary searches, on records whose size,
// count, keys and order are decoded from the input. Records live in a heap
// block of exactly their bytes, so that a step outside them is reported.
// Properties:
//   - the insertion sort leaves what std::stable_sort leaves; the others
//     leave the keys in std::sort's order and the same records;
//   - the selection sort makes n(n-1)/2 comparisons, and the quick sort no
//     more than its worst-case bound, whatever the order;
//   - with a comparison that is not an order at all (answers taken from the
//     input), every sort still only permutes the records and stays inside
//     them;
//   - on the sorted records, each search answers as std::lower_bound and
//     std::upper_bound say it must, and the checked entries refuse what
//     they must refuse.
#include "fuzz_input.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

using namespace sorn_fuzz;

struct Cmp {
  size_t keybytes = 4;
  uint64_t calls = 0;
  // Not null: the comparison answers from these bytes, in turn, instead of
  // comparing keys.
  const uint8_t *noise = nullptr;
  size_t noise_len = 0, noise_at = 0;
};

uint32_t key_of(const void *p, size_t keybytes) {
  const uint8_t *r = static_cast<const uint8_t *>(p);
  uint32_t k = 0;
  for (size_t i = 0; i < keybytes; ++i) k |= (uint32_t)r[i] << (8 * i);
  return k;
}

int compare(const void *a, const void *b, void *ctx) {
  Cmp *c = static_cast<Cmp *>(ctx);
  ++c->calls;
  if (c->noise) {
    const uint8_t v = c->noise_len ? c->noise[c->noise_at++ % c->noise_len] : 0;
    return (int)(v % 3) - 1;
  }
  const uint32_t x = key_of(a, c->keybytes), y = key_of(b, c->keybytes);
  return x < y ? -1 : x > y ? 1 : 0;
}

using SortFn = int (*)(void *, size_t, size_t, KuCompareProc, void *);
using VoidSortFn = void (*)(void *, size_t, size_t, KuCompareProc, void *);
struct Sort {
  SortFn checked;
  VoidSortFn nck, kernel;
  bool stable;
  size_t max_n;
};
const Sort kSorts[] = {
    {KuQuickSort, KuQuickSort_nck, __KuQuickSort, false, 3000},
    {KuHeapSort, KuHeapSort_nck, __KuHeapSort, false, 3000},
    {KuInsertSort, KuInsertSort_nck, __KuInsertSort, true, 400},
    {KuSelectSort, KuSelectSort_nck, __KuSelectSort, false, 300},
};

double quick_bound(size_t n) {
  const double x = (double)n;
  return 65.0 * (3.0 * x + 5.0 * x / 9.0) + 2.0 * x * std::log2(x > 1 ? x : 2) + 3.5 * x + 3;
}

std::vector<std::string> records_of(const uint8_t *p, size_t n, size_t size) {
  std::vector<std::string> v;
  for (size_t i = 0; i < n; ++i) v.emplace_back((const char *)p + i * size, size);
  return v;
}

void check_searches(Input &in, const uint8_t *base, size_t n, size_t size, size_t keybytes) {
  std::vector<uint32_t> keys(n);
  for (size_t i = 0; i < n; ++i) keys[i] = key_of(base + i * size, keybytes);
  const int searches = in.u8() % 16;
  std::vector<uint8_t> key(size);
  for (int s = 0; s < searches; ++s) {
    uint32_t k;
    const uint8_t how = in.u8();
    if (n && how < 128)
      k = keys[in.u16() % n] + (uint32_t)(how % 3) - 1u;  // near a key
    else
      k = in.u32();
    if (keybytes < 4) k &= (1u << (8 * keybytes)) - 1;
    for (size_t b = 0; b < keybytes; ++b) key[b] = (uint8_t)(k >> (8 * b));
    const size_t lower = (size_t)(std::lower_bound(keys.begin(), keys.end(), k) - keys.begin());
    const size_t upper = (size_t)(std::upper_bound(keys.begin(), keys.end(), k) - keys.begin());
    const bool present = lower < upper;
    Cmp c{keybytes};
    auto index = [&](const void *r) { return (size_t)((const uint8_t *)r - base) / size; };

    const void *e = KuBsearch(key.data(), base, n, size, compare, &c);
    if (n == 0) {
      // No record to answer with, in every form.
      FUZZ_CHECK(e == nullptr && KuBsearchN(key.data(), base, n, size, compare, &c) == nullptr &&
                 KuBsearchP(key.data(), base, n, size, compare, &c) == nullptr && c.calls == 0);
      continue;
    }
    FUZZ_CHECK((e != nullptr) == present);
    if (e) FUZZ_CHECK(index(e) >= lower && index(e) < upper);

    const void *nx = KuBsearchN(key.data(), base, n, size, compare, &c);
    FUZZ_CHECK(nx != nullptr);
    if (present)
      FUZZ_CHECK(index(nx) >= lower && index(nx) < upper);
    else
      FUZZ_CHECK(index(nx) == upper);

    const void *pv = KuBsearchP(key.data(), base, n, size, compare, &c);
    if (present)
      FUZZ_CHECK(pv != nullptr && index(pv) >= lower && index(pv) < upper);
    else if (lower == 0)
      FUZZ_CHECK(pv == nullptr);
    else
      FUZZ_CHECK(pv != nullptr && index(pv) == lower - 1);

    int64_t status = 7;
    const void *chk = KuBsearch_s(key.data(), base, n, size, compare, &c, &status);
    FUZZ_CHECK(chk == e);
    FUZZ_CHECK(status == (e ? 0 : -1));
    // A binary search makes about log2(n) + 2 comparisons, never a scan.
    FUZZ_CHECK(c.calls <= 4 * (uint64_t)(std::log2((double)n + 1) + 3));
  }
  // Refusals of the checked search.
  int64_t status = 7;
  FUZZ_CHECK(KuBsearch_s(key.data(), base, n, 0, compare, nullptr, &status) == nullptr && status == -1);
  if (n) {
    status = 7;
    FUZZ_CHECK(KuBsearch_s(nullptr, base, n, size, compare, nullptr, &status) == nullptr && status == -1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t pick = in.u8();
  const Sort &s = kSorts[pick & 3];
  const int level = (pick >> 2) % 3;  // checked, unchecked, kernel
  const uint8_t sz = in.u8();
  // Mostly small records; now and then one beyond the insertion sort's
  // 256 bytes on the stack.
  const size_t rsize = sz < 240 ? 1 + sz % 40 : (size_t)(200 + (sz - 240) * 7);
  // Mostly short sequences, where the fuzzer can tell orders apart; now and
  // then a long one.
  const uint8_t nb = in.u8();
  size_t n = nb < 192 ? nb % 64 : in.u16() % (s.max_n + 1);
  if (level == 2 && n < 3) n = 3;
  const size_t keybytes = rsize < 4 ? rsize : 4;
  const uint8_t mode = in.u8();
  Pixels gen(in.u32());

  std::unique_ptr<uint8_t[]> store(new uint8_t[n * rsize != 0 ? n * rsize : 1]);
  uint8_t *base = store.get();
  const uint32_t distinct = 1 + mode % 7;
  for (size_t i = 0; i < n; ++i) {
    uint32_t k;
    switch ((mode >> 3) % 6) {
      case 0: k = (uint32_t)gen.next(); break;
      case 1: k = (uint32_t)(gen.next() % distinct); break;
      case 2: k = (uint32_t)i; break;
      case 3: k = (uint32_t)(n - i); break;
      case 4: k = (uint32_t)(i < n / 2 ? i : n - i); break;
      default: k = in.u8(); break;  // the input's own bytes
    }
    if (keybytes < 4 && (mode >> 3) % 6 >= 2 && (mode >> 3) % 6 <= 4)
      k = (uint32_t)((uint64_t)k * ((1u << (8 * keybytes)) - 1) / (n ? n : 1));
    uint8_t *r = base + i * rsize;
    for (size_t b = 0; b < keybytes; ++b) r[b] = (uint8_t)(k >> (8 * b));
    for (size_t b = keybytes; b < rsize; ++b) r[b] = (uint8_t)(i >> (8 * ((b - keybytes) & 3)));
  }
  const std::vector<std::string> before = records_of(base, n, rsize);
  const bool noisy = mode >= 0xF0;

  Cmp c{keybytes};
  if (noisy) {
    c.noise = in.rest();
    c.noise_len = in.left();
  }
  if (level == 0)
    FUZZ_CHECK(s.checked(base, n, rsize, compare, &c) == 0);
  else if (level == 1)
    s.nck(base, n, rsize, compare, &c);
  else
    s.kernel(base, n, rsize, compare, &c);

  std::vector<std::string> after = records_of(base, n, rsize);
  std::vector<std::string> expect = before;
  if (noisy) {
    // Any answers: still a permutation of the records.
    std::sort(expect.begin(), expect.end());
    std::sort(after.begin(), after.end());
    FUZZ_CHECK(expect == after);
    return 0;
  }
  auto less = [&](const std::string &a, const std::string &b) {
    return key_of(a.data(), keybytes) < key_of(b.data(), keybytes);
  };
  if (s.stable) {
    std::stable_sort(expect.begin(), expect.end(), less);
    FUZZ_CHECK(expect == after);
  } else {
    std::sort(expect.begin(), expect.end(), less);
    for (size_t i = 0; i < n; ++i)
      FUZZ_CHECK(key_of(expect[i].data(), keybytes) == key_of(after[i].data(), keybytes));
    std::sort(expect.begin(), expect.end());
    std::vector<std::string> a2 = after;
    std::sort(a2.begin(), a2.end());
    FUZZ_CHECK(expect == a2);
  }
  if (s.checked == KuSelectSort && n >= 2) FUZZ_CHECK(c.calls == n * (n - 1) / 2);
  if (s.checked == KuQuickSort) FUZZ_CHECK((double)c.calls <= quick_bound(n));

  check_searches(in, base, n, rsize, keybytes);
  return 0;
}

// Binary searches: the three answers against std::lower_bound and
// std::upper_bound, the walk's comparisons, and the checks of the checked
// search.
#include <gtest/gtest.h>
#include <testkit.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

using sorn_test::seeded_rng;

namespace {

struct Count {
  int calls = 0;
};

// cmp(element, key): records are int32 keys, possibly followed by payload.
int compare_int(const void *element, const void *key, void *ctx) {
  if (ctx) ++static_cast<Count *>(ctx)->calls;
  int32_t e, k;
  std::memcpy(&e, element, 4);
  std::memcpy(&k, key, 4);
  return e < k ? -1 : e > k ? 1 : 0;
}

const int32_t k135[3] = {1, 3, 5};

const int32_t *at(const void *p) { return static_cast<const int32_t *>(p); }

TEST(Bsearch, FindsAnEqualRecordOrNothing) {
  for (int32_t key = 0; key <= 6; ++key) {
    const void *r = KuBsearch(&key, k135, 3, 4, compare_int, nullptr);
    if (key == 1 || key == 3 || key == 5) {
      ASSERT_NE(nullptr, r) << key;
      EXPECT_EQ(key, *at(r));
    } else {
      EXPECT_EQ(nullptr, r) << key;
    }
  }
}

TEST(BsearchN, MissAnswersTheFirstRecordAbove) {
  int32_t key = 4;
  EXPECT_EQ(k135 + 2, KuBsearchN(&key, k135, 3, 4, compare_int, nullptr));
  key = 9;
  EXPECT_EQ(k135 + 3, KuBsearchN(&key, k135, 3, 4, compare_int, nullptr));  // one past the end
  key = 0;
  EXPECT_EQ(k135, KuBsearchN(&key, k135, 3, 4, compare_int, nullptr));
  key = 3;
  EXPECT_EQ(k135 + 1, KuBsearchN(&key, k135, 3, 4, compare_int, nullptr));
}

TEST(BsearchP, MissAnswersTheLastRecordBelow) {
  int32_t key = 4;
  EXPECT_EQ(k135 + 1, KuBsearchP(&key, k135, 3, 4, compare_int, nullptr));
  key = 0;
  EXPECT_EQ(nullptr, KuBsearchP(&key, k135, 3, 4, compare_int, nullptr));
  key = 9;
  EXPECT_EQ(k135 + 2, KuBsearchP(&key, k135, 3, 4, compare_int, nullptr));
  key = 5;
  EXPECT_EQ(k135 + 2, KuBsearchP(&key, k135, 3, 4, compare_int, nullptr));
}

TEST(Bsearch, OneRecord) {
  const int32_t one[1] = {7};
  for (int32_t key : {6, 7, 8}) {
    Count c;
    const void *e = KuBsearch(&key, one, 1, 4, compare_int, &c);
    const void *n = KuBsearchN(&key, one, 1, 4, compare_int, &c);
    const void *p = KuBsearchP(&key, one, 1, 4, compare_int, &c);
    EXPECT_EQ(3, c.calls);  // one comparison each
    EXPECT_EQ(key == 7 ? one : nullptr, e);
    EXPECT_EQ(key <= 7 ? one : one + 1, n);
    EXPECT_EQ(key >= 7 ? one : nullptr, p);
  }
}

TEST(Bsearch, NoRecordsAnswerNullWithoutAComparison) {
  int32_t key = 1;
  Count c;
  EXPECT_EQ(nullptr, KuBsearch(&key, k135, 0, 4, compare_int, &c));
  EXPECT_EQ(nullptr, KuBsearchN(&key, k135, 0, 4, compare_int, &c));
  EXPECT_EQ(nullptr, KuBsearchP(&key, k135, 0, 4, compare_int, &c));
  EXPECT_EQ(0, c.calls);
}

TEST(Bsearch, TheFirstRecordIsTestedFirstThenTheMiddleOfTheRest) {
  // 1..8: the first comparison is record 0, then (1 + 7) / 2 = record 4.
  const int32_t v[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<int32_t> seen;
  struct Trace {
    std::vector<int32_t> *seen;
  } t{&seen};
  auto cmp = [](const void *e, const void *k, void *ctx) {
    static_cast<Trace *>(ctx)->seen->push_back(*at(e));
    return compare_int(e, k, nullptr);
  };
  int32_t key = 7;
  EXPECT_EQ(v + 6, KuBsearch(&key, v, 8, 4, cmp, &t));
  const std::vector<int32_t> want = {1, 5, 7};
  EXPECT_EQ(want, seen);
}

TEST(Bsearch, AgreesWithTheStandardBoundsOnRandomSortedRecords) {
  auto rng = seeded_rng(0xB5EA);
  for (int iter = 0; iter < 3000; ++iter) {
    const size_t n = iter < 100 ? (size_t)iter : 1 + rng() % 3000;
    const size_t size = 4 + (rng() % 3) * 6;  // records of 4, 10 or 16 bytes
    const int32_t range = 1 + (int32_t)(rng() % (n + 3) * 2);
    std::vector<int32_t> keys(n);
    for (auto &k : keys) k = (int32_t)(rng() % (uint64_t)range) - range / 3;
    std::sort(keys.begin(), keys.end());
    std::vector<uint8_t> recs(n * size + 1, 0xEE);
    for (size_t i = 0; i < n; ++i) std::memcpy(&recs[i * size], &keys[i], 4);
    for (int q = 0; q < 8; ++q) {
      const int32_t key = (int32_t)(rng() % (uint64_t)(range + 4)) - range / 3 - 2;
      const size_t lo = (size_t)(std::lower_bound(keys.begin(), keys.end(), key) - keys.begin());
      const size_t hi = (size_t)(std::upper_bound(keys.begin(), keys.end(), key) - keys.begin());
      Count c;
      auto index = [&](const void *r) { return (size_t)(static_cast<const uint8_t *>(r) - recs.data()) / size; };
      const void *e = KuBsearch(&key, recs.data(), n, size, compare_int, &c);
      const void *nx = KuBsearchN(&key, recs.data(), n, size, compare_int, &c);
      const void *pv = KuBsearchP(&key, recs.data(), n, size, compare_int, &c);
      if (n == 0) {
        EXPECT_TRUE(e == nullptr && nx == nullptr && pv == nullptr);
        continue;
      }
      if (lo < hi) {
        ASSERT_NE(nullptr, e);
        EXPECT_TRUE(index(e) >= lo && index(e) < hi);
        EXPECT_TRUE(index(nx) >= lo && index(nx) < hi);
        ASSERT_NE(nullptr, pv);
        EXPECT_TRUE(index(pv) >= lo && index(pv) < hi);
      } else {
        EXPECT_EQ(nullptr, e);
        EXPECT_EQ(lo, index(nx));
        if (lo == 0)
          EXPECT_EQ(nullptr, pv);
        else
          EXPECT_EQ(lo - 1, index(pv));
      }
      // Three walks of at most log2(n) + 2 comparisons each.
      EXPECT_LE(c.calls, 3 * (int)(std::log2((double)n) + 2)) << n;
    }
  }
}

TEST(BsearchChecked, ReportsFoundAndNotFound) {
  int64_t status = 7;
  int32_t key = 3;
  EXPECT_EQ(k135 + 1, KuBsearch_s(&key, k135, 3, 4, compare_int, nullptr, &status));
  EXPECT_EQ(0, status);
  key = 4;
  EXPECT_EQ(nullptr, KuBsearch_s(&key, k135, 3, 4, compare_int, nullptr, &status));
  EXPECT_EQ(-1, status);
  EXPECT_EQ(k135 + 1, KuBsearch_s(&(key = 3), k135, 3, 4, compare_int, nullptr, nullptr));
}

TEST(BsearchChecked, RefusesSizeZeroOversizeAndMissingOperands) {
  Count c;
  int32_t key = 3;
  int64_t status = 7;
  EXPECT_EQ(nullptr, KuBsearch_s(&key, k135, 3, 0, compare_int, &c, &status));
  EXPECT_EQ(-1, status);
  status = 7;
  EXPECT_EQ(nullptr, KuBsearch_s(&key, k135, 0x80000000u, 1, compare_int, &c, &status));
  EXPECT_EQ(-1, status);
  status = 7;
  EXPECT_EQ(nullptr, KuBsearch_s(&key, k135, 0x7FFFFFFFu / 4 + 1, 4, compare_int, &c, &status));
  EXPECT_EQ(-1, status);
  for (int missing = 0; missing < 3; ++missing) {
    status = 7;
    EXPECT_EQ(nullptr, KuBsearch_s(missing == 0 ? nullptr : &key, missing == 1 ? nullptr : k135, 3, 4,
                                   missing == 2 ? nullptr : compare_int, &c, &status));
    EXPECT_EQ(-1, status);
  }
  EXPECT_EQ(0, c.calls);
  // No records need no operands: not found, status -1.
  status = 7;
  EXPECT_EQ(nullptr, KuBsearch_s(nullptr, nullptr, 0, 4, nullptr, nullptr, &status));
  EXPECT_EQ(-1, status);
  // The largest sequence that passes the check.
  status = 7;
  EXPECT_EQ(nullptr, KuBsearch_s(&key, k135, 0, 1, compare_int, &c, nullptr));
}

}  // namespace

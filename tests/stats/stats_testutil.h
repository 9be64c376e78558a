// Helpers of the statistics tests: an environment whose scratch level is
// checked after every call, and plain reference counts and sums that never
// call the library.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "testkit.h"

namespace stats_test {

using Env = sorn_test::ScratchEnv;

// A histogram record with heap counters, set up by hand from the rules of
// the record (so that the counting tests don't lean on sorn_hist_inithdr).
struct TestHist {
  SornHist h;
  std::vector<uint32_t> store;
  TestHist(int32_t bins, double low, double high) : store((size_t)bins + 1, 0) {
    std::memset(&h, 0, sizeof h);
    h.low = (float)low;
    h.high = (float)high;
    h.span = h.high - h.low;
    h.width = bins == 1 ? 0.0f : h.span / (float)(bins - 1);
    h.ilow = (int32_t)std::nearbyint(low);
    h.ihigh = (int32_t)std::nearbyint(high);
    h.irange = h.ihigh - h.ilow + 1;
    h.bins = (uint32_t)bins;
    h.counts = store.data();
  }
};

inline int32_t clamp_low(uint32_t type, int32_t lo) {
  switch (type) {
    case SORN_U8: return lo < 0 ? 0 : lo > 255 ? 255 : lo;
    case SORN_S8: return lo < -128 ? -128 : lo > 127 ? 127 : lo;
    case SORN_S16: return lo < -32768 ? -32768 : lo > 32767 ? 32767 : lo;
    default: return lo;
  }
}

// What one fresh count of the given values gives: counters, integer and
// float sums. Values must lie in the histogram's range.
struct RefHist {
  std::vector<uint32_t> counts;
  uint32_t isum = 0;
  float fsum = 0.0f;
};

inline RefHist ref_histogram(uint32_t type, const SornHist &h, const std::vector<double> &vals) {
  RefHist r;
  int32_t bins = (int32_t)h.bins;
  r.counts.assign((size_t)bins + 1, 0);
  if (type == SORN_F32) {
    float fs = h.span != 0.0f ? (float)(bins - 1) / h.span : 0.0f;
    for (double v : vals) {
      double b = (double)((float)v - h.low) * (double)fs;
      r.counts[(size_t)(int64_t)std::trunc(b)]++;
    }
    float s = 0.0f;
    for (int32_t i = 0; i < bins; ++i) s += ((float)i + h.low) * (float)r.counts[i];
    r.fsum = s;
    r.isum = (uint32_t)(int32_t)std::nearbyint((double)s);
    return r;
  }
  int64_t lo = clamp_low(type, h.ilow);
  for (double v : vals) {
    int64_t d = (int64_t)v - lo;
    int64_t bin = h.irange == bins ? d : (d * bins) / h.irange;
    r.counts[(size_t)bin]++;
  }
  uint32_t s = 0;
  if (type == SORN_U8 || type == SORN_S8) {
    // Folded paths weigh each value by itself.
    for (double v : vals) s += (uint32_t)(int64_t)v;
  } else {
    for (int32_t i = 0; i < bins; ++i) s += r.counts[i] * (uint32_t)(lo + i);
  }
  r.isum = s;
  r.fsum = (float)(int32_t)s;
  return r;
}

inline SornArray mask_record(sorn_test::Image &m) { return m.record(); }

}  // namespace stats_test

// Cost rules of the products: when packing the second source into scratch
// pays, and how a tiled product would compare and size its blocks. The
// packing rules steer the kernels; the others state the costs of tiling as
// utilities.
#include <sorn.h>

#include <algorithm>

namespace {

double u(int64_t v) { return (double)(uint64_t)v; }

}  // namespace

// kBytes takes no part: the gap between rows, seen by every row, is the cost.
int __sorn_mulmm_should_copy_src2(int64_t m, int64_t kBytes, int64_t rowBytes, int64_t gap) {
  const double gm = u(gap) * u(m);
  return gm * gm * u(m) / (u(rowBytes) * 2500000.0) > 1.0;
}

int __sorn_mulmvn_should_copy_src2(int64_t m, int64_t rowBytes, int64_t count, int64_t gap) {
  if (gap < 0) return (u(count) * u(m)) / (u(rowBytes) * 2500.0) > 16.5;
  return (u(count) * u(m) * u(gap)) / (u(rowBytes) * 2500000.0) > 16.5;
}

int __sorn_mulmm_impalg_sel(int32_t a, int32_t b, int32_t c, int32_t flag) {
  const double A = a, B = b, C = c;
  if (a > 3) {
    const double t = flag ? 0.001 : 0.005;
    if ((!flag && a > 28) || (flag && a >= 17)) return C * B >= A * 40;
    return A * A >= B * B * C * t;
  }
  if (flag && a < 3) return A >= C * (B * C * C) * 5e-5;
  return 0;
}

int __sorn_mulmvn_impalg_sel(int32_t a, int32_t b, int32_t c, int32_t flag) {
  if (a < 6 || c < 32) return 0;
  const int32_t l1 = sorn_level1_dcache_size();
  // Both tests in 32 bits, as the cache sizes are.
  const int32_t need =
      (int32_t)(((uint32_t)c + (uint32_t)b) * (uint32_t)a * 4u + (uint32_t)c * (uint32_t)b * 4u);
  const int32_t row = (int32_t)((uint32_t)a * 4u * (uint32_t)c);
  const bool fit = l1 >= need;
  const bool big = l1 < row;
  const double A = a, B = b, C = c;
  if (fit) {
    const double v = (C * A) * (C * A) / (B * 100000.0);
    return flag ? v > 50.0 : v >= 5.0;
  }
  if (big) {
    const double v = (B * B * C) / (A * 1000.0);
    return flag ? v > 80.0 : v >= 8.0;
  }
  const double v = (C * B + A) / 100000.0;
  return flag ? v > 0.4 : v > 0.04;
}

SornBlockSizes *__sorn_mulmm_blocksizes(SornBlockSizes *out, int32_t b1, int32_t b2, int32_t b3) {
  const int64_t L1 = sorn_level1_dcache_size(), L2 = sorn_level2_cache_size();
  const int64_t B1 = b1, B2 = b2, B3 = b3;
  int64_t p, q;
  if (L1 >= ((B3 + B2) * B1 + B3 * B2) * 4) {
    p = 32;
    q = 16;
  } else if (B3 * B2 * 4 < (L1 >> 1) && L2 > B3 * B1 * 4) {
    out->first = (int32_t)std::max<int64_t>(std::min<int64_t>((B3 >> 4) * 8, B3 & ~7LL), 16);
    out->second = 32;
    return out;
  } else if (B1 * 4 == 0 || L1 / (B1 * 4) > 1023) {
    q = std::min<int64_t>(L1 >> 9, std::max<int64_t>(((B3 * B1 * 4) >> 12) * 8, 16));
    p = (L1 >> 2) / (q * 4);
  } else if (L1 >= B2 * 64) {
    p = B2 & ~3LL;
    q = 16;
  } else {
    q = (L2 * 4) / (L1 * 2);
    p = ((L1 * B2 * (B1 + B3)) / (L2 << 5)) & ~3LL;
  }
  out->first = (int32_t)std::max<int64_t>(std::min<int64_t>(B3 & ~7LL, q), 16);
  out->second =
      (int32_t)std::max<int64_t>(std::min<int64_t>(std::min<int64_t>(B2 & ~3LL, L1 >> 4), p), 32);
  return out;
}

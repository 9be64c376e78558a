// Bulk primitives: the plain block and run loops that the higher operations
// call for every row, often with very short runs (a border of a few bytes, a
// part of a histogram row). Short counts therefore get fixed-size forms;
// long ones run simple loops that the compiler vectorises. Every result is
// that of the plain element loop.
#include <sorn.h>

#include <cstring>

namespace {

// A row of B bytes moved through a fixed-size copy, which the compiler turns
// into one or two register moves.
template <size_t B>
void copy_rows_fixed(unsigned char *d, const unsigned char *s, ptrdiff_t ds, ptrdiff_t ss,
                     int32_t rows) {
  for (int32_t r = 0; r < rows; ++r) {
    unsigned char tmp[B];
    std::memcpy(tmp, s, B);
    std::memcpy(d, tmp, B);
    d += ds;
    s += ss;
  }
}

bool spans_meet(const unsigned char *a, const unsigned char *b, size_t len) {
  return a < b + len && b < a + len;
}

// The pattern of a fill vector, repeated over 96 bytes: a multiple of both
// periods (12 bytes for three channels, 16 otherwise), so that copying whole
// blocks of it keeps the phase.
struct FillBlock {
  static constexpr size_t kBytes = 96;
  unsigned char b[kBytes];
  FillBlock(const void *vector, int32_t nchan) {
    // Whole periods, copied: a byte-by-byte remainder would cost a division
    // per byte, more than a small fill itself.
    const size_t period = nchan == 3 ? 12 : 16;
    for (size_t i = 0; i < kBytes; i += period) std::memcpy(b + i, vector, period);
  }
};

void fill_run(unsigned char *d, size_t bytes, const FillBlock &blk) {
  size_t i = 0;
  for (; i + FillBlock::kBytes <= bytes; i += FillBlock::kBytes)
    std::memcpy(d + i, blk.b, FillBlock::kBytes);
  std::memcpy(d + i, blk.b, bytes - i);
}

template <class T> void add_run(T *dst, const T *a, const T *b, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dst[i] = (T)(a[i] + b[i]);
}

template <class T> void suba_run(T *dst, const T *acc, const T *a, const T *b, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dst[i] = (T)(a[i] - b[i] + acc[i]);
}

template <class Op> void vcf_run(float *dst, const float *src, int32_t n, float c, Op op) {
  if (!src) src = dst;
  for (int32_t i = 0; i < n; ++i) dst[i] = op(src[i], c);
}

}  // namespace

void C_sorn_bcopy2d(void *dst, const void *src, int32_t dstStride, int32_t srcStride, int32_t rows,
                    size_t bytes) {
  if (rows <= 0 || bytes == 0) return;
  unsigned char *d = static_cast<unsigned char *>(dst);
  const unsigned char *s = static_cast<const unsigned char *>(src);
  const size_t total = (size_t)rows * bytes;
  // One block when both sides are dense and apart; a copy within one buffer
  // (rows replicated from rows already written) goes row by row, in order.
  if ((int64_t)dstStride == (int64_t)bytes && (int64_t)srcStride == (int64_t)bytes &&
      !spans_meet(d, s, total)) {
    std::memcpy(d, s, total);
    return;
  }
  switch (bytes) {
    case 1: copy_rows_fixed<1>(d, s, dstStride, srcStride, rows); return;
    case 2: copy_rows_fixed<2>(d, s, dstStride, srcStride, rows); return;
    case 3: copy_rows_fixed<3>(d, s, dstStride, srcStride, rows); return;
    case 4: copy_rows_fixed<4>(d, s, dstStride, srcStride, rows); return;
    case 5: copy_rows_fixed<5>(d, s, dstStride, srcStride, rows); return;
    case 6: copy_rows_fixed<6>(d, s, dstStride, srcStride, rows); return;
    case 7: copy_rows_fixed<7>(d, s, dstStride, srcStride, rows); return;
    case 8: copy_rows_fixed<8>(d, s, dstStride, srcStride, rows); return;
    default:
      for (int32_t r = 0; r < rows; ++r) {
        std::memmove(d, s, bytes);
        d += dstStride;
        s += srcStride;
      }
  }
}

void C_sorn_bfill(void *dst, size_t bytes, int32_t nchan, const void *vector) {
  unsigned char *d = static_cast<unsigned char *>(dst);
  if (bytes < 13) {
    const unsigned char *v = static_cast<const unsigned char *>(vector);
    for (size_t i = 0; i < bytes; ++i) d[i] = v[i];
    return;
  }
  fill_run(d, bytes, FillBlock(vector, nchan));
}

void C_sorn_bfill2d(void *dst, int32_t stride, int32_t rows, size_t bytes, int32_t nchan,
                    const void *vector) {
  if (rows <= 0 || bytes == 0) return;
  if ((int64_t)stride == (int64_t)bytes) {
    C_sorn_bfill(dst, (size_t)rows * bytes, nchan, vector);
    return;
  }
  unsigned char *d = static_cast<unsigned char *>(dst);
  if (bytes < 13) {
    const unsigned char *v = static_cast<const unsigned char *>(vector);
    for (int32_t r = 0; r < rows; ++r, d += stride) std::memcpy(d, v, bytes);
    return;
  }
  const FillBlock blk(vector, nchan);
  for (int32_t r = 0; r < rows; ++r, d += stride) fill_run(d, bytes, blk);
}

void C_sorn_addLE256_16(uint16_t *dst, const uint16_t *src1, const uint16_t *src2, int32_t n) {
  add_run(dst, src1 ? src1 : dst, src2, n);
}

void C_sorn_addLE256_8(uint8_t *dst, const uint8_t *src1, const uint8_t *src2, int32_t n) {
  add_run(dst, src1 ? src1 : dst, src2, n);
}

void C_sorn_subaLE256_16(uint16_t *dst, const uint16_t *acc, const uint16_t *a, const uint16_t *b,
                         int32_t n) {
  suba_run(dst, acc ? acc : dst, a, b, n);
}

void C_sorn_subaLE256_8(uint8_t *dst, const uint8_t *acc, const uint8_t *a, const uint8_t *b,
                        int32_t n) {
  suba_run(dst, acc ? acc : dst, a, b, n);
}

void C_sorn_addvcf(float *dst, const float *src, int32_t n, float c) {
  vcf_run(dst, src, n, c, [](float x, float k) { return x + k; });
}

void C_sorn_subvcf(float *dst, const float *src, int32_t n, float c) {
  vcf_run(dst, src, n, c, [](float x, float k) { return x - k; });
}

void C_sorn_rsubvcf(float *dst, const float *src, int32_t n, float c) {
  vcf_run(dst, src, n, c, [](float x, float k) { return k - x; });
}

void C_sorn_mulvcf(float *dst, const float *src, int32_t n, float c) {
  vcf_run(dst, src, n, c, [](float x, float k) { return x * k; });
}

// Division by a run-wide constant is a multiplication by its reciprocal, on
// purpose: the last place may differ from a true division.
float C_sorn_divvcf(float *dst, const float *src, int32_t n, float c) {
  const float r = 1.0f / c;
  vcf_run(dst, src, n, r, [](float x, float k) { return x * k; });
  return r;
}

void C_sorn_rdivvcf(float *dst, const float *src, int32_t n, float c) {
  vcf_run(dst, src, n, c, [](float x, float k) { return k / x; });
}

uint8_t C_sorn_maxu8_n(const uint8_t *a, int32_t n) {
  if (n <= 0) return 0;
  uint8_t m = a[0];
  for (int32_t i = 1; i < n; ++i) m = a[i] > m ? a[i] : m;
  return m;
}

uint8_t C_sorn_minu8_n(const uint8_t *a, int32_t n) {
  if (n <= 0) return 0;
  uint8_t m = a[0];
  for (int32_t i = 1; i < n; ++i) m = a[i] < m ? a[i] : m;
  return m;
}

// Float extremes keep the first of equal values and skip NaNs after the
// first element, exactly as the element loop does.
float C_sorn_maxf_n(const float *a, int32_t n) {
  if (n <= 0) return 0.0f;
  float m = a[0];
  for (int32_t i = 1; i < n; ++i)
    if (a[i] > m) m = a[i];
  return m;
}

float C_sorn_minf_n(const float *a, int32_t n) {
  if (n <= 0) return 0.0f;
  float m = a[0];
  for (int32_t i = 1; i < n; ++i)
    if (a[i] < m) m = a[i];
  return m;
}

uint64_t C_sorn_sumu8_n(const uint8_t *a, int32_t n) {
  uint64_t s = 0;
  for (int32_t i = 0; i < n; ++i) s += a[i];
  return s;
}

uint32_t C_sorn_sumi16_n(const uint16_t *a, int32_t n) {
  uint32_t s = 0;
  for (int32_t i = 0; i < n; ++i) s += a[i];
  return s;
}

// Index order, so that every caller sees the same rounding.
float C_sorn_sumf_n(const float *a, int32_t n) {
  float s = 0.0f;
  for (int32_t i = 0; i < n; ++i) s += a[i];
  return s;
}

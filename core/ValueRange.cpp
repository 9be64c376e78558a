// Value ranges: the span of values of each channel, as a pair of doubles,
// and the small algebra that conversion and scaling build on: the full range
// of a type, clamping to a type, defaults for ranges that are missing or
// reversed, scaling that keeps the slope as long as the type allows,
// equalising channels, and the linear map between two ranges.
//
// Every function is pure arithmetic on the caller's records; channel forms
// loop over the count of a channels word and do nothing for a count of 0.
#include <sorn.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace sorn::vrng {
namespace {

constexpr double kFltMax = 3.4028234663852886e38;
// Two values agree when their f32 forms differ by at most this.
constexpr float kTolerance = 1.1920929e-7f;
// A span at most this wide counts as empty when solving for a map.
constexpr double kEmptySpan = 1.1920928955078125e-7;

int32_t channels(int32_t chword) { return SORN_CHANNELS(chword); }

struct Full {
  double lo, hi;
};

Full full_range(SornElemType type) {
  switch (type) {
    case SORN_U8: return {0.0, 255.0};
    case SORN_S8: return {-128.0, 127.0};
    case SORN_U16: return {0.0, 65535.0};
    case SORN_S16: return {-32768.0, 32767.0};
    case SORN_U32: return {0.0, 4294967295.0};
    case SORN_S32: return {-2147483648.0, 2147483647.0};
    case SORN_F32: return {-kFltMax, kFltMax};
    default: return {-HUGE_VAL, HUGE_VAL};
  }
}

// The processor's conversion of an integral double to 32 bits: a value
// outside them (NaN too) becomes 0x80000000.
int32_t to_i32(double r) {
  return r >= -2147483648.0 && r <= 2147483647.0 ? (int32_t)r : INT32_MIN;
}

// One end of a range brought into a type: an integer end is rounded (the
// low end down, the high end up, from the nearest integer stepped by one
// where it passed the value), converted to 32 bits, and clamped by the
// type's rule; an f32 end is narrowed to f32. False for a type without a
// rule, whose ends stay as they are.
bool saturate_end(SornElemType type, double &x, bool up) {
  if (type == SORN_F32) {
    x = (double)(float)x;
    return true;
  }
  if (type != SORN_U8 && type != SORN_U16 && type != SORN_U32 && type != SORN_S8 &&
      type != SORN_S16 && type != SORN_S32)
    return false;
  double r = std::rint(x);
  if (up ? r < x : r > x) r += up ? 1.0 : -1.0;
  int32_t v = to_i32(r);
  switch (type) {
    case SORN_U8: v = v < 0 ? 0 : v > 255 ? 255 : v; break;
    case SORN_U16: v = v < 0 ? 0 : v > 65535 ? 65535 : v; break;
    case SORN_U32: v = v < 0 ? 0 : v; break;  // the 32-bit conversion bounds it above
    case SORN_S8: v = v < -127 ? -128 : v > 127 ? 127 : v; break;
    case SORN_S16: v = v < -32767 ? -32768 : v > 32767 ? 32767 : v; break;
    default: break;  // s32: what the conversion gave
  }
  x = (double)v;
  return true;
}

void saturate(SornElemType type, SornVrng *out, const SornVrng *in) {
  SornVrng r = *in;
  if (!saturate_end(type, r.lo, false)) return;
  saturate_end(type, r.hi, true);
  *out = r;
}

// Repairs one range: a NaN low end gives the default span of the type's
// data (0 to 255 where images of it usually hold bytes, else 0 to 1); an
// infinite low end or a reversed range gives *def, or the type's full
// range. A range that stands is saturated when asked.
void normalize(SornElemType type, SornVrng *r, const SornVrng *def, bool saturated) {
  if (std::isnan(r->lo)) {
    const bool bytes = type == SORN_U8 || type == SORN_S16 || type == SORN_S32;
    r->lo = 0.0;
    r->hi = bytes ? 255.0 : 1.0;
    return;
  }
  if (std::isinf(r->lo) || r->lo > r->hi) {
    if (def != nullptr) {
      *r = *def;
    } else {
      const Full f = full_range(type);
      r->lo = f.lo;
      r->hi = f.hi;
    }
    return;
  }
  if (saturated) saturate(type, r, r);
}

// The channel forms read one default record per channel. A missing array
// of defaults means the type's full range for every channel.
void normalize_cn(SornElemType type, SornVrng *r, const SornVrng *def, int32_t chword,
                  bool saturated) {
  if (r == nullptr) return;
  for (int32_t c = 0; c < channels(chword); ++c)
    normalize(type, r + c, def ? def + c : nullptr, saturated);
}

void copy_cn(SornVrng *out, const SornVrng *in, int32_t chword) {
  if (out != nullptr && in != nullptr && out != in)
    std::memmove(out, in, (size_t)channels(chword) * sizeof(SornVrng));
}

bool agree(double a, double b) { return std::fabs((float)a - (float)b) <= kTolerance; }
bool agree(const SornVrng &a, const SornVrng &b) { return agree(a.lo, b.lo) && agree(a.hi, b.hi); }

// 2^bits - 1 in 64 bits, from the low six bits of a count; a negative
// count counts as 0.
uint64_t all_ones(int32_t bits) {
  if (bits < 0) bits = 0;
  const uint32_t b = (uint32_t)bits & 63u;
  return b == 0 ? 0 : (~0ull >> (64 - b));
}

bool span_within(const SornVrng &r, int32_t dbits) {
  return std::fabs(r.hi - r.lo) <= (double)all_ones(dbits);
}

// Both ends in [lo, hi], and with bits above dbits the span within dbits.
bool within(const SornVrng &r, double lo, double hi, int32_t bits, int32_t dbits) {
  if (!(r.lo >= lo && r.lo <= hi && r.hi >= lo && r.hi <= hi)) return false;
  return bits <= dbits || span_within(r, dbits);
}

// The stored f32 extremes of a minimum and maximum record: per channel c the
// minimum's value at 32-bit cell 2 + 6c, the maximum's at 26 + 6c.
float record_cell(const SornMinmaxRec *stats, int32_t cell) {
  float f;
  std::memcpy(&f, reinterpret_cast<const unsigned char *>(stats) + 4 * (size_t)cell, sizeof f);
  return f;
}

SornVrng from_record(const SornMinmaxRec *stats, int32_t c) {
  return SornVrng{(double)record_cell(stats, 2 + 6 * c), (double)record_cell(stats, 26 + 6 * c)};
}

}  // namespace
}  // namespace sorn::vrng

using namespace sorn::vrng;

/* ---------------- saturation ---------------- */

SornVrng *sorn_vrng_saturate(SornElemType type, SornVrng *out, const SornVrng *in) {
  saturate(type, out, in ? in : out);
  return out;
}

SornVrng *sorn_vrng_saturate_$cn(SornElemType type, SornVrng *out, const SornVrng *in,
                                 int32_t chword) {
  if (in == nullptr) in = out;
  for (int32_t c = 0; c < channels(chword); ++c) saturate(type, out + c, in + c);
  return out;
}

/* ---------------- ranges from values ---------------- */

SornVrng *__sorn_vrng__$minmax(SornVrng *out, const SornMinmaxRec *stats) {
  *out = from_record(stats, 0);
  return out;
}

SornVrng *__sorn_vrng__$minmax$Q(SornElemType type, SornVrng *out, const SornMinmaxRec *stats) {
  *out = from_record(stats, 0);
  saturate(type, out, out);
  return out;
}

SornVrng *__sorn_vrng__$cn$2(SornVrng *out, int32_t chword, double lo, double hi) {
  for (int32_t c = 0; c < channels(chword); ++c) out[c] = SornVrng{lo, hi};
  return out;
}

SornVrng *__sorn_vrng__$cn$2$Q(SornElemType type, SornVrng *out, int32_t chword, double lo,
                               double hi) {
  __sorn_vrng__$cn$2(out, chword, lo, hi);
  return sorn_vrng_saturate_$cn(type, out, nullptr, chword);
}

SornVrng *__sorn_vrng__$cn$minmax(SornVrng *out, int32_t chword, const SornMinmaxRec *stats) {
  for (int32_t c = 0; c < channels(chword); ++c) out[c] = from_record(stats, c);
  return out;
}

SornVrng *__sorn_vrng__$cn$minmax$Q(SornElemType type, SornVrng *out, int32_t chword,
                                    const SornMinmaxRec *stats) {
  __sorn_vrng__$cn$minmax(out, chword, stats);
  return sorn_vrng_saturate_$cn(type, out, nullptr, chword);
}

/* ---------------- normalization ---------------- */

SornVrng *sorn_vrng_normalize_$I(SornElemType type, SornVrng *r, const SornVrng *def) {
  if (r) normalize(type, r, def, false);
  return r;
}

SornVrng *sorn_vrng_normalize_$IQ(SornElemType type, SornVrng *r, const SornVrng *def) {
  if (r) normalize(type, r, def, true);
  return r;
}

SornVrng *sorn_vrng_normalize_$cn$I(SornElemType type, SornVrng *r, const SornVrng *def,
                                    int32_t chword) {
  normalize_cn(type, r, def, chword, false);
  return r;
}

SornVrng *sorn_vrng_normalize_$cn$IQ(SornElemType type, SornVrng *r, const SornVrng *def,
                                     int32_t chword) {
  normalize_cn(type, r, def, chword, true);
  return r;
}

SornVrng *sorn_vrng_normalize_$cn(SornElemType type, SornVrng *out, const SornVrng *in,
                                  const SornVrng *def, int32_t chword) {
  copy_cn(out, in, chword);
  normalize_cn(type, out, def, chword, false);
  return out;
}

SornVrng *sorn_vrng_normalize_$cn$Q(SornElemType type, SornVrng *out, const SornVrng *in,
                                    const SornVrng *def, int32_t chword) {
  copy_cn(out, in, chword);
  normalize_cn(type, out, def, chword, true);
  return out;
}

SornVrng *sorn_vrng_normalize_$cn$QS(SornElemType type, SornVrng *out, const SornVrng *in,
                                     const SornVrng *def, int32_t chword) {
  if (out == nullptr) return out;
  return sorn_vrng_normalize_$cn$Q(type, out, in, def, chword);
}

/* ---------------- scaling ---------------- */

// Each channel's range starts at its base and keeps its span times its gain.
// Ranges that leave the type are moved back into it together, by the same
// amount, while their common extent fits; otherwise the end that leaves the
// type is rounded outward and clamped, or both ends are when both leave.
SornStatus sorn_vrng_scale_$cn$Q(SornElemType type, SornVrng *out, const SornVrng *in,
                                 const double *gains, const double *bases, int32_t chword) {
  if (type > 15) return SORN_EINVAL;
  if ((0xd010u >> type) & 1u) return SORN_ENOTSUP;
  if (!((0x2e0eu >> type) & 1u)) return SORN_EINVAL;
  const Full f = full_range(type);
  const int32_t n = channels(chword);
  double minlo = f.hi, maxhi = f.lo;
  for (int32_t c = 0; c < n; ++c) {
    const double g = gains ? gains[c] : 1.0, b = bases ? bases[c] : 0.0;
    const double span = in[c].hi - in[c].lo;
    out[c].lo = b;
    out[c].hi = span * g + b;
    if (out[c].lo < minlo) minlo = out[c].lo;
    if (out[c].hi > maxhi) maxhi = out[c].hi;
  }
  if (minlo >= f.lo && maxhi <= f.hi) return SORN_OK;
  if (minlo >= f.lo) {
    const double over = maxhi - f.hi;
    if (minlo - over >= f.lo) {
      for (int32_t c = 0; c < n; ++c) {
        out[c].lo -= over;
        out[c].hi -= over;
      }
    } else {
      for (int32_t c = 0; c < n; ++c) saturate_end(type, out[c].hi, true);
    }
    return SORN_OK;
  }
  if (maxhi > f.hi) {
    sorn_vrng_saturate_$cn(type, out, nullptr, chword);
    return SORN_OK;
  }
  const double shift = f.lo - minlo;
  if (maxhi + shift <= f.hi) {
    for (int32_t c = 0; c < n; ++c) {
      out[c].lo += shift;
      out[c].hi += shift;
    }
  } else {
    for (int32_t c = 0; c < n; ++c) saturate_end(type, out[c].lo, false);
  }
  return SORN_OK;
}

/* ---------------- the map between two ranges ---------------- */

void sorn_vrng_solve(double *gain, double *bias, const SornVrng *to, const SornVrng *from) {
  const double span = from->hi - from->lo;
  const double g = std::fabs(span) <= kEmptySpan ? 1.0 : (to->hi - to->lo) / span;
  *gain = g;
  *bias = to->lo - g * from->lo;
}

void sorn_vrng_solve_$cn(double *gains, double *biases, const SornVrng *to, const SornVrng *from,
                         int32_t chword) {
  for (int32_t c = 0; c < channels(chword); ++c)
    sorn_vrng_solve(gains + c, biases + c, to + c, from + c);
}

/* ---------------- equalising channels ---------------- */

SornVrng *sorn_vrng_equalize_$I(SornVrng *r, int32_t chword) {
  const int32_t n = channels(chword);
  if (n < 2 || r == nullptr) return r;
  SornVrng all = r[0];
  for (int32_t c = 1; c < n; ++c) {
    if (r[c].lo < all.lo) all.lo = r[c].lo;
    if (r[c].hi > all.hi) all.hi = r[c].hi;
  }
  for (int32_t c = 0; c < n; ++c) r[c] = all;
  return r;
}

SornVrng *sorn_vrng_equalize(SornVrng *out, const SornVrng *in, int32_t chword) {
  copy_cn(out, in, chword);
  return sorn_vrng_equalize_$I(out, chword);
}

// The same on repaired and saturated copies of the channels, so that a NaN
// or reversed channel counts with the range it would be repaired to.
SornVrng *sorn_vrng_xequalize_$I(SornElemType type, SornVrng *r, int32_t chword) {
  const int32_t n = channels(chword);
  if (n < 2 || r == nullptr) return r;
  const Full f = full_range(type);
  SornVrng all{f.hi, f.lo};
  for (int32_t c = 0; c < n; ++c) {
    SornVrng local = r[c];
    normalize(type, &local, nullptr, true);
    if (local.lo < all.lo) all.lo = local.lo;
    if (local.hi > all.hi) all.hi = local.hi;
  }
  for (int32_t c = 0; c < n; ++c) r[c] = all;
  return r;
}

// Copy (when a source is given), then equalise the output in place.
SornVrng *sorn_vrng_xequalize(SornElemType type, SornVrng *out, const SornVrng *in,
                              int32_t chword) {
  copy_cn(out, in, chword);
  return sorn_vrng_xequalize_$I(type, out, chword);
}

/* ---------------- tests ---------------- */

int sorn_vrng_equalized(const SornVrng *r, int32_t chword) {
  for (int32_t c = 1; c < channels(chword); ++c)
    if (!agree(r[c], r[0])) return 0;
  return 1;
}

int sorn_vrng_equal_$cn(const SornVrng *a, const SornVrng *b, int32_t chword) {
  for (int32_t c = 0; c < channels(chword); ++c)
    if (!agree(a[c], b[c])) return 0;
  return 1;
}

int sorn_vrng_xequal_$cn(SornElemType type, const SornVrng *a, const SornVrng *b, int32_t chword) {
  for (int32_t c = 0; c < channels(chword); ++c) {
    SornVrng x = a[c], y = b[c];
    normalize(type, &x, nullptr, true);
    normalize(type, &y, nullptr, true);
    if (!agree(x, y)) return 0;
  }
  return 1;
}

int sorn_vrng_uxchk_$cn(const SornVrng *r, int32_t chword, int32_t bits, int32_t dbits) {
  const double top = (double)all_ones(bits & 63);
  for (int32_t c = 0; c < channels(chword); ++c)
    if (!within(r[c], 0.0, top, bits, dbits)) return 0;
  return 1;
}

// The signed bounds are formed in 32 bits, where a shift counts modulo 32:
// 32 bits gives the whole s32 range, 0 bits too.
int sorn_vrng_sxchk_$cn(const SornVrng *r, int32_t chword, int32_t bits, int32_t dbits) {
  const uint32_t one = 1u << ((uint32_t)(bits - 1) & 31u);
  const double lo = (double)(int32_t)(0u - one), hi = (double)(int32_t)(one - 1u);
  for (int32_t c = 0; c < channels(chword); ++c)
    if (!within(r[c], lo, hi, bits, dbits)) return 0;
  return 1;
}

int sorn_vrng_diffuxchk_$cn(const SornVrng *r, int32_t chword, int32_t dbits) {
  for (int32_t c = 0; c < channels(chword); ++c)
    if (!span_within(r[c], dbits)) return 0;
  return 1;
}

int sorn_vrng_m2chk_$cn(const SornVrng *r, int32_t chword) {
  for (int32_t c = 0; c < channels(chword); ++c) {
    const double span = std::rint(r[c].hi - r[c].lo);
    // The 64-bit conversion: NaN and values beyond it give the lowest
    // integer, which as a negative span counts as 0.
    int64_t v =
        span >= -9223372036854775808.0 && span < 9223372036854775808.0 ? (int64_t)span : INT64_MIN;
    if (v < 0) v = 0;
    if ((v & (v - 1)) != 0) return 0;
  }
  return 1;
}

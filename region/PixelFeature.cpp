// The pixel feature: the region's points in a heap block that grows.
#include <sorn.h>

#include <algorithm>
#include <cstring>

#include "region/features.h"

namespace {

constexpr uint64_t kGathered = SORN_WTSPF_GATHERED;

static_assert(sizeof(SornWTSPF) == 24, "pixel value of 24 bytes");

bool regrow(SornWTSPF *v, uint64_t capacity) {
  void *p = _KuMrealloc(v->points, capacity * 2 * sizeof(int32_t), 0);
  if (!p) return false;
  v->points = static_cast<int32_t *>(p);
  v->capacity = capacity;
  return true;
}

// One point: the block doubles when full. A failed growth loses the point.
void append_one(SornWTSPF *v, int32_t row, int32_t column) {
  if (v->capacity == v->count && !regrow(v, v->capacity ? v->capacity * 2 : 2)) return;
  v->points[2 * v->count] = row;
  v->points[2 * v->count + 1] = column;
  ++v->count;
}

// Room for n more points. When the block can't grow, only what fits is
// taken: the rest is lost rather than written past the block.
uint64_t make_room(SornWTSPF *v, uint64_t n) {
  uint64_t free = v->capacity - v->count;
  if (free < n) {
    uint64_t capacity = v->capacity + std::max(v->count, n) - free;
    if (!regrow(v, capacity)) return free;
  }
  return n;
}

template <class Get> void append_n(SornWTSPF *v, int32_t n, Get get) {
  if (n <= 0) return;
  if (n == 1) {
    int32_t r, c;
    get(0, r, c);
    append_one(v, r, c);
    return;
  }
  uint64_t k = make_room(v, static_cast<uint64_t>(n));
  int32_t *dst = v->points + 2 * v->count;
  for (uint64_t i = 0; i < k; ++i) get(static_cast<int32_t>(i), dst[2 * i], dst[2 * i + 1]);
  v->count += k;
}

// Copies the points of other behind those of v, whose capacity is plain
// here. False when the block could not grow; then nothing is copied.
bool copy_points(SornWTSPF *v, const SornWTSPF *o) {
  if (o->count == 0) return true;
  uint64_t free = v->capacity - v->count;
  if (free < o->count && !regrow(v, v->capacity + (o->count - free))) return false;
  std::memcpy(v->points + 2 * v->count, o->points, o->count * 2 * sizeof(int32_t));
  v->count += o->count;
  return true;
}

// The capacity's top bit says whether the value is gathered; `change` sees
// the plain capacity, and the bit comes back as it was.
template <class Change> void keeping_gathered(void *value, Change change) {
  SornWTSPF *v = static_cast<SornWTSPF *>(value);
  const uint64_t bit = v->capacity & kGathered;
  v->capacity &= ~kGathered;
  change(v);
  v->capacity |= bit;
}

}  // namespace

extern "C" {

SornWTSPF *SornWTSPF_update2D(SornWTSPF *v, int32_t row, int32_t column) {
  append_one(v, row, column);
  return v;
}

SornWTSPF *SornWTSPF_update2D_n(SornWTSPF *v, const int32_t *points, int32_t n) {
  append_n(v, n, [points](int32_t i, int32_t &r, int32_t &c) {
    r = points[2 * i];
    c = points[2 * i + 1];
  });
  return v;
}

SornWTSPF *SornWTSPF_update_n(SornWTSPF *v, const uint32_t *points, int32_t n) {
  append_n(v, n, [points](int32_t i, int32_t &r, int32_t &c) {
    r = static_cast<int32_t>(points[8 * i + 1]);
    c = static_cast<int32_t>(points[8 * i + 2]);
  });
  return v;
}

void __SornWTSPF__init__(void *value, void *) { std::memset(value, 0, sizeof(SornWTSPF)); }

void __SornWTSPF__destroy__(void *value) {
  SornWTSPF *v = static_cast<SornWTSPF *>(value);
  v->capacity &= ~kGathered;
  _KuMfree(v->points);
  std::memset(v, 0, sizeof *v);
}

void __SornWTSPF__update__(void *value, const uint32_t *points, int32_t n) {
  keeping_gathered(value, [&](SornWTSPF *v) { SornWTSPF_update_n(v, points, n); });
}

void __SornWTSPF__update2D__(void *value, const int32_t *points, int32_t n) {
  keeping_gathered(value, [&](SornWTSPF *v) { SornWTSPF_update2D_n(v, points, n); });
}

// After an eager merge the value counts as complete, even when the copy
// failed for want of memory.
void __SornWTSPF__merge__(void *value, const void *other) {
  SornWTSPF *v = static_cast<SornWTSPF *>(value);
  v->capacity &= ~kGathered;
  copy_points(v, static_cast<const SornWTSPF *>(other));
  v->capacity |= kGathered;
}

void __SornWTSPF__lazymerge__(void *value, const void *other) {
  keeping_gathered(value,
                   [&](SornWTSPF *v) { copy_points(v, static_cast<const SornWTSPF *>(other)); });
}

int __SornWTSPF__isgathered__(const void *value) {
  return (static_cast<const SornWTSPF *>(value)->capacity & kGathered) != 0;
}

void __SornWTSPF__ongather__(void *value, SornWTSRegion *) {
  static_cast<SornWTSPF *>(value)->capacity |= kGathered;
}

SornWTSFeatureDs *SornWTSPFinitFeatureDs(SornWTSFeatureDs *ds, void *arg) {
  *ds = SORN_WTS_FEATURE_DS(PF, SORN_WTS_MAGIC_PIXELS, arg, __SornWTSPF__init__,
                            __SornWTSPF__destroy__);
  return ds;
}

}  // extern "C"

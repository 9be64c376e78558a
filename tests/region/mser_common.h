// Helpers of the stable region tests: synthetic images whose stable regions
// can be told by hand, and the regions a filter picked read back as sets
// of pixels. Nothing here calls the code under test but to read results.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

namespace mser_test {

using Pt = std::pair<int32_t, int32_t>;  // row, column
using PtSet = std::set<Pt>;

// A byte image with padded rows and guard bytes on both sides.
struct Canvas {
  static constexpr int32_t kGuard = 64;
  int32_t rows, cols, rowstride;
  std::vector<uint8_t> store;

  Canvas(int32_t r, int32_t c, int32_t pad = 0)
      : rows(r), cols(c), rowstride(c + pad),
        store((size_t)r * (c + pad) + 2 * kGuard, 0xA5) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) at(y, x) = 0;
  }
  uint8_t *base() { return store.data() + kGuard; }
  uint8_t &at(int32_t y, int32_t x) { return base()[(size_t)y * rowstride + x]; }
  uint8_t get(int32_t y, int32_t x) const {
    return store[kGuard + (size_t)y * rowstride + x];
  }
  SornArray record() {
    SornArray a;
    std::memset(&a, 0, sizeof a);
    a.dims[0] = 1; a.dims[1] = rows; a.dims[2] = cols; a.dims[3] = 1;
    a.bounds[0] = 1; a.bounds[1] = rows; a.bounds[2] = cols; a.bounds[3] = 1;
    a.strides[0] = 0; a.strides[1] = rowstride; a.strides[2] = 1; a.strides[3] = 1;
    a.ndims = 3; a.ndimsall = 3;
    a.elemtype = SORN_U8;
    a.marker = 0x22;
    a.data = base();
    return a;
  }
  std::vector<uint8_t> snapshot() const { return store; }

  // A fine checker of two levels: under four neighbours the low pixels
  // stand alone, so that the background has no node below its high level.
  void checker(uint8_t lo, uint8_t hi) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) at(y, x) = ((x + y) & 1) ? hi : lo;
  }
  void flat(uint8_t v) {
    for (int32_t y = 0; y < rows; ++y)
      for (int32_t x = 0; x < cols; ++x) at(y, x) = v;
  }
  PtSet square(int32_t y0, int32_t x0, int32_t h, int32_t w, uint8_t v) {
    PtSet s;
    for (int32_t y = y0; y < y0 + h; ++y)
      for (int32_t x = x0; x < x0 + w; ++x) {
        at(y, x) = v;
        s.insert({y, x});
      }
    return s;
  }
  PtSet disc(int32_t cy, int32_t cx, int32_t radius, uint8_t v) {
    PtSet s;
    for (int32_t y = cy - radius; y <= cy + radius; ++y)
      for (int32_t x = cx - radius; x <= cx + radius; ++x)
        if ((y - cy) * (y - cy) + (x - cx) * (x - cx) <= radius * radius) {
          at(y, x) = v;
          s.insert({y, x});
        }
    return s;
  }
};

// A byte mask of the same frame, all inside unless told.
struct MaskCanvas : Canvas {
  MaskCanvas(int32_t r, int32_t c, uint8_t inside = 1) : Canvas(r, c) { flat(inside); }
};

struct Env {
  SornXE xe{};
  Env() { SornXEinit(&xe, nullptr); }
  ~Env() { SornXEfini(&xe); }
  Env(const Env &) = delete;
  Env &operator=(const Env &) = delete;
  KuMark mark() {
    KuMark m;
    SornXEgetmmsp(&xe, &m);
    return m;
  }
  bool at(const KuMark &m) {
    KuMark now = mark();
    return std::memcmp(&now, &m, sizeof m) == 0;
  }
};

// Pixels of a region of the f form, the whole subtree.
inline PtSet f_pixels(const SornFWTSRegion *r, const SornFWTSRES *res, int32_t rows,
                      int32_t cols) {
  SornVec v{0, 0, nullptr};
  sorn_fwtsr_fetchpix_$2d(&v, r, res->links, 0, rows, cols);
  PtSet s;
  const Sorn2dPt *p = static_cast<const Sorn2dPt *>(v.items);
  for (uint64_t i = 0; i < v.count; ++i) s.insert({p[i].x, p[i].y});
  _KuMfree(v.items);
  return s;
}

// Pixels of a plain-form region from its gathered pixel feature.
inline PtSet pf_pixels(const SornWTSRegion *r, const SornWTSFeatureDs &f) {
  const SornWTSPF *v =
      reinterpret_cast<const SornWTSPF *>(reinterpret_cast<const char *>(r) + f.offset);
  PtSet s;
  for (uint64_t i = 0; i < v->count; ++i) s.insert({v->points[2 * i], v->points[2 * i + 1]});
  return s;
}

// (level, size) of the picked regions of each pass, sorted.
using LevelSize = std::vector<std::pair<int64_t, uint32_t>>;

inline LevelSize picked(const SornFMSERFilter &f, int pass) {
  LevelSize out;
  SornFWTSRegion **l = pass == 1 ? f.list1 : f.list2;
  uint32_t n = pass == 1 ? f.count1 : f.count2;
  for (uint32_t i = 0; i < n; ++i) out.push_back({l[i]->level, l[i]->size});
  std::sort(out.begin(), out.end());
  return out;
}

inline LevelSize picked(const SornMSERFilter &f, int pass) {
  LevelSize out;
  SornWTSRegion **l = pass == 1 ? f.list1 : f.list2;
  uint32_t n = pass == 1 ? f.count1 : f.count2;
  for (uint32_t i = 0; i < n; ++i) out.push_back({l[i]->pivotval, l[i]->size});
  std::sort(out.begin(), out.end());
  return out;
}

inline LevelSize ls(std::initializer_list<std::pair<int64_t, uint32_t>> v) {
  LevelSize out(v);
  std::sort(out.begin(), out.end());
  return out;
}

// The two forms behind one face, so that a test can run on both: a filter
// with its defaults, its runs, its picked regions read back as pixels.
struct FForm {
  static constexpr bool kF = true;
  SornFMSERFilter f;
  FForm() { __sorn_fmserfilt__$(&f); }
  ~FForm() { sorn_fmserf_destroy(&f); }
  SornStatus run(SornXE *xe, SornFlags flags, const SornArray *img, const SornVolume *roi = nullptr) {
    return SornGenerateFMSERs(xe, flags, img, roi, &f);
  }
  SornStatus run_ex(SornXE *xe, SornFlags flags, const SornArray *img, const SornArray *mask,
                    const SornVolume *roi = nullptr, const SornVolume *mroi = nullptr) {
    return SornGenerateFMSERsEx(xe, flags, img, mask, roi, mroi, &f);
  }
  SornStatus tga_ex(SornXE *xe, SornDimPack dp, int32_t *dims, void *base, int32_t *strides,
                    uint32_t masktype, void *mbase) {
    return SornTGAgenerateFMSERsEx(xe, 0, &f, dp, dims, SORN_U8, base, nullptr, strides,
                                   masktype, mbase, nullptr, strides);
  }
  PtSet pixels(int pass, uint32_t i) {
    const SornFWTSRES *res = pass == 1 ? f.res1 : f.res2;
    return f_pixels((pass == 1 ? f.list1 : f.list2)[i], res, (int32_t)f.imdims[1],
                    (int32_t)f.imdims[2]);
  }
  bool holds_nothing() const {
    return f.regions.items == nullptr && f.regions.count == 0 && f.count1 == 0 &&
           f.count2 == 0 && f.list1 == nullptr && f.list2 == nullptr && f.res1 == nullptr &&
           f.res2 == nullptr;
  }
};

struct PForm {
  static constexpr bool kF = false;
  SornMSERFilter f;
  SornWTSFeatureDs pf;
  PForm() {
    SornWTSPFinitFeatureDs(&pf, nullptr);
    __sorn_mserfilt__$feats(&f, &pf, 1);
  }
  ~PForm() { sorn_mserf_destroy(&f); }
  SornStatus run(SornXE *xe, SornFlags flags, const SornArray *img, const SornVolume *roi = nullptr) {
    return SornGenerateMSERs(xe, flags, img, roi, &f);
  }
  SornStatus run_ex(SornXE *xe, SornFlags flags, const SornArray *img, const SornArray *mask,
                    const SornVolume *roi = nullptr, const SornVolume *mroi = nullptr) {
    return SornGenerateMSERsEx(xe, flags, img, mask, roi, mroi, &f);
  }
  SornStatus tga_ex(SornXE *xe, SornDimPack dp, int32_t *dims, void *base, int32_t *strides,
                    uint32_t masktype, void *mbase) {
    return SornTGAgenerateMSERsEx(xe, 0, &f, dp, dims, SORN_U8, base, nullptr, strides, masktype,
                                  mbase, nullptr, strides);
  }
  PtSet pixels(int pass, uint32_t i) {
    SornWTSRegion *r = (pass == 1 ? f.list1 : f.list2)[i];
    EXPECT_EQ(SornMSERgatherFeaturesOfRegion(&f, r, pass == 1 ? 1 : -1), SORN_OK);
    return pf_pixels(r, pf);
  }
  bool holds_nothing() const {
    return f.regions.items == nullptr && f.regions.count == 0 && f.count1 == 0 &&
           f.count2 == 0 && f.list1 == nullptr && f.list2 == nullptr &&
           f.builder1 == nullptr && f.builder2 == nullptr;
  }
};

}  // namespace mser_test

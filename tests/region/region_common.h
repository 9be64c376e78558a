// Helpers of the region tests: a builder driven by hand through its chain,
// as a flooding would drive it.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

namespace region_test {

inline const SornWTSTBwtsl *wtsl_of(const SornSTB *b) {
  return static_cast<const SornWTSTBwtsl *>(_T_stb__findblock(b->ops, SORN_STB_TAG_WTSL));
}

inline void *value_in(SornWTSRegion *r, const SornWTSFeatureDs &f) {
  return reinterpret_cast<char *>(r) + f.offset;
}

inline SornWTSMF *mf_in(SornWTSRegion *r, const SornWTSFeatureDs &f) {
  return static_cast<SornWTSMF *>(value_in(r, f));
}

inline SornWTSPF *pf_in(SornWTSRegion *r, const SornWTSFeatureDs &f) {
  return static_cast<SornWTSPF *>(value_in(r, f));
}

using Pt = std::pair<int32_t, int32_t>;

// A random tree of regions described before it is built: parent of each
// (region 0 is the root, parents come before children) and own points.
struct Plan {
  std::vector<int> parent;
  std::vector<std::vector<Pt>> own;
  std::vector<std::vector<int>> children;

  static Plan random(std::mt19937_64 &rng, int n, int maxpts) {
    Plan p;
    p.parent.assign(n, -1);
    p.own.resize(n);
    p.children.resize(n);
    int next = 0;
    for (int i = 0; i < n; ++i) {
      if (i > 0) {
        p.parent[i] = static_cast<int>(rng() % i);
        p.children[p.parent[i]].push_back(i);
      }
      int k = 1 + static_cast<int>(rng() % maxpts);
      for (int j = 0; j < k; ++j, ++next) p.own[i].push_back({next / 37, next % 37});
    }
    return p;
  }

  void subtree_points(int i, std::vector<Pt> &out) const {
    out.insert(out.end(), own[i].begin(), own[i].end());
    for (int c : children[i]) subtree_points(c, out);
  }
  uint32_t subtree_size(int i) const {
    std::vector<Pt> v;
    subtree_points(i, v);
    return static_cast<uint32_t>(v.size());
  }
};

// Builds the plan through the chain: regions, their points in batches of up
// to 16, then merges children first, so the last merge is into the root.
inline std::vector<SornWTSRegion *> build(SornSTB *b, SornWTSLSC *lsc, const Plan &plan,
                                          std::mt19937_64 &rng) {
  const SornWTSTBwtsl *w = wtsl_of(b);
  std::vector<SornWTSRegion *> regions;
  for (size_t i = 0; i < plan.own.size(); ++i) {
    SornWTSRegion *r = w->newregion(nullptr, b, lsc);
    r->pivot = static_cast<uint32_t>(i);
    r->pivotval = static_cast<uint32_t>(i % 256);
    std::vector<int32_t> flat;
    for (auto &p : plan.own[i]) {
      flat.push_back(p.first);
      flat.push_back(p.second);
    }
    int32_t n = static_cast<int32_t>(plan.own[i].size());
    for (int32_t at = 0; at < n;) {
      int32_t k = std::min<int32_t>(n - at, 1 + static_cast<int32_t>(rng() % 16));
      w->accumulate2D(b, lsc, r, flat.data() + 2 * at, k);
      at += k;
    }
    regions.push_back(r);
  }
  // Children before parents: a reversed index order works since parents
  // have smaller indexes.
  for (int i = static_cast<int>(plan.own.size()) - 1; i > 0; --i)
    w->merge(b, lsc, regions[plan.parent[i]], regions[i]);
  return regions;
}

inline void ref_moments(const std::vector<Pt> &pts, double s[5]) {
  for (int k = 0; k < 5; ++k) s[k] = 0;
  for (auto &p : pts) {
    double r = p.first, c = p.second;
    s[0] += r;
    s[1] += c;
    s[2] += r * r;
    s[3] += r * c;
    s[4] += c * c;
  }
}

inline std::vector<Pt> pf_points(const SornWTSPF *v) {
  std::vector<Pt> out;
  for (uint64_t i = 0; i < v->count; ++i) out.push_back({v->points[2 * i], v->points[2 * i + 1]});
  return out;
}

inline std::vector<Pt> sorted(std::vector<Pt> v) {
  std::sort(v.begin(), v.end());
  return v;
}

}  // namespace region_test

// The stable region selection written over indexes, as a model of what
// the library's selection picks from a tree: the tree is a list of regions
// (parent, level, size), parents first, and children are listed newest
// first as the trees of both forms list them. Nothing here calls the
// library.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <sorn.h>

namespace mser_ref {

struct Shape {
  int parent;  // -1 for the root; parents come first
  int64_t level;
  uint32_t size;
};

struct RefTree {
  std::vector<Shape> s;
  std::vector<std::vector<int>> kids;  // in list order: newest first
  std::vector<uint32_t> flag;
  std::vector<int> order;

  explicit RefTree(const std::vector<Shape> &shape) : s(shape), kids(shape.size()), flag(shape.size()) {
    for (size_t i = 1; i < s.size(); ++i) kids[s[i].parent].push_back((int)i);
    for (auto &k : kids) std::reverse(k.begin(), k.end());
  }

  void unpick_close(int region, int x, float th) {
    float frac = (float)(int32_t)(s[region].size - s[x].size) / (float)s[region].size;
    if (!(th > frac)) return;
    if (flag[x]) {
      flag[x] = 0;
      return;
    }
    for (int k : kids[x]) unpick_close(region, k, th);
  }

  int visit(int i, const SornMSERParams &p) {
    flag[i] = 0;
    int below = 0;
    if (s[i].level >= p.delta)
      for (int k : kids[i]) below |= visit(k, p);
    if ((int64_t)s[i].size < p.minpixels) return 0;
    if (!below && (int64_t)s[i].size > p.maxpixels) return 0;
    int a = s[i].parent;
    while (a >= 0 && std::llabs(s[a].level - s[i].level) < p.delta) a = s[a].parent;
    if (a < 0) return 0;
    float v = 0.0f;
    if (std::llabs(s[a].level - s[i].level) == p.delta)
      v = std::fabs((float)(int32_t)(s[a].size - s[i].size) / (float)s[a].size);
    if (!(p.maxvariation >= v)) return 0;
    flag[i] = (int64_t)s[i].size <= p.maxpixels;
    if (flag[i]) order.push_back(i);
    for (int k : kids[i]) unpick_close(i, k, p.mindiversity);
    return (int)flag[i];
  }

  std::vector<int> picked(const SornMSERParams &p) {
    visit(0, p);
    std::vector<int> out;
    for (int i : order)
      if (flag[i]) out.push_back(i);
    return out;
  }
};

}  // namespace mser_ref

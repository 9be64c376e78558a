// A brute-force component tree for the flooding tests, and images to flood.
// Nothing here calls the library: components are found by breadth-first
// search at every level, one level at a time.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

namespace wts_ref {

// The pixels a flooding can reach, their levels and who touches whom.
struct Graph {
  std::vector<int64_t> ids;  // pixel ids, by node
  std::vector<int> level;    // by node
  std::vector<std::vector<int>> adj;
};

// Breadth-first from the seed through the pixels for which allowed() holds
// (the seed itself always counts), neighbours from next().
inline Graph reach(int64_t seed, const std::function<bool(int64_t)> &allowed,
                   const std::function<void(int64_t, std::vector<int64_t> &)> &next,
                   const std::function<int(int64_t)> &level_of) {
  Graph g;
  std::unordered_map<int64_t, int> id;
  std::vector<int64_t> todo{seed};
  id[seed] = 0;
  g.ids.push_back(seed);
  std::vector<int64_t> nb;
  for (size_t at = 0; at < todo.size(); ++at) {
    nb.clear();
    next(todo[at], nb);
    for (int64_t q : nb) {
      if (id.count(q) || !allowed(q)) continue;
      id[q] = (int)g.ids.size();
      g.ids.push_back(q);
      todo.push_back(q);
    }
  }
  g.level.resize(g.ids.size());
  g.adj.resize(g.ids.size());
  for (size_t i = 0; i < g.ids.size(); ++i) {
    g.level[i] = level_of(g.ids[i]);
    nb.clear();
    next(g.ids[i], nb);
    for (int64_t q : nb) {
      auto it = id.find(q);
      if (it != id.end()) g.adj[i].push_back(it->second);
    }
  }
  return g;
}

struct Node {
  int level = 0;                // highest level among its pixels
  std::vector<int64_t> pixels;  // sorted ids
  int parent = -1;
};

using Key = std::pair<int64_t, size_t>;  // smallest id and size name a set
inline Key key_of(const std::vector<int64_t> &sorted) { return {sorted.front(), sorted.size()}; }

// Every distinct set that is a connected component of the pixels at or
// below some level; kept are those of at least minsize pixels, and the
// whole of the graph when keep_top. Parents are the smallest kept sets
// around them. Components of one level are found by a breadth-first search
// of their own, level by level, and nothing is carried from one level to
// the next, so that the tree owes nothing to the way a flooding builds it.
inline std::vector<Node> component_tree(const Graph &g, size_t minsize, bool keep_top) {
  std::vector<int> levels = g.level;
  std::sort(levels.begin(), levels.end());
  levels.erase(std::unique(levels.begin(), levels.end()), levels.end());
  std::map<Key, Node> found;
  const size_t n = g.ids.size();
  std::vector<char> seen(n);
  std::vector<int> comp;
  for (int t : levels) {
    std::fill(seen.begin(), seen.end(), 0);
    for (size_t s = 0; s < n; ++s) {
      if (seen[s] || g.level[s] > t) continue;
      comp.assign(1, (int)s);
      seen[s] = 1;
      for (size_t at = 0; at < comp.size(); ++at)
        for (int q : g.adj[comp[at]])
          if (!seen[q] && g.level[q] <= t) {
            seen[q] = 1;
            comp.push_back(q);
          }
      if (comp.size() < minsize && !(keep_top && comp.size() == n)) continue;
      int64_t first = g.ids[comp[0]];
      for (int c : comp) first = std::min(first, g.ids[c]);
      if (found.count({first, comp.size()})) continue;  // the same set as at a lower level
      Node node;
      node.pixels.reserve(comp.size());
      for (int c : comp) {
        node.pixels.push_back(g.ids[c]);
        node.level = std::max(node.level, g.level[c]);
      }
      std::sort(node.pixels.begin(), node.pixels.end());
      found.emplace(key_of(node.pixels), std::move(node));
    }
  }
  std::vector<Node> kept;
  kept.reserve(found.size());
  for (auto &kv : found) kept.push_back(std::move(kv.second));
  // The sets are nested or apart: the parent of a set is the smallest
  // larger set that holds its first pixel. For each first pixel, the sets
  // that hold it.
  std::unordered_map<int64_t, std::vector<int>> holding;
  for (const Node &k : kept) holding[k.pixels.front()];
  for (size_t b = 0; b < kept.size(); ++b)
    for (int64_t p : kept[b].pixels) {
      auto it = holding.find(p);
      if (it != holding.end()) it->second.push_back((int)b);
    }
  for (Node &a : kept) {
    int best = -1;
    for (int b : holding[a.pixels.front()])
      if (kept[b].pixels.size() > a.pixels.size() &&
          (best < 0 || kept[b].pixels.size() < kept[best].pixels.size()))
        best = b;
    a.parent = best;
  }
  return kept;
}

// A tree read back from a flooding, in the same terms.
struct Got {
  std::vector<Node> nodes;
  std::vector<uint32_t> sizes;  // as the regions report them
};

// Compares a tree read back with the reference: the same sets, levels and
// parents.
inline void expect_same(const Got &got, const std::vector<Node> &ref) {
  ASSERT_EQ(got.nodes.size(), ref.size());
  std::map<Key, int> at;
  for (size_t i = 0; i < ref.size(); ++i) at[key_of(ref[i].pixels)] = (int)i;
  for (size_t i = 0; i < got.nodes.size(); ++i) {
    const Node &g = got.nodes[i];
    ASSERT_FALSE(g.pixels.empty());
    auto it = at.find(key_of(g.pixels));
    ASSERT_NE(it, at.end()) << "a region that is no component, size " << g.pixels.size();
    const Node &r = ref[it->second];
    EXPECT_EQ(g.pixels, r.pixels);
    EXPECT_EQ(g.level, r.level);
    EXPECT_EQ(got.sizes[i], (uint32_t)r.pixels.size());
    if (g.parent < 0) {
      EXPECT_EQ(r.parent, -1);
    } else {
      ASSERT_GE(r.parent, 0);
      EXPECT_EQ(key_of(got.nodes[g.parent].pixels), key_of(ref[r.parent].pixels));
    }
  }
}

// Where a masked flooding starts, as a user reads the rules: from the seed
// on in raster order to the first pixel inside (the mask byte differs from
// excl), then from the top up to the seed unless the seed was (0, 0); false
// when no pixel is inside. A run from (0, 0) drops the rows wholly outside
// before the one found: trim, and the seed's row counts from there. Without
// a mask the seed stands.
inline bool locate_seed(const std::vector<uint8_t> &mask, uint8_t excl, int rows, int cols,
                        int seedrow, int seedcol, int &trim, int &sr, int &sc) {
    trim = 0;
    sr = seedrow;
    sc = seedcol;
    if (mask.empty()) return true;
    long start = (long)seedrow * cols + seedcol, n = (long)rows * cols, f = -1;
    for (long i = start; i < n && f < 0; ++i)
      if (mask[i] != excl) f = i;
    if (f < 0 && start != 0)
      for (long i = 0; i < start && f < 0; ++i)
        if (mask[i] != excl) f = i;
    if (f < 0) return false;
    sr = (int)(f / cols);
    sc = (int)(f % cols);
    if (start == 0 && sr > 0) {
      trim = sr;
      sr = 0;
    }
    return true;
}

// Smooth noise over cells of 'cell' pixels, levels below 'span', with up to
// 'grain' added to each pixel: basins and ridges of every size, as in
// photographs.
inline std::vector<uint8_t> smooth_noise(std::mt19937_64 &rng, int rows, int cols, int cell,
                                         int span, int grain) {
  const int gr = rows / cell + 2, gc = cols / cell + 2;
  std::vector<int> grid((size_t)gr * gc);
  for (int &g : grid) g = (int)(rng() % (uint64_t)span);
  std::vector<uint8_t> img((size_t)rows * cols);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const int y = r / cell, x = c / cell, wy = r % cell, wx = c % cell;
      const int *g0 = &grid[(size_t)y * gc + x], *g1 = g0 + gc;
      const int top = g0[0] * (cell - wx) + g0[1] * wx, bot = g1[0] * (cell - wx) + g1[1] * wx;
      const int v = (top * (cell - wy) + bot * wy) / (cell * cell) + (int)(rng() % (uint64_t)(grain + 1));
      img[(size_t)r * cols + c] = (uint8_t)std::min(v, 255);
    }
  return img;
}

// Images with few grey levels, some in blocks, some as noise.
inline std::vector<uint8_t> random_levels(std::mt19937_64 &rng, int rows, int cols) {
  int nlev = 2 + (int)(rng() % 4);
  std::vector<uint8_t> lv(nlev);
  for (auto &v : lv) v = (uint8_t)(rng() & 0xff);
  std::vector<uint8_t> img((size_t)rows * cols);
  int kind = (int)(rng() % 3);
  int bh = 1 + (int)(rng() % 7), bw = 1 + (int)(rng() % 7);
  std::vector<uint8_t> coarse((size_t)(rows / bh + 1) * (cols / bw + 1));
  for (auto &v : coarse) v = lv[rng() % nlev];
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      uint8_t v;
      if (kind == 0)
        v = lv[rng() % nlev];
      else
        v = coarse[(size_t)(r / bh) * (cols / bw + 1) + c / bw];
      if (kind == 2 && rng() % 9 == 0) v = lv[rng() % nlev];
      img[(size_t)r * cols + c] = v;
    }
  return img;
}

inline std::pair<int, int> random_shape(std::mt19937_64 &rng) {
  switch (rng() % 6) {
    case 0: return {1, 1 + (int)(rng() % 40)};
    case 1: return {1 + (int)(rng() % 40), 1};
    default: return {1 + (int)(rng() % 40), 1 + (int)(rng() % 40)};
  }
}

}  // namespace wts_ref

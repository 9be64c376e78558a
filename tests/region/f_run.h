// An f-form flooding and the brute-force tree it must give: the result
// read back as sets of pixels, and an image with its mask, seed, polarity
// and shift, from which the reference is built under the f form's rules
// (four neighbours, column 0 never flooded, the seed one column to the
// right, one mask byte per row at the seed's column).
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "watershed_ref.h"

namespace f_run {

struct FRun {
  SornFWTSRES res{};
  SornXE xe{};
  SornWTSState st{};

  FRun() {
    SornFWTSRESinit(&res, nullptr, nullptr);
    SornXEinit(&xe, nullptr);
    st.builder = &res;
  }
  ~FRun() {
    SornFWTSRESfini(&res);
    SornXEfini(&xe);
  }

  // Reads the tree back as sets of pixel indexes; the own chain of each
  // region must end after exactly its own pixels.
  int collect(const SornFWTSRegion *r, int parent, wts_ref::Got &got, int64_t limit) const {
    int me = (int)got.nodes.size();
    got.nodes.push_back({});
    got.sizes.push_back(r->size);
    got.nodes[me].level = r->level;
    got.nodes[me].parent = parent;
    std::vector<int64_t> px;
    for (int64_t i = r->head; i != SORN_FWTSR_END; i = res.links[i]) {
      px.push_back(i);
      if ((int64_t)px.size() > limit) {
        ADD_FAILURE() << "a chain that does not end";
        break;
      }
    }
    uint32_t below = 0;
    for (const SornFWTSRegion *c = r->child; c; c = c->next) {
      EXPECT_EQ(c->parent, r);
      below += c->size;
      int k = collect(c, me, got, limit);
      px.insert(px.end(), got.nodes[k].pixels.begin(), got.nodes[k].pixels.end());
    }
    EXPECT_EQ((uint32_t)px.size(), r->size);
    EXPECT_EQ(r->size - below, (uint32_t)sorn_fwtsr_countpix_$proper(r));
    std::sort(px.begin(), px.end());
    got.nodes[me].pixels = px;
    return me;
  }
};

struct FCase {
  int rows = 0, cols = 0;
  std::vector<uint8_t> img, mask;
  uint8_t excl = 0, pm = 0;
  uint32_t sh = 0;
  int seedrow = 0, seedcol = 0;

  bool locate(int &trim, int &sr, int &sc) const {
    return wts_ref::locate_seed(mask, excl, rows, cols, seedrow, seedcol, trim, sr, sc);
  }

  std::vector<wts_ref::Node> reference(int trim, int sr, int sc) const {
    const int64_t R = rows - trim, C = cols, n = R * C;
    auto rowok = [&](int64_t r) {
      return mask.empty() || mask[(size_t)((r + trim) * C + sc)] != excl;
    };
    auto allowed = [&](int64_t i) { return i >= 0 && i < n && i % C != 0 && rowok(i / C); };
    auto next = [&](int64_t i, std::vector<int64_t> &out) {
      out.push_back(i + 1);
      out.push_back(i - 1);
      out.push_back(i + C);
      out.push_back(i - C);
    };
    auto level = [&](int64_t i) {
      if (i < 0 || i >= n) return 0;
      return (int)((uint32_t)(img[(size_t)((i / C + trim) * C + i % C)] ^ pm) >> sh);
    };
    wts_ref::Graph g = wts_ref::reach((int64_t)sr * C + sc + 1, allowed, next, level);
    return wts_ref::component_tree(g, 16, true);
  }
};

}  // namespace f_run

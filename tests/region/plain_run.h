// A plain flooding watched from the builder's side: a feature that books
// the points each region takes, so that the tree can be read back as sets
// of pixels, and an operation chain that logs every call the flooding makes
// through it before it hands the call on to the watershed builder's own
// function. check_calls() holds the log to the rules of the chain.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "watershed_ref.h"

namespace plain_run {

// Points of every region, kept by the test: a region's value is its number
// here. A run that never merges leaves its regions outside any tree, where
// no destructor finds them, so they hold nothing of their own.
struct PointBook {
  std::vector<std::vector<std::pair<int32_t, int32_t>>> regions;
};
struct PointValue {
  PointBook *book;
  int64_t id;
};
inline void book_init(void *value, void *arg) {
  PointValue *v = static_cast<PointValue *>(value);
  v->book = static_cast<PointBook *>(arg);
  v->id = (int64_t)v->book->regions.size();
  v->book->regions.emplace_back();
}
inline void book_update2D(void *value, const int32_t *points, int32_t n) {
  PointValue *v = static_cast<PointValue *>(value);
  for (int32_t i = 0; i < n; ++i)
    v->book->regions[(size_t)v->id].push_back({points[2 * i], points[2 * i + 1]});
}
inline void book_update(void *, const uint32_t *, int32_t) {}
inline void book_merge(void *, const void *) {}

inline SornWTSFeatureDs book_feature(PointBook *book) {
  SornWTSFeatureDs ds;
  std::memset(&ds, 0, sizeof ds);
  ds.magic = SORN_FOURCC('t', 'p', 't', 's');
  ds.size = sizeof(PointValue);
  ds.arg = book;
  ds.init = book_init;
  ds.update = book_update;
  ds.update2D = book_update2D;
  ds.merge = book_merge;
  return ds;
}

// ---------------------------------------------------------------- call log

struct Call {
  enum Kind { kStart, kNewRegion, kAccumulate, kMerge, kFinish } kind;
  explicit Call(Kind k) : kind(k) {}
  const SornWTSRegion *a = nullptr;  // the region made, accumulated into, or surviving
  const SornWTSRegion *b = nullptr;  // the region given to newregion, or absorbed
  uint32_t alevel = 0, blevel = 0;   // pivotval of a and b at the call
  std::vector<std::pair<int32_t, int32_t>> points;
};

struct CallLog {
  std::vector<Call> calls;
};

inline std::map<const SornSTB *, CallLog *> &logs() {
  static std::map<const SornSTB *, CallLog *> m;
  return m;
}
inline CallLog *log_of(const SornSTB *b) {
  auto it = logs().find(b);
  return it == logs().end() ? nullptr : it->second;
}

inline const SornWTSTBwtsl &builder_ops() { return _S_wtstb_lazy_opv.wtsl; }

inline void log_start(SornSTB *b, SornWTSLSC *lsc, SornFlags flags, const uint16_t *options) {
  if (CallLog *l = log_of(b)) l->calls.emplace_back(Call::kStart);
  builder_ops().start(b, lsc, flags, options);
}
inline void log_finish(SornSTB *b, SornWTSLSC *lsc, const uint16_t *options) {
  if (CallLog *l = log_of(b)) l->calls.emplace_back(Call::kFinish);
  builder_ops().finish(b, lsc, options);
}
inline SornWTSRegion *log_newregion(SornWTSRegion *r, SornSTB *b, SornWTSLSC *lsc) {
  SornWTSRegion *made = builder_ops().newregion(r, b, lsc);
  if (CallLog *l = log_of(b)) {
    Call c(Call::kNewRegion);
    c.a = made;
    c.b = r;
    l->calls.push_back(c);
  }
  return made;
}
inline void log_accumulate2D(SornSTB *b, SornWTSLSC *lsc, SornWTSRegion *r, const int32_t *pts,
                             int32_t n) {
  if (CallLog *l = log_of(b)) {
    Call c(Call::kAccumulate);
    c.a = r;
    c.alevel = r->pivotval;
    for (int32_t i = 0; i < n; ++i) c.points.push_back({pts[2 * i], pts[2 * i + 1]});
    l->calls.push_back(std::move(c));
  }
  builder_ops().accumulate2D(b, lsc, r, pts, n);
}
inline SornSTree *log_merge(SornSTB *b, SornWTSLSC *lsc, SornWTSRegion *survivor,
                            SornWTSRegion *absorbed) {
  if (CallLog *l = log_of(b)) {
    Call c(Call::kMerge);
    c.a = survivor;
    c.b = absorbed;
    c.alevel = survivor->pivotval;
    c.blevel = absorbed->pivotval;
    l->calls.push_back(c);
  }
  return builder_ops().merge(b, lsc, survivor, absorbed);
}

// The watershed builder's default chain with the flooding's slots logged.
inline const SornSTBops *logging_ops() {
  static const SornWTSTBopv table = [] {
    SornWTSTBopv t = _S_wtstb_lazy_opv;
    t.wtsl.start = log_start;
    t.wtsl.finish = log_finish;
    t.wtsl.newregion = log_newregion;
    t.wtsl.accumulate2D = log_accumulate2D;
    t.wtsl.merge = log_merge;
    return t;
  }();
  return &table.stbl.hdr;
}

// The pixels a run flooded: the level of each, in the run's polarity, by
// row and column of the frame, -1 where the run did not reach.
struct Flooded {
  int32_t rows = 0, cols = 0;
  std::vector<int> level;
  size_t count = 0;
  int at(int32_t r, int32_t c) const {
    if (r < 0 || r >= rows || c < 0 || c >= cols) return -1;
    return level[(size_t)r * cols + c];
  }
};

// What the log must show of a run that flooded 'pixels' and left 'nodes'
// regions in its tree: start first and finish last, once each; the bottom
// region made first and never used again; every region accumulated into
// or merged made before; an absorbed region never seen again; levels that
// rise from the absorbed to the survivor and never fall below a point
// given; every pixel given once, in batches of 1 to 16 (unless fewer than
// 16 were flooded: they stay in the flooding's small region and never
// reach the builder); and one merge for each node under the root.
inline void check_calls(const CallLog &log, const Flooded &pixels, size_t nodes) {
  const std::vector<Call> &c = log.calls;
  ASSERT_GE(c.size(), 3u);
  ASSERT_EQ(c.front().kind, Call::kStart);
  ASSERT_EQ(c.back().kind, Call::kFinish);
  ASSERT_EQ(c[1].kind, Call::kNewRegion);
  ASSERT_EQ(c[1].b, nullptr) << "the bottom region is a new one";
  const SornWTSRegion *bottom = c[1].a;
  std::unordered_set<const SornWTSRegion *> made{bottom}, gone;
  std::vector<char> given((size_t)pixels.rows * pixels.cols, 0);
  size_t ngiven = 0, merges = 0;
  for (size_t i = 2; i + 1 < c.size(); ++i) {
    const Call &k = c[i];
    ASSERT_NE(k.kind, Call::kStart) << "call " << i;
    ASSERT_NE(k.kind, Call::kFinish) << "call " << i;
    if (k.kind == Call::kNewRegion) {
      ASSERT_EQ(k.b, nullptr) << "call " << i << ": the flooding asks for new regions only";
      ASSERT_TRUE(made.insert(k.a).second) << "call " << i << ": a region made twice";
      continue;
    }
    ASSERT_TRUE(made.count(k.a)) << "call " << i << ": a region never made";
    ASSERT_NE(k.a, bottom) << "call " << i;
    ASSERT_FALSE(gone.count(k.a)) << "call " << i << ": an absorbed region used again";
    if (k.kind == Call::kAccumulate) {
      ASSERT_GE(k.points.size(), 1u) << "call " << i;
      ASSERT_LE(k.points.size(), 16u) << "call " << i;
      for (const auto &p : k.points) {
        const int level = pixels.at(p.first, p.second);
        ASSERT_GE(level, 0) << "call " << i << ": a point outside the flooded pixels, "
                            << p.first << "," << p.second;
        char &g = given[(size_t)p.first * pixels.cols + p.second];
        ASSERT_EQ(g, 0) << "call " << i << ": a pixel given twice";
        g = 1;
        ++ngiven;
        ASSERT_LE(level, (int)k.alevel) << "call " << i << ": a point above its region";
      }
    } else {
      ASSERT_TRUE(made.count(k.b)) << "call " << i;
      ASSERT_NE(k.b, bottom) << "call " << i;
      ASSERT_NE(k.a, k.b) << "call " << i;
      ASSERT_FALSE(gone.count(k.b)) << "call " << i;
      ASSERT_GT(k.alevel, k.blevel) << "call " << i << ": a merge must rise";
      gone.insert(k.b);
      ++merges;
    }
  }
  EXPECT_EQ(ngiven, pixels.count < 16 ? 0 : pixels.count)
      << "every flooded pixel reaches the builder once";
  EXPECT_EQ(merges, nodes == 0 ? 0 : nodes - 1);
}

// ---------------------------------------------------------------- a run

// A builder with the point book as its one feature and the logging chain.
struct PlainRun {
  SornSTB *b;
  PointBook book;
  SornWTSFeatureDs ds;
  SornWTSLSC lsc{};
  SornXE xe{};
  SornWTSState st{};
  CallLog log;

  PlainRun() : b(SornWTSTBopen(nullptr, nullptr, nullptr, nullptr)), ds(book_feature(&book)) {
    b->ops = logging_ops();
    logs()[b] = &log;
    SornWTSLSCinit2D(&lsc, &ds, 1, 0, 0, 0);
    SornXEinit(&xe, nullptr);
    st.builder = b;
    st.lsc = &lsc;
  }
  ~PlainRun() {
    logs().erase(b);
    SornSTBclose(b, 0);
    SornXEfini(&xe);
  }
  PlainRun(const PlainRun &) = delete;
  PlainRun &operator=(const PlainRun &) = delete;

  SornAGTnode *root() const { return b->tree ? b->tree->root : nullptr; }
  KuMark mark() {
    KuMark m;
    SornXEgetmmsp(&xe, &m);
    return m;
  }

  static SornWTSRegion *region(SornAGTnode *n) { return static_cast<SornWTSRegion *>(n->data); }
  const std::vector<std::pair<int32_t, int32_t>> &own(SornAGTnode *n) const {
    const PointValue *v =
        reinterpret_cast<const PointValue *>(reinterpret_cast<char *>(region(n)) + ds.offset);
    return book.regions[(size_t)v->id];
  }

  // The tree as sets of pixel ids, row times columns plus column.
  int collect(SornAGTnode *n, int parent, wts_ref::Got &got, int cols,
              std::vector<uint32_t> &pivots) const {
    int me = (int)got.nodes.size();
    got.nodes.push_back({});
    got.sizes.push_back(region(n)->size);
    pivots.push_back(region(n)->pivot);
    got.nodes[me].level = (int)region(n)->pivotval;
    got.nodes[me].parent = parent;
    std::vector<int64_t> px;
    for (auto &p : own(n)) px.push_back((int64_t)p.first * cols + p.second);
    for (SornAGTnode *c = n->child; c; c = c->next) {
      int k = collect(c, me, got, cols, pivots);
      px.insert(px.end(), got.nodes[k].pixels.begin(), got.nodes[k].pixels.end());
    }
    std::sort(px.begin(), px.end());
    got.nodes[me].pixels = px;
    return me;
  }
};

// ---------------------------------------------------------------- the reference

// A plain run over a (sub)image given as levels: where it starts and what
// it reaches.
struct PlainCase {
  int rows, cols;
  std::vector<uint8_t> img;   // the flooded pixels, dense
  std::vector<uint8_t> mask;  // empty: none
  uint8_t excl = 0;
  int seedrow = 0, seedcol = 0;
  bool eight = false;
  uint8_t pm = 0;

  // The seed search and top-row trimming as a user reads them.
  bool locate(int &trim, int &sr, int &sc) const {
    return wts_ref::locate_seed(mask, excl, rows, cols, seedrow, seedcol, trim, sr, sc);
  }

  // The pixels the flooding reaches, by id in the trimmed frame, and the
  // same as (row, column) with their levels.
  wts_ref::Graph graph(int trim, int sr, int sc) const {
    const int R = rows - trim, C = cols;
    auto allowed = [&](int64_t id) {
      return mask.empty() || mask[(size_t)(id + (int64_t)trim * C)] != excl;
    };
    auto next = [&](int64_t id, std::vector<int64_t> &out) {
      int r = (int)(id / C), c = (int)(id % C);
      for (int dr = -1; dr <= 1; ++dr)
        for (int dc = -1; dc <= 1; ++dc) {
          if ((dr == 0 && dc == 0) || (!eight && dr != 0 && dc != 0)) continue;
          int rr = r + dr, cc = c + dc;
          if (rr >= 0 && rr < R && cc >= 0 && cc < C) out.push_back((int64_t)rr * C + cc);
        }
    };
    auto level = [&](int64_t id) { return (int)(img[(size_t)(id + (int64_t)trim * C)] ^ pm); };
    return wts_ref::reach((int64_t)sr * C + sc, allowed, next, level);
  }
  Flooded flooded(const wts_ref::Graph &g, int trim) const {
    Flooded f;
    f.rows = rows - trim;
    f.cols = cols;
    f.level.assign((size_t)f.rows * cols, -1);
    for (size_t i = 0; i < g.ids.size(); ++i) f.level[(size_t)g.ids[i]] = g.level[i];
    f.count = g.ids.size();
    return f;
  }
};

}  // namespace plain_run

// Region trees and stable regions. The library's trees and results live in
// records the flooding fills; everything a caller reads is taken out into
// numpy arrays at once and the records are closed before the function
// returns, so that what Python holds is plain data (picklable, safe on any
// thread) and no library memory outlives the call.
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

Image grey_image(py::handle img, const char *name) {
  Image I = image_arg(img, name, "img");
  if (I.type != SORN_U8)
    throw py::type_error(std::string(name) + ": img must be uint8, not " + type_name(I.type));
  if (I.channels() != 1)
    throw py::value_error(std::string(name) + ": img must have one channel, not " +
                          std::to_string(I.channels()));
  return I;
}

std::optional<Image> optional_mask(py::handle mask, const char *name, const Image &img) {
  if (mask.is_none()) return std::nullopt;
  return mask_arg(mask, name, "mask", img);
}

template <class T> py::array_t<T> to_array(const std::vector<T> &v, py::ssize_t cols = 0) {
  std::vector<py::ssize_t> shape{(py::ssize_t)(cols ? v.size() / (size_t)cols : v.size())};
  if (cols) shape.push_back(cols);
  py::array_t<T> a(shape);
  if (!v.empty()) std::memcpy(a.mutable_data(), v.data(), v.size() * sizeof(T));
  return a;
}

py::object python_class(const char *name) {
  return py::module_::import("sorn._regions").attr(name);
}

/* ---------------- component trees ---------------- */

// The tree as arrays, nodes in pre-order: each node's own pixels, then its
// descendants', so that a node's pixels are one slice of `points`.
struct TreeArrays {
  std::vector<int32_t> parent, level, size, pivot, start, stop, own;
  std::vector<int32_t> points;  // (row, column) pairs
};

struct Walk {
  TreeArrays *t;
  int32_t pf_offset;
  int32_t columns;
  std::vector<int32_t> open;  // nodes whose subtree is not yet closed
  std::vector<const SornAGTnode *> nodes;
};

int32_t visit(SornAGTnode *node, void *arg, int32_t) {
  Walk &w = *static_cast<Walk *>(arg);
  TreeArrays &t = *w.t;
  const int32_t i = (int32_t)t.level.size();
  // Close the open nodes that are not ancestors of this one.
  while (!w.open.empty() && w.nodes[(size_t)w.open.back()] != node->parent) {
    t.stop[(size_t)w.open.back()] = (int32_t)(t.points.size() / 2);
    w.open.pop_back();
  }
  const SornWTSRegion *r = static_cast<const SornWTSRegion *>(node->data);
  const SornWTSPF *pf =
      reinterpret_cast<const SornWTSPF *>(reinterpret_cast<const char *>(r) + w.pf_offset);
  t.parent.push_back(w.open.empty() ? -1 : w.open.back());
  t.level.push_back((int32_t)r->pivotval);
  t.size.push_back((int32_t)r->size);
  t.pivot.push_back((int32_t)(r->pivot / (uint32_t)w.columns));
  t.pivot.push_back((int32_t)(r->pivot % (uint32_t)w.columns));
  t.start.push_back((int32_t)(t.points.size() / 2));
  t.stop.push_back(0);
  t.own.push_back((int32_t)pf->count);
  t.points.insert(t.points.end(), pf->points, pf->points + 2 * pf->count);
  w.nodes.push_back(node);
  w.open.push_back(i);
  return 1;
}

py::object component_tree(const ComponentTree &s, const char *name, py::handle img, bool bright,
                          int connectivity, py::handle mask, bool invert_mask, py::handle seed) {
  Image I = grey_image(img, name);
  std::optional<Image> M = optional_mask(mask, name, I);
  if (connectivity != 4 && connectivity != 8)
    throw py::value_error(std::string(name) + ": connectivity must be 4 or 8");
  std::pair<int64_t, int64_t> sd;
  try {
    py::sequence q = py::reinterpret_borrow<py::sequence>(seed);
    if (!py::isinstance<py::sequence>(seed) || py::len(q) != 2) throw py::cast_error();
    sd = {q[0].cast<int64_t>(), q[1].cast<int64_t>()};
  } catch (py::cast_error &) {
    throw py::type_error(std::string(name) + ": seed must be (row, column)");
  }
  if (sd.first < 0 || sd.first >= I.rows() || sd.second < 0 || sd.second >= I.cols())
    throw py::value_error(std::string(name) + ": seed (" + std::to_string(sd.first) + ", " +
                          std::to_string(sd.second) + ") lies outside the image");
  std::vector<Image *> inputs{&I};
  if (M) inputs.push_back(&*M);
  walk(inputs, nullptr, false);
  const SornArray r = record(I);
  std::optional<SornArray> rm;
  if (M) rm = record(*M);

  TreeArrays t;
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    // One pixel feature: each region keeps the points it took itself.
    SornWTSFeatureDs pf;
    SornWTSPFinitFeatureDs(&pf, nullptr);
    SornWTSLSC lsc;
    SornWTSLSCinit2D(&lsc, &pf, 1, 0, 0, 0);
    SornSTB *builder = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    SornWTSState state{};
    state.builder = builder;
    state.lsc = &lsc;
    state.polarity = bright ? 1 : 0;
    state.restore = 1;  // true grey levels in a bright tree
    state.connectivity = connectivity == 8 ? 1 : 0;
    state.seed[1] = (uint32_t)sd.first;
    state.seed[2] = (uint32_t)sd.second;
    const SornFlags flags = invert_mask ? s.invmask : 0;
    st = M ? s.masked.fn(thread_env(), flags, &r, &*rm, nullptr, nullptr, &state)
           : s.plain.fn(thread_env(), flags, &r, nullptr, &state);
    if (st >= 0 && builder->tree && builder->tree->root) {
      Walk w{&t, (int32_t)pf.offset, (int32_t)I.cols(), {}, {}};
      SornAGTwalk(builder->tree, SORN_WALK_PREORDER, &visit, &w);
      for (int32_t i : w.open) t.stop[(size_t)i] = (int32_t)(t.points.size() / 2);
    }
    SornSTBclose(builder, 0);
  }
  check(st, M ? s.masked.name : s.plain.name);
  return python_class("ComponentTree")(
      py::arg("parent") = to_array(t.parent), py::arg("level") = to_array(t.level),
      py::arg("size") = to_array(t.size), py::arg("pivot") = to_array(t.pivot, 2),
      py::arg("start") = to_array(t.start), py::arg("stop") = to_array(t.stop),
      py::arg("own") = to_array(t.own), py::arg("points") = to_array(t.points, 2),
      py::arg("shape") = py::make_tuple(I.rows(), I.cols()), py::arg("bright") = bright);
}

/* ---------------- stable regions ---------------- */

struct RegionArrays {
  std::vector<uint8_t> dark;
  std::vector<int32_t> level, size, offsets{0};
  std::vector<int32_t> points;
  // The plain flooding's moment feature, gathered over each picked region:
  // its five sums, when the measures were asked for.
  std::vector<double> feature_sums;
};

// The measures of every region, taken over its pixels as the library
// measures fetched regions, plus the convex hull and its area.
struct MeasureArrays {
  std::vector<double> sums, centroid, moments, quad, ellipse, hull_area, quad_area, ellipse_area;
  std::vector<int32_t> box, hull_offsets{0}, hull;
};

struct VecBlock {
  SornVec v{0, 0, nullptr};
  ~VecBlock() { _KuMfree(v.items); }
};

// Copies the records of one measure out; false when the vector could not
// grow to one record per region.
template <class Rec, class T>
bool take(std::vector<T> &out, SornVec *(*measure)(SornVec *, const SornVec *),
          const SornVec &regs) {
  static_assert(sizeof(Rec) % sizeof(T) == 0);
  VecBlock b;
  measure(&b.v, &regs);
  if (b.v.count != regs.count) return false;
  const T *first = static_cast<const T *>(b.v.items);
  out.assign(first, first + regs.count * (sizeof(Rec) / sizeof(T)));
  return true;
}

// Runs without the GIL; false when memory ran out.
bool measure(const RegionArrays &r, MeasureArrays &m) {
  const size_t n = r.level.size();
  std::vector<SornFwtsrPixReg> recs(n);
  const Sorn2dPt *pts = reinterpret_cast<const Sorn2dPt *>(r.points.data());
  for (size_t i = 0; i < n; ++i) {
    const uint32_t count = (uint32_t)(r.offsets[i + 1] - r.offsets[i]);
    recs[i] = SornFwtsrPixReg{const_cast<Sorn2dPt *>(pts + r.offsets[i]),
                              r.level[i],
                              count,
                              count,
                              0,
                              nullptr,
                              nullptr,
                              nullptr};
  }
  const SornVec regs{n, n, recs.data()};
  std::vector<double> mf;
  if (!take<SornWTSMF>(mf, sorn_fwtsr_mf_$2d, regs) ||
      !take<SornR2dPt>(m.centroid, sorn_fwtsr_m1_$2d, regs) ||
      !take<SornMoment2>(m.moments, sorn_fwtsr_m2c_$2d, regs) ||
      !take<Sorn2dRect>(m.box, sorn_fwtsr_brect_$2d, regs) ||
      !take<SornR2dQuad>(m.quad, sorn_fwtsr_minbquad_$r2d, regs) ||
      !take<SornR2dEll>(m.ellipse, sorn_fwtsr_ellipse_$r2d, regs))
    return false;
  // The integer calipers' 64-bit products hold while a region spans less
  // than 1024 pixels each way; a larger one is measured in doubles.
  std::vector<SornR2dPt> wide;
  for (size_t i = 0; i < n; ++i) {
    const int32_t *b = &m.box[4 * i];
    if (recs[i].size < 3 ||
        (b[2] < 1024 && b[3] < 1024 && b[0] + b[2] < (1 << 24) && b[1] + b[3] < (1 << 24)))
      continue;
    wide.resize(recs[i].size);
    for (size_t k = 0; k < wide.size(); ++k)
      wide[k] = SornR2dPt{(double)recs[i].pixels[k].x, (double)recs[i].pixels[k].y};
    if (!sorn_r2d_ptv_minbquad(reinterpret_cast<SornR2dQuad *>(&m.quad[8 * i]), wide.data(),
                               (int32_t)wide.size()))
      return false;
  }
  // The moment record is the count (with a word of padding) then five sums.
  // Regions of the plain flooding carry their sums in their moment feature
  // and give those instead.
  if (!r.feature_sums.empty())
    m.sums = r.feature_sums;
  else
    for (size_t i = 0; i < n; ++i)
      m.sums.insert(m.sums.end(), mf.data() + 6 * i + 1, mf.data() + 6 * i + 6);
  const auto *quads = reinterpret_cast<const SornR2dQuad *>(m.quad.data());
  const auto *ells = reinterpret_cast<const SornR2dEll *>(m.ellipse.data());
  std::vector<Sorn2dPt> hull;
  for (size_t i = 0; i < n; ++i) {
    hull.resize(recs[i].size);
    const int32_t h = sorn_2d_ptv_convexhull(hull.data(), recs[i].pixels, (int32_t)recs[i].size);
    for (int32_t k = 0; k < h; ++k) {
      m.hull.push_back(hull[(size_t)k].x);
      m.hull.push_back(hull[(size_t)k].y);
    }
    m.hull_offsets.push_back((int32_t)(m.hull.size() / 2));
    m.hull_area.push_back(sorn_2d_poly_area(hull.data(), h));
    m.quad_area.push_back(sorn_r2d_quad_area(&quads[i]));
    m.ellipse_area.push_back(sorn_r2d_ell_area(&ells[i]));
  }
  return true;
}

void add_points(RegionArrays &out, const int32_t *pairs, uint64_t n) {
  out.points.insert(out.points.end(), pairs, pairs + 2 * n);
  out.offsets.push_back((int32_t)(out.points.size() / 2));
}

struct FastFilter {
  SornFMSERFilter f{};
  ~FastFilter() { sorn_fmserf_destroy(&f); }
};
struct PlainFilter {
  SornMSERFilter f{};
  ~PlainFilter() { sorn_mserf_destroy(&f); }
};

py::object mser(const StableRegions &s, const char *name, py::handle img, int64_t delta,
                double min_area, double max_area, double max_variation, double min_diversity,
                const std::string &mode, py::handle mask, bool invert_mask, bool plain,
                int connectivity, int shift, bool measures) {
  Image I = grey_image(img, name);
  std::optional<Image> M = optional_mask(mask, name, I);
  const int32_t modeword = mode == "dark"     ? SORN_MSER_DARK
                           : mode == "bright" ? SORN_MSER_BRIGHT
                           : mode == "both"   ? SORN_MSER_BOTH
                                              : -1;
  if (modeword < 0)
    throw py::value_error(std::string(name) + ": mode must be 'dark', 'bright' or 'both'");
  if (delta < 0 || delta > 255)
    throw py::value_error(std::string(name) + ": delta must be 0 to 255");
  for (double v : {min_area, max_area, max_variation, min_diversity})
    if (!(v >= 0) || !std::isfinite(v))
      throw py::value_error(std::string(name) +
                            ": min_area, max_area, max_variation and min_diversity must be "
                            "finite and not negative");
  if (connectivity != 4 && connectivity != 8)
    throw py::value_error(std::string(name) + ": connectivity must be 4 or 8");
  if (!plain && connectivity != 4)
    throw py::value_error(std::string(name) +
                          ": the fast flooding has 4 neighbours; plain=True floods with 8");
  if (shift < 0 || shift > 7 || (plain && shift != 0))
    throw py::value_error(std::string(name) + ": shift is 0 to 7, and only for the fast flooding");
  std::vector<Image *> inputs{&I};
  if (M) inputs.push_back(&*M);
  walk(inputs, nullptr, false);
  const SornArray r = record(I);
  std::optional<SornArray> rm;
  if (M) rm = record(*M);
  const SornFlags flags = invert_mask ? s.invmask : 0;
  const int32_t rows = (int32_t)I.rows(), cols = (int32_t)I.cols();

  RegionArrays out;
  MeasureArrays ms;
  bool measured = true;
  SornStatus st;
  const char *fn;
  {
    py::gil_scoped_release nogil;
    if (!plain) {
      fn = M ? s.fast_masked.name : s.fast.name;
      FastFilter ff;
      __sorn_fmserfilt__$ex(&ff.f, nullptr, nullptr, (int32_t)delta, modeword, 0, 0, shift, nullptr,
                            min_area, max_area, max_variation, min_diversity);
      st = M ? s.fast_masked.fn(thread_env(), flags, &r, &*rm, nullptr, nullptr, &ff.f)
             : s.fast.fn(thread_env(), flags, &r, nullptr, &ff.f);
      if (st >= 0) {
        SornFWTSRegion **items = static_cast<SornFWTSRegion **>(ff.f.regions.items);
        SornVec points{0, 0, nullptr};
        for (uint32_t i = 0; i < ff.f.count1 + ff.f.count2; ++i) {
          const bool dark = i < ff.f.count1;
          const SornFWTSRES *res = dark ? ff.f.res1 : ff.f.res2;
          const SornFWTSRegion *reg = items[i];
          points.count = 0;
          if (res && res->links) sorn_fwtsr_fetchpix_$2d(&points, reg, res->links, 0, rows, cols);
          out.dark.push_back(dark);
          out.level.push_back(reg->level);
          out.size.push_back((int32_t)reg->size);
          add_points(out, static_cast<const int32_t *>(points.items), points.count);
        }
        _KuMfree(points.items);
      }
    } else {
      fn = M ? s.plain_masked.name : s.plain.name;
      PlainFilter pf;
      // The points of each region, and with measures its moment sums too.
      SornWTSFeatureDs features[2];
      const SornWTSFeatureDs &pixels = features[0], &moments = features[1];
      SornWTSPFinitFeatureDs(&features[0], nullptr);
      SornWTSMFinitFeatureDs(&features[1], nullptr);
      __sorn_mserfilt__$ex(&pf.f, features, measures ? 2 : 1, (int32_t)delta, modeword, 0,
                           connectivity == 8 ? 1 : 0, 0, nullptr, min_area, max_area, max_variation,
                           min_diversity);
      st = M ? s.plain_masked.fn(thread_env(), flags, &r, &*rm, nullptr, nullptr, &pf.f)
             : s.plain.fn(thread_env(), flags, &r, nullptr, &pf.f);
      // Each picked region gathers the points of the regions inside it.
      if (st >= 0) st = SornMSERgatherFeatures(&pf.f);
      if (st >= 0) {
        SornWTSRegion **items = static_cast<SornWTSRegion **>(pf.f.regions.items);
        for (uint32_t i = 0; i < pf.f.count1 + pf.f.count2; ++i) {
          const SornWTSRegion *reg = items[i];
          const SornWTSPF *v = reinterpret_cast<const SornWTSPF *>(
              reinterpret_cast<const char *>(reg) + pixels.offset);
          out.dark.push_back(i < pf.f.count1);
          out.level.push_back((int32_t)reg->pivotval);
          out.size.push_back((int32_t)reg->size);
          add_points(out, v->points, v->count);
          if (measures) {
            const SornWTSMF *mf = reinterpret_cast<const SornWTSMF *>(
                reinterpret_cast<const char *>(reg) + moments.offset);
            out.feature_sums.insert(out.feature_sums.end(),
                                    {mf->sr, mf->sc, mf->srr, mf->src, mf->scc});
          }
        }
      }
    }
    if (st >= 0 && measures) measured = measure(out, ms);
  }
  check(st, fn);
  if (!measured) raise_status(SORN_ENOMEM, "sorn_fwtsr_mf_$2d");
  py::array_t<bool> dark(std::vector<py::ssize_t>{(py::ssize_t)out.dark.size()});
  for (size_t i = 0; i < out.dark.size(); ++i) dark.mutable_data()[i] = out.dark[i] != 0;
  py::object m = py::none();
  if (measures) {
    const py::ssize_t n = (py::ssize_t)out.level.size();
    m = python_class("RegionMeasures")(
        py::arg("sums") = to_array(ms.sums, 5), py::arg("centroid") = to_array(ms.centroid, 2),
        py::arg("moments") = to_array(ms.moments, 3), py::arg("box") = to_array(ms.box, 4),
        py::arg("ellipse") = to_array(ms.ellipse, 5),
        py::arg("quad") = to_array(ms.quad, 8).attr("reshape")(n, 4, 2),
        py::arg("hull_offsets") = to_array(ms.hull_offsets),
        py::arg("hull_points") = to_array(ms.hull, 2),
        py::arg("hull_area") = to_array(ms.hull_area),
        py::arg("quad_area") = to_array(ms.quad_area),
        py::arg("ellipse_area") = to_array(ms.ellipse_area));
  }
  return python_class("Regions")(
      py::arg("dark") = dark, py::arg("level") = to_array(out.level),
      py::arg("size") = to_array(out.size), py::arg("offsets") = to_array(out.offsets),
      py::arg("points") = to_array(out.points, 2), py::arg("shape") = py::make_tuple(rows, cols),
      py::arg("measures") = m);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const ComponentTree &s) {
  m.def(
      name,
      [s, name](py::object img, bool bright, int connectivity, py::object mask, bool invert_mask,
                py::object seed) {
        return component_tree(s, name, img, bright, connectivity, mask, invert_mask, seed);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("bright") = false, py::arg("connectivity") = 4,
      py::arg("mask") = py::none(), py::arg("invert_mask") = false,
      py::arg("seed") = py::make_tuple(0, 0));
}

void bind(py::module_ &m, const char *name, const char *doc, const StableRegions &s) {
  m.def(
      name,
      [s, name](py::object img, int64_t delta, double min_area, double max_area,
                double max_variation, double min_diversity, const std::string &mode,
                py::object mask, bool invert_mask, bool plain, int connectivity, int shift,
                bool measures) {
        return mser(s, name, img, delta, min_area, max_area, max_variation, min_diversity, mode,
                    mask, invert_mask, plain, connectivity, shift, measures);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("delta") = 10, py::arg("min_area") = 0.0001,
      py::arg("max_area") = 0.75, py::arg("max_variation") = 0.33, py::arg("min_diversity") = 0.2,
      py::arg("mode") = "both", py::arg("mask") = py::none(), py::arg("invert_mask") = false,
      py::arg("plain") = false, py::arg("connectivity") = 4, py::arg("shift") = 0,
      py::arg("measures") = false);
}

}  // namespace sorn::python

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
};

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
                int connectivity, int shift) {
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
      SornWTSFeatureDs pixels;
      SornWTSPFinitFeatureDs(&pixels, nullptr);
      __sorn_mserfilt__$ex(&pf.f, &pixels, 1, (int32_t)delta, modeword, 0,
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
        }
      }
    }
  }
  check(st, fn);
  py::array_t<bool> dark(std::vector<py::ssize_t>{(py::ssize_t)out.dark.size()});
  for (size_t i = 0; i < out.dark.size(); ++i) dark.mutable_data()[i] = out.dark[i] != 0;
  return python_class("Regions")(
      py::arg("dark") = dark, py::arg("level") = to_array(out.level),
      py::arg("size") = to_array(out.size), py::arg("offsets") = to_array(out.offsets),
      py::arg("points") = to_array(out.points, 2), py::arg("shape") = py::make_tuple(rows, cols));
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
                py::object mask, bool invert_mask, bool plain, int connectivity, int shift) {
        return mser(s, name, img, delta, min_area, max_area, max_variation, min_diversity, mode,
                    mask, invert_mask, plain, connectivity, shift);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("delta") = 10, py::arg("min_area") = 0.0001,
      py::arg("max_area") = 0.75, py::arg("max_variation") = 0.33, py::arg("min_diversity") = 0.2,
      py::arg("mode") = "both", py::arg("mask") = py::none(), py::arg("invert_mask") = false,
      py::arg("plain") = false, py::arg("connectivity") = 4, py::arg("shift") = 0);
}

}  // namespace sorn::python

// Plane geometry over point lists: an (N, 2) numpy array whose dtype picks
// the library's coordinate family (int32 the integer one, float32, float64).
// The library's geometry checks nothing and has no statuses, so everything
// it would take badly is refused here: other dtypes and shapes, coordinates
// that are not finite, and integer coordinates so large that its exact
// 64-bit cross products could overflow.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include <pybind11/numpy.h>

#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

// Integer coordinates strictly within +-2**30 keep every difference below
// 2**31, so a cross product of two differences, and twice the area of a
// simple ring, stay below 2**63 in the library's 64-bit sums.
constexpr int64_t kIntLimit = (int64_t{1} << 30) - 1;

enum class Kind { Int, F32, F64 };

struct PointArg {
  Kind kind;
  py::array array;  // C-contiguous, of the kind's dtype, native byte order
  int32_t n;
};

PointArg point_arg(py::handle obj, const char *name) {
  py::array a = py::isinstance<py::array>(obj)
                    ? py::reinterpret_borrow<py::array>(obj)
                    : py::array(py::module_::import("numpy").attr("asarray")(obj));
  const py::dtype dt = a.dtype();
  Kind kind;
  if (dt.kind() == 'i' && dt.itemsize() == 4)
    kind = Kind::Int;
  else if (dt.kind() == 'f' && dt.itemsize() == 4)
    kind = Kind::F32;
  else if (dt.kind() == 'f' && dt.itemsize() == 8)
    kind = Kind::F64;
  else
    throw py::type_error(std::string(name) + ": points must be int32, float32 or float64, not " +
                         py::str(py::handle(dt)).cast<std::string>());
  if (a.ndim() != 2 || a.shape(1) != 2)
    throw py::value_error(std::string(name) + ": points must have the shape (N, 2), not " +
                          py::str(a.attr("shape")).cast<std::string>());
  if (a.shape(0) > std::numeric_limits<int32_t>::max())
    throw py::value_error(std::string(name) + ": more than 2**31 - 1 points");
  constexpr int flags = py::array::c_style | py::array::forcecast;
  switch (kind) {
    case Kind::Int: a = py::array_t<int32_t, flags>::ensure(a); break;
    case Kind::F32: a = py::array_t<float, flags>::ensure(a); break;
    case Kind::F64: a = py::array_t<double, flags>::ensure(a); break;
  }
  if (!a) throw py::error_already_set();
  return {kind, a, (int32_t)a.shape(0)};
}

// The points copied into the family's records, checked on the way; the copy
// is what the library reads once the GIL is gone.
template <class Pt> std::vector<Pt> copy_points(const PointArg &p, const char *name) {
  using T = decltype(Pt::x);
  std::vector<Pt> out((size_t)p.n);
  if (p.n) std::memcpy(out.data(), p.array.data(), (size_t)p.n * sizeof(Pt));
  for (const Pt &q : out) {
    if constexpr (std::is_integral_v<T>) {
      if (std::llabs(q.x) > kIntLimit || std::llabs(q.y) > kIntLimit)
        throw py::value_error(std::string(name) +
                              ": int32 coordinates must lie strictly between -2**30 and 2**30");
    } else {
      if (!std::isfinite(q.x) || !std::isfinite(q.y))
        throw py::value_error(std::string(name) + ": coordinates must be finite");
    }
  }
  return out;
}

// The integer calipers compare areas as products of 64-bit integers, which
// stay exact while the points' extents are below 1024 and the coordinates,
// which enter the corners' numerators, below 2**24.
constexpr int64_t kCaliperExtent = 1024;
constexpr int64_t kCaliperLimit = int64_t{1} << 24;

template <class Pt> void check_caliper_range(const std::vector<Pt> &p, const char *name) {
  if constexpr (std::is_integral_v<decltype(Pt::x)>) {
    int64_t x0 = INT64_MAX, x1 = INT64_MIN, y0 = INT64_MAX, y1 = INT64_MIN;
    for (const Pt &q : p) {
      x0 = std::min<int64_t>(x0, q.x), x1 = std::max<int64_t>(x1, q.x);
      y0 = std::min<int64_t>(y0, q.y), y1 = std::max<int64_t>(y1, q.y);
    }
    if (x1 - x0 >= kCaliperExtent || y1 - y0 >= kCaliperExtent || -x0 >= kCaliperLimit ||
        x1 >= kCaliperLimit || -y0 >= kCaliperLimit || y1 >= kCaliperLimit)
      throw py::value_error(std::string(name) +
                            ": int32 points must span less than 1024 in each coordinate and "
                            "lie strictly between -2**24 and 2**24; pass larger lists as float64");
  }
}

// The calipers walk a hull in the sense the hull comes out in (turning from
// the second coordinate toward the first), and a list of three points is its
// own hull as it stands: three points turning the other way are put in that
// sense first.
template <class Pt> void three_in_hull_sense(std::vector<Pt> &p) {
  if (p.size() != 3) return;
  using W = std::conditional_t<std::is_integral_v<decltype(Pt::x)>, int64_t, double>;
  const W k =
      ((W)p[1].x - p[0].x) * ((W)p[2].y - p[0].y) - ((W)p[1].y - p[0].y) * ((W)p[2].x - p[0].x);
  if (k > 0) std::swap(p[1], p[2]);
}

template <class T> py::array_t<T> pairs_array(const void *data, py::ssize_t rows) {
  py::array_t<T> a(std::vector<py::ssize_t>{rows, 2});
  if (rows) std::memcpy(a.mutable_data(), data, (size_t)rows * 2 * sizeof(T));
  return a;
}

// Calls f with the copied points of the family that the dtype names and the
// form of that family.
template <class I, class F, class R, class Fn>
py::object by_family(const PointForms<I, F, R> &forms, py::handle obj, const char *name, Fn &&f) {
  const PointArg p = point_arg(obj, name);
  switch (p.kind) {
    case Kind::Int: return f(copy_points<Sorn2dPt>(p, name), forms.i);
    case Kind::F32: return f(copy_points<SornF2dPt>(p, name), forms.f);
    default: return f(copy_points<SornR2dPt>(p, name), forms.r);
  }
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const ConvexHull &s) {
  m.def(
      name,
      [s, name](py::object points) {
        return by_family(s.forms, points, name, [](const auto &pts, const auto &entry) {
          using Pt = typename std::decay_t<decltype(pts)>::value_type;
          std::vector<Pt> hull(pts.size());
          int32_t h;
          {
            py::gil_scoped_release nogil;
            h = entry.fn(hull.data(), pts.data(), (int32_t)pts.size());
          }
          return py::object(pairs_array<decltype(Pt::x)>(hull.data(), h));
        });
      },
      doc, py::arg("points"));
}

void bind(py::module_ &m, const char *name, const char *doc, const PolygonArea &s) {
  m.def(
      name,
      [s, name](py::object points) {
        return by_family(s.forms, points, name, [](const auto &pts, const auto &entry) {
          double a;
          {
            py::gil_scoped_release nogil;
            a = entry.fn(pts.data(), (int32_t)pts.size());
          }
          return py::object(py::float_(a));
        });
      },
      doc, py::arg("points"));
}

void bind(py::module_ &m, const char *name, const char *doc, const MinAreaQuad &s) {
  m.def(
      name,
      [s, name](py::object points) {
        return by_family(s.forms, points, name, [name](auto pts, const auto &entry) {
          if (pts.empty()) throw py::value_error(std::string(name) + ": no points");
          check_caliper_range(pts, name);
          three_in_hull_sense(pts);
          using Quad = std::remove_pointer_t<decltype(entry.fn(nullptr, nullptr, 0))>;
          Quad q{};
          const Quad *r;
          {
            py::gil_scoped_release nogil;
            r = entry.fn(&q, pts.data(), (int32_t)pts.size());
          }
          // Null for a list that has points: the hull's block could not be had.
          if (!r) raise_status(SORN_ENOMEM, entry.name);
          return py::object(pairs_array<decltype(q.q[0].x)>(q.q, 4));
        });
      },
      doc, py::arg("points"));
}

}  // namespace sorn::python

// Operations that read around a pixel or move pixels: frames around an
// image (border kinds), the box, minimum and maximum filters, and resizing.
// Their results depend on where each pixel lies, so every operand is read in
// its own orientation (walk with order_free false).
#include <cstring>
#include <string>
#include <utility>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

struct BorderName {
  const char *name;
  int32_t kind;
};
constexpr BorderName kBorders[] = {{"reflect101", SORN_BORDER_REFLECT101},
                                   {"reflect", SORN_BORDER_REFLECT},
                                   {"replicate", SORN_BORDER_REPLICATE},
                                   {"wrap", SORN_BORDER_WRAP},
                                   {"const", SORN_BORDER_CONST}};

// The frame of a border call: `lo` cells before, `hi` after, the fill of
// const borders.
SornBrShape frame(int64_t top, int64_t left, int64_t bottom, int64_t right, const double *fill) {
  SornBrShape b;
  std::memset(&b, 0, sizeof b);
  b.lo[1] = -(int32_t)top;
  b.lo[2] = -(int32_t)left;
  b.hi[1] = (int32_t)bottom;
  b.hi[2] = (int32_t)right;
  for (int c = 0; c < 4; ++c) b.fill[c] = fill[c];
  return b;
}

// An image shaped like `img` with other rows and columns; ValueError where
// it would be larger than one record addresses.
Image reshaped(const Image &img, int64_t rows, int64_t cols, const char *name) {
  Image r = img;
  r.ext[1] = rows;
  r.ext[2] = cols;
  const double bytes = (double)r.ext[0] * (double)rows * (double)cols * (double)r.ext[3] *
                       (double)SORN_ELEMSIZE(img.type);
  if (bytes >= 2147483648.0)
    throw py::value_error(std::string(name) + ": the result would have " + std::to_string(rows) +
                          " rows and " + std::to_string(cols) +
                          " columns, beyond the 2 GiB one call addresses");
  return r;
}

// The output of `img`'s type and `shape`'s extents, and `img` walkable as it
// stands (copied where it is not).
Output placed_output(py::handle out, Image &img, const Image &shape, const char *name) {
  Output o = output_arg(out, img.type, shape, name);
  check_overlap(o, img, name, "img", false);
  Image *inputs[] = {&img};
  walk(inputs, &o, false);
  return o;
}

// The image framed by `b`, in a new array: the library's border copy.
Output framed(const Border &s, const char *name, Image &img, py::handle out, int32_t kind,
              const SornBrShape &b) {
  const Image shape =
      reshaped(img, img.rows() - b.lo[1] + b.hi[1], img.cols() - b.lo[2] + b.hi[2], name);
  Output o = placed_output(out, img, shape, name);
  SornStatus st = SORN_OK;
  {
    // A stack goes plane by plane: planes of different extents do not line
    // up row for row, and a four-dimensional call of such frames its first
    // plane only.
    py::gil_scoped_release nogil;
    for (int64_t p = 0; p < img.planes() && st >= 0; ++p) {
      const SornArray rd = record(plane(o.image, p)), rs = record(plane(img, p));
      st = s.copy.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, kind, &b);
    }
  }
  check(st, s.copy.name);
  return o;
}

/* ---------------- borders ---------------- */

py::object border(const Border &s, const char *name, py::handle img, py::handle widths,
                  py::handle kind, py::handle value, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  int64_t w[4];
  if (py::isinstance<py::sequence>(widths) && !py::isinstance<py::str>(widths)) {
    py::sequence seq = py::reinterpret_borrow<py::sequence>(widths);
    if (seq.size() != 4)
      throw py::value_error(std::string(name) +
                            ": widths is one number or (top, left, bottom, right)");
    for (int k = 0; k < 4; ++k) w[k] = extent_pair(seq[k], name, "each width", 0).first;
  } else {
    w[0] = w[1] = w[2] = w[3] = extent_pair(widths, name, "widths", 0).first;
  }
  const int32_t k = border_kind_of(kind, name);
  double fill[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), fill, name, "value");
  const SornBrShape b = frame(w[0], w[1], w[2], w[3], fill);
  Output o = framed(s, name, I, out, k, b);
  return finish(o);
}

/* ---------------- filters ---------------- */

std::string list_types(Keys keys) {
  std::string s;
  for (uint32_t t : keys) s += (s.empty() ? "" : ", ") + type_name(t);
  return s;
}

py::object filter(const Filter &s, const char *name, py::handle img, py::handle size,
                  py::handle anchor, py::handle kind, py::handle value, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  if (!holds(s.types, I.type))
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(I.type) +
                         "; it takes " + list_types(s.types));
  if (I.channels() == 2)
    throw py::value_error(std::string(name) +
                          ": takes images of 1 channel (3 and 4 are "
                          "not supported yet), not 2");
  const auto [h, w] = extent_pair(size, name, "size", 1);
  if (h > 4096 || w > 4096)
    throw py::value_error(std::string(name) + ": size must be at most 4096 rows and columns");
  int64_t ay = h / 2, ax = w / 2;
  if (!anchor.is_none()) std::tie(ay, ax) = extent_pair(anchor, name, "anchor", 0);
  if (ay >= h || ax >= w)
    throw py::value_error(std::string(name) + ": anchor must lie in the window (0 <= row < " +
                          std::to_string(h) + ", 0 <= column < " + std::to_string(w) + ")");
  const int32_t bk = border_kind_of(kind, name);
  double fill[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), fill, name, "value");

  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = (int32_t)h;
  se.size[2] = (int32_t)w;
  se.anchor[1] = (int32_t)ay;
  se.anchor[2] = (int32_t)ax;
  // The library reads a window of one pixel as its default 5 by 5; the
  // filter of one pixel is the pixel itself, a copy.
  const int32_t fkind = h == 1 && w == 1 ? SORN_FILTER_NONE : s.kind;

  // Beyond the edges the window reads the reflected image, which the filter
  // makes itself; another border is made first, as a frame around a copy
  // that the filter reads as real pixels.
  Output frame_copy;
  SornArray rs{};
  const bool frame_first = bk != SORN_BORDER_REFLECT101 && fkind != SORN_FILTER_NONE;
  if (frame_first) {
    const SornBrShape b = frame(ay, ax, h - 1 - ay, w - 1 - ax, fill);
    frame_copy = framed(Border{s.border}, name, I, py::none(), bk, b);
    rs = record(frame_copy.image);
    rs.dims[1] = (int32_t)I.rows();
    rs.dims[2] = (int32_t)I.cols();
    rs.offset = (int64_t)ay * rs.strides[1] + (int64_t)ax * rs.strides[2];
  }
  Output o = placed_output(out, I, I, name);
  if (!frame_first) rs = record(I);
  const SornArray rd = record(o.image);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.filter.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, fkind, &se);
  }
  check(st, s.filter.name);
  return finish(o);
}

/* ---------------- resizing ---------------- */

py::object resize(const Resize &s, const char *name, py::handle img, py::handle shape,
                  py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  int64_t rows = 0, cols = 0;
  if (!shape.is_none()) {
    std::tie(rows, cols) = extent_pair(shape, name, "shape", 1);
  } else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const Image O = image_arg(out, name, "out", Axes{2, 4});
    rows = O.rows();
    cols = O.cols();
  } else {
    throw py::type_error(std::string(name) + ": give the shape (rows, columns), or out");
  }
  auto moved = [](int64_t bytes) {
    return bytes == 1 || bytes == 4 || bytes == 8 || bytes == 12 || bytes == 16;
  };
  if (I.channels() > 1 && !moved(I.channels() * I.esize) && (I.esize == 1 || I.esize == 4)) {
    // The library moves pixels of 1, 4, 8, 12 or 16 bytes: uint8 pixels of
    // 2 or 3 channels go channel by channel, each channel a pixel of one
    // element, by the same rule.
    Output o = output_arg(out, I.type, reshaped(I, rows, cols, name), name);
    check_overlap(o, I, name, "img", false);
    py::object result = o.result;
    if (o.fresh) {
      py::tuple dims(I.ndim);
      for (int k = 0, first = 4 - I.ndim; k < I.ndim; ++k) dims[k] = o.image.ext[first + k];
      result = py::module_::import("numpy").attr("empty")(dims, dtype_of(I.type));
    }
    const py::object whole = py::reinterpret_borrow<py::object>(img);
    const py::object sizes = py::make_tuple(rows, cols);
    for (int64_t c = 0; c < I.channels(); ++c) {
      const py::tuple at = py::make_tuple(py::ellipsis(), py::slice(c, c + 1, 1));
      resize(s, name, whole[at], sizes, result[at]);
    }
    return result;
  }
  Output o = placed_output(out, I, reshaped(I, rows, cols, name), name);
  SornStatus st = SORN_OK;
  {
    // A stack goes plane by plane: a four-dimensional call whose planes
    // do not line up row for row in both operands resizes its first plane
    // only.
    py::gil_scoped_release nogil;
    for (int64_t p = 0; p < I.planes() && st >= 0; ++p) {
      const SornArray rd = record(plane(o.image, p)), rs = record(plane(I, p));
      st = s.resize.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, SORN_RESIZE_NN, nullptr);
    }
  }
  check(st, s.resize.name);
  return finish(o);
}

}  // namespace

// Two non-negative (or positive) extents from a number or a pair: sizes and
// anchors are (rows, columns).
std::pair<int64_t, int64_t> extent_pair(py::handle v, const char *name, const char *what,
                                        int64_t least) {
  int64_t r = 0, c = 0;
  try {
    if (py::isinstance<py::sequence>(v) && !py::isinstance<py::str>(v)) {
      py::sequence s = py::reinterpret_borrow<py::sequence>(v);
      if (s.size() != 2) throw py::value_error("");
      r = s[0].cast<int64_t>();
      c = s[1].cast<int64_t>();
    } else {
      r = c = v.cast<int64_t>();
    }
  } catch (py::error_already_set &) {
    throw py::type_error(std::string(name) + ": " + what +
                         " must be an integer or (rows, columns)");
  } catch (py::cast_error &) {
    throw py::type_error(std::string(name) + ": " + what +
                         " must be an integer or (rows, columns)");
  } catch (py::value_error &) {
    throw py::value_error(std::string(name) + ": " + what +
                          " must be an integer or (rows, columns)");
  }
  if (r < least || c < least || r > 1 << 20 || c > 1 << 20)
    throw py::value_error(std::string(name) + ": " + what + " must be " + std::to_string(least) +
                          " or more (rows and columns), not (" + std::to_string(r) + ", " +
                          std::to_string(c) + ")");
  return {r, c};
}

int32_t border_kind_of(py::handle kind, const char *name) {
  if (py::isinstance<py::str>(kind)) {
    const std::string k = kind.cast<std::string>();
    for (const BorderName &b : kBorders)
      if (k == b.name) return b.kind;
  }
  throw py::value_error(std::string(name) +
                        ": border must be 'reflect101', 'reflect', 'replicate', 'wrap' or "
                        "'const', not " +
                        py::str(py::repr(kind)).cast<std::string>());
}

void bind(py::module_ &m, const char *name, const char *doc, const Border &s) {
  m.def(
      name,
      [s, name](py::object img, py::object widths, py::object border, py::object value,
                py::object out) {
        return sorn::python::border(s, name, img, widths, border, value, out);
      },
      doc, py::arg("img"), py::arg("widths"), py::kw_only(), py::arg("border") = "reflect101",
      py::arg("value") = 0, py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Filter &s) {
  m.def(
      name,
      [s, name](py::object img, py::object size, py::object anchor, py::object border,
                py::object value,
                py::object out) { return filter(s, name, img, size, anchor, border, value, out); },
      doc, py::arg("img"), py::arg("size") = 3, py::kw_only(), py::arg("anchor") = py::none(),
      py::arg("border") = "reflect101", py::arg("value") = 0, py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Resize &s) {
  m.def(
      name,
      [s, name](py::object img, py::object shape, py::object out) {
        return resize(s, name, img, shape, out);
      },
      doc, py::arg("img"), py::arg("shape") = py::none(), py::kw_only(),
      py::arg("out") = py::none());
}

}  // namespace sorn::python

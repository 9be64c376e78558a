// Operations that read around a pixel or move pixels: frames around an
// image (border kinds), the box, minimum and maximum filters, separable and
// Gaussian filters, morphology, the firefly filter, and resizing.
// Their results depend on where each pixel lies, so every operand is read in
// its own orientation (walk with order_free false).
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

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

/* ---------------- separable filters and morphology ---------------- */

// A window of h rows and w columns whose cell (ay, ax) lies on the output
// pixel.
struct Window {
  int64_t h, w, ay, ax;
};

Window window_of(py::handle anchor, int64_t h, int64_t w, const char *name) {
  if (h > 4096 || w > 4096)
    throw py::value_error(std::string(name) + ": the window must be at most 4096 rows and columns");
  Window win{h, w, h / 2, w / 2};
  if (!anchor.is_none()) std::tie(win.ay, win.ax) = extent_pair(anchor, name, "anchor", 0);
  if (win.ay >= h || win.ax >= w)
    throw py::value_error(std::string(name) + ": anchor must lie in the window (0 <= row < " +
                          std::to_string(h) + ", 0 <= column < " + std::to_string(w) + ")");
  return win;
}

// The library's record of a window: rows and columns, no planes.
SornSeShape shape_of(const Window &win) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = (int32_t)win.h;
  se.size[2] = (int32_t)win.w;
  se.anchor[1] = (int32_t)win.ay;
  se.anchor[2] = (int32_t)win.ax;
  return se;
}

void check_filter_type(Keys types, const char *name, const Image &I) {
  if (!holds(types, I.type))
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(I.type) +
                         "; it takes " + list_types(types));
}

// An image of several channels, channel by channel: the library's kernels
// of three and four channels walk neighbouring elements of a row, not the
// same channel of neighbouring pixels, so each channel is filtered as an
// image of one. fn(channel, its output, its index) for each, into out or a
// fresh array.
// The fresh array is of the image's type, or of `code` when that is given.
template <class Fn>
py::object per_channel(py::handle img, const Image &I, py::handle out, const char *name, Fn &&fn,
                       uint32_t code = 0) {
  py::object result;
  if (out.is_none()) {
    result = py::module_::import("numpy").attr("empty")(I.array.attr("shape"),
                                                        dtype_of(code ? code : I.type));
  } else {
    if (!py::isinstance<py::array>(out))
      throw py::type_error(std::string(name) + ": out must be a numpy array");
    result = py::reinterpret_borrow<py::object>(out);
    if (!result.attr("shape").equal(I.array.attr("shape")))
      throw py::value_error(std::string(name) + ": out has the shape " +
                            py::str(result.attr("shape")).cast<std::string>() + ", the result " +
                            py::str(I.array.attr("shape")).cast<std::string>());
  }
  const py::object whole = py::reinterpret_borrow<py::object>(img);
  for (int64_t c = 0; c < I.channels(); ++c) {
    const py::tuple at = py::make_tuple(py::ellipsis(), py::slice(c, c + 1, 1));
    fn(whole[at], result[at], c);
  }
  return result;
}

// A copy of the image into out (or a fresh array): the filter of a window
// of one cell.
py::object copied(const Entry<CopyMkbFn> &border, const char *name, Image &I, py::handle out) {
  const double none[4] = {0, 0, 0, 0};
  Output o = framed(Border{border}, name, I, out, SORN_BORDER_REFLECT101, frame(0, 0, 0, 0, none));
  return finish(o);
}

py::object filter(const Filter &s, const char *name, py::handle img, py::handle size,
                  py::handle anchor, py::handle kind, py::handle value, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  if (!holds(s.types, I.type))
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(I.type) +
                         "; it takes " + list_types(s.types));
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
  if (I.channels() > 1)
    return per_channel(img, I, out, name, [&](py::handle ci, py::handle co, int64_t c) {
      filter(s, name, ci, size, anchor, kind, py::float_(fill[c]), co);
    });

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

// One call of a window filter per plane of a one-channel image:
// call(dst record, src record). Beyond the edges the window reads the
// reflected image, which the library makes itself; another border kind is
// made first, as a frame around a copy that the filter reads as real
// pixels.
template <class Call>
py::object windowed(const Entry<CopyMkbFn> &border, const char *name, Image &I, py::handle out,
                    const Window &win, int32_t bk, const double *fill, const char *fname,
                    Call &&call) {
  Output frame_copy;
  const bool frame_first = bk != SORN_BORDER_REFLECT101;
  if (frame_first) {
    const SornBrShape b = frame(win.ay, win.ax, win.h - 1 - win.ay, win.w - 1 - win.ax, fill);
    frame_copy = framed(Border{border}, name, I, py::none(), bk, b);
  }
  Output o = placed_output(out, I, I, name);
  SornStatus st = SORN_OK;
  {
    // Plane by plane: a four-dimensional call of the Gaussian takes the
    // stack's planes for a third axis of its window.
    py::gil_scoped_release nogil;
    for (int64_t p = 0; p < I.planes() && st >= 0; ++p) {
      const SornArray rd = record(plane(o.image, p));
      SornArray rs;
      if (frame_first) {
        rs = record(plane(frame_copy.image, p));
        rs.dims[1] = (int32_t)I.rows();
        rs.dims[2] = (int32_t)I.cols();
        rs.offset = (int64_t)win.ay * rs.strides[1] + (int64_t)win.ax * rs.strides[2];
      } else {
        rs = record(plane(I, p));
      }
      st = call(rd, rs);
    }
  }
  check(st, fname);
  return finish(o);
}

/* ---------------- relative box count ---------------- */

// A count scaled by 2**shift, rounded when shifted down, and saturated at
// `top`.
int64_t scaled_count(int64_t n, int64_t shift, int64_t top) {
  if (shift < 0)
    return -shift > 40 ? 0 : std::min((n + ((int64_t)1 << (-shift - 1))) >> -shift, top);
  return n == 0 ? 0 : shift > 40 ? top : std::min(n << shift, top);
}

py::object count_rel_box(const RelBox &s, const char *name, py::handle img, py::handle op,
                         py::handle box, py::handle anchor, py::handle shift, py::handle range,
                         py::handle speed, py::handle dtype, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  const SornCmpOp cmp = cmp_op_of(op, name);
  if (cmp < SORN_CMP_EQ || cmp > SORN_CMP_GE)
    throw py::value_error(std::string(name) +
                          ": op must be one of '==', '<', '<=', '>', '>=' (or 'eq', 'lt', 'le', "
                          "'gt', 'ge')");
  const uint32_t dst = dtype.is_none() ? SORN_U8 : code_of_dtype_arg(dtype, name);
  if (!holds(s.pairs, key3(dst, I.type, I.type))) {
    std::string pairs;
    for (uint32_t k : s.pairs)
      pairs += (pairs.empty() ? "" : ", ") + type_name(k >> 4 & 15) + " into " + type_name(k >> 8);
    throw py::type_error(std::string(name) + ": no count of " + type_name(I.type) + " into " +
                         type_name(dst) + "; it takes " + pairs);
  }
  const auto [h, w] = extent_pair(box, name, "box", 1);
  const Window win = window_of(anchor, h, w, name);
  int64_t sh;
  try {
    sh = shift.cast<int64_t>();
  } catch (const py::cast_error &) {
    throw py::type_error(std::string(name) + ": shift must be an integer");
  }
  if (sh < -64 || sh > 64) throw py::value_error(std::string(name) + ": shift must be -64 to 64");
  SornVrng vr{0, 0};
  if (!range.is_none()) {
    const std::string what = std::string(name) + ": range is (low, high), two numbers";
    if (!py::isinstance<py::sequence>(range) || py::isinstance<py::str>(range))
      throw py::type_error(what);
    const py::sequence seq = py::reinterpret_borrow<py::sequence>(range);
    if (seq.size() != 2) throw py::value_error(what);
    try {
      vr = {seq[0].cast<double>(), seq[1].cast<double>()};
    } catch (const py::cast_error &) {
      throw py::type_error(what);
    }
  }
  SornFlags flags = 0;
  if (!speed.is_none()) {
    const std::string v = py::isinstance<py::str>(speed) ? speed.cast<std::string>() : "";
    if (v == "fast")
      flags = SORN_F_RANK_FAST;
    else if (v == "fast2")
      flags = SORN_F_RANK_FAST2;
    else
      throw py::value_error(std::string(name) + ": speed must be None, 'fast' or 'fast2'");
  }
  if (I.channels() > 1)
    return per_channel(
        img, I, out, name,
        [&](py::handle ci, py::handle co, int64_t) {
          count_rel_box(s, name, ci, op, box, anchor, shift, range, speed, dtype_of(dst), co);
        },
        dst);

  Output o = output_arg(out, dst, I, name);
  check_overlap(o, I, name, "img", true);
  Image *inputs[] = {&I};
  walk(inputs, &o, false);
  // The library reads a box of one pixel as its default 5 by 5; the count
  // of one pixel is whether it stands in the relation to itself.
  if (h == 1 && w == 1) {
    py::array r = finish(o);
    const bool self = cmp == SORN_CMP_EQ || cmp == SORN_CMP_LE || cmp == SORN_CMP_GE;
    r.attr("fill")(scaled_count(self ? 1 : 0, sh, dst == SORN_U8 ? 255 : 32767));
    return r;
  }
  const SornSeShape se = shape_of(win);
  const SornArray rd = record(o.image), rs = record(I);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.count.fn(thread_env(), flags, &rd, &rs, nullptr, nullptr, cmp, &se,
                    range.is_none() ? nullptr : &vr, (int32_t)sh, 0);
  }
  check(st, s.count.name);
  return finish(o);
}

// A kernel argument: None, or a 1-D sequence of numbers, as doubles.
bool kernel_arg(py::handle k, const char *name, const char *what, std::vector<double> &taps) {
  if (k.is_none()) return false;
  const py::module_ np = py::module_::import("numpy");
  py::array a;
  try {
    a = np.attr("asarray")(k, np.attr("float64"));
  } catch (py::error_already_set &) {
    throw py::type_error(std::string(name) + ": " + what +
                         " must be None or a sequence of numbers");
  }
  if (a.ndim() != 1 || a.shape(0) < 1)
    throw py::value_error(std::string(name) + ": " + what +
                          " must be None or one row of one or more numbers");
  const py::array_t<double> d = np.attr("ascontiguousarray")(a);
  taps.assign(d.data(), d.data() + d.size());
  return true;
}

py::object sep_filter(const SepFilter &s, const char *name, py::handle img, py::handle ky,
                      py::handle kx, py::handle size, py::handle anchor, py::handle kind,
                      py::handle value, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_filter_type(s.types, name, I);
  std::vector<double> ys, xs;
  const bool yk = kernel_arg(ky, name, "kernel_y", ys), xk = kernel_arg(kx, name, "kernel_x", xs);
  int64_t sh = 3, sw = 3;
  if (!size.is_none()) std::tie(sh, sw) = extent_pair(size, name, "size", 1);
  if (!size.is_none() && ((yk && sh != (int64_t)ys.size()) || (xk && sw != (int64_t)xs.size())))
    throw py::value_error(std::string(name) +
                          ": size must agree with the kernels' lengths (it sizes the boxes)");
  const Window win =
      window_of(anchor, yk ? (int64_t)ys.size() : sh, xk ? (int64_t)xs.size() : sw, name);
  const int32_t bk = border_kind_of(kind, name);
  double fill[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), fill, name, "value");
  if (I.channels() > 1)
    return per_channel(img, I, out, name, [&](py::handle ci, py::handle co, int64_t c) {
      sep_filter(s, name, ci, ky, kx, size, anchor, kind, py::float_(fill[c]), co);
    });

  // A window of one row (or column) has one pass, along its columns (or
  // rows): the library passes over the kernel of the other axis, so its one
  // tap scales the kernel of the pass. Beside a box it can only be 1.
  auto fold = [&](bool one_k, std::vector<double> &one, bool other_k, std::vector<double> &other,
                  const char *what) {
    const double t = one_k ? one[0] : 1.0;
    if (t == 1.0) return;
    if (!other_k)
      throw py::value_error(std::string(name) + ": a " + what +
                            " of one tap beside a box must be [1.0]");
    for (double &v : other) v *= t;
    one[0] = 1.0;
  };
  if (win.h == 1 && win.w == 1) {
    if ((yk && ys[0] != 1.0) || (xk && xs[0] != 1.0))
      throw py::value_error(std::string(name) +
                            ": a window of one cell is a copy; its kernels must be [1.0] or None");
    return copied(s.border, name, I, out);
  }
  if (win.h == 1) fold(yk, ys, xk, xs, "kernel_y");
  if (win.w == 1) fold(xk, xs, yk, ys, "kernel_x");

  SornSepShape sep;
  std::memset(&sep, 0, sizeof sep);
  sep.size[0] = 1;
  sep.size[1] = (int32_t)win.h;
  sep.size[2] = (int32_t)win.w;
  sep.anchor[1] = (int32_t)win.ay;
  sep.anchor[2] = (int32_t)win.ax;
  sep.kernels[0] = yk ? ys.data() : nullptr;
  sep.kernels[1] = xk ? xs.data() : nullptr;
  return windowed(s.border, name, I, out, win, bk, fill, s.filter.name,
                  [&](const SornArray &rd, const SornArray &rs) {
                    return s.filter.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, &sep);
                  });
}

py::object gaussian_filter(const Gaussian &s, const char *name, py::handle img, py::handle size,
                           py::handle sigma, py::handle anchor, py::handle kind, py::handle value,
                           py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_filter_type(s.types, name, I);
  const auto [h, w] = extent_pair(size, name, "size", 1);
  const Window win = window_of(anchor, h, w, name);
  double sigmas[2] = {0, 0};
  if (!sigma.is_none()) {
    const std::string what = std::string(name) + ": sigma is a number or (rows, columns)";
    try {
      if (py::isinstance<py::sequence>(sigma) && !py::isinstance<py::str>(sigma)) {
        const py::sequence seq = py::reinterpret_borrow<py::sequence>(sigma);
        if (seq.size() != 2) throw py::value_error(what);
        sigmas[0] = seq[0].cast<double>();
        sigmas[1] = seq[1].cast<double>();
      } else {
        sigmas[0] = sigmas[1] = sigma.cast<double>();
      }
    } catch (const py::cast_error &) {
      throw py::type_error(what);
    }
  }
  const int32_t bk = border_kind_of(kind, name);
  double fill[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), fill, name, "value");
  if (I.channels() > 1)
    return per_channel(img, I, out, name, [&](py::handle ci, py::handle co, int64_t c) {
      gaussian_filter(s, name, ci, size, sigma, anchor, kind, py::float_(fill[c]), co);
    });
  // The library reads a window of one cell as its default 5 by 5; the
  // Gaussian of one cell is the pixel itself.
  if (h == 1 && w == 1) return copied(s.border, name, I, out);

  const SornSeShape se = shape_of(win);
  const double *given = sigma.is_none() ? nullptr : sigmas;
  return windowed(s.border, name, I, out, win, bk, fill, s.filter.name,
                  [&](const SornArray &rd, const SornArray &rs) {
                    return s.filter.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, &se, given);
                  });
}

/* ---------------- the firefly filter ---------------- */

struct FireflyKind {
  const char *name;
  int32_t kind;
};
constexpr FireflyKind kFireflyKinds[] = {{"gauss", SORN_FIREFLY_GAUSS},
                                         {"crb", SORN_FIREFLY_CRB},
                                         {"crbln", SORN_FIREFLY_CRBLN},
                                         {"copy", SORN_FIREFLY_COPY}};

int32_t firefly_kind_of(py::handle kind, const char *name) {
  if (py::isinstance<py::str>(kind)) {
    const std::string k = kind.cast<std::string>();
    for (const FireflyKind &f : kFireflyKinds)
      if (k == f.name) return f.kind;
  } else if (py::isinstance<py::int_>(kind)) {
    const int64_t k = kind.cast<int64_t>();
    for (const FireflyKind &f : kFireflyKinds)
      if (k == f.kind) return f.kind;
  }
  throw py::value_error(std::string(name) +
                        ": kind must be 'gauss', 'crb', 'crbln' or 'copy' (5, 3, 4, 0), not " +
                        py::str(py::repr(kind)).cast<std::string>());
}

SornSeShape centred(int64_t h, int64_t w) { return shape_of(Window{h, w, h / 2, w / 2}); }

// The quantile as the ratio the library reads from a window's depth cells.
std::pair<int32_t, int32_t> quantile_of(py::handle q, const char *name) {
  const std::string what = std::string(name) +
                           ": quantile is a fraction from 0 to below 1, or (numerator, "
                           "denominator) with 0 <= numerator < denominator";
  try {
    if (py::isinstance<py::sequence>(q) && !py::isinstance<py::str>(q)) {
      const py::sequence s = py::reinterpret_borrow<py::sequence>(q);
      if (s.size() != 2) throw py::value_error(what);
      const int64_t n = s[0].cast<int64_t>(), d = s[1].cast<int64_t>();
      if (n < 0 || d < 1 || n >= d || d > INT32_MAX) throw py::value_error(what);
      return {(int32_t)n, (int32_t)d};
    }
    const double v = q.cast<double>();
    if (!(v >= 0.0 && v < 1.0)) throw py::value_error(what);
    return {(int32_t)std::min(std::lround(v * 10000.0), 9999L), 10000};
  } catch (const py::cast_error &) {
    throw py::type_error(what);
  }
}

py::object firefly(const Firefly &s, const char *name, py::handle img, py::handle kind,
                   py::handle window, py::handle weights, py::handle rank_window,
                   py::handle quantile, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  const int32_t k = firefly_kind_of(kind, name);
  const bool rank = k == SORN_FIREFLY_CRB || k == SORN_FIREFLY_CRBLN;
  check_filter_type(s.types, name, I);
  if (rank && I.type != SORN_U8)
    throw py::type_error(std::string(name) + ": the rank kinds take uint8 alone, not " +
                         type_name(I.type));
  // The weights by default: 1, 6, 9, and for the linear rank mix, whose
  // division is by a whole number, 1, 1, -1.
  int32_t w[3] = {1, 6, 9};
  if (k == SORN_FIREFLY_CRB) {
    w[1] = 1;
    w[2] = -1;
  }
  if (!weights.is_none()) {
    const std::string what = std::string(name) + ": weights are three integers (w0, w1, w2)";
    if (!py::isinstance<py::sequence>(weights) || py::isinstance<py::str>(weights))
      throw py::type_error(what);
    try {
      const py::sequence seq = py::reinterpret_borrow<py::sequence>(weights);
      if (seq.size() != 3) throw py::value_error(what);
      for (int i = 0; i < 3; ++i) {
        const int64_t v = seq[i].cast<int64_t>();
        if (v < INT32_MIN || v > INT32_MAX) throw py::value_error(what);
        w[i] = (int32_t)v;
      }
    } catch (const py::cast_error &) {
      throw py::type_error(what);
    }
  }
  const auto [h, wd] = extent_pair(window, name, "window", 1);
  if (h > 255 || wd > 255)
    throw py::value_error(std::string(name) + ": window must be at most 255 rows and columns");
  if (k == SORN_FIREFLY_GAUSS && h != wd)
    throw py::value_error(std::string(name) + ": the first blur's window must be square");
  int64_t side = 0;
  try {
    side = rank_window.cast<int64_t>();
  } catch (const py::cast_error &) {
    throw py::type_error(std::string(name) + ": rank_window must be an integer");
  }
  if (side < 2 || side > 256 || (side & (side - 1)) != 0)
    throw py::value_error(std::string(name) + ": rank_window must be a power of two, 2 to 256");
  const auto [num, den] = quantile_of(quantile, name);
  if (I.channels() > 1)
    return per_channel(img, I, out, name, [&](py::handle ci, py::handle co, int64_t) {
      firefly(s, name, ci, kind, window, weights, rank_window, quantile, co);
    });

  SornSeShape shapes[3];
  if (rank) {
    shapes[0] = centred(3, 3);
    shapes[1] = centred(3, 3);
    shapes[1].anchor[0] = num;
    shapes[1].size[0] = den;
    shapes[2] = centred(side, side);
  } else {
    // A window of one cell is the library's 5 by 5 default.
    const int64_t fh = h == 1 && wd == 1 ? 5 : h, fw = h == 1 && wd == 1 ? 5 : wd;
    for (int i = 0; i < 3; ++i) {
      const int64_t t = i == 0 ? 1 : i == 1 ? 5 : 15;
      shapes[i] = centred(t * fh, t * fw);
    }
  }
  const double none[4] = {0, 0, 0, 0};
  return windowed(s.border, name, I, out, Window{1, 1, 0, 0}, SORN_BORDER_REFLECT101, none,
                  s.filter.name, [&](const SornArray &rd, const SornArray &rs) {
                    return s.filter.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, k, shapes, w,
                                       3);
                  });
}

struct MorphName {
  const char *name;
  int32_t kind;
};
constexpr MorphName kMorphs[] = {{"erode", SORN_MORPH_ERODE},   {"dilate", SORN_MORPH_DILATE},
                                 {"open", SORN_MORPH_OPEN},     {"close", SORN_MORPH_CLOSE},
                                 {"tophat", SORN_MORPH_TOPHAT}, {"blackhat", SORN_MORPH_BOTHAT}};

int32_t morph_kind_of(py::handle op, const char *name) {
  if (py::isinstance<py::str>(op)) {
    const std::string k = op.cast<std::string>();
    for (const MorphName &m : kMorphs)
      if (k == m.name) return m.kind;
  }
  throw py::value_error(std::string(name) +
                        ": op must be 'erode', 'dilate', 'open', 'close', 'tophat' or "
                        "'blackhat', not " +
                        py::str(py::repr(op)).cast<std::string>());
}

// The mask as the library reads it best: 255 where the given mask is not
// zero, 0 elsewhere (its kernels test some pairs of cells together, which
// only cells of 0 and 255 pass alike), rows of adjacent bytes.
py::array mask_cells(py::handle mask, py::handle size, const char *name) {
  const py::module_ np = py::module_::import("numpy");
  if (mask.is_none()) {
    int64_t h = 3, w = 3;
    if (!size.is_none()) std::tie(h, w) = extent_pair(size, name, "size", 1);
    if (h > 4096 || w > 4096)
      throw py::value_error(std::string(name) + ": size must be at most 4096 rows and columns");
    return np.attr("full")(py::make_tuple(h, w), 255, np.attr("uint8"));
  }
  if (!size.is_none()) throw py::type_error(std::string(name) + ": give mask or size, not both");
  if (!py::isinstance<py::array>(mask))
    throw py::type_error(std::string(name) + ": mask must be a numpy array of uint8 or bool");
  const py::array m = py::reinterpret_borrow<py::array>(mask);
  const std::string kind = py::str(m.dtype().attr("name")).cast<std::string>();
  if (kind != "uint8" && kind != "bool")
    throw py::type_error(std::string(name) + ": mask must be uint8 or bool, not " + kind);
  if (m.ndim() != 2 || m.shape(0) < 1 || m.shape(1) < 1)
    throw py::value_error(std::string(name) +
                          ": mask must have two axes (rows, columns), each of one or more");
  if (m.shape(0) > 4096 || m.shape(1) > 4096)
    throw py::value_error(std::string(name) + ": mask must be at most 4096 rows and columns");
  return np.attr("where")(np.attr("not_equal")(m, 0), np.attr("uint8")(255), np.attr("uint8")(0));
}

py::object morphology(const Morphology &s, const char *name, py::handle img, py::handle op,
                      py::handle mask, py::handle size, py::handle anchor, py::handle kind,
                      py::handle value, py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_filter_type(s.types, name, I);
  const int32_t mk = morph_kind_of(op, name);
  const py::array cells = mask_cells(mask, size, name);
  const Window win = window_of(anchor, cells.shape(0), cells.shape(1), name);
  const int32_t bk = border_kind_of(kind, name);
  double fill[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), fill, name, "value");
  if (I.channels() > 1)
    return per_channel(img, I, out, name, [&](py::handle ci, py::handle co, int64_t c) {
      morphology(s, name, ci, op, cells, py::none(), anchor, kind, py::float_(fill[c]), co);
    });
  // The library copies for a mask of one cell, whatever the operation.
  if (win.h == 1 && win.w == 1) return copied(s.border, name, I, out);

  Image M = image_arg(cells, name, "mask");
  Image *masks[] = {&M};
  walk(masks, nullptr, false);
  SornStrel strel;
  std::memset(&strel, 0, sizeof strel);
  strel.anchor[1] = (int32_t)win.ay;
  strel.anchor[2] = (int32_t)win.ax;
  strel.mask = record(M);
  return windowed(s.border, name, I, out, win, bk, fill, s.morph.name,
                  [&](const SornArray &rd, const SornArray &rs) {
                    return s.morph.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, mk, &strel);
                  });
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

void bind(py::module_ &m, const char *name, const char *doc, const SepFilter &s) {
  m.def(
      name,
      [s, name](py::object img, py::object ky, py::object kx, py::object size, py::object anchor,
                py::object border, py::object value, py::object out) {
        return sep_filter(s, name, img, ky, kx, size, anchor, border, value, out);
      },
      doc, py::arg("img"), py::arg("kernel_y") = py::none(), py::arg("kernel_x") = py::none(),
      py::kw_only(), py::arg("size") = py::none(), py::arg("anchor") = py::none(),
      py::arg("border") = "reflect101", py::arg("value") = 0, py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Gaussian &s) {
  m.def(
      name,
      [s, name](py::object img, py::object size, py::object sigma, py::object anchor,
                py::object border, py::object value, py::object out) {
        return gaussian_filter(s, name, img, size, sigma, anchor, border, value, out);
      },
      doc, py::arg("img"), py::arg("size") = 5, py::kw_only(), py::arg("sigma") = py::none(),
      py::arg("anchor") = py::none(), py::arg("border") = "reflect101", py::arg("value") = 0,
      py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Morphology &s) {
  m.def(
      name,
      [s, name](py::object img, py::object op, py::object mask, py::object size, py::object anchor,
                py::object border, py::object value, py::object out) {
        return morphology(s, name, img, op, mask, size, anchor, border, value, out);
      },
      doc, py::arg("img"), py::arg("op"), py::arg("mask") = py::none(), py::kw_only(),
      py::arg("size") = py::none(), py::arg("anchor") = py::none(),
      py::arg("border") = "reflect101", py::arg("value") = 0, py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Firefly &s) {
  m.def(
      name,
      [s, name](py::object img, py::object kind, py::object window, py::object weights,
                py::object rank_window, py::object quantile, py::object out) {
        return firefly(s, name, img, kind, window, weights, rank_window, quantile, out);
      },
      doc, py::arg("img"), py::arg("kind") = "gauss", py::kw_only(), py::arg("window") = 5,
      py::arg("weights") = py::none(), py::arg("rank_window") = 16, py::arg("quantile") = 0.99,
      py::arg("out") = py::none());
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

void bind(py::module_ &m, const char *name, const char *doc, const RelBox &s) {
  m.def(
      name,
      [s, name](py::object img, py::object op, py::object box, py::object anchor, py::object shift,
                py::object range, py::object speed, py::object dtype, py::object out) {
        return count_rel_box(s, name, img, op, box, anchor, shift, range, speed, dtype, out);
      },
      doc, py::arg("img"), py::arg("op") = "<=", py::arg("box") = 5, py::kw_only(),
      py::arg("anchor") = py::none(), py::arg("shift") = 0, py::arg("range") = py::none(),
      py::arg("speed") = py::none(), py::arg("dtype") = "uint8", py::arg("out") = py::none());
}

}  // namespace sorn::python

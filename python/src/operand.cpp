#include "operand.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

namespace sorn::python {

namespace {

std::atomic<uint64_t> g_copies{0};

/* ---------------- element types ---------------- */

// A numpy type by its kind and size: several numpy type numbers stand for one
// C type (long and long long are both 64 bits here), but kind and size name
// it once.
struct NumpyType {
  uint32_t code;
  char kind;
  int size;
  const char *name;
};

constexpr char kind_of(const char *token) {
  return token[0] == 'u' ? 'u' : token[0] == 's' ? 'i' : 'f';
}
constexpr int size_of(uint32_t code) { return SORN_ELEMSIZE(code); }

#define SORN_PY_NUMPY_TYPE(t) \
  NumpyType{SORN_TYPECODE(t), kind_of(#t), size_of(SORN_TYPECODE(t)), nullptr},
constexpr NumpyType kTypes[] = {SORN_ELEM_TYPES(SORN_PY_NUMPY_TYPE)};
#undef SORN_PY_NUMPY_TYPE

// The byte order of the machine, as numpy spells an explicit one.
constexpr char kNativeOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? '<' : '>';

uint32_t code_of(char kind, int size, char order) {
  if (order != '=' && order != '|' && order != kNativeOrder) return 0;
  for (const NumpyType &t : kTypes)
    if (t.kind == kind && t.size == size) return t.code;
  return 0;
}

std::string show(py::handle obj) { return py::str(py::repr(obj)).cast<std::string>(); }
std::string type_repr(py::handle obj) { return py::str(py::type::handle_of(obj).attr("__name__")); }

[[noreturn]] void type_error(const std::string &msg) { throw py::type_error(msg); }
[[noreturn]] void value_error(const std::string &msg) { throw py::value_error(msg); }

std::string where(const char *function, const char *name) {
  return std::string(function) + ": " + name;
}

const char *const kShapes =
    "(rows, columns) for one channel, (rows, columns, channels) with 1 to 4 channels";

// Strides along axes of one element carry no information: they get the value
// that a dense array would have, so that the walkability test and the
// library's merging of dense rows see through them.
void normalise(Image &img) {
  if (img.ext[3] == 1) img.str[3] = img.esize;
  if (img.ext[2] == 1) img.str[2] = img.ext[3] * img.str[3];
  if (img.ext[1] == 1) img.str[1] = img.ext[2] * img.str[2];
  if (img.ext[0] == 1) img.str[0] = img.ext[1] * img.str[1];
}

// Reads the extents and strides of img.array by its number of axes.
void describe(Image &img) {
  const py::array &a = img.array;
  img.ndim = (int)a.ndim();
  img.esize = (int64_t)a.itemsize();
  img.data = (char *)a.data();
  for (int k = 0; k < 4; ++k) {
    img.ext[k] = 1;
    img.str[k] = 0;
  }
  const int first = 4 - img.ndim - (img.ndim == 2 || img.ndim == 1 ? 1 : 0);
  // (K): one row; (H, W): no channel axis; (H, W, C); (P, H, W, C).
  for (int i = 0; i < img.ndim; ++i) {
    img.ext[first + i] = (int64_t)a.shape(i);
    img.str[first + i] = (int64_t)a.strides(i);
  }
  if (img.ndim <= 2) img.str[3] = img.esize;
  img.writable = a.writeable();
  img.aligned = (a.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_) != 0;
  normalise(img);
}

void check_reach(const Image &img, const char *function, const char *name) {
  int64_t lo = 0, hi = 0;
  bool empty = false;
  for (int k = 0; k < 4; ++k) {
    if (img.ext[k] > INT32_MAX)
      value_error(where(function, name) + " has an axis of " + std::to_string(img.ext[k]) +
                  " elements; the library counts extents in 32 bits");
    if (img.ext[k] == 0) empty = true;
    if (img.str[k] > INT32_MAX || img.str[k] < -(int64_t)INT32_MAX)
      value_error(where(function, name) + " has a stride beyond 2 GiB");
    const int64_t reach = img.str[k] * (img.ext[k] > 0 ? img.ext[k] - 1 : 0);
    (reach < 0 ? lo : hi) += reach;
  }
  if (!empty && hi - lo + img.esize * img.ext[3] > INT32_MAX)
    value_error(where(function, name) +
                " spans more than the 2 GiB one call can address; split it into tiles (sorn.dask "
                "does that for dask arrays)");
}

// The code of an array's element type, read from its descriptor in place:
// the call costs no dtype object.
uint32_t code_in_place(const py::array &a) {
  const auto *d = py::detail::array_descriptor_proxy(py::detail::array_proxy(a.ptr())->descr);
  return code_of(d->kind, (int)d->elsize, d->byteorder);
}

Image from_array(py::handle obj, const char *function, const char *name) {
  if (!py::isinstance<py::array>(obj))
    type_error(where(function, name) + " must be a numpy array, not " + type_repr(obj));
  Image img;
  img.array = py::reinterpret_borrow<py::array>(obj);
  img.type = code_in_place(img.array);
  return img;
}

// The copy that a layout the library cannot walk gets: dense, aligned, in
// numpy's own row order.
void replace_by_copy(Image &img) {
  const uint32_t type = img.type;
  img.array = py::array::ensure(
      img.array, (int)py::array::c_style | (int)py::detail::npy_api::NPY_ARRAY_ALIGNED_);
  if (!img.array) throw py::error_already_set();
  describe(img);
  img.type = type;
  g_copies.fetch_add(1, std::memory_order_relaxed);
}

/* ---------------- orientations ---------------- */

// A way to read an image: rows and columns exchanged, and the columns read
// from the last one backwards. Order-free operations may read all their
// operands in any one of them.
struct Orientation {
  bool swap;
  bool flip;
};
constexpr Orientation kOrientations[] = {
    {false, false}, {true, false}, {false, true}, {true, true}};

Image oriented(const Image &img, Orientation o) {
  Image r = img;
  if (o.swap) {
    std::swap(r.ext[1], r.ext[2]);
    std::swap(r.str[1], r.str[2]);
  }
  if (o.flip && r.ext[2] > 0) {
    r.data += r.str[2] * (r.ext[2] - 1);
    r.str[2] = -r.str[2];
  }
  normalise(r);
  return r;
}

// A fresh C-ordered array of the oriented extents, and the view of it that the
// caller sees in the caller's orientation.
void create_fresh(Output &out, Orientation o) {
  const Image &like = out.image;  // extents, type and ndim set by output_arg
  int64_t ext[4] = {like.ext[0], like.ext[1], like.ext[2], like.ext[3]};
  if (o.swap) std::swap(ext[1], ext[2]);
  const int64_t es = like.esize;
  // Dense strides of the stored (oriented) array.
  int64_t st[4];
  st[3] = es;
  st[2] = ext[3] * st[3];
  st[1] = ext[2] * st[2];
  st[0] = ext[1] * st[1];
  const int first = 4 - like.ndim - (like.ndim <= 2 ? 1 : 0);
  if (!o.swap && !o.flip) {
    // Read as it lies: one C-ordered array of the caller's shape.
    py::ssize_t shape[4];
    for (int i = 0; i < like.ndim; ++i) shape[i] = (py::ssize_t)like.ext[first + i];
    out.result = py::array(dtype_of(like.type), std::vector<py::ssize_t>(shape, shape + like.ndim));
    out.image.array = out.result;
    const uint32_t type = like.type;
    describe(out.image);
    out.image.type = type;
    return;
  }
  py::array store(dtype_of(like.type), std::vector<py::ssize_t>{(py::ssize_t)(ext[0] * st[0])});
  // The caller's view: undo the flip, then the exchange.
  char *base = (char *)store.mutable_data();
  int64_t vst[4] = {st[0], st[1], st[2], st[3]};
  if (o.flip && ext[2] > 0) {
    base += vst[2] * (ext[2] - 1);
    vst[2] = -vst[2];
  }
  if (o.swap) std::swap(vst[1], vst[2]);
  std::vector<py::ssize_t> shape, strides;
  for (int i = 0; i < like.ndim; ++i) {
    shape.push_back((py::ssize_t)like.ext[first + i]);
    strides.push_back((py::ssize_t)vst[first + i]);
  }
  out.result = py::array(dtype_of(like.type), shape, strides, base, store);
  out.image.array = out.result;
  const uint32_t type = like.type;
  describe(out.image);
  out.image.type = type;
}

}  // namespace

/* ---------------- element types ---------------- */

uint32_t type_code(const py::array &a) { return code_in_place(a); }

py::dtype dtype_of(uint32_t code) {
  // Made once per code: a dtype from its name is a parse each time.
  static py::handle made[16] = {};
  if (code < 16 && made[code]) return py::reinterpret_borrow<py::dtype>(made[code]);
  for (const NumpyType &t : kTypes) {
    if (t.code != code) continue;
    const std::string name = std::string(t.kind == 'u'   ? "uint"
                                         : t.kind == 'i' ? "int"
                                                         : "float") +
                             std::to_string(8 * t.size);
    py::dtype dt(name);
    made[code] = dt.inc_ref();
    return dt;
  }
  throw py::type_error("no numpy type for element type code " + std::to_string(code));
}

std::string type_name(uint32_t code) {
  for (const NumpyType &t : kTypes)
    if (t.code == code)
      return std::string(t.kind == 'u'   ? "uint"
                         : t.kind == 'i' ? "int"
                                         : "float") +
             std::to_string(8 * t.size);
  return "code " + std::to_string(code);
}

uint32_t code_of_dtype_arg(py::handle dtype, const char *function) {
  py::dtype dt;
  try {
    dt = py::dtype::from_args(py::reinterpret_borrow<py::object>(dtype));
  } catch (py::error_already_set &) {
    type_error(std::string(function) + ": dtype " + show(dtype) + " is not a numpy type");
  }
  const uint32_t code = code_of(dt.kind(), (int)dt.itemsize(), dt.byteorder());
  if (!code)
    type_error(std::string(function) + ": dtype " + show(dt) +
               " has no element type in the library");
  return code;
}

/* ---------------- operands ---------------- */

bool Image::walkable() const { return aligned && str[3] == esize && str[2] == ext[3] * esize; }

Image image_arg(py::handle obj, const char *function, const char *name, Axes axes) {
  Image img = from_array(obj, function, name);
  if (!img.type)
    type_error(where(function, name) + " has element type " + show(img.array.dtype()) +
               ", for which the library has no code (uint8, int8, uint16, int16, uint32, int32, "
               "float32, ... in the machine's byte order)");
  const int nd = (int)img.array.ndim();
  if (nd < axes.min_ndim || nd > axes.max_ndim) {
    std::string takes = axes.min_ndim == 1 ? "a vector (K,), " : "";
    takes += kShapes;
    if (axes.max_ndim == 4) takes += ", or (planes, rows, columns, channels)";
    value_error(where(function, name) + " has " + std::to_string(nd) + " axes; this takes " +
                takes);
  }
  describe(img);
  if (img.ext[3] < 1 || img.ext[3] > 4)
    value_error(where(function, name) + " has " + std::to_string(img.ext[3]) +
                " on its channel axis (the last of a 3-D or 4-D array); the library takes 1 to 4 "
                "channels");
  check_reach(img, function, name);
  return img;
}

Image mask_arg(py::handle obj, const char *function, const char *name, const Image &image,
               bool element) {
  Image m = from_array(obj, function, name);
  py::dtype dt = m.array.dtype();
  if (dt.kind() == 'b' && dt.itemsize() == 1) m.type = SORN_U8;  // its bytes are 0 and 1
  if (m.type != SORN_U8)
    type_error(where(function, name) + " must be of uint8 or bool, not " + show(dt));
  const int nd = (int)m.array.ndim();
  if (nd < 2 || nd > 4 || (nd == 4 && image.ndim != 4))
    value_error(where(function, name) + " must have the image's rows and columns" +
                (image.ndim == 4 ? ", with or without its planes" : ""));
  describe(m);
  if (nd == 3 && image.ndim == 4 && m.ext[3] > 4) {
    // (planes, rows, columns) was meant: no channel axis.
    value_error(where(function, name) +
                ": a mask of a stack of planes has the shape (rows, "
                "columns), (rows, columns, 1) or (planes, rows, columns, 1)");
  }
  const bool rows_cols = m.ext[1] == image.ext[1] && m.ext[2] == image.ext[2];
  const bool planes = m.ext[0] == image.ext[0] || m.ext[0] == 1;
  const bool channels = m.ext[3] == 1 || (element && m.ext[3] == image.ext[3]);
  if (!rows_cols || !planes || !channels) {
    std::string want = "one byte per pixel of the image";
    if (element) want += ", or one per element";
    value_error(where(function, name) + " does not fit the image: " + want);
  }
  check_reach(m, function, name);
  return m;
}

Output output_arg(py::handle out, uint32_t code, const Image &like, const char *function) {
  Output o;
  if (out.is_none()) {
    o.fresh = true;
    o.image.type = code;
    o.image.ndim = like.ndim;
    o.image.esize = SORN_ELEMSIZE(code);
    for (int k = 0; k < 4; ++k) o.image.ext[k] = like.ext[k];
    return o;
  }
  o.image = image_arg(out, function, "out", Axes{like.ndim == 1 ? 1 : 2, 4});
  if (code && o.image.type != code)
    type_error(std::string(function) + ": out has element type " + type_name(o.image.type) +
               ", the result is " + type_name(code));
  for (int k = 0; k < 4; ++k)
    if (o.image.ext[k] != like.ext[k]) {
      std::string shape;
      const int first = 4 - like.ndim - (like.ndim <= 2 ? 1 : 0);
      for (int i = first; i < first + like.ndim; ++i)
        shape += (shape.empty() ? "" : ", ") + std::to_string(like.ext[i]);
      if (like.ndim == 1) shape += ",";
      value_error(std::string(function) + ": out has the shape " +
                  py::str(o.image.array.attr("shape")).cast<std::string>() + ", the result (" +
                  shape + ")");
    }
  if (!o.image.writable) value_error(std::string(function) + ": out is read-only");
  o.result = o.image.array;
  return o;
}

void check_overlap(const Output &out, const Image &in, const char *function, const char *name,
                   bool alias_ok) {
  if (out.fresh) return;
  const Image &o = out.image;
  auto span = [](const Image &img, int64_t &lo, int64_t &hi) {
    lo = hi = 0;
    for (int k = 0; k < 4; ++k) {
      if (img.ext[k] == 0) {
        lo = hi = 0;
        return false;
      }
      const int64_t r = img.str[k] * (img.ext[k] - 1);
      (r < 0 ? lo : hi) += r;
    }
    hi += img.esize;
    return true;
  };
  int64_t olo, ohi, ilo, ihi;
  if (!span(o, olo, ohi) || !span(in, ilo, ihi)) return;
  const intptr_t a0 = (intptr_t)o.data + olo, a1 = (intptr_t)o.data + ohi;
  const intptr_t b0 = (intptr_t)in.data + ilo, b1 = (intptr_t)in.data + ihi;
  if (a1 <= b0 || b1 <= a0) return;
  bool same = o.data == in.data && o.esize == in.esize;
  for (int k = 0; k < 4 && same; ++k) same = o.ext[k] == in.ext[k] && o.str[k] == in.str[k];
  if (same && alias_ok) return;
  // The spans meet: only numpy's exact test tells interleaved views apart.
  static py::handle shares =
      py::object(py::module_::import("numpy").attr("shares_memory")).release();
  if (!shares(o.array, in.array).cast<bool>()) return;
  value_error(std::string(function) + ": out shares memory with " + name +
              (alias_ok ? " without being the same array" : "") +
              "; give a separate array, or no out");
}

void walk(std::span<Image *const> inputs, Output *out, bool order_free) {
  // The operands whose layout is given: the inputs, and an output the caller
  // gave. A fresh output follows whatever orientation is chosen.
  std::vector<Image *> given(inputs.begin(), inputs.end());
  if (out && !out->fresh) given.push_back(&out->image);
  const int tries = order_free ? 4 : 1;
  for (int t = 0; t < tries; ++t) {
    const Orientation o = kOrientations[t];
    bool all = true;
    for (Image *img : given) all = all && oriented(*img, o).walkable();
    if (!all) continue;
    for (Image *img : given) *img = oriented(*img, o);
    if (out && out->fresh) {
      create_fresh(*out, o);
      out->image = oriented(out->image, o);
    }
    return;
  }
  // No orientation serves all: each operand that can't be walked as it
  // stands is copied, and an output is computed in a fresh array.
  for (Image *img : inputs)
    if (!img->walkable()) replace_by_copy(*img);
  if (!out) return;
  if (out->fresh) {
    create_fresh(*out, kOrientations[0]);
  } else if (!out->image.walkable()) {
    // The library writes a fresh array of the same extents; finish() copies
    // it into the caller's.
    Output tmp;
    tmp.image.type = out->image.type;
    tmp.image.ndim = out->image.ndim;
    tmp.image.esize = out->image.esize;
    for (int k = 0; k < 4; ++k) tmp.image.ext[k] = out->image.ext[k];
    create_fresh(tmp, kOrientations[0]);
    // The library may keep elements of its destination (masked fills,
    // comparisons that keep): the temporary starts as the caller's array.
    static py::handle copyto = py::object(py::module_::import("numpy").attr("copyto")).release();
    copyto(tmp.image.array, out->image.array);
    out->back = out->image.array;
    out->image = tmp.image;
    g_copies.fetch_add(1, std::memory_order_relaxed);
  }
}

Image plane(const Image &img, int64_t p) {
  Image r = img;
  if (img.ndim == 4) {
    r.data += p * img.str[0];
    r.ext[0] = 1;
    r.str[0] = r.ext[1] * r.str[1];
    r.ndim = 3;
  }
  return r;
}

bool frame_walkable(const Image &img) {
  if (img.ndim != 4) return true;
  return img.str[0] >= img.ext[1] * img.str[1] && img.str[1] >= img.ext[2] * img.str[2];
}

Image transposed(const Image &img) { return oriented(img, Orientation{true, false}); }

py::array finish(Output &out) {
  if (out.back) {
    static py::handle copyto = py::object(py::module_::import("numpy").attr("copyto")).release();
    copyto(out.back, out.image.array);
  }
  return out.result;
}

SornArray record(const Image &img) {
  SornArray r{};
  const bool rank4 = img.ndim == 4;
  r.ndims = r.ndimsall = rank4 ? 4 : 3;
  for (int k = 0; k < 4; ++k) {
    r.dims[k] = (int32_t)img.ext[k];
    r.bounds[k] = (int32_t)img.ext[k];
    r.strides[k] = (int32_t)img.str[k];
  }
  if (!rank4) {
    r.dims[0] = r.bounds[0] = 1;
    r.strides[0] = 0;
  }
  r.elemtype = img.type;
  r.marker = 0x22;
  r.offset = 0;
  r.data = img.data;
  r.link = 0;
  return r;
}

uint64_t copies_made() { return g_copies.load(std::memory_order_relaxed); }

void channel_constants(py::handle value, int64_t channels, double *out, const char *function,
                       const char *name) {
  auto number = [&](py::handle v) -> double {
    if (py::isinstance<py::str>(v) || py::isinstance<py::bytes>(v))
      type_error(where(function, name) + " must be a number or one number per channel, not " +
                 type_repr(v));
    try {
      return py::float_(py::reinterpret_borrow<py::object>(v)).cast<double>();
    } catch (py::error_already_set &) {
      type_error(where(function, name) + " must be a number or one number per channel, not " +
                 type_repr(v));
    }
  };
  const bool sequence = py::isinstance<py::sequence>(value) && !py::isinstance<py::str>(value);
  const bool vector =
      py::isinstance<py::array>(value) && py::reinterpret_borrow<py::array>(value).ndim() > 0;
  if (!sequence && !vector) {
    const double v = number(value);
    for (int64_t c = 0; c < channels; ++c) out[c] = v;
    return;
  }
  py::sequence seq = py::reinterpret_borrow<py::sequence>(
      vector ? py::reinterpret_borrow<py::object>(value).attr("tolist")() : value);
  if ((int64_t)py::len(seq) != channels)
    value_error(where(function, name) + " has " + std::to_string(py::len(seq)) + " values for " +
                std::to_string(channels) + " channels");
  for (int64_t c = 0; c < channels; ++c) out[c] = number(seq[(size_t)c]);
}

}  // namespace sorn::python

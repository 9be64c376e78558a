// Multiply-accumulate: a joined to the product b * c, in one call of the
// library. Every element is computed alone, so operands are read in any
// orientation (walk with order_free true).
#include <string>
#include <utility>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

// An operand is an image when it is a numpy array of two or more axes;
// numbers, sequences of numbers and 0-D and 1-D arrays are constants.
bool is_image(py::handle x) {
  return py::isinstance<py::array>(x) && py::reinterpret_borrow<py::array>(x).ndim() >= 2;
}

std::string list_types(Keys keys) {
  std::string s;
  for (uint32_t t : keys) s += (s.empty() ? "" : ", ") + type_name(t);
  return s;
}

void check_type(const MulAcc &s, const char *name, const char *what, uint32_t t) {
  if (!holds(s.types, t))
    throw py::type_error(std::string(name) + ": no kernel for " + what + " of " + type_name(t) +
                         "; it takes " + list_types(s.types));
}

// The wider of two types, a float before an integer of its size: the
// default destination, as the element-wise sums choose theirs.
uint32_t wider(uint32_t x, uint32_t y) {
  if (SORN_ELEMSIZE(y) > SORN_ELEMSIZE(x)) return y;
  if (SORN_ELEMSIZE(y) == SORN_ELEMSIZE(x) && y == SORN_F32) return y;
  return x;
}

uint32_t destination(py::handle dtype, py::handle out, uint32_t fallback, const char *name) {
  if (!dtype.is_none()) return code_of_dtype_arg(dtype, name);
  if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) return t;
  }
  return fallback;
}

void same_shape(const char *name, const Image &x, const char *xn, const Image &y, const char *yn) {
  if (x.rows() != y.rows() || x.cols() != y.cols() || x.channels() != y.channels())
    throw py::value_error(std::string(name) + ": " + xn + " and " + yn + " differ in shape: " +
                          py::str(x.array.attr("shape")).cast<std::string>() + " and " +
                          py::str(y.array.attr("shape")).cast<std::string>());
}

// Three images.
py::object images(const MulAcc &s, const char *name, py::handle a, py::handle b, py::handle c,
                  int32_t scale, py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a"), B = image_arg(b, name, "b"), C = image_arg(c, name, "c");
  same_shape(name, A, "a", B, "b");
  same_shape(name, A, "a", C, "c");
  check_type(s, name, "a", A.type);
  check_type(s, name, "b", B.type);
  check_type(s, name, "c", C.type);
  const uint32_t dst = destination(dtype, out, wider(A.type, wider(B.type, C.type)), name);
  check_type(s, name, "the destination", dst);
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, "a", true);
  check_overlap(o, B, name, "b", true);
  check_overlap(o, C, name, "c", true);
  Image *inputs[] = {&A, &B, &C};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A), rb = record(B), rc = record(C);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.images.fn(thread_env(), 0, &rd, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, scale,
                     0);
  }
  check(st, s.images.name);
  return finish(o);
}

// Two images, and c one constant per channel.
py::object with_constant(const MulAcc &s, const char *name, py::handle a, py::handle b,
                         py::handle c, int32_t scale, py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a"), B = image_arg(b, name, "b");
  same_shape(name, A, "a", B, "b");
  check_type(s, name, "a", A.type);
  check_type(s, name, "b", B.type);
  double cvec[4] = {0, 0, 0, 0};
  channel_constants(c, B.channels(), cvec, name, "c");
  const uint32_t dst = destination(dtype, out, wider(A.type, B.type), name);
  check_type(s, name, "the destination", dst);
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, "a", true);
  check_overlap(o, B, name, "b", true);
  Image *inputs[] = {&A, &B};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A), rb = record(B);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.constant.fn(thread_env(), 0, &rd, &ra, &rb, cvec, nullptr, nullptr, nullptr, scale, 0);
  }
  check(st, s.constant.name);
  return finish(o);
}

// a and c constants, b the image: the library's b * c1 joined to c2.
py::object with_constants(const MulAcc &s, const char *name, py::handle a, py::handle b,
                          py::handle c, int32_t scale, py::handle dtype, py::handle out) {
  Image B = image_arg(b, name, "b");
  check_type(s, name, "b", B.type);
  double c1[4] = {0, 0, 0, 0}, c2[4] = {0, 0, 0, 0};
  channel_constants(c, B.channels(), c1, name, "c");
  channel_constants(a, B.channels(), c2, name, "a");
  const uint32_t dst = destination(dtype, out, B.type, name);
  check_type(s, name, "the destination", dst);
  Output o = output_arg(out, dst, B, name);
  check_overlap(o, B, name, "b", true);
  Image *inputs[] = {&B};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), rb = record(B);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.constants.fn(thread_env(), 0, &rd, &rb, c1, c2, nullptr, nullptr, scale, 0);
  }
  check(st, s.constants.name);
  return finish(o);
}

py::object mulacc(const MulAcc &s, const char *name, py::handle a, py::handle b, py::handle c,
                  int32_t scale, py::handle dtype, py::handle out) {
  // The product commutes: an image factor is b.
  if (!is_image(b) && is_image(c)) std::swap(b, c);
  if (!is_image(b))
    throw py::type_error(std::string(name) +
                         ": b or c must be an image (a numpy array of 2 or 3 axes)");
  if (is_image(a)) {
    if (is_image(c)) return images(s, name, a, b, c, scale, dtype, out);
    return with_constant(s, name, a, b, c, scale, dtype, out);
  }
  if (is_image(c))
    throw py::type_error(std::string(name) +
                         ": with a constant a, one of b and c must be a constant");
  return with_constants(s, name, a, b, c, scale, dtype, out);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const MulAcc &s) {
  m.def(
      name,
      [s, name](py::object a, py::object b, py::object c, int32_t scale, py::object dtype,
                py::object out) { return mulacc(s, name, a, b, c, scale, dtype, out); },
      doc, py::arg("a"), py::arg("b"), py::arg("c"), py::kw_only(), py::arg("scale") = 0,
      py::arg("dtype") = py::none(), py::arg("out") = py::none());
}

}  // namespace sorn::python

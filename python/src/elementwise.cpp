// Element-wise operations of two images, or of an image and a constant.
#include <string>

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

// The library reads the wider source first, and a float one before an
// integer one of the same size: its tables are keyed in that order.
void order_sources(uint32_t &a, uint32_t &b) {
  if (SORN_ELEMSIZE(b) > SORN_ELEMSIZE(a)) std::swap(a, b);
  if (b == SORN_F32 && a != SORN_F32 && SORN_ELEMSIZE(a) == SORN_ELEMSIZE(b)) std::swap(a, b);
}

std::string list_pairs(Keys keys, bool constants) {
  std::string s;
  uint32_t seen[64];
  size_t nseen = 0;
  for (uint32_t k : keys) {
    const uint32_t pair = constants ? (k >> 4 & 0xf) : (k & 0xff);
    bool dup = false;
    for (size_t i = 0; i < nseen; ++i) dup = dup || seen[i] == pair;
    if (dup || nseen == 64) continue;
    seen[nseen++] = pair;
    if (!s.empty()) s += ", ";
    s += constants ? type_name(pair) : type_name(pair >> 4) + "+" + type_name(pair & 0xf);
  }
  return s;
}

std::string list_destinations(Keys keys, uint32_t sources, bool constants) {
  std::string s;
  for (uint32_t k : keys) {
    const uint32_t src = constants ? (k >> 4 & 0xf) : (k & 0xff);
    if (src != sources) continue;
    const std::string d = type_name(k >> 8);
    if (s.find(d) != std::string::npos) continue;
    if (!s.empty()) s += ", ";
    s += d;
  }
  return s;
}

struct Choice {
  bool sat;
  bool ssat;
};

Choice choose(bool saturate, uint32_t dst) {
  return {saturate && dst != SORN_S8, saturate && dst == SORN_S8};
}

const char *form_name(Choice c) {
  return c.ssat ? "saturate=True into int8" : c.sat ? "saturate=True" : "saturate=False";
}

py::object two_images(const Elementwise &s, const char *name, py::handle a, py::handle b,
                      int32_t scale, bool saturate, py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a"), B = image_arg(b, name, "b");
  if (A.rows() != B.rows() || A.cols() != B.cols() || A.channels() != B.channels())
    throw py::value_error(std::string(name) + ": a and b differ in shape: " +
                          py::str(A.array.attr("shape")).cast<std::string>() + " and " +
                          py::str(B.array.attr("shape")).cast<std::string>());
  uint32_t x = A.type, y = B.type;
  order_sources(x, y);
  uint32_t dst = x;
  if (!dtype.is_none()) dst = code_of_dtype_arg(dtype, name);
  else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) dst = t;
  }
  const Choice c = choose(saturate, dst);
  const Keys keys = c.sat || c.ssat ? s.sat_triples : s.triples;
  const Entry<Arith2> e = c.ssat ? s.ssat : c.sat ? s.sat : s.wrap;
  if (!e || !holds(keys, key3(dst, x, y))) {
    const std::string dsts = list_destinations(keys, x << 4 | y, false);
    throw py::type_error(
        std::string(name) + ": no kernel for " + type_name(A.type) + " and " + type_name(B.type) +
        " into " + type_name(dst) + " (" + form_name(c) + "); " +
        (dsts.empty() ? "the sources it takes: " + list_pairs(keys, false)
                      : "their destinations: " + dsts));
  }
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, "a", true);
  check_overlap(o, B, name, "b", true);
  Image *inputs[] = {&A, &B};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A), rb = record(B);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = e.fn(thread_env(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, scale, 0);
  }
  check(st, e.name);
  return finish(o);
}

py::object with_constant(const Elementwise &s, const char *name, py::handle img,
                         py::handle constant, bool reversed, int32_t scale, bool saturate,
                         py::handle dtype, py::handle out) {
  const char *img_name = reversed ? "b" : "a";
  Image A = image_arg(img, name, img_name);
  double cvec[4] = {0, 0, 0, 0};
  channel_constants(constant, A.channels(), cvec, name, reversed ? "a" : "b");
  uint32_t dst = A.type;
  if (!dtype.is_none()) dst = code_of_dtype_arg(dtype, name);
  else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) dst = t;
  }
  const Choice c = choose(saturate, dst);
  const Keys keys = c.sat || c.ssat ? s.sat_ctriples : s.ctriples;
  // Constant op image where the operation does not commute.
  const bool use_reversed = reversed && s.rwrapC;
  const Entry<Arith2c> e = use_reversed ? (c.ssat ? s.rssatC : c.sat ? s.rsatC : s.rwrapC)
                                        : (c.ssat ? s.ssatC : c.sat ? s.satC : s.wrapC);
  bool known = false;
  for (uint32_t k : keys) known = known || (k >> 4) == (dst << 4 | A.type);
  if (!e || !known) {
    const std::string dsts = list_destinations(keys, A.type, true);
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(A.type) +
                         " with a constant into " + type_name(dst) + " (" + form_name(c) + "); " +
                         (dsts.empty() ? "the image types it takes: " + list_pairs(keys, true)
                                       : "their destinations: " + dsts));
  }
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, img_name, true);
  Image *inputs[] = {&A};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = e.fn(thread_env(), 0, &rd, &ra, cvec, nullptr, nullptr, scale, 0);
  }
  check(st, e.name);
  return finish(o);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Elementwise &s) {
  m.def(
      name,
      [s, name](py::object a, py::object b, int32_t scale, bool saturate, py::object dtype,
                py::object out) -> py::object {
        const bool ai = is_image(a), bi = is_image(b);
        if (ai && bi) return two_images(s, name, a, b, scale, saturate, dtype, out);
        if (ai) return with_constant(s, name, a, b, false, scale, saturate, dtype, out);
        if (bi) return with_constant(s, name, b, a, true, scale, saturate, dtype, out);
        throw py::type_error(std::string(name) +
                             ": a or b must be an image (a numpy array of 2 or 3 axes), not " +
                             py::str(py::type::handle_of(a).attr("__name__")).cast<std::string>() +
                             " and " +
                             py::str(py::type::handle_of(b).attr("__name__")).cast<std::string>());
      },
      doc, py::arg("a"), py::arg("b"), py::kw_only(), py::arg("scale") = 0,
      py::arg("saturate") = true, py::arg("dtype") = py::none(), py::arg("out") = py::none());
}

}  // namespace sorn::python

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

// The form a call takes: the other form when the option asks for it, and
// the family's int8 form when it has one and the destination is int8.
template <class F> Entry<F> pick(const Forms<F> &f, bool other, uint32_t dst) {
  if (!other) return f.plain;
  if (dst == SORN_S8 && f.other_int8) return f.other_int8;
  return f.other;
}

std::string form_name(const Elementwise &s, bool other) {
  if (!s.option) return "";
  return std::string(" (") + s.option + "=" + (other ? "True" : "False") + ")";
}

uint32_t destination(py::handle dtype, py::handle out, uint32_t fallback, const char *name) {
  if (!dtype.is_none()) return code_of_dtype_arg(dtype, name);
  if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) return t;
  }
  return fallback;
}

py::object two_images(const Elementwise &s, const char *name, py::handle a, py::handle b,
                      int32_t scale, bool other, py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a"), B = image_arg(b, name, "b");
  if (A.rows() != B.rows() || A.cols() != B.cols() || A.channels() != B.channels())
    throw py::value_error(std::string(name) + ": a and b differ in shape: " +
                          py::str(A.array.attr("shape")).cast<std::string>() + " and " +
                          py::str(B.array.attr("shape")).cast<std::string>());
  uint32_t x = A.type, y = B.type;
  order_sources(x, y);
  const uint32_t dst = destination(dtype, out, x, name);
  const Keys keys = other ? s.other_triples : s.triples;
  const Entry<Arith2> e = pick(s.images, other, dst);
  // A triple outside the kernel table may still be served by the library
  // (a destination narrower than the kernel's goes through a tile and the
  // saturating conversion): the entry has the last word, and its refusal
  // is the TypeError below, with nothing written.
  const bool in_table = holds(keys, key3(dst, x, y));
  auto refusal = [&] {
    const std::string dsts = list_destinations(keys, x << 4 | y, false);
    return py::type_error(std::string(name) + ": no kernel for " + type_name(A.type) + " and " +
                          type_name(B.type) + " into " + type_name(dst) + form_name(s, other) +
                          "; " +
                          (dsts.empty() ? "the sources it takes: " + list_pairs(keys, false)
                                        : "their destinations: " + dsts));
  };
  if (!e) throw refusal();
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
  if (!in_table && (st == SORN_EINVAL || st == SORN_ENOTSUP)) throw refusal();
  check(st, e.name);
  return finish(o);
}

py::object with_constant(const Elementwise &s, const char *name, py::handle img,
                         py::handle constant, bool reversed, int32_t scale, bool other,
                         py::handle dtype, py::handle out) {
  const char *img_name = reversed ? "b" : "a";
  Image A = image_arg(img, name, img_name);
  if (!((s.const_channels >> A.channels()) & 1))
    throw py::value_error(std::string(name) + ": with a constant it takes images of " +
                          (s.const_channels == (1u << 1 | 1u << 3 | 1u << 4)
                               ? "1, 3 or 4 channels"
                               : "other channel counts") +
                          ", not " + std::to_string(A.channels()));
  double cvec[4] = {0, 0, 0, 0};
  channel_constants(constant, A.channels(), cvec, name, reversed ? "a" : "b");
  const uint32_t dst = destination(dtype, out, A.type, name);
  const Keys keys = other ? s.other_ctriples : s.ctriples;
  // Constant op image where the operation does not commute.
  const Entry<Arith2c> e = pick(reversed && s.reversed.plain ? s.reversed : s.constant, other, dst);
  bool known = false;
  for (uint32_t k : keys) known = known || (k >> 4) == (dst << 4 | A.type);
  if (!e || !known) {
    const std::string dsts = list_destinations(keys, A.type, true);
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(A.type) +
                         " with a constant into " + type_name(dst) + form_name(s, other) + "; " +
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

py::object elementwise(const Elementwise &s, const char *name, py::handle a, py::handle b,
                       int32_t scale, bool other, py::handle dtype, py::handle out) {
  const bool ai = is_image(a), bi = is_image(b);
  if (ai && bi) return two_images(s, name, a, b, scale, other, dtype, out);
  if (ai) return with_constant(s, name, a, b, false, scale, other, dtype, out);
  if (bi) return with_constant(s, name, b, a, true, scale, other, dtype, out);
  throw py::type_error(
      std::string(name) + ": a or b must be an image (a numpy array of 2 or 3 axes), not " +
      py::str(py::type::handle_of(a).attr("__name__")).cast<std::string>() + " and " +
      py::str(py::type::handle_of(b).attr("__name__")).cast<std::string>());
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Elementwise &s) {
  // The keywords a family has: scale= for those with a scale factor, and the
  // keyword of its other form.
  const auto a = py::arg("a"), b = py::arg("b");
  const auto dtype = py::arg("dtype") = py::none(), out = py::arg("out") = py::none();
  if (s.scaled && s.option) {
    m.def(
        name,
        [s, name](py::object a, py::object b, int32_t scale, bool other, py::object dtype,
                  py::object out) { return elementwise(s, name, a, b, scale, other, dtype, out); },
        doc, a, b, py::kw_only(), py::arg("scale") = 0, py::arg(s.option) = s.option_default, dtype,
        out);
  } else if (s.scaled) {
    m.def(
        name,
        [s, name](py::object a, py::object b, int32_t scale, py::object dtype, py::object out) {
          return elementwise(s, name, a, b, scale, false, dtype, out);
        },
        doc, a, b, py::kw_only(), py::arg("scale") = 0, dtype, out);
  } else {
    m.def(
        name,
        [s, name](py::object a, py::object b, py::object dtype, py::object out) {
          return elementwise(s, name, a, b, 0, false, dtype, out);
        },
        doc, a, b, py::kw_only(), dtype, out);
  }
}

}  // namespace sorn::python

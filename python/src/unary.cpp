// Operations of one image: negation, exp, ln, the sigmoid, complement.
#include <string>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

std::string list_pairs(Keys keys) {
  std::string s;
  for (uint32_t k : keys)
    s += (s.empty() ? "" : ", ") + type_name(k >> 4 & 0xf) + " into " + type_name(k >> 8);
  return s;
}

SornFlags accuracy_flags(const Unary &s, const char *name, py::handle accuracy) {
  if (s.accuracy.empty()) return 0;
  const std::string want = py::str(accuracy).cast<std::string>();
  std::string names;
  for (const FlagChoice &c : s.accuracy) {
    if (want == c.name) return c.flags;
    names += (names.empty() ? "'" : ", '") + std::string(c.name) + "'";
  }
  throw py::value_error(std::string(name) + ": accuracy must be one of " + names + ", not '" +
                        want + "'");
}

py::object unary(const Unary &s, const char *name, py::handle a, py::handle constant, int32_t scale,
                 bool other, py::handle accuracy, py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a");
  uint32_t dst = A.type;
  if (!dtype.is_none())
    dst = code_of_dtype_arg(dtype, name);
  else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) dst = t;
  }
  const Keys keys = other ? s.other_pairs : s.pairs;
  const Entry<Arith1> e = other ? s.forms.other : s.forms.plain;
  if (!holds(keys, key3(dst, A.type, A.type)))
    throw py::type_error(
        std::string(name) + ": no kernel for " + type_name(A.type) + " into " + type_name(dst) +
        (s.option ? std::string(" (") + s.option + "=" + (other ? "True" : "False") + ")"
                  : std::string()) +
        "; it takes " + list_pairs(keys));
  const SornFlags flags = accuracy_flags(s, name, accuracy);
  double cvec[4] = {0, 0, 0, 0};
  if (s.constant) channel_constants(constant, A.channels(), cvec, name, s.constant);
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, "a", true);
  Image *inputs[] = {&A};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.constant
             ? s.with_constant.fn(thread_env(), flags, &rd, &ra, cvec, nullptr, nullptr, scale, 0)
             : e.fn(thread_env(), flags, &rd, &ra, nullptr, nullptr, scale, 0);
  }
  check(st, s.constant ? s.with_constant.name : e.name);
  return finish(o);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Unary &s) {
  const auto a = py::arg("a");
  const auto dtype = py::arg("dtype") = py::none(), out = py::arg("out") = py::none();
  if (s.scaled && s.option) {
    m.def(
        name,
        [s, name](py::object a, int32_t scale, bool other, py::object dtype, py::object out) {
          return unary(s, name, a, py::none(), scale, other, py::none(), dtype, out);
        },
        doc, a, py::kw_only(), py::arg("scale") = 0, py::arg(s.option) = s.option_default, dtype,
        out);
  } else if (s.constant && !s.accuracy.empty()) {
    m.def(
        name,
        [s, name](py::object a, py::object constant, py::object accuracy, py::object dtype,
                  py::object out) {
          return unary(s, name, a, constant, 0, false, accuracy, dtype, out);
        },
        doc, a, py::arg(s.constant) = s.constant_default, py::kw_only(),
        py::arg("accuracy") = s.accuracy.front().name, dtype, out);
  } else if (!s.accuracy.empty()) {
    m.def(
        name,
        [s, name](py::object a, py::object accuracy, py::object dtype, py::object out) {
          return unary(s, name, a, py::none(), 0, false, accuracy, dtype, out);
        },
        doc, a, py::kw_only(), py::arg("accuracy") = s.accuracy.front().name, dtype, out);
  } else {
    m.def(
        name,
        [s, name](py::object a, py::object dtype, py::object out) {
          return unary(s, name, a, py::none(), 0, false, py::none(), dtype, out);
        },
        doc, a, py::kw_only(), dtype, out);
  }
}

}  // namespace sorn::python

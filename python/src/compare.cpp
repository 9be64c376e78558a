// Element-wise comparison: masks, or chosen values where a comparison holds
// and where it fails.
#include <optional>
#include <string>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

struct Operator {
  const char *symbol, *word;
  SornCmpOp op;
  SornCmpOp mirrored;  // the operator with the operands exchanged
};

constexpr Operator kOperators[] = {
    {"==", "eq", SORN_CMP_EQ, SORN_CMP_EQ}, {"!=", "ne", SORN_CMP_NE, SORN_CMP_NE},
    {"<", "lt", SORN_CMP_LT, SORN_CMP_GT},  {"<=", "le", SORN_CMP_LE, SORN_CMP_GE},
    {">", "gt", SORN_CMP_GT, SORN_CMP_LT},  {">=", "ge", SORN_CMP_GE, SORN_CMP_LE},
};

const Operator &operator_of(py::handle op, const char *name) {
  if (py::isinstance<py::str>(op)) {
    const std::string s = op.cast<std::string>();
    for (const Operator &o : kOperators)
      if (s == o.symbol || s == o.word) return o;
  }
  throw py::value_error(std::string(name) +
                        ": op must be one of '==', '!=', '<', '<=', '>', "
                        "'>=' (or 'eq', 'ne', 'lt', 'le', 'gt', 'ge'), not " +
                        py::str(py::repr(op)).cast<std::string>());
}

// The kernels are keyed by the destination's width: int8 writes what uint8
// does, uint16 what int16 does, uint32 what int32 does.
uint32_t width_class(uint32_t dst) {
  switch (dst & 7) {
    case 1: return SORN_U8;
    case 2: return SORN_S16;
    case 3: return SORN_S32;
    case 5: return SORN_F32;
    default: return 0;
  }
}

// What is written where the comparison holds, or fails: values (one per
// channel), the first source's element, or the destination's own.
struct Side {
  enum Kind { Values, Source, Keep } kind = Values;
  double v[4] = {0, 0, 0, 0};
  const double *arg() const {
    return kind == Values ? v : kind == Source ? SORN_CMP_KEEPSRC : SORN_CMP_KEEPDST;
  }
};

Side side_of(py::handle x, int64_t channels, const char *name, const char *what) {
  Side s;
  if (py::isinstance<py::str>(x)) {
    const std::string w = x.cast<std::string>();
    if (w == "source")
      s.kind = Side::Source;
    else if (w == "keep")
      s.kind = Side::Keep;
    else
      throw py::value_error(std::string(name) + ": " + what +
                            " is a value, one value per channel, 'source' or 'keep', not '" + w +
                            "'");
    return s;
  }
  channel_constants(x, channels, s.v, name, what);
  return s;
}

std::string list_pairs(Keys keys) {
  std::string s;
  for (uint32_t k : keys)
    s += (s.empty() ? "" : ", ") + type_name(k >> 4 & 0xf) + " into " + type_name(k >> 8);
  return s;
}

py::object compare(const Compare &s, const char *name, py::handle a, py::handle b, py::handle op,
                   py::handle when_true, py::handle when_false, py::handle dtype, py::handle out) {
  const Operator &oper = operator_of(op, name);
  const bool ai = py::isinstance<py::array>(a) && py::reinterpret_borrow<py::array>(a).ndim() >= 2;
  const bool bi = py::isinstance<py::array>(b) && py::reinterpret_borrow<py::array>(b).ndim() >= 2;
  if (!ai && !bi)
    throw py::type_error(std::string(name) + ": a or b must be an image (a numpy array)");
  // A constant on the left compares the image from the other side.
  const SornCmpOp cmp = ai ? oper.op : oper.mirrored;
  Image A = image_arg(ai ? a : b, name, ai ? "a" : "b", Axes{2, 4});
  std::optional<Image> B;
  double cvec[4] = {0, 0, 0, 0};
  if (ai && bi) {
    B = image_arg(b, name, "b", Axes{2, 4});
    if (B->type != A.type)
      throw py::type_error(std::string(name) + ": a is " + type_name(A.type) + ", b is " +
                           type_name(B->type) + "; the sources have one type");
    for (int k = 0; k < 4; ++k)
      if (B->ext[k] != A.ext[k])
        throw py::value_error(std::string(name) + ": a and b differ in shape");
  } else {
    channel_constants(ai ? b : a, A.channels(), cvec, name, ai ? "b" : "a");
  }
  const bool values = !when_true.is_none() || !when_false.is_none();
  Side t, f;
  if (values) {
    t = when_true.is_none() ? Side{Side::Keep} : side_of(when_true, A.channels(), name, "true");
    f = when_false.is_none() ? Side{Side::Keep} : side_of(when_false, A.channels(), name, "false");
    if (t.kind != Side::Values && f.kind != Side::Values)
      throw py::value_error(std::string(name) + ": true or false must be a value");
    if ((t.kind == Side::Keep || f.kind == Side::Keep) && out.is_none())
      throw py::value_error(std::string(name) + ": 'keep' keeps elements of out: give out");
  }
  uint32_t dst = values ? A.type : SORN_U8;
  if (!dtype.is_none())
    dst = code_of_dtype_arg(dtype, name);
  else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t c = type_code(py::reinterpret_borrow<py::array>(out));
    if (c) dst = c;
  }
  const uint32_t cls = width_class(dst);
  const Keys keys = values || cls == SORN_F32 ? s.value_pairs : s.pairs;
  if (!cls || !holds(keys, key3(cls, A.type, A.type)))
    throw py::type_error(std::string(name) + ": no comparison of " + type_name(A.type) + " into " +
                         type_name(dst) + "; it takes " + list_pairs(keys) +
                         " (and the signed or unsigned type of the same width)");
  if ((t.kind == Side::Source || f.kind == Side::Source) && dst != A.type)
    throw py::type_error(std::string(name) +
                         ": 'source' writes the source's elements: the "
                         "destination must be " +
                         type_name(A.type));
  Output o = output_arg(out, dst, A, name);
  check_overlap(o, A, name, ai ? "a" : "b", true);
  if (B) check_overlap(o, *B, name, "b", true);
  std::vector<Image *> inputs{&A};
  if (B) inputs.push_back(&*B);
  walk(inputs, &o, true);
  // A stack the call frame can take goes whole, any other plane by plane.
  const bool whole = frame_walkable(o.image) && frame_walkable(A) && (!B || frame_walkable(*B));
  const int64_t P = whole ? 1 : A.planes();
  SornStatus st = SORN_OK;
  const char *fn = values ? (B ? s.images_values.name : s.constant_values.name)
                          : (B ? s.images.name : s.constant.name);
  {
    py::gil_scoped_release nogil;
    SornXE *xe = thread_env();
    for (int64_t p = 0; p < P && st >= 0; ++p) {
      const SornArray rd = record(whole ? o.image : plane(o.image, p));
      const SornArray ra = record(whole ? A : plane(A, p));
      SornArray rb{};
      if (B) rb = record(whole ? *B : plane(*B, p));
      if (!values)
        st = B ? s.images.fn(xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, cmp)
               : s.constant.fn(xe, 0, &rd, &ra, cvec, nullptr, nullptr, cmp);
      else
        st = B ? s.images_values.fn(xe, 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, cmp, t.arg(),
                                    f.arg())
               : s.constant_values.fn(xe, 0, &rd, &ra, cvec, nullptr, nullptr, cmp, t.arg(),
                                      f.arg());
    }
  }
  check(st, fn);
  return finish(o);
}

}  // namespace

SornCmpOp cmp_op_of(py::handle op, const char *name) { return operator_of(op, name).op; }

void bind(py::module_ &m, const char *name, const char *doc, const Compare &s) {
  m.def(
      name,
      [s, name](py::object a, py::object b, py::object op, py::object when_true,
                py::object when_false, py::object dtype, py::object out) {
        return compare(s, name, a, b, op, when_true, when_false, dtype, out);
      },
      doc, py::arg("a"), py::arg("b"), py::arg("op"), py::kw_only(), py::arg("true") = py::none(),
      py::arg("false") = py::none(), py::arg("dtype") = py::none(), py::arg("out") = py::none());
}

}  // namespace sorn::python

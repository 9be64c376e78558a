// Conversion between element types: the plain saturating conversion, the
// map of an image's range onto another, and the map by a scale and an
// offset. Every element is converted alone, so operands are read in any
// orientation (walk with order_free true).
#include <string>
#include <utility>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

// (lo, hi): two finite numbers, lo <= hi. The library reads a range whose
// low end lies above its high end as no range at all.
SornVrng range_arg(py::handle v, const char *name) {
  const std::string what = std::string(name) + ": range is a pair (lo, hi) of numbers";
  if (!py::isinstance<py::sequence>(v) || py::isinstance<py::str>(v)) throw py::type_error(what);
  const py::sequence s = py::reinterpret_borrow<py::sequence>(v);
  if (s.size() != 2) throw py::type_error(what);
  double lo, hi;
  try {
    lo = s[0].cast<double>();
    hi = s[1].cast<double>();
  } catch (const py::cast_error &) {
    throw py::type_error(what);
  }
  if (!(lo <= hi) || lo - lo != 0 || hi - hi != 0)
    throw py::value_error(std::string(name) + ": range needs finite lo <= hi");
  return SornVrng{lo, hi};
}

py::object convert(const Convert &s, const char *name, py::handle img, py::handle dtype,
                   py::handle range, py::handle scale, py::handle offset, py::handle out) {
  Image A = image_arg(img, name, "img");
  uint32_t dst = A.type;
  if (!dtype.is_none()) {
    dst = code_of_dtype_arg(dtype, name);
  } else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) dst = t;
  }
  for (uint32_t t : {A.type, dst})
    if (!holds(s.types, t))
      throw py::type_error(std::string(name) + ": converts uint8, int16, int32 and float32, not " +
                           type_name(t));
  const bool scaled = !scale.is_none() || !offset.is_none();
  if (scaled && !range.is_none())
    throw py::type_error(std::string(name) + ": takes range, or scale and offset, not both");
  SornVrng onto[4];
  if (!range.is_none()) {
    const SornVrng r = range_arg(range, name);
    for (SornVrng &c : onto) c = r;
  }
  double scales[4] = {1, 1, 1, 1}, offsets[4] = {0, 0, 0, 0};
  if (!scale.is_none()) channel_constants(scale, A.channels(), scales, name, "scale");
  if (!offset.is_none()) channel_constants(offset, A.channels(), offsets, name, "offset");

  Output o = output_arg(out, dst, A, name);
  // Converting into the very same array is a conversion in place; any other
  // sharing of memory would read values already written.
  check_overlap(o, A, name, "img", true);
  Image *inputs[] = {&A};
  walk(inputs, &o, true);
  const SornArray rd = record(o.image), ra = record(A);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = scaled ? s.scaled.fn(thread_env(), 0, &rd, &ra, nullptr, nullptr, scales, offsets, nullptr)
                : s.ranged.fn(thread_env(), 0, &rd, &ra, nullptr, nullptr,
                              range.is_none() ? nullptr : onto, nullptr);
  }
  check(st, scaled ? s.scaled.name : s.ranged.name);
  return finish(o);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Convert &s) {
  m.def(
      name,
      [s, name](py::object img, py::object dtype, py::object range, py::object scale,
                py::object offset,
                py::object out) { return convert(s, name, img, dtype, range, scale, offset, out); },
      doc, py::arg("img"), py::arg("dtype") = py::none(), py::kw_only(),
      py::arg("range") = py::none(), py::arg("scale") = py::none(), py::arg("offset") = py::none(),
      py::arg("out") = py::none());
}

}  // namespace sorn::python

// Filling an image in place, with or without a mask.
#include <optional>
#include <string>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

py::object fill(const Fill &s, const char *name, py::handle img, py::handle value, py::handle mask,
                py::handle outside, bool invert_mask) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  if (!holds(s.types, I.type)) {
    std::string takes;
    for (uint32_t t : s.types) takes += (takes.empty() ? "" : ", ") + type_name(t);
    throw py::type_error(std::string(name) + ": no fill for " + type_name(I.type) + "; it fills " +
                         takes);
  }
  if (!I.writable) throw py::value_error(std::string(name) + ": img is read-only");
  double v1[4] = {0, 0, 0, 0}, v2[4] = {0, 0, 0, 0};
  channel_constants(value, I.channels(), v1, name, "value");
  if (!outside.is_none()) {
    if (mask.is_none())
      throw py::value_error(std::string(name) + ": outside= needs a mask to tell the pixels apart");
    channel_constants(outside, I.channels(), v2, name, "outside");
  }
  std::optional<Image> M;
  if (!mask.is_none()) {
    M = mask_arg(mask, name, "mask", I, true);
    if (M->channels() > 1) {
      // An element mask works bit by bit: a bool element mask is made of
      // whole bytes first.
      py::dtype dt = M->array.dtype();
      if (dt.kind() == 'b') {
        py::object bytes = M->array.attr("astype")("uint8");
        bytes.attr("__imul__")(255);
        M = mask_arg(bytes, name, "mask", I, true);
      }
    }
  }
  Output o = output_arg(img, I.type, I, name);
  if (M) check_overlap(o, *M, name, "mask", false);
  std::vector<Image *> inputs;
  if (M) inputs.push_back(&*M);
  // Every pixel gets what its own mask byte says: the order is free.
  walk(inputs, &o, true);
  const SornFlags flags = invert_mask ? s.invmask : 0;
  const bool two_values = !outside.is_none();
  // A stack the call frame can take goes whole, any other plane by plane.
  const bool whole = frame_walkable(o.image) && (!M || frame_walkable(*M));
  const int64_t P = whole ? 1 : o.image.planes();
  SornStatus st = SORN_OK;
  const char *fn = !M ? s.plain.name : two_values ? s.masked2.name : s.masked.name;
  {
    py::gil_scoped_release nogil;
    for (int64_t p = 0; p < P && st >= 0; ++p) {
      const SornArray rd = record(whole ? o.image : plane(o.image, p));
      if (!M) {
        st = s.plain.fn(thread_env(), flags, &rd, nullptr, v1);
        continue;
      }
      const SornArray rm = record(whole ? *M : plane(*M, M->planes() == 1 ? 0 : p));
      st = two_values ? s.masked2.fn(thread_env(), flags, &rd, &rm, nullptr, nullptr, v1, v2)
                      : s.masked.fn(thread_env(), flags, &rd, &rm, nullptr, nullptr, v1);
    }
  }
  check(st, fn);
  finish(o);
  return py::reinterpret_borrow<py::object>(img);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Fill &s) {
  m.def(
      name,
      [s, name](py::object img, py::object value, py::object mask, py::object outside,
                bool invert_mask) { return fill(s, name, img, value, mask, outside, invert_mask); },
      doc, py::arg("img"), py::arg("value") = 0, py::kw_only(), py::arg("mask") = py::none(),
      py::arg("outside") = py::none(), py::arg("invert_mask") = false);
}

}  // namespace sorn::python

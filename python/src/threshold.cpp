// Thresholds: elements that meet a condition against a threshold take a
// value, the others keep the source's; and Otsu's threshold of an image.
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

void check_type(Keys pairs, const Image &img, const char *name) {
  if (holds(pairs, key3(img.type, img.type, img.type))) return;
  std::string takes;
  for (uint32_t k : pairs)
    if ((k >> 8) == (k & 0xf)) takes += (takes.empty() ? "" : ", ") + type_name(k >> 8);
  throw py::type_error(std::string(name) + ": no kernel for " + type_name(img.type) +
                       "; it takes " + takes);
}

// The blur method's window: rows and columns, anchored at its centre.
SornVolume blur_window(py::handle window, const char *name) {
  const auto [r, c] = extent_pair(window, name, "window", 1);
  if (r > 4096 || c > 4096)
    throw py::value_error(std::string(name) + ": window must be at most 4096 rows and columns");
  SornVolume v;
  std::memset(&v, 0, sizeof v);
  v.size[0] = 1;
  v.size[1] = (int32_t)r;
  v.size[2] = (int32_t)c;
  v.size[3] = 1;
  v.origin[1] = (int32_t)(r / 2);
  v.origin[2] = (int32_t)(c / 2);
  return v;
}

py::object threshold(const Threshold &s, const char *name, py::handle img, py::handle thresh,
                     py::handle value, py::handle op, py::handle method, py::handle window,
                     py::handle out) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_type(s.pairs, I, name);
  SornThresholdSpec how;
  std::memset(&how, 0, sizeof how);
  SornThresholdCriterion crit;
  std::memset(&crit, 0, sizeof crit);
  int32_t count = 0;
  std::optional<Image> T;  // an image of thresholds
  SornArray rt{};
  const std::string m = method.is_none() ? "" : py::str(method).cast<std::string>();
  if (m.empty()) {
    if (thresh.is_none())
      throw py::type_error(std::string(name) + ": give thresh, or a method ('otsu' or 'blur')");
    how.method = SORN_THH_IMMEDIATE;
    crit.op = cmp_op_of(op, name);
    count = 1;
    const bool image =
        py::isinstance<py::array>(thresh) && py::reinterpret_borrow<py::array>(thresh).ndim() >= 2;
    if (image) {
      T = image_arg(thresh, name, "thresh", Axes{2, 4});
      if (T->type != I.type)
        throw py::type_error(std::string(name) + ": thresh is " + type_name(T->type) + ", img is " +
                             type_name(I.type) + "; they have one type");
      for (int k = 0; k < 4; ++k)
        if (T->ext[k] != I.ext[k])
          throw py::value_error(std::string(name) + ": thresh and img differ in shape");
      if (value.is_none())
        throw py::type_error(std::string(name) + ": an image of thresholds needs value");
    } else {
      channel_constants(thresh, I.channels(), crit.thresh, name, "thresh");
      // A NaN first threshold is how the record marks an image of
      // thresholds: a number must not be read as one.
      for (int c = 0; c < I.channels(); ++c)
        if (std::isnan(crit.thresh[c]))
          throw py::value_error(std::string(name) + ": thresh must be a number, not NaN");
    }
    if (value.is_none()) {
      // The threshold itself.
      for (double &v : crit.value) v = std::numeric_limits<double>::quiet_NaN();
    } else {
      channel_constants(value, I.channels(), crit.value, name, "value");
    }
  } else if (m == "otsu" || m == "blur") {
    if (I.ndim == 4)
      throw py::value_error(std::string(name) + ": method='" + m +
                            "' takes one image, not a stack of planes");
    if (!thresh.is_none() || !value.is_none())
      throw py::type_error(std::string(name) + ": method='" + m +
                           "' finds the thresholds itself and writes 0 below and the type's "
                           "top at or above them: give no thresh or value");
    if (m == "otsu") {
      how.method = SORN_THH_OTSU | SORN_THH_DEFAULTS;
    } else {
      how.method = SORN_THH_BLUR;
      const SornVolume box = blur_window(window, name);
      std::memcpy(&how.vrng[0], &box, sizeof box);
    }
  } else {
    throw py::value_error(std::string(name) + ": method must be None, 'otsu' or 'blur', not '" + m +
                          "'");
  }
  Output o = output_arg(out, I.type, I, name);
  // Element by element, the output may be the image itself; the other
  // methods read the image whole before they write.
  check_overlap(o, I, name, "img", m.empty());
  if (T) check_overlap(o, *T, name, "thresh", true);
  std::vector<Image *> inputs{&I};
  if (T) inputs.push_back(&*T);
  walk(inputs, &o, m.empty());
  if (T) crit.thresh[0] = std::numeric_limits<double>::quiet_NaN();
  // A stack the call frame can take goes whole, any other plane by plane.
  const bool whole = frame_walkable(o.image) && frame_walkable(I) && (!T || frame_walkable(*T));
  const int64_t P = whole ? 1 : I.planes();
  SornStatus st = SORN_OK;
  {
    py::gil_scoped_release nogil;
    for (int64_t p = 0; p < P && st >= 0; ++p) {
      const SornArray rd = record(whole ? o.image : plane(o.image, p));
      const SornArray rs = record(whole ? I : plane(I, p));
      if (T) {
        // The condition holds the address of its image of thresholds.
        rt = record(whole ? *T : plane(*T, p));
        const SornArray *at = &rt;
        std::memcpy(&crit.thresh[1], &at, sizeof at);
      }
      st = s.threshold.fn(thread_env(), 0, &rd, &rs, nullptr, nullptr, &how,
                          count ? &crit : nullptr, count);
    }
  }
  check(st, s.threshold.name);
  return finish(o);
}

py::object otsu(const Otsu &s, const char *name, py::handle img, py::handle bins,
                py::handle range) {
  Image I = image_arg(img, name, "img", Axes{2, 3});
  check_type(s.pairs, I, name);
  if (I.channels() != 1)
    throw py::value_error(std::string(name) + ": takes images of one channel, not " +
                          std::to_string(I.channels()));
  SornVrng vr[4];
  int32_t nb[4] = {0, 0, 0, 0};
  for (SornVrng &v : vr) v.lo = v.hi = std::numeric_limits<double>::quiet_NaN();
  if (!range.is_none()) {
    try {
      auto r = range.cast<std::pair<double, double>>();
      vr[0].lo = r.first;
      vr[0].hi = r.second;
    } catch (py::cast_error &) {
      throw py::type_error(std::string(name) + ": range must be (low, high)");
    }
    if (!(vr[0].lo < vr[0].hi))
      throw py::value_error(std::string(name) + ": range must have low below high");
  }
  if (!bins.is_none()) {
    int64_t b = 0;
    try {
      b = bins.cast<int64_t>();
    } catch (py::cast_error &) {
      throw py::type_error(std::string(name) + ": bins must be an integer");
    }
    if (b < 2 || b > 1 << 24)
      throw py::value_error(std::string(name) + ": bins must be 2 to 16777216");
    nb[0] = (int32_t)b;
  }
  Image *inputs[] = {&I};
  walk(inputs, nullptr, true);
  const SornArray r = record(I);
  double t[4] = {0, 0, 0, 0};
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.otsu.fn(thread_env(), 0, &r, nullptr, t, vr, nb);
  }
  check(st, s.otsu.name);
  return py::float_(t[0]);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Threshold &s) {
  m.def(
      name,
      [s, name](py::object img, py::object thresh, py::object value, py::object op,
                py::object method, py::object window, py::object out) {
        return threshold(s, name, img, thresh, value, op, method, window, out);
      },
      doc, py::arg("img"), py::arg("thresh") = py::none(), py::arg("value") = py::none(),
      py::kw_only(), py::arg("op") = "<", py::arg("method") = py::none(), py::arg("window") = 5,
      py::arg("out") = py::none());
}

void bind(py::module_ &m, const char *name, const char *doc, const Otsu &s) {
  m.def(
      name,
      [s, name](py::object img, py::object bins, py::object range) {
        return otsu(s, name, img, bins, range);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("bins") = py::none(),
      py::arg("range") = py::none());
}

}  // namespace sorn::python

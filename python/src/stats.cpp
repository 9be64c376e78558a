// Statistics: sums and means per channel, and histograms.
#include <cfloat>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

std::string list_types(Keys keys) {
  std::string s;
  for (uint32_t t : keys) s += (s.empty() ? "" : ", ") + type_name(t);
  return s;
}

void check_channels(uint32_t channels, const Image &img, const char *name) {
  if ((channels >> img.channels()) & 1) return;
  std::string takes;
  for (int c = 1; c <= 4; ++c)
    if ((channels >> c) & 1) takes += (takes.empty() ? "" : ", ") + std::to_string(c);
  throw py::value_error(std::string(name) + ": takes images of " + takes + " channels, not " +
                        std::to_string(img.channels()));
}

void check_type(Keys keys, const Image &img, const char *name, const char *what) {
  if (!holds(keys, img.type))
    throw py::type_error(std::string(name) + ": no kernel for " + type_name(img.type) + what +
                         "; it takes " + list_types(keys));
}

std::optional<Image> optional_mask(py::handle mask, const char *name, const Image &img) {
  if (mask.is_none()) return std::nullopt;
  return mask_arg(mask, name, "mask", img);
}

/* ---------------- sums and means ---------------- */

py::object reduce(const Reduction &s, const char *name, py::handle img, py::handle mask,
                  bool invert_mask, bool fast) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_type(s.types, I, name, "");
  check_channels(s.channels, I, name);
  std::optional<Image> M = optional_mask(mask, name, I);
  std::vector<Image *> inputs{&I};
  if (M) inputs.push_back(&*M);
  // Integer sums come out the same in any order; float32 ones are added in
  // the order of the addresses, which a reoriented reading would change.
  walk(inputs, nullptr, I.type != SORN_F32);
  const SornFlags flags = (fast ? s.fast : 0) | (invert_mask ? s.invmask : 0);
  const int64_t P = I.planes(), C = I.channels();
  // The sums of one plane stay here; a numpy array only for what returns one.
  double local[4];
  std::optional<py::array_t<double>> result;
  if (I.ndim != 2) result.emplace(std::vector<py::ssize_t>{(py::ssize_t)P, (py::ssize_t)C});
  double *res = result ? result->mutable_data() : local;
  SornStatus st = SORN_OK;
  const char *fn = M ? s.masked.name : s.plain.name;
  {
    // The library keeps only the last plane of a stack in the sums: each
    // plane is a call of its own.
    py::gil_scoped_release nogil;
    SornXE *xe = thread_env();
    for (int64_t p = 0; p < P && st >= 0; ++p) {
      const SornArray r = record(plane(I, p));
      if (M) {
        const SornArray rm = record(plane(*M, M->planes() == 1 ? 0 : p));
        st = s.masked.fn(xe, flags, &r, &rm, nullptr, nullptr, res + p * C);
      } else {
        st = s.plain.fn(xe, flags, &r, nullptr, res + p * C);
      }
    }
  }
  check(st, fn);
  if (I.ndim == 2) return py::float_(local[0]);
  if (I.ndim == 3) return (*result)[py::int_(0)];
  return *result;
}

/* ---------------- extremes ---------------- */

py::object extremes(const Extremes &s, const char *name, py::handle img, py::handle mask,
                    bool invert_mask, bool positions) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  check_type(s.types, I, name, "");
  check_channels(s.channels, I, name);
  std::optional<Image> M = optional_mask(mask, name, I);
  if (M && I.channels() > 1)
    throw py::value_error(std::string(name) + ": a mask takes one-channel images only");
  std::vector<Image *> inputs{&I};
  if (M) inputs.push_back(&*M);
  // Places count rows and columns as the caller sees them.
  walk(inputs, nullptr, false);
  const SornFlags flags = invert_mask ? s.invmask : 0;
  const int64_t P = I.planes(), C = I.channels();
  std::vector<SornMinmaxRec> recs((size_t)P);
  SornStatus st = SORN_OK;
  {
    py::gil_scoped_release nogil;
    SornXE *xe = thread_env();
    for (int64_t p = 0; p < P && st >= 0; ++p) {
      SornMinmaxRec &rec = recs[(size_t)p];
      std::memset(&rec, 0, sizeof rec);
      rec.what = positions ? SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL | SORN_MINMAX_POSITIONS : 3;
      const SornArray r = record(plane(I, p));
      if (M) {
        const SornArray rm = record(plane(*M, M->planes() == 1 ? 0 : p));
        st = s.masked.fn(xe, flags, &r, &rm, nullptr, nullptr, &rec);
      } else {
        st = s.plain.fn(xe, flags, &r, nullptr, &rec);
      }
    }
  }
  check(st, M ? s.masked.name : s.plain.name);
  // Values in the image's type (float32 as floats), places as (row, column).
  const py::dtype vt = I.type == SORN_F32 ? py::dtype::of<float>() : py::dtype::of<int32_t>();
  py::array lo(vt, std::vector<py::ssize_t>{(py::ssize_t)P, (py::ssize_t)C});
  py::array hi(vt, std::vector<py::ssize_t>{(py::ssize_t)P, (py::ssize_t)C});
  py::array_t<int32_t> lopos(std::vector<py::ssize_t>{(py::ssize_t)P, (py::ssize_t)C, 2});
  py::array_t<int32_t> hipos(std::vector<py::ssize_t>{(py::ssize_t)P, (py::ssize_t)C, 2});
  for (int64_t p = 0; p < P; ++p)
    for (int64_t c = 0; c < C; ++c) {
      const SornMinmaxRec &rec = recs[(size_t)p];
      const size_t i = (size_t)(p * C + c);
      if (I.type == SORN_F32) {
        static_cast<float *>(lo.mutable_data())[i] = rec.min[c].fvalue;
        static_cast<float *>(hi.mutable_data())[i] = rec.max[c].fvalue;
      } else {
        static_cast<int32_t *>(lo.mutable_data())[i] = rec.min[c].ivalue;
        static_cast<int32_t *>(hi.mutable_data())[i] = rec.max[c].ivalue;
      }
      lopos.mutable_data()[2 * i] = rec.min[c].row;
      lopos.mutable_data()[2 * i + 1] = rec.min[c].col;
      hipos.mutable_data()[2 * i] = rec.max[c].row;
      hipos.mutable_data()[2 * i + 1] = rec.max[c].col;
    }
  // Shaped as sum() shapes its results: scalars for a 2-D image, one per
  // channel for 3-D, a row per plane for 4-D.
  auto shaped = [&](py::object a, bool place) -> py::object {
    if (I.ndim == 4) return a;
    py::object row = a[py::int_(0)];
    if (I.ndim == 3) return row;
    py::object v = row[py::int_(0)];
    return place ? py::object(py::tuple(v.attr("tolist")())) : v.attr("item")();
  };
  if (!positions) return py::make_tuple(shaped(lo, false), shaped(hi, false));
  return py::make_tuple(shaped(lo, false), shaped(hi, false), shaped(lopos, true),
                        shaped(hipos, true));
}

/* ---------------- histograms ---------------- */

// The range of values a type's histogram may be given, and the range the
// default covers.
struct TypeRange {
  double lo, hi;
  bool whole;  // the default is the type's whole range, not the data's
};

TypeRange type_range(uint32_t type) {
  switch (type) {
    case SORN_U8: return {0, 255, true};
    case SORN_S8: return {-128, 127, true};
    case SORN_U16: return {0, 65535, true};
    case SORN_S16: return {-32768, 32767, true};
    case SORN_S32: return {-2147483648.0, 2147483647.0, false};
    default: return {-FLT_MAX, FLT_MAX, false};
  }
}

// The smallest and largest value of an array, NaN left out; (0, 1) when
// nothing else is there.
std::pair<double, double> data_range(const py::array &a) {
  static py::handle np = py::object(py::module_::import("numpy")).release();
  py::object warnings = py::module_::import("warnings");
  py::object quiet = warnings.attr("catch_warnings")();
  quiet.attr("__enter__")();
  warnings.attr("simplefilter")("ignore");
  const double lo = np.attr("nanmin")(a).cast<double>(), hi = np.attr("nanmax")(a).cast<double>();
  quiet.attr("__exit__")(py::none(), py::none(), py::none());
  if (std::isnan(lo) || std::isnan(hi)) return {0, 1};
  return {lo, hi};
}

py::object histogram(const Histogram &s, const char *name, py::handle img, int64_t bins,
                     py::handle range, py::handle mask, bool invert_mask) {
  Image I = image_arg(img, name, "img", Axes{2, 4});
  std::optional<Image> M = optional_mask(mask, name, I);
  check_type(M ? s.masked_types : s.types, I, name, M ? " with a mask" : "");
  // Past 2**23 bins the float rule could round a value into bin `bins`.
  if (bins < 1 || bins > (1 << 23))
    throw py::value_error(std::string(name) + ": bins must be 1 to 8388608, not " +
                          std::to_string(bins));
  const TypeRange tr = type_range(I.type);
  std::optional<std::pair<double, double>> given;
  if (!range.is_none()) {
    if (!py::isinstance<py::sequence>(range) || py::len(range) != 2)
      throw py::type_error(std::string(name) + ": range must be (low, high)");
    py::sequence seq = py::reinterpret_borrow<py::sequence>(range);
    given = std::make_pair(py::float_(seq[0]).cast<double>(), py::float_(seq[1]).cast<double>());
    if (!(given->first <= given->second) || given->first < tr.lo || given->second > tr.hi)
      throw py::value_error(std::string(name) +
                            ": range must be (low, high) with low <= high, "
                            "within the values of " +
                            type_name(I.type));
  }

  const int64_t C = I.channels();
  py::array_t<uint32_t> counts(std::vector<py::ssize_t>{(py::ssize_t)C, (py::ssize_t)(bins + 1)});
  std::memset(counts.mutable_data(), 0, (size_t)(C * (bins + 1)) * sizeof(uint32_t));
  const SornFlags flags = invert_mask ? s.invmask : 0;
  const bool empty = I.planes() * I.rows() * I.cols() == 0;

  for (int64_t c = 0; c < C; ++c) {
    // The counting kernels read one channel: a channel of several is counted
    // from a copy of it.
    Image ch = C == 1 ? I
                      : image_arg(I.array[py::make_tuple(py::ellipsis(), py::slice(c, c + 1, 1))],
                                  name, "img");
    std::optional<Image> m = M;
    std::vector<Image *> inputs{&ch};
    if (m) inputs.push_back(&*m);
    // Counts do not depend on the order of the pixels.
    walk(inputs, nullptr, true);

    std::pair<double, double> r = given               ? *given
                                  : tr.whole || empty ? std::make_pair(tr.lo, tr.hi)
                                                      : data_range(ch.array);
    if (empty) r = {0, 1};  // nothing to count: the library answers for the empty region
    SornHistInit init{I.type, (int32_t)bins,     r.first,          r.second,
                      1,      (int32_t)I.rows(), (int32_t)I.cols()};
    SornHist h{};
    sorn_hist_inithdr(&h, &init);
    h.counts = counts.mutable_data() + c * (bins + 1);
    if (I.type == SORN_F32) {
      if (!std::isfinite(h.span))
        throw py::value_error(std::string(name) + ": the range's width is not finite in float32");
    } else {
      // Bins are found in 32-bit integer arithmetic: (v - low) * bins must fit.
      const int64_t width = (int64_t)h.ihigh - h.ilow;
      if (width + 1 != bins && width * bins > INT32_MAX)
        throw py::value_error(std::string(name) +
                              ": bins times the range's width exceeds the "
                              "32-bit arithmetic of integer bins");
    }
    // A stack the call frame can take goes whole; the library adds its planes
    // one after another into the counts, as the loop below does otherwise.
    const bool whole = frame_walkable(ch) && (!m || frame_walkable(*m));
    const int64_t P = whole ? 1 : ch.planes();
    SornStatus st = SORN_OK;
    {
      py::gil_scoped_release nogil;
      for (int64_t p = 0; p < P && st >= 0; ++p) {
        const SornArray rec = record(whole ? ch : plane(ch, p));
        if (m) {
          const SornArray rm = record(whole ? *m : plane(*m, m->planes() == 1 ? 0 : p));
          st = s.masked.fn(thread_env(), flags, &rec, &rm, nullptr, nullptr, 0, &h);
        } else {
          st = s.plain.fn(thread_env(), flags, &rec, nullptr, 0, &h);
        }
      }
    }
    check(st, m ? s.masked.name : s.plain.name);
  }
  // The library keeps one counter past the last bin; it is no bin: the
  // result is a view of the counters without it.
  const py::ssize_t row = (py::ssize_t)((bins + 1) * sizeof(uint32_t));
  if (I.ndim == 2)
    return py::array(counts.dtype(), std::vector<py::ssize_t>{(py::ssize_t)bins},
                     std::vector<py::ssize_t>{(py::ssize_t)sizeof(uint32_t)}, counts.data(),
                     counts);
  return py::array(counts.dtype(), std::vector<py::ssize_t>{(py::ssize_t)C, (py::ssize_t)bins},
                   std::vector<py::ssize_t>{row, (py::ssize_t)sizeof(uint32_t)}, counts.data(),
                   counts);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const Reduction &s) {
  m.def(
      name,
      [s, name](py::object img, py::object mask, bool invert_mask, bool fast) {
        return reduce(s, name, img, mask, invert_mask, fast);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("mask") = py::none(),
      py::arg("invert_mask") = false, py::arg("fast") = false);
}

void bind(py::module_ &m, const char *name, const char *doc, const Extremes &s) {
  m.def(
      name,
      [s, name](py::object img, py::object mask, bool invert_mask, bool positions) {
        return extremes(s, name, img, mask, invert_mask, positions);
      },
      doc, py::arg("img"), py::kw_only(), py::arg("mask") = py::none(),
      py::arg("invert_mask") = false, py::arg("positions") = false);
}

void bind(py::module_ &m, const char *name, const char *doc, const Histogram &s) {
  m.def(
      name,
      [s, name](py::object img, int64_t bins, py::object range, py::object mask, bool invert_mask) {
        return histogram(s, name, img, bins, range, mask, invert_mask);
      },
      doc, py::arg("img"), py::arg("bins") = 256, py::arg("range") = py::none(), py::kw_only(),
      py::arg("mask") = py::none(), py::arg("invert_mask") = false);
}

}  // namespace sorn::python

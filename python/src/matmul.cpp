// Matrix products: by a matrix, by a vector, by a list of vectors.
#include <string>
#include <vector>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace sorn::python {

namespace {

// The destination a source type gets by default: the widest the table offers
// (uint8 sources sum into int32 without saturating).
uint32_t default_destination(Keys pairs, uint32_t src) {
  uint32_t best = 0;
  for (uint32_t k : pairs)
    if ((k & 0xff) == (src << 4 | src) && (!best || SORN_ELEMSIZE(k >> 8) > SORN_ELEMSIZE(best)))
      best = k >> 8;
  return best;
}

std::string list_pairs(Keys pairs) {
  std::string s;
  for (uint32_t k : pairs)
    s += (s.empty() ? "" : ", ") + type_name(k >> 4 & 0xf) + " into " + type_name(k >> 8);
  return s;
}

// The extents of a result: a matrix (M, N) or a vector (M,).
Image result_like(int64_t rows, int64_t cols, int ndim) {
  Image r;
  r.ndim = ndim;
  r.ext[1] = rows;
  r.ext[2] = cols;
  return r;
}

Image vector_arg(py::handle v, const char *name, const char *what, uint32_t type, int64_t K) {
  Image V = image_arg(v, name, what, Axes{1, 1});
  if (V.type != type)
    throw py::type_error(std::string(name) + ": " + what + " is " + type_name(V.type) + ", a is " +
                         type_name(type) + "; the sources have one type");
  if (V.cols() != K)
    throw py::value_error(std::string(name) + ": " + what + " has " + std::to_string(V.cols()) +
                          " elements, a has " + std::to_string(K) + " columns");
  return V;
}

py::object matmul(const MatMul &s, const char *name, py::handle a, py::handle b, int32_t shift,
                  py::handle dtype, py::handle out) {
  Image A = image_arg(a, name, "a", Axes{2, 2});
  const uint32_t src = A.type;
  uint32_t dst = default_destination(s.pairs, src);
  if (!dtype.is_none())
    dst = code_of_dtype_arg(dtype, name);
  else if (!out.is_none() && py::isinstance<py::array>(out)) {
    const uint32_t t = type_code(py::reinterpret_borrow<py::array>(out));
    if (t) dst = t;
  }
  if (!holds(s.pairs, key3(dst, src, src)))
    throw py::type_error(std::string(name) + ": no product of " + type_name(src) + " into " +
                         (dst ? type_name(dst) : std::string("any type")) + "; it takes " +
                         list_pairs(s.pairs));
  const int64_t M = A.rows(), K = A.cols();

  // A list of vectors: column j of the result is a times vector j.
  if (py::isinstance<py::list>(b) || py::isinstance<py::tuple>(b)) {
    py::sequence seq = py::reinterpret_borrow<py::sequence>(b);
    const int64_t count = (int64_t)py::len(seq);
    if (count < 1) throw py::value_error(std::string(name) + ": b is an empty list of vectors");
    std::vector<Image> V;
    V.reserve((size_t)count);
    for (int64_t j = 0; j < count; ++j) {
      const std::string what = "b[" + std::to_string(j) + "]";
      V.push_back(vector_arg(seq[(size_t)j], name, what.c_str(), src, K));
    }
    Output o = output_arg(out, dst, result_like(M, count, 2), name);
    check_overlap(o, A, name, "a", false);
    std::vector<Image *> inputs{&A};
    for (Image &v : V) {
      check_overlap(o, v, name, "b", false);
      inputs.push_back(&v);
    }
    walk(inputs, &o, false);
    const SornArray rd = record(o.image), ra = record(A);
    std::vector<SornArray> rv;
    for (const Image &v : V) rv.push_back(record(v));
    std::vector<const SornArray *> list;
    for (const SornArray &r : rv) list.push_back(&r);
    SornStatus st;
    {
      py::gil_scoped_release nogil;
      st = s.mvn.fn(thread_env(), 0, &rd, &ra, list.data(), nullptr, nullptr, nullptr,
                    (int32_t)count, shift, 0);
    }
    check(st, s.mvn.name);
    return finish(o);
  }

  if (py::isinstance<py::array>(b) && py::reinterpret_borrow<py::array>(b).ndim() == 1) {
    Image V = vector_arg(b, name, "b", src, K);
    Output o = output_arg(out, dst, result_like(1, M, 1), name);
    check_overlap(o, A, name, "a", false);
    check_overlap(o, V, name, "b", false);
    Image *inputs[] = {&A, &V};
    walk(inputs, &o, false);
    const SornArray rd = record(o.image), ra = record(A), rv = record(V);
    SornStatus st;
    {
      py::gil_scoped_release nogil;
      st = s.mv.fn(thread_env(), 0, &rd, &ra, &rv, nullptr, nullptr, nullptr, shift, 0);
    }
    check(st, s.mv.name);
    return finish(o);
  }

  Image B = image_arg(b, name, "b", Axes{2, 2});
  if (B.type != src)
    throw py::type_error(std::string(name) + ": b is " + type_name(B.type) + ", a is " +
                         type_name(src) + "; the sources have one type");
  if (B.rows() != K)
    throw py::value_error(std::string(name) + ": a has " + std::to_string(K) + " columns, b has " +
                          std::to_string(B.rows()) + " rows");
  const int64_t N = B.cols();
  Output o = output_arg(out, dst, result_like(M, N, 2), name);
  check_overlap(o, A, name, "a", false);
  check_overlap(o, B, name, "b", false);
  // The transpose of a walkable matrix is read as it is, by the library's
  // transposed form.
  SornFlags flags = 0;
  std::vector<Image *> inputs{&A};
  if (!B.walkable() && transposed(B).walkable()) {
    B = transposed(B);
    flags |= s.transposed;
  } else {
    inputs.push_back(&B);
  }
  walk(inputs, &o, false);
  const SornArray rd = record(o.image), ra = record(A), rb = record(B);
  SornStatus st;
  {
    py::gil_scoped_release nogil;
    st = s.mm.fn(thread_env(), flags, &rd, &ra, &rb, nullptr, nullptr, nullptr, shift, 0);
  }
  check(st, s.mm.name);
  return finish(o);
}

}  // namespace

void bind(py::module_ &m, const char *name, const char *doc, const MatMul &s) {
  m.def(
      name,
      [s, name](py::object a, py::object b, int32_t shift, py::object dtype, py::object out) {
        return matmul(s, name, a, b, shift, dtype, out);
      },
      doc, py::arg("a"), py::arg("b"), py::kw_only(), py::arg("shift") = 0,
      py::arg("dtype") = py::none(), py::arg("out") = py::none());
}

}  // namespace sorn::python

#include "status.h"

#include <string>

namespace sorn::python {

namespace {

struct Known {
  SornStatus status;
  const char *name;     // the status's symbol
  const char *meaning;  // what it says in this library
  const char *cls;      // its exception class
  const char *doc;
};

constexpr Known kKnown[] = {
    {SORN_EINVAL, "SORN_EINVAL", "invalid argument", "SornInvalidError",
     "SORN_EINVAL: a record, an operand or a parameter the library refused."},
    {SORN_ENOSPC, "SORN_ENOSPC", "empty region", "SornEmptyRegionError",
     "SORN_ENOSPC: the operands have no common region, e.g. an image of no pixels."},
    {SORN_ENOTSUP, "SORN_ENOTSUP", "not supported", "SornNotSupportedError",
     "SORN_ENOTSUP: known element types or shapes for which the library has no code."},
    {SORN_ENOTIMP, "SORN_ENOTIMP", "not implemented", "SornNotImplementedError",
     "SORN_ENOTIMP: a mode the library names but does not implement."},
    {SORN_ENOMEM, "SORN_ENOMEM", "out of memory", "SornMemoryError",
     "SORN_ENOMEM: scratch memory could not be had. Also a MemoryError."},
};
constexpr size_t kCount = sizeof kKnown / sizeof kKnown[0];

// The classes live as long as the process: the module is never unloaded.
PyObject *g_base = nullptr;
PyObject *g_classes[kCount] = {};

PyObject *make_class(py::module_ &m, const char *name, const char *doc, PyObject *bases) {
  const std::string qualified = std::string("sorn.") + name;
  PyObject *cls = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, bases, nullptr);
  if (!cls) throw py::error_already_set();
  m.add_object(name, py::reinterpret_borrow<py::object>(cls));
  return cls;
}

}  // namespace

void register_errors(py::module_ &m) {
  g_base = make_class(m, "SornError",
                      "A call into the library answered a negative status.\n\n"
                      "Attributes: status (the number), status_name (its symbol, e.g.\n"
                      "'SORN_EINVAL') and function (the library function that answered).",
                      PyExc_Exception);
  for (size_t i = 0; i < kCount; ++i) {
    PyObject *bases = kKnown[i].status == SORN_ENOMEM ? PyTuple_Pack(2, g_base, PyExc_MemoryError)
                                                      : PyTuple_Pack(1, g_base);
    if (!bases) throw py::error_already_set();
    g_classes[i] = make_class(m, kKnown[i].cls, kKnown[i].doc, bases);
    Py_DECREF(bases);
  }
}

void raise_status(SornStatus status, const char *function) {
  PyObject *cls = g_base;
  std::string name = "status " + std::to_string(status), meaning = "unknown status";
  for (size_t i = 0; i < kCount; ++i) {
    if (kKnown[i].status == status) {
      cls = g_classes[i];
      name = kKnown[i].name;
      meaning = kKnown[i].meaning;
    }
  }
  const std::string message = std::string(function) + ": " + name + " (" + meaning + ")";
  py::object exc = py::reinterpret_borrow<py::object>(cls)(message);
  exc.attr("status") = py::int_(status);
  exc.attr("status_name") = py::str(name);
  exc.attr("function") = py::str(function);
  PyErr_SetObject(cls, exc.ptr());
  throw py::error_already_set();
}

}  // namespace sorn::python

// The extension module sorn._sorn. The package sorn (python/sorn) imports
// everything public from it.
#include <pybind11/pybind11.h>

#include "env.h"
#include "operand.h"
#include "shapes.h"
#include "status.h"

namespace py = pybind11;

PYBIND11_MODULE(_sorn, m) {
  // Every docstring of the table begins with the function's own signature.
  py::options options;
  options.disable_function_signatures();
  m.doc() = "Sorn's operations on numpy arrays (see the package sorn).";
  sorn::python::register_errors(m);
  sorn::python::bind_families(m);
  m.def("_copies_made", &sorn::python::copies_made,
        "_copies_made()\n\nLayout copies made since the module was loaded: operands the library "
        "could not walk as they lay.");
  m.def(
      "_raise_status",
      [](int64_t status, const char *function) { sorn::python::raise_status(status, function); },
      "_raise_status(status, function)\n\nRaises what a call answering status raises (for tests).");
  m.def("_live_environments", &sorn::python::live_envs,
        "_live_environments()\n\nExecution environments alive: one per thread that has called "
        "the library and not yet ended.");
}

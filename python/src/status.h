// Statuses as Python exceptions. Every negative status of a library call
// raises sorn.SornError, or the subclass of its status, with the status and
// the name of the function that answered it; SORN_ENOMEM raises
// sorn.SornMemoryError, which is a MemoryError as well.
#pragma once

#include <sorn.h>

#include <pybind11/pybind11.h>

namespace sorn::python {

namespace py = pybind11;

// Creates the exception classes in the module.
void register_errors(py::module_ &m);

[[noreturn]] void raise_status(SornStatus status, const char *function);

// Raises for a negative status; a positive one (a count) passes.
inline SornStatus check(SornStatus status, const char *function) {
  if (status < 0) raise_status(status, function);
  return status;
}

}  // namespace sorn::python

#ifndef CORV_PYTHON_REGISTRY_H
#define CORV_PYTHON_REGISTRY_H

// Each binding file registers its part of the module with a rank; the module
// binds the parts by rank, so that a base class is known before its derived
// classes (logger 10, library 15, inputs 20-29, outputs 30-39, pipeline 40,
// algorithms 50 and up).
#include <pybind11/pybind11.h>

#include <functional>

namespace corv::python {

namespace py = pybind11;

struct binder {
  binder(int rank, std::function<void(py::module_&)> bind);
};

void bind_all(py::module_& m);

}  // namespace corv::python

#endif

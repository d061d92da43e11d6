// The `corv` Python module: thin bindings over the library, numpy in and out.
// Library exceptions carry their exact text; pybind11 raises them as RuntimeError.
#include <map>
#include <vector>

#include "python/registry.h"

namespace corv::python {

namespace {

std::multimap<int, std::function<void(py::module_&)>>& parts() {
  static std::multimap<int, std::function<void(py::module_&)>> registered;
  return registered;
}

}  // namespace

binder::binder(int rank, std::function<void(py::module_&)> bind) {
  parts().emplace(rank, std::move(bind));
}

void bind_all(py::module_& m) {
  for (auto& [rank, bind] : parts()) {
    bind(m);
  }
}

}  // namespace corv::python

PYBIND11_MODULE(_corv, m) {
  m.doc() = "Corvantis hyperspectral processing library";
  corv::python::bind_all(m);
}

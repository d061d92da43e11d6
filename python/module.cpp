// The `corv` Python module: thin bindings over the library, numpy in and out.
// Library exceptions carry their exact text; pybind11 raises them as RuntimeError.
#include <map>
#include <stdexcept>
#include <vector>

#include "corv/io/file_path.h"
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
  // A message that quotes a damaged file may hold bytes that are not UTF-8,
  // which Python would turn into an empty message.
  pybind11::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) {
        std::rethrow_exception(thrown);
      }
    } catch (const pybind11::builtin_exception&) {
      throw;
    } catch (const pybind11::error_already_set&) {
      throw;
    } catch (const std::range_error&) {
      throw;
    } catch (const std::overflow_error&) {
      throw;
    } catch (const std::runtime_error& error) {
      PyErr_SetString(PyExc_RuntimeError, corv::printable(error.what()).c_str());
    }
  });
}

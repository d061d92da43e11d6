#include <pybind11/stl.h>

#include "corv/io/hsz_input.h"
#include "corv/io/hsz_output.h"
#include "python/registry.h"

namespace corv::python {

const binder hsz_input_part(25, [](py::module_& m) {
  py::class_<hsz_input, input, std::shared_ptr<hsz_input>>(
      m, "hsz_input",
      "An HSZ file: I and s are composed from its illuminant, specularity, shading and "
      "material decomposition.")
      .def(py::init<const std::string&, bool>(), py::arg("file_name"), py::arg("hold") = false,
           py::call_guard<py::gil_scoped_release>())
      .def_property("hold", &hsz_input::hold, &hsz_input::set_hold)
      .def_property_readonly("file_name", &hsz_input::file_name);
});

const binder hsz_output_part(35, [](py::module_& m) {
  py::class_<hsz_output, output, std::shared_ptr<hsz_output>>(
      m, "hsz_output",
      "HSZ file of a pipeline's illuminant, specularity and material decomposition.")
      .def(py::init<>());
});

}  // namespace corv::python

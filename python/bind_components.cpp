#include <pybind11/stl.h>

#include "corv/io/component_input.h"
#include "corv/io/component_output.h"
#include "python/registry.h"

namespace corv::python {

const binder component_input_part(26, [](py::module_& m) {
  py::class_<component_input, input, std::shared_ptr<component_input>>(
      m, "component_input", "A directory of component files sharing one name prefix.")
      .def(py::init<const std::string&, const std::string&>(), py::arg("directory"),
           py::arg("prefix"))
      .def_property_readonly("directory", &component_input::directory)
      .def_property_readonly("prefix", &component_input::prefix);
});

const binder component_output_part(36, [](py::module_& m) {
  py::class_<component_output, output, std::shared_ptr<component_output>>(
      m, "component_output",
      "Every component as its own ENVI file; write() takes \"directory/prefix\".")
      .def(py::init<unsigned>(), py::arg("setting") = 0u)
      .def_property_readonly("setting", &component_output::setting);
});

}  // namespace corv::python

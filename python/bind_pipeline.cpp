#include <pybind11/stl.h>

#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder outputs_part(30, [](py::module_& m) {
  py::class_<output, std::shared_ptr<output>>(m, "output", "Writes a pipeline to files.")
      .def("write", &output::write, py::arg("pipeline"), py::arg("file_name"),
           py::call_guard<py::gil_scoped_release>());
  py::class_<hdr_output, output, std::shared_ptr<hdr_output>>(m, "hdr_output",
                                                              "ENVI header and data file.")
      .def(py::init<bool, int>(), py::arg("reflectance") = false, py::arg("data_type") = 4)
      .def_property_readonly("reflectance", &hdr_output::reflectance)
      .def_property_readonly("data_type", &hdr_output::data_type);
});

const binder pipeline_part(40, [](py::module_& m) {
  py::class_<pipeline, std::shared_ptr<pipeline>>(m, "pipeline",
                                                  "An image and everything computed from it.")
      .def(py::init<>())
      .def(py::init<std::shared_ptr<input>>(), py::arg("input"))
      .def_static("version", &pipeline::version)
      .def_property_readonly("height", &pipeline::height)
      .def_property_readonly("width", &pipeline::width)
      .def_property_readonly("bands", &pipeline::bands)
      .def("I", [](pipeline& p) { return to_numpy(p.I()); })
      .def("wavelengths", [](pipeline& p) { return to_numpy(p.wavelengths()); })
      .def("illuminant", [](pipeline& p) { return to_numpy(p.illuminant()); })
      .def("k", [](pipeline& p) { return to_numpy(p.k()); })
      .def("s", [](pipeline& p) { return to_numpy(p.s()); })
      .def("g", [](pipeline& p) { return to_numpy(p.g()); })
      .def("material_elements", [](pipeline& p) { return to_numpy(p.material_elements()); })
      .def("material_element_abundances",
           [](pipeline& p) { return to_numpy(p.material_element_abundances()); })
      .def("material_element_abundance_indexes",
           [](pipeline& p) { return to_numpy(p.material_element_abundance_indexes()); })
      .def("material_map", [](pipeline& p) { return to_numpy(p.material_map()); })
      .def(
          "set_I",
          [](pipeline& p, const float_array& image, const float_array& wavelengths) {
            p.set_I(to_cube(image), to_vector(wavelengths));
          },
          py::arg("I"), py::arg("wavelengths"))
      .def("set_illuminant",
           [](pipeline& p, const float_array& a) { p.set_illuminant(to_vector(a)); })
      .def("set_s", [](pipeline& p, const float_array& a) { p.set_s(to_cube(a)); })
      .def("set_k", [](pipeline& p, const float_array& a) { p.set_k(to_matrix(a)); })
      .def("set_g", [](pipeline& p, const float_array& a) { p.set_g(to_matrix(a)); })
      .def("reset_components", &pipeline::reset_components, py::arg("reflectance") = false)
      .def("save", &pipeline::save, py::arg("output"), py::arg("file_name"),
           py::call_guard<py::gil_scoped_release>());
});

}  // namespace corv::python

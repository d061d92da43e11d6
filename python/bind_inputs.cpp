#include <pybind11/stl.h>

#include "corv/io/data_input.h"
#include "corv/io/hdr_input.h"
#include "corv/io/open_input.h"
#include "corv/io/tif_input.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

// Runs a library call without the interpreter lock, so that another Python
// thread can go on (and, for instance, request an abort through the logger).
template <typename F>
auto unlocked(F&& call) {
  py::gil_scoped_release release;
  return call();
}

}  // namespace

const binder inputs_part(20, [](py::module_& m) {
  py::class_<input, std::shared_ptr<input>>(m, "input", "A source of image components.")
      .def_property_readonly("height", &input::height)
      .def_property_readonly("width", &input::width)
      .def_property_readonly("bands", &input::bands)
      .def("input_kind", &input::input_kind)
      .def("I", [](input& in) { return to_numpy(unlocked([&] { return in.I(); })); })
      .def(
          "I",
          [](input& in, const band_list& bands) {
            return to_numpy(unlocked([&] { return in.I(bands); }));
          },
          py::arg("bands"))
      .def(
          "I",
          [](input& in, int r0, int c0, int r1, int c1) {
            return to_numpy(unlocked([&] { return in.I(r0, c0, r1, c1); }));
          },
          py::arg("first_row"), py::arg("first_col"), py::arg("last_row"), py::arg("last_col"))
      .def(
          "I",
          [](input& in, const band_list& bands, int r0, int c0, int r1, int c1) {
            return to_numpy(unlocked([&] { return in.I(bands, r0, c0, r1, c1); }));
          },
          py::arg("bands"), py::arg("first_row"), py::arg("first_col"), py::arg("last_row"),
          py::arg("last_col"))
      .def("s", [](input& in) { return to_numpy(unlocked([&] { return in.s(); })); })
      .def("wavelengths", [](input& in) { return to_numpy(in.wavelengths()); })
      .def("illuminant", [](input& in) { return to_numpy(in.illuminant()); })
      .def("k", [](input& in) { return to_numpy(in.k()); })
      .def("g", [](input& in) { return to_numpy(in.g()); })
      .def("elements", [](input& in) { return to_numpy(in.elements()); })
      .def("endmembers", [](input& in) { return to_numpy(in.endmembers()); })
      .def("endmember_labels", &input::endmember_labels)
      .def("element_abundances", [](input& in) { return to_numpy(in.element_abundances()); })
      .def("element_abundance_indexes",
           [](input& in) { return to_numpy(in.element_abundance_indexes()); })
      .def("endmember_abundances", [](input& in) { return to_numpy(in.endmember_abundances()); })
      .def("endmember_abundance_indexes",
           [](input& in) { return to_numpy(in.endmember_abundance_indexes()); });

  py::class_<data_input, input, std::shared_ptr<data_input>>(m, "data_input",
                                                             "Components held in memory.")
      .def(py::init<>())
      .def("set_I", [](data_input& in, const float_array& a) { in.set_I(to_cube(a)); })
      .def("set_s", [](data_input& in, const float_array& a) { in.set_s(to_cube(a)); })
      .def("set_wavelengths",
           [](data_input& in, const float_array& a) { in.set_wavelengths(to_vector(a)); })
      .def("set_illuminant",
           [](data_input& in, const float_array& a) { in.set_illuminant(to_vector(a)); })
      .def("set_k", [](data_input& in, const float_array& a) { in.set_k(to_matrix(a)); })
      .def("set_g", [](data_input& in, const float_array& a) { in.set_g(to_matrix(a)); })
      .def("set_elements",
           [](data_input& in, const float_array& a) { in.set_elements(to_matrix(a)); })
      .def("set_endmembers",
           [](data_input& in, const float_array& a) { in.set_endmembers(to_matrix(a)); })
      .def("set_endmember_labels", &data_input::set_endmember_labels)
      .def("set_element_abundances",
           [](data_input& in, const float_array& a) { in.set_element_abundances(to_cube(a)); })
      .def("set_element_abundance_indexes",
           [](data_input& in, const float_array& a) {
             in.set_element_abundance_indexes(to_cube(a));
           })
      .def("set_endmember_abundances",
           [](data_input& in, const float_array& a) { in.set_endmember_abundances(to_cube(a)); })
      .def("set_endmember_abundance_indexes", [](data_input& in, const float_array& a) {
        in.set_endmember_abundance_indexes(to_cube(a));
      });

  py::class_<hdr_input, input, std::shared_ptr<hdr_input>>(m, "hdr_input",
                                                           "An ENVI header and its data file.")
      .def(py::init<const std::string&, bool>(), py::arg("file_name"), py::arg("hold") = false)
      .def_property_readonly("is_reflectance", &hdr_input::is_reflectance)
      .def_property("hold", &hdr_input::hold, &hdr_input::set_hold)
      .def_property_readonly("header_file", &hdr_input::header_file)
      .def_property_readonly("data_file", &hdr_input::data_file)
      .def_property_readonly("description", &hdr_input::description);

  py::class_<tif_input, input, std::shared_ptr<tif_input>>(m, "tif_input", "A TIFF image.")
      .def(py::init<const std::string&, bool>(), py::arg("file_name"), py::arg("hold") = false)
      .def_property("hold", &tif_input::hold, &tif_input::set_hold);

  m.def("open_input", &open_input, py::arg("file_name"), py::arg("hold") = false,
        "Open an image with the input of its format (by suffix: hsz, tif, else ENVI).");
});

}  // namespace corv::python

#include <pybind11/stl.h>

#include "corv/io/envi_library.h"
#include "corv/io/library_csv.h"
#include "corv/io/spectral_library.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder library_part(15, [](py::module_& m) {
  py::class_<spectral_library, std::shared_ptr<spectral_library>>(
      m, "spectral_library",
      "Reference spectra (one column per endmember) with labels, wavelengths in nm, sources and "
      "colours.")
      .def(py::init<>())
      .def(py::init([](const float_array& endmembers, const std::vector<std::string>& labels,
                       const float_array& wavelengths) {
             return spectral_library(to_matrix(endmembers), labels, to_vector(wavelengths));
           }),
           py::arg("endmembers"), py::arg("labels"), py::arg("wavelengths"))
      .def(
          "add_endmembers",
          [](spectral_library& l, const float_array& spectra,
             const std::vector<std::string>& labels,
             const std::string& source) { l.add_endmembers(to_matrix(spectra), labels, source); },
          py::arg("spectra"), py::arg("labels"), py::arg("source") = "nofile")
      .def("merge", &spectral_library::merge, py::arg("other"), py::arg("re_evaluate") = false)
      .def("endmembers", [](const spectral_library& l) { return to_numpy(l.endmembers()); })
      .def("labels", &spectral_library::labels)
      .def("wavelengths", [](const spectral_library& l) { return to_numpy(l.wavelengths()); })
      .def("set_wavelengths",
           [](spectral_library& l, const float_array& w) { l.set_wavelengths(to_vector(w)); })
      .def("set_labels", &spectral_library::set_labels)
      .def("sources", &spectral_library::sources)
      .def("set_sources", &spectral_library::set_sources)
      .def("colours", [](const spectral_library& l) { return to_numpy(l.colours()); })
      .def("set_colours",
           [](spectral_library& l, const float_array& c) {
             l.set_colours(as_array(c).size() == 0 ? matrix() : to_matrix(c));
           })
      .def_property_readonly("has_colours", &spectral_library::has_colours)
      .def_property("metadata", &spectral_library::metadata, &spectral_library::set_metadata)
      .def("incomplete_endmembers", &spectral_library::incomplete_endmembers)
      .def_property_readonly("size", &spectral_library::size)
      .def_property_readonly("bands", &spectral_library::bands)
      .def("__len__", &spectral_library::size)
      .def("load", &spectral_library::load, py::arg("file_name"),
           py::call_guard<py::gil_scoped_release>())
      .def("save", &spectral_library::save, py::arg("file_name"),
           py::call_guard<py::gil_scoped_release>())
      .def_static(
          "palette_colours",
          [](arma::uword first, arma::uword count) {
            return to_numpy(spectral_library::palette_colours(first, count));
          },
          py::arg("first"), py::arg("count"));

  m.def("read_library_csv", &read_library_csv, py::arg("file_name"),
        "A spectral library from CSV (one spectrum per column, or per row after a header of "
        "wavelengths).");
  m.def("write_library_csv", &write_library_csv, py::arg("library"), py::arg("file_name"),
        "Writes a library as CSV, one spectrum per column after a wavelength column.");
  m.def(
      "read_envi_library",
      [](const std::string& file_name, bool drop_incomplete) {
        return read_envi_library(file_name,
                                 drop_incomplete ? missing_points::drop : missing_points::keep);
      },
      py::arg("file_name"), py::arg("drop_incomplete") = false,
      "An ENVI spectral library (.sli) or an ENVI image of spectra (one sample or one line); "
      "missing points are NaN, or with drop_incomplete their spectra are left out.");
});

}  // namespace corv::python

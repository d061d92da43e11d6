#include <pybind11/stl.h>

#include "corv/io/hdr_output.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

// A getter may read the component from the input first, which takes long for
// a large image: other Python threads run meanwhile. The copy into numpy
// needs the interpreter again.
template <typename T>
py::array_t<float> component(pipeline& p, const T& (pipeline::*getter)()) {
  const T* value = nullptr;
  {
    py::gil_scoped_release release;
    value = &(p.*getter)();
  }
  return to_numpy(*value);
}

}  // namespace

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
  py::class_<parameters>(m, "parameters", "Every processing parameter, with its default.")
      .def(py::init<>())
      .def_readwrite("verbosity", &parameters::verbosity)
      .def_readwrite("illuminant_method", &parameters::illuminant_method)
      .def_readwrite("spatial_smoothness", &parameters::spatial_smoothness)
      .def_readwrite("illuminant_patch_size", &parameters::illuminant_patch_size)
      .def_readwrite("wiener_marker", &parameters::wiener_marker)
      .def_readwrite("second_illuminant", &parameters::second_illuminant)
      .def_readwrite("gray_order", &parameters::gray_order)
      .def_readwrite("dichromatic_method", &parameters::dichromatic_method)
      .def_readwrite("neighbourhood_size", &parameters::neighbourhood_size)
      .def_readwrite("gray_threshold", &parameters::gray_threshold)
      .def_readwrite("max_clusters", &parameters::max_clusters)
      .def_readwrite("material_subsample", &parameters::material_subsample)
      .def_readwrite("materials_per_pixel", &parameters::materials_per_pixel)
      .def_readwrite("max_temperature", &parameters::max_temperature)
      .def_readwrite("min_temperature", &parameters::min_temperature)
      .def_readwrite("cooling_rate", &parameters::cooling_rate)
      .def_readwrite("split_threshold", &parameters::split_threshold)
      .def_readwrite("material_mode", &parameters::material_mode)
      .def_readwrite("filter_size", &parameters::filter_size)
      .def_readwrite("principal_components", &parameters::principal_components)
      .def_readwrite("pca_source", &parameters::pca_source)
      .def_readwrite("nurbs_encoding", &parameters::nurbs_encoding)
      .def_readwrite("nurbs_degree", &parameters::nurbs_degree)
      .def_readwrite("nurbs_max_iterations", &parameters::nurbs_max_iterations)
      .def_readwrite("nurbs_knots_threshold", &parameters::nurbs_knots_threshold)
      .def_readwrite("nurbs_alpha", &parameters::nurbs_alpha)
      .def_readwrite("endmember_setting", &parameters::endmember_setting);

  py::class_<pipeline, std::shared_ptr<pipeline>>(m, "pipeline",
                                                  "An image and everything computed from it.")
      .def(py::init<>())
      .def(py::init<std::shared_ptr<input>>(), py::arg("input"))
      .def_static("version", &pipeline::version)
      .def_property_readonly("height", &pipeline::height)
      .def_property_readonly("width", &pipeline::width)
      .def_property_readonly("bands", &pipeline::bands)
      .def("I", [](pipeline& p) { return component(p, &pipeline::I); })
      .def("wavelengths", [](pipeline& p) { return component(p, &pipeline::wavelengths); })
      .def("illuminant", [](pipeline& p) { return component(p, &pipeline::illuminant); })
      .def("k", [](pipeline& p) { return component(p, &pipeline::k); })
      .def("s", [](pipeline& p) { return component(p, &pipeline::s); })
      .def("g", [](pipeline& p) { return component(p, &pipeline::g); })
      .def("material_elements",
           [](pipeline& p) { return component(p, &pipeline::material_elements); })
      .def("material_element_abundances",
           [](pipeline& p) { return component(p, &pipeline::material_element_abundances); })
      .def("material_element_abundance_indexes",
           [](pipeline& p) { return component(p, &pipeline::material_element_abundance_indexes); })
      .def("material_map", [](pipeline& p) { return component(p, &pipeline::material_map); })
      .def("endmember_abundances",
           [](pipeline& p) { return component(p, &pipeline::endmember_abundances); })
      .def("endmember_abundance_indexes",
           [](pipeline& p) { return component(p, &pipeline::endmember_abundance_indexes); })
      .def("principal_components", [](pipeline& p) { return to_numpy(p.principal_components()); })
      .def("principal_strengths", [](pipeline& p) { return to_numpy(p.principal_strengths()); })
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
      .def_property("parameters", &pipeline::parameters, &pipeline::set_parameters)
      .def_property("library", &pipeline::library, &pipeline::set_library)
      .def("set_library", &pipeline::set_library, py::arg("library"))
      .def("crop", &pipeline::crop, py::arg("first_row"), py::arg("first_col"), py::arg("last_row"),
           py::arg("last_col"), py::arg("reflectance") = false,
           py::call_guard<py::gil_scoped_release>())
      .def("resize", &pipeline::resize, py::arg("rows"), py::arg("cols"),
           py::arg("reflectance") = false, py::call_guard<py::gil_scoped_release>())
      .def("remove_bands", &pipeline::remove_bands, py::arg("bands"),
           py::arg("reflectance") = false, py::call_guard<py::gil_scoped_release>())
      .def("filter", &pipeline::filter, py::arg("method"), py::arg("size"),
           py::arg("reflectance") = false, py::call_guard<py::gil_scoped_release>())
      .def("set_verbosity", &pipeline::set_verbosity)
      .def("set_illuminant_method", &pipeline::set_illuminant_method)
      .def("set_spatial_smoothness", &pipeline::set_spatial_smoothness)
      .def("set_illuminant_patch_size", &pipeline::set_illuminant_patch_size)
      .def("set_wiener_marker", &pipeline::set_wiener_marker)
      .def("set_second_illuminant", &pipeline::set_second_illuminant)
      .def("set_gray_order", &pipeline::set_gray_order)
      .def("set_dichromatic_method", &pipeline::set_dichromatic_method)
      .def("set_neighbourhood_size", &pipeline::set_neighbourhood_size)
      .def("set_gray_threshold", &pipeline::set_gray_threshold)
      .def("set_max_clusters", &pipeline::set_max_clusters)
      .def("set_material_subsample", &pipeline::set_material_subsample)
      .def("set_materials_per_pixel", &pipeline::set_materials_per_pixel)
      .def("set_max_temperature", &pipeline::set_max_temperature)
      .def("set_min_temperature", &pipeline::set_min_temperature)
      .def("set_cooling_rate", &pipeline::set_cooling_rate)
      .def("set_split_threshold", &pipeline::set_split_threshold)
      .def("set_material_mode", &pipeline::set_material_mode)
      .def("set_filter_size", &pipeline::set_filter_size)
      .def("set_principal_components", &pipeline::set_principal_components)
      .def("set_pca_source", &pipeline::set_pca_source)
      .def("set_nurbs_encoding", &pipeline::set_nurbs_encoding)
      .def("set_nurbs_degree", &pipeline::set_nurbs_degree)
      .def("set_nurbs_max_iterations", &pipeline::set_nurbs_max_iterations)
      .def("set_nurbs_knots_threshold", &pipeline::set_nurbs_knots_threshold)
      .def("set_nurbs_alpha", &pipeline::set_nurbs_alpha)
      .def("set_endmember_setting", &pipeline::set_endmember_setting)
      .def("process_recover_illuminant", &pipeline::process_recover_illuminant,
           py::arg("start_afresh") = true, py::call_guard<py::gil_scoped_release>())
      .def("process_recover_dichromatic_parameters",
           &pipeline::process_recover_dichromatic_parameters,
           py::call_guard<py::gil_scoped_release>())
      .def("process_recover_materials", &pipeline::process_recover_materials,
           py::call_guard<py::gil_scoped_release>())
      .def("process_recover_endmembers", &pipeline::process_recover_endmembers,
           py::call_guard<py::gil_scoped_release>())
      .def("process_analysis", &pipeline::process_analysis, py::arg("on_reflectance") = false,
           py::call_guard<py::gil_scoped_release>())
      .def("save", &pipeline::save, py::arg("output"), py::arg("file_name"),
           py::call_guard<py::gil_scoped_release>());
});

}  // namespace corv::python

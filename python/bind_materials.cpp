// Material discovery: corv.recover_materials, corv.deterministic_annealing and
// corv.generate_elements. The computations run without the GIL, so that
// another Python thread can ask corv.logger for an abort meanwhile.
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <utility>

#include "corv/pipeline/materials.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder materials_part(46, [](py::module_& m) {
  py::class_<material_result>(m, "material_result",
                              "What material discovery found; element numbers count from 0.")
      .def_property_readonly(
          "elements", [](const material_result& r) { return to_numpy(r.elements); },
          "bands x m, one unit-norm spectrum per column")
      .def_property_readonly(
          "abundances", [](const material_result& r) { return to_numpy(r.abundances); },
          "rows x columns x N weights, largest first")
      .def_property_readonly(
          "abundance_indexes",
          [](const material_result& r) { return to_numpy(r.abundance_indexes); },
          "rows x columns x N element numbers of the weights")
      .def_property_readonly(
          "map", [](const material_result& r) { return to_numpy(r.map); },
          "rows x columns, each pixel's strongest element");

  m.attr("MATERIALS_FULL") = static_cast<int>(MATERIALS_FULL);
  m.attr("MATERIALS_SHRUNK") = static_cast<int>(MATERIALS_SHRUNK);
  m.attr("MATERIALS_SAMPLED") = static_cast<int>(MATERIALS_SAMPLED);

  m.def(
      "recover_materials",
      [](const converted_array& s, const std::optional<converted_array>& g, int max_clusters,
         int subsample, int materials_per_pixel, float max_temperature, float min_temperature,
         float cooling_rate, float split_threshold, int mode, int verbosity,
         const std::optional<converted_array>& k) {
        material_parameters settings;
        settings.max_clusters = max_clusters;
        settings.subsample = subsample;
        settings.materials_per_pixel = materials_per_pixel;
        settings.max_temperature = max_temperature;
        settings.min_temperature = min_temperature;
        settings.cooling_rate = cooling_rate;
        settings.split_threshold = split_threshold;
        return recover_materials(cube_over(s), g ? matrix_over(*g) : matrix(), settings, mode,
                                 verbosity, k ? matrix_over(*k) : matrix());
      },
      py::call_guard<py::gil_scoped_release>(), py::arg("s"), py::arg("g") = py::none(),
      py::arg("max_clusters") = 20, py::arg("subsample") = 3, py::arg("materials_per_pixel") = 5,
      py::arg("max_temperature") = 0.02f, py::arg("min_temperature") = 0.00025f,
      py::arg("cooling_rate") = 0.8f, py::arg("split_threshold") = -1.0f,
      py::arg("mode") = static_cast<int>(MATERIALS_SAMPLED), py::arg("verbosity") = 0,
      py::arg("k") = py::none(),
      "Discovers the materials of the reflectance cube s (rows, columns, bands) by "
      "deterministic annealing and mixes every pixel from its materials_per_pixel strongest. "
      "g: the shading (rows, columns) or None; unlit pixels (g <= 0) are not clustered. mode: 0 "
      "every pixel, 1 the image shrunk 2^subsample times, 2 (the default) from every block of "
      "2^subsample x 2^subsample pixels the lit one deepest inside a smooth region, away from "
      "the highlights of k, the specularity (rows, columns) or None. Returns a "
      "material_result.");

  m.def(
      "deterministic_annealing",
      [](const converted_array& spectra, float max_temperature, float min_temperature,
         float cooling_rate, float split_threshold, int max_clusters, int verbosity) {
        matrix centres;
        {
          py::gil_scoped_release release;
          centres = deterministic_annealing(matrix_over(spectra), max_temperature, min_temperature,
                                            cooling_rate, split_threshold, max_clusters, verbosity);
        }
        return to_numpy(std::move(centres));
      },
      py::arg("spectra"), py::arg("max_temperature") = 0.02f, py::arg("min_temperature") = 0.00025f,
      py::arg("cooling_rate") = 0.8f, py::arg("split_threshold") = -1.0f,
      py::arg("max_clusters") = 20, py::arg("verbosity") = 0,
      "Clusters spectra (bands, count) by their directions; returns the centres (bands, m), not "
      "normalised.");

  m.def(
      "generate_elements",
      [](const converted_array& elements, const converted_array& s, int materials_per_pixel,
         int verbosity) {
        cube abundances, indexes;
        {
          py::gil_scoped_release release;
          generate_elements(matrix_over(elements), cube_over(s), materials_per_pixel, verbosity,
                            abundances, indexes);
        }
        return std::make_pair(to_numpy(std::move(abundances)), to_numpy(std::move(indexes)));
      },
      py::arg("elements"), py::arg("s"), py::arg("materials_per_pixel") = 5,
      py::arg("verbosity") = 0,
      "Mixes every pixel of s from its materials_per_pixel strongest elements (bands, m). "
      "Returns (abundances, element numbers from 0), both (rows, columns, materials_per_pixel).");
});

}  // namespace corv::python

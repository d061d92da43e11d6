#include <pybind11/stl.h>

#include "corv/analysis/band_maths.h"
#include "corv/analysis/pca.h"
#include "corv/analysis/smoothing.h"
#include "corv/pipeline/cube_resize.h"
#include "corv/pipeline/wiener.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

// In-place library filters become functions that return the smoothed copy.
// The copy is made straight into the returned array, and the filter works on it
// in place through a cube that borrows its memory.
template <typename Filter>
py::array_t<float> smoothed(const float_array& data, int window, Filter filter) {
  if (data.ndim() != 3) {
    throw py::value_error("expected a 3-D array (rows, columns, bands), got " +
                          std::to_string(data.ndim()) + "-D");
  }
  py::array_t<float, py::array::f_style> out({data.shape(0), data.shape(1), data.shape(2)});
  {
    py::gil_scoped_release release;
    std::copy(data.data(), data.data() + data.size(), out.mutable_data());
    cube view(out.mutable_data(), data.shape(0), data.shape(1), data.shape(2), false, true);
    filter(view, window);
  }
  return out;
}

}  // namespace

const binder analysis_part(50, [](py::module_& m) {
  m.def(
      "moving_average",
      [](const float_array& data, int window) { return smoothed(data, window, moving_average); },
      py::arg("cube"), py::arg("window"),
      "Box filter of every spectrum (odd window >= 3); returns the smoothed cube.");
  m.def(
      "savitzky_golay",
      [](const float_array& data, int window) { return smoothed(data, window, savitzky_golay); },
      py::arg("cube"), py::arg("window"),
      "Quadratic Savitzky-Golay smoothing of every spectrum (window 5, 7 or 9).");
  m.def(
      "wiener_filter",
      [](const float_array& band, int window_rows, int window_cols) {
        const matrix input = to_matrix(band);
        matrix out;
        {
          py::gil_scoped_release release;
          out = wiener_filter(input, window_rows, window_cols);
        }
        return to_numpy(out);
      },
      py::arg("band"), py::arg("window_rows") = 5, py::arg("window_cols") = 5,
      "Adaptive Wiener filter of one band image (zero padding).");
  m.def(
      "resize_cube",
      [](const float_array& data, int rows, int cols, int interpolation) {
        cube c = to_cube(data);
        {
          py::gil_scoped_release release;
          resize_cube(c, rows, cols, interpolation);
        }
        return to_numpy(c);
      },
      py::arg("cube"), py::arg("rows"), py::arg("cols"), py::arg("interpolation") = 1);
  m.def(
      "pca",
      [](const float_array& data, int num_components, float threshold) {
        const cube input = to_cube(data);
        cube components;
        vector strengths;
        {
          py::gil_scoped_release release;
          pca(input, components, strengths, num_components, threshold);
        }
        return py::make_tuple(to_numpy(components), to_numpy(strengths));
      },
      py::arg("cube"), py::arg("num_components"), py::arg("threshold") = 0.001f,
      "Principal components: returns (components cube, singular values).");
  m.def(
      "band_maths",
      [](const std::vector<float_array>& images, const std::string& formula) {
        std::vector<cube> cubes;
        cubes.reserve(images.size());
        for (const auto& image : images) {
          cubes.push_back(to_cube(image));
        }
        const image_list list(cubes.begin(), cubes.end());
        return to_numpy(band_maths(list, formula));
      },
      py::arg("images"), py::arg("formula"),
      "Evaluates a formula over bands of the images (I1 is images[0]).");
  m.def("Parse", &Parse, py::arg("tokens"), "Infix tokens to postfix.");
  m.def("op_priority", &op_priority, py::arg("token"));
  m.def("band_maths_tokens", &band_maths_tokens, py::arg("formula"));
});

}  // namespace corv::python

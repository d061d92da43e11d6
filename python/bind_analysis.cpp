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

// The filters read the pixels where they lie and write the smoothed spectra
// straight into the returned array, in the input's order: one pass.
template <typename Filter>
py::array smoothed(const float_array& data, int window, Filter filter) {
  py::object keep;
  const image_view in = view_of(data, keep);
  const std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(in.rows),
                                          static_cast<py::ssize_t>(in.cols),
                                          static_cast<py::ssize_t>(in.bands)};
  py::array out = in.interleaved ? py::array(c_floats(shape)) : py::array(fortran_floats(shape));
  float* to = static_cast<float*>(out.mutable_data());
  {
    py::gil_scoped_release release;
    filter(in, to, window);
  }
  return out;
}

}  // namespace

const binder analysis_part(50, [](py::module_& m) {
  m.def(
      "moving_average",
      [](const float_array& data, int window) {
        return smoothed(data, window, [](const image_view& in, float* out, int w) {
          moving_average(in, out, w);
        });
      },
      py::arg("cube"), py::arg("window"),
      "Box filter of every spectrum (odd window >= 3); returns the smoothed cube.");
  m.def(
      "savitzky_golay",
      [](const float_array& data, int window) {
        return smoothed(data, window, [](const image_view& in, float* out, int w) {
          savitzky_golay(in, out, w);
        });
      },
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
        return to_numpy(std::move(out));
      },
      py::arg("band"), py::arg("window_rows") = 5, py::arg("window_cols") = 5,
      "Adaptive Wiener filter of one band image (zero padding).");
  m.def(
      "resize_cube",
      [](const float_array& data, int rows, int cols, int interpolation) {
        cube c = cube_copy(data);
        {
          py::gil_scoped_release release;
          resize_cube(c, rows, cols, interpolation);
        }
        return to_numpy(std::move(c));
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
        return py::make_tuple(to_numpy(std::move(components)), to_numpy(std::move(strengths)));
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

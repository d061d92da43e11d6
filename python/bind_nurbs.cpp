#include <cstdint>

#include "corv/spectral/nurbs.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

// Control points travel as one (rows, columns, points, 2) array: [..., 0] the
// wavelength of each point, [..., 1] its value.
py::array_t<float> points_to_numpy(const nurbs_control_points& points) {
  const cube& w = points.wavelengths;
  py::array_t<float> out({w.n_rows, w.n_cols, w.n_slices, arma::uword(2)});
  auto view = out.mutable_unchecked<4>();
  for (arma::uword r = 0; r < w.n_rows; ++r) {
    for (arma::uword c = 0; c < w.n_cols; ++c) {
      for (arma::uword i = 0; i < w.n_slices; ++i) {
        view(r, c, i, 0) = w(r, c, i);
        view(r, c, i, 1) = points.values(r, c, i);
      }
    }
  }
  return out;
}

nurbs_control_points points_from_numpy(const py::array_t<float, py::array::forcecast>& array) {
  if (array.ndim() != 4 || array.shape(3) != 2) {
    throw py::value_error("expected control points as a 4-D array (rows, columns, points, 2)");
  }
  const auto view = array.unchecked<4>();
  nurbs_control_points points;
  points.wavelengths.set_size(array.shape(0), array.shape(1), array.shape(2));
  points.values.set_size(arma::size(points.wavelengths));
  for (py::ssize_t r = 0; r < array.shape(0); ++r) {
    for (py::ssize_t c = 0; c < array.shape(1); ++c) {
      for (py::ssize_t i = 0; i < array.shape(2); ++i) {
        points.wavelengths(r, c, i) = view(r, c, i, 0);
        points.values(r, c, i) = view(r, c, i, 1);
      }
    }
  }
  return points;
}

}  // namespace

const binder nurbs_part(60, [](py::module_& m) {
  m.def(
      "generate_nurbs",
      [](const float_array& I, const py::object& J, const float_array& wavelengths,
         std::int64_t degree, std::int64_t knot_threshold, float alpha, int iterations,
         int verbosity) {
        const cube image = to_cube(I);
        const cube companion =
            J.is_none() ? cube(0, 0, image.n_slices) : to_cube(J.cast<float_array>());
        const vector waves = to_vector(wavelengths);
        vector knots;
        nurbs_control_points points;
        {
          py::gil_scoped_release release;
          // The library takes both as unsigned 32-bit numbers, so -1 is the
          // all-ones threshold.
          generate_nurbs(image, companion, waves, knots, points, static_cast<std::uint32_t>(degree),
                         static_cast<std::uint32_t>(knot_threshold), alpha, iterations, verbosity);
        }
        return py::make_tuple(to_numpy(std::move(knots)), points_to_numpy(points));
      },
      py::arg("I"), py::arg("J"), py::arg("wavelengths"), py::arg("degree") = 2,
      py::arg("knot_threshold") = -1, py::arg("alpha") = 0.1f, py::arg("iterations") = 10,
      py::arg("verbosity") = 0,
      "Compresses every spectrum of I (rows, columns, bands) into a curve on one shared knot "
      "vector; J (same bands, or None) is a companion image the knots must serve too. Returns "
      "(knots, control points (rows, columns, points, 2): [..., 0] wavelength, [..., 1] value).");
  m.def(
      "nurbs_evaluate",
      [](const float_array& knots, const py::array_t<float, py::array::forcecast>& control_points,
         std::int64_t degree, const float_array& wavelengths) {
        const vector knot_vector = to_vector(knots);
        const nurbs_control_points points = points_from_numpy(control_points);
        const vector waves = to_vector(wavelengths);
        cube spectra;
        {
          py::gil_scoped_release release;
          spectra = nurbs_evaluate(knot_vector, points, static_cast<std::uint32_t>(degree), waves);
        }
        return to_numpy(std::move(spectra));
      },
      py::arg("knots"), py::arg("control_points"), py::arg("degree"), py::arg("wavelengths"),
      "Reads every curve back at the wavelengths: a (rows, columns, wavelengths) cube.");
});

}  // namespace corv::python

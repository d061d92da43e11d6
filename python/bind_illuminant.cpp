// Smooth patch selection and illuminant recovery. The computations run without
// the GIL, so that another Python thread can ask the logger to abort them.
#include <pybind11/stl.h>

#include "corv/pipeline/illuminant.h"
#include "corv/pipeline/smooth_patches.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

using int_array = py::array_t<long long, py::array::c_style | py::array::forcecast>;

// None: 50 patches; an integer n: n patches; an (n, 4) array of first row,
// last row, first column, last column: those patches.
arma::imat patch_argument(const py::object& patches) {
  if (patches.is_none()) {
    return arma::imat(0, 1);
  }
  if (py::isinstance<py::int_>(patches)) {
    const long long count = patches.cast<long long>();
    if (count < 0) {
      throw py::value_error("the number of patches must not be negative");
    }
    return arma::imat(static_cast<arma::uword>(count), 1, arma::fill::zeros);
  }
  const int_array bounds = patches.cast<int_array>();
  if (bounds.ndim() != 2) {
    throw py::value_error("patches: expected None, a count or an (n, 4) array of bounds");
  }
  arma::imat result(bounds.shape(0), bounds.shape(1));
  for (py::ssize_t r = 0; r < bounds.shape(0); ++r) {
    for (py::ssize_t c = 0; c < bounds.shape(1); ++c) {
      result(r, c) = bounds.at(r, c);
    }
  }
  return result;
}

py::array_t<long long> bounds_array(const arma::imat& bounds) {
  py::array_t<long long> out(
      {static_cast<py::ssize_t>(bounds.n_rows), static_cast<py::ssize_t>(bounds.n_cols)});
  auto view = out.mutable_unchecked<2>();
  for (arma::uword r = 0; r < bounds.n_rows; ++r) {
    for (arma::uword c = 0; c < bounds.n_cols; ++c) {
      view(r, c) = bounds(r, c);
    }
  }
  return out;
}

// Runs a recovery without the GIL on a copy of the cube and hands back the
// illuminant and the bounds of the patches used.
template <typename Recovery>
py::tuple with_patches(const float_array& data, const py::object& patches, Recovery recovery) {
  const cube I = to_cube(data);
  arma::imat bounds = patch_argument(patches);
  vector illuminant;
  {
    py::gil_scoped_release release;
    illuminant = recovery(I, bounds);
  }
  return py::make_tuple(to_numpy(std::move(illuminant)), bounds_array(bounds));
}

// The per-band statistics read the pixels where they lie, in either order.
template <typename Recovery>
py::array_t<float> statistical(const float_array& data, Recovery recovery) {
  py::object keep;
  const image_view I = view_of(data, keep);
  vector illuminant;
  {
    py::gil_scoped_release release;
    illuminant = recovery(I);
  }
  return to_numpy(std::move(illuminant));
}

}  // namespace

const binder illuminant_part(42, [](py::module_& m) {
  m.attr("ILLUMINANT_ORBEK") = static_cast<int>(ILLUMINANT_ORBEK);
  m.attr("ILLUMINANT_FS") = static_cast<int>(ILLUMINANT_FS);
  m.attr("ILLUMINANT_GRAY_EDGE") = static_cast<int>(ILLUMINANT_GRAY_EDGE);
  m.attr("ILLUMINANT_GRAY_WORLD") = static_cast<int>(ILLUMINANT_GRAY_WORLD);
  m.attr("ILLUMINANT_SHADE_OF_GRAY") = static_cast<int>(ILLUMINANT_SHADE_OF_GRAY);
  m.attr("ILLUMINANT_WHITE_PATCH") = static_cast<int>(ILLUMINANT_WHITE_PATCH);

  py::class_<illuminant_parameters>(m, "illuminant_parameters",
                                    "Settings of the illuminant methods.")
      .def(py::init<>())
      .def_readwrite("spatial_smoothness", &illuminant_parameters::spatial_smoothness)
      .def_readwrite("patch_size", &illuminant_parameters::patch_size)
      .def_readwrite("wiener_marker", &illuminant_parameters::wiener_marker)
      .def_readwrite("second_switch", &illuminant_parameters::second_switch)
      .def_readwrite("order", &illuminant_parameters::order);

  m.def(
      "select_smooth_patches",
      [](const float_array& data, int patch_size, int wanted, int verbosity) {
        const cube I = to_cube(data);
        patch_list found;
        {
          py::gil_scoped_release release;
          found = select_smooth_patches(I, patch_size, wanted, verbosity);
        }
        return py::make_tuple(py::array(py::cast(found.rows)), py::array(py::cast(found.cols)),
                              py::array_t<float>(py::cast(found.scores)), to_numpy(found.mask));
      },
      py::arg("cube"), py::arg("patch_size") = 20, py::arg("wanted") = 50, py::arg("verbosity") = 0,
      "Bright, unsaturated, homogeneous patches, best first: returns (rows, cols, scores, "
      "mask), rows and cols on the patch grid.");

  m.def(
      "recover_global_illuminant",
      [](const float_array& data, int method, const py::object& patches,
         const illuminant_parameters& settings, int verbosity) {
        return with_patches(data, patches, [&](const cube& I, arma::imat& bounds) {
          return recover_global_illuminant(I, bounds, method, settings, verbosity);
        });
      },
      py::arg("cube"), py::arg("method") = 0, py::arg("patches") = py::none(),
      py::arg("settings") = illuminant_parameters(), py::arg("verbosity") = 0,
      "The scene's illuminant (unit norm) by method code 0-5: returns (illuminant, bounds). "
      "patches: None (50 patches), a count, or an (n, 4) array of first row, last row, first "
      "column, last column; bounds are the patches used, to pass to a later run.");

  m.def(
      "recover_illuminant_HRK",
      [](const float_array& data, const py::object& patches, float smoothness, int patch_size,
         bool wiener_marker, bool second_switch, int verbosity) {
        return with_patches(data, patches, [&](const cube& I, arma::imat& bounds) {
          return recover_illuminant_HRK(I, bounds, smoothness, patch_size, wiener_marker,
                                        second_switch, verbosity);
        });
      },
      py::arg("cube"), py::arg("patches") = py::none(), py::arg("smoothness") = 50.0f,
      py::arg("patch_size") = 20, py::arg("wiener_marker") = false, py::arg("second_switch") = true,
      py::arg("verbosity") = 0, "Iterative dichromatic fit: returns (illuminant, bounds).");
  m.def(
      "recover_illuminant_FS",
      [](const float_array& data, const py::object& patches, int patch_size, bool wiener_marker,
         int verbosity) {
        return with_patches(data, patches, [&](const cube& I, arma::imat& bounds) {
          return recover_illuminant_FS(I, bounds, patch_size, wiener_marker, verbosity);
        });
      },
      py::arg("cube"), py::arg("patches") = py::none(), py::arg("patch_size") = 20,
      py::arg("wiener_marker") = false, py::arg("verbosity") = 0,
      "Intersection of the patches' dichromatic planes: returns (illuminant, bounds).");
  m.def(
      "recover_illuminant_GE",
      [](const float_array& data, int order, int verbosity) {
        const cube I = to_cube(data);
        vector illuminant;
        {
          py::gil_scoped_release release;
          illuminant = recover_illuminant_GE(I, order, verbosity);
        }
        return to_numpy(std::move(illuminant));
      },
      py::arg("cube"), py::arg("order") = 1, py::arg("verbosity") = 0, "Gray edge of order p.");
  m.def(
      "recover_illuminant_SG",
      [](const float_array& data, int order, int verbosity) {
        return statistical(
            data, [&](const image_view& I) { return recover_illuminant_SG(I, order, verbosity); });
      },
      py::arg("cube"), py::arg("order") = 1, py::arg("verbosity") = 0, "Shade of gray of order p.");
  m.def(
      "recover_illuminant_WP",
      [](const float_array& data, int verbosity) {
        return statistical(
            data, [&](const image_view& I) { return recover_illuminant_WP(I, verbosity); });
      },
      py::arg("cube"), py::arg("verbosity") = 0, "Per-band mean (gray world).");
  m.def(
      "recover_illuminant_GW",
      [](const float_array& data, int verbosity) {
        return statistical(
            data, [&](const image_view& I) { return recover_illuminant_GW(I, verbosity); });
      },
      py::arg("cube"), py::arg("verbosity") = 0, "Per-band maximum (white patch).");
});

}  // namespace corv::python

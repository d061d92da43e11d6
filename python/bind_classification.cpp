#include <pybind11/stl.h>

#include <algorithm>

#include "corv/analysis/nnls.h"
#include "corv/analysis/resample_endmembers.h"
#include "corv/analysis/sam.h"
#include "corv/analysis/svm.h"
#include "corv/analysis/unmixing.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

namespace {

// Spectra waves may be left out (None) or given empty: the spectra are then
// taken at the image's bands.
vector optional_vector(const py::object& values) {
  if (values.is_none()) {
    return vector();
  }
  return to_vector(values.cast<float_array>());
}

// numpy's default layout (bands fastest) is a transpose away from a cube's
// (one band plane after another). Read a tile of 16 neighbouring rows at a
// time: 16 spectra side by side are read in order and every band's 16 values
// land in one run, so a large image converts at memory speed.
cube transposed_image(const py::array_t<float, py::array::c_style>& source) {
  const arma::uword rows = source.shape(0), cols = source.shape(1), bands = source.shape(2);
  cube image(rows, cols, bands, arma::fill::none);
  const float* in = source.data();
  float* out = image.memptr();
  const arma::uword plane = rows * cols;
  py::gil_scoped_release release;
#pragma omp parallel for schedule(static)
  for (long c = 0; c < static_cast<long>(cols); ++c) {
    for (arma::uword r0 = 0; r0 < rows; r0 += 16) {
      const arma::uword r1 = std::min<arma::uword>(r0 + 16, rows);
      for (arma::uword b = 0; b < bands; ++b) {
        float* to = out + b * plane + c * rows;
        for (arma::uword r = r0; r < r1; ++r) {
          to[r] = in[(r * cols + c) * bands + b];
        }
      }
    }
  }
  return image;
}

// Calls use(cube) with the image. A float32 array already in the cube's own
// layout (Fortran order, as this module returns cubes) is used where it lies,
// without a copy; numpy's default order is transposed; anything else goes
// through the general conversion.
template <typename Use>
void with_image(const py::array& I, Use&& use) {
  if (I.ndim() == 3 && py::array_t<float, py::array::f_style>::check_(I)) {
    const auto source = I.cast<py::array_t<float, py::array::f_style>>();
    const cube image(const_cast<float*>(source.data()), source.shape(0), source.shape(1),
                     source.shape(2), false, true);
    use(image);
  } else if (I.ndim() == 3 && py::array_t<float, py::array::c_style>::check_(I)) {
    use(transposed_image(I.cast<py::array_t<float, py::array::c_style>>()));
  } else {
    use(to_cube(I.cast<float_array>()));
  }
}

// A k-deep pair of result cubes.
using ranked = std::pair<py::array_t<float>, py::array_t<float>>;

template <typename Routine>
ranked run_ranked(Routine routine, const py::array& I, const float_array& wavelengths,
                  const float_array& spectra, const py::object& spectra_waves, int k) {
  const vector waves = to_vector(wavelengths);
  const matrix references = to_matrix(spectra);
  const vector references_waves = optional_vector(spectra_waves);
  cube values, indexes;
  with_image(I, [&](const cube& image) {
    py::gil_scoped_release release;
    routine(image, waves, references, references_waves, values, indexes, k);
  });
  return {to_numpy(values), to_numpy(indexes)};
}

}  // namespace

const binder classification_part(55, [](py::module_& m) {
  m.def(
      "sam",
      [](const py::array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves,
         int k) { return run_ranked(corv::sam, I, wavelengths, spectra, spectra_waves, k); },
      py::arg("I"), py::arg("wavelengths"), py::arg("spectra"),
      py::arg("spectra_waves") = py::none(), py::arg("k") = 5,
      "Spectral angle mapper. spectra: one reference per row; spectra_waves: their wavelengths "
      "(None or empty: the image's). Returns (angles in degrees, reference numbers from 1), both "
      "rows x columns x k, best first.");
  m.def(
      "unmix_by_spectra",
      [](const py::array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves, int k) {
        return run_ranked(corv::unmix_by_spectra, I, wavelengths, spectra, spectra_waves, k);
      },
      py::arg("I"), py::arg("wavelengths"), py::arg("spectra"),
      py::arg("spectra_waves") = py::none(), py::arg("k") = 5,
      "Non-negative unmixing of every pixel over its k best references by spectral angle. Returns "
      "(fractions summing to 1, reference numbers from 1), both rows x columns x k.");
  m.def(
      "svm",
      [](const py::array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves, const py::object& labels) {
        const vector waves = to_vector(wavelengths);
        const matrix references = to_matrix(spectra);
        const vector references_waves = optional_vector(spectra_waves);
        vector used = optional_vector(labels);
        matrix predicted;
        with_image(I, [&](const cube& image) {
          py::gil_scoped_release release;
          corv::svm(image, waves, references, references_waves, used, predicted);
        });
        return std::make_pair(to_numpy(used), to_numpy(predicted));
      },
      py::arg("I"), py::arg("wavelengths"), py::arg("spectra"),
      py::arg("spectra_waves") = py::none(), py::arg("labels") = py::none(),
      "Labels every pixel with a linear support vector machine trained on the references "
      "(reference i of class labels[i]; None or unusable labels become 1..n). Returns (the labels "
      "used, the rows x columns label matrix).");
  m.def(
      "resample_endmembers",
      [](const float_array& spectra, const float_array& spectra_waves,
         const float_array& wavelengths) {
        return to_numpy(corv::resample_endmembers(to_matrix(spectra), to_vector(spectra_waves),
                                                  to_vector(wavelengths)));
      },
      py::arg("spectra"), py::arg("spectra_waves"), py::arg("wavelengths"),
      "The references (one per row, at spectra_waves) read at the wavelengths from the curve "
      "through each.");
  m.def(
      "nnls",
      [](const float_array& A, const float_array& b) {
        return to_numpy(corv::nnls(to_matrix(A), to_vector(b)));
      },
      py::arg("A"), py::arg("b"),
      "Non-negative least squares (Lawson and Hanson): the x >= 0 minimising |A x - b|.");
});

}  // namespace corv::python

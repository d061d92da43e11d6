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
  return to_vector(values);
}

// A k-deep pair of result cubes.
using ranked = std::pair<py::array_t<float>, py::array_t<float>>;

// The image is read where it lies, in either order (see image_view).
template <typename Routine>
ranked run_ranked(Routine routine, const float_array& I, const float_array& wavelengths,
                  const float_array& spectra, const py::object& spectra_waves, int k) {
  const vector waves = to_vector(wavelengths);
  const matrix references = to_matrix(spectra);
  const vector references_waves = optional_vector(spectra_waves);
  py::object keep;
  const image_view image = view_of(I, keep);
  cube values, indexes;
  {
    py::gil_scoped_release release;
    routine(image, waves, references, references_waves, values, indexes, k);
  }
  return {to_numpy(std::move(values)), to_numpy(std::move(indexes))};
}

}  // namespace

const binder classification_part(55, [](py::module_& m) {
  m.def(
      "sam",
      [](const float_array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves, int k) {
        return run_ranked(
            [](const image_view& image, auto&&... rest) { corv::sam(image, rest...); }, I,
            wavelengths, spectra, spectra_waves, k);
      },
      py::arg("I"), py::arg("wavelengths"), py::arg("spectra"),
      py::arg("spectra_waves") = py::none(), py::arg("k") = 5,
      "Spectral angle mapper. spectra: one reference per row; spectra_waves: their wavelengths "
      "(None or empty: the image's). Returns (angles in degrees, reference numbers from 1), both "
      "rows x columns x k, best first.");
  m.def(
      "unmix_by_spectra",
      [](const float_array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves, int k) {
        return run_ranked(
            [](const image_view& image, auto&&... rest) { corv::unmix_by_spectra(image, rest...); },
            I, wavelengths, spectra, spectra_waves, k);
      },
      py::arg("I"), py::arg("wavelengths"), py::arg("spectra"),
      py::arg("spectra_waves") = py::none(), py::arg("k") = 5,
      "Non-negative unmixing of every pixel over its k best references by spectral angle. Returns "
      "(fractions summing to 1, reference numbers from 1), both rows x columns x k.");
  m.def(
      "svm",
      [](const float_array& I, const float_array& wavelengths, const float_array& spectra,
         const py::object& spectra_waves, const py::object& labels) {
        const vector waves = to_vector(wavelengths);
        const matrix references = to_matrix(spectra);
        const vector references_waves = optional_vector(spectra_waves);
        vector used = optional_vector(labels);
        const cube image = to_cube(I);
        matrix predicted;
        {
          py::gil_scoped_release release;
          corv::svm(image, waves, references, references_waves, used, predicted);
        }
        return std::make_pair(to_numpy(std::move(used)), to_numpy(std::move(predicted)));
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

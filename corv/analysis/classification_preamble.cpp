#include "corv/analysis/classification_preamble.h"

#include <cmath>
#include <limits>

#include "corv/analysis/resample_endmembers.h"
#include "corv/io/image_view.h"
#include "corv/io/logger.h"

namespace corv {

namespace {

constexpr float wave_tolerance = std::numeric_limits<float>::epsilon();

bool close(float a, float b) {
  return std::fabs(a - b) <= wave_tolerance;
}

bool has_wave(const vector& waves, float wavelength) {
  for (const float w : waves) {
    if (close(w, wavelength)) {
      return true;
    }
  }
  return false;
}

}  // namespace

aligned_references align_references(const std::string& routine, arma::uword rows, arma::uword cols,
                                    arma::uword bands, const vector& wavelengths,
                                    const matrix& spectra, const vector& spectra_waves) {
  const std::string prefix = routine + ": ";
  if (rows == 0 || cols == 0 || bands == 0) {
    log_and_throw(prefix + "Data size is incorrect.");
  }
  if (spectra.n_rows < 1) {
    log_and_throw(prefix + "Spectra are required");
  }
  if (wavelengths.n_elem != bands) {
    log_and_throw(prefix + "Wavelengths must have same bands as I");
  }
  if (spectra_waves.empty()) {
    if (spectra.n_cols != bands) {
      log_and_throw(prefix + "Data size is incorrect: spectra waves must be given for resize.");
    }
    return {band_list(), spectra};
  }

  band_list kept;
  vector kept_waves = wavelengths;
  if (spectra_waves.n_elem != bands) {
    for (arma::uword b = 0; b < bands; ++b) {
      if (has_wave(spectra_waves, wavelengths(b))) {
        kept.push_back(static_cast<unsigned>(b));
      }
    }
    if (kept.size() < 2) {
      log_and_throw("unmix_by_spectra: No matching image bands between image and library.");
    }
    kept_waves = wavelengths(arma::conv_to<arma::uvec>::from(kept));
    bool aligned = kept_waves.n_elem == spectra_waves.n_elem;
    for (arma::uword i = 0; aligned && i < kept.size(); ++i) {
      aligned = close(kept_waves(i), spectra_waves(i));
    }
    if (!aligned) {
      log_and_throw(prefix + "For some reason, could not align data.");
    }
    logger::instance() << "Data matches after band removal."
                       << "EOL";
  }
  return {kept, resample_endmembers(spectra, spectra_waves, kept_waves)};
}

classification_inputs prepare_classification(const std::string& routine, const cube& I,
                                             const vector& wavelengths, const matrix& spectra,
                                             const vector& spectra_waves) {
  aligned_references aligned = align_references(routine, I.n_rows, I.n_cols, I.n_slices,
                                                wavelengths, spectra, spectra_waves);
  cube reduced = aligned.kept.empty() ? cube() : image_view::of(I).copy(aligned.kept);
  return classification_inputs(I, std::move(reduced), std::move(aligned.references));
}

arma::uword result_count(int k, arma::uword spectra) {
  if (k < 1 || static_cast<arma::uword>(k) > spectra) {
    return std::min<arma::uword>(5, spectra);
  }
  return static_cast<arma::uword>(k);
}

}  // namespace corv

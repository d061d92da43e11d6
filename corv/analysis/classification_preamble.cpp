#include "corv/analysis/classification_preamble.h"

#include <cmath>
#include <limits>

#include "corv/analysis/resample_endmembers.h"
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

classification_inputs prepare_classification(const std::string& routine, const cube& I,
                                             const vector& wavelengths, const matrix& spectra,
                                             const vector& spectra_waves) {
  const std::string prefix = routine + ": ";
  if (I.n_rows == 0 || I.n_cols == 0 || I.n_slices == 0) {
    log_and_throw(prefix + "Data size is incorrect.");
  }
  if (spectra.n_rows < 1) {
    log_and_throw(prefix + "Spectra are required");
  }
  if (wavelengths.n_elem != I.n_slices) {
    log_and_throw(prefix + "Wavelengths must have same bands as I");
  }
  if (spectra_waves.empty()) {
    if (spectra.n_cols != I.n_slices) {
      log_and_throw(prefix + "Data size is incorrect: spectra waves must be given for resize.");
    }
    return classification_inputs(I, cube(), spectra);
  }

  cube reduced;
  vector kept_waves = wavelengths;
  if (spectra_waves.n_elem != I.n_slices) {
    arma::uvec kept(I.n_slices);
    arma::uword count = 0;
    for (arma::uword b = 0; b < I.n_slices; ++b) {
      if (has_wave(spectra_waves, wavelengths(b))) {
        kept(count++) = b;
      }
    }
    if (count < 2) {
      log_and_throw("unmix_by_spectra: No matching image bands between image and library.");
    }
    kept.resize(count);
    kept_waves = wavelengths(kept);
    bool aligned = kept_waves.n_elem == spectra_waves.n_elem;
    for (arma::uword i = 0; aligned && i < count; ++i) {
      aligned = close(kept_waves(i), spectra_waves(i));
    }
    if (!aligned) {
      log_and_throw(prefix + "For some reason, could not align data.");
    }
    reduced.set_size(I.n_rows, I.n_cols, count);
    for (arma::uword i = 0; i < count; ++i) {
      reduced.slice(i) = I.slice(kept(i));
    }
    logger::instance() << "Data matches after band removal."
                       << "EOL";
  }
  matrix references = resample_endmembers(spectra, spectra_waves, kept_waves);
  return classification_inputs(I, std::move(reduced), std::move(references));
}

arma::uword result_count(int k, arma::uword spectra) {
  if (k < 1 || static_cast<arma::uword>(k) > spectra) {
    return std::min<arma::uword>(5, spectra);
  }
  return static_cast<arma::uword>(k);
}

}  // namespace corv

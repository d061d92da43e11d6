#include "corv/analysis/resample_endmembers.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "corv/io/logger.h"
#include "corv/spectral/nurbs_basis.h"

namespace corv {

namespace {

[[noreturn]] void fit_failed() {
  log_and_throw("resample_endmembers: NURBS interpolation failed somehow!");
}

// A curve of unit weights through points at fixed wavelengths; one fit serves
// every spectrum sampled at those wavelengths, since only the values differ.
class curve_fit {
 public:
  explicit curve_fit(const vector& waves);

  // Control values (points x spectra) of the curves through the given values
  // (points x spectra).
  arma::mat control_values(arma::mat values) const;
  // Every curve read at the targets (targets x spectra).
  arma::mat evaluate(const arma::mat& controls, const vector& targets) const;

 private:
  double& band(arma::uword row, arma::uword col) {
    return bands_[row * width_ + col + degree_ - row];
  }
  double band(arma::uword row, arma::uword col) const {
    return bands_[row * width_ + col + degree_ - row];
  }

  arma::uword points_;
  unsigned degree_;
  arma::uword width_;
  double first_wave_;
  double span_of_waves_;
  std::vector<double> knots_;
  // The interpolation matrix, banded (every entry within degree_ of the
  // diagonal), factorised in place into L (unit diagonal) and U.
  std::vector<double> bands_;
};

curve_fit::curve_fit(const vector& waves) : points_(waves.n_elem) {
  if (points_ < 2) {
    fit_failed();
  }
  for (arma::uword i = 0; i < points_; ++i) {
    if (!std::isfinite(waves(i)) || (i > 0 && !(waves(i) > waves(i - 1)))) {
      fit_failed();
    }
  }
  degree_ = static_cast<unsigned>(std::min<arma::uword>(3, points_ - 1));
  width_ = 2 * degree_ + 1;
  first_wave_ = waves(0);
  span_of_waves_ = double(waves(points_ - 1)) - first_wave_;

  // Parameters proportional to wavelength; knots by averaging them, which keeps
  // every parameter within the support the interpolation matrix needs.
  std::vector<double> parameters(points_);
  for (arma::uword i = 0; i < points_; ++i) {
    parameters[i] = (double(waves(i)) - first_wave_) / span_of_waves_;
  }
  parameters[points_ - 1] = 1.0;
  const arma::uword last = points_ - 1;
  knots_ = nurbs_averaged_knots(parameters, degree_);

  bands_.assign(points_ * width_, 0.0);
  double values[4], scratch[8];
  for (arma::uword k = 0; k < points_; ++k) {
    const arma::uword span = nurbs_find_span(knots_, degree_, parameters[k]);
    nurbs_basis(knots_, span, degree_, parameters[k], values, scratch);
    for (arma::uword r = 0; r <= degree_; ++r) {
      const arma::uword col = span - degree_ + r;
      if (col + degree_ < k || col > k + degree_) {
        fit_failed();
      }
      band(k, col) = values[r];
    }
  }
  // The matrix is totally positive, so elimination without pivoting is stable.
  for (arma::uword k = 0; k < points_; ++k) {
    const double pivot = band(k, k);
    if (!(std::fabs(pivot) > 1e-12)) {
      fit_failed();
    }
    const arma::uword end = std::min(k + degree_, last);
    for (arma::uword i = k + 1; i <= end; ++i) {
      const double factor = band(i, k) / pivot;
      band(i, k) = factor;
      for (arma::uword j = k + 1; j <= end; ++j) {
        band(i, j) -= factor * band(k, j);
      }
    }
  }
}

arma::mat curve_fit::control_values(arma::mat values) const {
  const arma::uword last = points_ - 1;
  for (arma::uword s = 0; s < values.n_cols; ++s) {
    double* x = values.colptr(s);
    for (arma::uword i = 1; i < points_; ++i) {
      for (arma::uword k = i > degree_ ? i - degree_ : 0; k < i; ++k) {
        x[i] -= band(i, k) * x[k];
      }
    }
    for (arma::uword i = points_; i-- > 0;) {
      for (arma::uword j = i + 1; j <= std::min(i + degree_, last); ++j) {
        x[i] -= band(i, j) * x[j];
      }
      x[i] /= band(i, i);
    }
  }
  return values;
}

arma::mat curve_fit::evaluate(const arma::mat& controls, const vector& targets) const {
  arma::mat out(targets.n_elem, controls.n_cols);
  arma::uword outside = 0;
  double values[4], scratch[8];
  for (arma::uword t = 0; t < targets.n_elem; ++t) {
    if (!std::isfinite(targets(t))) {
      fit_failed();
    }
    double u = (double(targets(t)) - first_wave_) / span_of_waves_;
    if (u < 0.0 || u > 1.0) {
      ++outside;
      u = std::min(std::max(u, 0.0), 1.0);
    }
    const std::size_t span = nurbs_find_span(knots_, degree_, u);
    nurbs_basis(knots_, span, degree_, u, values, scratch);
    for (arma::uword s = 0; s < controls.n_cols; ++s) {
      out(t, s) = nurbs_combine(values, controls.colptr(s), span, degree_);
    }
  }
  if (outside > 0) {
    logger::instance() << "resample_endmembers: " << outside
                       << " wavelengths lie outside the references' range (" << first_wave_ << " - "
                       << first_wave_ + span_of_waves_
                       << "); each takes the value at the nearest end."
                       << "EOL";
  }
  return out;
}

}  // namespace

matrix resample_endmembers(const matrix& spectra, const vector& spectra_waves,
                           const vector& wavelengths) {
  if (spectra.n_cols != spectra_waves.n_elem) {
    log_and_throw("resample_endmembers: Incorrect dimensions.");
  }
  const curve_fit fit(spectra_waves);
  if (!spectra.is_finite()) {
    fit_failed();
  }
  const arma::mat controls = fit.control_values(arma::conv_to<arma::mat>::from(spectra).t());
  const arma::mat resampled = fit.evaluate(controls, wavelengths);
  if (!resampled.is_finite()) {
    fit_failed();
  }
  return arma::conv_to<matrix>::from(resampled.t());
}

}  // namespace corv

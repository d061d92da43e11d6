#include "tavr/camera/capture_spectra.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>

namespace tavr {

namespace {

// Linear interpolation weights of `at` on the ascending grid `x` (clamped at the ends).
void add_interpolation(const arma::vec& x, double at, arma::rowvec& row) {
  const arma::uword n = x.n_elem;
  if (at <= x(0)) {
    row(0) += 1.0;
    return;
  }
  if (at >= x(n - 1)) {
    row(n - 1) += 1.0;
    return;
  }
  const auto upper = static_cast<arma::uword>(std::upper_bound(x.begin(), x.end(), at) - x.begin());
  const double t = (at - x(upper - 1)) / (x(upper) - x(upper - 1));
  row(upper - 1) += 1.0 - t;
  row(upper) += t;
}

// The smoothest spectrum on `grid` (nm) that the filters see as the measured
// bands: (R'R + lambda D'D)^-1 R', samples x bands.
arma::mat reconstruction(const arma::mat& responses) {
  const arma::uword samples = responses.n_cols;
  arma::mat second(samples - 2, samples, arma::fill::zeros);
  for (arma::uword i = 0; i + 2 < samples; ++i) {
    second(i, i) = 1.0;
    second(i, i + 1) = -2.0;
    second(i, i + 2) = 1.0;
  }
  const arma::mat normal = responses.t() * responses;
  // Smoothness weighed at a small fraction of the filters' own energy.
  const double lambda = 1e-2 * arma::mean(normal.diag());
  return arma::solve(normal + lambda * (second.t() * second), responses.t(),
                     arma::solve_opts::likely_sympd);
}

}  // namespace

std::vector<int> wavelength_order(const std::vector<float>& wavelengths) {
  std::vector<int> order(wavelengths.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    return wavelengths[static_cast<std::size_t>(a)] < wavelengths[static_cast<std::size_t>(b)];
  });
  return order;
}

spectral_smoother::spectral_smoother(const std::vector<float>& wavelengths,
                                     const corv::matrix& responses, int range_start, int count) {
  const arma::uword bands = wavelengths.size();
  if (bands < 2 || count < 2) {
    throw std::runtime_error("spectral_smoother: Cannot make " + std::to_string(count) +
                             " bands from " + std::to_string(bands) + ".");
  }
  const double first = wavelengths.front();
  const double last = wavelengths.back();
  const arma::vec targets = arma::linspace<arma::vec>(first, last, static_cast<arma::uword>(count));
  wavelengths_ = arma::conv_to<corv::vector>::from(targets);

  arma::mat sample_at;  // count x bands
  if (responses.n_rows == bands && responses.n_cols >= 3) {
    // Only the part of the response range around the bands matters.
    const int lowest = std::max(range_start, static_cast<int>(first) - 40);
    const int highest =
        std::min(range_start + static_cast<int>(responses.n_cols) - 1, static_cast<int>(last) + 40);
    if (highest - lowest >= 2) {
      const arma::mat used = arma::conv_to<arma::mat>::from(
          responses.cols(static_cast<arma::uword>(lowest - range_start),
                         static_cast<arma::uword>(highest - range_start)));
      const arma::vec grid = arma::regspace<arma::vec>(lowest, highest);
      arma::mat to_targets(static_cast<arma::uword>(count), grid.n_elem, arma::fill::zeros);
      for (arma::uword k = 0; k < targets.n_elem; ++k) {
        arma::rowvec row = to_targets.row(k);
        add_interpolation(grid, targets(k), row);
        to_targets.row(k) = row;
      }
      sample_at = to_targets * reconstruction(used);
      // A flat spectrum comes out at the mean level of its bands.
      const arma::vec flat_bands = arma::sum(used, 1);
      const double level = arma::mean(flat_bands);
      const double out = arma::mean(sample_at * flat_bands);
      if (out > 0.0) {
        sample_at *= level / out;
      }
    }
  }
  if (sample_at.is_empty()) {
    const arma::vec x =
        arma::conv_to<arma::vec>::from(std::vector<double>(wavelengths.begin(), wavelengths.end()));
    sample_at.zeros(static_cast<arma::uword>(count), bands);
    for (arma::uword k = 0; k < targets.n_elem; ++k) {
      arma::rowvec row = sample_at.row(k);
      add_interpolation(x, targets(k), row);
      sample_at.row(k) = row;
    }
  }
  weights_ = arma::conv_to<corv::matrix>::from(sample_at);
}

corv::cube spectral_smoother::apply(const corv::cube& cube) const {
  if (cube.n_slices != weights_.n_cols) {
    throw std::runtime_error("spectral_smoother: The cube has " + std::to_string(cube.n_slices) +
                             " bands, not " + std::to_string(weights_.n_cols) + ".");
  }
  corv::cube out(cube.n_rows, cube.n_cols, weights_.n_rows, arma::fill::zeros);
  for (arma::uword k = 0; k < weights_.n_rows; ++k) {
    for (arma::uword b = 0; b < weights_.n_cols; ++b) {
      out.slice(k) += weights_(k, b) * cube.slice(b);
    }
  }
  return out;
}

}  // namespace tavr

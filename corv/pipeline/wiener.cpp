#include "corv/pipeline/wiener.h"

#include <algorithm>
#include <stdexcept>

namespace corv {

matrix window_sums(const matrix& values, int window_rows, int window_cols) {
  const long rows = values.n_rows, cols = values.n_cols;
  // Summed-area table in double so that long sums keep their precision.
  arma::mat table(rows + 1, cols + 1, arma::fill::zeros);
  for (long c = 0; c < cols; ++c) {
    double column_sum = 0.0;
    for (long r = 0; r < rows; ++r) {
      column_sum += values(r, c);
      table(r + 1, c + 1) = table(r + 1, c) + column_sum;
    }
  }
  const long back_r = (window_rows - 1) - window_rows / 2, ahead_r = window_rows / 2;
  const long back_c = (window_cols - 1) - window_cols / 2, ahead_c = window_cols / 2;
  matrix sums(rows, cols);
#pragma omp parallel for schedule(static)
  for (long c = 0; c < cols; ++c) {
    const long c0 = std::max(0L, c - back_c), c1 = std::min(cols, c + ahead_c + 1);
    for (long r = 0; r < rows; ++r) {
      const long r0 = std::max(0L, r - back_r), r1 = std::min(rows, r + ahead_r + 1);
      sums(r, c) =
          static_cast<float>(table(r1, c1) - table(r0, c1) - table(r1, c0) + table(r0, c0));
    }
  }
  return sums;
}

matrix wiener_filter(const matrix& band, int window_rows, int window_cols) {
  if (window_rows < 1 || window_cols < 1) {
    throw std::runtime_error("wiener_filter: Window must have at least two dimensions.");
  }
  const float area = static_cast<float>(window_rows) * static_cast<float>(window_cols);
  const matrix mean = window_sums(band, window_rows, window_cols) / area;
  const matrix variance =
      window_sums(arma::square(band), window_rows, window_cols) / area - arma::square(mean);
  const float noise =
      band.empty() ? 0.0f : static_cast<float>(arma::mean(arma::vectorise(variance)));
  matrix out(arma::size(band));
  for (arma::uword i = 0; i < band.n_elem; ++i) {
    const float v = variance(i);
    const float gain = std::max(v - noise, 0.0f) / std::max(v, noise);
    out(i) = mean(i) + (gain == gain ? gain : 0.0f) * (band(i) - mean(i));
  }
  return out;
}

}  // namespace corv

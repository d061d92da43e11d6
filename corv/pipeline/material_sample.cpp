#include "corv/pipeline/material_sample.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace corv {

namespace {

// Sums over the (2 r + 1)^2 window centred on each element, the window cut at
// the borders.
arma::mat box_sums(const arma::mat& values, arma::uword r) {
  const arma::mat down = arma::cumsum(values, 0);
  arma::mat columns(arma::size(values));
  const arma::uword rows = values.n_rows, cols = values.n_cols;
  for (arma::uword i = 0; i < rows; ++i) {
    const arma::uword last = std::min(rows - 1, i + r);
    columns.row(i) = down.row(last);
    if (i > r) {
      columns.row(i) -= down.row(i - r - 1);
    }
  }
  const arma::mat across = arma::cumsum(columns, 1);
  arma::mat sums(arma::size(values));
  for (arma::uword j = 0; j < cols; ++j) {
    const arma::uword last = std::min(cols - 1, j + r);
    sums.col(j) = across.col(last);
    if (j > r) {
      sums.col(j) -= across.col(j - r - 1);
    }
  }
  return sums;
}

// One over the norm of every usable pixel's spectrum, 0 for the others.
arma::mat usable_inverse_norms(const cube& s, const matrix& g) {
  arma::mat squares(s.n_rows, s.n_cols, arma::fill::zeros);
  for (arma::uword b = 0; b < s.n_slices; ++b) {
    squares += arma::square(arma::conv_to<arma::mat>::from(s.slice(b)));
  }
  float lit = 0.0f;
  if (!g.empty()) {
    std::vector<float> shading;
    shading.reserve(g.n_elem);
    for (const float value : g) {
      if (std::isfinite(value) && value > 0.0f) {
        shading.push_back(value);
      }
    }
    if (!shading.empty()) {
      const auto at = shading.begin() + static_cast<long>(0.99 * (shading.size() - 1));
      std::nth_element(shading.begin(), at, shading.end());
      lit = lit_fraction * *at;
    }
  }
  arma::mat inverse(arma::size(squares));
  for (arma::uword p = 0; p < squares.n_elem; ++p) {
    const bool shaded = g.empty() || (std::isfinite(g(p)) && g(p) > lit);
    inverse(p) =
        shaded && std::isfinite(squares(p)) && squares(p) > 0.0 ? 1.0 / std::sqrt(squares(p)) : 0.0;
  }
  return inverse;
}

}  // namespace

matrix neighbourhood_coherence(const cube& s, const matrix& g) {
  const arma::mat inverse = usable_inverse_norms(s, g);
  const long bands = static_cast<long>(s.n_slices);
  const int threads = std::max(1, omp_get_max_threads());
  // Per thread: sum over bands of u . window and of window^2.
  std::vector<arma::mat> dots(threads, arma::mat(arma::size(inverse), arma::fill::zeros));
  std::vector<arma::mat> squares(threads, arma::mat(arma::size(inverse), arma::fill::zeros));
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < bands; ++b) {
    const int thread = omp_get_thread_num();
    const arma::mat unit =
        arma::conv_to<arma::mat>::from(s.slice(static_cast<arma::uword>(b))) % inverse;
    const arma::mat window = box_sums(unit, neighbourhood_radius);
    dots[thread] += unit % window;
    squares[thread] += arma::square(window);
  }
  for (int t = 1; t < threads; ++t) {
    dots[0] += dots[t];
    squares[0] += squares[t];
  }
  matrix coherence(arma::size(inverse), arma::fill::zeros);
  for (arma::uword p = 0; p < coherence.n_elem; ++p) {
    if (inverse(p) > 0.0 && squares[0](p) > 0.0) {
      coherence(p) = static_cast<float>(std::min(1.0, dots[0](p) / std::sqrt(squares[0](p))));
    }
  }
  return coherence;
}

arma::uvec interior_sample(const cube& s, const matrix& g, arma::uword block) {
  const matrix coherence = neighbourhood_coherence(s, g);
  const arma::uword rows = s.n_rows, cols = s.n_cols;
  block = std::max<arma::uword>(1, block);
  const float smooth = static_cast<float>(std::cos(smooth_angle * 3.14159265358979 / 180.0));
  std::vector<arma::uword> best, smooth_best;
  for (arma::uword c0 = 0; c0 < cols; c0 += block) {
    for (arma::uword r0 = 0; r0 < rows; r0 += block) {
      float highest = 0.0f;
      arma::uword chosen = 0;
      for (arma::uword c = c0; c < std::min(cols, c0 + block); ++c) {
        for (arma::uword r = r0; r < std::min(rows, r0 + block); ++r) {
          if (coherence(r, c) > highest) {
            highest = coherence(r, c);
            chosen = r + c * rows;
          }
        }
      }
      if (highest > 0.0f) {
        best.push_back(chosen);
        if (highest >= smooth) {
          smooth_best.push_back(chosen);
        }
      }
    }
  }
  arma::uvec result(smooth_best.empty() ? best : smooth_best);
  return arma::sort(result);
}

}  // namespace corv

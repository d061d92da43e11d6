#include "corv/pipeline/material_sample.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace corv {

namespace {

// One over the norm of every usable pixel's spectrum (0 for the others), and
// the 99th percentile of the image's shading (0 without shading).
struct usable_pixels {
  std::vector<float> inverse;
  float bright_shading = 0.0f;
};

usable_pixels usable_inverse_norms(const cube& s, const matrix& g) {
  const arma::uword plane = s.n_rows * s.n_cols;
  std::vector<double> squares(plane, 0.0);
  for (arma::uword b = 0; b < s.n_slices; ++b) {
    const float* band = s.slice_memptr(b);
    for (arma::uword p = 0; p < plane; ++p) {
      squares[p] += static_cast<double>(band[p]) * band[p];
    }
  }
  usable_pixels usable;
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
      usable.bright_shading = *at;
    }
  }
  const float lit = lit_fraction * usable.bright_shading;
  usable.inverse.resize(plane);
  for (arma::uword p = 0; p < plane; ++p) {
    const bool shaded = g.empty() || (std::isfinite(g(p)) && g(p) > lit);
    usable.inverse[p] = shaded && std::isfinite(squares[p]) && squares[p] > 0.0
                            ? static_cast<float>(1.0 / std::sqrt(squares[p]))
                            : 0.0f;
  }
  return usable;
}

// The window sums of one band's unit values, down the columns (which lie
// contiguous in memory) and then across them; the window is cut at the borders.
void box_sums(const std::vector<float>& unit, arma::uword rows, arma::uword cols,
              std::vector<float>& down, std::vector<float>& sums) {
  const long r = static_cast<long>(neighbourhood_radius);
  const long n = static_cast<long>(rows);
  for (arma::uword c = 0; c < cols; ++c) {
    const float* in = &unit[c * rows];
    float* out = &down[c * rows];
    float window = 0.0f;
    for (long i = 0; i < std::min(n, r); ++i) {
      window += in[i];
    }
    for (long i = 0; i < n; ++i) {
      if (i + r < n) {
        window += in[i + r];
      }
      if (i - r - 1 >= 0) {
        window -= in[i - r - 1];
      }
      out[i] = window;
    }
  }
  for (arma::uword c = 0; c < cols; ++c) {
    float* out = &sums[c * rows];
    std::fill(out, out + rows, 0.0f);
    const arma::uword first = c >= neighbourhood_radius ? c - neighbourhood_radius : 0;
    const arma::uword last = std::min(cols - 1, c + neighbourhood_radius);
    for (arma::uword j = first; j <= last; ++j) {
      const float* in = &down[j * rows];
      for (arma::uword i = 0; i < rows; ++i) {
        out[i] += in[i];
      }
    }
  }
}

}  // namespace

matrix neighbourhood_coherence(const cube& s, const matrix& g, const matrix& k) {
  const arma::uword rows = s.n_rows, cols = s.n_cols, plane = rows * cols;
  const usable_pixels usable = usable_inverse_norms(s, g);
  const std::vector<float>& inverse = usable.inverse;
  const long bands = static_cast<long>(s.n_slices);
  const int threads = std::max(1, omp_get_max_threads());
  // Per thread: sums over bands of u . window and of window^2.
  std::vector<std::vector<float>> dots(threads), squares(threads);
#pragma omp parallel
  {
    const int thread = omp_get_thread_num();
    std::vector<float>& dot = dots[thread];
    std::vector<float>& square = squares[thread];
    std::vector<float> unit(plane), down(plane), window(plane);
    // A static schedule gives every thread the same bands on every run, so
    // that the sums, and the pixels chosen, repeat exactly.
#pragma omp for schedule(static)
    for (long b = 0; b < bands; ++b) {
      if (dot.empty()) {
        dot.assign(plane, 0.0f);
        square.assign(plane, 0.0f);
      }
      const float* band = s.slice_memptr(static_cast<arma::uword>(b));
      for (arma::uword p = 0; p < plane; ++p) {
        unit[p] = band[p] * inverse[p];
      }
      box_sums(unit, rows, cols, down, window);
      for (arma::uword p = 0; p < plane; ++p) {
        dot[p] += unit[p] * window[p];
        square[p] += window[p] * window[p];
      }
    }
  }
  // Pixels whose neighbourhood holds a highlight: a specular share whose
  // spectrum (k on every band) is brighter than highlight_fraction of the
  // image's bright shading.
  std::vector<float> near_highlight;
  if (!k.empty() && k.n_rows == rows && k.n_cols == cols && usable.bright_shading > 0.0f) {
    const float bright =
        highlight_fraction * usable.bright_shading / std::sqrt(static_cast<float>(s.n_slices));
    std::vector<float> highlight(plane), down(plane);
    for (arma::uword p = 0; p < plane; ++p) {
      highlight[p] = inverse[p] > 0.0f && k(p) > bright ? 1.0f : 0.0f;
    }
    near_highlight.resize(plane);
    box_sums(highlight, rows, cols, down, near_highlight);
  }
  const long r = static_cast<long>(neighbourhood_radius);
  const double least_length = std::cos(window_spread_angle * 3.14159265358979 / 180.0);
  matrix coherence(rows, cols, arma::fill::zeros);
  for (arma::uword p = 0; p < plane; ++p) {
    double dot = 0.0, square = 0.0;
    for (int t = 0; t < threads; ++t) {
      if (!dots[t].empty()) {
        dot += dots[t][p];
        square += squares[t][p];
      }
    }
    if (inverse[p] <= 0.0f || square <= 0.0) {
      continue;
    }
    coherence(p) = static_cast<float>(std::min(1.0, dot / std::sqrt(square)));
    // The mean of the window's unit spectra, the unusable pixels counting as
    // zero: its length falls below 1 as the spectra spread or the window
    // reaches into unlit pixels. A pixel near a highlight or in a mixed
    // window keeps half its coherence, below every interior pixel's.
    const long row = static_cast<long>(p % rows), col = static_cast<long>(p / rows);
    const long height =
        std::min<long>(static_cast<long>(rows) - 1, row + r) - std::max<long>(0, row - r) + 1;
    const long width =
        std::min<long>(static_cast<long>(cols) - 1, col + r) - std::max<long>(0, col - r) + 1;
    if ((!near_highlight.empty() && near_highlight[p] > 0.5f) ||
        std::sqrt(square) / static_cast<double>(height * width) < least_length) {
      coherence(p) *= 0.5f;
    }
  }
  return coherence;
}

arma::uword sample_block(arma::uword rows, arma::uword cols, arma::uword block) {
  block = std::max<arma::uword>(1, block);
  while (((rows + block - 1) / block) * ((cols + block - 1) / block) > max_sampled_pixels) {
    block *= 2;
  }
  return block;
}

arma::uvec interior_sample(const cube& s, const matrix& g, const matrix& k, arma::uword block) {
  const matrix coherence = neighbourhood_coherence(s, g, k);
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

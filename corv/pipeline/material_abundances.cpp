#include "corv/pipeline/material_abundances.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <string>

#include "corv/io/logger.h"
#include "corv/pipeline/materials.h"

namespace corv {

namespace {

constexpr arma::uword progress_rows = 20;
// An element whose part independent of the stronger elements is below this
// fraction of its squared norm is treated as explained by them.
constexpr double dependence = 1e-6;

}  // namespace

element_mixer::element_mixer(const matrix& elements, arma::uword slots)
    : gram_(arma::conv_to<arma::mat>::from(elements).t() *
            arma::conv_to<arma::mat>::from(elements)),
      slots_(slots),
      used_(std::min<arma::uword>(slots, elements.n_cols)),
      order_(used_),
      ranks_(used_),
      factor_(used_ * used_),
      solution_(used_),
      active_(used_) {}

void element_mixer::mix(const float* products, float* weights, float* numbers) {
  const arma::uword m = gram_.n_rows;
  // The used_ strongest elements, strongest first; ties keep element order and
  // a product that is not a number ranks last.
  arma::uword filled = 0;
  for (arma::uword j = 0; j < m; ++j) {
    const double value =
        std::isnan(products[j]) ? -std::numeric_limits<double>::infinity() : products[j];
    arma::uword at = filled;
    while (at > 0 && value > ranks_[at - 1]) {
      --at;
    }
    if (at >= used_) {
      continue;
    }
    for (arma::uword i = std::min(filled, used_ - 1); i > at; --i) {
      ranks_[i] = ranks_[i - 1];
      order_[i] = order_[i - 1];
    }
    ranks_[at] = value;
    order_[at] = j;
    filled = std::min(filled + 1, used_);
  }

  // Normal equations of the chosen elements, factorised in rank order; an
  // element dependent on the stronger ones drops out with weight 0.
  const arma::uword n = used_;
  double* factor = factor_.data();
  for (arma::uword i = 0; i < n; ++i) {
    const arma::uword si = order_[i];
    double diagonal = gram_(si, si);
    for (arma::uword k = 0; k < i; ++k) {
      double value = 0.0;
      if (active_[k]) {
        value = gram_(si, order_[k]);
        for (arma::uword l = 0; l < k; ++l) {
          value -= factor[i * n + l] * factor[k * n + l];
        }
        value /= factor[k * n + k];
      }
      factor[i * n + k] = value;
      diagonal -= value * value;
    }
    active_[i] = diagonal > dependence * gram_(si, si);
    factor[i * n + i] = active_[i] ? std::sqrt(diagonal) : 0.0;
  }
  for (arma::uword i = 0; i < n; ++i) {
    double value = 0.0;
    if (active_[i]) {
      value = products[order_[i]];
      for (arma::uword k = 0; k < i; ++k) {
        value -= factor[i * n + k] * solution_[k];
      }
      value /= factor[i * n + i];
    }
    solution_[i] = value;
  }
  for (arma::uword i = n; i-- > 0;) {
    double value = 0.0;
    if (active_[i]) {
      value = solution_[i];
      for (arma::uword k = i + 1; k < n; ++k) {
        value -= factor[k * n + i] * solution_[k];
      }
      value /= factor[i * n + i];
    }
    solution_[i] = value;
  }

  // Largest weight first (insertion sort: a handful of values, and no ordering
  // requirement broken by a weight that is not a number). Slots beyond the
  // elements add nothing (weight 0), name the element of the largest weight
  // and are sorted in like the others.
  const auto insert = [&](arma::uword filled, float weight, float number) {
    arma::uword at = filled;
    while (at > 0 && weight > weights[at - 1]) {
      weights[at] = weights[at - 1];
      numbers[at] = numbers[at - 1];
      --at;
    }
    weights[at] = weight;
    numbers[at] = number;
  };
  for (arma::uword i = 0; i < n; ++i) {
    insert(i, static_cast<float>(solution_[i]), static_cast<float>(order_[i]));
  }
  const float largest = n > 0 ? numbers[0] : 0.0f;
  for (arma::uword i = n; i < slots_; ++i) {
    insert(i, 0.0f, largest);
  }
}

void generate_elements(const matrix& elements, const cube& s, int materials_per_pixel,
                       int verbosity, cube& abundances, cube& abundance_indexes) {
  if (s.n_rows == 0 || s.n_cols == 0 || s.n_slices == 0) {
    log_and_throw("Generate Elements: Data size is incorrect.");
  }
  if (elements.n_rows != s.n_slices) {
    log_and_throw("Generate Elements: Non-compatible arrays");
  }
  if (elements.n_cols == 0) {
    log_and_throw("Generate Elements: No elements to mix.");
  }
  if (materials_per_pixel < 1) {
    log_and_throw("Generate Elements: Materials per pixel must be at least 1, not " +
                  std::to_string(materials_per_pixel) + ".");
  }
  logger& log = logger::instance();
  if (verbosity > 0) {
    log << "Beginning to calculate Material Abundances.."
        << "EOL";
  }
  const arma::uword rows = s.n_rows, cols = s.n_cols, bands = s.n_slices;
  const arma::uword m = elements.n_cols, slots = static_cast<arma::uword>(materials_per_pixel);
  const arma::uword plane = rows * cols;
  cube weights(rows, cols, slots, arma::fill::none);
  cube numbers(rows, cols, slots, arma::fill::none);
  const element_mixer prototype(elements, slots);
  const arma::uword blocks = (rows + progress_rows - 1) / progress_rows;
  std::atomic<bool> stop{false};
  arma::uword done = 0;

#pragma omp parallel
  {
    element_mixer mixer = prototype;
    std::vector<float> products(m * progress_rows), pixel(m), pixel_weights(slots),
        pixel_numbers(slots);
#pragma omp for schedule(dynamic)
    for (long block = 0; block < static_cast<long>(blocks); ++block) {
      if (stop.load(std::memory_order_relaxed)) {
        continue;
      }
      const arma::uword r0 = static_cast<arma::uword>(block) * progress_rows;
      const arma::uword n = std::min(progress_rows, rows - r0);
      for (arma::uword c = 0; c < cols; ++c) {
        std::fill(products.begin(), products.end(), 0.0f);
        for (arma::uword b = 0; b < bands; ++b) {
          const float* x = s.slice_colptr(b, c) + r0;
          for (arma::uword j = 0; j < m; ++j) {
            const float e = elements(b, j);
            float* product = &products[j * progress_rows];
            for (arma::uword r = 0; r < n; ++r) {
              product[r] += e * x[r];
            }
          }
        }
        for (arma::uword r = 0; r < n; ++r) {
          for (arma::uword j = 0; j < m; ++j) {
            pixel[j] = products[j * progress_rows + r];
          }
          mixer.mix(pixel.data(), pixel_weights.data(), pixel_numbers.data());
          const arma::uword at = r0 + r + c * rows;
          for (arma::uword i = 0; i < slots; ++i) {
            weights[at + i * plane] = pixel_weights[i];
            numbers[at + i * plane] = pixel_numbers[i];
          }
        }
      }
#pragma omp critical(material_abundance_progress)
      {
        done += n;
        if (verbosity > 2) {
          log << static_cast<int>(done * 100 / rows) << "% complete"
              << "EOL";
        }
        log.set_progress(50 + static_cast<int>(done * 50 / rows));
        if (log.abort_requested()) {
          stop = true;
        }
      }
    }
  }
  log.check_abort();

  abundances = std::move(weights);
  abundance_indexes = std::move(numbers);
  if (verbosity > 0) {
    log << "Finished calculating Material Abundances."
        << "EOL";
  }
}

}  // namespace corv

#include "corv/pipeline/smooth_patches.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>

#include "corv/io/logger.h"
#include "corv/pipeline/patch_decomposition.h"

namespace corv {

namespace {

// 25 degrees, the widest a pixel may lie from its patch's dichromatic plane.
const double angle_limit = std::cos(0.43633235);
constexpr double homogeneous_fraction = 0.7;

struct found_patch {
  int row;
  int col;
  float score;
};

// Whether a patch's pixels lie close enough to one plane to be the two-colour
// mix of a single material: at least 70% of them within 25 degrees of it.
bool homogeneous(const arma::mat& spectra) {
  const arma::mat basis = dichromatic_basis(spectra);
  const arma::mat coordinates = basis.t() * spectra;
  arma::uword close = 0;
  for (arma::uword p = 0; p < spectra.n_cols; ++p) {
    // The projector is orthogonal, so the cosine between a spectrum and its
    // projection is the length of the projection over the length of the spectrum.
    const double cosine = arma::norm(coordinates.col(p)) / arma::norm(spectra.col(p));
    if (cosine > angle_limit) {
      ++close;
    }
  }
  return static_cast<double>(spectra.n_cols) * homogeneous_fraction <= static_cast<double>(close);
}

}  // namespace

patch_list select_smooth_patches(const cube& I, int patch_size, int wanted, int verbosity) {
  logger& log = logger::instance();
  if (I.n_rows == 0 || I.n_cols == 0 || I.n_slices == 0) {
    log_and_throw("select_smooth_patches Recovery: Data size is incorrect.");
  }
  if (patch_size < 1) {
    log_and_throw("select_smooth_patches: Patch size must be at least 1, not " +
                  std::to_string(patch_size) + ".");
  }
  if (verbosity > 2) {
    log << "Patch Selection~"
        << "EOL";
    log << "Patch Size:       " << patch_size << "EOL";
  }
  const arma::uword height = I.n_rows, width = I.n_cols, bands = I.n_slices;
  const arma::uword size = static_cast<arma::uword>(patch_size);

  arma::mat band_sum(height, width, arma::fill::zeros);
  for (arma::uword b = 0; b < bands; ++b) {
    band_sum += arma::conv_to<arma::mat>::from(I.slice(b));
  }
  const double brightest = band_sum.max();
  const double largest = I.max();
  const double saturation = 0.95 * std::pow(2.0, std::ceil(std::log2(largest)));

  std::vector<found_patch> found;
  const long grid_rows = static_cast<long>(height / size);
  const long grid_cols = static_cast<long>(width / size);
  std::atomic<bool> aborted{false};
#pragma omp parallel for schedule(static, 1)
  for (long grid_row = 0; grid_row < grid_rows; ++grid_row) {
    if (aborted || log.abort_requested()) {
      aborted = true;
      continue;
    }
    arma::mat spectra(bands, size * size);
    for (long grid_col = 0; grid_col < grid_cols; ++grid_col) {
      const arma::uword top = static_cast<arma::uword>(grid_row) * size;
      const arma::uword left = static_cast<arma::uword>(grid_col) * size;
      if (top + size > height || left + size > width) {
        if (verbosity > 0) {
          log << "select_smooth_patches: Warning - skipping edge patch."
              << "EOL";
        }
        continue;
      }
      double patch_max = -arma::datum::inf;
      for (arma::uword c = 0; c < size; ++c) {
        for (arma::uword r = 0; r < size; ++r) {
          for (arma::uword b = 0; b < bands; ++b) {
            const double value = I(top + r, left + c, b);
            spectra(b, r + c * size) = value;
            patch_max = std::max(patch_max, value);
          }
        }
      }
      if (!(patch_max < saturation)) {
        continue;
      }
      const double mean_sum =
          arma::accu(band_sum.submat(top, left, top + size - 1, left + size - 1)) /
          static_cast<double>(size * size);
      if (!(mean_sum > brightest / 3.0) || !homogeneous(spectra)) {
        continue;
      }
      const float score = static_cast<float>(arma::norm(arma::mean(spectra, 1)));
#pragma omp critical(corv_smooth_patches)
      found.push_back({static_cast<int>(grid_row), static_cast<int>(grid_col), score});
    }
  }
  if (aborted) {
    log.check_abort();
  }
  if (verbosity > 0) {
    log << "Found " << found.size() << " homogeneous patches."
        << "EOL";
  }

  // Brightest first; ties keep grid order so that the result does not depend
  // on which thread found a patch first.
  std::sort(found.begin(), found.end(), [](const found_patch& a, const found_patch& b) {
    if (a.score != b.score) {
      return a.score > b.score;
    }
    return a.row != b.row ? a.row < b.row : a.col < b.col;
  });
  const std::size_t kept = std::min(found.size(), static_cast<std::size_t>(std::max(wanted, 0)));
  patch_list result;
  result.mask.zeros(height, width);
  for (std::size_t i = 0; i < kept; ++i) {
    result.rows.push_back(found[i].row);
    result.cols.push_back(found[i].col);
    result.scores.push_back(found[i].score);
  }
  const arma::imat bounds = patch_bounds(result, patch_size, height, width);
  for (arma::uword i = 0; i < bounds.n_rows; ++i) {
    result.mask
        .submat(static_cast<arma::uword>(bounds(i, 0)), static_cast<arma::uword>(bounds(i, 2)),
                static_cast<arma::uword>(bounds(i, 1)), static_cast<arma::uword>(bounds(i, 3)))
        .fill(1.0f);
  }
  if (result.empty()) {
    log << "Warning: Select Smooth Patches found no valid patches"
        << "EOL";
  }
  return result;
}

arma::imat patch_bounds(const patch_list& patches, int patch_size, arma::uword height,
                        arma::uword width) {
  arma::imat bounds(patches.size(), 4);
  const long long last_row = static_cast<long long>(height) - 1;
  const long long last_col = static_cast<long long>(width) - 1;
  for (std::size_t i = 0; i < patches.size(); ++i) {
    const long long top = static_cast<long long>(patches.rows[i]) * patch_size;
    const long long left = static_cast<long long>(patches.cols[i]) * patch_size;
    bounds(i, 0) = top;
    bounds(i, 1) = std::min(top + patch_size - 1, last_row);
    bounds(i, 2) = left;
    bounds(i, 3) = std::min(left + patch_size - 1, last_col);
  }
  return bounds;
}

}  // namespace corv

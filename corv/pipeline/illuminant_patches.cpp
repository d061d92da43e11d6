#include "corv/pipeline/illuminant_patches.h"

#include <atomic>
#include <string>

#include "corv/io/logger.h"
#include "corv/pipeline/smooth_patches.h"
#include "corv/pipeline/wiener.h"

namespace corv {

namespace {

constexpr int default_patch_count = 50;

// Every band through the 5 x 5 Wiener filter, bands in parallel, progress per band.
cube wiener_smoothed(const cube& I) {
  logger& log = logger::instance();
  log.set_progress(0);
  cube smoothed(arma::size(I));
  const long bands = static_cast<long>(I.n_slices);
  std::atomic<long> done{0};
  std::atomic<bool> aborted{false};
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < bands; ++b) {
    if (aborted || log.abort_requested()) {
      aborted = true;
      continue;
    }
    smoothed.slice(b) = wiener_filter(I.slice(b), 5, 5);
    log.set_progress(static_cast<int>(100 * ++done / bands));
  }
  if (aborted) {
    log.check_abort();
  }
  return smoothed;
}

std::string bounds_text(const arma::imat& bounds, arma::uword i) {
  return std::to_string(bounds(i, 0)) + ", " + std::to_string(bounds(i, 1)) + ", " +
         std::to_string(bounds(i, 2)) + ", " + std::to_string(bounds(i, 3));
}

std::vector<cube> cut_patches(const cube& image, const arma::imat& bounds) {
  std::vector<cube> cubes;
  cubes.reserve(bounds.n_rows);
  for (arma::uword i = 0; i < bounds.n_rows; ++i) {
    const arma::sword top = bounds(i, 0), bottom = bounds(i, 1);
    const arma::sword left = bounds(i, 2), right = bounds(i, 3);
    if (top < 0 || left < 0 || top > bottom || left > right ||
        bottom >= static_cast<arma::sword>(image.n_rows) ||
        right >= static_cast<arma::sword>(image.n_cols)) {
      log_and_throw("Illuminant Recovery: Patch " + std::to_string(i) + " (" +
                    bounds_text(bounds, i) + ") does not lie inside the " +
                    std::to_string(image.n_rows) + " x " + std::to_string(image.n_cols) +
                    " image.");
    }
    cubes.emplace_back(image.tube(static_cast<arma::uword>(top), static_cast<arma::uword>(left),
                                  static_cast<arma::uword>(bottom),
                                  static_cast<arma::uword>(right)));
  }
  return cubes;
}

}  // namespace

illuminant_patches prepare_illuminant_patches(const cube& I, const arma::imat& patches,
                                              int patch_size, bool wiener_marker, int verbosity) {
  logger& log = logger::instance();
  const bool given = patches.n_cols == 4;
  int wanted = default_patch_count;
  if (given) {
    if (verbosity > 3) {
      log << "Using pre-selected patches."
          << "EOL";
    }
  } else if (patches.n_cols == 1 && patches.n_elem == 0) {
    if (verbosity > 3) {
      log << "Patches empty, using 50 patches."
          << "EOL";
    }
  } else if (patches.n_cols == 1) {
    wanted = static_cast<int>(patches.n_rows);
    if (verbosity > 3) {
      log << "Number of patches specified: " << wanted << "EOL";
    }
  } else {
    log_and_throw("Illuminate Recovery: Unable to determine patch selection.",
                  "Illuminant Recovery: Unable to determine patch selection parameters.");
  }

  cube smoothed;
  if (!wiener_marker) {
    smoothed = wiener_smoothed(I);
    if (verbosity > 0) {
      log << "Image smoothed by Wiener Filter"
          << "EOL";
    }
  }
  const cube& image = wiener_marker ? I : smoothed;

  illuminant_patches result;
  if (given) {
    if (verbosity > 0) {
      log << "Using provided patches."
          << "EOL";
    }
    result.bounds = patches;
  } else {
    if (verbosity > 0) {
      log << "Beginning to select smooth patches."
          << "EOL";
    }
    const patch_list found = select_smooth_patches(image, patch_size, wanted, verbosity);
    result.bounds = patch_bounds(found, patch_size, image.n_rows, image.n_cols);
    result.selected = true;
  }
  if (result.bounds.n_rows == 0) {
    log_and_throw("Illuminate Recovery: No valid patches found... Exiting.");
  }
  result.cubes = cut_patches(image, result.bounds);
  if (!given && verbosity > 0) {
    log << "Patches successfully found."
        << "EOL";
  }
  return result;
}

}  // namespace corv

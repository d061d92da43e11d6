// The pipeline's image preparation: crop, resize, band removal and filtering.
#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>

#include "corv/analysis/smoothing.h"
#include "corv/io/logger.h"
#include "corv/pipeline/band_alignment.h"
#include "corv/pipeline/cube_resize.h"
#include "corv/pipeline/pipeline.h"
#include "corv/pipeline/wiener.h"

namespace corv {

cube& pipeline::prepared_cube(bool reflectance, const std::string& prefix) {
  // The cube to change is taken before the reset, so that a reflectance cube
  // computed here (not read from the input) survives its own preparation.
  const log_prefix_scope scope(*this, prefix);
  cube kept = reflectance ? try_get(&pipeline::s) : try_get(&pipeline::I);
  reset_components(reflectance);
  cube& target = reflectance ? s_ : I_;
  target = std::move(kept);
  if (target.empty()) {
    throw std::runtime_error(std::string("pipeline: ") + (reflectance ? "s" : "I") +
                             " does not exist in pipeline or input.");
  }
  return target;
}

void pipeline::changed(const cube& data) {
  record_dimensions(data);
}

void pipeline::crop(int first_row, int first_col, int last_row, int last_col, bool reflectance) {
  const int height = static_cast<int>(height_), width = static_cast<int>(width_);
  if (first_row < 0 || first_col < 0 || first_row > last_row || first_col > last_col ||
      last_row > height - 1 || last_col > width - 1) {
    throw std::runtime_error("pipeline crop: Error - Invalid parameters.");
  }
  cube& data = prepared_cube(reflectance, "pipeline crop: ");
  if (last_row >= static_cast<int>(data.n_rows) || last_col >= static_cast<int>(data.n_cols)) {
    throw std::runtime_error("pipeline crop: Error - Invalid parameters.");
  }
  data = data.tube(first_row, first_col, last_row, last_col);
  changed(data);
}

void pipeline::align_bands(unsigned reference, bool reflectance) {
  if (bands_ > 0 && reference >= bands_) {
    throw std::runtime_error("align_bands: Reference band " + std::to_string(reference) +
                             " does not exist; the image has " + std::to_string(bands_) +
                             " bands.");
  }
  cube& data = prepared_cube(reflectance, "pipeline align_bands: ");
  corv::align_bands(data, reference);
  changed(data);
}

void pipeline::resize(int rows, int cols, bool reflectance) {
  if (rows < 1 || cols < 1) {
    throw std::runtime_error("pipeline resize: Error - Invalid parameters.");
  }
  cube& data = prepared_cube(reflectance, "pipeline remove_bands: ");
  resize_cube(data, rows, cols, 1);
  changed(data);
}

void pipeline::remove_bands(const band_list& bands, bool reflectance) {
  if (static_cast<long>(bands_) - static_cast<long>(bands.size()) < 2) {
    log_and_throw("remove_bands: Cannot reduce image to less than 2 bands");
  }
  for (const unsigned band : bands) {
    if (band >= bands_) {
      log_and_throw("remove_bands: Band " + std::to_string(band) +
                    " does not exist; the image has " + std::to_string(bands_) + " bands.");
    }
  }
  const vector old_wavelengths = try_get(&pipeline::wavelengths);
  cube& data = prepared_cube(reflectance, "pipeline remove_bands: ");
  const std::set<unsigned> removed(bands.begin(), bands.end());
  arma::uvec kept(data.n_slices - removed.size());
  arma::uword next = 0;
  for (unsigned b = 0; b < data.n_slices; ++b) {
    if (removed.count(b) == 0) {
      kept(next++) = b;
    }
  }
  cube reduced(data.n_rows, data.n_cols, kept.n_elem, arma::fill::none);
  for (arma::uword i = 0; i < kept.n_elem; ++i) {
    reduced.slice(i) = data.slice(kept(i));
  }
  data = std::move(reduced);
  if (old_wavelengths.n_elem == kept.n_elem + removed.size()) {
    wavelengths_ = old_wavelengths(kept);
  }
  changed(data);
}

void pipeline::filter(int method, int size, bool reflectance) {
  if (size < 1 || size > 32) {
    throw std::runtime_error("pipeline filter: Error - invalid parameters.");
  }
  cube& data = prepared_cube(reflectance, "pipeline filter: ");
  if (method != FILTER_SAVITZKY_GOLAY && method != FILTER_WIENER &&
      method != FILTER_MOVING_AVERAGE) {
    log_and_throw("pipeline filter: Error - invalid parameters (method does not exist).",
                  "pipeline filter: Error - invalid parameters (method does not exist)");
  }
  logger& log = logger::instance();
  log.set_stage(stage_filter);
  log.set_progress(0);
  if (method == FILTER_WIENER) {
    const long bands = static_cast<long>(data.n_slices);
    long done = 0;
    // The bands are filtered into a new cube so that an abort request, which
    // skips the remaining bands and throws once outside the parallel region,
    // leaves the image as it was.
    cube filtered(arma::size(data));
#pragma omp parallel for schedule(dynamic)
    for (long b = 0; b < bands; ++b) {
      if (log.abort_requested()) {
        continue;
      }
      filtered.slice(b) = wiener_filter(data.slice(b), size, size);
      long finished = 0;
#pragma omp atomic capture
      finished = ++done;
      log.set_progress(static_cast<int>(100 * finished / bands));
    }
    log.check_abort();
    data = std::move(filtered);
    parameters_.wiener_marker = true;
  } else if (method == FILTER_MOVING_AVERAGE) {
    moving_average(data, size);
  } else {
    savitzky_golay(data, size);
  }
  log.set_progress(100);
}

}  // namespace corv

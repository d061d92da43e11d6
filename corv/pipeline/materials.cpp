// Material discovery: validates the settings, picks the spectra to cluster
// (every pixel, the shrunk image, or one pixel from the inside of a smooth
// region in every block), anneals them into material elements and mixes every
// pixel of the full image from them.
#include "corv/pipeline/materials.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "corv/io/logger.h"
#include "corv/pipeline/cube_resize.h"
#include "corv/pipeline/deterministic_annealing.h"
#include "corv/pipeline/material_sample.h"

namespace corv {

namespace {

constexpr int bilinear = 1;  // OpenCV's code

// The spectra to cluster, pixels x bands, and the shape of the image they
// come from.
struct clustering_data {
  cube image;  // empty when the clustering reads s itself
  cube shading;
  arma::uword height = 0, width = 0;
};

void check_settings(material_parameters& settings, int mode, annealing_schedule& schedule) {
  if (settings.subsample > 4 || settings.subsample < 0) {
    log_and_throw("q_factor out of range in recover_materials()");
  }
  const annealing_schedule defaults;
  if (settings.max_temperature < 0.0f) {
    settings.max_temperature = defaults.max_temperature;
  }
  if (settings.min_temperature < 0.0f) {
    settings.min_temperature = defaults.min_temperature;
  }
  if (!(settings.max_temperature >= settings.min_temperature)) {
    log_and_throw("Recover Materials: Temperature Min > Temperature Max, this doesn't make sense!");
  }
  schedule =
      checked_schedule(settings.max_temperature, settings.min_temperature, settings.cooling_rate,
                       settings.split_threshold, settings.max_clusters);
  settings.max_clusters = schedule.max_clusters;
  settings.cooling_rate = schedule.cooling_rate;
  settings.split_threshold = schedule.split_threshold;
  if (mode != MATERIALS_FULL && mode != MATERIALS_SHRUNK && mode != MATERIALS_SAMPLED) {
    log_and_throw("Recover Materials: Mode " + std::to_string(mode) +
                  " does not exist (0 every pixel, 1 shrunk, 2 sampled).");
  }
  if (settings.materials_per_pixel < 1) {
    log_and_throw("Recover Materials: Materials per pixel must be at least 1, not " +
                  std::to_string(settings.materials_per_pixel) + ".");
  }
}

}  // namespace

material_result recover_materials(const cube& s, const matrix& g, material_parameters settings,
                                  int mode, int verbosity, const matrix& k) {
  // The stage number is the viewer's progress display's, also when the
  // routine is called on its own rather than by the pipeline.
  logger::instance().set_stage(stage_materials);
  logger::instance().set_progress(0);
  annealing_schedule schedule;
  check_settings(settings, mode, schedule);
  if (s.n_rows == 0 || s.n_cols == 0 || s.n_slices == 0) {
    log_and_throw("Material Recovery: Data size is incorrect.");
  }
  if (!g.empty() && (g.n_rows != s.n_rows || g.n_cols != s.n_cols)) {
    log_and_throw("Recover Materials: Shading size " + std::to_string(g.n_rows) + " x " +
                  std::to_string(g.n_cols) + " does not match the reflectance's " +
                  std::to_string(s.n_rows) + " x " + std::to_string(s.n_cols) + ".");
  }
  if (!k.empty() && (k.n_rows != s.n_rows || k.n_cols != s.n_cols)) {
    log_and_throw("Recover Materials: Specularity size " + std::to_string(k.n_rows) + " x " +
                  std::to_string(k.n_cols) + " does not match the reflectance's " +
                  std::to_string(s.n_rows) + " x " + std::to_string(s.n_cols) + ".");
  }

  // The image to cluster: s itself in modes 0 and 2, else s shrunk 2^q times in
  // each dimension (an image smaller than 2^q pixels shrinks to one).
  clustering_data data;
  data.height = s.n_rows;
  data.width = s.n_cols;
  const arma::uword factor = arma::uword{1} << settings.subsample;
  const arma::uword block = sample_block(s.n_rows, s.n_cols, factor);
  if (mode == MATERIALS_SHRUNK) {
    data.height = std::max<arma::uword>(1, s.n_rows / factor);
    data.width = std::max<arma::uword>(1, s.n_cols / factor);
    data.image = s;
    resize_cube(data.image, static_cast<int>(data.height), static_cast<int>(data.width), bilinear);
    if (!g.empty()) {
      data.shading = cube(g.memptr(), g.n_rows, g.n_cols, 1);
      resize_cube(data.shading, static_cast<int>(data.height), static_cast<int>(data.width),
                  bilinear);
    }
  }
  const cube& source = mode == MATERIALS_SHRUNK ? data.image : s;
  const matrix pixels(const_cast<float*>(source.memptr()), data.height * data.width,
                      source.n_slices, false, true);
  vector shading;
  if (!g.empty()) {
    const float* values = mode == MATERIALS_SHRUNK ? data.shading.memptr() : g.memptr();
    shading = vector(const_cast<float*>(values), data.height * data.width, false, true);
  }
  const arma::uvec rows =
      mode == MATERIALS_SAMPLED ? interior_sample(s, g, k, block) : usable_rows(pixels, shading);
  if (rows.empty()) {
    log_and_throw(
        "Recover Materials: No lit pixel has a spectrum to cluster (every one is zero or not "
        "finite).");
  }
  if (mode == MATERIALS_SAMPLED) {
    // The sample is a grid of blocks, one pixel each: the log gives its size.
    data.height = (s.n_rows + block - 1) / block;
    data.width = (s.n_cols + block - 1) / block;
  }
  const matrix centres =
      anneal_unit_spectra(unit_rows(pixels, rows), schedule, data.height, data.width, verbosity);
  data = clustering_data();

  material_result result;
  result.elements = centres;
  for (arma::uword j = 0; j < result.elements.n_cols; ++j) {
    float length = arma::norm(result.elements.col(j));
    if (length <= std::numeric_limits<float>::epsilon()) {
      length = 1.0f;
    }
    result.elements.col(j) /= length;
  }
  generate_elements(result.elements, s, settings.materials_per_pixel, verbosity, result.abundances,
                    result.abundance_indexes);
  result.map = result.abundance_indexes.slice(0);
  return result;
}

}  // namespace corv

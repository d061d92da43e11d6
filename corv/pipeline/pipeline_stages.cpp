// The pipeline's processing stages: prerequisite checks, stage bookkeeping in
// the logger, and the hand-over to the recovery and analysis routines.
#include <stdexcept>

#include "corv/analysis/pca.h"
#include "corv/analysis/unmixing.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/dichromatic.h"
#include "corv/pipeline/illuminant.h"
#include "corv/pipeline/materials.h"
#include "corv/pipeline/pipeline.h"

namespace corv {

pipeline::log_prefix_scope::log_prefix_scope(pipeline& owner, const std::string& prefix)
    : owner_(owner), previous_(owner.log_prefix_) {
  owner_.log_prefix_ = prefix;
}

pipeline::log_prefix_scope::~log_prefix_scope() {
  owner_.log_prefix_ = previous_;
}

std::vector<std::string> pipeline::banner() {
  return {
      "#> CORVANTIS - Hyperspectral Processing Library <#",
      "   Version " + version(),
      "#>                                                  <#",
      "#>  Copyright the Corvantis and Tavrel authors.     <#",
      "#>  Licensed under the Apache License, Version 2.0. <#",
  };
}

void pipeline::process_recover_illuminant(bool start_afresh) {
  if (parameters_.verbosity > 0) {
    for (const auto& line : banner()) {
      logger::instance() << line << "EOL";
    }
  }
  if (start_afresh) {
    reset_components(false);
  }
  // Whatever happens from here, no illuminant of an earlier run survives.
  illuminant_.reset();
  const log_prefix_scope prefix(*this, "process_recover_illuminant: ");
  if (try_get(&pipeline::I).empty()) {
    throw std::runtime_error("pipeline: I is empty in process_recover_illuminant()");
  }
  logger::instance().set_stage(stage_illuminant);
  logger::instance().set_progress(0);
  illuminant_parameters settings;
  settings.spatial_smoothness = parameters_.spatial_smoothness;
  settings.patch_size = parameters_.illuminant_patch_size;
  settings.wiener_marker = parameters_.wiener_marker;
  settings.second_switch = parameters_.second_illuminant;
  settings.order = parameters_.gray_order;
  // Patches chosen by an earlier run are used again until the components are reset.
  arma::imat patches = patches_.n_cols == 4 ? patches_ : arma::imat(0, 1);
  illuminant_ = recover_global_illuminant(I_, patches, parameters_.illuminant_method, settings,
                                          parameters_.verbosity);
  if (patches.n_cols == 4) {
    patches_ = std::move(patches);
  }
}

void pipeline::process_recover_dichromatic_parameters() {
  const log_prefix_scope prefix(*this, "process_recover_dichromatic_parameters: ");
  const bool ready = !try_get(&pipeline::I).empty() && !try_get(&pipeline::illuminant).empty();
  s_.reset();
  k_.reset();
  g_.reset();
  if (!ready) {
    throw std::runtime_error(
        "pipeline: I or illuminant is empty in process_recover_dichromatic_parameters()");
  }
  logger::instance().set_stage(stage_reflectance);
  logger::instance().set_progress(0);
  dichromatic_parameters settings;
  settings.method = parameters_.dichromatic_method;
  settings.neighbourhood_size = parameters_.neighbourhood_size;
  settings.gray_threshold = parameters_.gray_threshold;
  try {
    recover_dichromatic_parameters(I_, illuminant_, try_get(&pipeline::wavelengths), settings,
                                   parameters_.verbosity, k_, g_, s_);
  } catch (...) {
    s_.reset();
    k_.reset();
    g_.reset();
    throw;
  }
}

void pipeline::process_recover_materials() {
  material_elements_.reset();
  material_element_abundances_.reset();
  material_element_abundance_indexes_.reset();
  material_map_.reset();
  if (parameters_.material_subsample > 4) {
    throw std::runtime_error(
        "pipeline: material_subsample out of range in process_recover_materials()");
  }
  const log_prefix_scope prefix(*this, "process_recover_materials: ");
  if (try_get(&pipeline::s).empty()) {
    throw std::runtime_error("pipeline: S is empty in process_recover_materials()");
  }
  logger::instance().set_stage(stage_materials);
  logger::instance().set_progress(0);
  material_parameters settings;
  settings.max_clusters = parameters_.max_clusters;
  settings.subsample = parameters_.material_subsample;
  settings.materials_per_pixel = parameters_.materials_per_pixel;
  settings.max_temperature = parameters_.max_temperature;
  settings.min_temperature = parameters_.min_temperature;
  settings.cooling_rate = parameters_.cooling_rate;
  settings.split_threshold = parameters_.split_threshold;
  material_result found =
      recover_materials(s_, try_get(&pipeline::g), settings, parameters_.material_mode,
                        parameters_.verbosity, try_get(&pipeline::k));
  material_elements_ = std::move(found.elements);
  material_element_abundances_ = std::move(found.abundances);
  material_element_abundance_indexes_ = std::move(found.abundance_indexes);
  material_map_ = std::move(found.map);
}

void pipeline::process_recover_endmembers() {
  endmember_abundances_.reset();
  endmember_abundance_indexes_.reset();
  if (!library_ || library_->empty()) {
    log_and_throw(
        "process_recover_endmembers: The Spectral Library contains no Endmembers. Load an SLZ "
        "file first!");
  }
  const log_prefix_scope prefix(*this, "process_recover_endmembers: ");
  if (try_get(&pipeline::s).empty()) {
    throw std::runtime_error("pipeline: S is empty in process_recover_endmembers()");
  }
  logger::instance().set_stage(stage_classification);
  logger::instance().set_progress(0);
  cube fractions, numbers;
  unmix_by_spectra(s_, try_get(&pipeline::wavelengths), library_->endmembers().t(),
                   library_->wavelengths(), fractions, numbers, parameters_.endmember_setting);
  if (fractions.n_rows != s_.n_rows || fractions.n_cols != s_.n_cols ||
      numbers.n_slices != fractions.n_slices) {
    log_and_throw(
        "process_recover_endmembers: Something bad that doesn't make sense has happened.");
  }
  // The routine numbers the references from 1; the pipeline keeps element numbers from 0.
  endmember_abundances_.set_size(arma::size(fractions));
  endmember_abundance_indexes_.set_size(arma::size(numbers));
  for (arma::uword slice = 0; slice < fractions.n_slices; ++slice) {
    endmember_abundances_.slice(slice) = fractions.slice(slice);
    endmember_abundance_indexes_.slice(slice) = numbers.slice(slice) - 1.0f;
  }
}

void pipeline::process_analysis(bool on_reflectance) {
  // Threshold of the component count; the count always comes out as bands - 1.
  constexpr float threshold = 0.001f;
  const log_prefix_scope prefix(*this, "process_analysis: ");
  principal_components_.reset();
  principal_strengths_.reset();
  if (!on_reflectance) {
    if (try_get(&pipeline::I).empty()) {
      log_and_throw("process_analysis: Image not found,");
    }
  } else if (try_get(&pipeline::s).empty()) {
    logger::instance() << "process_analysis: Reflectance not found, generating..."
                       << "EOL";
    process_recover_illuminant(true);
    process_recover_dichromatic_parameters();
  }
  logger::instance().set_stage(stage_analysis);
  logger::instance().set_progress(0);
  pca(on_reflectance ? s_ : I_, principal_components_, principal_strengths_,
      parameters_.principal_components, threshold);
}

}  // namespace corv

#include "corv/pipeline/pipeline.h"

#include <stdexcept>
#include <string>

#include "corv/io/logger.h"

namespace corv {

pipeline::pipeline(std::shared_ptr<input> source) : input_(std::move(source)) {
  if (input_) {
    height_ = input_->height();
    width_ = input_->width();
    bands_ = input_->bands();
  }
}

pipeline::~pipeline() = default;

std::string pipeline::version() {
  return "[" + std::to_string(1) + "." + std::to_string(0) + "." + std::to_string(3) + "]";
}

template <typename T, typename Load>
const T& pipeline::fetch(T& member, const char* name, Load load) {
  if (!member.empty()) {
    return member;
  }
  if (input_) {
    try {
      member = load(*input_);
    } catch (const std::exception& error) {
      logger::instance() << log_prefix_ << error.what() << "EOL";
    }
    if (!member.empty()) {
      return member;
    }
  }
  throw std::runtime_error(std::string("pipeline: ") + name +
                           " does not exist in pipeline or input.");
}

void pipeline::record_dimensions(const cube& c) {
  height_ = c.n_rows;
  width_ = c.n_cols;
  bands_ = c.n_slices;
}

const cube& pipeline::I() {
  const bool loaded = I_.empty();
  const cube& image = fetch(I_, "I", [](input& in) { return in.I(); });
  if (loaded) {
    record_dimensions(image);
  }
  return image;
}

const vector& pipeline::wavelengths() {
  return fetch(wavelengths_, "wavelengths", [](input& in) { return in.wavelengths(); });
}

const vector& pipeline::illuminant() {
  return fetch(illuminant_, "illuminant", [](input& in) { return in.illuminant(); });
}

const matrix& pipeline::k() {
  return fetch(k_, "k", [](input& in) { return in.k(); });
}

const cube& pipeline::s() {
  const bool loaded = s_.empty();
  const cube& reflectance = fetch(s_, "s", [](input& in) { return in.s(); });
  if (loaded && I_.empty()) {
    record_dimensions(reflectance);
  }
  return reflectance;
}

const matrix& pipeline::g() {
  return fetch(g_, "g", [](input& in) { return in.g(); });
}

const matrix& pipeline::material_elements() {
  return fetch(material_elements_, "material_elements", [](input& in) { return in.elements(); });
}

const cube& pipeline::material_element_abundances() {
  return fetch(material_element_abundances_, "material_element_abundances",
               [](input& in) { return in.element_abundances(); });
}

const cube& pipeline::material_element_abundance_indexes() {
  return fetch(material_element_abundance_indexes_, "material_element_abundance_indexes",
               [](input& in) { return in.element_abundance_indexes(); });
}

// The material map is each pixel's strongest element: the first index slice.
const matrix& pipeline::material_map() {
  return fetch(material_map_, "material_map", [](input& in) {
    const cube indexes = in.element_abundance_indexes();
    return indexes.n_slices > 0 ? matrix(indexes.slice(0)) : matrix();
  });
}

const cube& pipeline::endmember_abundances() {
  return fetch(endmember_abundances_, "endmember_abundances",
               [](input& in) { return in.endmember_abundances(); });
}

const cube& pipeline::endmember_abundance_indexes() {
  return fetch(endmember_abundance_indexes_, "endmember_abundance_indexes",
               [](input& in) { return in.endmember_abundance_indexes(); });
}

void pipeline::set_I(const cube& image, const vector& wavelengths) {
  if (wavelengths.n_elem != image.n_slices) {
    throw std::runtime_error(
        "pipeline: set_I:  wavelengths must match I! (Dimensions incompatible)");
  }
  I_ = image;
  wavelengths_ = wavelengths;
  record_dimensions(I_);
}

void pipeline::set_illuminant(const vector& illuminant) {
  if (illuminant.n_elem != bands_) {
    throw std::runtime_error(
        "set_illuminant: Incorrect number of elements (must be same as number of bands in I).");
  }
  illuminant_ = illuminant;
}

void pipeline::set_s(const cube& reflectance) {
  const bool sized = height_ != 0 || width_ != 0 || bands_ != 0;
  if (sized && (reflectance.n_rows != height_ || reflectance.n_cols != width_ ||
                reflectance.n_slices != bands_)) {
    throw std::runtime_error("set_s: Incorrect number of elements (must be same dimensions as I).");
  }
  s_ = reflectance;
  if (!sized) {
    record_dimensions(s_);
  }
}

void pipeline::set_s(const cube& reflectance, const vector& wavelengths) {
  if (wavelengths.n_elem != reflectance.n_slices) {
    throw std::runtime_error(
        "pipeline: set_s:  wavelengths must match s! (Dimensions incompatible)");
  }
  set_s(reflectance);
  wavelengths_ = wavelengths;
}

void pipeline::set_k(const matrix& k) {
  k_ = k;
}
void pipeline::set_g(const matrix& g) {
  g_ = g;
}

void pipeline::set_materials(const matrix& elements, const cube& abundances, const cube& indexes) {
  if (elements.n_rows != bands_ || abundances.n_rows != height_ || abundances.n_cols != width_ ||
      arma::size(abundances) != arma::size(indexes)) {
    throw std::runtime_error("set_materials: Incorrect dimensions (elements must have " +
                             std::to_string(bands_) + " bands, abundances and indexes " +
                             std::to_string(height_) + " x " + std::to_string(width_) +
                             " pixels).");
  }
  material_elements_ = elements;
  material_element_abundances_ = abundances;
  material_element_abundance_indexes_ = indexes;
  material_map_ = indexes.n_slices > 0 ? matrix(indexes.slice(0)) : matrix();
}

void pipeline::reset_components(bool reflectance) {
  illuminant_.reset();
  patches_.reset();
  k_.reset();
  g_.reset();
  material_elements_.reset();
  material_element_abundances_.reset();
  material_element_abundance_indexes_.reset();
  material_map_.reset();
  if (reflectance) {
    s_.reset();
  }
}

void pipeline::save(const output_ptr& destination, const std::string& file_name) {
  if (!destination) {
    throw std::runtime_error("pipeline: No output object available for saving.");
  }
  destination->write(*this, file_name);
}

}  // namespace corv

#include "corv/io/data_input.h"

#include <stdexcept>

namespace corv {

namespace {

template <typename T>
T served(const T& value, const std::string& name) {
  if (value.empty()) {
    throw std::runtime_error("data_input: " + name + " has not been set.");
  }
  return value;
}

}  // namespace

void data_input::check_cube(const cube& c, const std::string& name) const {
  const std::string prefix = "data_input: " + name + " does not match ";
  const std::string suffix = " of previously set components!";
  if (height_ != 0 && c.n_rows != height_) {
    throw std::runtime_error(prefix + "height" + suffix);
  }
  if (width_ != 0 && c.n_cols != width_) {
    throw std::runtime_error(prefix + "width" + suffix);
  }
  if (bands_ != 0 && c.n_slices != bands_) {
    throw std::runtime_error(prefix + "bands" + suffix);
  }
}

void data_input::set_I(const cube& image) {
  check_cube(image, "I");
  I_ = std::make_shared<cube>(image);
  height_ = image.n_rows;
  width_ = image.n_cols;
  bands_ = image.n_slices;
}

void data_input::set_s(const cube& reflectance) {
  check_cube(reflectance, "s");
  s_ = std::make_shared<cube>(reflectance);
  height_ = reflectance.n_rows;
  width_ = reflectance.n_cols;
  bands_ = reflectance.n_slices;
}

void data_input::set_wavelengths(const vector& wavelengths) {
  if (bands_ != 0 && wavelengths.n_elem != bands_) {
    throw std::runtime_error(
        "data_input: wavelengths does not match bands of previously set components!");
  }
  wavelengths_ = wavelengths;
  bands_ = wavelengths.n_elem;
}

cube data_input::I() {
  if (!I_) {
    throw std::runtime_error("data_input: I has not been set.");
  }
  return *I_;
}

cube_ptr data_input::I_ptr() {
  if (!I_) {
    throw std::runtime_error("data_input: I has not been set.");
  }
  return I_;
}

cube data_input::s() {
  if (!s_) {
    throw std::runtime_error("data_input: s has not been set.");
  }
  return *s_;
}

cube_ptr data_input::s_ptr() {
  if (!s_) {
    throw std::runtime_error("data_input: s has not been set.");
  }
  return s_;
}

vector data_input::wavelengths() {
  return served(wavelengths_, "wavelengths");
}
vector data_input::illuminant() {
  return served(illuminant_, "illuminant");
}
matrix data_input::k() {
  return served(k_, "k");
}
matrix data_input::g() {
  return served(g_, "g");
}
matrix data_input::elements() {
  return served(elements_, "elements");
}
matrix data_input::endmembers() {
  return served(endmembers_, "endmembers");
}
labels data_input::endmember_labels() {
  return served(endmember_labels_, "endmember_labels");
}
cube data_input::element_abundances() {
  return served(element_abundances_, "element_abundances");
}
cube data_input::element_abundance_indexes() {
  return served(element_abundance_indexes_, "element_abundance_indexes");
}
cube data_input::endmember_abundances() {
  return served(endmember_abundances_, "endmember_element_abundances");
}
cube data_input::endmember_abundance_indexes() {
  return served(endmember_abundance_indexes_, "endmember_element_abundance_indexes");
}

void data_input::set_illuminant(const vector& illuminant) {
  illuminant_ = illuminant;
}
void data_input::set_k(const matrix& k) {
  k_ = k;
}
void data_input::set_g(const matrix& g) {
  g_ = g;
}
void data_input::set_elements(const matrix& elements) {
  elements_ = elements;
}
void data_input::set_endmembers(const matrix& endmembers) {
  endmembers_ = endmembers;
}
void data_input::set_endmember_labels(const labels& labels) {
  endmember_labels_ = labels;
}
void data_input::set_element_abundances(const cube& abundances) {
  element_abundances_ = abundances;
}
void data_input::set_element_abundance_indexes(const cube& indexes) {
  element_abundance_indexes_ = indexes;
}
void data_input::set_endmember_abundances(const cube& abundances) {
  endmember_abundances_ = abundances;
}
void data_input::set_endmember_abundance_indexes(const cube& indexes) {
  endmember_abundance_indexes_ = indexes;
}

}  // namespace corv

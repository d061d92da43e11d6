#ifndef CORV_PIPELINE_PIPELINE_H
#define CORV_PIPELINE_PIPELINE_H

#include <cstdint>
#include <memory>
#include <string>

#include "corv/io/input.h"
#include "corv/io/output.h"
#include "corv/io/types.h"
#include "corv/pipeline/parameters.h"

namespace corv {

class spectral_library;

// One hyperspectral image and everything computed from it. Components are read
// from the input on first use and kept; stages replace what they compute.
class pipeline {
 public:
  pipeline() = default;
  explicit pipeline(std::shared_ptr<input> source);
  virtual ~pipeline();

  static std::string version();

  // Component getters: the pipeline's own copy, else the input's, else throw
  // "pipeline: <name> does not exist in pipeline or input.".
  const cube& I();
  const vector& wavelengths();
  const vector& illuminant();
  const matrix& k();
  const cube& s();
  const matrix& g();
  const matrix& material_elements();
  const cube& material_element_abundances();
  const cube& material_element_abundance_indexes();
  const matrix& material_map();
  const cube& endmember_abundances();
  const cube& endmember_abundance_indexes();

  void set_I(const cube& image, const vector& wavelengths);
  void set_illuminant(const vector& illuminant);
  void set_s(const cube& reflectance);
  void set_s(const cube& reflectance, const vector& wavelengths);
  void set_k(const matrix& k);
  void set_g(const matrix& g);

  // Empties illuminant, k, g, the stored patches and the material components;
  // with the flag set, s as well.
  void reset_components(bool reflectance);

  const std::shared_ptr<input>& source() const { return input_; }
  std::shared_ptr<spectral_library> library() const { return library_; }
  void set_library(std::shared_ptr<spectral_library> library) { library_ = std::move(library); }

  const corv::parameters& parameters() const { return parameters_; }
  void set_parameters(const corv::parameters& values) { parameters_ = values; }

  std::uint32_t height() const { return height_; }
  std::uint32_t width() const { return width_; }
  std::uint32_t bands() const { return bands_; }

  void save(const output_ptr& destination, const std::string& file_name);

 protected:
  // Text that prefixes the log line of an input failure met by a getter.
  void set_log_prefix(const std::string& prefix) { log_prefix_ = prefix; }
  void record_dimensions(const cube& c);

  std::shared_ptr<input> input_;
  cube I_;
  vector wavelengths_;
  vector illuminant_;
  matrix k_;
  cube s_;
  matrix g_;
  matrix material_elements_;
  cube material_element_abundances_;
  cube material_element_abundance_indexes_;
  matrix material_map_;
  cube endmember_abundances_;
  cube endmember_abundance_indexes_;
  std::shared_ptr<spectral_library> library_;
  corv::parameters parameters_;
  std::uint32_t height_ = 0;
  std::uint32_t width_ = 0;
  std::uint32_t bands_ = 0;

 private:
  template <typename T, typename Load>
  const T& fetch(T& member, const char* name, Load load);

  std::string log_prefix_ = "pipeline: ";
};

}  // namespace corv

#endif

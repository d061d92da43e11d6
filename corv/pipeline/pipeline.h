#ifndef CORV_PIPELINE_PIPELINE_H
#define CORV_PIPELINE_PIPELINE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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
  // Results of process_analysis: the principal component cube and the singular
  // value of each component, strongest first (empty until the stage has run).
  const cube& principal_components() const { return principal_components_; }
  const vector& principal_strengths() const { return principal_strengths_; }

  void set_I(const cube& image, const vector& wavelengths);
  void set_illuminant(const vector& illuminant);
  void set_s(const cube& reflectance);
  void set_s(const cube& reflectance, const vector& wavelengths);
  void set_k(const matrix& k);
  void set_g(const matrix& g);
  // Material elements (one spectrum per column) with each pixel's abundances and
  // 0-based element indexes (height x width x entries); the material map follows
  // from the indexes. Sizes that do not fit the image are refused.
  void set_materials(const matrix& elements, const cube& abundances, const cube& indexes);

  // Empties illuminant, k, g, the stored patches and the material components;
  // with the flag set, s as well.
  void reset_components(bool reflectance);

  const std::shared_ptr<input>& source() const { return input_; }
  // Whether I is in memory (computed here, or read from the input by I()).
  bool holds_I() const { return !I_.empty(); }
  std::shared_ptr<spectral_library> library() const { return library_; }
  void set_library(std::shared_ptr<spectral_library> library) { library_ = std::move(library); }

  const corv::parameters& parameters() const { return parameters_; }
  void set_parameters(const corv::parameters& values) { parameters_ = values; }

  // One setter per processing parameter (defaults in corv::parameters).
  void set_verbosity(int value) { parameters_.verbosity = value; }
  void set_illuminant_method(int value) { parameters_.illuminant_method = value; }
  void set_spatial_smoothness(float value) { parameters_.spatial_smoothness = value; }
  void set_illuminant_patch_size(int value) { parameters_.illuminant_patch_size = value; }
  void set_wiener_marker(bool value) { parameters_.wiener_marker = value; }
  void set_second_illuminant(bool value) { parameters_.second_illuminant = value; }
  void set_gray_order(int value) { parameters_.gray_order = value; }
  void set_dichromatic_method(int value) { parameters_.dichromatic_method = value; }
  void set_neighbourhood_size(int value) { parameters_.neighbourhood_size = value; }
  void set_gray_threshold(int value) { parameters_.gray_threshold = value; }
  void set_max_clusters(int value) { parameters_.max_clusters = value; }
  void set_material_subsample(int value) { parameters_.material_subsample = value; }
  void set_materials_per_pixel(int value) { parameters_.materials_per_pixel = value; }
  void set_max_temperature(float value) { parameters_.max_temperature = value; }
  void set_min_temperature(float value) { parameters_.min_temperature = value; }
  void set_cooling_rate(float value) { parameters_.cooling_rate = value; }
  void set_split_threshold(float value) { parameters_.split_threshold = value; }
  void set_material_mode(int value) { parameters_.material_mode = value; }
  void set_filter_size(int value) { parameters_.filter_size = value; }
  void set_principal_components(int value) { parameters_.principal_components = value; }
  void set_pca_source(int value) { parameters_.pca_source = value; }
  void set_nurbs_encoding(bool value) { parameters_.nurbs_encoding = value; }
  void set_nurbs_degree(int value) { parameters_.nurbs_degree = value; }
  void set_nurbs_max_iterations(int value) { parameters_.nurbs_max_iterations = value; }
  void set_nurbs_knots_threshold(int value) { parameters_.nurbs_knots_threshold = value; }
  void set_nurbs_alpha(float value) { parameters_.nurbs_alpha = value; }
  void set_endmember_setting(int value) { parameters_.endmember_setting = value; }

  // Image preparation. Each works on I, or on s when its flag is set, after
  // discarding the components computed from the old image.
  void crop(int first_row, int first_col, int last_row, int last_col, bool reflectance);
  void resize(int rows, int cols, bool reflectance);
  void remove_bands(const band_list& bands, bool reflectance);
  // Lines every band up with the reference band (see band_alignment.h).
  void align_bands(unsigned reference, bool reflectance);
  void filter(int method, int size, bool reflectance);

  // Processing stages, in the order a full run calls them. Each checks its
  // prerequisites first and leaves what it was to produce empty when it fails.
  void process_recover_illuminant(bool start_afresh);
  void process_recover_dichromatic_parameters();
  void process_recover_materials();
  void process_recover_endmembers();
  void process_analysis(bool on_reflectance);

  // The framed banner that a verbose illuminant recovery writes first.
  static std::vector<std::string> banner();

  std::uint32_t height() const { return height_; }
  std::uint32_t width() const { return width_; }
  std::uint32_t bands() const { return bands_; }

  void save(const output_ptr& destination, const std::string& file_name);

 protected:
  // While alive, input failures met by getters are logged under a stage's name.
  class log_prefix_scope {
   public:
    log_prefix_scope(pipeline& owner, const std::string& prefix);
    ~log_prefix_scope();
    log_prefix_scope(const log_prefix_scope&) = delete;
    log_prefix_scope& operator=(const log_prefix_scope&) = delete;

   private:
    pipeline& owner_;
    std::string previous_;
  };

  // The component if present or loadable, else an empty one (failures are logged).
  template <typename T>
  const T& try_get(const T& (pipeline::*getter)());
  void record_dimensions(const cube& c);

  std::shared_ptr<input> input_;
  cube I_;
  vector wavelengths_;
  vector illuminant_;
  arma::imat patches_;  // bounds of the patches the last illuminant run used
  matrix k_;
  cube s_;
  matrix g_;
  matrix material_elements_;
  cube material_element_abundances_;
  cube material_element_abundance_indexes_;
  matrix material_map_;
  cube endmember_abundances_;
  cube endmember_abundance_indexes_;
  cube principal_components_;
  vector principal_strengths_;
  std::shared_ptr<spectral_library> library_;
  corv::parameters parameters_;
  std::uint32_t height_ = 0;
  std::uint32_t width_ = 0;
  std::uint32_t bands_ = 0;

 private:
  template <typename T, typename Load>
  const T& fetch(T& member, const char* name, Load load);
  // The cube a preparation operation changes, loaded under its log prefix.
  cube& prepared_cube(bool reflectance, const std::string& prefix);
  // Records the dimensions of a changed cube (I, or s standing in for it).
  void changed(const cube& data);

  std::string log_prefix_ = "pipeline: ";
};

template <typename T>
const T& pipeline::try_get(const T& (pipeline::*getter)()) {
  static const T none;
  try {
    return (this->*getter)();
  } catch (const std::exception&) {
    return none;
  }
}

}  // namespace corv

#endif

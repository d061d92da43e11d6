#ifndef CORV_PIPELINE_PARAMETERS_H
#define CORV_PIPELINE_PARAMETERS_H

namespace corv {

// Codes of the preparation filters.
enum FILTER_METHOD : int {
  FILTER_SAVITZKY_GOLAY = 0,  // spectral
  FILTER_WIENER = 1,          // spatial
  FILTER_MOVING_AVERAGE = 2,  // spectral
};

// Every processing parameter of a pipeline, with its default.
struct parameters {
  int verbosity = 0;
  int illuminant_method = 0;
  float spatial_smoothness = 50.0f;
  int illuminant_patch_size = 20;
  bool wiener_marker = false;  // set once the image has been Wiener-filtered
  bool second_illuminant = true;
  int gray_order = 1;
  int dichromatic_method = 0;
  int neighbourhood_size = 5;
  int gray_threshold = 2;
  int max_clusters = 20;
  int material_subsample = 3;
  int materials_per_pixel = 5;
  float max_temperature = 0.02f;
  float min_temperature = 0.00025f;
  float cooling_rate = 0.8f;
  float split_threshold = -1.0f;  // -1 means cos 5 degrees
  int material_mode = 2;          // 0 every pixel, 1 shrunk by 2^subsample, 2 interior sample
  int filter_size = 5;
  int principal_components = 10;
  int pca_source = 0;
  bool nurbs_encoding = false;
  int nurbs_degree = 2;
  int nurbs_max_iterations = 10;
  int nurbs_knots_threshold = -1;
  float nurbs_alpha = 0.1f;
  int endmember_setting = 0;
};

}  // namespace corv

#endif

#ifndef TAVR_PROCESSING_PROCESSING_SETTINGS_H
#define TAVR_PROCESSING_PROCESSING_SETTINGS_H

#include <QString>

#include "corv/pipeline/parameters.h"

namespace corv {
class pipeline;
}

namespace tavr {

class hs_image;

// ENVI data types offered for image export.
enum envi_data_type : int {
  envi_uint8 = 1,
  envi_float32 = 4,
  envi_uint16 = 12,
};

// Every value of the settings dialog, with its default: the processing
// parameters of the pipeline (their defaults are the pipeline's own, so that the
// viewer and the command line process alike) and the viewer's output,
// workspace and log options.
struct processing_settings {
  // Preprocessing
  int filter_method = corv::FILTER_WIENER;  // a corv::FILTER_METHOD
  int filter_size = 5;
  // Illuminant recovery
  int illuminant_method = 0;        // 0 ORBEK ... 5 White Patch
  bool faster_illumination = true;  // the pipeline's second illuminant switch
  int spatial_smoothness = 50;
  int illuminant_patch_size = 20;
  // Reflectance recovery
  int neighbourhood_size = 5;
  int gray_threshold = 2;
  // Material discovery
  bool faster_materials = true;  // material_mode 2 (clustering a sample), else 0 (every pixel)
  int max_clusters = 20;
  double max_temperature = 0.02;
  double min_temperature = 0.00025;
  double cooling_rate = 0.8;
  double split_threshold = 0.996195;
  int materials_per_pixel = 5;
  // Analysis
  int principal_components = 10;
  bool pca_on_reflectance = false;  // "Apply to:" Reflectance, else Irradiance
  // Workspace
  bool portable_workspace = false;
  // Output
  int envi_data_type = envi_float32;
  bool nurbs_save = false;  // HSZ "Save as NURBS", else "Save as Raw"
  int nurbs_iterations = 10;
  double nurbs_alpha = 0.1;
  int nurbs_degree = 2;
  int nurbs_knot_threshold = -1;
  bool compressed_library_export = false;  // polygon data saved as its mean
  // Logger
  int verbosity = 0;

  // The "Apply to:" choice as the analysis cube type: "Reflectance" or "Irradiance".
  QString analysis_cube_type() const;

  // Copies the processing parameters into a pipeline (everything else of the
  // pipeline's parameters is left as it is).
  void apply_to(corv::pipeline& pipeline) const;
  // Copies the parameters into the image's pipeline and the image's own
  // choices (filter, principal components, analysis cube, verbosity); which
  // operations run is left to the caller.
  void apply_to(hs_image& image) const;

  bool operator==(const processing_settings& other) const;
  bool operator!=(const processing_settings& other) const { return !(*this == other); }
};

// The settings a pipeline's parameters stand for (the viewer-only options at
// their defaults).
processing_settings settings_from(const corv::parameters& parameters);

}  // namespace tavr

#endif

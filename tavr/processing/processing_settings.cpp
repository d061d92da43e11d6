#include "tavr/processing/processing_settings.h"

#include "corv/pipeline/materials.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/hs_image.h"

namespace tavr {

namespace {

// A float parameter as the decimal the user typed (0.02, not 0.0199999996).
double as_decimal(float value) {
  return QString::number(static_cast<double>(value), 'g', 7).toDouble();
}

}  // namespace

QString processing_settings::analysis_cube_type() const {
  return pca_on_reflectance ? QStringLiteral("Reflectance") : QStringLiteral("Irradiance");
}

void processing_settings::apply_to(corv::pipeline& pipeline) const {
  pipeline.set_verbosity(verbosity);
  pipeline.set_filter_size(filter_size);
  pipeline.set_illuminant_method(illuminant_method);
  pipeline.set_second_illuminant(faster_illumination);
  pipeline.set_spatial_smoothness(static_cast<float>(spatial_smoothness));
  pipeline.set_illuminant_patch_size(illuminant_patch_size);
  pipeline.set_neighbourhood_size(neighbourhood_size);
  pipeline.set_gray_threshold(gray_threshold);
  pipeline.set_material_mode(faster_materials ? corv::MATERIALS_SAMPLED : corv::MATERIALS_FULL);
  pipeline.set_max_clusters(max_clusters);
  pipeline.set_max_temperature(static_cast<float>(max_temperature));
  pipeline.set_min_temperature(static_cast<float>(min_temperature));
  pipeline.set_cooling_rate(static_cast<float>(cooling_rate));
  pipeline.set_split_threshold(static_cast<float>(split_threshold));
  pipeline.set_materials_per_pixel(materials_per_pixel);
  pipeline.set_principal_components(principal_components);
  pipeline.set_pca_source(pca_on_reflectance ? 1 : 0);
  pipeline.set_nurbs_encoding(nurbs_save);
  pipeline.set_nurbs_degree(nurbs_degree);
  pipeline.set_nurbs_max_iterations(nurbs_iterations);
  pipeline.set_nurbs_knots_threshold(nurbs_knot_threshold);
  pipeline.set_nurbs_alpha(static_cast<float>(nurbs_alpha));
}

void processing_settings::apply_to(hs_image& image) const {
  apply_to(image.pipeline());
  processing_selection& chosen = image.selection();
  chosen.filter_method = filter_method;
  chosen.filter_size = filter_size;
  chosen.principal_components = principal_components;
  chosen.analysis_cube_type = analysis_cube_type();
  image.set_verbosity(verbosity);
}

bool processing_settings::operator==(const processing_settings& o) const {
  return filter_method == o.filter_method && filter_size == o.filter_size &&
         illuminant_method == o.illuminant_method && faster_illumination == o.faster_illumination &&
         spatial_smoothness == o.spatial_smoothness &&
         illuminant_patch_size == o.illuminant_patch_size &&
         neighbourhood_size == o.neighbourhood_size && gray_threshold == o.gray_threshold &&
         faster_materials == o.faster_materials && max_clusters == o.max_clusters &&
         max_temperature == o.max_temperature && min_temperature == o.min_temperature &&
         cooling_rate == o.cooling_rate && split_threshold == o.split_threshold &&
         materials_per_pixel == o.materials_per_pixel &&
         principal_components == o.principal_components &&
         pca_on_reflectance == o.pca_on_reflectance && portable_workspace == o.portable_workspace &&
         envi_data_type == o.envi_data_type && nurbs_save == o.nurbs_save &&
         nurbs_iterations == o.nurbs_iterations && nurbs_alpha == o.nurbs_alpha &&
         nurbs_degree == o.nurbs_degree && nurbs_knot_threshold == o.nurbs_knot_threshold &&
         compressed_library_export == o.compressed_library_export && verbosity == o.verbosity;
}

processing_settings settings_from(const corv::parameters& p) {
  processing_settings values;
  values.filter_size = p.filter_size;
  values.illuminant_method = p.illuminant_method;
  values.faster_illumination = p.second_illuminant;
  values.spatial_smoothness = static_cast<int>(p.spatial_smoothness);
  values.illuminant_patch_size = p.illuminant_patch_size;
  values.neighbourhood_size = p.neighbourhood_size;
  values.gray_threshold = p.gray_threshold;
  values.faster_materials = p.material_mode != corv::MATERIALS_FULL;
  values.max_clusters = p.max_clusters;
  values.max_temperature = as_decimal(p.max_temperature);
  values.min_temperature = as_decimal(p.min_temperature);
  values.cooling_rate = as_decimal(p.cooling_rate);
  // The library's -1 stands for cos 5 degrees, which the dialog shows as a number.
  values.split_threshold = p.split_threshold < 0.0f ? 0.996195 : as_decimal(p.split_threshold);
  values.materials_per_pixel = p.materials_per_pixel;
  values.principal_components = p.principal_components;
  values.pca_on_reflectance = p.pca_source != 0;
  values.nurbs_save = p.nurbs_encoding;
  values.nurbs_iterations = p.nurbs_max_iterations;
  values.nurbs_alpha = as_decimal(p.nurbs_alpha);
  values.nurbs_degree = p.nurbs_degree;
  values.nurbs_knot_threshold = p.nurbs_knots_threshold;
  values.verbosity = p.verbosity;
  return values;
}

}  // namespace tavr

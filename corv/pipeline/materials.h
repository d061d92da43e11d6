#ifndef CORV_PIPELINE_MATERIALS_H
#define CORV_PIPELINE_MATERIALS_H

#include "corv/io/types.h"

namespace corv {

// Settings of material discovery (the pipeline's defaults). Invalid values are
// replaced as recover_materials documents.
struct material_parameters {
  int max_clusters = 20;
  int subsample = 3;  // q: clustering runs on 1 pixel in 2^q x 2^q (modes 1, 2)
  int materials_per_pixel = 5;
  float max_temperature = 0.02f;
  float min_temperature = 0.00025f;
  float cooling_rate = 0.8f;
  float split_threshold = -1.0f;  // below 0 means cos 5 degrees
};

// Where the clustering runs: every pixel; the image shrunk by 2^q; or, from
// every block of 2^q x 2^q pixels, the lit pixel deepest inside a smooth region
// of one material, away from highlights (material_sample.h), the default.
enum MATERIAL_MODE : int {
  MATERIALS_FULL = 0,
  MATERIALS_SHRUNK = 1,
  MATERIALS_SAMPLED = 2,
};

// Everything material discovery produces. Element numbers count from 0.
struct material_result {
  matrix elements;         // bands x m, unit-norm spectra
  cube abundances;         // height x width x N, largest first
  cube abundance_indexes;  // height x width x N, element numbers
  matrix map;              // height x width, each pixel's strongest element
};

// Discovers the materials of the reflectance cube s (with shading g) and
// expresses every pixel as a mix of its N strongest materials. The specularity
// k, when given, keeps the sampled mode away from highlights; g and k may be
// empty.
material_result recover_materials(const cube& s, const matrix& g, material_parameters settings,
                                  int mode, int verbosity, const matrix& k = matrix());

// Deterministic annealing of spectra (bands x pixels); returns the cluster
// centres, one per column.
matrix deterministic_annealing(const matrix& spectra, float max_temperature, float min_temperature,
                               float cooling_rate, float split_threshold, int max_clusters,
                               int verbosity);

// "Generate Elements": the abundances of the N strongest elements of every pixel.
void generate_elements(const matrix& elements, const cube& s, int materials_per_pixel,
                       int verbosity, cube& abundances, cube& abundance_indexes);

}  // namespace corv

#endif

#ifndef CORV_PIPELINE_ILLUMINANT_H
#define CORV_PIPELINE_ILLUMINANT_H

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// Method codes of recover_global_illuminant.
enum ILLUMINANT_METHOD : int {
  ILLUMINANT_ORBEK = 0,          // iterative dichromatic fit over patches
  ILLUMINANT_FS = 1,             // Finlayson and Schaefer plane intersection
  ILLUMINANT_GRAY_EDGE = 2,      // gray edge of order p
  ILLUMINANT_GRAY_WORLD = 3,     // per-band mean
  ILLUMINANT_SHADE_OF_GRAY = 4,  // per-band Minkowski mean of order p
  ILLUMINANT_WHITE_PATCH = 5,    // per-band maximum
};

// Settings of the illuminant methods (the pipeline's defaults).
struct illuminant_parameters {
  float spatial_smoothness = 50.0f;  // below 0 means 50
  int patch_size = 20;               // below 1 means 20
  bool wiener_marker = false;        // the image is already Wiener-filtered
  bool second_switch = true;         // "Faster illumination estimation"
  int order = 1;                     // gray edge and shade of gray
};

// The illuminant of the scene, one value per band, of unit Euclidean norm.
//
// `patches` selects the patches of methods 0 and 1: a 4-column matrix of
// pre-selected patches (patch_bounds), a 1-column empty matrix for 50 patches,
// or a 1-column matrix of n rows for n patches. When the method selects patches
// itself, `patches` is replaced by the bounds of those it used, so that a later
// run can reuse them. Other methods leave it unchanged.
vector recover_global_illuminant(const cube& I, arma::imat& patches, int method,
                                 const illuminant_parameters& settings, int verbosity);

// The six methods, each as recover_global_illuminant calls it.
vector recover_illuminant_HRK(const cube& I, arma::imat& patches, float smoothness, int patch_size,
                              bool wiener_marker, bool second_switch, int verbosity);
vector recover_illuminant_FS(const cube& I, arma::imat& patches, int patch_size, bool wiener_marker,
                             int verbosity);
vector recover_illuminant_GE(const cube& I, int order, int verbosity);
vector recover_illuminant_WP(const cube& I, int verbosity);  // gray world (mean)
vector recover_illuminant_SG(const cube& I, int order, int verbosity);
vector recover_illuminant_GW(const cube& I, int verbosity);  // white patch (maximum)
// The three per-band statistics on pixels in memory of either layout, read
// where they lie.
vector recover_illuminant_WP(const image_view& I, int verbosity);
vector recover_illuminant_SG(const image_view& I, int order, int verbosity);
vector recover_illuminant_GW(const image_view& I, int verbosity);

}  // namespace corv

#endif

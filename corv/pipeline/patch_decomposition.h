#ifndef CORV_PIPELINE_PATCH_DECOMPOSITION_H
#define CORV_PIPELINE_PATCH_DECOMPOSITION_H

#include "corv/io/types.h"

namespace corv {

// One patch split under the dichromatic model: every pixel spectrum is
// specular(r, c) * illuminant + diffuse(r, c) * diffuse_spectrum.
struct patch_decomposition {
  matrix specular;          // h x w, the illuminant's share of each pixel
  matrix diffuse;           // h x w, the diffuse spectrum's share
  vector diffuse_spectrum;  // bands, the patch's fitted body colour
  bool valid = false;       // smallest specular share >= -0.0001 before clamping
  double dichromatic_error = 0.0;
  double smooth_error = 0.0;
};

// Decomposes a patch sub-cube (h x w x bands) against an illuminant (bands)
// with the given weight on the smoothness of the coefficient images.
patch_decomposition decompose_patch(const cube& patch, const vector& illuminant,
                                    float smoothness, int verbosity);

}  // namespace corv

#endif

#ifndef CORV_PIPELINE_SMOOTH_PATCHES_H
#define CORV_PIPELINE_SMOOTH_PATCHES_H

#include <vector>

#include "corv/io/types.h"

namespace corv {

// The bright, unsaturated, spectrally homogeneous square patches of an image,
// best first. rows[i] and cols[i] name patch i on the patch grid (its top-left
// pixel divided by the patch size); mask is height x width, 1 inside every kept
// patch and 0 elsewhere.
struct patch_list {
  std::vector<int> rows;
  std::vector<int> cols;
  std::vector<float> scores;
  matrix mask;

  std::size_t size() const { return rows.size(); }
  bool empty() const { return rows.empty(); }
};

// Finds up to `wanted` homogeneous patches of side `patch_size` in the cube.
// Finding none is not an error: the list comes back empty with a warning logged.
patch_list select_smooth_patches(const cube& I, int patch_size, int wanted, int verbosity);

// Pre-selected patches as the illuminant routines take them: one row per patch,
// columns first row, last row, first column, last column (inclusive pixels).
arma::imat patch_bounds(const patch_list& patches, int patch_size, arma::uword height,
                        arma::uword width);

}  // namespace corv

#endif

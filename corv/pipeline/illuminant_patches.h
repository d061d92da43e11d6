#ifndef CORV_PIPELINE_ILLUMINANT_PATCHES_H
#define CORV_PIPELINE_ILLUMINANT_PATCHES_H

// What the illuminant methods share: the checks and the information lines that
// open every method, the final scaling, and the smoothed patches of the two
// dichromatic methods.
#include <string>
#include <vector>

#include "corv/io/types.h"

namespace corv {

// Refuses an empty or one-band image and logs "<method>: Image Information~"
// with the dimensions when verbosity is above 0.
void check_illuminant_image(const cube& I, const std::string& method, int verbosity);
void check_illuminant_image(arma::uword rows, arma::uword cols, arma::uword bands,
                            const std::string& method, int verbosity);

// The estimate scaled to unit Euclidean norm; an estimate that is zero in every
// band is refused rather than turned into NaN.
vector unit_illuminant(const arma::vec& estimate);

// The patches the dichromatic methods work on, cut from the smoothed image.
struct illuminant_patches {
  std::vector<cube> cubes;
  arma::imat bounds;      // one row per patch: first row, last row, first column, last column
  bool selected = false;  // chosen here rather than passed in
};

// Reads the patch argument, smooths the image unless it is already
// Wiener-filtered, and cuts the given patches or selects new ones. Throws when
// no patch is found.
illuminant_patches prepare_illuminant_patches(const cube& I, const arma::imat& patches,
                                              int patch_size, bool wiener_marker, int verbosity);

}  // namespace corv

#endif

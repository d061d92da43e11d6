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
patch_decomposition decompose_patch(const cube& patch, const vector& illuminant, float smoothness,
                                    int verbosity);

// A patch's pixels with the plane they span, found once so that a patch can be
// decomposed against many illuminants without repeating the decomposition of
// its pixels.
struct patch_plane {
  arma::uword rows = 0, cols = 0;
  arma::mat spectra;      // bands x (rows * cols), pixel (r, c) in column r + c * rows
  arma::mat basis;        // bands x 2, orthonormal, the strongest two directions
  arma::mat coordinates;  // 2 x (rows * cols), basis' * spectra
  double strength = 0.0;  // plane_strength of the spectra
};

// Orthonormal basis of the plane that best holds the columns of `spectra` (the
// two leading left singular vectors); fewer columns when there are fewer bands.
arma::mat dichromatic_basis(const arma::mat& spectra);

// How clearly the columns of `spectra` span a plane rather than a line: 1 minus
// the ratio of the third to the second eigenvalue of their Gram matrix (0 when
// the second direction is no stronger than the third, that is, noise; 1 for an
// exact plane). A patch of one colour without a highlight has no plane to
// speak of, whatever its two strongest directions happen to be.
double plane_strength(const arma::mat& spectra);

patch_plane find_patch_plane(const cube& patch);

// As decompose_patch, on a plane found before.
patch_decomposition decompose_patch(const patch_plane& plane, const vector& illuminant,
                                    float smoothness, int verbosity);

}  // namespace corv

#endif

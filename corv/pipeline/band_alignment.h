#ifndef CORV_PIPELINE_BAND_ALIGNMENT_H
#define CORV_PIPELINE_BAND_ALIGNMENT_H

#include <vector>

#include "corv/io/types.h"

namespace corv {

// How far a band lies from the reference band: the band's content at (row,
// column) is the reference's content at (row - rows, column - columns).
struct band_shift {
  double rows = 0.0;
  double columns = 0.0;
  // The phase correlation's peak response (0..1): how sure the estimate is.
  double response = 0.0;
};

// The shift of every band against the reference band, by phase correlation:
// the peak of the inverse transform of the two bands' normalised cross-power
// spectrum (under a Hann window), refined to a fraction of a pixel from its
// neighbours. The gain of a band does not matter. The reference's shift is zero.
// Throws std::runtime_error "align_bands: Reference band <n> does not exist;
// the image has <m> bands." or "align_bands: The image is too small to align
// (<rows> x <columns>)." (fewer than 8 rows or columns).
std::vector<band_shift> band_shifts(const cube& data, unsigned reference);

// Moves every band by the opposite of its shift (bilinear resampling; pixels
// that come from outside the image take the nearest edge pixel's value), so
// that all bands line up with the reference band. Shifts whose response is
// below `min_response` are taken as no shift (a band too unlike the reference
// to be matched). Returns the shifts applied.
std::vector<band_shift> align_bands(cube& data, unsigned reference, double min_response = 0.05);

}  // namespace corv

#endif

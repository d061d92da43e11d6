#ifndef CORV_ANALYSIS_SMOOTHING_H
#define CORV_ANALYSIS_SMOOTHING_H

#include <vector>

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// Smooths every pixel spectrum along the band axis, in place. Band indexes
// outside the cube are clamped (the edge bands are repeated). A refused window
// leaves the cube unchanged.

// Box filter of an odd window of at least 3 bands.
void moving_average(cube& data, int window);
// Quadratic Savitzky-Golay smoothing for windows 5, 7 and 9.
void savitzky_golay(cube& data, int window);
// The same from pixels in memory of either layout into `out`, which has the
// layout and size of `data` and must not overlap it.
void moving_average(const image_view& data, float* out, int window);
void savitzky_golay(const image_view& data, float* out, int window);

// The weighted sum over a window centred on each band, divided by the
// normaliser, of one spectrum (the same rule as the cube filters).
std::vector<float> smooth_spectrum(const std::vector<float>& spectrum,
                                   const std::vector<float>& weights, float normaliser);
// Savitzky-Golay weights of a window (5, 7 or 9) and their normaliser.
std::vector<float> savitzky_golay_weights(int window, float& normaliser);

}  // namespace corv

#endif

#ifndef TAVR_IMAGE_CHANNEL_WEIGHTS_H
#define TAVR_IMAGE_CHANNEL_WEIGHTS_H

#include <array>

#include "corv/io/types.h"

namespace tavr {

// One row of the channel weight table: a wavelength and the weights of the
// three picture channels there. Channel 0 peaks at 470 nm, channel 1 at 530 nm
// and channel 2 at 600 nm.
struct channel_weight_row {
  float nm;
  std::array<float, 3> weights;
};

// The 35 rows from 380 to 720 nm in steps of 10 nm.
const std::array<channel_weight_row, 35>& channel_weight_table();

// The weights at a wavelength: the 380 nm row at or below 380, the 720 nm row
// at or above 720, linear between the two neighbouring rows otherwise.
std::array<float, 3> channel_weights(float nm);

// Colour constants K_c by which each weighted channel is scaled.
constexpr std::array<double, 3> channel_scale{0.74744, 1.003742, 1.071787};

// Turns a cube (rows x columns x B bands) into three channels (rows x columns
// x 3). When the wavelengths span 550 nm, channel c = K_c / S_c x
// sum_b w_c(nm_b) x band b, with S_c = sum_b w_c(nm_b) x weighting_b, so that
// a spectrum equal to `weighting` gives (K_0, K_1, K_2); `weighting` is the
// image's illuminant, or empty for a vector of ones. Otherwise three bands are
// copied: with B < 11, bands B-1, B/2 and 0; else, with h = B/2 and q = B/4,
// bands h+q, h and h-q. Throws std::invalid_argument when the wavelengths or a
// non-empty weighting do not have one value per band.
corv::cube spectrum_to_colour(const corv::cube& I, const corv::vector& wavelengths,
                              const corv::vector& weighting);

}  // namespace tavr

#endif

#include "tavr/image/channel_weights.h"

#include <stdexcept>

namespace tavr {

const std::array<channel_weight_row, 35>& channel_weight_table() {
  static const std::array<channel_weight_row, 35> table{{
      {380.0f, {0.0f, 0.0f, 0.0f}},      {390.0f, {0.03f, 0.005f, 0.0f}},
      {400.0f, {0.075f, 0.01f, 0.01f}},  {410.0f, {0.145f, 0.025f, 0.01f}},
      {420.0f, {0.24f, 0.04f, 0.01f}},   {430.0f, {0.355f, 0.05f, 0.01f}},
      {440.0f, {0.475f, 0.075f, 0.01f}}, {450.0f, {0.675f, 0.11f, 0.01f}},
      {460.0f, {0.72f, 0.18f, 0.01f}},   {470.0f, {0.735f, 0.28f, 0.01f}},
      {480.0f, {0.7f, 0.375f, 0.01f}},   {490.0f, {0.595f, 0.44f, 0.01f}},
      {500.0f, {0.49f, 0.566f, 0.015f}}, {510.0f, {0.36f, 0.775f, 0.015f}},
      {520.0f, {0.233f, 0.86f, 0.02f}},  {530.0f, {0.12f, 0.99f, 0.015f}},
      {540.0f, {0.04f, 0.98f, 0.015f}},  {550.0f, {0.0166f, 0.91f, 0.01f}},
      {560.0f, {0.005f, 0.78f, 0.05f}},  {570.0f, {0.0f, 0.6f, 0.23f}},
      {580.0f, {0.0f, 0.4f, 0.46f}},     {590.0f, {0.0f, 0.29f, 0.525f}},
      {600.0f, {0.0f, 0.175f, 0.54f}},   {610.0f, {0.0f, 0.09f, 0.5f}},
      {620.0f, {0.0f, 0.04f, 0.42f}},    {630.0f, {0.0f, 0.025f, 0.33f}},
      {640.0f, {0.0f, 0.015f, 0.27f}},   {650.0f, {0.0f, 0.01f, 0.19f}},
      {660.0f, {0.0f, 0.01f, 0.14f}},    {670.0f, {0.0f, 0.01f, 0.08f}},
      {680.0f, {0.0f, 0.0f, 0.025f}},    {690.0f, {0.0f, 0.0f, 0.0f}},
      {700.0f, {0.0f, 0.0f, 0.0f}},      {710.0f, {0.0f, 0.0f, 0.0f}},
      {720.0f, {0.0f, 0.0f, 0.0f}},
  }};
  return table;
}

std::array<float, 3> channel_weights(float nm) {
  const auto& table = channel_weight_table();
  if (nm <= table.front().nm) {
    return table.front().weights;
  }
  if (nm >= table.back().nm) {
    return table.back().weights;
  }
  std::size_t upper = 1;
  while (table[upper].nm <= nm) {
    ++upper;
  }
  const channel_weight_row& low = table[upper - 1];
  const channel_weight_row& high = table[upper];
  const float t = (nm - low.nm) / (high.nm - low.nm);
  std::array<float, 3> weights{};
  for (std::size_t c = 0; c < 3; ++c) {
    weights[c] = low.weights[c] + t * (high.weights[c] - low.weights[c]);
  }
  return weights;
}

corv::cube spectrum_to_colour(const corv::cube& I, const corv::vector& wavelengths,
                              const corv::vector& weighting) {
  const arma::uword bands = I.n_slices;
  if (wavelengths.n_elem != bands || bands == 0) {
    throw std::invalid_argument("spectrum_to_colour: Wavelengths must have same bands as I");
  }
  if (!weighting.empty() && weighting.n_elem != bands) {
    throw std::invalid_argument("spectrum_to_colour: Weighting must have same bands as I");
  }
  corv::cube channels(I.n_rows, I.n_cols, 3);
  if (wavelengths.min() > 550.0f || wavelengths.max() < 550.0f) {
    // No green to weigh against: copy three bands spread over the range.
    if (bands < 11) {
      channels.slice(0) = I.slice(bands - 1);
      channels.slice(1) = I.slice(bands / 2);
      channels.slice(2) = I.slice(0);
    } else {
      const arma::uword half = bands / 2;
      const arma::uword quarter = bands / 4;
      channels.slice(0) = I.slice(half + quarter);
      channels.slice(1) = I.slice(half);
      channels.slice(2) = I.slice(half - quarter);
    }
    return channels;
  }
  channels.zeros();
  std::array<double, 3> sums{0.0, 0.0, 0.0};
  for (arma::uword b = 0; b < bands; ++b) {
    const std::array<float, 3> w = channel_weights(wavelengths(b));
    const float e = weighting.empty() ? 1.0f : weighting(b);
    for (std::size_t c = 0; c < 3; ++c) {
      if (w[c] != 0.0f) {
        channels.slice(c) += w[c] * I.slice(b);
      }
      sums[c] += static_cast<double>(w[c]) * e;
    }
  }
  for (std::size_t c = 0; c < 3; ++c) {
    channels.slice(c) *= static_cast<float>(channel_scale[c] / sums[c]);
  }
  return channels;
}

}  // namespace tavr

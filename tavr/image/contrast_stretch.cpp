#include "tavr/image/contrast_stretch.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tavr {

float cumulative_cutoff(corv::vector values, double fraction) {
  if (values.empty()) {
    return std::numeric_limits<float>::quiet_NaN();
  }
  const double clamped = std::clamp(fraction, 0.0, 1.0);
  const auto position =
      static_cast<arma::uword>(std::lround(clamped * static_cast<double>(values.n_elem - 1)));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(position),
                   values.end());
  return values(position);
}

void stretch_contrast(corv::cube& channels, const arma::umat& keep, double low, double high) {
  const arma::uvec kept = arma::find(keep);
  for (arma::uword c = 0; c < channels.n_slices; ++c) {
    corv::matrix channel = channels.slice(c);
    const float lo = cumulative_cutoff(channel.elem(kept), low);
    const float hi = cumulative_cutoff(channel.elem(kept), high);
    if (!(hi > lo)) {
      channel.elem(arma::find(keep == 0)).zeros();
      channels.slice(c) = channel;
      continue;
    }
    const float scale = 255.0f / (hi - lo);
    channel.transform([lo, scale](float x) { return std::clamp((x - lo) * scale, 0.0f, 255.0f); });
    channel.elem(arma::find(keep == 0)).zeros();
    channels.slice(c) = channel;
  }
}

}  // namespace tavr

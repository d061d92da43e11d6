#include "tavr/image/tone_curve.h"

#include <cmath>

namespace tavr {

void apply_sine_tone_curve(corv::cube& channels) {
  const float lowest = channels.min();
  if (lowest < 0.0f) {
    channels += std::abs(lowest);
  }
  const float highest = channels.max();
  const auto k = static_cast<float>((M_PI / 2.0) / static_cast<double>(highest));
  channels.transform([k](float x) { return 255.0f * std::sin(k * x); });
}

}  // namespace tavr

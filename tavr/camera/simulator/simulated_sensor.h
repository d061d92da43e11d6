#ifndef TAVR_CAMERA_SIMULATOR_SIMULATED_SENSOR_H
#define TAVR_CAMERA_SIMULATOR_SIMULATED_SENSOR_H

#include <cstdint>
#include <vector>

namespace tavr::simulator {

// What the simulated camera looks at.
enum class target : int { scene = 0, capped = 1, white_tile = 2 };

// The exposure of one frame.
struct exposure_settings {
  double exposure_us = 10000.0;
  double gain_db = 0.0;
  bool eight_bit = false;  // 8-bit raw frames, else 10 bits in 16
};

// A 2048 x 1088 sensor behind a 4x4 visible mosaic. The scene (the bundled
// sample through the mosaic's filter responses) and a white tile are prepared
// once; each frame then only varies a moving light and the noise.
class simulated_sensor {
 public:
  static constexpr int width = 2048;
  static constexpr int height = 1088;
  static constexpr int mosaic = 4;
  static constexpr int full_scale = 1023;  // 10-bit data

  // The shared sensor, prepared on first use.
  static const simulated_sensor& instance();

  // Mean signal of the scene in counts per unit of (exposure / 10 ms x linear gain)
  // under the light at time `seconds`; what the auto exposure aims with.
  double mean_signal(target looking_at, double seconds) const;

  // Renders the frame at time `seconds` into `pixels` (width x height values of
  // 2 bytes, or of 1 byte for 8-bit frames); `seed` varies the noise.
  void render(target looking_at, double seconds, const exposure_settings& settings,
              std::uint32_t seed, void* pixels) const;

 private:
  simulated_sensor();
  void light_at(double seconds, std::vector<float>& across, std::vector<float>& down) const;

  std::vector<float> scene_;  // per sensor pixel, 1 = the white tile's brightest band
  std::vector<float> white_;  // the white tile, per sensor pixel
  std::vector<float> black_;  // black level with its fixed pattern, per sensor pixel
  std::vector<float> noise_;  // standard normal samples
  double scene_mean_ = 0.0;
  double white_mean_ = 0.0;
};

}  // namespace tavr::simulator

#endif

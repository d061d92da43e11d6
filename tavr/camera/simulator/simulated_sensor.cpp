#include "tavr/camera/simulator/simulated_sensor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>

extern "C" const unsigned char simulator_scene[];

namespace tavr::simulator {

namespace {

constexpr double pi = 3.14159265358979323846;
// Counts of a scene value of 1 at 10 ms and 0 dB.
constexpr double counts_per_unit = 900.0;
constexpr double electrons_per_count = 12.5;  // full well over full scale
constexpr double read_noise = 1.5;            // counts
constexpr double black_level = 16.0;          // counts
constexpr unsigned noise_table_bits = 18;
// The light: an even ambient part and a spot that drifts across the scene.
constexpr float ambient = 0.55f;
constexpr float spot = 0.75f;

// The scene file: "XSIM", width, height, bands, the white tile's bands (float)
// and the scene (height x width x bands, uint16).
struct scene_file {
  int width = 0;
  int height = 0;
  int bands = 0;
  const float* white = nullptr;
  const std::uint16_t* values = nullptr;
};

scene_file read_scene() {
  scene_file file;
  std::uint32_t header[3];
  std::memcpy(header, simulator_scene + 4, sizeof header);
  file.width = static_cast<int>(header[0]);
  file.height = static_cast<int>(header[1]);
  file.bands = static_cast<int>(header[2]);
  file.white = reinterpret_cast<const float*>(simulator_scene + 16);
  file.values = reinterpret_cast<const std::uint16_t*>(simulator_scene + 16 + 4 * file.bands);
  return file;
}

// One band of the scene at a cell of the sensor's cell grid: the sample is
// scaled to cover the grid (cropped at the long side) and read bilinearly.
float scene_value(const scene_file& file, int cell_x, int cell_y, int band, double scale,
                  double shift_x, double shift_y) {
  const double x = std::clamp((cell_x + 0.5) / scale + shift_x - 0.5, 0.0, file.width - 1.0);
  const double y = std::clamp((cell_y + 0.5) / scale + shift_y - 0.5, 0.0, file.height - 1.0);
  const int x0 = static_cast<int>(x);
  const int y0 = static_cast<int>(y);
  const int x1 = std::min(x0 + 1, file.width - 1);
  const int y1 = std::min(y0 + 1, file.height - 1);
  const double fx = x - x0;
  const double fy = y - y0;
  auto at = [&](int xx, int yy) {
    return file.values[(static_cast<std::size_t>(yy) * file.width + xx) * file.bands + band] /
           65535.0;
  };
  return static_cast<float>((1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x1, y0)) +
                            fy * ((1 - fx) * at(x0, y1) + fx * at(x1, y1)));
}

}  // namespace

const simulated_sensor& simulated_sensor::instance() {
  static const simulated_sensor sensor;
  return sensor;
}

simulated_sensor::simulated_sensor() {
  const scene_file file = read_scene();
  const int cells_x = width / mosaic;
  const int cells_y = height / mosaic;
  const double scale = std::max(double(cells_x) / file.width, double(cells_y) / file.height);
  const double shift_x = (file.width - cells_x / scale) / 2;
  const double shift_y = (file.height - cells_y / scale) / 2;
  const std::size_t pixels = static_cast<std::size_t>(width) * height;
  scene_.resize(pixels);
  white_.resize(pixels);
  black_.resize(pixels);
  std::mt19937 random(20240611u);
  std::normal_distribution<float> normal;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int band = (y % mosaic) * mosaic + x % mosaic;
      const std::size_t p = static_cast<std::size_t>(y) * width + x;
      const int used = std::min(band, file.bands - 1);
      scene_[p] = scene_value(file, x / mosaic, y / mosaic, used, scale, shift_x, shift_y);
      white_[p] = file.white[used];
      black_[p] = static_cast<float>(black_level + 0.8 * normal(random));
    }
  }
  noise_.resize(std::size_t{1} << noise_table_bits);
  for (float& n : noise_) {
    n = normal(random);
  }
  scene_mean_ = std::accumulate(scene_.begin(), scene_.end(), 0.0) / pixels;
  white_mean_ = std::accumulate(white_.begin(), white_.end(), 0.0) / pixels;
}

void simulated_sensor::light_at(double seconds, std::vector<float>& across,
                                std::vector<float>& down) const {
  const double centre_x = width * (0.5 + 0.32 * std::sin(2 * pi * seconds / 7.0));
  const double centre_y = height * (0.5 + 0.25 * std::sin(2 * pi * seconds / 4.6 + 1.0));
  const double sigma = 0.22 * width;
  across.resize(width);
  down.resize(height);
  for (int x = 0; x < width; ++x) {
    const double d = (x - centre_x) / sigma;
    across[x] = static_cast<float>(std::exp(-0.5 * d * d));
  }
  for (int y = 0; y < height; ++y) {
    const double d = (y - centre_y) / sigma;
    down[y] = spot * static_cast<float>(std::exp(-0.5 * d * d));
  }
}

double simulated_sensor::mean_signal(target looking_at, double seconds) const {
  if (looking_at == target::capped) {
    return 0.0;
  }
  std::vector<float> across, down;
  light_at(seconds, across, down);
  const double mean_across = std::accumulate(across.begin(), across.end(), 0.0) / width;
  const double mean_down = std::accumulate(down.begin(), down.end(), 0.0) / height;
  const double mean = looking_at == target::scene ? scene_mean_ : white_mean_;
  return counts_per_unit * mean * (ambient + mean_across * mean_down);
}

namespace {

// One frame's rows: signal under the light, shot and read noise by a table of the
// noise's spread per whole count, black level, clipped to 10 bits.
template <typename Pixel>
void render_rows(const float* base, const float* black, const std::vector<float>& noise,
                 std::uint32_t mask, const std::vector<float>& across,
                 const std::vector<float>& down, float amplitude, const std::vector<float>& spread,
                 std::uint32_t seed, int shift, Pixel* out) {
  const int width = simulated_sensor::width;
  const auto top = static_cast<float>(spread.size() - 1);
  std::uint32_t state = seed * 2654435761u + 1u;
  for (int y = 0; y < simulated_sensor::height; ++y) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    const float* row_noise = noise.data();
    const std::uint32_t row_offset = state;
    const float row_spot = down[static_cast<std::size_t>(y)];
    const std::size_t start = static_cast<std::size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      const float signal = base[start + x] * amplitude * (ambient + row_spot * across[x]);
      const float sigma = spread[static_cast<std::size_t>(std::min(signal, top))];
      float value = black[start + x] + signal + sigma * row_noise[(row_offset + x) & mask];
      value = std::clamp(value, 0.0f, static_cast<float>(simulated_sensor::full_scale));
      out[start + x] = static_cast<Pixel>(static_cast<int>(value + 0.5f) >> shift);
    }
  }
}

}  // namespace

void simulated_sensor::render(target looking_at, double seconds, const exposure_settings& settings,
                              std::uint32_t seed, void* pixels) const {
  std::vector<float> across, down;
  light_at(seconds, across, down);
  const double gain = std::pow(10.0, settings.gain_db / 20.0);
  const float amplitude =
      looking_at == target::capped
          ? 0.0f
          : static_cast<float>(settings.exposure_us / 10000.0 * gain * counts_per_unit);
  // The noise's spread at each whole count of signal (beyond full scale it no longer matters).
  std::vector<float> spread(full_scale + 2);
  for (std::size_t counts = 0; counts < spread.size(); ++counts) {
    spread[counts] = static_cast<float>(std::sqrt(
        static_cast<double>(counts) * gain / electrons_per_count + read_noise * read_noise));
  }
  const std::vector<float>& base = looking_at == target::white_tile ? white_ : scene_;
  const std::uint32_t mask = (1u << noise_table_bits) - 1;
  if (settings.eight_bit) {
    render_rows(base.data(), black_.data(), noise_, mask, across, down, amplitude, spread, seed, 2,
                static_cast<std::uint8_t*>(pixels));
  } else {
    render_rows(base.data(), black_.data(), noise_, mask, across, down, amplitude, spread, seed, 0,
                static_cast<std::uint16_t*>(pixels));
  }
}

}  // namespace tavr::simulator

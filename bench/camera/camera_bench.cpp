// Live view must keep up with the sensor: each conversion of a 2048 x 1088
// 10-bit mosaic frame (4x4 visible mosaic, 16 bands) at 200 frames per second or
// more, that is within 5 ms.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "tavr/camera/camera_capture.h"
#include "tavr/camera/camera_thread.h"
#include "tavr/camera/frame_conversion.h"

namespace {

constexpr int width = 2048;
constexpr int height = 1088;

const tavr::camera_frame& frame() {
  static const tavr::camera_frame f = [] {
    tavr::camera_frame made;
    made.width = width;
    made.height = height;
    made.bytes.resize(std::size_t{width} * height * 2);
    auto* pixels = reinterpret_cast<std::uint16_t*>(made.bytes.data());
    std::mt19937 random(7);
    std::uniform_int_distribution<int> level(0, 1023);
    for (std::size_t i = 0; i < std::size_t{width} * height; ++i) {
      pixels[i] = static_cast<std::uint16_t>(level(random));
    }
    return made;
  }();
  return f;
}

const tavr::mosaic_layout mosaic{4, 4, 16};

std::vector<float> wavelengths() {
  std::vector<float> nm;
  for (int b = 0; b < 16; ++b) {
    nm.push_back(460.0f + 9.0f * static_cast<float>((b * 7) % 16));
  }
  return nm;
}

void raw_view(benchmark::State& state) {
  QImage picture;
  for (auto _ : state) {
    tavr::raw_picture(frame().view(), picture);
    benchmark::DoNotOptimize(picture.constBits());
  }
}
BENCHMARK(raw_view)->Unit(benchmark::kMillisecond)->UseRealTime();

void band_view(benchmark::State& state) {
  QImage picture;
  for (auto _ : state) {
    tavr::band_picture(frame().view(), mosaic, 5, picture);
    benchmark::DoNotOptimize(picture.constBits());
  }
}
BENCHMARK(band_view)->Unit(benchmark::kMillisecond)->UseRealTime();

void colour_view(benchmark::State& state) {
  QImage picture;
  const tavr::colour_mix mix = tavr::colour_mix_for(wavelengths(), true);
  for (auto _ : state) {
    tavr::colour_picture(frame().view(), mosaic, mix, picture);
    benchmark::DoNotOptimize(picture.constBits());
  }
}
BENCHMARK(colour_view)->Unit(benchmark::kMillisecond)->UseRealTime();

void capture_cube(benchmark::State& state) {
  for (auto _ : state) {
    corv::cube cube = tavr::capture_cube(frame().view(), mosaic);
    benchmark::DoNotOptimize(cube.memptr());
  }
}
BENCHMARK(capture_cube)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole capture as the Snapshot command makes it: split, sorted, and with
// "Spectrally Smoothed" into 15 bands (Gaussian filters as responses).
void capture_smoothed(benchmark::State& state) {
  tavr::camera_description device;
  device.mosaic = mosaic;
  device.wavelengths = wavelengths();
  device.range_start = 400;
  device.responses.set_size(16, 301);
  for (int b = 0; b < 16; ++b) {
    for (int s = 0; s < 301; ++s) {
      const float d = (400.0f + s - device.wavelengths[b]) / 7.0f;
      device.responses(b, s) = std::exp(-0.5f * d * d);
    }
  }
  tavr::capture_options options;
  options.smoothed = state.range(0) != 0;
  for (auto _ : state) {
    tavr::capture_result result = tavr::make_capture(frame(), device, options);
    benchmark::DoNotOptimize(result.data.cube.memptr());
  }
}
BENCHMARK(capture_smoothed)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

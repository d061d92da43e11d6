// Illuminant recovery by the iterative dichromatic fit (code 0) and the plane
// intersection (code 1), 50 patches wanted, on one 1024 x 1024 x 33 synthetic
// dichromatic scene (made once): smoothing, patch selection and the solve.
#include <benchmark/benchmark.h>

#include <cmath>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant.h"

namespace {

constexpr arma::uword bench_size = 1024, bench_bands = 33;

const corv::cube& bench_scene() {
  static const corv::cube data = [] {
    corv::logger::instance().set_echo(false);
    arma::arma_rng::set_seed(11);
    corv::cube scene(bench_size, bench_size, bench_bands);
    const arma::fmat highlight = arma::randu<arma::fmat>(bench_size / 32, bench_size / 32);
    for (arma::uword b = 0; b < bench_bands; ++b) {
      const float t = static_cast<float>(b) / (bench_bands - 1);
      const float light = 0.4f + 0.8f * t;
      for (arma::uword c = 0; c < bench_size; ++c) {
        const float body = 0.2f + 0.6f * std::exp(-std::pow((t - (c / 256) * 0.3f) / 0.2f, 2.0f));
        for (arma::uword r = 0; r < bench_size; ++r) {
          const float shading = 0.75f + 0.25f * std::sin(5.0f * c / bench_size + 1.0f) *
                                            std::cos(4.0f * r / bench_size);
          const float dr = static_cast<float>(r % 32) - 16.0f,
                      dc = static_cast<float>(c % 32) - 16.0f;
          const float k = 0.3f * highlight(r / 32, c / 32) * std::exp(-(dr * dr + dc * dc) / 32.0f);
          scene(r, c, b) = 2500.0f * (shading * body + k) * light;
        }
      }
    }
    return scene;
  }();
  return data;
}

void illuminant_recovery(benchmark::State& state) {
  const corv::cube& scene = bench_scene();
  corv::illuminant_parameters settings;
  for (auto _ : state) {
    arma::imat patches(0, 1);
    benchmark::DoNotOptimize(corv::recover_global_illuminant(
                                 scene, patches, static_cast<int>(state.range(0)), settings, 0)
                                 .memptr());
  }
}
BENCHMARK(illuminant_recovery)
    ->ArgName("method")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

// Smoothing, the Wiener filter, PCA and band maths on one 512 x 512 x 128 float32
// cube of random values (made once, seeded). compare_analysis.py puts the same
// operations through the Python module beside Spectral Python and scipy.
#include <benchmark/benchmark.h>

#include "corv/analysis/band_maths.h"
#include "corv/analysis/pca.h"
#include "corv/analysis/smoothing.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "corv/pipeline/wiener.h"

namespace {

constexpr arma::uword bench_rows = 512, bench_cols = 512, bench_bands = 128;

const corv::cube& bench_cube() {
  static const corv::cube data = [] {
    corv::logger::instance().set_echo(false);
    arma::arma_rng::set_seed(17);
    return corv::cube(bench_rows, bench_cols, bench_bands, arma::fill::randu);
  }();
  return data;
}

void analysis_pca(benchmark::State& state) {
  const corv::cube& data = bench_cube();
  for (auto _ : state) {
    corv::cube components;
    corv::vector strengths;
    corv::pca(data, components, strengths, static_cast<int>(state.range(0)), 0.001f);
    benchmark::DoNotOptimize(components.memptr());
  }
}
BENCHMARK(analysis_pca)
    ->ArgName("components")
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// One band, as scipy.signal.wiener filters it.
void analysis_wiener_band(benchmark::State& state) {
  const corv::matrix band = bench_cube().slice(0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(corv::wiener_filter(band, 5, 5).memptr());
  }
}
BENCHMARK(analysis_wiener_band)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every band through the pipeline's filter stage (bands in parallel), on a
// pipeline whose image is set before each run.
void analysis_wiener_cube(benchmark::State& state) {
  const corv::vector wavelengths = arma::linspace<corv::vector>(400.0f, 1000.0f, bench_bands);
  corv::pipeline image;
  for (auto _ : state) {
    state.PauseTiming();
    image.set_I(bench_cube(), wavelengths);
    state.ResumeTiming();
    image.filter(corv::FILTER_WIENER, 5, false);
    benchmark::DoNotOptimize(image.I().memptr());
  }
}
BENCHMARK(analysis_wiener_cube)->Unit(benchmark::kMillisecond)->UseRealTime();

// The in-place filters run on a fresh copy each time; the copy is not timed.
template <typename Filter>
void smoothing_run(benchmark::State& state, Filter filter) {
  corv::cube data;
  for (auto _ : state) {
    state.PauseTiming();
    data = bench_cube();
    state.ResumeTiming();
    filter(data, static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(data.memptr());
  }
}

void analysis_savitzky_golay(benchmark::State& state) {
  smoothing_run(state, [](corv::cube& data, int window) { corv::savitzky_golay(data, window); });
}
BENCHMARK(analysis_savitzky_golay)
    ->ArgName("window")
    ->Arg(5)
    ->Arg(9)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void analysis_moving_average(benchmark::State& state) {
  smoothing_run(state, [](corv::cube& data, int window) { corv::moving_average(data, window); });
}
BENCHMARK(analysis_moving_average)
    ->ArgName("window")
    ->Arg(5)
    ->Arg(15)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void analysis_band_maths(benchmark::State& state) {
  const corv::image_list images = {std::cref(bench_cube())};
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        corv::band_maths(images, "(I1[90] - I1[60]) / (I1[90] + I1[60])").memptr());
  }
}
BENCHMARK(analysis_band_maths)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

// Dichromatic parameter recovery on one 1024 x 1024 x 33 float cube (random
// materials under one illuminant, made once, seeded), with neighbourhoods of
// n = 5 and n = 20: the time should not grow with n. compare_dichromatic.py sets
// the same call beside scipy's uniform filter.
#include <benchmark/benchmark.h>

#include "corv/io/logger.h"
#include "corv/pipeline/dichromatic.h"

namespace {

constexpr arma::uword bench_rows = 1024, bench_cols = 1024, bench_bands = 33;

const corv::cube& bench_cube() {
  static const corv::cube data = [] {
    corv::logger::instance().set_echo(false);
    arma::arma_rng::set_seed(23);
    return corv::cube(bench_rows, bench_cols, bench_bands, arma::fill::randu);
  }();
  return data;
}

void dichromatic_recovery(benchmark::State& state) {
  const corv::cube& data = bench_cube();
  const corv::vector illuminant = arma::linspace<corv::vector>(0.5f, 1.5f, bench_bands);
  const corv::vector wavelengths = arma::linspace<corv::vector>(400.0f, 720.0f, bench_bands);
  corv::dichromatic_parameters settings;
  settings.neighbourhood_size = static_cast<int>(state.range(0));
  for (auto _ : state) {
    corv::matrix k, g;
    corv::cube s;
    corv::recover_dichromatic_parameters(data, illuminant, wavelengths, settings, 0, k, g, s);
    benchmark::DoNotOptimize(s.memptr());
  }
}
BENCHMARK(dichromatic_recovery)
    ->ArgName("n")
    ->Arg(5)
    ->Arg(20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

// Material discovery on a 1024 x 1024 x 33 reflectance cube of eight smooth
// surfaces in irregular patches, shaded and noisy: the whole discovery with
// the pipeline's defaults (clustering the image shrunk 8 times, abundances on
// every pixel), and the abundance step alone. compare_materials.py puts the
// same cube beside Spectral Python's k-means.
#include <benchmark/benchmark.h>

#include <cmath>

#include "corv/io/logger.h"
#include "corv/pipeline/materials.h"

namespace {

constexpr arma::uword rows = 1024, cols = 1024, bands = 33, surfaces = 8;

struct scene {
  corv::cube s;

  static const scene& instance() {
    static const scene made;
    return made;
  }

 private:
  // Surface m: a smooth curve of two bumps and an edge, all placed by m. Each
  // 64 x 64 block takes a surface from a hash of its position, so that the
  // boundaries are irregular; shading 0.5 to 1 and noise 0.003.
  scene() : s(rows, cols, bands, arma::fill::none) {
    corv::logger::instance().set_echo(false);
    arma::arma_rng::set_seed(7);
    corv::matrix spectra(bands, surfaces);
    for (arma::uword m = 0; m < surfaces; ++m) {
      for (arma::uword b = 0; b < bands; ++b) {
        const float x = static_cast<float>(b) / (bands - 1);
        const float centre = 0.1f + 0.11f * m, edge = 0.9f - 0.1f * m;
        spectra(b, m) = 0.05f + 0.4f * std::exp(-40.0f * (x - centre) * (x - centre)) +
                        0.3f / (1.0f + std::exp(-(x - edge) * 25.0f));
      }
    }
    const corv::matrix shading = 0.5f + 0.5f * arma::randu<corv::matrix>(rows, cols);
    for (arma::uword c = 0; c < cols; ++c) {
      for (arma::uword r = 0; r < rows; ++r) {
        const arma::uword m = ((r / 64) * 7 + (c / 64) * 13 + (r / 64) * (c / 64)) % surfaces;
        for (arma::uword b = 0; b < bands; ++b) {
          s(r, c, b) = spectra(b, m) * shading(r, c);
        }
      }
    }
    s += 0.003f * arma::randn<corv::cube>(rows, cols, bands);
  }
};

void recover_materials_shrunk(benchmark::State& state) {
  const scene& data = scene::instance();
  for (auto _ : state) {
    const corv::material_result found = corv::recover_materials(
        data.s, corv::matrix(), corv::material_parameters(), corv::MATERIALS_SHRUNK, 0);
    benchmark::DoNotOptimize(found.abundances.memptr());
    state.counters["materials"] = static_cast<double>(found.elements.n_cols);
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(recover_materials_shrunk)->Unit(benchmark::kMillisecond)->UseRealTime();

// The pipeline's default mode.
void recover_materials_sampled(benchmark::State& state) {
  const scene& data = scene::instance();
  for (auto _ : state) {
    const corv::material_result found = corv::recover_materials(
        data.s, corv::matrix(), corv::material_parameters(), corv::MATERIALS_SAMPLED, 0);
    benchmark::DoNotOptimize(found.abundances.memptr());
    state.counters["materials"] = static_cast<double>(found.elements.n_cols);
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(recover_materials_sampled)->Unit(benchmark::kMillisecond)->UseRealTime();

void generate_elements_8_of_5(benchmark::State& state) {
  const scene& data = scene::instance();
  const corv::matrix elements = arma::normalise(arma::randu<corv::matrix>(bands, surfaces));
  corv::cube abundances, indexes;
  for (auto _ : state) {
    corv::generate_elements(elements, data.s, 5, 0, abundances, indexes);
    benchmark::DoNotOptimize(abundances.memptr());
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(generate_elements_8_of_5)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

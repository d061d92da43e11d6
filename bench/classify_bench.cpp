// Classification and unmixing of a 512 x 512 x 128 float cube: SAM against 20
// references keeping 5 results per pixel, unmixing over 5 references, and SVM
// labelling with 20 classes. compare_classify.py puts the same work beside
// Spectral Python, scipy and scikit-learn.
#include <benchmark/benchmark.h>

#include "corv/analysis/sam.h"
#include "corv/analysis/svm.h"
#include "corv/analysis/unmixing.h"
#include "corv/io/logger.h"

namespace {

constexpr arma::uword rows = 512, cols = 512, bands = 128;

struct scene {
  corv::cube image;
  corv::vector wavelengths;
  corv::matrix references;  // 20, one per row

  static const scene& instance() {
    static const scene made;
    return made;
  }

 private:
  // Every pixel a random non-negative mixture of the references plus a little
  // noise, so that rankings and active sets vary from pixel to pixel.
  scene() : wavelengths(arma::linspace<corv::vector>(400.0f, 1000.0f, bands)) {
    corv::logger::instance().set_echo(false);
    arma::arma_rng::set_seed(3);
    references = arma::randu<corv::matrix>(20, bands);
    const corv::matrix weights = arma::pow(arma::randu<corv::matrix>(rows * cols, 20), 4.0f);
    const corv::matrix pixels = weights * references;  // pixels x bands, band-sequential
    image = corv::cube(pixels.memptr(), rows, cols, bands);
    image += 0.01f * arma::randn<corv::cube>(rows, cols, bands);
  }
};

void sam_20_references_5_results(benchmark::State& state) {
  const scene& s = scene::instance();
  corv::cube values, indexes;
  for (auto _ : state) {
    corv::sam(s.image, s.wavelengths, s.references, corv::vector(), values, indexes, 5);
    benchmark::DoNotOptimize(values.memptr());
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(sam_20_references_5_results)->Unit(benchmark::kMillisecond)->UseRealTime();

void unmix_5_references(benchmark::State& state) {
  const scene& s = scene::instance();
  const corv::matrix five = s.references.rows(0, 4);
  corv::cube fractions, indexes;
  for (auto _ : state) {
    corv::unmix_by_spectra(s.image, s.wavelengths, five, corv::vector(), fractions, indexes, 5);
    benchmark::DoNotOptimize(fractions.memptr());
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(unmix_5_references)->Unit(benchmark::kMillisecond)->UseRealTime();

void svm_20_classes(benchmark::State& state) {
  const scene& s = scene::instance();
  corv::matrix labels;
  for (auto _ : state) {
    corv::vector classes = arma::regspace<corv::vector>(1, 20);
    corv::svm(s.image, s.wavelengths, s.references, corv::vector(), classes, labels);
    benchmark::DoNotOptimize(labels.memptr());
  }
  state.SetItemsProcessed(state.iterations() * rows * cols);
}
BENCHMARK(svm_20_classes)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

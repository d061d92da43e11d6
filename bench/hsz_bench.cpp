// HSZ write and read of a processed image: size x size pixels, 128 bands, 20
// material elements of which every pixel mixes 5, made once from random values
// in a temporary folder removed at exit. compare_hsz.py puts the same write and
// read beside numpy and h5py doing the same work.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "corv/io/data_input.h"
#include "corv/io/hsz_input.h"
#include "corv/io/hsz_output.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace {

constexpr arma::uword bands = 128;
constexpr arma::uword elements = 20;
constexpr arma::uword per_pixel = 5;

class hsz_bench_dir {
 public:
  static hsz_bench_dir& instance() {
    static hsz_bench_dir dir;
    return dir;
  }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  ~hsz_bench_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  hsz_bench_dir() {
    const auto base = std::filesystem::temp_directory_path();
    for (int i = 0;; ++i) {
      path_ = base / ("corv-hsz-bench-" + std::to_string(::getpid()) + "-" + std::to_string(i));
      if (std::filesystem::create_directory(path_)) {
        break;
      }
    }
    corv::logger::instance().set_echo(false);
  }
  std::filesystem::path path_;
};

// A pipeline holding a random decomposition (no image cube: the file does not
// store one).
std::shared_ptr<corv::pipeline> processed_image(arma::uword size) {
  arma::arma_rng::set_seed(5);
  auto source = std::make_shared<corv::data_input>();
  source->set_wavelengths(arma::linspace<corv::vector>(400.0f, 1000.0f, bands));
  source->set_illuminant(corv::vector(bands, arma::fill::randu) + 0.5f);
  source->set_k(corv::matrix(size, size, arma::fill::randu) * 0.3f);
  source->set_g(corv::matrix(size, size, arma::fill::randu));
  source->set_elements(corv::matrix(bands, elements, arma::fill::randu));
  corv::cube abundances(size, size, per_pixel, arma::fill::randu);
  corv::cube indexes(size, size, per_pixel);
  for (arma::uword j = 0; j < per_pixel; ++j) {
    // Distinct element numbers per pixel: element j, j + 5, j + 10 or j + 15.
    indexes.slice(j) =
        arma::floor(corv::matrix(size, size, arma::fill::randu) * (elements / per_pixel)) *
            static_cast<float>(per_pixel) +
        static_cast<float>(j);
  }
  source->set_element_abundances(abundances);
  source->set_element_abundance_indexes(indexes);
  auto image = std::make_shared<corv::pipeline>(source);
  // Take the components into the pipeline once, as a processed image holds them.
  image->k();
  image->g();
  image->material_elements();
  image->material_element_abundances();
  image->material_element_abundance_indexes();
  return image;
}

std::string hsz_of(arma::uword size) {
  static std::map<arma::uword, std::string> made;
  if (const auto found = made.find(size); found != made.end()) {
    return found->second;
  }
  const std::string name = hsz_bench_dir::instance() / (std::to_string(size) + ".hsz");
  corv::hsz_output().write(*processed_image(size), name);
  made[size] = name;
  return name;
}

void hsz_write(benchmark::State& state) {
  const auto size = static_cast<arma::uword>(state.range(0));
  const std::shared_ptr<corv::pipeline> image = processed_image(size);
  const std::string name = hsz_bench_dir::instance() / "written.hsz";
  for (auto _ : state) {
    corv::hsz_output().write(*image, name);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(0));
}
BENCHMARK(hsz_write)
    ->ArgName("size")
    ->Arg(256)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The record with every array, and the components a pipeline takes from it
// without composing: k, g, elements, abundances and their element numbers.
void hsz_read(benchmark::State& state) {
  const std::string name = hsz_of(static_cast<arma::uword>(state.range(0)));
  for (auto _ : state) {
    corv::hsz_input source(name);
    benchmark::DoNotOptimize(source.k().memptr());
    benchmark::DoNotOptimize(source.g().memptr());
    benchmark::DoNotOptimize(source.elements().memptr());
    benchmark::DoNotOptimize(source.element_abundances().memptr());
    benchmark::DoNotOptimize(source.element_abundance_indexes().memptr());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(0));
}
BENCHMARK(hsz_read)
    ->ArgName("size")
    ->Arg(256)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Reflectance composed from the material decomposition: bands x 5 products per pixel.
void hsz_compose_s(benchmark::State& state) {
  corv::hsz_input source(hsz_of(static_cast<arma::uword>(state.range(0))));
  for (auto _ : state) {
    benchmark::DoNotOptimize(source.s().memptr());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(0));
}
BENCHMARK(hsz_compose_s)
    ->ArgName("size")
    ->Arg(256)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

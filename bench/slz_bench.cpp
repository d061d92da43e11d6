// SLZ spectral library read and write. Each library is made once, of random
// spectra with labels, in a temporary folder removed at exit. compare_slz.py puts
// the read beside h5py reading and de-quantising the same file.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"

namespace {

class slz_bench_dir {
 public:
  static slz_bench_dir& instance() {
    static slz_bench_dir dir;
    return dir;
  }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  ~slz_bench_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  slz_bench_dir() {
    const auto base = std::filesystem::temp_directory_path();
    for (int i = 0;; ++i) {
      path_ = base / ("corv-slz-bench-" + std::to_string(::getpid()) + "-" + std::to_string(i));
      if (std::filesystem::create_directory(path_)) {
        break;
      }
    }
    corv::logger::instance().set_echo(false);
  }
  std::filesystem::path path_;
};

corv::spectral_library random_library(arma::uword spectra, arma::uword bands) {
  arma::arma_rng::set_seed(11);
  std::vector<std::string> labels;
  for (arma::uword i = 0; i < spectra; ++i) {
    labels.push_back("mineral sample " + std::to_string(i + 1) + " AREF");
  }
  return corv::spectral_library(corv::matrix(bands, spectra, arma::fill::randu), labels,
                                arma::linspace<corv::vector>(350.0f, 2500.0f, bands));
}

std::string slz_of(arma::uword spectra, arma::uword bands) {
  static std::map<std::pair<arma::uword, arma::uword>, std::string> made;
  const auto key = std::make_pair(spectra, bands);
  if (const auto found = made.find(key); found != made.end()) {
    return found->second;
  }
  const std::string name =
      slz_bench_dir::instance() / (std::to_string(spectra) + "x" + std::to_string(bands) + ".slz");
  random_library(spectra, bands).save(name);
  made[key] = name;
  return name;
}

// The whole library: endmembers, labels, wavelengths and colours.
void slz_read(benchmark::State& state) {
  const std::string name = slz_of(state.range(0), state.range(1));
  for (auto _ : state) {
    corv::spectral_library library;
    library.load(name);
    benchmark::DoNotOptimize(library.endmembers().memptr());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(slz_read)
    ->ArgNames({"spectra", "bands"})
    ->Args({3000, 224})
    ->Args({3000, 2151})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void slz_write(benchmark::State& state) {
  const corv::spectral_library library = random_library(state.range(0), state.range(1));
  const std::string name = slz_bench_dir::instance() / "written.slz";
  for (auto _ : state) {
    library.save(name);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(slz_write)
    ->ArgNames({"spectra", "bands"})
    ->Args({3000, 224})
    ->Args({3000, 2151})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

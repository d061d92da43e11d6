// ENVI read and write throughput. Each benchmark makes its cube once, in a
// temporary folder removed at exit; bytes per second count the cube's float32 size.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace {

// A folder under the system's temporary directory, removed with the process.
class bench_dir {
 public:
  static bench_dir& instance() {
    static bench_dir dir;
    return dir;
  }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  ~bench_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  bench_dir() {
    const auto base = std::filesystem::temp_directory_path();
    for (int i = 0;; ++i) {
      path_ = base / ("corv-bench-" + std::to_string(::getpid()) + "-" + std::to_string(i));
      if (std::filesystem::create_directory(path_)) {
        break;
      }
    }
    corv::logger::instance().set_echo(false);
  }
  std::filesystem::path path_;
};

corv::vector wavelengths(arma::uword bands) {
  return arma::linspace<corv::vector>(400.0f, 1000.0f, bands);
}

corv::cube random_cube(arma::uword lines, arma::uword samples, arma::uword bands) {
  arma::arma_rng::set_seed(7);
  return corv::cube(lines, samples, bands, arma::fill::randu);
}

const char* interleave_name(int interleave) {
  return interleave == 0 ? "bsq" : interleave == 1 ? "bil" : "bip";
}

// The float32 file of a lines x samples x bands cube in the given interleave (0 bsq,
// 1 bil, 2 bip), made on first request. Returns the header's name.
std::string envi_file(int lines, int samples, int bands, int interleave) {
  static std::map<std::string, std::string> made;
  const std::string key = std::to_string(lines) + "x" + std::to_string(samples) + "x" +
                          std::to_string(bands) + interleave_name(interleave);
  if (const auto found = made.find(key); found != made.end()) {
    return found->second;
  }
  const std::string stem = bench_dir::instance() / key;
  const corv::cube data = random_cube(lines, samples, bands);
  corv::write_envi(data, wavelengths(bands), stem + ".fla", 4, false);
  if (interleave != 0) {
    // Re-lay the band-sequential file out by lines, then by pixels if asked.
    std::vector<float> bsq(data.n_elem);
    {
      std::FILE* file = std::fopen((stem + ".fla").c_str(), "rb");
      if (file == nullptr ||
          std::fread(bsq.data(), sizeof(float), bsq.size(), file) != bsq.size()) {
        throw std::runtime_error("envi_bench: cannot read back " + stem + ".fla");
      }
      std::fclose(file);
    }
    std::vector<float> other(bsq.size());
    const std::size_t n_lines = lines, n_samples = samples, n_bands = bands;
    for (std::size_t b = 0; b < n_bands; ++b) {
      for (std::size_t r = 0; r < n_lines; ++r) {
        for (std::size_t c = 0; c < n_samples; ++c) {
          const float value = bsq[(b * n_lines + r) * n_samples + c];
          if (interleave == 1) {
            other[(r * n_bands + b) * n_samples + c] = value;
          } else {
            other[(r * n_samples + c) * n_bands + b] = value;
          }
        }
      }
    }
    std::FILE* file = std::fopen((stem + ".fla").c_str(), "wb");
    if (file == nullptr ||
        std::fwrite(other.data(), sizeof(float), other.size(), file) != other.size()) {
      throw std::runtime_error("envi_bench: cannot write " + stem + ".fla");
    }
    std::fclose(file);
    std::string header = corv::hdr_output(false, 4).header_text(data, wavelengths(bands));
    header.replace(header.find("interleave = bsq"), 16,
                   std::string("interleave = ") + interleave_name(interleave));
    std::FILE* text = std::fopen((stem + ".hdr").c_str(), "wb");
    std::fwrite(header.data(), 1, header.size(), text);
    std::fclose(text);
  }
  made[key] = stem + ".hdr";
  return made[key];
}

std::int64_t cube_bytes(const benchmark::State& state) {
  return state.range(0) * state.range(1) * state.range(2) * std::int64_t{sizeof(float)};
}

// A held read, as the pipeline makes it: open, then the whole cube behind I_ptr().
void envi_read_held(benchmark::State& state) {
  const int interleave = static_cast<int>(state.range(3));
  const std::string name = envi_file(state.range(0), state.range(1), state.range(2), interleave);
  for (auto _ : state) {
    corv::hdr_input in(name, true);
    benchmark::DoNotOptimize(in.I_ptr()->memptr());
  }
  state.SetBytesProcessed(state.iterations() * cube_bytes(state));
  state.SetLabel(interleave_name(interleave));
}
BENCHMARK(envi_read_held)
    ->ArgNames({"lines", "samples", "bands", "interleave"})
    ->Args({512, 512, 64, 0})
    ->Args({512, 512, 64, 1})
    ->Args({512, 512, 64, 2})
    ->Args({1024, 1024, 128, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// A crop of a few bands, unheld: the viewer's band preview.
void envi_read_crop(benchmark::State& state) {
  const std::string name = envi_file(state.range(0), state.range(1), state.range(2), 0);
  corv::hdr_input in(name, false);
  const int half = static_cast<int>(state.range(0)) / 2;
  for (auto _ : state) {
    const corv::cube crop = in.I(corv::band_list{0, 1, 2}, 0, 0, half - 1, half - 1);
    benchmark::DoNotOptimize(crop.memptr());
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t{half} * half * 3 * 4);
}
BENCHMARK(envi_read_crop)
    ->ArgNames({"lines", "samples", "bands"})
    ->Args({1024, 1024, 128})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The raw bytes of the same file read into a new buffer: what a read cannot beat.
void raw_read(benchmark::State& state) {
  const std::string name = envi_file(state.range(0), state.range(1), state.range(2), 0);
  const std::string data = name.substr(0, name.size() - 4) + ".fla";
  const std::size_t size = static_cast<std::size_t>(cube_bytes(state));
  for (auto _ : state) {
    const std::unique_ptr<char[]> buffer(new char[size]);
    const int fd = ::open(data.c_str(), O_RDONLY);
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = ::read(fd, buffer.get() + done, size - done);
      if (got <= 0) {
        break;
      }
      done += static_cast<std::size_t>(got);
    }
    ::close(fd);
    benchmark::DoNotOptimize(buffer.get());
  }
  state.SetBytesProcessed(state.iterations() * cube_bytes(state));
}
BENCHMARK(raw_read)
    ->ArgNames({"lines", "samples", "bands"})
    ->Args({1024, 1024, 128})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// hdr_output of a cube already in a pipeline, in each stored data type.
void envi_write(benchmark::State& state) {
  const int data_type = static_cast<int>(state.range(3));
  corv::pipeline source;
  source.set_I(random_cube(state.range(0), state.range(1), state.range(2)),
               wavelengths(state.range(2)));
  const std::string out = bench_dir::instance() / "written.fla";
  for (auto _ : state) {
    corv::hdr_output(false, data_type).write(source, out);
    state.PauseTiming();
    std::filesystem::remove(out);
    std::filesystem::remove(bench_dir::instance() / "written.hdr");
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * cube_bytes(state));
}
BENCHMARK(envi_write)
    ->ArgNames({"lines", "samples", "bands", "data_type"})
    ->Args({1024, 1024, 128, 4})
    ->Args({1024, 1024, 128, 2})
    ->Args({1024, 1024, 128, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The raw bytes of the same cube written to a new file: what a write cannot beat.
void raw_write(benchmark::State& state) {
  const std::size_t size = static_cast<std::size_t>(cube_bytes(state));
  const corv::cube data = random_cube(state.range(0), state.range(1), state.range(2));
  const char* bytes = reinterpret_cast<const char*>(data.memptr());
  const std::string out = bench_dir::instance() / "written.raw";
  for (auto _ : state) {
    const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::size_t done = 0;
    while (done < size) {
      const ssize_t put = ::write(fd, bytes + done, size - done);
      if (put <= 0) {
        break;
      }
      done += static_cast<std::size_t>(put);
    }
    ::close(fd);
    state.PauseTiming();
    std::filesystem::remove(out);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * cube_bytes(state));
}
BENCHMARK(raw_write)
    ->ArgNames({"lines", "samples", "bands"})
    ->Args({1024, 1024, 128})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

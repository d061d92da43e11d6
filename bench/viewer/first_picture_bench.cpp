// Time to the first picture of a large ENVI image, beside reading three bands and
// reading the whole cube, with the peak memory of each path. Each path runs in a
// process of its own (so that its peak memory is its own), from a cold page cache
// (the file's cached pages are dropped first) and then warm.
//
//   tavr_first_picture_bench [--lines 2048] [--samples 2048] [--bands 128]
//                            [--folder DIR] [--rounds 3]
//
// Goal: the first picture within 20% of reading three bands.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "corv/io/hdr_input.h"
#include "corv/io/logger.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/image/image_loading.h"

namespace fs = std::filesystem;

namespace {

struct figures {
  double seconds = 0.0;
  double peak_mib = 0.0;
};

// Writes a BSQ float32 cube band by band (a smooth pattern, so that it renders as
// a picture), with its header.
void write_cube(const fs::path& data, int lines, int samples, int bands) {
  std::ofstream out(data, std::ios::binary);
  std::vector<float> band(static_cast<std::size_t>(lines) * samples);
  for (int b = 0; b < bands; ++b) {
    for (int r = 0; r < lines; ++r) {
      for (int c = 0; c < samples; ++c) {
        band[static_cast<std::size_t>(r) * samples + c] =
            0.5f + 0.4f * static_cast<float>(std::sin(r * 0.01 + b * 0.05) *
                                             std::cos(c * 0.013 - b * 0.03));
      }
    }
    out.write(reinterpret_cast<const char*>(band.data()),
              static_cast<std::streamsize>(band.size() * sizeof(float)));
  }
  std::ofstream header(fs::path(data).replace_extension(".hdr"));
  header << "ENVI\nsamples = " << samples << "\nlines = " << lines << "\nbands = " << bands
         << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = 4\ninterleave = bsq\n"
            "byte order = 0\nwavelength = {";
  for (int b = 0; b < bands; ++b) {
    header << (b ? ", " : "") << 400.0 + 600.0 * b / (bands - 1);
  }
  header << "}\n";
}

void drop_cache(const fs::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY);
  if (fd >= 0) {
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
  }
}

void warm_cache(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> chunk(1 << 24);
  while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()))) {
  }
}

// Runs the path in a child process and returns its time and peak resident memory.
figures measure(const std::function<void()>& path) {
  int channel[2];
  if (::pipe(channel) != 0) {
    std::perror("pipe");
    std::exit(1);
  }
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(channel[0]);
    const auto start = std::chrono::steady_clock::now();
    path();
    figures out;
    out.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    out.peak_mib = usage.ru_maxrss / 1024.0;
    if (::write(channel[1], &out, sizeof out) != static_cast<ssize_t>(sizeof out)) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  ::close(channel[1]);
  figures out;
  const bool read_all = ::read(channel[0], &out, sizeof out) == static_cast<ssize_t>(sizeof out);
  ::close(channel[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!read_all || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "a measured path failed\n");
    std::exit(1);
  }
  return out;
}

int option(int argc, char** argv, const char* name, int fallback) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) {
      return std::atoi(argv[i + 1]);
    }
  }
  return fallback;
}

}  // namespace

int main(int argc, char** argv) {
  corv::logger::instance().set_echo(false);
  const int lines = option(argc, argv, "--lines", 2048);
  const int samples = option(argc, argv, "--samples", 2048);
  const int bands = option(argc, argv, "--bands", 128);
  const int rounds = std::max(1, option(argc, argv, "--rounds", 3));
  fs::path folder = fs::temp_directory_path();
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--folder") == 0) {
      folder = argv[i + 1];
    }
  }
  folder /= "tavr_first_picture_bench";
  fs::create_directories(folder);
  const fs::path data = folder / "cube.fla";
  std::printf("writing a %d x %d x %d float32 cube (%.0f MiB) to %s\n", lines, samples, bands,
              4.0 * lines * samples * bands / (1 << 20), data.c_str());
  write_cube(data, lines, samples, bands);

  const tavr::rendering_options options;
  const std::string name = data.string();
  const struct {
    const char* what;
    std::function<void()> path;
  } paths[] = {
      {"read three bands (the reference)",
       [&] {
         corv::hdr_input input(name, false);
         const std::array<unsigned, 3> b = tavr::first_picture_bands(input.wavelengths(), options);
         corv::band_list chosen(b.begin(), b.end());
         std::sort(chosen.begin(), chosen.end());
         (void)input.I(chosen);
       }},
      {"first picture (open, three bands, render 1024 wide)",
       [&] {
         corv::hdr_input input(name, false);
         (void)tavr::first_picture(input, options,
                                   tavr::first_picture_step(input.height(), input.width()));
       }},
      {"full picture, streamed 8 bands at a time",
       [&] {
         corv::hdr_input input(name, false);
         (void)tavr::full_picture(input, options, false);
       }},
      {"read the whole cube",
       [&] {
         corv::hdr_input input(name, true);
         (void)input.I_ptr();
       }},
      {"whole cube and its picture (opening before)",
       [&] {
         corv::hdr_input input(name, true);
         const corv::cube_ptr I = input.I_ptr();
         (void)tavr::colour_renderer(options).render_channels(*I, input.wavelengths(),
                                                              corv::vector());
       }},
  };

  std::vector<figures> results[2];
  for (int warm = 0; warm < 2; ++warm) {
    std::printf("\n%s page cache (median of %d)\n", warm ? "warm" : "cold", rounds);
    std::printf("%-52s %10s %12s\n", "path", "seconds", "peak MiB");
    for (const auto& p : paths) {
      std::vector<figures> runs;
      for (int r = 0; r < rounds; ++r) {
        if (warm) {
          warm_cache(data);
        } else {
          drop_cache(data);
        }
        runs.push_back(measure(p.path));
      }
      std::sort(runs.begin(), runs.end(),
                [](const figures& a, const figures& b) { return a.seconds < b.seconds; });
      const figures median = runs[runs.size() / 2];
      results[warm].push_back(median);
      std::printf("%-52s %10.3f %12.0f\n", p.what, median.seconds, median.peak_mib);
    }
  }
  fs::remove_all(folder);
  bool met = true;
  for (int warm = 0; warm < 2; ++warm) {
    const double ratio = results[warm][1].seconds / results[warm][0].seconds;
    std::printf("\nfirst picture / three bands, %s: %.2f (goal <= 1.20)", warm ? "warm" : "cold",
                ratio);
    met = met && (warm == 1 || ratio <= 1.2);
  }
  std::printf("\n");
  return met ? 0 : 1;
}
